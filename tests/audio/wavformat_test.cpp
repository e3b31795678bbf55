#include <gtest/gtest.h>

#include <kelp/wavformat.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

#include "tracecapture.h"

using kelp::CKXWAVFormat;

namespace {

template <typename T> T At(const void* p, size_t offset) {
    T v;
    std::memcpy(&v, static_cast<const unsigned char*>(p) + offset, sizeof v);
    return v;
}

} // namespace

TEST(WavFormat, DefaultRecordBytes) {
    CKXWAVFormat f;
    const unsigned char expected[64] = {
        1, 0, 1, 0, 0x44, 0xAC, 0, 0,    // PCM, 1 channel, 44100
        0x88, 0x58, 0x01, 0, 2, 0, 16, 0, // 88200 bytes/s, align 2, 16 bits
        0, 0, 0, 0, 64, 0, 0, 0,          // cbSize, reserved, Size
        'B', 'L', 'U', 'E', 1, 0, 0, 0,   // ID, Streams
        1, 0, 0, 0, 1, 0, 0, 0,           // ActiveStream, ActiveChannels
        0, 0, 0, 0, 0x88, 0x58, 0x01, 0,  // SamplesPerStream, MaxBufferSize
    };
    EXPECT_EQ(0, std::memcmp(&f, expected, 64));
}

TEST(WavFormat, ConstructorRules) {
    struct Case {
        int rate, bits, channels, streams;
        uint16_t align;
        uint32_t avg, activeStream, activeChannels;
    } cases[] = {
        {44100, 16, 1, 1, 2, 88200, 1, 1},
        {48000, 12, 2, 1, 3, 144000, 1, 3}, // 24 bits / 8 = 3, truncated from 12-bit stereo
        {22050, 8, 6, 3, 6, 132300, 7, 63},
        {8000, 24, 5, 2, 15, 120000, 3, 31},
        {32000, 20, 1, 1, 2, 64000, 1, 1},    // 20 / 8 = 2
        {11025, 32, 2, 31, 8, 88200, 0x7FFFFFFF, 3},
        {11025, 32, 2, 32, 8, 88200, 0, 3},   // shift count 32 is 0: 2^0 - 1
        {11025, 32, 33, 33, 132, 1455300, 1, 1}, // 33 is 1 modulo 32
    };
    for (const auto& c : cases) {
        CKXWAVFormat f(c.rate, c.bits, c.channels, c.streams, 1);
        SCOPED_TRACE(::testing::Message() << c.rate << " " << c.bits << " " << c.channels);
        EXPECT_EQ(f.nBlockAlign, c.align);
        EXPECT_EQ(f.nAvgBytesPerSec, c.avg);
        EXPECT_EQ(f.MaxBufferSize, c.avg);
        EXPECT_EQ(f.ActiveStream, c.activeStream);
        EXPECT_EQ(f.ActiveChannels, c.activeChannels);
        EXPECT_EQ(f.Streams, uint32_t(c.streams));
        EXPECT_EQ(f.nSamplesPerSec, uint32_t(c.rate));
        EXPECT_EQ(f.SamplesPerStream, 0u);
        EXPECT_EQ(f.Size, 64u);
        EXPECT_EQ(f.ID, KXWAVFORMAT_ID);
    }
}

