// The colour tables: their defining entries, the range limits with their unwritten ends,
// the exact black, white and grey of each space, and the per-object view.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "csc_testing.h"

using csctest::Csc;
using kelp::CKXCsc;

TEST(CscTables, DefiningEntriesOfEverySpace) {
    Csc c; // fills the tables
    struct Case {
        const char* what;
        const int32_t* table;
        int index;
        int32_t want;
    } cases[] = {
        {"601 luma below black", Csc::m_Y_y_tab[0], 15, 0},
        {"601 luma at black", Csc::m_Y_y_tab[0], 16, 32768},
        {"601 luma below white", Csc::m_Y_y_tab[0], 234, 16668130},
        {"601 luma patched white", Csc::m_Y_y_tab[0], 235, 0xFF0000},
        {"601 luma 254 patched", Csc::m_Y_y_tab[0], 254, 0xFF0000},
        {"601 luma 255 left as computed", Csc::m_Y_y_tab[0], 255, 18270619},
        {"601 Cr to R centre", Csc::m_Cr_r_tab[0], 128, 0},
        {"601 Cb to B at 0", Csc::m_Cb_b_tab[0], 0, -16944128},
        {"full Cr to R centre", Csc::m_Cr_r_tab[1], 128, 32768},
        {"full luma", Csc::m_Y_y_tab[1], 255, 255 * 65536},
        {"full B to Cb offset", Csc::m_RGB_YCC[1] + 5 * 256, 0, 0x807FFF},
        {"full R to Cr offset", Csc::m_RGB_YCC[1] + 6 * 256, 0, 0x807FFF},
        {"full B to Cr no offset", Csc::m_RGB_YCC[1] + 8 * 256, 1, -5329},
        {"601 B to Y offset", Csc::m_RGB_YCC[0] + 2 * 256, 0, 0x100000},
        {"601 B to Cr", Csc::m_RGB_YCC[0] + 8 * 256, 255, -4696 * 255 + 0x807FFF},
        // 709: double expressions rounded by +0.5 and truncation toward zero
        {"709 Cr to R at 0", Csc::m_Cr_r_tab[2], 0, -15030478},
        {"709 Cr to R centre", Csc::m_Cr_r_tab[2], 128, -2},
        {"709 Cb to B at 255", Csc::m_Cb_b_tab[2], 255, 17572171},
        {"709 Cr to G at 16", Csc::m_Cr_g_tab[2], 16, 3909255},
        {"709 Cb to G centre", Csc::m_Cb_g_tab[2], 128, -1},
        {"709 Cb to G at 200", Csc::m_Cb_g_tab[2], 200, -1005559},
        {"709 luma at black", Csc::m_Y_y_tab[2], 16, 32768},
        {"709 luma at 100", Csc::m_Y_y_tab[2], 100, 6438614},
        {"709 luma patched low", Csc::m_Y_y_tab[2], 0, 0},
        {"709 luma 255 as computed", Csc::m_Y_y_tab[2], 255, 18258925},
        {"709 R to Y", Csc::m_RGB_YCC[2] + 0 * 256, 100, 1197363},
        {"709 G to Y", Csc::m_RGB_YCC[2] + 1 * 256, 200, 8056013},
        {"709 B to Y", Csc::m_RGB_YCC[2] + 2 * 256, 16, 1146405},
        {"709 R to Cb", Csc::m_RGB_YCC[2] + 3 * 256, 255, -1683244},
        {"709 G to Cb", Csc::m_RGB_YCC[2] + 4 * 256, 128, -2841476},
        {"709 B to Cb", Csc::m_RGB_YCC[2] + 5 * 256, 0, 0x807FFE},
        {"709 R to Cr", Csc::m_RGB_YCC[2] + 6 * 256, 255, 15765375},
        {"709 G to Cr", Csc::m_RGB_YCC[2] + 7 * 256, 16, -418590},
        {"709 B to Cr", Csc::m_RGB_YCC[2] + 8 * 256, 200, -527615},
    };
    for (const Case& k : cases)
        EXPECT_EQ(k.table[k.index], k.want) << k.what;
}

TEST(CscTables, RangeLimitsClampWithTheirTwoUnwrittenEnds) {
    Csc c;
    struct Case {
        const char* what;
        const uint8_t* table; // at value 0
        int lo, hi;
    } cases[] = {{"full", Csc::m_RangeLimit + 256, 0, 255},
                 {"luma", Csc::m_RangeLimitY + 256, 16, 235},
                 {"chroma 100", Csc::m_RangeLimitC100 + 256, 16, 240},
                 {"chroma 75", Csc::m_RangeLimitC75 + 256, 44, 212}};
    for (const Case& k : cases) {
        for (int v = -255; v <= 510; ++v)
            ASSERT_EQ(k.table[v], v < k.lo ? k.lo : v > k.hi ? k.hi : v) << k.what << " " << v;
        EXPECT_EQ(k.table[-256], 0) << k.what;
        EXPECT_EQ(k.table[511], 0) << k.what;
        // Sums beyond the table (extreme corners of the inverse) still read the bounds.
        EXPECT_EQ(k.table[-271], k.lo) << k.what;
        EXPECT_EQ(k.table[546], k.hi) << k.what;
    }
    EXPECT_EQ(Csc::m_RangeLimitY[256 - 1], 16);
    EXPECT_EQ(Csc::m_RangeLimitY[256 + 15], 16);
    EXPECT_EQ(Csc::m_RangeLimitY[256 + 236], 235);
}

