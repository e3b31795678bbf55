// The deinterlacing part of kelp demo.
#pragma once

#include <string>

namespace kelpdemo {

// A generated interlaced frame of moving edges through every deinterlacing method, side
// by side in one picture, written to OUT/deinterlace.png when `outDir` is not empty.
// False if a step failed.
bool DeinterlacePicture(const std::string& outDir);

} // namespace kelpdemo
