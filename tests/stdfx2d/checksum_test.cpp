// Thousands of seeded random transforms over every format, mode, field and parameter,
// with a CRC of each result: one sum that every vector target must reproduce. When the
// sum changes on purpose, the test prints the new one. KELP_FX2D_CASE=n prints case n.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>

#include "fx2dtest.h"
#include "simdtargets.h"
#include "stdfx2d/fx2d.h"

using namespace stdfx2d;
using fx2dtest::Fmt;
using fx2dtest::Picture;

namespace {

constexpr int kCases = 3000;
constexpr uint32_t kExpectedSum = 0x26dfdd60u;

double Uniform(std::mt19937& rng, double lo, double hi) {
    return lo + (hi - lo) * (double(rng()) / 4294967296.0);
}

// Scales spread evenly on a log scale from 0.05 to 8, with exact 1.0 now and then.
double Scale(std::mt19937& rng) {
    if (rng() % 10 == 0) return 1.0;
    return 0.05 * std::pow(160.0, Uniform(rng, 0, 1));
}

uint32_t RunCase(int index, bool verbose) {
    std::mt19937 rng(1000003u * uint32_t(index) + 17u);
    static const Fmt kFormats[] = {Fmt::kRGB, Fmt::k444, Fmt::k422, Fmt::k422Alpha};
    const Fmt fmt = kFormats[rng() % 4];
    Fmt sfmt = fmt;
    if (fmt == Fmt::k422 && rng() % 2) sfmt = Fmt::k422Alpha;
    if (fmt == Fmt::k422Alpha && rng() % 2) sfmt = Fmt::k422;
    if (fmt == Fmt::k444 && rng() % 16 == 0) sfmt = Fmt::k444_24;
    const int32_t sw = 1 + int32_t(rng() % 40), sh = 1 + int32_t(rng() % 30);
    const int32_t tw = 1 + int32_t(rng() % 48), th = 1 + int32_t(rng() % 36);
    Picture s(sfmt, sw, rng() % 2 ? sh : -sh, rng() % 3 ? 1 : 0, false);
    Picture t(fmt, tw, rng() % 2 ? th : -th, rng() % 3 ? 1 : 0, false);
    s.Random(rng);
    t.Random(rng);
    if (rng() % 4 == 0) s.rec.bmi.bmiFrame = 0; // interlaced
    if (rng() % 8 == 0) s.rec.bmi.bmiFormat |= KXBMIFORMAT_FIELDSWAP;
    if (rng() % 8 == 0) t.rec.bmi.bmiFormat |= KXBMIFORMAT_ODDEVEN_CHRONO;
    const int bgKind = int(rng() % 3); // none, target size, another size
    const int32_t gw = bgKind == 2 ? 1 + int32_t(rng() % 48) : tw;
    const int32_t gh = bgKind == 2 ? 1 + int32_t(rng() % 36) : th;
    Picture g(fmt == Fmt::k422 && rng() % 2 ? Fmt::k422Alpha : fmt, gw,
              t.rec.bmi.biHeight < 0 ? -gh : gh, rng() % 3 ? 1 : 0, false);
    g.Random(rng);

    FX2DPARAM p =
        fx2dtest::Param(Scale(rng), rng() % 4 == 0 ? 0 : Scale(rng), Uniform(rng, -0.6, 0.6),
                        Uniform(rng, -0.6, 0.6), rng() % 2 ? 0.0 : Uniform(rng, 0, 100));
    if (p.scaleY == 0) p.scaleY = p.scaleX;
    if (rng() % 8 == 0) p.offsetX = p.offsetY = 0;
    FX2DQUALITY q = fx2dtest::Quality(int(rng() % 3));
    if (rng() % 10 == 0) q.mode = 5;
    if (rng() % 5 == 0) {
        q.softnessX = Uniform(rng, 0, 100);
        q.softnessY = rng() % 2 ? 0 : Uniform(rng, 0, 100);
    }
    if (rng() % 6 == 0) {
        q.useFilter = 1;
        q.filterKind = int(rng() % 19);
        q.filterBits = int(rng() % 7);
    }
    const int field = int(rng() % 3) - 1;
    if (verbose)
        std::printf(
            "case %d: format %d/%d source %dx%d target %dx%d background %d (%dx%d) scale %.4f,%.4f "
            "offset %.4f,%.4f transparency %.2f mode %d soft %.1f,%.1f filter %d/%d/%d field %d\n",
            index, int(fmt), int(sfmt), sw, s.rec.bmi.biHeight, tw, t.rec.bmi.biHeight, bgKind, gw,
            gh, p.scaleX, p.scaleY, p.offsetX, p.offsetY, p.transparency, q.mode, q.softnessX,
            q.softnessY, q.useFilter, q.filterKind, q.filterBits, field);
    const int r =
        bgKind ? Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), g.Header(), g.Bits(), p, q, field)
               : Fx2d(t.Header(), t.Bits(), s.Header(), s.Bits(), p, q, field);
    const auto bytes = t.Bytes();
    uint32_t crc = fx2dtest::Crc32(0, bytes.data(), bytes.size());
    const uint8_t code = uint8_t(r);
    return fx2dtest::Crc32(crc, &code, 1);
}

TEST(Fx2dChecksum, EveryTargetReproducesTheSumOfThousandsOfRandomTransforms) {
    if (const char* one = std::getenv("KELP_FX2D_CASE")) {
        const int n = std::atoi(one);
        std::printf("crc %08x\n", RunCase(n, true));
    }
    uint32_t first = 0;
    bool haveFirst = false;
    kelptest::ForEachSimdTarget([&](int) {
        uint32_t sum = 0;
        for (int i = 0; i < kCases; ++i) {
            const uint32_t c = RunCase(i, false);
            sum = fx2dtest::Crc32(sum, reinterpret_cast<const uint8_t*>(&c), 4);
        }
        if (!haveFirst) {
            first = sum;
            haveFirst = true;
        }
        EXPECT_EQ(sum, first);
        EXPECT_EQ(sum, kExpectedSum) << std::hex << "the sum is now 0x" << sum;
    });
}

} // namespace
