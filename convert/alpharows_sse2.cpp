// SSE2 forms of the alpha kernels, 4 pixels a block.
//
// Premultiplication, RGB, in 16-bit lanes: with t := c a + 128 (at most 65153),
// (t + (t >> 8)) >> 8 equals (t * 257) >> 16, the high half of one unsigned multiply.
// (Write t = 256 q + r: both are q + floor((q + r + f) / 256) with f = 0 or r / 256,
// and a fraction below 1 cannot carry q + r past a multiple of 256.)
//
// Premultiplication, YUV, for a centre K (16 for luma, 128 for chroma): the signed rule
// t := (c - K) a + 128, c' := ((t + (t >> 8)) >> 8) + K with arithmetic shifts equals in
// unsigned 16-bit arithmetic
//     u := c a - K a + 128 + 256 K,   c' := (u + (u >> 8) - K) >> 8,
// because adding 256 K before a floor shift by 8 adds exactly K after it, and u and the
// sum stay within 0..65535 for every c and a, so the wrap-around of the 16-bit products
// and differences cancels out.
//
// Undoing premultiplication: for each alpha a (0 read as 1) one single-precision
// division gives M := floor((255 * 65536 + 255) / a), correctly rounded, and then
// floor(c * 255 / a) = (c * M) >> 16 for every c. M a - 255 * 65536 lies in 0..255, so
// the excess of c M / 65536 over c * 255 / a stays below 1 / a, the least distance of a
// quotient that is not whole from the next integer. Only the low byte is kept, so the
// high part of M, M >> 16, multiplies in 16 bits with wrap-around, and the low part
// through the high half of a 16-bit multiply. The colour bytes go through in two sets
// of 16-bit lanes as in premultiplication.
#include <emmintrin.h>

#include "alpharows.h"

namespace kelp {
namespace alpharows {
namespace {

inline __m128i Load(const uint8_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline void Store(uint8_t* p, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

const int32_t kAlphaMask = int32_t(0xFF000000u);

// Premultiplication works on the pixel's bytes in two sets of 16-bit lanes: the even
// bytes (0 and 2) and the odd ones (byte 1, with 0 in place of alpha, which comes back
// from the source unchanged). a2 holds the pixel's alpha in both lanes of its dword.
inline __m128i AlphaBoth(__m128i x) {
    __m128i a = _mm_srli_epi32(x, 24);
    return _mm_or_si128(a, _mm_slli_epi32(a, 16));
}
inline __m128i EvenBytes(__m128i x) {
    return _mm_and_si128(x, _mm_set1_epi32(0x00FF00FF));
}
inline __m128i OddByte(__m128i x) {
    return _mm_and_si128(_mm_srli_epi32(x, 8), _mm_set1_epi32(0xFF));
}
inline __m128i Join(__m128i even, __m128i odd, __m128i x) {
    return _mm_or_si128(_mm_or_si128(even, _mm_slli_epi32(odd, 8)),
                        _mm_and_si128(x, _mm_set1_epi32(kAlphaMask)));
}

inline __m128i PremulRgb(__m128i c, __m128i a2) {
    __m128i t = _mm_add_epi16(_mm_mullo_epi16(c, a2), _mm_set1_epi16(128));
    return _mm_mulhi_epu16(t, _mm_set1_epi16(257));
}

// k: the centres of the lanes; bias: 128 + 256 k.
inline __m128i PremulYuv(__m128i c, __m128i a2, __m128i k, __m128i bias) {
    __m128i u = _mm_add_epi16(_mm_sub_epi16(_mm_mullo_epi16(c, a2), _mm_mullo_epi16(k, a2)), bias);
    return _mm_srli_epi16(_mm_sub_epi16(_mm_add_epi16(u, _mm_srli_epi16(u, 8)), k), 8);
}

} // namespace

void Premultiply_SSE2(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    for (int32_t i = 0; i < pixels; i += 4) {
        __m128i x = Load(src + 4 * i);
        __m128i a2 = AlphaBoth(x);
        Store(dst + 4 * i, Join(PremulRgb(EvenBytes(x), a2), PremulRgb(OddByte(x), a2), x));
    }
}

void PremultiplyYuv_SSE2(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    const __m128i kEven = _mm_set1_epi32(16 | (128 << 16)); // luma, second chroma
    const __m128i kOdd = _mm_set1_epi32(128);               // first chroma, (alpha)
    const __m128i bias = _mm_set1_epi16(128);
    const __m128i biasEven = _mm_add_epi16(bias, _mm_slli_epi16(kEven, 8));
    const __m128i biasOdd = _mm_add_epi16(bias, _mm_slli_epi16(kOdd, 8));
    for (int32_t i = 0; i < pixels; i += 4) {
        __m128i x = Load(src + 4 * i);
        __m128i a2 = AlphaBoth(x);
        Store(dst + 4 * i, Join(PremulYuv(EvenBytes(x), a2, kEven, biasEven),
                                PremulYuv(OddByte(x), a2, kOdd, biasOdd), x));
    }
}

void Fill_SSE2(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    const __m128i alpha = _mm_set1_epi32(kAlphaMask);
    for (int32_t i = 0; i < pixels; i += 4)
        Store(dst + 4 * i, _mm_or_si128(Load(src + 4 * i), alpha));
}

void Unpremultiply_SSE2(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    const __m128i one = _mm_set1_epi32(1);
    const __m128i low16 = _mm_set1_epi32(0xFFFF);
    const __m128i evenMask = _mm_set1_epi32(0x00FF00FF);
    const __m128i byte1 = _mm_set1_epi32(0xFF00);
    const __m128 numerator = _mm_set1_ps(255.0f * 65536.0f + 255.0f);
    for (int32_t i = 0; i < pixels; i += 4) {
        __m128i x = Load(src + 4 * i);
        __m128i a = _mm_max_epi16(_mm_srli_epi32(x, 24), one); // a <= 255: 16-bit max will do
        __m128i m = _mm_cvttps_epi32(_mm_div_ps(numerator, _mm_cvtepi32_ps(a)));
        // M's high byte and low 16 bits, each in both 16-bit lanes of the pixel's dword.
        __m128i mHigh = _mm_srli_epi32(m, 16);
        mHigh = _mm_or_si128(mHigh, _mm_slli_epi32(mHigh, 16));
        __m128i mLow = _mm_and_si128(m, low16);
        mLow = _mm_or_si128(mLow, _mm_slli_epi32(mLow, 16));
        __m128i even = _mm_and_si128(x, evenMask); // bytes 0 and 2
        __m128i odd = _mm_srli_epi16(x, 8);        // byte 1 (and alpha, dropped below)
        __m128i qe = _mm_add_epi16(_mm_mullo_epi16(even, mHigh), _mm_mulhi_epu16(even, mLow));
        __m128i qo = _mm_add_epi16(_mm_mullo_epi16(odd, mHigh), _mm_mulhi_epu16(odd, mLow));
        __m128i out =
            _mm_or_si128(_mm_and_si128(qe, evenMask), _mm_and_si128(_mm_slli_epi32(qo, 8), byte1));
        Store(dst + 4 * i, _mm_or_si128(out, _mm_slli_epi32(a, 24)));
    }
}

} // namespace alpharows
} // namespace kelp
