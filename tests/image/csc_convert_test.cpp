// The whole-image conversions against references written from their formulas: layouts,
// gaps, in place, refusals and the kept quirks.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "csc_testing.h"

using csctest::Csc;
using csctest::Random;
using kelp::CKXCsc;

namespace {

struct Geometry {
    int width, height;
    uint32_t ps, pitch;
    size_t Bytes() const { return size_t(height) * pitch; }
};

// Restores the luma filter setting that a test changes.
struct FilterLuma {
    int old;
    explicit FilterLuma(int on) : old(Csc::m_bFilterLuma) { Csc::m_bFilterLuma = on; }
    ~FilterLuma() { Csc::m_bFilterLuma = old; }
};

} // namespace

TEST(CscConvert, Meshed444BothWaysMatchTheFormulasWithGapsAndInPlace) {
    const Geometry geos[] = {{7, 3, 3, 24}, {5, 4, 4, 24}, {1, 1, 3, 3}, {9, 2, 4, 36}};
    for (int space = 0; space < 3; ++space)
        for (int limit = 0; limit < 2; ++limit)
            for (const Geometry& g : geos)
                for (int inPlace = 0; inPlace < 2; ++inPlace) {
                    Csc c(space, limit);
                    const std::vector<uint8_t> src = Random(g.Bytes(), 7 + space);
                    std::vector<uint8_t> dst = inPlace ? src : Random(g.Bytes(), 99);
                    std::vector<uint8_t> want = dst;
                    for (int r = 0; r < g.height; ++r)
                        for (int x = 0; x < g.width; ++x) {
                            const uint8_t* s = &src[r * g.pitch + x * g.ps];
                            uint8_t* d = &want[r * g.pitch + x * g.ps];
                            const Csc::Yuv k = c.RefForward(s[0], s[1], s[2]);
                            d[0] = uint8_t(k.y), d[1] = uint8_t(k.u), d[2] = uint8_t(k.v);
                            if (g.ps == 4) d[3] = s[3];
                        }
                    const uint8_t* in = inPlace ? dst.data() : src.data();
                    ASSERT_EQ(c.BGRToYUV444Meshed(in, dst.data(), g.width, g.height, g.ps, g.pitch),
                              1);
                    ASSERT_EQ(dst, want) << "forward space " << space << " ps " << g.ps;

                    dst = inPlace ? src : Random(g.Bytes(), 98);
                    want = dst;
                    for (int r = 0; r < g.height; ++r)
                        for (int x = 0; x < g.width; ++x) {
                            const uint8_t* s = &src[r * g.pitch + x * g.ps];
                            uint8_t* d = &want[r * g.pitch + x * g.ps];
                            c.RefInverse(s[0], s[1], s[2], d);
                            if (g.ps == 4) d[3] = s[3];
                        }
                    in = inPlace ? dst.data() : src.data();
                    ASSERT_EQ(c.YUV444MeshedToBGR(in, dst.data(), g.width, g.height, g.ps, g.pitch),
                              1);
                    ASSERT_EQ(dst, want) << "inverse space " << space << " ps " << g.ps;
                }
}

TEST(CscConvert, RefusedSizesAndEmptyImages) {
    Csc c;
    uint8_t buf[64] = {};
    struct Case {
        const char* what;
        int got, want;
    } cases[] = {
        {"444 forward, 2 bytes", c.BGRToYUV444Meshed(buf, buf, 2, 2, 2, 8), 0},
        {"444 forward, height 0", c.BGRToYUV444Meshed(buf, buf, 2, 0, 3, 8), 1},
        {"444 inverse, 5 bytes", c.YUV444MeshedToBGR(buf, buf, 2, 2, 5, 12), 0},
        {"yuv to yuv, 2 bytes",
         c.YUV444MeshedToYUV444(buf, buf, 1, 1, 2, 4, CKXCsc::CS_CCIR601, CKXCsc::CS_ITU709), 0},
        {"422 forward, 1 byte", c.BGRToYUV422Meshed(buf, buf, 2, 1, 1, 4, 0), 0},
        {"422 planar, 3 bytes", c.BGRToYUV422Planar(buf, buf, 2, 1, 3, 8, 0), 0},
        {"full range to 601",
         c.YUV444MeshedToYUV444(buf, buf + 32, 2, 1, 3, 8, CKXCsc::CS_Normalized,
                                CKXCsc::CS_CCIR601),
         0},
        {"709 to full range",
         c.YUV444MeshedToYUV444(buf, buf + 32, 2, 1, 3, 8, CKXCsc::CS_ITU709,
                                CKXCsc::CS_Normalized),
         0},
        {"601 to full range",
         c.YUV444MeshedToYUV444(buf, buf + 32, 2, 1, 3, 8, CKXCsc::CS_CCIR601,
                                CKXCsc::CS_Normalized),
         0},
        {"422 inverse, 17: computes, writes nothing",
         c.YUV422MeshedToBGR(buf, buf + 32, 2, 1, 17, 34, 0), 1},
        {"uyvy, height -1", c.UYVYToBGR(buf, buf, 2, -1, 3, 8), 1},
    };
    for (const Case& k : cases)
        EXPECT_EQ(k.got, k.want) << k.what;
    for (uint8_t b : buf)
        EXPECT_EQ(b, 0) << "no refusal writes";
}

