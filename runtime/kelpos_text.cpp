// Linux: text conversion between wide text and UTF-8, the environment and the debug
// stream.
#include "kelpos.h"

#include <stdlib.h>

#include <cstdio>

namespace kelp {
namespace os {

std::string ToUtf8(const std::wstring& s) {
    std::string out;
    out.reserve(s.size());
    for (wchar_t wc : s) {
        uint32_t c = uint32_t(wc);
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
        if (c < 0x80) {
            out += char(c);
        } else if (c < 0x800) {
            out += char(0xC0 | (c >> 6));
            out += char(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += char(0xE0 | (c >> 12));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        } else {
            out += char(0xF0 | (c >> 18));
            out += char(0x80 | ((c >> 12) & 0x3F));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::wstring FromUtf8(const std::string& s) {
    std::wstring out;
    out.reserve(s.size());
    size_t i = 0, n = s.size();
    while (i < n) {
        uint8_t b = uint8_t(s[i]);
        uint32_t c;
        int extra;
        if (b < 0x80) {
            c = b;
            extra = 0;
        } else if ((b & 0xE0) == 0xC0) {
            c = b & 0x1F;
            extra = 1;
        } else if ((b & 0xF0) == 0xE0) {
            c = b & 0x0F;
            extra = 2;
        } else if ((b & 0xF8) == 0xF0) {
            c = b & 0x07;
            extra = 3;
        } else {
            out += wchar_t(0xFFFD);
            ++i;
            continue;
        }
        bool ok = true;
        for (int k = 1; k <= extra; ++k) {
            if (i + k >= n || (uint8_t(s[i + k]) & 0xC0) != 0x80) {
                ok = false;
                break;
            }
            c = (c << 6) | (uint8_t(s[i + k]) & 0x3F);
        }
        if (!ok) {
            out += wchar_t(0xFFFD);
            ++i;
            continue;
        }
        out += wchar_t(c);
        i += size_t(extra) + 1;
    }
    return out;
}

bool GetEnv(const char* name, std::string* value) {
    const char* v = getenv(name);
    if (!v) return false;
    if (value) *value = v;
    return true;
}

bool DebugOutputEnabled() {
    return getenv("KELP_DEBUG_OUTPUT") != nullptr;
}

void DebugOutput(const wchar_t* text) {
    if (!text || !DebugOutputEnabled()) return;
    std::string u = ToUtf8(text);
    fwrite(u.data(), 1, u.size(), stderr);
    fflush(stderr);
}

std::string CutUtf8(const std::string& s, size_t maxBytes) {
    if (s.size() <= maxBytes) return s;
    size_t n = maxBytes;
    // Step back over continuation bytes so that no character is split.
    while (n > 0 && (uint8_t(s[n]) & 0xC0) == 0x80)
        --n;
    return s.substr(0, n);
}

} // namespace os
} // namespace kelp
