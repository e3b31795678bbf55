// What the object makes of the records it is handed or reads: palette images flattened
// with their own colours, one size limit for information and loading, and ".BSI" records
// that must agree with the bytes they claim.
#include "imagefile_test.h"

#include <kelp/trace.h>

#include "imagefile/backend.h"

namespace kelptest {
namespace {

class ImageRecords : public ImageFileTest {};

// A record with its colour table behind it, then the packed indices, bottom-up.
struct PaletteDib {
    std::vector<uint8_t> block; // record and table
    std::vector<uint8_t> pixels;
    const KXBMINFOHEADER* desc() const {
        return reinterpret_cast<const KXBMINFOHEADER*>(block.data());
    }
};

PaletteDib MakePaletteDib(const std::vector<uint8_t>& idx, const std::vector<uint32_t>& palette,
                          int32_t w, int32_t h, uint16_t bits, uint32_t clrUsed) {
    PaletteDib d;
    KXBMINFOHEADERYUV r = MakeRgb(w, h, bits);
    r.bmi.biClrUsed = clrUsed;
    const uint32_t entries = clrUsed ? clrUsed : 1u << bits;
    d.block.resize(KXBMI_SIZE + entries * 4);
    std::memcpy(d.block.data(), &r.bmi, KXBMI_SIZE);
    for (uint32_t i = 0; i < entries; ++i) {
        const uint32_t c = i < palette.size() ? palette[i] & 0xFFFFFF : 0;
        std::memcpy(&d.block[KXBMI_SIZE + i * 4], &c, 4);
    }
    const size_t stride = r.bmi.biSizeImage / size_t(h);
    d.pixels.assign(r.bmi.biSizeImage, 0);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            const uint32_t bit = uint32_t(x) * bits;
            uint8_t& b = d.pixels[size_t(h - 1 - y) * stride + bit / 8];
            b = uint8_t(b | (idx[size_t(y) * size_t(w) + size_t(x)] << (8 - bits - bit % 8)));
        }
    return d;
}

TEST_F(ImageRecords, PaletteImagesFlattenWithTheirOwnColours) {
    struct Case {
        uint16_t bits;
        uint32_t colors, clrUsed;
    } cases[] = {{1, 2, 0}, {1, 2, 2},   {4, 16, 0},    {4, 16, 16},
                 {4, 5, 5}, {8, 256, 0}, {8, 256, 256}, {8, 16, 16}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.bits << " bits, biClrUsed " << c.clrUsed);
        std::vector<uint8_t> idx;
        std::vector<uint32_t> palette;
        const uint32_t made = c.colors <= 2 ? 2 : c.colors <= 4 ? 4 : c.colors <= 16 ? 16 : 256;
        Img want = Indexed(23, 9, made, &idx, &palette);
        // A table shorter than the depth allows: indices stay within it.
        for (size_t i = 0; i < idx.size(); ++i) {
            idx[i] = uint8_t(idx[i] % c.colors);
            want.px[i] = palette[idx[i]] | 0xFF000000u;
        }
        const PaletteDib d = MakePaletteDib(idx, palette, 23, 9, c.bits, c.clrUsed);
        kelp::ImageSaveOptions o = {24, 0, IMAGESAVE_FLATTEN24, 100, {0, 0}};
        ASSERT_EQ(m_io->SaveImage(WPath("flat.bmp").c_str(), d.desc(), d.pixels.data(), &o), KX_OK);
        EXPECT_EQ(ReadBytes(Path("flat.bmp")).size(), 54u + 72u * 9u); // 23 * 3 -> 72
        const Loaded l = Load("flat.bmp", 24);
        ASSERT_EQ(l.result, KX_OK);
        EXPECT_EQ(l.img.px, want.px);
    }

