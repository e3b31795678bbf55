// The one place that decides which fast paths may run.
//
// Processor flags: what the processor can do and the "UseSSE" setting allow (through
// CWin32EnhancedFunctions, which reads it at load), narrowed by a flag mask. "UseSSE" at
// 0 turns every SSE level and AVX2 off, and with them every vector target.
//
// Vector targets: the instruction sets the vector kernels are compiled for (Highway
// targets, see runtime/simd.h and docs/FASTPATHS.md). A target may run when it was
// compiled, the processor has every feature its code uses, and the processor flags
// allow it; a target mask narrows that further. Kernels run the best target left, or
// their plain loop when none is.
//
// For people: KELP_SIMD in the environment (plain, ssse3, sse4, avx2, avx3) allows the
// targets up to the one named, read at the first call; any other value allows none.
// KELP_CPU_MASK (a hex word of the kCpu flags, 0 = plain paths only) narrows the flags.
#pragma once

#include <cstdint>

namespace kelp {

enum : uint32_t {
    kCpuSSE2 = 1u << 0,
    kCpuSSSE3 = 1u << 1,
    kCpuSSE41 = 1u << 2,
    kCpuAVX2 = 1u << 3,
};

// The processor features that fast paths may use: those allowed by the settings, AND
// the flag mask. Cheap to call.
uint32_t CpuFlags();
// Restricts the flags to `mask` (all bits: no restriction). Returns the old mask.
uint32_t MaskCpuFlags(uint32_t mask);

// The vector targets, worst to best. Each needs the processor flag named, and the
// features Highway's target of that name uses:
enum SimdTarget : int {
    kSimdPlain = 0, // no vector code: the plain loops
    kSimdSSSE3 = 1, // kCpuSSSE3
    kSimdSSE4 = 2,  // kCpuSSE41; SSE4.2, CLMUL, AES
    kSimdAVX2 = 3,  // kCpuAVX2; BMI1, BMI2, FMA, F16C
    kSimdAVX3 = 4,  // kCpuAVX2; AVX-512 F, VL, DQ, BW, and the system saving its state
    kSimdTargetCount = 5,
};

// A target's bit in a target mask.
constexpr uint32_t SimdBit(int target) {
    return 1u << target;
}
constexpr uint32_t kSimdAllTargets = (1u << kSimdTargetCount) - 1;

// "plain", "ssse3", "sse4", "avx2", "avx3"; null for a number out of range.
const char* SimdTargetName(int target);
// The target of that name, or -1.
int SimdTargetByName(const char* name);

// Targets compiled into the library (the plain bit always set).
uint32_t SimdTargetsCompiled();
// Targets compiled, that this processor runs and the processor flags allow, whatever
// the target mask says.
uint32_t SimdTargetsAvailable();
// Available targets AND the target mask: those that may run now. Plain always stays.
uint32_t SimdTargets();
// The best of SimdTargets(): the target a kernel family uses. Cheap to call; kernels
// ask once per image or per object, not per row.
int BestSimdTarget();
// Restricts the targets to `mask` (kSimdAllTargets: no restriction). Returns the old
// mask. Tests run every target alone this way (tests/support/simdtargets.h).
uint32_t MaskSimdTargets(uint32_t mask);

} // namespace kelp
