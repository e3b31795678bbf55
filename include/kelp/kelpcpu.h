// What the processor and the system can do, and what the settings allow: the flags
// that choose the fast paths. The flags are set once when the library is loaded, from
// the processor and from the settings "UseMMX" and "UseSSE" of the section "KELPCFG";
// "UseSSE" allows or forbids every SSE level and AVX2 alike.
#pragma once

#include "kelpdefs.h"

namespace kelp {

class KELP_API CWin32EnhancedFunctions {
  public:
    CWin32EnhancedFunctions();

    // Probes the system and processor and reads the two settings. Runs once at load;
    // running it again re-reads the settings.
    static void Init();

    static bool Is95();
    static bool IsNT();
    static bool HasMMX();
    static bool HasSSE();
    static bool HasSSE2();
    static bool HasAVX2();
    static bool UseMMX() { return HasMMX() && m_fUseMMX; }
    static bool UseSSE() { return HasSSE() && m_fUseSSE; }
    static bool UseSSE2() { return HasSSE2() && m_fUseSSE; }
    static bool UseAVX2() { return HasAVX2() && m_fUseSSE; }

    static bool m_fIsNT;
    static bool m_fIs95;
    static bool m_fHasMMX;
    static bool m_fHasSSE;
    static bool m_fHasSSE2;
    static bool m_fHasAVX2;
    static bool m_fUseMMX;
    static bool m_fUseSSE;
    // Found at run time; null until Init has run. The first takes a pointer to the
    // library's critical section and gives non-zero if it was entered without waiting.
    static int (*m_pfnTryEnterCriticalSection)(void* criticalSection);
    static int32_t (*m_pfnInterlockedCompareExchange)(volatile int32_t* dest, int32_t exchange,
                                                      int32_t comparand);
};

KELP_API bool IsWindows95();
KELP_API bool IsNT();
KELP_API bool IsMMXCPU();
KELP_API bool IsSSECPU();
KELP_API bool IsSSE2CPU();
KELP_API bool IsAVX2CPU();
KELP_API bool UseMMX();
KELP_API bool UseSSE();
KELP_API bool UseSSE2();
KELP_API bool UseAVX2();

// The number of physical processors, or with `logical` that number times the logical
// processors of each. 0xFFFFFFFF when the process may not run on every processor of
// a processor with hyper-threading, so that physical ones cannot be told apart.
// Moves the calling thread across the processors on the first call.
KELP_API unsigned int NumberOfProcessors(bool logical);

} // namespace kelp
