// Vector forms of the YUV dissolves (BlendTwo and BlendThree in meshed 4:4:4 and 4:2:2
// with alpha planes), written once and compiled for every vector target.
//
// As in the other compositor files a row is read as 16-bit lanes and split into its even
// and its odd bytes, which stay in their lanes. In 4:4:4 the even lanes hold Y and V of
// each pixel, the odd lanes U and alpha: Y and alpha are unsigned (0..255), U and V are
// signed about 128 (-128..127). mul(x, m) for m in 0..255 is t := x m + 128 and then
// (t + (t >> 8)) >> 8, taken as the high half of t times 257, unsigned for Y and alpha
// (t up to 65,153) and signed for U and V (t between -32,512 and 32,513): with
// t = 256 q + r (0 <= r < 256, q of either sign) both are q + floor((r + q) / 256), as
// composeblend_simd.cpp shows. The low 16 bits of x m are the same signed or unsigned,
// so one multiplication serves both and the lane chooses the high half.
//
// In 4:2:2 one set of lanes is luma, one lane a pixel, and the other chroma, one lane a
// byte of a pair; the alpha bytes of the pixels, widened to 16 bits, line up with the
// luma lanes. Round7's ((t >> 7) + t) >> 7 is taken as q + (((t & 127) + q) >> 7) with
// q := t >> 7, the same number without the sum that would leave 16 bits.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stdfx/composeyuv_simd.cpp"
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
using DU = hn::ScalableTag<uint16_t>;
using DI = hn::ScalableTag<int16_t>;
using DU32 = hn::ScalableTag<uint32_t>;
using DH8 = hn::Rebind<uint8_t, DU>; // half a vector of bytes, one a 16-bit lane
using VI = hn::Vec<DI>;
using VU = hn::Vec<DU>;
using MI = hn::Mask<DI>;

constexpr int32_t kBytes = int32_t(hn::MaxLanes(D8()));
constexpr int32_t kBlock = kBytes / 4; // four-byte pixels of a vector

// mul(x, m): the unsigned high half where `unsignedLane`, the signed one elsewhere.
HWY_INLINE VI MulMixed(VI x, VI m, MI unsignedLane) {
    const DI di;
    const DU du;
    const VI t = hn::Add(hn::Mul(x, m), hn::Set(di, 128));
    const VI hs = hn::MulHigh(t, hn::Set(di, 257));
    const VI hu = hn::BitCast(di, hn::MulHigh(hn::BitCast(du, t), hn::Set(du, 257)));
    return hn::IfThenElse(unsignedLane, hu, hs);
}
// mul(x, m) of lanes 0..255.
HWY_INLINE VU MulU(VU x, VU m) {
    const DU du;
    return hn::MulHigh(hn::Add(hn::Mul(x, m), hn::Set(du, 128)), hn::Set(du, 257));
}
HWY_INLINE VI ClampByte(VI v) {
    const DI di;
    return hn::Min(hn::Max(v, hn::Zero(di)), hn::Set(di, 255));
}
HWY_INLINE VI Even(VI v) {
    return hn::And(v, hn::Set(DI(), 0x00FF));
}
HWY_INLINE VI Odd(VI v) {
    return hn::BitCast(DI(), hn::ShiftRight<8>(hn::BitCast(DU(), v)));
}
// The low bytes of two lane sets joined again.
HWY_INLINE hn::Vec<D8> Join(VI even, VI odd) {
    return hn::BitCast(D8(), hn::Or(Even(even), hn::ShiftLeft<8>(odd)));
}
// The first 16-bit lane of each pixel (Y, or U) set.
HWY_INLINE MI FirstLane() {
    return hn::MaskFromVec(hn::BitCast(DI(), hn::Set(DU32(), 0x0000FFFFu)));
}
// The alpha byte of each pixel in both of its 16-bit lanes.
HWY_INLINE VU AlphaLanes(hn::Vec<D8> px) {
    const D8 d8;
    alignas(16) constexpr uint8_t kAlphaLanes[16] = {3,  0x80, 3,  0x80, 7,  0x80, 7,  0x80,
                                                     11, 0x80, 11, 0x80, 15, 0x80, 15, 0x80};
    return hn::BitCast(DU(), hn::TableLookupBytesOr0(px, hn::LoadDup128(d8, kAlphaLanes)));
}

// x := c - o, held at 0 from below in the unsigned lanes (Y; alpha has o = 0).
HWY_INLINE VI Offset(VI c, VI o, MI unsignedLane) {
    const VI x = hn::Sub(c, o);
    return hn::IfThenElse(unsignedLane, hn::Max(x, hn::Zero(DI())), x);
}

