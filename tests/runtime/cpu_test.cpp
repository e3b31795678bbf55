// Processor and system flags, the settings that narrow them, and the processor count.
#include <gtest/gtest.h>

#include <kelp/kelpcfg.h>
#include <kelp/kelpcpu.h>

#include "cfgtemp.h"
#include "runtime/cpuflags.h"
#include "runtime/kelpos.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

using kelp::CWin32EnhancedFunctions;

namespace {

// What the processor and the system offer, as the compiler's own run-time library sees
// it: a source independent of the library's probe.
bool Has(const char* feature) {
    if (std::strcmp(feature, "ssse3") == 0) return __builtin_cpu_supports("ssse3");
    if (std::strcmp(feature, "sse4") == 0)
        return __builtin_cpu_supports("sse4.1") && __builtin_cpu_supports("sse4.2") &&
               __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("aes");
    if (std::strcmp(feature, "avx2") == 0) return __builtin_cpu_supports("x86-64-v3");
    if (std::strcmp(feature, "avx3") == 0) return __builtin_cpu_supports("x86-64-v4");
    return false;
}

// The targets the library should offer with every setting allowing them.
uint32_t ExpectedTargets() {
    uint32_t t = kelp::SimdBit(kelp::kSimdPlain);
    const char* names[] = {"ssse3", "sse4", "avx2", "avx3"}; // each needs the ones before
    for (int i = 0; i < 4 && Has(names[i]); ++i)
        t |= kelp::SimdBit(kelp::kSimdSSSE3 + i);
    return t & kelp::SimdTargetsCompiled();
}

} // namespace

TEST(Cpu, FlagsFollowTheProcessor) {
    kelptest::TempSettings temp; // no settings: everything allowed
    CWin32EnhancedFunctions::Init();
    EXPECT_TRUE(kelp::IsNT());
    EXPECT_FALSE(kelp::IsWindows95());
    EXPECT_EQ(kelp::IsMMXCPU(), bool(__builtin_cpu_supports("mmx")));
    EXPECT_EQ(kelp::IsSSECPU(), bool(__builtin_cpu_supports("sse")));
    EXPECT_EQ(kelp::IsSSE2CPU(), bool(__builtin_cpu_supports("sse2")));
    EXPECT_EQ(kelp::IsAVX2CPU(), bool(__builtin_cpu_supports("avx2")));
    EXPECT_NE(CWin32EnhancedFunctions::m_pfnTryEnterCriticalSection, nullptr);
    EXPECT_NE(CWin32EnhancedFunctions::m_pfnInterlockedCompareExchange, nullptr);
    // With default settings every feature may be used, and the fast-path word agrees.
    ASSERT_TRUE(CWin32EnhancedFunctions::m_fUseSSE);
    uint32_t flags = kelp::CpuFlags();
    EXPECT_EQ((flags & kelp::kCpuSSE2) != 0, bool(__builtin_cpu_supports("sse2")));
    EXPECT_EQ((flags & kelp::kCpuAVX2) != 0, bool(__builtin_cpu_supports("avx2")));
    EXPECT_EQ((flags & kelp::kCpuSSSE3) != 0, bool(__builtin_cpu_supports("ssse3")));
    EXPECT_EQ((flags & kelp::kCpuSSE41) != 0, bool(__builtin_cpu_supports("sse4.1")));
}

TEST(Cpu, TargetsFollowTheProcessor) {
    kelptest::TempSettings temp;
    CWin32EnhancedFunctions::Init();
    // A 64-bit x86 build compiles every vector target.
    EXPECT_EQ(kelp::SimdTargetsCompiled(), kelp::kSimdAllTargets);
    EXPECT_EQ(kelp::SimdTargetsAvailable(), ExpectedTargets());
    EXPECT_EQ(kelp::SimdTargets(), ExpectedTargets());
    int best = kelp::kSimdPlain;
    for (int t = 0; t < kelp::kSimdTargetCount; ++t)
        if (ExpectedTargets() & kelp::SimdBit(t)) best = t;
    EXPECT_EQ(kelp::BestSimdTarget(), best);
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
            // and for every vector target
            EXPECT_EQ(kelp::SimdTargetsAvailable(), kelp::SimdBit(kelp::kSimdPlain));
            EXPECT_EQ(kelp::BestSimdTarget(), kelp::kSimdPlain);
        } else if (kelp::IsSSE2CPU()) {
            EXPECT_NE(kelp::CpuFlags() & kelp::kCpuSSE2, 0u);
            EXPECT_EQ(kelp::SimdTargetsAvailable(), ExpectedTargets());
        }
        // What the processor has does not change with the settings.
        EXPECT_EQ(kelp::IsSSE2CPU(), kelp::os::ProbeCpu().sse2);
    }
    CWin32EnhancedFunctions::Init(); // the settings of the test run again
    EXPECT_TRUE(CWin32EnhancedFunctions::m_fUseSSE);
}

