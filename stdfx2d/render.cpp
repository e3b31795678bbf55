// From the call's arguments to a raster pass: the background brought to the target's
// geometry, the identity shortcut, the placement, the quality rules and the dispatch.
#include <algorithm>
#include <cmath>
#include <cstring>

#include <kelp/stdfx_dib.h>

#include "runtime/kelpos.h"
#include "stdfx2d/blend.h"
#include "stdfx2d/fx2d.h"
#include "stdfx2d/fx2dformat.h"
#include "stdfx2d/raster.h"

namespace stdfx2d {

using namespace fx2dformat;

namespace {

bool NeedsResample(const KXBMINFOHEADER* img, const KXBMINFOHEADER* target) {
    if (img->biWidth != target->biWidth || AbsHeight(img) != AbsHeight(target)) return true;
    return Interlaced(img) && ((img->bmiFormat ^ target->bmiFormat) & KXBMIFORMAT_FIELDSWAP);
}

bool Smaller(const KXBMINFOHEADER* img, const KXBMINFOHEADER* target) {
    return img->biWidth < target->biWidth || AbsHeight(img) < AbsHeight(target);
}

void FillImage(RasterImage& im, const KXBMINFOHEADER* h, void* bits) {
    im.bits = static_cast<uint8_t*>(bits);
    im.stride = stdfx::DIBStride(h);
    im.width = h->biWidth;
    im.height = AbsHeight(h);
    im.depth = h->biBitCount;
    im.black = Black(h);
    if (Is422(h)) {
        im.bytes = 2;
        if (h->biBitCount == 32) {
            im.alpha = im.bits + im.stride * im.height;
            im.alphaStride = stdfx::DIBAlphaStride(h);
        }
    } else
        im.bytes = h->biBitCount / 8;
}

// A target freshly mapped by its allocator (a conversion stage's temporary) would be
// faulted in a page at a time as the rows are written; backing its pixel rows at once
// costs a fraction of that. A target in use is left as it is.
void PrepareTargetPages(const KXBMINFOHEADER* h, void* bits) {
    const int64_t stride = stdfx::DIBStride(h), height = AbsHeight(h);
    if (stride <= 0 || height <= 0 || h->biWidth <= 0) return;
    const int64_t row = Is422(h) ? ((int64_t(h->biWidth) + 1) & ~int64_t(1)) * 2
                                 : int64_t(h->biWidth) * (h->biBitCount / 8);
    kelp::os::PagePrepareWrite(bits, size_t(stride * (height - 1) + std::min(stride, row)));
}

} // namespace

void CFx2d::MakeJob(RasterJob& job) const {
    FillImage(job.target, m_target, m_targetBits);
    FillImage(job.source, m_source, m_sourceBits);
    job.hasBackground = m_background != nullptr && m_backgroundBits != nullptr;
    if (job.hasBackground) FillImage(job.background, m_background, m_backgroundBits);
    job.field = m_field;
    job.step = m_field == -1 ? 1 : 2;
    const int32_t H = job.target.height;
    const int32_t firstRow = DIBFirstFieldRow(m_target, m_field);
    job.backward = (m_target->biHeight < 0) != (m_source->biHeight < 0);
    if (job.backward) {
        const int32_t last = m_field == -1 ? H - 1 : H - 1 - ((H - 1 - firstRow) & 1);
        job.first = H - 1 - last;
    } else
        job.first = firstRow;
    const stdfx::CRect& tr = m_targetRect;
    const stdfx::CRect& pb = m_placedBounds;
    job.before = std::max(0, tr.bottom - std::max(tr.top, pb.bottom));
    job.rows = std::max(0, m_span.Height());
    if (m_field == -1)
        job.table0 = 0;
    else {
        const int32_t k = (m_source->biHeight < 0 || (H & 1)) ? m_field : (m_field == 0 ? 1 : 0);
        job.table0 = (job.before - k) & 1;
    }
    const int32_t W = job.target.width;
    job.left = std::max(0, std::min(tr.right, pb.left) - tr.left);
    job.left = std::min(job.left, W);
    const int32_t c = m_rasterMode == 0 && m_filter.Kind() == CFilter::kNearest
                          ? std::min(tr.right, pb.right) - std::max(tr.left, pb.left)
                          : m_span.Width();
    job.columns = std::max(0, std::min(c, W - job.left));
    job.right =
        std::max(0, std::min(W - job.left - job.columns, tr.right - std::max(tr.left, pb.right)));
    job.spanWidth = m_span.Width();
    job.rowTaps = m_rowTaps;
    job.columnTaps = m_columnTaps;
    job.work = m_workRow;
    job.full = (1 << m_weightBits) << m_weightShift;
    job.shift = m_rasterMode == 2 ? 14 : 6;
    job.seed = m_rasterMode == 2 ? 8192 : 32;
    job.rowLookup = m_rowLookup;
    job.columnLookup = m_columnLookup;
    job.empty = Is444(m_target) || Is422(m_target) ? 0x808000u + uint32_t(job.source.black) : 0u;
}

int CFx2d::Resample(stdfx::CDIB& out, const KXBMINFOHEADER* src, void* srcBits, int depth) {
    KXBMINFOHEADERYUV rec;
    std::memset(&rec, 0, sizeof rec);
    std::memcpy(
        &rec, src,
        std::min<size_t>(src->biSize >= KXBMI_SIZE_YUV ? KXBMI_SIZE_YUV : KXBMI_SIZE, sizeof rec));
    KXBMINFOHEADER& h = rec.bmi;
    h.biWidth = m_target->biWidth;
    h.biHeight = m_target->biHeight;
    h.bmiFormat = m_target->bmiFormat;
    h.bmiFrame = m_field == -1 ? 1 : 0;
    h.bmiStride = 0;
    h.bmiAlphaOffset = 0;
    h.bmiAlphaStride = 0;
    h.biBitCount = uint16_t(depth);
    h.biSizeImage = 0;
    h.bmiAnchorX = h.bmiAnchorY = 0;
    h.bmiRatioX = m_target->bmiRatioX;
    if (!out.Create(&h)) return FX2D_OUTOFMEMORY;
    h.biSizeImage = stdfx::DIBImageSize(out.Header());
    out.Header()->biSizeImage = h.biSizeImage;
    const KXBMINFOHEADER* fixed = src;
    KXBMINFOHEADERYUV srcRec;
    if (src->bmiRatioX != m_target->bmiRatioX) { // the picture fills the target whatever its ratio
        std::memcpy(&srcRec, src, src->biSize >= KXBMI_SIZE_YUV ? KXBMI_SIZE_YUV : KXBMI_SIZE);
        srcRec.bmi.bmiRatioX = m_target->bmiRatioX;
        fixed = &srcRec.bmi;
    }
    FX2DPARAM param = {};
    param.size = sizeof param;
    param.scaleX = double(m_target->biWidth) / src->biWidth;
    param.scaleY = double(AbsHeight(m_target)) / AbsHeight(src);
    CFx2d scaler(FX2D_MODE_FILTER);
    KXBMINFOHEADER* list[2] = {const_cast<KXBMINFOHEADER*>(fixed), nullptr};
    void* bits[2] = {srcBits, nullptr};
    const int r = scaler.Transform(out.Header(), out.Bits(), list, bits, param, 1, 0, -1);
    return r == FX2D_OK ? FX2D_OK : r;
}

int CFx2d::PrepareBackground(KXBMINFOHEADER* const* sources, void* const* sourceBits) {
    m_background = nullptr;
    m_backgroundBits = nullptr;
    KXBMINFOHEADER* second = sources[1];
    if (!second) return FX2D_OK;
    m_background = second;
    m_backgroundBits = sourceBits[1];
    KXBMINFOHEADER* third = sources[2];
    if (!m_backgroundBits) return FX2D_BADFORMAT;
    if (third && !sourceBits[2]) return FX2D_BADFORMAT;
    int thirdDepth = 0;
    if (third) {
        thirdDepth = Smaller(third, m_target) ? 32 : third->biBitCount;
        if (NeedsResample(third, m_target)) {
            const int r = Resample(m_image[1], third, sourceBits[2], thirdDepth);
            if (r != FX2D_OK) return r;
        } else {
            m_image[1].Attach(third, sourceBits[2]);
        }
    }
    if (third || NeedsResample(second, m_target)) {
        int depth = Smaller(second, m_target) ? 32 : second->biBitCount;
        if (third) depth = std::max(std::min<int>(depth, third->biBitCount), thirdDepth);
        stdfx::CDIB resampled;
        const int r = Resample(third ? resampled : m_image[0], second, sourceBits[1], depth);
        if (r != FX2D_OK) return r;
        if (third) {
            if (!m_image[0].Create(resampled.Header())) return FX2D_OUTOFMEMORY;
            BlendImages(m_image[0].Header(), m_image[0].Bits(), resampled.Header(),
                        resampled.Bits(), m_image[1].Header(), m_image[1].Bits(), 255, -1);
        }
        m_image[1].Release();
        m_background = m_image[0].Header();
        m_backgroundBits = m_image[0].Bits();
    }
    return FX2D_OK;
}

int CFx2d::RenderIdentity() {
    BlendImages(m_target, m_targetBits, m_source, m_sourceBits, m_background, m_backgroundBits,
                m_alpha, m_field);
    return FX2D_OK;
}

int CFx2d::Render(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* const* sources,
                  void* const* sourceBits, const FX2DPARAM& param, int useBackground,
                  int composeAfter, int field) {
    m_target = target;
    m_targetBits = targetBits;
    m_source = sources[0];
    m_sourceBits = sourceBits[0];
    m_field = field;
    std::memcpy(&m_param, &param, sizeof m_param);
    m_ratioX = m_ratioY = 1.0;
    if (HasExtension(target) && HasExtension(m_source) &&
        target->bmiRatioX != m_source->bmiRatioX) {
        float s, t;
        std::memcpy(&s, &m_source->bmiRatioX, 4);
        std::memcpy(&t, &target->bmiRatioX, 4);
        const double sr = m_source->bmiRatioX == 0 ? 1.0 : double(s);
        const double tr = target->bmiRatioX == 0 ? 1.0 : 1.0 / double(t);
        m_ratioX = sr * tr;
    }
    double t = m_param.transparency;
    t = t < 0.0 ? 0.0 : (t > 100.0 ? 100.0 : t);
    if (!(t == t)) t = 0.0;
    m_alpha = std::max(0, std::min(255, int32_t((1.0 - t * 0.01) * 255.0 + 0.5)));
    m_targetRect.Set(0, 0, target->biWidth, AbsHeight(target));
    m_sourceRect.Set(0, 0, m_source->biWidth, AbsHeight(m_source));

    // Composing afterwards is not part of this library's use.
    if (useBackground == 0 || composeAfter != 0) return FX2D_BADFORMAT;
    int r = PrepareBackground(sources, sourceBits);
    if (r != FX2D_OK) return r;

    PrepareTargetPages(target, targetBits);
    const bool sameFields =
        !Interlaced(m_source) || (Interlaced(target) && m_source->bmiFormat == target->bmiFormat);
    if (IsIdentity() && m_sourceRect == m_targetRect && sameFields) return RenderIdentity();

    // A scale that places nothing (0, negative, not a number) leaves the background.
    const double sx = ScaleX(), sy = ScaleY();
    const bool usable = sx > 0.0 && sy > 0.0 && sx < 1e7 && sy < 1e7 &&
                        std::isfinite(m_param.offsetX) && std::isfinite(m_param.offsetY) &&
                        std::fabs(m_param.offsetX) < 1e4 && std::fabs(m_param.offsetY) < 1e4;
    if (usable)
        ComputeGeometry();
    else {
        m_placedBounds.Clear();
        m_sourceClip.Clear();
        m_span.Clear();
    }
    if ((m_softnessX != 0.0 || m_softnessY != 0.0) && m_mode != FX2D_MODE_SOFT)
        SetQuality(FX2D_MODE_SOFT);
    if (m_mode == FX2D_MODE_FILTER) {
        const int b = m_filterBits;
        if (((sy < 0.05 || sx < 0.05) && b < 6) || m_softnessX != 0.0 || m_softnessY != 0.0)
            m_filterBits = 6;
        else if ((sy < 0.1 || sx < 0.1) && b < 5)
            m_filterBits = 5;
        else if ((sy < 0.2 || sx < 0.2) && b < 4)
            m_filterBits = 4;
        else if ((sy < 0.4 || sx < 0.4) && b < 3)
            m_filterBits = 3;
    }
    if (!HasArea()) {
        ClearTarget();
        return FX2D_OK;
    }
    // The vector forms of the raster paths never read beyond a row, so the source is
    // used in place: no padded copy is needed.
    if (target->biCompression == KXBI_RGB) {
        if (m_rasterMode == 0) return RasterRGBNearest();
        if (m_rasterMode == 2) return RasterRGBSoft();
        return RasterRGBFilter();
    }
    if (Is444(target)) {
        if (m_rasterMode == 0) return RasterYUV444Nearest();
        if (m_rasterMode == 2) return RasterYUV444Soft();
        return RasterYUV444Filter();
    }
    if (Is422(target)) {
        if (m_rasterMode == 0) return RasterYUV422Nearest();
        if (m_rasterMode == 2) {
            m_filter.Select(CFilter::kSoftCubic);
            m_rasterMode = 1;
            m_filterBits = 6;
        }
        return RasterYUV422Filter();
    }
    return FX2D_NOPATH;
}

void CFx2d::SetUpForTest(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* const* sources,
                         void* const* sourceBits, const FX2DPARAM& param, int field) {
    m_target = target;
    m_targetBits = targetBits;
    m_source = sources[0];
    m_sourceBits = sourceBits[0];
    m_field = field;
    std::memcpy(&m_param, &param, sizeof m_param);
    m_targetRect.Set(0, 0, target->biWidth, AbsHeight(target));
    m_sourceRect.Set(0, 0, m_source->biWidth, AbsHeight(m_source));
    ComputeGeometry();
}

} // namespace stdfx2d
