// The settings store through KELPGetCfg: values, kinds, names, enumeration, and files
// that are not settings stores.
#include <gtest/gtest.h>

#include <kelp/kelpcfg.h>

#include <climits>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "cfgtemp.h"
#include "runtime/storefile.h"
#include "tracecapture.h"

using kelp::IKELPCfg;
using kelp::KELPGetCfg;

namespace {

std::string ReadFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream f(path, std::ios::binary);
    f << bytes;
}

struct Seen {
    std::string name;
    uint32_t type;
    std::vector<unsigned char> data;
};

std::vector<Seen>* g_seen;

// `user`: stop after that many settings (0: never).
int Collect(const char* name, uint32_t type, const void* data, uint32_t size, uint32_t user) {
    const unsigned char* b = static_cast<const unsigned char*>(data);
    g_seen->push_back({name, type, std::vector<unsigned char>(b, b + size)});
    return user == 0 || g_seen->size() < user ? 1 : 0;
}

std::vector<Seen> Enumerate(IKELPCfg& cfg, uint32_t stopAfter, bool* ok) {
    std::vector<Seen> seen;
    g_seen = &seen;
    *ok = cfg.EnumSettings(&Collect, stopAfter);
    g_seen = nullptr;
    return seen;
}

} // namespace

TEST(CfgStore, EveryTypeRoundTrips) {
    kelptest::TempSettings temp;
    IKELPCfg& cfg = KELPGetCfg(false);

    const int ints[] = {0, 1, -1, INT_MIN, INT_MAX};
    const int64_t int64s[] = {0, -1, INT64_MIN, INT64_MAX, int64_t(1) << 40};
    const uint64_t uint64s[] = {0, UINT64_MAX, uint64_t(1) << 63, 0xFFFFFFFFull + 1};
    const uint32_t uints[] = {0, 1, 0x80000000u, 0xFFFFFFFFu};
    for (int v : ints) {
        int got = 12345;
        ASSERT_TRUE(cfg.WriteSettingInt("Types", "int", v));
        ASSERT_TRUE(cfg.ReadSettingInt("Types", "int", got));
        EXPECT_EQ(got, v);
        ASSERT_TRUE(cfg.WriteSettingBool("Types", "bool", v));
        ASSERT_TRUE(cfg.ReadSettingBool("Types", "bool", got));
        EXPECT_EQ(got, v);
    }
    for (int64_t v : int64s) {
        int64_t got = 7;
        ASSERT_TRUE(cfg.WriteSettingInt64("Types", "int64", v));
        ASSERT_TRUE(cfg.ReadSettingInt64("Types", "int64", got));
        EXPECT_EQ(got, v);
    }
    for (uint64_t v : uint64s) {
        uint64_t got = 7;
        ASSERT_TRUE(cfg.WriteSettingUInt64("Types", "uint64", v));
        ASSERT_TRUE(cfg.ReadSettingUInt64("Types", "uint64", got));
        EXPECT_EQ(got, v);
    }
    for (uint32_t v : uints) {
        unsigned int gu = 7;
        uint32_t gd = 7, gc = 7;
        ASSERT_TRUE(cfg.WriteSettingUInt("Types", "uint", v));
        ASSERT_TRUE(cfg.WriteSettingDWORD("Types", "dword", v));
        ASSERT_TRUE(cfg.WriteSettingColor("Types", "color", v));
        ASSERT_TRUE(cfg.ReadSettingUInt("Types", "uint", gu));
        ASSERT_TRUE(cfg.ReadSettingDWORD("Types", "dword", gd));
        ASSERT_TRUE(cfg.ReadSettingColor("Types", "color", gc));
        EXPECT_EQ(gu, v);
        EXPECT_EQ(gd, v);
        EXPECT_EQ(gc, v);
    }

    // Text: empty, plain, beyond the basic plane, and narrow bytes that are not UTF-8.
    const wchar_t* wides[] = {L"", L"plain", L"Gr\u00FC\u00DFe \u65E5\u672C \U0001F600"};
    for (const wchar_t* w : wides) {
        wchar_t got[64] = L"untouched";
        ASSERT_TRUE(cfg.WriteSettingString("Types", "string", w));
        ASSERT_TRUE(cfg.ReadSettingString("Types", "string", got, 64));
        EXPECT_STREQ(got, w);
        ASSERT_TRUE(cfg.WriteSettingStringW("Types", "stringw", w));
        ASSERT_TRUE(cfg.ReadSettingStringW("Types", "stringw", got, 64));
        EXPECT_STREQ(got, w);
        wchar_t path[kelp::KX_MAX_PATH];
        ASSERT_TRUE(cfg.WriteSettingPath("Types", "path", w));
        ASSERT_TRUE(cfg.ReadSettingPath("Types", "path", path));
        EXPECT_STREQ(path, w);
    }
    const char* narrows[] = {"", "narrow", "\xFF\xFE latin-1 \xE9"};
    for (const char* n : narrows) {
        char got[64] = "untouched";
        ASSERT_TRUE(cfg.WriteSettingStringA("Types", "stringa", n));
        ASSERT_TRUE(cfg.ReadSettingStringA("Types", "stringa", got, 64));
        EXPECT_STREQ(got, n);
    }

    kelp::KXGUID g = {0x12345678, 0x9ABC, 0xDEF0, {0, 1, 2, 3, 0xFC, 0xFD, 0xFE, 0xFF}}, gg{};
    ASSERT_TRUE(cfg.WriteSettingGUID("Types", "guid", g));
    ASSERT_TRUE(cfg.ReadSettingGUID("Types", "guid", gg));
    EXPECT_EQ(std::memcmp(&g, &gg, sizeof g), 0);

    kelp::KXRECT r = {INT32_MIN, -1, 0, INT32_MAX}, rr{};
    ASSERT_TRUE(cfg.WriteSettingRect("Types", "rect", r));
    ASSERT_TRUE(cfg.ReadSettingRect("Types", "rect", rr));
    EXPECT_EQ(std::memcmp(&r, &rr, sizeof r), 0);

    kelp::KXLOGFONTW f;
    std::memset(&f, 0, sizeof f);
    f.lfHeight = -13;
    f.lfWeight = 700;
    f.lfItalic = 1;
    f.lfCharSet = 255;
    f.lfPitchAndFamily = 0x31;
    for (int i = 0; i < kelp::KX_LF_FACESIZE - 1; ++i)
        f.lfFaceName[i] = wchar_t(L'A' + i % 26);
    kelp::KXLOGFONTW ff;
    std::memset(&ff, 0x5A, sizeof ff);
    ASSERT_TRUE(cfg.WriteSettingFont("Types", "font", f));
    ASSERT_TRUE(cfg.ReadSettingFont("Types", "font", ff));
    EXPECT_EQ(std::memcmp(&f, &ff, sizeof f), 0);

    std::vector<unsigned char> bin(300);
    std::mt19937 rng(4);
    for (auto& b : bin)
        b = static_cast<unsigned char>(rng());
    bin[0] = 0;
    std::vector<unsigned char> got(400, 0xEE);
    ASSERT_TRUE(cfg.WriteSettingBin("Types", "bin", bin.data(), uint32_t(bin.size())));
    ASSERT_TRUE(cfg.ReadSettingBin("Types", "bin", got.data(), uint32_t(got.size())));
    EXPECT_TRUE(std::equal(bin.begin(), bin.end(), got.begin()));
    EXPECT_EQ(got[300], 0xEE); // nothing beyond the value is written
    ASSERT_TRUE(cfg.WriteSettingBin("Types", "empty", nullptr, 0));
    EXPECT_TRUE(cfg.ReadSettingBin("Types", "empty", got.data(), 0));
    EXPECT_FALSE(cfg.GetSettingSize("Types", "empty", 0));
}

