// The settings file on SQLite.
#include "storefile.h"

#include <kelp/trace.h>

#include <sqlite3.h>

#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

namespace kelp {
namespace {

constexpr int32_t kApplicationId = 0x4B454C50; // "KELP": marks a file as a settings store

const char kCreateTable[] = "CREATE TABLE IF NOT EXISTS settings("
                            "section TEXT NOT NULL COLLATE NOCASE,"
                            "key TEXT NOT NULL COLLATE NOCASE,"
                            "type INTEGER NOT NULL,"
                            "value,"
                            "PRIMARY KEY(section, key)) WITHOUT ROWID";

bool Is32(uint32_t t) {
    return t == KXCFG_INT || t == KXCFG_BOOL || t == KXCFG_UINT || t == KXCFG_DWORD ||
           t == KXCFG_COLOR;
}
bool Is64(uint32_t t) {
    return t == KXCFG_INT64 || t == KXCFG_UINT64;
}
bool IsText(uint32_t t) {
    return t == KXCFG_STRING || t == KXCFG_STRINGA || t == KXCFG_PATH;
}
bool IsInteger(uint32_t t) {
    return Is32(t) || Is64(t);
}

// ---- little-endian records

void Put32(std::string& s, uint32_t v) {
    for (int k = 0; k < 4; ++k)
        s += char((v >> (8 * k)) & 0xFF);
}
void Put16(std::string& s, uint16_t v) {
    s += char(v & 0xFF);
    s += char(v >> 8);
}
uint32_t Get32(const std::string& s, size_t at) {
    uint32_t v = 0;
    for (int k = 0; k < 4; ++k)
        v |= uint32_t(uint8_t(s[at + k])) << (8 * k);
    return v;
}
uint16_t Get16(const std::string& s, size_t at) {
    return uint16_t(uint8_t(s[at]) | (uint8_t(s[at + 1]) << 8));
}

std::string PackGuid(const KXGUID& g) {
    std::string s;
    Put32(s, g.Data1);
    Put16(s, g.Data2);
    Put16(s, g.Data3);
    s.append(reinterpret_cast<const char*>(g.Data4), 8);
    return s;
}
bool UnpackGuid(const std::string& s, KXGUID* g) {
    if (s.size() != 16) return false;
    g->Data1 = Get32(s, 0);
    g->Data2 = Get16(s, 4);
    g->Data3 = Get16(s, 6);
    std::memcpy(g->Data4, s.data() + 8, 8);
    return true;
}

std::string PackRect(const KXRECT& r) {
    std::string s;
    Put32(s, uint32_t(r.left));
    Put32(s, uint32_t(r.top));
    Put32(s, uint32_t(r.right));
    Put32(s, uint32_t(r.bottom));
    return s;
}
bool UnpackRect(const std::string& s, KXRECT* r) {
    if (s.size() != 16) return false;
    r->left = int32_t(Get32(s, 0));
    r->top = int32_t(Get32(s, 4));
    r->right = int32_t(Get32(s, 8));
    r->bottom = int32_t(Get32(s, 12));
    return true;
}

constexpr size_t kFontBytes = 28 + 4 * KX_LF_FACESIZE;
std::string PackFont(const KXLOGFONTW& f) {
    std::string s;
    Put32(s, uint32_t(f.lfHeight));
    Put32(s, uint32_t(f.lfWidth));
    Put32(s, uint32_t(f.lfEscapement));
    Put32(s, uint32_t(f.lfOrientation));
    Put32(s, uint32_t(f.lfWeight));
    const uint8_t bytes[8] = {f.lfItalic,  f.lfUnderline,     f.lfStrikeOut,
                              f.lfCharSet, f.lfOutPrecision,  f.lfClipPrecision,
                              f.lfQuality, f.lfPitchAndFamily};
    s.append(reinterpret_cast<const char*>(bytes), 8);
    for (int k = 0; k < KX_LF_FACESIZE; ++k)
        Put32(s, uint32_t(f.lfFaceName[k]));
    return s;
}
bool UnpackFont(const std::string& s, KXLOGFONTW* f) {
    if (s.size() != kFontBytes) return false;
    f->lfHeight = int32_t(Get32(s, 0));
    f->lfWidth = int32_t(Get32(s, 4));
    f->lfEscapement = int32_t(Get32(s, 8));
    f->lfOrientation = int32_t(Get32(s, 12));
    f->lfWeight = int32_t(Get32(s, 16));
    uint8_t* b[8] = {&f->lfItalic,  &f->lfUnderline,     &f->lfStrikeOut,
                     &f->lfCharSet, &f->lfOutPrecision,  &f->lfClipPrecision,
                     &f->lfQuality, &f->lfPitchAndFamily};
    for (int k = 0; k < 8; ++k)
        *b[k] = uint8_t(s[20 + k]);
    for (int k = 0; k < KX_LF_FACESIZE; ++k)
        f->lfFaceName[k] = wchar_t(Get32(s, 28 + 4 * k));
    return true;
}

// ---- one connection, for one operation

class Statement {
public:
    Statement(sqlite3* db, const char* sql) {
        m_rc = sqlite3_prepare_v2(db, sql, -1, &m_stmt, nullptr);
    }
    ~Statement() { sqlite3_finalize(m_stmt); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    bool Ok() const { return m_rc == SQLITE_OK && m_stmt; }
    int PrepareCode() const { return m_rc; }
    sqlite3_stmt* operator*() const { return m_stmt; }
    void BindText(int i, const char* s) { sqlite3_bind_text(m_stmt, i, s, -1, SQLITE_STATIC); }
    int Step() { return sqlite3_step(m_stmt); }

private:
    sqlite3_stmt* m_stmt = nullptr;
    int m_rc;
};

enum class Kind { Store, Empty, Foreign, Damaged, Failed };

class Connection {
public:
    ~Connection() {
        if (m_db) sqlite3_close(m_db);
    }
    // An existing file, for reading. Read-write when allowed, so that the journal of a
    // write that was cut off can be rolled back; read-only otherwise.
    bool OpenForRead(const std::string& path) {
        if (Open(path, SQLITE_OPEN_READWRITE)) return true;
        return Open(path, SQLITE_OPEN_READONLY);
    }
    bool OpenForWrite(const std::string& path) {
        if (!Open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) return false;
        // The rollback journal, never write-ahead logging: one file at rest, and
        // usable on a network share. Every commit reaches the disk.
        Exec("PRAGMA journal_mode=DELETE");
        return Exec("PRAGMA synchronous=FULL") == SQLITE_OK;
    }
    sqlite3* Db() const { return m_db; }
    int Exec(const char* sql) { return sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr); }
    int ErrorCode() const { return m_db ? sqlite3_errcode(m_db) & 0xFF : SQLITE_CANTOPEN; }
    const char* ErrorText() const { return m_db ? sqlite3_errmsg(m_db) : "cannot open"; }

