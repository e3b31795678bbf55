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
// Unpremultiply works in the same 16-bit lanes. The pixels' reciprocals are read one by
// one into 32-bit lanes; every entry of the table is below 2^24 (the largest is
// 0xFF0000), so with R = 65536 H + L (H below 256, L below 65536),
// (c R) >> 16 = c H + ((c L) >> 16) exactly: c H is at most 65,025 and the high product
// (c L) >> 16 at most 254, so their sum fits 16 bits, and the minimum with 255 is the
// plain loop's clip. The alpha byte is multiplied by H = 1 and L = 0, which keeps it.
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

// A constant the compiler cannot see, so that it keeps a multiplication by it rather than
// turning it into a shift (which runs on the units that are busier here).
inline uint16_t Opaque(uint16_t v) {
    asm("" : "+r"(v));
    return v;
}

// The same for 32-bit lanes: the copy of a half into both 16-bit lanes by a multiplication
// by 65537 stays one multiplication instead of a shift and an add.
inline uint32_t Opaque32(uint32_t v) {
    asm("" : "+r"(v));
    return v;
}

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
    const V16 low = hn::Set(d16, 0x00FF);
    const auto highBytes = hn::MaskFromVec(hn::BitCast(d8, hn::Set(d16, 0xFF00)));
    const V16 half = hn::Set(d16, 128);
    const V16 keep = hn::BitCast(d16, hn::Set(D32(), 0x00FF0000u));
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const auto p = hn::LoadU(d8, px + 4 * i);
        const V16 p16 = hn::BitCast(d16, p);
        const V16 alpha = hn::BitCast(d16, hn::TableLookupBytesOr0(p, alphaWords));
        const V16 even = TimesAlpha(hn::And(p16, low), alpha);
        // The odd bytes: t + (t >> 8) with the result in its high byte, already in place.
        const V16 t = hn::Add(hn::Mul(hn::ShiftRight<8>(p16), hn::Or(alpha, keep)), half);
        const V16 odd = hn::Add(t, hn::ShiftRight<8>(t));
        // The low bytes of the even products, the high bytes of the odd ones: one blend.
        hn::StoreU(hn::IfThenElse(highBytes, hn::BitCast(d8, odd), hn::BitCast(d8, even)), d8,
                   px + 4 * i);
    }
}

// The reciprocals of four alphas (bytes 0, kStep, 2 kStep and 3 kStep from `a`), one a
// 32-bit lane, read one by one: a gather of the table was slower than the whole kernel.
template <int kStep>
inline hn::Vec<hn::Full128<uint32_t>> Reciprocals4(const int32_t* recip, const uint8_t* a) {
    const hn::Full128<uint32_t> d;
    if (kStep == 4) {
        // The alphas of four pixels from two 8-byte reads: fewer loads than byte by byte.
        uint64_t w0, w1;
        std::memcpy(&w0, a - 3, 8);
        std::memcpy(&w1, a + 5, 8);
        auto v = hn::InsertLane(hn::Zero(d), 0, uint32_t(recip[(w0 >> 24) & 0xFF]));
        v = hn::InsertLane(v, 1, uint32_t(recip[w0 >> 56]));
        v = hn::InsertLane(v, 2, uint32_t(recip[(w1 >> 24) & 0xFF]));
        return hn::InsertLane(v, 3, uint32_t(recip[w1 >> 56]));
    }
    auto v = hn::InsertLane(hn::Zero(d), 0, uint32_t(recip[a[0]]));
    v = hn::InsertLane(v, 1, uint32_t(recip[a[kStep]]));
    v = hn::InsertLane(v, 2, uint32_t(recip[a[2 * kStep]]));
    return hn::InsertLane(v, 3, uint32_t(recip[a[3 * kStep]]));
}

// The reciprocals of a vector's worth of alphas kStep bytes apart, in their order.
template <int kStep> inline V32 Reciprocals(const int32_t* recip, const uint8_t* a) {
#if HWY_TARGET == HWY_AVX2
    return hn::Combine(D32(), Reciprocals4<kStep>(recip, a + 4 * kStep),
                       Reciprocals4<kStep>(recip, a));
#elif HWY_TARGET == HWY_AVX3
    const hn::Full256<uint32_t> dh;
    return hn::Combine(
        D32(),
        hn::Combine(dh, Reciprocals4<kStep>(recip, a + 12 * kStep),
                    Reciprocals4<kStep>(recip, a + 8 * kStep)),
        hn::Combine(dh, Reciprocals4<kStep>(recip, a + 4 * kStep), Reciprocals4<kStep>(recip, a)));
#else
    return Reciprocals4<kStep>(recip, a);
#endif
}

// c R >> 16 held to 255, in 16-bit lanes (see the top of the file).
inline V16 TimesReciprocal(V16 c, V16 high, V16 low) {
    return hn::Min(hn::Add(hn::Mul(c, high), hn::MulHigh(c, low)), hn::Set(D16(), uint16_t(255)));
}

