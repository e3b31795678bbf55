// What a raster pass needs, gathered once: the three images' rows, the tables, the
// margins, and the walk over the target's rows. The walk goes from the first memory row
// of the frame or field to the last (or, when target and source differ in row order,
// from the last to the first), and hands each row to the caller as a margin row or as
// an image row with its table index.
#pragma once

#include <cstddef>
#include <cstdint>

#include "stdfx2d/fx2d.h"

namespace stdfx2d {

struct RasterImage {
    uint8_t* bits = nullptr;
    ptrdiff_t stride = 0;
    int32_t width = 0;
    int32_t height = 0;       // absolute
    int32_t bytes = 0;        // of a pixel in the main plane (2 for 4:2:2)
    int32_t depth = 0;        // biBitCount
    uint8_t* alpha = nullptr; // alpha plane of 32-bit 4:2:2
    ptrdiff_t alphaStride = 0;
    int32_t black = 0;

    uint8_t* Row(int32_t r) const { return bits + ptrdiff_t(r) * stride; }
    uint8_t* AlphaRow(int32_t r) const {
        return alpha ? alpha + ptrdiff_t(r) * alphaStride : nullptr;
    }
};

struct RasterJob {
    RasterImage target, source, background;
    bool hasBackground = false;
    int32_t field = -1;
    int32_t first = 0; // walk count of the first row
    int32_t step = 1;  // 1 for a frame, 2 for a field
    bool backward = false;
    int32_t before = 0;                       // rows before the image (E)
    int32_t rows = 0;                         // image rows
    int32_t table0 = 0;                       // table index of the first image row walked
    int32_t left = 0, columns = 0, right = 0; // margins and image columns
    // Filter modes.
    const Fx2dTapList* rowTaps = nullptr;
    const Fx2dTapList* columnTaps = nullptr;
    int32_t spanWidth = 0;
    int32_t* work = nullptr;
    int32_t seed = 0, shift = 0, full = 0;
    // Nearest mode.
    const int32_t* rowLookup = nullptr;
    const int32_t* columnLookup = nullptr;
    uint32_t empty = 0; // the empty value of a 4-byte pixel, first byte lowest

    // Calls margin(targetRow, backgroundRow) or image(targetRow, backgroundRow, t) for each
    // row of the frame or field, with memory row numbers.
    template <class Margin, class Image> void Walk(Margin&& margin, Image&& image) const {
        const int32_t H = target.height;
        int32_t t = table0;
        bool entered = false;
        for (int32_t n = first; n < H; n += step) {
            const int32_t row = backward ? H - 1 - n : n;
            if (n >= before && n < before + rows) {
                if (!entered) entered = true;
                const int32_t ti = t < rows ? t : rows - 1;
                image(row, n, ti);
                t += step;
            } else
                margin(row, n);
        }
    }
};

inline int32_t Clamp255(int32_t v) {
    return v < 0 ? 0 : (v > 255 ? 255 : v);
}

// Premultiplied "over" of one channel: s + g * (255 - a) / 255, rounded as the toolkit's
// multiplication does.
inline int32_t Over(int32_t s, int32_t g, int32_t m) {
    const int32_t v = g * m + 128;
    return Clamp255(s + ((v + (v >> 8)) >> 8));
}

} // namespace stdfx2d
