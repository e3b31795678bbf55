// kelp deinterlace as a person runs it: a picture whose two fields differ goes in, the
// lines of the kept field come out as they were and the others are made from them.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <kelp/kelp.h>

#include "tool_run.h"

namespace {

class DeinterlaceTool : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/kelp-deint-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        m_dir = tmpl;
        m_io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
        ASSERT_NE(m_io, nullptr);
    }
    void TearDown() override {
        if (m_io) m_io->Release();
        std::filesystem::remove_all(m_dir);
    }
    kelptest::ToolRun Run(const std::string& args) { return kelptest::RunTool(m_dir, args); }

    // A top-down 32-bit picture of 16 x 6 whose row y (from the top) is value(y) in
    // every colour byte, written as `name` in the test directory.
    void Write(const std::string& name, const std::vector<int>& rows) {
        const int h = int(rows.size());
        KXBMINFOHEADERYUV d = {};
        d.bmi.biSize = KXBMI_SIZE;
        d.bmi.biWidth = 16;
        d.bmi.biHeight = -h;
        d.bmi.biPlanes = 1;
        d.bmi.biBitCount = 32;
        d.bmi.biSizeImage = uint32_t(16 * 4 * h);
        d.bmi.bmiMagic = KXBMI_MAGIC;
        d.bmi.bmiAlpha = KXDIB_ALPHA_OPAQUE;
        std::vector<uint8_t> px(size_t(16 * 4 * h));
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < 16; ++x) {
                uint8_t* p = &px[size_t((y * 16 + x) * 4)];
                p[0] = p[1] = p[2] = uint8_t(rows[size_t(y)]);
                p[3] = 255;
            }
        const std::wstring path = Wide(m_dir + "/" + name);
        const kelp::ImageSaveOptions save = {sizeof(kelp::ImageSaveOptions), 0, 0, 100, {0, 0}};
        ASSERT_TRUE(KX_SUCCEEDED(m_io->SaveImage(path.c_str(), &d.bmi, px.data(), &save)));
    }

    // The green byte of column 3 of every row of a picture file, from the top.
    std::vector<int> Rows(const std::string& name) {
        const std::wstring path = Wide(m_dir + "/" + name);
        kelp::CCppAllocator allocator;
        KXBMINFOHEADER* info = nullptr;
        if (KX_FAILED(m_io->GetImageInfo(path.c_str(), &info, &allocator))) return {};
        KXBMINFOHEADERYUV d = {};
        std::memcpy(&d, info, std::min<size_t>(info->biSize, sizeof d));
        allocator.Free(info);
        d.bmi.biSize = KXBMI_SIZE;
        const kelp::ImageLoadOptions load = {sizeof(kelp::ImageLoadOptions), 32, 0, 0, 0, 0};
        void* pixels = nullptr;
        if (KX_FAILED(m_io->LoadImage(path.c_str(), &d.bmi, &pixels, &allocator, &load))) return {};
        std::vector<int> out;
        const int h = d.bmi.biHeight < 0 ? -d.bmi.biHeight : d.bmi.biHeight;
        const int stride = d.bmi.biWidth * 4;
        for (int y = 0; y < h; ++y) {
            const int line = d.bmi.biHeight < 0 ? y : h - 1 - y;
            out.push_back(static_cast<uint8_t*>(pixels)[line * stride + 3 * 4 + 1]);
        }
        allocator.Free(pixels);
        return out;
    }

    static std::wstring Wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }

    std::string m_dir;
    kelp::IImageIO* m_io = nullptr;
};

} // namespace

TEST_F(DeinterlaceTool, SingleFrameMethodsKeepOneFieldAndMakeTheOther) {
    Write("in.bmp", {10, 200, 30, 200, 50, 200});
    struct Case {
        const char* args;
        std::vector<int> rows;
    } cases[] = {
        {"--method average", {10, 20, 30, 40, 50, 50}},
        {"--method repeat", {10, 10, 30, 30, 50, 50}},
        {"--method blend", {10, 110, 30, 120, 50, 125}},
        {"--method average --parity 1", {200, 200, 200, 200, 200, 200}},
        {"--method average --field 0", {10, 200, 30, 200, 50, 200}}, // field 0 is all kept
        {"--method average --field 1", {10, 20, 30, 40, 50, 50}},
        {"", {10, 20, 30, 40, 50, 50}}, // edge: flat rows give the average
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        const kelptest::ToolRun r = Run(std::string("deinterlace in.bmp out.bsi ") + c.args);
        ASSERT_EQ(r.code, 0) << r.err;
        EXPECT_NE(r.out.find("in.bmp: 16 x 6"), std::string::npos) << r.out;
        EXPECT_EQ(Rows("out.bsi"), c.rows);
    }
    // PNG out too.
    ASSERT_EQ(Run("deinterlace in.bmp out.png --method average").code, 0);
    EXPECT_EQ(Rows("out.png"), (std::vector<int>{10, 20, 30, 40, 50, 50}));
}

TEST_F(DeinterlaceTool, TemporalMethodsReadThreeFrames) {
    Write("prev.bmp", {0, 100, 0, 100, 0, 100});
    Write("cur.bmp", {10, 0, 30, 0, 50, 0});
    Write("next.bmp", {0, 50, 0, 50, 0, 250});
    struct Case {
        const char* method;
        std::vector<int> rows;
    } cases[] = {
        {"average", {10, 75, 30, 75, 50, 175}},
        {"median3", {10, 30, 30, 50, 50, 50}}, // between above, below and PREV
        {"median9", {10, 30, 30, 50, 50, 50}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.method);
        const kelptest::ToolRun r =
            Run(std::string("deinterlace --temporal prev.bmp cur.bmp next.bmp out.bsi --method ") +
                c.method);
        ASSERT_EQ(r.code, 0) << r.err;
        EXPECT_EQ(Rows("out.bsi"), c.rows);
    }
}

TEST_F(DeinterlaceTool, FailuresSayWhyAndWriteNothing) {
    Write("in.bmp", {1, 2, 3, 4});
    Write("small.bmp", {1, 2});
    struct Case {
        const char* args;
        const char* err;
    } cases[] = {
        {"deinterlace missing.bmp out.bsi", "kelp deinterlace: missing.bmp: not an image file "
                                            "the library reads\n"},
        {"deinterlace in.bmp out.xyz", "kelp deinterlace: cannot write out.xyz: the library "
                                       "writes .bmp, .tif, .tga, .jpg, .bsi and .png\n"},
        {"deinterlace --temporal small.bmp in.bmp in.bmp out.bsi",
         "kelp deinterlace: PREV, CUR and NEXT differ in size\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        const kelptest::ToolRun r = Run(c.args);
        EXPECT_EQ(r.code, 1);
        EXPECT_EQ(r.err, c.err);
        EXPECT_FALSE(std::filesystem::exists(m_dir + "/out.bsi"));
        EXPECT_FALSE(std::filesystem::exists(m_dir + "/out.xyz"));
    }
}
