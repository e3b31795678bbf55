// The run scan of the run-length encoder: where a run of one byte value ends.
//
// The plain loop (RunEnd_C, rlescan.cpp) defines the result. The vector forms
// (rlescan_simd.cpp, one per vector target) compare whole vectors and leave the last
// part of the range, shorter than a vector, to the plain loop: they read nothing at or
// past data + end.
#pragma once

#include <cstddef>
#include <cstdint>

namespace stdfx {
namespace rlescan {

// The first index from `start` below `end` whose byte differs from `value`; `end` if
// all of them equal it; `start` when start >= end.
typedef size_t (*RunEndFn)(const uint8_t* data, size_t start, size_t end, uint8_t value);

struct Kernels {
    const char* name; // the target's name, SimdTargetName
    RunEndFn runEnd;
};

size_t RunEnd_C(const uint8_t* data, size_t start, size_t end, uint8_t value);

const Kernels& PlainKernels();
// The table of a vector target (kelp::SimdTarget); a target not compiled gives the best
// one below it, at worst the plain table.
const Kernels& ForTarget(int target);
// ForTarget(BestSimdTarget()).
const Kernels& Current();
// The table of one vector target, null when it was not compiled (rlescan_simd.cpp).
const Kernels* VectorKernels(int target);

} // namespace rlescan
} // namespace stdfx
