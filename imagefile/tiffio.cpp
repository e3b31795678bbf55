// TIFF reading and writing through libtiff, on files in memory.
#include "tiffio.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace kelp {
namespace imgfile {

namespace {

// Compressions such as CCITT fax describe a blank page with a bit a row.
constexpr uint64_t kPixelsPerByte = 65536;
// The largest single allocation libtiff may make for one file.
constexpr tmsize_t kMaxSingleAlloc = tmsize_t(1) << 31;

// A file in memory, read or written by libtiff through these procedures.
struct MemFile {
    const unsigned char* data = nullptr;
    size_t size = 0;
    uint64_t pos = 0;
    ByteSink* sink = nullptr;
};

tmsize_t ReadProc(thandle_t h, void* buf, tmsize_t n) {
    MemFile* f = static_cast<MemFile*>(h);
    const unsigned char* data = f->sink ? f->sink->data() : f->data;
    const uint64_t size = f->sink ? f->sink->size() : f->size;
    if (n < 0 || f->pos >= size) return 0;
    const uint64_t k = std::min<uint64_t>(uint64_t(n), size - f->pos);
    std::memcpy(buf, data + f->pos, size_t(k));
    f->pos += k;
    return tmsize_t(k);
}

tmsize_t WriteProc(thandle_t h, void* buf, tmsize_t n) {
    MemFile* f = static_cast<MemFile*>(h);
    if (!f->sink || n < 0) return -1;
    try {
        ByteSink& s = *f->sink;
        const unsigned char* p = static_cast<const unsigned char*>(buf);
        if (f->pos == s.size()) {
            s.insert(s.end(), p, p + n);
        } else {
            if (f->pos + uint64_t(n) > s.size()) s.resize(size_t(f->pos + uint64_t(n)));
            std::memcpy(s.data() + f->pos, p, size_t(n));
        }
    } catch (...) {
        return -1;
    }
    f->pos += uint64_t(n);
    return n;
}

toff_t SeekProc(thandle_t h, toff_t off, int whence) {
    MemFile* f = static_cast<MemFile*>(h);
    const uint64_t size = f->sink ? f->sink->size() : f->size;
    uint64_t base = whence == SEEK_CUR ? f->pos : whence == SEEK_END ? size : 0;
    // Offsets are unsigned here; a negative move arrives wrapped and wraps back.
    f->pos = base + off;
    if (f->pos > (uint64_t(1) << 40)) return toff_t(-1);
    return f->pos;
}

int CloseProc(thandle_t) {
    return 0;
}

toff_t SizeProc(thandle_t h) {
    MemFile* f = static_cast<MemFile*>(h);
    return f->sink ? f->sink->size() : f->size;
}

int MapProc(thandle_t h, void** base, toff_t* size) {
    MemFile* f = static_cast<MemFile*>(h);
    if (f->sink) return 0;
    *base = const_cast<unsigned char*>(f->data);
    *size = f->size;
    return 1;
}

void UnmapProc(thandle_t, void*, toff_t) {}

// Messages of libtiff stay inside: the handlers take them and say so.
int Quiet(TIFF*, void*, const char*, const char*, va_list) {
    return 1;
}

class Tiff {
  public:
    Tiff(MemFile* f, const char* mode) {
        TIFFOpenOptions* o = TIFFOpenOptionsAlloc();
        if (!o) return;
        TIFFOpenOptionsSetErrorHandlerExtR(o, Quiet, nullptr);
        TIFFOpenOptionsSetWarningHandlerExtR(o, Quiet, nullptr);
        TIFFOpenOptionsSetMaxSingleMemAlloc(o, kMaxSingleAlloc);
        m_t = TIFFClientOpenExt("memory", mode, f, ReadProc, WriteProc, SeekProc, CloseProc,
                                SizeProc, MapProc, UnmapProc, o);
        TIFFOpenOptionsFree(o);
    }
    ~Tiff() {
        if (m_t) TIFFClose(m_t);
    }
    Tiff(const Tiff&) = delete;
    Tiff& operator=(const Tiff&) = delete;
    TIFF* get() const { return m_t; }
    // Closes now; false if the last writes failed.
    bool Close() {
        bool ok = m_t && TIFFFlush(m_t) == 1;
        if (m_t) TIFFClose(m_t);
        m_t = nullptr;
        return ok;
    }

