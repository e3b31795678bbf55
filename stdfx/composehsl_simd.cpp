// Vector forms of the compositor's hue, saturation and lightness modes (13 to 16),
// written once and compiled for every vector target.
//
// One pixel a 32-bit lane. Each step is the plain loop's own, in the same order and
// precision, so that every lane gives the plain bytes:
// - the straight colour (div24[alpha] c) >> 16 held to 255 in unsigned 32-bit lanes
//   (div24 is at most 0xFF0000, so the product stays below 2^32), the table gathered;
// - the conversion to hue, saturation and lightness of CHSL in single precision, with
//   the reciprocals gathered from the same table CHSL reads, every product and sum a
//   separate operation (never fused);
// - the conversion back of CHSL::HSLToRGB: the sextant row of each lane chosen by
//   comparisons, the truncation to int a plain conversion (the values are colours, far
//   from the int range and never NaN);
// - the premultiplication and the rest term in 32-bit integer lanes.
// The hue from a pixel of equal components is the plain loop's 0, whatever the lanes
// computed for it.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stdfx/composehsl_simd.cpp"
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
using DU = hn::ScalableTag<uint32_t>;
using DI = hn::ScalableTag<int32_t>;
using DF = hn::ScalableTag<float>;
using VU = hn::Vec<DU>;
using VI = hn::Vec<DI>;
using VF = hn::Vec<DF>;

constexpr int32_t kBlock = int32_t(hn::MaxLanes(DI())); // pixels of one vector

// mul(a, b) in 32-bit lanes: t := a b + 128, then (t + (t >> 8)) >> 8.
HWY_INLINE VI MulI(VI a, VI b) {
    const VI t = hn::Add(hn::Mul(a, b), hn::Set(DI(), 128));
    return hn::ShiftRight<8>(hn::Add(t, hn::ShiftRight<8>(t)));
}
HWY_INLINE VI ClampI(VI v) {
    const DI di;
    return hn::Min(hn::Max(v, hn::Zero(di)), hn::Set(di, 255));
}
HWY_INLINE VI InvI(VI v) {
    return hn::Sub(hn::Set(DI(), 255), v);
}
template <int kShift> HWY_INLINE VI Byte(VU px) {
    return hn::BitCast(DI(), hn::And(hn::ShiftRight<kShift>(px), hn::Set(DU(), 0xFF)));
}

// The straight colour byte of c at alpha a: (div24[a] c) >> 16, held to 255.
HWY_INLINE VI Straight(VI c, VI scale) {
    const DU du;
    const VU p = hn::Mul(hn::BitCast(du, scale), hn::BitCast(du, c));
    return hn::BitCast(DI(), hn::Min(hn::ShiftRight<16>(p), hn::Set(du, 255)));
}

// CHSL::RGBToHSL of lanes r, g, b (0..255).
HWY_INLINE void ToHsl(VI r, VI g, VI b, const float* recip, VF& h, VF& l, VF& s) {
    const DI di;
    const DF df;
    const VI mx = hn::Max(hn::Max(r, g), b), mn = hn::Min(hn::Min(r, g), b);
    const VI sum = hn::Add(mx, mn), d = hn::Sub(mx, mn);
    l = hn::Mul(hn::ConvertTo(df, sum), hn::Set(df, 0.0019607844f));
    const auto lowL = hn::RebindMask(di, hn::Lt(l, hn::Set(df, 0.5f)));
    // Entry 0 (the grey lanes' index) is in the table; their results are replaced.
    const VI idx = hn::IfThenElse(lowL, sum, hn::Sub(hn::Set(di, 510), sum));
    const VF sat = hn::Mul(hn::GatherIndex(df, recip, idx), hn::ConvertTo(df, d));
    const VF inv = hn::GatherIndex(df, recip, d);
    const VF tr = hn::Mul(hn::ConvertTo(df, hn::Sub(mx, r)), inv);
    const VF tg = hn::Mul(hn::ConvertTo(df, hn::Sub(mx, g)), inv);
    const VF tb = hn::Mul(hn::ConvertTo(df, hn::Sub(mx, b)), inv);
    const VF one = hn::Set(df, 1.0f), three = hn::Set(df, 3.0f), five = hn::Set(df, 5.0f);
    const auto bMin = hn::RebindMask(df, hn::Eq(b, mn));
    const auto rMin = hn::RebindMask(df, hn::Eq(r, mn));
    const VF hueR = hn::IfThenElse(bMin, hn::Sub(one, tg), hn::Add(five, tb));
    const VF hueG = hn::IfThenElse(bMin, hn::Add(one, tr), hn::Sub(three, tb));
    const VF hueB = hn::IfThenElse(rMin, hn::Add(three, tg), hn::Sub(five, tr));
    const VF hue = hn::IfThenElse(hn::RebindMask(df, hn::Eq(mx, r)), hueR,
                                  hn::IfThenElse(hn::RebindMask(df, hn::Eq(mx, g)), hueG, hueB));
    const auto grey = hn::RebindMask(df, hn::Eq(mx, mn));
    h = hn::IfThenZeroElse(grey, hn::Mul(hue, hn::Set(df, 0.16666667f)));
    s = hn::IfThenZeroElse(grey, sat);
}

