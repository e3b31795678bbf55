// CSamRateCon: fixed-ratio 16-bit resampling by quadratic Lagrange interpolation.
//
// Each output is interpolated through three source samples, the centre x[j] and its two
// neighbours, at the fractional position Alpha[p] of the destination phase p:
//     y = x[j-1] * Cm1[p] + x[j] * C0[p] + x[j+1] * Cp1[p]
// clipped to +-32767 and truncated. The phase machine decides after each output whether
// the centre moves on; it differs for falling and rising rates (see the two loops).
#include "CSamRate.h"

#include <kelp/trace.h>

#include <cmath>
#include <mutex>
#include <new>

namespace kelp {

namespace {

constexpr samrate::ModeRates kModeRates[CSamRateCon::kModes] = {
    {3, 2}, {4, 3}, {4, 2}, {0, 3}, {1, 3}, {2, 3}, {0, 4},
    {1, 4}, {3, 4}, {2, 4}, {4, 1}, {3, 1}, {4, 0}, {3, 0},
};

// The tables of every mode, shared by its instances: built by the first, freed by the
// last. Plain zero-initialised data; the lock guards the counts and the pointers, which
// only change while an instance is made or destroyed. Convert reads the tables without
// the lock: they cannot change while the instance that reads them holds its share.
struct SharedTables {
    int32_t m_lInstance[CSamRateCon::kModes];
    double* m_pdAlpha[CSamRateCon::kModes];
    double* m_pdCm1[CSamRateCon::kModes];
    double* m_pdC0[CSamRateCon::kModes];
    double* m_pdCp1[CSamRateCon::kModes];
};
SharedTables s_shared;
std::mutex s_lock;
int s_failAllocation = 0; // test aid: the nth allocation from now fails

double* NewTable(uint32_t count) {
    if (s_failAllocation > 0 && --s_failAllocation == 0) return nullptr;
    return new (std::nothrow) double[count];
}

constexpr const char* kSource = ".\\CSamRate";

inline short Interp(short a, short b, short c, const double* cm1, const double* c0,
                    const double* cp1, uint32_t p) {
    double v = double(a) * cm1[p] + double(b) * c0[p] + double(c) * cp1[p];
    if (v > CSamRateCon::dPosClip)
        v = CSamRateCon::dPosClip;
    else if (v < CSamRateCon::dNegClip)
        v = CSamRateCon::dNegClip;
    return short(v);
}

} // namespace

namespace samrate {

ModeRates RatesOf(int mode) { return kModeRates[mode]; }

SharedView PeekShared(int mode) {
    std::lock_guard<std::mutex> hold(s_lock);
    return {s_shared.m_lInstance[mode], s_shared.m_pdAlpha[mode], s_shared.m_pdCm1[mode],
            s_shared.m_pdC0[mode],      s_shared.m_pdCp1[mode],
            CSamRateCon::lSArray[kModeRates[mode].dst]};
}

void FailTableAllocation(int nth) {
    std::lock_guard<std::mutex> hold(s_lock);
    s_failAllocation = nth;
}

} // namespace samrate

CSamRateCon::CSamRateCon(MODE mode) {
    if (mode < 0 || mode >= kModes) {
        m_eError = SRC_BADMODE;
        return;
    }
    m_eMode = mode;
    m_lSrcIndex = kModeRates[mode].src;
    m_lDstIndex = kModeRates[mode].dst;
    m_sPrev = 0;
    m_sPrev2 = 0;
    m_lPhase = 0;
    CreateCoeff();
}

CSamRateCon::~CSamRateCon() { Clear(); }

CSamRateCon::MODE CSamRateCon::FindMode(int srcRate, int dstRate) {
    for (int m = 0; m < kModes; ++m)
        if (int64_t(lSRate[kModeRates[m].src]) == srcRate &&
            int64_t(lSRate[kModeRates[m].dst]) == dstRate)
            return MODE(m);
    dbgPrintf(8, 2, L"CSamRateCon: Unable to convert SampleRate %d->%d\n\r", srcRate, dstRate);
    return MODE_NONE;
}

void CSamRateCon::CreateCoeff() {
    m_bNoCarry = true;
    std::lock_guard<std::mutex> hold(s_lock);
    const int m = m_eMode;
    if (s_shared.m_lInstance[m] > 0) {
        ++s_shared.m_lInstance[m];
        if (!s_shared.m_pdAlpha[m]) dbgAssert("m_pdAlpha[m_eMode]", kSource, 122, 8);
        return;
    }
    if (s_shared.m_pdAlpha[m]) dbgAssert("m_pdAlpha[m_eMode]==NULL", kSource, 126, 8);
    ++s_shared.m_lInstance[m];

    const uint32_t L = lSArray[m_lDstIndex];
    double* alpha = NewTable(L + 1);
    s_shared.m_pdAlpha[m] = alpha;
    if (CheckPointer(alpha)) return;
    // The fractional source position of each destination phase. Only the fraction of
    // the ratio counts; the guard against a negative value never fires, so a
    // whole-numbered position stays 0.0.
    const double r = double(lSRate[m_lSrcIndex]) / double(lSRate[m_lDstIndex]);
    alpha[0] = 0.0;
    alpha[1] = r - std::floor(r);
    if (alpha[1] < 0.0) alpha[1] = 1.0;
    for (uint32_t i = 2; i <= L; ++i) {
        const double v = double(i) * alpha[1];
        alpha[i] = v - std::floor(v);
        if (alpha[i] < 0.0) alpha[i] = 1.0;
    }

    // The Lagrange weights through the positions -1, 0 and +1, evaluated at alpha.
    double* cm1 = NewTable(L);
    s_shared.m_pdCm1[m] = cm1;
    if (CheckPointer(cm1)) return;
    for (uint32_t i = 0; i < L; ++i) cm1[i] = (alpha[i] - 1.0) * alpha[i] * 0.5;

    double* c0 = NewTable(L);
    s_shared.m_pdC0[m] = c0;
    if (CheckPointer(c0)) return;
    for (uint32_t i = 0; i < L; ++i) c0[i] = 1.0 - alpha[i] * alpha[i];

    double* cp1 = NewTable(L);
    s_shared.m_pdCp1[m] = cp1;
    if (CheckPointer(cp1)) return;
    for (uint32_t i = 0; i < L; ++i) cp1[i] = cm1[i] + alpha[i];
}

CSamRateCon::SRCERROR CSamRateCon::CheckPointer(double* p) {
    if (!p) {
        dbgAssert("pDouble", kSource, 207, 8);
        ReleaseShare();
        m_eError = SRC_NOMEMORY;
    }
    return m_eError;
}

void CSamRateCon::Clear() {
    std::lock_guard<std::mutex> hold(s_lock);
    ReleaseShare();
}

// Gives back the instance's share of its mode's tables; the last share frees them. An
// instance gives back its share once: after a failed allocation (which already gave it
// back) or with a bad mode there is nothing left to give, so the count stays true for
// the instances that come later.
void CSamRateCon::ReleaseShare() {
    if (m_eError != SRC_OK) return;
    const int m = m_eMode;
    if (--s_shared.m_lInstance[m] != 0) return;
    delete[] s_shared.m_pdAlpha[m];
    s_shared.m_pdAlpha[m] = nullptr;
    delete[] s_shared.m_pdCm1[m];
    s_shared.m_pdCm1[m] = nullptr;
    delete[] s_shared.m_pdC0[m];
    s_shared.m_pdC0[m] = nullptr;
    delete[] s_shared.m_pdCp1[m];
    s_shared.m_pdCp1[m] = nullptr;
}

uint32_t CSamRateCon::GetMaxDestSize(uint32_t srcSamples) const {
    if (m_eError != SRC_OK) return 0;
    const double src = double(lSRate[m_lSrcIndex]);
    const double dst = double(lSRate[m_lDstIndex]);
    double ratio = dst / src;
    // Where the rate falls by more than 2, the source advances by one sample plus the
    // fraction of the ratio per output (two when there is no fraction), so more outputs
    // come out than the rates say; the room follows what is really written.
    const double r = src / dst;
    if (r > 2.0) {
        const double fraction = r - std::floor(r);
        ratio = 1.0 / (1.0 + (fraction > 0.0 ? fraction : 1.0));
    }
    const double outputs = ratio * double(srcSamples);
    if (outputs >= 4294967293.0) return 0xFFFFFFFFu;
    return uint32_t(outputs) + 2;
}

uint32_t CSamRateCon::Convert(const short* src, short* dst, uint32_t n, uint32_t wanted,
                              uint32_t stride) {
    if (m_eError != SRC_OK || !src || !dst || n == 0) return 0;
    return (m_lSrcIndex > m_lDstIndex) ? ConvertFalling(src, dst, n, wanted, stride)
                                       : ConvertRising(src, dst, n, wanted, stride);
}

// Falling rate: every output moves the centre on by one source sample, and by one more
// at a Step, where the fractional position passes a whole sample (Alpha[p] is not below
// Alpha[p + 1]). Only the fraction of the ratio is in Alpha, so a ratio above 2 advances
// by less than its rates say; that is how these modes have always behaved.
uint32_t CSamRateCon::ConvertFalling(const short* src, short* dst, uint32_t n, uint32_t wanted,
                                     uint32_t stride) {
    const int m = m_eMode;
    const double* alpha = s_shared.m_pdAlpha[m];
    const double* cm1 = s_shared.m_pdCm1[m];
    const double* c0 = s_shared.m_pdC0[m];
    const double* cp1 = s_shared.m_pdCp1[m];
    const uint32_t L = lSArray[m_lDstIndex];
    const size_t s = stride;

    uint32_t p = m_lPhase;
    short prev = m_sPrev;
    short last = m_sLast;
    size_t j = 0;
    uint32_t o = 0;

    // The output owed on the last sample of the previous block, now that its right
    // neighbour has come.
    if (!m_bNoCarry) {
        const short x0 = src[0];
        const short y = Interp(m_sPrev2, prev, x0, cm1, c0, cp1, p);
        dst[0] = y;
        last = y;
        o = 1;
        if (alpha[p] >= alpha[p + 1]) {
            prev = x0;
            j = 1;
        }
        p = (p + 1 == L) ? 0 : p + 1;
        m_bNoCarry = true;
    }

    while (j + 1 < n) {
        const short b = src[j * s];
        const short c = src[(j + 1) * s];
        const short y = Interp(prev, b, c, cm1, c0, cp1, p);
        dst[o * s] = y;
        last = y;
        ++o;
        prev = b;
        ++j;
        if (alpha[p] >= alpha[p + 1]) {
            prev = c;
            ++j;
        }
        p = (p + 1 == L) ? 0 : p + 1;
    }

    // If the last sample is the next centre, its output waits for the next block.
    if (j == size_t(n) - 1) {
        m_sPrev2 = prev;
        prev = src[j * s];
        m_bNoCarry = false;
    }
    m_sPrev = prev;
    m_lPhase = p;
    m_sLast = last;

    if (wanted > 0 && o < wanted) {
        dst[o * s] = last;
        ++o;
    }
    return o;
}

// Rising rate: a centre gives outputs at successive phases until a Step moves it on.
// The phase L - 1 is skipped where a pattern reaches L - 2 without a Step: the phase goes
// back to 0 and the centre moves on. Where a pattern ends with a Step at L - 1 (the rates
// 32000 to 44100, 44100 to 48000 and 32000 to 48000) the phase L that follows is phase 0
// of the next pattern: the grids meet there, and both have Alpha 0.
uint32_t CSamRateCon::ConvertRising(const short* src, short* dst, uint32_t n, uint32_t wanted,
                                    uint32_t stride) {
    const int m = m_eMode;
    const double* alpha = s_shared.m_pdAlpha[m];
    const double* cm1 = s_shared.m_pdCm1[m];
    const double* c0 = s_shared.m_pdC0[m];
    const double* cp1 = s_shared.m_pdCp1[m];
    const uint32_t L = lSArray[m_lDstIndex];
    const size_t s = stride;

    uint32_t p = m_lPhase;
    short prev = m_sPrev;
    short last = m_sLast;
    size_t j = 0;
    uint32_t o = 0;

    // The outputs owed on the last sample of the previous block.
    if (!m_bNoCarry) {
        const short x0 = src[0];
        for (;;) {
            const short y = Interp(m_sPrev2, prev, x0, cm1, c0, cp1, p);
            dst[o * s] = y;
            last = y;
            ++o;
            if (alpha[p] >= alpha[p + 1]) {
                p = (p + 1 == L) ? 0 : p + 1;
                break;
            }
            if (p + 2 < L) {
                ++p;
                continue;
            }
            p = 0;
            break;
        }
        m_bNoCarry = true;
    }

    while (j + 1 < n) {
        const short b = src[j * s];
        const short c = src[(j + 1) * s];
        const short y = Interp(prev, b, c, cm1, c0, cp1, p);
        dst[o * s] = y;
        last = y;
        ++o;
        if (alpha[p] >= alpha[p + 1]) {
            p = (p + 1 == L) ? 0 : p + 1;
            prev = b;
            ++j;
        } else if (p + 2 < L) {
            ++p;
        } else {
            p = 0;
            prev = b;
            ++j;
        }
    }

    // The last sample is always the next centre here: its outputs wait for the next
    // block. A wanted count is met by repeating the last output, the phase moving on as
    // if they had been computed.
    m_sPrev2 = prev;
    m_sPrev = src[j * s];
    m_bNoCarry = false;
    m_sLast = last;
    if (wanted > 0) {
        while (o < wanted) {
            dst[o * s] = last;
            ++o;
            p = (p + 2 < L) ? p + 1 : 0;
        }
    }
    m_lPhase = p;
    return o;
}

} // namespace kelp
