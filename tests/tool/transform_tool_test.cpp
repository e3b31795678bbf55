// kelp transform run as a person runs it: pictures made and read back with GraphicsMagick,
// the command's answers to bad arguments, and what the effect must do to whole pictures.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tool_run.h"

namespace {

// A picture read back from a file: RGBA, 4 bytes a pixel, rows top-down.
struct Rgba {
    int width = 0, height = 0;
    std::vector<uint8_t> px;
    const uint8_t* At(int x, int y) const { return &px[(size_t(y) * size_t(width) + x) * 4]; }
};

class TransformTool : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/kelp-transform-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        m_dir = tmpl;
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }

    static bool HaveGm() { return std::system("gm version >/dev/null 2>&1") == 0; }

    kelptest::ToolRun Run(const std::string& args) {
        return kelptest::RunTool(m_dir, "transform " + args);
    }
    std::string Path(const std::string& name) const { return m_dir + "/" + name; }

    // gm convert ARGS NAME in the test's folder.
    void Make(const std::string& name, const std::string& args) {
        const std::string cmd = "cd '" + m_dir + "' && gm convert " + args + " '" + name + "'";
        ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
    }
    // A flat picture of one colour ("#RRGGBB" or "#RRGGBBAA").
    void MakeFlat(const std::string& name, int w, int h, const std::string& colour) {
        Make(name, "-size " + std::to_string(w) + "x" + std::to_string(h) + " 'xc:" + colour + "'");
    }
    // A picture with detail in every pixel, opaque: hashed bytes, the same in every run.
    void MakeDetailed(const std::string& name, int w, int h) {
        std::string bytes;
        uint32_t state = 12345u + uint32_t(w) * 31u + uint32_t(h);
        for (int i = 0; i < w * h; ++i) {
            for (int c = 0; c < 3; ++c) {
                state = state * 1664525u + 1013904223u;
                bytes += char(state >> 24);
            }
            bytes += char(255);
        }
        const std::string raw = Path(name + ".in.rgba");
        std::FILE* f = std::fopen(raw.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
        Make(name, "-size " + std::to_string(w) + "x" + std::to_string(h) +
                       " -depth 8 'rgba:" + raw + "'");
    }

    Rgba Read(const std::string& name) {
        Rgba r;
        const std::string raw = Path(name + ".rgba");
        const std::string size = Path(name + ".size");
        const std::string cmd = "cd '" + m_dir + "' && gm identify -format '%w %h' '" + name +
                                "' >'" + size + "' && gm convert '" + name +
                                "' -depth 8 'rgba:" + raw + "'";
        if (std::system(cmd.c_str()) != 0) return r;
        if (std::sscanf(kelptest::ReadText(size).c_str(), "%d %d", &r.width, &r.height) != 2)
            return r;
        const std::string bytes = kelptest::ReadText(raw);
        if (bytes.size() != size_t(r.width) * size_t(r.height) * 4) return Rgba();
        r.px.assign(bytes.begin(), bytes.end());
        return r;
    }

    std::string m_dir;
};

#define NEED_GM()                                                                                  \
    if (!HaveGm()) GTEST_SKIP() << "gm is not installed"

// ---------------------------------------------------------------- the command line

