// CDibCompose: the shared skeleton of the blends (both images at 32 bits, the lines of a
// field, the destination written in place), the dispatch by mode, the YUV members by
// way of RGB, the YUV mattes, the placement of the over operation and the depth
// compositing.
#include <kelp/stdfx_compose.h>
#include <kelp/stdfx_tables.h>
#include <kelp/stdfx_translate.h>

#include <algorithm>
#include <cstring>

#include "composepixel.h"
#include "composerows.h"
#include "dibrowspan.h"

namespace stdfx {

namespace {

using compose::Tables;

// The rows both images share, by memory line from the first pixel.
struct Rows {
    uint8_t* dst = nullptr;
    const uint8_t* src = nullptr;
    ptrdiff_t dstStep = 0, srcStep = 0;
    int count = 0;
    int32_t width = 0;
};

// The first memory line of a field: line 1 when field 0 meets an even height or field 1
// an odd one, else line 0.
int FieldStart(int field, int height) {
    if (field == -1) return 0;
    return (field == 0 && height % 2 == 0) || (field == 1 && height % 2 == 1) ? 1 : 0;
}

// Both images valid, at 32 bits, with pixels of `bpp` bytes that their rows can hold.
bool Admit(const CDIB& dst, const CDIB& src, int bpp) {
    if (!dst.IsValid() || !src.IsValid()) return false;
    const KXBMINFOHEADER* dh = dst.Header();
    const KXBMINFOHEADER* sh = src.Header();
    if (dh->biBitCount != 32 || sh->biBitCount != 32) return false;
    if (CDIB::BytesPerPixel(dh) != bpp || CDIB::BytesPerPixel(sh) != bpp) return false;
    const int64_t dw = std::max(dh->biWidth, 0), sw = std::max(sh->biWidth, 0);
    return dw * bpp <= dst.Stride() && sw * bpp <= src.Stride() && dst.Stride() > 0 &&
           src.Stride() > 0;
}

// The skeleton: admits the pair, makes the destination private, and gives the lines.
bool Prepare(CDIB& dst, const CDIB& src, int field, int bpp, Rows* r) {
    if (!Admit(dst, src, bpp) || !dst.MakeWritable() || !dst.IsValid()) return false;
    const int height = std::min(dst.Height(), src.Height());
    r->width = std::max(0, std::min(dst.Width(), src.Width()));
    const int first = FieldStart(field, dst.Height());
    const int step = field == -1 ? 1 : 2;
    r->count = first >= height ? 0 : (height - first + step - 1) / step;
    r->dstStep = ptrdiff_t(step) * dst.Stride();
    r->srcStep = ptrdiff_t(step) * src.Stride();
    r->dst = static_cast<uint8_t*>(dst.Bits()) + ptrdiff_t(first) * dst.Stride();
    r->src = static_cast<const uint8_t*>(src.Bits()) + ptrdiff_t(first) * src.Stride();
    return true;
}

bool LoadTables(Tables* t, CHSL* hsl, int mode) {
    CTables* tables = GetTables();
    CRGB2YUV* toYuv = GetRGB2YUV();
    CYUV2RGB* toRgb = GetYUV2RGB();
    if (!tables || !toYuv || !toRgb) return false;
    t->div24 = tables->GetDiv24();
    t->expandY = tables->GetExpandY();
    t->toYuv = toYuv->GetTable(0);
    t->toRgb = toRgb->GetTable(0);
    t->hsl = hsl;
    t->mode = mode;
    t->recip = tables->GetRecip();
    return t->div24 && t->expandY && t->toYuv && t->toRgb;
}

// An RGB mode through its slot of the row kernels.
bool RunRgb(CDIB& dst, const CDIB& src, int field, int mode, int hslMode) {
    CHSL hsl;
    Tables t;
    Rows r;
    if (!LoadTables(&t, &hsl, hslMode) || !Prepare(dst, src, field, 4, &r)) return false;
    const composerows::BlendFn blend = composerows::Current().blend[mode];
    for (int i = 0; i < r.count; ++i)
        blend(r.dst + i * r.dstStep, r.src + i * r.srcStep, r.width, t);
    return true;
}

// A YUV mode 2 to 16: both pixels to RGB, the RGB mode, and back.
bool RunYuv(CDIB& dst, const CDIB& src, int field, int mode) {
    CHSL hsl;
    Tables t;
    Rows r;
    if (!LoadTables(&t, &hsl, mode) || !Prepare(dst, src, field, 4, &r)) return false;
    for (int i = 0; i < r.count; ++i) {
        uint8_t* d = r.dst + i * r.dstStep;
        const uint8_t* s = r.src + i * r.srcStep;
        for (int32_t x = 0; x < r.width; ++x, d += 4, s += 4) {
            uint8_t db[4], sb[4], ob[4];
            compose::YuvToBgra(d, db, t);
            compose::YuvToBgra(s, sb, t);
            compose::BlendPixelMode(mode, db, sb, ob, db, t);
            compose::BgraToYuv(ob, d, t);
        }
    }
    return true;
}

// The YUV mattes: the source times the destination's alpha or luma, or their inverse.
bool RunYuvMatte(CDIB& dst, const CDIB& src, int field, int mode) {
    CHSL hsl;
    Tables t;
    Rows r;
    if (!LoadTables(&t, &hsl, mode) || !Prepare(dst, src, field, 4, &r)) return false;
    for (int i = 0; i < r.count; ++i) {
        uint8_t* d = r.dst + i * r.dstStep;
        const uint8_t* s = r.src + i * r.srcStep;
        for (int32_t x = 0; x < r.width; ++x, d += 4, s += 4) {
            const int dA = d[3], L = t.expandY[d[0]];
            const int m = mode == 17 ? dA : mode == 18 ? L : mode == 19 ? 255 - dA : 255 - L;
            compose::MattePixelYuv(s, d, m);
        }
    }
    return true;
}

// The source in the middle of the destination, clipped, laid over it pixel by pixel.
bool PlaceOver(CDIB& dst, const CDIB& src, const int32_t* rect, int field, bool yuv) {
    if (!Admit(dst, src, 4) || !dst.MakeWritable() || !dst.IsValid()) return false;
    const int dw = dst.Width(), dh = dst.Height(), sw = src.Width(), sh = src.Height();
    const int ox = (dw - sw) / 2, oy = (dh - sh) / 2;
    int x0 = std::max(0, ox), x1 = std::min(dw, ox + sw);
    int y0 = std::max(0, oy), y1 = std::min(dh, oy + sh);
    if (rect) {
        x0 = std::max(x0, rect[0]);
        y0 = std::max(y0, rect[1]);
        x1 = std::min(x1, rect[2]);
        y1 = std::min(y1, rect[3]);
    }
    if (x0 >= x1 || y0 >= y1) return true;
    const int start = FieldStart(field, dh);
    uint8_t* dbits = static_cast<uint8_t*>(dst.Bits());
    const uint8_t* sbits = static_cast<const uint8_t*>(src.Bits());
    const composerows::BlendFn over = composerows::Current().blend[1];
    const Tables none = {};
    for (int y = y0; y < y1; ++y) {
        const int dm = MemoryLine(dst, y);
        if (field != -1 && (dm & 1) != start) continue;
        uint8_t* d = dbits + ptrdiff_t(dm) * dst.Stride() + ptrdiff_t(x0) * 4;
        const uint8_t* s =
            sbits + ptrdiff_t(MemoryLine(src, y - oy)) * src.Stride() + ptrdiff_t(x0 - ox) * 4;
        if (!yuv) {
            over(d, s, x1 - x0, none);
            continue;
        }
        for (int x = x0; x < x1; ++x, d += 4, s += 4)
            compose::OverPixelYuv(d, s, d);
    }
    return true;
}

// One depth pixel by the modes: n the nearer pixel, f the farther one, the destination
// nearer where the depths are equal; the farther depth stays.
void DepthModesPixel(uint8_t* d, const uint8_t* s, int mode, int second, const Tables& t,
                     bool yuv) {
    float dz, sz;
    std::memcpy(&dz, d + 4, 4);
    std::memcpy(&sz, s + 4, 4);
    const bool sourceNear = sz < dz;
    const int m = sourceNear ? second : mode;
    uint8_t db[4], sb[4], out[4];
    const uint8_t* dp = d;
    const uint8_t* sp = s;
    if (yuv) {
        compose::YuvToBgra(d, db, t);
        compose::YuvToBgra(s, sb, t);
        dp = db;
        sp = sb;
    }
    const uint8_t* n = sourceNear ? sp : dp;
    const uint8_t* f = sourceNear ? dp : sp;
    if (m == 1)
        compose::OverPixel(n, f, out); // the farther pixel on top
    else if (!compose::BlendPixelMode(m, n, f, out, dp, t))
        compose::OverPixel(f, n, out);
    if (yuv)
        compose::BgraToYuv(out, d, t);
    else
        std::memcpy(d, out, 4);
    if (!sourceNear) std::memcpy(d + 4, s + 4, 4);
}

bool RunDepthModes(CDIB& dst, const CDIB& src, int field, uint32_t mode, uint32_t second,
                   bool yuv) {
    CHSL hsl;
    Tables t;
    Rows r;
    if (!LoadTables(&t, &hsl, 0) || !Prepare(dst, src, field, 8, &r)) return false;
    // A mode number beyond 20 takes the plain rule, as 0 does.
    const int m = mode > 20 ? 0 : int(mode), n = second > 20 ? 0 : int(second);
    for (int i = 0; i < r.count; ++i) {
        uint8_t* d = r.dst + i * r.dstStep;
        const uint8_t* s = r.src + i * r.srcStep;
        for (int32_t x = 0; x < r.width; ++x, d += 8, s += 8)
            DepthModesPixel(d, s, m, n, t, yuv);
    }
    return true;
}

} // namespace

bool CDibCompose::ComposeOver(CDIB& dst, const CDIB& src, const int32_t* rect, int field) {
    return PlaceOver(dst, src, rect, field, false);
}

bool CDibCompose::ComposeMode2(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 2, 0);
}
bool CDibCompose::ComposeMode3(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 3, 0);
}
bool CDibCompose::ComposeMode4(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 4, 0);
}
bool CDibCompose::ComposeMode5(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 5, 0);
}
bool CDibCompose::ComposeMode6(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 6, 0);
}
bool CDibCompose::ComposeMode7(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 7, 0);
}
bool CDibCompose::ComposeMode8(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 8, 0);
}
bool CDibCompose::ComposeMode9(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 9, 0);
}
bool CDibCompose::ComposeMode10(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 10, 0);
}
bool CDibCompose::ComposeMode11(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 11, 0);
}
bool CDibCompose::ComposeMode12(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 12, 0);
}
bool CDibCompose::ComposeModeHSL(CDIB& d, const CDIB& s, int, int f) {
    if (m_uMode < 13 || m_uMode > 16) return false;
    return RunRgb(d, s, f, int(m_uMode), int(m_uMode));
}
bool CDibCompose::ComposeMode17(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 17, 0);
}
bool CDibCompose::ComposeMode18(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 18, 0);
}
bool CDibCompose::ComposeMode19(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 19, 0);
}
bool CDibCompose::ComposeMode20(CDIB& d, const CDIB& s, int, int f) {
    return RunRgb(d, s, f, 20, 0);
}

