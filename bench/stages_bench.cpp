// The geometry stages beside libyuv and libswscale: 24-bit 1920x1080 to 1280x720 by the
// bilinear and the nearest-neighbour scaler, a 24-bit deinterlace of 1080i, and a whole
// chain through the manager (32-bit RGB 1080p to "@YUV" 709 at 960x540) against the same
// two steps done by libyuv (scale) and libswscale (colour).
#include <benchmark/benchmark.h>

#include <kelp/kelp.h>
#include <kelp/kxcsc.h>

#include <cstring>
#include <string>
#include <vector>

#include "convert/scalers.h"
#include "runtime/cpuflags.h"

#if defined(KELP_BENCH_LIBYUV)
#include <libyuv/scale.h>
#include <libyuv/scale_argb.h>
#include <libyuv/scale_rgb.h>
#endif
#if KELP_HAVE_DV_CDC
extern "C" {
#include <libswscale/swscale.h>
}
#endif

namespace {

KXBMINFOHEADERYUV Record(int32_t w, int32_t h, uint16_t bits) {
    KXBMINFOHEADERYUV r;
    std::memset(&r, 0, sizeof r);
    r.bmi.biSize = KXBMI_SIZE;
    r.bmi.biWidth = w;
    r.bmi.biHeight = h;
    r.bmi.biPlanes = 1;
    r.bmi.biBitCount = bits;
    r.bmi.biSizeImage = uint32_t((bits * w / 8 + 3) & ~3) * uint32_t(h);
    r.bmi.bmiMagic = KXBMI_MAGIC;
    r.bmi.bmiFrame = 1;
    return r;
}

std::vector<uint8_t> Picture(size_t bytes) {
    std::vector<uint8_t> v(bytes);
    uint32_t s = 12345;
    for (uint8_t& b : v) {
        s = s * 1103515245u + 12345u;
        b = uint8_t(s >> 16);
    }
    return v;
}

// arg 0: the plain loops, 1: the best vector target of the machine.
void Targets(benchmark::State& state) {
    const uint32_t all = ~0u, plain = kelp::SimdBit(kelp::kSimdPlain);
    kelp::MaskSimdTargets(state.range(0) ? all : plain);
    state.SetLabel(state.range(0) ? kelp::SimdTargetName(kelp::BestSimdTarget()) : "plain");
}

void BM_ScaleGood24(benchmark::State& state) {
    Targets(state);
    KXBMINFOHEADERYUV in = Record(1920, 1080, 24), out = Record(1280, 720, 24);
    std::vector<uint8_t> src = Picture(in.bmi.biSizeImage), dst(out.bmi.biSizeImage);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            kelp::ScaleGood(&in.bmi, src.data(), &out.bmi, dst.data(), false, false));
    kelp::MaskSimdTargets(~0u);
}
BENCHMARK(BM_ScaleGood24)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_ScaleFast24(benchmark::State& state) {
    Targets(state);
    KXBMINFOHEADERYUV in = Record(1920, 1080, 24), out = Record(1280, 720, 24);
    std::vector<uint8_t> src = Picture(in.bmi.biSizeImage), dst(out.bmi.biSizeImage);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            kelp::ScaleFast(&in.bmi, src.data(), &out.bmi, dst.data(), false, false));
    kelp::MaskSimdTargets(~0u);
}
BENCHMARK(BM_ScaleFast24)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_Deinterlace24(benchmark::State& state) {
    Targets(state);
    KXBMINFOHEADERYUV in = Record(1920, 1080, 24), out = Record(1920, 1080, 24);
    in.bmi.bmiFrame = 0;
    std::vector<uint8_t> src = Picture(in.bmi.biSizeImage), dst(out.bmi.biSizeImage);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            kelp::DeinterlaceLines(&in.bmi, src.data(), &out.bmi, dst.data(), true, false));
    kelp::MaskSimdTargets(~0u);
}
BENCHMARK(BM_Deinterlace24)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// arg 0: no fit flag, as a caller that only names the formats: "Scale32" then places
// the picture unscaled in the middle of the smaller frame (through the transform's
// filter at scale 1), so that it crops; 1: KXCONV_FIT_FAST, the whole picture shrunk by
// the transform's filter, the work the peers do; 2: KXCONV_FIT_GOOD, shrunk by the
// nearest-neighbour mode. arg 1: 0 the best vector target of the machine, 1 at most
// AVX2 (a host without AVX-512).
// The chain through one manager, frame after frame, into buffers of `a`; `freeEach`: the
// caller frees each result (else it keeps one frame buffer that `a` hands out again).
void ChainFrames(benchmark::State& state, uint32_t fit, kelp::IAllocator* a, bool freeEach) {
    kelp::IConversionManager* cm = KXCONVCreateConversionManager();
    cm->Init(KXCONV_VERSION, 0);
    KXBMINFOHEADERYUV in = Record(1920, 1080, 32), want = Record(960, 540, 32);
    in.bmi.bmiAlpha = want.bmi.bmiAlpha = KXDIB_ALPHA_OPAQUE;
    want.bmi.biSize = KXBMI_SIZE_YUV;
    want.bmi.biCompression = KXBI_YUV;
    want.bmi.bmiExtOffset = KXBMI_EXTOFFSET;
    want.yuv.yuvColorSpace = 2;
    want.yuv.yuvBits = 8;
    want.yuv.yuvSampling = KXYUV_SAMPLING_444;
    std::vector<uint8_t> src = Picture(in.bmi.biSizeImage);
    void* kept = nullptr;
    for (auto _ : state) {
        KXBMINFOHEADERYUV out = want;
        void* data = nullptr;
        uint32_t flags = KXCONV_KEEP_INPUT | fit;
        int32_t q = 0;
        if (KX_FAILED(cm->Convert(&in.bmi, src.data(), &out.bmi, &data, &flags, &q, a))) {
            state.SkipWithError("no chain");
            break;
        }
        if (freeEach)
            a->Free(data);
        else
            kept = data;
    }
    if (kept) a->Free(kept);
    cm->Release();
}

