// Several threads allocate from one heap set and free each other's blocks.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include <kelp/mpheap.h>

#include "runtime/mpheap_internal.h"

using namespace kelp;

namespace {

struct Block {
    unsigned char* p;
    uint32_t size;
    uint32_t id;
};

uint8_t PatternByte(uint32_t id, uint32_t i) {
    return uint8_t(id * 131u + i * 7u + (i >> 8));
}

void Fill(const Block& b) {
    for (uint32_t i = 0; i < b.size; ++i)
        b.p[i] = PatternByte(b.id, i);
}

bool Intact(const Block& b) {
    for (uint32_t i = 0; i < b.size; ++i)
        if (b.p[i] != PatternByte(b.id, i)) return false;
    return true;
}

// Blocks handed from one thread to the next.
struct Mailbox {
    std::mutex lock;
    std::vector<Block> blocks;
    void Put(const Block& b) {
        std::lock_guard<std::mutex> g(lock);
        blocks.push_back(b);
    }
    std::vector<Block> TakeAll() {
        std::lock_guard<std::mutex> g(lock);
        std::vector<Block> out;
        out.swap(blocks);
        return out;
    }
};

struct Totals {
    std::atomic<uint32_t> allocated{0}, freed{0}, damaged{0}, failedFrees{0};
};

} // namespace

TEST(MpHeapThreads, BlocksFreedAcrossThreadsAreNeverLostDoubledOrDamaged) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 1500;
    for (uint32_t heaps : {1u, 2u, 0u}) {
        SCOPED_TRACE(heaps);
        HMPHEAP h = MpHeapCreate(0, 0, heaps);
        ASSERT_TRUE(h);
        Mailbox boxes[kThreads];
        Totals totals;
        std::atomic<uint32_t> nextId{1};

        auto Release = [&](const Block& b) {
            if (!Intact(b)) totals.damaged.fetch_add(1);
            if (MpHeapFree(h, b.p) != 1) totals.failedFrees.fetch_add(1);
            totals.freed.fetch_add(1);
        };
        auto Worker = [&](int t) {
            std::mt19937 rng(1234u + unsigned(t) * 77u + heaps);
            std::vector<Block> own;
            for (int round = 0; round < kRounds; ++round) {
                uint32_t size = rng() % 8 == 0 ? 2033 + rng() % 4000 : rng() % 2033;
                Block b{static_cast<unsigned char*>(MpHeapAlloc(h, 0, size)), size,
                        nextId.fetch_add(1)};
                if (!b.p) continue;
                totals.allocated.fetch_add(1);
                Fill(b);
                switch (rng() % 3) {
                case 0: // to the next thread
                    boxes[(t + 1) % kThreads].Put(b);
                    break;
                case 1: // kept for a while: a live set
                    own.push_back(b);
                    break;
                default: // freed at once: the look-aside path
                    Release(b);
                }
                if (own.size() > 40) {
                    size_t k = rng() % own.size();
                    Release(own[k]);
                    own[k] = own.back();
                    own.pop_back();
                }
                if (round % 16 == 0)
                    for (const Block& r : boxes[t].TakeAll())
                        Release(r);
            }
            for (const Block& r : own)
                Release(r);
        };
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back(Worker, t);
        for (auto& th : threads)
            th.join();
        for (auto& box : boxes)
            for (const Block& r : box.TakeAll())
                Release(r);

        EXPECT_EQ(totals.allocated.load(), uint32_t(kThreads * kRounds));
        EXPECT_EQ(totals.freed.load(), totals.allocated.load());
        EXPECT_EQ(totals.damaged.load(), 0u);
        EXPECT_EQ(totals.failedFrees.load(), 0u);

        // Every caller block is freed. The counters kept under the locks are exact: what
        // the system heaps still hold is cached in look-aside entries or waits on a
        // delayed list. The look-aside counters are bumped without a lock and may have
        // lost a count to a race, never gained one.
        uint32_t n = mpheap::HeapCount(h);
        std::vector<_MPHEAPSTAT> s(n);
        uint32_t size = n * uint32_t(sizeof(_MPHEAPSTAT));
        ASSERT_EQ(MpHeapGetStatistics(h, s.data(), &size), 1);
        uint32_t heapAllocs = 0, heapFrees = 0, cacheAllocs = 0, cacheFrees = 0;
        for (const auto& x : s) {
            heapAllocs += x.TotalAllocs - x.LookasideAllocs;
            heapFrees += x.TotalFrees - x.LookasideFrees;
            cacheAllocs += x.LookasideAllocs;
            cacheFrees += x.LookasideFrees;
        }
        const uint32_t pending = mpheap::PendingDelayedFrees(h);
        const uint32_t cached = mpheap::CachedBlocks(h);
        EXPECT_EQ(heapAllocs - heapFrees, cached + pending);
        const uint32_t trueCacheAllocs = totals.allocated.load() - heapAllocs;
        const uint32_t trueCacheFrees = totals.freed.load() - heapFrees - pending;
        EXPECT_LE(cacheAllocs, trueCacheAllocs);
        EXPECT_GE(cacheAllocs, trueCacheAllocs - trueCacheAllocs / 10);
        EXPECT_LE(cacheFrees, trueCacheFrees);
        EXPECT_GE(cacheFrees, trueCacheFrees - trueCacheFrees / 10);
        EXPECT_EQ(MpHeapValidate(h, nullptr), 1);
        EXPECT_EQ(MpHeapDestroy(h), 1);
    }
}
