// The nearest raster paths of 32-bit RGB and meshed 4:4:4: each target pixel is one
// source pixel, copied or composed over the background. With an opacity the render is
// filtered instead, since the opacity lives in the filter's weights.
#include <algorithm>
#include <cstring>
#include <vector>

#include "stdfx2d/fx2d.h"
#include "stdfx2d/nearestrows.h"
#include "stdfx2d/raster.h"
#include "stdfx2d/rastermargin.h"
#include "stdfx2d/rasterrows.h"

namespace stdfx2d {

int CFx2d::RasterRGBNearest() {
    return RasterNearest(false);
}
int CFx2d::RasterYUV444Nearest() {
    return RasterNearest(true);
}

int CFx2d::RasterNearest(bool yuv) {
    if (m_param.transparency != 0.0) {
        m_filter.Select(CFilter::kCubicBSpline);
        m_rasterMode = 1;
        m_filterBits = 2;
        return yuv ? RasterYUV444Filter() : RasterRGBFilter();
    }
    if (m_span.IsEmpty() || m_placedBounds.IsEmpty()) {
        ClearTarget();
        return FX2D_OK;
    }
    const int built = BuildLookups();
    if (built != FX2D_OK) {
        FreeLookups();
        return built;
    }
    RasterJob job;
    MakeJob(job);
    const rasterrows::Kernels& k = rasterrows::Current();
    const nearestrows::Kernels& nk = nearestrows::Current();
    const bool renders = job.target.bytes == 4 && job.source.bytes == 4;
    const int32_t W = job.target.width;
    const int32_t cols = std::min(job.columns, m_span.Width());
    nearestrows::NearestPlan plan;
    // The vector stores line up with the image part of the target's rows (all of them
    // when the pitch is whole vectors, as it is for the usual widths).
    if (renders)
        nearestrows::BuildNearestPlan(plan, job.columnLookup, cols, job.source.width, nk.block,
                                      job.target.Row(0) + 4 * ptrdiff_t(job.left),
                                      job.source.Row(0));
    std::vector<uint8_t> out(size_t(std::max(cols, 1)) * 4), tmp;
    bool refused = false;
    // With a background the picked pixels of a source row are kept for every target row
    // that takes that source row again, and composed over each background row. Without
    // one each row is picked afresh straight into the target: copying the previous
    // target row instead was slower (the copy reads it back from the cache; the pick
    // writes the same bytes from one source vector a block).
    int32_t lastSource = -1;

    auto margin = [&](int32_t row, int32_t n) {
        if (!refused) MarginPixels(job, row, n, 0, W, tmp);
    };
    auto image = [&](int32_t row, int32_t n, int32_t t) {
        if (!renders) refused = true;
        if (refused) return;
        const int32_t sr = job.rowLookup[t];
        const uint8_t* src = job.source.Row(sr);
        uint8_t* img = job.target.Row(row) + 4 * ptrdiff_t(job.left);
        MarginPixels(job, row, n, 0, job.left, tmp);
        if (job.hasBackground) {
            if (sr != lastSource) nk.row(out.data(), src, job.columnLookup, plan, cols);
            lastSource = sr;
            const uint8_t* g = BackgroundPixels(job, n, job.left, cols, tmp);
            if (yuv)
                k.composeYuv(img, out.data(), g, cols, job.background.black);
            else
                k.compose(img, out.data(), g, cols);
        } else
            nk.row(img, src, job.columnLookup, plan, cols);
        MarginPixels(job, row, n, job.left + cols, W - job.left - cols, tmp);
    };
    job.Walk(margin, image);
    FreeLookups();
    return refused ? FX2D_BADFORMAT : FX2D_OK;
}

} // namespace stdfx2d
