// Kernels of the alpha stage: the plain rules on their edge values, and every fast path
// bit for bit against the plain loop on all colour and alpha pairs and on random runs,
// in place and between buffers.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "convert/alpharows.h"
#include "rgbconv_guard.h"

using namespace kelp;
using namespace kelp::alpharows;
using kelptest::GuardedBuffer;

namespace {

std::vector<uint8_t> InPlace(RunFn f, std::vector<uint8_t> px) {
    f(px.data(), px.data(), int32_t(px.size() / 4));
    return px;
}

} // namespace

TEST(AlphaRows, PlainRulesOnEdgeValues) {
    struct Case {
        RunFn fn;
        std::vector<uint8_t> in, out;
    } cases[] = {
        // Premultiplying with 255 keeps the colours; with 0 clears them; alpha stays.
        {Premultiply_C, {200, 0, 255, 255}, {200, 0, 255, 255}},
        {Premultiply_C, {200, 1, 255, 0}, {0, 0, 0, 0}},
        {Premultiply_C, {255, 128, 1, 1}, {1, 1, 0, 1}},
        {Premultiply_C, {255, 128, 100, 254}, {254, 127, 100, 254}},
        // YUV: luma around 16, chroma around 128; alpha 0 gives the centres.
        {PremultiplyYuv_C, {235, 16, 240, 0}, {16, 128, 128, 0}},
        {PremultiplyYuv_C, {0, 0, 255, 128}, {8, 64, 192, 128}},
        {PremultiplyYuv_C, {255, 255, 255, 255}, {255, 255, 255, 255}},
        // Fill sets the fourth byte only.
        {Fill_C, {1, 2, 3, 0}, {1, 2, 3, 255}},
        // Undo: alpha 0 counts as 1 and comes out as 1, colours wrap in their low byte.
        {Unpremultiply_C, {2, 1, 0, 0}, {uint8_t(510), 255, 0, 1}},
        {Unpremultiply_C, {200, 100, 50, 100}, {uint8_t(510), 255, 127, 100}},
        {Unpremultiply_C, {254, 1, 0, 254}, {255, 1, 0, 254}},
        {Unpremultiply_C, {255, 255, 0, 1}, {uint8_t(65025), uint8_t(65025), 0, 1}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(InPlace(c.fn, c.in), c.out);
}

// Every (c, a) pair in every colour byte, through each kernel of each path.
TEST(AlphaRows, FastPathsEqualPlainOnEveryColourAndAlpha) {
    const int32_t n = 65536;
    GuardedBuffer src(4 * n);
    for (int32_t i = 0; i < n; ++i) {
        uint8_t c = uint8_t(i), a = uint8_t(i >> 8);
        uint8_t* p = src.data() + 4 * i;
        p[0] = c;
        p[1] = uint8_t(255 - c);
        p[2] = uint8_t(c * 7);
        p[3] = a;
    }
    const RunFn Kernels::*ops[] = {&Kernels::premultiply, &Kernels::premultiplyYuv, &Kernels::fill,
                                   &Kernels::unpremultiply};
    const char* names[] = {"premultiply", "premultiplyYuv", "fill", "unpremultiply"};
    for (int o = 0; o < 4; ++o) {
        std::vector<uint8_t> want(4 * n);
        (PlainKernels().*ops[o])(src.data(), want.data(), n);
        kelptest::ForEachSimdTarget([&](int) {
            const Kernels& k = Current();
            GuardedBuffer dst(4 * n);
            (k.*ops[o])(src.data(), dst.data(), n);
            ASSERT_EQ(dst.Copy(), want) << k.name << " " << names[o];
        });
    }
}

TEST(AlphaRows, FastPathsEqualPlainOnRandomRunsAtEveryStart) {
    std::mt19937 rng(99);
    const int32_t lengths[] = {1, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 63, 65, 1023, 1921};
    const RunFn Kernels::*ops[] = {&Kernels::premultiply, &Kernels::premultiplyYuv, &Kernels::fill,
                                   &Kernels::unpremultiply};
    for (int32_t len : lengths) {
        const size_t bytes = 4 * size_t(len);
        std::vector<uint8_t> orig(bytes);
        for (auto& b : orig)
            b = uint8_t(rng());
        // Alpha edges on some pixels, and colours above their alpha.
        const uint8_t edges[] = {0, 1, 254, 255};
        for (int32_t i = 0; i < len; i += 3)
            orig[4 * i + 3] = edges[(i / 3) % 4];
        for (const auto op : ops) {
            std::vector<uint8_t> want = orig;
            (PlainKernels().*op)(want.data(), want.data(), len);
            kelptest::ForEachSimdTarget([&](int) {
                // In place and between buffers; the runs end at an unreadable page and
                // start at every offset within a word.
                for (size_t start = 0; start < 4; ++start) {
                    GuardedBuffer buf(bytes + start), other(bytes + 3 - start);
                    uint8_t* p = buf.data() + start;
                    memcpy(p, orig.data(), bytes);
                    (Current().*op)(p, p, len);
                    ASSERT_EQ(std::vector<uint8_t>(p, p + bytes), want)
                        << Current().name << " in place, length " << len << " start " << start;
                    memcpy(p, orig.data(), bytes);
                    uint8_t* q = other.data() + (3 - start);
                    (Current().*op)(p, q, len);
                    ASSERT_EQ(std::vector<uint8_t>(q, q + bytes), want)
                        << Current().name << " length " << len << " start " << start;
                }
            });
        }
    }
}

TEST(AlphaRows, TheTableIsThatOfTheTargetAllowed) {
    kelptest::ForEachSimdTarget(
        [&](int target) { EXPECT_STREQ(Current().name, kelp::SimdTargetName(target)); });
    EXPECT_STREQ(ForTarget(kSimdPlain).name, "plain");
    EXPECT_STREQ(ForTarget(-1).name, "plain");
}
