// Throughput of the variable-ratio resampler: output frames per second at a few ratios
// and channel counts, driven as the streaming converter drives it (blocks of 512).
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <vector>

#include "audio/rateconvertimp.h"
#include "runtime/cpuflags.h"

namespace {

void RunRateConvert(benchmark::State& state, RateBlockKernel kernel) {
    const float ratio = float(state.range(0)) / 1000.0f;
    const unsigned channels = unsigned(state.range(1));
    const int B = 512;
    std::unique_ptr<MATrateconvertImp> rc(
        static_cast<MATrateconvertImp*>(MATrateconvert::Create(B, channels)));
    if (kernel) rc->setKernel(kernel);
    rc->setRatio(ratio);
    std::vector<std::vector<float>> in(channels, std::vector<float>(B)),
        out(channels, std::vector<float>(B));
    std::vector<float*> ip(channels), op(channels);
    for (unsigned c = 0; c < channels; ++c) {
        for (int i = 0; i < B; ++i)
            in[c][i] = std::sin(0.01f * float(i + int(c)));
        ip[c] = in[c].data();
        op[c] = out[c].data();
    }
    int64_t frames = 0;
    bool full = false;
    for (auto _ : state) {
        if (!full)
            while (rc->write(ip.data())) {
            }
        full = rc->read(op.data());
        benchmark::DoNotOptimize(out[0][B - 1]);
        frames += B;
    }
    state.counters["frames/s"] = benchmark::Counter(double(frames), benchmark::Counter::kIsRate);
}

void BM_RateConvert(benchmark::State& state) {
    RunRateConvert(state, nullptr);
}
void BM_RateConvertPlain(benchmark::State& state) {
    RunRateConvert(state, RateBlock_C);
}

void RateArgs(benchmark::internal::Benchmark* b) {
    b->ArgNames({"ratio_x1000", "channels"});
    for (int ratio : {500, 1088, 2000})
        for (int ch : {1, 2, 6})
            b->Args({ratio, ch});
}

} // namespace

BENCHMARK(BM_RateConvert)->Apply(RateArgs);
BENCHMARK(BM_RateConvertPlain)->Apply(RateArgs);
