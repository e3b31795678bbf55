// The reference for the benchmarks: the hand-written AVX2 depth kernels as they were
// before the kernels moved to Highway, kept unchanged (apart from their namespace and
// the table at the end) so that the old and new forms are timed in one run. Built with
// -mavx2 (bench/CMakeLists.txt); never part of the library. 32 pixels a block. Byte shuffles work
// inside 128-bit lanes, so 24-bit groups are loaded a lane at a time and packed results are
// gathered across lanes with a dword permute.
#include <immintrin.h>

#include "convert/depthrows.h"
#include "reference_avx2.h"

namespace kelp {
namespace benchref {
using namespace depthrows;
namespace {

inline __m128i Load16(const uint8_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline void Store32(uint8_t* p, __m256i v) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}
inline __m256i Load2x16(const uint8_t* lo, const uint8_t* hi) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(Load16(lo)), Load16(hi), 1);
}

// Eight BGRA pixels to 24 BGR bytes in bytes 0-23.
inline __m256i Pack3(__m256i x) {
    const __m256i shuf = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0,
                                          1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    const __m256i perm = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
    return _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(x, shuf), perm);
}

// Thirty-two BGRA pixels to 96 BGR bytes. Each store but the last overlaps the next
// one's start; the last is split so that nothing is written past the block.
inline void Store96(uint8_t* d, __m256i p0, __m256i p1, __m256i p2, __m256i p3) {
    Store32(d, Pack3(p0));
    Store32(d + 24, Pack3(p1));
    Store32(d + 48, Pack3(p2));
    __m256i r3 = Pack3(p3);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 72), _mm256_castsi256_si128(r3));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 88), _mm256_extracti128_si256(r3, 1));
}

// Sixteen 5-5-5 words to sixteen BGRA pixels in order.
inline void From555(__m256i v, __m256i* a, __m256i* b) {
    const __m256i mb = _mm256_set1_epi16(0x00F8);
    const __m256i mg = _mm256_set1_epi16(int16_t(0xF800));
    const __m256i ff00 = _mm256_set1_epi16(int16_t(0xFF00));
    __m256i bg = _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi16(v, 3), mb),
                                 _mm256_and_si256(_mm256_slli_epi16(v, 6), mg));
    __m256i ra = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(v, 7), mb), ff00);
    __m256i lo = _mm256_unpacklo_epi16(bg, ra); // pixels 0-3, 8-11
    __m256i hi = _mm256_unpackhi_epi16(bg, ra); // pixels 4-7, 12-15
    *a = _mm256_permute2x128_si256(lo, hi, 0x20);
    *b = _mm256_permute2x128_si256(lo, hi, 0x31);
}

// Eight pixels of one 1-bit source byte, most significant bit first.
inline __m256i From1Bit(uint8_t b, __m256i p0, __m256i diff) {
    const __m256i bits = _mm256_setr_epi32(0x80, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02, 0x01);
    __m256i m = _mm256_cmpeq_epi32(_mm256_and_si256(_mm256_set1_epi32(b), bits), bits);
    return _mm256_xor_si256(p0, _mm256_and_si256(diff, m));
}

// The 16 entries of a 4-bit table as three byte planes (blue, green, red), each in both
// lanes, for in-lane byte shuffles.
struct Planes {
    __m256i b, g, r;
};
inline Planes MakePlanes(const uint32_t* bgra) {
    const __m128i gather = _mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    __m128i e0 = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bgra)), gather);
    __m128i e1 =
        _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bgra + 4)), gather);
    __m128i e2 =
        _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bgra + 8)), gather);
    __m128i e3 =
        _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bgra + 12)), gather);
    // Each e holds four entries as dwords B, G, R, A: transpose the 4 x 4 dwords.
    __m128i t0 = _mm_unpacklo_epi32(e0, e1); // B0 B1 G0 G1
    __m128i t1 = _mm_unpacklo_epi32(e2, e3); // B2 B3 G2 G3
    __m128i t2 = _mm_unpackhi_epi32(e0, e1); // R0 R1 A0 A1
    __m128i t3 = _mm_unpackhi_epi32(e2, e3); // R2 R3 A2 A3
    Planes p;
    p.b = _mm256_broadcastsi128_si256(_mm_unpacklo_epi64(t0, t1));
    p.g = _mm256_broadcastsi128_si256(_mm_unpackhi_epi64(t0, t1));
    p.r = _mm256_broadcastsi128_si256(_mm_unpacklo_epi64(t2, t3));
    return p;
}

