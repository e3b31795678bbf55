// Linux: processor features, the count of processors and affinity masks.
#include "kelpos.h"

#include <cpuid.h>
#include <sched.h>
#include <unistd.h>

namespace kelp {
namespace os {

void Cpuid(uint32_t leaf, uint32_t subleaf, uint32_t regs[4]) {
#if defined(__x86_64__) || defined(__i386__)
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid_count(leaf, subleaf, &a, &b, &c, &d)) a = b = c = d = 0;
    regs[0] = a;
    regs[1] = b;
    regs[2] = c;
    regs[3] = d;
#else
    (void)leaf;
    (void)subleaf;
    regs[0] = regs[1] = regs[2] = regs[3] = 0;
#endif
}

static uint64_t ReadXcr0() {
#if defined(__x86_64__) || defined(__i386__)
    uint32_t eax, edx;
    __asm__ volatile("xgetbv" : "=a"(eax), "=d"(edx) : "c"(0));
    return (uint64_t(edx) << 32) | eax;
#else
    return 0;
#endif
}

CpuInfo ProbeCpu() {
    CpuInfo info{};
    uint32_t r[4];
    Cpuid(0, 0, r);
    uint32_t maxLeaf = r[0];
    if (maxLeaf < 1) return info;
    Cpuid(1, 0, r);
    info.mmx = (r[3] >> 23) & 1;
    info.sse = (r[3] >> 25) & 1;
    info.sse2 = (r[3] >> 26) & 1;
    info.ssse3 = (r[2] >> 9) & 1;
    info.sse41 = (r[2] >> 19) & 1;
    bool osxsave = (r[2] >> 27) & 1;
    bool avx = (r[2] >> 28) & 1;
    bool ymmEnabled = osxsave && (ReadXcr0() & 6) == 6; // the system saves YMM state
    info.avx = avx && ymmEnabled;
    if (maxLeaf >= 7 && info.avx) {
        Cpuid(7, 0, r);
        info.avx2 = (r[1] >> 5) & 1;
    }
    return info;
}

unsigned ProcessorCount() {
    long n = sysconf(_SC_NPROCESSORS_ONLN);
    return n > 0 ? unsigned(n) : 1u;
}

bool GetAffinityMasks(uint64_t* processMask, uint64_t* systemMask) {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof(set), &set) != 0) return false;
    uint64_t process = 0;
    for (int i = 0; i < 64; ++i)
        if (CPU_ISSET(i, &set)) process |= uint64_t(1) << i;
    long n = sysconf(_SC_NPROCESSORS_CONF);
    if (n < 1) n = 1;
    uint64_t system = n >= 64 ? ~uint64_t(0) : (uint64_t(1) << n) - 1;
    if (processMask) *processMask = process;
    if (systemMask) *systemMask = system;
    return true;
}

bool SetThreadAffinityMask(uint64_t mask) {
    if (!mask) return false;
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int i = 0; i < 64; ++i)
        if ((mask >> i) & 1) CPU_SET(i, &set);
    return sched_setaffinity(0, sizeof(set), &set) == 0;
}

} // namespace os
} // namespace kelp
