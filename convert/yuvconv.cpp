// The YUV stages.
//
// The pixel work is whole images through CKXCsc, rows of the natural row size rounded
// up to 4 bytes, as many rows as biHeight says: a record with a negative height
// converts no line (the colour converter does nothing for a height below 1) and the
// stage reports success. How many bytes a stage reads and writes comes from the
// geometry: an input that declares fewer bytes than its rows take is refused, and so is
// an output record whose size cannot hold them, before any pixel is touched.
#include "yuvconv.h"

#include <kelp/trace.h>

#include <cstring>

#include "glim.h"
#include "runtime/kelpos.h"
#include "stagesize.h"

namespace kelp {

namespace {

// The bytes of one row and of all rows that the colour converter touches for a
// record, or false for sides whose rows do not fit the converter's 32-bit pitch. A
// record with no pixel to convert (a width or height below 1) needs nothing.
struct Rows {
    uint32_t pitch = 0;
    uint64_t bytes = 0;
    bool work = false; // whether there is a pixel to convert
};

bool RowsOf(const KXBMINFOHEADER* d, Rows* rows) {
    *rows = Rows();
    if (d->biWidth <= 0 || d->biHeight <= 0) return true;
    const uint64_t natural = uint64_t(d->biBitCount) * uint64_t(d->biWidth) / 8;
    const uint64_t pitch = (natural + 3) & ~uint64_t(3);
    if (pitch > 0x7FFFFFFFu) return false;
    rows->pitch = uint32_t(pitch);
    rows->bytes = pitch * uint64_t(d->biHeight);
    rows->work = true;
    return true;
}

// The tests every YUV stage's Query makes: all aspects agree but the colour space,
// and that differs.
bool OnlyColorSpaceDiffers(const KXBMINFOHEADER* in, const KXBMINFOHEADER* out, uint32_t f) {
    return CConverter::SameBitCount(in, out, f) && CConverter::SameScan(in, out, f) &&
           CConverter::SameFlags(in, out, f) && CConverter::SameAlpha(in, out, f) &&
           CConverter::SameGeometry(in, out, f) && CConverter::SameRect(in, out, f) &&
           !CConverter::SameColorSpace(in, out, f);
}

void AddCost(const KXBMINFOHEADER* in, int32_t* quality) {
    if (quality) *quality += int32_t(in->biSizeImage / 100000u);
}

uint32_t AbsHeight(int32_t h) {
    return h < 0 ? 0u - uint32_t(h) : uint32_t(h);
}

CKXCsc::ColorSpace SpaceOf(const KXBMINFOHEADER* d) {
    return CKXCsc::ColorSpace(DIBYuv(d)->yuvColorSpace);
}

// The proposal of the stages that make "@YUV": the first 144 bytes of `in` as a
// 160-byte meshed 4:4:4 record at 32 bits, in the target's colour space if the target
// is "@YUV", else BT.601.
KXRESULT ProposeYuv(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                    const KXBMINFOHEADER* target, const wchar_t* allocFailText) {
    if (in->biSize < KXBMI_SIZE) return KXE_INVALID; // too short to copy from
    auto* f = static_cast<KXBMINFOHEADERYUV*>(allocator->Allocate(KXBMI_SIZE_YUV, 0));
    if (!f) {
        dbgPrintf(8, 2, allocFailText, int(KXBMI_SIZE_YUV));
        return KXE_OUTOFMEMORY;
    }
    memcpy(&f->bmi, in, KXBMI_SIZE);
    f->bmi.biSize = KXBMI_SIZE_YUV;
    f->bmi.biCompression = KXBI_YUV;
    f->bmi.biPlanes = 1;
    f->bmi.biBitCount = 32;
    f->bmi.bmiAlignment = 0;
    f->bmi.bmiExtOffset = KXBMI_EXTOFFSET;
    f->yuv.yuvBits = 8;
    f->yuv.yuvSampling = KXYUV_SAMPLING_444;
    f->yuv.yuvSamplingAux = 0;
    const bool yuvTarget = target->biCompression == KXBI_YUV && target->biSize >= KXBMI_SIZE_YUV;
    f->yuv.yuvColorSpace = yuvTarget ? DIBYuv(target)->yuvColorSpace : 0;
    f->bmi.biSizeImage = AbsHeight(in->biHeight) * uint32_t(AlignUp(4 * in->biWidth, 4));
    *out = &f->bmi;
    return KX_OK;
}

// What every Convert does between its Query and its pixels: the sizes checked against
// the geometry, and the output buffer: the input's own when the caller lets the stage
// work in place, else a new one of the output's biSizeImage.
KXRESULT PrepareBuffers(const wchar_t* name, const wchar_t* allocFailText, KXBMINFOHEADER* in,
                        void* inData, KXBMINFOHEADER* out, void** outData, uint32_t* flags,
                        IAllocator* allocator, Rows* rows) {
    uint32_t inSize = 0;
    if (!RowsOf(in, rows) || !ClaimedBytes(in, rows->bytes, &inSize)) {
        dbgPrintf(8, 2, L"%s::Convert: Input of %u bytes, its rows need %llu!\r\n", name,
                  in->biSizeImage, static_cast<unsigned long long>(rows->bytes));
        return KXE_INVALID;
    }
    const uint32_t f = flags ? *flags : KXCONV_KEEP_INPUT;
    if (f & KXCONV_KEEP_INPUT) {
        if (out->biSizeImage < rows->bytes) {
            dbgPrintf(8, 2, L"%s::Convert: Output of %u bytes, its rows need %llu!\r\n", name,
                      out->biSizeImage, static_cast<unsigned long long>(rows->bytes));
            return KXE_INVALID;
        }
        void* buffer = allocator ? allocator->Allocate(out->biSizeImage, 0) : nullptr;
        if (!buffer) {
            dbgPrintf(8, 2, allocFailText, int32_t(out->biSizeImage));
            return KXE_OUTOFMEMORY;
        }
        *outData = buffer;
        if (flags) *flags &= ~KXCONV_OUT_SHARED;
    } else {
        *flags |= KXCONV_OUT_SHARED;
        *outData = inData;
    }
    return KX_OK;
}

} // namespace

// ---------------------------------------------------------------- RGB to YUV

CRGBConverterYUV::CRGBConverterYUV(const wchar_t* name) : CConverter(name) {
    Init(CS_CCIR601);
}

CRGBConverterYUV::~CRGBConverterYUV() {
    End();
}

KXRESULT CRGBConverterYUV::QueryInput(KXBMINFOHEADER* desc) {
    if (desc->biCompression != KXBI_RGB || (desc->biBitCount != 24 && desc->biBitCount != 32))
        return KXE_INVALID;
    return ValidateBIH(desc);
}

KXRESULT CRGBConverterYUV::QueryOutput(KXBMINFOHEADER* desc) {
    if (desc->biCompression != KXBI_YUV || (desc->biBitCount != 24 && desc->biBitCount != 32))
        return KXE_INVALID;
    return ValidateBIH(desc);
}

KXRESULT CRGBConverterYUV::Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                                 int32_t* quality) {
    KXRESULT r = QueryFormats(in, out);
    if (KX_FAILED(r)) return r;
    if (!OnlyColorSpaceDiffers(in, out, flags ? *flags : 0)) return KXE_INVALID;
    AddCost(in, quality);
    dbgPrintf(8, 31, L"CRGBConverterYUV::Query: SUCCESS\r\n");
    return KX_OK;
}

