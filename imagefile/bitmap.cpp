// The decoded image and the operations that every file format shares.
#include "bitmap.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace kelp {
namespace imgfile {

bool SizeAllowed(int64_t width, int64_t height, const Limits& limits) {
    if (width < 1 || height < 1 || width > kMaxSide || height > kMaxSide) return false;
    const uint64_t pixels = uint64_t(width) * uint64_t(height);
    return pixels <= limits.maxPixels && pixels <= kMaxPixelsCeiling;
}

bool PlausibleForBytes(uint64_t pixels, uint64_t bytes, uint64_t pixelsPerByte) {
    // Every file needs some bytes; below 64 KiB of pixels no file is judged.
    if (pixels <= 65536) return true;
    return bytes != 0 && pixels / pixelsPerByte <= bytes;
}

Bitmap& Bitmap::operator=(Bitmap&& other) noexcept {
    if (this == &other) return *this;
    Reset();
    std::memcpy(palette, other.palette, sizeof palette);
    colors = other.colors;
    alpha = other.alpha;
    m_width = other.m_width;
    m_height = other.m_height;
    m_bits = other.m_bits;
    m_stride = other.m_stride;
    m_topDown = other.m_topDown;
    m_data = other.m_data;
    m_allocator = other.m_allocator;
    other.m_data = nullptr;
    other.m_width = other.m_height = 0;
    return *this;
}

bool Bitmap::Create(int32_t width, int32_t height, uint32_t bits, const Limits& limits,
                    IAllocator* allocator) {
    Reset();
    if (!SizeAllowed(width, height, limits)) return false;
    if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32) return false;
    const uint64_t stride = RowBytes(width, bits);
    const uint64_t bytes = stride * uint64_t(height);
    if (bytes >= (uint64_t(1) << 31)) return false;
    if (!allocator) allocator = WorkAllocator();
    void* p = nullptr;
    try {
        p = allocator->Allocate(unsigned(bytes ? bytes : 1), 0);
    } catch (...) {
        p = nullptr;
    }
    if (!p) return false;
    m_data = static_cast<unsigned char*>(p);
    m_allocator = allocator;
    m_width = width;
    m_height = height;
    m_bits = bits;
    m_stride = uint32_t(stride);
    const uint32_t used = uint32_t((uint64_t(width) * bits + 7) / 8);
    if (used < m_stride)
        for (int32_t y = 0; y < height; ++y)
            std::memset(m_data + size_t(y) * m_stride + used, 0, m_stride - used);
    return true;
}

void Bitmap::Reset() {
    if (m_data && m_allocator) m_allocator->Free(m_data);
    m_data = nullptr;
    m_allocator = nullptr;
    m_topDown = false;
    m_width = m_height = 0;
    m_bits = m_stride = 0;
}

void Bitmap::View(int32_t width, int32_t height, uint32_t bits, uint32_t stride, bool topDown,
                  unsigned char* data) {
    Reset();
    m_width = width;
    m_height = height;
    m_bits = bits;
    m_stride = stride;
    m_topDown = topDown;
    m_data = data;
}

unsigned char* Bitmap::Release() {
    unsigned char* p = m_data;
    m_data = nullptr;
    return p;
}

void SetGreyPalette(Bitmap* bmp, uint32_t bits) {
    const uint32_t n = 1u << bits;
    for (uint32_t i = 0; i < n; ++i) {
        const uint32_t v = i * 255 / (n - 1);
        bmp->palette[i] = v | (v << 8) | (v << 16);
    }
    bmp->colors = n;
}

// ---------------------------------------------------------------- depth