TEST(WavFormat, DataSizeAndComparisons) {
    CKXWAVFormat f(48000, 16, 2, 3);
    f.SamplesPerStream = 100;
    EXPECT_EQ(f.DataSize(), 4u * 100u * 3u);
    EXPECT_EQ(CKXWAVFormat::DataSize(&f), 1200u);
    EXPECT_EQ(CKXWAVFormat::DataSize(nullptr), 0u);
    f.SamplesPerStream = 0x40000000; // the product wraps in 32 bits
    EXPECT_EQ(f.DataSize(), uint32_t(4ull * 0x40000000ull * 3ull));

    // What each comparison looks at: a change of one field at a time.
    const CKXWAVFormat base(44100, 16, 2, 2);
    struct Case {
        const char* what;
        void (*change)(CKXWAVFormat&);
        int equal, stream, wave;
    } cases[] = {
        {"nothing", [](CKXWAVFormat&) {}, 1, 1, 1},
        {"streams", [](CKXWAVFormat& g) { g.Streams = 1; }, 0, 1, 1},
        {"channels", [](CKXWAVFormat& g) { g.nChannels = 1; }, 0, 0, 1},
        {"align", [](CKXWAVFormat& g) { g.nBlockAlign = 2; }, 0, 0, 1},
        {"rate", [](CKXWAVFormat& g) { g.nSamplesPerSec = 48000; }, 0, 0, 0},
        {"bits", [](CKXWAVFormat& g) { g.wBitsPerSample = 8; }, 0, 0, 0},
        {"tag", [](CKXWAVFormat& g) { g.wFormatTag = 3; }, 0, 0, 0},
        {"samples", [](CKXWAVFormat& g) { g.SamplesPerStream = 5; }, 1, 1, 1},
        {"avg", [](CKXWAVFormat& g) { g.nAvgBytesPerSec = 5; }, 1, 1, 1},
        {"active", [](CKXWAVFormat& g) { g.ActiveStream = 0; }, 1, 1, 1},
    };
    for (const auto& c : cases) {
        CKXWAVFormat g(base);
        c.change(g);
        SCOPED_TRACE(c.what);
        EXPECT_EQ(base == g, c.equal);
        EXPECT_EQ(base != g, 1 - c.equal);
        EXPECT_EQ(base.CompareStreamFormat(g), c.stream);
        EXPECT_EQ(base.CompareWaveFormat(g), c.wave);
    }
    // Stereo and mono of the same rate, bits and tag are the same wave format.
    CKXWAVFormat stereo(44100, 16, 2), mono(44100, 16, 1);
    EXPECT_EQ(stereo.CompareWaveFormat(mono), 1);
    EXPECT_EQ(stereo.CompareStreamFormat(mono), 0);
}

TEST(WavFormat, AssignmentFromWaveFormatEx) {
    WAVEFORMATEX wfx{3, 6, 96000, 2304000, 24, 32, 99};
    CKXWAVFormat f(8000, 8, 1, 4);
    f.dwReserved = 0x12345678;
    std::memset(f.abReserved, 0xAB, sizeof f.abReserved);
    f.SamplesPerStream = 77;
    f = wfx;
    EXPECT_EQ(f.wFormatTag, 3);
    EXPECT_EQ(f.nChannels, 6);
    EXPECT_EQ(f.nSamplesPerSec, 96000u);
    EXPECT_EQ(f.nAvgBytesPerSec, 2304000u);
    EXPECT_EQ(f.nBlockAlign, 24);
    EXPECT_EQ(f.wBitsPerSample, 32);
    EXPECT_EQ(f.cbSize, 0);
    EXPECT_EQ(f.Streams, 1u);
    EXPECT_EQ(f.ActiveStream, 1u);
    EXPECT_EQ(f.ActiveChannels, 63u);
    EXPECT_EQ(f.MaxBufferSize, 2304000u);
    EXPECT_EQ(f.SamplesPerStream, 0u);
    EXPECT_EQ(f.dwReserved, 0x12345678u); // offset 48 keeps its value
    for (uint8_t b : f.abReserved) EXPECT_EQ(b, 0);
    EXPECT_EQ(f.Size, 64u);
    EXPECT_EQ(f.ID, KXWAVFORMAT_ID);

    CKXWAVFormat g(&wfx);
    EXPECT_EQ(g.nSamplesPerSec, 96000u);
    EXPECT_EQ(g.Size, 64u);
}

