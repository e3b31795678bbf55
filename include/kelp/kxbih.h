// The image descriptor: the one record that describes every image the library handles.
// It is a Windows BITMAPINFOHEADER with a fixed extension behind it, 144 bytes, and 160
// with the YUV extension. The record crosses module boundaries and is written to files
// as it is, so its byte layout is fixed; all words are little-endian.
#pragma once

#include <cstddef>

#include "kelpdefs.h"

// ---------------------------------------------------------------- format codes

constexpr uint32_t KXBI_RGB = 0;                             // uncompressed RGB, "RGB "
constexpr uint32_t KXBI_YUV = KXFOURCC('@', 'Y', 'U', 'V');  // YUV with the extension record
constexpr uint32_t KXBI_RGBZ = KXFOURCC('R', 'G', 'B', 'z'); // RGB + 4 bytes a pixel (toolkit)
constexpr uint32_t KXBI_YUVZ = KXFOURCC('Y', 'U', 'V', 'z'); // YUV + 4 bytes a pixel (toolkit)
constexpr uint32_t KXBI_MPGI = KXFOURCC('M', 'P', 'G', 'I'); // codec data, sized like rows
constexpr uint32_t KXBI_DVSD = KXFOURCC('D', 'V', 'S', 'D');
constexpr uint32_t KXBI_DVCS = KXFOURCC('D', 'V', 'C', 'S');
static_assert(KXBI_YUV == 0x56555940u && KXBI_RGBZ == 0x7A424752u && KXBI_YUVZ == 0x7A565559u &&
                  KXBI_MPGI == 0x4947504Du && KXBI_DVSD == 0x44535644u && KXBI_DVCS == 0x53435644u,
              "format codes");

// "BLUE" in file order: written into bmiMagic by every function that makes a record.
// Nothing reads it to decide anything.
constexpr uint32_t KXBMI_MAGIC = KXFOURCC('B', 'L', 'U', 'E');
static_assert(KXBMI_MAGIC == 0x45554C42u, "magic");

// Sizes of the record and the offset of the YUV extension.
constexpr uint32_t KXBMI_SIZE = 144;
constexpr uint32_t KXBMI_SIZE_YUV = 160;
constexpr uint32_t KXBMI_EXTOFFSET = 144;

// ---------------------------------------------------------------- alpha states (bmiAlpha)

constexpr uint32_t KXDIB_ALPHA_VALID = 0;         // the fourth byte is straight alpha
constexpr uint32_t KXDIB_ALPHA_OPAQUE = 1;        // the fourth byte holds nothing of use
constexpr uint32_t KXDIB_ALPHA_PREMULTIPLIED = 2; // colour bytes multiplied by alpha

// ---------------------------------------------------------------- bmiFormat flags

constexpr uint32_t KXBMIFORMAT_TWOFIELDS = 0x1;       // the two fields are stored apart
constexpr uint32_t KXBMIFORMAT_FIELDSWAP = 0x10;      // read by the 2-D transform only
constexpr uint32_t KXBMIFORMAT_ODDEVEN_CHRONO = 0x20; // interlaced, other field order in time

// Bit 3 of bmiFlags: traced as Z, ignored when two records are compared.
constexpr uint32_t KXBMIFLAGS_Z = 0x8;

// ---------------------------------------------------------------- field modes

constexpr int KXFIELD_PROGRESSIVE = 0; // bmiFrame 1
constexpr int KXFIELD_INTERLACED = 1;  // bmiFrame not 1, chrono flag clear
constexpr int KXFIELD_CHRONO = 2;      // bmiFrame not 1, chrono flag set

// ---------------------------------------------------------------- YUV extension

// Sampling codes of yuvSampling.
constexpr uint32_t KXYUV_SAMPLING_444 = 16;
constexpr uint32_t KXYUV_SAMPLING_422 = 0;
constexpr uint32_t KXYUV_SAMPLING_422B = 512;
constexpr uint32_t KXYUV_SAMPLING_411 = 32;
constexpr uint32_t KXYUV_SAMPLING_420 = 64;

