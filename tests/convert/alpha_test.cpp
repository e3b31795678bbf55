// The alpha plane of a 32-bit image, out and back in.
#include <gtest/gtest.h>

#include <vector>

#include <kelp/kelp.h>

#include "kxbihtest.h"

using namespace kelp;
using kelptest::MakeRgb;
using kelptest::TrackingAllocator;

namespace {

struct Image {
    KXBMINFOHEADERYUV desc;
    std::vector<unsigned char> pixels;
    Image(int32_t w, int32_t h) : desc(MakeRgb(w, h, 32)) {
        pixels.resize(desc.bmi.biSizeImage);
        for (size_t i = 0; i < pixels.size(); ++i)
            pixels[i] = static_cast<unsigned char>(i * 7 + (i >> 3));
    }
};

struct Manager {
    IConversionManager* cm = KXCONVCreateConversionManager();
    ~Manager() { cm->Release(); }
};

} // namespace

TEST(Alpha, ExtractThenInsertGivesTheImageBack) {
    Manager m;
    for (int32_t w : {1, 5, 8}) {
        for (int32_t h : {3, -3}) {
            SCOPED_TRACE(testing::Message() << w << " x " << h);
            Image img(w, h);
            TrackingAllocator a;
            KXBMINFOHEADER* ad = nullptr;
            void* ap = nullptr;
            ASSERT_EQ(m.cm->ExtractAlpha(&img.desc.bmi, img.pixels.data(), &ad, &ap, &a), KX_OK);
            const uint32_t stride = (uint32_t(w) + 3) & ~3u;
            EXPECT_EQ(a.GetSize(ad), 1168u);
            EXPECT_EQ(ad->biSize, 144u);
            EXPECT_EQ(ad->biWidth, w);
            EXPECT_EQ(ad->biHeight, h);
            EXPECT_EQ(ad->biPlanes, 1);
            EXPECT_EQ(ad->biBitCount, 8);
            EXPECT_EQ(ad->biSizeImage, stride * 3);
            EXPECT_EQ(ad->biCompression, 0u);
            EXPECT_EQ(ValidateBIH(ad), KX_OK);
            const unsigned char* table = reinterpret_cast<unsigned char*>(ad) + 144;
            for (int i : {0, 1, 128, 255}) {
                EXPECT_EQ(table[4 * i], 0);
                EXPECT_EQ(table[4 * i + 1], 0);
                EXPECT_EQ(table[4 * i + 2], i); // a red ramp
            }
            const unsigned char* plane = static_cast<unsigned char*>(ap);
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < w; ++x)
                    ASSERT_EQ(plane[y * stride + x], img.pixels[(y * w + x) * 4 + 3]);

            std::vector<unsigned char> original = img.pixels;
            for (size_t i = 3; i < img.pixels.size(); i += 4)
                img.pixels[i] = 0;
            img.desc.bmi.bmiAlpha = KXDIB_ALPHA_OPAQUE;
            ASSERT_EQ(m.cm->InsertAlpha(&img.desc.bmi, img.pixels.data(), ad, ap), KX_OK);
            EXPECT_EQ(img.pixels, original);
            EXPECT_EQ(img.desc.bmi.bmiAlpha, KXDIB_ALPHA_VALID);
            a.Free(ad);
            a.Free(ap);
        }
    }
}

TEST(Alpha, OpaqueImageGivesAFullPlane) {
    Manager m;
    Image img(6, 2);
    img.desc.bmi.bmiAlpha = KXDIB_ALPHA_OPAQUE;
    TrackingAllocator a;
    KXBMINFOHEADER* ad = nullptr;
    void* ap = nullptr;
    ASSERT_EQ(m.cm->ExtractAlpha(&img.desc.bmi, img.pixels.data(), &ad, &ap, &a), KX_OK);
    const unsigned char* plane = static_cast<unsigned char*>(ap);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 6; ++x)
            EXPECT_EQ(plane[y * 8 + x], 255);
}

