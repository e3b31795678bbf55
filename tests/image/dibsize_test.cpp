// Row and image sizes of the descriptor, with the assertion reports of impossible
// records.
#include <gtest/gtest.h>

#include <functional>

#include <kelp/kxbih.h>

#include "kxbihtest.h"

using namespace kelp;
using kelptest::MakeRgb;
using kelptest::MakeYuv;

namespace {

struct SizeCase {
    const char* what;
    std::function<KXBMINFOHEADERYUV()> make;
    int plane;
    int32_t rowBytes;
    int rowAsserts;
    int32_t size;
    int sizeAsserts;
};

KXBMINFOHEADERYUV With(KXBMINFOHEADERYUV r, std::function<void(KXBMINFOHEADERYUV&)> f) {
    f(r);
    return r;
}

} // namespace

TEST(DIBSizes, RowBytesAndSizesWithTheirAssertionReports) {
    const SizeCase cases[] = {
        {"24-bit RGB, 5 wide: 15 bytes rounded to 16", [] { return MakeRgb(5, 3, 24); }, 1, 16, 0,
         48, 0},
        {"32-bit RGB", [] { return MakeRgb(7, 2, 32); }, 1, 28, 0, 56, 0},
        {"1-bit RGB, 33 wide: the shift drops the odd bit", [] { return MakeRgb(33, 2, 1); }, 1, 4,
         0, 8, 0},
        {"16-bit RGB, 3 wide", [] { return MakeRgb(3, 1, 16); }, 1, 8, 0, 8, 0},
        {"RGB in 2 planes: a row is the width, rounded",
         [] { return With(MakeRgb(5, 3, 24), [](auto& r) { r.bmi.biPlanes = 2; }); }, 2, 8, 0, 48,
         0},
        {"RGB with 0 planes counts one plane",
         [] { return With(MakeRgb(4, 3, 8), [](auto& r) { r.bmi.biPlanes = 0; }); }, 1, 4, 0, 12,
         0},
        {"top-down RGB: the size carries the sign", [] { return MakeRgb(4, -3, 32); }, 1, 16, 0,
         -48, 0},
        {"YUV 4:4:4 at 24 bits", [] { return MakeYuv(5, 2, 24); }, 1, 16, 0, 32, 0},
        {"YUV record too short for its extension",
         [] { return With(MakeYuv(8, 2, 32), [](auto& r) { r.bmi.biSize = 144; }); }, 1, 0, 1, 0,
         1},
        {"YUV 4:2:2 meshed: a quarter of the true row, reported",
         [] { return MakeYuv(10, 3, 16, KXYUV_SAMPLING_422); }, 1, 4, 1, 12, 1},
        {"YUV 4:2:2 with 10-bit components",
         [] {
             return With(MakeYuv(10, 3, 16, KXYUV_SAMPLING_422),
                         [](auto& r) { r.yuv.yuvBits = 10; });
         },
         1, 0, 1, 0, 1},
        {"YUV 4:2:2 planar: luma plane",
         [] {
             return With(MakeYuv(10, 3, 16, KXYUV_SAMPLING_422),
                         [](auto& r) { r.bmi.biPlanes = 4; });
         },
         1, 12, 1, 0, 1},
        {"YUV 4:2:2 planar: chroma plane, half the width truncated",
         [] {
             return With(MakeYuv(11, 3, 16, KXYUV_SAMPLING_422),
                         [](auto& r) { r.bmi.biPlanes = 4; });
         },
         3, 8, 1, 0, 1},
        {"YUV 4:2:2 planar: alpha plane",
         [] {
             return With(MakeYuv(10, 3, 16, KXYUV_SAMPLING_422),
                         [](auto& r) { r.bmi.biPlanes = 4; });
         },
         4, 12, 1, 0, 1},
        {"YUV 4:2:2 planar: plane above the planes",
         [] {
             return With(MakeYuv(10, 3, 16, KXYUV_SAMPLING_422),
                         [](auto& r) { r.bmi.biPlanes = 3; });
         },
         4, 0, 1, 0, 1},
        {"YUV 4:2:2 planar: plane number 5 of 6",
         [] {
             return With(MakeYuv(10, 3, 16, KXYUV_SAMPLING_422),
                         [](auto& r) { r.bmi.biPlanes = 6; });
         },
         5, 0, 1, 0, 1},
        {"YUV 4:2:2 (512) is not sized", [] { return MakeYuv(10, 3, 16, KXYUV_SAMPLING_422B); }, 1,
         0, 1, 0, 1},
        {"YUV 4:2:0 is not sized", [] { return MakeYuv(10, 3, 16, KXYUV_SAMPLING_420); }, 1, 0, 1,
         0, 1},
        {"codec data MPGI: sized like rows, no row size",
         [] { return With(MakeRgb(10, 3, 12), [](auto& r) { r.bmi.biCompression = KXBI_MPGI; }); },
         1, 0, 0, 48, 0},
        {"codec data DVSD",
         [] { return With(MakeRgb(10, 3, 16), [](auto& r) { r.bmi.biCompression = KXBI_DVSD; }); },
         1, 0, 0, 60, 0},
        {"toolkit format RGBz: unsized, the size reports",
         [] { return With(MakeRgb(10, 3, 32), [](auto& r) { r.bmi.biCompression = KXBI_RGBZ; }); },
         1, 0, 0, 0, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        KXBMINFOHEADERYUV r = c.make();
        kelptest::SinkClear();
        EXPECT_EQ(DIBRowBytes(&r.bmi, c.plane), c.rowBytes);
        EXPECT_EQ(kelptest::AssertionCount(), c.rowAsserts);
        kelptest::SinkClear();
        EXPECT_EQ(DIBSize(&r.bmi), c.size);
        EXPECT_EQ(kelptest::AssertionCount(), c.sizeAsserts);
    }
}

TEST(DIBSizes, AssertionReportNamesTheSourceAndReturns) {
    KXBMINFOHEADERYUV r = MakeYuv(8, 2, 32, KXYUV_SAMPLING_411);
    kelptest::SinkClear();
    EXPECT_EQ(DIBRowBytes(&r.bmi, 1), 0);
    auto lines = kelptest::SinkLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].area, 8u);
    EXPECT_EQ(lines[0].level, 2u);
    const std::wstring head = L"ASSERTION FAILED!\nFALSE ,.\\kelpimg, ";
    ASSERT_EQ(lines[0].text.compare(0, head.size(), head), 0);
    std::wstring line = lines[0].text.substr(head.size());
    ASSERT_FALSE(line.empty());
    for (wchar_t ch : line)
        EXPECT_TRUE(ch >= L'0' && ch <= L'9') << "line number";
}

TEST(DIBSizes, BytesPerPixelAndAlignUp) {
    struct {
        uint16_t bits, planes;
        int32_t bpp;
    } bpp[] = {{32, 1, 4}, {24, 1, 3}, {16, 1, 2}, {8, 1, 1},
               {4, 1, 0},  {24, 3, 1}, {32, 2, 2}, {32, 0, 4}};
    for (auto& c : bpp) {
        KXBMINFOHEADERYUV r = MakeRgb(4, 4, c.bits);
        r.bmi.biPlanes = c.planes;
        EXPECT_EQ(DIBBytesPerPixel(&r.bmi), c.bpp) << c.bits << " bits, " << c.planes << " planes";
    }
    struct {
        int32_t value, alignment, expected;
    } align[] = {{5, 4, 8},   {8, 4, 8},   {0, 4, 0},   {5, 0, 8},     {7, 3, 9},
                 {1, 16, 16}, {17, 1, 17}, {-5, 4, -4}, {100, 64, 128}};
    for (auto& c : align)
        EXPECT_EQ(AlignUp(c.value, c.alignment), c.expected) << c.value << " to " << c.alignment;
}
