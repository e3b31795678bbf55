// What the plug-ins shipped with kelp share about records: reading the pixel layout of
// a BGR record, making the records they propose, and the describe answer (the codec
// skeleton is in codecbase.h). Header-only: a plug-in links nothing of the library.
#pragma once

#include <kelp/kxcodec.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace cdc {

// Bytes of the Windows part of a record: no plug-in reads beyond biSize, and none reads
// a record shorter than this.
constexpr uint32_t kMinRecord = 40;
// Largest side accepted, so that every size below fits in 32 bits.
constexpr int32_t kMaxSide = 16384;

inline bool RecordUsable(const KXBMINFOHEADER* d) {
    return d && d->biSize >= kMinRecord;
}

inline int32_t AbsHeight(const KXBMINFOHEADER* d) {
    // INT32_MIN has no positive form; it is refused by the side limit anyway.
    return d->biHeight < 0 ? int32_t(0u - uint32_t(d->biHeight)) : d->biHeight;
}

// The rows of an uncompressed BGR record.
struct DibLayout {
    int32_t width = 0;
    int32_t height = 0; // lines, positive
    int bytesPerPixel = 0;
    bool bottomUp = true; // biHeight > 0
    uint32_t stride = 0;  // bytes from one row to the next in memory order
    uint32_t bytes = 0;   // stride * height
};

// True if `d` is BGR 24 or 32 bits in one plane that the plug-ins can read or write:
// rows padded to 4 bytes, or unpadded when bmiAlignment is the exact row size.
inline bool BgrLayout(const KXBMINFOHEADER* d, DibLayout* out) {
    if (!RecordUsable(d) || d->biCompression != KXBI_RGB || d->biPlanes != 1) return false;
    if (d->biBitCount != 24 && d->biBitCount != 32) return false;
    const int32_t h = AbsHeight(d);
    if (d->biWidth <= 0 || d->biWidth > kMaxSide || h <= 0 || h > kMaxSide) return false;
    DibLayout l;
    l.width = d->biWidth;
    l.height = h;
    l.bytesPerPixel = d->biBitCount / 8;
    l.bottomUp = d->biHeight > 0;
    const uint32_t natural = uint32_t(l.width) * uint32_t(l.bytesPerPixel);
    l.stride = (natural + 3u) & ~3u;
    if (d->biSize >= offsetof(KXBMINFOHEADER, bmiAlignment) + 4) {
        const int32_t a = d->bmiAlignment;
        if (a == int32_t(natural))
            l.stride = natural;
        else if (a != 0 && a != 4)
            return false;
    }
    l.bytes = l.stride * uint32_t(l.height);
    *out = l;
    return true;
}

// Writes a fresh 144-byte record: everything 0 but the size, the magic, the ratios and
// what the arguments give.
inline void MakeRecord(KXBMINFOHEADER* d, int32_t width, int32_t height, uint16_t bits,
                       uint32_t compression, uint32_t sizeImage, bool progressive) {
    std::memset(d, 0, sizeof(*d));
    d->biSize = KXBMI_SIZE;
    d->biWidth = width;
    d->biHeight = height;
    d->biPlanes = 1;
    d->biBitCount = bits;
    d->biCompression = compression;
    d->biSizeImage = sizeImage;
    d->bmiMagic = KXBMI_MAGIC;
    d->bmiFrame = progressive ? 1 : 0;
    d->bmiRatioX = 0x10000;
    d->bmiRatioY = 0x10000;
}

inline void CopyText(char* dst, size_t room, const char* src) {
    size_t n = std::strlen(src);
    if (n >= room) n = room - 1;
    std::memcpy(dst, src, n);
    dst[n] = 0;
}

// The answer to Configure(KXCODEC_CFG_DESCRIBE, desc, size).
inline KXRESULT Describe(uintptr_t descArg, uintptr_t size, uint32_t fcc, uint32_t caps,
                         const char* name, const char* decompresses, const char* compresses) {
    auto* desc = reinterpret_cast<kelp::KXCODECDESC*>(descArg);
    if (!desc || size < sizeof(kelp::KXCODECDESC) || desc->dwSize < sizeof(kelp::KXCODECDESC))
        return KXE_INVALID;
    desc->fccCodec = fcc;
    desc->dwCaps = caps;
    desc->dwReserved = 0;
    CopyText(desc->szName, sizeof(desc->szName), name);
    CopyText(desc->szDecompress, sizeof(desc->szDecompress), decompresses);
    CopyText(desc->szCompress, sizeof(desc->szCompress), compresses);
    return KX_OK;
}

// Stores a count for a caller that asked for it (the third free argument).
inline void StoreCount(uintptr_t where, uint32_t n) {
    if (where) *reinterpret_cast<uint32_t*>(where) = n;
}

inline bool ValidQuality(uintptr_t q) {
    return q >= kelp::KXCODEC_QUALITY_MIN && q <= kelp::KXCODEC_QUALITY_MAX;
}

} // namespace cdc
