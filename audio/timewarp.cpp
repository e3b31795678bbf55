#include "timewarpimp.h"

#include <cmath>
#include <new>

#include "phasevocoder.h"
#include "wsola.h"

namespace {

const unsigned kMaxChannels = 64;
// The rings are made of blocks of 2048 frames; a caller's block must stay below the
// half of what lies beyond the input guard, so that an input ring that refuses more
// always holds a full processing step.
const unsigned kMaxBlock = 2047;

} // namespace

MATtimewarp* MATtimewarp::Create(unsigned blockSize, unsigned channels, int method) {
    if (blockSize == 0 || blockSize > kMaxBlock || channels == 0 || channels > kMaxChannels)
        return nullptr;
    MATtimewarpImp* warp = nullptr;
    if (method == 0) {
        TWwsola* w = new (std::nothrow) TWwsola(blockSize, channels);
        if (w && !w->valid()) {
            delete w;
            w = nullptr;
        }
        warp = w;
    } else if (method == 1) {
        TWPhaseVocoder* v = new (std::nothrow) TWPhaseVocoder(blockSize, channels);
        if (v && !v->valid()) {
            delete v;
            v = nullptr;
        }
        warp = v;
    }
    return warp;
}

MATtimewarpImp::MATtimewarpImp(unsigned blockSize, unsigned channels)
    : _in(nullptr), _out(nullptr), _blockSize(blockSize), _channels(channels),
      _sampleRate(48000.0f), _stretch(1.0f), _pitch(1.0f), _lastFilled(0), _lastOutFilled(0) {
    _transfer.alloc(blockSize);
}

MATtimewarpImp::~MATtimewarpImp() {
    delete _in;
    delete _out;
}

bool MATtimewarpImp::makeRings(const SigmaBufferParams* in, const SigmaBufferParams* out) {
    _in = new (std::nothrow) SigmaBuffer;
    _out = new (std::nothrow) SigmaBuffer;
    if (!_in || !_out || _in->init(in) || _out->init(out)) return false;
    _in->setTrace(false, false);
    _out->setTrace(false, false);
    return _transfer.size() == _blockSize;
}

bool MATtimewarpImp::enoughData() const {
    const int filled = Filled(*_in);
    const int free = _out->getRoom() == 0 ? _out->size() : _out->getRoom();
    return filled > _in->guard() && free > 2 * _out->getParams()->blockSize;
}

bool MATtimewarpImp::write(float** in) {
    if (!in) return false;
    for (unsigned c = 0; c < _channels; ++c)
        if (!in[c]) return false;
    _in->write(in, int(_blockSize));
    _lastFilled = _in->size();
    _lastOutFilled = _out->size();
    while (enoughData())
        process();
    return _in->getRoom() > 2 * int(_blockSize);
}

bool MATtimewarpImp::read(float** out) {
    if (!out) return false;
    for (unsigned c = 0; c < _channels; ++c)
        if (!out[c]) return false;
    _out->read(out, int(_blockSize));
    return Filled(*_out) > int(_blockSize);
}

// The input frames left, and whether a processing step may run on them. A count that
// grew since the last test means that the indices passed through the empty state.
bool MATtimewarpImp::flushTest(int& count) {
    const int filled = Filled(*_in);
    const int outRoom = _out->getRoom() == 0 ? _out->size() : _out->getRoom();
    bool flag = _in->getRoom() != 0 && filled > 0 && outRoom > 2 * _out->getParams()->blockSize;
    count = filled;
    if (filled > _lastFilled) {
        _lastFilled = 0;
        count = 0;
        flag = false;
    } else {
        _lastFilled = filled;
    }
    _lastOutFilled = Filled(*_out);
    return flag;
}

// The output frames left; 0 once the output ring has run past its end.
int MATtimewarpImp::outputTest() {
    const int o = Filled(*_out);
    int count = o;
    if (_lastFilled == 0 && o > _lastOutFilled) count = 0;
    _lastOutFilled = count;
    return count;
}

unsigned MATtimewarpImp::flush(float** out) {
    if (!out) return 0;
    for (unsigned c = 0; c < _channels; ++c)
        if (!out[c]) return 0;
    int count = 0;
    bool flag = flushTest(count);
    const int guard = _in->guard();
    // Full steps while the input holds them; then the rest, with zeros written ahead of
    // it, until the read index has passed the end of the input.
    while (flag && count > guard) {
        process();
        flag = flushTest(count);
    }
    if (count > 0 && count <= guard) {
        _in->zeroAhead(guard);
        while (flag) {
            process();
            flag = flushTest(count);
        }
    }
    _out->read(out, int(_blockSize));
    return unsigned(count) + unsigned(outputTest());
}

void MATtimewarpImp::setParam(int index, float value) {
    if (!(value == value)) return; // not a number: no setting at all
    if (index == 0) {
        setStretch(std::pow(2.0f, 2.0f * value - 1.0f));
    } else if (index == 1) {
        float s = (value - 0.5f) * 2.0f * 12.0f;
        if (s > 12.0f) s = 12.0f;
        if (s < -12.0f) s = -12.0f;
        const int n = int(0.5f + std::fabs(s));
        const float semitone = std::pow(2.0f, 1.0f / 12.0f);
        setPitch(std::pow(semitone, float(s < 0.0f ? -n : n)));
    }
}

void MATtimewarpImp::passThrough(int n) {
    if (n < 0 || unsigned(n) > _transfer.size()) return;
    for (unsigned c = 0; c < _channels; ++c) {
        _in->readChannel(_transfer.data(), n, int(c));
        _out->writeChannel(_transfer.data(), n, c);
    }
    _in->advanceRead(n);
    _out->advanceWrite(n);
}
