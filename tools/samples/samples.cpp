// Sample pictures and their files.
#include "samples.h"

#include <kelp/kxbih.h>
#include <png.h>
#include <tiffio.h>
#include <turbojpeg.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace kelptest {

namespace {

uint8_t B(uint32_t c) {
    return uint8_t(c);
}
uint8_t G(uint32_t c) {
    return uint8_t(c >> 8);
}
uint8_t R(uint32_t c) {
    return uint8_t(c >> 16);
}
uint8_t A(uint32_t c) {
    return uint8_t(c >> 24);
}
uint32_t Argb(uint32_t a, uint32_t r, uint32_t g, uint32_t b) {
    return (a << 24) | (r << 16) | (g << 8) | b;
}

void Put16(Bytes& b, uint32_t v) {
    b.push_back(uint8_t(v));
    b.push_back(uint8_t(v >> 8));
}
void Put32(Bytes& b, uint32_t v) {
    Put16(b, v & 0xFFFF);
    Put16(b, v >> 16);
}
void Put16BE(Bytes& b, uint32_t v) {
    b.push_back(uint8_t(v >> 8));
    b.push_back(uint8_t(v));
}
void Put32BE(Bytes& b, uint32_t v) {
    Put16BE(b, v >> 16);
    Put16BE(b, v & 0xFFFF);
}
void Set32(Bytes& b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b[at + i] = uint8_t(v >> (8 * i));
}

// Rows padded to 4 bytes, bottom row first, of `bits` per pixel from a function.
template <class F>
void DibRows(Bytes& out, int32_t w, int32_t h, uint32_t bits, F pixelBits, bool topDown = false) {
    const size_t stride = ((size_t(w) * bits + 31) / 32) * 4;
    for (int32_t r = 0; r < h; ++r) {
        const int32_t y = topDown ? r : h - 1 - r;
        std::vector<uint8_t> row(stride, 0);
        for (int32_t x = 0; x < w; ++x)
            pixelBits(row.data(), x, y);
        out.insert(out.end(), row.begin(), row.end());
    }
}

// PackBits of one row (PSD, and TIFF's own scheme).
void PackBits(const uint8_t* s, size_t n, Bytes& out) {
    size_t i = 0;
    while (i < n) {
        size_t run = 1;
        while (i + run < n && run < 128 && s[i + run] == s[i])
            ++run;
        if (run >= 2) {
            out.push_back(uint8_t(int8_t(1 - int(run))));
            out.push_back(s[i]);
            i += run;
            continue;
        }
        size_t lit = 1;
        while (i + lit < n && lit < 128 && !(i + lit + 1 < n && s[i + lit] == s[i + lit + 1]))
            ++lit;
        out.push_back(uint8_t(lit - 1));
        out.insert(out.end(), s + i, s + i + lit);
        i += lit;
    }
}

} // namespace

// ---------------------------------------------------------------- pictures

Img Pattern(int32_t w, int32_t h, bool alpha) {
    Img img;
    img.w = w;
    img.h = h;
    img.px.resize(size_t(w) * size_t(h));
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            uint32_t r = uint32_t(x * 255 / std::max(1, w - 1));
            uint32_t g = uint32_t(y * 255 / std::max(1, h - 1));
            uint32_t b = uint32_t(255 - (x + y) * 255 / std::max(1, w + h - 2));
            // A dark box in the upper left quarter marks which way is up.
            if (x < w / 4 && y < h / 4) r = g = b = 20;
            const uint32_t a = alpha ? uint32_t((x * 7 + y * 3) % 256) : 255;
            img.At(x, y) = Argb(a, r, g, b);
        }
    return img;
}

Img Opaque(const Img& img) {
    Img o = img;
    for (uint32_t& p : o.px)
        p |= 0xFF000000u;
    return o;
}

Img Turn(const Img& img, uint32_t orientation) {
    const bool swap = orientation >= 5 && orientation <= 8;
    Img o;
    o.w = swap ? img.h : img.w;
    o.h = swap ? img.w : img.h;
    o.px.resize(img.px.size());
    for (int32_t y = 0; y < o.h; ++y)
        for (int32_t x = 0; x < o.w; ++x) {
            int32_t sx = x, sy = y;
            switch (orientation) {
            case 2:
                sx = img.w - 1 - x;
                break;
            case 3:
                sx = img.w - 1 - x;
                sy = img.h - 1 - y;
                break;
            case 4:
                sy = img.h - 1 - y;
                break;
            case 5:
                sx = y;
                sy = x;
                break;
            case 6:
                sx = y;
                sy = img.h - 1 - x;
                break;
            case 7:
                sx = img.w - 1 - y;
                sy = img.h - 1 - x;
                break;
            case 8:
                sx = img.w - 1 - y;
                sy = x;
                break;
            default:
                break;
            }
            o.At(x, y) = img.At(sx, sy);
        }
    return o;
}

