#include "phasevocoder.h"

#include <cmath>
#include <cstring>
#include <new>

namespace {

const unsigned kSize = 2048;
// A step writes the synthesis hop times the overlap into the output ring, which must
// fit in the two blocks of room that the ring is known to have.
const float kMaxStretch = 2.0f;
const float kMinStretch = 0.25f;
// Twice the root of two in single precision: the amplitude correction of the double
// windowing is the synthesis hop times this over the window size.
const float kGainFactor = 2.8284270763397217f;

} // namespace

TWPhaseVocoder::TWPhaseVocoder(unsigned blockSize, unsigned channels)
    : MATtimewarpImp(blockSize, channels),
      VectorOps(kSize), _inParams{int(kSize), int(2 * kSize), 4, channels, "PVOCasync"},
      _outParams{int(kSize), int(2 * kSize), 4, channels, "PVOCreblock"}, _channelsV(channels),
      _currentChannel(0), _window(nullptr), _forwardFFT(nullptr), _inverseFFT(nullptr),
      _analysisPhase(nullptr), _synthesisPhase(nullptr), _overlapAdd(nullptr), _windowSize(kSize),
      _analysisHop(kSize / 4), _synthesisHop(kSize / 4), _overlap(4), _gain(1.0f), _fftSize(kSize),
      _valid(false) {
    VectorOps::_name = "TWPhaseVocoder";
    _window = new (std::nothrow) Aperture(kSize, 0, 1, true, 2);
    _forwardFFT = new (std::nothrow) FFT(kSize, true);
    _inverseFFT = new (std::nothrow) FFT(kSize, false);
    _frameBuffer.alloc(kSize);
    _spectrum.alloc(kSize);
    _work.alloc(kSize);
    for (Fvec& s : _spare)
        s.alloc(kSize);
    _analysisPhase = new (std::nothrow) Fvec[channels];
    _synthesisPhase = new (std::nothrow) Fvec[channels];
    _overlapAdd = new (std::nothrow) Fvec[channels];
    _heard = new (std::nothrow) Fvec[channels];
    bool ok = _window && _forwardFFT && _inverseFFT && _analysisPhase && _synthesisPhase &&
              _overlapAdd && _heard && _frameBuffer.size() == kSize && _spectrum.size() == kSize &&
              _work.size() == kSize && _window->window().size() == kSize;
    for (const Fvec& s : _spare)
        ok = ok && s.size() == kSize;
    for (unsigned c = 0; ok && c < channels; ++c) {
        _analysisPhase[c].alloc(kSize / 2 + 1);
        _synthesisPhase[c].alloc(kSize / 2 + 1);
        _overlapAdd[c].alloc(2 * kSize);
        _heard[c].alloc(kSize / 2);
        ok = _analysisPhase[c].size() && _synthesisPhase[c].size() && _overlapAdd[c].size() &&
             _heard[c].size();
    }
    _valid = ok && makeRings(&_inParams, &_outParams);
}

TWPhaseVocoder::~TWPhaseVocoder() {
    delete _window;
    delete _forwardFFT;
    delete _inverseFFT;
    delete[] _analysisPhase;
    delete[] _synthesisPhase;
    delete[] _overlapAdd;
    delete[] _heard;
}

void TWPhaseVocoder::setQuality(int level) {
    const float f = level == 1 ? 0.875f : level == 2 ? 0.9375f : 0.75f;
    _analysisHop = unsigned(float(_windowSize) * (1.0f - f));
    _synthesisHop = _analysisHop;
    _overlap = unsigned(1.0f / (1.0f - f));
    _gain = 1.0f;
}

void TWPhaseVocoder::setStretch(float stretch) {
    if (!(stretch >= 1e-10f)) return;
    if (stretch < kMinStretch) stretch = kMinStretch;
    if (stretch > kMaxStretch) stretch = kMaxStretch;
    _synthesisHop = unsigned(stretch * float(_analysisHop));
    _stretch = float(_synthesisHop) / float(_analysisHop);
    _gain = float(_synthesisHop) * kGainFactor / float(_windowSize);
}

void TWPhaseVocoder::setPitch(float pitch) {
    _pitch = pitch;
}

float TWPhaseVocoder::principalValue(float x) const {
    const float r = x / _pi;
    // Phases here stay far below this; anything else (not a number) is no phase at all.
    if (!(std::fabs(r) < 1e9f)) return 0.0f;
    int q = int(r);
    if (q >= 0)
        q += q & 1;
    else
        q -= q & 1;
    const float m = float(q) * _pi;
    return x - m;
}

