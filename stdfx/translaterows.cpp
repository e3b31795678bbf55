// The plain row kernels of the translators.
#include "translaterows.h"

#include <cstring>

namespace stdfx {
namespace plain {

namespace {

void Put4(uint8_t* d, uint8_t a, uint8_t b, uint8_t c, uint8_t e) {
    d[0] = a;
    d[1] = b;
    d[2] = c;
    d[3] = e;
}

// A 4:2:2 row: the even pixel of a pair has its own chroma, the odd pixel the rounded-up
// mean of its pair's and the next pair's; the last pair repeats its own.
void Read422(const uint8_t* row, const uint8_t* alpha, int width, uint8_t* out, int yi0, int ui,
             int yi1, int vi) {
    const int pairs = (width + 1) / 2;
    for (int p = 0; p < pairs; ++p) {
        const uint8_t* s = row + 4 * p;
        const uint8_t* n = p + 1 < pairs ? s + 4 : s;
        const int x = 2 * p;
        Put4(out + 4 * x, s[yi0], s[ui], s[vi], alpha ? alpha[x] : 255);
        if (x + 1 < width)
            Put4(out + 4 * (x + 1), s[yi1], uint8_t((s[ui] + n[ui] + 1) >> 1),
                 uint8_t((s[vi] + n[vi] + 1) >> 1), alpha ? alpha[x + 1] : 255);
    }
}

// A 4:2:2 row from YUVA: each pair takes the chroma of its even pixel; a last pixel of
// an odd width fills its pair alone.
void Write422(const uint8_t* in, int width, uint8_t* row, uint8_t* alpha, int yi0, int ui, int yi1,
              int vi) {
    for (int x = 0; x < width; x += 2) {
        const uint8_t* a = in + 4 * x;
        const uint8_t* b = x + 1 < width ? a + 4 : a;
        uint8_t* d = row + 2 * x;
        d[yi0] = a[0];
        d[ui] = a[1];
        d[yi1] = b[0];
        d[vi] = a[2];
        if (alpha) {
            alpha[x] = a[3];
            if (x + 1 < width) alpha[x + 1] = b[3];
        }
    }
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
        Read422(row, alpha, width, pixels, 0, 1, 2, 3);
        break;
    case RowLayout::Uyvy:
        Read422(row, alpha, width, pixels, 1, 0, 3, 2);
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
        Write422(pixels, width, row, alpha, 0, 1, 2, 3);
        break;
    case RowLayout::Uyvy:
        Write422(pixels, width, row, alpha, 1, 0, 3, 2);
        break;
    case RowLayout::None:
        break;
    }
}

} // namespace plain
} // namespace stdfx
