// The geometry stages as stages: what "Scale32", "Scale24", the deinterlacers and
// "RGBCrop" accept, cost and propose, how the scaler chooses its way, and their failures.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "convert/crop.h"
#include "convert/deinterlacer.h"
#include "convert/scale.h"
#include "kxbihtest.h"

using namespace kelp;
using kelptest::Lines8;
using kelptest::MakeRgb;
using kelptest::MakeYuv;
using kelptest::TrackingAllocator;

namespace {

typedef std::vector<std::wstring> Lines;
typedef std::function<void(KXBMINFOHEADER&, KXBMINFOHEADER&, uint32_t&)> Change;

struct Stages {
    CRGBScale32 scale32;
    CRGBScale24 scale24;
    CRGBDeinterlacer32 deint32;
    CRGBDeinterlacer24 deint24;
    CRGBCrop crop;
};

// Converts with a stage from bytes; the output bytes, or empty on failure.
struct StageRun {
    TrackingAllocator a;
    void* outData = nullptr;
    uint32_t flags = KXCONV_KEEP_INPUT;
    int32_t q = 0;
    KXRESULT Go(IConverter& s, KXBMINFOHEADER* in, std::vector<uint8_t>& px, KXBMINFOHEADER* out) {
        return s.Convert(in, px.data(), out, &outData, &flags, &q, &a);
    }
    std::vector<uint8_t> Bytes(const KXBMINFOHEADER* out) const {
        const uint8_t* o = static_cast<const uint8_t*>(outData);
        return std::vector<uint8_t>(o, o + out->biSizeImage);
    }
};

} // namespace

TEST(GeometryStage, QueryAcceptsOnlyTheOneAspectEachStageChanges) {
    Stages s;
    struct Case {
        const char* what;
        IConverter* stage;
        uint16_t bits;
        Change change;
        bool ok;
    } cases[] = {
        {"scale: size", &s.scale24, 24,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o, uint32_t&) { o.biWidth = 8; }, true},
        {"scale: ratio", &s.scale32, 32,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o, uint32_t&) { o.bmiRatioX = 0x20000; }, true},
        {"scale: ratio 0 is 1.0", &s.scale32, 32,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o, uint32_t&) { o.bmiRatioX = 0x10000; }, false},
        {"scale: nothing changes", &s.scale24, 24, nullptr, false},
        {"scale: field mode alone", &s.scale24, 24,
         [](KXBMINFOHEADER& i, KXBMINFOHEADER&, uint32_t&) { i.bmiFrame = 0; }, false},
        {"scale: field mode alone, allowed", &s.scale24, 24,
         [](KXBMINFOHEADER& i, KXBMINFOHEADER&, uint32_t& f) {
             i.bmiFrame = 0;
             f = KXCONV_ALLOW_FIELDS;
         },
         true},
        {"scale: allowed, but the same mode", &s.scale24, 24,
         [](KXBMINFOHEADER&, KXBMINFOHEADER&, uint32_t& f) { f = KXCONV_ALLOW_FIELDS; }, false},
        {"scale: size and scan", &s.scale32, 32,
         [](KXBMINFOHEADER& i, KXBMINFOHEADER& o, uint32_t&) {
             i.bmiFrame = 0;
             o.biHeight = 9;
         },
         true},
        {"scale: size and alpha", &s.scale32, 32,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o, uint32_t&) {
             o.biWidth = 8;
             o.bmiAlpha = 1;
         },
         false},
        {"scale: size and rect", &s.scale24, 24,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o, uint32_t&) {
             o.biWidth = 8;
             o.bmiRect.right = 2;
         },
         false},
        {"scale32 reads no 24 bits", &s.scale32, 24,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o, uint32_t&) { o.biWidth = 8; }, false},
        {"scale24 reads no 32 bits", &s.scale24, 32,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o, uint32_t&) { o.biWidth = 8; }, false},
        {"deinterlace", &s.deint24, 24,
         [](KXBMINFOHEADER& i, KXBMINFOHEADER&, uint32_t&) { i.bmiFrame = 0; }, true},
        {"deinterlace a chrono input", &s.deint32, 32,
         [](KXBMINFOHEADER& i, KXBMINFOHEADER&, uint32_t&) {
             i.bmiFrame = 2;
             i.bmiFormat = KXBMIFORMAT_ODDEVEN_CHRONO;
         },
         true},
        {"deinterlace and scale", &s.deint24, 24,
         [](KXBMINFOHEADER& i, KXBMINFOHEADER& o, uint32_t&) {
             i.bmiFrame = 0;
             o.biWidth = 8;
         },
         false},
        {"crop", &s.crop, 8,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o, uint32_t&) {
             o.bmiRect = {1, 1, 3, 2};
         },
         true},
        {"crop, same rect", &s.crop, 32, nullptr, false},
        {"crop and scan", &s.crop, 32,
         [](KXBMINFOHEADER& i, KXBMINFOHEADER& o, uint32_t&) {
             o.bmiRect = {1, 1, 3, 2};
             i.bmiFrame = 0;
         },
         false},
    };
    for (const Case& c : cases) {
        KXBMINFOHEADERYUV in = MakeRgb(4, 2, c.bits), out = MakeRgb(4, 2, c.bits);
        uint32_t flags = 0;
        if (c.change) c.change(in.bmi, out.bmi, flags);
        out.bmi.biSizeImage = 1;
        flags |= KXCONV_OUT_SHARED;
        int32_t q = 0;
        const KXRESULT r = c.stage->Query(&in.bmi, &out.bmi, &flags, &q);
        EXPECT_EQ(KX_SUCCEEDED(r), c.ok) << c.what;
        if (c.ok) {
            EXPECT_EQ(out.bmi.biSizeImage, uint32_t(((c.bits * out.bmi.biWidth / 8) + 3) & ~3) *
                                               uint32_t(out.bmi.biHeight))
                << c.what;
            EXPECT_EQ(flags & KXCONV_OUT_SHARED, 0u) << c.what;
        }
    }
}

