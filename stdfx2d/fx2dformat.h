// Small readers of the descriptor fields that the transform looks at.
#pragma once

#include <cstdint>
#include <cstdlib>

#include <kelp/kxbih.h>

namespace stdfx2d {
namespace fx2dformat {

inline bool HasExtension(const KXBMINFOHEADER* h) {
    return h->biSize >= KXBMI_SIZE;
}

// The YUV extension of a record that is long enough to have one.
inline const KXYUVEXT* Yuv(const KXBMINFOHEADER* h) {
    return reinterpret_cast<const KXYUVEXT*>(reinterpret_cast<const uint8_t*>(h) + KXBMI_EXTOFFSET);
}

inline uint32_t Format(const KXBMINFOHEADER* h) {
    return HasExtension(h) ? h->bmiFormat : 0;
}

// One plane, 32 bits, the two fields not stored apart.
inline bool Plain32(const KXBMINFOHEADER* h) {
    return h && h->biPlanes == 1 && h->biBitCount == 32 && (Format(h) & KXBMIFORMAT_TWOFIELDS) == 0;
}

// A meshed "@YUV" record of 24 or 32 bits with 8-bit samples.
inline bool YuvOk(const KXBMINFOHEADER* h) {
    if (!h || h->biCompression != KXBI_YUV || h->biSize < KXBMI_SIZE_YUV) return false;
    if (h->biPlanes != 1 || (h->biBitCount != 24 && h->biBitCount != 32)) return false;
    if (h->bmiFormat & KXBMIFORMAT_TWOFIELDS) return false;
    const uint32_t bits = Yuv(h)->yuvBits;
    return bits == 0 || bits == 8;
}

inline bool IsYuv(const KXBMINFOHEADER* h) {
    return h->biCompression == KXBI_YUV && h->biSize >= KXBMI_SIZE_YUV;
}
inline bool Is444(const KXBMINFOHEADER* h) {
    return IsYuv(h) && Yuv(h)->yuvSampling == KXYUV_SAMPLING_444;
}
inline bool Is422(const KXBMINFOHEADER* h) {
    return IsYuv(h) && (Yuv(h)->yuvSampling == KXYUV_SAMPLING_422 ||
                        Yuv(h)->yuvSampling == KXYUV_SAMPLING_422B);
}

// Black of a video-range image (colour space 0 or 2) is 16, else 0.
inline int Black(const KXBMINFOHEADER* h) {
    if (!h || !IsYuv(h)) return 0;
    const uint32_t cs = Yuv(h)->yuvColorSpace;
    return (cs == 0 || cs == 2) ? 16 : 0;
}

// An interlaced image: bmiFrame bit 0 clear.
inline bool Interlaced(const KXBMINFOHEADER* h) {
    return HasExtension(h) && (h->bmiFrame & 1) == 0;
}

inline int32_t AbsHeight(const KXBMINFOHEADER* h) {
    return h->biHeight < 0 ? -h->biHeight : h->biHeight;
}

} // namespace fx2dformat
} // namespace stdfx2d
