// The progress line of a long job: drawn on a terminal, never into a pipe or a file.
#include <gtest/gtest.h>

#include <sndfile.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tool_run.h"

namespace {

// Runs a shell command line under a pseudo-terminal (script(1)); what the terminal showed.
std::string OnTerminal(const std::string& dir, const std::string& line) {
    const std::string shown = dir + "/terminal.txt";
    const std::string cmd =
        "cd '" + dir + "' && script -qec '" + line + "' /dev/null >" + shown + " 2>&1 </dev/null";
    EXPECT_EQ(std::system(cmd.c_str()), 0) << line;
    return kelptest::ReadText(shown);
}

} // namespace

TEST(ToolProgress, DrawnOnATerminalOnly) {
    if (std::system("command -v script >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "script(1) is not installed";
    char tmpl[] = "/tmp/kelp-progress-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string dir = tmpl;
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* f = sf_open((dir + "/in.wav").c_str(), SFM_WRITE, &info);
    ASSERT_NE(f, nullptr);
    std::vector<short> tone(48000);
    for (size_t i = 0; i < tone.size(); ++i)
        tone[i] = short(8000 * std::sin(0.05 * double(i)));
    sf_writef_short(f, tone.data(), sf_count_t(tone.size()));
    sf_close(f);

    const std::string resample = std::string(KELP_TOOL_PATH) + " resample in.wav out.wav --rate ";
    for (const char* fixed : {"", " --fixed"}) {
        SCOPED_TRACE(fixed);
        const std::string rate = *fixed ? "44100" : "16000";
        const std::string shown = OnTerminal(dir, resample + rate + fixed);
        EXPECT_NE(shown.find("resampling ["), std::string::npos) << shown;
        EXPECT_NE(shown.find("] 100%"), std::string::npos) << shown;
        // Standard output sent to a file: no progress on the terminal either.
        EXPECT_EQ(OnTerminal(dir, resample + rate + fixed + " >/dev/null"), "");
        // Both piped: nothing on standard error.
        const kelptest::ToolRun piped =
            kelptest::RunTool(dir, "resample in.wav out.wav --rate " + rate + fixed);
        EXPECT_EQ(piped.code, 0);
        EXPECT_EQ(piped.err, "");
    }
    std::filesystem::remove_all(dir);
}
