// Row kernels of the depth stages: one line of pixels from 1, 4 or 8-bit paletted,
// 16-bit 5-5-5, 24 or 32-bit form to 24 or 32 bits.
//
// The plain loops (suffix _C, depthrows.cpp) define every result. The vector forms
// (depthrows_simd.cpp, one per vector target) do whole blocks and leave the rest of a row
// to the plain loop; each table below is complete.
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
    const char* name; // the target's name, SimdTargetName
    PalRowFn pal1To32, pal4To32, pal8To32;
    PalRowFn pal1To24, pal4To24, pal8To24;
    RowFn rgb555To32, rgb555To24; // 5-5-5 words, bit 15 ignored, low 3 bits of each 0
    RowFn bgrTo32;                // copy 3 bytes, add 255
    RowFn bgraTo24;               // copy 3 bytes, drop the fourth
};

const Kernels& PlainKernels();
// The table of a vector target (kelp::SimdTarget); a target not compiled gives the best
// one below it, at worst the plain table.
const Kernels& ForTarget(int target);
// ForTarget(BestSimdTarget()): the table a conversion uses, taken once per image.
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

// The vector table of a target, or null where none was compiled (depthrows_simd.cpp).
const Kernels* VectorKernels(int target);

} // namespace depthrows
} // namespace kelp
