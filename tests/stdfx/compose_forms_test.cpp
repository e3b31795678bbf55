// The compositor's YUV members, YUV mattes, depth compositing and the dissolves of CDIB
// against references written from their formulas, with the translators' coefficients
// spelled out; and the refusals of each.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include <kelp/stdfx.h>

#include "compose_images.h"
#include "simdtargets.h"

using composetest::At;
using composetest::Bytes;
using composetest::Clamp;
using composetest::MakeImage;
using composetest::Mul;
using stdfx::CDIB;
using stdfx::CDibCompose;

namespace {

void RandomFill(CDIB& dib, std::mt19937& rng) {
    const int row = dib.Width() * CDIB::BytesPerPixel(dib.Header());
    for (int y = 0; y < dib.Height(); ++y)
        for (int i = 0; i < row; ++i)
            At(dib, 0, y)[i] = uint8_t(rng());
}

// The depth of every pixel of a depth form, from a few values so that ties occur.
void SetDepths(CDIB& dib, std::mt19937& rng) {
    static const float kDepths[] = {0.25f, 1.0f, 1.0f, 3.0f};
    for (int y = 0; y < dib.Height(); ++y)
        for (int x = 0; x < dib.Width(); ++x)
            std::memcpy(At(dib, x, y) + 4, &kDepths[rng() % 4], 4);
}

// Y U V to B G R through the 601 rows, and back through the limited rows.
void RefToRgb(const uint8_t* p, uint8_t* o) {
    const int y = 76309 * Clamp(p[0] - 16) + 0x8000, u = p[1] - 128, v = p[2] - 128;
    o[0] = uint8_t(Clamp((132376 * u + y) >> 16));
    o[1] = uint8_t(Clamp((-25885 * u - 53877 * v + y) >> 16));
    o[2] = uint8_t(Clamp((105162 * v + y) >> 16));
    o[3] = p[3];
}
void RefToYuv(const uint8_t* p, uint8_t* o) {
    const int b = p[0], g = p[1], r = p[2];
    o[0] = uint8_t((16819 * r + 33028 * g + 6437 * b + 0x108000) >> 16);
    o[1] = uint8_t((-9708 * r - 19065 * g + 28773 * b + 0x807FFF) >> 16);
    o[2] = uint8_t((28792 * r - 24096 * g - 4696 * b + 0x807FFF) >> 16);
    o[3] = p[3];
}

// Chroma c about 128 through a multiplier, with the mattes' rounding.
int MatteChroma(int c, int m) {
    const int t = (c - 128) * m + 127 + (c >= 128 ? 1 : 0);
    return ((t + (t >> 8)) >> 8) + 128;
}

void RefOverYuv(const uint8_t* bottom, const uint8_t* top, uint8_t* o) {
    const int inv = 255 - top[3];
    o[0] = uint8_t(Clamp(top[0] + Mul(Clamp(bottom[0] - 16), inv)));
    o[1] = uint8_t(Clamp(top[1] + Mul(bottom[1] - 128, inv)));
    o[2] = uint8_t(Clamp(top[2] + Mul(bottom[2] - 128, inv)));
    o[3] = uint8_t(Clamp(top[3] + Mul(bottom[3], inv)));
}

void RefOver(const uint8_t* bottom, const uint8_t* top, uint8_t* o) {
    for (int i = 0; i < 4; ++i)
        o[i] = uint8_t(Clamp(top[i] + Mul(bottom[i], 255 - top[3])));
}

float DepthOf(const uint8_t* p) {
    float z;
    std::memcpy(&z, p + 4, 4);
    return z;
}

} // namespace

