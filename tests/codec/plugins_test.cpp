// The plug-ins shipped with the library, through a manager: round trips of the generated
// test picture with their PSNR bounds, frames that the underlying libraries read on
// their own, buffers too small, damaged frames and the quality setting.
#include <gtest/gtest.h>

#include <kelp/kxcodec.h>

#include <cstring>
#include <random>

#include "codectest.h"
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

constexpr uint32_t kMJPG = KXFOURCC('M', 'J', 'P', 'G');
constexpr uint32_t kDVSD = KXFOURCC('D', 'V', 'S', 'D');
constexpr uint32_t kDVCS = KXFOURCC('D', 'V', 'C', 'S');
constexpr uint8_t kCanary = 0xA5;

const testpic::Picture& Pal() {
    static const testpic::Picture p = testpic::GenerateTestPicture(720, 576);
    return p;
}
const testpic::Picture& Ntsc() {
    static const testpic::Picture p = testpic::GenerateTestPicture(720, 480);
    return p;
}

KXBMINFOHEADER FrameRecord(uint32_t fcc, int width, int height, uint32_t sizeImage = 0) {
    KXBMINFOHEADER d = testpic::DibRecord(width, height, 24);
    d.biCompression = fcc;
    d.biSizeImage = sizeImage;
    return d;
}

class ShippedCodecs : public ::testing::Test {
protected:
    void SetUp() override {
        m = kelp::KXCODECCreateCodecManager();
        ASSERT_NE(m, nullptr);
        m->Init(0, nullptr);
    }
    void TearDown() override { m->Release(); }

    bool Have(uint32_t fcc) {
        KXBMINFOHEADER d = FrameRecord(fcc, 720, 576);
        return m->LocateCodec(&d) != nullptr;
    }

    // One frame of `p` compressed through the manager into a buffer of `room` bytes (0:
    // the codec's worst case); the status in *hr. `frame` gets the record as it came back.
    std::vector<uint8_t> Compress(const testpic::Picture& p, KXBMINFOHEADER* frame, int bits,
                                  KXRESULT* hr, uint32_t room = 0, uint32_t quality = 0,
                                  bool topDown = false) {
        KXBMINFOHEADER src = testpic::DibRecord(p.width, p.height, bits, topDown);
        const std::vector<uint8_t> pixels = testpic::ToDib(p, src);
        if (room == 0) room = 2 * uint32_t(pixels.size());
        std::vector<uint8_t> out(room + 64, kCanary);
        uintptr_t h = 0;
        *hr = m->CompressBegin(&src, frame, &h);
        if (*hr >= 0 && quality) *hr = m->Notify(kelp::KXCODEC_CFG_QUALITY, quality, h);
        uint32_t length = 0;
        if (*hr >= 0)
            *hr = m->Compress(&src, pixels.data(), frame, reinterpret_cast<uintptr_t>(out.data()),
                              room, reinterpret_cast<uintptr_t>(&length), h);
        if (h) m->CompressEnd(h);
        for (size_t i = room; i < out.size(); ++i)
            EXPECT_EQ(out[i], kCanary) << "written past the room at " << i;
        if (*hr < 0) return {};
        EXPECT_EQ(frame->biSizeImage, length);
        out.resize(length);
        return out;
    }

    // The frame decompressed through the manager into `bits`-bit rows.
    testpic::Picture Decompress(const std::vector<uint8_t>& data, KXBMINFOHEADER frame, int width,
                                int height, int bits, KXRESULT* hr, bool topDown = false,
                                std::vector<uint8_t>* raw = nullptr) {
        KXBMINFOHEADER out = testpic::DibRecord(width, height, bits, topDown);
        const uint32_t room = out.biSizeImage;
        std::vector<uint8_t> pixels(room + 64, kCanary);
        uintptr_t h = 0;
        *hr = m->DecompressBegin(&frame, &out, &h);
        if (*hr >= 0)
            *hr = m->Decompress(&frame, data.data(), &out,
                                reinterpret_cast<uintptr_t>(pixels.data()), room, 0, h);
        if (h) m->DecompressEnd(h);
        for (size_t i = room; i < pixels.size(); ++i)
            EXPECT_EQ(pixels[i], kCanary) << "written past the room at " << i;
        if (*hr < 0) return {};
        if (raw) *raw = pixels;
        return testpic::FromDib(pixels.data(), out);
    }

