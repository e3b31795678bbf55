// Validity, readability, field mode, names and comparisons of the descriptor.
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include <kelp/kxbih.h>
#include <kelp/kxconv.h>
#include <kelp/trace.h>

#include "kxbihtest.h"

using namespace kelp;
using kelptest::MakeRgb;
using kelptest::MakeYuv;

TEST(KXBIH, ValidationAcceptsOnlyRgbAndMeshedYuv444) {
    struct Case {
        const char* what;
        std::function<void(KXBMINFOHEADERYUV&)> change;
        bool yuv;
        bool valid;
    } cases[] = {
        {"plain 32-bit RGB", [](auto&) {}, false, true},
        {"RGB record of 160 bytes", [](auto& r) { r.bmi.biSize = 160; }, false, true},
        {"Windows-sized RGB record", [](auto& r) { r.bmi.biSize = 40; }, false, false},
        {"bit fields code", [](auto& r) { r.bmi.biCompression = 3; }, false, false},
        {"toolkit code RGBz", [](auto& r) { r.bmi.biCompression = KXBI_RGBZ; }, false, false},
        {"two planes", [](auto& r) { r.bmi.biPlanes = 2; }, false, false},
        {"zero planes", [](auto& r) { r.bmi.biPlanes = 0; }, false, false},
        {"fields stored apart", [](auto& r) { r.bmi.bmiFormat = KXBMIFORMAT_TWOFIELDS; }, false,
         false},
        {"chrono flag is no obstacle",
         [](auto& r) { r.bmi.bmiFormat = KXBMIFORMAT_ODDEVEN_CHRONO; }, false, true},
        {"meshed YUV 4:4:4", [](auto&) {}, true, true},
        {"YUV in ITU 709", [](auto& r) { r.yuv.yuvColorSpace = 2; }, true, true},
        {"YUV in the normalised space", [](auto& r) { r.yuv.yuvColorSpace = 1; }, true, false},
        {"YUV components of width 0 read as 8", [](auto& r) { r.yuv.yuvBits = 0; }, true, true},
        {"YUV 10-bit components", [](auto& r) { r.yuv.yuvBits = 10; }, true, false},
        {"YUV 4:2:2", [](auto& r) { r.yuv.yuvSampling = 0; }, true, false},
        {"YUV 4:2:0", [](auto& r) { r.yuv.yuvSampling = KXYUV_SAMPLING_420; }, true, false},
        {"YUV auxiliary sampling", [](auto& r) { r.yuv.yuvSamplingAux = 1; }, true, false},
        {"YUV without extension offset", [](auto& r) { r.bmi.bmiExtOffset = 0; }, true, false},
        {"YUV of 144 bytes", [](auto& r) { r.bmi.biSize = 144; }, true, false},
        {"YUV fields stored apart", [](auto& r) { r.bmi.bmiFormat = KXBMIFORMAT_TWOFIELDS; }, true,
         false},
    };
    for (const auto& c : cases) {
        KXBMINFOHEADERYUV r = c.yuv ? MakeYuv(8, 4, 32) : MakeRgb(8, 4, 32);
        c.change(r);
        EXPECT_EQ(ValidateBIH(&r.bmi), c.valid ? KX_OK : KXE_INVALID) << c.what;
    }
}

TEST(KXBIH, ValidationNeverReadsPastAShortYuvRecord) {
    // A Windows-sized header that claims "@YUV", in a block of exactly 40 bytes: the
    // size is refused before the extension offset behind it would be read.
    std::unique_ptr<unsigned char[]> block(new unsigned char[40]());
    auto* r = reinterpret_cast<KXBMINFOHEADER*>(block.get());
    r->biSize = 40;
    r->biPlanes = 1;
    r->biCompression = KXBI_YUV;
    EXPECT_EQ(ValidateBIH(r), KXE_INVALID);
}

