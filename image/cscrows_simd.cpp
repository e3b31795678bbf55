// Vector forms of the colour conversion rows (see cscrows.h), bit-identical to the plain
// loops of cscrows.cpp.
//
// One pixel is one 32-bit lane, its bytes in memory order from the low end. 3-byte
// pixels are widened on load: block j (16 bytes) of the vector takes source bytes
// 12j..12j+15 through a lane permutation, then a byte shuffle spreads them to 4 lanes.
// On store they are packed back; the lanes past the 3K packed bytes are filled with the
// destination's own bytes as loaded before the store, so a full-vector store writes back
// what was there (which keeps work in place correct), and the slack keeps that store
// inside the run.
//
// Why the arithmetic is the tables' own:
// - Spaces 0 and 1: every entry of the RGB rows is c * i + b exactly, and of the inverse
//   rows b + c * (i - 128) (luma: b + c * (i - 16), with the patch of space 0 at 0..15 and
//   235..254, which the vector form applies by selection). The vector forms take b and c
//   from the tables themselves. A coefficient above 32767 does not fit the 16-bit pairs
//   of the multiply-add: it is taken as c - 65536 and the pixel value is added after the
//   shift, since (s + x * 65536) >> 16 == (s >> 16) + x for arithmetic shifts. The
//   faster forms avoid that where the tables allow: a step that is an exact multiple
//   s * c of a 16-bit c is taken on the scaled index s * x (ForwardScaled,
//   InverseScaled).
// - Space 2: the entries are looked up (gathered) from the tables.
// - The limit tables are clamps whose entries at -256 and 511 are 0 and whose margins
//   hold the bounds: min/max, then zero where the index is -256 or 511.
// - Premultiply: ((t >> 8) + t) >> 8 with t = c * k + 128 gives 0 at k = 0 and c at
//   k = 255 for every c, the two cases that the plain loop takes apart.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "image/cscrows_simd.cpp" // this file, from the source root
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include "image/cscrows.h"
#include "runtime/simd.h"

