// kelp info FILE: what the library sees in an image file: the record GetImageInfo gives
// (size, depth, image bytes), the format, the file's own depth and resolution, the
// stamp it stores, and the orientation a camera wrote.
#include <kelp/kelp.h>

#include <cstdio>
#include <memory>
#include <string>

#include "cli.h"
#include "commands.h"
#include "convert_yuv.h"
#include "imagetool.h"

namespace {

const char* OrientationText(uint32_t o) {
    switch (o) {
    case 1:
        return "1 (upright)";
    case 2:
        return "2 (mirrored; loaded as stored)";
    case 3:
        return "3 (upside down; loaded as stored)";
    case 4:
        return "4 (flipped; loaded as stored)";
    case 5:
        return "5 (transposed; loaded turned)";
    case 6:
        return "6 (turned a quarter; loaded turned clockwise)";
    case 7:
        return "7 (transversed; loaded turned)";
    case 8:
        return "8 (turned a quarter; loaded turned counter-clockwise)";
    default:
        return "unknown";
    }
}

int RunInfo(const std::string& path) {
    std::wstring wpath;
    if (!imagetool::Wide(path, &wpath)) {
        std::fprintf(stderr, "kelp info: %s: the name is not UTF-8\n", path.c_str());
        return 1;
    }
    kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    if (!io) {
        std::fprintf(stderr, "kelp info: out of memory\n");
        return 1;
    }
    kelp::CCppAllocator allocator;
    KXBMINFOHEADER* desc = nullptr;
    kelp::KXIMAGEFILEDETAILS details = {};
    details.dwSize = sizeof details;
    const bool read = KX_SUCCEEDED(io->GetImageInfo(wpath.c_str(), &desc, &allocator)) &&
                      KX_SUCCEEDED(kelp::GetImageFileDetails(wpath.c_str(), &details));
    io->Release();
    if (!read) {
        if (desc) allocator.Free(desc);
        std::fprintf(stderr, "kelp info: %s: not an image file the library reads\n", path.c_str());
        return 1;
    }
    const bool turned = details.dwOrientation >= 5 && details.dwOrientation <= 8;
    std::printf("file:         %s\n", path.c_str());
    std::printf("format:       %ls\n", details.pszFormat ? details.pszFormat : L"?");
    std::printf("size:         %d x %d\n", desc->biWidth, desc->biHeight);
    if (turned) std::printf("loads as:     %d x %d\n", desc->biHeight, desc->biWidth);
    std::printf("bits:         %d (the file holds %u)\n", int(desc->biBitCount),
                details.dwBitCount);
    std::printf("image bytes:  %u\n", desc->biSizeImage);
    if (desc->biCompression != KXBI_RGB)
        std::printf("compression:  %ls\n", kelp::DIBFormatName(desc));
    if (desc->biCompression == KXBI_YUV) kelptool::PrintYuvInfo(desc);
    if (details.nResolution > 0)
        std::printf("resolution:   %d dpi\n", details.nResolution);
    else
        std::printf("resolution:   not stated\n");
    std::printf("orientation:  %s\n", OrientationText(details.dwOrientation));
    if (imagetool::Extension(path) == "bsi") { // the library's own record keeps these
        const int mode = kelp::DIBFieldMode(desc);
        std::printf("pixel ratio:  %.4g (%u:%u)\n",
                    double(kelp::DIBRatioX(desc)) / double(kelp::DIBRatioY(desc)),
                    kelp::DIBRatioX(desc), kelp::DIBRatioY(desc));
        std::printf("scan:         %s\n", mode == KXFIELD_PROGRESSIVE  ? "progressive"
                                          : mode == KXFIELD_INTERLACED ? "interlaced"
                                                                       : "interlaced, the other "
                                                                         "field first in time");
    }
    if (details.dwFlags & 4) {
        if (details.nStampWidth > 0)
            std::printf("stamp:        %d x %d\n", details.nStampWidth, details.nStampHeight);
        else
            std::printf("stamp:        yes\n");
    } else {
        std::printf("stamp:        none\n");
    }
    allocator.Free(desc);
    return 0;
}

} // namespace

void AddInfoCommand(CLI::App& app) {
    auto path = std::make_shared<std::string>();
    CLI::App* cmd = kelptool::AddCommand(app, "info", "What the library sees in an image file.",
                                         [path](const CLI::App&) { return RunInfo(*path); });
    kelptool::Describe(*cmd,
                       "Prints the size, bits per pixel and image bytes the library loads the\n"
                       "file with, its format, the file's own depth and resolution (dots per\n"
                       "inch), the stamp (thumbnail) it stores, and the orientation a camera\n"
                       "wrote (1 upright to 8; 5 to 8 load turned a quarter).");
    cmd->add_option("FILE", *path, "the image file")->required()->type_name("");
}
