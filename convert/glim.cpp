// The closed image library does not exist on this platform, so neither wrapper can do
// any work: both report "not available" with a non-zero result, and every stage runs
// its own loop, which gives the defined result. ReshapeGlim keeps its own tests and
// traces, which come before the library is touched.
#include "glim.h"

#include <kelp/trace.h>

namespace kelp {

namespace {
constexpr int kNotAvailable = 1;
}

int ConvertGlim(const KXBMINFOHEADER*, const void*, KXBMINFOHEADER*, void*) {
    return kNotAvailable;
}

int ReshapeGlim(const KXBMINFOHEADER* in, const void* inData, KXBMINFOHEADER* out, void* outData) {
    dbgPrintf(8, 14, L"convertglim::reshape start \n");
    const bool shape =
        in->bmiAlpha == KXDIB_ALPHA_VALID && out->bmiAlpha == KXDIB_ALPHA_PREMULTIPLIED;
    const bool unshape =
        in->bmiAlpha == KXDIB_ALPHA_PREMULTIPLIED && out->bmiAlpha == KXDIB_ALPHA_VALID;
    if (!shape && !unshape) {
        dbgPrintf(8, 14, L"convertglim::reshape failed \n");
        return 1;
    }
    if (inData != outData) {
        // The pixels go over first, under the input's alpha state.
        const uint32_t alpha = out->bmiAlpha;
        out->bmiAlpha = in->bmiAlpha;
        int r = ConvertGlim(in, inData, out, outData);
        out->bmiAlpha = alpha;
        if (r != 0) {
            dbgPrintf(8, 4, L"convertglim::reshape failed \n");
            return r;
        }
    }
    return kNotAvailable;
}

} // namespace kelp
