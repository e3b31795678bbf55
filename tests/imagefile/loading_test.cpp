// What the loader decides above the formats: JPEG quality, the camera's orientation,
// the stamp route and its fallback, resized loads, the allocator of the result, the
// traces, and the object itself.
#include "imagefile_test.h"

#include <kelp/kelpcfg.h>
#include <kelp/kxconv.h>
#include <kelp/trace.h>

#include "../runtime/cfgtemp.h"
#include "imagefile/jpegio.h"

namespace kelptest {
namespace {

class ImageLoading : public ImageFileTest {};

TEST_F(ImageLoading, ObjectVersionAndFilter) {
    EXPECT_EQ(CreateImageIO(0x10001, nullptr), nullptr);
    EXPECT_EQ(m_io->GetVersion(), 0x10000u);
    EXPECT_STREQ(m_io->GetFileFilter(),
                 L"Image File (*.tif,*.tga,*.jpg,*.bmp,*.png,*pcx,*.psd,*.bsi)|"
                 L"*.tif;*.tga;*.jpg;*.bmp;*.png;*pcx;*.psd;*.bsi|");
}

TEST_F(ImageLoading, JpegQualityMapsOntoTheWritersScale) {
    // quality per cent -> factor 255 - q * 253 / 100 -> the encoder's own scale
    struct Case {
        uint32_t factor;
        int quality;
    } cases[] = {{2, 100}, {255, 1}, {66, 75}, {129, 50}, {0, 100}, {300, 1}};
    for (const Case& c : cases)
        EXPECT_EQ(kelp::imgfile::JpegQuality(c.factor), c.quality);

    const Dib d = ToDib(Pattern(64, 48, false), 24);
    auto saved = [&](const char* name, uint32_t quality, bool options) {
        kelp::ImageSaveOptions o = {24, 0, 0, quality, {0, 0}};
        EXPECT_EQ(Save(name, d, options ? &o : nullptr), KX_OK);
        return ReadBytes(Path(name));
    };
    const Bytes q100 = saved("a.jpg", 100, true);
    EXPECT_EQ(saved("b.jpg", 150, true), q100); // above 100 counts as 100
    EXPECT_EQ(saved("c.jpg", 0, false), q100);  // no options: 100
    EXPECT_LT(saved("d.jpg", 10, true).size(), q100.size() / 2);
    const Loaded l = Load("a.jpg", 24);
    ASSERT_EQ(l.result, KX_OK);
    EXPECT_GT(Psnr(l.img, Pattern(64, 48, false)), 40.0);
    // A 32-bit image is written without its alpha.
    EXPECT_EQ(Save("e.jpg", ToDib(Pattern(64, 48, true), 32)), KX_OK);
    EXPECT_GT(Psnr(Load("e.jpg", 24).img, Pattern(64, 48, false)), 40.0);
}

TEST_F(ImageLoading, CameraQuarterTurnsAreApplied) {
    const Img p = Pattern(48, 32, false);
    for (uint32_t o : {1u, 3u, 6u, 8u}) {
        SCOPED_TRACE(o);
        Write("turn.jpg", JpegFile(p, 95, o));
        kelp::KXIMAGEFILEDETAILS details{};
        details.dwSize = sizeof details;
        ASSERT_EQ(kelp::GetImageFileDetails(WPath("turn.jpg").c_str(), &details), KX_OK);
        EXPECT_EQ(details.dwOrientation, o);
        EXPECT_EQ(details.nWidth, 48); // as stored
        const Loaded l = Load("turn.jpg", 24);
        ASSERT_EQ(l.result, KX_OK);
        // Quarter turns only: a picture upside down loads as it is stored.
        const Img want = (o == 6 || o == 8) ? Turn(p, o) : p;
        ASSERT_EQ(l.img.w, want.w);
        EXPECT_GT(Psnr(l.img, want), 35.0);
    }
}

TEST_F(ImageLoading, StampRouteAndItsFallback) {
    const Img p = Pattern(64, 40, false);
    const Img small = Pattern(16, 10, false);
    const Bytes thumb = JpegFile(small, 90);
    Write("thumb.jpg", JpegFile(p, 90, 6, &thumb));
    Write("plain.jpg", JpegFile(p, 90));
    Write("stamp.tga", TgaFile(p, kTga24, &small));
    Write("stamp.psd", PsdFile(p, kPsdRgb, &thumb));
    Write("stamp.tif", TiffFile(p, kTiffRgb, &small));
    struct Case {
        const char* name;
        int32_t w, h;                       // with the stamp flag
        double psnr;                        // against the small picture
    } cases[] = {{"thumb.jpg", 10, 16, 30}, // the camera's turn applies to the stamp too
                 {"stamp.tga", 16, 10, 99},
                 {"stamp.psd", 16, 10, 30},
                 {"stamp.tif", 16, 10, 99},
                 {"plain.jpg", 64, 40, 0}}; // no stamp: the picture itself
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SinkClear();
        const Loaded l = Load(c.name, 24, IMAGELOAD_STAMP);
        ASSERT_EQ(l.result, KX_OK);
        EXPECT_EQ(l.img.w, c.w);
        EXPECT_EQ(l.img.h, c.h);
        const bool stamp = c.psnr > 0;
        if (stamp) {
            EXPECT_GE(Psnr(l.img, c.w == 16 ? small : Turn(small, 6)), c.psnr);
        }
        const std::wstring text = SinkText(8);
        EXPECT_EQ(text.find(L"\rCImageIO::LoadImage::L_ReadFileStamp: ") != std::wstring::npos,
                  stamp);
        EXPECT_EQ(text.find(L"\rCImageIO::LoadImage::L_LoadBitmap: ") != std::wstring::npos,
                  !stamp);
    }
    // Options shorter than 24 bytes carry no flags.
    EXPECT_EQ(Load("stamp.tga", 24, IMAGELOAD_STAMP, 0, 0, 20).img.w, 64);
}

TEST_F(ImageLoading, ResizedLoads) {
    const Img p = Pattern(640, 480, false);
    Write("big.jpg", JpegFile(p, 95));
    Write("big.png", PngFile(p, kPngRgb));
    Write("turn.jpg", JpegFile(p, 95, 8));
    struct Case {
        const char* name;
        uint32_t w, h;
        int32_t wantW, wantH;
    } cases[] = {{"big.jpg", 160, 120, 160, 120}, // decoded at a quarter, exactly
                 {"big.jpg", 100, 0, 100, 75},    // one side: the aspect stays
                 {"big.png", 0, 60, 80, 60},
                 {"big.png", 700, 500, 700, 500},   // larger works too
                 {"turn.jpg", 120, 160, 120, 160}}; // the size of the turned picture
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.w) + "x" + std::to_string(c.h));
        SinkClear();
        const Loaded l = Load(c.name, 32, IMAGELOAD_RESIZE, c.w, c.h);
        ASSERT_EQ(l.result, KX_OK);
        EXPECT_EQ(l.img.w, c.wantW);
        EXPECT_EQ(l.img.h, c.wantH);
        const bool turned = std::string(c.name) == "turn.jpg";
        const Img want =
            turned ? Turn(Pattern(c.wantH, c.wantW, false), 8) : Pattern(c.wantW, c.wantH, false);
        EXPECT_GT(Psnr(l.img, want), 25.0);
        EXPECT_NE(SinkText(8).find(L"\rCImageIO::LoadImage::L_LoadBitmapResize: "),
                  std::wstring::npos);
    }
    // Without the flag the sizes are not looked at.
    EXPECT_EQ(Load("big.png", 24, 0, 10, 10).img.w, 640);
}

