// The description of a block of audio: KXWAVFORMAT, a 64-byte record whose first
// eighteen bytes are a WAVEFORMATEX, and CKXWAVFormat, the value class around it.
//
// A block holds `Streams` streams one behind the other, each `SamplesPerStream` frames
// of `nChannels` interleaved samples: its size is nBlockAlign * SamplesPerStream *
// Streams bytes. `ActiveStream` and `ActiveChannels` are bit masks over the streams and
// over the channels of one stream.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kelpdefs.h"

// The system's wave format record, byte-packed to its 18 bytes. A host that has its own
// declaration (same guard) keeps it.
#ifndef _WAVEFORMATEX_
#define _WAVEFORMATEX_
#pragma pack(push, 1)
typedef struct tWAVEFORMATEX {
    uint16_t wFormatTag;
    uint16_t nChannels;
    uint32_t nSamplesPerSec;
    uint32_t nAvgBytesPerSec;
    uint16_t nBlockAlign;
    uint16_t wBitsPerSample;
    uint16_t cbSize;
} WAVEFORMATEX;
#pragma pack(pop)
#endif
static_assert(sizeof(WAVEFORMATEX) == 18, "WAVEFORMATEX is 18 bytes");

// Format tags.
constexpr uint16_t KXWAVE_FORMAT_PCM = 1;
constexpr uint16_t KXWAVE_FORMAT_IEEE_FLOAT = 3;
constexpr uint16_t KXWAVE_FORMAT_EXTENSIBLE = 0xFFFE;

// The record mark: the bytes "BLUE" in memory order.
constexpr uint32_t KXWAVFORMAT_ID = KXFOURCC('B', 'L', 'U', 'E');
constexpr uint32_t KXWAVFORMAT_SIZE = 64;

typedef struct tagKXWAVFORMAT {
    uint16_t wFormatTag;      // 1 integer PCM, 3 IEEE float, 0xFFFE extensible
    uint16_t nChannels;       // channels of one stream
    uint32_t nSamplesPerSec;  // rate in hertz
    uint32_t nAvgBytesPerSec; // nBlockAlign * rate
    uint16_t nBlockAlign;     // bytes of one frame of one stream
    uint16_t wBitsPerSample;  // bits of one sample of one channel
    uint16_t cbSize;          // as in WAVEFORMATEX; the library writes 0
    uint16_t wReserved;
    uint32_t Size;             // 64 in a live record, 0 in a destroyed or failed one
    uint32_t ID;               // KXWAVFORMAT_ID in a live record, 0 otherwise
    uint32_t Streams;          // streams in a block
    uint32_t ActiveStream;     // bit s: stream s is active; 0xFFFFFFFF: no usable selection
    uint32_t ActiveChannels;   // bit c: channel c of a stream is active
    uint32_t SamplesPerStream; // frames of one stream in this block
    uint32_t MaxBufferSize;    // largest block in bytes
    uint32_t dwReserved;
    uint8_t abReserved[12];
} KXWAVFORMAT;

static_assert(sizeof(KXWAVFORMAT) == 64, "KXWAVFORMAT is 64 bytes");
static_assert(offsetof(KXWAVFORMAT, wFormatTag) == 0, "layout");
static_assert(offsetof(KXWAVFORMAT, nChannels) == 2, "layout");
static_assert(offsetof(KXWAVFORMAT, nSamplesPerSec) == 4, "layout");
static_assert(offsetof(KXWAVFORMAT, nAvgBytesPerSec) == 8, "layout");
static_assert(offsetof(KXWAVFORMAT, nBlockAlign) == 12, "layout");
static_assert(offsetof(KXWAVFORMAT, wBitsPerSample) == 14, "layout");
static_assert(offsetof(KXWAVFORMAT, cbSize) == 16, "layout");
static_assert(offsetof(KXWAVFORMAT, wReserved) == 18, "layout");
static_assert(offsetof(KXWAVFORMAT, Size) == 20, "layout");
static_assert(offsetof(KXWAVFORMAT, ID) == 24, "layout");
static_assert(offsetof(KXWAVFORMAT, Streams) == 28, "layout");
static_assert(offsetof(KXWAVFORMAT, ActiveStream) == 32, "layout");
static_assert(offsetof(KXWAVFORMAT, ActiveChannels) == 36, "layout");
static_assert(offsetof(KXWAVFORMAT, SamplesPerStream) == 40, "layout");
static_assert(offsetof(KXWAVFORMAT, MaxBufferSize) == 44, "layout");
static_assert(offsetof(KXWAVFORMAT, dwReserved) == 48, "layout");
static_assert(offsetof(KXWAVFORMAT, abReserved) == 52, "layout");
// The WAVEFORMATEX part is the same bytes in both records.
static_assert(offsetof(WAVEFORMATEX, wFormatTag) == offsetof(KXWAVFORMAT, wFormatTag), "layout");
static_assert(offsetof(WAVEFORMATEX, nChannels) == offsetof(KXWAVFORMAT, nChannels), "layout");
static_assert(offsetof(WAVEFORMATEX, nSamplesPerSec) == offsetof(KXWAVFORMAT, nSamplesPerSec),
              "layout");
