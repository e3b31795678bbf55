// The deinterlacers of CDIB: which lines are kept and how the others are made, by method,
// parity and field, at the first and last lines, for bottom-up images, for 4:2:2 with its
// alpha plane, three-frame methods, field expansion; and the same bytes on every target.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include <kelp/stdfx.h>

#include "kxbihtest.h"
#include "simdtargets.h"

using kelptest::MakeRgb;
using kelptest::MakeYuv;
using stdfx::CDIB;

namespace {

uint8_t* Line(const CDIB& d, int memoryLine) {
    return static_cast<uint8_t*>(d.Bits()) + ptrdiff_t(memoryLine) * d.Stride();
}

// A 32-bit RGB image whose memory line y holds value[y] in every byte.
CDIB LinesImage(const std::vector<int>& value, int width, bool topDown) {
    const int h = int(value.size());
    KXBMINFOHEADERYUV r = MakeRgb(width, topDown ? -h : h, 32);
    r.bmi.bmiFrame = 0; // interlaced
    CDIB d(&r.bmi);
    for (int y = 0; y < h; ++y)
        std::memset(Line(d, y), value[size_t(y)], size_t(width) * 4);
    return d;
}

// The first byte of each memory line.
std::vector<int> Column(const CDIB& d) {
    std::vector<int> out;
    for (int y = 0; y < d.Height(); ++y)
        out.push_back(Line(d, y)[0]);
    return out;
}

void Randomise(CDIB& d, std::mt19937& rng) {
    auto* p = static_cast<uint8_t*>(d.Bits());
    const uint32_t size = stdfx::DIBImageSize(d.Header());
    for (uint32_t i = 0; i < size; ++i)
        p[i] = uint8_t(rng() % 5 == 0 ? rng() : (i / 7) * 13);
}

std::vector<uint8_t> Pixels(const CDIB& d) {
    const auto* p = static_cast<const uint8_t*>(d.Bits());
    return std::vector<uint8_t>(p, p + stdfx::DIBImageSize(d.Header()));
}

const std::vector<int> kValues = {0, 255, 10, 200, 30, 100, 250, 5};

int Avg(int a, int b) {
    return (a + b + 1) >> 1;
}

} // namespace

// Top-down, 8 lines of flat rows, parity 0: lines 1, 3, 5, 7 are made.
TEST(Deinterlace, EachMethodMakesTheOddLinesFromItsNeighbours) {
    const auto& v = kValues;
    auto cubic = [&](int y) {
        const int s = (19 * (v[y - 1] + v[y + 1]) - 3 * (v[y - 3] + v[y + 3]) + 16) >> 5;
        return std::clamp(s, 0, 255);
    };
    struct Case {
        int method;
        std::vector<int> odd; // lines 1, 3, 5, 7
    } cases[] = {
        {1, {v[0], v[2], v[4], v[6]}},
        {2, {Avg(v[0], v[2]), Avg(v[2], v[4]), Avg(v[4], v[6]), v[6]}},
        {3,
         {(v[0] + 2 * v[1] + v[2] + 2) >> 2, (v[2] + 2 * v[3] + v[4] + 2) >> 2,
          (v[4] + 2 * v[5] + v[6] + 2) >> 2, (v[6] + 2 * v[7] + v[6] + 2) >> 2}},
        // Line 3 is the only one with three lines on both sides.
        {4, {Avg(v[0], v[2]), cubic(3), Avg(v[4], v[6]), v[6]}},
        // Flat rows: every diagonal gives the mean; the last line is the one above.
        {5, {Avg(v[0], v[2]), Avg(v[2], v[4]), Avg(v[4], v[6]), v[6]}},
        {0, {v[1], v[3], v[5], v[7]}},
        {6, {v[1], v[3], v[5], v[7]}},
    };
    const CDIB src = LinesImage(v, 24, true);
    for (const auto& c : cases) {
        CDIB out;
        ASSERT_TRUE(out.CreateDeinterlaced(src, c.method, 0, -1)) << c.method;
        const std::vector<int> got = Column(out);
        for (int y = 0; y < 8; ++y) {
            const int want = (y & 1) ? c.odd[size_t(y / 2)] : v[size_t(y)];
            EXPECT_EQ(got[size_t(y)], want) << "method " << c.method << " line " << y;
        }
        EXPECT_EQ(out.Header()->bmiFrame, 1u);
    }
}

