// The 32-bit scalers: stretch and placement through the 2-D transform.
//
// The transform reads bmiRatioX as a 32-bit float and compares the two records' words,
// so both private copies carry the input's ratio as a float (bmiRatioY holding -1.0):
// the transform applies no ratio of its own, the scales below hold it.
#include <kelp/kxconv.h>
#include <kelp/stdfx2d.h>
#include <kelp/trace.h>

#include <cmath>
#include <cstring>

#include "catchall.h"
#include "runtime/kelpos.h"
#include "scalers.h"

namespace kelp {

namespace {

uint32_t FloatBits(float f) {
    uint32_t u;
    memcpy(&u, &f, sizeof u);
    return u;
}

double AbsHeight(const KXBMINFOHEADER* d) {
    return d->biHeight < 0 ? -double(d->biHeight) : double(d->biHeight);
}

// A private copy of a record as the transform is to read it.
void PrivateCopy(const KXBMINFOHEADER* src, const KXBMINFOHEADER* in, KXBMINFOHEADERYUV* copy) {
    memset(copy, 0, sizeof *copy);
    const size_t n = src->biSize < sizeof *copy ? src->biSize : sizeof *copy;
    memcpy(copy, src, n);
    KXBMINFOHEADER& b = copy->bmi;
    b.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
    b.bmiReserved4 = 0; // the last 12 reserved bytes before the extension...
    b.bmiStride = 0;
    b.bmiAlphaOffset = 0; // ...are cleared
    b.bmiAlphaStride = 0;
    b.bmiRatioX = FloatBits(float(double(DIBRatioX(in)) / double(DIBRatioY(in))));
    b.bmiRatioY = FloatBits(-1.0f);
}

// The whole frame, or both fields of an interlaced target one after the other; the
// second field's result counts.
int Render(KXBMINFOHEADERYUV* target, void* targetBits, KXBMINFOHEADERYUV* source,
           const void* sourceBits, const stdfx2d::FX2DPARAM& param, int mode) {
    void* bits = const_cast<void*>(sourceBits);
    if (DIBFieldMode(&target->bmi) != KXFIELD_PROGRESSIVE) {
        stdfx2d::Fx2d(&target->bmi, targetBits, &source->bmi, bits, param, 0, mode);
        return stdfx2d::Fx2d(&target->bmi, targetBits, &source->bmi, bits, param, 1, mode);
    }
    return stdfx2d::Fx2d(&target->bmi, targetBits, &source->bmi, bits, param, -1, mode);
}

// A scale made even: the scaled size rounded to an even number of pixels.
double Even(double size, double scale) {
    return 2.0 * std::floor((size * scale + 1.0) / 2.0) / size;
}

} // namespace

bool ScaleFx2D(const KXBMINFOHEADER* in, const void* inData, const KXBMINFOHEADER* out,
               void* outData, bool deinterlace, bool swap, bool good, bool filterB) {
    if (in->biBitCount != 32)
        return good ? ScaleGood(in, inData, out, outData, deinterlace, swap)
                    : ScaleFast(in, inData, out, outData, deinterlace, swap);
    const uint32_t start = os::GetTickCount();
    int result = -1;
    try {
        const double inW = in->biWidth, inH = AbsHeight(in);
        if (inW <= 0 || inH <= 0) return false;
        stdfx2d::FX2DPARAM param;
        memset(&param, 0, sizeof param);
        param.size = 48;
        param.scaleX = Even(inW, double(out->biWidth) / inW);
        param.scaleY = Even(inH, AbsHeight(out) / inH);
        const int mode = !good ? 0 : filterB ? 2 : 1;
        KXBMINFOHEADERYUV source, target;
        PrivateCopy(in, in, &source);
        PrivateCopy(out, in, &target);
        if (deinterlace) {
            target.bmi.bmiFrame = 1;
            target.bmi.bmiFormat &= ~KXBMIFORMAT_ODDEVEN_CHRONO;
        } else {
            target.bmi.bmiFrame = 0;
        }
        result = Render(&target, outData, &source, inData, param, mode);
    }
    KELP_CATCH_ALL {
        result = -1;
    }
    dbgPrintf(8, 14, L"ScaleFx2D: used %d ms\n", int(os::GetTickCount() - start));
    return result == 0;
}

bool CenterFx2DPlan(const KXBMINFOHEADER* in, const KXBMINFOHEADER* out, uint32_t flags,
                    CenterPlan* plan) {
    const double inW = in->biWidth, inH = AbsHeight(in);
    const double outW = out->biWidth, outH = AbsHeight(out);
    if (inW <= 0 || inH <= 0) return false;
    const double sw = outW / inW, sh = outH / inH;
    const double R = (double(DIBRatioX(in)) / double(DIBRatioY(in))) /
                     (double(DIBRatioX(out)) / double(DIBRatioY(out)));
    const bool good = flags & KXCONV_FIT_GOOD, fast = flags & KXCONV_FIT_FAST;
    const bool toWidth = flags & KXCONV_FIT_WIDTH, toHeight = flags & KXCONV_FIT_HEIGHT;
    const bool aspect = flags & KXCONV_KEEP_ASPECT;
    double xs, ys;
    bool even = true;
    if ((!good && !fast) || (fast && !good && (toWidth || toHeight))) {
        if (toWidth) {
            xs = sw;
            ys = aspect ? sw / R : 1.0;
        } else if (!toHeight) {
            xs = R;
            ys = 1.0;
            even = false;
        } else {
            xs = aspect ? R * sh : R;
            ys = sh;
        }
    } else if (aspect) {
        const double q = sw / R;
        const bool byHeight = (flags & KXCONV_FIT_COVER) ? q <= sh : q >= sh;
        if (byHeight) {
            xs = R * sh;
            ys = sh;
        } else {
            xs = sw;
            ys = q;
        }
    } else {
        xs = sw;
        ys = sh;
    }
    if (even) {
        xs = Even(inW, xs);
        ys = Even(inH, ys);
    }
    plan->scaleX = xs;
    plan->scaleY = ys;
    // Half a line keeps a picture of the other line parity on the line grid.
    const int64_t lines = int64_t(inH * ys + 0.5) - int64_t(outH);
    plan->offsetY = lines % 2 != 0 && outH > 0 ? -0.5 / outH : 0.0;
    plan->mode = (flags & (KXCONV_RATIO_FAST | KXCONV_FIT_GOOD)) ? 0
                 : (flags & KXCONV_FILTER_B)                     ? 2
                                                                 : 1;
    return true;
}

int CenterFx2D(const KXBMINFOHEADER* in, const void* inData, const KXBMINFOHEADER* out,
               void* outData, uint32_t flags) {
    if (in->biBitCount != 32) return 0;
    const uint32_t start = os::GetTickCount();
    int result = -1;
    try {
        CenterPlan plan;
        if (!CenterFx2DPlan(in, out, flags, &plan)) return 0;
        stdfx2d::FX2DPARAM param;
        memset(&param, 0, sizeof param);
        param.size = 48;
        param.scaleX = plan.scaleX;
        param.scaleY = plan.scaleY;
        param.offsetY = plan.offsetY;
        const int mode = plan.mode;
        KXBMINFOHEADERYUV source, target;
        PrivateCopy(in, in, &source);
        PrivateCopy(out, in, &target);
        result = Render(&target, outData, &source, inData, param, mode);
    }
    KELP_CATCH_ALL {
        return 0;
    }
    dbgPrintf(8, 14, L"CenterFx2D: used %d ms\n", int(os::GetTickCount() - start));
    return result == 0 ? 1 : 0;
}

} // namespace kelp
