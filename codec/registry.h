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
    uint32_t useCount = 0;         // living managers
    std::vector<ICodec*> codecs;   // in the order they were added
    std::vector<KXMODULE> modules; // plug-ins that added at least one codec
};

// Null before the module table has made it and after it has ended it.
Registry* TheRegistry();

// The directory searched for "*.cdc", ending in '/': the library's own
// (GetKELPModulePath), unless a test program has named another (registryhook.h).
std::wstring PluginDirectory();

} // namespace codec
} // namespace kelp