TEST(CfgStore, FailedReadsLeaveTheDefault) {
    kelptest::TempSettings temp;
    IKELPCfg& cfg = KELPGetCfg(false);
    // Nothing written yet: the file does not even exist.
    int i = 42;
    EXPECT_FALSE(cfg.ReadSettingBool("KELPCFG", "UseSSE", i));
    EXPECT_EQ(i, 42);
    EXPECT_FALSE(cfg.GetSettingSize("KELPCFG", "UseSSE", 0));
    EXPECT_FALSE(std::filesystem::exists(temp.UserFile()));

    ASSERT_TRUE(cfg.WriteSettingInt("S", "int", -5));
    ASSERT_TRUE(cfg.WriteSettingInt64("S", "int64", -5));
    ASSERT_TRUE(cfg.WriteSettingString("S", "text", L"twelve chars"));
    ASSERT_TRUE(cfg.WriteSettingBin("S", "bin", "abcdef", 6));
    ASSERT_TRUE(cfg.WriteSettingGUID("S", "guid", kelp::KXGUID{1, 2, 3, {4}}));

    // Missing keys of every kind, other kinds, and buffers that are too small.
    int64_t i64 = 42;
    wchar_t w[12] = L"default";
    char a[12] = "default";
    unsigned char b[5] = {9, 9, 9, 9, 9};
    kelp::KXGUID g{7, 7, 7, {7}};
    kelp::KXRECT r{7, 7, 7, 7};
    wchar_t path[kelp::KX_MAX_PATH] = L"default";
    EXPECT_FALSE(cfg.ReadSettingInt("S", "missing", i));
    EXPECT_FALSE(cfg.ReadSettingInt("missing", "int", i));
    EXPECT_FALSE(cfg.ReadSettingInt("S", "int64", i));       // 64-bit does not narrow
    EXPECT_FALSE(cfg.ReadSettingInt("S", "text", i));        // text is not a number
    EXPECT_FALSE(cfg.ReadSettingInt64("S", "text", i64));    //
    EXPECT_FALSE(cfg.ReadSettingString("S", "text", w, 12)); // 12 characters need 13
    EXPECT_FALSE(cfg.ReadSettingStringA("S", "text", a, 12));
    EXPECT_FALSE(cfg.ReadSettingString("S", "int", w, 12));
    EXPECT_FALSE(cfg.ReadSettingPath("S", "bin", path));
    EXPECT_FALSE(cfg.ReadSettingBin("S", "bin", b, 5)); // 6 bytes do not fit in 5
    EXPECT_FALSE(cfg.ReadSettingBin("S", "guid", b, 5));
    EXPECT_FALSE(cfg.ReadSettingGUID("S", "bin", g));
    EXPECT_FALSE(cfg.ReadSettingRect("S", "guid", r));
    EXPECT_FALSE(cfg.ReadSettingInt(nullptr, "int", i));
    EXPECT_FALSE(cfg.ReadSettingInt("S", nullptr, i));
    EXPECT_EQ(i, 42);
    EXPECT_EQ(i64, 42);
    EXPECT_STREQ(w, L"default");
    EXPECT_STREQ(a, "default");
    EXPECT_STREQ(path, L"default");
    EXPECT_EQ(b[0], 9);
    EXPECT_EQ(g.Data1, 7u);
    EXPECT_EQ(r.left, 7);

    // Writes of nothing are refused, and so is a path that would not fit a path buffer.
    EXPECT_FALSE(cfg.WriteSettingString("S", "x", nullptr));
    EXPECT_FALSE(cfg.WriteSettingStringA("S", "x", nullptr));
    EXPECT_FALSE(cfg.WriteSettingBin("S", "x", nullptr, 4));
    EXPECT_FALSE(cfg.WriteSettingInt(nullptr, "x", 1));
    std::wstring longPath(kelp::KX_MAX_PATH, L'p');
    EXPECT_FALSE(cfg.WriteSettingPath("S", "x", longPath.c_str()));
    EXPECT_TRUE(cfg.WriteSettingPath("S", "x", longPath.substr(1).c_str()));
}

