#include <gtest/gtest.h>

#include <kelp/samrate.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "audio/CSamRate.h"
#include "tracecapture.h"

using kelp::CSamRateCon;
namespace samrate = kelp::samrate;

namespace {

constexpr int kModes = CSamRateCon::kModes;
constexpr uint32_t kRate[5] = {11025, 22050, 32000, 44100, 48000};
constexpr uint32_t kPhases[5] = {441, 882, 1280, 1764, 1920};

CSamRateCon::MODE Mode(int m) { return CSamRateCon::MODE(m); }

struct Rates {
    uint32_t src, dst; // in hertz
};
Rates RatesOf(int m) {
    const auto r = samrate::RatesOf(m);
    return {kRate[r.src], kRate[r.dst]};
}

// Where the outputs of a mode lie on the source grid. Within one 40 ms pattern, output i
// is at i * step source samples; pattern q starts at q * patternSources, after
// patternOutputs outputs.
//  - Falling rates step by 1 plus the fraction of src/dst (2 when there is none): the
//    interpolator steps past a whole sample where the fraction wraps. Up to a fall of 2
//    that is the exact ratio; above it (48000 to 22050 and to 11025, 44100 to 11025) the
//    modes advance by less, and the output is played slower and lower. That is their
//    behaviour and these positions pin it down.
//  - Rising rates step by src/dst. A pattern that ends without a step at its last but
//    one phase (ratio src/dst at most 1/2) drops its last phase: L - 1 outputs.
struct Grid {
    double step;
    uint32_t patternOutputs;
    double patternSources;
};
Grid GridOf(int m) {
    const auto ri = samrate::RatesOf(m);
    const Rates r = RatesOf(m);
    const uint32_t L = kPhases[ri.dst];
    if (r.src > r.dst) {
        const double ratio = double(r.src) / r.dst;
        double fraction = ratio - std::floor(ratio);
        if (fraction == 0.0) fraction = 1.0;
        // L * fraction is a whole number: the source phases of a pattern less L * floor.
        const double sources = double(L) + std::round(double(L) * fraction);
        return {sources / L, L, sources};
    }
    const double step = double(r.src) / r.dst;
    return {step, step <= 0.5 ? L - 1 : L, double(kPhases[ri.src])};
}

double PositionOf(const Grid& g, uint64_t k) {
    return double(k / g.patternOutputs) * g.patternSources + double(k % g.patternOutputs) * g.step;
}

std::vector<short> Noise(size_t n, uint32_t seed, int amplitude = 32767) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> d(-amplitude, amplitude);
    std::vector<short> v(n);
    for (auto& s : v) s = short(d(rng));
    return v;
}

std::vector<short> ConvertAll(int mode, const std::vector<short>& src) {
    CSamRateCon c(Mode(mode));
    std::vector<short> out(c.GetMaxDestSize(uint32_t(src.size())));
    out.resize(c.Convert(src.data(), out.data(), uint32_t(src.size()), 0, 1));
    return out;
}

} // namespace

TEST(SamRate, FindModeOverAllPairs) {
    const int expected[5][5] = {
        // to 11025, 22050, 32000, 44100, 48000
        {-1, -1, -1, 3, 6},  // from 11025
        {-1, -1, -1, 4, 7},  // from 22050
        {-1, -1, -1, 5, 9},  // from 32000
        {13, 11, 0, -1, 8},  // from 44100
        {12, 10, 2, 1, -1},  // from 48000
    };
    kelptest::SinkSetLevelMask(0xFFFFFFFFu);
    for (int s = 0; s < 5; ++s)
        for (int d = 0; d < 5; ++d) {
            kelptest::SinkClear();
            EXPECT_EQ(CSamRateCon::FindMode(int(kRate[s]), int(kRate[d])), expected[s][d]);
            const auto lines = kelptest::SinkLines();
            if (expected[s][d] >= 0) {
                EXPECT_TRUE(lines.empty());
                continue;
            }
            ASSERT_EQ(lines.size(), 1u);
            EXPECT_EQ(lines[0].area, 8u);
            EXPECT_EQ(lines[0].level, 2u);
            EXPECT_EQ(lines[0].text, L"CSamRateCon: Unable to convert SampleRate " +
                                         std::to_wstring(kRate[s]) + L"->" +
                                         std::to_wstring(kRate[d]) + L"\n\r");
        }
    EXPECT_EQ(CSamRateCon::FindMode(8000, 48000), CSamRateCon::MODE_NONE);
    EXPECT_EQ(CSamRateCon::FindMode(-44100, 48000), CSamRateCon::MODE_NONE);
}

