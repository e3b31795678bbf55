// Per-frame times of the shipped codec plug-ins at 720x576, through a codec manager and,
// in the same run, by calling TurboJPEG and libavcodec directly with the settings the
// plug-ins use. The picture is the project's generated test picture, 24-bit BGR
// bottom-up.
//
// BM_<codec>_<op>_Manager and _Direct time each path alone. BM_<codec>_<op>_Overhead
// runs both in turn, frame by frame (alternating which goes first), and reports the
// thread CPU time of each and the manager's extra cost in percent: on a shared machine,
// separate runs differ by more than the overhead itself.
#include <benchmark/benchmark.h>

#include <kelp/kxcodec.h>

#include <cstring>
#include <ctime>
#include <vector>

#include "codec/registryhook.h"
#include "tools/testpicture.h"

#if KELP_HAVE_MJPEG_CDC
#include <turbojpeg.h>
#endif
#if KELP_HAVE_DV_CDC
extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}
#endif

namespace {

constexpr int kWidth = 720;
constexpr int kHeight = 576;
const int kStride = int(testpic::DibStride(kWidth, 24));

struct Source {
    testpic::Picture picture = testpic::GenerateTestPicture(kWidth, kHeight);
    KXBMINFOHEADER record = testpic::DibRecord(kWidth, kHeight, 24);
    std::vector<uint8_t> pixels = testpic::ToDib(picture, record);
};
const Source& TheSource() {
    static const Source s;
    return s;
}

KXBMINFOHEADER FrameRecord(uint32_t fcc, uint32_t size) {
    KXBMINFOHEADER d = testpic::DibRecord(kWidth, kHeight, 24);
    d.biCompression = fcc;
    d.biSizeImage = size;
    return d;
}

double ThreadSeconds() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

// A manager over the shipped plug-ins, from the directory they are built into.
class Manager {
  public:
    Manager() {
        const char* dir = KELP_CODEC_PLUGIN_DIR;
        kelp::codec::SetPluginDirectoryForTests(std::wstring(dir, dir + std::strlen(dir)));
        m = kelp::KXCODECCreateCodecManager();
        m->Init(0, nullptr);
    }
    ~Manager() { m->Release(); }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;
    kelp::ICodecManager* m;
};

// One compression session through the manager; Run() makes one frame.
class ManagerEncoder {
  public:
    ManagerEncoder(Manager& mgr, uint32_t fcc, uint32_t room)
        : m(mgr.m), src(TheSource().record), frame(FrameRecord(fcc, 0)), out(room) {
        ok = m->CompressBegin(&src, &frame, &h) >= 0;
    }
    ~ManagerEncoder() {
        if (h) m->CompressEnd(h);
    }
    bool Run() {
        return m->Compress(&src, TheSource().pixels.data(), &frame,
                           reinterpret_cast<uintptr_t>(out.data()), out.size(),
                           reinterpret_cast<uintptr_t>(&length), h) >= 0;
    }
    // The frame made last.
    std::vector<uint8_t> Frame() const { return {out.begin(), out.begin() + length}; }

    kelp::ICodecManager* m;
    KXBMINFOHEADER src, frame;
    std::vector<uint8_t> out;
    uintptr_t h = 0;
    uint32_t length = 0;
    bool ok = false;
};

// One decompression session through the manager, of one given frame.
class ManagerDecoder {
  public:
    ManagerDecoder(Manager& mgr, uint32_t fcc, std::vector<uint8_t> data)
        : m(mgr.m), data(std::move(data)), frame(FrameRecord(fcc, uint32_t(this->data.size()))),
          out(testpic::DibRecord(kWidth, kHeight, 24)), pixels(out.biSizeImage) {
        ok = !this->data.empty() && m->DecompressBegin(&frame, &out, &h) >= 0;
    }
    ~ManagerDecoder() {
        if (h) m->DecompressEnd(h);
    }
    bool Run() {
        return m->Decompress(&frame, data.data(), &out, reinterpret_cast<uintptr_t>(pixels.data()),
                             pixels.size(), 0, h) >= 0;
    }

