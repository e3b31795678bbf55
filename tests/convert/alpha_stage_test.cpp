// The alpha stage "AlphaConverter": its costs and refusals, its proposal, and its work
// for every pair of alpha states, in place and into a new buffer.
#include <gtest/gtest.h>

#include "convert/alphaconv.h"
#include "kxbihtest.h"
#include "rgbconv_guard.h"

using namespace kelp;
using kelptest::MakeRgb;
using kelptest::TrackingAllocator;

namespace {

KXBMINFOHEADERYUV Rgba(int32_t w, int32_t h, uint32_t alpha) {
    KXBMINFOHEADERYUV r = MakeRgb(w, h, 32);
    r.bmi.bmiAlpha = alpha;
    return r;
}

} // namespace

TEST(AlphaStage, QueryCostsByThePairOfStates) {
    struct Case {
        uint32_t from, to;
        int32_t cost; // -1: refused
        bool traced;  // with "invalid alpha flag(s)"
    } cases[] = {
        {0, 1, 0, false}, {0, 2, 4, false}, {1, 0, 0, false},  {1, 2, 2, false},
        {2, 0, 8, false}, {2, 1, 8, false}, {0, 0, -1, false}, {2, 2, -1, false},
        {0, 3, -1, true}, {3, 0, -1, true}, {3, 2, -1, true},
    };
    CAlphaConverter s;
    for (const Case& c : cases) {
        // 1000 x 100 at 32 bits: 400,000 bytes.
        KXBMINFOHEADERYUV in = Rgba(1000, 100, c.from), out = Rgba(1000, 100, c.to);
        out.bmi.biSizeImage = 0;
        uint32_t flags = KXCONV_OUT_SHARED;
        int32_t q = 1;
        kelptest::SinkClear();
        KXRESULT r = s.Query(&in.bmi, &out.bmi, &flags, &q);
        EXPECT_EQ(r, c.cost < 0 ? KXE_INVALID : KX_OK) << c.from << "->" << c.to;
        EXPECT_EQ(q, 1 + (c.cost < 0 ? 0 : c.cost)) << c.from << "->" << c.to;
        EXPECT_EQ(out.bmi.biSizeImage, c.cost < 0 ? 0u : 400000u) << c.from << "->" << c.to;
        EXPECT_EQ(flags, KXCONV_OUT_SHARED);
        EXPECT_EQ(kelptest::Lines8(31),
                  c.traced ? std::vector<std::wstring>{L"CAlphaConverter::Query: invalid alpha "
                                                       L"flag(s)\r\n"}
                           : std::vector<std::wstring>{})
            << c.from << "->" << c.to;
    }
}

TEST(AlphaStage, ProposalTakesTheTargetsAlpha) {
    CAlphaConverter s;
    KXBMINFOHEADERYUV in = Rgba(5, 3, 0), target = Rgba(5, 3, 2);
    in.bmi.biSizeImage = 1;
    TrackingAllocator a;
    KXBMINFOHEADER* p = nullptr;
    ASSERT_EQ(s.GetOutputFormat(&in.bmi, &p, &a, &target.bmi), KX_OK);
    EXPECT_EQ(p->bmiAlpha, 2u);
    EXPECT_EQ(p->biSizeImage, 60u);
    EXPECT_EQ(p->biBitCount, 32);
    KXBMINFOHEADER* none = nullptr;
    EXPECT_EQ(s.GetOutputFormat(p, &none, &a, &target.bmi), KXE_INVALID);
    a.Free(p);
}

