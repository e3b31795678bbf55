// A trace sink that exports the print entry but not the level test.
#include <cstdarg>

static unsigned g_calls;

extern "C" __attribute__((visibility("default"))) void wvPrintf(unsigned, unsigned,
                                                                const wchar_t*, va_list) {
    ++g_calls;
}
extern "C" __attribute__((visibility("default"))) unsigned HalfSinkCalls() { return g_calls; }
