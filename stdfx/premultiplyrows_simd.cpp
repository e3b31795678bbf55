// Vector forms of the alpha multiplications, written once and compiled for every vector
// target.
//
// Premultiply works on the bytes of a pixel in two 16-bit lanes each: the even bytes
// (B, R) and the odd bytes (G, A) of every 32-bit pixel, with the pixel's alpha beside
// each colour. t = c a + 128 stays below 65,154, so the 16-bit lanes hold it exactly, and
// (t + (t >> 8)) >> 8 is the high half of t 257: t 257 / 65536 is (t + t / 256) / 256, and
// adding the fraction of t / 256 to the integer t + floor(t / 256) does not change its
// floor after the division by 256. The alpha byte is multiplied by 255, which gives it
// back: 255 a + 128 gives (65535 a + 32896) >> 16 = a, as 0 < 32896 - a < 65536.
// Unpremultiply works in 32-bit lanes, one pixel each: the reciprocal is gathered from
// the same table by the pixel's alpha, and c R[a] stays below 2^32 (255 times 0xFF0000),
// so the unsigned product and shift are the plain loop's.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stdfx/premultiplyrows_simd.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include <cstring>

#include "runtime/simd.h"
#include "stdfx/premultiplyrows.h"

HWY_BEFORE_NAMESPACE();
namespace stdfx {
namespace premultiplyrows {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace hn = hwy::HWY_NAMESPACE;
using D8 = hn::ScalableTag<uint8_t>;
using D16 = hn::ScalableTag<uint16_t>;
using D32 = hn::ScalableTag<uint32_t>;
using DI32 = hn::ScalableTag<int32_t>;
using V16 = hn::Vec<D16>;
using V32 = hn::Vec<D32>;

constexpr int32_t kBlock = int32_t(hn::MaxLanes(D32())); // pixels of one vector

inline V16 Times(V16 c, V16 a) {
    const V16 t = hn::Add(hn::Mul(c, a), hn::Set(D16(), uint16_t(128)));
    return hn::ShiftRight<8>(hn::Add(t, hn::ShiftRight<8>(t)));
}

// (t + (t >> 8)) >> 8 as the high half of t 257 (see the top of the file).
inline V16 TimesAlpha(V16 c, V16 a) {
    const V16 t = hn::Add(hn::Mul(c, a), hn::Set(D16(), uint16_t(128)));
    return hn::MulHigh(t, hn::Set(D16(), uint16_t(257)));
}

// Each pixel's alpha in both 16-bit lanes of the pixel (bytes 3, zero, 3, zero).
alignas(16) constexpr uint8_t kAlphaWords[16] = {3,  0x80, 3,  0x80, 7,  0x80, 7,  0x80,
                                                 11, 0x80, 11, 0x80, 15, 0x80, 15, 0x80};

// Whole vectors only. The even bytes (B, R) are multiplied by alpha; the odd bytes (G, A)
// by alpha and by 255, which gives alpha back unchanged.
void Premultiply(uint8_t* px, int32_t pixels) {
    const D8 d8;
    const D16 d16;
    const auto alphaWords = hn::LoadDup128(d8, kAlphaWords);
    const V16 low = hn::Set(d16, 0x00FF), high = hn::Set(d16, 0xFF00);
    const V16 half = hn::Set(d16, 128);
    const V16 keep = hn::BitCast(d16, hn::Set(D32(), 0x00FF0000u));
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const auto p = hn::LoadU(d8, px + 4 * i);
        const V16 p16 = hn::BitCast(d16, p);
        const V16 alpha = hn::BitCast(d16, hn::TableLookupBytesOr0(p, alphaWords));
        const V16 even = TimesAlpha(hn::And(p16, low), alpha);
        // The odd bytes: t + (t >> 8) with the result in its high byte, already in place.
        const V16 t = hn::Add(hn::Mul(hn::ShiftRight<8>(p16), hn::Or(alpha, keep)), half);
        const V16 odd = hn::And(hn::Add(t, hn::ShiftRight<8>(t)), high);
        hn::StoreU(hn::BitCast(d8, hn::Or(even, odd)), d8, px + 4 * i);
    }
}

// Whole vectors only.
void Unpremultiply(uint8_t* px, int32_t pixels, const int32_t* recip) {
    const D8 d8;
    const D32 d32;
    const DI32 di32;
    const V32 byte = hn::Set(d32, 0xFFu), alphaBits = hn::Set(d32, 0xFF000000u);
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const V32 p = hn::BitCast(d32, hn::LoadU(d8, px + 4 * i));
        const V32 a = hn::ShiftRight<24>(p);
        const V32 r = hn::BitCast(d32, hn::GatherIndex(di32, recip, hn::BitCast(di32, a)));
        const V32 c0 = hn::Min(hn::ShiftRight<16>(hn::Mul(hn::And(p, byte), r)), byte);
        const V32 c1 =
            hn::Min(hn::ShiftRight<16>(hn::Mul(hn::And(hn::ShiftRight<8>(p), byte), r)), byte);
        const V32 c2 =
            hn::Min(hn::ShiftRight<16>(hn::Mul(hn::And(hn::ShiftRight<16>(p), byte), r)), byte);
        const V32 out = hn::Or(hn::Or(c0, hn::ShiftLeft<8>(c1)),
                               hn::Or(hn::ShiftLeft<16>(c2), hn::And(p, alphaBits)));
        hn::StoreU(hn::BitCast(d8, out), d8, px + 4 * i);
    }
}

