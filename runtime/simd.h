// Shared pieces of the vector kernels (docs/FASTPATHS.md tells the whole pattern).
//
// A kernel family is one source file compiled once per vector target by Highway's
// foreach_target.h. Each pass puts the family's vector forms in the namespace
// HWY_NAMESPACE (N_SSSE3, N_SSE4, N_AVX2, N_AVX3); the last pass (HWY_ONCE) gathers them
// into a table with one entry per kelp::SimdTarget, and the family picks an entry for
// BestSimdTarget(). The plain loop stays the definition and the fallback.
#pragma once

#include <hwy/detect_targets.h>

#include <cstdint>

#include "runtime/cpuflags.h"

// True in the passes that compile vector forms. Highway also compiles the file once for
// its portable emulation target (the baseline of a plain x86-64 build); that pass
// defines no kernels, the plain loops stand in for it.
#define KELP_SIMD_VECTOR_PASS                                                                      \
    (HWY_TARGET == HWY_SSSE3 || HWY_TARGET == HWY_SSE4 || HWY_TARGET == HWY_AVX2 ||                \
     HWY_TARGET == HWY_AVX3)

// Initialiser of a table indexed by kelp::SimdTarget: the address of NAME in each
// target's namespace, null for plain and for targets not compiled. Use it in the
// HWY_ONCE part, in the namespace that encloses HWY_NAMESPACE (as with HWY_EXPORT):
//   static const Kernels* const kByTarget[kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
#define KELP_SIMD_TABLE(NAME)                                                                      \
    {                                                                                              \
        nullptr, HWY_CHOOSE_SSSE3(NAME), HWY_CHOOSE_SSE4(NAME), HWY_CHOOSE_AVX2(NAME),             \
            HWY_CHOOSE_AVX3(NAME)                                                                  \
    }

// This pass's kelp::SimdTarget (kSimdPlain in the emulation pass), and its name.
#define KELP_SIMD_THIS_TARGET                                                                      \
    (HWY_TARGET == HWY_AVX3    ? ::kelp::kSimdAVX3                                                 \
     : HWY_TARGET == HWY_AVX2  ? ::kelp::kSimdAVX2                                                 \
     : HWY_TARGET == HWY_SSE4  ? ::kelp::kSimdSSE4                                                 \
     : HWY_TARGET == HWY_SSSE3 ? ::kelp::kSimdSSSE3                                                \
                               : ::kelp::kSimdPlain)
#define KELP_SIMD_THIS_TARGET_NAME (::kelp::simd::kTargetNames[KELP_SIMD_THIS_TARGET])

namespace kelp {
namespace simd {

// Names of the targets, as SimdTargetName gives them and KELP_SIMD takes them.
constexpr const char* kTargetNames[kSimdTargetCount] = {"plain", "ssse3", "sse4", "avx2", "avx3"};

// The targets this build compiles, as a target mask.
constexpr uint32_t kCompiledTargets = SimdBit(kSimdPlain) |
                                      ((HWY_TARGETS & HWY_SSSE3) ? SimdBit(kSimdSSSE3) : 0u) |
                                      ((HWY_TARGETS & HWY_SSE4) ? SimdBit(kSimdSSE4) : 0u) |
                                      ((HWY_TARGETS & HWY_AVX2) ? SimdBit(kSimdAVX2) : 0u) |
                                      ((HWY_TARGETS & HWY_AVX3) ? SimdBit(kSimdAVX3) : 0u);

// The entry of a KELP_SIMD_TABLE for `target`: that target's own, else the best lower
// target's (a family may leave a target out), else `plain`.
template <class E> E ForTarget(const E (&table)[kSimdTargetCount], int target, E plain) {
    if (target >= kSimdTargetCount) target = kSimdTargetCount - 1;
    for (int t = target; t > kSimdPlain; --t)
        if (table[t]) return table[t];
    return plain;
}

// Tails. Vector forms work on whole blocks of items only; the plain loop does the rest
// of a run, so that no kernel reads or writes past its buffers and the plain loop's
// result is had at every length. VectorPart gives the items for the vector form: the
// largest multiple of `block` that leaves at least `slack` items to the plain loop. A
// form whose last vector touches bytes past its last item (a full-width load of
// 24-bit pixels, say) gives as slack the items those bytes belong to.
constexpr int32_t VectorPart(int32_t count, int32_t block, int32_t slack = 0) {
    return count - slack <= 0 ? 0 : (count - slack) - (count - slack) % block;
}

// Runs `vec(n)` over the first n = VectorPart(count, block, slack) items and
// `plain(n, count - n)` over the rest, each only when it has items.
template <class Vec, class Plain>
inline void SplitRun(int32_t count, int32_t block, int32_t slack, Vec&& vec, Plain&& plain) {
    const int32_t n = VectorPart(count, block, slack);
    if (n > 0) vec(n);
    if (count > n) plain(n, count - n);
}

} // namespace simd
} // namespace kelp
