#include <gtest/gtest.h>

#include <kelp/trace.h>

#include <cstdlib>
#include <string>

#include "runtime/kelpos.h"
#include "tracecapture.h"

using kelptest::SinkClear;
using kelptest::SinkLines;
using kelptest::SinkText;

namespace {
// Counts the lines of a text.
int Lines(const std::wstring& s) {
    int n = 0;
    for (wchar_t c : s)
        n += c == L'\n';
    return n;
}
} // namespace

TEST(Trace, SinkReceivesAreaLevelAndTextOnlyWhenActive) {
    SinkClear();
    kelptest::SinkSetLevelMask(1u << 2);
    kelp::dbgPrintf(8, 2, L"err %d %hs", 1, "x");
    kelp::dbgPrintf(8, 31, L"verbose");
    EXPECT_EQ(kelp::dbgActive(8, 2), 1);
    EXPECT_EQ(kelp::dbgActive(8, 30), 0);
    kelptest::SinkSetLevelMask(~0u);
    auto lines = SinkLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].area, 8u);
    EXPECT_EQ(lines[0].level, 2u);
    EXPECT_EQ(lines[0].text, L"err 1 x");
}

TEST(Trace, MemoryDumpLines) {
    unsigned char bytes[17];
    for (int i = 0; i < 17; ++i)
        bytes[i] = static_cast<unsigned char>(i * 16 + 1);
    struct Case {
        int size;
        int lines;
    } cases[] = {{16, 2}, {17, 3}, {0, 1}, {-3, 1}};
    for (const Case& c : cases) {
        SinkClear();
        kelp::dbgMem(L"buf", bytes, c.size, 8);
        std::wstring text = SinkText(8);
        EXPECT_EQ(Lines(text), c.lines) << c.size;
        EXPECT_EQ(text.substr(0, 17), L"buf: Memory Dump\n");
        for (auto& l : SinkLines())
            EXPECT_EQ(l.level, 31u);
    }
    SinkClear();
    kelp::dbgMem(L"m", bytes, 2, 8);
    EXPECT_EQ(SinkText(8), L"m: Memory Dump\n01 11 \n");
}

TEST(Trace, ExceptionReports) {
    SinkClear();
    kelp::KXEXCEPTION_RECORD inner{};
    inner.ExceptionCode = 0xC0000005;
    inner.ExceptionFlags = 0;
    inner.ExceptionAddress = 0x1234;
    kelp::KXEXCEPTION_RECORD outer{};
    outer.ExceptionCode = 0xE06D7363;
    outer.ExceptionFlags = 1;
    outer.ExceptionRecord = &inner;
    outer.ExceptionAddress = 0x401000;
    outer.NumberParameters = 2;
    outer.ExceptionInformation[0] = 0x19930520;
    outer.ExceptionInformation[1] = 0xAB;
    kelp::KXEXCEPTION_POINTERS info{&outer, nullptr};
    kelp::dbgEx(L"Stage", &info, 8);
    EXPECT_EQ(SinkText(8), L"Stage: *** EXCEPTION OCCURED ***\n"
                           L"*** Exception information[1]:\n"
                           L"*** ExceptionCode: E06D7363\n"
                           L"*** ExceptionFlags: 00000001 (noncont)\n"
                           L"*** ExceptionAddress: 00401000\n"
                           L"*** ExceptionParameter[0]:19930520\n"
                           L"*** ExceptionParameter[1]:000000AB\n"
                           L"*** Exception information[2]:\n"
                           L"*** ExceptionCode: C0000005\n"
                           L"*** ExceptionFlags: 00000000 (cont)\n"
                           L"*** ExceptionAddress: 00001234\n");
    for (auto& l : SinkLines())
        EXPECT_EQ(l.level, 0u);

    SinkClear();
    std::runtime_error e("went wrong");
    kelp::dbgEx(L"Codec", &e, 8);
    kelp::dbgEx(L"None", static_cast<const std::exception*>(nullptr), 8);
    EXPECT_EQ(SinkText(8), L"Codec: *** EXCEPTION OCCURED ***\n*** went wrong\n"
                           L"None: *** EXCEPTION OCCURED ***\n");
}

// A caller that goes on after its assertion, as every caller in the library does.
int AssertThenGoOn(const char* expression, const char* file, unsigned line, int area) {
    kelp::dbgAssert(expression, file, line, area);
    return 7;
}

