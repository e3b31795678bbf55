// PCX files: 1 bit (one plane, or four planes of 16 colours), 2, 4 and 8 bits of
// indices, and 24 or 32 bits in three or four planes of 8 bits; run-length coded or
// raw. The library reads PCX files only.
#pragma once

#include "backend.h"

namespace kelp {
namespace imgfile {

const CBackend* PcxBackend();

} // namespace imgfile
} // namespace kelp
