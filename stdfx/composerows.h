// The compositor's row kernels: one table of operations, with a slot for each RGB blend
// mode, the depth compositing and the dissolves. The plain loops (suffix _C,
// composerows.cpp) define every result; a vector target fills only the slots it speeds
// up (composeblend_simd.cpp, composehsl_simd.cpp, composedissolve_simd.cpp) and the
// plain loop stands behind every other slot. Vector forms do whole vectors and leave the
// rest of a run to the plain loop.
//
// Every blend kernel works in place: dst may be src, or any row apart from src. The
// dissolves may write over one of their sources (dst equal to src, first or second, and
// dstAlpha to the matching alpha row).
#pragma once

#include <cstddef>
#include <cstdint>

#include "composepixel.h"

namespace stdfx {
namespace composerows {

// A row of `pixels` four-byte pixels of src blended into dst.
typedef void (*BlendFn)(uint8_t* dst, const uint8_t* src, int32_t pixels, const compose::Tables& t);
// A row of eight-byte depth pixels.
typedef void (*DepthFn)(uint8_t* dst, const uint8_t* src, int32_t pixels);
// dst := mul(src byte, a), every byte.
typedef void (*ScaleFn)(uint8_t* dst, const uint8_t* src, int32_t bytes, int a);
// BGRA: first at opacity a over second.
typedef void (*MixFn)(uint8_t* dst, const uint8_t* first, const uint8_t* second, int32_t pixels,
                      int a);
// A 4:2:2 row of `bytes` bytes at 7-bit precision: each byte c with offset o becomes
// clamp(o + r7((c - o) h)), h := (a + 1) >> 1; luma (offset k) in the bytes of parity
// `lumaParity`, chroma (offset 128) in the others.
typedef void (*Scale422Fn)(uint8_t* dst, const uint8_t* src, int32_t bytes, int a, int k,
                           int lumaParity);
// Meshed Y U V A 4:4:4 at opacity a, luma offset k: Y := mul(clamp(Y - k), a) + k, U and
// V := mul(c - 128, a) + 128 (signed), alpha := mul(alpha, a), each kept to its low byte.
typedef void (*Scale444Fn)(uint8_t* dst, const uint8_t* src, int32_t pixels, int a, int k);
// Meshed 4:4:4: first at opacity a over second. a2 := mul(first alpha, a), inv := 255 - a2;
// each byte := clamp(o + mul(x(second), inv) + mul(x(first), a)), with x(c) := clamp(c - k)
// and o := k for Y, x(c) := c - 128 and o := 128 for U and V; alpha := clamp(a2 +
// mul(second alpha, inv)).
typedef void (*Mix444Fn)(uint8_t* dst, const uint8_t* first, const uint8_t* second, int32_t pixels,
                         int a, int k);
// 4:2:2 pairs (two bytes a pixel) with alpha planes (one byte a pixel), first at opacity
// a over second at 7-bit precision: see Mix422_C. `pixels` is the width; a row holds
// whole pairs.
typedef void (*Mix422Fn)(uint8_t* dst, uint8_t* dstAlpha, const uint8_t* first,
                         const uint8_t* firstAlpha, const uint8_t* second,
                         const uint8_t* secondAlpha, int32_t pixels, int a, int k, int lumaParity);

constexpr int kSlots = 21; // blend[1] is the over of mode 1, blend[2..20] the modes

struct Kernels {
    const char* name; // the target's name, SimdTargetName
    BlendFn blend[kSlots];
    DepthFn depth; // the nearer pixel over the farther one
    ScaleFn scale;
    MixFn mix;
    Scale422Fn scale422;
    Scale444Fn scale444;
    Mix444Fn mix444;
    Mix422Fn mix422;
};

const Kernels& PlainKernels();
// The table of a vector target (kelp::SimdTarget); slots a target leaves empty, and
// targets not compiled, take the next lower target's, at worst the plain loop.
const Kernels& ForTarget(int target);
// ForTarget(BestSimdTarget()).
const Kernels& Current();

// The plain loops.
template <int M>
void Blend_C(uint8_t* dst, const uint8_t* src, int32_t pixels, const compose::Tables& t);
void Over_C(uint8_t* dst, const uint8_t* src, int32_t pixels, const compose::Tables& t);
void Hsl_C(uint8_t* dst, const uint8_t* src, int32_t pixels, const compose::Tables& t);
void Depth_C(uint8_t* dst, const uint8_t* src, int32_t pixels);
void Scale_C(uint8_t* dst, const uint8_t* src, int32_t bytes, int a);
void Mix_C(uint8_t* dst, const uint8_t* first, const uint8_t* second, int32_t pixels, int a);
void Scale422_C(uint8_t* dst, const uint8_t* src, int32_t bytes, int a, int k, int lumaParity);
void Scale444_C(uint8_t* dst, const uint8_t* src, int32_t pixels, int a, int k);
void Mix444_C(uint8_t* dst, const uint8_t* first, const uint8_t* second, int32_t pixels, int a,
              int k);
void Mix422_C(uint8_t* dst, uint8_t* dstAlpha, const uint8_t* first, const uint8_t* firstAlpha,
              const uint8_t* second, const uint8_t* secondAlpha, int32_t pixels, int a, int k,
              int lumaParity);

// True when each of the three rows R, G, B to Y (256 entries each) at the start of a
// translator's RGB to YUV table is linear: entry i = entry 0 + i (entry 1 - entry 0), in
// 32-bit arithmetic modulo 2^32. The luma mattes' vector form then computes the sum of
// three entries instead of gathering them.
bool LumaRowsLinear(const int32_t* toYuv);

// The rounding of the 4:2:2 forms: t := x + 64, then ((t >> 7) + t) >> 7.
inline int Round7(int x) {
    const int t = x + 64;
    return ((t >> 7) + t) >> 7;
}

// Partial tables of the vector files, one per target, null where none was compiled.
// A null slot in them means the plain loop (or a lower target's form).
const Kernels* VectorBlendKernels(int target);
const Kernels* VectorDissolveKernels(int target);
const Kernels* VectorHslKernels(int target);
const Kernels* VectorYuvDissolveKernels(int target);

} // namespace composerows
} // namespace stdfx
