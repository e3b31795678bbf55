// The vector forms of the nearest row give the plain loop's bytes on every target: for
// enlarging, shrinking and arbitrary lookups, at lengths around each block size, at
// unaligned starts of source and target, with buffers that end at an unreadable page,
// and with a plan made for another alignment than the row's.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "guardedbuffer.h"
#include "simdtargets.h"
#include "stdfx2d/nearestrows.h"

using namespace stdfx2d::nearestrows;
using kelptest::GuardedBuffer;

namespace {

const int32_t kLengths[] = {1, 3, 7, 8, 9, 15, 16, 17, 31, 33, 63, 65, 1921};

// Lookups of `count` target pixels over `srcPixels` source pixels.
enum class Kind { kSpread, kRandom, kOne, kLastPixels };

std::vector<int32_t> Lookup(Kind kind, int32_t count, int32_t srcPixels, std::mt19937& rng) {
    std::vector<int32_t> l(static_cast<size_t>(count));
    for (int32_t x = 0; x < count; ++x) {
        switch (kind) {
        case Kind::kSpread: // the transform's case: nondecreasing, evenly spread
            l[size_t(x)] = int32_t(int64_t(x) * srcPixels / count);
            break;
        case Kind::kRandom:
            l[size_t(x)] = int32_t(rng() % uint32_t(srcPixels));
            break;
        case Kind::kOne:
            l[size_t(x)] = srcPixels / 2;
            break;
        case Kind::kLastPixels: // all from the row's end: the vector load must stay inside
            l[size_t(x)] = srcPixels - 1 - int32_t(rng() % uint32_t(std::min(srcPixels, 3)));
            break;
        }
    }
    return l;
}

TEST(Fx2dNearestRows, EveryTargetGivesThePlainBytes) {
    std::mt19937 rng(15);
    const Kind kinds[] = {Kind::kSpread, Kind::kRandom, Kind::kOne, Kind::kLastPixels};
    kelptest::ForEachSimdTarget([&](int target) {
        const Kernels& k = Current();
        EXPECT_STREQ(k.name, kelp::SimdTargetName(target));
        for (int32_t len : kLengths)
            for (double scale : {8.0, 2.0, 1.5, 1.0, 0.5, 0.3})
                for (Kind kind : kinds)
                    for (int32_t start : {0, 1, 4, 6}) {
                        const int32_t srcPixels = std::max(1, int32_t(len / scale));
                        const std::vector<int32_t> lookup = Lookup(kind, len, srcPixels, rng);
                        GuardedBuffer src(size_t(srcPixels) * 4 + size_t(start));
                        src.Random(rng);
                        const uint8_t* s = src.data() + start;
                        GuardedBuffer got(size_t(len) * 4 + size_t(start));
                        got.Fill(0x5A);
                        uint8_t* out = got.data() + start;
                        std::vector<uint8_t> want(size_t(len) * 4);
                        NearestRow_C(want.data(), s, lookup.data(), len);
                        // A plan for this row's alignment, and one for another.
                        for (int32_t planAt : {0, 4}) {
                            NearestPlan plan;
                            BuildNearestPlan(plan, lookup.data(), len, srcPixels, k.block,
                                             out + planAt);
                            k.row(out, s, lookup.data(), plan, len);
                            ASSERT_EQ(std::vector<uint8_t>(out, out + 4 * len), want)
                                << "length " << len << " scale " << scale << " kind " << int(kind)
                                << " start " << start << " plan at " << planAt;
                            ASSERT_TRUE(
                                std::all_of(got.data(), out, [](uint8_t b) { return b == 0x5A; }));
                        }
                    }
    });
}

TEST(Fx2dNearestRows, PlanTakesOnlyBlocksThatOneLoadHolds) {
    const int32_t block = 8;
    // Enlarging by 2 within a row of 64 pixels: every block from one load; the one at the
    // row's end loads the row's last vector.
    std::vector<int32_t> up(64);
    for (int32_t x = 0; x < 64; ++x)
        up[size_t(x)] = (x + 60) / 2;
    NearestPlan plan;
    BuildNearestPlan(plan, up.data(), 64, 64, block, nullptr);
    EXPECT_EQ(plan.head, 0);
    ASSERT_EQ(plan.base.size(), 8u);
    for (size_t b = 0; b < plan.base.size(); ++b) {
        EXPECT_GE(plan.base[b], 0);
        EXPECT_LE(plan.base[b] + block, 64);
        for (int32_t i = 0; i < block; ++i) {
            const int32_t r = plan.rel[b * block + size_t(i)];
            EXPECT_TRUE(r >= 0 && r < block);
            EXPECT_EQ(plan.base[b] + r, up[b * block + size_t(i)]);
        }
    }
    // Shrinking by 3: no block fits one load; the head brings the stores onto vectors.
    std::vector<int32_t> down(40);
    for (int32_t x = 0; x < 40; ++x)
        down[size_t(x)] = 3 * x;
    BuildNearestPlan(plan, down.data(), 40, 120, block, reinterpret_cast<void*>(uintptr_t(8)));
    EXPECT_EQ(plan.head, 6);
    EXPECT_EQ(plan.base.size(), 4u);
    EXPECT_TRUE(std::all_of(plan.base.begin(), plan.base.end(), [](int32_t b) { return b < 0; }));
    // A source narrower than a vector: no blocks at all.
    BuildNearestPlan(plan, up.data(), 64, block - 1, block, nullptr);
    EXPECT_TRUE(plan.base.empty());
}

} // namespace