  private:
    TIFF* m_t = nullptr;
};

struct Layout {
    uint32_t width = 0, height = 0;
    uint16_t bps = 1, spp = 1, photometric = 0, planar = PLANARCONFIG_CONTIG, orientation = 1;
    uint16_t extra = 0;     // extra samples
    uint16_t extraKind = 0; // kind of the first extra sample
    bool tiled = false;
    int32_t xResolution = 0;
};

bool ReadLayout(TIFF* t, Layout* l) {
    if (!TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &l->width) ||
        !TIFFGetField(t, TIFFTAG_IMAGELENGTH, &l->height))
        return false;
    TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &l->bps);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &l->spp);
    TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &l->planar);
    TIFFGetFieldDefaulted(t, TIFFTAG_ORIENTATION, &l->orientation);
    if (!TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &l->photometric))
        l->photometric = l->spp >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    uint16_t* kinds = nullptr;
    if (TIFFGetField(t, TIFFTAG_EXTRASAMPLES, &l->extra, &kinds) && l->extra && kinds)
        l->extraKind = kinds[0];
    l->tiled = TIFFIsTiled(t) != 0;
    float xres = 0;
    uint16_t unit = RESUNIT_INCH;
    TIFFGetFieldDefaulted(t, TIFFTAG_RESOLUTIONUNIT, &unit);
    if (TIFFGetField(t, TIFFTAG_XRESOLUTION, &xres) && xres > 0 && xres < 1e6f)
        l->xResolution = int32_t(unit == RESUNIT_CENTIMETER ? xres * 2.54f + 0.5f : xres + 0.5f);
    if (l->orientation < 1 || l->orientation > 8) l->orientation = 1;
    return l->width > 0 && l->height > 0;
}

bool HasAlpha(const Layout& l) {
    return l.extra &&
           (l.extraKind == EXTRASAMPLE_ASSOCALPHA || l.extraKind == EXTRASAMPLE_UNASSALPHA);
}

bool IsGrey(const Layout& l) {
    return l.photometric == PHOTOMETRIC_MINISBLACK || l.photometric == PHOTOMETRIC_MINISWHITE;
}

uint32_t FileBits(const Layout& l) {
    if (l.photometric == PHOTOMETRIC_PALETTE && l.spp == 1) return l.bps <= 8 ? l.bps : 24;
    if (IsGrey(l) && l.spp == 1) return l.bps <= 8 ? l.bps : 8;
    return HasAlpha(l) ? 32 : 24;
}

// A 16-bit sample or colour map entry to 8 bits, rounded to the nearest:
// v * 255 / 65535 is v / 257.
uint8_t To8(uint32_t v) {
    return uint8_t((v + 128) / 257);
}

// Rows of these layouts are read directly; every other goes through the RGBA
// interface of libtiff.
bool Direct(const Layout& l) {
    if (l.tiled || (l.planar != PLANARCONFIG_CONTIG && l.spp > 1)) return false;
    if (l.photometric == PHOTOMETRIC_RGB)
        return (l.bps == 8 || l.bps == 16) && (l.spp == 3 || (l.spp == 4 && l.extra == 1));
    if (IsGrey(l))
        return (l.spp == 1 && (l.bps == 1 || l.bps == 4 || l.bps == 8)) ||
               (l.spp == 2 && l.bps == 8 && HasAlpha(l));
    if (l.photometric == PHOTOMETRIC_PALETTE)
        return l.spp == 1 && (l.bps == 1 || l.bps == 4 || l.bps == 8);
    return false;
}