TEST_F(ImageLoading, ResultComesFromTheCallersAllocatorInOneBlock) {
    Write("a.jpg", JpegFile(Pattern(33, 21, false), 90));
    Write("b.bmp", BmpFile(Pattern(33, 21, false), kBmp4));
    for (const char* name : {"a.jpg", "b.bmp"}) {
        for (uint32_t flags : {0u, uint32_t(IMAGELOAD_RESIZE)}) {
            // An allocator that keeps one block would hand the same memory out twice.
            kelp::CSingleAllocator single;
            KXBMINFOHEADERYUV d = MakeRgb(1, 1, 24);
            kelp::ImageLoadOptions o = {24, 32, flags, 0, 20, 10};
            void* px = nullptr;
            ASSERT_EQ(m_io->LoadImage(WPath(name).c_str(), &d.bmi, &px, &single, &o), KX_OK);
            EXPECT_EQ(px, single.m_pBuffer);
            EXPECT_EQ(single.m_nSize, d.bmi.biSizeImage);
            const Img got = FromDib(&d.bmi, px);
            EXPECT_EQ(got.w, flags ? 20 : 33);
            if (!flags) {
                const Img p = Pattern(33, 21, false);
                EXPECT_GT(Psnr(got, std::string(name) == "a.jpg" ? p : BmpExpected(p, kBmp4)),
                          35.0);
            }
        }
    }
}

