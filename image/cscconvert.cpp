// The conversions of CKXCsc and CKXCsc2: line stepping, layouts and the chroma filters.
// The per-pixel work of the frequent conversions is in the row kernels (cscrows.h).
#include <cstddef>
#include <new>

#include "image/cscrows.h"
#include "kelp/kxcsc.h"

namespace kelp {

struct CscAccess {
    static cscrows::View ViewOf(const CKXCsc& c) {
        cscrows::View v{};
        v.rgbYcc = c.m_pRGB_YCC;
        v.yY = c.m_pY_y;
        v.cbB = c.m_pCb_b;
        v.crR = c.m_pCr_r;
        v.crG = c.m_pCr_g;
        v.cbG = c.m_pCb_g;
        v.limit = c.m_pRangeLimit;
        v.limitY = c.m_pRangeLimitY;
        v.limitC = c.m_pRangeLimitC;
        v.space = c.m_pRGB_YCC == CKXCsc::m_RGB_YCC[1]   ? 1
                  : c.m_pRGB_YCC == CKXCsc::m_RGB_YCC[2] ? 2
                                                         : 0;
        const bool limit75 = c.m_pRangeLimitC == CKXCsc::m_RangeLimitC75 + 256;
        v.chromaLo = limit75 ? 44 : 16;
        v.chromaHi = limit75 ? 212 : 240;
        return v;
    }
    static int FilterLuma() { return CKXCsc::m_bFilterLuma; }
};

namespace {

// A filter's line copy with its padding. Small lines stay on the stack; a line wider
// than that (or a pitch wider than its pixels) takes the heap. The size is the larger of
// the designed one and what PadLine writes for the pitch, so that no pitch overruns it.
class LineBuffer {
public:
    LineBuffer(size_t designed, uint32_t pitch, int pad, int n) {
        size_t need = size_t(pitch) + size_t(2 * pad + 2) * size_t(n);
        if (need < designed) need = designed;
        if (need <= sizeof(m_stack)) {
            m_data = m_stack;
        } else {
            m_heap = new (std::nothrow) uint8_t[need];
            m_data = m_heap;
        }
    }
    ~LineBuffer() { delete[] m_heap; }
    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;
    uint8_t* data() const { return m_data; }

private:
    uint8_t m_stack[32768];
    uint8_t* m_heap = nullptr;
    uint8_t* m_data = nullptr;
};

inline size_t Product(int a, uint32_t b) {
    return size_t(uint32_t(a)) * size_t(b);
}

// The two-field planar layout of the 4:2:2 planar conversions: line r's Y, U and V rows.
struct PlanarRows {
    uint8_t* y;
    uint8_t* u;
    uint8_t* v;
};
PlanarRows PlanarLine(uint8_t* dst, int r, int height, size_t ys, size_t cs) {
    const size_t h = size_t(height / 2);
    const size_t g = (ys + 2 * cs) * h;
    const bool even = (r & 1) == 0;
    const size_t f = height <= 512 ? (even ? g : 0) : (even ? 0 : g);
    const size_t half = size_t(r / 2);
    return {dst + f + half * ys, dst + f + h * ys + half * cs, dst + f + h * (ys + cs) + half * cs};
}

} // namespace

int CKXCsc::BGRToYUV444Planar(const uint8_t* src, uint8_t* dst, int width, int height,
                              uint32_t pixelSize, uint32_t pitch) {
    if (height < 1 || width < 1) return 1;
    const cscrows::View v = CscAccess::ViewOf(*this);
    const int ps = pixelSize == 4 ? 4 : 3;
    const size_t plane = Product(width, pitch);
    uint8_t* py = dst;
    uint8_t* pu = dst + plane;
    uint8_t* pv = dst + 2 * plane;
    uint8_t* pa = dst + 3 * plane;
    for (int r = 0; r < height; ++r, src += pitch) {
        const uint8_t* s = src;
        for (int x = 0; x < width; ++x, s += ps) {
            const cscrows::Sums sum = cscrows::RawSums(v.rgbYcc, s[0], s[1], s[2]);
            *py++ = v.limitY[sum.y >> 16];
            *pu++ = v.limitC[sum.u >> 16];
            *pv++ = v.limitC[sum.v >> 16];
            if (ps == 4) *pa++ = s[3];
        }
    }
    return 1;
}

int CKXCsc::BGRToYUV444Meshed(const uint8_t* src, uint8_t* dst, int width, int height,
                              uint32_t pixelSize, uint32_t pitch) {
    if (pixelSize != 3 && pixelSize != 4) return 0;
    if (height < 1 || width < 1) return 1;
    const cscrows::View v = CscAccess::ViewOf(*this);
    const cscrows::RowFn row = cscrows::Current().bgrToYuv444[pixelSize == 4];
    for (int r = 0; r < height; ++r, src += pitch, dst += pitch)
        row(v, src, dst, width);
    return 1;
}

// `image` holds the planes and takes the pixels; the pixels run over the Y plane as they
// are written, and the table's base steps on with the line gap, as the write pointer does.
int CKXCsc::YUV444PlanarToBGR(const uint8_t* table, uint8_t* image, int width, int height,
                              uint32_t pixelSize, uint32_t pitch) {
    if (height < 1 || width < 1) return 1;
    const cscrows::View v = CscAccess::ViewOf(*this);
    const int ps = pixelSize == 4 ? 4 : 3;
    const size_t plane = Product(width, pitch);
    const ptrdiff_t gap = ptrdiff_t(pitch) - ptrdiff_t(width) * ps;
    size_t in = 0;
    uint8_t* out = image;
    const uint8_t* tb = table;
    for (int r = 0; r < height; ++r) {
        for (int x = 0; x < width; ++x, ++in, out += ps) {
            const int y = image[in];
            const int u = tb[image[plane + in]];
            const int w = tb[image[2 * plane + in]];
            const uint8_t a = ps == 4 ? image[3 * plane + in] : 0;
            cscrows::YuvToBgr(v, y, u, w, out);
            if (ps == 4) out[3] = a;
        }
        out += gap;
        tb += gap;
    }
    return 1;
}

int CKXCsc::YUV444MeshedToBGR(const uint8_t* src, uint8_t* dst, int width, int height,
                              uint32_t pixelSize, uint32_t pitch) {
    if (pixelSize != 3 && pixelSize != 4) return 0;
    if (height < 1 || width < 1) return 1;
    const cscrows::View v = CscAccess::ViewOf(*this);
    const cscrows::RowFn row = cscrows::Current().yuv444ToBgr[pixelSize == 4];
    for (int r = 0; r < height; ++r, src += pitch, dst += pitch)
        row(v, src, dst, width);
    return 1;
}

// The BT.601 matrix from YCbCr to RGB and the BT.709 matrix from RGB to YCbCr, whose
// product, rounded product by product, takes 601 straight to 709.
static const double k601ToRgb[3][3] = {{1.1636363636363636, 0, 1.595392},
                                       {1.1636363636363636, -0.393216, -0.8129422222222222},
                                       {1.1636363636363636, 2.015004444444444, 0}};
static const double kRgbTo709[3][3] = {{0.18270312500000002, 0.614625, 0.062046875},
                                       {-0.10072265625, -0.33873046875, 0.439453125},
                                       {0.439453125, -0.39919921875, -0.04025390625}};

int CKXCsc::YUV444MeshedToYUV444(const uint8_t* src, uint8_t* dst, int width, int height,
                                 uint32_t pixelSize, uint32_t pitch, ColorSpace from,
                                 ColorSpace to) {
    if (pixelSize != 3 && pixelSize != 4) return 0;
    if (height < 1 || width < 1) return 1;
    if (from == to) {
        if (src != dst) std::memcpy(dst, src, Product(width, pitch) * size_t(uint32_t(height)));
        return 1;
    }
    if (from == CS_ITU709) {
        if (to != CS_CCIR601) return 0;
        Init(CS_ITU709);
        YUV444MeshedToBGR(src, dst, width, height, pixelSize, pitch);
        Init(CS_CCIR601);
        BGRToYUV444Meshed(dst, dst, width, height, pixelSize, pitch);
        return 1;
    }
    if (from != CS_CCIR601 || to != CS_ITU709) return 0;
    cscrows::View v = CscAccess::ViewOf(*this);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            int32_t m = 0;
            for (int k = 0; k < 3; ++k)
                m += int32_t(kRgbTo709[i][k] * k601ToRgb[k][j] * 65536 + 0.5);
            v.matrix[i][j] = m;
        }
    const cscrows::RowFn row = cscrows::Current().matrix601To709[pixelSize == 4];
    for (int r = 0; r < height; ++r, src += pitch, dst += pitch)
        row(v, src, dst, width);
    return 1;
}

