// The compositor's vector forms give the plain loops' bytes: every slot of the table at
// lengths around each block, at unaligned starts, up to an unreadable page, in place;
// and a seeded run of random cases over modes, forms, fields and sizes whose checksum
// every target reproduces.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include <kelp/stdfx.h>

#include "compose_images.h"
#include "guardedbuffer.h"
#include "simdtargets.h"
#include "stdfx/composerows.h"

using namespace stdfx::composerows;
using composetest::MakeImage;
using stdfx::CDIB;
using stdfx::CDibCompose;

namespace {

const int32_t kLengths[] = {1, 3, 7, 8, 9, 15, 16, 17, 31, 33, 63, 65, 1921};

stdfx::compose::Tables TablesFor(stdfx::CHSL* hsl, int mode) {
    return {stdfx::GetTables()->GetDiv24(),
            stdfx::GetTables()->GetExpandY(),
            stdfx::GetRGB2YUV()->GetTable(0),
            stdfx::GetYUV2RGB()->GetTable(0),
            hsl,
            mode,
            stdfx::GetTables()->GetRecip()};
}

// Random bytes with the edge values of the arithmetic mixed in.
void Edgy(uint8_t* p, size_t n, std::mt19937& rng) {
    static const uint8_t kEdges[] = {0, 1, 127, 128, 254, 255};
    for (size_t i = 0; i < n; ++i)
        p[i] = rng() % 3 ? uint8_t(rng()) : kEdges[rng() % 6];
}

// FNV-1a over the bytes, continued from `h`.
uint64_t Hash(uint64_t h, const std::vector<uint8_t>& bytes) {
    for (uint8_t b : bytes)
        h = (h ^ b) * 0x100000001B3ull;
    return h;
}

} // namespace