TEST(CfgStore, IntegerKindsReadAsOneAnother) {
    kelptest::TempSettings temp;
    IKELPCfg& cfg = KELPGetCfg(false);
    ASSERT_TRUE(cfg.WriteSettingInt("K", "int", -1));
    ASSERT_TRUE(cfg.WriteSettingDWORD("K", "dword", 0xFFFFFFFFu));
    ASSERT_TRUE(cfg.WriteSettingUInt64("K", "u64", UINT64_MAX));
    unsigned int u = 0;
    uint32_t d = 0;
    int i = 0;
    int64_t i64 = 0;
    uint64_t u64 = 0;
    EXPECT_TRUE(cfg.ReadSettingUInt("K", "int", u));
    EXPECT_EQ(u, 0xFFFFFFFFu);
    EXPECT_TRUE(cfg.ReadSettingColor("K", "int", d));
    EXPECT_EQ(d, 0xFFFFFFFFu);
    EXPECT_TRUE(cfg.ReadSettingBool("K", "dword", i));
    EXPECT_EQ(i, -1);
    EXPECT_TRUE(cfg.ReadSettingInt64("K", "int", i64)); // signed kinds widen with the sign
    EXPECT_EQ(i64, -1);
    EXPECT_TRUE(cfg.ReadSettingInt64("K", "dword", i64)); // unsigned ones without
    EXPECT_EQ(i64, 0xFFFFFFFFll);
    EXPECT_TRUE(cfg.ReadSettingInt64("K", "u64", i64));
    EXPECT_EQ(i64, -1);
    EXPECT_TRUE(cfg.ReadSettingUInt64("K", "int", u64));
    EXPECT_EQ(u64, UINT64_MAX);
}

