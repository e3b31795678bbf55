// Resampling kernels, the toolkit's lookup tables and the HSL conversions.
#include <gtest/gtest.h>

#include <cmath>

#include <kelp/stdfx.h>

using stdfx::CTables;
using stdfx2d::CFilter;

TEST(Filter, KindsRadiiAndTheirEdges) {
    const double radii[CFilter::kKinds] = {0,   0,   0,   0.5, 1,    1, 1.5, 2,  2, 2,
                                           3.0, 4.0, 5.0, 6.0, 1.25, 8, 16,  32, 2};
    for (int k = 0; k < CFilter::kKinds; ++k) {
        CFilter f;
        f.Select(k);
        SCOPED_TRACE(k);
        EXPECT_EQ(f.Kind(), k);
        EXPECT_EQ(f.Radius(), radii[k]);
        EXPECT_EQ(f.GetFunction() == nullptr, k <= 2);
        if (!f.GetFunction() || k == CFilter::kBox) continue;
        // Symmetric, and nothing at or beyond the radius except the cut Gaussian.
        EXPECT_EQ(f(0.3), f(-0.3));
        EXPECT_EQ(f(radii[k]), 0.0);
        EXPECT_EQ(f(radii[k] + 0.5), 0.0);
    }
    CFilter a, b, c;
    a.Select(18);
    b.Select(100);
    c.Select(-1);
    EXPECT_EQ(a.GetFunction(), b.GetFunction());
    EXPECT_EQ(a.GetFunction(), c.GetFunction());
    EXPECT_EQ(c.Kind(), -1);
    EXPECT_EQ(c.Radius(), 2.0);
}

TEST(Filter, ValuesAtZeroAndTheAsymmetricBox) {
    CFilter f;
    f.Select(CFilter::kBox);
    EXPECT_EQ(f(0.5), 1.0);
    EXPECT_EQ(f(-0.5), 0.0);
    for (int k : {10, 11, 12, 13, 15, 16, 17}) {
        f.Select(k);
        EXPECT_EQ(f(0.0), 1.0) << k;
        EXPECT_EQ(f(1.0), std::sin(M_PI) / M_PI * f(1.0) / (std::sin(M_PI) / M_PI)) << k;
        EXPECT_NEAR(f(2.0), 0.0, 1e-15) << k; // zeros of sinc at whole numbers
    }
    struct Case {
        int kind;
        double x, value;
    } cases[] = {
        {4, 0.25, 0.75},
        {5, 0.5, 0.5},
        {6, 0.0, 0.75},
        {6, 1.0, 0.125},
        {7, 0.0, 0.6666666666666666},
        {7, 1.0, 0.16666666666666666},
        {9, 0.0, 0.8888888888888888},
        {14, 0.0, std::sqrt(0.6366197723675814)},
        {14, 1.2, std::exp(-2 * 1.44) * std::sqrt(0.6366197723675814)}, // cut, not yet 0
        {18, 0.0, 0.6190476190476191},
    };
    for (const auto& c : cases) {
        f.Select(c.kind);
        EXPECT_DOUBLE_EQ(f(c.x), c.value) << c.kind << " at " << c.x;
    }
}

