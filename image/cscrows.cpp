// Plain row loops of the colour conversions, and the choice of a table for the processor.
#include "image/cscrows.h"

#include <cstddef>

#include "runtime/cpuflags.h"

namespace kelp {
namespace cscrows {

template <int PS> void BgrToYuv444_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    for (int32_t i = 0; i < n; ++i, src += PS, dst += PS) {
        const Sums s = RawSums(v.rgbYcc, src[0], src[1], src[2]);
        const uint8_t a = PS == 4 ? src[3] : 0;
        dst[0] = v.limitY[s.y >> 16];
        dst[1] = v.limitC[s.u >> 16];
        dst[2] = v.limitC[s.v >> 16];
        if (PS == 4) dst[3] = a;
    }
}

template <int PS> void Yuv444ToBgr_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    for (int32_t i = 0; i < n; ++i, src += PS, dst += PS) {
        const int y = src[0], u = src[1], w = src[2];
        const uint8_t a = PS == 4 ? src[3] : 0;
        YuvToBgr(v, y, u, w, dst);
        if (PS == 4) dst[3] = a;
    }
}

template <int PS>
void Matrix601To709_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    const int32_t(*m)[3] = v.matrix;
    for (int32_t i = 0; i < n; ++i, src += PS, dst += PS) {
        const int32_t y = src[0] - 16, u = src[1] - 128, w = src[2] - 128;
        const uint8_t a = PS == 4 ? src[3] : 0;
        dst[0] = v.limit[(m[0][2] * w + m[0][1] * u + m[0][0] * y + 0x108000) >> 16];
        dst[1] = v.limit[(m[1][2] * w + m[1][1] * u + m[1][0] * y + 0x808000) >> 16];
        dst[2] = v.limit[(m[2][2] * w + m[2][1] * u + m[2][0] * y + 0x808000) >> 16];
        if (PS == 4) dst[3] = a;
    }
}

// Pixels are taken in pairs. Chroma: odd pixels keep their own; pixel 0 is 3:1 with its
// right neighbour; other even pixels 1:2:1, the centre weight taken from the raw sum with
// one more fractional bit. Luma, when filtered: 3:1 at pixel 0, 1:2:1 inside, and at the
// last pixel (y + 3c) >> 2, where c is the last pixel's luma as the pair loop leaves it.
// A line of one pair has no pair loop: c is what an earlier line left, 0 at first.
template <int PS>
void BgrToYuv422_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n, int32_t* carry,
                   int filterLuma) {
    const int32_t m = n & ~1;
    if (m == 0) return;
    const int32_t* t = v.rgbYcc;
    const uint8_t* LY = v.limitY;
    const uint8_t* LC = v.limitC;
    Sums cur = RawSums(t, src[0], src[1], src[2]);
    Sums prev = cur;
    if (m >= 4)
        *carry =
            RawSums(t, src[(m - 1) * PS], src[(m - 1) * PS + 1], src[(m - 1) * PS + 2]).y >> 16;
    for (int32_t k = 0; k < m; ++k) {
        Sums next = cur;
        if (k + 1 < m) {
            const uint8_t* s = src + (k + 1) * PS;
            next = RawSums(t, s[0], s[1], s[2]);
        }
        const int32_t y = cur.y >> 16, cb = cur.u >> 16, cr = cur.v >> 16;
        uint8_t* d = dst + k * PS;
        int32_t outY;
        if (!filterLuma)
            outY = y;
        else if (k == 0)
            outY = (3 * y + (next.y >> 16)) >> 2;
        else if (k == m - 1)
            outY = (y + 3 * *carry) >> 2;
        else
            outY = ((next.y >> 16) + 2 * y + (prev.y >> 16)) >> 2;
        int32_t outU, outV;
        if (k & 1) {
            outU = cb;
            outV = cr;
        } else if (k == 0) {
            outU = (3 * cb + (next.u >> 16)) >> 2;
            outV = (3 * cr + (next.v >> 16)) >> 2;
        } else {
            outU = ((cur.u >> 15) + (next.u >> 16) + (prev.u >> 16)) >> 2;
            outV = ((cur.v >> 15) + (next.v >> 16) + (prev.v >> 16)) >> 2;
        }
        d[0] = LY[outY];
        d[1] = LC[outU];
        d[2] = LC[outV];
        prev = cur;
        cur = next;
    }
}

