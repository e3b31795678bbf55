// The chain search: which chain wins, what it costs, and every trace line of the walk,
// on the built-in stages and on step stages whose moves the tests set.
#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <memory>

#include "chain_stepstage.h"
#include "convert/chainsearch.h"
#include "convert/convman.h"
#include "kxbihtest.h"

using namespace kelp;
using kelptest::MakeRgb;
using kelptest::StepStage;

namespace {

struct Search {
    std::list<IConverter*> stages;
    KXBMINFOHEADERYUV in = MakeRgb(4, 2, 32);
    KXBMINFOHEADERYUV out = MakeRgb(4, 2, 32);
    uint32_t flags = 0;
    int32_t quality = -1;
    std::unique_ptr<ConversionRequest> request;
    std::vector<std::wstring> names; // of the best chain

    bool Run() {
        request.reset(new ConversionRequest(&in.bmi, &out.bmi, &flags, &quality, &stages));
        kelptest::SinkClear();
        bool found = CreateConverterList(*request);
        names.clear();
        for (IConverter* s : request->bestChain)
            names.push_back(static_cast<CConverter*>(s)->GetName());
        return found;
    }
    // The walk at level 30 without the record lines: each indent joined to its text.
    static std::vector<std::wstring> Outline() {
        std::vector<std::wstring> out, raw = kelptest::Lines8(30);
        for (size_t i = 0; i < raw.size(); ++i) {
            if (raw[i].empty() || raw[i][0] == L'(') continue;
            if (raw[i].find_first_not_of(L' ') == std::wstring::npos && i + 1 < raw.size()) {
                out.push_back(raw[i] + raw[i + 1]);
                ++i;
            } else {
                out.push_back(raw[i]);
            }
        }
        return out;
    }
};

// The built-in stages, as a manager holds them after Init.
struct BuiltIn {
    IConversionManager* cm = KXCONVCreateConversionManager();
    BuiltIn() { cm->Init(0x10002, 0); }
    ~BuiltIn() { cm->Release(); }
    const std::list<IConverter*>& Stages() const {
        return static_cast<CConversionManager*>(cm)->Converters();
    }
};

KXBMINFOHEADERYUV Rgb(int32_t w, int32_t h, uint16_t bits, uint32_t alpha) {
    KXBMINFOHEADERYUV r = MakeRgb(w, h, bits);
    r.bmi.bmiAlpha = alpha;
    return r;
}

KXBMINFOHEADERYUV Value(int32_t v) {
    KXBMINFOHEADERYUV r = MakeRgb(4, 2, 32);
    r.bmi.biXPelsPerMeter = v;
    return r;
}

typedef std::vector<std::wstring> Lines;

} // namespace

TEST(ChainSearch, RegistryHoldsTheStagesInSearchOrder) {
    BuiltIn b;
    Lines names;
    for (IConverter* s : b.Stages()) {
        names.push_back(static_cast<CConverter*>(s)->GetName());
        EXPECT_EQ(s->GetVersion(), 0x10002u);
    }
    EXPECT_EQ(names, (Lines{L"nBit to 32bit", L"RGB->YUV4444", L"YUV444->RGB32",
                            L"AlphaConverter", L"CYUVConverterYU", L"nBit to 24bit",
                            L"YUV444->RGB24"}));
}

TEST(ChainSearch, PalettedTo32BitsIsOneStage) {
    BuiltIn b;
    Search s;
    s.stages = b.Stages();
    s.in = MakeRgb(4, 2, 8);
    s.out.bmi.biSizeImage = 0;
    ASSERT_TRUE(s.Run());
    EXPECT_EQ(s.names, Lines{L"nBit to 32bit"});
    EXPECT_EQ(s.quality, 0);
    EXPECT_EQ(s.out.bmi.biSizeImage, 32u); // written by the stage's Query
    const std::wstring pair = L"(144,RGB,1,8,4,2,0,0,F)->(144,RGB,1,32,4,2,0,0,F)\r\n";
    EXPECT_EQ(kelptest::Lines8(30),
              (Lines{pair, L" ", L"Q0 -> 0", pair, L" ", L"^- OK at 1(Q0) NEW ACTIVE\r\n"}));
    Lines l31 = kelptest::Lines8(31);
    ASSERT_FALSE(l31.empty());
    EXPECT_EQ(l31.front(), L"CConversionManager::CreateConverterList:\r\n");
    ASSERT_EQ(kelptest::Lines8(14).size(), 1u);
    EXPECT_EQ(kelptest::Lines8(14)[0].rfind(L"CConversionManager::BuildConverterList ", 0), 0u);
}