TEST_F(TransformTool, BadArgumentsGiveOneLineAndExitTwo) {
    struct Case {
        const char* args;
        const char* line;
    } cases[] = {
        {"a.png", "kelp transform: OUT is required"},
        {"a.png b.png --scale 0", "kelp transform: --scale: 0 not in 0.001..1000"},
        {"a.png b.png --scale 2,-1", "kelp transform: --scale: 2,-1 not in 0.001..1000"},
        {"a.png b.png --scale 1,2,3", "kelp transform: --scale: 1,2,3 is not a number or a pair "
                                      "X,Y of numbers in 0.001..1000"},
        {"a.png b.png --scale inf", "kelp transform: --scale: inf is not a number or a pair X,Y "
                                    "of numbers in 0.001..1000"},
        {"a.png b.png --offset 0.5", "kelp transform: --offset: 0.5 is not a pair X,Y of numbers "
                                     "in -100..100"},
        {"a.png b.png --offset 0,200", "kelp transform: --offset: 0,200 not in -100..100"},
        {"a.png b.png --transparency 101", "kelp transform: --transparency: 101 not in 0..100"},
        {"a.png b.png --transparency 3,4", "kelp transform: --transparency: 3,4 is not a number "
                                           "in 0..100"},
        {"a.png b.png --softness -1", "kelp transform: --softness: -1 not in 0..100"},
        {"a.png b.png --mode bicubic", "kelp transform: --mode: bicubic is not one of nearest, "
                                       "filter, soft"},
        {"a.png b.png --field -1", "kelp transform: --field: -1 is not one of 0, 1"},
        {"a.png b.png --yuv 2020", "kelp transform: --yuv: 2020 is not one of 601, 709"},
        {"a.png b.png --size 20000x10", "kelp transform: --size: 20000x10 is not a size WxH with "
                                        "sides 1..16384"},
        {"a.png b.png --background", "kelp transform: --background needs a value"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const kelptest::ToolRun r = Run(c.args);
        EXPECT_EQ(r.code, 2);
        EXPECT_EQ(r.err, std::string(c.line) + "\n");
        EXPECT_EQ(r.out, "");
    }
}

TEST_F(TransformTool, FailuresSayWhyAndKeepAnExistingOut) {
    NEED_GM();
    MakeFlat("in.png", 8, 6, "#102030");
    MakeFlat("out.png", 3, 3, "#FFFFFF");
    {
        std::FILE* f = std::fopen(Path("text.png").c_str(), "w");
        ASSERT_NE(f, nullptr);
        std::fputs("not a picture\n", f);
        std::fclose(f);
    }
    const std::string before = kelptest::ReadText(Path("out.png"));
    struct Case {
        const char* args;
        const char* line;
    } cases[] = {
        {"missing.png out.png", "kelp transform: cannot open missing.png: No such file or "
                                "directory"},
        {"text.png out.png", "kelp transform: text.png: not an image file the library reads"},
        {"in.png out.png --background gone.png", "kelp transform: cannot open gone.png: No such "
                                                 "file or directory"},
        {"in.png out.xyz", "kelp transform: cannot write out.xyz: the library writes .bmp, .tif, "
                           ".tga, .jpg, .bsi and .png"},
        {"in.png nodir/out.png", "kelp transform: nodir/out.png: cannot be written"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const kelptest::ToolRun r = Run(c.args);
        EXPECT_EQ(r.code, 1);
        EXPECT_EQ(r.err, std::string(c.line) + "\n");
        EXPECT_EQ(r.out, "");
    }
    EXPECT_EQ(kelptest::ReadText(Path("out.png")), before);
    // No temporary file is left behind.
    for (const auto& e : std::filesystem::directory_iterator(m_dir))
        EXPECT_NE(e.path().filename().string().rfind(".kelp-", 0), 0u) << e.path();
}

// ---------------------------------------------------------------- what the pictures show

// Scale 1 without an offset copies the picture byte for byte in every mode.
TEST_F(TransformTool, UnchangedGeometryCopiesExactly) {
    NEED_GM();
    MakeDetailed("in.png", 37, 23);
    const Rgba in = Read("in.png");
    ASSERT_EQ(in.width, 37);
    for (const char* mode : {"nearest", "filter", "soft"}) {
        SCOPED_TRACE(mode);
        const kelptest::ToolRun r = Run(std::string("in.png out.png --mode ") + mode);
        ASSERT_EQ(r.code, 0) << r.err;
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.out, std::string("in.png: 37 x 23 -> out.png: 37 x 23, ") + mode + "\n");
        const Rgba out = Read("out.png");
        EXPECT_EQ(out.width, 37);
        EXPECT_EQ(out.height, 23);
        EXPECT_TRUE(out.px == in.px);
    }
}

// Transparency 100 shows the background alone, whatever is done to the picture.
TEST_F(TransformTool, FullTransparencyShowsTheBackground) {
    NEED_GM();
    MakeDetailed("in.png", 31, 17);
    MakeDetailed("bg.png", 48, 36);
    const Rgba bg = Read("bg.png");
    for (const char* extra : {"", " --scale 0.6 --offset 0.1,-0.2", " --scale 2.5 --mode soft",
                              " --scale 0.4,1.7 --mode nearest", " --softness 30,5"}) {
        SCOPED_TRACE(extra);
        const kelptest::ToolRun r =
            Run(std::string("in.png out.png --background bg.png --transparency 100") + extra);
        ASSERT_EQ(r.code, 0) << r.err;
        const Rgba out = Read("out.png");
        EXPECT_EQ(out.width, 48); // the background's size
        EXPECT_EQ(out.height, 36);
        EXPECT_TRUE(out.px == bg.px);
    }
}

// A flat picture stays flat inside after any scale, and what it doesn't cover is
// transparent when there is no background; OUT has the size asked for.
TEST_F(TransformTool, FlatPictureStaysFlatAndMarginsAreTransparent) {
    NEED_GM();
    MakeFlat("in.png", 40, 30, "#3366CC");
    struct Case {
        const char* args;
        int width, height;
        double sx, sy;
        double ox = 0, oy = 0;
    } cases[] = {
        {"--scale 0.5 --size 60x50", 60, 50, 0.5, 0.5},
        {"--scale 0.3,0.8 --mode soft --size 61x47", 61, 47, 0.3, 0.8},
        {"--scale 1.5,0.7 --mode nearest --size 90x40", 90, 40, 1.5, 0.7},
        {"--scale 0.2 --size 64x64", 64, 64, 0.2, 0.2},
        {"--scale 1.37 --offset 0.01,0.02 --size 120x80", 120, 80, 1.37, 1.37, 0.01, 0.02},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const kelptest::ToolRun r = Run(std::string("in.png out.png ") + c.args);
        ASSERT_EQ(r.code, 0) << r.err;
        const Rgba out = Read("out.png");
        ASSERT_EQ(out.width, c.width);
        ASSERT_EQ(out.height, c.height);
        // Inside: two pixels in from the scaled picture's edges around the centre.
        const double cx = c.width * (0.5 + c.ox), cy = c.height * (0.5 - c.oy);
        const double hw = 40 * c.sx / 2 - 2, hh = 30 * c.sy / 2 - 2;
        int inside = 0;
        for (int y = 0; y < c.height; ++y)
            for (int x = 0; x < c.width; ++x) {
                const double dx = std::fabs(x + 0.5 - cx), dy = std::fabs(y + 0.5 - cy);
                const uint8_t* p = out.At(x, y);
                if (dx < hw && dy < hh) {
                    ++inside;
                    ASSERT_EQ(p[0], 0x33) << x << "," << y;
                    ASSERT_EQ(p[1], 0x66) << x << "," << y;
                    ASSERT_EQ(p[2], 0xCC) << x << "," << y;
                    ASSERT_EQ(p[3], 255) << x << "," << y;
                } else if (dx > hw + 4 || dy > hh + 4) {
                    ASSERT_EQ(p[3], 0) << x << "," << y;
                }
            }
        EXPECT_GT(inside, 0);
    }
}

// Positive offsets move the picture right and up, by fractions of the target's size.
TEST_F(TransformTool, OffsetMovesRightAndUp) {
    NEED_GM();
    MakeFlat("in.png", 10, 8, "#FF0000");
    struct Case {
        const char* offset;
        double dx, dy; // expected move of the centre in pixels, y down the screen
    } cases[] = {
        {"0,0", 0, 0},          {"0.25,0", 25, 0},       {"0,0.25", 0, -20},
        {"-0.1,-0.3", -10, 24}, {"0.33,0.125", 33, -10},
    };
    for (const char* mode : {"nearest", "filter"}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(mode) + " " + c.offset);
            const kelptest::ToolRun r = Run(std::string("in.png out.png --size 100x80 --mode ") +
                                            mode + " --offset " + c.offset);
            ASSERT_EQ(r.code, 0) << r.err;
            const Rgba out = Read("out.png");
            ASSERT_EQ(out.width, 100);
            double sx = 0, sy = 0, sum = 0;
            for (int y = 0; y < out.height; ++y)
                for (int x = 0; x < out.width; ++x) {
                    const double a = out.At(x, y)[3];
                    sx += a * (x + 0.5);
                    sy += a * (y + 0.5);
                    sum += a;
                }
            ASSERT_NEAR(sum, 80 * 255.0, 255.0); // the whole picture, once
            EXPECT_NEAR(sx / sum, 50 + c.dx, 0.5);
            EXPECT_NEAR(sy / sum, 40 + c.dy, 0.5);
        }
    }
}

