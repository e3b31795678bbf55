// Vector forms of the colour conversion rows (see cscrows.h).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "image/cscrows_simd.cpp" // this file, from the source root
#include <hwy/foreach_target.h>                     // IWYU pragma: keep
#include <hwy/highway.h>

#include "image/cscrows.h"
#include "runtime/simd.h"

HWY_BEFORE_NAMESPACE();
namespace kelp {
namespace cscrows {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace cscrows
} // namespace kelp
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kelp {
namespace cscrows {
const Kernels* VectorKernels(int target) {
    (void)target;
    return nullptr;
}
} // namespace cscrows
} // namespace kelp
#endif
