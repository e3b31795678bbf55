// Files written by another program (GraphicsMagick, see tests/data/make-corpus.sh), read
// by the library and compared with that program's own decoding of them.
#include "imagefile_test.h"

#include <cstdlib>

namespace kelptest {
namespace {

std::string CorpusPath(const std::string& name) {
    return std::string(KELP_TEST_DATA_DIR) + "/imagefile/" + name;
}

// A binary PPM as a picture; an empty one if the file is not such a PPM. Samples of
// 16 bits are taken to the nearest 8-bit value, v * 255 / 65535 rounded, as the
// library's readers reduce them.
Img ReadPpm(const std::string& path) {
    const Bytes b = ReadBytes(path);
    Img img;
    size_t pos = 0;
    auto number = [&]() {
        while (pos < b.size() && std::isspace(b[pos]))
            ++pos;
        int v = 0;
        while (pos < b.size() && std::isdigit(b[pos]))
            v = v * 10 + (b[pos++] - '0');
        return v;
    };
    if (b.size() < 2 || b[0] != 'P' || b[1] != '6') return img;
    pos = 2;
    const int w = number(), h = number(), max = number();
    ++pos; // the one white-space byte before the samples
    const size_t bytes = max == 65535 ? 2 : 1;
    if ((max != 255 && max != 65535) || w <= 0 || h <= 0 ||
        b.size() - pos < size_t(w) * size_t(h) * 3 * bytes)
        return img;
    auto sample = [&]() {
        uint32_t v = b[pos++];
        if (bytes == 2) v = ((v << 8 | b[pos++]) + 128) / 257;
        return v;
    };
    img.w = w;
    img.h = h;
    for (size_t i = 0; i < size_t(w) * size_t(h); ++i) {
        const uint32_t r = sample(), g = sample(), bl = sample();
        img.px.push_back(0xFF000000u | (r << 16) | (g << 8) | bl);
    }
    return img;
}

// The largest difference of one colour channel between two pictures of one size.
int MaxDifference(const Img& a, const Img& b) {
    int most = 0;
    for (size_t i = 0; i < a.px.size(); ++i)
        for (int s = 0; s < 24; s += 8)
            most = std::max(most, std::abs(int((a.px[i] >> s) & 255) - int((b.px[i] >> s) & 255)));
    return most;
}

class ForeignFiles : public ImageFileTest {};

TEST_F(ForeignFiles, ReadAsTheWritingProgramReadsThem) {
    struct Case {
        const char* name;
        const char* reference;
        uint32_t fileBits; // as GetImageFileDetails reports it
        int tolerance;     // largest channel difference allowed
    } cases[] = {
        {"bmp1.bmp", "bmp1.ref.ppm", 1, 0},
        {"bmp4.bmp", "bmp4.ref.ppm", 4, 0},
        {"bmp8.bmp", "bmp8.ref.ppm", 8, 0},
        {"bmp8rle.bmp", "bmp8rle.ref.ppm", 8, 0},
        {"bmp24.bmp", "bmp24.ref.ppm", 24, 0},
        {"tga24.tga", "tga24.ref.ppm", 24, 0},
        {"tgamapped.tga", "tgamapped.ref.ppm", 8, 0},
        {"pcx24.pcx", "pcx24.ref.ppm", 24, 0},
        {"pcx8.pcx", "pcx8.ref.ppm", 8, 0},
        {"tiff16.tif", "tiff16.ref.ppm", 24, 0},
        {"tiff16lzw.tif", "tiff16lzw.ref.ppm", 24, 0},
        {"interlaced.png", "interlaced.ref.ppm", 24, 0},
        // Both programs decode JPEG with libjpeg-turbo's integer transform and its
        // colour conversion, so that the pixels agree exactly.
        {"progressive.jpg", "progressive.ref.ppm", 24, 0},
        // The inks to RGB: gm computes with 16 bits and cuts, the library with 8 and
        // rounds.
        {"cmyk.jpg", "cmyk.ref.ppm", 24, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::wstring path = kelp::os::FromUtf8(CorpusPath(c.name));
        const Img want = ReadPpm(CorpusPath(c.reference));
        ASSERT_GT(want.w, 0);
        kelp::KXIMAGEFILEDETAILS details{};
        details.dwSize = sizeof details;
        ASSERT_EQ(kelp::GetImageFileDetails(path.c_str(), &details), KX_OK);
        EXPECT_EQ(details.dwBitCount, c.fileBits);
        for (uint32_t bits : {24u, 32u}) {
            KXBMINFOHEADER* info = nullptr;
            ASSERT_EQ(m_io->GetImageInfo(path.c_str(), &info, &m_alloc), KX_OK);
            KXBMINFOHEADERYUV d{};
            std::memcpy(&d, info, KXBMI_SIZE);
            m_alloc.Free(info);
            kelp::ImageLoadOptions o = {24, bits, 0, 0, 0, 0};
            void* px = nullptr;
            ASSERT_EQ(m_io->LoadImage(path.c_str(), &d.bmi, &px, &m_alloc, &o), KX_OK);
            const Img got = Opaque(FromDib(&d.bmi, px));
            m_alloc.Free(px);
            ASSERT_EQ(got.w, want.w);
            ASSERT_EQ(got.h, want.h);
            EXPECT_LE(MaxDifference(got, want), c.tolerance) << bits << " bits";
        }
    }
}

} // namespace
} // namespace kelptest
