// The "ALP1" stream: its exact bytes for the packet kinds and the end rule, round trips
// of mattes of many shapes through images, the stored form's sizes, and streams that lie.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include <kelp/stdfx.h>

#include "guardedbuffer.h"
#include "kxbihtest.h"

using kelptest::MakeRgb;
using stdfx::CDIB;
using stdfx::CDibRLE;

namespace {

typedef std::vector<uint8_t> Bytes;

Bytes Header(uint32_t mode, uint32_t raw, uint32_t coded) {
    Bytes b;
    for (uint32_t w : {mode, raw, coded})
        for (int i = 0; i < 4; ++i)
            b.push_back(uint8_t(w >> (8 * i)));
    return b;
}
Bytes Cat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
Bytes Repeat(size_t n, uint8_t v) {
    return Bytes(n, v);
}
Bytes Distinct(size_t n, uint8_t first) { // no two neighbours equal
    Bytes b(n);
    for (size_t i = 0; i < n; ++i)
        b[i] = uint8_t(first + i % 200);
    return b;
}

Bytes Encode(const Bytes& data) {
    Bytes stream(data.size() + CDibRLE::kEncodeSlack, 0xEE);
    uint32_t size = 0;
    CDibRLE rle;
    EXPECT_TRUE(rle.Encode(stream.data(), &size, data.data(), uint32_t(data.size())));
    stream.resize(size);
    return stream;
}

// The bytes a run-length stream keeps: all when the data ends in a run of two or more;
// otherwise the last byte is lost, with the single bytes just before it that no full
// literal packet (255) took.
size_t Kept(const Bytes& d) {
    const size_t n = d.size();
    if (n < 2) return 0;
    if (d[n - 1] == d[n - 2]) return n;
    size_t singles = 0;
    for (ptrdiff_t j = ptrdiff_t(n) - 2; j >= 0 && (j == 0 || d[j - 1] != d[j]); --j)
        ++singles;
    return n - 1 - singles % 255;
}

TEST(RleStream, EncoderWritesTheDesignedBytes) {
    const Bytes lits = Distinct(255, 1);
    Bytes lits256 = Distinct(256, 1);
    struct Case {
        const char* what;
        Bytes data;
        Bytes stream; // padded to 4 with zeros
    } cases[] = {
        {"no data", {}, Header(6, 0, 12)},
        {"one byte", {7}, Header(6, 1, 12)},
        {"300 of one value", Repeat(300, 0x55), Cat(Header(6, 300, 15), {0xAC, 0x02, 0x55, 0})},
        {"a run of 128", Repeat(128, 9), Cat(Header(6, 128, 15), {0x80, 0x01, 9, 0})},
        {"a run of 127", Repeat(127, 9), Cat(Header(6, 127, 14), {0x7F, 9, 0, 0})},
        {"a run of 2^21", Repeat(1 << 21, 3),
         Cat(Header(6, 1 << 21, 17), {0x80, 0x80, 0x80, 0x01, 3, 0, 0, 0})},
        {"literals between runs", Cat(Cat(Repeat(20, 0), {1, 2, 3}), Repeat(20, 0)),
         Cat(Header(6, 43, 21), {20, 0, 0, 3, 1, 2, 3, 20, 0, 0, 0, 0})},
        {"pending literals and the last byte are lost", Cat(Repeat(30, 0), {5, 6, 7}),
         Cat(Header(6, 33, 14), {30, 0, 0, 0})},
        {"a last pair is kept", Cat(Repeat(30, 0), {5, 5}), Cat(Header(6, 32, 16), {30, 0, 2, 5})},
        {"two bytes are stored", {1, 2}, Cat(Header(1, 2, 2), {1, 2, 0, 0})},
        {"eleven equal bytes are stored", Repeat(11, 4),
         Cat(Header(1, 11, 11), Cat(Repeat(11, 4), {0}))},
        {"255 literals fill one packet", Cat(Cat(Repeat(1000, 0), lits), Repeat(1000, 0)),
         Cat(Cat(Cat(Header(6, 2255, 275), {0xE8, 0x07, 0, 0, 0xFF}), lits), {0xE8, 0x07, 0, 0})},
        {"a 256th literal starts a packet", Cat(Cat(Repeat(1000, 0), lits256), Repeat(1000, 0)),
         Cat(Cat(Cat(Cat(Header(6, 2256, 278), {0xE8, 0x07, 0, 0, 0xFF}), Distinct(255, 1)),
                 {0, 1, lits256[255]}),
             {0xE8, 0x07, 0, 0, 0})},
        {"fewer than 255 single bytes are all lost", Distinct(254, 1), Header(6, 254, 12)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(Encode(c.data), c.stream);
    }
}

TEST(RleStream, DataThatDoesNotShrinkIsStored) {
    std::mt19937 rng(5);
    // No two neighbours equal: every byte is a literal, and the first full packet (257
    // bytes after the header) outgrows data of fewer than 269 bytes.
    for (size_t n : {2u, 11u, 256u, 268u, 4097u, 65536u}) {
        Bytes d(n);
        for (size_t i = 0; i < n; ++i)
            do
                d[i] = uint8_t(rng());
            while (i && d[i] == d[i - 1]);
        const Bytes s = Encode(d);
        ASSERT_EQ(s.size(), (12 + n + 3) / 4 * 4);
        EXPECT_EQ(Bytes(s.begin(), s.begin() + 12), Header(1, uint32_t(n), uint32_t(n)));
        EXPECT_EQ(Bytes(s.begin() + 12, s.begin() + 12 + n), d);
    }
}

TEST(RleStream, RandomRunsDecodeToTheKeptBytes) {
    std::mt19937 rng(11);
    CDibRLE rle;
    for (int round = 0; round < 400; ++round) {
        Bytes d;
        const size_t n = rng() % (round < 200 ? 64 : 5000);
        const unsigned maxRun = 1 + rng() % 300;
        while (d.size() < n) {
            const size_t len = std::min<size_t>(n - d.size(), 1 + rng() % maxRun);
            d.insert(d.end(), len, uint8_t(rng() % 4 ? rng() % 3 : rng()));
        }
        const Bytes s = Encode(d);
        Bytes out(n + 1, 0xA5);
        uint32_t size = 99;
        ASSERT_TRUE(rle.Decode(out.data(), &size, s.data()));
        ASSERT_EQ(size, s[0] == 1 ? n : Kept(d)) << "round " << round;
        EXPECT_TRUE(std::equal(d.begin(), d.begin() + size, out.begin()));
        EXPECT_EQ(out[size], 0xA5) << "wrote past the decoded bytes";
        if (s[0] == 6) {
            EXPECT_LE(rle.GetCodedSize(s.data()), s.size());
        }
    }
}

TEST(RleStream, DecodeTestsOnlyModeOneAndBitTwo) {
    // A run of 5, then a literal 7 8: the same packets under several modes.
    const Bytes packets = {5, 1, 0, 2, 7, 8};
    struct Case {
        uint32_t mode;
        bool ok;
    } cases[] = {{6, true},  {5, true},  {4, true},  {7, true}, {0xFFFFFFFF, true},
                 {2, false}, {0, false}, {3, false}, {8, false}};
    CDibRLE rle;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.mode);
        const Bytes s = Cat(Header(c.mode, 7, 18), packets);
        Bytes out(7, 0xCC);
        uint32_t size = 1;
        EXPECT_EQ(rle.Decode(out.data(), &size, s.data()), c.ok);
        EXPECT_EQ(size, c.ok ? 7u : 0u);
        if (c.ok) {
            EXPECT_EQ(out, (Bytes{1, 1, 1, 1, 1, 7, 8}));
        }
    }
}

