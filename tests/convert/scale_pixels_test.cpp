// The pixel work of the geometry stages: weight tables, the bilinear and nearest
// scalers, centring and the deinterlacing filter, on pictures small enough to work out
// by hand.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <vector>

#include "convert/scalers.h"
#include "guardedbuffer.h"
#include "kxbihtest.h"
#include "simdtargets.h"

using namespace kelp;
using kelptest::GuardedBuffer;
using kelptest::MakeRgb;

namespace {

typedef std::vector<uint8_t> Bytes;

struct W {
    size_t offset;
    int32_t next, cur;
    bool operator==(const W& o) const {
        return offset == o.offset && next == o.next && cur == o.cur;
    }
};

std::vector<W> Weights(size_t step, uint32_t n, uint32_t m, bool fields, bool* ok = nullptr) {
    std::vector<LineWeight> t(m ? m : 1);
    const bool built = BuildWeights(t.data(), step, n, m, fields);
    if (ok) *ok = built;
    std::vector<W> out;
    if (built)
        for (uint32_t i = 0; i < m; ++i)
            out.push_back(W{t[i].offset, t[i].next, t[i].cur});
    return out;
}

// A 24-bit picture of one grey value a pixel (all three bytes alike), rows padded to 4.
Bytes Grey24(int32_t w, const std::vector<uint8_t>& values) {
    const size_t row = (3 * size_t(w) + 3) & ~size_t(3);
    const size_t h = values.size() / size_t(w);
    Bytes b(row * h, 0);
    for (size_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                b[y * row + 3 * size_t(x) + c] = values[y * size_t(w) + size_t(x)];
    return b;
}

// The first byte of every pixel of a 24-bit picture; checks that the three agree.
std::vector<int> Grey(const uint8_t* p, int32_t w, int32_t h) {
    const size_t row = (3 * size_t(w) + 3) & ~size_t(3);
    std::vector<int> out;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            const uint8_t* px = p + size_t(y) * row + 3 * size_t(x);
            EXPECT_TRUE(px[0] == px[1] && px[1] == px[2]) << x << "," << y;
            out.push_back(px[0]);
        }
    return out;
}

typedef bool (*ScaleFn)(const KXBMINFOHEADER*, const void*, const KXBMINFOHEADER*, void*, bool,
                        bool);

// Scales a grey picture from a guarded buffer into a guarded buffer.
std::vector<int> ScaleGrey(ScaleFn fn, int32_t inW, const std::vector<uint8_t>& values,
                           int32_t outW, int32_t outH, uint32_t inFrame, bool deinterlace,
                           bool swap, bool* ok = nullptr) {
    KXBMINFOHEADERYUV in = MakeRgb(inW, int32_t(values.size()) / inW, 24);
    in.bmi.bmiFrame = inFrame;
    KXBMINFOHEADERYUV out = MakeRgb(outW, outH, 24);
    const Bytes src = Grey24(inW, values);
    GuardedBuffer s(src.size()), d(out.bmi.biSizeImage);
    memcpy(s.data(), src.data(), src.size());
    d.Fill(0xEE);
    const bool r = fn(&in.bmi, s.data(), &out.bmi, d.data(), deinterlace, swap);
    if (ok) *ok = r;
    return r ? Grey(d.data(), outW, outH) : std::vector<int>{};
}

} // namespace

