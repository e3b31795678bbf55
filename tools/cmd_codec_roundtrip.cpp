// kelp codec-roundtrip: compresses a picture through the codec manager, decompresses it
// again and tells how close the result is (PSNR).
#include <kelp/kelp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "pngfile.h"
#include "testpicture.h"

namespace {

void RoundtripUsage() {
    std::fprintf(
        stderr,
        "usage: kelp codec-roundtrip IN.png --codec FOURCC [OUT.png] [options]\n"
        "       kelp codec-roundtrip --generate [WxH] --codec FOURCC [OUT.png] [options]\n"
        "\n"
        "Compresses the picture to one frame of FOURCC through the codec manager (the\n"
        "codec is found among the plug-ins beside the library), decompresses the frame,\n"
        "prints the PSNR against the original and writes the result to OUT.png.\n"
        "\n"
        "  IN.png        read with libpng: 8-bit or 16-bit RGB, grey or palette; alpha is\n"
        "                dropped. The picture is not scaled: DV needs 720x576 (PAL) or\n"
        "                720x480 (NTSC).\n"
        "  --generate    use the project's synthetic test picture instead of a file,\n"
        "                720x576 unless WxH is given\n"
        "  --codec F     the compressed format: MJPG, DVSD (DV25) or DVCS (DVCPRO)\n"
        "  --bits N      24 (default) or 32: the BGR depth handed to the codec and asked back\n"
        "  --quality Q   1-100, for codecs that have a quality (MJPG; default 90)\n"
        "  --dv50        with DVCS: DVCPRO50 instead of DVCPRO25\n");
}

uint32_t ParseFourcc(const char* s) {
    if (std::strlen(s) != 4) return 0;
    return KXFOURCC(s[0], s[1], s[2], s[3]);
}

struct Options {
    const char* in = nullptr;
    const char* out = nullptr;
    bool generate = false;
    int genWidth = 720, genHeight = 576;
    uint32_t fourcc = 0;
    int bits = 24;
    int quality = 0;
    bool dv50 = false;
};

// 0 on success, else the exit code.
int ParseArgs(int argc, char** argv, Options* o) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&](const char* name) -> const char* {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "kelp: %s needs a value\n", name);
                return nullptr;
            }
            return argv[++i];
        };
        if (a == "--help" || a == "-h") {
            RoundtripUsage();
            return -1;
        } else if (a == "--generate") {
            o->generate = true;
            int w, h;
            char tail;
            if (i + 1 < argc && std::sscanf(argv[i + 1], "%dx%d%c", &w, &h, &tail) == 2) {
                if (w <= 0 || h <= 0 || w > 8192 || h > 8192) {
                    std::fprintf(stderr, "kelp: bad size %s\n", argv[i + 1]);
                    return 2;
                }
                o->genWidth = w;
                o->genHeight = h;
                ++i;
            }
        } else if (a == "--codec") {
            const char* v = value("--codec");
            if (!v) return 2;
            o->fourcc = ParseFourcc(v);
            if (!o->fourcc) {
                std::fprintf(stderr, "kelp: a format code has four characters: %s\n", v);
                return 2;
            }
        } else if (a == "--bits") {
            const char* v = value("--bits");
            if (!v) return 2;
            o->bits = std::atoi(v);
            if (o->bits != 24 && o->bits != 32) {
                std::fprintf(stderr, "kelp: --bits is 24 or 32\n");
                return 2;
            }
        } else if (a == "--quality") {
            const char* v = value("--quality");
            if (!v) return 2;
            o->quality = std::atoi(v);
            if (o->quality < 1 || o->quality > 100) {
                std::fprintf(stderr, "kelp: --quality is 1 to 100\n");
                return 2;
            }
        } else if (a == "--dv50") {
            o->dv50 = true;
        } else if (!a.empty() && a[0] == '-') {
            std::fprintf(stderr, "kelp: unknown option %s\n", a.c_str());
            return 2;
        } else if (!o->in && !o->generate) {
            o->in = argv[i];
        } else if (!o->out) {
            o->out = argv[i];
        } else {
            std::fprintf(stderr, "kelp: too many file names\n");
            return 2;
        }
    }
    if (o->generate && o->in && !o->out) { // the one name given is the output
        o->out = o->in;
        o->in = nullptr;
    } else if (o->generate && o->in) {
        std::fprintf(stderr, "kelp: --generate takes no input file\n");
        return 2;
    }
    if (!o->fourcc || (!o->in && !o->generate)) {
        RoundtripUsage();
        return 2;
    }
    return 0;
}

// Ends a manager and any session left open when the command stops early.
struct Run {
    kelp::ICodecManager* manager = nullptr;
    uintptr_t compress = 0, decompress = 0;
    ~Run() {
        if (compress) manager->CompressEnd(compress);
        if (decompress) manager->DecompressEnd(decompress);
        if (manager) manager->Release();
    }
};

