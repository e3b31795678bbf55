#include "sigmabuffer.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include <kelp/trace.h>

namespace {

// The debug trace file, in the working directory.
const char kTraceFile[] = "workloadData.txt";

// Copies `count` frames, or zeroes them when there is no source.
inline void Put(float* dst, const float* src, int count) {
    if (count <= 0) return;
    if (src)
        std::memcpy(dst, src, size_t(count) * sizeof(float));
    else
        std::memset(dst, 0, size_t(count) * sizeof(float));
}

} // namespace

SigmaBuffer::SigmaBuffer()
    : _channelData(nullptr), _size(0), _guard(0), _writeIndex(0), _readIndex(0), _room(0),
      _channels(0), _params(nullptr), _traceOn(false), _traceToFile(false) {}

SigmaBuffer::~SigmaBuffer() {
    release();
}

void SigmaBuffer::release() {
    if (_channelData) {
        for (unsigned c = 0; c < _channels; ++c)
            delete[] _channelData[c];
        delete[] _channelData;
    }
    _channelData = nullptr;
    _channels = 0;
    _size = 0;
    _guard = 0;
}

bool SigmaBuffer::init(const SigmaBufferParams* params) {
    release();
    _params = params;
    _writeIndex = 0;
    _readIndex = 0;
    _room = 0;
    _traceOn = false;
    _traceToFile = false;
    if (!params || params->blockSize <= 0 || params->blockCount <= 0 || params->guard < 0 ||
        params->channels == 0)
        return true;
    int64_t size = int64_t(params->blockSize) * params->blockCount;
    // The mirror must lie wholly behind the ring, and every index must fit an int.
    if (params->guard > size || size + params->guard > INT32_MAX / 2) return true;

    _channelData = new (std::nothrow) float*[params->channels];
    if (!_channelData) return true;
    _channels = params->channels;
    std::fill(_channelData, _channelData + _channels, nullptr);
    for (unsigned c = 0; c < _channels; ++c) {
        _channelData[c] = new (std::nothrow) float[size_t(size + params->guard)]();
        if (!_channelData[c]) {
            release();
            return true;
        }
    }
    _size = int(size);
    _guard = params->guard;
    return false;
}

void SigmaBuffer::clear() {
    // The mirror is cleared with the ring, so that it keeps equal to the ring's start.
    for (unsigned c = 0; c < _channels; ++c)
        Put(_channelData[c], nullptr, _size + _guard);
    _writeIndex = 0;
    _readIndex = 0;
}

int SigmaBuffer::wrapFar(int64_t index) const {
    if (_size == 0) return 0;
    index %= _size;
    if (index < 0) index += _size;
    return int(index);
}

void SigmaBuffer::traceIndices(int position) const {
    if (!_traceOn) return;
    wchar_t line[64];
    kelpFormat(line, 64, L"%5.0d,%5.0d,%5.0d,%5.0d", _writeIndex, _readIndex, _room, position);
    traceToFile(); // the formatted line itself is not kept
}

void SigmaBuffer::traceIndices() const {
    if (!_traceOn) return;
    wchar_t line[64];
    kelpFormat(line, 64, L"%5.0d,%5.0d,%5.0d", _writeIndex, _readIndex, _room);
    traceToFile();
}

void SigmaBuffer::traceToFile() const {
    if (!_traceToFile) return;
    if (std::FILE* f = std::fopen(kTraceFile, "a")) {
        std::fprintf(f, "%s\t%d\n", _params && _params->name ? _params->name : "", _room);
        std::fclose(f);
    }
}

void SigmaBuffer::setTrace(bool on, bool toFile) {
    _traceOn = on;
    _traceToFile = toFile;
    if (toFile) {
        if (std::FILE* f = std::fopen(kTraceFile, "w")) std::fclose(f);
    }
}

void SigmaBuffer::zeroAhead(int n) {
    n = std::min(std::max(n, 0), _size);
    for (unsigned c = 0; c < _channels; ++c) {
        float* data = _channelData[c];
        int w = _writeIndex;
        for (int left = n; left > 0;) {
            int chunk = std::min(left, _size - w);
            if (w < _guard) Put(data + w + _size, nullptr, std::min(_guard - w, chunk));
            Put(data + w, nullptr, chunk);
            left -= chunk;
            w += chunk;
            if (w >= _size) w -= _size;
        }
    }
}

bool SigmaBuffer::writeChannel(const float* in, int n, unsigned channel) {
    if (n < 0 || n > _guard - _writeIndex + _size || channel >= _channels) return true;
    float* data = _channelData[channel];
    // The chunk length is measured from the write index of the call, which does not
    // move while it runs: after a wrap the rest goes on from the ring's start.
    const int span = _size - _writeIndex;
    int w = _writeIndex;
    for (int done = 0; done < n;) {
        int chunk = std::min(n - done, span);
        if (w < _guard) Put(data + w + _size, in + done, std::min(_guard - w, chunk));
        Put(data + w, in + done, chunk);
        if (channel == 0) traceIndices(w);
        done += chunk;
        w += chunk;
        if (w >= _size) w -= _size;
    }
    return false;
}

bool SigmaBuffer::write(float* const* in, int n) {
    if (n < 0 || n > _guard - _writeIndex + _size) return true;
    for (unsigned c = 0; c < _channels; ++c)
        writeChannel(in[c], n, c);
    _writeIndex = wrap(int64_t(_writeIndex) + n);
    updateRoom();
    return false;
}

bool SigmaBuffer::readChannel(float* out, int n, int channel) {
    if (n < 0 || n > _guard || channel < 0 || unsigned(channel) >= _channels) return true;
    Put(out, _channelData[channel] + _readIndex, n);
    if (channel == 0) traceIndices(_readIndex);
    return false;
}

bool SigmaBuffer::read(float* const* out, int n) {
    if (n < 0 || n > _guard) return true;
    for (unsigned c = 0; c < _channels; ++c)
        Put(out[c], _channelData[c] + _readIndex, n);
    _readIndex = wrap(int64_t(_readIndex) + n);
    updateRoom();
    traceIndices();
    return false;
}
