// kelp resample on files of every encoding libsndfile decodes (made by sox, see
// tests/data/wav/make.sh): each arrives at its own level on both paths; a file cut short
// is converted as far as it goes, with a warning.
#include <gtest/gtest.h>

#include "resample_cli_fixture.h"

#include <sndfile.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "varrate_signal.h"

namespace {

const std::string kWavDir = std::string(KELP_TEST_DATA_DIR) + "/wav/";

class ResampleEncodings : public kelptest::ResampleCliFixture {
protected:
    // The 16-bit output as floats of full scale 1, and its format.
    std::vector<float> ReadOut(const std::string& name, SF_INFO* info) {
        *info = SF_INFO{};
        SNDFILE* f = sf_open(Path(name).c_str(), SFM_READ, info);
        if (!f) return {};
        std::vector<short> s(size_t(info->frames) * info->channels);
        sf_readf_short(f, s.data(), info->frames);
        sf_close(f);
        std::vector<float> v(s.size());
        for (size_t i = 0; i < s.size(); ++i)
            v[i] = s[i] / 32768.0f;
        return v;
    }
};

} // namespace

TEST_F(ResampleEncodings, EveryEncodingArrivesAtItsLevelOnBothPaths) {
    // 0.1 s of 1 kHz at half of full scale, 32000 Hz. The figures are what each encoding
    // keeps of the tone, with room: companding and ADPCM add their own noise.
    struct Case {
        const char* file;
        double level; // tolerance of the amplitude
        double snrDb;
    } cases[] = {
        {"pcm8.wav", 0.005, 40},     {"pcm16.wav", 0.002, 55},   {"pcm24.wav", 0.002, 55},
        {"float32.wav", 0.002, 55},  {"alaw.wav", 0.01, 30},     {"ulaw.wav", 0.01, 30},
        {"ima-adpcm.wav", 0.01, 20}, {"ms-adpcm.wav", 0.01, 20},
    };
    for (const Case& c : cases) {
        for (const char* path : {"", " --fixed"}) {
            SCOPED_TRACE(::testing::Message() << c.file << path);
            std::string err;
            ASSERT_EQ(Run(kWavDir + c.file + " " + Path("out.wav") + " --rate 48000" + path, &err),
                      0);
            EXPECT_EQ(err, "");
            SF_INFO info;
            const std::vector<float> out = ReadOut("out.wav", &info);
            ASSERT_EQ(info.samplerate, 48000);
            // The tone covers the first 4800 frames; ADPCM blocks may pad after it.
            ASSERT_GE(out.size(), 4800u);
            const varrate::SineFit fit = varrate::FitSine(out, 100, 4700, 1000.0 / 48000);
            EXPECT_NEAR(fit.amplitude, 0.5, c.level);
            EXPECT_GT(fit.snrDb, c.snrDb);
        }
    }
}

TEST_F(ResampleEncodings, AFileCutShortIsConvertedAsFarAsItGoesWithAWarning) {
    struct Case {
        const char* file;
        size_t keep; // bytes kept of the file
        int claimed; // frames its header claims
        int held;    // frames libsndfile finds
    } cases[] = {
        {"pcm16.wav", 44 + 2 * 1600, 3200, 1600},
        {"float32.wav", 12858 - 4 * 1000, 3200, 2200},
    };
    for (const Case& c : cases) {
        std::ifstream in(kWavDir + c.file, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        ASSERT_GT(bytes.size(), c.keep);
        std::ofstream(Path("cut.wav"), std::ios::binary) << bytes.substr(0, c.keep);
        for (const char* path : {"", " --fixed"}) {
            SCOPED_TRACE(::testing::Message() << c.file << path);
            std::string err;
            ASSERT_EQ(Run(Path("cut.wav") + " " + Path("out.wav") + " --rate 48000" + path, &err),
                      0);
            EXPECT_EQ(err, "kelp resample: warning: '" + Path("cut.wav") + "': the header says " +
                               std::to_string(c.claimed) + " frames, the file holds " +
                               std::to_string(c.held) + "; converting those\n");
            SF_INFO info;
            const std::vector<float> out = ReadOut("out.wav", &info);
            EXPECT_EQ(info.frames, c.held * 3 / 2);
            const varrate::SineFit fit =
                varrate::FitSine(out, 100, size_t(info.frames) - 100, 1000.0 / 48000);
            EXPECT_NEAR(fit.amplitude, 0.5, 0.002);
        }
    }
}
