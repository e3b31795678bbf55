// Inside the multi-heap: which system services its paths may use, and the inspection
// calls that its tests need. Not part of the exported interface.
#pragma once

#include <cstdint>

#include <kelp/mpheap.h>

#include "kelpos.h"

namespace kelp {
namespace mpheap {

// The system services the multi-heap can use. Without the thread slot a thread has no
// preferred heap and allocations start at a round-robin counter; without a try-lock or
// compare-and-exchange, allocation waits for the first heap it meets and frees wait for
// the owner's lock, without the look-aside table.
struct Features {
    bool threadSlot;
    bool tryEnter;
    bool compareExchange;
};

// The one decision about what the system offers. Every system this builds for has all
// three.
Features SystemFeatures();
// The features in force. Until the heap's thread slot is made at load, none.
Features CurrentFeatures();
// Puts `f` in force: takes or frees the thread slot and sets the switches. Only while no
// other thread uses a heap.
void ApplyFeatures(const Features& f);

// Inspection, for tests. Each answers 0xFFFFFFFF for a pointer that is not a live block
// of the set (OwnerIndex) or for a size class that is never cached (SizeClassOf).
uint32_t OwnerIndex(HMPHEAP heap, const void* p);
uint32_t SizeClassOf(const void* p);
uint32_t HeapCount(HMPHEAP heap);
// The lock of heap i of the set.
os::CriticalSection* HeapLock(HMPHEAP heap, uint32_t i);
// Blocks waiting on the delayed lists of all heaps. Only while no other thread frees.
uint32_t PendingDelayedFrees(HMPHEAP heap);
// Blocks held in the look-aside entries of all heaps.
uint32_t CachedBlocks(HMPHEAP heap);
// Replaces the library's heap and answers the old one.
HMPHEAP ExchangeLibraryHeap(HMPHEAP heap);

} // namespace mpheap
} // namespace kelp
