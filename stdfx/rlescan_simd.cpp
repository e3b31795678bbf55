// Vector forms of the run scan, written once and compiled for every vector target.
// A whole vector of bytes is compared with the value; the first lane that differs is
// the answer. The last part of the range, shorter than a vector, goes to the plain
// loop, so nothing at or past the end is read.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stdfx/rlescan_simd.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include "runtime/simd.h"
#include "stdfx/rlescan.h"

HWY_BEFORE_NAMESPACE();
namespace stdfx {
namespace rlescan {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace hn = hwy::HWY_NAMESPACE;
using D8 = hn::ScalableTag<uint8_t>;

constexpr size_t kBytes = hn::MaxLanes(D8()); // bytes of one vector

size_t RunEnd(const uint8_t* data, size_t start, size_t end, uint8_t value) {
    // Most runs of a matte's edges are a byte or two long: look at the first byte
    // before setting up a vector.
    if (start >= end || data[start] != value) return start;
    const D8 d8;
    const auto v = hn::Set(d8, value);
    size_t i = start + 1;
    while (end - i >= kBytes) {
        const auto same = hn::Eq(hn::LoadU(d8, data + i), v);
        if (!hn::AllTrue(d8, same)) return i + size_t(hn::FindFirstTrue(d8, hn::Not(same)));
        i += kBytes;
    }
    return RunEnd_C(data, i, end, value);
}

constexpr Kernels kKernels = {KELP_SIMD_THIS_TARGET_NAME, RunEnd};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace rlescan
} // namespace stdfx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace stdfx {
namespace rlescan {
const Kernels* VectorKernels(int target) {
    static const Kernels* const kByTarget[kelp::kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kelp::kSimdPlain && target < kelp::kSimdTargetCount ? kByTarget[target]
                                                                        : nullptr;
}
} // namespace rlescan
} // namespace stdfx
#endif // HWY_ONCE
