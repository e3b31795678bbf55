// fuzz_seeds DIR: the seeds of the fuzz targets, one folder each under DIR, made by the
// project's sample writers.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "samples.h"

using namespace kelptest;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_seeds DIR\n");
        return 2;
    }
    const std::string dir = argv[1];
    // Small pictures: the fuzzer mutates them faster.
    const Img p = Pattern(13, 9, true);
    const Img s = Pattern(4, 3, false);
    const Bytes thumb = JpegFile(s, 80);
    const Bytes camera = JpegFile(p, 80, 6, &thumb);
    // The EXIF data of the camera file: behind FF D8, FF E1, the length and "Exif\0\0".
    const Bytes exif(camera.begin() + 12, camera.begin() + 4 + ((camera[4] << 8) | camera[5]));
    const std::vector<std::pair<std::string, Bytes>> seeds = {
        {"bmp/rgb.bmp", BmpFile(p, kBmp24)},
        {"bmp/alpha.bmp", BmpFile(p, kBmp32)},
        {"bmp/rle8.bmp", BmpFile(p, kBmpRle8)},
        {"bmp/rle4.bmp", BmpFile(p, kBmpRle4)},
        {"bmp/565.bmp", BmpFile(p, kBmp565)},
        {"bmp/core.bmp", BmpFile(p, kBmpCore)},
        {"bmp/mono.bmp", BmpFile(p, kBmp1)},
        {"tga/rgb.tga", TgaFile(p, kTga24)},
        {"tga/stamp.tga", TgaFile(p, kTga32, &s)},
        {"tga/rle.tga", TgaFile(p, kTga24Rle)},
        {"tga/mapped.tga", TgaFile(p, kTgaMapped)},
        {"tga/grey.tga", TgaFile(p, kTgaGrey)},
        {"pcx/rgb.pcx", PcxFile(p, kPcx24)},
        {"pcx/palette.pcx", PcxFile(p, kPcx8)},
        {"pcx/mono.pcx", PcxFile(p, kPcx1)},
        {"pcx/planes.pcx", PcxFile(p, kPcx4Planes)},
        {"psd/rgb.psd", PsdFile(p, kPsdRgb)},
        {"psd/layers.psd", PsdFile(p, kPsdRgbRleAlpha, &thumb)},
        {"psd/grey.psd", PsdFile(p, kPsdGreyRle)},
        {"psd/indexed.psd", PsdFile(p, kPsdIndexed)},
        {"psd/rgb16.psd", PsdFile(p, kPsdRgb16)},
        {"psd/cmyk.psd", PsdFile(p, kPsdCmyk)},
        {"exif/camera.tiff", exif},
        {"exif/camera.jpg", camera},
    };
    for (const auto& f : seeds) {
        const std::string path = dir + "/" + f.first;
        std::error_code ec;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
        if (!WriteBytes(path, f.second)) {
            std::fprintf(stderr, "fuzz_seeds: cannot write %s\n", path.c_str());
            return 1;
        }
    }
    return 0;
}