    // The trace's image dump flattens the same way.
    std::vector<uint8_t> idx;
    std::vector<uint32_t> palette;
    const Img want = Indexed(10, 6, 256, &idx, &palette);
    const PaletteDib d = MakePaletteDib(idx, palette, 10, 6, 8, 0);
    const char* old = getenv("TMPDIR");
    const std::string keep = old ? old : "";
    setenv("TMPDIR", m_dir.c_str(), 1);
    kelp::dbgBMP(8, 21, L"palette", d.desc(), d.pixels.data());
    if (old)
        setenv("TMPDIR", keep.c_str(), 1);
    else
        unsetenv("TMPDIR");
    const Loaded l = Load("palette.bmp", 24);
    ASSERT_EQ(l.result, KX_OK);
    EXPECT_EQ(l.img.px, want.px);
}

void Put32LE(Bytes& b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b[at + size_t(i)] = uint8_t(v >> (8 * i));
}
void Put32BE(Bytes& b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b[at + size_t(i)] = uint8_t(v >> (24 - 8 * i));
}
// PNG chunk checksum.
uint32_t Crc32(const uint8_t* p, size_t n) {
    uint32_t c = 0xFFFFFFFFu;
    for (size_t i = 0; i < n; ++i) {
        c ^= p[i];
        for (int k = 0; k < 8; ++k)
            c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1)));
    }
    return ~c;
}

// The files with their picture's sides rewritten.
Bytes BmpSized(const Img& p, uint32_t w, uint32_t h) {
    Bytes b = BmpFile(p, kBmp24);
    Put32LE(b, 18, w);
    Put32LE(b, 22, h);
    return b;
}
Bytes PngSized(const Img& p, uint32_t w, uint32_t h) {
    Bytes b = PngFile(p, kPngRgb);
    Put32BE(b, 16, w);
    Put32BE(b, 20, h);
    Put32BE(b, 29, Crc32(&b[12], 17));
    return b;
}
TEST_F(ImageRecords, InformationAndLoadingRefuseTheSameSizes) {
    const Img p = Pattern(20, 10, false);
    struct Case {
        const char* name;
        Bytes (*make)(const Img&, uint32_t, uint32_t);
    } cases[] = {{"a.bmp", BmpSized}, {"a.png", PngSized}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // The picture as written loads; 100,000 a side (whose byte count wraps a 32-bit
        // word) is refused by both calls.
        Write(c.name, c.make(p, 20, 10));
        ASSERT_EQ(Load(c.name, 24).result, KX_OK);
        Write(c.name, c.make(p, 100000, 100000));
        KXBMINFOHEADER* info = nullptr;
        EXPECT_EQ(m_io->GetImageInfo(WPath(c.name).c_str(), &info, &m_alloc), KXE_IMAGEFILE);
        EXPECT_EQ(info, nullptr);
        KXBMINFOHEADERYUV d = MakeRgb(1, 1, 24);
        void* px = nullptr;
        EXPECT_EQ(m_io->LoadImage(WPath(c.name).c_str(), &d.bmi, &px, &m_alloc, nullptr),
                  KXE_IMAGEFILE);
    }
    EXPECT_EQ(m_alloc.Live(), 0u);
}

