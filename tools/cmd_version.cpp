// kelp version: the library's version.
#include <kelp/kelp.h>

#include <cstdio>

#include "cli.h"
#include "commands.h"

void AddVersionCommand(CLI::App& app) {
    kelptool::AddCommand(app, "version", "Print the library's version.", [](const CLI::App&) {
        std::printf("kelp %s\n", kelpVersionString());
        return 0;
    });
}
