// The scalers' row kernels on every vector target against the plain loops.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "convert/scalerows.h"
#include "convert/scalers.h"
#include "guardedbuffer.h"
#include "simdtargets.h"

using namespace kelp;
using namespace kelp::scalerows;
using kelptest::GuardedBuffer;

TEST(ScaleRows, BlendEqualsPlainForEveryWeightAndLength) {
    std::mt19937 rng(11);
    const size_t lengths[] = {1, 3, 7, 8, 9, 15, 16, 17, 31, 33, 63, 65, 5760};
    // Every weight a table can hold, the edges of the byte range among random bytes.
    std::vector<int32_t> weights;
    for (int32_t w = 0; w < 2048; w += 7)
        weights.push_back(w);
    weights.push_back(2047);
    kelptest::ForEachSimdTarget([&](int target) {
        EXPECT_STREQ(Current().name, SimdTargetName(target));
        for (size_t len : lengths) {
            GuardedBuffer cur(len), next(len), dst(len);
            cur.Random(rng);
            next.Random(rng);
            cur.data()[0] = 0;
            next.data()[0] = 255;
            if (len > 1) {
                cur.data()[len - 1] = 255;
                next.data()[len - 1] = 0;
            }
            std::vector<uint8_t> want(len);
            for (int32_t w : weights) {
                BlendRow_C(cur.data(), next.data(), want.data(), len, w, 2048 - w);
                Current().blend(cur.data(), next.data(), dst.data(), len, w, 2048 - w);
                ASSERT_EQ(dst.Copy(), want) << Current().name << " " << len << " " << w;
            }
        }
    });
}

TEST(ScaleRows, BlendCoversEveryPairOfBytes) {
    // All 65,536 pairs at a few weights, through the widest target.
    std::vector<uint8_t> cur(65536), next(65536), want(65536), got(65536);
    for (size_t i = 0; i < 65536; ++i) {
        cur[i] = uint8_t(i);
        next[i] = uint8_t(i >> 8);
    }
    kelptest::ForEachSimdTarget([&](int) {
        for (int32_t w : {1, 682, 1024, 1365, 2047}) {
            BlendRow_C(cur.data(), next.data(), want.data(), 65536, w, 2048 - w);
            Current().blend(cur.data(), next.data(), got.data(), 65536, w, 2048 - w);
            ASSERT_EQ(got, want) << Current().name << " " << w;
        }
    });
}

namespace {

// Column counts of real scales from 0.1 to 8 times, and widths around each target's block.
struct Scale {
    int32_t src, dst;
};
std::vector<Scale> Scales() {
    std::vector<Scale> out;
    for (int32_t src : {6, 7, 16, 33, 101, 641, 1920})
        for (double f : {0.1, 0.37, 0.5, 0.667, 1.0, 1.5, 2.3, 8.0}) {
            const int32_t dst = int32_t(src * f + 0.5);
            out.push_back(Scale{src, dst < 1 ? 1 : dst});
        }
    for (int32_t dst : {1, 3, 5, 7, 9, 15, 17, 33, 65})
        out.push_back(Scale{40, dst});
    return out;
}

std::vector<LineWeight> Columns(const Scale& s, int bpp) {
    std::vector<LineWeight> cols(size_t(s.dst));
    EXPECT_TRUE(BuildWeights(cols.data(), size_t(bpp), uint32_t(s.src), uint32_t(s.dst), false));
    return cols;
}

// A source row that ends at an unreadable page, starting `start` bytes into its buffer.
struct Row {
    Row(std::mt19937& rng, size_t bytes, size_t start) : buf(bytes + start), p(buf.data() + start) {
        buf.Random(rng);
        p[0] = 0;
        p[bytes - 1] = 255;
    }
    GuardedBuffer buf;
    uint8_t* p;
};

} // namespace

