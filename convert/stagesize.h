// The image sizes of the conversion stages.
//
// StageSizeImage is what stages write into biSizeImage of every format they produce:
// the row of biBitCount * biWidth / 8 bytes rounded up to 4, times biHeight with its
// sign, as a 32-bit word (a negative height gives the two's complement of the size).
//
// What a stage reads of an input comes from the geometry instead: biSizeImage 0 is
// legal for uncompressed RGB and means "as the geometry says", and a non-zero size is a
// claim that must cover the geometry.
#pragma once

#include <kelp/kxbih.h>

namespace kelp {

inline uint32_t StageRowBytes(const KXBMINFOHEADER* d) {
    int32_t bytes = int32_t(uint32_t(d->biBitCount) * uint32_t(d->biWidth)) / 8;
    return uint32_t(AlignUp(bytes, 4));
}

inline uint32_t StageSizeImage(const KXBMINFOHEADER* d) {
    return StageRowBytes(d) * uint32_t(d->biHeight);
}

// Bytes the pixels of a record take by its geometry: rows of biBitCount * biWidth / 8
// bytes rounded up to 4, one for each line of |biHeight|. 64-bit and saturating, so
// that no size wraps; a width below 1 has no bytes.
inline uint64_t GeometryBytes(const KXBMINFOHEADER* d) {
    if (d->biWidth <= 0) return 0;
    const uint64_t row = (uint64_t(d->biBitCount) * uint64_t(d->biWidth) / 8 + 3) & ~uint64_t(3);
    const int64_t h = d->biHeight;
    const uint64_t lines = uint64_t(h < 0 ? -h : h);
    if (lines != 0 && row > ~uint64_t(0) / lines) return ~uint64_t(0); // beyond any buffer
    return row * lines;
}

// The bytes of an input buffer that a stage may read, when its layout needs `need`
// bytes: the declared biSizeImage, or `need` itself when the record declares 0. False
// when a declared size is smaller than `need`, or when `need` does not fit a 32-bit size.
inline bool ClaimedBytes(const KXBMINFOHEADER* d, uint64_t need, uint32_t* bytes) {
    if (d->biSizeImage != 0) {
        *bytes = d->biSizeImage;
        return d->biSizeImage >= need;
    }
    *bytes = uint32_t(need);
    return need <= 0xFFFFFFFFu;
}

} // namespace kelp
