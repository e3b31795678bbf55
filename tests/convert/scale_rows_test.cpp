// The scalers' row kernels on every vector target against the plain loops.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "convert/scalerows.h"
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
