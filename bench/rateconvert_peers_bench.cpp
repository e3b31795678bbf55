// The variable-ratio resampler beside common peers: 60 s of stereo float at 48,000 Hz to
// 44,100 Hz in one run, fed in blocks of 512 frames as the streaming converter feeds it.
//
// Counters: realtime_x is seconds of audio converted per second of processor time (the
// real-time factor). thdn_1k_dB and thdn_10k_dB are the quality figure, taken the same
// way for every converter (and the same way as for the fixed-ratio resampler): a sine of
// 1 kHz or 10 kHz at -6 dBFS through the converter, a least-squares fit of a sine of that
// frequency over 1.8 s of the first channel's output (a whole number of cycles), and the
// power of what the fit leaves over against the power of the fit (THD+N). Lower is
// better.
#include <benchmark/benchmark.h>

#include <samplerate.h>
#include <soxr.h>
#include <speex/speex_resampler.h>

#include <cmath>
#include <functional>
#include <memory>
#include <vector>

#include "audio/rateconvert.h"

namespace {

constexpr int kFrom = 48000, kTo = 44100, kChannels = 2, kBlock = 512;
constexpr double kSeconds = 60.0;

// Interleaved stereo; the two channels differ a little so that neither is a copy.
std::vector<float> Sine(double seconds, double hz) {
    std::vector<float> v(size_t(kFrom * seconds) * kChannels);
    for (size_t i = 0; i < v.size() / kChannels; ++i)
        for (int c = 0; c < kChannels; ++c)
            v[i * kChannels + c] =
                float(0.5 * std::sin(2.0 * M_PI * hz * double(i) / kFrom + 0.3 * c));
    return v;
}

// A converter: all of an interleaved input to interleaved output; the frames made.
using Convert = std::function<size_t(const std::vector<float>& in, std::vector<float>& out)>;

double ThdN(const std::vector<float>& y, size_t frames, double hz) {
    const size_t start = size_t(kTo) / 10, n = size_t(kTo) * 18 / 10;
    if (frames < start + n) return 0.0;
    const double w = 2.0 * M_PI * hz / kTo;
    double s = 0, c = 0, m = 0;
    for (size_t i = 0; i < n; ++i) {
        const double v = y[(start + i) * kChannels];
        s += v * std::sin(w * double(i));
        c += v * std::cos(w * double(i));
        m += v;
    }
    s *= 2.0 / double(n);
    c *= 2.0 / double(n);
    m /= double(n);
    double fit = 0, rest = 0;
    for (size_t i = 0; i < n; ++i) {
        const double f = s * std::sin(w * double(i)) + c * std::cos(w * double(i));
        const double r = y[(start + i) * kChannels] - m - f;
        fit += f * f;
        rest += r * r;
    }
    return 10.0 * std::log10(rest / fit);
}

size_t OutSize(const std::vector<float>& in) {
    return (in.size() / kChannels * kTo / kFrom + 8 * kBlock) * kChannels;
}

void Measure(benchmark::State& state, const Convert& convert) {
    for (double hz : {1000.0, 10000.0}) {
        const std::vector<float> probe = Sine(2.0, hz);
        std::vector<float> y(OutSize(probe));
        state.counters[hz == 1000.0 ? "thdn_1k_dB" : "thdn_10k_dB"] =
            ThdN(y, convert(probe, y), hz);
    }
    const std::vector<float> in = Sine(kSeconds, 1000.0);
    std::vector<float> out(OutSize(in));
    for (auto _ : state) {
        benchmark::DoNotOptimize(convert(in, out));
        benchmark::ClobberMemory();
    }
    state.counters["realtime_x"] =
        benchmark::Counter(double(state.iterations()) * kSeconds, benchmark::Counter::kIsRate);
}

// Planar blocks in and out, as the resampler takes them; the interleaving is part of the
// cost, as it is for a caller with interleaved audio.
void Kelp(benchmark::State& state) {
    Measure(state, [](const std::vector<float>& in, std::vector<float>& out) {
        std::unique_ptr<MATrateconvert> rc(MATrateconvert::Create(kBlock, kChannels));
        rc->setRatio(float(double(kFrom) / kTo));
        float bi[kChannels][kBlock], bo[kChannels][kBlock];
        float* ip[kChannels] = {bi[0], bi[1]};
        float* op[kChannels] = {bo[0], bo[1]};
        const size_t inFrames = in.size() / kChannels;
        const size_t want = inFrames * kTo / kFrom;
        size_t pos = 0, made = 0;
        bool full = false;
        while (made < want) {
            if (!full) {
                bool more;
                do {
                    for (int i = 0; i < kBlock; ++i, ++pos)
                        for (int c = 0; c < kChannels; ++c)
                            bi[c][i] = pos < inFrames ? in[pos * kChannels + c] : 0.0f;
                    more = rc->write(ip);
                } while (more);
            }
            full = rc->read(op);
            for (int i = 0; i < kBlock && made < want; ++i, ++made)
                for (int c = 0; c < kChannels; ++c) out[made * kChannels + c] = bo[c][i];
        }
        return made;
    });
}

void LibSamplerate(benchmark::State& state, int type) {
    Measure(state, [type](const std::vector<float>& in, std::vector<float>& out) {
        int err = 0;
        std::unique_ptr<SRC_STATE, SRC_STATE* (*)(SRC_STATE*)> s(src_new(type, kChannels, &err),
                                                                 src_delete);
        const size_t frames = in.size() / kChannels;
        size_t pos = 0, made = 0;
        for (;;) {
            SRC_DATA d{};
            const size_t n = std::min<size_t>(kBlock, frames - pos);
            d.data_in = in.data() + pos * kChannels;
            d.input_frames = long(n);
            d.data_out = out.data() + made * kChannels;
            d.output_frames = long(out.size() / kChannels - made);
            d.src_ratio = double(kTo) / kFrom;
            d.end_of_input = pos + n == frames;
            src_process(s.get(), &d);
            pos += size_t(d.input_frames_used);
            made += size_t(d.output_frames_gen);
            if (d.end_of_input && d.output_frames_gen == 0) break;
        }
        return made;
    });
}

void Speex(benchmark::State& state, int quality) {
    Measure(state, [quality](const std::vector<float>& in, std::vector<float>& out) {
        int err = 0;
        std::unique_ptr<SpeexResamplerState, void (*)(SpeexResamplerState*)> s(
            speex_resampler_init(kChannels, kFrom, kTo, quality, &err), speex_resampler_destroy);
        speex_resampler_skip_zeros(s.get());
        const size_t frames = in.size() / kChannels;
        size_t pos = 0, made = 0;
        while (pos < frames) {
            spx_uint32_t n = spx_uint32_t(std::min<size_t>(kBlock, frames - pos));
            spx_uint32_t o = spx_uint32_t(out.size() / kChannels - made);
            speex_resampler_process_interleaved_float(s.get(), in.data() + pos * kChannels, &n,
                                                      out.data() + made * kChannels, &o);
            pos += n;
            made += o;
        }
        return made;
    });
}

void Soxr(benchmark::State& state, unsigned long recipe) {
    Measure(state, [recipe](const std::vector<float>& in, std::vector<float>& out) {
        const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
        const soxr_quality_spec_t q = soxr_quality_spec(recipe, 0);
        const soxr_runtime_spec_t rt = soxr_runtime_spec(1);
        soxr_error_t err = nullptr;
        std::unique_ptr<soxr, void (*)(soxr_t)> s(
            soxr_create(kFrom, kTo, kChannels, &err, &io, &q, &rt), soxr_delete);
        const size_t frames = in.size() / kChannels;
        size_t pos = 0, made = 0;
        for (;;) {
            const size_t n = std::min<size_t>(kBlock, frames - pos);
            size_t done = 0, o = 0;
            soxr_process(s.get(), n ? in.data() + pos * kChannels : nullptr, n, &done,
                         out.data() + made * kChannels, out.size() / kChannels - made, &o);
            pos += done;
            made += o;
            if (n == 0 && o == 0) break;
        }
        return made;
    });
}

} // namespace

BENCHMARK(Kelp)->Name("VarRate/kelp_MATrateconvert")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(LibSamplerate, sinc_fastest, SRC_SINC_FASTEST)
    ->Name("VarRate/libsamplerate_sinc_fastest")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Speex, quality_3, 3)->Name("VarRate/speexdsp_q3")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Speex, quality_5, 5)->Name("VarRate/speexdsp_q5")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Soxr, low, SOXR_LQ)->Name("VarRate/soxr_low")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Soxr, medium, SOXR_MQ)->Name("VarRate/soxr_medium")->Unit(benchmark::kMillisecond);
