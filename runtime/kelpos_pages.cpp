// Linux: blocks of whole pages, mapped and unmapped by the kernel.
#include "kelpos.h"
#include "kelpos_blocktable.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
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

namespace kelp {
namespace os {

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23
#endif

// Below this many whole pages the faults cost less than the checks.
constexpr size_t kPrepareMinPages = 16;
static std::atomic<bool> g_populateMissing{false}; // the kernel lacks MADV_POPULATE_WRITE

void PagePrepareWrite(void* p, size_t size) {
    if (!p || g_populateMissing.load(std::memory_order_relaxed)) return;
    const uintptr_t page = uintptr_t(sysconf(_SC_PAGESIZE));
    const uintptr_t begin = uintptr_t(p), end = begin + size;
    if (end < begin) return;
    // Whole pages inside the range only: the neighbours may be anyone's, or no-access.
    const uintptr_t first = (begin + page - 1) & ~(page - 1);
    const uintptr_t last = end & ~(page - 1);
    if (last <= first || (last - first) / page < kPrepareMinPages) return;
    // A buffer in use is backed already: its first and last page tell, cheaply.
    unsigned char in[1] = {0}, out[1] = {0};
    if (mincore(reinterpret_cast<void*>(first), page, in) == 0 &&
        mincore(reinterpret_cast<void*>(last - page), page, out) == 0 && (in[0] & 1) &&
        (out[0] & 1))
        return;
    if (madvise(reinterpret_cast<void*>(first), last - first, MADV_POPULATE_WRITE) != 0 &&
        errno == EINVAL)
        g_populateMissing.store(true, std::memory_order_relaxed);
}

} // namespace os
} // namespace kelp