int CKXCsc::BGRToYUV422Meshed(const uint8_t* src, uint8_t* dst, int width, int height,
                              uint32_t pixelSize, uint32_t pitch, int) {
    if (pixelSize != 3 && pixelSize != 4) return 0;
    if (height < 1 || width < 1) return 1;
    const cscrows::View v = CscAccess::ViewOf(*this);
    const cscrows::Fwd422Fn row = cscrows::Current().bgrToYuv422[pixelSize == 4];
    const int filterLuma = CscAccess::FilterLuma();
    // At 4 bytes lines follow one another without gap; at 3 the gap (pitch less the
    // width's bytes) follows the pairs.
    const ptrdiff_t step =
        pixelSize == 4 ? ptrdiff_t(width & ~1) * 4 : ptrdiff_t(pitch) - ptrdiff_t(width & 1) * 3;
    int32_t carry = 0;
    for (int r = 0; r < height; ++r, src += step, dst += step)
        row(v, src, dst, width, &carry, filterLuma);
    return 1;
}

int CKXCsc::YUV422MeshedToBGR(const uint8_t* src, uint8_t* dst, int width, int height,
                              uint32_t pixelSize, uint32_t pitch, int) {
    // 17 is a reserved size whose route computes and writes nothing.
    if (height < 1 || width < 1 || pixelSize == 17) return 1;
    const cscrows::View v = CscAccess::ViewOf(*this);
    const cscrows::Kernels& k = cscrows::Current();
    for (int r = 0; r < height; ++r, src += pitch, dst += pitch) {
        if (pixelSize == 3 || pixelSize == 4)
            k.yuv422ToBgr[pixelSize == 4](v, src, dst, width);
        else
            cscrows::Yuv422ToBgrAny(v, src, dst, width, int(pixelSize));
    }
    return 1;
}

