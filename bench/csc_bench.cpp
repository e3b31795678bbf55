// The colour conversions of CKXCsc at 1920 x 1080 on every vector target (argument 0
// plain to 4 AVX-512), beside libyuv and libswscale doing the same job where they are
// installed, and the accuracy of each against the exact BT.601 / BT.709 formulas in
// doubles (counters of the "CscAccuracy" rows: max and mean absolute error per
// component). The figures of docs/PERFORMANCE.md come from
//   build/bench/kelp_bench --benchmark_filter='Csc' --benchmark_repetitions=3
//       --benchmark_enable_random_interleaving --benchmark_report_aggregates_only=true
//       --benchmark_min_time=0.1
// reading the rows "_median".
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include <kelp/kxcsc.h>

#include "runtime/cpuflags.h"

#if defined(KELP_BENCH_LIBYUV)
#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/planar_functions.h>
#endif
#if defined(KELP_BENCH_SWSCALE)
extern "C" {
#include <libswscale/swscale.h>
}
#endif

namespace {

using namespace kelp;

constexpr int kW = 1920, kH = 1080;
constexpr size_t kPixels = size_t(kW) * kH;

std::vector<uint8_t> Noise(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (auto& b : v)
        b = uint8_t(rng());
    return v;
}

// Legal YUV (Y 16..235, chroma 16..240) in meshed 4:4:4 with alpha.
std::vector<uint8_t> LegalYuv(uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(kPixels * 4);
    for (size_t i = 0; i < kPixels; ++i) {
        v[4 * i] = uint8_t(16 + rng() % 220);
        v[4 * i + 1] = uint8_t(16 + rng() % 225);
        v[4 * i + 2] = uint8_t(16 + rng() % 225);
        v[4 * i + 3] = uint8_t(rng());
    }
    return v;
}

bool PickTarget(benchmark::State& state, uint32_t* old) {
    const int t = int(state.range(0));
    if (!(SimdTargetsAvailable() & SimdBit(t))) {
        state.SkipWithError("target not available on this processor");
        return false;
    }
    *old = MaskSimdTargets(SimdBit(t));
    state.SetLabel(SimdTargetName(t));
    return true;
}

void Finish(benchmark::State& state) {
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPixels));
}

enum Job { kToYuv444, kFromYuv444, kToUyvyClass, kFromUyvy, k601To709 };

void BM_Csc(benchmark::State& state, Job job) {
    uint32_t old;
    if (!PickTarget(state, &old)) return;
    CKXCsc2 c;
    c.Init(CKXCsc::CS_CCIR601);
    const std::vector<uint8_t> bgra = Noise(kPixels * 4, 1), yuv = LegalYuv(2);
    std::vector<uint8_t> out(kPixels * 4);
    for (auto _ : state) {
        switch (job) {
        case kToYuv444:
            c.BGRToYUV444Meshed(bgra.data(), out.data(), kW, kH, 4, kW * 4);
            break;
        case kFromYuv444:
            c.YUV444MeshedToBGR(yuv.data(), out.data(), kW, kH, 4, kW * 4);
            break;
        case kToUyvyClass:
            c.BGRToYUV422Meshed(bgra.data(), out.data(), kW, kH, 4, kW * 4, 0);
            break;
        case kFromUyvy:
            c.UYVYToBGR(yuv.data(), out.data(), kW, kH, 4, kW * 4);
            break;
        case k601To709:
            c.YUV444MeshedToYUV444(yuv.data(), out.data(), kW, kH, 4, kW * 4, CKXCsc::CS_CCIR601,
                                   CKXCsc::CS_ITU709);
            break;
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    MaskSimdTargets(old);
    Finish(state);
}
BENCHMARK_CAPTURE(BM_Csc, BgraToYuv444, kToYuv444)->DenseRange(0, 4)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Csc, Yuv444ToBgra, kFromYuv444)
    ->DenseRange(0, 4)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Csc, BgraToYuv422, kToUyvyClass)
    ->DenseRange(0, 4)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Csc, UyvyToBgra, kFromUyvy)->DenseRange(0, 4)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Csc, Yuv601To709, k601To709)->DenseRange(0, 4)->Unit(benchmark::kMicrosecond);