bool CDibCompose::ComposeOverYUV(CDIB& dst, const CDIB& src, const int32_t* rect, int field) {
    return PlaceOver(dst, src, rect, field, true);
}

bool CDibCompose::ComposeMode2YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuv(d, s, f, 2);
}
bool CDibCompose::ComposeMode3YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuv(d, s, f, 3);
}
bool CDibCompose::ComposeMode4YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuv(d, s, f, 4);
}
bool CDibCompose::ComposeMode5YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuv(d, s, f, 5);
}
bool CDibCompose::ComposeMode6YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuv(d, s, f, 6);
}
bool CDibCompose::ComposeMode7YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuv(d, s, f, 7);
}
bool CDibCompose::ComposeMode8YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuv(d, s, f, 8);
}
bool CDibCompose::ComposeMode9YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuv(d, s, f, 9);
}
bool CDibCompose::ComposeMode10YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuv(d, s, f, 10);
}
bool CDibCompose::ComposeMode11YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuv(d, s, f, 11);
}
bool CDibCompose::ComposeMode12YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuv(d, s, f, 12);
}
bool CDibCompose::ComposeModeHSLYUV(CDIB& d, const CDIB& s, int, int f) {
    if (m_uMode < 13 || m_uMode > 16) return false;
    return RunYuv(d, s, f, int(m_uMode));
}
bool CDibCompose::ComposeMode17YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuvMatte(d, s, f, 17);
}
bool CDibCompose::ComposeMode18YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuvMatte(d, s, f, 18);
}
bool CDibCompose::ComposeMode19YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuvMatte(d, s, f, 19);
}
bool CDibCompose::ComposeMode20YUV(CDIB& d, const CDIB& s, int, int f) {
    return RunYuvMatte(d, s, f, 20);
}

