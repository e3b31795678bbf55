// The work of `kelp stretch` on real files: lengths, encodings and channel counts kept,
// pitch kept, and one error line with the input untouched for what cannot be done.
#include <gtest/gtest.h>

#include <sndfile.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tools/cmd_stretch.h"

namespace {

class StretchCli : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/kelp-stretch-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        m_dir = tmpl;
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }

    std::string Path(const std::string& name) const { return (m_dir / name).string(); }

    // A sine of `hz` on every channel, channel c at 1 / (c + 1) of half scale.
    void MakeWav(const std::string& name, int format, int rate, int channels, int frames,
                 double hz) {
        SF_INFO info{};
        info.samplerate = rate;
        info.channels = channels;
        info.format = format;
        SNDFILE* f = sf_open(Path(name).c_str(), SFM_WRITE, &info);
        ASSERT_NE(f, nullptr) << sf_strerror(nullptr);
        std::vector<float> data(size_t(frames) * channels);
        for (int i = 0; i < frames; ++i)
            for (int c = 0; c < channels; ++c)
                data[size_t(i) * channels + c] =
                    float(0.5 / (c + 1) * std::sin(2 * M_PI * hz * i / rate));
        ASSERT_EQ(sf_writef_float(f, data.data(), frames), frames);
        sf_close(f);
    }

    // The frames of a file as floats, and its description.
    std::vector<float> Read(const std::string& name, SF_INFO* info) {
        *info = SF_INFO{};
        SNDFILE* f = sf_open(Path(name).c_str(), SFM_READ, info);
        if (!f) return {};
        std::vector<float> data(size_t(info->frames) * info->channels);
        sf_readf_float(f, data.data(), info->frames);
        sf_close(f);
        return data;
    }

    std::string Bytes(const std::string& name) {
        std::ifstream in(Path(name), std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }

    // RunStretch, and what it wrote on standard error.
    int Run(StretchOptions options, std::string* err) {
        testing::internal::CaptureStderr();
        const int code = RunStretch(options);
        *err = testing::internal::GetCapturedStderr();
        return code;
    }

    std::filesystem::path m_dir;
};

// Cycles per frame from the rising zero crossings of channel 0.
double Frequency(const std::vector<float>& x, int channels, size_t first, size_t last) {
    double firstZ = -1, lastZ = 0;
    int count = 0;
    for (size_t i = first; i + 1 < last; ++i) {
        const float a = x[i * channels], b = x[(i + 1) * channels];
        if (a < 0 && b >= 0) {
            const double z = double(i) + double(a) / double(a - b);
            if (firstZ < 0) firstZ = z;
            lastZ = z;
            ++count;
        }
    }
    return count > 1 ? (count - 1) / (lastZ - firstZ) : 0.0;
}

} // namespace

TEST_F(StretchCli, KeepsEncodingChannelsRateAndPitch) {
    struct Case {
        int format, channels, method, quality;
        double ratio;
    } cases[] = {
        {SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 0, 0, 1.25},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 1, 0, 1.25},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 1, 0, 1, 0.5},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_24, 3, 1, 2, 2.0},
        {SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 0, 2, 0.8},
        {SF_FORMAT_WAV | SF_FORMAT_ULAW, 2, 1, 1, 0.75},
        {SF_FORMAT_WAVEX | SF_FORMAT_PCM_32, 6, 0, 0, 1.5},
    };
    const int rate = 22050, frames = 30001; // not a whole number of blocks
    const double hz = 441.0;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << std::hex << c.format << std::dec << ", " << c.channels
                     << " channels, method " << c.method << ", ratio " << c.ratio);
        MakeWav("in.wav", c.format, rate, c.channels, frames, hz);
        const std::string before = Bytes("in.wav");
        std::string err;
        ASSERT_EQ(Run({Path("in.wav"), Path("out.wav"), c.ratio, c.method, c.quality}, &err), 0)
            << err;
        EXPECT_EQ(err, "");
        EXPECT_EQ(Bytes("in.wav"), before);
        SF_INFO info;
        std::vector<float> out = Read("out.wav", &info);
        EXPECT_EQ(info.format, c.format);
        EXPECT_EQ(info.channels, c.channels);
        EXPECT_EQ(info.samplerate, rate);
        EXPECT_EQ(info.frames, std::llround(frames * c.ratio));
        const double f = Frequency(out, c.channels, 4096, size_t(info.frames) - 4096);
        EXPECT_NEAR(f * rate / hz, 1.0, 0.005);
    }
}

TEST_F(StretchCli, OneErrorLineAndTheInputUntouched) {
    MakeWav("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 8000, 1, 5000, 300.0);
    std::ofstream(Path("text.wav")) << "not a sound file";
    std::filesystem::create_directory(Path("dir"));
    struct Case {
        StretchOptions options;
        int code;
        const char* says;
    } cases[] = {
        {{Path("in.wav"), Path("out.wav"), 0.2, 0, 0}, 2, "--ratio must be from 0.375 to 4"},
        {{Path("in.wav"), Path("out.wav"), 2.5, 1, 0}, 2, "--ratio must be from 0.25 to 2"},
        {{Path("in.wav"), Path("out.wav"), NAN, 0, 0}, 2, "--ratio"},
        {{Path("in.wav"), Path("out.wav"), 1.0, 0, 3}, 2, "--quality"},
        {{Path("missing.wav"), Path("out.wav"), 1.0, 0, 0}, 1, "cannot read"},
        {{Path("text.wav"), Path("out.wav"), 1.0, 0, 0}, 1, "cannot read"},
        {{Path("in.wav"), Path("in.wav"), 1.0, 0, 0}, 1, "is the input file"},
        {{Path("in.wav"), Path("nodir/out.wav"), 1.0, 0, 0}, 1, "cannot write"},
    };
    const std::string before = Bytes("in.wav");
    for (const Case& c : cases) {
        std::string err;
        EXPECT_EQ(Run(c.options, &err), c.code) << c.says;
        EXPECT_EQ(err.rfind("kelp stretch: ", 0), 0u) << err;
        EXPECT_NE(err.find(c.says), std::string::npos) << err;
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
        EXPECT_EQ(Bytes("in.wav"), before);
        EXPECT_FALSE(std::filesystem::exists(Path("out.wav")));
    }
    // Nothing is left behind in the output's directory.
    size_t files = 0;
    for (auto& e : std::filesystem::directory_iterator(m_dir)) {
        (void)e;
        ++files;
    }
    EXPECT_EQ(files, 3u);
}
