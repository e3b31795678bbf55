// kelp resample through the streaming converter, run as a person would: any rate pair,
// every channel kept apart, the exact length, and clear refusals.
#include <gtest/gtest.h>

#include "resample_cli_fixture.h"

#include <sndfile.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "varrate_signal.h"

namespace fs = std::filesystem;

namespace {

class StreamCli : public kelptest::ResampleCliFixture {
protected:
    // One channel of a WAV file as floats of full scale 1.
    std::vector<float> Channel(const std::string& name, int c, SF_INFO* info) {
        SNDFILE* f = sf_open(Path(name).c_str(), SFM_READ, info);
        if (!f) return {};
        std::vector<short> all(size_t(info->frames) * info->channels);
        sf_readf_short(f, all.data(), info->frames);
        sf_close(f);
        std::vector<float> v(size_t(info->frames));
        for (size_t i = 0; i < v.size(); ++i)
            v[i] = all[i * info->channels + c] / 32768.0f;
        return v;
    }
};

} // namespace

TEST_F(StreamCli, AnyRatePairKeepsLengthFrequencyAndChannels) {
    struct Case {
        int from, to, channels;
    } cases[] = {{48000, 44100, 2}, {44100, 48000, 3}, {48000, 12345, 1},
                 {8000, 96000, 2},  {22050, 44100, 2}, {96000, 24096, 1}};
    for (const auto& k : cases) {
        SCOPED_TRACE(::testing::Message() << k.from << " -> " << k.to);
        const int frames = k.from / 2; // half a second
        MakeWav("in.wav", k.from, k.channels, frames, 440.0);
        std::string err;
        ASSERT_EQ(
            Run(Path("in.wav") + " " + Path("out.wav") + " --rate " + std::to_string(k.to), &err),
            0);
        EXPECT_EQ(err, "");
        std::vector<std::vector<float>> ch;
        SF_INFO info{};
        for (int c = 0; c < k.channels; ++c)
            ch.push_back(Channel("out.wav", c, &info));
        EXPECT_EQ(info.samplerate, k.to);
        EXPECT_EQ(info.channels, k.channels);
        EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
        EXPECT_EQ(info.frames, std::llround(double(frames) * k.to / k.from));
        // The tone keeps its pitch on every channel, at its own level (16-bit output
        // limits the figure; the resampler alone is measured in its own tests).
        const size_t first = 64, last = ch[0].size() - 64;
        for (int c = 0; c < k.channels; ++c) {
            varrate::SineFit fit = varrate::FitSine(ch[c], first, last, 440.0 / k.to);
            EXPECT_GT(fit.snrDb, 60.0) << c;
            EXPECT_NEAR(fit.amplitude, 16000.0 / (c + 1) / 32768.0, 0.002) << c;
        }
    }
}

TEST_F(StreamCli, EqualRatesGiveTheSamplesBack) {
    MakeWav("in.wav", 32000, 2, 3001, 1000.0);
    ASSERT_EQ(Run(Path("in.wav") + " " + Path("out.wav") + " --rate 32000"), 0);
    for (int c = 0; c < 2; ++c) {
        SF_INFO a{}, b{};
        EXPECT_EQ(Channel("in.wav", c, &a), Channel("out.wav", c, &b)) << c;
        EXPECT_EQ(b.frames, 3001);
    }
}

TEST_F(StreamCli, RefusesWhatItCannotServeInOneLine) {
    MakeWav("in.wav", 48000, 1, 480, 440.0);
    struct Case {
        std::string args, message;
    } cases[] = {
        // up to 4 - 8 / 512 source frames per output frame: 12047.06 Hz from 48000 Hz;
        // at most 100 times the input, and 1000000 Hz at most.
        {" --rate 12047", "cannot convert 48000 Hz to 12047 Hz (from 48000 Hz the streaming "
                          "converter serves 12048 to 1000000 Hz)"},
        {" --rate 1000001", "kelp resample: --rate: 1000001 not in 1..1000000"},
        {" --rate 12000 --fixed", "cannot convert 48000 Hz to 12000 Hz"},
    };
    for (const auto& k : cases) {
        std::string err;
        EXPECT_NE(Run(Path("in.wav") + " " + Path("out.wav") + k.args, &err), 0) << k.args;
        EXPECT_NE(err.find(k.message), std::string::npos) << err;
        EXPECT_FALSE(fs::exists(Path("out.wav")));
    }
    EXPECT_EQ(Run(Path("in.wav") + " " + Path("out.wav") + " --rate 12048"), 0);
    // Input rates near and above the limit of --rate: the range is what the converter
    // takes within that limit, worked out without overflow.
    const struct {
        int from;
        std::string range;
    } fast[] = {{2000000, "501961 to 1000000 Hz"},
                {25000000, "no rate up to 1000000 Hz"},
                {2147483647, "no rate up to 1000000 Hz"}};
    for (const auto& k : fast) {
        MakeWav("fast.wav", k.from, 1, 100, 1000.0);
        std::string err;
        EXPECT_EQ(Run(Path("fast.wav") + " " + Path("out3.wav") + " --rate 8000", &err), 1);
        EXPECT_EQ(err, "kelp resample: cannot convert " + std::to_string(k.from) +
                           " Hz to 8000 Hz (from " + std::to_string(k.from) +
                           " Hz the streaming converter serves " + k.range + ")\n");
    }
    MakeWav("wide.wav", 8000, 33, 100, 440.0);
    std::string err;
    EXPECT_EQ(Run(Path("wide.wav") + " " + Path("out2.wav") + " --rate 16000", &err), 1);
    EXPECT_NE(err.find("33 channels (32 at most)"), std::string::npos) << err;
}
