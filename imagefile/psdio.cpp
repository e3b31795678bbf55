// Photoshop reading: the header, the colour table of indexed pictures, the resources
// (thumbnail and resolution), the sign of the layer count (which says whether the
// merged picture has transparency), and the merged picture's channels.
#include "psdio.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "bytereader.h"
#include "jpegio.h"

namespace kelp {
namespace imgfile {

namespace {

// PackBits: a run of 128 bytes costs 2 bytes.
constexpr uint64_t kRleBytesPerByte = 64;
constexpr uint32_t kModeBitmap = 0, kModeGrey = 1, kModeIndexed = 2, kModeRgb = 3, kModeCmyk = 4,
                   kModeMultichannel = 7, kModeDuotone = 8, kModeLab = 9;
constexpr uint32_t kResResolution = 1005, kResThumbnailOld = 1033, kResThumbnail = 1036;

struct Header {
    uint32_t channels = 0, depth = 0, mode = 0;
    int32_t width = 0, height = 0;
    uint64_t colourData = 0, colourLength = 0;
    uint64_t resources = 0, resourcesLength = 0;
    bool mergedAlpha = false;
    uint64_t imageData = 0; // the compression word
    // From the resources.
    int32_t dpi = 0;
    uint64_t thumb = 0, thumbLength = 0; // the JPEG data of the thumbnail
    bool thumbSwapped = false;           // the old resource stores red and blue swapped
    int32_t thumbWidth = 0, thumbHeight = 0;
    bool refused = false; // a picture this reader recognises but does not read
};

void ReadResources(const ByteReader& r, Header* h) {
    uint64_t at = h->resources;
    const uint64_t end = h->resources + h->resourcesLength;
    while (at + 12 <= end) {
        uint32_t id, nameLength, size;
        if (!r.Has(at, 4) || !r.Be16(at + 4, &id) || !r.Byte(at + 6, &nameLength)) return;
        // The name: a length byte and the characters, padded to an even count.
        const uint64_t name = (uint64_t(nameLength) + 2) & ~uint64_t(1);
        const uint64_t sizeAt = at + 4 + 2 + name;
        if (!r.Be32(sizeAt, &size)) return;
        const uint64_t data = sizeAt + 4;
        if (data + size > end) return;
        if (id == kResResolution && size >= 8) {
            uint32_t fixed, unit;
            if (r.Be32(data, &fixed) && r.Be16(data + 4, &unit) && (fixed >> 16) < 0x8000)
                h->dpi =
                    unit == 2 ? int32_t(((fixed >> 16) * 254 + 50) / 100) : int32_t(fixed >> 16);
        } else if ((id == kResThumbnail || (id == kResThumbnailOld && !h->thumb)) && size > 28) {
            uint32_t format, w, ht;
            if (r.Be32(data, &format) && format == 1 && r.Be32(data + 4, &w) &&
                r.Be32(data + 8, &ht) && w && ht && w <= uint32_t(kMaxSide) &&
                ht <= uint32_t(kMaxSide)) {
                h->thumb = data + 28;
                h->thumbLength = size - 28;
                h->thumbSwapped = id == kResThumbnailOld;
                h->thumbWidth = int32_t(w);
                h->thumbHeight = int32_t(ht);
            }
        }
        at = data + ((uint64_t(size) + 1) & ~uint64_t(1));
    }
}

bool Parse(const ByteReader& r, Header* h) {
    uint32_t version, w, ht, length;
    if (!r.Has(0, 26) || std::memcmp(r.Data(), "8BPS", 4) != 0 || !r.Be16(4, &version) ||
        version != 1 || !r.Be16(12, &h->channels) || !r.Be32(14, &ht) || !r.Be32(18, &w) ||
        !r.Be16(22, &h->depth) || !r.Be16(24, &h->mode))
        return false;
    if (h->channels < 1 || h->channels > 56 || w < 1 || ht < 1 || w > uint32_t(kMaxSide) ||
        ht > uint32_t(kMaxSide))
        return false;
    h->width = int32_t(w);
    h->height = int32_t(ht);
    // The three sections ahead of the picture, each behind its 32-bit length.
    uint64_t at = 26;
    if (!r.Be32(at, &length) || !r.Has(at + 4, length)) return false;
    h->colourData = at + 4;
    h->colourLength = length;
    at += 4 + uint64_t(length);
    if (!r.Be32(at, &length) || !r.Has(at + 4, length)) return false;
    h->resources = at + 4;
    h->resourcesLength = length;
    at += 4 + uint64_t(length);
    if (!r.Be32(at, &length) || !r.Has(at + 4, length)) return false;
    uint32_t layerInfo, count;
    // A negative layer count: the first extra channel holds the merged transparency.
    if (length >= 6 && r.Be32(at + 4, &layerInfo) && layerInfo >= 2 && r.Be16(at + 8, &count))
        h->mergedAlpha = (count & 0x8000) != 0;
    at += 4 + uint64_t(length);
    h->imageData = at;
    ReadResources(r, h);

    const uint32_t d = h->depth;
    switch (h->mode) {
    case kModeBitmap:
        return d == 1;
    case kModeIndexed:
        return d == 8 && h->colourLength >= 768;
    case kModeGrey:
    case kModeDuotone:
    case kModeRgb:
    case kModeCmyk:
        if (d != 8 && d != 16 && d != 32) return false;
        return h->channels >= (h->mode == kModeRgb ? 3u : h->mode == kModeCmyk ? 4u : 1u);
    case kModeMultichannel:
    case kModeLab:
        h->refused = true;
        return true;
    default:
        return false;
    }
}

uint32_t ColourChannels(const Header& h) {
    return h.mode == kModeRgb ? 3 : h.mode == kModeCmyk ? 4 : 1;
}

bool HasAlpha(const Header& h) {
    return h.mode != kModeBitmap && h.mode != kModeIndexed && h.mergedAlpha &&
           h.channels > ColourChannels(h);
}

uint32_t OutBits(const Header& h) {
    if (h.mode == kModeBitmap) return 1;
    if (HasAlpha(h)) return 32;
    if (h.mode == kModeRgb || h.mode == kModeCmyk) return 24;
    return 8;
}

// One stored sample as 8 bits.
inline uint8_t Sample(const unsigned char* row, int32_t x, uint32_t depth) {
    if (depth == 8) return row[x];
    if (depth == 16) return row[2 * size_t(x)]; // big-endian: the high byte first
    uint32_t bits = (uint32_t(row[4 * size_t(x)]) << 24) |
                    (uint32_t(row[4 * size_t(x) + 1]) << 16) |
                    (uint32_t(row[4 * size_t(x) + 2]) << 8) | uint32_t(row[4 * size_t(x) + 3]);
    float f;
    std::memcpy(&f, &bits, 4);
    if (!(f > 0.0f)) return 0; // also not a number
    if (f >= 1.0f) return 255;
    return uint8_t(f * 255.0f + 0.5f);
}

// PackBits into exactly `n` bytes. False if the data end first.
bool Unpack(const unsigned char* s, size_t size, unsigned char* d, size_t n) {
    size_t i = 0, o = 0;
    while (o < n) {
        if (i >= size) return false;
        const int c = int8_t(s[i++]);
        if (c >= 0) {
            const size_t k = size_t(c) + 1;
            if (i + k > size) return false;
            std::memcpy(d + o, s + i, std::min(k, n - o));
            o += std::min(k, n - o);
            i += k;
        } else if (c != -128) {
            if (i >= size) return false;
            const size_t k = std::min(size_t(1 - c), n - o);
            std::memset(d + o, s[i++], k);
            o += k;
        }
    }
    return true;
}

KXRESULT DecodeMerged(const ByteReader& r, const Header& h, const DecodeRequest& req, Bitmap* out) {
    uint32_t compression;
    if (h.refused || !r.Be16(h.imageData, &compression) || compression > 1) return KXE_IMAGEFILE;
    if (!SizeAllowed(h.width, h.height, req.limits)) return KXE_IMAGEFILE;
    const uint32_t colour = ColourChannels(h);
    const uint32_t used = colour + (HasAlpha(h) ? 1 : 0);
    const uint64_t rowBytes =
        h.depth == 1 ? (uint64_t(h.width) + 7) / 8 : uint64_t(h.width) * (h.depth / 8);
    const uint64_t rows = uint64_t(h.height);
    const uint64_t base = h.imageData + 2;
    // Where the next row of each used channel starts.
    uint64_t next[5] = {};
    uint64_t table = 0;
    if (compression == 0) {
        if (!r.Has(base, rowBytes * rows * used)) return KXE_IMAGEFILE;
        for (uint32_t c = 0; c < used; ++c)
            next[c] = base + uint64_t(c) * rows * rowBytes;
    } else {
        // The byte counts of all rows of all channels, then the rows.
        table = uint64_t(h.channels) * rows * 2;
        if (!r.Has(base, table)) return KXE_IMAGEFILE;
        uint64_t at = base + table;
        for (uint32_t c = 0; c < used; ++c) {
            next[c] = at;
            for (uint64_t y = 0; y < rows; ++y) {
                uint32_t n = 0;
                r.Be16(base + 2 * (c * rows + y), &n);
                at += n;
            }
        }
        if (at > r.Size() ||
            !PlausibleForBytes(rowBytes * rows * used, at - base - table, kRleBytesPerByte))
            return KXE_IMAGEFILE;
    }

    const uint32_t bits = OutBits(h);
    if (!out->Create(h.width, h.height, bits, req.limits, ResultAllocator(req, bits)))
        return KXE_IMAGEFILE;
    if (h.mode == kModeBitmap) {
        out->palette[0] = 0xFFFFFF; // 0 is white, 1 black
        out->palette[1] = 0;
        out->colors = 2;
    } else if (h.mode == kModeIndexed) {
        const unsigned char* p = r.Data() + h.colourData;
        for (uint32_t i = 0; i < 256; ++i)
            out->palette[i] =
                uint32_t(p[512 + i]) | (uint32_t(p[256 + i]) << 8) | (uint32_t(p[i]) << 16);
        out->colors = 256;
    } else if (bits == 8) {
        SetGreyPalette(out, 8);
    }
    std::vector<unsigned char> buf;
    try {
        buf.resize(size_t(rowBytes * used));
    } catch (...) {
        return KXE_IMAGEFILE;
    }
    const uint32_t n = bits / 8;
    for (int32_t y = 0; y < h.height; ++y) {
        const unsigned char* ch[5];
        for (uint32_t c = 0; c < used; ++c) {
            unsigned char* row = buf.data() + c * rowBytes;
            if (compression == 0) {
                ch[c] = r.Data() + next[c];
                next[c] += rowBytes;
            } else {
                uint32_t length = 0;
                r.Be16(base + 2 * (c * rows + uint64_t(y)), &length);
                if (!Unpack(r.Data() + next[c], length, row, size_t(rowBytes)))
                    return KXE_IMAGEFILE;
                next[c] += length;
                ch[c] = row;
            }
        }
        unsigned char* d = out->Line(y);
        if (bits <= 8) {
            if (h.depth == 8 || h.depth == 1) {
                std::memcpy(d, ch[0], size_t(rowBytes));
            } else {
                for (int32_t x = 0; x < h.width; ++x)
                    d[x] = Sample(ch[0], x, h.depth);
            }
            continue;
        }
        for (int32_t x = 0; x < h.width; ++x, d += n) {
            if (h.mode == kModeRgb) {
                d[2] = Sample(ch[0], x, h.depth);
                d[1] = Sample(ch[1], x, h.depth);
                d[0] = Sample(ch[2], x, h.depth);
            } else if (h.mode == kModeCmyk) {
                // Inks are stored inverted: 255 is no ink.
                const uint32_t k = Sample(ch[3], x, h.depth);
                d[2] = uint8_t((Sample(ch[0], x, h.depth) * k + 127) / 255);
                d[1] = uint8_t((Sample(ch[1], x, h.depth) * k + 127) / 255);
                d[0] = uint8_t((Sample(ch[2], x, h.depth) * k + 127) / 255);
            } else {
                d[0] = d[1] = d[2] = Sample(ch[0], x, h.depth);
            }
            if (n == 4) d[3] = Sample(ch[colour], x, h.depth);
        }
    }
    if (bits == 32) out->alpha = Bitmap::kStraight;
    return KX_OK;
}

class CPsdBackend : public CBackend {
  public:
    constexpr CPsdBackend() = default;
    const wchar_t* Name() const override { return L"PSD"; }

