// The pixel work of the scale, centre and deinterlace stages, as free functions over a
// pair of records and their buffers. Source pixels are only read.
//
// Callers make sure that the input buffer holds the rows of `in` and the output buffer
// those of `out` (rows of biBitCount * biWidth / 8 bytes rounded up to 4, one for each
// line of |biHeight|): the functions trust both, and read and write nothing beyond.
// The row padding of the output is written as zero bytes.
#pragma once

#include <kelp/kxbih.h>

#include "scalerows.h"

namespace kelp {

using scalerows::LineWeight;

// Fills `table` (`m` entries) with the source positions and weights of `m` target
// positions over `n` source positions `step` bytes apart. With `fieldsOnly` the
// positions are those of one field: step twice as large, half as many. Entry 0 is
// (0, 0, 2048), the last one points at the last source position with the weights 0 and
// 2048, the ones between walk a Bresenham line. False when there is no source position
// (n of 0, or 1 with `fieldsOnly`) or no target position.
bool BuildWeights(LineWeight* table, size_t step, uint32_t n, uint32_t m, bool fieldsOnly);

// Repeats one pixel of `bpp` bytes `count` times from `dst` on.
void FillRow(uint8_t* dst, const uint8_t* pixel, int bpp, int32_t count);

// Nearest-neighbour scale at 8, 24 or 32 bits. With `deinterlace` only the lines of one
// field are taken: the odd ones, or the even ones with `swap`. False for another depth,
// or when a line of the field lies beyond the source.
bool ScaleFast(const KXBMINFOHEADER* in, const void* inData, const KXBMINFOHEADER* out,
               void* outData, bool deinterlace, bool swap);

// Bilinear scale at 24 or 32 bits. An interlaced source (bmiFrame 0) that is not being
// deinterlaced is scaled as a picture of double width and half height, so that a line
// of each field lies side by side and the fields never mix.
bool ScaleGood(const KXBMINFOHEADER* in, const void* inData, const KXBMINFOHEADER* out,
               void* outData, bool deinterlace, bool swap);

// Stretches to the output's size: 32-bit images through the 2-D transform, others by
// ScaleGood when `good`, else by ScaleFast.
bool ScaleFx2D(const KXBMINFOHEADER* in, const void* inData, const KXBMINFOHEADER* out,
               void* outData, bool deinterlace, bool swap, bool good, bool filterB);

// Places `in` in the middle of `out` without scaling, cropping what does not fit and
// filling the rest with black (RGB) or video black (YUV). Vertical placement keeps to
// whole line pairs, or quads for an interlaced source, and a source of the other field
// order in time moves by one line. Writes out's bmiRect (the picture's place, counted
// from the end of the buffer) and bmiAlpha. The fifth argument is not read.
bool Center(const KXBMINFOHEADER* in, const void* inData, KXBMINFOHEADER* out, void* outData,
            uint32_t unused = 0);

// What CenterFx2D asks of the 2-D transform: the scales that the fit flags choose (made
// even except when the picture keeps its size), the half-line offset that keeps it on the
// line grid, and the mode (0 nearest, 1 fast filter, 2 soft). False for an empty source.
struct CenterPlan {
    double scaleX, scaleY, offsetY;
    int mode;
};
bool CenterFx2DPlan(const KXBMINFOHEADER* in, const KXBMINFOHEADER* out, uint32_t flags,
                    CenterPlan* plan);

// Places and scales a 32-bit image by the 2-D transform, as the fit flags ask. 1 on
// success, 0 on failure or for another depth.
int CenterFx2D(const KXBMINFOHEADER* in, const void* inData, const KXBMINFOHEADER* out,
               void* outData, uint32_t flags);

// Vertical filter only, between records of the same size: with `deinterlace` each line
// is made from the lines of one field, the odd ones or with `swap` the even ones.
bool DeinterlaceLines(const KXBMINFOHEADER* in, const void* inData, const KXBMINFOHEADER* out,
                      void* outData, bool deinterlace, bool swap);

} // namespace kelp