TEST(ComposeSimd, EverySlotEqualsPlainAtEveryLengthAndStart) {
    std::mt19937 rng(11);
    stdfx::CHSL hsl;
    kelptest::ForEachSimdTarget([&](int target) {
        EXPECT_STREQ(Current().name, kelp::SimdTargetName(target));
        const Kernels& k = Current();
        const Kernels& p = PlainKernels();
        // Every vector target fills these slots with its own forms.
        if (target != kelp::kSimdPlain) {
            for (int m = 1; m < kSlots; ++m)
                EXPECT_NE(k.blend[m], p.blend[m]) << "mode " << m;
            EXPECT_NE(k.scale444, p.scale444);
            EXPECT_NE(k.mix444, p.mix444);
            EXPECT_NE(k.mix422, p.mix422);
            EXPECT_NE(k.depth, p.depth);
            EXPECT_NE(k.mix, p.mix);
            EXPECT_NE(k.scale422, p.scale422);
        }
        for (int32_t len : kLengths)
            for (size_t start = 0; start < 4; ++start) {
                const size_t bytes = size_t(len) * 4;
                kelptest::GuardedBuffer dst(bytes + start), src(bytes + start), two(bytes + start);
                std::vector<uint8_t> d(bytes), s(bytes), b(bytes);
                Edgy(d.data(), bytes, rng);
                Edgy(s.data(), bytes, rng);
                Edgy(b.data(), bytes, rng);
                uint8_t* dp = dst.data() + start;
                uint8_t* sp = src.data() + start;
                uint8_t* bp = two.data() + start;
                std::memcpy(sp, s.data(), bytes);
                std::memcpy(bp, b.data(), bytes);
                for (int m = 1; m < kSlots; ++m) {
                    const stdfx::compose::Tables t = TablesFor(&hsl, m);
                    std::vector<uint8_t> want = d;
                    p.blend[m](want.data(), s.data(), len, t);
                    std::memcpy(dp, d.data(), bytes);
                    k.blend[m](dp, sp, len, t);
                    ASSERT_EQ(std::vector<uint8_t>(dp, dp + bytes), want)
                        << "mode " << m << " length " << len;
                    // In place: the source is the destination.
                    std::vector<uint8_t> self = d;
                    p.blend[m](self.data(), self.data(), len, t);
                    std::memcpy(dp, d.data(), bytes);
                    k.blend[m](dp, dp, len, t);
                    ASSERT_EQ(std::vector<uint8_t>(dp, dp + bytes), self) << "in place, mode " << m;
                }
                for (int a : {0, 1, 128, 254, 255}) {
                    std::vector<uint8_t> want(bytes);
                    p.scale(want.data(), s.data(), int32_t(bytes), a);
                    k.scale(dp, sp, int32_t(bytes), a);
                    ASSERT_EQ(std::vector<uint8_t>(dp, dp + bytes), want) << "scale " << a;
                    p.mix(want.data(), s.data(), b.data(), len, a);
                    k.mix(dp, sp, bp, len, a);
                    ASSERT_EQ(std::vector<uint8_t>(dp, dp + bytes), want) << "mix " << a;
                    // Luma offset 0 at full opacity reaches the largest products.
                    const int k16 = a == 255 ? 0 : 16;
                    p.scale422(want.data(), s.data(), int32_t(bytes), a, k16, int(start & 1));
                    k.scale422(dp, sp, int32_t(bytes), a, k16, int(start & 1));
                    ASSERT_EQ(std::vector<uint8_t>(dp, dp + bytes), want) << "4:2:2 " << a;
                    p.scale444(want.data(), s.data(), len, a, k16);
                    k.scale444(dp, sp, len, a, k16);
                    ASSERT_EQ(std::vector<uint8_t>(dp, dp + bytes), want) << "4:4:4 scale " << a;
                    p.mix444(want.data(), s.data(), b.data(), len, a, k16);
                    k.mix444(dp, sp, bp, len, a, k16);
                    ASSERT_EQ(std::vector<uint8_t>(dp, dp + bytes), want) << "4:4:4 mix " << a;
                    // In place over the second source, as BlendThree(x, this) does.
                    std::vector<uint8_t> self = b;
                    p.mix444(self.data(), s.data(), self.data(), len, a, k16);
                    std::memcpy(dp, b.data(), bytes);
                    k.mix444(dp, sp, dp, len, a, k16);
                    ASSERT_EQ(std::vector<uint8_t>(dp, dp + bytes), self) << "4:4:4 in place " << a;
                }
                // Depth pixels are eight bytes: half the length, depths with ties and NaN.
                const int32_t zlen = len / 2 + 1;
                const size_t zbytes = size_t(zlen) * 8;
                kelptest::GuardedBuffer zd(zbytes + start), zs(zbytes + start);
                std::vector<uint8_t> dz(zbytes), sz(zbytes);
                Edgy(dz.data(), zbytes, rng);
                Edgy(sz.data(), zbytes, rng);
                static const float kDepths[] = {0.5f, 1.0f, 1.0f, -2.0f, NAN, 0.0f, -0.0f};
                for (int32_t i = 0; i < zlen; ++i) {
                    std::memcpy(&dz[8 * i + 4], &kDepths[rng() % 7], 4);
                    std::memcpy(&sz[8 * i + 4], &kDepths[rng() % 7], 4);
                }
                std::vector<uint8_t> want = dz;
                p.depth(want.data(), sz.data(), zlen);
                std::memcpy(zd.data() + start, dz.data(), zbytes);
                std::memcpy(zs.data() + start, sz.data(), zbytes);
                k.depth(zd.data() + start, zs.data() + start, zlen);
                ASSERT_EQ(std::vector<uint8_t>(zd.data() + start, zd.data() + start + zbytes), want)
                    << "depth, length " << zlen;
            }
    });
}

// The 4:2:2 BlendThree rows: odd widths (a last pair of one pixel), rows and alpha rows
// that end at an unreadable page, unaligned starts, and in place over either source.
TEST(ComposeSimd, Mix422EqualsPlainAtEveryWidthStartAndInPlace) {
    std::mt19937 rng(19);
    kelptest::ForEachSimdTarget([&](int) {
        const Kernels& k = Current();
        const Kernels& p = PlainKernels();
        for (int32_t len : kLengths)
            for (size_t start = 0; start < 4; ++start)
                for (int where = 0; where < 3; ++where) { // apart, over first, over second
                    const size_t bytes = size_t(2 * ((len + 1) & ~1)), alphas = size_t(len);
                    std::vector<uint8_t> f(bytes), b(bytes), fa(alphas), ba(alphas), d(bytes),
                        da(alphas);
                    for (auto* v : {&f, &b, &fa, &ba, &d, &da})
                        Edgy(v->data(), v->size(), rng);
                    const int a = int(rng() % 256), k16 = rng() % 2 ? 16 : 0;
                    const int parity = int(rng() % 2);
                    std::vector<uint8_t> want = where == 1 ? f : where == 2 ? b : d;
                    std::vector<uint8_t> wantA = where == 1 ? fa : where == 2 ? ba : da;
                    p.mix422(want.data(), wantA.data(), where == 1 ? want.data() : f.data(),
                             where == 1 ? wantA.data() : fa.data(),
                             where == 2 ? want.data() : b.data(),
                             where == 2 ? wantA.data() : ba.data(), len, a, k16, parity);
                    kelptest::GuardedBuffer gd(bytes + start), gf(bytes + start), gb(bytes + start),
                        gda(alphas + start), gfa(alphas + start), gba(alphas + start);
                    uint8_t* dp = gd.data() + start;
                    uint8_t* dap = gda.data() + start;
                    uint8_t* fp = gf.data() + start;
                    uint8_t* fap = gfa.data() + start;
                    uint8_t* bp = gb.data() + start;
                    uint8_t* bap = gba.data() + start;
                    std::memcpy(fp, f.data(), bytes);
                    std::memcpy(bp, b.data(), bytes);
                    std::memcpy(fap, fa.data(), alphas);
                    std::memcpy(bap, ba.data(), alphas);
                    std::memcpy(dp, d.data(), bytes);
                    std::memcpy(dap, da.data(), alphas);
                    if (where == 1) dp = fp, dap = fap;
                    if (where == 2) dp = bp, dap = bap;
                    k.mix422(dp, dap, fp, fap, bp, bap, len, a, k16, parity);
                    ASSERT_EQ(std::vector<uint8_t>(dp, dp + bytes), want)
                        << "width " << len << ", case " << where;
                    ASSERT_EQ(std::vector<uint8_t>(dap, dap + alphas), wantA)
                        << "alpha, width " << len << ", case " << where;
                }
    });
}

