// kelp convert IN OUT [--depth 24|32] [--alpha straight|opaque|premultiplied]
//                     [--load-size WxH] [--quality Q] [geometry options]
// Reads IN through the library's image files, at the depth asked for and resized by the
// loader when --load-size is given; changes what the alpha bytes hold, and the size,
// ratio, crop and scan (convert_geometry.h), through the conversion manager; writes OUT
// in the format its extension names.
//
// OUT is written under a temporary name in its own directory and renamed over OUT only
// when it is complete, so that a failed conversion never destroys an existing OUT.
#include <kelp/kelp.h>

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "cli.h"
#include "commands.h"
#include "convert_yuv.h"
#include "convert_geometry.h"
#include "imagetool.h"

namespace {

char g_tempPath[4096];

constexpr uint32_t kMaxSide = 1u << 20; // the largest side --size takes

extern "C" void OnConvertSignal(int sig) {
    if (g_tempPath[0]) unlink(g_tempPath);
    signal(sig, SIG_DFL);
    raise(sig);
}

int Fail(const std::string& message) {
    std::fprintf(stderr, "kelp convert: %s\n", message.c_str());
    return 1;
}

// The picture with its fourth byte holding `alpha`, through the conversion manager.
bool ChangeAlpha(KXBMINFOHEADERYUV* desc, void** pixels, uint32_t alpha,
                 kelp::IAllocator* allocator, std::string* why) {
    if (desc->bmi.bmiAlpha == alpha) return true;
    kelp::IConversionManager* cm = KXCONVCreateConversionManager();
    if (!cm) {
        *why = "out of memory";
        return false;
    }
    cm->Init(KXCONV_VERSION, 0);
    KXBMINFOHEADERYUV out = *desc;
    out.bmi.bmiAlpha = alpha;
    void* converted = nullptr;
    uint32_t flags = KXCONV_KEEP_INPUT;
    int32_t quality = 0;
    const KXRESULT r =
        cm->Convert(&desc->bmi, *pixels, &out.bmi, &converted, &flags, &quality, allocator);
    cm->Release();
    if (KX_FAILED(r) || out.bmi.bmiAlpha != alpha) {
        if (converted && converted != *pixels) allocator->Free(converted);
        *why = std::string("the conversion manager has no stage that makes ") +
               imagetool::AlphaName(alpha) + " alpha from " +
               imagetool::AlphaName(desc->bmi.bmiAlpha) + " alpha";
        return false;
    }
    if (converted != *pixels) {
        allocator->Free(*pixels);
        *pixels = converted;
    }
    *desc = out;
    return true;
}

struct ConvertArgs {
    std::string in, out;
    uint32_t depth = 0, quality = 100;
    std::string alphaName, size;
    kelptool::YuvOptions yuv;
    convertgeometry::Options geometry;
};

int RunConvert(const ConvertArgs& args) {
    const std::string& in = args.in;
    const std::string& out = args.out;
    const uint32_t depth = args.depth, quality = args.quality;
    uint32_t width = 0, height = 0;
    const bool sized = !args.size.empty();
    if (sized) kelptool::ParseSize(args.size, kMaxSide, &width, &height);
    const int alpha = args.alphaName.empty()              ? -1
                      : args.alphaName == "straight"      ? int(KXDIB_ALPHA_VALID)
                      : args.alphaName == "opaque"        ? int(KXDIB_ALPHA_OPAQUE)
                      : args.alphaName == "premultiplied" ? int(KXDIB_ALPHA_PREMULTIPLIED)
                                                          : -1;
    if (alpha >= 0 && depth == 24) return Fail("alpha needs 32 bits: leave out --depth 24");
    const std::string ext = imagetool::Extension(out);
    if (ext != "bmp" && ext != "tif" && ext != "tga" && ext != "jpg" && ext != "bsi" &&
        ext != "png")
        return Fail("cannot write " + out +
                    ": the library writes .bmp, .tif, .tga, .jpg, .bsi and .png");
    const std::string yuvProblem = kelptool::CheckYuvOptions(args.yuv, ext);
    if (!yuvProblem.empty()) return Fail(yuvProblem);
    std::wstring win, wtemp;
    if (!imagetool::Wide(in, &win)) return Fail(in + ": the name is not UTF-8");

    // The temporary output beside OUT, with OUT's extension, which chooses the format.
    const size_t slash = out.find_last_of('/');
    const std::string dir = slash == std::string::npos ? "" : out.substr(0, slash + 1);
    const std::string temp = dir + ".kelp-convert-" + std::to_string(getpid()) + "." + ext;
    if (temp.size() >= sizeof g_tempPath || !imagetool::Wide(temp, &wtemp))
        return Fail(out + ": the name is too long or not UTF-8");

    kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    if (!io) return Fail("out of memory");
    kelp::CCppAllocator allocator;
    KXBMINFOHEADER* info = nullptr;
    if (KX_FAILED(io->GetImageInfo(win.c_str(), &info, &allocator))) {
        io->Release();
        return Fail(in + ": not an image file the library reads");
    }
    KXBMINFOHEADERYUV desc = {};
    std::memcpy(&desc, info, std::min<size_t>(info->biSize, sizeof desc));
    desc.bmi.biSize = KXBMI_SIZE;
    if (info->biCompression == KXBI_YUV) desc.bmi.biSize = KXBMI_SIZE_YUV; // with its extension
    const int32_t inW = info->biWidth, inH = info->biHeight;
    allocator.Free(info);

    kelp::ImageLoadOptions load = {sizeof(kelp::ImageLoadOptions),
                                   alpha >= 0 ? 32u : depth,
                                   sized ? IMAGELOAD_RESIZE : 0u,
                                   0,
                                   width,
                                   height};
    void* pixels = nullptr;
    if (KX_FAILED(io->LoadImage(win.c_str(), &desc.bmi, &pixels, &allocator, &load))) {
        io->Release();
        return Fail(in + ": cannot be read (damaged, or too large)");
    }
    std::string why;
    if (alpha >= 0 && !ChangeAlpha(&desc, &pixels, uint32_t(alpha), &allocator, &why)) {
        allocator.Free(pixels);
        io->Release();
        return Fail(in + ": " + why);
    }
    if (convertgeometry::Wanted(args.geometry) &&
        !convertgeometry::Apply(args.geometry, &desc, &pixels, &allocator, &why)) {
        allocator.Free(pixels);
        io->Release();
        return Fail(in + ": " + why);
    }

    if (!kelptool::ApplyYuv(args.yuv, ext, &desc, &pixels, &allocator, &why)) {
        allocator.Free(pixels);
        io->Release();
        return Fail(in + ": " + why);
    }

    std::strcpy(g_tempPath, temp.c_str());
    signal(SIGINT, OnConvertSignal);
    signal(SIGTERM, OnConvertSignal);
    signal(SIGHUP, OnConvertSignal);
    kelp::ImageSaveOptions save = {sizeof(kelp::ImageSaveOptions), 0, 0, quality, {0, 0}};
    // PNG goes through the library's PNG writer; the other formats through SaveImage.
    const bool saved = ext == "png"
                           ? KX_SUCCEEDED(kelp::SavePNGImage(wtemp.c_str(), &desc.bmi, pixels))
                           : KX_SUCCEEDED(io->SaveImage(wtemp.c_str(), &desc.bmi, pixels, &save));
    allocator.Free(pixels);
    io->Release();
    if (!saved || std::rename(temp.c_str(), out.c_str()) != 0) {
        const int e = errno;
        unlink(temp.c_str());
        g_tempPath[0] = 0;
        return Fail(saved ? out + ": " + std::strerror(e) : out + ": cannot be written");
    }
    g_tempPath[0] = 0;
    // What the file holds: .tif always 24 bits, .jpg no alpha, .png no alpha where the
    // fourth byte holds nothing, the others as the image.
    const int bits = desc.bmi.biBitCount;
    const bool noAlpha = ext == "jpg" || (ext == "png" && desc.bmi.bmiAlpha == KXDIB_ALPHA_OPAQUE);
    const int written = (ext == "tif" || (noAlpha && bits == 32)) ? 24 : bits;
    std::printf("%s: %d x %d -> %s: %d x %d, %d bits", in.c_str(), inW, inH, out.c_str(),
                desc.bmi.biWidth, desc.bmi.biHeight, written);
    if (written == 32) std::printf(", %s alpha", imagetool::AlphaName(desc.bmi.bmiAlpha));
    std::printf("%s", kelptool::YuvSummary(&desc.bmi).c_str());
    std::printf("\n");
    return 0;
}

} // namespace