int Fail(const char* what, KXRESULT hr) {
    std::fprintf(stderr, "kelp: %s failed (0x%08X)\n", what, unsigned(hr));
    return 1;
}

} // namespace

int CmdCodecRoundtrip(int argc, char** argv) {
    Options o;
    const int parsed = ParseArgs(argc, argv, &o);
    if (parsed) return parsed < 0 ? 0 : parsed;

    testpic::Picture picture;
    if (o.generate) {
        picture = testpic::GenerateTestPicture(o.genWidth, o.genHeight);
    } else {
        std::string error;
        if (!ReadPng(o.in, &picture, &error)) {
            std::fprintf(stderr, "kelp: %s\n", error.c_str());
            return 1;
        }
    }

    Run run;
    run.manager = kelp::KXCODECCreateCodecManager();
    if (!run.manager) {
        std::fprintf(stderr, "kelp: cannot make a codec manager\n");
        return 1;
    }
    kelp::ICodecManager& m = *run.manager;
    m.Init(0, nullptr);

    KXBMINFOHEADER src = testpic::DibRecord(picture.width, picture.height, o.bits);
    std::vector<uint8_t> srcBits = testpic::ToDib(picture, src);

    // The compressed record: the format code, the picture's size, and for DVCPRO50 the
    // frame length that tells it from DVCPRO25.
    KXBMINFOHEADER frame = testpic::DibRecord(picture.width, picture.height, 24);
    frame.biCompression = o.fourcc;
    frame.biSizeImage = 0;
    frame.bmiFrame = 0;
    if (o.dv50) frame.biSizeImage = picture.height == 480 ? 240000 : 288000;

    // The codec that makes this format tells the largest frame it can make; a codec that
    // does not gets room for twice the picture.
    uint32_t room = uint32_t(srcBits.size()) * 2 + 65536;
    if (kelp::ICodec* codec = m.LocateCodec(&frame)) {
        KXBMINFOHEADER proposal;
        if (codec->CompressGetFormat(reinterpret_cast<uintptr_t>(&src),
                                     reinterpret_cast<uintptr_t>(&proposal),
                                     sizeof(proposal)) == KX_OK &&
            proposal.biSizeImage > 0)
            room = std::max(proposal.biSizeImage, frame.biSizeImage);
    }
    if (m.CompressQuery(&src, &frame) != KX_OK) {
        std::fprintf(stderr, "kelp: no codec compresses %d-bit BGR %dx%d to '%.4s'\n", o.bits,
                     picture.width, picture.height, reinterpret_cast<const char*>(&o.fourcc));
        return 1;
    }

    std::vector<uint8_t> data(room);
    uint32_t length = 0;
    KXRESULT hr = m.CompressBegin(&src, &frame, &run.compress);
    if (hr < 0) return Fail("CompressBegin", hr);
    if (o.quality) {
        hr = m.Notify(kelp::KXCODEC_CFG_QUALITY, uintptr_t(o.quality), run.compress);
        if (hr < 0) return Fail("setting the quality", hr);
    }
    hr = m.Compress(&src, srcBits.data(), &frame, reinterpret_cast<uintptr_t>(data.data()), room,
                    reinterpret_cast<uintptr_t>(&length), run.compress);
    if (hr < 0) return Fail("Compress", hr);
    m.CompressEnd(run.compress);
    run.compress = 0;
    frame.biSizeImage = length;

    KXBMINFOHEADER out = testpic::DibRecord(picture.width, picture.height, o.bits);
    std::vector<uint8_t> outBits(out.biSizeImage);
    hr = m.DecompressBegin(&frame, &out, &run.decompress);
    if (hr < 0) return Fail("DecompressBegin", hr);
    hr = m.Decompress(&frame, data.data(), &out, reinterpret_cast<uintptr_t>(outBits.data()),
                      outBits.size(), 0, run.decompress);
    if (hr < 0) return Fail("Decompress", hr);
    m.DecompressEnd(run.decompress);
    run.decompress = 0;

    const testpic::Picture result = testpic::FromDib(outBits.data(), out);
    const double psnr = testpic::Psnr(picture, result);
    std::printf("%.4s %dx%d, %d-bit BGR: frame %u bytes (%.1f:1), PSNR %.2f dB\n",
                reinterpret_cast<const char*>(&o.fourcc), picture.width, picture.height, o.bits,
                length, double(picture.bgr.size()) / double(length ? length : 1), psnr);
    if (o.out) {
        std::string error;
        if (!WritePng(o.out, result, &error)) {
            std::fprintf(stderr, "kelp: %s\n", error.c_str());
            return 1;
        }
    }
    return 0;
}
