#include "rateconvert_kernel.h"

#include "audio/rateconvert_frame.h"
#include "runtime/cpuflags.h"

void RateFilterInit(RateFilter* f, const float* h) {
    f->h = h;
    for (int q = 0; q < 8; ++q)
        for (int t = 0; t < 8; ++t) {
            f->pairs[q][t][0] = f->pairs[q][t][2] = h[(7 - q) + 8 * t];
            f->pairs[q][t][1] = f->pairs[q][t][3] = h[(8 - q) + 8 * t];
        }
}

void RateBlock_C(const float* const* src, unsigned channels, const RateStep* steps, int n,
                 const RateFilter* filter, float* const* out) {
    for (unsigned c = 0; c < channels; ++c)
        for (int i = 0; i < n; ++i)
            out[c][i] = RateFrame(src[c] + steps[i].offset, steps[i], filter->h);
}

RateBlockKernel RateBlockKernelFor(int) {
    return RateBlock_C;
}

RateBlockKernel ChooseRateBlockKernel() {
    return RateBlockKernelFor(kelp::BestSimdTarget());
}