namespace {

// 4:4:4 to 4:2:2 meshed with the decimating filter of pixel size PS.
template <int PS>
int Meshed444To422(const cscrows::View& v, int filterLuma, const uint8_t* src, uint8_t* dst,
                   int width, int height, uint32_t pitch) {
    const CDecFilter<PS> f;
    LineBuffer buf(size_t(width + 3) * PS, pitch, 1, PS);
    if (!buf.data()) return 0;
    for (int r = 0; r < height; ++r, src += pitch, dst += pitch) {
        const uint8_t* c = f.PadLine(src, buf.data(), 1, pitch);
        for (int k = 0; k < width / 2; ++k) {
            const int e = 2 * k * PS;
            if (filterLuma) {
                dst[e] = v.limitY[uint8_t(f.FilterShort(c + e))];
                dst[e + PS] = v.limitY[uint8_t(f.FilterShort(c + e + PS))];
            } else {
                dst[e] = v.limitY[src[e]];
                dst[e + PS] = v.limitY[src[e + PS]];
            }
            dst[e + 1] = v.limitC[uint8_t(f.FilterShort(c + e + 1))];
            dst[e + 2] = v.limitC[uint8_t(f.FilterShort(c + e + 2))];
        }
    }
    return 1;
}

// The chroma of every fourth pixel from `first` on, by the adaptive filter F along every
// second pixel (N = 2 pixel sizes), PadLine with 7 elements.
template <class F, int PS>
int AdaptiveChroma(const uint8_t* src, uint8_t* dst, int width, int height, uint32_t pitch,
                   size_t designed, int first) {
    const F f;
    LineBuffer buf(designed, pitch, 7, 2 * PS);
    if (!buf.data()) return 0;
    for (int r = 0; r < height; ++r, src += pitch, dst += pitch) {
        const uint8_t* c = f.PadLine(src, buf.data(), 7, pitch) + first * PS;
        uint8_t* d = dst + first * PS;
        int su = 0, sv = 0;
        for (int g = 0; g < width / 4; ++g, c += 4 * PS, d += 4 * PS) {
            d[1] = uint8_t(f.FilterAdaptive(c + 1, &su));
            d[2] = uint8_t(f.FilterAdaptive(c + 2, &sv));
        }
    }
    return 1;
}

// The chroma of odd pixels by the short form of filter F of pixel size PS.
template <class F, int PS>
int OddChroma(const uint8_t* src, uint8_t* dst, int width, int height, uint32_t pitch) {
    const F f;
    LineBuffer buf(size_t(width + 6) * PS, pitch, 1, PS);
    if (!buf.data()) return 0;
    for (int r = 0; r < height; ++r, src += pitch, dst += pitch) {
        const uint8_t* c = f.PadLine(src, buf.data(), 1, pitch) + PS;
        uint8_t* d = dst + PS;
        for (int k = 0; k < width / 2; ++k, c += 2 * PS, d += 2 * PS) {
            d[1] = uint8_t(f.FilterShort(c + 1));
            d[2] = uint8_t(f.FilterShort(c + 2));
        }
    }
    return 1;
}

} // namespace

