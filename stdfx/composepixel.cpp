// The compositor's per-pixel work that is not inline: the hue, saturation and lightness
// modes, the dispatch of one pixel by mode number, and the YUV conversions of a pixel.
#include "composepixel.h"

namespace stdfx {
namespace compose {

void HslPixel(int mode, const uint8_t* d, const uint8_t* s, uint8_t* o, const Tables& t) {
    const int dA = d[3], sA = s[3];
    // Straight colour: c times 0xFF0000 / alpha, shifted; alpha 0 reads as black.
    int us[3], ud[3];
    for (int i = 0; i < 3; ++i) {
        us[i] = Clamp(int((int64_t(t.div24[sA]) * s[i]) >> 16));
        ud[i] = Clamp(int((int64_t(t.div24[dA]) * d[i]) >> 16));
    }
    float sh, sl, ss, dh, dl, ds;
    t.hsl->RGBToHSL(&sh, &sl, &ss, us[2], us[1], us[0]);
    t.hsl->RGBToHSL(&dh, &dl, &ds, ud[2], ud[1], ud[0]);
    float h = sh, l = sl, sat = ss;
    switch (mode) {
    case 13:
        h = dh;
        break;
    case 14:
        sat = ds;
        break;
    case 15:
        h = dh, sat = ds;
        break;
    default:
        l = dl;
        break; // 16
    }
    int rgb[3];
    t.hsl->HSLToRGB(&rgb[2], &rgb[1], &rgb[0], h, l, sat);
    int c[3];
    for (int i = 0; i < 3; ++i)
        c[i] = Clamp(Mul(Mul(rgb[i], sA), dA) + Rest(d[i], s[i], dA, sA));
    o[3] = uint8_t(OverAlpha(dA, sA));
    o[0] = uint8_t(c[0]);
    o[1] = uint8_t(c[1]);
    o[2] = uint8_t(c[2]);
}

bool BlendPixelMode(int mode, const uint8_t* d, const uint8_t* s, uint8_t* o, const uint8_t* lumaOf,
                    const Tables& t) {
    switch (mode) {
    case 1:
        OverPixel(d, s, o);
        return true;
    case 2:
        BlendPixel<2>(d, s, o, lumaOf, t);
        return true;
    case 3:
        BlendPixel<3>(d, s, o, lumaOf, t);
        return true;
    case 4:
        BlendPixel<4>(d, s, o, lumaOf, t);
        return true;
    case 5:
        BlendPixel<5>(d, s, o, lumaOf, t);
        return true;
    case 6:
        BlendPixel<6>(d, s, o, lumaOf, t);
        return true;
    case 7:
        BlendPixel<7>(d, s, o, lumaOf, t);
        return true;
    case 8:
        BlendPixel<8>(d, s, o, lumaOf, t);
        return true;
    case 9:
        BlendPixel<9>(d, s, o, lumaOf, t);
        return true;
    case 10:
        BlendPixel<10>(d, s, o, lumaOf, t);
        return true;
    case 11:
        BlendPixel<11>(d, s, o, lumaOf, t);
        return true;
    case 12:
        BlendPixel<12>(d, s, o, lumaOf, t);
        return true;
    case 13:
    case 14:
    case 15:
    case 16:
        HslPixel(mode, d, s, o, t);
        return true;
    case 17:
        BlendPixel<17>(d, s, o, lumaOf, t);
        return true;
    case 18:
        BlendPixel<18>(d, s, o, lumaOf, t);
        return true;
    case 19:
        BlendPixel<19>(d, s, o, lumaOf, t);
        return true;
    case 20:
        BlendPixel<20>(d, s, o, lumaOf, t);
        return true;
    default:
        return false;
    }
}

void YuvToBgra(const uint8_t* yuva, uint8_t* bgra, const Tables& t) {
    const int32_t yt = t.toRgb[Clamp(yuva[0] - 16)];
    const int u = yuva[1], v = yuva[2];
    const uint8_t a = yuva[3];
    bgra[0] = uint8_t(Clamp((t.toRgb[512 + u] + yt) >> 16));
    bgra[1] = uint8_t(Clamp((t.toRgb[1024 + u] + t.toRgb[768 + v] + yt) >> 16));
    bgra[2] = uint8_t(Clamp((t.toRgb[256 + v] + yt) >> 16));
    bgra[3] = a;
}

void BgraToYuv(const uint8_t* bgra, uint8_t* yuva, const Tables& t) {
    const int b = bgra[0], g = bgra[1], r = bgra[2];
    const uint8_t a = bgra[3];
    const int32_t* m = t.toYuv;
    yuva[0] = uint8_t(Clamp((m[r] + m[256 + g] + m[512 + b]) >> 16));
    yuva[1] = uint8_t(Clamp((m[768 + r] + m[1024 + g] + m[1280 + b]) >> 16));
    yuva[2] = uint8_t(Clamp((m[1536 + r] + m[1792 + g] + m[2048 + b]) >> 16));
    yuva[3] = a;
}

} // namespace compose
} // namespace stdfx