    kelp::ICodecManager* m;
    std::vector<uint8_t> data;
    KXBMINFOHEADER frame, out;
    std::vector<uint8_t> pixels;
    uintptr_t h = 0;
    bool ok = false;
};

std::vector<uint8_t> FrameOf(Manager& mgr, uint32_t fcc, uint32_t room) {
    ManagerEncoder e(mgr, fcc, room);
    return e.ok && e.Run() ? e.Frame() : std::vector<uint8_t>();
}

template <class Path> void TimeAlone(benchmark::State& state, Path& path) {
    if (!path.ok) {
        state.SkipWithError("cannot begin");
        return;
    }
    for (auto _ : state) {
        if (!path.Run()) {
            state.SkipWithError("failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

template <class A, class B> void TimeInTurn(benchmark::State& state, A& manager, B& direct) {
    if (!manager.ok || !direct.ok) {
        state.SkipWithError("cannot begin");
        return;
    }
    double tm = 0, td = 0;
    bool managerFirst = true;
    for (auto _ : state) {
        const double t0 = ThreadSeconds();
        const bool r1 = managerFirst ? manager.Run() : direct.Run();
        const double t1 = ThreadSeconds();
        const bool r2 = managerFirst ? direct.Run() : manager.Run();
        const double t2 = ThreadSeconds();
        if (!r1 || !r2) {
            state.SkipWithError("failed");
            break;
        }
        tm += managerFirst ? t1 - t0 : t2 - t1;
        td += managerFirst ? t2 - t1 : t1 - t0;
        managerFirst = !managerFirst;
    }
    const double n = double(state.iterations());
    state.counters["manager_ms"] = tm / n * 1e3;
    state.counters["direct_ms"] = td / n * 1e3;
    state.counters["overhead_pct"] = td > 0 ? (tm - td) / td * 100.0 : 0;
}

#if KELP_HAVE_MJPEG_CDC
constexpr uint32_t kMJPG = KXFOURCC('M', 'J', 'P', 'G');
const uint32_t kJpegRoom = uint32_t(tjBufSize(kWidth, kHeight, TJSAMP_422));

// What the plug-in asks of TurboJPEG for one frame: 4:2:2, quality 90, bottom-up rows
// into a buffer of the worst-case size.
class TurboEncoder {
  public:
    TurboEncoder() : tj(tjInitCompress()), out(kJpegRoom) { ok = tj != nullptr; }
    ~TurboEncoder() { tjDestroy(tj); }
    bool Run() {
        unsigned char* buf = out.data();
        unsigned long size = kJpegRoom;
        return tjCompress2(tj, TheSource().pixels.data(), kWidth, kStride, kHeight, TJPF_BGR, &buf,
                           &size, TJSAMP_422, 90, TJFLAG_NOREALLOC | TJFLAG_BOTTOMUP) == 0;
    }
    tjhandle tj;
    std::vector<uint8_t> out;
    bool ok;
};

// The plug-in's reading of one frame: header, then bottom-up rows, stopping at warnings.
class TurboDecoder {
  public:
    explicit TurboDecoder(std::vector<uint8_t> frame)
        : tj(tjInitDecompress()), data(std::move(frame)), pixels(size_t(kStride) * kHeight) {
        ok = tj && !data.empty();
    }
    ~TurboDecoder() { tjDestroy(tj); }
    bool Run() {
        int w, h, ss, cs;
        if (tjDecompressHeader3(tj, data.data(), data.size(), &w, &h, &ss, &cs) != 0) return false;
        return tjDecompress2(tj, data.data(), data.size(), pixels.data(), w, kStride, h, TJPF_BGR,
                             TJFLAG_STOPONWARNING | TJFLAG_LIMITSCANS | TJFLAG_BOTTOMUP) == 0;
    }
    tjhandle tj;
    std::vector<uint8_t> data, pixels;
    bool ok;
};

void BM_Mjpeg_Encode_Manager(benchmark::State& state) {
    Manager mgr;
    ManagerEncoder e(mgr, kMJPG, kJpegRoom);
    TimeAlone(state, e);
    state.counters["bytes"] = e.length;
}
void BM_Mjpeg_Encode_Direct(benchmark::State& state) {
    TurboEncoder e;
    TimeAlone(state, e);
}
void BM_Mjpeg_Encode_Overhead(benchmark::State& state) {
    Manager mgr;
    ManagerEncoder a(mgr, kMJPG, kJpegRoom);
    TurboEncoder b;
    TimeInTurn(state, a, b);
}
void BM_Mjpeg_Decode_Manager(benchmark::State& state) {
    Manager mgr;
    ManagerDecoder d(mgr, kMJPG, FrameOf(mgr, kMJPG, kJpegRoom));
    TimeAlone(state, d);
}
void BM_Mjpeg_Decode_Direct(benchmark::State& state) {
    Manager mgr;
    TurboDecoder d(FrameOf(mgr, kMJPG, kJpegRoom));
    TimeAlone(state, d);
}
void BM_Mjpeg_Decode_Overhead(benchmark::State& state) {
    Manager mgr;
    const std::vector<uint8_t> frame = FrameOf(mgr, kMJPG, kJpegRoom);
    ManagerDecoder a(mgr, kMJPG, frame);
    TurboDecoder b(frame);
    TimeInTurn(state, a, b);
}

BENCHMARK(BM_Mjpeg_Encode_Manager)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Mjpeg_Encode_Direct)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Mjpeg_Encode_Overhead)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Mjpeg_Decode_Manager)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Mjpeg_Decode_Direct)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Mjpeg_Decode_Overhead)->Unit(benchmark::kMillisecond);
#endif

