// Every reader against the picture its file was made from; the writers by reading back
// what they wrote.
#include "imagefile_test.h"

namespace kelptest {
namespace {

class ImageReaders : public ImageFileTest {};

struct ReaderCase {
    const char* name;
    Bytes file;
    Img expected;
    uint32_t infoBits; // biBitCount of GetImageInfo
    bool alpha;        // the file has alpha: compared, and bmiAlpha 0
};

std::vector<ReaderCase> Cases() {
    const Img p = Pattern(37, 23, true); // odd sizes: rows with padding everywhere
    std::vector<ReaderCase> c;
    auto bmp = [&](const char* n, BmpKind k, uint32_t bits, bool alpha) {
        Bytes f = BmpFile(p, k);
        c.push_back({n, f, BmpExpected(p, k), bits, alpha});
    };
    bmp("bmp24.bmp", kBmp24, 24, false);
    bmp("bmp32.bmp", kBmp32, 32, true);
    bmp("bmp8.bmp", kBmp8, 24, false);
    bmp("bmp4.bmp", kBmp4, 24, false);
    bmp("bmp1.bmp", kBmp1, 24, false);
    bmp("bmp555.bmp", kBmp555, 24, false);
    bmp("bmp565.bmp", kBmp565, 24, false);
    bmp("rle8.bmp", kBmpRle8, 24, false);
    bmp("rle4.bmp", kBmpRle4, 24, false);
    bmp("topdown.bmp", kBmpTopDown, 24, false);
    bmp("core.bmp", kBmpCore, 24, false);
    auto tga = [&](const char* n, TgaKind k, uint32_t bits, bool alpha) {
        Bytes f = TgaFile(p, k);
        c.push_back({n, f, TgaExpected(p, k), bits, alpha});
    };
    tga("t24.tga", kTga24, 24, false);
    tga("t32.tga", kTga32, 32, true);
    tga("rle24.tga", kTga24Rle, 24, false);
    tga("grey.tga", kTgaGrey, 24, false);
    tga("mapped.tga", kTgaMapped, 24, false);
    tga("topdown.tga", kTgaTopDown, 24, false);
    auto pcx = [&](const char* n, PcxKind k, uint32_t bits) {
        Bytes f = PcxFile(p, k);
        c.push_back({n, f, PcxExpected(p, k), bits, false});
    };
    pcx("p24.pcx", kPcx24, 24);
    pcx("p8.pcx", kPcx8, 24);
    pcx("p1.pcx", kPcx1, 24);
    pcx("planes.pcx", kPcx4Planes, 24);
    auto psd = [&](const char* n, PsdKind k, uint32_t bits, bool alpha) {
        Bytes f = PsdFile(p, k);
        c.push_back({n, f, PsdExpected(p, k), bits, alpha});
    };
    psd("rgb.psd", kPsdRgb, 24, false);
    psd("rgba-rle.psd", kPsdRgbRleAlpha, 32, true);
    psd("grey-rle.psd", kPsdGreyRle, 24, false);
    psd("indexed.psd", kPsdIndexed, 24, false);
    psd("rgb16.psd", kPsdRgb16, 24, false);
    psd("cmyk.psd", kPsdCmyk, 24, false);
    auto png = [&](const char* n, PngKind k, uint32_t bits, bool alpha) {
        Bytes f = PngFile(p, k);
        c.push_back({n, f, PngExpected(p, k), bits, alpha});
    };
    png("rgb.png", kPngRgb, 24, false);
    png("rgba.png", kPngRgba, 32, true);
    png("grey.png", kPngGrey, 24, false);
    png("pal4.png", kPngPalette4, 24, false);
    png("grey16.png", kPngGrey16, 24, false);
    png("adam7.png", kPngInterlaced, 32, true);
    png("trns.png", kPngPaletteAlpha, 32, true);
    auto tif = [&](const char* n, TiffKind k, uint32_t bits, bool alpha) {
        Bytes f = TiffFile(p, k);
        c.push_back({n, f, TiffExpected(p, k), bits, alpha});
    };
    tif("rgb.tif", kTiffRgb, 24, false);
    tif("rgba.tif", kTiffRgba, 32, true);
    tif("pal.tif", kTiffPalette, 24, false);
    tif("grey.tif", kTiffGrey, 24, false);
    tif("tiled.tif", kTiffTiledLzw, 24, false);
    return c;
}

TEST_F(ImageReaders, GiveThePictureTheFileHolds) {
    for (const ReaderCase& c : Cases()) {
        SCOPED_TRACE(c.name);
        Write(c.name, c.file);
        KXBMINFOHEADER* info = nullptr;
        ASSERT_EQ(m_io->GetImageInfo(WPath(c.name).c_str(), &info, &m_alloc), KX_OK);
        EXPECT_EQ(info->biSize, 144u);
        EXPECT_EQ(info->biWidth, c.expected.w);
        EXPECT_EQ(info->biHeight, c.expected.h);
        EXPECT_EQ(info->biBitCount, c.infoBits);
        EXPECT_EQ(info->biSizeImage,
                  uint32_t(((c.expected.w * c.infoBits / 8) + 3) & ~3) * uint32_t(c.expected.h));
        m_alloc.Free(info);
        for (uint32_t bits : {24u, 32u}) {
            const Loaded l = Load(c.name, bits);
            ASSERT_EQ(l.result, KX_OK) << bits;
            EXPECT_EQ(l.desc.bmi.biBitCount, bits);
            EXPECT_TRUE(SameColours(l.img, c.expected))
                << bits << " bits, psnr " << Psnr(l.img, c.expected);
            // The alpha state follows the file, whatever depth it is loaded at.
            EXPECT_EQ(l.desc.bmi.bmiAlpha, c.alpha ? KXDIB_ALPHA_VALID : KXDIB_ALPHA_OPAQUE);
            if (c.alpha && bits == 32) {
                EXPECT_EQ(l.img.px, c.expected.px);
            }
        }
        // Without options: the file's depth, at least 24 bits.
        const Loaded own = Load(c.name, 0);
        ASSERT_EQ(own.result, KX_OK);
        EXPECT_EQ(own.desc.bmi.biBitCount, c.infoBits);
        EXPECT_EQ(m_alloc.Live(), 0u);
    }
}

TEST_F(ImageReaders, WritersReadBackExactly) {
    const Img p = Pattern(41, 17, true);
    struct Case {
        const char* name;
        uint16_t bits;
        uint16_t backBits; // what the file holds
    } cases[] = {{"a.bmp", 24, 24}, {"b.bmp", 32, 32}, {"c.tga", 24, 24}, {"d.tga", 32, 32},
                 {"e.tif", 24, 24}, {"f.tif", 32, 24}, {"g.bsi", 32, 32}, {"h.bsi", 24, 24}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(Save(c.name, ToDib(p, c.bits)), KX_OK);
        const Loaded l = Load(c.name, 0);
        ASSERT_EQ(l.result, KX_OK);
        EXPECT_EQ(l.desc.bmi.biBitCount, c.backBits);
        const Img want = c.backBits == 32 ? p : Opaque(p);
        EXPECT_EQ(Opaque(l.img).px, Opaque(want).px);
        if (c.backBits == 32) {
            EXPECT_EQ(l.img.px, want.px);
        }
    }
}

TEST_F(ImageReaders, TgaKeepsWhatTheAlphaHolds) {
    const Img p = Pattern(9, 5, true);
    for (uint32_t state : {KXDIB_ALPHA_VALID, KXDIB_ALPHA_OPAQUE, KXDIB_ALPHA_PREMULTIPLIED}) {
        ASSERT_EQ(Save("a.tga", ToDib(p, 32, state)), KX_OK);
        const Loaded l = Load("a.tga", 32);
        ASSERT_EQ(l.result, KX_OK);
        EXPECT_EQ(l.desc.bmi.bmiAlpha, state);
        // An opaque image is written with opaque alpha bytes.
        EXPECT_EQ(l.img.px, state == KXDIB_ALPHA_OPAQUE ? Opaque(p).px : p.px);
    }
}

TEST_F(ImageReaders, BmpFileIsHeadersThenPixels) {
    const Dib d = ToDib(Pattern(100, 100, false), 24);
    ASSERT_EQ(Save("a.bmp", d), KX_OK);
    const Bytes f = ReadBytes(Path("a.bmp"));
    ASSERT_EQ(f.size(), 54u + d.desc.bmi.biSizeImage);
    EXPECT_EQ(f[0], 'B');
    EXPECT_EQ(f[10], 54);
    EXPECT_EQ(f[14], 40);
    EXPECT_EQ(std::memcmp(f.data() + 54, d.pixels.data(), d.pixels.size()), 0);

    // An 8-bit image keeps its colour table between headers and pixels.
    std::vector<uint8_t> record(144 + 1024, 0);
    KXBMINFOHEADERYUV r = MakeRgb(4, 2, 8);
    std::memcpy(record.data(), &r.bmi, 144);
    for (int i = 0; i < 256; ++i)
        record[144 + 4 * i + 1] = uint8_t(i); // green ramp
    const std::vector<uint8_t> px = {0, 64, 128, 255, 0, 0, 0, 0};
    ASSERT_EQ(m_io->SaveImage(WPath("p.bmp").c_str(),
                              reinterpret_cast<KXBMINFOHEADER*>(record.data()), px.data(), nullptr),
              KX_OK);
    EXPECT_EQ(ReadBytes(Path("p.bmp")).size(), 54u + 1024 + 8);
    const Loaded l = Load("p.bmp", 24);
    ASSERT_EQ(l.result, KX_OK);
    EXPECT_EQ(l.img.At(3, 1), 0xFF00FF00u);
}

TEST_F(ImageReaders, OneBitFileIsReportedAndLoadedAt24Bits) {
    Write("mono.bmp", BmpFile(Pattern(20, 10, false), kBmp1));
    KXBMINFOHEADER* info = nullptr;
    ASSERT_EQ(m_io->GetImageInfo(WPath("mono.bmp").c_str(), &info, &m_alloc), KX_OK);
    EXPECT_EQ(info->biBitCount, 24);
    KXBMINFOHEADERYUV d{};
    std::memcpy(&d, info, 144);
    m_alloc.Free(info);
    void* px = nullptr;
    ASSERT_EQ(m_io->LoadImage(WPath("mono.bmp").c_str(), &d.bmi, &px, &m_alloc, nullptr), KX_OK);
    EXPECT_EQ(d.bmi.biBitCount, 24);
    EXPECT_EQ(d.bmi.bmiAlpha, KXDIB_ALPHA_OPAQUE);
    EXPECT_EQ(d.bmi.biSizeImage, 60u * 10u);
    m_alloc.Free(px);
}

TEST_F(ImageReaders, BsiRecordComesBackWithItsExtensionWordsSettled) {
    struct Case {
        uint32_t sampling, aux, wantSampling, wantAux;
    } cases[] = {{16, 0, 16, 0}, {5, 9, 0, 0}, {0, 0, 0, 0}, {32, 17, 32, 17}};
    for (const Case& c : cases) {
        KXBMINFOHEADERYUV r = MakeYuv(6, 2, 24);
        r.yuv.yuvSampling = c.sampling;
        r.yuv.yuvSamplingAux = c.aux;
        r.bmi.bmiFormat = 0x20;
        std::vector<uint8_t> px(r.bmi.biSizeImage);
        for (size_t i = 0; i < px.size(); ++i)
            px[i] = uint8_t(i * 7);
        ASSERT_EQ(m_io->SaveImage(WPath("a.BSI").c_str(), &r.bmi, px.data(), nullptr), KX_OK);
        EXPECT_EQ(ReadBytes(Path("a.BSI")).size(), 160u + px.size());

        KXBMINFOHEADER* info = nullptr;
        ASSERT_EQ(m_io->GetImageInfo(WPath("a.BSI").c_str(), &info, &m_alloc), KX_OK);
        EXPECT_EQ(info->biSize, 160u);
        EXPECT_EQ(kelp::DIBYuv(info)->yuvSampling, c.wantSampling);
        EXPECT_EQ(kelp::DIBYuv(info)->yuvSamplingAux, c.wantAux);
        m_alloc.Free(info);

        // The caller's biSize stays, and only that much of the record is copied.
        KXBMINFOHEADERYUV back{};
        back.bmi.biSize = 144;
        back.yuv.yuvSampling = 77;
        void* got = nullptr;
        // The kind goes by the extension in any case.
        std::filesystem::rename(Path("a.BSI"), Path("a.bsi"));
        ASSERT_EQ(m_io->LoadImage(WPath("a.bsi").c_str(), &back.bmi, &got, &m_alloc, nullptr),
                  KX_OK);
        EXPECT_EQ(back.bmi.biSize, 144u);
        EXPECT_EQ(back.bmi.biCompression, KXBI_YUV);
        EXPECT_EQ(back.bmi.bmiFormat, 0x20u);
        EXPECT_EQ(back.yuv.yuvSampling, 77u);
        EXPECT_EQ(std::memcmp(got, px.data(), px.size()), 0);
        m_alloc.Free(got);
    }
}

#if KELP_HAVE_WMF
TEST_F(ImageReaders, MetafileIsRenderedWithinTheSizeRules) {
    // 4,096 x 1,024 pixels at the natural 96 dots per inch.
    Write("wide.wmf", WmfFile(4096, 1024, 96));
    KXBMINFOHEADER* info = nullptr;
    ASSERT_EQ(m_io->GetImageInfo(WPath("wide.wmf").c_str(), &info, &m_alloc), KX_OK);
    EXPECT_EQ(info->biWidth, 2048);
    EXPECT_EQ(info->biHeight, 512);
    m_alloc.Free(info);
    Loaded l = Load("wide.wmf", 24);
    ASSERT_EQ(l.result, KX_OK);
    EXPECT_EQ(l.img.w, 2048);
    EXPECT_EQ(l.img.h, 512);
    EXPECT_EQ(l.img.At(1024, 256), 0xFFFF0000u); // the red rectangle in the middle
    EXPECT_EQ(l.img.At(10, 10), 0xFFFFFFFFu);    // on a white page
    // A smaller size asked for renders smaller, and the resize makes it exact.
    l = Load("wide.wmf", 24, IMAGELOAD_RESIZE, 1000, 250);
    ASSERT_EQ(l.result, KX_OK);
    EXPECT_EQ(l.img.w, 1000);
    EXPECT_EQ(l.img.h, 250);
    EXPECT_EQ(l.img.At(500, 125), 0xFFFF0000u);
}
#endif

} // namespace
} // namespace kelptest
