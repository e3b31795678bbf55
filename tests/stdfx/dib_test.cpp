// The CDIB image: sizes, sharing and copy on write, locks, lines, pixels.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <kelp/stdfx.h>

#include "guardedbuffer.h"
#include "kxbihtest.h"
#include "runtime/kelpos.h"

using kelptest::MakeRgb;
using kelptest::MakeYuv;
using stdfx::CDIB;

namespace {

uint8_t* Row(const CDIB& d, int memoryLine) {
    return static_cast<uint8_t*>(d.Bits()) + ptrdiff_t(memoryLine) * d.Stride();
}

} // namespace

TEST(DIBSizes, StrideAndImageSizeOfEveryFormat) {
    const uint32_t RGB = KXBI_RGB, RGBZ = KXBI_RGBZ, YUV = KXBI_YUV, YUVZ = KXBI_YUVZ,
                   ALP1 = CDIB::kFormatALP1;
    struct Case {
        const char* what;
        uint32_t format;
        uint16_t bits, planes;
        int32_t width, height;
        uint32_t sampling, yuvBits, size;
        int32_t alignment;
        uint32_t formatFlags, strideWord, sizeImage;
        int32_t stride;
        uint32_t image;
    } cases[] = {
        {"RGB 24", RGB, 24, 1, 5, 3, 0, 0, 144, 0, 0, 0, 0, 16, 48},
        {"RGB 32 top-down", RGB, 32, 1, 5, -3, 0, 0, 144, 0, 0, 0, 0, 20, 60},
        {"RGB 8", RGB, 8, 1, 5, 2, 0, 0, 144, 0, 0, 0, 0, 8, 16},
        {"RGB 32, 64-byte rows", RGB, 32, 1, 5, 2, 0, 0, 144, 64, 0, 0, 0, 64, 128},
        {"RGB in 3 planes", RGB, 24, 3, 5, 2, 0, 0, 144, 0, 0, 0, 0, 8, 48},
        {"stride word wins", RGB, 32, 1, 5, 2, 0, 0, 144, 64, 0, 100, 0, 100, 200},
        {"RGBz", RGBZ, 32, 1, 5, 2, 0, 0, 144, 0, 0, 0, 0, 40, 80},
        {"YUV 4:4:4 24", YUV, 24, 1, 5, 3, 16, 8, 160, 0, 0, 0, 0, 16, 48},
        {"YUV 4:4:4 two fields", YUV, 24, 1, 5, 3, 16, 8, 160, 0, 1, 0, 0, 16, 64},
        {"YUV 4:4:4 planar", YUV, 32, 4, 5, 3, 16, 8, 160, 0, 0, 0, 0, 8, 96},
        {"YUV 4:2:2 16", YUV, 16, 1, 5, 3, 0, 8, 160, 0, 0, 0, 0, 12, 36},
        {"YUV 4:2:2 32 + alpha", YUV, 32, 1, 5, 3, 512, 0, 160, 0, 0, 0, 0, 12, 36 + 24},
        {"YUV 4:2:2 10-bit", YUV, 16, 1, 5, 3, 0, 10, 160, 0, 0, 0, 0, 24, 72},
        {"YUV 4:2:2 planar 24", YUV, 24, 3, 5, 3, 0, 8, 160, 0, 0, 0, 0, 0, 3 * (8 + 2 * 4)},
        {"YUV 4:2:2 planar 32", YUV, 32, 4, 5, 3, 0, 8, 160, 0, 0, 0, 0, 0, 3 * (8 + 8 + 8)},
        {"YUV 4:2:2 planar 32, 64", YUV, 32, 4, 5, 3, 0, 8, 160, 64, 0, 0, 0, 0, 3 * (64 * 3 + 8)},
        {"YUV 4:2:2 planar 2 fields", YUV, 24, 3, 5, 3, 0, 8, 160, 0, 1, 0, 0, 0, 4 * 16},
        {"YUV short header", YUV, 32, 1, 5, 3, 16, 8, 144, 64, 0, 0, 0, 0, 0},
        {"YUVz", YUVZ, 32, 1, 5, 2, 16, 8, 160, 0, 0, 0, 0, 40, 80},
        {"YUVz 4:2:2", YUVZ, 32, 1, 5, 2, 0, 8, 160, 0, 0, 0, 0, 0, 0},
        {"ALP1 from size", ALP1, 8, 1, 5, 3, 0, 0, 144, 0, 0, 0, 77, 0, 77},
        {"ALP1 from rows", ALP1, 8, 1, 5, 3, 0, 0, 144, 0, 0, 0, 0, 0, 24},
        {"unknown format", KXBI_MPGI, 24, 1, 5, 3, 0, 0, 144, 0, 0, 0, 0, 0, 0},
        {"too wide for 31 bits", RGB, 32, 1, 0x40000000, 3, 0, 0, 144, 0, 0, 0, 0, 0, 0},
    };
    for (const auto& c : cases) {
        KXBMINFOHEADERYUV r = MakeYuv(1, c.height, c.bits, c.sampling);
        r.bmi.biWidth = c.width;
        r.bmi.biCompression = c.format;
        r.bmi.biPlanes = c.planes;
        r.bmi.biSize = c.size;
        r.bmi.bmiAlignment = c.alignment;
        r.bmi.bmiFormat = c.formatFlags;
        r.bmi.bmiStride = c.strideWord;
        r.bmi.biSizeImage = c.sizeImage;
        r.yuv.yuvBits = c.yuvBits;
        EXPECT_EQ(stdfx::DIBStride(&r.bmi), c.stride) << c.what;
        EXPECT_EQ(stdfx::DIBImageSize(&r.bmi), c.image) << c.what;
    }
    KXBMINFOHEADERYUV r = MakeRgb(4, 4, 32);
    EXPECT_STREQ(stdfx::DIBFormatString(&r.bmi), L"BGRA");
    r.bmi.biCompression = KXBI_RGBZ;
    EXPECT_STREQ(stdfx::DIBFormatString(&r.bmi), L"BGRAZ");
    r = MakeYuv(4, 4, 16, KXYUV_SAMPLING_422);
    EXPECT_STREQ(stdfx::DIBFormatString(&r.bmi), L"YUV422");
}

