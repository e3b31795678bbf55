// kelp deinterlace IN OUT [--method repeat|average|blend|cubic|edge] [--parity 0|1]
//                         [--field 0|1]
// kelp deinterlace --temporal PREV CUR NEXT OUT [--method average|median3|median9]
//
// Reads IN (any image the library reads, taken as one interlaced frame, or a .BSI with
// its own format and scan), keeps the lines of one field and makes the others by the
// method, and writes OUT in the format its extension names. The temporal form makes the
// other field of CUR from the frames before and after it.
#include <kelp/kelp.h>

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "imagetool.h"

namespace {

using stdfx::CDIB;

struct DeinterlaceArgs {
    std::vector<std::string> files;
    bool temporal = false;
    std::string method;
    int parity = -1; // -1: from the image's scan
    int field = -1;
};

// A picture read through the library's image files, held as a CDIB that owns a copy.
bool ReadFrame(kelp::IImageIO* io, const std::string& path, CDIB* frame, std::string* why) {
    std::wstring wide;
    if (!imagetool::Wide(path, &wide)) {
        *why = path + ": the name is not UTF-8";
        return false;
    }
    kelp::CCppAllocator allocator;
    KXBMINFOHEADER* info = nullptr;
    if (KX_FAILED(io->GetImageInfo(wide.c_str(), &info, &allocator))) {
        *why = path + ": not an image file the library reads";
        return false;
    }
    const bool bsi = imagetool::Extension(path) == "bsi";
    KXBMINFOHEADERYUV desc = {};
    std::memcpy(&desc, info, std::min<size_t>(info->biSize, sizeof desc));
    allocator.Free(info);
    // A .BSI keeps its own format, YUV extension included; anything else comes as
    // 32-bit RGB.
    desc.bmi.biSize = bsi ? KXBMI_SIZE_YUV : KXBMI_SIZE;
    const kelp::ImageLoadOptions load = {
        sizeof(kelp::ImageLoadOptions), bsi ? 0u : 32u, 0, 0, 0, 0};
    void* pixels = nullptr;
    if (KX_FAILED(io->LoadImage(wide.c_str(), &desc.bmi, &pixels, &allocator, &load))) {
        *why = path + ": cannot be read (damaged, or too large)";
        return false;
    }
    if (desc.bmi.biSize >= KXBMI_SIZE) desc.bmi.bmiMagic = KXBMI_MAGIC;
    const CDIB view(&desc.bmi, pixels);
    frame->CopyFrom(view);
    allocator.Free(pixels);
    if (!frame->IsValid()) {
        *why = path + ": out of memory";
        return false;
    }
    return true;
}

// OUT through a temporary name beside it, renamed when complete. Formats other than
// RGB are converted to 32-bit RGB for every file type but .bsi.
bool WriteFrame(kelp::IImageIO* io, const std::string& path, const CDIB& image, std::string* why) {
    const std::string ext = imagetool::Extension(path);
    if (ext != "bmp" && ext != "tif" && ext != "tga" && ext != "jpg" && ext != "bsi" &&
        ext != "png") {
        *why =
            "cannot write " + path + ": the library writes .bmp, .tif, .tga, .jpg, .bsi and .png";
        return false;
    }
    CDIB out(image);
    if (ext != "bsi" && !image.IsRGB()) {
        KXBMINFOHEADERYUV rgb = {};
        rgb.bmi.biSize = KXBMI_SIZE;
        rgb.bmi.biWidth = image.Width();
        rgb.bmi.biHeight = image.Header()->biHeight;
        rgb.bmi.biPlanes = 1;
        rgb.bmi.biBitCount = 32;
        rgb.bmi.bmiMagic = KXBMI_MAGIC;
        rgb.bmi.bmiFrame = 1;
        rgb.bmi.bmiAlpha = KXDIB_ALPHA_OPAQUE;
        if (!out.CreateConverted(&rgb.bmi, image, -1)) {
            *why = path + ": the picture cannot be turned into RGB for this file type";
            return false;
        }
    }
    const size_t slash = path.find_last_of('/');
    const std::string dir = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    const std::string temp = dir + ".kelp-deinterlace-" + std::to_string(getpid()) + "." + ext;
    std::wstring wtemp;
    if (!imagetool::Wide(temp, &wtemp)) {
        *why = path + ": the name is not UTF-8";
        return false;
    }
    const kelp::ImageSaveOptions save = {sizeof(kelp::ImageSaveOptions), 0, 0, 100, {0, 0}};
    const bool saved =
        ext == "png" ? KX_SUCCEEDED(kelp::SavePNGImage(wtemp.c_str(), out.Header(), out.Bits()))
                     : KX_SUCCEEDED(io->SaveImage(wtemp.c_str(), out.Header(), out.Bits(), &save));
    if (!saved || std::rename(temp.c_str(), path.c_str()) != 0) {
        unlink(temp.c_str());
        *why = path + ": cannot be written";
        return false;
    }
    return true;
}

int MethodNumber(const std::string& name, bool temporal) {
    if (temporal) return name == "average" ? 16 : name == "median9" ? 1 : 17;
    return name == "repeat"    ? 1
           : name == "average" ? 2
           : name == "blend"   ? 3
           : name == "cubic"   ? 4
                               : 5;
}

int RunDeinterlace(const CLI::App& cmd, const DeinterlaceArgs& args) {
    const size_t want = args.temporal ? 4 : 2;
    if (args.files.size() != want)
        return kelptool::UsageError(
            cmd, args.temporal ? "--temporal needs PREV CUR NEXT OUT (" +
                                     std::to_string(args.files.size()) + " given)"
                               : "IN OUT are needed (" + std::to_string(args.files.size()) +
                                     " given); three frames need --temporal");
    const std::string method =
        args.method.empty() ? (args.temporal ? "median3" : "edge") : args.method;
    const bool known = args.temporal
                           ? method == "average" || method == "median3" || method == "median9"
                           : method == "repeat" || method == "average" || method == "blend" ||
                                 method == "cubic" || method == "edge";
    if (!known)
        return kelptool::UsageError(cmd,
                                    "--method: " + method + " is not one of " +
                                        (args.temporal ? "average, median3, median9"
                                                       : "repeat, average, blend, cubic, edge") +
                                        (args.temporal ? "" : " (without --temporal)"));
    kelp::IImageIO* io = CreateImageIO(KXIMAGEIO_VERSION, nullptr);
    if (!io) return kelptool::Error(cmd, "out of memory");
    std::unique_ptr<kelp::IImageIO, void (*)(kelp::IImageIO*)> hold(
        io, [](kelp::IImageIO* p) { p->Release(); });
    std::vector<CDIB> frames(want - 1);
    std::string why;
    for (size_t i = 0; i + 1 < want; ++i)
        if (!ReadFrame(io, args.files[i], &frames[i], &why)) return kelptool::Error(cmd, why);
    const CDIB& main = args.temporal ? frames[1] : frames[0];
    // Unless told, keep the field that comes first in time: the top one, or the bottom
    // one where the picture's scan says the other order.
    const KXBMINFOHEADER* h = main.Header();
    const int parity = args.parity >= 0 ? args.parity
                       : (h->biSize >= KXBMI_SIZE && (h->bmiFormat & KXBMIFORMAT_ODDEVEN_CHRONO))
                           ? 1
                           : 0;
    CDIB out;
    const int number = MethodNumber(method, args.temporal);
    bool ok;
    if (args.temporal) {
        ok = out.CreateDeinterlacedTemporal(frames[0], frames[1], frames[2], number, parity, -1);
    } else if (args.field >= 0) {
        // One field's lines are made; the others stay as in IN.
        out.CopyFrom(main);
        ok = out.IsValid() && out.Deinterlace(main, number, parity, args.field);
    } else {
        ok = out.CreateDeinterlaced(main, number, parity, -1);
    }
    if (!ok) {
        if (args.temporal &&
            (frames[0].Width() != main.Width() || frames[0].Height() != main.Height() ||
             frames[2].Width() != main.Width() || frames[2].Height() != main.Height()))
            return kelptool::Error(cmd, "PREV, CUR and NEXT differ in size");
        char name[64];
        std::snprintf(name, sizeof name, "%ls", stdfx::DIBFormatString(h));
        return kelptool::Error(cmd, args.files[args.temporal ? 1 : 0] +
                                        ": the deinterlacers do not take " + name + " pictures");
    }
    const std::string& outPath = args.files.back();
    if (!WriteFrame(io, outPath, out, &why)) return kelptool::Error(cmd, why);
    std::printf("%s: %d x %d, %s, field %d kept%s -> %s\n",
                args.files[args.temporal ? 1 : 0].c_str(), main.Width(), main.Height(),
                method.c_str(), parity, args.field >= 0 ? ", one field's lines made" : "",
                outPath.c_str());
    return kelptool::kDone;
}

} // namespace