KXRESULT DecodeDirect(TIFF* t, const Layout& l, const DecodeRequest& req, Bitmap* out) {
    const bool indexed = l.spp == 1;
    uint32_t bits = req.bits;
    if (bits != 24 && bits != 32) bits = indexed ? l.bps : (HasAlpha(l) ? 32 : 24);
    // Indices and grey levels come out at their own depth; the loader widens them.
    if (indexed) bits = l.bps;
    if (!out->Create(int32_t(l.width), int32_t(l.height), bits, req.limits,
                     ResultAllocator(req, bits)))
        return KXE_IMAGEFILE;
    if (indexed) {
        if (l.photometric == PHOTOMETRIC_PALETTE) {
            uint16_t *r, *g, *b;
            if (!TIFFGetField(t, TIFFTAG_COLORMAP, &r, &g, &b)) return KXE_IMAGEFILE;
            const uint32_t n = 1u << l.bps;
            for (uint32_t i = 0; i < n; ++i)
                out->palette[i] =
                    uint32_t(To8(b[i])) | (uint32_t(To8(g[i])) << 8) | (uint32_t(To8(r[i])) << 16);
            out->colors = n;
        } else {
            SetGreyPalette(out, l.bps);
            if (l.photometric == PHOTOMETRIC_MINISWHITE)
                for (uint32_t i = 0; i < out->colors / 2; ++i)
                    std::swap(out->palette[i], out->palette[out->colors - 1 - i]);
        }
    }
    const tmsize_t lineSize = TIFFScanlineSize(t);
    const size_t need =
        indexed ? (size_t(l.width) * l.bps + 7) / 8 : size_t(l.width) * l.spp * (l.bps / 8);
    if (lineSize <= 0 || size_t(lineSize) < need) return KXE_IMAGEFILE;
    std::vector<unsigned char> line;
    try {
        line.resize(size_t(lineSize));
    } catch (...) {
        return KXE_IMAGEFILE;
    }
    const uint32_t n = bits / 8;
    const uint16_t alphaKind = l.extraKind;
    for (uint32_t y = 0; y < l.height; ++y) {
        if (TIFFReadScanline(t, line.data(), y, 0) < 0) return KXE_IMAGEFILE;
        unsigned char* d = out->Line(int32_t(y));
        const unsigned char* s = line.data();
        if (indexed) {
            std::memcpy(d, s, need);
            continue;
        }
        if (l.bps == 16) {
            // Samples in the machine's order, as libtiff gives them.
            for (uint32_t x = 0; x < l.width; ++x, s += 2 * l.spp, d += n) {
                uint16_t v[4] = {0, 0, 0, 0xFFFF};
                std::memcpy(v, s, 2 * size_t(l.spp));
                d[0] = To8(v[2]);
                d[1] = To8(v[1]);
                d[2] = To8(v[0]);
                if (n == 4) d[3] = To8(v[3]);
            }
            continue;
        }
        for (uint32_t x = 0; x < l.width; ++x, s += l.spp, d += n) {
            if (l.spp <= 2) { // grey and alpha
                d[0] = d[1] = d[2] = s[0];
                if (n == 4) d[3] = s[1];
            } else {
                d[0] = s[2];
                d[1] = s[1];
                d[2] = s[0];
                if (n == 4) d[3] = l.spp == 4 ? s[3] : 255;
            }
        }
    }
    if (bits == 32)
        out->alpha = !HasAlpha(l)                          ? Bitmap::kIgnore
                     : alphaKind == EXTRASAMPLE_ASSOCALPHA ? Bitmap::kPremultiplied
                                                           : Bitmap::kStraight;
    return KX_OK;
}

