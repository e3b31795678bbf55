// The depth stages "nBit to 32bit" and "nBit to 24bit": what they accept, what they
// propose, their row strides and pixel rules, and their failures.
#include <gtest/gtest.h>

#include <functional>

#include "convert/rgbconv.h"
#include "kxbihtest.h"
#include "rgbconv_guard.h"

using namespace kelp;
using kelptest::MakeRgb;
using kelptest::MakeYuv;
using kelptest::TrackingAllocator;

namespace {

// A record with a colour table right behind its 144 bytes.
struct Paletted {
    KXBMINFOHEADER bmi;
    uint8_t table[1024];
};
static_assert(sizeof(KXBMINFOHEADER) == 144, "the table starts at biSize");

Paletted MakePaletted(int32_t w, int32_t h, uint16_t bits) {
    Paletted p;
    memset(&p, 0, sizeof p);
    p.bmi = MakeRgb(w, h, bits).bmi;
    for (int i = 0; i < 256; ++i) { // entry i: blue i, green 2i, red 255 - i
        p.table[4 * i] = uint8_t(i);
        p.table[4 * i + 1] = uint8_t(2 * i);
        p.table[4 * i + 2] = uint8_t(255 - i);
        p.table[4 * i + 3] = 0x5A;
    }
    return p;
}

// Converts with a stage; the output bytes, or empty on failure.
std::vector<uint8_t> ConvertWith(IConverter& stage, KXBMINFOHEADER* in, std::vector<uint8_t> pixels,
                                 KXBMINFOHEADER* out, KXRESULT* result = nullptr) {
    TrackingAllocator a;
    void* outData = nullptr;
    uint32_t flags = KXCONV_KEEP_INPUT;
    int32_t q = 0;
    in->biSizeImage = uint32_t(pixels.size());
    KXRESULT r = stage.Convert(in, pixels.data(), out, &outData, &flags, &q, &a);
    if (result) *result = r;
    if (KX_FAILED(r)) return {};
    const uint8_t* o = static_cast<const uint8_t*>(outData);
    return std::vector<uint8_t>(o, o + out->biSizeImage);
}

} // namespace

