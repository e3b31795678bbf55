// Pixel kernels of the alpha stage over runs of 32-bit pixels: premultiply (RGB and YUV
// forms), fill the alpha byte, undo premultiplication. Source and destination are the
// same buffer or do not overlap at all.
//
// The plain loops (suffix _C, alpharows.cpp) define every result. The vector forms
// (alpharows_simd.cpp, one per vector target) do whole vectors and leave the rest of a
// run to the plain loop; each table below is complete.
#pragma once

#include <cstdint>

namespace kelp {
namespace alpharows {

typedef void (*RunFn)(const uint8_t* src, uint8_t* dst, int32_t pixels);

struct Kernels {
    const char* name; // the target's name, SimdTargetName
    // c, a: t := c * a + 128; c := (t + (t >> 8)) >> 8. The alpha byte stays.
    RunFn premultiply;
    // Byte 0 around 16 and bytes 1, 2 around 128, in signed arithmetic.
    RunFn premultiplyYuv;
    // Alpha byte := 255, colour bytes copied.
    RunFn fill;
    // a := alpha, 0 read as 1; c := low byte of c * 255 / a; alpha := a.
    RunFn unpremultiply;
};

const Kernels& PlainKernels();
// The table of a vector target (kelp::SimdTarget); a target not compiled gives the best
// one below it, at worst the plain table.
const Kernels& ForTarget(int target);
// ForTarget(BestSimdTarget()): the table a conversion uses, taken once per image.
const Kernels& Current();

void Premultiply_C(const uint8_t* src, uint8_t* dst, int32_t pixels);
void PremultiplyYuv_C(const uint8_t* src, uint8_t* dst, int32_t pixels);
void Fill_C(const uint8_t* src, uint8_t* dst, int32_t pixels);
void Unpremultiply_C(const uint8_t* src, uint8_t* dst, int32_t pixels);

// The vector table of a target, or null where none was compiled (alpharows_simd.cpp).
const Kernels* VectorKernels(int target);

} // namespace alpharows
} // namespace kelp
