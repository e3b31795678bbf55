// BGR to meshed 4:4:4 in the BT.709 space without table lookups, bit-identical to the
// plain loop (see cscrows709.h for the form of the rows).
//
// Why the arithmetic is the tables' own: each row entry is c + k * x + R(x) + e * (x != 0)
// with R(x) = (f * x + 16384) >> 15, checked on all 256 entries when the decomposition
// is derived. Per 32-bit lane (one pixel) the 16-bit halves hold (B, R) and (G, G):
// - R(x) is the rounding fixed-point multiply of 16-bit lanes, ((a * b >> 14) + 1) >> 1,
//   which is floor((a * b + 16384) / 32768) exactly, with a = x in 0..255 and b = f;
//   the terms e * (x != 0) are min(x, e) for e in {0, 1}. The three terms of an output
//   and their corrections are added in 16-bit lanes (each at most 2 * 256 in size).
// - k * x of B and R is a 16-bit pair multiply-add on (B, R); that of G on (G, G), k
//   split into two 16-bit halves (the luma row of green has k above 32767); the sum of
//   the pair of 16-bit terms is a multiply-add by (1, 1). The constant c of the three
//   rows is the accumulator's start.
// So the 32-bit sum is the sum of the three table entries, exactly; it is shifted by
// 16, narrowed to 16 bits with saturation and clamped to the limit tables' bounds,
// which is what those tables give since no sum reaches their entries at -256 and 511
// (checked when the decomposition is derived).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "image/cscrows709_simd.cpp" // this file, from the source root
#include <algorithm>
#include <cstdint>

#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include "image/cscrows.h"
#include "image/cscrows709.h"
#include "runtime/simd.h"

