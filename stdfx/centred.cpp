// Centred copies of CDIB: the source placed in the middle of this image, cut
// symmetrically where it is larger, with black around it; over one field or all lines.
// The centred composites take the pads and margins from a background instead of black and
// lay the premultiplied source over it in the copied part.
#include <kelp/stdfx_dib.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "composepixel.h"
#include "composerows.h"
#include "deinterlacerows.h"
#include "dibformat.h"
#include "dibrows.h"
#include "dibrowspan.h"

namespace stdfx {

namespace {

// One byte plane of the copy: the rows, in units of whole pixels (a pixel, or a pair of
// 4:2:2 pixels), or the alpha plane of 4:2:2 in pixels.
struct CentredPlane {
    unsigned char* dst;
    ptrdiff_t dstStride;
    const unsigned char* src;
    ptrdiff_t srcStride;
    int unit;       // bytes of a unit
    uint32_t black; // the unit's black: a 32-bit word, or 0 for a byte plane
    int left;       // units of black on the left
    int from;       // first source unit copied
    int count;      // units copied
    int width;      // units of a target row
};

void FillUnits(const CentredPlane& p, unsigned char* d, int units) {
    if (units <= 0) return;
    if (p.unit == 1) {
        std::memset(d, 0, size_t(units));
    } else if (p.unit == 4) {
        FillRow32(d, p.black, size_t(units));
    } else { // a pixel and a depth of 1.0
        for (int x = 0; x < units; ++x) {
            FillRow32(d + 8 * x, p.black, 1);
            FillRow32(d + 8 * x + 4, 0x3F800000u, 1);
        }
    }
}

// Pads and cut along one axis: the target's and the source's lengths give the pad
// before, the first source position and the length copied.
void Centre(int target, int source, int* pad, int* first, int* count) {
    *pad = std::max((target - source + 1) / 2, 0);
    *first = std::max((source - target + 1) / 2, 0);
    *count = std::min(target, source);
}

// The source display row for target display row `y`, or -1 in the margins; `mix` is set
// when the row has to be made as the average of its neighbours `a` and `b`.
struct SourceRow {
    int row = -1, a = -1, b = -1;
    bool mix = false;
};

SourceRow RowFor(const CDIB& source, int field, int y, int pad, int first, int count) {
    SourceRow r;
    if (y < pad || y >= pad + count) return r;
    const int h = source.Height();
    int sy = y - pad + first;
    r.row = sy;
    if (field == -1) return r;
    const int wanted = source.FirstLine(field) & 1;
    if ((MemoryLine(source, sy) & 1) == wanted) return r;
    if (source.GetFieldFlag() == 1) {
        // An interlaced source: the row of the same field next to it.
        r.row = sy + 1 < h ? sy + 1 : (sy > 0 ? sy - 1 : sy);
        return r;
    }
    // A progressive source has no line of that parity there: the average of the rows
    // before and after it.
    r.mix = true;
    r.a = sy > 0 ? sy - 1 : (sy + 1 < h ? sy + 1 : sy);
    r.b = sy + 1 < h ? sy + 1 : r.a;
    return r;
}

bool CopyCentredPlanes(CDIB& target, const CDIB& source, int field, CentredPlane* planes, int count,
                       int pad, int first, int rows) {
    const deinterlacerows::Kernels& k = deinterlacerows::Current();
    const int h = target.Height();
    const int start = field == -1 ? 0 : target.FirstLine(field);
    const int step = field == -1 ? 1 : 2;
    for (int m = start; m < h; m += step) {
        const SourceRow r = RowFor(source, field, MemoryLine(target, m), pad, first, rows);
        for (int i = 0; i < count; ++i) {
            const CentredPlane& p = planes[i];
            unsigned char* d = p.dst + ptrdiff_t(m) * p.dstStride;
            if (r.row < 0) {
                FillUnits(p, d, p.width);
                continue;
            }
            FillUnits(p, d, p.left);
            unsigned char* mid = d + ptrdiff_t(p.left) * p.unit;
            const ptrdiff_t offset = ptrdiff_t(p.from) * p.unit;
            const size_t bytes = size_t(p.count) * size_t(p.unit);
            auto line = [&](int row) {
                return p.src + ptrdiff_t(MemoryLine(source, row)) * p.srcStride + offset;
            };
            if (r.mix)
                k.average(line(r.a), line(r.b), mid, int32_t(bytes));
            else
                CopyRow(mid, line(r.row), bytes);
            FillUnits(p, mid + bytes, p.width - p.left - p.count);
        }
    }
    return true;
}

uint32_t YuvBlack(const KXBMINFOHEADER* h) {
    return ColorSpace(h) != 1 ? 0x808010u : 0x808000u;
}

// The source byte laid over the background byte: src + bg (255 - a) / 255, rounded as the
// compositor rounds, at most 255.
inline unsigned char OverByte(int src, int bg, int a) {
    return static_cast<unsigned char>(compose::Clamp(src + compose::Mul(bg, 255 - a)));
}

// The composites want source and background in the target's own layout.
bool SameLayout(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b) {
    if (a->biCompression != b->biCompression || a->biBitCount != b->biBitCount ||
        a->biPlanes != b->biPlanes || CDIB::BytesPerPixel(a) != CDIB::BytesPerPixel(b))
        return false;
    return !IsYuvFormat(a->biCompression) || Sampling(a) == Sampling(b);
}

// The source's copied middle of plane `p` for a target row: the source line itself, or
// the average of two lines made in `scratch`.
const unsigned char* SourceMiddle(const CentredPlane& p, const CDIB& source, const SourceRow& r,
                                  unsigned char* scratch) {
    auto line = [&](int row) {
        return p.src + ptrdiff_t(MemoryLine(source, row)) * p.srcStride +
               ptrdiff_t(p.from) * p.unit;
    };
    if (!r.mix) return line(r.row);
    deinterlacerows::Current().average(line(r.a), line(r.b), scratch,
                                       int32_t(size_t(p.count) * size_t(p.unit)));
    return scratch;
}

// Lines a pass visits, in memory order: all of them, or every second from the field's.
struct LinePass {
    int start, step;
};
LinePass PassFor(const CDIB& target, int field) {
    return field == -1 ? LinePass{0, 1} : LinePass{target.FirstLine(field), 2};
}

// RGB and 4:4:4: the copied part through the compositor's over row, whose arithmetic per
// byte is exactly OverByte with the source's fourth byte as a.
bool CopyCentredComposite(CDIB& target, const CDIB& source, const CDIB& background, int field) {
    if (!target.IsValid() || !source.IsValid() || !background.IsValid()) return false;
    const KXBMINFOHEADER* h = target.Header();
    const int unit = CDIB::BytesPerPixel(h);
    if (h->biBitCount != 32 || (unit != 4 && unit != 8) || h->biPlanes > 1) return false;
    if (!SameLayout(h, source.Header()) || !SameLayout(h, background.Header())) return false;
    if (IsYuvFormat(h->biCompression) && Sampling(h) != KXYUV_SAMPLING_444) return false;
    if (background.Width() != target.Width() || background.Height() != target.Height())
        return false;
    RowSpan to, from, back;
    if (!MakeRowSpan(target, -1, &to) || !MakeRowSpan(source, -1, &from) ||
        !MakeRowSpan(background, -1, &back))
        return false;
    // Copies that hold the inputs while the target is made private: either may be the
    // target itself.
    const CDIB keep(source), under(background);
    if (!target.MakeWritable() || !MakeRowSpan(target, -1, &to) || !MakeRowSpan(keep, -1, &from) ||
        !MakeRowSpan(under, -1, &back))
        return false;
    if (target.IsEmpty()) return true;
    CentredPlane p{};
    p.src = from.first;
    p.srcStride = from.stride;
    p.unit = unit;
    p.width = target.Width();
    Centre(target.Width(), keep.Width(), &p.left, &p.from, &p.count);
    int pad, first, rows;
    Centre(target.Height(), keep.Height(), &pad, &first, &rows);
    const composerows::BlendFn over = composerows::Current().blend[1];
    const compose::Tables none = {};
    std::vector<unsigned char> scratch(size_t(p.count) * size_t(unit));
    const LinePass pass = PassFor(target, field);
    for (int m = pass.start; m < target.Height(); m += pass.step) {
        const int y = MemoryLine(target, m);
        unsigned char* d = to.first + ptrdiff_t(m) * to.stride;
        const unsigned char* b = back.first + ptrdiff_t(MemoryLine(under, y)) * back.stride;
        std::memmove(d, b, size_t(p.width) * size_t(unit));
        const SourceRow r = RowFor(keep, field, y, pad, first, rows);
        if (r.row < 0 || p.count <= 0) continue;
        const unsigned char* s = SourceMiddle(p, keep, r, scratch.data());
        unsigned char* mid = d + ptrdiff_t(p.left) * unit;
        if (unit == 4) {
            over(mid, s, p.count, none);
            continue;
        }
        // A pixel and its depth: the colour laid over, the source's depth kept.
        for (int x = 0; x < p.count; ++x) {
            compose::OverPixel(mid + 8 * x, s + 8 * x, mid + 8 * x);
            std::memcpy(mid + 8 * x + 4, s + 8 * x + 4, 4);
        }
    }
    return true;
}

// The two planes of a 4:2:2 centred copy: pairs of pixels in the rows, pixels in the
// alpha plane, both placed by whole pairs.
void Plan422(int targetWidth, int sourceWidth, CentredPlane* p) {
    p[0].unit = 4;
    p[0].width = (targetWidth + 1) / 2;
    Centre(p[0].width, (sourceWidth + 1) / 2, &p[0].left, &p[0].from, &p[0].count);
    p[1].unit = 1;
    p[1].width = targetWidth;
    p[1].left = std::min(2 * p[0].left, targetWidth);
    p[1].from = 2 * p[0].from;
    p[1].count =
        std::max(0, std::min({2 * p[0].count, sourceWidth - p[1].from, targetWidth - p[1].left}));
}

bool CopyCentredComposite422(CDIB& target, const CDIB& source, const CDIB& background, int field) {
    if (!target.IsValid() || !source.IsValid() || !background.IsValid()) return false;
    const KXBMINFOHEADER* h = target.Header();
    if (!HasAlphaPlane(h) || !HasAlphaPlane(source.Header()) ||
        !HasAlphaPlane(background.Header()) || Sampling(h) != Sampling(source.Header()) ||
        Sampling(h) != Sampling(background.Header()))
        return false;
    if (background.Width() != target.Width() || background.Height() != target.Height())
        return false;
    RowSpan to, from, back, ato, afrom, aback;
    auto spans = [&](const CDIB& t, const CDIB& s, const CDIB& b) {
        return MakeRowSpan(t, -1, &to) && MakeRowSpan(s, -1, &from) && MakeRowSpan(b, -1, &back) &&
               MakeAlphaSpan(t, -1, &ato) && MakeAlphaSpan(s, -1, &afrom) &&
               MakeAlphaSpan(b, -1, &aback);
    };
    if (!spans(target, source, background)) return false;
    const CDIB keep(source), under(background);
    if (!target.MakeWritable() || !spans(target, keep, under)) return false;
    if (target.IsEmpty()) return true;
    CentredPlane p[2]{};
    Plan422(target.Width(), keep.Width(), p);
    p[0].src = from.first;
    p[0].srcStride = from.stride;
    p[1].src = afrom.first;
    p[1].srcStride = afrom.stride;
    int pad, first, rows;
    Centre(target.Height(), keep.Height(), &pad, &first, &rows);
    // Luma bytes of a pair at 0 and 2 ("Y U Y V"), or at 1 and 3 ("U Y V Y").
    const int luma = Sampling(h) == KXYUV_SAMPLING_422B ? 1 : 0;
    std::vector<unsigned char> pairs(size_t(p[0].count) * 4), alphas(size_t(p[1].count) + 1);
    const LinePass pass = PassFor(target, field);
    for (int m = pass.start; m < target.Height(); m += pass.step) {
        const int y = MemoryLine(target, m);
        const int by = MemoryLine(under, y);
        unsigned char* d = to.first + ptrdiff_t(m) * to.stride;
        unsigned char* ad = ato.first + ptrdiff_t(m) * ato.stride;
        std::memmove(d, back.first + ptrdiff_t(by) * back.stride, size_t(p[0].width) * 4);
        std::memmove(ad, aback.first + ptrdiff_t(by) * aback.stride, size_t(p[1].width));
        const SourceRow r = RowFor(keep, field, y, pad, first, rows);
        if (r.row < 0) continue;
        const unsigned char* s = SourceMiddle(p[0], keep, r, pairs.data());
        const unsigned char* sa = SourceMiddle(p[1], keep, r, alphas.data());
        const int n = p[1].count;
        unsigned char* mid = d + ptrdiff_t(p[0].left) * 4;
        // A pair's chroma is laid over by the mean of its two alphas; a pair cut to one
        // pixel at an odd width uses that pixel's alpha for both.
        for (int j = 0; j < p[0].count; ++j) {
            const int a0 = 2 * j < n ? sa[2 * j] : 255;
            const int a1 = 2 * j + 1 < n ? sa[2 * j + 1] : a0;
            const int ac = (a0 + a1 + 1) >> 1;
            const int a[4] = {luma ? ac : a0, luma ? a0 : ac, luma ? ac : a1, luma ? a1 : ac};
            unsigned char* q = mid + 4 * j;
            for (int k = 0; k < 4; ++k)
                q[k] = OverByte(s[4 * j + k], q[k], a[k]);
        }
        unsigned char* amid = ad + p[1].left;
        for (int i = 0; i < n; ++i)
            amid[i] = OverByte(sa[i], amid[i], sa[i]);
    }
    return true;
}

} // namespace

bool CDIB::CopyCentred(const CDIB& source, const CDIB& background, int field) {
    if (!IsValid() || !source.IsValid() || !MakeWritable()) return false;
    if (IsRGB() || IsBGRAZ()) return CopyCentredRGB(source, background, field);
    if (IsYUV444()) return CopyCentred444(source, background, field);
    if (Is422()) return CopyCentred422(source, background, field);
    return false;
}

bool CDIB::CopyCentred(const CDIB& source, int field) {
    if (!IsValid() || !source.IsValid() || !MakeWritable()) return false;
    if (IsRGB() || IsBGRAZ()) return CopyCentredRGBPlain(source, field);
    if (IsYUV444()) return CopyCentred444Plain(source, field);
    if (Is422()) return CopyCentred422Plain(source, field);
    return false;
}

bool CDIB::CopyCentredRGB(const CDIB& source, const CDIB& background, int field) {
    return CopyCentredComposite(*this, source, background, field);
}
bool CDIB::CopyCentred444(const CDIB& source, const CDIB& background, int field) {
    return CopyCentredComposite(*this, source, background, field);
}
bool CDIB::CopyCentred422(const CDIB& source, const CDIB& background, int field) {
    return CopyCentredComposite422(*this, source, background, field);
}

bool CDIB::CopyCentredRGBPlain(const CDIB& source, int field) {
    if (!IsValid() || !source.IsValid()) return false;
    const KXBMINFOHEADER* h = Header();
    const KXBMINFOHEADER* sh = source.Header();
    const int unit = BytesPerPixel(h);
    if (h->biBitCount != 32 || sh->biBitCount != 32 || h->biCompression != sh->biCompression ||
        unit != BytesPerPixel(sh) || (unit != 4 && unit != 8) || h->biPlanes > 1 ||
        sh->biPlanes > 1)
        return false;
    if (IsYuvFormat(h->biCompression) &&
        (Sampling(h) != KXYUV_SAMPLING_444 || Sampling(sh) != KXYUV_SAMPLING_444))
        return false;
    const CDIB keep(source);
    if (!MakeWritable()) return false;
    RowSpan to, from;
    if (!MakeRowSpan(*this, -1, &to) || !MakeRowSpan(keep, -1, &from)) return false;
    if (IsEmpty()) return true;
    CentredPlane p{};
    p.dst = to.first;
    p.dstStride = to.stride;
    p.src = from.first;
    p.srcStride = from.stride;
    p.unit = unit;
    p.black = IsYuvFormat(h->biCompression) ? YuvBlack(h) : 0;
    p.width = Width();
    Centre(Width(), keep.Width(), &p.left, &p.from, &p.count);
    int pad, first, rows;
    Centre(Height(), keep.Height(), &pad, &first, &rows);
    return CopyCentredPlanes(*this, keep, field, &p, 1, pad, first, rows);
}

bool CDIB::CopyCentred444Plain(const CDIB& source, int field) {
    return CopyCentredRGBPlain(source, field);
}

// 4:2:2 rows move by whole pairs, so that no pixel is parted from its chroma: pads and
// cuts are counted in pairs, and the alpha plane follows the same pixels.
bool CDIB::CopyCentred422Plain(const CDIB& source, int field) {
    if (!IsValid() || !source.IsValid()) return false;
    const KXBMINFOHEADER* h = Header();
    const KXBMINFOHEADER* sh = source.Header();
    if (!HasAlphaPlane(h) || !HasAlphaPlane(sh) || Sampling(h) != Sampling(sh)) return false;
    const CDIB keep(source);
    if (!MakeWritable()) return false;
    RowSpan to, from, ato, afrom;
    if (!MakeRowSpan(*this, -1, &to) || !MakeRowSpan(keep, -1, &from) ||
        !MakeAlphaSpan(*this, -1, &ato) || !MakeAlphaSpan(keep, -1, &afrom))
        return false;
    if (IsEmpty()) return true;
    const bool limited = ColorSpace(h) != 1;
    const bool uyvy = Sampling(h) == KXYUV_SAMPLING_422B;
    CentredPlane p[2]{};
    Plan422(Width(), keep.Width(), p);
    p[0].dst = to.first;
    p[0].dstStride = to.stride;
    p[0].src = from.first;
    p[0].srcStride = from.stride;
    p[0].black =
        uyvy ? (limited ? 0x10801080u : 0x00800080u) : (limited ? 0x80108010u : 0x80008000u);
    p[1].dst = ato.first;
    p[1].dstStride = ato.stride;
    p[1].src = afrom.first;
    p[1].srcStride = afrom.stride;
    int pad, first, rows;
    Centre(Height(), keep.Height(), &pad, &first, &rows);
    return CopyCentredPlanes(*this, keep, field, p, 2, pad, first, rows);
}

} // namespace stdfx
