// The vector forms of the scalers' row kernels. None yet: every target runs the plain
// loops.
#include "convert/scalerows.h"

namespace kelp {
namespace scalerows {
const Kernels* VectorKernels(int) {
    return nullptr;
}
} // namespace scalerows
} // namespace kelp
