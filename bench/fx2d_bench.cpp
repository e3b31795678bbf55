// The 2-D transform beside common scalers, 32-bit BGRA, in one run: libyuv's ARGBScale
// (box, bilinear and unfiltered), libswscale (bicubic and spline) and pixman (separable
// convolution). The picture is the project's generated test picture at 1920x1080.
//
// Jobs: 1920x1080 to 960x540 (down) and to 3840x2160 (up), in the transform's fast
// filter and soft modes and through each peer; 1920x1080 to 3840x2160 unfiltered; and the
// effect itself, a 0.6 scale moved off centre at 30 % transparency over a 1080p
// background.
//
// Counter psnr_db (downscales): the result against a double-precision resampling with the
// same kernel placed the same way, over the picture without an 8-pixel border (edges are
// handled differently by each scaler and are not what is compared). The transform meets
// the last source pixel with the last target pixel; the peers place pixel centres at
// (i + 0.5) / scale - 0.5. Kernels: the transform's cubic B-spline and soft cubic,
// stretched by 1 / scale; libyuv's box (area average) and its bilinear (a triangle of
// one pixel, as libyuv applies it); swscale's bicubic (B = 0, C = 0.6, its default) and
// its cardinal cubic spline, stretched; pixman's Mitchell-Netravali cubic convolved with
// a box of 1 / scale.
#include <benchmark/benchmark.h>

#include <kelp/stdfx2d.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "runtime/kelpos.h"
#include "tools/testpicture.h"

#if defined(KELP_BENCH_LIBYUV)
#include <libyuv/scale_argb.h>
#endif
#if defined(KELP_BENCH_SWSCALE)
extern "C" {
#include <libswscale/swscale.h>
}
#endif
#if defined(KELP_BENCH_PIXMAN)
#include <pixman.h>
#endif

