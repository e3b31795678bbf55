// The lazily made process-wide objects of the toolkit (tables, translators). The first
// caller makes the object; a caller that comes while another is making it gets what
// stands at that moment, which may still be null, rather than a second object.
#pragma once

#include <atomic>
#include <new>

#include <kelp/mpheap.h>

namespace stdfx {

template <class T> class Singleton {
public:
    T* Get() {
        T* p = m_instance.load(std::memory_order_acquire);
        if (p) return p;
        if (m_guard.fetch_add(1, std::memory_order_acq_rel) + 1 == 1) {
            p = new (kelp::nothrow) T;
            m_instance.store(p, std::memory_order_release);
            m_guard.store(0, std::memory_order_release);
            return p;
        }
        return m_instance.load(std::memory_order_acquire);
    }
    // At library end, and in tests that want a fresh object.
    void Destroy() {
        delete m_instance.exchange(nullptr, std::memory_order_acq_rel);
        m_guard.store(0, std::memory_order_release);
    }

private:
    std::atomic<T*> m_instance{nullptr};
    std::atomic<int32_t> m_guard{0};
};

// Each file that holds singletons ends them; DestroySingletons ends them all (the
// library's teardown calls it).
void DestroyTables();
void DestroyTranslators();
void DestroySingletons();

} // namespace stdfx
