// The vector forms of the colour conversions give the plain loop's bytes on every target:
// exhaustively over all BGR triples for the forward direction of each space, and on
// random images of odd widths with gaps, in buffers that end at an unreadable page.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "csc_testing.h"
#include "guardedbuffer.h"
#include "image/cscrows.h"
#include "simdtargets.h"

using csctest::Csc;
using csctest::Random;
using kelp::CKXCsc;

#if defined(__SANITIZE_ADDRESS__)
// Unoptimised instrumented code takes minutes over all triples: every 16th line there.
constexpr int kLineStep = 16;
#else
constexpr int kLineStep = 1;
#endif

TEST(CscSimd, ForwardOverAllTriplesInEverySpace) {
    const int width = 4096, height = 4096 / kLineStep; // every B, G, R once
    for (uint32_t ps : {4u, 3u}) {
        const size_t bytes = size_t(width) * height * ps;
        std::vector<uint8_t> src(bytes);
        for (uint32_t i = 0; i < (1u << 24) / kLineStep; ++i) {
            const uint32_t t = (i / 4096 * kLineStep) * 4096 + i % 4096; // the triple
            uint8_t* p = &src[size_t(i) * ps];
            p[0] = uint8_t(t), p[1] = uint8_t(t >> 8), p[2] = uint8_t(t >> 16);
            if (ps == 4) p[3] = uint8_t(t * 7 + 3);
        }
        for (int space = 0; space < 3; ++space)
            for (int limit = 0; limit < 2; ++limit) {
                if (limit && space != 0) continue; // the limit is a table choice, not arithmetic
                std::vector<uint8_t> want(bytes), got(bytes);
                kelptest::ForEachSimdTarget([&](int target) {
                    EXPECT_STREQ(kelp::cscrows::Current().name, kelp::SimdTargetName(target));
                    Csc c(space, limit);
                    std::vector<uint8_t>& out = target == kelp::kSimdPlain ? want : got;
                    // In place at 4 bytes, from another buffer at 3.
                    if (ps == 4) std::memcpy(out.data(), src.data(), bytes);
                    ASSERT_EQ(c.BGRToYUV444Meshed(ps == 4 ? out.data() : src.data(), out.data(),
                                                  width, height, ps, width * ps),
                              1);
                    if (target != kelp::kSimdPlain) {
                        ASSERT_TRUE(got == want) << "space " << space << " ps " << ps;
                    }
                });
            }
    }
}

TEST(CscSimd, InverseOverAllTriplesInEverySpace) {
    const int width = 4096, height = 4096 / kLineStep; // every Y, Cb, Cr once
    for (uint32_t ps : {4u, 3u}) {
        const size_t bytes = size_t(width) * height * ps;
        std::vector<uint8_t> src(bytes);
        for (uint32_t i = 0; i < (1u << 24) / kLineStep; ++i) {
            const uint32_t t = (i / 4096 * kLineStep) * 4096 + i % 4096;
            uint8_t* p = &src[size_t(i) * ps];
            p[0] = uint8_t(t), p[1] = uint8_t(t >> 8), p[2] = uint8_t(t >> 16);
            if (ps == 4) p[3] = uint8_t(t * 5 + 1);
        }
        for (int space = 0; space < 3; ++space) {
            std::vector<uint8_t> want(bytes), got(bytes);
            kelptest::ForEachSimdTarget([&](int target) {
                Csc c(space);
                std::vector<uint8_t>& out = target == kelp::kSimdPlain ? want : got;
                if (ps == 4) std::memcpy(out.data(), src.data(), bytes);
                ASSERT_EQ(c.YUV444MeshedToBGR(ps == 4 ? out.data() : src.data(), out.data(), width,
                                              height, ps, width * ps),
                          1);
                if (target != kelp::kSimdPlain) {
                    ASSERT_TRUE(got == want) << "space " << space << " ps " << ps;
                }
            });
        }
    }
}

