// Row readers and writers of the translators. A row goes through one canonical form:
// BGRA bytes on the RGB side, Y U V A bytes on the YUV side, with the depth word of the
// depth forms beside them. Readers bring a stored row to the canonical form, the colour
// kernels (rowkernels.h) change the colour space, writers store it.
#pragma once

#include <cstdint>

namespace stdfx {

// How one side stores its pixels.
enum class RowLayout {
    None,
    Bgr24,     // B G R
    Bgra32,    // B G R A
    BgraZ,     // B G R A, depth
    Yuv444_24, // Y U V
    Yuv444_32, // Y U V A
    YuvZ,      // Y U V A, depth
    Yuyv,      // Y0 U Y1 V (sampling 0); at 32 bits with an alpha plane
    Uyvy,      // U Y0 V Y1 (sampling 512); at 32 bits with an alpha plane
};

inline bool IsYuvLayout(RowLayout l) {
    return l >= RowLayout::Yuv444_24;
}
inline bool HasDepth(RowLayout l) {
    return l == RowLayout::BgraZ || l == RowLayout::YuvZ;
}

namespace plain {

// Canonical pixels (4 bytes each) and, for the depth forms, depth words.
void ReadRow(RowLayout layout, const uint8_t* row, const uint8_t* alpha, int width, uint8_t* pixels,
             uint32_t* depth);
void WriteRow(RowLayout layout, const uint8_t* pixels, const uint32_t* depth, int width,
              uint8_t* row, uint8_t* alpha);
} // namespace plain

} // namespace stdfx