bool CDibCompose::ComposeDepth(CDIB& dst, const CDIB& src, int, int field) {
    Rows r;
    if (!Prepare(dst, src, field, 8, &r)) return false;
    const composerows::DepthFn depth = composerows::Current().depth;
    for (int i = 0; i < r.count; ++i)
        depth(r.dst + i * r.dstStep, r.src + i * r.srcStep, r.width);
    return true;
}

bool CDibCompose::ComposeDepthModes(CDIB& dst, const CDIB& src, int, int field) {
    return RunDepthModes(dst, src, field, m_uMode, m_uSecond, false);
}

bool CDibCompose::ComposeDepthYUV(CDIB& dst, const CDIB& src, int, int field) {
    Rows r;
    if (!Prepare(dst, src, field, 8, &r)) return false;
    for (int i = 0; i < r.count; ++i) {
        uint8_t* d = r.dst + i * r.dstStep;
        const uint8_t* s = r.src + i * r.srcStep;
        for (int32_t x = 0; x < r.width; ++x, d += 8, s += 8) {
            float dz, sz;
            std::memcpy(&dz, d + 4, 4);
            std::memcpy(&sz, s + 4, 4);
            if (sz < dz) {
                compose::OverPixelYuv(d, s, d);
            } else {
                compose::OverPixelYuv(s, d, d);
                std::memcpy(d + 4, s + 4, 4);
            }
        }
    }
    return true;
}

