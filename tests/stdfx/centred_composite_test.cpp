// The centred composites of CDIB: pads and margins taken from the background, the
// premultiplied source laid over it in the copied part, field rows, 4:2:2 with its alpha
// plane, refusals that leave the target alone, and images that end at a guard page.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include <kelp/stdfx.h>

#include "guardedbuffer.h"
#include "kxbihtest.h"
#include "simdtargets.h"

using kelptest::MakeRgb;
using kelptest::MakeYuv;
using stdfx::CDIB;

namespace {

// The over of one byte, as the composite defines it.
int Over(int src, int bg, int a) {
    const int t = bg * (255 - a) + 128;
    const int v = src + ((t + (t >> 8)) >> 8);
    return v > 255 ? 255 : v;
}

// A pixel by display position (rows counted from the top).
uint8_t* At(const CDIB& d, int x, int y, int unit = 4) {
    const int m = d.IsBottomUp() ? d.Height() - 1 - y : y;
    return static_cast<uint8_t*>(d.Bits()) + ptrdiff_t(m) * d.Stride() + ptrdiff_t(x) * unit;
}
uint8_t* AlphaAt(const CDIB& d, int x, int y) {
    const int m = d.IsBottomUp() ? d.Height() - 1 - y : y;
    return d.GetAlphaPlane() + ptrdiff_t(m) * d.GetAlphaStride() + x;
}

std::vector<uint8_t> Bytes(const CDIB& d) {
    const uint8_t* p = static_cast<const uint8_t*>(d.Bits());
    return std::vector<uint8_t>(p, p + stdfx::DIBImageSize(d.Header()));
}

void Randomise(CDIB& d, std::mt19937& rng) {
    uint8_t* p = static_cast<uint8_t*>(d.Bits());
    for (size_t i = 0, n = stdfx::DIBImageSize(d.Header()); i < n; ++i)
        p[i] = uint8_t(rng());
}

CDIB Image(uint32_t format, int w, int h, std::mt19937& rng) {
    KXBMINFOHEADERYUV r = format == KXBI_YUV ? MakeYuv(w, h, 32) : MakeRgb(w, h, 32);
    CDIB d(&r.bmi);
    Randomise(d, rng);
    return d;
}

CDIB Image422(uint32_t sampling, int w, int h, std::mt19937& rng) {
    KXBMINFOHEADERYUV r = MakeYuv(w, h, 32, sampling);
    CDIB d(&r.bmi);
    Randomise(d, rng);
    return d;
}

// Pads and first source position along one axis, written out as the tables below expect.
struct Axis {
    int pad, first, count;
};
Axis Place(int target, int source) {
    return {target > source ? (target - source + 1) / 2 : 0,
            source > target ? (source - target + 1) / 2 : 0, target < source ? target : source};
}

// The whole-frame composite of 4-byte pixels, pixel by pixel.
void ExpectComposite(const CDIB& out, const CDIB& src, const CDIB& bg) {
    const Axis ax = Place(out.Width(), src.Width()), ay = Place(out.Height(), src.Height());
    for (int y = 0; y < out.Height(); ++y)
        for (int x = 0; x < out.Width(); ++x) {
            const uint8_t* o = At(out, x, y);
            const uint8_t* b = At(bg, x, y);
            const bool inside =
                x >= ax.pad && x < ax.pad + ax.count && y >= ay.pad && y < ay.pad + ay.count;
            uint8_t want[4];
            if (inside) {
                const uint8_t* s = At(src, x - ax.pad + ax.first, y - ay.pad + ay.first);
                for (int k = 0; k < 4; ++k)
                    want[k] = uint8_t(Over(s[k], b[k], s[3]));
            } else {
                std::memcpy(want, b, 4);
            }
            ASSERT_EQ(std::memcmp(o, want, 4), 0) << "pixel " << x << "," << y;
        }
}

} // namespace