TEST(GeometryStage, CostsAndSuccessTraces) {
    Stages s;
    // 100x500 at 24 bits is 150000 bytes, at 32 bits 200000.
    struct Case {
        const char* what;
        IConverter* stage;
        uint16_t bits;
        int32_t inW, outW;
        uint32_t inFrame;
        int32_t startQ, wantQ;
        const wchar_t* trace;
    } cases[] = {
        {"scale32 by the larger size", &s.scale32, 32, 100, 50, 1, 7, 7 + 4,
         L"CRGBScale::Query: SUCESS\r\n"},
        {"scale32 enlarging", &s.scale32, 32, 50, 100, 1, 0, 4, L"CRGBScale::Query: SUCESS\r\n"},
        {"scale24 times five, the running Q too", &s.scale24, 24, 100, 50, 1, 7, (7 + 3) * 5,
         L"CRGBScale::Query: SUCESS\r\n"},
        {"deinterlacer 5", &s.deint24, 24, 100, 100, 0, 3, 8, L"CRGBDeinterlacerQuery: SUCESS\r\n"},
        {"crop 5, the deinterlacer's word", &s.crop, 24, 100, 100, 1, 0, 5,
         L"CRGBDeinterlacerQuery: SUCESS\r\n"},
    };
    for (const Case& c : cases) {
        KXBMINFOHEADERYUV in = MakeRgb(c.inW, 500, c.bits), out = MakeRgb(c.outW, 500, c.bits);
        in.bmi.bmiFrame = c.inFrame;
        if (c.stage == &s.crop) out.bmi.bmiRect = {0, 0, 10, 10};
        uint32_t flags = 0;
        int32_t q = c.startQ;
        kelptest::SinkClear();
        ASSERT_EQ(c.stage->Query(&in.bmi, &out.bmi, &flags, &q), KX_OK) << c.what;
        EXPECT_EQ(q, c.wantQ) << c.what;
        EXPECT_EQ(Lines8(31), Lines{c.trace}) << c.what;
    }
}

