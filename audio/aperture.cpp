// The window table and the common base of the vector processors.
#include <kelp/timewarp.h>

#include <cmath>
#include <iostream>

VectorOps::VectorOps() : VectorOps(2048) {}

VectorOps::VectorOps(unsigned inSize)
    : _pi(float(2.0 * std::asin(1.0))), _twoPi(2.0f * _pi), _sampleRate(48000), _inSize(inSize),
      _outSize(1), _name("Unspecified name"), _state(0) {
    _messages.reserve(100);
}

VectorOps::~VectorOps() {}

void VectorOps::process(const Fvec& in, Fvec& out) {
    (void)in;
    (void)out;
}

namespace {

// The modified Bessel function of order 0, by the polynomial approximations of
// Abramowitz and Stegun (9.8.1 and 9.8.2).
double BesselI0(double x) {
    double ax = std::fabs(x);
    if (ax <= 3.75) {
        double t = x / 3.75;
        t *= t;
        return 1.0 +
               t * (3.5156229 +
                    t * (3.0899424 +
                         t * (1.2067492 + t * (0.2659732 + t * (0.0360768 + t * 0.0045813)))));
    }
    double u = 3.75 / ax;
    double p = 0.39894228 +
               u * (0.01328592 +
                    u * (0.00225319 +
                         u * (-0.00157565 +
                              u * (0.00916281 +
                                   u * (-0.02057706 +
                                        u * (0.02635537 + u * (-0.01647633 + u * 0.00392377)))))));
    return std::exp(ax) / std::sqrt(ax) * p;
}

const unsigned kTypeCount = 7;

} // namespace

Aperture::Aperture() : Aperture(2048, 0, 1, true, 0) {}

Aperture::Aperture(unsigned size, unsigned pad, unsigned step, bool periodic, unsigned type)
    : VectorOps(size), _pad(pad > size ? size : pad), _step(step ? step : 1), _type(type),
      _periodic(periodic) {
    _name = "Aperture";
    _outSize = size;
    build();
}

void Aperture::build() {
    if (_type >= kTypeCount) {
        std::cerr << "Warning: invalid window selection!" << std::endl;
        return;
    }
    _window.alloc(_inSize);
    const unsigned L = _inSize - _pad;
    // A one-point window has no period to divide by.
    const double D = _periodic ? double(L) : double(L) - 1.0;
    const double divisor = D > 0.0 ? D : 1.0;
    const double twoPi = 2.0 * double(_pi);
    for (unsigned i = 0; i < L; ++i) {
        const double a = twoPi * double(i) / divisor;
        double v = 1.0;
        switch (_type) {
        case 0:
            v = 1.0;
            break;
        case 1:
            v = 0.54 - 0.46 * std::cos(a);
            break;
        case 2:
            v = 0.5 - 0.5 * std::cos(a);
            break;
        case 3: {
            const double c = (double(L) - 1.0) / 2.0;
            v = c > 0.0 ? 1.0 - std::fabs(double(i) - c) / c : 1.0;
            break;
        }
        case 4:
            v = 0.42 - 0.5 * std::cos(a) + 0.08 * std::cos(2.0 * a);
            break;
        case 5:
            v = 0.35875 - 0.48829 * std::cos(a) + 0.14128 * std::cos(2.0 * a) -
                0.01168 * std::cos(3.0 * a);
            break;
        case 6: {
            const double beta = 6.8f;
            const double k = i < L / 2 ? double(L / 2 - i) : double(i - L / 2);
            const double span = L > 1 ? double(L) - 1.0 : 1.0;
            const double r = 2.0 * k / span;
            const double arg = 1.0 - r * r;
            // The first point lies beyond the end of the curve; it is set to 0 below.
            v = arg >= 0.0 ? BesselI0(beta * std::sqrt(arg)) / BesselI0(beta) : 0.0;
            if (i == 0) v = 0.0;
            break;
        }
        }
        _window[i] = float(v);
    }
}

void Aperture::process(const Fvec& in, Fvec& out) {
    if (_type >= kTypeCount) return;
    if (in.size() != _inSize) {
        std::cerr << "Warning: window size does not match data size!" << std::endl;
        return;
    }
    if (out.size() < _inSize) return;
    const unsigned h = _pad / 2;
    const float* x = in.data();
    float* y = out.data();
    const float* w = _window.data();
    for (unsigned i = 0; i < h; i += _step)
        y[i] = 0.0f;
    for (unsigned i = h; i < _inSize - h; i += _step)
        y[i] = w[i - h] * x[i];
    for (unsigned i = _inSize - h; i < _inSize; i += _step)
        y[i] = 0.0f;
}

void Aperture::scale(float factor) {
    const unsigned n = _window.size() < _inSize ? _window.size() : _inSize;
    for (unsigned i = 0; i < n; ++i)
        _window[i] = _window[i] * factor;
}