// Thirty-two 4-bit indices (16 source bytes, high nibble first) to 32 BGRA pixels.
inline void From4Bit(const uint8_t* s, const Planes& pl, __m256i out[4]) {
    const __m128i low = _mm_set1_epi8(0x0F);
    __m128i x = Load16(s);
    __m128i hi = _mm_and_si128(_mm_srli_epi16(x, 4), low);
    __m128i lo = _mm_and_si128(x, low);
    __m256i idx = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_unpacklo_epi8(hi, lo)),
                                          _mm_unpackhi_epi8(hi, lo), 1);
    __m256i b = _mm256_shuffle_epi8(pl.b, idx);
    __m256i g = _mm256_shuffle_epi8(pl.g, idx);
    __m256i r = _mm256_shuffle_epi8(pl.r, idx);
    const __m256i ff = _mm256_set1_epi8(-1);
    __m256i bgLo = _mm256_unpacklo_epi8(b, g), bgHi = _mm256_unpackhi_epi8(b, g);
    __m256i raLo = _mm256_unpacklo_epi8(r, ff), raHi = _mm256_unpackhi_epi8(r, ff);
    __m256i p0 = _mm256_unpacklo_epi16(bgLo, raLo); // pixels 0-3, 16-19
    __m256i p1 = _mm256_unpackhi_epi16(bgLo, raLo); // 4-7, 20-23
    __m256i p2 = _mm256_unpacklo_epi16(bgHi, raHi); // 8-11, 24-27
    __m256i p3 = _mm256_unpackhi_epi16(bgHi, raHi); // 12-15, 28-31
    out[0] = _mm256_permute2x128_si256(p0, p1, 0x20);
    out[1] = _mm256_permute2x128_si256(p2, p3, 0x20);
    out[2] = _mm256_permute2x128_si256(p0, p1, 0x31);
    out[3] = _mm256_permute2x128_si256(p2, p3, 0x31);
}

// Eight 8-bit indices to eight table words, by one gather.
inline __m256i Lookup8(const uint32_t* t, const uint8_t* s) {
    __m256i idx = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(s)));
    return _mm256_i32gather_epi32(reinterpret_cast<const int*>(t), idx, 4);
}

// Eight BGR pixels, four in each lane, spread to BGRA by `shuf` with alpha 255.
inline __m256i Unpack3(__m256i x, __m256i shuf) {
    const __m256i alpha = _mm256_set1_epi32(int32_t(0xFF000000u));
    return _mm256_or_si256(_mm256_shuffle_epi8(x, shuf), alpha);
}

} // namespace

void Pal1To32_AVX2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    const __m256i p0 = _mm256_set1_epi32(int32_t(pal->bgra[0]));
    const __m256i diff = _mm256_xor_si256(p0, _mm256_set1_epi32(int32_t(pal->bgra[1])));
    for (int32_t x = 0; x < width; x += 32) {
        const uint8_t* s = src + (x >> 3);
        uint8_t* d = dst + 4 * x;
        Store32(d, From1Bit(s[0], p0, diff));
        Store32(d + 32, From1Bit(s[1], p0, diff));
        Store32(d + 64, From1Bit(s[2], p0, diff));
        Store32(d + 96, From1Bit(s[3], p0, diff));
    }
}

void Pal1To24_AVX2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    const __m256i p0 = _mm256_set1_epi32(int32_t(pal->bgra[0]));
    const __m256i diff = _mm256_xor_si256(p0, _mm256_set1_epi32(int32_t(pal->bgra[1])));
    for (int32_t x = 0; x < width; x += 32) {
        const uint8_t* s = src + (x >> 3);
        Store96(dst + 3 * x, From1Bit(s[0], p0, diff), From1Bit(s[1], p0, diff),
                From1Bit(s[2], p0, diff), From1Bit(s[3], p0, diff));
    }
}

void Pal4To32_AVX2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    const Planes pl = MakePlanes(pal->bgra);
    for (int32_t x = 0; x < width; x += 32) {
        __m256i p[4];
        From4Bit(src + (x >> 1), pl, p);
        uint8_t* d = dst + 4 * x;
        Store32(d, p[0]);
        Store32(d + 32, p[1]);
        Store32(d + 64, p[2]);
        Store32(d + 96, p[3]);
    }
}

void Pal4To24_AVX2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    const Planes pl = MakePlanes(pal->bgra);
    for (int32_t x = 0; x < width; x += 32) {
        __m256i p[4];
        From4Bit(src + (x >> 1), pl, p);
        Store96(dst + 3 * x, p[0], p[1], p[2], p[3]);
    }
}

void Pal8To32_AVX2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    for (int32_t x = 0; x < width; x += 32) {
        uint8_t* d = dst + 4 * x;
        Store32(d, Lookup8(pal->bgra, src + x));
        Store32(d + 32, Lookup8(pal->bgra, src + x + 8));
        Store32(d + 64, Lookup8(pal->bgra, src + x + 16));
        Store32(d + 96, Lookup8(pal->bgra, src + x + 24));
    }
}

