// The manager as a caller sees it: its life and registry, Query and Convert.
#include <gtest/gtest.h>

#include <functional>

#include <kelp/kelp.h>

#include "convert/alphaconv.h"
#include "convert/convman.h"
#include "convert/registry.h"
#include "convert/rgbconv.h"
#include "fakestage.h"
#include "kxbihtest.h"

using namespace kelp;
using kelptest::FakeStage;
using kelptest::MakeRgb;
using kelptest::TrackingAllocator;

namespace {

struct Images {
    KXBMINFOHEADERYUV in = MakeRgb(4, 2, 32);
    KXBMINFOHEADERYUV out = MakeRgb(4, 2, 32);
    alignas(16) unsigned char pixels[32];
    void* outData = nullptr;
    uint32_t flags = 0;
    int32_t quality = -1;
    TrackingAllocator caller;
    Images() {
        for (int i = 0; i < 32; ++i)
            pixels[i] = static_cast<unsigned char>(3 * i + 1);
    }
    KXRESULT Convert(IConversionManager* cm) {
        return cm->Convert(&in.bmi, pixels, &out.bmi, &outData, &flags, &quality, &caller);
    }
};

struct Manager {
    IConversionManager* cm = KXCONVCreateConversionManager();
    Manager() { cm->Init(0x10002, 0); }
    ~Manager() { cm->Release(); }
};

} // namespace

TEST(ConversionManager, FirstManagerMakesTheRegistryAndTheLastEndsIt) {
    ASSERT_EQ(conv::ManagerCount(), 0);
    kelptest::SinkClear();
    IConversionManager* a = KXCONVCreateConversionManager();
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(kelptest::Lines8(31), std::vector<std::wstring>{L"KXCONV::InitGlobal\r\n"});
    EXPECT_TRUE(kelptest::Lines8(2).empty());
    // The stages went to the registry: the manager that made them has none until Init.
    EXPECT_TRUE(static_cast<CConversionManager*>(a)->Converters().empty());
    IConversionManager* b = KXCONVCreateConversionManager();
    EXPECT_EQ(conv::ManagerCount(), 2);
    EXPECT_EQ(a->GetVersion(), 0x10002u);
    EXPECT_EQ(a->Init(0x10002, 0), KX_OK);
    EXPECT_FALSE(static_cast<CConversionManager*>(a)->Converters().empty());
    a->Release();
    EXPECT_EQ(kelptest::Lines8(31).size(), 1u);
    kelptest::SinkClear();
    b->Release();
    EXPECT_EQ(kelptest::Lines8(31), std::vector<std::wstring>{L"KXCONV::EndGlobal\r\n"});
    EXPECT_EQ(conv::ManagerCount(), 0);
}

TEST(ConversionManager, ConvertIdentitySharesOrCopies) {
    Manager m;
    {
        Images i; // keep the input alone: the input itself is the result
        i.flags = KXCONV_KEEP_INPUT;
        i.out.bmi.biSizeImage = 0;
        EXPECT_EQ(i.Convert(m.cm), KX_OK);
        EXPECT_EQ(i.outData, i.pixels);
        EXPECT_EQ(i.flags, KXCONV_KEEP_INPUT | KXCONV_OUT_SHARED | KXCONV_OUT_IDENTITY);
        EXPECT_EQ(i.quality, 0);
        EXPECT_EQ(i.out.bmi.biSizeImage, 32u);
        EXPECT_EQ(i.caller.Calls(), 0);
    }
    {
        Images i; // forced copy
        i.flags = KXCONV_KEEP_INPUT | KXCONV_FORCE_COPY;
        EXPECT_EQ(i.Convert(m.cm), KX_OK);
        ASSERT_NE(i.outData, i.pixels);
        EXPECT_TRUE(i.caller.Owns(i.outData));
        EXPECT_EQ(std::memcmp(i.outData, i.pixels, 32), 0);
        EXPECT_EQ(i.flags & 0xFFFF0000u, KXCONV_OUT_SHARED | KXCONV_OUT_IDENTITY);
        i.caller.Free(i.outData);
    }
    {
        Images i; // a forced copy alone does not copy
        i.flags = KXCONV_FORCE_COPY;
        EXPECT_EQ(i.Convert(m.cm), KX_OK);
        EXPECT_EQ(i.outData, i.pixels);
    }
    for (auto mode : {TrackingAllocator::kFail, TrackingAllocator::kThrow}) {
        Images i;
        i.flags = KXCONV_KEEP_INPUT | KXCONV_FORCE_COPY;
        i.caller.FailFrom(1, mode);
        EXPECT_EQ(i.Convert(m.cm), KXE_OUTOFMEMORY);
        EXPECT_EQ(i.outData, nullptr);
    }
    {
        // Opaque read as premultiplied: nothing to do, and the record says premultiplied.
        Images i;
        i.in.bmi.bmiAlpha = KXDIB_ALPHA_OPAQUE;
        i.out.bmi.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
        i.flags = KXCONV_KEEP_INPUT;
        EXPECT_EQ(i.Convert(m.cm), KX_OK);
        EXPECT_EQ(i.outData, i.pixels);
        EXPECT_EQ(i.out.bmi.bmiAlpha, KXDIB_ALPHA_PREMULTIPLIED);
        EXPECT_TRUE(i.flags & KXCONV_PREMULTIPLY);
        EXPECT_EQ(i.pixels[3], 10);
    }
}

