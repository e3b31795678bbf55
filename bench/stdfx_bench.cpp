// The toolkit's translators and row operations at 1920 x 1080, beside libyuv doing the
// nearest equivalent job where it is installed (its planar 4:4:4 for our meshed 4:4:4,
// its YUY2 and UYVY for our two 4:2:2 orders). The figures of docs/PERFORMANCE.md come
// from
//   build/bench/kelp_bench --benchmark_filter='Stdfx' --benchmark_min_time=0.2
//       --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
// reading the rows "_min" where repetitions were run.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <kelp/stdfx.h>

#include "runtime/cpuflags.h"

#if defined(KELP_BENCH_LIBYUV)
#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#endif

namespace {

using stdfx::CDIB;

constexpr int32_t kW = 1920, kH = 1080;

KXBMINFOHEADERYUV Header(uint32_t format, uint16_t bits, uint32_t sampling) {
    KXBMINFOHEADERYUV h;
    std::memset(&h, 0, sizeof h);
    h.bmi.biSize = format == KXBI_RGB ? KXBMI_SIZE : KXBMI_SIZE_YUV;
    h.bmi.biWidth = kW;
    h.bmi.biHeight = -kH;
    h.bmi.biPlanes = 1;
    h.bmi.biBitCount = bits;
    h.bmi.biCompression = format;
    h.bmi.bmiFrame = 1;
    h.yuv.yuvBits = 8;
    h.yuv.yuvSampling = sampling;
    return h;
}

void Randomise(CDIB& d) {
    std::mt19937 rng(17);
    auto* p = static_cast<uint8_t*>(d.Bits());
    for (uint32_t i = 0; i < stdfx::DIBImageSize(d.Header()); ++i)
        p[i] = uint8_t(rng());
}

// Arg: 0 RGB 32 to "@YUV" 4:4:4 32, 1 to 4:2:2 Y U Y V 16, 2 to 4:2:2 U Y V Y 32 with
// its alpha plane.
KXBMINFOHEADERYUV YuvOf(int64_t arg) {
    switch (arg) {
    case 0:
        return Header(KXBI_YUV, 32, KXYUV_SAMPLING_444);
    case 1:
        return Header(KXBI_YUV, 16, KXYUV_SAMPLING_422);
    default:
        return Header(KXBI_YUV, 32, KXYUV_SAMPLING_422B);
    }
}
const char* kLabels[3] = {"YUV444 32", "YUYV 16", "UYVY 32 + alpha"};

// The second argument: 0 runs the plain loops alone, 1 the best vector target.
class Target {
public:
    explicit Target(benchmark::State& state)
        : m_old(kelp::MaskSimdTargets(state.range(1) ? kelp::kSimdAllTargets
                                                     : kelp::SimdBit(kelp::kSimdPlain))) {}
    ~Target() { kelp::MaskSimdTargets(m_old); }
    std::string Label(const char* what) const {
        return std::string(what) + " " + kelp::SimdTargetName(kelp::BestSimdTarget());
    }

private:
    uint32_t m_old;
};

void StdfxRgbToYuv(benchmark::State& state) {
    const Target target(state);
    KXBMINFOHEADERYUV rgb = Header(KXBI_RGB, 32, 0), yuv = YuvOf(state.range(0));
    CDIB src(&rgb.bmi), dst(&yuv.bmi);
    Randomise(src);
    for (auto _ : state) {
        dst.Convert(src, -1, 0);
        benchmark::DoNotOptimize(dst.Bits());
    }
    state.SetLabel(target.Label(kLabels[state.range(0)]));
    state.SetItemsProcessed(state.iterations() * kW * kH);
}
BENCHMARK(StdfxRgbToYuv)->ArgsProduct({{0, 1, 2}, {0, 1}})->Unit(benchmark::kMillisecond);

void StdfxYuvToRgb(benchmark::State& state) {
    const Target target(state);
    KXBMINFOHEADERYUV rgb = Header(KXBI_RGB, 32, 0), yuv = YuvOf(state.range(0));
    CDIB src(&yuv.bmi), dst(&rgb.bmi);
    Randomise(src);
    for (auto _ : state) {
        dst.Convert(src, -1, 0);
        benchmark::DoNotOptimize(dst.Bits());
    }
    state.SetLabel(target.Label(kLabels[state.range(0)]));
    state.SetItemsProcessed(state.iterations() * kW * kH);
}
BENCHMARK(StdfxYuvToRgb)->ArgsProduct({{0, 1, 2}, {0, 1}})->Unit(benchmark::kMillisecond);

void StdfxCopyBits(benchmark::State& state) {
    const Target target(state);
    KXBMINFOHEADERYUV rgb = Header(KXBI_RGB, 32, 0);
    CDIB src(&rgb.bmi), dst(&rgb.bmi);
    Randomise(src);
    for (auto _ : state) {
        dst.CopyBits(src);
        benchmark::DoNotOptimize(dst.Bits());
    }
    state.SetLabel(target.Label(""));
    state.SetBytesProcessed(state.iterations() * kW * kH * 4);
}
BENCHMARK(StdfxCopyBits)->ArgsProduct({{0}, {0, 1}})->Unit(benchmark::kMillisecond);

void StdfxFill(benchmark::State& state) {
    const Target target(state);
    KXBMINFOHEADERYUV rgb = Header(KXBI_RGB, 32, 0);
    CDIB dst(&rgb.bmi);
    for (auto _ : state) {
        dst.Fill(-1, 0x80402010);
        benchmark::DoNotOptimize(dst.Bits());
    }
    state.SetLabel(target.Label(""));
    state.SetBytesProcessed(state.iterations() * kW * kH * 4);
}
BENCHMARK(StdfxFill)->ArgsProduct({{0}, {0, 1}})->Unit(benchmark::kMillisecond);

#if defined(KELP_BENCH_LIBYUV)
// libyuv's "ARGB" is our 32-bit BGRA in memory.
void StdfxLibyuvFromArgb(benchmark::State& state) {
    std::vector<uint8_t> argb(size_t(kW) * kH * 4), out(size_t(kW) * kH * 4);
    std::mt19937 rng(17);
    for (auto& b : argb)
        b = uint8_t(rng());
    uint8_t* y = out.data();
    uint8_t* u = y + size_t(kW) * kH;
    uint8_t* v = u + size_t(kW) * kH;
    for (auto _ : state) {
        switch (state.range(0)) {
        case 0: // planar 4:4:4 in three planes (one plane would not hold it: no alpha)
            libyuv::ARGBToI444(argb.data(), kW * 4, y, kW, u, kW, v, kW, kW, kH);
            break;
        case 1:
            libyuv::ARGBToYUY2(argb.data(), kW * 4, out.data(), kW * 2, kW, kH);
            break;
        default:
            libyuv::ARGBToUYVY(argb.data(), kW * 4, out.data(), kW * 2, kW, kH);
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
    const char* labels[3] = {"I444", "YUY2", "UYVY"};
    state.SetLabel(labels[state.range(0)]);
    state.SetItemsProcessed(state.iterations() * kW * kH);
}
BENCHMARK(StdfxLibyuvFromArgb)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

void StdfxLibyuvToArgb(benchmark::State& state) {
    std::vector<uint8_t> in(size_t(kW) * kH * 3), argb(size_t(kW) * kH * 4);
    std::mt19937 rng(17);
    for (auto& b : in)
        b = uint8_t(rng());
    const uint8_t* y = in.data();
    const uint8_t* u = y + size_t(kW) * kH;
    const uint8_t* v = u + size_t(kW) * kH;
    for (auto _ : state) {
        switch (state.range(0)) {
        case 0:
            libyuv::I444ToARGB(y, kW, u, kW, v, kW, argb.data(), kW * 4, kW, kH);
            break;
        case 1:
            libyuv::YUY2ToARGB(in.data(), kW * 2, argb.data(), kW * 4, kW, kH);
            break;
        default:
            libyuv::UYVYToARGB(in.data(), kW * 2, argb.data(), kW * 4, kW, kH);
            break;
        }
        benchmark::DoNotOptimize(argb.data());
    }
    const char* labels[3] = {"I444", "YUY2", "UYVY"};
    state.SetLabel(labels[state.range(0)]);
    state.SetItemsProcessed(state.iterations() * kW * kH);
}
BENCHMARK(StdfxLibyuvToArgb)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
#endif

} // namespace
