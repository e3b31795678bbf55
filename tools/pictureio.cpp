#include "pictureio.h"

#include <kelp/kelp.h>

#include <algorithm>
#include <cstring>
#include <fstream>

#include "imagetool.h"

bool ReadPicture(const std::string& path, testpic::Picture* picture, std::string* error) {
    std::wstring wide;
    if (!imagetool::Wide(path, &wide)) {
        *error = path + ": the name is not UTF-8";
        return false;
    }
    if (!std::ifstream(path, std::ios::binary)) {
        *error = "cannot open " + path;
        return false;
    }
    kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    if (!io) {
        *error = "out of memory";
        return false;
    }
    kelp::CCppAllocator allocator;
    KXBMINFOHEADER* info = nullptr;
    if (KX_FAILED(io->GetImageInfo(wide.c_str(), &info, &allocator))) {
        io->Release();
        *error = path + ": not an image file the library reads";
        return false;
    }
    KXBMINFOHEADERYUV desc = {};
    std::memcpy(&desc, info, std::min<size_t>(info->biSize, sizeof desc));
    desc.bmi.biSize = KXBMI_SIZE;
    allocator.Free(info);
    kelp::ImageLoadOptions load = {sizeof(kelp::ImageLoadOptions), 24u, 0u, 0, 0, 0};
    void* pixels = nullptr;
    const bool loaded =
        KX_SUCCEEDED(io->LoadImage(wide.c_str(), &desc.bmi, &pixels, &allocator, &load));
    io->Release();
    if (!loaded) {
        *error = path + ": cannot be read (damaged, or too large)";
        return false;
    }
    *picture = testpic::FromDib(static_cast<const uint8_t*>(pixels), desc.bmi);
    allocator.Free(pixels);
    return true;
}

bool WritePicturePng(const std::string& path, const testpic::Picture& picture, std::string* error) {
    std::wstring wide;
    if (!imagetool::Wide(path, &wide)) {
        *error = path + ": the name is not UTF-8";
        return false;
    }
    const KXBMINFOHEADER record = testpic::DibRecord(picture.width, picture.height, 24);
    const std::vector<uint8_t> bits = testpic::ToDib(picture, record);
    if (KX_FAILED(kelp::SavePNGImage(wide.c_str(), &record, bits.data()))) {
        *error = path + ": cannot be written";
        return false;
    }
    return true;
}
