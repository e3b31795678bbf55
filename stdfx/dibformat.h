// Format questions about a header that the toolkit's files share.
#pragma once

#include <kelp/kxbih.h>

namespace stdfx {

// yuvBits of a YUV header, 0 and a short header reading as 8.
int YuvBits(const KXBMINFOHEADER* h);

inline uint32_t Sampling(const KXBMINFOHEADER* h) {
    return h->biSize >= KXBMI_SIZE_YUV ? kelp::DIBYuv(h)->yuvSampling : 0xFFFFFFFFu;
}
inline uint32_t ColorSpace(const KXBMINFOHEADER* h) {
    return h->biSize >= KXBMI_SIZE_YUV ? kelp::DIBYuv(h)->yuvColorSpace : 0;
}
inline bool IsYuvFormat(uint32_t f) {
    return f == KXBI_YUV || f == KXBI_YUVZ;
}
inline bool IsRgbFormat(uint32_t f) {
    return f == KXBI_RGB || f == KXBI_RGBZ;
}
// One-plane 4:2:2 "@YUV".
inline bool IsPacked422(const KXBMINFOHEADER* h) {
    const uint32_t s = Sampling(h);
    return h->biCompression == KXBI_YUV && h->biPlanes <= 1 &&
           (s == KXYUV_SAMPLING_422 || s == KXYUV_SAMPLING_422B);
}
// The 4:2:2 image with an alpha plane behind its rows.
inline bool HasAlphaPlane(const KXBMINFOHEADER* h) {
    return IsPacked422(h) && h->biBitCount == 32;
}

} // namespace stdfx
