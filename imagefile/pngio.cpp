// PNG reading and writing through libpng. libpng reports errors by a long jump, which
// must not cross C++ objects that need destruction: everything between setjmp and the
// jump is plain data, and the bitmap is made (or the output grown) through a callback
// by the C++ caller, whose frame lies outside the jump.
#include "pngio.h"

#include <png.h>

#include <cstring>
#include <vector>

#include "exif.h"

namespace kelp {
namespace imgfile {

namespace {

// Deflate expands one byte to at most 1,032, and a pixel may take a single bit.
constexpr uint64_t kPixelsPerByte = 8 * 1032;
// The largest ancillary chunk libpng may allocate for.
constexpr png_alloc_size_t kMaxChunkBytes = 16u << 20;

struct Job {
    // The file.
    const unsigned char* data;
    size_t size;
    size_t pos;
    // What the header says.
    png_uint_32 width, height;
    int bitDepth, colorType, interlace;
    bool transparency;
    int32_t xResolution;
    uint32_t orientation;
    // What to decode: 24 or 32 bits, or 0 for the file's own layout.
    uint32_t wantBits;
    // Called once the layout is known: makes the bitmap and fills `rows`, and for files
    // of 16-bit samples `wideRows` (every row of an interlaced file, else one row).
    bool (*prepare)(Job* job, uint32_t bits, png_colorp palette, int colors);
    void* context;
    png_bytepp rows;
    uint32_t outBits;
    png_bytepp wideRows;
    size_t wideSamples; // samples in a row
};

// 16-bit samples (big-endian, as PNG stores them) to 8 bits, rounded to the nearest:
// v * 255 / 65535 is v / 257. libpng's own reduction is off by one for some values.
void Reduce16(const unsigned char* s, unsigned char* d, size_t samples) {
    for (size_t i = 0; i < samples; ++i, s += 2)
        d[i] = uint8_t(((uint32_t(s[0]) << 8 | s[1]) + 128) / 257);
}

void ReadBytes(png_structp png, png_bytep out, size_t n) {
    Job* job = static_cast<Job*>(png_get_io_ptr(png));
    if (n > job->size - job->pos) png_error(png, "truncated");
    std::memcpy(out, job->data + job->pos, n);
    job->pos += n;
}

void OnError(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}
void OnWarning(png_structp, png_const_charp) {}

// The depth the file's own layout comes out at.
uint32_t NaturalBits(const Job& j) {
    if (j.colorType == PNG_COLOR_TYPE_PALETTE && !j.transparency)
        return j.bitDepth == 2 ? 8 : uint32_t(j.bitDepth);
    if (j.colorType == PNG_COLOR_TYPE_GRAY && !j.transparency)
        return j.bitDepth == 1 ? 1 : j.bitDepth == 4 ? 4 : 8;
    const bool alpha = j.transparency || (j.colorType & PNG_COLOR_MASK_ALPHA);
    return alpha ? 32 : 24;
}

// The file's depth as the library reports it.
uint32_t FileBits(const Job& j) {
    if ((j.colorType == PNG_COLOR_TYPE_PALETTE || j.colorType == PNG_COLOR_TYPE_GRAY) &&
        !j.transparency)
        return j.bitDepth > 8 ? 8 : uint32_t(j.bitDepth);
    return NaturalBits(j);
}

// Reads the header, and with `decode` the picture. 1 on success, 0 on failure.
int Run(Job* job, bool decode) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, OnError, OnWarning);
    if (!png) return 0;
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        return 0;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return 0;
    }
    png_set_read_fn(png, job, ReadBytes);
    png_set_user_limits(png, uint32_t(kMaxSide), uint32_t(kMaxSide));
    png_set_chunk_malloc_max(png, kMaxChunkBytes);
    png_read_info(png, info);
    png_get_IHDR(png, info, &job->width, &job->height, &job->bitDepth, &job->colorType,
                 &job->interlace, nullptr, nullptr);
    job->transparency = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
    png_uint_32 rx = 0, ry = 0;
    int unit = 0;
    if (png_get_pHYs(png, info, &rx, &ry, &unit) && unit == PNG_RESOLUTION_METER && rx < 0x7FFFFFFF)
        job->xResolution = int32_t((uint64_t(rx) * 254 + 5000) / 10000);
    png_uint_32 exifSize = 0;
    png_bytep exif = nullptr;
    if (png_get_eXIf_1(png, info, &exifSize, &exif) && exif) {
        // Some writers keep the "Exif\0\0" of the JPEG segment in front.
        const unsigned char* t = exif;
        size_t n = exifSize;
        if (n >= 6 && std::memcmp(t, "Exif\0\0", 6) == 0) {
            t += 6;
            n -= 6;
        }
        ExifInfo ex;
        if (ParseExif(t, n, &ex)) job->orientation = ex.orientation;
    }
    if (!decode) {
        png_destroy_read_struct(&png, &info, nullptr);
        return 1;
    }

