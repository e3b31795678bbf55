// The table of live blocks that the heaps and the page blocks of the Linux platform
// layer keep. Internal to those files.
#pragma once

#include <stdint.h>
#include <stdlib.h>

#include <cstddef>

namespace kelp {
namespace os {

// An open-addressed table from block start to block size. It lets a heap answer for
// any address: an address that is not a key is not a block of that heap.
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

} // namespace os
} // namespace kelp
