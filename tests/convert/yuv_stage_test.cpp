// The YUV stages one by one: what their Query accepts and what it writes, what they
// propose, their buffers, and that their pixels are those of the colour converter in
// the colour space and chroma limit the records and flags name.
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include <kelp/kxcsc.h>

#include "convert/yuvconv.h"
#include "kxbihtest.h"

using namespace kelp;
using kelptest::MakeRgb;
using kelptest::MakeYuv;
using kelptest::TrackingAllocator;

namespace {

typedef std::vector<std::wstring> Lines;
typedef std::function<void(KXBMINFOHEADERYUV&, KXBMINFOHEADERYUV&)> Change;

KXBMINFOHEADERYUV Yuv(int32_t w, int32_t h, uint16_t bits, uint32_t space) {
    KXBMINFOHEADERYUV r = MakeYuv(w, h, bits);
    r.yuv.yuvColorSpace = space;
    return r;
}

// The bytes a row of `d` takes in the stages' buffers.
size_t Pitch(const KXBMINFOHEADER& d) {
    return (size_t(d.biBitCount) * size_t(d.biWidth) / 8 + 3) & ~size_t(3);
}

std::vector<uint8_t> RandomImage(const KXBMINFOHEADER& d, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(Pitch(d) * size_t(d.biHeight < 0 ? -d.biHeight : d.biHeight));
    for (uint8_t& b : v)
        b = uint8_t(rng());
    return v;
}

// The pixel bytes of every row, without the bytes that pad the rows to 4.
std::vector<uint8_t> PixelBytes(const KXBMINFOHEADER& d, const void* data) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    const size_t row = size_t(d.biBitCount / 8) * size_t(d.biWidth);
    std::vector<uint8_t> out;
    for (int32_t y = 0; y < d.biHeight; ++y)
        out.insert(out.end(), p + size_t(y) * Pitch(d), p + size_t(y) * Pitch(d) + row);
    return out;
}

// What the colour converter itself makes of `image` (format `d`).
std::vector<uint8_t> Reference(const KXBMINFOHEADER& d, std::vector<uint8_t> image,
                               const std::function<int(CKXCsc&, uint8_t*)>& run) {
    CKXCsc csc;
    EXPECT_EQ(run(csc, image.data()), 1);
    return PixelBytes(d, image.data());
}

} // namespace

