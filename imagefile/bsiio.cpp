// ".BSI" record rules.
#include "bsiio.h"

namespace kelp {
namespace imgfile {

bool BsiRecordAllowed(uint32_t recordBytes, uint64_t fileBytes) {
    return recordBytes >= kBsiMinRecord && recordBytes <= kBsiMaxRecord && recordBytes <= fileBytes;
}

void BsiSettleExtension(KXBMINFOHEADER* record, uint32_t recordBytes) {
    if (record->biCompression != KXBI_YUV || recordBytes < KXBMI_SIZE_YUV) return;
    KXYUVEXT* e = DIBYuv(record);
    if (e->yuvSampling < 16) e->yuvSampling = 0;
    if (e->yuvSamplingAux < 16) e->yuvSamplingAux = 0;
}

bool RgbRows(const KXBMINFOHEADER* d, const Limits& limits, uint64_t* stride, int32_t* rows) {
    const uint32_t bits = d->biBitCount;
    if (d->biSize < 40 || d->biCompression != KXBI_RGB || d->biPlanes != 1 ||
        (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32) ||
        d->biHeight == INT32_MIN)
        return false;
    const int32_t h = d->biHeight < 0 ? -d->biHeight : d->biHeight;
    if (!SizeAllowed(d->biWidth, h, limits)) return false;
    const uint64_t natural = (uint64_t(d->biWidth) * bits + 7) / 8;
    // The alignment word stands in the extension; a Windows header has rows of 4 bytes.
    const int32_t align = d->biSize >= 112 ? DIBAlignment(d) : 4;
    if (align == 4)
        *stride = RowBytes(d->biWidth, bits);
    else if (align > 0)
        *stride = (natural + uint32_t(align) - 1) / uint32_t(align) * uint32_t(align);
    else
        return false;
    *rows = h;
    return true;
}

bool RecordMatchesPixels(const KXBMINFOHEADER* d, uint32_t recordBytes, uint32_t pixelBytes,
                         const Limits& limits) {
    if (d->biCompression == KXBI_RGB) {
        uint64_t stride;
        int32_t rows;
        return RgbRows(d, limits, &stride, &rows) && stride * uint64_t(rows) <= pixelBytes;
    }
    if (d->biHeight == INT32_MIN) return false;
    const int64_t h = d->biHeight < 0 ? -int64_t(d->biHeight) : d->biHeight;
    if (!SizeAllowed(d->biWidth, h, limits)) return false;
    if (d->biCompression == KXBI_YUV) {
        // Planes and subsampling aside, a YUV picture holds its bits per pixel.
        if (recordBytes < KXBMI_SIZE_YUV || d->biBitCount == 0) return false;
        const uint64_t bits = uint64_t(d->biWidth) * uint64_t(h) * d->biBitCount;
        return bits / 8 <= pixelBytes;
    }
    return true;
}

bool BsiPixelsPresent(const KXBMINFOHEADER* d, uint32_t recordBytes, uint64_t fileBytes,
                      const Limits& limits) {
    return recordBytes <= fileBytes && d->biSizeImage <= fileBytes - recordBytes &&
           RecordMatchesPixels(d, recordBytes, d->biSizeImage, limits);
}

} // namespace imgfile
} // namespace kelp
