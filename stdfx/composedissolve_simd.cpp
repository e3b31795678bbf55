// Vector forms of the compositor's depth compositing and the dissolves, written once and
// compiled for every vector target.
//
// As in the blend modes, bytes stay in their lanes: a row is read as 16-bit lanes and
// split into even and odd bytes, mul(a, b) runs in the plain loop's arithmetic (a b + 128
// stays below 65,536), and the halves are joined by a shift and an Or.
//
// Depth pixels are eight bytes, BGRA then a float depth. The depths are compared as
// floats in the odd 32-bit lanes (with the plain loop's Lt, so NaN keeps the
// destination in front), and the answer is copied to the even lane of the same pixel.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stdfx/composedissolve_simd.cpp"
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
using DU32 = hn::ScalableTag<uint32_t>;
using DU64 = hn::ScalableTag<uint64_t>;
using DF32 = hn::ScalableTag<float>;
using VU = hn::Vec<DU16>;

constexpr int32_t kBytes = int32_t(hn::MaxLanes(D8()));
constexpr int32_t kBlock = int32_t(hn::MaxLanes(DU32())); // four-byte pixels of a vector

// mul(a, b) of lanes 0..255: t := a b + 128, then (t + (t >> 8)) >> 8, taken as the
// high half of t times 257 (the same number for every 16-bit t; see
// composeblend_simd.cpp).
HWY_INLINE VU MulV(VU a, VU b) {
    const DU16 du;
    const auto t = hn::Add(hn::Mul(a, b), hn::Set(du, 128));
    return hn::MulHigh(t, hn::Set(du, 257));
}
// The alpha byte of each pixel in both of its 16-bit lanes (a byte shuffle within
// 128-bit blocks).
HWY_INLINE VU AlphaLanes(hn::Vec<DU32> px) {
    const D8 d8;
    alignas(16) constexpr uint8_t kAlphaLanes[16] = {3,  0x80, 3,  0x80, 7,  0x80, 7,  0x80,
                                                     11, 0x80, 11, 0x80, 15, 0x80, 15, 0x80};
    return hn::BitCast(
        DU16(), hn::TableLookupBytesOr0(hn::BitCast(d8, px), hn::LoadDup128(d8, kAlphaLanes)));
}

// top + mul(bottom, 255 - top alpha), every byte, held to 255.
HWY_INLINE hn::Vec<DU32> OverV(hn::Vec<DU32> bottom, hn::Vec<DU32> top) {
    const DU16 du;
    const DU32 d32;
    const VU k255 = hn::Set(du, 255);
    const VU inv = hn::Sub(k255, AlphaLanes(top));
    const VU b = hn::BitCast(du, bottom), t = hn::BitCast(du, top);
    const VU even = hn::Min(hn::Add(hn::And(t, k255), MulV(hn::And(b, k255), inv)), k255);
    const VU odd = hn::Min(hn::Add(hn::ShiftRight<8>(t), MulV(hn::ShiftRight<8>(b), inv)), k255);
    return hn::BitCast(d32, hn::Or(even, hn::ShiftLeft<8>(odd)));
}

// Whole vectors only: `pixels` (eight bytes each) is a multiple of kBlock / 2.
void Depth(uint8_t* dst, const uint8_t* src, int32_t pixels) {
    const D8 d8;
    const DU32 d32;
    const DU64 d64;
    const DF32 df;
    const auto colourLane = hn::MaskFromVec(hn::BitCast(d32, hn::Set(d64, 0xFFFFFFFFull)));
    for (int32_t i = 0; i < pixels; i += kBlock / 2) {
        const auto dv = hn::BitCast(d32, hn::LoadU(d8, dst + 8 * i));
        const auto sv = hn::BitCast(d32, hn::LoadU(d8, src + 8 * i));
        const auto near32 =
            hn::BitCast(d64, hn::VecFromMask(df, hn::Lt(hn::BitCast(df, sv), hn::BitCast(df, dv))));
        // The depth lane's answer, in both lanes of its pixel.
        const auto hi = hn::ShiftRight<32>(near32);
        const auto sourceNear =
            hn::MaskFromVec(hn::BitCast(d32, hn::Or(hi, hn::ShiftLeft<32>(hi))));
        const auto top = hn::IfThenElse(sourceNear, sv, dv);
        const auto bottom = hn::IfThenElse(sourceNear, dv, sv);
        // Colour from the over; depth from the farther pixel.
        const auto out = hn::IfThenElse(colourLane, OverV(bottom, top), bottom);
        hn::StoreU(hn::BitCast(d8, out), d8, dst + 8 * i);
    }
}