TEST(ScaleRows, HorzSumsEqualPlainAtRealScalesAndUnalignedStarts) {
    std::mt19937 rng(5);
    kelptest::ForEachSimdTarget([&](int target) {
        EXPECT_STREQ(Current().name, SimdTargetName(target));
        for (int bpp : {3, 4})
            for (const Scale& s : Scales()) {
                const std::vector<LineWeight> cols = Columns(s, bpp);
                const size_t last = size_t(s.src - 1) * size_t(bpp);
                ColumnPlan plan;
                const bool planned = BuildColumnPlan(plan, cols.data(), s.dst, bpp, last);
                EXPECT_EQ(planned, size_t(s.src * bpp) >= 16) << s.src;
                const size_t n = size_t(s.dst) * size_t(bpp);
                for (size_t start = 0; start < 4; ++start) {
                    Row row(rng, size_t(s.src) * size_t(bpp), start);
                    std::vector<uint32_t> want(n);
                    HorzSums_C(row.p, want.data(), plan);
                    GuardedBuffer out(4 * n);
                    uint32_t* got = reinterpret_cast<uint32_t*>(out.data());
                    Current().horzSums(row.p, got, plan);
                    ASSERT_EQ(std::vector<uint32_t>(got, got + n), want)
                        << Current().name << " " << bpp << " " << s.src << "->" << s.dst;
                }
            }
    });
}

TEST(ScaleRows, VertSumsEqualPlainForAnySumsAndWeights) {
    std::mt19937 rng(6);
    const size_t lengths[] = {1, 3, 7, 8, 9, 15, 16, 17, 31, 33, 63, 65, 3841};
    struct Pair {
        int32_t next, cur;
    } pairs[] = {{0, 2048}, {1, 2047}, {1024, 1024}, {2047, 1}, {700, 900}, {-5, 77}};
    kelptest::ForEachSimdTarget([&](int) {
        for (size_t len : lengths) {
            // Sums of the route's range and, past it, any 32-bit values: both wrap alike.
            for (bool wide : {false, true}) {
                GuardedBuffer top(4 * len + 4), bottom(4 * len + 4), dst(len);
                uint32_t* t = reinterpret_cast<uint32_t*>(top.data() + 4);
                uint32_t* b = reinterpret_cast<uint32_t*>(bottom.data() + 4);
                for (size_t i = 0; i < len; ++i) {
                    t[i] = wide ? uint32_t(rng()) : uint32_t(rng() % (255 * 2048 + 1));
                    b[i] = wide ? uint32_t(rng()) : uint32_t(rng() % (255 * 2048 + 1));
                }
                t[0] = 255 * 2048;
                b[0] = 0;
                std::vector<uint8_t> want(len);
                for (const Pair& w : pairs) {
                    VertSums_C(t, b, want.data(), len, w.next, w.cur);
                    Current().vertSums(t, b, dst.data(), len, w.next, w.cur);
                    ASSERT_EQ(dst.Copy(), want) << Current().name << " " << len << " " << w.next;
                }
            }
        }
    });
}

TEST(ScaleRows, TheTwoPassesGiveTheBytesOfThePlainRows) {
    std::mt19937 rng(7);
    kelptest::ForEachSimdTarget([&](int) {
        for (int bpp : {3, 4})
            for (const Scale& s : Scales()) {
                const std::vector<LineWeight> cols = Columns(s, bpp);
                const size_t last = size_t(s.src - 1) * size_t(bpp);
                const size_t bytes = size_t(s.src) * size_t(bpp), n = size_t(s.dst) * size_t(bpp);
                ColumnPlan plan;
                BuildColumnPlan(plan, cols.data(), s.dst, bpp, last);
                Row cur(rng, bytes, 1), next(rng, bytes, 2);
                std::vector<uint32_t> top(n), bottom(n);
                Current().horzSums(cur.p, top.data(), plan);
                Current().horzSums(next.p, bottom.data(), plan);
                std::vector<uint8_t> want(n), got(n);
                HorzRow_C(cur.p, want.data(), cols.data(), s.dst, bpp, last);
                Current().vertSums(top.data(), top.data(), got.data(), n, 0, 2048);
                ASSERT_EQ(got, want) << Current().name << " horz " << s.src << "->" << s.dst;
                // Both passes at once, into a guarded line: the top sums from the source
                // line or from its sums, the bottom ones kept or not.
                GuardedBuffer line(n), keep(4 * n);
                uint32_t* kept = reinterpret_cast<uint32_t*>(keep.data());
                struct Way {
                    bool fromSums, keep;
                } ways[] = {{false, false}, {true, false}, {false, true}, {true, true}};
                auto check = [&](int32_t wNext, int32_t wCur, const char* what) {
                    for (const Way& way : ways) {
                        keep.Fill(0);
                        Current().line(way.fromSums ? top.data() : nullptr, cur.p, next.p,
                                       line.data(), way.keep ? kept : nullptr, plan, wNext, wCur);
                        ASSERT_EQ(line.Copy(), want)
                            << Current().name << " " << what << " " << wNext << " " << way.fromSums;
                        if (way.keep) {
                            ASSERT_EQ(std::vector<uint32_t>(kept, kept + n), bottom) << "kept";
                        }
                    }
                };
                check(0, 2048, "one pass, top only");
                for (int32_t w : {0, 1, 683, 1024, 2047}) {
                    BilinearRow_C(cur.p, next.p, want.data(), cols.data(), s.dst, bpp, last, w,
                                  2048 - w);
                    Current().vertSums(top.data(), bottom.data(), got.data(), n, w, 2048 - w);
                    ASSERT_EQ(got, want) << Current().name << " " << s.src << "->" << s.dst;
                    check(w, 2048 - w, "one pass");
                }
                // Weights of any sum: the plain line's bytes.
                for (int32_t w : {700, -5}) {
                    Line_C(nullptr, cur.p, next.p, want.data(), nullptr, plan, w, 900);
                    check(w, 900, "any weights");
                }
            }
    });
}

