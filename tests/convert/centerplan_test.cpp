// The scales, offset and mode that the 32-bit centring asks of the 2-D transform, for each
// combination of fit flags, worked out by hand for a 720x576 picture of pixel ratio 2:1
// into a 360x288 frame of square pixels (sw = sh = 0.5, R = 2), and for odd sizes where
// making the scales even and the half-line offset show.
#include <gtest/gtest.h>

#include <kelp/kxconv.h>

#include "convert/scalers.h"
#include "kxbihtest.h"

using namespace kelp;
using kelptest::MakeRgb;

namespace {

struct Case {
    const char* name;
    uint32_t flags;
    double scaleX, scaleY;
    int mode;
};

TEST(CenterPlan, EachFitCaseChoosesItsScales) {
    const uint32_t W = KXCONV_FIT_WIDTH, H = KXCONV_FIT_HEIGHT, A = KXCONV_KEEP_ASPECT;
    const uint32_t F = KXCONV_FIT_FAST, G = KXCONV_FIT_GOOD, C = KXCONV_FIT_COVER;
    const Case cases[] = {
        {"no fit: the ratio alone, kept size", 0, 2.0, 1.0, 1},
        {"width, keeping the aspect", W | A, 0.5, 0.25, 1},
        {"width alone", W, 0.5, 1.0, 1},
        {"height, keeping the aspect", H | A, 1.0, 0.5, 1},
        {"height alone", H, 2.0, 0.5, 1},
        {"fast with width is still the first group", F | W, 0.5, 1.0, 1},
        {"fast with height and aspect", F | H | A, 1.0, 0.5, 1},
        {"fast, aspect, q below the height scale", F | A, 0.5, 0.25, 1},
        {"fast, aspect, cover", F | A | C, 1.0, 0.5, 1},
        {"fast alone stretches", F, 0.5, 0.5, 1},
        {"fast with the soft filter", F | KXCONV_FILTER_B, 0.5, 0.5, 2},
        {"good is the nearest mode", G, 0.5, 0.5, 0},
        {"good with width is the second group", G | W | A, 0.5, 0.25, 0},
        {"ratio fast takes nearest too", KXCONV_RATIO_FAST, 2.0, 1.0, 0},
    };
    KXBMINFOHEADERYUV in = MakeRgb(720, 576, 32), out = MakeRgb(360, 288, 32);
    in.bmi.bmiRatioX = 0x20000;
    in.bmi.bmiRatioY = 0x10000;
    for (const Case& c : cases) {
        CenterPlan p{};
        ASSERT_TRUE(CenterFx2DPlan(&in.bmi, &out.bmi, c.flags, &p)) << c.name;
        EXPECT_DOUBLE_EQ(p.scaleX, c.scaleX) << c.name;
        EXPECT_DOUBLE_EQ(p.scaleY, c.scaleY) << c.name;
        EXPECT_EQ(p.offsetY, 0.0) << c.name;
        EXPECT_EQ(p.mode, c.mode) << c.name;
    }
}

TEST(CenterPlan, ScalesAreMadeEvenAndAnOddLineCountMovesHalfALine) {
    // 101x75 into 51x41 stretched: 51 and 41 target pixels become 52 and 42, and 42 lines
    // placed in 41 leave an odd remainder: half a target line up.
    KXBMINFOHEADERYUV in = MakeRgb(101, 75, 32), out = MakeRgb(51, 41, 32);
    CenterPlan p{};
    ASSERT_TRUE(CenterFx2DPlan(&in.bmi, &out.bmi, KXCONV_FIT_FAST, &p));
    EXPECT_DOUBLE_EQ(p.scaleX, 52.0 / 101.0);
    EXPECT_DOUBLE_EQ(p.scaleY, 42.0 / 75.0);
    EXPECT_DOUBLE_EQ(p.offsetY, -0.5 / 41.0);
    // Kept size (no fit): no making even, and 75 lines in 41 leave 34, even: no offset.
    ASSERT_TRUE(CenterFx2DPlan(&in.bmi, &out.bmi, 0, &p));
    EXPECT_DOUBLE_EQ(p.scaleX, 1.0);
    EXPECT_DOUBLE_EQ(p.scaleY, 1.0);
    EXPECT_EQ(p.offsetY, 0.0);
    // 74 lines into 41: 33 left over, odd.
    in = MakeRgb(101, 74, 32);
    ASSERT_TRUE(CenterFx2DPlan(&in.bmi, &out.bmi, 0, &p));
    EXPECT_DOUBLE_EQ(p.offsetY, -0.5 / 41.0);
    // A bottom-up target counts its lines the same.
    out.bmi.biHeight = -41;
    ASSERT_TRUE(CenterFx2DPlan(&in.bmi, &out.bmi, 0, &p));
    EXPECT_DOUBLE_EQ(p.offsetY, -0.5 / 41.0);
}

TEST(CenterPlan, AnEmptySourceHasNoPlan) {
    KXBMINFOHEADERYUV in = MakeRgb(16, 16, 32), out = MakeRgb(8, 8, 32);
    in.bmi.biWidth = 0;
    CenterPlan p{};
    EXPECT_FALSE(CenterFx2DPlan(&in.bmi, &out.bmi, KXCONV_FIT_FAST, &p));
}

} // namespace