    bool Sniff(const Bytes& file, const wchar_t*) const override {
        return file.size >= 26 && std::memcmp(file.data, "8BPS", 4) == 0;
    }

    KXRESULT Info(const Bytes& file, int32_t, FileInfo* info) const override {
        ByteReader r(file.data, file.size);
        Header h;
        if (!Parse(r, &h)) return KXE_IMAGEFILE;
        info->format = h.refused ? kFormatRefused : kFormatPsd;
        info->name = Name();
        info->width = h.width;
        info->height = h.height;
        info->bits = h.refused ? 24 : OutBits(h);
        info->xResolution = h.dpi;
        if (h.thumb) {
            info->flags |= kInfoHasStamp;
            info->stampWidth = h.thumbWidth;
            info->stampHeight = h.thumbHeight;
        }
        return KX_OK;
    }

    KXRESULT Decode(const Bytes& file, const DecodeRequest& req, Bitmap* out) const override {
        ByteReader r(file.data, file.size);
        Header h;
        if (!Parse(r, &h)) return KXE_IMAGEFILE;
        const KXRESULT res = DecodeMerged(r, h, req, out);
        if (KX_FAILED(res)) out->Reset();
        return res;
    }

    KXRESULT ReadStamp(const Bytes& file, const Limits& limits, Bitmap* out) const override {
        ByteReader r(file.data, file.size);
        Header h;
        if (!Parse(r, &h) || !h.thumb) return KXE_IMAGEFILE;
        DecodeRequest req;
        req.bits = 24;
        req.limits = limits;
        const KXRESULT res = DecodeJpeg(r.Data() + h.thumb, size_t(h.thumbLength), req, out);
        if (KX_SUCCEEDED(res) && h.thumbSwapped) {
            for (int32_t y = 0; y < out->Height(); ++y) {
                unsigned char* d = out->Line(y);
                for (int32_t x = 0; x < out->Width(); ++x)
                    std::swap(d[3 * x], d[3 * x + 2]);
            }
        }
        return res;
    }
};

} // namespace

const CBackend* PsdBackend() {
    static const CPsdBackend backend;
    return &backend;
}

} // namespace imgfile
} // namespace kelp
