// ".tga" reading and writing.
#include "tgaio.h"

#include <cstring>
#include <cwchar>

#include "bytereader.h"

namespace kelp {
namespace imgfile {

namespace {

// A run packet of a one-byte pixel stands for up to 128 pixels in 2 bytes.
constexpr uint64_t kRlePixelsPerByte = 64;
constexpr size_t kHeaderBytes = 18;
constexpr size_t kFooterBytes = 26;
constexpr size_t kExtensionBytes = 495;
const char kSignature[18] = "TRUEVISION-XFILE.";

// Attribute types of the extension area: what the alpha bytes hold.
constexpr uint32_t kAttrNone = 0, kAttrIgnore = 1, kAttrRetain = 2, kAttrAlpha = 3,
                   kAttrPremultiplied = 4;

struct Header {
    uint32_t idLength, mapType, type;
    uint32_t mapFirst, mapLength, mapEntryBits;
    int32_t width, height;
    uint32_t depth, descriptor;
    uint64_t mapOffset, dataOffset;
    // From the extension area, if any.
    bool hasExtension = false;
    uint32_t attributes = kAttrNone;
    uint64_t stampOffset = 0;
};

bool Parse(const ByteReader& r, Header* h) {
    uint32_t w, ht;
    if (!r.Byte(0, &h->idLength) || !r.Byte(1, &h->mapType) || !r.Byte(2, &h->type) ||
        !r.Le16(3, &h->mapFirst) || !r.Le16(5, &h->mapLength) || !r.Byte(7, &h->mapEntryBits) ||
        !r.Le16(12, &w) || !r.Le16(14, &ht) || !r.Byte(16, &h->depth) ||
        !r.Byte(17, &h->descriptor))
        return false;
    h->width = int32_t(w);
    h->height = int32_t(ht);
    if (h->width < 1 || h->height < 1 || h->mapType > 1) return false;
    const uint32_t base = h->type & 7;
    if (base < 1 || base > 3 || (h->type & ~uint32_t(8)) != base) return false;
    if (base == 1) {
        if (h->mapType != 1 || (h->depth != 8 && h->depth != 16)) return false;
    } else if (base == 2) {
        if (h->depth != 15 && h->depth != 16 && h->depth != 24 && h->depth != 32) return false;
    } else if (h->depth != 8 && h->depth != 16) {
        return false;
    }
    uint64_t mapBytes = 0;
    if (h->mapType == 1) {
        const uint32_t e = h->mapEntryBits;
        if (e != 15 && e != 16 && e != 24 && e != 32) return false;
        mapBytes = uint64_t(h->mapLength) * ((e + 7) / 8);
    }
    h->mapOffset = kHeaderBytes + h->idLength;
    h->dataOffset = h->mapOffset + mapBytes;
    if (!r.Has(h->mapOffset, mapBytes) || h->dataOffset >= r.Size()) return false;
    // The footer of the second version points to the extension area.
    if (r.Size() >= kHeaderBytes + kFooterBytes) {
        const unsigned char* f = r.Data() + r.Size() - kFooterBytes;
        uint32_t ext;
        if (std::memcmp(f + 8, kSignature, 18) == 0 && r.Le32(r.Size() - kFooterBytes, &ext) &&
            ext >= kHeaderBytes && r.Has(ext, kExtensionBytes)) {
            uint32_t size, attr, stamp;
            if (r.Le16(ext, &size) && size >= kExtensionBytes && r.Le32(ext + 486, &stamp) &&
                r.Byte(ext + 494, &attr)) {
                h->hasExtension = true;
                h->attributes = attr;
                h->stampOffset = stamp;
            }
        }
    }
    return true;
}

// Bytes of one stored pixel.
uint32_t PixelBytes(const Header& h) {
    return (h.depth + 7) / 8;
}

// One colour of the map or of a true-colour pixel, as blue, green, red, alpha.
uint32_t Colour(const unsigned char* p, uint32_t bits) {
    switch (bits) {
    case 15:
    case 16: {
        const uint32_t v = uint32_t(p[0]) | (uint32_t(p[1]) << 8);
        const uint32_t b = v & 31, g = (v >> 5) & 31, r = (v >> 10) & 31;
        return ((b << 3) | (b >> 2)) | (((g << 3) | (g >> 2)) << 8) |
               (((r << 3) | (r >> 2)) << 16) | 0xFF000000u;
    }
    case 24:
        return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | 0xFF000000u;
    default:
        return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) |
               (uint32_t(p[3]) << 24);
    }
}

// The depth a picture comes out at, and whether the colour map is kept as a palette.
uint32_t OutBits(const Header& h, bool* palette) {
    const uint32_t base = h.type & 7;
    *palette = false;
    if (base == 1) {
        if (h.depth == 8 && h.mapEntryBits != 32 && uint64_t(h.mapFirst) + h.mapLength <= 256) {
            *palette = true;
            return 8;
        }
        return h.mapEntryBits == 32 ? 32 : 24;
    }
    if (base == 3) {
        if (h.depth == 8) {
            *palette = true;
            return 8;
        }
        return 32; // grey and alpha
    }
    return h.depth == 15 ? 16 : h.depth;
}

// The file's depth as the library reports it.
uint32_t FileBits(const Header& h) {
    bool palette;
    const uint32_t bits = OutBits(h, &palette);
    return bits;
}

// Writes `count` stored pixels, in file order, to the picture, starting at pixel
// `index` of the file's order (rows in the order the descriptor gives).
class Painter {
  public:
    Painter(const Header& h, const ByteReader& r, Bitmap* out, bool palette, int32_t width,
            int32_t height)
        : m_h(h), m_r(r), m_out(out), m_palette(palette), m_width(width), m_height(height),
          m_n(out->Bits() / 8) {}

