// Bounds-checked reading of little- and big-endian words from a file in memory. Every
// read names its offset and fails, rather than reads, past the end.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelp {
namespace imgfile {

class ByteReader {
  public:
    ByteReader(const unsigned char* data, size_t size) : m_data(data), m_size(size) {}

    size_t Size() const { return m_size; }
    const unsigned char* Data() const { return m_data; }
    // True if `count` bytes from `offset` lie inside.
    bool Has(uint64_t offset, uint64_t count) const {
        return offset <= m_size && count <= m_size - offset;
    }
    const unsigned char* At(uint64_t offset, uint64_t count) const {
        return Has(offset, count) ? m_data + offset : nullptr;
    }
    bool Byte(uint64_t o, uint32_t* v) const {
        if (!Has(o, 1)) return false;
        *v = m_data[o];
        return true;
    }
    bool Le16(uint64_t o, uint32_t* v) const {
        if (!Has(o, 2)) return false;
        *v = uint32_t(m_data[o]) | (uint32_t(m_data[o + 1]) << 8);
        return true;
    }
    bool Le32(uint64_t o, uint32_t* v) const {
        if (!Has(o, 4)) return false;
        *v = uint32_t(m_data[o]) | (uint32_t(m_data[o + 1]) << 8) |
             (uint32_t(m_data[o + 2]) << 16) | (uint32_t(m_data[o + 3]) << 24);
        return true;
    }
    bool Be16(uint64_t o, uint32_t* v) const {
        if (!Has(o, 2)) return false;
        *v = (uint32_t(m_data[o]) << 8) | uint32_t(m_data[o + 1]);
        return true;
    }
    bool Be32(uint64_t o, uint32_t* v) const {
        if (!Has(o, 4)) return false;
        *v = (uint32_t(m_data[o]) << 24) | (uint32_t(m_data[o + 1]) << 16) |
             (uint32_t(m_data[o + 2]) << 8) | uint32_t(m_data[o + 3]);
        return true;
    }
    bool W16(uint64_t o, bool bigEndian, uint32_t* v) const {
        return bigEndian ? Be16(o, v) : Le16(o, v);
    }
    bool W32(uint64_t o, bool bigEndian, uint32_t* v) const {
        return bigEndian ? Be32(o, v) : Le32(o, v);
    }

  private:
    const unsigned char* m_data;
    size_t m_size;
};

// Little-endian words into a buffer that the caller sized.
inline void PutU16LE(unsigned char* p, uint32_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
inline void PutU32LE(unsigned char* p, uint32_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
    p[2] = uint8_t(v >> 16);
    p[3] = uint8_t(v >> 24);
}

} // namespace imgfile
} // namespace kelp
