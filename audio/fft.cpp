// The in-place real transform: a complex radix-2 decimation-in-time transform of N/2
// points with a bit-reversal permutation, and the split of its result into the half
// spectrum of N reals (or the merge before it, for the inverse).
//
// The twiddle factors follow the recurrence w += w * (-2 sin^2(theta/2) + i sin theta),
// started at 1 for every stage and run in double precision; they are kept in a table
// as floats, so that each butterfly is a fixed sequence of single-precision products
// and sums whatever order the butterflies are done in.
#include <kelp/timewarp.h>

#include <cmath>
#include <iostream>
#include <new>
#include <utility>

namespace {

bool IsPowerOfTwo(unsigned n) {
    return n >= 4 && (n & (n - 1)) == 0;
}

// Fills `count` twiddle pairs of the angle step theta by the recurrence.
float* Recur(float* table, unsigned count, double theta, bool skipFirst) {
    const double half = std::sin(0.5 * theta);
    const double wpr = -2.0 * half * half;
    const double wpi = std::sin(theta);
    double wr = 1.0, wi = 0.0;
    if (skipFirst) {
        wr = 1.0 + wpr;
        wi = wpi;
    }
    for (unsigned m = 0; m < count; ++m) {
        *table++ = float(wr);
        *table++ = float(wi);
        const double t = wr;
        wr = wr * wpr - wi * wpi + wr;
        wi = wi * wpr + t * wpi + wi;
    }
    return table;
}

} // namespace

FFT::FFT() : FFT(2048, true) {}

FFT::FFT(unsigned size, bool forward)
    : VectorOps(size), _forward(forward ? 1 : 0), _twiddles(nullptr) {
    _name = "FFT";
    _outSize = size + 2;
    if (!IsPowerOfTwo(size)) return;
    // n/2 - 1 pairs for the stages of the complex pass, n/4 - 1 for the split.
    _twiddles = new (std::nothrow) float[size + size / 2];
    if (!_twiddles) return;
    const double sign = forward ? 1.0 : -1.0;
    float* t = _twiddles;
    for (unsigned mmax = 2; mmax < size; mmax *= 2)
        t = Recur(t, mmax / 2, sign * (double(_twoPi) / double(mmax)), false);
    Recur(t, size / 4 - 1, sign * (double(_pi) / double(size / 2)), true);
}

FFT::~FFT() {
    delete[] _twiddles;
}

void FFT::complexPass(float* d, unsigned n, bool forward) const {
    // Bit-reversal permutation of the n/2 complex points.
    for (unsigned i = 0, j = 0; i < n; i += 2) {
        if (j > i) {
            std::swap(d[j], d[i]);
            std::swap(d[j + 1], d[i + 1]);
        }
        unsigned m = n >> 1;
        while (m >= 2 && j >= m) {
            j -= m;
            m >>= 1;
        }
        j += m;
    }
    const float* w = _twiddles;
    for (unsigned mmax = 2; mmax < n; mmax *= 2) {
        const unsigned istep = mmax * 2;
        for (unsigned m = 0; m < mmax; m += 2) {
            const float wr = w[m], wi = w[m + 1];
            for (unsigned i = m; i < n; i += istep) {
                const unsigned j = i + mmax;
                const float tr = wr * d[j] - wi * d[j + 1];
                const float ti = wr * d[j + 1] + wi * d[j];
                d[j] = d[i] - tr;
                d[j + 1] = d[i + 1] - ti;
                d[i] = d[i] + tr;
                d[i + 1] = d[i + 1] + ti;
            }
        }
        w += mmax;
    }
    const float scale = forward ? 1.0f / float(n) : 2.0f;
    for (unsigned i = 0; i < n; ++i)
        d[i] = d[i] * scale;
}

void FFT::process(Fvec& data) {
    if (data.size() != _inSize)
        std::cerr << "Warning: FFT::process : _inSize and input window size do not agree"
                  << std::endl;
    if (!_twiddles || data.size() < _inSize) return;
    const unsigned n = _inSize;
    float* d = data.data();
    const bool forward = _forward != 0;
    // The split's twiddles follow those of the complex stages.
    const float* w = _twiddles + (n - 2);
    const float c1 = 0.5f, c2 = forward ? -0.5f : 0.5f;
    if (forward) complexPass(d, n, true);
    for (unsigned k = 1; k < n / 4; ++k) {
        const unsigned i1 = 2 * k, i2 = i1 + 1, i3 = n - i1, i4 = i3 + 1;
        const float wr = w[2 * (k - 1)], wi = w[2 * (k - 1) + 1];
        const float h1r = c1 * (d[i1] + d[i3]);
        const float h1i = c1 * (d[i2] - d[i4]);
        const float h2r = -c2 * (d[i2] + d[i4]);
        const float h2i = c2 * (d[i1] - d[i3]);
        const float pr = wr * h2r - wi * h2i;
        const float pi = wr * h2i + wi * h2r;
        d[i1] = h1r + pr;
        d[i2] = h1i + pi;
        d[i3] = h1r - pr;
        d[i4] = -h1i + pi;
    }
    const float h1r = d[0];
    if (forward) {
        d[0] = h1r + d[1];
        d[1] = h1r - d[1];
    } else {
        d[0] = c1 * (h1r + d[1]);
        d[1] = c1 * (h1r - d[1]);
        complexPass(d, n, false);
    }
}