// BGRA to meshed 4:4:4 in BT.709, beside the BT.601 row above.
void BM_CscBgraToYuv444In709(benchmark::State& state) {
    uint32_t old;
    if (!PickTarget(state, &old)) return;
    CKXCsc2 c;
    c.Init(CKXCsc::CS_ITU709);
    const std::vector<uint8_t> bgra = Noise(kPixels * 4, 1);
    std::vector<uint8_t> out(kPixels * 4);
    for (auto _ : state) {
        c.BGRToYUV444Meshed(bgra.data(), out.data(), kW, kH, 4, kW * 4);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    MaskSimdTargets(old);
    Finish(state);
}
BENCHMARK(BM_CscBgraToYuv444In709)->DenseRange(0, 4)->Unit(benchmark::kMicrosecond);

// The inverse on 32 lines, which stay in the cache between iterations: the arithmetic
// without the memory traffic of a whole frame (items are pixels, as above).
void BM_CscHotYuv444ToBgra(benchmark::State& state) {
    uint32_t old;
    if (!PickTarget(state, &old)) return;
    constexpr int kLines = 32;
    CKXCsc2 c;
    c.Init(CKXCsc::CS_CCIR601);
    const std::vector<uint8_t> yuv = LegalYuv(2);
    std::vector<uint8_t> out(size_t(kW) * kLines * 4);
    for (auto _ : state) {
        c.YUV444MeshedToBGR(yuv.data(), out.data(), kW, kLines, 4, kW * 4);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    MaskSimdTargets(old);
    state.SetItemsProcessed(int64_t(state.iterations()) * kW * kLines);
}
BENCHMARK(BM_CscHotYuv444ToBgra)->DenseRange(3, 4)->Unit(benchmark::kMicrosecond);

#if defined(KELP_BENCH_LIBYUV)
// libyuv's ARGB is B, G, R, A in memory: our BGRA.
struct Planes {
    std::vector<uint8_t> y, u, v, a;
    Planes() : y(kPixels), u(kPixels), v(kPixels), a(kPixels) {}
};

void BM_CscLibyuvToI444(benchmark::State& state) {
    const std::vector<uint8_t> bgra = Noise(kPixels * 4, 1);
    Planes p;
    for (auto _ : state) {
        libyuv::ARGBToI444(bgra.data(), kW * 4, p.y.data(), kW, p.u.data(), kW, p.v.data(), kW, kW,
                           kH);
        benchmark::ClobberMemory();
    }
    Finish(state);
}
BENCHMARK(BM_CscLibyuvToI444)->Unit(benchmark::kMicrosecond);

// The same packed layout as ours: the planes, the alpha, then merged to Y, U, V, A.
void BM_CscLibyuvToPackedYuva(benchmark::State& state) {
    const std::vector<uint8_t> bgra = Noise(kPixels * 4, 1);
    Planes p;
    std::vector<uint8_t> out(kPixels * 4);
    for (auto _ : state) {
        libyuv::ARGBToI444(bgra.data(), kW * 4, p.y.data(), kW, p.u.data(), kW, p.v.data(), kW, kW,
                           kH);
        libyuv::ARGBExtractAlpha(bgra.data(), kW * 4, p.a.data(), kW, kW, kH);
        libyuv::MergeARGBPlane(p.v.data(), kW, p.u.data(), kW, p.y.data(), kW, p.a.data(), kW,
                               out.data(), kW * 4, kW, kH);
        benchmark::ClobberMemory();
    }
    Finish(state);
}
BENCHMARK(BM_CscLibyuvToPackedYuva)->Unit(benchmark::kMicrosecond);

void BM_CscLibyuvI444ToArgb(benchmark::State& state) {
    const std::vector<uint8_t> yuv = LegalYuv(2);
    Planes p;
    for (size_t i = 0; i < kPixels; ++i)
        p.y[i] = yuv[4 * i], p.u[i] = yuv[4 * i + 1], p.v[i] = yuv[4 * i + 2];
    std::vector<uint8_t> out(kPixels * 4);
    for (auto _ : state) {
        libyuv::I444ToARGB(p.y.data(), kW, p.u.data(), kW, p.v.data(), kW, out.data(), kW * 4, kW,
                           kH);
        benchmark::ClobberMemory();
    }
    Finish(state);
}
BENCHMARK(BM_CscLibyuvI444ToArgb)->Unit(benchmark::kMicrosecond);

void BM_CscHotLibyuvI444ToArgb(benchmark::State& state) {
    constexpr int kLines = 32;
    const std::vector<uint8_t> yuv = LegalYuv(2);
    Planes p;
    for (size_t i = 0; i < kPixels; ++i)
        p.y[i] = yuv[4 * i], p.u[i] = yuv[4 * i + 1], p.v[i] = yuv[4 * i + 2];
    std::vector<uint8_t> out(size_t(kW) * kLines * 4);
    for (auto _ : state) {
        libyuv::I444ToARGB(p.y.data(), kW, p.u.data(), kW, p.v.data(), kW, out.data(), kW * 4, kW,
                           kLines);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kW * kLines);
}
BENCHMARK(BM_CscHotLibyuvI444ToArgb)->Unit(benchmark::kMicrosecond);

void BM_CscLibyuvArgbToUyvy(benchmark::State& state) {
    const std::vector<uint8_t> bgra = Noise(kPixels * 4, 1);
    std::vector<uint8_t> out(kPixels * 2);
    for (auto _ : state) {
        libyuv::ARGBToUYVY(bgra.data(), kW * 4, out.data(), kW * 2, kW, kH);
        benchmark::ClobberMemory();
    }
    Finish(state);
}
BENCHMARK(BM_CscLibyuvArgbToUyvy)->Unit(benchmark::kMicrosecond);

void BM_CscLibyuvUyvyToArgb(benchmark::State& state) {
    const std::vector<uint8_t> uyvy = LegalYuv(2);
    std::vector<uint8_t> out(kPixels * 4);
    for (auto _ : state) {
        libyuv::UYVYToARGB(uyvy.data(), kW * 2, out.data(), kW * 4, kW, kH);
        benchmark::ClobberMemory();
    }
    Finish(state);
}
BENCHMARK(BM_CscLibyuvUyvyToArgb)->Unit(benchmark::kMicrosecond);
#endif

#if defined(KELP_BENCH_SWSCALE)
// One unscaled swscale conversion between two formats, with BT.601 limited range.
void BM_CscSwscale(benchmark::State& state, AVPixelFormat from, AVPixelFormat to) {
    SwsContext* ctx =
        sws_getContext(kW, kH, from, kW, kH, to, SWS_POINT, nullptr, nullptr, nullptr);
    if (!ctx) {
        state.SkipWithError("swscale has no such conversion");
        return;
    }
    auto planesOf = [](AVPixelFormat f, std::vector<uint8_t>& buf, uint8_t* ptr[4], int stride[4]) {
        std::fill(ptr, ptr + 4, nullptr);
        std::fill(stride, stride + 4, 0);
        if (f == AV_PIX_FMT_BGRA) {
            buf = Noise(kPixels * 4, 1), ptr[0] = buf.data(), stride[0] = kW * 4;
        } else if (f == AV_PIX_FMT_UYVY422) {
            buf = Noise(kPixels * 2, 2), ptr[0] = buf.data(), stride[0] = kW * 2;
        } else { // YUV(A)444P
            buf = Noise(kPixels * 4, 3);
            for (int k = 0; k < 4; ++k)
                ptr[k] = buf.data() + k * kPixels, stride[k] = kW;
        }
    };
    std::vector<uint8_t> inBuf, outBuf;
    uint8_t *in[4], *out[4];
    int inStride[4], outStride[4];
    planesOf(from, inBuf, in, inStride);
    planesOf(to, outBuf, out, outStride);
    for (auto _ : state) {
        sws_scale(ctx, in, inStride, 0, kH, out, outStride);
        benchmark::ClobberMemory();
    }
    sws_freeContext(ctx);
    Finish(state);
}
BENCHMARK_CAPTURE(BM_CscSwscale, BgraToYuva444p, AV_PIX_FMT_BGRA, AV_PIX_FMT_YUVA444P)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_CscSwscale, Yuva444pToBgra, AV_PIX_FMT_YUVA444P, AV_PIX_FMT_BGRA)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_CscSwscale, BgraToUyvy, AV_PIX_FMT_BGRA, AV_PIX_FMT_UYVY422)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_CscSwscale, UyvyToBgra, AV_PIX_FMT_UYVY422, AV_PIX_FMT_BGRA)
    ->Unit(benchmark::kMicrosecond);