bool ChangeDepth(const Bitmap& src, uint32_t bits, Bitmap* out, const Limits& limits,
                 IAllocator* allocator) {
    if (bits != 24 && bits != 32) return false;
    if (!out->Create(src.Width(), src.Height(), bits, limits, allocator)) return false;
    out->alpha = src.Bits() == 32 ? src.alpha : Bitmap::kIgnore;
    const int32_t w = src.Width();
    const uint32_t step = bits / 8;
    for (int32_t y = 0; y < src.Height(); ++y) {
        const unsigned char* s = src.Line(y);
        unsigned char* d = out->Line(y);
        switch (src.Bits()) {
        case 1:
        case 4:
        case 8: {
            const uint32_t b = src.Bits();
            const uint32_t mask = (1u << b) - 1;
            for (int32_t x = 0; x < w; ++x, d += step) {
                const uint32_t bit = uint32_t(x) * b;
                const uint32_t index = (s[bit >> 3] >> (8 - b - (bit & 7))) & mask;
                const uint32_t c = index < src.colors ? src.palette[index] : 0;
                d[0] = uint8_t(c);
                d[1] = uint8_t(c >> 8);
                d[2] = uint8_t(c >> 16);
                if (step == 4) d[3] = 255;
            }
            break;
        }
        case 16:
            for (int32_t x = 0; x < w; ++x, d += step) {
                const uint32_t v = uint32_t(s[2 * x]) | (uint32_t(s[2 * x + 1]) << 8);
                const uint32_t b5 = v & 31, g5 = (v >> 5) & 31, r5 = (v >> 10) & 31;
                d[0] = uint8_t((b5 << 3) | (b5 >> 2));
                d[1] = uint8_t((g5 << 3) | (g5 >> 2));
                d[2] = uint8_t((r5 << 3) | (r5 >> 2));
                if (step == 4) d[3] = 255;
            }
            break;
        case 24:
            if (step == 3) {
                std::memcpy(d, s, size_t(w) * 3);
            } else {
                for (int32_t x = 0; x < w; ++x, s += 3, d += 4) {
                    d[0] = s[0];
                    d[1] = s[1];
                    d[2] = s[2];
                    d[3] = 255;
                }
            }
            break;
        case 32:
            if (step == 4) {
                std::memcpy(d, s, size_t(w) * 4);
            } else {
                for (int32_t x = 0; x < w; ++x, s += 4, d += 3) {
                    d[0] = s[0];
                    d[1] = s[1];
                    d[2] = s[2];
                }
            }
            break;
        default:
            out->Reset();
            return false;
        }
    }
    return true;
}

const Bitmap* AtDepth(const Bitmap& src, uint32_t bits, Bitmap* tmp, const Limits& limits) {
    if (src.Bits() == bits) return &src;
    return ChangeDepth(src, bits, tmp, limits) ? tmp : nullptr;
}

// ---------------------------------------------------------------- orientation

bool Orient(const Bitmap& src, uint32_t orientation, Bitmap* out, const Limits& limits,
            IAllocator* allocator) {
    if (src.Bits() != 24 && src.Bits() != 32) return false;
    if (orientation < 1 || orientation > 8) orientation = 1;
    const bool swap = orientation >= 5;
    const int32_t sw = src.Width(), sh = src.Height();
    const int32_t dw = swap ? sh : sw, dh = swap ? sw : sh;
    if (!out->Create(dw, dh, src.Bits(), limits, allocator)) return false;
    out->alpha = src.alpha;
    const uint32_t n = src.Bits() / 8;
    // For every pixel (x, y) of the result, the pixel of the source it comes from.
    for (int32_t y = 0; y < dh; ++y) {
        unsigned char* d = out->Line(y);
        for (int32_t x = 0; x < dw; ++x, d += n) {
            int32_t sx, sy;
            switch (orientation) {
            case 2:
                sx = sw - 1 - x;
                sy = y;
                break;
            case 3:
                sx = sw - 1 - x;
                sy = sh - 1 - y;
                break;
            case 4:
                sx = x;
                sy = sh - 1 - y;
                break;
            case 5:
                sx = y;
                sy = x;
                break;
            case 6:
                sx = y;
                sy = sh - 1 - x;
                break;
            case 7:
                sx = sw - 1 - y;
                sy = sh - 1 - x;
                break;
            case 8:
                sx = sw - 1 - y;
                sy = x;
                break;
            default:
                sx = x;
                sy = y;
                break;
            }
            std::memcpy(d, src.Line(sy) + size_t(sx) * n, n);
        }
    }
    return true;
}

// ---------------------------------------------------------------- resizing

