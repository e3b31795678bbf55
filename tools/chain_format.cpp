// Formats as text for the chain and convert commands.
#include "chain_format.h"

#include "imagetool.h"

#include <kelp/kelp.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace chaintool {

namespace {

std::vector<std::string> Split(const std::string& s, char sep) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t at = s.find(sep, start);
        parts.push_back(s.substr(start, at == std::string::npos ? std::string::npos : at - start));
        if (at == std::string::npos) return parts;
        start = at + 1;
    }
}

// A whole number from `low` to `high`, the whole text.
bool Whole(const std::string& s, long low, long high, long* v) {
    if (s.empty() || s.size() > 10) return false;
    for (char c : s)
        if (c < '0' || c > '9') return false;
    char* end = nullptr;
    *v = std::strtol(s.c_str(), &end, 10);
    return *end == 0 && *v >= low && *v <= high;
}

struct Kind {
    const char* name;
    uint16_t bits;
    bool yuv;
    uint32_t space;
};

const Kind kKinds[] = {
    {"rgb1", 1, false, 0},      {"rgb4", 4, false, 0},       {"rgb8", 8, false, 0},
    {"rgb16", 16, false, 0},    {"rgb24", 24, false, 0},     {"rgb32", 32, false, 0},
    {"yuv24-601", 24, true, 0}, {"yuv24-709", 24, true, 2},  {"yuv32-601", 32, true, 0},
    {"yuv32-709", 32, true, 2}, {"yuv444-601", 32, true, 0}, {"yuv444-709", 32, true, 2},
};

} // namespace

bool ParseRatio(const std::string& text, uint32_t* ratio) {
    const size_t at = text.find_first_of(":/");
    long x = 0, y = 0;
    if (at == std::string::npos || !Whole(text.substr(0, at), 1, 65535, &x) ||
        !Whole(text.substr(at + 1), 1, 65535, &y))
        return false;
    const uint64_t r = (uint64_t(x) << 16) / uint64_t(y);
    if (r == 0 || r > 0xFFFFFFFFu) return false;
    *ratio = uint32_t(r);
    return true;
}

