// The pieces the time stretchers are made of: the float vector, the window table and
// the real transform.
#include <gtest/gtest.h>

#include <kelp/kelp.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace {

Fvec Make(std::initializer_list<float> values) {
    Fvec v;
    v.alloc(unsigned(values.size()));
    unsigned i = 0;
    for (float x : values)
        v[i++] = x;
    return v;
}

std::vector<float> Elements(const Fvec& v) {
    return std::vector<float>(v.data(), v.data() + v.size());
}

} // namespace

TEST(Fvec, EdgesOfTheElementOperations) {
    Fvec v = Make({-4.0f, 0.0f, 9.0f});
    v.rescale(1.0f, 2.0f, 10.0f, 4.0f); // ((x - 1) / 2) * 4 + 10
    EXPECT_EQ(Elements(v), (std::vector<float>{0.0f, 8.0f, 26.0f}));
    v.fill(1, 99, -1.0f); // the end is clipped to the length
    EXPECT_EQ(Elements(v), (std::vector<float>{0.0f, -1.0f, -1.0f}));

    Fvec d = Make({100.0f, 0.0f, -1e-9f, 1e-6f});
    d.toDecibel();
    EXPECT_FLOAT_EQ(d[0], 40.0f);
    EXPECT_FLOAT_EQ(d[1], -100.0f); // raised to the floor of 1e-5
    EXPECT_TRUE(std::isnan(d[2]));  // a negative floor has no logarithm
    EXPECT_FLOAT_EQ(d[3], -100.0f);

    struct Case {
        std::vector<float> values;
        float mean, variance;
    } cases[] = {
        {{}, 0.0f, 0.0f},            // no division for an empty vector
        {{-1.0f, 1.0f}, 0.0f, 1.0f}, // a sum of 0 still has a spread
        {{2.0f, 4.0f, 6.0f}, 4.0f, 8.0f / 3.0f},
    };
    for (const Case& c : cases) {
        Fvec s;
        s.alloc(unsigned(c.values.size()));
        for (unsigned i = 0; i < s.size(); ++i)
            s[i] = c.values[i];
        EXPECT_FLOAT_EQ(s.mean(), c.mean);
        EXPECT_NEAR(s.variance(), c.variance, 1e-6f);
        EXPECT_NEAR(s.stdDev(), std::sqrt(c.variance), 1e-6f);
    }
}

TEST(Fvec, CopiesViewsAndArithmetic) {
    float memory[4] = {1.0f, 2.0f, 3.0f, 4.0f};
    Fvec view(2);
    view.setData(memory + 1);
    view[1] = 30.0f; // writes through to the memory viewed
    EXPECT_EQ(memory[2], 30.0f);
    Fvec copy(view); // a copy owns its elements
    copy[0] = 0.0f;
    EXPECT_EQ(memory[1], 2.0f);

    Fvec other(3);
    other.fill(7.0f);
    other = copy; // another length: nothing happens
    EXPECT_EQ(Elements(other), (std::vector<float>{7.0f, 7.0f, 7.0f}));

    Fvec a = Make({1.0f, 2.0f}), b = Make({10.0f, 20.0f, 30.0f});
    EXPECT_EQ(Elements(a + b), (std::vector<float>{11.0f, 22.0f, 30.0f}));
    EXPECT_EQ(Elements(a - b), (std::vector<float>{-9.0f, -18.0f, -30.0f}));
}

TEST(Aperture, ShapesPeakAndVanishWhereTheyShould) {
    const unsigned n = 16;
    struct Case {
        unsigned type;
        bool periodic;
        unsigned peakAt;
        float peak;
        float first;
    } cases[] = {
        {0, true, 0, 1.0f, 1.0f},
        {1, true, 8, 1.0f, 0.08f},
        {2, true, 8, 1.0f, 0.0f},
        {3, true, 7, 1.0f - 0.5f / 7.5f, 0.0f}, // centred at 7.5 whatever the flag
        {4, true, 8, 1.0f, 0.0f},
        {5, true, 8, 1.0f, 0.00006f},
        {6, true, 8, 1.0f, 0.0f}, // the first Kaiser point is forced to 0
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.type);
        Aperture a(n, 0, 1, c.periodic, c.type);
        const Fvec& w = a.window();
        ASSERT_EQ(w.size(), n);
        unsigned at = 0;
        for (unsigned i = 0; i < n; ++i)
            if (w[i] > w[at]) at = i;
        EXPECT_EQ(at, c.peakAt);
        EXPECT_NEAR(w[at], c.peak, 1e-5f);
        EXPECT_NEAR(w[0], c.first, 1e-5f);
    }
    // Hann, periodic: 0 at the first point only, and symmetric around the peak.
    Aperture hann(2048, 0, 1, true, 2);
    const Fvec& w = hann.window();
    EXPECT_EQ(w[1024], 1.0f);
    EXPECT_EQ(w[0], 0.0f);
    for (unsigned i = 1; i < 2048; ++i) {
        ASSERT_GT(w[i], 0.0f) << i;
        ASSERT_NEAR(w[i], w[2048 - i], 1e-6f) << i;
    }
    // Symmetric Hann: zeros at both ends.
    Aperture sym(9, 0, 1, false, 2);
    EXPECT_NEAR(sym.window()[8], 0.0f, 1e-7f);
    EXPECT_NEAR(sym.window()[4], 1.0f, 1e-7f);
}

