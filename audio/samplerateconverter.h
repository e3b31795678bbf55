// The implementation of ISampleRateConverter: input queues filled from the caller's
// reader, the variable-ratio resampler over all selected channels together (or a plain
// pass-through when the rates are equal), and output queues that requests are served
// from.
#pragma once

#include <atomic>
#include <cstdint>

#include <kelp/samplerateconverter.h>

#include "audio/rateconvert.h"
#include "audio/samplequeue.h"

namespace kelp {

class CSampleRateConverter : public ISampleRateConverter {
  public:
    static constexpr int kBlockFrames = int(SampleBlock::kCapacity);

    // Selects the channels and, when the rates differ, makes the resampler; ok() tells
    // whether everything needed could be made.
    CSampleRateConverter(const tagKXWAVFORMAT& format, int outputRate, IReadData* reader);
    virtual ~CSampleRateConverter();
    bool ok() const { return m_bOk; }

    KXRESULT QueryInterface(const KXGUID& iid, void** object) override;
    uint32_t AddRef() override;
    uint32_t Release() override;
    uint32_t GetChannelCount() override { return m_lChannels; }
    bool ReadSamples(float* target, uint32_t samples, uint32_t queue) override;

    // Counters, for tests and diagnostics.
    uint32_t reads() const { return m_lReads; }
    uint32_t delivered() const { return m_lDelivered; }
    uint32_t writes() const { return m_lWrites; }
    uint32_t runs() const { return m_lRuns; }
    bool resampling() const { return m_pResampler != nullptr; }

  private:
    // Reads input until queue q holds a block's worth (or the input ends); after the end,
    // one silent block per queue and call.
    void FillInput(uint32_t q);
    // Converts n samples of one channel of a reader's chunk into a block.
    void ConvertChunk(const uint8_t* p, uint32_t n, uint32_t stream, uint32_t channel,
                      float* out) const;
    void ResampleUntil(uint32_t samples, uint32_t q);
    void PassThroughUntil(uint32_t samples, uint32_t q);
    void TraceInput(uint32_t q);
    const wchar_t* StateWord() const;

    IReadData* m_pReader;
    bool m_bInputDone;
    std::atomic<int32_t> m_lRefs;
    KXWAVFORMAT m_Format;
    uint32_t m_lReserved;
    MATrateconvert* m_pResampler;
    bool m_bMoreInput;
    bool m_bRingFull;
    bool m_bOutputDone;
    uint32_t m_lChannels;
    uint32_t m_lStreamChannels;
    uint32_t m_lReads;
    uint32_t m_lDelivered;
    uint32_t m_lWrites;
    uint32_t m_lRuns;
    SampleQueue* m_pInput;
    SampleQueue* m_pOutput;
    // Working state besides the above: the stream and channel of each queue, and the
    // pointer arrays handed to the resampler.
    uint16_t* m_pStreamOf;
    uint16_t* m_pChannelOf;
    float** m_ppBlocks;
    bool m_bOk;
};

} // namespace kelp
