// The one place that decides which fast paths may run: what the processor can do,
// narrowed by a mask that tests (and a person narrowing a fault) can set.
// KELP_CPU_MASK in the environment (a hex word, 0 = plain paths only) sets the mask
// at load.
#pragma once

#include <cstdint>

namespace kelp {

enum : uint32_t {
    kCpuSSE2 = 1u << 0,
    kCpuSSSE3 = 1u << 1,
    kCpuSSE41 = 1u << 2,
    kCpuAVX2 = 1u << 3,
};

// The fast paths that may run: processor features AND the mask. Cheap to call.
uint32_t CpuFlags();
// Restricts the fast paths to `mask` (all bits: no restriction). Returns the old mask.
uint32_t MaskCpuFlags(uint32_t mask);

} // namespace kelp
