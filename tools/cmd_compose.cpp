// kelp compose FG BG OUT [--mode 1..20] [--opacity 0..255] [--field 0|1] [--yuv 601|709]
// kelp compose --list
//
// Reads FG and BG through the library's image files at 32 bits, premultiplied, places FG
// in the middle of BG, dissolves it to the opacity asked for and blends it into BG by
// the mode, in RGB or (with --yuv) in meshed 4:4:4 YUV. OUT is written under a temporary
// name in its own directory and renamed over OUT only when it is complete.
#include <kelp/kelp.h>

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "cli.h"
#include "commands.h"
#include "demo_compose.h"
#include "imagetool.h"

namespace {

char g_tempPath[4096];

extern "C" void OnComposeSignal(int sig) {
    if (g_tempPath[0]) unlink(g_tempPath);
    signal(sig, SIG_DFL);
    raise(sig);
}

struct ComposeArgs {
    std::string fg, bg, out;
    uint32_t mode = 1, opacity = 255;
    int field = -1;
    uint32_t yuv = 0;
    bool list = false;
};

int Mul(int a, int b) {
    const int t = a * b + 128;
    return (t + (t >> 8)) >> 8;
}

// The file as a premultiplied 32-bit top-down image; an empty image and *why on failure.
stdfx::CDIB Load(kelp::IImageIO* io, const std::string& path, std::string* why) {
    std::wstring wide;
    if (!imagetool::Wide(path, &wide)) {
        *why = path + ": the name is not UTF-8";
        return stdfx::CDIB();
    }
    kelp::CCppAllocator allocator;
    KXBMINFOHEADER* info = nullptr;
    if (KX_FAILED(io->GetImageInfo(wide.c_str(), &info, &allocator))) {
        *why = path + ": not an image file the library reads";
        return stdfx::CDIB();
    }
    KXBMINFOHEADER desc = *info;
    allocator.Free(info);
    desc.biSize = KXBMI_SIZE;
    kelp::ImageLoadOptions load = {sizeof(kelp::ImageLoadOptions), 32, 0, 0, 0, 0};
    void* pixels = nullptr;
    if (KX_FAILED(io->LoadImage(wide.c_str(), &desc, &pixels, &allocator, &load)) ||
        desc.biBitCount != 32) {
        if (pixels) allocator.Free(pixels);
        *why = path + ": cannot be read (damaged, or too large)";
        return stdfx::CDIB();
    }
    const int w = desc.biWidth, h = desc.biHeight < 0 ? -desc.biHeight : desc.biHeight;
    const bool bottomUp = desc.biHeight > 0;
    const size_t stride = size_t(w) * 4; // 32-bit rows need no padding
    KXBMINFOHEADER out = desc;
    out.biHeight = -h;
    out.biSizeImage = 0;
    out.bmiStride = 0;
    out.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
    stdfx::CDIB dib(&out);
    if (!dib.IsValid()) {
        allocator.Free(pixels);
        *why = path + ": out of memory";
        return stdfx::CDIB();
    }
    for (int y = 0; y < h; ++y) {
        const uint8_t* s =
            static_cast<const uint8_t*>(pixels) + stride * size_t(bottomUp ? h - 1 - y : y);
        uint8_t* d = static_cast<uint8_t*>(dib.Bits()) + ptrdiff_t(y) * dib.Stride();
        for (int x = 0; x < w; ++x, s += 4, d += 4) {
            const int a = desc.bmiAlpha == KXDIB_ALPHA_OPAQUE ? 255 : s[3];
            const bool straight = desc.bmiAlpha != KXDIB_ALPHA_PREMULTIPLIED;
            for (int i = 0; i < 3; ++i)
                d[i] = uint8_t(straight ? Mul(s[i], a) : s[i]);
            d[3] = uint8_t(a);
        }
    }
    allocator.Free(pixels);
    return dib;
}

// `dib` converted to meshed 4:4:4 YUV in colour space `cs`, or back to RGB.
bool ToForm(stdfx::CDIB* dib, bool yuv, uint32_t cs) {
    KXBMINFOHEADERYUV h = {};
    dib->GetHeader(&h);
    h.bmi.biSizeImage = 0;
    h.bmi.bmiStride = 0;
    if (yuv) {
        h.bmi.biSize = KXBMI_SIZE_YUV;
        h.bmi.biCompression = KXBI_YUV;
        h.bmi.bmiExtOffset = KXBMI_EXTOFFSET;
        h.yuv.yuvColorSpace = cs;
        h.yuv.yuvBits = 8;
        h.yuv.yuvSampling = KXYUV_SAMPLING_444;
    } else {
        h.bmi.biSize = KXBMI_SIZE;
        h.bmi.biCompression = KXBI_RGB;
        h.bmi.bmiExtOffset = 0;
    }
    stdfx::CDIB converted;
    if (!converted.CreateConverted(&h.bmi, *dib, -1)) return false;
    // The translators set no alpha: carry it over, since both forms keep it in byte 3.
    for (int y = 0; y < dib->Height(); ++y) {
        const uint8_t* s = static_cast<const uint8_t*>(dib->Bits()) + ptrdiff_t(y) * dib->Stride();
        uint8_t* d = static_cast<uint8_t*>(converted.Bits()) + ptrdiff_t(y) * converted.Stride();
        for (int x = 0; x < dib->Width(); ++x)
            d[4 * x + 3] = s[4 * x + 3];
    }
    converted.Header()->bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
    *dib = converted;
    return true;
}

int ListModes() {
    for (int m = 0; m < 20; ++m)
        std::printf("%2d  %-17s %s\n", m + 1, composetool::kModeNames[m].name,
                    composetool::kModeNames[m].what);
    return 0;
}

int RunCompose(const CLI::App& cmd, const ComposeArgs& args) {
    if (args.list) return ListModes();
    if (args.fg.empty() || args.bg.empty() || args.out.empty())
        return kelptool::UsageError(cmd, "FG, BG and OUT are needed (or --list)");
    const std::string ext = imagetool::Extension(args.out);
    if (ext != "bmp" && ext != "tga" && ext != "bsi" && ext != "png" && ext != "tif" &&
        ext != "jpg")
        return kelptool::Error(cmd, "cannot write " + args.out +
                                        ": the library writes .bmp, .tif, .tga, .jpg, .bsi "
                                        "and .png");
    const size_t slash = args.out.find_last_of('/');
    const std::string dir = slash == std::string::npos ? "" : args.out.substr(0, slash + 1);
    const std::string temp = dir + ".kelp-compose-" + std::to_string(getpid()) + "." + ext;
    std::wstring wtemp;
    if (temp.size() >= sizeof g_tempPath || !imagetool::Wide(temp, &wtemp))
        return kelptool::Error(cmd, args.out + ": the name is too long or not UTF-8");

    kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    if (!io) return kelptool::Error(cmd, "out of memory");
    std::string why;
    stdfx::CDIB fg = Load(io, args.fg, &why);
    stdfx::CDIB bg = fg.IsValid() ? Load(io, args.bg, &why) : stdfx::CDIB();
    if (!fg.IsValid() || !bg.IsValid()) {
        io->Release();
        return kelptool::Error(cmd, why);
    }
    // The foreground as a layer of the background's size: centred over transparency,
    // then dissolved to the opacity.
    KXBMINFOHEADER lh = *bg.Header();
    stdfx::CDIB layer(&lh);
    bool ok = layer.IsValid() && layer.Fill(-1, 0);
    stdfx::CDibCompose over(1, 0);
    ok = ok && over.ComposeOver(layer, fg, nullptr, -1);
    if (ok && args.opacity < 255) ok = layer.BlendTwo(layer, int(args.opacity), -1);
    const bool yuv = args.yuv != 0;
    const uint32_t cs = args.yuv == 709 ? 2 : 0;
    if (ok && yuv) ok = ToForm(&bg, true, cs) && ToForm(&layer, true, cs);
    stdfx::CDibCompose compose(args.mode, 0);
    if (ok)
        ok = yuv ? compose.ComposeYUV(bg, layer, 0, args.field)
                 : compose.Compose(bg, layer, 0, args.field);
    if (ok && yuv) ok = ToForm(&bg, false, cs);
    if (!ok) {
        io->Release();
        return kelptool::Error(cmd, "the compositor refused the images");
    }

    std::strcpy(g_tempPath, temp.c_str());
    signal(SIGINT, OnComposeSignal);
    signal(SIGTERM, OnComposeSignal);
    signal(SIGHUP, OnComposeSignal);
    kelp::ImageSaveOptions save = {sizeof(kelp::ImageSaveOptions), 0, 0, 100, {0, 0}};
    const bool saved =
        ext == "png" ? KX_SUCCEEDED(kelp::SavePNGImage(wtemp.c_str(), bg.Header(), bg.Bits()))
                     : KX_SUCCEEDED(io->SaveImage(wtemp.c_str(), bg.Header(), bg.Bits(), &save));
    io->Release();
    if (!saved || std::rename(temp.c_str(), args.out.c_str()) != 0) {
        const int e = errno;
        unlink(temp.c_str());
        g_tempPath[0] = 0;
        return kelptool::Error(cmd, saved ? args.out + ": " + std::strerror(e)
                                          : args.out + ": cannot be written");
    }
    g_tempPath[0] = 0;
    std::printf("%s over %s by %s (mode %u)%s -> %s: %d x %d\n", args.fg.c_str(), args.bg.c_str(),
                composetool::kModeNames[args.mode - 1].name, args.mode,
                yuv ? (cs == 2 ? " in YUV 709" : " in YUV 601") : "", args.out.c_str(), bg.Width(),
                bg.Height());
    return 0;
}

} // namespace

