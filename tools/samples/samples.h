// Sample pictures and the files that hold them, made here: a reference picture, and
// small writers for every format the library reads (with the outside libraries where
// they write the format, by hand where they do not). The tests, the fuzz seeds and the
// demo's samples all come from these.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct tagKXBMINFOHEADER;

namespace kelptest {

typedef std::vector<uint8_t> Bytes;

// A picture, top row first, each pixel 0xAARRGGBB.
struct Img {
    int32_t w = 0, h = 0;
    std::vector<uint32_t> px;
    uint32_t At(int32_t x, int32_t y) const { return px[size_t(y) * size_t(w) + size_t(x)]; }
    uint32_t& At(int32_t x, int32_t y) { return px[size_t(y) * size_t(w) + size_t(x)]; }
};

// Smooth colour ramps with a few sharp edges; alpha ramps too when asked, else 255.
Img Pattern(int32_t w, int32_t h, bool alpha);
// Every pixel with its alpha set to 255.
Img Opaque(const Img& img);
// The picture as an orientation code of a camera says to show it.
Img Turn(const Img& img, uint32_t orientation);
// Colours reduced as a file of fewer bits stores them.
Img Grey(const Img& img);  // the green channel as grey
Img To555(const Img& img); // 5 bits a channel
Img To565(const Img& img); // 5, 6, 5 bits
// A picture of `colors` colours (2, 4, 16 or 256) and its indices.
Img Indexed(int32_t w, int32_t h, uint32_t colors, std::vector<uint8_t>* indices,
            std::vector<uint32_t>* palette);
// Peak signal-to-noise ratio of the colour channels, in decibels (99 for identical).
double Psnr(const Img& a, const Img& b);
// The picture of a loaded 24- or 32-bit bottom-up image (24 bits read as alpha 255).
Img FromDib(const tagKXBMINFOHEADER* desc, const void* pixels);

// ---- files
enum BmpKind {
    kBmp24,
    kBmp32,
    kBmp8,
    kBmp4,
    kBmp1,
    kBmp555,
    kBmp565,
    kBmpRle8,
    kBmpRle4,
    kBmpTopDown,
    kBmpCore
};
// The picture each kind stores for `img` (the index kinds store Indexed(...)).
Img BmpExpected(const Img& img, BmpKind kind);
Bytes BmpFile(const Img& img, BmpKind kind);

enum TgaKind { kTga24, kTga32, kTga24Rle, kTgaGrey, kTgaMapped, kTgaTopDown };
Img TgaExpected(const Img& img, TgaKind kind);
// With a stamp of `stamp` when given (stored as the picture is, uncompressed).
Bytes TgaFile(const Img& img, TgaKind kind, const Img* stamp = nullptr);

enum PcxKind { kPcx24, kPcx8, kPcx1, kPcx4Planes };
Img PcxExpected(const Img& img, PcxKind kind);
Bytes PcxFile(const Img& img, PcxKind kind);

enum PsdKind { kPsdRgb, kPsdRgbRleAlpha, kPsdGreyRle, kPsdIndexed, kPsdRgb16, kPsdCmyk };
Img PsdExpected(const Img& img, PsdKind kind);
// With the thumbnail resource holding `thumbJpeg` when given.
Bytes PsdFile(const Img& img, PsdKind kind, const Bytes* thumbJpeg = nullptr);

enum PngKind {
    kPngRgb,
    kPngRgba,
    kPngGrey,
    kPngPalette4,
    kPngGrey16,
    kPngInterlaced,
    kPngPaletteAlpha
};
Img PngExpected(const Img& img, PngKind kind);
Bytes PngFile(const Img& img, PngKind kind);

enum TiffKind { kTiffRgb, kTiffRgba, kTiffPalette, kTiffGrey, kTiffTiledLzw };
Img TiffExpected(const Img& img, TiffKind kind);
// With a reduced copy `stamp` as the second picture when given.
Bytes TiffFile(const Img& img, TiffKind kind, const Img* stamp = nullptr);

// A JPEG file; with EXIF data holding the orientation (if not 0) and the thumbnail (if
// given).
Bytes JpegFile(const Img& img, int quality, uint32_t orientation = 0,
               const Bytes* thumbJpeg = nullptr, bool grey = false);

// A placeable metafile of `w` x `h` units at `unitsPerInch`: a white page with a red
// rectangle over its middle third.
Bytes WmfFile(int w, int h, int unitsPerInch);

bool WriteBytes(const std::string& path, const Bytes& bytes);
Bytes ReadBytes(const std::string& path);

} // namespace kelptest