bool CDibCompose::ComposeDepthModesYUV(CDIB& dst, const CDIB& src, int, int field) {
    return RunDepthModes(dst, src, field, m_uMode, m_uSecond, true);
}

bool CDibCompose::Compose(CDIB& dst, const CDIB& src, int a, int field) {
    switch (m_uMode) {
    case 1:
        return ComposeOver(dst, src, nullptr, field);
    case 2:
        return ComposeMode2(dst, src, a, field);
    case 3:
        return ComposeMode3(dst, src, a, field);
    case 4:
        return ComposeMode4(dst, src, a, field);
    case 5:
        return ComposeMode5(dst, src, a, field);
    case 6:
        return ComposeMode6(dst, src, a, field);
    case 7:
        return ComposeMode7(dst, src, a, field);
    case 8:
        return ComposeMode8(dst, src, a, field);
    case 9:
        return ComposeMode9(dst, src, a, field);
    case 10:
        return ComposeMode10(dst, src, a, field);
    case 11:
        return ComposeMode11(dst, src, a, field);
    case 12:
        return ComposeMode12(dst, src, a, field);
    case 13:
    case 14:
    case 15:
    case 16:
        return ComposeModeHSL(dst, src, a, field);
    case 17:
        return ComposeMode17(dst, src, a, field);
    case 18:
        return ComposeMode18(dst, src, a, field);
    case 19:
        return ComposeMode19(dst, src, a, field);
    case 20:
        return ComposeMode20(dst, src, a, field);
    default:
        return false;
    }
}

bool CDibCompose::ComposeYUV(CDIB& dst, const CDIB& src, int a, int field) {
    switch (m_uMode) {
    case 1:
        return ComposeOverYUV(dst, src, nullptr, field);
    case 2:
        return ComposeMode2YUV(dst, src, a, field);
    case 3:
        return ComposeMode3YUV(dst, src, a, field);
    case 4:
        return ComposeMode4YUV(dst, src, a, field);
    case 5:
        return ComposeMode5YUV(dst, src, a, field);
    case 6:
        return ComposeMode6YUV(dst, src, a, field);
    case 7:
        return ComposeMode7YUV(dst, src, a, field);
    case 8:
        return ComposeMode8YUV(dst, src, a, field);
    case 9:
        return ComposeMode9YUV(dst, src, a, field);
    case 10:
        return ComposeMode10YUV(dst, src, a, field);
    case 11:
        return ComposeMode11YUV(dst, src, a, field);
    case 12:
        return ComposeMode12YUV(dst, src, a, field);
    case 13:
    case 14:
    case 15:
    case 16:
        return ComposeModeHSLYUV(dst, src, a, field);
    case 17:
        return ComposeMode17YUV(dst, src, a, field);
    case 18:
        return ComposeMode18YUV(dst, src, a, field);
    case 19:
        return ComposeMode19YUV(dst, src, a, field);
    case 20:
        return ComposeMode20YUV(dst, src, a, field);
    default:
        return false;
    }
}

bool CDibCompose::ComposeZ(CDIB& dst, const CDIB& src, int a, int field) {
    return m_uMode == 0 && m_uSecond == 0 ? ComposeDepth(dst, src, a, field)
                                          : ComposeDepthModes(dst, src, a, field);
}

bool CDibCompose::ComposeZYUV(CDIB& dst, const CDIB& src, int a, int field) {
    return m_uMode == 0 && m_uSecond == 0 ? ComposeDepthYUV(dst, src, a, field)
                                          : ComposeDepthModesYUV(dst, src, a, field);
}

} // namespace stdfx
