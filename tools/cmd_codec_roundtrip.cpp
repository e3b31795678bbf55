// kelp codec-roundtrip: compresses a picture through the codec manager, decompresses it
// again and tells how close the result is (PSNR).
#include <kelp/kelp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "pictureio.h"
#include "progress.h"
#include "testpicture.h"

namespace {

uint32_t ParseFourcc(const std::string& s) {
    if (s.size() != 4) return 0;
    return KXFOURCC(s[0], s[1], s[2], s[3]);
}

struct Options {
    std::vector<std::string> files;
    CLI::Option* generateOption = nullptr;
    std::string generate; // WxH, or the output's name where --generate was followed by it
    std::string codec;
    uint32_t fourcc = 0;
    int bits = 24;
    int quality = 0;
    bool dv50 = false;
    // What the command line comes to:
    std::string in, out;
    bool generated = false;
    uint32_t genWidth = 720, genHeight = 576;
};

bool LooksLikeSize(const std::string& s) {
    const size_t x = s.find('x');
    if (x == 0 || x == std::string::npos || x + 1 == s.size()) return false;
    for (size_t i = 0; i < s.size(); ++i)
        if (i != x && (s[i] < '0' || s[i] > '9')) return false;
    return true;
}

// Puts the files and --generate in order; 0, or the exit code of a usage error.
int Resolve(const CLI::App& cmd, Options* o) {
    o->fourcc = ParseFourcc(o->codec);
    if (!o->fourcc)
        return kelptool::UsageError(cmd, "--codec: a format code has four characters: " + o->codec);
    std::vector<std::string> files = o->files;
    o->generated = o->generateOption->count() > 0;
    if (o->generated && !o->generate.empty()) {
        if (!LooksLikeSize(o->generate)) {
            files.insert(files.begin(), o->generate); // a file name after --generate
        } else if (!kelptool::ParseSize(o->generate, 8192, &o->genWidth, &o->genHeight)) {
            return kelptool::UsageError(cmd, "--generate: " + o->generate +
                                                 " is not a size WxH with sides 1..8192");
        }
    }
    if (o->generated) {
        if (files.size() > 1) return kelptool::UsageError(cmd, "--generate takes no input file");
        if (!files.empty()) o->out = files[0];
    } else {
        if (files.empty()) return kelptool::UsageError(cmd, "IN.png or --generate is needed");
        if (files.size() > 2) return kelptool::UsageError(cmd, "too many file names");
        o->in = files[0];
        if (files.size() > 1) o->out = files[1];
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
    std::fprintf(stderr, "kelp codec-roundtrip: %s failed (0x%08X)\n", what, unsigned(hr));
    return 1;
}

int RunRoundtrip(const CLI::App& cmd, Options o) {
    if (const int usage = Resolve(cmd, &o)) return usage;
    kelptool::Progress progress("round trip", 3);

    testpic::Picture picture;
    if (o.generated) {
        picture = testpic::GenerateTestPicture(int(o.genWidth), int(o.genHeight));
    } else {
        std::string error;
        if (!ReadPicture(o.in, &picture, &error)) {
            std::fprintf(stderr, "kelp codec-roundtrip: %s\n", error.c_str());
            return 1;
        }
    }

    progress.Update(1);
    Run run;
    run.manager = kelp::KXCODECCreateCodecManager();
    if (!run.manager) {
        std::fprintf(stderr, "kelp codec-roundtrip: cannot make a codec manager\n");
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
        std::fprintf(
            stderr, "kelp codec-roundtrip: no codec compresses %d-bit BGR %dx%d to '%.4s'\n",
            o.bits, picture.width, picture.height, reinterpret_cast<const char*>(&o.fourcc));
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
    progress.Update(2);
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
    progress.Update(3);
    progress.Finish();
    run.decompress = 0;

    const testpic::Picture result = testpic::FromDib(outBits.data(), out);
    const double psnr = testpic::Psnr(picture, result);
    std::printf("%.4s %dx%d, %d-bit BGR: frame %u bytes (%.1f:1), PSNR %.2f dB\n",
                reinterpret_cast<const char*>(&o.fourcc), picture.width, picture.height, o.bits,
                length, double(picture.bgr.size()) / double(length ? length : 1), psnr);
    if (!o.out.empty()) {
        std::string error;
        if (!WritePicturePng(o.out, result, &error)) {
            std::fprintf(stderr, "kelp codec-roundtrip: %s\n", error.c_str());
            return 1;
        }
    }
    return 0;
}

} // namespace

void AddCodecRoundtripCommand(CLI::App& app) {
    auto o = std::make_shared<Options>();
    CLI::App* cmd = kelptool::AddCommand(
        app, "codec-roundtrip", "Compress and decompress a picture, print the PSNR.",
        [o](const CLI::App& command) { return RunRoundtrip(command, *o); });
    kelptool::Describe(
        *cmd, "  kelp codec-roundtrip IN.png --codec FOURCC [OUT.png] [options]\n"
              "  kelp codec-roundtrip --generate [WxH] --codec FOURCC [OUT.png] [options]\n"
              "Compresses the picture to one frame of FOURCC through the codec manager (the\n"
              "codec is found among the plug-ins beside the library), decompresses the frame,\n"
              "prints the PSNR (peak signal-to-noise ratio in dB: higher is closer) against\n"
              "the original and writes the result to OUT.png.");
    cmd->add_option("FILES", o->files,
                    "IN.png (not with --generate), then OUT.png. IN.png is read with libpng:\n"
                    "8-bit or 16-bit RGB, grey or palette; alpha is dropped. The picture is\n"
                    "not scaled: DV needs 720x576 (PAL) or 720x480 (NTSC)")
        ->type_name("IN.png OUT.png")
        ->expected(0, 2);
    o->generateOption =
        cmd->add_option("--generate", o->generate,
                        "use the project's synthetic test picture instead of a file, 720x576\n"
                        "pixels unless a size WxH (sides 1 to 8192) is given")
            ->type_name("[WxH]")
            ->expected(0, 1);
    cmd->add_option("--codec", o->codec,
                    "the compressed format, four characters: MJPG, DVSD (DV25) or DVCS (DVCPRO)")
        ->required()
        ->type_name("FOURCC");
    cmd->add_option("--bits", o->bits,
                    "24 (default) or 32: the bits per pixel of the BGR picture handed to the\n"
                    "codec and asked back")
        ->type_name("N")
        ->check(kelptool::OneOf({"24", "32"}));
    cmd->add_option("--quality", o->quality,
                    "1 to 100, for codecs that have a quality (MJPG; default 90): higher keeps\n"
                    "more detail in a larger frame")
        ->type_name("Q")
        ->check(kelptool::WholeNumber(1, 100));
    cmd->add_flag("--dv50", o->dv50,
                  "with DVCS: DVCPRO50 (twice the data rate) instead of DVCPRO25");
}
