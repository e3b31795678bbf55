// The image file part of kelp demo: the demo's picture written in every format the
// library writes and read back, and the project's sample files converted to .bmp.
#include <kelp/kelp.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "imagetool.h"
#include "progress.h"

namespace imagetool {

namespace {

struct Loaded {
    KXBMINFOHEADERYUV desc;
    void* pixels = nullptr;
};

// A file loaded at `bits` (0: its own depth, at least 24) into `l`.
bool LoadFile(kelp::IImageIO* io, const std::string& path, uint32_t bits,
              kelp::IAllocator* allocator, Loaded* l) {
    std::wstring w;
    KXBMINFOHEADER* info = nullptr;
    if (!Wide(path, &w) || KX_FAILED(io->GetImageInfo(w.c_str(), &info, allocator))) return false;
    std::memset(&l->desc, 0, sizeof l->desc);
    std::memcpy(&l->desc, info, std::min<size_t>(info->biSize, sizeof l->desc));
    l->desc.bmi.biSize = KXBMI_SIZE;
    allocator->Free(info);
    kelp::ImageLoadOptions o = {sizeof o, bits, 0, 0, 0, 0};
    return KX_SUCCEEDED(io->LoadImage(w.c_str(), &l->desc.bmi, &l->pixels, allocator, &o));
}

bool Save(kelp::IImageIO* io, const std::string& path, const KXBMINFOHEADER* desc,
          const void* pixels, uint32_t flags, uint32_t quality = 100) {
    std::wstring w;
    kelp::ImageSaveOptions o = {sizeof o, 0, flags, quality, {0, 0}};
    return Wide(path, &w) && KX_SUCCEEDED(io->SaveImage(w.c_str(), desc, pixels, &o));
}

bool Check(bool ok, const std::string& what) {
    std::printf("%-34s %s\n", what.c_str(), ok ? "ok" : "FAILED");
    return ok;
}

} // namespace

bool DemoImageFiles(const std::string& outDir, const std::string& samplesDir,
                    const KXBMINFOHEADER* image, const void* pixels) {
    kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    if (!io) return Check(false, "image file object");
    kelp::CCppAllocator allocator;
    std::error_code ec;
    const std::string files = outDir + "/files", converted = outDir + "/converted";
    std::filesystem::create_directories(files, ec);
    bool ok = true;

    // Written in each format, read back: exact where the format keeps every bit.
    struct Format {
        const char* ext;
        bool exact;
    } formats[] = {{"tga", true}, {"tif", false}, {"jpg", false}, {"bsi", true}, {"bmp", true}};
    for (const Format& f : formats) {
        const std::string path = files + "/image." + f.ext;
        bool step = Save(io, path, image, pixels, 0, 90);
        Loaded back;
        step = step && LoadFile(io, path, 32, &allocator, &back);
        if (step && f.exact)
            step = back.desc.bmi.biSizeImage == image->biSizeImage &&
                   std::memcmp(back.pixels, pixels, image->biSizeImage) == 0;
        if (step && !f.exact)
            step = back.desc.bmi.biWidth == image->biWidth &&
                   back.desc.bmi.biHeight == image->biHeight;
        ok &= Check(step, std::string("image file .") + f.ext +
                              (f.exact ? ": read back exactly" : ": read back"));
        if (back.pixels) allocator.Free(back.pixels);
    }

    if (!samplesDir.empty()) {
        std::filesystem::create_directories(converted, ec);
        std::vector<std::filesystem::path> samples;
        for (const auto& e : std::filesystem::directory_iterator(samplesDir, ec))
            if (e.is_regular_file()) samples.push_back(e.path());
        std::sort(samples.begin(), samples.end());
        int count = 0, failed = 0;
        std::vector<std::string> failures;
        kelptool::Progress progress("converting samples", int64_t(samples.size()));
        for (const auto& path : samples) {
            const std::string name = path.filename().string();
            Loaded l;
            // Flattened to 24 bits through the conversion manager, so that any viewer
            // shows it.
            const bool step = LoadFile(io, path.string(), 0, &allocator, &l) &&
                              Save(io, converted + "/" + name + ".bmp", &l.desc.bmi, l.pixels,
                                   IMAGESAVE_FLATTEN24);
            if (l.pixels) allocator.Free(l.pixels);
            ++count;
            if (!step) {
                ++failed;
                failures.push_back(name);
            }
            progress.Update(count);
        }
        progress.Finish();
        for (const std::string& name : failures)
            std::printf("%-34s FAILED\n", ("sample " + name).c_str());
        ok &=
            Check(failed == 0 && count > 0, "samples converted (" + std::to_string(count - failed) +
                                                "/" + std::to_string(count) + ")");
    }
    io->Release();
    std::printf("see %s/files/ (image.tga, .tif, .jpg, .bsi, .bmp)%s\n", outDir.c_str(),
                samplesDir.empty() ? "" : " and converted/ (each sample as .bmp)");
    return ok;
}

} // namespace imagetool
