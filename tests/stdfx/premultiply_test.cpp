// Premultiply and Unpremultiply of CDIB, and the centred copies: which bytes change, the
// alpha state left behind, fields, 4:2:2 with its alpha plane, pads, cuts and black.
#include <gtest/gtest.h>

#include <cstring>
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

void SetPixel(CDIB& d, int x, int y, uint32_t bgra) {
    std::memcpy(Line(d, y) + 4 * x, &bgra, 4);
}
uint32_t GetPixel(const CDIB& d, int x, int y) {
    uint32_t v;
    std::memcpy(&v, Line(d, y) + 4 * x, 4);
    return v;
}

// A top-down 32-bit RGB image, each pixel x + 16 y + 0x01010100 times the line.
CDIB Numbered(int w, int h) {
    KXBMINFOHEADERYUV r = MakeRgb(w, -h, 32);
    CDIB d(&r.bmi);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            SetPixel(d, x, y, 0xC0000000u | uint32_t(0x10101 * (y + 1)) | uint32_t(x + 1));
    return d;
}

} // namespace

TEST(Premultiply, ColoursTimesAlphaWithAlphaKept) {
    struct Case {
        uint32_t in, premultiplied;
    } cases[] = {
        {0xFF123456u, 0xFF123456u}, // alpha 255: unchanged
        {0x00FFFFFFu, 0x00000000u}, // alpha 0: black
        {0x80FF8000u, 0x80804000u}, // half: 255 * 128 / 255 = 128, 128 * 128 / 255 = 64
        {0x01FFFFFFu, 0x01010101u},
    };
    KXBMINFOHEADERYUV r = MakeRgb(4, 1, 32);
    CDIB d(&r.bmi);
    for (int i = 0; i < 4; ++i)
        SetPixel(d, i, 0, cases[i].in);
    ASSERT_TRUE(d.Premultiply(-1));
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(GetPixel(d, i, 0), cases[i].premultiplied) << i;
    EXPECT_EQ(d.Header()->bmiAlpha, KXDIB_ALPHA_PREMULTIPLIED);
    ASSERT_TRUE(d.Unpremultiply(-1));
    EXPECT_EQ(d.Header()->bmiAlpha, KXDIB_ALPHA_VALID);
    EXPECT_EQ(GetPixel(d, 0, 0), 0xFF123456u);
    EXPECT_EQ(GetPixel(d, 1, 0), 0x00000000u);
    EXPECT_EQ(GetPixel(d, 2, 0), 0x80FF7F00u); // 128 * 255 / 128 held to 255; 64 back to 127
    EXPECT_EQ(GetPixel(d, 3, 0), 0x01FFFFFFu);
}

TEST(Premultiply, DepthsSizesFieldsAndSharing) {
    // Width 0: nothing to multiply, the state is still set.
    KXBMINFOHEADERYUV r0 = MakeRgb(0, 4, 32);
    CDIB zero(&r0.bmi);
    ASSERT_TRUE(zero.Premultiply(-1));
    EXPECT_EQ(zero.Header()->bmiAlpha, KXDIB_ALPHA_PREMULTIPLIED);
    // 24 bits: no alpha, true and unchanged; Unpremultiply refuses.
    KXBMINFOHEADERYUV r24 = MakeRgb(4, 2, 24);
    CDIB rgb24(&r24.bmi);
    std::memset(rgb24.Bits(), 0x55, stdfx::DIBImageSize(rgb24.Header()));
    EXPECT_TRUE(rgb24.Premultiply(-1));
    EXPECT_EQ(Line(rgb24, 1)[11], 0x55);
    EXPECT_FALSE(rgb24.Unpremultiply(-1));
    // One field: the other lines keep their colours; a shared copy is not touched.
    CDIB d = Numbered(3, 4);
    const CDIB before(d);
    ASSERT_TRUE(d.Premultiply(1)); // top-down field 1: lines 1 and 3
    for (int y = 0; y < 4; ++y) {
        const bool touched = (y & 1) == 1;
        EXPECT_EQ(GetPixel(d, 2, y) != GetPixel(before, 2, y), touched) << y;
    }
    // 16-bit 4:2:2 has no alpha: refused.
    KXBMINFOHEADERYUV r16 = MakeYuv(4, 2, 16, KXYUV_SAMPLING_422);
    CDIB yuv16(&r16.bmi);
    EXPECT_TRUE(yuv16.Premultiply(-1)) << "not 32 bits";
    EXPECT_FALSE(yuv16.Unpremultiply(-1));
}

