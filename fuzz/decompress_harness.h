// What both fuzz targets do with a codec: begin a decompression of the frame into a
// BGR record, run it into a heap buffer of exactly the room the record needs (so that
// a write past it is caught), and end it. Any status is fine; a crash, a hang or a write
// out of bounds is what the fuzzer looks for.
#pragma once

#include <kelp/kxcodec.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace fuzzharness {

inline KXBMINFOHEADER Record(int32_t width, int32_t height, uint16_t bits, uint32_t fcc,
                             uint32_t sizeImage) {
    KXBMINFOHEADER d;
    std::memset(&d, 0, sizeof(d));
    d.biSize = KXBMI_SIZE;
    d.biWidth = width;
    d.biHeight = height;
    d.biPlanes = 1;
    d.biBitCount = bits;
    d.biCompression = fcc;
    d.biSizeImage = sizeImage;
    d.bmiMagic = KXBMI_MAGIC;
    return d;
}

// `mode` bit 0: 32-bit output, bit 1: top-down rows.
inline void DecompressOnce(kelp::ICodec& codec, const KXBMINFOHEADER& frameRecord,
                           const uint8_t* frame, uint8_t mode) {
    KXBMINFOHEADER src = frameRecord;
    const uint16_t bits = (mode & 1) ? 32 : 24;
    const int32_t h = src.biHeight < 0 ? -src.biHeight : src.biHeight;
    KXBMINFOHEADER dst = Record(src.biWidth, (mode & 2) ? -h : h, bits, KXBI_RGB, 0);
    const size_t room = size_t((uint32_t(src.biWidth) * bits / 8 + 3) & ~3u) * size_t(h);
    uintptr_t session = 0;
    if (codec.DecompressBegin(&src, &dst, &session) < 0) return;
    // Exactly the room, in a block of its own: one byte more written is a fault.
    auto* out = static_cast<uint8_t*>(std::malloc(room ? room : 1));
    codec.Decompress(&src, frame, &dst, reinterpret_cast<uintptr_t>(out), room, 0, session);
    std::free(out);
    codec.DecompressEnd(session);
}

} // namespace fuzzharness
