#include "registry.h"

#include <kelp/trace.h>

#include <new>

#include "guard.h"
#include "runtime/kelpos.h"
#include "runtime/module.h"

namespace kelp {
namespace codec {
namespace {
alignas(Registry) unsigned char g_storage[sizeof(Registry)];
Registry* g_registry = nullptr;
} // namespace

Registry* TheRegistry() {
    return g_registry;
}

std::wstring PluginDirectory() {
    if (g_registry && !g_registry->directoryOverride.empty()) {
        std::wstring dir = g_registry->directoryOverride;
        if (dir.back() != L'/') dir += L'/';
        return dir;
    }
    return GetKELPModulePath();
}

void SetPluginDirectoryForTests(const std::wstring& directory) {
    if (!g_registry) return;
    CKELPAutoLock lock(&g_registry->lock);
    g_registry->directoryOverride = directory;
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
