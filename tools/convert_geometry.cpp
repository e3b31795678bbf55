// The geometry options of kelp convert.
#include "convert_geometry.h"

#include <cstdlib>
#include <cstring>
#include <vector>

#include "chain_format.h"
#include "cli.h"

namespace convertgeometry {

namespace {

constexpr uint32_t kMaxSide = 1u << 20;

// L,T,R,B, each 0 to 1048576, right and bottom not before left and top.
bool ParseCrop(const std::string& text, KXRECT* rect) {
    long v[4] = {0, 0, 0, 0};
    size_t start = 0;
    for (int i = 0; i < 4; ++i) {
        const size_t at = text.find(',', start);
        if ((i < 3) != (at != std::string::npos)) return false;
        const std::string part = text.substr(start, at == std::string::npos ? at : at - start);
        if (part.empty() || part.size() > 7 || part.find_first_not_of("0123456789") != part.npos)
            return false;
        v[i] = std::strtol(part.c_str(), nullptr, 10);
        if (v[i] > long(kMaxSide)) return false;
        start = at + 1;
    }
    if (v[2] < v[0] || v[3] < v[1]) return false;
    *rect = {int32_t(v[0]), int32_t(v[1]), int32_t(v[2]), int32_t(v[3])};
    return true;
}

CLI::Validator CropCheck() {
    return CLI::Validator(
        [](std::string& s) -> std::string {
            KXRECT r;
            return ParseCrop(s, &r) ? std::string()
                                    : s + " is not L,T,R,B (right and bottom not before left "
                                          "and top)";
        },
        "L,T,R,B");
}

CLI::Validator RatioCheck() {
    return CLI::Validator(
        [](std::string& s) -> std::string {
            uint32_t r;
            return chaintool::ParseRatio(s, &r) ? std::string()
                                                : s + " is not X:Y (each 1 to 65535)";
        },
        "X:Y");
}

} // namespace

void AddOptions(CLI::App* cmd, Options* o) {
    cmd->add_option("--size", o->size,
                    "width x height in pixels, each 1 to 1048576: the size of OUT, made by the\n"
                    "conversion manager (centred without --fit)")
        ->type_name("WxH")
        ->check(kelptool::PictureSize(kMaxSide));
    cmd->add_option("--fit", o->fit,
                    "fast or good: stretch the picture to --size (fast: nearest neighbour,\n"
                    "good: filtered)")
        ->type_name("HOW")
        ->check(kelptool::OneOf({"fast", "good"}));
    cmd->add_flag("--keep-aspect", o->keepAspect, "keep the picture's aspect when fitting");
    cmd->add_flag("--fit-width", o->fitWidth, "fit the picture to the width of --size");
    cmd->add_flag("--fit-height", o->fitHeight, "fit the picture to the height of --size");
    cmd->add_flag("--cover", o->cover,
                  "fit so that the picture covers --size rather than lies within it");
    cmd->add_option("--ratio", o->ratio,
                    "X:Y, the pixel ratio of OUT (a pixel's width to its height)")
        ->type_name("X:Y")
        ->check(RatioCheck());
    cmd->add_option("--crop", o->crop,
                    "L,T,R,B: keep this rectangle (left, top, right, bottom in pixels, right\n"
                    "and bottom exclusive) and clear the rest")
        ->type_name("L,T,R,B")
        ->check(CropCheck());
    cmd->add_flag("--progressive", o->progressive, "make an interlaced picture progressive");
    cmd->add_flag("--swap-fields", o->swapFields, "take the other field of an interlaced picture");
}

bool Wanted(const Options& o) {
    return !o.size.empty() || !o.ratio.empty() || !o.crop.empty() || o.progressive;
}

bool BuildOutput(const Options& o, const KXBMINFOHEADER* in, KXBMINFOHEADERYUV* out,
                 uint32_t* flags, std::string* why) {
    std::memset(out, 0, sizeof *out);
    std::memcpy(out, in, std::min<size_t>(in->biSize, sizeof *out));
    KXBMINFOHEADER& d = out->bmi;
    if (d.biBitCount < 24) {
        d.biBitCount = 24;
        d.biClrUsed = 0;
    }
    uint32_t f = KXCONV_KEEP_INPUT;
    if (!o.size.empty()) {
        uint32_t w = 0, h = 0;
        if (!kelptool::ParseSize(o.size, kMaxSide, &w, &h)) {
            *why = "--size: " + o.size + " is not a size";
            return false;
        }
        d.biWidth = int32_t(w);
        d.biHeight = in->biHeight < 0 ? -int32_t(h) : int32_t(h);
    }
    if (!o.ratio.empty() && !chaintool::ParseRatio(o.ratio, &d.bmiRatioX)) {
        *why = "--ratio: " + o.ratio + " is not X:Y";
        return false;
    }
    if (!o.ratio.empty()) d.bmiRatioY = 0x10000;
    if (!o.crop.empty()) {
        if (!ParseCrop(o.crop, &d.bmiRect)) {
            *why = "--crop: " + o.crop + " is not L,T,R,B";
            return false;
        }
        const int32_t h = d.biHeight < 0 ? -d.biHeight : d.biHeight;
        if (d.bmiRect.right > d.biWidth || d.bmiRect.bottom > h) {
            *why = "--crop: " + o.crop + " reaches beyond the picture";
            return false;
        }
    }
    if (o.progressive) {
        d.bmiFrame = 1;
        d.bmiFormat &= ~KXBMIFORMAT_ODDEVEN_CHRONO;
        f |= KXCONV_ALLOW_FIELDS;
    }
    if (o.fit == "fast") f |= KXCONV_FIT_FAST;
    if (o.fit == "good") f |= KXCONV_FIT_GOOD;
    if (o.keepAspect) f |= KXCONV_KEEP_ASPECT;
    if (o.fitWidth) f |= KXCONV_FIT_WIDTH;
    if (o.fitHeight) f |= KXCONV_FIT_HEIGHT;
    if (o.cover) f |= KXCONV_FIT_COVER;
    if (o.swapFields) f |= KXCONV_SWAP_FIELDS;
    d.biSizeImage = uint32_t(((uint32_t(d.biBitCount) * uint32_t(d.biWidth) / 8) + 3) & ~3u) *
                    uint32_t(d.biHeight < 0 ? -d.biHeight : d.biHeight);
    *flags = f;
    return true;
}

bool Apply(const Options& o, KXBMINFOHEADERYUV* desc, void** pixels, kelp::IAllocator* allocator,
           std::string* why) {
    KXBMINFOHEADERYUV out;
    uint32_t flags = 0;
    if (!BuildOutput(o, &desc->bmi, &out, &flags, why)) return false;
    kelp::IConversionManager* cm = KXCONVCreateConversionManager();
    if (!cm) {
        *why = "out of memory";
        return false;
    }
    cm->Init(KXCONV_VERSION, 0);
    void* converted = nullptr;
    int32_t quality = 0;
    const KXRESULT r =
        cm->Convert(&desc->bmi, *pixels, &out.bmi, &converted, &flags, &quality, allocator);
    cm->Release();
    if (KX_FAILED(r)) {
        if (converted && converted != *pixels) allocator->Free(converted);
        *why = "the conversion manager found no chain of stages for that geometry";
        return false;
    }
    if (converted != *pixels) {
        allocator->Free(*pixels);
        *pixels = converted;
    }
    *desc = out;
    return true;
}

} // namespace convertgeometry
