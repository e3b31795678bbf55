// The descriptor's validity rules, readability checks, field mode, names and the
// comparisons with which stages judge two records.
#include <kelp/kxbih.h>
#include <kelp/kxconv.h>
#include <kelp/trace.h>

#include "runtime/kelpos.h"

namespace kelp {

KXRESULT ValidateBIH(const KXBMINFOHEADER* desc) {
    if (desc->biCompression != KXBI_RGB && desc->biCompression != KXBI_YUV) return KXE_INVALID;
    if (desc->biPlanes != 1) return KXE_INVALID;
    if (desc->biCompression == KXBI_YUV) {
        // The size is tested before the extension offset: a record shorter than 44
        // bytes is never read past its end.
        if (desc->biSize < KXBMI_SIZE_YUV || desc->bmiExtOffset != KXBMI_EXTOFFSET)
            return KXE_INVALID;
        const KXYUVEXT* yuv = DIBYuv(desc);
        if (yuv->yuvColorSpace != 0 && yuv->yuvColorSpace != 2) return KXE_INVALID;
        if (yuv->yuvBits != 8 && yuv->yuvBits != 0) return KXE_INVALID;
        if (yuv->yuvSampling != KXYUV_SAMPLING_444 || yuv->yuvSamplingAux != 0) return KXE_INVALID;
    } else if (desc->biSize < KXBMI_SIZE) {
        return KXE_INVALID;
    }
    if (desc->bmiFormat & KXBMIFORMAT_TWOFIELDS) return KXE_INVALID;
    return KX_OK;
}

bool CheckBIHReadable(const KXBMINFOHEADER* desc) {
    if (!os::IsReadable(desc, 4) || !os::IsReadable(desc, desc->biSize)) {
        dbgPrintf(8, 2, L"CConversionManager::Invalid BIH!\n");
        return false;
    }
    return true;
}

bool CheckBuffer(const void* buffer, uint32_t size) {
    if (!os::IsReadable(buffer, size)) {
        dbgPrintf(8, 2, L"CConversionManager::Invalid Buffer!\n");
        return false;
    }
    // Deliberately at another area and level than the library's own traces.
    if (uintptr_t(buffer) & 15)
        dbgPrintf(89, 0, L"CConversionManager::Unaligned Buffer %p!\r\n", buffer);
    return true;
}

int32_t AlignUp(int32_t value, int32_t alignment) {
    uint32_t a = alignment == 0 ? 4u : uint32_t(alignment < 0 ? -int64_t(alignment) : alignment);
    uint32_t v = uint32_t(value);
    return int32_t((v + a - 1) / a * a);
}

int DIBFieldMode(const KXBMINFOHEADER* desc) {
    if (desc->bmiFrame == 1) return KXFIELD_PROGRESSIVE;
    return (desc->bmiFormat & KXBMIFORMAT_ODDEVEN_CHRONO) ? KXFIELD_CHRONO : KXFIELD_INTERLACED;
}

void DIBSetFieldMode(KXBMINFOHEADER* desc, int mode) {
    desc->bmiFrame = mode == KXFIELD_PROGRESSIVE ? 1 : 0;
    if (mode == KXFIELD_CHRONO)
        desc->bmiFormat |= KXBMIFORMAT_ODDEVEN_CHRONO;
    else
        desc->bmiFormat &= ~KXBMIFORMAT_ODDEVEN_CHRONO;
}

const wchar_t* DIBFormatName(const KXBMINFOHEADER* desc) {
    switch (desc->biCompression) {
    case KXBI_RGB:
        return (desc->biBitCount == 32 || desc->biBitCount == 64) ? L"BGRA" : L"BGR";
    case KXBI_RGBZ:
        return L"BGRAZ";
    case KXBI_YUVZ:
        return L"YUVAZ";
    case KXBI_YUV:
        break;
    default:
        return L"???";
    }
    if (desc->biSize < KXBMI_SIZE_YUV) return L"YUV???"; // no extension to read
    switch (DIBYuv(desc)->yuvSampling) {
    case KXYUV_SAMPLING_444:
        return L"YUV444";
    case KXYUV_SAMPLING_422:
    case KXYUV_SAMPLING_422B:
        return L"YUV422";
    case KXYUV_SAMPLING_411:
        return L"YUV411";
    case KXYUV_SAMPLING_420:
        return L"YUV420";
    default:
        return L"YUV???";
    }
}

int32_t DIBAlignment(const KXBMINFOHEADER* desc) {
    return desc->bmiAlignment == 0 ? 4 : desc->bmiAlignment;
}
uint32_t DIBRatioX(const KXBMINFOHEADER* desc) {
    return desc->bmiRatioX == 0 ? 0x10000u : desc->bmiRatioX;
}
uint32_t DIBRatioY(const KXBMINFOHEADER* desc) {
    return desc->bmiRatioY == 0 ? 0x10000u : desc->bmiRatioY;
}

// ---------------------------------------------------------------- comparisons

namespace {
uint32_t ColorSpaceOf(const KXBMINFOHEADER* d) {
    return d->biSize >= KXBMI_SIZE_YUV ? DIBYuv(d)->yuvColorSpace : 0;
}
} // namespace

bool SameColorSpace(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t) {
    if (a->biCompression != b->biCompression) return false;
    return a->biCompression != KXBI_YUV || ColorSpaceOf(a) == ColorSpaceOf(b);
}

bool SameBitCount(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t) {
    return a->biBitCount == b->biBitCount;
}

bool SameGeometry(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t flags) {
    if (a->biWidth != b->biWidth || a->biHeight != b->biHeight) return false;
    if ((flags & (KXCONV_FIT_GOOD | KXCONV_FIT_FAST)) && !(flags & KXCONV_KEEP_ASPECT)) return true;
    return DIBRatioX(a) == DIBRatioX(b) && DIBRatioY(a) == DIBRatioY(b);
}

bool SameScan(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t) {
    return DIBFieldMode(a) == DIBFieldMode(b) &&
           (a->bmiFormat & KXBMIFORMAT_TWOFIELDS) == (b->bmiFormat & KXBMIFORMAT_TWOFIELDS);
}

bool SameFlags(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t) {
    return (a->bmiFlags & ~KXBMIFLAGS_Z) == (b->bmiFlags & ~KXBMIFLAGS_Z);
}

bool SameAlpha(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t) {
    return a->bmiAlpha == b->bmiAlpha;
}

bool SameRect(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t) {
    return a->bmiRect.left == b->bmiRect.left && a->bmiRect.top == b->bmiRect.top &&
           a->bmiRect.right == b->bmiRect.right && a->bmiRect.bottom == b->bmiRect.bottom;
}

} // namespace kelp
