// Linux: threads with exit codes, thread-local slots and thread names.
#include "kelpos.h"

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <new>

namespace kelp {
namespace os {

struct ThreadHandle {
    pthread_t thread;
    ThreadProc proc;
    void* arg;
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

uint32_t TlsAlloc() {
    pthread_key_t key;
    if (pthread_key_create(&key, nullptr) != 0) return kTlsOutOfIndexes;
    return uint32_t(key);
}
bool TlsFree(uint32_t index) {
    return pthread_key_delete(pthread_key_t(index)) == 0;
}
void* TlsGetValue(uint32_t index) {
    return pthread_getspecific(pthread_key_t(index));
}
bool TlsSetValue(uint32_t index, void* value) {
    return pthread_setspecific(pthread_key_t(index), value) == 0;
}

void YieldThread() {
    sched_yield();
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

} // namespace os
} // namespace kelp
