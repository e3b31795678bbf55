// The pixel format translators against a reference written from the colour formulas:
// sums of 16.16 coefficients, chroma from the even pixel of a pair, the odd pixel's
// chroma interpolated on the way back.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include <kelp/stdfx.h>

#include "kxbihtest.h"
#include "stdfx/singleton.h"

using kelptest::MakeRgb;
using kelptest::MakeYuv;
using stdfx::CDIB;

namespace {

int Clamp(int v, int lo, int hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

// Y, U, V of one colour: three 16.16 sums with their rounding constants.
void RefRgbToYuv(int cs, int r, int g, int b, int* y, int* u, int* v) {
    if (cs == 1) {
        *y = (19595 * r + 38470 * g + 7471 * b + 0x8000) >> 16;
        *u = (-11059 * r - 21709 * g + 32768 * b + 0x807FFF) >> 16;
        *v = (32768 * r - 27439 * g - 5329 * b + 0x807FFF) >> 16;
    } else {
        *y = (16819 * r + 33028 * g + 6437 * b + 0x108000) >> 16;
        *u = (-9708 * r - 19065 * g + 28773 * b + 0x807FFF) >> 16;
        *v = (28792 * r - 24096 * g - 4696 * b + 0x807FFF) >> 16;
    }
    *u = Clamp(*u, 16, 240);
    *v = Clamp(*v, 16, 240);
}

// B, G, R of one YUV colour, in the colour space's coefficients.
void RefYuvToRgb(int cs, int y, int u, int v, int* r, int* g, int* b) {
    const int c = u - 128, e = v - 128;
    int yt, vr, ub, vg, ug;
    if (cs == 1) {
        yt = 65536 * y + 0x8000;
        vr = 91895 * e, ub = 116064 * c, vg = -46825 * e, ug = -22649 * c;
    } else {
        const int yc = Clamp(y - 16, 0, 255);
        if (cs == 2) {
            yt = int(yc * 256.0 / 220.0 * 65536.0 + 0.5) + 0x8000;
            vr = int(403.1488 * e / 225.0 * 65536.0 + 0.5) - 2;
            ub = int(475.0336 * c / 225.0 * 65536.0 + 0.5) - 2;
            vg = int(-119.8336 * e / 225.0 * 65536.0 + 0.5);
            ug = int(-47.9488 * c / 225.0 * 65536.0 + 0.5) - 1;
        } else {
            yt = 76309 * yc + 0x8000;
            vr = 105162 * e, ub = 132376 * c, vg = -53877 * e, ug = -25885 * c;
        }
    }
    *b = Clamp((ub + yt) >> 16, 0, 255);
    *g = Clamp((vg + ug + yt) >> 16, 0, 255);
    *r = Clamp((vr + yt) >> 16, 0, 255);
}

const uint8_t* DisplayRow(const CDIB& d, int y) {
    const int m = d.IsBottomUp() ? d.Height() - 1 - y : y;
    return static_cast<const uint8_t*>(d.Bits()) + ptrdiff_t(m) * d.Stride();
}
const uint8_t* AlphaRow(const CDIB& d, int y) {
    const int m = d.IsBottomUp() ? d.Height() - 1 - y : y;
    return d.GetAlphaPlane() + ptrdiff_t(m) * d.GetAlphaStride();
}

void Randomise(CDIB& d, std::mt19937& rng) {
    auto* p = static_cast<uint8_t*>(d.Bits());
    for (uint32_t i = 0; i < stdfx::DIBImageSize(d.Header()); ++i)
        p[i] = uint8_t(rng());
}

// Y, U, V, A of display pixel x of a YUV row, 4:2:2 chroma interpolated as the
// translators read it.
void ReadYuv(const CDIB& d, int x, int y, int out[4]) {
    const uint8_t* row = DisplayRow(d, y);
    const KXBMINFOHEADERYUV* h = reinterpret_cast<const KXBMINFOHEADERYUV*>(d.Header());
    if (h->yuv.yuvSampling == KXYUV_SAMPLING_444) {
        const int bpp = stdfx::CDIB::BytesPerPixel(d.Header());
        for (int k = 0; k < 3; ++k)
            out[k] = row[x * bpp + k];
        out[3] = bpp >= 4 ? row[x * bpp + 3] : 255;
        return;
    }
    const bool uyvy = h->yuv.yuvSampling == KXYUV_SAMPLING_422B;
    const int yi[2] = {uyvy ? 1 : 0, uyvy ? 3 : 2}, ui = uyvy ? 0 : 1, vi = uyvy ? 2 : 3;
    const int pair = x / 2, pairs = (d.Width() + 1) / 2;
    const uint8_t* s = row + 4 * pair;
    const uint8_t* n = pair + 1 < pairs ? s + 4 : s;
    out[0] = s[yi[x & 1]];
    out[1] = (x & 1) ? (s[ui] + n[ui] + 1) >> 1 : s[ui];
    out[2] = (x & 1) ? (s[vi] + n[vi] + 1) >> 1 : s[vi];
    out[3] = d.GetAlphaPlane() ? AlphaRow(d, y)[x] : 255;
}

struct YuvTarget {
    const char* what;
    uint16_t bits;
    uint32_t sampling;
};
const YuvTarget kYuvTargets[] = {
    {"4:4:4 24", 24, KXYUV_SAMPLING_444}, {"4:4:4 32", 32, KXYUV_SAMPLING_444},
    {"YUYV 16", 16, KXYUV_SAMPLING_422},  {"YUYV 32", 32, KXYUV_SAMPLING_422},
    {"UYVY 16", 16, KXYUV_SAMPLING_422B}, {"UYVY 32", 32, KXYUV_SAMPLING_422B},
};

} // namespace

TEST(Translators, SingleColoursAndTables) {
    stdfx::CRGB2YUV* t = stdfx::GetRGB2YUV();
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->GetTable(2), t->GetTable(0)); // no BT.709 table in this direction
    EXPECT_NE(t->GetTable(1), t->GetTable(0));
    int y, u, v;
    ASSERT_TRUE(t->RGBToYUV(&y, &u, &v, 0, 0xFF000000));
    EXPECT_EQ(y, 16);
    EXPECT_EQ(u, 128);
    EXPECT_EQ(v, 128);
    ASSERT_TRUE(t->RGBToYUV(&y, &u, &v, 1, 0x00000000)); // full range, but Y kept to 16
    EXPECT_EQ(y, 16);
    ASSERT_TRUE(t->RGBToYUV(&y, &u, &v, 0, 0x00FFFFFF));
    EXPECT_EQ(y, 235);
    ASSERT_TRUE(t->RGBToYUV(&y, &u, &v, 1, 0x000000FF)); // pure blue: U at its top
    EXPECT_EQ(u, 240);
    uint32_t packed;
    ASSERT_TRUE(t->PackRGBToYUV(&packed, 0, 0x80123456));
    RefRgbToYuv(0, 0x12, 0x34, 0x56, &y, &u, &v);
    EXPECT_EQ(packed,
              0x80000000u | uint32_t(Clamp(y, 16, 235)) | uint32_t(u) << 8 | uint32_t(v) << 16);
    stdfx::CYUV2RGB* b = stdfx::GetYUV2RGB();
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->GetLimit()[0], 0);
    EXPECT_EQ(b->GetLimit()[256 + 300], 255);
    EXPECT_EQ(b->GetTable(2)[0], 0x8000);
    EXPECT_EQ(b->GetTable(0)[256 + 128], 0); // no chroma at 128
    EXPECT_NE(b->GetTable(2), b->GetTable(0));
}

