// The dissolve: premultiplied pixels at a whole-image opacity, alone or over a second
// image, in 32-bit RGB, meshed 4:4:4 and 4:2:2 (where a pair shares the even pixel's
// chroma and its alpha for the chroma).
#include "stdfx2d/blend.h"

#include <algorithm>
#include <cstring>

#include "stdfx2d/fx2d.h"
#include "stdfx2d/fx2dformat.h"
#include "stdfx2d/raster.h"

namespace stdfx2d {

using namespace fx2dformat;

namespace {

enum class Kind { kRGB, k444, k422 };

Kind KindOf(const KXBMINFOHEADER* h) {
    if (Is444(h)) return Kind::k444;
    if (Is422(h)) return Kind::k422;
    return Kind::kRGB;
}

int32_t Mul(int32_t a, int32_t b) {
    const int32_t t = a * b + 128;
    return (t + (t >> 8)) >> 8;
}

struct Image {
    const KXBMINFOHEADER* h;
    uint8_t* bits;
    RasterImage im;
    Kind kind;
    bool topDown;

    Image(const KXBMINFOHEADER* header, const void* b)
        : h(header), bits(static_cast<uint8_t*>(const_cast<void*>(b))) {
        im.bits = bits;
        im.stride = stdfx::DIBStride(h);
        im.width = h->biWidth;
        im.height = AbsHeight(h);
        im.depth = h->biBitCount;
        im.black = Black(h);
        kind = KindOf(h);
        if (kind == Kind::k422) {
            im.bytes = 2;
            if (h->biBitCount == 32) {
                im.alpha = bits + im.stride * im.height;
                im.alphaStride = stdfx::DIBAlphaStride(h);
            }
        } else
            im.bytes = h->biBitCount / 8;
        topDown = h->biHeight < 0;
    }
    // Memory row of display line d.
    int32_t RowOf(int32_t d) const { return topDown ? d : im.height - 1 - d; }

