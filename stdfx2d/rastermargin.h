// Rows and parts of rows that the image does not cover: the background's pixels, or the
// target format's empty value.
#pragma once

#include <cstdint>
#include <vector>

#include "stdfx2d/raster.h"

namespace stdfx2d {

// Pixels x0..x0+count-1 of background row `n` as 4-byte pixels: the row itself at 32
// bits, else widened into `tmp` with an alpha of 255.
const uint8_t* BackgroundPixels(const RasterJob& job, int32_t n, int32_t x0, int32_t count,
                                std::vector<uint8_t>& tmp);

// Pixels x0..x0+count-1 of a target row of 3- or 4-byte pixels.
void MarginPixels(const RasterJob& job, int32_t row, int32_t n, int32_t x0, int32_t count,
                  std::vector<uint8_t>& tmp);

// A whole 4:2:2 row (pairs and alpha plane) of background or empty value.
void MarginRow422(const RasterJob& job, int32_t row, int32_t n);

} // namespace stdfx2d
