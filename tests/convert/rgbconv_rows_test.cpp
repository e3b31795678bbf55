// Row kernels of the depth stages: the plain loops' pixel rules, and every fast path
// bit for bit against them on random rows of many widths, in buffers that end at an
// unreadable page.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "convert/depthrows.h"
#include "rgbconv_guard.h"

using namespace kelp;
using namespace kelp::depthrows;
using kelptest::GuardedBuffer;

namespace {

std::vector<uint8_t> Entry(uint8_t b, uint8_t g, uint8_t r) {
    return {b, g, r, 0x77};
}

} // namespace

TEST(RgbconvRows, PlainPixelRules) {
    Palette pal;
    std::vector<uint8_t> table;
    for (int i = 0; i < 16; ++i) {
        auto e = Entry(uint8_t(i), uint8_t(16 * i), uint8_t(255 - i));
        table.insert(table.end(), e.begin(), e.end());
    }
    MakePalette(table.data(), 16, &pal);
    EXPECT_EQ(pal.bgra[3], 0xFFFC3003u);
    EXPECT_EQ(pal.bgra[16], 0xFF000000u); // beyond the image's table: black

    // 1 bit: most significant bit first.
    const uint8_t bits[2] = {0xA0, 0x80};
    uint8_t out[9 * 4];
    Pal1To32_C(bits, out, 9, &pal);
    const int want1[9] = {1, 0, 1, 0, 0, 0, 0, 0, 1};
    for (int x = 0; x < 9; ++x) {
        EXPECT_EQ(out[4 * x + 1], want1[x] ? 16 : 0) << x;
        EXPECT_EQ(out[4 * x + 3], 255) << x;
    }
    // 4 bits: the high nibble is the earlier pixel.
    const uint8_t nib[2] = {0x2F, 0x50};
    uint8_t out24[3 * 3];
    Pal4To24_C(nib, out24, 3, &pal);
    EXPECT_EQ(std::vector<uint8_t>(out24, out24 + 9),
              (std::vector<uint8_t>{2, 32, 253, 15, 240, 240, 5, 80, 250}));
    // 16 bits: 5-5-5, bit 15 ignored, low three bits zero.
    const uint8_t words[4] = {0xFF, 0xFF, 0x21, 0x04}; // 0xFFFF, 0x0421
    Rgb555To32_C(words, out, 2);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 8),
              (std::vector<uint8_t>{248, 248, 248, 255, 8, 8, 8, 255}));
    Rgb555To24_C(words, out24, 2);
    EXPECT_EQ(std::vector<uint8_t>(out24, out24 + 6),
              (std::vector<uint8_t>{248, 248, 248, 8, 8, 8}));
    // 24 to 32 adds 255; 32 to 24 drops the fourth byte.
    const uint8_t bgr[6] = {1, 2, 3, 4, 5, 6};
    BgrTo32_C(bgr, out, 2);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 8),
              (std::vector<uint8_t>{1, 2, 3, 255, 4, 5, 6, 255}));
    const uint8_t bgra[8] = {1, 2, 3, 9, 4, 5, 6, 9};
    BgraTo24_C(bgra, out24, 2);
    EXPECT_EQ(std::vector<uint8_t>(out24, out24 + 6), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6}));
}

