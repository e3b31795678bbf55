// Processor and system flags, the settings that narrow them, and the processor count.
#include <gtest/gtest.h>

#include <kelp/kelpcfg.h>
#include <kelp/kelpcpu.h>

#include "cfgtemp.h"
#include "runtime/cpuflags.h"
#include "runtime/kelpos.h"

using kelp::CWin32EnhancedFunctions;

TEST(Cpu, FlagsFollowTheProcessor) {
    kelptest::TempSettings temp; // no settings: everything allowed
    CWin32EnhancedFunctions::Init();
    kelp::os::CpuInfo cpu = kelp::os::ProbeCpu();
    EXPECT_TRUE(kelp::IsNT());
    EXPECT_FALSE(kelp::IsWindows95());
    EXPECT_EQ(kelp::IsMMXCPU(), cpu.mmx);
    EXPECT_EQ(kelp::IsSSECPU(), cpu.sse);
    EXPECT_EQ(kelp::IsSSE2CPU(), cpu.sse && cpu.sse2);
    EXPECT_EQ(kelp::IsAVX2CPU(), cpu.sse && cpu.sse2 && cpu.avx2);
    EXPECT_NE(CWin32EnhancedFunctions::m_pfnTryEnterCriticalSection, nullptr);
    EXPECT_NE(CWin32EnhancedFunctions::m_pfnInterlockedCompareExchange, nullptr);
    // With default settings every feature may be used, and the fast-path word agrees.
    ASSERT_TRUE(CWin32EnhancedFunctions::m_fUseSSE);
    uint32_t flags = kelp::CpuFlags();
    EXPECT_EQ((flags & kelp::kCpuSSE2) != 0, kelp::UseSSE2());
    EXPECT_EQ((flags & kelp::kCpuAVX2) != 0, kelp::UseAVX2());
    EXPECT_EQ((flags & kelp::kCpuSSSE3) != 0, kelp::UseSSE2() && cpu.ssse3);
    EXPECT_EQ((flags & kelp::kCpuSSE41) != 0, kelp::UseSSE2() && cpu.sse41);
}

TEST(Cpu, SettingsTurnFastPathsOff) {
    const struct {
        int useMMX, useSSE; // -1: not set
    } cases[] = {{-1, -1}, {-1, 0}, {0, -1}, {0, 0}, {1, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "UseMMX " << c.useMMX << " UseSSE " << c.useSSE);
        kelptest::TempSettings temp;
        kelp::IKELPCfg& cfg = kelp::KELPGetCfg(false);
        if (c.useMMX >= 0) {
            ASSERT_TRUE(cfg.WriteSettingBool("KELPCFG", "UseMMX", c.useMMX));
        }
        if (c.useSSE >= 0) {
            ASSERT_TRUE(cfg.WriteSettingBool("KELPCFG", "UseSSE", c.useSSE));
        }
        CWin32EnhancedFunctions::Init();
        bool mmx = c.useMMX != 0, sse = c.useSSE != 0;
        EXPECT_EQ(kelp::UseMMX(), mmx && kelp::IsMMXCPU());
        EXPECT_EQ(kelp::UseSSE(), sse && kelp::IsSSECPU());
        EXPECT_EQ(kelp::UseSSE2(), sse && kelp::IsSSE2CPU());
        EXPECT_EQ(kelp::UseAVX2(), sse && kelp::IsAVX2CPU());
        if (!sse) {
            EXPECT_EQ(kelp::CpuFlags(), 0u); // one setting for every SSE level
        } else if (kelp::IsSSE2CPU()) {
            EXPECT_NE(kelp::CpuFlags() & kelp::kCpuSSE2, 0u);
        }
        // What the processor has does not change with the settings.
        EXPECT_EQ(kelp::IsSSE2CPU(), kelp::os::ProbeCpu().sse2);
    }
    CWin32EnhancedFunctions::Init(); // the settings of the test run again
    EXPECT_TRUE(CWin32EnhancedFunctions::m_fUseSSE);
}

TEST(Cpu, MaskNarrowsTheFlags) {
    uint32_t all = kelp::CpuFlags();
    uint32_t old = kelp::MaskCpuFlags(kelp::kCpuSSE2);
    EXPECT_EQ(kelp::CpuFlags(), all & kelp::kCpuSSE2);
    kelp::MaskCpuFlags(0);
    EXPECT_EQ(kelp::CpuFlags(), 0u);
    kelp::MaskCpuFlags(old);
    EXPECT_EQ(kelp::CpuFlags(), all);
}

TEST(Cpu, InterlockedAndTryEnterEntries) {
    const struct {
        int32_t start, exchange, comparand, result, after;
    } cases[] = {
        {5, 9, 5, 5, 9},
        {5, 9, 4, 5, 5},
        {-1, 0, -1, -1, 0},
        {INT32_MIN, INT32_MAX, INT32_MIN, INT32_MIN, INT32_MAX},
    };
    for (const auto& c : cases) {
        volatile int32_t word = c.start;
        EXPECT_EQ(CWin32EnhancedFunctions::m_pfnInterlockedCompareExchange(&word, c.exchange,
                                                                           c.comparand),
                  c.result);
        EXPECT_EQ(word, c.after);
    }
    kelp::os::CriticalSection cs;
    EXPECT_EQ(CWin32EnhancedFunctions::m_pfnTryEnterCriticalSection(&cs), 1);
    EXPECT_EQ(CWin32EnhancedFunctions::m_pfnTryEnterCriticalSection(&cs), 1); // recursive
    cs.Leave();
    cs.Leave();
    EXPECT_EQ(CWin32EnhancedFunctions::m_pfnTryEnterCriticalSection(nullptr), 0);
}

TEST(Cpu, ProcessorCountAndAffinity) {
    uint64_t before = 0, system = 0;
    ASSERT_TRUE(kelp::os::GetAffinityMasks(&before, &system));
    unsigned physical = kelp::NumberOfProcessors(false);
    unsigned logical = kelp::NumberOfProcessors(true);
    uint64_t after = 0;
    ASSERT_TRUE(kelp::os::GetAffinityMasks(&after, nullptr));
    EXPECT_EQ(after, before); // the probe put the thread back where it may run
    if (physical == 0xFFFFFFFFu) {
        // Only when the process may not run on every processor.
        EXPECT_NE(before, system);
        EXPECT_EQ(logical, physical);
    } else {
        EXPECT_GE(physical, 1u);
        EXPECT_LE(physical, kelp::os::ProcessorCount());
        EXPECT_GE(logical, physical);
        EXPECT_EQ(logical % physical, 0u);
    }
    EXPECT_EQ(kelp::NumberOfProcessors(false), physical); // counted once
}
