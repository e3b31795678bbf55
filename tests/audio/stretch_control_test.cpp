// The stretchers' settings and bookkeeping: the factory, stretch and quality, the
// parameters, the vocoder's hops and gains, the search and the write, read and flush
// protocol.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "stretch_driver.h"

using stretchtest::Make;
using stretchtest::Signal;
using stretchtest::Stretch;

namespace {

TWwsola* Wsola(const std::unique_ptr<MATtimewarpImp>& tw) {
    return static_cast<TWwsola*>(tw.get());
}
TWPhaseVocoder* Vocoder(const std::unique_ptr<MATtimewarpImp>& tw) {
    return static_cast<TWPhaseVocoder*>(tw.get());
}

Signal Noise(unsigned channels, size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> uni(-0.5f, 0.5f);
    Signal s(channels, std::vector<float>(n));
    for (auto& ch : s)
        for (float& x : ch)
            x = uni(rng);
    return s;
}

} // namespace

TEST(TimeWarp, FactoryTakesTwoMethodsAndSaneSizes) {
    struct Case {
        unsigned block, channels;
        int method;
        bool made;
    } cases[] = {
        {512, 2, 0, true},  {512, 2, 1, true},   {512, 2, 2, false},  {512, 2, -1, false},
        {0, 2, 0, false},   {2047, 1, 1, true},  {2048, 1, 0, false}, {512, 0, 0, false},
        {512, 64, 1, true}, {512, 65, 0, false},
    };
    for (const Case& c : cases) {
        std::unique_ptr<MATtimewarp> tw(MATtimewarp::Create(c.block, c.channels, c.method));
        EXPECT_EQ(tw != nullptr, c.made) << c.block << " " << c.channels << " " << c.method;
    }
}

TEST(TimeWarp, WsolaQualityAndStretch) {
    auto tw = Make(256, 1, 0, 2, 2.0f);
    TWwsola* w = Wsola(tw);
    EXPECT_EQ(w->hop(), 512); // four segments over each other, each windowed by half
    EXPECT_FLOAT_EQ(w->window()->window()[1024], 0.5f);
    EXPECT_FLOAT_EQ(w->stretch(), 0.5f); // input step per output step
    w->setStretch(0.0f);
    EXPECT_FLOAT_EQ(w->stretch(), 0.5f); // ignored
    w->setStretch(100.0f);
    EXPECT_FLOAT_EQ(w->stretch(), 0.25f); // clipped to 4
    w->setQuality(9);                     // any other level: the fastest search
    EXPECT_EQ(w->hop(), 1024);
    w->setStretch(2.0f);
    EXPECT_EQ(w->process(), 1024); // the input one full step takes
}

TEST(TimeWarp, StretchParameterAndPitch) {
    struct Case {
        int index;
        float value, stretch, pitch;
    } cases[] = {
        {0, 0.0f, 0.5f, 1.0f},
        {0, 0.5f, 1.0f, 1.0f},
        {0, 1.0f, 2.0f, 1.0f},
        {1, 0.5f, 1.0f, 1.0f},
        {1, 1.0f, 1.0f, 2.0f},
        {1, 0.0f, 1.0f, 0.5f},
        {1, 9.0f, 1.0f, 2.0f},  // an octave at most
        {1, 0.52f, 1.0f, 1.0f}, // 0.48 semitone rounds to none
        {1, 0.53f, 1.0f, std::pow(2.0f, 1.0f / 12.0f)},
        {5, 0.0f, 1.0f, 1.0f}, // ignored
        {0, NAN, 1.0f, 1.0f},
        {1, NAN, 1.0f, 1.0f},
    };
    for (const Case& c : cases) {
        auto tw = Make(256, 1, 1, 0, 1.0f);
        tw->setParam(c.index, c.value);
        EXPECT_FLOAT_EQ(tw->stretch(), c.stretch) << c.index << " " << c.value;
        EXPECT_NEAR(tw->pitch(), c.pitch, 4e-6f) << c.index << " " << c.value;
    }
    // WSOLA keeps no pitch at all.
    auto w = Make(256, 1, 0, 0, 1.0f);
    w->setParam(1, 1.0f);
    EXPECT_EQ(w->pitch(), 1.0f);
}