void TWPhaseVocoder::phaseStep(Fvec& frame, unsigned channel) {
    float* d = frame.data();
    float* analysis = _analysisPhase[channel].data();
    float* synthesis = _synthesisPhase[channel].data();
    float* heard = _heard[channel].data();
    const float omega = float(_analysisHop) * 2.0f * _pi / float(_windowSize);
    for (unsigned k = 0; k < _fftSize / 2; ++k) {
        const float re = d[2 * k], im = d[2 * k + 1];
        const float m = std::hypot(re, im);
        float y;
        if (m != 0.0f && heard[k] == 0.0f) {
            // The first frame a bin is heard in has no phase before it to advance from:
            // it starts from its own phase, so that neighbouring bins keep the relation
            // that places the frame's energy at the window's centre.
            const float ph = -std::atan2(im, re);
            analysis[k] = ph;
            heard[k] = 1.0f;
            y = ph;
        } else {
            float delta = 0.0f;
            if (m != 0.0f) {
                const float ph = -std::atan2(im, re);
                delta = ph - analysis[k];
                analysis[k] = ph;
            } else {
                heard[k] = 0.0f;
            }
            const float e = float(k) * omega;
            delta = principalValue(delta - e);
            const float t = delta + e;
            const float advance = t * _stretch;
            y = principalValue(advance + synthesis[k]);
        }
        synthesis[k] = y;
        d[2 * k] = m * std::cos(y);
        d[2 * k + 1] = -(m * std::sin(y));
    }
}

void TWPhaseVocoder::analyzeFrequency(Fvec& frame, unsigned channel) {
    float* d = frame.data();
    float* analysis = _analysisPhase[channel].data();
    const float binStep = _twoPi / float(_overlap);
    const float binHz = float(VectorOps::_sampleRate) / float(_fftSize);
    for (unsigned k = 0; k < _fftSize / 2; ++k) {
        const float re = d[2 * k], im = d[2 * k + 1];
        const float m = std::hypot(re, im);
        float delta = 0.0f;
        if (m != 0.0f) {
            const float ph = -std::atan2(im, re);
            delta = ph - analysis[k];
            analysis[k] = ph;
        }
        const float e = float(k) * binStep;
        delta = principalValue(delta - e);
        const float bins = delta * float(_overlap) / _twoPi + float(k);
        d[2 * k] = m;
        d[2 * k + 1] = bins * binHz;
    }
}

void TWPhaseVocoder::synthesizeFrequency(Fvec& frame, unsigned channel) {
    float* d = frame.data();
    float* synthesis = _synthesisPhase[channel].data();
    const float binHz = float(VectorOps::_sampleRate) / float(_fftSize);
    const float g = _twoPi / float(_overlap);
    for (unsigned k = 0; k < _fftSize / 2; ++k) {
        const float m = d[2 * k], f = d[2 * k + 1];
        const float centre = g * float(k);
        const float deviation = (f - float(k) * binHz) / binHz * g;
        const float y = centre + deviation + synthesis[k];
        synthesis[k] = y;
        d[2 * k] = m * std::cos(y);
        d[2 * k + 1] = -(m * std::sin(y));
    }
}

int TWPhaseVocoder::process() {
    for (unsigned k = 0; k < _overlap; ++k) {
        for (unsigned c = 0; c < _channelsV; ++c) {
            _currentChannel = c;
            _in->readChannel(_frameBuffer.data(), int(_fftSize), int(c));
            _window->process(_frameBuffer, _frameBuffer);
            _forwardFFT->process(_frameBuffer);
            phaseStep(_frameBuffer, c);
            _inverseFFT->process(_frameBuffer);
            _window->process(_frameBuffer, _frameBuffer);
            float* ola = _overlapAdd[c].data();
            const float* x = _frameBuffer.data();
            for (unsigned i = 0; i < _fftSize; ++i) {
                const float v = x[i] * _gain;
                ola[i] = ola[i] + v;
            }
            _out->writeChannel(ola, int(_synthesisHop), c);
            // Everything above the window size is zero, and the move brings it down.
            std::memmove(ola, ola + _synthesisHop, size_t(_analysisHop) * _overlap * sizeof(float));
        }
        _in->advanceRead(int(_analysisHop));
        _out->advanceWrite(int(_synthesisHop));
    }
    return int(_synthesisHop * _overlap);
}

void TWPhaseVocoder::reset() {
    _frameBuffer.fill(0.0f);
    _spectrum.fill(0.0f);
    _work.fill(0.0f);
    for (unsigned c = 0; c < _channelsV; ++c) {
        _analysisPhase[c].fill(0.0f);
        _synthesisPhase[c].fill(0.0f);
        _overlapAdd[c].fill(0.0f);
        _heard[c].fill(0.0f);
    }
}
