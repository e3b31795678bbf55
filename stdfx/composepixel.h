// The compositor's per-pixel arithmetic: the one definition of every blend mode, used by
// the plain row loops, the depth compositing and the YUV members alike.
//
// Pixels are four bytes, colour in bytes 0..2 (blue, green, red; or Y, U, V) and alpha in
// byte 3, premultiplied. d and s are a colour byte of the destination and the source,
// dA and sA their alpha bytes before the pixel is written. Every sum goes through Clamp,
// which gives the same values as the clamp table of CTables inside its range and holds
// any other value too, so that pixels that are not truly premultiplied cannot reach
// outside a table.
#pragma once

#include <cstdint>
#include <cstdlib>

#include <kelp/stdfx_tables.h>

namespace stdfx {
namespace compose {

// What the modes read besides the pixels. All tables are those of CTables and the
// translators, fetched once per call.
struct Tables {
    const int32_t* div24;   // CTables::GetDiv24: 0xFF0000 / alpha, rounded
    const int32_t* expandY; // CTables::GetExpandY: 16..235 stretched to 0..255
    const int32_t* toYuv;   // CRGB2YUV::GetTable(0): nine rows, R G B to Y first
    const int32_t* toRgb;   // CYUV2RGB::GetTable(0): Y, V to R, U to B, V to G, U to G
    CHSL* hsl;
    int mode; // the hue, saturation and lightness mode, 13 to 16
    // CTables::GetRecip, the table hsl reads: the vector forms of modes 13 to 16 gather
    // from it, and keep the plain loop without it.
    const float* recip = nullptr;
};

// a times b / 255, rounded: t := a b + 128, then (t + (t >> 8)) >> 8. Exact for bytes;
// with a negative a (chroma about 128) the shifts are arithmetic.
inline int Mul(int a, int b) {
    const int t = a * b + 128;
    return (t + (t >> 8)) >> 8;
}

inline int Clamp(int v) {
    return v < 0 ? 0 : v > 255 ? 255 : v;
}

// What each image adds where the other is not.
inline int Rest(int d, int s, int dA, int sA) {
    return Mul(d, 255 - sA) + Mul(s, 255 - dA);
}
// The alpha byte of most modes.
inline int OverAlpha(int dA, int sA) {
    return Clamp(Mul(sA, 255 - dA) + dA);
}
inline int Screen(int d, int s) {
    return 255 - Mul(255 - d, 255 - s);
}

// The luma (0..255) of a BGRA pixel: limited-range Y, stretched.
inline int Luma(const uint8_t* p, const Tables& t) {
    return t.expandY[(t.toYuv[p[2]] + t.toYuv[256 + p[1]] + t.toYuv[512 + p[0]]) >> 16];
}

// Colour formula of modes 2..12 and 17..20. L is the luma of the destination (read by
// modes 18 and 20 only).
template <int M> inline int Colour(int d, int s, int dA, int sA, int L) {
    static_assert((M >= 2 && M <= 12) || (M >= 17 && M <= 20), "a separable mode");
    if constexpr (M == 2) return Clamp(d + s);
    if constexpr (M == 3) {
        const int u = s * dA + 128; // twice mul(s, dA), rounded once
        return Clamp(d + s - ((u + (u >> 8)) >> 7));
    }
    if constexpr (M == 4) return Clamp(Mul(d, s) + Rest(d, s, dA, sA));
    if constexpr (M == 5) return Screen(d, s);
    if constexpr (M == 6)
        return Clamp(Mul(Mul(d, s), 255 - s) + Mul(Screen(d, s), s) + Rest(d, s, dA, sA));
    if constexpr (M == 7)
        return Clamp(Mul(Mul(d, s), 255 - d) + Mul(Screen(d, s), d) + Rest(d, s, dA, sA));
    if constexpr (M == 8) {
        const int q = s == 0 ? 0 : s >= 255 - d ? 255 : (510 * s + (255 - d)) / (2 * (255 - d));
        return Clamp(q + Rest(d, s, dA, sA));
    }
    if constexpr (M == 9 || M == 10) {
        const int x = Mul(d, 255 - sA) + s, y = Mul(s, 255 - dA) + d;
        return Clamp(M == 9 ? (x < y ? x : y) : (x > y ? x : y));
    }
    if constexpr (M == 11) return Clamp(std::abs(Mul(s, dA) - Mul(d, sA)) + Rest(d, s, dA, sA));
    if constexpr (M == 12)
        return Clamp(255 + Rest(d, s, dA, sA) - Mul(255 - d, 255 - s) - Mul(d, s));
    if constexpr (M == 17) return Mul(s, dA);
    if constexpr (M == 18) return Mul(s, L);
    if constexpr (M == 19) return Mul(s, 255 - dA);
    if constexpr (M == 20) return Mul(s, 255 - L);
    return 0;
}

template <int M> inline int Alpha(int dA, int sA, int L) {
    if constexpr (M == 2) return Clamp(dA + sA);
    if constexpr (M == 5) return Screen(dA, sA);
    if constexpr (M == 17) return Mul(sA, dA);
    if constexpr (M == 18) return Mul(sA, L);
    if constexpr (M == 19) return Mul(sA, 255 - dA);
    if constexpr (M == 20) return Mul(sA, 255 - L);
    return OverAlpha(dA, sA);
}

// One pixel of a separable mode into `o` (which may be d). `lumaOf` is the pixel the
// mattes take their luma from.
template <int M>
inline void BlendPixel(const uint8_t* d, const uint8_t* s, uint8_t* o, const uint8_t* lumaOf,
                       const Tables& t) {
    const int L = (M == 18 || M == 20) ? Luma(lumaOf, t) : 0;
    const int dA = d[3], sA = s[3];
    const int c0 = Colour<M>(d[0], s[0], dA, sA, L);
    const int c1 = Colour<M>(d[1], s[1], dA, sA, L);
    const int c2 = Colour<M>(d[2], s[2], dA, sA, L);
    o[3] = uint8_t(Alpha<M>(dA, sA, L));
    o[0] = uint8_t(c0);
    o[1] = uint8_t(c1);
    o[2] = uint8_t(c2);
}

// Every byte := top + mul(bottom, 255 - top's alpha).
inline void OverPixel(const uint8_t* bottom, const uint8_t* top, uint8_t* o) {
    const int inv = 255 - top[3];
    const int c0 = Clamp(top[0] + Mul(bottom[0], inv));
    const int c1 = Clamp(top[1] + Mul(bottom[1], inv));
    const int c2 = Clamp(top[2] + Mul(bottom[2], inv));
    const int c3 = Clamp(top[3] + Mul(bottom[3], inv));
    o[0] = uint8_t(c0);
    o[1] = uint8_t(c1);
    o[2] = uint8_t(c2);
    o[3] = uint8_t(c3);
}

// Modes 13 to 16 (t.mode): straight colour of both pixels to hue, saturation and
// lightness, the three mixed by the mode, back to RGB and premultiplied again.
void HslPixel(int mode, const uint8_t* d, const uint8_t* s, uint8_t* o, const Tables& t);

// Any mode 1..20 on one pixel (mode 1: the source over the destination). False, with
// nothing written, for another mode.
bool BlendPixelMode(int mode, const uint8_t* d, const uint8_t* s, uint8_t* o, const uint8_t* lumaOf,
                    const Tables& t);

// Meshed Y U V A to B G R A and back, through the translators' 601 tables.
void YuvToBgra(const uint8_t* yuva, uint8_t* bgra, const Tables& t);
void BgraToYuv(const uint8_t* bgra, uint8_t* yuva, const Tables& t);

// Signed chroma c - 128 scaled by m / 255 with the rounding of the YUV mattes.
inline int MulChroma(int c, int m) {
    const int x = c - 128;
    const int t = x * m + 127 + (x >= 0 ? 1 : 0);
    return ((t + (t >> 8)) >> 8) + 128;
}

// The source through a multiplier m, in Y U V A: Y about 16, chroma about 128.
inline void MattePixelYuv(const uint8_t* s, uint8_t* o, int m) {
    const int y = Mul(Clamp(s[0] - 16), m) + 16;
    const int u = MulChroma(s[1], m), v = MulChroma(s[2], m);
    const int a = Mul(s[3], m);
    o[0] = uint8_t(y);
    o[1] = uint8_t(u);
    o[2] = uint8_t(v);
    o[3] = uint8_t(a);
}

// The top Y U V A pixel over the bottom one, with the offsets of video range.
inline void OverPixelYuv(const uint8_t* bottom, const uint8_t* top, uint8_t* o) {
    const int inv = 255 - top[3];
    const int y = Clamp(top[0] + Mul(Clamp(bottom[0] - 16), inv));
    const int u = Clamp(top[1] + Mul(bottom[1] - 128, inv));
    const int v = Clamp(top[2] + Mul(bottom[2] - 128, inv));
    const int a = Clamp(top[3] + Mul(bottom[3], inv));
    o[0] = uint8_t(y);
    o[1] = uint8_t(u);
    o[2] = uint8_t(v);
    o[3] = uint8_t(a);
}

} // namespace compose
} // namespace stdfx