// Every (background, source, alpha) triple of bytes through the composite: row x of the background
// holds x in all bytes, source row s holds s in its colour bytes and the alpha under test.
TEST(CentredComposite, OverFormulaForEveryByteTriple) {
    KXBMINFOHEADERYUV r = MakeRgb(256, -256, 32);
    CDIB bg(&r.bmi), src(&r.bmi), out(&r.bmi);
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 256; ++x)
            std::memset(At(bg, x, y), x, 4);
    std::vector<uint8_t> want(size_t(256) * 256 * 4);
    for (int a = 0; a < 256; ++a) {
        for (int s = 0; s < 256; ++s)
            for (int x = 0; x < 256; ++x) {
                uint8_t* p = At(src, x, s);
                p[0] = p[1] = p[2] = uint8_t(s);
                p[3] = uint8_t(a);
                uint8_t* w = want.data() + (size_t(s) * 256 + x) * 4;
                w[0] = w[1] = w[2] = uint8_t(Over(s, x, a));
                w[3] = uint8_t(Over(a, x, a));
            }
        auto check = [&]() {
            ASSERT_TRUE(out.CopyCentred(src, bg, -1));
            for (int s = 0; s < 256; ++s)
                ASSERT_EQ(std::memcmp(At(out, 0, s), want.data() + size_t(s) * 1024, 1024), 0)
                    << "alpha " << a << ", source " << s;
        };
        // Every alpha on the best target; every target on a spread of alphas (the vector
        // rows equal the plain loop, which the compositor's own tests hold to).
        check();
        if (a % 15 == 0) kelptest::ForEachSimdTarget([&](int) { check(); });
        if (HasFatalFailure()) return;
    }
}

// Sizes that pad, cut and match, in both row orders, for RGB and 4:4:4; the background
// may be the target itself.
TEST(CentredComposite, PadsAndMarginsFromBackground) {
    struct Case {
        uint32_t format;
        int tw, th, sw, sh;
        bool bottomUpTarget, bottomUpSource;
    } cases[] = {
        {KXBI_RGB, 8, 8, 4, 4, false, false}, {KXBI_RGB, 9, 7, 4, 3, true, false},
        {KXBI_RGB, 4, 4, 8, 8, false, true},  {KXBI_RGB, 5, 3, 8, 7, true, true},
        {KXBI_RGB, 6, 6, 6, 6, false, false}, {KXBI_RGB, 23, 5, 1, 1, false, false},
        {KXBI_YUV, 8, 6, 3, 5, true, false},  {KXBI_YUV, 3, 2, 9, 9, false, true},
    };
    std::mt19937 rng(5);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.tw << "x" << c.th << " from " << c.sw << "x" << c.sh);
        const int th = c.bottomUpTarget ? c.th : -c.th, sh = c.bottomUpSource ? c.sh : -c.sh;
        const CDIB src = Image(c.format, c.sw, sh, rng);
        // The background's rows run the other way to the target's.
        const CDIB bg = Image(c.format, c.tw, -th, rng);
        CDIB out = Image(c.format, c.tw, th, rng);
        kelptest::ForEachSimdTarget([&](int) {
            ASSERT_TRUE(out.CopyCentred(src, bg, -1));
            ExpectComposite(out, src, bg);
        });
        CDIB self;
        self.CopyFrom(bg);
        const CDIB before(bg);
        ASSERT_TRUE(self.CopyCentred(src, self, -1));
        ExpectComposite(self, src, before);
    }
}

// The source rows that make source row `sy` of a field pass (both the same when the row is
// taken as it is): a progressive source's row of the other parity is the average of its
// neighbours, an interlaced source's is the row of the field next to it.
struct Pair {
    int up, down;
};
Pair SourceRows(const CDIB& src, int field, int sy) {
    const int h = src.Height();
    const int m = src.IsBottomUp() ? h - 1 - sy : sy;
    if (field == -1 || (m & 1) == (src.FirstLine(field) & 1)) return {sy, sy};
    if (src.GetFieldFlag() == 1) {
        const int r = sy + 1 < h ? sy + 1 : (sy > 0 ? sy - 1 : sy);
        return {r, r};
    }
    const int up = sy > 0 ? sy - 1 : (sy + 1 < h ? sy + 1 : sy);
    return {up, sy + 1 < h ? sy + 1 : up};
}
int Mean(int a, int b) {
    return (a + b + 1) >> 1;
}

// With a field only that field's lines change, with source rows of both parities.
TEST(CentredComposite, FieldRows) {
    std::mt19937 rng(9);
    for (int th : {7, 6})
        for (int field = 0; field < 2; ++field)
            for (bool interlaced : {false, true}) {
                SCOPED_TRACE(testing::Message() << "height " << th << " field " << field
                                                << " interlaced " << interlaced);
                CDIB src = Image(KXBI_RGB, 3, -4, rng);
                if (interlaced) src.Header()->bmiFrame = 0;
                const CDIB bg = Image(KXBI_RGB, 3, th, rng);
                CDIB out = Image(KXBI_RGB, 3, -th, rng);
                const std::vector<uint8_t> old = Bytes(out);
                ASSERT_TRUE(out.CopyCentred(src, bg, field));
                const int first = out.FirstLine(field), pad = (th - 4 + 1) / 2;
                for (int y = 0; y < th; ++y) {
                    const uint8_t* o = At(out, 0, y);
                    if ((y & 1) != (first & 1)) {
                        EXPECT_EQ(std::memcmp(o, old.data() + size_t(y) * out.Stride(), 12), 0)
                            << "line " << y << " of the other field";
                        continue;
                    }
                    const int sy = y - pad;
                    uint8_t want[12];
                    for (int k = 0; k < 12; ++k) {
                        const int b = At(bg, 0, y)[k];
                        if (sy < 0 || sy >= 4) {
                            want[k] = uint8_t(b);
                            continue;
                        }
                        const Pair r = SourceRows(src, field, sy);
                        const int s = Mean(At(src, 0, r.up)[k], At(src, 0, r.down)[k]);
                        const int a = Mean(At(src, 0, r.up)[k | 3], At(src, 0, r.down)[k | 3]);
                        want[k] = uint8_t(Over(s, b, a));
                    }
                    EXPECT_EQ(std::memcmp(o, want, 12), 0) << "line " << y;
                }
            }
}