TEST(SamRate, TablesAreLagrangeWeightsAtTheFractionalPositions) {
    for (int m = 0; m < kModes; ++m) {
        SCOPED_TRACE(m);
        CSamRateCon c(Mode(m));
        const auto t = samrate::PeekShared(m);
        ASSERT_NE(t.alpha, nullptr);
        const Rates r = RatesOf(m);
        const double ratio = double(r.src) / r.dst;
        for (uint32_t i = 0; i <= t.length; ++i) {
            const double exact = std::fmod(double(i) * r.src, double(r.dst)) / r.dst;
            const double a = t.alpha[i];
            EXPECT_NEAR(a, exact, 1e-12) << i;
            EXPECT_GE(a, 0.0);
            EXPECT_LT(a, 1.0);
            if (i == t.length) break;
            // The weights through -1, 0, +1 reproduce 1, t and t^2 at t = a.
            EXPECT_NEAR(t.cm1[i] + t.c0[i] + t.cp1[i], 1.0, 1e-15);
            EXPECT_NEAR(t.cp1[i] - t.cm1[i], a, 1e-15);
            EXPECT_NEAR(t.cp1[i] + t.cm1[i], a * a, 1e-15);
        }
        EXPECT_EQ(t.alpha[0], 0.0);
        if (ratio == std::floor(ratio)) {
            for (uint32_t i = 0; i <= t.length; ++i) EXPECT_EQ(t.alpha[i], 0.0);
        }
    }
    // 11025 to 44100: 0, 0.25, 0.5, 0.75 over and over, exactly.
    CSamRateCon c(CSamRateCon::MODE_11025_44100);
    const auto t = samrate::PeekShared(3);
    for (uint32_t i = 0; i <= t.length; ++i) ASSERT_EQ(t.alpha[i], 0.25 * (i % 4)) << i;
}

TEST(SamRate, TablesSharedByInstancesOfAMode) {
    const int m = CSamRateCon::MODE_32000_44100;
    EXPECT_EQ(samrate::PeekShared(m).instances, 0);
    EXPECT_EQ(samrate::PeekShared(m).alpha, nullptr);
    auto a = std::make_unique<CSamRateCon>(Mode(m));
    const auto first = samrate::PeekShared(m);
    EXPECT_EQ(first.instances, 1);
    {
        CSamRateCon b(Mode(m));
        CSamRateCon other(CSamRateCon::MODE_44100_48000);
        const auto second = samrate::PeekShared(m);
        EXPECT_EQ(second.instances, 2);
        EXPECT_EQ(second.alpha, first.alpha);
        EXPECT_EQ(second.cp1, first.cp1);
        EXPECT_EQ(samrate::PeekShared(8).instances, 1);
    }
    EXPECT_EQ(samrate::PeekShared(m).instances, 1);
    EXPECT_EQ(samrate::PeekShared(m).alpha, first.alpha);
    EXPECT_EQ(samrate::PeekShared(8).alpha, nullptr);
    a.reset();
    const auto gone = samrate::PeekShared(m);
    EXPECT_EQ(gone.instances, 0);
    EXPECT_EQ(gone.alpha, nullptr);
    EXPECT_EQ(gone.cm1, nullptr);
    EXPECT_EQ(gone.c0, nullptr);
    EXPECT_EQ(gone.cp1, nullptr);
}