TEST(TimeWarp, VocoderHopsAndGains) {
    struct Case {
        int quality;
        float stretch;
        unsigned analysis, synthesis, overlap;
        float achieved, gain;
    } cases[] = {
        {0, 1.0f, 512, 512, 4, 1.0f, 512 * 2.8284271f / 2048},
        {0, 1.5f, 512, 768, 4, 1.5f, 1.0606601f},
        {0, 1.0001f, 512, 512, 4, 1.0f, 0.70710677f}, // truncated to the hop
        {0, 0.8f, 512, 409, 4, 409.0f / 512, 409 * 2.8284271f / 2048},
        {1, 2.0f, 256, 512, 8, 2.0f, 0.70710677f},
        {2, 1.25f, 128, 160, 16, 1.25f, 160 * 2.8284271f / 2048},
        {0, 3.0f, 512, 1024, 4, 2.0f, 1.4142135f}, // clipped to 2
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.quality << " " << c.stretch);
        auto tw = Make(256, 1, 1, c.quality, c.stretch);
        TWPhaseVocoder* v = Vocoder(tw);
        EXPECT_EQ(v->analysisHop(), c.analysis);
        EXPECT_EQ(v->synthesisHop(), c.synthesis);
        EXPECT_EQ(v->overlap(), c.overlap);
        EXPECT_FLOAT_EQ(v->stretch(), c.achieved);
        EXPECT_FLOAT_EQ(v->gain(), c.gain);
        EXPECT_EQ(v->process(), int(c.synthesis * c.overlap));
    }
    // A later quality level undoes the hops of a stretch, and gain, but keeps _stretch.
    auto tw = Make(256, 1, 1, 0, 1.5f);
    tw->setQuality(1);
    EXPECT_EQ(Vocoder(tw)->synthesisHop(), 256u);
    EXPECT_EQ(Vocoder(tw)->gain(), 1.0f);
    EXPECT_FLOAT_EQ(tw->stretch(), 1.5f);
}

TEST(TimeWarp, PrincipalValueRoundsToEvenMultiples) {
    auto tw = Make(256, 1, 1, 0, 1.0f);
    TWPhaseVocoder* v = Vocoder(tw);
    const float pi = 3.14159274f;
    struct Case {
        float x, want;
    } cases[] = {
        {3.5f, 3.5f - 2 * pi}, {-3.5f, -3.5f + 2 * pi},
        {0.5f, 0.5f},          {-0.5f, -0.5f},
        {7.0f, 7.0f - 2 * pi}, {10.0f, 10.0f - 4 * pi},
        {0.0f, 0.0f},          {NAN, 0.0f}, // no phase at all
    };
    for (const Case& c : cases)
        EXPECT_NEAR(v->principalValue(c.x), c.want, 1e-6f) << c.x;
}

TEST(TimeWarp, SilenceKeepsOffsetAndPhases) {
    // WSOLA: no correlation is positive, so the offset stays 0.
    auto w = Make(512, 2, 0, 0, 1.25f);
    Signal silence(2, std::vector<float>(30000, 0.0f));
    Signal out = Stretch(w.get(), 512, silence);
    EXPECT_EQ(Wsola(w)->offset(), 0);
    for (float x : out[1])
        ASSERT_EQ(x, 0.0f);

    // Vocoder: the analysis phases stay and the frame stays silent; the synthesis
    // phases move by the whole turns that wrapping the nominal advance leaves.
    auto tw = Make(512, 1, 1, 0, 1.5f);
    TWPhaseVocoder* v = Vocoder(tw);
    Fvec frame(2048);
    v->phaseStep(frame, 0);
    const float omega = 512 * 2 * 3.14159274f / 2048;
    for (unsigned k = 0; k < 1024; ++k) {
        ASSERT_EQ(v->analysisPhase(0)[k], 0.0f);
        ASSERT_EQ(frame[2 * k], 0.0f);
        const float e = float(k) * omega;
        const float turns = v->principalValue(-e) + e;
        ASSERT_NEAR(std::remainder(turns, 2 * 3.14159274f), 0.0f, 1e-3f) << k;
        ASSERT_NEAR(v->synthesisPhase(0)[k], v->principalValue(turns * 1.5f), 1e-6f) << k;
    }
}