    kelp::ICodecManager* m = nullptr;
    codectest::PluginDir dir{KELP_CODEC_PLUGIN_DIR};
};

TEST_F(ShippedCodecs, RoundTripsStayAboveTheirBounds) {
    struct Case {
        const char* name;
        uint32_t fcc;
        int height;
        uint32_t sizeImage; // picks DVCPRO50
        int bits;
        bool topDown;
        double bound; // dB; measured values are in docs/PERFORMANCE.md
    };
    const Case cases[] = {
        {"MJPEG q90 24", kMJPG, 576, 0, 24, false, 39.0},
        {"MJPEG q90 32", kMJPG, 576, 0, 32, false, 39.0},
        {"MJPEG q90 24 top-down", kMJPG, 576, 0, 24, true, 39.0},
        {"DV25 PAL 24", kDVSD, 576, 0, 24, false, 37.0},
        {"DV25 PAL 32 top-down", kDVSD, 576, 0, 32, true, 37.0},
        {"DV25 NTSC", kDVSD, 480, 0, 24, false, 37.0},
        {"DVCPRO25 PAL", kDVCS, 576, 0, 24, false, 37.0},
        {"DVCPRO25 NTSC", kDVCS, 480, 0, 24, false, 37.0},
        {"DVCPRO50 PAL", kDVCS, 576, 288000, 24, false, 40.0},
        {"DVCPRO50 NTSC", kDVCS, 480, 240000, 32, false, 40.0},
    };
    for (const Case& t : cases) {
        SCOPED_TRACE(t.name);
        if (!Have(t.fcc)) {
            std::printf("  %-22s skipped: plug-in not built\n", t.name);
            continue;
        }
        const testpic::Picture& p = t.height == 576 ? Pal() : Ntsc();
        KXBMINFOHEADER frame = FrameRecord(t.fcc, 720, t.height, t.sizeImage);
        KXRESULT hr;
        const std::vector<uint8_t> data =
            Compress(p, &frame, t.bits, &hr, 0, t.fcc == kMJPG ? 90 : 0, t.topDown);
        ASSERT_EQ(hr, KX_OK);
        if (t.fcc != kMJPG) {
            const uint32_t expected = t.sizeImage ? t.sizeImage : t.height == 576 ? 144000 : 120000;
            EXPECT_EQ(data.size(), expected);
        }
        std::vector<uint8_t> raw;
        const testpic::Picture back =
            Decompress(data, frame, 720, t.height, t.bits, &hr, t.topDown, &raw);
        ASSERT_EQ(hr, KX_OK);
        const double psnr = testpic::Psnr(p, back);
        EXPECT_GE(psnr, t.bound);
        std::printf("  %-22s %7zu bytes  PSNR %.2f dB\n", t.name, data.size(), psnr);
        if (t.bits == 32) { // made pixels are opaque
            for (size_t i = 3; i < 720u * 4u * unsigned(t.height); i += 4)
                ASSERT_EQ(raw[i], 255) << i;
        }
    }
}

#if KELP_HAVE_MJPEG_CDC
TEST_F(ShippedCodecs, MotionJpegFramesReadWithTurboJpegAlone) {
    KXBMINFOHEADER frame = FrameRecord(kMJPG, 720, 576);
    KXRESULT hr;
    const std::vector<uint8_t> data = Compress(Pal(), &frame, 24, &hr);
    ASSERT_EQ(hr, KX_OK);
    tjhandle tj = tjInitDecompress();
    int w = 0, h = 0, ss = -1, cs = -1;
    ASSERT_EQ(tjDecompressHeader3(tj, data.data(), data.size(), &w, &h, &ss, &cs), 0);
    EXPECT_EQ(w, 720);
    EXPECT_EQ(h, 576);
    EXPECT_EQ(ss, TJSAMP_422);
    testpic::Picture direct;
    direct.width = w;
    direct.height = h;
    direct.bgr.resize(size_t(w) * size_t(h) * 3);
    ASSERT_EQ(tjDecompress2(tj, data.data(), data.size(), direct.bgr.data(), w, 0, h, TJPF_BGR, 0),
              0);
    tjDestroy(tj);
    EXPECT_GE(testpic::Psnr(Pal(), direct), 39.0) << "rows in the right order";
}