// The extension of a YUV record, at offset 144 (bmiExtOffset).
typedef struct tagKXYUVEXT {
    uint32_t yuvColorSpace;  // CKXCsc ColorSpace: 0 CCIR601, 1 Normalized, 2 ITU709
    uint32_t yuvBits;        // bits per component, 0 reading as 8
    uint32_t yuvSampling;    // KXYUV_SAMPLING_*
    uint32_t yuvSamplingAux; // must be 0
} KXYUVEXT;

// ---------------------------------------------------------------- the record

typedef struct tagKXRECT {
    int32_t left;   // inclusive
    int32_t top;    // inclusive
    int32_t right;  // exclusive
    int32_t bottom; // exclusive
} KXRECT;

typedef struct tagKXBMINFOHEADER {
    uint32_t biSize;         // size with the format extension; offset of the colour table
    int32_t biWidth;         // pixels
    int32_t biHeight;        // lines; the sign is the row order
    uint16_t biPlanes;       // conversion accepts only 1
    uint16_t biBitCount;     // bits per pixel, all planes together
    uint32_t biCompression;  // format code KXBI_*
    uint32_t biSizeImage;    // bytes of pixel data
    int32_t biXPelsPerMeter; // copied, not interpreted
    int32_t biYPelsPerMeter; // copied, not interpreted
    uint32_t biClrUsed;      // colour table entries; 0: 2^biBitCount below 16 bits
    uint32_t biClrImportant; // copied, not interpreted
    uint32_t bmiExtOffset;   // offset of the format extension, 0 if none, else 144
    uint32_t bmiMagic;       // KXBMI_MAGIC
    uint32_t bmiFlags;       // bit 3 (KXBMIFLAGS_Z) is ignored by comparisons
    uint32_t bmiAlpha;       // KXDIB_ALPHA_*
    uint32_t bmiFormat;      // KXBMIFORMAT_*
    KXRECT bmiRect;          // active rectangle; all 0 is the whole image
    uint32_t bmiReserved1[2];
    uint32_t bmiFrame; // 1 progressive, anything else interlaced
    uint32_t bmiReserved2[3];
    uint32_t bmiRatioX;       // pixel ratio, 16.16; 0 reads as 1.0
    uint32_t bmiRatioY;       // pixel ratio, 16.16; 0 reads as 1.0
    int32_t bmiAlignment;     // row alignment in bytes; 0 reads as 4
    uint32_t bmiReserved3[2]; // the first word is shown by the trace line
    int32_t bmiAnchorX;       // source anchor, raw 24.8, read by the 2-D transform only
    int32_t bmiAnchorY;
    uint32_t bmiReserved4;
    uint32_t bmiStride; // row size of the toolkit's images when not 0
    // The alpha plane of a 32-bit 4:2:2 image: its byte offset from the start of the
    // pixels (never an address, so that the record keeps its size and can be written to
    // a file as it is) and its row size.
    uint32_t bmiAlphaOffset;
    uint32_t bmiAlphaStride;
} KXBMINFOHEADER;

// A YUV record: the descriptor with its extension, 160 bytes.
typedef struct tagKXBMINFOHEADERYUV {
    KXBMINFOHEADER bmi;
    KXYUVEXT yuv;
} KXBMINFOHEADERYUV;

// The Windows form of the header (40 bytes), from which BIHToKXBIH makes a full record
// and which KXBIHToBIH gives back. Behind it may follow a 32-bit word with its own
// extension offset, the extension, and then the colour table at offset biSize.
typedef struct tagKXWINBITMAPINFOHEADER {
    uint32_t biSize;
    int32_t biWidth;
    int32_t biHeight;
    uint16_t biPlanes;
    uint16_t biBitCount;
    uint32_t biCompression;
    uint32_t biSizeImage;
    int32_t biXPelsPerMeter;
    int32_t biYPelsPerMeter;
    uint32_t biClrUsed;
    uint32_t biClrImportant;
} KXWINBITMAPINFOHEADER;