TEST(CscConvert, BlackAndLimitedChromaOfSaturatedColours) {
    Csc c(0);
    uint8_t px[3] = {0, 0, 0};
    c.BGRToYUV444Meshed(px, px, 1, 1, 3, 3);
    EXPECT_EQ(px[0], 16);
    EXPECT_EQ(px[1], 128);
    EXPECT_EQ(px[2], 128);
    for (int space = 0; space < 3; ++space) {
        Csc l(space, 1);
        const uint8_t colours[6][3] = {{255, 0, 0},   {0, 255, 0},   {0, 0, 255},
                                       {255, 255, 0}, {0, 255, 255}, {255, 0, 255}};
        int seenLo = 255, seenHi = 0;
        for (const auto& col : colours) {
            uint8_t p[3] = {col[0], col[1], col[2]};
            l.BGRToYUV444Meshed(p, p, 1, 1, 3, 3);
            for (int k = 1; k < 3; ++k) {
                seenLo = std::min<int>(seenLo, p[k]);
                seenHi = std::max<int>(seenHi, p[k]);
            }
        }
        EXPECT_EQ(seenLo, 44) << space;
        EXPECT_EQ(seenHi, 212) << space;
    }
}

TEST(CscConvert, ColourSpaceToColourSpace) {
    const Geometry g{5, 3, 4, 24};
    const std::vector<uint8_t> src = Random(g.Bytes(), 3);
    // Same space: exactly width * height * pitch bytes copied; in place nothing.
    {
        Csc c;
        std::vector<uint8_t> dst(g.Bytes() * g.width + 16, 0xEE);
        std::vector<uint8_t> big = Random(dst.size(), 4);
        ASSERT_EQ(c.YUV444MeshedToYUV444(big.data(), dst.data(), g.width, g.height, g.ps, g.pitch,
                                         CKXCsc::CS_CCIR601, CKXCsc::CS_CCIR601),
                  1);
        const size_t n = size_t(g.width) * g.height * g.pitch;
        EXPECT_TRUE(std::equal(dst.begin(), dst.begin() + n, big.begin()));
        EXPECT_EQ(dst[n], 0xEE);
    }
    // 709 to 601 is the inverse in 709 followed by the forward in 601, in the
    // destination; the object is left on 601 with the full chroma range.
    {
        Csc c(0, 1);
        std::vector<uint8_t> dst(g.Bytes());
        ASSERT_EQ(c.YUV444MeshedToYUV444(src.data(), dst.data(), g.width, g.height, g.ps, g.pitch,
                                         CKXCsc::CS_ITU709, CKXCsc::CS_CCIR601),
                  1);
        EXPECT_EQ(c.Space(), 0);
        EXPECT_EQ(c.RangeLimitC(), Csc::m_RangeLimitC100 + 256);
        Csc a(2), b(0);
        std::vector<uint8_t> want(g.Bytes());
        a.YUV444MeshedToBGR(src.data(), want.data(), g.width, g.height, g.ps, g.pitch);
        b.BGRToYUV444Meshed(want.data(), want.data(), g.width, g.height, g.ps, g.pitch);
        EXPECT_EQ(dst, want);
    }
    // 601 to 709: the integer matrix, each product rounded before the sum.
    {
        const int32_t m[3][3] = {{65536, -7644, -13641}, {2, 66761, 7517}, {2, 4972, 67215}};
        const int32_t off[3] = {0x108000, 0x808000, 0x808000};
        Csc c(0, 1);
        std::vector<uint8_t> dst = src;
        ASSERT_EQ(c.YUV444MeshedToYUV444(dst.data(), dst.data(), g.width, g.height, g.ps, g.pitch,
                                         CKXCsc::CS_CCIR601, CKXCsc::CS_ITU709),
                  1);
        for (int r = 0; r < g.height; ++r)
            for (int x = 0; x < g.width; ++x) {
                const uint8_t* s = &src[r * g.pitch + x * g.ps];
                const uint8_t* d = &dst[r * g.pitch + x * g.ps];
                const int32_t in[3] = {s[0] - 16, s[1] - 128, s[2] - 128};
                for (int k = 0; k < 3; ++k) {
                    const int32_t sum =
                        m[k][2] * in[2] + m[k][1] * in[1] + m[k][0] * in[0] + off[k];
                    ASSERT_EQ(d[k], c.L(sum >> 16)) << "full-range limit whatever the chroma";
                }
                ASSERT_EQ(d[3], s[3]);
            }
        uint8_t black[3] = {16, 128, 128};
        c.YUV444MeshedToYUV444(black, black, 1, 1, 3, 3, CKXCsc::CS_CCIR601, CKXCsc::CS_ITU709);
        EXPECT_EQ(black[0] * 65536 + black[1] * 256 + black[2], 16 * 65536 + 128 * 257);
    }
}

