// What every command of the kelp tool shares: how a command is registered, how its
// arguments are checked, and the one style of error line.
//
// A command is one file with one function, `void AddXCommand(CLI::App&)`, listed in
// commands.h. It adds its subcommand through AddCommand, declares its options with the
// checks below, and returns its exit code from `run`: 0 done, 1 failed, 2 usage.
// An error is one line on standard error: "kelp COMMAND: what went wrong".
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>

namespace kelptool {

enum ExitCode { kDone = 0, kFailed = 1, kUsage = 2 };

// The subcommand `name` of `parent`; `run` is called with it when the command line
// names it, after every option was parsed and checked, and gives the exit code.
using RunCommand = std::function<int(const CLI::App& command)>;
CLI::App* AddCommand(CLI::App& parent, const std::string& name, const std::string& description,
                     RunCommand run);

// The longer description of a command, shown after its options in its --help; the
// one-line summary given to AddCommand is what `kelp --help` lists.
void Describe(CLI::App& command, const std::string& text);

// A subcommand that only groups others (kelp config get|set|...): one of them is needed.
CLI::App* AddGroup(CLI::App& parent, const std::string& name, const std::string& description);

// "kelp config set" for the subcommand set of config.
std::string CommandPath(const CLI::App& command);

// Prints "kelp COMMAND: message" on standard error and returns `code`.
int Error(const CLI::App& command, const std::string& message, int code = kFailed);
inline int UsageError(const CLI::App& command, const std::string& message) {
    return Error(command, message, kUsage);
}

// Checks of an option's text, giving "--opt: <why>" on failure.
// A whole number from `low` to `high`: "120 not in 1..100".
CLI::Validator WholeNumber(int64_t low, int64_t high);
// One of the words: "blue is not one of straight, opaque, premultiplied".
CLI::Validator OneOf(std::initializer_list<const char*> words);
// A size WxH with both sides from 1 to `high`.
CLI::Validator PictureSize(uint32_t high);
bool ParseSize(const std::string& text, uint32_t high, uint32_t* width, uint32_t* height);

// Runs the tool: parses `argv` against `app` (whose commands are added), runs the command
// named and returns the exit code. Help goes to standard output with exit 0.
int Run(CLI::App& app, int argc, char** argv);

} // namespace kelptool
