// The manager as one universal codec: options, the open list, sessions, the checks in
// front of every codec call, and what it traces. The codecs are in-process fakes added
// to a manager whose registry found no plug-ins.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include <sys/mman.h>
#include <unistd.h>

#include <kelp/kxcodec.h>

#include "codec/codecman.h"
#include "codec/session.h"
#include "codectest.h"
#include "fakecodec.h"

using codectest::CallLog;
using codectest::FakeCodec;
using codectest::Lines;
using codectest::Record;

namespace {

constexpr uint32_t kAAAA = KXFOURCC('A', 'A', 'A', 'A');
constexpr uint32_t kBBBB = KXFOURCC('B', 'B', 'B', 'B');

class CodecManager : public ::testing::Test {
  protected:
    void SetUp() override {
        m = static_cast<kelp::CCodecManager*>(kelp::KXCODECCreateCodecManager());
        ASSERT_NE(m, nullptr);
        m->Init(0, nullptr);
        kelptest::SinkClear();
    }
    void TearDown() override { m->Release(); }
    void Add(FakeCodec* c) {
        ASSERT_EQ(m->AddCodec(c->fourcc, c), KX_OK);
        kelptest::SinkClear();
    }

    codectest::PluginDir dir{KELP_EMPTY_PLUGIN_DIR};
    kelp::CCodecManager* m = nullptr;
    CallLog log;
    FakeCodec a{"A", 10, kAAAA, &log};
    FakeCodec b{"B", 10, kBBBB, &log};
    FakeCodec c{"C", 10, kBBBB, &log};
    FakeCodec d{"D", 10, kBBBB, &log};
    KXBMINFOHEADER srcA = Record(kAAAA, 16);
    KXBMINFOHEADER rgb = Record(0);
    unsigned char bits[64 * 48 * 4] = {};
};

TEST_F(CodecManager, InitOptionsSetTheOpenLimit) {
    struct Case {
        bool given;
        uint32_t size, maxOpen, expected;
    };
    const Case cases[] = {
        {false, 0, 0, 3}, {true, 8, 0, 1},  {true, 8, 1, 1}, {true, 8, 2, 2},
        {true, 8, 7, 7},  {true, 12, 7, 3}, {true, 4, 7, 3}, {true, 0, 7, 3},
    };
    for (const Case& t : cases) {
        kelp::CodecManagerInit init{t.size, t.maxOpen};
        EXPECT_EQ(m->Init(0, t.given ? &init : nullptr), KX_OK);
        EXPECT_EQ(m->GetMaxOpen(), t.expected) << t.size << "/" << t.maxOpen;
    }
}

TEST_F(CodecManager, OpeningBeyondTheLimitClosesTheOldest) {
    kelp::CodecManagerInit one{8, 1};
    m->Init(0, &one);
    EXPECT_EQ(m->OpenCodec(&a), KX_OK);
    EXPECT_EQ(m->OpenCodec(&b), KX_OK);
    EXPECT_EQ(m->OpenCodec(&b), KX_OK); // already open: nothing happens
    EXPECT_EQ(log.calls, (std::vector<std::string>{"open A", "open B", "close A"}));
    EXPECT_EQ(m->OpenList(), std::vector<kelp::ICodec*>{&b});
    EXPECT_EQ(m->CloseCodec(&a), KXE_FAIL);
    EXPECT_EQ(m->CloseCodec(&b), KX_OK);
    EXPECT_TRUE(m->OpenList().empty());

    log.calls.clear();
    kelp::CodecManagerInit two{8, 2};
    m->Init(0, &two);
    m->OpenCodec(&a);
    m->OpenCodec(&b);
    m->OpenCodec(&a); // keeps its place: still the oldest
    m->OpenCodec(&c);
    EXPECT_EQ(m->OpenList(), (std::vector<kelp::ICodec*>{&b, &c}));
    d.openStatus = KXE_FAIL; // a failed open is returned and leaves the list alone
    EXPECT_EQ(m->OpenCodec(&d), KXE_FAIL);
    EXPECT_EQ(m->OpenList(), (std::vector<kelp::ICodec*>{&b, &c}));
    EXPECT_EQ(log.calls,
              (std::vector<std::string>{"open A", "open B", "open C", "close A", "open D"}));

    // Init forgets the open ones without closing them; Shutdown closes them.
    log.calls.clear();
    m->Init(0, &two);
    EXPECT_TRUE(m->OpenList().empty());
    m->OpenCodec(&a);
    m->Shutdown();
    EXPECT_EQ(log.calls, (std::vector<std::string>{"open A", "close A"}));
    EXPECT_EQ(m->GetCodecCount(), 0u);
}

TEST_F(CodecManager, SessionsCarryTheCodecsHandleAndArguments) {
    Add(&a);
    a.handle = 0x1234;
    uintptr_t h = 0;
    ASSERT_EQ(m->DecompressBegin(&srcA, &rgb, &h), KX_OK);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(a.presetSeen, reinterpret_cast<uintptr_t>(&rgb)) << "preset: the target";
    const uintptr_t big = uintptr_t(0xFEDCBA9876543210ull); // free arguments are 64-bit
    a.opStatus = 1; // success that is not 0 comes back unchanged
    EXPECT_EQ(m->Decompress(&srcA, bits, &rgb, big, 2, 3, h), 1);
    EXPECT_EQ(a.args[0], big);
    EXPECT_EQ(a.args[1], 2u);
    EXPECT_EQ(a.args[2], 3u);
    EXPECT_EQ(a.handleSeen, 0x1234u);
    EXPECT_EQ(m->DecompressEnd(h), KX_OK);
    EXPECT_EQ(a.handleSeen, 0x1234u);

    // A codec that needs no handle sees its preset come back: the source for compression.
    b.setsHandle = false;
    Add(&b);
    KXBMINFOHEADER dstB = Record(kBBBB);
    ASSERT_EQ(m->CompressBegin(&rgb, &dstB, &h), KX_OK);
    EXPECT_EQ(b.presetSeen, reinterpret_cast<uintptr_t>(&rgb));
    EXPECT_EQ(m->Compress(&rgb, bits, &dstB, 0, 0, 0, h), KX_OK);
    EXPECT_EQ(b.handleSeen, reinterpret_cast<uintptr_t>(&rgb));
    EXPECT_EQ(m->CompressEnd(h), KX_OK);
    EXPECT_TRUE(Lines(2).empty());
}

TEST_F(CodecManager, AFailedBeginStillLeavesASession) {
    Add(&a);
    a.beginStatus = KXE_FAIL;
    uintptr_t h = 0;
    EXPECT_EQ(m->DecompressBegin(&srcA, &rgb, &h), KXE_FAIL);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(Lines(2), std::vector<std::wstring>{L"KXCODEC::DecompressBegin failed!\n"});
    std::vector<std::wstring> bih = Lines(29);
    ASSERT_EQ(bih.size(), 4u); // locate, found, then both records
    EXPECT_EQ(bih[2].rfind(L"Input BIH:(0x", 0), 0u);
    EXPECT_EQ(bih[3].rfind(L"Output BIH:(0x", 0), 0u);
    // The session is ended like any other, and its end's failure is traced.
    a.endStatus = KXE_INVALID;
    kelptest::SinkClear();
    EXPECT_EQ(m->DecompressEnd(h), KXE_INVALID);
    EXPECT_EQ(Lines(2), std::vector<std::wstring>{L"KXCODEC::DecompressEnd failed!\n"});

    // Without a codec for the source there is no session.
    h = 0;
    KXBMINFOHEADER other = Record(KXFOURCC('N', 'O', 'N', 'E'));
    EXPECT_EQ(m->DecompressBegin(&other, &rgb, &h), KXE_INVALID);
    EXPECT_EQ(h, 0u);
}

TEST_F(CodecManager, NullSessionsAreRefusedQuietly) {
    Add(&a);
    kelp::CodecSession* orphan = new kelp::CodecSession(nullptr, 5);
    const uintptr_t sessions[] = {0, reinterpret_cast<uintptr_t>(orphan)};
    for (uintptr_t h : sessions) {
        EXPECT_EQ(m->DecompressEnd(h), KXE_INVALID);
        EXPECT_EQ(m->CompressEnd(h), KXE_INVALID);
        EXPECT_EQ(m->Decompress(&srcA, bits, &rgb, 0, 0, 0, h), KXE_INVALID);
        EXPECT_EQ(m->Compress(&rgb, bits, &srcA, 0, 0, 0, h), KXE_INVALID);
    }
    EXPECT_TRUE(kelptest::SinkLines().empty());
    EXPECT_TRUE(log.calls.empty());
    delete orphan; // the refused end did not free it
}

TEST_F(CodecManager, BadRecordsAndBuffersAreTracedAndRefused) {
    Add(&a);
    uintptr_t h = 0;
    ASSERT_EQ(m->DecompressBegin(&srcA, &rgb, &h), KX_OK);
    KXBMINFOHEADER shortRecord = srcA;
    shortRecord.biSize = 20; // does not cover the Windows header

    // The last page of a mapping with an unreadable page behind it.
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    auto* map = static_cast<unsigned char*>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(map, MAP_FAILED);
    ASSERT_EQ(mprotect(map + page, page, PROT_NONE), 0);
    unsigned char* tail = map + page - 8; // 8 readable bytes, srcA claims 16
    // A record whose declared 144 bytes run into the page without access.
    auto* straddling = reinterpret_cast<KXBMINFOHEADER*>(map + page - 100);
    std::memcpy(straddling, &srcA, 100);

    struct Case {
        const KXBMINFOHEADER* src;
        const void* bits;
        KXBMINFOHEADER* dst;
        const wchar_t* trace;
    };
    const Case cases[] = {
        {nullptr, bits, &rgb, L"CCodecManager::Invalid BIH!"},
        {&srcA, bits, nullptr, L"CCodecManager::Invalid BIH!"},
        {&shortRecord, bits, &rgb, L"CCodecManager::Invalid BIH!"},
        {reinterpret_cast<KXBMINFOHEADER*>(map + page), bits, &rgb, L"CCodecManager::Invalid BIH!"},
        {straddling, bits, &rgb, L"CCodecManager::Invalid BIH!"},
        {&srcA, nullptr, &rgb, L"CCodec::Invalid Buffer!"},
        {&srcA, tail, &rgb, L"CCodec::Invalid Buffer!"},
    };
    for (const Case& t : cases) {
        kelptest::SinkClear();
        EXPECT_EQ(m->Decompress(t.src, t.bits, t.dst, 0, 0, 0, h), KXE_INVALID);
        EXPECT_EQ(Lines(2), std::vector<std::wstring>{t.trace});
    }
    EXPECT_EQ(m->Decompress(&srcA, map + page - 16, &rgb, 0, 0, 0, h), KX_OK) << "16 readable";

    kelptest::SinkClear();
    EXPECT_EQ(m->LocateCodec(nullptr), nullptr);
    EXPECT_EQ(Lines(2), std::vector<std::wstring>{L"CCodecManager::Invalid BIH!"});
    EXPECT_EQ(m->DecompressQuery(&srcA, &shortRecord), KXE_INVALID);
    EXPECT_EQ(m->CompressBegin(nullptr, &srcA, &h), KXE_INVALID);
    EXPECT_EQ(m->DecompressEnd(h), KX_OK);
    munmap(map, 2 * page);
}

TEST_F(CodecManager, WrappersReturnTheCodecsStatusAndTraceFailures) {
    Add(&a);
    Add(&b);
    const KXRESULT odd = int32_t(0x80001234u);
    KXBMINFOHEADER srcB = Record(kBBBB, 16);
    uintptr_t ha = 0, hb = 0;
    ASSERT_EQ(m->DecompressBegin(&srcA, &rgb, &ha), KX_OK);
    ASSERT_EQ(m->CompressBegin(&rgb, &srcB, &hb), KX_OK);
    a.opStatus = odd;
    b.opStatus = odd;

    struct Case {
        const char* name;
        std::function<KXRESULT()> call;
        unsigned level;
        const wchar_t* line;
    };
    const Case cases[] = {
        {"Decompress", [&] { return m->Decompress(&srcA, bits, &rgb, 0, 0, 0, ha); }, 2,
         L"KXCODEC::Decompress failed!\n"},
        {"Compress", [&] { return m->Compress(&rgb, bits, &srcB, 0, 0, 0, hb); }, 2,
         L"KXCODEC::Compress failed!\n"},
        {"DecompressGetFormat", [&] { return m->DecompressGetFormat(&srcA, 0, 0, 0); }, 29,
         L"KXCODEC::DecompressGetFormat failed!\n"},
        {"DecompressQuery", [&] { return m->DecompressQuery(&srcA, &rgb); }, 29,
         L"KXCODEC::DecompressGetFormat failed!\n"},
        // A compressor is found by what it makes: B, from the target.
        {"CompressQuery", [&] { return m->CompressQuery(&rgb, &srcB); }, 29,
         L"KXCODEC::CompressQuery failed!\n"},
    };
    for (const Case& t : cases) {
        kelptest::SinkClear();
        EXPECT_EQ(t.call(), odd) << t.name;
        const std::vector<std::wstring> lines = Lines(t.level);
        EXPECT_NE(std::find(lines.begin(), lines.end(), std::wstring(t.line)), lines.end())
            << t.name;
    }
    EXPECT_EQ(log.calls.back(), "cquery B");
    m->DecompressEnd(ha);
    m->CompressEnd(hb);
}

TEST_F(CodecManager, NotifyGoesToTheSessionsCodecOrToEveryCodec) {
    Add(&a);
    Add(&b);
    a.handle = 77;
    a.notifyStatus = 3;
    b.notifyStatus = KXE_FAIL;
    uintptr_t h = 0;
    ASSERT_EQ(m->DecompressBegin(&srcA, &rgb, &h), KX_OK);
    log.calls.clear();
    EXPECT_EQ(m->Notify(5, 6, h), 3);
    EXPECT_EQ(log.calls, std::vector<std::string>{"notify A"});
    EXPECT_EQ(a.args[0], 5u);
    EXPECT_EQ(a.handleSeen, 77u);

    log.calls.clear();
    EXPECT_EQ(m->Notify(8, 9, 0), KX_OK) << "statuses of a broadcast are not looked at";
    EXPECT_EQ(log.calls, (std::vector<std::string>{"notify A", "notify B"}));
    EXPECT_EQ(b.args[1], 9u);
    EXPECT_EQ(b.handleSeen, 0u);
    m->DecompressEnd(h);
}

TEST_F(CodecManager, ExceptionsFromACodecBecomeFailures) {
    Add(&a);
    uintptr_t h = 0;
    ASSERT_EQ(m->DecompressBegin(&srcA, &rgb, &h), KX_OK);
    a.throwIn = "decompress";
    EXPECT_EQ(m->Decompress(&srcA, bits, &rgb, 0, 0, 0, h), KXE_FAIL);
    a.throwIn = "dend";
    EXPECT_EQ(m->DecompressEnd(h), KXE_FAIL); // the session record goes all the same
    a.throwIn = "dquery";
    EXPECT_EQ(m->LocateCodec(&srcA), nullptr);
}

TEST_F(CodecManager, AddCodecKeepsOnlyTheRightVersion) {
    struct Case {
        uint32_t version;
        KXRESULT expected;
    };
    const Case cases[] = {
        {0x10002, KX_OK}, {0x10001, KXE_INVALID}, {0x20002, KXE_INVALID}, {0, KXE_INVALID}};
    FakeCodec codecs[] = {
        {"1", 1, kAAAA, &log}, {"2", 1, kAAAA, &log}, {"3", 1, kAAAA, &log}, {"4", 1, kAAAA, &log}};
    for (size_t i = 0; i < 4; ++i) {
        codecs[i].version = cases[i].version;
        kelptest::SinkClear();
        EXPECT_EQ(m->AddCodec(KXFOURCC('V', 'E', 'R', char('1' + i)), &codecs[i]),
                  cases[i].expected);
        std::vector<std::wstring> expected = {L"KXCODEC::AddCodec: 'VER" +
                                              std::wstring(1, wchar_t('1' + i)) + L"'\r\n"};
        EXPECT_EQ(Lines(29), expected);
        EXPECT_EQ(Lines(2).size(), cases[i].expected == KX_OK ? 0u : 1u);
    }
    EXPECT_EQ(m->AddCodec(kAAAA, nullptr), KXE_INVALID);
    EXPECT_EQ(m->GetCodecCount(), 1u);
    EXPECT_EQ(Lines(2).back(), L"KXCODEC::AddCodec: 'AAAA' has invalid version!\r\n");

    // Past the end: an assertion report, and null.
    kelptest::SinkClear();
    EXPECT_EQ(m->GetCodec(1), nullptr);
    EXPECT_EQ(Lines(2), std::vector<std::wstring>{
                            L"ASSERTION FAILED!\ndwIndex< GetCodecCount() ,.\\codecman, 252"});
}

TEST_F(CodecManager, AsACodecItselfItOnlyRoutes) {
    EXPECT_EQ(m->GetVersion(), kelp::KXCODEC_VERSION);
    EXPECT_EQ(m->GetPriority(), 0u);
    EXPECT_EQ(m->Open(), KXE_INVALID);
    EXPECT_EQ(m->Close(), KXE_INVALID);
    EXPECT_EQ(m->Configure(1, 2, 3), KXE_INVALID);
    EXPECT_EQ(m->CompressGetFormat(1, 2, 3), KXE_INVALID);
}

} // namespace
