// The settings file: a typed key and value store in one SQLite database file, one
// table keyed by section and key (compared without regard to ASCII case) with the
// kind and the bytes of each value.
//
// Every write is one transaction with full synchronous writes through the rollback
// journal (the file stays one file at rest and may live on a network share), and waits
// for another process's write instead of failing. A missing file reads as empty; an
// unreadable file, or one that is not a settings store, reads as empty and is never
// written to. Each operation opens the file afresh, so that the object may be shared
// by threads and survives a fork.
#pragma once

#include <kelp/kelpcfg.h>

#include <string>

#include "kelpos.h"

namespace kelp {

class CStoreFile {
public:
    explicit CStoreFile(const wchar_t* path = nullptr);
    ~CStoreFile();
    CStoreFile(const CStoreFile&) = delete;
    CStoreFile& operator=(const CStoreFile&) = delete;

    // Directs all further operations to `path` (null: none, every operation fails).
    // With `makeDirectory`, the file's directory is created on the first write.
    void SetTarget(const wchar_t* path, bool makeDirectory = false);

    int ReadSettingInt(const char* section, const char* key, int& value);
    int ReadSettingInt64(const char* section, const char* key, int64_t& value);
    int ReadSettingBool(const char* section, const char* key, int& value);
    int ReadSettingString(const char* section, const char* key, wchar_t* buffer, uint32_t size);
    int ReadSettingStringA(const char* section, const char* key, char* buffer, uint32_t size);
    int ReadSettingStringW(const char* section, const char* key, wchar_t* buffer, uint32_t size);
    int ReadSettingPath(const char* section, const char* key, wchar_t* buffer);
    int ReadSettingGUID(const char* section, const char* key, KXGUID& value);
    int ReadSettingBin(const char* section, const char* key, void* buffer, uint32_t size);
    int ReadSettingColor(const char* section, const char* key, uint32_t& value);
    int ReadSettingFont(const char* section, const char* key, KXLOGFONTW& value);
    int ReadSettingRect(const char* section, const char* key, KXRECT& value);
    int ReadSettingUInt(const char* section, const char* key, unsigned int& value);
    int ReadSettingUInt64(const char* section, const char* key, uint64_t& value);
    int ReadSettingDWORD(const char* section, const char* key, uint32_t& value);

    int WriteSettingInt(const char* section, const char* key, int value);
    int WriteSettingInt64(const char* section, const char* key, int64_t value);
    int WriteSettingBool(const char* section, const char* key, int value);
    int WriteSettingString(const char* section, const char* key, const wchar_t* value);
    int WriteSettingStringA(const char* section, const char* key, const char* value);
    int WriteSettingStringW(const char* section, const char* key, const wchar_t* value);
    int WriteSettingPath(const char* section, const char* key, const wchar_t* value);
    int WriteSettingGUID(const char* section, const char* key, const KXGUID& value);
    int WriteSettingBin(const char* section, const char* key, const void* buffer, uint32_t size);
    int WriteSettingColor(const char* section, const char* key, const uint32_t& value);
    int WriteSettingFont(const char* section, const char* key, const KXLOGFONTW& value);
    int WriteSettingRect(const char* section, const char* key, const KXRECT& value);
    int WriteSettingUInt(const char* section, const char* key, unsigned int value);
    int WriteSettingUInt64(const char* section, const char* key, uint64_t value);
    int WriteSettingDWORD(const char* section, const char* key, uint32_t value);

    int DeleteSetting(const char* section, const char* key, uint32_t flags);
    int DeleteKey(const char* section);
    int QueryKey(const char* section);
    int EnumSettings(KXCFGENUMPROC proc, uint32_t user);
    // The size in bytes the value has when read (text with its terminator); 0 if the
    // setting does not exist.
    uint32_t GetSettingSize(const char* section, const char* key, uint32_t flags);

    // How long a write waits for another process's write, in milliseconds.
    static constexpr int kBusyTimeoutMs = 30000;

private:
    struct Value;
    // One path for every kind of value: Value encodes and decodes the C++ types.
    template <class T> int ReadAs(const char* section, const char* key, T out);
    template <class T>
    int WriteAs(const char* section, const char* key, uint32_t type, const T& value);
    bool Read(const char* section, const char* key, Value* out);
    bool Write(const char* section, const char* key, const Value& v);
    int Delete(const char* section, const char* key);
    std::wstring TargetFor(bool* makeDirectory) const;

    mutable os::CriticalSection m_lock; // guards the target
    std::wstring m_path;
    bool m_makeDirectory = false;
    bool m_reportedForeign = false;
};

} // namespace kelp
