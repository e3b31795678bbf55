// Centred copies of CDIB: the source placed in the middle of this image, cut
// symmetrically where it is larger, with black around it; over one field or all lines.
// The centred composites lay the source over a background instead of black, through the
// compositor.
#include <kelp/stdfx_dib.h>

#include <algorithm>
#include <cstring>

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

// The composites lay a premultiplied source over the background by the compositor's
// over operation, which this library does not have yet: they answer false.
bool CDIB::CopyCentredRGB(const CDIB&, const CDIB&, int) {
    return false;
}
bool CDIB::CopyCentred444(const CDIB&, const CDIB&, int) {
    return false;
}
bool CDIB::CopyCentred422(const CDIB&, const CDIB&, int) {
    return false;
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
    p[0].dst = to.first;
    p[0].dstStride = to.stride;
    p[0].src = from.first;
    p[0].srcStride = from.stride;
    p[0].unit = 4;
    p[0].black =
        uyvy ? (limited ? 0x10801080u : 0x00800080u) : (limited ? 0x80108010u : 0x80008000u);
    p[0].width = (Width() + 1) / 2;
    Centre(p[0].width, (keep.Width() + 1) / 2, &p[0].left, &p[0].from, &p[0].count);
    p[1].dst = ato.first;
    p[1].dstStride = ato.stride;
    p[1].src = afrom.first;
    p[1].srcStride = afrom.stride;
    p[1].unit = 1;
    p[1].width = Width();
    p[1].left = std::min(2 * p[0].left, Width());
    p[1].from = 2 * p[0].from;
    p[1].count =
        std::max(0, std::min({2 * p[0].count, keep.Width() - p[1].from, Width() - p[1].left}));
    int pad, first, rows;
    Centre(Height(), keep.Height(), &pad, &first, &rows);
    return CopyCentredPlanes(*this, keep, field, p, 2, pad, first, rows);
}

} // namespace stdfx
