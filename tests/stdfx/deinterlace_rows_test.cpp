// The vector forms of the deinterlacers' and alpha multiplications' row kernels give
// the plain loops' bytes on every target: at every length around the block sizes, at
// unaligned starts, with every buffer ending at an unreadable page, and over the whole
// range of byte values where that range is small.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include <kelp/stdfx.h>

#include "guardedbuffer.h"
#include "simdtargets.h"
#include "stdfx/deinterlacerows.h"
#include "stdfx/premultiplyrows.h"

namespace dr = stdfx::deinterlacerows;
namespace pr = stdfx::premultiplyrows;

namespace {

const int32_t kLengths[] = {1, 3, 7, 8, 9, 15, 16, 17, 31, 33, 63, 65, 1921};

// Five source rows and one destination, each ending at an unreadable page.
struct Rows {
    std::vector<std::unique_ptr<kelptest::GuardedBuffer>> in;
    kelptest::GuardedBuffer out;
    size_t start;
    Rows(size_t bytes, size_t start, std::mt19937& rng, bool smooth)
        : out(bytes + start), start(start) {
        for (int i = 0; i < 5; ++i) {
            in.emplace_back(new kelptest::GuardedBuffer(bytes + start));
            if (smooth) { // runs of near values, so that flatness and the search both fire
                uint8_t v = uint8_t(rng());
                for (size_t k = 0; k < bytes + start; ++k) {
                    if (rng() % 7 == 0) v = uint8_t(rng());
                    in[i]->data()[k] = uint8_t(v + rng() % 6);
                }
            } else {
                in[i]->Random(rng);
            }
        }
        out.Fill(0xEE);
    }
    const uint8_t* operator[](int i) { return in[i]->data() + start; }
    uint8_t* dst() { return out.data() + start; }
};

} // namespace

TEST(DeinterlaceRows, EveryKernelEqualsPlainAtEveryLengthAndStart) {
    std::mt19937 rng(5);
    kelptest::ForEachSimdTarget([&](int target) {
        const dr::Kernels& k = dr::Current();
        EXPECT_STREQ(k.name, kelp::SimdTargetName(target));
        for (int32_t n : kLengths)
            for (size_t start : {0, 1, 3}) {
                Rows r(size_t(n), start, rng, false);
                std::vector<uint8_t> want(static_cast<size_t>(n));
                struct {
                    const char* what;
                    std::function<void(uint8_t*)> plain, fast;
                } kernels[] = {
                    {"average", [&](uint8_t* d) { dr::Average_C(r[0], r[1], d, n); },
                     [&](uint8_t* d) { k.average(r[0], r[1], d, n); }},
                    {"blend", [&](uint8_t* d) { dr::Blend_C(r[0], r[1], r[2], d, n); },
                     [&](uint8_t* d) { k.blend(r[0], r[1], r[2], d, n); }},
                    {"cubic", [&](uint8_t* d) { dr::Cubic_C(r[0], r[1], r[2], r[3], d, n); },
                     [&](uint8_t* d) { k.cubic(r[0], r[1], r[2], r[3], d, n); }},
                    {"cubic, line b kept",
                     [&](uint8_t* d) { dr::Cubic_C(r[0], r[1], r[2], r[3], d, n); },
                     [&](uint8_t* d) {
                         kelptest::GuardedBuffer keep(size_t(n) + start);
                         k.cubicKeep(r[0], r[1], r[2], r[3], d, keep.data() + start, n);
                         ASSERT_EQ(std::memcmp(keep.data() + start, r[2], size_t(n)), 0);
                     }},
                    {"five taps",
                     [&](uint8_t* d) { dr::FiveTap_C(r[0], r[1], r[2], r[3], r[4], d, n); },
                     [&](uint8_t* d) { k.fiveTap(r[0], r[1], r[2], r[3], r[4], d, n); }},
                    {"median 3", [&](uint8_t* d) { dr::Median3_C(r[0], r[1], r[2], d, n); },
                     [&](uint8_t* d) { k.median3(r[0], r[1], r[2], d, n); }},
                    {"median 9", [&](uint8_t* d) { dr::Median9_C(r[0], r[1], r[2], r[3], d, n); },
                     [&](uint8_t* d) { k.median9(r[0], r[1], r[2], r[3], d, n); }},
                };
                for (auto& kernel : kernels) {
                    kernel.plain(want.data());
                    r.out.Fill(0xEE);
                    kernel.fast(r.dst());
                    ASSERT_EQ(std::memcmp(r.dst(), want.data(), size_t(n)), 0)
                        << kernel.what << " length " << n << " start " << start;
                }
            }
    });
}

