// kelp resample IN OUT --rate HZ [--fixed]: converts a sound file to another rate and
// writes 16-bit PCM WAV. Any pair of rates goes through the streaming sample-rate
// converter, all channels together; with --fixed the standard pairs go through the
// fixed-ratio converter instead, one converter per channel (the rises from 11025 and
// 22050 Hz come out one output in 1764 or 1920 short).
//
// The input is only ever opened for reading. The output is written under a temporary
// name in its own directory and renamed over OUT only when it is complete, so a failure
// or an interruption never leaves a half-written OUT behind.
#include <kelp/samplerateconverter.h>
#include <kelp/samrate.h>

#include <sndfile.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "progress.h"
#include "soundfile.h"

namespace {

using kelp::CSamRateCon;

constexpr sf_count_t kBlockFrames = 4096;

// The highest rate the tool writes: the one limit of --rate, its help and its messages.
constexpr int kMaxRate = 1000000;

void Fail(const std::string& message) {
    std::fprintf(stderr, "kelp resample: %s\n", message.c_str());
}

// The temporary output, removed if the program is interrupted before the rename.
char g_tempPath[4096];

extern "C" void OnSignal(int sig) {
    if (g_tempPath[0]) unlink(g_tempPath);
    signal(sig, SIG_DFL);
    raise(sig);
}

void CatchSignals(void (*handler)(int)) {
    signal(SIGINT, handler);
    signal(SIGTERM, handler);
    signal(SIGHUP, handler);
}

// The modes the tool serves. Above a fall of 2 the converter steps by the fraction of the
// ratio only and would play the file slower and lower: those are refused. The rises from
// 11025 and 22050 Hz drop one output per 40 ms pattern (slightly short and sharp); they
// are served, and the help of --fixed says so. The others keep time and pitch exactly.
bool Served(CSamRateCon::MODE mode) {
    return mode != CSamRateCon::MODE_NONE && mode != CSamRateCon::MODE_48000_22050 &&
           mode != CSamRateCon::MODE_48000_11025 && mode != CSamRateCon::MODE_44100_11025;
}

using kelptool::SameFile;
using kelptool::SndFile;

// A float sample of full scale 1.0 to 16 bits: the inverse of reading 16 bits as x / 32768,
// so that samples that were 16-bit come back unchanged.
short ToPcm16(float x) {
    const float v = x * 32768.0f;
    if (!(v == v)) return 0;
    if (v >= 32767.0f) return 32767;
    if (v <= -32768.0f) return -32768;
    return short(std::lrint(v));
}

// Converts the frames of `in` into `out`; false with a message on a read or write error.
bool Convert(SNDFILE* in, const SF_INFO& info, SNDFILE* out, CSamRateCon::MODE mode,
             const std::string& inPath, const std::string& outPath) {
    const int channels = info.channels;
    std::vector<std::unique_ptr<CSamRateCon>> conv;
    if (mode != CSamRateCon::MODE_NONE) {
        for (int c = 0; c < channels; ++c) {
            conv.emplace_back(new CSamRateCon(mode));
            if (conv.back()->GetLastError() != CSamRateCon::SRC_OK) {
                Fail("out of memory");
                return false;
            }
        }
    }
    const uint32_t room =
        conv.empty() ? uint32_t(kBlockFrames) : conv[0]->GetMaxDestSize(kBlockFrames);
    // Read as float, which libsndfile scales to full scale 1.0 for every encoding, and
    // made 16-bit here: reading 16-bit samples directly would not scale float files.
    std::vector<float> block(size_t(kBlockFrames) * channels);
    std::vector<short> src(size_t(kBlockFrames) * channels);
    std::vector<short> dst(size_t(room) * channels);
    std::vector<short> lastFrame(channels, 0);
    kelptool::Progress progress("resampling", info.frames);
    sf_count_t done = 0;

    // One block through every channel's converter. All converters of one mode move in
    // step, so each channel gives the same number of outputs.
    auto run = [&](const short* frames, sf_count_t count) -> bool {
        const short* data = frames;
        sf_count_t outFrames = count;
        if (!conv.empty()) {
            uint32_t produced = 0;
            for (int c = 0; c < channels; ++c) {
                const uint32_t o = conv[c]->Convert(frames + c, dst.data() + c, uint32_t(count), 0,
                                                    uint32_t(channels));
                if (c > 0 && o != produced) {
                    Fail("internal error: channels out of step");
                    return false;
                }
                produced = o;
            }
            data = dst.data();
            outFrames = produced;
        }
        if (outFrames > 0 && sf_writef_short(out, data, outFrames) != outFrames) {
            Fail("cannot write '" + outPath + "': " + sf_strerror(out));
            return false;
        }
        return true;
    };

    for (;;) {
        const sf_count_t got = sf_readf_float(in, block.data(), kBlockFrames);
        if (got <= 0) break;
        for (size_t i = 0; i < size_t(got) * channels; ++i)
            src[i] = ToPcm16(block[i]);
        std::copy(src.begin() + (got - 1) * channels, src.begin() + got * channels,
                  lastFrame.begin());
        if (!run(src.data(), got)) return false;
        done += got;
        progress.Update(done);
    }
    if (sf_error(in) != SF_ERR_NO_ERROR) {
        progress.Finish();
        Fail("cannot read '" + inPath + "': " + sf_strerror(in));
        return false;
    }
    // The outputs on the last frame wait for a frame that never comes: give them one,
    // a copy of the last.
    if (done > 0 && !conv.empty() && !run(lastFrame.data(), 1)) return false;
    progress.Finish();
    return true;
}

// ---- What a WAV file's header claims

uint32_t Le(const unsigned char* p, int bytes) {
    uint32_t v = 0;
    for (int i = bytes - 1; i >= 0; --i)
        v = v << 8 | p[i];
    return v;
}

// The frames that the data chunk of a RIFF WAVE file claims, by its size field and the
// block size of its format (ADPCM blocks hold several frames); -1 if the file is not
// such a file or the claim cannot be worked out. libsndfile reads only what the file
// holds, whatever the header says.
int64_t ClaimedFrames(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    unsigned char head[12];
    if (!f.read(reinterpret_cast<char*>(head), 12) || std::memcmp(head, "RIFF", 4) != 0 ||
        std::memcmp(head + 8, "WAVE", 4) != 0)
        return -1;
    uint32_t blockAlign = 0, framesPerBlock = 1;
    for (int chunks = 0; chunks < 1000; ++chunks) {
        unsigned char chunk[8];
        if (!f.read(reinterpret_cast<char*>(chunk), 8)) return -1;
        const uint32_t size = Le(chunk + 4, 4);
        if (std::memcmp(chunk, "fmt ", 4) == 0) {
            unsigned char fmt[20] = {};
            if (size < 16 || !f.read(reinterpret_cast<char*>(fmt), std::min<uint32_t>(size, 20)))
                return -1;
            const uint32_t tag = Le(fmt, 2);
            blockAlign = Le(fmt + 12, 2);
            // IMA and Microsoft ADPCM: the frames of a block follow the extension size.
            if ((tag == 0x11 || tag == 0x02) && size >= 20) framesPerBlock = Le(fmt + 18, 2);
            f.seekg(std::streamoff(size + (size & 1)) - std::min<uint32_t>(size, 20),
                    std::ios::cur);
        } else if (std::memcmp(chunk, "data", 4) == 0) {
            if (blockAlign == 0 || framesPerBlock == 0) return -1;
            return int64_t(size / blockAlign) * framesPerBlock;
        } else {
            f.seekg(std::streamoff(size) + (size & 1), std::ios::cur);
        }
        if (!f) return -1;
    }
    return -1;
}

// ---- The streaming path

constexpr uint32_t kMaxStreamChannels = 32; // a selection mask has 32 bits

// An empty input, for asking the streaming converter whether it takes a pair of rates.
class NoInput : public kelp::ISampleRateConverter::IReadData {
public:
    bool ReadData(void**, uint32_t*, uintptr_t*) override { return false; }
    void FreeData(void*, uintptr_t) override {}
};

// Whether the streaming converter takes `from` to `to`: asked of the converter itself,
// so that the tool's limits are the library's.
bool StreamServed(int64_t from, int64_t to) {
    if (from < 1 || to < 1 || from > INT32_MAX || to > INT32_MAX) return false;
    const kelp::CKXWAVFormat format(int(from), 32, 1, 1, KXWAVE_FORMAT_IEEE_FLOAT);
    NoInput none;
    void* object = nullptr;
    if (!kelp::ISampleRateConverter::Create(format, int(to), &none, &object)) return false;
    static_cast<kelp::ISampleRateConverter*>(object)->Release();
    return true;
}

// The output rates served from `from` within 1 to kMaxRate, as text for a message. The
// served rates are one range around `from` (which itself is served): its ends are found
// by halving.
std::string StreamRange(int64_t from) {
    // Above the limit, the limit itself is the highest rate that may be served.
    if (from > kMaxRate && !StreamServed(from, kMaxRate))
        return "no rate up to " + std::to_string(kMaxRate) + " Hz";
    int64_t top = std::min<int64_t>(from, kMaxRate); // served
    int64_t lo = 0, hi = top;                        // lo not served (or 0), hi served
    while (hi - lo > 1) {
        const int64_t mid = lo + (hi - lo) / 2;
        (StreamServed(from, mid) ? hi : lo) = mid;
    }
    const int64_t low = hi;
    lo = top;
    hi = int64_t(kMaxRate) + 1; // lo served, hi not (or past the limit)
    while (hi - lo > 1) {
        const int64_t mid = lo + (hi - lo) / 2;
        (StreamServed(from, mid) ? lo : hi) = mid;
    }
    return std::to_string(low) + " to " + std::to_string(lo) + " Hz";
}

std::string RateHelp() {
    return "the output rate in hertz, 1 to " + std::to_string(kMaxRate) +
           ". The streaming converter takes\n"
           "rates from a little over a quarter of the input rate up to 100 times it;\n"
           "a pair it does not take is refused with the range it takes from that input.\n"
           "--fixed takes only the pairs listed there";
}

std::string FixedHelp() {
    return "use the fixed-ratio converter, one per channel, for these pairs\n"
           "(input -> output rate):\n"
           "  32000, 44100 -> 48000; 32000, 48000 -> 44100; 44100, 48000 -> 32000;\n"
           "  44100 -> 22050: exact length and pitch\n"
           "  11025, 22050 -> 44100 and -> 48000: one output of every 40 ms pattern\n"
           "  is dropped (1 of 1764 at 44100, 1 of 1920 at 48000), so the sound is\n"
           "  0.057 % or 0.052 % shorter and sharper, with a small jump every 40 ms\n"
           "A file already at the rate is copied";
}
// The input file as the converter's reader: blocks of float frames, one stream. One
// buffer serves every block, since each comes back before the next is asked for.
class FileReader : public kelp::ISampleRateConverter::IReadData {
public:
    FileReader(SNDFILE* file, int channels)
        : m_file(file), m_channels(channels), m_block(size_t(kBlockFrames) * channels) {}

