// Linux: shared objects, loaded and asked for symbols, and where a module lies on disk.
#include "kelpos.h"

#include <dlfcn.h>
#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

namespace kelp {
namespace os {

KXMODULE LoadModule(const std::wstring& path) {
    return dlopen(ToUtf8(path).c_str(), RTLD_NOW | RTLD_LOCAL);
}

void* GetSymbol(KXMODULE module, const char* name) {
    if (!module) return nullptr;
    return dlsym(module, name);
}

bool FreeModule(KXMODULE module) {
    return module && dlclose(module) == 0;
}

bool ModuleFileOf(const void* address, std::wstring* path) {
    Dl_info info;
    if (!dladdr(address, &info) || !info.dli_fname) return false;
    std::string file = info.dli_fname;
    char resolved[PATH_MAX];
    if (realpath(file.c_str(), resolved)) {
        file = resolved;
    } else if (file.empty() || file[0] != '/') {
        // The main program may report a bare name; the kernel knows its real path.
        ssize_t n = readlink("/proc/self/exe", resolved, sizeof(resolved) - 1);
        if (n <= 0) return false;
        resolved[n] = 0;
        file = resolved;
    }
    *path = FromUtf8(file);
    return true;
}

std::wstring RemoveFileName(const std::wstring& path) {
    size_t slash = path.find_last_of(L'/');
    if (slash == std::wstring::npos) return std::wstring();
    return path.substr(0, slash + 1);
}

KXMODULE LoadModuleReporting(const std::wstring& path, uint32_t* error, std::string* reason) {
    const std::string file = ToUtf8(path);
    dlerror(); // clears an older message
    void* module = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module) {
        *error = 0;
        reason->clear();
        return module;
    }
    const char* text = dlerror();
    *reason = text ? text : "";
    // The loader keeps no error number; the file's own accessibility gives one.
    *error = access(file.c_str(), R_OK) != 0 ? uint32_t(errno) : uint32_t(ENOEXEC);
    SetLastError(*error);
    return nullptr;
}

} // namespace os
} // namespace kelp
