// What a render shows: flat pictures stay flat, transparency 100 shows the background, an
// image outside the target leaves the background, a field render keeps the other field,
// the composition over a background, and the edges of a partly covered pixel.
#include <gtest/gtest.h>

#include <random>

#include "fx2dtest.h"
#include "stdfx2d/fx2d.h"

using namespace stdfx2d;
using fx2dtest::Fmt;
using fx2dtest::Picture;

namespace {

// The pixel value of a flat picture as it must come out, per format (RGB and 4:4:4 are one
// word, 4:2:2 the pair C0 Y C1 Y).
void FillFlat(Picture& p, Fmt f, uint32_t word) {
    if (f == Fmt::k422 || f == Fmt::k422Alpha) {
        for (int32_t y = 0; y < p.Height(); ++y) {
            for (int32_t x = 0; x < (p.Width() + 1) / 2; ++x)
                std::memcpy(p.Row(y) + 4 * x, &word, 4);
            if (f == Fmt::k422Alpha) std::memset(p.AlphaRow(y), 255, size_t(p.Width()));
        }
    } else
        p.Flat(word);
}

TEST(Fx2dRaster, FlatPictureStaysFlatInsideAtAnyScale) {
    struct Case {
        Fmt fmt;
        uint32_t word;
    };
    const Case cases[] = {{Fmt::kRGB, 0xFF4D10C8u},
                          {Fmt::k444, 0xFF3390A0u},
                          {Fmt::k422, 0x5A80B060u},
                          {Fmt::k422Alpha, 0x7140C090u}};
    const double scales[] = {0.05, 0.21, 0.5, 0.83, 1.37, 2.0, 4.4, 8.0};
    for (const Case& c : cases)
        for (int mode : {0, 1, 2})
            for (double sx : scales) {
                const double sy = scales[(&sx - scales + 3) % 8];
                SCOPED_TRACE(testing::Message() << "format " << int(c.fmt) << " mode " << mode
                                                << " scale " << sx << "," << sy);
                Picture s(c.fmt, 23, 17), t(c.fmt, 64, 48);
                FillFlat(s, c.fmt, c.word);
                ASSERT_EQ(Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(),
                               fx2dtest::Param(sx, sy, 0.05, -0.03), -1, mode),
                          FX2D_OK);
                // Target pixels at least two pixels inside the placed image.
                KXBMINFOHEADER* list[2] = {s.Header(), nullptr};
                void* bits[2] = {s.Bits(), nullptr};
                CFx2d geo(mode == 0 ? 0 : 1);
                geo.SetUpForTest(t.Header(), t.Bits(), list, bits,
                                 fx2dtest::Param(sx, sy, 0.05, -0.03), -1);
                const stdfx::CRect& pb = geo.PlacedBounds();
                int checked = 0;
                for (int32_t y = std::max(pb.top + 2, 0); y < std::min(pb.bottom - 2, t.Height());
                     ++y) {
                    const int32_t row = t.Height() - 1 - y;
                    for (int32_t x = std::max(pb.left + 2, 0);
                         x < std::min(pb.right - 2, t.Width()); ++x) {
                        if (c.fmt == Fmt::k422 || c.fmt == Fmt::k422Alpha) {
                            const uint8_t* pair = t.Row(row) + 4 * (x / 2);
                            const uint8_t* w = reinterpret_cast<const uint8_t*>(&c.word);
                            ASSERT_EQ(pair[0], w[0]) << x << "," << y;
                            ASSERT_EQ(pair[1 + 2 * (x & 1)], w[1 + 2 * (x & 1)]) << x << "," << y;
                            ASSERT_EQ(pair[2], w[2]) << x << "," << y;
                            if (c.fmt == Fmt::k422Alpha) {
                                ASSERT_EQ(t.AlphaRow(row)[x], 255);
                            }
                        } else {
                            uint32_t v;
                            std::memcpy(&v, t.Row(row) + 4 * x, 4);
                            ASSERT_EQ(v, c.word) << x << "," << y;
                        }
                        ++checked;
                    }
                }
                if (sx >= 0.5 && sy >= 0.5) {
                    EXPECT_GT(checked, 0);
                }
            }
}

TEST(Fx2dRaster, TransparencyHundredShowsTheBackground) {
    std::mt19937 rng(21);
    for (Fmt f : {Fmt::kRGB, Fmt::k444, Fmt::k422, Fmt::k422Alpha})
        for (int mode : {0, 1, 2})
            for (int field : {-1, 0}) {
                SCOPED_TRACE(testing::Message()
                             << "format " << int(f) << " mode " << mode << " field " << field);
                Picture s(f, 13, 11), g(f, 20, 14), t(f, 20, 14);
                s.Random(rng);
                g.Random(rng);
                if (f != Fmt::kRGB) // full range: nothing below black
                    for (Picture* p : {&s, &g})
                        p->rec.yuv.yuvColorSpace = 1;
                ASSERT_EQ(Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), g.Header(), g.Bits(),
                               fx2dtest::Param(1.7, 0.8, 0.1, 0.1, 100), field, mode),
                          FX2D_OK);
                if (field == -1) {
                    EXPECT_EQ(t.Bytes(), g.Bytes());
                } else {
                    EXPECT_EQ(t.RowsOfParity(DIBFirstFieldRow(t.Header(), field)),
                              g.RowsOfParity(DIBFirstFieldRow(t.Header(), field)));
                }
            }
}