int CKXCsc::YUV444MeshedToYUV422Meshed(const uint8_t* src, uint8_t* dst, int width, int height,
                                       uint32_t pixelSize, uint32_t pitch, int) {
    if (height < 1 || width < 1) return 1;
    const cscrows::View v = CscAccess::ViewOf(*this);
    const int fl = CscAccess::FilterLuma();
    return pixelSize == 4 ? Meshed444To422<4>(v, fl, src, dst, width, height, pitch)
                          : Meshed444To422<3>(v, fl, src, dst, width, height, pitch);
}

int CKXCsc::YUV411MeshedToYUV422Meshed(const uint8_t* src, uint8_t* dst, int width, int height,
                                       uint32_t pixelSize, uint32_t pitch) {
    if (height < 1 || width < 1) return 1;
    const size_t designed = size_t(width + 60) * (pixelSize == 4 ? 4 : 3);
    return pixelSize == 4
               ? AdaptiveChroma<CInpFilter<8>, 4>(src, dst, width, height, pitch, designed, 2)
               : AdaptiveChroma<CInpFilter<6>, 3>(src, dst, width, height, pitch, designed, 2);
}

int CKXCsc::YUV422MeshedToYUV444Meshed(const uint8_t* src, uint8_t* dst, int width, int height,
                                       uint32_t pixelSize, uint32_t pitch, int filterMode) {
    if (height < 1 || width < 1) return 1;
    if (pixelSize == 4)
        return filterMode ? OddChroma<CDecFilter<4>, 4>(src, dst, width, height, pitch)
                          : OddChroma<CInpFilter<4>, 4>(src, dst, width, height, pitch);
    return filterMode ? OddChroma<CDecFilter<3>, 3>(src, dst, width, height, pitch)
                      : OddChroma<CInpFilter<3>, 3>(src, dst, width, height, pitch);
}

int CKXCsc::YUV422MeshedToYUV411Meshed(const uint8_t* src, uint8_t* dst, int width, int height,
                                       uint32_t pixelSize, uint32_t pitch) {
    if (height < 1 || width < 1) return 1;
    const size_t designed = size_t(width + 30) * (pixelSize == 4 ? 4 : 3);
    return pixelSize == 4
               ? AdaptiveChroma<CDecFilter<8>, 4>(src, dst, width, height, pitch, designed, 0)
               : AdaptiveChroma<CDecFilter<6>, 3>(src, dst, width, height, pitch, designed, 0);
}

// The source is read from its last line on, 8 bytes a pair, and runs on across lines
// with no line step; the caller gives a source laid out for that.
int CKXCsc2::BGRToYUV422Planar(const uint8_t* src, uint8_t* dst, int width, int height,
                               uint32_t pixelSize, uint32_t pitch, int) {
    if (pixelSize != 4) return 0;
    if (height < 1 || width < 1) return 1;
    const cscrows::View v = CscAccess::ViewOf(*this);
    const cscrows::Fwd422Fn row = cscrows::Current().bgrToYuv422[1];
    const int filterLuma = CscAccess::FilterLuma();
    const size_t ys = size_t((width + 61) & ~63);
    const size_t cs = size_t(((width - 2) / 2 + 63) & ~63);
    const int pairs = width / 2;
    LineBuffer line(size_t(pairs) * 8, 0, 0, 0);
    if (!line.data()) return 0;
    const uint8_t* s = src + Product(height - 1, pitch);
    int32_t carry = 0;
    for (int r = 0; r < height; ++r, s += size_t(pairs) * 8) {
        row(v, s, line.data(), width, &carry, filterLuma);
        const PlanarRows out = PlanarLine(dst, r, height, ys, cs);
        const uint8_t* p = line.data();
        for (int k = 0; k < pairs; ++k, p += 8) {
            out.y[2 * k] = p[0];
            out.y[2 * k + 1] = p[4];
            out.u[k] = p[1];
            out.v[k] = p[2];
        }
    }
    return 1;
}

