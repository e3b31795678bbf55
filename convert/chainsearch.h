// The search for a chain of stages from the request's input to its output.
#pragma once

#include "request.h"

namespace kelp {

// True if a chain was found: it is then request.bestChain, and *request.quality holds
// its Q. Without a chain *request.quality is ConversionRequest::kNoChainQ.
bool CreateConverterList(ConversionRequest& request);

} // namespace kelp
