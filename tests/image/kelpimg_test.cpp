// The image object: sharing, copies, and what each operation does to the count.
#include <gtest/gtest.h>

#include <kelp/kelpimg.h>

#include <cstring>
#include <vector>

#include "kxbihtest.h"

using kelp::CKELPImg;

namespace {

// An owned image of w x h at 24 bits, pixels 0, 1, 2, ...
CKELPImg MakeOwned(int32_t w, int32_t h, uint8_t seed = 0) {
    CKELPImg img;
    KXBMINFOHEADERYUV d = kelptest::MakeRgb(w, h, 24);
    std::vector<uint8_t> px(d.bmi.biSizeImage);
    for (size_t i = 0; i < px.size(); ++i)
        px[i] = uint8_t(i + seed);
    CKELPImg src(&d.bmi, px.data(), 0);
    // A whole copy made through MakeUnique, so that every pixel is the image's own.
    CKELPImg shared(src);
    EXPECT_TRUE(shared.MakeUnique());
    img = shared;
    return img;
}

class KelpImg : public ::testing::Test {
  protected:
    void SetUp() override {
        kelptest::SinkSetLevelMask(~0u);
        kelptest::SinkClear();
    }
};

TEST_F(KelpImg, EmptyHandlesShareTheNilBlock) {
    CKELPImg a, b(7);
    EXPECT_EQ(a._IGetData(), kelp::g_pDataNil);
    EXPECT_EQ(b._IGetData(), kelp::g_pDataNil);
    EXPECT_EQ(b.GetTag(), 7u);
    EXPECT_FALSE(a.IsValidDIB());
    EXPECT_TRUE(a.IsEmpty());
    EXPECT_TRUE(a.IsEqual(b)); // two empty images are equal
    EXPECT_EQ(kelp::g_pDataNil->m_iRefs, 0);
}

TEST_F(KelpImg, AssignSharesAndCounts) {
    CKELPImg a = MakeOwned(8, 4);
    ASSERT_TRUE(a.IsOwnedDIB());
    EXPECT_EQ(a._IGetData()->m_iRefs, 1);
    {
        CKELPImg b;
        b.Assign(a);
        EXPECT_EQ(b._IGetData(), a._IGetData());
        EXPECT_EQ(a._IGetData()->m_iRefs, 2);
        b.Assign(b); // to itself: nothing changes
        EXPECT_EQ(a._IGetData()->m_iRefs, 2);
        b.Assign(CKELPImg()); // from an empty image: this handle is freed
        EXPECT_EQ(b._IGetData(), kelp::g_pDataNil);
        EXPECT_EQ(a._IGetData()->m_iRefs, 1);
        b = a;
        EXPECT_EQ(a._IGetData()->m_iRefs, 2);
    }
    EXPECT_EQ(a._IGetData()->m_iRefs, 1);
}

TEST_F(KelpImg, MakeUniqueLeavesTheOtherHandleIntact) {
    CKELPImg a = MakeOwned(5, 3, 9);
    CKELPImg b(a);
    void* oldPixels = a.GetPixels();
    ASSERT_TRUE(b.MakeUnique());
    EXPECT_NE(b._IGetData(), a._IGetData());
    EXPECT_EQ(a._IGetData()->m_iRefs, 1);
    EXPECT_EQ(b._IGetData()->m_iRefs, 1);
    EXPECT_EQ(a.GetPixels(), oldPixels);
    EXPECT_TRUE(a.IsEqual(b));
    // Pixels behind the descriptor rounded up to 64 bytes, in one allocation.
    EXPECT_EQ(static_cast<unsigned char*>(b.GetPixels()) -
                  reinterpret_cast<unsigned char*>(b.GetDesc()),
              192);
    static_cast<uint8_t*>(b.GetPixels())[0] ^= 0xFF;
    EXPECT_FALSE(a.IsEqual(b));
    EXPECT_EQ(static_cast<uint8_t*>(a.GetPixels())[0], 9);
    // Unshared: nothing to do.
    const void* before = b.GetPixels();
    EXPECT_TRUE(b.MakeUnique());
    EXPECT_EQ(b.GetPixels(), before);
}

TEST_F(KelpImg, AttachedMemoryIsNotFreed) {
    KXBMINFOHEADERYUV d = kelptest::MakeRgb(4, 4, 32);
    std::vector<uint8_t> px(d.bmi.biSizeImage, 0x5A);
    kelptest::TrackingAllocator tracker;
    kelp::IAllocator* old = CKELPImg::SetAllocator(&tracker);
    {
        CKELPImg a(&d.bmi, px.data(), 3);
        EXPECT_TRUE(a.IsValidDIB());
        EXPECT_FALSE(a.IsOwnedDIB());
        EXPECT_EQ(a.GetTag(), 3u);
        CKELPImg b(a);
        EXPECT_EQ(a._IGetData()->m_iRefs, 2);
        ASSERT_TRUE(b.MakeUnique()); // the copy comes from the class-wide allocator
        EXPECT_TRUE(b.IsOwnedDIB());
        EXPECT_EQ(tracker.Live(), 1u);
        EXPECT_TRUE(tracker.Owns(b.GetDesc()));
        a.Free();
        b.Free();
        EXPECT_EQ(tracker.Live(), 0u);
    }
    EXPECT_EQ(px[0], 0x5A); // the attached memory is still the caller's
    EXPECT_EQ(CKELPImg::SetAllocator(old), &tracker);
    EXPECT_EQ(CKELPImg::GetAllocator(), old);
}

TEST_F(KelpImg, CopyFromCarriesTheHeaderCountOfPixels) {
    CKELPImg a = MakeOwned(64, 4, 1); // 768 bytes of pixels
    CKELPImg b;
    b.CopyFrom(a);
    ASSERT_TRUE(b.IsOwnedDIB());
    EXPECT_NE(b._IGetData(), a._IGetData());
    EXPECT_EQ(b._IGetData()->m_nCapacity, 192u + 144u);
    EXPECT_EQ(std::memcmp(b.GetDesc(), a.GetDesc(), 144), 0);
    EXPECT_EQ(std::memcmp(b.GetPixels(), a.GetPixels(), 144), 0);
}

TEST_F(KelpImg, CopyDibBytesIntoASmallerImageCopiesNothing) {
    CKELPImg big = MakeOwned(16, 16, 1);
    CKELPImg small = MakeOwned(4, 4, 7);
    std::vector<uint8_t> before(static_cast<uint8_t*>(small.GetPixels()),
                                static_cast<uint8_t*>(small.GetPixels()) + 48);
    EXPECT_TRUE(small.CopyDibBytes(big));
    EXPECT_EQ(std::memcmp(small.GetPixels(), before.data(), before.size()), 0);
    EXPECT_EQ(kelptest::AssertionCount(), 1);
    EXPECT_NE(kelptest::SinkText(8).find(
                  L"** CKELPImg::CopyDibBytes((): DIBSize()=48 < KxDibSrc.DIBSize()=768\n"),
              std::wstring::npos);

    kelptest::SinkClear();
    EXPECT_FALSE(big.CopyDibBytes(CKELPImg()));
    EXPECT_EQ(kelptest::SinkText(8), L"** CKELPImg::CopyDibBytes((): !KELPImgSrc.IsValidDIB()\n");
    EXPECT_TRUE(big.CopyDibBytes(small));
    EXPECT_EQ(std::memcmp(big.GetPixels(), small.GetPixels(), 48), 0);
}

TEST_F(KelpImg, IsEqualComparesFormatAndPixels) {
    CKELPImg a = MakeOwned(6, 2, 3);
    struct Case {
        const char* what;
        void (*change)(KXBMINFOHEADER*);
        bool equal;
    } cases[] = {
        {"same", [](KXBMINFOHEADER*) {}, true},
        {"ratio 0 and 1.0", [](KXBMINFOHEADER* d) { d->bmiRatioX = 0x10000; }, true},
        {"alignment 0 and 4", [](KXBMINFOHEADER* d) { d->bmiAlignment = 4; }, true},
        {"alpha", [](KXBMINFOHEADER* d) { d->bmiAlpha = 1; }, false},
        {"frame", [](KXBMINFOHEADER* d) { d->bmiFrame = 0; }, false},
        {"format flags", [](KXBMINFOHEADER* d) { d->bmiFormat = 0x20; }, false},
        {"other compression", [](KXBMINFOHEADER* d) { d->biCompression = KXBI_MPGI; }, false},
    };
    for (const Case& c : cases) {
        CKELPImg b(a);
        ASSERT_TRUE(b.MakeUnique());
        c.change(b.GetDesc());
        EXPECT_EQ(a.IsEqual(b), c.equal) << c.what;
    }
}

TEST_F(KelpImg, AccessorsReadTheDescriptorAndAssertOnEmptyImages) {
    CKELPImg a = MakeOwned(10, -3);
    EXPECT_EQ(a.DIBWidth(), 10);
    EXPECT_EQ(a.DIBHeight(), -3);
    EXPECT_EQ(a.DIBBitCount(), 24);
    EXPECT_EQ(a.DIBRatioX(), 0x10000u);
    EXPECT_EQ(a.DIBAlignment(), 4);
    EXPECT_TRUE(a.DIBIsRGB());
    EXPECT_FALSE(a.DIBColorSpaceYUV());
    EXPECT_EQ(a.HeaderSize(), 144u);
    EXPECT_EQ(kelptest::AssertionCount(), 0);

    CKELPImg empty;
    EXPECT_EQ(empty.DIBAlignment(), 4);
    EXPECT_EQ(empty.DIBAlpha(), 0u);
    EXPECT_EQ(empty.HeaderSize(), 0u);
    EXPECT_EQ(kelp::KELPImgRequiredBytes(nullptr), 0u);
    const std::wstring text = kelptest::SinkText(8);
    EXPECT_NE(text.find(L"ASSERTION FAILED!\nIsValidDIB() ,.\\kelpimg, "), std::wstring::npos);
    EXPECT_NE(text.find(L"ASSERTION FAILED!\npKxBmiTemplate ,.\\kelpimg, "), std::wstring::npos);
    KXBMINFOHEADERYUV d = kelptest::MakeRgb(10, 10, 32);
    EXPECT_EQ(kelp::KELPImgRequiredBytes(&d.bmi), 192u + 400u);
}

} // namespace