KXRESULT CRGBConverterYUV4444::GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                               IAllocator* allocator,
                                               const KXBMINFOHEADER* target) {
    if (!in || !out || !allocator || !target) return KXE_INVALID;
    if (in->biCompression == target->biCompression) return KXE_INVALID;
    return ProposeYuv(in, out, allocator, target,
                      L"CRGBConverterYUV444::GetOutputFormat: Allocation of %d bytes Failed!\r\n");
}

KXRESULT CRGBConverterYUV4444::Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                                     int32_t* quality) {
    const KXRESULT r = CRGBConverterYUV::Query(in, out, flags, quality);
    if (KX_FAILED(r)) {
        dbgPrintf(8, 31, L"CRGBConverterYUV444::Query: bad format\r\n");
        return r;
    }
    // The natural row rounded up by the output's own alignment (0 meaning 4), in the
    // mask form, which is exact for a power of two.
    const uint32_t row = uint32_t(int32_t(uint32_t(out->biBitCount) * uint32_t(out->biWidth)) / 8);
    const uint32_t a = out->bmiAlignment == 0 ? 4u : uint32_t(out->bmiAlignment);
    out->biSizeImage = AbsHeight(out->biHeight) * ((row + a - 1) & ~(a - 1));
    return KX_OK;
}

KXRESULT CRGBConverterYUV4444::Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out,
                                       void** outData, uint32_t* flags, int32_t* quality,
                                       IAllocator* allocator) {
    const uint32_t start = os::GetTickCount();
    KXRESULT r = Query(in, out, flags, quality);
    if (KX_FAILED(r)) return r;
    Init(SpaceOf(out));
    ColorLimit((flags && (*flags & KXCONV_COLOR_LIMIT)) ? 1 : 0);
    Rows rows;
    r = PrepareBuffers(L"CRGBConverterYUV444",
                       L"CRGBConverterYUV444::Convert: Allocation of %d bytes Failed!\r\n", in,
                       inData, out, outData, flags, allocator, &rows);
    if (KX_FAILED(r)) return r;
    if (ConvertGlim(in, inData, out, *outData) == 0) {
        dbgPrintf(8, 14, L"CRGBConverterYUV4444_gfx: used %d ms\n",
                  int(os::GetTickCount() - start));
        return KX_OK;
    }
    if (rows.work &&
        !BGRToYUV444Meshed(static_cast<const uint8_t*>(inData), static_cast<uint8_t*>(*outData),
                           in->biWidth, in->biHeight, in->biBitCount / 8u, rows.pitch))
        return KXE_FAIL;
    dbgPrintf(8, 14, L"CRGBConverterYUV4444: used %d ms\n", int(os::GetTickCount() - start));
    return KX_OK;
}

