// The process-wide codec registry: every codec of every loaded plug-in, the plug-in
// modules, the number of living managers and the lock around them. Made by the module
// table at load, before anything else but the heap; the first manager fills it and the
// last one empties it (codecman.cpp).
#pragma once

#include <kelp/kelpthread.h>
#include <kelp/kxcodec.h>

#include <string>
#include <vector>

namespace kelp {
namespace codec {

struct Registry {
    CKELPCritSec lock;
    uint32_t useCount = 0;          // living managers
    std::vector<ICodec*> codecs;    // in the order they were added
    std::vector<KXMODULE> modules;  // plug-ins that added at least one codec
    std::wstring directoryOverride; // where to look instead of the module path; tests only
};

// Null before the module table has made it and after it has ended it.
Registry* TheRegistry();

// The directory searched for "*.cdc": the library's own (GetKELPModulePath), unless a
// test has named another one. A test program links the library's objects, so that its
// own directory would be searched; it names the directory of its test plug-ins here.
std::wstring PluginDirectory();
// An empty name gives the library's directory back. Takes effect at the next load.
void SetPluginDirectoryForTests(const std::wstring& directory);

} // namespace codec
} // namespace kelp
