// ".bmp" reading. The header versions (12, 40, 52, 56, 64, 108 and 124 bytes) differ
// in where the colour masks and the palette stand; the pixels are uncompressed rows,
// rows with colour masks, or RLE8/RLE4 runs.
#include "bmpio.h"

#include <algorithm>
#include <cstring>

#include "bytereader.h"

namespace kelp {
namespace imgfile {

namespace {

constexpr uint32_t kRgb = 0, kRle8 = 1, kRle4 = 2, kBitFields = 3, kAlphaBitFields = 6;

// A run-length image can describe many pixels with few bytes (runs, skips, line and
// image ends); one byte may stand for at most this many pixels here.
constexpr uint64_t kRlePixelsPerByte = 1024;

struct Header {
    uint32_t headerSize = 0;
    int32_t width = 0;
    int32_t height = 0; // absolute
    bool topDown = false;
    uint32_t bits = 0;
    uint32_t compression = 0;
    int32_t xPelsPerMeter = 0;
    uint32_t masks[4] = {}; // red, green, blue, alpha
    bool hasMasks = false;
    uint64_t paletteOffset = 0;
    uint32_t paletteEntry = 4; // bytes an entry
    uint32_t colors = 0;
    uint64_t dataOffset = 0;
};

bool Parse(const ByteReader& r, Header* h) {
    uint32_t magic, off, hs;
    if (!r.Le16(0, &magic) || magic != 0x4D42 || !r.Le32(10, &off) || !r.Le32(14, &hs))
        return false;
    h->headerSize = hs;
    if (hs == 12) {
        uint32_t w, ht, planes, bits;
        if (!r.Le16(18, &w) || !r.Le16(20, &ht) || !r.Le16(22, &planes) || !r.Le16(24, &bits))
            return false;
        h->width = int32_t(w);
        h->height = int32_t(ht);
        h->bits = bits;
        h->paletteEntry = 3;
        if (planes != 1) return false;
    } else if (hs == 40 || hs == 52 || hs == 56 || hs == 64 || hs == 108 || hs == 124) {
        uint32_t w, ht, planes, bits, comp, ppm, used;
        if (!r.Le32(18, &w) || !r.Le32(22, &ht) || !r.Le16(26, &planes) || !r.Le16(28, &bits) ||
            !r.Le32(30, &comp) || !r.Le32(38, &ppm) || !r.Le32(46, &used))
            return false;
        if (planes != 1 || ht == 0x80000000u) return false;
        h->width = int32_t(w);
        h->topDown = int32_t(ht) < 0;
        h->height = h->topDown ? -int32_t(ht) : int32_t(ht);
        h->bits = bits;
        h->compression = comp;
        h->xPelsPerMeter = int32_t(ppm);
        h->colors = used;
        if (hs == 64 && comp > 2) return false; // the second OS/2 header's codes differ
        if (comp == kBitFields || comp == kAlphaBitFields) {
            // The masks follow a 40-byte header, and are part of the longer ones.
            const uint32_t n = (comp == kAlphaBitFields || hs >= 56) ? 4 : 3;
            for (uint32_t i = 0; i < n; ++i)
                if (!r.Le32(54 + 4 * i, &h->masks[i])) return false;
            h->hasMasks = true;
        }
    } else {
        return false;
    }
    if (h->width < 1 || h->height < 1) return false;
    const uint32_t c = h->compression;
    const uint32_t b = h->bits;
    const bool ok = (c == kRgb && (b == 1 || b == 4 || b == 8 || b == 16 || b == 24 || b == 32)) ||
                    (c == kRle8 && b == 8) || (c == kRle4 && b == 4) ||
                    ((c == kBitFields || c == kAlphaBitFields) && (b == 16 || b == 32));
    if (!ok || ((c == kRle8 || c == kRle4) && h->topDown)) return false;
    uint64_t afterHeader = 14 + uint64_t(hs);
    if (hs == 40 && h->hasMasks) afterHeader += (c == kAlphaBitFields) ? 16 : 12;
    if (b <= 8) {
        const uint32_t most = 1u << b;
        if (h->colors == 0 || h->colors > most) h->colors = most;
        h->paletteOffset = afterHeader;
        if (!r.Has(afterHeader, uint64_t(h->colors) * h->paletteEntry)) return false;
        afterHeader += uint64_t(h->colors) * h->paletteEntry;
    } else {
        h->colors = 0;
    }
    // Some writers leave the offset 0; the pixels then follow the headers.
    h->dataOffset = off ? off : afterHeader;
    return h->dataOffset < r.Size();
}

// The shift and width of a colour mask's bits.
struct Channel {
    uint32_t mask, shift, width;
};
Channel MakeChannel(uint32_t mask) {
    Channel c{mask, 0, 0};
    if (!mask) return c;
    while (!((mask >> c.shift) & 1))
        ++c.shift;
    while (c.shift + c.width < 32 && ((mask >> (c.shift + c.width)) & 1))
        ++c.width;
    return c;
}
// A channel of fewer than 8 bits widens by repeating its bits, as 5-5-5 pixels do
// everywhere in the library; a wider one is scaled down with rounding.
uint8_t Extract(uint32_t v, const Channel& c) {
    if (!c.mask || !c.width) return 0;
    const uint32_t x = (v & c.mask) >> c.shift;
    if (c.width < 8) {
        uint32_t r = 0, n = 0;
        while (n < 8) {
            r = (r << c.width) | x;
            n += c.width;
        }
        return uint8_t(r >> (n - 8));
    }
    const uint64_t top = c.width >= 32 ? 0xFFFFFFFFull : (uint64_t(1) << c.width) - 1;
    return uint8_t((uint64_t(x) * 255 + top / 2) / top);
}

KXRESULT DecodeRle(const ByteReader& r, const Header& h, Bitmap* out) {
    const bool four = h.compression == kRle4;
    const unsigned char* p = r.Data() + h.dataOffset;
    const size_t n = r.Size() - size_t(h.dataOffset);
    // Pixels not painted by the runs keep colour 0.
    std::memset(out->Data(), 0, out->ImageBytes());
    size_t i = 0;
    int32_t x = 0, y = 0; // y counts file rows, bottom up
    auto put = [&](uint32_t index) {
        if (x < h.width && y < h.height) {
            unsigned char* row = out->Data() + size_t(y) * out->Stride();
            if (four) {
                unsigned char& byte = row[x / 2];
                byte = (x & 1) ? uint8_t((byte & 0xF0) | index)
                               : uint8_t((byte & 0x0F) | (index << 4));
            } else {
                row[x] = uint8_t(index);
            }
        }
        ++x;
    };
    while (y < h.height) {
        if (i + 2 > n) return KXE_IMAGEFILE; // the image ends before its end code
        const uint32_t count = p[i], value = p[i + 1];
        i += 2;
        if (count) {
            for (uint32_t k = 0; k < count && x < h.width; ++k)
                put(four ? ((k & 1) ? (value & 15) : (value >> 4)) : value);
            continue;
        }
        if (value == 0) { // end of line
            x = 0;
            ++y;
        } else if (value == 1) { // end of image
            break;
        } else if (value == 2) { // move right and up
            if (i + 2 > n) return KXE_IMAGEFILE;
            x += p[i];
            y += p[i + 1];
            i += 2;
        } else { // `value` literal pixels, padded to a 16-bit word
            const size_t bytes = four ? (value + 1) / 2 : value;
            if (i + bytes > n) return KXE_IMAGEFILE;
            for (uint32_t k = 0; k < value; ++k)
                put(four ? ((k & 1) ? (p[i + k / 2] & 15) : (p[i + k / 2] >> 4)) : p[i + k]);
            i += (bytes + 1) & ~size_t(1);
        }
    }
    return KX_OK;
}

class CBmpBackend : public CBackend {
  public:
    constexpr CBmpBackend() = default;
    const wchar_t* Name() const override { return L"BMP"; }

