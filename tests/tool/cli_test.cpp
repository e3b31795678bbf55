// The kelp tool's command line: help for every command, and one style of usage error.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tool_run.h"

namespace {

class ToolCli : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/kelp-tool-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        m_dir = tmpl;
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }
    kelptest::ToolRun Run(const std::string& args) { return kelptest::RunTool(m_dir, args); }

    std::string m_dir;
};

// Every command and what its help must name: options and the words that explain their
// numbers.
struct Command {
    const char* name;
    std::vector<const char*> mentions;
};
const Command kCommands[] = {
    {"version", {}},
    {"demo", {"--out", "--samples"}},
    {"resample", {"IN", "OUT", "--rate", "--fixed", "1000000", "44100", "40 ms"}},
    {"config", {"get", "set", "list", "delete"}},
    {"config get", {"SECTION", "KEY"}},
    {"config set", {"SECTION", "KEY", "VALUE", "--type", "guid", "font"}},
    {"config list", {"SECTION"}},
    {"config delete", {"SECTION", "KEY"}},
    {"codecs", {"priority"}},
    {"codec-roundtrip",
     {"--generate", "--codec", "--bits", "--quality", "--dv50", "1 to 100", "24", "PSNR"}},
    {"info", {"FILE", "orientation"}},
    {"convert",
     {"IN", "OUT", "--depth", "--alpha", "--size", "--quality", "premultiplied", "--load-size",
      "--fit", "--crop", "--ratio", "--progressive"}},
    {"convert", {"--yuv", "601", "709", "full", "--chroma-limit", "44..212"}},
    {"stretch", {"IN", "OUT", "--ratio", "--method", "--quality", "1.25", "wsola", "vocoder"}},
    {"chain", {"FROM", "TO", "--trace", "KIND:WxH", "yuv444-709", "rect=L/T/R/B"}},
    {"transform",
     {"IN", "OUT", "--scale", "--offset", "--transparency", "--background", "--size", "--mode",
      "--softness", "--field", "--yuv", "per source pixel", "per cent"}},
    {"compose", {"FG", "BG", "OUT", "--mode", "--opacity", "--field", "--yuv", "--list", "709"}},
    {"deinterlace",
     {"IN", "OUT", "PREV", "CUR", "NEXT", "--temporal", "--method", "--parity", "--field", "edge",
      "median9"}},
};

bool Mentions(const std::string& text, const std::string& word) {
    return text.find(word) != std::string::npos;
}

} // namespace

TEST_F(ToolCli, HelpDescribesEveryCommandAndOption) {
    for (const char* flag : {"--help", "-h"}) {
        SCOPED_TRACE(flag);
        const kelptest::ToolRun top = Run(flag);
        EXPECT_EQ(top.code, 0);
        EXPECT_EQ(top.err, "");
        for (const Command& c : kCommands) {
            const std::string name = c.name;
            if (name.find(' ') == std::string::npos) {
                EXPECT_TRUE(Mentions(top.out, "\n  " + name + " ")) << name << "\n" << top.out;
            }
            const kelptest::ToolRun r = Run(name + " " + flag);
            SCOPED_TRACE(name);
            EXPECT_EQ(r.code, 0) << r.err;
            EXPECT_EQ(r.err, "");
            EXPECT_TRUE(Mentions(r.out, "Usage: kelp " + name)) << r.out;
            for (const char* word : c.mentions)
                EXPECT_TRUE(Mentions(r.out, word)) << word << " in\n" << r.out;
        }
    }
    // The settings' own help word prints the group's help, not its own.
    const kelptest::ToolRun r = Run("config help");
    EXPECT_EQ(r.code, 0);
    EXPECT_TRUE(Mentions(r.out, "Usage: kelp config ")) << r.out;
    EXPECT_TRUE(Mentions(r.out, "delete")) << r.out;
}

