// The manager's decisions before and after the stages: coerced outputs, identity, and
// the tidying of the output record. Every decision's trace is checked word for word.
#include <gtest/gtest.h>

#include <functional>

#include <kelp/trace.h>

#include "convert/request.h"
#include "kxbihtest.h"

using namespace kelp;
using kelptest::MakeRgb;

namespace {

struct Decision {
    bool identity;
    std::vector<std::wstring> traces;
};

Decision Check(KXBMINFOHEADERYUV& in, KXBMINFOHEADERYUV& out, uint32_t& flags, int32_t& quality) {
    ConversionRequest request(&in.bmi, &out.bmi, &flags, &quality, nullptr);
    kelptest::SinkClear();
    bool identity = CheckIdentity(request);
    return {identity, kelptest::Lines8(30)};
}

const wchar_t* kNoAlpha =
    L"!!!CConversionManager::Output forced to equal ALPHA %d (input has no alpha)!!!\r\n";

std::wstring Text(const wchar_t* format, int value) {
    wchar_t b[256];
    kelpFormat(b, 256, format, value);
    return b;
}

} // namespace

TEST(CheckIdentity, AlphaRules) {
    struct Case {
        const char* what;
        uint16_t inBits;
        uint32_t inAlpha;
        uint16_t outBits;
        uint32_t outAlpha;
        uint32_t flags;
        bool identity;
        uint32_t outAlphaAfter;
        std::vector<std::wstring> traces;
    };
    const std::wstring premult =
        L"!!!CConversionManager::Output forced to KXDIB_ALPHA_PREMULTIPLIED!!!\r\n";
    const Case cases[] = {
        {"valid to valid", 32, 0, 32, 0, 0, true, 0, {}},
        {"valid to opaque: forced back to valid",
         32,
         0,
         32,
         1,
         0,
         true,
         0,
         {Text(L"!!!CConversionManager::Output forced to equal ALPHA %d (input is "
               L"valid)!!!\r\n",
               0)}},
        {"valid to premultiplied: asked in the record", 32, 0, 32, 2, 0, false, 2, {}},
        {"valid with the premultiply flag", 32, 0, 32, 0, KXCONV_PREMULTIPLY, false, 2, {premult}},
        {"valid to 24 bits",
         32,
         0,
         24,
         1,
         0,
         false,
         0,
         {Text(L"!!!CConversionManager::Output forced to equal ALPHA %d (output is 24 "
               L"bit)!!!\r\n",
               0)}},
        {"opaque to valid: the alpha stage fills",
         32,
         1,
         32,
         0,
         0,
         false,
         0,
         {L"!!!CConversionManager::Fill invalid alpha!!!\r\n"}},
        {"opaque to premultiplied: merely relabelled",
         32,
         1,
         32,
         2,
         0,
         true,
         2,
         {L"!!!CConversionManager::Fill invalid alpha!!!\r\n"}},
        {"opaque to opaque",
         32,
         1,
         32,
         1,
         0,
         true,
         1,
         {L"!!!CConversionManager::Fill invalid alpha!!!\r\n"}},
        // Premultiplied to straight or opaque keeps the output as asked, untraced, so
        // that the alpha stage undoes the premultiplication.
        {"premultiplied to straight", 32, 2, 32, 0, 0, false, 0, {}},
        {"premultiplied to opaque", 32, 2, 32, 1, 0, false, 1, {}},
        {"premultiplied to premultiplied", 32, 2, 32, 2, 0, true, 2, {Text(kNoAlpha, 2)}},
        {"premultiplied to 24 bits", 32, 2, 24, 0, 0, false, 2, {Text(kNoAlpha, 2)}},
        {"24-bit input to 32 bits", 24, 0, 32, 0, 0, false, 0, {Text(kNoAlpha, 0)}},
        {"24-bit input with a stray alpha", 24, 1, 24, 0, 0, true, 1, {Text(kNoAlpha, 1)}},
        {"opaque 32 bits to 24 bits", 32, 1, 24, 0, 0, false, 1, {Text(kNoAlpha, 1)}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        KXBMINFOHEADERYUV in = MakeRgb(8, 4, c.inBits), out = MakeRgb(8, 4, c.outBits);
        in.bmi.bmiAlpha = c.inAlpha;
        out.bmi.bmiAlpha = c.outAlpha;
        uint32_t flags = c.flags | 0xABCD0000u;
        int32_t quality = 55;
        Decision d = Check(in, out, flags, quality);
        EXPECT_EQ(d.identity, c.identity);
        EXPECT_EQ(out.bmi.bmiAlpha, c.outAlphaAfter);
        EXPECT_EQ(d.traces, c.traces);
        const uint32_t reported = KXCONV_OUT_SHARED | KXCONV_OUT_IDENTITY;
        EXPECT_EQ(flags & 0xFFFF0000u, c.identity ? reported : 0u);
        EXPECT_EQ(quality, c.identity ? 0 : 55);
        if (c.outAlpha == KXDIB_ALPHA_PREMULTIPLIED) {
            EXPECT_TRUE(flags & KXCONV_PREMULTIPLY);
        }
    }
}

TEST(CheckIdentity, FieldModesFlagsAndFormat) {
    // An interlaced input and a progressive output without leave to change fields: the
    // output comes back interlaced, with the input's field order.
    KXBMINFOHEADERYUV in = MakeRgb(8, 4, 24), out = MakeRgb(8, 4, 24);
    in.bmi.bmiFrame = 0;
    in.bmi.bmiFormat = KXBMIFORMAT_ODDEVEN_CHRONO;
    in.bmi.bmiFlags = 0x10;
    uint32_t flags = 0;
    int32_t q = 0;
    Decision d = Check(in, out, flags, q);
    EXPECT_TRUE(d.identity);
    EXPECT_EQ(out.bmi.bmiFrame, 0u);
    EXPECT_EQ(out.bmi.bmiFormat, KXBMIFORMAT_ODDEVEN_CHRONO);
    EXPECT_EQ(out.bmi.bmiFlags, 0x10u);
    ASSERT_EQ(d.traces.size(), 2u);
    EXPECT_EQ(d.traces[0],
              Text(L"!!!CConversionManager::Output forced to interlaced %d!!!\r\n", 2));

    // With leave to change fields the progressive output stands and takes the input's
    // format flags.
    out = MakeRgb(8, 4, 24);
    flags = KXCONV_ALLOW_FIELDS;
    d = Check(in, out, flags, q);
    EXPECT_FALSE(d.identity);
    EXPECT_EQ(out.bmi.bmiFrame, 1u);
    EXPECT_EQ(out.bmi.bmiFormat, KXBMIFORMAT_ODDEVEN_CHRONO);

    // A progressive input and an interlaced output: forced progressive.
    in = MakeRgb(8, 4, 24);
    out = MakeRgb(8, 4, 24);
    out.bmi.bmiFrame = 2;
    flags = 0;
    d = Check(in, out, flags, q);
    EXPECT_TRUE(d.identity);
    EXPECT_EQ(out.bmi.bmiFrame, 1u);
    EXPECT_EQ(d.traces[0],
              Text(L"!!!CConversionManager::Output forced to interlaced %d!!!\r\n", 0));
}

TEST(CheckIdentity, EveryAspectThatNeedsWork) {
    struct Case {
        const char* what;
        std::function<void(KXBMINFOHEADERYUV&, KXBMINFOHEADERYUV&)> change;
        uint32_t flags;
        bool identity;
    } cases[] = {
        {"identical", [](auto&, auto&) {}, 0, true},
        {"flags word bit 3 differs: copied anyway", [](auto&, auto& o) { o.bmi.bmiFlags = 8; }, 0,
         true},
        {"size differs", [](auto&, auto& o) { o.bmi.biWidth = 9; }, 0, false},
        {"row order differs", [](auto&, auto& o) { o.bmi.biHeight = -4; }, 0, false},
        {"ratio differs", [](auto&, auto& o) { o.bmi.bmiRatioX = 0x8000; }, 0, false},
        {"ratio differs while fitting", [](auto&, auto& o) { o.bmi.bmiRatioX = 0x8000; },
         KXCONV_FIT_FAST, true},
        {"depth differs", [](auto&, auto& o) { o.bmi.biBitCount = 24; }, 0, false},
        {"format differs", [](auto&, auto& o) { o = kelptest::MakeYuv(8, 4, 32); }, 0, false},
        {"rectangle differs",
         [](auto&, auto& o) {
             o.bmi.bmiRect = {0, 0, 4, 4};
         },
         0, false},
        {"format flag bit 4 on progressive: taken from the input",
         [](auto&, auto& o) { o.bmi.bmiFormat = KXBMIFORMAT_FIELDSWAP; }, 0, true},
        {"YUV components 0 and 8 are the same",
         [](auto& i, auto& o) {
             i = kelptest::MakeYuv(8, 4, 32);
             o = i;
             o.yuv.yuvBits = 0;
         },
         0, true},
        {"YUV colour spaces differ",
         [](auto& i, auto& o) {
             i = kelptest::MakeYuv(8, 4, 32);
             o = i;
             o.yuv.yuvColorSpace = 2;
         },
         0, false},
    };
    for (const auto& c : cases) {
        KXBMINFOHEADERYUV in = MakeRgb(8, 4, 32), out = MakeRgb(8, 4, 32);
        c.change(in, out);
        uint32_t flags = c.flags;
        int32_t q = 0;
        EXPECT_EQ(Check(in, out, flags, q).identity, c.identity) << c.what;
    }
}

TEST(NormalizeOutput, TidiesTheOutputRecord) {
    struct Case {
        const char* what;
        std::function<void(KXBMINFOHEADERYUV&, KXBMINFOHEADERYUV&)> change;
        uint32_t flags;
        std::function<bool(const KXBMINFOHEADERYUV&)> after;
        std::vector<std::wstring> traces;
    };
    const std::wstring crop =
        L"!!!CConversionManager::Performed Cropping -> Clear output rectangle!!!\r\n";
    const Case cases[] = {
        {"nothing to do", [](auto&, auto&) {}, 0, [](auto&) { return true; }, {}},
        {"chrono flag on progressive",
         [](auto&, auto& o) { o.bmi.bmiFormat = KXBMIFORMAT_ODDEVEN_CHRONO | 1; },
         0,
         [](auto& o) { return o.bmi.bmiFormat == 1u; },
         {L"!!!CConversionManager::Output remove obsolete KXBMIFORMAT_ODDEVEN_CHRONO from "
          L"noninterlaced!!!\r\n"}},
        {"chrono flag on interlaced stays",
         [](auto&, auto& o) {
             o.bmi.bmiFrame = 0;
             o.bmi.bmiFormat = KXBMIFORMAT_ODDEVEN_CHRONO;
         },
         0,
         [](auto& o) { return o.bmi.bmiFormat == KXBMIFORMAT_ODDEVEN_CHRONO; },
         {}},
        {"24-bit input, 32-bit output with alpha",
         [](auto& i, auto& o) {
             i.bmi.biBitCount = 24;
             o.bmi.bmiAlpha = 2;
         },
         0,
         [](auto& o) { return o.bmi.bmiAlpha == 1u; },
         {L"!!!CConversionManager::Output removed alpha because of 24bit input!!!\r\n"}},
        {"24-bit input, output alpha 0 stays",
         [](auto& i, auto&) { i.bmi.biBitCount = 24; },
         0,
         [](auto& o) { return o.bmi.bmiAlpha == 0u; },
         {}},
        {"24-bit in and out: set to opaque, then removed",
         [](auto& i, auto& o) {
             i.bmi.biBitCount = 24;
             o.bmi.biBitCount = 24;
             o.bmi.bmiAlpha = 2;
         },
         0,
         [](auto& o) { return o.bmi.bmiAlpha == 0u; },
         {L"!!!CConversionManager::Output removed alpha because of 24bit input!!!\r\n",
          L"!!!CConversionManager::Output removed alpha from 24bit output!!!\r\n"}},
        {"a real rectangle is cleared",
         [](auto&, auto& o) {
             o.bmi.bmiRect = {0, 0, 8, 4};
         },
         0,
         [](auto& o) { return o.bmi.bmiRect.right == 0 && o.bmi.bmiRect.bottom == 0; },
         {crop}},
        {"equal real rectangles are cleared too",
         [](auto& i, auto& o) {
             i.bmi.bmiRect = o.bmi.bmiRect = {1, 1, 5, 3};
         },
         0,
         [](auto& o) { return o.bmi.bmiRect.left == 0 && o.bmi.bmiRect.right == 0; },
         {crop}},
        {"a degenerate rectangle equal to the input's stays",
         [](auto& i, auto& o) {
             i.bmi.bmiRect = o.bmi.bmiRect = {1, 2, 5, 2};
         },
         0,
         [](auto& o) { return o.bmi.bmiRect.right == 5 && o.bmi.bmiRect.bottom == 2; },
         {}},
        {"kept on request",
         [](auto&, auto& o) {
             o.bmi.bmiRect = {0, 0, 8, 4};
         },
         KXCONV_KEEP_RECT,
         [](auto& o) { return o.bmi.bmiRect.right == 8; },
         {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        KXBMINFOHEADERYUV in = MakeRgb(8, 4, 32), out = MakeRgb(8, 4, 32);
        c.change(in, out);
        uint32_t flags = c.flags;
        int32_t q = 0;
        ConversionRequest request(&in.bmi, &out.bmi, &flags, &q, nullptr);
        kelptest::SinkClear();
        NormalizeOutput(request);
        EXPECT_TRUE(c.after(out));
        EXPECT_EQ(kelptest::Lines8(30), c.traces);
    }
}
