// The chroma filters (taps, adaptive hysteresis, line padding) and the meshed 4:2:2 and
// 4:1:1 conversions built on them, which write only their own bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "csc_testing.h"

using csctest::Csc;
using csctest::Random;
using kelp::CDecFilter;
using kelp::CInpFilter;

TEST(CscFilter, TapsSumToUnityOnConstantLines) {
    std::vector<uint8_t> line(8 * 16, 0);
    for (int v : {0, 1, 77, 254, 255}) {
        std::fill(line.begin(), line.end(), uint8_t(v));
        const uint8_t* mid = line.data() + 8 * 8;
        EXPECT_EQ(CDecFilter<4>().FilterLong(mid), v);
        EXPECT_EQ(CDecFilter<3>().FilterShort(mid), v);
        EXPECT_EQ(CInpFilter<8>().FilterLong(mid), v);
        EXPECT_EQ(CInpFilter<6>().FilterShort(mid), v);
    }
}

TEST(CscFilter, TapWeightsAndOutOfRangeResults) {
    // An impulse of 255 at each distance gives that tap's weight (times 255, shifted).
    struct Case {
        int offset; // in elements from the centre
        int dec, inp;
    } cases[] = {{0, (16 * 255 + 16) >> 5, 8 >> 4},
                 {1, (10 * 255 + 16) >> 5, (10 * 255 + 8) >> 4},
                 {3, (-3 * 255 + 16) >> 5, (-3 * 255 + 8) >> 4},
                 {5, (2 * 255 + 16) >> 5, (2 * 255 + 8) >> 4},
                 {7, (-255 + 16) >> 5, (-255 + 8) >> 4},
                 {2, 16 >> 5, 8 >> 4}};
    for (const Case& k : cases)
        for (int sign : {-1, 1}) {
            std::vector<uint8_t> line(3 * 17, 0);
            line[3 * (8 + sign * k.offset)] = 255;
            const uint8_t* mid = line.data() + 3 * 8;
            EXPECT_EQ(CDecFilter<3>().FilterLong(mid), k.dec) << k.offset;
            EXPECT_EQ(CInpFilter<3>().FilterLong(mid), k.inp) << k.offset;
        }
}

TEST(CscFilter, AdaptiveStateSeeSawsAtTheTop) {
    // Busy: 0, 255 alternating. Flat: constant.
    std::vector<uint8_t> busy(16), evenBusy(16), flat(16, 90);
    for (size_t i = 0; i < busy.size(); ++i) {
        busy[i] = i & 1 ? 255 : 0;
        evenBusy[i] = (i / 2) & 1 ? 255 : 0;
    }
    const CDecFilter<1> dec;
    const CInpFilter<1> inp;
    struct Case {
        const char* what;
        const kelp::IFilter& f;
        const uint8_t* p;
        int before, after;
        bool usesLong;
    } cases[] = {
        {"dec at 15 with activity drops to 14, long", dec, busy.data() + 8, 15, 14, true},
        {"dec at 9 without activity becomes 8, short", dec, flat.data() + 8, 9, 8, false},
        {"dec rises from 8 to 9, long", dec, busy.data() + 8, 8, 9, true},
        {"dec stays 0 when flat", dec, flat.data() + 8, 0, 0, false},
        {"inp at 15 with activity to 14", inp, evenBusy.data() + 9, 15, 14, true},
        {"inp rises from 0 to 1, short", inp, evenBusy.data() + 9, 0, 1, false},
        // The interpolator measures only odd distances: alternate samples are flat to it.
        {"inp falls on alternating samples", inp, busy.data() + 8, 4, 3, false},
    };
    for (const Case& k : cases) {
        int state = k.before;
        const int got = k.f.FilterAdaptive(k.p, &state);
        EXPECT_EQ(state, k.after) << k.what;
        EXPECT_EQ(got, k.usesLong ? k.f.FilterLong(k.p) : k.f.FilterShort(k.p)) << k.what;
    }
}

TEST(CscFilter, PadLineOfBothKinds) {
    const std::vector<uint8_t> line = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    {
        std::vector<uint8_t> buf(line.size() + 6, 0xEE);
        uint8_t* copy = CDecFilter<3>().PadLine(line.data(), buf.data(), 1, 12);
        EXPECT_EQ(copy, buf.data() + 3);
        const std::vector<uint8_t> want = {1, 2, 3, 1,  2,  3,  4,  5,  6,
                                           7, 8, 9, 10, 11, 12, 10, 11, 12};
        EXPECT_EQ(buf, want);
    }
    {
        // CInpFilter<2>, 3 elements of pad: ahead 8 bytes of zero with the first element
        // at -2N and -4N; behind 6 bytes of zero with the element at end - 2N at end and
        // end + 2N.
        std::vector<uint8_t> buf(2 * 3 + 2 + 12 + 2 * 3, 0xEE);
        uint8_t* copy = CInpFilter<2>().PadLine(line.data(), buf.data(), 3, 12);
        EXPECT_EQ(copy, buf.data() + 8);
        const std::vector<uint8_t> want = {1, 2, 0, 0, 1,  2,  0,  0, 1,  2, 3, 4, 5,
                                           6, 7, 8, 9, 10, 11, 12, 9, 10, 0, 0, 9, 10};
        EXPECT_EQ(buf, want);
    }
}

