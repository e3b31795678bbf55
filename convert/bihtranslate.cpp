// Between the Windows form of a header (40 bytes, an optional extension-offset word at
// 40 and the extension behind it, then the colour table) and the full record.
#include <kelp/trace.h>

#include <cstring>

#include "catchall.h"
#include "convman.h"
#include "runtime/kelpos.h"

namespace kelp {

namespace {

constexpr uint32_t kWinHeaderBytes = 40;
constexpr uint32_t kWinExtOffsetWord = 40; // where the Windows form keeps its own offset
constexpr uint32_t kWinExtStart = 44;

// Bytes of the colour table: 4 an entry below 16 bits, biClrUsed entries or 2^bits.
uint32_t PaletteBytes(uint16_t bitCount, uint32_t clrUsed) {
    if (bitCount > 15) return 0;
    uint64_t entries = clrUsed ? clrUsed : (1u << bitCount);
    uint64_t bytes = entries * 4;
    return bytes > 0xFFFFFFFFu ? 0xFFFFFFFFu : uint32_t(bytes);
}

// The palette goes along only if it can be read behind the header.
uint32_t ReadablePalette(const void* header, uint32_t headerBytes, uint32_t paletteBytes) {
    if (paletteBytes == 0) return 0;
    if (!os::IsReadable(header, size_t(headerBytes) + paletteBytes)) return 0;
    return paletteBytes;
}

const unsigned char* Bytes(const void* p) {
    return static_cast<const unsigned char*>(p);
}
unsigned char* Bytes(void* p) {
    return static_cast<unsigned char*>(p);
}

} // namespace

KXRESULT CConversionManager::BIHToKXBIH(const KXWINBITMAPINFOHEADER* bih, KXBMINFOHEADER** out,
                                        IAllocator* allocator) {
    try {
        if (!CheckBIHReadable(reinterpret_cast<const KXBMINFOHEADER*>(bih))) return KXE_INVALID;
        // A header shorter than its 40 fixed bytes has nothing to translate.
        if (bih->biSize < kWinHeaderBytes) return KXE_INVALID;
        // Nowhere to put the result, or nothing to allocate it with: a caught failure.
        if (!out || !allocator) return KXE_FAIL;

        const uint32_t palette =
            ReadablePalette(bih, bih->biSize, PaletteBytes(bih->biBitCount, bih->biClrUsed));
        // The word at offset 40 is the Windows form's own extension offset, not part of
        // the extension; up to 4 bytes beyond the 40 are that word alone.
        const uint32_t ext = bih->biSize - kWinHeaderBytes <= 4 ? 0 : bih->biSize - kWinExtStart;
        const uint64_t total = uint64_t(KXBMI_SIZE) + ext + palette;
        void* block = total > 0xFFFFFFFFu ? nullptr : allocator->Allocate(unsigned(total), 0);
        if (!block) {
            dbgPrintf(8, 2, L"CConversionManager::BIHToKXBIH: Allocation of %d bytes Failed!\r\n",
                      int(uint32_t(total)));
            return KXE_OUTOFMEMORY;
        }
        auto* kx = static_cast<KXBMINFOHEADER*>(block);
        std::memset(kx, 0, KXBMI_SIZE);
        std::memcpy(kx, bih, kWinHeaderBytes);
        if (ext) {
            std::memcpy(Bytes(kx) + KXBMI_EXTOFFSET, Bytes(bih) + kWinExtStart, ext);
            kx->bmiExtOffset = KXBMI_EXTOFFSET;
        }
        kx->biSize = KXBMI_SIZE + ext;
        kx->bmiMagic = KXBMI_MAGIC;
        kx->bmiRatioX = 0x10000;
        kx->bmiRatioY = 0x10000;
        if (palette) std::memcpy(Bytes(kx) + kx->biSize, Bytes(bih) + bih->biSize, palette);
        *out = kx;
        return KX_OK;
    }
    KELP_CATCH_ALL {
        return KXE_FAIL;
    }
}

KXRESULT CConversionManager::KXBIHToBIH(const KXBMINFOHEADER* kxbih, KXWINBITMAPINFOHEADER** out,
                                        IAllocator* allocator) {
    try {
        // No readability test of the record comes first, and no trace: a record that
        // cannot be read, or nowhere to put the result, is a caught failure.
        if (!kxbih || !os::IsReadable(kxbih, kWinExtStart) || !out || !allocator) return KXE_FAIL;
        // Too short to hold the words read here.
        if (kxbih->biSize < kWinExtStart) return KXE_INVALID;

        const uint32_t palette = ReadablePalette(kxbih, kxbih->biSize,
                                                 PaletteBytes(kxbih->biBitCount, kxbih->biClrUsed));
        // The extension and the 4-byte offset word in front of it.
        uint32_t ext = 0;
        if (kxbih->bmiExtOffset != 0) {
            ext = kxbih->biSize - 140;
            // The extension must lie inside the record as its size states.
            if (kxbih->biSize < KXBMI_SIZE ||
                uint64_t(kxbih->bmiExtOffset) + (ext - 4) > kxbih->biSize)
                return KXE_INVALID;
            if (!os::IsReadable(kxbih, kxbih->biSize)) return KXE_FAIL;
        }
        const uint64_t total = uint64_t(kWinHeaderBytes) + ext + palette;
        void* block = total > 0xFFFFFFFFu ? nullptr : allocator->Allocate(unsigned(total), 0);
        if (!block) {
            // The size reported is that of the full record, not the one asked for.
            dbgPrintf(8, 2, L"CConversionManager::KXBIHToBIH: Allocation of %d bytes Failed!\r\n",
                      int(KXBMI_SIZE + ext + palette));
            return KXE_OUTOFMEMORY;
        }
        auto* win = static_cast<KXWINBITMAPINFOHEADER*>(block);
        std::memcpy(win, kxbih, kWinHeaderBytes);
        if (ext) {
            std::memcpy(Bytes(win) + kWinExtStart, Bytes(kxbih) + kxbih->bmiExtOffset, ext - 4);
            const uint32_t offset = kWinExtStart;
            std::memcpy(Bytes(win) + kWinExtOffsetWord, &offset, 4);
        }
        win->biSize = kWinHeaderBytes + ext;
        // The colour table's room is there but its bytes are not copied: the caller fills
        // it.
        *out = win;
        return KX_OK;
    }
    KELP_CATCH_ALL {
        return KXE_FAIL;
    }
}

} // namespace kelp