    const uint32_t bits =
        (job->wantBits == 24 || job->wantBits == 32) ? job->wantBits : NaturalBits(*job);
    png_colorp palette = nullptr;
    int colors = 0;
    if (bits <= 8) {
        // Indices or grey levels, packed as the bitmap packs them; two bits a pixel
        // are spread to a byte. 16-bit grey levels are reduced after reading.
        if (job->bitDepth == 2) png_set_packing(png);
        if (job->colorType == PNG_COLOR_TYPE_PALETTE) png_get_PLTE(png, info, &palette, &colors);
    } else {
        png_set_expand(png);
        png_set_gray_to_rgb(png);
        png_set_bgr(png);
        const bool alpha = job->transparency || (job->colorType & PNG_COLOR_MASK_ALPHA);
        if (bits == 32 && !alpha) png_set_filler(png, 0xFFFF, PNG_FILLER_AFTER);
        if (bits == 24 && alpha) png_set_strip_alpha(png);
    }
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    const size_t want =
        bits <= 8 ? (size_t(job->width) * bits + 7) / 8 : size_t(job->width) * (bits / 8);
    const bool wide = job->bitDepth == 16;
    job->wideSamples = wide ? want : 0;
    if (png_get_rowbytes(png, info) != (wide ? 2 * want : want)) {
        png_destroy_read_struct(&png, &info, nullptr);
        return 0;
    }
    job->outBits = bits;
    if (!job->prepare(job, bits, palette, colors)) {
        png_destroy_read_struct(&png, &info, nullptr);
        return 0;
    }
    if (!wide) {
        png_read_image(png, job->rows);
    } else if (job->interlace != PNG_INTERLACE_NONE) {
        // Every pass fills the whole 16-bit picture before it is reduced.
        png_read_image(png, job->wideRows);
        for (png_uint_32 y = 0; y < job->height; ++y)
            Reduce16(job->wideRows[y], job->rows[y], want);
    } else {
        for (png_uint_32 y = 0; y < job->height; ++y) {
            png_read_row(png, job->wideRows[0], nullptr);
            Reduce16(job->wideRows[0], job->rows[y], want);
        }
    }
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return 1;
}

// The C++ side of a decode: the bitmap and the row table.
struct Target {
    Bitmap* out;
    const DecodeRequest* req;
    std::vector<png_bytep> rows;
    std::vector<unsigned char> wide; // 16-bit samples before their reduction
    std::vector<png_bytep> wideRows;
};

bool Prepare(Job* job, uint32_t bits, png_colorp palette, int colors) {
    Target* t = static_cast<Target*>(job->context);
    try {
        if (!t->out->Create(int32_t(job->width), int32_t(job->height), bits, t->req->limits,
                            ResultAllocator(*t->req, bits)))
            return false;
        t->rows.resize(job->height);
        if (job->wideSamples) {
            const size_t stride = 2 * job->wideSamples;
            const size_t n = job->interlace != PNG_INTERLACE_NONE ? job->height : 1;
            t->wide.resize(stride * n);
            t->wideRows.resize(n);
            for (size_t y = 0; y < n; ++y)
                t->wideRows[y] = t->wide.data() + y * stride;
            job->wideRows = t->wideRows.data();
        }
    } catch (...) {
        return false;
    }
    for (png_uint_32 y = 0; y < job->height; ++y)
        t->rows[y] = t->out->Line(int32_t(y));
    job->rows = t->rows.data();
    if (bits <= 8) {
        if (palette) {
            for (int i = 0; i < colors && i < 256; ++i)
                t->out->palette[i] = uint32_t(palette[i].blue) | (uint32_t(palette[i].green) << 8) |
                                     (uint32_t(palette[i].red) << 16);
            t->out->colors = uint32_t(colors > 256 ? 256 : colors);
        } else {
            SetGreyPalette(t->out, job->bitDepth > 8 ? 8 : uint32_t(job->bitDepth));
        }
    }
    return true;
}

void InitJob(const Bytes& file, Job* job) {
    std::memset(job, 0, sizeof *job);
    job->data = file.data;
    job->size = file.size;
    job->orientation = 1;
}

// ---------------------------------------------------------------- writing

struct WriteJob {
    ByteSink* out;
};

void WriteBytes(png_structp png, png_bytep data, size_t n) {
    WriteJob* job = static_cast<WriteJob*>(png_get_io_ptr(png));
    bool ok = true;
    try {
        job->out->insert(job->out->end(), data, data + n);
    } catch (...) {
        ok = false;
    }
    // The jump is taken outside the handler, so that no exception is left behind.
    if (!ok) png_error(png, "out of memory");
}

void FlushNothing(png_structp) {}

// Premultiplied colours divided back by their alpha, as PNG stores straight alpha; a
// pixel of alpha 0 has no colour.
void Unpremultiply(const unsigned char* s, unsigned char* d, int32_t width) {
    for (int32_t x = 0; x < width; ++x, s += 4, d += 4) {
        const uint32_t a = s[3];
        for (int c = 0; c < 3; ++c) {
            const uint32_t v = a ? (uint32_t(s[c]) * 255 + a / 2) / a : 0;
            d[c] = uint8_t(v > 255 ? 255 : v);
        }
        d[3] = uint8_t(a);
    }
}

