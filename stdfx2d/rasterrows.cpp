// The plain row kernels of the raster paths: the definition of every result.
#include "stdfx2d/rasterrows.h"

#include <cstring>

#include "runtime/cpuflags.h"
#include "stdfx2d/raster.h"

namespace stdfx2d {
namespace rasterrows {

void Vertical_C(int32_t* work, const uint8_t* const* rows, const int32_t* weights, int32_t taps,
                const int32_t seed[4], int32_t x0, int32_t x1) {
    const int32_t n0 = x0 * 4, n1 = x1 * 4;
    for (int32_t j = n0; j < n1; ++j)
        work[j] = seed[j & 3];
    for (int32_t k = 0; k < taps; ++k) {
        const uint8_t* r = rows[k];
        const int32_t w = weights[k];
        for (int32_t j = n0; j < n1; ++j)
            work[j] += r[j] * w;
    }
}

void Horizontal_C(uint8_t* out, const int32_t* work, const Fx2dTapList* lists, int32_t pixels,
                  int32_t shift, int32_t seed, bool narrow, int32_t luma) {
    const int32_t ws = narrow ? shift : 0;
    for (int32_t x = 0; x < pixels; ++x) {
        const Fx2dTapList& l = lists[x];
        int32_t s0 = seed + (luma == 0 ? l.biasLuma : l.biasChroma);
        int32_t s1 = seed + (luma == 1 ? l.biasLuma : l.biasChroma);
        int32_t s2 = seed + l.biasChroma, s3 = seed;
        for (int32_t k = 0; k < l.count; ++k) {
            const int32_t* p = work + 4 * l.taps[k].index;
            const int32_t w = l.taps[k].weight;
            s0 += (p[0] >> ws) * w;
            s1 += (p[1] >> ws) * w;
            s2 += (p[2] >> ws) * w;
            s3 += (p[3] >> ws) * w;
        }
        out[4 * x + 0] = uint8_t(Clamp255(s0 >> shift));
        out[4 * x + 1] = uint8_t(Clamp255(s1 >> shift));
        out[4 * x + 2] = uint8_t(Clamp255(s2 >> shift));
        out[4 * x + 3] = uint8_t(Clamp255(s3 >> shift));
    }
}

void Nearest_C(uint8_t* out, const uint8_t* src, const int32_t* lookup, int32_t pixels) {
    for (int32_t x = 0; x < pixels; ++x)
        std::memcpy(out + 4 * x, src + 4 * ptrdiff_t(lookup[x]), 4);
}

void Compose_C(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels) {
    for (int32_t x = 0; x < pixels; ++x) {
        const int32_t m = 255 - s[4 * x + 3];
        for (int c = 0; c < 4; ++c)
            out[4 * x + c] = uint8_t(Over(s[4 * x + c], g[4 * x + c], m));
    }
}

void ComposeYuv_C(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels, int32_t black) {
    for (int32_t x = 0; x < pixels; ++x) {
        const uint8_t* sp = s + 4 * x;
        const uint8_t* gp = g + 4 * x;
        const int32_t m = 255 - sp[3];
        const int32_t y = Over(sp[0], Clamp255(gp[0] - black), m);
        const int32_t u = Over(sp[1], gp[1] - 128, m);
        const int32_t v = Over(sp[2], gp[2] - 128, m);
        const int32_t a = Over(sp[3], gp[3], m);
        out[4 * x + 0] = uint8_t(y);
        out[4 * x + 1] = uint8_t(u);
        out[4 * x + 2] = uint8_t(v);
        out[4 * x + 3] = uint8_t(a);
    }
}

namespace {
const Kernels kPlain = {"plain", Vertical_C, Horizontal_C, Nearest_C, Compose_C, ComposeYuv_C};
} // namespace

const Kernels& PlainKernels() {
    return kPlain;
}

const Kernels& ForTarget(int target) {
    for (int t = target; t > kelp::kSimdPlain; --t)
        if (const Kernels* k = VectorKernels(t)) return *k;
    return kPlain;
}

const Kernels& Current() {
    return ForTarget(kelp::BestSimdTarget());
}

} // namespace rasterrows
} // namespace stdfx2d
