// The resampler's controls: ratio limits, the servo, statistics, the block protocol,
// flush, and the exact output at ratio 1.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "audio/rateconvertimp.h"
#include "audio/srccoeffs.h"

namespace {

std::unique_ptr<MATrateconvertImp> Make(int blockSize = 64, unsigned channels = 1) {
    return std::unique_ptr<MATrateconvertImp>(
        static_cast<MATrateconvertImp*>(MATrateconvert::Create(blockSize, channels)));
}

} // namespace

TEST(VarRateCreate, RefusesUnusableShapes) {
    EXPECT_EQ(MATrateconvert::Create(3, 1), nullptr); // the ring would be shorter than its mirror
    EXPECT_EQ(MATrateconvert::Create(0, 1), nullptr);
    EXPECT_EQ(MATrateconvert::Create(-512, 2), nullptr);
    EXPECT_EQ(MATrateconvert::Create(512, 0), nullptr);
    auto rc = Make(4, 1);
    ASSERT_NE(rc, nullptr);
    // The read position starts half the taps behind the write position.
    EXPECT_EQ(rc->input()->size(), 32);
    EXPECT_EQ(rc->input()->readIndex(), 28);
    EXPECT_EQ(rc->input()->getRoom(), 28);
    EXPECT_EQ(rc->ratio(), 1.0f);
}

TEST(VarRateRatio, SetRatioClipsAndSetParamDoesNot) {
    struct {
        int how; // 0 setRatio, 1 setParam(0), 2 setParam(2)
        float value;
        float ratio;
    } cases[] = {
        {0, 5.0f, 4.0f},     {0, 4.0f, 4.0f},     {0, 0.0f, 0.01f}, {0, -3.0f, 0.01f},
        {0, 0.5f, 0.5f},     {0, INFINITY, 4.0f}, {0, NAN, 1.0f},   {1, 7.0f, 7.0f},
        {1, 0.001f, 0.001f}, {1, NAN, 1.0f},      {2, 9.0f, 9.0f},  {2, INFINITY, 1.0f},
    };
    for (auto& k : cases) {
        auto rc = Make();
        if (k.how == 0)
            rc->setRatio(k.value);
        else
            rc->setParam(k.how == 1 ? 0 : 2, k.value);
        EXPECT_EQ(rc->ratio(), k.ratio) << k.how << " " << k.value;
    }
    // The ratio set by index 0 is not the base the servo scales.
    auto rc = Make();
    rc->setRatio(2.0f);
    rc->setParam(0, 3.0f);
    EXPECT_EQ(rc->baseRatio(), 2.0f);
    rc->adjust(0.0f);
    EXPECT_EQ(rc->ratio(), 2.0f);
    rc->setParam(1, 0.0f); // start over at 1.0
    EXPECT_EQ(rc->ratio(), 1.0f);
    EXPECT_EQ(rc->baseRatio(), 1.0f);
}

TEST(VarRateServo, AdjustMovesTheRatioByAtMostGainTimesOnePercent) {
    // errors of every size and sign, gains of several sizes
    const float errors[] = {1e9f, -1e9f, 0.5f, 0.01f, 0.004f, -0.02f, 0.0f, INFINITY};
    const float gains[] = {0.1f, 1.0f, 25.0f};
    for (float g : gains) {
        auto rc = Make();
        rc->setRatio(1.25f);
        rc->setGain(g);
        for (int step = 0; step < 400; ++step) {
            float e = errors[step % 8] * (step % 16 < 8 ? 1.0f : -1.0f);
            float before = rc->adjustFactor();
            rc->adjust(e);
            float f = rc->adjustFactor();
            // at most gain times the clipped error, plus the rounding of the sum to a float
            // near 1 (one unit in the last place below 2 is 2^-23)
            EXPECT_LE(std::fabs(double(f) - before), double(g * 0.01f) + 0x1p-23) << g << " " << e;
            EXPECT_GE(f, 0.625f);
            EXPECT_LE(f, 1.6f);
            EXPECT_EQ(rc->ratio(), f * 1.25f);
        }
    }
    // A steady error walks the factor to its bound and no further.
    auto rc = Make();
    rc->setRatio(2.0f);
    for (int i = 0; i < 1000; ++i)
        rc->adjust(1.0f);
    EXPECT_EQ(rc->adjustFactor(), 1.6f);
    EXPECT_EQ(rc->ratio(), 1.6f * 2.0f); // above the clip of setRatio: the servo may go there
    for (int i = 0; i < 2000; ++i)
        rc->adjust(-1.0f);
    EXPECT_EQ(rc->adjustFactor(), 0.625f);
    rc->adjust(NAN); // moves nothing
    EXPECT_EQ(rc->adjustFactor(), 0.625f);
    rc->setGain(INFINITY);
    rc->adjust(0.0f); // infinity times zero: the factor stays
    EXPECT_EQ(rc->adjustFactor(), 0.625f);
    rc->setParam(2, 1.5f); // starts over
    EXPECT_EQ(rc->adjustFactor(), 1.0f);
    EXPECT_EQ(rc->ratio(), 1.5f);
}