    void Put(uint64_t index, const unsigned char* p) {
        const int32_t row = int32_t(index / uint64_t(m_width));
        int32_t col = int32_t(index % uint64_t(m_width));
        if (row >= m_height) return;
        if (m_h.descriptor & 0x10) col = m_width - 1 - col;
        const int32_t line = (m_h.descriptor & 0x20) ? row : m_height - 1 - row;
        unsigned char* d = m_out->Line(line) + size_t(col) * m_n;
        const uint32_t base = m_h.type & 7;
        if (m_palette) {
            uint32_t v = p[0];
            if (base == 1) v = v >= m_h.mapFirst ? v - m_h.mapFirst : 0xFFFF;
            d[0] = uint8_t(v < m_out->colors ? v : 0);
            return;
        }
        uint32_t c;
        if (base == 1) {
            uint32_t v = m_h.depth == 8 ? p[0] : (uint32_t(p[0]) | (uint32_t(p[1]) << 8));
            c = 0xFF000000u;
            if (v >= m_h.mapFirst && v - m_h.mapFirst < m_h.mapLength) {
                const uint32_t eb = (m_h.mapEntryBits + 7) / 8;
                c = Colour(m_r.Data() + m_h.mapOffset + uint64_t(v - m_h.mapFirst) * eb,
                           m_h.mapEntryBits);
            }
        } else if (base == 3) {
            c = uint32_t(p[0]) * 0x010101u | (uint32_t(p[1]) << 24);
        } else if (m_n == 2) { // 5-5-5 kept as it is
            d[0] = p[0];
            d[1] = uint8_t(p[1] & 0x7F);
            return;
        } else {
            c = Colour(p, m_h.depth);
        }
        d[0] = uint8_t(c);
        d[1] = uint8_t(c >> 8);
        d[2] = uint8_t(c >> 16);
        if (m_n == 4) d[3] = uint8_t(c >> 24);
    }