namespace {

// The source samples of one output sample along one axis: weights over consecutive
// source indices starting at `first`, adding up to `total`.
struct Taps {
    int32_t first;
    std::vector<uint32_t> weights;
    uint64_t total;
};

// Shrinking: the output sample covers [o*s, (o+1)*s) and source sample i covers
// [i*d, (i+1)*d), both measured in units of 1/(s*d) of the image; the weights are the
// exact overlaps. Growing: linear interpolation between the two source samples around
// the output sample's centre, (o + 1/2) * s / d - 1/2, in units of 1/(2d).
std::vector<Taps> AxisTaps(int32_t s, int32_t d) {
    std::vector<Taps> taps(static_cast<size_t>(d));
    for (int32_t o = 0; o < d; ++o) {
        Taps& t = taps[size_t(o)];
        if (d <= s) {
            const uint64_t lo = uint64_t(o) * uint64_t(s), hi = lo + uint64_t(s);
            const int32_t i0 = int32_t(lo / uint64_t(d));
            const int32_t i1 = int32_t((hi - 1) / uint64_t(d));
            t.first = i0;
            for (int32_t i = i0; i <= i1; ++i) {
                const uint64_t a = std::max<uint64_t>(lo, uint64_t(i) * uint64_t(d));
                const uint64_t b = std::min<uint64_t>(hi, uint64_t(i + 1) * uint64_t(d));
                t.weights.push_back(uint32_t(b - a));
            }
            t.total = uint64_t(s);
        } else {
            const int64_t den = 2 * int64_t(d);
            int64_t num = (2 * int64_t(o) + 1) * int64_t(s) - int64_t(d);
            if (num < 0) num = 0;
            int32_t i0 = int32_t(num / den);
            int64_t frac = num % den;
            if (i0 >= s - 1) {
                i0 = s - 1;
                frac = 0;
            }
            t.first = i0;
            t.weights.push_back(uint32_t(den - frac));
            if (frac) t.weights.push_back(uint32_t(frac));
            t.total = uint64_t(den);
        }
    }
    return taps;
}

} // namespace

bool Resize(const Bitmap& src, int32_t width, int32_t height, Bitmap* out, const Limits& limits,
            IAllocator* allocator) {
    if (src.Bits() != 24 && src.Bits() != 32) return false;
    if (!SizeAllowed(width, height, limits)) return false;
    const uint32_t n = src.Bits() / 8;
    const int32_t sw = src.Width(), sh = src.Height();
    // Across first, into rows of the new width, then down.
    Bitmap mid;
    if (!mid.Create(width, sh, src.Bits(), limits)) return false;
    const std::vector<Taps> tx = AxisTaps(sw, width);
    for (int32_t y = 0; y < sh; ++y) {
        const unsigned char* s = src.Line(y);
        unsigned char* d = mid.Line(y);
        for (int32_t x = 0; x < width; ++x) {
            const Taps& t = tx[size_t(x)];
            for (uint32_t c = 0; c < n; ++c) {
                uint64_t sum = 0;
                for (size_t k = 0; k < t.weights.size(); ++k)
                    sum += uint64_t(t.weights[k]) * s[(size_t(t.first) + k) * n + c];
                d[size_t(x) * n + c] = uint8_t((sum + t.total / 2) / t.total);
            }
        }
    }
    if (!out->Create(width, height, src.Bits(), limits, allocator)) return false;
    out->alpha = src.alpha;
    const std::vector<Taps> ty = AxisTaps(sh, height);
    const size_t rowBytes = size_t(width) * n;
    std::vector<uint64_t> acc(rowBytes);
    for (int32_t y = 0; y < height; ++y) {
        const Taps& t = ty[size_t(y)];
        std::fill(acc.begin(), acc.end(), 0);
        for (size_t k = 0; k < t.weights.size(); ++k) {
            const unsigned char* s = mid.Line(t.first + int32_t(k));
            const uint64_t w = t.weights[k];
            for (size_t i = 0; i < rowBytes; ++i)
                acc[i] += w * s[i];
        }
        unsigned char* d = out->Line(y);
        for (size_t i = 0; i < rowBytes; ++i)
            d[i] = uint8_t((acc[i] + t.total / 2) / t.total);
    }
    return true;
}

} // namespace imgfile
} // namespace kelp