// Parity 1 makes the even lines; line 0 reads line 1 both above and below, and line
// repeat at line 0 of a top-down image takes line 1 rather than a line before the buffer.
TEST(Deinterlace, FirstLineReadsTheLineBelow) {
    const auto& v = kValues;
    const CDIB src = LinesImage(v, 8, true);
    for (int method : {1, 2, 3, 4, 5}) {
        CDIB out;
        ASSERT_TRUE(out.CreateDeinterlaced(src, method, 1, -1));
        const int want = method == 3 ? (v[1] + 2 * v[0] + v[1] + 2) >> 2 : v[1];
        EXPECT_EQ(Column(out)[0], want) << method;
        EXPECT_EQ(Column(out)[1], v[1]) << method;
    }
    // Two lines, parity 0: line 1 takes line 0.
    CDIB two;
    ASSERT_TRUE(two.CreateDeinterlaced(LinesImage({40, 90}, 4, true), 2, 0, -1));
    EXPECT_EQ(Column(two), (std::vector<int>{40, 40}));
    // One line: kept or made from itself.
    for (int parity : {0, 1}) {
        CDIB one;
        ASSERT_TRUE(one.CreateDeinterlaced(LinesImage({77}, 4, true), 2, parity, -1));
        EXPECT_EQ(Column(one), (std::vector<int>{77}));
    }
}

// Parity counts in display order: a bottom-up image of even height keeps the other
// memory lines; an odd height keeps the same ones. Out-of-range parities are clipped.
TEST(Deinterlace, ParityFollowsDisplayOrder) {
    struct Case {
        int height, parity;
        bool topDown;
        int keptMemoryParity;
    } cases[] = {
        {8, 0, true, 0},  {8, 1, true, 1},  {8, 0, false, 1}, {8, 1, false, 0},
        {7, 0, false, 0}, {7, 1, false, 1}, {8, -5, true, 0}, {8, 9, true, 1},
    };
    for (const auto& c : cases) {
        std::vector<int> v(kValues.begin(), kValues.begin() + c.height);
        CDIB out;
        ASSERT_TRUE(out.CreateDeinterlaced(LinesImage(v, 4, c.topDown), 2, c.parity, -1));
        const std::vector<int> got = Column(out);
        for (int y = 0; y < c.height; ++y)
            if ((y & 1) == c.keptMemoryParity)
                EXPECT_EQ(got[size_t(y)], v[size_t(y)])
                    << c.height << " " << c.parity << " " << c.topDown << " line " << y;
            else
                EXPECT_NE(got[size_t(y)], v[size_t(y)]) << "line " << y << " was not made";
    }
    // Bottom-up line repeat takes the line after, and the one before at the last line.
    CDIB out;
    ASSERT_TRUE(out.CreateDeinterlaced(LinesImage({1, 2, 3, 4, 5, 6}, 4, false), 1, 1, -1));
    EXPECT_EQ(Column(out), (std::vector<int>{1, 3, 3, 5, 5, 5}));
}

// A field argument visits every second line only; the rest of the target stays.
TEST(Deinterlace, AFieldTouchesOnlyItsLines) {
    const CDIB src = LinesImage(kValues, 4, true);
    CDIB out = LinesImage(std::vector<int>(8, 33), 4, true);
    ASSERT_TRUE(out.Deinterlace(src, 2, 0, 1)); // field 1 of a top-down image: odd lines
    EXPECT_EQ(Column(out),
              (std::vector<int>{33, Avg(0, 10), 33, Avg(10, 30), 33, Avg(30, 250), 33, 250}));
}

