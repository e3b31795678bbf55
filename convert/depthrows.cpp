// Plain row loops of the depth stages, the tail wrapper of the vector forms, and the
// choice between them.
#include "depthrows.h"

#include <cstring>

#include "runtime/cpuflags.h"

namespace kelp {
namespace depthrows {

void MakePalette(const uint8_t* table, uint32_t count, Palette* pal) {
    if (count > 256) count = 256;
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t w = 0xFF000000u;
        if (i < count) {
            const uint8_t* e = table + 4 * i;
            w |= uint32_t(e[0]) | (uint32_t(e[1]) << 8) | (uint32_t(e[2]) << 16);
        }
        pal->bgra[i] = w;
    }
    for (uint32_t i = 0; i < 256; ++i)
        pal->pairs[i] = uint64_t(pal->bgra[i >> 4]) | (uint64_t(pal->bgra[i & 15]) << 32);
}

// ---- Plain loops

static inline void Put32(uint8_t* d, uint32_t bgra) {
    memcpy(d, &bgra, 4);
}
static inline void Put24(uint8_t* d, uint32_t bgra) {
    d[0] = uint8_t(bgra);
    d[1] = uint8_t(bgra >> 8);
    d[2] = uint8_t(bgra >> 16);
}

void Pal1To32_C(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    for (int32_t x = 0; x < width; ++x)
        Put32(dst + 4 * x, pal->bgra[(src[x >> 3] >> (7 - (x & 7))) & 1]);
}
void Pal4To32_C(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    for (int32_t x = 0; x < width; ++x)
        Put32(dst + 4 * x, pal->bgra[(x & 1) ? src[x >> 1] & 15 : src[x >> 1] >> 4]);
}
void Pal8To32_C(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    for (int32_t x = 0; x < width; ++x)
        Put32(dst + 4 * x, pal->bgra[src[x]]);
}
void Pal1To24_C(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    for (int32_t x = 0; x < width; ++x)
        Put24(dst + 3 * x, pal->bgra[(src[x >> 3] >> (7 - (x & 7))) & 1]);
}
void Pal4To24_C(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    for (int32_t x = 0; x < width; ++x)
        Put24(dst + 3 * x, pal->bgra[(x & 1) ? src[x >> 1] & 15 : src[x >> 1] >> 4]);
}
void Pal8To24_C(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    for (int32_t x = 0; x < width; ++x)
        Put24(dst + 3 * x, pal->bgra[src[x]]);
}

static inline uint32_t From555(uint32_t v) {
    return ((v & 31) << 3) | (((v >> 5) & 31) << 11) | (((v >> 10) & 31) << 19) | 0xFF000000u;
}
void Rgb555To32_C(const uint8_t* src, uint8_t* dst, int32_t width) {
    for (int32_t x = 0; x < width; ++x)
        Put32(dst + 4 * x, From555(src[2 * x] | (uint32_t(src[2 * x + 1]) << 8)));
}
void Rgb555To24_C(const uint8_t* src, uint8_t* dst, int32_t width) {
    for (int32_t x = 0; x < width; ++x)
        Put24(dst + 3 * x, From555(src[2 * x] | (uint32_t(src[2 * x + 1]) << 8)));
}
void BgrTo32_C(const uint8_t* src, uint8_t* dst, int32_t width) {
    for (int32_t x = 0; x < width; ++x) {
        dst[4 * x] = src[3 * x];
        dst[4 * x + 1] = src[3 * x + 1];
        dst[4 * x + 2] = src[3 * x + 2];
        dst[4 * x + 3] = 255;
    }
}
void BgraTo24_C(const uint8_t* src, uint8_t* dst, int32_t width) {
    for (int32_t x = 0; x < width; ++x) {
        dst[3 * x] = src[4 * x];
        dst[3 * x + 1] = src[4 * x + 1];
        dst[3 * x + 2] = src[4 * x + 2];
    }
}

// ---- Tails: the vector form over the whole blocks, the plain loop over the rest. The
// block sizes are multiples of 8 pixels, so the rest of a 1-bit row starts on a byte.

namespace {

template <RowFn Vec, RowFn Plain, int32_t Block, int32_t SrcBits, int32_t DstBytes>
void AnyRow(const uint8_t* src, uint8_t* dst, int32_t width) {
    int32_t n = width - width % Block;
    if (n > 0) Vec(src, dst, n);
    if (width > n) Plain(src + n * SrcBits / 8, dst + n * DstBytes, width - n);
}

template <PalRowFn Vec, PalRowFn Plain, int32_t Block, int32_t SrcBits, int32_t DstBytes>
void AnyPalRow(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal) {
    int32_t n = width - width % Block;
    if (n > 0) Vec(src, dst, n, pal);
    if (width > n) Plain(src + n * SrcBits / 8, dst + n * DstBytes, width - n, pal);
}

static_assert(kBlockSSE2 % 8 == 0 && kBlockAVX2 % 8 == 0, "blocks end on a source byte");

constexpr Kernels kPlain = {"plain",      Pal1To32_C, Pal4To32_C, Pal8To32_C,
                            Pal1To24_C,   Pal4To24_C, Pal8To24_C, Rgb555To32_C,
                            Rgb555To24_C, BgrTo32_C,  BgraTo24_C};

#define KELP_PAL_ROW(name, isa, block, bits, bytes)                                                \
    AnyPalRow<name##_##isa, name##_C, block, bits, bytes>
#define KELP_ROW(name, isa, block, bits, bytes) AnyRow<name##_##isa, name##_C, block, bits, bytes>

constexpr Kernels kSSE2 = {
    "sse2",
    KELP_PAL_ROW(Pal1To32, SSE2, kBlockSSE2, 1, 4),
    KELP_PAL_ROW(Pal4To32, SSE2, kBlockSSE2, 4, 4),
    KELP_PAL_ROW(Pal8To32, SSE2, kBlockSSE2, 8, 4),
    KELP_PAL_ROW(Pal1To24, SSE2, kBlockSSE2, 1, 3),
    KELP_PAL_ROW(Pal4To24, SSE2, kBlockSSE2, 4, 3),
    KELP_PAL_ROW(Pal8To24, SSE2, kBlockSSE2, 8, 3),
    KELP_ROW(Rgb555To32, SSE2, kBlockSSE2, 16, 4),
    KELP_ROW(Rgb555To24, SSE2, kBlockSSE2, 16, 3),
    KELP_ROW(BgrTo32, SSE2, kBlockSSE2, 24, 4),
    KELP_ROW(BgraTo24, SSE2, kBlockSSE2, 32, 3),
};

constexpr Kernels kAVX2 = {
    "avx2",
    KELP_PAL_ROW(Pal1To32, AVX2, kBlockAVX2, 1, 4),
    KELP_PAL_ROW(Pal4To32, AVX2, kBlockAVX2, 4, 4),
    KELP_PAL_ROW(Pal8To32, AVX2, kBlockAVX2, 8, 4),
    KELP_PAL_ROW(Pal1To24, AVX2, kBlockAVX2, 1, 3),
    KELP_PAL_ROW(Pal4To24, AVX2, kBlockAVX2, 4, 3),
    KELP_PAL_ROW(Pal8To24, AVX2, kBlockAVX2, 8, 3),
    KELP_ROW(Rgb555To32, AVX2, kBlockAVX2, 16, 4),
    KELP_ROW(Rgb555To24, AVX2, kBlockAVX2, 16, 3),
    KELP_ROW(BgrTo32, AVX2, kBlockAVX2, 24, 4),
    KELP_ROW(BgraTo24, AVX2, kBlockAVX2, 32, 3),
};

#undef KELP_PAL_ROW
#undef KELP_ROW

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

} // namespace depthrows
} // namespace kelp
