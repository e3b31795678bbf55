// The kelp command-line tool: one subcommand per file, listed in commands.h.
#include "cli.h"
#include "commands.h"

int main(int argc, char** argv) {
    CLI::App app("The kelp tool: the library's image, codec, sound and settings services "
                 "from the command line.",
                 "kelp");
    app.require_subcommand(1);
    app.get_formatter()->column_width(28);
    app.footer("kelp COMMAND --help describes a command and each of its options.\n"
               "Exit codes: 0 done, 1 failed, 2 the command line was wrong.");
    for (auto add : kCommands)
        add(app);
    return kelptool::Run(app, argc, argv);
}
