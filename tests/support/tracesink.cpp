// A trace sink library for the tests: records every line it is handed.
#include <atomic>
#include <cstdarg>
#include <mutex>

#include "tracecapture.h"
#include <kelp/trace.h>

namespace {
std::mutex g_lock;
std::vector<kelptest::TraceLine>* g_lines;
std::atomic<unsigned> g_mask{0xFFFFFFFFu};
std::atomic<unsigned> g_prints{0};

std::vector<kelptest::TraceLine>& Lines() {
    if (!g_lines) g_lines = new std::vector<kelptest::TraceLine>();
    return *g_lines;
}
} // namespace

extern "C" __attribute__((visibility("default"))) void wvPrintf(unsigned area, unsigned level,
                                                                const wchar_t* format,
                                                                va_list args) {
    wchar_t buf[4096];
    kelpFormatV(buf, 4096, format, args);
    g_prints.fetch_add(1);
    std::lock_guard<std::mutex> g(g_lock);
    Lines().push_back({area, level, buf});
}

extern "C" __attribute__((visibility("default"))) int
Is_wPrintf_User_Level_Active(unsigned /*area*/, unsigned level) {
    return level < 32 && ((g_mask.load() >> level) & 1u);
}

namespace kelptest {
void SinkClear() {
    std::lock_guard<std::mutex> g(g_lock);
    Lines().clear();
}
std::vector<TraceLine> SinkLines() {
    std::lock_guard<std::mutex> g(g_lock);
    return Lines();
}
std::wstring SinkText(unsigned area) {
    std::lock_guard<std::mutex> g(g_lock);
    std::wstring s;
    for (auto& l : Lines())
        if (l.area == area) s += l.text;
    return s;
}
void SinkSetLevelMask(unsigned mask) { g_mask.store(mask); }
unsigned SinkPrintCount() { return g_prints.load(); }
} // namespace kelptest
