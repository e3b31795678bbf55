// The resampler's inner loop with SSE2: one register holds the two phase sums of two
// jobs, {s2, s1, s2', s1'}, where a job is one channel of one output frame. Each lane
// gets exactly the products and sums of the plain loop, in the same order.
#include <emmintrin.h>

#include "audio/rateconvert_frame.h"
#include "audio/rateconvert_kernel.h"

namespace {

// x vectors {xa[t], xa[t], xb[t], xb[t]} for t = 0..7 from two jobs' source frames.
struct Spread {
    __m128 v[8];
    Spread(const float* xa, const float* xb) {
        __m128 a0 = _mm_loadu_ps(xa), a1 = _mm_loadu_ps(xa + 4);
        __m128 b0 = _mm_loadu_ps(xb), b1 = _mm_loadu_ps(xb + 4);
        __m128 l0 = _mm_unpacklo_ps(a0, b0), h0 = _mm_unpackhi_ps(a0, b0);
        __m128 l1 = _mm_unpacklo_ps(a1, b1), h1 = _mm_unpackhi_ps(a1, b1);
        v[0] = _mm_shuffle_ps(l0, l0, _MM_SHUFFLE(1, 1, 0, 0));
        v[1] = _mm_shuffle_ps(l0, l0, _MM_SHUFFLE(3, 3, 2, 2));
        v[2] = _mm_shuffle_ps(h0, h0, _MM_SHUFFLE(1, 1, 0, 0));
        v[3] = _mm_shuffle_ps(h0, h0, _MM_SHUFFLE(3, 3, 2, 2));
        v[4] = _mm_shuffle_ps(l1, l1, _MM_SHUFFLE(1, 1, 0, 0));
        v[5] = _mm_shuffle_ps(l1, l1, _MM_SHUFFLE(3, 3, 2, 2));
        v[6] = _mm_shuffle_ps(h1, h1, _MM_SHUFFLE(1, 1, 0, 0));
        v[7] = _mm_shuffle_ps(h1, h1, _MM_SHUFFLE(3, 3, 2, 2));
    }
};

// The sums of two jobs that share a phase: the coefficients are one aligned load.
inline __m128 SumsSharedPhase(const Spread& x, const float (*c)[4]) {
    __m128 acc = _mm_mul_ps(x.v[0], _mm_load_ps(c[0]));
    for (int t = 1; t < 8; ++t)
        acc = _mm_add_ps(acc, _mm_mul_ps(x.v[t], _mm_load_ps(c[t])));
    return acc;
}

// The sums of two jobs with their own phases.
inline __m128 SumsTwoPhases(const Spread& x, const float (*ca)[4], const float (*cb)[4]) {
    auto coef = [&](int t) {
        return _mm_loadh_pi(_mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(ca[t])),
                            reinterpret_cast<const __m64*>(cb[t]));
    };
    __m128 acc = _mm_mul_ps(x.v[0], coef(0));
    for (int t = 1; t < 8; ++t)
        acc = _mm_add_ps(acc, _mm_mul_ps(x.v[t], coef(t)));
    return acc;
}

// s1 * (1 - a) + s2 * a of both jobs, in lanes 0 and 2.
inline __m128 Blend(__m128 sums, float a, float b) {
    __m128 w = _mm_setr_ps(a, 1.0f - a, b, 1.0f - b);
    __m128 p = _mm_mul_ps(sums, w);
    return _mm_add_ps(_mm_shuffle_ps(p, p, _MM_SHUFFLE(2, 3, 0, 1)), p);
}

} // namespace

void RateBlock_SSE2(const float* const* src, unsigned channels, const RateStep* steps, int n,
                    const RateFilter* filter, float* const* out) {
    unsigned c = 0;
    for (; c + 1 < channels; c += 2) { // two channels of one frame
        const float* xa = src[c];
        const float* xb = src[c + 1];
        float* oa = out[c];
        float* ob = out[c + 1];
        for (int i = 0; i < n; ++i) {
            const RateStep& s = steps[i];
            Spread x(xa + s.offset, xb + s.offset);
            __m128 r = Blend(SumsSharedPhase(x, filter->pairs[s.phase]), s.blend, s.blend);
            oa[i] = _mm_cvtss_f32(r);
            ob[i] = _mm_cvtss_f32(_mm_movehl_ps(r, r));
        }
    }
    if (c < channels) { // one channel left: two frames at once
        const float* x0 = src[c];
        float* o = out[c];
        int i = 0;
        for (; i + 1 < n; i += 2) {
            const RateStep& s = steps[i];
            const RateStep& u = steps[i + 1];
            Spread x(x0 + s.offset, x0 + u.offset);
            __m128 r = Blend(SumsTwoPhases(x, filter->pairs[s.phase], filter->pairs[u.phase]),
                             s.blend, u.blend);
            o[i] = _mm_cvtss_f32(r);
            o[i + 1] = _mm_cvtss_f32(_mm_movehl_ps(r, r));
        }
        if (i < n) o[i] = RateFrame(x0 + steps[i].offset, steps[i], filter->h);
    }
}