TEST(WavFormat, PointerAssignmentFromUnreadableMemory) {
    const long page = sysconf(_SC_PAGESIZE);
    auto* mem = static_cast<unsigned char*>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(mem, MAP_FAILED);
    ASSERT_EQ(mprotect(mem + page, page, PROT_NONE), 0);
    // A record whose last bytes lie on the unreadable page, and one that fits.
    const CKXWAVFormat source(48000, 16, 2, 2);
    auto* straddling = mem + page - 40;
    std::memcpy(straddling, &source, 40);
    auto* fitting = mem + page - 64;

    CKXWAVFormat f(22050, 8, 1, 1);
    f = reinterpret_cast<const tagKXWAVFORMAT*>(straddling);
    EXPECT_EQ(f.Size, 0u);
    EXPECT_EQ(f.ID, 0u);
    EXPECT_EQ(f.nSamplesPerSec, 22050u); // the rest unchanged

    CKXWAVFormat g(22050, 8, 1, 1);
    g = static_cast<const tagKXWAVFORMAT*>(nullptr);
    EXPECT_EQ(g.Size, 0u);
    EXPECT_EQ(g.nSamplesPerSec, 22050u);
    g = reinterpret_cast<const WAVEFORMATEX*>(mem + page - 10);
    EXPECT_EQ(g.Size, 0u);

    std::memcpy(fitting, &source, 64);
    g = reinterpret_cast<const tagKXWAVFORMAT*>(fitting);
    EXPECT_EQ(g.Size, 64u);
    EXPECT_EQ(g == source, 1);
    g = reinterpret_cast<const WAVEFORMATEX*>(mem + page - 18);
    EXPECT_EQ(g.Size, 64u);
    munmap(mem, 2 * page);
}

TEST(WavFormat, DestructorMarksRecordDead) {
    alignas(CKXWAVFormat) unsigned char storage[64];
    auto* f = new (storage) CKXWAVFormat(48000, 16, 2);
    f->~CKXWAVFormat();
    // Read back through a volatile view so the stores are kept.
    volatile unsigned char* v = storage;
    unsigned char copy[64];
    for (int i = 0; i < 64; ++i) copy[i] = v[i];
    EXPECT_EQ(At<uint32_t>(copy, 20), 0u);
    EXPECT_EQ(At<uint32_t>(copy, 24), 0u);
    EXPECT_EQ(At<uint32_t>(copy, 4), 48000u);
}

TEST(WavFormat, GetMono16FrameFormats) {
    // Two frames of stereo in each sample format; channel 1 is read.
    const uint8_t u8[] = {0, 255, 128, 1};
    const int16_t s16[] = {1, -2, 3, -32768};
    const int32_t s32[] = {0, 0x7FFF8000, 0, 0x00018000};
    const float f32[] = {0, 1.5f, 0, -1.5f};
    struct Case {
        const char* what;
        uint16_t tag, bits, cbSize;
        const void* block;
        bool ok;
        short y0, y1;
    } cases[] = {
        {"8-bit", 1, 8, 0, u8, true, short(32512), short(-32512)},
        {"16-bit", 1, 16, 0, s16, true, -2, -32768},
        {"32-bit rounds and wraps", 1, 32, 0, s32, true, short(-32768), 2},
        {"float clips", 3, 32, 0, f32, true, 32727, -32768},
        {"extensible 22", 0xFFFE, 16, 22, s16, true, -2, -32768},
        {"extensible 21", 0xFFFE, 16, 21, s16, false, 0, 0},
        {"24-bit", 1, 24, 0, s16, false, 0, 0},
        {"float 16-bit", 3, 16, 0, s16, false, 0, 0},
        {"other tag", 2, 16, 0, s16, false, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CKXWAVFormat f(44100, c.bits, 2, 1, c.tag);
        f.cbSize = c.cbSize;
        f.SamplesPerStream = 2;
        short out[2] = {7, 7};
        auto* block = const_cast<unsigned char*>(static_cast<const unsigned char*>(c.block));
        short* r = f.GetMono16Frame(block, out, 0, 1);
        if (!c.ok) {
            EXPECT_EQ(r, nullptr);
            continue;
        }
        ASSERT_EQ(r, out);
        EXPECT_EQ(out[0], c.y0);
        EXPECT_EQ(out[1], c.y1);
    }
}

TEST(WavFormat, FloatToSixteenBits) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    struct Case {
        float x;
        short y;
    } cases[] = {
        {1.0f, 32767},   {1.5f, 32727},    {-1.5f, -32768},        {-1.0f, -32767},
        {0.0f, 0},       {0.5f, 16384},    {-0.5f, -16384},        {1.0001f, 32727},
        {-1.00002f, -32768}, {1e-6f, 0},   {inf, 32727},           {-inf, -32768},
        {nan, 0},        {0.25f, 8192},    {-0.25f, -8192},
    };
    CKXWAVFormat f(48000, 32, 1, 1, 3);
    f.SamplesPerStream = 1;
    for (const auto& c : cases) {
        short y = 99;
        ASSERT_EQ(f.GetMono16Frame(reinterpret_cast<unsigned char*>(const_cast<float*>(&c.x)), &y,
                                   0, 0),
                  &y);
        EXPECT_EQ(y, c.y) << c.x;
    }
}

