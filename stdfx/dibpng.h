// PNG files of the toolkit's debugging aids.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace stdfx {

// Writes `width` x `height` BGRA pixels, bottom row first, as an 8-bit RGBA PNG file.
bool WriteBgraPng(const std::wstring& path, int width, int height,
                  const std::vector<uint8_t>& bgra);

} // namespace stdfx
