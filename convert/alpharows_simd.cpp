// Vector forms of the alpha kernels, written once and compiled for every vector target.
//
// The colour bytes are worked in two sets of 16-bit lanes: the even bytes (0 and 2 of
// each pixel) and the odd ones (byte 1, and the alpha byte, which comes out unchanged
// because its multiplier is 255). m holds each pixel's multiplier for its two lanes.
//
// Premultiplication, RGB: with t := c a + 128 (at most 65153), (t + (t >> 8)) >> 8
// equals (t * 257) >> 16, the high half of one unsigned 16-bit multiply. (Write
// t = 256 q + r: both are q + floor((q + r + f) / 256) with f = 0 or r / 256, and a
// fraction below 1 cannot carry q + r past a multiple of 256.) With a = 255 the result
// is c for every c, which keeps the alpha byte.
//
// Premultiplication, YUV, for a centre K (16 for luma, 128 for chroma, 0 for the alpha
// lane): the signed rule t := (c - K) a + 128, c' := ((t + (t >> 8)) >> 8) + K with
// arithmetic shifts equals in unsigned 16-bit arithmetic
//     u := (c - K) a + 128 + 256 K,   c' := (u + (u >> 8) - K) >> 8,
// because adding 256 K before a floor shift by 8 adds exactly K after it, and u and the
// sum stay within 0..65535 for every c and a, so the wrap-around of the 16-bit product
// and differences cancels out.
//
// Undoing premultiplication: for each alpha a (0 read as 1) one single-precision
// division gives M := floor((255 * 65536 + 255) / a), correctly rounded, and then
// floor(c * 255 / a) = (c * M) >> 16 for every c. M a - 255 * 65536 lies in 0..255, so
// the excess of c M / 65536 over c * 255 / a stays below 1 / a, the least distance of a
// quotient that is not whole from the next integer. Only the low byte is kept, so the
// high part of M, M >> 16, multiplies in 16 bits with wrap-around, and the low part
// through the high half of a 16-bit multiply.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "convert/alpharows_simd.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include "convert/alpharows.h"
#include "runtime/simd.h"

HWY_BEFORE_NAMESPACE();
namespace kelp {
namespace alpharows {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace hn = hwy::HWY_NAMESPACE;
using D8 = hn::ScalableTag<uint8_t>;
using D16 = hn::ScalableTag<uint16_t>;
using D32 = hn::ScalableTag<uint32_t>;
using DF = hn::ScalableTag<float>;
using DI32 = hn::ScalableTag<int32_t>;
using V8 = hn::Vec<D8>;
using V16 = hn::Vec<D16>;
using V32 = hn::Vec<D32>;

// Pixels of one vector: the block of every kernel here.
constexpr int32_t kBlock = int32_t(hn::MaxLanes(D32()));

// Byte shuffles (within each 128-bit block; 0x80 gives 0), the same for every block.
alignas(16) constexpr uint8_t kAlphaBoth[16] = {3,  0x80, 3,  0x80, 7,  0x80, 7,  0x80,
                                                11, 0x80, 11, 0x80, 15, 0x80, 15, 0x80};
alignas(16) constexpr uint8_t kAlphaLow[16] = {3,  0x80, 0x80, 0x80, 7,  0x80, 0x80, 0x80,
                                               11, 0x80, 0x80, 0x80, 15, 0x80, 0x80, 0x80};
alignas(16) constexpr uint8_t kSpreadLow[16] = {0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13};
alignas(16) constexpr uint8_t kSpreadHigh[16] = {2,  0x80, 2,  0x80, 6,  0x80, 6,  0x80,
                                                 10, 0x80, 10, 0x80, 14, 0x80, 14, 0x80};
alignas(16) constexpr uint8_t kToByte1[16] = {0x80, 0, 0x80, 0x80, 0x80, 4,  0x80, 0x80,
                                              0x80, 8, 0x80, 0x80, 0x80, 12, 0x80, 0x80};

HWY_INLINE V8 Shuffle(V8 x, const uint8_t* table) {
    return hn::TableLookupBytesOr0(x, hn::LoadDup128(D8(), table));
}

// Multipliers of the even lanes {a, a} and the odd lanes {a, 255} of each pixel.
HWY_INLINE void Multipliers(V8 x, V16* even, V16* odd) {
    const D16 d16;
    *even = hn::BitCast(d16, Shuffle(x, kAlphaBoth));
    *odd = hn::Or(hn::BitCast(d16, Shuffle(x, kAlphaLow)),
                  hn::BitCast(d16, hn::Set(D32(), 0x00FF0000u)));
}

HWY_INLINE V16 EvenLanes(V8 x) {
    return hn::BitCast(D16(), hn::And(hn::BitCast(D32(), x), hn::Set(D32(), 0x00FF00FFu)));
}
HWY_INLINE V16 OddLanes(V8 x) {
    return hn::ShiftRight<8>(hn::BitCast(D16(), x));
}
HWY_INLINE V8 Join(V16 even, V16 odd) {
    return hn::BitCast(D8(), hn::Or(even, hn::ShiftLeft<8>(odd)));
}

HWY_INLINE V16 PremulRgb(V16 c, V16 m) {
    const D16 d16;
    const V16 t = hn::Add(hn::Mul(c, m), hn::Set(d16, 128));
    return hn::MulHigh(t, hn::Set(d16, 257));
}

// k: the centres of the lanes; bias: 128 + 256 k.
HWY_INLINE V16 PremulYuv(V16 c, V16 m, V16 k, V16 bias) {
    const V16 u = hn::Add(hn::Mul(hn::Sub(c, k), m), bias);
    return hn::ShiftRight<8>(hn::Sub(hn::Add(u, hn::ShiftRight<8>(u)), k));
}

void Premultiply(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    const D8 d8;
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const V8 x = hn::LoadU(d8, src + 4 * i);
        V16 me, mo;
        Multipliers(x, &me, &mo);
        hn::StoreU(Join(PremulRgb(EvenLanes(x), me), PremulRgb(OddLanes(x), mo)), d8, dst + 4 * i);
    }
}

void PremultiplyYuv(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    const D8 d8;
    const D16 d16;
    const D32 d32;
    // Even lanes: luma (16) and second chroma (128); odd: first chroma (128) and alpha.
    const V16 kEven = hn::BitCast(d16, hn::Set(d32, 16u | (128u << 16)));
    const V16 kOdd = hn::BitCast(d16, hn::Set(d32, 128u));
    const V16 biasEven = hn::Add(hn::Set(d16, 128), hn::ShiftLeft<8>(kEven));
    const V16 biasOdd = hn::Add(hn::Set(d16, 128), hn::ShiftLeft<8>(kOdd));
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const V8 x = hn::LoadU(d8, src + 4 * i);
        V16 me, mo;
        Multipliers(x, &me, &mo);
        hn::StoreU(Join(PremulYuv(EvenLanes(x), me, kEven, biasEven),
                        PremulYuv(OddLanes(x), mo, kOdd, biasOdd)),
                   d8, dst + 4 * i);
    }
}

