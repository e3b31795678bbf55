// Linux: the time-stamp counter and its rate.
#include "kelpos.h"

#include <errno.h>
#include <time.h>

namespace kelp {
namespace os {

namespace {

uint64_t MonotonicNanoseconds() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return uint64_t(ts.tv_sec) * 1000000000u + uint64_t(ts.tv_nsec);
}

// The rate the processor states: the counter's own (leaf 0x15: crystal times a ratio),
// else its base frequency (leaf 0x16). 0 where neither is given, as in most virtual
// machines and on older processors.
uint32_t StatedMHz() {
    uint32_t r[4];
    Cpuid(0, 0, r);
    const uint32_t maxLeaf = r[0];
    if (maxLeaf >= 0x15) {
        Cpuid(0x15, 0, r);
        if (r[0] != 0 && r[1] != 0 && r[2] != 0) {
            const uint64_t hz = uint64_t(r[2]) * r[1] / r[0];
            const uint64_t mhz = (hz + 500000) / 1000000;
            if (mhz != 0 && mhz <= 0xFFFFFFFFu) return uint32_t(mhz);
        }
    }
    if (maxLeaf >= 0x16) {
        Cpuid(0x16, 0, r);
        if ((r[0] & 0xFFFF) != 0) return r[0] & 0xFFFF;
    }
    return 0;
}

// The counter against the monotonic clock over 20 ms, to the nearest megahertz.
uint32_t MeasuredMHz() {
    const uint64_t t0 = MonotonicNanoseconds();
    const uint64_t c0 = ReadTimeStampCounter();
    timespec wait{0, 20000000L};
    while (nanosleep(&wait, &wait) != 0 && errno == EINTR) {
    }
    const uint64_t c1 = ReadTimeStampCounter();
    const uint64_t t1 = MonotonicNanoseconds();
    const uint64_t ns = t1 - t0;
    if (ns == 0 || c1 <= c0) return 0;
    const uint64_t mhz = ((c1 - c0) * 1000 + ns / 2) / ns;
    return mhz > 0xFFFFFFFFu ? 0 : uint32_t(mhz);
}

} // namespace

uint64_t ReadTimeStampCounter() {
#if defined(__x86_64__) || defined(__i386__)
    uint32_t lo, hi;
    __asm__ volatile("rdtsc" : "=a"(lo), "=d"(hi));
    return (uint64_t(hi) << 32) | lo;
#else
    return MonotonicNanoseconds();
#endif
}

uint32_t TimeStampRateMHz() {
#if defined(__x86_64__) || defined(__i386__)
    const uint32_t stated = StatedMHz();
    return stated ? stated : MeasuredMHz();
#else
    return 1000; // the counter is the monotonic clock in nanoseconds
#endif
}

} // namespace os
} // namespace kelp
