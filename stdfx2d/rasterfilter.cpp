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

namespace {

// Column lists that reach further than this many groups of 4 source pixels (a scale
// below about 0.03 in the fast filter) take the 32-bit work row.
constexpr int32_t kMaxColumnGroups = 32;

// Buffers of the filtered raster paths, kept on the thread from call to call so that a
// render of the same size as the last allocates nothing.
struct FilterScratch {
    std::vector<const uint8_t*> rowPtrs;
    std::vector<int32_t> weights;
    std::vector<uint8_t> out, tmp, bytes;
    rasterrows::ColumnPlanStore columns;
};

FilterScratch& Scratch() {
    thread_local FilterScratch scratch;
    return scratch;
}

bool SameList(const Fx2dTapList& a, const Fx2dTapList& b) {
    if (a.count != b.count || a.biasLuma != b.biasLuma || a.biasChroma != b.biasChroma)
        return false;
    for (int32_t k = 0; k < a.count; ++k)
        if (a.taps[k].index != b.taps[k].index || a.taps[k].weight != b.taps[k].weight)
            return false;
    return true;
}

} // namespace

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
    FilterScratch& sc = Scratch();
    sc.rowPtrs.resize(size_t(most) + 1);
    sc.weights.resize(size_t(most) + 1);
    sc.out.resize(size_t(job.spanWidth) * 4 + 16);
    const uint8_t** rowPtrs = sc.rowPtrs.data();
    int32_t* weights = sc.weights.data();
    std::vector<uint8_t>& tmp = sc.tmp;
    // The byte work row, when the column lists fit a plan; rows whose sums do not fit a
    // byte take the 32-bit work row.
    const int32_t shift = job.shift;
    const bool planned =
        renders && x1 > x0 &&
        sc.columns.Build(job.columnTaps, job.columns, job.seed, 0, k.columnBlock, kMaxColumnGroups);
    if (planned) sc.bytes.resize(size_t(std::max(x1, sc.columns.plan.reach)) * 4 + 64);
    uint8_t* bytes = sc.bytes.data();
    const Fx2dTapList* inBytes = nullptr; // the row list the byte row holds
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
            rowPtrs[i] = job.source.Row(l.taps[i].index);
            weights[i] = l.taps[i].weight;
        }
        const int32_t seed[4] = {job.seed + l.biasLuma, job.seed + l.biasChroma,
                                 job.seed + l.biasChroma, job.seed};
        uint8_t* dst = job.target.Row(row);
        uint8_t* img = dst + 4 * ptrdiff_t(job.left);
        // Without a background the pass writes the target row itself.
        uint8_t* out = job.hasBackground ? sc.out.data() : img;
        if (planned && rasterrows::RowFitsBytes(l, seed, shift)) {
            if (inBytes && SameList(*inBytes, l)) {
                // The byte row of the previous image row is this row's too.
            } else if (l.count == 1 && l.taps[0].weight == 1 << shift && seed[0] >> shift == 0 &&
                       seed[1] >> shift == 0 && seed[2] >> shift == 0 && seed[3] >> shift == 0)
                // One tap at full weight and seeds below one unit: the source bytes.
                std::memcpy(bytes + 4 * ptrdiff_t(x0), rowPtrs[0] + 4 * ptrdiff_t(x0),
                            size_t(x1 - x0) * 4);
            else
                k.verticalBytes(bytes, rowPtrs, weights, l.count, seed, x0, x1, shift);
            inBytes = &l;
            k.horizontalBytes(out, bytes, sc.columns.plan, shift);
        } else {
            if (x1 > x0) k.vertical(job.work, rowPtrs, weights, l.count, seed, x0, x1);
            k.horizontal(out, job.work, job.columnTaps, job.columns, job.shift, job.seed, true, 0);
        }

        MarginPixels(job, row, n, 0, job.left, tmp);
        if (job.hasBackground) {
            const uint8_t* g = BackgroundPixels(job, n, job.left, job.columns, tmp);
            if (yuv)
                k.composeYuv(img, out, g, job.columns, job.background.black);
            else
                k.compose(img, out, g, job.columns);
        }
        MarginPixels(job, row, n, job.left + job.columns, W - job.left - job.columns, tmp);
    };
    job.Walk(margin, image);
    FreeTaps();
    return refused ? FX2D_BADFORMAT : FX2D_OK;
}

} // namespace stdfx2d
