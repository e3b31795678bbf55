// Row kernels of the depth stages: one line of pixels from 1, 4 or 8-bit paletted,
// 16-bit 5-5-5, 24 or 32-bit form to 24 or 32 bits.
//
// The plain loops (suffix _C) define every result. The vector forms (_SSE2, _AVX2) do
// whole blocks only, of the pixel count their declaration gives; AnyRow in
// depthrows.cpp runs them over the largest whole part of a row and the plain loop over
// the rest. Select picks one complete table for a set of processor flags.
#pragma once

#include <cstdint>

namespace kelp {
namespace depthrows {

// A colour table as the kernels read it: 256 words of blue, green, red and 255 in
// memory order (0xFFRRGGBB as a little-endian word), and for 4-bit rows the words of
// both pixels of every byte value (high nibble first). Entries the image's own table
// does not have are black.
struct Palette {
    uint32_t bgra[256];
    uint64_t pairs[256];
};

// Fills `pal` from `count` entries of blue, green, red, unused (count at most 256).
void MakePalette(const uint8_t* table, uint32_t count, Palette* pal);

typedef void (*PalRowFn)(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
typedef void (*RowFn)(const uint8_t* src, uint8_t* dst, int32_t width);

struct Kernels {
    const char* name;
    PalRowFn pal1To32, pal4To32, pal8To32;
    PalRowFn pal1To24, pal4To24, pal8To24;
    RowFn rgb555To32, rgb555To24; // 5-5-5 words, bit 15 ignored, low 3 bits of each 0
    RowFn bgrTo32;                // copy 3 bytes, add 255
    RowFn bgraTo24;               // copy 3 bytes, drop the fourth
};

// The plain loops, the SSE2 and the AVX2 forms, each complete (tails included).
const Kernels& PlainKernels();
const Kernels& SSE2Kernels();
const Kernels& AVX2Kernels();
// The best table for these flags (kCpuSSE2, kCpuAVX2 of runtime/cpuflags.h).
const Kernels& Select(uint32_t cpuFlags);
// Select(CpuFlags()): the table a conversion uses, taken once per image.
const Kernels& Current();

// ---- Plain loops.
void Pal1To32_C(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal4To32_C(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal8To32_C(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal1To24_C(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal4To24_C(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal8To24_C(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Rgb555To32_C(const uint8_t* src, uint8_t* dst, int32_t width);
void Rgb555To24_C(const uint8_t* src, uint8_t* dst, int32_t width);
void BgrTo32_C(const uint8_t* src, uint8_t* dst, int32_t width);
void BgraTo24_C(const uint8_t* src, uint8_t* dst, int32_t width);

// ---- Vector forms: width is a multiple of the block size named.
constexpr int32_t kBlockSSE2 = 16; // pixels, every SSE2 kernel
constexpr int32_t kBlockAVX2 = 32; // pixels, every AVX2 kernel
void Pal1To32_SSE2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal4To32_SSE2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal8To32_SSE2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal1To24_SSE2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal4To24_SSE2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal8To24_SSE2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Rgb555To32_SSE2(const uint8_t* src, uint8_t* dst, int32_t width);
void Rgb555To24_SSE2(const uint8_t* src, uint8_t* dst, int32_t width);
void BgrTo32_SSE2(const uint8_t* src, uint8_t* dst, int32_t width);
void BgraTo24_SSE2(const uint8_t* src, uint8_t* dst, int32_t width);

void Pal1To32_AVX2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal4To32_AVX2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal8To32_AVX2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal1To24_AVX2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal4To24_AVX2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Pal8To24_AVX2(const uint8_t* src, uint8_t* dst, int32_t width, const Palette* pal);
void Rgb555To32_AVX2(const uint8_t* src, uint8_t* dst, int32_t width);
void Rgb555To24_AVX2(const uint8_t* src, uint8_t* dst, int32_t width);
void BgrTo32_AVX2(const uint8_t* src, uint8_t* dst, int32_t width);
void BgraTo24_AVX2(const uint8_t* src, uint8_t* dst, int32_t width);

} // namespace depthrows
} // namespace kelp