TEST(Fx2dRaster, ImageOutsideTheTargetLeavesBackgroundOrEmpty) {
    std::mt19937 rng(4);
    struct Case {
        Fmt fmt;
        uint32_t colourSpace;
        uint32_t empty; // first pixel word without a background
    };
    const Case cases[] = {{Fmt::kRGB, 1, 0}, {Fmt::k444, 1, 0x808000u}, {Fmt::k444, 0, 0x808010u}};
    for (const Case& c : cases)
        for (int mode : {0, 1, 2}) {
            Picture s(c.fmt, 9, 9), g(c.fmt, 16, 12), t(c.fmt, 16, 12);
            s.rec.yuv.yuvColorSpace = c.colourSpace;
            s.Random(rng);
            g.Random(rng);
            t.Random(rng);
            const auto p = fx2dtest::Param(1.2, 1.2, 3.0, 0);
            ASSERT_EQ(
                Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), g.Header(), g.Bits(), p, -1, mode),
                FX2D_OK);
            EXPECT_EQ(t.Bytes(), g.Bytes());
            ASSERT_EQ(Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), p, -1, mode), FX2D_OK);
            for (int32_t y = 0; y < t.Height(); ++y)
                for (int32_t x = 0; x < t.Width(); ++x) {
                    uint32_t v;
                    std::memcpy(&v, t.Row(y) + 4 * x, 4);
                    ASSERT_EQ(v, c.empty);
                }
        }
}

TEST(Fx2dRaster, FieldRenderLeavesTheOtherField) {
    std::mt19937 rng(9);
    for (Fmt f : {Fmt::kRGB, Fmt::k444, Fmt::k422Alpha})
        for (int mode : {0, 1, 2})
            for (int32_t h : {10, 11, -10})
                for (int field : {0, 1})
                    for (bool bg : {false, true}) {
                        SCOPED_TRACE(testing::Message()
                                     << "format " << int(f) << " mode " << mode << " height " << h
                                     << " field " << field << " background " << bg);
                        Picture s(f, 12, 9), g(f, 14, h), t(f, 14, h);
                        s.Random(rng);
                        g.Random(rng);
                        t.Random(rng);
                        const int mine = DIBFirstFieldRow(t.Header(), field);
                        const auto other = t.RowsOfParity(1 - mine);
                        const auto p = fx2dtest::Param(0.9, 1.3, -0.1, 0.05);
                        const int r =
                            bg ? Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), g.Header(),
                                      g.Bits(), p, field, mode)
                               : Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), p, field, mode);
                        ASSERT_EQ(r, FX2D_OK);
                        EXPECT_EQ(t.RowsOfParity(1 - mine), other);
                    }
}

TEST(Fx2dRaster, TwoFieldRendersOfAProgressiveSourceMakeTheFrame) {
    std::mt19937 rng(12);
    for (int mode : {0, 1, 2}) {
        Picture s(Fmt::kRGB, 11, 8), a(Fmt::kRGB, 16, 12), b(Fmt::kRGB, 16, 12);
        s.RandomPremultiplied(rng);
        const auto p = fx2dtest::Param(1.25, 1.5, 0.02, 0);
        ASSERT_EQ(Fx2d(a.Header(), a.Bits(), s.Header(), s.Bits(), p, -1, mode), FX2D_OK);
        ASSERT_EQ(Fx2d(b.Header(), b.Bits(), s.Header(), s.Bits(), p, 0, mode), FX2D_OK);
        ASSERT_EQ(Fx2d(b.Header(), b.Bits(), s.Header(), s.Bits(), p, 1, mode), FX2D_OK);
        EXPECT_EQ(a.Bytes(), b.Bytes()) << "mode " << mode;
    }
}

