// Vector forms of the scalers' row kernels, written once and compiled for every vector
// target: the deinterlacer's vertical blend, the two passes of the bilinear route and
// the planned nearest-neighbour pick. The per-line rows (horz, bilinear, pick) stay the
// plain loops; the scalers take the route and the planned pick instead.
//
// Horizontal sums: a byte shuffle of a 16-byte window puts p and q of four output bytes
// side by side as 16-bit pairs, and one multiply-add of pairs with (hC, hN) gives
// p hC + q hN in 32 bits, the plain sum exactly (weights 0..2048 with a sum of at most
// 2048, which the plan checks: at most 255 * 2048). Wider vectors take one window per
// 128-bit block. Vertical: 32-bit lanes, multiplied modulo 2^32 as the plain loop does;
// with wC + wN = 2048 the sum top wC + bottom wN is 2048 top + (bottom - top) wN modulo
// 2^32, one multiplication fewer, and with wN = 0 (and wC = 2048) it is 2048 top, none.
// The low byte is kept by a mask before the narrowing. The one-pass line does both on
// the sums in registers, with the same operations. Pick: each 8 output bytes come from
// one window by a byte shuffle.
//
// Blend: with wC = 2048 - wN the plain (n wN + c wC) >> 11 is (2048 c + (n - c) wN) >> 11,
// and since 2048 c is a multiple of 2048 that is c + floor((n - c) wN / 2048). In signed
// 16-bit lanes the high half of the product 2 (n - c) (from -510 to 510) times 16 wN
// (at most 32752 for the wN below 2048 that weight tables hold) is floor(32 (n - c) wN /
// 65536), the same value, and c plus it lies in 0..255. Rows with other weights take
// the plain loop.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "convert/scalerows_simd.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include "convert/scalerows.h"
#include "runtime/simd.h"

