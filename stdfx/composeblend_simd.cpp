// Vector forms of the compositor's separable blend modes, written once and compiled for
// every vector target.
//
// A row of BGRA bytes is read as 16-bit lanes and split into its even bytes (blue, red)
// and its odd bytes (green, alpha), each byte alone in a 16-bit lane, so that no lane
// ever moves: the two halves are joined again by a shift and an Or. The alpha bytes of
// a pixel are copied into both 16-bit lanes of that pixel. Every formula then runs
// lane by lane in the plain loop's own integer arithmetic: mul(a, b) is t := a b + 128
// (at most 65,153, which a 16-bit lane holds), and the sums (between -510 and 765) are
// signed 16-bit. (t + (t >> 8)) >> 8 is taken as the high half of t times 257: with
// t = 256 q + r, the first is q + floor((r + q) / 256), the second
// q + floor((r + q) / 256 + r / 65,536), and r / 65,536 < 1/256 cannot carry the
// fraction (r + q) / 256 past the next integer. The test runs all 65,536 pairs. Mode 8's division
// is a float division of integers below 2^17 whose quotient is below 256, where the float result
// truncates to the integer quotient (an integer quotient is exact, any other lies at least 1/510
// below the next integer, far beyond the float's error). The colour formula runs on the
// alpha lanes too, and the alpha formula replaces it there.
//
// Modes 13 to 16 (hue, saturation, lightness) are in composehsl_simd.cpp.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stdfx/composeblend_simd.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include "runtime/simd.h"
#include "stdfx/composerows.h"

