// The chain search.
//
// No stage walks the lattice of single-aspect changes yet, so no chain is ever found:
// the answer is the one the search gives when no stage applies (Q 100000, no chain),
// and every conversion but identity fails with KXE_INVALID.
#include "chainsearch.h"

namespace kelp {

bool CreateConverterList(ConversionRequest& request) {
    request.bestChain.clear();
    request.bestQ = ConversionRequest::kNoChainQ;
    *request.quality = request.bestQ;
    return false;
}

} // namespace kelp