Img Grey(const Img& img) {
    Img o = img;
    for (uint32_t& p : o.px)
        p = Argb(255, G(p), G(p), G(p));
    return o;
}

namespace {
uint32_t Expand5(uint32_t v) {
    return (v << 3) | (v >> 2);
}
uint32_t Expand6(uint32_t v) {
    return (v << 2) | (v >> 4);
}
} // namespace

Img To555(const Img& img) {
    Img o = img;
    for (uint32_t& p : o.px)
        p = Argb(255, Expand5(R(p) >> 3), Expand5(G(p) >> 3), Expand5(B(p) >> 3));
    return o;
}

Img To565(const Img& img) {
    Img o = img;
    for (uint32_t& p : o.px)
        p = Argb(255, Expand5(R(p) >> 3), Expand6(G(p) >> 2), Expand5(B(p) >> 3));
    return o;
}

Img Indexed(int32_t w, int32_t h, uint32_t colors, std::vector<uint8_t>* indices,
            std::vector<uint32_t>* palette) {
    palette->resize(colors);
    for (uint32_t i = 0; i < colors; ++i)
        (*palette)[i] = colors == 2
                            ? (i ? 0xFFFFFFFFu : 0xFF000000u)
                            : Argb(255, (i * 37) & 255, (i * 91 + 40) & 255, (i * 13 + 7) & 255);
    Img img;
    img.w = w;
    img.h = h;
    img.px.resize(size_t(w) * size_t(h));
    indices->resize(img.px.size());
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            // Runs of equal indices, so that run-length coders have work.
            const uint8_t i = uint8_t(((x / 3) + (y / 2) * 5) % colors);
            (*indices)[size_t(y) * size_t(w) + size_t(x)] = i;
            img.At(x, y) = (*palette)[i];
        }
    return img;
}

double Psnr(const Img& a, const Img& b) {
    if (a.w != b.w || a.h != b.h) return 0;
    double sum = 0;
    for (size_t i = 0; i < a.px.size(); ++i)
        for (int s = 0; s < 24; s += 8) {
            const double d = double((a.px[i] >> s) & 255) - double((b.px[i] >> s) & 255);
            sum += d * d;
        }
    if (sum == 0) return 99;
    const double mse = sum / (3.0 * double(a.px.size()));
    return 10 * std::log10(255.0 * 255.0 / mse);
}

Img FromDib(const tagKXBMINFOHEADER* d, const void* pixels) {
    Img o;
    o.w = d->biWidth;
    o.h = d->biHeight;
    o.px.resize(size_t(o.w) * size_t(o.h));
    const uint32_t n = d->biBitCount / 8;
    const size_t stride = ((size_t(o.w) * d->biBitCount + 31) / 32) * 4;
    const uint8_t* p = static_cast<const uint8_t*>(pixels);
    for (int32_t y = 0; y < o.h; ++y) {
        const uint8_t* row = p + size_t(o.h - 1 - y) * stride;
        for (int32_t x = 0; x < o.w; ++x, row += n)
            o.At(x, y) = Argb(n == 4 ? row[3] : 255, row[2], row[1], row[0]);
    }
    return o;
}

// ---------------------------------------------------------------- BMP

namespace {
std::vector<uint8_t> g_idx;
std::vector<uint32_t> g_pal;
uint32_t BmpColors(BmpKind k) {
    return k == kBmp1 ? 2 : (k == kBmp4 || k == kBmpRle4) ? 16 : 256;
}
bool BmpIndexed(BmpKind k) {
    return k == kBmp8 || k == kBmp4 || k == kBmp1 || k == kBmpRle8 || k == kBmpRle4;
}

// Run-length rows: runs of equal indices, literals for the rest, end of line and
// image codes.
void RleRows(Bytes& out, const std::vector<uint8_t>& idx, int32_t w, int32_t h, bool four) {
    for (int32_t y = h - 1; y >= 0; --y) {
        const uint8_t* s = idx.data() + size_t(y) * size_t(w);
        int32_t x = 0;
        while (x < w) {
            int32_t run = 1;
            while (x + run < w && run < 255 && s[x + run] == s[x])
                ++run;
            if (run >= 3 || w - x < 3) {
                out.push_back(uint8_t(run));
                out.push_back(four ? uint8_t((s[x] << 4) | s[x]) : s[x]);
                x += run;
            } else {
                // A literal of 3 pixels
                out.push_back(0);
                out.push_back(3);
                if (four) {
                    out.push_back(uint8_t((s[x] << 4) | s[x + 1]));
                    out.push_back(uint8_t(s[x + 2] << 4));
                } else {
                    out.insert(out.end(), s + x, s + x + 3);
                    out.push_back(0); // padding to a word
                }
                x += 3;
            }
        }
        out.push_back(0);
        out.push_back(0);
    }
    out.push_back(0);
    out.push_back(1);
}
} // namespace