// ---------------------------------------------------------------- YUV to RGB

CYUVConverterRGB::CYUVConverterRGB(const wchar_t* name) : CConverter(name) {
    Init(CS_CCIR601);
    ColorLimit(0);
}

CYUVConverterRGB::~CYUVConverterRGB() {
    End();
}

KXRESULT CYUV444ConverterRGB::CheckSide(KXBMINFOHEADER* desc, uint32_t compression) {
    if (desc->biCompression != compression || desc->biBitCount != Bits()) return KXE_INVALID;
    return ValidateBIH(desc);
}

KXRESULT CYUV444ConverterRGB::Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                                    int32_t* quality) {
    KXRESULT r = QueryFormats(in, out);
    if (KX_FAILED(r)) return r;
    if (!OnlyColorSpaceDiffers(in, out, flags ? *flags : 0)) return KXE_INVALID;
    AddCost(in, quality);
    out->biSizeImage = StageSizeImage(out);
    dbgPrintf(8, 31, L"CYUV444ConverterRGB::Query: SUCCESS\r\n");
    return KX_OK;
}

KXRESULT CYUV444ConverterRGB::ProposeRgb(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                         IAllocator* allocator, const KXBMINFOHEADER* target,
                                         uint16_t bits) {
    if (!in || !out || !allocator || !target) return KXE_INVALID;
    if (in->biCompression == target->biCompression) return KXE_INVALID;
    if (in->biSize < KXBMI_SIZE) return KXE_INVALID; // too short to copy from
    auto* f = static_cast<KXBMINFOHEADER*>(allocator->Allocate(KXBMI_SIZE, 0));
    if (!f) {
        dbgPrintf(8, 2,
                  L"CYUV444ConverterRGB24::GetOutputFormat: Allocation of %d bytes Failed!\r\n",
                  int(KXBMI_SIZE));
        return KXE_OUTOFMEMORY;
    }
    memcpy(f, in, KXBMI_SIZE);
    f->biSize = KXBMI_SIZE;
    f->biCompression = KXBI_RGB;
    f->biPlanes = 1;
    f->biBitCount = bits;
    f->biHeight = int32_t(AbsHeight(in->biHeight));
    f->biSizeImage = StageSizeImage(f);
    f->bmiExtOffset = 0;
    f->bmiAlpha =
        (bits == 32 && in->bmiAlpha == KXDIB_ALPHA_OPAQUE) ? KXDIB_ALPHA_OPAQUE : KXDIB_ALPHA_VALID;
    *out = f;
    return KX_OK;
}

KXRESULT CYUV444ConverterRGB::Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out,
                                      void** outData, uint32_t* flags, int32_t* quality,
                                      IAllocator* allocator) {
    const uint32_t start = os::GetTickCount();
    KXRESULT r = Query(in, out, flags, quality);
    if (KX_FAILED(r)) return r;
    Rows rows;
    r = PrepareBuffers(L"CYUV444ConverterRGB",
                       L"CYUV444ConverterRGB::Convert: Allocation of %d bytes Failed!\r\n", in,
                       inData, out, outData, flags, allocator, &rows);
    if (KX_FAILED(r)) return r;
    if (in->biBitCount == 32 && ConvertGlim(in, inData, out, *outData) == 0) {
        dbgPrintf(8, 14, L"CYUV444ConverterRGB_gfx: used %d ms\n", int(os::GetTickCount() - start));
        return KX_OK;
    }
    Init(SpaceOf(in));
    // A refusal of the colour converter leaves the output unwritten and is no failure
    // to the caller: this direction has always answered success there.
    if (rows.work)
        YUV444MeshedToBGR(static_cast<const uint8_t*>(inData), static_cast<uint8_t*>(*outData),
                          in->biWidth, in->biHeight, in->biBitCount / 8u, rows.pitch);
    dbgPrintf(8, 14, L"CYUV444ConverterRGB: used %d ms\n", int(os::GetTickCount() - start));
    return KX_OK;
}

