// The streaming converter takes only the rate pairs its resampler serves as asked: a
// pair whose ratio would be clipped is refused, and every pair it takes keeps the pitch
// and length of the input.
#include <gtest/gtest.h>

#include <kelp/samplerateconverter.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

#include "src_reader.h"
#include "varrate_signal.h"

namespace {

struct Releaser {
    void operator()(kelp::ISampleRateConverter* c) const { c->Release(); }
};
using Converter = std::unique_ptr<kelp::ISampleRateConverter, Releaser>;

Converter Make(int from, int to, kelp::ISampleRateConverter::IReadData* reader) {
    const kelp::CKXWAVFormat format(from, 16, 1, 1, KXWAVE_FORMAT_PCM);
    void* object = nullptr;
    if (!kelp::ISampleRateConverter::Create(format, to, reader, &object)) {
        EXPECT_EQ(object, nullptr);
        return nullptr;
    }
    return Converter(static_cast<kelp::ISampleRateConverter*>(object));
}

} // namespace

TEST(SrcRatio, RefusesPairsTheResamplerDoesNotServe) {
    struct Case {
        int from, to;
        bool taken;
    } cases[] = {
        {48000, 8000, false},   // 6 source frames per output frame: would be clipped to 4
        {44100, 11025, false},  // exactly 4: its last outputs would read unwritten frames
        {48000, 12047, false},  // just above 4 - 8/512
        {48000, 12048, true},   // just below
        {8000, 800000, true},   // exactly 1/100
        {8000, 800001, false},  // just below 1/100: would be clipped
        {1000, 1000000, false}, //
        {48000, 48000, true},   // equal rates: passed through
    };
    const std::vector<uint8_t> silence(4096, 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.from << " -> " << c.to);
        srctest::BlockReader reader(silence, {1024});
        Converter conv = Make(c.from, c.to, &reader);
        EXPECT_EQ(conv != nullptr, c.taken);
        EXPECT_EQ(reader.reads(), 0u); // refused or taken, nothing is read yet
    }
}

// At the edges of what is taken, a tone of one second comes out at its pitch, its level
// and its length (then silence).
TEST(SrcRatio, PairsAtTheEdgesKeepPitchAndLength) {
    struct Case {
        int from, to;
        double snrDb; // the resampler's own figure for a 1 kHz tone at this ratio, less 3 dB
    } cases[] = {{48000, 12048, 62}, {8000, 800000, 56}, {44100, 48000, 62}};
    const double hz = 1000;
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.from << " -> " << c.to);
        const unsigned frames = unsigned(c.from); // one second
        srctest::BlockReader reader(
            srctest::Pcm16Blocks(1, 1, frames, 4096,
                                 [&](unsigned, unsigned, unsigned i) {
                                     return int16_t(
                                         std::lround(16000 * std::sin(2 * M_PI * hz * i / c.from)));
                                 }),
            {4096 * 2});
        Converter conv = Make(c.from, c.to, &reader);
        ASSERT_NE(conv, nullptr);
        std::vector<float> out(size_t(c.to) * 5 / 4);
        for (size_t done = 0; done < out.size(); done += 4096)
            ASSERT_TRUE(conv->ReadSamples(out.data() + done,
                                          uint32_t(std::min<size_t>(4096, out.size() - done)), 0));
        const size_t end = size_t(c.to), margin = end / 50;
        const varrate::SineFit fit = varrate::FitSine(out, margin, end - margin, hz / c.to);
        EXPECT_NEAR(fit.amplitude, 16000.0 / 32768.0, 0.002);
        EXPECT_GT(fit.snrDb, c.snrDb);
        double after = 0;
        for (size_t i = end + margin; i < out.size(); ++i)
            after = std::max(after, double(std::fabs(out[i])));
        EXPECT_LT(after, 1e-3);
    }
}
