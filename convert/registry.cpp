// The built-in stages and the process-wide list that holds them.
#include "registry.h"

#include <kelp/trace.h>

#include <new>

#include "alphaconv.h"
#include "catchall.h"
#include "convman.h"
#include "rgbconv.h"
#include "runtime/kelpos.h"
#include "runtime/module.h"
#include "yuvconv.h"

namespace kelp {
namespace conv {

namespace {

typedef IConverter* (*StageFactory)();

template <class T> IConverter* MakeStage() {
    return new (std::nothrow) T();
}

// The built-in stages, one line each. This order is the search's order and its
// tie-break: 32-bit stages stand before their 24-bit twins, so that of two chains equal
// in length and cost the 32-bit one wins.
const StageFactory kBuiltinStages[] = {
    // MakeStage<CRGBScale32>,           // "Scale32"
    MakeStage<CRGBConverterRGB32>, // "nBit to 32bit"
    MakeStage<CRGBConverterYUV4444>,  // "RGB->YUV4444"
    MakeStage<CYUV444ConverterRGB32>, // "YUV444->RGB32"
    // MakeStage<CRGBDeinterlacer32>,    // "Deinterlacer32"
    MakeStage<CAlphaConverter>, // "AlphaConverter"
    // MakeStage<CRGBCrop>,              // "RGBCrop"
    MakeStage<CYUVConverterYUV>,      // "CYUVConverterYUV", kept as "CYUVConverterYU"
    // MakeStage<CRGBScale24>,           // "Scale24"
    MakeStage<CRGBConverterRGB24>, // "nBit to 24bit"
    MakeStage<CYUV444ConverterRGB24>, // "YUV444->RGB24"
    // MakeStage<CRGBDeinterlacer24>,    // "Deinterlacer24"
    nullptr, // end of the table
};

struct Globals {
    os::CriticalSection lock;
    int managers = 0;
    std::list<IConverter*> converters; // owns the built-in stages
    std::list<KXMODULE> modules;       // plug-in modules of stages; nothing fills it yet
};

alignas(Globals) unsigned char g_storage[sizeof(Globals)];
Globals* g_globals = nullptr;

class Lock {
  public:
    explicit Lock(os::CriticalSection& cs) : m_cs(cs) { m_cs.Enter(); }
    ~Lock() { m_cs.Leave(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    os::CriticalSection& m_cs;
};

IConverter* MakeOne(StageFactory make) {
    try {
        return make();
    }
    KELP_CATCH_ALL {
        return nullptr;
    }
}

void InitGlobal(CConversionManager* manager) {
    dbgPrintf(8, 31, L"KXCONV::InitGlobal\r\n");
    for (const StageFactory* f = kBuiltinStages; *f; ++f) {
        // A stage that cannot be made is left out: the list holds only live stages.
        if (IConverter* stage = MakeOne(*f)) manager->AddConverter(stage);
    }
    const std::list<IConverter*>& made = manager->Converters();
    if (made.empty()) {
        dbgPrintf(8, 2, L"KXCONV: No converter found!\r\n");
        return;
    }
    g_globals->converters = made;
    manager->RemoveAllConverters();
}

void ReleaseAll(Globals& g) {
    for (IConverter* stage : g.converters) {
        try {
            stage->Release();
        }
        KELP_CATCH_ALL {}
    }
    g.converters.clear();
    for (KXMODULE m : g.modules)
        os::FreeModule(m);
    g.modules.clear();
}

void EndGlobal() {
    dbgPrintf(8, 31, L"KXCONV::EndGlobal\r\n");
    ReleaseAll(*g_globals);
}

} // namespace

void ManagerCreated(CConversionManager* manager) {
    if (!g_globals) return;
    Lock lock(g_globals->lock);
    if (g_globals->managers == 0) InitGlobal(manager);
    ++g_globals->managers;
}

void ManagerDestroyed() {
    if (!g_globals) return;
    Lock lock(g_globals->lock);
    if (g_globals->managers > 0 && --g_globals->managers == 0) EndGlobal();
}

void CopyGlobalConverters(std::list<IConverter*>* into) {
    into->clear();
    if (g_globals) *into = g_globals->converters;
}

int ManagerCount() {
    return g_globals ? g_globals->managers : 0;
}

} // namespace conv

void module::ConstructConversionGlobals() {
    conv::g_globals = new (conv::g_storage) conv::Globals();
}

void module::DestroyConversionGlobals() {
    // Managers that the host never released leave their stages behind: they go now,
    // quietly, as the library ends.
    conv::ReleaseAll(*conv::g_globals);
    conv::g_globals->~Globals();
    conv::g_globals = nullptr;
}

} // namespace kelp
