// The compositor: one CDIB blended into another, in place in the destination, by one of
// twenty blend modes chosen when the object is made. Pixels are premultiplied: 32-bit
// BGRA, meshed Y U V A (4:4:4), and the depth forms "RGBz" / "YUVz" (four bytes of
// colour and alpha, then a float depth; the smaller depth is in front).
//
// Mode 1 lays the source over the destination. Modes 2 to 12 are separable blends of
// each colour byte, 13 to 16 mix hue, saturation and lightness of the two pixels, and
// 17 to 20 are mattes (the source shows through the destination's alpha or luma, or
// their inverse). The library keeps only the numbers; the tool's `compose --list` gives
// the names people know them by.
//
// Every blend needs both images at 32 bits and answers false otherwise, with nothing
// changed. A field of -1 works on every line; 0 or 1 on every second line only.
#pragma once

#include <cstdint>

#include "kelpdefs.h"
#include "stdfx_dib.h"

namespace stdfx {

class KELP_API CDibCompose {
public:
    static constexpr uint32_t kModes = 20;

    // `mode` picks the blend of Compose and ComposeYUV, and of the farther pixel in
    // depth compositing; `second` the blend used there when the source is nearer.
    CDibCompose(uint32_t mode, uint32_t second) : m_uMode(mode), m_uSecond(second) {}

    // ---- virtual operations, in slot order
    virtual ~CDibCompose() = default;

    // The source placed in the middle of the destination (offset half the difference
    // of the sizes, truncated), clipped to the image and to the optional rectangle
    // `rect` (left, top, right, bottom; top counted from the top line), laid over it:
    // each byte := source + mul(destination, 255 - source alpha).
    virtual bool ComposeOver(CDIB& dst, const CDIB& src, const int32_t* rect, int field);

    // The RGB blends. `a` is not read. The destination and the source are walked by
    // memory line from their first pixel, over the smaller width and height.
    virtual bool ComposeMode2(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode3(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode4(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode5(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode6(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode7(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode8(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode9(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode10(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode11(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode12(CDIB& dst, const CDIB& src, int a, int field);
    // Modes 13 to 16, by this object's mode; false for any other mode.
    virtual bool ComposeModeHSL(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode17(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode18(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode19(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode20(CDIB& dst, const CDIB& src, int a, int field);

    // The same for meshed Y U V A pixels (video range: Y 16..235, chroma about 128).
    virtual bool ComposeOverYUV(CDIB& dst, const CDIB& src, const int32_t* rect, int field);
    // Modes 2 to 16 convert both pixels to RGB, blend, and convert back.
    virtual bool ComposeMode2YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode3YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode4YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode5YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode6YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode7YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode8YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode9YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode10YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode11YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode12YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeModeHSLYUV(CDIB& dst, const CDIB& src, int a, int field);
    // The mattes work on Y, U and V directly.
    virtual bool ComposeMode17YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode18YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode19YUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeMode20YUV(CDIB& dst, const CDIB& src, int a, int field);

    // Depth compositing of "RGBz" pixels: the nearer pixel over the farther one; the
    // larger depth is kept.
    virtual bool ComposeDepth(CDIB& dst, const CDIB& src, int a, int field);
    // The same with blend modes: `second` where the source is nearer, `mode` where the
    // destination is (or the depths are equal), the farther pixel in the source's role.
    virtual bool ComposeDepthModes(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeDepthYUV(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeDepthModesYUV(CDIB& dst, const CDIB& src, int a, int field);

    // Dispatch by mode (1 to 20); false for any other.
    virtual bool Compose(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeYUV(CDIB& dst, const CDIB& src, int a, int field);
    // ComposeDepth when mode and second are both 0, else ComposeDepthModes.
    virtual bool ComposeZ(CDIB& dst, const CDIB& src, int a, int field);
    virtual bool ComposeZYUV(CDIB& dst, const CDIB& src, int a, int field);

    uint32_t Mode() const { return m_uMode; }
    uint32_t Second() const { return m_uSecond; }

protected:
    uint32_t m_uMode;
    uint32_t m_uSecond;
};

} // namespace stdfx
