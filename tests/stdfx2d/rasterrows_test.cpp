// The vector forms of the raster row kernels give the plain loops' bytes on every
// target: at lengths around each block size, at unaligned starts, with buffers that end
// at an unreadable page, and over the whole range of the composition's bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "fx2dtest.h"
#include "guardedbuffer.h"
#include "simdtargets.h"
#include "stdfx2d/fx2d.h"
#include "stdfx2d/rasterrows.h"

using namespace stdfx2d;
using namespace stdfx2d::rasterrows;
using kelptest::GuardedBuffer;

namespace {

const int32_t kLengths[] = {1, 3, 7, 8, 9, 15, 16, 17, 31, 33, 63, 65, 1921};

TEST(Fx2dRows, VerticalPassEqualsPlainAtEveryLengthAndStart) {
    std::mt19937 rng(1);
    kelptest::ForEachSimdTarget([&](int target) {
        EXPECT_STREQ(Current().name, kelp::SimdTargetName(target));
        for (int32_t len : kLengths)
            for (int32_t x0 : {0, 1, 3}) {
                const int32_t x1 = x0 + len, taps = 1 + int32_t(rng() % 7);
                std::vector<std::unique_ptr<GuardedBuffer>> rows;
                std::vector<const uint8_t*> ptrs;
                std::vector<int32_t> weights;
                for (int32_t k = 0; k < taps; ++k) {
                    rows.emplace_back(new GuardedBuffer(size_t(4 * x1)));
                    rows.back()->Random(rng);
                    ptrs.push_back(rows.back()->data());
                    weights.push_back(int32_t(rng() % 17000) - 600);
                }
                const int32_t seed[4] = {32, 8192 + 16 * 64, 1000, -5};
                GuardedBuffer got(size_t(16 * x1)), want(size_t(16 * x1));
                got.Fill(0x5A);
                want.Fill(0x5A);
                Vertical_C(reinterpret_cast<int32_t*>(want.data()), ptrs.data(), weights.data(),
                           taps, seed, x0, x1);
                Current().vertical(reinterpret_cast<int32_t*>(got.data()), ptrs.data(),
                                   weights.data(), taps, seed, x0, x1);
                ASSERT_EQ(got.Copy(), want.Copy()) << "length " << len << " start " << x0;
            }
    });
}

TEST(Fx2dRows, HorizontalPassEqualsPlainForBothWeightScales) {
    std::mt19937 rng(2);
    const int32_t srcPixels = 97;
    std::vector<int32_t> work(size_t(srcPixels) * 4);
    kelptest::ForEachSimdTarget([&](int) {
        for (int32_t len : kLengths)
            for (int32_t shift : {6, 14})
                for (bool narrow : {true, false})
                    for (int32_t luma : {0, 1}) {
                        const int32_t full = 1 << shift;
                        for (int32_t& w : work)
                            w = narrow ? int32_t(rng() % (256u * full)) - full
                                       : int32_t(rng() % 300) - 20;
                        std::vector<Fx2dTapList> lists(static_cast<size_t>(len));
                        std::vector<Fx2dTap> taps(static_cast<size_t>(len) * 9);
                        for (int32_t x = 0; x < len; ++x) {
                            Fx2dTapList& l = lists[size_t(x)];
                            l.count = int32_t(rng() % 9);
                            l.taps = taps.data() + 9 * x;
                            l.biasLuma = rng() % 3 ? 0 : int32_t(rng() % (16u * full));
                            l.biasChroma = l.biasLuma ? int32_t(rng() % (128u * full)) : 0;
                            for (int32_t k = 0; k < l.count; ++k)
                                l.taps[k] = {int32_t(rng() % srcPixels),
                                             int32_t(rng() % (full + full / 2)) - full / 4};
                        }
                        GuardedBuffer got(size_t(4 * len)), want(size_t(4 * len));
                        Horizontal_C(want.data(), work.data(), lists.data(), len, shift, full / 2,
                                     narrow, luma);
                        Current().horizontal(got.data(), work.data(), lists.data(), len, shift,
                                             full / 2, narrow, luma);
                        ASSERT_EQ(got.Copy(), want.Copy())
                            << "length " << len << " shift " << shift;
                    }
    });
}

// Random weights and seeds for one row list whose sums fit the byte work row.
struct FittingRow {
    std::vector<int32_t> weights;
    int32_t seed[4];
};
FittingRow MakeFittingRow(std::mt19937& rng, int32_t taps, int32_t shift) {
    const int32_t full = 1 << shift;
    for (;;) {
        FittingRow r;
        Fx2dTapList l{taps, nullptr, 0, 0};
        std::vector<Fx2dTap> t(static_cast<size_t>(taps));
        int32_t left = full;
        for (int32_t k = 0; k < taps; ++k) {
            // Mostly shares of the unit, now and then a small negative lobe.
            const int32_t w = rng() % 5 ? int32_t(rng() % uint32_t(left + 1))
                                        : -int32_t(rng() % uint32_t(full / 8 + 1));
            left -= std::max(w, 0);
            r.weights.push_back(w);
            t[size_t(k)] = {0, w};
        }
        for (int c = 0; c < 4; ++c)
            r.seed[c] = int32_t(rng() % uint32_t(full / 2 + 1)) + (rng() % 4 ? 0 : full * 4);
        l.taps = t.data();
        if (RowFitsBytes(l, r.seed, shift)) return r;
    }
}

TEST(Fx2dRows, ByteVerticalPassEqualsPlainForBothShifts) {
    std::mt19937 rng(11);
    kelptest::ForEachSimdTarget([&](int target) {
        EXPECT_STREQ(Current().name, kelp::SimdTargetName(target));
        for (int32_t shift : {6, 14})
            for (int32_t len : kLengths)
                for (int32_t x0 : {0, 1, 3}) {
                    const int32_t x1 = x0 + len, taps = 1 + int32_t(rng() % 6);
                    const FittingRow f = MakeFittingRow(rng, taps, shift);
                    std::vector<std::unique_ptr<GuardedBuffer>> rows;
                    std::vector<const uint8_t*> ptrs;
                    for (int32_t k = 0; k < taps; ++k) {
                        rows.emplace_back(new GuardedBuffer(size_t(4 * x1)));
                        rows.back()->Random(rng);
                        if (k == 0 && len == 65) rows.back()->Fill(255); // the largest sums
                        ptrs.push_back(rows.back()->data());
                    }
                    // The definition: the 32-bit work values, shifted.
                    std::vector<int32_t> work(size_t(4 * x1));
                    Vertical_C(work.data(), ptrs.data(), f.weights.data(), taps, f.seed, x0, x1);
                    GuardedBuffer got(size_t(4 * x1)), want(size_t(4 * x1));
                    got.Fill(0x5A);
                    want.Fill(0x5A);
                    for (int32_t j = 4 * x0; j < 4 * x1; ++j) {
                        ASSERT_GE(work[size_t(j)] >> shift, 0);
                        ASSERT_LE(work[size_t(j)] >> shift, 255);
                        want.data()[j] = uint8_t(work[size_t(j)] >> shift);
                    }
                    Current().verticalBytes(got.data(), ptrs.data(), f.weights.data(), taps, f.seed,
                                            x0, x1, shift);
                    ASSERT_EQ(got.Copy(), want.Copy())
                        << "shift " << shift << " length " << len << " start " << x0;
                }
    });
}

TEST(Fx2dRows, RowFitsBytesBoundsTheSums) {
    struct Case {
        std::vector<int32_t> weights;
        int32_t seed, shift;
        bool fits;
    };
    const Case kCases[] = {
        {{16, 32, 16}, 32, 6, true},          // 32 + 255 * 64 = 16352
        {{64}, 63, 6, true},                  // 16383, the largest
        {{64}, 64, 6, false},                 // 16384 would be byte 256
        {{70, -6}, 32, 6, false},             // 255 * 70 overshoots
        {{-1, 63}, 255, 6, true},             // 255 - 255 = 0 .. 255 + 255 * 63 = 16320
        {{-2, 64}, 255, 6, false},            // 255 - 510 below 0
        {{4096, 8192, 4096}, 8192, 14, true}, // the soft mode's unit
        {{16384}, 16384, 14, false},
        {{10}, -1, 6, false}, // a negative seed
    };
    for (const Case& c : kCases) {
        std::vector<Fx2dTap> taps;
        for (int32_t w : c.weights)
            taps.push_back({0, w});
        const Fx2dTapList l{int32_t(taps.size()), taps.data(), 0, 0};
        const int32_t seed[4] = {c.seed, c.seed, c.seed, c.seed};
        EXPECT_EQ(RowFitsBytes(l, seed, c.shift), c.fits) << c.seed << " " << c.shift;
    }
}

TEST(Fx2dRows, ByteHorizontalPassEqualsPlainPass) {
    std::mt19937 rng(12);
    const int32_t srcPixels = 101;
    kelptest::ForEachSimdTarget([&](int) {
        for (int32_t shift : {6, 14})
            for (int32_t len : kLengths)
                for (int32_t luma : {0, 1}) {
                    const int32_t full = 1 << shift;
                    std::vector<Fx2dTapList> lists(static_cast<size_t>(len));
                    std::vector<Fx2dTap> taps(size_t(len) * 12);
                    for (int32_t x = 0; x < len; ++x) {
                        Fx2dTapList& l = lists[size_t(x)];
                        l.count = int32_t(rng() % 12);
                        l.taps = taps.data() + 12 * x;
                        l.biasLuma = rng() % 3 ? 0 : int32_t(rng() % (16u * full));
                        l.biasChroma = l.biasLuma ? int32_t(rng() % (128u * full)) : 0;
                        // Taps near one another, in any order, indices repeated (mirroring).
                        // Odd lengths keep to one group of four, even ones reach three.
                        const int32_t reach = 1 + int32_t(rng() % (len % 2 ? 4 : 9));
                        const int32_t first = int32_t(rng() % uint32_t(srcPixels - reach + 1));
                        for (int32_t k = 0; k < l.count; ++k)
                            l.taps[k] = {first + int32_t(rng() % uint32_t(reach)),
                                         (int32_t(rng() % (full + full / 2)) - full / 4) /
                                             l.count}; // any sum of them fits 16 bits
                    }
                    ColumnPlanStore store;
                    ASSERT_TRUE(
                        store.Build(lists.data(), len, full / 2, luma, Current().columnBlock, 16));
                    // Byte work values and 32-bit ones with the same high part.
                    GuardedBuffer bytes(size_t(4 * store.plan.reach));
                    bytes.Random(rng);
                    std::vector<int32_t> work(size_t(4 * store.plan.reach));
                    for (size_t i = 0; i < work.size(); ++i)
                        work[i] = (int32_t(bytes.data()[i]) << shift) + int32_t(rng() % full);
                    GuardedBuffer got(size_t(4 * len)), want(size_t(4 * len));
                    Horizontal_C(want.data(), work.data(), lists.data(), len, shift, full / 2, true,
                                 luma);
                    Current().horizontalBytes(got.data(), bytes.data(), store.plan, shift);
                    ASSERT_EQ(got.Copy(), want.Copy()) << "length " << len << " shift " << shift;
                }
    });
}

TEST(Fx2dRows, ColumnPlanRefusesWhatItCannotHold) {
    Fx2dTap far[2] = {{0, 32}, {70, 32}};        // 71 pixels apart: 18 groups
    Fx2dTap heavy[2] = {{3, 20000}, {3, 20000}}; // one index, 40000: beyond 16 bits
    Fx2dTap fine[3] = {{5, 20000}, {4, -20000}, {6, 64}};
    ColumnPlanStore store;
    const Fx2dTapList a{2, far, 0, 0}, b{2, heavy, 0, 0}, c{3, fine, 0, 0};
    EXPECT_FALSE(store.Build(&a, 1, 32, 0, 1, 16));
    EXPECT_TRUE(store.Build(&a, 1, 32, 0, 1, 18));
    EXPECT_FALSE(store.Build(&b, 1, 32, 0, 1, 16));
    ASSERT_TRUE(store.Build(&c, 1, 32, 0, 2, 16));
    EXPECT_EQ(store.plan.start[0], 4);
    EXPECT_EQ(store.plan.reach, 8);
    EXPECT_EQ(store.plan.Weight(0, 0, 0), -20000);
    EXPECT_EQ(store.plan.Weight(0, 0, 2), 64);
    EXPECT_EQ(store.plan.Weight(0, 0, 3), 0);
}

TEST(Fx2dRows, Spread422AndPack422EqualPlainWithAndWithoutAlpha) {
    std::mt19937 rng(13);
    kelptest::ForEachSimdTarget([&](int) {
        for (int32_t len : kLengths)
            for (bool withAlpha : {true, false}) {
                // Spread: `len` tuples from (len + 1) / 2 pairs and len alpha bytes.
                const int32_t pairs = (len + 1) / 2;
                GuardedBuffer src(size_t(4 * pairs)), alpha(static_cast<size_t>(len));
                src.Random(rng);
                alpha.Random(rng);
                const uint8_t* a = withAlpha ? alpha.data() : nullptr;
                GuardedBuffer got(size_t(4 * len)), want(size_t(4 * len));
                Spread422_C(want.data(), src.data(), a, 200, len);
                Current().spread422(got.data(), src.data(), a, 200, len);
                ASSERT_EQ(got.Copy(), want.Copy()) << "spread, length " << len;

                // Pack: `len` pairs from 2 len tuples, with and without a plane.
                GuardedBuffer tuples(size_t(8 * len));
                tuples.Random(rng);
                GuardedBuffer gotPairs(size_t(4 * len)), wantPairs(size_t(4 * len));
                GuardedBuffer gotPlane(size_t(2 * len)), wantPlane(size_t(2 * len));
                gotPlane.Fill(7);
                wantPlane.Fill(7);
                Pack422_C(wantPairs.data(), withAlpha ? wantPlane.data() : nullptr, tuples.data(),
                          len);
                Current().pack422(gotPairs.data(), withAlpha ? gotPlane.data() : nullptr,
                                  tuples.data(), len);
                ASSERT_EQ(gotPairs.Copy(), wantPairs.Copy()) << "pack, length " << len;
                ASSERT_EQ(gotPlane.Copy(), wantPlane.Copy()) << "pack, length " << len;
            }
    });
}

TEST(Fx2dRows, NearestGatherEqualsPlain) {
    std::mt19937 rng(3);
    const int32_t srcPixels = 53;
    kelptest::ForEachSimdTarget([&](int) {
        for (int32_t len : kLengths)
            for (size_t misalign : {0, 1}) {
                GuardedBuffer src(size_t(4 * srcPixels) + misalign), lookup(size_t(4 * len));
                src.Random(rng);
                int32_t* idx = reinterpret_cast<int32_t*>(lookup.data());
                for (int32_t x = 0; x < len; ++x)
                    idx[x] = int32_t(rng() % srcPixels);
                idx[len - 1] = srcPixels - 1; // the last pixel before the page
                GuardedBuffer got(size_t(4 * len)), want(size_t(4 * len));
                const uint8_t* s = src.data() + misalign;
                Nearest_C(want.data(), s, idx, len);
                Current().nearest(got.data(), s, idx, len);
                ASSERT_EQ(got.Copy(), want.Copy()) << "length " << len;
            }
    });
}

TEST(Fx2dRows, ComposeEqualsPlainOverEveryAlphaAndBackgroundByte) {
    std::mt19937 rng(4);
    // Every pair of background byte and source alpha, each with a random source colour
    // no larger than its alpha (premultiplied) and one that is (out of range, clamped).
    const int32_t pixels = 65536;
    std::vector<uint8_t> s(size_t(pixels) * 4), g(size_t(pixels) * 4);
    for (int32_t i = 0; i < pixels; ++i) {
        const uint8_t a = uint8_t(i >> 8), b = uint8_t(i);
        for (int c = 0; c < 3; ++c) {
            s[4 * size_t(i) + c] = uint8_t(c == 2 ? rng() : rng() % (a + 1u));
            g[4 * size_t(i) + c] = b;
        }
        s[4 * size_t(i) + 3] = a;
        g[4 * size_t(i) + 3] = b;
    }
    std::vector<uint8_t> want(s.size());
    Compose_C(want.data(), s.data(), g.data(), pixels);
    kelptest::ForEachSimdTarget([&](int) {
        std::vector<uint8_t> got(s.size());
        Current().compose(got.data(), s.data(), g.data(), pixels);
        ASSERT_EQ(got, want);
        for (int32_t len : kLengths) {
            GuardedBuffer sb(size_t(4 * len)), gb(size_t(4 * len));
            std::memcpy(sb.data(), s.data() + 4 * 1000, size_t(4 * len));
            std::memcpy(gb.data(), g.data() + 4 * 1000, size_t(4 * len));
            Current().compose(sb.data(), sb.data(), gb.data(), len); // in place
            ASSERT_EQ(sb.Copy(), std::vector<uint8_t>(want.begin() + 4 * 1000,
                                                      want.begin() + 4 * (1000 + len)))
                << "length " << len;
        }
    });
}

TEST(Fx2dRows, ComposeYuvEqualsPlainOverEveryAlphaAndBackgroundByte) {
    std::mt19937 rng(14);
    // Every pair of background byte and source alpha in every channel, source colours
    // random over the whole byte range, for a full-range and a video-range background.
    const int32_t pixels = 65536;
    std::vector<uint8_t> s(size_t(pixels) * 4), g(size_t(pixels) * 4);
    for (int32_t i = 0; i < pixels; ++i) {
        for (int c = 0; c < 3; ++c) {
            s[4 * size_t(i) + c] = uint8_t(rng());
            g[4 * size_t(i) + c] = uint8_t(i);
        }
        s[4 * size_t(i) + 3] = uint8_t(i >> 8);
        g[4 * size_t(i) + 3] = uint8_t(i);
    }
    for (int32_t black : {0, 16}) {
        std::vector<uint8_t> want(s.size());
        ComposeYuv_C(want.data(), s.data(), g.data(), pixels, black);
        kelptest::ForEachSimdTarget([&](int) {
            std::vector<uint8_t> got(s.size());
            Current().composeYuv(got.data(), s.data(), g.data(), pixels, black);
            ASSERT_EQ(got, want) << "black " << black;
            for (int32_t len : kLengths) {
                GuardedBuffer sb(size_t(4 * len)), gb(size_t(4 * len));
                std::memcpy(sb.data(), s.data() + 4 * 3000, size_t(4 * len));
                std::memcpy(gb.data(), g.data() + 4 * 3000, size_t(4 * len));
                Current().composeYuv(sb.data(), sb.data(), gb.data(), len, black); // in place
                ASSERT_EQ(sb.Copy(), std::vector<uint8_t>(want.begin() + 4 * 3000,
                                                          want.begin() + 4 * (3000 + len)))
                    << "length " << len;
            }
        });
    }
}

TEST(Fx2dRows, WholeTransformsOfOddSizesAtGuardPagesEqualPlain) {
    using fx2dtest::Fmt;
    using fx2dtest::Picture;
    std::mt19937 rng(5);
    for (int c = 0; c < 60; ++c) {
        static const Fmt kFormats[] = {Fmt::kRGB, Fmt::k444, Fmt::k422Alpha};
        const Fmt f = kFormats[c % 3];
        const int32_t sw = 1 + 2 * int32_t(rng() % 40), sh = 1 + int32_t(rng() % 30);
        const int32_t tw = 1 + 2 * int32_t(rng() % 50), th = 1 + int32_t(rng() % 40);
        const FX2DPARAM p = fx2dtest::Param(
            0.05 * std::pow(160.0, (rng() % 1000) / 1000.0),
            0.05 * std::pow(160.0, (rng() % 1000) / 1000.0), (int32_t(rng() % 100) - 50) / 100.0,
            (int32_t(rng() % 100) - 50) / 100.0, rng() % 2 ? 0 : (rng() % 100));
        FX2DQUALITY q = fx2dtest::Quality(int(rng() % 3), rng() % 4 ? 0 : 30, 0);
        const int field = int(rng() % 3) - 1;
        const bool bg = rng() % 2;
        Picture s(f, sw, rng() % 2 ? sh : -sh), g(f, tw, th), seedT(f, tw, th);
        s.Random(rng);
        g.Random(rng);
        seedT.Random(rng);
        std::vector<uint8_t> want;
        kelptest::ForEachSimdTarget([&](int target) {
            Picture t(f, tw, th);
            std::memcpy(t.Bits(), seedT.Bits(), t.Size());
            const int r = bg ? Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), g.Header(),
                                    g.Bits(), p, q, field)
                             : Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), p, q, field);
            ASSERT_EQ(r, FX2D_OK);
            if (target == kelp::kSimdPlain)
                want = t.Bytes();
            else
                ASSERT_EQ(t.Bytes(), want) << "case " << c;
        });
    }
}

} // namespace
