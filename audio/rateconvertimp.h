// The implementation of MATrateconvert: a ring of input read by a polyphase filter of 8
// taps and 8 phases, with linear interpolation between two neighbouring phases.
#pragma once

#include "audio/rateconvert.h"
#include "audio/rateconvert_kernel.h"
#include "audio/sigmabuffer.h"
#include "audio/srccoeffs.h"

class MATrateconvertImp : public MATrateconvert {
  public:
    static constexpr int kGuard = 32;     // four times the taps
    static constexpr int kBlockCount = 8; // the ring holds eight blocks
    static constexpr int kMinBlockSize = kGuard / kBlockCount;
    static constexpr int kMaxBlockSize = 1 << 24;

    MATrateconvertImp(int blockSize, unsigned channels);
    ~MATrateconvertImp() override;
    // Whether construction got all its memory.
    bool ok() const { return _ok; }

    bool write(float** in) override;
    bool read(float** out) override;
    int flush(float** out) override;
    void notifyReserved(int) override {}
    int setParam(int index, float value) override;
    void adjust(float error) override;
    void setRatio(float ratio) override;
    void setGain(float gain) override;
    bool getStats(float* values) override;

    // State, for tests and diagnostics.
    float ratio() const { return _ratio; }
    float baseRatio() const { return _baseRatio; }
    float adjustFactor() const { return _adjustFactor; }
    float fraction() const { return _fraction; }
    int consumed() const { return _consumed; }
    const SigmaBuffer* input() const { return _input; }
    // Chooses the inner loop; the one that the processor allows is set at construction.
    void setKernel(RateBlockKernel kernel) { _kernel = kernel; }

  private:
    void reset();
    // Runs the interpolator for n outputs; gives the source frames stepped.
    int interpolate(float* const* out, int n);

    SigmaBuffer* _input;
    SigmaBufferParams _params;
    SRCcoeffs* _coeffs;
    const SRCcoeffRecord* _record;
    float** _outputs; // each channel's output pointer during a run
    int _blockSize;
    unsigned _channels;
    int _consumed; // source frames used by read
    float _peak, _meanSquare, _variance;
    float _gainOut, _ratioOut;
    float _mean, _meanSquareState;
    float _ratio; // source frames per output frame now in force
    float _baseRatio;
    float _adjustFactor;
    int _autoGain; // 1 after reset, 0 after setGain; kept for callers, used by nothing
    float _gain;
    float _fraction; // position between source frames, 0 <= _fraction < 1
    unsigned _coeffStep;
    // Working state besides the above: the inner loop chosen at construction, where each
    // output frame of a run reads, and the filter in the layout the loop reads.
    RateBlockKernel _kernel;
    RateStep* _steps;
    RateFilter _filter;
    bool _ok;
};
