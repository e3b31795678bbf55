// Measured behaviour of the time stretchers on signals: a sine keeps its frequency and
// level, the output has the length asked for, channels stay aligned, and the block size
// of the caller does not change a sample.
//
// Levels. WSOLA cross-fades Hann-windowed segments at half overlap, whose windows sum
// to exactly 1; a segment is placed where it continues the one before, to within the
// search grid (3 frames at quality 0) and the bias of a correlation over 35 products
// (about 2 frames at these frequencies). A misplacement of d frames at f cycles per
// frame dips the cross-fade's middle to cos(pi f d): at most 3 frames at 1 kHz in
// 48 kHz leaves 0.98 of the level. The placement errors add up over many splices, so
// the level is measured over short stretches (one hop), where it must stay within 3 %.
//
// The vocoder windows twice with a periodic Hann window, whose square averages 3/8:
// frames at synthesis hop H add up to 2048 * 3/8 / H on average, and the gain is
// H * 2 sqrt(2) / 2048, so a steady sine comes out at 3 / (2 sqrt 2) = 1.0607 times its
// level at every hop and ratio. Its phases advance coherently, so one sine fitted to
// the whole output must show that level to within 1 %.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "stretch_driver.h"
#include "varrate_signal.h"

using stretchtest::Make;
using stretchtest::Signal;
using stretchtest::Stretch;

namespace {

// Cycles per frame from the rising zero crossings in x[first, last).
double ZeroCrossingFrequency(const std::vector<float>& x, size_t first, size_t last) {
    double firstZ = -1, lastZ = 0;
    int count = 0;
    for (size_t i = first; i + 1 < last; ++i) {
        if (x[i] < 0 && x[i + 1] >= 0) {
            const double z = double(i) + double(x[i]) / double(x[i] - x[i + 1]);
            if (firstZ < 0) firstZ = z;
            lastZ = z;
            ++count;
        }
    }
    return count > 1 ? (count - 1) / (lastZ - firstZ) : 0.0;
}

Signal Music(unsigned channels, size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> uni(-0.1f, 0.1f);
    Signal s(channels, std::vector<float>(n));
    for (unsigned c = 0; c < channels; ++c)
        for (size_t i = 0; i < n; ++i)
            s[c][i] = float(0.3 * std::sin(0.031 * double(i) * (c + 1)) +
                            0.2 * std::sin(0.0071 * double(i) + c)) +
                      uni(rng);
    return s;
}

} // namespace

TEST(StretchSignal, SineKeepsFrequencyLevelAndLength) {
    const size_t n = 140 * 512; // whole blocks: no silence is added at the end
    const double amplitude = 0.5;
    for (double hz : {440.0, 1000.0}) {
        const double f = hz / 48000.0;
        Signal in{varrate::Sine(n, f, amplitude)};
        for (int method : {0, 1}) {
            for (int quality : {0, 2}) {
                for (float ratio : {0.5f, 0.8f, 1.25f, 2.0f}) {
                    SCOPED_TRACE(testing::Message()
                                 << hz << " Hz, method " << method << ", quality " << quality
                                 << ", ratio " << ratio);
                    auto tw = Make(512, 1, method, quality, ratio);
                    Signal out = Stretch(tw.get(), 512, in);
                    // The stretch in force, after the truncation of the steps to whole
                    // frames, and the output of one processing step.
                    double achieved = ratio, step = 2048;
                    if (method == 0) {
                        auto* w = static_cast<TWwsola*>(tw.get());
                        achieved = double(w->hop()) / int(w->hop() * tw->stretch());
                    } else {
                        auto* v = static_cast<TWPhaseVocoder*>(tw.get());
                        achieved = tw->stretch();
                        step = v->synthesisHop() * v->overlap();
                    }
                    // flush ends the step it has begun, over silence: at most one step more.
                    const double want = double(n) * achieved;
                    EXPECT_GE(double(out[0].size()), want);
                    EXPECT_LE(double(out[0].size()), want + step);
                    // Steady output: past the fade-in, and before the end of the input.
                    const size_t first = 4096, last = size_t(want) - 4096;
                    const double measured = ZeroCrossingFrequency(out[0], first, last);
                    EXPECT_NEAR(measured / f, 1.0, 0.005);
                    if (method == 0) {
                        double lo = 10, hi = 0;
                        for (size_t b = first; b + 1024 <= last; b += 1024) {
                            double a = varrate::FitSine(out[0], b, b + 1024, f).amplitude;
                            lo = std::min(lo, a);
                            hi = std::max(hi, a);
                        }
                        EXPECT_GT(lo / amplitude, 0.97);
                        EXPECT_LT(hi / amplitude, 1.03);
                    } else {
                        double a = varrate::FitSine(out[0], first, last, f).amplitude;
                        EXPECT_NEAR(a / amplitude, 3 / (2 * std::sqrt(2.0)), 0.01);
                    }
                }
            }
        }
    }
}