// Luma by its own pixel's alpha, the pair's chroma by the first pixel's.
TEST(Premultiply, FourTwoTwoUsesTheAlphaPlane) {
    for (uint32_t sampling : {KXYUV_SAMPLING_422, KXYUV_SAMPLING_422B}) {
        KXBMINFOHEADERYUV r = MakeYuv(3, 1, 32, sampling);
        CDIB d(&r.bmi);
        uint8_t* row = Line(d, 0);
        std::memset(row, 200, 8);
        uint8_t* a = d.GetAlphaPlane();
        a[0] = 255, a[1] = 0, a[2] = 128;
        ASSERT_TRUE(d.Premultiply(-1));
        const int y0 = sampling == KXYUV_SAMPLING_422 ? 0 : 1, u = 1 - y0;
        EXPECT_EQ(row[y0], 200);
        EXPECT_EQ(row[u], 200);
        EXPECT_EQ(row[y0 + 2], 0);
        EXPECT_EQ(row[u + 2], 200);
        EXPECT_EQ(row[4 + y0], 100); // the third pixel, alone in its pair
        EXPECT_EQ(row[4 + u], 100);
        EXPECT_EQ(row[4 + y0 + 2], 100);
        EXPECT_EQ(a[2], 128);
    }
}

TEST(Premultiply, EveryTargetGivesThePlainBytes) {
    std::mt19937 rng(4);
    KXBMINFOHEADERYUV r = MakeRgb(101, 7, 32);
    CDIB src(&r.bmi);
    auto* p = static_cast<uint8_t*>(src.Bits());
    for (uint32_t i = 0; i < stdfx::DIBImageSize(src.Header()); ++i)
        p[i] = uint8_t(rng());
    std::vector<uint8_t> pre, un;
    auto run = [&](bool unpremultiply) {
        CDIB d;
        d.CopyFrom(src);
        EXPECT_TRUE(unpremultiply ? d.Unpremultiply(-1) : d.Premultiply(-1));
        const auto* b = static_cast<const uint8_t*>(d.Bits());
        return std::vector<uint8_t>(b, b + stdfx::DIBImageSize(d.Header()));
    };
    {
        kelptest::SimdMask plain(kelp::SimdBit(kelp::kSimdPlain));
        pre = run(false);
        un = run(true);
    }
    kelptest::ForEachSimdTarget([&](int) {
        EXPECT_EQ(run(false), pre);
        EXPECT_EQ(run(true), un);
    });
}

TEST(CopyCentred, PadsCutsAndBlack) {
    struct Case {
        int tw, th, sw, sh;
        int left, top;    // pads in the target
        int fromX, fromY; // first source pixel copied
        int copiedW, copiedH;
    } cases[] = {
        {8, 8, 4, 4, 2, 2, 0, 0, 4, 4}, {8, 8, 5, 3, 2, 3, 0, 0, 5, 3},
        {4, 4, 8, 8, 0, 0, 2, 2, 4, 4}, {4, 3, 7, 6, 0, 0, 2, 2, 4, 3},
        {6, 6, 6, 6, 0, 0, 0, 0, 6, 6},
    };
    for (const auto& c : cases) {
        const CDIB src = Numbered(c.sw, c.sh);
        KXBMINFOHEADERYUV r = MakeRgb(c.tw, -c.th, 32);
        CDIB d(&r.bmi);
        std::memset(d.Bits(), 0x77, stdfx::DIBImageSize(d.Header()));
        ASSERT_TRUE(d.CopyCentred(src, -1));
        for (int y = 0; y < c.th; ++y)
            for (int x = 0; x < c.tw; ++x) {
                const bool inside =
                    x >= c.left && x < c.left + c.copiedW && y >= c.top && y < c.top + c.copiedH;
                const uint32_t want =
                    inside ? GetPixel(src, x - c.left + c.fromX, y - c.top + c.fromY) : 0;
                ASSERT_EQ(GetPixel(d, x, y), want) << c.tw << "x" << c.th << " from " << c.sw << "x"
                                                   << c.sh << " at " << x << "," << y;
            }
    }
}