Img BmpExpected(const Img& img, BmpKind kind) {
    if (BmpIndexed(kind)) return Indexed(img.w, img.h, BmpColors(kind), &g_idx, &g_pal);
    if (kind == kBmp555) return To555(img);
    if (kind == kBmp565) return To565(img);
    if (kind == kBmp32) return img;
    return Opaque(img);
}

Bytes BmpFile(const Img& img, BmpKind kind) {
    const Img e = BmpExpected(img, kind);
    const bool indexed = BmpIndexed(kind);
    const uint32_t bits = kind == kBmp32                       ? 32
                          : kind == kBmp8 || kind == kBmpRle8  ? 8
                          : kind == kBmp4 || kind == kBmpRle4  ? 4
                          : kind == kBmp1                      ? 1
                          : kind == kBmp555 || kind == kBmp565 ? 16
                                                               : 24;
    const uint32_t colors = indexed ? BmpColors(kind) : 0;
    Bytes b = {'B', 'M'};
    Put32(b, 0);
    Put32(b, 0);
    Put32(b, 0); // the offset, set below
    if (kind == kBmpCore) {
        Put32(b, 12);
        Put16(b, uint32_t(img.w));
        Put16(b, uint32_t(img.h));
        Put16(b, 1);
        Put16(b, 24);
    } else {
        const bool v4 = kind == kBmp565 || kind == kBmp32;
        Put32(b, v4 ? 108 : 40);
        Put32(b, uint32_t(img.w));
        Put32(b, uint32_t(kind == kBmpTopDown ? -img.h : img.h));
        Put16(b, 1);
        Put16(b, bits);
        Put32(b, kind == kBmpRle8 ? 1 : kind == kBmpRle4 ? 2 : v4 ? 3 : 0);
        Put32(b, 0);
        Put32(b, 2835); // 72 dots per inch
        Put32(b, 2835);
        Put32(b, colors);
        Put32(b, 0);
        if (v4) {
            if (kind == kBmp565) {
                Put32(b, 0xF800);
                Put32(b, 0x7E0);
                Put32(b, 0x1F);
                Put32(b, 0);
            } else {
                Put32(b, 0xFF0000);
                Put32(b, 0xFF00);
                Put32(b, 0xFF);
                Put32(b, 0xFF000000u);
            }
            b.resize(14 + 108, 0);
        }
    }
    for (uint32_t i = 0; i < colors; ++i)
        Put32(b, g_pal[i] & 0xFFFFFF);
    Set32(b, 10, uint32_t(b.size()));
    if (kind == kBmpRle8 || kind == kBmpRle4) {
        RleRows(b, g_idx, img.w, img.h, kind == kBmpRle4);
    } else {
        const int32_t w = img.w;
        DibRows(
            b, img.w, img.h, bits,
            [&](uint8_t* row, int32_t x, int32_t y) {
                const uint32_t c = e.At(x, y);
                const uint32_t i = indexed ? g_idx[size_t(y) * size_t(w) + size_t(x)] : 0;
                switch (bits) {
                case 1:
                    row[x / 8] |= uint8_t(i << (7 - x % 8));
                    break;
                case 4:
                    row[x / 2] |= uint8_t(x % 2 ? i : i << 4);
                    break;
                case 8:
                    row[x] = uint8_t(i);
                    break;
                case 16: {
                    const uint32_t v = kind == kBmp555
                                           ? ((R(c) >> 3) << 10) | ((G(c) >> 3) << 5) | (B(c) >> 3)
                                           : ((R(c) >> 3) << 11) | ((G(c) >> 2) << 5) | (B(c) >> 3);
                    row[2 * x] = uint8_t(v);
                    row[2 * x + 1] = uint8_t(v >> 8);
                    break;
                }
                default:
                    row[x * (bits / 8)] = B(c);
                    row[x * (bits / 8) + 1] = G(c);
                    row[x * (bits / 8) + 2] = R(c);
                    if (bits == 32) row[x * 4 + 3] = A(c);
                }
            },
            kind == kBmpTopDown);
    }
    Set32(b, 2, uint32_t(b.size()));
    return b;
}

// ---------------------------------------------------------------- TGA

Img TgaExpected(const Img& img, TgaKind kind) {
    if (kind == kTgaGrey) return Grey(img);
    if (kind == kTgaMapped) return Indexed(img.w, img.h, 256, &g_idx, &g_pal);
    return kind == kTga32 ? img : Opaque(img);
}

