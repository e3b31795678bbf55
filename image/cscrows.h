// Row kernels of the colour conversions that video runs every frame: BGR to and from
// meshed 4:4:4, the BT.601 to BT.709 matrix, 4:2:2 meshed to and from BGR, and UYVY,
// UYVK and YUVK to BGR. Each takes one line; the conversions of CKXCsc step the lines.
//
// The plain loops (suffix _C, cscrows.cpp) read the tables of CKXCsc and define every
// result. The vector forms (cscrows_simd.cpp) give the same bytes: in spaces 0 and 1,
// whose table entries are exact linear functions of their index, they compute the
// entries; in space 2 they read the tables. Forms marked "in place" accept src == dst.
#pragma once

#include <cstdint>

namespace kelp {
namespace cscrows {

// What a row needs of a CKXCsc object. The limit pointers point at the value 0 of
// their tables (indexable from -256 to 511).
struct View {
    const int32_t* rgbYcc; // nine rows of 256
    const int32_t* yY;
    const int32_t* cbB;
    const int32_t* crR;
    const int32_t* crG;
    const int32_t* cbG;
    const uint8_t* limit;  // 0..255
    const uint8_t* limitY; // 16..235
    const uint8_t* limitC; // 16..240 or 44..212
    int space;             // the colour space of the rows: 0, 1 or 2
    int chromaLo, chromaHi;
    int32_t matrix[3][3]; // the 601 to 709 matrix, for the matrix rows only
};

// One line of `pixels` pixels.
typedef void (*RowFn)(const View& v, const uint8_t* src, uint8_t* dst, int32_t pixels);
// One line of meshed 4:2:2 from BGR. `carry` is the luma value that the pair loop
// carries from line to line (see BGRToYUV422Meshed); `filterLuma` smooths luma 1:2:1.
typedef void (*Fwd422Fn)(const View& v, const uint8_t* src, uint8_t* dst, int32_t pixels,
                         int32_t* carry, int filterLuma);

// Index 0 is for 3 bytes a pixel, 1 for 4 (of the BGR side).
struct Kernels {
    const char* name;        // the target's name, SimdTargetName
    RowFn bgrToYuv444[2];    // in place; the fourth byte copied
    RowFn yuv444ToBgr[2];    // in place; the fourth byte copied
    RowFn matrix601To709[2]; // in place; the fourth byte copied
    Fwd422Fn bgrToYuv422[2]; // the fourth byte not written
    RowFn yuv422ToBgr[2];    // `pixels` taken down to pairs; the fourth byte not written
    RowFn uyvyToBgr[2];      // the fourth byte not written
    RowFn uyvkToBgr[2];
    RowFn yuvkToBgr[2];
    RowFn yuvkToBgrPremultiplied[2];
};

const Kernels& PlainKernels();
// The table of a vector target (kelp::SimdTarget); a target not compiled gives the best
// one below it, at worst the plain table.
const Kernels& ForTarget(int target);
// ForTarget(BestSimdTarget()).
const Kernels& Current();
// The vector table of a target, or null where none was compiled (cscrows_simd.cpp).
const Kernels* VectorKernels(int target);

// The plain loops at 3 and 4 bytes a pixel.
template <int PS> void BgrToYuv444_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n);
template <int PS> void Yuv444ToBgr_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n);
template <int PS> void Matrix601To709_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n);
template <int PS>
void BgrToYuv422_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n, int32_t* carry,
                   int filterLuma);
template <int PS> void Yuv422ToBgr_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n);
template <int PS> void UyvyToBgr_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n);
template <int PS> void UyvkToBgr_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n);
template <int PS> void YuvkToBgr_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n);
template <int PS>
void YuvkToBgrPremultiplied_C(const View& v, const uint8_t* src, uint8_t* dst, int32_t n);

// The same loops at any pixel size of the destination (and of the source for 4:2:2).
void Yuv422ToBgrAny(const View& v, const uint8_t* src, uint8_t* dst, int32_t n, int ps);
void UyvyToBgrAny(const View& v, const uint8_t* src, uint8_t* dst, int32_t n, int ps);
void UyvkToBgrAny(const View& v, const uint8_t* src, uint8_t* dst, int32_t n, int ps);
void YuvkToBgrAny(const View& v, const uint8_t* src, uint8_t* dst, int32_t n, int ps,
                  int premultiply);

// One pixel of the inverse: B, G, R into d[0..2].
inline void YuvToBgr(const View& v, int y, int u, int w, uint8_t* d) {
    const int32_t yy = v.yY[y];
    const int32_t b = (v.cbB[u] + yy) >> 16;
    const int32_t g = (v.crG[w] + v.cbG[u] + yy) >> 16;
    const int32_t r = (v.crR[w] + yy) >> 16;
    d[0] = v.limit[b];
    d[1] = v.limit[g];
    d[2] = v.limit[r];
}

// The three raw sums of a BGR pixel.
struct Sums {
    int32_t y, u, v;
};
inline Sums RawSums(const int32_t* t, int b, int g, int r) {
    return {t[r] + t[256 + g] + t[512 + b], t[768 + r] + t[1024 + g] + t[1280 + b],
            t[1536 + r] + t[1792 + g] + t[2048 + b]};
}

} // namespace cscrows
} // namespace kelp