TEST(GeometryStage, DeinterlacerRefusalsAreTraced) {
    CRGBDeinterlacer24 d;
    struct Case {
        uint32_t inFrame, outFrame;
        const wchar_t* trace;
    } cases[] = {
        {1, 1, L"CRGBDeinterlacer::Query: input is non interlaced\r\n"},
        {0, 0, L"CRGBDeinterlacer::Query: output is interlaced\r\n"},
        {0, 2, L"CRGBDeinterlacer::Query: output is interlaced\r\n"},
    };
    for (const Case& c : cases) {
        KXBMINFOHEADERYUV in = MakeRgb(4, 2, 24), out = MakeRgb(4, 2, 24);
        in.bmi.bmiFrame = c.inFrame;
        out.bmi.bmiFrame = c.outFrame;
        uint32_t flags = 0;
        int32_t q = 0;
        kelptest::SinkClear();
        EXPECT_EQ(d.Query(&in.bmi, &out.bmi, &flags, &q), KXE_INVALID);
        EXPECT_EQ(Lines8(31), Lines{c.trace});
    }
}

TEST(GeometryStage, ProposalsChangeOneAspectTowardTheTarget) {
    Stages s;
    TrackingAllocator a;
    KXBMINFOHEADERYUV in = MakeRgb(8, -4, 24);
    in.bmi.bmiFrame = 0;
    in.bmi.bmiFormat = KXBMIFORMAT_ODDEVEN_CHRONO;
    KXBMINFOHEADERYUV target = MakeRgb(3, 6, 32);
    target.bmi.bmiRatioX = 0x18000;
    target.bmi.bmiRect = {1, 2, 3, 4};

    KXBMINFOHEADER* p = nullptr;
    ASSERT_EQ(s.scale32.GetOutputFormat(&in.bmi, &p, &a, &target.bmi), KX_OK);
    EXPECT_EQ(p->biWidth, 3);
    EXPECT_EQ(p->biHeight, -6); // the input's row order
    EXPECT_EQ(p->bmiRatioX, 0x18000u);
    EXPECT_EQ(p->bmiFrame, 1u); // the target's field mode
    EXPECT_EQ(p->bmiFormat & KXBMIFORMAT_ODDEVEN_CHRONO, 0u);
    EXPECT_EQ(p->biBitCount, 32);
    EXPECT_EQ(p->biSizeImage, uint32_t(12 * -6)); // of the input's depth, with the sign
    EXPECT_EQ(p->bmiRect.left, 0);
    a.Free(p);

    ASSERT_EQ(s.deint24.GetOutputFormat(&in.bmi, &p, &a, &target.bmi), KX_OK);
    EXPECT_EQ(p->bmiFrame, 1u);
    EXPECT_EQ(p->bmiFormat, 0u);
    EXPECT_EQ(p->biWidth, 8);
    EXPECT_EQ(p->biBitCount, 24);
    a.Free(p);

    ASSERT_EQ(s.crop.GetOutputFormat(&in.bmi, &p, &a, &target.bmi), KX_OK);
    EXPECT_EQ(p->bmiRect.bottom, 4);
    EXPECT_EQ(p->biWidth, 8);
    a.Free(p);

    // Refusals: a scaler when size and ratios are the target's as raw words, a
    // deinterlacer when both sides have the same scan.
    KXBMINFOHEADERYUV same = in;
    same.bmi.bmiFrame = 1; // the field mode is not looked at
    EXPECT_EQ(s.scale24.GetOutputFormat(&in.bmi, &p, &a, &same.bmi), KXE_INVALID);
    in.bmi.bmiRatioX = 0x10000; // 1.0, but not the same word as 0
    EXPECT_EQ(s.scale24.GetOutputFormat(&in.bmi, &p, &a, &same.bmi), KX_OK);
    a.Free(p);
    EXPECT_EQ(s.deint24.GetOutputFormat(&in.bmi, &p, &a, &in.bmi), KXE_INVALID);
    EXPECT_EQ(a.Live(), 0u);
}

