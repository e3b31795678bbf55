// Between the Windows form of a header and the full record.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include <kelp/kelp.h>

#include "kxbihtest.h"
#include "rgbconv_guard.h"

using namespace kelp;
using kelptest::TrackingAllocator;

namespace {

struct Manager {
    IConversionManager* cm = KXCONVCreateConversionManager();
    ~Manager() { cm->Release(); }
};

// A Windows-form header of `size` bytes (extension words numbered from 0xE0) and a
// colour table of `entries` behind it.
std::vector<unsigned char> WinHeader(uint32_t size, uint16_t bits, uint32_t clrUsed,
                                     uint32_t entries) {
    std::vector<unsigned char> b(size + entries * 4);
    KXWINBITMAPINFOHEADER h{};
    h.biSize = size;
    h.biWidth = 3;
    h.biHeight = -2;
    h.biPlanes = 1;
    h.biBitCount = bits;
    h.biSizeImage = 12;
    h.biXPelsPerMeter = 2835;
    h.biClrUsed = clrUsed;
    std::memcpy(b.data(), &h, 40);
    for (uint32_t i = 40; i < size; ++i)
        b[i] = static_cast<unsigned char>(0xE0 + (i - 40));
    for (uint32_t i = 0; i < entries * 4; ++i)
        b[size + i] = static_cast<unsigned char>(i);
    return b;
}

} // namespace

TEST(Translate, WindowsHeaderToFullRecord) {
    struct Case {
        const char* what;
        uint32_t size;
        uint16_t bits;
        uint32_t clrUsed, entries;
        uint32_t ext, palette;
    } cases[] = {
        {"plain 24-bit header", 40, 24, 0, 0, 0, 0},
        {"44 bytes: the offset word alone, no extension", 44, 24, 0, 0, 0, 0},
        {"48 bytes: a 4-byte extension", 48, 32, 0, 0, 4, 0},
        {"60 bytes: a 16-byte extension", 60, 32, 0, 0, 16, 0},
        {"8 bits with 0 colours used: 256 entries", 40, 8, 0, 256, 0, 1024},
        {"4 bits with 3 colours used", 40, 4, 3, 3, 0, 12},
    };
    Manager m;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        auto src = WinHeader(c.size, c.bits, c.clrUsed, c.entries);
        TrackingAllocator a;
        KXBMINFOHEADER* kx = nullptr;
        ASSERT_EQ(m.cm->BIHToKXBIH(reinterpret_cast<KXWINBITMAPINFOHEADER*>(src.data()), &kx, &a),
                  KX_OK);
        EXPECT_EQ(a.GetSize(kx), 144 + c.ext + c.palette);
        EXPECT_EQ(kx->biSize, 144 + c.ext);
        EXPECT_EQ(kx->biWidth, 3);
        EXPECT_EQ(kx->biHeight, -2);
        EXPECT_EQ(kx->biBitCount, c.bits);
        EXPECT_EQ(kx->biXPelsPerMeter, 2835);
        EXPECT_EQ(kx->bmiExtOffset, c.ext ? 144u : 0u);
        EXPECT_EQ(kx->bmiMagic, KXBMI_MAGIC);
        EXPECT_EQ(kx->bmiRatioX, 0x10000u);
        EXPECT_EQ(kx->bmiRatioY, 0x10000u);
        EXPECT_EQ(kx->bmiAlpha | kx->bmiFlags | kx->bmiFrame | kx->bmiAlignment, 0u);
        const unsigned char* bytes = reinterpret_cast<unsigned char*>(kx);
        EXPECT_EQ(std::memcmp(bytes + 144, src.data() + 44, c.ext), 0);
        EXPECT_EQ(std::memcmp(bytes + 144 + c.ext, src.data() + c.size, c.palette), 0);
        a.Free(kx);
    }
}

TEST(Translate, FullRecordToWindowsHeader) {
    Manager m;
    TrackingAllocator a;
    // RGB at 32 bits: 40 bytes, nothing behind.
    KXBMINFOHEADERYUV rgb = kelptest::MakeRgb(5, 4, 32);
    KXWINBITMAPINFOHEADER* win = nullptr;
    ASSERT_EQ(m.cm->KXBIHToBIH(&rgb.bmi, &win, &a), KX_OK);
    EXPECT_EQ(a.GetSize(win), 40u);
    EXPECT_EQ(win->biSize, 40u);
    EXPECT_EQ(std::memcmp(reinterpret_cast<char*>(win) + 4, reinterpret_cast<char*>(&rgb) + 4, 36),
              0);
    a.Free(win);

    // YUV: the 16-byte extension moves to offset 44, the word at 40 says so.
    KXBMINFOHEADERYUV yuv = kelptest::MakeYuv(5, 4, 32);
    yuv.yuv.yuvColorSpace = 2;
    ASSERT_EQ(m.cm->KXBIHToBIH(&yuv.bmi, &win, &a), KX_OK);
    EXPECT_EQ(a.GetSize(win), 60u);
    EXPECT_EQ(win->biSize, 60u);
    const unsigned char* w = reinterpret_cast<unsigned char*>(win);
    uint32_t offset;
    std::memcpy(&offset, w + 40, 4);
    EXPECT_EQ(offset, 44u);
    EXPECT_EQ(std::memcmp(w + 44, &yuv.yuv, 16), 0);

    // And back: the same record but for the words the Windows form has no room for.
    KXBMINFOHEADER* kx = nullptr;
    ASSERT_EQ(m.cm->BIHToKXBIH(win, &kx, &a), KX_OK);
    EXPECT_EQ(kx->biSize, 160u);
    EXPECT_EQ(kx->bmiExtOffset, 144u);
    EXPECT_EQ(std::memcmp(DIBYuv(kx), &yuv.yuv, 16), 0);
    EXPECT_EQ(ValidateBIH(kx), KX_OK);
    a.Free(win);
    a.Free(kx);

    // An 8-bit record: room for 256 entries whose bytes the caller fills.
    std::vector<unsigned char> block(144 + 1024, 0x5A);
    KXBMINFOHEADERYUV pal = kelptest::MakeRgb(4, 4, 8);
    std::memcpy(block.data(), &pal, 144);
    ASSERT_EQ(m.cm->KXBIHToBIH(reinterpret_cast<KXBMINFOHEADER*>(block.data()), &win, &a), KX_OK);
    EXPECT_EQ(a.GetSize(win), 40u + 1024u);
    EXPECT_EQ(win->biSize, 40u);
    a.Free(win);
}

