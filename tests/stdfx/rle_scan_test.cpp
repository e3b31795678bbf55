// The run scan's vector forms find the plain loop's run ends on every target: runs of
// every length around the vector sizes, at every start, up to an unreadable page; and
// the encoder writes the same stream whichever form it takes.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include <kelp/stdfx.h>

#include "guardedbuffer.h"
#include "runtime/simd.h"
#include "simdtargets.h"
#include "stdfx/rlescan.h"

using namespace stdfx::rlescan;

namespace {

const size_t kLengths[] = {0, 1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 127, 129, 1921};

TEST(RleScan, EveryTargetIsReached) {
    kelptest::ForEachSimdTarget(
        [&](int target) { EXPECT_STREQ(Current().name, kelp::SimdTargetName(target)); });
}

TEST(RleScan, RunEndsEqualThePlainLoopAtEveryStart) {
    std::mt19937 rng(7);
    kelptest::ForEachSimdTarget([&](int) {
        for (size_t run : kLengths) {
            for (uint8_t value : {0, 1, 127, 128, 254, 255}) {
                // A run of `run` bytes from offset 5, then a byte that differs in one
                // bit, then more of the value; the buffer ends at an unreadable page.
                const size_t size = 5 + run + 1 + (rng() % 40);
                kelptest::GuardedBuffer buf(size);
                buf.Fill(value);
                uint8_t* p = buf.data();
                p[0] = uint8_t(value ^ 0x80);
                p[5 + run] = uint8_t(value ^ (1u << (rng() % 8)));
                for (size_t start = 0; start <= 5 + run + 1; ++start)
                    for (size_t end : {size, 5 + run, 5 + run + 1, start}) {
                        if (end > size) continue;
                        ASSERT_EQ(Current().runEnd(p, start, end, value),
                                  RunEnd_C(p, start, end, value))
                            << "run " << run << " start " << start << " end " << end;
                    }
                // Up to the very end of the buffer.
                EXPECT_EQ(Current().runEnd(p, 1, size, value), 5 + run);
                EXPECT_EQ(Current().runEnd(p, 5 + run + 1, size, value), size);
            }
        }
    });
}

TEST(RleScan, RandomRunsGiveThePlainAnswer) {
    std::mt19937 rng(21);
    std::vector<uint8_t> data(20000);
    for (size_t i = 0; i < data.size();) {
        const size_t len = 1 + rng() % (rng() % 4 ? 8 : 300);
        const uint8_t v = uint8_t(rng() % 3);
        for (size_t k = 0; k < len && i < data.size(); ++k)
            data[i++] = v;
    }
    kelptest::ForEachSimdTarget([&](int) {
        kelptest::GuardedBuffer buf(data.size());
        std::memcpy(buf.data(), data.data(), data.size());
        for (size_t i = 0; i < data.size(); i += 1 + rng() % 5)
            for (uint8_t v : {data[i], uint8_t(data[i] + 1)})
                ASSERT_EQ(Current().runEnd(buf.data(), i, data.size(), v),
                          RunEnd_C(buf.data(), i, data.size(), v))
                    << i;
    });
}

TEST(RleScan, TheEncoderWritesOneStreamOnEveryTarget) {
    std::mt19937 rng(4);
    std::vector<uint8_t> data(65536);
    for (size_t i = 0; i < data.size(); ++i) // a soft-edged matte, rows of 256
        data[i] = uint8_t((i % 256) < 100 ? 0 : (i % 256) < 110 ? rng() : 255);
    std::vector<uint8_t> want;
    kelptest::ForEachSimdTarget([&](int target) {
        kelptest::GuardedBuffer in(data.size());
        std::memcpy(in.data(), data.data(), data.size());
        std::vector<uint8_t> stream(data.size() + stdfx::CDibRLE::kEncodeSlack);
        uint32_t size = 0;
        stdfx::CDibRLE rle;
        ASSERT_TRUE(rle.Encode(stream.data(), &size, in.data(), uint32_t(data.size())));
        stream.resize(size);
        if (target == kelp::kSimdPlain)
            want = stream;
        else
            EXPECT_EQ(stream, want);
    });
}

} // namespace
