// The trace facility: a sink library bound at load, and a fallback print to the
// platform's debug stream when no sink is bound.
#include <kelp/trace.h>

#include <atomic>

#include "kelpos.h"

namespace kelp {

const wchar_t* const pszNL = L"\r\n";

namespace {

// The fallback print shares one static buffer among all threads on purpose: a trace
// path that cannot block is worth an interleaved line now and then.
wchar_t g_fallbackBuffer[1024];

void FallbackPrint(unsigned, unsigned, const wchar_t* format, va_list args) {
    // Text that no stream takes is not formatted at all.
    if (!os::DebugOutputEnabled()) return;
    kelpFormatV(g_fallbackBuffer, 1024, format, args);
    os::DebugOutput(g_fallbackBuffer);
}

int FallbackActive(unsigned, unsigned) { return 1; }

std::atomic<KXMODULE> g_sinkModule{nullptr};
std::atomic<KELP_SINK_PRINT> g_print{&FallbackPrint};
std::atomic<KELP_SINK_ACTIVE> g_active{&FallbackActive};

} // namespace

void dbgInit() {
    if (g_sinkModule.load()) return;
    std::string name;
    if (!os::GetEnv("KELP_TRACE_SINK", &name) || name.empty()) name = "libpanelsu.so";
    KXMODULE m = os::LoadModule(os::FromUtf8(name));
    if (!m) return;
    g_sinkModule.store(m);
    auto print = reinterpret_cast<KELP_SINK_PRINT>(os::GetSymbol(m, "wvPrintf"));
    auto active =
        reinterpret_cast<KELP_SINK_ACTIVE>(os::GetSymbol(m, "Is_wPrintf_User_Level_Active"));
    if (print && active) {
        g_active.store(active);
        g_print.store(print);
    }
}

void dbgEnd() {
    KXMODULE m = g_sinkModule.load();
    if (!m) return;
    g_print.store(&FallbackPrint);
    g_active.store(&FallbackActive);
    os::FreeModule(m);
    g_sinkModule.store(nullptr);
}

int dbgActive(int area, int level) { return g_active.load()(unsigned(area), unsigned(level)); }

void dbgPrintf(int area, int level, const wchar_t* format, ...) {
    if (!g_active.load()(unsigned(area), unsigned(level))) return;
    va_list ap;
    va_start(ap, format);
    g_print.load()(unsigned(area), unsigned(level), format, ap);
    va_end(ap);
}

void dbgMem(const wchar_t* name, const void* p, int size, int area) {
    dbgPrintf(area, 31, L"%s: Memory Dump\n", name);
    const unsigned char* b = static_cast<const unsigned char*>(p);
    for (int i = 0; i < size; ++i) {
        dbgPrintf(area, 31, L"%02X ", unsigned(b[i]));
        if ((i + 1) % 16 == 0) dbgPrintf(area, 31, L"\n");
    }
    if (size > 0 && size % 16 != 0) dbgPrintf(area, 31, L"\n");
}

void dbgEx(const wchar_t* name, const KXEXCEPTION_POINTERS* info, int area) {
    dbgPrintf(area, 0, L"%s: *** EXCEPTION OCCURED ***\n", name);
    if (!info) return;
    int n = 1;
    for (const KXEXCEPTION_RECORD* r = info->ExceptionRecord; r; r = r->ExceptionRecord, ++n) {
        dbgPrintf(area, 0, L"*** Exception information[%d]:\n", n);
        dbgPrintf(area, 0, L"*** ExceptionCode: %08X\n", r->ExceptionCode);
        dbgPrintf(area, 0, L"*** ExceptionFlags: %08X (%s)\n", r->ExceptionFlags,
                  (r->ExceptionFlags & 1) ? L"noncont" : L"cont");
        dbgPrintf(area, 0, L"*** ExceptionAddress: %08X\n", unsigned(r->ExceptionAddress));
        uint32_t count = r->NumberParameters < 15 ? r->NumberParameters : 15;
        for (uint32_t i = 0; i < count; ++i)
            dbgPrintf(area, 0, L"*** ExceptionParameter[%d]:%08X\n", int(i),
                      unsigned(r->ExceptionInformation[i]));
    }
}

void dbgEx(const wchar_t* name, const std::exception* e, int area) {
    dbgPrintf(area, 0, L"%s: *** EXCEPTION OCCURED ***\n", name);
    if (e) dbgPrintf(area, 0, L"*** %hs\n", e->what());
}

void dbgAssert(const char* expression, const char* file, unsigned int line, int area) {
    dbgPrintf(area, 2, L"ASSERTION FAILED!\n%hs ,%hs, %d", expression, file, int(line));
}

} // namespace kelp
