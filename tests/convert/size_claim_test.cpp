// Pixel buffers are sized by the image's geometry. biSizeImage 0 is legal for
// uncompressed RGB: such an image is converted whole. A non-zero biSizeImage smaller than
// the geometry needs is refused, with its trace, before anything is allocated. Inputs
// lie in buffers that end at an unreadable page, so that a read past the geometry
// faults.
#include <gtest/gtest.h>

#include <functional>

#include <kelp/kelp.h>

#include "convert/alphaconv.h"
#include "convert/rgbconv.h"
#include "kxbihtest.h"
#include "rgbconv_guard.h"

using namespace kelp;
using kelptest::MakeRgb;
using kelptest::TrackingAllocator;

namespace {

struct Manager {
    IConversionManager* cm = KXCONVCreateConversionManager();
    Manager() { cm->Init(0x10002, 0); }
    ~Manager() { cm->Release(); }
};

// 3 x 2 at 24 bits: rows of 9 bytes and 3 of padding.
const std::vector<uint8_t> kBgr = {1,  2,  3,  4,  5,  6,  7,  8,  9,  0, 0, 0,
                                   11, 12, 13, 14, 15, 16, 17, 18, 19, 0, 0, 0};
const std::vector<uint8_t> kBgrTo32 = {1,  2,  3,  255, 4,  5,  6,  255, 7,  8,  9,  255,
                                       11, 12, 13, 255, 14, 15, 16, 255, 17, 18, 19, 255};
// 2 x 2 at 32 bits, straight alpha, and premultiplied.
const std::vector<uint8_t> kBgra = {200, 100, 50,  100, 10, 20, 30, 255,
                                    250, 40,  240, 128, 5,  6,  7,  0};
const std::vector<uint8_t> kPremultiplied = {78,  39, 20,  100, 10, 20, 30, 255,
                                             125, 20, 120, 128, 0,  0,  0,  0};

struct Call {
    KXBMINFOHEADERYUV* in;
    void* inData;
    TrackingAllocator* allocator;
    const void* result = nullptr; // the bytes made
};

struct Case {
    const char* what;
    uint16_t inBits;
    std::vector<uint8_t> pixels;
    std::function<KXRESULT(Call&)> run;
    std::vector<uint8_t> want;
    std::wstring refusal; // the trace of a size one byte short
};

KXRESULT ManagerConvert(Call& c, uint16_t outBits, uint32_t outAlpha, uint32_t flags) {
    Manager m;
    KXBMINFOHEADERYUV out = MakeRgb(c.in->bmi.biWidth, c.in->bmi.biHeight, outBits);
    out.bmi.bmiAlpha = outAlpha;
    void* outData = nullptr;
    int32_t q = 0;
    KXRESULT r = m.cm->Convert(&c.in->bmi, c.inData, &out.bmi, &outData, &flags, &q, c.allocator);
    c.result = outData;
    if (KX_SUCCEEDED(r)) {
        // The output says how many bytes it has.
        EXPECT_EQ(out.bmi.biSizeImage,
                  MakeRgb(out.bmi.biWidth, out.bmi.biHeight, outBits).bmi.biSizeImage);
    }
    return r;
}

KXRESULT StageConvert(IConverter& stage, Call& c, uint16_t outBits, uint32_t outAlpha,
                      uint32_t flags) {
    KXBMINFOHEADERYUV out = MakeRgb(c.in->bmi.biWidth, c.in->bmi.biHeight, outBits);
    out.bmi.bmiAlpha = outAlpha;
    void* outData = nullptr;
    int32_t q = 0;
    KXRESULT r = stage.Convert(&c.in->bmi, c.inData, &out.bmi, &outData, &flags, &q, c.allocator);
    c.result = outData;
    return r;
}

std::vector<Case> Cases() {
    static CRGBConverterRGB32 to32;
    static CAlphaConverter alpha;
    const std::wstring depthShort = L"CRGBConverterRGB32::Convert: Input of 23 bytes, its rows "
                                    L"need 24!\r\n";
    const std::wstring alphaShort = L"CAlphaConverter::Convert: Input of 15 bytes, its pixels "
                                    L"need 16!\r\n";
    return {
        {"depth stage, 24 to 32 bits", 24, kBgr,
         [](Call& c) { return StageConvert(to32, c, 32, 0, KXCONV_KEEP_INPUT); }, kBgrTo32,
         depthShort},
        {"alpha stage, premultiplied in place", 32, kBgra,
         [](Call& c) { return StageConvert(alpha, c, 32, 2, 0); }, kPremultiplied, alphaShort},
        {"manager, 24 to 32 bits", 24, kBgr,
         [](Call& c) { return ManagerConvert(c, 32, 0, KXCONV_KEEP_INPUT); }, kBgrTo32,
         L"CConversionManager::Input of 23 bytes, its image needs 24!\r\n"},
        {"manager, identity copied", 24, kBgr,
         [](Call& c) { return ManagerConvert(c, 24, 0, KXCONV_KEEP_INPUT | KXCONV_FORCE_COPY); },
         kBgr, L"CConversionManager::Input of 23 bytes, its image needs 24!\r\n"},
        {"alpha plane extracted",
         32,
         kBgra,
         [](Call& c) {
             Manager m;
             KXBMINFOHEADER* desc = nullptr;
             void* plane = nullptr;
             KXRESULT r = m.cm->ExtractAlpha(&c.in->bmi, c.inData, &desc, &plane, c.allocator);
             c.result = plane;
             return r;
         },
         {100, 255, 0, 0, 128, 0, 0, 0},
         L"CConversionManager::ExtractAlpha: Input of 15 bytes, its pixels need 16!\r\n"},
    };
}

} // namespace

TEST(SizeClaim, ImageDeclaringNoSizeIsConvertedWhole) {
    for (const Case& c : Cases()) {
        SCOPED_TRACE(c.what);
        KXBMINFOHEADERYUV in = MakeRgb(c.inBits == 24 ? 3 : 2, 2, c.inBits);
        in.bmi.biSizeImage = 0;
        kelptest::GuardedBuffer pixels(c.pixels.size());
        memcpy(pixels.data(), c.pixels.data(), c.pixels.size());
        TrackingAllocator a;
        Call call{&in, pixels.data(), &a};
        ASSERT_EQ(c.run(call), KX_OK);
        ASSERT_NE(call.result, nullptr);
        const uint8_t* o = static_cast<const uint8_t*>(call.result);
        EXPECT_EQ(std::vector<uint8_t>(o, o + c.want.size()), c.want);
    }
}

TEST(SizeClaim, SizeShortOfTheGeometryIsRefused) {
    for (const Case& c : Cases()) {
        SCOPED_TRACE(c.what);
        KXBMINFOHEADERYUV in = MakeRgb(c.inBits == 24 ? 3 : 2, 2, c.inBits);
        in.bmi.biSizeImage = uint32_t(c.pixels.size() - 1);
        kelptest::GuardedBuffer pixels(c.pixels.size() - 1);
        memcpy(pixels.data(), c.pixels.data(), c.pixels.size() - 1);
        TrackingAllocator a;
        Call call{&in, pixels.data(), &a};
        kelptest::SinkClear();
        EXPECT_EQ(c.run(call), KXE_INVALID);
        EXPECT_EQ(kelptest::Lines8(2), std::vector<std::wstring>{c.refusal});
        EXPECT_EQ(a.Calls(), 0);
        EXPECT_EQ(pixels.Copy(), std::vector<uint8_t>(c.pixels.begin(), c.pixels.end() - 1));
    }
}
