// Records and allocators for the image and conversion tests.
#pragma once

#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <kelp/alloc.h>
#include <kelp/kxbih.h>

#include "tracecapture.h"

namespace kelptest {

// A 160-byte record, zeroed, so that the YUV extension can always be read.
inline KXBMINFOHEADERYUV MakeRgb(int32_t width, int32_t height, uint16_t bits) {
    KXBMINFOHEADERYUV r;
    std::memset(&r, 0, sizeof r);
    r.bmi.biSize = KXBMI_SIZE;
    r.bmi.biWidth = width;
    r.bmi.biHeight = height;
    r.bmi.biPlanes = 1;
    r.bmi.biBitCount = bits;
    r.bmi.biSizeImage =
        uint32_t(((bits * width / 8) + 3) & ~3) * uint32_t(height < 0 ? -height : height);
    r.bmi.bmiMagic = KXBMI_MAGIC;
    r.bmi.bmiFrame = 1;
    return r;
}

inline KXBMINFOHEADERYUV MakeYuv(int32_t width, int32_t height, uint16_t bits,
                                 uint32_t sampling = KXYUV_SAMPLING_444) {
    KXBMINFOHEADERYUV r = MakeRgb(width, height, bits);
    r.bmi.biSize = KXBMI_SIZE_YUV;
    r.bmi.biCompression = KXBI_YUV;
    r.bmi.bmiExtOffset = KXBMI_EXTOFFSET;
    r.yuv.yuvBits = 8;
    r.yuv.yuvSampling = sampling;
    return r;
}

// The area-8 lines of the trace at one level, each as its own text.
inline std::vector<std::wstring> Lines8(unsigned level) {
    std::vector<std::wstring> out;
    for (const auto& l : SinkLines())
        if (l.area == 8 && l.level == level) out.push_back(l.text);
    return out;
}

// How many assertion reports the sink received.
inline int AssertionCount() {
    int n = 0;
    for (const auto& l : SinkLines())
        if (l.area == 8 && l.level == 2 &&
            l.text.rfind(L"ASSERTION FAILED!\nFALSE ,.\\kelpimg, ", 0) == 0)
            ++n;
    return n;
}

// An allocator that knows its live blocks, and can be told to fail or throw from the
// n-th allocation on.
class TrackingAllocator : public kelp::IAllocator {
  public:
    enum Mode { kWork, kFail, kThrow };
    void FailFrom(int n, Mode mode = kFail) {
        m_failFrom = n;
        m_mode = mode;
    }
    void* Allocate(unsigned int size, uint32_t) override {
        ++m_calls;
        if (m_failFrom > 0 && m_calls >= m_failFrom) {
            if (m_mode == kThrow) throw std::runtime_error("allocator refuses");
            return nullptr;
        }
        void* p = ::operator new(size ? size : 1);
        m_live[p] = size;
        return p;
    }
    void* ReAllocate(void*, unsigned int size, uint32_t flags) override {
        return Allocate(size, flags);
    }
    unsigned int GetSize(void* p) override {
        auto it = m_live.find(p);
        return it == m_live.end() ? 0 : it->second;
    }
    void Free(void* p) override {
        if (!p) return;
        auto it = m_live.find(p);
        if (it == m_live.end()) {
            ++m_badFrees;
            return;
        }
        m_live.erase(it);
        ::operator delete(p);
    }
    ~TrackingAllocator() override {
        for (auto& b : m_live)
            ::operator delete(b.first);
    }
    bool Owns(const void* p) const { return m_live.count(const_cast<void*>(p)) != 0; }
    size_t Live() const { return m_live.size(); }
    int Calls() const { return m_calls; }
    int BadFrees() const { return m_badFrees; }

  private:
    std::map<void*, unsigned> m_live;
    int m_calls = 0;
    int m_failFrom = 0;
    Mode m_mode = kWork;
    int m_badFrees = 0;
};

} // namespace kelptest
