// The vector forms of the nearest row, one per vector target (docs/FASTPATHS.md).
//
// The first `head` pixels take the plain loop, so that the blocks' stores fall on whole
// vectors of a row (a 64-byte store across two cache lines costs twice). A block of the
// plan with a base is one unaligned load of a vector of source pixels
// from the base, and one permutation of its 32-bit lanes by the block's relative indices
// (TableLookupLanes crosses the 128-bit blocks: vpermd on AVX2 and AVX-512, a byte
// shuffle on 128 bits). The plan keeps base + lanes within the source row and every
// relative index within 0..lanes-1, so each lane is exactly src[lookup[x]]. Blocks
// without a base, and the pixels after the last whole block, take the plain loop.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stdfx2d/nearestrows_simd.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>

#include "runtime/simd.h"
#include "stdfx2d/nearestrows.h"

HWY_BEFORE_NAMESPACE();
namespace stdfx2d {
namespace nearestrows {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace hn = hwy::HWY_NAMESPACE;

using D32 = hn::ScalableTag<int32_t>;
using D8 = hn::Repartition<uint8_t, D32>;
constexpr int32_t kLanes = int32_t(hn::MaxLanes(D32()));

void Row(uint8_t* out, const uint8_t* src, const int32_t* lookup, const NearestPlan& plan,
         int32_t pixels) {
    const D32 d;
    const D8 d8;
    const hn::Rebind<uint8_t, D32> dRel;
    const int32_t head = plan.head < pixels ? plan.head : pixels;
    const int32_t blocks =
        plan.block == kLanes ? std::min(int32_t(plan.base.size()), (pixels - head) / kLanes) : 0;
    if (head > 0) NearestRow_C(out, src, lookup, head);
    const int32_t* base = plan.base.data();
    const uint8_t* rel = plan.rel.data();
    for (int32_t b = 0; b < blocks; ++b) {
        const int32_t x = head + b * kLanes;
        if (base[b] < 0) {
            NearestRow_C(out + 4 * ptrdiff_t(x), src, lookup + x, kLanes);
            continue;
        }
        const auto v = hn::BitCast(d, hn::LoadU(d8, src + 4 * ptrdiff_t(base[b])));
        const auto idx =
            hn::IndicesFromVec(d, hn::PromoteTo(d, hn::LoadU(dRel, rel + ptrdiff_t(b) * kLanes)));
        hn::StoreU(hn::BitCast(d8, hn::TableLookupLanes(v, idx)), d8, out + 4 * ptrdiff_t(x));
    }
    const int32_t done = head + blocks * kLanes;
    if (pixels > done) NearestRow_C(out + 4 * ptrdiff_t(done), src, lookup + done, pixels - done);
}

constexpr Kernels kKernels = {KELP_SIMD_THIS_TARGET_NAME, kLanes, Row};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace nearestrows
} // namespace stdfx2d
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace stdfx2d {
namespace nearestrows {
const Kernels* VectorKernels(int target) {
    static const Kernels* const kByTarget[kelp::kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kelp::kSimdPlain && target < kelp::kSimdTargetCount ? kByTarget[target]
                                                                        : nullptr;
}
} // namespace nearestrows
} // namespace stdfx2d
#endif