TEST(ConversionManager, NoChainSoTheConversionFails) {
    // Without Init, or for a pair that no stage bridges (another size at 16 bits, which
    // no stage writes), or with a stage that takes nothing: the search finds no chain,
    // the output stays coerced, and nothing is allocated.
    for (int variant = 0; variant < 3; ++variant) {
        IConversionManager* cm = KXCONVCreateConversionManager();
        FakeStage::Behaviour refusing;
        refusing.acceptInput = false;
        FakeStage s(1, refusing);
        if (variant >= 1) cm->Init(0x10002, 0);
        if (variant == 2) cm->AddConverter(&s);
        Images i;
        i.out = MakeRgb(variant == 0 ? 4 : 8, 2, 16);
        i.out.bmi.bmiAlpha = KXDIB_ALPHA_OPAQUE;
        i.flags = KXCONV_KEEP_INPUT;
        EXPECT_EQ(i.Convert(cm), KXE_INVALID) << variant;
        EXPECT_EQ(i.outData, nullptr);
        EXPECT_EQ(i.quality, 100000);
        EXPECT_EQ(i.out.bmi.bmiAlpha, KXDIB_ALPHA_VALID); // coerced to the input's
        EXPECT_EQ(i.caller.Calls(), 0);
        EXPECT_TRUE(s.seenFlags.empty());
        int32_t q = 0;
        uint32_t flags = 0;
        EXPECT_EQ(cm->Query(&i.in.bmi, &i.out.bmi, &flags, &q), KXE_INVALID);
        EXPECT_EQ(q, 100000);
        cm->Release();
    }
}

TEST(ConversionManager, QueryOfIdenticalFormats) {
    Manager m;
    Images i;
    i.out.bmi.bmiFlags = 0x77;
    int32_t q = 9;
    uint32_t flags = 0x12340000u | KXCONV_KEEP_RECT;
    EXPECT_EQ(m.cm->Query(&i.in.bmi, &i.out.bmi, &flags, &q), KX_OK);
    EXPECT_EQ(q, 0);
    EXPECT_EQ(flags, KXCONV_KEEP_RECT | KXCONV_OUT_SHARED | KXCONV_OUT_IDENTITY);
    EXPECT_EQ(i.out.bmi.bmiFlags, 0u);
    // Flags and quality may be left out.
    EXPECT_EQ(m.cm->Query(&i.in.bmi, &i.out.bmi, nullptr, nullptr), KX_OK);
}

TEST(ConversionManager, BadRecordsAndBuffersAreRefusedWithTheirTraces) {
    Manager m;
    struct Case {
        const char* what;
        bool query; // Query, else Convert
        std::function<void(Images&)> spoil;
        std::vector<std::wstring> errors;
    } cases[] = {
        {"unreadable input",
         true,
         [](Images& i) { i.in.bmi.biSize = 0x7FFFFFF0u; },
         {L"CConversionManager::Invalid BIH!\n"}},
        {"unreadable output",
         false,
         [](Images& i) { i.out.bmi.biSize = 0x7FFFFFF0u; },
         {L"CConversionManager::Invalid BIH!\n"}},
        {"invalid input",
         true,
         [](Images& i) { i.in.bmi.biPlanes = 2; },
         {L"!!!CConversionManager::Invalid Input BIH"}},
        {"invalid output",
         true,
         [](Images& i) { i.out.bmi.bmiFormat = KXBMIFORMAT_TWOFIELDS; },
         {L"!!!CConversionManager::Invalid Output BIH"}},
        {"invalid input in Convert: no further trace",
         false,
         [](Images& i) { i.in.bmi.biPlanes = 2; },
         {}},
        {"pixels shorter than stated",
         false,
         [](Images& i) { i.in.bmi.biSizeImage = 0x7FFFFFF0u; },
         {L"CConversionManager::Invalid Buffer!\n"}},
    };
    for (const auto& c : cases) {
        Images i;
        c.spoil(i);
        kelptest::SinkClear();
        KXRESULT r =
            c.query ? m.cm->Query(&i.in.bmi, &i.out.bmi, &i.flags, &i.quality) : i.Convert(m.cm);
        EXPECT_EQ(r, KXE_INVALID) << c.what;
        EXPECT_EQ(kelptest::Lines8(2), c.errors) << c.what;
    }
    Images i;
    EXPECT_EQ(
        m.cm->Convert(nullptr, i.pixels, &i.out.bmi, &i.outData, &i.flags, &i.quality, &i.caller),
        KXE_INVALID);
    EXPECT_EQ(
        m.cm->Convert(&i.in.bmi, i.pixels, &i.out.bmi, nullptr, &i.flags, &i.quality, &i.caller),
        KXE_INVALID);
}

