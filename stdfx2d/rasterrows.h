// Row kernels of the transform's raster paths, on 4-byte pixels (RGB, meshed 4:4:4, and
// the (C0, Y, C1, A) form the 4:2:2 path works in).
//
// The plain loops (suffix _C, rasterrows.cpp) define every result; the vector forms
// (rasterrows_simd.cpp, one per vector target) give the same bytes and leave the tail of
// a run to the plain loop. No kernel reads or writes beyond the pixels it is given.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

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

// The same two passes with the work row kept as bytes: the vertical pass stores
// out[4x + c] = (seed[c] + sum over k of rows[k][4x + c] * weights[k]) >> shift, and the
// horizontal pass reads those bytes where the plain pass reads work >> shift. The caller
// takes this form only for a row whose every such value lies in 0..255 before the
// byte is stored (RowFitsBytes), so that the bytes are the work values' shifted form
// exactly, and only with shift 0..14.
typedef void (*VerticalBytesFn)(uint8_t* out, const uint8_t* const* rows, const int32_t* weights,
                                int32_t taps, const int32_t seed[4], int32_t x0, int32_t x1,
                                int32_t shift);

// The column lists of one horizontal pass rewritten for the byte work row: each target
// pixel reads a window of 4 x groups source pixels from `start`, with one weight per
// window pixel (0 where the list has no tap; taps of one index summed), and its four
// seeds (seed plus the list's biases). The weights are kept in the order the vector form
// multiplies them: pixels in runs of `block`, a run's lists group by group, a group as
// two vectors (window pixels 0, 1 then 2, 3), each with `block` 16-byte parts, part b
// holding the run's pixel b's pair of weights four times (once per channel).
struct ColumnPlan {
    int32_t pixels = 0;
    int32_t groups = 0;
    int32_t block = 1;
    int32_t reach = 0;              // work pixels the windows read: the largest start + 4 x groups
    const int32_t* start = nullptr; // per pixel, in source pixels
    const int16_t* weights = nullptr; // pixels rounded up to a whole run, 16 x groups each
    const int32_t* seeds = nullptr;   // 4 per pixel

    int32_t Weight(int32_t x, int32_t g, int32_t j) const {
        const int32_t run = x / block, b = x % block;
        return weights[(size_t(run) * groups + g) * 16 * block + (j >> 1) * 8 * block + 8 * b +
                       (j & 1)];
    }
};
// out[4x + c] = clamp((seeds[4x + c] + sum over window pixels i of
// work[4 (start[x] + i) + c] * weight(x, i)) >> shift) to 0..255, for x in 0..pixels-1.
// Reads work bytes 4 start[x] .. 4 (start[x] + 4 groups) - 1.
typedef void (*HorizontalBytesFn)(uint8_t* out, const uint8_t* work, const ColumnPlan& plan,
                                  int32_t shift);

// The 4:2:2 path's two rearrangements of bytes. Spread: tuple x of `out` is
// (C0, Y0 or Y1 as x is even or odd, C1, alpha[x]) of pair x >> 1 of `pairs`, with
// `opaque` for the alpha when `alpha` is null. Pack: pair p of `out` is C0, Y, C1 of
// tuple 2p and the Y of tuple 2p + 1; plane (when not null) gets both tuples' alphas.
typedef void (*Spread422Fn)(uint8_t* out, const uint8_t* pairs, const uint8_t* alpha,
                            uint8_t opaque, int32_t pixels);
typedef void (*Pack422Fn)(uint8_t* out, uint8_t* plane, const uint8_t* tuples, int32_t pairs);

struct Kernels {
    const char* name;
    VerticalFn vertical;
    HorizontalFn horizontal;
    NearestFn nearest;
    ComposeFn compose;
    ComposeYuvFn composeYuv;
    VerticalBytesFn verticalBytes;
    HorizontalBytesFn horizontalBytes;
    int32_t columnBlock; // the `block` its horizontalBytes wants of a plan
    Spread422Fn spread422;
    Pack422Fn pack422;
};

// Whether one row list's vertical sums all lie in 0 .. (256 << shift) - 1 for any source
// bytes, which lets the byte work row stand for the work values.
bool RowFitsBytes(const Fx2dTapList& list, const int32_t seed[4], int32_t shift);

// Storage of a column plan; Build fills it from `pixels` column lists with the seeds of
// Horizontal_C (seed, the biases, `luma`) and fails when a list reaches further than
// `maxGroups` groups of 4 pixels or a summed weight leaves 16 bits.
struct ColumnPlanStore {
    std::vector<int32_t> start, seeds;
    std::vector<int16_t> weights;
    ColumnPlan plan;
    bool Build(const Fx2dTapList* lists, int32_t pixels, int32_t seed, int32_t luma, int32_t block,
               int32_t maxGroups);
};

void Vertical_C(int32_t* work, const uint8_t* const* rows, const int32_t* weights, int32_t taps,
                const int32_t seed[4], int32_t x0, int32_t x1);
void Horizontal_C(uint8_t* out, const int32_t* work, const Fx2dTapList* lists, int32_t pixels,
                  int32_t shift, int32_t seed, bool narrow, int32_t luma);
void Nearest_C(uint8_t* out, const uint8_t* src, const int32_t* lookup, int32_t pixels);
void Compose_C(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels);
void ComposeYuv_C(uint8_t* out, const uint8_t* s, const uint8_t* g, int32_t pixels, int32_t black);
void VerticalBytes_C(uint8_t* out, const uint8_t* const* rows, const int32_t* weights, int32_t taps,
                     const int32_t seed[4], int32_t x0, int32_t x1, int32_t shift);
void HorizontalBytes_C(uint8_t* out, const uint8_t* work, const ColumnPlan& plan, int32_t shift);
void Spread422_C(uint8_t* out, const uint8_t* pairs, const uint8_t* alpha, uint8_t opaque,
                 int32_t pixels);
void Pack422_C(uint8_t* out, uint8_t* plane, const uint8_t* tuples, int32_t pairs);
// The plain form over pixels x0..x1-1 of a plan only (the vector forms' tails).
void HorizontalBytesPart_C(uint8_t* out, const uint8_t* work, const ColumnPlan& plan, int32_t shift,
                           int32_t x0, int32_t x1);

const Kernels& PlainKernels();
const Kernels& ForTarget(int target);
const Kernels& Current();
const Kernels* VectorKernels(int target);

} // namespace rasterrows
} // namespace stdfx2d
