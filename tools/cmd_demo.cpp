// kelp demo: a generated 32-bit image through the conversion manager. It takes the
// image's alpha out as an 8-bit image and puts it back, copies the image by an identity
// conversion, checks every step, and with --out DIR writes what it made as .bmp files.
// With --out it also writes the image through the image files (tga, tif, jpg, bsi),
// reads each back, and with --samples DIR converts every sample file found there.
#include <kelp/kelp.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "demo_compose.h"
#include "imagetool.h"
#include "progress.h"
#include "demo_deinterlace.h"

namespace {

constexpr int32_t kWidth = 96;
constexpr int32_t kHeight = 64;

const char* AlphaName(uint32_t alpha) {
    switch (alpha) {
    case KXDIB_ALPHA_VALID:
        return "straight alpha";
    case KXDIB_ALPHA_OPAQUE:
        return "opaque";
    case KXDIB_ALPHA_PREMULTIPLIED:
        return "premultiplied alpha";
    default:
        return "unknown alpha";
    }
}

void PrintDesc(const char* name, const KXBMINFOHEADER* d) {
    std::printf("%-10s %d x %d, %d bits, %ls, %u bytes, %s\n", name, d->biWidth, d->biHeight,
                int(d->biBitCount), kelp::DIBFormatName(d), d->biSizeImage,
                d->biBitCount == 32 ? AlphaName(d->bmiAlpha) : "no alpha");
    // The library's own line for the record, through its trace. Without a sink the
    // trace goes to the debug stream (standard error), switched on for this one line
    // unless the caller switched it on for everything.
    bool wasOn = std::getenv("KELP_DEBUG_OUTPUT") != nullptr;
    std::fflush(stdout);
    if (!wasOn) setenv("KELP_DEBUG_OUTPUT", "1", 1);
    kelp::dbgBIH(8, 30, std::wstring(name, name + std::strlen(name)).c_str(), d, kelp::pszNL);
    if (!wasOn) unsetenv("KELP_DEBUG_OUTPUT");
}

// A colour gradient over the image and an alpha that falls off from the centre.
KXBMINFOHEADER MakeImage(std::vector<unsigned char>* pixels) {
    KXBMINFOHEADER d;
    std::memset(&d, 0, sizeof d);
    d.biSize = KXBMI_SIZE;
    d.biWidth = kWidth;
    d.biHeight = kHeight; // bottom-up, as a .bmp file stores it
    d.biPlanes = 1;
    d.biBitCount = 32;
    d.biSizeImage = uint32_t(kWidth * kHeight * 4);
    d.bmiMagic = KXBMI_MAGIC;
    d.bmiFrame = 1;
    d.bmiAlpha = KXDIB_ALPHA_VALID;
    pixels->resize(d.biSizeImage);
    for (int32_t y = 0; y < kHeight; ++y) {
        for (int32_t x = 0; x < kWidth; ++x) {
            unsigned char* p = &(*pixels)[size_t(y * kWidth + x) * 4];
            int dx = 2 * x - kWidth, dy = 2 * y - kHeight;
            int r2 = (dx * dx + dy * dy) * 255 / (kWidth * kWidth / 2 + kHeight * kHeight / 2);
            p[0] = static_cast<unsigned char>(x * 255 / (kWidth - 1));       // blue
            p[1] = static_cast<unsigned char>(y * 255 / (kHeight - 1));      // green
            p[2] = static_cast<unsigned char>(255 - x * 255 / (kWidth - 1)); // red
            p[3] = static_cast<unsigned char>(r2 > 255 ? 0 : 255 - r2);      // alpha
        }
    }
    return d;
}

// A .bmp file: the Windows form of the record (made by the library), the colour table
// of an 8-bit image, and the pixels.
bool WriteBmp(kelp::IConversionManager* cm, const std::filesystem::path& path,
              const KXBMINFOHEADER* desc, const void* pixels) {
    kelp::CCppAllocator allocator;
    KXWINBITMAPINFOHEADER* win = nullptr;
    if (KX_FAILED(cm->KXBIHToBIH(desc, &win, &allocator))) return false;
    std::vector<unsigned char> table;
    if (desc->biBitCount <= 8) {
        uint32_t entries = desc->biClrUsed ? desc->biClrUsed : (1u << desc->biBitCount);
        const unsigned char* src = reinterpret_cast<const unsigned char*>(desc) + desc->biSize;
        table.assign(src, src + entries * 4);
        for (uint32_t i = 0; i < entries; ++i)
            table[i * 4 + 3] = 0; // the unused byte
    }
    const uint32_t headerBytes = 14 + win->biSize + uint32_t(table.size());
    const uint32_t fileBytes = headerBytes + desc->biSizeImage;
    unsigned char file[14] = {'B', 'M'};
    std::memcpy(file + 2, &fileBytes, 4);
    std::memcpy(file + 10, &headerBytes, 4);
    std::ofstream f(path, std::ios::binary);
    f.write(reinterpret_cast<const char*>(file), 14);
    f.write(reinterpret_cast<const char*>(win), win->biSize);
    f.write(reinterpret_cast<const char*>(table.data()), std::streamsize(table.size()));
    f.write(static_cast<const char*>(pixels), desc->biSizeImage);
    allocator.Free(win);
    return bool(f);
}

bool Check(bool ok, const char* what) {
    std::printf("%-34s %s\n", what, ok ? "ok" : "FAILED");
    return ok;
}

int RunDemo(const std::string& outDir, const std::string& samplesDir) {
    std::vector<unsigned char> pixels;
    KXBMINFOHEADER image = MakeImage(&pixels);
    PrintDesc("image", &image);

    kelp::IConversionManager* cm = KXCONVCreateConversionManager();
    if (!cm) {
        std::fprintf(stderr, "kelp demo: no conversion manager\n");
        return 1;
    }
    cm->Init(0x10002, 0);
    kelp::CCppAllocator allocator;
    bool ok = true;

    // The alpha as an 8-bit image of its own.
    KXBMINFOHEADER* alphaDesc = nullptr;
    void* alphaData = nullptr;
    KXRESULT r = cm->ExtractAlpha(&image, pixels.data(), &alphaDesc, &alphaData, &allocator);
    ok &= Check(KX_SUCCEEDED(r), "extract alpha");
    if (KX_SUCCEEDED(r)) {
        PrintDesc("alpha", alphaDesc);
        const unsigned char* plane = static_cast<const unsigned char*>(alphaData);
        const int32_t stride = (kWidth + 3) & ~3;
        bool same = true;
        for (int32_t y = 0; y < kHeight; ++y)
            for (int32_t x = 0; x < kWidth; ++x)
                same &= plane[y * stride + x] == pixels[size_t(y * kWidth + x) * 4 + 3];
        ok &= Check(same, "alpha plane matches the image");

        // Back into a copy whose alpha bytes were wiped.
        std::vector<unsigned char> wiped = pixels;
        for (size_t i = 3; i < wiped.size(); i += 4)
            wiped[i] = 0;
        KXBMINFOHEADER wipedDesc = image;
        wipedDesc.bmiAlpha = KXDIB_ALPHA_OPAQUE;
        r = cm->InsertAlpha(&wipedDesc, wiped.data(), alphaDesc, alphaData);
        ok &= Check(KX_SUCCEEDED(r) && wiped == pixels && wipedDesc.bmiAlpha == KXDIB_ALPHA_VALID,
                    "insert alpha: round trip exact");
    }

    // The same format out as in: an identity conversion, here asked to copy.
    KXBMINFOHEADER copyDesc = image;
    void* copy = nullptr;
    uint32_t flags = KXCONV_KEEP_INPUT | KXCONV_FORCE_COPY;
    int32_t quality = 0;
    r = cm->Convert(&image, pixels.data(), &copyDesc, &copy, &flags, &quality, &allocator);
    const bool copied = KX_SUCCEEDED(r) && copy && copy != pixels.data() &&
                        std::memcmp(copy, pixels.data(), pixels.size()) == 0;
    ok &= Check(copied && (flags & KXCONV_OUT_IDENTITY), "identity conversion: exact copy");
    if (copied) {
        PrintDesc("copy", &copyDesc);
        std::printf("%-10s flags 0x%05X, quality %d\n", "", flags, quality);
    }

    if (!outDir.empty()) {
        std::error_code ec;
        std::filesystem::create_directories(outDir, ec);
        const std::filesystem::path dir(outDir);
        bool written = WriteBmp(cm, dir / "image.bmp", &image, pixels.data());
        if (alphaDesc && alphaData)
            written &= WriteBmp(cm, dir / "alpha.bmp", alphaDesc, alphaData);
        if (copied) written &= WriteBmp(cm, dir / "copy.bmp", &copyDesc, copy);
        ok &= Check(written, "files written");
        if (written)
            std::printf("see %s/: image.bmp, alpha.bmp (shades of red), copy.bmp\n",
                        outDir.c_str());
        ok &= imagetool::DemoImageFiles(outDir, samplesDir, &image, pixels.data());
        ok &= composetool::DemoCompose(outDir);
    }
    ok &= kelpdemo::DeinterlacePicture(outDir);

    if (copy && copy != pixels.data()) allocator.Free(copy);
    if (alphaDesc) allocator.Free(alphaDesc);
    if (alphaData) allocator.Free(alphaData);
    cm->Release();
    std::printf("(KELP_DEBUG_OUTPUT=1 kelp demo shows every trace line of the library on "
                "standard error)\n");
    return ok ? 0 : 1;
}

} // namespace

void AddDemoCommand(CLI::App& app) {
    auto outDir = std::make_shared<std::string>();
    auto samplesDir = std::make_shared<std::string>();
    CLI::App* cmd = kelptool::AddCommand(
        app, "demo", "A generated image through the conversion manager and the image files.",
        [=](const CLI::App&) { return RunDemo(*outDir, *samplesDir); });
    kelptool::Describe(*cmd,
                       "A generated 96 x 64 image with alpha: its alpha taken out as an 8-bit\n"
                       "image and put back, and an identity conversion; each step is checked\n"
                       "and reported as ok or FAILED. KELP_DEBUG_OUTPUT=1 shows every trace\n"
                       "line of the library on standard error.");
    CLI::Option* out = cmd->add_option(
        "--out", *outDir,
        "write what was made as .bmp files into DIR (made if missing), and the image\n"
        "through every image file format the library writes, read back (DIR/files)");
    out->type_name("DIR");
    cmd->add_option("--samples", *samplesDir,
                    "with --out: convert every image file found in DIR to a 24-bit .bmp in\n"
                    "the --out DIR's converted/")
        ->type_name("DIR")
        ->needs(out);
}