TEST(ConversionManager, QueryInputAndOutputAskTheStagesInOrder) {
    Manager m;
    KXBMINFOHEADERYUV r = MakeRgb(4, 4, 32);
    EXPECT_EQ(m.cm->QueryInput(&r.bmi), KX_OK); // a built-in stage reads 32 bits
    m.cm->RemoveAllConverters();                // from here on the test's own stages only
    EXPECT_EQ(m.cm->QueryInput(&r.bmi), KXE_INVALID);
    FakeStage::Behaviour no, thrower;
    no.acceptInput = false;
    thrower.throwInQuery = true;
    FakeStage refuses(1, no), throws(2, thrower), accepts(3, {});
    m.cm->AddConverter(&refuses);
    m.cm->AddConverter(&throws);
    EXPECT_EQ(m.cm->AddConverter(nullptr), KXE_INVALID);
    EXPECT_EQ(m.cm->QueryInput(&r.bmi), KXE_INVALID);
    EXPECT_EQ(m.cm->QueryOutput(&r.bmi), KXE_INVALID);
    m.cm->AddConverter(&accepts);
    EXPECT_EQ(m.cm->QueryInput(&r.bmi), KX_OK);
    EXPECT_EQ(m.cm->QueryOutput(&r.bmi), KX_OK);
    r.bmi.biPlanes = 3;
    EXPECT_EQ(m.cm->QueryInput(&r.bmi), KXE_INVALID);
    kelptest::SinkClear();
    EXPECT_EQ(m.cm->QueryOutput(nullptr), KXE_INVALID);
    EXPECT_EQ(kelptest::Lines8(2),
              std::vector<std::wstring>{L"CConversionManager::Invalid BIH!\n"});
}

TEST(ConversionManager, QueryOutputLeavesTheSizeTheAcceptingStageGives) {
    // A stale biSizeImage in the record asked about: a depth stage that can write the
    // format writes the size it would give it. Input queries and the alpha stage's output
    // query write nothing, nor does the manager, whose first accepting stages (the
    // scaler and the cropper) only validate.
    Manager m;
    CRGBConverterRGB32 to32;
    CRGBConverterRGB24 to24;
    CAlphaConverter alpha;
    struct Case {
        const char* what;
        IConverter* asked;
        bool output;
        uint16_t bits;
        uint32_t size; // afterwards
    } cases[] = {
        {"manager, 24-bit output", m.cm, true, 24, 7},
        {"manager, 32-bit output", m.cm, true, 32, 7},
        {"manager, input", m.cm, false, 24, 7},
        {"depth stage, output", &to24, true, 24, 16 * 3},
        {"depth stage, input", &to32, false, 24, 7},
        {"alpha stage, output", &alpha, true, 32, 7},
    };
    for (const Case& c : cases) {
        KXBMINFOHEADERYUV r = MakeRgb(5, 3, c.bits);
        r.bmi.biSizeImage = 7;
        KXRESULT result = c.output ? c.asked->QueryOutput(&r.bmi) : c.asked->QueryInput(&r.bmi);
        EXPECT_EQ(result, KX_OK) << c.what;
        EXPECT_EQ(r.bmi.biSizeImage, c.size) << c.what;
    }
}

TEST(Converter, NameIsCutTo15AndQueryTracesTheBadSide) {
    EXPECT_STREQ(FakeStage(1, {}, L"CYUVConverterYUV").GetName(), L"CYUVConverterYU");
    EXPECT_STREQ(FakeStage(1, {}, L"Scale32").GetName(), L"Scale32");
    EXPECT_STREQ(FakeStage(1, {}, nullptr).GetName(), L"");
    FakeStage::Behaviour no;
    no.acceptInput = false;
    FakeStage s(1, no);
    KXBMINFOHEADERYUV r = MakeRgb(4, 4, 32);
    uint32_t flags = 0;
    int32_t q = 0;
    kelptest::SinkClear();
    EXPECT_EQ(s.Query(&r.bmi, &r.bmi, &flags, &q), KXE_INVALID);
    EXPECT_EQ(kelptest::Lines8(31),
              std::vector<std::wstring>{L"FakeStage::Query: bad Input format\r\n"});
    EXPECT_EQ(s.GetVersion(), 0x10002u);
}