TEST(AlphaStage, WorkForEveryPairInPlaceAndIntoANewBuffer) {
    const std::vector<uint8_t> pixels = {200, 100, 50,  100,  // colours within alpha
                                         255, 128, 1,   0,    // alpha 0
                                         10,  20,  30,  255,  // opaque
                                         250, 40,  240, 128}; // colour above alpha
    struct Case {
        uint32_t from, to;
        uint32_t compression;
        std::vector<uint8_t> want;
    } cases[] = {
        // Premultiply, RGB rule.
        {0, 2, KXBI_RGB, {78, 39, 20, 100, 0, 0, 0, 0, 10, 20, 30, 255, 125, 20, 120, 128}},
        // Premultiply, YUV rule: luma around 16, chroma around 128.
        {0, 2, KXBI_YUV, {88, 117, 97, 100, 16, 128, 128, 0, 10, 20, 30, 255, 133, 84, 184, 128}},
        // Fill.
        {1, 0, KXBI_RGB, {200, 100, 50, 255, 255, 128, 1, 255, 10, 20, 30, 255, 250, 40, 240, 255}},
        // Undo: alpha 0 reads and comes out as 1, colours above alpha wrap.
        {2, 0, KXBI_RGB, {254, 255, 127, 100, 1, 128, 255, 1, 10, 20, 30, 255, 242, 79, 222, 128}},
        {2, 1, KXBI_RGB, {254, 255, 127, 100, 1, 128, 255, 1, 10, 20, 30, 255, 242, 79, 222, 128}},
        // Relabelling only.
        {0, 1, KXBI_RGB, pixels},
        {1, 2, KXBI_RGB, pixels},
    };
    CAlphaConverter s;
    for (const Case& c : cases) {
        for (bool keep : {false, true}) {
            for (uint32_t mask : kelptest::PathMasks()) {
                kelptest::CpuMask cm(mask);
                KXBMINFOHEADERYUV in = Rgba(2, 2, c.from), out = Rgba(2, 2, c.to);
                if (c.compression == KXBI_YUV) {
                    in = kelptest::MakeYuv(2, 2, 32);
                    out = kelptest::MakeYuv(2, 2, 32);
                    in.bmi.bmiAlpha = c.from;
                    out.bmi.bmiAlpha = c.to;
                }
                kelptest::GuardedBuffer buf(16);
                memcpy(buf.data(), pixels.data(), 16);
                TrackingAllocator a;
                void* outData = nullptr;
                uint32_t flags = keep ? KXCONV_KEEP_INPUT : 0;
                int32_t q = 0;
                kelptest::SinkClear();
                ASSERT_EQ(s.Convert(&in.bmi, buf.data(), &out.bmi, &outData, &flags, &q, &a),
                          KX_OK);
                const uint8_t* o = static_cast<const uint8_t*>(outData);
                EXPECT_EQ(std::vector<uint8_t>(o, o + 16), c.want)
                    << c.from << "->" << c.to << " keep " << keep << " mask " << mask;
                if (keep) {
                    EXPECT_TRUE(a.Owns(outData));
                    EXPECT_EQ(flags & KXCONV_OUT_SHARED, 0u);
                    EXPECT_EQ(buf.Copy(), pixels);
                } else {
                    EXPECT_EQ(outData, buf.data());
                    EXPECT_TRUE(flags & KXCONV_OUT_SHARED);
                    EXPECT_EQ(a.Calls(), 0);
                }
                std::vector<std::wstring> l14 = kelptest::Lines8(14);
                ASSERT_FALSE(l14.empty());
                EXPECT_EQ(l14.back().rfind(L"CAlphaConverter: used ", 0), 0u);
                if (c.from == 0 && c.to == 2) {
                    // The closed library is asked first and is not there.
                    EXPECT_EQ(l14.front(), L"convertglim::reshape start \n");
                    EXPECT_EQ(kelptest::Lines8(4),
                              keep ? std::vector<std::wstring>{L"convertglim::reshape failed \n"}
                                   : std::vector<std::wstring>{});
                }
            }
        }
    }
}

TEST(AlphaStage, AllocationFailureWhenKeepingTheInput) {
    CAlphaConverter s;
    KXBMINFOHEADERYUV in = Rgba(2, 2, 2), out = Rgba(2, 2, 0);
    uint8_t pixels[16] = {};
    TrackingAllocator a;
    a.FailFrom(1);
    void* outData = nullptr;
    uint32_t flags = KXCONV_KEEP_INPUT;
    int32_t q = 0;
    kelptest::SinkClear();
    EXPECT_EQ(s.Convert(&in.bmi, pixels, &out.bmi, &outData, &flags, &q, &a), KXE_OUTOFMEMORY);
    EXPECT_EQ(outData, nullptr);
    EXPECT_EQ(kelptest::Lines8(2),
              std::vector<std::wstring>{L"CAlphaConverter::Convert: Allocation of 16 bytes "
                                        L"Failed!\r\n"});
}
