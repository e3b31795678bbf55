// Settings: typed values addressed by a section and a key (narrow text, compared
// without regard to ASCII case), kept in the per-user settings file "KELP.VST" or in
// the site file that it names. KELPGetCfg gives the one process-wide IKELPCfg.
//
// Every operation answers true on success. A read of a setting that does not exist,
// that has another kind of value, or that does not fit the caller's buffer answers
// false and leaves the caller's variable as it was: a caller presets its default and
// may ignore the answer.
#pragma once

#include "kelpdefs.h"

namespace kelp {

// The records of the settings with a fixed layout.
using ::KXGUID;

struct KXRECT {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
};
static_assert(sizeof(KXRECT) == 16, "KXRECT size");
static_assert(offsetof(KXRECT, left) == 0, "KXRECT layout");
static_assert(offsetof(KXRECT, top) == 4, "KXRECT layout");
static_assert(offsetof(KXRECT, right) == 8, "KXRECT layout");
static_assert(offsetof(KXRECT, bottom) == 12, "KXRECT layout");

constexpr int KX_LF_FACESIZE = 32;
struct KXLOGFONTW {
    int32_t lfHeight;
    int32_t lfWidth;
    int32_t lfEscapement;
    int32_t lfOrientation;
    int32_t lfWeight;
    uint8_t lfItalic;
    uint8_t lfUnderline;
    uint8_t lfStrikeOut;
    uint8_t lfCharSet;
    uint8_t lfOutPrecision;
    uint8_t lfClipPrecision;
    uint8_t lfQuality;
    uint8_t lfPitchAndFamily;
    wchar_t lfFaceName[KX_LF_FACESIZE];
};
static_assert(sizeof(wchar_t) == 4, "wide characters are 32 bits on this platform");
static_assert(sizeof(KXLOGFONTW) == 156, "KXLOGFONTW size");
static_assert(offsetof(KXLOGFONTW, lfHeight) == 0, "KXLOGFONTW layout");
static_assert(offsetof(KXLOGFONTW, lfWidth) == 4, "KXLOGFONTW layout");
static_assert(offsetof(KXLOGFONTW, lfEscapement) == 8, "KXLOGFONTW layout");
static_assert(offsetof(KXLOGFONTW, lfOrientation) == 12, "KXLOGFONTW layout");
static_assert(offsetof(KXLOGFONTW, lfWeight) == 16, "KXLOGFONTW layout");
static_assert(offsetof(KXLOGFONTW, lfItalic) == 20, "KXLOGFONTW layout");
static_assert(offsetof(KXLOGFONTW, lfUnderline) == 21, "KXLOGFONTW layout");
static_assert(offsetof(KXLOGFONTW, lfStrikeOut) == 22, "KXLOGFONTW layout");
static_assert(offsetof(KXLOGFONTW, lfCharSet) == 23, "KXLOGFONTW layout");
static_assert(offsetof(KXLOGFONTW, lfOutPrecision) == 24, "KXLOGFONTW layout");
static_assert(offsetof(KXLOGFONTW, lfClipPrecision) == 25, "KXLOGFONTW layout");
static_assert(offsetof(KXLOGFONTW, lfQuality) == 26, "KXLOGFONTW layout");
static_assert(offsetof(KXLOGFONTW, lfPitchAndFamily) == 27, "KXLOGFONTW layout");
static_assert(offsetof(KXLOGFONTW, lfFaceName) == 28, "KXLOGFONTW layout");

// The buffer of ReadSettingPath holds this many wide characters, the terminator
// included; a longer path is refused by WriteSettingPath and by ReadSettingPath.
constexpr uint32_t KX_MAX_PATH = 260;

// The kinds of value, as EnumSettings reports them. Values of the 32-bit integer kinds
// (int, bool, uint, DWORD, colour) read as one another; so do the 64-bit ones, which
// also read any 32-bit integer value; and the text kinds (string, narrow string,
// path). The others read only as themselves.
enum KXCFGTYPE : uint32_t {
    KXCFG_INT = 1,
    KXCFG_INT64 = 2,
    KXCFG_BOOL = 3,
    KXCFG_STRING = 4,  // wide text (ReadSettingString and ReadSettingStringW)
    KXCFG_STRINGA = 5, // narrow text, kept byte for byte
    KXCFG_PATH = 7,
    KXCFG_GUID = 8,
    KXCFG_BIN = 9,
    KXCFG_COLOR = 10,
    KXCFG_FONT = 11,
    KXCFG_RECT = 12,
    KXCFG_UINT = 13,
    KXCFG_UINT64 = 14,
    KXCFG_DWORD = 15,
};

// Called for each setting: the name "SECTION\KEY" (the section, a backslash, the key),
// the kind, the value as the matching read would give it (a wide or narrow text with
// its terminator, an integer, a record, the bytes), its size in bytes, and the user
// value. Answer non-zero to go on, 0 to stop.
typedef int (*KXCFGENUMPROC)(const char* name, uint32_t type, const void* data, uint32_t size,
                             uint32_t user);

class KELP_API IKELPCfg {
  public:
    // Text buffers are counted in characters, the terminator included; binary
    // buffers in bytes (a shorter value fills the front of the buffer).
    virtual bool ReadSettingInt(const char* section, const char* key, int& value) = 0;
    virtual bool ReadSettingInt64(const char* section, const char* key, int64_t& value) = 0;
    virtual bool ReadSettingBool(const char* section, const char* key, int& value) = 0;
    virtual bool ReadSettingString(const char* section, const char* key, wchar_t* buffer,
                                   uint32_t size) = 0;
    virtual bool ReadSettingStringA(const char* section, const char* key, char* buffer,
                                    uint32_t size) = 0;
    virtual bool ReadSettingStringW(const char* section, const char* key, wchar_t* buffer,
                                    uint32_t size) = 0;
    // `buffer` holds KX_MAX_PATH wide characters.
    virtual bool ReadSettingPath(const char* section, const char* key, wchar_t* buffer) = 0;
    virtual bool ReadSettingGUID(const char* section, const char* key, KXGUID& value) = 0;
    virtual bool ReadSettingBin(const char* section, const char* key, void* buffer,
                                uint32_t size) = 0;
    virtual bool ReadSettingColor(const char* section, const char* key, uint32_t& value) = 0;
    virtual bool ReadSettingFont(const char* section, const char* key, KXLOGFONTW& value) = 0;
    virtual bool ReadSettingRect(const char* section, const char* key, KXRECT& value) = 0;
    virtual bool ReadSettingUInt(const char* section, const char* key, unsigned int& value) = 0;
    virtual bool ReadSettingUInt64(const char* section, const char* key, uint64_t& value) = 0;
    virtual bool ReadSettingDWORD(const char* section, const char* key, uint32_t& value) = 0;

