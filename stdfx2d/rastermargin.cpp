// Margins and ClearTarget.
#include "stdfx2d/rastermargin.h"

#include <cstring>

#include "stdfx2d/fx2d.h"
#include "stdfx2d/fx2dformat.h"

namespace stdfx2d {

const uint8_t* BackgroundPixels(const RasterJob& job, int32_t n, int32_t x0, int32_t count,
                                std::vector<uint8_t>& tmp) {
    const RasterImage& g = job.background;
    const uint8_t* row = g.Row(n) + ptrdiff_t(x0) * g.bytes;
    if (g.bytes == 4) return row;
    tmp.resize(size_t(count) * 4);
    for (int32_t x = 0; x < count; ++x) {
        tmp[4 * size_t(x) + 0] = row[3 * x + 0];
        tmp[4 * size_t(x) + 1] = row[3 * x + 1];
        tmp[4 * size_t(x) + 2] = row[3 * x + 2];
        tmp[4 * size_t(x) + 3] = 255;
    }
    return tmp.data();
}

void MarginPixels(const RasterJob& job, int32_t row, int32_t n, int32_t x0, int32_t count,
                  std::vector<uint8_t>& tmp) {
    if (count <= 0) return;
    const int32_t b = job.target.bytes;
    uint8_t* out = job.target.Row(row) + ptrdiff_t(x0) * b;
    if (job.hasBackground) {
        const uint8_t* g = BackgroundPixels(job, n, x0, count, tmp);
        if (b == 4)
            std::memcpy(out, g, size_t(count) * 4);
        else
            for (int32_t x = 0; x < count; ++x)
                std::memcpy(out + 3 * x, g + 4 * x, 3);
        return;
    }
    uint8_t e[4];
    for (int c = 0; c < 4; ++c)
        e[c] = uint8_t(job.empty >> (8 * c));
    if (b == 4) // whole words: the loop the compiler widens
        for (int32_t x = 0; x < count; ++x)
            std::memcpy(out + 4 * ptrdiff_t(x), e, 4);
    else
        for (int32_t x = 0; x < count; ++x)
            std::memcpy(out + ptrdiff_t(x) * b, e, size_t(b));
}

void MarginRow422(const RasterJob& job, int32_t row, int32_t n) {
    const int32_t W = job.target.width;
    const int32_t pairs = (W + 1) >> 1;
    uint8_t* out = job.target.Row(row);
    uint8_t* plane = job.target.AlphaRow(row);
    if (job.hasBackground) {
        std::memcpy(out, job.background.Row(n), size_t(pairs) * 4);
        if (plane) {
            const uint8_t* ga = job.background.AlphaRow(n);
            if (ga)
                std::memcpy(plane, ga, size_t(W));
            else
                std::memset(plane, 255, size_t(W));
        }
        return;
    }
    const uint8_t black = uint8_t(job.source.black);
    for (int32_t p = 0; p < pairs; ++p) {
        out[4 * p + 0] = 128;
        out[4 * p + 1] = black;
        out[4 * p + 2] = 128;
        out[4 * p + 3] = black;
    }
    if (plane) std::memset(plane, 0, size_t(W));
}

void CFx2d::ClearTarget() {
    RasterJob job;
    MakeJob(job);
    job.before = job.target.height; // every row is a margin
    job.rows = 0;
    std::vector<uint8_t> tmp;
    const bool packed = fx2dformat::Is422(m_target);
    job.Walk(
        [&](int32_t row, int32_t n) {
            if (packed)
                MarginRow422(job, row, n);
            else
                MarginPixels(job, row, n, 0, job.target.width, tmp);
        },
        [](int32_t, int32_t, int32_t) {});
}

} // namespace stdfx2d
