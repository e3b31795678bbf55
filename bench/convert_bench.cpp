// The depth and alpha kernels of the conversion stages at 1920 x 1080, on every vector
// target (argument 0 plain to 4 AVX-512) and the old hand-written AVX2 forms (argument
// 5, bench/reference_avx2_*.cpp), beside libyuv doing the nearest equivalent job where
// it is installed, and the chain search alone. The figures of docs/PERFORMANCE.md come
// from
//   build-bench/bench/kelp_bench --benchmark_filter='Depth|Alpha|Libyuv|Search'
//       --benchmark_repetitions=15 --benchmark_report_aggregates_only=true
// (one line), reading the rows "_min".
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include <kelp/kelp.h>

#include "convert/alpharows.h"
#include "convert/depthrows.h"
#include "reference_avx2.h"
#include "runtime/cpuflags.h"

#if defined(KELP_BENCH_LIBYUV)
#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/cpu_id.h>
#include <libyuv/planar_functions.h>
#endif

namespace {

using namespace kelp;

constexpr int32_t kW = 1920, kH = 1080;

// Rows of the stages: 4-byte aligned, as the depth stages step through them.
int32_t Stride(int32_t bits) {
    return ((kW * bits / 8) + 3) & ~3;
}

std::vector<uint8_t> RandomBytes(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (auto& b : v)
        b = uint8_t(rng());
    return v;
}

// Arguments 0 to 4: the target of that number (kelp::SimdTarget); 5: the old AVX2 forms.
// Skips what the processor cannot run.
constexpr int kOldAVX2 = kSimdTargetCount;

bool PickPath(benchmark::State& state, int* path) {
    *path = int(state.range(0));
    const bool old = *path == kOldAVX2;
    if (old ? !(CpuFlags() & kCpuAVX2) : !(SimdTargetsAvailable() & SimdBit(*path))) {
        state.SkipWithError("path not available on this processor");
        return false;
    }
    state.SetLabel(old ? "old avx2" : SimdTargetName(*path));
    return true;
}

const depthrows::Kernels& DepthKernels(int path) {
    return path == kOldAVX2 ? benchref::DepthAVX2() : depthrows::ForTarget(path);
}
const alpharows::Kernels& AlphaKernels(int path) {
    return path == kOldAVX2 ? benchref::AlphaAVX2() : alpharows::ForTarget(path);
}

// The machine is shared: with --benchmark_repetitions the least time is the figure.
double Least(const std::vector<double>& v) {
    double m = v.empty() ? 0 : v[0];
    for (double x : v)
        m = x < m ? x : m;
    return m;
}

void SetPixels(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * int64_t(kW) * kH);
}

// ---- Depth kernels

enum DepthJob { kBgrTo32, kBgraTo24, k555To32, kPal8To32, kPal4To32, kPal1To32 };