HWY_BEFORE_NAMESPACE();
namespace stdfx {
namespace composerows {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace hn = hwy::HWY_NAMESPACE;
using D8 = hn::ScalableTag<uint8_t>;
using DU16 = hn::ScalableTag<uint16_t>;
using DI16 = hn::ScalableTag<int16_t>;
using DU32 = hn::ScalableTag<uint32_t>;
using DI32 = hn::ScalableTag<int32_t>;
using DF32 = hn::ScalableTag<float>;
using VI = hn::Vec<DI16>;

constexpr int32_t kBlock = int32_t(hn::MaxLanes(DU32())); // pixels of one vector

// (t + (t >> 8)) >> 8 of a 16-bit t, as the high half of t times 257.
HWY_INLINE hn::Vec<DU16> Div255(hn::Vec<DU16> t) {
    return hn::MulHigh(t, hn::Set(DU16(), 257));
}
// mul(a, b) of lanes 0..255.
HWY_INLINE VI MulV(VI a, VI b) {
    const DU16 du;
    const auto t = hn::Add(hn::Mul(hn::BitCast(du, a), hn::BitCast(du, b)), hn::Set(du, 128));
    return hn::BitCast(DI16(), Div255(t));
}
HWY_INLINE VI ClampV(VI v) {
    const DI16 di;
    return hn::Min(hn::Max(v, hn::Zero(di)), hn::Set(di, 255));
}
HWY_INLINE VI Inv(VI v) {
    return hn::Sub(hn::Set(DI16(), 255), v);
}
HWY_INLINE VI RestV(VI d, VI s, VI dA, VI sA) {
    return hn::Add(MulV(d, Inv(sA)), MulV(s, Inv(dA)));
}
HWY_INLINE VI OverAlphaV(VI dA, VI sA) {
    return ClampV(hn::Add(MulV(sA, Inv(dA)), dA));
}
HWY_INLINE VI ScreenV(VI d, VI s) {
    return Inv(MulV(Inv(d), Inv(s)));
}

// The colour and alpha formulas of each mode, lane by lane.
template <int M> struct Op;
template <> struct Op<2> {
    static HWY_INLINE VI C(VI d, VI s, VI, VI) { return ClampV(hn::Add(d, s)); }
    static HWY_INLINE VI A(VI dA, VI sA) { return ClampV(hn::Add(dA, sA)); }
};
template <> struct Op<3> {
    static HWY_INLINE VI C(VI d, VI s, VI dA, VI) {
        const DU16 du;
        const auto u = hn::Add(hn::Mul(hn::BitCast(du, s), hn::BitCast(du, dA)), hn::Set(du, 128));
        const VI twice = hn::BitCast(DI16(), hn::ShiftRight<7>(hn::Add(u, hn::ShiftRight<8>(u))));
        return ClampV(hn::Sub(hn::Add(d, s), twice));
    }
    static HWY_INLINE VI A(VI dA, VI sA) { return OverAlphaV(dA, sA); }
};
template <> struct Op<4> {
    static HWY_INLINE VI C(VI d, VI s, VI dA, VI sA) {
        return ClampV(hn::Add(MulV(d, s), RestV(d, s, dA, sA)));
    }
    static HWY_INLINE VI A(VI dA, VI sA) { return OverAlphaV(dA, sA); }
};
template <> struct Op<5> {
    static HWY_INLINE VI C(VI d, VI s, VI, VI) { return ScreenV(d, s); }
    static HWY_INLINE VI A(VI dA, VI sA) { return ScreenV(dA, sA); }
};
template <> struct Op<6> {
    static HWY_INLINE VI C(VI d, VI s, VI dA, VI sA) {
        const VI a = hn::Add(MulV(MulV(d, s), Inv(s)), MulV(ScreenV(d, s), s));
        return ClampV(hn::Add(a, RestV(d, s, dA, sA)));
    }
    static HWY_INLINE VI A(VI dA, VI sA) { return OverAlphaV(dA, sA); }
};
template <> struct Op<7> {
    static HWY_INLINE VI C(VI d, VI s, VI dA, VI sA) {
        const VI a = hn::Add(MulV(MulV(d, s), Inv(d)), MulV(ScreenV(d, s), d));
        return ClampV(hn::Add(a, RestV(d, s, dA, sA)));
    }
    static HWY_INLINE VI A(VI dA, VI sA) { return OverAlphaV(dA, sA); }
};
// The quotient of mode 8 in 32-bit lanes: (510 s + e) / (2 e), e := 255 - d > 0.
HWY_INLINE hn::Vec<DI32> Quotient32(hn::Vec<DI32> s, hn::Vec<DI32> e) {
    const DI32 di;
    const DF32 df;
    const auto num = hn::Add(hn::Mul(s, hn::Set(di, 510)), e);
    const auto den = hn::Add(e, e);
    return hn::ConvertTo(di, hn::Div(hn::ConvertTo(df, num), hn::ConvertTo(df, den)));
}
template <> struct Op<8> {
    static HWY_INLINE VI C(VI d, VI s, VI dA, VI sA) {
        const DI16 di;
        const hn::Half<DI16> dh;
        const DI32 d32;
        const VI e = Inv(d);
        // e of 0 only where s >= e already decides; 1 keeps the division harmless.
        const VI eSafe = hn::Max(e, hn::Set(di, 1));
        const auto lo = Quotient32(hn::PromoteTo(d32, hn::LowerHalf(dh, s)),
                                   hn::PromoteTo(d32, hn::LowerHalf(dh, eSafe)));
        const auto hi = Quotient32(hn::PromoteTo(d32, hn::UpperHalf(dh, s)),
                                   hn::PromoteTo(d32, hn::UpperHalf(dh, eSafe)));
        VI q = hn::Combine(di, hn::DemoteTo(dh, hi), hn::DemoteTo(dh, lo));
        q = hn::IfThenElse(hn::Not(hn::Lt(s, e)), hn::Set(di, 255), q);
        q = hn::IfThenZeroElse(hn::Eq(s, hn::Zero(di)), q);
        return ClampV(hn::Add(q, RestV(d, s, dA, sA)));
    }
    static HWY_INLINE VI A(VI dA, VI sA) { return OverAlphaV(dA, sA); }
};
template <> struct Op<9> {
    static HWY_INLINE VI C(VI d, VI s, VI dA, VI sA) {
        return ClampV(hn::Min(hn::Add(MulV(d, Inv(sA)), s), hn::Add(MulV(s, Inv(dA)), d)));
    }
    static HWY_INLINE VI A(VI dA, VI sA) { return OverAlphaV(dA, sA); }
};
template <> struct Op<10> {
    static HWY_INLINE VI C(VI d, VI s, VI dA, VI sA) {
        return ClampV(hn::Max(hn::Add(MulV(d, Inv(sA)), s), hn::Add(MulV(s, Inv(dA)), d)));
    }
    static HWY_INLINE VI A(VI dA, VI sA) { return OverAlphaV(dA, sA); }
};
template <> struct Op<11> {
    static HWY_INLINE VI C(VI d, VI s, VI dA, VI sA) {
        const VI diff = hn::Abs(hn::Sub(MulV(s, dA), MulV(d, sA)));
        return ClampV(hn::Add(diff, RestV(d, s, dA, sA)));
    }
    static HWY_INLINE VI A(VI dA, VI sA) { return OverAlphaV(dA, sA); }
};
template <> struct Op<12> {
    static HWY_INLINE VI C(VI d, VI s, VI dA, VI sA) {
        const VI up = hn::Add(hn::Set(DI16(), 255), RestV(d, s, dA, sA));
        return ClampV(hn::Sub(hn::Sub(up, MulV(Inv(d), Inv(s))), MulV(d, s)));
    }
    static HWY_INLINE VI A(VI dA, VI sA) { return OverAlphaV(dA, sA); }
};
template <> struct Op<17> {
    static HWY_INLINE VI C(VI, VI s, VI dA, VI) { return MulV(s, dA); }
    static HWY_INLINE VI A(VI dA, VI sA) { return MulV(sA, dA); }
};
template <> struct Op<19> {
    static HWY_INLINE VI C(VI, VI s, VI dA, VI) { return MulV(s, Inv(dA)); }
    static HWY_INLINE VI A(VI dA, VI sA) { return MulV(sA, Inv(dA)); }
};

// Byte indices that copy the alpha byte of each pixel into both of its 16-bit lanes.
alignas(16) constexpr uint8_t kAlphaLanes[16] = {3,  0x80, 3,  0x80, 7,  0x80, 7,  0x80,
                                                 11, 0x80, 11, 0x80, 15, 0x80, 15, 0x80};

// The alpha byte of each pixel in both of its 16-bit lanes (one byte shuffle within
// 128-bit blocks, where each pixel stays).
HWY_INLINE VI AlphaLanes(hn::Vec<DU32> px) {
    const D8 d8;
    return hn::BitCast(
        DI16(), hn::TableLookupBytesOr0(hn::BitCast(d8, px), hn::LoadDup128(d8, kAlphaLanes)));
}

// Whole vectors only: `pixels` is a multiple of kBlock.
template <int M> void Blend(uint8_t* dst, const uint8_t* src, int32_t pixels) {
    const D8 d8;
    const DU32 d32;
    const DI16 di;
    const DU16 du;
    const VI lowByte = hn::Set(di, 0x00FF);
    // The odd 16-bit lane of a pixel (green, alpha) holds the alpha byte.
    const auto alphaLane = hn::MaskFromVec(hn::BitCast(di, hn::Set(d32, 0xFFFF0000u)));
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const auto dv = hn::BitCast(d32, hn::LoadU(d8, dst + 4 * i));
        const auto sv = hn::BitCast(d32, hn::LoadU(d8, src + 4 * i));
        const VI dA = AlphaLanes(dv), sA = AlphaLanes(sv);
        const VI d16 = hn::BitCast(di, dv), s16 = hn::BitCast(di, sv);
        const VI dEven = hn::And(d16, lowByte), sEven = hn::And(s16, lowByte);
        const VI dOdd = hn::BitCast(di, hn::ShiftRight<8>(hn::BitCast(du, d16)));
        const VI sOdd = hn::BitCast(di, hn::ShiftRight<8>(hn::BitCast(du, s16)));
        const VI even = Op<M>::C(dEven, sEven, dA, sA);
        const VI odd = hn::IfThenElse(alphaLane, Op<M>::A(dA, sA), Op<M>::C(dOdd, sOdd, dA, sA));
        const VI out = hn::Or(even, hn::ShiftLeft<8>(odd));
        hn::StoreU(hn::BitCast(d8, out), d8, dst + 4 * i);
    }
}

template <int M> HWY_INLINE BlendFn PlainRow() {
    if constexpr (M == 1)
        return Over_C;
    else
        return Blend_C<M>;
}

// Mode 1 is the same formula on all four bytes, alpha included: s + mul(d, 255 - sA).
// mul(d, .) is at most 255, so the sum held to 255 is the saturating byte sum. The
// source's inverted alpha byte is copied into both 16-bit lanes of its pixel by one
// byte shuffle (within 128-bit blocks, where each pixel stays).
template <> void Blend<1>(uint8_t* dst, const uint8_t* src, int32_t pixels) {
    const D8 d8;
    const DU16 du;
    const auto alphaIndex = hn::LoadDup128(d8, kAlphaLanes);
    const auto lowByte = hn::Set(du, 0x00FF), half = hn::Set(du, 128);
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const auto dv = hn::LoadU(d8, dst + 4 * i);
        const auto sv = hn::LoadU(d8, src + 4 * i);
        const auto inv = hn::BitCast(du, hn::TableLookupBytesOr0(hn::Not(sv), alphaIndex));
        const auto d16 = hn::BitCast(du, dv);
        const auto even = Div255(hn::Add(hn::Mul(hn::And(d16, lowByte), inv), half));
        const auto odd = Div255(hn::Add(hn::Mul(hn::ShiftRight<8>(d16), inv), half));
        const auto prod = hn::BitCast(d8, hn::Or(even, hn::ShiftLeft<8>(odd)));
        hn::StoreU(hn::SaturatedAdd(sv, prod), d8, dst + 4 * i);
    }
}

