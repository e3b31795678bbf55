// Linux: critical sections, events and the interlocked compare-and-exchange.
#include "kelpos.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>

namespace kelp {
namespace os {

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

CriticalSection::CriticalSection() {
    new (m_storage) CsImpl();
}
CriticalSection::~CriticalSection() {
    reinterpret_cast<CsImpl*>(m_storage)->~CsImpl();
}
void CriticalSection::Enter() {
    CsImpl* cs = reinterpret_cast<CsImpl*>(m_storage);
    if (cs->m.try_lock()) return;
    cs->contention.fetch_add(1, std::memory_order_relaxed);
    cs->m.lock();
}
bool CriticalSection::TryEnter() {
    return reinterpret_cast<CsImpl*>(m_storage)->m.try_lock();
}
void CriticalSection::Leave() {
    reinterpret_cast<CsImpl*>(m_storage)->m.unlock();
}
uint32_t CriticalSection::Contention() const {
    return reinterpret_cast<const CsImpl*>(m_storage)->contention.load(std::memory_order_relaxed);
}

Event::Event(bool manualReset) {
    EventImpl* e = new (m_storage) EventImpl();
    e->manual = manualReset;
}
Event::~Event() {
    reinterpret_cast<EventImpl*>(m_storage)->~EventImpl();
}
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

int32_t InterlockedCompareExchange(volatile int32_t* dest, int32_t exchange, int32_t comparand) {
    int32_t expected = comparand;
    __atomic_compare_exchange_n(dest, &expected, exchange, false, __ATOMIC_SEQ_CST,
                                __ATOMIC_SEQ_CST);
    return expected;
}

} // namespace os
} // namespace kelp
