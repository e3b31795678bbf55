// The project's generated test picture: a landscape with smooth skies, soft clouds, a
// textured ridge and meadow, trees and a house with hard edges, so that codecs meet the
// mix of flat areas, gradients, fine texture and sharp edges of a natural frame. The
// same picture serves the codec tests, the benchmarks and `kelp codec-roundtrip
// --generate`. Also: moving pictures between packed rows and DIB rows, and PSNR.
// Header-only, so that the tool (which sees the library's exported interface only) can
// use it as well as the tests.
#pragma once

#include <kelp/kxbih.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace testpic {

// Packed BGR, 3 bytes a pixel, rows top-down without padding.
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> bgr;
};

namespace detail {

inline uint32_t Hash(int32_t x, int32_t y, uint32_t seed) {
    uint32_t h = uint32_t(x) * 0x8DA6B343u ^ uint32_t(y) * 0xD8163841u ^ seed * 0xCB1AB31Fu;
    h ^= h >> 13;
    h *= 0x5BD1E995u;
    h ^= h >> 15;
    return h;
}

inline double Lattice(int32_t x, int32_t y, uint32_t seed) {
    return double(Hash(x, y, seed) & 0xFFFF) / 65535.0;
}

inline double Smooth(double t) {
    return t * t * (3.0 - 2.0 * t);
}

// Value noise in [0, 1] at one scale.
inline double Noise(double x, double y, uint32_t seed) {
    const double fx = std::floor(x), fy = std::floor(y);
    const int32_t ix = int32_t(fx), iy = int32_t(fy);
    const double tx = Smooth(x - fx), ty = Smooth(y - fy);
    const double a = Lattice(ix, iy, seed), b = Lattice(ix + 1, iy, seed);
    const double c = Lattice(ix, iy + 1, seed), d = Lattice(ix + 1, iy + 1, seed);
    return (a + (b - a) * tx) + ((c + (d - c) * tx) - (a + (b - a) * tx)) * ty;
}

// Fractal noise: octaves of halving size and weight, in [0, 1].
inline double Fractal(double x, double y, int octaves, uint32_t seed) {
    double sum = 0, weight = 0.5, total = 0;
    for (int o = 0; o < octaves; ++o) {
        sum += weight * Noise(x, y, seed + uint32_t(o));
        total += weight;
        x *= 2.03;
        y *= 2.03;
        weight *= 0.5;
    }
    return sum / total;
}

inline double Mix(double a, double b, double t) {
    return a + (b - a) * t;
}
inline double Clamp01(double t) {
    return t < 0 ? 0 : (t > 1 ? 1 : t);
}
inline uint8_t Byte(double v) {
    return uint8_t(v <= 0 ? 0 : (v >= 255 ? 255 : v + 0.5));
}

struct Rgb {
    double r, g, b;
};
inline Rgb Blend(Rgb a, Rgb b, double t) {
    return {Mix(a.r, b.r, t), Mix(a.g, b.g, t), Mix(a.b, b.b, t)};
}

} // namespace detail

// The picture at any size; at 720x576 it is the codecs' reference frame.
inline Picture GenerateTestPicture(int width, int height) {
    using namespace detail;
    Picture p;
    p.width = width;
    p.height = height;
    p.bgr.resize(size_t(width) * size_t(height) * 3);
    const double sx = 720.0 / width, sy = 576.0 / height; // features scale with the size
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double u = x * sx, v = y * sy; // reference coordinates, 720x576
            // Sky: deep blue at the top to pale at the horizon, a sun glow, soft clouds.
            const double horizon = 300;
            Rgb c = Blend({40, 80, 170}, {185, 210, 235}, Clamp01(v / horizon));
            const double sun = std::hypot(u - 560, v - 90);
            c = Blend(c, {255, 245, 200}, Clamp01(1.0 - sun / 140.0) * 0.8);
            if (sun < 28) c = {255, 250, 225};
            const double cloud = Fractal(u / 140.0, v / 45.0, 5, 11);
            c = Blend(c, {245, 245, 250}, Clamp01((cloud - 0.52) * 4.0) * Clamp01(1 - v / 260));
            // A ridge of mountains with rocky texture.
            const double ridge = 230 + 70 * Fractal(u / 180.0, 0.5, 6, 23);
            if (v > ridge) {
                const double rock = Fractal(u / 12.0, v / 12.0, 4, 31);
                const double shade = 0.55 + 0.45 * Fractal(u / 60.0, v / 30.0, 3, 37);
                c = Blend({70, 80, 100}, {150, 150, 160}, rock * shade);
                if (v < ridge + 18) c = Blend({235, 240, 245}, c, (v - ridge) / 18.0); // snow
            }
            // Meadow in front: green, darker and coarser towards the viewer.
            const double meadowTop = 360 + 25 * std::sin(u / 110.0);
            if (v > meadowTop) {
                const double depth = Clamp01((v - meadowTop) / (576 - meadowTop));
                const double grass = Fractal(u / (3 + 5 * depth), v / (2 + 3 * depth), 4, 41);
                c = Blend({70, 140, 50}, {150, 190, 70}, grass);
                c = Blend(c, {40, 80, 30}, depth * 0.5);
                // A path of sand across the meadow.
                const double path = std::fabs(u - (360 + 180 * std::sin(v / 70.0)));
                if (path < 10 + 40 * depth)
                    c = Blend({200, 180, 140}, c, Fractal(u / 4, v / 4, 2, 43) * 0.4);
            }
            // A house with hard edges: white wall, red roof, dark window.
            if (u > 120 && u < 250 && v > 330 && v < 430) c = {230, 225, 215};
            if (v > 280 && v <= 330 && std::fabs(u - 185) < (v - 280) * 1.5) c = {170, 40, 30};
            if (u > 150 && u < 180 && v > 350 && v < 380) c = {40, 50, 70};
            if (u > 200 && u < 228 && v > 370 && v < 430) c = {90, 60, 40};
            // Trees: dark leafy blobs on trunks.
            const double trees[][2] = {{420, 380}, {470, 400}, {640, 390}, {60, 420}};
            for (const auto& t : trees) {
                if (std::fabs(u - t[0]) < 5 && v > t[1] && v < t[1] + 60) c = {80, 55, 35};
                const double d = std::hypot((u - t[0]) / 38.0, (v - t[1]) / 55.0);
                const double leaf = Fractal(u / 5.0, v / 5.0, 3, 53);
                if (d < 0.8 + 0.3 * leaf) c = Blend({20, 60, 25}, {80, 140, 50}, leaf);
            }
            // A little sensor grain everywhere.
            const double grain = (Lattice(x, y, 97) - 0.5) * 4.0;
            uint8_t* px = &p.bgr[(size_t(y) * size_t(width) + size_t(x)) * 3];
            px[0] = Byte(c.b + grain);
            px[1] = Byte(c.g + grain);
            px[2] = Byte(c.r + grain);
        }
    }
    return p;
}