Bytes TgaFile(const Img& img, TgaKind kind, const Img* stamp) {
    const Img e = TgaExpected(img, kind);
    const bool mapped = kind == kTgaMapped, grey = kind == kTgaGrey;
    const bool rle = kind == kTga24Rle || kind == kTgaMapped;
    const uint32_t depth = kind == kTga32 ? 32 : (mapped || grey) ? 8 : 24;
    Bytes b;
    b.push_back(0);
    b.push_back(mapped ? 1 : 0);
    b.push_back(uint8_t((mapped ? 1 : grey ? 3 : 2) + (rle ? 8 : 0)));
    Put16(b, 0);
    Put16(b, mapped ? 256 : 0);
    b.push_back(mapped ? 24 : 0);
    Put16(b, 0);
    Put16(b, 0);
    Put16(b, uint32_t(img.w));
    Put16(b, uint32_t(img.h));
    b.push_back(uint8_t(depth));
    b.push_back(uint8_t((depth == 32 ? 8 : 0) | (kind == kTgaTopDown ? 0x20 : 0)));
    if (mapped)
        for (uint32_t c : g_pal) {
            b.push_back(B(c));
            b.push_back(G(c));
            b.push_back(R(c));
        }
    auto pixel = [&](const Img& src, int32_t x, int32_t y, Bytes& out) {
        const uint32_t c = src.At(x, y);
        if (mapped) {
            out.push_back(g_idx[size_t(y) * size_t(src.w) + size_t(x)]);
        } else if (grey) {
            out.push_back(G(c));
        } else {
            out.push_back(B(c));
            out.push_back(G(c));
            out.push_back(R(c));
            if (depth == 32) out.push_back(A(c));
        }
    };
    auto rows = [&](const Img& src, bool compress, Bytes& out) {
        for (int32_t r = 0; r < src.h; ++r) {
            const int32_t y = kind == kTgaTopDown ? r : src.h - 1 - r;
            if (!compress) {
                for (int32_t x = 0; x < src.w; ++x)
                    pixel(src, x, y, out);
                continue;
            }
            // Runs of equal pixels as run packets, the rest as raw packets of one.
            int32_t x = 0;
            while (x < src.w) {
                int32_t run = 1;
                while (x + run < src.w && run < 128 && src.At(x + run, y) == src.At(x, y))
                    ++run;
                out.push_back(uint8_t(run > 1 ? 0x80 | (run - 1) : 0));
                pixel(src, x, y, out);
                x += run;
            }
        }
    };
    rows(e, rle, b);
    size_t stampAt = 0;
    if (stamp) {
        stampAt = b.size();
        b.push_back(uint8_t(stamp->w));
        b.push_back(uint8_t(stamp->h));
        rows(*stamp, false, b);
    }
    // Extension area and footer.
    const size_t ext = b.size();
    b.resize(ext + 495, 0);
    b[ext] = 495 & 255;
    b[ext + 1] = 495 >> 8;
    Set32(b, ext + 486, uint32_t(stampAt));
    b[ext + 494] = depth == 32 ? 3 : 0;
    Put32(b, uint32_t(ext));
    Put32(b, 0);
    const char sig[] = "TRUEVISION-XFILE.";
    b.insert(b.end(), sig, sig + 18);
    return b;
}

// ---------------------------------------------------------------- PCX

Img PcxExpected(const Img& img, PcxKind kind) {
    if (kind == kPcx8) return Indexed(img.w, img.h, 256, &g_idx, &g_pal);
    if (kind == kPcx1) return Indexed(img.w, img.h, 2, &g_idx, &g_pal);
    if (kind == kPcx4Planes) return Indexed(img.w, img.h, 16, &g_idx, &g_pal);
    return Opaque(img);
}

Bytes PcxFile(const Img& img, PcxKind kind) {
    const Img e = PcxExpected(img, kind);
    const uint32_t bpp = kind == kPcx1 || kind == kPcx4Planes ? 1 : 8;
    const uint32_t planes = kind == kPcx24 ? 3 : kind == kPcx4Planes ? 4 : 1;
    const uint32_t bpl = ((uint32_t(img.w) * bpp + 15) / 16) * 2;
    Bytes b(128, 0);
    b[0] = 0x0A;
    b[1] = 5;
    b[2] = 1;
    b[3] = uint8_t(bpp);
    b[8] = uint8_t(img.w - 1);
    b[9] = uint8_t((img.w - 1) >> 8);
    b[10] = uint8_t(img.h - 1);
    b[11] = uint8_t((img.h - 1) >> 8);
    b[12] = 96;
    if (kind == kPcx4Planes)
        for (int i = 0; i < 16; ++i) {
            b[16 + 3 * i] = R(g_pal[size_t(i)]);
            b[17 + 3 * i] = G(g_pal[size_t(i)]);
            b[18 + 3 * i] = B(g_pal[size_t(i)]);
        }
    b[65] = uint8_t(planes);
    b[66] = uint8_t(bpl);
    b[67] = uint8_t(bpl >> 8);
    b[68] = 1;
    for (int32_t y = 0; y < img.h; ++y) {
        std::vector<uint8_t> line(size_t(bpl) * planes, 0);
        for (int32_t x = 0; x < img.w; ++x) {
            const uint32_t c = e.At(x, y);
            const uint32_t i = kind == kPcx24 ? 0 : g_idx[size_t(y) * size_t(img.w) + size_t(x)];
            if (kind == kPcx24) {
                line[size_t(x)] = R(c);
                line[bpl + size_t(x)] = G(c);
                line[2 * bpl + size_t(x)] = B(c);
            } else if (bpp == 8) {
                line[size_t(x)] = uint8_t(i);
            } else {
                for (uint32_t p = 0; p < planes; ++p)
                    line[p * bpl + size_t(x) / 8] |= uint8_t(((i >> p) & 1) << (7 - x % 8));
            }
        }
        for (size_t i = 0; i < line.size();) {
            size_t run = 1;
            while (i + run < line.size() && run < 63 && line[i + run] == line[i])
                ++run;
            if (run > 1 || (line[i] & 0xC0) == 0xC0) b.push_back(uint8_t(0xC0 | run));
            b.push_back(line[i]);
            i += run;
        }
    }
    if (kind == kPcx8) {
        b.push_back(12);
        for (uint32_t c : g_pal) {
            b.push_back(R(c));
            b.push_back(G(c));
            b.push_back(B(c));
        }
    }
    return b;
}

