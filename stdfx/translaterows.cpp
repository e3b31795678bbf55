// The plain row kernels of the translators.
#include "translaterows.h"

#include <cstring>

#include "rowkernels.h"

namespace stdfx {
namespace plain {

namespace {

void Put4(uint8_t* d, uint8_t a, uint8_t b, uint8_t c, uint8_t e) {
    d[0] = a;
    d[1] = b;
    d[2] = c;
    d[3] = e;
}

} // namespace

void ReadRow(RowLayout layout, const uint8_t* row, const uint8_t* alpha, int width, uint8_t* pixels,
             uint32_t* depth) {
    switch (layout) {
    case RowLayout::Bgr24:
    case RowLayout::Yuv444_24:
        for (int x = 0; x < width; ++x)
            Put4(pixels + 4 * x, row[3 * x], row[3 * x + 1], row[3 * x + 2], 255);
        break;
    case RowLayout::Bgra32:
    case RowLayout::Yuv444_32:
        std::memcpy(pixels, row, size_t(width) * 4);
        break;
    case RowLayout::BgraZ:
    case RowLayout::YuvZ:
        for (int x = 0; x < width; ++x) {
            std::memcpy(pixels + 4 * x, row + 8 * x, 4);
            std::memcpy(depth + x, row + 8 * x + 4, 4);
        }
        break;
    case RowLayout::Yuyv:
        rowkernels::Current().readYuyv(row, alpha, pixels, width);
        break;
    case RowLayout::Uyvy:
        rowkernels::Current().readUyvy(row, alpha, pixels, width);
        break;
    case RowLayout::None:
        break;
    }
}

void WriteRow(RowLayout layout, const uint8_t* pixels, const uint32_t* depth, int width,
              uint8_t* row, uint8_t* alpha) {
    switch (layout) {
    case RowLayout::Bgr24:
    case RowLayout::Yuv444_24:
        for (int x = 0; x < width; ++x)
            std::memcpy(row + 3 * x, pixels + 4 * x, 3);
        break;
    case RowLayout::Bgra32:
    case RowLayout::Yuv444_32:
        std::memcpy(row, pixels, size_t(width) * 4);
        break;
    case RowLayout::BgraZ:
    case RowLayout::YuvZ:
        for (int x = 0; x < width; ++x) {
            std::memcpy(row + 8 * x, pixels + 4 * x, 4);
            std::memcpy(row + 8 * x + 4, depth + x, 4);
        }
        break;
    case RowLayout::Yuyv:
        rowkernels::Current().writeYuyv(pixels, row, alpha, width);
        break;
    case RowLayout::Uyvy:
        rowkernels::Current().writeUyvy(pixels, row, alpha, width);
        break;
    case RowLayout::None:
        break;
    }
}

} // namespace plain
} // namespace stdfx
