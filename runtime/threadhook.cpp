// The thread registration hook. The naming entry is looked up once, under the
// record's lock; a failed look-up is not tried again. The entry is called without the
// lock held.
#include "threadhook.h"

#include <cxxabi.h>

#include <new>

#include "module.h"

namespace kelp {
namespace {

typedef bool (*NameEntry)(os::ThreadHandle* t, const std::string& utf8Name);

struct HookRecord {
    os::CriticalSection lock;
    NameEntry entry = nullptr;
    bool failed = false;
};

alignas(HookRecord) unsigned char g_hookStorage[sizeof(HookRecord)];
HookRecord* g_hook = nullptr;

} // namespace

void RegisterThread(os::ThreadHandle* t, const wchar_t* name) {
    HookRecord* h = g_hook;
    if (!h || !t || !name) return;
    try {
        h->lock.Enter();
        if (h->failed) {
            h->lock.Leave();
            return;
        }
        // The platform's naming call stands where a host's naming library would be
        // loaded; this platform always has it, so the look-up cannot fail.
        if (!h->entry) h->entry = &os::SetThreadName;
        NameEntry entry = h->entry;
        h->lock.Leave();
        entry(t, os::ToUtf8(name));
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        // A failure to name is swallowed: the thread runs unnamed.
    }
}

void module::ConstructThreadHook() {
    g_hook = new (g_hookStorage) HookRecord();
}

void module::DestroyThreadHook() {
    if (!g_hook) return;
    HookRecord* h = g_hook;
    h->lock.Enter();
    h->failed = true;
    h->entry = nullptr;
    h->lock.Leave();
    g_hook = nullptr;
    h->~HookRecord();
}

} // namespace kelp