TEST_F(ImageLoading, InfoTraceAndTimings) {
    Write("a.png", PngFile(Pattern(7, 3, false), kPngRgb));
    KXBMINFOHEADER* info = nullptr;
    ASSERT_EQ(m_io->GetImageInfo(WPath("a.png").c_str(), &info, &m_alloc), KX_OK);
    m_alloc.Free(info);
    const std::wstring path = WPath("a.png");
    const std::vector<std::wstring> lines = Lines8(30);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], L"Filename:   " + path +
                            L"\r\nWidth:   7\r\nHeight:   3\r\nBitsPerPixel:   24\r\nSize:   "
                            L"72\r\nCompression:   (null)\r\nFormatFlag:   00000000\r\n");
    ASSERT_EQ(Lines8(14).size(), 1u);
    EXPECT_EQ(Lines8(14)[0].rfind(L"\rCImageIO::LoadImage::L_FileInfo: ", 0), 0u);
    // Only checking: no record is wanted.
    EXPECT_EQ(m_io->GetImageInfo(path.c_str(), nullptr, nullptr), KX_OK);
    EXPECT_EQ(m_alloc.Live(), 0u);
}

TEST_F(ImageLoading, SavingChoosesByExtension) {
    const Dib d = ToDib(Pattern(8, 8, false), 24);
    SinkClear();
    EXPECT_EQ(Save("a.png", d), KXE_IMAGEFILE); // read, never written
    EXPECT_EQ(Save("a", d), KXE_IMAGEFILE);
    EXPECT_EQ(SinkText(8), L"");
    EXPECT_FALSE(std::filesystem::exists(Path("a.png")));
    // A descriptor the writers cannot take.
    Dib yuv = d;
    yuv.desc = MakeYuv(8, 8, 24);
    EXPECT_EQ(Save("a.tif", yuv), KXE_IMAGEFILE);
    EXPECT_EQ(SinkText(8), L"KXCONV: Unable to write file " + WPath("a.tif") + L"\n\r");
    // ".VM" is refused, with the trace of a file that cannot be opened.
    SinkClear();
    KXBMINFOHEADER* info = nullptr;
    EXPECT_EQ(m_io->GetImageInfo(WPath("x.VM").c_str(), &info, &m_alloc), KXE_IMAGEFILE);
    EXPECT_EQ(SinkText(8), L"KXCONV: Unable to open file " + WPath("x.VM") + L"\n\r");
}

TEST_F(ImageLoading, FlattenedBmpGoesThroughTheConversionManager) {
    const Img p = Pattern(16, 8, true);
    const Dib d32 = ToDib(p, 32);
    kelp::ImageSaveOptions o = {24, 0, IMAGESAVE_FLATTEN24, 100, {0, 0}};
    ASSERT_EQ(Save("flat.bmp", d32, &o), KX_OK);
    EXPECT_EQ(ReadBytes(Path("flat.bmp")).size(), 54u + 48u * 8u);
    const Loaded l = Load("flat.bmp", 0);
    ASSERT_EQ(l.result, KX_OK);
    EXPECT_EQ(l.desc.bmi.biBitCount, 24);
    EXPECT_EQ(l.img.px, Opaque(p).px);
    // Without the flag the image is written as it is.
    ASSERT_EQ(Save("as-is.bmp", d32), KX_OK);
    EXPECT_EQ(ReadBytes(Path("as-is.bmp")).size(), 54u + d32.pixels.size());

    // dbgBMP writes the flattened file into the temporary directory, when its level is
    // active.
    const char* old = getenv("TMPDIR");
    const std::string keep = old ? old : "";
    setenv("TMPDIR", m_dir.c_str(), 1);
    SinkSetLevelMask(~0u & ~(1u << 20));
    kelp::dbgBMP(8, 20, L"quiet", &d32.desc.bmi, d32.pixels.data());
    kelp::dbgBMP(8, 21, L"dump", &d32.desc.bmi, d32.pixels.data());
    if (old)
        setenv("TMPDIR", keep.c_str(), 1);
    else
        unsetenv("TMPDIR");
    EXPECT_FALSE(std::filesystem::exists(Path("quiet.bmp")));
    EXPECT_EQ(ReadBytes(Path("dump.bmp")), ReadBytes(Path("flat.bmp")));
}

TEST_F(ImageLoading, PixelLimitComesFromTheSettings) {
    Write("a.png", PngFile(Pattern(40, 30, false), kPngRgb));
    {
        TempSettings settings;
        ASSERT_TRUE(kelp::KELPGetCfg(false).WriteSettingUInt("KELPIMG", "MaxPixels", 1000));
        kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
        KXBMINFOHEADERYUV d = MakeRgb(1, 1, 24);
        void* px = nullptr;
        EXPECT_EQ(io->LoadImage(WPath("a.png").c_str(), &d.bmi, &px, &m_alloc, nullptr),
                  KXE_IMAGEFILE);
        io->Release();
    }
    EXPECT_EQ(Load("a.png").result, KX_OK);
}

} // namespace
} // namespace kelptest