TEST(RgbconvStage, QueryAcceptsExactlyADepthChange) {
    CRGBConverterRGB32 to32;
    CRGBConverterRGB24 to24;
    struct Case {
        const char* what;
        IConverter* stage;
        uint16_t inBits, outBits;
        std::function<void(KXBMINFOHEADER&, KXBMINFOHEADER&)> change;
        bool ok;
    } cases[] = {
        {"1 to 32", &to32, 1, 32, nullptr, true},
        {"4 to 32", &to32, 4, 32, nullptr, true},
        {"8 to 32 with 256 entries", &to32, 8, 32,
         [](KXBMINFOHEADER& i, KXBMINFOHEADER&) { i.biClrUsed = 256; }, true},
        {"8 to 32 with 257 entries", &to32, 8, 32,
         [](KXBMINFOHEADER& i, KXBMINFOHEADER&) { i.biClrUsed = 257; }, false},
        {"4 to 32 with 17 entries", &to32, 4, 32,
         [](KXBMINFOHEADER& i, KXBMINFOHEADER&) { i.biClrUsed = 17; }, false},
        {"16 to 32, table not looked at", &to32, 16, 32,
         [](KXBMINFOHEADER& i, KXBMINFOHEADER&) { i.biClrUsed = 999; }, true},
        {"24 to 32", &to32, 24, 32, nullptr, true},
        {"32 to 32", &to32, 32, 32, nullptr, false},
        {"2 bits", &to32, 2, 32, nullptr, false},
        {"output with a table", &to32, 24, 32,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o) { o.biClrUsed = 1; }, false},
        {"alpha differs", &to32, 24, 32, [](KXBMINFOHEADER&, KXBMINFOHEADER& o) { o.bmiAlpha = 1; },
         false},
        {"size differs", &to32, 24, 32, [](KXBMINFOHEADER&, KXBMINFOHEADER& o) { o.biWidth = 8; },
         false},
        {"rectangle differs", &to32, 24, 32,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o) { o.bmiRect.right = 2; }, false},
        {"interlaced output", &to32, 24, 32,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o) { o.bmiFrame = 0; }, false},
        {"flags differ", &to32, 24, 32, [](KXBMINFOHEADER&, KXBMINFOHEADER& o) { o.bmiFlags = 1; },
         false},
        {"flags differ in bit 3 only", &to32, 24, 32,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o) { o.bmiFlags = KXBMIFLAGS_Z; }, true},
        {"32 to 24", &to24, 32, 24, nullptr, true},
        {"16 to 24", &to24, 16, 24, nullptr, true},
        {"24 to 24", &to24, 24, 24, nullptr, false},
        {"8 to 32 into 24", &to24, 8, 32, nullptr, false},
    };
    for (const Case& c : cases) {
        KXBMINFOHEADERYUV in = MakeRgb(4, 2, c.inBits), out = MakeRgb(4, 2, c.outBits);
        if (c.change) c.change(in.bmi, out.bmi);
        out.bmi.biSizeImage = 0;
        uint32_t flags = KXCONV_OUT_SHARED | KXCONV_KEEP_INPUT;
        int32_t q = 7;
        kelptest::SinkClear();
        KXRESULT r = c.stage->Query(&in.bmi, &out.bmi, &flags, &q);
        EXPECT_EQ(r, c.ok ? KX_OK : KXE_INVALID) << c.what;
        if (c.ok) {
            EXPECT_EQ(flags, KXCONV_KEEP_INPUT) << c.what;
            EXPECT_EQ(out.bmi.biSizeImage, uint32_t(c.outBits / 8 * 4 * 2)) << c.what;
            EXPECT_EQ(q, 7) << c.what; // a few bytes cost nothing
            EXPECT_EQ(kelptest::Lines8(31),
                      std::vector<std::wstring>{L"CRGBConverterRGB::Query: SUCESS\r\n"})
                << c.what;
        } else {
            EXPECT_EQ(q, 7) << c.what;
        }
    }
}

TEST(RgbconvStage, YuvBytesTravelLikeRgbAndTheCostIsTheInputSize) {
    CRGBConverterRGB32 to32;
    CRGBConverterRGB24 to24;
    KXBMINFOHEADERYUV y24 = MakeYuv(1000, 100, 24), y32 = MakeYuv(1000, 100, 32);
    uint32_t flags = 0;
    int32_t q = 0;
    EXPECT_EQ(to32.Query(&y24.bmi, &y32.bmi, &flags, &q), KX_OK);
    EXPECT_EQ(q, 3); // 300,000 bytes / 100000
    EXPECT_EQ(to24.Query(&y32.bmi, &y24.bmi, &flags, &q), KX_OK);
    EXPECT_EQ(q, 3 + 4);
    KXBMINFOHEADERYUV rgb32 = MakeRgb(1000, 100, 32);
    EXPECT_EQ(to32.Query(&y24.bmi, &rgb32.bmi, &flags, &q), KXE_INVALID); // colour space
    KXBMINFOHEADERYUV y16 = MakeYuv(1000, 100, 16);
    kelptest::SinkClear();
    EXPECT_EQ(to32.QueryInput(&y16.bmi), KXE_INVALID);
    y16.yuv.yuvSampling = KXYUV_SAMPLING_422; // not valid: traced
    EXPECT_EQ(to32.QueryInput(&y16.bmi), KXE_INVALID);
    EXPECT_EQ(to24.QueryInput(&y16.bmi), KXE_INVALID);
    EXPECT_EQ(to32.QueryOutput(&y16.bmi), KXE_INVALID);
    EXPECT_EQ(to24.QueryOutput(&y16.bmi), KXE_INVALID);
    EXPECT_EQ(kelptest::Lines8(31),
              (std::vector<std::wstring>{L"CRGBConverterRGB32::QueryInput: bad format\r\n",
                                         L"CRGBConverterRGB24::QueryInput: bad format\r\n",
                                         L"CRGBConverterRGB32::Query: bad output format\r\n",
                                         L"CRGBConverterRGB24::QueryOutput: bad format\r\n"}));
}

