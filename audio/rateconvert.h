// The variable-ratio resampler: a block-based, multi-channel resampler for float
// samples whose ratio may change while it runs. Input and output are separate
// per-channel arrays of one block each. It is told a ratio (source frames per output
// frame); a slow servo input, adjust, can pull that ratio by up to a factor of 1.6
// either way.
//
// Life of an instance: Create, setRatio, then write and read in any mix that keeps data
// in the ring (write while it answers true, read while it answers false), flush at the
// end, delete.
#pragma once

class MATrateconvert {
  public:
    virtual ~MATrateconvert() {}
    // Takes one block of every channel. Result: more room is left than four blocks.
    virtual bool write(float** in) { return (void)in, false; }
    // Gives one block of every channel. Result: less room is left than one block.
    virtual bool read(float** out) { return (void)out, false; }
    // Drains the tail into one block of every channel; gives the frames made.
    virtual int flush(float** out) { return (void)out, 0; }
    virtual void notifyReserved(int reserved) = 0;
    // 0: set the ratio as it is (no clip, the servo untouched); 1: start the servo over at
    // ratio 1.0; 2: start the servo over at the given ratio. Other indices do nothing.
    virtual int setParam(int index, float value) = 0;
    // One servo step with the given error.
    virtual void adjust(float error) = 0;
    // Source frames per output frame, clipped to 0.01 .. 4.0.
    virtual void setRatio(float ratio) = 0;
    virtual void setGain(float gain) = 0;
    // Peak error since the last call, mean square, variance, gain and ratio. True (and
    // nothing else) for a null pointer.
    virtual bool getStats(float* values) = 0;

    // A resampler for blocks of blockSize frames of `channels` channels; null if memory
    // cannot be had, or for a block size below 4 or above 2^24 frames or no channels.
    static MATrateconvert* Create(int blockSize, unsigned channels);
};