TEST(StretchSignal, WsolaMovesAllChannelsByTheFirstOnesOffsets) {
    const size_t n = 40000;
    Signal music = Music(3, n, 1);
    auto run = [&](const std::vector<float>& left, const std::vector<float>& right) {
        auto tw = Make(400, 2, 0, 0, 1.25f);
        return Stretch(tw.get(), 400, Signal{left, right});
    };
    // The second channel follows the first one's offsets whatever it holds: it is
    // processed linearly, so outputs add as inputs do.
    std::vector<float> sum(n);
    for (size_t i = 0; i < n; ++i)
        sum[i] = music[1][i] + music[2][i];
    Signal a = run(music[0], music[1]), b = run(music[0], music[2]), ab = run(music[0], sum);
    ASSERT_EQ(a[1].size(), ab[1].size());
    for (size_t i = 0; i < ab[1].size(); ++i)
        ASSERT_NEAR(ab[1][i], a[1][i] + b[1][i], 1e-5f) << i;
    // The first channel is what it would be alone.
    auto mono = Make(400, 1, 0, 0, 1.25f);
    EXPECT_EQ(Stretch(mono.get(), 400, Signal{music[0]})[0], a[0]);
    // A scaled copy stays a scaled copy, frame for frame.
    std::vector<float> scaled(n);
    for (size_t i = 0; i < n; ++i)
        scaled[i] = -0.5f * music[0][i];
    Signal s = run(music[0], scaled);
    for (size_t i = 0; i < s[0].size(); ++i)
        ASSERT_EQ(s[1][i], -0.5f * s[0][i]) << i;
}

TEST(StretchSignal, VocoderChannelsKeepTheirTiming) {
    const size_t n = 40000;
    Signal music = Music(1, n, 2);
    std::vector<float> half(n);
    for (size_t i = 0; i < n; ++i)
        half[i] = 0.5f * music[0][i];
    auto tw = Make(400, 2, 1, 0, 1.25f);
    Signal s = Stretch(tw.get(), 400, Signal{music[0], half});
    for (size_t i = 0; i < s[0].size(); ++i)
        ASSERT_NEAR(s[1][i], 0.5f * s[0][i], 1e-5f) << i;
}

TEST(StretchSignal, BlockSizeChangesNoSample) {
    const size_t n = 30000;
    Signal in = Music(2, n, 3);
    for (int method : {0, 1}) {
        for (float ratio : {0.8f, 1.5f}) {
            auto ref = Make(256, 2, method, 1, ratio);
            Signal want = Stretch(ref.get(), 256, in);
            for (unsigned block : {1u, 37u, 1000u, 2047u}) {
                SCOPED_TRACE(testing::Message()
                             << "method " << method << ", ratio " << ratio << ", block " << block);
                auto tw = Make(block, 2, method, 1, ratio);
                Signal got = Stretch(tw.get(), block, in);
                // The last block is padded with silence, which only lengthens the tail.
                ASSERT_GE(got[0].size(), want[0].size() - 2048);
                for (unsigned c = 0; c < 2; ++c) {
                    const size_t common = std::min(got[c].size(), want[c].size());
                    ASSERT_TRUE(
                        std::equal(got[c].begin(), got[c].begin() + common, want[c].begin()))
                        << "channel " << c;
                }
            }
        }
    }
}

TEST(StretchSignal, VocoderAtRatioOneGivesTheInputTimesItsGain) {
    // Every bin advances by what it measured, so each frame comes back as it went in;
    // four frames over each other at hop 512 give the overlap gain.
    const size_t n = 20480;
    Signal in = Music(1, n, 4);
    for (int quality : {0, 2}) {
        auto tw = Make(512, 1, 1, quality, 1.0f);
        Signal out = Stretch(tw.get(), 512, in);
        const float gain = float(3 / (2 * std::sqrt(2.0)));
        for (size_t i = 2048; i < n - 4096; ++i)
            ASSERT_NEAR(out[0][i], gain * in[0][i], 2e-5f) << quality << " " << i;
    }
}
