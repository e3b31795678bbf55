// Helpers of the codec tests: which plug-in directory the registry searches, what the
// test plug-ins report, and the registry's trace lines.
#pragma once

#include <kelp/kxcodec.h>

#include <string>
#include <vector>

#include "codec/registryhook.h"
#include "tracecapture.h"

namespace codectest {

// Events the test plug-ins report ("release EQ1 ", "unload a_equal"), in order.
std::vector<std::string>& Events();

inline std::wstring Wide(const char* s) {
    return std::wstring(s, s + std::char_traits<char>::length(s));
}

// Points the registry at a directory for the life of the object.
class PluginDir {
public:
    explicit PluginDir(const char* dir) { kelp::codec::SetPluginDirectoryForTests(Wide(dir)); }
    ~PluginDir() { kelp::codec::SetPluginDirectoryForTests(L""); }
};

// The trace lines of area 8 at the given level, in order.
inline std::vector<std::wstring> Lines(unsigned level) {
    std::vector<std::wstring> out;
    for (const auto& l : kelptest::SinkLines())
        if (l.area == 8 && l.level == level) out.push_back(l.text);
    return out;
}

// True if the shared object at `path` is loaded in this process now.
bool IsLoaded(const std::string& path);

// The format code of a codec that describes itself, as four characters.
std::string CodecName(kelp::ICodec* codec);

// A compressed-looking record of `fcc`, 144 bytes, 64x48.
KXBMINFOHEADER Record(uint32_t fcc, uint32_t sizeImage = 0);

} // namespace codectest
