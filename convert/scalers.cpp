// The scalers' own pixel work: weight tables, bilinear and nearest-neighbour scales,
// centring. Integer arithmetic only; tables are built once per image.
#include "scalers.h"

#include <kelp/trace.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "catchall.h"
#include "runtime/kelpos.h"

namespace kelp {

namespace {

int64_t AbsHeight(const KXBMINFOHEADER* d) {
    const int64_t h = d->biHeight;
    return h < 0 ? -h : h;
}

// Bytes of a row of `bytesPerPixel` * `width`, rounded up to 4.
size_t RowBytes(size_t bytesPerPixel, int64_t width) {
    return (bytesPerPixel * size_t(width) + 3) & ~size_t(3);
}

void ZeroTail(uint8_t* row, size_t used, size_t rowBytes) {
    if (rowBytes > used) memset(row + used, 0, rowBytes - used);
}

// The nearest-neighbour walk over `source` positions for `target` positions.
void PickTable(int32_t* table, uint32_t source, uint32_t target) {
    uint32_t a = target, c = source / 2, index = 0, position = 0;
    while (position < target) {
        if (a <= c) {
            c -= a;
            a = target;
            if (index != source - 1) ++index;
        } else {
            table[position++] = int32_t(index);
            a -= c;
            c = source;
        }
    }
}

// The bilinear scale by two passes (scalerows.h): the horizontal sums of a source line
// are made once, kept while the next output line needs them too, and blended
// vertically; a line whose sums serve no other output line takes both passes at once.
// False, with nothing written, when the tables fall outside what the route reproduces
// exactly.
bool ScaleRoute(const scalerows::Kernels& k, const uint8_t* src, uint8_t* dst,
                const std::vector<LineWeight>& cols, const std::vector<LineWeight>& lines,
                size_t dstRow, size_t lineStep, size_t lastCol, int bpp) {
    for (const LineWeight& v : lines)
        if (v.next < 0 || v.cur < 0 || v.cur > 2048 || v.next > 2048 - v.cur) return false;
    scalerows::ColumnPlan plan;
    if (!scalerows::BuildColumnPlan(plan, cols.data(), int32_t(cols.size()), bpp, lastCol))
        return false;
    const size_t bytes = cols.size() * size_t(bpp), dstH = lines.size();
    const size_t lastLine = lines[dstH - 1].offset;
    // Two rows of sums and the source offsets they were made from.
    std::vector<uint32_t> rows[2] = {std::vector<uint32_t>(bytes), std::vector<uint32_t>(bytes)};
    size_t made[2] = {SIZE_MAX, SIZE_MAX};
    auto sums = [&](size_t offset, size_t keep) -> const uint32_t* {
        for (int i = 0; i < 2; ++i)
            if (made[i] == offset) return rows[i].data();
        const int i = made[0] == keep ? 1 : 0;
        k.horzSums(src + offset, rows[i].data(), plan);
        made[i] = offset;
        return rows[i].data();
    };
    auto cached = [&](size_t offset) -> uint32_t* {
        for (int i = 0; i < 2; ++i)
            if (made[i] == offset) return rows[i].data();
        return nullptr;
    };
    for (size_t y = 0; y < dstH; ++y) {
        const LineWeight& v = lines[y];
        uint8_t* d = dst + y * dstRow;
        const uint8_t* cur = src + v.offset;
        // A source of one line has the next weight 0 everywhere; a next weight of 0
        // needs no sums of the next line.
        const size_t below = v.offset < lastLine ? v.offset + lineStep : v.offset;
        const bool both = y > 0 && y < dstH - 1 && v.next != 0;
        const int32_t wCur = y == 0 || y == dstH - 1 ? 2048 : v.cur;
        // Sums are kept only of lines that the next output line reads too.
        const size_t after = y + 1 < dstH ? lines[y + 1].offset : SIZE_MAX;
        const uint32_t* top = cached(v.offset);
        if (!top && after == v.offset) top = sums(v.offset, SIZE_MAX);
        if (!both) {
            if (top)
                k.vertSums(top, top, d, bytes, 0, wCur);
            else
                k.line(nullptr, cur, cur, d, nullptr, plan, 0, wCur);
        } else if (const uint32_t* bottom = cached(below)) {
            if (!top) top = sums(v.offset, below);
            k.vertSums(top, bottom, d, bytes, v.next, wCur);
        } else {
            // Both passes at once; the next line's sums kept when it is read again.
            uint32_t* keep = nullptr;
            if (after == below || after == v.offset) {
                const int i = top == rows[0].data() ? 1 : 0;
                keep = rows[i].data();
                made[i] = below;
            }
            k.line(top, cur, src + below, d, keep, plan, v.next, wCur);
        }
        ZeroTail(d, bytes, dstRow);
    }
    return true;
}

} // namespace

bool BuildWeights(LineWeight* table, size_t step, uint32_t n, uint32_t m, bool fieldsOnly) {
    if (fieldsOnly) {
        step *= 2;
        n /= 2;
    }
    if (n == 0 || m == 0) return false;
    table[0] = LineWeight{0, 0, 2048};
    if (m == 1) return true;
    const uint64_t d = m - 1, q = (n - 1) / d, r = (n - 1) % d;
    uint64_t offset = 0, error = 0, fraction = 0;
    for (uint64_t i = 1; i <= d; ++i) {
        offset += q * step;
        error += r;
        fraction += r << 11;
        if (error >= d) {
            error -= d;
            offset += step;
            fraction -= 2048 * d;
        }
        const int32_t next = int32_t(fraction / d);
        table[i] = LineWeight{size_t(offset), next, 2048 - next};
    }
    return true;
}

void FillRow(uint8_t* dst, const uint8_t* pixel, int bpp, int32_t count) {
    if (count <= 0 || bpp <= 0) return;
    uint8_t block[16];
    const size_t px = size_t(bpp), blockBytes = 4 * px;
    for (int i = 0; i < 4; ++i)
        memcpy(block + i * px, pixel, px);
    int32_t left = count;
    for (; left >= 4; left -= 4, dst += blockBytes)
        memcpy(dst, block, blockBytes);
    for (; left > 0; --left, dst += px)
        memcpy(dst, pixel, px);
}

bool ScaleFast(const KXBMINFOHEADER* in, const void* inData, const KXBMINFOHEADER* out,
               void* outData, bool deinterlace, bool swap) {
    const uint32_t start = os::GetTickCount();
    const int bits = in->biBitCount;
    if ((bits != 8 && bits != 24 && bits != 32) || out->biBitCount != bits) return false;
    const int bpp = bits / 8;
    const int64_t srcW = in->biWidth, srcH = AbsHeight(in);
    const int64_t dstW = out->biWidth, dstH = AbsHeight(out);
    const size_t srcRow = RowBytes(size_t(bpp), srcW), dstRow = RowBytes(size_t(bpp), dstW);
    if (dstW <= 0 || dstH <= 0) return true;
    if (srcW <= 0 || srcH <= 0) return false;
    try {
        std::vector<int32_t> cols(static_cast<size_t>(dstW)), lines(static_cast<size_t>(dstH));
        PickTable(cols.data(), uint32_t(srcW), uint32_t(dstW));
        PickTable(lines.data(), uint32_t(srcH), uint32_t(dstH));
        for (int32_t& l : lines) {
            if (deinterlace) l = (l & ~1) + (swap ? 0 : 1);
            if (l >= srcH) return false;
        }
        const scalerows::Kernels& k = scalerows::Current();
        // The vector targets go through a plan of byte shuffles, made once.
        scalerows::PickPlan plan;
        const bool planned = &k != &scalerows::PlainKernels() &&
                             scalerows::BuildPickPlan(plan, cols.data(), int32_t(dstW), bpp);
        const uint8_t* src = static_cast<const uint8_t*>(inData);
        uint8_t* dst = static_cast<uint8_t*>(outData);
        const size_t used = size_t(dstW) * size_t(bpp);
        for (int64_t y = 0; y < dstH; ++y, dst += dstRow) {
            const uint8_t* line = src + size_t(lines[size_t(y)]) * srcRow;
            if (y > 0 && lines[size_t(y)] == lines[size_t(y - 1)])
                memcpy(dst, dst - dstRow, used); // a repeated line: the same pixels again
            else if (planned)
                k.pickPlanned(line, dst, plan);
            else
                k.pick(line, dst, cols.data(), int32_t(dstW), bpp);
            ZeroTail(dst, used, dstRow);
        }
    }
    KELP_CATCH_ALL {
        return false;
    }
    dbgPrintf(8, 14, L"ScaleFast: used %d ms\n", int(os::GetTickCount() - start));
    return true;
}

bool ScaleGood(const KXBMINFOHEADER* in, const void* inData, const KXBMINFOHEADER* out,
               void* outData, bool deinterlace, bool swap) {
    const uint32_t start = os::GetTickCount();
    const int bpp = in->biBitCount / 8;
    if ((bpp != 3 && bpp != 4) || out->biBitCount != in->biBitCount) return false;
    int64_t srcW = in->biWidth, srcH = AbsHeight(in);
    int64_t dstW = out->biWidth, dstH = AbsHeight(out);
    size_t srcRow = RowBytes(size_t(bpp), srcW), dstRow = RowBytes(size_t(bpp), dstW);
    const size_t outBytes = dstW > 0 ? dstRow * size_t(dstH) : 0;
    if (!deinterlace && in->bmiFrame == 0) {
        // Both fields side by side in one long line: they are scaled apart.
        srcRow *= 2;
        dstRow *= 2;
        srcW *= 2;
        dstW *= 2;
        srcH /= 2;
        dstH /= 2;
    }
    uint8_t* dst = static_cast<uint8_t*>(outData);
    if (dstW <= 0 || dstH <= 0) {
        if (outBytes) memset(dst, 0, outBytes);
        return true;
    }
    if (srcW <= 0 || srcH <= 0) return false;
    try {
        std::vector<LineWeight> cols(static_cast<size_t>(dstW)), lines(static_cast<size_t>(dstH));
        if (!BuildWeights(cols.data(), size_t(bpp), uint32_t(srcW), uint32_t(dstW), false) ||
            !BuildWeights(lines.data(), srcRow, uint32_t(srcH), uint32_t(dstH), deinterlace))
            return false;
        const uint8_t* src = static_cast<const uint8_t*>(inData);
        if (deinterlace && !swap) src += srcRow;
        const size_t lineStep = deinterlace ? 2 * srcRow : srcRow;
        const size_t lastLine = lines[size_t(dstH - 1)].offset;
        const size_t lastCol = size_t(srcW - 1) * size_t(bpp);
        const size_t used = size_t(dstW) * size_t(bpp);
        const scalerows::Kernels& k = scalerows::Current();
        if (&k != &scalerows::PlainKernels() &&
            ScaleRoute(k, src, dst, cols, lines, dstRow, lineStep, lastCol, bpp)) {
            const size_t written = size_t(dstH) * dstRow;
            if (outBytes > written) memset(dst + written, 0, outBytes - written);
            dbgPrintf(8, 14, L"ScaleGood: used %d ms\n", int(os::GetTickCount() - start));
            return true;
        }
        for (int64_t y = 0; y < dstH; ++y) {
            const LineWeight& v = lines[size_t(y)];
            const uint8_t* cur = src + v.offset;
            uint8_t* d = dst + size_t(y) * dstRow;
            if (y == 0 || y == dstH - 1) {
                k.horz(cur, d, cols.data(), int32_t(dstW), bpp, lastCol);
            } else {
                // A source of one line has the next weight 0 everywhere.
                const uint8_t* next = v.offset < lastLine ? cur + lineStep : cur;
                k.bilinear(cur, next, d, cols.data(), int32_t(dstW), bpp, lastCol, v.next, v.cur);
            }
            ZeroTail(d, used, dstRow);
        }
        // An odd line left over by the halved height.
        const size_t written = size_t(dstH) * dstRow;
        if (outBytes > written) memset(dst + written, 0, outBytes - written);
    }
    KELP_CATCH_ALL {
        return false;
    }
    dbgPrintf(8, 14, L"ScaleGood: used %d ms\n", int(os::GetTickCount() - start));
    return true;
}

bool Center(const KXBMINFOHEADER* in, const void* inData, KXBMINFOHEADER* out, void* outData,
            uint32_t) {
    const uint32_t start = os::GetTickCount();
    try {
        const int bpp = out->biBitCount / 8;
        if (bpp < 1 || bpp > 4 || in->biBitCount != out->biBitCount) return false;
        const int64_t inW = in->biWidth, inH = AbsHeight(in);
        const int64_t outW = out->biWidth, outH = AbsHeight(out);
        if (inW < 0 || outW < 0) return false;
        const size_t inRow = RowBytes(size_t(bpp), inW), outRow = RowBytes(size_t(bpp), outW);

        static const uint8_t kBlack[4] = {0, 0, 0, 0};
        static const uint8_t kVideoBlack[4] = {16, 128, 128, 0};
        const uint8_t* fill = out->biCompression == KXBI_RGB ? kBlack : kVideoBlack;

        const int64_t step = DIBFieldMode(in) != KXFIELD_PROGRESSIVE ? 4 : 2;
        const int64_t swap = (in->bmiFormat & KXBMIFORMAT_ODDEVEN_CHRONO) !=
                                     (out->bmiFormat & KXBMIFORMAT_ODDEVEN_CHRONO)
                                 ? 1
                                 : 0;
        const int64_t dx = outW - inW, dy = outH - inH;
        const int64_t x0 = dx / 2;
        const int64_t y0 = dy >= 0 ? (dy + step - 1) / step * step / 2 - swap
                                   : swap - (-dy + step - 1) / step * step / 2;
        const int64_t left = x0 > 0 ? x0 : 0, top = y0 > 0 ? y0 : 0;
        const int64_t right = x0 + inW < outW ? x0 + inW : outW;
        const int64_t bottom = y0 + inH < outH ? y0 + inH : outH;
        int64_t copyLines = bottom - top < inH ? bottom - top : inH;
        int64_t copyPixels = right - left < inW ? right - left : inW;
        if (copyLines < 0) copyLines = 0;
        if (copyPixels < 0) copyPixels = 0;

        out->bmiRect.left = int32_t(left);
        out->bmiRect.top = int32_t(top);
        out->bmiRect.right = int32_t(right);
        out->bmiRect.bottom = int32_t(bottom);

        const uint8_t* src = static_cast<const uint8_t*>(inData);
        if (y0 + inH - bottom > 0) src += size_t(y0 + inH - bottom) * inRow;
        if (x0 < left) src += size_t(left - x0) * size_t(bpp);

        // From the first row in memory, which is the picture's bottom in a bottom-up
        // image: the rows below the picture, the picture, the rows above it.
        uint8_t* dst = static_cast<uint8_t*>(outData);
        int64_t below = outH - bottom;
        if (below < 0) below = 0;
        if (below > outH) below = outH;
        if (copyLines > outH - below) copyLines = outH - below;
        const int64_t above = outH - below - copyLines;
        const size_t px = size_t(bpp), used = size_t(outW) * px;
        auto fillRows = [&](int64_t rows) {
            for (int64_t y = 0; y < rows; ++y, dst += outRow) {
                FillRow(dst, fill, bpp, int32_t(outW));
                ZeroTail(dst, used, outRow);
            }
        };
        fillRows(below);
        const int64_t rightFill = outW - left - copyPixels;
        for (int64_t y = 0; y < copyLines; ++y, dst += outRow, src += inRow) {
            FillRow(dst, fill, bpp, int32_t(left));
            memcpy(dst + size_t(left) * px, src, size_t(copyPixels) * px);
            FillRow(dst + size_t(left + copyPixels) * px, fill, bpp, int32_t(rightFill));
            ZeroTail(dst, used, outRow);
        }
        out->bmiAlpha = in->bmiAlpha;
        fillRows(above);
    }
    KELP_CATCH_ALL {
        dbgPrintf(8, 2, L"CRGBScale::Center(): catch(...)\n");
        return false;
    }
    dbgPrintf(8, 14, L"Center: used %d ms\n", int(os::GetTickCount() - start));
    return true;
}

} // namespace kelp
