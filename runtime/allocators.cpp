// The five allocators and the process-wide allocator objects.
#include <kelp/alloc.h>

#include <cstring>
#include <new>

#include "kelpos.h"
#include "module.h"

namespace kelp {

// ---------------------------------------------------------------- CCppAllocator

void* CCppAllocator::Allocate(unsigned int size, uint32_t) {
    return os::HeapAlloc(os::GetProcessHeap(), 0, size);
}
void* CCppAllocator::ReAllocate(void* p, unsigned int size, uint32_t) {
    return os::HeapReAlloc(os::GetProcessHeap(), 0, p, size);
}
unsigned int CCppAllocator::GetSize(void* p) {
    return unsigned(os::HeapSize(os::GetProcessHeap(), 0, p));
}
void CCppAllocator::Free(void* p) { os::HeapFree(os::GetProcessHeap(), 0, p); }

// ---------------------------------------------------------------- CVirtAllocator

void* CVirtAllocator::Allocate(unsigned int size, uint32_t) { return os::PageAlloc(size); }
void* CVirtAllocator::ReAllocate(void* p, unsigned int size, uint32_t) {
    return os::PageReAlloc(p, size);
}
unsigned int CVirtAllocator::GetSize(void* p) { return unsigned(os::PageRegionSize(p)); }
void CVirtAllocator::Free(void* p) { os::PageFree(p); }

// ---------------------------------------------------------------- CDualAllocator
// Every block carries a 4-byte header word right in front of the caller's pointer: the
// size with header for a heap block, the marker for a page block. The word sits at the
// end of a 16-byte lead, so that the caller's pointer keeps the 16-byte alignment of the
// memory below it; the numbers a caller sees (GetSize of a heap block is the requested
// size plus 4) are those of the 4-byte header.

namespace {
constexpr unsigned kLead = 16;

uint32_t* HeaderOf(void* p) { return reinterpret_cast<uint32_t*>(static_cast<char*>(p) - 4); }
char* BaseOf(void* p) { return static_cast<char*>(p) - kLead; }

void* PageBlock(unsigned int size) {
    char* base = static_cast<char*>(os::PageAlloc(size_t(size) + kLead));
    if (!base) return nullptr;
    void* p = base + kLead;
    *HeaderOf(p) = CDualAllocator::kPageMarker;
    return p;
}

void* HeapBlock(unsigned int size) {
    char* base = static_cast<char*>(os::HeapAlloc(os::GetProcessHeap(), 0, size_t(size) + kLead));
    if (!base) return nullptr;
    void* p = base + kLead;
    *HeaderOf(p) = uint32_t(size) + 4;
    return p;
}
} // namespace

void* CDualAllocator::Allocate(unsigned int size, uint32_t) {
    // The route is decided by the size with header against half the granularity,
    // asked of the system on each call.
    uint64_t withHeader = uint64_t(size) + 4;
    if (withHeader > 0xFFFFFFFFu) return nullptr;
    if (withHeader < os::AllocationGranularity() / 2) return HeapBlock(size);
    return PageBlock(size);
}

void* CDualAllocator::ReAllocate(void* p, unsigned int size, uint32_t flags) {
    if (!p) return Allocate(size, flags);
    if (uint64_t(size) + 4 > 0xFFFFFFFFu) return nullptr;
    if (*HeaderOf(p) == kPageMarker) {
        if (!os::PageReAlloc(BaseOf(p), size_t(size) + kLead)) return nullptr;
        *HeaderOf(p) = kPageMarker;
        return p;
    }
    // A heap block stays in the heap however large it gets. The old block is neither
    // copied nor freed: the caller holds both.
    return HeapBlock(size);
}

unsigned int CDualAllocator::GetSize(void* p) {
    if (!p) return 0;
    uint32_t h = *HeaderOf(p);
    if (h == kPageMarker) return unsigned(os::PageRegionSize(BaseOf(p)));
    return h;
}

void CDualAllocator::Free(void* p) {
    if (!p) return;
    // A block freed before is no block of the heap or of the pages any more, and its
    // header is not read: a second free stays harmless without touching memory that
    // went back to the system (pages are unmapped, heap blocks reused).
    if (os::PageRegionSize(BaseOf(p)) == 0 &&
        os::HeapSize(os::GetProcessHeap(), 0, BaseOf(p)) == os::kHeapSizeFailed)
        return;
    uint32_t h = *HeaderOf(p);
    if (h == 0) return; // already freed: a second free of a heap block is harmless
    *HeaderOf(p) = 0;
    if (h == kPageMarker)
        os::PageFree(BaseOf(p));
    else
        os::HeapFree(os::GetProcessHeap(), 0, BaseOf(p));
}

// ---------------------------------------------------------------- CSingleAllocator

CSingleAllocator::~CSingleAllocator() { Free(nullptr); }

void* CSingleAllocator::Allocate(unsigned int size, uint32_t flags) {
    if (m_pBuffer && size <= m_nSize) return m_pBuffer;
    if (m_pBuffer) {
        GetDualAllocator()->Free(m_pBuffer);
        m_pBuffer = nullptr;
    }
    m_nSize = size;
    m_pBuffer = GetDualAllocator()->Allocate(size, flags);
    return m_pBuffer;
}

void* CSingleAllocator::ReAllocate(void*, unsigned int size, uint32_t flags) {
    return Allocate(size, flags);
}

unsigned int CSingleAllocator::GetSize(void*) { return m_nSize; }

void CSingleAllocator::Free(void*) {
    if (m_pBuffer) GetDualAllocator()->Free(m_pBuffer);
    m_pBuffer = nullptr;
}

// ---------------------------------------------------------------- CSrcAllocator

void* CSrcAllocator::Allocate(unsigned int size, uint32_t) {
    return size > m_nSize ? nullptr : m_pBuffer;
}
void* CSrcAllocator::ReAllocate(void*, unsigned int size, uint32_t flags) {
    return Allocate(size, flags);
}
unsigned int CSrcAllocator::GetSize(void*) { return m_nSize; }
void CSrcAllocator::Free(void*) {}

// ---------------------------------------------------------------- process-wide objects

namespace {
alignas(CCppAllocator) unsigned char g_cppStorage[sizeof(CCppAllocator)];
alignas(CDualAllocator) unsigned char g_dualStorage[sizeof(CDualAllocator)];
alignas(CVirtAllocator) unsigned char g_virtStorage[sizeof(CVirtAllocator)];
CCppAllocator* g_cpp = nullptr;
CDualAllocator* g_dual = nullptr;
CVirtAllocator* g_virt = nullptr;
} // namespace

void module::ConstructDualVirtAllocators() {
    g_dual = new (g_dualStorage) CDualAllocator();
    g_virt = new (g_virtStorage) CVirtAllocator();
}
void module::DestroyDualVirtAllocators() {
    g_virt->~CVirtAllocator();
    g_dual->~CDualAllocator();
    g_virt = nullptr;
    g_dual = nullptr;
}
void module::ConstructCppAllocator() { g_cpp = new (g_cppStorage) CCppAllocator(); }
void module::DestroyCppAllocator() {
    g_cpp->~CCppAllocator();
    g_cpp = nullptr;
}

CCppAllocator* GetCppAllocator() { return g_cpp; }
CDualAllocator* GetDualAllocator() { return g_dual; }
CVirtAllocator* GetVirtAllocator() { return g_virt; }

} // namespace kelp
