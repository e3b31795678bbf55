// ".tga" files: colour-mapped, true-colour and grey images, raw or run-length coded,
// with the postage stamp of the extension area as the stamp. Written uncompressed at
// 24 or 32 bits, bottom-up, with an extension area that says what the alpha holds.
#pragma once

#include "backend.h"

namespace kelp {
namespace imgfile {

const CBackend* TgaBackend();

} // namespace imgfile
} // namespace kelp
