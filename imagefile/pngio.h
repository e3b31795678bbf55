// PNG files through libpng: every colour type and bit depth, interlaced or not, with
// transparency kept as alpha, and the camera's orientation from an eXIf chunk. Writes
// 8-bit RGB and RGBA, for SavePNGImage; SaveImage does not write PNG files.
#pragma once

#include "backend.h"

namespace kelp {
namespace imgfile {

const CBackend* PngBackend();

} // namespace imgfile
} // namespace kelp
