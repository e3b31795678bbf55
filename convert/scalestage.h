// What the geometry stages (scalers, deinterlacers, cropper) share: the size they write
// into an output they accept, the copy they propose, and the test that both buffers
// hold the rows their records describe.
#pragma once

#include <kelp/alloc.h>
#include <kelp/trace.h>

#include <cstring>

#include "stagesize.h"

namespace kelp {
namespace geomstage {

// A copy of `in`'s biSize bytes through `allocator` (no colour table), or null. Records
// shorter than the descriptor are refused.
inline KXBMINFOHEADER* CopyRecord(const KXBMINFOHEADER* in, IAllocator* allocator) {
    if (!in || !allocator || in->biSize < KXBMI_SIZE) return nullptr;
    auto* f = static_cast<KXBMINFOHEADER*>(allocator->Allocate(in->biSize, 0));
    if (f) memcpy(f, in, in->biSize);
    return f;
}

// The cost of a scale: the larger of both sizes / 50000.
inline int32_t ScaleCost(const KXBMINFOHEADER* in, const KXBMINFOHEADER* out) {
    const uint32_t s = in->biSizeImage > out->biSizeImage ? in->biSizeImage : out->biSizeImage;
    return int32_t(s / 50000u);
}

// Whether the input buffer holds the rows of `in` (its biSizeImage is a claim: 0 means
// "as the geometry says", anything else must cover the geometry) and the output's
// declared size holds the rows of `out`. Traces the side that falls short.
inline bool BuffersHold(const wchar_t* name, const KXBMINFOHEADER* in, const KXBMINFOHEADER* out) {
    const uint64_t need = GeometryBytes(in);
    uint32_t bytes = 0;
    if (!ClaimedBytes(in, need, &bytes)) {
        dbgPrintf(8, 2, L"%s::Convert: Input of %u bytes, its rows need %llu!\r\n", name,
                  in->biSizeImage, static_cast<unsigned long long>(need));
        return false;
    }
    const uint64_t outNeed = GeometryBytes(out);
    if (uint64_t(out->biSizeImage) < outNeed) {
        dbgPrintf(8, 2, L"%s::Convert: Output of %u bytes, its rows need %llu!\r\n", name,
                  out->biSizeImage, static_cast<unsigned long long>(outNeed));
        return false;
    }
    return true;
}

} // namespace geomstage
} // namespace kelp
