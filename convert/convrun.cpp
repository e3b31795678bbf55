// The manager's Convert: checks, identity, search, and the run of the chain with its
// temporaries.
#include <kelp/trace.h>

#include <algorithm>
#include <cstring>

#include "catchall.h"
#include "chainsearch.h"
#include "convman.h"
#include "runtime/kelpos.h"
#include "stagesize.h"

namespace kelp {

namespace {

// Narrows the rectangle of the run by the rectangle a stage produced. For the inner
// stages the right end is taken only when the stage's bottom is set (not its right),
// which is how the run has always treated them; the last stage is tested on its right.
void Narrow(KXRECT& acc, const KXRECT& r, bool lastStage) {
    acc.top = std::max(acc.top, r.top);
    if (r.bottom != 0) acc.bottom = std::min(acc.bottom, r.bottom);
    acc.left = std::max(acc.left, r.left);
    if ((lastStage ? r.right : r.bottom) != 0) acc.right = std::min(acc.right, r.right);
}

} // namespace

KXRESULT CConversionManager::RunChain(const std::vector<IConverter*>& chain, KXBMINFOHEADER* in,
                                      void* inData, KXBMINFOHEADER* out, void** outData,
                                      uint32_t* flags, int32_t* quality, IAllocator* allocator,
                                      IAllocator* temporaries) {
    if (chain.empty()) return KXE_INVALID;

    KXBMINFOHEADER* format = in; // the current format
    void* buffer = inData;       // the current buffer
    KXRESULT result = KXE_INVALID;
    CCppAllocator formatAllocator;        // the temporary formats
    std::vector<KXBMINFOHEADER*> formats; // the temporary formats made so far
    std::vector<void*> buffers;           // the buffers made so far, all to be freed
    // Once a stage has made a buffer of its own, the last one may no longer work in place:
    // the run frees that buffer.
    bool wantCopy = (*flags & KXCONV_KEEP_INPUT) != 0;
    KXRECT acc{0, 0, out->biWidth, out->biHeight};

    void* const outBefore = *outData;
    // What the last stage leaves in *outData when it fails is the caller's no more.
    auto dropFailedOutput = [&]() {
        void* p = *outData;
        if (p && p != outBefore && p != buffer && p != inData) {
            allocator->Free(p);
            *outData = nullptr;
        }
    };

    bool inLastStage = false;
    try {
        // Room for every entry up front, so that recording a block never throws.
        formats.reserve(chain.size());
        buffers.reserve(chain.size());
        bool inner = true;
        for (size_t i = 0; i + 1 < chain.size(); ++i) {
            IConverter* stage = chain[i];
            KXBMINFOHEADER* temp = nullptr;
            KXRESULT r = stage->GetOutputFormat(format, &temp, &formatAllocator, out);
            if (temp) formats.push_back(temp);
            if (KX_FAILED(r) || !temp) {
                inner = false;
                break;
            }
            void* next = nullptr;
            r = stage->Convert(format, buffer, temp, &next, flags, quality, temporaries);
            if (KX_FAILED(r)) {
                if (next && next != buffer && next != inData) temporaries->Free(next);
                inner = false;
                break;
            }
            Narrow(acc, temp->bmiRect, false);
            temp->bmiRect = KXRECT{0, 0, 0, 0};
            if (!(*flags & KXCONV_OUT_SHARED)) {
                buffers.push_back(next);
                wantCopy = true;
            }
            *flags &= ~(KXCONV_OUT_SHARED | KXCONV_KEEP_INPUT);
            format = temp;
            buffer = next;
        }
        if (inner) {
            // Neither a buffer that the run frees nor the caller's buffer against the
            // caller's wish may be overwritten by the last stage.
            if (wantCopy) *flags |= KXCONV_KEEP_INPUT;
            inLastStage = true;
            KXRESULT r =
                chain.back()->Convert(format, buffer, out, outData, flags, quality, allocator);
            inLastStage = false;
            if (KX_FAILED(r)) {
                dropFailedOutput();
            } else {
                result = KX_OK;
                if (!(*flags & KXCONV_OUT_SHARED)) buffers.push_back(*outData);
                Narrow(acc, out->bmiRect, true);
                out->bmiRect = acc;
            }
        }
    }
    KELP_CATCH_ALL {
        if (inLastStage) dropFailedOutput();
    }

    if (!buffers.empty()) {
        *flags &= ~KXCONV_OUT_SHARED;
        // The result's buffer now belongs to the caller.
        if (result == KX_OK) buffers.pop_back();
    }
    for (KXBMINFOHEADER* f : formats)
        formatAllocator.Free(f);
    for (void* b : buffers)
        temporaries->Free(b);
    return result;
}

KXRESULT CConversionManager::Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out,
                                     void** outData, uint32_t* flags, int32_t* quality,
                                     IAllocator* allocator) {
    const uint32_t start = os::GetTickCount();
    uint32_t localFlags = 0;
    int32_t localQuality = 0;
    if (!flags) flags = &localFlags;
    if (!quality) quality = &localQuality;

    if (!CheckBIHReadable(in) || !CheckBIHReadable(out)) return KXE_INVALID;
    if (!outData) return KXE_INVALID;
    if (!CheckBuffer(inData, in->biSizeImage) || KX_FAILED(ValidateBIH(in)) ||
        KX_FAILED(ValidateBIH(out)))
        return KXE_INVALID;
    // The pixels are sized by the geometry: biSizeImage 0 stands for that size, and a
    // size that falls short of it is refused before any stage could read past it.
    const uint64_t need = GeometryBytes(in);
    uint32_t inSize = 0;
    if (!ClaimedBytes(in, need, &inSize)) {
        dbgPrintf(8, 2, L"CConversionManager::Input of %u bytes, its image needs %llu!\r\n",
                  in->biSizeImage, static_cast<unsigned long long>(need));
        return KXE_INVALID;
    }
    if (in->biSizeImage == 0 && !CheckBuffer(inData, inSize)) return KXE_INVALID;

    ConversionRequest request(in, out, flags, quality, &m_converters);
    if (CheckIdentity(request)) {
        // The output describes the bytes the caller gets: the input's, as many as it has.
        out->biSizeImage = inSize;
        if ((*flags & KXCONV_KEEP_INPUT) && (*flags & KXCONV_FORCE_COPY)) {
            if (!allocator) return KXE_INVALID;
            void* copy = nullptr;
            try {
                copy = allocator->Allocate(inSize, 0);
            }
            KELP_CATCH_ALL {
                copy = nullptr;
            }
            if (!copy) return KXE_OUTOFMEMORY;
            if (inSize) std::memcpy(copy, inData, inSize);
            *outData = copy;
        } else {
            *outData = inData;
            *flags |= KXCONV_OUT_SHARED;
        }
        NormalizeOutput(request);
        return KX_OK;
    }

    const uint32_t searchStart = os::GetTickCount();
    const bool found = CreateConverterList(request);
    const uint32_t searchTime = os::GetTickCount() - searchStart;
    if (!found || !allocator) return KXE_INVALID;

    KXRESULT result = RunChain(request.bestChain, in, inData, out, outData, flags, quality,
                               allocator, &m_temporaries);
    m_temporaries.EndRun();
    NormalizeOutput(request);
    dbgPrintf(8, 4, L"CConversionManager::Convert: %d ms (%d ms list generation)\r\n",
              int(os::GetTickCount() - start), int(searchTime));
    return result;
}

} // namespace kelp