TEST(SamRate, FailedTableAllocationLeavesAnInertInstance) {
    const int m = CSamRateCon::MODE_22050_48000;
    kelptest::SinkSetLevelMask(0xFFFFFFFFu);
    for (int nth = 1; nth <= 4; ++nth) {
        SCOPED_TRACE(nth);
        kelptest::SinkClear();
        samrate::FailTableAllocation(nth);
        {
            CSamRateCon c(Mode(m));
            EXPECT_EQ(c.GetLastError(), CSamRateCon::SRC_NOMEMORY);
            const auto lines = kelptest::SinkLines();
            ASSERT_EQ(lines.size(), 1u);
            EXPECT_EQ(lines[0].text, L"ASSERTION FAILED!\npDouble ,.\\CSamRate, 207");
            EXPECT_EQ(lines[0].area, 8u);
            EXPECT_EQ(lines[0].level, 2u);
            const auto t = samrate::PeekShared(m);
            EXPECT_EQ(t.instances, 0);
            EXPECT_EQ(t.alpha, nullptr);
            EXPECT_EQ(t.cp1, nullptr);
            short in[8] = {1, 2, 3, 4, 5, 6, 7, 8}, out[64] = {};
            EXPECT_EQ(c.Convert(in, out, 8, 16, 1), 0u);
            EXPECT_EQ(out[0], 0);
            EXPECT_EQ(c.GetMaxDestSize(1000), 0u);
        }
        // The failed instance gave its share back once: the next one builds the tables
        // and is the only owner.
        EXPECT_EQ(samrate::PeekShared(m).instances, 0);
        samrate::FailTableAllocation(0);
        {
            CSamRateCon c(Mode(m));
            EXPECT_EQ(c.GetLastError(), CSamRateCon::SRC_OK);
            EXPECT_EQ(samrate::PeekShared(m).instances, 1);
        }
        EXPECT_EQ(samrate::PeekShared(m).alpha, nullptr);
    }
}

TEST(SamRate, BadModeAndBadArguments) {
    for (int bad : {-1, 14, 1000}) {
        CSamRateCon c(Mode(bad));
        EXPECT_EQ(c.GetLastError(), CSamRateCon::SRC_BADMODE);
        EXPECT_EQ(c.GetMaxDestSize(100), 0u);
        short in[4] = {1, 2, 3, 4}, out[16] = {};
        EXPECT_EQ(c.Convert(in, out, 4, 8, 1), 0u);
        EXPECT_EQ(out[0], 0);
    }
    for (int m = 0; m < kModes; ++m) EXPECT_EQ(samrate::PeekShared(m).instances, 0) << m;

    CSamRateCon c(CSamRateCon::MODE_44100_48000);
    short in[4] = {1, 2, 3, 4}, out[16] = {};
    EXPECT_EQ(c.Convert(nullptr, out, 4, 0, 1), 0u);
    EXPECT_EQ(c.Convert(in, nullptr, 4, 0, 1), 0u);
    EXPECT_EQ(c.Convert(in, out, 0, 8, 1), 0u);
    EXPECT_EQ(out[0], 0);
}

TEST(SamRate, MaxDestSize) {
    struct Case {
        int mode;
        uint32_t n, room;
    } cases[] = {
        {8, 1000, 1090},  // 1088.43 + 2
        {1, 1000, 920},   // 918.75 + 2
        {3, 1000, 4002},  {11, 1000, 502},
        {13, 1000, 502},  // steps by 2, not 4
        {10, 1000, 851},  // steps by 1.1768: 849.8 + 2
        {12, 1000, 740},  // steps by 1.3537: 738.7 + 2
        {8, 0, 2},        {6, 0xFFFFFFFFu, 0xFFFFFFFFu},
    };
    for (const auto& c : cases) {
        CSamRateCon s(Mode(c.mode));
        EXPECT_EQ(s.GetMaxDestSize(c.n), c.room) << c.mode;
    }
}

