// kelp compose as a person runs it: the list of modes, a foreground centred and blended
// into a background by a mode, at an opacity, one field, in YUV, and its refusals.
#include <gtest/gtest.h>

#include <kelp/kelp.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tool_run.h"

namespace {

class ComposeTool : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/kelp-compose-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        m_dir = tmpl;
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }
    kelptest::ToolRun Run(const std::string& args) { return kelptest::RunTool(m_dir, args); }

    // An opaque picture of one colour (0xRRGGBB) as a 32-bit PNG.
    void Write(const std::string& name, int w, int h, uint32_t rgb) {
        KXBMINFOHEADER d = {};
        d.biSize = KXBMI_SIZE;
        d.biWidth = w;
        d.biHeight = -h;
        d.biPlanes = 1;
        d.biBitCount = 32;
        d.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
        std::vector<uint32_t> px(size_t(w) * h, 0xFF000000u | rgb);
        const std::wstring path = Wide(m_dir + "/" + name);
        ASSERT_EQ(kelp::SavePNGImage(path.c_str(), &d, px.data()), KX_OK);
    }
    // The pixels of a file, 0xAARRGGBB, top row first.
    std::vector<uint32_t> Read(const std::string& name, int* w, int* h) {
        kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
        kelp::CCppAllocator allocator;
        const std::wstring path = Wide(m_dir + "/" + name);
        KXBMINFOHEADER* info = nullptr;
        std::vector<uint32_t> out;
        if (KX_SUCCEEDED(io->GetImageInfo(path.c_str(), &info, &allocator))) {
            KXBMINFOHEADER d = *info;
            allocator.Free(info);
            kelp::ImageLoadOptions o = {sizeof o, 32, 0, 0, 0, 0};
            void* bits = nullptr;
            if (KX_SUCCEEDED(io->LoadImage(path.c_str(), &d, &bits, &allocator, &o))) {
                *w = d.biWidth;
                *h = d.biHeight < 0 ? -d.biHeight : d.biHeight;
                const uint32_t* p = static_cast<const uint32_t*>(bits);
                for (int y = 0; y < *h; ++y)
                    for (int x = 0; x < *w; ++x)
                        out.push_back(p[size_t(d.biHeight > 0 ? *h - 1 - y : y) * *w + x]);
                allocator.Free(bits);
            }
        }
        io->Release();
        return out;
    }
    static std::wstring Wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }

    std::string m_dir;
};

} // namespace

TEST_F(ComposeTool, ListNamesTheTwentyModes) {
    const kelptest::ToolRun r = Run("compose --list");
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 20);
    for (const char* name : {" 1  over", " 2  add", " 4  multiply", " 5  screen", " 6  overlay",
                             "11  difference", "20  silhouette luma"})
        EXPECT_NE(r.out.find(name), std::string::npos) << name << " in\n" << r.out;
}

TEST_F(ComposeTool, ForegroundIsCentredAndBlendedByTheMode) {
    Write("fg.png", 2, 2, 0xFF0000);
    Write("bg.png", 6, 4, 0x0000FF);
    struct Case {
        const char* options;
        uint32_t centre, edge; // at (2, 1) and (0, 0)
        uint32_t otherField;   // at (2, 2)
    } cases[] = {
        {"", 0xFFFF0000u, 0xFF0000FFu, 0xFFFF0000u},
        {"--mode 2", 0xFFFF00FFu, 0xFF0000FFu, 0xFFFF00FFu},
        {"--mode 4", 0xFF000000u, 0xFF0000FFu, 0xFF000000u},
        {"--opacity 0", 0xFF0000FFu, 0xFF0000FFu, 0xFF0000FFu},
        {"--mode 2 --field 0", 0xFFFF00FFu, 0xFF0000FFu, 0xFF0000FFu},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.options);
        const kelptest::ToolRun r = Run(std::string("compose fg.png bg.png out.png ") + c.options);
        ASSERT_EQ(r.code, 0) << r.err;
        int w = 0, h = 0;
        const std::vector<uint32_t> px = Read("out.png", &w, &h);
        ASSERT_EQ(w, 6);
        ASSERT_EQ(h, 4);
        EXPECT_EQ(px[1 * 6 + 2], c.centre) << std::hex << px[1 * 6 + 2];
        EXPECT_EQ(px[0], c.edge) << std::hex << px[0];
        EXPECT_EQ(px[2 * 6 + 3], c.otherField) << std::hex << px[2 * 6 + 3];
    }
}

TEST_F(ComposeTool, YuvBlendComesBackCloseToRgb) {
    Write("fg.png", 2, 2, 0x808080);
    Write("bg.png", 2, 2, 0x204060);
    for (const char* space : {"601", "709"}) {
        const kelptest::ToolRun r =
            Run(std::string("compose fg.png bg.png out.png --yuv ") + space);
        ASSERT_EQ(r.code, 0) << r.err;
        int w = 0, h = 0;
        const std::vector<uint32_t> px = Read("out.png", &w, &h);
        ASSERT_EQ(px.size(), 4u);
        for (int shift : {0, 8, 16})
            EXPECT_NEAR(int((px[0] >> shift) & 255), 0x80, 3) << space;
    }
}

TEST_F(ComposeTool, UnreadableInputFailsAndWritesNothing) {
    Write("bg.png", 2, 2, 0x204060);
    const kelptest::ToolRun r = Run("compose missing.png bg.png out.png");
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kelp compose: missing.png: not an image file the library reads\n");
    EXPECT_FALSE(std::filesystem::exists(m_dir + "/out.png"));
    const kelptest::ToolRun bad = Run("compose bg.png bg.png out.xyz");
    EXPECT_EQ(bad.code, 1);
}