TEST_F(ImageRecords, BsiRecordMustAgreeWithItsBytes) {
    // A record of 100,000 x 100,000 at 24 bits with 9,752 bytes of pixels behind it,
    // which match its biSizeImage but not its sides.
    KXBMINFOHEADERYUV r = MakeRgb(100000, 100000, 24);
    r.bmi.biSizeImage = 9752;
    Bytes file(reinterpret_cast<uint8_t*>(&r.bmi), reinterpret_cast<uint8_t*>(&r.bmi) + 144);
    file.resize(144 + 9752, 0x40);
    Write("liar.bsi", file);
    KXBMINFOHEADER* info = nullptr;
    EXPECT_EQ(m_io->GetImageInfo(WPath("liar.bsi").c_str(), &info, &m_alloc), KXE_IMAGEFILE);
    KXBMINFOHEADERYUV d = MakeRgb(1, 1, 24);
    void* px = nullptr;
    EXPECT_EQ(m_io->LoadImage(WPath("liar.bsi").c_str(), &d.bmi, &px, &m_alloc, nullptr),
              KXE_IMAGEFILE);
    EXPECT_EQ(m_alloc.Live(), 0u);

    // The same record handed to SaveImage is refused by every writer, ".bmp" included,
    // and no file claiming that size is left.
    const std::vector<uint8_t> pixels(9752, 0x40);
    for (const char* name : {"liar.bmp", "liar.tga", "liar.tif", "liar.jpg"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(m_io->SaveImage(WPath(name).c_str(), &r.bmi, pixels.data(), nullptr),
                  KXE_IMAGEFILE);
        EXPECT_FALSE(std::filesystem::exists(Path(name)));
    }
    kelp::ImageSaveOptions o = {24, 0, IMAGESAVE_FLATTEN24, 100, {0, 0}};
    EXPECT_EQ(m_io->SaveImage(WPath("flat.bmp").c_str(), &r.bmi, pixels.data(), &o), KXE_IMAGEFILE);

    // A record that agrees with its bytes still goes both ways.
    const Dib good = ToDib(Pattern(7, 5, false), 24);
    ASSERT_EQ(Save("good.bsi", good), KX_OK);
    const Loaded l = Load("good.bsi", 24);
    ASSERT_EQ(l.result, KX_OK);
    EXPECT_EQ(l.img.px, Pattern(7, 5, false).px);
}

// A JPEG with a large application segment after the start marker, so that its frame
// header lies beyond the first bytes the object reads.
Bytes JpegWithPadding(const Bytes& jpeg, size_t segments) {
    Bytes out(jpeg.begin(), jpeg.begin() + 2);
    for (size_t i = 0; i < segments; ++i) {
        out.insert(out.end(), {0xFF, 0xE9, 0xFF, 0xFF});
        out.insert(out.end(), 0xFFFD, uint8_t(i));
    }
    out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
    return out;
}

TEST_F(ImageRecords, InformationFromTheHeadersIsThatOfTheWholeFile) {
    const Img p = Pattern(40, 30, false);
    const Bytes thumb = JpegFile(Pattern(8, 6, false), 90);
    struct Case {
        const char* name;
        Bytes file;
    } cases[] = {
        {"exif.jpg", JpegFile(p, 90, 6, &thumb)},
        {"padded.jpg", JpegWithPadding(JpegFile(p, 90, 8), 3)},
        {"rgb.png", PngFile(p, kPngRgb)},
        {"interlaced.png", PngFile(p, kPngInterlaced)},
        {"palette.png", PngFile(p, kPngPaletteAlpha)},
        {"eight.bmp", BmpFile(p, kBmp8)},
        {"masks.bmp", BmpFile(p, kBmp565)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Write(c.name, c.file);
        const kelp::imgfile::Bytes whole{c.file.data(), c.file.size()};
        const kelp::imgfile::CBackend* b = kelp::imgfile::FindBackend(whole, L"");
        ASSERT_NE(b, nullptr);
        // Less than the file is asked for.
        EXPECT_LT(b->InfoBytes(whole, whole.size), whole.size);
        kelp::imgfile::FileInfo want;
        ASSERT_EQ(b->Info(whole, 0, &want), KX_OK);
        kelp::KXIMAGEFILEDETAILS got{};
        got.dwSize = sizeof got;
        ASSERT_EQ(kelp::GetImageFileDetails(WPath(c.name).c_str(), &got), KX_OK);
        EXPECT_EQ(got.dwFormat, want.format);
        EXPECT_EQ(got.nWidth, want.width);
        EXPECT_EQ(got.nHeight, want.height);
        EXPECT_EQ(got.dwBitCount, want.bits);
        EXPECT_EQ(got.dwOrientation, want.orientation);
        EXPECT_EQ(got.dwFlags, want.flags);
        EXPECT_EQ(got.nStampWidth, want.stampWidth);
        EXPECT_EQ(got.nResolution, want.xResolution);
        // Information first, then the load, with one object.
        EXPECT_EQ(Load(c.name, 24).result, KX_OK);
    }
    // A file cut inside its headers is refused, whatever its extension claims.
    Write("cut.jpg", Bytes(cases[1].file.begin(), cases[1].file.begin() + 70000));
    KXBMINFOHEADER* info = nullptr;
    EXPECT_EQ(m_io->GetImageInfo(WPath("cut.jpg").c_str(), &info, &m_alloc), KXE_IMAGEFILE);
}

} // namespace
} // namespace kelptest
