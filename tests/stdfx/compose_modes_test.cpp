// The twenty RGB blend modes against a reference written from their formulas, on all
// 65,536 pairs of destination and source byte at several pairs of alpha, on every
// vector target; the dispatch by mode number; and the modes at their edges.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include <kelp/stdfx.h>

#include "compose_images.h"
#include "simdtargets.h"

using composetest::At;
using composetest::Bytes;
using composetest::MakeImage;
using stdfx::CDIB;
using stdfx::CDibCompose;

namespace {

// 256 x 256 images: in channel 0 the destination byte is x and the source byte y; the
// other two channels see the pairs in other orders. Alpha is one value per image.
void FillPairs(CDIB& dst, CDIB& src, int dA, int sA) {
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 256; ++x) {
            uint8_t* d = At(dst, x, y);
            uint8_t* s = At(src, x, y);
            d[0] = uint8_t(x), s[0] = uint8_t(y);
            d[1] = uint8_t(y), s[1] = uint8_t(x);
            d[2] = uint8_t(x ^ y), s[2] = uint8_t(255 - x);
            d[3] = uint8_t(dA), s[3] = uint8_t(sA);
        }
}

const int kAlphaPairs[][2] = {{255, 255}, {0, 255}, {255, 0}, {128, 200}, {1, 254}, {77, 77}};

} // namespace

TEST(ComposeModes, EveryModeMatchesItsFormulaOnAllPairs) {
    CDIB dst = MakeImage(256, 256), src = MakeImage(256, 256);
    kelptest::ForEachSimdTarget([&](int target) {
        for (int mode = 1; mode <= 20; ++mode) {
            // The hue modes go through float conversions and have no vector form: two
            // alpha pairs, on the plain loop. Vector targets take the first three pairs.
            const bool hue = mode >= 13 && mode <= 16;
            if (hue && target != kelp::kSimdPlain) continue;
            const int pairs = hue ? 2 : target == kelp::kSimdPlain ? 6 : 3;
            for (int p = 0; p < pairs; ++p) {
                const int dA = kAlphaPairs[p][0], sA = kAlphaPairs[p][1];
                FillPairs(dst, src, dA, sA);
                const std::vector<uint8_t> before = Bytes(dst), s = Bytes(src);
                CDibCompose c(mode, 0);
                ASSERT_TRUE(c.Compose(dst, src, 0, -1)) << mode;
                const std::vector<uint8_t> got = Bytes(dst);
                for (size_t i = 0; i < got.size(); i += 4) {
                    uint8_t want[4];
                    composetest::RefPixel(mode, &before[i], &s[i], want, &before[i]);
                    ASSERT_EQ(0, std::memcmp(want, &got[i], 4))
                        << "mode " << mode << " pixel " << i / 4 << " dA " << dA << " sA " << sA
                        << " d " << int(before[i]) << " s " << int(s[i]) << " got " << int(got[i])
                        << "," << int(got[i + 3]) << " want " << int(want[0]) << ","
                        << int(want[3]);
                }
            }
        }
    });
}

TEST(ComposeModes, DispatchRefusesModesOutsideOneToTwenty) {
    CDIB dst = MakeImage(4, 2), src = MakeImage(4, 2);
    std::memset(At(dst, 0, 0), 0x40, size_t(dst.Stride()) * 2);
    std::memset(At(src, 0, 0), 0x80, size_t(src.Stride()) * 2);
    const std::vector<uint8_t> before = Bytes(dst);
    for (uint32_t mode : {0u, 21u, 0xFFFFFFFFu}) {
        CDibCompose c(mode, 0);
        EXPECT_FALSE(c.Compose(dst, src, 0, -1)) << mode;
        EXPECT_FALSE(c.ComposeYUV(dst, src, 0, -1)) << mode;
        EXPECT_FALSE(c.ComposeModeHSL(dst, src, 0, -1)) << mode;
    }
    // The hue operation reads the object's mode: 12 and 17 are not its own.
    for (uint32_t mode : {12u, 17u}) {
        CDibCompose c(mode, 0);
        EXPECT_FALSE(c.ComposeModeHSL(dst, src, 0, -1));
        EXPECT_FALSE(c.ComposeModeHSLYUV(dst, src, 0, -1));
    }
    EXPECT_EQ(Bytes(dst), before);
    // Every mode in range reaches an operation that works.
    for (uint32_t mode = 1; mode <= 20; ++mode) {
        CDibCompose c(mode, 0);
        EXPECT_TRUE(c.Compose(dst, src, 0, -1)) << mode;
        EXPECT_TRUE(c.ComposeYUV(dst, src, 0, -1)) << mode;
    }
}

