// Linux: the handle of the loaded module that holds an address.
//
// The dynamic loader's handle of a loaded object is its link map: dlopen gives out that
// pointer, and dlsym and dlclose take it. dladdr1 finds the link map of the object that
// holds an address, so the handle comes without a dlopen, and no reference is taken
// that would have to be given back. It works the same for a shared library and for the
// main program (where a dlopen of the program's own file name would find nothing).
#include "kelpos.h"

#include <dlfcn.h>
#include <link.h>

namespace kelp {
namespace os {

KXMODULE ModuleHandleOf(const void* address) {
    Dl_info info;
    struct link_map* map = nullptr;
    if (!dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP)) return nullptr;
    return map;
}

} // namespace os
} // namespace kelp