// Any other layout, as libtiff's RGBA interface gives it: alpha comes premultiplied.
KXRESULT DecodeRgba(TIFF* t, const Layout& l, const DecodeRequest& req, Bitmap* out) {
    char message[1024];
    if (!TIFFRGBAImageOK(t, message)) return KXE_IMAGEFILE;
    Bitmap raster;
    if (!raster.Create(int32_t(l.width), int32_t(l.height), 32, req.limits)) return KXE_IMAGEFILE;
    // Asking for the file's own orientation keeps the rows as they are stored.
    if (!TIFFReadRGBAImageOriented(t, l.width, l.height, reinterpret_cast<uint32_t*>(raster.Data()),
                                   l.orientation, 0))
        return KXE_IMAGEFILE;
    const bool alpha = HasAlpha(l);
    uint32_t bits = req.bits;
    if (bits != 24 && bits != 32) bits = alpha ? 32 : 24;
    if (!out->Create(int32_t(l.width), int32_t(l.height), bits, req.limits,
                     ResultAllocator(req, bits)))
        return KXE_IMAGEFILE;
    const uint32_t n = bits / 8;
    for (uint32_t y = 0; y < l.height; ++y) {
        // Raster row y is the picture's line y counted from the top.
        const uint32_t* s =
            reinterpret_cast<const uint32_t*>(raster.Data() + size_t(y) * raster.Stride());
        unsigned char* d = out->Line(int32_t(y));
        for (uint32_t x = 0; x < l.width; ++x, d += n) {
            const uint32_t v = s[x];
            d[0] = uint8_t(TIFFGetB(v));
            d[1] = uint8_t(TIFFGetG(v));
            d[2] = uint8_t(TIFFGetR(v));
            if (n == 4) d[3] = uint8_t(TIFFGetA(v));
        }
    }
    if (bits == 32) out->alpha = alpha ? Bitmap::kPremultiplied : Bitmap::kIgnore;
    return KX_OK;
}

bool OpenFirst(Tiff* t, Layout* l) {
    return t->get() && ReadLayout(t->get(), l);
}

// Whether the second picture of the file is a reduced copy of the first.
bool StampLayout(TIFF* t, Layout* l) {
    if (TIFFNumberOfDirectories(t) < 2 || !TIFFSetDirectory(t, 1)) return false;
    uint32_t kind = 0;
    if (!TIFFGetField(t, TIFFTAG_SUBFILETYPE, &kind) || !(kind & FILETYPE_REDUCEDIMAGE))
        return false;
    return ReadLayout(t, l);
}

KXRESULT DecodeCurrent(TIFF* t, const Layout& l, size_t fileBytes, const DecodeRequest& req,
                       Bitmap* out) {
    if (!SizeAllowed(l.width, l.height, req.limits) ||
        !PlausibleForBytes(uint64_t(l.width) * l.height, fileBytes, kPixelsPerByte))
        return KXE_IMAGEFILE;
    const KXRESULT r = Direct(l) ? DecodeDirect(t, l, req, out) : DecodeRgba(t, l, req, out);
    if (KX_FAILED(r)) out->Reset();
    return r;
}

class CTiffBackend : public CBackend {
  public:
    constexpr CTiffBackend() = default;
    const wchar_t* Name() const override { return L"TIFF"; }

    bool Sniff(const Bytes& file, const wchar_t*) const override {
        if (file.size < 8) return false;
        const unsigned char* p = file.data;
        return (p[0] == 'I' && p[1] == 'I' && (p[2] == 42 || p[2] == 43) && p[3] == 0) ||
               (p[0] == 'M' && p[1] == 'M' && p[2] == 0 && (p[3] == 42 || p[3] == 43));
    }

    KXRESULT Info(const Bytes& file, int32_t, FileInfo* info) const override {
        MemFile f{file.data, file.size, 0, nullptr};
        Tiff t(&f, "r");
        Layout l;
        if (!OpenFirst(&t, &l)) return KXE_IMAGEFILE;
        info->format = kFormatTiff;
        info->name = Name();
        info->width = int32_t(l.width > uint32_t(kMaxSide) ? kMaxSide + 1 : l.width);
        info->height = int32_t(l.height > uint32_t(kMaxSide) ? kMaxSide + 1 : l.height);
        info->bits = FileBits(l);
        info->xResolution = l.xResolution;
        info->orientation = l.orientation;
        Layout s;
        if (StampLayout(t.get(), &s) && s.width <= uint32_t(kMaxSide) &&
            s.height <= uint32_t(kMaxSide)) {
            info->flags |= kInfoHasStamp;
            info->stampWidth = int32_t(s.width);
            info->stampHeight = int32_t(s.height);
        }
        return KX_OK;
    }