TEST(WavFormat, GetMono16FrameSelection) {
    short block[64];
    for (int i = 0; i < 64; ++i) block[i] = short(i);
    auto* bytes = reinterpret_cast<unsigned char*>(block);
    short out[8];

    // 16-bit mono hands back the block itself, whatever the stream.
    CKXWAVFormat mono(44100, 16, 1, 2);
    mono.SamplesPerStream = 8;
    EXPECT_EQ(mono.GetMono16Frame(bytes, out, 1, 0), block);
    EXPECT_EQ(mono.GetMono16Frame(bytes, out, 2, 0), nullptr);
    // With nothing in the block the target comes back untouched.
    CKXWAVFormat empty(44100, 16, 2, 1);
    out[0] = 42;
    EXPECT_EQ(empty.GetMono16Frame(bytes, out, 0, 1), out);
    EXPECT_EQ(out[0], 42);

    // Stereo, two streams of 4 frames: the start is SamplesPerStream * stream + channel,
    // so stream 1 is read from inside stream 0.
    CKXWAVFormat f(44100, 16, 2, 2);
    f.SamplesPerStream = 4;
    struct Case {
        uint32_t stream, channel;
        bool ok;
        short first;
    } cases[] = {{0, 0, true, 0}, {0, 1, true, 1}, {1, 0, true, 4},
                 {1, 1, true, 5}, {2, 0, false, 0}, {0, 2, false, 0}};
    for (const auto& c : cases) {
        short* r = f.GetMono16Frame(bytes, out, c.stream, c.channel);
        if (!c.ok) {
            EXPECT_EQ(r, nullptr);
            continue;
        }
        ASSERT_EQ(r, out);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(out[i], c.first + 2 * i);
    }
    f.ActiveStream = 0xFFFFFFFFu;
    EXPECT_EQ(f.GetMono16Frame(bytes, out, 0, 0), nullptr);
}

TEST(WavFormat, StreamAndChannelRoundTrip) {
    // Every channel of stream 0 out and back in; the rest of the block stays as it was.
    CKXWAVFormat f(48000, 16, 3, 2);
    f.SamplesPerStream = 5;
    std::vector<short> block(3 * 5 * 2), copy;
    for (size_t i = 0; i < block.size(); ++i) block[i] = short(1000 + i);
    copy = block;
    for (uint32_t ch = 0; ch < 3; ++ch) {
        short mono[5];
        ASSERT_EQ(f.GetMono16Frame(reinterpret_cast<unsigned char*>(block.data()), mono, 0, ch),
                  mono);
        for (short& s : mono) s = short(-s);
        ASSERT_EQ(f.InsertMono16Frame(block.data(), mono, 0, ch), 1);
    }
    for (size_t i = 0; i < block.size(); ++i)
        EXPECT_EQ(block[i], i < 15 ? -copy[i] : copy[i]) << i;

    // The insert counts whole streams of frames.
    const short ones[5] = {1, 1, 1, 1, 1};
    ASSERT_EQ(f.InsertMono16Frame(block.data(), ones, 1, 2), 1);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(block[15 + 2 + 3 * i], 1);
    EXPECT_EQ(f.InsertMono16Frame(block.data(), ones, 2, 0), 0);
    EXPECT_EQ(f.InsertMono16Frame(block.data(), ones, 0, 3), 0);
    CKXWAVFormat f8(48000, 8, 1, 1);
    EXPECT_EQ(f8.InsertMono16Frame(block.data(), ones, 0, 0), 0);
}