TEST(ChainSearch, Rgb24To32WithAlpha2To0TakesTheDepthThenTheAlpha) {
    BuiltIn b;
    Search s;
    s.stages = b.Stages();
    s.in = Rgb(720, 576, 24, KXDIB_ALPHA_PREMULTIPLIED); // 1,244,160 bytes
    s.out = Rgb(720, 576, 32, KXDIB_ALPHA_VALID);
    ASSERT_TRUE(s.Run());
    EXPECT_EQ(s.names, (Lines{L"nBit to 32bit", L"AlphaConverter"}));
    // 1,244,160 / 100000 for the depth, then 1,658,880 / 50000 for undoing.
    EXPECT_EQ(s.quality, 12 + 33);
    const std::wstring in = L"(144,RGB,1,24,720,576,0,0,PF)";
    const std::wstring mid = L"(144,RGB,1,32,720,576,0,0,PF)";
    const std::wstring out = L"(144,RGB,1,32,720,576,0,0,F)";
    EXPECT_EQ(kelptest::Lines8(30),
              (Lines{in + L"->" + out + L"\r\n", L" ", L"Q0 -> 12", in + L"->" + mid + L"\r\n",
                     L"    ", L"Q12 -> 45", mid + L"->" + out + L"\r\n", L"    ",
                     L"^- OK at 2(Q45) NEW ACTIVE\r\n", L" ", L"^-Nothing Found at 0\r\n"}));
}

TEST(ChainSearch, PalettedToPremultiplied24TakesThreeStagesAndSearchesOn) {
    BuiltIn b;
    Search s;
    s.stages = b.Stages();
    s.in = Rgb(720, 576, 8, KXDIB_ALPHA_VALID);
    s.out = Rgb(720, 576, 24, KXDIB_ALPHA_PREMULTIPLIED);
    ASSERT_TRUE(s.Run());
    EXPECT_EQ(s.names, (Lines{L"nBit to 32bit", L"AlphaConverter", L"nBit to 24bit"}));
    EXPECT_EQ(s.quality, 4 + 16 + 16);
    // After the find the branch at the depth limit goes on, its Q being below the best.
    EXPECT_EQ(Search::Outline(),
              (Lines{L" Q0 -> 4", L"    Q4 -> 20", L"        Q20 -> 36",
                     L"        ^- OK at 3(Q36) NEW ACTIVE\r\n", L"    Q4 -> 20",
                     L"        ^-Nothing Found at 2\r\n", L"    ^-Nothing Found at 1\r\n",
                     L" Q0 -> 4", L"    ^-Nothing Found at 1\r\n", L" ^-Nothing Found at 0\r\n"}));
}

TEST(ChainSearch, PairNoStageCanBridgeExhaustsTheSearch) {
    BuiltIn b;
    Search s;
    s.stages = b.Stages();
    s.in = MakeRgb(4, 2, 24);
    s.out = MakeRgb(8, 2, 32); // another size, and no scaler
    EXPECT_FALSE(s.Run());
    EXPECT_TRUE(s.request->bestChain.empty());
    EXPECT_EQ(s.quality, 100000);
    EXPECT_EQ(Search::Outline(),
              (Lines{L" Q0 -> 0", L"    ^-Nothing Found at 1\r\n", L" ^-Nothing Found at 0\r\n"}));
    EXPECT_EQ(s.request->in, &s.in.bmi);
}

TEST(ChainSearch, AlignmentIsCheckedBeforeAnyStageIsAsked) {
    struct Case {
        int32_t inAlign, outAlign;
        bool passes;
        std::wstring error;
    } cases[] = {
        {3, 0, false, L"KELP::Converter: Supports only 4 Byte Alignments on Input NOT 3\r\n"},
        {-4, 4, false, L"KELP::Converter: Supports only 4 Byte Alignments on Input NOT -4\r\n"},
        // The output's refusal shows the input's value.
        {0, 7, false, L"KELP::Converter: Supports only 4 Byte Alignments on Output NOT 0\r\n"},
        {12, 0, true, L""}, // the exact row of 3 pixels at 24 bits, rounded to 4
        {4, 12, true, L""},
    };
    for (const Case& c : cases) {
        StepStage step(L"Step", 1, 1);
        Search s;
        s.stages = {&step};
        s.in = MakeRgb(3, 2, 24);
        s.out = MakeRgb(3, 2, 24);
        s.out.bmi.biXPelsPerMeter = 1;
        s.in.bmi.bmiAlignment = c.inAlign;
        s.out.bmi.bmiAlignment = c.outAlign;
        EXPECT_EQ(s.Run(), c.passes) << c.inAlign << " " << c.outAlign;
        if (c.passes) {
            EXPECT_EQ(s.in.bmi.bmiAlignment, 4);
            EXPECT_EQ(s.out.bmi.bmiAlignment, 4);
            EXPECT_TRUE(kelptest::Lines8(2).empty());
        } else {
            EXPECT_EQ(step.queries, 0);
            EXPECT_EQ(kelptest::Lines8(2), Lines{c.error});
            EXPECT_EQ(s.in.bmi.bmiAlignment, c.inAlign);
        }
    }
}

