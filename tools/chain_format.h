// The formats of `kelp chain` and `kelp convert` as text: KIND:WxH[,OPTION...].
//
//   KIND    rgb1 rgb4 rgb8 rgb16 rgb24 rgb32, yuv24-601 yuv24-709 yuv32-601 yuv32-709,
//           and yuv444-601 / yuv444-709 for the 32-bit ones
//   OPTION  interlaced, chrono (interlaced, the other field first in time),
//           straight | opaque | premultiplied (what the fourth byte of 32 bits holds),
//           ratio=X/Y (the pixel's width to its height), rect=L/T/R/B (active rectangle)
#pragma once

#include <kelp/kxbih.h>

#include <string>

namespace chaintool {

// The record that `text` describes, its biSizeImage that of its rows; false with the
// reason in *why.
bool ParseFormat(const std::string& text, KXBMINFOHEADERYUV* out, std::string* why);

// A record as a person reads it: "RGB 32 bits 960x540, ratio 1:1, progressive, straight".
std::string Describe(const KXBMINFOHEADER* d);

// A pixel ratio X:Y (or X/Y) as 16.16 fixed point, X and Y whole numbers from 1 to 65535.
bool ParseRatio(const std::string& text, uint32_t* ratio);

} // namespace chaintool
