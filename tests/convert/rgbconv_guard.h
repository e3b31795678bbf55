// The guarded buffers and the target loop of the kernel tests, under the names the
// conversion tests use.
#pragma once

#include <cstdint>
#include <vector>

#include "guardedbuffer.h"
#include "simdtargets.h"

namespace kelptest {

// One mask per target this machine runs, plain first: a test with CpuMask(mask) runs
// the fast paths of that target alone.
inline std::vector<uint32_t> PathMasks() {
    std::vector<uint32_t> masks;
    for (int t : SimdTargetsToTest())
        masks.push_back(kelp::SimdBit(t));
    return masks;
}

using CpuMask = SimdMask;

} // namespace kelptest