static_assert(offsetof(WAVEFORMATEX, nAvgBytesPerSec) == offsetof(KXWAVFORMAT, nAvgBytesPerSec),
              "layout");
static_assert(offsetof(WAVEFORMATEX, nBlockAlign) == offsetof(KXWAVFORMAT, nBlockAlign), "layout");
static_assert(offsetof(WAVEFORMATEX, wBitsPerSample) == offsetof(KXWAVFORMAT, wBitsPerSample),
              "layout");
static_assert(offsetof(WAVEFORMATEX, cbSize) == offsetof(KXWAVFORMAT, cbSize), "layout");

namespace kelp {

// The record and nothing else: a CKXWAVFormat* may be used as a KXWAVFORMAT* and the
// object copied as 64 bytes. Failures are 0 or null results; nothing is traced or thrown.
class KELP_API CKXWAVFormat : public tagKXWAVFORMAT {
public:
    // All 64 bytes cleared, then the format of `streams` streams of `channels` channels
    // of `bits`-bit samples at `rate`, every stream and channel active, no frames yet.
    explicit CKXWAVFormat(int rate = 44100, int bits = 16, int channels = 1, int streams = 1,
                          unsigned short tag = KXWAVE_FORMAT_PCM);
    CKXWAVFormat(const CKXWAVFormat& other);
    CKXWAVFormat(const tagKXWAVFORMAT& other);
    CKXWAVFormat(const WAVEFORMATEX& wfx);
    CKXWAVFormat(const tagKXWAVFORMAT* other);
    CKXWAVFormat(const WAVEFORMATEX* wfx);
    // Marks the record dead: Size and ID 0.
    ~CKXWAVFormat();

    // Copies all 64 bytes.
    CKXWAVFormat& operator=(const CKXWAVFormat& other);
    CKXWAVFormat& operator=(const tagKXWAVFORMAT& other);
    // One stream of the given format, all its channels active. The word at offset 48
    // keeps its value.
    CKXWAVFormat& operator=(const WAVEFORMATEX& wfx);
    // Size and ID become 0 first; a null or unreadable pointer leaves it at that, which
    // a caller sees in Size.
    CKXWAVFormat& operator=(const tagKXWAVFORMAT* other);
    CKXWAVFormat& operator=(const WAVEFORMATEX* wfx);

    // Tag, streams, rate, bits, channels and block align all equal: 1, else 0.
    int operator==(const tagKXWAVFORMAT& other) const;
    int operator!=(const tagKXWAVFORMAT& other) const;
    // As == without the stream count.
    int CompareStreamFormat(const tagKXWAVFORMAT& other) const;
    // Tag, rate and bits only.
    int CompareWaveFormat(const tagKXWAVFORMAT& other) const;

    // Bytes of one block: nBlockAlign * SamplesPerStream * Streams (32-bit).
    uint32_t DataSize() const;
    static uint32_t DataSize(const tagKXWAVFORMAT* format); // 0 for null

    // One channel of one stream of the block as SamplesPerStream signed 16-bit samples
    // in `target`; returns target, or the block itself for 16-bit mono (nothing copied),
    // or null when the stream, the channel or the sample format is not served. The read
    // starts at sample SamplesPerStream * stream + channel of the block and steps by
    // nChannels samples.
    short* GetMono16Frame(unsigned char* block, short* target, uint32_t stream,
                          uint32_t channel) const;
    // Writes SamplesPerStream mono samples into one channel of one stream of a 16-bit
    // PCM block. 1 on success, 0 if the stream, the channel or the format does not fit.
    int InsertMono16Frame(short* block, const short* mono, uint32_t stream,
                          uint32_t channel) const;
    // The same into a block of 32-bit float samples, each value mono[i] / 32768.
    int InsertMono32Frame(float* block, const short* mono, uint32_t stream,
                          uint32_t channel) const;
    // The same samples into every sample slot b (0 to 3) whose bit is set in `mask`, slot b
    // being channel b % nChannels of stream b / nChannels; 32-bit blocks take floats.
    // Stops with 0 at the first slot that fails (and when nChannels is 0); else 1.
    int InsertMono16Frame(short* block, const short* mono, uint32_t mask) const;

    // The record as ten trace lines, through dbgPrintf(area, level, ...).
    void Dump(int area, int level) const;
};

static_assert(sizeof(CKXWAVFormat) == 64, "CKXWAVFormat is the record alone");

} // namespace kelp
