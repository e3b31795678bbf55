// RGB to hue, lightness and saturation and back. The forward direction works in single
// precision with the reciprocal table; the three backward forms differ in their final
// rounding, as they always have: truncation for ints of 0..255, rounding to the nearest
// for bytes and for 16-bit values.
#include <kelp/stdfx_tables.h>

#include <cmath>
#include <cstdint>

namespace stdfx {

namespace {

// Which of the four values a[] each of R, G and B takes, per sextant of the hue. Row 6
// repeats row 0 for a hue of exactly 1.
const int kSextant[7][3] = {{0, 2, 1}, {3, 0, 1}, {1, 0, 2}, {1, 3, 0},
                            {2, 1, 0}, {0, 1, 3}, {0, 2, 1}};

int Max3(int a, int b, int c) {
    return a > b ? (a > c ? a : c) : (b > c ? b : c);
}
int Min3(int a, int b, int c) {
    return a < b ? (a < c ? a : c) : (b < c ? b : c);
}

// The hue in sextants (0..6) from the three distances to the maximum. When the maximum
// is red and the other two are equal, the hue is 0, not 6.
float Hue(int r, int g, int b, int max, int min, float tr, float tg, float tb) {
    if (max == r) return b == min ? 1.0f - tg : 5.0f + tb;
    if (max == g) return b != min ? 3.0f - tb : 1.0f + tr;
    return r != min ? 5.0f - tr : 3.0f + tg;
}

// v rounded to the nearest, held to 0..top: a full component (255.5 or 65535.5 before
// rounding) would otherwise reach one past the range.
int Nearest(float v, int top) {
    const float r = std::nearbyint(v);
    return !(r > 0.0f) ? 0 : r >= float(top) ? top : int(r); // NaN too gives 0
}

// Truncation, held to the int range for values that are no colour.
int Truncated(float v) {
    if (v != v) return 0;
    return v >= 2147483520.0f ? INT32_MAX : v <= -2147483520.0f ? INT32_MIN : int(v);
}

} // namespace

CHSL::CHSL() {
    CTables* t = GetTables();
    m_pRecip = t ? t->GetRecip() : nullptr;
    for (int i = 0; i < 7; ++i)
        for (int j = 0; j < 3; ++j)
            m_sextant[i][j] = kSextant[i][j];
}

void CHSL::RGBToHSL(float* h, float* l, float* s, int r, int g, int b) {
    const int max = Max3(r, g, b), min = Min3(r, g, b);
    *l = float(max + min) * 0.0019607844f;
    if (max == min || !m_pRecip || min < 0 || max > 255) {
        *s = 0.0f;
        *h = 0.0f;
        return;
    }
    const int d = max - min;
    *s = m_pRecip[*l < 0.5f ? max + min : 510 - max - min] * float(d);
    const float inv = m_pRecip[d];
    const float tr = float(max - r) * inv, tg = float(max - g) * inv, tb = float(max - b) * inv;
    *h = Hue(r, g, b, max, min, tr, tg, tb) * 0.16666667f;
}

void CHSL::RGBToHSL16(float* h, float* l, float* s, int r, int g, int b) {
    const int max = Max3(r, g, b), min = Min3(r, g, b);
    *l = float(max + min) * 7.629510946571827e-6f;
    if (max == min) {
        *s = 0.0f;
        *h = 0.0f;
        return;
    }
    const float d = float(max - min);
    *s = *l < 0.5f ? d / float(max + min) : d / float(0x1FFFE - max - min);
    const float inv = 1.0f / d;
    const float tr = float(max - r) * inv, tg = float(max - g) * inv, tb = float(max - b) * inv;
    *h = Hue(r, g, b, max, min, tr, tg, tb) * 0.16666667f;
}

void CHSL::Components(float out[3], float h, float l, float s) const {
    if (s == 0.0f || h == -1.0f) {
        out[0] = out[1] = out[2] = l;
        return;
    }
    const float h6 = h * 6.0f;
    int i = int(h6);
    // A hue outside 0..1 is not a colour; it takes the nearest sextant row.
    if (!(h6 >= 0.0f)) i = 0;
    if (i > 6) i = 6;
    const float m = l <= 0.5f ? l * s : s - l * s;
    const float f = 2.0f * m * (h6 - float(i));
    float a[4];
    a[0] = l + m;
    a[1] = l - m;
    a[2] = a[1] + f;
    a[3] = a[0] - f;
    for (int c = 0; c < 3; ++c)
        out[c] = a[m_sextant[i][c]];
}

void CHSL::HSLToRGB(int* r, int* g, int* b, float h, float l, float s) {
    float c[3];
    Components(c, h, l, s);
    *r = Truncated(c[0] * 255.0f + 0.5f);
    *g = Truncated(c[1] * 255.0f + 0.5f);
    *b = Truncated(c[2] * 255.0f + 0.5f);
}

void CHSL::HSLToBytes(unsigned char* bgr, float h, float l, float s) {
    float c[3];
    Components(c, h, l, s);
    for (int k = 0; k < 3; ++k)
        bgr[2 - k] = static_cast<unsigned char>(Nearest(c[k] * 255.0f + 0.5f, 255));
}

void CHSL::HSLToRGB16(int* r, int* g, int* b, float h, float l, float s) {
    float c[3];
    Components(c, h, l, s);
    *r = Nearest(c[0] * 65535.0f + 0.5f, 65535);
    *g = Nearest(c[1] * 65535.0f + 0.5f, 65535);
    *b = Nearest(c[2] * 65535.0f + 0.5f, 65535);
}

} // namespace stdfx
