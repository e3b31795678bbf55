// The operations of CDIB that the compositor does: Compose (a blend of another image
// into this one) and the dissolves BlendTwo and BlendThree (this image written from one
// or two others at a whole-image opacity).
#include <kelp/stdfx_compose.h>
#include <kelp/stdfx_dib.h>

#include <cstring>

#include "composepixel.h"
#include "composerows.h"
#include "dibformat.h"
#include "dibrowspan.h"

namespace stdfx {

namespace {

enum class Form { None, Rgb, Yuv444, Yuv422 };

Form FormOf(const CDIB& dib) {
    const KXBMINFOHEADER* h = dib.Header();
    if (h->biBitCount != 32) return Form::None;
    if (h->biCompression == KXBI_RGB) return h->biPlanes <= 1 ? Form::Rgb : Form::None;
    if (h->biCompression != KXBI_YUV || h->biPlanes > 1) return Form::None;
    if (Sampling(h) == KXYUV_SAMPLING_444) return Form::Yuv444;
    return HasAlphaPlane(h) ? Form::Yuv422 : Form::None;
}

// A source of a dissolve: valid, the size and the storage of the target, rows that hold
// their pixels.
bool Matches(const CDIB& target, const CDIB& source) {
    if (!source.IsValid() || source.Width() != target.Width() ||
        source.Height() != target.Height() || FormOf(source) != FormOf(target))
        return false;
    if (Sampling(source.Header()) != Sampling(target.Header()) && FormOf(target) != Form::Rgb)
        return false;
    RowSpan span;
    return MakeRowSpan(source, -1, &span) &&
           (FormOf(source) != Form::Yuv422 || MakeAlphaSpan(source, -1, &span));
}

// 16 for a video-range YUV source, else 0.
int LumaOffset(const CDIB& source) {
    const KXBMINFOHEADER* h = source.Header();
    if (!IsYuvFormat(h->biCompression)) return 0;
    const uint32_t cs = ColorSpace(h);
    return cs == 0 || cs == 2 ? 16 : 0;
}

uint8_t* LineOf(const CDIB& dib, int displayLine) {
    return static_cast<uint8_t*>(dib.Bits()) +
           ptrdiff_t(MemoryLine(dib, displayLine)) * dib.Stride();
}
uint8_t* AlphaLineOf(const CDIB& dib, int displayLine) {
    return dib.GetAlphaPlane() + ptrdiff_t(MemoryLine(dib, displayLine)) * dib.GetAlphaStride();
}

// Calls f(displayLine) for the lines of a field of `target` (-1: all lines).
template <class F> void ForEachLine(const CDIB& target, int field, F&& f) {
    const int height = target.Height();
    const int first = field == -1 ? 0 : target.FirstLine(field);
    const int step = field == -1 ? 1 : 2;
    for (int m = first; m < height; m += step)
        f(target.IsBottomUp() ? height - 1 - m : m);
}

// The common refusals of the dissolves; `done` where the answer is true without work.
bool AdmitTarget(CDIB& target, bool* done) {
    *done = false;
    if (target.Header()->biBitCount != 32) return false;
    if (target.Width() <= 0 || target.Height() == 0) {
        *done = true;
        return true;
    }
    RowSpan span;
    if (FormOf(target) == Form::None || !MakeRowSpan(target, -1, &span)) return false;
    return FormOf(target) != Form::Yuv422 || MakeAlphaSpan(target, -1, &span);
}

int LumaParity(const CDIB& dib) {
    return Sampling(dib.Header()) == KXYUV_SAMPLING_422B ? 1 : 0;
}

// The temporary of Compose: the source in this image's depth form.
bool ToDepthForm(const CDIB& target, const CDIB& source, CDIB* temp) {
    KXBMINFOHEADERYUV h;
    std::memset(&h, 0, sizeof h);
    source.GetHeader(&h);
    KXBMINFOHEADERYUV t;
    std::memset(&t, 0, sizeof t);
    target.GetHeader(&t);
    h.bmi.biCompression = target.Format();
    h.bmi.biBitCount = 32;
    h.bmi.biPlanes = 1;
    h.bmi.biSizeImage = 0;
    h.bmi.bmiRect = KXRECT{};
    h.bmi.bmiStride = 0;
    h.bmi.bmiAlphaOffset = 0;
    h.bmi.bmiAlphaStride = 0;
    if (IsYuvFormat(target.Format())) {
        h.bmi.biSize = KXBMI_SIZE_YUV;
        h.bmi.bmiExtOffset = KXBMI_EXTOFFSET;
        h.yuv = t.yuv;
        h.yuv.yuvBits = 8;
        h.yuv.yuvSampling = KXYUV_SAMPLING_444;
    } else if (h.bmi.biSize < KXBMI_SIZE) {
        h.bmi.biSize = KXBMI_SIZE;
    }
    return temp->Create(&h.bmi) && temp->Convert(source, -1, 1);
}

} // namespace

bool CDIB::Compose(const CDIB& source, int a, int b) {
    if (!IsValid() || !source.IsValid() || !MakeWritable()) return false;
    const bool depth = IsBGRAZ() || IsYUVz();
    CDIB temp;
    const CDIB* src = &source;
    if (depth != (source.IsBGRAZ() || source.IsYUVz())) {
        if (!ToDepthForm(*this, source, &temp)) return false;
        src = &temp;
    }
    CDibCompose c{uint32_t(a), uint32_t(a)};
    if (IsBGRAZ()) return c.ComposeZ(*this, *src, 0, b);
    if (IsYUVz()) return c.ComposeZYUV(*this, *src, 0, b);
    if (IsFlatYUV()) return c.ComposeYUV(*this, *src, 0, b);
    return c.Compose(*this, *src, 0, b);
}

bool CDIB::BlendTwo(const CDIB& source, int opacity, int field) {
    if (!IsValid() || !source.IsValid() || !MakeWritable()) return false;
    bool done;
    if (!AdmitTarget(*this, &done)) return false;
    if (done) return true;
    if (!Matches(*this, source)) return false;
    const int a = opacity < 0 ? 0 : opacity > 255 ? 255 : opacity;
    const int k = LumaOffset(source), width = Width();
    const Form form = FormOf(*this);
    const composerows::Kernels& kernels = composerows::Current();
    ForEachLine(*this, field, [&](int y) {
        uint8_t* d = LineOf(*this, y);
        const uint8_t* s = LineOf(source, y);
        switch (form) {
        case Form::Rgb:
            kernels.scale(d, s, 4 * width, a);
            break;
        case Form::Yuv444:
            kernels.scale444(d, s, width, a, k);
            break;
        default:
            kernels.scale422(d, s, 2 * ((width + 1) & ~1), a, k, LumaParity(*this));
            kernels.scale(AlphaLineOf(*this, y), AlphaLineOf(source, y), width, a);
            break;
        }
    });
    return true;
}

bool CDIB::BlendThree(const CDIB& first, const CDIB& second, int opacity, int field) {
    if (!IsValid() || !first.IsValid() || !second.IsValid() || !MakeWritable()) return false;
    bool done;
    if (!AdmitTarget(*this, &done)) return false;
    if (done) return true;
    if (!Matches(*this, first) || !Matches(*this, second)) return false;
    const int a = opacity < 0 ? 0 : opacity > 255 ? 255 : opacity;
    const int k = LumaOffset(first), width = Width();
    const Form form = FormOf(*this);
    const composerows::Kernels& kernels = composerows::Current();
    ForEachLine(*this, field, [&](int y) {
        uint8_t* d = LineOf(*this, y);
        const uint8_t* s = LineOf(first, y);
        const uint8_t* b = LineOf(second, y);
        switch (form) {
        case Form::Rgb:
            kernels.mix(d, s, b, width, a);
            break;
        case Form::Yuv444:
            kernels.mix444(d, s, b, width, a, k);
            break;
        default:
            kernels.mix422(d, AlphaLineOf(*this, y), s, AlphaLineOf(first, y), b,
                           AlphaLineOf(second, y), width, a, k, LumaParity(*this));
            break;
        }
    });
    return true;
}

} // namespace stdfx
