// What the processor and the system can do, the settings that narrow it, and the
// processor count.
#include <kelp/kelpcfg.h>
#include <kelp/kelpcpu.h>

#include <atomic>
#include <new>

#include "kelpos.h"
#include "module.h"

namespace kelp {

bool CWin32EnhancedFunctions::m_fIsNT = false;
bool CWin32EnhancedFunctions::m_fIs95 = false;
bool CWin32EnhancedFunctions::m_fHasMMX = false;
bool CWin32EnhancedFunctions::m_fHasSSE = false;
bool CWin32EnhancedFunctions::m_fHasSSE2 = false;
bool CWin32EnhancedFunctions::m_fHasAVX2 = false;
bool CWin32EnhancedFunctions::m_fUseMMX = true;
bool CWin32EnhancedFunctions::m_fUseSSE = true;
int (*CWin32EnhancedFunctions::m_pfnTryEnterCriticalSection)(void*) = nullptr;
int32_t (*CWin32EnhancedFunctions::m_pfnInterlockedCompareExchange)(volatile int32_t*, int32_t,
                                                                    int32_t) = nullptr;

namespace {

// The platform's counterparts of the two entries the system offers at run time.
// The critical section is the library's own (os::CriticalSection).
int TryEnterCriticalSection(void* cs) {
    return cs && static_cast<os::CriticalSection*>(cs)->TryEnter() ? 1 : 0;
}

bool Probed() {
    return CWin32EnhancedFunctions::m_fIsNT || CWin32EnhancedFunctions::m_fIs95;
}

} // namespace

CWin32EnhancedFunctions::CWin32EnhancedFunctions() {
    if (!Probed()) Init();
}

void CWin32EnhancedFunctions::Init() {
    m_pfnTryEnterCriticalSection = nullptr;
    m_pfnInterlockedCompareExchange = nullptr;

    // This platform is of the NT line: the entries exist, and the processor's
    // features come from CPUID, as the system's feature query would report them.
    m_fIsNT = true;
    m_fIs95 = false;
    m_pfnTryEnterCriticalSection = &TryEnterCriticalSection;
    m_pfnInterlockedCompareExchange = &os::InterlockedCompareExchange;

    int useMMX = 1, useSSE = 1;
    IKELPCfg& cfg = KELPGetCfg(false);
    cfg.ReadSettingBool("KELPCFG", "UseMMX", useMMX);
    cfg.ReadSettingBool("KELPCFG", "UseSSE", useSSE);
    m_fUseMMX = useMMX != 0;
    m_fUseSSE = useSSE != 0;

    os::CpuInfo cpu = os::ProbeCpu();
    m_fHasMMX = cpu.mmx;
    m_fHasSSE = cpu.sse;
    // SSE2 counts only with SSE, as an SSE2 instruction needs the system's SSE support.
    m_fHasSSE2 = m_fHasSSE && cpu.sse2;
    m_fHasAVX2 = m_fHasSSE2 && cpu.avx2;
}

bool CWin32EnhancedFunctions::Is95() {
    if (!Probed()) Init();
    return m_fIs95;
}
bool CWin32EnhancedFunctions::IsNT() {
    if (!Probed()) Init();
    return m_fIsNT;
}
bool CWin32EnhancedFunctions::HasMMX() {
    if (!Probed()) Init();
    return m_fHasMMX;
}
bool CWin32EnhancedFunctions::HasSSE() {
    if (!Probed()) Init();
    return m_fHasSSE;
}
bool CWin32EnhancedFunctions::HasSSE2() {
    if (!Probed()) Init();
    return m_fHasSSE2;
}
bool CWin32EnhancedFunctions::HasAVX2() {
    if (!Probed()) Init();
    return m_fHasAVX2;
}

bool IsWindows95() {
    return CWin32EnhancedFunctions::Is95();
}
bool IsNT() {
    return CWin32EnhancedFunctions::IsNT();
}
bool IsMMXCPU() {
    return CWin32EnhancedFunctions::HasMMX();
}
bool IsSSECPU() {
    return CWin32EnhancedFunctions::HasSSE();
}
bool IsSSE2CPU() {
    return CWin32EnhancedFunctions::HasSSE2();
}
bool IsAVX2CPU() {
    return CWin32EnhancedFunctions::HasAVX2();
}
bool UseMMX() {
    return CWin32EnhancedFunctions::UseMMX();
}
bool UseSSE() {
    return CWin32EnhancedFunctions::UseSSE();
}
bool UseSSE2() {
    return CWin32EnhancedFunctions::UseSSE2();
}
bool UseAVX2() {
    return CWin32EnhancedFunctions::UseAVX2();
}

// ---------------------------------------------------------------- processor count

namespace {

// 0 until the first call has counted; the logical count of each package beside it.
std::atomic<uint32_t> g_physical{0};
std::atomic<uint32_t> g_logical{1};

// GenuineIntel, family 0xF or an extended family, and the hyper-threading bit.
bool HyperThreadingCapable() {
    uint32_t r[4];
    os::Cpuid(0, 0, r);
    const uint32_t kGenu = 0x756E6547, kineI = 0x49656E69, kntel = 0x6C65746E;
    if (r[1] != kGenu || r[3] != kineI || r[2] != kntel) return false;
    os::Cpuid(1, 0, r);
    bool family = (r[0] & 0xF00) == 0xF00 || (r[0] & 0xF00000) != 0;
    return family && ((r[3] >> 28) & 1);
}

uint32_t ApicId() {
    uint32_t r[4];
    os::Cpuid(1, 0, r);
    return r[1] >> 24;
}

uint32_t CountPhysical(uint32_t* logicalOut) {
    uint32_t logical = 1;
    uint32_t physical = os::ProcessorCount();
    *logicalOut = logical;
    if (!HyperThreadingCapable()) return physical;

    uint32_t r[4];
    os::Cpuid(1, 0, r);
    logical = (r[1] >> 16) & 0xFF;
    if (logical == 0) return physical; // and logical counts 1
    *logicalOut = logical;

    uint32_t apicMask = 255;
    for (uint32_t i = 1; i < logical; i *= 2)
        apicMask *= 2;

    uint64_t processMask = 0, systemMask = 0;
    if (!os::GetAffinityMasks(&processMask, &systemMask)) return physical;
    if (processMask != systemMask) return 0xFFFFFFFFu;

    // Run on each processor in turn: an APIC id with a bit outside the mask is a
    // logical processor beside another on one package.
    bool sharing = false;
    for (int i = 0; i < 64; ++i) {
        uint64_t bit = uint64_t(1) << i;
        if (!(processMask & bit)) continue;
        if (!os::SetThreadAffinityMask(bit)) continue;
        os::YieldThread();
        if ((ApicId() & ~apicMask & 0xFF) != 0) sharing = true;
    }
    os::SetThreadAffinityMask(processMask);
    if (logical == 1 || !sharing) return physical;
    return physical / logical;
}

} // namespace

unsigned int NumberOfProcessors(bool logical) {
    static_assert(sizeof(unsigned int) == 4, "32-bit count");
    uint32_t physical = g_physical.load(std::memory_order_acquire);
    if (physical == 0) {
        uint32_t perPackage = 1;
        physical = CountPhysical(&perPackage);
        g_logical.store(perPackage, std::memory_order_relaxed);
        g_physical.store(physical, std::memory_order_release);
    }
    // The unknown count stays unknown rather than wrap when multiplied.
    if (!logical || physical == 0xFFFFFFFFu) return physical;
    uint32_t perPackage = g_logical.load(std::memory_order_relaxed);
    return perPackage ? physical * perPackage : physical;
}

// ---------------------------------------------------------------- process-wide object

namespace {
alignas(CWin32EnhancedFunctions) unsigned char g_enhancedStorage[sizeof(CWin32EnhancedFunctions)];
CWin32EnhancedFunctions* g_enhanced = nullptr;
} // namespace

void module::ConstructEnhancedFunctions() {
    g_enhanced = new (g_enhancedStorage) CWin32EnhancedFunctions();
}
void module::DestroyEnhancedFunctions() {
    if (g_enhanced) g_enhanced->~CWin32EnhancedFunctions();
    g_enhanced = nullptr;
}

} // namespace kelp
