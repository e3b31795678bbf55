// Images and a reference of the blend arithmetic for the compositor's tests, written from
// the formulas themselves: mul as a rounded product over 255, sums held to 0..255.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include <kelp/stdfx.h>

#include "kxbihtest.h"

namespace composetest {

// A 32-bit image: "RGB ", "@YUV" 4:4:4 or 4:2:2, or a depth form.
inline stdfx::CDIB MakeImage(int w, int h, uint32_t format = KXBI_RGB,
                             uint32_t sampling = KXYUV_SAMPLING_444, uint16_t bits = 32) {
    KXBMINFOHEADERYUV r = format == KXBI_RGB || format == KXBI_RGBZ
                              ? kelptest::MakeRgb(w, h, bits)
                              : kelptest::MakeYuv(w, h, bits, sampling);
    r.bmi.biCompression = format;
    r.bmi.biSizeImage = 0;
    return stdfx::CDIB(&r.bmi);
}

// Pixel x of memory line y.
inline uint8_t* At(const stdfx::CDIB& dib, int x, int y) {
    return static_cast<uint8_t*>(dib.Bits()) + ptrdiff_t(y) * dib.Stride() +
           ptrdiff_t(x) * stdfx::CDIB::BytesPerPixel(dib.Header());
}

// Every byte of every row (the pixels only).
inline std::vector<uint8_t> Bytes(const stdfx::CDIB& dib) {
    std::vector<uint8_t> out;
    const int row = dib.Width() * stdfx::CDIB::BytesPerPixel(dib.Header());
    for (int y = 0; y < dib.Height(); ++y)
        out.insert(out.end(), At(dib, 0, y), At(dib, 0, y) + row);
    return out;
}

inline int Mul(int a, int b) {
    const int t = a * b + 128;
    return (t + (t >> 8)) >> 8;
}
inline int Clamp(int v) {
    return v < 0 ? 0 : v > 255 ? 255 : v;
}

// Luma of a BGRA pixel: limited-range Y from the 601 coefficients, stretched to 0..255.
inline int RefLuma(int b, int g, int r) {
    const int y = (16819 * r + 33028 * g + 6437 * b + 0x108000) >> 16;
    int c = y - 16;
    c = c < 0 ? 0 : c > 219 ? 219 : c;
    return (c * 255 + 109) / 219;
}

// One colour byte of a separable mode (2..12, 17..20); L the destination's luma.
inline int RefColour(int mode, int d, int s, int dA, int sA, int L) {
    const int rest = Mul(d, 255 - sA) + Mul(s, 255 - dA);
    const int screen = 255 - Mul(255 - d, 255 - s);
    switch (mode) {
    case 1:
        return Clamp(s + Mul(d, 255 - sA));
    case 2:
        return Clamp(d + s);
    case 3: {
        const int u = s * dA + 128;
        return Clamp(d + s - ((u + (u >> 8)) >> 7));
    }
    case 4:
        return Clamp(Mul(d, s) + rest);
    case 5:
        return screen;
    case 6:
        return Clamp(Mul(Mul(d, s), 255 - s) + Mul(screen, s) + rest);
    case 7:
        return Clamp(Mul(Mul(d, s), 255 - d) + Mul(screen, d) + rest);
    case 8: {
        int q;
        if (s == 0)
            q = 0;
        else if (s >= 255 - d)
            q = 255;
        else
            q = (510 * s + (255 - d)) / (2 * (255 - d));
        return Clamp(q + rest);
    }
    case 9:
        return Clamp(std::min(Mul(d, 255 - sA) + s, Mul(s, 255 - dA) + d));
    case 10:
        return Clamp(std::max(Mul(d, 255 - sA) + s, Mul(s, 255 - dA) + d));
    case 11:
        return Clamp(std::abs(Mul(s, dA) - Mul(d, sA)) + rest);
    case 12:
        return Clamp(255 + rest - Mul(255 - d, 255 - s) - Mul(d, s));
    case 17:
        return Mul(s, dA);
    case 18:
        return Mul(s, L);
    case 19:
        return Mul(s, 255 - dA);
    case 20:
        return Mul(s, 255 - L);
    }
    return -1;
}

inline int RefAlpha(int mode, int dA, int sA, int L) {
    switch (mode) {
    case 1:
        return Clamp(sA + Mul(dA, 255 - sA));
    case 2:
        return Clamp(dA + sA);
    case 5:
        return 255 - Mul(255 - dA, 255 - sA);
    case 17:
        return Mul(sA, dA);
    case 18:
        return Mul(sA, L);
    case 19:
        return Mul(sA, 255 - dA);
    case 20:
        return Mul(sA, 255 - L);
    }
    return Clamp(Mul(sA, 255 - dA) + dA);
}

// Modes 13..16 on one BGRA pixel, through CHSL.
inline void RefHsl(int mode, const uint8_t* d, const uint8_t* s, uint8_t* o) {
    static stdfx::CHSL hsl;
    const int dA = d[3], sA = s[3];
    auto straight = [](int c, int a) {
        const int64_t div = a == 0 ? 0 : ((a >> 1) + 0xFF0000) / a;
        return Clamp(int((div * c) >> 16));
    };
    float h[2], l[2], sat[2];
    hsl.RGBToHSL(&h[0], &l[0], &sat[0], straight(s[2], sA), straight(s[1], sA), straight(s[0], sA));
    hsl.RGBToHSL(&h[1], &l[1], &sat[1], straight(d[2], dA), straight(d[1], dA), straight(d[0], dA));
    // Which pixel (0 source, 1 destination) gives hue, saturation, lightness.
    static const int kFrom[4][3] = {{1, 0, 0}, {0, 1, 0}, {1, 1, 0}, {0, 0, 1}};
    const int* f = kFrom[mode - 13];
    int r, g, b;
    hsl.HSLToRGB(&r, &g, &b, h[f[0]], l[f[2]], sat[f[1]]);
    const int c[3] = {b, g, r};
    for (int i = 0; i < 3; ++i)
        o[i] = uint8_t(Clamp(Mul(Mul(c[i], sA), dA) + Mul(d[i], 255 - sA) + Mul(s[i], 255 - dA)));
    o[3] = uint8_t(Clamp(Mul(sA, 255 - dA) + dA));
}

// Any mode 1..20 on one BGRA pixel.
inline void RefPixel(int mode, const uint8_t* d, const uint8_t* s, uint8_t* o,
                     const uint8_t* lumaOf) {
    if (mode >= 13 && mode <= 16) return RefHsl(mode, d, s, o);
    const int L = RefLuma(lumaOf[0], lumaOf[1], lumaOf[2]);
    uint8_t out[4];
    for (int i = 0; i < 3; ++i)
        out[i] = uint8_t(RefColour(mode, d[i], s[i], d[3], s[3], L));
    out[3] = uint8_t(RefAlpha(mode, d[3], s[3], L));
    std::memcpy(o, out, 4);
}

} // namespace composetest
