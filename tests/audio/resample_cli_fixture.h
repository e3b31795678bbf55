// What the tests of `kelp resample` share: a scratch directory, WAV files made with
// libsndfile, and the tool run as a person would run it.
#pragma once

#include <gtest/gtest.h>

#include <sndfile.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace kelptest {

class ResampleCliFixture : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/kelp-resample-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        m_dir = tmpl;
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }

    std::string Path(const std::string& name) const { return (m_dir / name).string(); }

    // A sine of `hz` on every channel, channel c at 1 / (c + 1) of 16000.
    void MakeWav(const std::string& name, int rate, int channels, int frames, double hz) {
        SF_INFO info{};
        info.samplerate = rate;
        info.channels = channels;
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        SNDFILE* f = sf_open(Path(name).c_str(), SFM_WRITE, &info);
        ASSERT_NE(f, nullptr);
        std::vector<short> data(size_t(frames) * channels);
        for (int i = 0; i < frames; ++i)
            for (int c = 0; c < channels; ++c)
                data[size_t(i) * channels + c] =
                    short(std::lround(16000.0 / (c + 1) * std::sin(2 * M_PI * hz * i / rate)));
        ASSERT_EQ(sf_writef_short(f, data.data(), frames), frames);
        sf_close(f);
    }

    // Runs `kelp resample ARGS`; the exit code, and what it wrote on standard error in `err`.
    int Run(const std::string& args, std::string* err = nullptr) {
        const std::string errFile = Path("stderr.txt");
        const std::string cmd = std::string(KELP_TOOL_PATH) + " resample " + args + " 2>" + errFile;
        const int status = std::system(cmd.c_str());
        std::ifstream in(errFile);
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::filesystem::remove(errFile);
        if (err) *err = text;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::filesystem::path m_dir;
};

} // namespace kelptest