// Random cases through the public operations: mode, form, field, size, orientation.
// The plain loops defined the checksum; every target must give it.
TEST(ComposeSimd, SeededRandomCasesGiveOneChecksumOnEveryTarget) {
    const uint64_t kExpected = 10529550450511906036ull;
    kelptest::ForEachSimdTarget([&](int) {
        std::mt19937 rng(2024);
        uint64_t h = 0xCBF29CE484222325ull;
        for (int n = 0; n < 400; ++n) {
            const int w = 1 + int(rng() % 70), height = 1 + int(rng() % 7);
            const int field = int(rng() % 3) - 1;
            const int kind = int(rng() % 6);
            const uint32_t mode = rng() % 22, second = rng() % 22;
            static const uint32_t kFormats[] = {KXBI_RGB,  KXBI_YUV, KXBI_RGBZ,
                                                KXBI_YUVZ, KXBI_RGB, KXBI_YUV};
            const uint32_t format = kFormats[kind];
            const uint32_t sampling = kind == 5
                                          ? (rng() % 2 ? KXYUV_SAMPLING_422 : KXYUV_SAMPLING_422B)
                                          : KXYUV_SAMPLING_444;
            const int sign = rng() % 2 ? 1 : -1;
            CDIB dst = MakeImage(w, sign * height, format, sampling);
            CDIB src = MakeImage(w + int(rng() % 3), sign * height, format, sampling);
            CDIB other = MakeImage(w, sign * height, format, sampling);
            for (CDIB* img : {&dst, &src, &other}) {
                const size_t total = size_t(img->Stride()) * img->Height();
                Edgy(static_cast<uint8_t*>(img->Bits()), total, rng);
                if (img->GetAlphaPlane())
                    Edgy(img->GetAlphaPlane(), size_t(img->GetAlphaStride()) * img->Height(), rng);
            }
            CDibCompose c(mode, second);
            const int opacity = int(rng() % 256);
            bool ok;
            switch (kind) {
            case 0:
                ok = c.Compose(dst, src, 0, field);
                break;
            case 1:
                ok = c.ComposeYUV(dst, src, 0, field);
                break;
            case 2:
                ok = c.ComposeZ(dst, src, 0, field);
                break;
            case 3:
                ok = c.ComposeZYUV(dst, src, 0, field);
                break;
            case 4:
                ok = rng() % 2 ? dst.BlendTwo(other, opacity, field)
                               : dst.BlendThree(other, dst, opacity, field);
                break;
            default:
                ok = rng() % 2
                         ? dst.BlendTwo(other, opacity, field)
                         : dst.BlendThree(other, src.Width() == w ? src : other, opacity, field);
                break;
            }
            h = Hash(h, {uint8_t(ok)});
            const uint8_t* bits = static_cast<const uint8_t*>(dst.Bits());
            h = Hash(h, std::vector<uint8_t>(bits, bits + size_t(dst.Stride()) * dst.Height()));
            if (dst.GetAlphaPlane())
                h = Hash(h, std::vector<uint8_t>(dst.GetAlphaPlane(),
                                                 dst.GetAlphaPlane() +
                                                     size_t(dst.GetAlphaStride()) * dst.Height()));
        }
        EXPECT_EQ(h, kExpected) << std::hex << h;
    });
}
