// YUV pictures in the tool.
//
// BT.601 and BT.709 go through the conversion manager, which finds the stages (a depth
// stage first where the picture is neither 24 nor 32 bits). Full-range BT.601 is no
// format the manager takes, so the tool runs the colour converter itself, in place, on
// rows of 4-byte multiples as the stages do. Either way a top-down picture is first
// turned into the bottom-up one it shows, since the colour conversions work on
// bottom-up rows only.
#include "convert_yuv.h"

#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "cli.h"

namespace kelptool {

namespace {

constexpr uint32_t kNoSpace = 0xFFFFFFFFu;

uint32_t SpaceCode(const std::string& name) {
    return name == "601"    ? uint32_t(kelp::CKXCsc::CS_CCIR601)
           : name == "709"  ? uint32_t(kelp::CKXCsc::CS_ITU709)
           : name == "full" ? uint32_t(kelp::CKXCsc::CS_Normalized)
                            : kNoSpace;
}

const char* SpaceName(uint32_t space) {
    switch (space) {
    case kelp::CKXCsc::CS_CCIR601:
        return "BT.601";
    case kelp::CKXCsc::CS_ITU709:
        return "BT.709";
    case kelp::CKXCsc::CS_Normalized:
        return "BT.601 full range";
    default:
        return "unknown";
    }
}

bool HasExtension(const KXBMINFOHEADER* d) {
    return d->biCompression == KXBI_YUV && d->biSize >= KXBMI_SIZE_YUV;
}

// Bytes from one row to the next in the stages' and the colour converter's buffers.
uint64_t Pitch(const KXBMINFOHEADER* d) {
    return (uint64_t(d->biBitCount) * uint64_t(uint32_t(d->biWidth)) / 8 + 3) & ~uint64_t(3);
}

// Whether the pixels hold every row of a 24- or 32-bit picture as the conversions read
// them: the loader checks only the bytes of the pixels themselves, not the padding of
// each row to 4 bytes.
bool RowsFit(const KXBMINFOHEADER* d) {
    if ((d->biBitCount != 24 && d->biBitCount != 32) || d->biWidth <= 0 || d->biHeight == 0 ||
        d->biHeight == INT32_MIN)
        return false;
    const uint64_t rows = uint64_t(d->biHeight < 0 ? -int64_t(d->biHeight) : d->biHeight);
    const uint64_t pitch = Pitch(d);
    return pitch <= 0x7FFFFFFFu && pitch * rows <= d->biSizeImage;
}

// A top-down 24- or 32-bit picture becomes the bottom-up picture it shows.
void MakeBottomUp(KXBMINFOHEADER* d, void* pixels) {
    if (d->biHeight >= 0 || !RowsFit(d)) return;
    const size_t pitch = size_t(Pitch(d)), rows = size_t(-int64_t(d->biHeight));
    std::vector<uint8_t> row(pitch);
    uint8_t* p = static_cast<uint8_t*>(pixels);
    for (size_t top = 0, bottom = rows - 1; top < bottom; ++top, --bottom) {
        std::memcpy(row.data(), p + top * pitch, pitch);
        std::memcpy(p + top * pitch, p + bottom * pitch, pitch);
        std::memcpy(p + bottom * pitch, row.data(), pitch);
    }
    d->biHeight = int32_t(rows);
}

void MakeYuvRecord(KXBMINFOHEADERYUV* r, uint32_t space) {
    r->bmi.biSize = KXBMI_SIZE_YUV;
    r->bmi.biCompression = KXBI_YUV;
    r->bmi.biPlanes = 1;
    r->bmi.biClrUsed = 0;
    r->bmi.bmiExtOffset = KXBMI_EXTOFFSET;
    r->bmi.bmiAlignment = 0;
    r->yuv.yuvColorSpace = space;
    r->yuv.yuvBits = 8;
    r->yuv.yuvSampling = KXYUV_SAMPLING_444;
    r->yuv.yuvSamplingAux = 0;
}

void MakeRgbRecord(KXBMINFOHEADERYUV* r) {
    r->bmi.biSize = KXBMI_SIZE;
    r->bmi.biCompression = KXBI_RGB;
    r->bmi.bmiExtOffset = 0;
    std::memset(&r->yuv, 0, sizeof r->yuv);
}

// The picture converted by the manager into the format `out`.
bool Manage(KXBMINFOHEADERYUV* desc, void** pixels, KXBMINFOHEADERYUV out, uint32_t flags,
            kelp::IAllocator* allocator, std::string* why) {
    kelp::IConversionManager* cm = KXCONVCreateConversionManager();
    if (!cm) {
        *why = "out of memory";
        return false;
    }
    cm->Init(KXCONV_VERSION, 0);
    out.bmi.biSizeImage = 0;
    void* converted = nullptr;
    int32_t quality = 0;
    // Without KXCONV_KEEP_INPUT: the stages that can work in place on the picture do.
    const KXRESULT r =
        cm->Convert(&desc->bmi, *pixels, &out.bmi, &converted, &flags, &quality, allocator);
    cm->Release();
    if (KX_FAILED(r)) {
        // The manager has freed whatever it made; the picture is of no use any more.
        *why = std::string("the conversion manager has no way from ") +
               (HasExtension(&desc->bmi) ? std::string("YUV ") + SpaceName(desc->yuv.yuvColorSpace)
                                         : std::string("RGB")) +
               " at " + std::to_string(desc->bmi.biBitCount) + " bits to " +
               (HasExtension(&out.bmi) ? std::string("YUV ") + SpaceName(out.yuv.yuvColorSpace)
                                       : std::string("RGB")) +
               " at " + std::to_string(out.bmi.biBitCount) + " bits";
        return false;
    }
    if (converted != *pixels) {
        allocator->Free(*pixels);
        *pixels = converted;
    }
    *desc = out;
    return true;
}

// The tests the manager makes of a YUV record, but for the colour space.
bool MeshedYuv444(const KXBMINFOHEADER* d) {
    if (!HasExtension(d) || d->biPlanes != 1 || d->bmiExtOffset != KXBMI_EXTOFFSET ||
        (d->bmiFormat & KXBMIFORMAT_TWOFIELDS))
        return false;
    const KXYUVEXT* e = kelp::DIBYuv(d);
    return (e->yuvBits == 0 || e->yuvBits == 8) && e->yuvSampling == KXYUV_SAMPLING_444 &&
           e->yuvSamplingAux == 0;
}

// RGB to full-range YUV, or back, by the colour converter, in place.
bool FullRange(bool toYuv, uint32_t chromaLimit, KXBMINFOHEADERYUV* desc, void* pixels,
               std::string* why) {
    if (!RowsFit(&desc->bmi)) {
        *why = "the pixels do not hold the picture's rows";
        return false;
    }
    MakeBottomUp(&desc->bmi, pixels);
    kelp::CKXCsc csc;
    csc.Init(kelp::CKXCsc::CS_Normalized);
    csc.ColorLimit(chromaLimit == 75 ? 1 : 0);
    uint8_t* p = static_cast<uint8_t*>(pixels);
    const KXBMINFOHEADER& d = desc->bmi;
    const uint32_t pitch = uint32_t(Pitch(&d));
    const int done =
        toYuv ? csc.BGRToYUV444Meshed(p, p, d.biWidth, d.biHeight, d.biBitCount / 8u, pitch)
              : csc.YUV444MeshedToBGR(p, p, d.biWidth, d.biHeight, d.biBitCount / 8u, pitch);
    if (!done) {
        *why = "the colour converter refused the picture";
        return false;
    }
    if (toYuv)
        MakeYuvRecord(desc, kelp::CKXCsc::CS_Normalized);
    else
        MakeRgbRecord(desc);
    desc->bmi.biSizeImage = pitch * uint32_t(d.biHeight);
    return true;
}

// A YUV picture as RGB of the same depth.
bool ToRgb(KXBMINFOHEADERYUV* desc, void** pixels, kelp::IAllocator* allocator, std::string* why) {
    if (!MeshedYuv444(&desc->bmi)) {
        *why = "the YUV picture is not meshed 4:4:4 in 8 bits, the only YUV the library converts";
        return false;
    }
    if (desc->yuv.yuvColorSpace == kelp::CKXCsc::CS_Normalized)
        return FullRange(false, 100, desc, *pixels, why);
    MakeBottomUp(&desc->bmi, *pixels);
    KXBMINFOHEADERYUV out = *desc;
    MakeRgbRecord(&out);
    return Manage(desc, pixels, out, 0, allocator, why);
}

} // namespace

void AddYuvOptions(CLI::App& command, YuvOptions* options) {
    command
        .add_option("--yuv", options->space,
                    "601, 709 or full: OUT (a .bsi) holds meshed YUV 4:4:4 in that colour\n"
                    "space: BT.601 or BT.709 in limited range (luma 16..235), or BT.601 in\n"
                    "full range, which only the tool converts (the conversion manager\n"
                    "takes 601 and 709). A YUV .bsi read for any other OUT becomes RGB")
        ->type_name("SPACE")
        ->check(OneOf({"601", "709", "full"}));
    command
        .add_option("--chroma-limit", options->chromaLimit,
                    "100 or 75, with --yuv: per cent of the chroma range, 16..240 at 100\n"
                    "(default) or 44..212 at 75")
        ->type_name("PERCENT")
        ->check(OneOf({"100", "75"}));
}

std::string CheckYuvOptions(const YuvOptions& options, const std::string& ext) {
    if (options.space.empty()) {
        if (options.chromaLimit != 100) return "--chroma-limit needs --yuv";
        return "";
    }
    if (ext != "bsi") return "--yuv needs a .bsi output: no other file holds YUV";
    return "";
}

bool ApplyYuv(const YuvOptions& options, const std::string& ext, KXBMINFOHEADERYUV* desc,
              void** pixels, kelp::IAllocator* allocator, std::string* why) {
    const bool isYuv = desc->bmi.biCompression == KXBI_YUV;
    if (options.space.empty()) {
        // A YUV picture stays YUV in a .bsi, and becomes RGB for every other file.
        return !isYuv || ext == "bsi" || ToRgb(desc, pixels, allocator, why);
    }
    // From one colour space to another by way of RGB: no stage leads from a 24-bit YUV
    // picture to another space.
    if (isYuv && !ToRgb(desc, pixels, allocator, why)) return false;
    const uint32_t space = SpaceCode(options.space);
    const uint16_t bits = desc->bmi.biBitCount == 32 ? 32 : 24;
    MakeBottomUp(&desc->bmi, *pixels);
    if (space == kelp::CKXCsc::CS_Normalized) {
        if (desc->bmi.biBitCount != bits) {
            KXBMINFOHEADERYUV rgb = *desc;
            rgb.bmi.biBitCount = bits;
            rgb.bmi.biClrUsed = 0;
            if (!Manage(desc, pixels, rgb, 0, allocator, why)) return false;
        }
        return FullRange(true, options.chromaLimit, desc, *pixels, why);
    }
    KXBMINFOHEADERYUV out = *desc;
    MakeYuvRecord(&out, space);
    out.bmi.biBitCount = bits;
    const uint32_t flags = options.chromaLimit == 75 ? KXCONV_COLOR_LIMIT : 0;
    return Manage(desc, pixels, out, flags, allocator, why);
}

std::string YuvSummary(const KXBMINFOHEADER* desc) {
    if (!HasExtension(desc)) return "";
    const KXYUVEXT* e = kelp::DIBYuv(desc);
    const char* sampling = e->yuvSampling == KXYUV_SAMPLING_444 ? "4:4:4" : "of another sampling";
    return std::string(", YUV ") + sampling + " " + SpaceName(e->yuvColorSpace);
}

void PrintYuvInfo(const KXBMINFOHEADER* desc) {
    if (!HasExtension(desc)) {
        std::printf("colour space: not stated (the record has no YUV extension)\n");
        return;
    }
    const KXYUVEXT* e = kelp::DIBYuv(desc);
    switch (e->yuvColorSpace) {
    case kelp::CKXCsc::CS_CCIR601:
        std::printf("colour space: BT.601, limited range (luma 16..235)\n");
        break;
    case kelp::CKXCsc::CS_ITU709:
        std::printf("colour space: BT.709, limited range (luma 16..235)\n");
        break;
    case kelp::CKXCsc::CS_Normalized:
        std::printf("colour space: BT.601, full range (read by the tool, not by the "
                    "conversion manager)\n");
        break;
    default:
        std::printf("colour space: unknown (%u)\n", e->yuvColorSpace);
        break;
    }
    const char* layout = nullptr;
    switch (e->yuvSampling) {
    case KXYUV_SAMPLING_444:
        layout = "4:4:4";
        break;
    case KXYUV_SAMPLING_422:
    case KXYUV_SAMPLING_422B:
        layout = "4:2:2";
        break;
    case KXYUV_SAMPLING_411:
        layout = "4:1:1";
        break;
    case KXYUV_SAMPLING_420:
        layout = "4:2:0";
        break;
    }
    const unsigned bitsEach = e->yuvBits == 0 ? 8u : e->yuvBits;
    if (layout)
        std::printf("sampling:     %s, %s, %u bits a component%s\n", layout,
                    desc->biPlanes > 1 ? "planar" : "meshed", bitsEach,
                    desc->biBitCount == 32 ? ", with alpha" : "");
    else
        std::printf("sampling:     unknown (%u)\n", e->yuvSampling);
}

} // namespace kelptool