// 4:2:2: one 32-bit lane a pair of pixels, its bytes split into even and odd 16-bit
// lanes as above, each byte beside the alpha it is multiplied by: the luma bytes their
// own pixel's, the chroma bytes the first pixel's. Whole vectors of pairs only.
template <bool kUyvy> void Premultiply422(uint8_t* row, const uint8_t* alpha, int32_t pixels) {
    const D8 d8;
    const D16 d16;
    const D32 d32;
    const hn::Rebind<uint16_t, D32> dh;
    const V32 low = hn::Set(d32, 0x00FF00FFu), byte = hn::Set(d32, 0xFFu);
    for (int32_t i = 0; i < pixels; i += 2 * kBlock) {
        const V32 p = hn::BitCast(d32, hn::LoadU(d8, row + 2 * i));
        uint16_t pairs[hn::MaxLanes(D32())];
        std::memcpy(pairs, alpha + i, sizeof pairs);
        const V32 a = hn::PromoteTo(d32, hn::LoadU(dh, pairs)); // a0 | a1 << 8
        const V32 a0 = hn::And(a, byte), a1 = hn::ShiftRight<8>(a);
        const V32 same = hn::Or(a0, hn::ShiftLeft<16>(a0));
        const V32 own = hn::Or(a0, hn::ShiftLeft<16>(a1));
        // Y U Y V: even bytes Y0, Y1; odd bytes U, V. U Y V Y: the other way.
        const V16 fe = hn::BitCast(d16, kUyvy ? same : own);
        const V16 fo = hn::BitCast(d16, kUyvy ? own : same);
        const V32 e = hn::BitCast(d32, Times(hn::BitCast(d16, hn::And(p, low)), fe));
        const V32 o =
            hn::BitCast(d32, Times(hn::BitCast(d16, hn::And(hn::ShiftRight<8>(p), low)), fo));
        hn::StoreU(hn::BitCast(d8, hn::Or(e, hn::ShiftLeft<8>(o))), d8, row + 2 * i);
    }
}

void AnyPremultiply422(uint8_t* row, const uint8_t* alpha, int32_t pixels, bool uyvy) {
    kelp::simd::SplitRun(
        pixels, 2 * kBlock, 0,
        [&](int32_t n) {
            if (uyvy)
                Premultiply422<true>(row, alpha, n);
            else
                Premultiply422<false>(row, alpha, n);
        },
        [&](int32_t n, int32_t rest) { Premultiply422_C(row + 2 * n, alpha + n, rest, uyvy); });
}

void AnyPremultiply(uint8_t* px, int32_t pixels) {
    kelp::simd::SplitRun(
        pixels, kBlock, 0, [&](int32_t n) { Premultiply(px, n); },
        [&](int32_t n, int32_t rest) { Premultiply_C(px + 4 * n, rest); });
}

void AnyUnpremultiply(uint8_t* px, int32_t pixels, const int32_t* recip) {
    kelp::simd::SplitRun(
        pixels, kBlock, 0, [&](int32_t n) { Unpremultiply(px, n, recip); },
        [&](int32_t n, int32_t rest) { Unpremultiply_C(px + 4 * n, rest, recip); });
}

// Unpremultiply of 4:2:2 stays the plain loop on every target.
constexpr Kernels kKernels = {KELP_SIMD_THIS_TARGET_NAME, AnyPremultiply, AnyUnpremultiply,
                              AnyPremultiply422, Unpremultiply422_C};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace premultiplyrows
} // namespace stdfx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace stdfx {
namespace premultiplyrows {
const Kernels* VectorKernels(int target) {
    static const Kernels* const kByTarget[kelp::kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kelp::kSimdPlain && target < kelp::kSimdTargetCount ? kByTarget[target]
                                                                        : nullptr;
}
} // namespace premultiplyrows
} // namespace stdfx
#endif // HWY_ONCE
