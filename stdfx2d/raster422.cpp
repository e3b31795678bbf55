// The 4:2:2 raster path. It works in a 4:4:4 form of (C0, Y, C1, A) tuples: each source
// pair widens to two tuples that share the pair's chroma, the horizontal pass fills a
// tuple row of the whole target width, and each pair of that row is packed back with
// the even pixel's chroma. The alpha plane of a 32-bit image rides along; a 24-bit image
// has none and reads as opaque.
#include <algorithm>
#include <cstring>
#include <vector>

#include "stdfx2d/fx2d.h"
#include "stdfx2d/raster.h"
#include "stdfx2d/rastermargin.h"
#include "stdfx2d/rasterrows.h"

namespace stdfx2d {

int CFx2d::RasterYUV422Nearest() {
    // No nearest form: the fast filter with the cubic B-spline at 2 bits.
    m_filter.Select(CFilter::kCubicBSpline);
    m_rasterMode = 1;
    m_filterBits = 2;
    return RasterYUV422Filter();
}

int CFx2d::RasterYUV422FilterOld() {
    return RasterYUV422Filter();
}

namespace {

// Widens source row `r` to tuples, each value times 64 (a single tap at full weight).
void Widen(const RasterImage& src, int32_t r, int32_t* work, int32_t pixels) {
    const uint8_t* row = src.Row(r);
    const uint8_t* plane = src.AlphaRow(r);
    for (int32_t x = 0; x < pixels; ++x) {
        const uint8_t* pair = row + (x >> 1) * 4;
        work[4 * x + 0] = pair[0] << 6;
        work[4 * x + 1] = pair[(x & 1) ? 3 : 1] << 6;
        work[4 * x + 2] = pair[2] << 6;
        work[4 * x + 3] = plane ? plane[x] << 6 : 0x3FC0;
    }
}

} // namespace

int CFx2d::RasterYUV422Filter() {
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
    const int32_t W = job.target.width, srcW = job.source.width;
    const int32_t pairs = W >> 1;
    const uint8_t black = uint8_t(job.source.black);
    const int32_t bgBlack = job.background.black;
    int32_t most = 1;
    for (int32_t t = 0; t < job.rows; ++t)
        most = std::max(most, job.rowTaps[t].count);
    std::vector<const uint8_t*> rowPtrs(size_t(most) + 1), planePtrs(size_t(most) + 1);
    std::vector<int32_t> weights(size_t(most) + 1);
    // The pair accumulators of a row of pairs, then the tuple row of the target.
    std::vector<int32_t> pairWork(size_t(srcW + 2) * 4);
    std::vector<uint8_t> tuples(size_t(W + 2) * 4);
    int32_t* work = job.work;

    auto margin = [&](int32_t row, int32_t n) { MarginRow422(job, row, n); };
    auto image = [&](int32_t row, int32_t n, int32_t t) {
        const Fx2dTapList& l = job.rowTaps[t];
        // ---- vertical pass into tuples of the whole source width
        if (l.count == 1 && l.taps[0].weight == job.full && l.biasLuma == 0 && l.biasChroma == 0)
            Widen(job.source, l.taps[0].index, work, srcW);
        else {
            const int32_t srcPairs = (srcW + 1) >> 1;
            int32_t sumW = 0;
            for (int32_t i = 0; i < l.count; ++i) {
                rowPtrs[size_t(i)] = job.source.Row(l.taps[i].index);
                planePtrs[size_t(i)] = job.source.AlphaRow(l.taps[i].index);
                weights[size_t(i)] = l.taps[i].weight;
                sumW += l.taps[i].weight;
            }
            const int32_t seed[4] = {l.biasChroma + 32, l.biasLuma + 32, l.biasChroma + 32,
                                     l.biasLuma + 32};
            k.vertical(pairWork.data(), rowPtrs.data(), weights.data(), l.count, seed, 0, srcPairs);
            for (int32_t x = 0; x < srcW; ++x) {
                const int32_t* p = pairWork.data() + 4 * (x >> 1);
                work[4 * x + 0] = p[0];
                work[4 * x + 1] = p[(x & 1) ? 3 : 1];
                work[4 * x + 2] = p[2];
                int32_t a;
                if (job.source.alpha) {
                    a = 32;
                    for (int32_t i = 0; i < l.count; ++i)
                        a += planePtrs[size_t(i)][x] * weights[size_t(i)];
                } else
                    a = 255 * sumW;
                work[4 * x + 3] = a;
            }
        }
        // ---- horizontal pass into the tuple row, empty where the image is not
        for (int32_t x = 0; x < W; ++x) {
            tuples[4 * size_t(x) + 0] = 128;
            tuples[4 * size_t(x) + 1] = black;
            tuples[4 * size_t(x) + 2] = 128;
            tuples[4 * size_t(x) + 3] = 0;
        }
        k.horizontal(tuples.data() + 4 * size_t(job.left), work, job.columnTaps, job.columns, 6, 32,
                     true, 1);
        // ---- pack the pairs, composing over the background
        uint8_t* dst = job.target.Row(row);
        uint8_t* plane = job.target.AlphaRow(row);
        const uint8_t* g = job.hasBackground ? job.background.Row(n) : nullptr;
        const uint8_t* ga = job.hasBackground ? job.background.AlphaRow(n) : nullptr;
        for (int32_t p = 0; p < pairs; ++p) {
            const uint8_t* e = tuples.data() + 8 * size_t(p);
            const uint8_t* o = e + 4;
            int32_t c0 = e[0], y0 = e[1], c1 = e[2], y1 = o[1], a0 = e[3], a1 = o[3];
            if (g) {
                const uint8_t* gp = g + 4 * p;
                const int32_t m0 = 255 - a0, m1 = 255 - a1;
                c0 = Over(c0, gp[0] - 128, m0);
                y0 = Over(y0, Clamp255(gp[1] - bgBlack), m0);
                c1 = Over(c1, gp[2] - 128, m0);
                y1 = Over(y1, Clamp255(gp[3] - bgBlack), m1);
                if (ga) {
                    a0 = Over(a0, ga[2 * p], m0);
                    a1 = Over(a1, ga[2 * p + 1], m1);
                } else
                    a0 = a1 = 255;
            }
            dst[4 * p + 0] = uint8_t(c0);
            dst[4 * p + 1] = uint8_t(y0);
            dst[4 * p + 2] = uint8_t(c1);
            dst[4 * p + 3] = uint8_t(y1);
            if (plane) {
                plane[2 * p] = uint8_t(a0);
                plane[2 * p + 1] = uint8_t(a1);
            }
        }
        // With a background that has no plane the whole plane row is opaque.
        if (plane && g && !ga) std::memset(plane, 255, size_t(W));
    };
    job.Walk(margin, image);
    FreeTaps();
    return FX2D_OK;
}

} // namespace stdfx2d
