// A reader for the streaming converter's tests: hands out a prepared byte stream in
// blocks of chosen sizes, each in its own allocation (so that a read past a block is
// caught), and checks that every block comes back through FreeData.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include <kelp/samplerateconverter.h>

namespace srctest {

class BlockReader : public kelp::ISampleRateConverter::IReadData {
  public:
    // `blockBytes` are the sizes of the blocks in turn; the last repeats.
    BlockReader(std::vector<uint8_t> bytes, std::vector<uint32_t> blockBytes)
        : m_bytes(std::move(bytes)), m_sizes(std::move(blockBytes)) {}
    ~BlockReader() { EXPECT_EQ(m_outstanding, nullptr) << "a block was not given back"; }

    bool ReadData(void** data, uint32_t* bytes, uintptr_t* cookie) override {
        EXPECT_EQ(m_outstanding, nullptr) << "ReadData before the last block came back";
        ++m_reads;
        *cookie = uintptr_t(0xC0DE0000u + m_reads);
        if (m_pos >= m_bytes.size()) {
            m_ended = true;
            *data = nullptr;
            *bytes = 0;
            m_outstanding = &m_endMark;
            m_cookie = *cookie;
            return false;
        }
        uint32_t n = m_sizes[std::min(m_reads - 1, uint32_t(m_sizes.size() - 1))];
        n = uint32_t(std::min<size_t>(n, m_bytes.size() - m_pos));
        uint8_t* block = new uint8_t[n ? n : 1];
        std::memcpy(block, m_bytes.data() + m_pos, n);
        m_pos += n;
        *data = block;
        *bytes = n;
        m_outstanding = block;
        m_cookie = *cookie;
        return true;
    }

    void FreeData(void* data, uintptr_t cookie) override {
        ++m_frees;
        EXPECT_EQ(cookie, m_cookie);
        if (m_outstanding == &m_endMark) {
            EXPECT_EQ(data, nullptr);
        } else {
            EXPECT_EQ(data, m_outstanding);
            delete[] static_cast<uint8_t*>(data);
        }
        m_outstanding = nullptr;
    }

    uint32_t reads() const { return m_reads; }
    uint32_t frees() const { return m_frees; }
    bool ended() const { return m_ended; }

  private:
    std::vector<uint8_t> m_bytes;
    std::vector<uint32_t> m_sizes;
    size_t m_pos = 0;
    uint32_t m_reads = 0, m_frees = 0;
    bool m_ended = false;
    void* m_outstanding = nullptr;
    uintptr_t m_cookie = 0;
    uint8_t m_endMark = 0;
};

// An interleaved 16-bit block stream of `streams` streams of `channels` channels, cut
// into blocks of `blockFrames` frames per stream: each block holds stream 0's frames,
// then stream 1's, and so on. Sample (s, c, i) is given by `value`.
template <class F>
std::vector<uint8_t> Pcm16Blocks(unsigned streams, unsigned channels, unsigned frames,
                                 unsigned blockFrames, F value) {
    std::vector<int16_t> out;
    for (unsigned start = 0; start < frames; start += blockFrames) {
        unsigned n = std::min(blockFrames, frames - start);
        for (unsigned s = 0; s < streams; ++s)
            for (unsigned i = 0; i < n; ++i)
                for (unsigned c = 0; c < channels; ++c)
                    out.push_back(value(s, c, start + i));
    }
    std::vector<uint8_t> bytes(out.size() * 2);
    std::memcpy(bytes.data(), out.data(), bytes.size());
    return bytes;
}

inline KXWAVFORMAT Format(int rate, int bits, int channels, int streams, int tag,
                          uint32_t activeStream, uint32_t activeChannels) {
    kelp::CKXWAVFormat f(rate, bits, channels, streams, (unsigned short)tag);
    f.ActiveStream = activeStream;
    f.ActiveChannels = activeChannels;
    return f;
}

// The converter as the caller sees it, released at the end of the scope.
struct Converter {
    kelp::ISampleRateConverter* p = nullptr;
    Converter(const KXWAVFORMAT& f, int rate, kelp::ISampleRateConverter::IReadData* r) {
        void* o = nullptr;
        if (kelp::ISampleRateConverter::Create(f, rate, r, &o))
            p = static_cast<kelp::ISampleRateConverter*>(o);
    }
    ~Converter() {
        if (p) {
            EXPECT_EQ(p->Release(), 0u);
        }
    }
    kelp::ISampleRateConverter* operator->() { return p; }
};

} // namespace srctest