void DepthAny(uint8_t* dst, const uint8_t* src, int32_t pixels) {
    kelp::simd::SplitRun(
        pixels, kBlock / 2, 0, [&](int32_t n) HWY_ATTR { Depth(dst, src, n); },
        [&](int32_t n, int32_t rest) HWY_ATTR { Depth_C(dst + 8 * n, src + 8 * n, rest); });
}

// Whole vectors only: `bytes` is a multiple of kBytes.
void Scale(uint8_t* dst, const uint8_t* src, int32_t bytes, int a) {
    const D8 d8;
    const DU16 du;
    const VU k255 = hn::Set(du, 255), av = hn::Set(du, uint16_t(a));
    for (int32_t i = 0; i < bytes; i += kBytes) {
        const VU v = hn::BitCast(du, hn::LoadU(d8, src + i));
        const VU even = MulV(hn::And(v, k255), av);
        const VU odd = MulV(hn::ShiftRight<8>(v), av);
        hn::StoreU(hn::BitCast(d8, hn::Or(even, hn::ShiftLeft<8>(odd))), d8, dst + i);
    }
}

void ScaleAny(uint8_t* dst, const uint8_t* src, int32_t bytes, int a) {
    if (a < 0 || a > 255) return Scale_C(dst, src, bytes, a);
    kelp::simd::SplitRun(
        bytes, kBytes, 0, [&](int32_t n) HWY_ATTR { Scale(dst, src, n, a); },
        [&](int32_t n, int32_t rest) HWY_ATTR { Scale_C(dst + n, src + n, rest, a); });
}

// Whole vectors only: `pixels` is a multiple of kBlock.
void Mix(uint8_t* dst, const uint8_t* first, const uint8_t* second, int32_t pixels, int a) {
    const D8 d8;
    const DU16 du;
    const DU32 d32;
    const VU k255 = hn::Set(du, 255), av = hn::Set(du, uint16_t(a));
    const auto alphaLane = hn::MaskFromVec(hn::BitCast(du, hn::Set(d32, 0xFFFF0000u)));
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const auto fv = hn::BitCast(d32, hn::LoadU(d8, first + 4 * i));
        const VU f = hn::BitCast(du, fv);
        const VU b = hn::BitCast(du, hn::LoadU(d8, second + 4 * i));
        const VU a2 = MulV(AlphaLanes(fv), av);
        const VU inv = hn::Sub(k255, a2);
        const VU even =
            hn::Min(hn::Add(MulV(hn::And(f, k255), av), MulV(hn::And(b, k255), inv)), k255);
        const VU oddColour =
            hn::Add(MulV(hn::ShiftRight<8>(f), av), MulV(hn::ShiftRight<8>(b), inv));
        const VU oddAlpha = hn::Add(a2, MulV(hn::ShiftRight<8>(b), inv));
        const VU odd = hn::Min(hn::IfThenElse(alphaLane, oddAlpha, oddColour), k255);
        hn::StoreU(hn::BitCast(d8, hn::Or(even, hn::ShiftLeft<8>(odd))), d8, dst + 4 * i);
    }
}