// Rows of every pixel size the deinterlacers use (the alpha plane, 4:2:2, 24 and 32
// bits, 8-byte pixels), smooth and noisy, at widths below, at and above the 19 pixels
// where the full search begins.
TEST(DeinterlaceRows, EdgeDirectedEqualsPlainForEveryPixelSize) {
    std::mt19937 rng(6);
    kelptest::ForEachSimdTarget([&](int) {
        for (int32_t step : {1, 2, 3, 4, 8})
            for (int32_t pixels : {1, 9, 10, 18, 19, 20, 27, 40, 77, 200, 1921})
                for (bool smooth : {false, true}) {
                    const size_t bytes = size_t(pixels) * size_t(step);
                    Rows r(bytes, pixels % 3, rng, smooth);
                    std::vector<uint8_t> want(bytes);
                    dr::Edge_C(r[0], r[1], want.data(), pixels, step);
                    dr::Current().edge(r[0], r[1], r.dst(), pixels, step);
                    ASSERT_EQ(std::memcmp(r.dst(), want.data(), bytes), 0)
                        << "step " << step << " pixels " << pixels << " smooth " << smooth;
                }
    });
}

// The weighted sums at their extremes: 0 and 255 in every arrangement of the inputs.
TEST(DeinterlaceRows, WeightedSumsClipAtTheEndsOfTheRange) {
    std::vector<uint8_t> in[5];
    for (auto& v : in)
        v.resize(32 * 4);
    for (int i = 0; i < 32 * 4; ++i)
        for (int r = 0; r < 5; ++r)
            in[r][size_t(i)] = (i >> r) & 1 ? 255 : (i & 32 ? 1 : 0);
    std::vector<uint8_t> want(128), got(128);
    dr::Cubic_C(in[0].data(), in[1].data(), in[2].data(), in[3].data(), want.data(), 128);
    EXPECT_EQ(want[0b0110], 255); // (19 * 510 + 16) >> 5 clipped
    EXPECT_EQ(want[0b1001], 0);   // -3 * 510 clipped
    dr::FiveTap_C(in[0].data(), in[1].data(), in[2].data(), in[3].data(), in[4].data(), want.data(),
                  128);
    EXPECT_EQ(want[0b01110], 255);
    EXPECT_EQ(want[0b10001], 0);
    EXPECT_EQ(want[0b00100], (10 * 255) >> 4);
    kelptest::ForEachSimdTarget([&](int) {
        dr::Current().cubic(in[0].data(), in[1].data(), in[2].data(), in[3].data(), got.data(),
                            128);
        dr::Cubic_C(in[0].data(), in[1].data(), in[2].data(), in[3].data(), want.data(), 128);
        EXPECT_EQ(got, want);
        dr::Current().fiveTap(in[0].data(), in[1].data(), in[2].data(), in[3].data(), in[4].data(),
                              got.data(), 128);
        dr::FiveTap_C(in[0].data(), in[1].data(), in[2].data(), in[3].data(), in[4].data(),
                      want.data(), 128);
        EXPECT_EQ(got, want);
    });
}

TEST(DeinterlaceRows, MediansPickTheMiddleValue) {
    // a, b, c, d and the median of nine values with 0 and 255 among them.
    const uint8_t cases[][5] = {
        {0, 0, 0, 0, 0},         {255, 255, 255, 255, 255}, {10, 20, 30, 40, 20},
        {200, 0, 100, 100, 100}, {0, 255, 0, 255, 128},     {255, 0, 0, 0, 0},
        {50, 60, 255, 255, 60},
    };
    for (const auto& c : cases) {
        uint8_t out = 0;
        dr::Median9_C(&c[0], &c[1], &c[2], &c[3], &out, 1);
        EXPECT_EQ(out, c[4]) << int(c[0]) << " " << int(c[1]) << " " << int(c[2]) << " "
                             << int(c[3]);
    }
    const uint8_t a = 9, b = 200, c = 70;
    uint8_t out = 0;
    dr::Median3_C(&a, &b, &c, &out, 1);
    EXPECT_EQ(out, 70);
    dr::Median3_C(&c, &a, &b, &out, 1);
    EXPECT_EQ(out, 70);
}

