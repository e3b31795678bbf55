#include "cpuflags.h"

#include <kelp/kelpcpu.h>

#include <hwy/targets.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kelpos.h"
#include "simd.h"

namespace kelp {
namespace {

// The SSE levels beyond SSE2 that CWin32EnhancedFunctions does not keep, and the
// targets whose whole feature set the processor has; probed once.
std::atomic<uint32_t> g_extraSSE{0};
std::atomic<uint32_t> g_processorTargets{0};
std::atomic<bool> g_probed{false};
std::atomic<uint32_t> g_mask{0xFFFFFFFFu};
std::atomic<uint32_t> g_targetMask{kSimdAllTargets};

// Highway knows the features its code of each target uses (beyond the instruction set
// the target is named after) and asks the processor and the system for all of them.
uint32_t ProcessorTargets() {
    const int64_t hwy = hwy::SupportedTargets();
    uint32_t t = SimdBit(kSimdPlain);
    if (hwy & HWY_SSSE3) t |= SimdBit(kSimdSSSE3);
    if (hwy & HWY_SSE4) t |= SimdBit(kSimdSSE4);
    if (hwy & HWY_AVX2) t |= SimdBit(kSimdAVX2);
    if (hwy & HWY_AVX3) t |= SimdBit(kSimdAVX3);
    return t;
}

// KELP_SIMD: the targets up to the one named; an unknown name allows plain only.
uint32_t TargetMaskFromName(const std::string& name) {
    int t = SimdTargetByName(name.c_str());
    return t < 0 ? SimdBit(kSimdPlain) : (SimdBit(t) << 1) - 1;
}

void ProbeOnce() {
    if (g_probed.load(std::memory_order_acquire)) return;
    os::CpuInfo info = os::ProbeCpu();
    uint32_t f = 0;
    if (info.ssse3) f |= kCpuSSSE3;
    if (info.sse41) f |= kCpuSSE41;
    std::string env;
    if (os::GetEnv("KELP_CPU_MASK", &env) && !env.empty())
        g_mask.store(uint32_t(std::strtoul(env.c_str(), nullptr, 16)));
    if (os::GetEnv("KELP_SIMD", &env) && !env.empty()) g_targetMask.store(TargetMaskFromName(env));
    g_extraSSE.store(f, std::memory_order_relaxed);
    g_processorTargets.store(ProcessorTargets(), std::memory_order_relaxed);
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

const char* SimdTargetName(int target) {
    return target >= 0 && target < kSimdTargetCount ? simd::kTargetNames[target] : nullptr;
}

int SimdTargetByName(const char* name) {
    for (int t = 0; name && t < kSimdTargetCount; ++t)
        if (std::strcmp(name, simd::kTargetNames[t]) == 0) return t;
    return -1;
}

uint32_t SimdTargetsCompiled() {
    return simd::kCompiledTargets;
}

uint32_t SimdTargetsAvailable() {
    ProbeOnce();
    const uint32_t flags = CpuFlags();
    uint32_t allowed = SimdBit(kSimdPlain);
    if (flags & kCpuSSSE3) allowed |= SimdBit(kSimdSSSE3);
    if (flags & kCpuSSE41) allowed |= SimdBit(kSimdSSE4);
    if (flags & kCpuAVX2) allowed |= SimdBit(kSimdAVX2) | SimdBit(kSimdAVX3);
    return allowed & simd::kCompiledTargets & g_processorTargets.load(std::memory_order_relaxed);
}

uint32_t SimdTargets() {
    return (SimdTargetsAvailable() & g_targetMask.load(std::memory_order_relaxed)) |
           SimdBit(kSimdPlain);
}

int BestSimdTarget() {
    const uint32_t t = SimdTargets();
    int best = kSimdPlain;
    for (int i = 1; i < kSimdTargetCount; ++i)
        if (t & SimdBit(i)) best = i;
    return best;
}

uint32_t MaskSimdTargets(uint32_t mask) {
    ProbeOnce(); // first, so that the environment does not override a later mask
    return g_targetMask.exchange(mask);
}

} // namespace kelp