    bool Sniff(const Bytes& file, const wchar_t*) const override {
        return file.size >= 26 && file.data[0] == 'B' && file.data[1] == 'M';
    }

    // The headers, masks and colour table, and the first byte of the pixels, which must
    // lie within the file.
    uint64_t InfoBytes(const Bytes& head, uint64_t) const override {
        ByteReader r(head.data, head.size);
        uint32_t offset, headerSize;
        if (!r.Le32(10, &offset) || !r.Le32(14, &headerSize)) return 18;
        const uint64_t headers = 14 + uint64_t(headerSize) + 16 + 256 * 4;
        return std::max<uint64_t>(offset, headers) + 1;
    }

    KXRESULT Info(const Bytes& file, int32_t, FileInfo* info) const override {
        ByteReader r(file.data, file.size);
        Header h;
        if (!Parse(r, &h)) return KXE_IMAGEFILE;
        info->format = kFormatBmp;
        info->name = Name();
        info->width = h.width;
        info->height = h.height;
        info->bits = h.bits;
        info->xResolution =
            h.xPelsPerMeter > 0 ? int32_t((int64_t(h.xPelsPerMeter) * 254 + 5000) / 10000) : 0;
        return KX_OK;
    }

    KXRESULT Decode(const Bytes& file, const DecodeRequest& req, Bitmap* out) const override {
        ByteReader r(file.data, file.size);
        Header h;
        if (!Parse(r, &h)) return KXE_IMAGEFILE;
        const uint64_t pixels = uint64_t(h.width) * uint64_t(h.height);
        const uint64_t dataBytes = r.Size() - h.dataOffset;
        const bool rle = h.compression == kRle8 || h.compression == kRle4;
        if (!SizeAllowed(h.width, h.height, req.limits)) return KXE_IMAGEFILE;
        if (rle && !PlausibleForBytes(pixels, dataBytes, kRlePixelsPerByte)) return KXE_IMAGEFILE;

        // The depth the rows are stored in, and the one they come out at.
        const bool masked = h.hasMasks;
        const bool plain32 = masked && h.bits == 32 && h.masks[0] == 0xFF0000u &&
                             h.masks[1] == 0xFF00u && h.masks[2] == 0xFFu;
        uint32_t outBits = h.bits;
        if (masked && !plain32) outBits = h.masks[3] ? 32 : 24;
        if (h.bits == 16 && masked && h.masks[0] == 0x7C00u && h.masks[1] == 0x3E0u &&
            h.masks[2] == 0x1Fu && !h.masks[3])
            outBits = 16;
        const uint32_t stride = RowBytes(h.width, h.bits);
        const uint64_t used = (uint64_t(h.width) * h.bits + 7) / 8;
        // Every row must be there; the padding of the last one may be missing.
        if (!rle && !r.Has(h.dataOffset, uint64_t(stride) * (h.height - 1) + used))
            return KXE_IMAGEFILE;
        if (!out->Create(h.width, h.height, outBits, req.limits, ResultAllocator(req, outBits)))
            return KXE_IMAGEFILE;
        for (uint32_t i = 0; i < h.colors; ++i) {
            const unsigned char* e = r.At(h.paletteOffset + uint64_t(i) * h.paletteEntry, 3);
            out->palette[i] = uint32_t(e[0]) | (uint32_t(e[1]) << 8) | (uint32_t(e[2]) << 16);
        }
        out->colors = h.colors;
        if (rle) return DecodeRle(r, h, out);

        const Channel ch[4] = {MakeChannel(h.masks[0]), MakeChannel(h.masks[1]),
                               MakeChannel(h.masks[2]), MakeChannel(h.masks[3])};
        bool anyAlpha = false;
        for (int32_t row = 0; row < h.height; ++row) {
            const unsigned char* s = r.Data() + h.dataOffset + uint64_t(row) * stride;
            // File row `row` is line `row` from the top for top-down files.
            unsigned char* d = out->Line(h.topDown ? row : h.height - 1 - row);
            if (outBits == h.bits && (!masked || plain32 || outBits == 16)) {
                std::memcpy(d, s, size_t(used));
                if (h.bits == 32)
                    for (int32_t x = 0; x < h.width; ++x)
                        anyAlpha |= s[4 * x + 3] != 0;
                continue;
            }
            const uint32_t n = outBits / 8;
            for (int32_t x = 0; x < h.width; ++x, d += n) {
                const uint32_t v = h.bits == 16
                                       ? uint32_t(s[2 * x]) | (uint32_t(s[2 * x + 1]) << 8)
                                       : uint32_t(s[4 * x]) | (uint32_t(s[4 * x + 1]) << 8) |
                                             (uint32_t(s[4 * x + 2]) << 16) |
                                             (uint32_t(s[4 * x + 3]) << 24);
                d[0] = Extract(v, ch[2]);
                d[1] = Extract(v, ch[1]);
                d[2] = Extract(v, ch[0]);
                if (n == 4) d[3] = Extract(v, ch[3]);
            }
        }
        if (outBits == 32) {
            if (h.masks[3] && !plain32) {
                out->alpha = Bitmap::kStraight;
            } else if (!anyAlpha || (plain32 && !h.masks[3])) {
                // A fourth byte that is zero everywhere, or that no mask names, holds
                // nothing: the picture is opaque.
                out->alpha = Bitmap::kIgnore;
                for (int32_t y = 0; y < h.height; ++y) {
                    unsigned char* d = out->Line(y);
                    for (int32_t x = 0; x < h.width; ++x)
                        d[4 * x + 3] = 255;
                }
            }
        }
        return KX_OK;
    }
};

} // namespace

const CBackend* BmpBackend() {
    static const CBmpBackend backend;
    return &backend;
}

void MakeBmpHeaders(const KXBMINFOHEADER* desc, uint32_t tableBytes, uint32_t imageBytes,
                    unsigned char out[54]) {
    std::memset(out, 0, 54);
    out[0] = 'B';
    out[1] = 'M';
    PutU32LE(out + 2, 54 + tableBytes + imageBytes);
    PutU32LE(out + 10, 54 + tableBytes);
    std::memcpy(out + 14, desc, 40);
    PutU32LE(out + 14, 40);
}

} // namespace imgfile
} // namespace kelp
