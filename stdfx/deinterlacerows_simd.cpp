// Vector forms of the deinterlacers' row kernels, written once and compiled for every
// vector target.
//
// Every form computes the plain loop's arithmetic lane by lane: the averages with the
// rounding average of bytes, which is (a + b + 1) >> 1 exactly; the weighted sums in
// 16-bit lanes, where no sum overflows (the widest, 19 (a + b) + 16, stays below 9,707
// and the lowest, -5 (d + e), above -2,551) and an arithmetic shift floors as the plain
// loop's shift of an int does; the clip to 0..255 by the saturating narrowing to bytes.
// The medians are minima and maxima, and a median is one value however it is found.
// The edge-directed search runs in 16-bit lanes too (its costs stay below 2,551) over
// the pixels whose search reaches its full range; the plain loop does the ends.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stdfx/deinterlacerows_simd.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include "runtime/simd.h"
#include "stdfx/deinterlacerows.h"

HWY_BEFORE_NAMESPACE();
namespace stdfx {
namespace deinterlacerows {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace hn = hwy::HWY_NAMESPACE;
using D8 = hn::ScalableTag<uint8_t>;
using V8 = hn::Vec<D8>;
using DI16 = hn::ScalableTag<int16_t>;
using VI16 = hn::Vec<DI16>;
using D8H = hn::Rebind<uint8_t, DI16>; // the bytes of one vector of 16-bit lanes

constexpr int32_t kBytes = int32_t(hn::MaxLanes(D8()));  // bytes of a byte vector
constexpr int32_t kHalf = int32_t(hn::MaxLanes(DI16())); // bytes of a 16-bit vector

inline VI16 Load16(const uint8_t* p) {
    return hn::PromoteTo(DI16(), hn::LoadU(D8H(), p));
}
inline void Store16(VI16 v, uint8_t* p) {
    hn::StoreU(hn::DemoteTo(D8H(), v), D8H(), p);
}

// Whole vectors only, in every kernel below.
void Average(const uint8_t* a, const uint8_t* b, uint8_t* dst, int32_t n) {
    const D8 d;
    for (int32_t i = 0; i < n; i += kBytes)
        hn::StoreU(hn::AverageRound(hn::LoadU(d, a + i), hn::LoadU(d, b + i)), d, dst + i);
}

void Blend(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint8_t* dst, int32_t n) {
    const VI16 two = hn::Set(DI16(), 2);
    for (int32_t i = 0; i < n; i += kHalf) {
        const VI16 s = hn::Add(hn::Add(Load16(a + i), hn::ShiftLeft<1>(Load16(c + i))),
                               hn::Add(Load16(b + i), two));
        Store16(hn::ShiftRight<2>(s), dst + i);
    }
}

void Cubic(const uint8_t* d, const uint8_t* a, const uint8_t* b, const uint8_t* e, uint8_t* dst,
           int32_t n) {
    const DI16 di;
    const VI16 k19 = hn::Set(di, 19), k3 = hn::Set(di, 3), k16 = hn::Set(di, 16);
    for (int32_t i = 0; i < n; i += kHalf) {
        const VI16 near = hn::Mul(hn::Add(Load16(a + i), Load16(b + i)), k19);
        const VI16 far = hn::Mul(hn::Add(Load16(d + i), Load16(e + i)), k3);
        Store16(hn::ShiftRight<5>(hn::Add(hn::Sub(near, far), k16)), dst + i);
    }
}

void FiveTap(const uint8_t* d, const uint8_t* a, const uint8_t* c, const uint8_t* b,
             const uint8_t* e, uint8_t* dst, int32_t n) {
    const DI16 di;
    const VI16 k10 = hn::Set(di, 10), k5 = hn::Set(di, 5);
    for (int32_t i = 0; i < n; i += kHalf) {
        const VI16 centre = hn::Mul(Load16(c + i), k10);
        const VI16 near = hn::ShiftLeft<3>(hn::Add(Load16(a + i), Load16(b + i)));
        const VI16 far = hn::Mul(hn::Add(Load16(d + i), Load16(e + i)), k5);
        Store16(hn::ShiftRight<4>(hn::Sub(hn::Add(centre, near), far)), dst + i);
    }
}

void Median3(const uint8_t* a, const uint8_t* b, const uint8_t* c, uint8_t* dst, int32_t n) {
    const D8 d;
    for (int32_t i = 0; i < n; i += kBytes) {
        const V8 va = hn::LoadU(d, a + i), vb = hn::LoadU(d, b + i);
        const V8 lo = hn::Min(va, vb), hi = hn::Max(va, vb);
        hn::StoreU(hn::Max(lo, hn::Min(hi, hn::LoadU(d, c + i))), d, dst + i);
    }
}

// Orders a pair: the smaller in x, the larger in y.
inline void Sort2(V8& x, V8& y) {
    const V8 lo = hn::Min(x, y);
    y = hn::Max(x, y);
    x = lo;
}

// The median of nine by a fixed exchange network of nineteen steps.
void Median9(const uint8_t* a, const uint8_t* b, const uint8_t* c, const uint8_t* d, uint8_t* dst,
             int32_t n) {
    const D8 d8;
    for (int32_t i = 0; i < n; i += kBytes) {
        const V8 va = hn::LoadU(d8, a + i), vb = hn::LoadU(d8, b + i);
        const V8 vc = hn::LoadU(d8, c + i), vd = hn::LoadU(d8, d + i);
        V8 p0 = hn::Zero(d8), p1 = va, p2 = vb, p3 = vc, p4 = vd;
        V8 p5 = hn::AverageRound(va, vb), p6 = p5, p7 = hn::AverageRound(vc, vd);
        V8 p8 = hn::Set(d8, uint8_t(255));
        Sort2(p1, p2), Sort2(p4, p5), Sort2(p7, p8);
        Sort2(p0, p1), Sort2(p3, p4), Sort2(p6, p7);
        Sort2(p1, p2), Sort2(p4, p5), Sort2(p7, p8);
        Sort2(p0, p3), Sort2(p5, p8), Sort2(p4, p7);
        Sort2(p3, p6), Sort2(p1, p4), Sort2(p2, p5);
        Sort2(p4, p7), Sort2(p4, p2), Sort2(p6, p4);
        Sort2(p4, p2);
        hn::StoreU(p4, d8, dst + i);
    }
}

// One diagonal of the edge-directed search at every lane (see EdgeBytes_C): X the line
// it leaves to the left, Y the other, xv and yv their own bytes. `s` is the pixel step.
inline void Diagonal(const uint8_t* X, const uint8_t* Y, VI16 xv, VI16 yv, int32_t k, int32_t s,
                     VI16 lo, VI16 hi, VI16& result, VI16& best) {
    const int32_t u = (k + 1) / 2, v = k / 2;
    const VI16 two = hn::Set(DI16(), 2);
    const VI16 p = hn::Add(Load16(Y + u * s), Load16(Y + v * s));
    const VI16 q = hn::Add(Load16(X - u * s), Load16(X - v * s));
    const VI16 candidate = hn::ShiftRight<2>(hn::Add(hn::Add(p, q), two));
    const VI16 main =
        hn::Add(hn::Abs(hn::Sub(yv, Load16(X - k * s))), hn::Abs(hn::Sub(xv, Load16(Y + k * s))));
    VI16 cost =
        hn::Add(hn::ShiftLeft<1>(main), hn::Abs(hn::Sub(Load16(X - s), Load16(Y + (k - 1) * s))));
    cost = hn::Add(cost, hn::Abs(hn::Sub(Load16(Y - s), Load16(X - (k + 1) * s))));
    cost = hn::Add(cost, hn::Abs(hn::Sub(Load16(X + s), Load16(Y + (k + 1) * s))));
    cost = hn::Add(cost, hn::Abs(hn::Sub(Load16(Y + s), Load16(X - (k - 1) * s))));
    cost = hn::Add(cost, hn::Abs(hn::Sub(p, q)));
    const auto outside = hn::Or(hn::Lt(candidate, lo), hn::Gt(candidate, hi));
    const auto take = hn::AndNot(outside, hn::Lt(cost, best));
    result = hn::IfThenElse(take, candidate, result);
    best = hn::IfThenElse(take, cost, best);
}

// Bytes [from, to) of pixels whose search range is the full 8 (its k from 0 to 4);
// to - from is a multiple of kHalf.
void EdgeRun(const uint8_t* A, const uint8_t* B, uint8_t* dst, int32_t s, int32_t from,
             int32_t to) {
    const DI16 di;
    const VI16 one = hn::Set(di, 1), two = hn::Set(di, 2), ten = hn::Set(di, 10);
    const VI16 start = hn::Set(di, 450);
    for (int32_t i = from; i < to; i += kHalf) {
        const uint8_t* pa = A + i;
        const uint8_t* pb = B + i;
        const VI16 a = Load16(pa), b = Load16(pb);
        const VI16 mean = hn::ShiftRight<1>(hn::Add(hn::Add(a, b), one));
        const auto flat =
            hn::And(hn::Lt(hn::Abs(hn::Sub(b, a)), ten),
                    hn::And(hn::Lt(hn::Abs(hn::Sub(Load16(pb - 2 * s), Load16(pb + 2 * s))), ten),
                            hn::Lt(hn::Abs(hn::Sub(Load16(pa - 2 * s), Load16(pa + 2 * s))), ten)));
        const VI16 lo = hn::Sub(hn::Min(a, b), two), hi = hn::Add(hn::Max(a, b), two);
        VI16 result = mean, best = start;
        for (int32_t k = 0; k <= kEdgeRange / 2; ++k) {
            Diagonal(pa, pb, a, b, k, s, lo, hi, result, best);
            Diagonal(pb, pa, b, a, k, s, lo, hi, result, best);
        }
        Store16(hn::IfThenElse(flat, mean, result), dst + i);
    }
}

void Edge(const uint8_t* above, const uint8_t* below, uint8_t* dst, int32_t pixels, int32_t s) {
    if (pixels <= 0 || s <= 0) return;
    const int32_t bytes = pixels * s;
    // Pixels from kEdgeRange + 1 to pixels - kEdgeRange - 2 search the full range.
    const int32_t from = (kEdgeRange + 1) * s;
    const int32_t last = (pixels - kEdgeRange - 1) * s;
    const int32_t to = last > from ? from + (last - from) / kHalf * kHalf : from;
    if (to == from) return EdgeBytes_C(above, below, dst, pixels, s, 0, bytes);
    EdgeBytes_C(above, below, dst, pixels, s, 0, from);
    EdgeRun(above, below, dst, s, from, to);
    EdgeBytes_C(above, below, dst, pixels, s, to, bytes);
}

// The vector form over the whole vectors of a run, the plain loop over the rest.
template <int32_t Block, AverageFn Vec, AverageFn Plain>
void Any2(const uint8_t* a, const uint8_t* b, uint8_t* dst, int32_t n) {
    kelp::simd::SplitRun(
        n, Block, 0, [&](int32_t m) { Vec(a, b, dst, m); },
        [&](int32_t m, int32_t rest) { Plain(a + m, b + m, dst + m, rest); });
}
template <int32_t Block, BlendFn Vec, BlendFn Plain>
void Any3(const uint8_t* a, const uint8_t* b, const uint8_t* c, uint8_t* dst, int32_t n) {
    kelp::simd::SplitRun(
        n, Block, 0, [&](int32_t m) { Vec(a, b, c, dst, m); },
        [&](int32_t m, int32_t rest) { Plain(a + m, b + m, c + m, dst + m, rest); });
}
template <int32_t Block, CubicFn Vec, CubicFn Plain>
void Any4(const uint8_t* a, const uint8_t* b, const uint8_t* c, const uint8_t* d, uint8_t* dst,
          int32_t n) {
    kelp::simd::SplitRun(
        n, Block, 0, [&](int32_t m) { Vec(a, b, c, d, dst, m); },
        [&](int32_t m, int32_t rest) { Plain(a + m, b + m, c + m, d + m, dst + m, rest); });
}
template <int32_t Block, FiveTapFn Vec, FiveTapFn Plain>
void Any5(const uint8_t* a, const uint8_t* b, const uint8_t* c, const uint8_t* d, const uint8_t* e,
          uint8_t* dst, int32_t n) {
    kelp::simd::SplitRun(
        n, Block, 0, [&](int32_t m) { Vec(a, b, c, d, e, dst, m); },
        [&](int32_t m, int32_t rest) { Plain(a + m, b + m, c + m, d + m, e + m, dst + m, rest); });
}

constexpr Kernels kKernels = {
    KELP_SIMD_THIS_TARGET_NAME,       Any2<kBytes, Average, Average_C>,
    Any3<kHalf, Blend, Blend_C>,      Any4<kHalf, Cubic, Cubic_C>,
    Any5<kHalf, FiveTap, FiveTap_C>,  Any3<kBytes, Median3, Median3_C>,
    Any4<kBytes, Median9, Median9_C>, Edge,
};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace deinterlacerows
} // namespace stdfx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace stdfx {
namespace deinterlacerows {
const Kernels* VectorKernels(int target) {
    static const Kernels* const kByTarget[kelp::kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kelp::kSimdPlain && target < kelp::kSimdTargetCount ? kByTarget[target]
                                                                        : nullptr;
}
} // namespace deinterlacerows
} // namespace stdfx
#endif // HWY_ONCE