HWY_BEFORE_NAMESPACE();
namespace kelp {
namespace cscrows {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace hn = hwy::HWY_NAMESPACE;
using D32 = hn::ScalableTag<int32_t>;
using DU32 = hn::ScalableTag<uint32_t>;
using D16 = hn::Repartition<int16_t, D32>;
using D8 = hn::Repartition<uint8_t, D32>;
using V32 = hn::Vec<D32>;

constexpr int32_t K = int32_t(hn::MaxLanes(D32())); // pixels a vector: 4, 8 or 16
constexpr int32_t kSlack3 = (K + 2) / 3;            // pixels under the extra K bytes

// Block j of the widened vector takes 32-bit lanes 3j..3j+3 of the loaded bytes.
alignas(64) constexpr int32_t kSpread[16] = {0, 1, 2, 3, 3, 4, 5, 6, 6, 7, 8, 9, 9, 10, 11, 12};
// And back: lane m of the packed vector is lane m % 3 of block m / 3 (the lanes past
// 3K / 4 are replaced; their indices only stay in range).
alignas(64) constexpr int32_t kGather[16] = {0,  1,  2,  4,  5,  6,  8,  9,
                                             10, 12, 13, 14, 15, 15, 15, 15};
alignas(32) constexpr int32_t kGather8[8] = {0, 1, 2, 4, 5, 6, 7, 7};
alignas(16) constexpr uint8_t kExpand[16] = {0, 1, 2, 0x80, 3, 4,  5,  0x80,
                                             6, 7, 8, 0x80, 9, 10, 11, 0x80};
alignas(16) constexpr uint8_t kPack[16] = {0,  1,  2,  4,  5,    6,    8,    9,
                                           10, 12, 13, 14, 0x80, 0x80, 0x80, 0x80};

template <int PS> HWY_INLINE V32 LoadPixels(const uint8_t* p) {
    const D32 d;
    const D8 d8;
    V32 v = hn::BitCast(d, hn::LoadU(d8, p));
    if (PS == 4) return v;
    if (K > 4) v = hn::TableLookupLanes(v, hn::SetTableIndices(d, kSpread));
    return hn::BitCast(d, hn::TableLookupBytesOr0(hn::BitCast(d8, v), hn::LoadDup128(d8, kExpand)));
}

// Stores K pixels (bytes 0..PS-1 of each lane); `old` is what the destination held.
template <int PS> HWY_INLINE void StorePixels(uint8_t* p, V32 px, V32 old) {
    const D32 d;
    const D8 d8;
    if (PS == 4) {
        hn::StoreU(hn::BitCast(d8, px), d8, p);
        return;
    }
    V32 packed =
        hn::BitCast(d, hn::TableLookupBytesOr0(hn::BitCast(d8, px), hn::LoadDup128(d8, kPack)));
    if (K > 4)
        packed = hn::TableLookupLanes(packed, hn::SetTableIndices(d, K == 8 ? kGather8 : kGather));
    packed = hn::IfThenElse(hn::FirstN(d, size_t(3 * K / 4)), packed, old);
    hn::StoreU(hn::BitCast(d8, packed), d8, p);
}

HWY_INLINE V32 Byte(V32 px, int shift) {
    const D32 d;
    return hn::And(hn::BitCast(d, hn::ShiftRightSame(hn::BitCast(DU32(), px), shift)),
                   hn::Set(d, 0xFF));
}

// A limit table as arithmetic: the clamp, and 0 at -256 and 511.
HWY_INLINE V32 Limit(V32 v, V32 lo, V32 hi) {
    const D32 d;
    const V32 c = hn::Min(hn::Max(v, lo), hi);
    const auto ends = hn::Or(hn::Eq(v, hn::Set(d, -256)), hn::Eq(v, hn::Set(d, 511)));
    return hn::IfThenZeroElse(ends, c);
}

HWY_INLINE V32 Pack3(V32 b, V32 g, V32 r) {
    return hn::Or(hn::Or(b, hn::ShiftLeft<8>(g)), hn::ShiftLeft<16>(r));
}

// Within each 16-byte block bytes in the order B0 R0 .. B3 R3 G0 A0 .. G3 A3 (or the
// forward's Y0 V0 .. Y3 V3 U0 A0 .. U3 A3), put in pixel order.
alignas(16) constexpr uint8_t kInterleave[16] = {0, 8,  1, 9,  2, 10, 3, 11,
                                                 4, 12, 5, 13, 6, 14, 7, 15};

// ---- BGR to YCbCr

// A 32-bit lane of two 16-bit values.
static int32_t Pair16(int32_t lo, int32_t hi) {
    return int32_t(uint32_t(uint16_t(lo)) | uint32_t(uint16_t(hi)) << 16);
}

// The linear form of one output: S = cB * B + cR * R + cG * G + off, and the channels
// whose coefficient was folded by 65536 (added after the shift).
struct Linear {
    int32_t pairLo; // 16-bit cB | 16-bit cR << 16
    int32_t pairHi; // 16-bit cG
    int32_t off;
    int addB, addG, addR;
};

Linear LinearOf(const int32_t* rows) {
    const int32_t* tr = rows;
    const int32_t* tg = rows + 256;
    const int32_t* tb = rows + 512;
    int32_t c[3] = {tb[1] - tb[0], tg[1] - tg[0], tr[1] - tr[0]};
    int add[3] = {0, 0, 0};
    for (int k = 0; k < 3; ++k)
        if (c[k] > 32767) {
            c[k] -= 65536;
            add[k] = 1;
        }
    Linear l;
    l.pairLo = int32_t(uint32_t(uint16_t(c[0])) | uint32_t(uint16_t(c[2])) << 16);
    l.pairHi = int32_t(uint16_t(c[1]));
    l.off = tr[0] + tg[0] + tb[0];
    l.addB = add[0], l.addG = add[1], l.addR = add[2];
    return l;
}

// (S >> Shift) of the sum, the folded channels added as x << (16 - Shift).
template <int Shift = 16>
HWY_INLINE V32 LinearSum(const Linear& l, V32 lo, V32 hi, V32 b, V32 g, V32 r) {
    const D32 d;
    const D16 d16;
    V32 unused = hn::Zero(d);
    V32 s = hn::ReorderWidenMulAccumulate(
        d, hn::BitCast(d16, lo), hn::BitCast(d16, hn::Set(d, l.pairLo)), hn::Set(d, l.off), unused);
    s = hn::ReorderWidenMulAccumulate(d, hn::BitCast(d16, hi),
                                      hn::BitCast(d16, hn::Set(d, l.pairHi)), s, unused);
    s = hn::ShiftRight<Shift>(s);
    if (l.addB) s = hn::Add(s, hn::ShiftLeft<16 - Shift>(b));
    if (l.addG) s = hn::Add(s, hn::ShiftLeft<16 - Shift>(g));
    if (l.addR) s = hn::Add(s, hn::ShiftLeft<16 - Shift>(r));
    return s;
}

// Whether a sum of three rows of 256 (shifted by 16) can reach the index -256 or 511,
// where the limit tables hold 0 instead of their bounds. The rows of spaces 0 and 1 are
// linear, so their ends bound them.
static bool ReachesEnds(const int32_t* rows) {
    int64_t lo = 0, hi = 0;
    for (int k = 0; k < 3; ++k) {
        const int32_t* t = rows + 256 * k;
        lo += std::min(t[0], t[255]);
        hi += std::max(t[0], t[255]);
    }
    lo >>= 16, hi >>= 16;
    return (lo <= -256 && -256 <= hi) || (lo <= 511 && 511 <= hi);
}

// The limit as a clamp alone, where no sum reaches the ends.
template <bool Ends> HWY_INLINE V32 LimitTo(V32 v, V32 lo, V32 hi) {
    return Ends ? Limit(v, lo, hi) : hn::Min(hn::Max(v, lo), hi);
}

template <int PS, bool Ends>
void BgrToYuv444Linear(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    const D32 d;
    const V32 loY = hn::Set(d, 16), hiY = hn::Set(d, 235);
    const V32 loC = hn::Set(d, v.chromaLo), hiC = hn::Set(d, v.chromaHi);
    const V32 mask8 = hn::Set(d, 0x00FF00FF);
    const V32 alphaMask = hn::Set(d, int32_t(0xFF000000u));
    const Linear ly = LinearOf(v.rgbYcc), lu = LinearOf(v.rgbYcc + 768),
                 lv = LinearOf(v.rgbYcc + 1536);
    for (int32_t i = 0; i < n; i += K) {
        const V32 px = LoadPixels<PS>(src + PS * i);
        const V32 lo = hn::And(px, mask8);                    // B, R as 16-bit pairs
        const V32 hi = hn::And(hn::ShiftRight<8>(px), mask8); // G, A
        const V32 b = Byte(px, 0), g = Byte(px, 8), r = Byte(px, 16);
        const V32 y = LimitTo<Ends>(LinearSum(ly, lo, hi, b, g, r), loY, hiY);
        const V32 u = LimitTo<Ends>(LinearSum(lu, lo, hi, b, g, r), loC, hiC);
        const V32 w = LimitTo<Ends>(LinearSum(lv, lo, hi, b, g, r), loC, hiC);
        V32 out = Pack3(y, u, w);
        if (PS == 4) out = hn::Or(out, hn::And(px, alphaMask));
        StorePixels<PS>(dst + PS * i, out,
                        PS == 4 ? out : hn::BitCast(d, hn::LoadU(D8(), dst + PS * i)));
    }
}

// The forward of spaces 0 and 1 without the folded channels: a green step above 32767
// is halved and taken on the pair (2 G, 2 A), whose alpha step is 0, so that every
// output is two multiply-adds on its own. The three values are packed to 16 bits with
// alpha (per 128-bit block: Y0..Y3 U0..U3, and V0..V3 A0..A3), clamped there to the
// limit tables' bounds lane by lane, and put in pixel order by one byte shuffle.
struct ForwardScaled {
    int32_t lo[3], hi[3], off[3]; // per output: steps of (B, R), of (G or 2 G, A), base
    bool twice[3];                // whether the output takes (2 G, 2 A)
    bool ok;
};

ForwardScaled ForwardScaledOf(const View& v) {
    ForwardScaled f{};
    f.ok = true;
    for (int k = 0; k < 3; ++k) {
        const int32_t* rows = v.rgbYcc + 768 * k;
        const int32_t cr = rows[1] - rows[0], cg = rows[257] - rows[256],
                      cb = rows[513] - rows[512];
        auto in16 = [](int32_t c) { return c >= -32768 && c <= 32767; };
        f.twice[k] = !in16(cg);
        const int32_t g = f.twice[k] ? cg / 2 : cg;
        f.ok = f.ok && in16(cb) && in16(cr) && in16(g) && (!f.twice[k] || cg % 2 == 0);
        f.lo[k] = Pair16(cb, cr);
        f.hi[k] = Pair16(g, 0);
        f.off[k] = rows[0] + rows[256] + rows[512];
    }
    f.ok = f.ok && !ReachesEnds(v.rgbYcc) && !ReachesEnds(v.rgbYcc + 768) &&
           !ReachesEnds(v.rgbYcc + 1536);
    return f;
}

template <int PS, bool Twice0, bool Twice1, bool Twice2>
void BgrToYuv444Scaled(const View& v, const ForwardScaled& f, const uint8_t* src, uint8_t* dst,
                       int32_t n) {
    const D32 d;
    const D16 d16;
    const D8 d8;
    const V32 mask8 = hn::Set(d, 0x00FF00FF);
    alignas(16) int16_t lows[2][8], highs[2][8];
    for (int j = 0; j < 4; ++j) {
        lows[0][j] = 16, highs[0][j] = 235;
        lows[0][4 + j] = lows[1][j] = int16_t(v.chromaLo);
        highs[0][4 + j] = highs[1][j] = int16_t(v.chromaHi);
        lows[1][4 + j] = 0, highs[1][4 + j] = 255;
    }
    const auto loYU = hn::LoadDup128(d16, lows[0]), hiYU = hn::LoadDup128(d16, highs[0]);
    const auto loVA = hn::LoadDup128(d16, lows[1]), hiVA = hn::LoadDup128(d16, highs[1]);
    const auto order = hn::LoadDup128(d8, kInterleave);
    const auto pl0 = hn::BitCast(d16, hn::Set(d, f.lo[0])),
               ph0 = hn::BitCast(d16, hn::Set(d, f.hi[0]));
    const auto pl1 = hn::BitCast(d16, hn::Set(d, f.lo[1])),
               ph1 = hn::BitCast(d16, hn::Set(d, f.hi[1]));
    const auto pl2 = hn::BitCast(d16, hn::Set(d, f.lo[2])),
               ph2 = hn::BitCast(d16, hn::Set(d, f.hi[2]));
    const V32 off0 = hn::Set(d, f.off[0]), off1 = hn::Set(d, f.off[1]), off2 = hn::Set(d, f.off[2]);
    for (int32_t i = 0; i < n; i += K) {
        const V32 px = LoadPixels<PS>(src + PS * i);
        const auto lo = hn::BitCast(d16, hn::And(px, mask8));   // B, R
        const V32 hi32 = hn::And(hn::ShiftRight<8>(px), mask8); // G, A
        const auto hi = hn::BitCast(d16, hi32);
        const auto hi2 = hn::BitCast(d16, hn::Add(hi32, hi32)); // 2 G, 2 A
        V32 unused = hn::Zero(d);
        const V32 sy = hn::ReorderWidenMulAccumulate(d, lo, pl0, off0, unused);
        const V32 su = hn::ReorderWidenMulAccumulate(d, lo, pl1, off1, unused);
        const V32 sv = hn::ReorderWidenMulAccumulate(d, lo, pl2, off2, unused);
        const V32 y = hn::ShiftRight<16>(
            hn::ReorderWidenMulAccumulate(d, Twice0 ? hi2 : hi, ph0, sy, unused));
        const V32 u = hn::ShiftRight<16>(
            hn::ReorderWidenMulAccumulate(d, Twice1 ? hi2 : hi, ph1, su, unused));
        const V32 w = hn::ShiftRight<16>(
            hn::ReorderWidenMulAccumulate(d, Twice2 ? hi2 : hi, ph2, sv, unused));
        const V32 alpha =
            PS == 4 ? hn::BitCast(d, hn::ShiftRight<24>(hn::BitCast(DU32(), px))) : hn::Zero(d);
        const auto yu = hn::Min(hn::Max(hn::ReorderDemote2To(d16, y, u), loYU), hiYU);
        const auto va = hn::Min(hn::Max(hn::ReorderDemote2To(d16, w, alpha), loVA), hiVA);
        const auto bytes = hn::BitCast(d8, hn::Or(yu, hn::ShiftLeft<8>(va)));
        const V32 out = hn::BitCast(d, hn::TableLookupBytes(bytes, order));
        StorePixels<PS>(dst + PS * i, out,
                        PS == 4 ? out : hn::BitCast(d, hn::LoadU(D8(), dst + PS * i)));
    }
}

// The combinations of doubled green that the tables of spaces 0 and 1 need.
template <int PS>
bool BgrToYuv444ScaledFor(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    if (HWY_TARGET == HWY_SSSE3) return false;
    const ForwardScaled f = ForwardScaledOf(v);
    if (!f.ok || f.twice[1] || f.twice[2]) return false;
    if (f.twice[0])
        BgrToYuv444Scaled<PS, true, false, false>(v, f, src, dst, n);
    else
        BgrToYuv444Scaled<PS, false, false, false>(v, f, src, dst, n);
    return true;
}

// Space 2 without lookups where its rows allow (image/cscrows709_simd.cpp); false if not.
bool BgrToYuv444Exact709(const View& v, const uint8_t* src, uint8_t* dst, int32_t n, int ps);

template <int PS> void BgrToYuv444(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    const D32 d;
    const V32 loY = hn::Set(d, 16), hiY = hn::Set(d, 235);
    const V32 loC = hn::Set(d, v.chromaLo), hiC = hn::Set(d, v.chromaHi);
    const V32 alphaMask = hn::Set(d, int32_t(0xFF000000u));
    if (v.space != 2) {
        if (BgrToYuv444ScaledFor<PS>(v, src, dst, n)) return;
        if (ReachesEnds(v.rgbYcc) || ReachesEnds(v.rgbYcc + 768) || ReachesEnds(v.rgbYcc + 1536))
            return BgrToYuv444Linear<PS, true>(v, src, dst, n);
        return BgrToYuv444Linear<PS, false>(v, src, dst, n);
    }
    if (BgrToYuv444Exact709(v, src, dst, n, PS)) return;
    const int32_t* t = v.rgbYcc;
    for (int32_t i = 0; i < n; i += K) {
        const V32 px = LoadPixels<PS>(src + PS * i);
        const V32 b = Byte(px, 0), g = Byte(px, 8), r = Byte(px, 16);
        const V32 sy = hn::Add(hn::Add(hn::GatherIndex(d, t, r), hn::GatherIndex(d, t + 256, g)),
                               hn::GatherIndex(d, t + 512, b));
        const V32 su =
            hn::Add(hn::Add(hn::GatherIndex(d, t + 768, r), hn::GatherIndex(d, t + 1024, g)),
                    hn::GatherIndex(d, t + 1280, b));
        const V32 sv =
            hn::Add(hn::Add(hn::GatherIndex(d, t + 1536, r), hn::GatherIndex(d, t + 1792, g)),
                    hn::GatherIndex(d, t + 2048, b));
        const V32 y = Limit(hn::ShiftRight<16>(sy), loY, hiY);
        const V32 u = Limit(hn::ShiftRight<16>(su), loC, hiC);
        const V32 w = Limit(hn::ShiftRight<16>(sv), loC, hiC);
        V32 out = Pack3(y, u, w);
        if (PS == 4) out = hn::Or(out, hn::And(px, alphaMask));
        StorePixels<PS>(dst + PS * i, out,
                        PS == 4 ? out : hn::BitCast(d, hn::LoadU(D8(), dst + PS * i)));
    }
}

// ---- YCbCr to BGR

// The five inverse columns of a space, as base + coefficient * (index - centre).
struct InverseLinear {
    int32_t yBase, yMul, yLow, yHigh; // luma: yBase + yMul * (Y - 16); patch values
    int patched;
    int32_t bBase, bMul, rBase, rMul, gvBase, gvMul, guBase, guMul;
};

InverseLinear InverseOf(const View& v) {
    InverseLinear l;
    l.yBase = v.yY[16];
    l.yMul = v.yY[17] - v.yY[16];
    l.yLow = v.yY[0];
    l.yHigh = v.yY[235];
    l.patched = v.space == 0;
    l.bBase = v.cbB[128], l.bMul = v.cbB[129] - v.cbB[128];
    l.rBase = v.crR[128], l.rMul = v.crR[129] - v.crR[128];
    l.gvBase = v.crG[128], l.gvMul = v.crG[129] - v.crG[128];
    l.guBase = v.cbG[128], l.guMul = v.cbG[129] - v.cbG[128];
    return l;
}

// B | G << 8 | R << 16 of K pixels of Y, U, V (each 0..255).
struct Inverse {
    const View& v;
    InverseLinear l;
    explicit Inverse(const View& view) : v(view), l(InverseOf(view)) {}