namespace {

constexpr int kSrcW = 1920, kSrcH = 1080;
constexpr int kDownW = 960, kDownH = 540;
constexpr int kUpW = 3840, kUpH = 2160;
constexpr int kBorder = 8; // pixels of each edge left out of the PSNR

// BGRA, rows top-down without padding.
struct Bgra {
    int width = 0, height = 0;
    std::vector<uint8_t> px;
    Bgra() = default;
    Bgra(int w, int h) : width(w), height(h), px(size_t(w) * size_t(h) * 4) {}
    int Stride() const { return width * 4; }
};

Bgra FromPicture(const testpic::Picture& p, bool mirror) {
    Bgra b(p.width, p.height);
    for (int y = 0; y < p.height; ++y)
        for (int x = 0; x < p.width; ++x) {
            const int sx = mirror ? p.width - 1 - x : x;
            const uint8_t* s = &p.bgr[(size_t(y) * size_t(p.width) + size_t(sx)) * 3];
            uint8_t* d = &b.px[(size_t(y) * size_t(p.width) + size_t(x)) * 4];
            d[0] = s[0];
            d[1] = s[1];
            d[2] = s[2];
            d[3] = 255;
        }
    return b;
}

const Bgra& Source() {
    static const Bgra s = FromPicture(testpic::GenerateTestPicture(kSrcW, kSrcH), false);
    return s;
}
const Bgra& Background() {
    static const Bgra s = FromPicture(testpic::GenerateTestPicture(kSrcW, kSrcH), true);
    return s;
}

double Least(const std::vector<double>& v) {
    return *std::min_element(v.begin(), v.end());
}

// ---------------------------------------------------------------- double-precision reference

using Kernel = std::function<double(double)>;

double BSpline(double x) {
    const double t = std::fabs(x);
    if (t < 1) return t * (0.5 * t * t - t) + 2.0 / 3.0;
    if (t < 2) return (2 - t) * (2 - t) * (2 - t) / 6.0;
    return 0;
}
double SoftCubic(double x) {
    const double t = std::fabs(x);
    if (t < 1) return t * ((0.5 * t - 1) * t + 1.0 / 14.0) + 13.0 / 21.0;
    if (t < 2) return t * ((1 - t / 6.0) * t - 85.0 / 42.0) + 29.0 / 21.0;
    return 0;
}
double BoxKernel(double x) {
    return x > -0.5 && x <= 0.5 ? 1.0 : 0.0;
}
double Triangle(double x) {
    const double t = std::fabs(x);
    return t < 1 ? 1 - t : 0;
}
// The cubic family of Mitchell and Netravali.
double GeneralCubic(double x, double b, double c) {
    const double t = std::fabs(x);
    if (t < 1)
        return ((12 - 9 * b - 6 * c) * t * t * t + (-18 + 12 * b + 6 * c) * t * t + (6 - 2 * b)) /
               6;
    if (t < 2)
        return ((-b - 6 * c) * t * t * t + (6 * b + 30 * c) * t * t + (-12 * b - 48 * c) * t +
                (8 * b + 24 * c)) /
               6;
    return 0;
}
// The interpolating cubic spline: a cubic on each unit piece, continuous in its first two
// derivatives, 1 at 0 and 0 at every other whole number; it decays by 2 - sqrt 3 a piece.
double SplinePiece(double a, double b, double c, double d, double t) {
    if (t <= 1) return a + t * (b + t * (c + t * d));
    return SplinePiece(0, b + 2 * c + 3 * d, c + 3 * d, -b - 3 * c - 6 * d, t - 1);
}
double CardinalSpline(double x) {
    const double p = -2.196152422706632;
    const double t = std::fabs(x);
    return t < 10 ? SplinePiece(1, 0, p, -p - 1, t) : 0;
}
// A Mitchell-Netravali cubic convolved with a box `width` wide, by Simpson's rule.
Kernel CubicTimesBox(double width) {
    return [width](double x) {
        const int n = 64;
        const double h = width / n;
        double sum = 0;
        for (int i = 0; i <= n; ++i) {
            const double t = -width / 2 + i * h;
            const double w = (i == 0 || i == n) ? 1 : (i % 2 ? 4 : 2);
            sum += w * GeneralCubic(x - t, 1.0 / 3, 1.0 / 3);
        }
        return sum * h / 3;
    };
}

// How a resampling is placed and how wide its kernel is.
struct RefScaler {
    Kernel kernel;
    double radius; // of the kernel in its own units
    bool stretch;  // kernel argument scaled by the scale (wider kernel when shrinking)
    bool endToEnd; // the first and last pixels meet; otherwise pixel centres line up
};

// The weights of one axis: for each target index, source indices and weights summing to 1.
struct Taps {
    std::vector<std::vector<std::pair<int, double>>> list;
};

Taps AxisTaps(const RefScaler& scaler, int srcLen, int dstLen) {
    const double s = double(dstLen) / srcLen;
    const double argscale = scaler.stretch && s < 1 ? s : 1.0;
    const double support = scaler.radius / argscale;
    Taps t;
    t.list.resize(size_t(dstLen));
    for (int i = 0; i < dstLen; ++i) {
        const double pos =
            scaler.endToEnd ? i * double(srcLen - 1) / (dstLen - 1) : (i + 0.5) / s - 0.5;
        double sum = 0;
        std::vector<std::pair<int, double>> taps;
        for (int j = int(std::ceil(pos - support)); j <= int(std::floor(pos + support)); ++j) {
            const double w = scaler.kernel((pos - j) * argscale);
            if (w == 0) continue;
            int m = j < 0 ? -1 - j : (j >= srcLen ? 2 * srcLen - j - 1 : j); // mirrored
            m = std::min(std::max(m, 0), srcLen - 1);
            taps.emplace_back(m, w);
            sum += w;
        }
        for (auto& tap : taps)
            tap.second /= sum;
        t.list[size_t(i)] = taps;
    }
    return t;
}

Bgra Reference(const Bgra& src, int dw, int dh, const RefScaler& scaler) {
    const Taps cols = AxisTaps(scaler, src.width, dw), rows = AxisTaps(scaler, src.height, dh);
    std::vector<double> mid(size_t(src.width) * size_t(dh) * 3);
    for (int y = 0; y < dh; ++y)
        for (int x = 0; x < src.width; ++x)
            for (int c = 0; c < 3; ++c) {
                double v = 0;
                for (const auto& tap : rows.list[size_t(y)])
                    v += tap.second * src.px[(size_t(tap.first) * src.width + x) * 4 + c];
                mid[(size_t(y) * src.width + x) * 3 + c] = v;
            }
    Bgra out(dw, dh);
    for (int y = 0; y < dh; ++y)
        for (int x = 0; x < dw; ++x)
            for (int c = 0; c < 4; ++c) {
                if (c == 3) {
                    out.px[(size_t(y) * dw + x) * 4 + 3] = 255;
                    continue;
                }
                double v = 0;
                for (const auto& tap : cols.list[size_t(x)])
                    v += tap.second * mid[(size_t(y) * src.width + tap.first) * 3 + c];
                out.px[(size_t(y) * dw + x) * 4 + c] =
                    uint8_t(std::min(255.0, std::max(0.0, std::floor(v + 0.5))));
            }
    return out;
}

// The references are made once each, by name.
const Bgra& CachedReference(const std::string& name, const RefScaler& scaler) {
    static std::map<std::string, Bgra> cache;
    auto it = cache.find(name);
    if (it == cache.end())
        it = cache.emplace(name, Reference(Source(), kDownW, kDownH, scaler)).first;
    return it->second;
}

double Psnr(const Bgra& a, const Bgra& b) {
    double sum = 0;
    size_t n = 0;
    for (int y = kBorder; y < a.height - kBorder; ++y)
        for (int x = kBorder; x < a.width - kBorder; ++x)
            for (int c = 0; c < 3; ++c) {
                const double e = double(a.px[(size_t(y) * a.width + x) * 4 + c]) -
                                 double(b.px[(size_t(y) * b.width + x) * 4 + c]);
                sum += e * e;
                ++n;
            }
    if (sum == 0) return 99.0;
    return 10.0 * std::log10(255.0 * 255.0 / (sum / double(n)));
}

void ReportQuality(benchmark::State& state, const Bgra& out, const char* refName,
                   const RefScaler& scaler) {
    if (out.width != kDownW) return;
    state.counters["psnr_db"] = Psnr(out, CachedReference(refName, scaler));
}

// ---------------------------------------------------------------- the transform

KXBMINFOHEADER Record(int w, int h) {
    // Top-down, like the peers' buffers.
    KXBMINFOHEADER d = testpic::DibRecord(w, h, 32, true);
    d.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
    return d;
}

enum class Job { kDown, kUp, kEffect };

void BM_Fx2d(benchmark::State& state, Job job, int mode) {
    const Bgra& src = Source();
    const int dw = job == Job::kDown ? kDownW : job == Job::kUp ? kUpW : kSrcW;
    const int dh = job == Job::kDown ? kDownH : job == Job::kUp ? kUpH : kSrcH;
    Bgra out(dw, dh);
    Bgra bg = Background();
    KXBMINFOHEADER srcRec = Record(kSrcW, kSrcH), dstRec = Record(dw, dh),
                   bgRec = Record(kSrcW, kSrcH);
    stdfx2d::FX2DPARAM param = {};
    param.size = sizeof param;
    param.scaleX = double(dw) / kSrcW;
    param.scaleY = double(dh) / kSrcH;
    if (job == Job::kEffect) {
        param.scaleX = param.scaleY = 0.6;
        param.offsetX = 0.15;
        param.offsetY = 0.1;
        param.transparency = 30;
    }
    void* srcBits = const_cast<uint8_t*>(src.px.data());
    int result = 0;
    for (auto _ : state) {
        result = job == Job::kEffect
                     ? stdfx2d::Fx2d(&dstRec, out.px.data(), &srcRec, srcBits, &bgRec, bg.px.data(),
                                     param, -1, mode)
                     : stdfx2d::Fx2d(&dstRec, out.px.data(), &srcRec, srcBits, param, -1, mode);
        benchmark::DoNotOptimize(out.px.data());
    }
    if (result != 0) {
        state.SkipWithError(("the transform answered " + std::to_string(result)).c_str());
        return;
    }
    if (job == Job::kDown) {
        if (mode == stdfx2d::FX2D_MODE_SOFT)
            ReportQuality(state, out, "soft", {SoftCubic, 2.0, true, true});
        else
            ReportQuality(state, out, "bspline", {BSpline, 2.0, true, true});
    }
    state.counters["mpix_s"] =
        benchmark::Counter(double(state.iterations()) * dw * dh / 1e6, benchmark::Counter::kIsRate);
}

#define FX2D_BENCH(name, job, mode)                                                                \
    BENCHMARK_CAPTURE(BM_Fx2d, name, job, mode)                                                    \
        ->Unit(benchmark::kMillisecond)                                                            \
        ->ComputeStatistics("min", Least)
FX2D_BENCH(down_filter, Job::kDown, stdfx2d::FX2D_MODE_FILTER);
FX2D_BENCH(down_soft, Job::kDown, stdfx2d::FX2D_MODE_SOFT);
FX2D_BENCH(up_filter, Job::kUp, stdfx2d::FX2D_MODE_FILTER);
FX2D_BENCH(up_soft, Job::kUp, stdfx2d::FX2D_MODE_SOFT);
FX2D_BENCH(up_nearest, Job::kUp, stdfx2d::FX2D_MODE_NEAREST);
FX2D_BENCH(effect_filter, Job::kEffect, stdfx2d::FX2D_MODE_FILTER);
FX2D_BENCH(effect_soft, Job::kEffect, stdfx2d::FX2D_MODE_SOFT);

// The same jobs into a target freshly mapped for each call, as a conversion stage's
// temporary is: the first writes of each page cost more than the resampling itself.
void BM_Fx2dFresh(benchmark::State& state, Job job, int mode) {
    const Bgra& src = Source();
    const int dw = job == Job::kDown ? kDownW : kUpW, dh = job == Job::kDown ? kDownH : kUpH;
    KXBMINFOHEADER srcRec = Record(kSrcW, kSrcH), dstRec = Record(dw, dh);
    stdfx2d::FX2DPARAM param = {};
    param.size = sizeof param;
    param.scaleX = double(dw) / kSrcW;
    param.scaleY = double(dh) / kSrcH;
    void* srcBits = const_cast<uint8_t*>(src.px.data());
    int result = 0;
    for (auto _ : state) {
        void* out = kelp::os::PageAlloc(size_t(dw) * size_t(dh) * 4);
        result = stdfx2d::Fx2d(&dstRec, out, &srcRec, srcBits, param, -1, mode);
        benchmark::DoNotOptimize(out);
        kelp::os::PageFree(out);
    }
    if (result != 0)
        state.SkipWithError(("the transform answered " + std::to_string(result)).c_str());
}
BENCHMARK_CAPTURE(BM_Fx2dFresh, down_filter, Job::kDown, stdfx2d::FX2D_MODE_FILTER)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
BENCHMARK_CAPTURE(BM_Fx2dFresh, up_nearest, Job::kUp, stdfx2d::FX2D_MODE_NEAREST)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);