// Writes `image` (24 or 32 bits) as 8-bit RGB, or RGBA with `alpha`. `row` holds one
// row of the image for the premultiplied case. 1 on success, 0 on failure.
int WriteRun(const Bitmap& image, bool alpha, WriteJob* job, unsigned char* row) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, OnError, OnWarning);
    if (!png) return 0;
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        return 0;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return 0;
    }
    png_set_write_fn(png, job, WriteBytes, FlushNothing);
    png_set_IHDR(png, info, png_uint_32(image.Width()), png_uint_32(image.Height()), 8,
                 alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_bgr(png);
    // A fourth byte that is no alpha is left out of the file.
    if (image.Bits() == 32 && !alpha) png_set_filler(png, 0, PNG_FILLER_AFTER);
    const bool premultiplied = alpha && image.alpha == Bitmap::kPremultiplied;
    for (int32_t y = 0; y < image.Height(); ++y) {
        unsigned char* line = image.Line(y);
        if (premultiplied) {
            Unpremultiply(line, row, image.Width());
            line = row;
        }
        png_write_row(png, line);
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return 1;
}

class CPngBackend : public CBackend {
  public:
    constexpr CPngBackend() = default;
    const wchar_t* Name() const override { return L"PNG"; }

    bool Sniff(const Bytes& file, const wchar_t*) const override {
        return file.size >= 8 && png_sig_cmp(file.data, 0, 8) == 0;
    }

    // The header is every chunk before the first image data chunk, whose length and name
    // end it.
    uint64_t InfoBytes(const Bytes& head, uint64_t) const override {
        uint64_t pos = 8;
        for (;;) {
            if (pos + 8 > head.size) return pos + 8;
            const unsigned char* c = head.data + pos;
            if (std::memcmp(c + 4, "IDAT", 4) == 0) return pos + 8;
            const uint64_t length =
                (uint64_t(c[0]) << 24) | (uint32_t(c[1]) << 16) | (uint32_t(c[2]) << 8) | c[3];
            pos += 12 + length;
        }
    }

    KXRESULT Info(const Bytes& file, int32_t, FileInfo* info) const override {
        Job job;
        InitJob(file, &job);
        if (!Run(&job, false)) return KXE_IMAGEFILE;
        info->format = kFormatPng;
        info->name = Name();
        info->width = int32_t(job.width);
        info->height = int32_t(job.height);
        info->bits = FileBits(job);
        info->xResolution = job.xResolution;
        info->orientation = job.orientation;
        return KX_OK;
    }

    KXRESULT Decode(const Bytes& file, const DecodeRequest& req, Bitmap* out) const override {
        Job job;
        InitJob(file, &job);
        if (!Run(&job, false)) return KXE_IMAGEFILE;
        if (!SizeAllowed(job.width, job.height, req.limits) ||
            !PlausibleForBytes(uint64_t(job.width) * job.height, file.size, kPixelsPerByte))
            return KXE_IMAGEFILE;
        Target target{out, &req, {}, {}, {}};
        InitJob(file, &job);
        job.wantBits = req.bits;
        job.prepare = Prepare;
        job.context = &target;
        if (!Run(&job, true)) {
            out->Reset();
            return KXE_IMAGEFILE;
        }
        if (job.outBits == 32) {
            const bool alpha = job.transparency || (job.colorType & PNG_COLOR_MASK_ALPHA);
            out->alpha = alpha ? Bitmap::kStraight : Bitmap::kIgnore;
        }
        return KX_OK;
    }

    // 24 bits: RGB. 32 bits: RGBA, or RGB where the fourth byte holds no alpha. PNG is
    // lossless: the quality factor has nothing to choose.
    KXRESULT Save(const Bitmap& image, uint32_t bits, uint32_t, ByteSink* out) const override {
        if ((bits != 24 && bits != 32) || (image.Bits() != 24 && image.Bits() != 32))
            return KXE_IMAGEFILE;
        Bitmap tmp;
        const Bitmap* src = AtDepth(image, bits, &tmp, Limits());
        if (!src) return KXE_IMAGEFILE;
        const bool alpha = bits == 32 && src->alpha != Bitmap::kIgnore;
        std::vector<unsigned char> row;
        try {
            if (alpha && src->alpha == Bitmap::kPremultiplied) row.resize(size_t(src->Width()) * 4);
            out->clear();
        } catch (...) {
            return KXE_IMAGEFILE;
        }
        WriteJob job{out};
        return WriteRun(*src, alpha, &job, row.data()) ? KX_OK : KXE_IMAGEFILE;
    }
};

} // namespace

const CBackend* PngBackend() {
    static const CPngBackend backend;
    return &backend;
}

} // namespace imgfile
} // namespace kelp
