// The alpha stage, "AlphaConverter": changes what the fourth byte of a 32-bit pixel
// means (straight, opaque, premultiplied) and nothing else. It runs in place unless
// the caller keeps the input.
#pragma once

#include "converter.h"

namespace kelp {

class CAlphaConverter : public CConverter {
  public:
    CAlphaConverter() : CConverter(L"AlphaConverter") {}

    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                             const KXBMINFOHEADER* target) override;
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    // The same test as QueryInput; writes nothing.
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;
    // Writes biSizeImage of `out` on success; the cost depends on the pair of alpha
    // states, undoing premultiplication being the dearest.
    KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                   int32_t* quality) override;
    KXRESULT Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                     uint32_t* flags, int32_t* quality, IAllocator* allocator) override;
};

} // namespace kelp
