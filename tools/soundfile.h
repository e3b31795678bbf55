// What the tool's sound commands share: a libsndfile handle that closes itself, and the
// test that keeps a command from writing over its own input.
#pragma once

#include <sndfile.h>
#include <sys/stat.h>

#include <memory>
#include <string>

namespace kelptool {

struct SndFileCloser {
    void operator()(SNDFILE* f) const { sf_close(f); }
};
using SndFile = std::unique_ptr<SNDFILE, SndFileCloser>;

// True when both names lead to one file (links and other spellings included).
inline bool SameFile(const std::string& a, const std::string& b) {
    struct stat sa, sb;
    if (stat(a.c_str(), &sa) != 0 || stat(b.c_str(), &sb) != 0) return false;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

} // namespace kelptool
