// Metafile reading. libwmf plays the records into a canvas of its own that starts
// black, so the picture is given a white page first: a copy of the file in memory with
// one more record ahead of the others, which paints the metafile's window white. The
// canvas comes back as a PNG file in memory, the one form of it that libwmf frees.
#include "wmfio.h"

#include <cstring>
#include <vector>

#if KELP_HAVE_WMF
#include <libwmf/api.h>
#include <libwmf/gd.h>
#endif

#include "bytereader.h"
#include "pngio.h"

namespace kelp {
namespace imgfile {

namespace {

constexpr uint32_t kPlaceableKey = 0x9AC6CDD7u;
constexpr size_t kPlaceableBytes = 22;
constexpr size_t kHeaderBytes = 18;
// The size a metafile has when nobody asks for another.
constexpr int32_t kNaturalDpi = 96;

bool IsEmf(const ByteReader& r) {
    uint32_t type, sig;
    return r.Le32(0, &type) && type == 1 && r.Le32(40, &sig) && sig == 0x464D4520u; // " EMF"
}

// Where the metafile header starts, or false for a file that is not a WMF.
bool WmfHeader(const ByteReader& r, size_t* header) {
    uint32_t key;
    *header = (r.Le32(0, &key) && key == kPlaceableKey) ? kPlaceableBytes : 0;
    uint32_t type, words, version;
    return r.Has(*header, kHeaderBytes) && r.Le16(*header, &type) && (type == 1 || type == 2) &&
           r.Le16(*header + 2, &words) && words == 9 && r.Le16(*header + 4, &version) &&
           (version == 0x100 || version == 0x300);
}

#if KELP_HAVE_WMF

void AddRecord(std::vector<unsigned char>* out, uint32_t function,
               std::initializer_list<uint32_t> params) {
    unsigned char b[4];
    PutU32LE(b, uint32_t(3 + params.size()));
    out->insert(out->end(), b, b + 4);
    PutU16LE(b, function);
    out->insert(out->end(), b, b + 2);
    for (uint32_t p : params) {
        PutU16LE(b, p);
        out->insert(out->end(), b, b + 2);
    }
}

// The file with a white page painted first: the window of the placeable header, or the
// first window the records set. The file as it is if it names no window.
bool WithWhitePage(const ByteReader& r, size_t header, std::vector<unsigned char>* out) {
    int32_t x = 0, y = 0, w = 0, h = 0;
    bool found = false;
    if (header == kPlaceableBytes) {
        uint32_t l = 0, t = 0, rt = 0, b = 0;
        r.Le16(6, &l);
        r.Le16(8, &t);
        r.Le16(10, &rt);
        r.Le16(12, &b);
        x = int16_t(l);
        y = int16_t(t);
        w = int16_t(rt) - x;
        h = int16_t(b) - y;
        found = w != 0 && h != 0;
    }
    bool org = false, ext = false;
    for (uint64_t at = header + kHeaderBytes; !found && !(org && ext);) {
        uint32_t size, function, a, b;
        if (!r.Le32(at, &size) || size < 3 || !r.Le16(at + 4, &function) || function == 0) break;
        if ((function == 0x020B || function == 0x020C) && r.Le16(at + 6, &a) &&
            r.Le16(at + 8, &b)) {
            if (function == 0x020B) {
                y = int16_t(a);
                x = int16_t(b);
                org = true;
            } else {
                h = int16_t(a);
                w = int16_t(b);
                ext = true;
            }
        }
        if (size > (r.Size() - at) / 2) break;
        at += uint64_t(size) * 2;
    }
    if (!found && ext) found = w != 0 && h != 0;
    const size_t records = header + kHeaderBytes;
    try {
        out->assign(r.Data(), r.Data() + records);
        if (found) {
            // SetWindowOrg, SetWindowExt (y before x), and PatBlt WHITENESS: the raster
            // operation, height, width, y, x.
            AddRecord(out, 0x020B, {uint32_t(y) & 0xFFFF, uint32_t(x) & 0xFFFF});
            AddRecord(out, 0x020C, {uint32_t(h) & 0xFFFF, uint32_t(w) & 0xFFFF});
            AddRecord(out, 0x061D,
                      {0x0062, 0x00FF, uint32_t(h) & 0xFFFF, uint32_t(w) & 0xFFFF,
                       uint32_t(y) & 0xFFFF, uint32_t(x) & 0xFFFF});
        }
        const size_t added = out->size() - records;
        out->insert(out->end(), r.Data() + records, r.Data() + r.Size());
        // The header's size of the whole file in 16-bit words.
        uint32_t words;
        if (r.Le32(header + 6, &words))
            PutU32LE(out->data() + header + 6, words + uint32_t(added / 2));
    } catch (...) {
        return false;
    }
    return true;
}

// One session of libwmf on a file in memory.
class Player {
  public:
    explicit Player(std::vector<unsigned char>* file) {
        wmfAPI_Options options;
        std::memset(&options, 0, sizeof options);
        options.function = wmf_gd_function;
        const unsigned long flags =
            WMF_OPT_FUNCTION | WMF_OPT_IGNORE_NONFATAL | WMF_OPT_NO_ERROR | WMF_OPT_NO_DEBUG;
        if (wmf_api_create(&m_api, flags, &options) != wmf_E_None) {
            if (m_api) wmf_api_destroy(m_api);
            m_api = nullptr;
            return;
        }
        m_open = wmf_mem_open(m_api, file->data(), long(file->size())) == wmf_E_None &&
                 wmf_scan(m_api, 0, &m_bbox) == wmf_E_None;
    }
    ~Player() {
        if (!m_api) return;
        wmf_mem_close(m_api);
        wmf_api_destroy(m_api);
    }
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;
    bool Ok() const { return m_api && m_open; }
    bool Size(int32_t dpi, int32_t* w, int32_t* h) {
        unsigned int uw = 0, uh = 0;
        if (wmf_display_size(m_api, &uw, &uh, dpi, dpi) != wmf_E_None) return false;
        if (uw > unsigned(kMaxSide) || uh > unsigned(kMaxSide)) return false;
        *w = int32_t(uw);
        *h = int32_t(uh);
        return uw > 0 && uh > 0;
    }
    // The picture at w x h as a PNG file that libwmf made in memory (and frees with
    // the session); its length is that of its chunks up to the end chunk.
    Bytes Play(int32_t w, int32_t h) {
        wmf_gd_t* gd = WMF_GD_GetData(m_api);
        gd->type = wmf_gd_png;
        gd->flags |= WMF_GD_OUTPUT_MEMORY;
        gd->width = unsigned(w);
        gd->height = unsigned(h);
        gd->bbox = m_bbox;
        if (wmf_play(m_api, 0, &m_bbox) != wmf_E_None || !gd->memory) return Bytes();
        const unsigned char* p = reinterpret_cast<const unsigned char*>(gd->memory);
        // No picture of these sizes needs more than this.
        const uint64_t most = uint64_t(w) * uint64_t(h) * 8 + (uint64_t(1) << 20);
        uint64_t at = 8;
        while (at + 12 <= most) {
            const uint32_t length = (uint32_t(p[at]) << 24) | (uint32_t(p[at + 1]) << 16) |
                                    (uint32_t(p[at + 2]) << 8) | uint32_t(p[at + 3]);
            const bool end = std::memcmp(p + at + 4, "IEND", 4) == 0;
            at += 12 + uint64_t(length);
            if (end) return Bytes{p, size_t(at)};
        }
        return Bytes();
    }