TEST(ScalePixels, BuildWeightsWalksFromTheFirstToTheLastPosition) {
    struct Case {
        const char* what;
        size_t step;
        uint32_t n, m;
        bool fields;
        std::vector<W> want;
    } cases[] = {
        {"one target line", 12, 7, 1, false, {{0, 0, 2048}}},
        {"3 to 5",
         3,
         3,
         5,
         false,
         {{0, 0, 2048}, {0, 1024, 1024}, {3, 0, 2048}, {3, 1024, 1024}, {6, 0, 2048}}},
        {"5 to 2", 4, 5, 2, false, {{0, 0, 2048}, {16, 0, 2048}}},
        {"2 to 4", 8, 2, 4, false, {{0, 0, 2048}, {0, 682, 1366}, {0, 1365, 683}, {8, 0, 2048}}},
        {"fields of 6 lines to 3", 10, 6, 3, true, {{0, 0, 2048}, {20, 0, 2048}, {40, 0, 2048}}},
        {"one line to 3", 5, 1, 3, false, {{0, 0, 2048}, {0, 0, 2048}, {0, 0, 2048}}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Weights(c.step, c.n, c.m, c.fields), c.want) << c.what;

    // Whatever the sizes: weights add to 2048, offsets never go back, the last one is
    // the last source position, and no entry but the first and last sits on a whole
    // position with a next weight (which would read past the source).
    std::mt19937 rng(7);
    for (int i = 0; i < 300; ++i) {
        const uint32_t n = 1 + rng() % 700, m = 1 + rng() % 700;
        const std::vector<W> t = Weights(3, n, m, false);
        ASSERT_EQ(t.size(), m);
        EXPECT_EQ(t.back().offset, size_t(m == 1 ? 0 : 3 * (n - 1))) << n << " " << m;
        for (uint32_t k = 0; k < m; ++k) {
            EXPECT_EQ(t[k].next + t[k].cur, 2048);
            EXPECT_GE(t[k].next, 0);
            if (k) {
                EXPECT_GE(t[k].offset, t[k - 1].offset);
            }
            if (t[k].next) {
                EXPECT_LT(t[k].offset, size_t(3 * (n - 1)));
            }
        }
    }
}

TEST(ScalePixels, BuildWeightsWithoutASourcePositionFails) {
    bool ok = true;
    Weights(3, 0, 4, false, &ok);
    EXPECT_FALSE(ok);
    Weights(3, 1, 4, true, &ok); // half of one line is none
    EXPECT_FALSE(ok);
    Weights(3, 4, 0, false, &ok);
    EXPECT_FALSE(ok);
}

TEST(ScalePixels, FillRowRepeatsThePixelAndStopsAtTheCount) {
    const uint8_t pixel[4] = {1, 2, 3, 4};
    for (int bpp : {1, 3, 4})
        for (int32_t count = 0; count <= 11; ++count) {
            Bytes buf(size_t(bpp) * 12 + 4, 0xAA);
            FillRow(buf.data(), pixel, bpp, count);
            for (size_t i = 0; i < buf.size(); ++i) {
                const size_t px = i / size_t(bpp);
                const uint8_t want = px < size_t(count) ? pixel[i % size_t(bpp)] : 0xAA;
                ASSERT_EQ(buf[i], want) << bpp << " " << count << " " << i;
            }
        }
}

TEST(ScalePixels, ScaleGoodBlendsWithTruncatingElevenBitWeights) {
    struct Case {
        const char* what;
        int32_t inW;
        std::vector<uint8_t> in;
        int32_t outW, outH;
        uint32_t frame;
        bool deinterlace, swap;
        std::vector<int> want;
    } cases[] = {
        {"a row of 3 to 5", 3, {0, 100, 200}, 5, 1, 1, false, false, {0, 50, 100, 150, 200}},
        {"a column of 3 to 5", 1, {0, 100, 200}, 1, 5, 1, false, false, {0, 50, 100, 150, 200}},
        {"halves truncate", 3, {0, 1, 2}, 5, 1, 1, false, false, {0, 0, 1, 1, 2}},
        {"2x2 to 3x3, the middle of four",
         2,
         {0, 100, 100, 200},
         3,
         3,
         1,
         false,
         false,
         {0, 50, 100, 50, 100, 150, 100, 150, 200}},
        {"shrink 4 to 2 keeps the ends", 4, {10, 20, 30, 40}, 2, 1, 1, false, false, {10, 40}},
        {"one source line to 3", 2, {7, 9}, 2, 3, 1, false, false, {7, 9, 7, 9, 7, 9}},
        {"odd field", 1, {0, 100, 200, 250}, 1, 4, 0, true, false, {100, 149, 199, 250}},
        {"even field", 1, {0, 100, 200, 250}, 1, 4, 0, true, true, {0, 66, 133, 200}},
    };
    for (const Case& c : cases) {
        bool ok = false;
        EXPECT_EQ(
            ScaleGrey(ScaleGood, c.inW, c.in, c.outW, c.outH, c.frame, c.deinterlace, c.swap, &ok),
            c.want)
            << c.what;
        EXPECT_TRUE(ok) << c.what;
    }
}

TEST(ScalePixels, ScaleGoodKeepsTheFieldsOfAnInterlacedPictureApart) {
    // Even rows 10, odd rows 250: scaled as one picture the fields would blend; as a
    // picture of double width and half height each output row keeps its field's value.
    const std::vector<uint8_t> rows = {10, 10, 10, 10, 250, 250, 250, 250,
                                       10, 10, 10, 10, 250, 250, 250, 250};
    const std::vector<int> got = ScaleGrey(ScaleGood, 4, rows, 4, 8, 0, false, false);
    ASSERT_EQ(got.size(), 32u);
    for (size_t y = 0; y < 8; ++y)
        for (size_t x = 0; x < 4; ++x)
            EXPECT_EQ(got[y * 4 + x], y % 2 ? 250 : 10) << x << "," << y;
    // The same rows read as progressive do blend.
    const std::vector<int> blended = ScaleGrey(ScaleGood, 4, rows, 4, 8, 1, false, false);
    EXPECT_NE(blended, got);
}

TEST(ScalePixels, ScaleFastPicksColumnsAndFieldLines) {
    struct Case {
        const char* what;
        int32_t inW;
        std::vector<uint8_t> in;
        int32_t outW, outH;
        bool deinterlace, swap;
        bool ok;
        std::vector<int> want;
    } cases[] = {
        {"4 to 2 takes the second of each pair", 4, {1, 2, 3, 4}, 2, 1, false, false, true, {2, 4}},
        {"2 to 4 doubles", 2, {5, 6}, 4, 1, false, false, true, {5, 5, 6, 6}},
        {"odd field lines", 1, {1, 2, 3, 4}, 1, 4, true, false, true, {2, 2, 4, 4}},
        {"even field lines", 1, {1, 2, 3, 4}, 1, 4, true, true, true, {1, 1, 3, 3}},
        {"an odd line beyond the source", 1, {1, 2, 3, 4, 5}, 1, 5, true, false, false, {}},
    };
    for (const Case& c : cases) {
        bool ok = !c.ok;
        EXPECT_EQ(ScaleGrey(ScaleFast, c.inW, c.in, c.outW, c.outH, 1, c.deinterlace, c.swap, &ok),
                  c.want)
            << c.what;
        EXPECT_EQ(ok, c.ok) << c.what;
    }
    // 8 and 32 bits are scaled too, 16 is refused.
    for (uint16_t bits : {8, 16, 32}) {
        KXBMINFOHEADERYUV in = MakeRgb(2, 1, bits), out = MakeRgb(4, 1, bits);
        Bytes src(in.bmi.biSizeImage, 0x42), dst(out.bmi.biSizeImage, 0);
        EXPECT_EQ(ScaleFast(&in.bmi, src.data(), &out.bmi, dst.data(), false, false), bits != 16);
    }
}

TEST(ScalePixels, CenterPlacesOnWholeLinePairsOrQuads) {
    // A 2x1 picture of grey 200 in a 4x6 black target: dy is 5.
    struct Case {
        const char* what;
        uint32_t inFrame, inFormat, outFormat;
        KXRECT rect;
        int memoryRow; // where the picture lies, counted from the buffer's start
    } cases[] = {
        {"progressive, step 2", 1, 0, 0, {1, 3, 3, 4}, 2},
        {"interlaced, step 4", 0, 0, 0, {1, 4, 3, 5}, 1},
        {"other field order moves a line", 1, KXBMIFORMAT_ODDEVEN_CHRONO, 0, {1, 2, 3, 3}, 3},
        {"both chrono: no move",
         1,
         KXBMIFORMAT_ODDEVEN_CHRONO,
         KXBMIFORMAT_ODDEVEN_CHRONO,
         {1, 3, 3, 4},
         2},
    };
    for (const Case& c : cases) {
        KXBMINFOHEADERYUV in = MakeRgb(2, 1, 24), out = MakeRgb(4, 6, 24);
        in.bmi.bmiFrame = c.inFrame;
        in.bmi.bmiFormat = c.inFormat;
        in.bmi.bmiAlpha = 1;
        out.bmi.bmiFormat = c.outFormat;
        const Bytes src = Grey24(2, {200, 200});
        Bytes dst(out.bmi.biSizeImage, 0xEE);
        ASSERT_TRUE(Center(&in.bmi, src.data(), &out.bmi, dst.data(), 0)) << c.what;
        EXPECT_EQ(out.bmi.bmiRect.left, c.rect.left) << c.what;
        EXPECT_EQ(out.bmi.bmiRect.top, c.rect.top) << c.what;
        EXPECT_EQ(out.bmi.bmiRect.right, c.rect.right) << c.what;
        EXPECT_EQ(out.bmi.bmiRect.bottom, c.rect.bottom) << c.what;
        EXPECT_EQ(out.bmi.bmiAlpha, 1u);
        std::vector<int> want(24, 0);
        want[size_t(c.memoryRow) * 4 + 1] = want[size_t(c.memoryRow) * 4 + 2] = 200;
        EXPECT_EQ(Grey(dst.data(), 4, 6), want) << c.what;
    }
}

TEST(ScalePixels, CenterCropsALargerPictureAndFillsYuvWithVideoBlack) {
    // 4x4 into 2x2: the middle is kept, one row and one column in from the buffer's start.
    std::vector<uint8_t> v(16);
    for (size_t i = 0; i < 16; ++i)
        v[i] = uint8_t(10 * i);
    KXBMINFOHEADERYUV in = MakeRgb(4, 4, 24), out = MakeRgb(2, 2, 24);
    const Bytes src = Grey24(4, v);
    Bytes dst(out.bmi.biSizeImage, 0xEE);
    ASSERT_TRUE(Center(&in.bmi, src.data(), &out.bmi, dst.data(), 0));
    EXPECT_EQ(Grey(dst.data(), 2, 2), (std::vector<int>{50, 60, 90, 100}));
    EXPECT_EQ(out.bmi.bmiRect.right, 2);
    EXPECT_EQ(out.bmi.bmiRect.bottom, 2);

    // A YUV target is filled with 16, 128, 128; the row padding is zero.
    KXBMINFOHEADERYUV yin = kelptest::MakeYuv(1, 1, 24), yout = kelptest::MakeYuv(3, 1, 24);
    const uint8_t px[4] = {200, 50, 60, 0};
    Bytes ydst(yout.bmi.biSizeImage, 0xEE);
    ASSERT_TRUE(Center(&yin.bmi, px, &yout.bmi, ydst.data(), 0));
    EXPECT_EQ(ydst, (Bytes{16, 128, 128, 200, 50, 60, 16, 128, 128, 0, 0, 0}));
}

TEST(ScalePixels, DeinterlaceLinesFiltersEveryByteOfOneField) {
    // Two pixels a row (6 bytes and 2 of padding), four rows of distinct values.
    KXBMINFOHEADERYUV in = MakeRgb(2, 4, 24), out = MakeRgb(2, 4, 24);
    in.bmi.bmiFrame = 0;
    Bytes src(32, 0);
    const uint8_t rowValue[4] = {0, 100, 200, 250};
    for (size_t y = 0; y < 4; ++y)
        for (size_t i = 0; i < 6; ++i)
            src[y * 8 + i] = uint8_t(rowValue[y] + i);
    struct Case {
        bool swap;
        int base[4]; // the first byte of each row; byte i adds i where not blended
    } cases[] = {{false, {100, 149, 199, 250}}, {true, {0, 66, 133, 200}}};
    for (const Case& c : cases) {
        GuardedBuffer s(src.size()), d(out.bmi.biSizeImage);
        memcpy(s.data(), src.data(), src.size());
        d.Fill(0xEE);
        ASSERT_TRUE(DeinterlaceLines(&in.bmi, s.data(), &out.bmi, d.data(), true, c.swap));
        for (size_t y = 0; y < 4; ++y) {
            EXPECT_EQ(d.data()[y * 8], c.base[y]) << y;
            EXPECT_EQ(d.data()[y * 8 + 6], 0) << "padding";
        }
        // Ends are copies, every byte with its own offset.
        EXPECT_EQ(d.data()[5], c.swap ? 5 : 105);
        EXPECT_EQ(d.data()[24 + 5], c.swap ? 205 : 255);
    }
    // A field needs two lines.
    KXBMINFOHEADERYUV one = MakeRgb(2, 1, 24);
    Bytes tiny(8, 0), dst(8, 0);
    EXPECT_FALSE(DeinterlaceLines(&one.bmi, tiny.data(), &one.bmi, dst.data(), true, false));
}

TEST(ScalePixels, EveryTargetScalesAndDeinterlacesLikeThePlainRows) {
    // Whole pictures through the stages' functions on each target, against the plain
    // target: 24-bit RGB, "@YUV" 24 and 32-bit, shrinking, enlarging, fields.
    struct Case {
        const char* what;
        int32_t inW, inH, outW, outH;
        uint16_t bits;
        bool yuv;
        uint32_t frame;
        bool deinterlace, swap;
    } cases[] = {
        {"1920x8 to 1280x6", 1920, 8, 1280, 6, 24, false, 1, false, false},
        {"@YUV 641x37 to 427x25", 641, 37, 427, 25, 24, true, 1, false, false},
        {"a tenth", 721, 30, 72, 3, 24, false, 1, false, false},
        {"eight times", 33, 7, 264, 56, 24, true, 1, false, false},
        {"odd widths", 101, 9, 67, 13, 24, false, 1, false, false},
        {"interlaced, fields apart", 301, 20, 199, 14, 24, false, 0, false, false},
        {"deinterlaced, odd field", 255, 21, 170, 30, 24, true, 0, true, false},
        {"deinterlaced, even field", 255, 21, 170, 30, 24, false, 0, true, true},
        {"32 bits", 333, 11, 222, 17, 32, false, 1, false, false},
        {"8 bits, nearest only", 97, 10, 61, 23, 8, false, 1, false, false},
    };
    std::mt19937 rng(9);
    for (const Case& c : cases) {
        KXBMINFOHEADERYUV in =
            c.yuv ? kelptest::MakeYuv(c.inW, c.inH, c.bits) : MakeRgb(c.inW, c.inH, c.bits);
        KXBMINFOHEADERYUV out =
            c.yuv ? kelptest::MakeYuv(c.outW, c.outH, c.bits) : MakeRgb(c.outW, c.outH, c.bits);
        KXBMINFOHEADERYUV same = out;
        same.bmi.biWidth = c.inW;
        same.bmi.biHeight = c.inH;
        same.bmi.biSizeImage = in.bmi.biSizeImage;
        in.bmi.bmiFrame = c.frame;
        GuardedBuffer src(in.bmi.biSizeImage);
        src.Random(rng);
        struct Run {
            const char* name;
            std::function<bool(uint8_t*)> fn;
            size_t bytes;
        } runs[] = {
            {"ScaleGood",
             [&](uint8_t* d) {
                 return ScaleGood(&in.bmi, src.data(), &out.bmi, d, c.deinterlace, c.swap);
             },
             out.bmi.biSizeImage},
            {"ScaleFast",
             [&](uint8_t* d) {
                 return ScaleFast(&in.bmi, src.data(), &out.bmi, d, c.deinterlace, c.swap);
             },
             out.bmi.biSizeImage},
            {"DeinterlaceLines",
             [&](uint8_t* d) {
                 return DeinterlaceLines(&in.bmi, src.data(), &same.bmi, d, c.deinterlace, c.swap);
             },
             in.bmi.biSizeImage},
        };
        for (const Run& r : runs) {
            Bytes want(r.bytes);
            bool wantOk;
            {
                kelptest::SimdMask plain(SimdBit(kSimdPlain));
                wantOk = r.fn(want.data());
            }
            kelptest::ForEachSimdTarget([&](int) {
                GuardedBuffer dst(r.bytes);
                dst.Fill(0xEE);
                ASSERT_EQ(r.fn(dst.data()), wantOk) << c.what << " " << r.name;
                if (wantOk) {
                    ASSERT_EQ(dst.Copy(), want) << c.what << " " << r.name;
                }
            });
        }
    }
}

TEST(ScalePixels, RandomSizesScaleAlikeOnEveryTarget) {
    // Many small pictures of random sizes, depths and field modes: every target against
    // the plain one, source and output ending at unreadable pages.
    std::mt19937 rng(10);
    for (int i = 0; i < 150; ++i) {
        const int32_t inW = int32_t(1 + rng() % 90), inH = int32_t(1 + rng() % 12);
        const int32_t outW = int32_t(1 + rng() % 90), outH = int32_t(1 + rng() % 12);
        const uint16_t bits = rng() % 2 ? 24 : 32;
        const bool fields = rng() % 3 == 0, deinterlace = fields && rng() % 2, swap = rng() % 2;
        KXBMINFOHEADERYUV in = MakeRgb(inW, inH, bits), out = MakeRgb(outW, outH, bits);
        in.bmi.bmiFrame = fields ? 0 : 1;
        GuardedBuffer src(in.bmi.biSizeImage);
        src.Random(rng);
        for (ScaleFn fn : {ScaleGood, ScaleFast}) {
            Bytes want(out.bmi.biSizeImage);
            bool wantOk;
            {
                kelptest::SimdMask plain(SimdBit(kSimdPlain));
                wantOk = fn(&in.bmi, src.data(), &out.bmi, want.data(), deinterlace, swap);
            }
            kelptest::ForEachSimdTarget([&](int) {
                GuardedBuffer dst(out.bmi.biSizeImage);
                dst.Fill(0xEE);
                ASSERT_EQ(fn(&in.bmi, src.data(), &out.bmi, dst.data(), deinterlace, swap), wantOk);
                if (wantOk) {
                    ASSERT_EQ(dst.Copy(), want)
                        << inW << "x" << inH << " to " << outW << "x" << outH << " at " << bits;
                }
            });
        }
    }
}