// Bottom-up images count rows from the top too; a YUV image is padded with its black.
TEST(CopyCentred, BottomUpAndYuvBlack) {
    KXBMINFOHEADERYUV rs = MakeYuv(2, 2, 32), rt = MakeYuv(4, 4, 32);
    CDIB src(&rs.bmi), d(&rt.bmi);
    const uint32_t px[2] = {0x11223344u, 0x55667788u};
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 2; ++x)
            SetPixel(src, x, y, px[y]);
    ASSERT_TRUE(d.CopyCentred(src, -1));
    // Memory line 0 of a bottom-up image is its last row; the source's too.
    EXPECT_EQ(GetPixel(d, 1, 1), px[0]);
    EXPECT_EQ(GetPixel(d, 2, 2), px[1]);
    EXPECT_EQ(GetPixel(d, 0, 0), 0x808010u);
    EXPECT_EQ(GetPixel(d, 3, 2), 0x808010u);
    // Formats that differ, and depths other than 32, are refused.
    const CDIB rgb = Numbered(2, 2);
    EXPECT_FALSE(d.CopyCentred(rgb, -1));
    KXBMINFOHEADERYUV r24 = MakeRgb(4, 4, 24), r24s = MakeRgb(2, 2, 24);
    CDIB d24(&r24.bmi), s24(&r24s.bmi);
    EXPECT_FALSE(d24.CopyCentred(s24, -1));
}

// With a field, a progressive source's row of the wrong parity is the average of its
// neighbours; an interlaced source gives the row of the right field next to it.
TEST(CopyCentred, FieldsOfProgressiveAndInterlacedSources) {
    const CDIB prog = Numbered(2, 4); // bmiFrame 1
    CDIB inter;
    inter.CopyFrom(prog);
    inter.Header()->bmiFrame = 0;
    for (const CDIB* src : std::vector<const CDIB*>{&prog, &inter}) {
        KXBMINFOHEADERYUV r = MakeRgb(2, -5, 32);
        CDIB d(&r.bmi);
        std::memset(d.Bits(), 0x77, stdfx::DIBImageSize(d.Header()));
        ASSERT_TRUE(d.CopyCentred(*src, 0)); // top pad 1: target line 2 is source row 1
        EXPECT_EQ(GetPixel(d, 0, 0), 0u);    // margin
        EXPECT_EQ(GetPixel(d, 0, 1), 0x77777777u) << "the other field stays";
        if (src == &prog) {
            // Row 1 is of field 1 in the source: rows 0 and 2 averaged.
            uint8_t want[4];
            for (int k = 0; k < 4; ++k)
                want[k] = uint8_t((Line(prog, 0)[k] + Line(prog, 2)[k] + 1) >> 1);
            EXPECT_EQ(std::memcmp(Line(d, 2), want, 4), 0);
        } else {
            EXPECT_EQ(GetPixel(d, 0, 2), GetPixel(inter, 0, 2));
        }
    }
}

TEST(CopyCentred, FourTwoTwoMovesWholePairsAndTheAlphaPlane) {
    KXBMINFOHEADERYUV rs = MakeYuv(2, 1, 32, KXYUV_SAMPLING_422),
                      rt = MakeYuv(6, 1, 32, KXYUV_SAMPLING_422);
    CDIB src(&rs.bmi), d(&rt.bmi);
    std::memcpy(Line(src, 0), "\x51\x52\x53\x54", 4);
    src.GetAlphaPlane()[0] = 9, src.GetAlphaPlane()[1] = 8;
    ASSERT_TRUE(d.CopyCentred(src, -1));
    const uint8_t want[12] = {16, 128, 16, 128, 0x51, 0x52, 0x53, 0x54, 16, 128, 16, 128};
    EXPECT_EQ(std::memcmp(Line(d, 0), want, 12), 0);
    const uint8_t* a = d.GetAlphaPlane();
    EXPECT_EQ(std::vector<int>(a, a + 6), (std::vector<int>{0, 0, 9, 8, 0, 0}));
}