// ---------------------------------------------------------------- PSD

Img PsdExpected(const Img& img, PsdKind kind) {
    switch (kind) {
    case kPsdRgbRleAlpha:
        return img;
    case kPsdGreyRle:
        return Grey(img);
    case kPsdIndexed:
        return Indexed(img.w, img.h, 256, &g_idx, &g_pal);
    case kPsdCmyk: {
        // Inks of the colours with no black: the colours come back as they were.
        return Opaque(img);
    }
    default:
        return Opaque(img);
    }
}

Bytes PsdFile(const Img& img, PsdKind kind, const Bytes* thumbJpeg) {
    const Img e = PsdExpected(img, kind);
    const bool alpha = kind == kPsdRgbRleAlpha;
    const bool rle = kind == kPsdRgbRleAlpha || kind == kPsdGreyRle;
    const uint32_t depth = kind == kPsdRgb16 ? 16 : 8;
    const uint32_t mode = kind == kPsdGreyRle   ? 1
                          : kind == kPsdIndexed ? 2
                          : kind == kPsdCmyk    ? 4
                                                : 3;
    const uint32_t channels = (mode == 1 || mode == 2) ? 1 : mode == 4 ? 4 : alpha ? 4 : 3;
    Bytes b = {'8', 'B', 'P', 'S'};
    Put16BE(b, 1);
    b.resize(b.size() + 6, 0);
    Put16BE(b, channels);
    Put32BE(b, uint32_t(img.h));
    Put32BE(b, uint32_t(img.w));
    Put16BE(b, depth);
    Put16BE(b, mode);
    if (mode == 2) {
        Put32BE(b, 768);
        for (int c = 2; c >= 0; --c)
            for (uint32_t i = 0; i < 256; ++i)
                b.push_back(uint8_t(g_pal[i] >> (8 * c)));
    } else {
        Put32BE(b, 0);
    }
    // Resources: the resolution, and the thumbnail when given.
    Bytes res;
    res.insert(res.end(), {'8', 'B', 'I', 'M'});
    Put16BE(res, 1005);
    Put16BE(res, 0);
    Put32BE(res, 16);
    Put32BE(res, 300u << 16);
    Put16BE(res, 1);
    Put16BE(res, 1);
    Put32BE(res, 300u << 16);
    Put16BE(res, 1);
    Put16BE(res, 1);
    if (thumbJpeg) {
        res.insert(res.end(), {'8', 'B', 'I', 'M'});
        Put16BE(res, 1036);
        Put16BE(res, 0);
        Put32BE(res, uint32_t(28 + thumbJpeg->size()));
        Put32BE(res, 1);
        Put32BE(res, 16); // the thumbnail's size, as its own header says
        Put32BE(res, 8);
        Put32BE(res, 48);
        Put32BE(res, 48 * 8);
        Put32BE(res, uint32_t(thumbJpeg->size()));
        Put16BE(res, 24);
        Put16BE(res, 1);
        res.insert(res.end(), thumbJpeg->begin(), thumbJpeg->end());
        if (res.size() % 2) res.push_back(0);
    }
    Put32BE(b, uint32_t(res.size()));
    b.insert(b.end(), res.begin(), res.end());
    // Layer section: only the layer count, negative when the merged picture has alpha.
    Put32BE(b, 6);
    Put32BE(b, 2);
    Put16BE(b, alpha ? 0xFFFF : 0);
    Put16BE(b, rle ? 1 : 0);
    const size_t rowBytes = size_t(img.w) * (depth / 8);
    std::vector<Bytes> rows;
    for (uint32_t c = 0; c < channels; ++c)
        for (int32_t y = 0; y < img.h; ++y) {
            Bytes row;
            for (int32_t x = 0; x < img.w; ++x) {
                const uint32_t p = e.At(x, y);
                uint8_t v;
                if (mode == 2)
                    v = g_idx[size_t(y) * size_t(img.w) + size_t(x)];
                else if (mode == 1)
                    v = G(p);
                else if (mode == 4)
                    v = c == 0 ? R(p) : c == 1 ? G(p) : c == 2 ? B(p) : 255; // inverted inks
                else
                    v = c == 0 ? R(p) : c == 1 ? G(p) : c == 2 ? B(p) : A(p);
                row.push_back(v);
                if (depth == 16) row.push_back(uint8_t(v ^ 0x5A)); // the low byte is dropped
            }
            (void)rowBytes;
            rows.push_back(row);
        }
    if (rle) {
        std::vector<Bytes> packed;
        for (const Bytes& r : rows) {
            packed.emplace_back();
            PackBits(r.data(), r.size(), packed.back());
        }
        for (const Bytes& p : packed)
            Put16BE(b, uint32_t(p.size()));
        for (const Bytes& p : packed)
            b.insert(b.end(), p.begin(), p.end());
    } else {
        for (const Bytes& r : rows)
            b.insert(b.end(), r.begin(), r.end());
    }
    return b;
}

