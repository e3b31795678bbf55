// Conversions through the manager with the built-in depth and alpha stages: what the
// caller gets, and who owns every buffer, for chains of one, two and three stages.
#include <gtest/gtest.h>

#include <kelp/kelp.h>

#include "convert/alphaconv.h"
#include "convert/convman.h"
#include "convert/rgbconv.h"
#include "kxbihtest.h"

using namespace kelp;
using kelptest::MakeRgb;
using kelptest::TrackingAllocator;

namespace {

struct Manager {
    IConversionManager* cm = KXCONVCreateConversionManager();
    Manager() { cm->Init(0x10002, 0); }
    ~Manager() { cm->Release(); }
    CConversionManager* operator->() { return static_cast<CConversionManager*>(cm); }
};

// Two pixels a row, two rows: (200, 100, 50, alpha 100) and (10, 20, 30, alpha 255).
std::vector<uint8_t> Bgra2x2() {
    return {200, 100, 50, 100, 10, 20, 30, 255, 200, 100, 50, 100, 10, 20, 30, 255};
}

} // namespace

TEST(ChainRun, PalettedTo32BitsThroughTheManager) {
    Manager m;
    struct {
        KXBMINFOHEADER bmi;
        uint8_t table[16];
    } in;
    in.bmi = MakeRgb(3, 2, 8).bmi;
    in.bmi.biClrUsed = 4;
    const uint8_t table[16] = {0, 0, 0, 0, 1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0};
    memcpy(in.table, table, 16);
    uint8_t pixels[8] = {0, 1, 2, 0, 3, 3, 1, 0};
    KXBMINFOHEADERYUV out = MakeRgb(3, 2, 32);
    TrackingAllocator caller;
    void* outData = nullptr;
    uint32_t flags = 0;
    int32_t quality = 0;
    ASSERT_EQ(m.cm->Convert(&in.bmi, pixels, &out.bmi, &outData, &flags, &quality, &caller), KX_OK);
    EXPECT_TRUE(caller.Owns(outData));
    EXPECT_EQ(caller.Live(), 1u);
    EXPECT_EQ(flags & KXCONV_OUT_SHARED, 0u);
    EXPECT_EQ(out.bmi.biSizeImage, 24u);
    const uint8_t* o = static_cast<const uint8_t*>(outData);
    EXPECT_EQ(std::vector<uint8_t>(o, o + 24),
              (std::vector<uint8_t>{0, 0, 0, 255, 1, 2, 3, 255, 4, 5, 6, 255,
                                    7, 8, 9, 255, 7, 8, 9, 255, 1, 2, 3, 255}));
    caller.Free(outData);
}

TEST(ChainRun, PremultipliedInto24BitsTakesTwoStages) {
    // A straight-alpha image asked premultiplied in 24 bits: the alpha stage, then the
    // depth stage. Without KXCONV_KEEP_INPUT the first stage works on the caller's
    // buffer; with it, on a temporary of the manager that the run frees.
    for (bool keep : {false, true}) {
        Manager m;
        KXBMINFOHEADERYUV in = MakeRgb(2, 2, 32), out = MakeRgb(2, 2, 24);
        std::vector<uint8_t> pixels = Bgra2x2();
        TrackingAllocator caller;
        void* outData = nullptr;
        uint32_t flags = KXCONV_PREMULTIPLY | (keep ? KXCONV_KEEP_INPUT : 0);
        int32_t quality = 0;
        ASSERT_EQ(
            m.cm->Convert(&in.bmi, pixels.data(), &out.bmi, &outData, &flags, &quality, &caller),
            KX_OK);
        EXPECT_TRUE(caller.Owns(outData));
        EXPECT_EQ(caller.Live(), 1u);
        EXPECT_EQ(out.bmi.bmiAlpha, KXDIB_ALPHA_VALID); // 24-bit output: no alpha left
        // Rows of 8 bytes: six of pixels and two of padding.
        const uint8_t* o = static_cast<const uint8_t*>(outData);
        const std::vector<uint8_t> row = {78, 39, 20, 10, 20, 30};
        EXPECT_EQ(std::vector<uint8_t>(o, o + 6), row);
        EXPECT_EQ(std::vector<uint8_t>(o + 8, o + 14), row);
        if (keep)
            EXPECT_EQ(pixels, Bgra2x2());
        else
            EXPECT_EQ(pixels[0], 78); // premultiplied where it lay
        caller.Free(outData);
    }
}

