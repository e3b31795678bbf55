// The reference for the benchmarks: the hand-written AVX2 form of the resampler's inner
// loop as it was before the kernels moved to Highway, kept unchanged (apart from its
// name) so that the old and new forms are timed in one run. Built with -mavx2
// (bench/CMakeLists.txt); never part of the library. Two registers of the old SSE2 form
// side by side, so that one register holds the two phase sums of four jobs (a job is one channel
// of one output frame). Each lane gets exactly the products and sums of the plain loop,
// in the same order; only in-lane shuffles are used.
#include <immintrin.h>

#include "audio/rateconvert_frame.h"
#include "audio/rateconvert_kernel.h"
#include "reference_avx2.h"

namespace {

inline __m256 Join(__m128 lo, __m128 hi) {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(lo), hi, 1);
}

// x vectors {xa[t], xa[t], xb[t], xb[t] | xc[t], xc[t], xd[t], xd[t]} for t = 0..7.
struct Spread {
    __m256 v[8];
    Spread(const float* xa, const float* xb, const float* xc, const float* xd) {
        __m256 a0 = Join(_mm_loadu_ps(xa), _mm_loadu_ps(xc));
        __m256 a1 = Join(_mm_loadu_ps(xa + 4), _mm_loadu_ps(xc + 4));
        __m256 b0 = Join(_mm_loadu_ps(xb), _mm_loadu_ps(xd));
        __m256 b1 = Join(_mm_loadu_ps(xb + 4), _mm_loadu_ps(xd + 4));
        __m256 l0 = _mm256_unpacklo_ps(a0, b0), h0 = _mm256_unpackhi_ps(a0, b0);
        __m256 l1 = _mm256_unpacklo_ps(a1, b1), h1 = _mm256_unpackhi_ps(a1, b1);
        v[0] = _mm256_shuffle_ps(l0, l0, _MM_SHUFFLE(1, 1, 0, 0));
        v[1] = _mm256_shuffle_ps(l0, l0, _MM_SHUFFLE(3, 3, 2, 2));
        v[2] = _mm256_shuffle_ps(h0, h0, _MM_SHUFFLE(1, 1, 0, 0));
        v[3] = _mm256_shuffle_ps(h0, h0, _MM_SHUFFLE(3, 3, 2, 2));
        v[4] = _mm256_shuffle_ps(l1, l1, _MM_SHUFFLE(1, 1, 0, 0));
        v[5] = _mm256_shuffle_ps(l1, l1, _MM_SHUFFLE(3, 3, 2, 2));
        v[6] = _mm256_shuffle_ps(h1, h1, _MM_SHUFFLE(1, 1, 0, 0));
        v[7] = _mm256_shuffle_ps(h1, h1, _MM_SHUFFLE(3, 3, 2, 2));
    }
};

// Two coefficient pairs in one 128-bit half: {ca[t][0], ca[t][1], cb[t][0], cb[t][1]}.
inline __m128 TwoPairs(const float* ca, const float* cb) {
    return _mm_loadh_pi(_mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(ca)),
                        reinterpret_cast<const __m64*>(cb));
}

// Sums for two channels of frames i (low half) and j (high half): each half shares a phase.
inline __m256 SumsTwoFrames(const Spread& x, const float (*ci)[4], const float (*cj)[4]) {
    __m256 acc = _mm256_mul_ps(x.v[0], Join(_mm_load_ps(ci[0]), _mm_load_ps(cj[0])));
    for (int t = 1; t < 8; ++t)
        acc =
            _mm256_add_ps(acc, _mm256_mul_ps(x.v[t], Join(_mm_load_ps(ci[t]), _mm_load_ps(cj[t]))));
    return acc;
}

// Sums for one channel of four frames, each with its own phase.
inline __m256 SumsFourFrames(const Spread& x, const float (*c0)[4], const float (*c1)[4],
                             const float (*c2)[4], const float (*c3)[4]) {
    auto coef = [&](int t) { return Join(TwoPairs(c0[t], c1[t]), TwoPairs(c2[t], c3[t])); };
    __m256 acc = _mm256_mul_ps(x.v[0], coef(0));
    for (int t = 1; t < 8; ++t)
        acc = _mm256_add_ps(acc, _mm256_mul_ps(x.v[t], coef(t)));
    return acc;
}

// s1 * (1 - a) + s2 * a of the four jobs, in lanes 0, 2, 4 and 6.
inline __m256 Blend(__m256 sums, float a, float b, float c, float d) {
    __m256 w = _mm256_setr_ps(a, 1.0f - a, b, 1.0f - b, c, 1.0f - c, d, 1.0f - d);
    __m256 p = _mm256_mul_ps(sums, w);
    return _mm256_add_ps(_mm256_shuffle_ps(p, p, _MM_SHUFFLE(2, 3, 0, 1)), p);
}

inline void Store4(__m256 r, float* o0, float* o1, float* o2, float* o3) {
    __m128 lo = _mm256_castps256_ps128(r), hi = _mm256_extractf128_ps(r, 1);
    *o0 = _mm_cvtss_f32(lo);
    *o1 = _mm_cvtss_f32(_mm_movehl_ps(lo, lo));
    *o2 = _mm_cvtss_f32(hi);
    *o3 = _mm_cvtss_f32(_mm_movehl_ps(hi, hi));
}

} // namespace

void kelp::benchref::RateBlock_AVX2(const float* const* src, unsigned channels,
                                    const RateStep* steps, int n, const RateFilter* filter,
                                    float* const* out) {
    const auto& pairs = filter->pairs;
    unsigned c = 0;
    for (; c + 1 < channels; c += 2) { // two channels of two frames
        const float* xa = src[c];
        const float* xb = src[c + 1];
        float* oa = out[c];
        float* ob = out[c + 1];
        int i = 0;
        for (; i + 1 < n; i += 2) {
            const RateStep& s = steps[i];
            const RateStep& u = steps[i + 1];
            Spread x(xa + s.offset, xb + s.offset, xa + u.offset, xb + u.offset);
            __m256 r = Blend(SumsTwoFrames(x, pairs[s.phase], pairs[u.phase]), s.blend, s.blend,
                             u.blend, u.blend);
            Store4(r, oa + i, ob + i, oa + i + 1, ob + i + 1);
        }
        if (i < n) {
            oa[i] = RateFrame(xa + steps[i].offset, steps[i], filter->h);
            ob[i] = RateFrame(xb + steps[i].offset, steps[i], filter->h);
        }
    }
    if (c < channels) { // one channel left: four frames at once
        const float* x0 = src[c];
        float* o = out[c];
        int i = 0;
        for (; i + 3 < n; i += 4) {
            const RateStep* s = steps + i;
            Spread x(x0 + s[0].offset, x0 + s[1].offset, x0 + s[2].offset, x0 + s[3].offset);
            __m256 r = Blend(SumsFourFrames(x, pairs[s[0].phase], pairs[s[1].phase],
                                            pairs[s[2].phase], pairs[s[3].phase]),
                             s[0].blend, s[1].blend, s[2].blend, s[3].blend);
            Store4(r, o + i, o + i + 1, o + i + 2, o + i + 3);
        }
        for (; i < n; ++i)
            o[i] = RateFrame(x0 + steps[i].offset, steps[i], filter->h);
    }
}
