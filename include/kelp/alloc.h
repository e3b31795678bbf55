// Allocators: where an image object, a conversion stage or a codec session gets its
// memory, without knowing where it comes from. The flags argument is reserved: every
// implementation ignores it and callers pass 0.
#pragma once

#include "kelpdefs.h"

namespace kelp {

class KELP_API IAllocator {
public:
    virtual ~IAllocator() {}
    virtual void* Allocate(unsigned int size, uint32_t flags) = 0;
    virtual void* ReAllocate(void* p, unsigned int size, uint32_t flags) = 0;
    virtual unsigned int GetSize(void* p) = 0;
    virtual void Free(void* p) = 0;
};

// The process heap.
class KELP_API CCppAllocator : public IAllocator {
public:
    void* Allocate(unsigned int size, uint32_t flags) override;
    void* ReAllocate(void* p, unsigned int size, uint32_t flags) override;
    unsigned int GetSize(void* p) override;
    void Free(void* p) override;
};

// Whole pages from the system. ReAllocate commits more of the block's reservation at
// the same address, or fails: nothing is copied and the address never changes.
class KELP_API CVirtAllocator : public IAllocator {
public:
    void* Allocate(unsigned int size, uint32_t flags) override;
    void* ReAllocate(void* p, unsigned int size, uint32_t flags) override;
    unsigned int GetSize(void* p) override;
    void Free(void* p) override;
};

// The process heap for small blocks, pages for large ones, decided by a 4-byte header
// in front of every block. ReAllocate of a heap block gives a new block and leaves the
// old one to the caller, uncopied.
class KELP_API CDualAllocator : public IAllocator {
public:
    static constexpr uint32_t kPageMarker = 0x8000AAAAu;
    void* Allocate(unsigned int size, uint32_t flags) override;
    void* ReAllocate(void* p, unsigned int size, uint32_t flags) override;
    unsigned int GetSize(void* p) override;
    void Free(void* p) override;
};

// One block from CDualAllocator, kept between uses. A copy shares the block: it must
// be freed through one copy only.
class KELP_API CSingleAllocator : public IAllocator {
public:
    CSingleAllocator() : m_nSize(0), m_pBuffer(nullptr) {}
    ~CSingleAllocator() override;
    void* Allocate(unsigned int size, uint32_t flags) override;
    void* ReAllocate(void* p, unsigned int size, uint32_t flags) override;
    unsigned int GetSize(void* p) override;
    void Free(void* p) override;

    unsigned int m_nSize;
    void* m_pBuffer;
};

// A buffer that the caller provides; never freed here.
class KELP_API CSrcAllocator : public IAllocator {
public:
    CSrcAllocator(void* buffer = nullptr, unsigned int size = 0) { SetBuffer(buffer, size); }
    void SetBuffer(void* buffer, unsigned int size) {
        m_pBuffer = buffer;
        m_nSize = size;
    }
    void* Allocate(unsigned int size, uint32_t flags) override;
    void* ReAllocate(void* p, unsigned int size, uint32_t flags) override;
    unsigned int GetSize(void* p) override;
    void Free(void* p) override;

    void* m_pBuffer;
    unsigned int m_nSize;
};

// The process-wide allocator objects, made when the library is loaded.
KELP_API CCppAllocator* GetCppAllocator();
KELP_API CDualAllocator* GetDualAllocator();
KELP_API CVirtAllocator* GetVirtAllocator();

} // namespace kelp