HWY_BEFORE_NAMESPACE();
namespace kelp {
namespace scalerows {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace hn = hwy::HWY_NAMESPACE;
using D16 = hn::ScalableTag<int16_t>;
using D8 = hn::Rebind<uint8_t, D16>; // as many bytes as a vector has 16-bit lanes

constexpr int32_t kBlock = int32_t(hn::MaxLanes(D16())); // bytes a step: 8, 16 or 32

// Whole blocks only: `bytes` is a multiple of kBlock.
void Blend(const uint8_t* cur, const uint8_t* next, uint8_t* dst, size_t bytes, int32_t wNext) {
    const D16 d16;
    const D8 d8;
    const auto w = hn::Set(d16, int16_t(wNext * 16));
    for (size_t i = 0; i < bytes; i += size_t(kBlock)) {
        const auto c = hn::PromoteTo(d16, hn::LoadU(d8, cur + i));
        const auto n = hn::PromoteTo(d16, hn::LoadU(d8, next + i));
        const auto step = hn::MulHigh(hn::ShiftLeft<1>(hn::Sub(n, c)), w);
        hn::StoreU(hn::DemoteTo(d8, hn::Add(c, step)), d8, dst + i);
    }
}

void AnyBlend(const uint8_t* cur, const uint8_t* next, uint8_t* dst, size_t bytes, int32_t wNext,
              int32_t wCur) {
    if (wNext < 0 || wNext > 2047 || wNext + wCur != 2048 || bytes > 0x7FFFFFFF) {
        BlendRow_C(cur, next, dst, bytes, wNext, wCur);
        return;
    }
    simd::SplitRun(
        int32_t(bytes), kBlock, 0, [&](int32_t n) { Blend(cur, next, dst, size_t(n), wNext); },
        [&](int32_t n, int32_t rest) {
            BlendRow_C(cur + n, next + n, dst + n, size_t(rest), wNext, wCur);
        });
}

using DU8 = hn::ScalableTag<uint8_t>;
using DI16 = hn::ScalableTag<int16_t>;
using DI32 = hn::ScalableTag<int32_t>;
using DU32 = hn::ScalableTag<uint32_t>;
using B8 = hn::Full128<uint8_t>;
constexpr size_t kBlocks = hn::MaxLanes(DU8()) / 16; // 128-bit blocks a vector

// One 16-byte window per 128-bit block: block i from row + base[i].
HWY_INLINE hn::VFromD<DU8> Windows(const uint8_t* row, const uint32_t* base) {
    const B8 b8;
#if HWY_TARGET == HWY_AVX3
    const hn::Full256<uint8_t> d256;
    const auto lo = hn::Combine(d256, hn::LoadU(b8, row + base[1]), hn::LoadU(b8, row + base[0]));
    const auto hi = hn::Combine(d256, hn::LoadU(b8, row + base[3]), hn::LoadU(b8, row + base[2]));
    return hn::Combine(DU8(), hi, lo);
#elif HWY_TARGET == HWY_AVX2
    return hn::Combine(DU8(), hn::LoadU(b8, row + base[1]), hn::LoadU(b8, row + base[0]));
#else
    return hn::LoadU(b8, row + base[0]);
#endif
}

// The plan's arrays, read into locals once a row (the stores to the sums could
// otherwise alias them and make the loop read them again every step).
struct Quads {
    const uint32_t* baseA;
    const uint32_t* baseB;
    const uint8_t* shuffleA;
    const uint8_t* shuffleB;
    const int16_t* weights;
};

// Sums of the quads from k on, one a block (D8: a full vector or one block), from one
// window a block, or two when `Two`.
template <bool Two, class D8, class Load>
HWY_INLINE void SumQuads(D8 d8, const uint8_t* row, int32_t* sums, const Quads& q, size_t k,
                         Load load) {
    const hn::Repartition<int16_t, D8> d16;
    const hn::Repartition<int32_t, D8> d32;
    auto pairs =
        hn::TableLookupBytesOr0(load(row, q.baseA + k), hn::LoadU(d8, q.shuffleA + 16 * k));
    if (Two)
        pairs = hn::Or(pairs, hn::TableLookupBytesOr0(load(row, q.baseB + k),
                                                      hn::LoadU(d8, q.shuffleB + 16 * k)));
    auto unused = hn::Zero(d32);
    const auto t = hn::ReorderWidenMulAccumulate(
        d32, hn::BitCast(d16, pairs), hn::LoadU(d16, q.weights + 8 * k), hn::Zero(d32), unused);
    hn::StoreU(t, d32, sums + 4 * k);
}

template <bool Two> void SumRow(const uint8_t* row, int32_t* sums, const Quads& q, size_t quads) {
    size_t k = 0;
    if (kBlocks > 1) {
        const auto wide = [](const uint8_t* r, const uint32_t* b)
                              HWY_ATTR { return Windows(r, b); };
        for (; k + kBlocks <= quads; k += kBlocks)
            SumQuads<Two>(DU8(), row, sums, q, k, wide);
    }
    const auto one = [](const uint8_t* r, const uint32_t* b)
                         HWY_ATTR { return hn::LoadU(B8(), r + b[0]); };
    for (; k < quads; ++k)
        SumQuads<Two>(B8(), row, sums, q, k, one);
}

Quads QuadsOf(const ColumnPlan& plan) {
    return Quads{plan.baseA.data(), plan.baseB.data(), plan.shuffleA.data(), plan.shuffleB.data(),
                 plan.weights.data()};
}

void HorzSums(const uint8_t* row, uint32_t* sums, const ColumnPlan& plan) {
    int32_t* out = reinterpret_cast<int32_t*>(sums);
    if (plan.twoWindows)
        SumRow<true>(row, out, QuadsOf(plan), plan.quads);
    else
        SumRow<false>(row, out, QuadsOf(plan), plan.quads);
    HorzSumsFrom_C(row, sums, plan, 4 * plan.quads);
}

// How a line's two rows of sums are blended (VertSums): the top row alone (wN 0, wC
// 2048), or a pair of weights adding up to 2048. Other weights take the plain loop.
enum Blend { kTopOnly, kWeightPair };

// A line's arguments, read into locals once.
struct LineArgs {
    const uint32_t* topSums;
    const uint8_t* cur;
    const uint8_t* next;
    uint8_t* dst;
    uint32_t* keep;
    Quads q;
    size_t quads;
    uint32_t wNext;
};

// Bytes of the quads from k on of a line, both passes at once (as SumQuads, then the
// vertical blend of VertSums on the sums in registers). The top sums are loaded when
// `FromSums`, the bottom ones stored when `Keep`.
template <bool Two, int Mode, bool FromSums, bool Keep, class D8, class Load>
HWY_INLINE void LineQuads(D8 d8, const LineArgs& a, size_t k, Load load) {
    const hn::Repartition<int16_t, D8> d16;
    const hn::Repartition<int32_t, D8> d32;
    const hn::Repartition<uint32_t, D8> du32;
    const hn::Rebind<uint8_t, decltype(d32)> dout;
    constexpr bool kBottom = Mode != kTopOnly || Keep;
    const auto shuffleA = hn::LoadU(d8, a.q.shuffleA + 16 * k);
    const auto weights = hn::LoadU(d16, a.q.weights + 8 * k);
    auto pairs0 = hn::Zero(d8), pairs1 = hn::Zero(d8);
    if (!FromSums) pairs0 = hn::TableLookupBytesOr0(load(a.cur, a.q.baseA + k), shuffleA);
    if (kBottom) pairs1 = hn::TableLookupBytesOr0(load(a.next, a.q.baseA + k), shuffleA);
    if (Two) {
        const auto shuffleB = hn::LoadU(d8, a.q.shuffleB + 16 * k);
        if (!FromSums)
            pairs0 = hn::Or(pairs0, hn::TableLookupBytesOr0(load(a.cur, a.q.baseB + k), shuffleB));
        if (kBottom)
            pairs1 = hn::Or(pairs1, hn::TableLookupBytesOr0(load(a.next, a.q.baseB + k), shuffleB));
    }
    auto unused = hn::Zero(d32);
    auto top = hn::Zero(du32);
    if (FromSums)
        top = hn::LoadU(du32, a.topSums + 4 * k);
    else
        top = hn::BitCast(du32, hn::ReorderWidenMulAccumulate(d32, hn::BitCast(d16, pairs0),
                                                              weights, hn::Zero(d32), unused));
    auto sum = hn::ShiftLeft<11>(top);
    if (kBottom) {
        const auto bottom =
            hn::BitCast(du32, hn::ReorderWidenMulAccumulate(d32, hn::BitCast(d16, pairs1), weights,
                                                            hn::Zero(d32), unused));
        if (Mode == kWeightPair)
            sum = hn::Add(sum, hn::Mul(hn::Sub(bottom, top), hn::Set(du32, a.wNext)));
        if (Keep) hn::StoreU(bottom, du32, a.keep + 4 * k);
    }
    const auto v = hn::And(hn::ShiftRight<22>(sum), hn::Set(du32, 0xFFu));
    hn::StoreU(hn::DemoteTo(dout, hn::BitCast(d32, v)), dout, a.dst + 4 * k);
}

template <bool Two, int Mode, bool FromSums, bool Keep> void LineRows(const LineArgs& a) {
    size_t k = 0;
    if (kBlocks > 1) {
        const auto wide = [](const uint8_t* r, const uint32_t* b)
                              HWY_ATTR { return Windows(r, b); };
        for (; k + kBlocks <= a.quads; k += kBlocks)
            LineQuads<Two, Mode, FromSums, Keep>(DU8(), a, k, wide);
    }
    const auto one = [](const uint8_t* r, const uint32_t* b)
                         HWY_ATTR { return hn::LoadU(B8(), r + b[0]); };
    for (; k < a.quads; ++k)
        LineQuads<Two, Mode, FromSums, Keep>(B8(), a, k, one);
}

// From run-time choices to the form that makes them at compile time.
template <bool Two, int Mode, bool FromSums> void LineKeep(const LineArgs& a) {
    if (a.keep)
        LineRows<Two, Mode, FromSums, true>(a);
    else
        LineRows<Two, Mode, FromSums, false>(a);
}
template <bool Two, int Mode> void LineFrom(const LineArgs& a) {
    if (a.topSums)
        LineKeep<Two, Mode, true>(a);
    else
        LineKeep<Two, Mode, false>(a);
}
template <bool Two> void LineMode(const LineArgs& a) {
    if (a.wNext == 0)
        LineFrom<Two, kTopOnly>(a);
    else
        LineFrom<Two, kWeightPair>(a);
}

void Line(const uint32_t* topSums, const uint8_t* cur, const uint8_t* next, uint8_t* dst,
          uint32_t* keep, const ColumnPlan& plan, int32_t wNext, int32_t wCur) {
    const uint32_t wn = uint32_t(wNext), wc = uint32_t(wCur);
    size_t done = 0;
    if (wn + wc == 2048u) {
        const LineArgs a = {topSums, cur, next, dst, keep, QuadsOf(plan), plan.quads, wn};
        if (plan.twoWindows)
            LineMode<true>(a);
        else
            LineMode<false>(a);
        done = 4 * plan.quads;
    }
    LineFrom_C(topSums, cur, next, dst, keep, plan, wNext, wCur, done);
}

void VertSums(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, size_t bytes,
              int32_t wNext, int32_t wCur) {
    const DU32 d32;
    const hn::Rebind<uint8_t, DU32> d8;
    constexpr size_t n = hn::MaxLanes(d32);
    const auto wn = hn::Set(d32, uint32_t(wNext)), wc = hn::Set(d32, uint32_t(wCur));
    const auto low = hn::Set(d32, 0xFFu);
    const bool pair = uint32_t(wNext) + uint32_t(wCur) == 2048u;
    size_t i = 0;
    if (wNext == 0 && wCur == 2048) {
        // A line on a source line: the top row alone.
        for (; i + n <= bytes; i += n) {
            const auto v =
                hn::And(hn::ShiftRight<22>(hn::ShiftLeft<11>(hn::LoadU(d32, top + i))), low);
            hn::StoreU(hn::DemoteTo(d8, hn::BitCast(DI32(), v)), d8, dst + i);
        }
    } else if (pair) {
        for (; i + n <= bytes; i += n) {
            const auto t = hn::LoadU(d32, top + i), b = hn::LoadU(d32, bottom + i);
            const auto s = hn::Add(hn::ShiftLeft<11>(t), hn::Mul(hn::Sub(b, t), wn));
            const auto v = hn::And(hn::ShiftRight<22>(s), low);
            hn::StoreU(hn::DemoteTo(d8, hn::BitCast(DI32(), v)), d8, dst + i);
        }
    } else {
        for (; i + n <= bytes; i += n) {
            const auto t = hn::LoadU(d32, top + i), b = hn::LoadU(d32, bottom + i);
            const auto s = hn::Add(hn::Mul(t, wc), hn::Mul(b, wn));
            const auto v = hn::And(hn::ShiftRight<22>(s), low);
            hn::StoreU(hn::DemoteTo(d8, hn::BitCast(DI32(), v)), d8, dst + i);
        }
    }
    VertSums_C(top + i, bottom + i, dst + i, bytes - i, wNext, wCur);
}

template <class D8, class Load>
HWY_INLINE void PickUnits(D8 d8, const uint8_t* src, uint8_t* dst, const PickPlan& plan, size_t u,
                          Load load) {
    const auto a =
        hn::TableLookupBytesOr0(load(src, &plan.baseA[u]), hn::LoadU(d8, &plan.shuffleA[16 * u]));
    const auto b =
        hn::TableLookupBytesOr0(load(src, &plan.baseB[u]), hn::LoadU(d8, &plan.shuffleB[16 * u]));
    hn::StoreU(hn::Or(a, b), d8, dst + 16 * u);
}

void PickPlanned(const uint8_t* src, uint8_t* dst, const PickPlan& plan) {
    const size_t units = plan.units;
    size_t u = 0;
    if (kBlocks > 1) {
        const auto wide = [](const uint8_t* r, const uint32_t* b)
                              HWY_ATTR { return Windows(r, b); };
        for (; u + kBlocks <= units; u += kBlocks)
            PickUnits(DU8(), src, dst, plan, u, wide);
    }
    const auto one = [](const uint8_t* r, const uint32_t* b)
                         HWY_ATTR { return hn::LoadU(B8(), r + b[0]); };
    for (; u < units; ++u)
        PickUnits(B8(), src, dst, plan, u, one);
    // The plain loop from the pixel the vector part ended in.
    const int32_t x = int32_t(16 * units / size_t(plan.bpp));
    PickRow_C(src, dst + size_t(x) * size_t(plan.bpp), plan.cols + x, plan.width - x, plan.bpp);
}

constexpr Kernels kKernels = {KELP_SIMD_THIS_TARGET_NAME,
                              HorzRow_C,
                              BilinearRow_C,
                              AnyBlend,
                              PickRow_C,
                              HorzSums,
                              VertSums,
                              Line,
                              PickPlanned};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace scalerows
} // namespace kelp
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kelp {
namespace scalerows {

const Kernels* VectorKernels(int target) {
    static const Kernels* const kByTarget[kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kSimdPlain && target < kSimdTargetCount ? kByTarget[target] : nullptr;
}

} // namespace scalerows
} // namespace kelp
#endif // HWY_ONCE
