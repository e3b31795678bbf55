// Linux: whether a range of memory can be read, asked without touching it.
#include "kelpos.h"

#include <errno.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

namespace kelp {
namespace os {

static bool ProbePages(const void* p, size_t size) {
    if (size == 0) return true;
    if (!p) return false;
    uintptr_t start = uintptr_t(p);
    if (start + size < start) return false; // wraps around the address space
    const uintptr_t page = uintptr_t(sysconf(_SC_PAGESIZE));
    // One byte of every page in the range is enough: readability is a page property.
    constexpr size_t kBatch = 512;
    char sink[kBatch];
    iovec local[kBatch], remote[kBatch];
    uintptr_t a = start, end = start + size;
    while (a < end) {
        size_t n = 0;
        while (a < end && n < kBatch) {
            local[n] = {&sink[n], 1};
            remote[n] = {reinterpret_cast<void*>(a), 1};
            ++n;
            uintptr_t next = (a & ~(page - 1)) + page;
            if (next <= a) {
                a = end;
                break;
            }
            a = next;
        }
        ssize_t got = process_vm_readv(getpid(), local, n, remote, n, 0);
        if (got != ssize_t(n)) return false;
    }
    // The last byte of the range may lie on a page the loop did not reach when the
    // range ends inside its first page; the loop starts at `start`, so every page from
    // start's page to (end-1)'s page was visited.
    return true;
}

bool IsReadable(const void* p, size_t size) {
    if (size == 0) return true;
    if (!p) return false;
    const uintptr_t start = uintptr_t(p);
    if (start + size < start) return false;
    const uintptr_t page = uintptr_t(sysconf(_SC_PAGESIZE));
    const uintptr_t first = start & ~(page - 1);
    const uintptr_t end = (start + size + page - 1) & ~(page - 1);
    if (end - first > page) {
        // A range of several pages is asked of the kernel at once: faulting it in for
        // reading tells, without a signal, whether every page can be read (ENOMEM for a
        // hole, EFAULT for a page that would fault). A kernel without the advice (before
        // 5.14), or a mapping it does not apply to, answers EINVAL, as does a page
        // without read access: those are probed page by page.
#ifndef MADV_POPULATE_READ
        constexpr int MADV_POPULATE_READ = 22;
#endif
        if (madvise(reinterpret_cast<void*>(first), end - first, MADV_POPULATE_READ) == 0)
            return true;
        if (errno == ENOMEM || errno == EFAULT) return false;
    }
    return ProbePages(p, size);
}

} // namespace os
} // namespace kelp