static_assert(sizeof(KXYUVEXT) == 16, "KXYUVEXT");
static_assert(sizeof(KXRECT) == 16, "KXRECT");
static_assert(sizeof(KXBMINFOHEADER) == 144, "KXBMINFOHEADER");
static_assert(sizeof(KXBMINFOHEADERYUV) == 160, "KXBMINFOHEADERYUV");
static_assert(sizeof(KXWINBITMAPINFOHEADER) == 40, "KXWINBITMAPINFOHEADER");
static_assert(offsetof(KXBMINFOHEADER, biSize) == 0 && offsetof(KXBMINFOHEADER, biWidth) == 4 &&
                  offsetof(KXBMINFOHEADER, biHeight) == 8 &&
                  offsetof(KXBMINFOHEADER, biPlanes) == 12 &&
                  offsetof(KXBMINFOHEADER, biBitCount) == 14 &&
                  offsetof(KXBMINFOHEADER, biCompression) == 16 &&
                  offsetof(KXBMINFOHEADER, biSizeImage) == 20 &&
                  offsetof(KXBMINFOHEADER, biXPelsPerMeter) == 24 &&
                  offsetof(KXBMINFOHEADER, biYPelsPerMeter) == 28 &&
                  offsetof(KXBMINFOHEADER, biClrUsed) == 32 &&
                  offsetof(KXBMINFOHEADER, biClrImportant) == 36,
              "KXBMINFOHEADER: Windows part");
static_assert(
    offsetof(KXBMINFOHEADER, bmiExtOffset) == 40 && offsetof(KXBMINFOHEADER, bmiMagic) == 44 &&
        offsetof(KXBMINFOHEADER, bmiFlags) == 48 && offsetof(KXBMINFOHEADER, bmiAlpha) == 52 &&
        offsetof(KXBMINFOHEADER, bmiFormat) == 56 && offsetof(KXBMINFOHEADER, bmiRect) == 60 &&
        offsetof(KXBMINFOHEADER, bmiRect.top) == 64 &&
        offsetof(KXBMINFOHEADER, bmiRect.right) == 68 &&
        offsetof(KXBMINFOHEADER, bmiRect.bottom) == 72 &&
        offsetof(KXBMINFOHEADER, bmiReserved1) == 76 && offsetof(KXBMINFOHEADER, bmiFrame) == 84 &&
        offsetof(KXBMINFOHEADER, bmiReserved2) == 88 &&
        offsetof(KXBMINFOHEADER, bmiRatioX) == 100 && offsetof(KXBMINFOHEADER, bmiRatioY) == 104 &&
        offsetof(KXBMINFOHEADER, bmiAlignment) == 108 &&
        offsetof(KXBMINFOHEADER, bmiReserved3) == 112 &&
        offsetof(KXBMINFOHEADER, bmiAnchorX) == 120 &&
        offsetof(KXBMINFOHEADER, bmiAnchorY) == 124 &&
        offsetof(KXBMINFOHEADER, bmiReserved4) == 128 &&
        offsetof(KXBMINFOHEADER, bmiStride) == 132 &&
        offsetof(KXBMINFOHEADER, bmiAlphaOffset) == 136 &&
        offsetof(KXBMINFOHEADER, bmiAlphaStride) == 140,
    "KXBMINFOHEADER: extension part");
static_assert(offsetof(KXBMINFOHEADERYUV, yuv) == 144 &&
                  offsetof(KXBMINFOHEADERYUV, yuv.yuvColorSpace) == 144 &&
                  offsetof(KXBMINFOHEADERYUV, yuv.yuvBits) == 148 &&
                  offsetof(KXBMINFOHEADERYUV, yuv.yuvSampling) == 152 &&
                  offsetof(KXBMINFOHEADERYUV, yuv.yuvSamplingAux) == 156,
              "KXBMINFOHEADERYUV");

