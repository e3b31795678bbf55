// Chains through the YUV stages, found and run by the conversion manager: RGB at 24 and
// 32 bits to "@YUV" in each colour space and back, between the spaces, in place when
// the caller lets go of the input, and at the 75 % chroma limit by flag.
#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <memory>
#include <random>

#include <kelp/kxcsc.h>

#include "convert/chainsearch.h"
#include "convert/converter.h"
#include "convert/convman.h"
#include "kxbihtest.h"

using namespace kelp;
using kelptest::MakeRgb;
using kelptest::MakeYuv;
using kelptest::TrackingAllocator;

namespace {

typedef std::vector<std::wstring> Lines;

KXBMINFOHEADERYUV Yuv(int32_t w, int32_t h, uint16_t bits, uint32_t space) {
    KXBMINFOHEADERYUV r = MakeYuv(w, h, bits);
    r.yuv.yuvColorSpace = space;
    return r;
}

size_t Pitch(const KXBMINFOHEADER& d) {
    return (size_t(d.biBitCount) * size_t(d.biWidth) / 8 + 3) & ~size_t(3);
}

// The built-in stages, as a manager holds them after Init.
struct BuiltIn {
    IConversionManager* cm = KXCONVCreateConversionManager();
    BuiltIn() { cm->Init(KXCONV_VERSION, 0); }
    ~BuiltIn() { cm->Release(); }
    const std::list<IConverter*>& Stages() const {
        return static_cast<CConversionManager*>(cm)->Converters();
    }
};

// One search over the built-in stages: the names of the chain it keeps, its Q, and the
// walk at level 30 with each indent joined to its text and the record lines left out.
struct Search {
    BuiltIn builtIn;
    KXBMINFOHEADERYUV in, out;
    uint32_t flags = 0;
    int32_t quality = -1;
    Lines names, walk;

    Search(const KXBMINFOHEADERYUV& from, const KXBMINFOHEADERYUV& to) : in(from), out(to) {}
    bool Run() {
        ConversionRequest request(&in.bmi, &out.bmi, &flags, &quality, &builtIn.Stages());
        kelptest::SinkClear();
        const bool found = CreateConverterList(request);
        for (IConverter* s : request.bestChain)
            names.push_back(static_cast<CConverter*>(s)->GetName());
        const Lines raw = kelptest::Lines8(30);
        for (size_t i = 0; i < raw.size(); ++i) {
            if (raw[i].empty() || raw[i][0] == L'(') continue;
            if (raw[i].find_first_not_of(L' ') == std::wstring::npos && i + 1 < raw.size()) {
                walk.push_back(raw[i] + raw[i + 1]);
                ++i;
            } else {
                walk.push_back(raw[i]);
            }
        }
        return found;
    }
};

// Pixels of a random picture of the record's geometry, the row padding included.
std::vector<uint8_t> RandomImage(const KXBMINFOHEADER& d, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(Pitch(d) * size_t(d.biHeight));
    for (uint8_t& b : v)
        b = uint8_t(rng());
    return v;
}

// The colour bytes of pixel (x, y), 3 or 4 of them.
const uint8_t* PixelAt(const KXBMINFOHEADER& d, const void* data, int x, int y) {
    return static_cast<const uint8_t*>(data) + size_t(y) * Pitch(d) +
           size_t(x) * (d.biBitCount / 8);
}

// The picture `rgb` (24 or 32 bits) as the colour converter itself puts it into
// meshed YUV at 32 bits: Y, U, V of each pixel, in a plain list.
std::vector<uint8_t> ReferenceYuv(const KXBMINFOHEADER& d, const std::vector<uint8_t>& rgb,
                                  CKXCsc::ColorSpace space, int limit) {
    std::vector<uint8_t> bgra(size_t(d.biWidth) * d.biHeight * 4), yuv(bgra.size());
    for (int y = 0; y < d.biHeight; ++y)
        for (int x = 0; x < d.biWidth; ++x)
            std::copy_n(PixelAt(d, rgb.data(), x, y), 3, &bgra[(size_t(y) * d.biWidth + x) * 4]);
    CKXCsc csc;
    csc.Init(space);
    csc.ColorLimit(limit);
    EXPECT_EQ(csc.BGRToYUV444Meshed(bgra.data(), yuv.data(), d.biWidth, d.biHeight, 4,
                                    uint32_t(d.biWidth) * 4),
              1);
    std::vector<uint8_t> out;
    for (size_t i = 0; i < yuv.size(); i += 4)
        out.insert(out.end(), &yuv[i], &yuv[i] + 3);
    return out;
}

// Y, U, V (or B, G, R) of every pixel of an image, in a plain list.
std::vector<uint8_t> Components(const KXBMINFOHEADER& d, const void* data) {
    std::vector<uint8_t> out;
    for (int y = 0; y < d.biHeight; ++y)
        for (int x = 0; x < d.biWidth; ++x)
            out.insert(out.end(), PixelAt(d, data, x, y), PixelAt(d, data, x, y) + 3);
    return out;
}

// A manager's Convert of `image` into the format `out`.
struct Outcome {
    KXRESULT result = KXE_FAIL;
    void* data = nullptr;
    uint32_t flags = 0;
};

Outcome Convert(KXBMINFOHEADERYUV in, std::vector<uint8_t>& image, KXBMINFOHEADERYUV* out,
                uint32_t flags, TrackingAllocator* allocator) {
    BuiltIn b;
    Outcome r;
    r.flags = flags;
    int32_t q = 0;
    in.bmi.biSizeImage = uint32_t(image.size());
    r.result = b.cm->Convert(&in.bmi, image.data(), &out->bmi, &r.data, &r.flags, &q, allocator);
    return r;
}

} // namespace