// Nearest mode at twice the size repeats each pixel in a square of four.
TEST_F(TransformTool, NearestDoublingRepeatsPixels) {
    NEED_GM();
    MakeDetailed("in.png", 16, 12);
    const Rgba in = Read("in.png");
    const kelptest::ToolRun r = Run("in.png out.png --mode nearest --scale 2 --size 32x24");
    ASSERT_EQ(r.code, 0) << r.err;
    const Rgba out = Read("out.png");
    ASSERT_EQ(out.width, 32);
    ASSERT_EQ(out.height, 24);
    for (int y = 0; y < 24; ++y)
        for (int x = 0; x < 32; ++x)
            for (int c = 0; c < 4; ++c)
                ASSERT_EQ(out.At(x, y)[c], in.At(x / 2, y / 2)[c]) << x << "," << y;
}

// One field is rendered: the rows of the other field show the background alone, and the
// two fields take the two parities of rows.
TEST_F(TransformTool, FieldRendersEverySecondRow) {
    NEED_GM();
    MakeFlat("in.png", 20, 20, "#00FF00");
    MakeFlat("bg.png", 40, 30, "#0000FF");
    int parity[2] = {-1, -1};
    for (int field = 0; field < 2; ++field) {
        SCOPED_TRACE(field);
        const kelptest::ToolRun r =
            Run("in.png out.png --background bg.png --field " + std::to_string(field));
        ASSERT_EQ(r.code, 0) << r.err;
        const Rgba out = Read("out.png");
        ASSERT_EQ(out.height, 30);
        // Each row of the picture's middle column: green where rendered, blue where not.
        std::string rows;
        for (int y = 0; y < 30; ++y) {
            const uint8_t* p = out.At(20, y);
            rows += p[1] == 255 && p[2] == 0 ? 'g' : (p[2] == 255 && p[1] == 0 ? 'b' : '?');
        }
        const std::string rendered = rows.substr(5, 20); // rows the picture covers
        const char even = rendered[0], odd = rendered[1];
        ASSERT_NE(even, odd) << rows;
        for (int i = 0; i < 20; ++i)
            ASSERT_EQ(rendered[size_t(i)], i % 2 ? odd : even) << rows;
        parity[field] = (even == 'g' ? 5 : 6) % 2; // screen row parity of the field
        // Rows above and below the picture are background in both fields.
        EXPECT_EQ(rows.substr(0, 5), "bbbbb");
        EXPECT_EQ(rows.substr(25), "bbbbb");
    }
    EXPECT_NE(parity[0], parity[1]);
}

