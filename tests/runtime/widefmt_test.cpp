#include <gtest/gtest.h>

#include <kelp/trace.h>

#include <string>

namespace {
std::wstring F(const wchar_t* fmt, ...) {
    wchar_t buf[256];
    va_list ap;
    va_start(ap, fmt);
    kelpFormatV(buf, 256, fmt, ap);
    va_end(ap);
    return buf;
}
} // namespace

TEST(Formatter, IntegersAndWidths) {
    EXPECT_EQ(F(L"%d|%i|%u", -5, 7, 4000000000u), L"-5|7|4000000000");
    EXPECT_EQ(F(L"%08X|%x|%02X ", 0xBEEFu, 255u, 10u), L"0000BEEF|ff|0A ");
    EXPECT_EQ(F(L"%5d|%-5d|%05d", 42, 42, -42), L"   42|42   |-0042");
    // `l` is 32 bits, as on the system the formats were written for.
    EXPECT_EQ(F(L"%lu bytes", 4294967295u), L"4294967295 bytes");
    EXPECT_EQ(F(L"%I64d|%lld", -(1LL << 40), 1LL << 40), L"-1099511627776|1099511627776");
    EXPECT_EQ(F(L"%d%%", 50), L"50%");
    EXPECT_EQ(F(L"%*d|%.3d", 4, 7, 7), L"   7|007");
}

TEST(Formatter, WideAndNarrowText) {
    EXPECT_EQ(F(L"%s:%hs", L"wide", "narrow"), L"wide:narrow");
    EXPECT_EQ(F(L"%hc%hc%hc%hc", 'R', 'G', 'B', ' '), L"RGB ");
    EXPECT_EQ(F(L"%c%C", L'\x263A', 'x'), L"\x263Ax");
    EXPECT_EQ(F(L"%S|%ls", "n", L"w"), L"n|w");
    // Narrow bytes above 0x7F: UTF-8 where valid, Latin-1 bytes where not.
    EXPECT_EQ(F(L"%hs", "gr\xC3\xBC\xC3\x9F"), L"gr\xFC\xDF");
    EXPECT_EQ(F(L"%hs", "\xE9t\xE9"), L"\xE9t\xE9");
    EXPECT_EQ(F(L"%hc", 0xAB), L"\xAB");
    EXPECT_EQ(F(L"[%5s][%-4hs][%.2s]", L"ab", "c", L"xyz"), L"[   ab][c   ][xy]");
    EXPECT_EQ(F(L"%s|%hs", (const wchar_t*)nullptr, (const char*)nullptr), L"(null)|(null)");
}

TEST(Formatter, PointersAreUpperCaseHexWithoutPrefix) {
    EXPECT_EQ(F(L"%p", reinterpret_cast<void*>(0xABCDEF12)), L"00000000ABCDEF12");
    EXPECT_EQ(F(L"0x%p", nullptr), L"0x0000000000000000");
}

TEST(Formatter, FloatsAndOddConversions) {
    EXPECT_EQ(F(L"%.2f|%g|%e", 3.14159, 0.5, 1000.0), L"3.14|0.5|1.000000e+03");
    EXPECT_EQ(F(L"%y|%"), L"%y|%");
}

TEST(Formatter, StopsAtTheRoomAndTerminates) {
    wchar_t buf[8];
    int n = kelpFormat(buf, 8, L"%s", L"0123456789");
    EXPECT_EQ(n, 7);
    EXPECT_EQ(std::wstring(buf), L"0123456");
    wchar_t one[1] = {L'x'};
    EXPECT_EQ(kelpFormat(one, 1, L"abc"), 0);
    EXPECT_EQ(one[0], L'\0');
}