// The 4-byte source layouts over all Y, Cb, Cr triples: UYVK and YUVK a pixel each,
// UYVY a group each (its second luma another value, so that both lanes are checked).
TEST(CscSimd, FourByteLayoutsOverAllTriplesInComputedSpaces) {
    enum { kUyvk, kYuvk, kUyvy };
    const int width = 4096, height = 4096 / kLineStep;
    const size_t pixels = size_t(width) * height;
    for (int layout : {kUyvk, kYuvk, kUyvy}) {
        // UYVY takes two pixels from a group, so its lines hold half the triples each.
        const int w = layout == kUyvy ? 2 * width : width;
        std::vector<uint8_t> src(pixels * 4);
        for (uint32_t i = 0; i < pixels; ++i) {
            const uint32_t t = (i / 4096 * kLineStep) * 4096 + i % 4096;
            const uint8_t y = uint8_t(t), u = uint8_t(t >> 8), v = uint8_t(t >> 16);
            uint8_t* p = &src[size_t(i) * 4];
            if (layout == kYuvk)
                p[0] = y, p[1] = u, p[2] = v, p[3] = uint8_t(t * 3);
            else
                p[0] = u, p[1] = y, p[2] = v, p[3] = layout == kUyvy ? uint8_t(y * 7 + 1) : 9;
        }
        // Spaces 0 and 1 compute the tables' entries (space 2 reads them, and the odd
        // widths below cover it); 3-byte output once, the packing being shared.
        for (uint32_t ps : {4u, 3u})
            for (int space = 0; space < 2; ++space) {
                if (ps == 3 && layout != kUyvk) continue;
                const size_t bytes = size_t(w) * (layout == kUyvy ? height / 2 : height) * ps;
                const int h = layout == kUyvy ? height / 2 : height;
                std::vector<uint8_t> want;
                kelptest::ForEachSimdTarget([&](int target) {
                    Csc c(space);
                    std::vector<uint8_t> out(bytes, 0xA5); // the fourth byte is kept
                    const int rc =
                        layout == kUyvk
                            ? c.UYVKToBGR(src.data(), out.data(), w, h, ps, w * ps, w * 4)
                        : layout == kYuvk
                            ? c.YUVKToBGR(src.data(), out.data(), w, h, ps, w * ps, w * 4, 0)
                            : c.UYVYToBGR(src.data(), out.data(), w, h, ps, w * ps);
                    ASSERT_EQ(rc, 1);
                    if (target == kelp::kSimdPlain)
                        want = std::move(out);
                    else
                        ASSERT_TRUE(out == want)
                            << "layout " << layout << " space " << space << " ps " << ps;
                });
            }
    }
}

namespace {

// One conversion on a random image: the run of `convert` under each target, against
// the plain one, with the source and destination each ending at an unreadable page.
struct Job {
    const char* what;
    uint32_t srcBytes; // bytes a source pixel: 2 for UYVY, 4 for UYVK and YUVK; 0 for the
                       // conversions whose source has the destination's layout and pitch
    bool inPlace;
    std::function<int(Csc&, const uint8_t*, uint8_t*, int w, int h, uint32_t ps, uint32_t pitch,
                      uint32_t srcPitch)>
        convert;
};

void RunJob(const Job& job, int space, uint32_t ps, int width, int height, uint32_t seed) {
    const uint32_t pitch = width * ps + 5;
    const uint32_t srcBytes = job.srcBytes ? job.srcBytes : ps;
    const uint32_t srcPitch = !job.srcBytes ? pitch : job.srcBytes == 2 ? width * 2 : width * 4 + 3;
    // UYVY reads an odd width's last group whole: 2 bytes past the line.
    const size_t srcSize = size_t(srcPitch) * (height - 1) + size_t(width) * srcBytes +
                           (srcBytes == 2 ? (width & 1) * 2 : 0);
    const size_t dstSize = size_t(pitch) * (height - 1) + size_t(width) * ps;
    const std::vector<uint8_t> src = Random(srcSize, seed);
    const std::vector<uint8_t> dst0 = Random(dstSize, seed + 1);
    std::vector<uint8_t> want;
    kelptest::ForEachSimdTarget([&](int target) {
        Csc c(space);
        kelptest::GuardedBuffer s(srcSize), d(dstSize);
        std::memcpy(s.data(), src.data(), srcSize);
        std::memcpy(d.data(), job.inPlace ? src.data() : dst0.data(), dstSize);
        const uint8_t* in = job.inPlace ? d.data() : s.data();
        ASSERT_EQ(job.convert(c, in, d.data(), width, height, ps, pitch, srcPitch), 1);
        if (target == kelp::kSimdPlain)
            want = d.Copy();
        else
            ASSERT_TRUE(d.Copy() == want)
                << job.what << " space " << space << " ps " << ps << " width " << width;
    });
}

} // namespace

