#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include <kelp/mpheap.h>

#include "runtime/kelpos.h"
#include "runtime/mpheap_internal.h"
#include "tracecapture.h"

using namespace kelp;

namespace {

constexpr uint32_t kNotCached = 0xFFFFFFFFu;

std::vector<_MPHEAPSTAT> Stats(HMPHEAP h) {
    std::vector<_MPHEAPSTAT> s(mpheap::HeapCount(h));
    uint32_t size = uint32_t(s.size() * sizeof(_MPHEAPSTAT));
    EXPECT_EQ(MpHeapGetStatistics(h, s.data(), &size), 1);
    return s;
}

// Puts other system services in force for one test.
class ScopedFeatures {
  public:
    explicit ScopedFeatures(mpheap::Features f) : m_old(mpheap::CurrentFeatures()) {
        mpheap::ApplyFeatures(f);
    }
    ~ScopedFeatures() { mpheap::ApplyFeatures(m_old); }

  private:
    mpheap::Features m_old;
};

// Holds locks of a heap set on another thread until released.
class LockHolder {
  public:
    LockHolder(HMPHEAP h, std::vector<uint32_t> heaps)
        : m_thread([this, h, heaps] {
              for (uint32_t i : heaps)
                  mpheap::HeapLock(h, i)->Enter();
              m_held.store(true);
              while (!m_release.load())
                  std::this_thread::yield();
              for (uint32_t i : heaps)
                  mpheap::HeapLock(h, i)->Leave();
          }) {
        while (!m_held.load())
            std::this_thread::yield();
    }
    void Release() {
        m_release.store(true);
        if (m_thread.joinable()) m_thread.join();
    }
    ~LockHolder() { Release(); }

  private:
    std::atomic<bool> m_held{false}, m_release{false};
    std::thread m_thread;
};

struct HeapObject : CKELPHeapObject {
    int values[10];
};

} // namespace

TEST(MpHeap, SizeClassesAndTheCacheEdge) {
    struct Case {
        unsigned size;
        uint32_t sizeClass;
    };
    const Case cases[] = {{0, 1},
                          {1, 2},
                          {8, 2},
                          {9, 3},
                          {100, 14},
                          {2032, 255},
                          {2033, kNotCached},
                          {65536, kNotCached}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.size);
        HMPHEAP h = MpHeapCreate(0, 0, 1);
        ASSERT_TRUE(h);
        void* p = MpHeapAlloc(h, 0, c.size);
        ASSERT_TRUE(p);
        EXPECT_EQ(uintptr_t(p) % 16, 0u);
        EXPECT_EQ(mpheap::SizeClassOf(p), c.sizeClass);
        memset(p, 0xA5, c.size);
        EXPECT_EQ(MpHeapFree(h, p), 1);
        void* q = MpHeapAlloc(h, 0, c.size);
        _MPHEAPSTAT s = Stats(h)[0];
        if (c.sizeClass != kNotCached) {
            EXPECT_EQ(q, p); // freed into the look-aside table and taken back from it
            EXPECT_EQ(s.LookasideFrees, 1u);
            EXPECT_EQ(s.LookasideAllocs, 1u);
        } else {
            EXPECT_EQ(s.LookasideFrees, 0u);
            EXPECT_EQ(s.LookasideAllocs, 0u);
        }
        EXPECT_EQ(s.TotalAllocs, 2u);
        EXPECT_EQ(s.TotalFrees, 1u);
        EXPECT_EQ(MpHeapDestroy(h), 1);
    }
}

