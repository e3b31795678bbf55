// PCX reading. A 128-byte header, then the scan lines, each the planes of one line one
// after another, each plane `bytesPerLine` bytes; the 256-colour palette of 8-bit
// files stands at the end of the file behind a byte 12.
#include "pcxio.h"

#include <cstring>
#include <vector>

#include "bytereader.h"

namespace kelp {
namespace imgfile {

namespace {

constexpr size_t kHeaderBytes = 128;
// A run of 63 bytes costs 2 bytes.
constexpr uint64_t kBytesPerByte = 32;

struct Header {
    uint32_t version, encoding, bpp, planes, bytesPerLine;
    int32_t width, height, dpi;
};

bool Parse(const ByteReader& r, Header* h) {
    uint32_t maker, x0, y0, x1, y1;
    if (!r.Byte(0, &maker) || maker != 0x0A || !r.Byte(1, &h->version) ||
        !r.Byte(2, &h->encoding) || !r.Byte(3, &h->bpp) || !r.Le16(4, &x0) || !r.Le16(6, &y0) ||
        !r.Le16(8, &x1) || !r.Le16(10, &y1) || !r.Byte(65, &h->planes) ||
        !r.Le16(66, &h->bytesPerLine) || r.Size() <= kHeaderBytes)
        return false;
    uint32_t dpi;
    r.Le16(12, &dpi);
    h->dpi = int32_t(dpi);
    if (h->version > 5 || h->version == 1 || h->encoding > 1 || x1 < x0 || y1 < y0) return false;
    h->width = int32_t(x1 - x0 + 1);
    h->height = int32_t(y1 - y0 + 1);
    const uint32_t b = h->bpp, p = h->planes;
    const bool ok = (b == 1 && (p == 1 || p == 2 || p == 3 || p == 4)) ||
                    ((b == 2 || b == 4) && p == 1) || (b == 8 && (p == 1 || p == 3 || p == 4));
    if (!ok) return false;
    // Every plane of a line must hold the line's pixels.
    return uint64_t(h->bytesPerLine) * 8 >= uint64_t(h->width) * b && h->bytesPerLine > 0;
}

// The depth the picture comes out at.
uint32_t OutBits(const Header& h) {
    if (h.planes == 1) return h.bpp == 2 ? 8 : h.bpp;
    if (h.bpp == 1) return 4; // 2 to 4 planes of one bit: up to 16 colours
    return h.planes == 3 ? 24 : 32;
}

uint32_t FileBits(const Header& h) {
    return h.bpp * h.planes;
}

class CPcxBackend : public CBackend {
  public:
    constexpr CPcxBackend() = default;
    const wchar_t* Name() const override { return L"PCX"; }

    bool Sniff(const Bytes& file, const wchar_t*) const override {
        ByteReader r(file.data, file.size);
        Header h;
        return Parse(r, &h);
    }

    KXRESULT Info(const Bytes& file, int32_t, FileInfo* info) const override {
        ByteReader r(file.data, file.size);
        Header h;
        if (!Parse(r, &h)) return KXE_IMAGEFILE;
        info->format = kFormatPcx;
        info->name = Name();
        info->width = h.width;
        info->height = h.height;
        info->bits = FileBits(h);
        info->xResolution = h.dpi;
        return KX_OK;
    }

