#include "wsola.h"

#include <cstring>
#include <new>

namespace {

const int kFrame = 2048;
// Stretches outside this range would read past the input that the ring holds (below)
// or never move on in it (above).
const float kMinStretch = 0.375f;
const float kMaxStretch = 4.0f;

struct QualityRow {
    int overlap, searchBack, searchForward, searchStep, corrStep;
};
// Search range and grids per quality level; the last row serves any other level.
const QualityRow kQuality[] = {
    {2, 300, 420, 3, 12},
    {2, 300, 420, 1, 4},
    {4, 100, 500, 1, 1},
    {2, 102, 170, 3, 12},
};

} // namespace

TWwsola::TWwsola(unsigned blockSize, unsigned channels)
    : MATtimewarpImp(blockSize, channels), _params{kFrame, 4 * kFrame, 8, channels, "WSOLA"},
      _channelsW(channels), _window(nullptr), _overlapAdd(nullptr), _frame(kFrame), _hop(0),
      _overlap(0), _searchBack(0), _searchForward(0), _searchStep(0), _corrStep(0), _offset(0),
      _valid(false) {
    setQuality(0);
    _reference.alloc(kFrame);
    _candidate.alloc(kFrame);
    _segment.alloc(kFrame);
    _windowed.alloc(kFrame);
    _overlapAdd = new (std::nothrow) Fvec[channels];
    bool ok = _overlapAdd && _window && _window->window().size() == unsigned(kFrame) &&
              _reference.size() && _candidate.size() && _segment.size() && _windowed.size();
    for (unsigned c = 0; ok && c < channels; ++c) {
        _overlapAdd[c].alloc(2 * kFrame);
        ok = _overlapAdd[c].size() == 2 * unsigned(kFrame);
    }
    _stretch = 1.0f;
    _offset = 0;
    _valid = ok && makeRings(&_params, &_params);
}

TWwsola::~TWwsola() {
    delete _window;
    delete[] _overlapAdd;
}

void TWwsola::setQuality(int level) {
    const QualityRow& q = kQuality[level >= 0 && level <= 2 ? level : 3];
    _frame = kFrame;
    _overlap = q.overlap;
    _searchBack = q.searchBack;
    _searchForward = q.searchForward;
    _searchStep = q.searchStep;
    _corrStep = q.corrStep;
    Aperture* window = new (std::nothrow) Aperture(kFrame, 0, 1, true, 2);
    if (window) {
        window->scale(2.0f / float(_overlap));
        delete _window;
        _window = window;
    }
    _hop = _frame / _overlap;
}

void TWwsola::setStretch(float stretch) {
    if (!(stretch >= 1e-10f)) return;
    if (stretch < kMinStretch) stretch = kMinStretch;
    if (stretch > kMaxStretch) stretch = kMaxStretch;
    _stretch = 1.0f / stretch;
}

float* TWwsola::inputAt(unsigned channel, int delta) const {
    const int size = _in->size();
    int pos = (_in->readIndex() + delta) % size;
    if (pos < 0) pos += size;
    return const_cast<float*>(_in->channelData(channel)) + pos;
}

int TWwsola::Search(const float* reference, const float* candidate, int back, int forward, int step,
                    int corrStep) {
    float best = 0.0f;
    int result = 0;
    for (int off = -back; off < forward; off += step) {
        float s = 0.0f;
        for (int j = back; j < forward + back; j += corrStep) {
            const float p = candidate[j] * reference[j + off];
            s += p;
        }
        if (s > best) {
            best = s;
            result = off;
        }
    }
    return result;
}

int TWwsola::process() {
    const int advance = int(float(_hop) * _stretch);
    for (int k = 0; k < _overlap; ++k) {
        for (unsigned c = 0; c < _channelsW; ++c) {
            if (c == 0) {
                // The natural continuation of the last segment against the position the
                // nominal timing asks for; one offset for all channels keeps them aligned.
                _reference.setData(inputAt(0, _hop - _offset));
                _candidate.setData(inputAt(0, advance));
                _offset = Search(_reference.data(), _candidate.data(), _searchBack, _searchForward,
                                 _searchStep, _corrStep);
            }
            _segment.setData(inputAt(c, advance - _offset));
            _window->process(_segment, _windowed);
            float* ola = _overlapAdd[c].data();
            const float* w = _windowed.data();
            for (int i = 0; i < _frame; ++i)
                ola[i] = ola[i] + w[i];
            _out->writeChannel(ola, _hop, c);
            // The upper half always holds zeros, which the move brings down.
            std::memmove(ola, ola + _hop, size_t(_frame) * sizeof(float));
        }
        _in->advanceRead(advance);
        _out->advanceWrite(_hop);
    }
    return int(float(_frame) * _stretch);
}

void TWwsola::reset() {
    // Three of the vectors are views of the input ring while the stretcher runs; they get
    // zeroed arrays of their own again, and the ring is left alone.
    _reference.alloc(unsigned(kFrame));
    _candidate.alloc(unsigned(kFrame));
    _segment.alloc(unsigned(kFrame));
    _windowed.fill(0.0f);
    for (unsigned c = 0; c < _channelsW; ++c)
        _overlapAdd[c].fill(0.0f);
}