TEST(YuvStage, QueryAcceptsExactlyAColourSpaceChange) {
    CRGBConverterYUV4444 toYuv;
    CYUV444ConverterRGB32 to32;
    CYUV444ConverterRGB24 to24;
    CYUVConverterYUV spaces;
    const KXBMINFOHEADERYUV rgb24 = MakeRgb(4, 2, 24), rgb32 = MakeRgb(4, 2, 32);
    const KXBMINFOHEADERYUV y24 = Yuv(4, 2, 24, 0), y32 = Yuv(4, 2, 32, 0), y32b = Yuv(4, 2, 32, 2);
    struct Case {
        const char* what;
        IConverter* stage;
        KXBMINFOHEADERYUV in, out;
        Change change;
        bool ok;
    } cases[] = {
        {"rgb 24 to yuv 24", &toYuv, rgb24, y24, nullptr, true},
        {"rgb 32 to yuv 32", &toYuv, rgb32, y32, nullptr, true},
        {"rgb 32 to yuv 32 in 709", &toYuv, rgb32, y32b, nullptr, true},
        {"rgb 24 to yuv 32", &toYuv, rgb24, y32, nullptr, false},
        {"rgb to rgb", &toYuv, rgb32, rgb32, nullptr, false},
        {"yuv to yuv", &toYuv, y32, y32b, nullptr, false},
        {"rgb 16 bits", &toYuv, MakeRgb(4, 2, 16), Yuv(4, 2, 16, 0), nullptr, false},
        {"full range is no valid record", &toYuv, rgb32, Yuv(4, 2, 32, 1), nullptr, false},
        {"4:2:2 output", &toYuv, rgb32, MakeYuv(4, 2, 32, KXYUV_SAMPLING_422), nullptr, false},
        {"alpha differs", &toYuv, rgb32, y32,
         [](KXBMINFOHEADERYUV&, KXBMINFOHEADERYUV& o) { o.bmi.bmiAlpha = 1; }, false},
        {"height differs in sign", &toYuv, rgb32, y32,
         [](KXBMINFOHEADERYUV&, KXBMINFOHEADERYUV& o) { o.bmi.biHeight = -2; }, false},
        {"rectangle differs", &toYuv, rgb32, y32,
         [](KXBMINFOHEADERYUV&, KXBMINFOHEADERYUV& o) { o.bmi.bmiRect.right = 2; }, false},
        {"interlaced output", &toYuv, rgb32, y32,
         [](KXBMINFOHEADERYUV&, KXBMINFOHEADERYUV& o) { o.bmi.bmiFrame = 0; }, false},
        {"flags differ", &toYuv, rgb32, y32,
         [](KXBMINFOHEADERYUV&, KXBMINFOHEADERYUV& o) { o.bmi.bmiFlags = 1; }, false},
        {"yuv 32 to rgb 32", &to32, y32, rgb32, nullptr, true},
        {"yuv 32 in 709 to rgb 32", &to32, y32b, rgb32, nullptr, true},
        {"yuv 24 to rgb 24 in the 32-bit stage", &to32, y24, rgb24, nullptr, false},
        {"yuv 24 to rgb 24", &to24, y24, rgb24, nullptr, true},
        {"yuv 32 to rgb 32 in the 24-bit stage", &to24, y32, rgb32, nullptr, false},
        {"yuv 24 to rgb 32", &to24, y24, rgb32, nullptr, false},
        {"yuv to rgb, alpha differs", &to32, y32, rgb32,
         [](KXBMINFOHEADERYUV& i, KXBMINFOHEADERYUV&) { i.bmi.bmiAlpha = 2; }, false},
        {"601 to 709", &spaces, y32, y32b, nullptr, true},
        {"709 to 601", &spaces, y32b, y32, nullptr, true},
        {"601 to 601", &spaces, y32, y32, nullptr, false},
        {"601 to 709 at 24 bits", &spaces, y24, Yuv(4, 2, 24, 2), nullptr, false},
        {"yuv to rgb in the space stage", &spaces, y32, rgb32, nullptr, false},
    };
    for (const Case& c : cases) {
        KXBMINFOHEADERYUV in = c.in, out = c.out;
        if (c.change) c.change(in, out);
        in.bmi.biSizeImage = 1234567; // the cost is taken from the input's claim
        out.bmi.biSizeImage = 99;
        uint32_t flags = KXCONV_KEEP_INPUT;
        int32_t q = 7;
        KXRESULT r = c.stage->Query(&in.bmi, &out.bmi, &flags, &q);
        EXPECT_EQ(r, c.ok ? KX_OK : KXE_INVALID) << c.what;
        EXPECT_EQ(q, c.ok ? 7 + 12 : 7) << c.what;
        EXPECT_EQ(flags, KXCONV_KEEP_INPUT) << c.what;
        if (c.stage == &spaces) {
            EXPECT_EQ(out.bmi.biSizeImage, 99u) << c.what; // never written
        }
    }
}

