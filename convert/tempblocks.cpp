// Frame-sized intermediate blocks kept from one run of a chain to the next.
#include "tempblocks.h"

#include <cstring>

#include "runtime/kelpos.h"

namespace kelp {

CTempBlocks::~CTempBlocks() {
    Release();
}

// The blocks CDualAllocator serves with pages: the size with its 4-byte header at least
// half the allocation granularity. Smaller ones come from the process heap, which keeps
// its freed memory by itself.
bool CTempBlocks::FrameSized(unsigned int size) const {
    return uint64_t(size) + 4 >= os::AllocationGranularity() / 2;
}

bool CTempBlocks::Untrack(void* p, unsigned* size) {
    for (unsigned i = 0; i < m_lentCount; ++i) {
        if (m_lent[i].p != p) continue;
        *size = m_lent[i].size;
        m_lent[i] = m_lent[--m_lentCount];
        return true;
    }
    return false;
}

void* CTempBlocks::Allocate(unsigned int size, uint32_t flags) {
    if (!FrameSized(size)) return m_system->Allocate(size, flags);
    void* p = nullptr;
    unsigned capacity = 0;
    {
        CKELPAutoLock lock(&m_lock);
        // The smallest kept block that holds the size.
        unsigned best = kKeep;
        for (unsigned i = 0; i < m_keptCount; ++i)
            if (m_kept[i].size >= size && (best == kKeep || m_kept[i].size < m_kept[best].size))
                best = i;
        if (best != kKeep && m_lentCount < kLent) {
            p = m_kept[best].p;
            capacity = m_kept[best].size;
            m_kept[best] = m_kept[--m_keptCount];
            m_lent[m_lentCount++] = Block{p, capacity, true};
        }
    }
    if (p) {
        std::memset(p, 0, size);
        return p;
    }
    p = m_system->Allocate(size, flags);
    if (!p) return nullptr;
    CKELPAutoLock lock(&m_lock);
    unsigned stale;
    Untrack(p, &stale);
    if (m_lentCount < kLent) m_lent[m_lentCount++] = Block{p, size, true};
    return p;
}

void* CTempBlocks::ReAllocate(void* p, unsigned int size, uint32_t flags) {
    if (p) {
        CKELPAutoLock lock(&m_lock);
        unsigned ignored;
        Untrack(p, &ignored);
    }
    return m_system->ReAllocate(p, size, flags);
}

unsigned int CTempBlocks::GetSize(void* p) {
    return m_system->GetSize(p);
}

void CTempBlocks::Free(void* p) {
    if (!p) return;
    {
        CKELPAutoLock lock(&m_lock);
        unsigned size;
        if (Untrack(p, &size) && m_keptCount < kKeep) {
            m_kept[m_keptCount++] = Block{p, size, true};
            return;
        }
    }
    m_system->Free(p);
}

void CTempBlocks::EndRun() {
    void* drop[kKeep];
    unsigned dropped = 0;
    {
        CKELPAutoLock lock(&m_lock);
        // A block still out at the end of a run is no temporary of it: it went on to the
        // caller, and is no longer this allocator's to keep.
        m_lentCount = 0;
        for (unsigned i = 0; i < m_keptCount;) {
            if (m_kept[i].touched) {
                m_kept[i++].touched = false;
                continue;
            }
            drop[dropped++] = m_kept[i].p;
            m_kept[i] = m_kept[--m_keptCount];
        }
    }
    for (unsigned i = 0; i < dropped; ++i)
        m_system->Free(drop[i]);
}

void CTempBlocks::Release() {
    void* drop[kKeep];
    unsigned dropped = 0;
    {
        CKELPAutoLock lock(&m_lock);
        for (unsigned i = 0; i < m_keptCount; ++i)
            drop[dropped++] = m_kept[i].p;
        m_keptCount = 0;
    }
    for (unsigned i = 0; i < dropped; ++i)
        m_system->Free(drop[i]);
}

unsigned CTempBlocks::KeptCount() {
    CKELPAutoLock lock(&m_lock);
    return m_keptCount;
}

} // namespace kelp
