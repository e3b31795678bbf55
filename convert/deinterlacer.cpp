// The deinterlacers and their vertical filter.
#include "deinterlacer.h"

#include <kelp/alloc.h>
#include <kelp/kxconv.h>
#include <kelp/trace.h>

#include <cstring>
#include <vector>

#include "catchall.h"
#include "runtime/kelpos.h"
#include "scalers.h"
#include "scalestage.h"

namespace kelp {

bool DeinterlaceLines(const KXBMINFOHEADER* in, const void* inData, const KXBMINFOHEADER* out,
                      void* outData, bool deinterlace, bool swap) {
    const int bpp = in->biBitCount / 8;
    if ((bpp != 3 && bpp != 4) || out->biBitCount != in->biBitCount) return false;
    const int64_t srcW = in->biWidth, dstW = out->biWidth;
    const int64_t srcH = in->biHeight < 0 ? -int64_t(in->biHeight) : in->biHeight;
    const int64_t dstH = out->biHeight < 0 ? -int64_t(out->biHeight) : out->biHeight;
    if (dstW <= 0 || dstH <= 0) return true;
    if (srcW <= 0 || srcH <= 0) return false;
    const size_t srcRow = (size_t(bpp) * size_t(srcW) + 3) & ~size_t(3);
    const size_t dstRow = (size_t(bpp) * size_t(dstW) + 3) & ~size_t(3);
    // A line of the narrower of the two: the pixels of a line are taken as they stand.
    const size_t bytes = size_t(bpp) * size_t(srcW < dstW ? srcW : dstW);
    try {
        std::vector<LineWeight> lines(static_cast<size_t>(dstH));
        if (!BuildWeights(lines.data(), srcRow, uint32_t(srcH), uint32_t(dstH), deinterlace))
            return false;
        // Without swap the field at odd row numbers is kept, with it the one at even ones.
        const uint8_t* src = static_cast<const uint8_t*>(inData);
        if (deinterlace && !swap) src += srcRow;
        const size_t lineStep = deinterlace ? 2 * srcRow : srcRow;
        const size_t lastLine = lines[size_t(dstH - 1)].offset;
        const scalerows::Kernels& k = scalerows::Current();
        uint8_t* dst = static_cast<uint8_t*>(outData);
        for (int64_t y = 0; y < dstH; ++y, dst += dstRow) {
            const LineWeight& v = lines[size_t(y)];
            const uint8_t* cur = src + v.offset;
            if (y == 0 || y == dstH - 1) {
                memcpy(dst, cur, bytes);
            } else {
                // A field of one line has the next weight 0 everywhere.
                const uint8_t* next = v.offset < lastLine ? cur + lineStep : cur;
                k.blend(cur, next, dst, bytes, v.next, v.cur);
            }
            if (dstRow > bytes) memset(dst + bytes, 0, dstRow - bytes);
        }
    }
    KELP_CATCH_ALL {
        return false;
    }
    return true;
}

KXRESULT CRGBDeinterlacer::GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                           IAllocator* allocator, const KXBMINFOHEADER* target) {
    if (!in || !out || !allocator || !target) return KXE_INVALID;
    if ((in->bmiFrame == 1) == (target->bmiFrame == 1)) return KXE_INVALID;
    KXBMINFOHEADER* f = geomstage::CopyRecord(in, allocator);
    if (!f) return in->biSize < KXBMI_SIZE ? KXE_INVALID : KXE_OUTOFMEMORY;
    f->bmiFormat &= ~KXBMIFORMAT_ODDEVEN_CHRONO;
    f->bmiFrame = 1;
    f->biBitCount = Bits();
    *out = f;
    return KX_OK;
}

KXRESULT CRGBDeinterlacer::QueryInput(KXBMINFOHEADER* desc) {
    return ValidateBIH(desc);
}

KXRESULT CRGBDeinterlacer::QueryOutput(KXBMINFOHEADER* desc) {
    return ValidateBIH(desc);
}

