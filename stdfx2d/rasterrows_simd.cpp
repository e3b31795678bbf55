// The vector forms of the raster row kernels, one per vector target (docs/FASTPATHS.md).
//
// All of them compute exactly what the plain loops compute, by the same integer steps:
// - vertical: 32-bit lanes, one lane a channel; the bytes are widened, multiplied by
//   the weight and added, as in the plain loop, with no narrower intermediate.
// - horizontal: one pixel's four channels in four 32-bit lanes; the arithmetic shift and
//   the saturating narrowing to bytes are the plain clamp(sum >> shift).
// - nearest: the plain loop on every target. A 32-bit gather by the column lookup was
//   slower than it on AVX2 and AVX-512 (4.6 ms against 3.1 ms for 1080p to 2160p).
// - compose: 16-bit lanes. g * m + 128 is at most 255 * 255 + 128 = 65153, and
//   v + (v >> 8) at most 65407, so both fit unsigned 16 bits; s + that is at most 510,
//   and the saturating narrowing gives the clamp. The YUV form: see ComposeYuvBlocks.
// - vertical into bytes: the caller guarantees that every sum lies in
//   0 .. (256 << shift) - 1 (RowFitsBytes). With shift 7 or less that is below 32768, so
//   16-bit lanes that multiply and add modulo 65536 end on the exact sum (the wrapped
//   partial sums do not matter, only the last one, which is in range); the arithmetic
//   shift then gives the plain value, and the narrowing to bytes changes nothing. Above
//   7 the sums are kept in 32-bit lanes, two taps a multiply-add of 16-bit pairs.
// - horizontal from bytes: one target pixel a 128-bit part. A part is loaded with the
//   16 bytes of the pixel's window of four source pixels, its bytes are moved to 16-bit
//   lanes as (pixel 0, pixel 1) and (pixel 2, pixel 3) pairs of each channel with zero
//   high bytes, and ReorderWidenMulAccumulate (pmaddwd on every x86 target: each 32-bit
//   lane the sum of its two 16-bit products, exact for any 16-bit inputs) adds
//   value x weight for two window pixels into the channel's 32-bit lane. Integer sums in
//   another order are the same sums.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stdfx2d/rasterrows_simd.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include "runtime/simd.h"
#include "stdfx2d/rasterrows.h"