TEST(YuvStage, QueryTracesItsClassAndWritesTheOutputSize) {
    CRGBConverterYUV4444 toYuv;
    CYUV444ConverterRGB32 to32;
    CYUV444ConverterRGB24 to24;
    CYUVConverterYUV spaces;
    struct Case {
        const char* what;
        IConverter* stage;
        KXBMINFOHEADERYUV in, out;
        Change change;
        uint32_t size; // biSizeImage of `out` afterwards
        Lines traces;  // at level 31
    } cases[] = {
        {"3 pixels at 24 bits: rows of 12", &toYuv, MakeRgb(3, 2, 24), Yuv(3, 2, 24, 0), nullptr,
         24, Lines{L"CRGBConverterYUV::Query: SUCCESS\r\n"}},
        {"top-down: the height without its sign", &toYuv, MakeRgb(3, -2, 24), Yuv(3, -2, 24, 0),
         nullptr, 24, Lines{L"CRGBConverterYUV::Query: SUCCESS\r\n"}},
        {"rows rounded to the output's alignment of 16", &toYuv, MakeRgb(3, 2, 24),
         Yuv(3, 2, 24, 0),
         [](KXBMINFOHEADERYUV&, KXBMINFOHEADERYUV& o) { o.bmi.bmiAlignment = 16; }, 32,
         Lines{L"CRGBConverterYUV::Query: SUCCESS\r\n"}},
        {"a refusal of the wrapper names both classes", &toYuv, MakeRgb(3, 2, 24),
         MakeRgb(3, 2, 24), nullptr, 99,
         Lines{L"RGB->YUV4444::Query: bad Output format\r\n",
               L"CRGBConverterYUV444::Query: bad format\r\n"}},
        {"a refusal by the tests alone", &toYuv, MakeRgb(3, 2, 24), Yuv(3, 4, 24, 0), nullptr, 99,
         Lines{L"CRGBConverterYUV444::Query: bad format\r\n"}},
        {"back to 32 bits", &to32, Yuv(3, 2, 32, 2), MakeRgb(3, 2, 32), nullptr, 24,
         Lines{L"CYUV444ConverterRGB::Query: SUCCESS\r\n"}},
        // The size keeps the sign of the height, as a 32-bit word.
        {"back to 24 bits, top-down", &to24, Yuv(3, -2, 24, 0), MakeRgb(3, -2, 24), nullptr,
         uint32_t(-24), Lines{L"CYUV444ConverterRGB::Query: SUCCESS\r\n"}},
        {"a bad input", &to24, MakeRgb(3, 2, 24), MakeRgb(3, 2, 24), nullptr, 99,
         Lines{L"YUV444->RGB24::Query: bad Input format\r\n"}},
        {"from 709 to 601", &spaces, Yuv(3, 2, 32, 2), Yuv(3, 2, 32, 0), nullptr, 99,
         Lines{L"CYUVConverterYUV::Query: SUCCESS\r\n"}},
        {"the space stage's name is cut to 15 characters", &spaces, Yuv(3, 2, 24, 2),
         Yuv(3, 2, 32, 0), nullptr, 99, Lines{L"CYUVConverterYU::Query: bad Input format\r\n"}},
    };
    for (const Case& c : cases) {
        KXBMINFOHEADERYUV in = c.in, out = c.out;
        if (c.change) c.change(in, out);
        out.bmi.biSizeImage = 99;
        uint32_t flags = 0;
        int32_t q = 0;
        kelptest::SinkClear();
        c.stage->Query(&in.bmi, &out.bmi, &flags, &q);
        EXPECT_EQ(out.bmi.biSizeImage, c.size) << c.what;
        EXPECT_EQ(kelptest::Lines8(31), c.traces) << c.what;
    }
}

