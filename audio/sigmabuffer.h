// A multi-channel float ring buffer that can be read past its end without a wrap: the
// first `guard` frames of every channel are mirrored behind the end of the ring, so a
// reader may take up to `guard` contiguous frames from any read index. Used by the
// variable-ratio resampler and the time stretchers.
#pragma once

#include <cstdint>

struct SigmaBufferParams {
    int blockSize;
    int guard;      // frames mirrored behind the end of the ring
    int blockCount; // the ring holds blockCount * blockSize frames
    unsigned channels;
    const char* name; // names the buffer in the debug trace file
};

class SigmaBuffer {
  public:
    SigmaBuffer();
    virtual ~SigmaBuffer();
    SigmaBuffer(const SigmaBuffer&) = delete;
    SigmaBuffer& operator=(const SigmaBuffer&) = delete;

    // Allocates and clears the channel arrays; indices, room and both trace switches
    // start at 0/false. `params` must outlive the buffer. Returns false on success and
    // true if the params are unusable (sizes not positive, the ring too long) or the
    // memory cannot be had; the buffer is then empty (no channels, size 0).
    bool init(const SigmaBufferParams* params);

    // Zeroes the ring (not the mirror) and puts both indices at 0; the room is kept.
    void clear();
    // Zeroes n frames of every channel from the write index upward, wrapping at the end
    // of the ring and keeping the mirror; at most one ring length. The indices stay.
    void zeroAhead(int n);

    int getRoom() const { return _room; }
    float* readPointer(unsigned channel) const { return _channelData[channel] + _readIndex; }
    float* writePointer(unsigned channel) const { return _channelData[channel] + _writeIndex; }
    const SigmaBufferParams* getParams() const { return _params; }
    void setTrace(bool on, bool toFile);

    // Writes n frames of every channel at the write index, wrapping and mirroring, and
    // moves the write index on. Refused (result true, nothing written) if n is negative
    // or above guard - writeIndex + size. A write of more than the free room is not
    // refused: it overwrites unread frames.
    bool write(float* const* in, int n);
    // As write for one channel, without moving the write index.
    bool writeChannel(const float* in, int n, unsigned channel);
    // Copies n frames of every channel from the read index and moves it on. Refused
    // (result true) if n is negative or above the guard.
    bool read(float* const* out, int n);
    // Copies n frames of one channel from the read index; the indices stay. Refused
    // (result true) if n is negative or above the guard.
    bool readChannel(float* out, int n, int channel);

    // Move an index by n frames (negative allowed), wrapped into the ring; the room
    // follows.
    void advanceRead(int n) {
        _readIndex = wrap(int64_t(_readIndex) + n);
        updateRoom();
        if (_traceOn) traceIndices();
    }
    void advanceWrite(int n) {
        _writeIndex = wrap(int64_t(_writeIndex) + n);
        updateRoom();
        if (_traceOn) traceIndices();
    }

    // Read-only views for users that need the geometry.
    int size() const { return _size; }
    int guard() const { return _guard; }
    int readIndex() const { return _readIndex; }
    int writeIndex() const { return _writeIndex; }
    unsigned channels() const { return _channels; }
    const float* channelData(unsigned channel) const { return _channelData[channel]; }
    const float* const* data() const { return _channelData; }

  private:
    void release();
    void updateRoom() {
        _room = _readIndex - _writeIndex;
        if (_room < 0) _room += _size;
    }
    // Once up or down covers every move of at most one ring length; anything further
    // is reduced the same way, so an index never leaves the ring.
    int wrap(int64_t index) const {
        if (index < 0) index += _size;
        if (index >= _size) index -= _size;
        if (index >= 0 && index < _size) return int(index);
        return wrapFar(index);
    }
    int wrapFar(int64_t index) const;
    void traceIndices(int position) const;
    void traceIndices() const;
    void traceToFile() const;

    float** _channelData;
    int _size;
    int _guard;
    int _writeIndex;
    int _readIndex;
    int _room; // free frames: read index minus write index, plus size if negative
    unsigned _channels;
    const SigmaBufferParams* _params;
    bool _traceOn;
    bool _traceToFile;
};
