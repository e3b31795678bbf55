// Row kernels of the transform's raster paths, on 4-byte pixels (RGB, meshed 4:4:4, and
// the (C0, Y, C1, A) form the 4:2:2 path works in).
//
// The plain loops (suffix _C, rasterrows.cpp) define every result; the vector forms
// (rasterrows_simd.cpp, one per vector target) give the same bytes and leave the tail of
// a run to the plain loop. No kernel reads or writes beyond the pixels it is given.
#pragma once

#include <cstddef>
#include <cstdint>

#include "stdfx2d/fx2d.h"

namespace stdfx2d {
namespace rasterrows {

// work[4x + c] = seed[c] + sum over k of rows[k][4x + c] * weights[k], for x in x0..x1-1.
typedef void (*VerticalFn)(int32_t* work, const uint8_t* const* rows, const int32_t* weights,
                           int32_t taps, const int32_t seed[4], int32_t x0, int32_t x1);
// For each of `pixels` lists: sum[c] = seed + bias[c] + sum over taps of
// (work[4 index + c] >> shift) * weight, where bias[c] is the list's luma bias for
// channel `luma` (0 in Y U V A, 1 in C0 Y C1 A), its chroma bias for the other two
// colour channels and 0 for alpha; out[4x + c] = clamp(sum[c] >> shift) to 0..255.
// `narrow` false reads work values as they are (a shift of 0 on the work side).
typedef void (*HorizontalFn)(uint8_t* out, const int32_t* work, const Fx2dTapList* lists,
                             int32_t pixels, int32_t shift, int32_t seed, bool narrow,
                             int32_t luma);
// out[x] = src[lookup[x]], 4-byte pixels.
typedef void (*NearestFn)(uint8_t* out, const uint8_t* src, const int32_t* lookup, int32_t pixels);
// Premultiplied over: with m = 255 - s[3]: out[c] = clamp(s[c] + mul(g[c], m)) where
// mul(g, m) = (v + (v >> 8)) >> 8, v = g * m + 128. The YUV form reads g[0] as
// clamp(g[0] - black) and g[1], g[2] as g - 128 (signed). out may be s.
typedef void (*ComposeFn)(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels);
typedef void (*ComposeYuvFn)(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels,
                             int32_t black);

struct Kernels {
    const char* name;
    VerticalFn vertical;
    HorizontalFn horizontal;
    NearestFn nearest;
    ComposeFn compose;
    ComposeYuvFn composeYuv;
};

void Vertical_C(int32_t* work, const uint8_t* const* rows, const int32_t* weights, int32_t taps,
                const int32_t seed[4], int32_t x0, int32_t x1);
void Horizontal_C(uint8_t* out, const int32_t* work, const Fx2dTapList* lists, int32_t pixels,
                  int32_t shift, int32_t seed, bool narrow, int32_t luma);
void Nearest_C(uint8_t* out, const uint8_t* src, const int32_t* lookup, int32_t pixels);
void Compose_C(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels);
void ComposeYuv_C(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels, int32_t black);

const Kernels& PlainKernels();
const Kernels& ForTarget(int target);
const Kernels& Current();
const Kernels* VectorKernels(int target);

} // namespace rasterrows
} // namespace stdfx2d
