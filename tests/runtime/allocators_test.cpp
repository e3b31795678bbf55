#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include <kelp/alloc.h>

using namespace kelp;

TEST(DualAllocator, RoutesByHalfGranularityWithHeader) {
    CDualAllocator a;
    // 32,768 bytes with the 4-byte header go to pages; one byte less to the heap.
    void* page = a.Allocate(32768 - 4, 0);
    void* heap = a.Allocate(32768 - 5, 0);
    ASSERT_TRUE(page && heap);
    EXPECT_EQ(reinterpret_cast<uint32_t*>(page)[-1], CDualAllocator::kPageMarker);
    EXPECT_EQ(a.GetSize(heap), 32768u - 1);
    EXPECT_GE(a.GetSize(page), 32768u);
    EXPECT_EQ(uintptr_t(page) % 16, 0u);
    EXPECT_EQ(uintptr_t(heap) % 16, 0u);
    a.Free(page);
    a.Free(heap);
}

TEST(DualAllocator, HeapBlockSizeFreeTwiceAndReallocateLeavesBoth) {
    CDualAllocator a;
    char* p = static_cast<char*>(a.Allocate(100, 0));
    ASSERT_TRUE(p);
    EXPECT_EQ(a.GetSize(p), 104u);
    memset(p, 0x5A, 100);
    char* q = static_cast<char*>(a.ReAllocate(p, 200, 0));
    ASSERT_TRUE(q);
    EXPECT_NE(p, q);
    EXPECT_EQ(p[99], 0x5A); // the old block stands, uncopied and unfreed
    EXPECT_EQ(a.GetSize(q), 204u);
    a.Free(p);
    a.Free(p); // a second free is harmless, and touches no freed memory
    EXPECT_EQ(a.GetSize(p), 0u);
    EXPECT_EQ(a.ReAllocate(p, 10, 0), nullptr);
    a.Free(q);
    char local[32] = {};
    a.Free(local + 16); // never a block of this allocator: nothing happens
    EXPECT_EQ(a.GetSize(local + 16), 0u);
}

TEST(SingleAllocator, KeepsOneBlockAndTheCapacity) {
    CSingleAllocator s;
    void* a = s.Allocate(100, 0);
    void* b = s.Allocate(50, 0);
    EXPECT_EQ(a, b);
    EXPECT_EQ(s.GetSize(nullptr), 100u);
    void* c = s.Allocate(200, 0);
    ASSERT_TRUE(c);
    EXPECT_EQ(s.GetSize(a), 200u);
    s.Free(nullptr);
    EXPECT_EQ(s.m_pBuffer, nullptr);
    EXPECT_EQ(s.GetSize(nullptr), 200u); // the capacity stays until the next Allocate
}

TEST(SrcAllocator, ServesTheCallersBufferUpToItsCapacity) {
    char buf[64];
    CSrcAllocator s(buf, sizeof buf);
    EXPECT_EQ(s.Allocate(64, 0), buf);
    EXPECT_EQ(s.Allocate(65, 0), nullptr);
    EXPECT_EQ(s.ReAllocate(nullptr, 10, 0), buf);
    EXPECT_EQ(s.GetSize(nullptr), 64u);
    s.Free(buf);
}

TEST(CppAndVirtAllocators, AnswerForTheirOwnBlocksOnly) {
    CCppAllocator c;
    void* p = c.Allocate(77, 0);
    ASSERT_TRUE(p);
    EXPECT_EQ(c.GetSize(p), 77u);
    int local;
    EXPECT_EQ(c.GetSize(&local), 0xFFFFFFFFu); // not a block of the heap
    c.Free(p);

    CVirtAllocator v;
    void* q = v.Allocate(5000, 0);
    ASSERT_TRUE(q);
    EXPECT_EQ(uintptr_t(q) % 4096, 0u);
    EXPECT_EQ(v.GetSize(q), 8192u);
    EXPECT_EQ(v.ReAllocate(q, 8000, 0), q);
    v.Free(q);
    EXPECT_NE(GetCppAllocator(), nullptr);
    EXPECT_NE(GetDualAllocator(), nullptr);
    EXPECT_NE(GetVirtAllocator(), nullptr);
}

namespace {

// Finds two page blocks of one size where the first ends at the second's start (the
// kernel maps top-down, so consecutive blocks meet once the holes below are filled),
// with a pattern written in each. The other blocks it made are freed again.
bool AdjacentBlocks(IAllocator& a, unsigned size, char** low, char** high) {
    std::vector<char*> made;
    bool found = false;
    for (int tries = 0; !found && tries < 64; ++tries) {
        char* next = static_cast<char*>(a.Allocate(size, 0));
        if (!next) break;
        for (char* b : made) {
            if (next + a.GetSize(next) == b || b + a.GetSize(b) == next) {
                *low = std::min(b, next);
                *high = std::max(b, next);
                found = true;
                break;
            }
        }
        made.push_back(next);
    }
    for (char* b : made)
        if (!found || (b != *low && b != *high)) a.Free(b);
    if (!found) return false;
    memset(*low, 0x3C, size);
    memset(*high, 0x5A, size);
    return true;
}

} // namespace

// Page blocks of both page allocators grow where the pages after them are free, and
// fail, keeping the block as it was, where another block stands.
TEST(PageReAllocate, GrowsIntoFreePagesAndFailsAgainstAnotherBlock) {
    CVirtAllocator virt;
    CDualAllocator dual;
    const struct {
        const char* name;
        IAllocator* a;
        unsigned size; // one block
        unsigned lead; // bytes of the block in front of the caller's pointer
    } cases[] = {{"virt", &virt, 3 * 4096, 0}, {"dual", &dual, 40000, 16}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        char *low = nullptr, *high = nullptr;
        ASSERT_TRUE(AdjacentBlocks(*c.a, c.size, &low, &high));
        const unsigned region = c.a->GetSize(low);

        EXPECT_EQ(c.a->ReAllocate(low, region + 1, 0), nullptr);
        EXPECT_EQ(c.a->ReAllocate(low, 0xFFFFFFFFu, 0), nullptr); // no room for 4 GB either
        EXPECT_EQ(c.a->GetSize(low), region);
        EXPECT_EQ(low[c.size - 1], 0x3C);
        EXPECT_EQ(high[0], 0x5A);

        c.a->Free(high);
        const unsigned grown = region + 4096 - c.lead; // one more page than before
        EXPECT_EQ(c.a->ReAllocate(low, grown, 0), low);
        EXPECT_EQ(c.a->GetSize(low), region + 4096);
        EXPECT_EQ(low[0], 0x3C);
        EXPECT_EQ(low[c.size - 1], 0x3C);
        low[grown - 1] = 1; // the new pages are read-write
        if (c.lead) {
            EXPECT_EQ(reinterpret_cast<uint32_t*>(low)[-1], CDualAllocator::kPageMarker);
        }

        c.a->Free(low);
        EXPECT_EQ(c.a->GetSize(low), 0u);
        EXPECT_EQ(c.a->ReAllocate(low, 10, 0), nullptr); // freed: no block to grow
    }
}