// Mode 2 is a saturating sum of every byte, alpha included.
template <> void Blend<2>(uint8_t* dst, const uint8_t* src, int32_t pixels) {
    const D8 d8;
    for (int32_t i = 0; i < pixels; i += kBlock)
        hn::StoreU(hn::SaturatedAdd(hn::LoadU(d8, dst + 4 * i), hn::LoadU(d8, src + 4 * i)), d8,
                   dst + 4 * i);
}

// The luma mattes 18 and 20: every byte, alpha included, := mul(s, m) with m the luma L
// of the destination (mode 18) or 255 - L (mode 20), one pixel a 32-bit lane, copied into
// both 16-bit lanes of its pixel. L is expandY[(R to Y[r] + G to Y[g] + B to Y[b]) >> 16]
// from the translators' tables. Where LumaRowsLinear finds each of the three rows to be
// entry 0 + i (entry 1 - entry 0), the sum is computed from those steps, which gives the
// very entries (in 32-bit arithmetic modulo 2^32, as the table holds them); otherwise
// the three entries are gathered. The expansion is always gathered.
template <int M, bool kLinear>
void LumaMatte(uint8_t* dst, const uint8_t* src, int32_t pixels, const compose::Tables& t) {
    const D8 d8;
    const DU16 du;
    const DU32 d32;
    const DI32 di32;
    const auto lowByte = hn::Set(du, 0x00FF), half = hn::Set(du, 128);
    const auto byte = hn::Set(d32, 0xFFu);
    const int32_t* rows = t.toYuv;
    auto step = [rows](int row) {
        return int32_t(uint32_t(rows[256 * row + 1]) - uint32_t(rows[256 * row]));
    };
    const auto kr = hn::Set(di32, step(0)), kg = hn::Set(di32, step(1));
    const auto kb = hn::Set(di32, step(2));
    const auto base =
        hn::Set(di32, int32_t(uint32_t(rows[0]) + uint32_t(rows[256]) + uint32_t(rows[512])));
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const auto dv = hn::BitCast(d32, hn::LoadU(d8, dst + 4 * i));
        const auto b = hn::BitCast(di32, hn::And(dv, byte));
        const auto g = hn::BitCast(di32, hn::And(hn::ShiftRight<8>(dv), byte));
        const auto r = hn::BitCast(di32, hn::And(hn::ShiftRight<16>(dv), byte));
        hn::Vec<DI32> sum;
        if (kLinear)
            sum = hn::Add(hn::Add(hn::Mul(r, kr), hn::Mul(g, kg)), hn::Add(hn::Mul(b, kb), base));
        else
            sum = hn::Add(
                hn::Add(hn::GatherIndex(di32, rows, r), hn::GatherIndex(di32, rows + 256, g)),
                hn::GatherIndex(di32, rows + 512, b));
        auto m = hn::BitCast(d32, hn::GatherIndex(di32, t.expandY, hn::ShiftRight<16>(sum)));
        if (M == 20) m = hn::Sub(hn::Set(d32, 255u), m);
        const auto m16 = hn::BitCast(du, hn::Or(m, hn::ShiftLeft<16>(m)));
        const auto s16 = hn::BitCast(du, hn::LoadU(d8, src + 4 * i));
        const auto even = Div255(hn::Add(hn::Mul(hn::And(s16, lowByte), m16), half));
        const auto odd = Div255(hn::Add(hn::Mul(hn::ShiftRight<8>(s16), m16), half));
        hn::StoreU(hn::BitCast(d8, hn::Or(even, hn::ShiftLeft<8>(odd))), d8, dst + 4 * i);
    }
}

