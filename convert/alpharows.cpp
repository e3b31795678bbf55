// Plain loops of the alpha stage, the tail wrapper of the vector forms, and the choice
// between them.
#include "alpharows.h"

#include "runtime/cpuflags.h"

namespace kelp {
namespace alpharows {

void Premultiply_C(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    for (int32_t i = 0; i < pixels; ++i) {
        const uint8_t* s = src + 4 * i;
        uint8_t* d = dst + 4 * i;
        uint32_t a = s[3];
        for (int k = 0; k < 3; ++k) {
            uint32_t t = s[k] * a + 128;
            d[k] = uint8_t((t + (t >> 8)) >> 8);
        }
        d[3] = uint8_t(a);
    }
}

// Signed, with arithmetic shifts (floor division by 256).
static inline uint8_t PremulAround(int32_t c, int32_t a, int32_t centre) {
    int32_t t = (c - centre) * a + 128;
    return uint8_t(((t + (t >> 8)) >> 8) + centre);
}

void PremultiplyYuv_C(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    for (int32_t i = 0; i < pixels; ++i) {
        const uint8_t* s = src + 4 * i;
        uint8_t* d = dst + 4 * i;
        int32_t a = s[3];
        d[0] = PremulAround(s[0], a, 16);
        d[1] = PremulAround(s[1], a, 128);
        d[2] = PremulAround(s[2], a, 128);
        d[3] = uint8_t(a);
    }
}

void Fill_C(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    for (int32_t i = 0; i < pixels; ++i) {
        dst[4 * i] = src[4 * i];
        dst[4 * i + 1] = src[4 * i + 1];
        dst[4 * i + 2] = src[4 * i + 2];
        dst[4 * i + 3] = 255;
    }
}

// Colours above their alpha wrap around in the low byte, and alpha 0 comes out as 1.
void Unpremultiply_C(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    for (int32_t i = 0; i < pixels; ++i) {
        const uint8_t* s = src + 4 * i;
        uint8_t* d = dst + 4 * i;
        int32_t a = s[3] ? s[3] : 1;
        for (int k = 0; k < 3; ++k)
            d[k] = uint8_t(int32_t(s[k]) * 255 / a);
        d[3] = uint8_t(a);
    }
}

namespace {

template <RunFn Vec, RunFn Plain, int32_t Block>
void AnyRun(const uint8_t* src, uint8_t* dst, int32_t pixels) {
    int32_t n = pixels - pixels % Block;
    if (n > 0) Vec(src, dst, n);
    if (pixels > n) Plain(src + 4 * n, dst + 4 * n, pixels - n);
}

constexpr Kernels kPlain = {"plain", Premultiply_C, PremultiplyYuv_C, Fill_C, Unpremultiply_C};

constexpr Kernels kSSE2 = {
    "sse2",
    AnyRun<Premultiply_SSE2, Premultiply_C, kBlockSSE2>,
    AnyRun<PremultiplyYuv_SSE2, PremultiplyYuv_C, kBlockSSE2>,
    AnyRun<Fill_SSE2, Fill_C, kBlockSSE2>,
    AnyRun<Unpremultiply_SSE2, Unpremultiply_C, kBlockSSE2>,
};

constexpr Kernels kAVX2 = {
    "avx2",
    AnyRun<Premultiply_AVX2, Premultiply_C, kBlockAVX2>,
    AnyRun<PremultiplyYuv_AVX2, PremultiplyYuv_C, kBlockAVX2>,
    AnyRun<Fill_AVX2, Fill_C, kBlockAVX2>,
    AnyRun<Unpremultiply_AVX2, Unpremultiply_C, kBlockAVX2>,
};

} // namespace

const Kernels& PlainKernels() {
    return kPlain;
}
const Kernels& SSE2Kernels() {
    return kSSE2;
}
const Kernels& AVX2Kernels() {
    return kAVX2;
}

const Kernels& Select(uint32_t cpuFlags) {
    if (cpuFlags & kCpuAVX2) return kAVX2;
    if (cpuFlags & kCpuSSE2) return kSSE2;
    return kPlain;
}

const Kernels& Current() {
    return Select(CpuFlags());
}

} // namespace alpharows
} // namespace kelp