TEST_F(ShippedCodecs, MotionJpegQualityIsTheSessions) {
    KXBMINFOHEADER probe = FrameRecord(kMJPG, 720, 576);
    kelp::ICodec* codec = m->LocateCodec(&probe);
    ASSERT_NE(codec, nullptr);
    KXRESULT hr;
    auto size = [&](uint32_t quality) {
        KXBMINFOHEADER frame = FrameRecord(kMJPG, 720, 576);
        return Compress(Pal(), &frame, 24, &hr, 0, quality).size();
    };
    const size_t q90 = size(0); // the default
    EXPECT_EQ(size(90), q90);
    EXPECT_LT(size(30), q90 / 2);
    EXPECT_GT(size(100), q90);
    // The codec's quality goes to sessions begun later; a session can change its own.
    EXPECT_EQ(codec->Configure(kelp::KXCODEC_CFG_QUALITY, 30, 0), KX_OK);
    const size_t q30 = size(0);
    EXPECT_EQ(q30, size(30));
    EXPECT_EQ(m->Notify(kelp::KXCODEC_CFG_QUALITY, 90, 0), KX_OK) << "to every codec";
    EXPECT_EQ(size(0), q90);
    for (uintptr_t bad : {uintptr_t(0), uintptr_t(101)})
        EXPECT_EQ(codec->Configure(kelp::KXCODEC_CFG_QUALITY, bad, 0), KXE_INVALID);
    EXPECT_EQ(codec->Configure(12345, 0, 0), KXE_NOTIMPL);
}
#endif

#if KELP_HAVE_DV_CDC
// The frame decoded by libavcodec and converted by libswscale, without the plug-in.
testpic::Picture DecodeDvDirectly(const std::vector<uint8_t>& data) {
    testpic::Picture p;
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_DVVIDEO);
    AVCodecContext* ctx = avcodec_alloc_context3(codec);
    AVPacket* pkt = av_packet_alloc();
    AVFrame* f = av_frame_alloc();
    if (avcodec_open2(ctx, codec, nullptr) == 0 && av_new_packet(pkt, int(data.size())) == 0) {
        std::memcpy(pkt->data, data.data(), data.size());
        if (avcodec_send_packet(ctx, pkt) == 0 && avcodec_receive_frame(ctx, f) == 0) {
            p.width = f->width;
            p.height = f->height;
            p.bgr.resize(size_t(p.width) * size_t(p.height) * 3);
            SwsContext* sws =
                sws_getContext(f->width, f->height, AVPixelFormat(f->format), f->width, f->height,
                               AV_PIX_FMT_BGR24, SWS_BICUBIC, nullptr, nullptr, nullptr);
            uint8_t* dst[1] = {p.bgr.data()};
            int stride[1] = {p.width * 3};
            sws_scale(sws, f->data, f->linesize, 0, f->height, dst, stride);
            sws_freeContext(sws);
        }
    }
    av_frame_free(&f);
    av_packet_free(&pkt);
    avcodec_free_context(&ctx);
    return p;
}

TEST_F(ShippedCodecs, DvFramesReadWithLibavcodecAlone) {
    struct Case {
        uint32_t fcc;
        int height;
        uint32_t sizeImage;
    };
    for (const Case& t : {Case{kDVSD, 576, 0}, Case{kDVSD, 480, 0}, Case{kDVCS, 576, 0},
                          Case{kDVCS, 576, 288000}}) {
        const testpic::Picture& p = t.height == 576 ? Pal() : Ntsc();
        KXBMINFOHEADER frame = FrameRecord(t.fcc, 720, t.height, t.sizeImage);
        KXRESULT hr;
        const std::vector<uint8_t> data = Compress(p, &frame, 24, &hr);
        ASSERT_EQ(hr, KX_OK);
        const testpic::Picture direct = DecodeDvDirectly(data);
        ASSERT_EQ(direct.height, t.height);
        EXPECT_GE(testpic::Psnr(p, direct), 36.0) << t.height << " rows in the right order";
    }
}
#endif

