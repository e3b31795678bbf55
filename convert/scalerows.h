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
#include <vector>

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

// ---- The two-pass bilinear route. A line of the output is the vertical blend of two
// rows of horizontal sums, one sum an output byte: T = p hC + q hN (p the byte of the
// entry's pixel, q that of the pixel one on), and the byte (Ttop wC + Tbottom wN) >> 22.
// The first and last pixel of a line take their entry's pixel with the weights 0 and
// 2048, which is what the plain rows' copies and vertical-only blends come to; with
// every weight of both tables in 0..2048 and each pair adding up to at most 2048 the
// route gives the bytes of HorzRow_C (line weights 0 and 2048) and BilinearRow_C. The
// scaler keeps a row of sums while the next output line reads the same source line, and
// otherwise makes a line in one pass (LineFn).

// The column table turned into the steps of the vector forms, once per image: for each
// group of 4 output bytes (a quad) one or two 16-byte windows of the source row, the
// byte shuffles that spread p and q of each output byte into a 16-bit pair, and the
// pairs of weights (hC, hN). Plain loops read only `cols`.
struct ColumnPlan {
    const LineWeight* cols = nullptr;
    int32_t width = 0;
    int bpp = 0;
    size_t lastOffset = 0;
    size_t quads = 0;        // quads the vector forms take; the bytes after them are plain
    bool twoWindows = false; // some quad needs two windows: every quad takes two
    std::vector<uint32_t> baseA, baseB;      // window starts, one each a quad
    std::vector<uint8_t> shuffleA, shuffleB; // 16 each a quad, 0x80 for a zero byte
    std::vector<int16_t> weights;            // 8 each a quad: (hC, hN) per output byte
};

// Fills `plan` for `cols` (see BilinearRowFn). With quads 0 (the vector forms do nothing)
// when `bpp` is not 3 or 4, the row is shorter than 16 bytes, or a weight lies outside
// 0..2048 or a pair adds up to more; then false, and the route must not be taken.
bool BuildColumnPlan(ColumnPlan& plan, const LineWeight* cols, int32_t width, int bpp,
                     size_t lastOffset);

// One row of sums (width * bpp of them) from a source row. Reads the row's bytes up to
// lastOffset + bpp.
typedef void (*HorzSumsFn)(const uint8_t* row, uint32_t* sums, const ColumnPlan& plan);
// dst[i] := (top[i] wCur + bottom[i] wNext) >> 22, in 32-bit unsigned arithmetic, low
// byte kept. `top` and `bottom` may be the same row.
typedef void (*VertSumsFn)(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, size_t bytes,
                           int32_t wNext, int32_t wCur);

// Both passes at once: dst[i] := the vertical blend (VertSumsFn) of the sums of `cur`
// and of `next` at i. The sums of `cur` are read from `topSums` instead where that is
// not null (and `cur` is not read); those of `next` are written to `keep` where that is
// not null, for the output lines after. `next` may be `cur`.
typedef void (*LineFn)(const uint32_t* topSums, const uint8_t* cur, const uint8_t* next,
                       uint8_t* dst, uint32_t* keep, const ColumnPlan& plan, int32_t wNext,
                       int32_t wCur);

// Nearest neighbour through a plan: for each 16 output bytes (a unit), two 16-byte
// windows of the source row and the byte shuffles that take the unit's first and last
// 8 bytes from them.
struct PickPlan {
    const int32_t* cols = nullptr;
    int32_t width = 0;
    int bpp = 0;
    size_t units = 0; // units the vector forms take; the pixels after them are plain
    std::vector<uint32_t> baseA, baseB;
    std::vector<uint8_t> shuffleA, shuffleB; // 16 each a unit
};

// Fills `plan` for `cols`; units 0 (and false) when a column is negative, the row read
// (up to the largest column's pixel) is shorter than 16 bytes, or 8 output bytes need
// source bytes more than 16 apart (a reduction beyond about 2 times).
bool BuildPickPlan(PickPlan& plan, const int32_t* cols, int32_t width, int bpp);
typedef void (*PickPlannedFn)(const uint8_t* src, uint8_t* dst, const PickPlan& plan);

struct Kernels {
    const char* name; // the target's name, SimdTargetName
    HorzRowFn horz;
    BilinearRowFn bilinear;
    BlendRowFn blend;
    PickRowFn pick;
    HorzSumsFn horzSums;
    VertSumsFn vertSums;
    LineFn line;
    PickPlannedFn pickPlanned;
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
void HorzSums_C(const uint8_t* row, uint32_t* sums, const ColumnPlan& plan);
// The sums of the output bytes from `first` on (the tails of the vector forms).
void HorzSumsFrom_C(const uint8_t* row, uint32_t* sums, const ColumnPlan& plan, size_t first);
void VertSums_C(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, size_t bytes,
                int32_t wNext, int32_t wCur);
void Line_C(const uint32_t* topSums, const uint8_t* cur, const uint8_t* next, uint8_t* dst,
            uint32_t* keep, const ColumnPlan& plan, int32_t wNext, int32_t wCur);
// The bytes of a line from `first` on (the tails of the vector forms).
void LineFrom_C(const uint32_t* topSums, const uint8_t* cur, const uint8_t* next, uint8_t* dst,
                uint32_t* keep, const ColumnPlan& plan, int32_t wNext, int32_t wCur, size_t first);
void PickPlanned_C(const uint8_t* src, uint8_t* dst, const PickPlan& plan);

// The vector table of a target, or null where none was compiled (scalerows_simd.cpp).
const Kernels* VectorKernels(int target);

} // namespace scalerows
} // namespace kelp