    bool ReadData(void** data, uint32_t* bytes, uintptr_t* cookie) override {
        if (m_ended) return false;
        const sf_count_t got = sf_readf_float(m_file, m_block.data(), kBlockFrames);
        if (got <= 0) {
            m_ended = true;
            m_failed = sf_error(m_file) != SF_ERR_NO_ERROR;
            return false;
        }
        m_frames += got;
        *data = m_block.data();
        *bytes = uint32_t(size_t(got) * size_t(m_channels) * sizeof(float));
        *cookie = 0;
        return true;
    }
    void FreeData(void*, uintptr_t) override {}

    bool ended() const { return m_ended; }
    bool failed() const { return m_failed; }
    sf_count_t frames() const { return m_frames; }

private:
    SNDFILE* m_file;
    int m_channels;
    std::vector<float> m_block;
    sf_count_t m_frames = 0;
    bool m_ended = false;
    bool m_failed = false;
};

struct Releaser {
    void operator()(kelp::ISampleRateConverter* c) const { c->Release(); }
};

// Converts all frames of `in` to `rate` through the streaming converter into `out`;
// false with a message on a read or write error.
bool ConvertStreaming(SNDFILE* in, const SF_INFO& info, SNDFILE* out, int rate,
                      const std::string& inPath, const std::string& outPath) {
    const int channels = info.channels;
    const kelp::CKXWAVFormat format(info.samplerate, 32, channels, 1, KXWAVE_FORMAT_IEEE_FLOAT);
    FileReader reader(in, channels);
    void* object = nullptr;
    if (!kelp::ISampleRateConverter::Create(format, rate, &reader, &object)) {
        Fail("out of memory");
        return false;
    }
    std::unique_ptr<kelp::ISampleRateConverter, Releaser> conv(
        static_cast<kelp::ISampleRateConverter*>(object));

    // The output is as long as the input at the new rate. The file's frame count says how
    // long that is; once the input has ended, what was really read says it.
    auto outFrames = [&](sf_count_t inFrames) {
        return sf_count_t(std::llround(double(inFrames) * rate / info.samplerate));
    };
    sf_count_t total = outFrames(info.frames);
    std::vector<std::vector<float>> planes(channels, std::vector<float>(kBlockFrames));
    std::vector<short> frames(size_t(kBlockFrames) * channels);
    kelptool::Progress progress("resampling", total);
    for (sf_count_t done = 0; done < total;) {
        const uint32_t n = uint32_t(std::min<sf_count_t>(kBlockFrames, total - done));
        for (int c = 0; c < channels; ++c)
            if (!conv->ReadSamples(planes[c].data(), n, uint32_t(c)))
                std::fill(planes[c].begin(), planes[c].begin() + n, 0.0f);
        if (reader.ended()) total = std::min(total, outFrames(reader.frames()));
        const sf_count_t keep = std::min<sf_count_t>(n, total - done);
        for (sf_count_t i = 0; i < keep; ++i)
            for (int c = 0; c < channels; ++c)
                frames[size_t(i) * channels + c] = ToPcm16(planes[c][size_t(i)]);
        if (keep > 0 && sf_writef_short(out, frames.data(), keep) != keep) {
            progress.Finish();
            Fail("cannot write '" + outPath + "': " + sf_strerror(out));
            return false;
        }
        done += keep;
        progress.Update(done);
    }
    progress.Finish();
    if (reader.failed()) {
        Fail("cannot read '" + inPath + "': " + sf_strerror(in));
        return false;
    }
    return true;
}

struct ResampleArgs {
    std::string in, out;
    int rate = 0;
    bool fixed = false;
};

int RunResample(const ResampleArgs& args) {
    const std::string& inPath = args.in;
    const std::string& outPath = args.out;
    const int rate = args.rate;
    const bool fixed = args.fixed;

    SF_INFO info;
    std::memset(&info, 0, sizeof info);
    SndFile in(sf_open(inPath.c_str(), SFM_READ, &info));
    if (!in) {
        Fail("cannot read '" + inPath + "': " + sf_strerror(nullptr));
        return 1;
    }
    // A file cut short: its frames are converted, and the shortfall is told.
    const int64_t claimed =
        (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV ? ClaimedFrames(inPath) : -1;
    if (claimed > info.frames)
        std::fprintf(stderr,
                     "kelp resample: warning: '%s': the header says %lld frames, the file "
                     "holds %lld; converting those\n",
                     inPath.c_str(), static_cast<long long>(claimed),
                     static_cast<long long>(info.frames));
    CSamRateCon::MODE mode = CSamRateCon::MODE_NONE;
    if (!fixed) {
        if (info.channels < 1 || uint32_t(info.channels) > kMaxStreamChannels) {
            Fail("cannot convert a file of " + std::to_string(info.channels) +
                 " channels (32 at most)");
            return 1;
        }
        if (!StreamServed(info.samplerate, rate)) {
            Fail("cannot convert " + std::to_string(info.samplerate) + " Hz to " +
                 std::to_string(rate) + " Hz (from " + std::to_string(info.samplerate) +
                 " Hz the streaming converter serves " + StreamRange(info.samplerate) + ")");
            return 1;
        }
    } else if (info.samplerate != rate) {
        mode = CSamRateCon::FindMode(info.samplerate, rate);
        if (!Served(mode)) {
            Fail("cannot convert " + std::to_string(info.samplerate) + " Hz to " +
                 std::to_string(rate) + " Hz (kelp resample --help lists the rate pairs)");
            return 1;
        }
    }
    if (SameFile(inPath, outPath)) {
        Fail("the output '" + outPath + "' is the input file");
        return 1;
    }

    // A temporary file beside the output, renamed over it once complete.
    const size_t slash = outPath.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : outPath.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? outPath : outPath.substr(slash + 1);
    const std::string temp = dir + (slash == std::string::npos ? "/." : ".") + base + ".XXXXXX";
    if (temp.size() >= sizeof g_tempPath) {
        Fail("cannot write '" + outPath + "': name too long");
        return 1;
    }
    std::memcpy(g_tempPath, temp.c_str(), temp.size() + 1);
    CatchSignals(OnSignal);
    const int fd = mkstemp(g_tempPath);
    if (fd < 0) {
        const int e = errno;
        g_tempPath[0] = 0;
        Fail("cannot write '" + outPath + "': " + std::strerror(e));
        return 1;
    }
    // The permissions a newly created file would have had.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);

    auto discard = [&]() {
        unlink(g_tempPath);
        g_tempPath[0] = 0;
    };
    SF_INFO outInfo;
    std::memset(&outInfo, 0, sizeof outInfo);
    outInfo.samplerate = rate;
    outInfo.channels = info.channels;
    outInfo.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SndFile out(sf_open_fd(fd, SFM_WRITE, &outInfo, SF_TRUE));
    if (!out) {
        Fail("cannot write '" + outPath + "': " + sf_strerror(nullptr));
        close(fd);
        discard();
        return 1;
    }
    const bool converted = fixed
                               ? Convert(in.get(), info, out.get(), mode, inPath, outPath)
                               : ConvertStreaming(in.get(), info, out.get(), rate, inPath, outPath);
    if (!converted) {
        out.reset();
        discard();
        return 1;
    }
    if (sf_close(out.release()) != 0) {
        Fail("cannot write '" + outPath + "'");
        discard();
        return 1;
    }
    if (rename(g_tempPath, outPath.c_str()) != 0) {
        const int e = errno;
        discard();
        Fail("cannot write '" + outPath + "': " + std::strerror(e));
        return 1;
    }
    g_tempPath[0] = 0;
    return 0;
}

} // namespace

void AddResampleCommand(CLI::App& app) {
    auto args = std::make_shared<ResampleArgs>();
    CLI::App* cmd =
        kelptool::AddCommand(app, "resample", "Convert a sound file to another sample rate.",
                             [args](const CLI::App&) { return RunResample(*args); });
    kelptool::Describe(*cmd,
                       "Writes OUT as 16-bit PCM WAV at --rate. Without --fixed the streaming\n"
                       "converter takes all channels together; with --fixed the fixed-ratio\n"
                       "converter takes each channel on its own.");
    cmd->add_option("IN", args->in, "the sound file: anything libsndfile reads, up to 32 channels")
        ->required()
        ->type_name("FILE");
    cmd->add_option("OUT", args->out,
                    "the WAV file to write; written whole under a temporary name, then renamed")
        ->required()
        ->type_name("FILE");
    cmd->add_option("--rate", args->rate, RateHelp())
        ->required()
        ->type_name("HZ")
        ->check(kelptool::WholeNumber(1, kMaxRate));
    cmd->add_flag("--fixed", args->fixed, FixedHelp());
}
