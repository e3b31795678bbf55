#include "dvcodec.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/log.h>
#include <libswscale/swscale.h>
}

namespace dv {
namespace {

// Chroma is filtered at full horizontal resolution on the way in and interpolated on the
// way out: the cheap paths of the scaler lose about a decibel on 4:1:1.
constexpr int kScaleFlags =
    SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;

AVPixelFormat PlanarFormat(Chroma c) {
    switch (c) {
    case Chroma::k411:
        return AV_PIX_FMT_YUV411P;
    case Chroma::k420:
        return AV_PIX_FMT_YUV420P;
    case Chroma::k422:
        return AV_PIX_FMT_YUV422P;
    }
    return AV_PIX_FMT_NONE;
}

AVPixelFormat PackedFormat(const cdc::DibLayout& l, bool output) {
    if (l.bytesPerPixel == 3) return AV_PIX_FMT_BGR24;
    // Made pixels get an opaque fourth byte; a source's fourth byte is ignored.
    return output ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR0;
}

// The first row in memory order and the step to the next one down the picture.
template <class T> void TopRow(T* pixels, const cdc::DibLayout& l, T** row, int* step) {
    if (l.bottomUp) {
        *row = pixels + size_t(l.stride) * size_t(l.height - 1);
        *step = -int(l.stride);
    } else {
        *row = pixels;
        *step = int(l.stride);
    }
}

// What both directions hold: the variant, the codec context, one frame and one packet,
// and the scaler between BGR and the variant's planar format.
struct SessionState {
    const Variant* variant = nullptr;
    AVCodecContext* ctx = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;
    SwsContext* sws = nullptr;
    ~SessionState() {
        sws_freeContext(sws);
        av_packet_free(&packet);
        av_frame_free(&frame);
        avcodec_free_context(&ctx);
    }
};

struct DecompressSession : cdc::DecompressSessionBase, SessionState {};

struct CompressSession : cdc::CompressSessionBase, SessionState {
    int64_t pts = 0;
};

// The codec reports its failures by status; libavcodec's own messages about a damaged
// frame go to its debug level instead of the host's standard error.
constexpr int kQuietLogOffset = AV_LOG_DEBUG - AV_LOG_ERROR;

AVCodecContext* OpenDecoder() {
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_DVVIDEO);
    if (!codec) return nullptr;
    AVCodecContext* ctx = avcodec_alloc_context3(codec);
    if (!ctx) return nullptr;
    ctx->thread_count = 1;
    ctx->log_level_offset = kQuietLogOffset;
    if (avcodec_open2(ctx, codec, nullptr) < 0) avcodec_free_context(&ctx);
    return ctx;
}

AVCodecContext* OpenEncoder(const Variant& v) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_DVVIDEO);
    if (!codec) return nullptr;
    AVCodecContext* ctx = avcodec_alloc_context3(codec);
    if (!ctx) return nullptr;
    ctx->width = v.width;
    ctx->height = v.height;
    ctx->pix_fmt = PlanarFormat(v.chroma);
    ctx->time_base = AVRational{v.rateDen, v.rateNum};
    ctx->framerate = AVRational{v.rateNum, v.rateDen};
    ctx->thread_count = 1;
    ctx->log_level_offset = kQuietLogOffset;
    if (avcodec_open2(ctx, codec, nullptr) < 0) avcodec_free_context(&ctx);
    return ctx;
}

} // namespace

bool CodecsAvailable() {
    return avcodec_find_decoder(AV_CODEC_ID_DVVIDEO) && avcodec_find_encoder(AV_CODEC_ID_DVVIDEO);
}

const Variant* CDvCodec::VariantOf(const KXBMINFOHEADER* d) const {
    if (!cdc::RecordUsable(d) || NormalFourcc(d->biCompression) != m_fourcc) return nullptr;
    return FindVariant(d->biCompression, d->biWidth, d->biHeight, d->biSizeImage);
}

KXRESULT CDvCodec::Configure(uintptr_t code, uintptr_t value, uintptr_t extra) {
    if (code != kelp::KXCODEC_CFG_DESCRIBE) return KXE_NOTIMPL;
    const uint32_t caps = kelp::KXCODEC_CAN_DECOMPRESS | kelp::KXCODEC_CAN_COMPRESS;
    if (m_fourcc == kDVSD)
        return cdc::Describe(value, extra, m_fourcc, caps, "DV25",
                             "DVSD 720x576 PAL 4:2:0, 720x480 NTSC 4:1:1 to BGR 24/32",
                             "BGR 24/32 of those sizes to DVSD");
    return cdc::Describe(value, extra, m_fourcc, caps, "DVCPRO25/50",
                         "DVCS 25 Mbit 4:1:1, 50 Mbit 4:2:2, 720x576/480 to BGR 24/32",
                         "BGR 24/32 of those sizes to DVCS (biSizeImage picks 50 Mbit)");
}

