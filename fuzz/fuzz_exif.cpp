// The EXIF parser under libFuzzer: the input as a TIFF structure, and as a JPEG file
// whose segments are searched for one.
#include <cstddef>
#include <cstdint>

#include "imagefile/exif.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace kelp::imgfile;
    ExifInfo info;
    if (ParseExif(data, size, &info) && info.hasThumbnail) {
        // The thumbnail lies inside the data: reading all of it must be safe.
        volatile uint8_t sum = 0;
        for (size_t i = 0; i < info.thumbnailLength; ++i)
            sum ^= data[info.thumbnailOffset + i];
    }
    const unsigned char* tiff;
    size_t tiffSize;
    if (FindJpegExif(data, size, &tiff, &tiffSize)) ParseExif(tiff, tiffSize, &info);
    return 0;
}