TEST(MpHeap, SecondFreeGoesToTheHeapOrTheDelayedListWhenTheLockIsBusy) {
    HMPHEAP h = MpHeapCreate(0, 0, 1);
    ASSERT_TRUE(h);
    void* a = MpHeapAlloc(h, 0, 64);
    void* b = MpHeapAlloc(h, 0, 64);
    void* c = MpHeapAlloc(h, 0, 64);
    ASSERT_TRUE(a && b && c);
    EXPECT_EQ(MpHeapFree(h, a), 1); // look-aside
    EXPECT_EQ(MpHeapFree(h, b), 1); // the entry is taken: straight to the heap
    _MPHEAPSTAT s = Stats(h)[0];
    EXPECT_EQ(s.LookasideFrees, 1u);
    EXPECT_EQ(s.TotalFrees, 2u);
    {
        LockHolder busy(h, {0});
        EXPECT_EQ(MpHeapFree(h, c), 1); // returns at once, the block waits on the list
        EXPECT_EQ(mpheap::PendingDelayedFrees(h), 1u);
        EXPECT_EQ(Stats(h)[0].TotalFrees, 2u);
    }
    EXPECT_EQ(MpHeapAlloc(h, 0, 64), a); // the look-aside block first
    void* d = MpHeapAlloc(h, 0, 64);     // then the heap, which drains the list
    ASSERT_TRUE(d);
    EXPECT_EQ(mpheap::PendingDelayedFrees(h), 0u);
    s = Stats(h)[0];
    EXPECT_EQ(s.DelayedFrees, 1u);
    EXPECT_EQ(s.LookasideAllocs, 1u);
    EXPECT_EQ(s.TotalAllocs - s.TotalFrees, 2u); // a and d are live
    EXPECT_EQ(MpHeapFree(h, a), 1);
    EXPECT_EQ(MpHeapFree(h, d), 1);
    EXPECT_EQ(MpHeapValidate(h, nullptr), 1);
    EXPECT_EQ(MpHeapDestroy(h), 1);
}

TEST(MpHeap, AllocationTakesAFreeHeapAndStaysThere) {
    HMPHEAP h = MpHeapCreate(0, 0, 3);
    ASSERT_TRUE(h);
    std::vector<void*> blocks;
    {
        LockHolder busy(h, {0, 1});
        for (int k = 0; k < 3; ++k) {
            blocks.push_back(MpHeapAlloc(h, 0, 3000));
            EXPECT_EQ(mpheap::OwnerIndex(h, blocks.back()), 2u);
        }
    }
    blocks.push_back(MpHeapAlloc(h, 0, 3000)); // no contention now: still heap 2
    EXPECT_EQ(mpheap::OwnerIndex(h, blocks.back()), 2u);
    for (void* p : blocks)
        EXPECT_EQ(MpHeapFree(h, p), 1);
    EXPECT_EQ(MpHeapDestroy(h), 1);
}

TEST(MpHeap, WithoutTryLockAllocationWaitsAndFreesBypassTheCache) {
    ScopedFeatures blocking({true, false, false});
    HMPHEAP h = MpHeapCreate(0, 0, 2);
    ASSERT_TRUE(h);
    void* p = MpHeapAlloc(h, 0, 64);
    ASSERT_TRUE(p);
    EXPECT_EQ(MpHeapFree(h, p), 1);
    EXPECT_EQ(Stats(h)[0].LookasideFrees + Stats(h)[1].LookasideFrees, 0u);

    // A new thread starts at heap 0; heap 1 is free but it must wait for heap 0.
    LockHolder busy(h, {0});
    std::atomic<bool> done{false};
    void* q = nullptr;
    std::thread t([&] {
        q = MpHeapAlloc(h, 0, 64);
        done.store(true);
    });
    // The lock counts the thread's wait as it starts; heap 1 stays untouched meanwhile.
    for (int ms = 0; ms < 5000 && Stats(h)[0].Contention == 0; ++ms)
        os::Sleep(1);
    EXPECT_EQ(Stats(h)[0].Contention, 1u);
    os::Sleep(20);
    EXPECT_FALSE(done.load());
    busy.Release();
    t.join();
    EXPECT_EQ(mpheap::OwnerIndex(h, q), 0u);
    EXPECT_EQ(MpHeapFree(h, q), 1);
    EXPECT_EQ(MpHeapDestroy(h), 1);
}

TEST(MpHeap, WithoutTheThreadSlotAllocationsWalkTheHeapsInTurn) {
    ScopedFeatures noSlot({false, true, true});
    HMPHEAP h = MpHeapCreate(0, 0, 3);
    ASSERT_TRUE(h);
    std::vector<void*> blocks;
    for (int k = 0; k < 7; ++k)
        blocks.push_back(MpHeapAlloc(h, 0, 3000));
    for (size_t k = 1; k < blocks.size(); ++k)
        EXPECT_EQ(mpheap::OwnerIndex(h, blocks[k]), (mpheap::OwnerIndex(h, blocks[k - 1]) + 1) % 3);
    for (void* p : blocks)
        EXPECT_EQ(MpHeapFree(h, p), 1);
    EXPECT_EQ(MpHeapDestroy(h), 1);
}