TEST(RleStream, StoredStreamsCountTheirSizeWithoutTheHeader) {
    const Bytes d = {9, 8, 7, 6, 5};
    const Bytes s = Encode(d);
    CDibRLE rle;
    EXPECT_EQ(rle.GetCodedSize(s.data()), 5u); // not 17
    // A stream that ends where its data ends, at an unreadable page.
    kelptest::GuardedBuffer g(12 + d.size());
    std::memcpy(g.data(), s.data(), g.size());
    Bytes out(5);
    uint32_t size = 0;
    EXPECT_TRUE(rle.Decode(out.data(), &size, g.data()));
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(out, d);
    // A fifth length group ends the length whatever its bit 7 says.
    const Bytes five = Cat(Header(6, 5, 18), {0x82, 0x80, 0x80, 0x80, 0x80, 7});
    EXPECT_TRUE(rle.Decode(out.data(), &size, five.data()));
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(out[1], 7);
    // Short streams in mode 6 decode to nothing.
    for (uint32_t coded : {0u, 5u, 12u}) {
        const Bytes h = Header(6, 40, coded);
        size = 3;
        EXPECT_TRUE(rle.Decode(out.data(), &size, h.data()));
        EXPECT_EQ(size, 0u);
    }
}

// ---------------------------------------------------------------- streams that lie