TEST(Deinterlace, EdgeDirectedFollowsADiagonalAndKeepsFlatAreas) {
    // A grey image stays grey.
    CDIB grey;
    ASSERT_TRUE(grey.CreateDeinterlaced(LinesImage(std::vector<int>(6, 128), 40, true), 5, 0, -1));
    for (int v : Column(grey))
        EXPECT_EQ(v, 128);
    for (int x = 0; x < 40 * 4; ++x)
        ASSERT_EQ(Line(grey, 3)[x], 128);
    // A dark-to-light edge that moves right by four pixels from line 0 to line 2: the
    // average blurs four pixels to grey, the search finds the diagonal and blurs fewer.
    const int w = 48;
    KXBMINFOHEADERYUV r = MakeRgb(w, -3, 32);
    CDIB src(&r.bmi);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < w; ++x)
            std::memset(Line(src, y) + 4 * x, x < 20 + 2 * y ? 0 : 200, 4);
    CDIB edge, avg;
    ASSERT_TRUE(edge.CreateDeinterlaced(src, 5, 0, -1));
    ASSERT_TRUE(avg.CreateDeinterlaced(src, 2, 0, -1));
    int greyEdge = 0, greyAvg = 0;
    for (int x = 0; x < w; ++x) {
        greyEdge += Line(edge, 1)[4 * x] > 30 && Line(edge, 1)[4 * x] < 170;
        greyAvg += Line(avg, 1)[4 * x] > 30 && Line(avg, 1)[4 * x] < 170;
    }
    EXPECT_EQ(greyAvg, 4);
    EXPECT_LT(greyEdge, greyAvg);
}

TEST(Deinterlace, RefusesWhatItCannotWorkOn) {
    const CDIB src = LinesImage(kValues, 4, true);
    CDIB other = LinesImage(kValues, 5, true);
    EXPECT_FALSE(other.Deinterlace(src, 2, 0, -1)) << "widths differ";
    KXBMINFOHEADERYUV r420 = MakeYuv(4, 8, 12, KXYUV_SAMPLING_420);
    CDIB yuv420(&r420.bmi);
    CDIB yuv420b(&r420.bmi);
    EXPECT_FALSE(yuv420.Deinterlace(yuv420b, 2, 0, -1)) << "4:2:0 is not accepted";
    KXBMINFOHEADERYUV r24 = MakeYuv(4, 8, 24);
    CDIB yuv(&r24.bmi);
    EXPECT_FALSE(yuv.Deinterlace(src, 2, 0, -1)) << "formats differ";
    CDIB empty;
    EXPECT_FALSE(empty.Deinterlace(src, 2, 0, -1));
    KXBMINFOHEADERYUV r0 = MakeRgb(0, 8, 32);
    CDIB zero(&r0.bmi), zero2(&r0.bmi);
    EXPECT_TRUE(zero.Deinterlace(zero2, 2, 0, -1)) << "nothing to do";
}

// The source may be the target itself, or share its body.
TEST(Deinterlace, InPlaceGivesWhatACopyGives) {
    std::mt19937 rng(2);
    KXBMINFOHEADERYUV r = MakeRgb(37, -11, 32);
    CDIB src(&r.bmi);
    Randomise(src, rng);
    for (int method : {1, 2, 3, 4, 5}) {
        CDIB want;
        ASSERT_TRUE(want.CreateDeinterlaced(src, method, 1, -1));
        CDIB self;
        self.CopyFrom(src);
        ASSERT_TRUE(self.Deinterlace(self, method, 1, -1));
        EXPECT_EQ(Pixels(self), Pixels(want)) << method;
        CDIB shared(src);
        ASSERT_TRUE(shared.Deinterlace(src, method, 1, -1));
        EXPECT_EQ(Pixels(shared), Pixels(want)) << method;
        EXPECT_NE(Pixels(src), Pixels(want)) << "the source changed";
    }
}