void Rate(benchmark::State& state, int dw, int dh) {
    state.counters["mpix_s"] =
        benchmark::Counter(double(state.iterations()) * dw * dh / 1e6, benchmark::Counter::kIsRate);
}

// ---------------------------------------------------------------- libyuv

#if defined(KELP_BENCH_LIBYUV)
void BM_Libyuv(benchmark::State& state, bool down, libyuv::FilterMode filter) {
    const Bgra& src = Source();
    Bgra out(down ? kDownW : kUpW, down ? kDownH : kUpH);
    int result = 0;
    for (auto _ : state) {
        result = libyuv::ARGBScale(src.px.data(), src.Stride(), src.width, src.height,
                                   out.px.data(), out.Stride(), out.width, out.height, filter);
        benchmark::DoNotOptimize(out.px.data());
    }
    if (result != 0) {
        state.SkipWithError("ARGBScale failed");
        return;
    }
    if (filter == libyuv::kFilterBox)
        ReportQuality(state, out, "box", {BoxKernel, 0.5, true, false});
    else if (filter == libyuv::kFilterBilinear)
        ReportQuality(state, out, "triangle", {Triangle, 1.0, false, false});
    Rate(state, out.width, out.height);
}
#define LIBYUV_BENCH(name, down, filter)                                                           \
    BENCHMARK_CAPTURE(BM_Libyuv, name, down, filter)                                               \
        ->Unit(benchmark::kMillisecond)                                                            \
        ->ComputeStatistics("min", Least)
