// The YUV stages: "RGB->YUV4444" (RGB to meshed YUV 4:4:4), "YUV444->RGB32" and
// "YUV444->RGB24" (back to RGB), and "CYUVConverterYU" (from one YUV colour space to
// another). Each is a stage and a colour converter at once: the pixel work is that of
// its CKXCsc base, whose colour space and chroma limit the stage sets in Convert.
//
// Every stage changes the colour space and nothing else: depth, geometry, scan, flags,
// alpha and rectangle stay. RGB->YUV4444 and the YUV-to-YUV stage run in place unless
// the caller keeps the input; so do the two stages back to RGB.
//
// The stages are shared by all managers, and Convert writes the CKXCsc members without
// a lock: two threads converting through one stage to different colour spaces race.
#pragma once

#include <kelp/kxcsc.h>

#include "converter.h"

namespace kelp {

// What RGB->YUV4444 has in common with any stage from RGB to YUV: reads RGB at 24 or
// 32 bits, writes "@YUV" at 24 or 32, and its Query.
class CRGBConverterYUV : public CConverter, public CKXCsc {
public:
    explicit CRGBConverterYUV(const wchar_t* name);
    ~CRGBConverterYUV() override;

    void Release() override { delete this; }
    uint32_t GetVersion() override { return KXCONV_VERSION; }
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;
    // The two records agree in everything but the colour space, and differ in that.
    // Adds biSizeImage of `in` / 100000.
    KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                   int32_t* quality) override;
};

class CRGBConverterYUV4444 : public CRGBConverterYUV {
public:
    CRGBConverterYUV4444() : CRGBConverterYUV(L"RGB->YUV4444") {}

    // A 160-byte "@YUV" 4:4:4 record at 32 bits, in the target's colour space if the
    // target is "@YUV" (else BT.601). Refused when the input already has the target's
    // format code.
    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                             const KXBMINFOHEADER* target) override;
    // The base's Query; on success biSizeImage of `out` := its rows, rounded up by
    // its own alignment, times |biHeight|.
    KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                   int32_t* quality) override;
    // In the output's colour space, with the 75 % chroma limit when the flags ask for
    // KXCONV_COLOR_LIMIT.
    KXRESULT Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                     uint32_t* flags, int32_t* quality, IAllocator* allocator) override;
};

// What the stages from YUV to RGB have in common: a converter on BT.601 at the 100 %
// chroma limit until Convert says otherwise.
class CYUVConverterRGB : public CConverter, public CKXCsc {
public:
    explicit CYUVConverterRGB(const wchar_t* name);
    ~CYUVConverterRGB() override;

    void Release() override { delete this; }
    uint32_t GetVersion() override { return KXCONV_VERSION; }
};

// Meshed YUV 4:4:4 to RGB of the same depth.
class CYUV444ConverterRGB : public CYUVConverterRGB {
public:
    explicit CYUV444ConverterRGB(const wchar_t* name) : CYUVConverterRGB(name) {}

    // As CRGBConverterYUV's; writes biSizeImage of `out` (rows of 4 bytes times the
    // height with its sign).
    KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                   int32_t* quality) override;
    // In the input's colour space. A conversion the colour tables refuse is still
    // reported as success, its output unwritten.
    KXRESULT Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                     uint32_t* flags, int32_t* quality, IAllocator* allocator) override;

protected:
    // The proposal of both depths: a 144-byte RGB record at `bits`, bottom-up.
    KXRESULT ProposeRgb(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                        const KXBMINFOHEADER* target, uint16_t bits);
    // The depth this stage reads and writes.
    virtual uint16_t Bits() const = 0;
    KXRESULT CheckSide(KXBMINFOHEADER* desc, uint32_t compression);
};

class CYUV444ConverterRGB32 : public CYUV444ConverterRGB {
public:
    CYUV444ConverterRGB32() : CYUV444ConverterRGB(L"YUV444->RGB32") {}
    // Alpha 1 stays 1, anything else becomes 0: premultiplied YUV loses that label.
    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                             const KXBMINFOHEADER* target) override;
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;

protected:
    uint16_t Bits() const override { return 32; }
};

class CYUV444ConverterRGB24 : public CYUV444ConverterRGB {
public:
    CYUV444ConverterRGB24() : CYUV444ConverterRGB(L"YUV444->RGB24") {}
    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                             const KXBMINFOHEADER* target) override;
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;

protected:
    uint16_t Bits() const override { return 24; }
};

// "@YUV" 4:4:4 at 32 bits from BT.709 to BT.601 and back. Its name is cut to
// "CYUVConverterYU" like every stage name of more than 15 characters.
class CYUVConverterYUV : public CConverter, public CKXCsc {
public:
    CYUVConverterYUV();
    ~CYUVConverterYUV() override;

    void Release() override { delete this; }
    uint32_t GetVersion() override { return KXCONV_VERSION; }
    // The same record as RGB->YUV4444 proposes; refused when the input already has the
    // target's colour space.
    KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out, IAllocator* allocator,
                             const KXBMINFOHEADER* target) override;
    KXRESULT QueryInput(KXBMINFOHEADER* desc) override;
    KXRESULT QueryOutput(KXBMINFOHEADER* desc) override;
    // Writes no size.
    KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                   int32_t* quality) override;
    KXRESULT Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                     uint32_t* flags, int32_t* quality, IAllocator* allocator) override;
};

} // namespace kelp