#if KELP_HAVE_DV_CDC
constexpr uint32_t kDVSD = KXFOURCC('D', 'V', 'S', 'D');
constexpr uint32_t kDvFrame = 144000;
// The plug-in's colour conversion settings.
constexpr int kScaleFlags =
    SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;

// What the plug-in does for one DV25 PAL frame: BGR to 4:2:0 by libswscale, encode,
// copy the packet out.
class AvEncoder {
  public:
    AvEncoder() {
        const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_DVVIDEO);
        ctx = avcodec_alloc_context3(codec);
        ctx->width = kWidth;
        ctx->height = kHeight;
        ctx->pix_fmt = AV_PIX_FMT_YUV420P;
        ctx->time_base = AVRational{1, 25};
        ctx->framerate = AVRational{25, 1};
        ctx->thread_count = 1;
        ok = avcodec_open2(ctx, codec, nullptr) == 0;
        frame = av_frame_alloc();
        frame->format = ctx->pix_fmt;
        frame->width = kWidth;
        frame->height = kHeight;
        ok = ok && av_frame_get_buffer(frame, 0) == 0;
        pkt = av_packet_alloc();
        sws = sws_getContext(kWidth, kHeight, AV_PIX_FMT_BGR24, kWidth, kHeight, AV_PIX_FMT_YUV420P,
                             kScaleFlags, nullptr, nullptr, nullptr);
    }
    ~AvEncoder() {
        sws_freeContext(sws);
        av_packet_free(&pkt);
        av_frame_free(&frame);
        avcodec_free_context(&ctx);
    }
    bool Run() {
        const uint8_t* top = TheSource().pixels.data() + size_t(kStride) * (kHeight - 1);
        const int step = -kStride;
        if (av_frame_make_writable(frame) < 0) return false;
        sws_scale(sws, &top, &step, 0, kHeight, frame->data, frame->linesize);
        frame->pts = pts++;
        if (avcodec_send_frame(ctx, frame) < 0 || avcodec_receive_packet(ctx, pkt) < 0)
            return false;
        std::memcpy(out.data(), pkt->data, size_t(pkt->size));
        av_packet_unref(pkt);
        return true;
    }
    AVCodecContext* ctx;
    AVFrame* frame;
    AVPacket* pkt;
    SwsContext* sws;
    std::vector<uint8_t> out = std::vector<uint8_t>(kDvFrame);
    int64_t pts = 0;
    bool ok;
};

