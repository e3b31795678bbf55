// The vector forms of the toolkit's row kernels give the plain loops' bytes on every
// target: at every length around the block sizes, at unaligned starts, up to an
// unreadable page, and over the whole range of colours.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include <kelp/stdfx.h>

#include "guardedbuffer.h"
#include "simdtargets.h"
#include "stdfx/rowkernels.h"

using namespace stdfx::rowkernels;

namespace {

const int32_t kLengths[] = {1, 3, 7, 8, 9, 15, 16, 17, 31, 33, 63, 65, 1921};

// The colour tables the translators use, with their linearity as they judge it.
std::vector<ColourTables> AllTables() {
    stdfx::CRGB2YUV* fwd = stdfx::GetRGB2YUV();
    stdfx::CYUV2RGB* bwd = stdfx::GetYUV2RGB();
    const int32_t* clampC = stdfx::GetTables()->GetClampC();
    std::vector<ColourTables> all;
    for (int cs : {0, 1}) {
        const int32_t* t = fwd->GetTable(cs);
        all.push_back({t, clampC, false,
                       LinearRows(t, 9) && StandardClamp(clampC, 16, 240) &&
                           RowSumsWithin(t, 0, -256, 511) && RowSumsWithin(t, 3, -256, 511) &&
                           RowSumsWithin(t, 6, -256, 511)});
    }
    for (int cs : {0, 1, 2}) {
        const int32_t* t = bwd->GetTable(cs);
        all.push_back({t, bwd->GetLimit(), cs != 1,
                       LinearRows(t, 5) && StandardClamp(bwd->GetLimit(), 0, 255)});
    }
    return all;
}

} // namespace

TEST(RowKernels, TablesOfTheTranslatorsAreLinearExceptBT709) {
    const std::vector<ColourTables> all = AllTables();
    EXPECT_TRUE(all[0].linear);  // RGB to YUV, limited
    EXPECT_TRUE(all[1].linear);  // full
    EXPECT_TRUE(all[2].linear);  // YUV to RGB, BT.601
    EXPECT_TRUE(all[3].linear);  // full
    EXPECT_FALSE(all[4].linear); // BT.709 rounds each entry on its own
}

TEST(RowKernels, CopyAndFillEqualPlainAtEveryLengthAndStart) {
    std::mt19937 rng(3);
    kelptest::ForEachSimdTarget([&](int target) {
        EXPECT_STREQ(Current().name, kelp::SimdTargetName(target));
        for (int32_t len : kLengths)
            for (size_t start = 0; start < 4; ++start) {
                const size_t bytes = size_t(len) * 4;
                kelptest::GuardedBuffer src(bytes + start), dst(bytes + start);
                src.Random(rng);
                dst.Fill(0xEE);
                Current().copy(dst.data() + start, src.data() + start, bytes);
                ASSERT_EQ(std::memcmp(dst.data() + start, src.data() + start, bytes), 0) << len;
                Current().copy(dst.data() + start, src.data() + start, bytes - 1); // odd bytes
                std::vector<uint8_t> want(bytes + start, 0xEE);
                Fill32_C(want.data() + start, 0x80402010u + uint32_t(len), size_t(len));
                dst.Fill(0xEE);
                Current().fill32(dst.data() + start, 0x80402010u + uint32_t(len), size_t(len));
                ASSERT_EQ(dst.Copy(), want) << len << " at " << start;
            }
    });
}

TEST(RowKernels, ColourStepsEqualPlainAtEveryLengthAndStart) {
    std::mt19937 rng(11);
    const std::vector<ColourTables> all = AllTables();
    kelptest::ForEachSimdTarget([&](int) {
        for (size_t k = 0; k < all.size(); ++k) {
            const ColourFn fast = k < 2 ? Current().bgraToYuva : Current().yuvaToBgra;
            const ColourFn plain = k < 2 ? BgraToYuva_C : YuvaToBgra_C;
            for (int32_t len : kLengths)
                for (size_t start = 0; start < 4; start += 3) {
                    const size_t bytes = size_t(len) * 4;
                    kelptest::GuardedBuffer src(bytes + start), dst(bytes + start);
                    src.Random(rng);
                    std::vector<uint8_t> want(bytes);
                    plain(src.data() + start, want.data(), len, all[k]);
                    fast(src.data() + start, dst.data() + start, len, all[k]);
                    ASSERT_EQ(std::memcmp(dst.data() + start, want.data(), bytes), 0)
                        << "tables " << k << " length " << len << " start " << start;
                }
        }
    });
}