TEST(WavFormat, InsertByMask) {
    const short mono[3] = {100, -200, 32767};
    // Stereo, two streams of three frames; mask 0b0110 is stream 0 channel 1 and stream 1
    // channel 0; bits above 3 are ignored.
    CKXWAVFormat f(44100, 16, 2, 2);
    f.SamplesPerStream = 3;
    std::vector<short> block(12, 0);
    ASSERT_EQ(f.InsertMono16Frame(block.data(), mono, 0xFFFFFFF6u), 1);
    const short expected[12] = {0, 100, 0, -200, 0, 32767, 100, 0, -200, 0, 32767, 0};
    for (int i = 0; i < 12; ++i) EXPECT_EQ(block[i], expected[i]) << i;

    // 32-bit blocks take floats scaled by 1/32768, whatever the tag.
    CKXWAVFormat g(44100, 32, 1, 2, 1);
    g.SamplesPerStream = 3;
    std::vector<float> fblock(6, 9.0f);
    ASSERT_EQ(g.InsertMono16Frame(reinterpret_cast<short*>(fblock.data()), mono, 0x2u), 1);
    EXPECT_EQ(fblock[0], 9.0f);
    EXPECT_EQ(fblock[3], 100.0f / 32768.0f);
    EXPECT_EQ(fblock[4], -200.0f / 32768.0f);
    EXPECT_EQ(fblock[5], 32767.0f / 32768.0f);

    // A slot outside the block fails at once; bits before it are written.
    CKXWAVFormat m(44100, 16, 1, 1);
    m.SamplesPerStream = 3;
    std::vector<short> one(3, 0);
    EXPECT_EQ(m.InsertMono16Frame(one.data(), mono, 0x3u), 0);
    EXPECT_EQ(one[0], 100);
    CKXWAVFormat none(44100, 16, 0, 1);
    EXPECT_EQ(none.InsertMono16Frame(one.data(), mono, 0x1u), 0);
    EXPECT_EQ(none.InsertMono16Frame(one.data(), mono, 0x10u), 1);
}

TEST(WavFormat, DumpLines) {
    kelptest::SinkSetLevelMask(0xFFFFFFFFu);
    kelptest::SinkClear();
    CKXWAVFormat f(48000, 16, 2, 3);
    f.SamplesPerStream = 480;
    f.Dump(8, 31);
    CKXWAVFormat g(44100, 32, 1, 1, 3);
    g.Dump(8, 30);
    CKXWAVFormat h(44100, 24, 1, 1, 0xFFFE);
    h.Dump(8, 30);
    const auto lines = kelptest::SinkLines();
    const wchar_t* expected[] = {
        L"KXWAVFORMAT: Size=64 ID=EULB Format=PCM\r\n",
        L"    48000 SamplesPerSec\r\n",
        L"       16 BitsPerSample\r\n",
        L"        4 BlockAlign\r\n",
        L"   192000 AvgBytesPerSec\r\n",
        L"        3 Streams\r\n",
        L"        2 Channels\r\n",
        L"        7 ActiveStream\r\n",
        L"      480 SamplesPerStream\r\n",
        L"   192000 MaxBufferSize\r\n",
    };
    ASSERT_EQ(lines.size(), 30u);
    for (size_t i = 0; i < 10; ++i) {
        EXPECT_EQ(lines[i].text, expected[i]);
        EXPECT_EQ(lines[i].area, 8u);
        EXPECT_EQ(lines[i].level, 31u);
    }
    EXPECT_EQ(lines[10].text, L"KXWAVFORMAT: Size=64 ID=EULB Format=FLT\r\n");
    EXPECT_EQ(lines[10].level, 30u);
    EXPECT_EQ(lines[20].text, L"KXWAVFORMAT: Size=64 ID=EULB Format=???\r\n");
}
