// The process-wide colour tables of CKXCsc and the per-object view on them.
//
// Every table entry is 16.16 fixed point. The offsets and the rounding of an output live
// in one of its three rows, so that the sum of three lookups, shifted by 16, is the
// result. The BT.601 tables (limited and full range) are exact integer expressions; the
// BT.709 ones are double expressions with small corrections that put black, white and
// the neutral axis on exact values.
#include "kelp/kelpcfg.h"
#include "kelp/kxcsc.h"

namespace kelp {

int32_t CKXCsc::m_RGB_YCC[3][2305];
int32_t CKXCsc::m_Y_y_tab[3][256];
int32_t CKXCsc::m_Cb_g_tab[3][256];
int32_t CKXCsc::m_Cr_g_tab[3][256];
int32_t CKXCsc::m_Cb_b_tab[3][256];
int32_t CKXCsc::m_Cr_r_tab[3][256];
uint8_t CKXCsc::m_RangeStore[4][1280];
uint8_t* const CKXCsc::m_RangeLimit = m_RangeStore[0] + 256;
uint8_t* const CKXCsc::m_RangeLimitY = m_RangeStore[1] + 256;
uint8_t* const CKXCsc::m_RangeLimitC100 = m_RangeStore[2] + 256;
uint8_t* const CKXCsc::m_RangeLimitC75 = m_RangeStore[3] + 256;
int CKXCsc::m_bFilled = 0;
int CKXCsc::m_bFilterLuma = 0;

CKXCsc::CKXCsc()
    : m_pRangeLimit(nullptr), m_pRangeLimitY(nullptr), m_pRangeLimitC(nullptr), m_pCr_r(nullptr),
      m_pCb_b(nullptr), m_pCr_g(nullptr), m_pCb_g(nullptr), m_pY_y(nullptr), m_pRGB_YCC(nullptr) {}

CKXCsc::~CKXCsc() = default;

int CKXCsc::Init(ColorSpace space) {
    if (!m_bFilled) {
        FillRangeLimit();
        FillTablesCCIR601();
        FillTablesITU709();
        FillTablesNormalized();
        int filter = 0;
        KELPGetCfg(false).ReadSettingBool("KXCSC", "FilterLuma", filter);
        m_bFilterLuma = filter;
        m_bFilled = 1;
    }
    m_pRangeLimit = m_RangeLimit + 256;
    m_pRangeLimitY = m_RangeLimitY + 256;
    m_pRangeLimitC = m_RangeLimitC100 + 256;
    const int s = space == CS_Normalized ? 1 : space == CS_ITU709 ? 2 : 0;
    m_pCr_r = m_Cr_r_tab[s];
    m_pCb_b = m_Cb_b_tab[s];
    m_pCr_g = m_Cr_g_tab[s];
    m_pCb_g = m_Cb_g_tab[s];
    m_pY_y = m_Y_y_tab[s];
    m_pRGB_YCC = m_RGB_YCC[s];
    return 1;
}

void CKXCsc::End() {}

void CKXCsc::ColorLimit(int limit75) {
    m_pRangeLimitC = (limit75 ? m_RangeLimitC75 : m_RangeLimitC100) + 256;
}

// Values -255..510 are clamped to [lo, hi]. The entries of -256 and 511 are not written
// and stay 0: that is how the tables are defined. The margins of the store beyond them
// hold the bounds, so that a sum outside the table still reads a clamped value.
static void FillLimit(uint8_t* table, int lo, int hi) {
    for (int v = -255; v <= 510; ++v)
        table[v + 256] = uint8_t(v < lo ? lo : v > hi ? hi : v);
    for (int k = 1; k <= 256; ++k) {
        table[-k] = uint8_t(lo);
        table[767 + k] = uint8_t(hi);
    }
}

int CKXCsc::FillRangeLimit() {
    FillLimit(m_RangeLimit, 0, 255);
    FillLimit(m_RangeLimitY, 16, 235);
    FillLimit(m_RangeLimitC100, 16, 240);
    FillLimit(m_RangeLimitC75, 44, 212);
    return 1;
}

// Row r of the RGB to YCbCr table of space s.
static inline int32_t* Row(int32_t (*table)[2305], int s, int r) {
    return table[s] + r * 256;
}

// Luma below black is black and above white is white, except the top entry, which is
// left as computed; the full-range limit brings its sums back.
static void PatchLuma(int32_t* y) {
    for (int i = 0; i < 16; ++i)
        y[i] = 0;
    for (int i = 235; i < 255; ++i)
        y[i] = 0xFF0000;
}

int CKXCsc::FillTablesCCIR601() {
    for (int i = 0; i < 256; ++i) {
        m_Y_y_tab[0][i] = 76309 * (i - 16) + 32768;
        m_Cr_r_tab[0][i] = 105162 * (i - 128);
        m_Cb_b_tab[0][i] = 132376 * (i - 128);
        m_Cr_g_tab[0][i] = -53877 * (i - 128);
        m_Cb_g_tab[0][i] = -25885 * (i - 128);
        Row(m_RGB_YCC, 0, 0)[i] = 16819 * i;
        Row(m_RGB_YCC, 0, 1)[i] = 33028 * i;
        Row(m_RGB_YCC, 0, 2)[i] = 6437 * i + 0x100000;
        Row(m_RGB_YCC, 0, 3)[i] = -9708 * i;
        Row(m_RGB_YCC, 0, 4)[i] = -19065 * i;
        Row(m_RGB_YCC, 0, 5)[i] = 28773 * i + 0x807FFF;
        Row(m_RGB_YCC, 0, 6)[i] = 28792 * i;
        Row(m_RGB_YCC, 0, 7)[i] = -24096 * i;
        Row(m_RGB_YCC, 0, 8)[i] = -4696 * i + 0x807FFF;
    }
    PatchLuma(m_Y_y_tab[0]);
    return 1;
}

int CKXCsc::FillTablesNormalized() {
    for (int i = 0; i < 256; ++i) {
        m_Y_y_tab[1][i] = i * 65536;
        m_Cr_r_tab[1][i] = 91881 * (i - 128) + 32768;
        m_Cb_b_tab[1][i] = 116130 * (i - 128) + 32768;
        m_Cr_g_tab[1][i] = -46802 * (i - 128);
        m_Cb_g_tab[1][i] = -22554 * (i - 128);
        Row(m_RGB_YCC, 1, 0)[i] = 19595 * i;
        Row(m_RGB_YCC, 1, 1)[i] = 38470 * i;
        Row(m_RGB_YCC, 1, 2)[i] = 7471 * i + 32768;
        Row(m_RGB_YCC, 1, 3)[i] = -11059 * i;
        Row(m_RGB_YCC, 1, 4)[i] = -21709 * i;
        Row(m_RGB_YCC, 1, 5)[i] = 32768 * i + 0x807FFF;
        Row(m_RGB_YCC, 1, 6)[i] = 32768 * i + 0x807FFF;
        Row(m_RGB_YCC, 1, 7)[i] = -27439 * i;
        Row(m_RGB_YCC, 1, 8)[i] = -5329 * i;
    }
    return 1;
}

// Rounded by adding one half and truncating toward zero, so that negative values round
// differently from positive ones; that rounding is part of the tables.
static inline int32_t Trunc(double v) {
    return int32_t(v + 0.5);
}

int CKXCsc::FillTablesITU709() {
    for (int i = 0; i < 256; ++i) {
        const double c = i - 128;
        const double x = i;
        m_Cr_r_tab[2][i] = Trunc(c * 403.1488 / 225 * 65536) - 2;
        m_Cb_b_tab[2][i] = Trunc(475.0336 * c / 225 * 65536) - 2;
        m_Cr_g_tab[2][i] = Trunc(-119.8336 * c / 225 * 65536);
        m_Cb_g_tab[2][i] = Trunc(c * -47.9488 / 225 * 65536) - 1;
        m_Y_y_tab[2][i] = Trunc(double((i - 16) * 256) / 220 * 65536) + 32768;
        Row(m_RGB_YCC, 2, 0)[i] = Trunc(46.772000000000006 * x / 256 * 65536);
        Row(m_RGB_YCC, 2, 1)[i] = Trunc(157.344 * x / 256 * 65536);
        Row(m_RGB_YCC, 2, 2)[i] = Trunc(15.884 * x / 256 * 65536) + 0x108000;
        Row(m_RGB_YCC, 2, 3)[i] = Trunc(-25.785 * x / 256 * 65536);
        Row(m_RGB_YCC, 2, 4)[i] = Trunc(-86.715 * x / 256 * 65536);
        Row(m_RGB_YCC, 2, 5)[i] = Trunc(112.5 * x / 256 * 65536) + 0x807FFE;
        Row(m_RGB_YCC, 2, 6)[i] = Trunc(112.5 * x / 256 * 65536) + 0x807FFF;
        Row(m_RGB_YCC, 2, 7)[i] = Trunc(-102.195 * x / 256 * 65536);
        Row(m_RGB_YCC, 2, 8)[i] = Trunc(-10.305 * x / 256 * 65536);
    }
    PatchLuma(m_Y_y_tab[2]);
    return 1;
}

} // namespace kelp
