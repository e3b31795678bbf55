// The compositor at 1920 x 1080, premultiplied BGRA with random alpha, beside pixman
// (its OVER and its separable and HSL blend operators, and ADD) and libyuv (ARGBBlend,
// ARGBMultiply, ARGBAdd) on the same pixels; and the dissolves BlendTwo and BlendThree in
// RGB and 4:2:2. Each kelp case takes a vector target as its argument (plain 0, ssse3 1,
// sse4 2, avx2 3, avx3 4). The counters "maxdiff" and "off%" of the peers' OVER say how
// far their result is from the exact OVER (mode 1): the largest byte difference and the
// share of bytes that differ. The figures of docs/PERFORMANCE.md come from
//   build/bench/kelp_bench --benchmark_filter='Compose' --benchmark_min_time=0.2
//       --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <vector>

#include <kelp/stdfx.h>

#include "runtime/cpuflags.h"
#include "stdfx/composerows.h"

#if __has_include(<pixman.h>) && defined(KELP_BENCH_PIXMAN)
#include <pixman.h>
#define KELP_HAVE_PIXMAN 1
#endif
#if defined(KELP_BENCH_LIBYUV)
#include <libyuv/planar_functions.h>
#endif

namespace {

// Frame buffers start on 64 bytes, as the pixels of a CDIB do.
template <class T> struct Aligned64 {
    typedef T value_type;
    Aligned64() = default;
    template <class U> Aligned64(const Aligned64<U>&) {}
    T* allocate(size_t n) {
        return static_cast<T*>(::operator new(n * sizeof(T), std::align_val_t(64)));
    }
    void deallocate(T* p, size_t) { ::operator delete(p, std::align_val_t(64)); }
    template <class U> bool operator==(const Aligned64<U>&) const { return true; }
    template <class U> bool operator!=(const Aligned64<U>&) const { return false; }
};
typedef std::vector<uint8_t, Aligned64<uint8_t>> Frame;

constexpr int32_t kW = 1920, kH = 1080;
constexpr size_t kBytes = size_t(kW) * kH * 4;

// Premultiplied pixels: random alpha, each colour byte at most its alpha.
Frame Pixels(unsigned seed) {
    std::mt19937 rng(seed);
    Frame p(kBytes);
    for (size_t i = 0; i < kBytes; i += 4) {
        const uint32_t a = rng() & 255;
        for (int c = 0; c < 3; ++c)
            p[i + c] = uint8_t(a ? rng() % (a + 1) : 0);
        p[i + 3] = uint8_t(a);
    }
    return p;
}

const Frame& Dst() {
    static const Frame p = Pixels(1);
    return p;
}
const Frame& Src() {
    static const Frame p = Pixels(2);
    return p;
}

bool Skip(benchmark::State& state, int target) {
    if (kelp::SimdTargetsAvailable() & kelp::SimdBit(target)) return false;
    state.SkipWithError("target not available on this processor");
    return true;
}

void Rate(benchmark::State& state) {
    state.SetItemsProcessed(int64_t(state.iterations()) * kW * kH);
}

// One blend mode over the whole frame, in place.
void KelpMode(benchmark::State& state, int mode) {
    const int target = int(state.range(0));
    if (Skip(state, target)) return;
    const stdfx::composerows::Kernels& k = stdfx::composerows::ForTarget(target);
    stdfx::CHSL hsl;
    const stdfx::compose::Tables t = {stdfx::GetTables()->GetDiv24(),
                                      stdfx::GetTables()->GetExpandY(),
                                      stdfx::GetRGB2YUV()->GetTable(0),
                                      stdfx::GetYUV2RGB()->GetTable(0),
                                      &hsl,
                                      mode,
                                      stdfx::GetTables()->GetRecip()};
    Frame dst = Dst();
    const Frame& src = Src();
    for (auto _ : state) {
        for (int y = 0; y < kH; ++y)
            k.blend[mode](dst.data() + size_t(y) * kW * 4, src.data() + size_t(y) * kW * 4, kW, t);
        benchmark::ClobberMemory();
    }
    state.SetLabel(kelp::SimdTargetName(target));
    Rate(state);
}

// The exact OVER of the two frames.
Frame ExactOver() {
    Frame d = Dst();
    const stdfx::compose::Tables none = {};
    stdfx::composerows::PlainKernels().blend[1](d.data(), Src().data(), kW * kH, none);
    return d;
}

void Distance(benchmark::State& state, const Frame& got) {
    static const Frame exact = ExactOver();
    int maxDiff = 0;
    size_t off = 0;
    for (size_t i = 0; i < kBytes; ++i) {
        const int d = std::abs(int(got[i]) - int(exact[i]));
        maxDiff = std::max(maxDiff, d);
        off += d != 0;
    }
    state.counters["maxdiff"] = maxDiff;
    state.counters["off%"] = 100.0 * double(off) / double(kBytes);
}

#if KELP_HAVE_PIXMAN
void Pixman(benchmark::State& state, pixman_op_t op) {
    Frame dst = Dst(), src = Src();
    pixman_image_t* d = pixman_image_create_bits(PIXMAN_a8r8g8b8, kW, kH,
                                                 reinterpret_cast<uint32_t*>(dst.data()), kW * 4);
    pixman_image_t* s = pixman_image_create_bits(PIXMAN_a8r8g8b8, kW, kH,
                                                 reinterpret_cast<uint32_t*>(src.data()), kW * 4);
    if (op == PIXMAN_OP_OVER) {
        pixman_image_composite32(op, s, nullptr, d, 0, 0, 0, 0, 0, 0, kW, kH);
        Distance(state, dst);
        dst = Dst();
    }
    for (auto _ : state) {
        pixman_image_composite32(op, s, nullptr, d, 0, 0, 0, 0, 0, 0, kW, kH);
        benchmark::ClobberMemory();
    }
    pixman_image_unref(d);
    pixman_image_unref(s);
    state.SetLabel("pixman");
    Rate(state);
}
#endif

#if defined(KELP_BENCH_LIBYUV)
// 0 ARGBBlend (source over destination), 1 ARGBMultiply, 2 ARGBAdd.
void Libyuv(benchmark::State& state, int which) {
    Frame dst = Dst();
    const Frame& src = Src();
    auto run = [&] {
        const int s = kW * 4;
        if (which == 0)
            libyuv::ARGBBlend(src.data(), s, dst.data(), s, dst.data(), s, kW, kH);
        else if (which == 1)
            libyuv::ARGBMultiply(src.data(), s, dst.data(), s, dst.data(), s, kW, kH);
        else
            libyuv::ARGBAdd(src.data(), s, dst.data(), s, dst.data(), s, kW, kH);
    };
    if (which == 0) {
        run();
        Distance(state, dst);
        dst = Dst();
    }
    for (auto _ : state) {
        run();
        benchmark::ClobberMemory();
    }
    state.SetLabel("libyuv");
    Rate(state);
}
#endif

// The dissolves: 0 BlendTwo RGB, 1 BlendThree RGB, 2 BlendTwo 4:2:2 (rows of 2 bytes a
// pixel; the alpha plane is a BlendTwo of its bytes, timed in the RGB case), 3 BlendTwo
// 4:4:4, 4 BlendThree 4:4:4, 5 BlendThree 4:2:2 (rows of 2 bytes a pixel and their alpha
// planes, the pixels' bytes standing in for them).
void KelpDissolve(benchmark::State& state, int which) {
    const int target = int(state.range(0));
    if (Skip(state, target)) return;
    const stdfx::composerows::Kernels& k = stdfx::composerows::ForTarget(target);
    Frame dst(kBytes);
    const Frame& a = Src();
    const Frame& b = Dst();
    for (auto _ : state) {
        for (int y = 0; y < kH; ++y) {
            const size_t row = size_t(y) * kW * 4;
            if (which == 0)
                k.scale(dst.data() + row, a.data() + row, kW * 4, 150);
            else if (which == 1)
                k.mix(dst.data() + row, a.data() + row, b.data() + row, kW, 150);
            else if (which == 2)
                k.scale422(dst.data() + row / 2, a.data() + row / 2, kW * 2, 150, 16, 0);
            else if (which == 3)
                k.scale444(dst.data() + row, a.data() + row, kW, 150, 16);
            else if (which == 4)
                k.mix444(dst.data() + row, a.data() + row, b.data() + row, kW, 150, 16);
            else
                k.mix422(dst.data() + row / 2, dst.data() + kBytes / 2 + size_t(y) * kW,
                         a.data() + row / 2, a.data() + kBytes / 2 + size_t(y) * kW,
                         b.data() + row / 2, b.data() + kBytes / 2 + size_t(y) * kW, kW, 150, 16,
                         0);
        }
        benchmark::ClobberMemory();
    }
    state.SetLabel(kelp::SimdTargetName(target));
    Rate(state);
}

struct Peer {
    int mode;
    const char* name;
#if KELP_HAVE_PIXMAN
    pixman_op_t op;
#endif
};

#if KELP_HAVE_PIXMAN
#define PEER(mode, name, op)                                                                       \
    { mode, name, op }
#else
#define PEER(mode, name, op)                                                                       \
    { mode, name }
#endif

const Peer kPeers[] = {
    PEER(1, "Over", PIXMAN_OP_OVER),
    PEER(2, "Add", PIXMAN_OP_ADD),
    PEER(4, "Multiply", PIXMAN_OP_MULTIPLY),
    PEER(5, "Screen", PIXMAN_OP_SCREEN),
    PEER(6, "Overlay", PIXMAN_OP_OVERLAY),
    PEER(9, "Darken", PIXMAN_OP_DARKEN),
    PEER(10, "Lighten", PIXMAN_OP_LIGHTEN),
    PEER(11, "Difference", PIXMAN_OP_DIFFERENCE),
    PEER(12, "Exclusion", PIXMAN_OP_EXCLUSION),
    PEER(13, "Saturation", PIXMAN_OP_HSL_SATURATION),
    PEER(14, "Hue", PIXMAN_OP_HSL_HUE),
    PEER(15, "Luminosity", PIXMAN_OP_HSL_LUMINOSITY),
    PEER(16, "Colour", PIXMAN_OP_HSL_COLOR),
};

int Register() {
    for (const Peer& p : kPeers) {
        const std::string base = std::string("Compose") + p.name;
        const int mode = p.mode;
        benchmark::RegisterBenchmark((base + "/kelp").c_str(),
                                     [mode](benchmark::State& s) { KelpMode(s, mode); })
            ->DenseRange(0, kelp::kSimdTargetCount - 1)
            ->Unit(benchmark::kMillisecond);
#if KELP_HAVE_PIXMAN
        const pixman_op_t op = p.op;
        benchmark::RegisterBenchmark((base + "/pixman").c_str(), [op](benchmark::State& s) {
            Pixman(s, op);
        })->Unit(benchmark::kMillisecond);
#endif
    }
    for (int m : {3, 7, 8, 17, 18, 19, 20})
        benchmark::RegisterBenchmark(("ComposeMode" + std::to_string(m) + "/kelp").c_str(),
                                     [m](benchmark::State& s) { KelpMode(s, m); })
            ->DenseRange(0, kelp::kSimdTargetCount - 1)
            ->Unit(benchmark::kMillisecond);
#if defined(KELP_BENCH_LIBYUV)
    const char* names[] = {"ComposeOver/libyuv-ARGBBlend", "ComposeMultiply/libyuv-ARGBMultiply",
                           "ComposeAdd/libyuv-ARGBAdd"};
    for (int i = 0; i < 3; ++i)
        benchmark::RegisterBenchmark(names[i], [i](benchmark::State& s) {
            Libyuv(s, i);
        })->Unit(benchmark::kMillisecond);
#endif
    const char* dissolves[] = {"ComposeBlendTwoRGB/kelp",   "ComposeBlendThreeRGB/kelp",
                               "ComposeBlendTwo422/kelp",   "ComposeBlendTwo444/kelp",
                               "ComposeBlendThree444/kelp", "ComposeBlendThree422/kelp"};
    for (int i = 0; i < 6; ++i)
        benchmark::RegisterBenchmark(dissolves[i], [i](benchmark::State& s) { KelpDissolve(s, i); })
            ->DenseRange(0, kelp::kSimdTargetCount - 1)
            ->Unit(benchmark::kMillisecond);
    return 0;
}

const int g_registered = Register();

} // namespace