TEST(YuvStage, ProposalsChangeTheFormatCodeAndNothingElse) {
    CRGBConverterYUV4444 toYuv;
    CYUV444ConverterRGB32 to32;
    CYUV444ConverterRGB24 to24;
    CYUVConverterYUV spaces;
    // An input whose every field that the proposals keep holds a value of its own.
    auto marked = [](KXBMINFOHEADERYUV r) {
        r.bmi.biXPelsPerMeter = 3780;
        r.bmi.biClrImportant = 5;
        r.bmi.bmiFlags = 2;
        r.bmi.bmiRect = {1, 1, 2, 2};
        r.bmi.bmiFrame = 0;
        r.bmi.bmiRatioX = 0x12000;
        r.bmi.bmiAlignment = 4;
        r.bmi.bmiStride = 77;
        return r;
    };
    struct Case {
        const char* what;
        IConverter* stage;
        KXBMINFOHEADERYUV in, target;
        KXRESULT result;
        uint32_t size = 0, compression = 0, bits = 0, space = 0, alpha = 0;
        int32_t height = 0;
    } cases[] = {
        {"rgb 24 to the 601 target: always 32 bits", &toYuv, marked(MakeRgb(3, -2, 24)),
         Yuv(3, -2, 24, 0), KX_OK, 24, KXBI_YUV, 32, 0, 0, -2},
        {"rgb 32 to the 709 target", &toYuv, marked(MakeRgb(3, 2, 32)), Yuv(3, 2, 32, 2), KX_OK, 24,
         KXBI_YUV, 32, 2, 0, 2},
        {"rgb to an rgb target", &toYuv, marked(MakeRgb(3, 2, 32)), MakeRgb(3, 2, 24), KXE_INVALID},
        {"yuv 709 toward rgb: to 601", &spaces, marked(Yuv(3, 2, 32, 2)), MakeRgb(3, 2, 32), KX_OK,
         24, KXBI_YUV, 32, 0, 0, 2},
        {"yuv 601 to a 709 target", &spaces, marked(Yuv(3, 2, 32, 0)), Yuv(3, 2, 32, 2), KX_OK, 24,
         KXBI_YUV, 32, 2, 0, 2},
        {"yuv already in the target's space", &spaces, marked(Yuv(3, 2, 32, 2)), Yuv(5, 5, 24, 2),
         KXE_INVALID},
        {"yuv to rgb 24: bottom-up", &to24, marked(Yuv(3, -2, 32, 2)), MakeRgb(3, 2, 24), KX_OK, 24,
         KXBI_RGB, 24, 0, 0, 2},
        {"yuv to a yuv target", &to24, marked(Yuv(3, 2, 32, 2)), Yuv(3, 2, 32, 0), KXE_INVALID},
        {"opaque yuv to rgb 32 stays opaque", &to32,
         [&] {
             KXBMINFOHEADERYUV r = marked(Yuv(3, 2, 32, 0));
             r.bmi.bmiAlpha = KXDIB_ALPHA_OPAQUE;
             return r;
         }(),
         MakeRgb(3, 2, 32), KX_OK, 24, KXBI_RGB, 32, 0, KXDIB_ALPHA_OPAQUE, 2},
        {"premultiplied yuv to rgb 32 loses the label", &to32,
         [&] {
             KXBMINFOHEADERYUV r = marked(Yuv(3, 2, 32, 0));
             r.bmi.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
             return r;
         }(),
         MakeRgb(3, 2, 32), KX_OK, 24, KXBI_RGB, 32, 0, KXDIB_ALPHA_VALID, 2},
        {"premultiplied yuv to rgb 24 loses it too", &to24,
         [&] {
             KXBMINFOHEADERYUV r = marked(Yuv(3, 2, 24, 0));
             r.bmi.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
             return r;
         }(),
         MakeRgb(3, 2, 24), KX_OK, 24, KXBI_RGB, 24, 0, KXDIB_ALPHA_VALID, 2},
    };
    for (const Case& c : cases) {
        TrackingAllocator a;
        KXBMINFOHEADER* p = nullptr;
        KXRESULT r = c.stage->GetOutputFormat(&c.in.bmi, &p, &a, &c.target.bmi);
        ASSERT_EQ(r, c.result) << c.what;
        if (r != KX_OK) {
            EXPECT_EQ(a.Live(), 0u) << c.what;
            continue;
        }
        const bool yuv = c.compression == KXBI_YUV;
        ASSERT_EQ(a.GetSize(p), yuv ? 160u : 144u) << c.what;
        EXPECT_EQ(p->biSize, yuv ? 160u : 144u) << c.what;
        EXPECT_EQ(p->biCompression, c.compression) << c.what;
        EXPECT_EQ(p->biBitCount, c.bits) << c.what;
        EXPECT_EQ(p->biPlanes, 1) << c.what;
        EXPECT_EQ(p->biHeight, c.height) << c.what;
        EXPECT_EQ(p->biSizeImage, c.size) << c.what;
        EXPECT_EQ(p->bmiAlpha, c.alpha) << c.what;
        EXPECT_EQ(p->bmiExtOffset, yuv ? 144u : 0u) << c.what;
        EXPECT_EQ(p->bmiAlignment, yuv ? 0 : 4) << c.what;
        if (yuv) {
            const KXYUVEXT* e = DIBYuv(p);
            EXPECT_EQ(e->yuvColorSpace, c.space) << c.what;
            EXPECT_EQ(e->yuvBits, 8u) << c.what;
            EXPECT_EQ(e->yuvSampling, KXYUV_SAMPLING_444) << c.what;
            EXPECT_EQ(e->yuvSamplingAux, 0u) << c.what;
        }
        // Everything else comes from the input as it was.
        KXBMINFOHEADER expect = c.in.bmi;
        expect.biSize = p->biSize;
        expect.biCompression = p->biCompression;
        expect.biBitCount = p->biBitCount;
        expect.biHeight = p->biHeight;
        expect.biSizeImage = p->biSizeImage;
        expect.bmiAlpha = p->bmiAlpha;
        expect.bmiExtOffset = p->bmiExtOffset;
        expect.bmiAlignment = p->bmiAlignment;
        EXPECT_EQ(memcmp(&expect, p, sizeof expect), 0) << c.what;
        a.Free(p);
    }
}

