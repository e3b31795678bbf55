#include "mjpegcodec.h"

#include <turbojpeg.h>

namespace mjpeg {
namespace {

// Chroma sampling of the frames made here: 4:2:2, as Motion-JPEG video usually is.
constexpr int kSubsampling = TJSAMP_422;

struct DecompressSession : cdc::DecompressSessionBase {
    tjhandle tj = nullptr;
    ~DecompressSession() {
        if (tj) tjDestroy(tj);
    }
};

struct CompressSession : cdc::CompressSessionBase {
    tjhandle tj = nullptr;
    uint32_t quality = CMJpegCodec::kDefaultQuality;
    unsigned char* scratch = nullptr; // for a caller buffer smaller than the worst case
    unsigned long scratchSize = 0;
    ~CompressSession() {
        if (tj) tjDestroy(tj);
        tjFree(scratch);
    }
};

// A compressed record this codec reads: 'MJPG' with a sensible picture size.
bool IsMjpg(const KXBMINFOHEADER* d) {
    if (!cdc::RecordUsable(d) || d->biCompression != kFourcc) return false;
    const int32_t h = cdc::AbsHeight(d);
    return d->biWidth > 0 && d->biWidth <= cdc::kMaxSide && h > 0 && h <= cdc::kMaxSide;
}

bool SamePicture(const KXBMINFOHEADER* a, const KXBMINFOHEADER* b) {
    return a->biWidth == b->biWidth && cdc::AbsHeight(a) == cdc::AbsHeight(b);
}

// The worst-case size of one frame of this picture size.
uint32_t FrameBound(int32_t width, int32_t height) {
    const unsigned long n = tjBufSize(width, height, kSubsampling);
    return n > 0xFFFFFFFFul ? 0xFFFFFFFFu : uint32_t(n);
}

} // namespace

KXRESULT CMJpegCodec::Configure(uintptr_t code, uintptr_t value, uintptr_t extra) {
    if (code == kelp::KXCODEC_CFG_DESCRIBE)
        return cdc::Describe(
            value, extra, kFourcc, kelp::KXCODEC_CAN_DECOMPRESS | kelp::KXCODEC_CAN_COMPRESS,
            "Motion-JPEG", "MJPG to BGR 24/32", "BGR 24/32 to MJPG (4:2:2, quality 1-100)");
    if (code == kelp::KXCODEC_CFG_QUALITY) return Notify(code, value, 0);
    return KXE_NOTIMPL;
}

KXRESULT CMJpegCodec::Notify(uintptr_t code, uintptr_t value, uintptr_t hSession) {
    if (code != kelp::KXCODEC_CFG_QUALITY) return KXE_NOTIMPL;
    if (!cdc::ValidQuality(value)) return KXE_INVALID;
    if (!hSession) {
        m_quality = uint32_t(value);
        return KX_OK;
    }
    CompressSession* s = cdc::SessionOf<CompressSession>(hSession);
    if (!s) return KXE_INVALID;
    s->quality = uint32_t(value);
    return KX_OK;
}

// ---------------------------------------------------------------- decompression

KXRESULT CMJpegCodec::DecompressGetFormat(const KXBMINFOHEADER* src, uintptr_t out, uintptr_t room,
                                          uintptr_t bits) {
    auto* rec = reinterpret_cast<KXBMINFOHEADER*>(out);
    if (!IsMjpg(src) || !rec || room < sizeof(KXBMINFOHEADER)) return KXE_INVALID;
    if (bits == 0) bits = 24;
    if (bits != 24 && bits != 32) return KXE_INVALID;
    const int32_t h = cdc::AbsHeight(src);
    const uint32_t stride = (uint32_t(src->biWidth) * uint32_t(bits / 8) + 3u) & ~3u;
    cdc::MakeRecord(rec, src->biWidth, h, uint16_t(bits), KXBI_RGB, stride * uint32_t(h), true);
    if (bits == 32) rec->bmiAlpha = KXDIB_ALPHA_OPAQUE;
    return KX_OK;
}

KXRESULT CMJpegCodec::DecompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) {
    if (!IsMjpg(src)) return KXE_INVALID;
    if (!dst) return KX_OK;
    cdc::DibLayout l;
    return cdc::BgrLayout(dst, &l) && SamePicture(src, dst) ? KX_OK : KXE_INVALID;
}

KXRESULT CMJpegCodec::DecompressBegin(const KXBMINFOHEADER* src, KXBMINFOHEADER* dst,
                                      uintptr_t* phSession) {
    if (!dst || DecompressQuery(src, dst) != KX_OK) return KXE_INVALID;
    return cdc::BeginSession<DecompressSession>(phSession, [](DecompressSession& s) {
        s.tj = tjInitDecompress();
        return s.tj ? KX_OK : KXE_OUTOFMEMORY;
    });
}

