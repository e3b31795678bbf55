// The library's single constructor and teardown.
#include <kelp/trace.h>

#include <string>

#include "kelpos.h"
#include "module.h"

namespace kelp {
namespace {

// The process-wide objects in the order they are made; they end in reverse.
const module::GlobalEntry kGlobals[] = {
    // codec registry: list, map and lock
    {"dual and page allocators", module::ConstructDualVirtAllocators,
     module::DestroyDualVirtAllocators},
    // heap thread-local slot; bad_alloc object; processor functions; thread hook lock
    // conversion manager: list, map and lock
    {"conversion manager registry", module::ConstructConversionGlobals,
     module::DestroyConversionGlobals},
    {"process heap allocator", module::ConstructCppAllocator, module::DestroyCppAllocator},
};

bool g_attached = false;
KXMODULE g_module = nullptr;
std::wstring* g_moduleFile = nullptr;
std::wstring* g_modulePath = nullptr;

void StoreModuleIdentity() {
    std::wstring file;
    // Any address inside this library names it.
    if (!os::ModuleFileOf(reinterpret_cast<const void*>(&StoreModuleIdentity), &file)) return;
    g_module = reinterpret_cast<KXMODULE>(&g_attached);
    g_moduleFile = new std::wstring(file);
    g_modulePath = new std::wstring(os::RemoveFileName(file));
}

__attribute__((constructor)) void ModuleAttach() {
    for (const auto& g : kGlobals)
        if (g.construct) g.construct();
    StoreModuleIdentity();
    dbgInit();
    g_attached = true;
}

__attribute__((destructor)) void ModuleDetach() {
    dbgEnd();
    for (size_t i = sizeof(kGlobals) / sizeof(kGlobals[0]); i-- > 0;)
        if (kGlobals[i].destroy) kGlobals[i].destroy();
    delete g_moduleFile;
    delete g_modulePath;
    g_moduleFile = g_modulePath = nullptr;
    g_attached = false;
}

} // namespace

bool module::Attached() { return g_attached; }

KXMODULE GetKELPModule() { return g_module; }
const wchar_t* GetKELPModuleFile() { return g_moduleFile ? g_moduleFile->c_str() : L""; }
const wchar_t* GetKELPModulePath() { return g_modulePath ? g_modulePath->c_str() : L""; }

} // namespace kelp