TEST(Translators, RgbToYuvMatchesTheFormulas) {
    std::mt19937 rng(1234);
    for (int cs : {0, 1, 2})
        for (const auto& target : kYuvTargets)
            for (uint16_t srcBits : {24, 32})
                for (int width : {1, 6, 7}) {
                    SCOPED_TRACE(testing::Message() << target.what << " cs " << cs << " from "
                                                    << srcBits << " width " << width);
                    KXBMINFOHEADERYUV s = MakeRgb(width, 5, srcBits);
                    KXBMINFOHEADERYUV t = MakeYuv(width, -5, target.bits, target.sampling);
                    t.yuv.yuvColorSpace = uint32_t(cs);
                    CDIB src(&s.bmi), dst(&t.bmi);
                    Randomise(src, rng);
                    ASSERT_TRUE(dst.Convert(src, -1, 0));
                    const int sb = srcBits / 8;
                    for (int yy = 0; yy < 5; ++yy)
                        for (int x = 0; x < width; ++x) {
                            const uint8_t* p = DisplayRow(src, yy) + x * sb;
                            int Y, U, V;
                            RefRgbToYuv(cs, p[2], p[1], p[0], &Y, &U, &V);
                            const int alpha = sb == 4 ? p[3] : 255;
                            if (target.sampling == KXYUV_SAMPLING_444) {
                                const uint8_t* q = DisplayRow(dst, yy) + x * target.bits / 8;
                                ASSERT_EQ(q[0], Y);
                                ASSERT_EQ(q[1], U);
                                ASSERT_EQ(q[2], V);
                                if (target.bits == 32) {
                                    ASSERT_EQ(q[3], alpha);
                                }
                                continue;
                            }
                            // 4:2:2: Y of every pixel, chroma of the even one.
                            const bool uyvy = target.sampling == KXYUV_SAMPLING_422B;
                            const uint8_t* q = DisplayRow(dst, yy) + (x / 2) * 4;
                            ASSERT_EQ(q[(uyvy ? 1 : 0) + 2 * (x & 1)], Y);
                            if ((x & 1) == 0) {
                                ASSERT_EQ(q[uyvy ? 0 : 1], U);
                                ASSERT_EQ(q[uyvy ? 2 : 3], V);
                                if (x + 1 == width) {
                                    ASSERT_EQ(q[uyvy ? 3 : 2], Y);
                                } // alone
                            }
                            if (target.bits == 32) {
                                ASSERT_EQ(AlphaRow(dst, yy)[x], alpha);
                            }
                        }
                }
}

