// The table of live blocks that the heaps and the page blocks of the Linux platform
// layer keep. Internal to those files.
#pragma once

#include <stdint.h>
#include <stdlib.h>

#include <cstddef>

namespace kelp {
namespace os {

// An open-addressed table from block start to block size. It lets a heap answer for
// any address: an address that is not a key is not a block of that heap. Linear probing
// with deletion by backward shift: no tombstones build up under the churn of a heap, so
// the table is rebuilt only when it doubles. Key 0 marks an empty slot (no block starts
// at address 0).
class BlockTable {
public:
    // Room for one more key without growing, or false if the table cannot grow.
    bool Reserve() { return (m_count + 1) * 2 <= m_cap || Grow(); }
    bool Insert(uintptr_t key, size_t size) {
        if (key == kEmpty || !Reserve()) return false;
        size_t i = Slot(key);
        while (m_slots[i].key != kEmpty) {
            if (m_slots[i].key == key) {
                m_slots[i].size = size;
                return true;
            }
            i = Next(i);
        }
        m_slots[i] = {key, size};
        ++m_count;
        return true;
    }
    bool Find(uintptr_t key, size_t* size) const {
        if (!m_cap || key == kEmpty) return false;
        for (size_t i = Slot(key); m_slots[i].key != kEmpty; i = Next(i)) {
            if (m_slots[i].key == key) {
                if (size) *size = m_slots[i].size;
                return true;
            }
        }
        return false;
    }
    bool Erase(uintptr_t key) {
        if (!m_cap || key == kEmpty) return false;
        size_t i = Slot(key);
        while (m_slots[i].key != key) {
            if (m_slots[i].key == kEmpty) return false;
            i = Next(i);
        }
        // The keys after the gap, up to the next empty slot, move back into it unless
        // that would put one before its home slot; a search then never stops short.
        for (size_t j = Next(i); m_slots[j].key != kEmpty; j = Next(j)) {
            const size_t home = Slot(m_slots[j].key);
            const bool homeInGap = i <= j ? (home > i && home <= j) : (home > i || home <= j);
            if (!homeInGap) {
                m_slots[i] = m_slots[j];
                i = j;
            }
        }
        m_slots[i].key = kEmpty;
        --m_count;
        return true;
    }
    template <class F> void ForEach(F f) const {
        for (size_t i = 0; i < m_cap; ++i)
            if (m_slots[i].key != kEmpty) f(m_slots[i].key, m_slots[i].size);
    }
    size_t Count() const { return m_count; }
    void Release() {
        free(m_slots);
        m_slots = nullptr;
        m_cap = m_count = 0;
    }

private:
    struct Entry {
        uintptr_t key;
        size_t size;
    };
    static constexpr uintptr_t kEmpty = 0;
    size_t Slot(uintptr_t key) const {
        return size_t((uint64_t(key >> 4) * 0x9E3779B97F4A7C15ull) >> 20) & (m_cap - 1);
    }
    size_t Next(size_t i) const { return (i + 1) & (m_cap - 1); }
    bool Grow() {
        const size_t cap = m_cap ? m_cap * 2 : 256;
        Entry* slots = static_cast<Entry*>(calloc(cap, sizeof(Entry)));
        if (!slots) return false;
        Entry* old = m_slots;
        const size_t oldCap = m_cap;
        m_slots = slots;
        m_cap = cap;
        m_count = 0;
        for (size_t i = 0; i < oldCap; ++i)
            if (old[i].key != kEmpty) Insert(old[i].key, old[i].size);
        free(old);
        return true;
    }
    Entry* m_slots = nullptr;
    size_t m_cap = 0, m_count = 0;
};

} // namespace os
} // namespace kelp