TEST(Cpu, MasksNarrowTheFlagsAndTargets) {
    const uint32_t all = kelp::CpuFlags();
    const uint32_t targets = kelp::SimdTargetsAvailable();
    const uint32_t oldFlags = kelp::MaskCpuFlags(kelp::kCpuSSE2 | kelp::kCpuSSSE3);
    EXPECT_EQ(kelp::CpuFlags(), all & (kelp::kCpuSSE2 | kelp::kCpuSSSE3));
    EXPECT_EQ(kelp::SimdTargetsAvailable(),
              targets & (kelp::SimdBit(kelp::kSimdPlain) | kelp::SimdBit(kelp::kSimdSSSE3)));
    kelp::MaskCpuFlags(0);
    EXPECT_EQ(kelp::CpuFlags(), 0u);
    EXPECT_EQ(kelp::BestSimdTarget(), kelp::kSimdPlain);
    kelp::MaskCpuFlags(oldFlags);
    EXPECT_EQ(kelp::CpuFlags(), all);

    // Each available target alone, any set of them, and none: plain always stays.
    for (uint32_t mask = 0; mask <= kelp::kSimdAllTargets; ++mask) {
        const uint32_t old = kelp::MaskSimdTargets(mask);
        const uint32_t want = (targets & mask) | kelp::SimdBit(kelp::kSimdPlain);
        EXPECT_EQ(kelp::SimdTargets(), want) << mask;
        // The best is the highest target allowed.
        EXPECT_TRUE(want & kelp::SimdBit(kelp::BestSimdTarget())) << mask;
        EXPECT_LT(want, kelp::SimdBit(kelp::BestSimdTarget()) * 2) << mask;
        kelp::MaskSimdTargets(old);
    }
    EXPECT_EQ(kelp::SimdTargets(), targets);
}

TEST(Cpu, TargetNames) {
    for (int t = 0; t < kelp::kSimdTargetCount; ++t)
        EXPECT_EQ(kelp::SimdTargetByName(kelp::SimdTargetName(t)), t);
    EXPECT_EQ(kelp::SimdTargetName(kelp::kSimdTargetCount), nullptr);
    EXPECT_EQ(kelp::SimdTargetName(-1), nullptr);
    EXPECT_EQ(kelp::SimdTargetByName("AVX2"), -1);
    EXPECT_EQ(kelp::SimdTargetByName(nullptr), -1);
}

// Run by the next test in a child process, with KELP_SIMD set.
TEST(Cpu, DISABLED_PrintBestTarget) {
    std::printf("best target: %s.\n", kelp::SimdTargetName(kelp::BestSimdTarget()));
}

TEST(Cpu, EnvironmentNamesTheBestTarget) {
    const uint32_t have = kelp::SimdTargetsAvailable();
    int best = kelp::BestSimdTarget();
    const struct {
        const char* value;
        int want; // before narrowing to what the machine has
    } cases[] = {
        {"plain", kelp::kSimdPlain}, {"ssse3", kelp::kSimdSSSE3}, {"sse4", kelp::kSimdSSE4},
        {"avx2", kelp::kSimdAVX2},   {"avx3", kelp::kSimdAVX3},   {"fastest", kelp::kSimdPlain},
    };
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    for (const auto& c : cases) {
        std::string cmd = std::string("KELP_SIMD=") + c.value + " '" + self +
                          "' --gtest_also_run_disabled_tests "
                          "--gtest_filter=Cpu.DISABLED_PrintBestTarget";
        FILE* p = popen(cmd.c_str(), "r");
        ASSERT_NE(p, nullptr);
        std::string out;
        char buf[256];
        while (fgets(buf, sizeof buf, p))
            out += buf;
        EXPECT_EQ(pclose(p), 0) << out;
        int want = c.want;
        while (want > kelp::kSimdPlain && !(have & kelp::SimdBit(want)))
            --want;
        if (want > best) want = best;
        EXPECT_NE(out.find(std::string("best target: ") + kelp::SimdTargetName(want) + "."),
                  std::string::npos)
            << c.value << ": " << out;
    }
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