TEST(MpHeap, CreateAcceptsOnlyTheFlagMask) {
    struct Case {
        uint32_t flags;
        bool ok;
    };
    const Case cases[] = {{0x1, false},        {0x4, false},        {0x100, false},
                          {0x20000000, false}, {0x80000000, false}, {0x100000FB, false},
                          {0x2, true},         {0x8, true},         {0x10, true},
                          {0x80, true},        {0x10000000, true},  {0x100000FA, true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.flags);
        os::SetLastError(0);
        HMPHEAP h = MpHeapCreate(c.flags, 4096, 2);
        EXPECT_EQ(h != nullptr, c.ok);
        if (!c.ok) {
            EXPECT_EQ(os::GetLastError(), 87u);
        }
        if (h) {
            EXPECT_EQ(MpHeapDestroy(h), 1);
        }
    }
    // The clear flag kept in the set clears a block that comes from the cache.
    HMPHEAP h = MpHeapCreate(MPHEAP_ZERO_MEMORY, 0, 1);
    ASSERT_TRUE(h);
    unsigned char* p = static_cast<unsigned char*>(MpHeapAlloc(h, 0, 200));
    memset(p, 0xEE, 200);
    MpHeapFree(h, p);
    unsigned char* q = static_cast<unsigned char*>(MpHeapAlloc(h, 0, 200));
    ASSERT_EQ(q, p);
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(q[i], 0) << i;
    MpHeapFree(h, q);
    EXPECT_EQ(MpHeapDestroy(h), 1);
}

TEST(MpHeap, StatisticsSizeProtocol) {
    HMPHEAP h = MpHeapCreate(0, 0, 3);
    ASSERT_TRUE(h);
    void* p = MpHeapAlloc(h, 0, 10);
    _MPHEAPSTAT stats[4];
    memset(stats, 0xFF, sizeof stats);
    for (uint32_t given : {0u, 71u}) {
        uint32_t size = given;
        EXPECT_EQ(MpHeapGetStatistics(h, stats, &size), 0);
        EXPECT_EQ(size, 72u);
        EXPECT_EQ(stats[0].TotalAllocs, 0xFFFFFFFFu); // nothing written
    }
    uint32_t size = sizeof stats;
    EXPECT_EQ(MpHeapGetStatistics(h, stats, &size), 1);
    EXPECT_EQ(size, 72u);
    EXPECT_EQ(stats[0].TotalAllocs + stats[1].TotalAllocs + stats[2].TotalAllocs, 1u);
    EXPECT_EQ(stats[0].TotalFrees + stats[1].TotalFrees + stats[2].TotalFrees, 0u);
    EXPECT_EQ(stats[3].TotalAllocs, 0xFFFFFFFFu); // beyond the needed size: untouched
    MpHeapFree(h, p);
    EXPECT_EQ(MpHeapDestroy(h), 1);
}

TEST(MpHeap, ReAllocKeepsContentsAndRewritesTheClass) {
    HMPHEAP h = MpHeapCreate(0, 0, 2);
    ASSERT_TRUE(h);
    unsigned char* p = static_cast<unsigned char*>(MpHeapAlloc(h, 0, 2032));
    for (int i = 0; i < 2032; ++i)
        p[i] = uint8_t(i * 7);
    unsigned char* q = static_cast<unsigned char*>(MpHeapReAlloc(h, p, 5000));
    ASSERT_TRUE(q);
    EXPECT_EQ(mpheap::SizeClassOf(q), kNotCached);
    unsigned char* r = static_cast<unsigned char*>(MpHeapReAlloc(h, q, 100));
    ASSERT_TRUE(r);
    EXPECT_EQ(mpheap::SizeClassOf(r), 14u);
    EXPECT_EQ(MpHeapReAlloc(h, r, 0xFFFFFFFFu), nullptr); // fails; the block stands
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(r[i], uint8_t(i * 7)) << i;
    EXPECT_EQ(MpHeapValidate(h, r), 1);
    EXPECT_EQ(MpHeapFree(h, r), 1);
    EXPECT_EQ(MpHeapDestroy(h), 1);
}