// Black, white and the grey axis come out on exact values in every space, which is what
// the small corrections of the tables are for; the inverse gives the grey back.
TEST(CscTables, BlackWhiteAndGreyAreExactInEverySpace) {
    for (int space = 0; space < 3; ++space) {
        Csc c(space);
        const int black = space == 1 ? 0 : 16, white = space == 1 ? 255 : 235;
        int32_t k[5], w[5];
        c.RefRaw(0, 0, 0, k);
        EXPECT_EQ(k[0], black) << space;
        c.RefRaw(255, 255, 255, w);
        EXPECT_EQ(w[0], white) << space;
        for (int g = 0; g < 256; ++g) {
            int32_t raw[5];
            c.RefRaw(g, g, g, raw);
            ASSERT_EQ(raw[1], 128) << "space " << space << " grey " << g;
            ASSERT_EQ(raw[2], 128) << "space " << space << " grey " << g;
        }
        uint8_t bgr[3];
        c.RefInverse(black, 128, 128, bgr);
        EXPECT_EQ(bgr[0] + bgr[1] + bgr[2], 0) << space;
        c.RefInverse(white, 128, 128, bgr);
        // 709's corrections of -2 and -1 on the chroma columns leave white one step short in
        // every component.
        EXPECT_EQ(bgr[0] & bgr[1] & bgr[2], space == 2 ? 254 : 255) << space;
        EXPECT_EQ(bgr[1], space == 2 ? 254 : 255) << space;
    }
    int32_t raw[5];
    Csc(0).RefRaw(0, 0, 0, raw);
    EXPECT_EQ(raw[3], 0x807FFF); // the Cb sum at any grey in space 0
}

TEST(CscTables, ObjectViewFollowsInitAndColorLimit) {
    Csc fresh(0);
    struct Bare : kelp::CKXCsc {
        const void* First() const { return m_pRangeLimit; }
        const void* Rows() const { return m_pRGB_YCC; }
    } bare;
    EXPECT_EQ(bare.First(), nullptr);
    EXPECT_EQ(bare.Rows(), nullptr);

    Csc c(0);
    c.ColorLimit(1);
    EXPECT_EQ(c.RangeLimitC(), Csc::m_RangeLimitC75 + 256);
    kelp::CKXCsc copy = c; // copies keep the view
    c.Init(CKXCsc::CS_CCIR601);
    EXPECT_EQ(c.RangeLimitC(), Csc::m_RangeLimitC100 + 256) << "Init resets the limit";
    EXPECT_EQ(c.Init(CKXCsc::ColorSpace(7)), 1);
    EXPECT_EQ(c.Space(), 0) << "unknown space counts as 601";
    c.Init(CKXCsc::CS_ITU709);
    EXPECT_EQ(c.Space(), 2);
    c.End();
    EXPECT_EQ(c.Space(), 2);
}

static double Clamp(double v, double lo, double hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

// Every space against the exact BT.601 / BT.709 formulas in doubles: the tables keep
// each component within one step of the exact value (1.1 allows
// the truncations of the sums).
TEST(CscTables, ForwardStaysWithinOneOfTheExactFormulas) {
    struct Space {
        int id;
        double kr, kb, yScale, yOff, cScale;
    } spaces[] = {{0, 0.299, 0.114, 219.0, 16.0, 224.0},
                  {1, 0.299, 0.114, 255.0, 0.0, 255.0},
                  {2, 0.2126, 0.0722, 219.0, 16.0, 224.0}};
    for (const Space& s : spaces) {
        Csc c(s.id);
        double worst = 0;
        for (int r = 0; r < 256; r += 5)
            for (int g = 0; g < 256; g += 3)
                for (int b = 0; b < 256; b += 7) {
                    const double R = r / 255.0, G = g / 255.0, B = b / 255.0;
                    const double Y = s.kr * R + (1 - s.kr - s.kb) * G + s.kb * B;
                    const double cb = (B - Y) / (2 * (1 - s.kb)), cr = (R - Y) / (2 * (1 - s.kr));
                    // The conversions limit luma and chroma in every space, the full
                    // range one included.
                    const double want[3] = {Clamp(s.yOff + s.yScale * Y, 16, 235),
                                            Clamp(128 + s.cScale * cb, 16, 240),
                                            Clamp(128 + s.cScale * cr, 16, 240)};
                    const Csc::Yuv got = c.RefForward(b, g, r);
                    const int have[3] = {got.y, got.u, got.v};
                    for (int k = 0; k < 3; ++k)
                        worst = std::max(worst, std::fabs(have[k] - want[k]));
                }
        EXPECT_LE(worst, 1.1) << "space " << s.id;
    }
}
