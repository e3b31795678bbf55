// The "ALP1" stream: the run-length encoder and the decoders.
#include <kelp/stdfx_rle.h>

#include <cstring>

#include "rlescan.h"

namespace stdfx {

namespace {

uint32_t ReadWord(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

void WriteWord(uint8_t* p, uint32_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
    p[2] = uint8_t(v >> 16);
    p[3] = uint8_t(v >> 24);
}

void WriteHeader(uint8_t* s, uint32_t mode, uint32_t rawSize, uint32_t codedSize) {
    WriteWord(s, mode);
    WriteWord(s + 4, rawSize);
    WriteWord(s + 8, codedSize);
}

// The largest data the encoder takes: a stored stream and the slack stay 32-bit sizes.
constexpr uint32_t kMaxData = 0xFFFFFFFFu - CDibRLE::kEncodeSlack;

// Rounds a stream length up to 4 and clears the pad bytes.
uint32_t Pad(uint8_t* s, size_t length) {
    size_t padded = (length + 3) & ~size_t(3);
    std::memset(s + length, 0, padded - length);
    return uint32_t(padded);
}

// Walks the packets of a stream. With Write false nothing is written and `data` may be
// null: the walk tells whether the stream is sound and what it decodes to. The stream
// is read below `streamBytes` only, the data written below `dataBytes` only.
template <bool Write>
bool Walk(uint8_t* data, uint32_t dataBytes, uint32_t* size, const uint8_t* s, uint32_t streamBytes,
          uint32_t* length) {
    *size = 0;
    *length = 0;
    if (!s || streamBytes < CDibRLE::kHeaderBytes) return false;
    const uint32_t mode = ReadWord(s);
    const uint32_t rawSize = ReadWord(s + 4);
    const uint32_t codedSize = ReadWord(s + 8);
    if (mode == CDibRLE::kModeStored) {
        // Stored: codedSize repeats rawSize and the stream is 12 bytes longer.
        if (codedSize != rawSize || rawSize > streamBytes - CDibRLE::kHeaderBytes ||
            rawSize > dataBytes)
            return false;
        if (Write && rawSize) std::memcpy(data, s + CDibRLE::kHeaderBytes, rawSize);
        *size = rawSize;
        *length = CDibRLE::kHeaderBytes + rawSize;
        return true;
    }
    if (!(mode & 4)) return false;
    if (codedSize <= CDibRLE::kHeaderBytes) {
        *length = codedSize;
        return true; // no packets
    }
    if (codedSize > streamBytes || rawSize > dataBytes) return false;
    *length = codedSize;
    uint32_t off = CDibRLE::kHeaderBytes, o = 0;
    while (off < codedSize) {
        if (s[off] == 0) {
            if (codedSize - off < 2) return false;
            const uint32_t count = s[off + 1];
            off += 2;
            if (count > codedSize - off || count > rawSize - o) return false;
            if (Write && count) std::memcpy(data + o, s + off, count);
            off += count;
            o += count;
            *size = o;
            continue;
        }
        // A run: up to five 7-bit groups, the last at a shift of 28.
        uint32_t runLength = 0;
        for (int shift = 0;; shift += 7) {
            if (off >= codedSize) return false;
            const uint8_t b = s[off++];
            runLength |= uint32_t(b & 0x7F) << shift;
            if (b < 0x80 || shift + 7 >= 35) break;
        }
        if (off >= codedSize) return false; // no value byte
        const uint8_t value = s[off++];
        if (runLength > rawSize - o) return false;
        if (Write && runLength) std::memset(data + o, value, runLength);
        o += runLength;
        *size = o;
    }
    return true;
}

} // namespace

bool CDibRLE::Encode(void* stream, uint32_t* size, const void* data, uint32_t bytes) {
    if (size) *size = 0;
    if (!stream || !size || (!data && bytes) || bytes > kMaxData) return false;
    auto* s = static_cast<uint8_t*>(stream);
    const auto* d = static_cast<const uint8_t*>(data);
    const size_t n = bytes;
    size_t pos = kHeaderBytes;
    if (n <= 1) {
        WriteHeader(s, kModeRuns, bytes, kHeaderBytes);
        *size = kHeaderBytes;
        return true;
    }
    const rlescan::RunEndFn runEnd = rlescan::Current().runEnd;
    // Pending literals are always the bytes just before the current run, so they are
    // copied from the data when their packet is written.
    size_t literalStart = 0, literals = 0;
    uint8_t c = d[0];
    size_t length = 1, i = 1;
    for (;;) {
        const size_t end = runEnd(d, i, n, c);
        length += end - i;
        i = end;
        if (length == 1) {
            if (literals == 0) literalStart = i - 1;
            ++literals;
        }
        if ((literals && length > 1) || literals >= 255) {
            s[pos] = 0;
            s[pos + 1] = uint8_t(literals);
            std::memcpy(s + pos + 2, d + literalStart, literals);
            pos += 2 + literals;
            literals = 0;
        }
        if (length != 1) {
            size_t rest = length;
            for (int group = 0; group < 4 && rest >= 0x80; ++group) {
                s[pos++] = uint8_t(rest | 0x80);
                rest >>= 7;
            }
            s[pos++] = uint8_t(rest);
            s[pos++] = c;
        }
        if (pos > n) {
            // The stream outgrew the data: store it instead.
            WriteHeader(s, kModeStored, bytes, bytes);
            std::memcpy(s + kHeaderBytes, d, n);
            *size = Pad(s, kHeaderBytes + n);
            return true;
        }
        // The end of the data: pending literals and a last single byte stay unwritten.
        if (i + 1 >= n) break;
        c = d[i];
        ++i;
        length = 1;
    }
    WriteHeader(s, kModeRuns, bytes, uint32_t(pos));
    *size = Pad(s, pos);
    return true;
}

bool CDibRLE::Decode(void* data, uint32_t* size, const void* stream) {
    if (!size) return false;
    *size = 0;
    if (!stream) return false;
    // The stated sizes are all there is to go by.
    const auto* s = static_cast<const uint8_t*>(stream);
    const uint32_t mode = ReadWord(s), rawSize = ReadWord(s + 4), codedSize = ReadWord(s + 8);
    uint32_t streamBytes = codedSize;
    if (mode == kModeStored)
        streamBytes = rawSize > 0xFFFFFFFFu - kHeaderBytes ? 0 : kHeaderBytes + rawSize;
    if (streamBytes < kHeaderBytes) streamBytes = kHeaderBytes;
    if (!data && rawSize) return false;
    return DecodeWithin(data, rawSize, size, stream, streamBytes);
}

uint32_t CDibRLE::GetCodedSize(const void* stream) {
    return stream ? ReadWord(static_cast<const uint8_t*>(stream) + 8) : 0;
}

bool CDibRLE::DecodeWithin(void* data, uint32_t dataBytes, uint32_t* size, const void* stream,
                           uint32_t streamBytes) {
    uint32_t ignored = 0, length = 0;
    if (!size) size = &ignored;
    if (!data) dataBytes = 0;
    return Walk<true>(static_cast<uint8_t*>(data), dataBytes, size,
                      static_cast<const uint8_t*>(stream), streamBytes, &length);
}

bool CDibRLE::CheckStream(const void* stream, uint32_t streamBytes, uint32_t dataBytes,
                          uint32_t* length, uint32_t* size) {
    uint32_t ignoredSize = 0, ignoredLength = 0;
    return Walk<false>(nullptr, dataBytes, size ? size : &ignoredSize,
                       static_cast<const uint8_t*>(stream), streamBytes,
                       length ? length : &ignoredLength);
}

} // namespace stdfx