TEST(GeometryStage, Scale24CentresInALargerTargetWithABlackBorder) {
    CRGBScale24 s;
    KXBMINFOHEADERYUV in = MakeRgb(2, 2, 24), out = MakeRgb(4, 4, 24);
    std::vector<uint8_t> px(16, 0);
    for (int i : {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13})
        px[size_t(i)] = 200;
    StageRun r;
    kelptest::SinkClear();
    ASSERT_EQ(r.Go(s, &in.bmi, px, &out.bmi), KX_OK);
    EXPECT_EQ(out.bmi.bmiRect.left, 1);
    EXPECT_EQ(out.bmi.bmiRect.top, 1);
    EXPECT_EQ(out.bmi.bmiRect.right, 3);
    EXPECT_EQ(out.bmi.bmiRect.bottom, 3);
    const std::vector<uint8_t> o = r.Bytes(&out.bmi);
    for (size_t y = 0; y < 4; ++y)
        for (size_t x = 0; x < 4; ++x)
            EXPECT_EQ(o[y * 12 + 3 * x], (y == 1 || y == 2) && (x == 1 || x == 2) ? 200 : 0)
                << x << "," << y;
    EXPECT_EQ(Lines8(31),
              (Lines{L"CRGBScale::Query: SUCESS\r\n", L"CRGBScale::Center 2x2 -> 4x4!\n\r"}));
    EXPECT_EQ(r.a.Live(), 1u);
}

TEST(GeometryStage, Scale24ChangeOfFieldModeDropsTwoLines) {
    // 6 interlaced lines to 6 progressive ones: the picture is read as 4 lines and
    // placed on line quads; the 2 last lines in memory are lost and black comes in.
    CRGBScale24 s;
    KXBMINFOHEADERYUV in = MakeRgb(4, 6, 24), out = MakeRgb(4, 6, 24);
    in.bmi.bmiFrame = 0;
    std::vector<uint8_t> px(72);
    for (size_t y = 0; y < 6; ++y)
        for (size_t i = 0; i < 12; ++i)
            px[y * 12 + i] = uint8_t(10 + 10 * y);
    StageRun r;
    r.flags = KXCONV_KEEP_INPUT | KXCONV_ALLOW_FIELDS | KXCONV_FIT_GOOD;
    ASSERT_EQ(r.Go(s, &in.bmi, px, &out.bmi), KX_OK);
    const std::vector<uint8_t> o = r.Bytes(&out.bmi);
    const int want[6] = {10, 20, 30, 40, 0, 0};
    for (size_t y = 0; y < 6; ++y)
        EXPECT_EQ(o[y * 12], want[y]) << y;
    EXPECT_EQ(r.flags & (KXCONV_FIT_GOOD | KXCONV_FIT_FAST), 0u);
}

TEST(GeometryStage, Scale24AdjustsThePixelRatioThenCentres) {
    // Square pixels of 4x2 into a target whose pixels are twice as wide: 2x2, centred
    // in a 4x2 target. Both scalers keep a flat picture flat.
    for (uint32_t ratioFlag : {0u, KXCONV_RATIO_FAST}) {
        CRGBScale24 s;
        KXBMINFOHEADERYUV in = MakeRgb(4, 2, 24), out = MakeRgb(4, 2, 24);
        out.bmi.bmiRatioX = 0x20000;
        std::vector<uint8_t> px(24, 90);
        StageRun r;
        r.flags = KXCONV_KEEP_INPUT | ratioFlag;
        kelptest::SinkClear();
        ASSERT_EQ(r.Go(s, &in.bmi, px, &out.bmi), KX_OK);
        EXPECT_EQ(Lines8(31), (Lines{L"CRGBScale::Query: SUCESS\r\n",
                                     L"CRGBScale::Adjust Pixel Ratio 4x2 -> 2x2!\n\r",
                                     L"CRGBScale::Center 2x2 -> 4x2!\n\r"}));
        const std::vector<uint8_t> o = r.Bytes(&out.bmi);
        for (size_t y = 0; y < 2; ++y)
            for (size_t x = 0; x < 4; ++x)
                EXPECT_EQ(o[y * 12 + 3 * x], x == 1 || x == 2 ? 90 : 0);
        EXPECT_EQ(r.a.Live(), 1u);
    }
}

