// The multi-heap: heap sets, the choice of a heap, the look-aside table and the delayed
// free lists.
#include <kelp/mpheap.h>
#include <kelp/trace.h>

#include <cxxabi.h>

#include <atomic>
#include <cstring>
#include <new>

#include "kelpos.h"
#include "module.h"
#include "mpheap_internal.h"

namespace kelp {
namespace {

constexpr uint32_t kNotCached = 0xFFFFFFFFu;
constexpr uint64_t kCacheLimit = 2041; // rounded sizes below this are cached
constexpr uint32_t kClasses = 256;     // class 0 is never used
constexpr uint32_t kRetainedFlags = 0x10000008u;
constexpr uint64_t kLargestBlock = 0xFFFFFFFFu; // rounded sizes are 32-bit quantities
constexpr uint32_t kSlotAbsent = 0xFFFFFFFFu;

struct HeapRecord;

// The header in front of every block: owner and size class. It takes 16 bytes so that
// the caller's pointer keeps the 16-byte alignment of the system heap's blocks; the
// sizes and classes are counted as for an 8-byte header.
struct BlockHeader {
    union {
        HeapRecord* owner;
        BlockHeader* next; // while the block waits on a delayed list
    };
    uint32_t sizeClass; // rounded size / 8, or kNotCached
    uint32_t pad;
};
static_assert(sizeof(BlockHeader) == 16, "block header");

// A statistics counter: a plain increment, not an atomic one. Those of the look-aside
// path are bumped outside any lock, where two threads may lose one of their counts: the
// statistics are estimates. The word is atomic only so that such a race is defined.
class Counter {
  public:
    void Bump() {
        m_value.store(m_value.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
    uint32_t Get() const { return m_value.load(std::memory_order_relaxed); }

  private:
    std::atomic<uint32_t> m_value{0};
};

struct HeapRecord {
    explicit HeapRecord(os::OsHeap* heap) : hHeap(heap) {}

    os::OsHeap* const hHeap; // created unserialised: Lock protects every call on it
    std::atomic<BlockHeader*> DelayedFreeList{nullptr};
    os::CriticalSection Lock;
    Counter AllocCount;
    Counter FreeCount;
    Counter LookasideAllocCount;
    Counter LookasideFreeCount;
    Counter DelayedFreeCount;
    std::atomic<BlockHeader*> Lookaside[kClasses] = {};
};

// The set: four words, then one record per heap. It lives in its own first heap.
struct HeapSet {
    uint32_t count;
    uint32_t flags;
    uint32_t reserved[2];
};
static_assert(sizeof(HeapSet) == 16, "heap set header");
static_assert(alignof(HeapRecord) <= 16, "records follow the 16-byte header");

HeapRecord* Records(HeapSet* set) {
    return reinterpret_cast<HeapRecord*>(reinterpret_cast<char*>(set) + sizeof(HeapSet));
}

// The switches of the system services in use (see mpheap::Features), and the index of
// the thread slot that holds each thread's preferred heap number.
std::atomic<uint32_t> g_slot{kSlotAbsent};
std::atomic<bool> g_tryEnter{false};
std::atomic<bool> g_compareExchange{false};
// Where the next allocation starts while there is no thread slot. Read and written
// without a lock on purpose: two threads that start at the same heap are harmless.
std::atomic<uint32_t> g_roundRobin{0};

// The thread's preferred heap. Storing the number it already holds is skipped: reading
// the slot costs less than writing it.
uintptr_t GetPreferred(uint32_t slot) {
    return uintptr_t(os::TlsGetValue(slot));
}
void SetPreferred(uint32_t slot, uintptr_t old, uint32_t heapNumber) {
    if (slot != kSlotAbsent && old != heapNumber)
        os::TlsSetValue(slot, reinterpret_cast<void*>(uintptr_t(heapNumber)));
}

// Rounded block size and size class of a request: the size rounded up to 8 plus 8 for
// the header; cached below 2,041 bytes.
struct Sizing {
    uint64_t rounded;
    uint32_t sizeClass;
};
Sizing SizeRequest(uint32_t size) {
    uint64_t rounded = ((uint64_t(size) + 7) & ~uint64_t(7)) + 8;
    return {rounded, rounded < kCacheLimit ? uint32_t(rounded / 8) : kNotCached};
}

// The block of a caller's pointer and its owner's number in the set, or null if the
// pointer cannot be a block of the set. Reads the header: the pointer must be readable.
BlockHeader* BlockOf(HeapSet* set, const void* p, uint32_t* index) {
    if (!set || !p || (uintptr_t(p) & 15) != 0) return nullptr;
    BlockHeader* b = reinterpret_cast<BlockHeader*>(uintptr_t(p) - sizeof(BlockHeader));
    uintptr_t offset = uintptr_t(b->owner) - uintptr_t(Records(set));
    if (offset >= uintptr_t(set->count) * sizeof(HeapRecord) || offset % sizeof(HeapRecord))
        return nullptr;
    *index = uint32_t(offset / sizeof(HeapRecord));
    return b;
}

// Gives the whole delayed list back to the system heap. The caller holds the lock.
void Drain(HeapRecord* h) {
    BlockHeader* b = h->DelayedFreeList.exchange(nullptr, std::memory_order_acquire);
    while (b) {
        BlockHeader* next = b->next;
        os::HeapFree(h->hHeap, 0, b);
        h->DelayedFreeCount.Bump();
        b = next;
    }
}

// The allocation from the system heap, with h's lock held; releases it. Kept out of
// line so that the look-aside path stays short.
__attribute__((noinline)) BlockHeader* AllocLocked(HeapRecord* h, uint64_t rounded) {
    BlockHeader* b = nullptr;
    bool locked = true;
    try {
        h->AllocCount.Bump();
        if (h->DelayedFreeList.load(std::memory_order_relaxed)) Drain(h);
        if (rounded <= kLargestBlock)
            b = static_cast<BlockHeader*>(
                os::HeapAlloc(h->hHeap, 0, rounded + sizeof(BlockHeader) - 8));
        h->Lock.Leave();
        locked = false;
    } catch (abi::__forced_unwind&) {
        if (locked) h->Lock.Leave();
        throw;
    } catch (...) {
        dbgPrintf(8, 2, L"**** MpHeapAlloc(): catch(...)\n");
        if (locked) h->Lock.Leave();
        b = nullptr;
    }
    if (!b)
        dbgPrintf(8, 2, L"**** MpHeapAlloc(): HeapAlloc(%lu bytes failed)\n",
                  uint32_t(rounded <= kLargestBlock ? rounded : kLargestBlock));
    return b;
}

} // namespace

// ---------------------------------------------------------------- creation and end

HMPHEAP MpHeapCreate(uint32_t flags, uint32_t initialSize, uint32_t heapCount) {
    if (flags & ~MPHEAP_ALLOWED_FLAGS) {
        os::SetLastError(os::kErrorInvalidParameter);
        return nullptr;
    }
    // This layer locks for itself: the system heaps are never serialised.
    const uint32_t osFlags = (flags & ~kRetainedFlags) | os::kHeapNoSerialize;
    if (heapCount == 0) heapCount = os::ProcessorCount() + 4;
    const size_t eachSize = initialSize / heapCount;

    os::OsHeap* first = os::HeapCreate(osFlags, eachSize);
    if (!first) return nullptr;
    const size_t bytes = sizeof(HeapSet) + size_t(heapCount) * sizeof(HeapRecord);
    void* memory = os::HeapAlloc(first, 0, bytes);
    if (!memory) {
        os::HeapDestroy(first);
        os::SetLastError(os::kErrorNotEnoughMemory);
        return nullptr;
    }
    memset(memory, 0, bytes);
    HeapSet* set = new (memory) HeapSet{};
    set->flags = flags & kRetainedFlags;
    new (&Records(set)[0]) HeapRecord(first);
    set->count = 1;

    for (uint32_t i = 1; i < heapCount; ++i) {
        os::OsHeap* h = os::HeapCreate(osFlags, eachSize);
        if (!h) {
            uint32_t error = os::GetLastError();
            MpHeapDestroy(set);
            os::SetLastError(error);
            return nullptr;
        }
        new (&Records(set)[i]) HeapRecord(h);
        set->count = i + 1;
    }
    return set;
}

int MpHeapDestroy(HMPHEAP heap) {
    HeapSet* set = static_cast<HeapSet*>(heap);
    if (!set) {
        os::SetLastError(os::kErrorInvalidParameter);
        return 0;
    }
    const uint32_t n = set->count;
    set->count = 0;
    HeapRecord* recs = Records(set);
    for (uint32_t i = 0; i < n; ++i)
        recs[i].Lock.Enter();
    // The first heap goes last: it holds the set.
    int result = 1;
    for (uint32_t i = n; i-- > 0;) {
        os::OsHeap* h = recs[i].hHeap;
        recs[i].Lock.Leave();
        recs[i].~HeapRecord();
        if (!os::HeapDestroy(h)) {
            dbgPrintf(8, 2, L"**** MpHeapDestroy(i=%d): HeapDestroy(%08X) failed\n", int32_t(i),
                      uint32_t(uintptr_t(h)));
            result = 0;
        }
    }
    return result;
}

// ---------------------------------------------------------------- allocation

void* MpHeapAlloc(HMPHEAP heap, uint32_t flags, unsigned int size) {
    HeapSet* set = static_cast<HeapSet*>(heap);
    const uint32_t n = set ? set->count : 0;
    if (n == 0) {
        os::SetLastError(os::kErrorInvalidParameter);
        return nullptr;
    }
    flags |= set->flags;
    const Sizing sz = SizeRequest(size);
    HeapRecord* recs = Records(set);

    // Start at the thread's preferred heap, or where the round-robin counter points.
    const uint32_t slot = g_slot.load(std::memory_order_relaxed);
    uintptr_t preferred = ~uintptr_t(0);
    uint32_t start;
    if (slot != kSlotAbsent) {
        preferred = GetPreferred(slot);
        start = preferred < n ? uint32_t(preferred) : 0;
    } else {
        start = g_roundRobin.load(std::memory_order_relaxed);
        g_roundRobin.store(start + 1 >= n ? 0 : start + 1, std::memory_order_relaxed);
    }
    if (start >= n) start = 0;

    // Take a cached block, or the lock of the first heap that is free; wait only when
    // every heap is busy.
    const bool tryEnter = g_tryEnter.load(std::memory_order_relaxed);
    uint32_t i = start;
    HeapRecord* h;
    for (;;) {
        h = &recs[i];
        if (sz.sizeClass != kNotCached &&
            h->Lookaside[sz.sizeClass].load(std::memory_order_relaxed)) {
            BlockHeader* b =
                h->Lookaside[sz.sizeClass].exchange(nullptr, std::memory_order_acquire);
            if (b) {
                // The header is still valid from the block's last use.
                h->LookasideAllocCount.Bump();
                if (flags & MPHEAP_ZERO_MEMORY) memset(b + 1, 0, size);
                SetPreferred(slot, preferred, i);
                return b + 1;
            }
        }
        if (!tryEnter) {
            h->Lock.Enter();
            break;
        }
        if (h->Lock.TryEnter()) break;
        if (++i == n) i = 0;
        if (i == start) {
            h = &recs[i];
            h->Lock.Enter();
            break;
        }
    }

    BlockHeader* b = AllocLocked(h, sz.rounded);
    if (!b) return nullptr;
    b->owner = h;
    b->sizeClass = sz.sizeClass;
    b->pad = 0;
    if (flags & MPHEAP_ZERO_MEMORY) memset(b + 1, 0, size);
    SetPreferred(slot, preferred, i);
    return b + 1;
}

void* MpHeapReAlloc(HMPHEAP heap, void* p, unsigned int size) {
    uint32_t index;
    BlockHeader* b = BlockOf(static_cast<HeapSet*>(heap), p, &index);
    if (!b) {
        os::SetLastError(os::kErrorInvalidParameter);
        return nullptr;
    }
    // The block stays in its owner's heap; the set is not consulted.
    HeapRecord* h = b->owner;
    const Sizing sz = SizeRequest(size);
    h->Lock.Enter();
    BlockHeader* nb = nullptr;
    if (sz.rounded <= kLargestBlock)
        nb = static_cast<BlockHeader*>(
            os::HeapReAlloc(h->hHeap, 0, b, sz.rounded + sizeof(BlockHeader) - 8));
    h->Lock.Leave();
    if (!nb) return nullptr;
    nb->sizeClass = sz.sizeClass;
    return nb + 1;
}

// ---------------------------------------------------------------- free

int MpHeapFree(HMPHEAP heap, void* p) {
    uint32_t index;
    BlockHeader* b = BlockOf(static_cast<HeapSet*>(heap), p, &index);
    if (!b) {
        os::SetLastError(os::kErrorInvalidParameter);
        return 0;
    }
    HeapRecord* h = b->owner;
    // The next allocation of this thread starts where its cached blocks are.
    const uint32_t slot = g_slot.load(std::memory_order_relaxed);
    if (slot != kSlotAbsent) SetPreferred(slot, GetPreferred(slot), index);

    if (g_tryEnter.load(std::memory_order_relaxed) &&
        g_compareExchange.load(std::memory_order_relaxed)) {
        const uint32_t sizeClass = b->sizeClass;
        if (sizeClass > 0 && sizeClass < kClasses) {
            BlockHeader* empty = nullptr;
            if (h->Lookaside[sizeClass].compare_exchange_strong(empty, b, std::memory_order_release,
                                                                std::memory_order_relaxed)) {
                h->LookasideFreeCount.Bump();
                return 1;
            }
        }
        if (h->Lock.TryEnter()) {
            h->FreeCount.Bump();
            bool ok = os::HeapFree(h->hHeap, 0, b);
            h->Lock.Leave();
            return ok ? 1 : 0;
        }
        // The heap is busy: leave the block for the next allocation that holds the lock.
        BlockHeader* head = h->DelayedFreeList.load(std::memory_order_relaxed);
        do {
            b->next = head;
        } while (!h->DelayedFreeList.compare_exchange_weak(head, b, std::memory_order_release,
                                                           std::memory_order_relaxed));
        return 1;
    }

    h->Lock.Enter();
    h->FreeCount.Bump();
    bool ok = os::HeapFree(h->hHeap, 0, b);
    h->Lock.Leave();
    return ok ? 1 : 0;
}

// ---------------------------------------------------------------- questions

unsigned int MpHeapSize(HMPHEAP heap, const void* p) {
    uint32_t index;
    BlockHeader* b = BlockOf(static_cast<HeapSet*>(heap), p, &index);
    if (!b) return unsigned(os::kHeapSizeFailed);
    HeapRecord* h = b->owner;
    // The caller's pointer as it stands, not the block start: the answer is what the
    // system heap says of that address.
    h->Lock.Enter();
    size_t size = os::HeapSize(h->hHeap, 0, p);
    h->Lock.Leave();
    return unsigned(size);
}

int MpHeapValidate(HMPHEAP heap, const void* p) {
    HeapSet* set = static_cast<HeapSet*>(heap);
    if (!set) return 0;
    if (!p) {
        HeapRecord* recs = Records(set);
        for (uint32_t i = 0; i < set->count; ++i) {
            recs[i].Lock.Enter();
            bool ok = os::HeapValidate(recs[i].hHeap, 0, nullptr);
            recs[i].Lock.Leave();
            if (!ok) return 0;
        }
        return 1;
    }
    // Any address may be asked about: the header is probed before it is read.
    if (uintptr_t(p) < sizeof(BlockHeader) ||
        !os::IsReadable(reinterpret_cast<const void*>(uintptr_t(p) - sizeof(BlockHeader)),
                        sizeof(BlockHeader)))
        return 0;
    uint32_t index;
    BlockHeader* b = BlockOf(set, p, &index);
    if (!b) return 0;
    HeapRecord* h = b->owner;
    h->Lock.Enter();
    bool ok = os::HeapValidate(h->hHeap, 0, b);
    h->Lock.Leave();
    return ok ? 1 : 0;
}

unsigned int MpHeapCompact(HMPHEAP heap) {
    HeapSet* set = static_cast<HeapSet*>(heap);
    if (!set) return 0;
    HeapRecord* recs = Records(set);
    size_t largest = 0;
    for (uint32_t i = 0; i < set->count; ++i) {
        recs[i].Lock.Enter();
        size_t s = os::HeapCompact(recs[i].hHeap, 0);
        recs[i].Lock.Leave();
        if (s > largest) largest = s;
    }
    return unsigned(largest);
}

int MpHeapGetStatistics(HMPHEAP heap, _MPHEAPSTAT* stats, uint32_t* size) {
    HeapSet* set = static_cast<HeapSet*>(heap);
    if (!set || !size) {
        os::SetLastError(os::kErrorInvalidParameter);
        return 0;
    }
    const uint64_t need = uint64_t(set->count) * sizeof(_MPHEAPSTAT);
    if (*size < need || !stats) {
        *size = uint32_t(need);
        return 0;
    }
    memset(stats, 0, size_t(need));
    HeapRecord* recs = Records(set);
    for (uint32_t i = 0; i < set->count; ++i) {
        const HeapRecord& h = recs[i];
        _MPHEAPSTAT& s = stats[i];
        s.Contention = h.Lock.Contention();
        s.TotalAllocs = h.AllocCount.Get() + h.LookasideAllocCount.Get();
        s.TotalFrees = h.FreeCount.Get() + h.LookasideFreeCount.Get() + h.DelayedFreeCount.Get();
        s.LookasideAllocs = h.LookasideAllocCount.Get();
        s.LookasideFrees = h.LookasideFreeCount.Get();
        s.DelayedFrees = h.DelayedFreeCount.Get();
    }
    *size = uint32_t(need);
    return 1;
}

// ---------------------------------------------------------------- system services

mpheap::Features mpheap::SystemFeatures() {
    // Every system of this build has thread slots, a try-lock and compare-and-exchange.
    return {true, true, true};
}

mpheap::Features mpheap::CurrentFeatures() {
    return {g_slot.load() != kSlotAbsent, g_tryEnter.load(), g_compareExchange.load()};
}

void mpheap::ApplyFeatures(const Features& f) {
    const uint32_t slot = g_slot.load();
    if (f.threadSlot && slot == kSlotAbsent) {
        g_slot.store(os::TlsAlloc()); // kTlsOutOfIndexes is kSlotAbsent
    } else if (!f.threadSlot && slot != kSlotAbsent) {
        g_slot.store(kSlotAbsent);
        os::TlsFree(slot);
    }
    g_tryEnter.store(f.tryEnter);
    g_compareExchange.store(f.compareExchange);
}

// The thread slot is taken at load, where the system's services are first looked at;
// until then every allocation waits for its lock and starts at the round-robin counter.
void module::ConstructHeapThreadSlot() {
    mpheap::ApplyFeatures(mpheap::SystemFeatures());
}
void module::DestroyHeapThreadSlot() {
    mpheap::Features f = mpheap::CurrentFeatures();
    f.threadSlot = false;
    mpheap::ApplyFeatures(f);
}

// ---------------------------------------------------------------- inspection

uint32_t mpheap::OwnerIndex(HMPHEAP heap, const void* p) {
    uint32_t index;
    if (!MpHeapValidate(heap, p) || !BlockOf(static_cast<HeapSet*>(heap), p, &index))
        return 0xFFFFFFFFu;
    return index;
}

uint32_t mpheap::SizeClassOf(const void* p) {
    return reinterpret_cast<const BlockHeader*>(uintptr_t(p) - sizeof(BlockHeader))->sizeClass;
}

uint32_t mpheap::HeapCount(HMPHEAP heap) {
    return heap ? static_cast<HeapSet*>(heap)->count : 0;
}

os::CriticalSection* mpheap::HeapLock(HMPHEAP heap, uint32_t i) {
    HeapSet* set = static_cast<HeapSet*>(heap);
    return set && i < set->count ? &Records(set)[i].Lock : nullptr;
}

uint32_t mpheap::PendingDelayedFrees(HMPHEAP heap) {
    HeapSet* set = static_cast<HeapSet*>(heap);
    uint32_t pending = 0;
    for (uint32_t i = 0; set && i < set->count; ++i)
        for (BlockHeader* b = Records(set)[i].DelayedFreeList.load(); b; b = b->next)
            ++pending;
    return pending;
}

uint32_t mpheap::CachedBlocks(HMPHEAP heap) {
    HeapSet* set = static_cast<HeapSet*>(heap);
    uint32_t cached = 0;
    for (uint32_t i = 0; set && i < set->count; ++i)
        for (const auto& entry : Records(set)[i].Lookaside)
            if (entry.load()) ++cached;
    return cached;
}

} // namespace kelp