TEST(ComposeForms, YuvModesGoByWayOfRgbAndMattesStayInYuv) {
    std::mt19937 rng(17);
    CDIB dst = MakeImage(37, 5, KXBI_YUV), src = MakeImage(37, 5, KXBI_YUV);
    for (int mode = 1; mode <= 20; ++mode) {
        RandomFill(dst, rng);
        RandomFill(src, rng);
        const std::vector<uint8_t> d = Bytes(dst), s = Bytes(src);
        CDibCompose c(mode, 0);
        ASSERT_TRUE(c.ComposeYUV(dst, src, 0, -1)) << mode;
        const std::vector<uint8_t> got = Bytes(dst);
        for (size_t i = 0; i < got.size(); i += 4) {
            uint8_t want[4];
            if (mode == 1) {
                RefOverYuv(&d[i], &s[i], want);
            } else if (mode >= 17) {
                const int dA = d[i + 3], L = stdfx::GetTables()->GetExpandY()[d[i]];
                const int m = mode == 17 ? dA : mode == 18 ? L : mode == 19 ? 255 - dA : 255 - L;
                want[0] = uint8_t(Mul(Clamp(s[i] - 16), m) + 16);
                want[1] = uint8_t(MatteChroma(s[i + 1], m));
                want[2] = uint8_t(MatteChroma(s[i + 2], m));
                want[3] = uint8_t(Mul(s[i + 3], m));
            } else {
                uint8_t db[4], sb[4], ob[4];
                RefToRgb(&d[i], db);
                RefToRgb(&s[i], sb);
                composetest::RefPixel(mode, db, sb, ob, db);
                RefToYuv(ob, want);
            }
            ASSERT_EQ(0, std::memcmp(want, &got[i], 4)) << "mode " << mode << " pixel " << i / 4;
        }
    }
}

TEST(ComposeForms, DepthKeepsTheNearerPixelInFrontAndTheLargerDepth) {
    std::mt19937 rng(5);
    struct Case {
        uint32_t format;
        uint32_t mode, second;
    } cases[] = {{KXBI_RGBZ, 0, 0},  {KXBI_RGBZ, 1, 0},  {KXBI_RGBZ, 4, 17},
                 {KXBI_RGBZ, 0, 14}, {KXBI_RGBZ, 20, 2}, {KXBI_RGBZ, 21, 18},
                 {KXBI_YUVZ, 0, 0},  {KXBI_YUVZ, 5, 1},  {KXBI_YUVZ, 18, 0}};
    kelptest::ForEachSimdTarget([&](int) {
        for (const Case& k : cases) {
            CDIB dst = MakeImage(19, 3, k.format), src = MakeImage(19, 3, k.format);
            RandomFill(dst, rng);
            RandomFill(src, rng);
            SetDepths(dst, rng);
            SetDepths(src, rng);
            const std::vector<uint8_t> d = Bytes(dst), s = Bytes(src);
            CDibCompose c(k.mode, k.second);
            const bool yuv = k.format == KXBI_YUVZ;
            ASSERT_TRUE(yuv ? c.ComposeZYUV(dst, src, 0, -1) : c.ComposeZ(dst, src, 0, -1));
            const std::vector<uint8_t> got = Bytes(dst);
            for (size_t i = 0; i < got.size(); i += 8) {
                const bool sourceNear = DepthOf(&s[i]) < DepthOf(&d[i]);
                const uint8_t* n = sourceNear ? &s[i] : &d[i];
                const uint8_t* f = sourceNear ? &d[i] : &s[i];
                uint8_t want[4];
                if (k.mode == 0 && k.second == 0) {
                    (yuv ? RefOverYuv : RefOver)(f, n, want);
                } else {
                    const uint32_t m = sourceNear ? k.second : k.mode;
                    uint8_t nb[4], fb[4], db[4], ob[4];
                    std::memcpy(nb, n, 4), std::memcpy(fb, f, 4), std::memcpy(db, &d[i], 4);
                    if (yuv) RefToRgb(n, nb), RefToRgb(f, fb), RefToRgb(&d[i], db);
                    if (m == 1)
                        RefOver(nb, fb, ob);
                    else if (m >= 2 && m <= 20)
                        composetest::RefPixel(int(m), nb, fb, ob, db);
                    else
                        RefOver(fb, nb, ob);
                    if (yuv)
                        RefToYuv(ob, want);
                    else
                        std::memcpy(want, ob, 4);
                }
                ASSERT_EQ(0, std::memcmp(want, &got[i], 4))
                    << "mode " << k.mode << "/" << k.second << " pixel " << i / 8;
                ASSERT_EQ(0, std::memcmp(&got[i + 4], f + 4, 4)) << "depth of pixel " << i / 8;
            }
        }
    });
}

