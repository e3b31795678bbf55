// The deinterlacers of CDIB: the line pass that keeps the lines of one parity and makes
// the others from the source (single-frame methods), from three frames (temporal
// methods), and field expansion, which makes a whole frame from one field.
#include "deinterlace.h"

#include <cstring>

#include "deinterlacerows.h"
#include "dibformat.h"
#include "dibrows.h"

namespace stdfx {

int DeinterlacePlanes(const CDIB& dib, BytePlane planes[2]) {
    if (!dib.IsValid()) return 0;
    const KXBMINFOHEADER* h = dib.Header();
    const uint32_t format = h->biCompression, sampling = Sampling(h);
    int step = 0;
    if (format == KXBI_RGB && h->biPlanes <= 1)
        step = h->biBitCount / 8;
    else if (format == KXBI_YUV && h->biPlanes <= 1 && sampling == KXYUV_SAMPLING_444)
        step = h->biBitCount / 8;
    else if (format == KXBI_YUVZ && sampling == KXYUV_SAMPLING_444)
        step = CDIB::BytesPerPixel(h);
    else if (IsPacked422(h))
        step = 2;
    if (step <= 0 || h->biWidth < 0) return 0;
    const int64_t bytes =
        IsPacked422(h) ? 2 * ((int64_t(h->biWidth) + 1) & ~int64_t(1)) : int64_t(step) * h->biWidth;
    const int32_t stride = dib.Stride();
    if (bytes > stride || (stride <= 0 && bytes > 0)) return 0;
    planes[0].base = static_cast<unsigned char*>(dib.Bits());
    planes[0].stride = stride;
    planes[0].bytes = int32_t(bytes);
    planes[0].step = step;
    if (!HasAlphaPlane(h)) return 1;
    const int32_t alphaStride = dib.GetAlphaStride();
    if (alphaStride < dib.Width()) return 0;
    planes[1].base = dib.GetAlphaPlane();
    planes[1].stride = alphaStride;
    planes[1].bytes = dib.Width();
    planes[1].step = 1;
    return 2;
}

bool SameLayout(const CDIB& a, const CDIB& b) {
    const KXBMINFOHEADER* x = a.Header();
    const KXBMINFOHEADER* y = b.Header();
    return x && y && x->biCompression == y->biCompression && x->biBitCount == y->biBitCount &&
           x->biPlanes == y->biPlanes && Sampling(x) == Sampling(y) && a.Width() == b.Width() &&
           a.Height() == b.Height();
}

namespace {

using deinterlacerows::Kernels;

// The kept parity in memory lines: the argument clipped to 0 or 1, and turned over for
// a bottom-up image of even height, so that the caller's parity counts in display order.
int KeptParity(const CDIB& source, int parity) {
    int p = parity <= 0 ? 0 : 1;
    if (!source.IsTopDown() && (source.Height() & 1) == 0) p ^= 1;
    return p;
}

// The lines of a line pass: all lines, or one field from its first line.
struct LinePass {
    int first, step, height;
};
LinePass MakePass(const CDIB& target, int field) {
    if (field == -1) return {0, 1, target.Height()};
    return {target.FirstLine(field), 2, target.Height()};
}

// The neighbours of line y with the edge rule: at line 0 the line above is line 1 (the
// only line of a 1-line image), at the last line the line below is the line above.
int Above(int y, int h) {
    return y > 0 ? y - 1 : (h > 1 ? 1 : 0);
}
int Below(int y, int h) {
    return y + 1 < h ? y + 1 : Above(y, h);
}

// Asks for a line that the next interpolated line will read first: a short row (a
// 4:2:2 row or its alpha plane row) ends before the processor's own prefetching of it
// has caught up.
void Prefetch(const unsigned char* line, int bytes) {
    for (int i = 0; i < bytes; i += 64)
        __builtin_prefetch(line + i);
}

void CopyLine(const BytePlane& to, int y, const BytePlane& from, int line) {
    CopyRow(to.Line(y), from.Line(line), size_t(to.bytes < from.bytes ? to.bytes : from.bytes));
}

// One interpolated line of a single-frame method.
void Interpolate(const Kernels& k, const BytePlane& to, const BytePlane& src, int y, int h,
                 int method, bool topDown) {
    unsigned char* dst = to.Line(y);
    const int n = to.bytes;
    const int up = Above(y, h), down = Below(y, h);
    switch (method) {
    case 1: { // line repeat
        int line;
        if (topDown)
            line = y > 0 ? y - 1 : (h > 1 ? 1 : 0); // line 0 has no predecessor
        else
            line = y + 1 < h ? y + 1 : (y > 0 ? y - 1 : 0);
        CopyLine(to, y, src, line);
        return;
    }
    case 2:
        k.average(src.Line(up), src.Line(down), dst, n);
        return;
    case 3:
        k.blend(src.Line(up), src.Line(y), src.Line(down), dst, n);
        return;
    case 4:
        if (y >= 3 && y <= h - 4)
            k.cubic(src.Line(y - 3), src.Line(up), src.Line(down), src.Line(y + 3), dst, n);
        else
            k.average(src.Line(up), src.Line(down), dst, n);
        return;
    case 5:
        if (y == 0)
            CopyLine(to, y, src, h > 1 ? 1 : 0);
        else if (y == h - 1)
            CopyLine(to, y, src, y - 1);
        else
            k.edge(src.Line(up), src.Line(down), dst, n / to.step, to.step);
        return;
    default:
        CopyLine(to, y, src, y);
    }
}

} // namespace

bool CDIB::Deinterlace(const CDIB& source, int method, int parity, int field) {
    if (!IsValid() || !source.IsValid()) return false;
    BytePlane to[2], from[2];
    const int planes = DeinterlacePlanes(*this, to);
    if (!planes || DeinterlacePlanes(source, from) != planes || !SameLayout(*this, source))
        return false;
    if (IsEmpty()) return true;
    // A handle of its own keeps the source's pixels while this image is made private,
    // even when the two share a body.
    const CDIB keep(source);
    if (!MakeWritable()) return false;
    DeinterlacePlanes(*this, to);
    DeinterlacePlanes(keep, from);
    const int kept = KeptParity(keep, parity);
    const bool topDown = keep.IsTopDown();
    const Kernels& k = deinterlacerows::Current();
    const LinePass pass = MakePass(*this, field);
    const bool known = method >= 1 && method <= 5;
    // Over all lines, the cubic writes the kept line below it in the same pass, while
    // that line's bytes are at hand; `written` is that line, not to be copied again.
    const bool keepBelow = method == 4 && pass.step == 1;
    int written = -1;
    for (int y = pass.first; y < pass.height; y += pass.step)
        for (int p = 0; p < planes; ++p) {
            if (!known || (y & 1) == kept) {
                if (y != written) CopyLine(to[p], y, from[p], y);
            } else if (keepBelow && y >= 3 && y <= pass.height - 4) {
                const BytePlane& src = from[p];
                if (y + 5 < pass.height) Prefetch(src.Line(y + 5), src.bytes);
                k.cubicKeep(src.Line(y - 3), src.Line(y - 1), src.Line(y + 1), src.Line(y + 3),
                            to[p].Line(y), to[p].Line(y + 1), to[p].bytes);
                written = y + 1;
            } else {
                Interpolate(k, to[p], from[p], y, pass.height, method, topDown);
            }
        }
    SetFrameFlag(1);
    return true;
}

bool CDIB::DeinterlaceTemporal(const CDIB& previous, const CDIB& current, const CDIB& next,
                               int method, int parity, int field) {
    if (!IsValid() || !previous.IsValid() || !current.IsValid() || !next.IsValid()) return false;
    BytePlane to[2], prev[2], cur[2], nxt[2];
    const int planes = DeinterlacePlanes(*this, to);
    if (!planes || DeinterlacePlanes(current, cur) != planes ||
        DeinterlacePlanes(previous, prev) != planes || DeinterlacePlanes(next, nxt) != planes ||
        !SameLayout(*this, current) || !SameLayout(*this, previous) || !SameLayout(*this, next))
        return false;
    if (IsEmpty()) return true;
    const CDIB keepPrev(previous), keepCur(current), keepNext(next);
    if (!MakeWritable()) return false;
    DeinterlacePlanes(*this, to);
    DeinterlacePlanes(keepPrev, prev);
    DeinterlacePlanes(keepCur, cur);
    DeinterlacePlanes(keepNext, nxt);
    const int kept = KeptParity(keepCur, parity);
    const Kernels& k = deinterlacerows::Current();
    const LinePass pass = MakePass(*this, field);
    const int h = pass.height;
    const bool known = method == 1 || method == 16 || method == 17;
    for (int y = pass.first; y < h; y += pass.step)
        for (int p = 0; p < planes; ++p) {
            if (!known || (y & 1) == kept) {
                CopyLine(to[p], y, cur[p], y);
                continue;
            }
            unsigned char* dst = to[p].Line(y);
            const int n = to[p].bytes;
            const unsigned char* up = cur[p].Line(Above(y, h));
            const unsigned char* down = cur[p].Line(Below(y, h));
            if (method == 16)
                k.average(prev[p].Line(y), nxt[p].Line(y), dst, n);
            else if (method == 17)
                k.median3(up, down, prev[p].Line(y), dst, n);
            else
                k.median9(down, up, prev[p].Line(y), nxt[p].Line(y), dst, n);
        }
    SetFrameFlag(1);
    return true;
}

bool CDIB::CreateDeinterlacedTemporal(const CDIB& previous, const CDIB& current, const CDIB& next,
                                      int method, int parity, int field) {
    const CDIB keepPrev(previous), keepCur(current), keepNext(next);
    if (!keepCur.IsValid() || !Create(keepCur.Header())) return false;
    return DeinterlaceTemporal(keepPrev, keepCur, keepNext, method, parity, field);
}

bool CDIB::CreateDeinterlaced(const CDIB& source, int method, int parity, int field) {
    const CDIB keep(source);
    if (!keep.IsValid() || !Create(keep.Header())) return false;
    return Deinterlace(keep, method, parity, field);
}

// ---------------------------------------------------------------- field expansion

namespace {

// Line y + offset, mirrored about y where it falls outside the image.
int Mirrored(int y, int offset, int h) {
    const int line = y + offset;
    return line >= 0 && line < h ? line : y - offset;
}

bool ExpandField(CDIB& target, const CDIB& source, unsigned field, int method) {
    BytePlane to[2], from[2];
    const int planes = DeinterlacePlanes(target, to);
    if (!planes || DeinterlacePlanes(source, from) != planes || !SameLayout(target, source))
        return false;
    if (target.IsEmpty()) return true;
    const int h = target.Height();
    const bool even = (h & 1) == 0;
    // The parity of the lines that are kept: the even lines of an even height with a
    // field that is not 0, the odd lines of an odd height; field 0 the other way.
    const int kept = (field != 0) == even ? 0 : 1;
    if (method > 1) method = 1;
    if (field == 0 && method != 0) method = 1;
    if (method < 0 && h < 9) method = 1;
    const Kernels& k = deinterlacerows::Current();
    for (int y = 0; y < h; ++y)
        for (int p = 0; p < planes; ++p) {
            if (method == 0) {
                // Each kept line twice; a last line without its pair takes the line
                // written two lines before it.
                int line = (y & ~1) | kept;
                if (line > h - 1) line = h >= 2 ? h - 2 : 0;
                CopyLine(to[p], y, from[p], line);
            } else if ((y & 1) == kept) {
                CopyLine(to[p], y, from[p], y);
            } else if (method == 1) {
                k.average(from[p].Line(Above(y, h)), from[p].Line(Below(y, h)), to[p].Line(y),
                          to[p].bytes);
            } else {
                k.fiveTap(from[p].Line(Mirrored(y, -3, h)), from[p].Line(Mirrored(y, -1, h)),
                          from[p].Line(y), from[p].Line(Mirrored(y, 1, h)),
                          from[p].Line(Mirrored(y, 3, h)), to[p].Line(y), to[p].bytes);
            }
        }
    return true;
}

} // namespace

bool CDIB::CreateFieldExpanded(const CDIB& source, unsigned field, int method) {
    const CDIB keep(source);
    if (!keep.IsValid() || !Create(keep.Header())) return false;
    SetFrameFlag(1);
    return ExpandField(*this, keep, field, method);
}

} // namespace stdfx
