// Points the library's settings at a fresh temporary directory for one test, so that
// no test reads or writes the real user's settings, and restores them afterwards.
#pragma once

#include <kelp/kelpcfg.h>

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace kelptest {

class TempSettings {
  public:
    TempSettings() {
        char tmpl[] = "/tmp/kelp-cfg-XXXXXX";
        const char* d = mkdtemp(tmpl);
        m_dir = d ? d : "/tmp";
        Save("XDG_CONFIG_HOME", &m_hadXdg, &m_xdg);
        Save("KELP_SITE_FILE", &m_hadSite, &m_site);
        setenv("XDG_CONFIG_HOME", (m_dir + "/home").c_str(), 1);
        unsetenv("KELP_SITE_FILE");
        kelp::KELPGetCfg(true);
    }
    ~TempSettings() {
        Restore("XDG_CONFIG_HOME", m_hadXdg, m_xdg);
        Restore("KELP_SITE_FILE", m_hadSite, m_site);
        kelp::KELPGetCfg(true);
        std::error_code ec;
        std::filesystem::remove_all(m_dir, ec);
    }
    TempSettings(const TempSettings&) = delete;
    TempSettings& operator=(const TempSettings&) = delete;

    const std::string& Dir() const { return m_dir; }
    // The user's settings file as the library names it.
    std::string UserFile() const { return m_dir + "/home/kelp/KELP.VST"; }
    void SetSiteFile(const std::string* path) {
        if (path)
            setenv("KELP_SITE_FILE", path->c_str(), 1);
        else
            unsetenv("KELP_SITE_FILE");
    }

  private:
    static void Save(const char* name, bool* had, std::string* value) {
        const char* v = getenv(name);
        *had = v != nullptr;
        if (v) *value = v;
    }
    static void Restore(const char* name, bool had, const std::string& value) {
        if (had)
            setenv(name, value.c_str(), 1);
        else
            unsetenv(name);
    }

    std::string m_dir;
    bool m_hadXdg = false, m_hadSite = false;
    std::string m_xdg, m_site;
};

} // namespace kelptest
