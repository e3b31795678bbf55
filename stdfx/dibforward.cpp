// The operations of CDIB whose pixel work lives with the deinterlacers, the
// compositor and the run-length images. Each checks what the image itself decides
// (validity, a private body, the depth) and hands the work on; where that work is not
// part of the library yet, the answer is false.
#include <kelp/stdfx_dib.h>

#include "dibformat.h"

namespace stdfx {

bool CDIB::CreateFieldExpanded(const CDIB& source, unsigned /*field*/, int /*method*/) {
    if (!source.IsValid() || !Create(source.Header())) return false;
    SetFrameFlag(1);
    return false;
}

bool CDIB::DeinterlaceTemporal(const CDIB& previous, const CDIB& current, const CDIB& next,
                               int /*method*/, int /*parity*/, int /*field*/) {
    if (!IsValid() || !previous.IsValid() || !current.IsValid() || !next.IsValid()) return false;
    return false;
}

bool CDIB::Deinterlace(const CDIB& source, int /*method*/, int /*parity*/, int /*field*/) {
    if (!IsValid() || !source.IsValid()) return false;
    return false;
}

bool CDIB::CreateDeinterlacedTemporal(const CDIB& previous, const CDIB& current, const CDIB& next,
                                      int method, int parity, int field) {
    if (!current.IsValid() || !Create(current.Header())) return false;
    return DeinterlaceTemporal(previous, current, next, method, parity, field);
}

bool CDIB::CreateDeinterlaced(const CDIB& source, int method, int parity, int field) {
    if (!source.IsValid() || !Create(source.Header())) return false;
    return Deinterlace(source, method, parity, field);
}

bool CDIB::CopyCentred(const CDIB& source, const CDIB& background, int field) {
    if (!IsValid() || !source.IsValid() || !MakeWritable()) return false;
    if (IsRGB() || IsBGRAZ()) return CopyCentredRGB(source, background, field);
    if (IsYUV444()) return CopyCentred444(source, background, field);
    if (Is422()) return CopyCentred422(source, background, field);
    return false;
}

bool CDIB::CopyCentred(const CDIB& source, int field) {
    if (!IsValid() || !source.IsValid() || !MakeWritable()) return false;
    if (IsRGB() || IsBGRAZ()) return CopyCentredRGBPlain(source, field);
    if (IsYUV444()) return CopyCentred444Plain(source, field);
    if (Is422()) return CopyCentred422Plain(source, field);
    return false;
}

bool CDIB::CopyCentredRGB(const CDIB&, const CDIB&, int) {
    return false;
}
bool CDIB::CopyCentredRGBPlain(const CDIB&, int) {
    return false;
}
bool CDIB::CopyCentred444(const CDIB&, const CDIB&, int) {
    return false;
}
bool CDIB::CopyCentred444Plain(const CDIB& source, int field) {
    return CopyCentredRGBPlain(source, field);
}
bool CDIB::CopyCentred422(const CDIB&, const CDIB&, int) {
    return false;
}
bool CDIB::CopyCentred422Plain(const CDIB&, int) {
    return false;
}

bool CDIB::Compose(const CDIB& source, int /*a*/, int /*b*/) {
    if (!IsValid() || !source.IsValid() || !MakeWritable()) return false;
    return false;
}

bool CDIB::BlendTwo(const CDIB& source, int /*opacity*/, int /*field*/) {
    if (!IsValid() || !source.IsValid() || !MakeWritable()) return false;
    return false;
}

bool CDIB::BlendThree(const CDIB& first, const CDIB& second, int /*opacity*/, int /*field*/) {
    if (!IsValid() || !first.IsValid() || !second.IsValid() || !MakeWritable()) return false;
    return false;
}

bool CDIB::Premultiply(int /*field*/) {
    if (!IsValid() || !MakeWritable()) return false;
    if (Header()->biBitCount != 32) return true; // only 32-bit images carry alpha
    return false;
}

bool CDIB::Unpremultiply(int /*field*/) {
    if (!IsValid() || !MakeWritable()) return false;
    return false;
}

} // namespace stdfx