void Yuv422ToBgrAny(const View& v, const uint8_t* src, uint8_t* dst, int32_t n, int ps) {
    const int32_t pairs = n / 2;
    for (int32_t p = 0; p < pairs; ++p) {
        const uint8_t* s = src + size_t(2 * p) * ps;
        uint8_t* d = dst + size_t(2 * p) * ps;
        const int u = s[1], w = s[2];
        int u1 = u, w1 = w;
        if (p + 1 < pairs) {
            u1 = (u + s[2 * ps + 1]) >> 1;
            w1 = (w + s[2 * ps + 2]) >> 1;
        }
        YuvToBgr(v, s[0], u, w, d);
        YuvToBgr(v, s[ps], u1, w1, d + ps);
    }
}

void UyvyToBgrAny(const View& v, const uint8_t* src, uint8_t* dst, int32_t n, int ps) {
    for (int32_t i = 0; i < n; i += 2, src += 4, dst += 2 * ps) {
        YuvToBgr(v, src[1], src[0], src[2], dst);
        if (i + 1 < n) YuvToBgr(v, src[3], src[0], src[2], dst + ps);
    }
}

void UyvkToBgrAny(const View& v, const uint8_t* src, uint8_t* dst, int32_t n, int ps) {
    for (int32_t i = 0; i < n; ++i, src += 4, dst += ps)
        YuvToBgr(v, src[1], src[0], src[2], dst);
}

void YuvkToBgrAny(const View& v, const uint8_t* src, uint8_t* dst, int32_t n, int ps,
                  int premultiply) {
    for (int32_t i = 0; i < n; ++i, src += 4, dst += ps) {
        const int k = src[3];
        if (!premultiply || k == 255) {
            YuvToBgr(v, src[0], src[1], src[2], dst);
        } else if (k == 0) {
            dst[0] = dst[1] = dst[2] = 0;
        } else {
            uint8_t c[3];
            YuvToBgr(v, src[0], src[1], src[2], c);
            for (int j = 0; j < 3; ++j) {
                const int32_t t = c[j] * k + 128;
                dst[j] = uint8_t(((t >> 8) + t) >> 8);
            }
        }
    }
}

template <int PS> void Yuv422ToBgr_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    Yuv422ToBgrAny(v, src, dst, n, PS);
}
template <int PS> void UyvyToBgr_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    UyvyToBgrAny(v, src, dst, n, PS);
}
template <int PS> void UyvkToBgr_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    UyvkToBgrAny(v, src, dst, n, PS);
}
template <int PS> void YuvkToBgr_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    YuvkToBgrAny(v, src, dst, n, PS, 0);
}
template <int PS>
void YuvkToBgrPremultiplied_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n) {
    YuvkToBgrAny(v, src, dst, n, PS, 1);
}

#define KELP_CSC_BOTH(F)                                                                           \
    { F<3>, F<4> }
static constexpr Kernels kPlain = {"plain",
                                   KELP_CSC_BOTH(BgrToYuv444_C),
                                   KELP_CSC_BOTH(Yuv444ToBgr_C),
                                   KELP_CSC_BOTH(Matrix601To709_C),
                                   KELP_CSC_BOTH(BgrToYuv422_C),
                                   KELP_CSC_BOTH(Yuv422ToBgr_C),
                                   KELP_CSC_BOTH(UyvyToBgr_C),
                                   KELP_CSC_BOTH(UyvkToBgr_C),
                                   KELP_CSC_BOTH(YuvkToBgr_C),
                                   KELP_CSC_BOTH(YuvkToBgrPremultiplied_C)};
#undef KELP_CSC_BOTH

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

} // namespace cscrows
} // namespace kelp
