// EXIF reading: the first two directories of the TIFF structure.
#include "exif.h"

#include <cstring>

#include "bytereader.h"

namespace kelp {
namespace imgfile {

namespace {

constexpr uint32_t kTagOrientation = 0x0112;
constexpr uint32_t kTagXResolution = 0x011A;
constexpr uint32_t kTagResolutionUnit = 0x0128;
constexpr uint32_t kTagThumbnailOffset = 0x0201;
constexpr uint32_t kTagThumbnailLength = 0x0202;
constexpr uint32_t kTypeShort = 3, kTypeLong = 4, kTypeRational = 5;
// More entries than any camera writes; a directory that claims more is damaged.
constexpr uint32_t kMaxEntries = 1024;

// The value of an entry of one SHORT or LONG.
bool Scalar(const ByteReader& r, bool be, uint64_t entry, uint32_t* value) {
    uint32_t type, count;
    if (!r.W16(entry + 2, be, &type) || !r.W32(entry + 4, be, &count) || count != 1) return false;
    if (type == kTypeShort) return r.W16(entry + 8, be, value);
    if (type == kTypeLong) return r.W32(entry + 8, be, value);
    return false;
}

// Reads one directory; gives the offset of the next one (0 at the end).
uint32_t ReadDirectory(const ByteReader& r, bool be, uint32_t offset, bool first, ExifInfo* info) {
    uint32_t count;
    if (offset < 8 || !r.W16(offset, be, &count) || count > kMaxEntries) return 0;
    if (!r.Has(uint64_t(offset) + 2, uint64_t(count) * 12 + 4)) return 0;
    uint32_t thumbOffset = 0, thumbLength = 0, unit = 2;
    bool haveOffset = false, haveLength = false;
    uint32_t resNum = 0, resDen = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t e = uint64_t(offset) + 2 + uint64_t(i) * 12;
        uint32_t tag, v;
        if (!r.W16(e, be, &tag)) return 0;
        if (first && tag == kTagOrientation && Scalar(r, be, e, &v)) {
            info->orientation = (v >= 1 && v <= 8) ? v : 1;
        } else if (first && tag == kTagResolutionUnit && Scalar(r, be, e, &v)) {
            unit = v;
        } else if (first && tag == kTagXResolution) {
            uint32_t type, n, at;
            if (r.W16(e + 2, be, &type) && type == kTypeRational && r.W32(e + 4, be, &n) &&
                n == 1 && r.W32(e + 8, be, &at))
                if (!r.W32(at, be, &resNum) || !r.W32(uint64_t(at) + 4, be, &resDen)) resNum = 0;
        } else if (!first && tag == kTagThumbnailOffset && Scalar(r, be, e, &v)) {
            thumbOffset = v;
            haveOffset = true;
        } else if (!first && tag == kTagThumbnailLength && Scalar(r, be, e, &v)) {
            thumbLength = v;
            haveLength = true;
        }
    }
    if (first && resNum && resDen) {
        // Unit 2 is the inch, 3 the centimetre.
        uint64_t dpi = resNum / resDen;
        if (unit == 3) dpi = (uint64_t(resNum) * 254 / resDen + 50) / 100;
        if ((unit == 2 || unit == 3) && dpi <= 0x7FFFFFFF) info->xResolution = int32_t(dpi);
    }
    if (haveOffset && haveLength && thumbLength > 0 && r.Has(thumbOffset, thumbLength)) {
        info->hasThumbnail = true;
        info->thumbnailOffset = thumbOffset;
        info->thumbnailLength = thumbLength;
    }
    uint32_t next = 0;
    r.W32(uint64_t(offset) + 2 + uint64_t(count) * 12, be, &next);
    return next;
}

} // namespace

bool ParseExif(const unsigned char* tiff, size_t size, ExifInfo* info) {
    *info = ExifInfo();
    ByteReader r(tiff, size);
    uint32_t order, magic, first;
    if (!r.Le16(0, &order) || (order != 0x4949 && order != 0x4D4D)) return false;
    const bool be = order == 0x4D4D;
    if (!r.W16(2, be, &magic) || magic != 42 || !r.W32(4, be, &first)) return false;
    const uint32_t next = ReadDirectory(r, be, first, true, info);
    if (next && next != first) ReadDirectory(r, be, next, false, info);
    return true;
}

bool FindJpegSegment(const unsigned char* jpeg, size_t size, uint32_t want, const char* prefix,
                     size_t prefixSize, const unsigned char** data, size_t* dataSize) {
    ByteReader r(jpeg, size);
    uint32_t soi;
    if (!r.Be16(0, &soi) || soi != 0xFFD8) return false;
    uint64_t at = 2;
    for (;;) {
        uint32_t marker, length;
        if (!r.Be16(at, &marker) || (marker >> 8) != 0xFF) return false;
        if (marker == 0xFFFF) { // fill byte before a marker
            ++at;
            continue;
        }
        // The picture data starts, or the image ends: no more segments with headers.
        if (marker == 0xFFDA || marker == 0xFFD9) return false;
        if (marker >= 0xFFD0 && marker <= 0xFFD7) {
            at += 2;
            continue;
        }
        // The length counts itself and the data, not the marker.
        if (!r.Be16(at + 2, &length) || length < 2 || !r.Has(at + 2, length)) return false;
        if (marker == want && length - 2 >= prefixSize &&
            std::memcmp(jpeg + at + 4, prefix, prefixSize) == 0) {
            *data = jpeg + at + 4 + prefixSize;
            *dataSize = length - 2 - prefixSize;
            return true;
        }
        at += 2 + uint64_t(length);
    }
}

bool FindJpegExif(const unsigned char* jpeg, size_t size, const unsigned char** tiff,
                  size_t* tiffSize) {
    return FindJpegSegment(jpeg, size, 0xFFE1, "Exif\0\0", 6, tiff, tiffSize);
}

} // namespace imgfile
} // namespace kelp