TEST(DIB, CreateAlignsStaggersAndRefuses) {
    KXBMINFOHEADERYUV r = MakeRgb(7, 5, 32);
    std::vector<uintptr_t> starts;
    for (int i = 0; i < 8; ++i) {
        CDIB d(&r.bmi);
        ASSERT_TRUE(d.IsValid());
        EXPECT_EQ(reinterpret_cast<uintptr_t>(d.Bits()) % 64, 0u);
        const auto offset =
            reinterpret_cast<uintptr_t>(d.Bits()) - reinterpret_cast<uintptr_t>(d.Header());
        EXPECT_GE(offset, 192u); // past the 160-byte header, staggered by 64 to 512
        EXPECT_LE(offset, 640u);
        starts.push_back(offset);
        EXPECT_EQ(d.GetRefCount(), 1);
        EXPECT_EQ(d.Header()->bmiMagic, KXBMI_MAGIC);
        EXPECT_EQ(d.Header()->bmiExtOffset, 0u);
    }
    std::sort(starts.begin(), starts.end());
    EXPECT_EQ(std::unique(starts.begin(), starts.end()) - starts.begin(), 8); // all staggers

    CDIB d;
    r.bmi.biBitCount = 0;
    EXPECT_FALSE(d.Create(&r.bmi));
    EXPECT_FALSE(d.IsValid());
    r = MakeRgb(1, 4, 32);
    r.bmi.biWidth = 0x40000000;
    EXPECT_FALSE(d.Create(&r.bmi));
    r = MakeRgb(4, 4, 32);
    r.bmi.biSize = 100000;
    EXPECT_FALSE(d.Create(&r.bmi));
    EXPECT_FALSE(d.Create(nullptr));
    EXPECT_TRUE(d.IsEmpty());
    EXPECT_EQ(d.GetRefCount(), 0);

    // The 32-bit 4:2:2 image keeps its alpha plane behind the rows, as an offset.
    KXBMINFOHEADERYUV y = MakeYuv(5, 3, 32, KXYUV_SAMPLING_422);
    CDIB a(&y.bmi);
    ASSERT_TRUE(a.IsValid());
    EXPECT_EQ(a.Header()->bmiAlphaOffset, 12u * 3);
    EXPECT_EQ(a.Header()->bmiAlphaStride, 8u);
    EXPECT_EQ(a.GetAlphaPlane(), static_cast<uint8_t*>(a.Bits()) + 36);
}