// Chroma 3:1 at pixel 0, 1:2:1 (the centre from the sum with one more bit) on other even
// pixels, own chroma on odd ones; luma filtered or not.
TEST(CscConvert, Meshed422ForwardWeightsLumaFilterAndLineSteps) {
    for (int filter = 0; filter < 2; ++filter)
        for (uint32_t ps : {3u, 4u})
            for (int width : {2, 6, 7}) {
                FilterLuma fl(filter);
                Csc c(0);
                const int height = 3;
                const uint32_t pitch = width * ps + 5;
                const ptrdiff_t step =
                    ps == 4 ? (width & ~1) * 4 : ptrdiff_t(pitch) - (width & 1) * 3;
                const size_t bytes = size_t(pitch) * height + 64;
                const std::vector<uint8_t> src = Random(bytes, 11 + width);
                std::vector<uint8_t> dst = Random(bytes, 12), want = dst;
                int32_t carry = 0;
                const int m = width & ~1;
                for (int r = 0; r < height; ++r) {
                    const uint8_t* s = src.data() + r * step;
                    uint8_t* d = want.data() + r * step;
                    std::vector<std::array<int32_t, 5>> raw(m);
                    for (int k = 0; k < m; ++k)
                        c.RefRaw(s[k * ps], s[k * ps + 1], s[k * ps + 2], raw[k].data());
                    if (m >= 4) carry = raw[m - 1][0];
                    for (int k = 0; k < m; ++k) {
                        int y = raw[k][0];
                        if (filter)
                            y = k == 0       ? (3 * raw[0][0] + raw[1][0]) >> 2
                                : k == m - 1 ? (raw[k][0] + 3 * carry) >> 2
                                             : (raw[k + 1][0] + 2 * raw[k][0] + raw[k - 1][0]) >> 2;
                        int ch[2];
                        for (int j = 0; j < 2; ++j)
                            ch[j] = k & 1    ? raw[k][1 + j]
                                    : k == 0 ? (3 * raw[0][1 + j] + raw[1][1 + j]) >> 2
                                             : ((raw[k][3 + j] >> 15) + raw[k + 1][1 + j] +
                                                raw[k - 1][1 + j]) >>
                                                   2;
                        d[k * ps] = c.LY(y);
                        d[k * ps + 1] = c.LC(ch[0]);
                        d[k * ps + 2] = c.LC(ch[1]);
                    }
                }
                ASSERT_EQ(c.BGRToYUV422Meshed(src.data(), dst.data(), width, height, ps, pitch, 0),
                          1);
                ASSERT_EQ(dst, want) << "filter " << filter << " ps " << ps << " width " << width;
            }
}