LIBYUV_BENCH(down_box, true, libyuv::kFilterBox);
LIBYUV_BENCH(down_bilinear, true, libyuv::kFilterBilinear);
LIBYUV_BENCH(up_box, false, libyuv::kFilterBox);
LIBYUV_BENCH(up_bilinear, false, libyuv::kFilterBilinear);
LIBYUV_BENCH(up_none, false, libyuv::kFilterNone);

// Into a freshly mapped target each call, beside BM_Fx2dFresh.
void BM_LibyuvFresh(benchmark::State& state, bool down, libyuv::FilterMode filter) {
    const Bgra& src = Source();
    const int dw = down ? kDownW : kUpW, dh = down ? kDownH : kUpH;
    for (auto _ : state) {
        auto* out = static_cast<uint8_t*>(kelp::os::PageAlloc(size_t(dw) * size_t(dh) * 4));
        libyuv::ARGBScale(src.px.data(), src.Stride(), src.width, src.height, out, dw * 4, dw, dh,
                          filter);
        benchmark::DoNotOptimize(out);
        kelp::os::PageFree(out);
    }
}
BENCHMARK_CAPTURE(BM_LibyuvFresh, down_bilinear, true, libyuv::kFilterBilinear)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
BENCHMARK_CAPTURE(BM_LibyuvFresh, up_none, false, libyuv::kFilterNone)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
#endif

// ---------------------------------------------------------------- libswscale

