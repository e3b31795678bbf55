#include "rateconvertimp.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace {

const char kRingName[] = "RESAMPLER";

// Splits a position into whole source frames and the fraction between two frames, in
// [0, 1). For the non-negative positions of normal use this is a truncation, and the
// fraction is exact; a negative ratio (settable unclipped) is floored instead.
inline void SplitPosition(float t, int64_t* whole, float* fraction) {
    // Steps of none, one or two frames cover the ratios of normal use; taking them by
    // comparison keeps the float-to-integer round trip off the chain from one output's
    // position to the next. The results are those of the truncation below.
    if (t >= 0.0f && t < 1.0f) {
        *whole = 0;
        *fraction = t;
        return;
    }
    if (t >= 1.0f && t < 2.0f) {
        *whole = 1;
        *fraction = t - 1.0f;
        return;
    }
    if (t >= 2.0f && t < 3.0f) {
        *whole = 2;
        *fraction = t - 2.0f;
        return;
    }
    if (t >= 0.0f && t < 2147483648.0f) {
        int64_t w = int64_t(t);
        *whole = w;
        *fraction = t - float(w);
        return;
    }
    if (std::isnan(t)) {
        *whole = 0;
        *fraction = 0.0f;
        return;
    }
    double w = std::floor(double(t));
    float f = float(double(t) - w);
    if (f >= 1.0f) { // a tiny negative position rounds up to a whole frame
        f = 0.0f;
        w += 1.0;
    }
    *whole = int64_t(std::max(-4.0e18, std::min(4.0e18, w)));
    *fraction = f;
}

} // namespace

MATrateconvert* MATrateconvert::Create(int blockSize, unsigned channels) {
    if (blockSize < MATrateconvertImp::kMinBlockSize ||
        blockSize > MATrateconvertImp::kMaxBlockSize || channels == 0 || channels > 4096)
        return nullptr;
    MATrateconvertImp* imp = new (std::nothrow) MATrateconvertImp(blockSize, channels);
    if (imp && !imp->ok()) {
        delete imp;
        imp = nullptr;
    }
    return imp;
}

MATrateconvertImp::MATrateconvertImp(int blockSize, unsigned channels)
    : _input(nullptr), _coeffs(nullptr), _record(nullptr), _outputs(nullptr), _blockSize(blockSize),
      _channels(channels), _consumed(0), _peak(0), _meanSquare(0), _variance(0), _gainOut(0),
      _ratioOut(0), _mean(0), _meanSquareState(0), _ratio(1.0f), _baseRatio(1.0f),
      _adjustFactor(1.0f), _autoGain(1), _gain(0.1f), _fraction(0.0f), _coeffStep(0),
      _kernel(ChooseRateBlockKernel()), _steps(nullptr), _ok(false) {
    _params.blockSize = blockSize;
    _params.guard = kGuard;
    _params.blockCount = kBlockCount;
    _params.channels = channels;
    _params.name = kRingName;

    _coeffs = new (std::nothrow) SRCcoeffs;
    _input = new (std::nothrow) SigmaBuffer;
    _outputs = new (std::nothrow) float*[channels];
    _steps = new (std::nothrow) RateStep[size_t(blockSize)];
    if (_coeffs && _coeffs->ok() && _input && _outputs && _steps && !_input->init(&_params)) {
        _record = _coeffs->record();
        RateFilterInit(&_filter, _record->table);
        _coeffStep = _record->elementSize;
        _input->setTrace(false, false);
        // Put the read position half the taps behind the start, so that the first
        // output lies at the delay that centres the filter.
        _input->advanceRead(-SRCcoeffs::kTaps / 2);
        _ok = true;
    }
    _baseRatio = 1.0f;
    _consumed = 0;
    _fraction = 0.0f;
    reset();
}

MATrateconvertImp::~MATrateconvertImp() {
    delete _input;
    delete _coeffs;
    delete[] _outputs;
    delete[] _steps;
}

void MATrateconvertImp::reset() {
    _autoGain = 1;
    _gain = 0.1f;
    _adjustFactor = 1.0f;
    _ratio = _baseRatio;
    _mean = 0.0f;
    _meanSquareState = 0.0f;
    _peak = 0.0f;
    _meanSquare = 0.0f;
    _variance = 0.0f;
    _gainOut = 0.1f;
    _ratioOut = _ratio;
}

