// Plain loops of the alpha stage, and the choice of a table for the processor.
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

static constexpr Kernels kPlain = {"plain", Premultiply_C, PremultiplyYuv_C, Fill_C,
                                   Unpremultiply_C};

const Kernels& PlainKernels() {
    return kPlain;
}

const Kernels& ForTarget(int target) {
    for (int t = target; t > kSimdPlain; --t)
        if (const Kernels* k = VectorKernels(t)) return *k;
    return kPlain;
}

const Kernels& Current() {
    return ForTarget(BestSimdTarget());
}

} // namespace alpharows
} // namespace kelp
