#include <gtest/gtest.h>

#include <kelp/trace.h>

#include "tracecapture.h"

TEST(Trace, PlaceholderSinkBound) {
    kelptest::SinkClear();
    kelp::dbgPrintf(8, 2, L"x%d", 1);
    EXPECT_EQ(kelptest::SinkText(8), L"x1");
}