TEST(Translators, YuvToRgbMatchesTheFormulas) {
    std::mt19937 rng(99);
    for (int cs : {0, 1, 2})
        for (const auto& source : kYuvTargets)
            for (uint16_t dstBits : {24, 32})
                for (int width : {1, 5, 8}) {
                    SCOPED_TRACE(testing::Message() << source.what << " cs " << cs << " to "
                                                    << dstBits << " width " << width);
                    KXBMINFOHEADERYUV s = MakeYuv(width, -4, source.bits, source.sampling);
                    s.yuv.yuvColorSpace = uint32_t(cs);
                    KXBMINFOHEADERYUV t = MakeRgb(width, 4, dstBits);
                    CDIB src(&s.bmi), dst(&t.bmi);
                    Randomise(src, rng);
                    ASSERT_TRUE(dst.Convert(src, -1, 0));
                    EXPECT_EQ(dst.Header()->bmiAlpha, KXDIB_ALPHA_PREMULTIPLIED);
                    const int db = dstBits / 8;
                    for (int yy = 0; yy < 4; ++yy)
                        for (int x = 0; x < width; ++x) {
                            int yuva[4], r, g, b;
                            ReadYuv(src, x, yy, yuva);
                            RefYuvToRgb(cs, yuva[0], yuva[1], yuva[2], &r, &g, &b);
                            const uint8_t* q = DisplayRow(dst, yy) + x * db;
                            ASSERT_EQ(q[0], b) << x << ',' << yy;
                            ASSERT_EQ(q[1], g);
                            ASSERT_EQ(q[2], r);
                            if (db == 4) {
                                ASSERT_EQ(q[3], 255);
                            }
                        }
                }
}

