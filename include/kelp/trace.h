// The trace facility: every error, timing and decision of the library is reported here.
// Texts are wide. Formats follow one fixed set of conversions on every platform:
// %s and %c take wide arguments, %hs and %hc narrow ones, the `l` size means 32 bits,
// %p prints upper-case hex digits without a prefix. kelpFormatV is that formatter; a
// trace sink uses it to turn the format and argument list it receives into text.
#pragma once

#include <cstdarg>
#include <exception>

#include "kelpdefs.h"

extern "C" {
// Formats into buf (count wide characters of room, terminator included) with the
// library's conversions. Stops at the room and always terminates when count > 0.
// Returns the number of characters written, without the terminator.
KELP_API int kelpFormatV(wchar_t* buf, size_t count, const wchar_t* format, va_list args);
KELP_API int kelpFormat(wchar_t* buf, size_t count, const wchar_t* format, ...);

// The two entries a trace sink library exports, with these signatures:
//   void wvPrintf(unsigned area, unsigned level, const wchar_t* format, va_list args);
//   int Is_wPrintf_User_Level_Active(unsigned area, unsigned level);
typedef void (*KELP_SINK_PRINT)(unsigned area, unsigned level, const wchar_t* format,
                                va_list args);
typedef int (*KELP_SINK_ACTIVE)(unsigned area, unsigned level);
}

struct tagKXBMINFOHEADER;

namespace kelp {

// The line end that callers pass as the tail of dbgBIH.
KELP_API extern const wchar_t* const pszNL;

// A portable record of a processor exception, in place of the operating system's own.
struct KXEXCEPTION_RECORD {
    uint32_t ExceptionCode;
    uint32_t ExceptionFlags;
    KXEXCEPTION_RECORD* ExceptionRecord; // next record in the chain, or null
    uintptr_t ExceptionAddress;
    uint32_t NumberParameters;
    uintptr_t ExceptionInformation[15];
};
struct KXEXCEPTION_POINTERS {
    KXEXCEPTION_RECORD* ExceptionRecord;
    void* ContextRecord;
};

KELP_API void dbgInit();
KELP_API void dbgEnd();
KELP_API int dbgActive(int area, int level);
KELP_API void dbgPrintf(int area, int level, const wchar_t* format, ...);
KELP_API void dbgBIH(int area, int level, const wchar_t* name, const tagKXBMINFOHEADER* bih,
                     const wchar_t* tail);
KELP_API void dbgBMP(int area, int level, const wchar_t* name, const tagKXBMINFOHEADER* bih,
                     const void* bits);
KELP_API void dbgMem(const wchar_t* name, const void* p, int size, int area);
KELP_API void dbgEx(const wchar_t* name, const KXEXCEPTION_POINTERS* info, int area);
KELP_API void dbgEx(const wchar_t* name, const std::exception* e, int area);
KELP_API void dbgAssert(const char* expression, const char* file, unsigned int line, int area);

// The library's identity, written once when it is loaded.
KELP_API KXMODULE GetKELPModule();
KELP_API const wchar_t* GetKELPModuleFile();
KELP_API const wchar_t* GetKELPModulePath(); // directory with a trailing '/'

} // namespace kelp
