// Signal helpers of the resampler tests: a driver that runs a whole signal through a
// MATrateconvert as a streaming caller would, and a least-squares sine analysis.
#pragma once

#include <cmath>
#include <functional>
#include <vector>

#include "audio/rateconvert.h"

namespace varrate {

constexpr double kPi = 3.14159265358979323846;

// Runs `in` (one vector per channel, equal lengths) through `rc` in blocks of
// blockSize: writes while the resampler asks for more, reads otherwise, as the
// streaming converter does, until `frames` output frames are made. Input past the end
// is silence. `between` runs after every read (for servo tests).
inline std::vector<std::vector<float>> Run(MATrateconvert* rc, int blockSize,
                                           const std::vector<std::vector<float>>& in, size_t frames,
                                           const std::function<void()>& between = {}) {
    const size_t channels = in.size();
    std::vector<std::vector<float>> out(channels);
    std::vector<std::vector<float>> inBlock(channels, std::vector<float>(blockSize));
    std::vector<std::vector<float>> outBlock(channels, std::vector<float>(blockSize));
    std::vector<float*> inPtr(channels), outPtr(channels);
    for (size_t c = 0; c < channels; ++c) {
        inPtr[c] = inBlock[c].data();
        outPtr[c] = outBlock[c].data();
    }
    size_t pos = 0;
    bool full = false;
    while (out[0].size() < frames) {
        if (!full) {
            bool more;
            do {
                for (size_t c = 0; c < channels; ++c)
                    for (int i = 0; i < blockSize; ++i)
                        inBlock[c][i] = pos + i < in[c].size() ? in[c][pos + i] : 0.0f;
                pos += blockSize;
                more = rc->write(inPtr.data());
            } while (more);
        }
        full = rc->read(outPtr.data());
        for (size_t c = 0; c < channels; ++c)
            out[c].insert(out[c].end(), outBlock[c].begin(), outBlock[c].end());
        if (between) between();
    }
    for (auto& o : out)
        o.resize(frames);
    return out;
}

inline std::vector<float> Sine(size_t n, double cyclesPerFrame, double amplitude = 0.5,
                               double phase = 0.0) {
    std::vector<float> v(n);
    for (size_t i = 0; i < n; ++i)
        v[i] = float(amplitude * std::sin(2 * kPi * cyclesPerFrame * double(i) + phase));
    return v;
}

struct SineFit {
    double amplitude;   // of the fitted sine
    double phase;       // of the fitted sine, radians, at index `first`
    double residualRms; // of what the sine does not explain
    double snrDb;       // fitted power over residual power
};

// Least-squares fit of a*cos + b*sin + dc at a known frequency over x[first, last).
// cos and sin come from a rotating phasor, renormalised now and then.
inline SineFit FitSine(const std::vector<float>& x, size_t first, size_t last,
                       double cyclesPerFrame) {
    const double w = 2 * kPi * cyclesPerFrame;
    const double cw = std::cos(w), sw = std::sin(w);
    auto basis = [&](auto&& visit) {
        double c = 1, s = 0;
        for (size_t i = first; i < last; ++i) {
            visit(i, c, s);
            double nc = c * cw - s * sw;
            s = s * cw + c * sw;
            c = nc;
            if ((i & 1023) == 0) {
                double k = 1 / std::hypot(c, s);
                c *= k;
                s *= k;
            }
        }
    };
    // Normal equations of the three basis functions.
    double m[3][3] = {}, r[3] = {};
    basis([&](size_t i, double c, double s) {
        double b[3] = {c, s, 1.0};
        for (int p = 0; p < 3; ++p) {
            r[p] += b[p] * x[i];
            for (int q = 0; q < 3; ++q)
                m[p][q] += b[p] * b[q];
        }
    });
    // Gaussian elimination, 3x3.
    for (int p = 0; p < 3; ++p) {
        for (int q = p + 1; q < 3; ++q) {
            double f = m[q][p] / m[p][p];
            for (int s = p; s < 3; ++s)
                m[q][s] -= f * m[p][s];
            r[q] -= f * r[p];
        }
    }
    double k[3];
    for (int p = 2; p >= 0; --p) {
        double s = r[p];
        for (int q = p + 1; q < 3; ++q)
            s -= m[p][q] * k[q];
        k[p] = s / m[p][p];
    }
    double res = 0;
    basis([&](size_t i, double c, double s) {
        double e = x[i] - (k[0] * c + k[1] * s + k[2]);
        res += e * e;
    });
    SineFit fit;
    fit.amplitude = std::hypot(k[0], k[1]);
    fit.phase = std::atan2(k[0], k[1]);
    fit.residualRms = std::sqrt(res / double(last - first));
    double sig = fit.amplitude * fit.amplitude / 2;
    fit.snrDb = 10 * std::log10(sig / std::max(fit.residualRms * fit.residualRms, 1e-30));
    return fit;
}

// The frequency (cycles per frame) near `guess` whose fitted sine explains most of
// x[first, last): a golden-section search over +-span.
inline double MeasureFrequency(const std::vector<float>& x, size_t first, size_t last, double guess,
                               double span) {
    double lo = guess - span, hi = guess + span;
    const double g = (std::sqrt(5.0) - 1) / 2;
    double a = hi - g * (hi - lo), b = lo + g * (hi - lo);
    double fa = FitSine(x, first, last, a).amplitude, fb = FitSine(x, first, last, b).amplitude;
    for (int it = 0; it < 30; ++it) {
        if (fa > fb) {
            hi = b;
            b = a;
            fb = fa;
            a = hi - g * (hi - lo);
            fa = FitSine(x, first, last, a).amplitude;
        } else {
            lo = a;
            a = b;
            fa = fb;
            b = lo + g * (hi - lo);
            fb = FitSine(x, first, last, b).amplitude;
        }
    }
    return (lo + hi) / 2;
}

// Level of the component at one frequency, as an amplitude (a Hann-windowed DFT bin,
// scaled so that a sine of amplitude A on a bin reads A).
inline double ToneLevel(const std::vector<float>& x, size_t first, size_t last,
                        double cyclesPerFrame) {
    const size_t n = last - first;
    double re = 0, im = 0, wsum = 0;
    for (size_t i = 0; i < n; ++i) {
        double win = 0.5 - 0.5 * std::cos(2 * kPi * (double(i) + 0.5) / double(n));
        double ph = 2 * kPi * cyclesPerFrame * double(i);
        re += win * x[first + i] * std::cos(ph);
        im += win * x[first + i] * std::sin(ph);
        wsum += win;
    }
    return 2 * std::hypot(re, im) / wsum;
}

} // namespace varrate
