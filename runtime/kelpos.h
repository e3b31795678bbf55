// The operating-system layer. Every call the library makes into the platform (memory,
// threads, modules, files, time, processor) goes through here; no other file of the
// library includes system headers for these. Each section below is implemented for a
// platform in a file of its own (kelpos_time.cpp, kelpos_text.cpp, ...).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <kelp/kelpdefs.h>

namespace kelp {
namespace os {

constexpr uint32_t kInfinite = 0xFFFFFFFFu; // a wait without limit

// ---- Errors
// Error codes kept per thread, with the meanings the library relies on.
constexpr uint32_t kErrorNotEnoughMemory = 8;
constexpr uint32_t kErrorInvalidParameter = 87;
uint32_t GetLastError();
void SetLastError(uint32_t code);

// ---- Time and arithmetic
uint32_t GetTickCount(); // monotonic milliseconds, wraps at 2^32
void Sleep(uint32_t ms);
// a * b / c with a 64-bit product, rounded half away from zero; -1 when c is 0 or the
// result does not fit in 32 bits.
int32_t MulDiv(int32_t a, int32_t b, int32_t c);

// ---- Text and environment. File names and environment values cross into the system
// as UTF-8.
std::string ToUtf8(const std::wstring& s);
std::wstring FromUtf8(const std::string& s);
bool GetEnv(const char* name, std::string* value); // false if not set
void DebugOutput(const wchar_t* text);             // the debug stream, see DebugOutputEnabled
bool DebugOutputEnabled();
// The first `maxBytes` bytes of UTF-8 text at most, never cut inside a character.
std::string CutUtf8(const std::string& s, size_t maxBytes);

// ---- Memory probes
// True if `size` bytes from p can be read, without touching them (a size of 0 is
// readable). Never faults.
bool IsReadable(const void* p, size_t size);

// ---- Processor
void Cpuid(uint32_t leaf, uint32_t subleaf, uint32_t regs[4]);
struct CpuInfo {
    bool mmx, sse, sse2, ssse3, sse41, avx, avx2;
};
CpuInfo ProbeCpu();
unsigned ProcessorCount();
// The calling thread's affinity, and the processors of the system, as bit masks of the
// first 64 processors.
bool GetAffinityMasks(uint64_t* processMask, uint64_t* systemMask);
bool SetThreadAffinityMask(uint64_t mask); // the calling thread only
// The processor's time-stamp counter (on a processor without one, the monotonic clock
// in nanoseconds), and its rate in whole megahertz: the rate the processor states, else
// the counter measured against the monotonic clock over 20 ms. 0 if neither works.
uint64_t ReadTimeStampCounter();
uint32_t TimeStampRateMHz();

// ---- Modules (shared objects)
KXMODULE LoadModule(const std::wstring& path); // null on failure
void* GetSymbol(KXMODULE module, const char* name);
bool FreeModule(KXMODULE module);
// LoadModule that also tells why a module did not load: `error` gets a system error
// number (that of opening the file, or ENOEXEC for a file the loader refused) and
// `reason` the loader's own message. Both are cleared on success.
KXMODULE LoadModuleReporting(const std::wstring& path, uint32_t* error, std::string* reason);
// The full path of the shared object (or program) that holds `address`.
bool ModuleFileOf(const void* address, std::wstring* path);
// The handle of the loaded shared object (or program) that holds `address`, as
// LoadModule gives it and GetSymbol takes it, without a reference of its own: it stays
// valid while that object is loaded and must not be given to FreeModule. Null if no
// loaded object holds the address.
KXMODULE ModuleHandleOf(const void* address);
// `path` without its file name, keeping the trailing '/'.
std::wstring RemoveFileName(const std::wstring& path);

// ---- Files and directories
// Names (not paths) of the regular files in `dir` whose names end with `suffix`
// (compared without regard to ASCII case), in byte order of their names.
std::vector<std::wstring> ListFiles(const std::wstring& dir, const std::wstring& suffix);
std::wstring TempDirectory();       // with a trailing '/'
std::wstring UserConfigDirectory(); // $XDG_CONFIG_HOME or ~/.config, with a trailing '/'
bool MakeDirectories(const std::wstring& dir);
bool FileExists(const std::wstring& path);

// Plain files, read and written whole or in large pieces. A handle is opened for
// reading (others may read too) or created for writing (an existing file is
// truncated; others may read it meanwhile).
struct FileHandle;
FileHandle* OpenFileRead(const std::wstring& path);    // null on failure
FileHandle* CreateFileWrite(const std::wstring& path); // null on failure
// Reads up to `size` bytes; *done gets the count. False on an error (end of file is
// no error: it reads short).
bool ReadFile(FileHandle* f, void* buffer, size_t size, size_t* done);
// Writes all `size` bytes or fails; *done gets the count written.
bool WriteFile(FileHandle* f, const void* buffer, size_t size, size_t* done);
bool GetFileSize(FileHandle* f, uint64_t* size);
bool CloseFile(FileHandle* f); // false if the last writes could not be completed
bool DeleteFile(const std::wstring& path);

// ---- Locks and events
class CriticalSection {
public:
    CriticalSection();
    ~CriticalSection();
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;
    void Enter();    // recursive; counts an entry that had to wait
    bool TryEnter(); // never waits
    void Leave();
    uint32_t Contention() const;

private:
    alignas(16) unsigned char m_storage[64];
};

class Event {
public:
    explicit Event(bool manualReset);
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;
    void Set();
    void Reset();
    bool Wait(uint32_t ms); // true if signalled, false on time-out

private:
    alignas(16) unsigned char m_storage[128];
};

// Interlocked compare-and-exchange of a 32-bit word: stores `exchange` if the word
// equals `comparand`, and gives the word's old value either way.
int32_t InterlockedCompareExchange(volatile int32_t* dest, int32_t exchange, int32_t comparand);

// ---- Threads and thread-local slots
constexpr uint32_t kStillActive = 259; // exit code of a thread that still runs
struct ThreadHandle;
typedef uint32_t (*ThreadProc)(void* arg);
ThreadHandle* CreateThread(ThreadProc proc, void* arg);  // null on failure
bool GetExitCodeThread(ThreadHandle* t, uint32_t* code); // kStillActive while running
bool WaitThread(ThreadHandle* t, uint32_t ms);           // true once the thread has ended
void CloseThread(ThreadHandle* t);                       // releases the handle, never the thread

constexpr uint32_t kTlsOutOfIndexes = 0xFFFFFFFFu;
uint32_t TlsAlloc();
bool TlsFree(uint32_t index);
void* TlsGetValue(uint32_t index);
bool TlsSetValue(uint32_t index, void* value);
void YieldThread();
// Names a thread of this process while it runs (a thread that has ended is left
// alone). The name is cut to the platform's limit (15 bytes of UTF-8), never inside a
// character.
bool SetThreadName(ThreadHandle* t, const std::string& utf8Name);
constexpr size_t kThreadNameMax = 15;

// ---- Heaps. A heap answers size, validate and free questions safely for any address:
// one that is not the start of one of its live blocks gets the failure answer.
constexpr uint32_t kHeapNoSerialize = 0x1;
constexpr uint32_t kHeapZeroMemory = 0x8;
constexpr size_t kHeapSizeFailed = ~size_t(0);
struct OsHeap;
OsHeap* HeapCreate(uint32_t flags, size_t initialSize);
bool HeapDestroy(OsHeap* heap); // frees every block still in it
void* HeapAlloc(OsHeap* heap, uint32_t flags, size_t size);
void* HeapReAlloc(OsHeap* heap, uint32_t flags, void* p, size_t size); // null: old block stands
bool HeapFree(OsHeap* heap, uint32_t flags, void* p);
size_t HeapSize(OsHeap* heap, uint32_t flags, const void* p);   // kHeapSizeFailed if not a block
bool HeapValidate(OsHeap* heap, uint32_t flags, const void* p); // null p: the whole heap
size_t HeapCompact(OsHeap* heap, uint32_t flags);
OsHeap* GetProcessHeap(); // serialised, lives as long as the process

// ---- Pages. Blocks of whole pages; the routing rules of the library count in the
// allocation granularity, kept at 64 KiB.
constexpr size_t kAllocationGranularity = 65536;
size_t AllocationGranularity();
void* PageAlloc(size_t size);               // read-write, zeroed; null on failure
void* PageReAlloc(void* base, size_t size); // grows in place or fails; never moves
size_t PageRegionSize(const void* base);    // 0 if base is not a page block
bool PageFree(void* base);
size_t PageSize();
// Makes whole pages of a page block unreadable and unwritable (p and size a multiple of
// PageSize()), so that a kernel reading or writing past a buffer placed before them
// faults at once. PageFree releases them with the block.
bool PageNoAccess(void* p, size_t size);
// Backs the whole pages inside [p, p + size) with memory at once where they are not yet
// backed, as writing them would, without changing a byte: one call in place of a fault
// per page of a freshly mapped buffer that is about to be written in whole. Any memory
// the caller may write; a hint only, which may do nothing.
void PagePrepareWrite(void* p, size_t size);

} // namespace os
} // namespace kelp
