// kelp stretch: a sound file through a time stretcher, block by block.
//
// The output holds exactly the ratio times the input's frames (rounded); it begins
// with the stretcher's own fade-in of one hop. It is written under a temporary name in
// its own directory and renamed over OUT only when it is complete.
#include "cmd_stretch.h"

#include "cli.h"
#include "commands.h"
#include "progress.h"
#include "soundfile.h"

#include <kelp/timewarp.h>

#include <sndfile.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

// Frames a block between the file and the stretcher.
constexpr unsigned kBlock = 1024;
constexpr int kMaxChannels = 64;

int Fail(const std::string& message, int code = 1) {
    std::fprintf(stderr, "kelp stretch: %s\n", message.c_str());
    return code;
}

// The temporary output, removed if the program is interrupted before the rename.
char g_tempPath[4096];

extern "C" void OnStretchSignal(int sig) {
    if (g_tempPath[0]) unlink(g_tempPath);
    signal(sig, SIG_DFL);
    raise(sig);
}

using kelptool::SameFile;
using kelptool::SndFile;

// Output frames of the stretcher on their way to the file: none is written past the
// length that the input read so far asks for, so that the file ends at exactly the
// ratio times the input once its true length is known.
class Sink {
public:
    Sink(SNDFILE* file, int channels, double ratio)
        : m_file(file), m_channels(channels), m_ratio(ratio) {}

    // One block of planar output.
    void Add(float* const* planes, unsigned frames) {
        const size_t at = m_pending.size();
        m_pending.resize(at + size_t(frames) * m_channels);
        for (unsigned i = 0; i < frames; ++i)
            for (int c = 0; c < m_channels; ++c)
                m_pending[at + size_t(i) * m_channels + c] = planes[c][i];
    }
    // Writes what the input read so far allows; false on a write error.
    bool Drain(sf_count_t inputFrames, bool last) {
        const sf_count_t limit = sf_count_t(std::llround(double(inputFrames) * m_ratio));
        if (last) {
            // The stretcher gives at least that much; silence would make up any lack.
            const size_t want = size_t(std::max<sf_count_t>(limit - m_written, 0)) * m_channels;
            if (m_pending.size() < want) m_pending.resize(want, 0.0f);
        }
        const sf_count_t n = std::min<sf_count_t>(sf_count_t(m_pending.size() / m_channels),
                                                  std::max<sf_count_t>(limit - m_written, 0));
        if (n > 0 && sf_writef_float(m_file, m_pending.data(), n) != n) return false;
        m_pending.erase(m_pending.begin(), m_pending.begin() + size_t(n) * m_channels);
        m_written += n;
        return true;
    }
    // Frames written and waiting.
    sf_count_t made() const { return m_written + sf_count_t(m_pending.size() / m_channels); }

private:
    SNDFILE* m_file;
    int m_channels;
    double m_ratio;
    std::vector<float> m_pending;
    sf_count_t m_written = 0;
};

// All of `in` through the stretcher into `out`; false with a message on an error.
bool Stretch(SNDFILE* in, const SF_INFO& info, SNDFILE* out, const StretchOptions& options,
             const std::string& outPath) {
    const int channels = info.channels;
    std::unique_ptr<MATtimewarp> tw(
        MATtimewarp::Create(kBlock, unsigned(channels), options.method));
    if (!tw) {
        Fail("out of memory");
        return false;
    }
    tw->setQuality(options.quality);
    tw->setStretch(float(options.ratio));

    std::vector<float> frames(size_t(kBlock) * channels);
    std::vector<std::vector<float>> inPlanes(channels, std::vector<float>(kBlock));
    std::vector<std::vector<float>> outPlanes(channels, std::vector<float>(kBlock));
    std::vector<float*> inPtr(channels), outPtr(channels);
    for (int c = 0; c < channels; ++c) {
        inPtr[c] = inPlanes[c].data();
        outPtr[c] = outPlanes[c].data();
    }
    Sink sink(out, channels, options.ratio);
    kelptool::Progress progress("stretching", info.frames);
    sf_count_t read = 0;
    auto writeFailed = [&] {
        progress.Finish();
        Fail("cannot write '" + outPath + "': " + sf_strerror(out));
        return false;
    };
    for (;;) {
        const sf_count_t got = sf_readf_float(in, frames.data(), kBlock);
        if (got <= 0) break;
        read += got;
        // A short last block is made up with silence.
        for (int c = 0; c < channels; ++c)
            for (unsigned i = 0; i < kBlock; ++i)
                inPlanes[c][i] = i < got ? frames[size_t(i) * channels + c] : 0.0f;
        if (!tw->write(inPtr.data())) {
            // The stretcher waits for room in its output: there is output to read.
            bool more;
            do {
                more = tw->read(outPtr.data());
                sink.Add(outPtr.data(), kBlock);
            } while (more);
            if (!sink.Drain(read, false)) return writeFailed();
        }
        progress.Update(read);
    }
    if (sf_error(in) != SF_ERR_NO_ERROR) {
        progress.Finish();
        Fail(std::string("cannot read the input: ") + sf_strerror(in));
        return false;
    }
    // The end: flush until the stretcher has nothing left, or the output is long enough.
    const sf_count_t target = sf_count_t(std::llround(double(read) * options.ratio));
    while (sink.made() < target) {
        const unsigned left = tw->flush(outPtr.data());
        sink.Add(outPtr.data(), kBlock);
        if (left == 0) break;
    }
    if (!sink.Drain(read, true)) return writeFailed();
    progress.Finish();
    return true;
}