TEST(CscSimd, EveryVectorConversionOnOddWidthsWithGaps) {
    const Job jobs[] = {
        {"444 forward", 0, false,
         [](Csc& c, const uint8_t* s, uint8_t* d, int w, int h, uint32_t ps, uint32_t pitch,
            uint32_t) { return c.BGRToYUV444Meshed(s, d, w, h, ps, pitch); }},
        {"444 forward in place", 0, true,
         [](Csc& c, const uint8_t* s, uint8_t* d, int w, int h, uint32_t ps, uint32_t pitch,
            uint32_t) { return c.BGRToYUV444Meshed(s, d, w, h, ps, pitch); }},
        {"444 inverse", 0, false,
         [](Csc& c, const uint8_t* s, uint8_t* d, int w, int h, uint32_t ps, uint32_t pitch,
            uint32_t) { return c.YUV444MeshedToBGR(s, d, w, h, ps, pitch); }},
        {"444 inverse in place", 0, true,
         [](Csc& c, const uint8_t* s, uint8_t* d, int w, int h, uint32_t ps, uint32_t pitch,
            uint32_t) { return c.YUV444MeshedToBGR(s, d, w, h, ps, pitch); }},
        {"601 to 709 in place", 0, true,
         [](Csc& c, const uint8_t* s, uint8_t* d, int w, int h, uint32_t ps, uint32_t pitch,
            uint32_t) {
             return c.YUV444MeshedToYUV444(s, d, w, h, ps, pitch, CKXCsc::CS_CCIR601,
                                           CKXCsc::CS_ITU709);
         }},
        {"709 to 601", 0, false,
         [](Csc& c, const uint8_t* s, uint8_t* d, int w, int h, uint32_t ps, uint32_t pitch,
            uint32_t) {
             return c.YUV444MeshedToYUV444(s, d, w, h, ps, pitch, CKXCsc::CS_ITU709,
                                           CKXCsc::CS_CCIR601);
         }},
        {"422 forward", 0, false,
         [](Csc& c, const uint8_t* s, uint8_t* d, int w, int h, uint32_t ps, uint32_t pitch,
            uint32_t) { return c.BGRToYUV422Meshed(s, d, w, h, ps, pitch, 0); }},
        {"422 forward, luma filtered", 0, false,
         [](Csc& c, const uint8_t* s, uint8_t* d, int w, int h, uint32_t ps, uint32_t pitch,
            uint32_t) {
             const int old = Csc::m_bFilterLuma;
             Csc::m_bFilterLuma = 1;
             const int rc = c.BGRToYUV422Meshed(s, d, w, h, ps, pitch, 0);
             Csc::m_bFilterLuma = old;
             return rc;
         }},
        {"422 inverse", 0, false,
         [](Csc& c, const uint8_t* s, uint8_t* d, int w, int h, uint32_t ps, uint32_t pitch,
            uint32_t) { return c.YUV422MeshedToBGR(s, d, w, h, ps, pitch, 0); }},
        {"UYVY", 2, false,
         [](Csc& c, const uint8_t* s, uint8_t* d, int w, int h, uint32_t ps, uint32_t pitch,
            uint32_t) { return c.UYVYToBGR(s, d, w, h, ps, pitch); }},
        {"UYVK", 4, false,
         [](Csc& c, const uint8_t* s, uint8_t* d, int w, int h, uint32_t ps, uint32_t pitch,
            uint32_t sp) { return c.UYVKToBGR(s, d, w, h, ps, pitch, int(sp)); }},
        {"YUVK", 4, false,
         [](Csc& c, const uint8_t* s, uint8_t* d, int w, int h, uint32_t ps, uint32_t pitch,
            uint32_t sp) { return c.YUVKToBGR(s, d, w, h, ps, pitch, int(sp), 0); }},
        {"YUVK premultiplied", 4, false,
         [](Csc& c, const uint8_t* s, uint8_t* d, int w, int h, uint32_t ps, uint32_t pitch,
            uint32_t sp) { return c.YUVKToBGR(s, d, w, h, ps, pitch, int(sp), 1); }},
    };
    uint32_t seed = 1;
    for (const Job& job : jobs)
        for (int space = 0; space < 3; ++space)
            for (uint32_t ps : {3u, 4u})
                for (int width : {1, 3, 7, 8, 9, 15, 16, 17, 31, 33, 63, 65, 1921}) {
                    RunJob(job, space, ps, width, 3, seed++);
                    if (HasFatalFailure()) return;
                }
}

// Every colour value against every alpha through the premultiplied form: full-range
// grey gives each value once, and the vector form's single formula must agree with
// the plain loop's cases for alpha 0 and 255.
TEST(CscSimd, PremultiplyOverAllValuesAndAlphas) {
    std::vector<uint8_t> src(65536 * 4);
    for (int i = 0; i < 65536; ++i) {
        src[4 * i] = uint8_t(i), src[4 * i + 1] = src[4 * i + 2] = 128;
        src[4 * i + 3] = uint8_t(i >> 8);
    }
    std::vector<uint8_t> want;
    kelptest::ForEachSimdTarget([&](int target) {
        Csc c(CKXCsc::CS_Normalized);
        std::vector<uint8_t> out(65536 * 4, 0);
        c.YUVKToBGR(src.data(), out.data(), 256, 256, 4, 0, 0, 1);
        if (target == kelp::kSimdPlain) {
            for (int i = 0; i < 65536; ++i) {
                const int v = i & 255, k = i >> 8;
                ASSERT_EQ(out[4 * i + 1], k == 0     ? 0
                                          : k == 255 ? v
                                                     : (v * k + 127) / 255)
                    << v << " " << k;
            }
            want = out;
        } else {
            ASSERT_TRUE(out == want);
        }
    });
}
