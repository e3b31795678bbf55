// The plain alpha multiplications, which define every result.
#include "premultiplyrows.h"

#include "runtime/cpuflags.h"

namespace stdfx {
namespace premultiplyrows {

void Premultiply_C(uint8_t* px, int32_t pixels) {
    for (int32_t x = 0; x < pixels; ++x, px += 4) {
        const int a = px[3];
        px[0] = Premultiplied(px[0], a);
        px[1] = Premultiplied(px[1], a);
        px[2] = Premultiplied(px[2], a);
    }
}

void Unpremultiply_C(uint8_t* px, int32_t pixels, const int32_t* recip) {
    for (int32_t x = 0; x < pixels; ++x, px += 4) {
        const int a = px[3];
        px[0] = Unpremultiplied(px[0], a, recip);
        px[1] = Unpremultiplied(px[1], a, recip);
        px[2] = Unpremultiplied(px[2], a, recip);
    }
}

namespace {

// Calls f(byte, alpha) for each byte of the pairs of a 4:2:2 row. The second pixel of
// an odd run's last pair does not exist: its luma goes by the first pixel's alpha.
template <class F>
void Each422(uint8_t* row, const uint8_t* alpha, int32_t pixels, bool uyvy, F f) {
    const int y0 = uyvy ? 1 : 0, u = uyvy ? 0 : 1, y1 = uyvy ? 3 : 2, v = uyvy ? 2 : 3;
    for (int32_t x = 0; x < pixels; x += 2, row += 4) {
        const int a0 = alpha[x], a1 = x + 1 < pixels ? alpha[x + 1] : a0;
        row[y0] = f(row[y0], a0);
        row[u] = f(row[u], a0);
        row[y1] = f(row[y1], a1);
        row[v] = f(row[v], a0);
    }
}

} // namespace

void Premultiply422_C(uint8_t* row, const uint8_t* alpha, int32_t pixels, bool uyvy) {
    Each422(row, alpha, pixels, uyvy, [](int c, int a) { return Premultiplied(c, a); });
}

void Unpremultiply422_C(uint8_t* row, const uint8_t* alpha, int32_t pixels, bool uyvy,
                        const int32_t* recip) {
    Each422(row, alpha, pixels, uyvy,
            [recip](int c, int a) { return Unpremultiplied(c, a, recip); });
}

static constexpr Kernels kPlain = {"plain", Premultiply_C, Unpremultiply_C, Premultiply422_C,
                                   Unpremultiply422_C};

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

} // namespace premultiplyrows
} // namespace stdfx