namespace kelp {

// The YUV extension of a record: the 16 bytes at offset 144. Only meaningful when the
// record is at least 160 bytes long.
inline const KXYUVEXT* DIBYuv(const KXBMINFOHEADER* desc) {
    return reinterpret_cast<const KXYUVEXT*>(reinterpret_cast<const unsigned char*>(desc) +
                                             KXBMI_EXTOFFSET);
}
inline KXYUVEXT* DIBYuv(KXBMINFOHEADER* desc) {
    return reinterpret_cast<KXYUVEXT*>(reinterpret_cast<unsigned char*>(desc) + KXBMI_EXTOFFSET);
}

// ---------------------------------------------------------------- checks

// KX_OK, or KXE_INVALID for a record the conversion subsystem cannot handle: only
// uncompressed RGB of at least 144 bytes and meshed "@YUV" 4:4:4 pass, in one plane,
// with both fields together.
KELP_API KXRESULT ValidateBIH(const KXBMINFOHEADER* desc);
// True if the record's first 4 bytes and then biSize bytes can be read; otherwise
// traces and gives false.
KELP_API bool CheckBIHReadable(const KXBMINFOHEADER* desc);
// True if `size` bytes from `buffer` can be read; otherwise traces and gives false. A
// buffer off a 16-byte boundary passes, with a trace.
KELP_API bool CheckBuffer(const void* buffer, uint32_t size);

// ---------------------------------------------------------------- arithmetic

// `value` rounded up to a multiple of `alignment` (0 reads as 4), in 32-bit unsigned
// arithmetic: a negative value rounds as its two's complement word does.
KELP_API int32_t AlignUp(int32_t value, int32_t alignment);
KELP_API int32_t DIBBytesPerPixel(const KXBMINFOHEADER* desc);
// Bytes of one line of one plane (planes counted from 1), rounded up to 4. 0 for a
// record whose rows the library cannot size, with an assertion report where the
// record claims a YUV layout that the sizes do not cover.
KELP_API int32_t DIBRowBytes(const KXBMINFOHEADER* desc, int plane);
// Bytes of the whole pixel data, 0 (with an assertion report) for an impossible record.
// The product carries the sign of biHeight: a top-down record gives a negative size.
KELP_API int32_t DIBSize(const KXBMINFOHEADER* desc);
KELP_API int DIBFieldMode(const KXBMINFOHEADER* desc);
// bmiFrame := (mode is progressive), the chrono flag := (mode is chrono); other flags
// stay.
KELP_API void DIBSetFieldMode(KXBMINFOHEADER* desc, int mode);
// Short name of the pixel format: "BGRA", "BGR", "YUV444", "YUV422", ..., "???".
KELP_API const wchar_t* DIBFormatName(const KXBMINFOHEADER* desc);
KELP_API int32_t DIBAlignment(const KXBMINFOHEADER* desc); // 0 reads as 4
KELP_API uint32_t DIBRatioX(const KXBMINFOHEADER* desc);   // 0 reads as 0x10000
KELP_API uint32_t DIBRatioY(const KXBMINFOHEADER* desc);   // 0 reads as 0x10000

// ---------------------------------------------------------------- comparisons
// With which the manager and every stage judge two records. `flags` is the caller's
// conversion flags word (KXCONV_*).

KELP_API bool SameColorSpace(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t flags);
KELP_API bool SameBitCount(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t flags);
// Same size with signs, and then either a scale-to-fit flag without keep-aspect, or the
// same pixel ratio (0 reading as 1.0).
KELP_API bool SameGeometry(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t flags);
KELP_API bool SameScan(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t flags);
KELP_API bool SameFlags(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t flags);
KELP_API bool SameAlpha(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t flags);
KELP_API bool SameRect(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b, uint32_t flags);

// ---------------------------------------------------------------- traces

// The short form of two records, from and to, on one line at area 8, level 30:
// "(size,format,planes,bits,width,height,ratioX,ratioY,flags)->(...)\r\n".
KELP_API void dbgBIHPair(const KXBMINFOHEADER* from, const KXBMINFOHEADER* to);
// dbgBIH (the record's full trace line) is declared in trace.h.

} // namespace kelp