TEST(DIB, CopyOnWriteThroughTwoHandles) {
    KXBMINFOHEADERYUV r = MakeRgb(4, 3, 32);
    CDIB a(&r.bmi);
    ASSERT_TRUE(a.Fill(-1, 0x11223344));
    CDIB b(a);
    EXPECT_EQ(a.GetRefCount(), 2);
    EXPECT_EQ(a.Bits(), b.Bits());
    ASSERT_TRUE(b.Fill(-1, 0x55667788));
    EXPECT_NE(a.Bits(), b.Bits());
    EXPECT_EQ(a.GetRefCount(), 1);
    EXPECT_EQ(b.GetRefCount(), 1);
    int red, green, blue;
    ASSERT_TRUE(a.GetPixel(&red, &green, &blue, 3, 2));
    EXPECT_EQ(red, 0x22);
    EXPECT_EQ(blue, 0x44);
    ASSERT_TRUE(b.GetPixel(&red, &green, &blue, 0, 0));
    EXPECT_EQ(red, 0x66);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(b.Bits()) % 64, 0u);

    // Assignment shares; assigning the same body again changes nothing; a deep copy
    // never shares.
    CDIB c;
    c = a;
    EXPECT_EQ(a.GetRefCount(), 2);
    c = a;
    EXPECT_EQ(a.GetRefCount(), 2);
    CDIB e;
    e.CopyFrom(a);
    EXPECT_EQ(e.GetRefCount(), 1);
    EXPECT_NE(e.Bits(), a.Bits());
    EXPECT_EQ(std::memcmp(e.Bits(), a.Bits(), 48), 0);
    c.Release();
    EXPECT_EQ(a.GetRefCount(), 1);
    EXPECT_TRUE(c.IsEmpty());
}

TEST(DIB, LocksStopSharing) {
    KXBMINFOHEADERYUV r = MakeRgb(4, 3, 32);
    CDIB a(&r.bmi);
    a.Fill(-1, 1);
    CDIB shared(a);
    KXBMINFOHEADER* h = a.Lock(); // a shared image is split first
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h, a.Header());
    EXPECT_TRUE(a.IsLocked());
    EXPECT_EQ(a.GetRefCount(), -1);
    EXPECT_EQ(shared.GetRefCount(), 1);
    EXPECT_NE(shared.Bits(), a.Bits());

    CDIB copy;
    copy = a; // from a locked image: a private deep copy
    EXPECT_EQ(copy.GetRefCount(), 1);
    EXPECT_NE(copy.Bits(), a.Bits());
    EXPECT_EQ(std::memcmp(copy.Bits(), a.Bits(), 48), 0);

    // Into a locked image: copied into its own buffer, which stays where it was.
    void* bits = a.Bits();
    CDIB other(&r.bmi);
    other.Fill(-1, 7);
    a = other;
    EXPECT_EQ(a.Bits(), bits);
    EXPECT_EQ(*static_cast<uint32_t*>(bits), 7u);
    EXPECT_EQ(other.GetRefCount(), 1);
    a.Unlock();
    EXPECT_EQ(a.GetRefCount(), 1);

    CDIB empty;
    EXPECT_EQ(empty.Lock(), nullptr);
    empty.Unlock();
    EXPECT_EQ(empty.GetRefCount(), 0);
}

