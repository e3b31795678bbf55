// Table-driven colour conversion between BGR and the YUV layouts, in three colour spaces.
//
// CKXCsc holds a view on process-wide tables (16 fractional bits) that the first Init
// fills; Init selects the colour space, ColorLimit the chroma range of its output. The
// conversions take whole images: source, destination, width in pixels, height in
// lines, bytes per pixel and the pitch (bytes from one line to the next). They answer 1
// on success and 0 for a pixel size they refuse; a height below 1 does nothing and
// answers 1. They trust their caller: no pointer or size is checked.
//
// The filters CDecFilter<N> (decimating low-pass) and CInpFilter<N> (half-position
// interpolator) resample chroma inside the 4:2:2 and 4:1:1 conversions; N is the
// distance in bytes between two samples of one component.
#pragma once

#include <cstdint>
#include <cstring>

#include "kelpdefs.h"

namespace kelp {

struct CscAccess; // the library's own reach into the view (image/cscconvert.cpp)

class KELP_API CKXCsc {
    friend struct CscAccess;

public:
    // Also the first index of every table.
    enum ColorSpace {
        CS_CCIR601 = 0,    // limited-range BT.601
        CS_Normalized = 1, // full-range BT.601
        CS_ITU709 = 2,     // limited-range BT.709
    };

    // Clears the range-limit pointer and the table pointers; the luma and chroma limits
    // stay unset until Init.
    CKXCsc();
    virtual ~CKXCsc();
    CKXCsc(const CKXCsc&) = default;
    CKXCsc& operator=(const CKXCsc&) = default;

    // Fills the tables at the first call in the process, then points this object at the
    // rows of `space` (any value not in the enumeration counts as CS_CCIR601) and at the
    // 100 % chroma limit. Always 1.
    virtual int Init(ColorSpace space);
    // Nothing to do; kept beside Init.
    virtual void End();
    // Non-zero: chroma limited to 44..212 (75 %); zero: 16..240. Call after Init.
    virtual void ColorLimit(int limit75);

    // ---- Conversions. Layouts, by bytes of one pixel in memory order:
    // BGR: B, G, R (+ alpha at 4 bytes); YUV444 meshed: Y, U, V (+ alpha); YUV422 and
    // YUV411 meshed: as 4:4:4 with chroma meaningful on every second or fourth pixel.

    // Planes Y, U, V (and alpha with 4 bytes a pixel) at multiples of width * pitch in
    // `dst`, each plane's lines packed at `width` bytes. Any size other than 4 acts as 3.
    int BGRToYUV444Planar(const uint8_t* src, uint8_t* dst, int width, int height,
                          uint32_t pixelSize, uint32_t pitch);
    // Pixel sizes 3 and 4; may run in place (the fourth byte then stays).
    int BGRToYUV444Meshed(const uint8_t* src, uint8_t* dst, int width, int height,
                          uint32_t pixelSize, uint32_t pitch);
    // Reads the planes of BGRToYUV444Planar from `image` and writes the BGR pixels over
    // the same buffer from its start; every U and V sample is first mapped through the
    // 256-byte `table`.
    int YUV444PlanarToBGR(const uint8_t* table, uint8_t* image, int width, int height,
                          uint32_t pixelSize, uint32_t pitch);
    // Pixel sizes 3 and 4; may run in place.
    int YUV444MeshedToBGR(const uint8_t* src, uint8_t* dst, int width, int height,
                          uint32_t pixelSize, uint32_t pitch);
    // Same space: a copy of width * height * pitch bytes (nothing in place). 709 to 601
    // goes through BGR and leaves this object on CS_CCIR601; 601 to 709 by a direct
    // integer matrix. Other pairs answer 0.
    int YUV444MeshedToYUV444(const uint8_t* src, uint8_t* dst, int width, int height,
                             uint32_t pixelSize, uint32_t pitch, ColorSpace from, ColorSpace to);
    // Chroma filtered 1:2:1 onto even pixels; odd pixels keep their own.
    int BGRToYUV422Meshed(const uint8_t* src, uint8_t* dst, int width, int height,
                          uint32_t pixelSize, uint32_t pitch, int unused);
    // Odd pixels take the mean chroma of their neighbours. Pixel size 17 computes and
    // writes nothing.
    int YUV422MeshedToBGR(const uint8_t* src, uint8_t* dst, int width, int height,
                          uint32_t pixelSize, uint32_t pitch, int unused);
    // Writes Y of both pixels and the filtered chroma of even pixels only.
    int YUV444MeshedToYUV422Meshed(const uint8_t* src, uint8_t* dst, int width, int height,
                                   uint32_t pixelSize, uint32_t pitch, int unused);
    // Fills in the chroma of pixels 2, 6, 10, ... of an image already in `dst`.
    int YUV411MeshedToYUV422Meshed(const uint8_t* src, uint8_t* dst, int width, int height,
                                   uint32_t pixelSize, uint32_t pitch);
    // Fills in the chroma of odd pixels; `filterMode` 0 interpolates, else decimates.
    int YUV422MeshedToYUV444Meshed(const uint8_t* src, uint8_t* dst, int width, int height,
                                   uint32_t pixelSize, uint32_t pitch, int filterMode);
    // Writes the chroma of pixels 0, 4, 8, ... only.
    int YUV422MeshedToYUV411Meshed(const uint8_t* src, uint8_t* dst, int width, int height,
                                   uint32_t pixelSize, uint32_t pitch);

protected:
    static int FillTablesCCIR601();
    static int FillTablesITU709();
    static int FillTablesNormalized();
    static int FillRangeLimit();