// ---------------------------------------------------------------- PNG

Img PngExpected(const Img& img, PngKind kind) {
    switch (kind) {
    case kPngRgba:
    case kPngInterlaced:
        return img;
    case kPngGrey:
    case kPngGrey16:
        return Grey(img);
    case kPngPalette4:
        return Indexed(img.w, img.h, 16, &g_idx, &g_pal);
    case kPngPaletteAlpha: {
        Img e = Indexed(img.w, img.h, 16, &g_idx, &g_pal);
        for (size_t i = 0; i < e.px.size(); ++i)
            e.px[i] = (e.px[i] & 0xFFFFFF) | (uint32_t(g_idx[i] * 16) << 24);
        return e;
    }
    default:
        return Opaque(img);
    }
}

namespace {
void PngWrite(png_structp png, png_bytep data, size_t n) {
    Bytes* out = static_cast<Bytes*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + n);
}
void PngFlush(png_structp) {}
} // namespace

Bytes PngFile(const Img& img, PngKind kind) {
    const Img e = PngExpected(img, kind);
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) throw std::runtime_error("png");
    png_set_write_fn(png, &out, PngWrite, PngFlush);
    const bool palette = kind == kPngPalette4 || kind == kPngPaletteAlpha;
    const bool grey = kind == kPngGrey || kind == kPngGrey16;
    const int type = palette                                        ? PNG_COLOR_TYPE_PALETTE
                     : grey                                         ? PNG_COLOR_TYPE_GRAY
                     : (kind == kPngRgba || kind == kPngInterlaced) ? PNG_COLOR_TYPE_RGBA
                                                                    : PNG_COLOR_TYPE_RGB;
    const int depth = kind == kPngPalette4 ? 4 : kind == kPngGrey16 ? 16 : 8;
    png_set_IHDR(png, info, uint32_t(img.w), uint32_t(img.h), depth, type,
                 kind == kPngInterlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (palette) {
        png_color pal[16];
        png_byte trans[16];
        for (int i = 0; i < 16; ++i) {
            pal[i].red = R(g_pal[size_t(i)]);
            pal[i].green = G(g_pal[size_t(i)]);
            pal[i].blue = B(g_pal[size_t(i)]);
            trans[i] = png_byte(i * 16);
        }
        png_set_PLTE(png, info, pal, 16);
        if (kind == kPngPaletteAlpha) png_set_tRNS(png, info, trans, 16, nullptr);
    }
    png_set_pHYs(png, info, 3780, 3780, PNG_RESOLUTION_METER); // 96 dots per inch
    png_write_info(png, info);
    std::vector<Bytes> rows;
    for (int32_t y = 0; y < img.h; ++y) {
        Bytes r;
        for (int32_t x = 0; x < img.w; ++x) {
            const uint32_t c = e.At(x, y);
            const uint8_t i = palette ? g_idx[size_t(y) * size_t(img.w) + size_t(x)] : 0;
            if (kind == kPngPalette4) {
                if (x % 2 == 0)
                    r.push_back(uint8_t(i << 4));
                else
                    r.back() |= i;
            } else if (palette) {
                r.push_back(i);
            } else if (grey) {
                r.push_back(G(c));
                if (depth == 16) r.push_back(G(c)); // v * 257 scales back to v
            } else {
                r.push_back(R(c));
                r.push_back(G(c));
                r.push_back(B(c));
                if (type == PNG_COLOR_TYPE_RGBA) r.push_back(A(c));
            }
        }
        rows.push_back(r);
    }
    std::vector<png_bytep> ptrs;
    for (Bytes& r : rows)
        ptrs.push_back(r.data());
    png_write_image(png, ptrs.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

// ---------------------------------------------------------------- TIFF

Img TiffExpected(const Img& img, TiffKind kind) {
    if (kind == kTiffRgba) return img;
    if (kind == kTiffGrey) return Grey(img);
    if (kind == kTiffPalette) return Indexed(img.w, img.h, 256, &g_idx, &g_pal);
    return Opaque(img);
}

namespace {
struct TiffMem {
    Bytes* b;
    uint64_t pos;
};
tmsize_t TRead(thandle_t h, void* p, tmsize_t n) {
    TiffMem* m = static_cast<TiffMem*>(h);
    const uint64_t k =
        std::min<uint64_t>(uint64_t(n), m->pos < m->b->size() ? m->b->size() - m->pos : 0);
    std::memcpy(p, m->b->data() + m->pos, size_t(k));
    m->pos += k;
    return tmsize_t(k);
}
tmsize_t TWrite(thandle_t h, void* p, tmsize_t n) {
    TiffMem* m = static_cast<TiffMem*>(h);
    if (m->pos + uint64_t(n) > m->b->size()) m->b->resize(size_t(m->pos + uint64_t(n)));
    std::memcpy(m->b->data() + m->pos, p, size_t(n));
    m->pos += uint64_t(n);
    return n;
}
toff_t TSeek(thandle_t h, toff_t o, int whence) {
    TiffMem* m = static_cast<TiffMem*>(h);
    m->pos = (whence == SEEK_CUR ? m->pos : whence == SEEK_END ? m->b->size() : 0) + o;
    return m->pos;
}
int TClose(thandle_t) {
    return 0;
}
toff_t TSize(thandle_t h) {
    return static_cast<TiffMem*>(h)->b->size();
}
int TMap(thandle_t, void**, toff_t*) {
    return 0;
}
void TUnmap(thandle_t, void*, toff_t) {}

void TiffPicture(TIFF* t, const Img& e, TiffKind kind, bool reduced) {
    const bool alpha = kind == kTiffRgba;
    const bool one = kind == kTiffGrey || kind == kTiffPalette;
    const uint16_t spp = one ? 1 : alpha ? 4 : 3;
    if (reduced) TIFFSetField(t, TIFFTAG_SUBFILETYPE, FILETYPE_REDUCEDIMAGE);
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(e.w));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(e.h));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, spp);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC,
                 kind == kTiffGrey      ? PHOTOMETRIC_MINISBLACK
                 : kind == kTiffPalette ? PHOTOMETRIC_PALETTE
                                        : PHOTOMETRIC_RGB);
    if (alpha) {
        uint16_t extra = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &extra);
    }
    if (kind == kTiffPalette) {
        std::vector<uint16_t> r(256), g(256), bl(256);
        for (int i = 0; i < 256; ++i) {
            r[size_t(i)] = uint16_t(R(g_pal[size_t(i)]) * 257);
            g[size_t(i)] = uint16_t(G(g_pal[size_t(i)]) * 257);
            bl[size_t(i)] = uint16_t(B(g_pal[size_t(i)]) * 257);
        }
        TIFFSetField(t, TIFFTAG_COLORMAP, r.data(), g.data(), bl.data());
    }
    TIFFSetField(t, TIFFTAG_XRESOLUTION, 150.0f);
    TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    auto sample = [&](int32_t x, int32_t y, Bytes& out) {
        const uint32_t c = e.At(x, y);
        if (kind == kTiffPalette)
            out.push_back(g_idx[size_t(y) * size_t(e.w) + size_t(x)]);
        else if (kind == kTiffGrey)
            out.push_back(G(c));
        else {
            out.push_back(R(c));
            out.push_back(G(c));
            out.push_back(B(c));
            if (alpha) out.push_back(A(c));
        }
    };
    if (kind == kTiffTiledLzw) {
        TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
        TIFFSetField(t, TIFFTAG_TILEWIDTH, 16);
        TIFFSetField(t, TIFFTAG_TILELENGTH, 16);
        for (int32_t ty = 0; ty < e.h; ty += 16)
            for (int32_t tx = 0; tx < e.w; tx += 16) {
                Bytes tile;
                for (int32_t y = ty; y < ty + 16; ++y)
                    for (int32_t x = tx; x < tx + 16; ++x) {
                        if (x < e.w && y < e.h)
                            sample(x, y, tile);
                        else
                            tile.insert(tile.end(), 3, 0);
                    }
                TIFFWriteTile(t, tile.data(), uint32_t(tx), uint32_t(ty), 0, 0);
            }
    } else {
        TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 7);
        for (int32_t y = 0; y < e.h; ++y) {
            Bytes row;
            for (int32_t x = 0; x < e.w; ++x)
                sample(x, y, row);
            TIFFWriteScanline(t, row.data(), uint32_t(y), 0);
        }
    }
    TIFFWriteDirectory(t);
}
} // namespace

