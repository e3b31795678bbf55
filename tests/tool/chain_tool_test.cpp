// kelp chain and the geometry options of kelp convert, run as a person runs them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tool_run.h"

namespace {

class ChainTool : public ::testing::Test {
  protected:
    void SetUp() override {
        char tmpl[] = "/tmp/kelp-chain-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        m_dir = tmpl;
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }
    kelptest::ToolRun Run(const std::string& args) { return kelptest::RunTool(m_dir, args); }

    std::string m_dir;
};

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

} // namespace

TEST_F(ChainTool, PrintsTheStagesTheirFormatsAndCosts) {
    struct Case {
        const char* args;
        std::vector<const char*> lines;
    } cases[] = {
        {"chain rgb32:1920x1080 yuv444-709:960x540",
         {"chain of 2 stages, Q 185:", "1. Scale32          Q 0 -> 165 (+165)  RGB 32 bits 960x540",
          "2. RGB->YUV4444     Q 165 -> 185 (+20)  YUV 32 bits 960x540"}},
        {"chain rgb32:360x288 yuv444-601:720x576",
         {"chain of 2 stages, Q 37:", "1. RGB->YUV4444     Q 0 -> 4 (+4)",
          "2. Scale32          Q 4 -> 37 (+33)"}},
        {"chain rgb32:720x576,premultiplied rgb32:360x288,straight",
         {"1. Scale32", "2. AlphaConverter   Q 33 -> 41 (+8)"}},
        {"chain rgb24:720x576,interlaced rgb24:720x576 --allow-fields",
         {"chain of 1 stage, Q 5:", "1. Deinterlacer24"}},
        {"chain rgb24:64x64 rgb24:64x64,rect=1/1/9/9", {"1. RGBCrop          Q 0 -> 5 (+5)"}},
        {"chain yuv32-601:64x64 yuv32-709:64x64", {"1. CYUVConverterYU"}},
        {"chain rgb24:8x8 rgb24:8x8", {"the formats are the same: nothing to convert, Q 0"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const kelptest::ToolRun r = Run(c.args);
        EXPECT_EQ(r.code, 0) << r.err;
        for (const char* line : c.lines)
            EXPECT_TRUE(Has(r.out, line)) << line << "\n" << r.out;
        EXPECT_FALSE(Has(r.out, "the search")) << "only with --trace";
    }
}

TEST_F(ChainTool, TraceShowsTheWholeSearchIndentedByDepth) {
    const kelptest::ToolRun r = Run("chain --trace rgb32:720x576,premultiplied rgb24:360x288");
    ASSERT_EQ(r.code, 0) << r.err;
    const char* walk[] = {
        "the search, as the trace tells it:\n",
        "  CConversionManager::CreateConverterList:\n",
        "   Q0 -> 33(144,RGB,1,32,720,576,65536,65536,PF)->(144,RGB,1,32,360,288,65536,65536,PF)\n",
        "      Q33 -> 37(",
        "      ^- OK at 2(Q37) NEW ACTIVE\n",
        "   Q0 -> 16(",
        "      ^- OK at 2(Q136) \n",
        "   ^-Nothing Found at 0\n",
    };
    size_t at = 0;
    for (const char* w : walk) {
        const size_t found = r.out.find(w, at);
        EXPECT_NE(found, std::string::npos) << w << "\n" << r.out;
        if (found != std::string::npos) at = found;
    }
    // The stages' own decisions are not search lines.
    EXPECT_FALSE(Has(r.out, "SUCESS"));
    EXPECT_TRUE(Has(r.out, "1. Scale32"));
}

TEST_F(ChainTool, APairNoStageBridgesFailsWithItsSearch) {
    const kelptest::ToolRun r = Run("chain --trace rgb16:4x4 rgb16:8x8");
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kelp chain: no chain of stages goes from rgb16:4x4 to rgb16:8x8\n");
    EXPECT_TRUE(Has(r.out, "   ^-Nothing Found at 0\n")) << r.out;
}

TEST_F(ChainTool, ConvertSizesCropsAndReportsThroughTheManager) {
    ASSERT_EQ(Run("demo --out d").code, 0);
    struct Case {
        const char* args;
        const char* says;
    } cases[] = {
        {"convert d/files/image.bmp a.bsi --size 48x32 --fit good", "-> a.bsi: 48 x 32"},
        {"convert d/files/image.bmp b.bsi --size 200x100", "-> b.bsi: 200 x 100"},
        {"convert d/files/image.bmp c.bsi --ratio 16:11 --progressive", "-> c.bsi: 96 x 64"},
        {"convert d/files/image.bmp e.bmp --depth 24 --size 40x40 --fit fast --keep-aspect",
         "-> e.bmp: 40 x 40, 24 bits"},
        {"convert d/files/image.bmp f.bmp --load-size 48x32", "-> f.bmp: 48 x 32"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const kelptest::ToolRun r = Run(c.args);
        EXPECT_EQ(r.code, 0) << r.err;
        EXPECT_TRUE(Has(r.out, c.says)) << r.out;
    }
    const kelptest::ToolRun info = Run("info c.bsi");
    EXPECT_TRUE(Has(info.out, "pixel ratio:  1.455 (95325:65536)")) << info.out;
    EXPECT_TRUE(Has(info.out, "scan:         progressive")) << info.out;
    const kelptest::ToolRun crop = Run("convert d/files/image.bmp g.bmp --crop 1,1,500,4");
    EXPECT_EQ(crop.code, 1);
    EXPECT_TRUE(Has(crop.err, "--crop: 1,1,500,4 reaches beyond the picture")) << crop.err;
}
