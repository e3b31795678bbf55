// Linux implementation of the operating-system layer.
#include "kelpos.h"

#include <cpuid.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <new>

namespace kelp {
namespace os {

// ---------------------------------------------------------------- errors, time, text

static thread_local uint32_t t_lastError = 0;
uint32_t GetLastError() { return t_lastError; }
void SetLastError(uint32_t code) { t_lastError = code; }

uint32_t GetTickCount() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    uint64_t ms = uint64_t(ts.tv_sec) * 1000u + uint64_t(ts.tv_nsec) / 1000000u;
    return uint32_t(ms);
}

void Sleep(uint32_t ms) {
    timespec ts{time_t(ms / 1000), long(ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

int32_t MulDiv(int32_t a, int32_t b, int32_t c) {
    if (c == 0) return -1;
    int64_t p = int64_t(a) * int64_t(b);
    bool neg = (p < 0) != (c < 0);
    uint64_t up = p < 0 ? uint64_t(-(p + 1)) + 1 : uint64_t(p);
    uint64_t uc = c < 0 ? uint64_t(-int64_t(c)) : uint64_t(c);
    uint64_t q = (up + uc / 2) / uc; // half away from zero on the magnitude
    if (!neg && q > uint64_t(INT32_MAX)) return -1;
    if (neg && q > uint64_t(INT32_MAX) + 1) return -1;
    return neg ? int32_t(-int64_t(q)) : int32_t(q);
}

std::string ToUtf8(const std::wstring& s) {
    std::string out;
    out.reserve(s.size());
    for (wchar_t wc : s) {
        uint32_t c = uint32_t(wc);
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
        if (c < 0x80) {
            out += char(c);
        } else if (c < 0x800) {
            out += char(0xC0 | (c >> 6));
            out += char(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += char(0xE0 | (c >> 12));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        } else {
            out += char(0xF0 | (c >> 18));
            out += char(0x80 | ((c >> 12) & 0x3F));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::wstring FromUtf8(const std::string& s) {
    std::wstring out;
    out.reserve(s.size());
    size_t i = 0, n = s.size();
    while (i < n) {
        uint8_t b = uint8_t(s[i]);
        uint32_t c;
        int extra;
        if (b < 0x80) {
            c = b;
            extra = 0;
        } else if ((b & 0xE0) == 0xC0) {
            c = b & 0x1F;
            extra = 1;
        } else if ((b & 0xF0) == 0xE0) {
            c = b & 0x0F;
            extra = 2;
        } else if ((b & 0xF8) == 0xF0) {
            c = b & 0x07;
            extra = 3;
        } else {
            out += wchar_t(0xFFFD);
            ++i;
            continue;
        }
        bool ok = true;
        for (int k = 1; k <= extra; ++k) {
            if (i + k >= n || (uint8_t(s[i + k]) & 0xC0) != 0x80) {
                ok = false;
                break;
            }
            c = (c << 6) | (uint8_t(s[i + k]) & 0x3F);
        }
        if (!ok) {
            out += wchar_t(0xFFFD);
            ++i;
            continue;
        }
        out += wchar_t(c);
        i += size_t(extra) + 1;
    }
    return out;
}

bool GetEnv(const char* name, std::string* value) {
    const char* v = getenv(name);
    if (!v) return false;
    if (value) *value = v;
    return true;
}

bool DebugOutputEnabled() { return getenv("KELP_DEBUG_OUTPUT") != nullptr; }

void DebugOutput(const wchar_t* text) {
    if (!text || !DebugOutputEnabled()) return;
    std::string u = ToUtf8(text);
    fwrite(u.data(), 1, u.size(), stderr);
    fflush(stderr);
}

// ---------------------------------------------------------------- memory probe

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

// ---------------------------------------------------------------- processor

void Cpuid(uint32_t leaf, uint32_t subleaf, uint32_t regs[4]) {
#if defined(__x86_64__) || defined(__i386__)
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid_count(leaf, subleaf, &a, &b, &c, &d)) a = b = c = d = 0;
    regs[0] = a;
    regs[1] = b;
    regs[2] = c;
    regs[3] = d;
#else
    (void)leaf;
    (void)subleaf;
    regs[0] = regs[1] = regs[2] = regs[3] = 0;
#endif
}

static uint64_t ReadXcr0() {
#if defined(__x86_64__) || defined(__i386__)
    uint32_t eax, edx;
    __asm__ volatile("xgetbv" : "=a"(eax), "=d"(edx) : "c"(0));
    return (uint64_t(edx) << 32) | eax;
#else
    return 0;
#endif
}

CpuInfo ProbeCpu() {
    CpuInfo info{};
    uint32_t r[4];
    Cpuid(0, 0, r);
    uint32_t maxLeaf = r[0];
    if (maxLeaf < 1) return info;
    Cpuid(1, 0, r);
    info.mmx = (r[3] >> 23) & 1;
    info.sse = (r[3] >> 25) & 1;
    info.sse2 = (r[3] >> 26) & 1;
    info.ssse3 = (r[2] >> 9) & 1;
    info.sse41 = (r[2] >> 19) & 1;
    bool osxsave = (r[2] >> 27) & 1;
    bool avx = (r[2] >> 28) & 1;
    bool ymmEnabled = osxsave && (ReadXcr0() & 6) == 6; // the system saves YMM state
    info.avx = avx && ymmEnabled;
    if (maxLeaf >= 7 && info.avx) {
        Cpuid(7, 0, r);
        info.avx2 = (r[1] >> 5) & 1;
    }
    return info;
}

unsigned ProcessorCount() {
    long n = sysconf(_SC_NPROCESSORS_ONLN);
    return n > 0 ? unsigned(n) : 1u;
}

// ---------------------------------------------------------------- modules

KXMODULE LoadModule(const std::wstring& path) {
    return dlopen(ToUtf8(path).c_str(), RTLD_NOW | RTLD_LOCAL);
}

void* GetSymbol(KXMODULE module, const char* name) {
    if (!module) return nullptr;
    return dlsym(module, name);
}

bool FreeModule(KXMODULE module) { return module && dlclose(module) == 0; }

std::string LastModuleError() {
    const char* e = dlerror();
    return e ? e : "";
}

bool ModuleFileOf(const void* address, std::wstring* path) {
    Dl_info info;
    if (!dladdr(address, &info) || !info.dli_fname) return false;
    std::string file = info.dli_fname;
    char resolved[PATH_MAX];
    if (realpath(file.c_str(), resolved)) {
        file = resolved;
    } else if (file.empty() || file[0] != '/') {
        // The main program may report a bare name; the kernel knows its real path.
        ssize_t n = readlink("/proc/self/exe", resolved, sizeof(resolved) - 1);
        if (n <= 0) return false;
        resolved[n] = 0;
        file = resolved;
    }
    *path = FromUtf8(file);
    return true;
}

std::wstring RemoveFileName(const std::wstring& path) {
    size_t slash = path.find_last_of(L'/');
    if (slash == std::wstring::npos) return std::wstring();
    return path.substr(0, slash + 1);
}

// ---------------------------------------------------------------- files

static bool EndsWithNoCase(const std::string& s, const std::string& suffix) {
    if (suffix.size() > s.size()) return false;
    for (size_t i = 0; i < suffix.size(); ++i) {
        char a = s[s.size() - suffix.size() + i], b = suffix[i];
        if (a >= 'A' && a <= 'Z') a = char(a - 'A' + 'a');
        if (b >= 'A' && b <= 'Z') b = char(b - 'A' + 'a');
        if (a != b) return false;
    }
    return true;
}

std::vector<std::wstring> ListFiles(const std::wstring& dir, const std::wstring& suffix) {
    std::vector<std::string> names;
    std::string sfx = ToUtf8(suffix);
    std::error_code ec;
    std::filesystem::directory_iterator it(ToUtf8(dir), ec), end;
    for (; !ec && it != end; it.increment(ec)) {
        std::error_code ec2;
        if (!it->is_regular_file(ec2)) continue;
        std::string name = it->path().filename().string();
        if (EndsWithNoCase(name, sfx)) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    std::vector<std::wstring> out;
    out.reserve(names.size());
    for (auto& n : names) out.push_back(FromUtf8(n));
    return out;
}

static std::wstring WithSlash(std::string s) {
    if (s.empty() || s.back() != '/') s += '/';
    return FromUtf8(s);
}

std::wstring TempDirectory() {
    std::string t;
    if (GetEnv("TMPDIR", &t) && !t.empty()) return WithSlash(t);
    return L"/tmp/";
}

std::wstring UserConfigDirectory() {
    std::string t;
    if (GetEnv("XDG_CONFIG_HOME", &t) && !t.empty() && t[0] == '/') return WithSlash(t);
    if (GetEnv("HOME", &t) && !t.empty()) return WithSlash(t + "/.config");
    return WithSlash("/tmp");
}

bool MakeDirectories(const std::wstring& dir) {
    std::error_code ec;
    std::filesystem::create_directories(ToUtf8(dir), ec);
    return std::filesystem::is_directory(ToUtf8(dir), ec);
}

bool FileExists(const std::wstring& path) {
    struct stat st;
    return stat(ToUtf8(path).c_str(), &st) == 0;
}

// ---------------------------------------------------------------- critical section

namespace {
struct CsImpl {
    std::recursive_mutex m;
    std::atomic<uint32_t> contention{0};
};
struct EventImpl {
    std::mutex m;
    std::condition_variable cv;
    bool manual;
    bool set = false;
};
} // namespace
static_assert(sizeof(CsImpl) <= 64, "critical section storage");
static_assert(sizeof(EventImpl) <= 128, "event storage");

CriticalSection::CriticalSection() { new (m_storage) CsImpl(); }
CriticalSection::~CriticalSection() { reinterpret_cast<CsImpl*>(m_storage)->~CsImpl(); }
void CriticalSection::Enter() {
    CsImpl* cs = reinterpret_cast<CsImpl*>(m_storage);
    if (cs->m.try_lock()) return;
    cs->contention.fetch_add(1, std::memory_order_relaxed);
    cs->m.lock();
}
bool CriticalSection::TryEnter() { return reinterpret_cast<CsImpl*>(m_storage)->m.try_lock(); }
void CriticalSection::Leave() { reinterpret_cast<CsImpl*>(m_storage)->m.unlock(); }
uint32_t CriticalSection::Contention() const {
    return reinterpret_cast<const CsImpl*>(m_storage)->contention.load(std::memory_order_relaxed);
}

// ---------------------------------------------------------------- events

Event::Event(bool manualReset) {
    EventImpl* e = new (m_storage) EventImpl();
    e->manual = manualReset;
}
Event::~Event() { reinterpret_cast<EventImpl*>(m_storage)->~EventImpl(); }
void Event::Set() {
    EventImpl* e = reinterpret_cast<EventImpl*>(m_storage);
    {
        std::lock_guard<std::mutex> g(e->m);
        e->set = true;
    }
    if (e->manual)
        e->cv.notify_all();
    else
        e->cv.notify_one();
}
void Event::Reset() {
    EventImpl* e = reinterpret_cast<EventImpl*>(m_storage);
    std::lock_guard<std::mutex> g(e->m);
    e->set = false;
}
bool Event::Wait(uint32_t ms) {
    EventImpl* e = reinterpret_cast<EventImpl*>(m_storage);
    std::unique_lock<std::mutex> g(e->m);
    if (ms == kInfinite) {
        e->cv.wait(g, [e] { return e->set; });
    } else if (!e->cv.wait_for(g, std::chrono::milliseconds(ms), [e] { return e->set; })) {
        return false;
    }
    if (!e->manual) e->set = false;
    return true;
}

// ---------------------------------------------------------------- threads

struct ThreadHandle {
    pthread_t thread;
    ThreadProc proc;
    void* arg;
    std::atomic<uint32_t> tid{0};
    std::atomic<bool> done{false};
    uint32_t exitCode = kStillActive;
    std::atomic<int> refs{2}; // the owner's handle and the running thread
    std::mutex m;
    std::condition_variable cv;
};

static void ReleaseThreadHandle(ThreadHandle* t) {
    if (t->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) delete t;
}

static void* ThreadStart(void* p) {
    ThreadHandle* t = static_cast<ThreadHandle*>(p);
    t->tid.store(CurrentThreadId());
    uint32_t code = t->proc(t->arg);
    {
        std::lock_guard<std::mutex> g(t->m);
        t->exitCode = code;
        t->done.store(true);
    }
    t->cv.notify_all();
    ReleaseThreadHandle(t);
    return nullptr;
}

ThreadHandle* CreateThread(ThreadProc proc, void* arg) {
    ThreadHandle* t = new (std::nothrow) ThreadHandle();
    if (!t) return nullptr;
    t->proc = proc;
    t->arg = arg;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    int rc = pthread_create(&t->thread, &attr, ThreadStart, t);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        delete t;
        return nullptr;
    }
    return t;
}

bool GetExitCodeThread(ThreadHandle* t, uint32_t* code) {
    if (!t || !code) return false;
    std::lock_guard<std::mutex> g(t->m);
    *code = t->done.load() ? t->exitCode : kStillActive;
    return true;
}

bool WaitThread(ThreadHandle* t, uint32_t ms) {
    if (!t) return false;
    std::unique_lock<std::mutex> g(t->m);
    if (ms == kInfinite) {
        t->cv.wait(g, [t] { return t->done.load(); });
        return true;
    }
    return t->cv.wait_for(g, std::chrono::milliseconds(ms), [t] { return t->done.load(); });
}

void CloseThread(ThreadHandle* t) {
    if (t) ReleaseThreadHandle(t);
}

uint32_t ThreadId(ThreadHandle* t) {
    if (!t) return 0;
    // The id is written by the new thread itself; wait the moment it takes.
    while (t->tid.load() == 0 && !t->done.load()) sched_yield();
    return t->tid.load();
}

uint32_t CurrentThreadId() { return uint32_t(syscall(SYS_gettid)); }

uint32_t TlsAlloc() {
    pthread_key_t key;
    if (pthread_key_create(&key, nullptr) != 0) return kTlsOutOfIndexes;
    return uint32_t(key);
}
bool TlsFree(uint32_t index) { return pthread_key_delete(pthread_key_t(index)) == 0; }
void* TlsGetValue(uint32_t index) { return pthread_getspecific(pthread_key_t(index)); }
bool TlsSetValue(uint32_t index, void* value) {
    return pthread_setspecific(pthread_key_t(index), value) == 0;
}

// ---------------------------------------------------------------- block table
// An open-addressed table from block start to block size. It lets a heap answer for
// any address: an address that is not a key is not a block of that heap.

namespace {
class BlockTable {
public:
    // Room for one more key without growing, or false if the table cannot grow.
    bool Reserve() { return (m_count + m_tombs + 1) * 10 < m_cap * 7 || Grow(); }
    bool Insert(uintptr_t key, size_t size) {
        if (!Reserve()) return false;
        size_t i = Slot(key);
        size_t firstTomb = SIZE_MAX;
        while (m_keys[i] != kEmpty) {
            if (m_keys[i] == key) {
                m_sizes[i] = size;
                return true;
            }
            if (m_keys[i] == kTomb && firstTomb == SIZE_MAX) firstTomb = i;
            i = (i + 1) & (m_cap - 1);
        }
        if (firstTomb != SIZE_MAX) {
            i = firstTomb;
            --m_tombs;
        }
        m_keys[i] = key;
        m_sizes[i] = size;
        ++m_count;
        return true;
    }
    bool Find(uintptr_t key, size_t* size) const {
        if (!m_cap || key == kEmpty || key == kTomb) return false;
        size_t i = Slot(key);
        while (m_keys[i] != kEmpty) {
            if (m_keys[i] == key) {
                if (size) *size = m_sizes[i];
                return true;
            }
            i = (i + 1) & (m_cap - 1);
        }
        return false;
    }
    bool Erase(uintptr_t key) {
        if (!m_cap || key == kEmpty || key == kTomb) return false;
        size_t i = Slot(key);
        while (m_keys[i] != kEmpty) {
            if (m_keys[i] == key) {
                m_keys[i] = kTomb;
                --m_count;
                ++m_tombs;
                return true;
            }
            i = (i + 1) & (m_cap - 1);
        }
        return false;
    }
    template <class F> void ForEach(F f) const {
        for (size_t i = 0; i < m_cap; ++i)
            if (m_keys[i] != kEmpty && m_keys[i] != kTomb) f(m_keys[i], m_sizes[i]);
    }
    size_t Count() const { return m_count; }
    void Release() {
        free(m_keys);
        free(m_sizes);
        m_keys = nullptr;
        m_sizes = nullptr;
        m_cap = m_count = m_tombs = 0;
    }

private:
    static constexpr uintptr_t kEmpty = 0;
    static constexpr uintptr_t kTomb = 1;
    size_t Slot(uintptr_t key) const {
        return size_t((uint64_t(key >> 4) * 0x9E3779B97F4A7C15ull) >> 20) & (m_cap - 1);
    }
    bool Grow() {
        size_t cap = m_cap ? (m_count * 4 > m_cap ? m_cap * 2 : m_cap) : 256;
        uintptr_t* keys = static_cast<uintptr_t*>(calloc(cap, sizeof(uintptr_t)));
        size_t* sizes = static_cast<size_t*>(malloc(cap * sizeof(size_t)));
        if (!keys || !sizes) {
            free(keys);
            free(sizes);
            return false;
        }
        uintptr_t* oldKeys = m_keys;
        size_t* oldSizes = m_sizes;
        size_t oldCap = m_cap;
        m_keys = keys;
        m_sizes = sizes;
        m_cap = cap;
        m_count = m_tombs = 0;
        for (size_t i = 0; i < oldCap; ++i)
            if (oldKeys[i] != kEmpty && oldKeys[i] != kTomb) Insert(oldKeys[i], oldSizes[i]);
        free(oldKeys);
        free(oldSizes);
        return true;
    }
    uintptr_t* m_keys = nullptr;
    size_t* m_sizes = nullptr;
    size_t m_cap = 0, m_count = 0, m_tombs = 0;
};
} // namespace

// ---------------------------------------------------------------- heaps

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

// ---------------------------------------------------------------- pages

static std::mutex g_pageLock;
static BlockTable g_pages; // base -> mapped length

size_t AllocationGranularity() { return kAllocationGranularity; }

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


// ---------------------------------------------------------------- settings and threads

bool GetAffinityMasks(uint64_t* processMask, uint64_t* systemMask) {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof(set), &set) != 0) return false;
    uint64_t process = 0;
    for (int i = 0; i < 64; ++i)
        if (CPU_ISSET(i, &set)) process |= uint64_t(1) << i;
    long n = sysconf(_SC_NPROCESSORS_CONF);
    if (n < 1) n = 1;
    uint64_t system = n >= 64 ? ~uint64_t(0) : (uint64_t(1) << n) - 1;
    if (processMask) *processMask = process;
    if (systemMask) *systemMask = system;
    return true;
}

bool SetThreadAffinityMask(uint64_t mask) {
    if (!mask) return false;
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int i = 0; i < 64; ++i)
        if ((mask >> i) & 1) CPU_SET(i, &set);
    return sched_setaffinity(0, sizeof(set), &set) == 0;
}

void YieldThread() { sched_yield(); }

std::string CutUtf8(const std::string& s, size_t maxBytes) {
    if (s.size() <= maxBytes) return s;
    size_t n = maxBytes;
    // Step back over continuation bytes so that no character is split.
    while (n > 0 && (uint8_t(s[n]) & 0xC0) == 0x80) --n;
    return s.substr(0, n);
}

bool SetThreadName(ThreadHandle* t, const std::string& utf8Name) {
    if (!t) return false;
    std::string name = CutUtf8(utf8Name, kThreadNameMax);
    // The thread marks itself done under this lock before it leaves, so while the lock
    // is held and it is not done, its pthread_t is valid.
    std::lock_guard<std::mutex> g(t->m);
    if (t->done.load()) return false;
    return pthread_setname_np(t->thread, name.c_str()) == 0;
}

int32_t InterlockedCompareExchange(volatile int32_t* dest, int32_t exchange, int32_t comparand) {
    int32_t expected = comparand;
    __atomic_compare_exchange_n(dest, &expected, exchange, false, __ATOMIC_SEQ_CST,
                                __ATOMIC_SEQ_CST);
    return expected;
}

bool IsDirectory(const std::wstring& path) {
    struct stat st;
    return stat(ToUtf8(path).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// ---------------------------------------------------------------- codec registry

KXMODULE LoadModuleReporting(const std::wstring& path, uint32_t* error, std::string* reason) {
    const std::string file = ToUtf8(path);
    dlerror(); // clears an older message
    void* module = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module) {
        *error = 0;
        reason->clear();
        return module;
    }
    const char* text = dlerror();
    *reason = text ? text : "";
    // The loader keeps no error number; the file's own accessibility gives one.
    *error = access(file.c_str(), R_OK) != 0 ? uint32_t(errno) : uint32_t(ENOEXEC);
    SetLastError(*error);
    return nullptr;
}

// ---------------------------------------------------------------- image files

struct FileHandle {
    int fd;
};

FileHandle* OpenFileRead(const std::wstring& path) {
    int fd = ::open(ToUtf8(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return nullptr;
    }
    FileHandle* f = new (std::nothrow) FileHandle{fd};
    if (!f) ::close(fd);
    return f;
}

FileHandle* CreateFileWrite(const std::wstring& path) {
    int fd = ::open(ToUtf8(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return nullptr;
    FileHandle* f = new (std::nothrow) FileHandle{fd};
    if (!f) ::close(fd);
    return f;
}

bool ReadFile(FileHandle* f, void* buffer, size_t size, size_t* done) {
    *done = 0;
    if (!f) return false;
    char* p = static_cast<char*>(buffer);
    while (*done < size) {
        ssize_t n = ::read(f->fd, p + *done, std::min<size_t>(size - *done, 1u << 30));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        if (n == 0) break;
        *done += size_t(n);
    }
    return true;
}

bool WriteFile(FileHandle* f, const void* buffer, size_t size, size_t* done) {
    *done = 0;
    if (!f) return false;
    const char* p = static_cast<const char*>(buffer);
    while (*done < size) {
        ssize_t n = ::write(f->fd, p + *done, std::min<size_t>(size - *done, 1u << 30));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        *done += size_t(n);
    }
    return true;
}

bool GetFileSize(FileHandle* f, uint64_t* size) {
    struct stat st;
    if (!f || fstat(f->fd, &st) != 0) return false;
    *size = uint64_t(st.st_size);
    return true;
}

bool CloseFile(FileHandle* f) {
    if (!f) return false;
    bool ok = ::close(f->fd) == 0;
    delete f;
    return ok;
}

bool DeleteFile(const std::wstring& path) { return ::unlink(ToUtf8(path).c_str()) == 0; }

// ---------------------------------------------------------------- conversion kernels

size_t PageSize() { return size_t(sysconf(_SC_PAGESIZE)); }

bool PageNoAccess(void* p, size_t size) {
    if (!p || size == 0) return false;
    return mprotect(p, size, PROT_NONE) == 0;
}

} // namespace os
} // namespace kelp
