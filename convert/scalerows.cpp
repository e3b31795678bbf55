// The plain row loops of the scalers and the deinterlacer, which define every result.
#include "scalerows.h"

#include <cstdint>
#include <cstring>

#include "runtime/cpuflags.h"

namespace kelp {
namespace scalerows {

void HorzRow_C(const uint8_t* cur, uint8_t* dst, const LineWeight* cols, int32_t width, int bpp,
               size_t lastOffset) {
    if (width <= 0) return;
    memcpy(dst, cur, size_t(bpp));
    for (int32_t x = 1; x < width - 1; ++x) {
        const LineWeight& h = cols[x];
        const uint8_t* p = cur + h.offset;
        const uint8_t* q = h.offset < lastOffset ? p + bpp : p;
        uint8_t* d = dst + size_t(x) * size_t(bpp);
        for (int c = 0; c < bpp; ++c)
            d[c] = uint8_t((uint32_t(q[c]) * uint32_t(h.next) + uint32_t(p[c]) * uint32_t(h.cur)) >>
                           11);
    }
    if (width > 1)
        memcpy(dst + size_t(width - 1) * size_t(bpp), cur + cols[width - 1].offset, size_t(bpp));
}

void BilinearRow_C(const uint8_t* cur, const uint8_t* next, uint8_t* dst, const LineWeight* cols,
                   int32_t width, int bpp, size_t lastOffset, int32_t wNext, int32_t wCur) {
    if (width <= 0) return;
    const uint32_t wn = uint32_t(wNext), wc = uint32_t(wCur);
    for (int c = 0; c < bpp; ++c)
        dst[c] = uint8_t((uint32_t(next[c]) * wn + uint32_t(cur[c]) * wc) >> 11);
    for (int32_t x = 1; x < width - 1; ++x) {
        const LineWeight& h = cols[x];
        const size_t o = h.offset, o1 = o < lastOffset ? o + size_t(bpp) : o;
        const uint32_t hn = uint32_t(h.next), hc = uint32_t(h.cur);
        uint8_t* d = dst + size_t(x) * size_t(bpp);
        for (int c = 0; c < bpp; ++c) {
            const uint32_t top = uint32_t(cur[o + c]) * hc + uint32_t(cur[o1 + c]) * hn;
            const uint32_t bottom = uint32_t(next[o + c]) * hc + uint32_t(next[o1 + c]) * hn;
            d[c] = uint8_t((top * wc + bottom * wn) >> 22);
        }
    }
    if (width > 1) {
        const size_t o = cols[width - 1].offset;
        uint8_t* d = dst + size_t(width - 1) * size_t(bpp);
        for (int c = 0; c < bpp; ++c)
            d[c] = uint8_t((uint32_t(next[o + c]) * wn + uint32_t(cur[o + c]) * wc) >> 11);
    }
}

void BlendRow_C(const uint8_t* cur, const uint8_t* next, uint8_t* dst, size_t bytes, int32_t wNext,
                int32_t wCur) {
    const uint32_t wn = uint32_t(wNext), wc = uint32_t(wCur);
    for (size_t i = 0; i < bytes; ++i)
        dst[i] = uint8_t((uint32_t(next[i]) * wn + uint32_t(cur[i]) * wc) >> 11);
}

void PickRow_C(const uint8_t* src, uint8_t* dst, const int32_t* cols, int32_t width, int bpp) {
    switch (bpp) {
    case 1:
        for (int32_t x = 0; x < width; ++x)
            dst[x] = src[cols[x]];
        break;
    case 3:
        for (int32_t x = 0; x < width; ++x)
            memcpy(dst + 3 * size_t(x), src + 3 * size_t(cols[x]), 3);
        break;
    default:
        for (int32_t x = 0; x < width; ++x)
            memcpy(dst + 4 * size_t(x), src + 4 * size_t(cols[x]), 4);
        break;
    }
}

namespace {

// The horizontal sum of output byte j.
inline uint32_t SumAt(const uint8_t* row, const ColumnPlan& plan, size_t j) {
    const size_t bpp = size_t(plan.bpp), x = j / bpp, c = j % bpp;
    if (x == 0) return uint32_t(row[c]) * 2048u;
    if (x == size_t(plan.width - 1)) return uint32_t(row[plan.cols[x].offset + c]) * 2048u;
    const LineWeight& h = plan.cols[x];
    const size_t o = h.offset, o1 = o < plan.lastOffset ? o + bpp : o;
    return uint32_t(row[o + c]) * uint32_t(h.cur) + uint32_t(row[o1 + c]) * uint32_t(h.next);
}

} // namespace

void HorzSumsFrom_C(const uint8_t* row, uint32_t* sums, const ColumnPlan& plan, size_t first) {
    const size_t bytes = size_t(plan.width) * size_t(plan.bpp);
    for (size_t j = first; j < bytes; ++j)
        sums[j] = SumAt(row, plan, j);
}

void LineFrom_C(const uint32_t* topSums, const uint8_t* cur, const uint8_t* next, uint8_t* dst,
                uint32_t* keep, const ColumnPlan& plan, int32_t wNext, int32_t wCur, size_t first) {
    const size_t bytes = size_t(plan.width) * size_t(plan.bpp);
    const uint32_t wn = uint32_t(wNext), wc = uint32_t(wCur);
    for (size_t j = first; j < bytes; ++j) {
        const uint32_t top = topSums ? topSums[j] : SumAt(cur, plan, j);
        const uint32_t bottom = SumAt(next, plan, j);
        if (keep) keep[j] = bottom;
        dst[j] = uint8_t((top * wc + bottom * wn) >> 22);
    }
}

void Line_C(const uint32_t* topSums, const uint8_t* cur, const uint8_t* next, uint8_t* dst,
            uint32_t* keep, const ColumnPlan& plan, int32_t wNext, int32_t wCur) {
    LineFrom_C(topSums, cur, next, dst, keep, plan, wNext, wCur, 0);
}

void HorzSums_C(const uint8_t* row, uint32_t* sums, const ColumnPlan& plan) {
    HorzSumsFrom_C(row, sums, plan, 0);
}

void VertSums_C(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, size_t bytes,
                int32_t wNext, int32_t wCur) {
    const uint32_t wn = uint32_t(wNext), wc = uint32_t(wCur);
    for (size_t i = 0; i < bytes; ++i)
        dst[i] = uint8_t((top[i] * wc + bottom[i] * wn) >> 22);
}

void PickPlanned_C(const uint8_t* src, uint8_t* dst, const PickPlan& plan) {
    PickRow_C(src, dst, plan.cols, plan.width, plan.bpp);
}

namespace {

// Where a window of 16 bytes starts that holds source bytes lo..hi of a row of `len`
// bytes (len >= 16), or false when none does.
bool Window(size_t lo, size_t hi, size_t len, uint32_t* base) {
    const size_t b = lo < len - 16 ? lo : len - 16;
    if (hi >= b + 16 || b > 0xFFFFFFFFu) return false;
    *base = uint32_t(b);
    return true;
}

} // namespace

bool BuildColumnPlan(ColumnPlan& plan, const LineWeight* cols, int32_t width, int bpp,
                     size_t lastOffset) {
    plan.cols = cols;
    plan.width = width;
    plan.bpp = bpp;
    plan.lastOffset = lastOffset;
    plan.quads = 0;
    plan.twoWindows = false;
    plan.baseA.clear();
    plan.baseB.clear();
    plan.shuffleA.clear();
    plan.shuffleB.clear();
    plan.weights.clear();
    if ((bpp != 3 && bpp != 4) || width < 1 || lastOffset > (size_t(1) << 40)) return false;
    const size_t len = lastOffset + size_t(bpp), px = size_t(bpp);
    if (len < 16) return false;
    // The two source bytes and the weights of each output byte.
    struct Tap {
        size_t p, q;
        int16_t hc, hn;
    };
    const size_t bytes = size_t(width) * px, quads = bytes / 4;
    std::vector<Tap> taps(quads * 4);
    for (size_t j = 0; j < taps.size(); ++j) {
        const size_t x = j / px, c = j % px;
        size_t o = 0;
        int32_t hc = 2048, hn = 0;
        if (x > 0) o = cols[x].offset;
        if (x > 0 && x + 1 < size_t(width)) {
            hc = cols[x].cur;
            hn = cols[x].next;
        }
        if (o > lastOffset || hc < 0 || hn < 0 || hc > 2048 || hn > 2048 - hc) return false;
        const size_t o1 = hn == 0 ? o : (o < lastOffset ? o + px : o);
        taps[j] = Tap{o + c, o1 + c, int16_t(hc), int16_t(hn)};
    }
    // One window a quad where every quad fits in one, else one for the pixel of the
    // quad's first byte and one for the rest (a quad spans at most two pixels).
    std::vector<uint32_t> a(quads), b(quads);
    bool one = true;
    for (size_t k = 0; k < quads && one; ++k) {
        size_t lo = taps[4 * k].p, hi = lo;
        for (size_t i = 0; i < 4; ++i) {
            const Tap& t = taps[4 * k + i];
            lo = t.p < lo ? t.p : lo;
            hi = t.q > hi ? t.q : hi;
        }
        one = Window(lo, hi, len, &a[k]);
    }
    std::vector<uint8_t> sa(16 * quads, 0x80), sb(one ? 0 : 16 * quads, 0x80);
    std::vector<int16_t> w(8 * quads);
    for (size_t k = 0; k < quads; ++k) {
        const size_t pixelA = (4 * k) / px;
        if (!one) {
            // Each group: one pixel's bytes and those of the pixel one on, 2 bpp at most.
            size_t loA = SIZE_MAX, hiA = 0, loB = SIZE_MAX, hiB = 0;
            for (size_t i = 0; i < 4; ++i) {
                const Tap& t = taps[4 * k + i];
                const bool inA = (4 * k + i) / px == pixelA;
                size_t& lo = inA ? loA : loB;
                size_t& hi = inA ? hiA : hiB;
                lo = t.p < lo ? t.p : lo;
                hi = t.q > hi ? t.q : hi;
            }
            if (loB == SIZE_MAX) loB = loA, hiB = hiA;
            if (!Window(loA, hiA, len, &a[k]) || !Window(loB, hiB, len, &b[k])) return false;
        }
        for (size_t i = 0; i < 4; ++i) {
            const Tap& t = taps[4 * k + i];
            const bool inA = one || (4 * k + i) / px == pixelA;
            const uint32_t base = inA ? a[k] : b[k];
            uint8_t* s = (inA ? sa.data() : sb.data()) + 16 * k + 4 * i;
            s[0] = uint8_t(t.p - base);
            s[2] = uint8_t(t.q - base);
            w[8 * k + 2 * i] = t.hc;
            w[8 * k + 2 * i + 1] = t.hn;
        }
    }
    plan.twoWindows = !one;
    plan.baseA.swap(a);
    if (!one) plan.baseB.swap(b);
    plan.shuffleA.swap(sa);
    plan.shuffleB.swap(sb);
    plan.weights.swap(w);
    plan.quads = quads;
    return true;
}

bool BuildPickPlan(PickPlan& plan, const int32_t* cols, int32_t width, int bpp) {
    plan.cols = cols;
    plan.width = width;
    plan.bpp = bpp;
    plan.units = 0;
    plan.baseA.clear();
    plan.baseB.clear();
    plan.shuffleA.clear();
    plan.shuffleB.clear();
    if ((bpp != 1 && bpp != 3 && bpp != 4) || width < 1) return false;
    const size_t px = size_t(bpp);
    int32_t top = 0;
    for (int32_t x = 0; x < width; ++x) {
        if (cols[x] < 0) return false;
        top = cols[x] > top ? cols[x] : top;
    }
    const size_t len = (size_t(top) + 1) * px, units = size_t(width) * px / 16;
    if (len < 16) return false;
    std::vector<uint32_t> a(units), b(units);
    std::vector<uint8_t> sa(16 * units, 0x80), sb(16 * units, 0x80);
    for (size_t u = 0; u < units; ++u) {
        for (size_t half = 0; half < 2; ++half) {
            const size_t first = 16 * u + 8 * half;
            size_t lo = SIZE_MAX, hi = 0;
            for (size_t j = first; j < first + 8; ++j) {
                const size_t s = size_t(cols[j / px]) * px + j % px;
                lo = s < lo ? s : lo;
                hi = s > hi ? s : hi;
            }
            uint32_t& base = half ? b[u] : a[u];
            if (!Window(lo, hi, len, &base)) return false;
            uint8_t* shuffle = (half ? sb.data() : sa.data()) + 16 * u;
            for (size_t j = first; j < first + 8; ++j)
                shuffle[j - 16 * u] = uint8_t(size_t(cols[j / px]) * px + j % px - base);
        }
    }
    plan.baseA.swap(a);
    plan.baseB.swap(b);
    plan.shuffleA.swap(sa);
    plan.shuffleB.swap(sb);
    plan.units = units;
    return true;
}

namespace {
const Kernels kPlain = {"plain",    HorzRow_C,  BilinearRow_C, BlendRow_C,   PickRow_C,
                        HorzSums_C, VertSums_C, Line_C,        PickPlanned_C};
} // namespace

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

} // namespace scalerows
} // namespace kelp
