// Test buffers that end exactly where an unreadable page begins, so that a kernel that
// reads or writes one byte past its buffer faults at once, with or without sanitizers.
// The start lies wherever the size puts it: odd sizes give unaligned starts.
#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "runtime/kelpos.h"

namespace kelptest {

class GuardedBuffer {
public:
    explicit GuardedBuffer(size_t size) : m_size(size) {
        size_t page = kelp::os::PageSize();
        size_t data = (size + page - 1) / page * page;
        m_base = static_cast<uint8_t*>(kelp::os::PageAlloc(data + page));
        if (m_base) kelp::os::PageNoAccess(m_base + data, page);
        m_data = m_base ? m_base + data - size : nullptr;
    }
    ~GuardedBuffer() {
        if (m_base) kelp::os::PageFree(m_base);
    }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;
    uint8_t* data() { return m_data; }
    size_t size() const { return m_size; }
    void Fill(uint8_t v) { memset(m_data, v, m_size); }
    void Random(std::mt19937& rng) {
        for (size_t i = 0; i < m_size; ++i)
            m_data[i] = uint8_t(rng());
    }
    std::vector<uint8_t> Copy() const { return std::vector<uint8_t>(m_data, m_data + m_size); }

private:
    size_t m_size;
    uint8_t* m_base = nullptr;
    uint8_t* m_data = nullptr;
};

} // namespace kelptest
