// The plain row loops of the scalers and the deinterlacer, which define every result.
#include "scalerows.h"

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
const Kernels kPlain = {"plain", HorzRow_C, BilinearRow_C, BlendRow_C, PickRow_C};
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
