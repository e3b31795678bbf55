// Linux: whether a range of memory can be read, asked without touching it.
//
// Readability belongs to the mappings of the address space, so the kernel is asked for
// the mappings that cover the range, one query for each mapping (a frame buffer is most
// often one): the range is readable if they leave no hole and each allows reading. The
// query (PROCMAP_QUERY on /proc/self/maps) exists from Linux 6.11; before that, a long
// range is checked against the text of /proc/self/maps and a short one page by page.
#include "kelpos_probe.h"
#include "kelpos.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>

namespace kelp {
namespace os {

namespace {

// The kernel's record of one mapping query, as its interface defines it.
struct MapQuery {
    uint64_t size;
    uint64_t query_flags;
    uint64_t query_addr;
    uint64_t vma_start;
    uint64_t vma_end;
    uint64_t vma_flags;
    uint64_t vma_page_size;
    uint64_t vma_offset;
    uint64_t inode;
    uint32_t dev_major;
    uint32_t dev_minor;
    uint32_t vma_name_size;
    uint32_t build_id_size;
    uint64_t vma_name_addr;
    uint64_t build_id_addr;
};
static_assert(sizeof(MapQuery) == 104, "mapping query record");
constexpr unsigned long kMapQueryIoctl = _IOWR('f', 17, MapQuery);
constexpr uint64_t kMapReadable = 1;

// Ranges of more pages than this are checked against the text of the mappings when the
// query is missing; shorter ones cost less page by page.
constexpr size_t kTextWorthPages = 64;

size_t Page() {
    return size_t(sysconf(_SC_PAGESIZE));
}

// The descriptor the queries go to. Opened in one process, it names that process's
// address space for good; so a child of fork drops the one it inherited (in the child,
// where only the forking thread runs) and opens its own at its first question.
// -1: not opened yet; -2: the kernel has no query, or there is no /proc.
std::atomic<int> g_mapsFile{-1};

void ForgetMapsFileInChild() {
    int fd = g_mapsFile.load(std::memory_order_relaxed);
    if (fd < 0) return; // a kernel without the query stays without it
    close(fd);
    g_mapsFile.store(-1, std::memory_order_relaxed);
}

int MapsFile() {
    int fd = g_mapsFile.load(std::memory_order_acquire);
    if (fd != -1) return fd;
    static std::once_flag registered;
    std::call_once(registered, [] { pthread_atfork(nullptr, nullptr, &ForgetMapsFileInChild); });
    int opened = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    int want = opened >= 0 ? opened : -2;
    if (!g_mapsFile.compare_exchange_strong(fd, want, std::memory_order_acq_rel)) {
        if (opened >= 0) close(opened); // another thread was first
        return fd;
    }
    return want;
}

} // namespace

int probe::ByMapQuery(uintptr_t start, size_t size) {
    int fd = MapsFile();
    if (fd < 0) return kUnknown;
    const uintptr_t end = start + size;
    for (uintptr_t a = start; a < end;) {
        MapQuery q;
        std::memset(&q, 0, sizeof q);
        q.size = sizeof q;
        q.query_addr = a;
        if (ioctl(fd, kMapQueryIoctl, &q) != 0) {
            if (errno == ENOENT) return kNo; // no mapping covers `a`: a hole
            if (errno == ENOTTY || errno == EINVAL || errno == EPERM || errno == EACCES) {
                // A kernel without the query, or one that refuses it: remember that. The
                // descriptor stays open, as another thread may be asking through it now.
                g_mapsFile.compare_exchange_strong(fd, -2);
            }
            return kUnknown;
        }
        if (q.vma_start > a || q.vma_end <= a) return kUnknown; // not the mapping asked for
        if (!(q.vma_flags & kMapReadable)) return kNo;
        a = uintptr_t(q.vma_end);
    }
    return kYes;
}

int probe::ByMapsText(uintptr_t start, size_t size) {
    int fd = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return kUnknown;
    // Lines come in order of address: "start-end perms offset dev inode name".
    const uintptr_t end = start + size;
    uintptr_t need = start; // the first address not yet covered by a readable mapping
    bool stop = false;      // a hole, or a mapping that cannot be read
    bool failed = false;
    bool skipTail = false; // the rest of a line too long for the buffer is skipped
    char buf[4096 + 1];
    size_t have = 0;
    bool eof = false;
    while (!stop && need < end) {
        char* nl = static_cast<char*>(std::memchr(buf, '\n', have));
        const bool full = !nl && have == sizeof buf - 1;
        if (!nl && !full) {
            if (eof) break;
            ssize_t n = read(fd, buf + have, sizeof buf - 1 - have);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                failed = true;
                break;
            }
            eof = n == 0;
            have += size_t(n);
            continue;
        }
        // One line, or the head of one too long for the buffer: the addresses and the
        // permissions come first.
        const size_t len = nl ? size_t(nl - buf) : have;
        if (!skipTail) {
            buf[len] = 0;
            char* p = buf;
            uintptr_t lo = strtoull(p, &p, 16);
            uintptr_t hi = *p == '-' ? strtoull(p + 1, &p, 16) : 0;
            bool readable = p[0] == ' ' && p[1] == 'r';
            if (hi > need) {
                if (lo > need || !readable)
                    stop = true;
                else
                    need = hi;
            }
        }
        skipTail = !nl;
        const size_t used = nl ? len + 1 : len;
        std::memmove(buf, buf + used, have - used);
        have -= used;
    }
    close(fd);
    if (need >= end) return kYes;
    return failed ? kUnknown : kNo; // the text ended short of the range's end: a hole
}

// The pages themselves, for a kernel that cannot be asked about its mappings. A range
// of several pages is asked at once by faulting it in for reading; a single page, or what
// the advice does not answer, by reading one byte of every page through the kernel.
static bool ReadOnePerPage(uintptr_t start, size_t size) {
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

bool probe::ByPages(uintptr_t start, size_t size) {
    const uintptr_t page = Page();
    const uintptr_t first = start & ~(page - 1);
    const uintptr_t end = (start + size + page - 1) & ~(page - 1);
    if (end - first > page) {
        // Faulting the range in for reading tells, without a signal, whether every page
        // can be read (ENOMEM for a hole, EFAULT for a page that would fault). A kernel
        // without the advice (before 5.14), or a mapping it does not apply to, answers
        // EINVAL, as does a page without read access: those are read page by page.
#ifndef MADV_POPULATE_READ
        constexpr int MADV_POPULATE_READ = 22;
#endif
        if (madvise(reinterpret_cast<void*>(first), end - first, MADV_POPULATE_READ) == 0)
            return true;
        if (errno == ENOMEM || errno == EFAULT) return false;
    }
    return ReadOnePerPage(start, size);
}

bool IsReadable(const void* p, size_t size) {
    if (size == 0) return true;
    if (!p) return false;
    const uintptr_t start = uintptr_t(p);
    if (start + size < start) return false; // wraps around the address space
    int answer = probe::ByMapQuery(start, size);
    if (answer == probe::kUnknown && size / Page() > kTextWorthPages)
        answer = probe::ByMapsText(start, size);
    if (answer != probe::kUnknown) return answer == probe::kYes;
    return probe::ByPages(start, size);
}

} // namespace os
} // namespace kelp