// Whole vectors only: `pixels` is a multiple of kBlock.
void Scale444(uint8_t* dst, const uint8_t* src, int32_t pixels, int a, int k) {
    const D8 d8;
    const DI di;
    const MI first = FirstLane(); // even lanes: Y first; odd lanes: U first
    const MI evenUnsigned = first, oddUnsigned = hn::Not(first);
    const VI oEven = hn::IfThenElse(first, hn::Set(di, int16_t(k)), hn::Set(di, 128));
    const VI oOdd = hn::IfThenElse(first, hn::Set(di, 128), hn::Zero(di));
    const VI av = hn::Set(di, int16_t(a));
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const VI v = hn::BitCast(di, hn::LoadU(d8, src + 4 * i));
        const VI even =
            hn::Add(MulMixed(Offset(Even(v), oEven, evenUnsigned), av, evenUnsigned), oEven);
        const VI odd = hn::Add(MulMixed(Offset(Odd(v), oOdd, oddUnsigned), av, oddUnsigned), oOdd);
        hn::StoreU(Join(even, odd), d8, dst + 4 * i);
    }
}

void Scale444Any(uint8_t* dst, const uint8_t* src, int32_t pixels, int a, int k) {
    if (a < 0 || a > 255 || k < 0 || k > 255) return Scale444_C(dst, src, pixels, a, k);
    kelp::simd::SplitRun(
        pixels, kBlock, 0, [&](int32_t n) HWY_ATTR { Scale444(dst, src, n, a, k); },
        [&](int32_t n, int32_t rest)
            HWY_ATTR { Scale444_C(dst + 4 * n, src + 4 * n, rest, a, k); });
}

// Whole vectors only: `pixels` is a multiple of kBlock.
void Mix444(uint8_t* dst, const uint8_t* first, const uint8_t* second, int32_t pixels, int a,
            int k) {
    const D8 d8;
    const DI di;
    const DU du;
    const MI lead = FirstLane();
    const MI evenUnsigned = lead, oddUnsigned = hn::Not(lead);
    const VI oEven = hn::IfThenElse(lead, hn::Set(di, int16_t(k)), hn::Set(di, 128));
    const VI oOdd = hn::IfThenElse(lead, hn::Set(di, 128), hn::Zero(di));
    const VI av = hn::Set(di, int16_t(a));
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const auto fv = hn::LoadU(d8, first + 4 * i);
        const VI f = hn::BitCast(di, fv);
        const VI b = hn::BitCast(di, hn::LoadU(d8, second + 4 * i));
        const VI inv =
            hn::BitCast(di, hn::Sub(hn::Set(du, 255), MulU(AlphaLanes(fv), hn::BitCast(du, av))));
        // Alpha, with o = 0: mul(first alpha, a) is a2 itself.
        const VI even = ClampByte(hn::Add(
            hn::Add(oEven, MulMixed(Offset(Even(b), oEven, evenUnsigned), inv, evenUnsigned)),
            MulMixed(Offset(Even(f), oEven, evenUnsigned), av, evenUnsigned)));
        const VI odd = ClampByte(
            hn::Add(hn::Add(oOdd, MulMixed(Offset(Odd(b), oOdd, oddUnsigned), inv, oddUnsigned)),
                    MulMixed(Offset(Odd(f), oOdd, oddUnsigned), av, oddUnsigned)));
        hn::StoreU(Join(even, odd), d8, dst + 4 * i);
    }
}

void Mix444Any(uint8_t* dst, const uint8_t* first, const uint8_t* second, int32_t pixels, int a,
               int k) {
    if (a < 0 || a > 255 || k < 0 || k > 255) return Mix444_C(dst, first, second, pixels, a, k);
    kelp::simd::SplitRun(
        pixels, kBlock, 0, [&](int32_t n) HWY_ATTR { Mix444(dst, first, second, n, a, k); },
        [&](int32_t n, int32_t rest)
            HWY_ATTR { Mix444_C(dst + 4 * n, first + 4 * n, second + 4 * n, rest, a, k); });
}

// Round7(x) of 16-bit lanes.
HWY_INLINE VI Round7V(VI x) {
    const DI di;
    const VI t = hn::Add(x, hn::Set(di, 64));
    const VI q = hn::ShiftRight<7>(t);
    return hn::Add(q, hn::ShiftRight<7>(hn::Add(hn::And(t, hn::Set(di, 127)), q)));
}