TEST(Alpha, RefusalsAndAllocationFailures) {
    Manager m;
    Image img(4, 2);
    KXBMINFOHEADER* ad = nullptr;
    void* ap = nullptr;
    {
        TrackingAllocator a;
        KXBMINFOHEADERYUV rgb24 = MakeRgb(4, 2, 24);
        EXPECT_EQ(m.cm->ExtractAlpha(&rgb24.bmi, img.pixels.data(), &ad, &ap, &a), KXE_INVALID);
        KXBMINFOHEADERYUV planar = img.desc;
        planar.bmi.biPlanes = 2;
        EXPECT_EQ(m.cm->ExtractAlpha(&planar.bmi, img.pixels.data(), &ad, &ap, &a), KXE_INVALID);
        KXBMINFOHEADERYUV big = img.desc;
        big.bmi.biHeight = 3; // more pixels than biSizeImage covers
        EXPECT_EQ(m.cm->ExtractAlpha(&big.bmi, img.pixels.data(), &ad, &ap, &a), KXE_INVALID);
        EXPECT_EQ(a.Calls(), 0);
    }
    {
        TrackingAllocator a;
        a.FailFrom(1);
        kelptest::SinkClear();
        EXPECT_EQ(m.cm->ExtractAlpha(&img.desc.bmi, img.pixels.data(), &ad, &ap, &a),
                  KXE_OUTOFMEMORY);
        EXPECT_EQ(kelptest::Lines8(2),
                  std::vector<std::wstring>{
                      L"CConversionManager::ExtractAlpha: Allocation of 1168 bytes Failed!\r\n"});
    }
    {
        // The plane fails: the record stays with the caller.
        TrackingAllocator a;
        a.FailFrom(2);
        ad = nullptr;
        kelptest::SinkClear();
        EXPECT_EQ(m.cm->ExtractAlpha(&img.desc.bmi, img.pixels.data(), &ad, &ap, &a),
                  KXE_OUTOFMEMORY);
        EXPECT_EQ(kelptest::Lines8(2),
                  std::vector<std::wstring>{
                      L"CConversionManager::ExtractAlpha: Allocation of 8 bytes Failed!\r\n"});
        EXPECT_TRUE(a.Owns(ad));
        a.Free(ad);
    }
    {
        TrackingAllocator a;
        a.FailFrom(1, TrackingAllocator::kThrow);
        EXPECT_EQ(m.cm->ExtractAlpha(&img.desc.bmi, img.pixels.data(), &ad, &ap, &a), KXE_FAIL);
    }
    {
        // Insert: 32 bits and the same size, or nothing is written.
        unsigned char plane[8] = {};
        KXBMINFOHEADERYUV alpha = MakeRgb(4, 2, 8);
        std::vector<unsigned char> before = img.pixels;
        KXBMINFOHEADERYUV other = MakeRgb(4, -2, 8);
        EXPECT_EQ(m.cm->InsertAlpha(&img.desc.bmi, img.pixels.data(), &other.bmi, plane),
                  KXE_INVALID);
        KXBMINFOHEADERYUV rgb24 = MakeRgb(4, 2, 24);
        EXPECT_EQ(m.cm->InsertAlpha(&rgb24.bmi, img.pixels.data(), &alpha.bmi, plane), KXE_INVALID);
        EXPECT_EQ(m.cm->InsertAlpha(&img.desc.bmi, img.pixels.data(), nullptr, plane), KXE_INVALID);
        EXPECT_EQ(m.cm->InsertAlpha(&img.desc.bmi, img.pixels.data(), &alpha.bmi, nullptr),
                  KXE_INVALID);
        EXPECT_EQ(img.pixels, before);
        // The alpha record's depth is not looked at.
        alpha.bmi.biBitCount = 32;
        EXPECT_EQ(m.cm->InsertAlpha(&img.desc.bmi, img.pixels.data(), &alpha.bmi, plane), KX_OK);
        for (size_t i = 3; i < img.pixels.size(); i += 4)
            EXPECT_EQ(img.pixels[i], 0);
    }
}