void AddDeinterlaceCommand(CLI::App& app) {
    auto args = std::make_shared<DeinterlaceArgs>();
    CLI::App* cmd = kelptool::AddCommand(
        app, "deinterlace", "Make a whole frame from one field of an interlaced picture.",
        [args](const CLI::App& c) { return RunDeinterlace(c, *args); });
    kelptool::Describe(*cmd,
                       "kelp deinterlace IN OUT keeps the lines of one field of IN and makes\n"
                       "the others from them. IN is any image the library reads, taken as one\n"
                       "interlaced frame, or a .BSI with its own format and scan.\n"
                       "kelp deinterlace --temporal PREV CUR NEXT OUT makes the other field of\n"
                       "CUR from the frames before and after it as well.\n"
                       "Methods: repeat (the line next to it), average (of the lines above and\n"
                       "below), blend (that average with the line itself), cubic (four lines),\n"
                       "edge (along the direction of edges); with --temporal: average (of PREV\n"
                       "and NEXT), median3 (above, below, PREV), median9 (nine values).\n"
                       "OUT is written under a temporary name and renamed when complete.");
    cmd->add_option("FILES", args->files,
                    "IN OUT, or with --temporal PREV CUR NEXT OUT; OUT: .bmp, .tif, .tga,\n"
                    ".jpg, .bsi or .png")
        ->required()
        ->expected(2, 4)
        ->type_name("FILE");
    cmd->add_flag("--temporal", args->temporal, "three frames in: PREV CUR NEXT");
    cmd->add_option("--method", args->method,
                    "repeat, average, blend, cubic or edge (default edge); with --temporal\n"
                    "average, median3 or median9 (default median3)")
        ->type_name("NAME");
    cmd->add_option("--parity", args->parity,
                    "the field kept, in display order: 0 the top lines (0, 2, ...), 1 the\n"
                    "others (default: 0, or 1 for a .BSI whose scan puts that field first)")
        ->type_name("0|1")
        ->check(kelptool::WholeNumber(0, 1));
    cmd->add_option("--field", args->field,
                    "make only the lines of this field (0 or 1); the rest stay as in IN")
        ->type_name("0|1")
        ->check(kelptool::WholeNumber(0, 1));
}
