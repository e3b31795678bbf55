// JPEG reading and writing through TurboJPEG.
#include "jpegio.h"

#include <turbojpeg.h>

#include <cstring>

#include "bytereader.h"
#include "exif.h"

namespace kelp {
namespace imgfile {

namespace {

// A legal JPEG file can describe a large, flat picture with very few bytes (a block of
// 64 pixels may cost 2 bits, and progressive files skip whole runs of blocks); one
// byte may stand for at most this many pixels here.
constexpr uint64_t kPixelsPerByte = 65536;
// Decoding stops on any warning (a truncated or damaged file fails) and refuses files
// with absurd numbers of progressive scans.
constexpr int kDecodeFlags = TJFLAG_BOTTOMUP | TJFLAG_STOPONWARNING | TJFLAG_LIMITSCANS;

class Handle {
  public:
    explicit Handle(tjhandle h) : m_h(h) {}
    ~Handle() {
        if (m_h) tjDestroy(m_h);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    tjhandle get() const { return m_h; }

  private:
    tjhandle m_h;
};

struct Header {
    int width = 0, height = 0, subsamp = 0, colorspace = 0;
};

bool ReadHeader(tjhandle h, const unsigned char* data, size_t size, Header* hd) {
    if (!h || size == 0 || size > 0xFFFFFFFFu) return false;
    return tjDecompressHeader3(h, data, (unsigned long)size, &hd->width, &hd->height, &hd->subsamp,
                               &hd->colorspace) == 0 &&
           hd->width > 0 && hd->height > 0;
}

// The smallest scale whose picture still covers minWidth x minHeight.
tjscalingfactor ChooseScale(int width, int height, int32_t minWidth, int32_t minHeight) {
    tjscalingfactor best = {1, 1};
    if (minWidth <= 0 && minHeight <= 0) return best;
    int n = 0;
    const tjscalingfactor* f = tjGetScalingFactors(&n);
    for (int i = 0; f && i < n; ++i) {
        if (f[i].num > f[i].denom) continue;
        const int w = TJSCALED(width, f[i]), h = TJSCALED(height, f[i]);
        if (w < minWidth || h < minHeight || w < 1 || h < 1) continue;
        if (uint64_t(w) * uint64_t(h) <
            uint64_t(TJSCALED(width, best)) * uint64_t(TJSCALED(height, best)))
            best = f[i];
    }
    return best;
}

// CMYK pixels (as decoded) into blue, green, red. Files with an Adobe segment store
// the inks inverted, as nearly all CMYK JPEG files do.
void CmykToBgr(const unsigned char* s, unsigned char* d, int width, bool inverted, uint32_t n) {
    for (int x = 0; x < width; ++x, s += 4, d += n) {
        uint32_t c = s[0], m = s[1], y = s[2], k = s[3];
        if (!inverted) {
            c = 255 - c;
            m = 255 - m;
            y = 255 - y;
            k = 255 - k;
        }
        d[0] = uint8_t((y * k + 127) / 255);
        d[1] = uint8_t((m * k + 127) / 255);
        d[2] = uint8_t((c * k + 127) / 255);
        if (n == 4) d[3] = 255;
    }
}

// Dots per inch from the JFIF segment, or 0.
int32_t JfifResolution(const unsigned char* data, size_t size) {
    const unsigned char* p;
    size_t n;
    if (!FindJpegSegment(data, size, 0xFFE0, "JFIF\0", 5, &p, &n) || n < 5) return 0;
    const uint32_t units = p[2], x = (uint32_t(p[3]) << 8) | p[4];
    if (units == 1) return int32_t(x);
    if (units == 2) return int32_t((x * 254 + 50) / 100);
    return 0;
}

} // namespace

int JpegQuality(uint32_t qualityFactor) {
    if (qualityFactor < 2) qualityFactor = 2;
    if (qualityFactor > 255) qualityFactor = 255;
    return 100 - int(((qualityFactor - 2) * 99 + 126) / 253);
}

KXRESULT DecodeJpeg(const unsigned char* data, size_t size, const DecodeRequest& req, Bitmap* out) {
    Handle h(tjInitDecompress());
    Header hd;
    if (!ReadHeader(h.get(), data, size, &hd)) return KXE_IMAGEFILE;
    if (!SizeAllowed(hd.width, hd.height, req.limits) ||
        !PlausibleForBytes(uint64_t(hd.width) * uint64_t(hd.height), size, kPixelsPerByte))
        return KXE_IMAGEFILE;
    const tjscalingfactor sf = ChooseScale(hd.width, hd.height, req.minWidth, req.minHeight);
    const int w = TJSCALED(hd.width, sf), ht = TJSCALED(hd.height, sf);
    const bool grey = hd.colorspace == TJCS_GRAY;
    const bool cmyk = hd.colorspace == TJCS_CMYK || hd.colorspace == TJCS_YCCK;
    uint32_t bits = req.bits;
    if (bits != 24 && bits != 32) bits = grey ? 8 : 24;
    if (!out->Create(w, ht, bits, req.limits, ResultAllocator(req, bits))) return KXE_IMAGEFILE;
    out->alpha = Bitmap::kIgnore;
    if (cmyk) {
        Bitmap ink;
        if (!ink.Create(w, ht, 32, req.limits) ||
            tjDecompress2(h.get(), data, (unsigned long)size, ink.Data(), w, int(ink.Stride()), ht,
                          TJPF_CMYK, kDecodeFlags) != 0) {
            out->Reset();
            return KXE_IMAGEFILE;
        }
        const unsigned char* p;
        size_t n;
        const bool inverted = FindJpegSegment(data, size, 0xFFEE, "Adobe", 5, &p, &n);
        for (int y = 0; y < ht; ++y)
            CmykToBgr(ink.Line(y), out->Line(y), w, inverted, bits / 8);
        return KX_OK;
    }
    const int format = bits == 8 ? TJPF_GRAY : bits == 24 ? TJPF_BGR : TJPF_BGRA;
    if (tjDecompress2(h.get(), data, (unsigned long)size, out->Data(), w, int(out->Stride()), ht,
                      format, kDecodeFlags) != 0) {
        out->Reset();
        return KXE_IMAGEFILE;
    }
    if (bits == 8) SetGreyPalette(out, 8);
    return KX_OK;
}

namespace {

class CJpegBackend : public CBackend {
  public:
    constexpr CJpegBackend() = default;
    const wchar_t* Name() const override { return L"JPEG"; }

