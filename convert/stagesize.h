// The image size that stages write into biSizeImage of every format they produce: the
// row of biBitCount * biWidth / 8 bytes rounded up to 4, times biHeight with its sign,
// as a 32-bit word (a negative height gives the two's complement of the size).
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

} // namespace kelp