#endif

// ---- Accuracy against the exact formulas.

struct Matrix {
    double kr, kb;
};
constexpr Matrix k601{0.299, 0.114}, k709{0.2126, 0.0722};

// Exact limited-range YCbCr of B, G, R.
void ExactForward(const Matrix& m, double b, double g, double r, double out[3]) {
    const double y = m.kr * r + (1 - m.kr - m.kb) * g + m.kb * b; // 0..255
    out[0] = 16 + 219.0 / 255 * y;
    out[1] = 128 + 224.0 / 255 * (b - y) / (2 * (1 - m.kb));
    out[2] = 128 + 224.0 / 255 * (r - y) / (2 * (1 - m.kr));
}

// Exact B, G, R of limited-range Y, Cb, Cr, clamped to 0..255.
void ExactInverse(const Matrix& m, double y, double u, double v, double out[3]) {
    const double l = (y - 16) * 255 / 219, cb = (u - 128) * 255 / 224, cr = (v - 128) * 255 / 224;
    const double r = l + 2 * (1 - m.kr) * cr;
    const double b = l + 2 * (1 - m.kb) * cb;
    const double g = (l - m.kr * r - m.kb * b) / (1 - m.kr - m.kb);
    const double c[3] = {b, g, r};
    for (int k = 0; k < 3; ++k)
        out[k] = std::min(255.0, std::max(0.0, c[k]));
}

