// The multi-heap: one logical heap made of several system heaps, each under its own
// lock, so that threads that allocate at the same moment rarely wait for each other.
// Small blocks are cached one per size class and heap and move by atomic exchange; a
// free never waits. The library creates one such heap at load (GetMPHeap); NewAlloc and
// NewFree serve it, and the library's own objects reach it through CKELPHeapObject.
#pragma once

#include <cstddef>
#include <exception>
#include <new>

#include "kelpdefs.h"

namespace kelp {

// Statistics of one heap of a set, six 32-bit words.
typedef struct _MPHEAPSTAT {
    uint32_t Contention;      // entries to the heap's lock that had to wait
    uint32_t TotalAllocs;     // allocations from the heap and from its look-aside table
    uint32_t TotalFrees;      // frees to the heap, to its look-aside table, and delayed
    uint32_t LookasideAllocs; // allocations served by the look-aside table
    uint32_t LookasideFrees;  // frees that went into the look-aside table
    uint32_t DelayedFrees;    // blocks freed from the delayed list
} MPHEAPSTAT;
static_assert(sizeof(_MPHEAPSTAT) == 24, "_MPHEAPSTAT is six 32-bit words");
static_assert(offsetof(_MPHEAPSTAT, Contention) == 0, "_MPHEAPSTAT layout");
static_assert(offsetof(_MPHEAPSTAT, TotalAllocs) == 4, "_MPHEAPSTAT layout");
static_assert(offsetof(_MPHEAPSTAT, TotalFrees) == 8, "_MPHEAPSTAT layout");
static_assert(offsetof(_MPHEAPSTAT, LookasideAllocs) == 12, "_MPHEAPSTAT layout");
static_assert(offsetof(_MPHEAPSTAT, LookasideFrees) == 16, "_MPHEAPSTAT layout");
static_assert(offsetof(_MPHEAPSTAT, DelayedFrees) == 20, "_MPHEAPSTAT layout");

// An opaque heap set.
typedef void* HMPHEAP;

// MpHeapCreate flags. Any other bit fails with error 87.
constexpr uint32_t MPHEAP_ALLOWED_FLAGS = 0x100000FAu;
constexpr uint32_t MPHEAP_ZERO_MEMORY = 0x00000008u; // clear every allocation

// A set of `heapCount` heaps (0: the number of processors plus 4), each with an initial
// size of initialSize / heapCount. Null on failure, with the error in os GetLastError
// terms: 87 for a flag outside MPHEAP_ALLOWED_FLAGS, 8 when memory runs out.
KELP_API HMPHEAP MpHeapCreate(uint32_t flags, uint32_t initialSize, uint32_t heapCount);
// Destroys every heap and every block in them; 1 if all heaps were destroyed.
KELP_API int MpHeapDestroy(HMPHEAP heap);
// A block of `size` bytes, 16-byte aligned, or null. Flags: MPHEAP_ZERO_MEMORY.
KELP_API void* MpHeapAlloc(HMPHEAP heap, uint32_t flags, unsigned int size);
// Re-allocates in the block's own heap; null leaves the old block standing. Never clears.
KELP_API void* MpHeapReAlloc(HMPHEAP heap, void* p, unsigned int size);
// Non-zero on success. Never waits. A pointer that is not a block of this set: 0.
KELP_API int MpHeapFree(HMPHEAP heap, void* p);
// What the system heap says of the caller's pointer as it stands. The system heap knows
// blocks by their start, which lies ahead of the caller's pointer: the answer is the
// system's failure value 0xFFFFFFFF.
KELP_API unsigned int MpHeapSize(HMPHEAP heap, const void* p);
// Non-zero if p is a live block of the set; with null, if every heap is consistent.
KELP_API int MpHeapValidate(HMPHEAP heap, const void* p);
// The largest free block size over the heaps, as the system heaps report it.
KELP_API unsigned int MpHeapCompact(HMPHEAP heap);
// Fills one record per heap. *size is in and out: the needed size (24 bytes per heap)
// is always written back; a smaller size given answers 0 and fills nothing.
KELP_API int MpHeapGetStatistics(HMPHEAP heap, _MPHEAPSTAT* stats, uint32_t* size);

// The library's heap: made by MpHeapInit at load, ended by MpHeapEnd at unload.
KELP_API int MpHeapInit();
KELP_API int MpHeapEnd();
KELP_API HMPHEAP GetMPHeap();

// The library's own exception for a missing heap. ThrowBadAlloc throws a POINTER to the
// one process-wide object; catch it as kelp::bad_alloc*, std::exception* or void*.
class KELP_API bad_alloc : public std::exception {
  public:
    // The text is not copied: pass a string that lives as long as the object.
    explicit bad_alloc(const char* text) noexcept : m_text(text) {}
    ~bad_alloc() override;
    const char* what() const noexcept override;
    // Throws a copy of this object by value.
    [[noreturn]] virtual void Raise() const;

  private:
    const char* m_text;
};

[[noreturn]] KELP_API void ThrowBadAlloc();

struct nothrow_t {
    explicit nothrow_t() = default;
};
inline constexpr nothrow_t nothrow{};

// Allocation from the library's heap with flags 0. Without a library heap the throwing
// forms trace and call ThrowBadAlloc, the nothrow form traces and answers null. With a
// heap, every form answers what the heap gives, null included: a failed allocation
// does not throw.
KELP_API void* NewAlloc(size_t size);
KELP_API void* NewAlloc(size_t size, const char* file, int line); // file and line unused
KELP_API void* NewAlloc(size_t size, const nothrow_t&);
// Ignores null, and does nothing without a library heap.
KELP_API void NewFree(void* p);

// Common base of the library's objects: their plain new and delete go to the library's
// heap. C++ does not let a throwing operator new answer null, so a failed allocation
// throws a kelp::bad_alloc*; use new (kelp::nothrow) T to get null instead. Types
// aligned beyond 16 bytes cannot be made here (the aligned forms are deleted).
class KELP_API CKELPHeapObject {
  public:
    static void* operator new(size_t size) { return Checked(NewAlloc(size)); }
    static void* operator new[](size_t size) { return Checked(NewAlloc(size)); }
    static void* operator new(size_t size, const nothrow_t&) noexcept {
        return NewAlloc(size, nothrow);
    }
    static void* operator new[](size_t size, const nothrow_t&) noexcept {
        return NewAlloc(size, nothrow);
    }
    static void* operator new(size_t size, const std::nothrow_t&) noexcept {
        return NewAlloc(size, nothrow);
    }
    static void* operator new[](size_t size, const std::nothrow_t&) noexcept {
        return NewAlloc(size, nothrow);
    }
    static void* operator new(size_t, void* where) noexcept { return where; }
    static void* operator new[](size_t, void* where) noexcept { return where; }
    static void* operator new(size_t, std::align_val_t) = delete;
    static void* operator new[](size_t, std::align_val_t) = delete;

    static void operator delete(void* p) noexcept { NewFree(p); }
    static void operator delete[](void* p) noexcept { NewFree(p); }
    static void operator delete(void* p, const nothrow_t&) noexcept { NewFree(p); }
    static void operator delete[](void* p, const nothrow_t&) noexcept { NewFree(p); }
    static void operator delete(void* p, const std::nothrow_t&) noexcept { NewFree(p); }
    static void operator delete[](void* p, const std::nothrow_t&) noexcept { NewFree(p); }
    static void operator delete(void*, void*) noexcept {}
    static void operator delete[](void*, void*) noexcept {}

  private:
    static void* Checked(void* p) {
        if (!p) ThrowBadAlloc();
        return p;
    }
};

} // namespace kelp