TEST(Aperture, KaiserFollowsTheBesselRatio) {
    // Points away from the edges against I0 from its power series.
    auto i0 = [](double x) {
        double sum = 1, term = 1;
        for (int k = 1; k < 40; ++k) {
            term *= (x / 2) * (x / 2) / (double(k) * k);
            sum += term;
        }
        return sum;
    };
    const unsigned L = 64;
    Aperture k(L, 0, 1, true, 6);
    for (unsigned i = 1; i < L; ++i) {
        double kk = i < L / 2 ? double(L / 2 - i) : double(i - L / 2);
        double r = 2 * kk / (L - 1);
        double want = i0(6.8 * std::sqrt(1 - r * r)) / i0(6.8);
        // The polynomial approximation is good to about 2e-7 relative.
        EXPECT_NEAR(k.window()[i], want, 2e-6 * want + 1e-7) << i;
    }
}

TEST(Aperture, AppliesWithPaddingStepAndScale) {
    Aperture a(8, 2, 1, true, 0); // six ones, one zero point padded at each end
    a.scale(3.0f);
    Fvec x(8);
    x.fill(2.0f);
    a.process(x, x); // in place
    EXPECT_EQ(Elements(x), (std::vector<float>{0, 6, 6, 6, 6, 6, 6, 0}));

    Aperture stepped(6, 0, 2, true, 0);
    stepped.scale(5.0f);
    Fvec in(6), out(6);
    in.fill(1.0f);
    out.fill(-1.0f);
    stepped.process(in, out);
    EXPECT_EQ(Elements(out), (std::vector<float>{5, -1, 5, -1, 5, -1}));
}

TEST(Aperture, WarnsOnTheStandardErrorStream) {
    testing::internal::CaptureStderr();
    Aperture bad(16, 0, 1, true, 7);
    std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text, "Warning: invalid window selection!\n");
    Fvec in(16), out(16);
    in.fill(1.0f);
    out.fill(5.0f);
    bad.process(in, out); // no window: the output stays
    EXPECT_EQ(out[3], 5.0f);

    Aperture good(16, 0, 1, true, 0);
    Fvec shorter(15);
    testing::internal::CaptureStderr();
    good.process(shorter, out);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Warning: window size does not match data size!\n");
    EXPECT_EQ(out[3], 5.0f);
}

TEST(FFT, ForwardMatchesTheDefinitionAndInverseRestores) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> uni(-1.0f, 1.0f);
    for (unsigned n : {4u, 8u, 64u, 2048u}) {
        SCOPED_TRACE(n);
        Fvec x(n);
        for (unsigned i = 0; i < n; ++i)
            x[i] = uni(rng);
        Fvec y(x);
        FFT forward(n, true), inverse(n, false);
        forward.process(y);
        // (1/N) sum x[t] e^(+2 pi i t k / N), DC and Nyquist packed in the first pair.
        const double pi = 3.14159265358979323846;
        double worst = 0;
        for (unsigned k = 0; k <= n / 2; ++k) {
            double re = 0, im = 0;
            for (unsigned t = 0; t < n; ++t) {
                double a = 2 * pi * double(t) * double(k) / n;
                re += x[t] * std::cos(a);
                im += x[t] * std::sin(a);
            }
            re /= n;
            im /= n;
            if (k == 0) {
                worst = std::max(worst, std::fabs(y[0] - re));
            } else if (k == n / 2) {
                worst = std::max(worst, std::fabs(y[1] - re));
            } else {
                worst = std::max(worst, std::fabs(y[2 * k] - re));
                worst = std::max(worst, std::fabs(y[2 * k + 1] - im));
            }
        }
        EXPECT_LT(worst, 1e-6);
        inverse.process(y);
        for (unsigned i = 0; i < n; ++i)
            ASSERT_NEAR(y[i], x[i], 2e-6f) << i;
    }
}

TEST(FFT, WarnsOnASizeMismatchAndStaysInBounds) {
    FFT f(16, true);
    Fvec longer(32);
    longer[0] = 16.0f;
    testing::internal::CaptureStderr();
    f.process(longer); // works on the first 16
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Warning: FFT::process : _inSize and input window size do not agree\n");
    EXPECT_FLOAT_EQ(longer[0], 1.0f);
    EXPECT_FLOAT_EQ(longer[2], 1.0f);
    EXPECT_EQ(longer[16], 0.0f);
    Fvec shorter(8);
    testing::internal::CaptureStderr();
    f.process(shorter); // warned about, and left alone
    EXPECT_FALSE(testing::internal::GetCapturedStderr().empty());
}
