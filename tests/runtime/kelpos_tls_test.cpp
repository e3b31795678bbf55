#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "runtime/kelpos.h"

using namespace kelp;

TEST(ThreadSlots, EachThreadHasItsOwnValueAndATakenSlotStartsNull) {
    uint32_t slot = os::TlsAlloc();
    ASSERT_NE(slot, os::kTlsOutOfIndexes);
    int a = 0, b = 0;
    EXPECT_EQ(os::TlsGetValue(slot), nullptr);
    EXPECT_TRUE(os::TlsSetValue(slot, &a));
    std::thread t([&] {
        EXPECT_EQ(os::TlsGetValue(slot), nullptr);
        EXPECT_TRUE(os::TlsSetValue(slot, &b));
        EXPECT_EQ(os::TlsGetValue(slot), &b);
    });
    t.join();
    EXPECT_EQ(os::TlsGetValue(slot), &a);

    // Freed and taken again, the slot reads null where it held a value before.
    EXPECT_TRUE(os::TlsFree(slot));
    EXPECT_FALSE(os::TlsFree(slot));
    EXPECT_FALSE(os::TlsSetValue(slot, &a));
    uint32_t again = os::TlsAlloc();
    ASSERT_EQ(again, slot); // the lowest free slot
    EXPECT_EQ(os::TlsGetValue(again), nullptr);
    EXPECT_TRUE(os::TlsFree(again));

    // The table runs out, and a freed slot can be taken again.
    std::vector<uint32_t> taken;
    for (uint32_t s; (s = os::TlsAlloc()) != os::kTlsOutOfIndexes;) taken.push_back(s);
    EXPECT_GE(taken.size(), 32u);
    EXPECT_EQ(os::TlsGetValue(os::kTlsOutOfIndexes), nullptr);
    EXPECT_TRUE(os::TlsFree(taken.back()));
    EXPECT_EQ(os::TlsAlloc(), taken.back());
    for (uint32_t s : taken) EXPECT_TRUE(os::TlsFree(s));
}
