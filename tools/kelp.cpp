// The kelp command-line tool.
#include <kelp/kelp.h>

#include <cstdio>
#include <cstring>

#include "commands.h"

namespace {
struct Command {
    const char* name;
    int (*run)(int argc, char** argv);
    const char* help;
};

int CmdVersion(int, char**) {
    std::printf("kelp %s\n", kelpVersionString());
    return 0;
}

const Command kCommands[] = {
    {"version", CmdVersion, "print the library's version"},
    {"demo", CmdDemo, "a generated image through the conversion manager [--out DIR]"},
    {"resample", CmdResample, "convert a sound file to another sample rate"},
    {"config", CmdConfig, "read and change settings (get, set, list, delete)"},
    {"codecs", CmdCodecs, "list the codec plug-ins and what they do"},
    {"codec-roundtrip", CmdCodecRoundtrip, "compress and decompress a picture, print the PSNR"},
    {"info", CmdInfo, "what the library sees in an image file"},
    {"convert", CmdConvert, "convert an image file (depth, alpha, size, quality)"},
};

void Usage() {
    std::fprintf(stderr, "usage: kelp COMMAND [ARGS]\n\ncommands:\n");
    for (const auto& c : kCommands) std::fprintf(stderr, "  %-16s %s\n", c.name, c.help);
}
} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        Usage();
        return 2;
    }
    for (const auto& c : kCommands)
        if (std::strcmp(argv[1], c.name) == 0) return c.run(argc - 1, argv + 1);
    std::fprintf(stderr, "kelp: unknown command '%s'\n", argv[1]);
    Usage();
    return 2;
}
