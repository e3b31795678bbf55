// Throughput of the variable-ratio resampler: output frames per second at a few ratios
// and channel counts, driven as the streaming converter drives it (blocks of 512), with
// the inner loop of each vector target (BM_RateConvertTarget, third argument 0 plain to
// 4 AVX-512) and the old hand-written AVX2 loop (BM_RateConvertOldAVX2).
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <vector>

#include "audio/rateconvertimp.h"
#include "reference_avx2.h"
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
void BM_RateConvertTarget(benchmark::State& state) {
    const int target = int(state.range(2));
    if (!(kelp::SimdTargetsAvailable() & kelp::SimdBit(target))) {
        state.SkipWithError("target not available on this processor");
        return;
    }
    state.SetLabel(kelp::SimdTargetName(target));
    RunRateConvert(state, RateBlockKernelFor(target));
}
void BM_RateConvertOldAVX2(benchmark::State& state) {
    if (!(kelp::CpuFlags() & kelp::kCpuAVX2)) {
        state.SkipWithError("AVX2 not available on this processor");
        return;
    }
    RunRateConvert(state, kelp::benchref::RateBlock_AVX2);
}

void RateArgs(benchmark::internal::Benchmark* b) {
    b->ArgNames({"ratio_x1000", "channels"});
    for (int ratio : {500, 1088, 2000})
        for (int ch : {1, 2, 6})
            b->Args({ratio, ch});
}

void TargetArgs(benchmark::internal::Benchmark* b) {
    b->ArgNames({"ratio_x1000", "channels", "target"});
    for (int ch : {1, 2, 6})
        for (int t = 0; t < kelp::kSimdTargetCount; ++t)
            b->Args({1088, ch, t});
}

} // namespace

BENCHMARK(BM_RateConvert)->Apply(RateArgs);
BENCHMARK(BM_RateConvertTarget)->Apply(TargetArgs);
BENCHMARK(BM_RateConvertOldAVX2)
    ->ArgNames({"ratio_x1000", "channels"})
    ->ArgsProduct({{1088}, {1, 2, 6}});
