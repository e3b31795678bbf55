// The scalers: their tests, proposals and the choice of scaler in Convert.
//
// The flags that fit a picture to the output are traced with crossed words, and stay
// so: the one traced FAST takes the better scaler, the one traced GOOD the
// nearest-neighbour one.
#include "scale.h"

#include <kelp/alloc.h>
#include <kelp/kxconv.h>
#include <kelp/trace.h>

#include <cstring>

#include "catchall.h"
#include "runtime/kelpos.h"
#include "scalers.h"
#include "scalestage.h"

namespace kelp {

namespace {

constexpr uint32_t kFitTo = KXCONV_KEEP_ASPECT | KXCONV_FIT_WIDTH | KXCONV_FIT_HEIGHT;

int64_t Abs64(int64_t v) {
    return v < 0 ? -v : v;
}

// The intermediate size of a 24-bit picture on its way to `out`: its own size in the
// output's pixel ratio, then fitted to the output as the flags ask.
void IntermediateSize(const KXBMINFOHEADER* in, const KXBMINFOHEADER* out, uint32_t flags, bool fit,
                      int64_t* w, int64_t* h) {
    const int64_t rxIn = DIBRatioX(in), ryIn = DIBRatioY(in);
    const int64_t rxOut = DIBRatioX(out), ryOut = DIBRatioY(out);
    int64_t wi = (int64_t(in->biWidth) * rxIn + (rxOut >> 1)) / rxOut;
    int64_t hi = (Abs64(in->biHeight) * ryIn + (ryOut >> 1)) / ryOut;
    if (fit) {
        const int64_t outW = out->biWidth, outH = Abs64(out->biHeight);
        if (flags & KXCONV_FIT_HEIGHT) {
            if ((flags & KXCONV_KEEP_ASPECT) && hi) wi = outH * wi / hi;
            hi = outH;
        } else if (flags & KXCONV_FIT_WIDTH) {
            if ((flags & KXCONV_KEEP_ASPECT) && wi) hi = outW * hi / wi;
            wi = outW;
        } else if (hi && wi) {
            const double e = double(int64_t(double(outH) / double(hi) * double(wi)));
            const bool test = (flags & KXCONV_FIT_COVER) ? e > double(outW) : e <= double(outW);
            if (test) {
                wi = outH * wi / hi;
                if (wi > outW) wi = outW;
                hi = outH;
            } else {
                hi = outW * hi / wi;
                if (hi > outH) hi = outH;
                wi = outW;
            }
        }
    }
    *w = wi ? wi : 1;
    *h = hi ? hi : 1;
}

bool CenterTraced(const KXBMINFOHEADER* in, const void* inData, KXBMINFOHEADER* out,
                  void* outData) {
    dbgPrintf(8, 31, L"CRGBScale::Center %dx%d -> %dx%d!\n\r", in->biWidth, in->biHeight,
              out->biWidth, out->biHeight);
    return Center(in, inData, out, outData, 0);
}

KXRESULT CenterFailed() {
    dbgPrintf(8, 2, L"CRGBScale::Center failed to convert image!\n\r");
    return KXE_INVALID;
}

} // namespace

KXRESULT CRGBScale::GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                    IAllocator* allocator, const KXBMINFOHEADER* target) {
    if (!in || !out || !allocator || !target) return KXE_INVALID;
    if (in->bmiRatioX == target->bmiRatioX && in->bmiRatioY == target->bmiRatioY &&
        in->biWidth == target->biWidth && in->biHeight == target->biHeight)
        return KXE_INVALID;
    KXBMINFOHEADER* f = geomstage::CopyRecord(in, allocator);
    if (!f) return in->biSize < KXBMI_SIZE ? KXE_INVALID : KXE_OUTOFMEMORY;
    f->bmiRatioX = target->bmiRatioX;
    f->bmiRatioY = target->bmiRatioY;
    f->biWidth = target->biWidth;
    const int32_t h = target->biHeight < 0 ? -target->biHeight : target->biHeight;
    f->biHeight = in->biHeight < 0 ? -h : h;
    DIBSetFieldMode(f, DIBFieldMode(target));
    // The size before the depth: a proposal of "Scale24" keeps a size of the input's depth.
    f->biSizeImage = StageSizeImage(f);
    f->biBitCount = Bits();
    *out = f;
    return KX_OK;
}

KXRESULT CRGBScale::QueryInput(KXBMINFOHEADER* desc) {
    return ValidateBIH(desc);
}

KXRESULT CRGBScale::QueryOutput(KXBMINFOHEADER* desc) {
    return ValidateBIH(desc);
}