void AddComposeCommand(CLI::App& app) {
    auto args = std::make_shared<ComposeArgs>();
    CLI::App* cmd = kelptool::AddCommand(
        app, "compose", "Blend one image into another by one of twenty blend modes.",
        [args](const CLI::App& c) { return RunCompose(c, *args); });
    kelptool::Describe(*cmd,
                       "Reads FG and BG at 32 bits, premultiplied, places FG in the middle of\n"
                       "BG and blends it in by the mode. `kelp compose --list` names the\n"
                       "modes. OUT is written under a temporary name and renamed when\n"
                       "complete.");
    cmd->add_option("FG", args->fg, "the foreground image file")->type_name("FILE");
    cmd->add_option("BG", args->bg, "the background image file")->type_name("FILE");
    cmd->add_option("OUT", args->out,
                    "the file to write: .bmp, .tif, .tga, .jpg, .bsi or .png, the size of BG")
        ->type_name("FILE");
    cmd->add_option("--mode", args->mode, "1 to 20: the blend mode (default 1, over)")
        ->type_name("N")
        ->check(kelptool::WholeNumber(1, 20));
    cmd->add_option("--opacity", args->opacity,
                    "0 to 255: the foreground's opacity (default 255, as it is)")
        ->type_name("A")
        ->check(kelptool::WholeNumber(0, 255));
    cmd->add_option("--field", args->field,
                    "0 or 1: blend only every second line, of that field (default: all)")
        ->type_name("F")
        ->check(kelptool::OneOf({"0", "1"}));
    cmd->add_option("--yuv", args->yuv,
                    "601 or 709: blend in YUV 4:4:4 of that colour space (default: in RGB)")
        ->type_name("SPACE")
        ->check(kelptool::OneOf({"601", "709"}));
    cmd->add_flag("--list", args->list, "list the twenty modes by number and name");
}
