// SSE2 forms of the depth row kernels, 16 pixels a block. SSE2 has no byte shuffle:
// 24-bit pixels are moved into and out of 32-bit lanes with whole-register byte shifts
// and 64-bit lane shifts under masks.
#include <emmintrin.h>

#include "depthrows.h"

namespace kelp {
namespace depthrows {
namespace {

inline __m128i Load(const uint8_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline void Store(uint8_t* p, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

// Four BGRA pixels to twelve BGR bytes in bytes 0-11, zero above.
inline __m128i Pack3(__m128i x) {
    // In each 64-bit lane: pixel 0 stays at bytes 0-2, pixel 1 moves from 4-6 to 3-5.
    const __m128i m0 = _mm_set1_epi64x(0x0000000000FFFFFFll);
    const __m128i m1 = _mm_set1_epi64x(0x0000FFFFFF000000ll);
    __m128i q = _mm_or_si128(_mm_and_si128(x, m0), _mm_and_si128(_mm_srli_epi64(x, 8), m1));
    // The upper lane's six bytes move from 8-13 to 6-11.
    const __m128i lo6 = _mm_set_epi64x(0, 0x0000FFFFFFFFFFFFll);
    const __m128i hi6 = _mm_set_epi64x(0x00000000FFFFFFFFll, 0xFFFF000000000000ll);
    return _mm_or_si128(_mm_and_si128(q, lo6), _mm_and_si128(_mm_srli_si128(q, 2), hi6));
}

// Sixteen BGRA pixels to 48 BGR bytes.
inline void Store48(uint8_t* d, __m128i p0, __m128i p1, __m128i p2, __m128i p3) {
    __m128i r0 = Pack3(p0), r1 = Pack3(p1), r2 = Pack3(p2), r3 = Pack3(p3);
    Store(d, _mm_or_si128(r0, _mm_slli_si128(r1, 12)));
    Store(d + 16, _mm_or_si128(_mm_srli_si128(r1, 4), _mm_slli_si128(r2, 8)));
    Store(d + 32, _mm_or_si128(_mm_srli_si128(r2, 8), _mm_slli_si128(r3, 4)));
}

// Twelve BGR bytes in bytes 0-11 to four BGRA pixels with alpha 255.
inline __m128i Unpack3(__m128i x) {
    const __m128i lo6 = _mm_set_epi64x(0, 0x0000FFFFFFFFFFFFll);
    const __m128i hi6 = _mm_set_epi64x(0x0000FFFFFFFFFFFFll, 0);
    __m128i q = _mm_or_si128(_mm_and_si128(x, lo6), _mm_and_si128(_mm_slli_si128(x, 2), hi6));
    const __m128i m0 = _mm_set1_epi64x(0x0000000000FFFFFFll);
    const __m128i m1 = _mm_set1_epi64x(0x00FFFFFF00000000ll);
    const __m128i alpha = _mm_set1_epi32(int32_t(0xFF000000u));
    return _mm_or_si128(_mm_or_si128(_mm_and_si128(q, m0), _mm_and_si128(_mm_slli_epi64(q, 8), m1)),
                        alpha);
}

// Sixteen pixels of 5-5-5 words (in two registers) to BGRA.
inline void From555(__m128i v, __m128i* lo, __m128i* hi) {
    const __m128i mb = _mm_set1_epi16(0x00F8);
    const __m128i mg = _mm_set1_epi16(int16_t(0xF800));
    const __m128i ff00 = _mm_set1_epi16(int16_t(0xFF00));
    __m128i bg = _mm_or_si128(_mm_and_si128(_mm_slli_epi16(v, 3), mb),
                              _mm_and_si128(_mm_slli_epi16(v, 6), mg));
    __m128i ra = _mm_or_si128(_mm_and_si128(_mm_srli_epi16(v, 7), mb), ff00);
    *lo = _mm_unpacklo_epi16(bg, ra);
    *hi = _mm_unpackhi_epi16(bg, ra);
}

// Eight pixels of one 1-bit source byte, most significant bit first.
inline void From1Bit(uint8_t b, __m128i p0, __m128i diff, __m128i* lo, __m128i* hi) {
    const __m128i bitsLo = _mm_setr_epi32(0x80, 0x40, 0x20, 0x10);
    const __m128i bitsHi = _mm_setr_epi32(0x08, 0x04, 0x02, 0x01);
    __m128i v = _mm_set1_epi32(b);
    __m128i mLo = _mm_cmpeq_epi32(_mm_and_si128(v, bitsLo), bitsLo);
    __m128i mHi = _mm_cmpeq_epi32(_mm_and_si128(v, bitsHi), bitsHi);
    *lo = _mm_xor_si128(p0, _mm_and_si128(diff, mLo));
    *hi = _mm_xor_si128(p0, _mm_and_si128(diff, mHi));
}

inline __m128i Lookup4(const uint32_t* t, const uint8_t* s) {
    return _mm_setr_epi32(int32_t(t[s[0]]), int32_t(t[s[1]]), int32_t(t[s[2]]), int32_t(t[s[3]]));
}
inline __m128i LookupPairs(const uint64_t* t, const uint8_t* s) {
    return _mm_set_epi64x(int64_t(t[s[1]]), int64_t(t[s[0]]));
}

} // namespace

void Pal1To32_SSE2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    const __m128i p0 = _mm_set1_epi32(int32_t(pal->bgra[0]));
    const __m128i diff = _mm_xor_si128(p0, _mm_set1_epi32(int32_t(pal->bgra[1])));
    for (int32_t x = 0; x < width; x += 8) {
        __m128i lo, hi;
        From1Bit(src[x >> 3], p0, diff, &lo, &hi);
        Store(dst + 4 * x, lo);
        Store(dst + 4 * x + 16, hi);
    }
}

void Pal1To24_SSE2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    const __m128i p0 = _mm_set1_epi32(int32_t(pal->bgra[0]));
    const __m128i diff = _mm_xor_si128(p0, _mm_set1_epi32(int32_t(pal->bgra[1])));
    for (int32_t x = 0; x < width; x += 16) {
        __m128i a, b, c, d;
        From1Bit(src[x >> 3], p0, diff, &a, &b);
        From1Bit(src[(x >> 3) + 1], p0, diff, &c, &d);
        Store48(dst + 3 * x, a, b, c, d);
    }
}

void Pal4To32_SSE2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    for (int32_t x = 0; x < width; x += 16) {
        const uint8_t* s = src + (x >> 1);
        uint8_t* d = dst + 4 * x;
        Store(d, LookupPairs(pal->pairs, s));
        Store(d + 16, LookupPairs(pal->pairs, s + 2));
        Store(d + 32, LookupPairs(pal->pairs, s + 4));
        Store(d + 48, LookupPairs(pal->pairs, s + 6));
    }
}

void Pal4To24_SSE2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    for (int32_t x = 0; x < width; x += 16) {
        const uint8_t* s = src + (x >> 1);
        Store48(dst + 3 * x, LookupPairs(pal->pairs, s), LookupPairs(pal->pairs, s + 2),
                LookupPairs(pal->pairs, s + 4), LookupPairs(pal->pairs, s + 6));
    }
}

