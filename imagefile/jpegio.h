// JPEG files through TurboJPEG: grey, colour and CMYK pictures, decoded at 1/2 to 1/8
// of their size when a resized load allows it; the camera's orientation and thumbnail
// from the EXIF data. Written with the quality factor mapped onto TurboJPEG's scale.
#pragma once

#include "backend.h"

namespace kelp {
namespace imgfile {

const CBackend* JpegBackend();

// A JPEG picture in memory, decoded as the backend decodes files (also used for the
// thumbnails that other formats store as JPEG data).
KXRESULT DecodeJpeg(const unsigned char* data, size_t size, const DecodeRequest& req, Bitmap* out);

// The quality of TurboJPEG's scale (1 to 100) for a quality factor (2 best to 255).
int JpegQuality(uint32_t qualityFactor);

} // namespace imgfile
} // namespace kelp