template <int M>
void LumaMatteAny(uint8_t* dst, const uint8_t* src, int32_t pixels, const compose::Tables& t) {
    if (!t.toYuv || !t.expandY) return Blend_C<M>(dst, src, pixels, t);
    const int32_t n = kelp::simd::VectorPart(pixels, kBlock);
    if (n > 0 && LumaRowsLinear(t.toYuv))
        LumaMatte<M, true>(dst, src, n, t);
    else if (n > 0)
        LumaMatte<M, false>(dst, src, n, t);
    Blend_C<M>(dst + 4 * n, src + 4 * n, pixels - n, t);
}

template <int M>
void BlendAny(uint8_t* dst, const uint8_t* src, int32_t pixels, const compose::Tables& t) {
    kelp::simd::SplitRun(
        pixels, kBlock, 0, [&](int32_t n) HWY_ATTR { Blend<M>(dst, src, n); },
        [&](int32_t n, int32_t rest)
            HWY_ATTR { PlainRow<M>()(dst + 4 * n, src + 4 * n, rest, t); });
}

constexpr Kernels kKernels = {
    KELP_SIMD_THIS_TARGET_NAME,
    {nullptr,          BlendAny<1>,  BlendAny<2>,     BlendAny<3>, BlendAny<4>,  BlendAny<5>,
     BlendAny<6>,      BlendAny<7>,  BlendAny<8>,     BlendAny<9>, BlendAny<10>, BlendAny<11>,
     BlendAny<12>,     nullptr,      nullptr,         nullptr,     nullptr,      BlendAny<17>,
     LumaMatteAny<18>, BlendAny<19>, LumaMatteAny<20>},
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace composerows
} // namespace stdfx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace stdfx {
namespace composerows {
const Kernels* VectorBlendKernels(int target) {
    static const Kernels* const kByTarget[kelp::kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kelp::kSimdPlain && target < kelp::kSimdTargetCount ? kByTarget[target]
                                                                        : nullptr;
}
} // namespace composerows
} // namespace stdfx
#endif // HWY_ONCE
