// The queues of the streaming sample-rate converter: blocks of 512 float samples, kept
// one to a node in a double-ended queue, so that channels can be read one after the
// other in any amounts.
#pragma once

#include <cstdint>
#include <deque>

// A fixed block of 512 samples: `count` written, `read` of them taken.
struct SampleBlock {
    static constexpr unsigned kCapacity = 512;

    float samples[kCapacity];
    unsigned count = 0; // at most kCapacity
    unsigned read = 0;  // at most count

    static unsigned capacity() { return kCapacity; }
    unsigned freeSpace() const { return kCapacity - count; }
    unsigned available() const { return count - read; }
    float* writeAddress() { return samples + count; }
    const float* readAddress() const { return samples + read; }
    void addCount(unsigned n) { count = n >= kCapacity - count ? kCapacity : count + n; }
    void addRead(unsigned n) { read = n >= count - read ? count : read + n; }
    void markFull() { count = kCapacity; }
};

static_assert(sizeof(SampleBlock) == 2056, "a queue entry is one block of 2056 bytes");

class SampleQueue {
  public:
    bool empty() const { return _blocks.empty(); }
    size_t blocks() const { return _blocks.size(); }
    SampleBlock& front() { return _blocks.front(); }
    SampleBlock& back() { return _blocks.back(); }
    // Appends an empty block (its samples cleared) and gives it.
    SampleBlock& append() { return _blocks.emplace_back(); }
    void removeFront() { _blocks.pop_front(); }

    // Samples available: the first block's and the last's, and the inner blocks counted
    // as full (they always are: only the ends are partly written or read).
    uint32_t totalAvailable() const {
        if (_blocks.empty()) return 0;
        if (_blocks.size() == 1) return _blocks.front().available();
        return _blocks.front().available() + _blocks.back().available() +
               uint32_t(SampleBlock::kCapacity * (_blocks.size() - 2));
    }

  private:
    std::deque<SampleBlock> _blocks;
};