    // What the open file is. A new, empty file is Empty; a file with our mark is Store.
    Kind Identify() {
        Statement id(m_db, "PRAGMA application_id");
        if (!id.Ok()) return KindOf(id.PrepareCode());
        int rc = id.Step();
        if (rc != SQLITE_ROW) return KindOf(rc);
        int32_t app = sqlite3_column_int(*id, 0);
        if (app == kApplicationId) return Kind::Store;
        if (app != 0) return Kind::Foreign;
        Statement objects(m_db, "SELECT count(*) FROM sqlite_master");
        if (!objects.Ok()) return KindOf(objects.PrepareCode());
        rc = objects.Step();
        if (rc != SQLITE_ROW) return KindOf(rc);
        return sqlite3_column_int(*objects, 0) == 0 ? Kind::Empty : Kind::Foreign;
    }

private:
    bool Open(const std::string& path, int flags) {
        if (m_db) sqlite3_close(m_db);
        m_db = nullptr;
        int rc = sqlite3_open_v2(path.c_str(), &m_db, flags | SQLITE_OPEN_NOMUTEX, nullptr);
        if (rc != SQLITE_OK) {
            sqlite3_close(m_db);
            m_db = nullptr;
            return false;
        }
        sqlite3_busy_handler(m_db, &Connection::Busy, this);
        return true;
    }
    // Another process holds the file: look again every millisecond, so that a writer
    // gets its turn soon after the other's commit, up to the time-out.
    static int Busy(void* self, int count) {
        Connection* c = static_cast<Connection*>(self);
        uint32_t now = os::GetTickCount();
        if (count == 0) c->m_busySince = now;
        if (now - c->m_busySince >= uint32_t(CStoreFile::kBusyTimeoutMs)) return 0;
        os::Sleep(1);
        return 1;
    }
    static Kind KindOf(int rc) {
        rc &= 0xFF;
        if (rc == SQLITE_NOTADB) return Kind::Foreign;
        if (rc == SQLITE_CORRUPT) return Kind::Damaged;
        return Kind::Failed;
    }