// CHSL::HSLToRGB: the three components, each value * 255 + 0.5 truncated.
HWY_INLINE void FromHsl(VF h, VF l, VF s, VI& r, VI& g, VI& b) {
    const DI di;
    const DF df;
    const auto grey = hn::Or(hn::Eq(s, hn::Zero(df)), hn::Eq(h, hn::Set(df, -1.0f)));
    const VF h6 = hn::Mul(h, hn::Set(df, 6.0f));
    VI i = hn::ConvertTo(di, h6);
    i = hn::IfThenElseZero(hn::RebindMask(di, hn::Ge(h6, hn::Zero(df))), i);
    i = hn::Min(i, hn::Set(di, 6));
    const VF ls = hn::Mul(l, s);
    const VF m = hn::IfThenElse(hn::Le(l, hn::Set(df, 0.5f)), ls, hn::Sub(s, ls));
    const VF f = hn::Mul(hn::Mul(hn::Set(df, 2.0f), m), hn::Sub(h6, hn::ConvertTo(df, i)));
    const VF a0 = hn::Add(l, m), a1 = hn::Sub(l, m);
    const VF a2 = hn::Add(a1, f), a3 = hn::Sub(a0, f);
    // The sextant rows: R takes a0 a3 a1 a1 a2 a0 a0, G a2 a0 a0 a3 a1 a1 a2, B a1 a1 a2
    // a0 a0 a3 a1 for rows 0 to 6.
    const auto i1 = hn::RebindMask(df, hn::Eq(i, hn::Set(di, 1)));
    const auto i2 = hn::RebindMask(df, hn::Eq(i, hn::Set(di, 2)));
    const auto i3 = hn::RebindMask(df, hn::Eq(i, hn::Set(di, 3)));
    const auto i4 = hn::RebindMask(df, hn::Eq(i, hn::Set(di, 4)));
    const auto i5 = hn::RebindMask(df, hn::Eq(i, hn::Set(di, 5)));
    VF cr = hn::IfThenElse(i1, a3, a0);
    cr = hn::IfThenElse(hn::Or(i2, i3), a1, cr);
    cr = hn::IfThenElse(i4, a2, cr);
    VF cg = hn::IfThenElse(hn::Or(i1, i2), a0, a2);
    cg = hn::IfThenElse(i3, a3, cg);
    cg = hn::IfThenElse(hn::Or(i4, i5), a1, cg);
    VF cb = hn::IfThenElse(i2, a2, a1);
    cb = hn::IfThenElse(hn::Or(i3, i4), a0, cb);
    cb = hn::IfThenElse(i5, a3, cb);
    cr = hn::IfThenElse(grey, l, cr);
    cg = hn::IfThenElse(grey, l, cg);
    cb = hn::IfThenElse(grey, l, cb);
    const VF k255 = hn::Set(df, 255.0f), half = hn::Set(df, 0.5f);
    r = hn::ConvertTo(di, hn::Add(hn::Mul(cr, k255), half));
    g = hn::ConvertTo(di, hn::Add(hn::Mul(cg, k255), half));
    b = hn::ConvertTo(di, hn::Add(hn::Mul(cb, k255), half));
}