// Bytes a DIB row of this width and depth takes, padded to 4.
inline uint32_t DibStride(int width, int bits) {
    return (uint32_t(width) * uint32_t(bits / 8) + 3u) & ~3u;
}

// A BGR record of 144 bytes for a picture of this size; bottom-up unless topDown.
inline KXBMINFOHEADER DibRecord(int width, int height, int bits, bool topDown = false) {
    KXBMINFOHEADER d;
    std::memset(&d, 0, sizeof(d));
    d.biSize = KXBMI_SIZE;
    d.biWidth = width;
    d.biHeight = topDown ? -height : height;
    d.biPlanes = 1;
    d.biBitCount = uint16_t(bits);
    d.biCompression = KXBI_RGB;
    d.biSizeImage = DibStride(width, bits) * uint32_t(height);
    d.bmiMagic = KXBMI_MAGIC;
    d.bmiFrame = 1;
    d.bmiRatioX = d.bmiRatioY = 0x10000;
    if (bits == 32) d.bmiAlpha = KXDIB_ALPHA_OPAQUE;
    return d;
}

// The picture in the rows of `d` (24 or 32 bits, either row order); the fourth byte of
// a 32-bit pixel is 255.
inline std::vector<uint8_t> ToDib(const Picture& p, const KXBMINFOHEADER& d) {
    const int bpp = d.biBitCount / 8;
    const uint32_t stride = DibStride(p.width, d.biBitCount);
    std::vector<uint8_t> out(size_t(stride) * size_t(p.height), 0);
    for (int y = 0; y < p.height; ++y) {
        const int row = d.biHeight > 0 ? p.height - 1 - y : y;
        uint8_t* dst = &out[size_t(row) * stride];
        const uint8_t* src = &p.bgr[size_t(y) * size_t(p.width) * 3];
        for (int x = 0; x < p.width; ++x) {
            std::memcpy(dst + x * bpp, src + x * 3, 3);
            if (bpp == 4) dst[x * 4 + 3] = 255;
        }
    }
    return out;
}

// The picture held in DIB rows described by `d`.
inline Picture FromDib(const uint8_t* bits, const KXBMINFOHEADER& d) {
    Picture p;
    p.width = d.biWidth;
    p.height = d.biHeight < 0 ? -d.biHeight : d.biHeight;
    p.bgr.resize(size_t(p.width) * size_t(p.height) * 3);
    const int bpp = d.biBitCount / 8;
    const uint32_t stride = DibStride(p.width, d.biBitCount);
    for (int y = 0; y < p.height; ++y) {
        const int row = d.biHeight > 0 ? p.height - 1 - y : y;
        const uint8_t* src = bits + size_t(row) * stride;
        uint8_t* dst = &p.bgr[size_t(y) * size_t(p.width) * 3];
        for (int x = 0; x < p.width; ++x)
            std::memcpy(dst + x * 3, src + x * bpp, 3);
    }
    return p;
}

// Peak signal-to-noise ratio of b against a over all three channels, in dB; 99 for
// equal pictures, 0 for pictures of different sizes.
inline double Psnr(const Picture& a, const Picture& b) {
    if (a.width != b.width || a.height != b.height || a.bgr.size() != b.bgr.size()) return 0;
    double sum = 0;
    for (size_t i = 0; i < a.bgr.size(); ++i) {
        const double e = double(a.bgr[i]) - double(b.bgr[i]);
        sum += e * e;
    }
    if (sum == 0) return 99.0;
    const double mse = sum / double(a.bgr.size());
    return 10.0 * std::log10(255.0 * 255.0 / mse);
}

} // namespace testpic
