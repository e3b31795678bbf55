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

// Column lists that reach further than this many groups of 4 source pixels take the
// 32-bit work row.
constexpr int32_t kMaxColumnGroups = 32;

// Buffers of the path, kept on the thread from call to call.
struct Scratch422 {
    std::vector<const uint8_t*> rowPtrs, planePtrs;
    std::vector<int32_t> weights, pairWork;
    std::vector<uint8_t> tuples, pairBytes, alphaBytes, tupleBytes;
    rasterrows::ColumnPlanStore columns;
};

Scratch422& Scratch() {
    thread_local Scratch422 scratch;
    return scratch;
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
    Scratch422& sc = Scratch();
    sc.rowPtrs.resize(size_t(most) + 1);
    sc.planePtrs.resize(size_t(most) + 1);
    sc.weights.resize(size_t(most) + 1);
    const uint8_t** rowPtrs = sc.rowPtrs.data();
    const uint8_t** planePtrs = sc.planePtrs.data();
    int32_t* weights = sc.weights.data();
    const int32_t srcPairs = (srcW + 1) >> 1;
    // The pair accumulators of a row of pairs, then the tuple row of the target, empty
    // where the image is not (the horizontal pass writes the image's columns only).
    sc.pairWork.resize(size_t(srcW + 2) * 4);
    sc.tuples.resize(size_t(W + 2) * 4);
    for (int32_t x = 0; x < W; ++x) {
        sc.tuples[4 * size_t(x) + 0] = 128;
        sc.tuples[4 * size_t(x) + 1] = black;
        sc.tuples[4 * size_t(x) + 2] = 128;
        sc.tuples[4 * size_t(x) + 3] = 0;
    }
    int32_t* pairWork = sc.pairWork.data();
    uint8_t* tuples = sc.tuples.data();
    int32_t* work = job.work;
    // The byte work rows (docs in rasterrows.h): pairs, alpha and tuples of a source row.
    const bool planned = job.columns > 0 && sc.columns.Build(job.columnTaps, job.columns, 32, 1,
                                                             k.columnBlock, kMaxColumnGroups);
    if (planned) {
        sc.pairBytes.resize(size_t(srcPairs) * 4 + 64);
        sc.alphaBytes.resize(size_t(srcW) + 64);
        sc.tupleBytes.resize(size_t(std::max(srcW, sc.columns.plan.reach)) * 4 + 64);
    }
    const int32_t alphaSeed[4] = {32, 32, 32, 32};

    auto margin = [&](int32_t row, int32_t n) { MarginRow422(job, row, n); };
    auto image = [&](int32_t row, int32_t n, int32_t t) {
        const Fx2dTapList& l = job.rowTaps[t];
        const bool widen =
            l.count == 1 && l.taps[0].weight == job.full && l.biasLuma == 0 && l.biasChroma == 0;
        const int32_t seed[4] = {l.biasChroma + 32, l.biasLuma + 32, l.biasChroma + 32,
                                 l.biasLuma + 32};
        int32_t sumW = 0;
        for (int32_t i = 0; i < l.count; ++i) {
            rowPtrs[i] = job.source.Row(l.taps[i].index);
            planePtrs[i] = job.source.AlphaRow(l.taps[i].index);
            weights[i] = l.taps[i].weight;
            sumW += l.taps[i].weight;
        }
        if (planned && rasterrows::RowFitsBytes(l, seed, 6) &&
            (!job.source.alpha || rasterrows::RowFitsBytes(l, alphaSeed, 6))) {
            // ---- vertical pass into bytes: pairs, alpha, then tuples of the source width
            const uint8_t* pairs = sc.pairBytes.data();
            const uint8_t* alpha = sc.alphaBytes.data();
            if (widen) {
                // One tap at full weight: the source bytes themselves.
                pairs = rowPtrs[0];
                alpha = planePtrs[0];
            } else {
                k.verticalBytes(sc.pairBytes.data(), rowPtrs, weights, l.count, seed, 0, srcPairs,
                                6);
                if (job.source.alpha) {
                    uint8_t* a = sc.alphaBytes.data();
                    const int32_t quads = srcW >> 2;
                    k.verticalBytes(a, planePtrs, weights, l.count, alphaSeed, 0, quads, 6);
                    for (int32_t x = 4 * quads; x < srcW; ++x) {
                        int32_t v = 32;
                        for (int32_t i = 0; i < l.count; ++i)
                            v += planePtrs[i][x] * weights[i];
                        a[x] = uint8_t(v >> 6);
                    }
                }
            }
            const uint8_t opaque = uint8_t((255 * sumW) >> 6);
            uint8_t* tb = sc.tupleBytes.data();
            k.spread422(tb, pairs, job.source.alpha ? alpha : nullptr, opaque, srcW);
            k.horizontalBytes(tuples + 4 * size_t(job.left), tb, sc.columns.plan, 6);
        } else {
            // ---- vertical pass into tuples of the whole source width
            if (widen)
                Widen(job.source, l.taps[0].index, work, srcW);
            else {
                k.vertical(pairWork, rowPtrs, weights, l.count, seed, 0, srcPairs);
                for (int32_t x = 0; x < srcW; ++x) {
                    const int32_t* p = pairWork + 4 * (x >> 1);
                    work[4 * x + 0] = p[0];
                    work[4 * x + 1] = p[(x & 1) ? 3 : 1];
                    work[4 * x + 2] = p[2];
                    int32_t a;
                    if (job.source.alpha) {
                        a = 32;
                        for (int32_t i = 0; i < l.count; ++i)
                            a += planePtrs[i][x] * weights[i];
                    } else
                        a = 255 * sumW;
                    work[4 * x + 3] = a;
                }
            }
            // ---- horizontal pass into the tuple row
            k.horizontal(tuples + 4 * size_t(job.left), work, job.columnTaps, job.columns, 6, 32,
                         true, 1);
        }
        // ---- pack the pairs, composing over the background
        uint8_t* dst = job.target.Row(row);
        uint8_t* plane = job.target.AlphaRow(row);
        const uint8_t* g = job.hasBackground ? job.background.Row(n) : nullptr;
        const uint8_t* ga = job.hasBackground ? job.background.AlphaRow(n) : nullptr;
        if (!g) {
            k.pack422(dst, plane, tuples, pairs);
            return;
        }
        for (int32_t p = 0; p < pairs; ++p) {
            const uint8_t* e = tuples + 8 * size_t(p);
            const uint8_t* o = e + 4;
            int32_t c0 = e[0], y0 = e[1], c1 = e[2], y1 = o[1], a0 = e[3], a1 = o[3];
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
        if (plane && !ga) std::memset(plane, 255, size_t(W));
    };
    job.Walk(margin, image);
    FreeTaps();
    return FX2D_OK;
}

} // namespace stdfx2d