    sqlite3* m_db = nullptr;
    uint32_t m_busySince = 0;
};

// The value's form as a read gives it, for EnumSettings and GetSettingSize.
struct ReadForm {
    std::vector<unsigned char> bytes;
};

ReadForm FormOf(uint32_t type, int64_t i, const std::string& raw) {
    ReadForm f;
    auto put = [&f](const void* p, size_t n) {
        const unsigned char* b = static_cast<const unsigned char*>(p);
        f.bytes.assign(b, b + n);
    };
    if (Is32(type)) {
        uint32_t v = uint32_t(i);
        put(&v, 4);
    } else if (Is64(type)) {
        put(&i, 8);
    } else if (type == KXCFG_STRINGA) {
        put(raw.c_str(), raw.size() + 1);
    } else if (IsText(type)) {
        std::wstring w = os::FromUtf8(raw);
        put(w.c_str(), (w.size() + 1) * sizeof(wchar_t));
    } else if (type == KXCFG_GUID) {
        KXGUID g{};
        if (UnpackGuid(raw, &g)) put(&g, sizeof g);
    } else if (type == KXCFG_RECT) {
        KXRECT r{};
        if (UnpackRect(raw, &r)) put(&r, sizeof r);
    } else if (type == KXCFG_FONT) {
        KXLOGFONTW lf{};
        if (UnpackFont(raw, &lf)) put(&lf, sizeof lf);
    } else {
        put(raw.data(), raw.size());
    }
    return f;
}

bool ValidName(const char* section, const char* key) {
    return section && key;
}

// The type column at `col` and the value column after it, as the table holds them.
uint32_t TakeValue(sqlite3_stmt* q, int col, int64_t* i, std::string* bytes) {
    uint32_t type = uint32_t(sqlite3_column_int64(q, col));
    if (IsInteger(type)) {
        *i = sqlite3_column_int64(q, col + 1);
    } else {
        const void* b = sqlite3_column_blob(q, col + 1);
        int n = sqlite3_column_bytes(q, col + 1);
        bytes->assign(static_cast<const char*>(b ? b : ""), size_t(n > 0 ? n : 0));
    }
    return type;
}

// Tells, once for each target, that its file is not a settings store or is damaged:
// such a file is read as empty and never written.
class ForeignReport {
public:
    ForeignReport(os::CriticalSection& lock, bool& reported, const std::wstring& path)
        : m_lock(lock), m_reported(reported), m_path(path) {}
    // What the open file is, reported if it is not ours.
    Kind Examine(Connection& c) {
        Kind kind = c.Identify();
        if (kind == Kind::Foreign || kind == Kind::Damaged) Report(kind);
        return kind;
    }
    // The same, told by the error of a failed open or first statement; true if reported.
    bool ExamineError(const Connection& c) {
        int rc = c.ErrorCode();
        if (rc != SQLITE_NOTADB && rc != SQLITE_CORRUPT) return false;
        Report(rc == SQLITE_CORRUPT ? Kind::Damaged : Kind::Foreign);
        return true;
    }

private:
    void Report(Kind kind) {
        m_lock.Enter();
        bool first = !m_reported;
        m_reported = true;
        m_lock.Leave();
        if (!first) return;
        if (kind == Kind::Damaged)
            dbgPrintf(8, 2,
                      L"CStoreFile: '%s' is damaged; it is read as empty and left untouched\r\n",
                      m_path.c_str());
        else
            dbgPrintf(8, 2,
                      L"CStoreFile: '%s' is not a settings store; it is read as empty and left "
                      L"untouched\r\n",
                      m_path.c_str());
    }
    os::CriticalSection& m_lock;
    bool& m_reported;
    const std::wstring& m_path;
};

} // namespace

// A value as the table holds it: integers in `i`, text (UTF-8) and records in `bytes`.
// Put encodes each type that a write takes and Get decodes each type that a read gives;
// a Get fails when the stored kind does not give that type, and then writes nothing.
struct CStoreFile::Value {
    uint32_t type = 0;
    int64_t i = 0;
    std::string bytes;