    // Nine rows of 256 16.16 entries for each space (R, G, B to Y; to Cb; to Cr), the
    // last entry of each space spare.
    static int32_t m_RGB_YCC[3][2305];
    static int32_t m_Y_y_tab[3][256];
    static int32_t m_Cb_g_tab[3][256];
    static int32_t m_Cr_g_tab[3][256];
    static int32_t m_Cb_b_tab[3][256];
    static int32_t m_Cr_r_tab[3][256];
    // Indexed by value + 256: clamps to 0..255, 16..235, 16..240, 44..212. The entries
    // for -256 and 511 are never written and stay 0. Each table stands in a block of
    // m_RangeStore with 256 entries on both sides that hold its bounds, because the
    // inverse sums of the extreme corners reach -271 and 546.
    static uint8_t m_RangeStore[4][1280];
    static uint8_t* const m_RangeLimit;
    static uint8_t* const m_RangeLimitY;
    static uint8_t* const m_RangeLimitC100;
    static uint8_t* const m_RangeLimitC75;
    static int m_bFilled;
    static int m_bFilterLuma;

    // The view of this object: limit tables at their element 256, rows of one space.
    const uint8_t* m_pRangeLimit;
    const uint8_t* m_pRangeLimitY;
    const uint8_t* m_pRangeLimitC;
    const int32_t* m_pCr_r;
    const int32_t* m_pCb_b;
    const int32_t* m_pCr_g;
    const int32_t* m_pCb_g;
    const int32_t* m_pY_y;
    const int32_t* m_pRGB_YCC;
};

// Conversions used by the host application only.
class KELP_API CKXCsc2 : public CKXCsc {
public:
    // Pixel size 4 only. Two-field planar 4:2:2; the source is read from its last line
    // on, 8 bytes a pair, with no step between lines.
    int BGRToYUV422Planar(const uint8_t* src, uint8_t* dst, int width, int height,
                          uint32_t pixelSize, uint32_t pitch, int unused);
    // Two-field planar 4:2:2 from meshed 4:4:4; `byteOrder` 0 reads Y, U, V at bytes 3,
    // 2, 1 of a pixel, non-zero at bytes 0, 1, 2.
    int YUV444MeshedToYUV422Planar(const uint8_t* src, uint8_t* dst, int width, int height,
                                   uint32_t pixelSize, uint32_t pitch, int byteOrder);
    // U, Y0, V, Y1 for two pixels; the source lines are width * 2 bytes without gap.
    // Pixel size and pitch are the destination's.
    int UYVYToBGR(const uint8_t* src, uint8_t* dst, int width, int height, uint32_t pixelSize,
                  uint32_t pitch);
    // U, Y, V, K per pixel (K ignored). A pitch of 0 means lines without gap.
    int UYVKToBGR(const uint8_t* src, uint8_t* dst, int width, int height, uint32_t pixelSize,
                  uint32_t pitch, int srcPitch);
    // Y, U, V, K per pixel; with `premultiply` the colour is scaled by K / 255.
    int YUVKToBGR(const uint8_t* src, uint8_t* dst, int width, int height, uint32_t pixelSize,
                  uint32_t pitch, int srcPitch, int premultiply);
};

// ---- Chroma filters. p[k] is the byte at p + k * N; results are integers that may
// fall outside 0..255 (the caller keeps the low byte or limits them).
class IFilter {
public:
    virtual ~IFilter() = default;
    virtual int FilterLong(const uint8_t* p) const = 0;
    virtual int FilterShort(const uint8_t* p) const = 0;
    // Long filter where the detail around p has been high for some samples, short
    // where it is smooth; `state` (one per component and line, starting at 0) keeps the
    // hysteresis.
    virtual int FilterAdaptive(const uint8_t* p, int* state) const = 0;
    // Copies `size` bytes of `line` into `buffer` with `pad` elements of N bytes of
    // padding on both sides; gives the address of the copy.
    virtual uint8_t* PadLine(const uint8_t* line, uint8_t* buffer, int pad,
                             uint32_t size) const = 0;
};

namespace cscfilter {
// Hysteresis of the adaptive choice: rises while the activity is above 16 up to 15,
// falls otherwise (so at 15 it always falls back to 14); long filter above 8.
inline bool StepAdaptive(int activity, int* state) {
    if (activity > 16 && *state < 15)
        ++*state;
    else if (*state != 0)
        --*state;
    return *state > 8;
}
inline int Abs(int v) {
    return v < 0 ? -v : v;
}
} // namespace cscfilter

template <int N> class CDecFilter : public IFilter {
public:
    int FilterLong(const uint8_t* p) const override {
        return (16 * p[0] + 10 * (p[-N] + p[N]) - 3 * (p[-3 * N] + p[3 * N]) +
                2 * (p[-5 * N] + p[5 * N]) - (p[-7 * N] + p[7 * N]) + 16) >>
               5;
    }
    int FilterShort(const uint8_t* p) const override { return (p[-N] + 2 * p[0] + p[N] + 2) >> 2; }
    int FilterAdaptive(const uint8_t* p, int* state) const override {
        const int activity = cscfilter::Abs(p[-2 * N] - p[-N]) + cscfilter::Abs(p[-N] - p[0]) +
                             cscfilter::Abs(p[0] - p[N]) + cscfilter::Abs(p[N] - p[2 * N]);
        return cscfilter::StepAdaptive(activity, state) ? FilterLong(p) : FilterShort(p);
    }
    // The copy at buffer + pad * N, `pad` copies of the first element ahead of it and of
    // the last element (that of `size`, not of the image width) behind it.
    uint8_t* PadLine(const uint8_t* line, uint8_t* buffer, int pad, uint32_t size) const override {
        uint8_t* copy = buffer + pad * N;
        std::memcpy(copy, line, size);
        const uint8_t* last = copy + size - N;
        for (int i = 0; i < pad; ++i) {
            std::memcpy(buffer + i * N, copy, N);
            std::memcpy(copy + size + i * N, last, N);
        }
        return copy;
    }
};

template <int N> class CInpFilter : public IFilter {
public:
    int FilterLong(const uint8_t* p) const override {
        return (10 * (p[-N] + p[N]) - 3 * (p[-3 * N] + p[3 * N]) + 2 * (p[-5 * N] + p[5 * N]) -
                (p[-7 * N] + p[7 * N]) + 8) >>
               4;
    }
    int FilterShort(const uint8_t* p) const override { return (p[-N] + p[N] + 1) >> 1; }
    int FilterAdaptive(const uint8_t* p, int* state) const override {
        const int activity = cscfilter::Abs(p[-3 * N] - p[-N]) + cscfilter::Abs(p[3 * N] - p[N]);
        return cscfilter::StepAdaptive(activity, state) ? FilterLong(p) : FilterShort(p);
    }
    // The copy at buffer + pad * N + N. Behind it `pad` elements of zero, then the
    // element at end - 2N repeated on every second element from the end on; ahead of
    // it pad + 1 elements of zero, then the first element repeated on every second
    // element backwards from line - 2N; ((pad - 1) >> 1) + 1 times each.
    uint8_t* PadLine(const uint8_t* line, uint8_t* buffer, int pad, uint32_t size) const override {
        uint8_t* copy = buffer + pad * N + N;
        std::memset(buffer, 0, size_t(pad) * N + N);
        std::memcpy(copy, line, size);
        uint8_t* end = copy + size;
        std::memset(end, 0, size_t(pad) * N);
        const int repeats = ((pad - 1) >> 1) + 1;
        const uint8_t* tail = end - 2 * N;
        for (int i = 0; i < repeats; ++i) {
            std::memcpy(end + 2 * i * N, tail, N);
            std::memcpy(copy - 2 * N - 2 * i * N, copy, N);
        }
        return copy;
    }
};

} // namespace kelp
