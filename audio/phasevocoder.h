// The phase vocoder: frames at a fixed analysis hop are windowed and transformed, the
// phase of each bin is advanced at the synthesis rate, and the frames are transformed
// back, windowed again and overlap-added at the synthesis hop. A plain per-bin
// vocoder: no phase locking between bins and no transient handling.
#pragma once

#include "timewarpimp.h"

class TWPhaseVocoder : public MATtimewarpImp, public VectorOps {
public:
    TWPhaseVocoder(unsigned blockSize, unsigned channels);
    ~TWPhaseVocoder() override;

    bool valid() const { return _valid; }
    void setQuality(int level) override;
    // For this class the stretch is the synthesis hop over the analysis hop, as
    // achieved after truncation.
    void setStretch(float stretch) override;
    void setPitch(float pitch) override;
    int process() override;
    void reset() override;

    // The phase step for one channel, in place on a forward-transformed frame.
    void phaseStep(Fvec& frame, unsigned channel);
    // The same step in a form that hands on magnitude and frequency in hertz per bin
    // (out[2k], out[2k+1]), and its synthesis back to a half spectrum. process does not
    // use them.
    void analyzeFrequency(Fvec& frame, unsigned channel);
    void synthesizeFrequency(Fvec& frame, unsigned channel);
    // x wrapped to -pi .. pi by an even multiple of pi.
    float principalValue(float x) const;

    // Settings and state, for tests and the curious.
    unsigned analysisHop() const { return _analysisHop; }
    unsigned synthesisHop() const { return _synthesisHop; }
    unsigned overlap() const { return _overlap; }
    float gain() const { return _gain; }
    const Fvec& analysisPhase(unsigned channel) const { return _analysisPhase[channel]; }
    const Fvec& synthesisPhase(unsigned channel) const { return _synthesisPhase[channel]; }

private:
    SigmaBufferParams _inParams;
    SigmaBufferParams _outParams;
    unsigned _channelsV;
    unsigned _currentChannel;
    Aperture* _window;
    FFT* _forwardFFT;
    FFT* _inverseFFT;
    Fvec _frameBuffer;
    Fvec _spectrum;
    Fvec _work;
    Fvec* _analysisPhase;
    Fvec* _synthesisPhase;
    Fvec* _overlapAdd;
    // Per channel and bin: 1 once the bin has had a magnitude, 0 at the start and after
    // a silent frame. A bin starts its synthesis phase from its analysis phase.
    Fvec* _heard;
    unsigned _windowSize;
    unsigned _analysisHop;
    unsigned _synthesisHop;
    unsigned _overlap;
    float _gain;
    Fvec _spare[4];
    unsigned _fftSize;
    bool _valid;
};