TEST(YuvChain, TheSearchFindsTheYuvStagesAndKeepsTheCheaperChain) {
    // 720 x 576: 1,244,160 bytes at 24 bits, 1,658,880 at 32.
    struct Case {
        const char* what;
        KXBMINFOHEADERYUV in, out;
        Lines names;
        int32_t q;
        Lines walk;
    } cases[] = {
        {"rgb 32 to 709: direct, the target's space carried", MakeRgb(720, 576, 32),
         Yuv(720, 576, 32, 2), Lines{L"RGB->YUV4444"}, 16,
         Lines{L" Q0 -> 16", L" ^- OK at 1(Q16) NEW ACTIVE\r\n"}},
        {"rgb 24 to yuv 24: direct", MakeRgb(720, 576, 24), Yuv(720, 576, 24, 0),
         Lines{L"RGB->YUV4444"}, 12, Lines{L" Q0 -> 12", L" ^- OK at 1(Q12) NEW ACTIVE\r\n"}},
        // RGB->YUV4444 proposes 32 bits, which its own Query refuses for a 24-bit input.
        {"rgb 24 to yuv 32: the depth first", MakeRgb(720, 576, 24), Yuv(720, 576, 32, 2),
         Lines{L"nBit to 32bit", L"RGB->YUV4444"}, 12 + 16,
         Lines{L" Q0 -> 12", L"    Q12 -> 28", L"    ^- OK at 2(Q28) NEW ACTIVE\r\n",
               L" ^-Nothing Found at 0\r\n"}},
        // Through RGB 32 first costs 16 + 16; the depth first leaves 12 for the colour.
        {"yuv 32 to rgb 24: the cheaper of two", Yuv(720, 576, 32, 0), MakeRgb(720, 576, 24),
         Lines{L"nBit to 24bit", L"YUV444->RGB24"}, 16 + 12,
         Lines{L" Q0 -> 16", L"    Q16 -> 32", L"    ^- OK at 2(Q32) NEW ACTIVE\r\n", L" Q0 -> 16",
               L"    Q16 -> 28", L"    ^- OK at 2(Q28) NEW ACTIVE\r\n",
               L" ^-Nothing Found at 0\r\n"}},
        {"yuv 32 to rgb 32: direct", Yuv(720, 576, 32, 2), MakeRgb(720, 576, 32),
         Lines{L"YUV444->RGB32"}, 16, Lines{L" Q0 -> 16", L" ^- OK at 1(Q16) NEW ACTIVE\r\n"}},
        {"709 to 601", Yuv(720, 576, 32, 2), Yuv(720, 576, 32, 0), Lines{L"CYUVConverterYU"}, 16,
         Lines{L" Q0 -> 16", L" ^- OK at 1(Q16) NEW ACTIVE\r\n"}},
    };
    for (const Case& c : cases) {
        Search s(c.in, c.out);
        ASSERT_TRUE(s.Run()) << c.what;
        EXPECT_EQ(s.names, c.names) << c.what;
        EXPECT_EQ(s.quality, c.q) << c.what;
        if (!c.walk.empty()) {
            EXPECT_EQ(s.walk, c.walk) << c.what;
        }
    }
}

TEST(YuvChain, PairsNoChainBridges) {
    struct Case {
        const char* what;
        KXBMINFOHEADERYUV in, out;
    } cases[] = {
        {"to full range", MakeRgb(8, 2, 32), Yuv(8, 2, 32, 1)},
        {"from full range", Yuv(8, 2, 32, 1), MakeRgb(8, 2, 32)},
        {"to 4:2:2", MakeRgb(8, 2, 32), MakeYuv(8, 2, 32, KXYUV_SAMPLING_422)},
        // No space stage works at 24 bits, and the depth stages move only toward the
        // target's depth: no proposal leads away from 24 bits and back.
        {"709 to 601 at 24 bits", Yuv(8, 2, 24, 2), Yuv(8, 2, 24, 0)},
    };
    for (const Case& c : cases) {
        BuiltIn b;
        KXBMINFOHEADERYUV in = c.in, out = c.out;
        uint32_t flags = 0;
        int32_t q = 0;
        EXPECT_EQ(b.cm->Query(&in.bmi, &out.bmi, &flags, &q), KXE_INVALID) << c.what;
    }
}

