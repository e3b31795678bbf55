// The run of a chain: who owns which buffer on every path, which flags each stage sees,
// and the rectangle the run reports.
#include <gtest/gtest.h>

#include <cstring>

#include "convert/convman.h"
#include "fakestage.h"
#include "kxbihtest.h"

using namespace kelp;
using kelptest::FakeStage;
using kelptest::TrackingAllocator;
using Behaviour = FakeStage::Behaviour;

namespace {

struct ChainRun {
    CConversionManager manager;
    KXBMINFOHEADERYUV in = kelptest::MakeRgb(4, 2, 32);
    KXBMINFOHEADERYUV out = kelptest::MakeRgb(4, 2, 32);
    unsigned char pixels[32];
    void* outData = nullptr;
    uint32_t flags = 0;
    int32_t quality = 0;
    TrackingAllocator caller, temporaries;

    ChainRun() {
        for (int i = 0; i < 32; ++i)
            pixels[i] = static_cast<unsigned char>(i);
    }
    KXRESULT Go(std::vector<IConverter*> chain) {
        return manager.RunChain(chain, &in.bmi, pixels, &out.bmi, &outData, &flags, &quality,
                                &caller, &temporaries);
    }
    // Every byte of `p` is its index plus `added`.
    static bool Holds(const void* p, int added) {
        const unsigned char* b = static_cast<const unsigned char*>(p);
        for (int i = 0; i < 32; ++i)
            if (b[i] != static_cast<unsigned char>(i + added)) return false;
        return true;
    }
};

Behaviour InPlace() {
    Behaviour b;
    b.inPlace = true;
    return b;
}

} // namespace

TEST(RunChain, OneStageIntoANewBufferOfTheCaller) {
    ChainRun r;
    FakeStage s(1, {});
    r.flags = KXCONV_KEEP_INPUT;
    EXPECT_EQ(r.Go({&s}), KX_OK);
    EXPECT_TRUE(r.caller.Owns(r.outData));
    EXPECT_EQ(r.caller.Live(), 1u);
    EXPECT_EQ(r.temporaries.Live(), 0u);
    EXPECT_TRUE(ChainRun::Holds(r.outData, 1));
    EXPECT_TRUE(ChainRun::Holds(r.pixels, 0));
    EXPECT_EQ(r.flags & KXCONV_OUT_SHARED, 0u);
    EXPECT_EQ(r.quality, 1);
    ASSERT_EQ(s.seenAllocator.size(), 1u);
    EXPECT_EQ(s.seenAllocator[0], &r.caller);
}

TEST(RunChain, LoneStageMayWorkInPlaceUnlessTheCallerKeepsTheInput) {
    ChainRun r;
    FakeStage s(1, InPlace());
    EXPECT_EQ(r.Go({&s}), KX_OK);
    EXPECT_EQ(r.outData, r.pixels);
    EXPECT_TRUE(r.flags & KXCONV_OUT_SHARED);
    EXPECT_TRUE(ChainRun::Holds(r.pixels, 1));
    EXPECT_EQ(r.caller.Live() + r.temporaries.Live(), 0u);

    ChainRun k;
    k.flags = KXCONV_KEEP_INPUT;
    FakeStage t(1, InPlace());
    EXPECT_EQ(k.Go({&t}), KX_OK);
    EXPECT_NE(k.outData, k.pixels);
    EXPECT_TRUE(ChainRun::Holds(k.pixels, 0));
    EXPECT_EQ(k.caller.Live(), 1u);
}

TEST(RunChain, TemporariesAreFreedAndTheLastStageKeepsItsInput) {
    ChainRun r;
    FakeStage a(1, InPlace()), b(2, {}), c(4, InPlace());
    EXPECT_EQ(r.Go({&a, &b, &c}), KX_OK);
    // a worked in place on the caller's buffer; b made a temporary, so c may not
    // overwrite it and copies into the caller's allocator.
    EXPECT_TRUE(ChainRun::Holds(r.pixels, 1));
    EXPECT_TRUE(ChainRun::Holds(r.outData, 7));
    EXPECT_TRUE(r.caller.Owns(r.outData));
    EXPECT_EQ(r.caller.Live(), 1u);
    EXPECT_EQ(r.temporaries.Live(), 0u);
    EXPECT_EQ(r.temporaries.BadFrees(), 0);
    ASSERT_EQ(c.seenFlags.size(), 1u);
    EXPECT_TRUE(c.seenFlags[0] & KXCONV_KEEP_INPUT);
    EXPECT_EQ(b.seenAllocator[0], &r.temporaries);
    EXPECT_EQ(c.seenAllocator[0], &r.caller);
    EXPECT_EQ(r.flags & KXCONV_OUT_SHARED, 0u);
    // The run clears the caller's keep-input wish from the word as it goes, and sets it
    // again only for the last stage.
    EXPECT_EQ(r.flags & KXCONV_KEEP_INPUT, KXCONV_KEEP_INPUT);
}

