#include <gtest/gtest.h>

#include <thread>

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

    // Freed and taken again, a slot reads null where a slot held a value before.
    EXPECT_TRUE(os::TlsFree(slot));
    uint32_t again = os::TlsAlloc();
    ASSERT_NE(again, os::kTlsOutOfIndexes);
    EXPECT_EQ(os::TlsGetValue(again), nullptr);
    EXPECT_TRUE(os::TlsFree(again));
}
