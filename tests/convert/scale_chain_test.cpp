// Chains through the manager that need the geometry stages: the searches that find them
// (with their walks), and conversions run through them with every buffer accounted for.
#include <gtest/gtest.h>

#include <kelp/kelp.h>

#include <vector>

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

struct BuiltIn {
    IConversionManager* cm = KXCONVCreateConversionManager();
    BuiltIn() { cm->Init(KXCONV_VERSION, 0); }
    ~BuiltIn() { cm->Release(); }
    CConversionManager* operator->() { return static_cast<CConversionManager*>(cm); }
};

KXBMINFOHEADERYUV Rgb(int32_t w, int32_t h, uint16_t bits, uint32_t alpha = 0) {
    KXBMINFOHEADERYUV r = MakeRgb(w, h, bits);
    r.bmi.bmiAlpha = alpha;
    return r;
}

KXBMINFOHEADERYUV Yuv(int32_t w, int32_t h, uint16_t bits, uint32_t space) {
    KXBMINFOHEADERYUV r = MakeYuv(w, h, bits);
    r.yuv.yuvColorSpace = space;
    return r;
}

// One search over the built-in stages: the chain it keeps, its Q, and the walk at level
// 30 with each indent joined to its text and the record lines left out.
struct Search {
    BuiltIn builtIn;
    KXBMINFOHEADERYUV in, out;
    uint32_t flags = 0;
    int32_t quality = -1;
    Lines names, walk;

    Search(const KXBMINFOHEADERYUV& from, const KXBMINFOHEADERYUV& to, uint32_t f = 0)
        : in(from), out(to), flags(f) {}
    std::vector<IConverter*> Run() {
        ConversionRequest request(&in.bmi, &out.bmi, &flags, &quality, &builtIn->Converters());
        kelptest::SinkClear();
        CreateConverterList(request);
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
        return request.bestChain;
    }
};

} // namespace

TEST(ScaleChain, ShrinkingScalesFirstAndEnlargingConvertsColourFirst) {
    // 720x576 at 32 bits is 1,658,880 bytes, 360x288 is 414,720. Scaling costs the larger
    // / 50000 = 33, the colour stage its input / 100000: 16 large, 4 small.
    struct Case {
        const char* what;
        KXBMINFOHEADERYUV in, out;
        Lines names;
        int32_t q;
        Lines walk;
    } cases[] = {
        {"shrink: the scale first stays",
         Rgb(720, 576, 32),
         Yuv(360, 288, 32, 0),
         {L"Scale32", L"RGB->YUV4444"},
         37,
         {L" Q0 -> 33", L"    Q33 -> 37", L"    ^- OK at 2(Q37) NEW ACTIVE\r\n", L" Q0 -> 16",
          L"    Q16 -> 49", L"    ^- OK at 2(Q49) \r\n", L" ^-Nothing Found at 0\r\n"}},
        {"enlarge: the colour stage first replaces it",
         Rgb(360, 288, 32),
         Yuv(720, 576, 32, 0),
         {L"RGB->YUV4444", L"Scale32"},
         37,
         {L" Q0 -> 33", L"    Q33 -> 49", L"    ^- OK at 2(Q49) NEW ACTIVE\r\n", L" Q0 -> 4",
          L"    Q4 -> 37", L"    ^- OK at 2(Q37) NEW ACTIVE\r\n", L" ^-Nothing Found at 0\r\n"}},
        {"24 bits to another size: Scale24 is direct, nothing else is tried",
         Rgb(720, 576, 24),
         Rgb(360, 288, 24),
         {L"Scale24"},
         120, // 1,244,160 / 50000 = 24, times 5
         {L" Q0 -> 120", L" ^- OK at 1(Q120) NEW ACTIVE\r\n"}},
        {"paletted to another size at 32 bits",
         Rgb(72, 57, 8),
         Rgb(36, 28, 32),
         {L"nBit to 32bit", L"Scale32"},
         0,
         {L" Q0 -> 0", L"    Q0 -> 0", L"    ^- OK at 2(Q0) NEW ACTIVE\r\n", L" Q0 -> 0",
          L"    ^- STOP at 1 Q0|\r\n", L" ^-Nothing Found at 0\r\n"}},
    };
    for (Case& c : cases) {
        Search s(c.in, c.out);
        s.Run();
        EXPECT_EQ(s.names, c.names) << c.what;
        EXPECT_EQ(s.quality, c.q) << c.what;
        EXPECT_EQ(s.walk, c.walk) << c.what;
    }
}