TEST(Trace, AssertionReportsAndReturns) {
    const struct {
        const char* expression;
        const char* file;
        unsigned line;
        int area;
        const wchar_t* text;
    } cases[] = {
        {"FALSE", ".\\kelpimg", 123, 8, L"ASSERTION FAILED!\nFALSE ,.\\kelpimg, 123"},
        {"CloseHandle(m_hEvent)", ".\\kelpos", 480, 89,
         L"ASSERTION FAILED!\nCloseHandle(m_hEvent) ,.\\kelpos, 480"},
    };
    for (const auto& c : cases) {
        SinkClear();
        int result = 0;
        EXPECT_NO_THROW(result = AssertThenGoOn(c.expression, c.file, c.line, c.area));
        EXPECT_EQ(result, 7);
        auto lines = SinkLines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].area, unsigned(c.area));
        EXPECT_EQ(lines[0].level, 2u);
        EXPECT_EQ(lines[0].text, c.text);
    }
}

TEST(Trace, UnboundFacilityFallsBackWithEveryLevelActive) {
    kelp::dbgEnd();
    kelp::dbgEnd(); // unbinding twice does nothing
    unsigned before = kelptest::SinkPrintCount();
    kelptest::SinkSetLevelMask(0);
    EXPECT_EQ(kelp::dbgActive(8, 31), 1);
    EXPECT_EQ(kelp::dbgActive(1234, 0), 1);

    setenv("KELP_DEBUG_OUTPUT", "1", 1);
    testing::internal::CaptureStderr();
    kelp::dbgPrintf(8, 31, L"fallback %hs \xFC\r\n", "text");
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "fallback text \xC3\xBC\r\n");
    // The fallback buffer holds 1,024 characters: longer text is cut there.
    std::wstring big(2000, L'a');
    testing::internal::CaptureStderr();
    kelp::dbgPrintf(8, 2, L"%s", big.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr().size(), 1023u);

    unsetenv("KELP_DEBUG_OUTPUT");
    testing::internal::CaptureStderr();
    kelp::dbgPrintf(8, 2, L"silent");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(kelptest::SinkPrintCount(), before);

    kelptest::SinkSetLevelMask(~0u);
    kelp::dbgInit();
    kelp::dbgInit(); // binding twice does nothing
    SinkClear();
    kelp::dbgPrintf(8, 2, L"back");
    EXPECT_EQ(SinkText(8), L"back");
}

TEST(Trace, SinkWithOneEntryLeavesTheFallbacksAndIsStillReleased) {
    std::string original;
    ASSERT_TRUE(kelp::os::GetEnv("KELP_TRACE_SINK", &original));
    kelp::dbgEnd();
    setenv("KELP_TRACE_SINK", KELP_HALFSINK_PATH, 1);
    kelp::dbgInit();
    // The module is loaded but not bound: every level reads active, nothing reaches it.
    kelptest::SinkSetLevelMask(0);
    EXPECT_EQ(kelp::dbgActive(8, 5), 1);
    kelp::dbgPrintf(8, 2, L"to fallback");
    KXMODULE half = kelp::os::LoadModule(kelp::os::FromUtf8(KELP_HALFSINK_PATH));
    ASSERT_NE(half, nullptr);
    auto calls = reinterpret_cast<unsigned (*)()>(kelp::os::GetSymbol(half, "HalfSinkCalls"));
    ASSERT_NE(calls, nullptr);
    EXPECT_EQ(calls(), 0u);
    kelp::os::FreeModule(half);
    kelp::dbgEnd(); // releases the half sink
    setenv("KELP_TRACE_SINK", original.c_str(), 1);
    kelptest::SinkSetLevelMask(~0u);
    kelp::dbgInit();
    SinkClear();
    kelp::dbgPrintf(8, 2, L"bound again");
    EXPECT_EQ(SinkText(8), L"bound again");
}

TEST(Module, IdentityNamesTheFileHoldingTheLibrary) {
    std::wstring file = kelp::GetKELPModuleFile();
    std::wstring path = kelp::GetKELPModulePath();
    ASSERT_FALSE(file.empty());
    EXPECT_EQ(file[0], L'/');
    ASSERT_FALSE(path.empty());
    EXPECT_EQ(path.back(), L'/');
    EXPECT_EQ(file.compare(0, path.size(), path), 0);
    EXPECT_NE(kelp::GetKELPModule(), nullptr);
    EXPECT_STREQ(kelp::pszNL, L"\r\n");
}
