// Vector forms of the deinterlacers' row kernels, written once and compiled for every
// vector target.
//
// Every form gives the plain loop's bytes:
// - The averages use the rounding average of bytes, which is (a + b + 1) >> 1 exactly.
// - The blend stays in bytes. With h = floor((a + b) / 2), r = (a + b) & 1 and
//   K = h + c + 1, (a + 2 c + b + 2) >> 2 = floor((K + r / 2) / 2), which is K >> 1 for
//   either r: adding a half does not carry past the next integer when K is odd. So the
//   blend is the rounded average of h and c, and h is the rounded average of a and b less
//   ((a ^ b) & 1).
// - The cubic splits the bytes of each 16-bit lane. The even bytes are summed as they are:
//   19 (a + b) + 16 stays below 9,707, and the saturating difference with 3 (d + e) is
//   the plain sum where that is positive and 0 (the clip) where it is not; the shift and
//   the minimum with 255 do the rest. The odd bytes are kept in the high byte, 256 times
//   their value: the rounded average of two such is 128 (x + y) exactly (the low bit of
//   the sum is 0), at most 65,280, and its high product with 19 * 512 or 3 * 512 is
//   19 (x + y) or 3 (x + y) exactly, as 128 * 512 is 65,536. Their difference is held
//   to 255 * 32 + 31, which is 255 after the shift by 5, so shifting it left by 3 and
//   keeping the high byte puts the clipped result in place without a reordering.
// - The five taps use 16-bit lanes, where no sum overflows (the lowest, -5 (d + e),
//   stays above -2,551) and an arithmetic shift floors as the plain loop's shift of an
//   int does; the clip to 0..255 is the saturating narrowing to bytes.
// - The medians are minima and maxima, and a median is one value however it is found.
// - The edge-directed search runs in 16-bit lanes too (its costs stay below 2,551) over
//   the pixels whose search reaches its full range; the plain loop does the ends.
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
using D16 = hn::ScalableTag<uint16_t>;
using V16 = hn::Vec<D16>;

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

// The blend in bytes: floor((a + b) / 2) is the rounded average less the bit that the
// rounding added (set where a + b is odd), and the rounded average of that with c is
// (a + 2 c + b + 2) >> 2 (see the top of the file).
void Blend(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint8_t* dst, int32_t n) {
    const D8 d;
    const V8 one = hn::Set(d, uint8_t(1));
    for (int32_t i = 0; i < n; i += kBytes) {
        const V8 va = hn::LoadU(d, a + i), vb = hn::LoadU(d, b + i);
        const V8 half = hn::Sub(hn::AverageRound(va, vb), hn::And(hn::Xor(va, vb), one));
        hn::StoreU(hn::AverageRound(half, hn::LoadU(d, c + i)), d, dst + i);
    }
}

// A weight the compiler cannot see: it multiplies by it instead of building the product
// from shifts and adds, which costs three or four operations on the shift units where
// the multiplication costs one.
inline uint16_t Opaque(uint16_t w) {
    asm("" : "+r"(w));
    return w;
}

// The cubic on whole byte vectors, the even and the odd bytes of each 16-bit lane apart,
// so that the result needs no reordering (see the top of the file). With kKeep, line b
// is stored to `keep` as well.
template <bool kKeep>
void CubicRun(const uint8_t* d, const uint8_t* a, const uint8_t* b, const uint8_t* e, uint8_t* dst,
              uint8_t* keep, int32_t n) {
    const D8 d8;
    const D16 d16;
    const DI16 di16;
    const V16 low = hn::Set(d16, 0x00FF), high = hn::Set(d16, 0xFF00);
    const V16 k19 = hn::Set(d16, Opaque(19)), k3 = hn::Set(d16, Opaque(3));
    const V16 k19High = hn::Set(d16, 19 * 512), k3High = hn::Set(d16, 3 * 512);
    const VI16 k32th = hn::Set(di16, 1024); // (x 1024 + 2^14) >> 15 is (x + 16) >> 5
    const V16 top = hn::Set(d16, 255);
    for (int32_t i = 0; i < n; i += kBytes) {
        const V16 va = hn::BitCast(d16, hn::LoadU(d8, a + i));
        const V8 bytesB = hn::LoadU(d8, b + i);
        if (kKeep) hn::StoreU(bytesB, d8, keep + i);
        const V16 vb = hn::BitCast(d16, bytesB);
        const V16 vd = hn::BitCast(d16, hn::LoadU(d8, d + i));
        const V16 ve = hn::BitCast(d16, hn::LoadU(d8, e + i));
        // Even bytes: max(0, 19 (a + b) - 3 (d + e)), then (x + 16) >> 5, at most 255.
        const V16 nearEven = hn::Add(hn::And(va, low), hn::And(vb, low));
        const V16 farEven = hn::Add(hn::And(vd, low), hn::And(ve, low));
        const V16 sumEven = hn::SaturatedSub(hn::Mul(nearEven, k19), hn::Mul(farEven, k3));
        const V16 even =
            hn::Min(hn::BitCast(d16, hn::MulFixedPoint15(hn::BitCast(di16, sumEven), k32th)), top);
        // Odd bytes, 256 times their value: the rounded average of two is 128 (x + y)
        // exactly, and its high product with 19 * 512 is 19 (x + y).
        const V16 nearOdd =
            hn::MulHigh(hn::AverageRound(hn::And(va, high), hn::And(vb, high)), k19High);
        const V16 farOdd =
            hn::MulHigh(hn::AverageRound(hn::And(vd, high), hn::And(ve, high)), k3High);
        const V16 sumOdd = hn::SaturatedSub(nearOdd, farOdd);
        const V16 odd = hn::ShiftLeft<8>(
            hn::Min(hn::BitCast(d16, hn::MulFixedPoint15(hn::BitCast(di16, sumOdd), k32th)), top));
        hn::StoreU(hn::BitCast(d8, hn::Or(even, odd)), d8, dst + i);
    }
}

void Cubic(const uint8_t* d, const uint8_t* a, const uint8_t* b, const uint8_t* e, uint8_t* dst,
           int32_t n) {
    CubicRun<false>(d, a, b, e, dst, nullptr, n);
}

void AnyCubicKeep(const uint8_t* d, const uint8_t* a, const uint8_t* b, const uint8_t* e,
                  uint8_t* dst, uint8_t* keep, int32_t n) {
    kelp::simd::SplitRun(
        n, kBytes, 0, [&](int32_t m) { CubicRun<true>(d, a, b, e, dst, keep, m); },
        [&](int32_t m, int32_t rest) {
            CubicKeep_C(d + m, a + m, b + m, e + m, dst + m, keep + m, rest);
        });
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
    KELP_SIMD_THIS_TARGET_NAME,
    Any2<kBytes, Average, Average_C>,
    Any3<kBytes, Blend, Blend_C>,
    Any4<kBytes, Cubic, Cubic_C>,
    Any5<kHalf, FiveTap, FiveTap_C>,
    Any3<kBytes, Median3, Median3_C>,
    Any4<kBytes, Median9, Median9_C>,
    Edge,
    AnyCubicKeep,
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