    KXRESULT Decode(const Bytes& file, const DecodeRequest& req, Bitmap* out) const override {
        MemFile f{file.data, file.size, 0, nullptr};
        Tiff t(&f, "r");
        Layout l;
        if (!OpenFirst(&t, &l)) return KXE_IMAGEFILE;
        return DecodeCurrent(t.get(), l, file.size, req, out);
    }

    KXRESULT ReadStamp(const Bytes& file, const Limits& limits, Bitmap* out) const override {
        MemFile f{file.data, file.size, 0, nullptr};
        Tiff t(&f, "r");
        Layout l;
        if (!t.get() || !StampLayout(t.get(), &l)) return KXE_IMAGEFILE;
        DecodeRequest req;
        req.limits = limits;
        return DecodeCurrent(t.get(), l, file.size, req, out);
    }

    KXRESULT Save(const Bitmap& image, uint32_t bits, uint32_t, ByteSink* out) const override {
        if (bits != 24) return KXE_IMAGEFILE;
        // 24 and 32 bits are read as they are; other depths are widened first.
        Bitmap tmp;
        const Bitmap* src = image.Bits() >= 24 ? &image : AtDepth(image, 24, &tmp, Limits());
        if (!src) return KXE_IMAGEFILE;
        const uint32_t w = uint32_t(src->Width()), h = uint32_t(src->Height());
        const uint32_t n = src->Bits() / 8;
        const size_t rowBytes = size_t(w) * 3;
        // Strips of about 256 KiB: few calls, and a buffer that stays in the cache.
        const uint32_t rowsPerStrip =
            uint32_t(std::min<size_t>(h, std::max<size_t>(1, (size_t(1) << 18) / rowBytes)));
        std::vector<unsigned char> strip;
        out->clear();
        try {
            out->reserve(rowBytes * h + 4096);
            strip.resize(rowBytes * rowsPerStrip);
        } catch (...) {
            return KXE_IMAGEFILE;
        }
        MemFile f;
        f.sink = out;
        Tiff t(&f, "w");
        TIFF* tf = t.get();
        if (!tf) return KXE_IMAGEFILE;
        TIFFSetField(tf, TIFFTAG_IMAGEWIDTH, w);
        TIFFSetField(tf, TIFFTAG_IMAGELENGTH, h);
        TIFFSetField(tf, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tf, TIFFTAG_SAMPLESPERPIXEL, 3);
        TIFFSetField(tf, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(tf, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tf, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
        TIFFSetField(tf, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
        TIFFSetField(tf, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
        for (uint32_t y0 = 0, index = 0; y0 < h; y0 += rowsPerStrip, ++index) {
            const uint32_t rows = std::min(rowsPerStrip, h - y0);
            for (uint32_t r = 0; r < rows; ++r) {
                const unsigned char* s = src->Line(int32_t(y0 + r));
                unsigned char* d = strip.data() + size_t(r) * rowBytes;
                for (uint32_t x = 0; x < w; ++x, s += n, d += 3) {
                    d[0] = s[2];
                    d[1] = s[1];
                    d[2] = s[0];
                }
            }
            if (TIFFWriteEncodedStrip(tf, index, strip.data(), tmsize_t(rows * rowBytes)) < 0)
                return KXE_IMAGEFILE;
        }
        return t.Close() ? KX_OK : KXE_IMAGEFILE;
    }
};

} // namespace

const CBackend* TiffBackend() {
    static const CTiffBackend backend;
    return &backend;
}

} // namespace imgfile
} // namespace kelp
