// The depth stages: "nBit to 32bit" and "nBit to 24bit". They read RGB at 1, 4, 8, 16
// (5-5-5), 24 or 32 bits (and "@YUV" at 24 or 32, whose bytes they carry like blue,
// green, red) and write 32 or 24 bits, changing nothing but the depth.
#pragma once

#include "converter.h"

namespace kelp {

// What both depth stages share: their Query.
class CRGBConverterRGB : public CConverter {
  public:
    explicit CRGBConverterRGB(const wchar_t* name) : CConverter(name) {}

    // The two formats must agree in everything but the depth, and differ in that. The
    // output's biSizeImage is written by QueryOutput as soon as it accepts the output,
    // whatever the rest of the answer. Clears KXCONV_OUT_SHARED and adds biSizeImage of
    // `in` / 100000.
    KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                   int32_t* quality) override;

  protected:
    // The depth this stage writes: 24 or 32.
    virtual uint16_t OutputBits() const = 0;
    // Runs the pixel loop of `in`'s depth into the buffer at outData, reading no more
    // than `inSize` bytes of inData. KXE_INVALID for a depth the stage has no loop for,
    // or a colour table it cannot read.
    KXRESULT ConvertRows(const KXBMINFOHEADER* in, const void* inData, uint32_t inSize,
                         const KXBMINFOHEADER* out, void* outData);
    // The shared body of Convert; `name` is the class's name in its traces.
    KXRESULT ConvertDepth(const wchar_t* name, KXBMINFOHEADER* in, void* inData,
                          KXBMINFOHEADER* out, void** outData, uint32_t* flags, int32_t* quality,
                          IAllocator* allocator);
    // The proposal: `in` with the depth of this stage, no colour table and its size.
    KXRESULT ProposeDepth(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                          const KXBMINFOHEADER* target);
    // Whether the record is of this stage's output depth with no colour table; if so,
    // its biSizeImage := the size this stage gives it.
    KXRESULT CheckOutput(KXBMINFOHEADER* desc, const wchar_t* badFormatText);
};

class CRGBConverterRGB32 : public CRGBConverterRGB {
  public:
    CRGBConverterRGB32() : CRGBConverterRGB(L"nBit to 32bit") {}
    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                             const KXBMINFOHEADER* target) override;
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;
    KXRESULT Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                     uint32_t* flags, int32_t* quality, IAllocator* allocator) override;

  protected:
    uint16_t OutputBits() const override { return 32; }
};

class CRGBConverterRGB24 : public CRGBConverterRGB {
  public:
    CRGBConverterRGB24() : CRGBConverterRGB(L"nBit to 24bit") {}
    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                             const KXBMINFOHEADER* target) override;
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;
    KXRESULT Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                     uint32_t* flags, int32_t* quality, IAllocator* allocator) override;

  protected:
    uint16_t OutputBits() const override { return 24; }
};

} // namespace kelp
