// The cropper "RGBCrop": keeps the active rectangle of an image and clears the rest to
// zero bytes, whatever the format (so that a YUV image is cropped to green). It never
// runs in place.
#pragma once

#include "converter.h"

namespace kelp {

class CRGBCrop : public CConverter {
  public:
    CRGBCrop() : CConverter(L"RGBCrop") {}

    // The input with the target's bmiRect; never refused.
    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                             const KXBMINFOHEADER* target) override;
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;
    // Only the rectangle may differ, and it must. Writes biSizeImage of `out`, adds 5.
    KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                   int32_t* quality) override;
    // Runs no Query: it crops at once to the intersection of both rectangles, read from
    // the start of the buffer.
    KXRESULT Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                     uint32_t* flags, int32_t* quality, IAllocator* allocator) override;
};

} // namespace kelp
