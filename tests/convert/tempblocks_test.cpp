// The blocks a manager keeps between runs: which are kept, what is handed out again,
// what goes back to the system and when.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "convert/tempblocks.h"
#include "kxbihtest.h"
#include "runtime/kelpos.h"

using namespace kelp;
using kelptest::TrackingAllocator;

namespace {

// The smallest block that the pages would serve, and a few sizes around it.
unsigned Frame(unsigned extra = 0) {
    return unsigned(os::AllocationGranularity() / 2) - 4 + extra;
}

bool AllZero(const void* p, unsigned n) {
    const unsigned char* b = static_cast<const unsigned char*>(p);
    for (unsigned i = 0; i < n; ++i)
        if (b[i] != 0) return false;
    return true;
}

} // namespace

TEST(TempBlocks, OnlyFrameSizedBlocksAreKept) {
    struct Case {
        unsigned size;
        bool kept;
    };
    const Case cases[] = {{1, false}, {Frame() - 1, false}, {Frame(), true}, {Frame(4096), true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.size);
        TrackingAllocator system;
        CTempBlocks blocks(&system);
        void* p = blocks.Allocate(c.size, 0);
        ASSERT_NE(p, nullptr);
        blocks.Free(p);
        EXPECT_EQ(blocks.KeptCount(), c.kept ? 1u : 0u);
        EXPECT_EQ(system.Live(), c.kept ? 1u : 0u);
        void* q = blocks.Allocate(c.size, 0);
        if (c.kept) {
            EXPECT_EQ(q, p);
        }
        EXPECT_EQ(system.Calls(), c.kept ? 1 : 2);
        blocks.Free(q);
    }
}

TEST(TempBlocks, AKeptBlockComesBackClearedAndTheSmallestThatFitsIsTaken) {
    TrackingAllocator system;
    CTempBlocks blocks(&system);
    void* big = blocks.Allocate(Frame(8000), 0);
    void* small = blocks.Allocate(Frame(100), 0);
    std::memset(big, 0xAB, Frame(8000));
    std::memset(small, 0xCD, Frame(100));
    blocks.Free(big);
    blocks.Free(small);

    void* a = blocks.Allocate(Frame(50), 0); // both fit: the smaller
    EXPECT_EQ(a, small);
    EXPECT_TRUE(AllZero(a, Frame(50)));
    void* b = blocks.Allocate(Frame(200), 0); // only the big one fits
    EXPECT_EQ(b, big);
    EXPECT_TRUE(AllZero(b, Frame(200)));
    void* c = blocks.Allocate(Frame(9000), 0); // none fits: a new one
    EXPECT_NE(c, big);
    EXPECT_NE(c, small);
    EXPECT_EQ(system.Calls(), 3);
    blocks.Free(a);
    blocks.Free(b);
    blocks.Free(c);
    EXPECT_EQ(system.BadFrees(), 0);
}

TEST(TempBlocks, ARunThatLeavesABlockAloneLetsItGo) {
    TrackingAllocator system;
    CTempBlocks blocks(&system);
    void* p = blocks.Allocate(Frame(), 0);
    void* q = blocks.Allocate(Frame(1000), 0);
    blocks.Free(p);
    blocks.Free(q);
    blocks.EndRun(); // both touched in this run: kept
    EXPECT_EQ(blocks.KeptCount(), 2u);

    void* r = blocks.Allocate(Frame(), 0); // the next run takes one of them
    EXPECT_EQ(r, p);
    blocks.Free(r);
    blocks.EndRun(); // the other one went unused
    EXPECT_EQ(blocks.KeptCount(), 1u);
    EXPECT_EQ(system.Live(), 1u);
    EXPECT_TRUE(system.Owns(p));

    blocks.EndRun();
    EXPECT_EQ(blocks.KeptCount(), 0u);
    EXPECT_EQ(system.Live(), 0u);
    EXPECT_EQ(system.BadFrees(), 0);
}

TEST(TempBlocks, BeyondTheKeptNumberBlocksGoBackToTheSystem) {
    TrackingAllocator system;
    std::vector<void*> out;
    {
        CTempBlocks blocks(&system);
        for (unsigned i = 0; i < CTempBlocks::kKeep + 2; ++i)
            out.push_back(blocks.Allocate(Frame(i), 0));
        for (void* p : out)
            blocks.Free(p);
        EXPECT_EQ(blocks.KeptCount(), CTempBlocks::kKeep);
        EXPECT_EQ(system.Live(), size_t(CTempBlocks::kKeep));
    }
    EXPECT_EQ(system.Live(), 0u); // the destructor frees what is kept
    EXPECT_EQ(system.BadFrees(), 0);
}

TEST(TempBlocks, BlocksThatChangeSizeOrOutliveTheRunAreNotKept) {
    TrackingAllocator system;
    CTempBlocks blocks(&system);
    // Re-allocated: its size is no longer known here.
    void* p = blocks.Allocate(Frame(), 0);
    void* q = blocks.ReAllocate(p, Frame(500), 0);
    blocks.Free(p);
    blocks.Free(q);
    EXPECT_EQ(blocks.KeptCount(), 0u);
    // Still out when the run ends: it went on to someone else.
    void* r = blocks.Allocate(Frame(), 0);
    blocks.EndRun();
    blocks.Free(r);
    EXPECT_EQ(blocks.KeptCount(), 0u);
    EXPECT_EQ(system.Live(), 0u);
    EXPECT_EQ(system.BadFrees(), 0);
}

TEST(TempBlocks, AFailedAllocationGivesNull) {
    TrackingAllocator system;
    system.FailFrom(1);
    CTempBlocks blocks(&system);
    EXPECT_EQ(blocks.Allocate(Frame(), 0), nullptr);
    EXPECT_EQ(blocks.Allocate(16, 0), nullptr);
    EXPECT_EQ(blocks.KeptCount(), 0u);
}
