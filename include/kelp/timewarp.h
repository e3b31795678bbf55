// Time stretching of multi-channel float audio at kept pitch, block by block, and the
// small signal-processing pieces it is made of: a float vector, a window table and a
// real transform.
//
// Life of a stretcher: MATtimewarp::Create, then setQuality and setStretch as wished
// (setQuality first: it resets the vocoder's stretch), then write and read, and flush
// at the end until it returns 0. A host that feeds input as it is asked for it writes
// blocks while write answers true, and reads blocks while read answers true; a read
// is safe whenever write has just answered false.
//
// One thread at a time per object.
#pragma once

#include <string>
#include <vector>

#include "kelpdefs.h"

// A float vector that owns its elements or views a stretch of other memory.
class KELP_API Fvec {
public:
    Fvec();
    explicit Fvec(unsigned n); // n zeroed elements
    Fvec(const Fvec& other);   // duplicates the elements and the name
    // Copies the elements of a vector of the same length; any other length does nothing.
    Fvec& operator=(const Fvec& other);
    virtual ~Fvec();

    // Each alloc replaces the owned array (and ends a view). On failure the vector is
    // empty.
    void alloc(unsigned n);              // n zeroed floats
    void alloc(float value, unsigned n); // n floats set to value
    float* allocRaw(unsigned n);         // n floats, uninitialised; the data pointer

    float* data() const { return _data; }
    unsigned size() const { return _size; }
    float& operator[](unsigned i) const { return _data[i]; }
    const char* name() const { return _name; }
    // Makes the vector a view of size() floats at p; the owned array stays.
    void setData(float* p) { _data = p; }

    void fill(float value);
    void fill(unsigned first, unsigned last, float value); // first up to, not incl. last
    // Each x becomes ((x - offset) / divisor) * factor + add.
    void rescale(float offset, float divisor, float add, float factor);
    void square();
    void abs();
    void sqrt();
    // Magnitudes below 1e-5 become +-1e-5 (by sign), then x becomes 20 log10(x).
    void toDecibel();
    float mean() const;     // 0 for a sum of 0, so an empty vector gives 0
    float variance() const; // mean of squares minus squared mean
    float stdDev() const;

    // A vector of the longer length: the left operand with the right one added or
    // subtracted element by element.
    Fvec operator+(const Fvec& right) const;
    Fvec operator-(const Fvec& right) const;

private:
    void release();

    float* _array;
    float* _data;
    unsigned _size;
    const char* _name;
};

// The common base of the vector processors below.
class KELP_API VectorOps {
public:
    VectorOps();
    explicit VectorOps(unsigned inSize);
    virtual ~VectorOps();
    virtual void process(const Fvec& in, Fvec& out);

protected:
    float _pi;    // 2 asin(1) in single precision
    float _twoPi; // 2 _pi
    unsigned _sampleRate;
    unsigned _inSize;
    unsigned _outSize;
    std::string _name;
    std::vector<std::string> _messages;
    unsigned _state;
};

// A window table: rectangular (0), Hamming (1), Hann (2), triangular (3), Blackman (4),
// Blackman-Harris (5) or Kaiser (6), of `size` points of which `pad` are zero padding
// split over both ends. A periodic window divides by its length, a symmetric one by its
// length less one. Problems are reported on the standard error stream.
class KELP_API Aperture : public VectorOps {
public:
    Aperture(); // rectangular, 2048 points, periodic
    Aperture(unsigned size, unsigned pad, unsigned step, bool periodic, unsigned type);
    // out = window * in over every `step`th point; in and out may be the same vector.
    // Does nothing but warn if in does not have the window's size.
    void process(const Fvec& in, Fvec& out) override;
    void scale(float factor);
    // The table (empty for an invalid type).
    const Fvec& window() const { return _window; }

private:
    void build();

    Fvec _window;
    unsigned _pad;
    unsigned _step;
    unsigned _type;
    bool _periodic;
};

// An in-place real transform of a power-of-two size N. Forward: data[0] is the DC term,
// data[1] the Nyquist term and data[2k], data[2k+1] the real and imaginary parts of bin
// k, all of (1/N) sum x[n] e^(+2 pi i n k / N). Inverse restores the signal from that.
class KELP_API FFT : public VectorOps {
public:
    FFT(); // 2048 points, forward
    FFT(unsigned size, bool forward);
    ~FFT() override;
    FFT(const FFT&) = delete;
    FFT& operator=(const FFT&) = delete;
    // Transforms data in place, in the direction of the object. A data vector of
    // another size is warned about, and the object's size is used (never more than the
    // vector holds).
    void process(Fvec& data);

private:
    void complexPass(float* data, unsigned n, bool forward) const;

    unsigned _forward;
    float* _twiddles; // per stage of the complex pass, then the split of the real one
};

// A block-based, multi-channel time stretcher for float samples.
class KELP_API MATtimewarp {
public:
    virtual ~MATtimewarp() {}
    // Takes one block of every channel and processes what it can. Result: more than two
    // blocks of room are left for input.
    virtual bool write(float** in) { return (void)in, false; }
    // Gives one block of every channel. Result: more than one block is left to read.
    virtual bool read(float** out) { return (void)out, false; }
    // Works off the end of the input, one block of output per call; the frames still
    // held (input and output), 0 when all is out.
    virtual unsigned flush(float** out) { return (void)out, 0; }
    // 0 (fastest) to 2 (best).
    virtual void setQuality(int level) = 0;
    // 0: stretch 2^(2 value - 1), so 0 to 1 covers half to double length; 1: pitch in
    // whole semitones, (value - 0.5) * 24 rounded, up to an octave either way.
    virtual void setParam(int index, float value) = 0;
    // Output length over input length. Values below 1e-10 are ignored; WSOLA takes
    // 0.375 to 4 and the vocoder 0.25 to 2, and clips to those.
    virtual void setStretch(float stretch) = 0;
    // Kept, not applied: both stretchers keep the pitch.
    virtual void setPitch(float pitch) = 0;

    // WSOLA (method 0) or the phase vocoder (1) for blocks of blockSize frames of
    // `channels` channels. Null for another method, no channels or more than 64, a block
    // size of 0 or above 2047 frames, or no memory.
    static MATtimewarp* Create(unsigned blockSize, unsigned channels, int method);
};