namespace {
// A padded line as PadLine makes it: byte i of the line, elements beyond the ends
// standing in as the filter class pads them.
struct Padded {
    std::vector<uint8_t> buf;
    uint8_t* line;
};
template <class F> Padded Pad(const uint8_t* src, int pad, int n, uint32_t size) {
    Padded p;
    p.buf.assign(size + 2 * (pad + 1) * n, 0);
    p.line = F().PadLine(src, p.buf.data(), pad, size);
    return p;
}
} // namespace

// Each meshed resampling conversion writes exactly its bytes: the filtered chroma of its
// pixels (and the limited luma for 4:4:4 to 4:2:2), nothing else.
TEST(CscFilter, MeshedResamplingWritesOnlyItsBytes) {
    for (uint32_t ps : {3u, 4u})
        for (int width : {4, 9, 16}) {
            const int height = 2;
            const uint32_t pitch = width * ps + 1;
            const std::vector<uint8_t> src = Random(pitch * height, 61 + width);
            const std::vector<uint8_t> orig = Random(pitch * height, 62);
            Csc c(0, 1);
            for (int kind = 0; kind < 5; ++kind) {
                std::vector<uint8_t> dst = orig, want = orig;
                for (int r = 0; r < height; ++r) {
                    const uint8_t* s = &src[r * pitch];
                    uint8_t* d = &want[r * pitch];
                    if (kind == 0) { // 4:4:4 to 4:2:2
                        Padded p = ps == 4 ? Pad<CDecFilter<4>>(s, 1, 4, pitch)
                                           : Pad<CDecFilter<3>>(s, 1, 3, pitch);
                        for (int k = 0; k < width / 2; ++k) {
                            const int e = 2 * k * ps;
                            d[e] = c.LY(s[e]);
                            d[e + ps] = c.LY(s[e + ps]);
                            for (int j = 1; j < 3; ++j) {
                                const uint8_t* q = p.line + e + j;
                                d[e + j] = c.LC(uint8_t((q[-int(ps)] + 2 * q[0] + q[ps] + 2) >> 2));
                            }
                        }
                    } else if (kind == 1 || kind == 2) { // 4:2:2 to 4:4:4
                        const bool dec = kind == 2;
                        Padded p = ps == 4 ? (dec ? Pad<CDecFilter<4>>(s, 1, 4, pitch)
                                                  : Pad<CInpFilter<4>>(s, 1, 4, pitch))
                                           : (dec ? Pad<CDecFilter<3>>(s, 1, 3, pitch)
                                                  : Pad<CInpFilter<3>>(s, 1, 3, pitch));
                        for (int k = 0; k < width / 2; ++k)
                            for (int j = 1; j < 3; ++j) {
                                const uint8_t* q = p.line + (2 * k + 1) * ps + j;
                                d[(2 * k + 1) * ps + j] =
                                    dec ? uint8_t((q[-int(ps)] + 2 * q[0] + q[ps] + 2) >> 2)
                                        : uint8_t((q[-int(ps)] + q[ps] + 1) >> 1);
                            }
                    } else { // 4:1:1 to 4:2:2 (3) and 4:2:2 to 4:1:1 (4)
                        const int n = 2 * ps, first = kind == 3 ? 2 : 0;
                        Padded p = kind == 3 ? (ps == 4 ? Pad<CInpFilter<8>>(s, 7, n, pitch)
                                                        : Pad<CInpFilter<6>>(s, 7, n, pitch))
                                             : (ps == 4 ? Pad<CDecFilter<8>>(s, 7, n, pitch)
                                                        : Pad<CDecFilter<6>>(s, 7, n, pitch));
                        int state[2] = {0, 0};
                        for (int g = 0; g < width / 4; ++g)
                            for (int j = 1; j < 3; ++j) {
                                const int at = (first + 4 * g) * ps + j;
                                const uint8_t* q = p.line + at;
                                int v;
                                if (kind == 3)
                                    v = ps == 4 ? CInpFilter<8>().FilterAdaptive(q, &state[j - 1])
                                                : CInpFilter<6>().FilterAdaptive(q, &state[j - 1]);
                                else
                                    v = ps == 4 ? CDecFilter<8>().FilterAdaptive(q, &state[j - 1])
                                                : CDecFilter<6>().FilterAdaptive(q, &state[j - 1]);
                                d[at] = uint8_t(v);
                            }
                    }
                }
                int rc = 0;
                switch (kind) {
                case 0:
                    rc = c.YUV444MeshedToYUV422Meshed(src.data(), dst.data(), width, height, ps,
                                                      pitch, 0);
                    break;
                case 1:
                case 2:
                    rc = c.YUV422MeshedToYUV444Meshed(src.data(), dst.data(), width, height, ps,
                                                      pitch, kind == 2);
                    break;
                case 3:
                    rc = c.YUV411MeshedToYUV422Meshed(src.data(), dst.data(), width, height, ps,
                                                      pitch);
                    break;
                default:
                    rc = c.YUV422MeshedToYUV411Meshed(src.data(), dst.data(), width, height, ps,
                                                      pitch);
                }
                ASSERT_EQ(rc, 1);
                ASSERT_EQ(dst, want) << "kind " << kind << " ps " << ps << " width " << width;
            }
        }
}
