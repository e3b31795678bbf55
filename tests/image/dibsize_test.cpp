// Row and image sizes of the descriptor, with the assertion reports of impossible
// records.
#include <gtest/gtest.h>

#include <kelp/kxbih.h>

#include "kxbihtest.h"

using namespace kelp;
using kelptest::MakeYuv;

TEST(DIBSizes, RowBytesAndSizesWithTheirAssertionReports) {
    constexpr uint32_t RGB = KXBI_RGB, YUV = KXBI_YUV, S422 = KXYUV_SAMPLING_422;
    struct Case {
        const char* what;
        uint32_t code;
        uint16_t bits, planes;
        int32_t width, height;
        uint32_t sampling, size, yuvBits;
        int plane;
        int32_t rowBytes;
        int rowAsserts;
        int32_t dibSize;
        int sizeAsserts;
    } cases[] = {
        // what, code, bits, planes, width, height, sampling, biSize, yuvBits,
        // plane asked, row bytes, its reports, image size, its reports
        {"24-bit RGB, 15 -> 16 bytes", RGB, 24, 1, 5, 3, 0, 144, 0, 1, 16, 0, 48, 0},
        {"1-bit RGB drops odd bits", RGB, 1, 1, 33, 2, 0, 144, 0, 1, 4, 0, 8, 0},
        {"16-bit RGB", RGB, 16, 1, 3, 1, 0, 144, 0, 1, 8, 0, 8, 0},
        {"RGB in 2 planes", RGB, 24, 2, 5, 3, 0, 144, 0, 2, 8, 0, 48, 0},
        {"RGB, 0 planes count as 1", RGB, 8, 0, 4, 3, 0, 144, 0, 1, 4, 0, 12, 0},
        {"top-down: size carries sign", RGB, 32, 1, 4, -3, 0, 144, 0, 1, 16, 0, -48, 0},
        {"YUV 4:4:4, 24 bits", YUV, 24, 1, 5, 2, 16, 160, 8, 1, 16, 0, 32, 0},
        {"YUV too short for its ext.", YUV, 32, 1, 8, 2, 16, 144, 8, 1, 0, 1, 0, 1},
        {"YUV 4:2:2 meshed: 1/4 row", YUV, 16, 1, 10, 3, S422, 160, 8, 1, 4, 1, 12, 1},
        {"YUV 4:2:2, 10-bit", YUV, 16, 1, 10, 3, S422, 160, 10, 1, 0, 1, 0, 1},
        {"planar 4:2:2 luma", YUV, 16, 4, 10, 3, S422, 160, 8, 1, 12, 1, 0, 1},
        {"planar chroma, w/2 truncated", YUV, 16, 4, 11, 3, S422, 160, 8, 3, 8, 1, 0, 1},
        {"planar alpha plane", YUV, 16, 4, 10, 3, S422, 160, 0, 4, 12, 1, 0, 1},
        {"plane above the planes", YUV, 16, 3, 10, 3, S422, 160, 8, 4, 0, 1, 0, 1},
        {"plane 5 of 6", YUV, 16, 6, 10, 3, S422, 160, 8, 5, 0, 1, 0, 1},
        {"YUV 4:2:2 (512) unsized", YUV, 16, 1, 10, 3, 512, 160, 8, 1, 0, 1, 0, 1},
        {"YUV 4:2:0 unsized", YUV, 16, 1, 10, 3, 64, 160, 8, 1, 0, 1, 0, 1},
        {"MPGI sized like rows", KXBI_MPGI, 12, 1, 10, 3, 0, 144, 0, 1, 0, 0, 48, 0},
        {"DVSD sized like rows", KXBI_DVSD, 16, 1, 10, 3, 0, 144, 0, 1, 0, 0, 60, 0},
        {"RGBz: the size reports", KXBI_RGBZ, 32, 1, 10, 3, 0, 144, 0, 1, 0, 0, 0, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        KXBMINFOHEADERYUV r = MakeYuv(c.width, c.height, c.bits, c.sampling);
        r.bmi.biCompression = c.code;
        r.bmi.biPlanes = c.planes;
        r.bmi.biSize = c.size;
        r.yuv.yuvBits = c.yuvBits;
        kelptest::SinkClear();
        EXPECT_EQ(DIBRowBytes(&r.bmi, c.plane), c.rowBytes);
        EXPECT_EQ(kelptest::AssertionCount(), c.rowAsserts);
        kelptest::SinkClear();
        EXPECT_EQ(DIBSize(&r.bmi), c.dibSize);
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
    KXBMINFOHEADERYUV r = MakeYuv(4, 4, 24);
    r.bmi.biPlanes = 3;
    EXPECT_EQ(DIBBytesPerPixel(&r.bmi), 1); // divided among the planes
    struct {
        int32_t value, alignment, expected;
    } align[] = {{5, 4, 8}, {8, 4, 8}, {0, 4, 0}, {5, 0, 8}, {7, 3, 9}, {-5, 4, -4}};
    for (auto& c : align)
        EXPECT_EQ(AlignUp(c.value, c.alignment), c.expected) << c.value << " to " << c.alignment;
}