TEST(ScaleRows, ColumnPlansRefuseWhatTheRouteCannotReproduce) {
    std::vector<LineWeight> cols(8, LineWeight{3, 1024, 1024});
    cols[0] = LineWeight{0, 0, 2048};
    ColumnPlan plan;
    struct Case {
        const char* what;
        int bpp;
        size_t last;
        LineWeight middle;
        bool ok;
    } cases[] = {
        {"fine", 3, 30, {3, 1024, 1024}, true},
        {"a row of 15 bytes", 3, 12, {3, 1024, 1024}, false},
        {"16 bits", 2, 30, {3, 1024, 1024}, false},
        {"weights above 2048 together", 3, 30, {3, 1025, 1024}, false},
        {"a negative weight", 4, 30, {3, -1, 2049}, false},
        {"an offset past the last pixel", 3, 30, {33, 0, 2048}, false},
    };
    for (const Case& c : cases) {
        cols[3] = c.middle;
        EXPECT_EQ(BuildColumnPlan(plan, cols.data(), 8, c.bpp, c.last), c.ok) << c.what;
        EXPECT_EQ(plan.quads != 0, c.ok) << c.what;
    }
}

namespace {

// The nearest-neighbour columns of a scale: x * src / dst, or random ones.
std::vector<int32_t> Picks(std::mt19937& rng, int32_t src, int32_t dst, bool random) {
    std::vector<int32_t> cols(static_cast<size_t>(dst));
    for (int32_t x = 0; x < dst; ++x)
        cols[size_t(x)] = random ? int32_t(rng() % uint32_t(src)) : int32_t(int64_t(x) * src / dst);
    return cols;
}

} // namespace

TEST(ScaleRows, PlannedPickEqualsPlainAtRealScales) {
    std::mt19937 rng(8);
    size_t planned = 0;
    kelptest::ForEachSimdTarget([&](int) {
        for (int bpp : {1, 3, 4})
            for (const Scale& s : Scales())
                for (bool random : {false, true}) {
                    const std::vector<int32_t> cols = Picks(rng, s.src, s.dst, random);
                    PickPlan plan;
                    planned += BuildPickPlan(plan, cols.data(), s.dst, bpp);
                    const size_t n = size_t(s.dst) * size_t(bpp);
                    // The row read ends with the largest column's pixel.
                    const int32_t top = *std::max_element(cols.begin(), cols.end());
                    Row row(rng, size_t(top + 1) * size_t(bpp), size_t(s.dst) % 4);
                    std::vector<uint8_t> want(n);
                    PickRow_C(row.p, want.data(), cols.data(), s.dst, bpp);
                    GuardedBuffer out(n);
                    out.Fill(0xEE);
                    Current().pickPlanned(row.p, out.data(), plan);
                    ASSERT_EQ(out.Copy(), want) << Current().name << " " << bpp << " " << s.src
                                                << "->" << s.dst << (random ? " random" : "");
                }
    });
    EXPECT_GT(planned, 0u);
    // A negative column is refused.
    const int32_t bad[] = {0, 5, -1, 7, 8, 9};
    PickPlan plan;
    EXPECT_FALSE(BuildPickPlan(plan, bad, 6, 4));
    EXPECT_EQ(plan.units, 0u);
}