// The encoding of the input in a WAV container.
int OutputFormat(const SF_INFO& info) {
    const int major = info.format & SF_FORMAT_TYPEMASK;
    if (major == SF_FORMAT_WAV || major == SF_FORMAT_WAVEX || major == SF_FORMAT_RF64)
        return info.format;
    return SF_FORMAT_WAV | (info.format & SF_FORMAT_SUBMASK);
}

} // namespace

int RunStretch(const StretchOptions& options) {
    if (options.method != 0 && options.method != 1) return Fail("unknown method", 2);
    if (options.quality < 0 || options.quality > 2) return Fail("--quality must be 0, 1 or 2", 2);
    const double low = kStretchMinRatio[options.method], high = kStretchMaxRatio[options.method];
    if (!(options.ratio >= low && options.ratio <= high)) {
        char text[160];
        std::snprintf(text, sizeof text, "--ratio must be from %g to %g with %s", low, high,
                      options.method == 0 ? "wsola" : "vocoder");
        return Fail(text, 2);
    }
    SF_INFO info;
    std::memset(&info, 0, sizeof info);
    SndFile in(sf_open(options.in.c_str(), SFM_READ, &info));
    if (!in) return Fail("cannot read '" + options.in + "': " + sf_strerror(nullptr));
    if (info.channels < 1 || info.channels > kMaxChannels)
        return Fail("cannot stretch a file of " + std::to_string(info.channels) +
                    " channels (64 at most)");
    SF_INFO outInfo;
    std::memset(&outInfo, 0, sizeof outInfo);
    outInfo.samplerate = info.samplerate;
    outInfo.channels = info.channels;
    outInfo.format = OutputFormat(info);
    if (!sf_format_check(&outInfo))
        return Fail("cannot write the encoding of '" + options.in + "' as WAV");
    if (SameFile(options.in, options.out))
        return Fail("the output '" + options.out + "' is the input file");

    // A temporary file beside the output, renamed over it once complete.
    const std::string& outPath = options.out;
    const size_t slash = outPath.rfind('/');
    const std::string dir = slash == std::string::npos ? "./" : outPath.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? outPath : outPath.substr(slash + 1);
    const std::string temp = dir + "." + base + ".XXXXXX";
    if (temp.size() >= sizeof g_tempPath)
        return Fail("cannot write '" + outPath + "': name too long");
    std::memcpy(g_tempPath, temp.c_str(), temp.size() + 1);
    signal(SIGINT, OnStretchSignal);
    signal(SIGTERM, OnStretchSignal);
    signal(SIGHUP, OnStretchSignal);
    const int fd = mkstemp(g_tempPath);
    if (fd < 0) {
        const int e = errno;
        g_tempPath[0] = 0;
        return Fail("cannot write '" + outPath + "': " + std::strerror(e));
    }
    // The permissions a newly created file would have had.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    auto discard = [&] {
        unlink(g_tempPath);
        g_tempPath[0] = 0;
    };
    SndFile out(sf_open_fd(fd, SFM_WRITE, &outInfo, SF_TRUE));
    if (!out) {
        const std::string why = sf_strerror(nullptr);
        close(fd);
        discard();
        return Fail("cannot write '" + outPath + "': " + why);
    }
    // Samples beyond full scale are clipped rather than wrapped in integer encodings.
    sf_command(out.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    if (!Stretch(in.get(), info, out.get(), options, outPath)) {
        out.reset();
        discard();
        return 1;
    }
    if (sf_close(out.release()) != 0) {
        discard();
        return Fail("cannot write '" + outPath + "'");
    }
    if (rename(g_tempPath, outPath.c_str()) != 0) {
        const int e = errno;
        discard();
        return Fail("cannot write '" + outPath + "': " + std::strerror(e));
    }
    g_tempPath[0] = 0;
    return 0;
}

void AddStretchCommand(CLI::App& app) {
    auto o = std::make_shared<StretchOptions>();
    auto method = std::make_shared<std::string>("wsola");
    CLI::App* cmd =
        kelptool::AddCommand(app, "stretch", "Make a sound file longer or shorter at kept pitch.",
                             [o, method](const CLI::App&) {
                                 StretchOptions run = *o;
                                 run.method = *method == "vocoder" ? 1 : 0;
                                 return RunStretch(run);
                             });
    kelptool::Describe(*cmd,
                       "Stretches IN in time by --ratio without changing its pitch and writes\n"
                       "OUT as WAV in IN's encoding, rate and channels. IN is only read; OUT\n"
                       "is written whole under a temporary name, then renamed.");
    cmd->add_option("IN", o->in, "the sound file: anything libsndfile reads")
        ->required()
        ->type_name("FILE");
    cmd->add_option("OUT", o->out, "the WAV file to write")->required()->type_name("FILE");
    cmd->add_option("--ratio", o->ratio,
                    "output length over input length: 1.25 makes it a quarter longer, 0.5\n"
                    "half as long; wsola takes 0.375 to 4, vocoder 0.25 to 2")
        ->required()
        ->type_name("R");
    cmd->add_option("--method", *method,
                    "wsola (overlap-add of matching waveform pieces: fast, best for speech\n"
                    "and music with beats) or vocoder (phase vocoder: smoother for steady\n"
                    "tones); default wsola")
        ->type_name("NAME")
        ->check(kelptool::OneOf({"wsola", "vocoder"}));
    cmd->add_option("--quality", o->quality, "0 (fastest), 1 or 2 (best); default 0")
        ->type_name("Q")
        ->check(kelptool::WholeNumber(0, 2));
}