struct Lie {
    const char* what;
    Bytes stream;
};

// Streams for data of `raw` bytes (raw at least 8).
std::vector<Lie> Lies(uint32_t raw) {
    const uint8_t r = uint8_t(raw);
    return {
        {"a run past rawSize", Cat(Header(6, raw, 15), {uint8_t(r + 1), 1, 0})},
        {"runs that add up past rawSize", Cat(Header(6, raw, 18), {uint8_t(r - 4), 1, 6, 2, 0, 0})},
        {"a literal past rawSize", Cat(Header(6, raw, 19), {uint8_t(r - 1), 1, 0, 3, 1, 2, 3})},
        {"a literal past codedSize", Cat(Header(6, raw, 16), {0, 9, 1, 2})},
        {"a literal count at codedSize", Cat(Header(6, raw, 13), {0, 0, 0, 0})},
        {"a run without its value", Cat(Header(6, raw, 13), {4, 0, 0, 0})},
        {"a length that never ends", Cat(Header(6, raw, 15), {0x81, 0x81, 0x81})},
        {"a fifth group with bit 7 set",
         Cat(Header(6, raw, 18), {0x82, 0x80, 0x80, 0x80, 0x81, 1})},
        {"codedSize past the stream", Cat(Header(6, raw, 400), {r, 1})},
        {"an unknown mode", Cat(Header(2, raw, 14), {r, 1})},
        {"stored sizes that disagree", Cat(Header(1, raw, raw + 4), Repeat(raw, 1))},
        {"stored data past the stream", Cat(Header(1, raw, raw), {1, 2, 3, 4})},
    };
}

TEST(RleStream, LyingStreamsAreRefusedWithinTheirBuffers) {
    for (const Lie& lie : Lies(10)) {
        SCOPED_TRACE(lie.what);
        kelptest::GuardedBuffer in(lie.stream.size());
        std::memcpy(in.data(), lie.stream.data(), in.size());
        kelptest::GuardedBuffer out(10);
        out.Fill(0x33);
        uint32_t size = 0, length = 0;
        EXPECT_FALSE(CDibRLE::CheckStream(in.data(), uint32_t(in.size()), 10, &length, &size));
        EXPECT_EQ(out.Copy(), Repeat(10, 0x33));
        EXPECT_FALSE(CDibRLE::DecodeWithin(out.data(), 10, &size, in.data(), uint32_t(in.size())));
        EXPECT_LE(size, 10u);
    }
}

// ---------------------------------------------------------------- images

// An 8-bit matte of w x h, value f(x, y).
CDIB Matte(int w, int h, const std::function<uint8_t(int, int)>& f) {
    KXBMINFOHEADERYUV r = MakeRgb(w, h, 8);
    CDIB dib(&r.bmi);
    const int32_t stride = dib.Stride();
    auto* p = static_cast<uint8_t*>(dib.Bits());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < stride; ++x)
            p[y * stride + x] = x < w ? f(x, y) : 0;
    return dib;
}

Bytes Pixels(const CDIB& dib, size_t n) {
    const auto* p = static_cast<const uint8_t*>(dib.Bits());
    return Bytes(p, p + n);
}

