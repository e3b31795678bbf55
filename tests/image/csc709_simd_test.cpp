// The BT.709 forward rows without lookups: the form of the tables that they rely on, and
// their bytes against the plain loop on every target, over all BGR triples and on odd
// runs at unaligned starts in buffers that end at an unreadable page.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "csc_testing.h"
#include "guardedbuffer.h"
#include "image/cscrows.h"
#include "image/cscrows709.h"
#include "simdtargets.h"

using csctest::Csc;
using kelp::CKXCsc;
namespace cscrows = kelp::cscrows;

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr int kLineStep = 16; // every 16th line of triples in the slow instrumented build
#else
constexpr int kLineStep = 1;
#endif

std::vector<int32_t> Space2Rows() {
    Csc c(CKXCsc::CS_ITU709);
    return std::vector<int32_t>(Csc::m_RGB_YCC[2], Csc::m_RGB_YCC[2] + 2304);
}

cscrows::View View709(int limit75) {
    cscrows::View v{};
    v.rgbYcc = Csc::m_RGB_YCC[2];
    v.limit = Csc::m_RangeLimit + 256;
    v.limitY = Csc::m_RangeLimitY + 256;
    v.limitC = (limit75 ? Csc::m_RangeLimitC75 : Csc::m_RangeLimitC100) + 256;
    v.space = 2;
    v.chromaLo = limit75 ? 44 : 16;
    v.chromaHi = limit75 ? 212 : 240;
    return v;
}

} // namespace

TEST(Csc709Form, TheTablesOfSpace2HaveTheExactForm) {
    const std::vector<int32_t> rows = Space2Rows();
    cscrows::ExactForward f;
    ASSERT_TRUE(cscrows::DeriveExactForward(rows.data(), &f));
    for (int k = 0; k < 9; ++k)
        for (int x = 0; x < 256; ++x)
            ASSERT_EQ(cscrows::ExactEntry(f.rows[k], x), rows[256 * k + x]) << k << " " << x;
    // The kept decomposition is that of the process-wide rows, and of no others.
    EXPECT_NE(cscrows::ExactForwardOf(Csc::m_RGB_YCC[2]), nullptr);
    EXPECT_EQ(cscrows::ExactForwardOf(rows.data()), nullptr);
}

// Rows that the vector form cannot take are refused, so that the lookups stay.
TEST(Csc709Form, RowsWithoutTheFormOrReachingTheLimitEndsAreRefused) {
    struct Case {
        const char* what;
        int row;  // which of the nine rows is replaced or shifted
        int kind; // 0: add `value` to every entry; 1: entries value * x
        int32_t value;
        bool derived;
    };
    const Case cases[] = {
        {"as built", 0, 0, 0, true},
        {"luma reaches 511", 2, 0, 480 << 16, false},
        {"luma beyond 511", 2, 0, 768 << 16, true},
        {"chroma reaches -256", 5, 0, -(400 << 16), false},
        {"blue step beyond 16 bits", 2, 1, 40000, false},
        {"green step beyond 16 bits, taken in halves", 1, 1, 40000, true},
        {"green step beyond two halves", 1, 1, 70000, false},
    };
    for (const Case& c : cases) {
        std::vector<int32_t> rows = Space2Rows();
        for (int x = 0; x < 256; ++x) {
            int32_t& e = rows[256 * c.row + x];
            e = c.kind == 0 ? e + c.value : c.value * x;
        }
        cscrows::ExactForward f;
        EXPECT_EQ(cscrows::DeriveExactForward(rows.data(), &f), c.derived) << c.what;
    }
    // A row that is not linear within rounding has no form.
    std::vector<int32_t> bent(256);
    for (int x = 0; x < 256; ++x)
        bent[x] = x * x * 40;
    cscrows::ExactRow r;
    EXPECT_FALSE(cscrows::DeriveExactRow(bent.data(), &r));
    // One entry off by one in a row that has the form. (Raising the entry at 0 of a row
    // with e = 1 gives another row of the form, with e = 0: lowered here.)
    const std::vector<int32_t> rows = Space2Rows();
    const int off[][2] = {{0, -1}, {1, 1}, {128, 1}, {255, -1}};
    for (const auto& o : off) {
        std::vector<int32_t> row(rows.begin() + 768, rows.begin() + 1024); // Cb from R
        row[o[0]] += o[1];
        EXPECT_FALSE(cscrows::DeriveExactRow(row.data(), &r)) << o[0];
    }
}