// 4:2:2 rows and the alpha plane go through the same formula.
TEST(Deinterlace, FourTwoTwoAveragesRowsAndAlphaPlane) {
    KXBMINFOHEADERYUV r = MakeYuv(6, -4, 32, KXYUV_SAMPLING_422B);
    CDIB src(&r.bmi);
    ASSERT_NE(src.GetAlphaPlane(), nullptr);
    const uint8_t rows[4] = {10, 50, 90, 130}, alpha[4] = {0, 100, 200, 255};
    for (int y = 0; y < 4; ++y) {
        std::memset(Line(src, y), rows[y], 12);
        std::memset(src.GetAlphaPlane() + y * src.GetAlphaStride(), alpha[y], 6);
    }
    CDIB out;
    ASSERT_TRUE(out.CreateDeinterlaced(src, 2, 1, -1));
    const uint8_t* a = out.GetAlphaPlane();
    const int as = out.GetAlphaStride();
    EXPECT_EQ(Line(out, 0)[0], 50);
    EXPECT_EQ(Line(out, 2)[11], Avg(50, 130));
    EXPECT_EQ(a[0], 100);
    EXPECT_EQ(a[2 * as + 5], Avg(100, 255));
    EXPECT_EQ(a[3 * as], 255);
}

TEST(DeinterlaceTemporal, MethodsTakeTheirBytesFromTheRightFrames) {
    const std::vector<int> cur = {10, 20, 30, 40, 50, 60}, prev = {0, 100, 0, 35, 0, 250},
                           next = {0, 200, 0, 0, 0, 90};
    const CDIB p = LinesImage(prev, 4, true), c = LinesImage(cur, 4, true),
               n = LinesImage(next, 4, true);
    auto med3 = [](int a, int b, int x) {
        return std::max(std::min(a, b), std::min(std::max(a, b), x));
    };
    auto med9 = [](int a, int b, int x, int y) {
        int v[9] = {0, a, b, x, y, Avg(a, b), Avg(a, b), Avg(x, y), 255};
        std::sort(v, v + 9);
        return v[4];
    };
    struct Case {
        int method;
        std::vector<int> want;
    } cases[] = {
        {16, {10, Avg(100, 200), 30, Avg(35, 0), 50, Avg(250, 90)}},
        {17, {10, med3(10, 30, 100), 30, med3(30, 50, 35), 50, med3(50, 50, 250)}},
        {1, {10, med9(30, 10, 100, 200), 30, med9(50, 30, 35, 0), 50, med9(50, 50, 250, 90)}},
        {0, cur},
        {2, cur},
    };
    for (const auto& cs : cases) {
        CDIB out;
        ASSERT_TRUE(out.CreateDeinterlacedTemporal(p, c, n, cs.method, 0, -1)) << cs.method;
        EXPECT_EQ(Column(out), cs.want) << cs.method;
    }
    // The three-value median does not read the next frame.
    CDIB a, b;
    ASSERT_TRUE(a.CreateDeinterlacedTemporal(p, c, n, 17, 0, -1));
    ASSERT_TRUE(b.CreateDeinterlacedTemporal(p, c, p, 17, 0, -1));
    EXPECT_EQ(Pixels(a), Pixels(b));
    CDIB small = LinesImage({1, 2}, 4, true);
    CDIB out;
    EXPECT_FALSE(out.CreateDeinterlacedTemporal(small, c, n, 16, 0, -1)) << "heights differ";
}

