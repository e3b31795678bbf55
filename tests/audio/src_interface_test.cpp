// The streaming converter's interface: creation, interface queries and references,
// sample formats, channel selection, and its trace lines.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "src_reader.h"
#include "tracecapture.h"

using namespace srctest;
using kelp::ISampleRateConverter;

TEST(SrcInterface, CreateRefusesWhatCannotWork) {
    BlockReader reader({}, {4});
    void* o = reinterpret_cast<void*>(1);
    KXWAVFORMAT good = Format(44100, 16, 2, 1, 1, 1, 3);
    EXPECT_FALSE(ISampleRateConverter::Create(good, 48000, nullptr, &o));
    EXPECT_EQ(o, nullptr);
    EXPECT_FALSE(ISampleRateConverter::Create(good, 48000, &reader, nullptr));
    EXPECT_FALSE(ISampleRateConverter::Create(good, 0, &reader, &o));
    KXWAVFORMAT bad[5] = {good, good, good, good, good};
    bad[0].nChannels = 0;
    bad[1].Streams = 0;
    bad[2].nSamplesPerSec = 0;
    bad[3].nBlockAlign = 6; // not 2 channels of 2 bytes
    bad[4].nBlockAlign = 0;
    for (auto& f : bad) {
        EXPECT_FALSE(ISampleRateConverter::Create(f, 48000, &reader, &o));
        EXPECT_EQ(o, nullptr);
    }
    EXPECT_EQ(ISampleRateConverter::GetQueueLenght(), 5000u);
    EXPECT_EQ(reader.reads(), 0u);
}

TEST(SrcInterface, QueriesAndReferences) {
    BlockReader reader({}, {4});
    void* o = nullptr;
    ASSERT_TRUE(ISampleRateConverter::Create(Format(44100, 16, 1, 1, 1, 1, 1), 44100, &reader, &o));
    auto* c = static_cast<ISampleRateConverter*>(o);
    void* q = nullptr;
    EXPECT_EQ(c->QueryInterface(kelp::IID_IUnknown, &q), KX_OK);
    EXPECT_EQ(q, o);
    EXPECT_EQ(c->QueryInterface(kelp::IID_ISampleRateConverter, &q), KX_OK);
    EXPECT_EQ(q, o);
    KXGUID other = kelp::IID_ISampleRateConverter;
    other.Data4[7] ^= 1;
    q = o;
    EXPECT_EQ(c->QueryInterface(other, &q), KXE_NOINTERFACE);
    EXPECT_EQ(q, nullptr);
    EXPECT_EQ(c->AddRef(), 4u); // one from Create, two from the queries
    EXPECT_EQ(c->Release(), 3u);
    EXPECT_EQ(c->Release(), 2u);
    EXPECT_EQ(c->Release(), 1u);
    EXPECT_EQ(c->Release(), 0u);
}

TEST(SrcInterface, SamplesConvertToFloatByFormat) {
    struct {
        int tag, bits;
        std::vector<uint8_t> bytes;
        std::vector<float> want;
    } cases[] = {
        {1, 8, {128, 0, 255, 1}, {0.0f, -1.0f, 0.9921875f, -0.9921875f}},
        {1,
         16,
         {0x00, 0x80, 0xFF, 0x7F, 0xFF, 0xFF, 0, 0},
         {-1.0f, 32767 / 32768.0f, -1 / 32768.0f, 0}},
        {3, 32, {}, {1.5f, -0.25f, 1e-40f, -3e38f}},
    };
    cases[2].bytes.resize(16);
    std::memcpy(cases[2].bytes.data(), cases[2].want.data(), 16);
    kelptest::SinkSetLevelMask(0);
    for (auto& k : cases) {
        BlockReader reader(k.bytes, {uint32_t(k.bytes.size())});
        Converter conv(Format(8000, k.bits, 1, 1, k.tag, 1, 1), 8000, &reader);
        ASSERT_NE(conv.p, nullptr);
        std::vector<float> got(4);
        ASSERT_TRUE(conv->ReadSamples(got.data(), 4, 0));
        EXPECT_EQ(got, k.want) << k.tag << "/" << k.bits;
    }
    // Other sample formats: no request succeeds, and the reader is never asked.
    for (auto tb : {std::pair<int, int>(1, 24), {1, 32}, {3, 64}, {0xFFFE, 16}}) {
        BlockReader reader(std::vector<uint8_t>(64), {64});
        KXWAVFORMAT f = Format(8000, tb.second, 1, 1, tb.first, 1, 1);
        Converter conv(f, 16000, &reader);
        ASSERT_NE(conv.p, nullptr);
        float x = 0;
        EXPECT_FALSE(conv->ReadSamples(&x, 1, 0));
        EXPECT_EQ(reader.reads(), 0u);
    }
    kelptest::SinkSetLevelMask(0xFFFFFFFFu);
}

