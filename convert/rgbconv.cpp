// The depth stages: their tests, proposals and the run of their row loops.
//
// Rows go from the first in memory to the last, while the line number is below
// biHeight: a record with a negative height converts no line and reports success. The
// number of rows comes from the geometry, never from biSizeImage: an input that
// declares 0 bytes has every row read, and one that declares fewer bytes than its rows
// take is refused. The input strides are those the stages have always used (see
// InputStride); they can leave a row's last pixels in the next row's bytes, and a last
// row that reaches past the input's rows reads zeros there instead of memory that is
// not the image's. No row is written past the output's biSizeImage.
#include "rgbconv.h"

#include <kelp/trace.h>

#include <cstring>
#include <vector>

#include "depthrows.h"
#include "glim.h"
#include "runtime/kelpos.h"
#include "stagesize.h"

namespace kelp {

namespace {

// Bytes from one input row to the next. At 1 and 4 bits the division truncates, so that
// the byte of a last partial pair or octet is not counted; 16-bit rows are padded to 4
// bytes on the way to 24 bits and not on the way to 32.
size_t InputStride(uint16_t bits, int32_t w, uint16_t outBits) {
    const size_t uw = size_t(w);
    switch (bits) {
    case 1:
        return (uw / 8 + 3) & ~size_t(3);
    case 4:
        return (uw / 2 + 3) & ~size_t(3);
    case 8:
        return (uw + 3) & ~size_t(3);
    case 16:
        return outBits == 24 ? (2 * uw + 3) & ~size_t(3) : 2 * uw;
    case 24:
        return ((uw + 1) * 3) & ~size_t(3);
    default:
        return 4 * uw;
    }
}

size_t OutputStride(uint16_t outBits, int32_t w) {
    return outBits == 24 ? ((size_t(w) + 1) * 3) & ~size_t(3) : 4 * size_t(w);
}

// Bytes of the input's rows as the stage reads them, for the lines it converts.
uint64_t InputNeed(const KXBMINFOHEADER* in, uint16_t outBits) {
    if (in->biWidth <= 0 || in->biHeight <= 0) return 0;
    return uint64_t(InputStride(in->biBitCount, in->biWidth, outBits)) * uint64_t(in->biHeight);
}

// Converts the rows of `in` with `row(src, dst)`, which reads `readBytes` and writes
// `writeBytes` a row; the input holds `inSize` bytes.
template <class Row>
void ForEachRow(const KXBMINFOHEADER* in, const uint8_t* src, size_t inSize, size_t inStride,
                size_t readBytes, const KXBMINFOHEADER* out, uint8_t* dst, size_t outStride,
                size_t writeBytes, Row row) {
    const size_t outSize = out->biSizeImage;
    std::vector<uint8_t> padded;
    for (int32_t y = 0; y < in->biHeight; ++y) {
        const size_t o = size_t(y) * outStride, i = size_t(y) * inStride;
        if (o + writeBytes > outSize) break;
        const uint8_t* s = src + i;
        if (i + readBytes > inSize) {
            padded.assign(readBytes, 0);
            if (i < inSize) memcpy(padded.data(), s, inSize - i);
            s = padded.data();
        }
        row(s, dst + o);
    }
}

} // namespace

// ---------------------------------------------------------------- shared

KXRESULT CRGBConverterRGB::Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                                 int32_t* quality) {
    KXRESULT r = QueryFormats(in, out); // QueryOutput writes the output's size
    if (KX_FAILED(r)) return r;
    const uint32_t f = flags ? *flags : 0;
    if (!SameAlpha(in, out, f) || !SameScan(in, out, f) || !SameFlags(in, out, f) ||
        !SameColorSpace(in, out, f) || !SameGeometry(in, out, f) || !SameRect(in, out, f) ||
        SameBitCount(in, out, f))
        return KXE_INVALID;
    if (flags) *flags &= ~KXCONV_OUT_SHARED;
    if (quality) *quality += int32_t(in->biSizeImage / 100000u);
    dbgPrintf(8, 31, L"CRGBConverterRGB::Query: SUCESS\r\n");
    return KX_OK;
}

