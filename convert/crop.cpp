// The cropper.
//
// The rectangle counts its top from the start of the buffer, unlike the one the scaler
// writes, which counts from the end; each stage keeps its own reading. At depths below
// 8 bits the columns are cropped at whole bytes: a byte that holds pixels on both sides
// of an edge is kept.
#include "crop.h"

#include <kelp/alloc.h>
#include <kelp/kxconv.h>
#include <kelp/trace.h>

#include <cstring>

#include "runtime/kelpos.h"
#include "scalestage.h"

namespace kelp {

KXRESULT CRGBCrop::GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                   IAllocator* allocator, const KXBMINFOHEADER* target) {
    if (!in || !out || !allocator || !target) return KXE_INVALID;
    KXBMINFOHEADER* f = geomstage::CopyRecord(in, allocator);
    if (!f) return in->biSize < KXBMI_SIZE ? KXE_INVALID : KXE_OUTOFMEMORY;
    f->bmiRect = target->bmiRect;
    *out = f;
    return KX_OK;
}

KXRESULT CRGBCrop::QueryInput(KXBMINFOHEADER* desc) {
    return ValidateBIH(desc);
}

KXRESULT CRGBCrop::QueryOutput(KXBMINFOHEADER* desc) {
    return ValidateBIH(desc);
}

KXRESULT CRGBCrop::Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                         int32_t* quality) {
    KXRESULT r = QueryFormats(in, out);
    if (KX_FAILED(r)) return r;
    const uint32_t f = flags ? *flags : 0;
    if (!SameAlpha(in, out, f) || !SameBitCount(in, out, f) || !SameFlags(in, out, f) ||
        !SameColorSpace(in, out, f) || !SameGeometry(in, out, f) || !SameScan(in, out, f) ||
        SameRect(in, out, f))
        return KXE_INVALID;
    if (flags) *flags &= ~KXCONV_OUT_SHARED;
    out->biSizeImage = StageSizeImage(out);
    if (quality) *quality += 5;
    dbgPrintf(8, 31, L"CRGBDeinterlacerQuery: SUCESS\r\n");
    return KX_OK;
}

KXRESULT CRGBCrop::Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                           uint32_t*, int32_t*, IAllocator* allocator) {
    const uint32_t start = os::GetTickCount();
    if (!in || !out || !outData) return KXE_INVALID;
    // Rows of the output's width, as many as the input has lines; the source advances by
    // the same row. Both buffers must hold them.
    const uint64_t bits = out->biBitCount;
    const int64_t inW = in->biWidth;
    const int64_t inH = in->biHeight < 0 ? -int64_t(in->biHeight) : in->biHeight;
    if (out->biWidth < 0 || inW < 0) return KXE_INVALID;
    const uint64_t row = (bits * uint64_t(out->biWidth) / 8 + 3) & ~uint64_t(3);
    const uint64_t need = row * uint64_t(inH);
    uint32_t inBytes = 0;
    if (need > 0xFFFFFFFFu || !ClaimedBytes(in, need, &inBytes) || out->biSizeImage < need) {
        dbgPrintf(8, 2, L"CRGBCrop::Convert: %llu bytes of rows do not fit the buffers!\r\n",
                  static_cast<unsigned long long>(need));
        return KXE_INVALID;
    }

    void* buffer = allocator ? allocator->Allocate(out->biSizeImage, 0) : nullptr;
    if (!buffer) {
        dbgPrintf(8, 2, L"CRGBDeinterlacer::Convert: Allocation of %d bytes Failed!\r\n",
                  int32_t(out->biSizeImage));
        return KXE_OUTOFMEMORY;
    }
    *outData = buffer;

    auto larger = [](int64_t a, int64_t b) { return a > b ? a : b; };
    auto smaller = [](int64_t a, int64_t b) { return a < b ? a : b; };
    int64_t T = larger(larger(in->bmiRect.top, out->bmiRect.top), 0);
    int64_t L = larger(larger(in->bmiRect.left, out->bmiRect.left), 0);
    int64_t B = smaller(in->bmiRect.bottom ? in->bmiRect.bottom : inH,
                        out->bmiRect.bottom ? out->bmiRect.bottom : inH);
    int64_t R = smaller(in->bmiRect.right ? in->bmiRect.right : inW,
                        out->bmiRect.right ? out->bmiRect.right : inW);
    B = larger(B, T + 1);
    R = larger(R, L + 1);
    // Within the rows the buffers hold.
    const int64_t rowPixels = bits ? int64_t(row * 8 / bits) : 0;
    T = smaller(T, inH);
    B = smaller(B, inH);
    L = smaller(L, rowPixels);
    R = smaller(R, rowPixels);

    const uint8_t* src = static_cast<const uint8_t*>(inData);
    uint8_t* dst = static_cast<uint8_t*>(buffer);
    const size_t first = size_t(uint64_t(L) * bits / 8);
    size_t last = size_t((uint64_t(R) * bits + 7) / 8);
    if (last > row) last = size_t(row);
    for (int64_t y = 0; y < inH; ++y, dst += row, src += row) {
        if (y < T || y >= B || last <= first) {
            memset(dst, 0, size_t(row));
            continue;
        }
        memset(dst, 0, first);
        memcpy(dst + first, src + first, last - first);
        memset(dst + last, 0, size_t(row) - last);
    }
    if (out->biSizeImage > need)
        memset(static_cast<uint8_t*>(buffer) + need, 0, size_t(out->biSizeImage - need));
    dbgPrintf(8, 14, L"CRGBCrop: used %d ms\n", int(os::GetTickCount() - start));
    return KX_OK;
}

} // namespace kelp
