// The ring buffer under the resampler: its mirror, its refusals, its room, and the
// debug trace file.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "audio/sigmabuffer.h"

namespace {

// Every channel's mirror (the guard frames behind the ring) equals the ring's start.
void ExpectMirror(const SigmaBuffer& b, const char* after) {
    for (unsigned c = 0; c < b.channels(); ++c) {
        const float* d = b.channelData(c);
        for (int i = 0; i < b.guard(); ++i)
            ASSERT_EQ(d[b.size() + i], d[i])
                << "channel " << c << " frame " << i << " after " << after;
    }
}

struct Ring {
    SigmaBufferParams params{16, 8, 4, 2, "TEST"}; // 64 frames, 8 mirrored
    SigmaBuffer buf;
    Ring() { EXPECT_FALSE(buf.init(&params)); }
};

} // namespace

TEST(SigmaBufferMirror, StaysEqualToRingStartThroughEveryOperation) {
    Ring r;
    SigmaBuffer& b = r.buf;
    std::mt19937 rng(7);
    std::vector<float> a(200), c(200);
    float* in[2] = {a.data(), c.data()};
    for (int step = 0; step < 3000; ++step) {
        for (size_t i = 0; i < a.size(); ++i) {
            a[i] = float(rng() % 1000);
            c[i] = -a[i];
        }
        int n = int(rng() % 80) - 4; // includes refused and negative counts
        switch (rng() % 6) {
        case 0:
            b.write(in, n);
            ExpectMirror(b, "write");
            break;
        case 1:
            b.writeChannel(a.data(), n, unsigned(rng() % 2));
            ExpectMirror(b, "writeChannel");
            break;
        case 2:
            b.advanceRead(n - 40);
            b.advanceWrite(n - 30);
            break;
        case 3:
            b.zeroAhead(n);
            ExpectMirror(b, "zeroAhead");
            break;
        case 4:
            if (rng() % 20 == 0) {
                const int room = b.getRoom();
                b.clear();
                ExpectMirror(b, "clear");
                ASSERT_EQ(b.getRoom(), room); // kept, though both indices are now 0
                b.advanceRead(0);
            }
            break;
        default:
            b.read(in, n % 9);
            break;
        }
        ASSERT_GE(b.readIndex(), 0);
        ASSERT_LT(b.readIndex(), b.size());
        ASSERT_GE(b.writeIndex(), 0);
        ASSERT_LT(b.writeIndex(), b.size());
        int room = b.readIndex() - b.writeIndex();
        ASSERT_EQ(b.getRoom(), room < 0 ? room + b.size() : room);
    }
}

