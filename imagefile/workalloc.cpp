// The allocator of the readers' working bitmaps.
#include "bitmap.h"

namespace kelp {
namespace imgfile {

IAllocator* WorkAllocator() {
    return GetDualAllocator();
}

} // namespace imgfile
} // namespace kelp
