#include "cpuflags.h"

#include <atomic>
#include <cstdlib>
#include <string>

#include "kelpos.h"

namespace kelp {
namespace {

std::atomic<uint32_t> g_features{0};
std::atomic<bool> g_probed{false};
std::atomic<uint32_t> g_mask{0xFFFFFFFFu};

uint32_t Probe() {
    os::CpuInfo info = os::ProbeCpu();
    uint32_t f = 0;
    if (info.sse2) f |= kCpuSSE2;
    if (info.ssse3) f |= kCpuSSSE3;
    if (info.sse41) f |= kCpuSSE41;
    if (info.avx2) f |= kCpuAVX2;
    std::string env;
    if (os::GetEnv("KELP_CPU_MASK", &env) && !env.empty())
        g_mask.store(uint32_t(std::strtoul(env.c_str(), nullptr, 16)));
    return f;
}

} // namespace

uint32_t CpuFlags() {
    if (!g_probed.load(std::memory_order_acquire)) {
        g_features.store(Probe(), std::memory_order_relaxed);
        g_probed.store(true, std::memory_order_release);
    }
    return g_features.load(std::memory_order_relaxed) & g_mask.load(std::memory_order_relaxed);
}

uint32_t MaskCpuFlags(uint32_t mask) {
    CpuFlags(); // probe first, so that the environment does not override a later mask
    return g_mask.exchange(mask);
}

} // namespace kelp