KXRESULT CRGBScale::Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                          int32_t* quality) {
    KXRESULT r = QueryFormats(in, out);
    if (KX_FAILED(r)) return r;
    const uint32_t f = flags ? *flags : 0;
    if (!SameAlpha(in, out, f) || !SameBitCount(in, out, f) || !SameFlags(in, out, f) ||
        !SameColorSpace(in, out, f) || !SameRect(in, out, f))
        return KXE_INVALID;
    // The same geometry passes only as a change of field mode that the caller allows.
    if (SameGeometry(in, out, f) &&
        (!(f & KXCONV_ALLOW_FIELDS) || DIBFieldMode(in) == DIBFieldMode(out)))
        return KXE_INVALID;
    if (flags) *flags &= ~KXCONV_OUT_SHARED;
    out->biSizeImage = StageSizeImage(out);
    if (quality) *quality += geomstage::ScaleCost(in, out);
    dbgPrintf(8, 31, L"CRGBScale::Query: SUCESS\r\n");
    return KX_OK;
}

KXRESULT CRGBScale::Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                            uint32_t* flags, int32_t* quality, IAllocator* allocator) {
    KXRESULT r = Query(in, out, flags, quality);
    if (KX_FAILED(r)) return r;
    uint32_t localFlags = 0;
    if (!flags) flags = &localFlags;
    if (!geomstage::BuffersHold(L"CRGBScale", in, out)) return KXE_INVALID;

    const int inMode = DIBFieldMode(in);
    const bool deinterlace = inMode != KXFIELD_PROGRESSIVE && out->bmiFrame == 1;
    const bool fit = (*flags & (KXCONV_FIT_GOOD | KXCONV_FIT_FAST)) != 0;
    const bool swap = (inMode == KXFIELD_CHRONO) != ((*flags & KXCONV_SWAP_FIELDS) != 0);

    void* buffer = allocator ? allocator->Allocate(out->biSizeImage, 0) : nullptr;
    if (!buffer) {
        dbgPrintf(8, 2, L"CRGBScale::Convert: Allocation of %d bytes Failed!\r\n",
                  int32_t(out->biSizeImage));
        return KXE_OUTOFMEMORY;
    }
    *outData = buffer;

    // A change of field mode alone: the picture keeps its size, and a 24-bit one loses
    // its 2 first lines in memory on the way.
    KXBMINFOHEADERYUV work;
    const KXBMINFOHEADER* win = in;
    if (SameGeometry(in, out, *flags) && (*flags & KXCONV_ALLOW_FIELDS)) {
        const size_t n = in->biSize < sizeof work ? in->biSize : sizeof work;
        memset(&work, 0, sizeof work);
        memcpy(&work, in, n);
        work.bmi.bmiRatioX = out->bmiRatioX;
        work.bmi.bmiRatioY = out->bmiRatioY;
        if (work.bmi.biBitCount != 32) {
            const int32_t h = work.bmi.biHeight;
            work.bmi.biHeight = h < 0 ? (h <= -2 ? h + 2 : 0) : (h >= 2 ? h - 2 : 0);
        }
        *flags &= ~(KXCONV_FIT_GOOD | KXCONV_FIT_FAST);
        win = &work.bmi;
    }

    if ((*flags & KXCONV_FIT_FAST) && !(*flags & kFitTo)) {
        dbgPrintf(8, 31, L"CRGBScale::Scale To Fit FAST %dx%d -> %dx%d!\n\r", win->biWidth,
                  win->biHeight, out->biWidth, out->biHeight);
        if (!ScaleFx2D(win, inData, out, buffer, deinterlace, swap, true,
                       (*flags & KXCONV_FILTER_B) != 0)) {
            dbgPrintf(8, 2, L"CRGBScale::ScaleGood failed to convert image!\n\r");
            return KXE_INVALID;
        }
        return KX_OK;
    }
    if ((*flags & KXCONV_FIT_GOOD) && !(*flags & kFitTo)) {
        dbgPrintf(8, 31, L"CRGBScale::Scale To Fit GOOD %dx%d -> %dx%d!\n\r", win->biWidth,
                  win->biHeight, out->biWidth, out->biHeight);
        if (!ScaleFx2D(win, inData, out, buffer, deinterlace, swap, false, false)) {
            dbgPrintf(8, 2, L"CRGBScale::ScaleFast failed to convert image!\n\r");
            return KXE_INVALID;
        }
        return KX_OK;
    }

    // 32 bits: the transform places and scales; its 1 for success (and 0 for a failed
    // transform) both count as success with the manager.
    if (win->biBitCount == 32) return CenterFx2D(win, inData, out, buffer, *flags);

    // 24 bits.
    if (DIBRatioX(win) == DIBRatioX(out) && DIBRatioY(win) == DIBRatioY(out) && !deinterlace &&
        !fit) {
        if (!CenterTraced(win, inData, out, buffer)) return CenterFailed();
        return KX_OK;
    }

    int64_t w = 0, h = 0;
    IntermediateSize(win, out, *flags, fit, &w, &h);
    KXBMINFOHEADERYUV mid;
    {
        const size_t n = win->biSize < sizeof mid ? win->biSize : sizeof mid;
        memset(&mid, 0, sizeof mid);
        memcpy(&mid, win, n);
    }
    if (w > 0x7FFFFFFF || h > 0x7FFFFFFF) return KXE_INVALID;
    mid.bmi.biWidth = int32_t(w);
    mid.bmi.biHeight = win->biHeight < 0 ? -int32_t(h) : int32_t(h);
    mid.bmi.biSizeImage = StageSizeImage(&mid.bmi);

    if (mid.bmi.biWidth == win->biWidth && mid.bmi.biHeight == win->biHeight) {
        if (!CenterTraced(&mid.bmi, inData, out, buffer)) return CenterFailed();
        return KX_OK;
    }

    const uint64_t midBytes = GeometryBytes(&mid.bmi);
    if (midBytes > 0xFFFFFFFFu) return KXE_INVALID;
    CVirtAllocator local;
    void* midData = nullptr;
    try {
        midData = local.Allocate(uint32_t(midBytes ? midBytes : 4), 0);
    }
    KELP_CATCH_ALL {
        midData = nullptr;
    }
    if (!midData) {
        dbgPrintf(8, 2, L"CRGBScale::Convert: Allocation of %d bytes Failed!\r\n",
                  int32_t(midBytes));
        return KXE_OUTOFMEMORY;
    }
    dbgPrintf(8, 31, L"CRGBScale::Adjust Pixel Ratio %dx%d -> %dx%d!\n\r", win->biWidth,
              win->biHeight, mid.bmi.biWidth, mid.bmi.biHeight);
    if (*flags & KXCONV_RATIO_FAST) {
        if (!ScaleFast(win, inData, &mid.bmi, midData, deinterlace, swap)) {
            dbgPrintf(8, 2, L"CRGBScale::ScaleFast failed to convert image!\n\r");
            local.Free(midData);
            return KXE_INVALID;
        }
    } else if (!ScaleGood(win, inData, &mid.bmi, midData, deinterlace, swap)) {
        dbgPrintf(8, 2, L"CRGBScale::ScaleGood failed to convert image!\n\r");
        local.Free(midData);
        return KXE_INVALID;
    }
    const bool centred = CenterTraced(&mid.bmi, midData, out, buffer);
    local.Free(midData);
    return centred ? KX_OK : CenterFailed();
}