// Errors of `got` (component k at byte k of `stride`-byte pixels) against `exact`.
void Report(benchmark::State& state, const std::vector<double>& exact, const uint8_t* got,
            int stride, const int order[3]) {
    static const char* const kName[3] = {"0", "1", "2"};
    for (int k = 0; k < 3; ++k) {
        double worst = 0, sum = 0;
        for (size_t i = 0; i < kPixels; ++i) {
            const double e = std::fabs(got[i * stride + order[k]] - exact[3 * i + k]);
            worst = std::max(worst, e);
            sum += e;
        }
        state.counters[std::string("max") + kName[k]] = worst;
        state.counters[std::string("mean") + kName[k]] = sum / double(kPixels);
    }
}

enum Who { kKelp, kLibyuv };

// Forward: components Y, Cb, Cr. Inverse: B, G, R.
void BM_CscAccuracy(benchmark::State& state, bool forward, int space, Who who) {
    const Matrix& m = space == 2 ? k709 : k601;
    const std::vector<uint8_t> bgra = Noise(kPixels * 4, 1), yuv = LegalYuv(2);
    std::vector<double> exact(kPixels * 3);
    for (size_t i = 0; i < kPixels; ++i) {
        const uint8_t* p = forward ? &bgra[4 * i] : &yuv[4 * i];
        (forward ? ExactForward : ExactInverse)(m, p[0], p[1], p[2], &exact[3 * i]);
    }
    std::vector<uint8_t> out(kPixels * 4);
    const int meshed[3] = {0, 1, 2};
    for (auto _ : state) {
        if (who == kKelp) {
            CKXCsc c;
            c.Init(CKXCsc::ColorSpace(space));
            if (forward)
                c.BGRToYUV444Meshed(bgra.data(), out.data(), kW, kH, 4, kW * 4);
            else
                c.YUV444MeshedToBGR(yuv.data(), out.data(), kW, kH, 4, kW * 4);
        }
#if defined(KELP_BENCH_LIBYUV)
        if (who == kLibyuv) {
            std::vector<uint8_t> y(kPixels), u(kPixels), v(kPixels);
            if (forward) {
                libyuv::ARGBToI444(bgra.data(), kW * 4, y.data(), kW, u.data(), kW, v.data(), kW,
                                   kW, kH);
                for (size_t i = 0; i < kPixels; ++i)
                    out[4 * i] = y[i], out[4 * i + 1] = u[i], out[4 * i + 2] = v[i];
            } else {
                for (size_t i = 0; i < kPixels; ++i)
                    y[i] = yuv[4 * i], u[i] = yuv[4 * i + 1], v[i] = yuv[4 * i + 2];
                libyuv::I444ToARGBMatrix(
                    y.data(), kW, u.data(), kW, v.data(), kW, out.data(), kW * 4,
                    space == 2 ? &libyuv::kYuvH709Constants : &libyuv::kYuvI601Constants, kW, kH);
            }
        }
#endif
    }
    Report(state, exact, out.data(), 4, meshed);
}
BENCHMARK_CAPTURE(BM_CscAccuracy, Forward601Kelp, true, 0, kKelp)->Iterations(1);
BENCHMARK_CAPTURE(BM_CscAccuracy, Forward709Kelp, true, 2, kKelp)->Iterations(1);
BENCHMARK_CAPTURE(BM_CscAccuracy, Inverse601Kelp, false, 0, kKelp)->Iterations(1);
BENCHMARK_CAPTURE(BM_CscAccuracy, Inverse709Kelp, false, 2, kKelp)->Iterations(1);
#if defined(KELP_BENCH_LIBYUV)
BENCHMARK_CAPTURE(BM_CscAccuracy, Forward601Libyuv, true, 0, kLibyuv)->Iterations(1);
BENCHMARK_CAPTURE(BM_CscAccuracy, Inverse601Libyuv, false, 0, kLibyuv)->Iterations(1);
BENCHMARK_CAPTURE(BM_CscAccuracy, Inverse709Libyuv, false, 2, kLibyuv)->Iterations(1);
#endif

} // namespace