// Every kernel of the table of each vector target, against the plain loop, at widths
// around every target's blocks (16, 32 and 64 pixels, 32 for 1 bit) and the slack of
// 24-bit loads and stores.
TEST(RgbconvRows, FastPathsEqualPlainOnRandomRows) {
    std::mt19937 rng(1234);
    std::vector<uint8_t> table(256 * 4);
    for (auto& b : table)
        b = uint8_t(rng());
    Palette full, part;
    MakePalette(table.data(), 256, &full);
    MakePalette(table.data(), 7, &part); // indices past the table read black

    struct Case {
        const char* name;
        int srcBits, dstBytes;
        PalRowFn Kernels::*pal;
        RowFn Kernels::*row;
    };
    const Case cases[] = {
        {"pal1To32", 1, 4, &Kernels::pal1To32, nullptr},
        {"pal4To32", 4, 4, &Kernels::pal4To32, nullptr},
        {"pal8To32", 8, 4, &Kernels::pal8To32, nullptr},
        {"pal1To24", 1, 3, &Kernels::pal1To24, nullptr},
        {"pal4To24", 4, 3, &Kernels::pal4To24, nullptr},
        {"pal8To24", 8, 3, &Kernels::pal8To24, nullptr},
        {"rgb555To32", 16, 4, nullptr, &Kernels::rgb555To32},
        {"rgb555To24", 16, 3, nullptr, &Kernels::rgb555To24},
        {"bgrTo32", 24, 4, nullptr, &Kernels::bgrTo32},
        {"bgraTo24", 32, 3, nullptr, &Kernels::bgraTo24},
    };
    const int32_t widths[] = {1,  2,  3,  7,  8,  15, 16, 17,  31,  32,  33,  47,  48,
                              63, 64, 65, 66, 95, 96, 97, 127, 128, 129, 255, 1921};
    const Kernels& plain = PlainKernels();

    kelptest::ForEachSimdTarget([&](int target) {
        const Kernels& k = Current();
        EXPECT_STREQ(k.name, kelp::SimdTargetName(target));
        for (const Case& c : cases) {
            for (int32_t w : widths) {
                size_t srcSize = (size_t(w) * c.srcBits + 7) / 8;
                size_t dstSize = size_t(w) * c.dstBytes;
                GuardedBuffer src(srcSize), dst(dstSize);
                src.Random(rng);
                std::vector<uint8_t> want(dstSize, 0xCD);
                dst.Fill(0xCD);
                for (const Palette* p : {&full, &part}) {
                    if (c.pal) {
                        (plain.*c.pal)(src.data(), want.data(), w, p);
                        (k.*c.pal)(src.data(), dst.data(), w, p);
                    } else {
                        if (p == &part) continue;
                        (plain.*c.row)(src.data(), want.data(), w);
                        (k.*c.row)(src.data(), dst.data(), w);
                    }
                    ASSERT_EQ(dst.Copy(), want) << k.name << " " << c.name << " width " << w;
                }
            }
        }
    });
}

// All 65,536 words of 5-5-5 through every path, and the two extreme 1-bit bytes.
TEST(RgbconvRows, EveryWordAndEdgeByteOnEveryPath) {
    const int32_t n = 65536;
    GuardedBuffer src(2 * n);
    for (int32_t v = 0; v < n; ++v) {
        src.data()[2 * v] = uint8_t(v);
        src.data()[2 * v + 1] = uint8_t(v >> 8);
    }
    std::vector<uint8_t> want32(4 * n), want24(3 * n);
    Rgb555To32_C(src.data(), want32.data(), n);
    Rgb555To24_C(src.data(), want24.data(), n);
    kelptest::ForEachSimdTarget([&](int) {
        const Kernels& k = Current();
        GuardedBuffer d32(4 * n), d24(3 * n);
        k.rgb555To32(src.data(), d32.data(), n);
        k.rgb555To24(src.data(), d24.data(), n);
        EXPECT_EQ(d32.Copy(), want32) << k.name;
        EXPECT_EQ(d24.Copy(), want24) << k.name;

        Palette pal;
        const uint8_t two[8] = {10, 20, 30, 0, 200, 210, 220, 0};
        MakePalette(two, 2, &pal);
        GuardedBuffer bits(8), out(64 * 4);
        memset(bits.data(), 0x00, 4);
        memset(bits.data() + 4, 0xFF, 4);
        k.pal1To32(bits.data(), out.data(), 64, &pal);
        for (int x = 0; x < 64; ++x)
            ASSERT_EQ(out.data()[4 * x], x < 32 ? 10 : 200) << k.name << " pixel " << x;
    });
}