TEST_F(ToolCli, BadArgumentsGiveOneLineAndExitTwo) {
    struct Case {
        const char* args;
        const char* line; // the whole of standard error
    } cases[] = {
        {"", "kelp: a command is needed: version, demo, resample, config, codecs, "
             "codec-roundtrip, info, convert, stretch, chain, transform, compose, deinterlace"},
        {"frobnicate", "kelp: unknown command 'frobnicate' (version, demo, resample, config, "
                       "codecs, codec-roundtrip, info, convert, stretch, chain, transform, "
                       "compose, deinterlace)"},
        {"deinterlace a.png b.png c.png", "kelp deinterlace: IN OUT are needed (3 given); "
                                          "three frames need --temporal"},
        {"deinterlace --temporal a.png b.png", "kelp deinterlace: --temporal needs PREV CUR "
                                               "NEXT OUT (2 given)"},
        {"deinterlace a.png b.png --method median3", "kelp deinterlace: --method: median3 is not "
                                                     "one of repeat, average, blend, cubic, edge "
                                                     "(without --temporal)"},
        {"deinterlace a.png b.png --parity 2", "kelp deinterlace: --parity: 2 not in 0..1"},
        {"--bogus", "kelp: unexpected --bogus"},
        {"stretch a.wav b.wav", "kelp stretch: --ratio is required"},
        {"stretch a.wav b.wav --ratio 2 --method fast",
         "kelp stretch: --method: fast is not one of wsola, vocoder"},
        {"version extra", "kelp version: unexpected extra"},
        {"demo --samples d", "kelp demo: --samples requires --out"},
        {"resample a.wav b.wav", "kelp resample: --rate is required"},
        {"resample a.wav b.wav --rate", "kelp resample: --rate needs a value"},
        {"resample a.wav b.wav --rate 44.1k", "kelp resample: --rate: 44.1k is not a whole "
                                              "number in 1..1000000"},
        {"resample a.wav b.wav --rate 0", "kelp resample: --rate: 0 not in 1..1000000"},
        {"resample a.wav --rate 8000", "kelp resample: OUT is required"},
        {"resample a.wav b.wav c.wav --rate 8000", "kelp resample: unexpected c.wav"},
        {"config", "kelp config: a command is needed: get, set, list, delete, help"},
        {"config frobnicate", "kelp config: unknown command 'frobnicate' (get, set, list, "
                              "delete, help)"},
        {"config get Section", "kelp config get: KEY is required"},
        {"config set S K V --type float", "kelp config set: --type: float is not one of int, "
                                          "int64, uint, uint64, dword, bool, color, string, "
                                          "stringa, path, guid, bin, rect, font"},
        {"codecs --all", "kelp codecs: unexpected --all"},
        {"codec-roundtrip --generate", "kelp codec-roundtrip: --codec is required"},
        {"codec-roundtrip --generate --codec MJPEG", "kelp codec-roundtrip: --codec: a format "
                                                     "code has four characters: MJPEG"},
        {"codec-roundtrip --generate 0x5 --codec MJPG", "kelp codec-roundtrip: --generate: 0x5 "
                                                        "is not a size WxH with sides 1..8192"},
        {"codec-roundtrip a.png b.png c.png --codec MJPG",
         "kelp codec-roundtrip: FILES: 3 given, 2 at most"},
        {"codec-roundtrip --codec MJPG --quality 101", "kelp codec-roundtrip: --quality: 101 "
                                                       "not in 1..100"},
        {"info", "kelp info: FILE is required"},
        {"info -x", "kelp info: unexpected -x"},
        {"convert a.png b.bmp --quality 120", "kelp convert: --quality: 120 not in 0..100"},
        {"convert a.png b.bmp --alpha blue", "kelp convert: --alpha: blue is not one of "
                                             "straight, opaque, premultiplied"},
        {"compose a.png b.png c.png --mode 21", "kelp compose: --mode: 21 not in 1..20"},
        {"compose a.png b.png", "kelp compose: FG, BG and OUT are needed (or --list)"},
        {"convert a.png b.bmp --size 0x10", "kelp convert: --size: 0x10 is not a size WxH "
                                            "with sides 1..1048576"},
        {"convert a.png b.bsi --yuv 2020",
         "kelp convert: --yuv: 2020 is not one of 601, 709, full"},
        {"convert a.png b.bsi --yuv 709 --chroma-limit 50",
         "kelp convert: --chroma-limit: 50 is not one of 100, 75"},
        {"convert a.png b.bmp --crop 4,4,2,8", "kelp convert: --crop: 4,4,2,8 is not L,T,R,B "
                                               "(right and bottom not before left and top)"},
        {"chain rgb32:4x4", "kelp chain: TO is required"},
        {"chain rgb33:4x4 rgb24:4x4", "kelp chain: FROM: rgb33 is not one of rgb1, rgb4, rgb8, "
                                      "rgb16, rgb24, rgb32, yuv24-601, yuv24-709, yuv32-601, "
                                      "yuv32-709, yuv444-601, yuv444-709"},
        {"chain rgb32:4x4 rgb24:4x0", "kelp chain: TO: 4x0 is not a size WxH (each 1 to "
                                      "1048576)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const kelptest::ToolRun r = Run(c.args);
        EXPECT_EQ(r.code, 2);
        EXPECT_EQ(r.err, std::string(c.line) + "\n");
        EXPECT_EQ(r.out, "");
    }
    // Nothing was made by any of them.
    std::vector<std::string> left;
    for (const auto& e : std::filesystem::directory_iterator(m_dir))
        left.push_back(e.path().filename());
    EXPECT_EQ(left, std::vector<std::string>{});
}