#if defined(KELP_BENCH_SWSCALE)
void BM_Swscale(benchmark::State& state, bool down, int method) {
    const Bgra& src = Source();
    Bgra out(down ? kDownW : kUpW, down ? kDownH : kUpH);
    // Full chroma in and out: RGB is scaled as RGB, without a subsampled detour.
    SwsContext* ctx = sws_getContext(
        src.width, src.height, AV_PIX_FMT_BGRA, out.width, out.height, AV_PIX_FMT_BGRA,
        method | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP, nullptr, nullptr, nullptr);
    if (!ctx) {
        state.SkipWithError("sws_getContext failed");
        return;
    }
    const uint8_t* in[4] = {src.px.data(), nullptr, nullptr, nullptr};
    const int inStride[4] = {src.Stride(), 0, 0, 0};
    uint8_t* dst[4] = {out.px.data(), nullptr, nullptr, nullptr};
    const int dstStride[4] = {out.Stride(), 0, 0, 0};
    for (auto _ : state) {
        sws_scale(ctx, in, inStride, 0, src.height, dst, dstStride);
        benchmark::DoNotOptimize(out.px.data());
    }
    sws_freeContext(ctx);
    if (method == SWS_BICUBIC)
        ReportQuality(state, out, "bicubic",
                      {[](double x) { return GeneralCubic(x, 0, 0.6); }, 2.0, true, false});
    else
        ReportQuality(state, out, "spline", {CardinalSpline, 10.0, true, false});
    Rate(state, out.width, out.height);
}
#define SWSCALE_BENCH(name, down, method)                                                          \
    BENCHMARK_CAPTURE(BM_Swscale, name, down, method)                                              \
        ->Unit(benchmark::kMillisecond)                                                            \
        ->ComputeStatistics("min", Least)
SWSCALE_BENCH(down_bicubic, true, SWS_BICUBIC);
SWSCALE_BENCH(down_spline, true, SWS_SPLINE);
SWSCALE_BENCH(up_bicubic, false, SWS_BICUBIC);
SWSCALE_BENCH(up_spline, false, SWS_SPLINE);
#endif

// ---------------------------------------------------------------- pixman

#if defined(KELP_BENCH_PIXMAN)
void BM_Pixman(benchmark::State& state, bool down) {
    const Bgra& src = Source();
    Bgra out(down ? kDownW : kUpW, down ? kDownH : kUpH);
    // a8r8g8b8 is B, G, R, A in memory on a little-endian machine.
    pixman_image_t* in = pixman_image_create_bits(
        PIXMAN_a8r8g8b8, src.width, src.height,
        reinterpret_cast<uint32_t*>(const_cast<uint8_t*>(src.px.data())), src.Stride());
    pixman_image_t* dst =
        pixman_image_create_bits(PIXMAN_a8r8g8b8, out.width, out.height,
                                 reinterpret_cast<uint32_t*>(out.px.data()), out.Stride());
    const double step = double(src.width) / out.width; // source pixels per target pixel
    pixman_transform_t t;
    pixman_transform_init_scale(&t, pixman_double_to_fixed(step), pixman_double_to_fixed(step));
    pixman_image_set_transform(in, &t);
    pixman_image_set_repeat(in, PIXMAN_REPEAT_PAD);
    // Shrinking: the cubic reconstruction sampled over a box of one target pixel;
    // enlarging: the cubic alone, sampled at each target pixel's centre.
    int n = 0;
    pixman_fixed_t* params = pixman_filter_create_separable_convolution(
        &n, pixman_double_to_fixed(down ? step : 1.0), pixman_double_to_fixed(down ? step : 1.0),
        PIXMAN_KERNEL_CUBIC, PIXMAN_KERNEL_CUBIC, down ? PIXMAN_KERNEL_BOX : PIXMAN_KERNEL_IMPULSE,
        down ? PIXMAN_KERNEL_BOX : PIXMAN_KERNEL_IMPULSE, 4, 4);
    pixman_image_set_filter(in, PIXMAN_FILTER_SEPARABLE_CONVOLUTION, params, n);
    std::free(params);
    for (auto _ : state) {
        pixman_image_composite32(PIXMAN_OP_SRC, in, nullptr, dst, 0, 0, 0, 0, 0, 0, out.width,
                                 out.height);
        benchmark::DoNotOptimize(out.px.data());
    }
    pixman_image_unref(in);
    pixman_image_unref(dst);
    ReportQuality(state, out, "cubic_box", {CubicTimesBox(step), 3.0, false, false});
    Rate(state, out.width, out.height);
}
BENCHMARK_CAPTURE(BM_Pixman, down_separable, true)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
BENCHMARK_CAPTURE(BM_Pixman, up_separable, false)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
#endif

} // namespace
