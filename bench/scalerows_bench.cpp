// The scalers' rows per vector target: 24-bit 1920x1080 to 1280x720 by the bilinear and
// the nearest-neighbour scaler ("@YUV" at 24 bits carries the same bytes), and a 24-bit
// deinterlace of 1080i, each on one target alone, beside libyuv's RGB24 scale in the
// same run.
#include <benchmark/benchmark.h>

#include <kelp/kelp.h>

#include <cstring>
#include <vector>

#include "convert/scalers.h"
#include "runtime/cpuflags.h"

#if defined(KELP_BENCH_LIBYUV)
#include <libyuv/scale_rgb.h>
#endif

namespace {

KXBMINFOHEADERYUV Record(int32_t w, int32_t h) {
    KXBMINFOHEADERYUV r;
    std::memset(&r, 0, sizeof r);
    r.bmi.biSize = KXBMI_SIZE;
    r.bmi.biWidth = w;
    r.bmi.biHeight = h;
    r.bmi.biPlanes = 1;
    r.bmi.biBitCount = 24;
    r.bmi.biSizeImage = uint32_t((3 * w + 3) & ~3) * uint32_t(h);
    r.bmi.bmiMagic = KXBMI_MAGIC;
    r.bmi.bmiFrame = 1;
    return r;
}

std::vector<uint8_t> Picture(size_t bytes) {
    std::vector<uint8_t> v(bytes);
    uint32_t s = 2024;
    for (uint8_t& b : v) {
        s = s * 1103515245u + 12345u;
        b = uint8_t(s >> 16);
    }
    return v;
}

// Allows the target of the argument alone; false (and the run skipped) where the
// processor lacks it.
bool OneTarget(benchmark::State& state) {
    const int t = int(state.range(0));
    if (!(kelp::SimdTargetsAvailable() & kelp::SimdBit(t))) {
        state.SkipWithError("target not available on this processor");
        return false;
    }
    kelp::MaskSimdTargets(kelp::SimdBit(t));
    state.SetLabel(kelp::SimdTargetName(t));
    return true;
}

typedef bool (*StageFn)(const KXBMINFOHEADER*, const void*, const KXBMINFOHEADER*, void*, bool,
                        bool);

void Run(benchmark::State& state, StageFn fn, int32_t dw, int32_t dh, bool fields) {
    if (!OneTarget(state)) return;
    KXBMINFOHEADERYUV in = Record(1920, 1080), out = Record(dw, dh);
    if (fields) in.bmi.bmiFrame = 0;
    std::vector<uint8_t> src = Picture(in.bmi.biSizeImage), dst(out.bmi.biSizeImage);
    for (auto _ : state)
        benchmark::DoNotOptimize(fn(&in.bmi, src.data(), &out.bmi, dst.data(), fields, false));
    kelp::MaskSimdTargets(~0u);
}

void BM_ScaleRowsGood24(benchmark::State& state) {
    Run(state, kelp::ScaleGood, 1280, 720, false);
}
void BM_ScaleRowsFast24(benchmark::State& state) {
    Run(state, kelp::ScaleFast, 1280, 720, false);
}
void BM_ScaleRowsDeinterlace24(benchmark::State& state) {
    Run(state, kelp::DeinterlaceLines, 1920, 1080, true);
}

void AllTargets(benchmark::internal::Benchmark* b) {
    for (int t = kelp::kSimdPlain; t < kelp::kSimdTargetCount; ++t)
        b->Arg(t);
    b->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_ScaleRowsGood24)->Apply(AllTargets);
BENCHMARK(BM_ScaleRowsFast24)->Apply(AllTargets);
BENCHMARK(BM_ScaleRowsDeinterlace24)->Apply(AllTargets);

#if defined(KELP_BENCH_LIBYUV)
// libyuv's RGB24 route, arg 1 bilinear, 0 none.
void BM_ScaleRowsLibyuvRgb24(benchmark::State& state) {
    const int sw = 1920, sh = 1080, dw = 1280, dh = 720;
    std::vector<uint8_t> src = Picture(size_t(sw) * 3 * sh), dst(size_t(dw) * 3 * dh);
    const auto filter = state.range(0) ? libyuv::kFilterBilinear : libyuv::kFilterNone;
    state.SetLabel(state.range(0) ? "bilinear" : "none");
    for (auto _ : state)
        libyuv::RGBScale(src.data(), sw * 3, sw, sh, dst.data(), dw * 3, dw, dh, filter);
}
BENCHMARK(BM_ScaleRowsLibyuvRgb24)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
#endif

} // namespace