TEST(ScaleChain, SizeAlphaAndDepthAtOnceTakeThreeStagesInTheOrderOfQ) {
    // Premultiplied 720x576 at 32 bits to straight 360x288 at 24 bits: scale first (33),
    // undo the premultiplication on the small picture (414,720 / 50000 = 8), drop to 24
    // bits (4). Every other order costs more; the one through "Scale24" is cut at the
    // depth limit by its Q.
    Search s(Rgb(720, 576, 32, KXDIB_ALPHA_PREMULTIPLIED), Rgb(360, 288, 24, 0));
    s.Run();
    EXPECT_EQ(s.names, (Lines{L"Scale32", L"AlphaConverter", L"nBit to 24bit"}));
    EXPECT_EQ(s.quality, 45);
    EXPECT_EQ(s.walk, (Lines{L" Q0 -> 33",
                             L"    Q33 -> 41",
                             L"        Q41 -> 45",
                             L"        ^- OK at 3(Q45) NEW ACTIVE\r\n",
                             L"    Q33 -> 37",
                             L"        ^-Nothing Found at 2\r\n",
                             L"    ^-Nothing Found at 1\r\n",
                             L" Q0 -> 33",
                             L"    Q33 -> 66",
                             L"        Q66 -> 70",
                             L"        ^- OK at 3(Q70) \r\n",
                             L"    Q33 -> 49",
                             L"        Q49 -> 169",
                             L"        ^- OK at 3(Q169) \r\n",
                             L"    ^-Nothing Found at 1\r\n",
                             L" Q0 -> 16",
                             L"    Q16 -> 200",
                             L"        ^- STOP at 2 Q200|\r\n",
                             L"    ^-Nothing Found at 1\r\n",
                             L" ^-Nothing Found at 0\r\n"}));

    // Kept at 32 bits, two aspects: scale, then the alpha on the small picture.
    Search t(Rgb(720, 576, 32, KXDIB_ALPHA_PREMULTIPLIED), Rgb(360, 288, 32, 0));
    t.Run();
    EXPECT_EQ(t.names, (Lines{L"Scale32", L"AlphaConverter"}));
    EXPECT_EQ(t.quality, 41);
}

TEST(ScaleChain, ScaleCropAndFieldsStayWithinTheDepthLimit) {
    // The scaler carries the target's field mode, so an interlaced picture that is to be
    // scaled, cropped and made progressive takes the cropper and the scaler.
    KXBMINFOHEADERYUV in = Rgb(720, 576, 24), out = Rgb(360, 288, 24);
    in.bmi.bmiFrame = 0;
    out.bmi.bmiRect = {10, 10, 100, 100};
    Search s(in, out, KXCONV_ALLOW_FIELDS);
    s.Run();
    EXPECT_EQ(s.names, (Lines{L"RGBCrop", L"Scale24"}));
    EXPECT_EQ(s.quality, 125);

    // 1080p at 32 bits to 709 at 960x540 in 24 bits: three stages, the scale first.
    Search h(Rgb(1920, 1080, 32), Yuv(960, 540, 24, 2));
    h.Run();
    EXPECT_EQ(h.names, (Lines{L"Scale32", L"nBit to 24bit", L"RGB->YUV4444"}));
    EXPECT_EQ(h.quality, 200);
}

