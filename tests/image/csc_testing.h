// A colour converter whose tables the tests may read, and the reference formulas that
// the conversions are checked against.
#pragma once

#include <kelp/kxcsc.h>

#include <cstdint>
#include <random>
#include <vector>

namespace csctest {

class Csc : public kelp::CKXCsc2 {
public:
    using CKXCsc::m_bFilterLuma;
    using CKXCsc::m_Cb_b_tab;
    using CKXCsc::m_Cb_g_tab;
    using CKXCsc::m_Cr_g_tab;
    using CKXCsc::m_Cr_r_tab;
    using CKXCsc::m_RangeLimit;
    using CKXCsc::m_RangeLimitC100;
    using CKXCsc::m_RangeLimitC75;
    using CKXCsc::m_RangeLimitY;
    using CKXCsc::m_RGB_YCC;
    using CKXCsc::m_Y_y_tab;
    const uint8_t* RangeLimit() const { return m_pRangeLimit; }
    const uint8_t* RangeLimitC() const { return m_pRangeLimitC; }

    explicit Csc(int space = CS_CCIR601, int limit75 = 0) {
        Init(ColorSpace(space));
        ColorLimit(limit75);
    }
    int Space() const {
        return m_pRGB_YCC == m_RGB_YCC[1] ? 1 : m_pRGB_YCC == m_RGB_YCC[2] ? 2 : 0;
    }

    // The formulas, one pixel at a time, from the tables.
    struct Yuv {
        int y, u, v;
    };
    Yuv RefForward(int b, int g, int r) const {
        const int32_t* t = m_pRGB_YCC;
        const int32_t sy = t[r] + t[256 + g] + t[512 + b];
        const int32_t su = t[768 + r] + t[1024 + g] + t[1280 + b];
        const int32_t sv = t[1536 + r] + t[1792 + g] + t[2048 + b];
        return {m_pRangeLimitY[sy >> 16], m_pRangeLimitC[su >> 16], m_pRangeLimitC[sv >> 16]};
    }
    // Raw (unlimited) y, cb, cr and the chroma sums.
    void RefRaw(int b, int g, int r, int32_t* out5) const {
        const int32_t* t = m_pRGB_YCC;
        const int32_t sy = t[r] + t[256 + g] + t[512 + b];
        const int32_t su = t[768 + r] + t[1024 + g] + t[1280 + b];
        const int32_t sv = t[1536 + r] + t[1792 + g] + t[2048 + b];
        out5[0] = sy >> 16;
        out5[1] = su >> 16;
        out5[2] = sv >> 16;
        out5[3] = su;
        out5[4] = sv;
    }
    void RefInverse(int y, int u, int v, uint8_t* bgr) const {
        const int32_t yy = m_pY_y[y];
        bgr[0] = m_pRangeLimit[(m_pCb_b[u] + yy) >> 16];
        bgr[1] = m_pRangeLimit[(m_pCr_g[v] + m_pCb_g[u] + yy) >> 16];
        bgr[2] = m_pRangeLimit[(m_pCr_r[v] + yy) >> 16];
    }
    uint8_t LY(int v) const { return m_pRangeLimitY[v]; }
    uint8_t LC(int v) const { return m_pRangeLimitC[v]; }
    uint8_t L(int v) const { return m_pRangeLimit[v]; }
};

inline std::vector<uint8_t> Random(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (auto& b : v)
        b = uint8_t(rng());
    return v;
}

} // namespace csctest