TEST(DIB, AttachedPixelsStayTheCallers) {
    KXBMINFOHEADERYUV r = MakeRgb(2, 2, 32);
    uint32_t pixels[4] = {1, 2, 3, 4};
    CDIB a(&r.bmi, pixels);
    EXPECT_EQ(a.Bits(), pixels);
    ASSERT_TRUE(a.Fill(-1, 9));
    EXPECT_EQ(pixels[3], 9u); // private: written in place
    CDIB b(a);
    ASSERT_TRUE(b.Fill(-1, 5)); // shared: the writer gets its own block
    EXPECT_EQ(pixels[0], 9u);
    EXPECT_NE(b.Bits(), static_cast<void*>(pixels));
    EXPECT_EQ(*static_cast<uint32_t*>(b.Bits()), 5u);
    EXPECT_TRUE(CDIB(&r.bmi, nullptr).IsEmpty());
    a.Detach();
    EXPECT_EQ(a.GetRefCount(), 0);
}

// Many threads copy and drop handles of one body at once; the count comes back to 1.
TEST(DIB, ReferenceCountsFromSeveralThreads) {
    KXBMINFOHEADERYUV r = MakeRgb(16, 16, 32);
    CDIB a(&r.bmi);
    a.Fill(-1, 0);
    std::vector<std::thread> threads;
    std::atomic<int> writes{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&a, &writes, t] {
            for (int i = 0; i < 2000; ++i) {
                CDIB c(a);
                CDIB d;
                d = c;
                if (i % 500 == 0 && d.Fill(-1, uint32_t(t))) ++writes; // a private copy
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(a.GetRefCount(), 1);
    EXPECT_EQ(writes.load(), 16);
    EXPECT_EQ(*static_cast<uint32_t*>(a.Bits()), 0u);
}

TEST(DIB, FirstAndLastLinesOfFields) {
    struct Case {
        int height;
        uint32_t format;
        int first0, first1, last0, last1;
    } cases[] = {
        {5, 0, 0, 1, 4, 3},    {-5, 0, 0, 1, 4, 3},    {4, 0, 1, 0, 3, 2},
        {-4, 0, 0, 1, 2, 3},   {5, 0x10, 1, 0, 3, 4},  {-5, 0x10, 1, 0, 3, 4},
        {4, 0x10, 0, 1, 2, 3}, {-4, 0x10, 1, 0, 3, 2},
    };
    for (const auto& c : cases) {
        KXBMINFOHEADERYUV r = MakeRgb(2, c.height, 32);
        r.bmi.bmiFormat = c.format;
        CDIB d(&r.bmi);
        SCOPED_TRACE(c.height);
        SCOPED_TRACE(c.format);
        EXPECT_EQ(d.FirstLine(-1), 0);
        EXPECT_EQ(d.LastLine(-1), std::abs(c.height) - 1);
        EXPECT_EQ(d.FirstLine(0), c.first0);
        EXPECT_EQ(d.FirstLine(1), c.first1);
        EXPECT_EQ(d.LastLine(0), c.last0);
        EXPECT_EQ(d.LastLine(1), c.last1);
        EXPECT_EQ(d.FirstLineOffset(1), c.first1 * 8);
        EXPECT_EQ(d.LastLineOffset(0), c.last0 * 8);
    }
}

TEST(DIB, FillEveryFormat) {
    struct Case {
        const char* what;
        KXBMINFOHEADERYUV header;
        uint32_t colorSpace;
        std::vector<uint8_t> row; // the first bytes of a row after Fill(-1, 0x44332211)
    } cases[] = {
        {"RGB 32", MakeRgb(3, 2, 32), 0, {0x11, 0x22, 0x33, 0x44, 0x11}},
        {"RGB 24", MakeRgb(3, 2, 24), 0, {0x11, 0x22, 0x33, 0x11, 0x22, 0x33}},
        {"RGB 8", MakeRgb(3, 2, 8), 0, {0x11, 0x11, 0x11}},
        {"YUV 4:4:4 limited", MakeYuv(3, 2, 32), 0, {16, 128, 128, 0, 16}},
        {"YUV 4:4:4 full", MakeYuv(3, 2, 32), 1, {0, 128, 128, 0, 0}},
        {"YUV 4:4:4 24", MakeYuv(3, 2, 24), 2, {16, 128, 128, 16}},
        {"YUYV", MakeYuv(3, 2, 16, KXYUV_SAMPLING_422), 0, {16, 128, 16, 128, 16, 128}},
        {"UYVY full", MakeYuv(3, 2, 16, KXYUV_SAMPLING_422B), 1, {128, 0, 128, 0, 128, 0}},
        {"RGBz", MakeRgb(2, 2, 32), 0, {0x11, 0x22, 0x33, 0x44, 0, 0, 0x80, 0x3F, 0x11}},
    };
    cases[8].header.bmi.biCompression = KXBI_RGBZ;
    for (auto& c : cases) {
        c.header.yuv.yuvColorSpace = c.colorSpace;
        CDIB d(&c.header.bmi);
        ASSERT_TRUE(d.IsValid()) << c.what;
        std::memset(d.Bits(), 0xEE, stdfx::DIBImageSize(d.Header()));
        ASSERT_TRUE(d.Fill(-1, 0x44332211)) << c.what;
        for (int line = 0; line < 2; ++line)
            EXPECT_EQ(std::vector<uint8_t>(Row(d, line), Row(d, line) + c.row.size()), c.row)
                << c.what;
    }
    // One field only, and the alpha plane of 32-bit 4:2:2 cleared with it.
    KXBMINFOHEADERYUV y = MakeYuv(4, 4, 32, KXYUV_SAMPLING_422);
    CDIB d(&y.bmi);
    std::memset(d.Bits(), 0xEE, stdfx::DIBImageSize(d.Header()));
    ASSERT_TRUE(d.Fill(0, 0));
    const int first = d.FirstLine(0);
    for (int line = 0; line < 4; ++line) {
        const bool filled = (line & 1) == (first & 1);
        EXPECT_EQ(Row(d, line)[0], filled ? 16 : 0xEE) << line;
        EXPECT_EQ(d.GetAlphaPlane()[line * d.GetAlphaStride()], filled ? 0 : 0xEE) << line;
    }
    // A row size that cannot hold a row is refused, not overrun.
    KXBMINFOHEADERYUV bad = MakeRgb(8, 2, 32);
    bad.bmi.bmiStride = 4;
    CDIB small(&bad.bmi);
    ASSERT_TRUE(small.IsValid());
    EXPECT_FALSE(small.Fill(-1, 0));
}

TEST(DIB, PixelsAreReadFromTheTop) {
    KXBMINFOHEADERYUV r = MakeRgb(3, 2, 32);
    CDIB d(&r.bmi);
    d.Fill(-1, 0);
    Row(d, 1)[0] = 0xA0; // the last memory row of a bottom-up image is its top
    Row(d, 1)[2] = 0xC0;
    int red, green, blue;
    ASSERT_TRUE(d.GetPixel(&red, &green, &blue, 0, 0));
    EXPECT_EQ(red, 0xC0);
    EXPECT_EQ(green, 0);
    EXPECT_EQ(blue, 0xA0);
    EXPECT_EQ(d.GetPixel8(0, 0), 0xA0);
    for (auto xy : {std::pair<int, int>{3, 0}, {0, 2}, {-1, 0}}) {
        EXPECT_FALSE(d.GetPixel(&red, &green, &blue, xy.first, xy.second));
        EXPECT_EQ(red, -1);
        EXPECT_EQ(green, -1);
        EXPECT_EQ(blue, -1);
        EXPECT_EQ(d.GetPixel8(xy.first, xy.second), -1);
    }
    CDIB empty;
    EXPECT_FALSE(empty.GetPixel(&red, &green, &blue, 0, 0));
}

TEST(DIB, CopyAtPlacesAndCuts) {
    KXBMINFOHEADERYUV small = MakeRgb(2, 2, 32), big = MakeRgb(4, -3, 32);
    CDIB s(&small.bmi), t(&big.bmi);
    // Source pixels 1 2 / 3 4 in display order (bottom-up memory: row 1 is the top).
    auto* sp = static_cast<uint32_t*>(s.Bits());
    sp[2] = 1;
    sp[3] = 2;
    sp[0] = 3;
    sp[1] = 4;
    auto pixel = [&t](int x, int y) {
        return static_cast<uint32_t*>(t.Bits())[y * 4 + x]; // top-down target
    };
    struct Case {
        int x, y;
        std::vector<uint32_t> image; // 4 by 3, top row first
    } cases[] = {
        {1, 1, {0, 0, 0, 0, 0, 1, 2, 0, 0, 3, 4, 0}},
        {-1, -1, {4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {3, 2, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}},
        {4, 0, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {0, -5, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& c : cases) {
        t.Fill(-1, 0xFFFFFFFF);
        ASSERT_TRUE(t.CopyAt(s, c.x, c.y));
        std::vector<uint32_t> got;
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 4; ++x)
                got.push_back(pixel(x, y));
        EXPECT_EQ(got, c.image) << c.x << ',' << c.y;
    }
    KXBMINFOHEADERYUV other = MakeRgb(2, 2, 24);
    CDIB o(&other.bmi);
    EXPECT_FALSE(t.CopyAt(o, 0, 0));
}

TEST(DIB, HeaderCopiesAndFlags) {
    KXBMINFOHEADERYUV r = MakeYuv(6, 2, 32);
    r.bmi.bmiFlags = KXBMIFLAGS_Z;
    r.bmi.bmiFrame = 0;
    CDIB d(&r.bmi);
    EXPECT_TRUE(d.HasZFlag());
    EXPECT_EQ(d.GetFieldFlag(), 1);
    d.SetFrameFlag(1);
    EXPECT_EQ(d.GetFieldFlag(), 0);
    KXBMINFOHEADERYUV out;
    std::memset(&out, 0xEE, sizeof out);
    d.GetHeader(&out);
    EXPECT_EQ(out.yuv.yuvSampling, KXYUV_SAMPLING_444);
    d.GetHeader144(&out);
    EXPECT_EQ(out.bmi.biWidth, 6);
    KXWINBITMAPINFOHEADER w;
    d.GetBitmapInfoHeader(&w);
    EXPECT_EQ(w.biSize, 40u);
    EXPECT_EQ(w.biCompression, KXBI_YUV);
    EXPECT_EQ(CDIB::BytesPerPixel(d.Header()), 4);
    EXPECT_TRUE(d.IsYUV444() && d.Is444() && d.IsFlatYUV() && !d.Is422());
    d.SetFormat(KXBI_YUVZ, 99);
    EXPECT_TRUE(d.IsYUVz());
    EXPECT_EQ(CDIB::BytesPerPixel(d.Header()), 8);
    EXPECT_EQ(d.Header()->biSizeImage, 99u);
    CDIB none;
    none.GetHeader(&out);
    EXPECT_EQ(out.bmi.biSize, 0u);
    EXPECT_EQ(none.GetHeaderSize(), 0u);
    EXPECT_EQ(none.GetFieldFlag(), 1);
}

TEST(DIB, LoadResourceReadsABmpFile) {
    // A 3 by 2 24-bit BMP file: file header, info header, 2 rows of 12 bytes.
    std::vector<uint8_t> file(14 + 40 + 24, 0);
    file[0] = 'B';
    file[1] = 'M';
    file[10] = 54;
    KXWINBITMAPINFOHEADER bih = {40, 3, 2, 1, 24, 0, 24, 0, 0, 0, 0};
    std::memcpy(file.data() + 14, &bih, 40);
    for (int i = 0; i < 24; ++i)
        file[54 + i] = uint8_t(i);
    const std::wstring path = kelp::os::TempDirectory() + L"kelp_stdfx_resource.bmp";
    kelp::os::FileHandle* f = kelp::os::CreateFileWrite(path);
    ASSERT_NE(f, nullptr);
    size_t done;
    ASSERT_TRUE(kelp::os::WriteFile(f, file.data(), file.size(), &done));
    kelp::os::CloseFile(f);

    CDIB d;
    ASSERT_TRUE(d.LoadResource(path.c_str(), nullptr));
    EXPECT_EQ(d.Header()->biSize, 144u);
    EXPECT_EQ(d.Header()->bmiFrame, 1u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(d.Bits()) % 64, 0u);
    int red, green, blue;
    ASSERT_TRUE(d.GetPixel(&red, &green, &blue, 1, 1)); // the first row in the file
    EXPECT_EQ(blue, 3);
    EXPECT_EQ(red, 5);
    // A header that claims more rows than the file has reads zeros, not past the file.
    bih.biHeight = 50;
    std::memcpy(file.data() + 14, &bih, 40);
    f = kelp::os::CreateFileWrite(path);
    kelp::os::WriteFile(f, file.data(), file.size(), &done);
    kelp::os::CloseFile(f);
    ASSERT_TRUE(d.LoadResource(path.c_str(), nullptr));
    ASSERT_TRUE(d.GetPixel(&red, &green, &blue, 0, 0));
    EXPECT_EQ(red, 0);
    kelp::os::DeleteFile(path);
    EXPECT_FALSE(d.LoadResource(L"/nonexistent/kelp.bmp", nullptr));
}

TEST(DIB, OperationsOfLaterWorkAnswerFalse) {
    KXBMINFOHEADERYUV r = MakeRgb(4, 4, 24);
    CDIB d(&r.bmi), s(&r.bmi);
    EXPECT_TRUE(d.Premultiply(-1)); // only 32-bit images carry alpha
    EXPECT_FALSE(d.BlendTwo(s, 128, -1));
    EXPECT_FALSE(d.CopyCentred(s, -1));
    EXPECT_TRUE(d.IsValid());
}

TEST(DIB, ShowOnDesktopWritesPngFiles) {
    KXBMINFOHEADERYUV y = MakeYuv(6, 4, 32, KXYUV_SAMPLING_422);
    CDIB d(&y.bmi);
    ASSERT_TRUE(d.Fill(-1, 0));
    const std::wstring dir = kelp::os::TempDirectory();
    const std::wstring picture = dir + L"kelp_dib_1_2_3_4.png",
                       alpha = dir + L"kelp_dib_alpha_1_2_3_4.png";
    kelp::os::DeleteFile(picture);
    kelp::os::DeleteFile(alpha);
    EXPECT_TRUE(d.ShowOnDesktop(1, 2, 3, 4));
    EXPECT_TRUE(d.ShowAlphaOnDesktop(1, 2, 3, 4));
    for (const std::wstring& path : {picture, alpha}) {
        kelp::os::FileHandle* f = kelp::os::OpenFileRead(path);
        ASSERT_NE(f, nullptr);
        uint8_t signature[8] = {};
        size_t done = 0;
        kelp::os::ReadFile(f, signature, 8, &done);
        kelp::os::CloseFile(f);
        const uint8_t png[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
        EXPECT_EQ(std::memcmp(signature, png, 8), 0);
    }
    kelp::os::DeleteFile(picture);
    kelp::os::DeleteFile(alpha);
    CDIB empty;
    EXPECT_FALSE(empty.ShowOnDesktop(0, 0, 0, 0));
}

// The words of an attached header are claims: an alpha offset that points elsewhere is not
// followed, and a header longer than a header can be is not copied.
TEST(DIB, AttachedHeadersAreClaims) {
    KXBMINFOHEADERYUV y = MakeYuv(6, 3, 32, KXYUV_SAMPLING_422);
    y.bmi.bmiAlphaOffset = 0x7FFFFFF0;
    const uint32_t size = stdfx::DIBImageSize(&y.bmi);
    ASSERT_EQ(size, 12u * 3 + 8u * 3);
    kelptest::GuardedBuffer pixels(size);
    pixels.Fill(0xEE);
    CDIB d(&y.bmi, pixels.data());
    ASSERT_TRUE(d.Fill(-1, 0));
    EXPECT_EQ(pixels.data()[36], 0); // the alpha plane, right behind the rows
    EXPECT_EQ(pixels.data()[size - 3], 0);

    KXBMINFOHEADERYUV r = MakeRgb(2, 2, 32);
    r.bmi.biSize = 1u << 20;
    uint32_t px[4] = {};
    CDIB a(&r.bmi, px), shared(a);
    EXPECT_FALSE(a.MakeWritable()); // the copy would read a megabyte of header
    EXPECT_FALSE(a.IsValid());
    EXPECT_EQ(shared.GetRefCount(), 1);
}
