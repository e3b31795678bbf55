// The plain run scan, which defines the result, and the choice of the vector form.
#include "rlescan.h"

#include "runtime/cpuflags.h"

namespace stdfx {
namespace rlescan {

size_t RunEnd_C(const uint8_t* data, size_t start, size_t end, uint8_t value) {
    size_t i = start;
    while (i < end && data[i] == value)
        ++i;
    return i;
}

static constexpr Kernels kPlain = {"plain", RunEnd_C};

const Kernels& PlainKernels() {
    return kPlain;
}

const Kernels& ForTarget(int target) {
    for (int t = target; t > kelp::kSimdPlain; --t)
        if (const Kernels* k = VectorKernels(t)) return *k;
    return kPlain;
}

const Kernels& Current() {
    return ForTarget(kelp::BestSimdTarget());
}

} // namespace rlescan
} // namespace stdfx
