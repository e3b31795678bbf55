// The inner loop of the variable-ratio resampler. For each output frame, two 8-tap dot
// products per channel over the source frames at that frame's read position, one with
// each of two neighbouring filter phases, blended linearly:
//   s1 = sum x[t] * h[(8 - q) + 8t],  s2 = sum x[t] * h[(7 - q) + 8t]   (t = 0..7, in order)
//   out = s1 * (1 - a) + s2 * a
// all in single precision. The plain loop defines the result; the fast forms do exactly
// the same float operations in the same order, only several channels or frames at once.
#pragma once

// Where one output frame reads: the source offset of its first tap, the phase q (0..7)
// and the blend a between phase q and the next.
struct RateStep {
    int offset;
    int phase;
    float blend;
};

// The filter table in the layout the kernels read. `h` is the 72-float table itself;
// `pairs` holds, for each phase q and tap t, the two coefficients h[(7 - q) + 8t] and
// h[(8 - q) + 8t] side by side, twice: {s2, s1, s2, s1} (copies, no arithmetic).
struct RateFilter {
    const float* h;
    alignas(16) float pairs[8][8][4];
};

void RateFilterInit(RateFilter* f, const float* h);

// src[c] + step.offset is channel c's first source frame of an output frame; out[c][i]
// receives output frame i of n.
typedef void (*RateBlockKernel)(const float* const* src, unsigned channels, const RateStep* steps,
                                int n, const RateFilter* filter, float* const* out);

void RateBlock_C(const float* const* src, unsigned channels, const RateStep* steps, int n,
                 const RateFilter* filter, float* const* out);

// The kernel of a vector target (kelp::SimdTarget): that target's form, or the best one
// below it that was compiled, at worst RateBlock_C.
RateBlockKernel RateBlockKernelFor(int target);
// RateBlockKernelFor(BestSimdTarget()): chosen once, when a resampler is made.
RateBlockKernel ChooseRateBlockKernel();
