// The platform heaps' table of live blocks against a plain map, under the churn of a
// heap: keys that collide, runs that wrap around the table's end, growth and erasure.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "runtime/kelpos_blocktable.h"

TEST(BlockTable, AgreesWithAMapUnderRandomChurn) {
    kelp::os::BlockTable table;
    std::map<uintptr_t, size_t> model;
    std::mt19937_64 rng(11);
    // Few distinct keys, 16 bytes apart, so that runs are long and deletions shift.
    auto randomKey = [&] { return uintptr_t(0x10000 + (rng() % 700) * 16); };
    for (int step = 0; step < 200000; ++step) {
        const uintptr_t key = randomKey();
        switch (rng() % 3) {
        case 0: {
            const size_t size = size_t(rng() % 5000);
            ASSERT_TRUE(table.Insert(key, size));
            model[key] = size;
            break;
        }
        case 1:
            ASSERT_EQ(table.Erase(key), model.erase(key) == 1) << step;
            break;
        default: {
            size_t size = 0;
            const auto it = model.find(key);
            ASSERT_EQ(table.Find(key, &size), it != model.end()) << step;
            if (it != model.end()) {
                ASSERT_EQ(size, it->second) << step;
            }
        }
        }
        ASSERT_EQ(table.Count(), model.size());
    }
    size_t seen = 0;
    table.ForEach([&](uintptr_t key, size_t size) {
        ++seen;
        EXPECT_EQ(model.at(key), size);
    });
    EXPECT_EQ(seen, model.size());
    EXPECT_FALSE(table.Find(0, nullptr)); // 0 is never a block
    EXPECT_FALSE(table.Insert(0, 1));
    table.Release();
    EXPECT_FALSE(table.Find(0x10000, nullptr));
}