TEST(ChainSearch, ADirectStageEndsItsNode) {
    StepStage a(L"A", 1, 1), b(L"B", 2, 10), c(L"C", 3, 100);
    Search s;
    s.stages = {&a, &b, &c};
    s.in = Value(0);
    s.out = Value(3);
    ASSERT_TRUE(s.Run());
    EXPECT_EQ(s.names, Lines{L"C"}); // though A then B would cost 11
    EXPECT_EQ(s.quality, 100);
    EXPECT_EQ(Search::Outline(), (Lines{L" Q0 -> 100", L" ^- OK at 1(Q100) NEW ACTIVE\r\n"}));
}

TEST(ChainSearch, GoesOnAfterAFindAndKeepsTheCheaperOfEqualLength) {
    StepStage a(L"A", 1, 1), b(L"B", 2, 10), c(L"C", 3, 100);
    Search s;
    s.stages = {&a, &b, &c};
    s.in = Value(0);
    s.out = Value(4);
    ASSERT_TRUE(s.Run());
    EXPECT_EQ(s.names, (Lines{L"B", L"B"})); // a direct stage may repeat the last one
    EXPECT_EQ(s.quality, 20);
    EXPECT_EQ(
        Search::Outline(),
        (Lines{L" Q0 -> 1", L"    Q1 -> 101", L"    ^- OK at 2(Q101) NEW ACTIVE\r\n", L" Q0 -> 10",
               L"    Q10 -> 20", L"    ^- OK at 2(Q20) NEW ACTIVE\r\n", L" Q0 -> 100",
               L"    Q100 -> 101", L"    ^- OK at 2(Q101) \r\n", L" ^-Nothing Found at 0\r\n"}));
}

TEST(ChainSearch, AShorterChainWinsEvenAtAHigherQ) {
    StepStage a(L"A", 1, 1, 0), b(L"B", 1, 1, 1), c(L"C", 2, 1000, 0), f(L"F", 2, 1000, 2);
    Search s;
    s.stages = {&a, &b, &c, &f};
    s.in = Value(0);
    s.out = Value(4);
    ASSERT_TRUE(s.Run());
    EXPECT_EQ(s.names, (Lines{L"C", L"F"}));
    EXPECT_EQ(s.quality, 2000);
    EXPECT_EQ(Search::Outline(),
              (Lines{L" Q0 -> 1", L"    Q1 -> 2", L"        Q2 -> 1002",
                     L"        ^- OK at 3(Q1002) NEW ACTIVE\r\n", L"    ^-Nothing Found at 1\r\n",
                     L" Q0 -> 1000", L"    Q1000 -> 2000", L"    ^- OK at 2(Q2000) NEW ACTIVE\r\n",
                     L" ^-Nothing Found at 0\r\n"}));
}

TEST(ChainSearch, TheQBoundActsOnlyAtTheDepthLimit) {
    StepStage a(L"A", 1, 1, 0), b(L"B", 4, 50, 1), e(L"E", 2, 60, 0), h(L"H", 2, 1, 0),
        g(L"G", 2, 1, 2);
    Search s;
    s.stages = {&a, &b, &e, &h, &g};
    s.in = Value(0);
    s.out = Value(5);
    ASSERT_TRUE(s.Run());
    EXPECT_EQ(s.names, (Lines{L"A", L"B"}));
    EXPECT_EQ(s.quality, 51);
    // E's node is at the limit and no cheaper: cut. H's is cheaper and survives, though
    // nothing below it can be shorter; its child is past the limit.
    EXPECT_EQ(Search::Outline(),
              (Lines{L" Q0 -> 1", L"    Q1 -> 51", L"    ^- OK at 2(Q51) NEW ACTIVE\r\n",
                     L" Q0 -> 60", L"    ^- STOP at 1 Q60|\r\n", L" Q0 -> 1", L"    Q1 -> 2",
                     L"        ^- STOP at 2|\r\n", L"    ^-Nothing Found at 1\r\n",
                     L" ^-Nothing Found at 0\r\n"}));
}