// Whole vectors only. The even bytes (B, R) by the pixel's reciprocal; the odd bytes
// (G, A) by the reciprocal and by 1 (high half 1, low half 0), which keeps A. The shift
// and byte shuffle units carry the reading of the table, so the halves of the reciprocal
// are copied into both lanes by multiplying by 65537, and the odd bytes are moved by the
// high product with 256 and the product with 256: multiplications, on other units.
void Unpremultiply(uint8_t* px, int32_t pixels, const int32_t* recip) {
    const D8 d8;
    const D16 d16;
    const D32 d32;
    const V16 low = hn::Set(d16, 0x00FF), k256 = hn::Set(d16, Opaque(256));
    const V32 lowHalf = hn::Set(d32, 0xFFFFu), one = hn::Set(d32, 0x10000u);
    const V32 both = hn::Set(d32, Opaque32(0x10001u));
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const V16 p = hn::BitCast(d16, hn::LoadU(d8, px + 4 * i));
        const V32 r = Reciprocals<4>(recip, px + 4 * i + 3);
        const V32 high = hn::ShiftRight<16>(r), lowPart = hn::And(r, lowHalf);
        const V16 even = TimesReciprocal(hn::And(p, low), hn::BitCast(d16, hn::Mul(high, both)),
                                         hn::BitCast(d16, hn::Mul(lowPart, both)));
        const V16 odd = TimesReciprocal(hn::MulHigh(p, k256), hn::BitCast(d16, hn::Or(high, one)),
                                        hn::BitCast(d16, lowPart));
        hn::StoreU(hn::BitCast(d8, hn::Or(even, hn::Mul(odd, k256))), d8, px + 4 * i);
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

// 4:2:2 divided by alpha: one 32-bit lane a pair, with the reciprocals of its first and
// its second pixel's alpha read into two vectors. The luma bytes take their own pixel's,
// the chroma bytes the first pixel's, each split into its high and low half as above.
// Whole vectors of pairs only.
template <bool kUyvy>
void Unpremultiply422(uint8_t* row, const uint8_t* alpha, int32_t pixels, const int32_t* recip) {
    const D8 d8;
    const D16 d16;
    const D32 d32;
    const V16 low = hn::Set(d16, 0x00FF);
    const V32 lowHalf = hn::Set(d32, 0xFFFFu), highHalf = hn::Set(d32, 0xFFFF0000u);
    const V32 both = hn::Set(d32, 0x10001u);
    for (int32_t i = 0; i < pixels; i += 2 * kBlock) {
        const V16 p = hn::BitCast(d16, hn::LoadU(d8, row + 2 * i));
        const V32 first = Reciprocals<2>(recip, alpha + i);
        const V32 second = Reciprocals<2>(recip, alpha + i + 1);
        const V32 firstLow = hn::And(first, lowHalf), firstHigh = hn::ShiftRight<16>(first);
        const V16 ownLow = hn::BitCast(d16, hn::Or(firstLow, hn::ShiftLeft<16>(second)));
        const V16 ownHigh = hn::BitCast(d16, hn::Or(firstHigh, hn::And(second, highHalf)));
        const V16 sameLow = hn::BitCast(d16, hn::Mul(firstLow, both));
        const V16 sameHigh = hn::BitCast(d16, hn::Mul(firstHigh, both));
        // Y U Y V: even bytes Y0, Y1; odd bytes U, V. U Y V Y: the other way.
        const V16 even =
            TimesReciprocal(hn::And(p, low), kUyvy ? sameHigh : ownHigh, kUyvy ? sameLow : ownLow);
        const V16 odd = TimesReciprocal(hn::ShiftRight<8>(p), kUyvy ? ownHigh : sameHigh,
                                        kUyvy ? ownLow : sameLow);
        hn::StoreU(hn::BitCast(d8, hn::Or(even, hn::ShiftLeft<8>(odd))), d8, row + 2 * i);
    }
}

void AnyUnpremultiply422(uint8_t* row, const uint8_t* alpha, int32_t pixels, bool uyvy,
                         const int32_t* recip) {
    kelp::simd::SplitRun(
        pixels, 2 * kBlock, 0,
        [&](int32_t n) {
            if (uyvy)
                Unpremultiply422<true>(row, alpha, n, recip);
            else
                Unpremultiply422<false>(row, alpha, n, recip);
        },
        [&](int32_t n, int32_t rest) {
            Unpremultiply422_C(row + 2 * n, alpha + n, rest, uyvy, recip);
        });
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

#if HWY_TARGET == HWY_SSSE3
// SSSE3 has no instruction to put a 32-bit word into a lane: reading the reciprocals
// lane by lane goes through memory there, slower than the plain loops, which it keeps.
constexpr Kernels kKernels = {KELP_SIMD_THIS_TARGET_NAME, AnyPremultiply, Unpremultiply_C,
                              AnyPremultiply422, Unpremultiply422_C};
#elif HWY_TARGET == HWY_AVX3 && (HWY_TARGETS & HWY_AVX2)
// The 4:2:2 division reads two vectors of reciprocals a block; built from eight 128-bit
// pieces each, the 512-bit form was slower than the 256-bit one, which it takes.
constexpr Kernels kKernels = {KELP_SIMD_THIS_TARGET_NAME, AnyPremultiply, AnyUnpremultiply,
                              AnyPremultiply422, N_AVX2::AnyUnpremultiply422};
#else
constexpr Kernels kKernels = {KELP_SIMD_THIS_TARGET_NAME, AnyPremultiply, AnyUnpremultiply,
                              AnyPremultiply422, AnyUnpremultiply422};
#endif

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
