// The plain row kernels of the raster paths: the definition of every result.
#include "stdfx2d/rasterrows.h"

#include <algorithm>
#include <climits>
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

void VerticalBytes_C(uint8_t* out, const uint8_t* const* rows, const int32_t* weights, int32_t taps,
                     const int32_t seed[4], int32_t x0, int32_t x1, int32_t shift) {
    for (int32_t j = x0 * 4, n1 = x1 * 4; j < n1; ++j) {
        int32_t v = seed[j & 3];
        for (int32_t k = 0; k < taps; ++k)
            v += rows[k][j] * weights[k];
        out[j] = uint8_t(v >> shift);
    }
}

void HorizontalBytesPart_C(uint8_t* out, const uint8_t* work, const ColumnPlan& plan, int32_t shift,
                           int32_t x0, int32_t x1) {
    const int32_t B = plan.block;
    for (int32_t x = x0; x < x1; ++x) {
        const uint8_t* p = work + 4 * ptrdiff_t(plan.start[x]);
        // The weights of pixel x: plan.Weight(x, g, j) without the divisions.
        const int16_t* wx = plan.weights + size_t(x / B) * plan.groups * 16 * B + 8 * (x % B);
        int32_t s0 = plan.seeds[4 * x + 0], s1 = plan.seeds[4 * x + 1];
        int32_t s2 = plan.seeds[4 * x + 2], s3 = plan.seeds[4 * x + 3];
        for (int32_t g = 0; g < plan.groups; ++g, p += 16, wx += 16 * B)
            for (int32_t j = 0; j < 4; ++j) {
                const int32_t w = wx[(j >> 1) * 8 * B + (j & 1)];
                s0 += p[4 * j + 0] * w;
                s1 += p[4 * j + 1] * w;
                s2 += p[4 * j + 2] * w;
                s3 += p[4 * j + 3] * w;
            }
        out[4 * x + 0] = uint8_t(Clamp255(s0 >> shift));
        out[4 * x + 1] = uint8_t(Clamp255(s1 >> shift));
        out[4 * x + 2] = uint8_t(Clamp255(s2 >> shift));
        out[4 * x + 3] = uint8_t(Clamp255(s3 >> shift));
    }
}

void HorizontalBytes_C(uint8_t* out, const uint8_t* work, const ColumnPlan& plan, int32_t shift) {
    HorizontalBytesPart_C(out, work, plan, shift, 0, plan.pixels);
}

void Spread422_C(uint8_t* out, const uint8_t* pairs, const uint8_t* alpha, uint8_t opaque,
                 int32_t pixels) {
    for (int32_t x = 0; x < pixels; ++x) {
        const uint8_t* p = pairs + (x >> 1) * 4;
        out[4 * x + 0] = p[0];
        out[4 * x + 1] = p[(x & 1) ? 3 : 1];
        out[4 * x + 2] = p[2];
        out[4 * x + 3] = alpha ? alpha[x] : opaque;
    }
}

void Pack422_C(uint8_t* out, uint8_t* plane, const uint8_t* tuples, int32_t pairs) {
    for (int32_t p = 0; p < pairs; ++p) {
        const uint8_t* e = tuples + 8 * p;
        out[4 * p + 0] = e[0];
        out[4 * p + 1] = e[1];
        out[4 * p + 2] = e[2];
        out[4 * p + 3] = e[5];
        if (plane) {
            plane[2 * p] = e[3];
            plane[2 * p + 1] = e[7];
        }
    }
}

bool RowFitsBytes(const Fx2dTapList& list, const int32_t seed[4], int32_t shift) {
    if (shift < 0 || shift > 14) return false;
    int64_t pos = 0, neg = 0;
    for (int32_t k = 0; k < list.count; ++k)
        (list.taps[k].weight > 0 ? pos : neg) += list.taps[k].weight;
    const int64_t lo = std::min({seed[0], seed[1], seed[2], seed[3]}) + 255 * neg;
    const int64_t hi = std::max({seed[0], seed[1], seed[2], seed[3]}) + 255 * pos;
    return lo >= 0 && hi < (int64_t(256) << shift);
}

bool ColumnPlanStore::Build(const Fx2dTapList* lists, int32_t pixels, int32_t seed, int32_t luma,
                            int32_t block, int32_t maxGroups) {
    int32_t groups = 1;
    for (int32_t x = 0; x < pixels; ++x) {
        const Fx2dTapList& l = lists[x];
        if (l.count <= 0) continue;
        int32_t lo = l.taps[0].index, hi = lo;
        for (int32_t k = 1; k < l.count; ++k) {
            lo = std::min(lo, l.taps[k].index);
            hi = std::max(hi, l.taps[k].index);
        }
        const int64_t need = (int64_t(hi) - lo + 4) / 4;
        if (lo < 0 || need > maxGroups) return false;
        groups = std::max(groups, int32_t(need));
    }
    const size_t runs = (size_t(pixels) + size_t(block) - 1) / size_t(block);
    start.assign(size_t(pixels), 0);
    seeds.resize(size_t(pixels) * 4);
    weights.assign(runs * size_t(groups) * 16 * size_t(block), 0);
    std::vector<int32_t> sum(size_t(groups) * 4);
    int32_t reach = 0;
    for (int32_t x = 0; x < pixels; ++x) {
        const Fx2dTapList& l = lists[x];
        int32_t lo = 0;
        for (int32_t k = 0; k < l.count; ++k)
            lo = k == 0 ? l.taps[k].index : std::min(lo, l.taps[k].index);
        std::fill(sum.begin(), sum.end(), 0);
        for (int32_t k = 0; k < l.count; ++k) {
            int32_t& w = sum[size_t(l.taps[k].index - lo)];
            const int64_t v = int64_t(w) + l.taps[k].weight;
            if (v < INT32_MIN || v > INT32_MAX) return false;
            w = int32_t(v);
        }
        const int32_t run = x / block, b = x % block;
        for (int32_t g = 0; g < groups; ++g)
            for (int32_t j = 0; j < 4; ++j) {
                const int32_t w = sum[size_t(4 * g + j)];
                if (w < INT16_MIN || w > INT16_MAX) return false;
                int16_t* part = weights.data() + (size_t(run) * groups + g) * 16 * block +
                                (j >> 1) * 8 * block + 8 * b + (j & 1);
                for (int c = 0; c < 4; ++c)
                    part[2 * c] = int16_t(w);
            }
        start[size_t(x)] = lo;
        reach = std::max(reach, lo + 4 * groups);
        seeds[4 * size_t(x) + 0] = seed + (luma == 0 ? l.biasLuma : l.biasChroma);
        seeds[4 * size_t(x) + 1] = seed + (luma == 1 ? l.biasLuma : l.biasChroma);
        seeds[4 * size_t(x) + 2] = seed + l.biasChroma;
        seeds[4 * size_t(x) + 3] = seed;
    }
    plan.pixels = pixels;
    plan.groups = groups;
    plan.block = block;
    plan.reach = reach;
    plan.start = start.data();
    plan.weights = weights.data();
    plan.seeds = seeds.data();
    return true;
}

namespace {
const Kernels kPlain = {"plain",   Vertical_C,   Horizontal_C,    Nearest_C,
                        Compose_C, ComposeYuv_C, VerticalBytes_C, HorizontalBytes_C,
                        1,         Spread422_C,  Pack422_C};
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
