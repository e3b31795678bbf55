// The fixed-ratio resampler beside common peers: 60 s of 16-bit mono at 44,100 Hz to
// 48,000 Hz, in blocks of 4,096 samples as a player would feed it.
//
// Counters: realtime_x is seconds of audio converted per second of processor time (the
// real-time factor), Msamples_s source samples per second. thdn_1k_dB and thdn_10k_dB
// are the quality figures, taken the same way for every converter: a sine of 1 kHz or
// 10 kHz at -6 dBFS through the converter, a least-squares fit of a sine of that
// frequency over 1.8 s of the output (a whole number of cycles), and the power of what
// the fit leaves over against the power of the fit (THD+N). Lower is better.
#include <benchmark/benchmark.h>

#include <kelp/samrate.h>

#include <samplerate.h>
#include <soxr.h>
#include <speex/speex_resampler.h>

#include <cmath>
#include <functional>
#include <memory>
#include <vector>

namespace {

constexpr int kBlock = 4096;
constexpr double kSeconds = 60.0;

// Converts `in` block by block; `step` takes n inputs and returns the outputs it wrote.
using Step = std::function<size_t(const short* in, size_t n, short* out)>;

std::vector<short> Sine(int rate, double seconds, double hz) {
    std::vector<short> v(size_t(rate * seconds));
    for (size_t i = 0; i < v.size(); ++i)
        v[i] = short(std::lround(16384.0 * std::sin(2.0 * M_PI * hz * double(i) / rate)));
    return v;
}

size_t RunAll(const std::vector<short>& in, std::vector<short>& out, const Step& step) {
    size_t o = 0;
    for (size_t at = 0; at < in.size(); at += kBlock) {
        const size_t n = std::min<size_t>(kBlock, in.size() - at);
        o += step(in.data() + at, n, out.data() + o);
    }
    return o;
}

double ThdN(const std::vector<short>& y, size_t count, int rate, double hz) {
    // 0.1 s in, 1.8 s long: a whole number of cycles, so sine, cosine and the mean are
    // orthogonal and the fit is three projections.
    const size_t start = size_t(rate) / 10, n = size_t(rate) * 18 / 10;
    if (count < start + n) return 0.0;
    const double w = 2.0 * M_PI * hz / rate;
    double s = 0, c = 0, m = 0;
    for (size_t i = 0; i < n; ++i) {
        const double v = y[start + i];
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
        const double r = y[start + i] - m - f;
        fit += f * f;
        rest += r * r;
    }
    return 10.0 * std::log10(rest / fit);
}

// One converter: `make` gives a fresh step function (with its state) for each run.
// The quality figures are taken where the converter keeps the rate exactly.
void Measure(benchmark::State& state, int from, int to, const std::function<Step()>& make,
             bool quality = true) {
    const std::vector<short> in = Sine(from, kSeconds, 1000.0);
    std::vector<short> out(in.size() * size_t(to) / size_t(from) + 16 * kBlock);
    for (double hz : {1000.0, 10000.0}) {
        if (!quality) break;
        const std::vector<short> probe = Sine(from, 2.0, hz);
        std::vector<short> y(probe.size() * size_t(to) / size_t(from) + 16 * kBlock);
        const double figure = ThdN(y, RunAll(probe, y, make()), to, hz);
        state.counters[hz == 1000.0 ? "thdn_1k_dB" : "thdn_10k_dB"] = figure;
    }
    for (auto _ : state) {
        Step step = make();
        benchmark::DoNotOptimize(RunAll(in, out, step));
        benchmark::ClobberMemory();
    }
    const double runs = double(state.iterations());
    state.counters["realtime_x"] = benchmark::Counter(runs * kSeconds, benchmark::Counter::kIsRate);
    state.counters["Msamples_s"] =
        benchmark::Counter(runs * double(in.size()) / 1e6, benchmark::Counter::kIsRate);
}

void Kelp(benchmark::State& state, int from, int to, bool quality) {
    Measure(
        state, from, to,
        [from, to]() -> Step {
            auto c = std::make_shared<kelp::CSamRateCon>(kelp::CSamRateCon::FindMode(from, to));
            return [c](const short* in, size_t n, short* out) {
                return size_t(c->Convert(in, out, uint32_t(n), 0, 1));
            };
        },
        quality);
}

void LibSamplerate(benchmark::State& state, int type) {
    Measure(state, 44100, 48000, [type]() -> Step {
        int err = 0;
        std::shared_ptr<SRC_STATE> s(src_new(type, 1, &err), src_delete);
        auto fin = std::make_shared<std::vector<float>>(kBlock);
        auto fout = std::make_shared<std::vector<float>>(2 * kBlock);
        return [s, fin, fout](const short* in, size_t n, short* out) {
            src_short_to_float_array(in, fin->data(), int(n));
            SRC_DATA d{};
            d.data_in = fin->data();
            d.input_frames = long(n);
            d.data_out = fout->data();
            d.output_frames = long(fout->size());
            d.src_ratio = 48000.0 / 44100.0;
            src_process(s.get(), &d);
            src_float_to_short_array(fout->data(), out, int(d.output_frames_gen));
            return size_t(d.output_frames_gen);
        };
    });
}

void Speex(benchmark::State& state, int quality) {
    Measure(state, 44100, 48000, [quality]() -> Step {
        int err = 0;
        std::shared_ptr<SpeexResamplerState> s(speex_resampler_init(1, 44100, 48000, quality, &err),
                                               speex_resampler_destroy);
        speex_resampler_skip_zeros(s.get());
        return [s](const short* in, size_t n, short* out) {
            spx_uint32_t inLen = spx_uint32_t(n), outLen = spx_uint32_t(2 * n + 16);
            speex_resampler_process_int(s.get(), 0, in, &inLen, out, &outLen);
            return size_t(outLen);
        };
    });
}

void Soxr(benchmark::State& state, unsigned long recipe) {
    Measure(state, 44100, 48000, [recipe]() -> Step {
        const soxr_io_spec_t io = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
        const soxr_quality_spec_t q = soxr_quality_spec(recipe, 0);
        const soxr_runtime_spec_t rt = soxr_runtime_spec(1);
        soxr_error_t err = nullptr;
        std::shared_ptr<soxr> s(soxr_create(44100, 48000, 1, &err, &io, &q, &rt), soxr_delete);
        return [s](const short* in, size_t n, short* out) {
            size_t done = 0, made = 0;
            soxr_process(s.get(), in, n, &done, out, 2 * n + 16, &made);
            return made;
        };
    });
}

} // namespace

BENCHMARK_CAPTURE(Kelp, 44100_to_48000, 44100, 48000, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(LibSamplerate, linear, SRC_LINEAR)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(LibSamplerate, sinc_fastest, SRC_SINC_FASTEST)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Speex, quality_0, 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Speex, quality_3, 3)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Soxr, quick, SOXR_QQ)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Soxr, low, SOXR_LQ)->Unit(benchmark::kMillisecond);
// Other modes of the resampler, for their speed.
BENCHMARK_CAPTURE(Kelp, 48000_to_44100, 48000, 44100, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Kelp, 11025_to_44100, 11025, 44100, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Kelp, 44100_to_22050, 44100, 22050, true)->Unit(benchmark::kMillisecond);