TEST(ScaleChain, ConversionsThroughTheManagerLeaveOneBufferToTheCaller) {
    struct Case {
        const char* what;
        KXBMINFOHEADERYUV in, out;
        uint32_t flags;
        uint8_t value; // of every colour byte of a flat picture, which stays flat
    } cases[] = {
        {"24 bits, smaller", Rgb(16, 8, 24), Rgb(8, 4, 24), KXCONV_KEEP_INPUT, 90},
        {"24 bits, larger, fitted", Rgb(8, 4, 24), Rgb(16, 8, 24), KXCONV_FIT_FAST, 90},
        {"24 bits to 32, larger", Rgb(8, 4, 24), Rgb(16, 8, 32), KXCONV_KEEP_INPUT, 90},
        {"32 bits, smaller", Rgb(16, 8, 32), Rgb(8, 4, 32), 0, 90},
        {"32 bits progressive from interlaced, large", Rgb(64, 64, 32), Rgb(64, 64, 32),
         KXCONV_ALLOW_FIELDS, 90},
        {"24 bits progressive from interlaced, large", Rgb(200, 200, 24), Rgb(200, 200, 24),
         KXCONV_ALLOW_FIELDS, 90},
    };
    cases[4].in.bmi.bmiFrame = 0;
    cases[5].in.bmi.bmiFrame = 0;
    for (Case& c : cases) {
        BuiltIn m;
        const size_t inBytes = (size_t(c.in.bmi.biBitCount) * size_t(c.in.bmi.biWidth) / 8 + 3) /
                               4 * 4 * size_t(c.in.bmi.biHeight);
        std::vector<uint8_t> px(inBytes, c.value);
        if (c.in.bmi.biBitCount == 32)
            for (size_t i = 3; i < px.size(); i += 4)
                px[i] = 255;
        TrackingAllocator caller;
        void* outData = nullptr;
        uint32_t flags = c.flags;
        int32_t q = 0;
        KXBMINFOHEADERYUV out = c.out;
        ASSERT_EQ(m.cm->Convert(&c.in.bmi, px.data(), &out.bmi, &outData, &flags, &q, &caller),
                  KX_OK)
            << c.what;
        EXPECT_TRUE(caller.Owns(outData)) << c.what;
        EXPECT_EQ(caller.Live(), 1u) << c.what;
        EXPECT_EQ(flags & KXCONV_OUT_SHARED, 0u) << c.what;
        EXPECT_EQ(out.bmi.bmiFrame, 1u) << c.what;
        // The middle pixel of the picture.
        const int32_t w = out.bmi.biWidth, h = out.bmi.biHeight, bpp = out.bmi.biBitCount / 8;
        const size_t row = (size_t(bpp) * size_t(w) + 3) / 4 * 4;
        const uint8_t* mid = static_cast<const uint8_t*>(outData) + size_t(h / 2) * row +
                             size_t(w / 2) * size_t(bpp);
        EXPECT_EQ(mid[0], c.value) << c.what;
        EXPECT_EQ(mid[2], c.value) << c.what;
        caller.Free(outData);
    }
}

TEST(ScaleChain, EveryFailureOfAnAllocationFreesWhatTheRunMade) {
    // Scale, alpha and depth: each allocation of the run fails in turn, in the caller's
    // allocator and in the temporaries'.
    BuiltIn m;
    KXBMINFOHEADERYUV in = Rgb(16, 8, 32, KXDIB_ALPHA_PREMULTIPLIED), want = Rgb(8, 4, 24, 0);
    std::vector<IConverter*> chain;
    {
        Search s(in, want);
        chain = s.Run();
        ASSERT_EQ(s.names, (Lines{L"Scale32", L"AlphaConverter", L"nBit to 24bit"}));
    }
    std::vector<uint8_t> px(16 * 8 * 4, 128);
    for (int side = 0; side < 2; ++side)
        for (int failAt = 1; failAt <= 4; ++failAt) {
            TrackingAllocator caller, temporaries;
            (side ? temporaries : caller).FailFrom(failAt);
            KXBMINFOHEADERYUV out = want, from = in;
            void* outData = nullptr;
            uint32_t flags = KXCONV_KEEP_INPUT;
            int32_t q = 0;
            const KXRESULT r = m->RunChain(chain, &from.bmi, px.data(), &out.bmi, &outData, &flags,
                                           &q, &caller, &temporaries);
            EXPECT_EQ(temporaries.Live(), 0u) << side << " " << failAt;
            EXPECT_EQ(caller.Live(), KX_FAILED(r) ? 0u : 1u) << side << " " << failAt;
            EXPECT_EQ(caller.BadFrees() + temporaries.BadFrees(), 0);
            if (KX_SUCCEEDED(r)) caller.Free(outData);
        }
}