HWY_BEFORE_NAMESPACE();
namespace stdfx2d {
namespace rasterrows {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace hn = hwy::HWY_NAMESPACE;

using D32 = hn::ScalableTag<int32_t>;
using D8of32 = hn::Rebind<uint8_t, D32>;
constexpr int32_t kLanes32 = int32_t(hn::MaxLanes(D32()));

void Vertical(int32_t* work, const uint8_t* const* rows, const int32_t* weights, int32_t taps,
              const int32_t seed[4], int32_t x0, int32_t x1) {
    const D32 d;
    const D8of32 d8;
    alignas(64) int32_t pattern[16];
    for (int i = 0; i < 16; ++i)
        pattern[i] = seed[i & 3];
    const auto seeds = hn::Load(d, pattern);
    const int32_t perBlock = kLanes32 / 4; // pixels a vector
    kelp::simd::SplitRun(
        x1 - x0, perBlock, 0,
        [&](int32_t n) HWY_ATTR {
            const int32_t end = 4 * (x0 + n);
            for (int32_t j = 4 * x0; j < end; j += kLanes32) {
                auto acc = seeds;
                for (int32_t k = 0; k < taps; ++k) {
                    const auto px = hn::PromoteTo(d, hn::LoadU(d8, rows[k] + j));
                    acc = hn::Add(acc, hn::Mul(px, hn::Set(d, weights[k])));
                }
                hn::StoreU(acc, d, work + j);
            }
        },
        [&](int32_t n, int32_t rest) {
            Vertical_C(work, rows, weights, taps, seed, x0 + n, x0 + n + rest);
        });
}

void Horizontal(uint8_t* out, const int32_t* work, const Fx2dTapList* lists, int32_t pixels,
                int32_t shift, int32_t seed, bool narrow, int32_t luma) {
    const hn::FixedTag<int32_t, 4> d;
    const hn::Rebind<uint8_t, decltype(d)> d8;
    const int32_t ws = narrow ? shift : 0;
    const auto plainSeed = hn::Set(d, seed);
    for (int32_t x = 0; x < pixels; ++x) {
        const Fx2dTapList& l = lists[x];
        auto acc = plainSeed;
        if (l.biasLuma != 0 || l.biasChroma != 0) {
            alignas(16) int32_t s[4] = {seed + (luma == 0 ? l.biasLuma : l.biasChroma),
                                        seed + (luma == 1 ? l.biasLuma : l.biasChroma),
                                        seed + l.biasChroma, seed};
            acc = hn::Load(d, s);
        }
        const Fx2dTap* taps = l.taps;
        for (int32_t k = 0; k < l.count; ++k) {
            const auto v = hn::ShiftRightSame(hn::LoadU(d, work + 4 * taps[k].index), ws);
            acc = hn::Add(acc, hn::Mul(v, hn::Set(d, taps[k].weight)));
        }
        hn::StoreU(hn::DemoteTo(d8, hn::ShiftRightSame(acc, shift)), d8, out + 4 * x);
    }
}

using D16 = hn::ScalableTag<uint16_t>;
constexpr int32_t kLanes16 = int32_t(hn::MaxLanes(D16()));

void ComposeBlocks(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels) {
    const D16 d;
    const hn::Rebind<uint8_t, D16> d8;
    const hn::RebindToSigned<D16> di;
    const hn::Repartition<uint8_t, D16> dBytes;
    // Byte indices that copy each pixel's alpha (16-bit lane 3 of 4) to all four lanes.
    alignas(16) static constexpr uint8_t kAlpha[16] = {6,  7,  6,  7,  6,  7,  6,  7,
                                                       14, 15, 14, 15, 14, 15, 14, 15};
    const auto spread = hn::LoadDup128(dBytes, kAlpha);
    const auto k255 = hn::Set(d, 255), k128 = hn::Set(d, 128);
    for (int32_t i = 0; i < 4 * pixels; i += kLanes16) {
        const auto sv = hn::PromoteTo(d, hn::LoadU(d8, s + i));
        const auto gv = hn::PromoteTo(d, hn::LoadU(d8, g + i));
        const auto a = hn::BitCast(d, hn::TableLookupBytes(hn::BitCast(dBytes, sv), spread));
        const auto v = hn::Add(hn::Mul(gv, hn::Sub(k255, a)), k128);
        const auto r = hn::ShiftRight<8>(hn::Add(v, hn::ShiftRight<8>(v)));
        hn::StoreU(hn::DemoteTo(d8, hn::BitCast(di, hn::Add(sv, r))), d8, out + i);
    }
}

void Compose(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels) {
    kelp::simd::SplitRun(
        pixels, kLanes16 / 4, 0, [&](int32_t n) HWY_ATTR { ComposeBlocks(out, s, g, n); },
        [&](int32_t n, int32_t rest) { Compose_C(out + 4 * n, s + 4 * n, g + 4 * n, rest); });
}

// The YUV form: the background value g' is clamp(g - black) for Y, g - 128 for U and V,
// g for alpha: per lane, max(g - sub, low) with sub (black, 128, 128, 0) and low
// (0, -128, -128, 0). v = g' m + 128 is taken modulo 65536, whose low 16 bits are the
// same for either sign. In Y and alpha v is 0..65153 and v + (v >> 8) at most 65407, both
// unsigned 16-bit with logical shifts; in U and V v is -32512..32513 and v + (v >> 8)
// within +-32640, both signed 16-bit with arithmetic shifts. Each lane takes its own
// reading, s + that is -128..510 as a signed 16-bit value, and the saturating narrowing
// to bytes is the clamp.
void ComposeYuvBlocks(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels,
                      int32_t black) {
    const D16 d;
    const hn::Rebind<uint8_t, D16> d8;
    const hn::RebindToSigned<D16> di;
    const hn::Repartition<uint8_t, D16> dBytes;
    alignas(16) static constexpr uint8_t kAlpha[16] = {6,  7,  6,  7,  6,  7,  6,  7,
                                                       14, 15, 14, 15, 14, 15, 14, 15};
    const auto spread = hn::LoadDup128(dBytes, kAlpha);
    alignas(64) int16_t sub[kLanes16], low[kLanes16];
    for (int32_t i = 0; i < kLanes16; ++i) {
        const int32_t c = i & 3;
        sub[i] = int16_t(c == 0 ? black : (c == 3 ? 0 : 128));
        low[i] = int16_t(c == 1 || c == 2 ? -128 : 0);
    }
    const auto subV = hn::Load(di, sub), lowV = hn::Load(di, low);
    const auto isSigned = hn::Lt(lowV, hn::Zero(di));
    const auto k255 = hn::Set(d, 255), k128 = hn::Set(d, 128);
    for (int32_t i = 0; i < 4 * pixels; i += kLanes16) {
        const auto sv = hn::PromoteTo(d, hn::LoadU(d8, s + i));
        const auto gv = hn::BitCast(di, hn::PromoteTo(d, hn::LoadU(d8, g + i)));
        const auto gp = hn::BitCast(d, hn::Max(hn::Sub(gv, subV), lowV));
        const auto a = hn::BitCast(d, hn::TableLookupBytes(hn::BitCast(dBytes, sv), spread));
        const auto v = hn::Add(hn::Mul(gp, hn::Sub(k255, a)), k128);
        const auto ru = hn::BitCast(di, hn::ShiftRight<8>(hn::Add(v, hn::ShiftRight<8>(v))));
        const auto vs = hn::BitCast(di, v);
        const auto rs = hn::ShiftRight<8>(hn::Add(vs, hn::ShiftRight<8>(vs)));
        const auto r = hn::IfThenElse(isSigned, rs, ru);
        hn::StoreU(hn::DemoteTo(d8, hn::Add(hn::BitCast(di, sv), r)), d8, out + i);
    }
}

void ComposeYuv(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels, int32_t black) {
    kelp::simd::SplitRun(
        pixels, kLanes16 / 4, 0, [&](int32_t n) HWY_ATTR { ComposeYuvBlocks(out, s, g, n, black); },
        [&](int32_t n, int32_t rest) {
            ComposeYuv_C(out + 4 * n, s + 4 * n, g + 4 * n, rest, black);
        });
}

// ---- the byte work row

using DS16 = hn::ScalableTag<int16_t>;
constexpr int32_t kLanesS16 = int32_t(hn::MaxLanes(DS16()));

// The 16-bit vertical pass over bytes j .. end - 1 (whole vectors) with kTaps taps kept
// in registers (1 to 4), or any number of taps read from memory (kTaps 0).
template <int kTaps>
HWY_INLINE void Vertical16(uint8_t* out, const uint8_t* const* rows, const int32_t* weights,
                           int32_t taps, hn::Vec<DS16> seeds, int32_t j, int32_t end,
                           int32_t shift) {
    const DS16 d;
    const hn::Rebind<uint8_t, DS16> d8;
    if constexpr (kTaps == 0) {
        for (; j < end; j += kLanesS16) {
            auto acc = seeds;
            for (int32_t k = 0; k < taps; ++k) {
                const auto px = hn::PromoteTo(d, hn::LoadU(d8, rows[k] + j));
                acc = hn::Add(acc, hn::Mul(px, hn::Set(d, int16_t(weights[k]))));
            }
            hn::StoreU(hn::DemoteTo(d8, hn::ShiftRightSame(acc, shift)), d8, out + j);
        }
    } else {
        const uint8_t* r0 = rows[0];
        const uint8_t* r1 = rows[kTaps > 1 ? 1 : 0];
        const uint8_t* r2 = rows[kTaps > 2 ? 2 : 0];
        const uint8_t* r3 = rows[kTaps > 3 ? 3 : 0];
        const auto w0 = hn::Set(d, int16_t(weights[0]));
        const auto w1 = hn::Set(d, int16_t(weights[kTaps > 1 ? 1 : 0]));
        const auto w2 = hn::Set(d, int16_t(weights[kTaps > 2 ? 2 : 0]));
        const auto w3 = hn::Set(d, int16_t(weights[kTaps > 3 ? 3 : 0]));
        for (; j < end; j += kLanesS16) {
            auto acc = hn::Add(seeds, hn::Mul(hn::PromoteTo(d, hn::LoadU(d8, r0 + j)), w0));
            if constexpr (kTaps > 1)
                acc = hn::Add(acc, hn::Mul(hn::PromoteTo(d, hn::LoadU(d8, r1 + j)), w1));
            if constexpr (kTaps > 2)
                acc = hn::Add(acc, hn::Mul(hn::PromoteTo(d, hn::LoadU(d8, r2 + j)), w2));
            if constexpr (kTaps > 3)
                acc = hn::Add(acc, hn::Mul(hn::PromoteTo(d, hn::LoadU(d8, r3 + j)), w3));
            hn::StoreU(hn::DemoteTo(d8, hn::ShiftRightSame(acc, shift)), d8, out + j);
        }
    }
}

void VerticalBytes(uint8_t* out, const uint8_t* const* rows, const int32_t* weights, int32_t taps,
                   const int32_t seed[4], int32_t x0, int32_t x1, int32_t shift) {
    if (shift <= 7) {
        const DS16 d;
        alignas(64) int16_t pattern[kLanesS16];
        for (int32_t i = 0; i < kLanesS16; ++i)
            pattern[i] = int16_t(uint16_t(uint32_t(seed[i & 3])));
        const auto seeds = hn::Load(d, pattern);
        kelp::simd::SplitRun(
            x1 - x0, kLanesS16 / 4, 0,
            [&](int32_t n) HWY_ATTR {
                const int32_t j = 4 * x0, end = 4 * (x0 + n);
                switch (taps) {
                case 1:
                    Vertical16<1>(out, rows, weights, taps, seeds, j, end, shift);
                    break;
                case 2:
                    Vertical16<2>(out, rows, weights, taps, seeds, j, end, shift);
                    break;
                case 3:
                    Vertical16<3>(out, rows, weights, taps, seeds, j, end, shift);
                    break;
                case 4:
                    Vertical16<4>(out, rows, weights, taps, seeds, j, end, shift);
                    break;
                default:
                    Vertical16<0>(out, rows, weights, taps, seeds, j, end, shift);
                }
            },
            [&](int32_t n, int32_t rest) {
                VerticalBytes_C(out, rows, weights, taps, seed, x0 + n, x0 + n + rest, shift);
            });
        return;
    }
    // Wider shifts: two taps at a time in 32-bit sums. The two rows' bytes, widened to
    // 16 bits and interleaved, meet the pair of weights in ReorderWidenMulAccumulate
    // (each 32-bit lane: a x wa + b x wb, exact). The sums of a vector's lower and upper
    // interleavings come out as channels 0-3 and 4-7 of each 128-bit part, and the
    // saturating 32-to-16-bit packing, which works per part, puts them back in order.
    // The weights fit 16 bits: RowFitsBytes bounds the positive ones by (256 << 14) / 255.
    const DS16 d;
    const hn::Rebind<uint8_t, DS16> d8;
    const hn::Repartition<int32_t, DS16> d32;
    alignas(64) int32_t pattern[kLanesS16 / 2];
    for (int32_t i = 0; i < kLanesS16 / 2; ++i)
        pattern[i] = seed[i & 3];
    const auto seeds = hn::Load(d32, pattern);
    kelp::simd::SplitRun(
        x1 - x0, kLanesS16 / 4, 0,
        [&](int32_t n) HWY_ATTR {
            const int32_t end = 4 * (x0 + n);
            for (int32_t j = 4 * x0; j < end; j += kLanesS16) {
                auto lo = seeds, hi = seeds, unused = hn::Zero(d32);
                for (int32_t k = 0; k < taps; k += 2) {
                    const bool pair = k + 1 < taps;
                    const auto a = hn::PromoteTo(d, hn::LoadU(d8, rows[k] + j));
                    const auto b =
                        pair ? hn::PromoteTo(d, hn::LoadU(d8, rows[k + 1] + j)) : hn::Zero(d);
                    const uint32_t wb = pair ? uint32_t(weights[k + 1]) : 0u;
                    const auto w = hn::BitCast(
                        d, hn::Set(d32, int32_t((wb << 16) | (uint32_t(weights[k]) & 0xFFFFu))));
                    lo = hn::ReorderWidenMulAccumulate(d32, hn::InterleaveLower(d, a, b), w, lo,
                                                       unused);
                    hi = hn::ReorderWidenMulAccumulate(d32, hn::InterleaveUpper(d, a, b), w, hi,
                                                       unused);
                }
                const auto packed = hn::ReorderDemote2To(d, hn::ShiftRightSame(lo, shift),
                                                         hn::ShiftRightSame(hi, shift));
                hn::StoreU(hn::DemoteTo(d8, packed), d8, out + j);
            }
        },
        [&](int32_t n, int32_t rest) {
            VerticalBytes_C(out, rows, weights, taps, seed, x0 + n, x0 + n + rest, shift);
        });
}

using DB = hn::ScalableTag<uint8_t>;
constexpr int32_t kColumnBlock = int32_t(hn::MaxLanes(DB())) / 16; // target pixels a vector

// The windows of `start[0 .. kColumnBlock-1]`, one a 128-bit part, part 0 lowest.
template <class D>
HWY_INLINE hn::Vec<D> LoadWindows(D d, const uint8_t* work, const int32_t* start) {
    constexpr size_t kParts = hn::MaxLanes(D()) / 16;
    if constexpr (kParts == 1) {
        return hn::LoadU(d, work + 4 * ptrdiff_t(start[0]));
    } else {
        const hn::Half<D> dh;
        return hn::Combine(d, LoadWindows(dh, work, start + kParts / 2),
                           LoadWindows(dh, work, start));
    }
}

// kGroups: the plan's group count when it is known here (1, the common case of four
// taps), else 0.
template <int32_t kGroups>
void HorizontalBytesOf(uint8_t* out, const uint8_t* work, const ColumnPlan& plan, int32_t shift) {
    const DB d8;
    const hn::Repartition<int16_t, DB> d16;
    const hn::Repartition<int32_t, DB> d32;
    const hn::Rebind<uint8_t, decltype(d32)> dOut;
    const hn::Rebind<uint8_t, decltype(d16)> dHalf8;
    // Window bytes (pixel i, channel c at 4i + c) to 16-bit lanes: pixels 0 and 1, then
    // 2 and 3, of channel 0, 1, 2, 3 in turn; 0x80 gives the zero high bytes.
    alignas(16) static constexpr uint8_t kLow[16] = {0, 0x80, 4, 0x80, 1, 0x80, 5, 0x80,
                                                     2, 0x80, 6, 0x80, 3, 0x80, 7, 0x80};
    alignas(16) static constexpr uint8_t kHigh[16] = {8,  0x80, 12, 0x80, 9,  0x80, 13, 0x80,
                                                      10, 0x80, 14, 0x80, 11, 0x80, 15, 0x80};
    const auto low = hn::LoadDup128(d8, kLow);
    const auto high = hn::LoadDup128(d8, kHigh);
    const int32_t groups = kGroups ? kGroups : plan.groups;
    // A plan laid out for another block is read by the plain loop.
    const int32_t whole =
        plan.block == kColumnBlock ? plan.pixels / kColumnBlock * kColumnBlock : 0;
    const int16_t* w = plan.weights;
    constexpr size_t kStep = hn::MaxLanes(d16); // weights of one vector

    // The sums of the kColumnBlock pixels from x, shifted; w moves past their weights.
    auto sums = [&](int32_t x) HWY_ATTR {
        auto acc = hn::LoadU(d32, plan.seeds + 4 * x);
        auto unused = hn::Zero(d32);
        const uint8_t* base = work;
        for (int32_t g = 0; g < groups; ++g) {
            const auto win = LoadWindows(d8, base, plan.start + x);
            const auto a = hn::BitCast(d16, hn::TableLookupBytesOr0(win, low));
            const auto b = hn::BitCast(d16, hn::TableLookupBytesOr0(win, high));
            acc = hn::ReorderWidenMulAccumulate(d32, a, hn::LoadU(d16, w), acc, unused);
            acc = hn::ReorderWidenMulAccumulate(d32, b, hn::LoadU(d16, w + kStep), acc, unused);
            w += 2 * kStep;
            base += 16;
        }
        return hn::ShiftRightSame(acc, shift);
    };

    // Four vectors of sums at a time, narrowed together: the saturating 32-to-16-bit
    // packing pairs the 128-bit parts of two vectors (pixels b and B + b side by side),
    // the 16-to-8-bit one keeps its order, and one permutation of 32-bit lanes puts the
    // pixels back in order. Saturating twice clamps as clamping once does.
    constexpr int32_t B = kColumnBlock;
    alignas(64) int32_t order[4 * B];
    for (int32_t b = 0; b < B; ++b) {
        order[2 * b] = b;
        order[2 * b + 1] = B + b;
        order[2 * B + 2 * b] = 2 * B + b;
        order[2 * B + 2 * b + 1] = 3 * B + b;
    }
    alignas(64) int32_t inverse[4 * B];
    for (int32_t i = 0; i < 4 * B; ++i)
        inverse[order[i]] = i;
    const hn::Repartition<int32_t, decltype(hn::Twice<decltype(dHalf8)>())> dPix;
    const auto put = hn::SetTableIndices(dPix, inverse);
    int32_t x = 0;
    for (; x + 4 * B <= whole; x += 4 * B) {
        const auto s0 = sums(x);
        const auto s1 = sums(x + B);
        const auto s2 = sums(x + 2 * B);
        const auto s3 = sums(x + 3 * B);
        const auto lo = hn::DemoteTo(dHalf8, hn::ReorderDemote2To(d16, s0, s1));
        const auto hi = hn::DemoteTo(dHalf8, hn::ReorderDemote2To(d16, s2, s3));
        const hn::Twice<decltype(dHalf8)> dBytes;
        const auto px = hn::BitCast(dPix, hn::Combine(dBytes, hi, lo));
        hn::StoreU(hn::BitCast(dBytes, hn::TableLookupLanes(px, put)), dBytes, out + 4 * x);
    }
    for (; x < whole; x += B)
        hn::StoreU(hn::DemoteTo(dOut, sums(x)), dOut, out + 4 * x);
    HorizontalBytesPart_C(out, work, plan, shift, whole, plan.pixels);
}

void HorizontalBytes(uint8_t* out, const uint8_t* work, const ColumnPlan& plan, int32_t shift) {
    if (plan.groups == 1)
        HorizontalBytesOf<1>(out, work, plan, shift);
    else
        HorizontalBytesOf<0>(out, work, plan, shift);
}

// ---- the 4:2:2 rearrangements

using DU32 = hn::ScalableTag<uint32_t>;
constexpr int32_t kTuples = int32_t(hn::MaxLanes(DU32())); // tuples a vector

// Whole vectors of kTuples tuples. Each pair's bytes are widened to 16-bit lanes, so
// that a 128-bit part holds the two pairs of its four tuples at even bytes; a byte
// shuffle within the part places C0, Y, C1 and leaves byte 3 of each tuple zero, where
// the alpha byte, widened to 32 bits and moved up by 24, goes.
void SpreadBlocks(uint8_t* out, const uint8_t* pairs, const uint8_t* alpha, uint8_t opaque,
                  int32_t pixels) {
    const hn::Repartition<uint8_t, DU32> d8;
    const DU32 d32;
    const hn::Repartition<uint16_t, DU32> d16;
    const hn::Rebind<uint8_t, decltype(d16)> dPairs;
    const hn::Rebind<uint8_t, DU32> dAlpha;
    alignas(16) static constexpr uint8_t kPlace[16] = {0, 2,  4,  0x80, 0, 6,  4,  0x80,
                                                       8, 10, 12, 0x80, 8, 14, 12, 0x80};
    const auto place = hn::LoadDup128(d8, kPlace);
    const auto solid = hn::Set(d32, uint32_t(opaque) << 24);
    for (int32_t x = 0; x < pixels; x += kTuples) {
        const auto p = hn::BitCast(d8, hn::PromoteTo(d16, hn::LoadU(dPairs, pairs + 2 * x)));
        const auto a =
            alpha ? hn::ShiftLeft<24>(hn::PromoteTo(d32, hn::LoadU(dAlpha, alpha + x))) : solid;
        hn::StoreU(hn::Or(hn::TableLookupBytesOr0(p, place), hn::BitCast(d8, a)), d8, out + 4 * x);
    }
}

void Spread422(uint8_t* out, const uint8_t* pairs, const uint8_t* alpha, uint8_t opaque,
               int32_t pixels) {
    kelp::simd::SplitRun(
        pixels, kTuples, 0, [&](int32_t n) HWY_ATTR { SpreadBlocks(out, pairs, alpha, opaque, n); },
        [&](int32_t n, int32_t rest) {
            // n is even: the rest starts on a pair.
            Spread422_C(out + 4 * n, pairs + 2 * n, alpha ? alpha + n : nullptr, opaque, rest);
        });
}

// Whole vectors of kTuples / 2 pairs. A byte shuffle within each 128-bit part puts its
// two pairs' C0, Y0, C1, Y1 in 32-bit lanes 0 and 1 and their alphas in lane 2; one
// permutation of 32-bit lanes gathers the pairs of all parts in the lower half and the
// alphas in the quarter above.
void PackBlocks(uint8_t* out, uint8_t* plane, const uint8_t* tuples, int32_t pairs) {
    const hn::Repartition<uint8_t, DU32> d8;
    const DU32 d32;
    const hn::Half<DU32> dh;
    const hn::Half<decltype(dh)> dq;
    alignas(16) static constexpr uint8_t kPick[16] = {0, 1, 2,  5,  8,    9,    10,   13,
                                                      3, 7, 11, 15, 0x80, 0x80, 0x80, 0x80};
    const auto pick = hn::LoadDup128(d8, kPick);
    constexpr int32_t kParts = kTuples / 4;
    alignas(64) uint32_t gather[kTuples];
    for (int32_t i = 0; i < kTuples; ++i)
        gather[i] = 0;
    for (int32_t b = 0; b < kParts; ++b) {
        gather[2 * b] = uint32_t(4 * b);
        gather[2 * b + 1] = uint32_t(4 * b + 1);
        gather[2 * kParts + b] = uint32_t(4 * b + 2);
    }
    const auto order = hn::SetTableIndices(d32, gather);
    constexpr int32_t kPairs = kTuples / 2;
    for (int32_t p = 0; p < pairs; p += kPairs) {
        const auto v =
            hn::BitCast(d32, hn::TableLookupBytesOr0(hn::LoadU(d8, tuples + 8 * p), pick));
        const auto r = hn::TableLookupLanes(v, order);
        const hn::Repartition<uint8_t, decltype(dh)> dhb;
        hn::StoreU(hn::BitCast(dhb, hn::LowerHalf(dh, r)), dhb, out + 4 * p);
        if (plane) {
            const hn::Repartition<uint8_t, decltype(dq)> dqb;
            hn::StoreU(hn::BitCast(dqb, hn::LowerHalf(dq, hn::UpperHalf(dh, r))), dqb,
                       plane + 2 * p);
        }
    }
}

void Pack422(uint8_t* out, uint8_t* plane, const uint8_t* tuples, int32_t pairs) {
    kelp::simd::SplitRun(
        pairs, kTuples / 2, 0, [&](int32_t n) HWY_ATTR { PackBlocks(out, plane, tuples, n); },
        [&](int32_t n, int32_t rest) {
            Pack422_C(out + 4 * n, plane ? plane + 2 * n : nullptr, tuples + 8 * n, rest);
        });
}

constexpr Kernels kKernels = {KELP_SIMD_THIS_TARGET_NAME,
                              Vertical,
                              Horizontal,
                              Nearest_C,
                              Compose,
                              ComposeYuv,
                              VerticalBytes,
                              HorizontalBytes,
                              kColumnBlock,
                              Spread422,
                              Pack422};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace rasterrows
} // namespace stdfx2d
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace stdfx2d {
namespace rasterrows {
const Kernels* VectorKernels(int target) {
    static const Kernels* const kByTarget[kelp::kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kelp::kSimdPlain && target < kelp::kSimdTargetCount ? kByTarget[target]
                                                                        : nullptr;
}
} // namespace rasterrows
} // namespace stdfx2d
#endif
