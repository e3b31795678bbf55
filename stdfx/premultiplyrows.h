// The row kernels of the alpha multiplications: colour times alpha, and colour divided
// by alpha through a table of reciprocals.
//
// The plain loops (suffix _C, premultiplyrows.cpp) define every result; the vector forms
// (premultiplyrows_simd.cpp) give the same bytes on whole vectors and leave the rest of a
// run to the plain loop. All work in place.
#pragma once

#include <cstdint>

namespace stdfx {
namespace premultiplyrows {

// Pixels of 4 bytes, the fourth alpha (BGRA, or Y U V A). Premultiply: each of the three
// colour bytes c becomes (t + (t >> 8)) >> 8 with t = c a + 128. Unpremultiply: each
// becomes (c R[a]) >> 16, at most 255, with R the 256 reciprocals 0xFF0000 / a. The
// vector forms rely on every entry of R lying below 2^24, as the reciprocals' do.
typedef void (*PremultiplyFn)(uint8_t* px, int32_t pixels);
typedef void (*UnpremultiplyFn)(uint8_t* px, int32_t pixels, const int32_t* recip);
// One-plane 4:2:2 rows with their alpha plane row: the two luma bytes by their own
// pixel's alpha, the pair's chroma by the alpha of its first pixel. `uyvy`: U Y V Y
// order, else Y U Y V.
typedef void (*Premultiply422Fn)(uint8_t* row, const uint8_t* alpha, int32_t pixels, bool uyvy);
typedef void (*Unpremultiply422Fn)(uint8_t* row, const uint8_t* alpha, int32_t pixels, bool uyvy,
                                   const int32_t* recip);

struct Kernels {
    const char* name;
    PremultiplyFn premultiply;
    UnpremultiplyFn unpremultiply;
    Premultiply422Fn premultiply422;
    Unpremultiply422Fn unpremultiply422;
};

// The two formulas on one byte.
inline uint8_t Premultiplied(int c, int a) {
    const int t = c * a + 128;
    const int v = (t + (t >> 8)) >> 8;
    return uint8_t(v > 255 ? 255 : v);
}
inline uint8_t Unpremultiplied(int c, int a, const int32_t* recip) {
    const uint32_t v = (uint32_t(c) * uint32_t(recip[a])) >> 16;
    return uint8_t(v > 255 ? 255 : v);
}

void Premultiply_C(uint8_t* px, int32_t pixels);
void Unpremultiply_C(uint8_t* px, int32_t pixels, const int32_t* recip);
void Premultiply422_C(uint8_t* row, const uint8_t* alpha, int32_t pixels, bool uyvy);
void Unpremultiply422_C(uint8_t* row, const uint8_t* alpha, int32_t pixels, bool uyvy,
                        const int32_t* recip);

const Kernels& PlainKernels();
const Kernels& ForTarget(int target);
const Kernels& Current();
const Kernels* VectorKernels(int target);

} // namespace premultiplyrows
} // namespace stdfx