TEST(ComposeModes, ImagesNotBothAt32BitsAreRefusedUnchanged) {
    struct Case {
        uint16_t dstBits, srcBits;
    } cases[] = {{24, 32}, {32, 24}, {16, 16}};
    for (const Case& k : cases) {
        CDIB dst = MakeImage(3, 3, KXBI_RGB, 0, k.dstBits);
        CDIB src = MakeImage(3, 3, KXBI_RGB, 0, k.srcBits);
        std::memset(dst.Bits(), 0x11, size_t(dst.Stride()) * 3);
        std::memset(src.Bits(), 0x99, size_t(src.Stride()) * 3);
        const std::vector<uint8_t> before = Bytes(dst);
        for (uint32_t mode = 1; mode <= 20; ++mode) {
            CDibCompose c(mode, mode);
            EXPECT_FALSE(c.Compose(dst, src, 0, -1)) << mode;
            EXPECT_FALSE(c.ComposeYUV(dst, src, 0, -1)) << mode;
            EXPECT_FALSE(c.ComposeZ(dst, src, 0, -1)) << mode;
            EXPECT_FALSE(c.ComposeZYUV(dst, src, 0, -1)) << mode;
        }
        EXPECT_EQ(Bytes(dst), before);
    }
}

TEST(ComposeModes, EdgesOfTheModes) {
    struct Case {
        int mode;
        uint8_t d[4], s[4];
        uint8_t want[4];
    } cases[] = {
        // Opaque multiply is mul(d, s) alone.
        {4, {200, 100, 255, 255}, {128, 255, 0, 255}, {100, 100, 0, 255}},
        // A black source adds nothing to colour dodge: rest(d, s) stays.
        {8, {90, 60, 30, 128}, {0, 0, 0, 0}, {90, 60, 30, 128}},
        {8, {90, 60, 30, 128}, {0, 0, 0, 255}, {0, 0, 0, 255}},
        // Black over black, both opaque: clamp(255 - 255).
        {12, {0, 0, 0, 255}, {0, 0, 0, 255}, {0, 0, 0, 255}},
        // An opaque destination shows the source through mode 17 and nothing through 19.
        {17, {1, 2, 3, 255}, {40, 50, 60, 70}, {40, 50, 60, 70}},
        {19, {1, 2, 3, 255}, {40, 50, 60, 70}, {0, 0, 0, 0}},
        // Luma mattes: white lets all through, black nothing.
        {18, {255, 255, 255, 255}, {40, 50, 60, 70}, {40, 50, 60, 70}},
        {20, {255, 255, 255, 255}, {40, 50, 60, 70}, {0, 0, 0, 0}},
        {18, {0, 0, 0, 255}, {40, 50, 60, 70}, {0, 0, 0, 0}},
        // Hue modes with a transparent source: its colour reads as 0 and is multiplied
        // away; the destination stays.
        {13, {10, 20, 30, 255}, {200, 100, 50, 0}, {10, 20, 30, 255}},
        {16, {10, 20, 30, 255}, {77, 88, 99, 0}, {10, 20, 30, 255}},
        // Additive: sums are held to 255.
        {2, {200, 100, 0, 200}, {100, 100, 0, 100}, {255, 200, 0, 255}},
    };
    for (const Case& k : cases) {
        CDIB dst = MakeImage(1, 1), src = MakeImage(1, 1);
        std::memcpy(dst.Bits(), k.d, 4);
        std::memcpy(src.Bits(), k.s, 4);
        CDibCompose c(k.mode, 0);
        ASSERT_TRUE(c.Compose(dst, src, 0, -1));
        const uint8_t* got = At(dst, 0, 0);
        EXPECT_EQ(std::vector<uint8_t>(got, got + 4), std::vector<uint8_t>(k.want, k.want + 4))
            << "mode " << k.mode;
    }
}

