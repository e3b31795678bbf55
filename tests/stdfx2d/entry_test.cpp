// The transform's entries: which records they take, the result codes, and how the mode,
// the filter and the softness of a call are chosen.
#include <gtest/gtest.h>

#include <random>

#include "fx2dtest.h"
#include "stdfx2d/fx2d.h"

using namespace stdfx2d;
using fx2dtest::Fmt;
using fx2dtest::Picture;

namespace {

TEST(Fx2dEntry, RefusedRecordsGive27AndLeaveTheTargetAlone) {
    struct Case {
        const char* what;
        Fmt target, source;
        void (*spoil)(KXBMINFOHEADERYUV& t, KXBMINFOHEADERYUV& s);
    };
    const Case cases[] = {
        {"RGB target, 24-bit source", Fmt::kRGB, Fmt::kRGB,
         [](KXBMINFOHEADERYUV&, KXBMINFOHEADERYUV& s) { s.bmi.biBitCount = 24; }},
        {"RGB target, YUV source", Fmt::kRGB, Fmt::k444, nullptr},
        {"YUV target, RGB source", Fmt::k444, Fmt::kRGB, nullptr},
        {"4:2:2 target with sampling 0", Fmt::k422, Fmt::k422,
         [](KXBMINFOHEADERYUV& t, KXBMINFOHEADERYUV& s) {
             t.yuv.yuvSampling = 0;
             s.yuv.yuvSampling = 0;
         }},
        {"sampling differs", Fmt::k444, Fmt::k422, nullptr},
        {"two fields stored apart", Fmt::kRGB, Fmt::kRGB,
         [](KXBMINFOHEADERYUV& t, KXBMINFOHEADERYUV&) { t.bmi.bmiFormat |= 1; }},
        {"10-bit YUV", Fmt::k444, Fmt::k444,
         [](KXBMINFOHEADERYUV&, KXBMINFOHEADERYUV& s) { s.yuv.yuvBits = 10; }},
        {"auxiliary sampling", Fmt::k444, Fmt::k444,
         [](KXBMINFOHEADERYUV& t, KXBMINFOHEADERYUV&) { t.yuv.yuvSamplingAux = 1; }},
        {"another format", Fmt::kRGB, Fmt::kRGB,
         [](KXBMINFOHEADERYUV& t, KXBMINFOHEADERYUV&) { t.bmi.biCompression = KXBI_RGBZ; }},
        {"two planes", Fmt::kRGB, Fmt::kRGB,
         [](KXBMINFOHEADERYUV& t, KXBMINFOHEADERYUV&) { t.bmi.biPlanes = 2; }},
        {"row size too small", Fmt::kRGB, Fmt::kRGB,
         [](KXBMINFOHEADERYUV&, KXBMINFOHEADERYUV& s) { s.bmi.bmiStride = 8; }},
        {"negative width", Fmt::kRGB, Fmt::kRGB,
         [](KXBMINFOHEADERYUV&, KXBMINFOHEADERYUV& s) { s.bmi.biWidth = -4; }},
    };
    std::mt19937 rng(7);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Picture t(c.target, 8, 6), s(c.source, 5, 4);
        t.Random(rng);
        s.Random(rng);
        if (c.spoil) c.spoil(t.rec, s.rec);
        const auto before = t.Bytes();
        for (int mode : {0, 1, 2})
            EXPECT_EQ(Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), fx2dtest::Param(1.5, 0.5),
                           -1, mode),
                      FX2D_BADFORMAT);
        EXPECT_EQ(t.Bytes(), before);
    }
}

