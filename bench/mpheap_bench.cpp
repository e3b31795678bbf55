// The library's multi-heap against the C library's malloc, in one and two threads:
// the look-aside path (free and re-allocate one small size) and a mixed pattern of
// small sizes over a live set.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include <kelp/mpheap.h>

#include "runtime/mpheap_internal.h"

namespace {

enum Backend { kMpHeap, kMalloc };

inline void* Allocate(Backend b, unsigned size) {
    return b == kMpHeap ? kelp::MpHeapAlloc(kelp::GetMPHeap(), 0, size) : malloc(size);
}
inline void Free(Backend b, void* p) {
    if (b == kMpHeap)
        kelp::MpHeapFree(kelp::GetMPHeap(), p);
    else
        free(p);
}

// One size freed and allocated again: the look-aside path of the multi-heap.
void MpHeap_Lookaside(benchmark::State& state, Backend b) {
    void* warm = Allocate(b, 64);
    Free(b, warm);
    for (auto _ : state) {
        void* p = Allocate(b, 64);
        benchmark::DoNotOptimize(p);
        Free(b, p);
    }
    state.SetItemsProcessed(state.iterations());
    if (b == kMpHeap) {
        // How many of the threads ended on heap 0.
        void* p = Allocate(b, 64);
        state.counters["on_heap0"] = kelp::mpheap::OwnerIndex(kelp::GetMPHeap(), p) == 0;
        Free(b, p);
    }
}

// Puts the calling thread on heap `index` as the designed rules would after a collision:
// a helper holds every other heap's lock while the thread makes one allocation that is
// never cached, so the thread moves on to the one free heap and stays there.
void MoveToHeap(uint32_t index) {
    static std::mutex oneAtATime;
    std::lock_guard<std::mutex> g(oneAtATime);
    kelp::HMPHEAP h = kelp::GetMPHeap();
    const uint32_t n = kelp::mpheap::HeapCount(h);
    std::atomic<bool> held{false}, done{false};
    std::thread helper([&] {
        for (uint32_t k = 0; k < n; ++k)
            if (k != index) kelp::mpheap::HeapLock(h, k)->Enter();
        held = true;
        while (!done)
            std::this_thread::yield();
        for (uint32_t k = 0; k < n; ++k)
            if (k != index) kelp::mpheap::HeapLock(h, k)->Leave();
    });
    while (!held)
        std::this_thread::yield();
    kelp::MpHeapFree(h, kelp::MpHeapAlloc(h, 0, 4000));
    done = true;
    helper.join();
}

// The look-aside loop with every thread on a heap of its own from the start: what the
// threads cost once they have met, for comparison with MpHeap_Lookaside, where they
// start on heap 0 together and meet no lock that would part them.
void MpHeap_Lookaside_Parted(benchmark::State& state) {
    MoveToHeap(uint32_t(state.thread_index()));
    MpHeap_Lookaside(state, kMpHeap);
}

// What the look-aside path cannot do without: one exchange to take a cached block and
// one compare-and-exchange to put it back, on one entry.
void MpHeap_Lookaside_AtomicsOnly(benchmark::State& state) {
    static std::atomic<void*> entry{nullptr};
    void* block = &block;
    for (auto _ : state) {
        void* taken = entry.exchange(nullptr, std::memory_order_acquire);
        benchmark::DoNotOptimize(taken);
        void* empty = nullptr;
        entry.compare_exchange_strong(empty, block, std::memory_order_release,
                                      std::memory_order_relaxed);
    }
    state.SetItemsProcessed(state.iterations());
}

// Sizes 8..2032 bytes in a seeded random pattern over a live set of 256 blocks: each
// step frees the block in one slot and allocates a new one there.
void MpHeap_Mixed(benchmark::State& state, Backend b) {
    constexpr unsigned kSteps = 4096, kLive = 256;
    std::mt19937 rng(2024u + unsigned(state.thread_index()));
    std::vector<unsigned> sizes(kSteps), slots(kSteps);
    for (unsigned i = 0; i < kSteps; ++i) {
        sizes[i] = 8 + rng() % (2032 - 8 + 1);
        slots[i] = rng() % kLive;
    }
    std::vector<void*> live(kLive, nullptr);
    unsigned i = 0;
    for (auto _ : state) {
        unsigned k = i++ & (kSteps - 1);
        void*& slot = live[slots[k]];
        if (slot) Free(b, slot);
        slot = Allocate(b, sizes[k]);
        *static_cast<volatile char*>(slot) = 1;
    }
    for (void* p : live)
        if (p) Free(b, p);
    state.SetItemsProcessed(state.iterations());
}

} // namespace

BENCHMARK_CAPTURE(MpHeap_Lookaside, mpheap, kMpHeap)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK_CAPTURE(MpHeap_Lookaside, malloc, kMalloc)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(MpHeap_Lookaside_Parted)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(MpHeap_Lookaside_AtomicsOnly)->Threads(1)->UseRealTime();
BENCHMARK_CAPTURE(MpHeap_Mixed, mpheap, kMpHeap)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK_CAPTURE(MpHeap_Mixed, malloc, kMalloc)->Threads(1)->Threads(2)->UseRealTime();