Bytes TiffFile(const Img& img, TiffKind kind, const Img* stamp) {
    const Img e = TiffExpected(img, kind);
    Bytes out;
    TiffMem m{&out, 0};
    TIFF* t = TIFFClientOpen("sample", "w", &m, TRead, TWrite, TSeek, TClose, TSize, TMap, TUnmap);
    if (!t) throw std::runtime_error("tiff");
    TiffPicture(t, e, kind, false);
    if (stamp) TiffPicture(t, kind == kTiffRgb ? Opaque(*stamp) : *stamp, kind, true);
    TIFFClose(t);
    return out;
}

// ---------------------------------------------------------------- JPEG

Bytes JpegFile(const Img& img, int quality, uint32_t orientation, const Bytes* thumbJpeg,
               bool grey) {
    std::vector<uint8_t> rgb;
    for (uint32_t p : img.px) {
        rgb.push_back(R(p));
        rgb.push_back(G(p));
        rgb.push_back(B(p));
    }
    tjhandle h = tjInitCompress();
    unsigned char* buf = nullptr;
    unsigned long len = 0;
    if (tjCompress2(h, rgb.data(), img.w, 0, img.h, TJPF_RGB, &buf, &len,
                    grey ? TJSAMP_GRAY : TJSAMP_444, quality, TJFLAG_ACCURATEDCT) != 0)
        throw std::runtime_error("jpeg");
    Bytes jpeg(buf, buf + len);
    tjFree(buf);
    tjDestroy(h);
    if (!orientation && !thumbJpeg) return jpeg;
    // EXIF: a little-endian TIFF structure of two directories, behind "Exif\0\0".
    Bytes t = {'I', 'I', 42, 0};
    Put32(t, 8);
    Put16(t, 1); // IFD0: the orientation
    Put16(t, 0x0112);
    Put16(t, 3);
    Put32(t, 1);
    Put32(t, orientation ? orientation : 1);
    Put32(t, thumbJpeg ? 26 : 0); // the next directory follows at once
    if (thumbJpeg) {
        Put16(t, 2);
        Put16(t, 0x0201);
        Put16(t, 4);
        Put32(t, 1);
        Put32(t, 26 + 2 + 24 + 4);
        Put16(t, 0x0202);
        Put16(t, 4);
        Put32(t, 1);
        Put32(t, uint32_t(thumbJpeg->size()));
        Put32(t, 0);
        t.insert(t.end(), thumbJpeg->begin(), thumbJpeg->end());
    }
    Bytes app1 = {0xFF, 0xE1};
    Put16BE(app1, uint32_t(t.size() + 8));
    app1.insert(app1.end(), {'E', 'x', 'i', 'f', 0, 0});
    app1.insert(app1.end(), t.begin(), t.end());
    Bytes out(jpeg.begin(), jpeg.begin() + 2);
    out.insert(out.end(), app1.begin(), app1.end());
    out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
    return out;
}

