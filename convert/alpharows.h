// Pixel kernels of the alpha stage over runs of 32-bit pixels: premultiply (RGB and YUV
// forms), fill the alpha byte, undo premultiplication. Source and destination are the
// same buffer or do not overlap at all.
//
// The plain loops (suffix _C) define every result; the vector forms do whole blocks and
// the wrappers in alpharows.cpp finish the run with the plain loop.
#pragma once

#include <cstdint>

namespace kelp {
namespace alpharows {

typedef void (*RunFn)(const uint8_t* src, uint8_t* dst, int32_t pixels);

struct Kernels {
    const char* name;
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
const Kernels& SSE2Kernels();
const Kernels& AVX2Kernels();
const Kernels& Select(uint32_t cpuFlags);
const Kernels& Current();

void Premultiply_C(const uint8_t* src, uint8_t* dst, int32_t pixels);
void PremultiplyYuv_C(const uint8_t* src, uint8_t* dst, int32_t pixels);
void Fill_C(const uint8_t* src, uint8_t* dst, int32_t pixels);
void Unpremultiply_C(const uint8_t* src, uint8_t* dst, int32_t pixels);

constexpr int32_t kBlockSSE2 = 4; // pixels
constexpr int32_t kBlockAVX2 = 8;
void Premultiply_SSE2(const uint8_t* src, uint8_t* dst, int32_t pixels);
void PremultiplyYuv_SSE2(const uint8_t* src, uint8_t* dst, int32_t pixels);
void Fill_SSE2(const uint8_t* src, uint8_t* dst, int32_t pixels);
void Unpremultiply_SSE2(const uint8_t* src, uint8_t* dst, int32_t pixels);
void Premultiply_AVX2(const uint8_t* src, uint8_t* dst, int32_t pixels);
void PremultiplyYuv_AVX2(const uint8_t* src, uint8_t* dst, int32_t pixels);
void Fill_AVX2(const uint8_t* src, uint8_t* dst, int32_t pixels);
void Unpremultiply_AVX2(const uint8_t* src, uint8_t* dst, int32_t pixels);

} // namespace alpharows
} // namespace kelp
