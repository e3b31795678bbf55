// TIFF files through libtiff: every layout libtiff can decode (8-bit contiguous RGB,
// grey and palette rows read directly, all others through its RGBA interface), the
// orientation tag, and a reduced-resolution second picture as the stamp. Written as
// uncompressed 24-bit RGB.
#pragma once

#include "backend.h"

namespace kelp {
namespace imgfile {

const CBackend* TiffBackend();

} // namespace imgfile
} // namespace kelp
