// The library's single constructor and teardown.
#include <kelp/mpheap.h>
#include <kelp/trace.h>

#include <string>

#include "kelpos.h"
#include "module.h"

namespace kelp {
namespace {

// The process-wide objects in the order they are made; they end in reverse.
const module::GlobalEntry kGlobals[] = {
    // settings: made by their first use, which comes before any entry below; listed
    // first so that they end last
    {"settings store", nullptr, module::DestroySettings},
    // codec registry: list, map and lock
    {"codec registry", module::ConstructCodecRegistry, module::DestroyCodecRegistry},
    {"dual and page allocators", module::ConstructDualVirtAllocators,
     module::DestroyDualVirtAllocators},
    {"heap thread-local slot", module::ConstructHeapThreadSlot, module::DestroyHeapThreadSlot},
    {"bad_alloc object", module::ConstructBadAlloc, module::DestroyBadAlloc},
    {"processor functions", module::ConstructEnhancedFunctions, module::DestroyEnhancedFunctions},
    {"thread registration hook", module::ConstructThreadHook, module::DestroyThreadHook},
    {"event names", module::ConstructEventNames, module::DestroyEventNames},
    // conversion manager: list, map and lock
    {"conversion manager registry", module::ConstructConversionGlobals,
     module::DestroyConversionGlobals},
    {"process heap allocator", module::ConstructCppAllocator, module::DestroyCppAllocator},
    // image toolkit: tables and translators, made by their first use
    {"image toolkit", nullptr, module::DestroyToolkit},
};

KXMODULE g_module = nullptr;
std::wstring* g_moduleFile = nullptr;
std::wstring* g_modulePath = nullptr;

void StoreModuleIdentity() {
    std::wstring file;
    // Any address inside this library names it.
    if (!os::ModuleFileOf(reinterpret_cast<const void*>(&StoreModuleIdentity), &file)) return;
    // The loader's own handle of this library, which GetSymbol (dlsym) accepts.
    g_module = os::ModuleHandleOf(reinterpret_cast<const void*>(&StoreModuleIdentity));
    g_moduleFile = new std::wstring(file);
    g_modulePath = new std::wstring(os::RemoveFileName(file));
}

__attribute__((constructor)) void ModuleAttach() {
    // The heap comes before everything else. A library whose heap cannot be made stays
    // loaded here (a shared object cannot refuse to load): it runs without a heap, and
    // every throwing NewAlloc traces and throws.
    MpHeapInit();
    for (const auto& g : kGlobals)
        if (g.construct) g.construct();
    StoreModuleIdentity();
    dbgInit();
}

__attribute__((destructor)) void ModuleDetach() {
    dbgEnd();
    for (size_t i = sizeof(kGlobals) / sizeof(kGlobals[0]); i-- > 0;)
        if (kGlobals[i].destroy) kGlobals[i].destroy();
    delete g_moduleFile;
    delete g_modulePath;
    g_moduleFile = g_modulePath = nullptr;
    MpHeapEnd(); // last of all
}

} // namespace

KXMODULE GetKELPModule() {
    return g_module;
}
const wchar_t* GetKELPModuleFile() {
    return g_moduleFile ? g_moduleFile->c_str() : L"";
}
const wchar_t* GetKELPModulePath() {
    return g_modulePath ? g_modulePath->c_str() : L"";
}

} // namespace kelp