void Pal8To24_AVX2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    for (int32_t x = 0; x < width; x += 32)
        Store96(dst + 3 * x, Lookup8(pal->bgra, src + x), Lookup8(pal->bgra, src + x + 8),
                Lookup8(pal->bgra, src + x + 16), Lookup8(pal->bgra, src + x + 24));
}

void Rgb555To32_AVX2(const uint8_t* src, uint8_t* dst, int32_t width) {
    for (int32_t x = 0; x < width; x += 32) {
        const uint8_t* s = src + 2 * x;
        uint8_t* d = dst + 4 * x;
        __m256i a, b, c, e;
        From555(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)), &a, &b);
        From555(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 32)), &c, &e);
        Store32(d, a);
        Store32(d + 32, b);
        Store32(d + 64, c);
        Store32(d + 96, e);
    }
}

void Rgb555To24_AVX2(const uint8_t* src, uint8_t* dst, int32_t width) {
    for (int32_t x = 0; x < width; x += 32) {
        const uint8_t* s = src + 2 * x;
        __m256i a, b, c, e;
        From555(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)), &a, &b);
        From555(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 32)), &c, &e);
        Store96(dst + 3 * x, a, b, c, e);
    }
}

void BgrTo32_AVX2(const uint8_t* src, uint8_t* dst, int32_t width) {
    // Groups of four pixels start every 12 bytes. The last group of the block is loaded
    // from 4 bytes earlier, so that no load reaches past the block's 96 bytes.
    const __m256i shuf0 = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1, 0,
                                           1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    const __m256i shuf4 = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1, 4,
                                           5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15, -1);
    for (int32_t x = 0; x < width; x += 32) {
        const uint8_t* s = src + 3 * x;
        uint8_t* d = dst + 4 * x;
        Store32(d, Unpack3(Load2x16(s, s + 12), shuf0));
        Store32(d + 32, Unpack3(Load2x16(s + 24, s + 36), shuf0));
        Store32(d + 64, Unpack3(Load2x16(s + 48, s + 60), shuf0));
        Store32(d + 96, Unpack3(Load2x16(s + 72, s + 80), shuf4));
    }
}

void BgraTo24_AVX2(const uint8_t* src, uint8_t* dst, int32_t width) {
    for (int32_t x = 0; x < width; x += 32) {
        const __m256i* s = reinterpret_cast<const __m256i*>(src + 4 * x);
        Store96(dst + 3 * x, _mm256_loadu_si256(s), _mm256_loadu_si256(s + 1),
                _mm256_loadu_si256(s + 2), _mm256_loadu_si256(s + 3));
    }
}

namespace {

template <RowFn Vec, RowFn Plain, int32_t SrcBits, int32_t DstBytes>
void AnyRow(const uint8_t* src, uint8_t* dst, int32_t width) {
    int32_t n = width - width % 32;
    if (n > 0) Vec(src, dst, n);
    if (width > n) Plain(src + n * SrcBits / 8, dst + n * DstBytes, width - n);
}

template <PalRowFn Vec, PalRowFn Plain, int32_t SrcBits, int32_t DstBytes>
void AnyPalRow(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    int32_t n = width - width % 32;
    if (n > 0) Vec(src, dst, n, pal);
    if (width > n) Plain(src + n * SrcBits / 8, dst + n * DstBytes, width - n, pal);
}

} // namespace

const depthrows::Kernels& DepthAVX2() {
    static constexpr depthrows::Kernels k = {
        "old avx2",
        AnyPalRow<Pal1To32_AVX2, Pal1To32_C, 1, 4>,
        AnyPalRow<Pal4To32_AVX2, Pal4To32_C, 4, 4>,
        AnyPalRow<Pal8To32_AVX2, Pal8To32_C, 8, 4>,
        AnyPalRow<Pal1To24_AVX2, Pal1To24_C, 1, 3>,
        AnyPalRow<Pal4To24_AVX2, Pal4To24_C, 4, 3>,
        AnyPalRow<Pal8To24_AVX2, Pal8To24_C, 8, 3>,
        AnyRow<Rgb555To32_AVX2, Rgb555To32_C, 16, 4>,
        AnyRow<Rgb555To24_AVX2, Rgb555To24_C, 16, 3>,
        AnyRow<BgrTo32_AVX2, BgrTo32_C, 24, 4>,
        AnyRow<BgraTo24_AVX2, BgraTo24_C, 32, 3>,
    };
    return k;
}

} // namespace benchref
} // namespace kelp