TEST(SamRate, OutputsPerPattern) {
    // Three whole patterns and the sample that starts the fourth, which is kept for the
    // next call: exactly three patterns of outputs.
    for (int m = 0; m < kModes; ++m) {
        SCOPED_TRACE(m);
        const Grid g = GridOf(m);
        const size_t n = size_t(3 * g.patternSources) + 1;
        const auto out = ConvertAll(m, Noise(n, 7));
        EXPECT_EQ(out.size(), 3u * g.patternOutputs);
    }
}

TEST(SamRate, BlocksOfAnyLengthGiveTheSameSamples) {
    // One channel of a three-channel buffer, cut into blocks of lengths down to 1, and
    // into whole 40 ms patterns, so that blocks end on the last centre of a pattern. The
    // other channels must stay untouched and no call may write more than GetMaxDestSize.
    const std::vector<short> src = Noise(30000, 11);
    const std::vector<uint32_t> mixed = {1, 2, 3, 1, 7, 64, 1, 1, 2, 441, 1000, 5, 1764, 1, 3000};
    for (int m = 0; m < kModes; ++m) {
        const std::vector<short> whole = ConvertAll(m, src);
        const uint32_t pattern = uint32_t(GridOf(m).patternSources);
        for (const auto& lengths : {mixed, {pattern}, {pattern - 1, 1}}) {
            SCOPED_TRACE(::testing::Message() << "mode " << m << ", first block " << lengths[0]);
            CSamRateCon c(Mode(m));
            std::vector<short> pieces;
            size_t at = 0;
            for (size_t k = 0; at < src.size(); ++k) {
                const uint32_t n =
                    uint32_t(std::min<size_t>(lengths[k % lengths.size()], src.size() - at));
                std::vector<short> in(3 * n, 12345);
                for (uint32_t i = 0; i < n; ++i) in[3 * i + 1] = src[at + i];
                const uint32_t room = c.GetMaxDestSize(n);
                std::vector<short> out(3 * size_t(room) - 1, -999); // room for channel 1
                const uint32_t o = c.Convert(in.data() + 1, out.data() + 1, n, 0, 3);
                ASSERT_LE(o, room);
                for (size_t i = 0; i < out.size(); ++i) {
                    if (i % 3 != 1 || i / 3 >= o) {
                        ASSERT_EQ(out[i], -999) << i;
                    }
                }
                for (uint32_t i = 0; i < n; ++i) {
                    ASSERT_EQ(in[3 * i], 12345);
                    ASSERT_EQ(in[3 * i + 2], 12345);
                }
                for (uint32_t i = 0; i < o; ++i) pieces.push_back(out[3 * i + 1]);
                at += n;
            }
            ASSERT_EQ(pieces.size(), whole.size());
            EXPECT_EQ(pieces, whole);
        }
    }
}

TEST(SamRate, TailFillRepeatsTheLastOutput) {
    const std::vector<short> src = Noise(40, 3);
    struct Case {
        int mode;
        uint32_t wanted;
        uint32_t expected; // outputs returned
    } cases[] = {
        {1, 1000, 0}, // falling: one repeated output
        {11, 1000, 0},
        {8, 60, 60},   // rising: up to the wanted count
        {3, 200, 200},
        {8, 5, 0},     // fewer wanted than made: nothing added
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.mode);
        const std::vector<short> plain = ConvertAll(c.mode, src);
        CSamRateCon s(Mode(c.mode));
        std::vector<short> out(std::max<uint32_t>(c.wanted, s.GetMaxDestSize(40)), 0);
        const uint32_t o = s.Convert(src.data(), out.data(), 40, c.wanted, 1);
        const uint32_t expected =
            c.expected ? c.expected
                       : uint32_t(plain.size()) + (plain.size() < c.wanted ? 1u : 0u);
        ASSERT_EQ(o, expected);
        for (size_t i = 0; i < o; ++i)
            EXPECT_EQ(out[i], i < plain.size() ? plain[i] : plain.back()) << i;
    }
}

