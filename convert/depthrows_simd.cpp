// Vector forms of the depth row kernels, written once and compiled for every vector
// target. P is the pixels of one vector of 32-bit pixels (4, 8 or 16); most kernels work
// a block of four such vectors at a time, the 1-bit ones 32 pixels.
//
// Byte shuffles work within 128-bit blocks, so pixels are moved across blocks with one
// 32- or 64-bit lane permutation where their order needs it:
// - 24-bit output: each block packs its four pixels into its first 12 bytes, a dword
//   permutation puts the blocks' 12 bytes one after the other, and a full store writes
//   them with garbage behind, which the next store of the block overwrites; the last
//   store of a block writes its three quarters exactly, so nothing lands past the row.
// - 24-bit input: a dword permutation gives block k the 12 bytes of its four pixels,
//   then a byte shuffle spreads them. The last vector of a block is loaded a quarter
//   vector early, so that no load reaches past the block's bytes.
// - 4-bit input: the indices are put in an order in which the blocks' byte interleaves
//   give the pixels in their order; 5-5-5 input likewise by 64-bit groups of pixels.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "convert/depthrows_simd.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include <cstring>

#include "convert/depthrows.h"
#include "runtime/simd.h"

HWY_BEFORE_NAMESPACE();
namespace kelp {
namespace depthrows {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace hn = hwy::HWY_NAMESPACE;
using D8 = hn::ScalableTag<uint8_t>;
using D16 = hn::ScalableTag<uint16_t>;
using D32 = hn::ScalableTag<uint32_t>;
using D64 = hn::ScalableTag<uint64_t>;
using V8 = hn::Vec<D8>;
using V16 = hn::Vec<D16>;
using V32 = hn::Vec<D32>;

constexpr int32_t kBytes = int32_t(hn::MaxLanes(D8())); // bytes of a vector
constexpr int32_t kP = kBytes / 4;                      // 32-bit pixels of a vector
constexpr int32_t kBlock = 4 * kP;                      // pixels of a block
constexpr int32_t kBlocks128 = kBytes / 16;             // 128-bit blocks of a vector
static_assert(kBlock % 8 == 0, "blocks end on a source byte");

// ---- Lane permutations for each vector width (index arrays of 16 to serve all three).

// 24-bit output: the first three dwords of every 128-bit block, in order.
alignas(64) constexpr int32_t kPack24_8[16] = {0, 1, 2, 4, 5, 6, 3, 7};
alignas(64) constexpr int32_t kPack24_16[16] = {0,  1,  2,  4,  5, 6, 8,  9,
                                                10, 12, 13, 14, 3, 7, 11, 15};
// 24-bit input: block k gets dwords 3k .. 3k + 2 (the fourth is not used), or from a
// load a quarter vector early, dwords 3k + B .. 3k + B + 2 (B: 128-bit blocks).
alignas(64) constexpr int32_t kUnpack24_8[16] = {0, 1, 2, 2, 3, 4, 5, 5};
alignas(64) constexpr int32_t kUnpack24_16[16] = {0, 1, 2, 2, 3, 4,  5,  5,
                                                  6, 7, 8, 8, 9, 10, 11, 11};
alignas(64) constexpr int32_t kUnpack24Late_4[16] = {1, 2, 3, 3};
alignas(64) constexpr int32_t kUnpack24Late_8[16] = {2, 3, 4, 4, 5, 6, 7, 7};
alignas(64) constexpr int32_t kUnpack24Late_16[16] = {4,  5,  6,  6,  7,  8,  9,  9,
                                                      10, 11, 12, 12, 13, 14, 15, 15};
// 4-bit input: dword 4k + j of the index vector takes dword j B + k.
alignas(64) constexpr int32_t kIndex4_8[16] = {0, 2, 4, 6, 1, 3, 5, 7};
alignas(64) constexpr int32_t kIndex4_16[16] = {0, 4, 8,  12, 1, 5, 9,  13,
                                                2, 6, 10, 14, 3, 7, 11, 15};
// 5-5-5 input: 64-bit group 2k takes group k, group 2k + 1 takes group B + k.
alignas(64) constexpr int64_t k555_4[8] = {0, 2, 1, 3};
alignas(64) constexpr int64_t k555_8[8] = {0, 4, 1, 5, 2, 6, 3, 7};

HWY_INLINE const int32_t* ByWidth(const int32_t* for8, const int32_t* for16) {
    return kP == 8 ? for8 : for16;
}

// Byte shuffles within 128-bit blocks (0x80 gives 0).
alignas(16) constexpr uint8_t kPack3[16] = {0,  1,  2,  4,  5,    6,    8,    9,
                                            10, 12, 13, 14, 0x80, 0x80, 0x80, 0x80};
alignas(16) constexpr uint8_t kSpread3[16] = {0, 1, 2, 0x80, 3, 4,  5,  0x80,
                                              6, 7, 8, 0x80, 9, 10, 11, 0x80};

HWY_INLINE V32 PermuteDwords(V32 v, const int32_t* idx) {
    return hn::TableLookupLanes(v, hn::SetTableIndices(D32(), idx));
}

// Four pixels of each 128-bit block packed to 12 bytes, the blocks' bytes in order.
HWY_INLINE V8 Pack24(V8 px) {
    const D8 d8;
    V8 packed = hn::TableLookupBytesOr0(px, hn::LoadDup128(d8, kPack3));
    if (kP > 4)
        packed = hn::BitCast(
            d8, PermuteDwords(hn::BitCast(D32(), packed), ByWidth(kPack24_8, kPack24_16)));
    return packed;
}

// A vector of pixels to 3 kP bytes at d, and a quarter vector of garbage behind them,
// which the next store of the block overwrites.
HWY_INLINE void Store24Over(V8 px, uint8_t* d) {
    hn::StoreU(Pack24(px), D8(), d);
}
// The same with nothing written past the 3 kP bytes: the last store of a block.
HWY_INLINE void Store24Exact(V8 px, uint8_t* d) {
    const hn::Half<D8> dh;
    const hn::Half<hn::Half<D8>> dq;
    const V8 packed = Pack24(px);
    hn::StoreU(hn::LowerHalf(dh, packed), dh, d);
    hn::StoreU(hn::LowerHalf(dq, hn::UpperHalf(dh, packed)), dq, d + kBytes / 2);
}

// Four vectors of pixels, in 32 or 24 bits. (Separate arguments, not an array: GCC keeps
// them in registers then.)
template <int DstBytes> HWY_INLINE void StoreBlock(V8 p0, V8 p1, V8 p2, V8 p3, uint8_t* d) {
    if (DstBytes == 4) {
        const D8 d8;
        hn::StoreU(p0, d8, d);
        hn::StoreU(p1, d8, d + kBytes);
        hn::StoreU(p2, d8, d + 2 * kBytes);
        hn::StoreU(p3, d8, d + 3 * kBytes);
    } else {
        Store24Over(p0, d);
        Store24Over(p1, d + 3 * kP);
        Store24Over(p2, d + 6 * kP);
        Store24Exact(p3, d + 9 * kP);
    }
}

// ---- 1 bit: 32 pixels from one 32-bit word of source bits, most significant first.

// Pixel x of the 32 reads bit 8 (x / 8) + 7 - x % 8 of the little-endian word.
struct Bits32 {
    alignas(64) uint32_t bit[32];
    constexpr Bits32() : bit() {
        for (int x = 0; x < 32; ++x)
            bit[x] = 1u << (8 * (x / 8) + 7 - x % 8);
    }
};
constexpr Bits32 kBits32;

template <int DstBytes>
void Pal1(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    const D32 d32;
    const D8 d8;
    const V32 p0 = hn::Set(d32, pal->bgra[0]);
    const V32 p1 = hn::Set(d32, pal->bgra[1]);
    constexpr int kVectors = 32 / kP;
    for (int32_t x = 0; x < width; x += 32) {
        uint32_t w;
        memcpy(&w, src + x / 8, 4);
        const V32 word = hn::Set(d32, w);
        uint8_t* d = dst + DstBytes * x;
        for (int j = 0; j < kVectors; ++j) {
            const V32 bits = hn::Load(d32, kBits32.bit + kP * j);
            const V8 px = hn::BitCast(d8, hn::IfThenElse(hn::TestBit(word, bits), p1, p0));
            if (DstBytes == 4) {
                hn::StoreU(px, d8, d + kBytes * j);
            } else if (j + 1 < kVectors) {
                Store24Over(px, d + 3 * kP * j);
            } else {
                Store24Exact(px, d + 3 * kP * j);
            }
        }
    }
}

// ---- 4 bits: a block's 4 kP indices through byte shuffles of the 16-entry table.

struct Planes {
    alignas(16) uint8_t b[16], g[16], r[16];
};

template <int DstBytes>
void Pal4(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    const D8 d8;
    const D16 d16;
    const hn::Half<D8> dh;
    Planes planes;
    for (int i = 0; i < 16; ++i) {
        planes.b[i] = uint8_t(pal->bgra[i]);
        planes.g[i] = uint8_t(pal->bgra[i] >> 8);
        planes.r[i] = uint8_t(pal->bgra[i] >> 16);
    }
    const V8 tb = hn::LoadDup128(d8, planes.b);
    const V8 tg = hn::LoadDup128(d8, planes.g);
    const V8 tr = hn::LoadDup128(d8, planes.r);
    const V8 ff = hn::Set(d8, 0xFF);
    const V16 low = hn::Set(d16, 15);
    for (int32_t x = 0; x < width; x += kBlock) {
        // Each source byte to two index bytes, high nibble first: the pixels in order.
        const V16 b = hn::PromoteTo(d16, hn::LoadU(dh, src + x / 2));
        V8 idx = hn::BitCast(d8, hn::Or(hn::ShiftRight<4>(b), hn::ShiftLeft<8>(hn::And(b, low))));
        if (kP > 4)
            idx = hn::BitCast(
                d8, PermuteDwords(hn::BitCast(D32(), idx), ByWidth(kIndex4_8, kIndex4_16)));
        const V8 vb = hn::TableLookupBytes(tb, idx);
        const V8 vg = hn::TableLookupBytes(tg, idx);
        const V8 vr = hn::TableLookupBytes(tr, idx);
        const V16 bgLo = hn::BitCast(d16, hn::InterleaveLower(d8, vb, vg));
        const V16 bgHi = hn::BitCast(d16, hn::InterleaveUpper(d8, vb, vg));
        const V16 raLo = hn::BitCast(d16, hn::InterleaveLower(d8, vr, ff));
        const V16 raHi = hn::BitCast(d16, hn::InterleaveUpper(d8, vr, ff));
        StoreBlock<DstBytes>(hn::BitCast(d8, hn::InterleaveLower(d16, bgLo, raLo)),
                             hn::BitCast(d8, hn::InterleaveUpper(d16, bgLo, raLo)),
                             hn::BitCast(d8, hn::InterleaveLower(d16, bgHi, raHi)),
                             hn::BitCast(d8, hn::InterleaveUpper(d16, bgHi, raHi)),
                             dst + DstBytes * x);
    }
}

// ---- 8 bits: the table words by gathers, packed to 24 bits. For 32-bit output the
// plain loop is as fast as a gather here, and the tables use it.

void Pal8To24(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    const D8 d8;
    const D32 d32;
    const hn::RebindToSigned<D32> di32;
    const hn::Rebind<uint8_t, D32> dq8; // kP bytes
    const int32_t* table = reinterpret_cast<const int32_t*>(pal->bgra);
    auto lookup = [&](const uint8_t* s) HWY_ATTR {
        const auto idx = hn::BitCast(di32, hn::PromoteTo(d32, hn::LoadU(dq8, s)));
        return hn::BitCast(d8, hn::GatherIndex(di32, table, idx));
    };
    for (int32_t x = 0; x < width; x += kBlock) {
        const uint8_t* s = src + x;
        StoreBlock<3>(lookup(s), lookup(s + kP), lookup(s + 2 * kP), lookup(s + 3 * kP),
                      dst + 3 * x);
    }
}

// ---- 5-5-5 words

template <int DstBytes> void Rgb555(const uint8_t* src, uint8_t* dst, int32_t width) {
    const D8 d8;
    const D16 d16;
    const D32 d32;
    const D64 d64;
    const V16 mb = hn::Set(d16, 0x00F8);
    const V16 mg = hn::Set(d16, 0xF800);
    const V16 alpha = hn::Set(d16, 0xFF00);
    // Sixteen-bit lanes of blue and green, and of red and alpha, zipped to pixels.
    auto bg = [&](V16 v) HWY_ATTR {
        return hn::Or(hn::And(hn::ShiftLeft<3>(v), mb), hn::And(hn::ShiftLeft<6>(v), mg));
    };
    auto ra = [&](V16 v) HWY_ATTR { return hn::Or(hn::And(hn::ShiftRight<7>(v), mb), alpha); };
    auto load = [&](const uint8_t* s) HWY_ATTR {
        V16 v = hn::LoadU(d16, reinterpret_cast<const uint16_t*>(s));
        if (kP > 4) {
            const int64_t* perm = kP == 8 ? k555_4 : k555_8;
            v = hn::BitCast(
                d16, hn::TableLookupLanes(hn::BitCast(d64, v), hn::SetTableIndices(d64, perm)));
        }
        return v;
    };
    for (int32_t x = 0; x < width; x += kBlock) {
        const V16 v0 = load(src + 2 * x), v1 = load(src + 2 * x + kBytes);
        StoreBlock<DstBytes>(hn::BitCast(d8, hn::ZipLower(d32, bg(v0), ra(v0))),
                             hn::BitCast(d8, hn::ZipUpper(d32, bg(v0), ra(v0))),
                             hn::BitCast(d8, hn::ZipLower(d32, bg(v1), ra(v1))),
                             hn::BitCast(d8, hn::ZipUpper(d32, bg(v1), ra(v1))),
                             dst + DstBytes * x);
    }
}

// ---- 24 to 32 and 32 to 24

void BgrTo32(const uint8_t* src, uint8_t* dst, int32_t width) {
    const D8 d8;
    const D32 d32;
    const V8 spread = hn::LoadDup128(d8, kSpread3);
    const V8 alpha = hn::BitCast(d8, hn::Set(d32, 0xFF000000u));
    const int32_t* late = kP == 4 ? kUnpack24Late_4 : ByWidth(kUnpack24Late_8, kUnpack24Late_16);
    for (int32_t x = 0; x < width; x += kBlock) {
        const uint8_t* s = src + 3 * x;
        uint8_t* d = dst + 4 * x;
        for (int j = 0; j < 3; ++j) {
            V8 v = hn::LoadU(d8, s + 3 * kP * j);
            if (kP > 4)
                v = hn::BitCast(
                    d8, PermuteDwords(hn::BitCast(d32, v), ByWidth(kUnpack24_8, kUnpack24_16)));
            hn::StoreU(hn::Or(hn::TableLookupBytesOr0(v, spread), alpha), d8, d + kBytes * j);
        }
        // The last vector ends where the block's bytes end.
        V8 v = hn::LoadU(d8, s + 3 * kBlock - kBytes);
        v = hn::BitCast(d8, PermuteDwords(hn::BitCast(d32, v), late));
        hn::StoreU(hn::Or(hn::TableLookupBytesOr0(v, spread), alpha), d8, d + kBytes * 3);
    }
}

void BgraTo24(const uint8_t* src, uint8_t* dst, int32_t width) {
    const D8 d8;
    for (int32_t x = 0; x < width; x += kBlock) {
        const uint8_t* s = src + 4 * x;
        StoreBlock<3>(hn::LoadU(d8, s), hn::LoadU(d8, s + kBytes), hn::LoadU(d8, s + 2 * kBytes),
                      hn::LoadU(d8, s + 3 * kBytes), dst + 3 * x);
    }
}

// ---- Tails: the vector form over the whole blocks, the plain loop over the rest.

template <RowFn Vec, RowFn Plain, int32_t Block, int32_t SrcBits, int32_t DstBytes>
void AnyRow(const uint8_t* src, uint8_t* dst, int32_t width) {
    simd::SplitRun(
        width, Block, 0, [&](int32_t n) { Vec(src, dst, n); },
        [&](int32_t n, int32_t rest) { Plain(src + n * SrcBits / 8, dst + n * DstBytes, rest); });
}

template <PalRowFn Vec, PalRowFn Plain, int32_t Block, int32_t SrcBits, int32_t DstBytes>
void AnyPalRow(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    simd::SplitRun(
        width, Block, 0, [&](int32_t n) { Vec(src, dst, n, pal); },
        [&](int32_t n, int32_t rest) {
            Plain(src + n * SrcBits / 8, dst + n * DstBytes, rest, pal);
        });
}

constexpr Kernels kKernels = {
    KELP_SIMD_THIS_TARGET_NAME,
    AnyPalRow<Pal1<4>, Pal1To32_C, 32, 1, 4>,
    AnyPalRow<Pal4<4>, Pal4To32_C, kBlock, 4, 4>,
    Pal8To32_C,
    AnyPalRow<Pal1<3>, Pal1To24_C, 32, 1, 3>,
    AnyPalRow<Pal4<3>, Pal4To24_C, kBlock, 4, 3>,
    AnyPalRow<Pal8To24, Pal8To24_C, kBlock, 8, 3>,
    AnyRow<Rgb555<4>, Rgb555To32_C, kBlock, 16, 4>,
    AnyRow<Rgb555<3>, Rgb555To24_C, kBlock, 16, 3>,
    AnyRow<BgrTo32, BgrTo32_C, kBlock, 24, 4>,
#if HWY_TARGET == HWY_AVX3 && (HWY_TARGETS & HWY_AVX2)
    // 32 to 24 bits is bound by memory, and the AVX2 form (compiled in the pass before
    // this one) was faster than 512-bit vectors here.
    N_AVX2::kKernels.bgraTo24,
#else
    AnyRow<BgraTo24, BgraTo24_C, kBlock, 32, 3>,
#endif
};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace depthrows
} // namespace kelp
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kelp {
namespace depthrows {

const Kernels* VectorKernels(int target) {
    static const Kernels* const kByTarget[kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kSimdPlain && target < kSimdTargetCount ? kByTarget[target] : nullptr;
}

} // namespace depthrows
} // namespace kelp
#endif // HWY_ONCE
