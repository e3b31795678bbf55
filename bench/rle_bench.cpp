// Run-length mattes at 1920 x 1080: the encoder (per vector target of its run scan) and
// the decoder on a typical matte, beside zlib at level 1 on the same bytes. The counter
// "ratio" is the packed size over the matte's. The figures of docs/PERFORMANCE.md come
// from
//   build/bench/kelp_bench --benchmark_filter='Rle|MatteZlib' --benchmark_min_time=0.2
//       --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
// reading the rows "_min".
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <vector>

#include <kelp/stdfx.h>

#include "runtime/cpuflags.h"

#if defined(KELP_BENCH_ZLIB)
#include <zlib.h>
#endif

namespace {

using stdfx::CDibRLE;

constexpr int kW = 1920, kH = 1080;

// A keyed subject: a soft-edged body and head over a clear background, a semi-clear
// band (a shadow) and a few anti-aliased strands of hair.
const std::vector<uint8_t>& Matte() {
    static const std::vector<uint8_t> m = [] {
        std::vector<uint8_t> v(size_t(kW) * kH, 0);
        auto soft = [](double d) { // distance inside the edge, in pixels
            return d >= 1.5 ? 255 : d <= -1.5 ? 0 : int(255 * (d + 1.5) / 3);
        };
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x) {
                const double body = 1 - std::hypot((x - 960) / 420.0, (y - 1000) / 520.0);
                const double head = 1 - std::hypot((x - 960) / 170.0, (y - 380) / 210.0);
                int a = std::max(soft(body * 420), soft(head * 170));
                if (y > 980 && y < 1040 && x > 300 && x < 1620) a = std::max(a, 96);
                for (int s = 0; s < 12; ++s) { // strands
                    const double cx = 830 + 22 * s + 40 * std::sin(y / 37.0 + s);
                    if (y > 160 && y < 420 && std::fabs(x - cx) < 1.2)
                        a = std::max(a, int(255 * (1.2 - std::fabs(x - cx)) / 1.2));
                }
                v[size_t(y) * kW + x] = uint8_t(a);
            }
        return v;
    }();
    return m;
}

std::vector<uint8_t> EncodedMatte() {
    const std::vector<uint8_t>& m = Matte();
    std::vector<uint8_t> s(m.size() + CDibRLE::kEncodeSlack);
    uint32_t size = 0;
    CDibRLE rle;
    rle.Encode(s.data(), &size, m.data(), uint32_t(m.size()));
    s.resize(size);
    return s;
}

void BM_RleEncode(benchmark::State& state) {
    const int target = int(state.range(0));
    if (!(kelp::SimdTargetsAvailable() & kelp::SimdBit(target))) {
        state.SkipWithError("target not available");
        return;
    }
    const uint32_t old = kelp::MaskSimdTargets(kelp::SimdBit(target));
    const std::vector<uint8_t>& m = Matte();
    std::vector<uint8_t> s(m.size() + CDibRLE::kEncodeSlack);
    uint32_t size = 0;
    CDibRLE rle;
    for (auto _ : state) {
        rle.Encode(s.data(), &size, m.data(), uint32_t(m.size()));
        benchmark::DoNotOptimize(s.data());
    }
    kelp::MaskSimdTargets(old);
    state.SetLabel(kelp::SimdTargetName(target));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(m.size()));
    state.counters["ratio"] = double(size) / double(m.size());
}
BENCHMARK(BM_RleEncode)
    ->DenseRange(kelp::kSimdPlain, kelp::kSimdAVX3)
    ->Unit(benchmark::kMicrosecond);

void BM_RleDecode(benchmark::State& state) {
    const std::vector<uint8_t> s = EncodedMatte();
    std::vector<uint8_t> out(Matte().size());
    uint32_t size = 0;
    CDibRLE rle;
    for (auto _ : state) {
        rle.Decode(out.data(), &size, s.data());
        benchmark::DoNotOptimize(out.data());
    }
    if (size != out.size() || out != Matte()) state.SkipWithError("round trip differs");
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(out.size()));
    state.counters["ratio"] = double(s.size()) / double(out.size());
}
BENCHMARK(BM_RleDecode)->Unit(benchmark::kMicrosecond);

// The in-place compression of a matte image, its temporary included, and back.
void BM_RleImageRoundTrip(benchmark::State& state) {
    KXBMINFOHEADERYUV h;
    std::memset(&h, 0, sizeof h);
    h.bmi.biSize = KXBMI_SIZE;
    h.bmi.biWidth = kW;
    h.bmi.biHeight = kH;
    h.bmi.biPlanes = 1;
    h.bmi.biBitCount = 8;
    stdfx::CDIB dib(&h.bmi);
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(dib.Bits(), Matte().data(), Matte().size());
        dib.SetFormat(0, 0);
        state.ResumeTiming();
        dib.CompressAlpha();
        dib.DecompressAlpha();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(Matte().size()));
}
BENCHMARK(BM_RleImageRoundTrip)->Unit(benchmark::kMicrosecond);

#if defined(KELP_BENCH_ZLIB)
void BM_MatteZlibCompress(benchmark::State& state) {
    const std::vector<uint8_t>& m = Matte();
    std::vector<uint8_t> z(compressBound(uLong(m.size())));
    uLongf size = 0;
    for (auto _ : state) {
        size = uLongf(z.size());
        compress2(z.data(), &size, m.data(), uLong(m.size()), 1);
        benchmark::DoNotOptimize(z.data());
    }
    state.SetLabel("zlib level 1");
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(m.size()));
    state.counters["ratio"] = double(size) / double(m.size());
}
BENCHMARK(BM_MatteZlibCompress)->Unit(benchmark::kMicrosecond);

void BM_MatteZlibUncompress(benchmark::State& state) {
    const std::vector<uint8_t>& m = Matte();
    std::vector<uint8_t> z(compressBound(uLong(m.size())));
    uLongf zsize = uLongf(z.size());
    compress2(z.data(), &zsize, m.data(), uLong(m.size()), 1);
    std::vector<uint8_t> out(m.size());
    for (auto _ : state) {
        uLongf size = uLongf(out.size());
        uncompress(out.data(), &size, z.data(), zsize);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetLabel("zlib level 1");
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(m.size()));
    state.counters["ratio"] = double(zsize) / double(m.size());
}
BENCHMARK(BM_MatteZlibUncompress)->Unit(benchmark::kMicrosecond);
#endif

} // namespace
