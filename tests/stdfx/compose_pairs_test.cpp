// The compositor's vector forms against the plain loops over whole input ranges: every
// blend slot on all 65,536 pairs of each two inputs that meet in one formula (the two
// colour bytes, a colour byte and the other pixel's alpha, the two alphas); the hue,
// saturation and lightness modes on colours full of ties and greys; and the dissolves
// on every pair of byte and opacity.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include <kelp/stdfx.h>

#include "simdtargets.h"
#include "stdfx/composerows.h"

using namespace stdfx::composerows;

namespace {

stdfx::compose::Tables TablesFor(stdfx::CHSL* hsl, int mode) {
    return {stdfx::GetTables()->GetDiv24(),
            stdfx::GetTables()->GetExpandY(),
            stdfx::GetRGB2YUV()->GetTable(0),
            stdfx::GetYUV2RGB()->GetTable(0),
            hsl,
            mode,
            stdfx::GetTables()->GetRecip()};
}

typedef std::vector<uint8_t> Bytes;

// Rows of 65,536 pixels, pixel i holding x = i & 255 and y = i >> 8 in the two inputs of
// one pairing, random bytes elsewhere.
enum Pairing { kColours, kColourAndSourceAlpha, kColourAndDestAlpha, kAlphas, kPairings };

void PairRows(Pairing p, Bytes& d, Bytes& s, std::mt19937& rng) {
    d.resize(65536 * 4);
    s.resize(65536 * 4);
    for (int i = 0; i < 65536; ++i) {
        const uint8_t x = uint8_t(i), y = uint8_t(i >> 8);
        uint8_t* dp = &d[4 * size_t(i)];
        uint8_t* sp = &s[4 * size_t(i)];
        for (int c = 0; c < 4; ++c)
            dp[c] = uint8_t(rng()), sp[c] = uint8_t(rng());
        switch (p) {
        case kColours: // each colour channel sees the pairs in its own order
            dp[0] = x, sp[0] = y, dp[1] = y, sp[1] = x, dp[2] = uint8_t(x ^ y), sp[2] = uint8_t(~x);
            break;
        case kColourAndSourceAlpha:
            dp[0] = dp[1] = x, dp[2] = uint8_t(~x), sp[3] = y;
            break;
        case kColourAndDestAlpha:
            sp[0] = sp[1] = x, sp[2] = uint8_t(~x), dp[3] = y;
            break;
        default: // the alphas, with colours premultiplied (at most their alpha)
            dp[3] = x, sp[3] = y;
            for (int c = 0; c < 3; ++c)
                dp[c] = uint8_t(dp[c] % (x + 1)), sp[c] = uint8_t(sp[c] % (y + 1));
            break;
        }
    }
}

// Colours with many ties and greys: each channel from a pair of values or from one
// value, alpha 0, 1, 255 or any.
void TiedRow(Bytes& p, int pixels, std::mt19937& rng) {
    p.resize(size_t(pixels) * 4);
    static const uint8_t kAlphas[] = {0, 1, 255, 255, 128};
    for (int i = 0; i < pixels; ++i) {
        uint8_t* q = &p[4 * size_t(i)];
        const uint8_t v[2] = {uint8_t(rng()), uint8_t(rng() % 4 ? rng() : 255 - rng() % 3)};
        const int kind = int(rng() % 4);
        for (int c = 0; c < 3; ++c)
            q[c] = kind == 0 ? v[0] : kind == 3 ? uint8_t(rng()) : v[rng() % 2];
        q[3] = rng() % 2 ? uint8_t(rng()) : kAlphas[rng() % 5];
        if (rng() % 2) // premultiplied
            for (int c = 0; c < 3; ++c)
                q[c] = uint8_t(q[c] % (q[3] + 1));
    }
}

} // namespace

TEST(ComposeSimdPairs, EveryBlendSlotEqualsPlainOnAllPairs) {
    std::mt19937 rng(5);
    stdfx::CHSL hsl;
    Bytes d[kPairings], s[kPairings], want[kPairings][kSlots];
    for (int p = 0; p < kPairings; ++p) {
        PairRows(Pairing(p), d[p], s[p], rng);
        for (int m = 1; m < kSlots; ++m) {
            want[p][m] = d[p];
            PlainKernels().blend[m](want[p][m].data(), s[p].data(), 65536, TablesFor(&hsl, m));
        }
    }
    kelptest::ForEachSimdTarget([&](int) {
        for (int p = 0; p < kPairings; ++p)
            for (int m = 1; m < kSlots; ++m) {
                Bytes got = d[p];
                Current().blend[m](got.data(), s[p].data(), 65536, TablesFor(&hsl, m));
                ASSERT_EQ(got, want[p][m]) << "mode " << m << ", pairing " << p;
            }
    });
}

