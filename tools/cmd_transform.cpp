// kelp transform IN OUT [--scale S | --scale SX,SY] [--offset X,Y] [--transparency T]
//                       [--background BG] [--size WxH] [--mode nearest|filter|soft]
//                       [--softness X,Y] [--field 0|1] [--yuv 601|709]
// Moves and scales the picture IN over a background (or over nothing) with the library's
// 2-D transform, and writes the result to OUT in the format its extension names.
//
// Pictures are loaded at 32 bits and handed to the transform premultiplied, as it takes
// them; OUT keeps the alpha that the transform made (margins without a background are
// transparent) where its format has alpha. With --yuv the pictures go to meshed YUV 4:4:4
// through the conversion manager, the transform runs there, and the result comes back to
// RGB the same way.
#include <kelp/kelp.h>
#include <kelp/stdfx2d.h>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "imagetool.h"
#include "progress.h"

namespace {

constexpr uint32_t kMaxSide = 16384; // the largest side of OUT that --size takes
constexpr double kMinScale = 0.001, kMaxScale = 1000.0;
constexpr double kMaxOffset = 100.0;

// ---------------------------------------------------------------- numbers on the command line

// A whole decimal number such as "0.5", "-2" or "1e-3", finite; nothing else around it.
bool ParseNumber(const std::string& text, double* value) {
    if (text.empty() || text[0] == ' ' || text[0] == '\t') return false;
    char* end = nullptr;
    errno = 0;
    const double v = std::strtod(text.c_str(), &end);
    if (errno || *end || !std::isfinite(v)) return false;
    // strtod also reads "inf", "nan" and hexadecimal forms; a person types decimals.
    for (char c : text)
        if (!(std::isdigit(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == '+' ||
              c == 'e' || c == 'E'))
            return false;
    *value = v;
    return true;
}

// "A" or "A,B" (when `single` allows one number, which then stands for both).
bool ParsePair(const std::string& text, bool single, double* a, double* b) {
    const size_t comma = text.find(',');
    if (comma == std::string::npos) {
        if (!single || !ParseNumber(text, a)) return false;
        *b = *a;
        return true;
    }
    return ParseNumber(text.substr(0, comma), a) && ParseNumber(text.substr(comma + 1), b);
}

std::string Range(double low, double high) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%g..%g", low, high);
    return buffer;
}

// Checks of --scale, --offset, --softness and --transparency, in the style of the tool's
// other checks: "--scale: 0 not in 0.001..1000".
CLI::Validator NumberPair(bool single, bool pair, double low, double high) {
    return CLI::Validator(
        [=](std::string& text) -> std::string {
            double a = 0, b = 0;
            const bool ok = pair ? ParsePair(text, single, &a, &b) : ParseNumber(text, &a);
            if (!pair) b = a;
            const std::string range = Range(low, high);
            if (!ok) {
                if (!pair) return text + " is not a number in " + range;
                return text +
                       (single ? " is not a number or a pair X,Y of numbers in "
                               : " is not a pair X,Y of numbers in ") +
                       range;
            }
            if (a < low || a > high || b < low || b > high) return text + " not in " + range;
            return std::string();
        },
        "");
}

// ---------------------------------------------------------------- pictures

struct TransformArgs {
    std::string in, out, background, size;
    std::string scale = "1", offset = "0,0", transparency = "0", softness = "0,0";
    std::string mode = "filter", yuv;
    int field = -1;
};

// A picture of the run: its record (with room for the YUV extension) and its pixels,
// which come from the allocator and go back to it.
class Picture {
public:
    explicit Picture(kelp::IAllocator* allocator) : m_allocator(allocator) {}
    ~Picture() { Reset(nullptr); }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    void Reset(void* pixels) {
        if (m_pixels && m_pixels != pixels) m_allocator->Free(m_pixels);
        m_pixels = pixels;
    }
    int Width() const { return desc.bmi.biWidth; }
    int Height() const { return desc.bmi.biHeight < 0 ? -desc.bmi.biHeight : desc.bmi.biHeight; }
    uint8_t* Bytes() const { return static_cast<uint8_t*>(m_pixels); }
    void* Pixels() const { return m_pixels; }
    size_t PixelCount() const { return size_t(Width()) * size_t(Height()); }
    kelp::IAllocator* Allocator() const { return m_allocator; }