TEST_F(ShippedCodecs, ShortBuffersAndDamagedFramesFailWithoutHarm) {
    std::mt19937 random(5);
    for (uint32_t fcc : {kMJPG, kDVSD, kDVCS}) {
        if (!Have(fcc)) continue;
        SCOPED_TRACE(std::string(reinterpret_cast<const char*>(&fcc), 4));
        KXBMINFOHEADER frame = FrameRecord(fcc, 720, 576);
        KXRESULT hr;
        const std::vector<uint8_t> good = Compress(Pal(), &frame, 24, &hr);
        ASSERT_EQ(hr, KX_OK);

        // Too little room for the frame: refused, nothing written past the room.
        KXBMINFOHEADER f2 = FrameRecord(fcc, 720, 576);
        Compress(Pal(), &f2, 24, &hr, uint32_t(good.size() - 1));
        EXPECT_EQ(hr, KXE_INVALID);
        // Too little room for the pixels.
        {
            KXBMINFOHEADER out = testpic::DibRecord(720, 576, 24);
            std::vector<uint8_t> pixels(out.biSizeImage, kCanary);
            uintptr_t h = 0;
            ASSERT_EQ(m->DecompressBegin(&frame, &out, &h), KX_OK);
            EXPECT_EQ(m->Decompress(&frame, good.data(), &out,
                                    reinterpret_cast<uintptr_t>(pixels.data()), out.biSizeImage - 1,
                                    0, h),
                      KXE_INVALID);
            EXPECT_EQ(pixels.back(), kCanary);
            m->DecompressEnd(h);
        }

        // Damaged frames: cut short, random bytes, a damaged start.
        std::vector<uint8_t> noise(good.size());
        for (auto& b : noise)
            b = uint8_t(random());
        std::vector<uint8_t> cut(good.begin(), good.begin() + long(good.size() / 2));
        std::vector<uint8_t> broken = good;
        std::memset(broken.data(), 0x55, 80);
        for (const std::vector<uint8_t>* bad : {&cut, &noise, &broken}) {
            KXBMINFOHEADER rec = frame;
            rec.biSizeImage = uint32_t(bad->size());
            Decompress(*bad, rec, 720, 576, 24, &hr);
            EXPECT_LT(hr, 0);
        }
    }
}

TEST_F(ShippedCodecs, FramesOfAnotherVariantAreRefused) {
    KXRESULT hr;
    if (Have(kDVSD)) {
        // A DV25 PAL frame (4:2:0) where DVCPRO25 PAL (4:1:1) is expected, an NTSC frame
        // where PAL is expected, and DVCPRO50 where DVCPRO25 is.
        KXBMINFOHEADER dv25 = FrameRecord(kDVSD, 720, 576);
        const std::vector<uint8_t> pal420 = Compress(Pal(), &dv25, 24, &hr);
        KXBMINFOHEADER ntsc = FrameRecord(kDVSD, 720, 480);
        const std::vector<uint8_t> ntsc411 = Compress(Ntsc(), &ntsc, 24, &hr);
        KXBMINFOHEADER dv50 = FrameRecord(kDVCS, 720, 576, 288000);
        const std::vector<uint8_t> pal50 = Compress(Pal(), &dv50, 24, &hr);
        ASSERT_EQ(hr, KX_OK);
        struct Case {
            const std::vector<uint8_t>* data;
            KXBMINFOHEADER rec;
        };
        const Case cases[] = {
            {&pal420, FrameRecord(kDVCS, 720, 576, 144000)},
            {&ntsc411, FrameRecord(kDVSD, 720, 576, 144000)},
            {&pal50, FrameRecord(kDVCS, 720, 576, 144000)},
        };
        for (const Case& t : cases) {
            std::vector<uint8_t> data = *t.data;
            data.resize(std::max<size_t>(data.size(), t.rec.biSizeImage));
            Decompress(data, t.rec, 720, 576, 24, &hr);
            EXPECT_LT(hr, 0);
        }
    }
    if (Have(kMJPG)) { // a picture of another size than its record says
        KXBMINFOHEADER small = FrameRecord(kMJPG, 64, 48);
        const std::vector<uint8_t> data =
            Compress(testpic::GenerateTestPicture(64, 48), &small, 24, &hr);
        ASSERT_EQ(hr, KX_OK);
        KXBMINFOHEADER wrong = FrameRecord(kMJPG, 72, 48, uint32_t(data.size()));
        Decompress(data, wrong, 72, 48, 24, &hr);
        EXPECT_EQ(hr, KXE_FAIL);
    }
}

