// One output frame of one channel, the plain way: the definition that every form of the
// resampler's inner loop reproduces. Shared by the kernels for their leftover frames.
#pragma once

#include "audio/rateconvert_kernel.h"

inline float RateFrame(const float* x, const RateStep& step, const float* h) {
    const float* h1 = h + (8 - step.phase);
    const float* h2 = h + (7 - step.phase);
    float s1 = x[0] * h1[0];
    float s2 = x[0] * h2[0];
    for (int t = 1; t < 8; ++t) {
        s1 += x[t] * h1[8 * t];
        s2 += x[t] * h2[8 * t];
    }
    return s1 * (1.0f - step.blend) + s2 * step.blend;
}