    KXBMINFOHEADERYUV desc = {};

private:
    kelp::IAllocator* m_allocator;
    void* m_pixels = nullptr;
};

// Loads `path` at 32 bits; false with a message in *why.
bool Load(kelp::IImageIO* io, const std::string& path, Picture* picture, std::string* why) {
    std::wstring wide;
    if (!imagetool::Wide(path, &wide)) {
        *why = path + ": the name is not UTF-8";
        return false;
    }
    if (access(path.c_str(), R_OK) != 0) {
        *why = "cannot open " + path + ": " + std::strerror(errno);
        return false;
    }
    kelp::CCppAllocator infoAllocator;
    KXBMINFOHEADER* info = nullptr;
    if (KX_FAILED(io->GetImageInfo(wide.c_str(), &info, &infoAllocator))) {
        *why = path + ": not an image file the library reads";
        return false;
    }
    std::memcpy(&picture->desc, info, std::min<size_t>(info->biSize, sizeof picture->desc));
    infoAllocator.Free(info);
    picture->desc.bmi.biSize = KXBMI_SIZE;
    kelp::ImageLoadOptions load = {sizeof(kelp::ImageLoadOptions), 32u, 0u, 0, 0, 0};
    void* pixels = nullptr;
    kelp::IAllocator* allocator = picture->Allocator();
    if (KX_FAILED(io->LoadImage(wide.c_str(), &picture->desc.bmi, &pixels, allocator, &load)) ||
        picture->desc.bmi.biBitCount != 32) {
        if (pixels) allocator->Free(pixels);
        *why = path + ": cannot be read (damaged, or too large)";
        return false;
    }
    picture->Reset(pixels);
    return true;
}

// The transform takes every pixel as premultiplied: straight alpha is multiplied in, and
// a picture without alpha gets a fourth byte of 255. Rows are whole pixels at 32 bits.
void Premultiply(Picture* picture) {
    KXBMINFOHEADER& d = picture->desc.bmi;
    uint8_t* p = picture->Bytes();
    const size_t n = picture->PixelCount();
    if (d.bmiAlpha == KXDIB_ALPHA_OPAQUE) {
        for (size_t i = 0; i < n; ++i)
            p[i * 4 + 3] = 255;
    } else if (d.bmiAlpha == KXDIB_ALPHA_VALID) {
        for (size_t i = 0; i < n; ++i) {
            const unsigned a = p[i * 4 + 3];
            for (int c = 0; c < 3; ++c)
                p[i * 4 + c] = uint8_t((p[i * 4 + c] * a + 127) / 255);
        }
    }
    d.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
    d.bmiFrame = 1; // a still picture is progressive
    d.bmiFormat = 0;
}

// A meshed YUV 4:4:4 record of 32 bits for a picture of this size.
KXBMINFOHEADERYUV YuvRecord(const KXBMINFOHEADER& rgb, uint32_t colorSpace) {
    KXBMINFOHEADERYUV d = {};
    d.bmi = rgb;
    d.bmi.biSize = KXBMI_SIZE_YUV;
    d.bmi.bmiExtOffset = KXBMI_EXTOFFSET;
    d.bmi.biCompression = KXBI_YUV;
    d.bmi.biBitCount = 32;
    d.bmi.biSizeImage = uint32_t(rgb.biWidth) * 4u * uint32_t(std::abs(rgb.biHeight));
    d.yuv.yuvColorSpace = colorSpace;
    d.yuv.yuvBits = 8;
    d.yuv.yuvSampling = KXYUV_SAMPLING_444;
    d.yuv.yuvSamplingAux = 0;
    return d;
}

// The picture in the format of `to` (same size), through the conversion manager. The
// manager may widen or narrow the record: what it made must be what was asked.
bool ConvertTo(Picture* picture, const KXBMINFOHEADERYUV& to, kelp::IAllocator* allocator,
               std::string* why) {
    kelp::IConversionManager* cm = KXCONVCreateConversionManager();
    if (!cm) {
        *why = "out of memory";
        return false;
    }
    cm->Init(KXCONV_VERSION, 0);
    KXBMINFOHEADERYUV out = to;
    void* converted = nullptr;
    uint32_t flags = KXCONV_KEEP_INPUT;
    int32_t quality = 0;
    const KXRESULT r = cm->Convert(&picture->desc.bmi, picture->Pixels(), &out.bmi, &converted,
                                   &flags, &quality, allocator);
    cm->Release();
    const bool made =
        KX_SUCCEEDED(r) && converted && out.bmi.biCompression == to.bmi.biCompression &&
        out.bmi.biBitCount == to.bmi.biBitCount && out.bmi.biWidth == to.bmi.biWidth &&
        out.bmi.biHeight == to.bmi.biHeight &&
        (to.bmi.biCompression != KXBI_YUV || (out.yuv.yuvSampling == to.yuv.yuvSampling &&
                                              out.yuv.yuvColorSpace == to.yuv.yuvColorSpace));
    if (!made) {
        if (converted && converted != picture->Pixels()) allocator->Free(converted);
        *why = to.bmi.biCompression == KXBI_YUV
                   ? "the conversion manager has no stage from RGB to YUV 4:4:4"
                   : "the conversion manager has no stage from YUV 4:4:4 to RGB";
        return false;
    }
    // The result may share the input's buffer; Reset keeps it then.
    if (!(flags & KXCONV_OUT_SHARED)) picture->Reset(converted);
    picture->desc = out;
    return true;
}

// True when every fourth byte is 255: the picture has no transparency worth keeping.
bool Opaque(const Picture& picture) {
    const uint8_t* p = picture.Bytes();
    for (size_t i = 0, n = picture.PixelCount(); i < n; ++i)
        if (p[i * 4 + 3] != 255) return false;
    return true;
}

int ModeNumber(const std::string& name) {
    return name == "nearest" ? stdfx2d::FX2D_MODE_NEAREST
           : name == "soft"  ? stdfx2d::FX2D_MODE_SOFT
                             : stdfx2d::FX2D_MODE_FILTER;
}

std::string ResultText(int code) {
    switch (code) {
    case stdfx2d::FX2D_OUTOFMEMORY:
        return "out of memory";
    case stdfx2d::FX2D_BADFORMAT:
        return "the pictures' formats were refused";
    case stdfx2d::FX2D_NOPATH:
        return "no path for the target's format";
    default:
        return "failed (result " + std::to_string(code) + ")";
    }
}

int RunTransform(const CLI::App& cmd, const TransformArgs& args) {
    auto fail = [&](const std::string& message) { return kelptool::Error(cmd, message); };

    // The numbers were checked by the options' validators.
    stdfx2d::FX2DPARAM param = {};
    param.size = sizeof param;
    double softX = 0, softY = 0, transparency = 0;
    ParsePair(args.scale, true, &param.scaleX, &param.scaleY);
    ParsePair(args.offset, false, &param.offsetX, &param.offsetY);
    ParseNumber(args.transparency, &transparency);
    param.transparency = transparency;
    ParsePair(args.softness, true, &softX, &softY);
    stdfx2d::FX2DQUALITY quality = {};
    quality.mode = ModeNumber(args.mode);
    quality.softnessX = softX;
    quality.softnessY = softY;
    const bool yuv = !args.yuv.empty();
    const uint32_t colorSpace = args.yuv == "709" ? 2u : 0u;

    const std::string ext = imagetool::Extension(args.out);
    if (ext != "bmp" && ext != "tif" && ext != "tga" && ext != "jpg" && ext != "bsi" &&
        ext != "png")
        return fail("cannot write " + args.out +
                    ": the library writes .bmp, .tif, .tga, .jpg, .bsi and .png");
    std::wstring wideOut, wideTemp;
    const size_t slash = args.out.find_last_of('/');
    const std::string dir = slash == std::string::npos ? "" : args.out.substr(0, slash + 1);
    const std::string temp = dir + ".kelp-transform-" + std::to_string(getpid()) + "." + ext;
    if (!imagetool::Wide(args.out, &wideOut) || !imagetool::Wide(temp, &wideTemp))
        return fail(args.out + ": the name is not UTF-8");

    const bool withBackground = !args.background.empty();
    // Steps: read IN (and BG), to YUV (each), transform, back from YUV, write.
    const int steps = (withBackground ? 2 : 1) * (yuv ? 2 : 1) + 1 + (yuv ? 1 : 0) + 1;
    kelptool::Progress progress("transform", steps);
    int done = 0;
    auto step = [&] { progress.Update(++done); };

    std::unique_ptr<kelp::IImageIO, void (*)(kelp::IImageIO*)> io(
        CreateImageIO(KXIMAGEIO_VERSION, nullptr), [](kelp::IImageIO* p) {
            if (p) p->Release();
        });
    if (!io) return fail("out of memory");
    kelp::CCppAllocator allocator;
    Picture source(&allocator), background(&allocator), target(&allocator);
    std::string why;
    if (!Load(io.get(), args.in, &source, &why)) {
        progress.Finish();
        return fail(why);
    }
    step();
    Premultiply(&source);
    if (withBackground) {
        if (!Load(io.get(), args.background, &background, &why)) {
            progress.Finish();
            return fail(why);
        }
        step();
        Premultiply(&background);
    }

    // The target: --size, else the background's size, else the input's.
    uint32_t width = uint32_t(source.Width()), height = uint32_t(source.Height());
    if (!args.size.empty()) {
        kelptool::ParseSize(args.size, kMaxSide, &width, &height);
    } else if (withBackground) {
        width = uint32_t(background.Width());
        height = uint32_t(background.Height());
    }
    if (width > kMaxSide || height > kMaxSide) {
        progress.Finish();
        return fail("the target would be " + std::to_string(width) + " x " +
                    std::to_string(height) + "; give --size with sides 1.." +
                    std::to_string(kMaxSide));
    }
    target.desc.bmi = source.desc.bmi;
    KXBMINFOHEADER& t = target.desc.bmi;
    t.biSize = KXBMI_SIZE;
    t.biWidth = int32_t(width);
    t.biHeight = int32_t(height); // bottom-up, as the library's pictures are
    t.biSizeImage = width * 4u * height;
    t.bmiAnchorX = t.bmiAnchorY = 0;
    t.bmiRatioX = t.bmiRatioY = 0;
    t.bmiStride = t.bmiAlphaOffset = t.bmiAlphaStride = 0;
    std::memset(&t.bmiRect, 0, sizeof t.bmiRect);
    // Square pixels throughout: a ratio in the source would rescale it.
    source.desc.bmi.bmiRatioX = background.desc.bmi.bmiRatioX = 0;

    if (yuv) {
        for (Picture* p : {&source, &background}) {
            if (!p->Pixels()) continue;
            if (!ConvertTo(p, YuvRecord(p->desc.bmi, colorSpace), &allocator, &why)) {
                progress.Finish();
                return fail("--yuv: " + why);
            }
            step();
        }
        target.desc = YuvRecord(t, colorSpace);
    }

    void* targetBits = allocator.Allocate(target.desc.bmi.biSizeImage, 0);
    if (!targetBits) {
        progress.Finish();
        return fail("out of memory for a target of " + std::to_string(width) + " x " +
                    std::to_string(height));
    }
    std::memset(targetBits, 0, target.desc.bmi.biSizeImage);
    target.Reset(targetBits);

    KXBMINFOHEADER* bg = withBackground ? &background.desc.bmi : nullptr;
    void* bgBits = withBackground ? background.Pixels() : nullptr;
    int result = 0;
    if (args.field >= 0) {
        // One field: the other rows show what a whole frame of background alone shows
        // (the background, or the empty value of the format), as a field render leaves them.
        stdfx2d::FX2DPARAM hidden = param;
        hidden.transparency = 100.0;
        result = stdfx2d::Fx2d(&target.desc.bmi, target.Pixels(), &source.desc.bmi, source.Pixels(),
                               bg, bgBits, hidden, quality, -1);
    }
    if (result == 0)
        result = stdfx2d::Fx2d(&target.desc.bmi, target.Pixels(), &source.desc.bmi, source.Pixels(),
                               bg, bgBits, param, quality, args.field);
    if (result != 0) {
        progress.Finish();
        return fail("the transform: " + ResultText(result));
    }
    step();

    if (yuv) {
        KXBMINFOHEADERYUV rgb = {};
        rgb.bmi = t;
        rgb.bmi.biCompression = KXBI_RGB;
        rgb.bmi.biBitCount = 32;
        if (!ConvertTo(&target, rgb, &allocator, &why)) {
            progress.Finish();
            return fail("--yuv: " + why);
        }
        step();
    }

    // What the transform made is premultiplied; a picture that came out wholly opaque is
    // written without alpha.
    target.desc.bmi.bmiAlpha = Opaque(target) ? KXDIB_ALPHA_OPAQUE : KXDIB_ALPHA_PREMULTIPLIED;
    kelp::ImageSaveOptions save = {sizeof(kelp::ImageSaveOptions), 0, 0, 100, {0, 0}};
    const bool saved =
        ext == "png"
            ? KX_SUCCEEDED(kelp::SavePNGImage(wideTemp.c_str(), &target.desc.bmi, target.Pixels()))
            : KX_SUCCEEDED(
                  io->SaveImage(wideTemp.c_str(), &target.desc.bmi, target.Pixels(), &save));
    if (!saved || std::rename(temp.c_str(), args.out.c_str()) != 0) {
        const int e = errno;
        unlink(temp.c_str());
        progress.Finish();
        return fail(saved ? args.out + ": " + std::strerror(e) : args.out + ": cannot be written");
    }
    step();
    progress.Finish();
    std::printf("%s: %d x %d -> %s: %u x %u, %s%s%s\n", args.in.c_str(), source.Width(),
                source.Height(), args.out.c_str(), width, height, args.mode.c_str(),
                withBackground ? ", over " : "", withBackground ? args.background.c_str() : "");
    return 0;
}

} // namespace

