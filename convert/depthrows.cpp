// Plain row loops of the depth stages, and the choice of a table for the processor.
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

static constexpr Kernels kPlain = {"plain",      Pal1To32_C, Pal4To32_C, Pal8To32_C,
                                   Pal1To24_C,   Pal4To24_C, Pal8To24_C, Rgb555To32_C,
                                   Rgb555To24_C, BgrTo32_C,  BgraTo24_C};

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

const Kernels* VectorKernels(int) {
    return nullptr;
}

} // namespace depthrows
} // namespace kelp
