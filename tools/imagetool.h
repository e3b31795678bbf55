// What the image commands of the tool share: file names as the library's wide text,
// and the names of alpha states.
#pragma once

#include <kelp/kxbih.h>

#include <cstdint>
#include <string>

namespace imagetool {

// UTF-8 (as file names come on the command line) to wide text; false if not UTF-8.
inline bool Wide(const std::string& s, std::wstring* out) {
    out->clear();
    for (size_t i = 0; i < s.size();) {
        const uint8_t b = uint8_t(s[i]);
        const int extra = b < 0x80             ? 0
                          : (b & 0xE0) == 0xC0 ? 1
                          : (b & 0xF0) == 0xE0 ? 2
                          : (b & 0xF8) == 0xF0 ? 3
                                               : -1;
        if (extra < 0 || s.size() - i <= size_t(extra)) return false;
        uint32_t c = extra == 0 ? b : b & (0x3F >> extra);
        for (int k = 1; k <= extra; ++k) {
            const uint8_t n = uint8_t(s[i + size_t(k)]);
            if ((n & 0xC0) != 0x80) return false;
            c = (c << 6) | (n & 0x3F);
        }
        *out += wchar_t(c);
        i += size_t(extra) + 1;
    }
    return true;
}

inline const char* AlphaName(uint32_t alpha) {
    switch (alpha) {
    case KXDIB_ALPHA_VALID:
        return "straight";
    case KXDIB_ALPHA_OPAQUE:
        return "opaque";
    case KXDIB_ALPHA_PREMULTIPLIED:
        return "premultiplied";
    default:
        return "unknown";
    }
}

// The extension of a file name without the dot, in lower case.
inline std::string Extension(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ext = path.substr(dot + 1);
    for (char& c : ext)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return ext;
}

// The image file part of kelp demo: `image` written through the image files into
// OUT/files and read back, and every file of `samplesDir` (if not empty) converted
// into OUT/converted as a 24-bit .bmp. False if a step failed.
bool DemoImageFiles(const std::string& outDir, const std::string& samplesDir,
                    const KXBMINFOHEADER* image, const void* pixels);

} // namespace imagetool