TEST(YuvStage, AFailedProposalAllocationIsTraced) {
    CRGBConverterYUV4444 toYuv;
    CYUV444ConverterRGB32 to32;
    CYUV444ConverterRGB24 to24;
    CYUVConverterYUV spaces;
    const KXBMINFOHEADERYUV rgb = MakeRgb(3, 2, 32), yuv = Yuv(3, 2, 32, 2);
    struct Case {
        IConverter* stage;
        const KXBMINFOHEADERYUV *in, *target;
        const wchar_t* trace;
    } cases[] = {
        {&toYuv, &rgb, &yuv,
         L"CRGBConverterYUV444::GetOutputFormat: Allocation of 160 bytes Failed!\r\n"},
        {&spaces, &yuv, &rgb,
         L"CYUVConverterYUV444::GetOutputFormat: Allocation of 160 bytes Failed!\r\n"},
        // Both stages back to RGB carry the 24-bit stage's name.
        {&to32, &yuv, &rgb,
         L"CYUV444ConverterRGB24::GetOutputFormat: Allocation of 144 bytes Failed!\r\n"},
        {&to24, &yuv, &rgb,
         L"CYUV444ConverterRGB24::GetOutputFormat: Allocation of 144 bytes Failed!\r\n"},
    };
    for (const Case& c : cases) {
        TrackingAllocator a;
        a.FailFrom(1);
        KXBMINFOHEADER* p = nullptr;
        kelptest::SinkClear();
        EXPECT_EQ(c.stage->GetOutputFormat(&c.in->bmi, &p, &a, &c.target->bmi), KXE_OUTOFMEMORY);
        EXPECT_EQ(p, nullptr);
        EXPECT_EQ(kelptest::Lines8(2), Lines{c.trace});
    }
}

TEST(YuvStage, ConvertGivesTheColourConvertersPixelsInPlaceOrNot) {
    CRGBConverterYUV4444 toYuv;
    CYUV444ConverterRGB32 to32;
    CYUV444ConverterRGB24 to24;
    CYUVConverterYUV spaces;
    typedef std::function<int(CKXCsc&, const KXBMINFOHEADER&, uint8_t*)> Run;
    // The same work straight through the colour converter, in place.
    auto forward = [](CKXCsc::ColorSpace s, int limit) -> Run {
        return [=](CKXCsc& csc, const KXBMINFOHEADER& d, uint8_t* p) {
            csc.Init(s);
            csc.ColorLimit(limit);
            return csc.BGRToYUV444Meshed(p, p, d.biWidth, d.biHeight, d.biBitCount / 8,
                                         uint32_t(Pitch(d)));
        };
    };
    auto back = [](CKXCsc::ColorSpace s) -> Run {
        return [=](CKXCsc& csc, const KXBMINFOHEADER& d, uint8_t* p) {
            csc.Init(s);
            return csc.YUV444MeshedToBGR(p, p, d.biWidth, d.biHeight, d.biBitCount / 8,
                                         uint32_t(Pitch(d)));
        };
    };
    auto between = [](CKXCsc::ColorSpace from, CKXCsc::ColorSpace to) -> Run {
        return [=](CKXCsc& csc, const KXBMINFOHEADER& d, uint8_t* p) {
            csc.Init(CKXCsc::CS_CCIR601);
            return csc.YUV444MeshedToYUV444(p, p, d.biWidth, d.biHeight, d.biBitCount / 8,
                                            uint32_t(Pitch(d)), from, to);
        };
    };
    struct Case {
        const char* what;
        IConverter* stage;
        KXBMINFOHEADERYUV in, out;
        uint32_t flags;
        Run reference;
    } cases[] = {
        {"rgb 24 to 601", &toYuv, MakeRgb(7, 5, 24), Yuv(7, 5, 24, 0), 0,
         forward(CKXCsc::CS_CCIR601, 0)},
        {"rgb 32 to 709", &toYuv, MakeRgb(7, 5, 32), Yuv(7, 5, 32, 2), 0,
         forward(CKXCsc::CS_ITU709, 0)},
        {"rgb 32 to 709 at the 75 % limit", &toYuv, MakeRgb(7, 5, 32), Yuv(7, 5, 32, 2),
         KXCONV_COLOR_LIMIT, forward(CKXCsc::CS_ITU709, 1)},
        {"rgb 24 to 601 at the 75 % limit", &toYuv, MakeRgb(5, 3, 24), Yuv(5, 3, 24, 0),
         KXCONV_COLOR_LIMIT, forward(CKXCsc::CS_CCIR601, 1)},
        {"709 to rgb 32", &to32, Yuv(7, 5, 32, 2), MakeRgb(7, 5, 32), 0, back(CKXCsc::CS_ITU709)},
        {"601 to rgb 24; the limit flag is not read", &to24, Yuv(5, 3, 24, 0), MakeRgb(5, 3, 24),
         KXCONV_COLOR_LIMIT, back(CKXCsc::CS_CCIR601)},
        {"601 to 709", &spaces, Yuv(7, 5, 32, 0), Yuv(7, 5, 32, 2), 0,
         between(CKXCsc::CS_CCIR601, CKXCsc::CS_ITU709)},
        {"709 to 601", &spaces, Yuv(7, 5, 32, 2), Yuv(7, 5, 32, 0), KXCONV_COLOR_LIMIT,
         between(CKXCsc::CS_ITU709, CKXCsc::CS_CCIR601)},
    };
    for (const Case& c : cases) {
        for (bool keep : {false, true}) {
            SCOPED_TRACE(std::string(c.what) + (keep ? ", kept input" : ", in place"));
            KXBMINFOHEADERYUV in = c.in, out = c.out;
            const std::vector<uint8_t> original = RandomImage(in.bmi, 17);
            std::vector<uint8_t> image = original;
            const std::vector<uint8_t> expect =
                Reference(in.bmi, image,
                          [&](CKXCsc& csc, uint8_t* p) { return c.reference(csc, in.bmi, p); });
            TrackingAllocator a;
            void* outData = nullptr;
            // A report left from an earlier stage must not survive a stage that allocates.
            uint32_t flags = c.flags | (keep ? KXCONV_KEEP_INPUT | KXCONV_OUT_SHARED : 0u);
            int32_t q = 0;
            ASSERT_EQ(c.stage->Convert(&in.bmi, image.data(), &out.bmi, &outData, &flags, &q, &a),
                      KX_OK);
            ASSERT_NE(outData, nullptr);
            EXPECT_EQ(PixelBytes(out.bmi, outData), expect);
            if (keep) {
                EXPECT_NE(outData, image.data());
                EXPECT_TRUE(a.Owns(outData));
                EXPECT_EQ(a.GetSize(outData), Pitch(out.bmi) * size_t(out.bmi.biHeight));
                EXPECT_EQ(flags & KXCONV_OUT_SHARED, 0u);
                EXPECT_EQ(image, original);
            } else {
                EXPECT_EQ(outData, image.data());
                EXPECT_EQ(a.Calls(), 0);
                EXPECT_NE(flags & KXCONV_OUT_SHARED, 0u);
            }
        }
    }
}

