// The plain nearest row and the plan of the vector forms.
#include "stdfx2d/nearestrows.h"

#include <cstddef>
#include <cstring>

#include "runtime/cpuflags.h"

namespace stdfx2d {
namespace nearestrows {

void NearestRow_C(uint8_t* out, const uint8_t* src, const int32_t* lookup, int32_t pixels) {
    for (int32_t x = 0; x < pixels; ++x)
        std::memcpy(out + 4 * ptrdiff_t(x), src + 4 * ptrdiff_t(lookup[x]), 4);
}

void BuildNearestPlan(NearestPlan& plan, const int32_t* lookup, int32_t pixels, int32_t srcPixels,
                      int32_t block, const void* out, const void* srcRow) {
    plan.block = block;
    plan.head = 0;
    plan.base.clear();
    plan.rel.clear();
    if (block <= 0 || block > 256 || srcPixels < block) return;
    const uintptr_t bytes = uintptr_t(block) * 4, at = reinterpret_cast<uintptr_t>(out);
    if (at % 4 == 0) plan.head = int32_t(((bytes - at % bytes) % bytes) / 4);
    if (pixels - plan.head < block) return;
    const int32_t srcShift = int32_t((reinterpret_cast<uintptr_t>(srcRow) % bytes) / 4);
    const int32_t blocks = (pixels - plan.head) / block;
    plan.base.assign(size_t(blocks), -1);
    plan.rel.assign(size_t(blocks) * size_t(block), 0);
    for (int32_t b = 0; b < blocks; ++b) {
        const int32_t* l = lookup + plan.head + ptrdiff_t(b) * block;
        int32_t lo = l[0], hi = l[0];
        for (int32_t i = 1; i < block; ++i) {
            lo = l[i] < lo ? l[i] : lo;
            hi = l[i] > hi ? l[i] : hi;
        }
        // One vector of source pixels that holds them all, within the row.
        if (lo < 0 || hi >= srcPixels || hi - lo >= block) continue;
        int32_t base = lo + block <= srcPixels ? lo : srcPixels - block;
        const int32_t aligned = lo - (lo + srcShift) % block; // a load within one line
        if (aligned >= 0 && hi < aligned + block && aligned + block <= srcPixels) base = aligned;
        plan.base[size_t(b)] = base;
        for (int32_t i = 0; i < block; ++i)
            plan.rel[size_t(b) * size_t(block) + size_t(i)] = uint8_t(l[i] - base);
    }
}

namespace {

void PlainRow(uint8_t* out, const uint8_t* src, const int32_t* lookup, const NearestPlan&,
              int32_t pixels) {
    NearestRow_C(out, src, lookup, pixels);
}

const Kernels kPlain = {"plain", 0, PlainRow};

} // namespace

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

} // namespace nearestrows
} // namespace stdfx2d