// Every B, G, R triple once, at 3 and 4 bytes a pixel, in place and from another
// buffer, with both chroma limits.
TEST(Csc709Simd, ForwardOverAllTriplesInPlaceAndNot) {
    const int width = 4096, height = 4096 / kLineStep;
    for (uint32_t ps : {3u, 4u}) {
        const size_t bytes = size_t(width) * height * ps;
        std::vector<uint8_t> src(bytes);
        for (uint32_t i = 0; i < (1u << 24) / kLineStep; ++i) {
            const uint32_t t = (i / 4096 * kLineStep) * 4096 + i % 4096;
            uint8_t* p = &src[size_t(i) * ps];
            p[0] = uint8_t(t), p[1] = uint8_t(t >> 8), p[2] = uint8_t(t >> 16);
            if (ps == 4) p[3] = uint8_t(t * 11 + 5);
        }
        for (int limit = 0; limit < 2; ++limit) {
            std::vector<uint8_t> want;
            kelptest::ForEachSimdTarget([&](int target) {
                EXPECT_STREQ(cscrows::Current().name, kelp::SimdTargetName(target));
                for (int inPlace = 0; inPlace < 2; ++inPlace) {
                    Csc c(CKXCsc::CS_ITU709, limit);
                    std::vector<uint8_t> out(bytes, 0x5A);
                    if (inPlace) out = src;
                    ASSERT_EQ(c.BGRToYUV444Meshed(inPlace ? out.data() : src.data(), out.data(),
                                                  width, height, ps, width * ps),
                              1);
                    if (target == kelp::kSimdPlain && !inPlace)
                        want = std::move(out);
                    else
                        ASSERT_TRUE(out == want)
                            << "ps " << ps << " limit " << limit << " in place " << inPlace;
                }
            });
        }
    }
}

// The row kernel itself at lengths around each target's block and at unaligned starts,
// source and destination each ending at an unreadable page.
TEST(Csc709Simd, RowsOfOddLengthsAtUnalignedStarts) {
    std::mt19937 rng(709);
    for (uint32_t ps : {3u, 4u})
        for (int limit = 0; limit < 2; ++limit)
            for (int32_t n : {1, 3, 7, 8, 9, 15, 16, 17, 31, 33, 63, 65, 1921}) {
                const size_t bytes = size_t(n) * ps;
                std::vector<uint8_t> orig(bytes), before(bytes);
                for (auto& b : orig)
                    b = uint8_t(rng());
                for (auto& b : before)
                    b = uint8_t(rng());
                Csc c(CKXCsc::CS_ITU709, limit);
                const cscrows::View v = View709(limit);
                std::vector<uint8_t> want = before;
                cscrows::PlainKernels().bgrToYuv444[ps == 4](v, orig.data(), want.data(), n);
                kelptest::ForEachSimdTarget([&](int) {
                    const cscrows::RowFn row = cscrows::Current().bgrToYuv444[ps == 4];
                    for (size_t start = 0; start < 4; ++start) {
                        kelptest::GuardedBuffer s(bytes + start), d(bytes + start);
                        uint8_t* sp = s.data() + start;
                        uint8_t* dp = d.data() + start;
                        std::memcpy(sp, orig.data(), bytes);
                        std::memcpy(dp, before.data(), bytes);
                        row(v, sp, dp, n);
                        ASSERT_EQ(std::vector<uint8_t>(dp, dp + bytes), want)
                            << cscrows::Current().name << " ps " << ps << " n " << n;
                        row(v, sp, sp, n); // in place
                        ASSERT_EQ(std::vector<uint8_t>(sp, sp + bytes), want)
                            << cscrows::Current().name << " in place, ps " << ps << " n " << n;
                    }
                });
            }
}