TEST(GeometryStage, FitFlagsAreTracedCrossed) {
    // The flag traced FAST takes the bilinear scaler, the one traced GOOD the nearest.
    struct Case {
        uint32_t flags;
        const wchar_t* trace;
        int middle; // of 0, 100 stretched to 3 pixels
    } cases[] = {
        {KXCONV_FIT_FAST, L"CRGBScale::Scale To Fit FAST 2x1 -> 3x1!\n\r", 50},
        {KXCONV_FIT_GOOD, L"CRGBScale::Scale To Fit GOOD 2x1 -> 3x1!\n\r", 100},
    };
    for (const Case& c : cases) {
        CRGBScale24 s;
        KXBMINFOHEADERYUV in = MakeRgb(2, 1, 24), out = MakeRgb(3, 1, 24);
        std::vector<uint8_t> px = {0, 0, 0, 100, 100, 100, 0, 0};
        StageRun r;
        r.flags = KXCONV_KEEP_INPUT | c.flags;
        kelptest::SinkClear();
        ASSERT_EQ(r.Go(s, &in.bmi, px, &out.bmi), KX_OK);
        EXPECT_EQ(Lines8(31), (Lines{L"CRGBScale::Query: SUCESS\r\n", c.trace}));
        EXPECT_EQ(r.Bytes(&out.bmi)[3], c.middle);
    }
}

TEST(GeometryStage, Scale32NeverSetsTheRectangleAndReportsOne) {
    // The transform places a 32-bit picture; the stage gives its 1 (or 0 when the
    // transform failed) as it stands, and both count as success.
    CRGBScale32 s;
    KXBMINFOHEADERYUV in = MakeRgb(2, 2, 32), out = MakeRgb(6, 6, 32);
    std::vector<uint8_t> px(16, 77);
    StageRun r;
    const KXRESULT result = r.Go(s, &in.bmi, px, &out.bmi);
    EXPECT_TRUE(result == 0 || result == 1) << result;
    EXPECT_FALSE(KX_FAILED(result));
    EXPECT_EQ(out.bmi.bmiRect.left | out.bmi.bmiRect.top | out.bmi.bmiRect.right |
                  out.bmi.bmiRect.bottom,
              0);
    EXPECT_EQ(r.a.Live(), 1u);
}

TEST(GeometryStage, Deinterlacer24TracesItsWork) {
    CRGBDeinterlacer24 d;
    KXBMINFOHEADERYUV in = MakeRgb(1, 4, 24), out = MakeRgb(1, 4, 24);
    in.bmi.bmiFrame = 0;
    std::vector<uint8_t> px = {0, 0, 0, 0, 100, 100, 100, 0, 200, 200, 200, 0, 250, 250, 250, 0};
    for (uint32_t swap : {0u, KXCONV_SWAP_FIELDS}) {
        StageRun r;
        r.flags = KXCONV_KEEP_INPUT | swap;
        kelptest::SinkClear();
        ASSERT_EQ(r.Go(d, &in.bmi, px, &out.bmi), KX_OK);
        EXPECT_EQ(Lines8(31), (Lines{L"CRGBDeinterlacerQuery: SUCESS\r\n",
                                     swap ? L"CRGBDeinterlacer::1x4/2 -> 1x4!\n\r"
                                          : L"CRGBDeinterlacer::1x4/1 -> 1x4!\n\r"}));
        const std::vector<uint8_t> o = r.Bytes(&out.bmi);
        EXPECT_EQ((std::vector<int>{o[0], o[4], o[8], o[12]}),
                  swap ? (std::vector<int>{0, 66, 133, 200})
                       : (std::vector<int>{100, 149, 199, 250}));
    }
    // A chrono input takes the other field, and the swap flag turns it back.
    in.bmi.bmiFormat = KXBMIFORMAT_ODDEVEN_CHRONO;
    out.bmi.bmiFormat = KXBMIFORMAT_ODDEVEN_CHRONO;
    StageRun r;
    ASSERT_EQ(r.Go(d, &in.bmi, px, &out.bmi), KX_OK);
    EXPECT_EQ(r.Bytes(&out.bmi)[0], 0);
}

