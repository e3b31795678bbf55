// The one place that decides which fast paths may run: what the processor can do and
// the "UseSSE" setting allow (through CWin32EnhancedFunctions, which reads it at
// load), narrowed by a mask that tests (and a person narrowing a fault) can set.
// "UseSSE" at 0 turns every SSE level and AVX2 off. KELP_CPU_MASK in the environment
// (a hex word, 0 = plain paths only) sets the mask at the first call.
#pragma once

#include <cstdint>

namespace kelp {

enum : uint32_t {
    kCpuSSE2 = 1u << 0,
    kCpuSSSE3 = 1u << 1,
    kCpuSSE41 = 1u << 2,
    kCpuAVX2 = 1u << 3,
};

// The fast paths that may run: processor features allowed by the settings, AND the
// mask. Cheap to call.
uint32_t CpuFlags();
// Restricts the fast paths to `mask` (all bits: no restriction). Returns the old mask.
uint32_t MaskCpuFlags(uint32_t mask);

} // namespace kelp