    HWY_INLINE V32 operator()(V32 y, V32 u, V32 w) const {
        const D32 d;
        V32 yy, cb, cr, cg;
        if (v.space == 2) {
            yy = hn::GatherIndex(d, v.yY, y);
            cb = hn::GatherIndex(d, v.cbB, u);
            cr = hn::GatherIndex(d, v.crR, w);
            cg = hn::Add(hn::GatherIndex(d, v.crG, w), hn::GatherIndex(d, v.cbG, u));
        } else {
            yy = hn::Add(hn::Set(d, l.yBase),
                         hn::Mul(hn::Set(d, l.yMul), hn::Sub(y, hn::Set(d, 16))));
            if (l.patched) {
                yy = hn::IfThenElse(hn::Lt(y, hn::Set(d, 16)), hn::Set(d, l.yLow), yy);
                const auto top = hn::And(hn::Gt(y, hn::Set(d, 234)), hn::Lt(y, hn::Set(d, 255)));
                yy = hn::IfThenElse(top, hn::Set(d, l.yHigh), yy);
            }
            const V32 uc = hn::Sub(u, hn::Set(d, 128)), vc = hn::Sub(w, hn::Set(d, 128));
            cb = hn::Add(hn::Set(d, l.bBase), hn::Mul(hn::Set(d, l.bMul), uc));
            cr = hn::Add(hn::Set(d, l.rBase), hn::Mul(hn::Set(d, l.rMul), vc));
            cg = hn::Add(hn::Add(hn::Set(d, l.gvBase), hn::Mul(hn::Set(d, l.gvMul), vc)),
                         hn::Add(hn::Set(d, l.guBase), hn::Mul(hn::Set(d, l.guMul), uc)));
        }
        const V32 lo = hn::Zero(d), hi = hn::Set(d, 255);
        const V32 b = Limit(hn::ShiftRight<16>(hn::Add(cb, yy)), lo, hi);
        const V32 g = Limit(hn::ShiftRight<16>(hn::Add(cg, yy)), lo, hi);
        const V32 r = Limit(hn::ShiftRight<16>(hn::Add(cr, yy)), lo, hi);
        return Pack3(b, g, r);
    }
};

// The inverse of spaces 0 and 1 with 16-bit multiply-adds. A column c * i + base is
// split as c = c16 + 65536 * k with c16 in the 16-bit range; the k * i part is added
// after the shift. Luma keeps its k part before the shift so that the patch of space 0
// can act on the whole entry: the entries are increasing, so the patch is a clamp to
// the entries at 0 and 235, except at 255, which keeps the computed value.
struct Inverse16 {
    int32_t yMul, yConst, yLow, yHigh;
    int ky, patched;
    int32_t bMul, bConst, rMul, rConst, gPair, gConst;
    int kb, kr, kgu, kgv;
    bool ok;
    bool endBG, endR; // whether B or G, and R, can reach the index 511
};

// c16 and k of a step; false where k is beyond -2..2.
static bool Split16(int64_t c, int32_t* c16, int* k) {
    const int64_t q = (c + 32768) >= 0 ? (c + 32768) / 65536 : -((-(c + 32768) + 65535) / 65536);
    *c16 = int32_t(c - q * 65536);
    *k = int(q);
    return q >= -2 && q <= 2;
}

Inverse16 Inverse16Of(const View& v) {
    Inverse16 l;
    const int64_t yStep = int64_t(v.yY[17]) - v.yY[16];
    int32_t gu = 0, gv = 0;
    l.ok = Split16(yStep, &l.yMul, &l.ky) &&
           Split16(int64_t(v.cbB[1]) - v.cbB[0], &l.bMul, &l.kb) &&
           Split16(int64_t(v.crR[1]) - v.crR[0], &l.rMul, &l.kr) &&
           Split16(int64_t(v.cbG[1]) - v.cbG[0], &gu, &l.kgu) &&
           Split16(int64_t(v.crG[1]) - v.crG[0], &gv, &l.kgv);
    l.yConst = int32_t(int64_t(v.yY[16]) - 16 * yStep);
    l.yLow = v.yY[0];
    l.yHigh = v.yY[235];
    l.patched = v.space == 0;
    if (l.patched)
        l.ok = l.ok && yStep > 0 && int64_t(v.yY[16]) - yStep <= l.yLow && l.yLow <= v.yY[16] &&
               v.yY[234] <= l.yHigh && l.yHigh <= int64_t(v.yY[234]) + yStep;
    l.bConst = v.cbB[0];
    l.rConst = v.crR[0];
    l.gConst = int32_t(int64_t(v.cbG[0]) + v.crG[0]);
    l.gPair = int32_t(uint32_t(uint16_t(gu)) | uint32_t(uint16_t(gv)) << 16);
    // Bounds from the ends of each column (the luma column also at its patch edges).
    int64_t yMax = v.yY[0];
    for (int i : {16, 234, 235, 254, 255})
        yMax = yMax > v.yY[i] ? yMax : v.yY[i];
    auto top = [](const int32_t* t) { return int64_t(t[0] > t[255] ? t[0] : t[255]); };
    l.endBG = ((yMax + top(v.cbB)) >> 16) >= 511 || ((yMax + top(v.crG) + top(v.cbG)) >> 16) >= 511;
    l.endR = ((yMax + top(v.crR)) >> 16) >= 511;
    return l;
}

// s + k * x for k in -2..2.
HWY_INLINE V32 AddTimes(V32 s, V32 x, int k) {
    switch (k) {
    case 1:
        return hn::Add(s, x);
    case 2:
        return hn::Add(s, hn::Add(x, x));
    case -1:
        return hn::Sub(s, x);
    case -2:
        return hn::Sub(s, hn::Add(x, x));
    default:
        return s;
    }
}

// acc + the 16-bit pairs of x times those of the constant c.
HWY_INLINE V32 MulAdd16(V32 x, int32_t c, V32 acc) {
    const D32 d;
    const D16 d16;
    V32 unused = hn::Zero(d);
    return hn::ReorderWidenMulAccumulate(d, hn::BitCast(d16, x), hn::BitCast(d16, hn::Set(d, c)),
                                         acc, unused);
}

// Clamp to 0..255, and 0 at 511 where that index can occur (16-bit lanes; -256 and
// below are 0 by the clamp).
HWY_INLINE hn::Vec<D16> Limit16(hn::Vec<D16> x, bool end) {
    const D16 d16;
    const auto c = hn::Min(hn::Max(x, hn::Zero(d16)), hn::Set(d16, int16_t(255)));
    return end ? hn::IfThenZeroElse(hn::Eq(x, hn::Set(d16, int16_t(511))), c) : c;
}

template <int PS>
void Yuv444ToBgr16(const Inverse16& l, const uint8_t* src, uint8_t* dst, int32_t n) {
    const D32 d;
    const D16 d16;
    const D8 d8;
    const V32 m8 = hn::Set(d, 0xFF);
    const auto order = hn::LoadDup128(d8, kInterleave);
    for (int32_t i = 0; i < n; i += K) {
        const V32 px = LoadPixels<PS>(src + PS * i);
        const V32 y = hn::And(px, m8);
        const V32 u = hn::And(hn::ShiftRight<8>(px), m8);
        const V32 w = hn::And(hn::ShiftRight<16>(px), m8);
        const V32 uw = hn::Or(u, hn::ShiftLeft<16>(w));
        V32 yy = AddTimes(MulAdd16(y, l.yMul, hn::Set(d, l.yConst)), hn::ShiftLeft<16>(y), l.ky);
        if (l.patched) {
            const V32 c = hn::Min(hn::Max(yy, hn::Set(d, l.yLow)), hn::Set(d, l.yHigh));
            yy = hn::IfThenElse(hn::Eq(y, m8), yy, c);
        }
        const V32 b = AddTimes(
            hn::ShiftRight<16>(MulAdd16(u, l.bMul, hn::Add(yy, hn::Set(d, l.bConst)))), u, l.kb);
        const V32 r = AddTimes(
            hn::ShiftRight<16>(MulAdd16(w, l.rMul, hn::Add(yy, hn::Set(d, l.rConst)))), w, l.kr);
        const V32 g = AddTimes(
            AddTimes(hn::ShiftRight<16>(MulAdd16(uw, l.gPair, hn::Add(yy, hn::Set(d, l.gConst)))),
                     u, l.kgu),
            w, l.kgv);
        const V32 a =
            PS == 4 ? hn::BitCast(d, hn::ShiftRight<24>(hn::BitCast(DU32(), px))) : hn::Zero(d);
        const auto bg = Limit16(hn::ReorderDemote2To(d16, b, g), l.endBG);
        const auto ra = Limit16(hn::ReorderDemote2To(d16, r, a), l.endR);
        const auto bytes = hn::BitCast(d8, hn::Or(bg, hn::ShiftLeft<8>(ra)));
        const V32 out = hn::BitCast(d, hn::TableLookupBytes(bytes, order));
        StorePixels<PS>(dst + PS * i, out,
                        PS == 4 ? out : hn::BitCast(d, hn::LoadU(D8(), dst + PS * i)));
    }
}

// The inverse of spaces 0 and 1 with one 16-bit multiply-add per column. A chroma step
// c too large for 16 bits is taken as (c / s) * (s * x) for the smallest s in 1..8 that
// divides it into range (the scaled index s * x is at most 2040); luma is taken as
// a * y + b * (128 * y) with a + 128 * b the step. All sums are then the tables' 32-bit
// 16.16 sums, exactly. Luma is shared, and the patch of space 0 is the clamp of
// Inverse16.
//
// The limit is folded into the packing: each sum S carries a bias of -2^23, so that
// (S >> 8) narrowed to 16 bits with saturation holds floor(S_true / 65536) - 128 in its
// high byte when that is 0..255, and saturates to 0x7FFF (255 after the flip of the
// top bit) above and to 0x8000 (0) below: the clamp of the limit table. The one entry
// that is not a clamp, 0 at 511, is tested on the sum where its channel can reach it;
// -256 and below are 0 by the saturation.
struct InverseScaled {
    int32_t yPair;         // a | b << 16: the luma step as a * y + b * (128 * y)
    int32_t yLow, yHigh;   // the patch bounds, less the luma base
    int32_t kB, kG, kR;    // every base, less 2^23
    int32_t pairB, pairR;  // (16-bit step, 0) on (sB * u, ...) and (0, step) on (..., sR * w)
    int32_t pairG;         // steps on (sGu * u, sGv * w)
    int32_t scaleBR;       // sB | sR << 16
    int32_t scaleG;        // sGu | sGv << 16
    bool endB, endG, endR; // whether the channel can reach the index 511
    bool ok;
};

// c = (c / s) * s with |c / s| < 32768, for the smallest s in 1..8; false if none.
static bool Scaled16(int64_t c, int32_t* c16, int32_t* s) {
    for (int k = 1; k <= 8; ++k)
        if (c % k == 0 && c / k >= -32768 && c / k <= 32767) {
            *c16 = int32_t(c / k);
            *s = k;
            return true;
        }
    return false;
}

InverseScaled InverseScaledOf(const View& v, const Inverse16& l16) {
    InverseScaled l{};
    const int64_t yStep = int64_t(v.yY[17]) - v.yY[16];
    const int64_t yBase = int64_t(v.yY[16]) - 16 * yStep; // the entry at 0 of the line
    const int64_t b = yStep / 128, a = yStep - 128 * b;
    int32_t cB, cR, cGu, cGv, sB, sR, sGu, sGv;
    l.ok = l16.ok && a >= -32768 && a <= 32767 && b >= -32768 && b <= 32767 &&
           Scaled16(int64_t(v.cbB[1]) - v.cbB[0], &cB, &sB) &&
           Scaled16(int64_t(v.crR[1]) - v.crR[0], &cR, &sR) &&
           Scaled16(int64_t(v.cbG[1]) - v.cbG[0], &cGu, &sGu) &&
           Scaled16(int64_t(v.crG[1]) - v.crG[0], &cGv, &sGv);
    if (!l.ok) return l;
    l.yPair = Pair16(int32_t(a), int32_t(b));
    l.yLow = int32_t(l16.yLow - yBase);
    l.yHigh = int32_t(l16.yHigh - yBase);
    const int64_t bias = int64_t(1) << 23;
    const int64_t kB = yBase + v.cbB[0] - bias, kR = yBase + v.crR[0] - bias,
                  kG = yBase + int64_t(v.cbG[0]) + v.crG[0] - bias;
    // Every sum must stay inside 32 bits: bound it by its ends.
    auto fits = [&](int64_t k, int64_t c1, int64_t c2) {
        const int64_t yLo = l16.patched ? std::min<int64_t>(0, l16.yLow - yBase) : 0;
        const int64_t yHi = std::max<int64_t>(255 * yStep, l16.patched ? l16.yHigh - yBase : 0);
        const int64_t lo = k + std::min<int64_t>(yLo, 255 * yStep) +
                           std::min<int64_t>(0, 255 * c1) + std::min<int64_t>(0, 255 * c2);
        const int64_t hi =
            k + yHi + std::max<int64_t>(0, 255 * c1) + std::max<int64_t>(0, 255 * c2);
        return lo >= int64_t(INT32_MIN) + 65536 && hi <= int64_t(INT32_MAX) - 65536;
    };
    l.ok = fits(kB, int64_t(cB) * sB, 0) && fits(kR, int64_t(cR) * sR, 0) &&
           fits(kG, int64_t(cGu) * sGu, int64_t(cGv) * sGv);
    l.kB = int32_t(kB), l.kR = int32_t(kR), l.kG = int32_t(kG);
    l.pairB = Pair16(cB, 0);
    l.pairR = Pair16(0, cR);
    l.pairG = Pair16(cGu, cGv);
    l.scaleBR = Pair16(sB, sR);
    l.scaleG = Pair16(sGu, sGv);
    int64_t yMax = v.yY[0];
    for (int i : {16, 234, 235, 254, 255})
        yMax = std::max<int64_t>(yMax, v.yY[i]);
    auto top = [](const int32_t* t) { return int64_t(std::max(t[0], t[255])); };
    l.endB = ((yMax + top(v.cbB)) >> 16) >= 511;
    l.endG = ((yMax + top(v.crG) + top(v.cbG)) >> 16) >= 511;
    l.endR = ((yMax + top(v.crR)) >> 16) >= 511;
    return l;
}

// What the destination holds, for the bytes a conversion must leave.
template <int PS> HWY_INLINE V32 Old(const uint8_t* p) {
    return hn::BitCast(D32(), hn::LoadU(D8(), p));
}

// The source layouts of the scaled inverse: meshed 4:4:4 (Y, Cb, Cr, alpha copied),
// YUVK and UYVK (the destination's fourth byte kept), and UYVY (groups Cb, Y0, Cr, Y1,
// each doubled into two lanes, the even lane taking Y0 and the odd lane Y1).
// Meshed 4:2:2 (kSrc422) reads like 4:4:4, and its odd pixels take the mean chroma of
// their even neighbours (see Yuv422ToBgr); it keeps the destination's fourth byte.
enum { kSrc444, kSrcYuvk, kSrcUyvk, kSrcUyvy, kSrc422 };

// Per pixel and layout: Y, Y as 16-bit pairs; and Cb, Cr as 16-bit pairs.
alignas(16) constexpr uint8_t kPairYY[5][16] = {
    {0, 0x80, 0, 0x80, 4, 0x80, 4, 0x80, 8, 0x80, 8, 0x80, 12, 0x80, 12, 0x80},
    {0, 0x80, 0, 0x80, 4, 0x80, 4, 0x80, 8, 0x80, 8, 0x80, 12, 0x80, 12, 0x80},
    {1, 0x80, 1, 0x80, 5, 0x80, 5, 0x80, 9, 0x80, 9, 0x80, 13, 0x80, 13, 0x80},
    {1, 0x80, 1, 0x80, 7, 0x80, 7, 0x80, 9, 0x80, 9, 0x80, 15, 0x80, 15, 0x80},
    {0, 0x80, 0, 0x80, 4, 0x80, 4, 0x80, 8, 0x80, 8, 0x80, 12, 0x80, 12, 0x80}};
alignas(16) constexpr uint8_t kPairUW[5][16] = {
    {1, 0x80, 2, 0x80, 5, 0x80, 6, 0x80, 9, 0x80, 10, 0x80, 13, 0x80, 14, 0x80},
    {1, 0x80, 2, 0x80, 5, 0x80, 6, 0x80, 9, 0x80, 10, 0x80, 13, 0x80, 14, 0x80},
    {0, 0x80, 2, 0x80, 4, 0x80, 6, 0x80, 8, 0x80, 10, 0x80, 12, 0x80, 14, 0x80},
    {0, 0x80, 2, 0x80, 4, 0x80, 6, 0x80, 8, 0x80, 10, 0x80, 12, 0x80, 14, 0x80},
    {1, 0x80, 2, 0x80, 5, 0x80, 6, 0x80, 9, 0x80, 10, 0x80, 13, 0x80, 14, 0x80}};

// K source pixels of a layout as 32-bit lanes.
template <int Src, int PS> HWY_INLINE V32 LoadSource(const uint8_t* src, int32_t i) {
    if (Src == kSrc444 || Src == kSrc422) return LoadPixels<PS>(src + PS * i);
    if (Src != kSrcUyvy) return LoadPixels<4>(src + 4 * i);
    const DU32 du;
    const hn::Half<DU32> dh;
    const hn::Repartition<uint64_t, DU32> d64;
    const auto groups = hn::LoadU(dh, reinterpret_cast<const uint32_t*>(src + 2 * i));
    const auto wide = hn::PromoteTo(d64, groups);
    return hn::BitCast(D32(), hn::BitCast(du, hn::Or(wide, hn::ShiftLeft<32>(wide))));
}

// 0 where the sum's channel is 511 (the biased sum's top half is 511 - 128).
template <bool End> HWY_INLINE V32 ZeroAt511(V32 s, V32 x) {
    if (!End) return x;
    const D32 d;
    return hn::IfThenElse(hn::Eq(hn::ShiftRight<16>(s), hn::Set(d, 511 - 128)), hn::Set(d, -32768),
                          x);
}

template <int Src, int PS, bool Patched, bool EndB, bool EndG, bool EndR>
void InverseScaledRow(const InverseScaled& l, const uint8_t* src, uint8_t* dst, int32_t n) {
    const D32 d;
    const D16 d16;
    const D8 d8;
    const hn::RebindToUnsigned<D16> du16;
    const auto odd = hn::Eq(hn::And(hn::Iota(d, 0), hn::Set(d, 1)), hn::Set(d, 1));
    const auto pairYY = hn::LoadDup128(d8, kPairYY[Src]);
    const auto pairUW = hn::LoadDup128(d8, kPairUW[Src]);
    const auto order = hn::LoadDup128(d8, kInterleave);
    const auto yScale = hn::BitCast(d16, hn::Set(d, Pair16(1, 128)));
    const auto scaleBR = hn::BitCast(d16, hn::Set(d, l.scaleBR));
    const auto scaleG = hn::BitCast(d16, hn::Set(d, l.scaleG));
    const auto yPair = hn::BitCast(d16, hn::Set(d, l.yPair));
    const auto pairB = hn::BitCast(d16, hn::Set(d, l.pairB));
    const auto pairR = hn::BitCast(d16, hn::Set(d, l.pairR));
    const auto pairG = hn::BitCast(d16, hn::Set(d, l.pairG));
    const V32 kB = hn::Set(d, l.kB), kG = hn::Set(d, l.kG), kR = hn::Set(d, l.kR);
    const V32 yLow = hn::Set(d, l.yLow), yHigh = hn::Set(d, l.yHigh);
    const V32 y255 = hn::Set(d, Pair16(255, 255 * 128));       // the pair (Y, 128 Y) at Y = 255
    const auto flip = hn::BitCast(d8, hn::Set(d, 0x00808080)); // B, G, R only
    for (int32_t i = 0; i < n; i += K) {
        const V32 px = LoadSource<Src, PS>(src, i);
        const auto bytes = hn::BitCast(d8, px);
        const auto yy16 = hn::Mul(hn::BitCast(d16, hn::TableLookupBytesOr0(bytes, pairYY)), yScale);
        auto uw = hn::BitCast(d16, hn::TableLookupBytesOr0(bytes, pairUW));
        if (Src == kSrc422) {
            // Odd lanes: the mean of lane i - 1 here and in the vector two pixels on.
            const auto next = hn::BitCast(d8, LoadPixels<PS>(src + PS * (i + 2)));
            const auto uwNext = hn::BitCast(d, hn::TableLookupBytesOr0(next, pairUW));
            const auto sum = hn::Add(hn::BitCast(du16, hn::Shuffle2301(hn::BitCast(d, uw))),
                                     hn::BitCast(du16, hn::Shuffle2301(uwNext)));
            uw = hn::BitCast(d16, hn::IfThenElse(odd, hn::BitCast(d, hn::ShiftRight<1>(sum)),
                                                 hn::BitCast(d, uw)));
        }
        V32 unused = hn::Zero(d);
        V32 yy = hn::ReorderWidenMulAccumulate(d, yy16, yPair, hn::Zero(d), unused);
        if (Patched) {
            const V32 c = hn::Min(hn::Max(yy, yLow), yHigh);
            yy = hn::IfThenElse(hn::Eq(hn::BitCast(d, yy16), y255), yy, c);
        }
        const auto uwBR = hn::Mul(uw, scaleBR);
        const auto uwG = hn::Mul(uw, scaleG);
        const V32 sB = hn::Add(hn::ReorderWidenMulAccumulate(d, uwBR, pairB, yy, unused), kB);
        const V32 sR = hn::Add(hn::ReorderWidenMulAccumulate(d, uwBR, pairR, yy, unused), kR);
        const V32 sG = hn::Add(hn::ReorderWidenMulAccumulate(d, uwG, pairG, yy, unused), kG);
        const V32 b = ZeroAt511<EndB>(sB, hn::ShiftRight<8>(sB));
        const V32 g = ZeroAt511<EndG>(sG, hn::ShiftRight<8>(sG));
        const V32 r = ZeroAt511<EndR>(sR, hn::ShiftRight<8>(sR));
        // The fourth byte (the source's alpha, or what the destination holds) in the high
        // byte of its 16-bit lane, exact through the narrowing and not flipped below.
        const V32 old = Src == kSrc444 && PS == 4 ? px : Old<PS>(dst + PS * i);
        const V32 a = PS == 4 ? hn::ShiftRight<16>(old) : hn::Zero(d);
        const auto bg = hn::BitCast(d8, hn::ReorderDemote2To(d16, b, g));
        const auto ra = hn::BitCast(d8, hn::ReorderDemote2To(d16, r, a));
        // High bytes: B R pairs in the low half of each block, G A in the high half.
        const auto hiBytes = hn::OddEven(
            ra, hn::BitCast(d8, hn::ShiftRight<8>(hn::BitCast(hn::RebindToUnsigned<D16>(), bg))));
        const V32 out = hn::BitCast(d, hn::Xor(hn::TableLookupBytes(hiBytes, order), flip));
        StorePixels<PS>(dst + PS * i, out, PS == 4 ? out : old);
    }
}

// The forms of a set of tables, kept from the last call of the thread: the rows are
// called line by line, and working the forms out (with their divisions) cost a tenth
// of a line's time. The key is every table entry the forms read.
struct InverseForms {
    int32_t key[20];
    Inverse16 l16;
    InverseScaled l;
    bool valid;
};

const InverseForms& InverseFormsOf(const View& v) {
    int32_t key[20];
    int k = 0;
    for (int i : {0, 16, 17, 234, 235, 254, 255})
        key[k++] = v.yY[i];
    for (const int32_t* t : {v.cbB, v.crR, v.cbG, v.crG})
        for (int i : {0, 1, 255})
            key[k++] = t[i];
    key[k++] = v.space;
    static thread_local InverseForms forms{};
    if (!forms.valid || std::memcmp(forms.key, key, sizeof key) != 0) {
        std::memcpy(forms.key, key, sizeof key);
        forms.l16 = Inverse16Of(v);
        forms.l = InverseScaledOf(v, forms.l16);
        forms.valid = true;
    }
    return forms;
}

template <int Src, int PS>
bool InverseScaledFor(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    if (HWY_TARGET == HWY_SSSE3 || v.space == 2) return false;
    const InverseForms& forms = InverseFormsOf(v);
    const Inverse16& l16 = forms.l16;
    const InverseScaled l = forms.l;
    if (!l16.ok || !l.ok) return false;
    // The combinations of the tables of spaces 0 and 1.
    if (l16.patched && l.endB && !l.endG && !l.endR)
        InverseScaledRow<Src, PS, true, true, false, false>(l, src, dst, n);
    else if (!l16.patched && !l.endB && !l.endG && !l.endR)
        InverseScaledRow<Src, PS, false, false, false, false>(l, src, dst, n);
    else
        return false;
    return true;
}

template <int PS> void Yuv444ToBgr(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    const D32 d;
    if (v.space != 2) {
        const Inverse16 l = Inverse16Of(v);
        if (InverseScaledFor<kSrc444, PS>(v, src, dst, n)) return;
        if (l.ok) return Yuv444ToBgr16<PS>(l, src, dst, n);
    }
    // SSSE3 has the 16-bit form above but not the 32-bit multiplies below.
    if (HWY_TARGET == HWY_SSSE3) return Yuv444ToBgr_C<PS>(v, src, dst, n);
    const Inverse inv(v);
    const V32 alphaMask = hn::Set(d, int32_t(0xFF000000u));
    for (int32_t i = 0; i < n; i += K) {
        const V32 px = LoadPixels<PS>(src + PS * i);
        V32 out = inv(Byte(px, 0), Byte(px, 8), Byte(px, 16));
        if (PS == 4) out = hn::Or(out, hn::And(px, alphaMask));
        StorePixels<PS>(dst + PS * i, out,
                        PS == 4 ? out : hn::BitCast(d, hn::LoadU(D8(), dst + PS * i)));
    }
}

template <int PS> void Matrix601To709(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    const D32 d;
    const int32_t(*m)[3] = v.matrix;
    const V32 lo = hn::Zero(d), hi = hn::Set(d, 255);
    const V32 alphaMask = hn::Set(d, int32_t(0xFF000000u));
    const int32_t off[3] = {0x108000, 0x808000, 0x808000};
    for (int32_t i = 0; i < n; i += K) {
        const V32 px = LoadPixels<PS>(src + PS * i);
        const V32 y = hn::Sub(Byte(px, 0), hn::Set(d, 16));
        const V32 u = hn::Sub(Byte(px, 8), hn::Set(d, 128));
        const V32 w = hn::Sub(Byte(px, 16), hn::Set(d, 128));
        V32 c[3];
        for (int k = 0; k < 3; ++k) {
            const V32 s =
                hn::Add(hn::Add(hn::Mul(hn::Set(d, m[k][2]), w), hn::Mul(hn::Set(d, m[k][1]), u)),
                        hn::Add(hn::Mul(hn::Set(d, m[k][0]), y), hn::Set(d, off[k])));
            c[k] = Limit(hn::ShiftRight<16>(s), lo, hi);
        }
        V32 out = Pack3(c[0], c[1], c[2]);
        if (PS == 4) out = hn::Or(out, hn::And(px, alphaMask));
        StorePixels<PS>(dst + PS * i, out,
                        PS == 4 ? out : hn::BitCast(d, hn::LoadU(D8(), dst + PS * i)));
    }
}

// Writes B, G, R and keeps the destination's fourth byte.
template <int PS> HWY_INLINE void StoreBgr(uint8_t* p, V32 bgr) {
    const D32 d;
    const V32 old = Old<PS>(p);
    if (PS == 4) bgr = hn::Or(bgr, hn::And(old, hn::Set(d, int32_t(0xFF000000u))));
    StorePixels<PS>(p, bgr, old);
}

template <int PS> void UyvkToBgr(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    if (InverseScaledFor<kSrcUyvk, PS>(v, src, dst, n)) return;
    const Inverse inv(v);
    for (int32_t i = 0; i < n; i += K) {
        const V32 px = LoadPixels<4>(src + 4 * i);
        StoreBgr<PS>(dst + PS * i, inv(Byte(px, 8), Byte(px, 0), Byte(px, 16)));
    }
}

template <int PS> void YuvkToBgr(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    if (InverseScaledFor<kSrcYuvk, PS>(v, src, dst, n)) return;
    const Inverse inv(v);
    for (int32_t i = 0; i < n; i += K) {
        const V32 px = LoadPixels<4>(src + 4 * i);
        StoreBgr<PS>(dst + PS * i, inv(Byte(px, 0), Byte(px, 8), Byte(px, 16)));
    }
}

template <int PS>
void YuvkToBgrPremultiplied(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    const D32 d;
    const Inverse inv(v);
    const V32 half = hn::Set(d, 128);
    for (int32_t i = 0; i < n; i += K) {
        const V32 px = LoadPixels<4>(src + 4 * i);
        const V32 bgr = inv(Byte(px, 0), Byte(px, 8), Byte(px, 16));
        const V32 k = Byte(px, 24);
        V32 c[3];
        for (int j = 0; j < 3; ++j) {
            const V32 t = hn::Add(hn::Mul(Byte(bgr, 8 * j), k), half);
            c[j] = hn::ShiftRight<8>(hn::Add(hn::ShiftRight<8>(t), t));
        }
        StoreBgr<PS>(dst + PS * i, Pack3(c[0], c[1], c[2]));
    }
}

// Two pixels a source group U, Y0, V, Y1: each group is doubled into two lanes, the
// even lane taking Y0 and the odd lane Y1.
template <int PS> void UyvyToBgr(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    if (InverseScaledFor<kSrcUyvy, PS>(v, src, dst, n)) return;
    const DU32 du;
    const hn::Half<DU32> dh;
    const hn::Repartition<uint64_t, DU32> d64;
    const Inverse inv(v);
    alignas(64) constexpr uint32_t kShift[16] = {8, 24, 8, 24, 8, 24, 8, 24,
                                                 8, 24, 8, 24, 8, 24, 8, 24};
    const auto shifts = hn::LoadU(du, kShift);
    for (int32_t i = 0; i < n; i += K) {
        const auto groups = hn::LoadU(dh, reinterpret_cast<const uint32_t*>(src + 2 * i));
        const auto wide = hn::PromoteTo(d64, groups);
        const auto twice = hn::BitCast(du, hn::Or(wide, hn::ShiftLeft<32>(wide)));
        const V32 g = hn::BitCast(D32(), twice);
        const V32 y = hn::BitCast(D32(), hn::And(hn::Shr(twice, shifts), hn::Set(du, 0xFFu)));
        StoreBgr<PS>(dst + PS * i, inv(y, Byte(g, 0), Byte(g, 16)));
    }
}

// ---- Meshed 4:2:2

// Luma, Cb and Cr of K pixels, each shifted by 16, and the chroma sums shifted by 15.
struct Sums422 {
    V32 y, cb, cr, su15, sv15;
};

struct Forward {
    const View& v;
    Linear ly, lu, lv;
    explicit Forward(const View& view)
        : v(view), ly(LinearOf(view.rgbYcc)), lu(LinearOf(view.rgbYcc + 768)),
          lv(LinearOf(view.rgbYcc + 1536)) {}