// ---------------------------------------------------------------- 32 bits

KXRESULT CRGBScale32::GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                      IAllocator* allocator, const KXBMINFOHEADER* target) {
    return CRGBScale::GetOutputFormat(in, out, allocator, target);
}

KXRESULT CRGBScale32::QueryInput(KXBMINFOHEADER* desc) {
    KXRESULT r = CRGBScale::QueryInput(desc);
    if (KX_FAILED(r)) return r;
    return desc->biBitCount == 32 ? KX_OK : KXE_INVALID;
}

KXRESULT CRGBScale32::QueryOutput(KXBMINFOHEADER* desc) {
    KXRESULT r = CRGBScale::QueryOutput(desc);
    if (KX_FAILED(r)) return r;
    return desc->biBitCount == 32 ? KX_OK : KXE_INVALID;
}

// ---------------------------------------------------------------- 24 bits

KXRESULT CRGBScale24::GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                      IAllocator* allocator, const KXBMINFOHEADER* target) {
    return CRGBScale::GetOutputFormat(in, out, allocator, target);
}

KXRESULT CRGBScale24::QueryInput(KXBMINFOHEADER* desc) {
    KXRESULT r = CRGBScale::QueryInput(desc);
    if (KX_FAILED(r)) return r;
    return desc->biBitCount == 24 ? KX_OK : KXE_INVALID;
}

KXRESULT CRGBScale24::QueryOutput(KXBMINFOHEADER* desc) {
    KXRESULT r = CRGBScale::QueryOutput(desc);
    if (KX_FAILED(r)) return r;
    return desc->biBitCount == 24 ? KX_OK : KXE_INVALID;
}

KXRESULT CRGBScale24::Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                            int32_t* quality) {
    KXRESULT r = CRGBScale::Query(in, out, flags, quality);
    if (KX_SUCCEEDED(r) && quality) *quality *= 5;
    return r;
}

} // namespace kelp