// DV runs at a fixed data rate: there is no quality to set.
KXRESULT CDvCodec::Notify(uintptr_t, uintptr_t, uintptr_t) {
    return KXE_NOTIMPL;
}

// ---------------------------------------------------------------- decompression

KXRESULT CDvCodec::DecompressGetFormat(const KXBMINFOHEADER* src, uintptr_t out, uintptr_t room,
                                       uintptr_t bits) {
    const Variant* v = VariantOf(src);
    auto* rec = reinterpret_cast<KXBMINFOHEADER*>(out);
    if (!v || !rec || room < sizeof(KXBMINFOHEADER)) return KXE_INVALID;
    if (bits == 0) bits = 24;
    if (bits != 24 && bits != 32) return KXE_INVALID;
    const uint32_t stride = (uint32_t(v->width) * uint32_t(bits / 8) + 3u) & ~3u;
    // DV pictures are interlaced.
    cdc::MakeRecord(rec, v->width, v->height, uint16_t(bits), KXBI_RGB,
                    stride * uint32_t(v->height), false);
    if (bits == 32) rec->bmiAlpha = KXDIB_ALPHA_OPAQUE;
    return KX_OK;
}

KXRESULT CDvCodec::DecompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) {
    const Variant* v = VariantOf(src);
    if (!v) return KXE_INVALID;
    if (!dst) return KX_OK;
    cdc::DibLayout l;
    if (!cdc::BgrLayout(dst, &l) || l.width != v->width || l.height != v->height)
        return KXE_INVALID;
    return KX_OK;
}

KXRESULT CDvCodec::DecompressBegin(const KXBMINFOHEADER* src, KXBMINFOHEADER* dst,
                                   uintptr_t* phSession) {
    if (!dst || DecompressQuery(src, dst) != KX_OK) return KXE_INVALID;
    const Variant* v = VariantOf(src);
    return cdc::BeginSession<DecompressSession>(phSession, [v](DecompressSession& s) {
        s.variant = v;
        s.ctx = OpenDecoder();
        s.frame = av_frame_alloc();
        s.packet = av_packet_alloc();
        return s.ctx && s.frame && s.packet ? KX_OK : KXE_FAIL;
    });
}

KXRESULT CDvCodec::Decompress(const KXBMINFOHEADER* src, const void* srcBits, KXBMINFOHEADER* dst,
                              uintptr_t out, uintptr_t room, uintptr_t written,
                              uintptr_t hSession) {
    DecompressSession* s = cdc::SessionOf<DecompressSession>(hSession);
    cdc::DibLayout l;
    if (!s || !srcBits || DecompressQuery(src, dst) != KX_OK || !cdc::BgrLayout(dst, &l))
        return KXE_INVALID;
    auto* pixels = reinterpret_cast<uint8_t*>(out);
    if (!pixels || room < l.bytes) return KXE_INVALID;

    // The frame must be whole and of the session's variant before the decoder sees it.
    const Variant& v = *s->variant;
    const auto* data = static_cast<const uint8_t*>(srcBits);
    if (src->biSizeImage != v.frameBytes || !CheckFrameStructure(v, data, v.frameBytes))
        return KXE_FAIL;

    // The decoder reads a little beyond the end of its input: it gets a padded copy.
    if (av_new_packet(s->packet, int(v.frameBytes)) < 0) return KXE_OUTOFMEMORY;
    std::memcpy(s->packet->data, data, v.frameBytes);
    int rc = avcodec_send_packet(s->ctx, s->packet);
    av_packet_unref(s->packet);
    if (rc < 0) return KXE_FAIL;
    rc = avcodec_receive_frame(s->ctx, s->frame);
    if (rc < 0) return KXE_FAIL;

    KXRESULT result = KXE_FAIL;
    AVFrame* f = s->frame;
    if (f->width == v.width && f->height == v.height && f->format == PlanarFormat(v.chroma)) {
        s->sws = sws_getCachedContext(s->sws, v.width, v.height, AVPixelFormat(f->format), l.width,
                                      l.height, PackedFormat(l, true), kScaleFlags, nullptr,
                                      nullptr, nullptr);
        uint8_t* row;
        int step;
        TopRow(pixels, l, &row, &step);
        if (s->sws &&
            sws_scale(s->sws, f->data, f->linesize, 0, v.height, &row, &step) == v.height) {
            dst->biSizeImage = l.bytes;
            cdc::StoreCount(written, l.bytes);
            result = KX_OK;
        }
    }
    av_frame_unref(f);
    return result;
}

