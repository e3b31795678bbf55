// Linux: directories, and plain files read and written in large pieces.
#include "kelpos.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <new>

namespace kelp {
namespace os {

static bool EndsWithNoCase(const std::string& s, const std::string& suffix) {
    if (suffix.size() > s.size()) return false;
    for (size_t i = 0; i < suffix.size(); ++i) {
        char a = s[s.size() - suffix.size() + i], b = suffix[i];
        if (a >= 'A' && a <= 'Z') a = char(a - 'A' + 'a');
        if (b >= 'A' && b <= 'Z') b = char(b - 'A' + 'a');
        if (a != b) return false;
    }
    return true;
}

std::vector<std::wstring> ListFiles(const std::wstring& dir, const std::wstring& suffix) {
    std::vector<std::string> names;
    std::string sfx = ToUtf8(suffix);
    std::error_code ec;
    std::filesystem::directory_iterator it(ToUtf8(dir), ec), end;
    for (; !ec && it != end; it.increment(ec)) {
        std::error_code ec2;
        if (!it->is_regular_file(ec2)) continue;
        std::string name = it->path().filename().string();
        if (EndsWithNoCase(name, sfx)) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    std::vector<std::wstring> out;
    out.reserve(names.size());
    for (auto& n : names)
        out.push_back(FromUtf8(n));
    return out;
}

static std::wstring WithSlash(std::string s) {
    if (s.empty() || s.back() != '/') s += '/';
    return FromUtf8(s);
}

std::wstring TempDirectory() {
    std::string t;
    if (GetEnv("TMPDIR", &t) && !t.empty()) return WithSlash(t);
    return L"/tmp/";
}

std::wstring UserConfigDirectory() {
    std::string t;
    if (GetEnv("XDG_CONFIG_HOME", &t) && !t.empty() && t[0] == '/') return WithSlash(t);
    if (GetEnv("HOME", &t) && !t.empty()) return WithSlash(t + "/.config");
    return WithSlash("/tmp");
}

bool MakeDirectories(const std::wstring& dir) {
    std::error_code ec;
    std::filesystem::create_directories(ToUtf8(dir), ec);
    return std::filesystem::is_directory(ToUtf8(dir), ec);
}

bool FileExists(const std::wstring& path) {
    struct stat st;
    return stat(ToUtf8(path).c_str(), &st) == 0;
}

struct FileHandle {
    int fd;
};

FileHandle* OpenFileRead(const std::wstring& path) {
    int fd = ::open(ToUtf8(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return nullptr;
    }
    FileHandle* f = new (std::nothrow) FileHandle{fd};
    if (!f) ::close(fd);
    return f;
}

FileHandle* CreateFileWrite(const std::wstring& path) {
    int fd = ::open(ToUtf8(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return nullptr;
    FileHandle* f = new (std::nothrow) FileHandle{fd};
    if (!f) ::close(fd);
    return f;
}

bool ReadFile(FileHandle* f, void* buffer, size_t size, size_t* done) {
    *done = 0;
    if (!f) return false;
    char* p = static_cast<char*>(buffer);
    while (*done < size) {
        ssize_t n = ::read(f->fd, p + *done, std::min<size_t>(size - *done, 1u << 30));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        if (n == 0) break;
        *done += size_t(n);
    }
    return true;
}

bool WriteFile(FileHandle* f, const void* buffer, size_t size, size_t* done) {
    *done = 0;
    if (!f) return false;
    const char* p = static_cast<const char*>(buffer);
    while (*done < size) {
        ssize_t n = ::write(f->fd, p + *done, std::min<size_t>(size - *done, 1u << 30));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        *done += size_t(n);
    }
    return true;
}

bool GetFileSize(FileHandle* f, uint64_t* size) {
    struct stat st;
    if (!f || fstat(f->fd, &st) != 0) return false;
    *size = uint64_t(st.st_size);
    return true;
}

bool CloseFile(FileHandle* f) {
    if (!f) return false;
    bool ok = ::close(f->fd) == 0;
    delete f;
    return ok;
}

bool DeleteFile(const std::wstring& path) {
    return ::unlink(ToUtf8(path).c_str()) == 0;
}

} // namespace os
} // namespace kelp