  private:
    const Header& m_h;
    const ByteReader& m_r;
    Bitmap* m_out;
    bool m_palette;
    int32_t m_width, m_height;
    uint32_t m_n;
};

// The picture of width x height stored at `offset`, compressed or not.
KXRESULT DecodePixels(const ByteReader& r, const Header& h, uint64_t offset, int32_t width,
                      int32_t height, bool rle, const Limits& limits, IAllocator* allocator,
                      Bitmap* out) {
    const uint64_t pixels = uint64_t(width) * uint64_t(height);
    const uint32_t pb = PixelBytes(h);
    if (!SizeAllowed(width, height, limits)) return KXE_IMAGEFILE;
    if (!rle && !r.Has(offset, pixels * pb)) return KXE_IMAGEFILE;
    if (rle && !PlausibleForBytes(pixels, r.Size() - offset, kRlePixelsPerByte))
        return KXE_IMAGEFILE;
    bool palette;
    const uint32_t bits = OutBits(h, &palette);
    if (!out->Create(width, height, bits, limits, allocator)) return KXE_IMAGEFILE;
    if (palette) {
        if ((h.type & 7) == 3) {
            SetGreyPalette(out, 8);
        } else {
            const uint32_t eb = (h.mapEntryBits + 7) / 8;
            for (uint32_t i = 0; i < h.mapLength; ++i)
                out->palette[i] =
                    Colour(r.Data() + h.mapOffset + uint64_t(i) * eb, h.mapEntryBits) & 0xFFFFFF;
            out->colors = h.mapLength;
        }
    }
    Painter paint(h, r, out, palette, width, height);
    if (!rle) {
        const unsigned char* p = r.Data() + offset;
        for (uint64_t i = 0; i < pixels; ++i, p += pb)
            paint.Put(i, p);
        return KX_OK;
    }
    uint64_t i = 0, at = offset;
    while (i < pixels) {
        uint32_t packet;
        if (!r.Byte(at++, &packet)) return KXE_IMAGEFILE;
        const uint32_t count = (packet & 0x7F) + 1;
        if (packet & 0x80) {
            const unsigned char* p = r.At(at, pb);
            if (!p) return KXE_IMAGEFILE;
            at += pb;
            for (uint32_t k = 0; k < count && i < pixels; ++k)
                paint.Put(i++, p);
        } else {
            const unsigned char* p = r.At(at, uint64_t(count) * pb);
            if (!p) return KXE_IMAGEFILE;
            at += uint64_t(count) * pb;
            for (uint32_t k = 0; k < count && i < pixels; ++k, p += pb)
                paint.Put(i++, p);
        }
    }
    return KX_OK;
}

// What the fourth byte of a 32-bit picture holds, and the bytes made to fit.
void SettleAlpha(const Header& h, Bitmap* out) {
    if (out->Bits() != 32) return;
    const uint32_t base = h.type & 7;
    if (base == 3 || (base == 1 && h.mapEntryBits == 32)) {
        out->alpha = Bitmap::kStraight;
        return;
    }
    if (base == 1) return; // colours of the map without alpha: 255 already
    uint32_t attr;
    if (h.hasExtension)
        attr = h.attributes;
    else
        attr = (h.descriptor & 15) ? kAttrAlpha : kAttrIgnore;
    if (attr == kAttrAlpha) {
        out->alpha = Bitmap::kStraight;
    } else if (attr == kAttrPremultiplied) {
        out->alpha = Bitmap::kPremultiplied;
    } else {
        out->alpha = Bitmap::kIgnore;
        if (attr == kAttrRetain) return; // kept as they are, but not alpha
        for (int32_t y = 0; y < out->Height(); ++y) {
            unsigned char* d = out->Line(y);
            for (int32_t x = 0; x < out->Width(); ++x)
                d[4 * x + 3] = 255;
        }
    }
}

// Where the stamp stands, if the file has one that fits in it.
bool StampOf(const ByteReader& r, const Header& h, uint32_t* w, uint32_t* ht) {
    if (!h.hasExtension || h.stampOffset < kHeaderBytes) return false;
    if (!r.Byte(h.stampOffset, w) || !r.Byte(h.stampOffset + 1, ht) || !*w || !*ht) return false;
    return r.Has(h.stampOffset + 2, uint64_t(*w) * *ht * PixelBytes(h));
}

bool ExtensionIs(const wchar_t* ext) {
    return std::wcscmp(ext, L"tga") == 0 || std::wcscmp(ext, L"vda") == 0 ||
           std::wcscmp(ext, L"icb") == 0 || std::wcscmp(ext, L"vst") == 0;
}

class CTgaBackend : public CBackend {
  public:
    constexpr CTgaBackend() = default;
    const wchar_t* Name() const override { return L"TGA"; }