    bool Sniff(const Bytes& file, const wchar_t*) const override {
        return file.size >= 4 && file.data[0] == 0xFF && file.data[1] == 0xD8 &&
               file.data[2] == 0xFF;
    }

    // The header ends with the first scan's header: the frame, its tables, JFIF and
    // EXIF all stand before it.
    uint64_t InfoBytes(const Bytes& head, uint64_t fileSize) const override {
        uint64_t pos = 2;
        for (;;) {
            if (pos + 4 > head.size) return pos + 4;
            const unsigned char* p = head.data + pos;
            // No marker where one belongs: the whole file decides.
            if (p[0] != 0xFF) return fileSize;
            const uint32_t m = p[1];
            if (m == 0xFF) { // fill byte
                ++pos;
                continue;
            }
            // Markers without a length.
            if (m == 0x01 || m == 0xD8 || (m >= 0xD0 && m <= 0xD7)) {
                pos += 2;
                continue;
            }
            if (m == 0xD9) return fileSize;
            const uint64_t end = pos + 2 + ((uint32_t(p[2]) << 8) | p[3]);
            if (m == 0xDA) return end;
            pos = end;
        }
    }

    KXRESULT Info(const Bytes& file, int32_t, FileInfo* info) const override {
        Handle h(tjInitDecompress());
        Header hd;
        if (!ReadHeader(h.get(), file.data, file.size, &hd)) return KXE_IMAGEFILE;
        info->format = kFormatJpeg;
        info->name = Name();
        info->width = hd.width;
        info->height = hd.height;
        info->bits = hd.colorspace == TJCS_GRAY ? 8 : 24;
        info->xResolution = JfifResolution(file.data, file.size);
        const unsigned char* tiff;
        size_t tiffSize;
        ExifInfo exif;
        if (FindJpegExif(file.data, file.size, &tiff, &tiffSize) &&
            ParseExif(tiff, tiffSize, &exif)) {
            info->orientation = exif.orientation;
            if (!info->xResolution) info->xResolution = exif.xResolution;
            Header th;
            if (exif.hasThumbnail &&
                ReadHeader(h.get(), tiff + exif.thumbnailOffset, exif.thumbnailLength, &th)) {
                info->flags |= kInfoHasStamp;
                info->stampWidth = th.width;
                info->stampHeight = th.height;
            }
        }
        return KX_OK;
    }

    KXRESULT Decode(const Bytes& file, const DecodeRequest& req, Bitmap* out) const override {
        return DecodeJpeg(file.data, file.size, req, out);
    }

    KXRESULT ReadStamp(const Bytes& file, const Limits& limits, Bitmap* out) const override {
        const unsigned char* tiff;
        size_t tiffSize;
        ExifInfo exif;
        if (!FindJpegExif(file.data, file.size, &tiff, &tiffSize) ||
            !ParseExif(tiff, tiffSize, &exif) || !exif.hasThumbnail)
            return KXE_IMAGEFILE;
        DecodeRequest req;
        req.limits = limits;
        return DecodeJpeg(tiff + exif.thumbnailOffset, exif.thumbnailLength, req, out);
    }

    KXRESULT Save(const Bitmap& image, uint32_t bits, uint32_t qualityFactor,
                  ByteSink* out) const override {
        Bitmap tmp;
        const Bitmap* src = AtDepth(image, bits, &tmp, Limits());
        if (!src) return KXE_IMAGEFILE;
        const int quality = JpegQuality(qualityFactor);
        // Full colour resolution for the best qualities, halved chroma below.
        const int subsamp = quality >= 90 ? TJSAMP_444 : TJSAMP_420;
        Handle h(tjInitCompress());
        if (!h.get()) return KXE_IMAGEFILE;
        unsigned char* buf = nullptr;
        unsigned long len = 0;
        const int flags = (src->TopDown() ? 0 : TJFLAG_BOTTOMUP) | TJFLAG_ACCURATEDCT;
        const int r =
            tjCompress2(h.get(), src->Data(), src->Width(), int(src->Stride()), src->Height(),
                        bits == 32 ? TJPF_BGRX : TJPF_BGR, &buf, &len, subsamp, quality, flags);
        KXRESULT res = KXE_IMAGEFILE;
        if (r == 0 && buf) {
            try {
                out->assign(buf, buf + len);
                res = KX_OK;
            } catch (...) {
                res = KXE_IMAGEFILE;
            }
        }
        if (buf) tjFree(buf);
        return res;
    }
};

} // namespace

const CBackend* JpegBackend() {
    static const CJpegBackend backend;
    return &backend;
}

} // namespace imgfile
} // namespace kelp
