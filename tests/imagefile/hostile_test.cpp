// Truncated, damaged and hostile files: the designed failure and trace, nothing taken
// from the caller's allocator, and no crash, for files made to lie and for many random
// damages of good files.
#include "imagefile_test.h"

#include <random>

#include "imagefile/exif.h"

namespace kelptest {
namespace {

class HostileFiles : public ImageFileTest {
  protected:
    // LoadImage of a file with its own allocator: the result, and whether anything of
    // the allocator is left or was asked for.
    KXRESULT LoadBare(const std::string& name, int* calls) {
        TrackingAllocator a;
        KXBMINFOHEADERYUV d = MakeRgb(1, 1, 24);
        kelp::ImageLoadOptions o = {24, 32, IMAGELOAD_STAMP, 0, 0, 0};
        void* px = nullptr;
        const KXRESULT r = m_io->LoadImage(WPath(name).c_str(), &d.bmi, &px, &a, &o);
        if (KX_SUCCEEDED(r)) {
            EXPECT_EQ(d.bmi.biSizeImage,
                      uint32_t(((d.bmi.biWidth * d.bmi.biBitCount / 8) + 3) & ~3) *
                          uint32_t(d.bmi.biHeight));
            EXPECT_TRUE(a.Owns(px));
            a.Free(px);
        }
        *calls = a.Calls();
        return r;
    }
};

void Put32At(Bytes& b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b[at + size_t(i)] = uint8_t(v >> (8 * i));
}
void Put32BEAt(Bytes& b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b[at + size_t(i)] = uint8_t(v >> (24 - 8 * i));
}

TEST_F(HostileFiles, FailWithTheDesignedTraceAndTakeNoMemory) {
    const Img p = Pattern(30, 20, true);
    // Files whose declared size the file cannot hold fail before any memory is taken
    // for the picture; a damaged file of a plausible size may take it.
    struct Case {
        const char* name;
        Bytes file;
    };
    std::vector<Case> cases;
    auto cut = [](Bytes b, size_t n) {
        b.resize(n);
        return b;
    };
    const Bytes bmp = BmpFile(p, kBmp24);
    Bytes bmpHuge = bmp;
    Put32At(bmpHuge, 18, 60000); // 60,000 x 60,000 pixels in a file of 1.8 KB
    Put32At(bmpHuge, 22, 60000);
    Bytes bmpOffset = bmp;
    Put32At(bmpOffset, 10, 0xFFFFFFF0u);
    Bytes rleNoEnd = BmpFile(p, kBmpRle8);
    rleNoEnd.resize(rleNoEnd.size() - 2); // no end-of-image code, and the last line short
    rleNoEnd.resize(rleNoEnd.size() / 2);
    Bytes rleHuge = BmpFile(p, kBmpRle8);
    Put32At(rleHuge, 18, 30000);
    Put32At(rleHuge, 22, 30000);
    cases.push_back({"cut.bmp", cut(bmp, bmp.size() - 100)});
    cases.push_back({"huge.bmp", bmpHuge});
    cases.push_back({"offset.bmp", bmpOffset});
    cases.push_back({"rle.bmp", rleNoEnd});
    cases.push_back({"rlehuge.bmp", rleHuge});
    Bytes tga = TgaFile(p, kTga24Rle);
    cases.push_back({"cut.tga", cut(tga, 200)});
    Bytes tgaHuge = TgaFile(p, kTga24);
    tgaHuge[12] = tgaHuge[13] = tgaHuge[14] = tgaHuge[15] = 0xFF;
    cases.push_back({"huge.tga", tgaHuge});
    const Bytes pcx = PcxFile(p, kPcx24);
    cases.push_back({"cut.pcx", cut(pcx, pcx.size() / 2)});
    Bytes pcxHuge = pcx;
    pcxHuge[8] = pcxHuge[9] = pcxHuge[10] = pcxHuge[11] = 0xFF;
    pcxHuge[66] = pcxHuge[67] = 0xFF;
    cases.push_back({"huge.pcx", pcxHuge});
    const Bytes psd = PsdFile(p, kPsdRgbRleAlpha);
    cases.push_back({"cut.psd", cut(psd, psd.size() - 40)});
    Bytes psdCounts = psd;
    // The first row's byte count runs past the file: the counts follow the compression
    // word behind the three sections.
    auto be32 = [&](size_t at) {
        return (uint32_t(psd[at]) << 24) | (uint32_t(psd[at + 1]) << 16) |
               (uint32_t(psd[at + 2]) << 8) | psd[at + 3];
    };
    size_t at = 26;
    for (int section = 0; section < 3; ++section)
        at += 4 + be32(at);
    psdCounts[at + 2] = psdCounts[at + 3] = 0xFF;
    cases.push_back({"counts.psd", psdCounts});
    Bytes psdHuge = psd;
    Put32BEAt(psdHuge, 14, 30000);
    Put32BEAt(psdHuge, 18, 30000);
    cases.push_back({"huge.psd", psdHuge});
    Bytes psdSection = psd;
    Put32BEAt(psdSection, 26, 0x7FFFFFFF); // the colour data claims 2 GB
    cases.push_back({"section.psd", psdSection});
    const Bytes png = PngFile(p, kPngRgba);
    cases.push_back({"cut.png", cut(png, png.size() - 30)});
    Bytes pngCrc = png;
    pngCrc[40] ^= 0x55;
    cases.push_back({"crc.png", pngCrc});
    const Bytes jpg = JpegFile(p, 90);
    cases.push_back({"cut.jpg", cut(jpg, jpg.size() - 50)});
    Bytes jpgHuge = jpg;
    // The frame header: FF C0, length, precision, then height and width.
    for (size_t i = 2; i + 9 < jpgHuge.size(); ++i)
        if (jpgHuge[i] == 0xFF && jpgHuge[i + 1] == 0xC0) {
            jpgHuge[i + 5] = jpgHuge[i + 6] = jpgHuge[i + 7] = jpgHuge[i + 8] = 0xFF;
            break;
        }
    cases.push_back({"huge.jpg", jpgHuge});
    const Bytes tif = TiffFile(p, kTiffRgb);
    cases.push_back({"cut.tif", cut(tif, tif.size() / 3)});
    cases.push_back({"empty.png", Bytes()});
    cases.push_back({"noise.dat", Bytes(300, 0x3C)});

    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Write(c.name, c.file);
        SinkClear();
        int calls = 0;
        EXPECT_EQ(LoadBare(c.name, &calls), KXE_IMAGEFILE);
        EXPECT_LE(calls, std::string(c.name).rfind("cut", 0) == 0 ? 1 : 0);
        const std::vector<std::wstring> errors = Lines8(2);
        ASSERT_EQ(errors.size(), 1u);
        EXPECT_EQ(errors[0], L"KXCONV: Unable to open file " + WPath(c.name) + L"\n\r");
    }
    // A missing file, and a ".BSI" whose record or pixels are not all there.
    int calls = 0;
    SinkClear();
    EXPECT_EQ(LoadBare("missing.jpg", &calls), KXE_IMAGEFILE);
    ASSERT_EQ(Lines8(2).size(), 1u);
    EXPECT_EQ(Lines8(2)[0], L"KXCONV: Unable to open file " + WPath("missing.jpg") + L"\n\r");
    KXBMINFOHEADERYUV r = MakeRgb(100, 100, 32);
    Bytes bsi(reinterpret_cast<uint8_t*>(&r), reinterpret_cast<uint8_t*>(&r) + 144);
    bsi.resize(144 + 1000);
    Write("short.bsi", bsi);
    Bytes bigRecord = bsi;
    Put32At(bigRecord, 0, 0xFFFFFF00u);
    Write("record.bsi", bigRecord);
    for (const char* name : {"short.bsi", "record.bsi"}) {
        SinkClear();
        EXPECT_EQ(LoadBare(name, &calls), KXE_IMAGEFILE);
        EXPECT_EQ(calls, 0);
        EXPECT_EQ(SinkText(8), L"KXCONV: Unable to read file " + WPath(name) + L"\n\r");
    }
}

TEST_F(HostileFiles, ExifWithBadOffsetsIsIgnored) {
    using kelp::imgfile::ExifInfo;
    using kelp::imgfile::ParseExif;
    // II*\0, the first directory at 8: one entry (orientation 6), then the next at 26,
    // which holds a thumbnail offset and length.
    Bytes t = {'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0x12, 1, 3, 0, 1, 0, 0,    0,    6,    0,
               0,   0,   26, 0, 0, 0, 2, 0, 1, 2, 4,    0, 1, 0, 0, 0, 56,   0,    0,    0,
               2,   2,   4,  0, 1, 0, 0, 0, 4, 0, 0,    0, 0, 0, 0, 0, 0xFF, 0xD8, 0xFF, 0xD9};
    ExifInfo info;
    ASSERT_TRUE(ParseExif(t.data(), t.size(), &info));
    EXPECT_EQ(info.orientation, 6u);
    EXPECT_TRUE(info.hasThumbnail);
    EXPECT_EQ(info.thumbnailOffset, 56u);
    struct Damage {
        size_t at;
        uint8_t value;
        bool thumbnail;
        uint32_t orientation;
    } damages[] = {
        {48, 0x40, false, 6}, // thumbnail length past the end
        {36, 0xF0, false, 6}, // thumbnail offset past the end
        {22, 0xFE, false, 6}, // second directory past the end
        {18, 9, true, 1},     // orientation out of range
        {4, 0x70, false, 1},  // first directory past the end
        {9, 0x7F, false, 1},  // an entry count larger than the data
    };
    for (const Damage& d : damages) {
        Bytes b = t;
        b[d.at] = d.value;
        ASSERT_TRUE(ParseExif(b.data(), b.size(), &info)) << d.at;
        EXPECT_EQ(info.hasThumbnail, d.thumbnail) << d.at;
        EXPECT_EQ(info.orientation, d.orientation) << d.at;
    }
    for (size_t n = 0; n < t.size(); ++n)
        ParseExif(t.data(), n, &info); // every truncation
}

TEST_F(HostileFiles, RandomDamageNeverCrashes) {
    const Img p = Pattern(19, 13, true);
    const Img s = Pattern(6, 4, false);
    const Bytes thumb = JpegFile(s, 80);
    const std::vector<std::pair<const char*, Bytes>> samples = {
        {"a.bmp", BmpFile(p, kBmp32)},
        {"b.bmp", BmpFile(p, kBmpRle4)},
        {"c.bmp", BmpFile(p, kBmpRle8)},
        {"d.tga", TgaFile(p, kTga24Rle)},
        {"e.tga", TgaFile(p, kTga32, &s)},
        {"f.tga", TgaFile(p, kTgaMapped)},
        {"g.pcx", PcxFile(p, kPcx24)},
        {"h.pcx", PcxFile(p, kPcx4Planes)},
        {"i.psd", PsdFile(p, kPsdRgbRleAlpha, &thumb)},
        {"j.psd", PsdFile(p, kPsdIndexed)},
        {"k.jpg", JpegFile(p, 80, 6, &thumb)},
        {"l.png", PngFile(p, kPngPalette4)},
        {"m.tif", TiffFile(p, kTiffRgba, &s)},
        {"n.wmf", WmfFile(300, 200, 1440)},
    };
    std::mt19937 rng(12345);
    int loaded = 0, failed = 0;
    for (const auto& sample : samples) {
        for (int round = 0; round < 60; ++round) {
            Bytes b = sample.second;
            const int edits = 1 + int(rng() % 4);
            for (int e = 0; e < edits; ++e) {
                const size_t at = rng() % b.size();
                switch (rng() % 4) {
                case 0:
                    b[at] = uint8_t(rng());
                    break;
                case 1:
                    b[at] ^= uint8_t(1u << (rng() % 8));
                    break;
                case 2:
                    b[at] = (rng() % 2) ? 0xFF : 0x00;
                    break;
                default:
                    b.resize(std::max<size_t>(1, at));
                    break;
                }
            }
            Write(sample.first, b);
            int calls = 0;
            (KX_SUCCEEDED(LoadBare(sample.first, &calls)) ? loaded : failed)++;
        }
    }
    // Both outcomes occur; what matters is that every load ended without a fault.
    EXPECT_GT(loaded, 0);
    EXPECT_GT(failed, 0);
}

} // namespace
} // namespace kelptest