TEST(KXBIH, ReadabilityChecksTraceTheirFailures) {
    KXBMINFOHEADERYUV r = MakeRgb(8, 4, 32);
    kelptest::SinkClear();
    EXPECT_TRUE(CheckBIHReadable(&r.bmi));
    EXPECT_FALSE(CheckBIHReadable(nullptr));
    r.bmi.biSize = 0x7FFFFFF0u; // runs far past the stack
    EXPECT_FALSE(CheckBIHReadable(&r.bmi));
    auto errors = kelptest::Lines8(2);
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(errors[0], L"CConversionManager::Invalid BIH!\n");
    EXPECT_EQ(errors[1], L"CConversionManager::Invalid BIH!\n");

    alignas(16) unsigned char pixels[64] = {};
    kelptest::SinkClear();
    EXPECT_TRUE(CheckBuffer(pixels, 64));
    EXPECT_TRUE(CheckBuffer(nullptr, 0));
    EXPECT_TRUE(kelptest::SinkLines().empty());
    EXPECT_FALSE(CheckBuffer(nullptr, 16));
    EXPECT_TRUE(CheckBuffer(pixels + 4, 16)); // passes, traced at area 89, level 0
    auto lines = kelptest::SinkLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].area, 8u);
    EXPECT_EQ(lines[0].level, 2u);
    EXPECT_EQ(lines[0].text, L"CConversionManager::Invalid Buffer!\n");
    wchar_t expected[128];
    kelpFormat(expected, 128, L"CConversionManager::Unaligned Buffer %p!\r\n",
               static_cast<void*>(pixels + 4));
    EXPECT_EQ(lines[1].area, 89u);
    EXPECT_EQ(lines[1].level, 0u);
    EXPECT_EQ(lines[1].text, expected);
}

TEST(KXBIH, FieldModeFromFrameAndChronoFlag) {
    struct {
        uint32_t frame, format;
        int mode;
    } cases[] = {{1, 0, KXFIELD_PROGRESSIVE},
                 {1, KXBMIFORMAT_ODDEVEN_CHRONO, KXFIELD_PROGRESSIVE},
                 {0, 0, KXFIELD_INTERLACED},
                 {2, 0, KXFIELD_INTERLACED}, // any value but 1 is interlaced
                 {3, KXBMIFORMAT_TWOFIELDS, KXFIELD_INTERLACED},
                 {0, KXBMIFORMAT_ODDEVEN_CHRONO, KXFIELD_CHRONO}};
    for (auto& c : cases) {
        KXBMINFOHEADERYUV r = MakeRgb(4, 4, 32);
        r.bmi.bmiFrame = c.frame;
        r.bmi.bmiFormat = c.format;
        EXPECT_EQ(DIBFieldMode(&r.bmi), c.mode) << c.frame << "/" << c.format;
    }
    // Setting a mode keeps the other format flags.
    KXBMINFOHEADERYUV r = MakeRgb(4, 4, 32);
    r.bmi.bmiFormat = KXBMIFORMAT_FIELDSWAP;
    for (int mode : {KXFIELD_CHRONO, KXFIELD_INTERLACED, KXFIELD_PROGRESSIVE, KXFIELD_CHRONO}) {
        DIBSetFieldMode(&r.bmi, mode);
        EXPECT_EQ(DIBFieldMode(&r.bmi), mode);
        EXPECT_TRUE(r.bmi.bmiFormat & KXBMIFORMAT_FIELDSWAP);
    }
    DIBSetFieldMode(&r.bmi, KXFIELD_PROGRESSIVE);
    EXPECT_EQ(r.bmi.bmiFrame, 1u);
    EXPECT_EQ(r.bmi.bmiFormat, KXBMIFORMAT_FIELDSWAP);
}

TEST(KXBIH, FormatNames) {
    struct {
        uint32_t code;
        uint16_t bits;
        uint32_t sampling;
        const wchar_t* name;
    } cases[] = {{KXBI_RGB, 64, 0, L"BGRA"},
                 {KXBI_RGB, 24, 0, L"BGR"},
                 {KXBI_MPGI, 12, 0, L"???"},
                 {KXBI_YUV, 16, 512, L"YUV422"},
                 {KXBI_YUV, 12, 128, L"YUV???"}};
    for (auto& c : cases) {
        KXBMINFOHEADERYUV r = MakeYuv(4, 4, c.bits, c.sampling);
        r.bmi.biCompression = c.code;
        EXPECT_STREQ(DIBFormatName(&r.bmi), c.name);
    }
}

