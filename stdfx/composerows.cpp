// The plain row kernels of the compositor, which define every result, and the table of
// each target: the plain loops with the vector forms laid over the slots they fill.
#include "composerows.h"

#include <array>
#include <cstring>

#include "runtime/cpuflags.h"

namespace stdfx {
namespace composerows {

using compose::Clamp;
using compose::Mul;

template <int M>
void Blend_C(uint8_t* dst, const uint8_t* src, int32_t pixels, const compose::Tables& t) {
    for (int32_t x = 0; x < pixels; ++x, dst += 4, src += 4)
        compose::BlendPixel<M>(dst, src, dst, dst, t);
}

void Over_C(uint8_t* dst, const uint8_t* src, int32_t pixels, const compose::Tables&) {
    for (int32_t x = 0; x < pixels; ++x, dst += 4, src += 4)
        compose::OverPixel(dst, src, dst);
}

void Hsl_C(uint8_t* dst, const uint8_t* src, int32_t pixels, const compose::Tables& t) {
    for (int32_t x = 0; x < pixels; ++x, dst += 4, src += 4)
        compose::HslPixel(t.mode, dst, src, dst, t);
}

// The smaller depth is in front, the destination where they are equal; the larger depth
// stays.
void Depth_C(uint8_t* dst, const uint8_t* src, int32_t pixels) {
    for (int32_t x = 0; x < pixels; ++x, dst += 8, src += 8) {
        float dz, sz;
        std::memcpy(&dz, dst + 4, 4);
        std::memcpy(&sz, src + 4, 4);
        if (sz < dz) {
            compose::OverPixel(dst, src, dst);
        } else {
            compose::OverPixel(src, dst, dst);
            std::memcpy(dst + 4, src + 4, 4);
        }
    }
}

void Scale_C(uint8_t* dst, const uint8_t* src, int32_t bytes, int a) {
    for (int32_t i = 0; i < bytes; ++i)
        dst[i] = uint8_t(Mul(src[i], a));
}

void Mix_C(uint8_t* dst, const uint8_t* first, const uint8_t* second, int32_t pixels, int a) {
    for (int32_t x = 0; x < pixels; ++x, dst += 4, first += 4, second += 4) {
        const int a2 = Mul(first[3], a), inv = 255 - a2;
        const int c0 = Clamp(Mul(first[0], a) + Mul(second[0], inv));
        const int c1 = Clamp(Mul(first[1], a) + Mul(second[1], inv));
        const int c2 = Clamp(Mul(first[2], a) + Mul(second[2], inv));
        const int c3 = Clamp(a2 + Mul(second[3], inv));
        dst[0] = uint8_t(c0);
        dst[1] = uint8_t(c1);
        dst[2] = uint8_t(c2);
        dst[3] = uint8_t(c3);
    }
}

void Scale422_C(uint8_t* dst, const uint8_t* src, int32_t bytes, int a, int k, int lumaParity) {
    const int h = (a + 1) >> 1;
    for (int32_t i = 0; i < bytes; ++i) {
        const int o = (i & 1) == lumaParity ? k : 128;
        dst[i] = uint8_t(Clamp(o + Round7((src[i] - o) * h)));
    }
}

void Scale444_C(uint8_t* d, const uint8_t* s, int32_t pixels, int a, int k) {
    for (int32_t x = 0; x < pixels; ++x, d += 4, s += 4) {
        const int y = Mul(Clamp(s[0] - k), a) + k;
        const int u = Mul(s[1] - 128, a) + 128, v = Mul(s[2] - 128, a) + 128;
        const int al = Mul(s[3], a);
        d[0] = uint8_t(y);
        d[1] = uint8_t(u);
        d[2] = uint8_t(v);
        d[3] = uint8_t(al);
    }
}

void Mix444_C(uint8_t* d, const uint8_t* s, const uint8_t* b, int32_t pixels, int a, int k) {
    for (int32_t x = 0; x < pixels; ++x, d += 4, s += 4, b += 4) {
        const int a2 = Mul(s[3], a), inv = 255 - a2;
        const int y = Clamp(Mul(Clamp(b[0] - k), inv) + k + Mul(Clamp(s[0] - k), a));
        const int u = Clamp(128 + Mul(b[1] - 128, inv) + Mul(s[1] - 128, a));
        const int v = Clamp(128 + Mul(b[2] - 128, inv) + Mul(s[2] - 128, a));
        const int al = Clamp(a2 + Mul(b[3], inv));
        d[0] = uint8_t(y);
        d[1] = uint8_t(u);
        d[2] = uint8_t(v);
        d[3] = uint8_t(al);
    }
}

// 4:2:2 at 7-bit precision: the first source weighs (a + 1) >> 1, the second the same
// of its per-pixel rest 255 - mul(first alpha, a); a pair's chroma takes the mean rest
// of its two pixels. The alpha plane mixes as in RGB.
void Mix422_C(uint8_t* d, uint8_t* dAlpha, const uint8_t* s, const uint8_t* sAlpha,
              const uint8_t* b, const uint8_t* bAlpha, int32_t width, int a, int k,
              int lumaParity) {
    const int hs = (a + 1) >> 1;
    for (int32_t x = 0; x < width; x += 2) {
        const int inv0 = 255 - Mul(sAlpha[x], a);
        const int inv1 = x + 1 < width ? 255 - Mul(sAlpha[x + 1], a) : inv0;
        const int invC = (inv0 + inv1 + 1) >> 1;
        uint8_t* dp = d + 2 * x;
        const uint8_t* sp = s + 2 * x;
        const uint8_t* bp = b + 2 * x;
        int out[4];
        for (int i = 0; i < 4; ++i) {
            if ((i & 1) == lumaParity) {
                const int hb = (((i >> 1) ? inv1 : inv0) + 1) >> 1;
                out[i] = Clamp(k + Round7(Clamp(bp[i] - k) * hb) + Round7(Clamp(sp[i] - k) * hs));
            } else {
                const int hb = (invC + 1) >> 1;
                out[i] = Clamp(128 + Round7((bp[i] - 128) * hb) + Round7((sp[i] - 128) * hs));
            }
        }
        for (int i = 0; i < 4; ++i)
            dp[i] = uint8_t(out[i]);
    }
    for (int32_t x = 0; x < width; ++x) {
        const int a2 = Mul(sAlpha[x], a);
        dAlpha[x] = uint8_t(Clamp(a2 + Mul(bAlpha[x], 255 - a2)));
    }
}

bool LumaRowsLinear(const int32_t* toYuv) {
    if (!toYuv) return false;
    for (int row = 0; row < 3; ++row) {
        const uint32_t* r = reinterpret_cast<const uint32_t*>(toYuv + 256 * row);
        const uint32_t step = r[1] - r[0];
        bool linear = true;
        for (uint32_t i = 0; i < 256; ++i)
            linear &= r[0] + i * step == r[i];
        if (!linear) return false;
    }
    return true;
}

namespace {

constexpr Kernels kPlain = {
    "plain",
    {nullptr,    Over_C,     Blend_C<2>, Blend_C<3>,  Blend_C<4>,  Blend_C<5>,  Blend_C<6>,
     Blend_C<7>, Blend_C<8>, Blend_C<9>, Blend_C<10>, Blend_C<11>, Blend_C<12>, Hsl_C,
     Hsl_C,      Hsl_C,      Hsl_C,      Blend_C<17>, Blend_C<18>, Blend_C<19>, Blend_C<20>},
    Depth_C,
    Scale_C,
    Mix_C,
    Scale422_C,
    Scale444_C,
    Mix444_C,
    Mix422_C,
};

template <class F> void Overlay(F& slot, F from) {
    if (from) slot = from;
}

// Each target's table: the table of the target below, with this target's vector forms
// laid over it.
void OverlayTable(Kernels& k, const Kernels* v) {
    if (!v) return;
    k.name = v->name;
    for (int m = 0; m < kSlots; ++m)
        Overlay(k.blend[m], v->blend[m]);
    Overlay(k.depth, v->depth);
    Overlay(k.scale, v->scale);
    Overlay(k.mix, v->mix);
    Overlay(k.scale422, v->scale422);
    Overlay(k.scale444, v->scale444);
    Overlay(k.mix444, v->mix444);
    Overlay(k.mix422, v->mix422);
}

std::array<Kernels, kelp::kSimdTargetCount> MakeTables() {
    std::array<Kernels, kelp::kSimdTargetCount> all;
    all[0] = kPlain;
    for (int t = 1; t < kelp::kSimdTargetCount; ++t) {
        all[t] = all[t - 1];
        OverlayTable(all[t], VectorBlendKernels(t));
        OverlayTable(all[t], VectorDissolveKernels(t));
        OverlayTable(all[t], VectorHslKernels(t));
        OverlayTable(all[t], VectorYuvDissolveKernels(t));
    }
    return all;
}

} // namespace

const Kernels& PlainKernels() {
    return kPlain;
}

const Kernels& ForTarget(int target) {
    static const std::array<Kernels, kelp::kSimdTargetCount> tables = MakeTables();
    if (target < 0) target = 0;
    if (target >= kelp::kSimdTargetCount) target = kelp::kSimdTargetCount - 1;
    return tables[target];
}

const Kernels& Current() {
    return ForTarget(kelp::BestSimdTarget());
}

template void Blend_C<2>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<3>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<4>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<5>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<6>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<7>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<8>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<9>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<10>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<11>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<12>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<17>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<18>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<19>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);
template void Blend_C<20>(uint8_t*, const uint8_t*, int32_t, const compose::Tables&);

} // namespace composerows
} // namespace stdfx
