// Linux: heaps of blocks from the C library, each with a table of its live blocks.
#include "kelpos.h"
#include "kelpos_blocktable.h"

#include <stdlib.h>
#include <string.h>

#include <mutex>
#include <new>

namespace kelp {
namespace os {

struct OsHeap {
    uint32_t flags;
    std::mutex lock;
    BlockTable blocks;
};

namespace {
// Takes the heap's own lock unless the heap or the call asks for no serialisation.
class HeapGuard {
public:
    HeapGuard(OsHeap* h, uint32_t flags)
        : m_h(((h->flags | flags) & kHeapNoSerialize) ? nullptr : h) {
        if (m_h) m_h->lock.lock();
    }
    ~HeapGuard() {
        if (m_h) m_h->lock.unlock();
    }

private:
    OsHeap* m_h;
};
} // namespace

OsHeap* HeapCreate(uint32_t flags, size_t /*initialSize*/) {
    OsHeap* h = new (std::nothrow) OsHeap();
    if (!h) {
        SetLastError(kErrorNotEnoughMemory);
        return nullptr;
    }
    h->flags = flags;
    return h;
}

bool HeapDestroy(OsHeap* heap) {
    if (!heap) return false;
    heap->blocks.ForEach([](uintptr_t key, size_t) { free(reinterpret_cast<void*>(key)); });
    heap->blocks.Release();
    delete heap;
    return true;
}

void* HeapAlloc(OsHeap* heap, uint32_t flags, size_t size) {
    if (!heap) return nullptr;
    HeapGuard g(heap, flags);
    void* p = ((heap->flags | flags) & kHeapZeroMemory) ? calloc(1, size ? size : 1)
                                                        : malloc(size ? size : 1);
    if (!p) {
        SetLastError(kErrorNotEnoughMemory);
        return nullptr;
    }
    if (!heap->blocks.Insert(uintptr_t(p), size)) {
        free(p);
        SetLastError(kErrorNotEnoughMemory);
        return nullptr;
    }
    return p;
}

void* HeapReAlloc(OsHeap* heap, uint32_t flags, void* p, size_t size) {
    if (!heap) return nullptr;
    HeapGuard g(heap, flags);
    const uintptr_t key = uintptr_t(p);
    size_t old;
    if (!heap->blocks.Find(key, &old)) {
        SetLastError(kErrorInvalidParameter);
        return nullptr;
    }
    // The table makes room before realloc: once realloc has run the old block is gone,
    // and the new one must be recorded whatever happens. Erase and insert then keep the
    // table's load as it was, so the insert cannot need to grow.
    if (!heap->blocks.Reserve()) {
        SetLastError(kErrorNotEnoughMemory);
        return nullptr;
    }
    void* q = realloc(p, size ? size : 1);
    if (!q) {
        SetLastError(kErrorNotEnoughMemory);
        return nullptr;
    }
    if (((heap->flags | flags) & kHeapZeroMemory) && size > old)
        memset(static_cast<char*>(q) + old, 0, size - old);
    heap->blocks.Erase(key);
    heap->blocks.Insert(uintptr_t(q), size);
    return q;
}

bool HeapFree(OsHeap* heap, uint32_t flags, void* p) {
    if (!heap || !p) return false;
    HeapGuard g(heap, flags);
    if (!heap->blocks.Erase(uintptr_t(p))) {
        SetLastError(kErrorInvalidParameter);
        return false;
    }
    free(p);
    return true;
}

size_t HeapSize(OsHeap* heap, uint32_t flags, const void* p) {
    if (!heap) return kHeapSizeFailed;
    HeapGuard g(heap, flags);
    size_t size;
    if (!heap->blocks.Find(uintptr_t(p), &size)) return kHeapSizeFailed;
    return size;
}

bool HeapValidate(OsHeap* heap, uint32_t flags, const void* p) {
    if (!heap) return false;
    HeapGuard g(heap, flags);
    if (!p) return true; // the table is consistent by construction
    return heap->blocks.Find(uintptr_t(p), nullptr);
}

size_t HeapCompact(OsHeap* heap, uint32_t flags) {
    // Freed blocks go back to the C library at once; this heap keeps no free blocks
    // of its own, so there is nothing to merge and no largest free block to report.
    if (!heap) return 0;
    HeapGuard g(heap, flags);
    return 0;
}

// The process heap: constant-initialised, so that it exists before any constructor.
static OsHeap* g_processHeap = nullptr;
static std::once_flag g_processHeapOnce;

OsHeap* GetProcessHeap() {
    std::call_once(g_processHeapOnce, [] { g_processHeap = HeapCreate(0, 0); });
    return g_processHeap;
}

} // namespace os
} // namespace kelp