void MATrateconvertImp::setRatio(float r) {
    if (std::isnan(r)) return; // no ratio at all: the one in force stays
    if (r > 4.0f) r = 4.0f;
    if (r < 0.01f) r = 0.01f;
    _baseRatio = r;
    _ratio = r * _adjustFactor;
    _ratioOut = _ratio;
}

void MATrateconvertImp::setGain(float g) {
    _autoGain = 0;
    _gain = g;
    _gainOut = g;
}

int MATrateconvertImp::setParam(int index, float value) {
    switch (index) {
    case 0:
        // Unclipped, and not kept as the base ratio; only a value that is not a number
        // at all is refused.
        if (std::isfinite(value)) _ratio = value;
        break;
    case 1:
        _baseRatio = 1.0f;
        reset();
        break;
    case 2:
        if (std::isfinite(value)) {
            _baseRatio = value;
            reset();
        }
        break;
    default:
        break;
    }
    return 0;
}

void MATrateconvertImp::adjust(float e) {
    if (std::isnan(e)) return; // an error that is not a number moves nothing
    _peak = std::max(_peak, std::fabs(e));
    // The smoothing constant is 0.8f, and the sums are taken in double precision:
    // 0.8f is 0.800000011920929 and 1 - 0.8f is 0.19999998807907104 there.
    const double k = double(0.8f);
    const double k1 = 1.0 - k;
    const double ed = e;
    _mean = float(k * _mean + k1 * ed);
    _meanSquareState = float(k1 * ed * ed + k * _meanSquareState);
    _meanSquare = _meanSquareState;
    _variance = float(double(_meanSquareState) - double(_mean) * double(_mean));

    if (e > 0.01f) e = 0.01f;
    if (e < -0.01f) e = -0.01f;
    float f = _gain * e + _adjustFactor;
    if (std::isnan(f)) f = _adjustFactor; // an infinite gain times a zero error
    if (f < 0.625f) f = 0.625f;
    if (f > 1.6f) f = 1.6f;
    _adjustFactor = f;
    _ratio = f * _baseRatio;
    _ratioOut = _ratio;
}

bool MATrateconvertImp::getStats(float* values) {
    if (!values) return true;
    values[0] = _peak;
    values[1] = _meanSquare;
    values[2] = _variance;
    values[3] = _gainOut;
    values[4] = _ratioOut;
    _peak = 0.0f; // each call gives the peak since the one before
    return false;
}

bool MATrateconvertImp::write(float** in) {
    _input->write(in, _blockSize); // a refused block is lost; the result tells the caller
    return _input->getRoom() > int(_blockSize * 4.0);
}

bool MATrateconvertImp::read(float** out) {
    int stepped = interpolate(out, _blockSize);
    _consumed = int(uint32_t(_consumed) + uint32_t(stepped));
    return _input->getRoom() < _blockSize;
}

int MATrateconvertImp::flush(float** out) {
    int room = _input->getRoom();
    int filled = room == 0 ? 0 : _input->size() - room; // equal indices read as empty
    if (filled < _blockSize) _input->zeroAhead(4 * _blockSize);
    float frames = float(filled) / _ratio;
    int n = frames >= float(_blockSize) ? _blockSize : frames >= 1.0f ? int(frames) : 0;
    if (n == 0) return 0;
    interpolate(out, n);
    return n;
}

int MATrateconvertImp::interpolate(float* const* out, int n) {
    const float phases = _record->phasesAsFloat;
    const int size = _input->size();
    for (unsigned c = 0; c < _channels; ++c)
        _outputs[c] = out[c];
    // First where each output reads, then the filter over all of them.
    uint32_t stepped = 0;
    for (int i = 0; i < n; ++i) {
        int64_t whole;
        SplitPosition(_fraction + _ratio, &whole, &_fraction);
        float u = _fraction * phases;
        int q = int(u); // 0 to 7: the fraction is below 1
        // The read position moves before the filter runs, so even the first output
        // steps. A step of more than the ring is taken modulo the ring.
        _input->advanceRead(whole >= -size && whole <= size ? int(whole) : int(whole % size));
        stepped += uint32_t(whole);
        _steps[i].offset = _input->readIndex();
        _steps[i].phase = q;
        _steps[i].blend = u - float(q);
    }
    _kernel(_input->data(), _channels, _steps, n, &_filter, _outputs);
    return int(stepped);
}
