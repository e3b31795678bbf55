#include "registry.h"

#include <kelp/trace.h>

#include <new>

#include "guard.h"
#include "registryhook.h"
#include "runtime/kelpos.h"
#include "runtime/module.h"

namespace kelp {
namespace codec {
namespace {
alignas(Registry) unsigned char g_storage[sizeof(Registry)];
Registry* g_registry = nullptr;

// The directory a test program named, kept apart from the registry's record. Made on
// first use and never ended, so that it outlives every static of the program.
std::wstring& TestDirectory() {
    static std::wstring* directory = new std::wstring;
    return *directory;
}
} // namespace

Registry* TheRegistry() {
    return g_registry;
}

std::wstring PluginDirectory() {
    std::wstring dir = TestDirectory();
    if (dir.empty()) return GetKELPModulePath();
    if (dir.back() != L'/') dir += L'/';
    return dir;
}

void SetPluginDirectoryForTests(const std::wstring& directory) {
    // The plug-ins are loaded under the registry's lock; the name changes under it too.
    if (!g_registry) return;
    CKELPAutoLock lock(&g_registry->lock);
    TestDirectory() = directory;
}

} // namespace codec

void module::ConstructCodecRegistry() {
    codec::g_registry = new (codec::g_storage) codec::Registry();
}

void module::DestroyCodecRegistry() {
    // Codecs of managers that the host never released stay with their plug-ins, which
    // stay loaded: their code may still be running in the host. Only the lists go.
    codec::g_registry->~Registry();
    codec::g_registry = nullptr;
}

} // namespace kelp
