// The library's own ".BSI" files: the descriptor exactly as it is in memory (its first
// word, biSize, is the record's length, so no magic number is needed), then
// biSizeImage bytes of pixels. All words little-endian.
#pragma once

#include <kelp/kxbih.h>

#include <cstdint>

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

} // namespace imgfile
} // namespace kelp
