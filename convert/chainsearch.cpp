// The chain search: a depth-first walk over the manager's stages, in which every stage
// proposes the next format on the way to the final output.
//
// The search is exhaustive within its limits. After a chain is found it goes on, with a
// depth limit of one less than that chain's length, so that only shorter chains, or
// chains as long and cheaper, replace it. The limit on Q acts only at the depth limit.
// A first chain may have up to 7 stages: levels 0 to 5 expand, level 6 can only try a
// direct stage.
//
// The proposed formats live in the request's scratch room, one 160-byte slab a level,
// handed to GetOutputFormat through a CSrcAllocator: a search makes no heap call for
// formats. A stage whose record is larger than a slab is passed over.
//
// An exception from a stage ends the whole search, which then has found nothing.
#include "chainsearch.h"

#include <kelp/alloc.h>
#include <kelp/trace.h>

#include "catchall.h"
#include "runtime/kelpos.h"

namespace kelp {

namespace {

typedef std::vector<IConverter*> Chain;

constexpr int32_t kNoWinnerQ = 100000000;

// Each trace line of the search is led by 4 spaces a level of depth, at least one.
void Indent(size_t depth) {
    static const wchar_t kSpaces[] = L"                            "; // 28: 4 x 7 levels
    constexpr size_t kMax = sizeof(kSpaces) / sizeof(kSpaces[0]) - 1;
    size_t width = depth == 0 ? 1 : 4 * depth;
    if (width > kMax) width = kMax;
    dbgPrintf(8, 30, L"%s", kSpaces + (kMax - width));
}

// The cheapest stage that goes from the current input to the final output in one step,
// or null. Its cost is added to *quality. On equal cost the earlier stage stays.
IConverter* FindDirect(ConversionRequest& request) {
    int32_t lowest = kNoWinnerQ;
    IConverter* winner = nullptr;
    for (IConverter* stage : *request.stages) {
        if (!stage) continue;
        int32_t q = 0;
        // On the real output record and flags: a stage that answers writes the size it
        // would produce, and may clear KXCONV_OUT_SHARED.
        if (KX_SUCCEEDED(stage->Query(request.in, request.out, request.flags, &q)) && q < lowest) {
            winner = stage;
            lowest = q;
        }
    }
    if (winner) *request.quality += lowest;
    return winner;
}

void FindChain(ConversionRequest& request, Chain& chain) {
    const int32_t startQ = *request.quality;
    const size_t n = chain.size();

    if (IConverter* direct = FindDirect(request)) {
        const int32_t finalQ = *request.quality;
        chain.push_back(direct);
        // A shorter chain wins even at a higher Q.
        const bool better = request.bestChain.empty() || chain.size() < request.bestChain.size() ||
                            (chain.size() == request.bestChain.size() && finalQ < request.bestQ);
        if (better) {
            request.bestChain = chain;
            request.bestQ = finalQ;
            request.depthLimit = int32_t(chain.size()) - 1;
        }
        chain.pop_back();
        Indent(n);
        dbgPrintf(8, 30, L"Q%d -> %d", startQ, finalQ);
        dbgBIHPair(request.in, request.out);
        Indent(n);
        dbgPrintf(8, 30, L"^- OK at %d(Q%d) %s\r\n", int32_t(n + 1), finalQ,
                  better ? L"NEW ACTIVE" : L"");
        return; // nothing else is tried from a node with a direct stage
    }

    if (int32_t(n) > request.depthLimit) {
        Indent(n);
        dbgPrintf(8, 30, L"^- STOP at %d|\r\n", int32_t(n));
        return;
    }
    if (int32_t(n) == request.depthLimit && startQ >= request.bestQ) {
        Indent(n);
        dbgPrintf(8, 30, L"^- STOP at %d Q%d|\r\n", int32_t(n), startQ);
        return;
    }

    // n is at most the depth limit, which never exceeds the last slab.
    CSrcAllocator scratch(request.scratch[n], ConversionRequest::kScratchBytes);
    KXBMINFOHEADER* const current = request.in;
    for (IConverter* stage : *request.stages) {
        if (!stage) continue;
        if (KX_FAILED(stage->QueryInput(current))) continue;
        // The same stage twice in a row is no inner step.
        if (!chain.empty() && chain.back() == stage) continue;
        KXBMINFOHEADER* next = nullptr;
        if (KX_FAILED(stage->GetOutputFormat(current, &next, &scratch, request.out)) || !next)
            continue;
        int32_t nextQ = *request.quality;
        if (KX_FAILED(stage->Query(current, next, request.flags, &nextQ))) {
            scratch.Free(next);
            continue;
        }
        Indent(n);
        dbgPrintf(8, 30, L"Q%d -> %d", startQ, nextQ);
        dbgBIHPair(current, next);

        chain.push_back(stage);
        request.in = next;
        *request.quality = nextQ;
        FindChain(request, chain);
        chain.pop_back();
        request.in = current;
        *request.quality = startQ;
    }
    Indent(n);
    dbgPrintf(8, 30, L"^-Nothing Found at %d\r\n", int32_t(n));
}

// The input's or the output's row alignment: 0 and 4 pass, and the exact row size
// rounded to 4 bytes.
bool AlignmentPasses(const KXBMINFOHEADER* d) {
    if (d->bmiAlignment == 0 || d->bmiAlignment == 4) return true;
    int32_t row = int32_t(uint32_t(d->biBitCount) * uint32_t(d->biWidth)) / 8;
    return d->bmiAlignment == AlignUp(row, 4);
}

} // namespace

bool CreateConverterList(ConversionRequest& request) {
    KXBMINFOHEADER* const in = request.in;
    KXBMINFOHEADER* const out = request.out;
    try {
        dbgPrintf(8, 31, L"CConversionManager::CreateConverterList:\r\n");
        dbgBIHPair(in, out);
        if (!AlignmentPasses(in)) {
            dbgPrintf(8, 2, L"KELP::Converter: Supports only 4 Byte Alignments on Input NOT %d\r\n",
                      in->bmiAlignment);
            return false;
        }
        if (!AlignmentPasses(out)) {
            // The value shown is the input's, as it has always been.
            dbgPrintf(8, 2,
                      L"KELP::Converter: Supports only 4 Byte Alignments on Output NOT %d\r\n",
                      in->bmiAlignment);
            return false;
        }
        in->bmiAlignment = 4;
        out->bmiAlignment = 4;

        const uint32_t start = os::GetTickCount();
        *request.quality = 0;
        request.bestChain.clear();
        request.bestChain.reserve(ConversionRequest::kLevels + 1);
        request.depthLimit = ConversionRequest::kLevels - 1;
        request.bestQ = ConversionRequest::kNoChainQ;
        Chain chain;
        chain.reserve(ConversionRequest::kLevels + 1);
        FindChain(request, chain);
        *request.quality = request.bestQ;
        dbgPrintf(8, 14, L"CConversionManager::BuildConverterList %d ms\r\n",
                  int(os::GetTickCount() - start));
        return !request.bestChain.empty();
    }
    KELP_CATCH_ALL {
        request.in = in;
        request.bestChain.clear();
        request.bestQ = ConversionRequest::kNoChainQ;
        *request.quality = request.bestQ;
        return false;
    }
}

} // namespace kelp