    KXRESULT Decode(const Bytes& file, const DecodeRequest& req, Bitmap* out) const override {
        ByteReader r(file.data, file.size);
        Header h;
        if (!Parse(r, &h) || !SizeAllowed(h.width, h.height, req.limits)) return KXE_IMAGEFILE;
        const uint64_t lineBytes = uint64_t(h.bytesPerLine) * h.planes;
        const uint64_t total = lineBytes * uint64_t(h.height);
        uint64_t dataEnd = r.Size();
        const bool palette256 = h.bpp == 8 && h.planes == 1;
        if (palette256 && r.Size() >= kHeaderBytes + 769 && r.Data()[r.Size() - 769] == 12)
            dataEnd = r.Size() - 769;
        const uint64_t dataBytes = dataEnd - kHeaderBytes;
        if (h.encoding == 0 ? dataBytes < total
                            : !PlausibleForBytes(total, dataBytes, kBytesPerByte))
            return KXE_IMAGEFILE;
        const uint32_t bits = OutBits(h);
        if (!out->Create(h.width, h.height, bits, req.limits, ResultAllocator(req, bits)))
            return KXE_IMAGEFILE;

        // The palette: 16 colours in the header, 256 at the end, or none.
        const unsigned char* hp = r.Data() + 16;
        if (bits == 1 && h.planes == 1) {
            out->palette[0] = 0;
            out->palette[1] = 0xFFFFFF;
            out->colors = 2;
        } else if (bits == 4 || (h.bpp == 2 && h.planes == 1)) {
            const uint32_t n = h.bpp == 2 ? 4 : 16;
            for (uint32_t i = 0; i < n; ++i)
                out->palette[i] = uint32_t(hp[3 * i + 2]) | (uint32_t(hp[3 * i + 1]) << 8) |
                                  (uint32_t(hp[3 * i]) << 16);
            out->colors = n;
        } else if (palette256) {
            if (dataEnd < r.Size()) {
                const unsigned char* p = r.Data() + dataEnd + 1;
                for (uint32_t i = 0; i < 256; ++i)
                    out->palette[i] = uint32_t(p[3 * i + 2]) | (uint32_t(p[3 * i + 1]) << 8) |
                                      (uint32_t(p[3 * i]) << 16);
                out->colors = 256;
            } else {
                SetGreyPalette(out, 8);
            }
        }

        std::vector<unsigned char> line;
        try {
            line.resize(size_t(lineBytes));
        } catch (...) {
            return KXE_IMAGEFILE;
        }
        const unsigned char* src = r.Data() + kHeaderBytes;
        uint64_t at = 0, run = 0;
        uint32_t value = 0;
        for (int32_t y = 0; y < h.height; ++y) {
            // One line of all planes; a run may go on into the next line.
            for (uint64_t i = 0; i < lineBytes; ++i) {
                if (h.encoding == 0) {
                    line[i] = src[at++];
                    continue;
                }
                if (run == 0) {
                    if (at >= dataBytes) return KXE_IMAGEFILE;
                    value = src[at++];
                    run = 1;
                    if ((value & 0xC0) == 0xC0) {
                        run = value & 0x3F;
                        if (at >= dataBytes) return KXE_IMAGEFILE;
                        value = src[at++];
                        if (run == 0) {
                            --i; // a run of none
                            continue;
                        }
                    }
                }
                line[i] = uint8_t(value);
                --run;
            }
            Store(h, line.data(), out->Line(y), bits);
        }
        if (bits == 32) out->alpha = Bitmap::kStraight;
        return KX_OK;
    }

  private:
    // One decoded line of planes into the bitmap's line.
    static void Store(const Header& h, const unsigned char* s, unsigned char* d, uint32_t bits) {
        const int32_t w = h.width;
        const uint32_t bpl = h.bytesPerLine;
        if (h.planes == 1) {
            if (h.bpp == 2) {
                for (int32_t x = 0; x < w; ++x)
                    d[x] = (s[x >> 2] >> (6 - 2 * (x & 3))) & 3;
            } else {
                std::memcpy(d, s, (size_t(w) * h.bpp + 7) / 8);
            }
        } else if (h.bpp == 1) {
            // Bit x of plane p is bit p of the colour index.
            for (int32_t x = 0; x < w; ++x) {
                uint32_t v = 0;
                for (uint32_t p = 0; p < h.planes; ++p)
                    v |= uint32_t((s[p * bpl + (x >> 3)] >> (7 - (x & 7))) & 1) << p;
                unsigned char& b = d[x >> 1];
                b = (x & 1) ? uint8_t((b & 0xF0) | v) : uint8_t((b & 0x0F) | (v << 4));
            }
        } else {
            const uint32_t n = bits / 8;
            for (int32_t x = 0; x < w; ++x, d += n) {
                d[0] = s[2 * bpl + x];
                d[1] = s[bpl + x];
                d[2] = s[x];
                if (n == 4) d[3] = s[3 * bpl + x];
            }
        }
    }
};

} // namespace

const CBackend* PcxBackend() {
    static const CPcxBackend backend;
    return &backend;
}

} // namespace imgfile
} // namespace kelp
