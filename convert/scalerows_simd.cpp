// Vector forms of the scalers' row kernels, written once and compiled for every vector
// target. The vertical blend of the deinterlacer has one; the horizontal and bilinear
// rows (which gather their pixels through a table) and the nearest-neighbour pick stay
// the plain loops on every target.
//
// Blend: with wC = 2048 - wN the plain (n wN + c wC) >> 11 is (2048 c + (n - c) wN) >> 11,
// and since 2048 c is a multiple of 2048 that is c + floor((n - c) wN / 2048). In signed
// 16-bit lanes the high half of the product 2 (n - c) (from -510 to 510) times 16 wN
// (at most 32752 for the wN below 2048 that weight tables hold) is floor(32 (n - c) wN /
// 65536), the same value, and c plus it lies in 0..255. Rows with other weights take
// the plain loop.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "convert/scalerows_simd.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include "convert/scalerows.h"
#include "runtime/simd.h"

HWY_BEFORE_NAMESPACE();
namespace kelp {
namespace scalerows {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace hn = hwy::HWY_NAMESPACE;
using D16 = hn::ScalableTag<int16_t>;
using D8 = hn::Rebind<uint8_t, D16>; // as many bytes as a vector has 16-bit lanes

constexpr int32_t kBlock = int32_t(hn::MaxLanes(D16())); // bytes a step: 8, 16 or 32

// Whole blocks only: `bytes` is a multiple of kBlock.
void Blend(const uint8_t* cur, const uint8_t* next, uint8_t* dst, size_t bytes, int32_t wNext) {
    const D16 d16;
    const D8 d8;
    const auto w = hn::Set(d16, int16_t(wNext * 16));
    for (size_t i = 0; i < bytes; i += size_t(kBlock)) {
        const auto c = hn::PromoteTo(d16, hn::LoadU(d8, cur + i));
        const auto n = hn::PromoteTo(d16, hn::LoadU(d8, next + i));
        const auto step = hn::MulHigh(hn::ShiftLeft<1>(hn::Sub(n, c)), w);
        hn::StoreU(hn::DemoteTo(d8, hn::Add(c, step)), d8, dst + i);
    }
}

void AnyBlend(const uint8_t* cur, const uint8_t* next, uint8_t* dst, size_t bytes, int32_t wNext,
              int32_t wCur) {
    if (wNext < 0 || wNext > 2047 || wNext + wCur != 2048 || bytes > 0x7FFFFFFF) {
        BlendRow_C(cur, next, dst, bytes, wNext, wCur);
        return;
    }
    simd::SplitRun(
        int32_t(bytes), kBlock, 0, [&](int32_t n) { Blend(cur, next, dst, size_t(n), wNext); },
        [&](int32_t n, int32_t rest) {
            BlendRow_C(cur + n, next + n, dst + n, size_t(rest), wNext, wCur);
        });
}

constexpr Kernels kKernels = {KELP_SIMD_THIS_TARGET_NAME, HorzRow_C, BilinearRow_C, AnyBlend,
                              PickRow_C};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace scalerows
} // namespace kelp
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kelp {
namespace scalerows {

const Kernels* VectorKernels(int target) {
    static const Kernels* const kByTarget[kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kSimdPlain && target < kSimdTargetCount ? kByTarget[target] : nullptr;
}

} // namespace scalerows
} // namespace kelp
#endif // HWY_ONCE
