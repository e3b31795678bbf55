// The camera data of a photo (EXIF): a small TIFF structure of tagged entries. The
// library reads two things from it: the orientation the camera wrote, and where the
// thumbnail (a small JPEG image) lies. Every offset is checked against the data.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelp {
namespace imgfile {

struct ExifInfo {
    uint32_t orientation = 1; // 1 to 8; 1 if absent or out of range
    int32_t xResolution = 0;  // dots per inch, 0 if absent
    // The thumbnail's bytes, as an offset and a length within the TIFF data.
    bool hasThumbnail = false;
    size_t thumbnailOffset = 0;
    size_t thumbnailLength = 0;
};

// Reads the TIFF structure that starts at `tiff` ("II*\0" or "MM\0*"). False if it is
// not one; a structure with damaged parts gives what could be read of the rest.
bool ParseExif(const unsigned char* tiff, size_t size, ExifInfo* info);

// The first segment of a JPEG file with the given marker (0xFFE0 to 0xFFEF, ...) whose
// data starts with `prefix`; *data and *size receive the data behind the prefix.
// Only the segments ahead of the picture data are searched.
bool FindJpegSegment(const unsigned char* jpeg, size_t size, uint32_t marker, const char* prefix,
                     size_t prefixSize, const unsigned char** data, size_t* dataSize);

// The TIFF structure inside a JPEG file: the first APP1 segment that starts with
// "Exif\0\0". False if there is none.
bool FindJpegExif(const unsigned char* jpeg, size_t size, const unsigned char** tiff,
                  size_t* tiffSize);

} // namespace imgfile
} // namespace kelp