TEST(CfgStore, NamesIgnoreCaseAndEnumerationListsAll) {
    kelptest::TempSettings temp;
    IKELPCfg& cfg = KELPGetCfg(false);
    ASSERT_TRUE(cfg.WriteSettingInt("Video", "Width", 640));
    ASSERT_TRUE(cfg.WriteSettingInt("VIDEO", "width", 720)); // the same setting
    ASSERT_TRUE(cfg.WriteSettingStringA("audio", "Device", "hw:0"));
    ASSERT_TRUE(cfg.WriteSettingString("Video", "Name", L"x"));
    int w = 0;
    EXPECT_TRUE(cfg.ReadSettingInt("video", "WIDTH", w));
    EXPECT_EQ(w, 720);
    EXPECT_TRUE(cfg.QueryKey("AUDIO"));
    EXPECT_FALSE(cfg.QueryKey("Nothing"));

    bool ok = false;
    std::vector<Seen> all = Enumerate(cfg, 0, &ok);
    EXPECT_TRUE(ok);
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].name, "audio\\Device");
    EXPECT_EQ(all[0].type, uint32_t(kelp::KXCFG_STRINGA));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(all[0].data.data())), "hw:0");
    EXPECT_EQ(all[0].data.size(), 5u);
    EXPECT_EQ(all[1].name, "Video\\Name");
    EXPECT_EQ(all[1].data.size(), 2 * sizeof(wchar_t));
    EXPECT_EQ(all[2].name, "VIDEO\\width");
    EXPECT_EQ(all[2].type, uint32_t(kelp::KXCFG_INT));
    ASSERT_EQ(all[2].data.size(), 4u);
    int32_t v;
    std::memcpy(&v, all[2].data.data(), 4);
    EXPECT_EQ(v, 720);

    // A callback that answers 0 stops the enumeration.
    std::vector<Seen> two = Enumerate(cfg, 2, &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(two.size(), 2u);

    EXPECT_TRUE(cfg.DeleteSetting("video", "NAME", 0));
    EXPECT_FALSE(cfg.DeleteSetting("video", "NAME", 0));
    EXPECT_TRUE(cfg.DeleteKey("Video"));
    EXPECT_FALSE(cfg.DeleteKey("Video"));
    EXPECT_FALSE(cfg.QueryKey("Video"));
    EXPECT_TRUE(cfg.QueryKey("audio"));
    EXPECT_EQ(Enumerate(cfg, 0, &ok).size(), 1u);
}

