// The plain row kernels of the deinterlacers, which define every result.
#include "deinterlacerows.h"

#include <algorithm>
#include <cstring>

#include "runtime/cpuflags.h"

namespace stdfx {
namespace deinterlacerows {

namespace {

inline uint8_t Clip(int v) {
    return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
}
inline int Abs(int v) {
    return v < 0 ? -v : v;
}

} // namespace

void Average_C(const uint8_t* a, const uint8_t* b, uint8_t* dst, int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        dst[i] = uint8_t((a[i] + b[i] + 1) >> 1);
}

void Blend_C(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint8_t* dst, int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        dst[i] = uint8_t((a[i] + 2 * c[i] + b[i] + 2) >> 2);
}

void Cubic_C(const uint8_t* d, const uint8_t* a, const uint8_t* b, const uint8_t* e, uint8_t* dst,
             int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        dst[i] = Clip((19 * (a[i] + b[i]) - 3 * (d[i] + e[i]) + 16) >> 5);
}

void FiveTap_C(const uint8_t* d, const uint8_t* a, const uint8_t* c, const uint8_t* b,
               const uint8_t* e, uint8_t* dst, int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        dst[i] = Clip((10 * c[i] + 8 * (a[i] + b[i]) - 5 * (d[i] + e[i])) >> 4);
}

void Median3_C(const uint8_t* a, const uint8_t* b, const uint8_t* c, uint8_t* dst, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        const uint8_t lo = std::min(a[i], b[i]), hi = std::max(a[i], b[i]);
        dst[i] = std::max(lo, std::min(hi, c[i]));
    }
}

void Median9_C(const uint8_t* a, const uint8_t* b, const uint8_t* c, const uint8_t* d, uint8_t* dst,
               int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        const uint8_t ab = uint8_t((a[i] + b[i] + 1) >> 1), cd = uint8_t((c[i] + d[i] + 1) >> 1);
        uint8_t v[9] = {0, a[i], b[i], c[i], d[i], ab, ab, cd, 255};
        std::sort(v, v + 9);
        dst[i] = v[4];
    }
}

void EdgeBytes_C(const uint8_t* A, const uint8_t* B, uint8_t* dst, int32_t w, int32_t s,
                 int32_t from, int32_t to) {
    for (int32_t i = from; i < to; ++i) {
        const int32_t x = i / s;
        const int a = A[i], b = B[i];
        const int mean = (a + b + 1) >> 1;
        if (x < kEdgeHead || x >= w - kEdgeTail) {
            dst[i] = uint8_t(mean);
            continue;
        }
        if (Abs(b - a) < 10 && Abs(B[i - 2 * s] - B[i + 2 * s]) < 10 &&
            Abs(A[i - 2 * s] - A[i + 2 * s]) < 10) {
            dst[i] = uint8_t(mean);
            continue;
        }
        const int lo = std::min(a, b) - 2, hi = std::max(a, b) + 2;
        int result = mean, best = 450;
        const int32_t r = std::min(std::min(x - 1, w - x - 2), kEdgeRange);
        // One diagonal through (above, -k) and (below, +k); `X` is the line the
        // diagonal leaves to the left, `Y` the other, x and y their own bytes.
        auto diagonal = [&](const uint8_t* X, const uint8_t* Y, int xv, int yv, int32_t k) {
            const int32_t u = (k + 1) / 2, v = k / 2;
            const int p = Y[i + u * s] + Y[i + v * s];
            const int q = X[i - u * s] + X[i - v * s];
            const int candidate = (p + q + 2) >> 2;
            const int cost = 2 * (Abs(yv - X[i - k * s]) + Abs(xv - Y[i + k * s])) +
                             Abs(X[i - s] - Y[i + (k - 1) * s]) +
                             Abs(Y[i - s] - X[i - (k + 1) * s]) +
                             Abs(X[i + s] - Y[i + (k + 1) * s]) +
                             Abs(Y[i + s] - X[i - (k - 1) * s]) + Abs(p - q);
            if (cost < best && candidate >= lo && candidate <= hi) {
                result = candidate;
                best = cost;
            }
        };
        for (int32_t k = 0; k <= r / 2; ++k) {
            diagonal(A, B, a, b, k);
            diagonal(B, A, b, a, k);
        }
        dst[i] = uint8_t(result);
    }
}

void Edge_C(const uint8_t* above, const uint8_t* below, uint8_t* dst, int32_t pixels,
            int32_t step) {
    if (pixels <= 0 || step <= 0) return;
    EdgeBytes_C(above, below, dst, pixels, step, 0, pixels * step);
}

void CubicKeep_C(const uint8_t* d, const uint8_t* a, const uint8_t* b, const uint8_t* e,
                 uint8_t* dst, uint8_t* keep, int32_t n) {
    Cubic_C(d, a, b, e, dst, n);
    if (n > 0) std::memcpy(keep, b, size_t(n));
}

static constexpr Kernels kPlain = {"plain",   Average_C, Blend_C, Cubic_C,    FiveTap_C,
                                   Median3_C, Median9_C, Edge_C,  CubicKeep_C};

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

} // namespace deinterlacerows
} // namespace stdfx
