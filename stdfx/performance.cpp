// The toolkit's stopwatch over the time-stamp counter.
#include <kelp/stdfx_performance.h>

#include <atomic>

#include "runtime/kelpos.h"

namespace stdfx {

namespace {

// The divisor shared by every timer, and whether it has been looked for. Two threads
// that make their first timers together may both look, and find the same.
std::atomic<uint32_t> g_mhz{1};
std::atomic<bool> g_mhzRead{false};

uint64_t Counter() {
    return kelp::os::ReadTimeStampCounter();
}

} // namespace

uint32_t TimerMHz() {
    if (!g_mhzRead.load(std::memory_order_acquire)) {
        const uint32_t mhz = kelp::os::TimeStampRateMHz();
        if (mhz != 0) g_mhz.store(mhz, std::memory_order_relaxed);
        g_mhzRead.store(true, std::memory_order_release);
    }
    return g_mhz.load(std::memory_order_relaxed);
}

uint64_t TicksToMicroseconds(uint64_t ticks) {
    const uint64_t mhz = TimerMHz();
    return (ticks + mhz / 2) / mhz;
}

uint64_t TicksToMilliseconds(uint64_t ticks) {
    const uint64_t per = uint64_t(TimerMHz()) * 1000;
    return (ticks + per / 2) / per;
}

CPerformance::CPerformance() : m_start(0), m_paused(0), m_pauseStart(0) {
    TimerMHz();
    m_start = Counter();
}

uint64_t CPerformance::Elapsed(bool restart) {
    const uint64_t d = Counter() - m_start;
    if (restart) m_start = Counter();
    return TicksToMicroseconds(d);
}

void CPerformance::Pause() {
    if (m_paused) return;
    m_paused = 1;
    m_pauseStart = Counter();
}

void CPerformance::Resume() {
    if (!m_paused) return;
    m_paused = 0;
    m_start += Counter() - m_pauseStart;
}

} // namespace stdfx