TEST(FieldExpansion, DoublesOrInterpolatesTheKeptField) {
    const std::vector<int> even8 = {10, 20, 30, 40, 50, 60, 70, 80};
    const std::vector<int> odd7 = {10, 20, 30, 40, 50, 60, 70};
    const std::vector<int> ten = {0, 90, 20, 10, 200, 0, 250, 30, 60, 255};
    auto tap = [&](int d, int a, int c, int b, int e) {
        return std::clamp((10 * c + 8 * (a + b) - 5 * (d + e)) >> 4, 0, 255);
    };
    struct Case {
        const char* what;
        std::vector<int> in;
        unsigned field;
        int method;
        std::vector<int> want;
    } cases[] = {
        {"even height, doubled", even8, 1, 0, {10, 10, 30, 30, 50, 50, 70, 70}},
        {"odd height, doubled", odd7, 1, 0, {20, 20, 40, 40, 60, 60, 60}},
        {"even height, field 0, doubled", even8, 0, 0, {20, 20, 40, 40, 60, 60, 80, 80}},
        {"odd height, field 0, doubled", odd7, 0, 0, {10, 10, 30, 30, 50, 50, 70}},
        {"even height, averaged", even8, 1, 1, {10, 20, 30, 40, 50, 60, 70, 70}},
        {"method above 1 averages", even8, 1, 7, {10, 20, 30, 40, 50, 60, 70, 70}},
        {"odd height, averaged", odd7, 1, 1, {20, 20, 30, 40, 50, 60, 60}},
        {"field 0 always averages", even8, 0, -1, {20, 20, 30, 40, 50, 60, 70, 80}},
        {"five taps below 9 lines average", even8, 1, -1, {10, 20, 30, 40, 50, 60, 70, 70}},
        {"five taps",
         ten,
         1,
         -1,
         {0, tap(200, 0, 90, 20, 200), 20, tap(0, 20, 10, 200, 250), 200, tap(20, 200, 0, 250, 60),
          250, tap(200, 250, 30, 60, 200), 60, tap(250, 60, 255, 60, 250)}},
    };
    for (const auto& c : cases) {
        CDIB out;
        ASSERT_TRUE(out.CreateFieldExpanded(LinesImage(c.in, 4, true), c.field, c.method))
            << c.what;
        EXPECT_EQ(Column(out), c.want) << c.what;
        EXPECT_EQ(out.Header()->bmiFrame, 1u);
    }
}

// Whole images of every accepted layout through every method on every target: the
// bytes of the plain loops.
TEST(Deinterlace, EveryTargetGivesThePlainBytes) {
    std::mt19937 rng(9);
    std::vector<KXBMINFOHEADERYUV> headers = {
        MakeRgb(83, -13, 32), MakeRgb(83, 14, 24), MakeYuv(83, 13, 32, KXYUV_SAMPLING_422),
        MakeYuv(84, -12, 32, KXYUV_SAMPLING_422B), MakeYuv(40, 12, 32)};
    for (auto& h : headers) {
        CDIB prev(&h.bmi), cur(&h.bmi), next(&h.bmi);
        Randomise(prev, rng);
        Randomise(cur, rng);
        Randomise(next, rng);
        std::vector<std::function<bool(CDIB&)>> runs;
        for (int m = 1; m <= 5; ++m)
            for (int field : {-1, 0, 1})
                runs.push_back([&, m, field](CDIB& o) {
                    return o.CreateDeinterlaced(cur, m, field & 1, field);
                });
        for (int m : {1, 16, 17})
            runs.push_back([&, m](CDIB& o) {
                return o.CreateDeinterlacedTemporal(prev, cur, next, m, 1, -1);
            });
        for (int m : {-1, 1})
            runs.push_back([&, m](CDIB& o) { return o.CreateFieldExpanded(cur, 1, m); });
        std::vector<std::vector<uint8_t>> want;
        {
            kelptest::SimdMask plain(kelp::SimdBit(kelp::kSimdPlain));
            for (auto& run : runs) {
                CDIB o;
                ASSERT_TRUE(run(o));
                want.push_back(Pixels(o));
            }
        }
        kelptest::ForEachSimdTarget([&](int) {
            for (size_t i = 0; i < runs.size(); ++i) {
                CDIB o;
                ASSERT_TRUE(runs[i](o));
                ASSERT_EQ(Pixels(o), want[i]) << "run " << i << " width " << h.bmi.biWidth;
            }
        });
    }
}