TEST(Tables, ClampsExpansionAndDivisions) {
    CTables* t = stdfx::GetTables();
    ASSERT_NE(t, nullptr);
    ASSERT_TRUE(t->FillAll());
    const int32_t* clamp = t->GetClamp() + 256;
    const int32_t* y = t->GetClampY() + 256;
    const int32_t* c = t->GetClampC() + 256;
    struct Case {
        int i, clamp, y, c;
    } cases[] = {{-256, 0, 16, 16},    {-1, 0, 16, 16},      {0, 0, 16, 16},
                 {16, 16, 16, 16},     {100, 100, 100, 100}, {236, 236, 235, 236},
                 {241, 241, 235, 240}, {255, 255, 235, 240}, {256, 255, 235, 240},
                 {511, 255, 235, 240}};
    for (const auto& k : cases) {
        EXPECT_EQ(clamp[k.i], k.clamp) << k.i;
        EXPECT_EQ(y[k.i], k.y) << k.i;
        EXPECT_EQ(c[k.i], k.c) << k.i;
    }
    const int32_t* e = t->GetExpandY();
    EXPECT_EQ(e[0], 0);
    EXPECT_EQ(e[16], 0);
    EXPECT_EQ(e[17], 1);
    EXPECT_EQ(e[126], (110 * 255 + 109) / 219);
    EXPECT_EQ(e[235], 255);
    EXPECT_EQ(e[255], 255);
    const float* r = t->GetRecip();
    EXPECT_EQ(r[0], 0.0f);
    EXPECT_EQ(r[1], 1.0f);
    EXPECT_EQ(r[510], 1.0f / 510.0f);
    EXPECT_EQ(t->GetDiv24()[0], 0);
    EXPECT_EQ(t->GetDiv24()[3], (1 + 0xFF0000) / 3);
    EXPECT_EQ(t->GetDiv17()[255], 0x1FE00 / 255);
    EXPECT_EQ(t->GetDiv16()[2], (1 + 0xFF00) / 2);
    // Filled once: the getters give the same table every time.
    EXPECT_EQ(t->GetClamp(), t->GetClamp());
}

TEST(Tables, EveryKernelPhaseSumsToItsTotal) {
    CTables* t = stdfx::GetTables();
    ASSERT_NE(t, nullptr);
    for (int k = 0; k < CFilter::kKinds; ++k)
        for (int precision : {0, 1}) {
            stdfx::KernelEntry* const* row = t->GetKernel(k, precision);
            ASSERT_NE(row, nullptr);
            CFilter f;
            f.Select(k);
            const int room = int(2 * f.Radius() + 5);
            for (int p = 0; p < CTables::kPhases; ++p) {
                int32_t sum = 0;
                ASSERT_GT(row[p]->count, 0);
                ASSERT_LE(row[p]->count, room);
                for (int i = 0; i < row[p]->count; ++i) {
                    sum += row[p]->taps[i].weight;
                    EXPECT_NE(row[p]->taps[i].weight, 0);
                }
                ASSERT_EQ(sum, precision ? 16384 : 65536) << "kind " << k << " phase " << p;
            }
        }
    EXPECT_EQ(t->GetKernel(19, 0), nullptr);
    EXPECT_EQ(t->GetKernel(-1, 0), nullptr);
}

TEST(Tables, KernelTapsOfNearestBoxAndTriangle) {
    CTables* t = stdfx::GetTables();
    // Nearest: one tap at the rounded position.
    stdfx::KernelEntry* const* n = t->GetKernel(0, 0);
    EXPECT_EQ(n[127]->count, 1);
    EXPECT_EQ(n[127]->taps[0].offset, 0);
    EXPECT_EQ(n[128]->taps[0].offset, 1);
    EXPECT_EQ(n[128]->taps[0].weight, 65536);
    // Box at phase 128: x - 0 = 0.5 is inside, x - 1 = -0.5 is not.
    stdfx::KernelEntry* const* box = t->GetKernel(3, 0);
    EXPECT_EQ(box[128]->count, 1);
    EXPECT_EQ(box[128]->taps[0].offset, 0);
    // Triangle at phase 64: 0.75 and 0.25 of the total, each rounded away from zero.
    stdfx::KernelEntry* const* tri = t->GetKernel(4, 1);
    ASSERT_EQ(tri[64]->count, 2);
    EXPECT_EQ(tri[64]->taps[0].offset, 0);
    EXPECT_EQ(tri[64]->taps[0].weight, 12288);
    EXPECT_EQ(tri[64]->taps[1].offset, 1);
    EXPECT_EQ(tri[64]->taps[1].weight, 4096);
}