TEST(MpHeap, QuestionsAboutForeignAddressesFailSafely) {
    HMPHEAP h = MpHeapCreate(0, 0, 2);
    HMPHEAP other = MpHeapCreate(0, 0, 2);
    ASSERT_TRUE(h && other);
    void* p = MpHeapAlloc(h, 0, 40);
    void* foreign = MpHeapAlloc(other, 0, 40);
    alignas(16) unsigned char local[64] = {};
    EXPECT_EQ(MpHeapValidate(h, p), 1);
    EXPECT_EQ(MpHeapValidate(h, nullptr), 1);
    EXPECT_EQ(MpHeapValidate(h, local + 16), 0);
    EXPECT_EQ(MpHeapValidate(h, local + 17), 0);
    EXPECT_EQ(MpHeapValidate(h, reinterpret_cast<void*>(uintptr_t(4096))), 0);
    EXPECT_EQ(MpHeapValidate(h, foreign), 0);
    // The system heap knows its blocks by their start, not by the caller's pointer.
    EXPECT_EQ(MpHeapSize(h, p), 0xFFFFFFFFu);
    os::SetLastError(0);
    EXPECT_EQ(MpHeapFree(h, local + 16), 0);
    EXPECT_EQ(os::GetLastError(), 87u);
    EXPECT_EQ(MpHeapFree(h, foreign), 0);
    EXPECT_EQ(MpHeapReAlloc(h, local + 16, 10), nullptr);
    EXPECT_EQ(MpHeapFree(other, foreign), 1);
    EXPECT_EQ(MpHeapFree(h, p), 1);
    EXPECT_EQ(MpHeapDestroy(other), 1);
    EXPECT_EQ(MpHeapDestroy(h), 1);
}

TEST(NewAlloc, ServesTheLibraryHeapAndAnswersNullForImpossibleSizes) {
    HMPHEAP lib = GetMPHeap();
    ASSERT_TRUE(lib);
    void* p = NewAlloc(100);
    EXPECT_NE(mpheap::OwnerIndex(lib, p), 0xFFFFFFFFu);
    NewFree(p);
    NewFree(nullptr);

    kelptest::SinkClear();
    EXPECT_EQ(NewAlloc(size_t(0xFFFFFFF9u)), nullptr); // rounded size beyond 32 bits
    EXPECT_EQ(NewAlloc(SIZE_MAX, "file", 1), nullptr);
    EXPECT_EQ(NewAlloc(SIZE_MAX, kelp::nothrow), nullptr);
    const std::wstring line = L"**** MpHeapAlloc(): HeapAlloc(4294967295 bytes failed)\n";
    EXPECT_EQ(kelptest::SinkText(8), line + line + line);
    for (const auto& l : kelptest::SinkLines())
        EXPECT_EQ(l.level, 2u);

    HeapObject* o = new HeapObject;
    EXPECT_NE(mpheap::OwnerIndex(lib, o), 0xFFFFFFFFu);
    delete o;
    const size_t huge = (size_t(1) << 36) / sizeof(HeapObject);
    EXPECT_EQ(new (kelp::nothrow) HeapObject[huge], nullptr);
    EXPECT_EQ(new (std::nothrow) HeapObject[huge], nullptr);
    EXPECT_THROW(new HeapObject[huge], kelp::bad_alloc*);
    alignas(16) unsigned char place[sizeof(HeapObject)];
    EXPECT_EQ(new (place) HeapObject, static_cast<void*>(place));
}

TEST(NewAlloc, WithoutALibraryHeapTracesAndThrowsOrAnswersNull) {
    HMPHEAP lib = mpheap::ExchangeLibraryHeap(nullptr);
    kelptest::SinkClear();
    EXPECT_THROW(NewAlloc(16), kelp::bad_alloc*);
    EXPECT_THROW(NewAlloc(16, "file", 2), kelp::bad_alloc*);
    EXPECT_EQ(NewAlloc(16, kelp::nothrow), nullptr);
    EXPECT_THROW(new HeapObject, kelp::bad_alloc*);
    int local;
    NewFree(&local); // nothing to free it to: ignored
    mpheap::ExchangeLibraryHeap(lib);
    const std::wstring line = L"**** operator new(): CMpHeap::m_hMpHeap == NULL\n";
    EXPECT_EQ(kelptest::SinkText(8), line + line + line + line);
}

TEST(ThrowBadAlloc, ThrowsAPointerToTheOneObject) {
    bad_alloc* first = nullptr;
    try {
        ThrowBadAlloc();
    } catch (bad_alloc* e) {
        first = e;
    }
    ASSERT_TRUE(first);
    EXPECT_STREQ(first->what(), "bad allocation");
    try {
        ThrowBadAlloc();
    } catch (std::exception* e) {
        EXPECT_EQ(e, first);
    }
    try {
        ThrowBadAlloc();
    } catch (void* e) {
        EXPECT_EQ(e, first);
    }
    try {
        first->Raise();
    } catch (const bad_alloc& e) { // a copy, by value
        EXPECT_NE(&e, first);
        EXPECT_STREQ(e.what(), "bad allocation");
    }
}