TEST(ChainSearch, AFirstChainHasSevenStagesAtMostAndQBelow100000AtDepthFive) {
    struct Case {
        int stages;
        int32_t firstCost;
        bool found;
        std::wstring last; // the last line of the walk
    } cases[] = {
        {7, 1, true, L" ^-Nothing Found at 0\r\n"},
        {8, 1, false, L" ^-Nothing Found at 0\r\n"},
        {7, 99999, true, L" ^-Nothing Found at 0\r\n"},
        {7, 100000, false, L" ^-Nothing Found at 0\r\n"},
    };
    for (const Case& c : cases) {
        std::vector<std::unique_ptr<StepStage>> owned;
        Search s;
        for (int i = 0; i < c.stages; ++i) {
            owned.emplace_back(new StepStage(L"S", 1, i == 0 ? c.firstCost : 0, i));
            s.stages.push_back(owned.back().get());
        }
        s.in = Value(0);
        s.out = Value(c.stages);
        EXPECT_EQ(s.Run(), c.found) << c.stages << " " << c.firstCost;
        Lines walk = Search::Outline();
        ASSERT_FALSE(walk.empty());
        EXPECT_EQ(walk.back(), c.last);
        auto has = [&](const std::wstring& line) {
            return std::find(walk.begin(), walk.end(), line) != walk.end();
        };
        if (c.found) {
            EXPECT_EQ(s.names.size(), size_t(c.stages));
        }
        if (c.stages == 8) {
            EXPECT_TRUE(has(std::wstring(24, L' ') + L"^- STOP at 6|\r\n"));
        }
        if (c.firstCost == 100000) {
            EXPECT_TRUE(has(std::wstring(20, L' ') + L"^- STOP at 5 Q100000|\r\n"));
        }
    }
}

TEST(ChainSearch, TheSameStageIsNeverTwoInnerStepsInARow) {
    StepStage a(L"A", 1, 1), a2(L"A2", 1, 1);
    Search alone;
    alone.stages = {&a};
    alone.in = Value(0);
    alone.out = Value(3);
    EXPECT_FALSE(alone.Run());
    Search two;
    two.stages = {&a, &a2};
    two.in = Value(0);
    two.out = Value(3);
    ASSERT_TRUE(two.Run());
    EXPECT_EQ(two.names, (Lines{L"A", L"A2", L"A"}));
}

TEST(ChainSearch, TheCheapestDirectStageWinsAndTheEarlierOnATie) {
    struct Case {
        int32_t costs[3];
        std::wstring winner;
        int32_t q;
    } cases[] = {
        {{5, 5, 5}, L"X", 5},
        {{5, 5, 3}, L"Z", 3},
        {{7, 2, 2}, L"Y", 2},
    };
    for (const Case& c : cases) {
        StepStage x(L"X", 2, c.costs[0]), y(L"Y", 2, c.costs[1]), z(L"Z", 2, c.costs[2]);
        Search s;
        s.stages = {&x, &y, &z};
        s.in = Value(0);
        s.out = Value(2);
        ASSERT_TRUE(s.Run());
        EXPECT_EQ(s.names, Lines{c.winner});
        EXPECT_EQ(s.quality, c.q);
    }
}

TEST(ChainSearch, ProposedFormatsLiveInTheSlabOfTheirLevel) {
    StepStage a(L"A", 1, 1, 0), b(L"B", 1, 1, 1), c(L"C", 1, 1, 2), d(L"D", 1, 1, 3);
    Search s;
    s.stages = {&a, &b, &c, &d};
    s.in = Value(0);
    s.out = Value(4);
    ASSERT_TRUE(s.Run());
    EXPECT_EQ(s.names.size(), 4u);
    // A proposes at level 0, B at 1, C at 2; D is direct at level 3.
    EXPECT_EQ(a.proposals, std::vector<const void*>{s.request->scratch[0]});
    EXPECT_EQ(b.proposals, std::vector<const void*>{s.request->scratch[1]});
    EXPECT_EQ(c.proposals, std::vector<const void*>{s.request->scratch[2]});
    EXPECT_TRUE(d.proposals.empty());
}

TEST(ChainSearch, RecordsLongerThanASlabArePassedOver) {
    BuiltIn b;
    for (uint32_t size : {160u, 164u}) {
        Search s;
        s.stages = b.Stages();
        s.in = Rgb(4, 2, 24, KXDIB_ALPHA_PREMULTIPLIED);
        s.out = Rgb(4, 2, 32, KXDIB_ALPHA_VALID);
        // An RGB record that says an extension of its own follows the 144 bytes. A
        // proposal of 164 bytes is refused by the slab before anything is copied.
        s.in.bmi.biSize = size;
        EXPECT_EQ(s.Run(), size <= 160) << size;
    }
}

TEST(ChainSearch, AnExceptionInAStageEndsTheSearchWithNothing) {
    StepStage a(L"A", 1, 1), b(L"B", 1, 1);
    b.throwInQuery = true;
    Search s;
    s.stages = {&a, &b};
    s.in = Value(0);
    s.out = Value(3);
    EXPECT_FALSE(s.Run());
    EXPECT_TRUE(s.request->bestChain.empty());
    EXPECT_EQ(s.quality, 100000);
    EXPECT_EQ(s.request->in, &s.in.bmi);
}