TEST(Translators, OneFieldLeavesTheOtherLines) {
    std::mt19937 rng(5);
    KXBMINFOHEADERYUV s = MakeRgb(4, 6, 32), t = MakeYuv(4, 6, 32);
    CDIB src(&s.bmi), dst(&t.bmi);
    Randomise(src, rng);
    for (int field : {0, 1}) {
        std::memset(dst.Bits(), 0xEE, stdfx::DIBImageSize(dst.Header()));
        ASSERT_TRUE(dst.Convert(src, field, 0));
        for (int y = 0; y < 6; ++y) {
            const uint8_t* q = DisplayRow(dst, y);
            const uint8_t* p = DisplayRow(src, y);
            int Y, U, V;
            RefRgbToYuv(0, p[2], p[1], p[0], &Y, &U, &V);
            if ((y & 1) == field)
                EXPECT_EQ(q[0], Y) << field << ' ' << y;
            else
                EXPECT_EQ(q[0], 0xEE) << field << ' ' << y;
        }
    }
}

TEST(Translators, DepthFormsAndYuvSamplings) {
    KXBMINFOHEADERYUV p = MakeRgb(1, 1, 32), z = MakeRgb(1, 1, 32);
    z.bmi.biCompression = KXBI_RGBZ;
    CDIB plainImage(&p.bmi), depth(&z.bmi), back(&p.bmi);
    *static_cast<uint32_t*>(plainImage.Bits()) = 0x44332211;
    ASSERT_TRUE(depth.Convert(plainImage, -1, 0));
    const uint8_t expected[8] = {0x11, 0x22, 0x33, 0x44, 0xB1, 0xAF, 0x7F, 0x3F};
    EXPECT_EQ(std::memcmp(depth.Bits(), expected, 8), 0);
    ASSERT_TRUE(back.Convert(depth, -1, 0));
    EXPECT_EQ(*static_cast<uint32_t*>(back.Bits()), 0x44332211u);
    stdfx::CRGB2RGB* rr = stdfx::GetRGB2RGB();
    EXPECT_FALSE(rr->Convert(depth, depth, -1)); // depth to depth is no pair it knows

    // 4:2:2 with alpha plane to 4:4:4: odd chroma interpolated, alpha from the plane;
    // without a plane the alpha byte is 255.
    std::mt19937 rng(7);
    for (uint16_t bits : {16, 32}) {
        KXBMINFOHEADERYUV s = MakeYuv(6, 2, bits, KXYUV_SAMPLING_422B), t = MakeYuv(6, 2, 32);
        CDIB src(&s.bmi), dst(&t.bmi);
        Randomise(src, rng);
        ASSERT_TRUE(dst.Convert(src, -1, 0));
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 6; ++x) {
                int yuva[4];
                ReadYuv(src, x, y, yuva);
                const uint8_t* q = DisplayRow(dst, y) + 4 * x;
                for (int k = 0; k < 4; ++k)
                    ASSERT_EQ(q[k], yuva[k]) << bits << ' ' << x;
            }
        // And back to 4:2:2: the even chroma and every Y as they were.
        KXBMINFOHEADERYUV r = MakeYuv(6, 2, bits, KXYUV_SAMPLING_422B);
        CDIB again(&r.bmi);
        ASSERT_TRUE(again.Convert(dst, -1, 0));
        for (int y = 0; y < 2; ++y) {
            EXPECT_EQ(std::memcmp(DisplayRow(again, y), DisplayRow(src, y), 12), 0);
            if (bits == 32) {
                EXPECT_EQ(std::memcmp(AlphaRow(again, y), AlphaRow(src, y), 6), 0);
            }
        }
    }
    // "@YUV" 4:4:4 to "YUVz" and back.
    KXBMINFOHEADERYUV y4 = MakeYuv(2, 1, 32), yz = MakeYuv(2, 1, 32);
    yz.bmi.biCompression = KXBI_YUVZ;
    CDIB a(&y4.bmi), b(&yz.bmi), c(&y4.bmi);
    Randomise(a, rng);
    ASSERT_TRUE(b.Convert(a, -1, 0));
    EXPECT_EQ(static_cast<uint32_t*>(b.Bits())[1], stdfx::kPlainDepthBits);
    ASSERT_TRUE(c.Convert(b, -1, 0));
    EXPECT_EQ(std::memcmp(a.Bits(), c.Bits(), 8), 0);
}