KXRESULT CRGBDeinterlacer::Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                                 int32_t* quality) {
    KXRESULT r = QueryFormats(in, out);
    if (KX_FAILED(r)) return r;
    if (in->bmiFrame == 1) {
        dbgPrintf(8, 31, L"CRGBDeinterlacer::Query: input is non interlaced\r\n");
        return KXE_INVALID;
    }
    if (out->bmiFrame != 1) {
        dbgPrintf(8, 31, L"CRGBDeinterlacer::Query: output is interlaced\r\n");
        return KXE_INVALID;
    }
    const uint32_t f = flags ? *flags : 0;
    if (!SameAlpha(in, out, f) || !SameBitCount(in, out, f) || !SameFlags(in, out, f) ||
        !SameColorSpace(in, out, f) || !SameGeometry(in, out, f) || !SameRect(in, out, f))
        return KXE_INVALID;
    if (flags) *flags &= ~KXCONV_OUT_SHARED;
    out->biSizeImage = StageSizeImage(out);
    if (quality) *quality += 5;
    dbgPrintf(8, 31, L"CRGBDeinterlacerQuery: SUCESS\r\n");
    return KX_OK;
}

KXRESULT CRGBDeinterlacer::Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out,
                                   void** outData, uint32_t* flags, int32_t* quality,
                                   IAllocator* allocator) {
    const uint32_t start = os::GetTickCount();
    KXRESULT r = Query(in, out, flags, quality);
    if (KX_FAILED(r)) return r;
    const uint32_t f = flags ? *flags : 0;
    if (!geomstage::BuffersHold(L"CRGBDeinterlacer", in, out)) return KXE_INVALID;
    const int inMode = DIBFieldMode(in);
    const bool deinterlace = inMode != KXFIELD_PROGRESSIVE && out->bmiFrame == 1;
    const bool swap = (inMode == KXFIELD_CHRONO) != ((f & KXCONV_SWAP_FIELDS) != 0);

    void* buffer = allocator ? allocator->Allocate(out->biSizeImage, 0) : nullptr;
    if (!buffer) {
        dbgPrintf(8, 2, L"CRGBDeinterlacer::Convert: Allocation of %d bytes Failed!\r\n",
                  int32_t(out->biSizeImage));
        return KXE_OUTOFMEMORY;
    }
    *outData = buffer;

    if (in->biBitCount == 32) {
        // The transform's nearest mode; its true or false is the status.
        const bool ok = ScaleFx2D(in, inData, out, buffer, deinterlace, swap, false, false);
        dbgPrintf(8, 14, L"CRGBDeinterlacerFx2D: used %d ms\n", int(os::GetTickCount() - start));
        return ok ? 1 : 0;
    }
    dbgPrintf(8, 31, L"CRGBDeinterlacer::%dx%d/%d -> %dx%d!\n\r", in->biWidth, in->biHeight,
              (f & KXCONV_SWAP_FIELDS) ? 2 : 1, out->biWidth, out->biHeight);
    if (!DeinterlaceLines(in, inData, out, buffer, deinterlace, swap)) {
        dbgPrintf(8, 2, L"CRGBDeinterlacer::ScaleGood failed to convert image!\n\r");
        return KXE_INVALID;
    }
    dbgPrintf(8, 14, L"CRGBDeinterlacer: used %d ms\n", int(os::GetTickCount() - start));
    return KX_OK;
}

KXRESULT CRGBDeinterlacer32::QueryInput(KXBMINFOHEADER* desc) {
    KXRESULT r = CRGBDeinterlacer::QueryInput(desc);
    if (KX_FAILED(r)) return r;
    return desc->biBitCount == 32 ? KX_OK : KXE_INVALID;
}

KXRESULT CRGBDeinterlacer32::QueryOutput(KXBMINFOHEADER* desc) {
    KXRESULT r = CRGBDeinterlacer::QueryOutput(desc);
    if (KX_FAILED(r)) return r;
    return desc->biBitCount == 32 ? KX_OK : KXE_INVALID;
}

KXRESULT CRGBDeinterlacer24::QueryInput(KXBMINFOHEADER* desc) {
    KXRESULT r = CRGBDeinterlacer::QueryInput(desc);
    if (KX_FAILED(r)) return r;
    return desc->biBitCount == 24 ? KX_OK : KXE_INVALID;
}

KXRESULT CRGBDeinterlacer24::QueryOutput(KXBMINFOHEADER* desc) {
    KXRESULT r = CRGBDeinterlacer::QueryOutput(desc);
    if (KX_FAILED(r)) return r;
    return desc->biBitCount == 24 ? KX_OK : KXE_INVALID;
}

} // namespace kelp