TEST_F(ShippedCodecs, FormatProposals) {
    for (uint32_t fcc : {kMJPG, kDVSD}) {
        if (!Have(fcc)) continue;
        KXBMINFOHEADER frame = FrameRecord(fcc, 720, 576, fcc == kDVSD ? 144000 : 1000);
        KXBMINFOHEADER out;
        std::memset(&out, 0xCC, sizeof(out));
        ASSERT_EQ(
            m->DecompressGetFormat(&frame, reinterpret_cast<uintptr_t>(&out), sizeof(out), 32),
            KX_OK);
        EXPECT_EQ(out.biSize, 144u);
        EXPECT_EQ(out.biCompression, 0u);
        EXPECT_EQ(out.biBitCount, 32);
        EXPECT_EQ(out.biSizeImage, 720u * 576u * 4u);
        EXPECT_EQ(out.bmiMagic, KXBMI_MAGIC);
        EXPECT_EQ(m->DecompressGetFormat(&frame, reinterpret_cast<uintptr_t>(&out), 143, 0),
                  KXE_INVALID);

        kelp::ICodec* codec = m->LocateCodec(&frame);
        KXBMINFOHEADER src = testpic::DibRecord(720, 576, 24);
        ASSERT_EQ(codec->CompressGetFormat(reinterpret_cast<uintptr_t>(&src),
                                           reinterpret_cast<uintptr_t>(&out), sizeof(out)),
                  KX_OK);
        EXPECT_EQ(out.biCompression, fcc);
        EXPECT_GE(out.biSizeImage, fcc == kDVSD ? 144000u : 100000u);
        EXPECT_EQ(m->CompressQuery(&src, &out), KX_OK);
    }
}

// Each codec's sessions carry their direction: a handle is good for its own direction's
// calls only, and a handle of the other direction or of nothing is refused.
TEST_F(ShippedCodecs, SessionHandlesServeTheirOwnDirectionOnly) {
    for (uint32_t fcc : {kMJPG, kDVSD, kDVCS}) {
        if (!Have(fcc)) continue;
        SCOPED_TRACE(fcc);
        KXBMINFOHEADER frame = FrameRecord(fcc, 720, 576, fcc == kMJPG ? 1000 : 144000);
        kelp::ICodec* codec = m->LocateCodec(&frame);
        ASSERT_NE(codec, nullptr);
        EXPECT_EQ(codec->GetVersion(), kelp::KXCODEC_VERSION);
        EXPECT_EQ(codec->Open(), KX_OK);
        EXPECT_EQ(codec->Close(), KX_OK);

        KXBMINFOHEADER src = testpic::DibRecord(720, 576, 24);
        KXBMINFOHEADER out = testpic::DibRecord(720, 576, 24);
        uintptr_t hc = 0, hd = 0;
        ASSERT_EQ(codec->CompressBegin(&src, &frame, &hc), KX_OK);
        ASSERT_EQ(codec->DecompressBegin(&frame, &out, &hd), KX_OK);
        ASSERT_NE(hc, 0u);
        ASSERT_NE(hd, 0u);
        EXPECT_NE(hc, hd);
        std::vector<uint8_t> buffer(out.biSizeImage);
        const uintptr_t bits = reinterpret_cast<uintptr_t>(buffer.data());
        EXPECT_EQ(codec->Decompress(&frame, buffer.data(), &out, bits, buffer.size(), 0, hc),
                  KXE_INVALID);
        EXPECT_EQ(codec->Compress(&src, buffer.data(), &frame, bits, buffer.size(), 0, hd),
                  KXE_INVALID);
        for (uintptr_t wrong : {hd, uintptr_t(0)})
            EXPECT_EQ(codec->CompressEnd(wrong), KXE_INVALID);
        for (uintptr_t wrong : {hc, uintptr_t(0)})
            EXPECT_EQ(codec->DecompressEnd(wrong), KXE_INVALID);
        uintptr_t* noHandle = nullptr;
        EXPECT_EQ(codec->CompressBegin(&src, &frame, noHandle), KXE_INVALID);
        EXPECT_EQ(codec->CompressEnd(hc), KX_OK);
        EXPECT_EQ(codec->DecompressEnd(hd), KX_OK);
    }
}

} // namespace