TEST(Fx2dEntry, MissingPixelsAndBadFieldsAreRefused) {
    Picture t(Fmt::kRGB, 8, 6), s(Fmt::kRGB, 5, 4);
    const auto p = fx2dtest::Param(1, 1);
    EXPECT_EQ(Fx2d(t.Header(), nullptr, s.Header(), s.Bits(), p, -1, 1), FX2D_BADFORMAT);
    EXPECT_EQ(Fx2d(t.Header(), t.Bits(), s.Header(), nullptr, p, -1, 1), FX2D_BADFORMAT);
    EXPECT_EQ(Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), p, 2, 1), FX2D_BADFORMAT);
    EXPECT_EQ(Fx2d(nullptr, t.Bits(), s.Header(), s.Bits(), p, -1, 1), FX2D_BADFORMAT);
}

TEST(Fx2dEntry, TargetWithoutPixelsIsDoneAndUntouched) {
    std::mt19937 rng(3);
    for (int32_t w : {0, 6})
        for (int32_t h : {0, 5}) {
            if (w && h) continue;
            Picture t(Fmt::kRGB, w, h), s(Fmt::kRGB, 4, 4);
            s.Random(rng);
            uint8_t sentinel[16];
            std::memset(sentinel, 0xA5, sizeof sentinel);
            EXPECT_EQ(
                Fx2d(t.Header(), sentinel, s.Header(), s.Bits(), fx2dtest::Param(2, 2), -1, 1),
                FX2D_OK);
            for (uint8_t b : sentinel)
                EXPECT_EQ(b, 0xA5);
        }
}

TEST(Fx2dEntry, EmptySourceListPassesTheCheck) {
    CFx2d fx(1);
    Picture t(Fmt::k444, 4, 4);
    KXBMINFOHEADER* none[1] = {nullptr};
    EXPECT_TRUE(fx.CheckFormats(t.Header(), none));
    Picture r(Fmt::kRGB, 4, 4);
    EXPECT_TRUE(fx.CheckFormats(r.Header(), none));
}

TEST(Fx2dEntry, QualityChoicesFollowModeAndFilter) {
    struct Case {
        int mode;
        bool setFilter;
        int kind, bits;
        int wantMode, wantRaster, wantKind, wantBits;
    };
    const Case cases[] =
        {
            {0, false, 0, 0, 0, 0, 0, 0},  {1, false, 0, 0, 1, 1, 7, 2},
            {2, false, 0, 0, 2, 2, 18, 0}, {5, false, 0, 0, 5, 1, 7, 2},
            {1, true, 9, 0, 0, 0, 0, 0},   // 0 bits: nearest whatever the kind
            {1, true, 10, 5, 1, 1, 10, 5}, // kind and bits taken
            {2, true, 0, 4, 0, 0, 0, 0},   // kind 0 is nearest in any mode
            {2, true, 9, 4, 2, 2, 9, 0},   // bits are the fast filter's only
            {5, true, 9, 4, 5, 1, 9, 2},   // mode 5 is not mode 1: bits stay
            {0, true, 7, 3, 0, 0, 7, 0},   // a kernel in nearest mode keeps the raster mode
        };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "mode " << c.mode << " kind " << c.kind << " bits " << c.bits);
        CFx2d fx(c.mode);
        if (c.setFilter) fx.SetFilter(c.kind, c.bits);
        EXPECT_EQ(fx.Mode(), c.wantMode);
        EXPECT_EQ(fx.RasterMode(), c.wantRaster);
        EXPECT_EQ(fx.Filter().Kind(), c.wantKind);
        EXPECT_EQ(fx.FilterBits(), c.wantBits);
    }
}