TEST(SigmaBufferIo, WritesWrapAndReadsPastTheEndWithoutAWrap) {
    Ring r;
    SigmaBuffer& b = r.buf;
    std::vector<float> a(64), z(64);
    for (int i = 0; i < 64; ++i)
        a[i] = float(i + 1);
    float* in[2] = {a.data(), z.data()};
    b.advanceWrite(60);
    b.advanceRead(60);
    EXPECT_EQ(b.getRoom(), 0);
    EXPECT_FALSE(b.write(in, 10)); // frames 60..63 then 0..5
    EXPECT_EQ(b.writeIndex(), 6);
    EXPECT_EQ(b.getRoom(), 54);
    // From index 60, 8 frames (the guard) come out contiguous.
    std::vector<float> o(8), o2(8);
    float* out[2] = {o.data(), o2.data()};
    EXPECT_FALSE(b.read(out, 8));
    EXPECT_EQ(o, std::vector<float>({1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(b.readIndex(), 4);
    EXPECT_EQ(b.getRoom(), 62);

    // readChannel leaves the indices alone.
    EXPECT_FALSE(b.readChannel(o.data(), 2, 0));
    EXPECT_EQ(o[0], 9.0f);
    EXPECT_EQ(o[1], 10.0f);
    EXPECT_EQ(b.readIndex(), 4);
}

TEST(SigmaBufferIo, RefusesWhatDoesNotFit) {
    std::vector<float> a(100, 1.0f);
    float* in[2] = {a.data(), a.data()};
    // From write index 10, up to guard - writeIndex + size = 62 frames are taken, even
    // over unread data.
    struct {
        int n;
        bool refused;
    } cases[] = {{-1, true}, {0, false}, {62, false}, {63, true}};
    for (auto& k : cases) {
        Ring r;
        SigmaBuffer& b = r.buf;
        b.advanceWrite(10);
        EXPECT_EQ(b.writeChannel(a.data(), k.n, 1), k.refused) << k.n;
        EXPECT_EQ(b.writeIndex(), 10);
        EXPECT_EQ(b.write(in, k.n), k.refused) << k.n;
        EXPECT_EQ(b.writeIndex(), k.refused ? 10 : (10 + k.n) % 64) << k.n;
    }
    Ring r;
    SigmaBuffer& b = r.buf;
    std::vector<float> o(100);
    float* out[2] = {o.data(), o.data()};
    EXPECT_TRUE(b.read(out, 9)); // more than the guard
    EXPECT_TRUE(b.read(out, -1));
    EXPECT_TRUE(b.readChannel(o.data(), 9, 0));
    EXPECT_TRUE(b.readChannel(o.data(), 1, 2)); // no such channel
    EXPECT_TRUE(b.writeChannel(a.data(), 1, 2));
    EXPECT_EQ(b.readIndex(), 0);
    EXPECT_FALSE(b.read(out, 8));
    EXPECT_EQ(b.readIndex(), 8);
}

TEST(SigmaBufferIo, ZeroAheadWrapsAndClearKeepsTheRoom) {
    Ring r;
    SigmaBuffer& b = r.buf;
    std::vector<float> a(64, 5.0f);
    float* in[2] = {a.data(), a.data()};
    b.write(in, 60);
    b.write(in, 4);
    b.advanceWrite(58 - b.writeIndex());
    b.zeroAhead(10); // 58..63 and 0..3
    for (int i = 0; i < 64 + 8; ++i) {
        bool zero = i >= 58 && i < 64 + 4 ? true : i < 4;
        EXPECT_EQ(b.channelData(1)[i], zero ? 0.0f : 5.0f) << i;
    }
    b.zeroAhead(1000); // confined to one ring length
    EXPECT_EQ(b.channelData(0)[30], 0.0f);

    b.advanceRead(20);
    const int room = b.getRoom();
    b.clear();
    EXPECT_EQ(b.readIndex(), 0);
    EXPECT_EQ(b.writeIndex(), 0);
    EXPECT_EQ(b.getRoom(), room);
}

TEST(SigmaBufferInit, RejectsUnusableShapes) {
    SigmaBufferParams bad[] = {
        {0, 8, 4, 1, "x"},
        {16, -1, 4, 1, "x"},
        {16, 8, 0, 1, "x"},
        {16, 8, 4, 0, "x"},
        {4, 32, 2, 1, "x"},            // mirror longer than the ring
        {1 << 20, 8, 1 << 12, 1, "x"}, // ring too long
    };
    for (auto& p : bad) {
        SigmaBuffer b;
        EXPECT_TRUE(b.init(&p)) << p.blockSize << " " << p.guard << " " << p.blockCount;
        EXPECT_EQ(b.size(), 0);
        float v = 0, *io[1] = {&v};
        EXPECT_TRUE(b.write(io, 1));
        b.advanceRead(3);
        b.zeroAhead(3);
        EXPECT_EQ(b.getRoom(), 0);
    }
    SigmaBuffer b;
    EXPECT_TRUE(b.init(nullptr));
}

TEST(SigmaBufferTrace, FileGetsNameAndRoomPerLineOfChannelZero) {
    namespace fs = std::filesystem;
    const fs::path old = fs::current_path();
    const fs::path dir =
        fs::temp_directory_path() / ("kelp_sigma_" + std::to_string(std::random_device()()));
    fs::create_directories(dir);
    fs::current_path(dir);
    {
        std::ofstream("workloadData.txt") << "stale\n";
        Ring r;
        SigmaBuffer& b = r.buf;
        b.setTrace(true, true); // truncates the file
        std::vector<float> a(16, 1.0f);
        float* in[2] = {a.data(), a.data()};
        b.write(in, 16);                // one line: one chunk of channel 0
        b.advanceRead(4);               // one line
        b.writeChannel(a.data(), 4, 1); // channel 1: none
        b.setTrace(true, false);
        b.advanceRead(1); // formatted only
    }
    std::ifstream f("workloadData.txt");
    std::string all((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    EXPECT_EQ(all, "TEST\t0\nTEST\t52\n");
    fs::current_path(old);
    fs::remove_all(dir);
}
