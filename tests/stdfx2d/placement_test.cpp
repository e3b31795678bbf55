// Where the scaled image lands and what the weight tables hold: the lattice point it
// stays centred on, sub-pixel insets, weights that sum to one, mirrored borders, the
// one-tap row shortcut, and opacity folded into the weights.
#include <gtest/gtest.h>

#include <cmath>

#include "fx2dtest.h"
#include "stdfx2d/fx2d.h"

using namespace stdfx2d;
using fx2dtest::Fmt;
using fx2dtest::Picture;

namespace {

// A CFx2d set up for one call, as far as the placement.
struct Placed {
    Placed(Fmt fmt, int32_t sw, int32_t sh, int32_t tw, int32_t th, const FX2DPARAM& p, int mode,
           int field = -1)
        : s(fmt, sw, sh), t(fmt, tw, th), fx(mode) {
        list[0] = s.Header();
        bits[0] = s.Bits();
        fx.SetUpForTest(t.Header(), t.Bits(), list, bits, p, field);
    }
    Picture s, t;
    CFx2d fx;
    KXBMINFOHEADER* list[2] = {nullptr, nullptr};
    void* bits[2] = {nullptr, nullptr};
};

TEST(Fx2dPlacement, ExtentKeepsTheSourcesLatticePoint) {
    struct Case {
        int32_t length;
        double scale;
        int32_t lo, hi; // raw 24.8
    };
    const Case cases[] = {
        {3, 0.25, 64, 256},  // 0.75 of one pixel, on a pixel centre
        {2, 1.25, 192, 832}, // 2.5 pixels over 4
        {4, 1.0, 0, 1024},   // whole pixels
        {5, 1.0, 0, 1280},   // odd: on a pixel centre, whole
        {6, 0.5, 128, 896},  // 3 pixels around a border: half-pixel insets
        {5, 0.5, 64, 704},   // 2.5 pixels around a centre
        {7, 2.0, 128, 3712}, // 14 pixels around a centre
        {1, 0.1, 230, 256},
    };
    for (const Case& c : cases) {
        Placed su(Fmt::kRGB, c.length, 4, 16, 8, fx2dtest::Param(c.scale, 1), 1);
        EXPECT_EQ(su.fx.SizeRect().left.Raw(), c.lo) << c.length << " at " << c.scale;
        EXPECT_EQ(su.fx.SizeRect().right.Raw(), c.hi) << c.length << " at " << c.scale;
        EXPECT_EQ(su.fx.SizeRect().right.Raw() - su.fx.SizeRect().left.Raw(),
                  int32_t(std::lround(c.length * c.scale * 256)))
            << c.length << " at " << c.scale;
    }
}

TEST(Fx2dPlacement, ImageIsCentredAndMovedByTheOffset) {
    struct Case {
        int32_t sw, tw;
        double scale, offset;
        int32_t left, right; // placed bounds in the target
    };
    const Case cases[] = {
        {4, 10, 1.0, 0.0, 3, 7},   // even in even: borders meet
        {3, 9, 1.0, 0.0, 3, 6},    // odd in odd
        {4, 9, 1.0, 0.0, 3, 7},    // half a pixel either side, rounded upward
        {4, 10, 1.0, 0.2, 5, 9},   // 0.2 of 10 to the right
        {4, 10, 1.0, -0.5, -2, 2}, // half out on the left
        {4, 10, 0.5, 0.0, 4, 6},   {4, 10, 1.0, 2.0, 23, 27}, // wholly outside
    };
    for (const Case& c : cases) {
        Placed su(Fmt::kRGB, c.sw, 4, c.tw, 4, fx2dtest::Param(c.scale, 1, c.offset, 0), 0);
        EXPECT_EQ(su.fx.PlacedBounds().left, c.left)
            << c.sw << " in " << c.tw << " offset " << c.offset;
        EXPECT_EQ(su.fx.PlacedBounds().right, c.right)
            << c.sw << " in " << c.tw << " offset " << c.offset;
    }
}

TEST(Fx2dPlacement, PositiveVerticalOffsetMovesUpForBothRowOrders) {
    // y runs against memory: row y = 0 is the last memory row. A bottom-up image (positive
    // height) shows its first memory row at the bottom, so "up" is a smaller y there and a
    // larger one for a top-down image.
    Placed up(Fmt::kRGB, 4, 4, 8, 10, fx2dtest::Param(1, 1, 0, 0.2), 0);
    Placed down(Fmt::kRGB, 4, -4, 8, -10, fx2dtest::Param(1, 1, 0, 0.2), 0);
    EXPECT_EQ(up.fx.PlacedBounds().top, 1);
    EXPECT_EQ(down.fx.PlacedBounds().top, 5);
}

TEST(Fx2dTaps, EveryListSumsToOneUnitAndStaysInsideTheSource) {
    const double scales[] = {0.05, 0.13, 0.5, 0.77, 1.0, 1.6, 3.3, 8.0};
    for (int mode : {1, 2})
        for (double sc : scales)
            for (int32_t sw : {1, 2, 7, 40}) {
                SCOPED_TRACE(testing::Message()
                             << "mode " << mode << " scale " << sc << " width " << sw);
                // Centred, with no sub-pixel edges: the scaled size is whole.
                Placed su(Fmt::kRGB, sw, 9, 200, 120, fx2dtest::Param(sc, 1.37), mode);
                CFx2d& fx = su.fx;
                ASSERT_EQ(fx.BuildTaps(), FX2D_OK);
                const int32_t full = mode == 2 ? 16384 : 64;
                const int32_t edgeL = fx.PlacedRect().left.Raw() & 255;
                const int32_t edgeR = fx.PlacedRect().right.Raw() & 255;
                for (int32_t i = 0; i < fx.Span().Width(); ++i) {
                    const Fx2dTapList& l = fx.ColumnTaps()[i];
                    int32_t sum = 0;
                    for (int32_t k = 0; k < l.count; ++k) {
                        EXPECT_GE(l.taps[k].index, 0);
                        EXPECT_LT(l.taps[k].index, sw);
                        sum += l.taps[k].weight;
                    }
                    const bool edge = (i == 0 && edgeL) || (i == fx.Span().Width() - 1 && edgeR);
                    if (!edge) {
                        EXPECT_EQ(sum, full) << "column " << i;
                    } else {
                        EXPECT_LE(sum, full) << "column " << i;
                    }
                }
                for (int32_t r = 0; r < fx.Span().Height(); ++r)
                    for (int32_t k = 0; k < fx.RowTaps()[r].count; ++k) {
                        EXPECT_GE(fx.RowTaps()[r].taps[k].index, 0);
                        EXPECT_LT(fx.RowTaps()[r].taps[k].index, 9);
                    }
                fx.FreeTaps();
            }
}

TEST(Fx2dTaps, FastFilterWeightsAreMultiplesOfItsBits) {
    for (int bits = 1; bits <= 6; ++bits) {
        Placed su(Fmt::kRGB, 13, 11, 40, 30, fx2dtest::Param(1.9, 2.3), 1);
        su.fx.SetFilter(CFilter::kCubicBSpline, bits);
        ASSERT_EQ(su.fx.BuildTaps(), FX2D_OK);
        const int32_t step = 1 << (6 - bits);
        for (int32_t i = 1; i + 1 < su.fx.Span().Width(); ++i)
            for (int32_t k = 0; k < su.fx.ColumnTaps()[i].count; ++k)
                EXPECT_EQ(su.fx.ColumnTaps()[i].taps[k].weight % step, 0) << bits << " bits";
    }
}

TEST(Fx2dTaps, ScaleOneWithOtherSizesTakesSingleFullTaps) {
    Placed su(Fmt::kRGB, 6, 5, 10, 9, fx2dtest::Param(1, 1), 1);
    ASSERT_EQ(su.fx.BuildTaps(), FX2D_OK);
    EXPECT_TRUE(su.fx.RowsIdentity());
    for (int32_t r = 0; r < su.fx.Span().Height(); ++r) {
        ASSERT_EQ(su.fx.RowTaps()[r].count, 1);
        EXPECT_EQ(su.fx.RowTaps()[r].taps[0].weight, 64);
        EXPECT_EQ(su.fx.RowTaps()[r].taps[0].index, r); // the first list is the far row
    }
    for (int32_t i = 0; i < su.fx.Span().Width(); ++i) {
        // The cubic B-spline is not interpolating, but with the columns on source pixels
        // its weights at 2 bits round to one tap.
        int32_t sum = 0;
        for (int32_t k = 0; k < su.fx.ColumnTaps()[i].count; ++k)
            sum += su.fx.ColumnTaps()[i].taps[k].weight;
        EXPECT_EQ(sum, 64);
    }
}

TEST(Fx2dTaps, BordersMirrorInsteadOfRepeating) {
    // A source 3 pixels wide scaled 4 times: the first target columns lie left of the
    // first source centre and must read columns 0 and 1 (mirrored), never -1.
    Placed su(Fmt::kRGB, 3, 3, 12, 12, fx2dtest::Param(4, 4), 2);
    ASSERT_EQ(su.fx.BuildTaps(), FX2D_OK);
    const Fx2dTapList& first = su.fx.ColumnTaps()[0];
    bool readsOne = false;
    for (int32_t k = 0; k < first.count; ++k) {
        EXPECT_GE(first.taps[k].index, 0);
        EXPECT_LE(first.taps[k].index, 2);
        readsOne |= first.taps[k].index == 1;
    }
    EXPECT_TRUE(readsOne);
}

TEST(Fx2dTaps, TransparencyScalesWeightsAndPushesYuvBiasesToBlack) {
    struct Case {
        double transparency;
        int32_t goal; // per axis, of 16384
    };
    const Case cases[] = {{0, 16384}, {100, 0}, {75, 8224}, {19, 14778}};
    for (const Case& c : cases) {
        Placed su(Fmt::k444, 8, 8, 20, 20, fx2dtest::Param(1.5, 1.5, 0, 0, c.transparency), 2);
        su.s.rec.yuv.yuvColorSpace = 0; // video range: black 16
        ASSERT_EQ(su.fx.BuildTaps(), FX2D_OK);
        const Fx2dTapList& l = su.fx.ColumnTaps()[su.fx.Span().Width() / 2];
        int32_t sum = 0;
        for (int32_t k = 0; k < l.count; ++k)
            sum += l.taps[k].weight;
        EXPECT_EQ(sum, c.goal) << c.transparency;
        if (c.transparency == 100) {
            EXPECT_EQ(l.biasLuma, 16384 * 16);
            EXPECT_EQ(l.biasChroma, 16384 * 128);
        }
        if (c.transparency == 0) {
            EXPECT_EQ(l.biasLuma, 0);
            EXPECT_EQ(l.biasChroma, 0);
        }
    }
}

TEST(Fx2dTaps, SourceOfOneRowPutsEveryTapOnIt) {
    for (double sc : {0.3, 1.0, 2.5, 7.0}) {
        Placed su(Fmt::kRGB, 5, 1, 30, 30, fx2dtest::Param(1.1, sc), 2);
        ASSERT_EQ(su.fx.BuildTaps(), FX2D_OK);
        for (int32_t r = 0; r < su.fx.Span().Height(); ++r)
            for (int32_t k = 0; k < su.fx.RowTaps()[r].count; ++k)
                EXPECT_EQ(su.fx.RowTaps()[r].taps[k].index, 0);
    }
}

TEST(Fx2dTaps, InterlacedSourceReadsOneFieldPerList) {
    Placed su(Fmt::kRGB, 8, 12, 16, 30, fx2dtest::Param(1.3, 2.1), 2, 0);
    su.s.rec.bmi.bmiFrame = 0; // interlaced
    su.fx.SetUpForTest(su.t.Header(), su.t.Bits(), su.list, su.bits, fx2dtest::Param(1.3, 2.1), 0);
    ASSERT_EQ(su.fx.BuildTaps(), FX2D_OK);
    const int p = DIBFirstFieldRow(su.s.Header(), 0);
    for (int32_t r = 0; r < su.fx.Span().Height(); ++r) {
        int32_t sum = 0;
        for (int32_t k = 0; k < su.fx.RowTaps()[r].count; ++k) {
            EXPECT_EQ(su.fx.RowTaps()[r].taps[k].index & 1, p) << "list " << r;
            sum += su.fx.RowTaps()[r].taps[k].weight;
        }
        // The first and last lists lose the part of their row that the image leaves uncovered.
        if (r == 0 || r == su.fx.Span().Height() - 1) {
            EXPECT_LT(sum, 16384) << "list " << r;
        } else {
            EXPECT_EQ(sum, 16384) << "list " << r;
        }
    }
}

TEST(Fx2dTaps, FirstFieldRowFollowsOrderHeightAndSwap) {
    struct Case {
        int32_t height;
        uint32_t format;
        int field, row;
    };
    const Case cases[] = {
        {-6, 0, 0, 0}, {-6, 0, 1, 1}, {-7, 0, 0, 0}, {6, 0, 0, 1},   {6, 0, 1, 0},
        {7, 0, 0, 0},  {7, 0, 1, 1},  {6, 16, 0, 0}, {-6, 16, 0, 1}, {6, 0, -1, 0},
    };
    for (const Case& c : cases) {
        Picture p(Fmt::kRGB, 4, c.height);
        p.rec.bmi.bmiFormat = c.format;
        EXPECT_EQ(DIBFirstFieldRow(p.Header(), c.field), c.row)
            << c.height << " " << c.format << " " << c.field;
    }
}

} // namespace