// ---------------------------------------------------------------- WMF

Bytes WmfFile(int w, int h, int unitsPerInch) {
    Bytes b;
    Put32(b, 0x9AC6CDD7u);
    Put16(b, 0);
    Put16(b, 0);
    Put16(b, 0);
    Put16(b, uint32_t(w));
    Put16(b, uint32_t(h));
    Put16(b, uint32_t(unitsPerInch));
    Put32(b, 0);
    uint32_t sum = 0;
    for (int i = 0; i < 10; ++i)
        sum ^= uint32_t(b[size_t(2 * i)]) | (uint32_t(b[size_t(2 * i + 1)]) << 8);
    Put16(b, sum);
    const size_t header = b.size();
    Put16(b, 1);
    Put16(b, 9);
    Put16(b, 0x300);
    Put32(b, 0); // size in words, set below
    Put16(b, 2);
    Put32(b, 8);
    Put16(b, 0);
    auto rec = [&](uint32_t fn, std::initializer_list<uint32_t> p) {
        Put32(b, uint32_t(3 + p.size()));
        Put16(b, fn);
        for (uint32_t v : p)
            Put16(b, v);
    };
    rec(0x020B, {0, 0});
    rec(0x020C, {uint32_t(h), uint32_t(w)});
    rec(0x02FC, {0, 0x00FF, 0, 0}); // a solid red brush
    rec(0x012D, {0});
    rec(0x02FA, {5, 0, 0, 0, 0}); // a null pen
    rec(0x012D, {1});
    rec(0x041B, {uint32_t(2 * h / 3), uint32_t(2 * w / 3), uint32_t(h / 3), uint32_t(w / 3)});
    rec(0x0000, {});
    Set32(b, header + 6, uint32_t((b.size() - header) / 2));
    return b;
}

bool WriteBytes(const std::string& path, const Bytes& bytes) {
    std::ofstream f(path, std::ios::binary);
    f.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return bool(f);
}

Bytes ReadBytes(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
}

} // namespace kelptest
