// Still-image files: information, loading and saving through one IImageIO object.
// Reads TIFF, TGA, JPEG, BMP, PNG, PCX, PSD, Windows metafiles and the library's own
// ".BSI" dumps (a descriptor and its pixels as they are in memory); writes ".bmp",
// ".tif", ".tga", ".jpg" and ".bsi", chosen by the extension of the path. Loaded
// images come as uncompressed RGB of 24 or 32 bits, rows bottom-up, each padded to 4
// bytes. Every failure is KXE_IMAGEFILE, with a line on the trace.
//
//     kelp::IImageIO* io = CreateImageIO(0x10000, nullptr);
//     KXBMINFOHEADER* desc = nullptr;
//     io->GetImageInfo(L"photo.jpg", &desc, allocator);       // a 144-byte record
//     void* pixels = nullptr;
//     kelp::ImageLoadOptions o = {24, 32, 0, 0, 0, 0};         // at 32 bits
//     io->LoadImage(L"photo.jpg", desc, &pixels, allocator, &o);
//     io->SaveImage(L"copy.tga", desc, pixels, nullptr);
//     io->Release();
#pragma once

#include "alloc.h"
#include "kelpdefs.h"
#include "kxbih.h"

// The interface version of IImageIO.
constexpr uint32_t KXIMAGEIO_VERSION = 0x10000;

// Bits of ImageLoadOptions::dwFlags.
constexpr uint32_t IMAGELOAD_STAMP = 0x1;  // the stamp (preview) stored in the file, if any
constexpr uint32_t IMAGELOAD_RESIZE = 0x2; // resized to nWidth x nHeight
// Bits of ImageSaveOptions::dwFlags.
constexpr uint32_t IMAGESAVE_FLATTEN24 = 0x4; // ".bmp": bring the image to 24 bits first

// Not read; reserved for the creator's wishes.
struct tagImageIOInit;

namespace kelp {

typedef struct tagImageLoadOptions {
    uint32_t dwSize;     // the record's size; below 24 the flags are not read
    uint32_t dwBitCount; // 24 or 32 asks for that depth; anything else keeps the file's
    uint32_t dwFlags;    // IMAGELOAD_*
    uint32_t dwReserved;
    uint32_t nWidth;  // target width of a resized load, 0 for none
    uint32_t nHeight; // target height of a resized load, 0 for none
} ImageLoadOptions;

typedef struct tagImageSaveOptions {
    uint32_t dwSize; // 24
    uint32_t dwReserved1;
    uint32_t dwFlags;   // IMAGESAVE_*
    uint32_t dwQuality; // per cent; above 100 counts as 100. Without a record: 100
    uint32_t dwReserved2[2];
} ImageSaveOptions;

static_assert(sizeof(ImageLoadOptions) == 24, "ImageLoadOptions");
static_assert(offsetof(ImageLoadOptions, dwSize) == 0 &&
                  offsetof(ImageLoadOptions, dwBitCount) == 4 &&
                  offsetof(ImageLoadOptions, dwFlags) == 8 &&
                  offsetof(ImageLoadOptions, dwReserved) == 12 &&
                  offsetof(ImageLoadOptions, nWidth) == 16 &&
                  offsetof(ImageLoadOptions, nHeight) == 20,
              "ImageLoadOptions layout");
static_assert(sizeof(ImageSaveOptions) == 24, "ImageSaveOptions");
static_assert(offsetof(ImageSaveOptions, dwSize) == 0 &&
                  offsetof(ImageSaveOptions, dwReserved1) == 4 &&
                  offsetof(ImageSaveOptions, dwFlags) == 8 &&
                  offsetof(ImageSaveOptions, dwQuality) == 12 &&
                  offsetof(ImageSaveOptions, dwReserved2) == 16,
              "ImageSaveOptions layout");

class KELP_API IImageIO {
  public:
    virtual ~IImageIO() {}
    virtual void Release() = 0;
    virtual uint32_t GetVersion() = 0; // KXIMAGEIO_VERSION
    // A 144-byte RGB record of the file's picture (at least 24 bits), allocated through
    // `allocator` into *desc; with a null `desc` the file is only checked. A ".BSI"
    // file gives its own record.
    virtual KXRESULT GetImageInfo(const wchar_t* path, KXBMINFOHEADER** desc,
                                  IAllocator* allocator) = 0;
    // The picture's pixels, allocated through `allocator` into *pixels. Writes width,
    // height, bit count, image size and alpha state into `desc`, which the caller has
    // prepared (GetImageInfo's record serves); a ".BSI" file fills the caller's record
    // up to the caller's biSize, which stays.
    virtual KXRESULT LoadImage(const wchar_t* path, KXBMINFOHEADER* desc, void** pixels,
                               IAllocator* allocator, const ImageLoadOptions* options) = 0;
    virtual KXRESULT SaveImage(const wchar_t* path, const KXBMINFOHEADER* desc, const void* pixels,
                               const ImageSaveOptions* options) = 0;
    // The filter text of a file dialog for the formats the object knows.
    virtual const wchar_t* GetFileFilter() = 0;
};

// What the library sees in an image file beyond its descriptor.
typedef struct tagKXIMAGEFILEDETAILS {
    uint32_t dwSize;   // set by the caller: sizeof(KXIMAGEFILEDETAILS)
    uint32_t dwFormat; // the format code; 15 for a metafile, 141 for a refused format
    int32_t nWidth;    // as stored, before the orientation is applied
    int32_t nHeight;
    uint32_t dwBitCount;    // the file's own depth
    uint32_t dwOrientation; // 1 to 8 as cameras write it; 5 to 8 load turned by a quarter
    uint32_t dwFlags;       // 4: the file stores a stamp
    int32_t nStampWidth;    // the stamp's size where the file tells it, else 0
    int32_t nStampHeight;
    int32_t nResolution;      // dots per inch across, 0 if the file does not say
    const wchar_t* pszFormat; // short name: "JPEG", "PNG", "TIFF", ..., "BSI"
} KXIMAGEFILEDETAILS;

// Fills `details` for the file at `path`. KX_OK or KXE_IMAGEFILE.
KELP_API KXRESULT GetImageFileDetails(const wchar_t* path, KXIMAGEFILEDETAILS* details);

// Writes an image to `path` as a PNG file: uncompressed RGB of 24 or 32 bits, colour
// bytes in blue, green, red (alpha) order, rows as the record says (bottom-up unless
// biHeight is negative, padded to bmiAlignment or 4 bytes). 24 bits give 8-bit RGB; 32
// bits give RGBA, with premultiplied colours (bmiAlpha 2) divided back by their alpha,
// or RGB where bmiAlpha says the fourth byte holds nothing (1). The file is made in
// memory and then written. KX_OK, or KXE_IMAGEFILE with a line on the trace.
KELP_API KXRESULT SavePNGImage(const wchar_t* path, const KXBMINFOHEADER* desc, const void* bits);

} // namespace kelp

// A new image file object, or null for a version above 0x10000 or when memory runs out.
// `init` is not read.
extern "C" KELP_API kelp::IImageIO* CreateImageIO(uint32_t version, const tagImageIOInit* init);