TEST(HSL, GreyPrimariesAndBack) {
    stdfx::CHSL hsl;
    float h, l, s;
    hsl.RGBToHSL(&h, &l, &s, 128, 128, 128);
    EXPECT_EQ(h, 0.0f);
    EXPECT_EQ(s, 0.0f);
    EXPECT_FLOAT_EQ(l, 256 * 0.0019607844f);
    struct Case {
        int r, g, b;
        float h;
    } primaries[] = {{255, 0, 0, 0.0f},
                     {0, 255, 0, 2 * 0.16666667f},
                     {0, 0, 255, 4 * 0.16666667f},
                     {255, 255, 0, 1 * 0.16666667f},
                     {0, 255, 255, 3 * 0.16666667f},
                     {255, 0, 255, 5 * 0.16666667f}};
    for (const auto& c : primaries) {
        hsl.RGBToHSL(&h, &l, &s, c.r, c.g, c.b);
        EXPECT_FLOAT_EQ(h, c.h) << c.r << ' ' << c.g << ' ' << c.b;
        EXPECT_FLOAT_EQ(s, 1.0f);
        EXPECT_FLOAT_EQ(l, 0.5f);
        int r, g, b;
        hsl.HSLToRGB(&r, &g, &b, h, l, s);
        EXPECT_EQ(r, c.r);
        EXPECT_EQ(g, c.g);
        EXPECT_EQ(b, c.b);
        hsl.RGBToHSL16(&h, &l, &s, c.r * 257, c.g * 257, c.b * 257);
        EXPECT_FLOAT_EQ(h, c.h);
        hsl.HSLToRGB16(&r, &g, &b, h, l, s);
        EXPECT_EQ(r, c.r * 257);
        EXPECT_EQ(g, c.g * 257);
        EXPECT_EQ(b, c.b * 257);
    }
    // A hue of -1 is grey in every form.
    unsigned char bgr[3];
    hsl.HSLToBytes(bgr, -1.0f, 0.25f, 1.0f);
    EXPECT_EQ(bgr[0], bgr[1]);
    EXPECT_EQ(bgr[1], bgr[2]);
    EXPECT_EQ(bgr[0], 64); // 63.75 + 0.5 to the nearest
    int r, g, b;
    hsl.HSLToRGB(&r, &g, &b, -1.0f, 0.25f, 1.0f);
    EXPECT_EQ(r, 64);
    // A hue of exactly 1 takes the repeated first sextant row.
    hsl.HSLToRGB(&r, &g, &b, 1.0f, 0.5f, 1.0f);
    EXPECT_EQ(r, 255);
    EXPECT_EQ(g, 0);
    EXPECT_EQ(b, 0);
}

// A mixed colour goes to HSL and back within the rounding of its forms, and the three
// backward forms round as they are meant to: truncation of v * 255 + 0.5 versus the
// nearest value.
TEST(HSL, RoundTripsAndTheirRoundings) {
    stdfx::CHSL hsl;
    for (int r = 0; r < 256; r += 15)
        for (int g = 0; g < 256; g += 17)
            for (int b = 0; b < 256; b += 51) {
                float h, l, s;
                hsl.RGBToHSL(&h, &l, &s, r, g, b);
                ASSERT_GE(h, 0.0f);
                ASSERT_LE(h, 1.0f);
                int R, G, B;
                hsl.HSLToRGB(&R, &G, &B, h, l, s);
                EXPECT_NEAR(R, r, 1);
                EXPECT_NEAR(G, g, 1);
                EXPECT_NEAR(B, b, 1);
                unsigned char bgr[3];
                hsl.HSLToBytes(bgr, h, l, s);
                EXPECT_NEAR(bgr[2], r, 1);
                EXPECT_NEAR(bgr[0], b, 1);
            }
    // White: 255.5 to the nearest is 256, which a byte keeps at 255.
    unsigned char bgr[3];
    hsl.HSLToBytes(bgr, 0.0f, 1.0f, 0.0f);
    EXPECT_EQ(bgr[0], 255);
}