bool ParseFormat(const std::string& text, KXBMINFOHEADERYUV* out, std::string* why) {
    const std::vector<std::string> parts = Split(text, ',');
    const size_t colon = parts[0].find(':');
    if (colon == std::string::npos) {
        *why = text + " is not KIND:WxH[,OPTION...]";
        return false;
    }
    const std::string kind = parts[0].substr(0, colon), size = parts[0].substr(colon + 1);
    const Kind* k = nullptr;
    for (const Kind& candidate : kKinds)
        if (kind == candidate.name) k = &candidate;
    if (!k) {
        *why = kind + " is not one of rgb1, rgb4, rgb8, rgb16, rgb24, rgb32, yuv24-601, "
                      "yuv24-709, yuv32-601, yuv32-709, yuv444-601, yuv444-709";
        return false;
    }
    const size_t x = size.find('x');
    long w = 0, h = 0;
    if (x == std::string::npos || !Whole(size.substr(0, x), 1, 1 << 20, &w) ||
        !Whole(size.substr(x + 1), 1, 1 << 20, &h)) {
        *why = size + " is not a size WxH (each 1 to 1048576)";
        return false;
    }
    KXBMINFOHEADERYUV& r = *out;
    std::memset(&r, 0, sizeof r);
    r.bmi.biSize = k->yuv ? KXBMI_SIZE_YUV : KXBMI_SIZE;
    r.bmi.biWidth = int32_t(w);
    r.bmi.biHeight = int32_t(h);
    r.bmi.biPlanes = 1;
    r.bmi.biBitCount = k->bits;
    r.bmi.bmiMagic = KXBMI_MAGIC;
    r.bmi.bmiFrame = 1;
    r.bmi.bmiRatioX = r.bmi.bmiRatioY = 0x10000;
    if (k->yuv) {
        r.bmi.biCompression = KXBI_YUV;
        r.bmi.bmiExtOffset = KXBMI_EXTOFFSET;
        r.yuv.yuvColorSpace = k->space;
        r.yuv.yuvBits = 8;
        r.yuv.yuvSampling = KXYUV_SAMPLING_444;
    } else if (k->bits == 24) {
        r.bmi.bmiAlpha = KXDIB_ALPHA_VALID;
    } else if (k->bits == 32) {
        r.bmi.bmiAlpha = KXDIB_ALPHA_OPAQUE;
    }
    if (k->yuv && k->bits == 32) r.bmi.bmiAlpha = KXDIB_ALPHA_OPAQUE;
    for (size_t i = 1; i < parts.size(); ++i) {
        const std::string& o = parts[i];
        if (o == "interlaced") {
            r.bmi.bmiFrame = 0;
        } else if (o == "chrono") {
            r.bmi.bmiFrame = 0;
            r.bmi.bmiFormat |= KXBMIFORMAT_ODDEVEN_CHRONO;
        } else if (o == "straight" || o == "opaque" || o == "premultiplied") {
            if (k->bits != 32) {
                *why = o + ": only 32 bits hold alpha";
                return false;
            }
            r.bmi.bmiAlpha = o == "straight" ? KXDIB_ALPHA_VALID
                             : o == "opaque" ? KXDIB_ALPHA_OPAQUE
                                             : KXDIB_ALPHA_PREMULTIPLIED;
        } else if (o.compare(0, 6, "ratio=") == 0) {
            if (!ParseRatio(o.substr(6), &r.bmi.bmiRatioX)) {
                *why = o + ": the ratio is X/Y, each 1 to 65535";
                return false;
            }
        } else if (o.compare(0, 5, "rect=") == 0) {
            const std::vector<std::string> v = Split(o.substr(5), '/');
            long e[4] = {0, 0, 0, 0};
            bool ok = v.size() == 4;
            for (size_t j = 0; ok && j < 4; ++j)
                ok = Whole(v[j], 0, 1 << 20, &e[j]);
            if (!ok || e[2] < e[0] || e[3] < e[1]) {
                *why = o + ": the rectangle is L/T/R/B, right and bottom not before left and top";
                return false;
            }
            r.bmi.bmiRect = {int32_t(e[0]), int32_t(e[1]), int32_t(e[2]), int32_t(e[3])};
        } else {
            *why = o + " is not one of interlaced, chrono, straight, opaque, premultiplied, "
                       "ratio=X/Y, rect=L/T/R/B";
            return false;
        }
    }
    const uint64_t row = (uint64_t(k->bits) * uint64_t(w) / 8 + 3) & ~uint64_t(3);
    if (row * uint64_t(h) > 0xFFFFFFFFu) {
        *why = text + ": the picture would take more than 4 GB";
        return false;
    }
    r.bmi.biSizeImage = uint32_t(row * uint64_t(h));
    return true;
}

std::string Describe(const KXBMINFOHEADER* d) {
    char buf[256];
    const bool yuv = d->biCompression == KXBI_YUV;
    const char* space = "";
    if (yuv && d->biSize >= KXBMI_SIZE_YUV)
        space = kelp::DIBYuv(d)->yuvColorSpace == 2 ? " 709" : " 601";
    const int mode = kelp::DIBFieldMode(d);
    std::snprintf(buf, sizeof buf, "%s%s %d bits %dx%d, ratio %.4g, %s", yuv ? "YUV" : "RGB", space,
                  int(d->biBitCount), d->biWidth, d->biHeight,
                  double(kelp::DIBRatioX(d)) / double(kelp::DIBRatioY(d)),
                  mode == KXFIELD_PROGRESSIVE  ? "progressive"
                  : mode == KXFIELD_INTERLACED ? "interlaced"
                                               : "interlaced, chrono");
    std::string s = buf;
    if (d->biBitCount == 32) s += std::string(", ") + imagetool::AlphaName(d->bmiAlpha);
    const KXRECT& rc = d->bmiRect;
    if (rc.left | rc.top | rc.right | rc.bottom) {
        std::snprintf(buf, sizeof buf, ", rect %d/%d/%d/%d", rc.left, rc.top, rc.right, rc.bottom);
        s += buf;
    }
    return s;
}

} // namespace chaintool