KXRESULT CRGBConverterRGB::ProposeDepth(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                        IAllocator* allocator, const KXBMINFOHEADER* target) {
    if (!in || !out || !allocator || !target) return KXE_INVALID;
    if (in->biBitCount == target->biBitCount) return KXE_INVALID;
    if (in->biSize < KXBMI_SIZE) return KXE_INVALID; // too short to hold the fields set below
    auto* f = static_cast<KXBMINFOHEADER*>(allocator->Allocate(in->biSize, 0));
    if (!f) return KXE_OUTOFMEMORY;
    memcpy(f, in, in->biSize);
    f->biClrUsed = 0;
    f->biBitCount = OutputBits();
    f->biSizeImage = StageSizeImage(f);
    *out = f;
    return KX_OK;
}

KXRESULT CRGBConverterRGB::CheckOutput(KXBMINFOHEADER* desc, const wchar_t* badFormatText) {
    if (KX_FAILED(ValidateBIH(desc))) {
        dbgPrintf(8, 31, badFormatText);
        return KXE_INVALID;
    }
    if (desc->biBitCount != OutputBits() || desc->biClrUsed != 0) return KXE_INVALID;
    desc->biSizeImage = StageSizeImage(desc);
    return KX_OK;
}

KXRESULT CRGBConverterRGB::ConvertRows(const KXBMINFOHEADER* in, const void* inData,
                                       uint32_t inSize, const KXBMINFOHEADER* out, void* outData) {
    const uint16_t bits = in->biBitCount, outBits = OutputBits();
    const int32_t w = in->biWidth;
    const depthrows::Kernels& k = depthrows::Current();
    depthrows::PalRowFn pal = nullptr;
    depthrows::RowFn plain = nullptr;
    switch (bits) {
    case 1:
        pal = outBits == 32 ? k.pal1To32 : k.pal1To24;
        break;
    case 4:
        pal = outBits == 32 ? k.pal4To32 : k.pal4To24;
        break;
    case 8:
        pal = outBits == 32 ? k.pal8To32 : k.pal8To24;
        break;
    case 16:
        plain = outBits == 32 ? k.rgb555To32 : k.rgb555To24;
        break;
    case 24:
        plain = outBits == 32 ? k.bgrTo32 : nullptr;
        break;
    case 32:
        plain = outBits == 24 ? k.bgraTo24 : nullptr;
        break;
    }
    if (!pal && !plain) return KXE_INVALID;
    if (w <= 0) return KX_OK; // no pixel in a row

    depthrows::Palette palette;
    if (pal) {
        uint32_t count = in->biClrUsed ? in->biClrUsed : 1u << bits;
        if (count > (1u << bits)) count = 1u << bits;
        const uint8_t* table = reinterpret_cast<const uint8_t*>(in) + in->biSize;
        if (!os::IsReadable(table, count * 4)) return KXE_INVALID;
        depthrows::MakePalette(table, count, &palette);
    }
    const size_t readBytes = (size_t(w) * bits + 7) / 8;
    const size_t writeBytes = size_t(w) * (outBits / 8);
    const uint8_t* src = static_cast<const uint8_t*>(inData);
    uint8_t* dst = static_cast<uint8_t*>(outData);
    const size_t inStride = InputStride(bits, w, outBits);
    const size_t outStride = OutputStride(outBits, out->biWidth);
    if (pal)
        ForEachRow(in, src, inSize, inStride, readBytes, out, dst, outStride, writeBytes,
                   [&](const uint8_t* s, uint8_t* d) { pal(s, d, w, &palette); });
    else
        ForEachRow(in, src, inSize, inStride, readBytes, out, dst, outStride, writeBytes,
                   [&](const uint8_t* s, uint8_t* d) { plain(s, d, w); });
    return KX_OK;
}

