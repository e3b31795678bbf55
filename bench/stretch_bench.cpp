// The time stretchers beside common peers: 60 s of stereo float at 44,100 Hz made a
// quarter longer (ratio 1.25) in one run, fed in blocks of 512 frames as a host feeds a
// stretcher. SoundTouch runs with its default settings and with quick seek; Rubber Band
// with its R2 ("faster") and R3 ("finer") engines in real-time mode.
//
// Counters: realtime_x is seconds of input stretched per second of processor time;
// ratio_out is the output length over the input length that each one delivered.
#include <benchmark/benchmark.h>

#include <SoundTouch.h>
#include <rubberband/RubberBandStretcher.h>

#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <type_traits>
#include <vector>

#include <kelp/timewarp.h>

namespace {

constexpr int kRate = 44100, kChannels = 2, kBlock = 512;
constexpr double kSeconds = 60.0, kRatio = 1.25;

// Planar stereo: a few tones, a slow sweep and some noise, different per channel.
const std::vector<std::vector<float>>& Input() {
    static const std::vector<std::vector<float>> in = [] {
        const size_t n = size_t(kRate * kSeconds);
        std::vector<std::vector<float>> v(kChannels, std::vector<float>(n));
        std::mt19937 rng(1);
        std::uniform_real_distribution<float> noise(-0.02f, 0.02f);
        for (int c = 0; c < kChannels; ++c)
            for (size_t i = 0; i < n; ++i) {
                const double t = double(i) / kRate;
                v[c][i] = float(0.25 * std::sin(2 * M_PI * 220.0 * t + c) +
                                0.15 * std::sin(2 * M_PI * 1250.0 * t) +
                                0.1 * std::sin(2 * M_PI * (300.0 + 40.0 * t) * t)) +
                          noise(rng);
            }
        return v;
    }();
    return in;
}

// A stretcher: all of the input; the frames made.
using Run = std::function<size_t()>;

void Measure(benchmark::State& state, const Run& run) {
    Input(); // made once, outside the timing
    size_t frames = 0;
    for (auto _ : state)
        frames = run();
    state.counters["realtime_x"] =
        benchmark::Counter(double(state.iterations()) * kSeconds, benchmark::Counter::kIsRate);
    state.counters["ratio_out"] = double(frames) / (kRate * kSeconds);
}

size_t Kelp(int method, int quality) {
    const auto& in = Input();
    std::unique_ptr<MATtimewarp> tw(MATtimewarp::Create(kBlock, kChannels, method));
    tw->setQuality(quality);
    tw->setStretch(float(kRatio));
    std::vector<std::vector<float>> inBlock(kChannels, std::vector<float>(kBlock));
    std::vector<std::vector<float>> outBlock(kChannels, std::vector<float>(kBlock));
    float* inPtr[kChannels];
    float* outPtr[kChannels];
    for (int c = 0; c < kChannels; ++c) {
        inPtr[c] = inBlock[c].data();
        outPtr[c] = outBlock[c].data();
    }
    size_t made = 0;
    const size_t n = in[0].size();
    for (size_t pos = 0; pos < n; pos += kBlock) {
        for (int c = 0; c < kChannels; ++c)
            for (size_t i = 0; i < size_t(kBlock); ++i)
                inBlock[c][i] = pos + i < n ? in[c][pos + i] : 0.0f;
        if (!tw->write(inPtr)) {
            bool more;
            do {
                more = tw->read(outPtr);
                made += kBlock;
                benchmark::DoNotOptimize(outBlock[0][0]);
            } while (more);
        }
    }
    for (int calls = 0; calls < 1000 && tw->flush(outPtr) != 0; ++calls)
        made += kBlock;
    return made;
}

static_assert(std::is_same<soundtouch::SAMPLETYPE, float>::value, "float SoundTouch");

size_t SoundTouchRun(bool quickSeek) {
    const auto& in = Input();
    soundtouch::SoundTouch st;
    st.setSampleRate(kRate);
    st.setChannels(kChannels);
    st.setTempo(float(1.0 / kRatio));
    if (quickSeek) st.setSetting(SETTING_USE_QUICKSEEK, 1);
    std::vector<float> inter(size_t(kBlock) * kChannels);
    std::vector<float> out(size_t(kBlock) * kChannels * 4);
    const size_t n = in[0].size();
    size_t made = 0;
    auto drain = [&] {
        unsigned got;
        while ((got = st.receiveSamples(out.data(), unsigned(out.size() / kChannels))) != 0)
            made += got;
    };
    for (size_t pos = 0; pos < n; pos += kBlock) {
        const size_t count = std::min<size_t>(kBlock, n - pos);
        for (size_t i = 0; i < count; ++i)
            for (int c = 0; c < kChannels; ++c)
                inter[i * kChannels + c] = in[c][pos + i];
        st.putSamples(inter.data(), unsigned(count));
        drain();
    }
    st.flush();
    drain();
    return made;
}

size_t RubberBandRun(bool finer) {
    const auto& in = Input();
    using RB = RubberBand::RubberBandStretcher;
    RB rb(kRate, kChannels,
          RB::OptionProcessRealTime | (finer ? RB::OptionEngineFiner : RB::OptionEngineFaster),
          kRatio, 1.0);
    std::vector<std::vector<float>> out(kChannels, std::vector<float>(size_t(kBlock) * 4));
    float* outPtr[kChannels];
    for (int c = 0; c < kChannels; ++c)
        outPtr[c] = out[c].data();
    const size_t n = in[0].size();
    size_t made = 0;
    auto drain = [&] {
        int avail;
        while ((avail = rb.available()) > 0)
            made += rb.retrieve(outPtr, std::min<size_t>(size_t(avail), out[0].size()));
    };
    for (size_t pos = 0; pos < n; pos += kBlock) {
        const size_t count = std::min<size_t>(kBlock, n - pos);
        const float* inPtr[kChannels];
        for (int c = 0; c < kChannels; ++c)
            inPtr[c] = in[c].data() + pos;
        rb.process(inPtr, count, pos + count >= n);
        drain();
    }
    drain();
    return made;
}

} // namespace

BENCHMARK_CAPTURE(Measure, kelp_wsola_q0, [] { return Kelp(0, 0); })
    ->Name("Stretch/kelp_wsola_q0")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Measure, kelp_wsola_q1, [] { return Kelp(0, 1); })
    ->Name("Stretch/kelp_wsola_q1")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Measure, kelp_wsola_q2, [] { return Kelp(0, 2); })
    ->Name("Stretch/kelp_wsola_q2")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Measure, kelp_vocoder_q0, [] { return Kelp(1, 0); })
    ->Name("Stretch/kelp_vocoder_q0")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Measure, kelp_vocoder_q1, [] { return Kelp(1, 1); })
    ->Name("Stretch/kelp_vocoder_q1")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Measure, soundtouch_default, [] { return SoundTouchRun(false); })
    ->Name("Stretch/soundtouch_default")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Measure, soundtouch_quickseek, [] { return SoundTouchRun(true); })
    ->Name("Stretch/soundtouch_quickseek")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Measure, rubberband_r2, [] { return RubberBandRun(false); })
    ->Name("Stretch/rubberband_r2")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Measure, rubberband_r3, [] { return RubberBandRun(true); })
    ->Name("Stretch/rubberband_r3")
    ->Unit(benchmark::kMillisecond);