TEST(RleImage, MattesOfManyShapesComeBackByteForByte) {
    std::mt19937 rng(3);
    const auto disc = [](int cx, int cy, double r) {
        return [=](int x, int y) {
            const double d = std::hypot(x - cx, y - cy);
            return uint8_t(d <= r - 2 ? 255 : d >= r + 2 ? 0 : int(255 * (r + 2 - d) / 4));
        };
    };
    struct Case {
        const char* what;
        int w, h;
        std::function<uint8_t(int, int)> f;
        int mode; // 0: either
    } cases[] = {
        {"clear", 64, 48, [](int, int) { return uint8_t(0); }, 6},
        {"opaque", 1920, 1080, [](int, int) { return uint8_t(255); }, 6},
        {"one pixel", 1, 1, [](int, int) { return uint8_t(200); }, 1},
        {"one column", 1, 300, [](int, int y) { return uint8_t(y / 10); }, 0},
        {"soft disc", 321, 203, disc(160, 100, 80), 6},
        {"disc off the edge", 97, 61, disc(90, 5, 40), 6},
        {"horizontal ramp", 254, 20, [](int x, int) { return uint8_t(x); }, 0},
        {"vertical ramp", 17, 256, [](int, int y) { return uint8_t(y); }, 6},
        {"long rows of 300", 900, 7, [](int x, int) { return uint8_t(x / 300 * 100); }, 6},
        {"checkers", 33, 33, [](int x, int y) { return uint8_t((x + y) & 1 ? 255 : 0); }, 1},
        {"noise", 50, 50, [&](int, int) { return uint8_t(rng()); }, 1},
        {"bars of 128", 1024, 3, [](int x, int) { return uint8_t(x / 128 % 2 * 255); }, 6},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        CDIB dib = Matte(c.w, c.h, c.f);
        const uint32_t n = stdfx::DIBImageSize(dib.Header());
        const Bytes before = Pixels(dib, n);
        ASSERT_TRUE(dib.CompressAlpha());
        EXPECT_EQ(dib.Format(), CDibRLE::kFormat);
        const auto* s = static_cast<const uint8_t*>(dib.Bits());
        if (c.mode) {
            EXPECT_EQ(s[0], c.mode);
        }
        EXPECT_EQ(dib.Header()->biSizeImage % 4, 0u);
        if (c.mode == 6) {
            EXPECT_LT(dib.Header()->biSizeImage, n);
        }
        ASSERT_TRUE(dib.DecompressAlpha());
        EXPECT_EQ(dib.Format(), 0u);
        EXPECT_EQ(dib.Header()->biSizeImage, 0u);
        EXPECT_EQ(Pixels(dib, n), before);
    }
}

TEST(RleImage, InPlaceDecodingLeavesTheLostEndAsItIs) {
    // The last row ends in single bytes that the stream does not keep.
    CDIB dib = Matte(16, 4, [](int x, int y) { return uint8_t(y == 3 && x >= 13 ? x : 0); });
    const Bytes before = Pixels(dib, 64);
    CDibRLE rle;
    ASSERT_TRUE(rle.Compress(dib));
    ASSERT_TRUE(rle.Decompress(dib));
    EXPECT_EQ(Bytes(before.begin(), before.begin() + 61), Pixels(dib, 61));
    EXPECT_EQ(Pixels(dib, 64)[63], 15) << "the tail keeps what the buffer held";
}

TEST(RleImage, StreamsOfNoPacketsDecodeToNothing) {
    for (uint32_t coded : {0u, 5u, 12u}) {
        SCOPED_TRACE(coded);
        CDIB dib = Matte(8, 2, [](int x, int) { return uint8_t(x + 1); });
        std::memcpy(dib.Bits(), Header(6, 16, coded).data(), 12);
        const Bytes before = Pixels(dib, 16);
        dib.SetFormat(CDibRLE::kFormat, 12);
        CDibRLE rle;
        ASSERT_TRUE(rle.Decompress(dib));
        EXPECT_EQ(dib.Format(), 0u);
        EXPECT_EQ(Pixels(dib, 16), before);
    }
}

