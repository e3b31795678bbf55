// Photoshop files: the merged picture (bitmap, grey, indexed, RGB, CMYK and duotone
// modes at 1, 8, 16 or 32 bits a channel, raw or run-length coded), with the
// transparency of the merged picture where the file has one, and the thumbnail
// resource as the stamp. Lab and multichannel pictures and zip-compressed data are
// recognised and refused. The library reads these files only.
#pragma once

#include "backend.h"

namespace kelp {
namespace imgfile {

const CBackend* PsdBackend();

} // namespace imgfile
} // namespace kelp
