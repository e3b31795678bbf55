// Linux: the per-thread error code, the clock, and integer arithmetic.
#include "kelpos.h"

#include <errno.h>
#include <time.h>

namespace kelp {
namespace os {

static thread_local uint32_t t_lastError = 0;
uint32_t GetLastError() {
    return t_lastError;
}
void SetLastError(uint32_t code) {
    t_lastError = code;
}

uint32_t GetTickCount() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    uint64_t ms = uint64_t(ts.tv_sec) * 1000u + uint64_t(ts.tv_nsec) / 1000000u;
    return uint32_t(ms);
}

void Sleep(uint32_t ms) {
    timespec ts{time_t(ms / 1000), long(ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

int32_t MulDiv(int32_t a, int32_t b, int32_t c) {
    if (c == 0) return -1;
    int64_t p = int64_t(a) * int64_t(b);
    bool neg = (p < 0) != (c < 0);
    uint64_t up = p < 0 ? uint64_t(-(p + 1)) + 1 : uint64_t(p);
    uint64_t uc = c < 0 ? uint64_t(-int64_t(c)) : uint64_t(c);
    uint64_t q = (up + uc / 2) / uc; // half away from zero on the magnitude
    if (!neg && q > uint64_t(INT32_MAX)) return -1;
    if (neg && q > uint64_t(INT32_MAX) + 1) return -1;
    return neg ? int32_t(-int64_t(q)) : int32_t(q);
}

} // namespace os
} // namespace kelp