KXRESULT CMJpegCodec::Decompress(const KXBMINFOHEADER* src, const void* srcBits,
                                 KXBMINFOHEADER* dst, uintptr_t out, uintptr_t room,
                                 uintptr_t written, uintptr_t hSession) {
    DecompressSession* s = cdc::SessionOf<DecompressSession>(hSession);
    cdc::DibLayout l;
    if (!s || !IsMjpg(src) || !srcBits || src->biSizeImage == 0 || !dst ||
        !cdc::BgrLayout(dst, &l) || !SamePicture(src, dst))
        return KXE_INVALID;
    auto* pixels = reinterpret_cast<unsigned char*>(out);
    if (!pixels || room < l.bytes) return KXE_INVALID;

    auto* jpeg = static_cast<const unsigned char*>(srcBits);
    int width = 0, height = 0, subsamp = 0, colorspace = 0;
    if (tjDecompressHeader3(s->tj, jpeg, src->biSizeImage, &width, &height, &subsamp,
                            &colorspace) != 0)
        return KXE_FAIL;
    // A frame of another size than the record says is refused before anything is written.
    if (width != l.width || height != l.height) return KXE_FAIL;
    const int format = l.bytesPerPixel == 3 ? TJPF_BGR : TJPF_BGRA;
    // A damaged frame stops at the first warning instead of giving a patched picture.
    const int flags = TJFLAG_STOPONWARNING | TJFLAG_LIMITSCANS | (l.bottomUp ? TJFLAG_BOTTOMUP : 0);
    if (tjDecompress2(s->tj, jpeg, src->biSizeImage, pixels, width, int(l.stride), height, format,
                      flags) != 0)
        return KXE_FAIL;
    dst->biSizeImage = l.bytes;
    cdc::StoreCount(written, l.bytes);
    return KX_OK;
}

KXRESULT CMJpegCodec::DecompressEnd(uintptr_t hSession) {
    return cdc::EndSession<DecompressSession>(hSession);
}

// ---------------------------------------------------------------- compression

KXRESULT CMJpegCodec::CompressGetFormat(uintptr_t srcArg, uintptr_t out, uintptr_t room) {
    auto* src = reinterpret_cast<const KXBMINFOHEADER*>(srcArg);
    auto* rec = reinterpret_cast<KXBMINFOHEADER*>(out);
    cdc::DibLayout l;
    if (!cdc::BgrLayout(src, &l) || !rec || room < sizeof(KXBMINFOHEADER)) return KXE_INVALID;
    cdc::MakeRecord(rec, l.width, l.height, 24, kFourcc, FrameBound(l.width, l.height), true);
    return KX_OK;
}

KXRESULT CMJpegCodec::CompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) {
    cdc::DibLayout l;
    if (!cdc::BgrLayout(src, &l) || !IsMjpg(dst) || !SamePicture(src, dst)) return KXE_INVALID;
    return KX_OK;
}

KXRESULT CMJpegCodec::CompressBegin(const KXBMINFOHEADER* src, KXBMINFOHEADER* dst,
                                    uintptr_t* phSession) {
    if (CompressQuery(src, dst) != KX_OK) return KXE_INVALID;
    return cdc::BeginSession<CompressSession>(phSession, [this](CompressSession& s) {
        s.tj = tjInitCompress();
        s.quality = m_quality;
        return s.tj ? KX_OK : KXE_OUTOFMEMORY;
    });
}

KXRESULT CMJpegCodec::Compress(const KXBMINFOHEADER* src, const void* srcBits, KXBMINFOHEADER* dst,
                               uintptr_t out, uintptr_t room, uintptr_t written,
                               uintptr_t hSession) {
    CompressSession* s = cdc::SessionOf<CompressSession>(hSession);
    cdc::DibLayout l;
    if (!s || !cdc::BgrLayout(src, &l) || !srcBits || !IsMjpg(dst) || !SamePicture(src, dst))
        return KXE_INVALID;
    auto* frame = reinterpret_cast<unsigned char*>(out);
    if (!frame || room == 0) return KXE_INVALID;

    const int format = l.bytesPerPixel == 3 ? TJPF_BGR : TJPF_BGRX;
    // TurboJPEG trusts a preallocated buffer to hold the worst case; a smaller caller
    // buffer is served through the session's own one and a copy.
    const int flags = TJFLAG_NOREALLOC | (l.bottomUp ? TJFLAG_BOTTOMUP : 0);
    const unsigned long bound = tjBufSize(l.width, l.height, kSubsampling);
    unsigned char* target = frame;
    if (room < bound) {
        if (s->scratchSize < bound) {
            tjFree(s->scratch);
            s->scratch = tjAlloc(int(bound));
            s->scratchSize = s->scratch ? bound : 0;
            if (!s->scratch) return KXE_OUTOFMEMORY;
        }
        target = s->scratch;
    }
    unsigned long size = bound;
    if (tjCompress2(s->tj, static_cast<const unsigned char*>(srcBits), l.width, int(l.stride),
                    l.height, format, &target, &size, kSubsampling, int(s->quality), flags) != 0)
        return KXE_FAIL;
    if (size > room) return KXE_INVALID;
    if (target != frame) std::memcpy(frame, target, size);
    dst->biSizeImage = uint32_t(size);
    cdc::StoreCount(written, uint32_t(size));
    return KX_OK;
}

KXRESULT CMJpegCodec::CompressEnd(uintptr_t hSession) {
    return cdc::EndSession<CompressSession>(hSession);
}

} // namespace mjpeg
