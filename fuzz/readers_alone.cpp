// What the readers need from the rest of the library, when they are built alone: the
// working allocator (the C library's heap here) and the backends that FindBackend
// names but the fuzz targets never reach.
#include <cstdlib>

#include "imagefile/backend.h"
#include "imagefile/jpegio.h"
#include "imagefile/pngio.h"
#include "imagefile/tiffio.h"
#include "imagefile/wmfio.h"

namespace kelp {
namespace imgfile {

namespace {
class MallocAllocator : public IAllocator {
  public:
    void* Allocate(unsigned int size, uint32_t) override { return std::malloc(size ? size : 1); }
    void* ReAllocate(void* p, unsigned int size, uint32_t) override {
        return std::realloc(p, size ? size : 1);
    }
    unsigned int GetSize(void*) override { return 0; }
    void Free(void* p) override { std::free(p); }
};
MallocAllocator g_allocator;
} // namespace

IAllocator* WorkAllocator() {
    return &g_allocator;
}

const CBackend* PngBackend() {
    return JpegBackend();
}
const CBackend* TiffBackend() {
    return JpegBackend();
}
const CBackend* MetafileBackend() {
    return JpegBackend();
}

} // namespace imgfile
} // namespace kelp