void BM_ChainRgb32ToYuv709Half(benchmark::State& state) {
    static const uint32_t kFit[] = {0, KXCONV_FIT_FAST, KXCONV_FIT_GOOD};
    static const char* const kLabels[] = {"no fit: centred crop", "fit FAST: filtered shrink",
                                          "fit GOOD: nearest shrink"};
    kelp::MaskSimdTargets(state.range(1) ? kelp::SimdBit(kelp::kSimdAVX3) - 1 : ~0u);
    state.SetLabel(std::string(kLabels[state.range(0)]) + ", " +
                   kelp::SimdTargetName(kelp::BestSimdTarget()));
    kelp::CCppAllocator a;
    ChainFrames(state, kFit[state.range(0)], &a, true);
    kelp::MaskSimdTargets(~0u);
}
BENCHMARK(BM_ChainRgb32ToYuv709Half)
    ->ArgsProduct({{0, 1, 2}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

// The caller's allocator for the result, no fit flag. arg 0: a CSingleAllocator that the
// host keeps, as one frame buffer handed out again each frame; 1: CVirtAllocator, fresh
// pages for each frame, freed after it (the process heap of the chain bench above keeps
// freed memory by itself).
void BM_ChainOutputAllocator(benchmark::State& state) {
    state.SetLabel(state.range(0) ? "fresh pages each frame" : "one kept frame buffer");
    kelp::CSingleAllocator single;
    kelp::CVirtAllocator pages;
    if (state.range(0))
        ChainFrames(state, 0, &pages, true);
    else
        ChainFrames(state, 0, &single, false);
}
BENCHMARK(BM_ChainOutputAllocator)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);

// The chain's time taken apart; the second arg as for the chain. arg 0: the search
// alone (a Query of the manager); 1: the first stage's work, the transform placing the 1080p
// picture in 960x540 as "Scale32" asks it (CenterFx2D, no fit flag: filter mode, scale 1); 2: the
// second stage's work, the 709 conversion of the 960x540 picture; 3: the same conversion in space
// 0, whose rows need no table lookups; 4: the first stage's work with KXCONV_FIT_FAST, the
// transform shrinking the whole picture (ScaleFx2D, filter mode).
void BM_ChainParts(benchmark::State& state) {
    static const char* const kLabels[] = {"search", "Scale32 transform", "709 colour", "601 colour",
                                          "Scale32 transform, fit FAST"};
    kelp::MaskSimdTargets(state.range(1) ? kelp::SimdBit(kelp::kSimdAVX3) - 1 : ~0u);
    state.SetLabel(std::string(kLabels[state.range(0)]) + ", " +
                   kelp::SimdTargetName(kelp::BestSimdTarget()));
    KXBMINFOHEADERYUV in = Record(1920, 1080, 32), half = Record(960, 540, 32);
    in.bmi.bmiAlpha = half.bmi.bmiAlpha = KXDIB_ALPHA_OPAQUE;
    std::vector<uint8_t> src = Picture(in.bmi.biSizeImage), mid(half.bmi.biSizeImage),
                         dst(half.bmi.biSizeImage);
    if (state.range(0) == 0) {
        kelp::IConversionManager* cm = KXCONVCreateConversionManager();
        cm->Init(KXCONV_VERSION, 0);
        KXBMINFOHEADERYUV want = half;
        want.bmi.biSize = KXBMI_SIZE_YUV;
        want.bmi.biCompression = KXBI_YUV;
        want.bmi.bmiExtOffset = KXBMI_EXTOFFSET;
        want.yuv.yuvColorSpace = 2;
        want.yuv.yuvBits = 8;
        want.yuv.yuvSampling = KXYUV_SAMPLING_444;
        for (auto _ : state) {
            KXBMINFOHEADERYUV out = want;
            uint32_t flags = KXCONV_KEEP_INPUT;
            int32_t q = 0;
            benchmark::DoNotOptimize(cm->Query(&in.bmi, &out.bmi, &flags, &q));
        }
        cm->Release();
    } else if (state.range(0) == 1) {
        for (auto _ : state)
            benchmark::DoNotOptimize(
                kelp::CenterFx2D(&in.bmi, src.data(), &half.bmi, mid.data(), KXCONV_KEEP_INPUT));
    } else if (state.range(0) == 4) {
        for (auto _ : state)
            benchmark::DoNotOptimize(kelp::ScaleFx2D(&in.bmi, src.data(), &half.bmi, mid.data(),
                                                     false, false, true, false));
    } else {
        kelp::CKXCsc csc;
        csc.Init(state.range(0) == 2 ? kelp::CKXCsc::CS_ITU709 : kelp::CKXCsc::CS_CCIR601);
        mid = Picture(half.bmi.biSizeImage);
        for (auto _ : state)
            benchmark::DoNotOptimize(
                csc.BGRToYUV444Meshed(mid.data(), dst.data(), 960, 540, 4, 960 * 4));
    }
    kelp::MaskSimdTargets(~0u);
}
BENCHMARK(BM_ChainParts)->ArgsProduct({{0, 1, 2, 3, 4}, {0, 1}})->Unit(benchmark::kMillisecond);

#if defined(KELP_BENCH_LIBYUV)
void BM_LibyuvRgb24Scale(benchmark::State& state) {
    const int sw = 1920, sh = 1080, dw = 1280, dh = 720;
    std::vector<uint8_t> src = Picture(size_t(sw) * 3 * sh), dst(size_t(dw) * 3 * dh);
    const auto filter = state.range(0) ? libyuv::kFilterBilinear : libyuv::kFilterNone;
    state.SetLabel(state.range(0) ? "bilinear" : "point");
    for (auto _ : state)
        libyuv::RGBScale(src.data(), sw * 3, sw, sh, dst.data(), dw * 3, dw, dh, filter);
}
BENCHMARK(BM_LibyuvRgb24Scale)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
#endif

#if KELP_HAVE_DV_CDC
// A libswscale context run over one picture of 24-bit rows.
void SwsRun(benchmark::State& state, int sw, int sh, int dw, int dh, int filter) {
    SwsContext* ctx = sws_getContext(sw, sh, AV_PIX_FMT_BGR24, dw, dh, AV_PIX_FMT_BGR24, filter,
                                     nullptr, nullptr, nullptr);
    std::vector<uint8_t> src = Picture(size_t(sw) * 3 * sh), dst(size_t(dw) * 3 * dh);
    const uint8_t* s[1] = {src.data()};
    uint8_t* d[1] = {dst.data()};
    const int ss[1] = {sw * 3}, ds[1] = {dw * 3};
    for (auto _ : state)
        sws_scale(ctx, s, ss, 0, sh, d, ds);
    sws_freeContext(ctx);
}

void BM_SwsRgb24Scale(benchmark::State& state) {
    state.SetLabel(state.range(0) ? "bilinear" : "point");
    SwsRun(state, 1920, 1080, 1280, 720, state.range(0) ? SWS_BILINEAR : SWS_POINT);
}
BENCHMARK(BM_SwsRgb24Scale)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// The deinterlace as swscale would do it: one field (every second row) stretched
// bilinearly back to the frame's height.
void BM_SwsFieldToFrame24(benchmark::State& state) {
    SwsContext* ctx = sws_getContext(1920, 540, AV_PIX_FMT_BGR24, 1920, 1080, AV_PIX_FMT_BGR24,
                                     SWS_BILINEAR, nullptr, nullptr, nullptr);
    std::vector<uint8_t> src = Picture(size_t(1920) * 3 * 1080), dst(src.size());
    const uint8_t* s[1] = {src.data() + 1920 * 3};
    uint8_t* d[1] = {dst.data()};
    const int ss[1] = {1920 * 3 * 2}, ds[1] = {1920 * 3};
    for (auto _ : state)
        sws_scale(ctx, s, ss, 0, 540, d, ds);
    sws_freeContext(ctx);
}
BENCHMARK(BM_SwsFieldToFrame24)->Unit(benchmark::kMillisecond);

#if defined(KELP_BENCH_LIBYUV)
// The chain's two steps by the peers: libyuv scales the 32-bit picture, libswscale turns
// it into 709 YUV 4:4:4.
void BM_PeersRgb32ToYuv709Half(benchmark::State& state) {
    std::vector<uint8_t> src = Picture(size_t(1920) * 4 * 1080), half(size_t(960) * 4 * 540);
    std::vector<uint8_t> y(size_t(960) * 540), u(y.size()), v(y.size());
    SwsContext* ctx = sws_getContext(960, 540, AV_PIX_FMT_BGRA, 960, 540, AV_PIX_FMT_YUV444P,
                                     SWS_POINT, nullptr, nullptr, nullptr);
    const int* coefs = sws_getCoefficients(SWS_CS_ITU709);
    sws_setColorspaceDetails(ctx, coefs, 0, coefs, 0, 0, 1 << 16, 1 << 16);
    const uint8_t* s[1] = {half.data()};
    uint8_t* d[3] = {y.data(), u.data(), v.data()};
    const int ss[1] = {960 * 4}, ds[3] = {960, 960, 960};
    for (auto _ : state) {
        libyuv::ARGBScale(src.data(), 1920 * 4, 1920, 1080, half.data(), 960 * 4, 960, 540,
                          libyuv::kFilterBilinear);
        sws_scale(ctx, s, ss, 0, 540, d, ds);
    }
    sws_freeContext(ctx);
}
BENCHMARK(BM_PeersRgb32ToYuv709Half)->Unit(benchmark::kMillisecond);

// The peers' two steps one at a time. arg 0: libyuv's bilinear ARGBScale; 1: swscale's
// BGRA to 709 YUV 4:4:4 of the 960x540 picture.
void BM_PeersParts(benchmark::State& state) {
    state.SetLabel(state.range(0) ? "swscale 709 colour" : "libyuv scale");
    std::vector<uint8_t> src = Picture(size_t(1920) * 4 * 1080),
                         half = Picture(size_t(960) * 4 * 540);
    std::vector<uint8_t> y(size_t(960) * 540), u(y.size()), v(y.size());
    SwsContext* ctx = sws_getContext(960, 540, AV_PIX_FMT_BGRA, 960, 540, AV_PIX_FMT_YUV444P,
                                     SWS_POINT, nullptr, nullptr, nullptr);
    const int* coefs = sws_getCoefficients(SWS_CS_ITU709);
    sws_setColorspaceDetails(ctx, coefs, 0, coefs, 0, 0, 1 << 16, 1 << 16);
    const uint8_t* s[1] = {half.data()};
    uint8_t* d[3] = {y.data(), u.data(), v.data()};
    const int ss[1] = {960 * 4}, ds[3] = {960, 960, 960};
    for (auto _ : state) {
        if (state.range(0))
            sws_scale(ctx, s, ss, 0, 540, d, ds);
        else
            libyuv::ARGBScale(src.data(), 1920 * 4, 1920, 1080, half.data(), 960 * 4, 960, 540,
                              libyuv::kFilterBilinear);
    }
    sws_freeContext(ctx);
}
BENCHMARK(BM_PeersParts)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
#endif
#endif

} // namespace
