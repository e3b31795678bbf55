// Linux: blocks of whole pages, mapped and unmapped by the kernel.
#include "kelpos.h"
#include "kelpos_blocktable.h"

#include <sys/mman.h>
#include <unistd.h>

#include <mutex>

namespace kelp {
namespace os {

static std::mutex g_pageLock;
static BlockTable g_pages; // base -> mapped length

size_t AllocationGranularity() {
    return kAllocationGranularity;
}

static size_t RoundToPages(size_t size) {
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    if (size == 0) size = 1;
    if (size > SIZE_MAX - page) return 0;
    return (size + page - 1) & ~(page - 1);
}

void* PageAlloc(size_t size) {
    size_t len = RoundToPages(size);
    if (!len) return nullptr;
    void* p = mmap(nullptr, len, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) {
        SetLastError(kErrorNotEnoughMemory);
        return nullptr;
    }
    std::lock_guard<std::mutex> g(g_pageLock);
    if (!g_pages.Insert(uintptr_t(p), len)) {
        munmap(p, len);
        return nullptr;
    }
    return p;
}

void* PageReAlloc(void* base, size_t size) {
    std::lock_guard<std::mutex> g(g_pageLock);
    size_t len;
    if (!g_pages.Find(uintptr_t(base), &len)) return nullptr;
    size_t want = RoundToPages(size);
    if (!want) return nullptr;
    if (want <= len) return base;
    void* p = mremap(base, len, want, 0); // in place or not at all
    if (p == MAP_FAILED) {
        SetLastError(kErrorNotEnoughMemory);
        return nullptr;
    }
    g_pages.Insert(uintptr_t(base), want);
    return base;
}

size_t PageRegionSize(const void* base) {
    std::lock_guard<std::mutex> g(g_pageLock);
    size_t len;
    return g_pages.Find(uintptr_t(base), &len) ? len : 0;
}

bool PageFree(void* base) {
    std::lock_guard<std::mutex> g(g_pageLock);
    size_t len;
    if (!g_pages.Find(uintptr_t(base), &len)) return false;
    g_pages.Erase(uintptr_t(base));
    return munmap(base, len) == 0;
}

size_t PageSize() {
    return size_t(sysconf(_SC_PAGESIZE));
}

bool PageNoAccess(void* p, size_t size) {
    if (!p || size == 0) return false;
    return mprotect(p, size, PROT_NONE) == 0;
}

} // namespace os
} // namespace kelp