void Pal8To32_SSE2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    for (int32_t x = 0; x < width; x += 16) {
        Store(dst + 4 * x, Lookup4(pal->bgra, src + x));
        Store(dst + 4 * x + 16, Lookup4(pal->bgra, src + x + 4));
        Store(dst + 4 * x + 32, Lookup4(pal->bgra, src + x + 8));
        Store(dst + 4 * x + 48, Lookup4(pal->bgra, src + x + 12));
    }
}

void Pal8To24_SSE2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    for (int32_t x = 0; x < width; x += 16)
        Store48(dst + 3 * x, Lookup4(pal->bgra, src + x), Lookup4(pal->bgra, src + x + 4),
                Lookup4(pal->bgra, src + x + 8), Lookup4(pal->bgra, src + x + 12));
}

void Rgb555To32_SSE2(const uint8_t* src, uint8_t* dst, int32_t width) {
    for (int32_t x = 0; x < width; x += 16) {
        __m128i a, b, c, d;
        From555(Load(src + 2 * x), &a, &b);
        From555(Load(src + 2 * x + 16), &c, &d);
        Store(dst + 4 * x, a);
        Store(dst + 4 * x + 16, b);
        Store(dst + 4 * x + 32, c);
        Store(dst + 4 * x + 48, d);
    }
}

void Rgb555To24_SSE2(const uint8_t* src, uint8_t* dst, int32_t width) {
    for (int32_t x = 0; x < width; x += 16) {
        __m128i a, b, c, d;
        From555(Load(src + 2 * x), &a, &b);
        From555(Load(src + 2 * x + 16), &c, &d);
        Store48(dst + 3 * x, a, b, c, d);
    }
}

void BgrTo32_SSE2(const uint8_t* src, uint8_t* dst, int32_t width) {
    for (int32_t x = 0; x < width; x += 16) {
        const uint8_t* s = src + 3 * x;
        uint8_t* d = dst + 4 * x;
        __m128i i0 = Load(s), i1 = Load(s + 16), i2 = Load(s + 32);
        Store(d, Unpack3(i0));
        Store(d + 16, Unpack3(_mm_or_si128(_mm_srli_si128(i0, 12), _mm_slli_si128(i1, 4))));
        Store(d + 32, Unpack3(_mm_or_si128(_mm_srli_si128(i1, 8), _mm_slli_si128(i2, 8))));
        Store(d + 48, Unpack3(_mm_srli_si128(i2, 4)));
    }
}

void BgraTo24_SSE2(const uint8_t* src, uint8_t* dst, int32_t width) {
    for (int32_t x = 0; x < width; x += 16) {
        const uint8_t* s = src + 4 * x;
        Store48(dst + 3 * x, Load(s), Load(s + 16), Load(s + 32), Load(s + 48));
    }
}

} // namespace depthrows
} // namespace kelp
