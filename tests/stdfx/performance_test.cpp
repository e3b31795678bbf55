// The stopwatch: its rounding, and its readings against sleeps of known length. The
// bounds are wide, so that a loaded machine does not fail them; each still catches a
// timer that counts in the wrong unit or mishandles a pause.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <thread>

#include <kelp/stdfx.h>

using stdfx::CPerformance;

namespace {

void SleepMs(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

TEST(Performance, TicksRoundToTheNearestUnit) {
    const uint64_t mhz = stdfx::TimerMHz();
    ASSERT_GE(mhz, 1u);
    EXPECT_EQ(stdfx::TimerMHz(), mhz) << "the speed is read once";
#if defined(__x86_64__) || defined(__i386__)
    // Stated by the processor or measured: a plausible processor clock either way.
    EXPECT_GE(mhz, 100u);
    EXPECT_LE(mhz, 20000u);
#endif
    struct Case {
        uint64_t ticks, micro;
    } cases[] = {
        {0, 0},
        {mhz, 1},
        {mhz * 1000000, 1000000},
        {mhz * 7 + (mhz - 1) / 2, 7}, // below half a unit: down
        {mhz * 7 + mhz / 2 + 1, 8},   // above half: up
        {mhz * 8 - 1, 8},
        {uint64_t(1) << 50, ((uint64_t(1) << 50) + mhz / 2) / mhz},
    };
    for (const Case& c : cases) {
        if (mhz == 1 && c.ticks == mhz * 7 + mhz / 2 + 1) continue; // no halves at 1 MHz
        EXPECT_EQ(stdfx::TicksToMicroseconds(c.ticks), c.micro) << c.ticks;
        EXPECT_EQ(stdfx::TicksToMilliseconds(c.ticks * 1000), c.micro) << c.ticks;
    }
    EXPECT_EQ(stdfx::TicksToMilliseconds(mhz * 1499), 1u);
    EXPECT_EQ(stdfx::TicksToMilliseconds(mhz * 1500), 2u);
}

TEST(Performance, ElapsedCountsMicrosecondsAndRestarts) {
    CPerformance t;
    SleepMs(60);
    const uint64_t first = t.Elapsed(true);
    EXPECT_GE(first, 55000u);
    EXPECT_LT(first, 20000000u);
    const uint64_t second = t.Elapsed(false);
    EXPECT_LT(second, first) << "restarted at the last reading";
    SleepMs(20);
    EXPECT_GE(t.Elapsed(false), second + 15000);
}

TEST(Performance, PausesAreLeftOutOnceResumed) {
    CPerformance t;
    t.Pause();
    SleepMs(40);
    EXPECT_GE(t.Elapsed(false), 35000u) << "a running pause counts";
    SleepMs(160);
    t.Pause(); // a second pause keeps the first one's start
    t.Resume();
    EXPECT_LT(t.Elapsed(false), 150000u);
    const uint64_t before = t.Elapsed(false);
    t.Resume(); // not paused: nothing changes
    SleepMs(30);
    EXPECT_GE(t.Elapsed(false), before + 25000);
}

TEST(Performance, TimersAreIndependent) {
    CPerformance a;
    SleepMs(30);
    CPerformance b;
    a.Pause();
    SleepMs(30);
    b.Pause();
    a.Resume();
    EXPECT_GE(a.Elapsed(false), 25000u);
    EXPECT_GE(b.Elapsed(false), 25000u);
}

} // namespace