    HWY_INLINE Sums422 operator()(V32 px) const {
        const D32 d;
        const V32 b = Byte(px, 0), g = Byte(px, 8), r = Byte(px, 16);
        Sums422 s;
        if (v.space != 2) {
            const V32 mask8 = hn::Set(d, 0x00FF00FF);
            const V32 lo = hn::And(px, mask8);
            const V32 hi = hn::And(hn::ShiftRight<8>(px), mask8);
            s.y = LinearSum(ly, lo, hi, b, g, r);
            s.su15 = LinearSum<15>(lu, lo, hi, b, g, r);
            s.sv15 = LinearSum<15>(lv, lo, hi, b, g, r);
        } else {
            const int32_t* t = v.rgbYcc;
            s.y = hn::ShiftRight<16>(
                hn::Add(hn::Add(hn::GatherIndex(d, t, r), hn::GatherIndex(d, t + 256, g)),
                        hn::GatherIndex(d, t + 512, b)));
            s.su15 = hn::ShiftRight<15>(
                hn::Add(hn::Add(hn::GatherIndex(d, t + 768, r), hn::GatherIndex(d, t + 1024, g)),
                        hn::GatherIndex(d, t + 1280, b)));
            s.sv15 = hn::ShiftRight<15>(
                hn::Add(hn::Add(hn::GatherIndex(d, t + 1536, r), hn::GatherIndex(d, t + 1792, g)),
                        hn::GatherIndex(d, t + 2048, b)));
        }
        s.cb = hn::ShiftRight<1>(s.su15);
        s.cr = hn::ShiftRight<1>(s.sv15);
        return s;
    }
};

HWY_INLINE hn::Mask<D32> OddLanes() {
    const D32 d;
    return hn::Eq(hn::And(hn::Iota(d, 0), hn::Set(d, 1)), hn::Set(d, 1));
}

// The sums of Forward for tables that ForwardScaledOf takes, with green doubled for luma
// only (TwiceY): no folded channel, no byte of its own.
template <bool TwiceY>
HWY_INLINE Sums422 ScaledSums(V32 px, hn::Vec<D16> pl0, hn::Vec<D16> ph0, V32 off0,
                              hn::Vec<D16> pl1, hn::Vec<D16> ph1, V32 off1, hn::Vec<D16> pl2,
                              hn::Vec<D16> ph2, V32 off2) {
    const D32 d;
    const D16 d16;
    const V32 mask8 = hn::Set(d, 0x00FF00FF);
    const auto lo = hn::BitCast(d16, hn::And(px, mask8));
    const V32 hi32 = hn::And(hn::ShiftRight<8>(px), mask8);
    const auto hi = hn::BitCast(d16, hi32);
    const auto hi2 = hn::BitCast(d16, hn::Add(hi32, hi32));
    V32 unused = hn::Zero(d);
    Sums422 s;
    s.y = hn::ShiftRight<16>(hn::ReorderWidenMulAccumulate(
        d, TwiceY ? hi2 : hi, ph0, hn::ReorderWidenMulAccumulate(d, lo, pl0, off0, unused),
        unused));
    s.su15 = hn::ShiftRight<15>(hn::ReorderWidenMulAccumulate(
        d, hi, ph1, hn::ReorderWidenMulAccumulate(d, lo, pl1, off1, unused), unused));
    s.sv15 = hn::ShiftRight<15>(hn::ReorderWidenMulAccumulate(
        d, hi, ph2, hn::ReorderWidenMulAccumulate(d, lo, pl2, off2, unused), unused));
    s.cb = hn::ShiftRight<1>(s.su15);
    s.cr = hn::ShiftRight<1>(s.sv15);
    return s;
}

// Pixels k .. k + n - 1 of a line, k even and none of them the first or the last pixel
// of the line: the neighbours k - 1 and k + n are read. Scaled: the tables are taken by
// ScaledSums (with TwiceY) and no sum reaches the limit tables' ends.
template <int PS, bool Scaled, bool TwiceY, bool FilterLuma>
void BgrToYuv422Inner(const View& v, const ForwardScaled& f, const uint8_t* src, uint8_t* dst,
                      int32_t n) {
    const D32 d;
    const D16 d16;
    const Forward fwd(v);
    const auto odd = OddLanes();
    const V32 loY = hn::Set(d, 16), hiY = hn::Set(d, 235);
    const V32 loC = hn::Set(d, v.chromaLo), hiC = hn::Set(d, v.chromaHi);
    const auto pl0 = hn::BitCast(d16, hn::Set(d, f.lo[0])),
               ph0 = hn::BitCast(d16, hn::Set(d, f.hi[0]));
    const auto pl1 = hn::BitCast(d16, hn::Set(d, f.lo[1])),
               ph1 = hn::BitCast(d16, hn::Set(d, f.hi[1]));
    const auto pl2 = hn::BitCast(d16, hn::Set(d, f.lo[2])),
               ph2 = hn::BitCast(d16, hn::Set(d, f.hi[2]));
    const V32 off0 = hn::Set(d, f.off[0]), off1 = hn::Set(d, f.off[1]), off2 = hn::Set(d, f.off[2]);
    auto sums = [&](const uint8_t* p) HWY_ATTR {
        const V32 px = LoadPixels<PS>(p);
        return Scaled ? ScaledSums<TwiceY>(px, pl0, ph0, off0, pl1, ph1, off1, pl2, ph2, off2)
                      : fwd(px);
    };
    for (int32_t i = 0; i < n; i += K) {
        const uint8_t* s = src + PS * i;
        const Sums422 c = sums(s);
        const Sums422 p = sums(s - PS);
        const Sums422 x = sums(s + PS);
        V32 y = c.y;
        if (FilterLuma) y = hn::ShiftRight<2>(hn::Add(hn::Add(x.y, hn::ShiftLeft<1>(c.y)), p.y));
        const V32 u =
            hn::IfThenElse(odd, c.cb, hn::ShiftRight<2>(hn::Add(hn::Add(c.su15, x.cb), p.cb)));
        const V32 w =
            hn::IfThenElse(odd, c.cr, hn::ShiftRight<2>(hn::Add(hn::Add(c.sv15, x.cr), p.cr)));
        StoreBgr<PS>(dst + PS * i,
                     Pack3(LimitTo<!Scaled>(y, loY, hiY), LimitTo<!Scaled>(u, loC, hiC),
                           LimitTo<!Scaled>(w, loC, hiC)));
    }
}

// The unfiltered form of BgrToYuv422Inner with scaled sums, each pixel's sums taken once.
// An even pixel 2j takes the chroma of its odd neighbours 2j + 1 (the adjacent lane,
// Shuffle2301) and 2j - 1, the odd lane of the pair before: the sums rotated up by one
// pair (64-bit lanes), the first pair from the vector before (at the start, the sums
// of the pixel before, loaded once).
template <int PS, bool TwiceY>
void BgrToYuv422Pipelined(const View& v, const ForwardScaled& f, const uint8_t* src, uint8_t* dst,
                          int32_t n) {
    const D32 d;
    const D16 d16;
    const hn::Repartition<uint64_t, D32> d64;
    const auto odd = OddLanes();
    const auto firstPair = hn::FirstN(d, 2);
    const V32 loY = hn::Set(d, 16), hiY = hn::Set(d, 235);
    const V32 loC = hn::Set(d, v.chromaLo), hiC = hn::Set(d, v.chromaHi);
    const auto pl0 = hn::BitCast(d16, hn::Set(d, f.lo[0])),
               ph0 = hn::BitCast(d16, hn::Set(d, f.hi[0]));
    const auto pl1 = hn::BitCast(d16, hn::Set(d, f.lo[1])),
               ph1 = hn::BitCast(d16, hn::Set(d, f.hi[1]));
    const auto pl2 = hn::BitCast(d16, hn::Set(d, f.lo[2])),
               ph2 = hn::BitCast(d16, hn::Set(d, f.hi[2]));
    const V32 off0 = hn::Set(d, f.off[0]), off1 = hn::Set(d, f.off[1]), off2 = hn::Set(d, f.off[2]);
    alignas(64) uint64_t rotate[8];
    const size_t pairs = hn::Lanes(d64);
    for (size_t j = 0; j < pairs; ++j)
        rotate[j] = (j + pairs - 1) % pairs;
    const auto rot = hn::SetTableIndices(d64, rotate);
    auto rotated = [&](V32 x) HWY_ATTR {
        return hn::BitCast(d, hn::TableLookupLanes(hn::BitCast(d64, x), rot));
    };
    // Lane 1 of the first pair before: the pixel before the run.
    const Sums422 before = ScaledSums<TwiceY>(LoadPixels<PS>(src - PS), pl0, ph0, off0, pl1, ph1,
                                              off1, pl2, ph2, off2);
    V32 lastCb = hn::Shuffle2301(before.cb), lastCr = hn::Shuffle2301(before.cr);
    for (int32_t i = 0; i < n; i += K) {
        const Sums422 c = ScaledSums<TwiceY>(LoadPixels<PS>(src + PS * i), pl0, ph0, off0, pl1, ph1,
                                             off1, pl2, ph2, off2);
        const V32 rotCb = rotated(c.cb), rotCr = rotated(c.cr);
        const V32 pCb = hn::Shuffle2301(hn::IfThenElse(firstPair, lastCb, rotCb));
        const V32 pCr = hn::Shuffle2301(hn::IfThenElse(firstPair, lastCr, rotCr));
        lastCb = rotCb, lastCr = rotCr;
        const V32 u = hn::IfThenElse(
            odd, c.cb, hn::ShiftRight<2>(hn::Add(hn::Add(c.su15, hn::Shuffle2301(c.cb)), pCb)));
        const V32 w = hn::IfThenElse(
            odd, c.cr, hn::ShiftRight<2>(hn::Add(hn::Add(c.sv15, hn::Shuffle2301(c.cr)), pCr)));
        StoreBgr<PS>(dst + PS * i,
                     Pack3(hn::Min(hn::Max(c.y, loY), hiY), hn::Min(hn::Max(u, loC), hiC),
                           hn::Min(hn::Max(w, loC), hiC)));
    }
}

template <int PS, bool FilterLuma>
void BgrToYuv422InnerFor(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    const ForwardScaled f = v.space != 2 ? ForwardScaledOf(v) : ForwardScaled{};
    if (f.ok && !f.twice[1] && !f.twice[2]) {
        if (!FilterLuma)
            return f.twice[0] ? BgrToYuv422Pipelined<PS, true>(v, f, src, dst, n)
                              : BgrToYuv422Pipelined<PS, false>(v, f, src, dst, n);
        if (f.twice[0]) return BgrToYuv422Inner<PS, true, true, FilterLuma>(v, f, src, dst, n);
        return BgrToYuv422Inner<PS, true, false, FilterLuma>(v, f, src, dst, n);
    }
    BgrToYuv422Inner<PS, false, false, FilterLuma>(v, f, src, dst, n);
}

template <int PS>
void BgrToYuv422(const View& v, const uint8_t* src, uint8_t* dst, int32_t n, int32_t* carry,
                 int filterLuma) {
    const int32_t m = n & ~1;
    if (m == 0) return;
    if (m >= 4) {
        const uint8_t* s = src + (m - 1) * PS;
        *carry = RawSums(v.rgbYcc, s[0], s[1], s[2]).y >> 16;
    }
    // Pixels 0 and 1, the whole vectors from 2 on that leave the last pixel (and the
    // bytes a 3-byte load reads past its pixels) to the plain loop, and the rest.
    const int32_t inner = simd::VectorPart(m - 2, K, PS == 3 ? 1 + kSlack3 : 1);
    BgrToYuv422Range_C<PS>(v, src, dst, m, 0, 2, *carry, filterLuma);
    if (inner > 0) {
        if (filterLuma)
            BgrToYuv422InnerFor<PS, true>(v, src + 2 * PS, dst + 2 * PS, inner);
        else
            BgrToYuv422InnerFor<PS, false>(v, src + 2 * PS, dst + 2 * PS, inner);
    }
    BgrToYuv422Range_C<PS>(v, src, dst, m, 2 + inner, m, *carry, filterLuma);
}

// Odd pixels take the mean chroma of their even neighbours: lane i - 1 of this vector
// and of the vector two pixels on (adjacent lanes swapped within their pairs). The
// whole vectors leave the last pair to the plain loop.
template <int PS> void Yuv422ToBgr(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    if (InverseScaledFor<kSrc422, PS>(v, src, dst, n)) return;
    const Inverse inv(v);
    const auto odd = OddLanes();
    for (int32_t i = 0; i < n; i += K) {
        const V32 c = LoadPixels<PS>(src + PS * i);
        const V32 x = LoadPixels<PS>(src + PS * (i + 2));
        const V32 u = Byte(c, 8), w = Byte(c, 16);
        const V32 u2 = hn::ShiftRight<1>(hn::Add(hn::Shuffle2301(u), hn::Shuffle2301(Byte(x, 8))));
        const V32 w2 = hn::ShiftRight<1>(hn::Add(hn::Shuffle2301(w), hn::Shuffle2301(Byte(x, 16))));
        StoreBgr<PS>(dst + PS * i,
                     inv(Byte(c, 0), hn::IfThenElse(odd, u2, u), hn::IfThenElse(odd, w2, w)));
    }
}

// ---- Tails: the vector form over whole vectors, the plain loop over the rest.

template <RowFn Vec, RowFn Plain, int SrcBytes, int DstBytes, int Slack>
void Run(const View& v, const uint8_t* src, uint8_t* dst, int32_t pixels) {
    simd::SplitRun(
        pixels, K, Slack, [&](int32_t n) HWY_ATTR { Vec(v, src, dst, n); },
        [&](int32_t n, int32_t rest) {
            Plain(v, src + size_t(n) * SrcBytes / 2, dst + size_t(n) * DstBytes, rest);
        });
}

// SSSE3 lacks the 32-bit multiply, min and max that the inverse and the 4:2:2 rows lean
// on; emulated, they ran slower than the plain loop there, so that target keeps the
// plain loop for them (the 4:4:4 rows, 16-bit multiply-adds, stay; the inverse takes the
// plain loop itself where it cannot use them).
constexpr bool kPlainInverse = HWY_TARGET == HWY_SSSE3;
#define KELP_CSC_ROW(VEC, PLAIN) (kPlainInverse ? PLAIN : VEC)

// Source bytes per pixel are given doubled, for the 2 of UYVY's half groups.
constexpr Kernels kKernels = {
    KELP_SIMD_THIS_TARGET_NAME,
    {Run<BgrToYuv444<3>, BgrToYuv444_C<3>, 6, 3, kSlack3>,
     Run<BgrToYuv444<4>, BgrToYuv444_C<4>, 8, 4, 0>},
    {Run<Yuv444ToBgr<3>, Yuv444ToBgr_C<3>, 6, 3, kSlack3>,
     Run<Yuv444ToBgr<4>, Yuv444ToBgr_C<4>, 8, 4, 0>},
    {KELP_CSC_ROW((Run<Matrix601To709<3>, Matrix601To709_C<3>, 6, 3, kSlack3>),
                  Matrix601To709_C<3>),
     KELP_CSC_ROW((Run<Matrix601To709<4>, Matrix601To709_C<4>, 8, 4, 0>), Matrix601To709_C<4>)},
    {KELP_CSC_ROW(BgrToYuv422<3>, BgrToYuv422_C<3>),
     KELP_CSC_ROW(BgrToYuv422<4>, BgrToYuv422_C<4>)},
    {KELP_CSC_ROW((Run<Yuv422ToBgr<3>, Yuv422ToBgr_C<3>, 6, 3, 2 + kSlack3>), Yuv422ToBgr_C<3>),
     KELP_CSC_ROW((Run<Yuv422ToBgr<4>, Yuv422ToBgr_C<4>, 8, 4, 2>), Yuv422ToBgr_C<4>)},
    {KELP_CSC_ROW((Run<UyvyToBgr<3>, UyvyToBgr_C<3>, 4, 3, kSlack3>), UyvyToBgr_C<3>),
     KELP_CSC_ROW((Run<UyvyToBgr<4>, UyvyToBgr_C<4>, 4, 4, 0>), UyvyToBgr_C<4>)},
    {KELP_CSC_ROW((Run<UyvkToBgr<3>, UyvkToBgr_C<3>, 8, 3, kSlack3>), UyvkToBgr_C<3>),
     KELP_CSC_ROW((Run<UyvkToBgr<4>, UyvkToBgr_C<4>, 8, 4, 0>), UyvkToBgr_C<4>)},
    {KELP_CSC_ROW((Run<YuvkToBgr<3>, YuvkToBgr_C<3>, 8, 3, kSlack3>), YuvkToBgr_C<3>),
     KELP_CSC_ROW((Run<YuvkToBgr<4>, YuvkToBgr_C<4>, 8, 4, 0>), YuvkToBgr_C<4>)},
    {KELP_CSC_ROW((Run<YuvkToBgrPremultiplied<3>, YuvkToBgrPremultiplied_C<3>, 8, 3, kSlack3>),
                  YuvkToBgrPremultiplied_C<3>),
     KELP_CSC_ROW((Run<YuvkToBgrPremultiplied<4>, YuvkToBgrPremultiplied_C<4>, 8, 4, 0>),
                  YuvkToBgrPremultiplied_C<4>)},
};
#undef KELP_CSC_ROW

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace cscrows
} // namespace kelp
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kelp {
namespace cscrows {
const Kernels* VectorKernels(int target) {
    static const Kernels* const kByTarget[kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kSimdPlain && target < kSimdTargetCount ? kByTarget[target] : nullptr;
}
} // namespace cscrows
} // namespace kelp
#endif