TEST(RgbconvStage, ProposalChangesOnlyTheDepth) {
    CRGBConverterRGB32 to32;
    CRGBConverterRGB24 to24;
    Paletted in = MakePaletted(5, -3, 8);
    in.bmi.biClrUsed = 16;
    KXBMINFOHEADERYUV target = MakeRgb(5, -3, 24);
    TrackingAllocator a;
    KXBMINFOHEADER* p = nullptr;
    ASSERT_EQ(to32.GetOutputFormat(&in.bmi, &p, &a, &target.bmi), KX_OK);
    EXPECT_EQ(a.GetSize(p), 144u); // biSize bytes, no colour table
    EXPECT_EQ(p->biBitCount, 32);
    EXPECT_EQ(p->biClrUsed, 0u);
    EXPECT_EQ(p->biSizeImage, uint32_t(20 * -3)); // the height's sign carries into the size
    EXPECT_EQ(p->biHeight, -3);
    KXBMINFOHEADER* q = nullptr;
    EXPECT_EQ(to24.GetOutputFormat(&in.bmi, &q, &a, &target.bmi), KX_OK);
    EXPECT_EQ(q->biBitCount, 24);
    EXPECT_EQ(q->biSizeImage, uint32_t(16 * -3));
    KXBMINFOHEADER* none = nullptr;
    EXPECT_EQ(to24.GetOutputFormat(q, &none, &a, &target.bmi), KXE_INVALID); // already there
    EXPECT_EQ(none, nullptr);
    KXBMINFOHEADERYUV yuv = MakeYuv(4, 2, 24);
    yuv.yuv.yuvColorSpace = 2;
    KXBMINFOHEADERYUV target32 = MakeYuv(4, 2, 32);
    KXBMINFOHEADER* y = nullptr;
    ASSERT_EQ(to32.GetOutputFormat(&yuv.bmi, &y, &a, &target32.bmi), KX_OK);
    EXPECT_EQ(a.GetSize(y), 160u);
    EXPECT_EQ(kelp::DIBYuv(y)->yuvColorSpace, 2u);
    a.Free(p);
    a.Free(q);
    a.Free(y);
}