TEST(YuvStage, ConvertTracesItsTimeUnderItsOwnName) {
    CRGBConverterYUV4444 toYuv;
    CYUV444ConverterRGB32 to32;
    CYUV444ConverterRGB24 to24;
    CYUVConverterYUV spaces;
    struct Case {
        IConverter* stage;
        KXBMINFOHEADERYUV in, out;
        const wchar_t* prefix;
    } cases[] = {
        {&toYuv, MakeRgb(2, 2, 32), Yuv(2, 2, 32, 0), L"CRGBConverterYUV4444: used "},
        {&to32, Yuv(2, 2, 32, 0), MakeRgb(2, 2, 32), L"CYUV444ConverterRGB: used "},
        {&to24, Yuv(2, 2, 24, 0), MakeRgb(2, 2, 24), L"CYUV444ConverterRGB: used "},
        {&spaces, Yuv(2, 2, 32, 2), Yuv(2, 2, 32, 0), L"CYUVConverterYUV: used "},
    };
    for (Case& c : cases) {
        std::vector<uint8_t> image(16, 128);
        void* outData = nullptr;
        uint32_t flags = 0;
        int32_t q = 0;
        kelptest::SinkClear();
        ASSERT_EQ(
            c.stage->Convert(&c.in.bmi, image.data(), &c.out.bmi, &outData, &flags, &q, nullptr),
            KX_OK);
        const Lines timing = kelptest::Lines8(14);
        ASSERT_EQ(timing.size(), 1u) << c.prefix;
        EXPECT_EQ(timing[0].rfind(c.prefix, 0), 0u) << timing[0];
        EXPECT_EQ(timing[0].substr(timing[0].size() - 4), L" ms\n") << timing[0];
    }
}

