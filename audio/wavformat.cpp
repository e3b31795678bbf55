// CKXWAVFormat: building, comparing and sizing the audio block record, and moving one
// channel of a block in and out as mono 16-bit samples.
#include <kelp/trace.h>
#include <kelp/wavformat.h>

#include <cmath>
#include <cstring>

#include "runtime/kelpos.h"

namespace kelp {

namespace {

// 2^n - 1 with the shift count taken modulo 32, as the processor's shift does.
uint32_t LowBits(uint32_t n) { return (uint32_t(1) << (n & 31u)) - 1u; }

bool IsIntegerPcm(const tagKXWAVFORMAT& f) {
    return f.wFormatTag == KXWAVE_FORMAT_PCM ||
           (f.wFormatTag == KXWAVE_FORMAT_EXTENSIBLE && f.cbSize >= 22);
}

// A float sample to 16 bits: scaled by 32767, rounded half away from zero in single
// precision, then truncated. The overflow test is made on the truncated value, so full
// scale 1.0 (32767.5) gives 32767; anything larger gives 32727, not 32767, and that value
// is kept as it always was. A not-a-number gives 0, the low half of the integer that
// the processor's truncation answers for it.
short FloatTo16(float x) {
    double v = double(x) * 32767.0;
    v = (x > 0.0f) ? v + 0.5 : v - 0.5;
    const float r = float(v);
    if (std::isnan(r)) return 0;
    if (r < -32768.0f) return short(-32768);
    if (r >= 32768.0f) return short(32727);
    return short(int32_t(r));
}

template <typename T> T Load(const unsigned char* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

} // namespace

CKXWAVFormat::CKXWAVFormat(int rate, int bits, int channels, int streams, unsigned short tag) {
    std::memset(static_cast<tagKXWAVFORMAT*>(this), 0, sizeof(tagKXWAVFORMAT));
    wFormatTag = tag;
    wBitsPerSample = uint16_t(bits);
    nChannels = uint16_t(channels);
    // Signed division, truncating towards zero; 12-bit stereo gives 3.
    nBlockAlign = uint16_t(int32_t(uint32_t(bits) * uint32_t(channels)) / 8);
    nSamplesPerSec = uint32_t(rate);
    nAvgBytesPerSec = uint32_t(nBlockAlign) * uint32_t(rate);
    Streams = uint32_t(streams);
    ActiveStream = LowBits(uint32_t(streams));
    ActiveChannels = LowBits(uint32_t(channels));
    MaxBufferSize = nAvgBytesPerSec;
    cbSize = 0;
    Size = KXWAVFORMAT_SIZE;
    ID = KXWAVFORMAT_ID;
    SamplesPerStream = 0;
}

CKXWAVFormat::CKXWAVFormat(const CKXWAVFormat& other) : tagKXWAVFORMAT() { *this = other; }
CKXWAVFormat::CKXWAVFormat(const tagKXWAVFORMAT& other) : tagKXWAVFORMAT() { *this = other; }
CKXWAVFormat::CKXWAVFormat(const WAVEFORMATEX& wfx) : tagKXWAVFORMAT() { *this = wfx; }
CKXWAVFormat::CKXWAVFormat(const tagKXWAVFORMAT* other) : tagKXWAVFORMAT() { *this = other; }
CKXWAVFormat::CKXWAVFormat(const WAVEFORMATEX* wfx) : tagKXWAVFORMAT() { *this = wfx; }

// The stores go through volatile so that they are made although the object ends here:
// whoever still holds the address finds a dead record.
CKXWAVFormat::~CKXWAVFormat() {
    *static_cast<volatile uint32_t*>(&Size) = 0;
    *static_cast<volatile uint32_t*>(&ID) = 0;
}

CKXWAVFormat& CKXWAVFormat::operator=(const CKXWAVFormat& other) {
    return *this = static_cast<const tagKXWAVFORMAT&>(other);
}

CKXWAVFormat& CKXWAVFormat::operator=(const tagKXWAVFORMAT& other) {
    std::memmove(static_cast<tagKXWAVFORMAT*>(this), &other, sizeof(tagKXWAVFORMAT));
    return *this;
}

CKXWAVFormat& CKXWAVFormat::operator=(const WAVEFORMATEX& wfx) {
    // The first sixteen bytes, wFormatTag to wBitsPerSample, as they are.
    std::memmove(static_cast<tagKXWAVFORMAT*>(this), &wfx, 16);
    cbSize = 0;
    Size = KXWAVFORMAT_SIZE;
    ID = KXWAVFORMAT_ID;
    Streams = 1;
    ActiveStream = 1;
    ActiveChannels = LowBits(nChannels);
    MaxBufferSize = nAvgBytesPerSec;
    SamplesPerStream = 0;
    std::memset(abReserved, 0, sizeof abReserved);
    return *this;
}

CKXWAVFormat& CKXWAVFormat::operator=(const tagKXWAVFORMAT* other) {
    Size = 0;
    ID = 0;
    if (!other || !os::IsReadable(other, sizeof(tagKXWAVFORMAT))) return *this;
    return *this = *other;
}

CKXWAVFormat& CKXWAVFormat::operator=(const WAVEFORMATEX* wfx) {
    Size = 0;
    ID = 0;
    if (!wfx || !os::IsReadable(wfx, sizeof(WAVEFORMATEX))) return *this;
    return *this = *wfx;
}

int CKXWAVFormat::operator==(const tagKXWAVFORMAT& o) const {
    return (wFormatTag == o.wFormatTag && Streams == o.Streams &&
            nSamplesPerSec == o.nSamplesPerSec && wBitsPerSample == o.wBitsPerSample &&
            nChannels == o.nChannels && nBlockAlign == o.nBlockAlign)
               ? 1
               : 0;
}

int CKXWAVFormat::operator!=(const tagKXWAVFORMAT& o) const { return (*this == o) > 0 ? 0 : 1; }

int CKXWAVFormat::CompareStreamFormat(const tagKXWAVFORMAT& o) const {
    return (wFormatTag == o.wFormatTag && nSamplesPerSec == o.nSamplesPerSec &&
            wBitsPerSample == o.wBitsPerSample && nChannels == o.nChannels &&
            nBlockAlign == o.nBlockAlign)
               ? 1
               : 0;
}

int CKXWAVFormat::CompareWaveFormat(const tagKXWAVFORMAT& o) const {
    return (wFormatTag == o.wFormatTag && nSamplesPerSec == o.nSamplesPerSec &&
            wBitsPerSample == o.wBitsPerSample)
               ? 1
               : 0;
}

uint32_t CKXWAVFormat::DataSize() const { return DataSize(this); }

uint32_t CKXWAVFormat::DataSize(const tagKXWAVFORMAT* f) {
    if (!f) return 0;
    return uint32_t(f->nBlockAlign) * f->SamplesPerStream * f->Streams;
}

short* CKXWAVFormat::GetMono16Frame(unsigned char* block, short* target, uint32_t stream,
                                    uint32_t channel) const {
    if (ActiveStream == 0xFFFFFFFFu || stream >= Streams || channel >= nChannels) return nullptr;
    // The start counts whole streams of SamplesPerStream samples, not frames: with several
    // channels, a stream above 0 is read from inside the first stream. Callers have
    // always been given exactly this.
    const size_t start = size_t(SamplesPerStream) * stream + channel;
    const size_t step = nChannels;
    const size_t count = SamplesPerStream;
    if (IsIntegerPcm(*this)) {
        switch (wBitsPerSample) {
        case 8:
            for (size_t i = 0; i < count; ++i)
                target[i] = short((int32_t(block[start + i * step]) - 128) * 256);
            return target;
        case 16:
            if (nChannels == 1) return reinterpret_cast<short*>(block);
            for (size_t i = 0; i < count; ++i)
                target[i] = Load<short>(block + 2 * (start + i * step));
            return target;
        case 32:
            for (size_t i = 0; i < count; ++i) {
                const uint32_t x = Load<uint32_t>(block + 4 * (start + i * step));
                target[i] = short(int32_t(x + 0x8000u) >> 16);
            }
            return target;
        default:
            return nullptr;
        }
    }
    if (wFormatTag == KXWAVE_FORMAT_IEEE_FLOAT && wBitsPerSample == 32) {
        for (size_t i = 0; i < count; ++i)
            target[i] = FloatTo16(Load<float>(block + 4 * (start + i * step)));
        return target;
    }
    return nullptr;
}

int CKXWAVFormat::InsertMono16Frame(short* block, const short* mono, uint32_t stream,
                                    uint32_t channel) const {
    if (stream >= Streams || channel >= nChannels) return 0;
    if (wBitsPerSample != 16 || wFormatTag != KXWAVE_FORMAT_PCM) return 0;
    const size_t base = size_t(SamplesPerStream) * nChannels * stream + channel;
    for (size_t i = 0; i < SamplesPerStream; ++i) block[base + i * nChannels] = mono[i];
    return 1;
}

int CKXWAVFormat::InsertMono32Frame(float* block, const short* mono, uint32_t stream,
                                    uint32_t channel) const {
    if (stream >= Streams || channel >= nChannels) return 0;
    if (wBitsPerSample != 32) return 0;
    const size_t base = size_t(SamplesPerStream) * nChannels * stream + channel;
    // 1/32768: a different scale from the 32767 of GetMono16Frame, on purpose.
    for (size_t i = 0; i < SamplesPerStream; ++i)
        block[base + i * nChannels] = float(double(mono[i]) * 3.0517578125e-5);
    return 1;
}

int CKXWAVFormat::InsertMono16Frame(short* block, const short* mono, uint32_t mask) const {
    for (uint32_t b = 0; b < 4; ++b) {
        if (!(mask & (1u << b))) continue;
        if (nChannels == 0) return 0; // no slot can be placed
        const uint32_t stream = b / nChannels;
        const uint32_t channel = b % nChannels;
        const int ok = (wBitsPerSample == 32)
                           ? InsertMono32Frame(reinterpret_cast<float*>(block), mono, stream,
                                               channel)
                           : InsertMono16Frame(block, mono, stream, channel);
        if (!ok) return 0;
    }
    return 1;
}

void CKXWAVFormat::Dump(int area, int level) const {
    const wchar_t* word = wFormatTag == KXWAVE_FORMAT_PCM          ? L"PCM"
                          : wFormatTag == KXWAVE_FORMAT_IEEE_FLOAT ? L"FLT"
                                                                   : L"???";
    unsigned char id[4];
    std::memcpy(id, &ID, 4);
    dbgPrintf(area, level, L"KXWAVFORMAT: Size=%d ID=%hc%hc%hc%hc Format=%s\r\n", int32_t(Size),
              int(id[3]), int(id[2]), int(id[1]), int(id[0]), word);
    dbgPrintf(area, level, L"  %7d SamplesPerSec\r\n", int32_t(nSamplesPerSec));
    dbgPrintf(area, level, L"  %7d BitsPerSample\r\n", int32_t(wBitsPerSample));
    dbgPrintf(area, level, L"  %7d BlockAlign\r\n", int32_t(nBlockAlign));
    dbgPrintf(area, level, L"  %7d AvgBytesPerSec\r\n", int32_t(nAvgBytesPerSec));
    dbgPrintf(area, level, L"  %7d Streams\r\n", int32_t(Streams));
    dbgPrintf(area, level, L"  %7d Channels\r\n", int32_t(nChannels));
    dbgPrintf(area, level, L"  %7d ActiveStream\r\n", int32_t(ActiveStream));
    dbgPrintf(area, level, L"  %7d SamplesPerStream\r\n", int32_t(SamplesPerStream));
    dbgPrintf(area, level, L"  %7d MaxBufferSize\r\n", int32_t(MaxBufferSize));
}

} // namespace kelp
