// The reference for the benchmarks: the hand-written AVX2 alpha kernels as they were
// before the kernels moved to Highway, kept unchanged (apart from their namespace and
// the table at the end) so that the old and new forms are timed in one run. Built with
// -mavx2 (bench/CMakeLists.txt); never part of the library. 8 pixels a block. The
// arithmetic is that of convert/alpharows_simd.cpp. Unpacks and packs
// work inside 128-bit lanes and give the pixels back in their order; undoing
// premultiplication keeps every pixel in its own dword and spreads its M with byte
// shuffles.
#include <immintrin.h>

#include "convert/alpharows.h"
#include "reference_avx2.h"

namespace kelp {
namespace benchref {
using alpharows::Kernels;
using alpharows::RunFn;
namespace {

inline __m256i Load(const uint8_t* p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
inline void Store(uint8_t* p, __m256i v) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}

const int32_t kAlphaMask = int32_t(0xFF000000u);

inline __m256i AlphaBoth(__m256i x) {
    __m256i a = _mm256_srli_epi32(x, 24);
    return _mm256_or_si256(a, _mm256_slli_epi32(a, 16));
}
inline __m256i EvenBytes(__m256i x) {
    return _mm256_and_si256(x, _mm256_set1_epi32(0x00FF00FF));
}
inline __m256i OddByte(__m256i x) {
    return _mm256_and_si256(_mm256_srli_epi32(x, 8), _mm256_set1_epi32(0xFF));
}
inline __m256i Join(__m256i even, __m256i odd, __m256i x) {
    return _mm256_or_si256(_mm256_or_si256(even, _mm256_slli_epi32(odd, 8)),
                           _mm256_and_si256(x, _mm256_set1_epi32(kAlphaMask)));
}

inline __m256i PremulRgb(__m256i c, __m256i a2) {
    __m256i t = _mm256_add_epi16(_mm256_mullo_epi16(c, a2), _mm256_set1_epi16(128));
    return _mm256_mulhi_epu16(t, _mm256_set1_epi16(257));
}

inline __m256i PremulYuv(__m256i c, __m256i a2, __m256i k, __m256i bias) {
    __m256i u = _mm256_add_epi16(
        _mm256_sub_epi16(_mm256_mullo_epi16(c, a2), _mm256_mullo_epi16(k, a2)), bias);
    return _mm256_srli_epi16(_mm256_sub_epi16(_mm256_add_epi16(u, _mm256_srli_epi16(u, 8)), k), 8);
}

} // namespace

void Premultiply_AVX2(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    for (int32_t i = 0; i < pixels; i += 8) {
        __m256i x = Load(src + 4 * i);
        __m256i a2 = AlphaBoth(x);
        Store(dst + 4 * i, Join(PremulRgb(EvenBytes(x), a2), PremulRgb(OddByte(x), a2), x));
    }
}

void PremultiplyYuv_AVX2(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    const __m256i kEven = _mm256_set1_epi32(16 | (128 << 16));
    const __m256i kOdd = _mm256_set1_epi32(128);
    const __m256i bias = _mm256_set1_epi16(128);
    const __m256i biasEven = _mm256_add_epi16(bias, _mm256_slli_epi16(kEven, 8));
    const __m256i biasOdd = _mm256_add_epi16(bias, _mm256_slli_epi16(kOdd, 8));
    for (int32_t i = 0; i < pixels; i += 8) {
        __m256i x = Load(src + 4 * i);
        __m256i a2 = AlphaBoth(x);
        Store(dst + 4 * i, Join(PremulYuv(EvenBytes(x), a2, kEven, biasEven),
                                PremulYuv(OddByte(x), a2, kOdd, biasOdd), x));
    }
}

void Fill_AVX2(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    const __m256i alpha = _mm256_set1_epi32(kAlphaMask);
    for (int32_t i = 0; i < pixels; i += 8)
        Store(dst + 4 * i, _mm256_or_si256(Load(src + 4 * i), alpha));
}

void Unpremultiply_AVX2(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    const __m256i one = _mm256_set1_epi32(1);
    const __m256 numerator = _mm256_set1_ps(255.0f * 65536.0f + 255.0f);
    // Each pixel's M, low 16 bits and high byte, in both 16-bit lanes of its dword.
    const __m256i spreadLow = _mm256_setr_epi8(0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13,
                                               0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13);
    const __m256i spreadHigh =
        _mm256_setr_epi8(2, -1, 2, -1, 6, -1, 6, -1, 10, -1, 10, -1, 14, -1, 14, -1, 2, -1, 2, -1,
                         6, -1, 6, -1, 10, -1, 10, -1, 14, -1, 14, -1);
    // The odd result's low byte to byte 1 of its pixel, nothing else.
    const __m256i toByte1 =
        _mm256_setr_epi8(-1, 0, -1, -1, -1, 4, -1, -1, -1, 8, -1, -1, -1, 12, -1, -1, -1, 0, -1, -1,
                         -1, 4, -1, -1, -1, 8, -1, -1, -1, 12, -1, -1);
    const __m256i evenMask = _mm256_set1_epi32(0x00FF00FF);
    for (int32_t i = 0; i < pixels; i += 8) {
        __m256i x = Load(src + 4 * i);
        __m256i a = _mm256_max_epu32(_mm256_srli_epi32(x, 24), one);
        __m256i m = _mm256_cvttps_epi32(_mm256_div_ps(numerator, _mm256_cvtepi32_ps(a)));
        __m256i mHigh = _mm256_shuffle_epi8(m, spreadHigh),
                mLow = _mm256_shuffle_epi8(m, spreadLow);
        __m256i even = _mm256_and_si256(x, evenMask); // bytes 0 and 2
        __m256i odd = _mm256_srli_epi16(x, 8);        // byte 1 (and alpha, dropped below)
        __m256i qe =
            _mm256_add_epi16(_mm256_mullo_epi16(even, mHigh), _mm256_mulhi_epu16(even, mLow));
        __m256i qo =
            _mm256_add_epi16(_mm256_mullo_epi16(odd, mHigh), _mm256_mulhi_epu16(odd, mLow));
        __m256i out =
            _mm256_or_si256(_mm256_and_si256(qe, evenMask), _mm256_shuffle_epi8(qo, toByte1));
        Store(dst + 4 * i, _mm256_or_si256(out, _mm256_slli_epi32(a, 24)));
    }
}

namespace {

template <RunFn Vec, RunFn Plain> void AnyRun(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    int32_t n = pixels - pixels % 8;
    if (n > 0) Vec(src, dst, n);
    if (pixels > n) Plain(src + 4 * n, dst + 4 * n, pixels - n);
}

} // namespace

const Kernels& AlphaAVX2() {
    static constexpr Kernels k = {
        "old avx2",
        AnyRun<Premultiply_AVX2, alpharows::Premultiply_C>,
        AnyRun<PremultiplyYuv_AVX2, alpharows::PremultiplyYuv_C>,
        AnyRun<Fill_AVX2, alpharows::Fill_C>,
        AnyRun<Unpremultiply_AVX2, alpharows::Unpremultiply_C>,
    };
    return k;
}

} // namespace benchref
} // namespace kelp
