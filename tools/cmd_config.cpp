// kelp config: read and change settings without a program.
#include <kelp/kelp.h>

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"

namespace {

// What every action's help ends with: the types, how values are written, and the file.
const char* const kConfigFooter =
    "TYPE is one of: int int64 uint uint64 dword bool color string stringa path\n"
    "guid bin rect font (default: string). Values are written as:\n"
    "  integers  decimal, or hex with 0x       bool   true/false, yes/no, on/off, 1/0\n"
    "  color     a 32-bit number, as integers  string, stringa, path  the text itself\n"
    "  guid      {8-4-4-4-12 hex digits}       bin    hex digits, two per byte\n"
    "  rect      left,top,right,bottom\n"
    "  font      height,width,escapement,orientation,weight,italic,underline,\n"
    "            strikeout,charset,outprecision,clipprecision,quality,\n"
    "            pitchandfamily,facename\n"
    "\n"
    "The settings file is $XDG_CONFIG_HOME/kelp/KELP.VST (default\n"
    "~/.config/kelp/KELP.VST), or the site file that KELP_SITE_FILE names or\n"
    "that file remembers.";

// ---- text: the tool converts wide text to UTF-8 and back itself, locale or not

std::string Utf8(const wchar_t* w) {
    std::string out;
    for (; *w; ++w) {
        uint32_t c = uint32_t(*w);
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
        if (c < 0x80) {
            out += char(c);
        } else if (c < 0x800) {
            out += char(0xC0 | (c >> 6));
            out += char(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += char(0xE0 | (c >> 12));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        } else {
            out += char(0xF0 | (c >> 18));
            out += char(0x80 | ((c >> 12) & 0x3F));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        }
    }
    return out;
}

bool Wide(const std::string& s, std::wstring* out) {
    out->clear();
    for (size_t i = 0; i < s.size();) {
        uint8_t b = uint8_t(s[i]);
        int extra = b < 0x80             ? 0
                    : (b & 0xE0) == 0xC0 ? 1
                    : (b & 0xF0) == 0xE0 ? 2
                    : (b & 0xF8) == 0xF0 ? 3
                                         : -1;
        if (extra < 0 || s.size() - i <= size_t(extra)) return false;
        uint32_t c = extra == 0 ? b : b & (0x3F >> extra);
        for (int k = 1; k <= extra; ++k) {
            uint8_t n = uint8_t(s[i + size_t(k)]);
            if ((n & 0xC0) != 0x80) return false;
            c = (c << 6) | (n & 0x3F);
        }
        *out += wchar_t(c);
        i += size_t(extra) + 1;
    }
    return true;
}

bool EqualNoCase(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = b[i];
        if (x >= 'A' && x <= 'Z') x = char(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = char(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

// ---- types

struct TypeName {
    const char* name;
    uint32_t type;
};
const TypeName kTypes[] = {
    {"int", kelp::KXCFG_INT},       {"int64", kelp::KXCFG_INT64},     {"bool", kelp::KXCFG_BOOL},
    {"string", kelp::KXCFG_STRING}, {"stringa", kelp::KXCFG_STRINGA}, {"path", kelp::KXCFG_PATH},
    {"guid", kelp::KXCFG_GUID},     {"bin", kelp::KXCFG_BIN},         {"color", kelp::KXCFG_COLOR},
    {"font", kelp::KXCFG_FONT},     {"rect", kelp::KXCFG_RECT},       {"uint", kelp::KXCFG_UINT},
    {"uint64", kelp::KXCFG_UINT64}, {"dword", kelp::KXCFG_DWORD},
};

const char* NameOfType(uint32_t type) {
    for (const auto& t : kTypes)
        if (t.type == type) return t.name;
    return "unknown";
}

bool TypeOfName(const char* name, uint32_t* type) {
    for (const auto& t : kTypes)
        if (std::strcmp(t.name, name) == 0) {
            *type = t.type;
            return true;
        }
    return false;
}

// ---- formatting a value as the enumeration gives it

std::string Hex(const void* p, size_t n) {
    static const char kDigits[] = "0123456789abcdef";
    std::string s;
    const unsigned char* b = static_cast<const unsigned char*>(p);
    for (size_t i = 0; i < n; ++i) {
        s += kDigits[b[i] >> 4];
        s += kDigits[b[i] & 15];
    }
    return s;
}

std::string Format(uint32_t type, const void* data, uint32_t size) {
    char buf[160];
    auto u32 = [&] {
        uint32_t v = 0;
        if (size >= 4) std::memcpy(&v, data, 4);
        return v;
    };
    auto u64 = [&] {
        uint64_t v = 0;
        if (size >= 8) std::memcpy(&v, data, 8);
        return v;
    };
    switch (type) {
    case kelp::KXCFG_INT:
        std::snprintf(buf, sizeof buf, "%" PRId32, int32_t(u32()));
        return buf;
    case kelp::KXCFG_BOOL:
        return u32() ? "true" : "false";
    case kelp::KXCFG_UINT:
    case kelp::KXCFG_DWORD:
        std::snprintf(buf, sizeof buf, "%" PRIu32, u32());
        return buf;
    case kelp::KXCFG_COLOR:
        std::snprintf(buf, sizeof buf, "0x%08" PRIX32, u32());
        return buf;
    case kelp::KXCFG_INT64:
        std::snprintf(buf, sizeof buf, "%" PRId64, int64_t(u64()));
        return buf;
    case kelp::KXCFG_UINT64:
        std::snprintf(buf, sizeof buf, "%" PRIu64, u64());
        return buf;
    case kelp::KXCFG_STRINGA:
        return data ? static_cast<const char*>(data) : "";
    case kelp::KXCFG_STRING:
    case kelp::KXCFG_PATH:
        return data ? Utf8(static_cast<const wchar_t*>(data)) : "";
    case kelp::KXCFG_GUID: {
        if (size != sizeof(kelp::KXGUID)) break;
        kelp::KXGUID g;
        std::memcpy(&g, data, sizeof g);
        std::snprintf(buf, sizeof buf,
                      "{%08" PRIX32 "-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", g.Data1,
                      unsigned(g.Data2), unsigned(g.Data3), g.Data4[0], g.Data4[1], g.Data4[2],
                      g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
        return buf;
    }
    case kelp::KXCFG_RECT: {
        if (size != sizeof(kelp::KXRECT)) break;
        kelp::KXRECT r;
        std::memcpy(&r, data, sizeof r);
        std::snprintf(buf, sizeof buf, "%" PRId32 ",%" PRId32 ",%" PRId32 ",%" PRId32, r.left,
                      r.top, r.right, r.bottom);
        return buf;
    }
    case kelp::KXCFG_FONT: {
        if (size != sizeof(kelp::KXLOGFONTW)) break;
        kelp::KXLOGFONTW f;
        std::memcpy(&f, data, sizeof f);
        wchar_t face[kelp::KX_LF_FACESIZE + 1];
        std::memcpy(face, f.lfFaceName, sizeof f.lfFaceName);
        face[kelp::KX_LF_FACESIZE] = 0;
        std::snprintf(buf, sizeof buf,
                      "%" PRId32 ",%" PRId32 ",%" PRId32 ",%" PRId32 ",%" PRId32
                      ",%u,%u,%u,%u,%u,%u,%u,%u,",
                      f.lfHeight, f.lfWidth, f.lfEscapement, f.lfOrientation, f.lfWeight,
                      f.lfItalic, f.lfUnderline, f.lfStrikeOut, f.lfCharSet, f.lfOutPrecision,
                      f.lfClipPrecision, f.lfQuality, f.lfPitchAndFamily);
        return buf + Utf8(face);
    }
    default:
        break;
    }
    return Hex(data, size);
}

// ---- parsing a value from the command line

bool ParseSigned(const std::string& s, int64_t lo, int64_t hi, int64_t* out) {
    if (s.empty()) return false;
    errno = 0;
    char* end = nullptr;
    long long v = std::strtoll(s.c_str(), &end, 0);
    if (errno || *end || v < lo || v > hi) return false;
    *out = v;
    return true;
}

bool ParseUnsigned(const std::string& s, uint64_t hi, uint64_t* out) {
    if (s.empty() || s[0] == '-' || s[0] == '+') return false;
    errno = 0;
    char* end = nullptr;
    unsigned long long v = std::strtoull(s.c_str(), &end, 0);
    if (errno || *end || v > hi) return false;
    *out = v;
    return true;
}

bool ParseBool(const std::string& s, int* out) {
    static const char* const kTrue[] = {"true", "yes", "on", "1"};
    static const char* const kFalse[] = {"false", "no", "off", "0"};
    for (const char* t : kTrue)
        if (EqualNoCase(s, t)) return *out = 1, true;
    for (const char* f : kFalse)
        if (EqualNoCase(s, f)) return *out = 0, true;
    return false;
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool ParseHexBytes(const std::string& s, std::vector<unsigned char>* out) {
    if (s.size() % 2) return false;
    out->clear();
    for (size_t i = 0; i < s.size(); i += 2) {
        int hi = HexDigit(s[i]), lo = HexDigit(s[i + 1]);
        if (hi < 0 || lo < 0) return false;
        out->push_back(static_cast<unsigned char>(hi * 16 + lo));
    }
    return true;
}

bool ParseGuid(std::string s, kelp::KXGUID* g) {
    if (s.size() == 38 && s.front() == '{' && s.back() == '}') s = s.substr(1, 36);
    if (s.size() != 36 || s[8] != '-' || s[13] != '-' || s[18] != '-' || s[23] != '-') return false;
    std::string digits =
        s.substr(0, 8) + s.substr(9, 4) + s.substr(14, 4) + s.substr(19, 4) + s.substr(24, 12);
    std::vector<unsigned char> b;
    if (!ParseHexBytes(digits, &b) || b.size() != 16) return false;
    g->Data1 = uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3];
    g->Data2 = uint16_t(b[4] << 8 | b[5]);
    g->Data3 = uint16_t(b[6] << 8 | b[7]);
    std::memcpy(g->Data4, b.data() + 8, 8);
    return true;
}

// Splits at the first `count - 1` commas; the last field keeps any further commas.
bool SplitFields(const std::string& s, size_t count, std::vector<std::string>* out) {
    out->clear();
    size_t start = 0;
    for (size_t i = 0; i + 1 < count; ++i) {
        size_t comma = s.find(',', start);
        if (comma == std::string::npos) return false;
        out->push_back(s.substr(start, comma - start));
        start = comma + 1;
    }
    out->push_back(s.substr(start));
    return true;
}

bool ParseRect(const std::string& s, kelp::KXRECT* r) {
    std::vector<std::string> f;
    int64_t v[4];
    if (!SplitFields(s, 4, &f)) return false;
    for (int i = 0; i < 4; ++i)
        if (!ParseSigned(f[size_t(i)], INT32_MIN, INT32_MAX, &v[i])) return false;
    *r = {int32_t(v[0]), int32_t(v[1]), int32_t(v[2]), int32_t(v[3])};
    return true;
}

bool ParseFont(const std::string& s, kelp::KXLOGFONTW* lf) {
    std::vector<std::string> f;
    if (!SplitFields(s, 14, &f)) return false;
    int64_t n[5];
    for (int i = 0; i < 5; ++i)
        if (!ParseSigned(f[size_t(i)], INT32_MIN, INT32_MAX, &n[i])) return false;
    uint64_t b[8];
    for (int i = 0; i < 8; ++i)
        if (!ParseUnsigned(f[size_t(5 + i)], 255, &b[i])) return false;
    std::wstring face;
    if (!Wide(f[13], &face) || face.size() >= size_t(kelp::KX_LF_FACESIZE)) return false;
    *lf = kelp::KXLOGFONTW{};
    lf->lfHeight = int32_t(n[0]);
    lf->lfWidth = int32_t(n[1]);
    lf->lfEscapement = int32_t(n[2]);
    lf->lfOrientation = int32_t(n[3]);
    lf->lfWeight = int32_t(n[4]);
    uint8_t* fields[8] = {&lf->lfItalic,  &lf->lfUnderline,     &lf->lfStrikeOut,
                          &lf->lfCharSet, &lf->lfOutPrecision,  &lf->lfClipPrecision,
                          &lf->lfQuality, &lf->lfPitchAndFamily};
    for (int i = 0; i < 8; ++i)
        *fields[i] = uint8_t(b[i]);
    std::memcpy(lf->lfFaceName, face.c_str(), (face.size() + 1) * sizeof(wchar_t));
    return true;
}

// Writes `text` as a value of `type`. 0 written, 1 the store refused, 2 bad value.
int WriteValue(kelp::IKELPCfg& cfg, const char* s, const char* k, uint32_t type,
               const std::string& text) {
    int64_t i = 0;
    uint64_t u = 0;
    int b = 0;
    std::wstring w;
    kelp::KXGUID g;
    kelp::KXRECT r;
    kelp::KXLOGFONTW lf;
    std::vector<unsigned char> bytes;
    bool ok;
    switch (type) {
    case kelp::KXCFG_INT:
        if (!ParseSigned(text, INT32_MIN, INT32_MAX, &i)) return 2;
        ok = cfg.WriteSettingInt(s, k, int(i));
        break;
    case kelp::KXCFG_INT64:
        if (!ParseSigned(text, INT64_MIN, INT64_MAX, &i)) return 2;
        ok = cfg.WriteSettingInt64(s, k, i);
        break;
    case kelp::KXCFG_UINT:
        if (!ParseUnsigned(text, UINT32_MAX, &u)) return 2;
        ok = cfg.WriteSettingUInt(s, k, unsigned(u));
        break;
    case kelp::KXCFG_DWORD:
        if (!ParseUnsigned(text, UINT32_MAX, &u)) return 2;
        ok = cfg.WriteSettingDWORD(s, k, uint32_t(u));
        break;
    case kelp::KXCFG_COLOR: {
        if (!ParseUnsigned(text, UINT32_MAX, &u)) return 2;
        uint32_t c = uint32_t(u);
        ok = cfg.WriteSettingColor(s, k, c);
        break;
    }
    case kelp::KXCFG_UINT64:
        if (!ParseUnsigned(text, UINT64_MAX, &u)) return 2;
        ok = cfg.WriteSettingUInt64(s, k, u);
        break;
    case kelp::KXCFG_BOOL:
        if (!ParseBool(text, &b)) return 2;
        ok = cfg.WriteSettingBool(s, k, b);
        break;
    case kelp::KXCFG_STRINGA:
        ok = cfg.WriteSettingStringA(s, k, text.c_str());
        break;
    case kelp::KXCFG_STRING:
        if (!Wide(text, &w)) return 2;
        ok = cfg.WriteSettingString(s, k, w.c_str());
        break;
    case kelp::KXCFG_PATH:
        if (!Wide(text, &w) || w.size() >= kelp::KX_MAX_PATH) return 2;
        ok = cfg.WriteSettingPath(s, k, w.c_str());
        break;
    case kelp::KXCFG_GUID:
        if (!ParseGuid(text, &g)) return 2;
        ok = cfg.WriteSettingGUID(s, k, g);
        break;
    case kelp::KXCFG_BIN:
        if (!ParseHexBytes(text, &bytes)) return 2;
        ok = cfg.WriteSettingBin(s, k, bytes.data(), uint32_t(bytes.size()));
        break;
    case kelp::KXCFG_RECT:
        if (!ParseRect(text, &r)) return 2;
        ok = cfg.WriteSettingRect(s, k, r);
        break;
    case kelp::KXCFG_FONT:
        if (!ParseFont(text, &lf)) return 2;
        ok = cfg.WriteSettingFont(s, k, lf);
        break;
    default:
        return 2;
    }
    return ok ? 0 : 1;
}

// ---- enumeration

struct Entry {
    std::string section, key;
    uint32_t type;
    std::string value;
};

std::vector<Entry>* g_entries;

int Collect(const char* name, uint32_t type, const void* data, uint32_t size, uint32_t) {
    std::string n = name;
    // The key follows the last backslash; the section may hold backslashes of its own.
    size_t cut = n.rfind('\\');
    Entry e;
    e.section = cut == std::string::npos ? n : n.substr(0, cut);
    e.key = cut == std::string::npos ? std::string() : n.substr(cut + 1);
    e.type = type;
    e.value = Format(type, data, size);
    g_entries->push_back(e);
    return 1;
}

bool AllSettings(std::vector<Entry>* out) {
    out->clear();
    g_entries = out;
    bool ok = kelp::KELPGetCfg(false).EnumSettings(&Collect, 0);
    g_entries = nullptr;
    return ok;
}

int Get(const std::string& section, const std::string& key) {
    std::vector<Entry> all;
    if (!AllSettings(&all)) {
        std::fprintf(stderr, "kelp config get: the settings cannot be read\n");
        return 1;
    }
    for (const auto& e : all)
        if (EqualNoCase(e.section, section) && EqualNoCase(e.key, key)) {
            std::printf("%s\n", e.value.c_str());
            return 0;
        }
    std::fprintf(stderr, "kelp config get: no setting %s\\%s\n", section.c_str(), key.c_str());
    return 1;
}

int Set(const std::string& section, const std::string& key, const std::string& value,
        const std::string& typeName) {
    uint32_t type = kelp::KXCFG_STRING;
    TypeOfName(typeName.c_str(), &type); // the option's check took only known names
    const int rc = WriteValue(kelp::KELPGetCfg(false), section.c_str(), key.c_str(), type, value);
    if (rc == 2)
        std::fprintf(stderr, "kelp config set: '%s' is not a valid %s value\n", value.c_str(),
                     typeName.c_str());
    else if (rc == 1)
        std::fprintf(stderr, "kelp config set: cannot write %s\\%s\n", section.c_str(),
                     key.c_str());
    return rc;
}

int List(const std::string& section) {
    std::vector<Entry> all;
    if (!AllSettings(&all)) {
        std::fprintf(stderr, "kelp config list: the settings cannot be read\n");
        return 1;
    }
    for (const auto& e : all)
        if (section.empty() || EqualNoCase(e.section, section))
            std::printf("%s\\%s (%s) = %s\n", e.section.c_str(), e.key.c_str(), NameOfType(e.type),
                        e.value.c_str());
    return 0;
}

int Delete(const std::string& section, const std::string& key) {
    kelp::IKELPCfg& cfg = kelp::KELPGetCfg(false);
    const bool removed = !key.empty() ? cfg.DeleteSetting(section.c_str(), key.c_str(), 0)
                                      : cfg.DeleteKey(section.c_str());
    if (removed) return 0;
    if (!key.empty())
        std::fprintf(stderr, "kelp config delete: no setting %s\\%s\n", section.c_str(),
                     key.c_str());
    else
        std::fprintf(stderr, "kelp config delete: no section %s\n", section.c_str());
    return 1;
}

struct ConfigArgs {
    std::string section, key, value, type = "string";
};

} // namespace

void AddConfigCommand(CLI::App& app) {
    auto a = std::make_shared<ConfigArgs>();
    CLI::App* config = kelptool::AddGroup(app, "config", "Read and change the library's settings.");
    kelptool::Describe(*config, std::string("kelp config ACTION --help describes an action.\n\n") +
                                    kConfigFooter);
    auto section = [&](CLI::App* action, const char* what) {
        return action->add_option("SECTION", a->section, what)->type_name("");
    };
    auto key = [&](CLI::App* action, const char* what) {
        return action->add_option("KEY", a->key, what)->type_name("");
    };

    CLI::App* get = kelptool::AddCommand(*config, "get", "Print one setting's value.",
                                         [a](const CLI::App&) { return Get(a->section, a->key); });
    section(get, "the section, in any case")->required();
    key(get, "the key, in any case")->required();

    CLI::App* set =
        kelptool::AddCommand(*config, "set", "Write one setting.", [a](const CLI::App&) {
            return Set(a->section, a->key, a->value, a->type);
        });
    section(set, "the section")->required();
    key(set, "the key")->required();
    set->add_option("VALUE", a->value, "the value, written as its TYPE says (below)")
        ->required()
        ->type_name("");
    set->add_option("--type", a->type, "the type of the value (default: string)")
        ->type_name("TYPE")
        ->check(kelptool::OneOf({"int", "int64", "uint", "uint64", "dword", "bool", "color",
                                 "string", "stringa", "path", "guid", "bin", "rect", "font"}));
    kelptool::Describe(*set, kConfigFooter);

    CLI::App* list =
        kelptool::AddCommand(*config, "list", "Print every setting, or those of one section.",
                             [a](const CLI::App&) { return List(a->section); });
    section(list, "only this section, in any case");

    CLI::App* del =
        kelptool::AddCommand(*config, "delete", "Remove one setting, or a whole section.",
                             [a](const CLI::App&) { return Delete(a->section, a->key); });
    section(del, "the section, in any case")->required();
    key(del, "only this key of it");

    kelptool::AddCommand(*config, "help", "Print this help.", [config](const CLI::App&) {
        // Not config->help(), which would describe the selected action, this one.
        std::printf("%s", config->get_formatter()
                              ->make_help(config, "kelp config", CLI::AppFormatMode::Normal)
                              .c_str());
        return 0;
    });
}
