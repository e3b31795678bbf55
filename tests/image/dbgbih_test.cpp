// The trace forms of a descriptor, word for word.
#include <gtest/gtest.h>

#include <kelp/kxbih.h>
#include <kelp/trace.h>

#include "kxbihtest.h"

using namespace kelp;
using kelptest::MakeRgb;
using kelptest::MakeYuv;

namespace {
std::wstring Pointer(const void* p) {
    wchar_t b[32];
    kelpFormat(b, 32, L"%p", p);
    return b;
}
} // namespace

TEST(DbgBIH, FullLineWithEveryFlagLetter) {
    KXBMINFOHEADERYUV r = MakeRgb(640, -480, 32);
    r.bmi.biSizeImage = 1228800;
    r.bmi.bmiFlags = 8 | 1;
    r.bmi.bmiAlpha = 3; // both alpha letters, as the bits say
    r.bmi.bmiFormat = KXBMIFORMAT_TWOFIELDS | KXBMIFORMAT_ODDEVEN_CHRONO;
    r.bmi.bmiFrame = 1;
    r.bmi.bmiRatioX = 0x10000;
    r.bmi.bmiAlignment = 16;
    r.bmi.bmiReserved3[0] = 77;
    kelptest::SinkClear();
    dbgBIH(8, 30, L"In", &r.bmi, pszNL);
    auto lines = kelptest::SinkLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].area, 8u);
    EXPECT_EQ(lines[0].level, 30u);
    EXPECT_EQ(lines[0].text, L"In:(0x" + Pointer(&r.bmi) +
                                 L",144,1,640,-480,32,RGB ,1228800,ZOP2CF,65536,16,77)\r\n");
}

TEST(DbgBIH, YuvCodeNullRecordAndInactiveLevel) {
    KXBMINFOHEADERYUV r = MakeYuv(8, 2, 24);
    r.bmi.bmiFrame = 0;
    kelptest::SinkClear();
    dbgBIH(29, 29, L"Codec", &r.bmi, L"|");
    dbgBIH(8, 30, L"Out", nullptr, pszNL);
    auto lines = kelptest::SinkLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].area, 29u);
    EXPECT_EQ(lines[0].text, L"Codec:(0x" + Pointer(&r.bmi) + L",160,1,8,2,24,@YUV,48,,0,0,0)|");
    EXPECT_EQ(lines[1].text, L"Out:(NULL)\r\n");

    kelptest::SinkSetLevelMask(~(1u << 30));
    kelptest::SinkClear();
    unsigned before = kelptest::SinkPrintCount();
    dbgBIH(8, 30, L"In", &r.bmi, pszNL);
    dbgBIHPair(&r.bmi, &r.bmi);
    kelptest::SinkSetLevelMask(0xFFFFFFFFu);
    EXPECT_EQ(kelptest::SinkPrintCount(), before);
}

TEST(DbgBIH, PairForm) {
    KXBMINFOHEADERYUV a = MakeRgb(720, 576, 24);
    a.bmi.bmiFrame = 0;
    a.bmi.bmiFormat = KXBMIFORMAT_ODDEVEN_CHRONO;
    KXBMINFOHEADERYUV b = MakeYuv(360, -288, 32);
    b.bmi.bmiRatioX = 0x10000;
    b.bmi.bmiRatioY = 0xC000;
    b.bmi.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
    kelptest::SinkClear();
    dbgBIHPair(&a.bmi, &b.bmi);
    auto lines = kelptest::Lines8(30);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0],
              L"(144,RGB,1,24,720,576,0,0,C)->(160,@YUV,1,32,360,-288,65536,49152,PF)\r\n");
}
