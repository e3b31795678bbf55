#include "samplerateconverter.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <kelp/trace.h>

namespace kelp {
namespace {

constexpr int kArea = 8;
constexpr int kLevelQueue = 26; // queue length
constexpr int kLevelFlow = 27;  // data flow
constexpr uint32_t kQueueAdvice = 5000;
constexpr uint32_t kMaxSelected = 32; // bits of a selection mask
constexpr double kBlockFramesForRatio = CSampleRateConverter::kBlockFrames;

bool KnownSamples(const KXWAVFORMAT& f) {
    return (f.wFormatTag == KXWAVE_FORMAT_PCM &&
            (f.wBitsPerSample == 16 || f.wBitsPerSample == 8)) ||
           (f.wFormatTag == KXWAVE_FORMAT_IEEE_FLOAT && f.wBitsPerSample == 32);
}

// What the reader's blocks are cut by must describe them: whole frames of whole samples.
// An unknown sample format is refused later, by ReadSamples, and only needs a frame size.
bool UsableFormat(const KXWAVFORMAT& f) {
    if (f.nChannels == 0 || f.Streams == 0 || f.nSamplesPerSec == 0 || f.nBlockAlign == 0)
        return false;
    if (KnownSamples(f) && f.nBlockAlign != uint32_t(f.nChannels) * (f.wBitsPerSample / 8u))
        return false;
    return true;
}

// The ratios (source frames per output frame) that the resampler serves as asked.
// Below 0.01 it would clip the ratio, and so play the input at the wrong pitch and
// length. Above 4 it would clip it too; and from 4 - 8/512 up, a block of 512 outputs
// may step over more than the four blocks the converter keeps written ahead of it (its
// filter reads 8 frames past its position), so that its last outputs read frames not
// yet written: at exactly 4 a clean tone comes out 12 to 20 dB noisier than at 3.98.
constexpr float kMinRatio = 0.01f;
constexpr float kMaxRatio = float(4.0 - 8.0 / kBlockFramesForRatio);

// The ratio as the resampler is given it, in single precision.
bool RatioServed(uint32_t inputRate, int outputRate) {
    if (uint32_t(outputRate) == inputRate) return true; // passed through, no resampler
    const float ratio = float(double(inputRate) / double(outputRate));
    return ratio >= kMinRatio && ratio <= kMaxRatio;
}

} // namespace

// ---- ISampleRateConverter

bool ISampleRateConverter::Create(tagKXWAVFORMAT format, int outputRate, IReadData* reader,
                                  void** object) {
    if (!object) return false;
    *object = nullptr;
    if (!reader || outputRate <= 0 || !UsableFormat(format)) return false;
    if (!RatioServed(format.nSamplesPerSec, outputRate)) return false;
    CSampleRateConverter* c = new (std::nothrow) CSampleRateConverter(format, outputRate, reader);
    if (!c) return false;
    if (!c->ok() || c->QueryInterface(IID_ISampleRateConverter, object) < 0) {
        delete c;
        *object = nullptr;
        return false;
    }
    return true;
}

uint32_t ISampleRateConverter::GetQueueLenght() {
    return kQueueAdvice;
}

// ---- Construction

CSampleRateConverter::CSampleRateConverter(const tagKXWAVFORMAT& format, int outputRate,
                                           IReadData* reader)
    : m_pReader(reader), m_bInputDone(false), m_lRefs(0), m_Format(format), m_lReserved(0),
      m_pResampler(nullptr), m_bMoreInput(false), m_bRingFull(false), m_bOutputDone(false),
      m_lChannels(0), m_lStreamChannels(format.Streams * format.nChannels), m_lReads(0),
      m_lDelivered(0), m_lWrites(0), m_lRuns(0), m_pInput(nullptr), m_pOutput(nullptr),
      m_pStreamOf(nullptr), m_pChannelOf(nullptr), m_ppBlocks(nullptr), m_bOk(false) {
    // Only bits of streams and channels that exist select anything.
    const uint32_t streams = std::min<uint32_t>(format.Streams, kMaxSelected);
    const uint32_t channels = std::min<uint32_t>(format.nChannels, kMaxSelected);
    uint32_t selected = 0;
    for (uint32_t s = 0; s < streams; ++s)
        for (uint32_t c = 0; c < channels; ++c)
            if ((format.ActiveStream >> s & 1u) && (format.ActiveChannels >> c & 1u)) ++selected;
    m_lChannels = selected;

    const size_t n = std::max<uint32_t>(selected, 1);
    m_pStreamOf = new (std::nothrow) uint16_t[n];
    m_pChannelOf = new (std::nothrow) uint16_t[n];
    m_ppBlocks = new (std::nothrow) float*[n];
    m_pInput = new (std::nothrow) SampleQueue[n];
    m_pOutput = new (std::nothrow) SampleQueue[n];
    if (!m_pStreamOf || !m_pChannelOf || !m_ppBlocks || !m_pInput || !m_pOutput) return;
    uint32_t q = 0;
    for (uint32_t s = 0; s < streams; ++s)
        for (uint32_t c = 0; c < channels; ++c)
            if ((format.ActiveStream >> s & 1u) && (format.ActiveChannels >> c & 1u)) {
                m_pStreamOf[q] = uint16_t(s);
                m_pChannelOf[q] = uint16_t(c);
                ++q;
            }

    if (uint32_t(outputRate) != format.nSamplesPerSec && selected > 0) {
        m_pResampler = MATrateconvert::Create(kBlockFrames, selected);
        if (!m_pResampler) return;
        // Source frames per output frame.
        m_pResampler->setRatio(float(double(format.nSamplesPerSec) / double(outputRate)));
    }
    m_bOk = true;
}

CSampleRateConverter::~CSampleRateConverter() {
    delete m_pResampler;
    delete[] m_pInput;
    delete[] m_pOutput;
    delete[] m_pStreamOf;
    delete[] m_pChannelOf;
    delete[] m_ppBlocks;
}

// ---- IUnknown

KXRESULT CSampleRateConverter::QueryInterface(const KXGUID& iid, void** object) {
    if (!object) return KXE_INVALID;
    if (iid == IID_IUnknown || iid == IID_ISampleRateConverter) {
        *object = static_cast<ISampleRateConverter*>(this);
        AddRef();
        return KX_OK;
    }
    *object = nullptr;
    return KXE_NOINTERFACE;
}

uint32_t CSampleRateConverter::AddRef() {
    return uint32_t(++m_lRefs);
}

uint32_t CSampleRateConverter::Release() {
    const int32_t refs = --m_lRefs;
    if (refs == 0) {
        delete this;
        return 0;
    }
    return uint32_t(refs);
}

// ---- Input

void CSampleRateConverter::ConvertChunk(const uint8_t* p, uint32_t n, uint32_t stream,
                                        uint32_t channel, float* out) const {
    // Sample i of the chunk: n * nChannels * stream + channel + i * nChannels samples from
    // p. The stream offset counts the chunk's frames, not the block's: a stream beyond the
    // first is found where it is only when the chunk is the whole block.
    const size_t step = m_Format.nChannels;
    const size_t first = size_t(n) * step * stream + channel;
    if (m_Format.wBitsPerSample == 16) {
        const uint8_t* s = p + first * 2;
        for (uint32_t i = 0; i < n; ++i, s += step * 2) {
            int16_t x;
            std::memcpy(&x, s, 2);
            out[i] = float(x) * 3.0517578125e-5f;
        }
    } else if (m_Format.wBitsPerSample == 8) {
        const uint8_t* s = p + first;
        for (uint32_t i = 0; i < n; ++i, s += step)
            out[i] = float(*s) * 0.0078125f - 1.0f;
    } else {
        const uint8_t* s = p + first * 4;
        for (uint32_t i = 0; i < n; ++i, s += step * 4)
            std::memcpy(out + i, s, 4);
    }
}

void CSampleRateConverter::FillInput(uint32_t q) {
    if (m_bInputDone) {
        // After the end each call yields one silent block per queue.
        for (uint32_t i = 0; i < m_lChannels; ++i)
            m_pInput[i].append().markFull();
        return;
    }
    const uint64_t frameBytes = uint64_t(m_Format.nBlockAlign) * m_Format.Streams;
    const size_t sampleBytes = m_Format.wBitsPerSample / 8u;
    while (m_pInput[q].totalAvailable() < SampleBlock::kCapacity) {
        void* data = nullptr;
        uint32_t bytes = 0;
        uintptr_t cookie = 0;
        if (!m_pReader->ReadData(&data, &bytes, &cookie)) m_bInputDone = true;
        const uint32_t frames = m_bInputDone || !data ? 0 : uint32_t(uint64_t(bytes) / frameBytes);
        ++m_lReads;

        for (uint32_t i = 0; i < m_lChannels; ++i) {
            const uint8_t* p = static_cast<const uint8_t*>(data);
            for (uint32_t left = frames; left > 0;) {
                SampleQueue& queue = m_pInput[i];
                SampleBlock& block =
                    !queue.empty() && queue.back().freeSpace() > 0 ? queue.back() : queue.append();
                const uint32_t n = std::min(block.freeSpace(), left);
                ConvertChunk(p, n, m_pStreamOf[i], m_pChannelOf[i], block.writeAddress());
                p += size_t(n) * m_Format.nChannels * sampleBytes;
                block.addCount(n);
                left -= n;
            }
        }
        if (m_bInputDone) {
            // The last block of each queue is padded with silence to a whole block.
            for (uint32_t i = 0; i < m_lChannels; ++i) {
                if (m_pInput[i].empty()) continue;
                SampleBlock& last = m_pInput[i].back();
                std::memset(last.writeAddress(), 0, last.freeSpace() * sizeof(float));
                last.markFull();
            }
        }
        m_pReader->FreeData(data, cookie);
        if (m_bInputDone) return;
    }
}

const wchar_t* CSampleRateConverter::StateWord() const {
    return m_bOutputDone ? L"OUTDONE" : m_bInputDone ? L"INDONE" : L"...";
}

void CSampleRateConverter::TraceInput(uint32_t q) {
    dbgPrintf(kArea, kLevelFlow,
              L"SampleConverter: Read Input Until 1 block(%d) ready: I:%u O:%u %s\r\n",
              kBlockFrames, m_pInput[q].totalAvailable(), m_pOutput[q].totalAvailable(),
              m_bInputDone ? L"INDONE" : L"...");
}

// ---- The two paths

void CSampleRateConverter::ResampleUntil(uint32_t samples, uint32_t q) {
    while (m_pOutput[q].totalAvailable() < samples) {
        if (!m_bRingFull) {
            // Keep the resampler's ring at least half full before any output is made.
            for (;;) {
                FillInput(q);
                TraceInput(q);
                if (m_pInput[q].totalAvailable() >= SampleBlock::kCapacity) {
                    for (uint32_t i = 0; i < m_lChannels; ++i)
                        m_ppBlocks[i] = m_pInput[i].front().samples;
                    m_bMoreInput = m_pResampler->write(m_ppBlocks);
                    ++m_lWrites;
                    for (uint32_t i = 0; i < m_lChannels; ++i)
                        m_pInput[i].removeFront();
                }
                if (!m_bMoreInput) break;
            }
        }
        for (uint32_t i = 0; i < m_lChannels; ++i) {
            SampleBlock& out = m_pOutput[i].append();
            out.markFull();
            m_ppBlocks[i] = out.samples;
        }
        m_bRingFull = m_pResampler->read(m_ppBlocks);
        ++m_lRuns;
    }
}

void CSampleRateConverter::PassThroughUntil(uint32_t samples, uint32_t q) {
    while (!m_bOutputDone && m_pOutput[q].totalAvailable() < samples) {
        FillInput(q);
        TraceInput(q);
        ++m_lRuns;
        uint32_t a = m_pInput[q].totalAvailable();
        if (a == 0) {
            m_bOutputDone = true;
            continue;
        }
        for (;;) {
            if (!m_bInputDone && a < SampleBlock::kCapacity) break;
            for (uint32_t i = 0; i < m_lChannels; ++i) {
                if (m_pInput[i].empty()) continue;
                SampleBlock& in = m_pInput[i].front();
                SampleQueue& outQueue = m_pOutput[i];
                const uint32_t room = outQueue.empty() ? 0 : outQueue.back().freeSpace();
                if (room < a || room < in.available()) outQueue.append();
                SampleBlock& out = outQueue.back();
                dbgPrintf(kArea, kLevelFlow, L"Copy: %d samples form %p(%d) to %p(%d)\r\n",
                          int(in.available()), in.readAddress(), int(in.count), out.writeAddress(),
                          int(out.count));
                std::memcpy(out.writeAddress(), in.readAddress(), in.available() * sizeof(float));
                out.addCount(in.available());
                m_pInput[i].removeFront();
            }
            a = m_pInput[q].totalAvailable();
            if (!m_bInputDone) {
                if (a != 0) continue;
                break;
            }
            if (a == 0) {
                m_bOutputDone = true;
                break;
            }
        }
    }
}

// ---- Requests

bool CSampleRateConverter::ReadSamples(float* target, uint32_t samples, uint32_t q) {
    if (q >= m_lChannels || (!target && samples > 0) || !KnownSamples(m_Format)) return false;
    try {
        if (m_pResampler)
            ResampleUntil(samples, q);
        else
            PassThroughUntil(samples, q);
    } catch (const std::bad_alloc&) {
        return false; // the queues could not grow
    }

    SampleQueue& out = m_pOutput[q];
    uint32_t done = 0;
    while (done < samples && !out.empty() && out.totalAvailable() != 0) {
        SampleBlock& first = out.front();
        const uint32_t m = std::min(samples - done, first.available());
        std::memcpy(target + done, first.readAddress(), m * sizeof(float));
        first.addRead(m);
        if (first.read >= first.count) out.removeFront();
        done += m;
    }
    if (done < samples && done == 0) {
        dbgPrintf(kArea, kLevelFlow, L"SampleConverter NO MORE DATA (Stream=%d) ********\r\n",
                  int(q));
        return false;
    }
    if (done < samples) {
        dbgPrintf(kArea, kLevelFlow, L"SampleConverter Padding %d Zeros (Stream=%d) ********\r\n",
                  int(samples - done), int(q));
        std::memset(target + done, 0, size_t(samples - done) * sizeof(float));
        return true;
    }
    dbgPrintf(kArea, kLevelFlow,
              L"SampleConverter Data Ready (Delivered %u Samples, Stream=%d): I: %u, O: %u %s\r\n",
              samples, int(q), m_pInput[q].totalAvailable(), out.totalAvailable(), StateWord());
    ++m_lDelivered;
    dbgPrintf(kArea, kLevelQueue, L"SampleConverter: QueueLength: %d=%u-%u\r\n",
              int32_t(m_lReads - m_lDelivered), m_lReads, m_lDelivered);
    return true;
}

} // namespace kelp