// Every pair of colour byte and alpha, through both multiplications, on every target.
TEST(PremultiplyRows, EveryColourAndAlphaEqualsPlainAndTheFormula) {
    const int32_t* recip = stdfx::GetTables()->GetDiv24();
    ASSERT_NE(recip, nullptr);
    const int32_t n = 65536;
    std::vector<uint8_t> src(size_t(n) * 4);
    for (int32_t i = 0; i < n; ++i) {
        src[size_t(i) * 4 + 0] = uint8_t(i);
        src[size_t(i) * 4 + 1] = uint8_t(255 - (i & 255));
        src[size_t(i) * 4 + 2] = uint8_t(i * 7);
        src[size_t(i) * 4 + 3] = uint8_t(i >> 8);
    }
    std::vector<uint8_t> pre = src, un = src;
    pr::Premultiply_C(pre.data(), n);
    pr::Unpremultiply_C(un.data(), n, recip);
    for (int32_t i = 0; i < n; ++i) {
        const int c = src[size_t(i) * 4], a = src[size_t(i) * 4 + 3];
        // Rounded c a / 255, and c 255 / a held to 255.
        ASSERT_EQ(pre[size_t(i) * 4], (c * a + 127) / 255) << c << " " << a;
        ASSERT_EQ(pre[size_t(i) * 4 + 3], a);
        const int expect = a ? std::min(255, c * 255 / a) : 0;
        ASSERT_LE(std::abs(un[size_t(i) * 4] - expect), 1) << c << " " << a;
    }
    kelptest::ForEachSimdTarget([&](int) {
        for (size_t start : {0, 1, 2}) {
            kelptest::GuardedBuffer buf(src.size() + start);
            std::memcpy(buf.data() + start, src.data(), src.size());
            pr::Current().premultiply(buf.data() + start, n);
            ASSERT_EQ(std::memcmp(buf.data() + start, pre.data(), pre.size()), 0);
            std::memcpy(buf.data() + start, src.data(), src.size());
            pr::Current().unpremultiply(buf.data() + start, n, recip);
            ASSERT_EQ(std::memcmp(buf.data() + start, un.data(), un.size()), 0);
        }
        std::mt19937 rng(3);
        for (int32_t len : kLengths) {
            kelptest::GuardedBuffer buf(size_t(len) * 4);
            buf.Random(rng);
            std::vector<uint8_t> orig = buf.Copy(), want = orig;
            pr::Premultiply_C(want.data(), len);
            pr::Current().premultiply(buf.data(), len);
            ASSERT_EQ(buf.Copy(), want) << len;
            want = orig;
            std::memcpy(buf.data(), orig.data(), orig.size());
            pr::Unpremultiply_C(want.data(), len, recip);
            pr::Current().unpremultiply(buf.data(), len, recip);
            ASSERT_EQ(buf.Copy(), want) << len;
        }
    });
}

// 4:2:2 rows with their alpha plane rows, both byte orders, odd and even pixel counts.
TEST(PremultiplyRows, FourTwoTwoEqualsPlainAtEveryLength) {
    std::mt19937 rng(8);
    const int32_t* recip = stdfx::GetTables()->GetDiv24();
    kelptest::ForEachSimdTarget([&](int) {
        for (bool uyvy : {false, true})
            for (int32_t len : kLengths) {
                const size_t bytes = size_t((len + 1) / 2) * 4;
                kelptest::GuardedBuffer row(bytes), alpha(static_cast<size_t>(len));
                row.Random(rng);
                alpha.Random(rng);
                const std::vector<uint8_t> orig = row.Copy();
                std::vector<uint8_t> want = orig;
                pr::Premultiply422_C(want.data(), alpha.data(), len, uyvy);
                pr::Current().premultiply422(row.data(), alpha.data(), len, uyvy);
                ASSERT_EQ(row.Copy(), want) << len << " uyvy " << uyvy;
                std::memcpy(row.data(), orig.data(), bytes);
                want = orig;
                pr::Unpremultiply422_C(want.data(), alpha.data(), len, uyvy, recip);
                pr::Current().unpremultiply422(row.data(), alpha.data(), len, uyvy, recip);
                ASSERT_EQ(row.Copy(), want) << len << " uyvy " << uyvy;
            }
    });
}

