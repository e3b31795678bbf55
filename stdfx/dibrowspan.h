// The lines a whole-image loop visits: all of them, or one field (every second line
// from the field's first line), with their addresses.
#pragma once

#include <cstddef>
#include <cstdint>

#include <kelp/stdfx_dib.h>

namespace stdfx {

struct RowSpan {
    unsigned char* first = nullptr; // the first line visited
    ptrdiff_t step = 0;             // bytes from one visited line to the next
    int count = 0;                  // lines visited
    int32_t stride = 0;             // row size
    int64_t rowBytes = 0;           // bytes of pixels in a row (width times pixel size)
};

// False for an image that is not valid, or whose row size cannot hold a row of its
// pixels. A field of -1 visits every line, any other value one field.
bool MakeRowSpan(const CDIB& dib, int field, RowSpan* span);

// The same lines of the alpha plane of a 32-bit 4:2:2 image (false for other images).
bool MakeAlphaSpan(const CDIB& dib, int field, RowSpan* span);

// Memory line of display line `y` (counted from the top).
inline int MemoryLine(const CDIB& dib, int y) {
    return dib.IsBottomUp() ? dib.Height() - 1 - y : y;
}

} // namespace stdfx
