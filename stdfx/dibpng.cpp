// The debugging pictures go through the library's one PNG writer.
#include "dibpng.h"

#include <kelp/imageio.h>
#include <kelp/kxbih.h>

#include <cstring>

namespace stdfx {

bool WriteBgraPng(const std::wstring& path, int width, int height,
                  const std::vector<uint8_t>& bgra) {
    if (width <= 0 || height <= 0) return false;
    const size_t bytes = size_t(width) * 4 * size_t(height);
    if (bytes > 0xFFFFFFFFu || bgra.size() < bytes) return false;
    // Bottom-up 32-bit rows with straight alpha; 32-bit rows need no padding.
    KXBMINFOHEADER desc;
    std::memset(&desc, 0, sizeof desc);
    desc.biSize = KXBMI_SIZE;
    desc.biWidth = width;
    desc.biHeight = height;
    desc.biPlanes = 1;
    desc.biBitCount = 32;
    desc.biSizeImage = uint32_t(bytes);
    desc.bmiMagic = KXBMI_MAGIC;
    desc.bmiFrame = 1;
    desc.bmiAlpha = KXDIB_ALPHA_VALID;
    return KX_SUCCEEDED(kelp::SavePNGImage(path.c_str(), &desc, bgra.data()));
}

} // namespace stdfx
