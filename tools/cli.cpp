// The kelp tool's command registration, argument checks and error lines.
#include "cli.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace kelptool {

namespace {

// The exit code of the command that ran; a command that did not run leaves 0.
int g_exitCode = kDone;

const char* const kExitCodes = "Exit codes: 0 done, 1 failed, 2 the command line was wrong.";

// Text with its first letter in lower case and line ends turned to spaces, so that every
// error reads as one line of the same style.
std::string OneLine(std::string text) {
    for (char& c : text)
        if (c == '\n' || c == '\r') c = ' ';
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    if (text.size() > 1 && text[0] >= 'A' && text[0] <= 'Z' && !(text[1] >= 'A' && text[1] <= 'Z'))
        text[0] = char(text[0] - 'A' + 'a');
    return text;
}

std::string Names(const CLI::App& app) {
    std::string names;
    for (const CLI::App* sub : app.get_subcommands({}))
        names += (names.empty() ? "" : ", ") + sub->get_name();
    return names;
}

// The deepest command that the parser entered before it stopped.
const CLI::App* Deepest(const CLI::App& app) {
    const CLI::App* at = &app;
    for (;;) {
        const auto chosen = at->get_subcommands();
        if (chosen.empty()) return at;
        at = chosen.back();
    }
}

// What the parser said, in the tool's words where the parser's are unclear.
std::string Explain(const CLI::App& where, const CLI::ParseError& e) {
    const std::string what = e.what();
    const std::string name = e.get_name();
    if (name == "RequiredError" && what == "A subcommand is required")
        return "a command is needed: " + Names(where);
    if (name == "ArgumentMismatch") {
        // "--codec: 1 required TEXT missing"
        const size_t colon = what.find(": ");
        if (colon != std::string::npos && what.find("missing") != std::string::npos)
            return what.substr(0, colon) + " needs a value";
        // "FILES: At Most 2 required but received 3"
        unsigned most = 0, got = 0;
        if (colon != std::string::npos &&
            std::sscanf(what.c_str() + colon, ": At Most %u required but received %u", &most,
                        &got) == 2)
            return what.substr(0, colon) + ": " + std::to_string(got) + " given, " +
                   std::to_string(most) + " at most";
    }
    // An unknown option is the first mistake to tell, whatever the parser found after it.
    for (const std::string& rest : where.remaining())
        if (rest.size() > 1 && rest[0] == '-') return "unexpected " + rest;
    if (what.rfind("The following argument", 0) == 0) {
        const size_t colon = what.find(": ");
        if (colon != std::string::npos) return "unexpected " + what.substr(colon + 2);
    }
    return OneLine(what);
}

bool ParseWhole(const std::string& text, int64_t* value) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) return false;
    char* end = nullptr;
    errno = 0;
    const long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno || *end) return false;
    *value = v;
    return true;
}

} // namespace

CLI::App* AddCommand(CLI::App& parent, const std::string& name, const std::string& description,
                     RunCommand run) {
    CLI::App* command = parent.add_subcommand(name, description);
    command->callback([command, run = std::move(run)] { g_exitCode = run(*command); });
    command->footer(kExitCodes);
    return command;
}

CLI::App* AddGroup(CLI::App& parent, const std::string& name, const std::string& description) {
    CLI::App* group = parent.add_subcommand(name, description);
    group->require_subcommand(1);
    group->footer(std::string("kelp ") + name + " ACTION --help describes an action.\n" +
                  kExitCodes);
    return group;
}

void Describe(CLI::App& command, const std::string& text) {
    command.footer(text + "\n\n" + kExitCodes);
}

std::string CommandPath(const CLI::App& command) {
    std::string path = command.get_name();
    for (const CLI::App* p = command.get_parent(); p; p = p->get_parent())
        path = p->get_name() + " " + path;
    return path;
}

int Error(const CLI::App& command, const std::string& message, int code) {
    std::fprintf(stderr, "%s: %s\n", CommandPath(command).c_str(), message.c_str());
    return code;
}

CLI::Validator WholeNumber(int64_t low, int64_t high) {
    return CLI::Validator(
        [low, high](std::string& text) -> std::string {
            int64_t v = 0;
            const std::string range = std::to_string(low) + ".." + std::to_string(high);
            if (!ParseWhole(text, &v)) return text + " is not a whole number in " + range;
            if (v < low || v > high) return text + " not in " + range;
            return std::string();
        },
        "");
}

CLI::Validator OneOf(std::initializer_list<const char*> words) {
    std::vector<std::string> list(words.begin(), words.end());
    return CLI::Validator(
        [list](std::string& text) -> std::string {
            std::string all;
            for (const std::string& w : list) {
                if (w == text) return std::string();
                all += (all.empty() ? "" : ", ") + w;
            }
            return text + " is not one of " + all;
        },
        "");
}

bool ParseSize(const std::string& text, uint32_t high, uint32_t* width, uint32_t* height) {
    const size_t x = text.find_first_of("xX");
    if (x == std::string::npos) return false;
    int64_t w = 0, h = 0;
    if (!ParseWhole(text.substr(0, x), &w) || !ParseWhole(text.substr(x + 1), &h)) return false;
    if (w < 1 || h < 1 || w > high || h > high) return false;
    *width = uint32_t(w);
    *height = uint32_t(h);
    return true;
}

CLI::Validator PictureSize(uint32_t high) {
    return CLI::Validator(
        [high](std::string& text) -> std::string {
            uint32_t w, h;
            if (ParseSize(text, high, &w, &h)) return std::string();
            return text + " is not a size WxH with sides 1.." + std::to_string(high);
        },
        "");
}

int Run(CLI::App& app, int argc, char** argv) {
    // A word where a command belongs that names none: said here, as the parser would
    // only say that a command is needed.
    CLI::App* at = &app;
    for (int i = 1; i < argc; ++i) {
        if (at->get_subcommands({}).empty()) break;
        const std::string word = argv[i];
        if (word == "-h" || word == "--help") break;
        if (word.size() > 1 && word[0] == '-') return Error(*at, "unexpected " + word, kUsage);
        try {
            at = at->get_subcommand(word);
        } catch (const CLI::OptionNotFound&) {
            return Error(*at, "unknown command '" + word + "' (" + Names(*at) + ")", kUsage);
        }
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == int(CLI::ExitCodes::Success)) return app.exit(e); // help
        const CLI::App* where = Deepest(app);
        return Error(*where, Explain(*where, e), kUsage);
    }
    return g_exitCode;
}

} // namespace kelptool
