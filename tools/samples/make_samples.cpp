// kelp_samples DIR: writes the project's own sample image files, one or more of every
// format the library reads, into DIR. The demo converts them; the fuzz targets start
// from them.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "samples.h"

using namespace kelptest;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: kelp_samples DIR\n");
        return 2;
    }
    const std::string dir = argv[1];
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    const Img photo = Pattern(160, 120, false);
    const Img clear = Pattern(96, 64, true);
    const Img small = Pattern(32, 24, false);
    const Bytes thumb = JpegFile(small, 85);
    const std::vector<std::pair<std::string, Bytes>> files = {
        {"photo.jpg", JpegFile(photo, 90)},
        {"camera-turned.jpg", JpegFile(photo, 90, 6, &thumb)},
        {"grey.jpg", JpegFile(photo, 90, 0, nullptr, true)},
        {"rgb.png", PngFile(photo, kPngRgb)},
        {"alpha.png", PngFile(clear, kPngRgba)},
        {"palette.png", PngFile(clear, kPngPalette4)},
        {"interlaced.png", PngFile(clear, kPngInterlaced)},
        {"rgb.tif", TiffFile(photo, kTiffRgb, &small)},
        {"alpha.tif", TiffFile(clear, kTiffRgba)},
        {"tiled.tif", TiffFile(photo, kTiffTiledLzw)},
        {"rgb.bmp", BmpFile(photo, kBmp24)},
        {"alpha.bmp", BmpFile(clear, kBmp32)},
        {"rle8.bmp", BmpFile(photo, kBmpRle8)},
        {"rle4.bmp", BmpFile(photo, kBmpRle4)},
        {"mono.bmp", BmpFile(photo, kBmp1)},
        {"rgb565.bmp", BmpFile(photo, kBmp565)},
        {"stamp.tga", TgaFile(photo, kTga24, &small)},
        {"alpha.tga", TgaFile(clear, kTga32)},
        {"rle.tga", TgaFile(photo, kTga24Rle)},
        {"mapped.tga", TgaFile(photo, kTgaMapped)},
        {"rgb.pcx", PcxFile(photo, kPcx24)},
        {"palette.pcx", PcxFile(photo, kPcx8)},
        {"planes.pcx", PcxFile(photo, kPcx4Planes)},
        {"layers.psd", PsdFile(clear, kPsdRgbRleAlpha, &thumb)},
        {"grey.psd", PsdFile(photo, kPsdGreyRle)},
        {"indexed.psd", PsdFile(photo, kPsdIndexed)},
        {"cmyk.psd", PsdFile(photo, kPsdCmyk)},
        {"drawing.wmf", WmfFile(2880, 1440, 1440)},
    };
    for (const auto& f : files) {
        if (!WriteBytes(dir + "/" + f.first, f.second)) {
            std::fprintf(stderr, "kelp_samples: cannot write %s/%s\n", dir.c_str(),
                         f.first.c_str());
            return 1;
        }
    }
    std::printf("%zu sample files in %s\n", files.size(), dir.c_str());
    return 0;
}