void DepthRun(benchmark::State& state, DepthJob job) {
    int path;
    if (!PickPath(state, &path)) return;
    const depthrows::Kernels& k = DepthKernels(path);
    static const int32_t srcBits[] = {24, 32, 16, 8, 4, 1};
    static const int32_t dstBits[] = {32, 24, 32, 32, 32, 32};
    int32_t sStride = Stride(srcBits[job]), dStride = Stride(dstBits[job]);
    std::vector<uint8_t> src = RandomBytes(size_t(sStride) * kH, 7);
    std::vector<uint8_t> dst(size_t(dStride) * kH);
    std::vector<uint8_t> table = RandomBytes(1024, 8);
    depthrows::Palette pal;
    depthrows::MakePalette(table.data(), 256, &pal);
    for (auto _ : state) {
        for (int32_t y = 0; y < kH; ++y) {
            const uint8_t* s = src.data() + size_t(y) * sStride;
            uint8_t* d = dst.data() + size_t(y) * dStride;
            switch (job) {
            case kBgrTo32:
                k.bgrTo32(s, d, kW);
                break;
            case kBgraTo24:
                k.bgraTo24(s, d, kW);
                break;
            case k555To32:
                k.rgb555To32(s, d, kW);
                break;
            case kPal8To32:
                k.pal8To32(s, d, kW, &pal);
                break;
            case kPal4To32:
                k.pal4To32(s, d, kW, &pal);
                break;
            case kPal1To32:
                k.pal1To32(s, d, kW, &pal);
                break;
            }
        }
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    SetPixels(state);
}

void BM_Depth24To32(benchmark::State& s) {
    DepthRun(s, kBgrTo32);
}
void BM_Depth32To24(benchmark::State& s) {
    DepthRun(s, kBgraTo24);
}
void BM_Depth555To32(benchmark::State& s) {
    DepthRun(s, k555To32);
}
void BM_DepthPal8To32(benchmark::State& s) {
    DepthRun(s, kPal8To32);
}
void BM_DepthPal4To32(benchmark::State& s) {
    DepthRun(s, kPal4To32);
}
void BM_DepthPal1To32(benchmark::State& s) {
    DepthRun(s, kPal1To32);
}
BENCHMARK(BM_Depth24To32)
    ->DenseRange(0, kOldAVX2)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
BENCHMARK(BM_Depth32To24)
    ->DenseRange(0, kOldAVX2)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
BENCHMARK(BM_Depth555To32)
    ->DenseRange(0, kOldAVX2)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
BENCHMARK(BM_DepthPal8To32)
    ->DenseRange(0, kOldAVX2)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
BENCHMARK(BM_DepthPal4To32)
    ->DenseRange(0, kOldAVX2)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
BENCHMARK(BM_DepthPal1To32)
    ->DenseRange(0, kOldAVX2)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);

// ---- Alpha kernels, between two buffers (the stage's KXCONV_KEEP_INPUT form)

enum AlphaJob { kPremultiply, kPremultiplyYuv, kFill, kUnpremultiply };

void AlphaRun(benchmark::State& state, AlphaJob job) {
    int path;
    if (!PickPath(state, &path)) return;
    const alpharows::Kernels& k = AlphaKernels(path);
    const alpharows::RunFn fns[] = {k.premultiply, k.premultiplyYuv, k.fill, k.unpremultiply};
    std::vector<uint8_t> src = RandomBytes(size_t(kW) * kH * 4, 9);
    std::vector<uint8_t> dst(src.size());
    for (auto _ : state) {
        fns[job](src.data(), dst.data(), kW * kH);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    SetPixels(state);
}

void BM_AlphaPremultiply(benchmark::State& s) {
    AlphaRun(s, kPremultiply);
}
void BM_AlphaPremultiplyYuv(benchmark::State& s) {
    AlphaRun(s, kPremultiplyYuv);
}
void BM_AlphaFill(benchmark::State& s) {
    AlphaRun(s, kFill);
}
void BM_AlphaUnpremultiply(benchmark::State& s) {
    AlphaRun(s, kUnpremultiply);
}
BENCHMARK(BM_AlphaPremultiply)
    ->DenseRange(0, kOldAVX2)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
BENCHMARK(BM_AlphaPremultiplyYuv)
    ->DenseRange(0, kOldAVX2)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
BENCHMARK(BM_AlphaFill)
    ->DenseRange(0, kOldAVX2)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
BENCHMARK(BM_AlphaUnpremultiply)
    ->DenseRange(0, kOldAVX2)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);

// ---- The chain search alone: Query of a pair that takes two stages (straight alpha
// asked premultiplied in 24 bits: the alpha stage, then the depth stage). With no trace
// sink bound every trace line of the walk is formatted, as the fallback counts all
// levels active.

