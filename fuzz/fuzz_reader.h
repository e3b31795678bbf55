// One fuzz input through one reader the way the loader uses it: the length of the
// headers and the information read from them, the file information, the picture at the file's own depth and at 32 bits, widened to 24 bits where it is
// smaller, turned, resized, and the stamp.
#pragma once

#include <cstddef>
#include <cstdint>

#include "imagefile/backend.h"

inline void FuzzReader(const kelp::imgfile::CBackend* backend, const wchar_t* ext,
                       const uint8_t* data, size_t size) {
    using namespace kelp::imgfile;
    const Bytes file{data, size};
    Limits limits;
    limits.maxPixels = 1u << 22; // keeps one input within the fuzzer's memory and time
    if (!backend->Sniff(file, ext)) return;
    // The headers alone, as far as the reader asks for them.
    const uint64_t head = backend->InfoBytes(file, size);
    FileInfo info;
    if (head < size) backend->Info(Bytes{data, size_t(head)}, 0, &info);
    backend->Info(file, 0, &info);
    for (uint32_t bits : {0u, 32u}) {
        LoadRequest req;
        req.bits = bits;
        req.orientation = bits ? 6 : 1;
        req.limits = limits;
        Bitmap out;
        if (KX_SUCCEEDED(backend->Load(file, req, &out)) && out.Bits() < 24) {
            Bitmap wide;
            ChangeDepth(out, 24, &wide, limits);
        }
        Bitmap small;
        backend->LoadResized(file, req, 7, 5, &small);
    }
    Bitmap stamp;
    backend->ReadStamp(file, limits, &stamp);
}
