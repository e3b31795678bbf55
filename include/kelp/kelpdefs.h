// Basic definitions shared by every exported header of kelp: the export macro,
// the status type and its values, and the fixed-width words of the interface.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(_WIN32)
#if defined(KELP_BUILDING)
#define KELP_API __declspec(dllexport)
#else
#define KELP_API __declspec(dllimport)
#endif
#else
#define KELP_API __attribute__((visibility("default")))
#endif

// A status is a 32-bit word, negative on failure. Anything not negative is success:
// a few stages answer 1. The constants are written through uint32_t so that they are
// negative in every integer type they are compared in.
typedef int32_t KXRESULT;

constexpr KXRESULT KX_OK = 0;
constexpr KXRESULT KXE_INVALID = int32_t(0x80000001u);     // invalid or not applicable
constexpr KXRESULT KXE_OUTOFMEMORY = int32_t(0x80000002u); // allocation failed
constexpr KXRESULT KXE_IMAGEFILE = int32_t(0x80000003u);   // image file failure
constexpr KXRESULT KXE_NOTIMPL = int32_t(0x80004001u);     // not implemented
constexpr KXRESULT KXE_FAIL = int32_t(0x80004005u);        // a caught failure

inline bool KX_SUCCEEDED(KXRESULT r) { return r >= 0; }
inline bool KX_FAILED(KXRESULT r) { return r < 0; }

// The 32-bit words of the interface. DWORD-like quantities are exactly 32 bits here,
// never `long`, which is 64 bits on this platform.
typedef uint32_t KXDWORD;
typedef int32_t KXLONG;

// A four-character code with the first character in the low byte.
constexpr uint32_t KXFOURCC(char a, char b, char c, char d) {
    return uint32_t(uint8_t(a)) | (uint32_t(uint8_t(b)) << 8) | (uint32_t(uint8_t(c)) << 16) |
           (uint32_t(uint8_t(d)) << 24);
}

// A 16-byte identifier (interfaces, settings), laid out as the text form
// {Data1-Data2-Data3-Data4[0]Data4[1]-Data4[2..7]} reads.
typedef struct tagKXGUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
} KXGUID;
static_assert(sizeof(KXGUID) == 16, "KXGUID is 16 bytes");
static_assert(offsetof(KXGUID, Data1) == 0, "KXGUID layout");
static_assert(offsetof(KXGUID, Data2) == 4, "KXGUID layout");
static_assert(offsetof(KXGUID, Data3) == 6, "KXGUID layout");
static_assert(offsetof(KXGUID, Data4) == 8, "KXGUID layout");

inline bool operator==(const KXGUID& a, const KXGUID& b) {
    if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
    for (int i = 0; i < 8; ++i)
        if (a.Data4[i] != b.Data4[i]) return false;
    return true;
}
inline bool operator!=(const KXGUID& a, const KXGUID& b) { return !(a == b); }

// Opaque module handle (a loaded shared object).
typedef void* KXMODULE;
