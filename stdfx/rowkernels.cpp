// The plain row kernels of the toolkit, which define every result.
#include "rowkernels.h"

#include <cstring>

#include "runtime/cpuflags.h"

namespace stdfx {
namespace rowkernels {

void Copy_C(uint8_t* dst, const uint8_t* src, size_t bytes) {
    if (bytes) std::memcpy(dst, src, bytes);
}

void Fill32_C(uint8_t* dst, uint32_t value, size_t words) {
    const uint8_t b[4] = {uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16),
                          uint8_t(value >> 24)};
    for (size_t i = 0; i < words; ++i, dst += 4)
        std::memcpy(dst, b, 4);
}

void BgraToYuva_C(const uint8_t* src, uint8_t* dst, int32_t pixels, const ColourTables& tables) {
    const int32_t* t = tables.table;
    const int32_t* c = tables.clamp + 256;
    for (int32_t x = 0; x < pixels; ++x, src += 4, dst += 4) {
        const int b = src[0], g = src[1], r = src[2];
        const int32_t y = (t[r] + t[256 + g] + t[512 + b]) >> 16;
        const int32_t u = (t[768 + r] + t[1024 + g] + t[1280 + b]) >> 16;
        const int32_t v = (t[1536 + r] + t[1792 + g] + t[2048 + b]) >> 16;
        dst[0] = uint8_t(y);
        dst[1] = uint8_t(c[u]);
        dst[2] = uint8_t(c[v]);
        dst[3] = src[3];
    }
}

void YuvaToBgra_C(const uint8_t* src, uint8_t* dst, int32_t pixels, const ColourTables& tables) {
    const int32_t* t = tables.table;
    const int32_t* l = tables.clamp + 256;
    // The sums reach from -259 to 554; the limit table covers -256..511, so the index is
    // held to that range first (the same answer the table gives at its ends).
    auto lim = [l](int32_t v) { return uint8_t(l[v < -256 ? -256 : v > 511 ? 511 : v]); };
    for (int32_t x = 0; x < pixels; ++x, src += 4, dst += 4) {
        const int y = tables.cut ? l[src[0] - 16] : src[0];
        const int u = src[1], v = src[2];
        const int32_t yt = t[y];
        dst[0] = lim((t[512 + u] + yt) >> 16);
        dst[1] = lim((t[768 + v] + t[1024 + u] + yt) >> 16);
        dst[2] = lim((t[256 + v] + yt) >> 16);
        dst[3] = 255;
    }
}

namespace {

// Byte positions of Y0, U, Y1 and V in a pair.
template <int Y0, int U, int Y1, int V>
void Read422(const uint8_t* row, const uint8_t* alpha, uint8_t* out, int32_t pixels) {
    const int32_t pairs = (pixels + 1) / 2;
    for (int32_t p = 0; p < pairs; ++p) {
        const uint8_t* s = row + 4 * p;
        const uint8_t* n = p + 1 < pairs ? s + 4 : s;
        const int32_t x = 2 * p;
        uint8_t* d = out + 4 * x;
        d[0] = s[Y0];
        d[1] = s[U];
        d[2] = s[V];
        d[3] = alpha ? alpha[x] : 255;
        if (x + 1 < pixels) {
            d[4] = s[Y1];
            d[5] = uint8_t((s[U] + n[U] + 1) >> 1);
            d[6] = uint8_t((s[V] + n[V] + 1) >> 1);
            d[7] = alpha ? alpha[x + 1] : 255;
        }
    }
}

template <int Y0, int U, int Y1, int V>
void Write422(const uint8_t* in, uint8_t* row, uint8_t* alpha, int32_t pixels) {
    for (int32_t x = 0; x < pixels; x += 2) {
        const uint8_t* a = in + 4 * x;
        const uint8_t* b = x + 1 < pixels ? a + 4 : a;
        uint8_t* d = row + 2 * x;
        d[Y0] = a[0];
        d[U] = a[1];
        d[Y1] = b[0];
        d[V] = a[2];
        if (alpha) {
            alpha[x] = a[3];
            if (x + 1 < pixels) alpha[x + 1] = b[3];
        }
    }
}

} // namespace

void ReadYuyv_C(const uint8_t* row, const uint8_t* alpha, uint8_t* yuva, int32_t pixels) {
    Read422<0, 1, 2, 3>(row, alpha, yuva, pixels);
}
void ReadUyvy_C(const uint8_t* row, const uint8_t* alpha, uint8_t* yuva, int32_t pixels) {
    Read422<1, 0, 3, 2>(row, alpha, yuva, pixels);
}
void WriteYuyv_C(const uint8_t* yuva, uint8_t* row, uint8_t* alpha, int32_t pixels) {
    Write422<0, 1, 2, 3>(yuva, row, alpha, pixels);
}
void WriteUyvy_C(const uint8_t* yuva, uint8_t* row, uint8_t* alpha, int32_t pixels) {
    Write422<1, 0, 3, 2>(yuva, row, alpha, pixels);
}

bool LinearRows(const int32_t* table, int rows) {
    for (int r = 0; r < rows; ++r) {
        const int32_t* t = table + 256 * r;
        const int64_t step = int64_t(t[1]) - t[0];
        for (int i = 0; i < 256; ++i)
            if (t[i] != t[0] + step * i) return false;
    }
    return true;
}

bool RowSumsWithin(const int32_t* table, int row, int32_t lo, int32_t hi) {
    int64_t low = 0, high = 0;
    for (int r = row; r < row + 3; ++r) {
        const int64_t a = table[256 * r], b = table[256 * r + 255];
        low += a < b ? a : b;
        high += a < b ? b : a;
    }
    return low >= int64_t(lo) * 65536 && (high >> 16) <= hi && high <= INT32_MAX &&
           low >= INT32_MIN;
}

bool StandardClamp(const int32_t* table, int32_t lo, int32_t hi) {
    for (int i = 0; i < 768; ++i) {
        const int32_t v = i - 256;
        if (table[i] != (v < lo ? lo : v > hi ? hi : v)) return false;
    }
    return true;
}

static constexpr Kernels kPlain = {"plain",    Copy_C,     Fill32_C,    BgraToYuva_C, YuvaToBgra_C,
                                   ReadYuyv_C, ReadUyvy_C, WriteYuyv_C, WriteUyvy_C};

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

} // namespace rowkernels
} // namespace stdfx