TEST(ChainRun, ThreeStagesLeaveOneBufferToTheCaller) {
    // 8-bit paletted to premultiplied 24 bits, run directly: depth, alpha, depth.
    Manager m;
    CRGBConverterRGB32 to32;
    CAlphaConverter alpha;
    CRGBConverterRGB24 to24;
    struct {
        KXBMINFOHEADER bmi;
        uint8_t table[8];
    } in;
    in.bmi = MakeRgb(2, 1, 8).bmi;
    in.bmi.biClrUsed = 2;
    const uint8_t table[8] = {200, 100, 50, 0, 10, 20, 30, 0};
    memcpy(in.table, table, 8);
    uint8_t pixels[4] = {1, 0, 0, 0};
    for (int failAt : {0, 1}) {
        KXBMINFOHEADERYUV out = MakeRgb(2, 1, 24);
        out.bmi.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
        TrackingAllocator caller, temporaries;
        if (failAt) caller.FailFrom(failAt);
        void* outData = nullptr;
        uint32_t flags = 0;
        int32_t quality = 0;
        KXRESULT r = m->RunChain({&to32, &alpha, &to24}, &in.bmi, pixels, &out.bmi, &outData,
                                 &flags, &quality, &caller, &temporaries);
        // One temporary was made (the alpha stage worked in it) and freed.
        EXPECT_EQ(temporaries.Calls(), 1);
        EXPECT_EQ(temporaries.Live(), 0u);
        EXPECT_EQ(temporaries.BadFrees(), 0);
        if (failAt) {
            EXPECT_EQ(r, KXE_INVALID); // the run's result, whatever the stage answered
            EXPECT_EQ(outData, nullptr);
            EXPECT_EQ(caller.Live(), 0u);
            continue;
        }
        ASSERT_EQ(r, KX_OK);
        EXPECT_EQ(caller.Live(), 1u);
        EXPECT_TRUE(caller.Owns(outData));
        EXPECT_EQ(flags & KXCONV_OUT_SHARED, 0u);
        // Alpha 255 from the depth stage: premultiplying keeps the colours.
        const uint8_t* o = static_cast<const uint8_t*>(outData);
        EXPECT_EQ(std::vector<uint8_t>(o, o + 6), (std::vector<uint8_t>{10, 20, 30, 200, 100, 50}));
        caller.Free(outData);
    }
}

TEST(ChainRun, QueryReportsTheChainsCostAndTheOutputSize) {
    Manager m;
    KXBMINFOHEADERYUV in = MakeRgb(720, 576, 32), out = MakeRgb(720, 576, 24);
    in.bmi.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
    out.bmi.biSizeImage = 0;
    uint32_t flags = KXCONV_KEEP_INPUT;
    int32_t quality = -1;
    // The output takes the input's alpha state (24 bits drop it again at the end): one
    // depth stage.
    EXPECT_EQ(m.cm->Query(&in.bmi, &out.bmi, &flags, &quality), KX_OK);
    EXPECT_EQ(quality, 16);
    EXPECT_EQ(out.bmi.biSizeImage, 2160u * 576u);
    EXPECT_EQ(out.bmi.bmiAlpha, KXDIB_ALPHA_VALID);
}

TEST(ChainRun, PremultipliedToStraightOrOpaqueUndoesThePremultiplication) {
    // The output keeps the alpha it asked for and the alpha stage divides every colour
    // by its alpha: an alpha of 0 reads and comes out as 1, and a colour above its
    // alpha wraps around in its low byte.
    const std::vector<uint8_t> premultiplied = {78,  39, 20,  100, 10, 20, 30, 255,
                                                250, 40, 240, 128, 5,  6,  7,  0};
    const std::vector<uint8_t> straight = {198, 99, 51,  100, 10,  20,  30,  255,
                                           242, 79, 222, 128, 251, 250, 249, 1};
    for (uint32_t asked : {KXDIB_ALPHA_VALID, KXDIB_ALPHA_OPAQUE}) {
        for (bool keep : {false, true}) {
            SCOPED_TRACE(testing::Message() << "alpha " << asked << " keep " << keep);
            Manager m;
            KXBMINFOHEADERYUV in = MakeRgb(2, 2, 32), out = MakeRgb(2, 2, 32);
            in.bmi.bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
            out.bmi.bmiAlpha = asked;
            std::vector<uint8_t> pixels = premultiplied;
            TrackingAllocator caller;
            void* outData = nullptr;
            uint32_t flags = keep ? KXCONV_KEEP_INPUT : 0;
            int32_t quality = 0;
            ASSERT_EQ(m.cm->Convert(&in.bmi, pixels.data(), &out.bmi, &outData, &flags, &quality,
                                    &caller),
                      KX_OK);
            EXPECT_EQ(out.bmi.bmiAlpha, asked);
            EXPECT_EQ(flags & KXCONV_OUT_IDENTITY, 0u);
            const uint8_t* o = static_cast<const uint8_t*>(outData);
            EXPECT_EQ(std::vector<uint8_t>(o, o + 16), straight);
            if (keep) {
                EXPECT_TRUE(caller.Owns(outData));
                EXPECT_EQ(pixels, premultiplied);
                caller.Free(outData);
            } else {
                EXPECT_EQ(outData, pixels.data());
                EXPECT_TRUE(flags & KXCONV_OUT_SHARED);
            }
        }
    }
}