TEST(Fx2dEntry, QualityRecordWithoutUseFilterIgnoresKindAndBits) {
    std::mt19937 rng(11);
    Picture s(Fmt::kRGB, 7, 5), a(Fmt::kRGB, 9, 9), b(Fmt::kRGB, 9, 9);
    s.RandomPremultiplied(rng);
    FX2DQUALITY q = fx2dtest::Quality(1);
    q.filterKind = 0; // would be nearest if applied
    q.filterBits = 0;
    const auto p = fx2dtest::Param(1.3, 1.1, 0.05, 0);
    ASSERT_EQ(Fx2d(a.Header(), a.Bits(), s.Header(), s.Bits(), p, q, -1), FX2D_OK);
    ASSERT_EQ(Fx2d(b.Header(), b.Bits(), s.Header(), s.Bits(), p, -1, 1), FX2D_OK);
    EXPECT_EQ(a.Bytes(), b.Bytes());
    q.useFilter = 1; // now nearest
    ASSERT_EQ(Fx2d(a.Header(), a.Bits(), s.Header(), s.Bits(), p, q, -1), FX2D_OK);
    ASSERT_EQ(Fx2d(b.Header(), b.Bits(), s.Header(), s.Bits(), p, -1, 0), FX2D_OK);
    EXPECT_EQ(a.Bytes(), b.Bytes());
}

TEST(Fx2dEntry, IdentityNeedsEveryParameterWithinOneUnitOfFloat) {
    struct Case {
        double sx, sy, ox, oy, softX, softY;
        bool identity;
    };
    const Case cases[] = {
        {1, 1, 0, 0, 0, 0, true},       {1 + 1e-9, 1 - 1e-9, 1e-9, -1e-9, 0, 0, true},
        {1.0001, 1, 0, 0, 0, 0, false}, {1, 0.999, 0, 0, 0, 0, false},
        {1, 1, 0.001, 0, 0, 0, false},  {1, 1, 0, -0.001, 0, 0, false},
        {1, 1, 0, 0, 1, 0, false},      {1, 1, 0, 0, 0, 0.5, false},
    };
    Picture t(Fmt::kRGB, 4, 4), s(Fmt::kRGB, 4, 4);
    KXBMINFOHEADER* list[2] = {s.Header(), nullptr};
    void* bits[2] = {s.Bits(), nullptr};
    for (const Case& c : cases) {
        CFx2d fx(1);
        fx.SetSoftnessX(c.softX);
        fx.SetSoftnessY(c.softY);
        fx.SetUpForTest(t.Header(), t.Bits(), list, bits, fx2dtest::Param(c.sx, c.sy, c.ox, c.oy),
                        -1);
        EXPECT_EQ(fx.IsIdentity(), c.identity) << c.sx << " " << c.sy << " " << c.ox << " " << c.oy;
    }
}

TEST(Fx2dEntry, IdentityCopiesByteForByteInEveryModeAndFormat) {
    std::mt19937 rng(5);
    for (Fmt f : {Fmt::kRGB, Fmt::k444, Fmt::k422, Fmt::k422Alpha})
        for (int mode : {0, 1, 2})
            for (int32_t h : {7, -6}) {
                Picture s(f, 9, h), t(f, 9, h);
                s.Random(rng);
                t.Random(rng);
                ASSERT_EQ(Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), fx2dtest::Param(1, 1),
                               -1, mode),
                          FX2D_OK);
                EXPECT_EQ(t.Bytes(), s.Bytes()) << int(f) << " mode " << mode << " height " << h;
            }
}

TEST(Fx2dEntry, ParamSizeIsNotRead) {
    std::mt19937 rng(8);
    Picture s(Fmt::kRGB, 6, 6), a(Fmt::kRGB, 10, 8), b(Fmt::kRGB, 10, 8);
    s.RandomPremultiplied(rng);
    FX2DPARAM p = fx2dtest::Param(1.4, 0.9, 0.1, -0.2, 20);
    ASSERT_EQ(Fx2d(a.Header(), a.Bits(), s.Header(), s.Bits(), p, -1, 1), FX2D_OK);
    p.size = 0;
    p.reserved = 0xDEADBEEF;
    ASSERT_EQ(Fx2d(b.Header(), b.Bits(), s.Header(), s.Bits(), p, -1, 1), FX2D_OK);
    EXPECT_EQ(a.Bytes(), b.Bytes());
}

} // namespace