    // Pixel x of a row as (c0, c1, c2, alpha): RGB bytes, Y U V A, or C0 Y C1 A.
    void Read(int32_t row, int32_t x, int32_t p[4]) const {
        const uint8_t* r = im.Row(row);
        if (kind == Kind::k422) {
            const uint8_t* pair = r + (x >> 1) * 4;
            p[0] = pair[0];
            p[1] = pair[(x & 1) ? 3 : 1];
            p[2] = pair[2];
            p[3] = im.alpha ? im.AlphaRow(row)[x] : 255;
            return;
        }
        const uint8_t* px = r + ptrdiff_t(x) * im.bytes;
        p[0] = px[0];
        p[1] = px[1];
        p[2] = px[2];
        p[3] = im.bytes == 4 ? px[3] : 255;
    }
    void Write(int32_t row, int32_t x, const int32_t p[4]) const {
        uint8_t* r = im.Row(row);
        if (kind == Kind::k422) {
            uint8_t* pair = r + (x >> 1) * 4;
            if (x & 1)
                pair[3] = uint8_t(p[1]);
            else {
                pair[0] = uint8_t(p[0]);
                pair[1] = uint8_t(p[1]);
                pair[2] = uint8_t(p[2]);
            }
            if (im.alpha) im.AlphaRow(row)[x] = uint8_t(p[3]);
            return;
        }
        uint8_t* px = r + ptrdiff_t(x) * im.bytes;
        px[0] = uint8_t(p[0]);
        px[1] = uint8_t(p[1]);
        px[2] = uint8_t(p[2]);
        if (im.bytes == 4) px[3] = uint8_t(p[3]);
    }
};

// One 4:2:2 byte at 7-bit precision.
int32_t Mul7(int32_t c, int32_t o, int32_t h) {
    const int32_t t = (c - o) * h + 64;
    return Clamp255(o + (((t >> 7) + t) >> 7));
}

} // namespace

void BlendImages(const KXBMINFOHEADER* target, void* targetBits, const KXBMINFOHEADER* first,
                 const void* firstBits, const KXBMINFOHEADER* second, const void* secondBits,
                 int opacity, int field) {
    const Image t(target, targetBits), s(first, firstBits);
    const bool three = second && secondBits;
    const Image b(three ? second : first, three ? secondBits : firstBits);
    const int32_t W = t.im.width, H = t.im.height;
    if (W <= 0 || H <= 0) return;
    const int32_t a = opacity < 0 ? 0 : (opacity > 255 ? 255 : opacity);
    const int32_t k = s.im.black;
    const int32_t firstRow = DIBFirstFieldRow(target, field);
    const int32_t step = field == -1 ? 1 : 2;
    for (int32_t row = firstRow; row < H; row += step) {
        const int32_t d = t.topDown ? row : H - 1 - row;
        const int32_t sr = s.RowOf(d);
        // At full opacity alone the dissolve is a copy.
        if (!three && a == 255 && s.kind == t.kind && s.im.bytes == t.im.bytes &&
            s.im.depth == t.im.depth) {
            // Whole rows, the padding of a row included.
            std::memcpy(t.im.Row(row), s.im.Row(sr), size_t(std::min(t.im.stride, s.im.stride)));
            if (t.im.alpha)
                std::memcpy(t.im.AlphaRow(row), s.im.AlphaRow(sr),
                            size_t(std::min(t.im.alphaStride, s.im.alphaStride)));
            continue;
        }
        const int32_t br = b.RowOf(d);
        int32_t pairA2 = 0;
        for (int32_t x = 0; x < W; ++x) {
            int32_t sp[4], out[4];
            s.Read(sr, x, sp);
            if (!three) {
                if (t.kind == Kind::kRGB) {
                    for (int c = 0; c < 4; ++c)
                        out[c] = Mul(sp[c], a);
                } else if (t.kind == Kind::k444) {
                    out[0] = Mul(Clamp255(sp[0] - k), a) + k;
                    for (int c = 1; c < 3; ++c) {
                        const int32_t v = (sp[c] - 128) * a + 128;
                        out[c] = ((v + (v >> 8)) >> 8) + 128;
                    }
                    out[3] = Mul(sp[3], a);
                } else {
                    const int32_t h7 = (a + 1) >> 1;
                    out[0] = Mul7(sp[0], 128, h7);
                    out[1] = Mul7(sp[1], k, h7);
                    out[2] = Mul7(sp[2], 128, h7);
                    out[3] = Mul(sp[3], a);
                }
            } else {
                int32_t bp[4];
                b.Read(br, x, bp);
                const int32_t a2 = Mul(sp[3], a);
                if ((x & 1) == 0) pairA2 = a2;
                const int32_t inv = 255 - a2;
                if (t.kind == Kind::kRGB) {
                    for (int c = 0; c < 3; ++c)
                        out[c] = Clamp255(Mul(sp[c], a) + Mul(bp[c], inv));
                } else {
                    // The chroma of a 4:2:2 pair follows the even pixel.
                    const int32_t invC = t.kind == Kind::k422 ? 255 - pairA2 : inv;
                    out[0] = t.kind == Kind::k422
                                 ? Clamp255(128 + Mul(bp[0] - 128, invC) + Mul(sp[0] - 128, a))
                                 : Clamp255(Mul(Clamp255(bp[0] - k), inv) + k +
                                            Mul(Clamp255(sp[0] - k), a));
                    if (t.kind == Kind::k422)
                        out[1] = Clamp255(Mul(Clamp255(bp[1] - k), inv) + k +
                                          Mul(Clamp255(sp[1] - k), a));
                    else
                        out[1] = Clamp255(128 + Mul(bp[1] - 128, inv) + Mul(sp[1] - 128, a));
                    out[2] = Clamp255(128 + Mul(bp[2] - 128, invC) + Mul(sp[2] - 128, a));
                }
                out[3] = Clamp255(a2 + Mul(bp[3], inv));
            }
            t.Write(row, x, out);
        }
    }
}

} // namespace stdfx2d