// 4:2:2 in both byte orders and odd widths: luma by its pixel's alpha, chroma by the mean
// of the pair's alphas, the alpha plane over itself; the source cut and padded by pairs.
TEST(CentredComposite, FourTwoTwoWithAlphaPlane) {
    struct Case {
        uint32_t sampling;
        int tw, sw, field;
    } cases[] = {
        {KXYUV_SAMPLING_422, 8, 4, -1}, {KXYUV_SAMPLING_422B, 8, 4, 0},
        {KXYUV_SAMPLING_422, 4, 10, 1}, {KXYUV_SAMPLING_422B, 7, 3, -1},
        {KXYUV_SAMPLING_422, 5, 9, 0},  {KXYUV_SAMPLING_422, 6, 6, 1},
    };
    std::mt19937 rng(3);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.tw << " from " << c.sw << " sampling " << c.sampling
                                        << " field " << c.field);
        // Four source rows in five: a top pad of 1; the background's rows run upwards.
        const CDIB src = Image422(c.sampling, c.sw, -4, rng),
                   bg = Image422(c.sampling, c.tw, 5, rng);
        CDIB out = Image422(c.sampling, c.tw, -5, rng);
        CDIB old;
        old.CopyFrom(out);
        ASSERT_TRUE(out.CopyCentred(src, bg, c.field));
        const Axis pairs = Place((c.tw + 1) / 2, (c.sw + 1) / 2);
        const int luma = c.sampling == KXYUV_SAMPLING_422B ? 1 : 0;
        for (int y = 0; y < 5; ++y) {
            const int sy = y - 1;
            const bool visited = c.field == -1 || (y & 1) == (out.FirstLine(c.field) & 1);
            const CDIB& under = visited ? bg : old;
            const bool row = visited && sy >= 0 && sy < 4;
            const Pair r = row ? SourceRows(src, c.field, sy) : Pair{0, 0};
            auto alpha = [&](int x) {
                return Mean(*AlphaAt(src, x, r.up), *AlphaAt(src, x, r.down));
            };
            for (int j = 0; j < (c.tw + 1) / 2; ++j) {
                const int sj = j - pairs.pad + pairs.first;
                const uint8_t* b = At(under, j, y);
                uint8_t want[4];
                std::memcpy(want, b, 4);
                if (row && j >= pairs.pad && j < pairs.pad + pairs.count) {
                    const int a0 = alpha(2 * sj);
                    const int a1 = 2 * sj + 1 < c.sw && 2 * j + 1 < c.tw ? alpha(2 * sj + 1) : a0;
                    const int ac = Mean(a0, a1);
                    for (int k = 0; k < 4; ++k) {
                        const int a = (k & 1) == luma ? (k < 2 ? a0 : a1) : ac;
                        const int s = Mean(At(src, sj, r.up)[k], At(src, sj, r.down)[k]);
                        want[k] = uint8_t(Over(s, b[k], a));
                    }
                }
                ASSERT_EQ(std::memcmp(At(out, j, y), want, 4), 0) << "pair " << j << " line " << y;
            }
            for (int x = 0; x < c.tw; ++x) {
                const int sx = x - 2 * pairs.pad + 2 * pairs.first;
                const bool inside =
                    row && x >= 2 * pairs.pad && sx < c.sw && x < 2 * (pairs.pad + pairs.count);
                const int b = *AlphaAt(under, x, y);
                const int want = inside ? Over(alpha(sx), b, alpha(sx)) : b;
                ASSERT_EQ(*AlphaAt(out, x, y), want) << "alpha " << x << " line " << y;
            }
        }
    }
}

