// The hand-written AVX2 kernels as they were before the move to Highway, kept in the
// benchmarks only, as the reference that the ported kernels are timed against. Call
// them only where the processor has AVX2.
#pragma once

#include "audio/rateconvert_kernel.h"
#include "convert/alpharows.h"
#include "convert/depthrows.h"

namespace kelp {
namespace benchref {

const depthrows::Kernels& DepthAVX2();
const alpharows::Kernels& AlphaAVX2();
void RateBlock_AVX2(const float* const* src, unsigned channels, const RateStep* steps, int n,
                    const RateFilter* filter, float* const* out);

} // namespace benchref
} // namespace kelp