TEST(RgbconvStage, StridesAndPixelRules) {
    struct Case {
        const char* what;
        uint16_t inBits, outBits;
        int32_t width;
        std::vector<uint8_t> pixels; // two rows at the stage's input stride
        std::vector<uint8_t> want;   // two rows at the output stride, pads left out
    } cases[] = {
        // 1 bit, width 9: rows of (9 / 8 + 3) & ~3 = 4 bytes; most significant bit first.
        {"1 to 32", 1, 32, 9, {0x80, 0x80, 0, 0, 0x40, 0x00, 0, 0}, {}},
        // 4 bits, width 3: rows of 4 bytes; high nibble first.
        {"4 to 24", 4, 24, 3, {0x12, 0x30, 0, 0, 0xF0, 0x00, 0, 0}, {}},
        {"8 to 24", 8, 24, 3, {7, 8, 9, 0, 250, 251, 252, 0}, {}},
        // 16 bits, width 3: 6-byte rows to 32 bits, 8-byte rows to 24 bits.
        {"16 to 32",
         16,
         32,
         3,
         {0xFF, 0xFF, 0x21, 0x04, 0x00, 0x80, 0x1F, 0x00, 0xE0, 0x03, 0x00, 0x7C},
         {}},
        {"16 to 24",
         16,
         24,
         3,
         {0xFF, 0xFF, 0x21, 0x04, 0x00, 0x80, 0, 0, 0x1F, 0x00, 0xE0, 0x03, 0x00, 0x7C, 0, 0},
         {}},
        // 24 bits, width 3: rows of (3 + 1) * 3 = 12 bytes.
        {"24 to 32",
         24,
         32,
         3,
         {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0, 11, 12, 13, 14, 15, 16, 17, 18, 19, 0, 0, 0},
         {}},
        {"32 to 24",
         32,
         24,
         3,
         {1, 2, 3, 99, 4, 5, 6, 99, 7, 8, 9, 99, 11, 12, 13, 99, 14, 15, 16, 99, 17, 18, 19, 99},
         {}},
    };
    // The expected pixels, blue green red (and 255 at 32 bits), row after row.
    const std::vector<std::vector<uint8_t>> want = {
        // entry 1: (1, 2, 254); entry 0: (0, 0, 255)
        {1,   2,   254, 255, 0,   0,   255, 255, 0,   0,   255, 255, 0,   0,   255, 255, 0,   0,
         255, 255, 0,   0,   255, 255, 0,   0,   255, 255, 0,   0,   255, 255, 1,   2,   254, 255,
         0,   0,   255, 255, 1,   2,   254, 255, 0,   0,   255, 255, 0,   0,   255, 255, 0,   0,
         255, 255, 0,   0,   255, 255, 0,   0,   255, 255, 0,   0,   255, 255, 0,   0,   255, 255},
        {1, 2, 254, 2, 4, 253, 3, 6, 252, 15, 30, 240, 0, 0, 255, 0, 0, 255},
        {7, 14, 248, 8, 16, 247, 9, 18, 246, 250, 244, 5, 251, 246, 4, 252, 248, 3},
        {248, 248, 248, 255, 8, 8,   8, 255, 0, 0, 0,   255,
         248, 0,   0,   255, 0, 248, 0, 255, 0, 0, 248, 255},
        {248, 248, 248, 8, 8, 8, 0, 0, 0, 248, 0, 0, 0, 248, 0, 0, 0, 248},
        {1,  2,  3,  255, 4,  5,  6,  255, 7,  8,  9,  255,
         11, 12, 13, 255, 14, 15, 16, 255, 17, 18, 19, 255},
        {1, 2, 3, 4, 5, 6, 7, 8, 9, 11, 12, 13, 14, 15, 16, 17, 18, 19},
    };
    CRGBConverterRGB32 to32;
    CRGBConverterRGB24 to24;
    for (size_t n = 0; n < sizeof cases / sizeof cases[0]; ++n) {
        const Case& c = cases[n];
        for (uint32_t mask : kelptest::PathMasks()) {
            kelptest::CpuMask cm(mask);
            Paletted in = MakePaletted(c.width, 2, c.inBits);
            KXBMINFOHEADERYUV out = MakeRgb(c.width, 2, c.outBits);
            IConverter& stage = c.outBits == 32 ? static_cast<IConverter&>(to32) : to24;
            std::vector<uint8_t> got = ConvertWith(stage, &in.bmi, c.pixels, &out.bmi);
            const size_t rowOut = c.outBits == 32 ? 4 * c.width : ((c.width + 1) * 3) & ~3;
            ASSERT_EQ(got.size(), 2 * rowOut) << c.what;
            const size_t px = size_t(c.width) * c.outBits / 8;
            std::vector<uint8_t> pixels(got.begin(), got.begin() + px);
            pixels.insert(pixels.end(), got.begin() + rowOut, got.begin() + rowOut + px);
            EXPECT_EQ(pixels, want[n]) << c.what << " mask " << mask;
        }
    }
}

