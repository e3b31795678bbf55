// The fast forms of the resampler's inner loop give exactly the plain loop's floats.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "audio/rateconvertimp.h"
#include "audio/srccoeffs.h"
#include "runtime/cpuflags.h"
#include "simdtargets.h"
#include "varrate_signal.h"

namespace {

// Equal bit for bit; any NaN equals any NaN (payloads are not part of the result).
bool Same(float a, float b) {
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    return std::memcmp(&a, &b, sizeof a) == 0;
}

} // namespace

TEST(VarRateKernel, FastFormsEqualThePlainLoop) {
    SRCcoeffs coeffs;
    RateFilter filter;
    RateFilterInit(&filter, coeffs.record()->table);
    std::mt19937 rng(1234);
    std::uniform_real_distribution<float> uni(-1.0f, 1.0f);
    const float edge[] = {0.0f,
                          -0.0f,
                          1e-40f,
                          -1e-42f,
                          3e38f,
                          -3e38f,
                          std::numeric_limits<float>::infinity(),
                          std::numeric_limits<float>::quiet_NaN(),
                          1.0f,
                          -1.0f};
    const int frames = 300;
    for (unsigned channels = 1; channels <= 7; ++channels) {
        for (int n : {1, 2, 3, 4, 5, 7, 64, 257}) {
            for (int round = 0; round < 5; ++round) {
                std::vector<std::vector<float>> data(channels, std::vector<float>(frames + 8));
                std::vector<const float*> src(channels);
                for (unsigned c = 0; c < channels; ++c) {
                    // plain values; then some edge values; then signed zeros only
                    for (float& v : data[c])
                        v = round == 4                     ? (rng() % 2 ? 0.0f : -0.0f)
                            : round == 3 && rng() % 8 == 0 ? edge[rng() % 10]
                                                           : uni(rng) * 4.0f;
                    src[c] = data[c].data();
                }
                std::vector<RateStep> steps(n);
                for (auto& s : steps) {
                    s.offset = int(rng() % frames);
                    s.phase = int(rng() % 8);
                    int k = int(rng() % 10);
                    s.blend = k == 0   ? 0.0f
                              : k == 1 ? 0.99999994f
                                       : float(rng() % 8) / 8.0f + uni(rng) / 16.0f + 0.0625f;
                }
                auto run = [&](RateBlockKernel fn) {
                    std::vector<std::vector<float>> out(channels, std::vector<float>(n, 99.0f));
                    std::vector<float*> op(channels);
                    for (unsigned c = 0; c < channels; ++c)
                        op[c] = out[c].data();
                    fn(src.data(), channels, steps.data(), n, &filter, op.data());
                    return out;
                };
                auto want = run(RateBlock_C);
                kelptest::ForEachSimdTarget([&](int) {
                    auto got = run(ChooseRateBlockKernel());
                    for (unsigned c = 0; c < channels; ++c)
                        for (int i = 0; i < n; ++i)
                            ASSERT_TRUE(Same(got[c][i], want[c][i]))
                                << "channels " << channels << " n " << n << " c " << c << " i " << i
                                << ": " << got[c][i] << " vs " << want[c][i];
                });
            }
        }
    }
}

TEST(VarRateKernel, ResamplerGivesTheSameWithFastPathsMaskedOff) {
    // Three channels of noise at 48 kHz to 44.1 kHz, the servo moving the ratio (and so
    // the phases) after every block; once with the plain loop, once with the fastest.
    std::mt19937 rng(99);
    std::uniform_real_distribution<float> uni(-1.0f, 1.0f);
    std::vector<std::vector<float>> in(3, std::vector<float>(40000));
    for (auto& ch : in)
        for (float& v : ch)
            v = uni(rng);
    auto run = [&](bool plain) {
        const uint32_t old =
            kelp::MaskSimdTargets(plain ? kelp::SimdBit(kelp::kSimdPlain) : kelp::kSimdAllTargets);
        std::unique_ptr<MATrateconvert> rc(MATrateconvert::Create(96, 3));
        kelp::MaskSimdTargets(old);
        rc->setRatio(1.0884354f);
        std::mt19937 servo(5);
        return varrate::Run(rc.get(), 96, in, 30000, [&] { rc->adjust(uni(servo) * 0.02f); });
    };
    auto want = run(true), got = run(false);
    for (unsigned c = 0; c < 3; ++c)
        for (size_t i = 0; i < want[c].size(); ++i)
            ASSERT_TRUE(Same(got[c][i], want[c][i])) << c << " " << i;
}