void Fill(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    const D8 d8;
    const V8 alpha = hn::BitCast(d8, hn::Set(D32(), 0xFF000000u));
    for (int32_t i = 0; i < pixels; i += kBlock)
        hn::StoreU(hn::Or(hn::LoadU(d8, src + 4 * i), alpha), d8, dst + 4 * i);
}

void Unpremultiply(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    const D8 d8;
    const D16 d16;
    const D32 d32;
    const DF df;
    const DI32 di32;
    const hn::Vec<DF> numerator = hn::Set(df, 255.0f * 65536.0f + 255.0f);
    const V32 one = hn::Set(d32, 1u);
    const V16 evenMask = hn::BitCast(d16, hn::Set(d32, 0x00FF00FFu));
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const V8 x = hn::LoadU(d8, src + 4 * i);
        const V32 a = hn::Max(hn::ShiftRight<24>(hn::BitCast(d32, x)), one);
        const V32 m = hn::BitCast(
            d32, hn::ConvertTo(di32, hn::Div(numerator, hn::ConvertTo(df, hn::BitCast(di32, a)))));
        // M's high byte and low 16 bits, each in both 16-bit lanes of the pixel's dword.
        const V16 mHigh = hn::BitCast(d16, Shuffle(hn::BitCast(d8, m), kSpreadHigh));
        const V16 mLow = hn::BitCast(d16, Shuffle(hn::BitCast(d8, m), kSpreadLow));
        const V16 even = EvenLanes(x);
        const V16 odd = OddLanes(x); // byte 1, and alpha, dropped below
        const V16 qe = hn::Add(hn::Mul(even, mHigh), hn::MulHigh(even, mLow));
        const V16 qo = hn::Add(hn::Mul(odd, mHigh), hn::MulHigh(odd, mLow));
        const V8 colours =
            hn::Or(hn::BitCast(d8, hn::And(qe, evenMask)), Shuffle(hn::BitCast(d8, qo), kToByte1));
        hn::StoreU(hn::Or(colours, hn::BitCast(d8, hn::ShiftLeft<24>(a))), d8, dst + 4 * i);
    }
}

// The vector form over the whole vectors of a run, the plain loop over the rest.
template <RunFn Vec, RunFn Plain> void AnyRun(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    simd::SplitRun(
        pixels, kBlock, 0, [&](int32_t n) { Vec(src, dst, n); },
        [&](int32_t n, int32_t rest) { Plain(src + 4 * n, dst + 4 * n, rest); });
}

constexpr Kernels kKernels = {
    KELP_SIMD_THIS_TARGET_NAME,
    AnyRun<Premultiply, Premultiply_C>,
    AnyRun<PremultiplyYuv, PremultiplyYuv_C>,
    AnyRun<Fill, Fill_C>,
    AnyRun<Unpremultiply, Unpremultiply_C>,
};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace alpharows
} // namespace kelp
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kelp {
namespace alpharows {

const Kernels* VectorKernels(int target) {
    static const Kernels* const kByTarget[kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kSimdPlain && target < kSimdTargetCount ? kByTarget[target] : nullptr;
}

} // namespace alpharows
} // namespace kelp
#endif // HWY_ONCE
