// The process-wide registry: finding, loading and unloading plug-ins, with the test
// plug-ins of tests/codec/support built into a directory of their own.
#include <gtest/gtest.h>

#include <kelp/kxcodec.h>
#include <kelp/trace.h>

#include "codec/codecman.h"
#include "codec/registry.h"
#include "codectest.h"

using codectest::Events;
using codectest::Lines;

namespace {

const std::string kDir = KELP_TEST_PLUGIN_DIR;
const std::wstring kWideDir = codectest::Wide(KELP_TEST_PLUGIN_DIR);

std::vector<std::string> Names(kelp::ICodecManager* m) {
    std::vector<std::string> out;
    for (uint32_t i = 0; i < m->GetCodecCount(); ++i)
        out.push_back(codectest::CodecName(m->GetCodec(i)));
    return out;
}

class Registry : public ::testing::Test {
protected:
    void SetUp() override {
        kelptest::SinkClear();
        Events().clear();
    }
    codectest::PluginDir m_dir{KELP_TEST_PLUGIN_DIR};
};

TEST_F(Registry, LoadsPluginsInNameOrderAndTracesEachFailure) {
    kelp::ICodecManager* m = kelp::KXCODECCreateCodecManager();
    ASSERT_NE(m, nullptr);

    std::vector<std::wstring> registry = Lines(29);
    ASSERT_GE(registry.size(), 7u);
    registry.resize(6); // the loader's own message for the garbage file follows
    EXPECT_EQ(registry, (std::vector<std::wstring>{
                            L"KXCODEC::InitGlobal\r\n",
                            L"KXCODEC::AddCodec: 'EQ1 '\r\n",
                            L"KXCODEC::AddCodec: 'LOW '\r\n",
                            L"KXCODEC::AddCodec: 'EQ2 '\r\n",
                            L"KXCODEC::AddCodec: 'BADV'\r\n",
                            L"KXCODEC::AddCodec: 'THRO'\r\n",
                        }));
    EXPECT_EQ(Lines(29)[6].rfind(L"KXCODEC: ", 0), 0u) << "the loader's reason";
    // ENOEXEC (8) for a file the loader refused.
    EXPECT_EQ(
        Lines(2),
        (std::vector<std::wstring>{
            L"KXCODEC::AddCodec: 'BADV' has invalid version!\r\n",
            L"KXCODEC: Unable to load: " + kWideDir + L"b_badversion.cdc (no Codec added)!\r\n",
            L"KXCODEC: Unable to load: " + kWideDir + L"c_noentry.cdc (no Enum Function)!\r\n",
            L"KXCODEC: Unable to load: " + kWideDir + L"e_nothing.cdc (no Codec added)!\r\n",
            L"KXCODEC: Unable to load: " + kWideDir + L"f_garbage.cdc (8)!\r\n",
        }));

    // What added a codec stays, the entry that threw included; the rest went at once.
    EXPECT_TRUE(codectest::IsLoaded(kDir + "a_equal.cdc"));
    EXPECT_TRUE(codectest::IsLoaded(kDir + "d_throws.cdc"));
    EXPECT_FALSE(codectest::IsLoaded(kDir + "b_badversion.cdc"));
    EXPECT_FALSE(codectest::IsLoaded(kDir + "c_noentry.cdc"));
    EXPECT_FALSE(codectest::IsLoaded(kDir + "e_nothing.cdc"));
    EXPECT_EQ(Events(), (std::vector<std::string>{"unload b_badversion", "unload c_noentry",
                                                  "unload e_nothing"}));
    // The codecs went to the process's list: the first manager's own is empty again.
    EXPECT_EQ(m->GetCodecCount(), 0u);
    m->Release();
}

TEST_F(Registry, InitSortsByPriorityAndKeepsEqualOnesInTheirOrder) {
    kelp::ICodecManager* m = kelp::KXCODECCreateCodecManager();
    EXPECT_EQ(m->Init(0, nullptr), KX_OK);
    // Added EQ1 (10), LOW (5), EQ2 (10), THRO (20).
    EXPECT_EQ(Names(m), (std::vector<std::string>{"THRO", "EQ1 ", "EQ2 ", "LOW "}));

    // Every codec is asked; of the two equal ones that take 'TIE ', the earlier wins.
    kelptest::SinkClear();
    KXBMINFOHEADER tie = codectest::Record(KXFOURCC('T', 'I', 'E', ' '));
    kelp::ICodec* found = m->LocateCodec(&tie);
    EXPECT_EQ(found, m->GetCodec(1));
    EXPECT_EQ(Lines(29), (std::vector<std::wstring>{
                             L"KXCODEC::LocateCodec: 'TIE '\r\n",
                             L"KXCODEC::LocateCodec: Codec found (10)!\r\n",
                             L"KXCODEC::LocateCodec: Codec found (10)!\r\n",
                         }));

    kelptest::SinkClear();
    KXBMINFOHEADER test = codectest::Record(KXFOURCC('T', 'E', 'S', 'T'));
    EXPECT_EQ(codectest::CodecName(m->LocateCodec(&test)), "THRO");
    EXPECT_EQ(Lines(29).size(), 5u) << "four matches traced";

    kelptest::SinkClear();
    KXBMINFOHEADER none = codectest::Record(KXFOURCC('N', 'O', 'N', 'E'));
    EXPECT_EQ(m->LocateCodec(&none), nullptr);
    EXPECT_EQ(Lines(2), std::vector<std::wstring>{L"KXCODEC::LocateCodec: Codec not found!\r\n"});
    ASSERT_EQ(Lines(29).size(), 2u);
    EXPECT_EQ(Lines(29)[1].rfind(L"Input BIH:(0x", 0), 0u);
    m->Release();
}

TEST_F(Registry, PluginsLoadOnceAndLeaveWithTheLastManager) {
    kelp::ICodecManager* first = kelp::KXCODECCreateCodecManager();
    kelptest::SinkClear();
    kelp::ICodecManager* second = kelp::KXCODECCreateCodecManager();
    EXPECT_TRUE(Lines(29).empty()) << "no second load";
    EXPECT_EQ(second->GetCodecCount(), 0u) << "empty until Init";
    second->Init(0, nullptr);
    EXPECT_EQ(second->GetCodecCount(), 4u);

    // The first one, never given Init, ends without harm and without unloading.
    first->Release();
    EXPECT_TRUE(Lines(29).empty());
    EXPECT_TRUE(codectest::IsLoaded(kDir + "a_equal.cdc"));

    Events().clear();
    second->Release();
    EXPECT_EQ(Lines(29), std::vector<std::wstring>{L"KXCODEC::EndGlobal\r\n"});
    // Every codec is released, in the order added, before any plug-in goes.
    EXPECT_EQ(Events(),
              (std::vector<std::string>{"release EQ1 ", "release LOW ", "release EQ2 ",
                                        "release THRO", "unload a_equal", "unload d_throws"}));
    EXPECT_FALSE(codectest::IsLoaded(kDir + "a_equal.cdc"));
    EXPECT_FALSE(codectest::IsLoaded(kDir + "d_throws.cdc"));

    // The next manager starts from the beginning.
    kelptest::SinkClear();
    kelp::ICodecManager* third = kelp::KXCODECCreateCodecManager();
    ASSERT_FALSE(Lines(29).empty());
    EXPECT_EQ(Lines(29)[0], L"KXCODEC::InitGlobal\r\n");
    EXPECT_TRUE(codectest::IsLoaded(kDir + "a_equal.cdc"));
    third->Init(0, nullptr);
    EXPECT_EQ(Names(third), (std::vector<std::string>{"THRO", "EQ1 ", "EQ2 ", "LOW "}));
    third->Release();
}

TEST(RegistryEmpty, NoPluginsGiveAWorkingManagerWithNoCodecs) {
    codectest::PluginDir dir(KELP_EMPTY_PLUGIN_DIR);
    kelptest::SinkClear();
    kelp::ICodecManager* m = kelp::KXCODECCreateCodecManager();
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(Lines(29), std::vector<std::wstring>{L"KXCODEC::InitGlobal\r\n"});
    EXPECT_EQ(Lines(2), std::vector<std::wstring>{L"KXCODEC: No codecs found!\r\n"});
    EXPECT_EQ(m->Init(0, nullptr), KX_OK);
    EXPECT_EQ(m->GetCodecCount(), 0u);
    EXPECT_EQ(m->GetVersion(), kelp::KXCODEC_VERSION);
    EXPECT_NE(m->GetAllocator(), nullptr);
    KXBMINFOHEADER rec = codectest::Record(KXFOURCC('T', 'E', 'S', 'T'));
    EXPECT_EQ(m->DecompressQuery(&rec, nullptr), KXE_INVALID);
    m->Release();
}

// The directory a test names is searched with a '/' added where it lacks one, and the
// library's own directory comes back when the test ends.
TEST(RegistryDirectory, TestDirectoryHoldsOnlyWhileNamed) {
    const std::wstring own = kelp::GetKELPModulePath();
    {
        codectest::PluginDir dir("/tmp/kelp-plugins");
        EXPECT_EQ(kelp::codec::PluginDirectory(), L"/tmp/kelp-plugins/");
    }
    EXPECT_EQ(kelp::codec::PluginDirectory(), own);
    {
        codectest::PluginDir dir(KELP_TEST_PLUGIN_DIR);
        EXPECT_EQ(kelp::codec::PluginDirectory(), kWideDir);
    }
    EXPECT_EQ(kelp::codec::PluginDirectory(), own);
}

} // namespace