  private:
    wmfAPI* m_api = nullptr;
    wmfD_Rect m_bbox{};
    bool m_open = false;
};

#endif // KELP_HAVE_WMF

class CMetafileBackend : public CBackend {
  public:
    constexpr CMetafileBackend() = default;
    const wchar_t* Name() const override { return L"WMF"; }

    bool Sniff(const Bytes& file, const wchar_t*) const override {
        ByteReader r(file.data, file.size);
        size_t header;
        return IsEmf(r) || WmfHeader(r, &header);
    }

    KXRESULT Info(const Bytes& file, int32_t resolution, FileInfo* info) const override {
        ByteReader r(file.data, file.size);
        size_t header;
        if (IsEmf(r)) {
            info->format = kFormatRefused;
            info->name = L"EMF";
            info->bits = 24;
            return KX_OK;
        }
        if (!WmfHeader(r, &header)) return KXE_IMAGEFILE;
        info->name = Name();
        info->bits = 24;
#if KELP_HAVE_WMF
        std::vector<unsigned char> copy;
        if (!WithWhitePage(r, header, &copy)) return KXE_IMAGEFILE;
        Player p(&copy);
        const int32_t dpi = resolution > 0 ? resolution : kNaturalDpi;
        if (!p.Ok() || !p.Size(dpi, &info->width, &info->height)) return KXE_IMAGEFILE;
        info->format = kFormatMetafile;
        info->xResolution = dpi;
#else
        (void)resolution;
        info->format = kFormatRefused;
#endif
        return KX_OK;
    }

    KXRESULT Decode(const Bytes& file, const DecodeRequest& req, Bitmap* out) const override {
#if KELP_HAVE_WMF
        ByteReader r(file.data, file.size);
        size_t header;
        std::vector<unsigned char> copy;
        if (IsEmf(r) || !WmfHeader(r, &header) || !WithWhitePage(r, header, &copy))
            return KXE_IMAGEFILE;
        Player p(&copy);
        int32_t w, h;
        const int32_t dpi = req.resolution > 0 ? req.resolution : kNaturalDpi;
        if (!p.Ok() || !p.Size(dpi, &w, &h) || !SizeAllowed(w, h, req.limits)) return KXE_IMAGEFILE;
        const Bytes png = p.Play(w, h);
        if (!png.data) return KXE_IMAGEFILE;
        DecodeRequest d = req;
        d.bits = req.bits == 32 ? 32 : 24;
        d.minWidth = d.minHeight = 0;
        if (KX_FAILED(PngBackend()->Decode(png, d, out))) return KXE_IMAGEFILE;
        out->alpha = Bitmap::kIgnore;
        return KX_OK;
#else
        (void)file;
        (void)req;
        (void)out;
        return KXE_IMAGEFILE;
#endif
    }
};

} // namespace

const CBackend* MetafileBackend() {
    static const CMetafileBackend backend;
    return &backend;
}

} // namespace imgfile
} // namespace kelp
