// The library's own ".BSI" files: the descriptor exactly as it is in memory (its first
// word, biSize, is the record's length, so no magic number is needed), then
// biSizeImage bytes of pixels. All words little-endian.
#pragma once

#include <kelp/kxbih.h>

#include <cstdint>

#include "bitmap.h"

namespace kelp {
namespace imgfile {

// Bounds of a record length that a file may declare: enough for the fields of the
// Windows header, at most 64 KiB, and within the file.
constexpr uint32_t kBsiMinRecord = 40;
constexpr uint32_t kBsiMaxRecord = 65536;
bool BsiRecordAllowed(uint32_t recordBytes, uint64_t fileBytes);

// The rule for a YUV record read from a file: each of the two last words of the format
// extension (the sampling codes) below 16 becomes 0. `recordBytes` is the record's
// length; shorter records have no extension.
void BsiSettleExtension(KXBMINFOHEADER* record, uint32_t recordBytes);

// The rows of an uncompressed RGB record (1 to 32 bits, one plane): the row size as
// the record's alignment says, and the number of rows. False for any other record, or
// for sides beyond the limits.
bool RgbRows(const KXBMINFOHEADER* record, const Limits& limits, uint64_t* stride, int32_t* rows);

// Whether `pixelBytes` of pixels (for a file, the record's biSizeImage) hold the picture
// the record's sides and depth describe. RGB records are measured row by row; YUV records by their
// bits per pixel; records of other codes, whose data is not sized by their sides, only by the
// limits of their sides. A record that claims less than its picture needs is a lie that would make
// a reader or writer run past the pixels.
bool RecordMatchesPixels(const KXBMINFOHEADER* record, uint32_t recordBytes, uint32_t pixelBytes,
                         const Limits& limits);

// The rule for a record read from a ".BSI" file of `fileBytes` bytes: its biSizeImage
// bytes of pixels follow the record within the file, and hold its picture.
bool BsiPixelsPresent(const KXBMINFOHEADER* record, uint32_t recordBytes, uint64_t fileBytes,
                      const Limits& limits = Limits());

} // namespace imgfile
} // namespace kelp
