// The pixel planes a line pass of the deinterlacers works on, shared by the
// deinterlacers, field expansion and the alpha multiplications.
#pragma once

#include <cstddef>
#include <cstdint>

#include <kelp/stdfx_dib.h>

namespace stdfx {

// One byte plane of an image: the rows of pixels, or the alpha plane of a 32-bit 4:2:2
// image.
struct BytePlane {
    unsigned char* base = nullptr; // memory line 0
    ptrdiff_t stride = 0;
    int32_t bytes = 0; // bytes of a row that hold pixels
    int32_t step = 0;  // bytes from one pixel to the next
    unsigned char* Line(int y) const { return base + ptrdiff_t(y) * stride; }
};

// The planes of an image the deinterlacers accept (format 0, "@YUV" 4:4:4 in one plane
// and 4:2:2 in one plane, "YUVz" 4:4:4): the rows, and the alpha plane of a 32-bit
// 4:2:2 image. The count, 0 for an image that is not accepted or whose row size cannot
// hold its pixels.
int DeinterlacePlanes(const CDIB& dib, BytePlane planes[2]);

// True when two images have the same format, depth, width and height.
bool SameLayout(const CDIB& a, const CDIB& b);

} // namespace stdfx
