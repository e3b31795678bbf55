// The alpha stage.
//
// The pixel work covers width times height pixels (the height without its sign): the
// number comes from the geometry, never from biSizeImage. An input that declares 0
// bytes has all its pixels done; one that declares fewer bytes than its pixels take is
// refused, and so is an output record whose size cannot hold them.
#include "alphaconv.h"

#include <kelp/trace.h>

#include <cstring>

#include "alpharows.h"
#include "glim.h"
#include "runtime/kelpos.h"
#include "stagesize.h"

namespace kelp {

namespace {

// The cost of going from alpha state `from` to `to`, or -1 for a pair the stage
// refuses.
int32_t AlphaCost(uint32_t from, uint32_t to, uint32_t sizeIn) {
    if (from == KXDIB_ALPHA_VALID && to == KXDIB_ALPHA_OPAQUE) return 0;
    if (from == KXDIB_ALPHA_VALID && to == KXDIB_ALPHA_PREMULTIPLIED)
        return int32_t(sizeIn / 100000u);
    if (from == KXDIB_ALPHA_OPAQUE && to == KXDIB_ALPHA_VALID) return 0;
    if (from == KXDIB_ALPHA_OPAQUE && to == KXDIB_ALPHA_PREMULTIPLIED)
        return int32_t(sizeIn / 200000u);
    if (from == KXDIB_ALPHA_PREMULTIPLIED && (to == KXDIB_ALPHA_VALID || to == KXDIB_ALPHA_OPAQUE))
        return int32_t(sizeIn / 50000u);
    return -1;
}

} // namespace

KXRESULT CAlphaConverter::GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                          IAllocator* allocator, const KXBMINFOHEADER* target) {
    if (!in || !out || !allocator || !target) return KXE_INVALID;
    if (in->bmiAlpha == target->bmiAlpha) return KXE_INVALID;
    if (in->biSize < KXBMI_SIZE) return KXE_INVALID; // too short to hold the fields set below
    auto* f = static_cast<KXBMINFOHEADER*>(allocator->Allocate(in->biSize, 0));
    if (!f) return KXE_OUTOFMEMORY;
    memcpy(f, in, in->biSize);
    f->bmiAlpha = target->bmiAlpha;
    f->biSizeImage = StageSizeImage(f);
    *out = f;
    return KX_OK;
}

KXRESULT CAlphaConverter::QueryInput(KXBMINFOHEADER* desc) {
    if (KX_FAILED(ValidateBIH(desc))) {
        dbgPrintf(8, 31, L"CAlphaConverter::Query: bad output format\r\n");
        return KXE_INVALID;
    }
    return desc->biBitCount == 32 ? KX_OK : KXE_INVALID;
}

KXRESULT CAlphaConverter::QueryOutput(KXBMINFOHEADER* desc) {
    return QueryInput(desc);
}

KXRESULT CAlphaConverter::Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                                int32_t* quality) {
    KXRESULT r = QueryFormats(in, out);
    if (KX_FAILED(r)) return r;
    const uint32_t f = flags ? *flags : 0;
    if (!SameBitCount(in, out, f) || !SameScan(in, out, f) || !SameFlags(in, out, f) ||
        !SameColorSpace(in, out, f) || !SameGeometry(in, out, f) || !SameRect(in, out, f) ||
        SameAlpha(in, out, f))
        return KXE_INVALID;
    const int32_t cost = AlphaCost(in->bmiAlpha, out->bmiAlpha, in->biSizeImage);
    if (cost < 0) {
        dbgPrintf(8, 31, L"CAlphaConverter::Query: invalid alpha flag(s)\r\n");
        return KXE_INVALID;
    }
    out->biSizeImage = StageSizeImage(out);
    if (quality) *quality += cost;
    return KX_OK;
}

KXRESULT CAlphaConverter::Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out,
                                  void** outData, uint32_t* flags, int32_t* quality,
                                  IAllocator* allocator) {
    KXRESULT r = Query(in, out, flags, quality);
    if (KX_FAILED(r)) return r;
    const uint32_t start = os::GetTickCount();
    uint32_t localFlags = 0;
    if (!flags) flags = &localFlags;

    // 32-bit rows need no padding: the geometry's bytes are 4 a pixel.
    const uint64_t need = GeometryBytes(in);
    uint32_t inSize = 0;
    if (!ClaimedBytes(in, need, &inSize)) {
        dbgPrintf(8, 2, L"CAlphaConverter::Convert: Input of %u bytes, its pixels need %llu!\r\n",
                  in->biSizeImage, static_cast<unsigned long long>(need));
        return KXE_INVALID;
    }
    if ((*flags & KXCONV_KEEP_INPUT) && out->biSizeImage < need) {
        dbgPrintf(8, 2, L"CAlphaConverter::Convert: Output of %u bytes, its pixels need %llu!\r\n",
                  out->biSizeImage, static_cast<unsigned long long>(need));
        return KXE_INVALID;
    }

    void* dst;
    if (*flags & KXCONV_KEEP_INPUT) {
        dst = allocator ? allocator->Allocate(out->biSizeImage, 0) : nullptr;
        if (!dst) {
            dbgPrintf(8, 2, L"CAlphaConverter::Convert: Allocation of %d bytes Failed!\r\n",
                      int32_t(out->biSizeImage));
            return KXE_OUTOFMEMORY;
        }
    } else {
        *flags |= KXCONV_OUT_SHARED;
        dst = inData;
    }
    *outData = dst;

    // Both buffers hold at least `need` bytes, which fit 32 bits.
    const uint32_t bytes = uint32_t(need);
    const uint32_t pixels = bytes / 4;
    const uint8_t* src = static_cast<const uint8_t*>(inData);
    uint8_t* d = static_cast<uint8_t*>(dst);
    const alpharows::Kernels& k = alpharows::Current();
    const uint32_t from = in->bmiAlpha, to = out->bmiAlpha;

    if (from == KXDIB_ALPHA_VALID && to == KXDIB_ALPHA_PREMULTIPLIED) {
        if (ReshapeGlim(in, inData, out, dst) != 0)
            (in->biCompression != KXBI_RGB ? k.premultiplyYuv : k.premultiply)(src, d,
                                                                               int32_t(pixels));
    } else if (from == KXDIB_ALPHA_OPAQUE && to == KXDIB_ALPHA_VALID) {
        k.fill(src, d, int32_t(pixels));
    } else if (from == KXDIB_ALPHA_PREMULTIPLIED &&
               (to == KXDIB_ALPHA_VALID || to == KXDIB_ALPHA_OPAQUE)) {
        k.unpremultiply(src, d, int32_t(pixels));
    } else if (d != src) {
        // A relabelling only (valid to opaque, opaque to premultiplied).
        memcpy(d, src, bytes);
    }
    dbgPrintf(8, 14, L"CAlphaConverter: used %d ms\n", int(os::GetTickCount() - start));
    return KX_OK;
}

} // namespace kelp
