// Pictures for the transform's tests: a record and its pixels in a buffer that ends at an
// unreadable page, so that a raster pass that reads or writes past an image faults.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include <kelp/stdfx2d.h>
#include <kelp/stdfx_dib.h>

#include "guardedbuffer.h"
#include "kxbihtest.h"

namespace fx2dtest {

enum class Fmt { kRGB, k444, k422, k422Alpha, k444_24 };

class Picture {
public:
    // `guarded` false keeps the pixels in an ordinary buffer (cheaper when thousands of
    // pictures are made).
    Picture(Fmt fmt, int32_t width, int32_t height, uint32_t colourSpace = 1, bool guarded = true) {
        switch (fmt) {
        case Fmt::kRGB:
            rec = kelptest::MakeRgb(width, height, 32);
            break;
        case Fmt::k444:
            rec = kelptest::MakeYuv(width, height, 32);
            break;
        case Fmt::k444_24:
            rec = kelptest::MakeYuv(width, height, 24);
            break;
        case Fmt::k422:
            rec = kelptest::MakeYuv(width, height, 24, KXYUV_SAMPLING_422B);
            break;
        case Fmt::k422Alpha:
            rec = kelptest::MakeYuv(width, height, 32, KXYUV_SAMPLING_422B);
            break;
        }
        rec.yuv.yuvColorSpace = colourSpace;
        if (fmt == Fmt::k422Alpha) {
            rec.bmi.bmiAlphaOffset = uint32_t(stdfx::DIBStride(&rec.bmi) * Height());
            rec.bmi.bmiAlphaStride = uint32_t(stdfx::DIBAlphaStride(&rec.bmi));
        }
        rec.bmi.biSizeImage = stdfx::DIBImageSize(&rec.bmi);
        const size_t size = rec.bmi.biSizeImage ? rec.bmi.biSizeImage : 1;
        if (guarded) {
            buf.reset(new kelptest::GuardedBuffer(size));
            m_data = buf->data();
        } else {
            plain.assign(size, 0);
            m_data = plain.data();
        }
        m_size = size;
        std::memset(m_data, 0, m_size);
    }
    KXBMINFOHEADER* Header() { return &rec.bmi; }
    uint8_t* Bits() { return m_data; }
    size_t Size() const { return m_size; }
    int32_t Width() const { return rec.bmi.biWidth; }
    int32_t Height() const { return rec.bmi.biHeight < 0 ? -rec.bmi.biHeight : rec.bmi.biHeight; }
    int32_t Stride() const { return stdfx::DIBStride(&rec.bmi); }
    uint8_t* Row(int32_t r) { return Bits() + ptrdiff_t(r) * Stride(); }
    // The alpha plane row of a 32-bit 4:2:2 picture.
    uint8_t* AlphaRow(int32_t r) {
        return Bits() + ptrdiff_t(Stride()) * Height() +
               ptrdiff_t(r) * stdfx::DIBAlphaStride(&rec.bmi);
    }
    std::vector<uint8_t> Bytes() const { return std::vector<uint8_t>(m_data, m_data + m_size); }
    void Random(std::mt19937& rng) {
        for (size_t i = 0; i < m_size; ++i)
            m_data[i] = uint8_t(rng());
    }
    // Every pixel premultiplied-consistent: colour bytes no larger than alpha (RGB only).
    void RandomPremultiplied(std::mt19937& rng) {
        Random(rng);
        if (rec.bmi.biCompression != 0) return;
        for (int32_t y = 0; y < Height(); ++y)
            for (int32_t x = 0; x < Width(); ++x) {
                uint8_t* p = Row(y) + 4 * x;
                for (int c = 0; c < 3; ++c)
                    p[c] = uint8_t(p[c] % (p[3] + 1));
            }
    }
    // One 4-byte value in every pixel (RGB, 4:4:4).
    void Flat(uint32_t value) {
        for (int32_t y = 0; y < Height(); ++y)
            for (int32_t x = 0; x < Width(); ++x)
                std::memcpy(Row(y) + 4 * x, &value, 4);
    }
    // Rows whose memory row number has parity `p`, as bytes (with the alpha plane rows).
    std::vector<uint8_t> RowsOfParity(int p) {
        std::vector<uint8_t> out;
        const bool plane = rec.bmi.biCompression == KXBI_YUV &&
                           rec.yuv.yuvSampling != KXYUV_SAMPLING_444 && rec.bmi.biBitCount == 32;
        for (int32_t y = p; y < Height(); y += 2) {
            out.insert(out.end(), Row(y), Row(y) + Stride());
            if (plane) out.insert(out.end(), AlphaRow(y), AlphaRow(y) + Width());
        }
        return out;
    }

    KXBMINFOHEADERYUV rec;
    std::unique_ptr<kelptest::GuardedBuffer> buf;
    std::vector<uint8_t> plain;

private:
    uint8_t* m_data = nullptr;
    size_t m_size = 0;
};

inline stdfx2d::FX2DPARAM Param(double sx, double sy, double ox = 0, double oy = 0,
                                double transparency = 0) {
    stdfx2d::FX2DPARAM p = {};
    p.size = sizeof p;
    p.scaleX = sx;
    p.scaleY = sy;
    p.offsetX = ox;
    p.offsetY = oy;
    p.transparency = transparency;
    return p;
}

inline stdfx2d::FX2DQUALITY Quality(int mode, double softX = 0, double softY = 0) {
    stdfx2d::FX2DQUALITY q = {};
    q.mode = mode;
    q.softnessX = softX;
    q.softnessY = softY;
    return q;
}

// CRC-32 (reflected, 0xEDB88320) of a run of bytes, continued from `crc`.
inline uint32_t Crc32(uint32_t crc, const uint8_t* p, size_t n) {
    crc = ~crc;
    for (size_t i = 0; i < n; ++i) {
        crc ^= p[i];
        for (int k = 0; k < 8; ++k)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

} // namespace fx2dtest