TEST(SamRate, OutputsAreClippedToPlusMinus32767) {
    struct Case {
        int mode;
        std::vector<short> in;
        size_t index;
        short expected;
    } cases[] = {
        // A full negative sample passes through phase 0 as -32767, never -32768.
        {11, {-32768, -32768, -32768, -32768, -32768}, 0, -32767},
        {11, {32767, 0, -32768, 0, 5}, 1, -32767},
        // Halfway between 32767 and 32767 after -32768 overshoots to 40958: clipped.
        {4, {-32768, 32767, 32767, 32767}, 3, 32767},
        {4, {32767, -32768, -32768, -32768}, 3, -32767},
        {4, {0, 1000, 2000, 3000}, 3, 1500},
    };
    for (const auto& c : cases) {
        const auto out = ConvertAll(c.mode, c.in);
        ASSERT_GT(out.size(), c.index);
        EXPECT_EQ(out[c.index], c.expected) << c.mode;
    }
    // Alternating extremes in every mode: the overshoots stay within the clip levels.
    std::vector<short> square(5000);
    for (size_t i = 0; i < square.size(); ++i) square[i] = (i / 3) % 2 ? 32767 : -32768;
    for (int m = 0; m < kModes; ++m) {
        const auto out = ConvertAll(m, square);
        const auto [lo, hi] = std::minmax_element(out.begin(), out.end());
        EXPECT_EQ(*hi, 32767) << m;
        EXPECT_EQ(*lo, -32767) << m;
    }
}

TEST(SamRate, WholeRatioFallsTakeEverySecondSample) {
    const std::vector<short> src = Noise(1001, 5, 32767);
    for (int m : {11, 13}) {
        const auto out = ConvertAll(m, src);
        ASSERT_EQ(out.size(), 500u);
        for (size_t k = 0; k < out.size(); ++k) ASSERT_EQ(out[k], src[2 * k]) << m << " " << k;
    }
}

// A sine through every mode, each output compared with the sine at its source position.
// The tolerance is what the interpolator allows:
//  - Quadratic interpolation through x[-1], x[0], x[1] errs by at most
//    max|f'''| / 3! * max|t (t^2 - 1)| over t in [0, 1], and max|t (t^2 - 1)| is
//    2 / (3 sqrt 3) at t = 1 / sqrt 3. For A sin(w n), max|f'''| = A w^3 with w in
//    radians per source sample: an error of at most A w^3 / (9 sqrt 3).
//  - The input is rounded to whole numbers (0.5 at most), and the weights add up in
//    magnitude to 1 + a - a^2, at most 1.25: 0.625.
//  - The output is truncated: below 1.
// So |y - A sin(w p)| <= A w^3 / (9 sqrt 3) + 1.625. The outputs on the first sample,
// whose left neighbour is the silence before the stream, are left out.
TEST(SamRate, SineKeepsFrequencyAndAmplitudeWithinTheInterpolationBound) {
    const double A = 20000.0;
    for (double hz : {100.0, 1000.0, 3000.0}) {
        for (int m = 0; m < kModes; ++m) {
            SCOPED_TRACE(::testing::Message() << "mode " << m << " at " << hz << " Hz");
            const Rates r = RatesOf(m);
            const double w = 2.0 * M_PI * hz / r.src;
            const double phase = 0.3;
            std::vector<short> src(size_t(r.src) / 4); // 250 ms
            for (size_t n = 0; n < src.size(); ++n)
                src[n] = short(std::lround(A * std::sin(w * double(n) + phase)));
            const auto out = ConvertAll(m, src);
            const Grid g = GridOf(m);
            const double bound = A * w * w * w / (9.0 * std::sqrt(3.0)) + 1.625;
            double worst = 0.0;
            size_t checked = 0;
            for (size_t k = 0; k < out.size(); ++k) {
                const double p = PositionOf(g, k);
                if (p < 1.0) continue;
                ASSERT_LT(p, double(src.size() - 1)) << k;
                worst = std::max(worst, std::fabs(out[k] - A * std::sin(w * p + phase)));
                ++checked;
            }
            EXPECT_GT(checked, out.size() - 6);
            EXPECT_LE(worst, bound);
        }
    }
}