TEST(RgbconvStage, ALastRowPastTheInputReadsZeros) {
    // 4 bits, width 9: each row reads 5 bytes at a stride of 4, so the last row reaches
    // one byte past a buffer of 4 bytes a row.
    CRGBConverterRGB32 to32;
    Paletted in = MakePaletted(9, 1, 4);
    kelptest::GuardedBuffer pixels(4);
    memset(pixels.data(), 0x11, 4);
    in.bmi.biSizeImage = 4;
    KXBMINFOHEADERYUV out = MakeRgb(9, 1, 32);
    TrackingAllocator a;
    void* outData = nullptr;
    uint32_t flags = 0;
    int32_t q = 0;
    ASSERT_EQ(to32.Convert(&in.bmi, pixels.data(), &out.bmi, &outData, &flags, &q, &a), KX_OK);
    const uint8_t* o = static_cast<const uint8_t*>(outData);
    EXPECT_EQ(o[4 * 7], 1); // entry 1
    EXPECT_EQ(o[4 * 8], 0); // the missing byte reads as index 0
}

TEST(RgbconvStage, NegativeHeightConvertsNoLine) {
    // An allocator that hands out one fixed buffer, whatever size is asked.
    struct Fixed : TrackingAllocator {
        uint8_t buffer[64];
        unsigned asked = 0;
        void* Allocate(unsigned int size, uint32_t) override {
            asked = size;
            return buffer;
        }
        void Free(void*) override {}
    } a;
    memset(a.buffer, 0xAB, sizeof a.buffer);
    CRGBConverterRGB32 to32;
    KXBMINFOHEADERYUV in = MakeRgb(4, -2, 24), out = MakeRgb(4, -2, 32);
    std::vector<uint8_t> pixels(24, 7);
    void* outData = nullptr;
    uint32_t flags = 0;
    int32_t q = 0;
    EXPECT_EQ(to32.Convert(&in.bmi, pixels.data(), &out.bmi, &outData, &flags, &q, &a), KX_OK);
    EXPECT_EQ(outData, a.buffer);
    EXPECT_EQ(a.asked, uint32_t(16 * -2));
    for (uint8_t b : a.buffer)
        ASSERT_EQ(b, 0xAB);
}

TEST(RgbconvStage, AllocationFailureAndTiming) {
    for (bool to32 : {true, false}) {
        CRGBConverterRGB32 s32;
        CRGBConverterRGB24 s24;
        IConverter& s = to32 ? static_cast<IConverter&>(s32) : s24;
        KXBMINFOHEADERYUV in = MakeRgb(4, 2, 16), out = MakeRgb(4, 2, to32 ? 32 : 24);
        std::vector<uint8_t> pixels(16, 1);
        TrackingAllocator a;
        a.FailFrom(1);
        void* outData = nullptr;
        uint32_t flags = 0;
        int32_t q = 0;
        kelptest::SinkClear();
        EXPECT_EQ(s.Convert(&in.bmi, pixels.data(), &out.bmi, &outData, &flags, &q, &a),
                  KXE_OUTOFMEMORY);
        EXPECT_EQ(outData, nullptr);
        EXPECT_EQ(kelptest::Lines8(2),
                  std::vector<std::wstring>{to32 ? L"CRGBConverterRGB32::Convert: Allocation of 32 "
                                                   L"bytes Failed!\r\n"
                                                 : L"CRGBConverterRGB24::Convert: Allocation of 24 "
                                                   L"bytes Failed!\r\n"});
        TrackingAllocator ok;
        kelptest::SinkClear();
        EXPECT_EQ(s.Convert(&in.bmi, pixels.data(), &out.bmi, &outData, &flags, &q, &ok), KX_OK);
        EXPECT_TRUE(ok.Owns(outData));
        ASSERT_EQ(kelptest::Lines8(14).size(), 1u);
        EXPECT_EQ(kelptest::Lines8(14)[0].rfind(
                      to32 ? L"CRGBConverterRGB32: used " : L"CRGBConverterRGB24: used ", 0),
                  0u);
    }
}
