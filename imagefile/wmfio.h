// Metafiles: Windows metafiles (WMF) rendered through libwmf on a white page, at the
// resolution the loader chooses; their natural size is the one at 96 dots per inch.
// Enhanced metafiles (EMF), and WMF in a build without libwmf, are recognised and
// refused. The library reads metafiles only.
#pragma once

#include "backend.h"

namespace kelp {
namespace imgfile {

const CBackend* MetafileBackend();

} // namespace imgfile
} // namespace kelp