HWY_BEFORE_NAMESPACE();
namespace kelp {
namespace cscrows {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace {

namespace hn = hwy::HWY_NAMESPACE;
using D32 = hn::ScalableTag<int32_t>;
using DU32 = hn::ScalableTag<uint32_t>;
using D16 = hn::Repartition<int16_t, D32>;
using D8 = hn::Repartition<uint8_t, D32>;
using V32 = hn::Vec<D32>;
using V16 = hn::Vec<D16>;

constexpr int32_t K = int32_t(hn::MaxLanes(D32())); // pixels a vector: 4, 8 or 16

// 3-byte pixels: block j of the vector takes source bytes 12j..12j+15 (32-bit lanes
// 3j..3j+3), which hold pixels 4j..4j+3.
alignas(64) constexpr int32_t kSpread[16] = {0, 1, 2, 3, 3, 4, 5, 6, 6, 7, 8, 9, 9, 10, 11, 12};
// Per 16-byte block: (B, R) and (G, G) as 16-bit pairs of each pixel, from 3-byte and
// from 4-byte pixels.
alignas(16) constexpr uint8_t kBR3[16] = {0, 0x80, 2, 0x80, 3, 0x80, 5,  0x80,
                                          6, 0x80, 8, 0x80, 9, 0x80, 11, 0x80};
alignas(16) constexpr uint8_t kGG3[16] = {1, 0x80, 1, 0x80, 4,  0x80, 4,  0x80,
                                          7, 0x80, 7, 0x80, 10, 0x80, 10, 0x80};
alignas(16) constexpr uint8_t kGG4[16] = {1, 0x80, 1, 0x80, 5,  0x80, 5,  0x80,
                                          9, 0x80, 9, 0x80, 13, 0x80, 13, 0x80};
// Packing back to 3 bytes: lane m of the packed vector is lane m % 3 of block m / 3
// (the lanes past 3K / 4 are replaced by the destination's own bytes).
alignas(64) constexpr int32_t kGather[16] = {0,  1,  2,  4,  5,  6,  8,  9,
                                             10, 12, 13, 14, 15, 15, 15, 15};
alignas(32) constexpr int32_t kGather8[8] = {0, 1, 2, 4, 5, 6, 7, 7};
alignas(16) constexpr uint8_t kPack[16] = {0,  1,  2,  4,  5,    6,    8,    9,
                                           10, 12, 13, 14, 0x80, 0x80, 0x80, 0x80};
// Within each 16-byte block bytes in the order Y0 V0 .. Y3 V3 U0 A0 .. U3 A3, put in
// pixel order.
alignas(16) constexpr uint8_t kInterleave[16] = {0, 8,  1, 9,  2, 10, 3, 11,
                                                 4, 12, 5, 13, 6, 14, 7, 15};

int32_t Pair16(int32_t lo, int32_t hi) {
    return int32_t(uint32_t(uint16_t(lo)) | uint32_t(uint16_t(hi)) << 16);
}

// The constants of one output as 16-bit pairs (see the top of the file).
struct Output {
    int32_t fBR, fG, eBR, eG, kBR, kG, c;
};

Output OutputOf(const ExactRow* rows) { // rows: R, G, B
    const ExactRow &r = rows[0], &g = rows[1], &b = rows[2];
    // k of green as two halves in the 16-bit range (checked when derived).
    const int32_t g1 = g.k / 2, g2 = g.k - g1;
    return {Pair16(b.f, r.f), Pair16(g.f, 0), Pair16(b.e, r.e), Pair16(g.e, 0),
            Pair16(b.k, r.k), Pair16(g1, g2), r.c + g.c + b.c};
}

// One output's sum, shifted by 16.
HWY_INLINE V32 Sum(V16 br, V16 gg, V16 fBR, V16 fG, V16 eBR, V16 eG, V16 kBR, V16 kG, V32 c,
                   V16 ones) {
    const D32 d;
    const V16 r16 = hn::Add(hn::Add(hn::MulFixedPoint15(br, fBR), hn::MulFixedPoint15(gg, fG)),
                            hn::Add(hn::Min(br, eBR), hn::Min(gg, eG)));
    V32 unused = hn::Zero(d);
    V32 s = hn::ReorderWidenMulAccumulate(d, br, kBR, c, unused);
    s = hn::ReorderWidenMulAccumulate(d, gg, kG, s, unused);
    s = hn::ReorderWidenMulAccumulate(d, r16, ones, s, unused);
    return hn::ShiftRight<16>(s);
}

template <int PS>
void Forward(const ExactForward& f, const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    const D32 d;
    const D16 d16;
    const D8 d8;
    alignas(16) int16_t lows[2][8], highs[2][8];
    for (int j = 0; j < 4; ++j) {
        lows[0][j] = 16, highs[0][j] = 235;
        lows[0][4 + j] = lows[1][j] = int16_t(v.chromaLo);
        highs[0][4 + j] = highs[1][j] = int16_t(v.chromaHi);
        lows[1][4 + j] = 0, highs[1][4 + j] = 255;
    }
    const V16 loYU = hn::LoadDup128(d16, lows[0]), hiYU = hn::LoadDup128(d16, highs[0]);
    const V16 loVA = hn::LoadDup128(d16, lows[1]), hiVA = hn::LoadDup128(d16, highs[1]);
    const auto order = hn::LoadDup128(d8, kInterleave);
    const auto shufBR = hn::LoadDup128(d8, kBR3);
    const auto shufGG = hn::LoadDup128(d8, PS == 3 ? kGG3 : kGG4);
    const V16 ones = hn::Set(d16, int16_t(1));
    const Output o0 = OutputOf(f.rows), o1 = OutputOf(f.rows + 3), o2 = OutputOf(f.rows + 6);
    auto pair = [&](int32_t x) HWY_ATTR { return hn::BitCast(d16, hn::Set(d, x)); };
    const V16 f0 = pair(o0.fBR), g0 = pair(o0.fG), e0 = pair(o0.eBR), h0 = pair(o0.eG),
              k0 = pair(o0.kBR), kg0 = pair(o0.kG);
    const V16 f1 = pair(o1.fBR), g1 = pair(o1.fG), e1 = pair(o1.eBR), h1 = pair(o1.eG),
              k1 = pair(o1.kBR), kg1 = pair(o1.kG);
    const V16 f2 = pair(o2.fBR), g2 = pair(o2.fG), e2 = pair(o2.eBR), h2 = pair(o2.eG),
              k2 = pair(o2.kBR), kg2 = pair(o2.kG);
    const V32 c0 = hn::Set(d, o0.c), c1 = hn::Set(d, o1.c), c2 = hn::Set(d, o2.c);
    const V32 mask8 = hn::Set(d, 0x00FF00FF);
    for (int32_t i = 0; i < n; i += K) {
        V32 px = hn::BitCast(d, hn::LoadU(d8, src + PS * i));
        if (PS == 3 && K > 4) px = hn::TableLookupLanes(px, hn::SetTableIndices(d, kSpread));
        const auto px8 = hn::BitCast(d8, px);
        const V16 br = PS == 3 ? hn::BitCast(d16, hn::TableLookupBytesOr0(px8, shufBR))
                               : hn::BitCast(d16, hn::And(px, mask8));
        const V16 gg = hn::BitCast(d16, hn::TableLookupBytesOr0(px8, shufGG));
        const V32 y = Sum(br, gg, f0, g0, e0, h0, k0, kg0, c0, ones);
        const V32 u = Sum(br, gg, f1, g1, e1, h1, k1, kg1, c1, ones);
        const V32 w = Sum(br, gg, f2, g2, e2, h2, k2, kg2, c2, ones);
        const V32 alpha =
            PS == 4 ? hn::BitCast(d, hn::ShiftRight<24>(hn::BitCast(DU32(), px))) : hn::Zero(d);
        const V16 yu = hn::Min(hn::Max(hn::ReorderDemote2To(d16, y, u), loYU), hiYU);
        const V16 va = hn::Min(hn::Max(hn::ReorderDemote2To(d16, w, alpha), loVA), hiVA);
        const auto bytes = hn::BitCast(d8, hn::Or(yu, hn::ShiftLeft<8>(va)));
        const V32 out = hn::BitCast(d, hn::TableLookupBytes(bytes, order));
        if (PS == 4) {
            hn::StoreU(hn::BitCast(d8, out), d8, dst + PS * i);
            continue;
        }
        // 3 bytes a pixel: packed, and the last quarter of the vector written back as the
        // destination held it (in place, the source bytes not yet read).
        const V32 old = hn::BitCast(d, hn::LoadU(d8, dst + PS * i));
        V32 packed = hn::BitCast(
            d, hn::TableLookupBytesOr0(hn::BitCast(d8, out), hn::LoadDup128(d8, kPack)));
        if (K > 4)
            packed =
                hn::TableLookupLanes(packed, hn::SetTableIndices(d, K == 8 ? kGather8 : kGather));
        packed = hn::IfThenElse(hn::FirstN(d, size_t(3 * K / 4)), packed, old);
        hn::StoreU(hn::BitCast(d8, packed), d8, dst + PS * i);
    }
}

} // namespace

// Whole vectors of a line of space 2 (the caller leaves the rest, and the bytes a
// 3-byte vector reads and writes past its pixels, to the plain loop); false where the
// rows have no exact form, and nothing is written.
bool BgrToYuv444Exact709(const View& v, const uint8_t* src, uint8_t* dst, int32_t n, int ps) {
    const ExactForward* f = ExactForwardOf(v.rgbYcc);
    if (f == nullptr) return false;
    if (ps == 3)
        Forward<3>(*f, v, src, dst, n);
    else
        Forward<4>(*f, v, src, dst, n);
    return true;
}

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace cscrows
} // namespace kelp
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kelp {
namespace cscrows {

namespace {

// floor(a / b) for b > 0.
int64_t FloorDiv(int64_t a, int64_t b) {
    return a >= 0 ? a / b : -((-a + b - 1) / b);
}

// The f for a row with c, k and e given: the interval of f that gives each entry,
// intersected over x = 1..255 (at 0 the form gives c).
bool FitF(const int32_t* row, int64_t k, int e, int16_t* f) {
    int64_t lo = -32768, hi = 32767;
    for (int64_t x = 1; x < 256 && lo <= hi; ++x) {
        // (f * x + 16384) >> 15 == n  <=>  32768 n - 16384 <= f * x <= 32768 n + 16383
        const int64_t n = int64_t(row[x]) - row[0] - k * x - e;
        lo = std::max(lo, -FloorDiv(-(32768 * n - 16384), x)); // ceiling
        hi = std::min(hi, FloorDiv(32768 * n + 16383, x));
    }
    if (lo > hi) return false;
    *f = int16_t(lo <= 0 && 0 <= hi ? 0 : lo > 0 ? lo : hi); // the smallest in size
    return true;
}

} // namespace

bool DeriveExactRow(const int32_t* row, ExactRow* out) {
    const int64_t step = int64_t(row[1]) - row[0];
    for (int e = 0; e <= 1; ++e)
        for (int64_t k = step - 2; k <= step + 2; ++k) {
            ExactRow r{row[0], int32_t(k), 0, int16_t(e)};
            if (k < INT32_MIN || k > INT32_MAX || !FitF(row, k, e, &r.f)) continue;
            bool all = true;
            for (int x = 0; x < 256 && all; ++x)
                all = ExactEntry(r, x) == row[x];
            if (all) {
                *out = r;
                return true;
            }
        }
    return false;
}

bool DeriveExactForward(const int32_t* rgbYcc, ExactForward* out) {
    ExactForward f;
    for (int o = 0; o < 3; ++o) {
        int64_t lo = 0, hi = 0;
        for (int j = 0; j < 3; ++j) {
            const int32_t* row = rgbYcc + 768 * o + 256 * j;
            ExactRow& r = f.rows[3 * o + j];
            if (!DeriveExactRow(row, &r)) return false;
            // The 16-bit multiply-adds: k of B and R in 16 bits, of G in two halves.
            const int32_t limit = j == 1 ? 65534 : 32767;
            if (r.k < -limit || r.k > limit) return false;
            lo += *std::min_element(row, row + 256);
            hi += *std::max_element(row, row + 256);
        }
        if (lo < INT32_MIN || hi > INT32_MAX) return false;
        lo >>= 16, hi >>= 16;
        if ((lo <= -256 && -256 <= hi) || (lo <= 511 && 511 <= hi)) return false;
    }
    *out = f;
    return true;
}

const ExactForward* ExactForwardOf(const int32_t* rgbYcc) {
    struct Kept {
        const int32_t* rows;
        bool ok;
        ExactForward f;
    };
    static const Kept kept = [rgbYcc] {
        Kept k{rgbYcc, false, {}};
        k.ok = DeriveExactForward(rgbYcc, &k.f);
        return k;
    }();
    return kept.ok && kept.rows == rgbYcc ? &kept.f : nullptr;
}

} // namespace cscrows
} // namespace kelp
#endif
