// ".bmp" files: the reader backend (uncompressed, bit fields, RLE8 and RLE4, every
// header version) and the headers of the library's own writer.
#pragma once

#include <kelp/kxbih.h>

#include "backend.h"

namespace kelp {
namespace imgfile {

// The process-wide reader (it has no state).
const CBackend* BmpBackend();

// The 14-byte file header and the 40-byte Windows header that start a ".bmp" file
// written from `desc`: "BM", the file size, the offset of the pixels, and the first
// 40 bytes of the descriptor with its first word set to 40. `tableBytes` of colour
// table stand between headers and pixels; `imageBytes` of pixels follow.
void MakeBmpHeaders(const KXBMINFOHEADER* desc, uint32_t tableBytes, uint32_t imageBytes,
                    unsigned char out[54]);

} // namespace imgfile
} // namespace kelp
