// The deinterlacers "Deinterlacer32" and "Deinterlacer24": an interlaced image becomes a
// progressive one of the same size, made from the lines of one field. They never run in
// place.
#pragma once

#include "converter.h"

namespace kelp {

class CRGBDeinterlacer : public CConverter {
  public:
    explicit CRGBDeinterlacer(const wchar_t* name) : CConverter(name) {}

    // The input made progressive (the chrono flag cleared); refused when input and
    // target are both progressive or both interlaced.
    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                             const KXBMINFOHEADER* target) override;
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;
    // An interlaced input, a progressive output, and nothing else changes. Writes
    // biSizeImage of `out` and adds 5.
    KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                   int32_t* quality) override;
    // 32 bits give 1 for success and 0 for a failed transform, which the manager both
    // takes for success.
    KXRESULT Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                     uint32_t* flags, int32_t* quality, IAllocator* allocator) override;

  protected:
    virtual uint16_t Bits() const = 0;
};

class CRGBDeinterlacer32 : public CRGBDeinterlacer {
  public:
    CRGBDeinterlacer32() : CRGBDeinterlacer(L"Deinterlacer32") {}
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;

  protected:
    uint16_t Bits() const override { return 32; }
};

class CRGBDeinterlacer24 : public CRGBDeinterlacer {
  public:
    CRGBDeinterlacer24() : CRGBDeinterlacer(L"Deinterlacer24") {}
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;

  protected:
    uint16_t Bits() const override { return 24; }
};

} // namespace kelp
