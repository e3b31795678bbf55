// The 2-D transform on 32-bit BGRA 1920 x 1080, plain loops against the best vector
// target: the shrink to 960 x 540 and the zoom to 3840 x 2160 in the fast filter and the
// soft mode, the zoom in nearest mode, and the effect (a 0.6 scale, an offset and 30 %
// transparency over a 1080p background), and the shrink in meshed 4:4:4 and 4:2:2. Run with
//   build/bench/kelp_bench --benchmark_filter='Fx2d' --benchmark_min_time=0.1
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <kelp/stdfx2d.h>
#include <kelp/stdfx_dib.h>

#include "runtime/cpuflags.h"

namespace {

struct Image {
    Image(int32_t w, int32_t h) : bits(size_t(w) * size_t(h) * 4) {
        std::memset(&rec, 0, sizeof rec);
        rec.biSize = KXBMI_SIZE;
        rec.biWidth = w;
        rec.biHeight = -h;
        rec.biPlanes = 1;
        rec.biBitCount = 32;
        rec.biSizeImage = uint32_t(bits.size());
        rec.bmiFrame = 1;
        std::mt19937 rng(5);
        for (size_t i = 0; i < bits.size(); i += 4) {
            const uint8_t a = uint8_t(rng());
            bits[i] = uint8_t(rng() % (a + 1u));
            bits[i + 1] = uint8_t(rng() % (a + 1u));
            bits[i + 2] = uint8_t(rng() % (a + 1u));
            bits[i + 3] = a;
        }
    }
    KXBMINFOHEADER rec;
    std::vector<uint8_t> bits;
};

// Arguments: target width, target height, mode, job (0 scale, 1 the effect), the best
// vector target allowed (0 plain, 3 AVX2, 4 AVX-512).
void BM_Fx2d(benchmark::State& state) {
    const int target = int(state.range(4));
    if (target != kelp::kSimdPlain && !(kelp::SimdTargetsAvailable() & kelp::SimdBit(target))) {
        state.SkipWithError("target not available");
        return;
    }
    const uint32_t old = kelp::MaskSimdTargets((kelp::SimdBit(target) << 1) - 1);
    Image src(1920, 1080), dst(int32_t(state.range(0)), int32_t(state.range(1))), bg(1920, 1080);
    stdfx2d::FX2DPARAM p = {};
    p.size = sizeof p;
    p.scaleX = double(state.range(0)) / 1920;
    p.scaleY = double(state.range(1)) / 1080;
    const bool effect = state.range(3) != 0;
    if (effect) {
        p.scaleX = p.scaleY = 0.6;
        p.offsetX = 0.15;
        p.offsetY = -0.1;
        p.transparency = 30;
    }
    const int mode = int(state.range(2));
    for (auto _ : state) {
        const int r = effect ? stdfx2d::Fx2d(&dst.rec, dst.bits.data(), &src.rec, src.bits.data(),
                                             &bg.rec, bg.bits.data(), p, -1, mode)
                             : stdfx2d::Fx2d(&dst.rec, dst.bits.data(), &src.rec, src.bits.data(),
                                             p, -1, mode);
        benchmark::DoNotOptimize(r);
    }
    static const char* kModes[3] = {"nearest", "filter", "soft"};
    state.SetLabel(std::string(kModes[mode]) + " " + kelp::SimdTargetName(kelp::BestSimdTarget()));
    state.SetItemsProcessed(state.iterations() * state.range(0) * state.range(1));
    kelp::MaskSimdTargets(old);
}

BENCHMARK(BM_Fx2d)
    ->ArgNames({"w", "h", "mode", "effect", "simd"})
    ->Args({960, 540, 1, 0, 0})
    ->Args({960, 540, 1, 0, 3})
    ->Args({960, 540, 1, 0, 4})
    ->Args({960, 540, 2, 0, 0})
    ->Args({960, 540, 2, 0, 3})
    ->Args({960, 540, 2, 0, 4})
    ->Args({3840, 2160, 1, 0, 0})
    ->Args({3840, 2160, 1, 0, 3})
    ->Args({3840, 2160, 1, 0, 4})
    ->Args({3840, 2160, 2, 0, 3})
    ->Args({3840, 2160, 2, 0, 4})
    ->Args({3840, 2160, 0, 0, 0})
    ->Args({3840, 2160, 0, 0, 4})
    ->Args({1920, 1080, 1, 1, 0})
    ->Args({1920, 1080, 1, 1, 3})
    ->Args({1920, 1080, 1, 1, 4})
    ->Unit(benchmark::kMillisecond);

// Meshed YUV 4:4:4 (format 0) and 4:2:2 with its alpha plane (format 1), video range,
// random bytes, 1920 x 1080 to the given size, no background.
struct YuvImage {
    YuvImage(int32_t w, int32_t h, bool packed) {
        std::memset(&rec, 0, sizeof rec);
        rec.bmi.biSize = KXBMI_SIZE_YUV;
        rec.bmi.biWidth = w;
        rec.bmi.biHeight = -h;
        rec.bmi.biPlanes = 1;
        rec.bmi.biBitCount = 32;
        rec.bmi.biCompression = KXBI_YUV;
        rec.bmi.bmiMagic = KXBMI_MAGIC;
        rec.bmi.bmiFrame = 1;
        rec.bmi.bmiExtOffset = KXBMI_EXTOFFSET;
        rec.yuv.yuvBits = 8;
        rec.yuv.yuvSampling = packed ? KXYUV_SAMPLING_422B : KXYUV_SAMPLING_444;
        rec.yuv.yuvColorSpace = 1;
        if (packed) {
            rec.bmi.bmiAlphaOffset = uint32_t(stdfx::DIBStride(&rec.bmi) * h);
            rec.bmi.bmiAlphaStride = uint32_t(stdfx::DIBAlphaStride(&rec.bmi));
        }
        rec.bmi.biSizeImage = stdfx::DIBImageSize(&rec.bmi);
        bits.resize(rec.bmi.biSizeImage);
        std::mt19937 rng(7);
        for (uint8_t& b : bits)
            b = uint8_t(rng());
    }
    KXBMINFOHEADERYUV rec;
    std::vector<uint8_t> bits;
};

// Arguments: target width, target height, mode, format, the best vector target allowed,
// job (0 scale, 1 the effect over a background of the target's size).
void BM_Fx2dYuv(benchmark::State& state) {
    const int target = int(state.range(4));
    if (target != kelp::kSimdPlain && !(kelp::SimdTargetsAvailable() & kelp::SimdBit(target))) {
        state.SkipWithError("target not available");
        return;
    }
    const uint32_t old = kelp::MaskSimdTargets((kelp::SimdBit(target) << 1) - 1);
    const bool packed = state.range(3) != 0;
    const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
    YuvImage src(1920, 1080, packed), dst(w, h, packed), bg(w, h, packed);
    stdfx2d::FX2DPARAM p = {};
    p.size = sizeof p;
    p.scaleX = double(w) / 1920;
    p.scaleY = double(h) / 1080;
    const bool effect = state.range(5) != 0;
    if (effect) {
        p.scaleX = p.scaleY = 0.6;
        p.offsetX = 0.15;
        p.offsetY = -0.1;
        p.transparency = 30;
    }
    const int mode = int(state.range(2));
    for (auto _ : state) {
        const int r = effect
                          ? stdfx2d::Fx2d(&dst.rec.bmi, dst.bits.data(), &src.rec.bmi,
                                          src.bits.data(), &bg.rec.bmi, bg.bits.data(), p, -1, mode)
                          : stdfx2d::Fx2d(&dst.rec.bmi, dst.bits.data(), &src.rec.bmi,
                                          src.bits.data(), p, -1, mode);
        if (r != 0) {
            state.SkipWithError("the transform refused");
            break;
        }
    }
    static const char* kModes[3] = {"nearest", "filter", "soft"};
    state.SetLabel(std::string(packed ? "4:2:2 " : "4:4:4 ") + kModes[mode] + " " +
                   kelp::SimdTargetName(kelp::BestSimdTarget()));
    state.SetItemsProcessed(state.iterations() * state.range(0) * state.range(1));
    kelp::MaskSimdTargets(old);
}

BENCHMARK(BM_Fx2dYuv)
    ->ArgNames({"w", "h", "mode", "packed", "simd", "effect"})
    ->Args({960, 540, 1, 0, 0, 0})
    ->Args({960, 540, 1, 0, 3, 0})
    ->Args({960, 540, 1, 0, 4, 0})
    ->Args({960, 540, 1, 1, 0, 0})
    ->Args({960, 540, 1, 1, 3, 0})
    ->Args({960, 540, 1, 1, 4, 0})
    ->Args({3840, 2160, 1, 1, 3, 0})
    ->Args({3840, 2160, 1, 1, 4, 0})
    ->Args({1920, 1080, 1, 0, 3, 1})
    ->Args({1920, 1080, 1, 0, 4, 1})
    ->Unit(benchmark::kMillisecond);

} // namespace
