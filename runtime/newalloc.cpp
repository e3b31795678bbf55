// The library's heap, the allocation entries that serve it, and the exception that
// reports its absence.
#include <kelp/mpheap.h>
#include <kelp/trace.h>

#include <atomic>
#include <new>

#include "module.h"
#include "mpheap_internal.h"

namespace kelp {
namespace {

std::atomic<HMPHEAP> g_hMpHeap{nullptr};

alignas(bad_alloc) unsigned char g_badAllocStorage[sizeof(bad_alloc)];
std::atomic<bad_alloc*> g_badAlloc{nullptr};

void TraceNoHeap() {
    dbgPrintf(8, 2, L"**** operator new(): CMpHeap::m_hMpHeap == NULL\n");
}

} // namespace

// ---------------------------------------------------------------- the library's heap

int MpHeapInit() {
    if (g_hMpHeap.load()) return 1;
    HMPHEAP h = MpHeapCreate(0, 0, 0);
    g_hMpHeap.store(h);
    return h != nullptr;
}

int MpHeapEnd() {
    HMPHEAP h = g_hMpHeap.exchange(nullptr);
    if (h) MpHeapDestroy(h);
    return 1;
}

HMPHEAP GetMPHeap() {
    return g_hMpHeap.load(std::memory_order_acquire);
}

HMPHEAP mpheap::ExchangeLibraryHeap(HMPHEAP heap) {
    return g_hMpHeap.exchange(heap);
}

// ---------------------------------------------------------------- new and delete

// A size beyond 32 bits goes to the heap as the largest request, which fails there.
static unsigned int HeapRequest(size_t size) {
    return size > 0xFFFFFFFFu ? 0xFFFFFFFFu : unsigned(size);
}

void* NewAlloc(size_t size) {
    HMPHEAP h = GetMPHeap();
    if (!h) {
        TraceNoHeap();
        ThrowBadAlloc();
    }
    return MpHeapAlloc(h, 0, HeapRequest(size));
}

void* NewAlloc(size_t size, const char*, int) {
    return NewAlloc(size);
}

void* NewAlloc(size_t size, const nothrow_t&) {
    HMPHEAP h = GetMPHeap();
    if (!h) {
        TraceNoHeap();
        return nullptr;
    }
    return MpHeapAlloc(h, 0, HeapRequest(size));
}

void NewFree(void* p) {
    if (!p) return;
    HMPHEAP h = GetMPHeap();
    if (h) MpHeapFree(h, p);
}

// ---------------------------------------------------------------- bad_alloc

bad_alloc::~bad_alloc() {}
const char* bad_alloc::what() const noexcept {
    return m_text ? m_text : "";
}
void bad_alloc::Raise() const {
    throw *this;
}

// Outside the time the library is loaded the object does not exist, and the pointer
// thrown is null.
void ThrowBadAlloc() {
    throw g_badAlloc.load();
}

void module::ConstructBadAlloc() {
    g_badAlloc.store(new (g_badAllocStorage) bad_alloc("bad allocation"));
}
void module::DestroyBadAlloc() {
    bad_alloc* e = g_badAlloc.exchange(nullptr);
    if (e) e->~bad_alloc();
}

} // namespace kelp