TEST(SrcInterface, SelectionCountsOnlyStreamsAndChannelsThatExist) {
    struct {
        int channels, streams;
        uint32_t activeStream, activeChannels, count;
    } cases[] = {
        {2, 1, 1, 2, 1},
        {2, 1, 1, 3, 2},
        {3, 2, 3, 5, 4},
        {2, 2, 2, 3, 2},
        {2, 1, 0xFFFFFFFF, 0xFFFFFFFF, 2},
        {1, 1, 0, 1, 0},
    };
    for (auto& k : cases) {
        BlockReader reader({}, {4});
        Converter conv(Format(8000, 16, k.channels, k.streams, 1, k.activeStream, k.activeChannels),
                       11025, &reader);
        ASSERT_NE(conv.p, nullptr);
        EXPECT_EQ(conv->GetChannelCount(), k.count);
        float x;
        EXPECT_FALSE(conv->ReadSamples(&x, 1, k.count)); // one past the last queue
    }
}

TEST(SrcInterface, RightChannelAloneTracesItsFlowWordForWord) {
    // Stereo, only the right channel active, equal rates: queue 0 is the right channel.
    std::vector<uint8_t> bytes;
    for (int i = 0; i < 600; ++i) {
        int16_t lr[2] = {int16_t(-1000 - i), int16_t(i)};
        bytes.insert(bytes.end(), reinterpret_cast<uint8_t*>(lr),
                     reinterpret_cast<uint8_t*>(lr) + 4);
    }
    BlockReader reader(bytes, {4 * 600});
    Converter conv(Format(44100, 16, 2, 1, 1, 1, 2), 44100, &reader);
    ASSERT_EQ(conv->GetChannelCount(), 1u);
    kelptest::SinkClear();
    std::vector<float> out(1102, 9.0f);
    ASSERT_TRUE(conv->ReadSamples(out.data(), 1, 0));
    EXPECT_EQ(reader.reads(), 1u);
    ASSERT_TRUE(conv->ReadSamples(out.data() + 1, 1, 0)); // 511 are waiting: no read
    EXPECT_EQ(reader.reads(), 1u);
    // 1024 in all (the input padded to whole blocks): the rest of 1100 is padding
    ASSERT_TRUE(conv->ReadSamples(out.data() + 2, 1100, 0));
    float x = 7.0f;
    EXPECT_FALSE(conv->ReadSamples(&x, 1, 0));
    EXPECT_TRUE(conv->ReadSamples(&x, 0, 0)); // a request for nothing always succeeds
    for (int i = 0; i < 1102; ++i)
        ASSERT_EQ(out[i], i < 600 ? float(i) / 32768.0f : 0.0f) << i;

    std::vector<std::wstring> want = {
        L"SampleConverter: Read Input Until 1 block(512) ready: I:600 O:0 ...\r\n",
        L"Copy: 512 samples form ",
        L"SampleConverter Data Ready (Delivered 1 Samples, Stream=0): I: 88, O: 511 ...\r\n",
        L"SampleConverter: QueueLength: 0=1-1\r\n",
        L"SampleConverter Data Ready (Delivered 1 Samples, Stream=0): I: 88, O: 510 ...\r\n",
        L"SampleConverter: QueueLength: -1=1-2\r\n",
        L"SampleConverter: Read Input Until 1 block(512) ready: I:512 O:510 INDONE\r\n",
        L"Copy: 512 samples form ",
        L"SampleConverter Padding 78 Zeros (Stream=0) ********\r\n",
        L"SampleConverter NO MORE DATA (Stream=0) ********\r\n",
        L"SampleConverter Data Ready (Delivered 0 Samples, Stream=0): I: 0, O: 0 OUTDONE\r\n",
        L"SampleConverter: QueueLength: -1=2-3\r\n",
    };
    auto lines = kelptest::SinkLines();
    ASSERT_EQ(lines.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(lines[i].area, 8u);
        EXPECT_EQ(lines[i].level, want[i].find(L"QueueLength") != std::wstring::npos ? 26u : 27u);
        if (want[i].rfind(L"Copy", 0) == 0)
            EXPECT_EQ(lines[i].text.substr(0, want[i].size()), want[i]) << i;
        else
            EXPECT_EQ(lines[i].text, want[i]) << i;
    }
}