TEST(ScaleChain, CropThroughTheManagerKeepsItsRectangleOnlyWhenAsked) {
    for (uint32_t keep : {0u, KXCONV_KEEP_RECT}) {
        BuiltIn m;
        KXBMINFOHEADERYUV in = Rgb(4, 4, 24), out = Rgb(4, 4, 24);
        out.bmi.bmiRect = {1, 1, 3, 3};
        std::vector<uint8_t> px(48, 70);
        TrackingAllocator caller;
        void* outData = nullptr;
        uint32_t flags = KXCONV_KEEP_INPUT | keep;
        int32_t q = 0;
        ASSERT_EQ(m.cm->Convert(&in.bmi, px.data(), &out.bmi, &outData, &flags, &q, &caller),
                  KX_OK);
        const uint8_t* o = static_cast<const uint8_t*>(outData);
        EXPECT_EQ(o[0], 0);
        EXPECT_EQ(o[12 + 3], 70);
        EXPECT_EQ(out.bmi.bmiRect.right, keep ? 3 : 0);
        caller.Free(outData);
    }
}

// The manager keeps frame-sized intermediate blocks between runs: whatever a run leaves
// in them, the next run, of the same size or another, gives the bytes a fresh manager
// gives.
TEST(ScaleChain, FrameAfterFrameOneManagerGivesWhatAFreshOneGives) {
    struct Frame {
        KXBMINFOHEADERYUV in, out;
        uint32_t seed;
    };
    const Frame frames[] = {
        {Rgb(256, 128, 32, 1), Yuv(128, 64, 32, 2), 1},  // scale, colour
        {Rgb(256, 128, 32, 1), Yuv(128, 64, 32, 2), 2},  // again, another picture
        {Rgb(512, 256, 24), Yuv(256, 128, 32, 2), 3},    // depth, scale, colour
        {Rgb(256, 128, 32, 1), Yuv(128, 64, 32, 2), 4},  // smaller again
        {Rgb(300, 200, 32, 1), Rgb(160, 100, 32, 1), 5}, // a scale alone
    };
    auto run = [](IConversionManager* cm, const Frame& f, std::vector<uint8_t>* bytes) {
        KXBMINFOHEADERYUV in = f.in, out = f.out;
        std::vector<uint8_t> px(size_t(in.bmi.biSizeImage));
        uint32_t s = f.seed;
        for (uint8_t& b : px) {
            s = s * 1103515245u + 12345u;
            b = uint8_t(s >> 16);
        }
        TrackingAllocator caller;
        void* outData = nullptr;
        uint32_t flags = KXCONV_KEEP_INPUT;
        int32_t q = 0;
        ASSERT_EQ(cm->Convert(&in.bmi, px.data(), &out.bmi, &outData, &flags, &q, &caller), KX_OK);
        const uint8_t* o = static_cast<const uint8_t*>(outData);
        bytes->assign(o, o + out.bmi.biSizeImage);
        caller.Free(outData);
        EXPECT_EQ(caller.Live(), 0u);
    };
    BuiltIn kept;
    for (const Frame& f : frames) {
        SCOPED_TRACE(f.seed);
        std::vector<uint8_t> again, fresh;
        run(kept.cm, f, &again);
        BuiltIn once;
        run(once.cm, f, &fresh);
        EXPECT_EQ(again, fresh);
    }
}