// Formats and sizes the composites do not take: false, and not a byte of the target moved.
TEST(CentredComposite, RefusalsLeaveTheTargetAlone) {
    std::mt19937 rng(1);
    KXBMINFOHEADERYUV r24 = MakeRgb(4, 4, 24), y16 = MakeYuv(4, 4, 16, KXYUV_SAMPLING_422);
    CDIB rgb24(&r24.bmi), yuv16(&y16.bmi);
    Randomise(rgb24, rng);
    Randomise(yuv16, rng);
    const CDIB rgb = Image(KXBI_RGB, 4, 4, rng), rgbSmall = Image(KXBI_RGB, 3, 4, rng),
               rgbShort = Image(KXBI_RGB, 4, 2, rng), yuv = Image(KXBI_YUV, 4, 4, rng),
               yuy2 = Image422(KXYUV_SAMPLING_422, 4, 4, rng),
               uyvy = Image422(KXYUV_SAMPLING_422B, 4, 4, rng),
               yuy2Narrow = Image422(KXYUV_SAMPLING_422, 2, 4, rng), empty;
    struct Case {
        const char* what;
        const CDIB &target, &source, &background;
    } cases[] = {
        {"background narrower", rgb, rgb, rgbSmall},
        {"background shorter", rgb, rgb, rgbShort},
        {"background of another format", rgb, rgb, yuv},
        {"source of another format", rgb, yuv, rgb},
        {"24-bit", rgb24, rgb24, rgb24},
        {"4:2:2 without an alpha plane", yuv16, yuv16, yuv16},
        {"4:2:2 byte orders differ", yuy2, uyvy, yuy2},
        {"4:2:2 background in the other order", yuy2, yuy2, uyvy},
        {"4:4:4 source into 4:2:2", yuy2, yuv, yuy2},
        {"4:2:2 source into 4:4:4", yuv, yuy2, yuv},
        {"4:2:2 background size", yuy2, yuy2, yuy2Narrow},
        {"no source", rgb, empty, rgb},
        {"no background", rgb, rgb, empty},
    };
    for (const auto& c : cases) {
        CDIB target;
        target.CopyFrom(c.target);
        const std::vector<uint8_t> before = Bytes(target);
        EXPECT_FALSE(target.CopyCentred(c.source, c.background, -1)) << c.what;
        EXPECT_EQ(Bytes(target), before) << c.what;
    }
}

// Every image attached to memory that ends at a no-access page, with odd sizes and
// both fields: the result equals that of images in ordinary memory.
TEST(CentredComposite, BuffersAtGuardPages) {
    struct Case {
        uint32_t format, sampling;
        int tw, th, sw, sh, field;
    } cases[] = {
        {KXBI_RGB, 0, 7, 5, 3, 9, -1},
        {KXBI_RGB, 0, 5, 9, 11, 4, 1},
        {KXBI_YUV, KXYUV_SAMPLING_444, 3, 3, 5, 7, 0},
        {KXBI_YUV, KXYUV_SAMPLING_422, 7, 5, 3, 9, -1},
        {KXBI_YUV, KXYUV_SAMPLING_422B, 5, 6, 9, 3, 1},
        {KXBI_YUV, KXYUV_SAMPLING_422, 1, 2, 1, 1, 0},
    };
    std::mt19937 rng(7);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.tw << "x" << c.th << " from " << c.sw << "x" << c.sh);
        auto header = [&](int w, int h) {
            return c.format == KXBI_RGB ? MakeRgb(w, h, 32) : MakeYuv(w, h, 32, c.sampling);
        };
        KXBMINFOHEADERYUV hs = header(c.sw, c.sh), ht = header(c.tw, -c.th),
                          hb = header(c.tw, c.th);
        std::vector<std::unique_ptr<kelptest::GuardedBuffer>> memory;
        std::vector<CDIB> owned, attached;
        owned.reserve(3);
        attached.reserve(3);
        for (KXBMINFOHEADERYUV* h : {&hs, &ht, &hb}) {
            CDIB d(&h->bmi);
            Randomise(d, rng);
            const size_t size = stdfx::DIBImageSize(d.Header());
            memory.emplace_back(new kelptest::GuardedBuffer(size));
            std::memcpy(memory.back()->data(), d.Bits(), size);
            owned.push_back(d);
            attached.emplace_back(&h->bmi, memory.back()->data());
        }
        CDIB want;
        want.CopyFrom(owned[1]);
        ASSERT_TRUE(want.CopyCentred(owned[0], owned[2], c.field));
        ASSERT_TRUE(attached[1].CopyCentred(attached[0], attached[2], c.field));
        EXPECT_EQ(std::memcmp(attached[1].Bits(), want.Bits(), memory[1]->size()), 0);
    }
}
