// Row kernels of the scalers and the deinterlacer: one output line of 24-bit or 32-bit
// pixels (or "@YUV" at 24 bits, whose bytes they carry the same way) from one or two
// source lines and a table of weights or source columns.
//
// Weights are 11-bit fractions: the weight of a position and that of the next add up
// to 2048. Products are shifted down and truncated, no rounding is added. The plain
// loops (suffix _C, scalerows.cpp) define every result.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelp {
namespace scalerows {

// One entry of a line-weight table: a byte offset into the source, the weight of the
// next position, the weight of this one.
struct LineWeight {
    size_t offset;
    int32_t next;
    int32_t cur;
};

// First and last line of a bilinear scale, horizontal only: the first pixel is copied
// from offset 0, the last one from the last entry's offset, the ones between are
// (next pixel * next weight + this pixel * this weight) >> 11, byte by byte. `bpp` is 3
// or 4. An entry whose next pixel would leave the row (a source of one pixel) must
// carry the next weight 0; the kernel then reads this pixel twice.
typedef void (*HorzRowFn)(const uint8_t* cur, uint8_t* dst, const LineWeight* cols, int32_t width,
                          int bpp, size_t lastOffset);
// Any other line: the first and last pixel are blended vertically only, the ones
// between bilinearly: ((cur hC + cur' hN) wC + (next hC + next' hN) wN) >> 22, the prime
// being the pixel one on.
typedef void (*BilinearRowFn)(const uint8_t* cur, const uint8_t* next, uint8_t* dst,
                              const LineWeight* cols, int32_t width, int bpp, size_t lastOffset,
                              int32_t wNext, int32_t wCur);
// Every byte: (next * wNext + cur * wCur) >> 11.
typedef void (*BlendRowFn)(const uint8_t* cur, const uint8_t* next, uint8_t* dst, size_t bytes,
                           int32_t wNext, int32_t wCur);
// Nearest neighbour: pixel x of dst := pixel cols[x] of src. `bpp` is 1, 3 or 4.
typedef void (*PickRowFn)(const uint8_t* src, uint8_t* dst, const int32_t* cols, int32_t width,
                          int bpp);

struct Kernels {
    const char* name; // the target's name, SimdTargetName
    HorzRowFn horz;
    BilinearRowFn bilinear;
    BlendRowFn blend;
    PickRowFn pick;
};

const Kernels& PlainKernels();
// The table of a vector target (kelp::SimdTarget); a target not compiled gives the best
// one below it, at worst the plain table.
const Kernels& ForTarget(int target);
// ForTarget(BestSimdTarget()): the table a scale uses, taken once per image.
const Kernels& Current();

// ---- Plain loops.
void HorzRow_C(const uint8_t* cur, uint8_t* dst, const LineWeight* cols, int32_t width, int bpp,
               size_t lastOffset);
void BilinearRow_C(const uint8_t* cur, const uint8_t* next, uint8_t* dst, const LineWeight* cols,
                   int32_t width, int bpp, size_t lastOffset, int32_t wNext, int32_t wCur);
void BlendRow_C(const uint8_t* cur, const uint8_t* next, uint8_t* dst, size_t bytes, int32_t wNext,
                int32_t wCur);
void PickRow_C(const uint8_t* src, uint8_t* dst, const int32_t* cols, int32_t width, int bpp);

// The vector table of a target, or null where none was compiled (scalerows_simd.cpp).
const Kernels* VectorKernels(int target);

} // namespace scalerows
} // namespace kelp
