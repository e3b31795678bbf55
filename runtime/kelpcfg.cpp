// The process-wide settings: CKELPCfg over one CStoreFile, and the choice of its file.
#include <kelp/kelpcfg.h>

#include <atomic>
#include <new>

#include "kelpos.h"
#include "module.h"
#include "storefile.h"

namespace kelp {
namespace {

// Passes every operation to the store; true if the store's answer is not 0.
class CKELPCfg : public IKELPCfg {
  public:
    explicit CKELPCfg(CStoreFile* store) : m_pStore(store) {}
    ~CKELPCfg() {}

    bool ReadSettingInt(const char* s, const char* k, int& v) override {
        return m_pStore->ReadSettingInt(s, k, v) != 0;
    }
    bool ReadSettingInt64(const char* s, const char* k, int64_t& v) override {
        return m_pStore->ReadSettingInt64(s, k, v) != 0;
    }
    bool ReadSettingBool(const char* s, const char* k, int& v) override {
        return m_pStore->ReadSettingBool(s, k, v) != 0;
    }
    bool ReadSettingString(const char* s, const char* k, wchar_t* b, uint32_t n) override {
        return m_pStore->ReadSettingString(s, k, b, n) != 0;
    }
    bool ReadSettingStringA(const char* s, const char* k, char* b, uint32_t n) override {
        return m_pStore->ReadSettingStringA(s, k, b, n) != 0;
    }
    bool ReadSettingStringW(const char* s, const char* k, wchar_t* b, uint32_t n) override {
        return m_pStore->ReadSettingStringW(s, k, b, n) != 0;
    }
    bool ReadSettingPath(const char* s, const char* k, wchar_t* b) override {
        return m_pStore->ReadSettingPath(s, k, b) != 0;
    }
    bool ReadSettingGUID(const char* s, const char* k, KXGUID& v) override {
        return m_pStore->ReadSettingGUID(s, k, v) != 0;
    }
    bool ReadSettingBin(const char* s, const char* k, void* b, uint32_t n) override {
        return m_pStore->ReadSettingBin(s, k, b, n) != 0;
    }
    bool ReadSettingColor(const char* s, const char* k, uint32_t& v) override {
        return m_pStore->ReadSettingColor(s, k, v) != 0;
    }
    bool ReadSettingFont(const char* s, const char* k, KXLOGFONTW& v) override {
        return m_pStore->ReadSettingFont(s, k, v) != 0;
    }
    bool ReadSettingRect(const char* s, const char* k, KXRECT& v) override {
        return m_pStore->ReadSettingRect(s, k, v) != 0;
    }
    bool ReadSettingUInt(const char* s, const char* k, unsigned int& v) override {
        return m_pStore->ReadSettingUInt(s, k, v) != 0;
    }
    bool ReadSettingUInt64(const char* s, const char* k, uint64_t& v) override {
        return m_pStore->ReadSettingUInt64(s, k, v) != 0;
    }
    bool ReadSettingDWORD(const char* s, const char* k, uint32_t& v) override {
        return m_pStore->ReadSettingDWORD(s, k, v) != 0;
    }

    bool WriteSettingInt(const char* s, const char* k, int v) override {
        return m_pStore->WriteSettingInt(s, k, v) != 0;
    }
    bool WriteSettingInt64(const char* s, const char* k, int64_t v) override {
        return m_pStore->WriteSettingInt64(s, k, v) != 0;
    }
    bool WriteSettingBool(const char* s, const char* k, int v) override {
        return m_pStore->WriteSettingBool(s, k, v) != 0;
    }
    bool WriteSettingString(const char* s, const char* k, const wchar_t* v) override {
        return m_pStore->WriteSettingString(s, k, v) != 0;
    }
    bool WriteSettingStringA(const char* s, const char* k, const char* v) override {
        return m_pStore->WriteSettingStringA(s, k, v) != 0;
    }
    bool WriteSettingStringW(const char* s, const char* k, const wchar_t* v) override {
        return m_pStore->WriteSettingStringW(s, k, v) != 0;
    }
    bool WriteSettingPath(const char* s, const char* k, const wchar_t* v) override {
        return m_pStore->WriteSettingPath(s, k, v) != 0;
    }
    bool WriteSettingGUID(const char* s, const char* k, const KXGUID& v) override {
        return m_pStore->WriteSettingGUID(s, k, v) != 0;
    }
    bool WriteSettingBin(const char* s, const char* k, const void* b, uint32_t n) override {
        return m_pStore->WriteSettingBin(s, k, b, n) != 0;
    }
    bool WriteSettingColor(const char* s, const char* k, const uint32_t& v) override {
        return m_pStore->WriteSettingColor(s, k, v) != 0;
    }
    bool WriteSettingFont(const char* s, const char* k, const KXLOGFONTW& v) override {
        return m_pStore->WriteSettingFont(s, k, v) != 0;
    }
    bool WriteSettingRect(const char* s, const char* k, const KXRECT& v) override {
        return m_pStore->WriteSettingRect(s, k, v) != 0;
    }
    bool WriteSettingUInt(const char* s, const char* k, unsigned int v) override {
        return m_pStore->WriteSettingUInt(s, k, v) != 0;
    }
    bool WriteSettingUInt64(const char* s, const char* k, uint64_t v) override {
        return m_pStore->WriteSettingUInt64(s, k, v) != 0;
    }
    bool WriteSettingDWORD(const char* s, const char* k, uint32_t v) override {
        return m_pStore->WriteSettingDWORD(s, k, v) != 0;
    }