    virtual bool WriteSettingInt(const char* section, const char* key, int value) = 0;
    virtual bool WriteSettingInt64(const char* section, const char* key, int64_t value) = 0;
    virtual bool WriteSettingBool(const char* section, const char* key, int value) = 0;
    virtual bool WriteSettingString(const char* section, const char* key, const wchar_t* value) = 0;
    virtual bool WriteSettingStringA(const char* section, const char* key, const char* value) = 0;
    virtual bool WriteSettingStringW(const char* section, const char* key,
                                     const wchar_t* value) = 0;
    virtual bool WriteSettingPath(const char* section, const char* key, const wchar_t* value) = 0;
    virtual bool WriteSettingGUID(const char* section, const char* key, const KXGUID& value) = 0;
    virtual bool WriteSettingBin(const char* section, const char* key, const void* buffer,
                                 uint32_t size) = 0;
    virtual bool WriteSettingColor(const char* section, const char* key, const uint32_t& value) = 0;
    virtual bool WriteSettingFont(const char* section, const char* key,
                                  const KXLOGFONTW& value) = 0;
    virtual bool WriteSettingRect(const char* section, const char* key, const KXRECT& value) = 0;
    virtual bool WriteSettingUInt(const char* section, const char* key, unsigned int value) = 0;
    virtual bool WriteSettingUInt64(const char* section, const char* key, uint64_t value) = 0;
    virtual bool WriteSettingDWORD(const char* section, const char* key, uint32_t value) = 0;

    // Removes one setting; true if it existed. `flags` is reserved: pass 0.
    virtual bool DeleteSetting(const char* section, const char* key, uint32_t flags) = 0;
    // Removes every setting of a section; true if there was one.
    virtual bool DeleteKey(const char* section) = 0;
    // True if the section holds a setting.
    virtual bool QueryKey(const char* section) = 0;
    // Calls `proc` for every setting, in order of section and key; true if it went
    // through them all.
    virtual bool EnumSettings(KXCFGENUMPROC proc, uint32_t user) = 0;
    // True if the setting exists with a size above 0. `flags` is reserved: pass 0.
    virtual bool GetSettingSize(const char* section, const char* key, uint32_t flags) = 0;

  protected:
    ~IKELPCfg() {}
};

// The process-wide settings. The first call chooses the file; `reinit` true chooses
// it again (after the environment that names it has changed).
KELP_API IKELPCfg& KELPGetCfg(bool reinit);

} // namespace kelp