TEST(ComposeSimdPairs, HslModesEqualPlainOnTiesGreysAndEdgeAlphas) {
    std::mt19937 rng(13);
    stdfx::CHSL hsl;
    const int kPixels = 1 << 17;
    Bytes d, s;
    TiedRow(d, kPixels, rng);
    TiedRow(s, kPixels, rng);
    Bytes want[4];
    for (int m = 13; m <= 16; ++m) {
        want[m - 13] = d;
        PlainKernels().blend[m](want[m - 13].data(), s.data(), kPixels, TablesFor(&hsl, m));
    }
    kelptest::ForEachSimdTarget([&](int target) {
        for (int m = 13; m <= 16; ++m) {
            if (target != kelp::kSimdPlain) {
                EXPECT_NE(Current().blend[m], PlainKernels().blend[m]);
            }
            Bytes got = d;
            Current().blend[m](got.data(), s.data(), kPixels, TablesFor(&hsl, m));
            ASSERT_EQ(got, want[m - 13]) << "mode " << m;
            // A table for another mode, or none of the reciprocals, keeps the plain loop's
            // answer.
            stdfx::compose::Tables other = TablesFor(&hsl, m == 16 ? 13 : m + 1);
            Bytes plainOther = d, gotOther = d;
            PlainKernels().blend[m](plainOther.data(), s.data(), 999, other);
            Current().blend[m](gotOther.data(), s.data(), 999, other);
            ASSERT_EQ(gotOther, plainOther) << "mode " << m << " with the table of another";
            stdfx::compose::Tables none = TablesFor(&hsl, m);
            none.recip = nullptr;
            gotOther = d;
            Current().blend[m](gotOther.data(), s.data(), kPixels, none);
            ASSERT_EQ(gotOther, want[m - 13]) << "mode " << m << " without reciprocals";
        }
    });
}

// Every opacity on rows where each byte position takes every value; both luma offsets
// and both 4:2:2 orders.
TEST(ComposeSimdPairs, DissolvesEqualPlainOnEveryByteAndOpacity) {
    std::mt19937 rng(17);
    const int kPixels = 512; // two bytes a pixel in 4:2:2, so every byte there too
    Bytes first(kPixels * 4), second(kPixels * 4), fAlpha(kPixels), sAlpha(kPixels);
    for (int i = 0; i < kPixels * 4; ++i) {
        first[i] = uint8_t(i / 4 + 37 * (i % 4));
        second[i] = uint8_t(rng());
    }
    for (int i = 0; i < kPixels; ++i)
        fAlpha[i] = uint8_t(i), sAlpha[i] = uint8_t(rng());
    kelptest::ForEachSimdTarget([&](int target) {
        const Kernels& k = Current();
        const Kernels& p = PlainKernels();
        if (target != kelp::kSimdPlain) {
            EXPECT_NE(k.scale444, p.scale444);
            EXPECT_NE(k.mix444, p.mix444);
            EXPECT_NE(k.mix422, p.mix422);
        }
        for (int a = 0; a < 256; ++a)
            for (int luma : {0, 16}) {
                Bytes want(kPixels * 4), got(kPixels * 4);
                p.scale444(want.data(), first.data(), kPixels, a, luma);
                k.scale444(got.data(), first.data(), kPixels, a, luma);
                ASSERT_EQ(got, want) << "4:4:4 BlendTwo, a " << a << ", k " << luma;
                p.mix444(want.data(), first.data(), second.data(), kPixels, a, luma);
                k.mix444(got.data(), first.data(), second.data(), kPixels, a, luma);
                ASSERT_EQ(got, want) << "4:4:4 BlendThree, a " << a << ", k " << luma;
                // The two sources swapped: every second byte against every first alpha.
                p.mix444(want.data(), second.data(), first.data(), kPixels, a, luma);
                k.mix444(got.data(), second.data(), first.data(), kPixels, a, luma);
                ASSERT_EQ(got, want) << "4:4:4 BlendThree swapped, a " << a << ", k " << luma;
                for (int parity : {0, 1}) {
                    Bytes wantA(kPixels), gotA(kPixels);
                    p.mix422(want.data(), wantA.data(), first.data(), fAlpha.data(), second.data(),
                             sAlpha.data(), kPixels, a, luma, parity);
                    k.mix422(got.data(), gotA.data(), first.data(), fAlpha.data(), second.data(),
                             sAlpha.data(), kPixels, a, luma, parity);
                    ASSERT_EQ(got, want) << "4:2:2 BlendThree, a " << a << ", parity " << parity;
                    ASSERT_EQ(gotA, wantA) << "4:2:2 alpha, a " << a;
                    p.mix422(want.data(), wantA.data(), second.data(), sAlpha.data(), first.data(),
                             fAlpha.data(), kPixels, a, luma, parity);
                    k.mix422(got.data(), gotA.data(), second.data(), sAlpha.data(), first.data(),
                             fAlpha.data(), kPixels, a, luma, parity);
                    ASSERT_EQ(got, want) << "4:2:2 swapped, a " << a << ", parity " << parity;
                    ASSERT_EQ(gotA, wantA) << "4:2:2 alpha swapped, a " << a;
                }
            }
    });
}

// The luma mattes compute the luma sum when the table's rows are linear (the
// translators' table is) and gather it otherwise: both give the plain loop's bytes.
TEST(ComposeSimdPairs, LumaMattesEqualPlainWithLinearAndOtherTables) {
    std::mt19937 rng(23);
    stdfx::CHSL hsl;
    const int32_t* real = stdfx::GetRGB2YUV()->GetTable(0);
    EXPECT_TRUE(LumaRowsLinear(real));
    std::vector<int32_t> bent(real, real + 2304);
    bent[256 + 100] += 0x20000; // one G to Y entry off its line: luma index + 2, in the table
    EXPECT_FALSE(LumaRowsLinear(bent.data()));
    Bytes d, s;
    PairRows(kColours, d, s, rng);
    kelptest::ForEachSimdTarget([&](int) {
        for (const int32_t* rows : {real, const_cast<const int32_t*>(bent.data())})
            for (int m : {18, 20}) {
                stdfx::compose::Tables t = TablesFor(&hsl, m);
                t.toYuv = rows;
                Bytes want = d, got = d;
                PlainKernels().blend[m](want.data(), s.data(), 65536, t);
                Current().blend[m](got.data(), s.data(), 65536, t);
                ASSERT_EQ(got, want) << "mode " << m << (rows == real ? "" : ", bent table");
            }
    });
}
