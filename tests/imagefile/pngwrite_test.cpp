// PNG files written by SavePNGImage, decoded by libpng itself and by another program
// (GraphicsMagick's "gm", where installed): the same pixels come back.
#include "imagefile_test.h"

#include <png.h>

#include <cstdio>
#include <cstdlib>

namespace kelptest {
namespace {

class PngWriting : public ImageFileTest {
  protected:
    // The file as 8-bit RGBA through libpng's simplified interface, top row first.
    bool DecodeWithLibpng(const std::string& name, Img* img, png_uint_32* format) {
        png_image image;
        std::memset(&image, 0, sizeof image);
        image.version = PNG_IMAGE_VERSION;
        if (!png_image_begin_read_from_file(&image, Path(name).c_str())) return false;
        *format = image.format;
        image.format = PNG_FORMAT_BGRA;
        std::vector<uint32_t> px(size_t(image.width) * image.height);
        if (!png_image_finish_read(&image, nullptr, px.data(), 0, nullptr)) return false;
        img->w = int32_t(image.width);
        img->h = int32_t(image.height);
        img->px = px; // BGRA bytes are 0xAARRGGBB little-endian words
        return true;
    }

    // The file as 8-bit RGBA decoded by gm; false if gm is not there or fails.
    bool DecodeWithGm(const std::string& name, Img* img) {
        const std::string raw = Path(name + ".rgba");
        const std::string cmd =
            "gm convert '" + Path(name) + "' -depth 8 'rgba:" + raw + "' 2>/dev/null";
        if (std::system(cmd.c_str()) != 0) return false;
        const Bytes b = ReadBytes(raw);
        img->px.clear();
        for (size_t i = 0; i + 3 < b.size(); i += 4)
            img->px.push_back(uint32_t(b[i + 2]) | (uint32_t(b[i + 1]) << 8) |
                              (uint32_t(b[i]) << 16) | (uint32_t(b[i + 3]) << 24));
        return true;
    }

    static bool HaveGm() { return std::system("gm version >/dev/null 2>&1") == 0; }
};

TEST_F(PngWriting, OtherDecodersReadBackThePixels) {
    const bool gm = HaveGm();
    if (!gm) std::fprintf(stderr, "gm is not installed: checked with libpng alone\n");
    struct Case {
        const char* name;
        uint16_t bits;
        uint32_t alpha;
        bool topDown;
        png_uint_32 format; // what the file holds
    } cases[] = {
        {"rgb.png", 24, 0, false, PNG_FORMAT_RGB},
        {"topdown.png", 24, 0, true, PNG_FORMAT_RGB},
        {"rgba.png", 32, KXDIB_ALPHA_VALID, false, PNG_FORMAT_RGBA},
        {"opaque.png", 32, KXDIB_ALPHA_OPAQUE, false, PNG_FORMAT_RGB},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Img p = Pattern(37, 13, c.bits == 32 && c.alpha == KXDIB_ALPHA_VALID);
        Dib d = ToDib(p, c.bits, c.alpha);
        if (c.topDown) {
            // The same picture stored top row first.
            const size_t stride = d.pixels.size() / 13;
            std::vector<uint8_t> flipped(d.pixels.size());
            for (size_t y = 0; y < 13; ++y)
                std::memcpy(&flipped[y * stride], &d.pixels[(12 - y) * stride], stride);
            d.pixels = flipped;
            d.desc.bmi.biHeight = -13;
        }
        ASSERT_EQ(kelp::SavePNGImage(WPath(c.name).c_str(), &d.desc.bmi, d.pixels.data()), KX_OK);
        const Img want = c.format == PNG_FORMAT_RGBA ? p : Opaque(p);
        Img got;
        png_uint_32 format = 0;
        ASSERT_TRUE(DecodeWithLibpng(c.name, &got, &format));
        EXPECT_EQ(format, c.format);
        EXPECT_EQ(got.px, want.px);
        if (gm) {
            ASSERT_TRUE(DecodeWithGm(c.name, &got));
            EXPECT_EQ(got.px, want.px);
        }
    }
}

TEST_F(PngWriting, PremultipliedColoursAreWrittenStraight) {
    // Straight colours premultiplied by three alphas; the file holds them straight again,
    // to within what the rounding of the premultiplied bytes lost.
    const Img p = Pattern(20, 6, false);
    const uint32_t alphas[] = {255, 128, 9};
    Img straight = p;
    for (int32_t y = 0; y < p.h; ++y)
        for (int32_t x = 0; x < p.w; ++x)
            straight.At(x, y) = (p.At(x, y) & 0xFFFFFF) | (alphas[y % 3] << 24);
    Img pre = straight;
    for (uint32_t& v : pre.px) {
        const uint32_t a = v >> 24;
        uint32_t out = a << 24;
        for (int s = 0; s < 24; s += 8)
            out |= ((((v >> s) & 255) * a + 127) / 255) << s;
        v = out;
    }
    const Dib d = ToDib(pre, 32, KXDIB_ALPHA_PREMULTIPLIED);
    ASSERT_EQ(kelp::SavePNGImage(WPath("pre.png").c_str(), &d.desc.bmi, d.pixels.data()), KX_OK);
    Img got;
    png_uint_32 format = 0;
    ASSERT_TRUE(DecodeWithLibpng("pre.png", &got, &format));
    ASSERT_EQ(got.px.size(), straight.px.size());
    for (size_t i = 0; i < got.px.size(); ++i) {
        const uint32_t a = straight.px[i] >> 24;
        ASSERT_EQ(got.px[i] >> 24, a);
        // One step of the premultiplied byte is 255 / a steps of the straight one.
        const int tolerance = int(255 / a / 2 + 1);
        for (int s = 0; s < 24; s += 8)
            ASSERT_NEAR(int((got.px[i] >> s) & 255), int((straight.px[i] >> s) & 255), tolerance)
                << "pixel " << i;
    }
}

TEST_F(PngWriting, RefusesWhatItCannotWrite) {
    const Dib d24 = ToDib(Pattern(8, 4, false), 24);
    Dib eight = d24;
    eight.desc.bmi.biBitCount = 8;
    Dib liar = d24;
    liar.desc.bmi.biWidth = 100000; // more rows than the pixels hold
    Dib yuv = d24;
    yuv.desc = MakeYuv(8, 4, 24);
    struct Case {
        const char* name;
        const Dib* dib;
        std::string path;
    } cases[] = {{"8 bits", &eight, Path("a.png")},
                 {"too few pixels", &liar, Path("b.png")},
                 {"YUV", &yuv, Path("c.png")},
                 {"no directory", &d24, Path("none/d.png")}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SinkClear();
        const std::wstring path = kelp::os::FromUtf8(c.path);
        EXPECT_EQ(kelp::SavePNGImage(path.c_str(), &c.dib->desc.bmi, c.dib->pixels.data()),
                  KXE_IMAGEFILE);
        EXPECT_FALSE(std::filesystem::exists(c.path));
        EXPECT_EQ(SinkText(8), L"KXCONV: Unable to write file " + path + L"\n\r");
    }
    EXPECT_EQ(kelp::SavePNGImage(nullptr, &d24.desc.bmi, d24.pixels.data()), KXE_IMAGEFILE);
    EXPECT_EQ(kelp::SavePNGImage(WPath("e.png").c_str(), nullptr, d24.pixels.data()),
              KXE_IMAGEFILE);
    // SaveImage keeps its own set of extensions.
    EXPECT_EQ(Save("f.png", d24), KXE_IMAGEFILE);
}

} // namespace
} // namespace kelptest