namespace {

template <int PS>
int Meshed444ToPlanar422(const cscrows::View& v, int filterLuma, const uint8_t* src, uint8_t* dst,
                         int width, int height, uint32_t pitch, int byteOrder) {
    const CDecFilter<PS> f;
    LineBuffer buf(size_t(width + 3) * PS, pitch, 1, PS);
    if (!buf.data()) return 0;
    const int yb = byteOrder ? 0 : 3, ub = byteOrder ? 1 : 2, vb = byteOrder ? 2 : 1;
    const size_t ys = size_t((width + 63) & ~63);
    const size_t cs = size_t((width / 2 + 63) & ~63);
    const uint8_t* s = src + Product(height - 1, pitch);
    for (int r = 0; r < height; ++r, s -= pitch) {
        const uint8_t* c = f.PadLine(s, buf.data(), 1, pitch);
        const PlanarRows out = PlanarLine(dst, r, height, ys, cs);
        for (int k = 0; k < width / 2; ++k) {
            const uint8_t* e = c + 2 * k * PS;
            out.u[k] = v.limitC[uint8_t(f.FilterShort(e + ub))];
            out.v[k] = v.limitC[uint8_t(f.FilterShort(e + vb))];
            if (filterLuma) {
                out.y[2 * k] = v.limitY[uint8_t(f.FilterShort(e + yb))];
                out.y[2 * k + 1] = v.limitY[uint8_t(f.FilterShort(e + PS + yb))];
            } else {
                out.y[2 * k] = e[yb];
                out.y[2 * k + 1] = e[PS + yb];
            }
        }
    }
    return 1;
}

} // namespace

int CKXCsc2::YUV444MeshedToYUV422Planar(const uint8_t* src, uint8_t* dst, int width, int height,
                                        uint32_t pixelSize, uint32_t pitch, int byteOrder) {
    if (height < 1 || width < 1) return 1;
    const cscrows::View v = CscAccess::ViewOf(*this);
    const int fl = CscAccess::FilterLuma();
    return pixelSize == 4
               ? Meshed444ToPlanar422<4>(v, fl, src, dst, width, height, pitch, byteOrder)
               : Meshed444ToPlanar422<3>(v, fl, src, dst, width, height, pitch, byteOrder);
}

int CKXCsc2::UYVYToBGR(const uint8_t* src, uint8_t* dst, int width, int height, uint32_t pixelSize,
                       uint32_t pitch) {
    if (height < 1 || width < 1) return 1;
    const cscrows::View v = CscAccess::ViewOf(*this);
    const cscrows::Kernels& k = cscrows::Current();
    for (int r = 0; r < height; ++r, src += size_t(width) * 2, dst += pitch) {
        if (pixelSize == 3 || pixelSize == 4)
            k.uyvyToBgr[pixelSize == 4](v, src, dst, width);
        else
            cscrows::UyvyToBgrAny(v, src, dst, width, int(pixelSize));
    }
    return 1;
}

namespace {

// Lines of 4-byte source pixels; a pitch of 0 on either side means no gap.
template <class Fast, class Any>
void FourByteLines(const uint8_t* src, uint8_t* dst, int width, int height, uint32_t pixelSize,
                   uint32_t pitch, int srcPitch, Fast fast, Any any) {
    const ptrdiff_t srcStep = srcPitch ? ptrdiff_t(srcPitch) : ptrdiff_t(width) * 4;
    const ptrdiff_t dstStep = pitch ? ptrdiff_t(pitch) : ptrdiff_t(width) * ptrdiff_t(pixelSize);
    for (int r = 0; r < height; ++r, src += srcStep, dst += dstStep) {
        if (pixelSize == 3 || pixelSize == 4)
            fast(pixelSize == 4, src, dst);
        else
            any(src, dst);
    }
}

} // namespace

int CKXCsc2::UYVKToBGR(const uint8_t* src, uint8_t* dst, int width, int height, uint32_t pixelSize,
                       uint32_t pitch, int srcPitch) {
    if (height < 1 || width < 1) return 1;
    const cscrows::View v = CscAccess::ViewOf(*this);
    const cscrows::Kernels& k = cscrows::Current();
    FourByteLines(
        src, dst, width, height, pixelSize, pitch, srcPitch,
        [&](bool four, const uint8_t* s, uint8_t* d) { k.uyvkToBgr[four](v, s, d, width); },
        [&](const uint8_t* s, uint8_t* d) {
            cscrows::UyvkToBgrAny(v, s, d, width, int(pixelSize));
        });
    return 1;
}

int CKXCsc2::YUVKToBGR(const uint8_t* src, uint8_t* dst, int width, int height, uint32_t pixelSize,
                       uint32_t pitch, int srcPitch, int premultiply) {
    if (height < 1 || width < 1) return 1;
    const cscrows::View v = CscAccess::ViewOf(*this);
    const cscrows::Kernels& k = cscrows::Current();
    FourByteLines(
        src, dst, width, height, pixelSize, pitch, srcPitch,
        [&](bool four, const uint8_t* s, uint8_t* d) {
            (premultiply ? k.yuvkToBgrPremultiplied : k.yuvkToBgr)[four](v, s, d, width);
        },
        [&](const uint8_t* s, uint8_t* d) {
            cscrows::YuvkToBgrAny(v, s, d, width, int(pixelSize), premultiply);
        });
    return 1;
}

} // namespace kelp
