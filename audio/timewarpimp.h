// The common base of the time stretchers: an input ring and an output ring, and the
// tests that decide when there is enough input and room to run one processing step.
#pragma once

#include <kelp/timewarp.h>

#include "sigmabuffer.h"

class MATtimewarpImp : public MATtimewarp {
public:
    MATtimewarpImp(unsigned blockSize, unsigned channels);
    ~MATtimewarpImp() override;

    bool write(float** in) override;
    bool read(float** out) override;
    unsigned flush(float** out) override;
    void setParam(int index, float value) override;
    void setStretch(float stretch) override { (void)stretch; }
    void setPitch(float pitch) override { (void)pitch; }
    // One processing step; the input frames it takes at the nominal step.
    virtual int process() = 0;
    // Clears the working vectors and the phases; the rings stay.
    virtual void reset() = 0;

    // The rings and the settings, for those who need the geometry.
    const SigmaBuffer* inputRing() const { return _in; }
    const SigmaBuffer* outputRing() const { return _out; }
    float stretch() const { return _stretch; }
    float pitch() const { return _pitch; }
    // Frames in a ring; a room of 0 is an empty ring.
    static int Filled(const SigmaBuffer& ring) {
        return ring.getRoom() == 0 ? 0 : ring.size() - ring.getRoom();
    }

protected:
    // Makes and clears both rings; false if the memory cannot be had.
    bool makeRings(const SigmaBufferParams* in, const SigmaBufferParams* out);
    // Moves n frames of every channel from the input ring to the output ring unchanged.
    void passThrough(int n);
    bool enoughData() const;

    SigmaBuffer* _in;
    SigmaBuffer* _out;
    unsigned _blockSize;
    unsigned _channels;
    float _sampleRate;
    float _stretch;
    float _pitch;
    Fvec _transfer;
    int _lastFilled;
    int _lastOutFilled;

private:
    bool flushTest(int& count);
    int outputTest();
};