TEST(CscConvert, Meshed422ChromaStepGivesThreeToOneAndOneTwoOne) {
    Csc c(1); // full range: grey values go through unchanged
    // Four grey pixels and then four blue ones: Cb steps from 128 up.
    uint8_t line[8 * 3];
    for (int k = 0; k < 8; ++k) {
        line[3 * k] = k < 4 ? 100 : 200;
        line[3 * k + 1] = line[3 * k + 2] = 100;
    }
    int32_t raw[5], rawBlue[5];
    c.RefRaw(100, 100, 100, raw);
    c.RefRaw(200, 100, 100, rawBlue);
    uint8_t out[8 * 3];
    c.BGRToYUV422Meshed(line, out, 8, 1, 3, 24, 0);
    EXPECT_EQ(out[1], 128);
    EXPECT_EQ(out[3 * 3 + 1], 128);                                          // odd: own
    EXPECT_EQ(out[4 * 3 + 1], (2 * rawBlue[1] + 1 + rawBlue[1] + 128) >> 2); // 1:2:1 at the step
    EXPECT_EQ(out[5 * 3 + 1], rawBlue[1]);
    EXPECT_GT(rawBlue[1], 128);
}

TEST(CscConvert, Meshed422InverseAveragesOddChromaAndKeepsTheLastPair) {
    for (uint32_t ps : {3u, 4u, 5u})
        for (int width : {2, 5, 8}) {
            Csc c(2);
            const int height = 2;
            const uint32_t pitch = width * ps + 3;
            const std::vector<uint8_t> src = Random(pitch * height, 21);
            std::vector<uint8_t> dst = Random(pitch * height + 8, 22), want = dst;
            for (int r = 0; r < height; ++r) {
                const uint8_t* s = &src[r * pitch];
                uint8_t* d = &want[r * pitch];
                const int pairs = width / 2;
                for (int p = 0; p < pairs; ++p) {
                    const uint8_t* e = s + 2 * p * ps;
                    int u = e[1], v = e[2];
                    c.RefInverse(e[0], u, v, d + 2 * p * ps);
                    if (p + 1 < pairs) u = (u + e[2 * ps + 1]) >> 1, v = (v + e[2 * ps + 2]) >> 1;
                    c.RefInverse(e[ps], u, v, d + (2 * p + 1) * ps);
                }
            }
            ASSERT_EQ(c.YUV422MeshedToBGR(src.data(), dst.data(), width, height, ps, pitch, 0), 1);
            ASSERT_EQ(dst, want) << "ps " << ps << " width " << width;
        }
}

// The packed 4:2:2 and 4-byte forms to BGR, at pixel sizes 3, 4 and others, with the
// source and destination gaps (0 meaning none).
TEST(CscConvert, PackedYuvToBgrLayoutsAndPremultiply) {
    enum { UYVY, UYVK, YUVK, YUVKP };
    for (int kind = UYVY; kind <= YUVKP; ++kind)
        for (uint32_t ps : {3u, 4u, 6u})
            for (int width : {1, 4, 7})
                for (int gaps = 0; gaps < 2; ++gaps) {
                    Csc c(0);
                    const int height = 3;
                    const int srcPitch = kind == UYVY ? width * 2 : gaps ? width * 4 + 4 : 0;
                    const uint32_t pitch = gaps ? width * ps + 2 : 0;
                    const size_t srcStep = kind == UYVY ? size_t(width) * 2
                                           : srcPitch   ? size_t(srcPitch)
                                                        : size_t(width) * 4;
                    const size_t dstStep = pitch ? pitch : width * ps;
                    std::vector<uint8_t> src = Random(srcStep * height + 4, 31 + kind);
                    // Alphas on the edges of the premultiply rule.
                    for (size_t i = 3; i < src.size(); i += 4 * 3)
                        src[i] = 0;
                    for (size_t i = 7; i < src.size(); i += 4 * 3)
                        src[i] = 255;
                    std::vector<uint8_t> dst = Random(dstStep * height + 8, 32), want = dst;
                    for (int r = 0; r < height; ++r)
                        for (int x = 0; x < width; ++x) {
                            const uint8_t* s = &src[r * srcStep];
                            uint8_t* d = &want[r * dstStep + x * ps];
                            if (kind == UYVY) {
                                const uint8_t* grp = s + (x / 2) * 4;
                                c.RefInverse(grp[1 + 2 * (x & 1)], grp[0], grp[2], d);
                            } else if (kind == UYVK) {
                                c.RefInverse(s[4 * x + 1], s[4 * x], s[4 * x + 2], d);
                            } else {
                                const uint8_t* p = s + 4 * x;
                                c.RefInverse(p[0], p[1], p[2], d);
                                if (kind == YUVKP && p[3] != 255)
                                    for (int j = 0; j < 3; ++j) {
                                        const int t = d[j] * p[3] + 128;
                                        d[j] = uint8_t(((t >> 8) + t) >> 8);
                                    }
                            }
                        }
                    int rc = 0;
                    if (kind == UYVY)
                        rc = c.UYVYToBGR(src.data(), dst.data(), width, height, ps, dstStep);
                    else if (kind == UYVK)
                        rc =
                            c.UYVKToBGR(src.data(), dst.data(), width, height, ps, pitch, srcPitch);
                    else
                        rc = c.YUVKToBGR(src.data(), dst.data(), width, height, ps, pitch, srcPitch,
                                         kind == YUVKP);
                    ASSERT_EQ(rc, 1);
                    ASSERT_EQ(dst, want) << "kind " << kind << " ps " << ps << " width " << width
                                         << " gaps " << gaps;
                }
}

