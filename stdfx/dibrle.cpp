// Run-length mattes on images: CDibRLE's image operations and the CDIB operations that
// forward to them.
#include <kelp/stdfx_dib.h>
#include <kelp/stdfx_rle.h>

#include <algorithm>
#include <cstring>

#include <kelp/mpheap.h>

namespace stdfx {

namespace {

constexpr uint32_t kMinHeader = 40;
constexpr uint32_t kMaxHeader = 4096;

// Bytes from the pixel start to the end of the image's buffer: what an owned block
// really holds; for pixels that belong to the caller, `claimed`, the size its header
// gives them.
uint32_t PixelRoom(const CDIB& dib, uint32_t claimed) {
    const CDIBData* body = dib.Data();
    if (!body || !body->bOwned || !body->pHeader || !body->pBits) return claimed;
    const auto offset = uint64_t(static_cast<const unsigned char*>(body->pBits) -
                                 reinterpret_cast<const unsigned char*>(body->pHeader));
    return offset >= body->cbBlock ? 0 : uint32_t(body->cbBlock - offset);
}

// The header of the decoded image: format 0, size left to the format.
bool DecodedHeader(const CDIB& dib, unsigned char (&copy)[kMaxHeader]) {
    const uint32_t n = dib.GetHeaderSize();
    if (n < kMinHeader || n > kMaxHeader) return false;
    std::memcpy(copy, dib.Header(), n);
    auto* h = reinterpret_cast<KXBMINFOHEADER*>(copy);
    h->biCompression = 0;
    h->biSizeImage = 0;
    return true;
}

// A block of the library's heap for one temporary.
struct Temporary {
    explicit Temporary(size_t bytes)
        : p(static_cast<uint8_t*>(kelp::NewAlloc(bytes ? bytes : 1, kelp::nothrow))) {}
    ~Temporary() {
        if (p) kelp::NewFree(p);
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
    uint8_t* p;
};

} // namespace

bool CDibRLE::Compress(CDIB& dib) {
    if (!dib.IsValid() || dib.Header()->biBitCount != 8) return false;
    return CompressImage(dib);
}

bool CDibRLE::Decompress(CDIB& dib) {
    if (!dib.IsValid() || dib.Header()->biBitCount != 8) return false;
    return DecompressImage(dib);
}

bool CDibRLE::CompressImage(CDIB& dib) {
    if (!dib.IsValid() || dib.Format() != 0) return false;
    const uint32_t n = DIBImageSize(dib.Header());
    if (n == 0 || n > 0xFFFFFFFFu - kEncodeSlack) return false;
    if (!dib.MakeWritable()) return false;
    Temporary stream(size_t(n) + kEncodeSlack);
    if (!stream.p) return false;
    uint32_t size = 0;
    if (!Encode(stream.p, &size, dib.Bits(), n)) return false;
    if (size > PixelRoom(dib, n)) return false; // a stored stream of caller's pixels
    std::memcpy(dib.Bits(), stream.p, size);
    dib.SetFormat(kFormat, size);
    return true;
}

bool CDibRLE::DecompressImage(CDIB& dib) {
    if (!dib.IsValid() || dib.Format() != kFormat) return false;
    unsigned char copy[kMaxHeader];
    if (!DecodedHeader(dib, copy)) return false;
    const uint32_t rawImage = DIBImageSize(reinterpret_cast<KXBMINFOHEADER*>(copy));
    if (rawImage == 0) return false;
    // The stream is what the header says the pixels hold, within the buffer.
    const uint32_t claimed = DIBImageSize(dib.Header());
    const uint32_t streamRoom = std::min(claimed, PixelRoom(dib, std::max(claimed, rawImage)));
    uint32_t length = 0, size = 0;
    if (streamRoom < kHeaderBytes) return false;
    const auto* pixels = static_cast<const uint8_t*>(dib.Bits());
    const uint32_t rawSize = uint32_t(pixels[4]) | uint32_t(pixels[5]) << 8 |
                             uint32_t(pixels[6]) << 16 | uint32_t(pixels[7]) << 24;
    if (rawSize != rawImage) return false; // the stream is not this image's
    if (!CheckStream(pixels, streamRoom, rawImage, &length, &size)) return false;
    length = std::max(length, kHeaderBytes); // a stream of no packets may state less
    if (!dib.MakeWritable()) return false;
    if (PixelRoom(dib, rawImage) < rawImage) return false;
    // The stream is decoded from a copy of itself over the pixels it was read from.
    Temporary stream(length);
    if (!stream.p) return false;
    std::memcpy(stream.p, dib.Bits(), std::min(length, streamRoom));
    if (!DecodeWithin(dib.Bits(), rawImage, &size, stream.p, length)) return false;
    dib.SetFormat(0, 0);
    return true;
}

// ---------------------------------------------------------------- CDIB

bool CDIB::CompressAlpha() {
    if (!IsValid() || !MakeWritable()) return false;
    CDibRLE rle;
    return rle.Compress(*this);
}

bool CDIB::DecompressAlpha() {
    if (!IsValid() || Format() != CDibRLE::kFormat) return false;
    unsigned char copy[kMaxHeader];
    if (!DecodedHeader(*this, copy)) return false;
    // A new block for the decoded image, which first takes the stream; the old body is
    // kept until the stream has been decoded.
    CDIB decoded;
    if (!decoded.Create(reinterpret_cast<KXBMINFOHEADER*>(copy))) return false;
    const uint32_t claimed = DIBImageSize(Header());
    const uint32_t rawImage = DIBImageSize(decoded.Header());
    const uint32_t stream = std::min(
        {claimed, PixelRoom(*this, std::max(claimed, rawImage)), PixelRoom(decoded, rawImage)});
    std::memcpy(decoded.Header(), Header(), GetHeaderSize());
    std::memcpy(decoded.Bits(), Bits(), stream);
    decoded.SetFormat(CDibRLE::kFormat, stream);
    CDibRLE rle;
    if (!rle.Decompress(decoded)) return false;
    const bool locked = IsLocked();
    std::swap(m_pData, decoded.m_pData);
    if (locked) {
        m_pData->lRefs.store(-1, std::memory_order_relaxed);
        decoded.m_pData->lRefs.store(1, std::memory_order_relaxed); // the old body goes
    }
    return true;
}

} // namespace stdfx
