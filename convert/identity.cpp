// What the manager decides before and after any stage runs: which wishes of the caller
// cannot be had and are coerced, whether anything is left to do, and how the output
// record is tidied at the end. Every decision is traced at (8, 30).
#include <kelp/trace.h>

#include "request.h"

namespace kelp {

namespace {

// Alpha that needs no work for a 32-bit input: equal, or merely relabelled (valid read
// as opaque, opaque read as premultiplied).
bool AlphaNeedsNoWork(uint32_t from, uint32_t to) {
    return from == to || (from == KXDIB_ALPHA_VALID && to == KXDIB_ALPHA_OPAQUE) ||
           (from == KXDIB_ALPHA_OPAQUE && to == KXDIB_ALPHA_PREMULTIPLIED);
}

bool SameYuvLayout(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b) {
    const KXYUVEXT* ya = DIBYuv(a);
    const KXYUVEXT* yb = DIBYuv(b);
    uint32_t bitsA = ya->yuvBits == 0 ? 8 : ya->yuvBits;
    uint32_t bitsB = yb->yuvBits == 0 ? 8 : yb->yuvBits;
    return ya->yuvColorSpace == yb->yuvColorSpace && bitsA == bitsB &&
           ya->yuvSampling == yb->yuvSampling && ya->yuvSamplingAux == yb->yuvSamplingAux;
}

void CoerceAlpha(const KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t flags) {
    const bool validInput = in->biBitCount == 32 && in->bmiAlpha == KXDIB_ALPHA_VALID;
    const bool output32 = out->biBitCount == 32;
    if (validInput && (flags & KXCONV_PREMULTIPLY)) {
        if (out->bmiAlpha != KXDIB_ALPHA_PREMULTIPLIED) {
            dbgPrintf(8, 30,
                      L"!!!CConversionManager::Output forced to KXDIB_ALPHA_PREMULTIPLIED!!!\r\n");
            out->bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
        }
    } else if (validInput && !output32) {
        dbgPrintf(8, 30,
                  L"!!!CConversionManager::Output forced to equal ALPHA %d (output is 24 "
                  L"bit)!!!\r\n",
                  int(in->bmiAlpha));
        out->bmiAlpha = in->bmiAlpha;
    } else if (validInput) {
        if (out->bmiAlpha == KXDIB_ALPHA_OPAQUE) {
            dbgPrintf(8, 30,
                      L"!!!CConversionManager::Output forced to equal ALPHA %d (input is "
                      L"valid)!!!\r\n",
                      int(in->bmiAlpha));
            out->bmiAlpha = in->bmiAlpha;
        }
    } else if (in->biBitCount == 32 && in->bmiAlpha == KXDIB_ALPHA_OPAQUE && output32) {
        // The output keeps the alpha it asked for: the alpha stage will fill the bytes.
        dbgPrintf(8, 30, L"!!!CConversionManager::Fill invalid alpha!!!\r\n");
    } else if (in->biBitCount == 32 && in->bmiAlpha == KXDIB_ALPHA_PREMULTIPLIED && output32 &&
               (out->bmiAlpha == KXDIB_ALPHA_VALID || out->bmiAlpha == KXDIB_ALPHA_OPAQUE)) {
        // Premultiplied to straight or opaque: the output keeps the alpha it asked for,
        // so that the alpha stage undoes the premultiplication. Nothing is coerced.
    } else {
        dbgPrintf(8, 30,
                  L"!!!CConversionManager::Output forced to equal ALPHA %d (input has no "
                  L"alpha)!!!\r\n",
                  int(in->bmiAlpha));
        out->bmiAlpha = in->bmiAlpha;
    }
}

} // namespace

bool CheckIdentity(ConversionRequest& request) {
    const KXBMINFOHEADER* in = request.in;
    KXBMINFOHEADER* out = request.out;
    uint32_t& flags = *request.flags;

    out->bmiFlags = in->bmiFlags;
    flags &= 0xFFFFu;

    const int inMode = DIBFieldMode(in);
    if (inMode != DIBFieldMode(out) && !(flags & KXCONV_ALLOW_FIELDS)) {
        dbgPrintf(8, 30, L"!!!CConversionManager::Output forced to interlaced %d!!!\r\n", inMode);
        DIBSetFieldMode(out, inMode);
    }
    if (out->bmiFrame == 1) out->bmiFormat = in->bmiFormat;
    if (out->bmiAlpha == KXDIB_ALPHA_PREMULTIPLIED) flags |= KXCONV_PREMULTIPLY;
    CoerceAlpha(in, out, flags);

    bool same = in->biPlanes == out->biPlanes && SameColorSpace(in, out, flags) &&
                SameBitCount(in, out, flags) && SameGeometry(in, out, flags) &&
                SameFlags(in, out, flags) && in->bmiFrame == out->bmiFrame &&
                in->bmiFormat == out->bmiFormat && SameRect(in, out, flags);
    if (same && in->biBitCount == 32) same = AlphaNeedsNoWork(in->bmiAlpha, out->bmiAlpha);
    if (same && in->biCompression == KXBI_YUV && out->biCompression == KXBI_YUV)
        same = SameYuvLayout(in, out);
    if (!same) return false;

    *request.quality = 0;
    flags |= KXCONV_OUT_SHARED | KXCONV_OUT_IDENTITY;
    return true;
}

void NormalizeOutput(ConversionRequest& request) {
    const KXBMINFOHEADER* in = request.in;
    KXBMINFOHEADER* out = request.out;

    if (out->bmiFrame == 1 && (out->bmiFormat & KXBMIFORMAT_ODDEVEN_CHRONO)) {
        dbgPrintf(8, 30,
                  L"!!!CConversionManager::Output remove obsolete KXBMIFORMAT_ODDEVEN_CHRONO "
                  L"from noninterlaced!!!\r\n");
        out->bmiFormat &= ~KXBMIFORMAT_ODDEVEN_CHRONO;
    }
    if (in->biBitCount == 24 && out->bmiAlpha != KXDIB_ALPHA_VALID) {
        dbgPrintf(8, 30,
                  L"!!!CConversionManager::Output removed alpha because of 24bit input!!!\r\n");
        out->bmiAlpha = KXDIB_ALPHA_OPAQUE;
    }
    if (out->biBitCount == 24 && out->bmiAlpha != KXDIB_ALPHA_VALID) {
        dbgPrintf(8, 30, L"!!!CConversionManager::Output removed alpha from 24bit output!!!\r\n");
        out->bmiAlpha = KXDIB_ALPHA_VALID;
    }
    if (*request.flags & KXCONV_KEEP_RECT) return;
    // The bottom is compared with the input's top on purpose: in effect the rectangle
    // survives only when both are empty or degenerate.
    const KXRECT& a = in->bmiRect;
    const KXRECT& b = out->bmiRect;
    if (b.left == a.left && b.right == a.right && b.top == a.top && b.bottom == a.top) return;
    dbgPrintf(8, 30, L"!!!CConversionManager::Performed Cropping -> Clear output rectangle!!!\r\n");
    out->bmiRect = KXRECT{0, 0, 0, 0};
}

} // namespace kelp
