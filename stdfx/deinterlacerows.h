// The row kernels of the deinterlacers and of field expansion. Each makes one line of
// bytes from lines of the source; every byte of a line is treated alike, except in the
// edge-directed search, which steps by whole pixels.
//
// The plain loops (suffix _C, deinterlacerows.cpp) define every result. The vector forms
// (deinterlacerows_simd.cpp, one per vector target) give the same bytes; they work on
// whole vectors and leave the rest of a row to the plain loop. The destination may be
// one of the sources only where the kernel reads each byte before it writes that byte
// (every kernel but `edge`).
#pragma once

#include <cstdint>

namespace stdfx {
namespace deinterlacerows {

// (a + b + 1) >> 1.
typedef void (*AverageFn)(const uint8_t* a, const uint8_t* b, uint8_t* dst, int32_t n);
// (a + 2 c + b + 2) >> 2, c the line itself.
typedef void (*BlendFn)(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint8_t* dst,
                        int32_t n);
// (19 (a + b) - 3 (d + e) + 16) >> 5, clipped to 0..255; d and e three lines away.
typedef void (*CubicFn)(const uint8_t* d, const uint8_t* a, const uint8_t* b, const uint8_t* e,
                        uint8_t* dst, int32_t n);
// (10 c + 8 (a + b) - 5 (d + e)) >> 4, clipped to 0..255.
typedef void (*FiveTapFn)(const uint8_t* d, const uint8_t* a, const uint8_t* c, const uint8_t* b,
                          const uint8_t* e, uint8_t* dst, int32_t n);
// The byte between the other two.
typedef void (*Median3Fn)(const uint8_t* a, const uint8_t* b, const uint8_t* c, uint8_t* dst,
                          int32_t n);
// The median of 0, a, b, c, d, (a + b + 1) >> 1 twice, (c + d + 1) >> 1 and 255.
typedef void (*Median9Fn)(const uint8_t* a, const uint8_t* b, const uint8_t* c, const uint8_t* d,
                          uint8_t* dst, int32_t n);
// The edge-directed interpolation of one line between `above` and `below`: `pixels`
// pixels of `step` bytes. dst must not be a source.
typedef void (*EdgeFn)(const uint8_t* above, const uint8_t* below, uint8_t* dst, int32_t pixels,
                       int32_t step);
// The cubic, and line b copied to `keep` in the same pass: the kept line below an
// interpolated one, written while its bytes are at hand. `keep` is none of the sources.
typedef void (*CubicKeepFn)(const uint8_t* d, const uint8_t* a, const uint8_t* b, const uint8_t* e,
                            uint8_t* dst, uint8_t* keep, int32_t n);

struct Kernels {
    const char* name; // the target's name, SimdTargetName
    AverageFn average;
    BlendFn blend;
    CubicFn cubic;
    FiveTapFn fiveTap;
    Median3Fn median3;
    Median9Fn median9;
    EdgeFn edge;
    CubicKeepFn cubicKeep;
};

void Average_C(const uint8_t* a, const uint8_t* b, uint8_t* dst, int32_t n);
void Blend_C(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint8_t* dst, int32_t n);
void Cubic_C(const uint8_t* d, const uint8_t* a, const uint8_t* b, const uint8_t* e, uint8_t* dst,
             int32_t n);
void FiveTap_C(const uint8_t* d, const uint8_t* a, const uint8_t* c, const uint8_t* b,
               const uint8_t* e, uint8_t* dst, int32_t n);
void Median3_C(const uint8_t* a, const uint8_t* b, const uint8_t* c, uint8_t* dst, int32_t n);
void Median9_C(const uint8_t* a, const uint8_t* b, const uint8_t* c, const uint8_t* d, uint8_t* dst,
               int32_t n);
void Edge_C(const uint8_t* above, const uint8_t* below, uint8_t* dst, int32_t pixels, int32_t step);
void CubicKeep_C(const uint8_t* d, const uint8_t* a, const uint8_t* b, const uint8_t* e,
                 uint8_t* dst, uint8_t* keep, int32_t n);

// The edge-directed value of the bytes [from, to) of a line (byte offsets); the plain
// definition the vector form leaves its ends to.
void EdgeBytes_C(const uint8_t* above, const uint8_t* below, uint8_t* dst, int32_t pixels,
                 int32_t step, int32_t from, int32_t to);

// Pixels at the ends of a line that the edge-directed search leaves to the average,
// and the search's widest reach in pixels.
constexpr int32_t kEdgeHead = 4;
constexpr int32_t kEdgeTail = 5;
constexpr int32_t kEdgeRange = 8;

const Kernels& PlainKernels();
// The table of a vector target (kelp::SimdTarget); a target not compiled gives the best
// one below it, at worst the plain table.
const Kernels& ForTarget(int target);
const Kernels& Current(); // ForTarget(BestSimdTarget())

// The vector table of a target, or null where none was compiled.
const Kernels* VectorKernels(int target);

} // namespace deinterlacerows
} // namespace stdfx
