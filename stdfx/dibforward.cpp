// The operations of CDIB whose pixel work lives with the deinterlacers, the
// compositor and the run-length images. Each checks what the image itself decides
// (validity, a private body, the depth) and hands the work on; where that work is not
// part of the library yet, the answer is false.
#include <kelp/stdfx_dib.h>

#include "dibformat.h"

namespace stdfx {

bool CDIB::Compose(const CDIB& source, int /*a*/, int /*b*/) {
    if (!IsValid() || !source.IsValid() || !MakeWritable()) return false;
    return false;
}

bool CDIB::CompressAlpha() {
    if (!IsValid() || !MakeWritable()) return false;
    return false;
}

bool CDIB::DecompressAlpha() {
    if (!IsValid()) return false;
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

} // namespace stdfx
