// The streaming converter delivers each selected channel separately, exactly as the
// resampler gives that channel alone, in whatever order and amounts it is read, and
// gives every block back to the reader.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "src_reader.h"
#include "tracecapture.h"
#include "varrate_signal.h"

using namespace srctest;

namespace {

// A distinct signal for every stream and channel.
int16_t Sample(unsigned s, unsigned c, unsigned i) {
    double f = 0.003 + 0.011 * c + 0.017 * s;
    return int16_t(std::lround(12000 * std::sin(2 * varrate::kPi * f * i) + 900 * c - 700 * s));
}

// The resampler's output for one channel's samples alone, driven in blocks of 512.
std::vector<float> Alone(unsigned s, unsigned c, unsigned frames, float ratio, size_t count) {
    std::vector<float> in(frames);
    for (unsigned i = 0; i < frames; ++i)
        in[i] = float(Sample(s, c, i)) * 3.0517578125e-5f;
    std::unique_ptr<MATrateconvert> rc(MATrateconvert::Create(512, 1));
    rc->setRatio(ratio);
    return varrate::Run(rc.get(), 512, {in}, count)[0];
}

bool SameFloats(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

} // namespace

TEST(SrcStream, ActiveChannelsEqualTheResamplerAloneInAnyReadOrder) {
    // 2 streams of 3 channels; channels 0 and 2 of both streams are active: queues
    // (0,0) (0,2) (1,0) (1,2). Blocks of 512 frames per stream, the last one short.
    const unsigned frames = 512 * 23 + 300;
    const size_t want = 24000; // beyond the input: the tail is silence
    kelptest::SinkSetLevelMask(0);
    const std::pair<unsigned, unsigned> sel[] = {{0, 0}, {0, 2}, {1, 0}, {1, 2}};
    std::vector<std::vector<float>> expected;
    for (auto& sc : sel)
        expected.push_back(Alone(sc.first, sc.second, frames, 48000.0f / 44100.0f, want));

    // Ways to read: round robin in random amounts; one queue wholly before the next;
    // random queue and amount each time.
    for (int pattern = 0; pattern < 3; ++pattern) {
        BlockReader reader(Pcm16Blocks(2, 3, frames, 512, Sample), {512 * 2 * 3 * 2});
        Converter conv(Format(48000, 16, 3, 2, 1, 0x3, 0x5), 44100, &reader);
        ASSERT_NE(conv.p, nullptr);
        ASSERT_EQ(conv->GetChannelCount(), 4u);
        std::vector<std::vector<float>> got(4);
        std::mt19937 rng(pattern);
        auto readSome = [&](unsigned q, size_t n) {
            n = std::min(n, want - got[q].size());
            std::vector<float> buf(n);
            ASSERT_TRUE(conv->ReadSamples(buf.data(), uint32_t(n), q));
            got[q].insert(got[q].end(), buf.begin(), buf.end());
        };
        if (pattern == 1) {
            for (unsigned q : {2u, 0u, 3u, 1u})
                while (got[q].size() < want)
                    readSome(q, 1 + rng() % 3000);
        } else {
            for (unsigned turn = 0;; ++turn) {
                bool all = true;
                for (auto& g : got)
                    all = all && g.size() == want;
                if (all) break;
                unsigned q = pattern == 0 ? turn % 4 : unsigned(rng() % 4);
                if (got[q].size() < want) readSome(q, 1 + rng() % 1500);
            }
        }
        for (unsigned q = 0; q < 4; ++q)
            EXPECT_TRUE(SameFloats(got[q], expected[q])) << "pattern " << pattern << " queue " << q;
        EXPECT_TRUE(reader.ended());
        EXPECT_EQ(reader.frees(), reader.reads()); // the final false read came back too
    }
    kelptest::SinkSetLevelMask(0xFFFFFFFFu);
}

TEST(SrcStream, PassThroughGivesTheInputAsFloatWhateverTheBlockSizes) {
    // One stream, blocks of sizes that do not match the queues' 512.
    const unsigned frames = 2000;
    kelptest::SinkSetLevelMask(0);
    for (uint32_t blockBytes : {4u * 3, 4u * 100, 4u * 700, 4u * 5000}) {
        BlockReader reader(Pcm16Blocks(1, 2, frames, frames, Sample), {blockBytes});
        Converter conv(Format(32000, 16, 2, 1, 1, 1, 3), 32000, &reader);
        ASSERT_NE(conv.p, nullptr);
        // The input, its last block padded with silence to a whole block: 2048.
        std::vector<float> a(2048), b(2048);
        std::mt19937 rng(blockBytes);
        size_t da = 0, db = 0;
        while (da < a.size() || db < b.size()) {
            size_t n = 1 + rng() % 400;
            if (rng() % 2 && da < a.size()) {
                n = std::min(n, a.size() - da);
                ASSERT_TRUE(conv->ReadSamples(a.data() + da, uint32_t(n), 0));
                da += n;
            } else if (db < b.size()) {
                n = std::min(n, b.size() - db);
                ASSERT_TRUE(conv->ReadSamples(b.data() + db, uint32_t(n), 1));
                db += n;
            }
        }
        for (unsigned i = 0; i < 2048; ++i) {
            ASSERT_EQ(a[i], i < frames ? float(Sample(0, 0, i)) * 3.0517578125e-5f : 0.0f) << i;
            ASSERT_EQ(b[i], i < frames ? float(Sample(0, 1, i)) * 3.0517578125e-5f : 0.0f) << i;
        }
        float x = 5.0f;
        EXPECT_FALSE(conv->ReadSamples(&x, 1, 0));
        EXPECT_FALSE(conv->ReadSamples(&x, 1, 1));
        EXPECT_EQ(x, 5.0f);
        EXPECT_EQ(reader.frees(), reader.reads());
    }
    kelptest::SinkSetLevelMask(0xFFFFFFFFu);
}

TEST(SrcStream, DifferentRatesGiveSilenceForEverAfterTheEnd) {
    kelptest::SinkSetLevelMask(0);
    BlockReader reader(Pcm16Blocks(1, 1, 700, 700, Sample), {1400});
    Converter conv(Format(22050, 16, 1, 1, 1, 1, 1), 44100, &reader);
    std::vector<float> buf(4096);
    for (int i = 0; i < 4; ++i)
        ASSERT_TRUE(conv->ReadSamples(buf.data(), 4096, 0));
    for (float v : buf)
        ASSERT_EQ(v, 0.0f);
    EXPECT_EQ(reader.frees(), reader.reads());
    kelptest::SinkSetLevelMask(0xFFFFFFFFu);
}