// The blend in bytes over every triple of bytes (a, b, c) on every target.
TEST(DeinterlaceRows, BlendEqualsPlainForEveryTriple) {
    const int32_t n = 65536;
    std::vector<uint8_t> a(n), b(n), c(n), want(n), got(n);
    for (int32_t i = 0; i < n; ++i) {
        a[size_t(i)] = uint8_t(i);
        b[size_t(i)] = uint8_t(i >> 8);
    }
    kelptest::ForEachSimdTarget([&](int) {
        for (int v = 0; v < 256; ++v) {
            std::fill(c.begin(), c.end(), uint8_t(v));
            dr::Blend_C(a.data(), c.data(), b.data(), want.data(), n);
            dr::Current().blend(a.data(), c.data(), b.data(), got.data(), n);
            ASSERT_EQ(got, want) << "c " << v << " " << dr::Current().name;
        }
    });
}

// The cubic depends on its four bytes through the sums a + b and d + e: every pair of
// sums, at an even and at an odd byte of each 16-bit lane, on every target.
TEST(DeinterlaceRows, CubicEqualsPlainForEveryPairOfSums) {
    const int32_t sums = 511 * 511, n = 2 * sums;
    std::vector<uint8_t> d(n), a(n), b(n), e(n), want(n), got(n);
    for (int32_t k = 0; k < sums; ++k) {
        const int near = k % 511, far = k / 511;
        for (int32_t j = 2 * k; j < 2 * k + 2; ++j) {
            a[size_t(j)] = uint8_t(std::min(near, 255));
            b[size_t(j)] = uint8_t(near - std::min(near, 255));
            d[size_t(j)] = uint8_t(std::min(far, 255));
            e[size_t(j)] = uint8_t(far - std::min(far, 255));
        }
    }
    dr::Cubic_C(d.data(), a.data(), b.data(), e.data(), want.data(), n);
    kelptest::ForEachSimdTarget([&](int) {
        dr::Current().cubic(d.data(), a.data(), b.data(), e.data(), got.data(), n);
        ASSERT_EQ(got, want) << dr::Current().name;
    });
}

// 4:2:2 rows over every pair of colour byte and alpha, for the luma of both pixels of a
// pair and for the chroma, in both byte orders, on every target.
TEST(PremultiplyRows, FourTwoTwoEqualsPlainForEveryColourAndAlpha) {
    const int32_t* recip = stdfx::GetTables()->GetDiv24();
    ASSERT_NE(recip, nullptr);
    const int32_t pairs = 65536, pixels = 2 * pairs;
    std::vector<uint8_t> row(size_t(pairs) * 4), alpha(static_cast<size_t>(pixels));
    for (int32_t k = 0; k < pairs; ++k) {
        const int c = k & 255, a = k >> 8;
        row[size_t(k) * 4 + 0] = uint8_t(c);
        row[size_t(k) * 4 + 1] = uint8_t(255 - c);
        row[size_t(k) * 4 + 2] = uint8_t(c ^ 0x5A);
        row[size_t(k) * 4 + 3] = uint8_t(c * 7);
        alpha[size_t(k) * 2] = uint8_t(a);
        alpha[size_t(k) * 2 + 1] = uint8_t(a * 3 + 1); // every alpha once for each c
    }
    for (bool uyvy : {false, true}) {
        std::vector<uint8_t> pre = row, un = row;
        pr::Premultiply422_C(pre.data(), alpha.data(), pixels, uyvy);
        pr::Unpremultiply422_C(un.data(), alpha.data(), pixels, uyvy, recip);
        kelptest::ForEachSimdTarget([&](int) {
            std::vector<uint8_t> got = row;
            pr::Current().premultiply422(got.data(), alpha.data(), pixels, uyvy);
            ASSERT_EQ(got, pre) << pr::Current().name << " uyvy " << uyvy;
            got = row;
            pr::Current().unpremultiply422(got.data(), alpha.data(), pixels, uyvy, recip);
            ASSERT_EQ(got, un) << pr::Current().name << " uyvy " << uyvy;
        });
    }
}