TEST(TimeWarp, SearchFindsTheFirstBestOffset) {
    std::vector<float> ref(2048), cand(2048);
    // A reference that is the candidate moved on by 33 frames; the search finds it on a
    // grid of 1 and the nearest grid point below on a grid of 3.
    for (int i = 0; i < 2048; ++i)
        ref[i] = std::sin(0.05f * float(i)) + 0.3f * std::sin(0.31f * float(i));
    for (int i = 0; i < 2048 - 33; ++i)
        cand[i] = ref[i + 33];
    EXPECT_EQ(TWwsola::Search(ref.data(), cand.data(), 100, 500, 1, 1), 33);
    EXPECT_EQ(TWwsola::Search(ref.data(), cand.data(), 300, 420, 3, 4), 33);
    // All correlations equal: the first offset is kept.
    std::vector<float> flat(2048, 1.0f);
    EXPECT_EQ(TWwsola::Search(flat.data(), flat.data(), 300, 420, 3, 12), -300);
    // Nothing positive: 0.
    std::vector<float> neg(2048, -1.0f);
    EXPECT_EQ(TWwsola::Search(flat.data(), neg.data(), 300, 420, 3, 12), 0);
}

TEST(TimeWarp, FlushEndsWithZeroAndResetClearsState) {
    for (int method : {0, 1}) {
        SCOPED_TRACE(method);
        auto tw = Make(300, 2, method, 0, 1.25f);
        Signal in = Noise(2, 20000, 3);
        Signal out = Stretch(tw.get(), 300, in);
        EXPECT_GT(out[0].size(), 20000u);
        std::vector<float> a(300), b(300);
        float* ptr[] = {a.data(), b.data()};
        int calls = 0;
        while (tw->flush(ptr) != 0 && calls < 100)
            ++calls;
        EXPECT_LT(calls, 100);
    }
    // After reset a vocoder gives what a new one gives from the same ring position on.
    auto used = Make(256, 1, 1, 0, 1.0f);
    auto fresh = Make(256, 1, 1, 0, 1.0f);
    Signal noise = Noise(1, 9000, 5);
    Stretch(used.get(), 256, noise);
    used->reset();
    Fvec frame(2048);
    for (unsigned i = 0; i < 2048; ++i)
        frame[i] = noise[0][i];
    Fvec same(frame);
    Vocoder(used)->phaseStep(frame, 0);
    Vocoder(fresh)->phaseStep(same, 0);
    for (unsigned i = 0; i < 2048; ++i)
        ASSERT_EQ(frame[i], same[i]) << i;
}

TEST(TimeWarp, PitchChangesNoOutput) {
    for (int method : {0, 1}) {
        Signal in = Noise(1, 15000, 11);
        auto a = Make(512, 1, method, 0, 1.25f);
        auto b = Make(512, 1, method, 0, 1.25f);
        b->setPitch(1.5f);
        b->setParam(1, 0.9f);
        EXPECT_EQ(Stretch(a.get(), 512, in), Stretch(b.get(), 512, in)) << method;
    }
}

TEST(TimeWarp, HostileSamplesEndNormally) {
    // Not-a-number, infinities, huge and denormal values: every step still runs and
    // flush still ends, at every quality level.
    Signal in = Noise(2, 24000, 9);
    const float bad[] = {NAN, INFINITY, -INFINITY, 3e38f, -3e38f, 1e-42f};
    for (size_t i = 0; i < in[0].size(); i += 97)
        in[i % 2][i] = bad[(i / 97) % 6];
    for (int method : {0, 1})
        for (int quality : {0, 1, 2}) {
            auto tw = Make(300, 2, method, quality, 1.3f);
            Signal out = Stretch(tw.get(), 300, in);
            EXPECT_GT(out[0].size(), 24000u) << method << " " << quality;
        }
}
