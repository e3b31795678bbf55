// The vector forms of the raster row kernels, one per vector target (docs/FASTPATHS.md).
//
// All of them compute exactly what the plain loops compute, by the same integer steps:
// - vertical: 32-bit lanes, one lane a channel; the bytes are widened, multiplied by
//   the weight and added, as in the plain loop, with no narrower intermediate.
// - horizontal: one pixel's four channels in four 32-bit lanes; the arithmetic shift and
//   the saturating narrowing to bytes are the plain clamp(sum >> shift).
// - nearest: a 32-bit gather by the column lookup (AVX2 and AVX-512 only: below them
//   Highway's gather is a scalar loop and the plain loop is as good).
// - compose: 16-bit lanes. g * m + 128 is at most 255 * 255 + 128 = 65153, and
//   v + (v >> 8) at most 65407, so both fit unsigned 16 bits; s + that is at most 510,
//   and the saturating narrowing gives the clamp.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stdfx2d/rasterrows_simd.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include "runtime/simd.h"
#include "stdfx2d/rasterrows.h"

HWY_BEFORE_NAMESPACE();
namespace stdfx2d {
namespace rasterrows {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace hn = hwy::HWY_NAMESPACE;

using D32 = hn::ScalableTag<int32_t>;
using D8of32 = hn::Rebind<uint8_t, D32>;
constexpr int32_t kLanes32 = int32_t(hn::MaxLanes(D32()));

void Vertical(int32_t* work, const uint8_t* const* rows, const int32_t* weights, int32_t taps,
              const int32_t seed[4], int32_t x0, int32_t x1) {
    const D32 d;
    const D8of32 d8;
    alignas(64) int32_t pattern[16];
    for (int i = 0; i < 16; ++i)
        pattern[i] = seed[i & 3];
    const auto seeds = hn::Load(d, pattern);
    const int32_t perBlock = kLanes32 / 4; // pixels a vector
    kelp::simd::SplitRun(
        x1 - x0, perBlock, 0,
        [&](int32_t n) HWY_ATTR {
            const int32_t end = 4 * (x0 + n);
            for (int32_t j = 4 * x0; j < end; j += kLanes32) {
                auto acc = seeds;
                for (int32_t k = 0; k < taps; ++k) {
                    const auto px = hn::PromoteTo(d, hn::LoadU(d8, rows[k] + j));
                    acc = hn::Add(acc, hn::Mul(px, hn::Set(d, weights[k])));
                }
                hn::StoreU(acc, d, work + j);
            }
        },
        [&](int32_t n, int32_t rest) {
            Vertical_C(work, rows, weights, taps, seed, x0 + n, x0 + n + rest);
        });
}

void Horizontal(uint8_t* out, const int32_t* work, const Fx2dTapList* lists, int32_t pixels,
                int32_t shift, int32_t seed, bool narrow, int32_t luma) {
    const hn::FixedTag<int32_t, 4> d;
    const hn::Rebind<uint8_t, decltype(d)> d8;
    const int32_t ws = narrow ? shift : 0;
    const auto plainSeed = hn::Set(d, seed);
    for (int32_t x = 0; x < pixels; ++x) {
        const Fx2dTapList& l = lists[x];
        auto acc = plainSeed;
        if (l.biasLuma != 0 || l.biasChroma != 0) {
            alignas(16) int32_t s[4] = {seed + (luma == 0 ? l.biasLuma : l.biasChroma),
                                        seed + (luma == 1 ? l.biasLuma : l.biasChroma),
                                        seed + l.biasChroma, seed};
            acc = hn::Load(d, s);
        }
        const Fx2dTap* taps = l.taps;
        for (int32_t k = 0; k < l.count; ++k) {
            const auto v = hn::ShiftRightSame(hn::LoadU(d, work + 4 * taps[k].index), ws);
            acc = hn::Add(acc, hn::Mul(v, hn::Set(d, taps[k].weight)));
        }
        hn::StoreU(hn::DemoteTo(d8, hn::ShiftRightSame(acc, shift)), d8, out + 4 * x);
    }
}

#if HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_AVX3
void NearestBlocks(uint8_t* out, const uint8_t* src, const int32_t* lookup, int32_t pixels) {
    const hn::ScalableTag<uint32_t> du;
    const hn::RebindToSigned<decltype(du)> di;
    const hn::Repartition<uint8_t, decltype(du)> d8;
    const uint32_t* base = reinterpret_cast<const uint32_t*>(src);
    const int32_t lanes = int32_t(hn::MaxLanes(du));
    for (int32_t x = 0; x < pixels; x += lanes) {
        const auto v = hn::GatherIndex(du, base, hn::LoadU(di, lookup + x));
        hn::StoreU(hn::BitCast(d8, v), d8, out + 4 * x);
    }
}

void Nearest(uint8_t* out, const uint8_t* src, const int32_t* lookup, int32_t pixels) {
    // The gather reads whole words: a source that is not word-aligned takes the plain loop.
    if ((reinterpret_cast<uintptr_t>(src) & 3) != 0) return Nearest_C(out, src, lookup, pixels);
    const int32_t lanes = int32_t(hn::MaxLanes(hn::ScalableTag<uint32_t>()));
    kelp::simd::SplitRun(
        pixels, lanes, 0, [&](int32_t n) HWY_ATTR { NearestBlocks(out, src, lookup, n); },
        [&](int32_t n, int32_t rest) { Nearest_C(out + 4 * n, src, lookup + n, rest); });
}
#else
void Nearest(uint8_t* out, const uint8_t* src, const int32_t* lookup, int32_t pixels) {
    Nearest_C(out, src, lookup, pixels);
}
#endif

using D16 = hn::ScalableTag<uint16_t>;
constexpr int32_t kLanes16 = int32_t(hn::MaxLanes(D16()));

void ComposeBlocks(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels) {
    const D16 d;
    const hn::Rebind<uint8_t, D16> d8;
    const hn::RebindToSigned<D16> di;
    const hn::Repartition<uint8_t, D16> dBytes;
    // Byte indices that copy each pixel's alpha (16-bit lane 3 of 4) to all four lanes.
    alignas(16) static constexpr uint8_t kAlpha[16] = {6,  7,  6,  7,  6,  7,  6,  7,
                                                       14, 15, 14, 15, 14, 15, 14, 15};
    const auto spread = hn::LoadDup128(dBytes, kAlpha);
    const auto k255 = hn::Set(d, 255), k128 = hn::Set(d, 128);
    for (int32_t i = 0; i < 4 * pixels; i += kLanes16) {
        const auto sv = hn::PromoteTo(d, hn::LoadU(d8, s + i));
        const auto gv = hn::PromoteTo(d, hn::LoadU(d8, g + i));
        const auto a = hn::BitCast(d, hn::TableLookupBytes(hn::BitCast(dBytes, sv), spread));
        const auto v = hn::Add(hn::Mul(gv, hn::Sub(k255, a)), k128);
        const auto r = hn::ShiftRight<8>(hn::Add(v, hn::ShiftRight<8>(v)));
        hn::StoreU(hn::DemoteTo(d8, hn::BitCast(di, hn::Add(sv, r))), d8, out + i);
    }
}

void Compose(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels) {
    kelp::simd::SplitRun(
        pixels, kLanes16 / 4, 0, [&](int32_t n) HWY_ATTR { ComposeBlocks(out, s, g, n); },
        [&](int32_t n, int32_t rest) { Compose_C(out + 4 * n, s + 4 * n, g + 4 * n, rest); });
}

constexpr Kernels kKernels = {
    KELP_SIMD_THIS_TARGET_NAME, Vertical, Horizontal, Nearest, Compose, ComposeYuv_C};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace rasterrows
} // namespace stdfx2d
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace stdfx2d {
namespace rasterrows {
const Kernels* VectorKernels(int target) {
    static const Kernels* const kByTarget[kelp::kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kelp::kSimdPlain && target < kelp::kSimdTargetCount ? kByTarget[target]
                                                                        : nullptr;
}
} // namespace rasterrows
} // namespace stdfx2d
#endif