TEST(CscConvert, PremultipliedAlphaZeroIsBlackAndFullIsPlain) {
    Csc c(0);
    const uint8_t yuvk[8] = {235, 90, 200, 0, 235, 90, 200, 255};
    uint8_t out[6], plain[6];
    c.YUVKToBGR(yuvk, out, 2, 1, 3, 0, 0, 1);
    c.YUVKToBGR(yuvk, plain, 2, 1, 3, 0, 0, 0);
    EXPECT_EQ(out[0] | out[1] | out[2], 0);
    EXPECT_EQ(0, std::memcmp(out + 3, plain + 3, 3));
}

TEST(CscConvert, Planar444BothWays) {
    for (uint32_t ps : {3u, 4u}) {
        Csc c(0);
        const int width = 5, height = 3;
        const uint32_t pitch = width * ps + 1;
        const size_t plane = size_t(width) * pitch;
        const std::vector<uint8_t> src = Random(pitch * height, 41);
        std::vector<uint8_t> dst(plane * 4 + 4, 0x5A), want = dst;
        for (int r = 0; r < height; ++r)
            for (int x = 0; x < width; ++x) {
                const uint8_t* s = &src[r * pitch + x * ps];
                const Csc::Yuv k = c.RefForward(s[0], s[1], s[2]);
                const size_t i = size_t(r) * width + x;
                want[i] = uint8_t(k.y), want[plane + i] = uint8_t(k.u),
                want[2 * plane + i] = uint8_t(k.v);
                if (ps == 4) want[3 * plane + i] = s[3];
            }
        ASSERT_EQ(c.BGRToYUV444Planar(src.data(), dst.data(), width, height, ps, pitch), 1);
        ASSERT_EQ(dst, want) << ps;

        // Back: the pixels run over the Y plane as they are written, and the chroma goes
        // through the byte table whose base steps on with the line gap.
        std::vector<uint8_t> table(256 + 16);
        for (size_t i = 0; i < table.size(); ++i)
            table[i] = uint8_t(255 - i);
        std::vector<uint8_t> image = dst, ref = dst;
        size_t in = 0, out = 0, tb = 0;
        const size_t gap = pitch - width * ps;
        for (int r = 0; r < height; ++r, out += gap, tb += gap)
            for (int x = 0; x < width; ++x, ++in, out += ps) {
                const int y = ref[in], u = table[tb + ref[plane + in]],
                          v = table[tb + ref[2 * plane + in]];
                const uint8_t a = ref[3 * plane + in];
                c.RefInverse(y, u, v, &ref[out]);
                if (ps == 4) ref[out + 3] = a;
            }
        ASSERT_EQ(c.YUV444PlanarToBGR(table.data(), image.data(), width, height, ps, pitch), 1);
        ASSERT_EQ(image, ref) << ps;
    }
}