TEST(YuvChain, RgbToYuvRunsInPlaceWhenTheInputIsLetGo) {
    struct Case {
        const char* what;
        uint32_t space;
        uint32_t flags;
    } cases[] = {
        {"601", 0, 0},
        {"709", 2, 0},
        {"709 at the 75 % limit", 2, KXCONV_COLOR_LIMIT},
        {"601 at the 75 % limit", 0, KXCONV_COLOR_LIMIT},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const KXBMINFOHEADERYUV in = MakeRgb(13, 7, 32);
        KXBMINFOHEADERYUV out = Yuv(13, 7, 32, c.space);
        std::vector<uint8_t> image = RandomImage(in.bmi, 5 + c.space);
        // Some saturated pixels, whose chroma the 75 % limit cuts.
        for (int x = 0; x < 13; ++x) {
            uint8_t* p = image.data() + 4 * x;
            p[0] = x % 2 ? 255 : 0;
            p[1] = 0;
            p[2] = x % 2 ? 0 : 255;
        }
        const std::vector<uint8_t> original = image;
        TrackingAllocator a;
        const Outcome r = Convert(in, image, &out, c.flags, &a);
        ASSERT_EQ(r.result, KX_OK);
        EXPECT_EQ(r.data, image.data());
        EXPECT_NE(r.flags & KXCONV_OUT_SHARED, 0u);
        EXPECT_EQ(a.Calls(), 0);
        EXPECT_EQ(out.bmi.biSizeImage, 13u * 4 * 7);
        EXPECT_EQ(Components(out.bmi, r.data),
                  ReferenceYuv(in.bmi, original, CKXCsc::ColorSpace(c.space),
                               c.flags & KXCONV_COLOR_LIMIT ? 1 : 0));
        // The fourth byte stays in place.
        for (size_t i = 3; i < image.size(); i += 4)
            ASSERT_EQ(image[i], original[i]) << i;
        const std::vector<uint8_t> yuv = Components(out.bmi, r.data);
        const uint8_t lo = c.flags & KXCONV_COLOR_LIMIT ? 44 : 16;
        const uint8_t hi = c.flags & KXCONV_COLOR_LIMIT ? 212 : 240;
        const auto chroma = [&](uint8_t v) { return v >= lo && v <= hi; };
        for (size_t i = 0; i < yuv.size(); i += 3) {
            EXPECT_TRUE(yuv[i] >= 16 && yuv[i] <= 235) << i;
            EXPECT_TRUE(chroma(yuv[i + 1]) && chroma(yuv[i + 2])) << i;
        }
        // The limit reaches the saturated pixels: both ends are met.
        const auto [mn, mx] = std::minmax_element(yuv.begin(), yuv.begin() + 3 * 13);
        (void)mn;
        EXPECT_GE(*mx, hi - 2);
    }
}

TEST(YuvChain, Rgb24ToYuv32TakesTwoStagesAndLeavesTheInputAlone) {
    const KXBMINFOHEADERYUV in = MakeRgb(11, 5, 24);
    KXBMINFOHEADERYUV out = Yuv(11, 5, 32, 2);
    std::vector<uint8_t> image = RandomImage(in.bmi, 99);
    const std::vector<uint8_t> original = image;
    TrackingAllocator a;
    const Outcome r = Convert(in, image, &out, 0, &a);
    ASSERT_EQ(r.result, KX_OK);
    // The temporary of the first stage went back; the result is the caller's.
    EXPECT_NE(r.data, image.data());
    EXPECT_EQ(r.flags & KXCONV_OUT_SHARED, 0u);
    EXPECT_EQ(a.Live(), 1u);
    EXPECT_TRUE(a.Owns(r.data));
    EXPECT_EQ(image, original);
    EXPECT_EQ(Components(out.bmi, r.data), ReferenceYuv(in.bmi, original, CKXCsc::CS_ITU709, 0));
    // The depth stage made the fourth byte opaque.
    for (int i = 0; i < 55; ++i)
        ASSERT_EQ(static_cast<const uint8_t*>(r.data)[4 * i + 3], 255) << i;
    a.Free(r.data);
}