TEST(ComposeForms, ComposeOfCdibBringsAPlainSourceToTheDepthForm) {
    // The plain source gets the constant depth 0.9987746: in front of 2.0, behind 0.5.
    for (float depth : {2.0f, 0.5f}) {
        CDIB dst = MakeImage(3, 2, KXBI_RGBZ), src = MakeImage(3, 2);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 3; ++x) {
                const uint8_t dp[4] = {100, 100, 100, 255}, sp[4] = {50, 60, 70, 128};
                std::memcpy(At(dst, x, y), dp, 4);
                std::memcpy(At(dst, x, y) + 4, &depth, 4);
                std::memcpy(At(src, x, y), sp, 4);
            }
        ASSERT_TRUE(dst.Compose(src, 0, -1));
        const uint8_t want[4] = {uint8_t(50 + Mul(100, 127)), uint8_t(60 + Mul(100, 127)),
                                 uint8_t(70 + Mul(100, 127)), 255};
        const uint8_t* got = At(dst, 1, 1);
        if (depth > 1.0f)
            EXPECT_EQ(0, std::memcmp(got, want, 4));
        else
            EXPECT_EQ(got[0], 100);
        EXPECT_EQ(DepthOf(got), depth > 1.0f ? depth : 0.9987746f);
    }
    // A plain target composes by its mode: mode 2 adds.
    CDIB dst = MakeImage(2, 2), src = MakeImage(2, 2);
    std::memset(dst.Bits(), 10, size_t(dst.Stride()) * 2);
    std::memset(src.Bits(), 20, size_t(src.Stride()) * 2);
    ASSERT_TRUE(dst.Compose(src, 2, -1));
    EXPECT_EQ(*At(dst, 1, 1), 30);
    EXPECT_FALSE(dst.Compose(src, 0, -1));
}