void AddTransformCommand(CLI::App& app) {
    auto args = std::make_shared<TransformArgs>();
    CLI::App* cmd = kelptool::AddCommand(
        app, "transform", "Move and scale a picture over a background (the 2-D transform).",
        [args](const CLI::App& c) { return RunTransform(c, *args); });
    kelptool::Describe(
        *cmd, "Scales IN about its centre, moves it by --offset and composes it with its opacity\n"
              "over BG (or over nothing: transparent black) in a target of --size. IN and BG may\n"
              "have alpha; OUT keeps the alpha the transform made where its format has alpha.\n"
              "OUT is written under a temporary name and renamed when complete.\n"
              "Example: kelp transform clip.png pip.png --background frame.png --scale 0.4\n"
              "         --offset 0.25,0.25 --transparency 30");
    cmd->add_option("IN", args->in,
                    "the picture that is moved and scaled: tif, tga, jpg, bmp, png, pcx, psd,\n"
                    "wmf or bsi")
        ->required()
        ->type_name("FILE");
    cmd->add_option("OUT", args->out,
                    "the file to write: .png, .bmp, .tif, .tga, .jpg or .bsi; .tif and .jpg\n"
                    "keep no alpha")
        ->required()
        ->type_name("FILE");
    cmd->add_option("--scale", args->scale,
                    "target pixels per source pixel, 0.001 to 1000: S for both axes or SX,SY\n"
                    "(default 1: unchanged; 0.5 is half size, 2 twice the size)")
        ->type_name("S|SX,SY")
        ->check(NumberPair(true, true, kMinScale, kMaxScale));
    cmd->add_option("--offset", args->offset,
                    "X,Y: shift of the picture's centre as fractions of the target's width\n"
                    "and height, -100 to 100; positive X moves right, positive Y moves up\n"
                    "(default 0,0: centred; 0.5,0 moves half a target width right)")
        ->type_name("X,Y")
        ->check(NumberPair(false, true, -kMaxOffset, kMaxOffset));
    cmd->add_option("--transparency", args->transparency,
                    "per cent, 0 to 100: 0 opaque (default), 100 invisible, so that only the\n"
                    "background shows")
        ->type_name("T")
        ->check(NumberPair(false, false, 0, 100));
    cmd->add_option("--background", args->background,
                    "the picture underneath, any file IN may be; resampled to the target's\n"
                    "size when its size differs")
        ->type_name("BG");
    cmd->add_option("--size", args->size,
                    "width x height of OUT in pixels, each 1 to 16384 (default: the\n"
                    "background's size, else the size of IN)")
        ->type_name("WxH")
        ->check(kelptool::PictureSize(kMaxSide));
    cmd->add_option("--mode", args->mode,
                    "nearest: one source pixel for each target pixel (a transparency above 0\n"
                    "filters anyway); filter: fast 4-tap cubic B-spline (default); soft: the\n"
                    "full-precision soft cubic")
        ->type_name("MODE")
        ->check(kelptool::OneOf({"nearest", "filter", "soft"}));
    cmd->add_option("--softness", args->softness,
                    "per cent, 0 to 100: S for both axes or X,Y; stretches the filter to\n"
                    "1 + 0.99 x softness times its width, so 100 blurs over 100 times its\n"
                    "reach (default 0: sharp); any softness renders in the soft mode")
        ->type_name("S|X,Y")
        ->check(NumberPair(true, true, 0, 100));
    cmd->add_option("--field", args->field,
                    "0 or 1: render only that field of OUT, every second row (0 the first\n"
                    "field, 1 the second); the other rows show the background alone")
        ->type_name("F")
        ->check(kelptool::OneOf({"0", "1"}));
    cmd->add_option("--yuv", args->yuv,
                    "601 or 709: run the transform in meshed YUV 4:4:4 of that colour space\n"
                    "(video range, converted through the conversion manager) and write RGB\n"
                    "back")
        ->type_name("SPACE")
        ->check(kelptool::OneOf({"601", "709"}));
}