TEST(YuvChain, YuvGoesBackToTheRgbTheColourConverterGives) {
    struct Case {
        const char* what;
        KXBMINFOHEADERYUV in, out;
        uint32_t flags;
    } cases[] = {
        {"709 at 32 bits, in place", Yuv(9, 4, 32, 2), MakeRgb(9, 4, 32), 0},
        {"601 at 24 bits, kept", Yuv(9, 4, 24, 0), MakeRgb(9, 4, 24), KXCONV_KEEP_INPUT},
        {"601 at 32 bits to 24", Yuv(9, 4, 32, 0), MakeRgb(9, 4, 24), 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        KXBMINFOHEADERYUV out = c.out;
        std::vector<uint8_t> image = RandomImage(c.in.bmi, 3);
        // Y, U, V inside their ranges, as a YUV picture holds them.
        for (size_t i = 0; i + 2 < image.size(); i += c.in.bmi.biBitCount / 8) {
            image[i] = uint8_t(16 + image[i] % 220);
            image[i + 1] = uint8_t(16 + image[i + 1] % 225);
            image[i + 2] = uint8_t(16 + image[i + 2] % 225);
        }
        const std::vector<uint8_t> original = image;
        TrackingAllocator a;
        const Outcome r = Convert(c.in, image, &out, c.flags, &a);
        ASSERT_EQ(r.result, KX_OK);
        // Only the one-stage chain without KXCONV_KEEP_INPUT runs in place: a depth stage
        // never does, and the last stage then keeps its input.
        EXPECT_EQ(r.data == image.data(), c.flags == 0 && c.out.bmi.biBitCount == 32);
        // The colour converter on a 32-bit copy, in the input's space.
        std::vector<uint8_t> yuv(size_t(9) * 4 * 4), bgr(yuv.size());
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 9; ++x)
                std::copy_n(PixelAt(c.in.bmi, original.data(), x, y), 3, &yuv[(y * 9 + x) * 4]);
        CKXCsc csc;
        csc.Init(CKXCsc::ColorSpace(c.in.yuv.yuvColorSpace));
        ASSERT_EQ(csc.YUV444MeshedToBGR(yuv.data(), bgr.data(), 9, 4, 4, 36), 1);
        std::vector<uint8_t> expect;
        for (size_t i = 0; i < bgr.size(); i += 4)
            expect.insert(expect.end(), &bgr[i], &bgr[i] + 3);
        EXPECT_EQ(Components(out.bmi, r.data), expect);
        if (r.data != image.data()) a.Free(r.data);
    }
}

// The stated bound of a round trip from RGB through "@YUV" and back, at the 100 %
// chroma limit: every component within 3 of where it was in BT.601 and within 2 in
// BT.709, less than 1 on average (measured over all 2^24 colours: BT.601 at most 2, 3,
// 3 for blue, green, red, 0.69 on average; BT.709 at most 2, 1, 1, 0.53 on average).
TEST(YuvChain, RgbThroughYuvAndBackStaysWithinTheStatedBound) {
    // A lattice over the colour cube, every third level of each component, 0 and 255
    // included: 86 x 86 x 86 pixels in 86 rows.
    const int levels = 86, width = levels * levels;
    struct Case {
        uint32_t space;
        uint16_t bits;
        int bound;
    } cases[] = {{0, 24, 3}, {2, 24, 2}, {0, 32, 3}, {2, 32, 2}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "space " << c.space << ", " << c.bits << " bits");
        const KXBMINFOHEADERYUV rgb = MakeRgb(width, levels, c.bits);
        std::vector<uint8_t> image(Pitch(rgb.bmi) * levels);
        for (int y = 0; y < levels; ++y)
            for (int x = 0; x < width; ++x) {
                uint8_t* p = const_cast<uint8_t*>(PixelAt(rgb.bmi, image.data(), x, y));
                p[0] = uint8_t(3 * (x % levels));
                p[1] = uint8_t(3 * (x / levels));
                p[2] = uint8_t(3 * y);
            }
        const std::vector<uint8_t> original = Components(rgb.bmi, image.data());
        TrackingAllocator a;
        KXBMINFOHEADERYUV yuv = Yuv(width, levels, c.bits, c.space);
        Outcome there = Convert(rgb, image, &yuv, 0, &a);
        ASSERT_EQ(there.result, KX_OK);
        ASSERT_EQ(there.data, image.data());
        KXBMINFOHEADERYUV back = rgb;
        Outcome r = Convert(yuv, image, &back, 0, &a);
        ASSERT_EQ(r.result, KX_OK);
        const std::vector<uint8_t> result = Components(back.bmi, r.data);
        int worst = 0;
        double sum = 0;
        for (size_t i = 0; i < result.size(); ++i) {
            const int d = std::abs(int(result[i]) - int(original[i]));
            worst = std::max(worst, d);
            sum += d;
        }
        EXPECT_LE(worst, c.bound);
        EXPECT_LT(sum / double(result.size()), 1.0);
    }
}
