// The two wrappers on the closed image library, a fast path that some stages offer their
// work to first. Both give 0 when the library did the work, anything else when the
// stage must run its own loop.
#pragma once

#include <kelp/kxbih.h>

namespace kelp {

// Converts inData (format `in`) into outData (format `out`).
int ConvertGlim(const KXBMINFOHEADER* in, const void* inData, KXBMINFOHEADER* out, void* outData);
// Premultiplies (alpha 0 to 2) or undoes it (2 to 0), in outData.
int ReshapeGlim(const KXBMINFOHEADER* in, const void* inData, KXBMINFOHEADER* out, void* outData);

} // namespace kelp
