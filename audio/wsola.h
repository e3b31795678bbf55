// Waveform-similarity overlap-add: windowed segments of the input are overlap-added at
// a fixed output hop, each taken near its nominal input position at the offset where
// it best continues the segment before. Pitch is not touched.
#pragma once

#include "timewarpimp.h"

class TWwsola : public MATtimewarpImp {
public:
    TWwsola(unsigned blockSize, unsigned channels);
    ~TWwsola() override;

    bool valid() const { return _valid; }
    void setQuality(int level) override;
    // For this class the stretch kept is its reciprocal: input step per output step.
    void setStretch(float stretch) override;
    int process() override;
    void reset() override;

    // Settings and state, for tests and the curious.
    int hop() const { return _hop; }
    int overlap() const { return _overlap; }
    int offset() const { return _offset; }
    const Aperture* window() const { return _window; }
    // The search: the offset off in [-back, forward) in steps of `step` that maximises
    // the sum over j in [back, forward + back) in steps of corrStep of candidate[j] *
    // reference[j + off], in single precision; the first maximum, 0 unless positive.
    static int Search(const float* reference, const float* candidate, int back, int forward,
                      int step, int corrStep);

private:
    // The address of frame `delta` frames from the input read index, wrapped into the
    // ring (frames before the read index are still in it).
    float* inputAt(unsigned channel, int delta) const;

    SigmaBufferParams _params;
    unsigned _channelsW;
    Aperture* _window;
    Fvec _reference;
    Fvec _candidate;
    Fvec _segment;
    Fvec _windowed;
    Fvec* _overlapAdd;
    int _frame;
    int _hop;
    int _overlap;
    int _searchBack;
    int _searchForward;
    int _searchStep;
    int _corrStep;
    int _offset;
    bool _valid;
};
