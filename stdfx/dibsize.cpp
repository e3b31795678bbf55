// Row and image sizes of the toolkit's images. Products are formed in 64 bits: a record
// whose sizes do not fit in 31 bits is no image the toolkit can hold, and sizes to 0.
#include <kelp/stdfx_dib.h>

#include "dibformat.h"

namespace stdfx {

namespace {

constexpr int64_t kMax = 0x7FFFFFFF;

int64_t Up(int64_t v, int64_t a) {
    return (v + a - 1) / a * a;
}
int64_t AbsHeight(const KXBMINFOHEADER* h) {
    return h->biHeight < 0 ? -int64_t(h->biHeight) : h->biHeight;
}
int64_t PackedRow(const KXBMINFOHEADER* h) {
    return (int64_t(h->biBitCount) * h->biWidth + 31) / 32 * 4;
}

int64_t Stride64(const KXBMINFOHEADER* h) {
    if (h->biSize >= KXBMI_SIZE && h->bmiStride != 0) return h->bmiStride;
    if (h->biWidth < 0) return 0;
    const int64_t w = h->biWidth;
    int64_t s = 0;
    switch (h->biCompression) {
    case KXBI_RGB:
        s = h->biPlanes <= 1 ? PackedRow(h) : (w + 3) / 4 * 4;
        break;
    case KXBI_RGBZ:
        s = (PackedRow(h) / 4 + w) * 4;
        break;
    case KXBI_YUV:
        if (h->biSize < KXBMI_SIZE_YUV) return 0;
        switch (kelp::DIBYuv(h)->yuvSampling) {
        case KXYUV_SAMPLING_444:
            s = h->biPlanes > 1 ? Up(w, 4) : PackedRow(h);
            break;
        case KXYUV_SAMPLING_422:
        case KXYUV_SAMPLING_422B:
            if (h->biPlanes > 1) return 0;
            s = 2 * int64_t((YuvBits(h) + 7) / 8) * Up(w, 2);
            break;
        default:
            return 0;
        }
        break;
    case KXBI_YUVZ:
        if (h->biSize < KXBMI_SIZE_YUV || kelp::DIBYuv(h)->yuvSampling != KXYUV_SAMPLING_444)
            return 0;
        s = (PackedRow(h) / 4 + w) * 4;
        break;
    default:
        return 0;
    }
    if (h->biSize >= KXBMI_SIZE && h->bmiAlignment == 64) s = Up(s, 64);
    return s;
}

int64_t Size64(const KXBMINFOHEADER* h) {
    const int64_t height = AbsHeight(h);
    const int64_t stride = Stride64(h);
    const int64_t planes = h->biPlanes == 0 ? 1 : h->biPlanes;
    switch (h->biCompression) {
    case KXBI_RGB:
    case KXBI_RGBZ:
        return stride * height * planes;
    case CDIB::kFormatALP1:
        if (h->biSizeImage != 0) return h->biSizeImage;
        return height * PackedRow(h);
    case KXBI_YUV:
    case KXBI_YUVZ:
        break;
    default:
        return 0;
    }
    if (h->biSize < KXBMI_SIZE_YUV || h->biWidth < 0) return 0;
    const int64_t evenHeight =
        (h->bmiFormat & KXBMIFORMAT_TWOFIELDS) ? (height + 1) / 2 * 2 : height;
    const uint32_t sampling = kelp::DIBYuv(h)->yuvSampling;
    if (sampling == KXYUV_SAMPLING_444) return stride * evenHeight * planes;
    if (h->biCompression == KXBI_YUVZ) return 0; // the depth form is 4:4:4 only
    if (sampling != KXYUV_SAMPLING_422 && sampling != KXYUV_SAMPLING_422B) return 0;
    const int64_t w = h->biWidth;
    if (h->biPlanes <= 1) {
        int64_t size = stride * height;
        if (h->biBitCount == 32) size += DIBAlphaStride(h) * height;
        return size;
    }
    // Planar: Y, U and V planes, and an alpha plane at 32 and 64 bits.
    const int64_t b = (YuvBits(h) + 7) / 8;
    int64_t y = Up(w * b, 4), c = Up((w + 1) / 2 * b, 4);
    if (h->bmiAlignment == 64) {
        y = Up(y, 64);
        c = Up(c, 64);
    }
    int64_t size = evenHeight * (y + 2 * c);
    if (h->biBitCount == 32 || h->biBitCount == 64) size += evenHeight * Up(w, 4);
    return size;
}

} // namespace

int YuvBits(const KXBMINFOHEADER* h) {
    if (h->biSize < KXBMI_SIZE_YUV) return 8;
    const uint32_t bits = kelp::DIBYuv(h)->yuvBits;
    return bits == 0 ? 8 : bits > 64 ? 64 : int(bits);
}

int32_t DIBStride(const KXBMINFOHEADER* h) {
    if (!h) return 0;
    const int64_t s = Stride64(h);
    return s > kMax ? 0 : int32_t(s);
}

uint32_t DIBImageSize(const KXBMINFOHEADER* h) {
    if (!h) return 0;
    const int64_t s = Size64(h);
    return s > kMax || s < 0 ? 0 : uint32_t(s);
}

int32_t DIBAlphaStride(const KXBMINFOHEADER* h) {
    if (h->biSize >= KXBMI_SIZE && h->bmiAlphaStride != 0)
        return int32_t(h->bmiAlphaStride & 0x7FFFFFFF);
    return h->biWidth < 0 ? 0 : int32_t(Up(h->biWidth, 4) & 0x7FFFFFFF);
}

const wchar_t* DIBFormatString(const KXBMINFOHEADER* h) {
    if (!h) return L"???";
    if (h->biCompression == CDIB::kFormatALP1) return L"ALP1";
    return kelp::DIBFormatName(h);
}

} // namespace stdfx