    bool Sniff(const Bytes& file, const wchar_t* ext) const override {
        ByteReader r(file.data, file.size);
        Header h;
        if (!Parse(r, &h)) return false;
        // Without a signature of its own, a file is taken for this format by its name or
        // by the footer of the second version.
        return ExtensionIs(ext) || h.hasExtension;
    }

    KXRESULT Info(const Bytes& file, int32_t, FileInfo* info) const override {
        ByteReader r(file.data, file.size);
        Header h;
        if (!Parse(r, &h)) return KXE_IMAGEFILE;
        info->format = kFormatTga;
        info->name = Name();
        info->width = h.width;
        info->height = h.height;
        info->bits = FileBits(h);
        uint32_t w, ht;
        if (StampOf(r, h, &w, &ht)) {
            info->flags |= kInfoHasStamp;
            info->stampWidth = int32_t(w);
            info->stampHeight = int32_t(ht);
        }
        return KX_OK;
    }

    KXRESULT Decode(const Bytes& file, const DecodeRequest& req, Bitmap* out) const override {
        ByteReader r(file.data, file.size);
        Header h;
        if (!Parse(r, &h)) return KXE_IMAGEFILE;
        bool palette;
        KXRESULT res = DecodePixels(r, h, h.dataOffset, h.width, h.height, (h.type & 8) != 0,
                                    req.limits, ResultAllocator(req, OutBits(h, &palette)), out);
        if (KX_FAILED(res)) return res;
        SettleAlpha(h, out);
        return KX_OK;
    }

    KXRESULT ReadStamp(const Bytes& file, const Limits& limits, Bitmap* out) const override {
        ByteReader r(file.data, file.size);
        Header h;
        uint32_t w, ht;
        if (!Parse(r, &h) || !StampOf(r, h, &w, &ht)) return KXE_IMAGEFILE;
        // The stamp is stored like the picture, but never compressed.
        KXRESULT res = DecodePixels(r, h, h.stampOffset + 2, int32_t(w), int32_t(ht), false, limits,
                                    nullptr, out);
        if (KX_FAILED(res)) return res;
        SettleAlpha(h, out);
        return KX_OK;
    }

    KXRESULT Save(const Bitmap& image, uint32_t bits, uint32_t, ByteSink* out) const override {
        Bitmap tmp;
        const Bitmap* src = AtDepth(image, bits, &tmp, Limits());
        if (!src || image.Width() > 65535 || image.Height() > 65535) return KXE_IMAGEFILE;
        const uint32_t n = bits / 8;
        const size_t rowBytes = size_t(image.Width()) * n;
        const size_t data = rowBytes * size_t(image.Height());
        out->assign(kHeaderBytes + data + kExtensionBytes + kFooterBytes, 0);
        unsigned char* p = out->data();
        p[2] = 2; // true colour, uncompressed
        PutU16LE(p + 12, uint32_t(image.Width()));
        PutU16LE(p + 14, uint32_t(image.Height()));
        p[16] = uint8_t(bits);
        p[17] = bits == 32 ? 8 : 0; // alpha bits; rows bottom-up, left to right
        p += kHeaderBytes;
        const bool opaque = bits == 32 && image.alpha == Bitmap::kIgnore;
        for (int32_t y = image.Height() - 1; y >= 0; --y, p += rowBytes) {
            std::memcpy(p, src->Line(y), rowBytes);
            if (opaque)
                for (size_t x = 3; x < rowBytes; x += 4)
                    p[x] = 255;
        }
        // The extension area: its size, and what the alpha holds.
        PutU16LE(p, uint32_t(kExtensionBytes));
        uint32_t attr = kAttrNone;
        if (bits == 32)
            attr = image.alpha == Bitmap::kPremultiplied ? kAttrPremultiplied
                   : image.alpha == Bitmap::kIgnore      ? kAttrRetain
                                                         : kAttrAlpha;
        p[494] = uint8_t(attr);
        const uint32_t extOffset = uint32_t(kHeaderBytes + data);
        p += kExtensionBytes;
        PutU32LE(p, extOffset);
        std::memcpy(p + 8, kSignature, 18);
        return KX_OK;
    }
};

} // namespace

const CBackend* TgaBackend() {
    static const CTgaBackend backend;
    return &backend;
}

} // namespace imgfile
} // namespace kelp
