// The filtered raster paths of 32-bit RGB and meshed 4:4:4: for each image row a
// vertical pass over the source rows of its list into a work row, a horizontal pass over
// the column lists, and the composition over the background.
#include <algorithm>
#include <cstring>
#include <vector>

#include "stdfx2d/fx2d.h"
#include "stdfx2d/fx2dformat.h"
#include "stdfx2d/raster.h"
#include "stdfx2d/rastermargin.h"
#include "stdfx2d/rasterrows.h"

namespace stdfx2d {

int CFx2d::RasterRGBFilter() {
    return RasterFilter(false);
}
int CFx2d::RasterRGBSoft() {
    return RasterFilter(false);
}
int CFx2d::RasterYUV444Filter() {
    return RasterFilter(true);
}
int CFx2d::RasterYUV444Soft() {
    return RasterFilter(true);
}

int CFx2d::RasterFilter(bool yuv) {
    if (m_span.IsEmpty() || m_placedBounds.IsEmpty()) {
        ClearTarget();
        return FX2D_OK;
    }
    const int built = BuildTaps();
    if (built != FX2D_OK) {
        FreeTaps();
        return built;
    }
    RasterJob job;
    MakeJob(job);
    const rasterrows::Kernels& k = rasterrows::Current();
    const bool renders = job.target.bytes == 4 && job.source.bytes == 4;

    // The source columns that the column lists read.
    int32_t x0 = job.source.width, x1 = 0, most = 1;
    for (int32_t i = 0; i < job.spanWidth; ++i) {
        const Fx2dTapList& l = job.columnTaps[i];
        for (int32_t t = 0; t < l.count; ++t) {
            x0 = std::min(x0, l.taps[t].index);
            x1 = std::max(x1, l.taps[t].index + 1);
        }
    }
    for (int32_t t = 0; t < job.rows; ++t)
        most = std::max(most, job.rowTaps[t].count);
    if (x1 <= x0) x0 = x1 = 0;
    std::vector<const uint8_t*> rowPtrs(size_t(most) + 1);
    std::vector<int32_t> weights(size_t(most) + 1);
    std::vector<uint8_t> out(size_t(job.spanWidth) * 4 + 16), tmp;
    const int32_t W = job.target.width;
    bool refused = false;

    auto margin = [&](int32_t row, int32_t n) {
        if (!refused) MarginPixels(job, row, n, 0, W, tmp);
    };
    auto image = [&](int32_t row, int32_t n, int32_t t) {
        if (!renders) refused = true;
        if (refused) return;
        const Fx2dTapList& l = job.rowTaps[t];
        for (int32_t i = 0; i < l.count; ++i) {
            rowPtrs[size_t(i)] = job.source.Row(l.taps[i].index);
            weights[size_t(i)] = l.taps[i].weight;
        }
        const int32_t seed[4] = {job.seed + l.biasLuma, job.seed + l.biasChroma,
                                 job.seed + l.biasChroma, job.seed};
        if (x1 > x0) k.vertical(job.work, rowPtrs.data(), weights.data(), l.count, seed, x0, x1);
        k.horizontal(out.data(), job.work, job.columnTaps, job.columns, job.shift, job.seed, true,
                     0);

        uint8_t* dst = job.target.Row(row);
        MarginPixels(job, row, n, 0, job.left, tmp);
        uint8_t* img = dst + 4 * ptrdiff_t(job.left);
        if (job.hasBackground) {
            const uint8_t* g = BackgroundPixels(job, n, job.left, job.columns, tmp);
            if (yuv)
                k.composeYuv(img, out.data(), g, job.columns, job.background.black);
            else
                k.compose(img, out.data(), g, job.columns);
        } else
            std::memcpy(img, out.data(), size_t(job.columns) * 4);
        MarginPixels(job, row, n, job.left + job.columns, W - job.left - job.columns, tmp);
    };
    job.Walk(margin, image);
    FreeTaps();
    return refused ? FX2D_BADFORMAT : FX2D_OK;
}

} // namespace stdfx2d