TEST(RunChain, WholeChainInPlaceOnTheCallersBuffer) {
    ChainRun r;
    FakeStage a(1, InPlace()), b(2, InPlace());
    EXPECT_EQ(r.Go({&a, &b}), KX_OK);
    EXPECT_EQ(r.outData, r.pixels);
    EXPECT_TRUE(r.flags & KXCONV_OUT_SHARED);
    EXPECT_TRUE(ChainRun::Holds(r.pixels, 3));
    EXPECT_EQ(r.caller.Live() + r.temporaries.Live(), 0u);
}

TEST(RunChain, LastStageInPlaceOnATemporaryHandsThatBufferOver) {
    ChainRun r;
    Behaviour share;
    share.shareAnyway = true;
    FakeStage a(1, {}), b(2, share);
    EXPECT_EQ(r.Go({&a, &b}), KX_OK);
    EXPECT_TRUE(r.temporaries.Owns(r.outData));
    EXPECT_EQ(r.temporaries.Live(), 1u);
    EXPECT_EQ(r.flags & KXCONV_OUT_SHARED, 0u);
    EXPECT_TRUE(ChainRun::Holds(r.outData, 3));
}

TEST(RunChain, EveryFailureFreesWhatTheRunMade) {
    struct Case {
        const char* what;
        Behaviour first, last;
        bool lastCalled;
    };
    Behaviour refuse, fail, allocFail, thrower;
    refuse.refuseFormat = true;
    fail.fail = true;
    allocFail.allocateThenFail = true;
    thrower.throwInConvert = true;
    const Case cases[] = {
        {"inner stage proposes nothing", refuse, {}, false},
        {"inner stage fails", fail, {}, false},
        {"inner stage fails after allocating", allocFail, {}, false},
        {"inner stage throws", thrower, {}, false},
        {"last stage fails", {}, fail, true},
        {"last stage fails after allocating", {}, allocFail, true},
        {"last stage throws", {}, thrower, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ChainRun r;
        r.flags = KXCONV_KEEP_INPUT;
        FakeStage a(1, c.first), b(2, c.last);
        EXPECT_EQ(r.Go({&a, &b}), KXE_INVALID);
        EXPECT_EQ(r.outData, nullptr);
        EXPECT_EQ(r.caller.Live(), 0u);
        EXPECT_EQ(r.temporaries.Live(), 0u);
        EXPECT_EQ(r.caller.BadFrees() + r.temporaries.BadFrees(), 0);
        EXPECT_EQ(b.seenFlags.size(), c.lastCalled ? 1u : 0u);
        EXPECT_TRUE(ChainRun::Holds(r.pixels, 0));
    }
}

TEST(RunChain, FailedLastStageInPlaceLeavesTheCallersBufferAlone) {
    ChainRun r;
    Behaviour b;
    b.shareAnyway = true;
    b.allocateThenFail = true;
    FakeStage s(1, b);
    EXPECT_EQ(r.Go({&s}), KXE_INVALID);
    EXPECT_EQ(r.outData, r.pixels); // the stage's word, not freed
    EXPECT_EQ(r.caller.BadFrees(), 0);
}

TEST(RunChain, RectangleAccumulatesOverTheStages) {
    struct Case {
        KXRECT inner, last;
        KXRECT expected;
    } cases[] = {
        // Nothing cropped: the whole output.
        {{0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 4, 2}},
        // An inner stage's right end counts only when its bottom is set.
        {{1, 1, 3, 0}, {0, 0, 0, 0}, {1, 1, 4, 2}},
        {{1, 0, 3, 1}, {0, 0, 0, 0}, {1, 0, 3, 1}},
        // The last stage's right end is tested on the right itself.
        {{0, 0, 0, 0}, {0, 0, 3, 0}, {0, 0, 3, 2}},
        {{1, 0, 3, 2}, {2, 1, 4, 0}, {2, 1, 3, 2}},
    };
    for (const auto& c : cases) {
        ChainRun r;
        r.flags = KXCONV_KEEP_INPUT;
        Behaviour bi, bl;
        bi.rect = c.inner;
        bl.rect = c.last;
        FakeStage a(1, bi), b(2, bl);
        ASSERT_EQ(r.Go({&a, &b}), KX_OK);
        const KXRECT& o = r.out.bmi.bmiRect;
        EXPECT_EQ(o.left, c.expected.left);
        EXPECT_EQ(o.top, c.expected.top);
        EXPECT_EQ(o.right, c.expected.right);
        EXPECT_EQ(o.bottom, c.expected.bottom);
        r.caller.Free(r.outData);
    }
}

TEST(RunChain, EmptyChainIsRefused) {
    ChainRun r;
    EXPECT_EQ(r.Go({}), KXE_INVALID);
    EXPECT_EQ(r.outData, nullptr);
}