TEST(Translate, FailuresAndTheirTraces) {
    Manager m;
    KXBMINFOHEADERYUV yuv = kelptest::MakeYuv(5, 4, 8);
    auto src = WinHeader(48, 8, 0, 256);
    struct Case {
        const char* what;
        bool toFull;
        TrackingAllocator::Mode mode;
        KXRESULT result;
        std::wstring trace;
    } cases[] = {
        {"full record: 144 + 4 + 1024", true, TrackingAllocator::kFail, KXE_OUTOFMEMORY,
         L"CConversionManager::BIHToKXBIH: Allocation of 1172 bytes Failed!\r\n"},
        // 40 + 20 + 1024 are asked for; the trace names the full record's 144 + 20 + 1024.
        {"Windows form: the size of the full record is named", false, TrackingAllocator::kFail,
         KXE_OUTOFMEMORY, L"CConversionManager::KXBIHToBIH: Allocation of 1188 bytes Failed!\r\n"},
        {"full record, throwing allocator", true, TrackingAllocator::kThrow, KXE_FAIL, L""},
        {"Windows form, throwing allocator", false, TrackingAllocator::kThrow, KXE_FAIL, L""},
    };
    // The YUV record's colour table (8 bits) is in reach behind it.
    std::vector<unsigned char> yuvBlock(160 + 1024);
    std::memcpy(yuvBlock.data(), &yuv, 160);
    for (const auto& c : cases) {
        TrackingAllocator a;
        a.FailFrom(1, c.mode);
        kelptest::SinkClear();
        KXRESULT r;
        if (c.toFull) {
            KXBMINFOHEADER* kx = nullptr;
            r = m.cm->BIHToKXBIH(reinterpret_cast<KXWINBITMAPINFOHEADER*>(src.data()), &kx, &a);
        } else {
            KXWINBITMAPINFOHEADER* win = nullptr;
            r = m.cm->KXBIHToBIH(reinterpret_cast<KXBMINFOHEADER*>(yuvBlock.data()), &win, &a);
        }
        EXPECT_EQ(r, c.result) << c.what;
        std::vector<std::wstring> expected;
        if (!c.trace.empty()) expected.push_back(c.trace);
        EXPECT_EQ(kelptest::Lines8(2), expected) << c.what;
    }

    TrackingAllocator a;
    KXBMINFOHEADER* kx = nullptr;
    KXWINBITMAPINFOHEADER* win = nullptr;
    kelptest::SinkClear();
    // To the full record the header's readability is tested first, with its trace; back
    // to the Windows form there is no such test, and a record that cannot be read, like
    // nowhere to put the result, is a caught failure.
    EXPECT_EQ(m.cm->BIHToKXBIH(nullptr, &kx, &a), KXE_INVALID);
    EXPECT_EQ(kelptest::Lines8(2),
              std::vector<std::wstring>{L"CConversionManager::Invalid BIH!\n"});
    kelptest::SinkClear();
    kelptest::GuardedBuffer page(16); // the unreadable page begins right behind it
    auto* unreadable = reinterpret_cast<KXBMINFOHEADER*>(page.data() + page.size());
    KXBMINFOHEADERYUV rgb = kelptest::MakeRgb(4, 4, 32);
    auto winSrc = WinHeader(40, 24, 0, 0);
    auto* winHeader = reinterpret_cast<KXWINBITMAPINFOHEADER*>(winSrc.data());
    EXPECT_EQ(m.cm->KXBIHToBIH(nullptr, &win, &a), KXE_FAIL);
    EXPECT_EQ(m.cm->KXBIHToBIH(unreadable, &win, &a), KXE_FAIL);
    EXPECT_EQ(m.cm->KXBIHToBIH(&rgb.bmi, nullptr, &a), KXE_FAIL);
    EXPECT_EQ(m.cm->KXBIHToBIH(&rgb.bmi, &win, nullptr), KXE_FAIL);
    EXPECT_EQ(m.cm->BIHToKXBIH(winHeader, nullptr, &a), KXE_FAIL);
    EXPECT_EQ(m.cm->BIHToKXBIH(winHeader, &kx, nullptr), KXE_FAIL);
    EXPECT_TRUE(kelptest::Lines8(2).empty());
    // A header shorter than its fixed part, and an extension offset beyond the record.
    auto shortHeader = WinHeader(40, 24, 0, 0);
    reinterpret_cast<KXWINBITMAPINFOHEADER*>(shortHeader.data())->biSize = 20;
    EXPECT_EQ(
        m.cm->BIHToKXBIH(reinterpret_cast<KXWINBITMAPINFOHEADER*>(shortHeader.data()), &kx, &a),
        KXE_INVALID);
    KXBMINFOHEADERYUV bad = kelptest::MakeYuv(5, 4, 32);
    bad.bmi.bmiExtOffset = 150;
    EXPECT_EQ(m.cm->KXBIHToBIH(&bad.bmi, &win, &a), KXE_INVALID);
    EXPECT_EQ(a.Calls(), 0);
}
