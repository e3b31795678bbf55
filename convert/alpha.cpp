// The alpha of a 32-bit image as an 8-bit image of its own, and back.
//
// The 8-bit image has rows rounded up to 4 bytes and as many lines as the 32-bit one;
// its record keeps the sign of the height (the row order), while its size counts the
// lines without the sign. The 32-bit image's pixels are counted by its geometry: a
// biSizeImage of 0 stands for that size, and both ways refuse an image whose non-zero
// biSizeImage does not cover its pixels, rather than read or write past the buffer.
#include <kelp/trace.h>

#include <cstring>

#include "catchall.h"
#include "convman.h"
#include "runtime/kelpos.h"
#include "stagesize.h"

namespace kelp {

namespace {

constexpr unsigned kAlphaTableEntries = 256;
constexpr unsigned kAlphaDescBytes = KXBMI_SIZE + kAlphaTableEntries * 4; // 1168

uint32_t Lines(const KXBMINFOHEADER* d) {
    return d->biHeight < 0 ? 0u - uint32_t(d->biHeight) : uint32_t(d->biHeight);
}

uint32_t AlphaStride(const KXBMINFOHEADER* d) {
    return (uint32_t(d->biWidth) + 3u) & ~3u;
}

// Width not negative, and the buffer at `data` holds every 32-bit pixel: biSizeImage
// covers them, or is 0 and they can be read. `who` names the caller in the trace.
bool PixelsCovered(const KXBMINFOHEADER* d, const void* data, const wchar_t* who) {
    if (d->biWidth < 0) return false;
    const uint64_t need = GeometryBytes(d); // 4 bytes a pixel, rows need no padding
    uint32_t bytes = 0;
    if (!ClaimedBytes(d, need, &bytes)) {
        dbgPrintf(8, 2, L"CConversionManager::%s: Input of %u bytes, its pixels need %llu!\r\n",
                  who, d->biSizeImage, static_cast<unsigned long long>(need));
        return false;
    }
    return d->biSizeImage != 0 || CheckBuffer(data, bytes);
}

} // namespace

KXRESULT CConversionManager::ExtractAlpha(const KXBMINFOHEADER* desc, const void* data,
                                          KXBMINFOHEADER** alphaDesc, void** alphaData,
                                          IAllocator* allocator) {
    try {
        if (!CheckBIHReadable(desc) || !CheckBuffer(data, desc->biSizeImage)) return KXE_INVALID;
        KXRESULT r = ValidateBIH(desc);
        if (KX_FAILED(r)) return r;
        if (desc->biBitCount != 32) return KXE_INVALID;
        if (!alphaDesc || !alphaData || !allocator) return KXE_INVALID;
        if (!PixelsCovered(desc, data, L"ExtractAlpha")) return KXE_INVALID;

        auto* a = static_cast<KXBMINFOHEADER*>(allocator->Allocate(kAlphaDescBytes, 0));
        if (!a) {
            dbgPrintf(8, 2, L"CConversionManager::ExtractAlpha: Allocation of %d bytes Failed!\r\n",
                      int(kAlphaDescBytes));
            return KXE_OUTOFMEMORY;
        }
        *alphaDesc = a;
        std::memset(a, 0, KXBMI_SIZE);
        a->biSize = KXBMI_SIZE;
        a->biWidth = desc->biWidth;
        a->biHeight = desc->biHeight;
        a->biPlanes = 1;
        a->biBitCount = 8;
        a->bmiMagic = KXBMI_MAGIC;
        const uint32_t stride = AlphaStride(desc);
        const uint32_t lines = Lines(desc);
        a->biSizeImage = stride * lines;
        // A red ramp, not a grey one: the alpha plane shows as shades of red. The fourth
        // byte of each entry is left as allocated.
        unsigned char* table = reinterpret_cast<unsigned char*>(a) + KXBMI_SIZE;
        for (unsigned i = 0; i < kAlphaTableEntries; ++i) {
            table[4 * i + 0] = 0;
            table[4 * i + 1] = 0;
            table[4 * i + 2] = static_cast<unsigned char>(i);
        }

        auto* plane = static_cast<unsigned char*>(allocator->Allocate(a->biSizeImage, 0));
        if (!plane) {
            // The record stays in *alphaDesc, for the caller to free.
            dbgPrintf(8, 2, L"CConversionManager::ExtractAlpha: Allocation of %d bytes Failed!\r\n",
                      int(a->biSizeImage));
            return KXE_OUTOFMEMORY;
        }
        *alphaData = plane;

        const uint32_t width = uint32_t(desc->biWidth);
        const unsigned char* src = static_cast<const unsigned char*>(data);
        for (uint32_t y = 0; y < lines; ++y) {
            unsigned char* dst = plane + size_t(y) * stride;
            if (desc->bmiAlpha == KXDIB_ALPHA_OPAQUE) {
                std::memset(dst, 255, width);
            } else {
                const unsigned char* row = src + size_t(y) * width * 4;
                for (uint32_t x = 0; x < width; ++x)
                    dst[x] = row[4 * x + 3];
            }
            std::memset(dst + width, 0, stride - width); // the row's padding
        }
        return KX_OK;
    }
    KELP_CATCH_ALL {
        return KXE_FAIL;
    }
}

KXRESULT CConversionManager::InsertAlpha(KXBMINFOHEADER* desc, void* data,
                                         const KXBMINFOHEADER* alphaDesc, const void* alphaData) {
    try {
        if (!CheckBIHReadable(desc) || !CheckBIHReadable(alphaDesc) ||
            !CheckBuffer(data, desc->biSizeImage))
            return KXE_INVALID;
        KXRESULT r = ValidateBIH(desc);
        if (KX_FAILED(r)) return r;
        // The alpha record's depth is not looked at: its bytes are taken as they come.
        if (desc->biBitCount != 32 || desc->biWidth != alphaDesc->biWidth ||
            desc->biHeight != alphaDesc->biHeight)
            return KXE_INVALID;
        const uint32_t stride = AlphaStride(desc);
        const uint32_t lines = Lines(desc);
        if (!PixelsCovered(desc, data, L"InsertAlpha") ||
            !os::IsReadable(alphaData, size_t(stride) * lines))
            return KXE_INVALID;

        const uint32_t width = uint32_t(desc->biWidth);
        unsigned char* dst = static_cast<unsigned char*>(data);
        const unsigned char* src = static_cast<const unsigned char*>(alphaData);
        for (uint32_t y = 0; y < lines; ++y) {
            unsigned char* row = dst + size_t(y) * width * 4;
            const unsigned char* a = src + size_t(y) * stride;
            for (uint32_t x = 0; x < width; ++x)
                row[4 * x + 3] = a[x];
        }
        desc->bmiAlpha = KXDIB_ALPHA_VALID;
        return KX_OK;
    }
    KELP_CATCH_ALL {
        return KXE_FAIL;
    }
}

} // namespace kelp
