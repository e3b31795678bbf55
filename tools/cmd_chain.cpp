// kelp chain FROM TO [--trace] [--fit fast|good] [--keep-aspect] [--allow-fields] ...
// The chain of stages the conversion manager chooses between two formats: each stage,
// the format it proposes, the Q it adds, and the whole Q; with --trace the search itself
// as the library's trace tells it, one line a step, indented by depth.
//
// The manager keeps its chain to itself: the command reads it from the trace of one
// Query. While it does, the library's trace goes to this command instead of a bound sink.
#include <kelp/kelp.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "chain_format.h"
#include "cli.h"
#include "commands.h"

namespace {

struct ChainArgs {
    std::string from, to, fit;
    bool trace = false, keepAspect = false, allowFields = false, swapFields = false;
    bool keepRect = false, ratioFast = false;
};

// One step of the search: the Q before and after a stage, and the two formats in the
// trace's pair form.
struct Step {
    long qFrom = 0, qTo = 0;
    std::string pair;
};

// The trace of one Query of the manager, as text: the library's debug stream, caught
// on standard error.
// The manager lives within the catch, so that a sink's own records of it go nowhere.
std::string TraceOfQuery(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                         int32_t* quality, KXRESULT* result) {
    kelp::dbgEnd(); // the library's own debug stream from here on
    const bool wasOn = std::getenv("KELP_DEBUG_OUTPUT") != nullptr;
    if (!wasOn) setenv("KELP_DEBUG_OUTPUT", "1", 1);
    std::fflush(stderr);
    FILE* caught = std::tmpfile();
    const int saved = dup(2);
    if (caught && saved >= 0) dup2(fileno(caught), 2);
    kelp::IConversionManager* cm = KXCONVCreateConversionManager();
    if (cm) {
        cm->Init(KXCONV_VERSION, 0);
        *result = cm->Query(in, out, flags, quality);
        cm->Release();
    }
    std::fflush(stderr);
    if (caught && saved >= 0) dup2(saved, 2);
    if (saved >= 0) close(saved);
    if (!wasOn) unsetenv("KELP_DEBUG_OUTPUT");
    kelp::dbgInit();
    std::string text;
    if (caught) {
        std::rewind(caught);
        char buf[4096];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, caught)) > 0)
            text.append(buf, n);
        std::fclose(caught);
    }
    return text;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::string cur;
    for (char c : text) {
        if (c == '\n') {
            lines.push_back(cur);
            cur.clear();
        } else if (c != '\r') {
            cur += c;
        }
    }
    if (!cur.empty()) lines.push_back(cur);
    return lines;
}

// The depth of a search line: 4 spaces a level, one space at level 0.
size_t Depth(const std::string& line) {
    const size_t spaces = line.find_first_not_of(' ');
    return spaces == std::string::npos || spaces < 4 ? 0 : spaces / 4;
}

// The fields of one side of a pair: size, format, planes, bits, width, height, ratio X,
// ratio Y, flag letters.
std::vector<std::string> Side(const std::string& pair, bool second) {
    const size_t arrow = pair.find(")->(");
    if (arrow == std::string::npos) return {};
    std::string s = second ? pair.substr(arrow + 4) : pair.substr(1, arrow - 1);
    if (second && !s.empty() && s.back() == ')') s.pop_back();
    std::vector<std::string> f;
    size_t start = 0;
    for (;;) {
        const size_t at = s.find(',', start);
        f.push_back(s.substr(start, at == std::string::npos ? std::string::npos : at - start));
        if (at == std::string::npos) break;
        start = at + 1;
    }
    return f.size() == 9 ? f : std::vector<std::string>{};
}

bool Has(const std::string& letters, char c) {
    return letters.find(c) != std::string::npos;
}

// The stage of a step, from the one aspect that changed between its two formats (the
// search walks only single-aspect changes). Where the trace shows no difference the
// stage changed a field that the pair form leaves out: a YUV colour space, or the
// rectangle; the fields' own converters cost 5 where a scaler costs its sizes.
std::string StageOf(const Step& s) {
    const std::vector<std::string> a = Side(s.pair, false), b = Side(s.pair, true);
    if (a.empty() || b.empty()) return "?";
    const bool to32 = b[3] == "32";
    const long cost = s.qTo - s.qFrom;
    if (a[1] != b[1]) {
        if (b[1] == "@YUV") return "RGB->YUV4444";
        return to32 ? "YUV444->RGB32" : "YUV444->RGB24";
    }
    if (a[3] != b[3]) return to32 ? "nBit to 32bit" : "nBit to 24bit";
    if (a[4] != b[4] || a[5] != b[5] || a[6] != b[6] || a[7] != b[7])
        return to32 ? "Scale32" : "Scale24";
    if (Has(a[8], 'O') != Has(b[8], 'O') || Has(a[8], 'P') != Has(b[8], 'P'))
        return "AlphaConverter";
    if (Has(a[8], 'F') != Has(b[8], 'F') || Has(a[8], 'C') != Has(b[8], 'C')) {
        if (cost == 5) return to32 ? "Deinterlacer32" : "Deinterlacer24";
        return to32 ? "Scale32" : "Scale24";
    }
    if (b[1] == "@YUV" && cost != 5) return "CYUVConverterYU";
    return "RGBCrop";
}

