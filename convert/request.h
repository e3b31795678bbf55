// The state of one Query or Convert of the manager. It lives on the caller's stack for
// that one call, so that two threads may use two managers; nothing is kept between
// calls.
#pragma once

#include <list>
#include <vector>

#include <kelp/kxconv.h>

namespace kelp {

struct ConversionRequest {
    // Levels of the search that expand (0 to 5), each with room for one proposed format.
    static constexpr int kLevels = 6;
    static constexpr unsigned kScratchBytes = 160;
    // The Q of "nothing found".
    static constexpr int32_t kNoChainQ = 100000;

    ConversionRequest(KXBMINFOHEADER* in_, KXBMINFOHEADER* out_, uint32_t* flags_,
                      int32_t* quality_, const std::list<IConverter*>* stages_)
        : in(in_), out(out_), flags(flags_), quality(quality_), stages(stages_) {}

    KXBMINFOHEADER* in;  // the current input: the caller's, then the search's proposals
    KXBMINFOHEADER* out; // the final output: the caller's record
    uint32_t* flags;     // the caller's flags word
    int32_t* quality;    // the caller's running Q
    const std::list<IConverter*>* stages; // the manager's stages, in search order
    std::vector<IConverter*> bestChain;   // the best chain found so far
    int32_t bestQ = kNoChainQ;
    int32_t depthLimit = 5;
    // A format record for each expanding level of the search: the proposals need no heap.
    alignas(16) unsigned char scratch[kLevels][kScratchBytes];
};

// Coerces the requested output where it cannot be had, then says whether nothing is
// left to do (the formats are identical). Runs first in every Query and Convert.
bool CheckIdentity(ConversionRequest& request);
// Tidies the output record after a Query or Convert that did not fail early.
void NormalizeOutput(ConversionRequest& request);

} // namespace kelp
