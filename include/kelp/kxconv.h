// The conversion manager: turns an image described by one KXBMINFOHEADER into the
// format described by another, through a chain of stages that it finds itself. A stage
// is an IConverter; the manager is one too, so that a whole manager can stand where a
// stage can.
//
// Typical use:
//     IConversionManager* cm = KXCONVCreateConversionManager();
//     cm->Init(0x10002, 0);
//     void* outData = nullptr;     // always null before a Convert
//     uint32_t flags = KXCONV_KEEP_INPUT;
//     int32_t quality = 0;
//     cm->Convert(&in, inData, &out, &outData, &flags, &quality, allocator);
//     ...                          // `out` now describes what was produced; free outData
//     cm->Release();               // through `allocator` unless KXCONV_OUT_SHARED is set
#pragma once

#include "alloc.h"
#include "kelpdefs.h"
#include "kxbih.h"

// The interface version of a stage and of the manager.
constexpr uint32_t KXCONV_VERSION = 0x10002;

// ---------------------------------------------------------------- the flag word
// Bits below 16 are the caller's wish. The manager clears bits 16 to 31 at the start of
// every Query and Convert; bits 16 and 17 then report.

constexpr uint32_t KXCONV_KEEP_INPUT = 0x1;       // leave the input buffer alone
constexpr uint32_t KXCONV_FIT_GOOD = 0x2;         // stretch to the output size, good filter
constexpr uint32_t KXCONV_FIT_FAST = 0x4;         // stretch to the output size, fast
constexpr uint32_t KXCONV_PREMULTIPLY = 0x8;      // the output is to be premultiplied
constexpr uint32_t KXCONV_RATIO_FAST = 0x10;      // pixel ratio step by nearest neighbour
constexpr uint32_t KXCONV_SWAP_FIELDS = 0x20;     // take the other field
constexpr uint32_t KXCONV_FORCE_COPY = 0x40;      // with KEEP_INPUT: identity copies the pixels
constexpr uint32_t KXCONV_KEEP_ASPECT = 0x80;     // keep the picture's aspect when fitting
constexpr uint32_t KXCONV_COLOR_LIMIT = 0x100;    // limit colours in the YUV stages
constexpr uint32_t KXCONV_ALLOW_FIELDS = 0x200;   // the output's field mode may differ
constexpr uint32_t KXCONV_FIT_WIDTH = 0x400;      // fit to the output's width
constexpr uint32_t KXCONV_FIT_HEIGHT = 0x800;     // fit to the output's height
constexpr uint32_t KXCONV_KEEP_RECT = 0x1000;     // keep the output's bmiRect
constexpr uint32_t KXCONV_FILTER_B = 0x2000;      // the second resampling filter
constexpr uint32_t KXCONV_FIT_COVER = 0x4000;     // cover the output rather than lie within it
constexpr uint32_t KXCONV_OUT_SHARED = 0x10000;   // reported: the result lies in the input buffer
constexpr uint32_t KXCONV_OUT_IDENTITY = 0x20000; // reported: identical formats, nothing done

namespace kelp {

// A conversion stage. Records travel by pointer and are read and written in place: the
// manager rewrites fields of the caller's output record, so that afterwards it
// describes what was really produced. Results are status codes, negative on failure;
// KXE_INVALID is also the answer of a stage that does not apply. Quality is a cost:
// lower is better, and each stage adds its own to *quality.
class KELP_API IConverter {
  public:
    virtual ~IConverter() {}
    virtual void Release() = 0;
    virtual uint32_t GetVersion() = 0; // KXCONV_VERSION
    // Given `in` and the final target of a whole conversion, proposes in *out the format
    // this stage would yield on the way there: a record allocated through `allocator`.
    virtual KXRESULT GetOutputFormat(const KXBMINFOHEADER* in, KXBMINFOHEADER** out,
                                     IAllocator* allocator, const KXBMINFOHEADER* target) = 0;
    // Can this stage read, or write, the format of `desc`? A stage may write into the
    // record what it would make of it: the depth stages write biSizeImage of a format
    // they can produce.
    virtual KXRESULT QueryInput(KXBMINFOHEADER* desc) = 0;
    virtual KXRESULT QueryOutput(KXBMINFOHEADER* desc) = 0;
    // Can this stage go from exactly `in` to exactly `out`? Adds its cost to *quality.
    virtual KXRESULT Query(KXBMINFOHEADER* in, KXBMINFOHEADER* out, uint32_t* flags,
                           int32_t* quality) = 0;
    // Converts. *outData receives a buffer from `allocator`, or inData itself when the
    // stage worked in place (then KXCONV_OUT_SHARED is set). A stage that fails may
    // leave a buffer it allocated in *outData: its caller frees it.
    virtual KXRESULT Convert(KXBMINFOHEADER* in, void* inData, KXBMINFOHEADER* out, void** outData,
                             uint32_t* flags, int32_t* quality, IAllocator* allocator) = 0;
};

// The manager. It owns none of the stages in its list.
class KELP_API IConversionManager : public IConverter {
  public:
    // Copies the process-wide list of built-in stages into this manager. Callers pass
    // (0x10002, 0); the arguments are not read.
    virtual KXRESULT Init(uint32_t version, uint32_t reserved) = 0;
    virtual KXRESULT RemoveAllConverters() = 0;
    virtual KXRESULT AddConverter(IConverter* converter) = 0;
    // The manager's own allocator, where it takes its temporaries from.
    virtual IAllocator* GetAllocator() = 0;
    // The alpha of a 32-bit image as an 8-bit image: record (with a 256-entry colour
    // table) and pixels both allocated through `allocator`.
    virtual KXRESULT ExtractAlpha(const KXBMINFOHEADER* desc, const void* data,
                                  KXBMINFOHEADER** alphaDesc, void** alphaData,
                                  IAllocator* allocator) = 0;
    // Writes an 8-bit image into the alpha bytes of a 32-bit image; the image's alpha
    // becomes KXDIB_ALPHA_VALID.
    virtual KXRESULT InsertAlpha(KXBMINFOHEADER* desc, void* data, const KXBMINFOHEADER* alphaDesc,
                                 const void* alphaData) = 0;
    // Between the Windows form of a header and the full record, both ways.
    virtual KXRESULT BIHToKXBIH(const KXWINBITMAPINFOHEADER* bih, KXBMINFOHEADER** out,
                                IAllocator* allocator) = 0;
    virtual KXRESULT KXBIHToBIH(const KXBMINFOHEADER* kxbih, KXWINBITMAPINFOHEADER** out,
                                IAllocator* allocator) = 0;
};

} // namespace kelp

// A new manager with an empty list (call Init before the first Query or Convert, and
// Release at the end), or null if memory ran out.
extern "C" KELP_API kelp::IConversionManager* KXCONVCreateConversionManager();