// Whole vectors only: `pixels` is a multiple of kBytes / 2 (two bytes a pixel), so that
// every pair is whole.
void Mix422(uint8_t* dst, uint8_t* dstAlpha, const uint8_t* first, const uint8_t* firstAlpha,
            const uint8_t* second, const uint8_t* secondAlpha, int32_t pixels, int a, int k,
            int lumaParity) {
    const D8 d8;
    const DI di;
    const DU du;
    const DU32 d32;
    const DH8 dh8;
    constexpr int32_t kPixels = kBytes / 2;
    const VU av = hn::Set(du, uint16_t(a)), k255 = hn::Set(du, 255);
    const VI hs = hn::Set(di, int16_t((a + 1) >> 1));
    const VI kv = hn::Set(di, int16_t(k)), c128 = hn::Set(di, 128);
    for (int32_t x = 0; x < pixels; x += kPixels) {
        const VU sA = hn::PromoteTo(du, hn::LoadU(dh8, firstAlpha + x));
        const VU bA = hn::PromoteTo(du, hn::LoadU(dh8, secondAlpha + x));
        const VU a2 = MulU(sA, av);
        const VU inv = hn::Sub(k255, a2);
        // Each pair's mean rest, in both lanes of the pair.
        const auto pair = hn::BitCast(d32, inv);
        const auto mean = hn::ShiftRight<1>(
            hn::Add(hn::Add(hn::And(pair, hn::Set(d32, 0xFFFFu)), hn::ShiftRight<16>(pair)),
                    hn::Set(d32, 1u)));
        const VI invC = hn::BitCast(di, hn::Or(mean, hn::ShiftLeft<16>(mean)));
        const VI hbLuma = hn::ShiftRight<1>(hn::Add(hn::BitCast(di, inv), hn::Set(di, 1)));
        const VI hbChroma = hn::ShiftRight<1>(hn::Add(invC, hn::Set(di, 1)));
        const VI f = hn::BitCast(di, hn::LoadU(d8, first + 2 * x));
        const VI b = hn::BitCast(di, hn::LoadU(d8, second + 2 * x));
        const VI fLuma = lumaParity ? Odd(f) : Even(f), fChroma = lumaParity ? Even(f) : Odd(f);
        const VI bLuma = lumaParity ? Odd(b) : Even(b), bChroma = lumaParity ? Even(b) : Odd(b);
        const VI zero = hn::Zero(di);
        const VI luma = ClampByte(
            hn::Add(hn::Add(kv, Round7V(hn::Mul(hn::Max(hn::Sub(bLuma, kv), zero), hbLuma))),
                    Round7V(hn::Mul(hn::Max(hn::Sub(fLuma, kv), zero), hs))));
        const VI chroma =
            ClampByte(hn::Add(hn::Add(c128, Round7V(hn::Mul(hn::Sub(bChroma, c128), hbChroma))),
                              Round7V(hn::Mul(hn::Sub(fChroma, c128), hs))));
        hn::StoreU(lumaParity ? Join(chroma, luma) : Join(luma, chroma), d8, dst + 2 * x);
        const VU alpha = hn::Min(hn::Add(a2, MulU(bA, inv)), k255);
        hn::StoreU(hn::DemoteTo(dh8, hn::BitCast(di, alpha)), dh8, dstAlpha + x);
    }
}

void Mix422Any(uint8_t* dst, uint8_t* dstAlpha, const uint8_t* first, const uint8_t* firstAlpha,
               const uint8_t* second, const uint8_t* secondAlpha, int32_t pixels, int a, int k,
               int lumaParity) {
    if (a < 0 || a > 255 || k < 0 || k > 255 || (lumaParity & ~1))
        return Mix422_C(dst, dstAlpha, first, firstAlpha, second, secondAlpha, pixels, a, k,
                        lumaParity);
    kelp::simd::SplitRun(
        pixels, kBytes / 2, 0,
        [&](int32_t n) HWY_ATTR {
            Mix422(dst, dstAlpha, first, firstAlpha, second, secondAlpha, n, a, k, lumaParity);
        },
        [&](int32_t n, int32_t rest) HWY_ATTR {
            Mix422_C(dst + 2 * n, dstAlpha + n, first + 2 * n, firstAlpha + n, second + 2 * n,
                     secondAlpha + n, rest, a, k, lumaParity);
        });
}

constexpr Kernels kKernels = {
    KELP_SIMD_THIS_TARGET_NAME,
    {},
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    Scale444Any,
    Mix444Any,
    Mix422Any,
};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace composerows
} // namespace stdfx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace stdfx {
namespace composerows {
const Kernels* VectorYuvDissolveKernels(int target) {
    static const Kernels* const kByTarget[kelp::kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kelp::kSimdPlain && target < kelp::kSimdTargetCount ? kByTarget[target]
                                                                        : nullptr;
}
} // namespace composerows
} // namespace stdfx
#endif // HWY_ONCE