KXRESULT CRGBConverterRGB::ConvertDepth(const wchar_t* name, KXBMINFOHEADER* in, void* inData,
                                        KXBMINFOHEADER* out, void** outData, uint32_t* flags,
                                        int32_t* quality, IAllocator* allocator) {
    const uint32_t start = os::GetTickCount();
    KXRESULT r = Query(in, out, flags, quality);
    if (KX_FAILED(r)) return r;
    const uint64_t need = InputNeed(in, OutputBits());
    uint32_t inSize = 0;
    if (!ClaimedBytes(in, need, &inSize)) {
        dbgPrintf(8, 2, L"%s::Convert: Input of %u bytes, its rows need %llu!\r\n", name,
                  in->biSizeImage, static_cast<unsigned long long>(need));
        return KXE_INVALID;
    }
    // Never in place: the output has its own buffer.
    void* buffer = allocator ? allocator->Allocate(out->biSizeImage, 0) : nullptr;
    if (!buffer) {
        dbgPrintf(8, 2, L"%s::Convert: Allocation of %d bytes Failed!\r\n", name,
                  int32_t(out->biSizeImage));
        return KXE_OUTOFMEMORY;
    }
    *outData = buffer;

    bool done = false;
    const uint16_t bits = in->biBitCount, outBits = OutputBits();
    if (bits == 32 && outBits == 24) {
        if (int32_t(3u * uint32_t(in->biWidth)) % 4 == 0)
            done = ConvertGlim(in, inData, out, buffer) == 0;
    } else if (bits == 24 && outBits == 32) {
        if (in->biWidth % 4 == 0) done = ConvertGlim(in, inData, out, buffer) == 0;
    }
    if (!done) {
        r = ConvertRows(in, inData, inSize, out, buffer);
        if (KX_FAILED(r)) return r; // the buffer stays with the caller
    }
    dbgPrintf(8, 14, L"%s: used %d ms\n", name, int(os::GetTickCount() - start));
    return KX_OK;
}

// ---------------------------------------------------------------- 32 bits

KXRESULT CRGBConverterRGB32::GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                             IAllocator* allocator, const KXBMINFOHEADER* target) {
    return ProposeDepth(in, out, allocator, target);
}

KXRESULT CRGBConverterRGB32::QueryInput(KXBMINFOHEADER* desc) {
    if (KX_FAILED(ValidateBIH(desc))) {
        dbgPrintf(8, 31, L"CRGBConverterRGB32::QueryInput: bad format\r\n");
        return KXE_INVALID;
    }
    const uint16_t bits = desc->biBitCount;
    if (desc->biCompression == KXBI_YUV) return bits == 24 ? KX_OK : KXE_INVALID;
    switch (bits) {
    case 1:
    case 4:
    case 8:
        return desc->biClrUsed <= (1u << bits) ? KX_OK : KXE_INVALID;
    case 16:
    case 24:
        return KX_OK;
    default:
        return KXE_INVALID;
    }
}

KXRESULT CRGBConverterRGB32::QueryOutput(KXBMINFOHEADER* desc) {
    return CheckOutput(desc, L"CRGBConverterRGB32::Query: bad output format\r\n");
}

KXRESULT CRGBConverterRGB32::Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out,
                                     void** outData, uint32_t* flags, int32_t* quality,
                                     IAllocator* allocator) {
    return ConvertDepth(L"CRGBConverterRGB32", in, inData, out, outData, flags, quality, allocator);
}

// ---------------------------------------------------------------- 24 bits

KXRESULT CRGBConverterRGB24::GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                             IAllocator* allocator, const KXBMINFOHEADER* target) {
    return ProposeDepth(in, out, allocator, target);
}

KXRESULT CRGBConverterRGB24::QueryInput(KXBMINFOHEADER* desc) {
    if (KX_FAILED(ValidateBIH(desc))) {
        dbgPrintf(8, 31, L"CRGBConverterRGB24::QueryInput: bad format\r\n");
        return KXE_INVALID;
    }
    const uint16_t bits = desc->biBitCount;
    if (desc->biCompression == KXBI_YUV) return bits == 32 ? KX_OK : KXE_INVALID;
    switch (bits) {
    case 1:
    case 4:
    case 8:
        return desc->biClrUsed <= (1u << bits) ? KX_OK : KXE_INVALID;
    case 16:
    case 32:
        return KX_OK;
    default:
        return KXE_INVALID;
    }
}

KXRESULT CRGBConverterRGB24::QueryOutput(KXBMINFOHEADER* desc) {
    return CheckOutput(desc, L"CRGBConverterRGB24::QueryOutput: bad format\r\n");
}

KXRESULT CRGBConverterRGB24::Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out,
                                     void** outData, uint32_t* flags, int32_t* quality,
                                     IAllocator* allocator) {
    return ConvertDepth(L"CRGBConverterRGB24", in, inData, out, outData, flags, quality, allocator);
}

} // namespace kelp
