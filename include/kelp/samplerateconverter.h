// The streaming sample-rate converter: pulls audio from the caller's reader and delivers
// every active channel of every active stream of it as a separate stream of float
// samples at a chosen output rate, on demand.
//
// The caller asks for so many samples of one channel (a queue number), and the converter
// pulls only as much input as it needs. The reader's blocks hold all channels at once,
// so a request for one channel fills the queues of all the others: channels may be read
// one after the other, in any order and in different amounts. Channels are never mixed.
// With equal rates the samples are only converted to float and passed through.
//
// Queue numbers: the selected channels (bit s of ActiveStream and bit c of
// ActiveChannels set, s below Streams, c below nChannels) numbered 0, 1, ... with the
// stream as outer and the channel as inner order.
//
// One thread at a time per converter; only AddRef and Release are atomic.
#pragma once

#include "kelpdefs.h"
#include "kxunknown.h"
#include "wavformat.h"

namespace kelp {

// {4D61B65D-17E3-42F3-AE2D-0E77C3F27E38}
constexpr KXGUID IID_ISampleRateConverter = {
    0x4D61B65D, 0x17E3, 0x42F3, {0xAE, 0x2D, 0x0E, 0x77, 0xC3, 0xF2, 0x7E, 0x38}};

class KELP_API ISampleRateConverter : public IUnknown {
  public:
    // What the caller implements: the source of the input, block by block. A block holds
    // Streams streams one behind the other, each of whole frames of nChannels
    // interleaved samples, as KXWAVFORMAT describes. 16-bit and 8-bit PCM and 32-bit
    // float samples are read.
    class IReadData {
      public:
        // The next block: its address, its size in bytes, and a cookie of the reader's
        // own that comes back with it. False at the end of the input.
        virtual bool ReadData(void** data, uint32_t* bytes, uintptr_t* cookie) = 0;
        // Gives back what ReadData handed out. Called once for every ReadData, also for
        // the one that returned false, with what that call left in the three variables
        // (null, 0 and 0 unless the reader set them).
        virtual void FreeData(void* data, uintptr_t cookie) = 0;

      protected:
        ~IReadData() {}
    };

    // The number of selected channels: queue numbers run from 0 below it.
    virtual uint32_t GetChannelCount() = 0;
    // Delivers exactly `samples` samples of queue `queue` into target, padded with zeros
    // at the end of the input. False only when nothing at all could be delivered: after
    // the end of the input on the pass-through path, for a queue number out of range or
    // for a sample format that is not read (16/8-bit PCM, 32-bit float). With different
    // rates the end of the input is followed by silence, for as long as it is asked.
    virtual bool ReadSamples(float* target, uint32_t samples, uint32_t queue) = 0;

    // Makes a converter of input `format` to `outputRate` hertz over `reader` (not owned,
    // no reference taken: it must outlive the converter) and stores its
    // ISampleRateConverter in *object with the one reference. False, with *object null,
    // if object or reader is null, the format is unusable (no channels or streams, a
    // rate of 0, a block alignment that is not channels times sample bytes), the
    // output rate is not positive, or the ratio of input to output rate, in single
    // precision, is not served: it must lie from 0.01 to 4 - 8/512 (3.984375), so that
    // the output is at most 100 times and a little over a quarter of the input rate at
    // least. Equal rates are always served.
    static bool Create(tagKXWAVFORMAT format, int outputRate, IReadData* reader, void** object);
    // Advice to callers on how far ahead of one another to let queues run: always 5000.
    // Nothing in the converter is bounded by it.
    static uint32_t GetQueueLenght();

  protected:
    ~ISampleRateConverter() {}
};

} // namespace kelp
