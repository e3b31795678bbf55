// The kelp tool run as a person runs it: exit code, standard output and standard error.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace kelptest {

struct ToolRun {
    int code = -1;
    std::string out, err;
};

inline std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// Runs `kelp ARGS` in `dir` (a shell command line: ARGS may quote), output to files there.
inline ToolRun RunTool(const std::string& dir, const std::string& args) {
    const std::string out = dir + "/stdout.txt", err = dir + "/stderr.txt";
    const std::string cmd =
        "cd '" + dir + "' && " + KELP_TOOL_PATH + " " + args + " >" + out + " 2>" + err;
    const int status = std::system(cmd.c_str());
    ToolRun r;
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = ReadText(out);
    r.err = ReadText(err);
    std::filesystem::remove(out);
    std::filesystem::remove(err);
    return r;
}

} // namespace kelptest
