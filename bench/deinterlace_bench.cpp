// The deinterlacers and the alpha multiplications of CDIB on 1920 x 1080 frames, RGB at
// 32 bits and "@YUV" 4:2:2 with its alpha plane, per vector target (the last argument,
// kelp::SimdTarget), beside the copy of the same frame and libyuv's ARGBAttenuate and
// ARGBUnattenuate.
//
// Targets: every single-frame method but the edge-directed one within twice the time of
// the copy of the frame; Premultiply and Unpremultiply no slower than libyuv.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include <kelp/kelp.h>

#include "runtime/cpuflags.h"
#include "stdfx/deinterlacerows.h"
#include "stdfx/premultiplyrows.h"

#if defined(KELP_BENCH_LIBYUV)
#include <libyuv/planar_functions.h>
#endif

namespace {

using stdfx::CDIB;

constexpr int kW = 1920, kH = 1080;

// Argument 0: the layout, 0 RGB 32, 1 "@YUV" 4:2:2 with alpha.
CDIB MakeFrame(int layout, uint32_t seed) {
    KXBMINFOHEADERYUV h = {};
    h.bmi.biSize = layout ? KXBMI_SIZE_YUV : KXBMI_SIZE;
    h.bmi.biWidth = kW;
    h.bmi.biHeight = -kH;
    h.bmi.biPlanes = 1;
    h.bmi.biBitCount = 32;
    h.bmi.bmiMagic = KXBMI_MAGIC;
    if (layout) {
        h.bmi.biCompression = KXBI_YUV;
        h.bmi.bmiExtOffset = KXBMI_EXTOFFSET;
        h.yuv.yuvBits = 8;
        h.yuv.yuvSampling = KXYUV_SAMPLING_422;
    }
    CDIB d(&h.bmi);
    std::mt19937 rng(seed);
    auto* p = static_cast<uint8_t*>(d.Bits());
    const uint32_t size = stdfx::DIBImageSize(d.Header());
    // Smooth areas with edges, as pictures have, so that the edge-directed search meets
    // both of its cases.
    uint8_t v = 128;
    for (uint32_t i = 0; i < size; ++i) {
        if (rng() % 61 == 0) v = uint8_t(rng());
        p[i] = uint8_t(v + (i & 3));
    }
    return d;
}

const char* LayoutName(int layout) {
    return layout ? "YUV422" : "RGB32";
}

// Allows only `target` (and the plain loop) while it lives; false if the processor lacks it.
class Target {
public:
    Target(benchmark::State& state, int target, int layout)
        : m_ok(kelp::SimdTargetsAvailable() & kelp::SimdBit(target)) {
        if (!m_ok) {
            state.SkipWithError("target not available on this processor");
            return;
        }
        m_old = kelp::MaskSimdTargets(kelp::SimdBit(target));
        state.SetLabel(std::string(LayoutName(layout)) + " " + kelp::SimdTargetName(target));
    }
    ~Target() {
        if (m_ok) kelp::MaskSimdTargets(m_old);
    }
    bool ok() const { return m_ok; }

private:
    bool m_ok;
    uint32_t m_old = 0;
};

void SetFrames(benchmark::State& state) {
    state.SetItemsProcessed(int64_t(state.iterations()));
}

double Least(const std::vector<double>& v) {
    double m = v.empty() ? 0 : v[0];
    for (double x : v)
        m = x < m ? x : m;
    return m;
}

// Arguments: layout, target.
void BM_FrameCopy(benchmark::State& state) {
    const int layout = int(state.range(0));
    Target t(state, int(state.range(1)), layout);
    if (!t.ok()) return;
    const CDIB src = MakeFrame(layout, 1);
    CDIB dst;
    dst.CopyFrom(src);
    for (auto _ : state) {
        dst.CopyBits(src);
        benchmark::ClobberMemory();
    }
    SetFrames(state);
}

// Arguments: layout, method (1 repeat, 2 average, 3 blend, 4 cubic, 5 edge), target.
void BM_Deinterlace(benchmark::State& state) {
    const int layout = int(state.range(0)), method = int(state.range(1));
    Target t(state, int(state.range(2)), layout);
    if (!t.ok()) return;
    const CDIB src = MakeFrame(layout, 2);
    CDIB dst;
    dst.CopyFrom(src);
    for (auto _ : state) {
        dst.Deinterlace(src, method, 0, -1);
        benchmark::ClobberMemory();
    }
    SetFrames(state);
}

// Arguments: layout, method (16 average, 17 median of three, 1 median of nine), target.
void BM_DeinterlaceTemporal(benchmark::State& state) {
    const int layout = int(state.range(0)), method = int(state.range(1));
    Target t(state, int(state.range(2)), layout);
    if (!t.ok()) return;
    const CDIB prev = MakeFrame(layout, 3), cur = MakeFrame(layout, 4), next = MakeFrame(layout, 5);
    CDIB dst;
    dst.CopyFrom(cur);
    for (auto _ : state) {
        dst.DeinterlaceTemporal(prev, cur, next, method, 0, -1);
        benchmark::ClobberMemory();
    }
    SetFrames(state);
}

// Arguments: layout, 0 Premultiply or 1 Unpremultiply, target. Each pass starts from the
// same pixels (a copy of the frame, not timed).
void BM_AlphaMultiply(benchmark::State& state) {
    const int layout = int(state.range(0));
    const bool un = state.range(1) != 0;
    Target t(state, int(state.range(2)), layout);
    if (!t.ok()) return;
    const CDIB src = MakeFrame(layout, 6);
    CDIB dst;
    dst.CopyFrom(src);
    for (auto _ : state) {
        state.PauseTiming();
        dst.CopyBits(src);
        state.ResumeTiming();
        if (un)
            dst.Unpremultiply(-1);
        else
            dst.Premultiply(-1);
        benchmark::ClobberMemory();
    }
    SetFrames(state);
}

void Targets(benchmark::internal::Benchmark* b, std::vector<std::vector<int64_t>> lists) {
    std::vector<int64_t> targets;
    for (int t = 0; t < kelp::kSimdTargetCount; ++t)
        targets.push_back(t);
    lists.push_back(targets);
    b->ArgsProduct(lists)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", Least);
}

BENCHMARK(BM_FrameCopy)->Apply([](auto* b) { Targets(b, {{0, 1}}); });
BENCHMARK(BM_Deinterlace)->Apply([](auto* b) { Targets(b, {{0, 1}, {1, 2, 3, 4, 5}}); });
BENCHMARK(BM_DeinterlaceTemporal)->Apply([](auto* b) { Targets(b, {{0, 1}, {16, 17, 1}}); });
BENCHMARK(BM_AlphaMultiply)->Apply([](auto* b) { Targets(b, {{0, 1}, {0, 1}}); });

// The row kernels alone on one line of a 1920-pixel RGB frame that stays in the cache:
// what each costs without the memory traffic of a frame. Arguments: kernel (0 average,
// 1 blend, 2 cubic), target.
void BM_DeinterlaceRow(benchmark::State& state) {
    const int kernel = int(state.range(0));
    Target t(state, int(state.range(1)), 0);
    if (!t.ok()) return;
    const stdfx::deinterlacerows::Kernels& k = stdfx::deinterlacerows::Current();
    constexpr int32_t n = 4 * kW;
    std::vector<uint8_t> rows(5 * size_t(n));
    std::mt19937 rng(7);
    for (auto& v : rows)
        v = uint8_t(rng());
    const uint8_t* r = rows.data();
    uint8_t* dst = rows.data() + 4 * n;
    for (auto _ : state) {
        if (kernel == 0)
            k.average(r, r + n, dst, n);
        else if (kernel == 1)
            k.blend(r, r + n, r + 2 * n, dst, n);
        else
            k.cubic(r, r + n, r + 2 * n, r + 3 * n, dst, n);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * n);
}
BENCHMARK(BM_DeinterlaceRow)->Apply([](auto* b) {
                                Targets(b, {{0, 1, 2}});
                            }) -> Unit(benchmark::kNanosecond);

// The alpha kernels on one line of 1920 pixels in the cache. Arguments: kernel
// (0 Premultiply, 1 Unpremultiply, 2 and 3 the same on a 4:2:2 line with its alpha
// line), target.
void BM_AlphaRow(benchmark::State& state) {
    const int kernel = int(state.range(0));
    Target t(state, int(state.range(1)), kernel >= 2);
    if (!t.ok()) return;
    const stdfx::premultiplyrows::Kernels& k = stdfx::premultiplyrows::Current();
    const int32_t* recip = stdfx::GetTables()->GetDiv24();
    std::vector<uint8_t> px(4 * size_t(kW)), alpha(kW);
    std::mt19937 rng(8);
    for (auto& v : px)
        v = uint8_t(rng());
    for (auto& v : alpha)
        v = uint8_t(rng());
    for (auto _ : state) {
        if (kernel == 0)
            k.premultiply(px.data(), kW);
        else if (kernel == 1)
            k.unpremultiply(px.data(), kW, recip);
        else if (kernel == 2)
            k.premultiply422(px.data(), alpha.data(), kW, false);
        else
            k.unpremultiply422(px.data(), alpha.data(), kW, false, recip);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kW);
}
BENCHMARK(BM_AlphaRow)->Apply([](auto* b) {
                          Targets(b, {{0, 1, 2, 3}});
                      }) -> Unit(benchmark::kNanosecond);

#if defined(KELP_BENCH_LIBYUV)
// libyuv on the RGB frame with the paths it finds on this processor; Argument: 0
// ARGBAttenuate, 1 ARGBUnattenuate. In place, as the library's own.
void BM_LibyuvAlphaMultiply(benchmark::State& state) {
    const CDIB src = MakeFrame(0, 6);
    CDIB dst;
    dst.CopyFrom(src);
    auto* p = static_cast<uint8_t*>(dst.Bits());
    const int stride = dst.Stride();
    state.SetLabel("RGB32 libyuv");
    for (auto _ : state) {
        state.PauseTiming();
        dst.CopyBits(src);
        state.ResumeTiming();
        if (state.range(0))
            libyuv::ARGBUnattenuate(p, stride, p, stride, kW, kH);
        else
            libyuv::ARGBAttenuate(p, stride, p, stride, kW, kH);
        benchmark::ClobberMemory();
    }
    SetFrames(state);
}
BENCHMARK(BM_LibyuvAlphaMultiply)
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->ComputeStatistics("min", Least);
// libyuv's kernels on the same line in the cache. Argument: 0 ARGBAttenuate, 1
// ARGBUnattenuate.
void BM_LibyuvAlphaRow(benchmark::State& state) {
    std::vector<uint8_t> px(4 * size_t(kW));
    std::mt19937 rng(8);
    for (auto& v : px)
        v = uint8_t(rng());
    uint8_t* p = px.data();
    state.SetLabel("RGB32 libyuv");
    for (auto _ : state) {
        if (state.range(0))
            libyuv::ARGBUnattenuate(p, 4 * kW, p, 4 * kW, kW, 1);
        else
            libyuv::ARGBAttenuate(p, 4 * kW, p, 4 * kW, kW, 1);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kW);
}
BENCHMARK(BM_LibyuvAlphaRow)->Arg(0)->Arg(1)->ComputeStatistics("min", Least);
#endif

} // namespace