// A padded copy of the frame, decode, 4:2:0 to BGR by libswscale into bottom-up rows.
class AvDecoder {
  public:
    explicit AvDecoder(std::vector<uint8_t> frame)
        : data(std::move(frame)), pixels(size_t(kStride) * kHeight) {
        const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_DVVIDEO);
        ctx = avcodec_alloc_context3(codec);
        ctx->thread_count = 1;
        ok = !data.empty() && avcodec_open2(ctx, codec, nullptr) == 0;
        f = av_frame_alloc();
        pkt = av_packet_alloc();
        sws = sws_getContext(kWidth, kHeight, AV_PIX_FMT_YUV420P, kWidth, kHeight, AV_PIX_FMT_BGR24,
                             kScaleFlags, nullptr, nullptr, nullptr);
    }
    ~AvDecoder() {
        sws_freeContext(sws);
        av_packet_free(&pkt);
        av_frame_free(&f);
        avcodec_free_context(&ctx);
    }
    bool Run() {
        if (av_new_packet(pkt, int(data.size())) < 0) return false;
        std::memcpy(pkt->data, data.data(), data.size());
        const int rc = avcodec_send_packet(ctx, pkt);
        av_packet_unref(pkt);
        if (rc < 0 || avcodec_receive_frame(ctx, f) < 0) return false;
        uint8_t* top = pixels.data() + size_t(kStride) * (kHeight - 1);
        const int step = -kStride;
        sws_scale(sws, f->data, f->linesize, 0, kHeight, &top, &step);
        av_frame_unref(f);
        return true;
    }
    std::vector<uint8_t> data, pixels;
    AVCodecContext* ctx;
    AVFrame* f;
    AVPacket* pkt;
    SwsContext* sws;
    bool ok;
};

void BM_Dv_Encode_Manager(benchmark::State& state) {
    Manager mgr;
    ManagerEncoder e(mgr, kDVSD, kDvFrame);
    TimeAlone(state, e);
}
void BM_Dv_Encode_Direct(benchmark::State& state) {
    AvEncoder e;
    TimeAlone(state, e);
}
void BM_Dv_Encode_Overhead(benchmark::State& state) {
    Manager mgr;
    ManagerEncoder a(mgr, kDVSD, kDvFrame);
    AvEncoder b;
    TimeInTurn(state, a, b);
}
void BM_Dv_Decode_Manager(benchmark::State& state) {
    Manager mgr;
    ManagerDecoder d(mgr, kDVSD, FrameOf(mgr, kDVSD, kDvFrame));
    TimeAlone(state, d);
}
void BM_Dv_Decode_Direct(benchmark::State& state) {
    Manager mgr;
    AvDecoder d(FrameOf(mgr, kDVSD, kDvFrame));
    TimeAlone(state, d);
}
void BM_Dv_Decode_Overhead(benchmark::State& state) {
    Manager mgr;
    const std::vector<uint8_t> frame = FrameOf(mgr, kDVSD, kDvFrame);
    ManagerDecoder a(mgr, kDVSD, frame);
    AvDecoder b(frame);
    TimeInTurn(state, a, b);
}

BENCHMARK(BM_Dv_Encode_Manager)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Dv_Encode_Direct)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Dv_Encode_Overhead)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Dv_Decode_Manager)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Dv_Decode_Direct)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Dv_Decode_Overhead)->Unit(benchmark::kMillisecond);
#endif

} // namespace
