// CFx2d: construction, the quality choices, the format checks and the guarded entry.
#include "stdfx2d/fx2d.h"

#include <cmath>
#include <exception>
#include <new>

#include <kelp/kelpcpu.h>
#include <kelp/mpheap.h>

#include "stdfx2d/fx2dformat.h"

namespace stdfx2d {

namespace {

// Sizes the raster paths can walk: no negative width, sizes within 2^24, and a row size
// that holds a row of pixels.
bool RowsFit(const KXBMINFOHEADER* h) {
    if (h->biWidth < 0 || h->biWidth > (1 << 24) || h->biHeight < -(1 << 24) ||
        h->biHeight > (1 << 24))
        return false;
    if (h->biWidth == 0 || h->biHeight == 0) return true;
    const int64_t stride = stdfx::DIBStride(h);
    const int64_t w = h->biWidth;
    const int64_t need =
        fx2dformat::Is422(h) ? 2 * ((w + 1) & ~int64_t(1)) : w * (h->biBitCount / 8);
    return stride >= need;
}

} // namespace

int DIBFirstFieldRow(const KXBMINFOHEADER* h, int field) {
    if (field == -1 || !h) return 0;
    int row;
    if (h->biHeight < 0)
        row = field == 0 ? 0 : 1;
    else if (field == 0)
        row = (h->biHeight & 1) ? 0 : 1;
    else
        row = (h->biHeight & 1) ? 1 : 0;
    if (h->biSize >= KXBMI_SIZE && (h->bmiFormat & KXBMIFORMAT_FIELDSWAP)) row ^= 1;
    return row;
}

CFx2d::CFx2d(int mode) {
    m_sizeRect.Clear();
    m_centredRect.Clear();
    m_placedRect.Clear();
    SetQuality(mode);
}

CFx2d::~CFx2d() {
    FreeTaps();
}

void CFx2d::SetQuality(int mode) {
    m_mode = mode;
    if (mode == FX2D_MODE_NEAREST) {
        m_filter.Select(CFilter::kNearest);
        m_rasterMode = 0;
    } else if (mode == FX2D_MODE_SOFT) {
        m_filter.Select(CFilter::kSoftCubic);
        m_rasterMode = 2;
    } else {
        m_filter.Select(CFilter::kCubicBSpline);
        m_rasterMode = 1;
        m_filterBits = 2;
    }
}

void CFx2d::SetFilter(int kind, int bits) {
    m_filter.Select(kind);
    if (m_mode == FX2D_MODE_FILTER) {
        m_filterBits = bits;
        if (bits == 0) m_filter.Select(CFilter::kNearest);
    }
    if (m_filter.Kind() == CFilter::kNearest) {
        m_rasterMode = 0;
        m_mode = 0;
    }
}

void CFx2d::SetSoftnessX(double softness) {
    m_softnessX = softness;
}

void CFx2d::SetSoftnessY(double softness) {
    m_softnessY = softness;
}

int CFx2d::TransformDIB(stdfx::CDIB& target, stdfx::CDIB& source, const FX2DPARAM& param,
                        int field) {
    if (!target.IsValid() || !target.MakeWritable()) return FX2D_FAILED;
    KXBMINFOHEADER* list[2] = {source.IsValid() ? source.Header() : nullptr, nullptr};
    void* bits[2] = {source.IsValid() ? source.Bits() : nullptr, nullptr};
    return Transform(target.Header(), target.Bits(), list, bits, param, 1, 0, field);
}

int CFx2d::Transform(KXBMINFOHEADER* target, void* targetBits, KXBMINFOHEADER* const* sources,
                     void* const* sourceBits, const FX2DPARAM& param, int useBackground,
                     int composeAfter, int field) {
    if (!CheckFormats(target, sources)) return FX2D_BADFORMAT;
    if (target->biWidth == 0 || target->biHeight == 0) return FX2D_OK;
    // What the caller has not given cannot be rendered: no pixels, no image.
    if (!targetBits || !sources || !sources[0] || !sourceBits || !sourceBits[0])
        return FX2D_BADFORMAT;
    if (field < -1 || field > 1) return FX2D_BADFORMAT;
    if (!RowsFit(target)) return FX2D_BADFORMAT;
    for (int i = 0; i < 3 && sources[i]; ++i)
        if (!sourceBits[i] || !RowsFit(sources[i])) return FX2D_BADFORMAT;
    try {
        return Render(target, targetBits, sources, sourceBits, param, useBackground, composeAfter,
                      field);
    } catch (const std::bad_alloc&) {
        return FX2D_OUTOFMEMORY;
    } catch (kelp::bad_alloc*) {
        return FX2D_OUTOFMEMORY;
    } catch (...) {
        return FX2D_FAILED;
    }
}

bool CFx2d::CheckRGBFormats(const KXBMINFOHEADER* target, KXBMINFOHEADER* const* sources) {
    if (!fx2dformat::Plain32(target)) return false;
    for (int i = 0; sources && i < 3 && sources[i]; ++i) {
        const KXBMINFOHEADER* s = sources[i];
        if (!fx2dformat::Plain32(s) || s->biCompression != KXBI_RGB) return false;
    }
    return true;
}

bool CFx2d::CheckYUVFormats(const KXBMINFOHEADER* target, KXBMINFOHEADER* const* sources) {
    if (!fx2dformat::YuvOk(target)) return false;
    const KXYUVEXT* t = fx2dformat::Yuv(target);
    if (t->yuvSampling != KXYUV_SAMPLING_444 && t->yuvSampling != KXYUV_SAMPLING_422B) return false;
    if (t->yuvSamplingAux != 0) return false;
    for (int i = 0; sources && i < 3 && sources[i]; ++i) {
        const KXBMINFOHEADER* s = sources[i];
        if (!fx2dformat::YuvOk(s)) return false;
        const KXYUVEXT* y = fx2dformat::Yuv(s);
        if (y->yuvSampling != t->yuvSampling || y->yuvSamplingAux != t->yuvSamplingAux)
            return false;
    }
    return true;
}

bool CFx2d::CheckFormats(const KXBMINFOHEADER* target, KXBMINFOHEADER* const* sources) {
    if (!target) return false;
    if (target->biCompression == KXBI_RGB) return CheckRGBFormats(target, sources);
    if (target->biCompression == KXBI_YUV) return CheckYUVFormats(target, sources);
    return false;
}

namespace {
bool NearOne(double v) {
    const float f = float(v);
    return f > 1.0f - 0x1p-23f && f < 1.0f + 0x1p-23f;
}
bool NearZero(double v) {
    const float f = float(v);
    return f > -0x1p-23f && f < 0x1p-23f;
}
} // namespace

bool CFx2d::IsIdentity() {
    return NearOne(ScaleX()) && NearOne(ScaleY()) && NearZero(m_param.offsetX) &&
           NearZero(m_param.offsetY) && NearZero(m_softnessX) && NearZero(m_softnessY);
}

bool CFx2d::HasArea() {
    return m_sourceRect.Width() >= 1 && m_sourceRect.Height() >= 1 && m_span.Width() >= 1 &&
           m_span.Height() >= 1 && m_placedBounds.Width() >= 1 && m_placedBounds.Height() >= 1;
}

void CFx2d::SetWeightScale() {
    if (m_rasterMode == 1) {
        // Bits beyond 0..6 would leave the 16-bit budget of the fast filter.
        const int32_t bits = m_filterBits < 0 ? 0 : (m_filterBits > 6 ? 6 : m_filterBits);
        m_weightShift = 6 - bits;
        m_weightBits = bits;
    } else {
        m_weightShift = 0;
        m_weightBits = 14;
    }
}

bool CFx2d::UseSse2() const {
    return m_useSse2 && kelp::IsSSE2CPU();
}

bool CFx2d::UseSse() const {
    return m_useSse && kelp::IsSSECPU();
}

} // namespace stdfx2d
