// The search for a chain of stages from the request's input to its output.
#pragma once

#include "request.h"

namespace kelp {

// True if a chain was found: it is then request.bestChain, and *request.quality holds
// its Q. A search that ran and found nothing leaves *request.quality at
// ConversionRequest::kNoChainQ. A row alignment other than 0, 4 or the exact row size
// of either record fails before any stage is asked; otherwise both records' bmiAlignment
// are rewritten to 4.
bool CreateConverterList(ConversionRequest& request);

} // namespace kelp
