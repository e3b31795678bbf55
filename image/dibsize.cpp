// Row and image sizes of a descriptor. These never fail hard: a record whose rows they
// cannot size gives 0, with an assertion report where the record claims a YUV layout
// that they do not cover, and callers treat 0 as the absence of an image.
//
// The products are formed in 32-bit unsigned arithmetic and read back as signed words,
// so that an absurd record wraps instead of overflowing.
#include <kelp/kxbih.h>
#include <kelp/trace.h>

namespace kelp {

namespace {

// The assertion report of this file.
void Assert(unsigned line) {
    dbgAssert("FALSE", ".\\kelpimg", line, 8);
}

int32_t Round4(uint32_t v) {
    return AlignUp(int32_t(v), 4);
}

// (bits * width) >> 3, the shift arithmetic as on a signed word.
uint32_t BitsToBytes(const KXBMINFOHEADER* d) {
    return uint32_t(int32_t(uint32_t(d->biBitCount) * uint32_t(d->biWidth)) >> 3);
}

int32_t Mul(int32_t a, int32_t b) {
    return int32_t(uint32_t(a) * uint32_t(b));
}

// A record sized like uncompressed rows: RGB, or meshed YUV 4:4:4.
bool MeshedRows(const KXBMINFOHEADER* d) {
    if (d->biCompression == KXBI_RGB) return true;
    return d->biCompression == KXBI_YUV && d->biSize >= KXBMI_SIZE_YUV &&
           DIBYuv(d)->yuvSampling == KXYUV_SAMPLING_444;
}

} // namespace

int32_t DIBBytesPerPixel(const KXBMINFOHEADER* desc) {
    int32_t n = desc->biBitCount / 8;
    if (desc->biPlanes >= 2) n /= desc->biPlanes;
    return n;
}

int32_t DIBRowBytes(const KXBMINFOHEADER* desc, int plane) {
    if (MeshedRows(desc)) {
        if (desc->biPlanes <= 1) return Round4(BitsToBytes(desc));
        return Round4(uint32_t(desc->biWidth));
    }
    if (desc->biCompression != KXBI_YUV) return 0;
    if (desc->biSize < KXBMI_SIZE_YUV) {
        Assert(__LINE__);
        return 0;
    }
    const KXYUVEXT* yuv = DIBYuv(desc);
    if (yuv->yuvSampling != KXYUV_SAMPLING_422) {
        Assert(__LINE__);
        return 0;
    }
    // 4:2:2. Every way through here is reported: the meshed row keeps a shift by 3 that
    // makes it a quarter of its true size, and no caller of the library is meant to
    // reach it.
    if ((yuv->yuvBits != 0 && yuv->yuvBits != 8) || plane > int(desc->biPlanes)) {
        Assert(__LINE__);
        return 0;
    }
    Assert(__LINE__);
    if (desc->biPlanes <= 1) return Round4(uint32_t(int32_t(uint32_t(desc->biWidth) * 2u) >> 3));
    switch (plane) {
    case 1:
    case 4:
        return Round4(uint32_t(desc->biWidth));
    case 2:
    case 3:
        return Round4(uint32_t(desc->biWidth / 2));
    default:
        return 0;
    }
}

int32_t DIBSize(const KXBMINFOHEADER* desc) {
    switch (desc->biCompression) {
    case KXBI_MPGI:
    case KXBI_DVSD:
    case KXBI_DVCS:
        return Mul(Round4(BitsToBytes(desc)), desc->biHeight);
    default:
        break;
    }
    if (MeshedRows(desc)) {
        int32_t planes = desc->biPlanes < 1 ? 1 : desc->biPlanes;
        return Mul(Mul(DIBRowBytes(desc, 1), planes), desc->biHeight);
    }
    if (desc->biCompression == KXBI_YUV && desc->biSize >= KXBMI_SIZE_YUV &&
        DIBYuv(desc)->yuvSampling == KXYUV_SAMPLING_422 && desc->biPlanes == 1)
        return Mul(DIBRowBytes(desc, 1), desc->biHeight);
    Assert(__LINE__);
    return 0;
}

} // namespace kelp