// The two-field planar 4:2:2 layouts: which field a line goes to by the height, the
// strides of each conversion, the run-on source cursor and the byte orders.
TEST(CscConvert, TwoFieldPlanar422Layouts) {
    for (int height : {4, 5, 514}) {
        Csc c(0);
        const int width = 6, pairs = 3;
        const uint32_t pitch = 32;
        const size_t ys = (width + 61) & ~63, cs = ((width - 2) / 2 + 63) & ~63;
        const size_t h = height / 2, g = (ys + 2 * cs) * h;
        // The source: read from line height - 1 on, 8 bytes a pair, no line step.
        const size_t start = size_t(height - 1) * pitch;
        const std::vector<uint8_t> src = Random(start + size_t(height) * pairs * 8, 51);
        std::vector<uint8_t> dst(g * 2 + ys + 2 * cs + 64, 0x33), want = dst;
        for (int r = 0; r < height; ++r) {
            uint8_t line[6 * 4];
            Csc d(0);
            d.BGRToYUV422Meshed(&src[start + size_t(r) * pairs * 8], line, width, 1, 4, 24, 0);
            const bool even = r % 2 == 0;
            const size_t f = height <= 512 ? (even ? g : 0) : (even ? 0 : g);
            for (int k = 0; k < width; ++k)
                want[f + (r / 2) * ys + k] = line[4 * k];
            for (int k = 0; k < pairs; ++k) {
                want[f + h * ys + (r / 2) * cs + k] = line[8 * k + 1];
                want[f + h * (ys + cs) + (r / 2) * cs + k] = line[8 * k + 2];
            }
        }
        ASSERT_EQ(c.BGRToYUV422Planar(src.data(), dst.data(), width, height, 4, pitch, 0), 1);
        ASSERT_EQ(dst, want) << "height " << height;
    }
    for (int order = 0; order < 2; ++order)
        for (int filter = 0; filter < 2; ++filter)
            for (uint32_t ps : {3u, 4u}) {
                FilterLuma fl(filter);
                Csc c(0);
                const int width = 6, height = 3;
                const uint32_t pitch = width * ps + 2;
                const size_t ys = (width + 63) & ~63, cs = (width / 2 + 63) & ~63;
                const size_t h = height / 2, g = (ys + 2 * cs) * h;
                const std::vector<uint8_t> src = Random(pitch * height, 52);
                std::vector<uint8_t> dst(g * 2 + ys + 2 * cs, 0x44), want = dst;
                const int yb = order ? 0 : 3, ub = order ? 1 : 2, vb = order ? 2 : 1;
                for (int r = 0; r < height; ++r) {
                    // Line r is source line height - 1 - r, padded by one pixel each side
                    // (the last element is that of the pitch).
                    const uint8_t* s = &src[(height - 1 - r) * pitch];
                    auto at = [&](int i) -> int { // byte i of the padded line
                        if (i < 0) return s[i + int(ps)];
                        if (i >= int(pitch)) return s[int(pitch) - int(ps) + (i - int(pitch))];
                        return s[i];
                    };
                    auto shortAt = [&](int i) {
                        return uint8_t((at(i - ps) + 2 * at(i) + at(i + ps) + 2) >> 2);
                    };
                    const size_t f = (r % 2 == 0) ? g : 0;
                    for (int k = 0; k < width / 2; ++k) {
                        const int e = 2 * k * ps;
                        want[f + h * ys + (r / 2) * cs + k] = c.LC(shortAt(e + ub));
                        want[f + h * (ys + cs) + (r / 2) * cs + k] = c.LC(shortAt(e + vb));
                        for (int j = 0; j < 2; ++j)
                            want[f + (r / 2) * ys + 2 * k + j] =
                                filter ? c.LY(shortAt(e + j * ps + yb))
                                       : uint8_t(at(e + j * ps + yb));
                    }
                }
                ASSERT_EQ(c.YUV444MeshedToYUV422Planar(src.data(), dst.data(), width, height, ps,
                                                       pitch, order),
                          1);
                ASSERT_EQ(dst, want) << "order " << order << " filter " << filter << " ps " << ps;
            }
}
