// The resampler's inner loop, written once and compiled for every vector target.
//
// A job is one channel of one output frame. Each 128-bit block of a vector holds the two
// phase sums of two jobs, {s2, s1, s2', s1'}, and gets exactly the products and sums of
// the plain loop (RateFrame), in the same order: for each tap t, one multiply and one
// add, never fused. A vector of B blocks does 2 B jobs at once:
// - channels in pairs: block k holds both channels of frame i + k (one phase a block,
//   so its coefficients are one load of RateFilter::pairs);
// - a last odd channel: block k holds frames i + 2k and i + 2k + 1, each with its own
//   phase (the coefficients of a block come from two 64-bit halves).
// Frames that do not fill a vector go through RateFrame.
//
// AVX-512 is left out: building the 512-bit vectors from four or eight pieces costs more
// than the wider arithmetic gains (from 1.25 times the AVX2 form's time with one
// channel to twice it with six, on the machine it was measured on), so that target runs
// the AVX2 form.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "audio/rateconvert_kernel_simd.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include "audio/rateconvert_frame.h"
#include "audio/rateconvert_kernel.h"
#include "runtime/simd.h"

HWY_BEFORE_NAMESPACE();
namespace kelp {
namespace rateconvert {
namespace HWY_NAMESPACE {
#if KELP_SIMD_VECTOR_PASS && HWY_TARGET != HWY_AVX3

namespace hn = hwy::HWY_NAMESPACE;
using DF = hn::ScalableTag<float>;
using VF = hn::Vec<DF>;

constexpr int kLanes = int(hn::MaxLanes(DF()));
constexpr int kBlocks = kLanes / 4; // 128-bit blocks: frames of a channel pair at once
constexpr int kJobs = kLanes / 2;   // jobs of a vector

// A vector made of pieces of kPiece floats each, read at p[0], p[1], ... (lowest first).
template <int kPiece, class D> HWY_INLINE hn::Vec<D> FromPieces(D d, const float* const* p) {
    if constexpr (int(hn::MaxLanes(D())) == kPiece) {
        return hn::LoadU(d, p[0]);
    } else {
        const hn::Half<D> dh;
        constexpr int kHalf = int(hn::MaxLanes(hn::Half<D>())) / kPiece;
        return hn::Combine(d, FromPieces<kPiece>(dh, p + kHalf), FromPieces<kPiece>(dh, p));
    }
}

// The x vectors {xa[t], xa[t], xb[t], xb[t]} of each block for t = 0..7, from the source
// frames of the block's two jobs: xa[k], xb[k].
struct Spread {
    VF v[8];
    HWY_INLINE Spread(const float* const* xa, const float* const* xb) {
        const DF df;
        const float* a4[kBlocks];
        const float* b4[kBlocks];
        for (int k = 0; k < kBlocks; ++k) {
            a4[k] = xa[k] + 4;
            b4[k] = xb[k] + 4;
        }
        const VF a0 = FromPieces<4>(df, xa), a1 = FromPieces<4>(df, a4);
        const VF b0 = FromPieces<4>(df, xb), b1 = FromPieces<4>(df, b4);
        const VF l0 = hn::InterleaveLower(df, a0, b0), h0 = hn::InterleaveUpper(df, a0, b0);
        const VF l1 = hn::InterleaveLower(df, a1, b1), h1 = hn::InterleaveUpper(df, a1, b1);
        v[0] = hn::InterleaveLower(df, l0, l0);
        v[1] = hn::InterleaveUpper(df, l0, l0);
        v[2] = hn::InterleaveLower(df, h0, h0);
        v[3] = hn::InterleaveUpper(df, h0, h0);
        v[4] = hn::InterleaveLower(df, l1, l1);
        v[5] = hn::InterleaveUpper(df, l1, l1);
        v[6] = hn::InterleaveLower(df, h1, h1);
        v[7] = hn::InterleaveUpper(df, h1, h1);
    }
};

// The phase sums, tap by tap in the plain loop's order, from `coef(t)`: the
// coefficients of every lane for tap t.
template <class Coef> HWY_INLINE VF Sums(const Spread& x, Coef&& coef) {
    VF acc = hn::Mul(x.v[0], coef(0));
    HWY_UNROLL(7)
    for (int t = 1; t < 8; ++t)
        acc = hn::Add(acc, hn::Mul(x.v[t], coef(t)));
    return acc;
}

// s1 * (1 - a) + s2 * a of every job, in the even lanes: w holds {a, 1 - a} per job.
HWY_INLINE VF Blend(VF sums, const float* w) {
    const DF df;
    const VF p = hn::Mul(sums, hn::Load(df, w));
    return hn::Add(hn::Reverse2(df, p), p);
}

void RateBlock(const float* const* src, unsigned channels, const RateStep* steps, int n,
               const RateFilter* filter, float* const* out) {
    const DF df;
    const auto& pairs = filter->pairs;
    alignas(64) float w[kLanes];
    alignas(64) float r[kLanes];
    unsigned c = 0;
    for (; c + 1 < channels; c += 2) { // two channels of kBlocks frames
        const float* xa = src[c];
        const float* xb = src[c + 1];
        float* oa = out[c];
        float* ob = out[c + 1];
        int i = 0;
        for (; i + kBlocks <= n; i += kBlocks) {
            const float* pa[kBlocks];
            const float* pb[kBlocks];
            const float(*c[kBlocks])[4];
            for (int k = 0; k < kBlocks; ++k) {
                const RateStep& s = steps[i + k];
                pa[k] = xa + s.offset;
                pb[k] = xb + s.offset;
                c[k] = pairs[s.phase];
                w[4 * k] = w[4 * k + 2] = s.blend;
                w[4 * k + 1] = w[4 * k + 3] = 1.0f - s.blend;
            }
            const Spread x(pa, pb);
            // Each block's coefficients are one row of RateFilter::pairs.
            const VF sums = Sums(x, [&](int t) HWY_ATTR {
                const float* rows[kBlocks];
                for (int k = 0; k < kBlocks; ++k)
                    rows[k] = c[k][t];
                return FromPieces<4>(df, rows);
            });
            hn::Store(Blend(sums, w), df, r);
            for (int k = 0; k < kBlocks; ++k) {
                oa[i + k] = r[4 * k];
                ob[i + k] = r[4 * k + 2];
            }
        }
        for (; i < n; ++i) {
            oa[i] = RateFrame(xa + steps[i].offset, steps[i], filter->h);
            ob[i] = RateFrame(xb + steps[i].offset, steps[i], filter->h);
        }
    }
    if (c < channels) { // one channel left: kJobs frames at once
        const float* x0 = src[c];
        float* o = out[c];
        int i = 0;
        for (; i + kJobs <= n; i += kJobs) {
            const float* pa[kBlocks];
            const float* pb[kBlocks];
            const float(*c[kJobs])[4];
            for (int j = 0; j < kJobs; ++j) {
                const RateStep& s = steps[i + j];
                // (Not `(j % 2 ? pb : pa)[j / 2]`: GCC 12 gets that wrong without
                // optimisation.)
                if (j % 2) {
                    pb[j / 2] = x0 + s.offset;
                } else {
                    pa[j / 2] = x0 + s.offset;
                }
                c[j] = pairs[s.phase];
                w[2 * j] = s.blend;
                w[2 * j + 1] = 1.0f - s.blend;
            }
            const Spread x(pa, pb);
            // Block k takes the first half of frame 2k's row and the second half of frame
            // 2k + 1's (a row holds its pair twice).
            const VF sums = Sums(x, [&](int t) HWY_ATTR {
                const float* even[kBlocks];
                const float* odd[kBlocks];
                for (int k = 0; k < kBlocks; ++k) {
                    even[k] = c[2 * k][t];
                    odd[k] = c[2 * k + 1][t];
                }
                const hn::Repartition<uint64_t, DF> d64;
                return hn::BitCast(df, hn::OddEven(hn::BitCast(d64, FromPieces<4>(df, odd)),
                                                   hn::BitCast(d64, FromPieces<4>(df, even))));
            });
            hn::Store(Blend(sums, w), df, r);
            for (int j = 0; j < kJobs; ++j)
                o[i + j] = r[2 * j];
        }
        for (; i < n; ++i)
            o[i] = RateFrame(x0 + steps[i].offset, steps[i], filter->h);
    }
}

#endif // KELP_SIMD_VECTOR_PASS && HWY_TARGET != HWY_AVX3
} // namespace HWY_NAMESPACE
} // namespace rateconvert
} // namespace kelp
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kelp {
namespace rateconvert {

RateBlockKernel VectorRateBlock(int target) {
    // KELP_SIMD_TABLE(RateBlock) without the AVX-512 entry: that target falls back.
    static const RateBlockKernel kByTarget[kSimdTargetCount] = {
        nullptr, HWY_CHOOSE_SSSE3(RateBlock), HWY_CHOOSE_SSE4(RateBlock),
        HWY_CHOOSE_AVX2(RateBlock), nullptr};
    return simd::ForTarget(kByTarget, target, RateBlockKernel(nullptr));
}

} // namespace rateconvert
} // namespace kelp
#endif // HWY_ONCE