TEST(GeometryStage, CropKeepsTheRectangleFromTheBufferStart) {
    CRGBCrop c;
    struct Case {
        const char* what;
        KXRECT inRect, outRect;
        std::vector<int> keep; // rows kept from the start, and columns
        int rowFrom, rowTo, colFrom, colTo;
    } cases[] = {
        {"out rect", {0, 0, 0, 0}, {1, 1, 3, 3}, {}, 1, 3, 1, 3},
        {"both rects meet", {0, 2, 4, 4}, {1, 0, 3, 3}, {}, 2, 3, 1, 3},
        {"all zero copies everything", {0, 0, 0, 0}, {0, 0, 0, 0}, {}, 0, 4, 0, 4},
        {"an empty rect keeps one line", {0, 0, 0, 0}, {2, 3, 2, 3}, {}, 3, 4, 2, 3},
    };
    for (const Case& k : cases) {
        KXBMINFOHEADERYUV in = MakeYuv(4, 4, 32), out = MakeYuv(4, 4, 32);
        in.bmi.bmiRect = k.inRect;
        out.bmi.bmiRect = k.outRect;
        std::vector<uint8_t> px(64);
        for (size_t i = 0; i < 64; ++i)
            px[i] = uint8_t(i + 1);
        StageRun r;
        ASSERT_EQ(r.Go(c, &in.bmi, px, &out.bmi), KX_OK) << k.what;
        const std::vector<uint8_t> o = r.Bytes(&out.bmi);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 4; ++x) {
                const bool kept = y >= k.rowFrom && y < k.rowTo && x >= k.colFrom && x < k.colTo;
                const size_t i = size_t(y) * 16 + size_t(x) * 4;
                // Zero bytes outside, whatever the format: YUV is cropped to green.
                EXPECT_EQ(o[i], kept ? px[i] : 0) << k.what << " " << x << "," << y;
            }
    }
}

TEST(GeometryStage, AllocationFailuresAndShortInputs) {
    Stages s;
    struct Case {
        const char* what;
        IConverter* stage;
        uint16_t bits;
        Change change;
        const wchar_t* trace;
    } cases[] = {
        {"scale", &s.scale24, 24,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o, uint32_t&) { o.biWidth = 8; },
         L"CRGBScale::Convert: Allocation of 48 bytes Failed!\r\n"},
        {"deinterlace", &s.deint32, 32,
         [](KXBMINFOHEADER& i, KXBMINFOHEADER&, uint32_t&) { i.bmiFrame = 0; },
         L"CRGBDeinterlacer::Convert: Allocation of 32 bytes Failed!\r\n"},
        {"crop, in the deinterlacer's words", &s.crop, 24,
         [](KXBMINFOHEADER&, KXBMINFOHEADER& o, uint32_t&) {
             o.bmiRect = {1, 1, 2, 2};
             o.biSizeImage = 24;
         },
         L"CRGBDeinterlacer::Convert: Allocation of 24 bytes Failed!\r\n"},
    };
    for (const Case& c : cases) {
        KXBMINFOHEADERYUV in = MakeRgb(4, 2, c.bits), out = MakeRgb(4, 2, c.bits);
        uint32_t unused = 0;
        c.change(in.bmi, out.bmi, unused);
        std::vector<uint8_t> px(in.bmi.biSizeImage, 1);
        StageRun r;
        r.a.FailFrom(1);
        kelptest::SinkClear();
        EXPECT_EQ(r.Go(*c.stage, &in.bmi, px, &out.bmi), KXE_OUTOFMEMORY) << c.what;
        EXPECT_EQ(Lines8(2), Lines{c.trace}) << c.what;
        EXPECT_EQ(r.a.Live(), 0u);

        // An input that claims fewer bytes than its rows is refused before anything is
        // allocated.
        StageRun shortIn;
        in.bmi.biSizeImage -= 4;
        EXPECT_EQ(shortIn.Go(*c.stage, &in.bmi, px, &out.bmi), KXE_INVALID) << c.what;
        EXPECT_EQ(shortIn.a.Calls(), 0) << c.what;
    }
}

