// Row kernel of the nearest raster paths: each target pixel of a row is one source pixel,
// picked by a column lookup, 4-byte pixels.
//
// The plain loop (NearestRow_C) defines the result. The vector forms take a plan made
// once a pass from the lookup (BuildNearestPlan): the lookup cut into blocks of one
// vector of pixels; a block whose pixels all come from one vector's width of the source
// row is one unaligned load and one lane permutation, any other block is the plain loop.
// No form reads or writes beyond the pixels it is given.
#pragma once

#include <cstdint>
#include <vector>

namespace stdfx2d {
namespace nearestrows {

// The lookup of one pass, cut into blocks of `block` pixels (0 for the plain loop) after
// `head` pixels that the plain loop does (so that the blocks' stores fall on whole
// vectors of the target rows): block b covers pixels head + b * block onward; base[b] is
// the first source pixel of the vector loaded for it, or -1 when the block is left to the
// plain loop; rel holds lookup[x] - base[b] for the pixels of each block, in order, as
// bytes: read beside the row's stores, 64 bytes of indices a block kept falling on the
// same places in their pages as the stores, and the loads waited on them.
// Pixels beyond the last whole block have no entries.
struct NearestPlan {
    int32_t block = 0;
    int32_t head = 0;
    std::vector<int32_t> base;
    std::vector<uint8_t> rel; // a vector holds at most 16 pixels
};

// out[x] = src[lookup[x]] for x < pixels.
void NearestRow_C(uint8_t* out, const uint8_t* src, const int32_t* lookup, int32_t pixels);

// The plan for `pixels` entries of `lookup` over a source row of `srcPixels` pixels, with
// vectors of `block` pixels; `out` is where a row's first pixel is written and `srcRow`
// where a source row starts (only their alignment is used: the head that brings the
// stores onto whole vectors, and loads that stay within one vector's line where the
// block allows).
void BuildNearestPlan(NearestPlan& plan, const int32_t* lookup, int32_t pixels, int32_t srcPixels,
                      int32_t block, const void* out, const void* srcRow = nullptr);

// The row by a plan: the same bytes as NearestRow_C(out, src, lookup, pixels).
typedef void (*NearestRowFn)(uint8_t* out, const uint8_t* src, const int32_t* lookup,
                             const NearestPlan& plan, int32_t pixels);

struct Kernels {
    const char* name;
    int32_t block; // pixels a vector, 0 for the plain loop
    NearestRowFn row;
};

const Kernels& PlainKernels();
const Kernels& ForTarget(int target);
const Kernels& Current();
const Kernels* VectorKernels(int target);

} // namespace nearestrows
} // namespace stdfx2d