    // A caller's buffer for text or bytes, with its room (in characters for text).
    template <class C> struct Buffer {
        C* data;
        uint32_t size;
    };
    struct Bytes {
        const void* data;
        uint32_t size;
    };

    bool Put(int32_t x) {
        i = x;
        return true;
    }
    bool Put(uint32_t x) {
        i = int64_t(x);
        return true;
    }
    bool Put(int64_t x) {
        i = x;
        return true;
    }
    bool Put(uint64_t x) {
        i = int64_t(x);
        return true;
    }
    bool Put(const wchar_t* s) {
        if (!s) return false;
        bytes = os::ToUtf8(s);
        return true;
    }
    bool Put(const char* s) {
        if (!s) return false;
        bytes = s;
        return true;
    }
    bool Put(const KXGUID& g) {
        bytes = PackGuid(g);
        return true;
    }
    bool Put(const KXRECT& r) {
        bytes = PackRect(r);
        return true;
    }
    bool Put(const KXLOGFONTW& f) {
        bytes = PackFont(f);
        return true;
    }
    bool Put(Bytes b) {
        if (!b.data && b.size) return false;
        if (b.size) bytes.assign(static_cast<const char*>(b.data), b.size);
        return true;
    }

    // A 32-bit read takes the low word of a 32-bit kind; a 64-bit read takes any integer.
    bool Get(int32_t* x) const {
        if (!Is32(type)) return false;
        *x = int32_t(uint32_t(i));
        return true;
    }
    bool Get(uint32_t* x) const {
        if (!Is32(type)) return false;
        *x = uint32_t(i);
        return true;
    }
    bool Get(int64_t* x) const {
        if (!IsInteger(type)) return false;
        *x = i;
        return true;
    }
    bool Get(uint64_t* x) const {
        if (!IsInteger(type)) return false;
        *x = uint64_t(i);
        return true;
    }
    bool Get(KXGUID* g) const { return type == KXCFG_GUID && UnpackGuid(bytes, g); }
    bool Get(KXRECT* r) const { return type == KXCFG_RECT && UnpackRect(bytes, r); }
    bool Get(KXLOGFONTW* f) const { return type == KXCFG_FONT && UnpackFont(bytes, f); }
    bool Get(Buffer<wchar_t> b) const {
        if (!IsText(type)) return false;
        std::wstring w = os::FromUtf8(bytes);
        if (w.size() + 1 > b.size) return false;
        std::memcpy(b.data, w.c_str(), (w.size() + 1) * sizeof(wchar_t));
        return true;
    }
    bool Get(Buffer<char> b) const {
        if (!IsText(type) || bytes.size() + 1 > b.size) return false;
        std::memcpy(b.data, bytes.c_str(), bytes.size() + 1);
        return true;
    }
    bool Get(Buffer<void> b) const {
        if (type != KXCFG_BIN || bytes.size() > b.size || (!b.data && !bytes.empty())) return false;
        if (!bytes.empty()) std::memcpy(b.data, bytes.data(), bytes.size());
        return true;
    }