TEST(ComposeForms, DissolvesMatchTheirFormulasInEveryForm) {
    std::mt19937 rng(9);
    struct Case {
        uint32_t format, sampling, colorSpace;
        int opacity, field;
        bool bottomUp;
    } cases[] = {
        {KXBI_RGB, 0, 0, 200, -1, true},
        {KXBI_RGB, 0, 0, 0, 0, false},
        {KXBI_RGB, 0, 0, 255, 1, true},
        {KXBI_YUV, KXYUV_SAMPLING_444, 0, 77, -1, true},
        {KXBI_YUV, KXYUV_SAMPLING_444, 1, 128, 0, false},
        {KXBI_YUV, KXYUV_SAMPLING_422, 0, 99, -1, false},
        {KXBI_YUV, KXYUV_SAMPLING_422B, 2, 255, 1, true},
        {KXBI_YUV, KXYUV_SAMPLING_422B, 1, 300, -1, true},
    };
    kelptest::ForEachSimdTarget([&](int) {
        for (const Case& k : cases) {
            const int w = 23, h = 6;
            auto make = [&] {
                KXBMINFOHEADERYUV r = k.format == KXBI_RGB
                                          ? kelptest::MakeRgb(w, h, 32)
                                          : kelptest::MakeYuv(w, h, 32, k.sampling);
                if (!k.bottomUp) r.bmi.biHeight = -h;
                r.yuv.yuvColorSpace = k.colorSpace;
                CDIB d(&r.bmi);
                RandomFill(d, rng);
                if (d.GetAlphaPlane())
                    for (int y = 0; y < h; ++y)
                        for (int x = 0; x < w; ++x)
                            d.GetAlphaPlane()[y * d.GetAlphaStride() + x] = uint8_t(rng());
                return d;
            };
            const bool is422 = k.format == KXBI_YUV && k.sampling != KXYUV_SAMPLING_444;
            const int k16 = k.format == KXBI_YUV && k.colorSpace != 1 ? 16 : 0;
            const int a = std::min(k.opacity, 255);
            const int lumaParity = k.sampling == KXYUV_SAMPLING_422B ? 1 : 0;
            for (int three = 0; three < 2; ++three) {
                CDIB target = make(), first = make(), second = make();
                const std::vector<uint8_t> before = Bytes(target);
                ASSERT_TRUE(three ? target.BlendThree(first, second, k.opacity, k.field)
                                  : target.BlendTwo(first, k.opacity, k.field));
                const int rowBytes = is422 ? 2 * (w + 1) / 2 * 2 : 4 * w;
                for (int y = 0; y < h; ++y) {
                    const bool touched =
                        k.field == -1 || (y >= target.FirstLine(k.field) &&
                                          (y - target.FirstLine(k.field)) % 2 == 0);
                    const uint8_t* got = At(target, 0, y);
                    const uint8_t* s = At(first, 0, y);
                    const uint8_t* b = At(second, 0, y);
                    const uint8_t* sa = first.GetAlphaPlane() + y * first.GetAlphaStride();
                    for (int i = 0; i < rowBytes; ++i) {
                        // 4:2:2 lines outside the field are not checked here.
                        int want = is422 ? got[i] : before[size_t(y) * 4 * w + i];
                        if (touched) {
                            const bool luma = is422 ? (i & 1) == lumaParity : (i & 3) == 0;
                            const bool alpha = !is422 && (i & 3) == 3;
                            const int o = k.format == KXBI_RGB || alpha ? 0 : luma ? k16 : 128;
                            if (is422) {
                                const int hs = (a + 1) >> 1;
                                auto r7 = [](int x) { return ((((x + 64) >> 7) + x + 64) >> 7); };
                                if (!three) {
                                    want = Clamp(o + r7((s[i] - o) * hs));
                                } else {
                                    const int x0 = (i / 4) * 2;
                                    const int inv0 = 255 - Mul(sa[x0], a);
                                    const int inv1 = x0 + 1 < w ? 255 - Mul(sa[x0 + 1], a) : inv0;
                                    const int inv =
                                        luma ? ((i & 2) ? inv1 : inv0) : (inv0 + inv1 + 1) >> 1;
                                    const int hb = (inv + 1) >> 1;
                                    const int bc = luma ? Clamp(b[i] - o) : b[i] - o;
                                    const int sc = luma ? Clamp(s[i] - o) : s[i] - o;
                                    want = Clamp(o + r7(bc * hb) + r7(sc * hs));
                                }
                            } else if (!three) {
                                want = (luma && o ? Mul(Clamp(s[i] - o), a) : Mul(s[i] - o, a)) + o;
                            } else {
                                const int a2 = Mul(s[(i & ~3) + 3], a), inv = 255 - a2;
                                if (alpha)
                                    want = Clamp(a2 + Mul(b[i], inv));
                                else if (luma && o)
                                    want = Clamp(Mul(Clamp(b[i] - o), inv) + o +
                                                 Mul(Clamp(s[i] - o), a));
                                else
                                    want = Clamp(o + Mul(b[i] - o, inv) + Mul(s[i] - o, a));
                            }
                        }
                        ASSERT_EQ(int(got[i]), want)
                            << "three " << three << " line " << y << " byte " << i;
                    }
                    if (is422 && touched) {
                        const uint8_t* ga = target.GetAlphaPlane() + y * target.GetAlphaStride();
                        const uint8_t* ba = second.GetAlphaPlane() + y * second.GetAlphaStride();
                        for (int x = 0; x < w; ++x) {
                            const int a2 = Mul(sa[x], a);
                            ASSERT_EQ(int(ga[x]), three ? Clamp(a2 + Mul(ba[x], 255 - a2)) : a2);
                        }
                    }
                }
            }
        }
    });
}

TEST(ComposeForms, DissolvesRefuseWhatTheyCannotMix) {
    CDIB target = MakeImage(4, 4), other = MakeImage(4, 4);
    std::memset(target.Bits(), 7, size_t(target.Stride()) * 4);
    const std::vector<uint8_t> before = Bytes(target);
    CDIB narrow = MakeImage(3, 4), yuv = MakeImage(4, 4, KXBI_YUV),
         bits24 = MakeImage(4, 4, KXBI_RGB, 0, 24);
    CDIB depth = MakeImage(4, 4, KXBI_RGBZ);
    EXPECT_FALSE(target.BlendTwo(narrow, 100, -1));
    EXPECT_FALSE(target.BlendTwo(yuv, 100, -1));
    EXPECT_FALSE(target.BlendThree(other, narrow, 100, -1));
    EXPECT_FALSE(bits24.BlendTwo(bits24, 100, -1));
    EXPECT_FALSE(depth.BlendTwo(depth, 100, -1));
    EXPECT_FALSE(target.BlendTwo(CDIB(), 100, -1));
    EXPECT_EQ(Bytes(target), before);
    CDIB empty = MakeImage(0, 4);
    EXPECT_TRUE(empty.BlendTwo(empty, 10, -1));
}