    bool DeleteSetting(const char* s, const char* k, uint32_t f) override {
        return m_pStore->DeleteSetting(s, k, f) != 0;
    }
    bool DeleteKey(const char* s) override { return m_pStore->DeleteKey(s) != 0; }
    bool QueryKey(const char* s) override { return m_pStore->QueryKey(s) != 0; }
    bool EnumSettings(KXCFGENUMPROC proc, uint32_t user) override {
        return m_pStore->EnumSettings(proc, user) != 0;
    }
    bool GetSettingSize(const char* s, const char* k, uint32_t f) override {
        return m_pStore->GetSettingSize(s, k, f) > 0;
    }

  private:
    CStoreFile* m_pStore; // not owned
};

// Both objects are made on first use, however early (the processor flags read the
// settings while the library is being loaded), in static storage; they end at unload.
alignas(CStoreFile) unsigned char g_storeStorage[sizeof(CStoreFile)];
alignas(CKELPCfg) unsigned char g_cfgStorage[sizeof(CKELPCfg)];
CStoreFile* g_store = nullptr;
CKELPCfg* g_cfg = nullptr;
enum : int { kNotMade, kMaking, kMade };
std::atomic<int> g_state{kNotMade};
std::atomic<bool> g_ready{false}; // the target has been chosen

void MakeObjects() {
    if (g_state.load(std::memory_order_acquire) == kMade) return;
    int expected = kNotMade;
    if (g_state.compare_exchange_strong(expected, kMaking, std::memory_order_acq_rel)) {
        g_store = new (g_storeStorage) CStoreFile(nullptr);
        g_cfg = new (g_cfgStorage) CKELPCfg(g_store);
        g_state.store(kMade, std::memory_order_release);
        return;
    }
    while (g_state.load(std::memory_order_acquire) != kMade)
        os::YieldThread();
}

} // namespace

// The user's file is "KELP.VST" in the user's settings directory; the site file's name
// comes from KELP_SITE_FILE, or else from the last one the user's file remembers, and
// is then remembered there. With a site file, every setting comes from it.
IKELPCfg& KELPGetCfg(bool reinit) {
    MakeObjects();
    if (reinit)
        g_ready.store(false, std::memory_order_release);
    else if (g_ready.load(std::memory_order_acquire))
        return *g_cfg;

    std::wstring user = os::UserConfigDirectory() + L"kelp/KELP.VST";
    g_store->SetTarget(user.c_str(), true);

    std::string env;
    std::wstring site;
    if (os::GetEnv("KELP_SITE_FILE", &env)) site = os::FromUtf8(env);
    if (site.empty()) {
        wchar_t remembered[KX_MAX_PATH] = {0};
        g_store->ReadSettingPath("KELPCFG", "SITEFILE", remembered);
        site = remembered;
    }
    if (!site.empty()) {
        // Remember the site file in the user's file, writing only when it changed.
        wchar_t remembered[KX_MAX_PATH] = {0};
        if (!g_store->ReadSettingPath("KELPCFG", "SITEFILE", remembered) || site != remembered)
            g_store->WriteSettingPath("KELPCFG", "SITEFILE", site.c_str());
        g_store->SetTarget(site.c_str(), false);
    }
    g_ready.store(true, std::memory_order_release);
    return *g_cfg;
}

void module::DestroySettings() {
    if (g_state.load(std::memory_order_acquire) != kMade) return;
    g_cfg->~CKELPCfg();
    g_store->~CStoreFile();
    g_cfg = nullptr;
    g_store = nullptr;
    g_ready.store(false);
    g_state.store(kNotMade, std::memory_order_release);
}

} // namespace kelp