void BM_SearchQueryTwoStages(benchmark::State& state) {
    KXBMINFOHEADER in;
    memset(&in, 0, sizeof in);
    in.biSize = KXBMI_SIZE;
    in.biWidth = 1920;
    in.biHeight = 1080;
    in.biPlanes = 1;
    in.biBitCount = 32;
    in.biSizeImage = 1920u * 1080u * 4u;
    in.bmiMagic = KXBMI_MAGIC;
    in.bmiFrame = 1;
    KXBMINFOHEADER want = in;
    want.biBitCount = 24;
    want.biSizeImage = 5760u * 1080u;
    IConversionManager* cm = KXCONVCreateConversionManager();
    cm->Init(0x10002, 0);
    for (auto _ : state) {
        KXBMINFOHEADER src = in, out = want;
        uint32_t flags = KXCONV_KEEP_INPUT | KXCONV_PREMULTIPLY;
        int32_t q = 0;
        benchmark::DoNotOptimize(cm->Query(&src, &out, &flags, &q));
    }
    cm->Release();
}
BENCHMARK(BM_SearchQueryTwoStages)->Unit(benchmark::kMicrosecond)->ComputeStatistics("min", Least);

#if defined(KELP_BENCH_LIBYUV)
// ---- libyuv on the same sizes, with all the paths it finds on this processor.

enum YuvJob { kY24To32, kY32To24, kY1555To32, kYGrayTo32, kYAttenuate, kYUnattenuate };

void LibyuvRun(benchmark::State& state, YuvJob job) {
    static const int32_t srcBits[] = {24, 32, 16, 8, 32, 32};
    static const int32_t dstBits[] = {32, 24, 32, 32, 32, 32};
    int32_t sStride = Stride(srcBits[job]), dStride = Stride(dstBits[job]);
    std::vector<uint8_t> src = RandomBytes(size_t(sStride) * kH, 7);
    std::vector<uint8_t> dst(size_t(dStride) * kH);
    state.SetLabel("libyuv");
    for (auto _ : state) {
        const uint8_t* s = src.data();
        uint8_t* d = dst.data();
        switch (job) {
        case kY24To32:
            libyuv::RGB24ToARGB(s, sStride, d, dStride, kW, kH);
            break;
        case kY32To24:
            libyuv::ARGBToRGB24(s, sStride, d, dStride, kW, kH);
            break;
        case kY1555To32:
            libyuv::ARGB1555ToARGB(s, sStride, d, dStride, kW, kH);
            break;
        case kYGrayTo32:
            libyuv::J400ToARGB(s, sStride, d, dStride, kW, kH);
            break;
        case kYAttenuate:
            libyuv::ARGBAttenuate(s, sStride, d, dStride, kW, kH);
            break;
        case kYUnattenuate:
            libyuv::ARGBUnattenuate(s, sStride, d, dStride, kW, kH);
            break;
        }
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    SetPixels(state);
}

void BM_Libyuv24To32(benchmark::State& s) {
    LibyuvRun(s, kY24To32);
}
void BM_Libyuv32To24(benchmark::State& s) {
    LibyuvRun(s, kY32To24);
}
void BM_Libyuv1555To32(benchmark::State& s) {
    LibyuvRun(s, kY1555To32);
}
void BM_LibyuvGray8To32(benchmark::State& s) {
    LibyuvRun(s, kYGrayTo32);
}
void BM_LibyuvAttenuate(benchmark::State& s) {
    LibyuvRun(s, kYAttenuate);
}
void BM_LibyuvUnattenuate(benchmark::State& s) {
    LibyuvRun(s, kYUnattenuate);
}
BENCHMARK(BM_Libyuv24To32)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", Least);
BENCHMARK(BM_Libyuv32To24)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", Least);
BENCHMARK(BM_Libyuv1555To32)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", Least);
BENCHMARK(BM_LibyuvGray8To32)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", Least);
BENCHMARK(BM_LibyuvAttenuate)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", Least);
BENCHMARK(BM_LibyuvUnattenuate)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", Least);
#endif

} // namespace