// clamp(mul(mul(c, sA), dA) + rest(d, s)) of one colour byte.
HWY_INLINE VI Premultiplied(VI c, VI d, VI s, VI dA, VI sA) {
    const VI rest = hn::Add(MulI(d, InvI(sA)), MulI(s, InvI(dA)));
    return ClampI(hn::Add(MulI(MulI(c, sA), dA), rest));
}

// Whole vectors only: `pixels` is a multiple of kBlock.
template <int M>
void Hsl(uint8_t* dst, const uint8_t* src, int32_t pixels, const compose::Tables& t) {
    const D8 d8;
    const DU du;
    const int32_t* div24 = t.div24;
    const float* recip = t.recip;
    for (int32_t x = 0; x < pixels; x += kBlock) {
        const VU dv = hn::BitCast(du, hn::LoadU(d8, dst + 4 * x));
        const VU sv = hn::BitCast(du, hn::LoadU(d8, src + 4 * x));
        const VI d0 = Byte<0>(dv), d1 = Byte<8>(dv), d2 = Byte<16>(dv);
        const VI s0 = Byte<0>(sv), s1 = Byte<8>(sv), s2 = Byte<16>(sv);
        const VI dA = hn::BitCast(DI(), hn::ShiftRight<24>(dv));
        const VI sA = hn::BitCast(DI(), hn::ShiftRight<24>(sv));
        const VI dScale = hn::GatherIndex(DI(), div24, dA);
        const VI sScale = hn::GatherIndex(DI(), div24, sA);
        VF sh, sl, ss, dh, dl, ds;
        ToHsl(Straight(s2, sScale), Straight(s1, sScale), Straight(s0, sScale), recip, sh, sl, ss);
        ToHsl(Straight(d2, dScale), Straight(d1, dScale), Straight(d0, dScale), recip, dh, dl, ds);
        VF h = sh, l = sl, sat = ss;
        if (M == 13) h = dh;
        if (M == 14) sat = ds;
        if (M == 15) h = dh, sat = ds;
        if (M == 16) l = dl;
        VI r, g, b;
        FromHsl(h, l, sat, r, g, b);
        const VI c0 = Premultiplied(b, d0, s0, dA, sA);
        const VI c1 = Premultiplied(g, d1, s1, dA, sA);
        const VI c2 = Premultiplied(r, d2, s2, dA, sA);
        const VI a = ClampI(hn::Add(MulI(sA, InvI(dA)), dA));
        const VI out = hn::Or(hn::Or(c0, hn::ShiftLeft<8>(c1)),
                              hn::Or(hn::ShiftLeft<16>(c2), hn::ShiftLeft<24>(a)));
        hn::StoreU(hn::BitCast(d8, out), d8, dst + 4 * x);
    }
}

// The slot of mode M; a call for another mode, or without the reciprocals, keeps the
// plain loop.
template <int M>
void HslAny(uint8_t* dst, const uint8_t* src, int32_t pixels, const compose::Tables& t) {
    if (t.mode != M || !t.recip || !t.div24) return Hsl_C(dst, src, pixels, t);
    kelp::simd::SplitRun(
        pixels, kBlock, 0, [&](int32_t n) HWY_ATTR { Hsl<M>(dst, src, n, t); },
        [&](int32_t n, int32_t rest) HWY_ATTR { Hsl_C(dst + 4 * n, src + 4 * n, rest, t); });
}

constexpr Kernels kKernels = {
    KELP_SIMD_THIS_TARGET_NAME,
    {nullptr,    nullptr,    nullptr,    nullptr, nullptr, nullptr, nullptr,
     nullptr,    nullptr,    nullptr,    nullptr, nullptr, nullptr, HslAny<13>,
     HslAny<14>, HslAny<15>, HslAny<16>, nullptr, nullptr, nullptr, nullptr},
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
const Kernels* VectorHslKernels(int target) {
    static const Kernels* const kByTarget[kelp::kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kelp::kSimdPlain && target < kelp::kSimdTargetCount ? kByTarget[target]
                                                                        : nullptr;
}
} // namespace composerows
} // namespace stdfx
#endif // HWY_ONCE