// Every pair of the first two bytes, under every fifth value of the third (0 and 255 among
// them) and 1 and 254, alpha running through every value, for each linear table.
TEST(RowKernels, ColourStepsEqualPlainAcrossTheColourRange) {
    const std::vector<ColourTables> all = AllTables();
    std::vector<uint8_t> src(65536 * 4), want(65536 * 4), got(65536 * 4);
    for (size_t k = 0; k < all.size(); ++k) {
        if (!all[k].linear) continue; // the plain loop runs there
        const ColourFn plain = k < 2 ? BgraToYuva_C : YuvaToBgra_C;
        std::vector<int> his = {1, 254};
        for (int hi = 0; hi < 256; hi += 5)
            his.push_back(hi);
        for (int hi : his) {
            for (int i = 0; i < 65536; ++i) {
                src[4 * i] = uint8_t(i);
                src[4 * i + 1] = uint8_t(i >> 8);
                src[4 * i + 2] = uint8_t(hi);
                src[4 * i + 3] = uint8_t(i + hi);
            }
            plain(src.data(), want.data(), 65536, all[k]);
            kelptest::ForEachSimdTarget([&](int target) {
                if (target == kelp::kSimdPlain) return;
                (k < 2 ? Current().bgraToYuva : Current().yuvaToBgra)(src.data(), got.data(), 65536,
                                                                      all[k]);
                ASSERT_EQ(want, got) << "tables " << k << " byte 2 " << hi;
            });
            if (HasFatalFailure()) return;
        }
    }
}

// 4:2:2 rows in both orders, with and without an alpha plane, both directions.
TEST(RowKernels, Rows422EqualPlainAtEveryLengthAndStart) {
    std::mt19937 rng(21);
    struct Pair {
        Read422Fn Kernels::*read;
        Write422Fn Kernels::*write;
        Read422Fn plainRead;
        Write422Fn plainWrite;
    } orders[] = {{&Kernels::readYuyv, &Kernels::writeYuyv, ReadYuyv_C, WriteYuyv_C},
                  {&Kernels::readUyvy, &Kernels::writeUyvy, ReadUyvy_C, WriteUyvy_C}};
    kelptest::ForEachSimdTarget([&](int) {
        for (const Pair& o : orders)
            for (int32_t len : kLengths)
                for (bool withAlpha : {false, true})
                    for (size_t start = 0; start < 4; start += 3) {
                        SCOPED_TRACE(testing::Message() << "length " << len << " alpha "
                                                        << withAlpha << " start " << start);
                        const size_t rowBytes = size_t(len + 1) / 2 * 4, pixBytes = size_t(len) * 4;
                        kelptest::GuardedBuffer row(rowBytes + start), alpha(size_t(len) + start),
                            pix(pixBytes + start);
                        row.Random(rng);
                        alpha.Random(rng);
                        uint8_t* a = withAlpha ? alpha.data() + start : nullptr;
                        std::vector<uint8_t> want(pixBytes);
                        o.plainRead(row.data() + start, a, want.data(), len);
                        (Current().*o.read)(row.data() + start, a, pix.data() + start, len);
                        ASSERT_EQ(std::memcmp(pix.data() + start, want.data(), pixBytes), 0);

                        pix.Random(rng);
                        std::vector<uint8_t> wantRow(rowBytes, 0xEE), wantAlpha(size_t(len), 0xEE);
                        o.plainWrite(pix.data() + start, wantRow.data(),
                                     withAlpha ? wantAlpha.data() : nullptr, len);
                        row.Fill(0xEE);
                        alpha.Fill(0xEE);
                        (Current().*o.write)(pix.data() + start, row.data() + start, a, len);
                        ASSERT_EQ(std::memcmp(row.data() + start, wantRow.data(), rowBytes), 0);
                        ASSERT_EQ(std::memcmp(alpha.data() + start, wantAlpha.data(), size_t(len)),
                                  0);
                    }
    });
}