KXRESULT CDvCodec::DecompressEnd(uintptr_t hSession) {
    return cdc::EndSession<DecompressSession>(hSession);
}

// ---------------------------------------------------------------- compression

KXRESULT CDvCodec::CompressGetFormat(uintptr_t srcArg, uintptr_t out, uintptr_t room) {
    auto* src = reinterpret_cast<const KXBMINFOHEADER*>(srcArg);
    auto* rec = reinterpret_cast<KXBMINFOHEADER*>(out);
    cdc::DibLayout l;
    if (!cdc::BgrLayout(src, &l) || !rec || room < sizeof(KXBMINFOHEADER)) return KXE_INVALID;
    const Variant* v = FindVariant(m_fourcc, l.width, l.height, 0);
    if (!v) return KXE_INVALID;
    cdc::MakeRecord(rec, v->width, v->height, 24, m_fourcc, v->frameBytes, false);
    return KX_OK;
}

KXRESULT CDvCodec::CompressQuery(const KXBMINFOHEADER* src, const KXBMINFOHEADER* dst) {
    cdc::DibLayout l;
    const Variant* v = VariantOf(dst);
    if (!v || !cdc::BgrLayout(src, &l) || l.width != v->width || l.height != v->height)
        return KXE_INVALID;
    return KX_OK;
}

KXRESULT CDvCodec::CompressBegin(const KXBMINFOHEADER* src, KXBMINFOHEADER* dst,
                                 uintptr_t* phSession) {
    if (CompressQuery(src, dst) != KX_OK) return KXE_INVALID;
    const Variant* v = VariantOf(dst);
    return cdc::BeginSession<CompressSession>(phSession, [v](CompressSession& s) {
        s.variant = v;
        s.ctx = OpenEncoder(*v);
        s.frame = av_frame_alloc();
        s.packet = av_packet_alloc();
        if (!s.ctx || !s.frame || !s.packet) return KXE_FAIL;
        s.frame->format = s.ctx->pix_fmt;
        s.frame->width = s.ctx->width;
        s.frame->height = s.ctx->height;
        return av_frame_get_buffer(s.frame, 0) < 0 ? KXE_OUTOFMEMORY : KX_OK;
    });
}

KXRESULT CDvCodec::Compress(const KXBMINFOHEADER* src, const void* srcBits, KXBMINFOHEADER* dst,
                            uintptr_t out, uintptr_t room, uintptr_t written, uintptr_t hSession) {
    CompressSession* s = cdc::SessionOf<CompressSession>(hSession);
    cdc::DibLayout l;
    if (!s || !srcBits || CompressQuery(src, dst) != KX_OK || !cdc::BgrLayout(src, &l))
        return KXE_INVALID;
    const Variant& v = *s->variant;
    auto* frameOut = reinterpret_cast<uint8_t*>(out);
    // Every frame of a variant has the same length: a short buffer is refused up front.
    if (VariantOf(dst) != &v || !frameOut || room < v.frameBytes) return KXE_INVALID;

    if (av_frame_make_writable(s->frame) < 0) return KXE_OUTOFMEMORY;
    s->sws =
        sws_getCachedContext(s->sws, l.width, l.height, PackedFormat(l, false), v.width, v.height,
                             s->ctx->pix_fmt, kScaleFlags, nullptr, nullptr, nullptr);
    if (!s->sws) return KXE_FAIL;
    const uint8_t* row;
    int step;
    TopRow(static_cast<const uint8_t*>(srcBits), l, &row, &step);
    if (sws_scale(s->sws, &row, &step, 0, l.height, s->frame->data, s->frame->linesize) != v.height)
        return KXE_FAIL;
    s->frame->pts = s->pts++;

    if (avcodec_send_frame(s->ctx, s->frame) < 0) return KXE_FAIL;
    if (avcodec_receive_packet(s->ctx, s->packet) < 0) return KXE_FAIL;
    KXRESULT result = KXE_FAIL;
    if (s->packet->size == int(v.frameBytes)) {
        std::memcpy(frameOut, s->packet->data, v.frameBytes);
        dst->biSizeImage = v.frameBytes;
        cdc::StoreCount(written, v.frameBytes);
        result = KX_OK;
    }
    av_packet_unref(s->packet);
    return result;
}

KXRESULT CDvCodec::CompressEnd(uintptr_t hSession) {
    return cdc::EndSession<CompressSession>(hSession);
}

} // namespace dv