void AddConvertCommand(CLI::App& app) {
    auto args = std::make_shared<ConvertArgs>();
    CLI::App* cmd = kelptool::AddCommand(
        app, "convert", "Convert an image file (format, depth, alpha, size, quality).",
        [args](const CLI::App&) { return RunConvert(*args); });
    kelptool::Describe(*cmd,
                       "Reads IN through the library's image files and writes OUT in the\n"
                       "format its extension names. OUT is written under a temporary name and\n"
                       "renamed when complete: a failed conversion never destroys an existing\n"
                       "OUT.");
    cmd->add_option("IN", args->in, "the image file: tif, tga, jpg, bmp, png, pcx, psd, wmf or bsi")
        ->required()
        ->type_name("FILE");
    cmd->add_option("OUT", args->out,
                    "the file to write: .bmp, .tif, .tga, .jpg, .bsi or .png; .tif and .jpg\n"
                    "keep no alpha")
        ->required()
        ->type_name("FILE");
    cmd->add_option("--depth", args->depth,
                    "24 or 32: the bits per pixel the image is loaded at (default: as the\n"
                    "file holds it)")
        ->type_name("BITS")
        ->check(kelptool::OneOf({"24", "32"}));
    cmd->add_option("--alpha", args->alphaName,
                    "what the fourth byte of each pixel holds in OUT: straight (colour and\n"
                    "separate alpha), opaque (all opaque) or premultiplied (colour already\n"
                    "multiplied by alpha); loads at 32 bits")
        ->type_name("STATE")
        ->check(kelptool::OneOf({"straight", "opaque", "premultiplied"}));
    cmd->add_option("--load-size", args->size,
                    "width x height in pixels, each 1 to 1048576: resampled while loading")
        ->type_name("WxH")
        ->check(kelptool::PictureSize(kMaxSide));
    cmd->add_option("--quality", args->quality,
                    "0 to 100, for .jpg: per cent, higher keeps more detail (default 100)")
        ->type_name("Q")
        ->check(kelptool::WholeNumber(0, 100));
    kelptool::AddYuvOptions(*cmd, &args->yuv);
    convertgeometry::AddOptions(cmd, &args->geometry);
}
