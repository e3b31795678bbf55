// The toolkit's pixel format translators: whole images between RGB ("RGB " and the
// depth form "RGBz") and YUV ("@YUV" and "YUVz"), and single colours from RGB to YUV.
// Each is one process-wide object, made on first use by its accessor; their tables are
// made on first demand. All of them take the target first, then the source, then a
// field: -1 for all lines, 0 or 1 for every second line from that display line.
#pragma once

#include <atomic>

#include "kelpdefs.h"
#include "mpheap.h"
#include "stdfx_dib.h"

namespace stdfx {

// The constant depth of a plain pixel in the depth forms: the float 0.9987746.
constexpr uint32_t kPlainDepthBits = 0x3F7FAFB1u;

class KELP_API CRGB2YUV : public kelp::CKELPHeapObject {
public:
    static constexpr int kTableSize = 9 * 256;

    CRGB2YUV() = default;
    virtual ~CRGB2YUV();
    // Nine rows of 256: R, G, B to Y; R, G, B to Cb; R, G, B to Cr; in 16.16 fixed point,
    // rounding constants included. Colour space 1 has the full-range table; every other
    // one (BT.709 too) the limited-range table. Null if the table cannot be made.
    virtual const int32_t* GetTable(int colorSpace);
    // A colour 0xAARRGGBB to Y (16..235), U and V (16..240).
    virtual bool RGBToYUV(int* y, int* u, int* v, int colorSpace, uint32_t argb);
    // The same, packed: Y in the low byte, then U, then V, and the colour's top byte.
    virtual bool PackRGBToYUV(uint32_t* yuv, int colorSpace, uint32_t argb);
    virtual bool Convert(CDIB& target, const CDIB& source, int field);
    virtual bool FillTableFull();
    virtual bool FillTableLimited();
    // RGB of up to 32 bits (or its depth form) to 8-bit "@YUV" 4:4:4, 4:2:2 (Y U Y V
    // with sampling 0, U Y V Y with 512) or "YUVz". Images stored as two fields are left
    // alone (true).
    virtual bool ConvertImage(CDIB& target, const CDIB& source, int field);

protected:
    std::atomic<int32_t*> m_pTableFull{nullptr};
    std::atomic<int32_t*> m_pTableLimited{nullptr};
};

class KELP_API CYUV2RGB : public kelp::CKELPHeapObject {
public:
    static constexpr int kTableSize = 5 * 256;

    CYUV2RGB() = default;
    virtual ~CYUV2RGB();
    // Five rows of 256: Y, V to R, U to B, V to G, U to G. Colour space 1 full range,
    // 2 BT.709, every other one BT.601.
    virtual const int32_t* GetTable(int colorSpace);
    virtual bool Convert(CDIB& target, const CDIB& source, int field);
    // 768 entries read from element 256: values -256..511 limited to 0..255.
    virtual const int32_t* GetLimit();
    virtual bool FillLimit();
    virtual bool FillTableFull();
    virtual bool FillTable601();
    virtual bool FillTable709();
    // 8-bit "@YUV" 4:4:4 or 4:2:2, or "YUVz", to RGB of up to 32 bits or "RGBz". The
    // target's fourth byte is 255, and its alpha state premultiplied afterwards.
    virtual bool ConvertImage(CDIB& target, const CDIB& source, int field);

protected:
    std::atomic<int32_t*> m_pLimit{nullptr};
    std::atomic<int32_t*> m_pTableFull{nullptr};
    std::atomic<int32_t*> m_pTable601{nullptr};
    std::atomic<int32_t*> m_pTable709{nullptr};
};

// RGB to RGB: plain rows, or to and from the depth form.
class KELP_API CRGB2RGB : public kelp::CKELPHeapObject {
public:
    virtual ~CRGB2RGB() = default;
    // "RGB " to "RGB ", "RGB " to "RGBz" and back; false for any other pair.
    virtual bool Convert(CDIB& target, const CDIB& source, int field);
    virtual bool ConvertPlain(CDIB& target, const CDIB& source, int field);
    // Each pixel followed by the plain depth.
    virtual bool ConvertToZ(CDIB& target, const CDIB& source, int field);
    // The depth dropped.
    virtual bool ConvertFromZ(CDIB& target, const CDIB& source, int field);
};

// YUV to YUV, the same three forms for "@YUV" and "YUVz", 8-bit on both sides, with
// 4:2:2 and 4:4:4 on either side.
class KELP_API CYUV2YUV : public kelp::CKELPHeapObject {
public:
    virtual ~CYUV2YUV() = default;
    virtual bool Convert(CDIB& target, const CDIB& source, int field);
    virtual bool ConvertPlain(CDIB& target, const CDIB& source, int field);
    virtual bool ConvertToZ(CDIB& target, const CDIB& source, int field);
    virtual bool ConvertFromZ(CDIB& target, const CDIB& source, int field);
};

// The one instance of each; null if it could not be made, or while another thread is
// making it.
KELP_API CRGB2YUV* GetRGB2YUV();
KELP_API CYUV2RGB* GetYUV2RGB();
KELP_API CRGB2RGB* GetRGB2RGB();
KELP_API CYUV2YUV* GetYUV2YUV();

} // namespace stdfx
