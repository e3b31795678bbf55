// Which file the settings come from: the user's file, or the site file that the
// environment names or that the user's file remembers.
#include <gtest/gtest.h>

#include <kelp/kelpcfg.h>

#include <string>

#include "cfgtemp.h"
#include "runtime/kelpos.h"
#include "runtime/storefile.h"

using kelp::IKELPCfg;
using kelp::KELPGetCfg;

namespace {

// Reads one int straight from a file, bypassing the process-wide choice.
bool FileHas(const std::string& file, const char* key, int expected) {
    kelp::CStoreFile store;
    std::wstring p = kelp::os::FromUtf8(file);
    store.SetTarget(p.c_str());
    int v = -1;
    return store.ReadSettingInt("T", key, v) && v == expected;
}

std::string Remembered(const std::string& userFile) {
    kelp::CStoreFile store;
    std::wstring p = kelp::os::FromUtf8(userFile);
    store.SetTarget(p.c_str());
    wchar_t path[kelp::KX_MAX_PATH] = {0};
    store.ReadSettingPath("KELPCFG", "SITEFILE", path);
    return kelp::os::ToUtf8(path);
}

void Remember(const std::string& userFile, const std::string& site) {
    kelp::CStoreFile store;
    std::wstring p = kelp::os::FromUtf8(userFile);
    store.SetTarget(p.c_str(), true);
    std::wstring s = kelp::os::FromUtf8(site);
    ASSERT_TRUE(store.WriteSettingPath("KELPCFG", "SITEFILE", s.c_str()));
}

} // namespace

TEST(CfgSite, TargetFollowsTheSiteFileRules) {
    enum Where { User, SiteA, SiteB };
    const struct {
        const char* what;
        int env;        // KELP_SITE_FILE: -1 unset, 0 empty, 1 site A, 2 site B
        int remembered; // SITEFILE in the user's file before: 0 none, 1 A, 2 B
        Where target;
        int rememberedAfter; // 0 none, 1 A, 2 B
    } cases[] = {
        {"no site file anywhere", -1, 0, User, 0},
        {"empty variable", 0, 0, User, 0},
        {"variable names the site file", 1, 0, SiteA, 1},
        {"remembered site file", -1, 1, SiteA, 1},
        {"empty variable, remembered", 0, 2, SiteB, 2},
        {"variable overrides what is remembered", 1, 2, SiteA, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        kelptest::TempSettings temp;
        const std::string site[3] = {"", temp.Dir() + "/site/a.vst", temp.Dir() + "/b.vst"};
        std::filesystem::create_directories(temp.Dir() + "/site");
        if (c.remembered) Remember(temp.UserFile(), site[c.remembered]);
        std::string env = c.env > 0 ? site[c.env] : std::string();
        temp.SetSiteFile(c.env < 0 ? nullptr : &env);

        IKELPCfg& cfg = KELPGetCfg(true);
        // A second call without reinit keeps the choice even if the environment changes.
        std::string other = temp.Dir() + "/other.vst";
        temp.SetSiteFile(&other);
        EXPECT_EQ(&KELPGetCfg(false), &cfg);
        ASSERT_TRUE(cfg.WriteSettingInt("T", "k", 77));

        const std::string files[3] = {temp.UserFile(), site[1], site[2]};
        for (int w = 0; w < 3; ++w)
            EXPECT_EQ(FileHas(files[w], "k", 77), w == int(c.target)) << files[w];
        EXPECT_EQ(Remembered(temp.UserFile()), c.rememberedAfter ? site[c.rememberedAfter] : "");
    }
}

TEST(CfgSite, SiteFileIsNotMadeWhereNoDirectoryIs) {
    // A site file on a share that is not there must not be created locally.
    kelptest::TempSettings temp;
    std::string site = temp.Dir() + "/share/missing/site.vst";
    temp.SetSiteFile(&site);
    IKELPCfg& cfg = KELPGetCfg(true);
    EXPECT_FALSE(cfg.WriteSettingInt("T", "k", 1));
    EXPECT_FALSE(kelp::os::FileExists(kelp::os::FromUtf8(temp.Dir() + "/share")));
    EXPECT_EQ(Remembered(temp.UserFile()), site);
}