TEST(Translators, RefusalsAndEmptyImages) {
    KXBMINFOHEADERYUV s = MakeRgb(4, 2, 32), t = MakeYuv(4, 2, 32);
    CDIB src(&s.bmi), dst(&t.bmi);
    stdfx::CRGB2YUV* fwd = stdfx::GetRGB2YUV();
    stdfx::CYUV2RGB* bwd = stdfx::GetYUV2RGB();

    KXBMINFOHEADERYUV deep = MakeYuv(4, 2, 32);
    deep.yuv.yuvBits = 10;
    CDIB tenBit(&deep.bmi);
    EXPECT_FALSE(fwd->ConvertImage(tenBit, src, -1));
    EXPECT_FALSE(bwd->ConvertImage(src, tenBit, -1));

    // Two fields stored apart: left alone by the forward direction, refused backward.
    KXBMINFOHEADERYUV fields = MakeYuv(4, 2, 32);
    fields.bmi.bmiFormat = KXBMIFORMAT_TWOFIELDS;
    CDIB split(&fields.bmi);
    std::memset(split.Bits(), 0xEE, 32);
    EXPECT_TRUE(fwd->ConvertImage(split, src, -1));
    EXPECT_EQ(static_cast<uint8_t*>(split.Bits())[0], 0xEE);
    EXPECT_FALSE(bwd->ConvertImage(src, split, -1));

    KXBMINFOHEADERYUV odd = MakeYuv(4, 2, 32, 64); // 4:2:0 is no target
    CDIB other(&odd.bmi);
    EXPECT_FALSE(fwd->ConvertImage(other, src, -1));

    KXBMINFOHEADERYUV wide = MakeRgb(5, 2, 32);
    CDIB w(&wide.bmi);
    EXPECT_FALSE(dst.Convert(w, -1, 0));

    KXBMINFOHEADERYUV z0 = MakeRgb(0, 2, 32), y0 = MakeYuv(0, 2, 32);
    z0.bmi.biWidth = y0.bmi.biWidth = 0;
    CDIB e1(&z0.bmi), e2(&y0.bmi);
    EXPECT_TRUE(fwd->ConvertImage(e2, e1, -1));
    EXPECT_TRUE(e2.Convert(e1, -1, 0));

    KXBMINFOHEADERYUV codec = MakeRgb(4, 2, 32);
    codec.bmi.biCompression = KXBI_MPGI;
    CDIB c(&codec.bmi);
    EXPECT_FALSE(c.Convert(src, -1, 0));

    CDIB made;
    EXPECT_TRUE(made.CreateConverted(&t.bmi, src, -1));
    EXPECT_TRUE(made.IsValid());
    EXPECT_FALSE(made.CreateConverted(&wide.bmi, src, -1));
    EXPECT_FALSE(made.IsValid());
}

// Threads that all ask for a translator at once get one object or null, never two.
TEST(Translators, AccessorMakesOneInstance) {
    stdfx::DestroyTranslators();
    std::atomic<int> ready{0};
    std::vector<stdfx::CYUV2YUV*> got(8, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&, i] {
            ++ready;
            while (ready.load() < 8) {
            }
            got[i] = stdfx::GetYUV2YUV();
        });
    for (auto& t : threads)
        t.join();
    stdfx::CYUV2YUV* one = stdfx::GetYUV2YUV();
    ASSERT_NE(one, nullptr);
    for (auto* p : got)
        if (p) {
            EXPECT_EQ(p, one);
        }
}