TEST(CfgStore, SizesAreThoseOfTheReadValue) {
    kelptest::TempSettings temp;
    kelp::CStoreFile store;
    std::wstring path = kelp::os::FromUtf8(temp.Dir() + "/sizes.vst");
    store.SetTarget(path.c_str());
    ASSERT_TRUE(store.WriteSettingInt("S", "int", 1));
    ASSERT_TRUE(store.WriteSettingUInt64("S", "u64", 1));
    ASSERT_TRUE(store.WriteSettingString("S", "w", L"abc"));
    ASSERT_TRUE(store.WriteSettingStringA("S", "a", "abc"));
    ASSERT_TRUE(store.WriteSettingFont("S", "font", kelp::KXLOGFONTW{}));
    ASSERT_TRUE(store.WriteSettingBin("S", "bin", "12345", 5));
    const struct {
        const char* key;
        uint32_t size;
    } cases[] = {{"int", 4}, {"u64", 8}, {"w", 4 * sizeof(wchar_t)},
                 {"a", 4},   {"bin", 5}, {"font", sizeof(kelp::KXLOGFONTW)},
                 {"none", 0}};
    for (const auto& c : cases)
        EXPECT_EQ(store.GetSettingSize("S", c.key, 0), c.size) << c.key;
}

TEST(CfgStore, FirstWriteMakesOneFile) {
    kelptest::TempSettings temp;
    IKELPCfg& cfg = KELPGetCfg(false);
    int v = 0;
    cfg.ReadSettingInt("S", "k", v);
    EXPECT_FALSE(std::filesystem::exists(temp.Dir() + "/home/kelp"));
    ASSERT_TRUE(cfg.WriteSettingInt("S", "k", 3));
    EXPECT_TRUE(std::filesystem::exists(temp.UserFile()));
    // At rest the store is this one file: no journal or log beside it.
    size_t files = 0;
    for (auto& e : std::filesystem::directory_iterator(temp.Dir() + "/home/kelp")) {
        (void)e;
        ++files;
    }
    EXPECT_EQ(files, 1u);
}

TEST(CfgStore, FileThatIsNotAStoreIsLeftUntouched) {
    std::mt19937 rng(7);
    std::string garbage(5000, '\0');
    for (auto& c : garbage)
        c = char(rng());
    // An SQLite file of another program: a valid database without the store's mark.
    kelptest::TempSettings temp;
    std::string foreignPath = temp.Dir() + "/foreign.db";
    {
        kelp::CStoreFile maker;
        std::wstring p = kelp::os::FromUtf8(foreignPath);
        maker.SetTarget(p.c_str());
        ASSERT_TRUE(maker.WriteSettingInt("S", "k", 1));
    }
    std::string foreign = ReadFile(foreignPath);
    foreign[68] ^= 0x01; // the mark (application id) is a header word at offset 68

    const std::string contents[] = {garbage, std::string("not a settings file\n"), foreign};
    for (const std::string& bytes : contents) {
        WriteFile(temp.UserFile(), bytes);
        kelptest::SinkClear();
        IKELPCfg& cfg = KELPGetCfg(true);
        int v = 5;
        EXPECT_FALSE(cfg.ReadSettingInt("S", "k", v));
        EXPECT_EQ(v, 5);
        EXPECT_FALSE(cfg.WriteSettingInt("S", "k", 1));
        EXPECT_FALSE(cfg.DeleteKey("S"));
        // Enumerating a file that is not ours lists nothing and fails.
        bool ok = true;
        EXPECT_TRUE(Enumerate(cfg, 0, &ok).empty());
        EXPECT_FALSE(ok);
        EXPECT_EQ(ReadFile(temp.UserFile()), bytes);
        std::wstring expected = L"CStoreFile: '" + kelp::os::FromUtf8(temp.UserFile()) +
                                L"' is not a settings store; it is read as empty and left "
                                L"untouched\r\n";
        std::wstring text = kelptest::SinkText(8);
        EXPECT_NE(text.find(expected), std::wstring::npos) << kelp::os::ToUtf8(text);
        // Reported once for the file, not at every operation.
        EXPECT_EQ(text.find(expected), text.rfind(expected));
    }
}