// A run in YUV 4:4:4 goes there and back through the conversion manager: flat colours
// come back within the rounding of the two conversions, in both colour spaces, and what
// the picture doesn't cover stays transparent.
TEST_F(TransformTool, YuvRunKeepsColoursInBothSpaces) {
    NEED_GM();
    struct Case {
        const char* colour;
        int r, g, b;
    } cases[] = {
        {"#808080", 0x80, 0x80, 0x80},
        {"#C03020", 0xC0, 0x30, 0x20},
        {"#2080E0", 0x20, 0x80, 0xE0},
    };
    for (const char* space : {"601", "709"}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(space) + " " + c.colour);
            MakeFlat("in.png", 24, 20, c.colour);
            const kelptest::ToolRun r =
                Run(std::string("in.png out.png --scale 0.5 --yuv ") + space);
            ASSERT_EQ(r.code, 0) << r.err;
            const Rgba out = Read("out.png");
            ASSERT_EQ(out.width, 24);
            const uint8_t* centre = out.At(12, 10);
            EXPECT_NEAR(centre[0], c.r, 2);
            EXPECT_NEAR(centre[1], c.g, 2);
            EXPECT_NEAR(centre[2], c.b, 2);
            EXPECT_EQ(centre[3], 255);
            EXPECT_EQ(out.At(0, 0)[3], 0);
            EXPECT_EQ(out.At(23, 19)[3], 0);
        }
    }
}

} // namespace