TEST(YuvStage, SizeClaimsAndAllocationFailuresStopBeforeAnyPixel) {
    CRGBConverterYUV4444 toYuv;
    CYUV444ConverterRGB24 to24;
    CYUVConverterYUV spaces;
    struct Case {
        const char* what;
        IConverter* stage;
        KXBMINFOHEADERYUV in, out;
        uint32_t inClaim;  // biSizeImage of the input
        uint32_t outClaim; // of the output, where the stage does not write it
        uint32_t flags;
        bool failAlloc;
        KXRESULT result;
        const wchar_t* trace; // at level 2
    } cases[] = {
        {"an input shorter than its rows", &toYuv, MakeRgb(3, 2, 24), Yuv(3, 2, 24, 0), 23, 0,
         KXCONV_KEEP_INPUT, false, KXE_INVALID,
         L"CRGBConverterYUV444::Convert: Input of 23 bytes, its rows need 24!\r\n"},
        {"the same in place", &to24, Yuv(3, 2, 24, 0), MakeRgb(3, 2, 24), 12, 0, 0, false,
         KXE_INVALID, L"CYUV444ConverterRGB::Convert: Input of 12 bytes, its rows need 24!\r\n"},
        {"an output record too small for the rows", &spaces, Yuv(3, 2, 32, 2), Yuv(3, 2, 32, 0), 0,
         20, KXCONV_KEEP_INPUT, false, KXE_INVALID,
         L"CYUVConverterYUV444::Convert: Output of 20 bytes, its rows need 24!\r\n"},
        {"no memory for the output", &toYuv, MakeRgb(3, 2, 24), Yuv(3, 2, 24, 0), 0, 0,
         KXCONV_KEEP_INPUT, true, KXE_OUTOFMEMORY,
         L"CRGBConverterYUV444::Convert: Allocation of 24 bytes Failed!\r\n"},
        {"no memory, back to rgb", &to24, Yuv(3, 2, 24, 0), MakeRgb(3, 2, 24), 0, 0,
         KXCONV_KEEP_INPUT, true, KXE_OUTOFMEMORY,
         L"CYUV444ConverterRGB::Convert: Allocation of 24 bytes Failed!\r\n"},
        {"no memory between spaces", &spaces, Yuv(3, 2, 32, 2), Yuv(3, 2, 32, 0), 0, 24,
         KXCONV_KEEP_INPUT, true, KXE_OUTOFMEMORY,
         L"CYUVConverterYUV444::Convert: Allocation of 24 bytes Failed!\r\n"},
    };
    for (Case& c : cases) {
        std::vector<uint8_t> image(64, 0x55);
        c.in.bmi.biSizeImage = c.inClaim;
        c.out.bmi.biSizeImage = c.outClaim;
        TrackingAllocator a;
        if (c.failAlloc) a.FailFrom(1);
        void* outData = nullptr;
        uint32_t flags = c.flags;
        int32_t q = 0;
        kelptest::SinkClear();
        EXPECT_EQ(c.stage->Convert(&c.in.bmi, image.data(), &c.out.bmi, &outData, &flags, &q, &a),
                  c.result)
            << c.what;
        EXPECT_EQ(outData, nullptr) << c.what;
        EXPECT_EQ(a.Live(), 0u) << c.what;
        EXPECT_EQ(flags & KXCONV_OUT_SHARED, 0u) << c.what;
        EXPECT_EQ(kelptest::Lines8(2), Lines{c.trace}) << c.what;
        EXPECT_EQ(image, std::vector<uint8_t>(64, 0x55)) << c.what;
    }
}

TEST(YuvStage, ATopDownImageConvertsNoLineAndSucceeds) {
    CRGBConverterYUV4444 toYuv;
    CYUV444ConverterRGB32 to32;
    struct Case {
        IConverter* stage;
        KXBMINFOHEADERYUV in, out;
    } cases[] = {
        {&toYuv, MakeRgb(4, -3, 32), Yuv(4, -3, 32, 2)},
        {&to32, Yuv(4, -3, 32, 2), MakeRgb(4, -3, 32)},
    };
    for (Case& c : cases) {
        std::vector<uint8_t> image(48, 0xC3);
        c.in.bmi.biSizeImage = 48;
        void* outData = nullptr;
        uint32_t flags = 0;
        int32_t q = 0;
        EXPECT_EQ(
            c.stage->Convert(&c.in.bmi, image.data(), &c.out.bmi, &outData, &flags, &q, nullptr),
            KX_OK);
        EXPECT_EQ(outData, image.data());
        EXPECT_EQ(image, std::vector<uint8_t>(48, 0xC3));
    }
}
