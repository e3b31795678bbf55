// kelp info and kelp convert, run as a person would, on the project's sample files.
#include "imagefile_test.h"

#include <sys/wait.h>

#include <fstream>
#include <iterator>

namespace kelptest {
namespace {

class ImageCli : public ImageFileTest {
protected:
    void SetUp() override {
        ImageFileTest::SetUp();
        ASSERT_EQ(
            std::system((std::string(KELP_SAMPLES_PATH) + " " + m_dir + " >/dev/null").c_str()), 0);
    }
    // Runs `kelp ARGS` in the directory; the exit code, standard output and error.
    int Run(const std::string& args, std::string* out = nullptr, std::string* err = nullptr) {
        const std::string o = Path("stdout.txt"), e = Path("stderr.txt");
        const std::string cmd =
            "cd " + m_dir + " && " + KELP_TOOL_PATH + " " + args + " >" + o + " 2>" + e;
        const int status = std::system(cmd.c_str());
        auto slurp = [](const std::string& p) {
            std::ifstream in(p);
            return std::string((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
        };
        if (out) *out = slurp(o);
        if (err) *err = slurp(e);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

TEST_F(ImageCli, InfoTellsSizeDepthStampAndOrientation) {
    std::string out;
    ASSERT_EQ(Run("info camera-turned.jpg", &out), 0);
    EXPECT_NE(out.find("format:       JPEG\n"), std::string::npos) << out;
    EXPECT_NE(out.find("size:         160 x 120\n"), std::string::npos);
    EXPECT_NE(out.find("loads as:     120 x 160\n"), std::string::npos);
    EXPECT_NE(out.find("orientation:  6 "), std::string::npos);
    EXPECT_NE(out.find("stamp:        32 x 24\n"), std::string::npos);
    ASSERT_EQ(Run("info mono.bmp", &out), 0);
    EXPECT_NE(out.find("bits:         24 (the file holds 1)\n"), std::string::npos) << out;
    EXPECT_NE(out.find("resolution:   72 dpi\n"), std::string::npos);
    EXPECT_NE(out.find("stamp:        none\n"), std::string::npos);
    std::string err;
    EXPECT_EQ(Run("info nothing.png", &out, &err), 1);
    EXPECT_EQ(err, "kelp info: nothing.png: not an image file the library reads\n");
    EXPECT_EQ(Run("info", &out, &err), 2);
}

TEST_F(ImageCli, ConvertWritesWhatWasAskedFor) {
    struct Case {
        const char* args;
        const char* out;
        int32_t w, h;
        uint16_t bits;
        uint32_t alpha;
    } cases[] = {
        {"convert photo.jpg out.bmp --depth 24", "out.bmp", 160, 120, 24, KXDIB_ALPHA_OPAQUE},
        {"convert alpha.png out.tga --alpha premultiplied", "out.tga", 96, 64, 32,
         KXDIB_ALPHA_PREMULTIPLIED},
        {"convert alpha.png keep.tga", "keep.tga", 96, 64, 32, KXDIB_ALPHA_VALID},
        {"convert rgb.png opaque.tga --alpha opaque", "opaque.tga", 160, 120, 32,
         KXDIB_ALPHA_OPAQUE},
        {"convert layers.psd small.tif --size 48x32", "small.tif", 48, 32, 24, KXDIB_ALPHA_OPAQUE},
#if KELP_HAVE_WMF
        {"convert drawing.wmf drawing.jpg --quality 80", "drawing.jpg", 192, 96, 24,
         KXDIB_ALPHA_OPAQUE},
#endif
        {"convert camera-turned.jpg upright.bsi", "upright.bsi", 120, 160, 24, KXDIB_ALPHA_OPAQUE},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        std::string out, err;
        ASSERT_EQ(Run(c.args, &out, &err), 0) << err;
        EXPECT_EQ(err, "");
        const Loaded l = Load(c.out, 0);
        ASSERT_EQ(l.result, KX_OK);
        EXPECT_EQ(l.img.w, c.w);
        EXPECT_EQ(l.img.h, c.h);
        EXPECT_EQ(l.desc.bmi.biBitCount, c.bits);
        if (std::string(c.out) != "upright.bsi") {
            EXPECT_EQ(l.desc.bmi.bmiAlpha, c.alpha);
        }
    }
    // Premultiplied: each colour byte is at most its alpha.
    const Loaded pm = Load("out.tga", 32);
    bool within = true;
    for (uint32_t p : pm.img.px)
        within &= (p & 0xFF) <= (p >> 24) && ((p >> 8) & 0xFF) <= (p >> 24) &&
                  ((p >> 16) & 0xFF) <= (p >> 24);
    EXPECT_TRUE(within);
}

TEST_F(ImageCli, ConvertFailuresAreOneLineAndKeepTheOldOutput) {
    WriteBytes(Path("old.tga"), {'k', 'e', 'e', 'p'});
    struct Case {
        const char* args;
        int code;
        const char* err;
    } cases[] = {
        {"convert damaged.png old.tga", 1,
         "kelp convert: damaged.png: cannot be read (damaged, or too large)\n"},
        {"convert nothing.png old.tga", 1,
         "kelp convert: nothing.png: not an image file the library reads\n"},
        {"convert rgb.png out.gif", 1,
         "kelp convert: cannot write out.gif: the library writes .bmp, .tif, .tga, .jpg, .bsi "
         "and .png\n"},
        {"convert rgb.png old.tga --alpha straight --depth 24", 1,
         "kelp convert: alpha needs 32 bits: leave out --depth 24\n"},
        {"convert rgb.png old.tga --depth 16", 2,
         "kelp convert: --depth: 16 is not one of 24, 32\n"},
        {"convert rgb.png old.tga --size 10", 2,
         "kelp convert: --size: 10 is not a size WxH with sides 1..1048576\n"},
        {"convert rgb.png", 2, "kelp convert: OUT is required\n"},
    };
    Bytes damaged = ReadBytes(Path("rgb.png"));
    damaged.resize(damaged.size() / 2);
    WriteBytes(Path("damaged.png"), damaged);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        std::string out, err;
        EXPECT_EQ(Run(c.args, &out, &err), c.code);
        EXPECT_EQ(err, c.err);
        EXPECT_EQ(ReadBytes(Path("old.tga")), Bytes({'k', 'e', 'e', 'p'}));
    }
    // No temporary file is left behind.
    for (const auto& e : std::filesystem::directory_iterator(m_dir))
        EXPECT_NE(e.path().filename().string().rfind(".kelp-convert-", 0), 0u);
}

// PNG out, read back by another program (GraphicsMagick) pixel for pixel; and alpha
// taken premultiplied and back to straight through the tool.
TEST_F(ImageCli, ConvertWritesPngAndUndoesPremultiplication) {
    if (std::system("command -v gm >/dev/null 2>&1") != 0) GTEST_SKIP() << "no gm";
    std::string out, err;
    ASSERT_EQ(Run("convert alpha.png out.png", &out, &err), 0) << err;
    EXPECT_NE(out.find("32 bits, straight alpha"), std::string::npos) << out;
    ASSERT_EQ(std::system(("gm convert " + Path("out.png") + " rgba:" + Path("out.rgba")).c_str()),
              0);
    const Loaded in = Load("alpha.png", 32);
    ASSERT_EQ(in.result, KX_OK);
    const Bytes rgba = ReadBytes(Path("out.rgba"));
    ASSERT_EQ(rgba.size(), in.img.px.size() * 4);
    size_t differ = 0;
    for (size_t i = 0; i < in.img.px.size(); ++i) {
        const uint32_t p = in.img.px[i];
        const uint8_t want[4] = {uint8_t(p >> 16), uint8_t(p >> 8), uint8_t(p), uint8_t(p >> 24)};
        differ += std::memcmp(want, &rgba[i * 4], 4) != 0;
    }
    EXPECT_EQ(differ, 0u);

    // Premultiplied, then straight again: labelled straight, alpha kept, each colour
    // within the step that premultiplying at that alpha loses (255 / alpha).
    ASSERT_EQ(Run("convert alpha.png pm.bsi --alpha premultiplied", &out, &err), 0) << err;
    ASSERT_EQ(Run("convert pm.bsi st.bsi --alpha straight", &out, &err), 0) << err;
    const Loaded st = Load("st.bsi", 32);
    ASSERT_EQ(st.result, KX_OK);
    EXPECT_EQ(st.desc.bmi.bmiAlpha, KXDIB_ALPHA_VALID);
    ASSERT_EQ(st.img.px.size(), in.img.px.size());
    size_t far = 0, opaqueSeen = 0;
    for (size_t i = 0; i < in.img.px.size(); ++i) {
        const uint32_t a = in.img.px[i], b = st.img.px[i];
        const int alpha = int(a >> 24);
        if (alpha == 0) continue;
        opaqueSeen += alpha == 255;
        far += (b >> 24) != uint32_t(alpha);
        for (int s = 0; s < 24; s += 8)
            far += std::abs(int((a >> s) & 0xFF) - int((b >> s) & 0xFF)) > 255 / alpha + 1;
    }
    EXPECT_EQ(far, 0u);
    EXPECT_GT(opaqueSeen, 0u);
}

} // namespace
} // namespace kelptest
