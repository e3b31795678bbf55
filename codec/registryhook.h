// A seam for programs that link the library's objects into their own executable, the
// test and benchmark programs: the registry would search that executable's directory,
// which holds no plug-ins, so they name the directory to search instead. The library
// itself never calls it, and a host of the shared library cannot reach it.
#pragma once

#include <string>

namespace kelp {
namespace codec {

// "*.cdc" is searched in `directory` from the next load of the plug-ins on; an empty name
// gives the library's own directory back.
void SetPluginDirectoryForTests(const std::wstring& directory);

} // namespace codec
} // namespace kelp
