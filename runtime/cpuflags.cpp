#include "cpuflags.h"

#include <kelp/kelpcpu.h>

#include <atomic>
#include <cstdlib>
#include <string>

#include "kelpos.h"

namespace kelp {
namespace {

// The SSE levels beyond SSE2 that CWin32EnhancedFunctions does not keep; probed once.
std::atomic<uint32_t> g_extraSSE{0};
std::atomic<bool> g_probed{false};
std::atomic<uint32_t> g_mask{0xFFFFFFFFu};

void ProbeOnce() {
    if (g_probed.load(std::memory_order_acquire)) return;
    os::CpuInfo info = os::ProbeCpu();
    uint32_t f = 0;
    if (info.ssse3) f |= kCpuSSSE3;
    if (info.sse41) f |= kCpuSSE41;
    std::string env;
    if (os::GetEnv("KELP_CPU_MASK", &env) && !env.empty())
        g_mask.store(uint32_t(std::strtoul(env.c_str(), nullptr, 16)));
    g_extraSSE.store(f, std::memory_order_relaxed);
    g_probed.store(true, std::memory_order_release);
}

} // namespace

uint32_t CpuFlags() {
    ProbeOnce();
    if (!CWin32EnhancedFunctions::UseSSE2()) return 0;
    uint32_t f = kCpuSSE2 | g_extraSSE.load(std::memory_order_relaxed);
    if (CWin32EnhancedFunctions::UseAVX2()) f |= kCpuAVX2;
    return f & g_mask.load(std::memory_order_relaxed);
}

uint32_t MaskCpuFlags(uint32_t mask) {
    ProbeOnce(); // first, so that the environment does not override a later mask
    return g_mask.exchange(mask);
}

} // namespace kelp
