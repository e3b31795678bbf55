// Run-length mattes: an 8-bit image (a matte or an alpha plane) packed in place into an
// "ALP1" stream and expanded again.
//
// The stream is three little-endian 32-bit words, then the data:
//   mode       6: run-length packets follow; 1: the data is stored as it is.
//              Decoding tests only for 1 and for bit 2 (value 4).
//   rawSize    bytes of the decoded data.
//   codedSize  mode 6: bytes of the stream, these 12 included, up to the last packet.
//              mode 1: rawSize, without the 12 bytes.
// Packets: a first byte 0 is a literal (count 1..255, then that many bytes); any other
// first byte starts a run, its length in 7-bit groups, low group first (bit 7 set: one
// more byte follows; five bytes at most), then the value. Runs are at least 2 long.
//
// The encoder does not write pending literals, nor a last byte that differs from the
// one before it, when the data ends: such a stream decodes to fewer than rawSize bytes
// and the rest of the image stays as it is.
//
// A stream is outside data. The decoders never read past the stream's stated length
// nor the buffer they are given, never write past rawSize nor the buffer, and a stream
// that lies (a packet running past its end, sizes that disagree, an unknown mode) gives
// false; DecompressImage then leaves the image as it was.
#pragma once

#include <cstdint>

#include "kelpdefs.h"

namespace stdfx {

class CDIB;

// A table of operations without data: build one on the stack where it is used.
class KELP_API CDibRLE {
public:
    static constexpr uint32_t kFormat = 0x31504C41u; // "ALP1"
    static constexpr uint32_t kModeStored = 1;
    static constexpr uint32_t kModeRuns = 6;
    static constexpr uint32_t kHeaderBytes = 12;
    // Room beyond the data that Encode may use: a stream can outgrow the data by one
    // packet before the encoder falls back to storing it.
    static constexpr uint32_t kEncodeSlack = 1024;

    // ---- virtual operations, in slot order
    // CompressImage / DecompressImage of an 8-bit image; false for any other depth.
    virtual bool Compress(CDIB& dib);
    virtual bool Decompress(CDIB& dib);
    // Encodes `bytes` of data into `stream`, which has room for bytes + kEncodeSlack.
    // *size gets the stream's length rounded up to 4 (the pad bytes are 0).
    virtual bool Encode(void* stream, uint32_t* size, const void* data, uint32_t bytes);
    // Decodes a stream whose stated sizes are trusted for its length (codedSize, or
    // 12 + rawSize when stored) and the room of `data` (rawSize). *size gets the bytes
    // written; on a packet that does not fit, those written before it.
    virtual bool Decode(void* data, uint32_t* size, const void* stream);
    // Encodes the pixels of `dib` (format 0) into a temporary and copies the stream
    // back over them, with the format "ALP1" and the stream's size. False, with the
    // image unchanged, when there is nothing to encode or the stream does not fit the
    // image's buffer (a stored stream is 12 bytes longer than the data).
    virtual bool CompressImage(CDIB& dib);
    // codedSize of a stream (see the asymmetry above).
    virtual uint32_t GetCodedSize(const void* stream);
    // Decodes an "ALP1" image in place into 8-bit pixels of format 0. The stream must
    // fit the image's buffer and its rawSize must be the image's size.
    virtual bool DecompressImage(CDIB& dib);

    // ---- helpers over buffers of known size
    // Decode with the room of both buffers given: nothing is read at or past
    // stream + streamBytes, nothing written at or past data + dataBytes.
    static bool DecodeWithin(void* data, uint32_t dataBytes, uint32_t* size, const void* stream,
                             uint32_t streamBytes);
    // True if the stream within `streamBytes` decodes without a fault into `dataBytes`;
    // *length gets the stream's own length (12 + rawSize stored, else codedSize) and
    // *size the bytes it decodes to. Reads the stream only.
    static bool CheckStream(const void* stream, uint32_t streamBytes, uint32_t dataBytes,
                            uint32_t* length, uint32_t* size);
};

} // namespace stdfx
