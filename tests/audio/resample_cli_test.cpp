// kelp resample, run as a person would: on WAV files made here with libsndfile.
#include <gtest/gtest.h>

#include "resample_cli_fixture.h"

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

namespace fs = std::filesystem;

namespace {

class ResampleCli : public kelptest::ResampleCliFixture {
protected:
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& e : fs::directory_iterator(m_dir))
            names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    std::string Bytes(const std::string& name) const {
        std::ifstream in(Path(name), std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }
};

struct Read {
    SF_INFO info{};
    std::vector<short> data;
};

Read ReadWav(const std::string& path) {
    Read r;
    SNDFILE* f = sf_open(path.c_str(), SFM_READ, &r.info);
    if (!f) return r;
    r.data.resize(size_t(r.info.frames) * r.info.channels);
    sf_readf_short(f, r.data.data(), r.info.frames);
    sf_close(f);
    return r;
}

} // namespace

TEST_F(ResampleCli, FixedConvertsStandardPairsToTheExactLength) {
    struct Case {
        int from, to, frames, expected;
    } cases[] = {
        {44100, 48000, 44100, 48000},      {48000, 44100, 48000, 44100},
        {22050, 44100, 22050, 44100 - 25}, // 25 patterns of 40 ms, each one output short
        {11025, 48000, 11025, 48000 - 25}, // likewise
        {32000, 44100, 32000, 44100},      // a pattern ending on a step: exact
        {48000, 32000, 4800, 3200},        {44100, 44100, 1000, 1000}, // already there: copied
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.from << " -> " << c.to);
        MakeWav("in.wav", c.from, 2, c.frames, 1000.0);
        std::string err;
        ASSERT_EQ(
            Run(Path("in.wav") + " " + Path("out.wav") + " --fixed --rate " + std::to_string(c.to),
                &err),
            0);
        EXPECT_EQ(err, "");
        const Read r = ReadWav(Path("out.wav"));
        EXPECT_EQ(r.info.samplerate, c.to);
        EXPECT_EQ(r.info.channels, 2);
        EXPECT_EQ(r.info.frames, c.expected);
        EXPECT_EQ(r.info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
        // Each channel went through its own converter: the second is half the first.
        double worst = 0;
        for (sf_count_t i = 0; i < r.info.frames; ++i) {
            const double ideal = 16000.0 * std::sin(2 * M_PI * 1000.0 * double(i) / c.to);
            if (c.from >= 44100 && c.expected == c.frames * c.to / c.from && i > 2 &&
                i + 3 < r.info.frames)
                worst = std::max(worst, std::fabs(r.data[2 * i] - ideal));
            EXPECT_NEAR(r.data[2 * i + 1], r.data[2 * i] / 2.0, 2.0) << i;
        }
        // 1 kHz from 44100 Hz or 48000 Hz: the interpolation bound is 3.7 + 1.6 (see the
        // sine test of the converter). The first outputs lean on the silence before the
        // file, the last ones on the repeated final frame.
        EXPECT_LT(worst, 5.4);
        EXPECT_EQ(Names(), (std::vector<std::string>{"in.wav", "out.wav"}));
    }
}

TEST_F(ResampleCli, FailuresSayWhyAndLeaveFilesAlone) {
    MakeWav("in.wav", 48000, 1, 4800, 440.0);
    const std::string input = Bytes("in.wav");
    std::ofstream(Path("old.wav")) << "previous output";
    struct Case {
        std::string args;
        int code;
        std::string message;
    } cases[] = {
        {Path("missing.wav") + " " + Path("out.wav") + " --rate 44100", 1, "cannot read"},
        {Path("old.wav") + " " + Path("out.wav") + " --rate 44100", 1, "cannot read"},
        {Path("in.wav") + " " + Path("old.wav") + " --rate 12345 --fixed", 1,
         "cannot convert 48000 Hz to 12345 Hz"},
        {Path("in.wav") + " " + Path("old.wav") + " --fixed --rate 22050", 1,
         "cannot convert 48000 Hz to 22050 Hz"},
        {Path("in.wav") + " " + Path("in.wav") + " --rate 44100", 1, "is the input file"},
        {Path("in.wav") + " " + Path("nodir/out.wav") + " --rate 44100", 1, "cannot write"},
        {Path("in.wav") + " " + Path("out.wav") + " --rate", 2, "--rate needs"},
        {Path("in.wav") + " " + Path("out.wav") + " --rate -5", 2,
         "kelp resample: --rate: -5 not in 1..1000000"},
        {Path("in.wav") + " " + Path("out.wav"), 2, "kelp resample: --rate is required"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        std::string err;
        EXPECT_EQ(Run(c.args, &err), c.code);
        EXPECT_NE(err.find(c.message), std::string::npos) << err;
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
        EXPECT_EQ(Bytes("in.wav"), input);
        EXPECT_EQ(Bytes("old.wav"), "previous output");
        EXPECT_EQ(Names(), (std::vector<std::string>{"in.wav", "old.wav"}));
    }
    // A successful run replaces an existing output.
    ASSERT_EQ(Run(Path("in.wav") + " " + Path("old.wav") + " --rate=44100"), 0);
    EXPECT_EQ(ReadWav(Path("old.wav")).info.frames, 4410);
    EXPECT_EQ(Bytes("in.wav"), input);
}