KXRESULT CYUV444ConverterRGB32::GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                                IAllocator* allocator,
                                                const KXBMINFOHEADER* target) {
    return ProposeRgb(in, out, allocator, target, 32);
}

KXRESULT CYUV444ConverterRGB32::QueryInput(KXBMINFOHEADER* desc) {
    return CheckSide(desc, KXBI_YUV);
}

KXRESULT CYUV444ConverterRGB32::QueryOutput(KXBMINFOHEADER* desc) {
    return CheckSide(desc, KXBI_RGB);
}

KXRESULT CYUV444ConverterRGB24::GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                                IAllocator* allocator,
                                                const KXBMINFOHEADER* target) {
    return ProposeRgb(in, out, allocator, target, 24);
}

KXRESULT CYUV444ConverterRGB24::QueryInput(KXBMINFOHEADER* desc) {
    return CheckSide(desc, KXBI_YUV);
}

KXRESULT CYUV444ConverterRGB24::QueryOutput(KXBMINFOHEADER* desc) {
    return CheckSide(desc, KXBI_RGB);
}

// ---------------------------------------------------------------- YUV to YUV

CYUVConverterYUV::CYUVConverterYUV() : CConverter(L"CYUVConverterYUV") {
    Init(CS_CCIR601);
}

CYUVConverterYUV::~CYUVConverterYUV() {
    End();
}

KXRESULT CYUVConverterYUV::GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                           IAllocator* allocator, const KXBMINFOHEADER* target) {
    if (!in || !out || !allocator || !target) return KXE_INVALID;
    if (SameColorSpace(in, target, 0)) return KXE_INVALID;
    return ProposeYuv(in, out, allocator, target,
                      L"CYUVConverterYUV444::GetOutputFormat: Allocation of %d bytes Failed!\r\n");
}

KXRESULT CYUVConverterYUV::QueryInput(KXBMINFOHEADER* desc) {
    if (desc->biCompression != KXBI_YUV || desc->biBitCount != 32) return KXE_INVALID;
    return ValidateBIH(desc);
}

KXRESULT CYUVConverterYUV::QueryOutput(KXBMINFOHEADER* desc) {
    return QueryInput(desc);
}

KXRESULT CYUVConverterYUV::Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                                 int32_t* quality) {
    KXRESULT r = QueryFormats(in, out);
    if (KX_FAILED(r)) return r;
    if (!OnlyColorSpaceDiffers(in, out, flags ? *flags : 0)) return KXE_INVALID;
    AddCost(in, quality);
    dbgPrintf(8, 31, L"CYUVConverterYUV::Query: SUCCESS\r\n");
    return KX_OK;
}

KXRESULT CYUVConverterYUV::Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out,
                                   void** outData, uint32_t* flags, int32_t* quality,
                                   IAllocator* allocator) {
    const uint32_t start = os::GetTickCount();
    KXRESULT r = Query(in, out, flags, quality);
    if (KX_FAILED(r)) return r;
    ColorLimit((flags && (*flags & KXCONV_COLOR_LIMIT)) ? 1 : 0);
    Rows rows;
    r = PrepareBuffers(L"CYUVConverterYUV444",
                       L"CYUVConverterYUV444::Convert: Allocation of %d bytes Failed!\r\n", in,
                       inData, out, outData, flags, allocator, &rows);
    if (KX_FAILED(r)) return r;
    if (rows.work &&
        !YUV444MeshedToYUV444(static_cast<const uint8_t*>(inData), static_cast<uint8_t*>(*outData),
                              in->biWidth, in->biHeight, in->biBitCount / 8u, rows.pitch,
                              SpaceOf(in), SpaceOf(out)))
        return KXE_FAIL;
    dbgPrintf(8, 14, L"CYUVConverterYUV: used %d ms\n", int(os::GetTickCount() - start));
    return KX_OK;
}

} // namespace kelp
