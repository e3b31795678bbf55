// The scalers "Scale32" and "Scale24": they change an image's size and pixel ratio (and,
// where the caller allows it, its field mode alone). 32-bit images go through the 2-D
// transform, 24-bit images ("@YUV" at 24 bits too) through the stage's own scalers.
// They never run in place.
#pragma once

#include "converter.h"

namespace kelp {

class CRGBScale : public CConverter {
  public:
    explicit CRGBScale(const wchar_t* name) : CConverter(name) {}

    // The input with the target's size, ratios and field mode (the height keeping the
    // input's sign); refused when size and ratios are the target's already.
    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                             const KXBMINFOHEADER* target) override;
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;
    // Everything but the geometry must agree, and the geometry must differ, unless
    // KXCONV_ALLOW_FIELDS is set and only the field mode changes. Writes biSizeImage of
    // `out` and adds the larger size / 50000.
    KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                   int32_t* quality) override;
    KXRESULT Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                     uint32_t* flags, int32_t* quality, IAllocator* allocator) override;

  protected:
    virtual uint16_t Bits() const = 0;
};

class CRGBScale32 : public CRGBScale {
  public:
    CRGBScale32() : CRGBScale(L"Scale32") {}
    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                             const KXBMINFOHEADER* target) override;
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;

  protected:
    uint16_t Bits() const override { return 32; }
};

// Its own scalers cost five times what the transform costs: after its own cost the
// whole running Q is multiplied by 5.
class CRGBScale24 : public CRGBScale {
  public:
    CRGBScale24() : CRGBScale(L"Scale24") {}
    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                             const KXBMINFOHEADER* target) override;
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;
    KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                   int32_t* quality) override;

  protected:
    uint16_t Bits() const override { return 24; }
};

} // namespace kelp
