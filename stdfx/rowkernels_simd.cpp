// Vector forms of the toolkit's row kernels, written once and compiled for every vector
// target.
//
// The colour steps work on 32-bit lanes, one pixel each. With linear tables
// (t[i] = t[0] + f i in every row) the plain loop's sum of table entries is, term by
// term, f_r r + f_g g + f_b b + (t_r[0] + t_g[0] + t_b[0]) in the same 32-bit
// arithmetic, and a standard clamp or limit table read at an index is a Min and Max of
// the index, so the vector forms give the plain loop's bytes. Where the tables are not
// linear (the BT.709 table of CYUV2RGB) the translators ask for the plain loop.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stdfx/rowkernels_simd.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include <cstring>

#include "runtime/simd.h"
#include "stdfx/rowkernels.h"

HWY_BEFORE_NAMESPACE();
namespace stdfx {
namespace rowkernels {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS

namespace hn = hwy::HWY_NAMESPACE;
using D8 = hn::ScalableTag<uint8_t>;
using D32 = hn::ScalableTag<uint32_t>;
using DI32 = hn::ScalableTag<int32_t>;
using VI32 = hn::Vec<DI32>;

constexpr int32_t kBytes = int32_t(hn::MaxLanes(D8()));  // bytes of one vector
constexpr int32_t kBlock = int32_t(hn::MaxLanes(D32())); // pixels of one vector

// Whole vectors only: `bytes` is a multiple of kBytes.
void Copy(uint8_t* dst, const uint8_t* src, size_t bytes) {
    const D8 d8;
    for (size_t i = 0; i < bytes; i += kBytes)
        hn::StoreU(hn::LoadU(d8, src + i), d8, dst + i);
}

void CopyAny(uint8_t* dst, const uint8_t* src, size_t bytes) {
    const size_t n = bytes - bytes % kBytes;
    if (n) Copy(dst, src, n);
    if (bytes > n) Copy_C(dst + n, src + n, bytes - n);
}

// Whole vectors only: `words` is a multiple of kBlock.
void Fill32(uint8_t* dst, uint32_t value, size_t words) {
    const D8 d8;
    const auto v = hn::BitCast(d8, hn::Set(D32(), value));
    for (size_t i = 0; i < words; i += kBlock)
        hn::StoreU(v, d8, dst + 4 * i);
}

void Fill32Any(uint8_t* dst, uint32_t value, size_t words) {
    const size_t n = words - words % kBlock;
    if (n) Fill32(dst, value, n);
    if (words > n) Fill32_C(dst + 4 * n, value, words - n);
}

// The factor and constant of a linear table row.
int32_t Factor(const int32_t* t, int row) {
    return t[256 * row + 1] - t[256 * row];
}
int32_t Constant(const int32_t* t, int row) {
    return t[256 * row];
}

// f_a a + f_b b + f_c c + constant, for three rows from `row`, shifted by 16.
struct Sum3 {
    VI32 fa, fb, fc, k;
    Sum3(const int32_t* t, int row)
        : fa(hn::Set(DI32(), Factor(t, row))), fb(hn::Set(DI32(), Factor(t, row + 1))),
          fc(hn::Set(DI32(), Factor(t, row + 2))),
          k(hn::Set(DI32(), int32_t(uint32_t(Constant(t, row)) + uint32_t(Constant(t, row + 1)) +
                                    uint32_t(Constant(t, row + 2))))) {}
    VI32 operator()(VI32 a, VI32 b, VI32 c) const {
        return hn::ShiftRight<16>(
            hn::Add(hn::Add(hn::Add(hn::Mul(fa, a), hn::Mul(fb, b)), hn::Mul(fc, c)), k));
    }
};

// Whole vectors only.
void BgraToYuva(const uint8_t* src, uint8_t* dst, int32_t pixels, const ColourTables& tables) {
    const D8 d8;
    const DI32 di;
    const Sum3 ys(tables.table, 0), us(tables.table, 3), vs(tables.table, 6);
    const VI32 byte = hn::Set(di, 0xFF), lo = hn::Set(di, 16), hi = hn::Set(di, 240);
    const VI32 alphaBits = hn::Set(di, int32_t(0xFF000000u));
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const VI32 px = hn::BitCast(di, hn::LoadU(d8, src + 4 * i));
        const VI32 b = hn::And(px, byte);
        const VI32 g = hn::And(hn::ShiftRight<8>(px), byte);
        const VI32 r = hn::And(hn::ShiftRight<16>(px), byte);
        // The same rows in the order of the plain loop: r, g, b.
        const VI32 y = hn::And(ys(r, g, b), byte);
        const VI32 u = hn::Min(hn::Max(us(r, g, b), lo), hi);
        const VI32 v = hn::Min(hn::Max(vs(r, g, b), lo), hi);
        const VI32 out = hn::Or(hn::Or(y, hn::ShiftLeft<8>(u)),
                                hn::Or(hn::ShiftLeft<16>(v), hn::And(px, alphaBits)));
        hn::StoreU(hn::BitCast(d8, out), d8, dst + 4 * i);
    }
}

// Whole vectors only.
void YuvaToBgra(const uint8_t* src, uint8_t* dst, int32_t pixels, const ColourTables& tables) {
    const D8 d8;
    const DI32 di;
    const int32_t* t = tables.table;
    const VI32 fy = hn::Set(di, Factor(t, 0)), ky = hn::Set(di, Constant(t, 0));
    const VI32 fvr = hn::Set(di, Factor(t, 1)), kvr = hn::Set(di, Constant(t, 1));
    const VI32 fub = hn::Set(di, Factor(t, 2)), kub = hn::Set(di, Constant(t, 2));
    const VI32 fvg = hn::Set(di, Factor(t, 3)), kvg = hn::Set(di, Constant(t, 3));
    const VI32 fug = hn::Set(di, Factor(t, 4)), kug = hn::Set(di, Constant(t, 4));
    const VI32 byte = hn::Set(di, 0xFF), zero = hn::Zero(di), sixteen = hn::Set(di, 16);
    const VI32 alphaBits = hn::Set(di, int32_t(0xFF000000u));
    auto limit = [&](VI32 v) { return hn::Min(hn::Max(hn::ShiftRight<16>(v), zero), byte); };
    for (int32_t i = 0; i < pixels; i += kBlock) {
        const VI32 px = hn::BitCast(di, hn::LoadU(d8, src + 4 * i));
        VI32 y = hn::And(px, byte);
        if (tables.cut) y = hn::Max(hn::Sub(y, sixteen), zero);
        const VI32 u = hn::And(hn::ShiftRight<8>(px), byte);
        const VI32 v = hn::And(hn::ShiftRight<16>(px), byte);
        const VI32 yt = hn::Add(hn::Mul(fy, y), ky);
        const VI32 ub = hn::Add(hn::Mul(fub, u), kub);
        const VI32 vr = hn::Add(hn::Mul(fvr, v), kvr);
        const VI32 vg = hn::Add(hn::Mul(fvg, v), kvg);
        const VI32 ug = hn::Add(hn::Mul(fug, u), kug);
        const VI32 b = limit(hn::Add(ub, yt));
        const VI32 g = limit(hn::Add(hn::Add(vg, ug), yt));
        const VI32 r = limit(hn::Add(vr, yt));
        const VI32 out =
            hn::Or(hn::Or(b, hn::ShiftLeft<8>(g)), hn::Or(hn::ShiftLeft<16>(r), alphaBits));
        hn::StoreU(hn::BitCast(d8, out), d8, dst + 4 * i);
    }
}

// 4:2:2. One vector of pair words holds 2 kBlock pixels; even and odd pixels are built
// in two vectors of pixel words and stored, or loaded, interleaved, which keeps the
// pixel order across 128-bit blocks. Positions of Y0, U, Y1, V as in the plain loops.
using D16 = hn::Rebind<uint16_t, D32>;
using V32 = hn::Vec<D32>;

template <int Y0, int U, int Y1, int V> V32 Byte(V32 w, int which) {
    const int pos = which == 0 ? Y0 : which == 1 ? U : which == 2 ? Y1 : V;
    return hn::And(hn::ShiftRightSame(w, 8 * pos), hn::Set(D32(), 0xFFu));
}

// Whole vectors only, and the pair after the last one read must exist (it gives the
// odd pixels of the last pair their chroma).
template <int Y0, int U, int Y1, int V>
void Read422(const uint8_t* row, const uint8_t* alpha, uint8_t* yuva, int32_t pixels) {
    const D8 d8;
    const D32 d32;
    const D16 d16;
    const V32 one = hn::Set(d32, 1u), byte = hn::Set(d32, 0xFFu);
    for (int32_t i = 0; i < pixels; i += 2 * kBlock) {
        const V32 w = hn::BitCast(d32, hn::LoadU(d8, row + 2 * i));
        const V32 n = hn::BitCast(d32, hn::LoadU(d8, row + 2 * i + 4));
        const V32 u = Byte<Y0, U, Y1, V>(w, 1), v = Byte<Y0, U, Y1, V>(w, 3);
        const V32 un = Byte<Y0, U, Y1, V>(n, 1), vn = Byte<Y0, U, Y1, V>(n, 3);
        const V32 u1 = hn::ShiftRight<1>(hn::Add(hn::Add(u, un), one));
        const V32 v1 = hn::ShiftRight<1>(hn::Add(hn::Add(v, vn), one));
        V32 a0 = byte, a1 = byte;
        if (alpha) {
            uint16_t pairs[hn::MaxLanes(D32())];
            std::memcpy(pairs, alpha + i, sizeof pairs);
            const V32 a = hn::PromoteTo(d32, hn::LoadU(d16, pairs));
            a0 = hn::And(a, byte);
            a1 = hn::ShiftRight<8>(a);
        }
        const V32 even = hn::Or(hn::Or(Byte<Y0, U, Y1, V>(w, 0), hn::ShiftLeft<8>(u)),
                                hn::Or(hn::ShiftLeft<16>(v), hn::ShiftLeft<24>(a0)));
        const V32 odd = hn::Or(hn::Or(Byte<Y0, U, Y1, V>(w, 2), hn::ShiftLeft<8>(u1)),
                               hn::Or(hn::ShiftLeft<16>(v1), hn::ShiftLeft<24>(a1)));
        uint32_t out[2 * hn::MaxLanes(D32())];
        hn::StoreInterleaved2(even, odd, d32, out);
        std::memcpy(yuva + 4 * i, out, sizeof out);
    }
}

// Whole vectors only.
template <int Y0, int U, int Y1, int V>
void Write422(const uint8_t* yuva, uint8_t* row, uint8_t* alpha, int32_t pixels) {
    const D8 d8;
    const D32 d32;
    const DI32 di;
    const V32 byte = hn::Set(d32, 0xFFu);
    for (int32_t i = 0; i < pixels; i += 2 * kBlock) {
        uint32_t in[2 * hn::MaxLanes(D32())];
        std::memcpy(in, yuva + 4 * i, sizeof in);
        V32 even, odd;
        hn::LoadInterleaved2(d32, in, even, odd);
        const V32 word =
            hn::Or(hn::Or(hn::ShiftLeftSame(hn::And(even, byte), 8 * Y0),
                          hn::ShiftLeftSame(hn::And(hn::ShiftRight<8>(even), byte), 8 * U)),
                   hn::Or(hn::ShiftLeftSame(hn::And(odd, byte), 8 * Y1),
                          hn::ShiftLeftSame(hn::And(hn::ShiftRight<16>(even), byte), 8 * V)));
        hn::StoreU(hn::BitCast(d8, word), d8, row + 2 * i);
        if (alpha) {
            const V32 a =
                hn::Or(hn::ShiftRight<24>(even), hn::ShiftLeft<8>(hn::ShiftRight<24>(odd)));
            uint16_t pairs[hn::MaxLanes(D32())];
            hn::StoreU(hn::DemoteTo(hn::Rebind<uint16_t, DI32>(), hn::BitCast(di, a)),
                       hn::Rebind<uint16_t, DI32>(), pairs);
            std::memcpy(alpha + i, pairs, sizeof pairs);
        }
    }
}

template <Read422Fn Vec, Read422Fn Plain>
void AnyRead(const uint8_t* row, const uint8_t* alpha, uint8_t* yuva, int32_t pixels) {
    // One pixel left to the plain loop keeps the pair after the vector part in the row.
    kelp::simd::SplitRun(
        pixels, 2 * kBlock, 1, [&](int32_t n) { Vec(row, alpha, yuva, n); },
        [&](int32_t n, int32_t rest) {
            Plain(row + 2 * n, alpha ? alpha + n : nullptr, yuva + 4 * n, rest);
        });
}

template <Write422Fn Vec, Write422Fn Plain>
void AnyWrite(const uint8_t* yuva, uint8_t* row, uint8_t* alpha, int32_t pixels) {
    kelp::simd::SplitRun(
        pixels, 2 * kBlock, 0, [&](int32_t n) { Vec(yuva, row, alpha, n); },
        [&](int32_t n, int32_t rest) {
            Plain(yuva + 4 * n, row + 2 * n, alpha ? alpha + n : nullptr, rest);
        });
}

// The vector form over the whole vectors of a run, the plain loop over the rest; the
// plain loop alone where the tables are not linear.
template <ColourFn Vec, ColourFn Plain>
void AnyColour(const uint8_t* src, uint8_t* dst, int32_t pixels, const ColourTables& t) {
    if (!t.linear) return Plain(src, dst, pixels, t);
    kelp::simd::SplitRun(
        pixels, kBlock, 0, [&](int32_t n) { Vec(src, dst, n, t); },
        [&](int32_t n, int32_t rest) { Plain(src + 4 * n, dst + 4 * n, rest, t); });
}

constexpr Kernels kKernels = {
    KELP_SIMD_THIS_TARGET_NAME,
    CopyAny,
    Fill32Any,
    AnyColour<BgraToYuva, BgraToYuva_C>,
    AnyColour<YuvaToBgra, YuvaToBgra_C>,
    AnyRead<Read422<0, 1, 2, 3>, ReadYuyv_C>,
    AnyRead<Read422<1, 0, 3, 2>, ReadUyvy_C>,
    AnyWrite<Write422<0, 1, 2, 3>, WriteYuyv_C>,
    AnyWrite<Write422<1, 0, 3, 2>, WriteUyvy_C>,
};

#endif // KELP_SIMD_VECTOR_PASS
} // namespace HWY_NAMESPACE
} // namespace rowkernels
} // namespace stdfx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace stdfx {
namespace rowkernels {
const Kernels* VectorKernels(int target) {
    static const Kernels* const kByTarget[kelp::kSimdTargetCount] = KELP_SIMD_TABLE(kKernels);
    return target > kelp::kSimdPlain && target < kelp::kSimdTargetCount ? kByTarget[target]
                                                                        : nullptr;
}
} // namespace rowkernels
} // namespace stdfx
#endif // HWY_ONCE
