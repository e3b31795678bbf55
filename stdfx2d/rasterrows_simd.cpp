#include "stdfx2d/rasterrows.h"
namespace stdfx2d {
namespace rasterrows {
const Kernels* VectorKernels(int) {
    return nullptr;
}
} // namespace rasterrows
} // namespace stdfx2d
