// A stopwatch for timing the toolkit's effects: the processor's time-stamp counter,
// scaled by the processor's rated speed to whole microseconds, with pauses.
//
// The speed is found once per process, on the first timer made (see TimerMHz); until it
// is known, or where it cannot be had, the divisor is 1 and results are raw ticks. A
// timer belongs to one thread.
#pragma once

#include <cstdint>

#include "kelpdefs.h"

namespace stdfx {

// The speed in whole megahertz by which ticks are divided: found on the first call, 1
// if it could not be found.
KELP_API uint32_t TimerMHz();
// Ticks to microseconds and milliseconds at TimerMHz, rounded to nearest.
KELP_API uint64_t TicksToMicroseconds(uint64_t ticks);
KELP_API uint64_t TicksToMilliseconds(uint64_t ticks);

class KELP_API CPerformance {
public:
    // Not paused; reads the speed; starts counting now.
    CPerformance();

    // ---- virtual operations, in dispatch order
    // Microseconds since the start (time spent in a pause that is still running
    // counts); with `restart` the start moves to now.
    virtual uint64_t Elapsed(bool restart);
    // Stops the clock, unless it is stopped already.
    virtual void Pause();
    // Starts it again; the pause's time is left out of later results.
    virtual void Resume();

protected:
    uint64_t m_start;      // counter at the start, moved on past pauses
    uint8_t m_paused;      // 1 during a pause
    uint64_t m_pauseStart; // counter when the pause began
};

} // namespace stdfx
