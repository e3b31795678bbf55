// The whole-image dissolve the transform uses where no resampling is needed: the
// identity render and the background composed over a third picture.
#pragma once

#include <kelp/kxbih.h>

namespace stdfx2d {

// target := first at `opacity` (0..255), or first at `opacity` over `second` when second
// is not null. All three have the target's width and height; each may have its own row
// order (lines are matched in display order) and bit depth within its format. `field` -1
// writes every row, 0 or 1 the rows of that field of the target.
void BlendImages(const KXBMINFOHEADER* target, void* targetBits, const KXBMINFOHEADER* first,
                 const void* firstBits, const KXBMINFOHEADER* second, const void* secondBits,
                 int opacity, int field);

} // namespace stdfx2d