TEST(Fx2dRaster, NearestComposesPremultipliedOverTheBackground) {
    struct Case {
        uint8_t alpha;
        uint8_t src, bg;
        uint8_t want;
    };
    const Case cases[] = {{255, 90, 200, 90},
                          {0, 0, 200, 200},
                          {0, 40, 200, 240},
                          {0, 100, 200, 255},
                          {128, 60, 100, 110}};
    for (const Case& c : cases) {
        Picture s(Fmt::kRGB, 4, 4), g(Fmt::kRGB, 8, 8), t(Fmt::kRGB, 8, 8);
        s.Flat(uint32_t(c.src) * 0x10101u | uint32_t(c.alpha) << 24);
        g.Flat(uint32_t(c.bg) * 0x10101u | 0xFF000000u);
        ASSERT_EQ(Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), g.Header(), g.Bits(),
                       fx2dtest::Param(2, 2), -1, 0),
                  FX2D_OK);
        for (int32_t y = 0; y < 8; ++y)
            for (int32_t x = 0; x < 8; ++x) {
                ASSERT_EQ(t.Row(y)[4 * x], c.want) << int(c.alpha) << " " << int(c.src);
                ASSERT_EQ(t.Row(y)[4 * x + 3], 255);
            }
    }
}

TEST(Fx2dRaster, PartlyCoveredEdgesFadeInColourAndAlphaOrTowardBlack) {
    // A 3-wide picture at 0.25 covers 3/4 of one pixel: without a background its colour
    // and alpha fall together; in YUV the pixel falls toward black and neutral chroma.
    Picture s(Fmt::kRGB, 3, 3), t(Fmt::kRGB, 5, 5);
    s.Flat(0xFFC8C8C8u);
    ASSERT_EQ(Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), fx2dtest::Param(0.25, 0.25), -1, 2),
              FX2D_OK);
    const uint8_t* mid = t.Row(2) + 8;
    EXPECT_LT(mid[3], 255);
    EXPECT_GT(mid[3], 0);
    EXPECT_NEAR(mid[0], 200 * mid[3] / 255, 2);

    Picture ys(Fmt::k444, 3, 3, 0), yt(Fmt::k444, 5, 5, 0);
    ys.Flat(0xFFF0F0E0u); // Y 224, U 240, V 240
    ASSERT_EQ(
        Fx2d(yt.Header(), yt.Bits(), ys.Header(), ys.Bits(), fx2dtest::Param(0.25, 0.25), -1, 2),
        FX2D_OK);
    const uint8_t* ym = yt.Row(2) + 8;
    EXPECT_LT(ym[0], 224);
    EXPECT_GT(ym[0], 16);
    EXPECT_LT(ym[1], 240);
    EXPECT_GT(ym[1], 128);
    // Around it, nothing: black and neutral.
    EXPECT_EQ(yt.Row(0)[0], 16);
    EXPECT_EQ(yt.Row(0)[1], 128);
}

TEST(Fx2dRaster, YuvFourFourFourOf24BitsStopsAfterTheRowsBeforeTheImage) {
    Picture s(Fmt::k444_24, 6, 6), t(Fmt::k444, 10, 10);
    t.Flat(0x12345678u);
    ASSERT_EQ(Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), fx2dtest::Param(1.2, 1.2), -1, 1),
              FX2D_BADFORMAT);
    // The first memory rows (before the image) are the empty value; the last are untouched.
    uint32_t first, last;
    std::memcpy(&first, t.Row(0), 4);
    std::memcpy(&last, t.Row(9), 4);
    EXPECT_EQ(first, 0x808000u);
    EXPECT_EQ(last, 0x12345678u);
}

TEST(Fx2dRaster, OddWidth422LeavesTheUnpairedPixelOutsideThePacking) {
    Picture s(Fmt::k422, 8, 8), t(Fmt::k422, 9, 8);
    FillFlat(s, Fmt::k422, 0x50A060B0u);
    for (int32_t y = 0; y < 8; ++y)
        std::memset(t.Row(y), 0x33, size_t(t.Stride()));
    ASSERT_EQ(Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), fx2dtest::Param(1.5, 1.5), -1, 1),
              FX2D_OK);
    for (int32_t y = 0; y < 8; ++y) {
        EXPECT_EQ(t.Row(y)[16], 0x33);
        EXPECT_EQ(t.Row(y)[17], 0x33);
        EXPECT_NE(t.Row(y)[15], 0x33);
    }
}

TEST(Fx2dRaster, BackgroundOfAnotherSizeIsResampledFirst) {
    // A flat background of any size stays flat after it is brought to the target's size.
    Picture s(Fmt::kRGB, 4, 4), g(Fmt::kRGB, 7, 5), t(Fmt::kRGB, 16, 12);
    s.Flat(0);
    g.Flat(0xFF204080u);
    ASSERT_EQ(Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), g.Header(), g.Bits(),
                   fx2dtest::Param(1, 1, 0, 0), -1, 1),
              FX2D_OK);
    uint32_t v;
    std::memcpy(&v, t.Row(0), 4);
    EXPECT_EQ(v, 0xFF204080u);
    std::memcpy(&v, t.Row(6) + 4 * 8, 4); // under the transparent picture
    EXPECT_EQ(v, 0xFF204080u);
}

} // namespace
