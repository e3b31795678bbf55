// CSamRateCon: 16-bit sample-rate conversion between the five standard rates by
// three-point (quadratic Lagrange) interpolation, for fourteen fixed rate pairs.
//
// One instance converts one channel. Source and destination step by a stride, so that
// one channel of an interleaved buffer is converted straight into one channel of
// another interleaved buffer; the two buffers must not overlap. The interpolation state
// is carried from one Convert call to the next, so a stream may be cut into blocks of
// any length: one long call gives the same samples as many short ones.
//
// The coefficient tables of a rate pair cover the 40 ms after which the source and the
// destination grids meet again; they are shared by all instances of the pair, built by
// the first and freed by the last. Instances may be made and destroyed on any thread;
// each one is used by one thread at a time.
#pragma once

#include <cstdint>

#include "kelpdefs.h"

namespace kelp {

class KELP_API CSamRateCon {
public:
    // Rate pairs, source rate first.
    enum MODE : int32_t {
        MODE_NONE = -1, // no mode serves the pair
        MODE_44100_32000 = 0,
        MODE_48000_44100 = 1,
        MODE_48000_32000 = 2,
        MODE_11025_44100 = 3,
        MODE_22050_44100 = 4,
        MODE_32000_44100 = 5,
        MODE_11025_48000 = 6,
        MODE_22050_48000 = 7,
        MODE_44100_48000 = 8,
        MODE_32000_48000 = 9,
        MODE_48000_22050 = 10,
        MODE_44100_22050 = 11,
        MODE_48000_11025 = 12,
        MODE_44100_11025 = 13,
    };
    static constexpr int kModes = 14;

    enum SRCERROR : int32_t { SRC_OK = 0, SRC_NOMEMORY = 1, SRC_BADMODE = 2 };

    // The rates by rate index, and the phases of one 40 ms pattern at each rate.
    static constexpr uint32_t lSRate[5] = {11025, 22050, 32000, 44100, 48000};
    static constexpr uint32_t lSArray[5] = {441, 882, 1280, 1764, 1920};
    // Outputs are clipped to these before truncation, so -32768 is never produced.
    static constexpr double dPosClip = 32767.0;
    static constexpr double dNegClip = -32767.0;

    // A mode outside 0 to 13 leaves the instance inert with SRC_BADMODE; a failed table
    // allocation leaves it inert with SRC_NOMEMORY.
    explicit CSamRateCon(MODE mode);
    ~CSamRateCon();
    CSamRateCon(const CSamRateCon&) = delete;
    CSamRateCon& operator=(const CSamRateCon&) = delete;

    // The mode of a rate pair, or MODE_NONE with a trace (area 8, level 2).
    static MODE FindMode(int srcRate, int dstRate);

    MODE GetMode() const { return m_eMode; }
    SRCERROR GetLastError() const { return m_eError; }

    // Room the destination needs for one Convert of `srcSamples` samples when no tail fill
    // is asked for: dst/src * srcSamples, truncated, plus 2. 0 for an inert instance.
    uint32_t GetMaxDestSize(uint32_t srcSamples) const;

    // Converts n source samples into the destination and returns how many were written.
    // Source sample k is src[k * stride], output i goes to dst[i * stride]. The last
    // source sample of a block is kept and used by the next call. With `wanted` above 0,
    // a block whose outputs fall short of it is padded by repeating the last output
    // (once when the rate falls, up to `wanted` when it rises), so the destination must
    // then hold max(wanted, GetMaxDestSize(n)) outputs. 0 for an inert instance, a null
    // pointer or n = 0.
    uint32_t Convert(const short* src, short* dst, uint32_t n, uint32_t wanted, uint32_t stride);

private:
    void CreateCoeff();
    void Clear();
    void ReleaseShare(); // Clear with the table lock held
    SRCERROR CheckPointer(double* p);
    uint32_t ConvertFalling(const short* src, short* dst, uint32_t n, uint32_t wanted,
                            uint32_t stride);
    uint32_t ConvertRising(const short* src, short* dst, uint32_t n, uint32_t wanted,
                           uint32_t stride);

    uint32_t m_lSrcIndex = 0;
    uint32_t m_lDstIndex = 0;
    SRCERROR m_eError = SRC_OK;
    MODE m_eMode = MODE_NONE;
    bool m_bNoCarry = true; // no output is owed on the last sample of the previous block
    short m_sPrev = 0;      // the source sample before the next centre sample
    short m_sPrev2 = 0;     // the sample before m_sPrev while an output is owed
    short m_sLast = 0;      // the last output written, for the tail fill
    uint32_t m_lPhase = 0;  // the next destination phase
};

} // namespace kelp