void MixAny(uint8_t* dst, const uint8_t* first, const uint8_t* second, int32_t pixels, int a) {
    if (a < 0 || a > 255) return Mix_C(dst, first, second, pixels, a);
    kelp::simd::SplitRun(
        pixels, kBlock, 0, [&](int32_t n) HWY_ATTR { Mix(dst, first, second, n, a); },
        [&](int32_t n, int32_t rest)
            HWY_ATTR { Mix_C(dst + 4 * n, first + 4 * n, second + 4 * n, rest, a); });
}

// Whole vectors only: `bytes` is a multiple of kBytes. The even bytes of the run take
// one offset and the odd bytes the other. (c - o) h + 64 stays within 16 bits (h is at
// most 128); the final ((t >> 7) + t) >> 7 is taken as q + (((t & 127) + q) >> 7) with
// q := t >> 7, which is the same number without the sum that would overflow.
HWY_INLINE hn::Vec<hn::ScalableTag<int16_t>> Round7Clamp(hn::Vec<hn::ScalableTag<int16_t>> c,
                                                         hn::Vec<hn::ScalableTag<int16_t>> o,
                                                         hn::Vec<hn::ScalableTag<int16_t>> h) {
    const hn::ScalableTag<int16_t> di;
    const auto t = hn::Add(hn::Mul(hn::Sub(c, o), h), hn::Set(di, 64));
    const auto q = hn::ShiftRight<7>(t);
    const auto r = hn::Add(q, hn::ShiftRight<7>(hn::Add(hn::And(t, hn::Set(di, 127)), q)));
    return hn::Min(hn::Max(hn::Add(o, r), hn::Zero(di)), hn::Set(di, 255));
}

void Scale422(uint8_t* dst, const uint8_t* src, int32_t bytes, int a, int k, int lumaParity) {
    const D8 d8;
    const hn::ScalableTag<int16_t> di;
    const auto h = hn::Set(di, int16_t((a + 1) >> 1));
    const auto oEven = hn::Set(di, int16_t(lumaParity == 0 ? k : 128));
    const auto oOdd = hn::Set(di, int16_t(lumaParity == 0 ? 128 : k));
    const auto low = hn::Set(di, 0x00FF);
    for (int32_t i = 0; i < bytes; i += kBytes) {
        const auto v = hn::BitCast(di, hn::LoadU(d8, src + i));
        const auto even = Round7Clamp(hn::And(v, low), oEven, h);
        const auto odd =
            Round7Clamp(hn::BitCast(di, hn::ShiftRight<8>(hn::BitCast(DU16(), v))), oOdd, h);
        hn::StoreU(hn::BitCast(d8, hn::Or(even, hn::ShiftLeft<8>(odd))), d8, dst + i);
    }
}

void Scale422Any(uint8_t* dst, const uint8_t* src, int32_t bytes, int a, int k, int lumaParity) {
    if (a < 0 || a > 255 || k < 0 || k > 255 || (lumaParity & ~1))
        return Scale422_C(dst, src, bytes, a, k, lumaParity);
    kelp::simd::SplitRun(
        bytes, kBytes, 0, [&](int32_t n) HWY_ATTR { Scale422(dst, src, n, a, k, lumaParity); },
        [&](int32_t n, int32_t rest)
            HWY_ATTR { Scale422_C(dst + n, src + n, rest, a, k, lumaParity); });
}

constexpr Kernels kKernels = {
    KELP_SIMD_THIS_TARGET_NAME, {}, DepthAny, ScaleAny, MixAny, Scale422Any,
};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace composerows
} // namespace stdfx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace stdfx {
namespace composerows {
const Kernels* VectorDissolveKernels(int target) {
    static const Kernels* const kByTarget[kelp::kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kelp::kSimdPlain && target < kelp::kSimdTargetCount ? kByTarget[target]
                                                                        : nullptr;
}
} // namespace composerows
} // namespace stdfx
#endif // HWY_ONCE