TEST(ComposeModes, FieldsTakeEverySecondLineFromTheRightStart) {
    // Field 0 starts at line 1 on an even height, field 1 at line 1 on an odd one.
    struct Case {
        int height, field, firstLine;
    } cases[] = {{4, 0, 1}, {4, 1, 0}, {5, 0, 0}, {5, 1, 1}, {5, -1, 0}};
    for (const Case& k : cases) {
        CDIB dst = MakeImage(2, k.height), src = MakeImage(2, k.height);
        std::memset(dst.Bits(), 0, size_t(dst.Stride()) * k.height);
        std::memset(src.Bits(), 0x20, size_t(src.Stride()) * k.height);
        CDibCompose c(2, 0);
        ASSERT_TRUE(c.Compose(dst, src, 0, k.field));
        for (int y = 0; y < k.height; ++y) {
            const bool touched = k.field == -1 || (y - k.firstLine) % 2 == 0;
            EXPECT_EQ(*At(dst, 1, y), touched ? 0x20 : 0)
                << "height " << k.height << " field " << k.field << " line " << y;
        }
    }
}

TEST(ComposeModes, OverIsCentredAndClipped) {
    // A 2 x 2 opaque source in a 5 x 4 destination lands at (1, 1) (half the difference,
    // truncated); the rectangle cuts its right column; a larger source is cut evenly.
    struct Case {
        int dw, dh, sw, sh;
        bool rect;
        int32_t r[4];
        std::vector<int> xs, ys; // destination pixels that get the source
    } cases[] = {
        {5, 4, 2, 2, false, {}, {1, 2}, {1, 2}},
        {5, 4, 2, 2, true, {0, 0, 2, 4}, {1}, {1, 2}},
        {2, 2, 4, 3, false, {}, {0, 1}, {0, 1}},
        {4, 4, 2, 2, true, {3, 3, 4, 4}, {}, {}},
    };
    for (const Case& k : cases) {
        CDIB dst = MakeImage(k.dw, -k.dh), src = MakeImage(k.sw, -k.sh); // top-down
        std::memset(dst.Bits(), 0, size_t(dst.Stride()) * k.dh);
        for (int y = 0; y < k.sh; ++y)
            for (int x = 0; x < k.sw; ++x) {
                uint8_t* s = At(src, x, y);
                s[0] = uint8_t(10 * x + y), s[1] = 1, s[2] = 2, s[3] = 255;
            }
        CDibCompose c(1, 0);
        ASSERT_TRUE(c.ComposeOver(dst, src, k.rect ? k.r : nullptr, -1));
        const int ox = (k.dw - k.sw) / 2, oy = (k.dh - k.sh) / 2;
        for (int y = 0; y < k.dh; ++y)
            for (int x = 0; x < k.dw; ++x) {
                const bool in = std::count(k.xs.begin(), k.xs.end(), x) &&
                                std::count(k.ys.begin(), k.ys.end(), y);
                const int want = in ? 10 * (x - ox) + (y - oy) : 0;
                EXPECT_EQ(*At(dst, x, y), want) << x << "," << y;
                EXPECT_EQ(At(dst, x, y)[3], in ? 255 : 0);
            }
    }
}