TEST(VarRateServo, StatisticsFollowTheErrorsAndThePeakResets) {
    auto rc = Make();
    float s[5];
    EXPECT_TRUE(rc->getStats(nullptr));
    EXPECT_FALSE(rc->getStats(s));
    EXPECT_EQ(s[0], 0.0f);
    EXPECT_EQ(s[3], 0.1f);
    EXPECT_EQ(s[4], 1.0f);
    rc->adjust(0.5f);
    rc->adjust(-0.25f);
    // mean and mean square smoothed by 0.8f, summed in double precision
    const double k = 0.800000011920929, k1 = 0.19999998807907104;
    float mean = float(k * float(k1 * 0.5) + k1 * -0.25);
    float ms = float(k1 * 0.0625 + k * float(k1 * 0.25));
    EXPECT_FALSE(rc->getStats(s));
    EXPECT_EQ(s[0], 0.5f);
    EXPECT_EQ(s[1], ms);
    EXPECT_EQ(s[2], float(double(ms) - double(mean) * double(mean)));
    EXPECT_EQ(s[3], 0.1f);
    EXPECT_EQ(s[4], rc->ratio());
    rc->getStats(s);
    EXPECT_EQ(s[0], 0.0f); // the peak since the call before
    rc->setGain(0.3f);
    rc->getStats(s);
    EXPECT_EQ(s[3], 0.3f);
}

TEST(VarRateBlocks, WriteAndReadAnswerByTheRoomLeft) {
    const int B = 64;
    auto rc = Make(B, 2);
    std::vector<float> a(B, 0.25f), o(B), o2(B);
    float* in[2] = {a.data(), a.data()};
    float* out[2] = {o.data(), o2.data()};
    // room starts at 8B - 4; each block written takes B of it
    EXPECT_TRUE(rc->write(in));  // 7B - 4
    EXPECT_TRUE(rc->write(in));  // 6B - 4
    EXPECT_TRUE(rc->write(in));  // 5B - 4
    EXPECT_FALSE(rc->write(in)); // 4B - 4: no more than four blocks
    EXPECT_EQ(rc->input()->getRoom(), 4 * B - 4);
    EXPECT_FALSE(rc->read(out)); // ratio 1: B frames back
    EXPECT_EQ(rc->consumed(), B);
    EXPECT_EQ(rc->input()->getRoom(), 5 * B - 4);
    for (int i = 0; i < 3; ++i)
        rc->write(in);           // 2B - 4
    EXPECT_FALSE(rc->read(out)); // 3B - 4
    EXPECT_FALSE(rc->write(in)); // 2B - 4
    EXPECT_FALSE(rc->write(in)); // B - 4
    EXPECT_EQ(rc->input()->getRoom(), B - 4);
    rc->setRatio(0.01f); // a read that hardly steps leaves less than a block free
    EXPECT_TRUE(rc->read(out));
    EXPECT_EQ(rc->consumed(), 2 * B);
}

TEST(VarRateFlush, DrainsWhatIsBufferedAndNothingFromAnEmptyRing) {
    const int B = 32;
    std::vector<float> a(B, 1.0f), o(B, -7.0f);
    float* in[1] = {a.data()};
    float* out[1] = {o.data()};
    struct {
        float ratio;
        int blocks; // written before the flush
        int made;
    } cases[] = {
        {0.0f, -1, 0},          // indices met: the ring reads as empty
        {2.0f, 2, B},           // 2B + 4 buffered: at most one block
        {4.0f, 1, (B + 4) / 4}, // filled / ratio, truncated
        {-1.0f, 1, 0},          // no whole output
    };
    for (auto& k : cases) {
        auto rc = Make(B, 1);
        rc->setParam(0, k.ratio);
        for (int i = 0; i < k.blocks; ++i)
            rc->write(in);
        if (k.blocks < 0) {
            SigmaBuffer* ring = const_cast<SigmaBuffer*>(rc->input());
            ring->advanceWrite(ring->readIndex() - ring->writeIndex());
        }
        EXPECT_EQ(rc->flush(out), k.made) << k.ratio;
        EXPECT_EQ(rc->consumed(), 0); // flush is not counted
    }
}

TEST(VarRateOutput, RatioOneIsTheInputThroughPhaseZero) {
    // With ratio 1 the fraction stays 0: each output is the dot product of the source
    // frames from three before it with taps 8, 16, ... 64 (taps 7, 15, ... 63 would copy).
    const int B = 16;
    auto rc = Make(B, 1);
    SRCcoeffs coeffs;
    const float* h = coeffs.record()->table;
    std::vector<float> src(10 * B);
    for (size_t i = 0; i < src.size(); ++i)
        src[i] = std::sin(0.37f * float(i)) + 0.01f * float(i);
    std::vector<float> got;
    std::vector<float> o(B);
    float* out[1] = {o.data()};
    size_t pos = 0;
    for (int round = 0; round < 6; ++round) {
        float* in[1] = {src.data() + pos};
        while (rc->write(in)) {
            pos += B;
            in[0] = src.data() + pos;
        }
        pos += B;
        rc->read(out);
        got.insert(got.end(), o.begin(), o.end());
    }
    for (size_t i = 0; i < got.size(); ++i) {
        auto x = [&](long k) { return k < 0 ? 0.0f : src[size_t(k)]; };
        float s1 = x(long(i) - 3) * h[8];
        for (int t = 1; t < 8; ++t)
            s1 += x(long(i) - 3 + t) * h[8 + 8 * t];
        float s2 = 0.0f * h[7]; // phase q-1 is weighted by a = 0
        ASSERT_EQ(got[i], s1 * 1.0f + s2 * 0.0f) << i;
    }
}