    // A text buffer without room is refused before the file is opened.
    template <class T> static bool Usable(const T&) { return true; }
    template <class C> static bool Usable(Buffer<C> b) { return b.data && b.size; }
    static bool Usable(Buffer<void>) { return true; }
};

// ---------------------------------------------------------------- target

CStoreFile::CStoreFile(const wchar_t* path) {
    if (path) m_path = path;
}

CStoreFile::~CStoreFile() {}

void CStoreFile::SetTarget(const wchar_t* path, bool makeDirectory) {
    m_lock.Enter();
    m_path = path ? path : L"";
    m_makeDirectory = makeDirectory;
    m_reportedForeign = false;
    m_lock.Leave();
}

std::wstring CStoreFile::TargetFor(bool* makeDirectory) const {
    m_lock.Enter();
    std::wstring p = m_path;
    if (makeDirectory) *makeDirectory = m_makeDirectory;
    m_lock.Leave();
    return p;
}

// ---------------------------------------------------------------- core

bool CStoreFile::Read(const char* section, const char* key, Value* out) {
    if (!ValidName(section, key)) return false;
    std::wstring path = TargetFor(nullptr);
    if (path.empty() || !os::FileExists(path)) return false;
    ForeignReport foreign(m_lock, m_reportedForeign, path);
    Connection c;
    if (!c.OpenForRead(os::ToUtf8(path)) || foreign.Examine(c) != Kind::Store) return false;
    Statement q(c.Db(), "SELECT type, value FROM settings WHERE section = ?1 AND key = ?2");
    if (!q.Ok()) return false;
    q.BindText(1, section);
    q.BindText(2, key);
    if (q.Step() != SQLITE_ROW) return false;
    out->type = TakeValue(*q, 0, &out->i, &out->bytes);
    return true;
}

bool CStoreFile::Write(const char* section, const char* key, const Value& v) {
    if (!ValidName(section, key)) return false;
    bool makeDirectory = false;
    std::wstring path = TargetFor(&makeDirectory);
    if (path.empty()) return false;
    if (makeDirectory) os::MakeDirectories(os::RemoveFileName(path));
    ForeignReport foreign(m_lock, m_reportedForeign, path);
    Connection c;
    if (!c.OpenForWrite(os::ToUtf8(path))) {
        dbgPrintf(8, 2, L"CStoreFile: cannot write '%s': %hs\r\n", path.c_str(), c.ErrorText());
        return false;
    }
    // Take the write lock first, so that two writers queue on the busy timeout.
    if (c.Exec("BEGIN IMMEDIATE") != SQLITE_OK) {
        if (!foreign.ExamineError(c))
            dbgPrintf(8, 2, L"CStoreFile: cannot write '%s': %hs\r\n", path.c_str(), c.ErrorText());
        return false;
    }
    bool ok = false;
    Kind kind = foreign.Examine(c);
    if (kind == Kind::Empty) {
        std::string mark = "PRAGMA application_id=" + std::to_string(kApplicationId);
        ok = c.Exec(mark.c_str()) == SQLITE_OK && c.Exec(kCreateTable) == SQLITE_OK;
    } else if (kind == Kind::Store) {
        ok = c.Exec(kCreateTable) == SQLITE_OK;
    } else if (kind == Kind::Foreign || kind == Kind::Damaged) {
        c.Exec("ROLLBACK");
        return false;
    }
    if (ok) {
        Statement ins(c.Db(), "INSERT OR REPLACE INTO settings(section, key, type, value) "
                              "VALUES(?1, ?2, ?3, ?4)");
        ok = ins.Ok();
        if (ok) {
            ins.BindText(1, section);
            ins.BindText(2, key);
            sqlite3_bind_int64(*ins, 3, int64_t(v.type));
            if (IsInteger(v.type))
                sqlite3_bind_int64(*ins, 4, v.i);
            else if (IsText(v.type))
                sqlite3_bind_text(*ins, 4, v.bytes.data(), int(v.bytes.size()), SQLITE_STATIC);
            else
                sqlite3_bind_blob(*ins, 4, v.bytes.data(), int(v.bytes.size()), SQLITE_STATIC);
            ok = ins.Step() == SQLITE_DONE;
        }
    }
    if (ok) ok = c.Exec("COMMIT") == SQLITE_OK;
    if (!ok) {
        dbgPrintf(8, 2, L"CStoreFile: cannot write '%s': %hs\r\n", path.c_str(), c.ErrorText());
        c.Exec("ROLLBACK");
    }
    return ok;
}

// Deletes one setting (key not null) or a whole section; 1 if something was removed.
int CStoreFile::Delete(const char* section, const char* key) {
    if (!section) return 0;
    std::wstring path = TargetFor(nullptr);
    if (path.empty() || !os::FileExists(path)) return 0;
    ForeignReport foreign(m_lock, m_reportedForeign, path);
    Connection c;
    if (!c.OpenForWrite(os::ToUtf8(path)) || c.Exec("BEGIN IMMEDIATE") != SQLITE_OK) {
        foreign.ExamineError(c);
        return 0;
    }
    if (foreign.Examine(c) != Kind::Store) {
        c.Exec("ROLLBACK");
        return 0;
    }
    Statement del(c.Db(), key ? "DELETE FROM settings WHERE section = ?1 AND key = ?2"
                              : "DELETE FROM settings WHERE section = ?1");
    bool ok = del.Ok();
    if (ok) {
        del.BindText(1, section);
        if (key) del.BindText(2, key);
        ok = del.Step() == SQLITE_DONE;
    }
    int removed = ok ? sqlite3_changes(c.Db()) : 0;
    if (ok && c.Exec("COMMIT") == SQLITE_OK) return removed > 0 ? 1 : 0;
    c.Exec("ROLLBACK");
    return 0;
}

// ---------------------------------------------------------------- typed reads and writes

template <class T> int CStoreFile::ReadAs(const char* section, const char* key, T out) {
    Value v;
    return Value::Usable(out) && Read(section, key, &v) && v.Get(out) ? 1 : 0;
}

template <class T>
int CStoreFile::WriteAs(const char* section, const char* key, uint32_t type, const T& value) {
    Value v;
    v.type = type;
    return v.Put(value) && Write(section, key, v) ? 1 : 0;
}

int CStoreFile::ReadSettingInt(const char* section, const char* key, int& value) {
    return ReadAs(section, key, &value);
}
int CStoreFile::ReadSettingBool(const char* section, const char* key, int& value) {
    return ReadAs(section, key, &value);
}
int CStoreFile::ReadSettingUInt(const char* section, const char* key, unsigned int& value) {
    return ReadAs(section, key, &value);
}
int CStoreFile::ReadSettingDWORD(const char* section, const char* key, uint32_t& value) {
    return ReadAs(section, key, &value);
}
int CStoreFile::ReadSettingColor(const char* section, const char* key, uint32_t& value) {
    return ReadAs(section, key, &value);
}
int CStoreFile::ReadSettingInt64(const char* section, const char* key, int64_t& value) {
    return ReadAs(section, key, &value);
}
int CStoreFile::ReadSettingUInt64(const char* section, const char* key, uint64_t& value) {
    return ReadAs(section, key, &value);
}
int CStoreFile::ReadSettingString(const char* section, const char* key, wchar_t* buffer,
                                  uint32_t size) {
    return ReadAs(section, key, Value::Buffer<wchar_t>{buffer, size});
}
int CStoreFile::ReadSettingStringW(const char* section, const char* key, wchar_t* buffer,
                                   uint32_t size) {
    return ReadAs(section, key, Value::Buffer<wchar_t>{buffer, size});
}
int CStoreFile::ReadSettingPath(const char* section, const char* key, wchar_t* buffer) {
    return ReadAs(section, key, Value::Buffer<wchar_t>{buffer, KX_MAX_PATH});
}
int CStoreFile::ReadSettingStringA(const char* section, const char* key, char* buffer,
                                   uint32_t size) {
    return ReadAs(section, key, Value::Buffer<char>{buffer, size});
}
int CStoreFile::ReadSettingGUID(const char* section, const char* key, KXGUID& value) {
    return ReadAs(section, key, &value);
}
int CStoreFile::ReadSettingRect(const char* section, const char* key, KXRECT& value) {
    return ReadAs(section, key, &value);
}
int CStoreFile::ReadSettingFont(const char* section, const char* key, KXLOGFONTW& value) {
    return ReadAs(section, key, &value);
}
int CStoreFile::ReadSettingBin(const char* section, const char* key, void* buffer, uint32_t size) {
    return ReadAs(section, key, Value::Buffer<void>{buffer, size});
}

int CStoreFile::WriteSettingInt(const char* section, const char* key, int value) {
    return WriteAs(section, key, KXCFG_INT, int32_t(value));
}
int CStoreFile::WriteSettingBool(const char* section, const char* key, int value) {
    return WriteAs(section, key, KXCFG_BOOL, int32_t(value));
}
int CStoreFile::WriteSettingUInt(const char* section, const char* key, unsigned int value) {
    return WriteAs(section, key, KXCFG_UINT, uint32_t(value));
}
int CStoreFile::WriteSettingDWORD(const char* section, const char* key, uint32_t value) {
    return WriteAs(section, key, KXCFG_DWORD, value);
}
int CStoreFile::WriteSettingColor(const char* section, const char* key, const uint32_t& value) {
    return WriteAs(section, key, KXCFG_COLOR, value);
}
int CStoreFile::WriteSettingInt64(const char* section, const char* key, int64_t value) {
    return WriteAs(section, key, KXCFG_INT64, value);
}
int CStoreFile::WriteSettingUInt64(const char* section, const char* key, uint64_t value) {
    return WriteAs(section, key, KXCFG_UINT64, value);
}
int CStoreFile::WriteSettingString(const char* section, const char* key, const wchar_t* value) {
    return WriteAs(section, key, KXCFG_STRING, value);
}
int CStoreFile::WriteSettingStringW(const char* section, const char* key, const wchar_t* value) {
    return WriteAs(section, key, KXCFG_STRING, value);
}
int CStoreFile::WriteSettingPath(const char* section, const char* key, const wchar_t* value) {
    // A path must fit the buffer that ReadSettingPath fills.
    if (value && std::wcslen(value) >= KX_MAX_PATH) return 0;
    return WriteAs(section, key, KXCFG_PATH, value);
}
int CStoreFile::WriteSettingStringA(const char* section, const char* key, const char* value) {
    return WriteAs(section, key, KXCFG_STRINGA, value);
}
int CStoreFile::WriteSettingGUID(const char* section, const char* key, const KXGUID& value) {
    return WriteAs(section, key, KXCFG_GUID, value);
}
int CStoreFile::WriteSettingRect(const char* section, const char* key, const KXRECT& value) {
    return WriteAs(section, key, KXCFG_RECT, value);
}
int CStoreFile::WriteSettingFont(const char* section, const char* key, const KXLOGFONTW& value) {
    return WriteAs(section, key, KXCFG_FONT, value);
}
int CStoreFile::WriteSettingBin(const char* section, const char* key, const void* buffer,
                                uint32_t size) {
    return WriteAs(section, key, KXCFG_BIN, Value::Bytes{buffer, size});
}

// ---------------------------------------------------------------- queries

int CStoreFile::DeleteSetting(const char* section, const char* key, uint32_t) {
    if (!key) return 0;
    return Delete(section, key);
}

int CStoreFile::DeleteKey(const char* section) {
    return Delete(section, nullptr);
}

int CStoreFile::QueryKey(const char* section) {
    if (!section) return 0;
    std::wstring path = TargetFor(nullptr);
    if (path.empty() || !os::FileExists(path)) return 0;
    ForeignReport foreign(m_lock, m_reportedForeign, path);
    Connection c;
    if (!c.OpenForRead(os::ToUtf8(path)) || foreign.Examine(c) != Kind::Store) return 0;
    Statement q(c.Db(), "SELECT 1 FROM settings WHERE section = ?1 LIMIT 1");
    if (!q.Ok()) return 0;
    q.BindText(1, section);
    return q.Step() == SQLITE_ROW ? 1 : 0;
}

int CStoreFile::EnumSettings(KXCFGENUMPROC proc, uint32_t user) {
    if (!proc) return 0;
    struct Row {
        std::string name;
        uint32_t type;
        ReadForm form;
    };
    std::vector<Row> rows;
    std::wstring path = TargetFor(nullptr);
    if (path.empty()) return 0;
    if (os::FileExists(path)) {
        // Everything is read first and the file closed before the first call, so that
        // the callback may write settings.
        ForeignReport foreign(m_lock, m_reportedForeign, path);
        Connection c;
        if (!c.OpenForRead(os::ToUtf8(path))) return 0;
        Kind kind = foreign.Examine(c);
        if (kind == Kind::Foreign || kind == Kind::Damaged) return 0;
        if (kind == Kind::Store) {
            Statement q(c.Db(), "SELECT section, key, type, value FROM settings "
                                "ORDER BY section, key");
            if (q.Ok()) {
                int rc;
                while ((rc = q.Step()) == SQLITE_ROW) {
                    Row r;
                    const unsigned char* s = sqlite3_column_text(*q, 0);
                    const unsigned char* k = sqlite3_column_text(*q, 1);
                    r.name = std::string(s ? reinterpret_cast<const char*>(s) : "") + "\\" +
                             (k ? reinterpret_cast<const char*>(k) : "");
                    int64_t i = 0;
                    std::string raw;
                    r.type = TakeValue(*q, 2, &i, &raw);
                    r.form = FormOf(r.type, i, raw);
                    rows.push_back(std::move(r));
                }
                if (rc != SQLITE_DONE) return 0;
            }
        }
    }
    for (const Row& r : rows) {
        const void* data = r.form.bytes.empty() ? nullptr : r.form.bytes.data();
        if (!proc(r.name.c_str(), r.type, data, uint32_t(r.form.bytes.size()), user)) return 0;
    }
    return 1;
}

uint32_t CStoreFile::GetSettingSize(const char* section, const char* key, uint32_t) {
    Value v;
    if (!Read(section, key, &v)) return 0;
    return uint32_t(FormOf(v.type, v.i, v.bytes).bytes.size());
}

} // namespace kelp