TEST(RleImage, OnlyEightBitImagesOfFormatZeroAreCompressed) {
    CDibRLE rle;
    KXBMINFOHEADERYUV r32 = MakeRgb(8, 8, 32);
    CDIB rgb(&r32.bmi);
    std::memset(rgb.Bits(), 0, 256);
    EXPECT_FALSE(rle.Compress(rgb));
    EXPECT_FALSE(rle.Decompress(rgb));
    EXPECT_EQ(rgb.Format(), 0u);
    CDIB matte = Matte(40, 40, [](int, int) { return uint8_t(9); });
    ASSERT_TRUE(rle.Compress(matte));
    const Bytes stream = Pixels(matte, 16);
    EXPECT_FALSE(rle.Compress(matte)) << "a stream is not compressed again";
    EXPECT_EQ(Pixels(matte, 16), stream);
    CDIB empty;
    EXPECT_FALSE(empty.CompressAlpha());
    EXPECT_FALSE(empty.DecompressAlpha());
}

TEST(RleImage, CompressingASharedImageLeavesTheOtherHandleAlone) {
    CDIB a = Matte(30, 30, [](int x, int) { return uint8_t(x < 15 ? 0 : 255); });
    const Bytes before = Pixels(a, 960);
    CDIB b(a);
    EXPECT_EQ(a.GetRefCount(), 2);
    ASSERT_TRUE(b.CompressAlpha());
    EXPECT_EQ(a.Format(), 0u);
    EXPECT_EQ(Pixels(a, 960), before);
    CDIB c(b);
    ASSERT_TRUE(c.DecompressAlpha());
    EXPECT_EQ(b.Format(), CDibRLE::kFormat);
    EXPECT_EQ(Pixels(c, 960), before);
}

TEST(RleImage, CallersPixelsTooSmallForAStoredStreamStayUnchanged) {
    // No two neighbours equal: the stream is the data stored, 12 bytes longer.
    KXBMINFOHEADERYUV r = MakeRgb(32, 32, 8);
    Bytes pixels(1024);
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = uint8_t(i * 37 + (i >> 8));
    const Bytes before = pixels;
    CDIB dib(&r.bmi, pixels.data());
    EXPECT_FALSE(dib.CompressAlpha());
    EXPECT_EQ(pixels, before);
    EXPECT_EQ(dib.Format(), 0u);
    // A matte that shrinks is packed into the caller's pixels and back.
    std::fill(pixels.begin(), pixels.end(), 77);
    ASSERT_TRUE(dib.CompressAlpha());
    EXPECT_EQ(r.bmi.biCompression, CDibRLE::kFormat);
    ASSERT_TRUE(dib.DecompressAlpha());
    EXPECT_EQ(Pixels(dib, 1024), Bytes(1024, 77));
}

TEST(RleImage, LyingStreamsLeaveTheImageUnchanged) {
    std::vector<Lie> lies = Lies(12);
    lies.push_back({"rawSize is not the image's", Cat(Header(6, 9, 14), {9, 1})});
    lies.push_back({"stored rawSize is not the image's", Cat(Header(1, 4, 4), {1, 2, 3, 4})});
    for (const Lie& lie : lies) {
        SCOPED_TRACE(lie.what);
        for (bool viaImage : {true, false}) {
            // A 10 x 1 matte (12 bytes with its row padding) whose block holds the stream.
            KXBMINFOHEADERYUV r = MakeRgb(10, 1, 8);
            CDIB dib(&r.bmi);
            std::memcpy(dib.Bits(), lie.stream.data(), lie.stream.size());
            dib.SetFormat(CDibRLE::kFormat, uint32_t(lie.stream.size()));
            KXBMINFOHEADERYUV headerBefore;
            std::memcpy(&headerBefore, dib.Header(), sizeof headerBefore);
            const Bytes before = Pixels(dib, lie.stream.size());
            CDibRLE rle;
            EXPECT_FALSE(viaImage ? dib.DecompressAlpha() : rle.Decompress(dib));
            EXPECT_EQ(Pixels(dib, lie.stream.size()), before);
            EXPECT_EQ(std::memcmp(&headerBefore, dib.Header(), sizeof headerBefore), 0);
        }
    }
}

} // namespace