int RunChain(const CLI::App& command, const ChainArgs& args) {
    KXBMINFOHEADERYUV in, out;
    std::string why;
    if (!chaintool::ParseFormat(args.from, &in, &why))
        return kelptool::UsageError(command, "FROM: " + why);
    if (!chaintool::ParseFormat(args.to, &out, &why))
        return kelptool::UsageError(command, "TO: " + why);
    uint32_t flags = 0;
    if (args.fit == "fast") flags |= KXCONV_FIT_FAST;
    if (args.fit == "good") flags |= KXCONV_FIT_GOOD;
    if (args.keepAspect) flags |= KXCONV_KEEP_ASPECT;
    if (args.allowFields) flags |= KXCONV_ALLOW_FIELDS;
    if (args.swapFields) flags |= KXCONV_SWAP_FIELDS;
    if (args.keepRect) flags |= KXCONV_KEEP_RECT;
    if (args.ratioFast) flags |= KXCONV_RATIO_FAST;

    int32_t quality = 0;
    KXRESULT result = KXE_INVALID;
    const std::string text = TraceOfQuery(&in.bmi, &out.bmi, &flags, &quality, &result);

    // The search lines are the ones indented; the best chain is the path to the last
    // chain that became active.
    std::vector<std::string> walk;
    std::vector<Step> path, best;
    bool header = false;
    for (const std::string& line : Lines(text)) {
        // The search's first line, and the pair of formats on the line after it.
        if (line.rfind("CConversionManager::CreateConverterList:", 0) == 0 ||
            (header && !line.empty() && line[0] == '(')) {
            header = !header;
            walk.push_back(line);
            continue;
        }
        header = false;
        if (line.empty() || line[0] != ' ') continue;
        walk.push_back(line);
        const size_t depth = Depth(line);
        const std::string body = line.substr(line.find_first_not_of(' '));
        long a = 0, b = 0;
        int used = 0;
        if (std::sscanf(body.c_str(), "Q%ld -> %ld%n", &a, &b, &used) == 2) {
            path.resize(depth);
            path.push_back(Step{a, b, body.substr(size_t(used))});
        } else if (body.rfind("^- OK at", 0) == 0 && body.find("NEW ACTIVE") != std::string::npos) {
            best.assign(path.begin(), path.begin() + long(std::min(path.size(), depth + 1)));
        }
    }

    std::printf("from: %s\n", chaintool::Describe(&in.bmi).c_str());
    std::printf("to:   %s\n", chaintool::Describe(&out.bmi).c_str());
    if (args.trace) {
        std::printf("the search, as the trace tells it:\n");
        for (const std::string& l : walk)
            std::printf("  %s\n", l.c_str());
    }
    if (KX_FAILED(result))
        return kelptool::Error(command,
                               "no chain of stages goes from " + args.from + " to " + args.to);
    if (flags & KXCONV_OUT_IDENTITY) {
        std::printf("the formats are the same: nothing to convert, Q 0\n");
        return kelptool::kDone;
    }
    if (best.empty()) {
        std::printf("a chain of Q %d (the trace went elsewhere: its stages are not known)\n",
                    int(quality));
        return kelptool::kDone;
    }
    std::printf("chain of %zu stage%s, Q %d:\n", best.size(), best.size() == 1 ? "" : "s",
                int(quality));
    for (size_t i = 0; i < best.size(); ++i) {
        const Step& s = best[i];
        const std::vector<std::string> f = Side(s.pair, true);
        std::string made = "?";
        if (!f.empty()) {
            char buf[160];
            std::snprintf(buf, sizeof buf, "%s %s bits %sx%s, ratio %s/%s, flags %s",
                          f[1] == "@YUV" ? "YUV" : "RGB", f[3].c_str(), f[4].c_str(), f[5].c_str(),
                          f[6].c_str(), f[7].c_str(), f[8].empty() ? "-" : f[8].c_str());
            made = buf;
        }
        std::printf("  %zu. %-16s Q %ld -> %ld (+%ld)  %s\n", i + 1, StageOf(s).c_str(), s.qFrom,
                    s.qTo, s.qTo - s.qFrom, made.c_str());
    }
    return kelptool::kDone;
}

} // namespace

void AddChainCommand(CLI::App& app) {
    auto args = std::make_shared<ChainArgs>();
    CLI::App* cmd = kelptool::AddCommand(
        app, "chain", "The chain of stages the conversion manager chooses between two formats.",
        [args](const CLI::App& c) { return RunChain(c, *args); });
    kelptool::Describe(
        *cmd, "Prints each stage, the format it proposes on the way and the Q (cost, lower is\n"
              "better) it adds, and the whole Q. A format is KIND:WxH[,OPTION...]:\n"
              "  KIND    rgb1 rgb4 rgb8 rgb16 rgb24 rgb32, yuv24-601 yuv24-709, yuv32-601\n"
              "          yuv32-709 (also yuv444-601, yuv444-709)\n"
              "  OPTION  interlaced, chrono, straight|opaque|premultiplied (32 bits),\n"
              "          ratio=X/Y (pixel width to height), rect=L/T/R/B (active rectangle)\n"
              "e.g. kelp chain rgb32:1920x1080 yuv444-709:960x540\n"
              "The chain is read from the library's trace; --trace shows the whole search.");
    cmd->add_option("FROM", args->from, "the input format")->required()->type_name("FORMAT");
    cmd->add_option("TO", args->to, "the output format")->required()->type_name("FORMAT");
    cmd->add_flag("--trace", args->trace, "print the whole search, indented by depth");
    cmd->add_option("--fit", args->fit, "fast or good: stretch to the output's size")
        ->type_name("HOW")
        ->check(kelptool::OneOf({"fast", "good"}));
    cmd->add_flag("--keep-aspect", args->keepAspect, "keep the picture's aspect when fitting");
    cmd->add_flag("--allow-fields", args->allowFields,
                  "the output may be progressive where the input is interlaced");
    cmd->add_flag("--swap-fields", args->swapFields, "take the other field");
    cmd->add_flag("--keep-rect", args->keepRect, "keep the output's rectangle");
    cmd->add_flag("--ratio-fast", args->ratioFast, "the pixel ratio step by nearest neighbour");
}