TEST(KXBIH, ComparisonPredicates) {
    using Pred = bool (*)(const KXBMINFOHEADER*, const KXBMINFOHEADER*, uint32_t);
    struct Case {
        const char* what;
        Pred pred;
        std::function<void(KXBMINFOHEADERYUV&)> change; // applied to the second record
        uint32_t flags;
        bool same;
        bool yuv = false;
    } cases[] = {
        {"equal codes", SameColorSpace, [](auto&) {}, 0, true},
        {"RGB against YUV", SameColorSpace, [](auto& r) { r.bmi.biCompression = KXBI_YUV; }, 0,
         false},
        {"YUV colour spaces differ", SameColorSpace, [](auto& r) { r.yuv.yuvColorSpace = 2; }, 0,
         false, true},
        {"RGB ignores the extension words", SameColorSpace,
         [](auto& r) { r.yuv.yuvColorSpace = 2; }, 0, true},
        {"depths differ", SameBitCount, [](auto& r) { r.bmi.biBitCount = 24; }, 0, false},
        {"ratio 0 reads as 1.0", SameGeometry, [](auto& r) { r.bmi.bmiRatioX = 0x10000; }, 0, true},
        {"ratios differ", SameGeometry, [](auto& r) { r.bmi.bmiRatioY = 0x8000; }, 0, false},
        {"ratios differ, fit GOOD", SameGeometry, [](auto& r) { r.bmi.bmiRatioY = 0x8000; },
         KXCONV_FIT_GOOD, true},
        {"ratios differ, fit FAST", SameGeometry, [](auto& r) { r.bmi.bmiRatioX = 0x8000; },
         KXCONV_FIT_FAST, true},
        {"ratios differ, fit but keep aspect", SameGeometry,
         [](auto& r) { r.bmi.bmiRatioX = 0x8000; }, KXCONV_FIT_GOOD | KXCONV_KEEP_ASPECT, false},
        {"sizes differ, fit", SameGeometry, [](auto& r) { r.bmi.biWidth = 9; }, KXCONV_FIT_GOOD,
         false},
        {"row order differs", SameGeometry, [](auto& r) { r.bmi.biHeight = -4; }, 0, false},
        {"interlaced against progressive", SameScan, [](auto& r) { r.bmi.bmiFrame = 0; }, 0, false},
        {"frame 2 reads as interlaced", SameScan, [](auto& r) { r.bmi.bmiFrame = 2; }, 0, false},
        {"two fields differ", SameScan, [](auto& r) { r.bmi.bmiFormat = KXBMIFORMAT_TWOFIELDS; }, 0,
         false},
        {"chrono on a progressive record", SameScan,
         [](auto& r) { r.bmi.bmiFormat = KXBMIFORMAT_ODDEVEN_CHRONO; }, 0, true},
        {"flags differ in bit 3 only", SameFlags, [](auto& r) { r.bmi.bmiFlags = 8; }, 0, true},
        {"flags differ in bit 2", SameFlags, [](auto& r) { r.bmi.bmiFlags = 4; }, 0, false},
        {"alpha differs", SameAlpha, [](auto& r) { r.bmi.bmiAlpha = 1; }, 0, false},
        {"rectangles differ in the bottom", SameRect, [](auto& r) { r.bmi.bmiRect.bottom = 1; }, 0,
         false},
        {"rectangles equal", SameRect, [](auto&) {}, 0, true},
    };
    for (const auto& c : cases) {
        KXBMINFOHEADERYUV a = c.yuv ? MakeYuv(8, 4, 32) : MakeRgb(8, 4, 32);
        KXBMINFOHEADERYUV b = a;
        c.change(b);
        EXPECT_EQ(c.pred(&a.bmi, &b.bmi, c.flags), c.same) << c.what;
        EXPECT_EQ(c.pred(&b.bmi, &a.bmi, c.flags), c.same) << c.what << " (swapped)";
    }
}