TEST(GeometryStage, ThirtyTwoBitsGoThroughTheTransform) {
    // A flat picture stays flat whatever the transform's filter: stretched to twice the
    // width by the pixel ratio alone (no fit: the scales are the ratio and 1), or to the
    // output's size by a fit.
    struct Case {
        const char* what;
        uint32_t flags, outRatio;
        int32_t outW, outH;
    } cases[] = {
        {"ratio only", 0, 0x8000, 8, 4},
        {"fit, traced FAST", KXCONV_FIT_FAST, 0, 6, 6},
        {"fit, traced GOOD", KXCONV_FIT_GOOD, 0, 6, 6},
        {"fit with aspect", KXCONV_FIT_FAST | KXCONV_KEEP_ASPECT, 0, 8, 8},
    };
    for (const Case& c : cases) {
        CRGBScale32 s;
        KXBMINFOHEADERYUV in = MakeRgb(4, 4, 32), out = MakeRgb(c.outW, c.outH, 32);
        out.bmi.bmiRatioX = c.outRatio;
        std::vector<uint8_t> px(64);
        for (size_t i = 0; i < 64; i += 4) {
            px[i] = 40;
            px[i + 1] = 80;
            px[i + 2] = 120;
            px[i + 3] = 255;
        }
        StageRun r;
        r.flags = KXCONV_KEEP_INPUT | c.flags;
        const KXRESULT result = r.Go(s, &in.bmi, px, &out.bmi);
        EXPECT_TRUE(result == KX_OK || result == 1) << c.what << " " << result;
        const std::vector<uint8_t> o = r.Bytes(&out.bmi);
        const size_t mid = (size_t(c.outH / 2) * size_t(c.outW) + size_t(c.outW / 2)) * 4;
        EXPECT_EQ(o[mid], 40) << c.what;
        EXPECT_EQ(o[mid + 2], 120) << c.what;
        EXPECT_EQ(out.bmi.bmiRect.right, 0) << c.what;
    }
}

TEST(GeometryStage, Deinterlacer32KeepsToOneField) {
    // Even rows 10, odd rows 250: every output row comes from one field. (The swap flag
    // is not handed to the transform: at 32 bits it changes nothing.)
    CRGBDeinterlacer32 d;
    KXBMINFOHEADERYUV in = MakeRgb(4, 8, 32), out = MakeRgb(4, 8, 32);
    in.bmi.bmiFrame = 0;
    std::vector<uint8_t> px(128);
    for (size_t y = 0; y < 8; ++y)
        for (size_t i = 0; i < 16; ++i)
            px[y * 16 + i] = y % 2 ? 250 : 10;
    std::vector<int> firsts;
    for (uint32_t swap : {0u, KXCONV_SWAP_FIELDS}) {
        StageRun r;
        r.flags = KXCONV_KEEP_INPUT | swap;
        const KXRESULT result = r.Go(d, &in.bmi, px, &out.bmi);
        EXPECT_EQ(result, 1); // the transform's true, as it stands
        const std::vector<uint8_t> o = r.Bytes(&out.bmi);
        for (size_t y = 0; y < 8; ++y)
            EXPECT_EQ(o[y * 16 + 4], o[4]) << y;
        firsts.push_back(o[4]);
    }
    EXPECT_EQ(firsts[0], firsts[1]);
}
