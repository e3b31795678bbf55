// The resampling kernels of the 2-D transform: a kind number selects a one-dimensional
// filter function of a distance in source pixels, and its support radius.
#pragma once

#include "kelpdefs.h"

namespace stdfx2d {

class KELP_API CFilter {
public:
    // The kinds. 0, 1 and 2 have no function (nearest sampling); every number above 17,
    // and every negative one, selects the soft cubic.
    enum : int32_t {
        kNearest = 0,
        kBox = 3,
        kTriangle = 4,
        kCubicStep = 5,
        kQuadraticBSpline = 6,
        kCubicBSpline = 7,
        kCubicBSpline2 = 8,
        kMitchell = 9,
        kLanczos3 = 10,
        kLanczos4 = 11,
        kLanczos5 = 12,
        kLanczos6 = 13,
        kGaussian = 14,
        kLanczos8 = 15,
        kLanczos16 = 16,
        kLanczos32 = 17,
        kSoftCubic = 18,
    };
    static constexpr int kKinds = 19;

    typedef double (*Function)(double x);

    CFilter() = default;
    virtual ~CFilter() = default;

    virtual void Select(int kind);

    int32_t Kind() const { return m_kind; }
    double Radius() const { return m_radius; }
    Function GetFunction() const { return m_function; } // null for kinds 0 to 2
    // The weight at x; 0 where the kind has no function.
    double operator()(double x) const { return m_function ? m_function(x) : 0.0; }

protected:
    int32_t m_kind = -1;
    double m_radius = 0.0;
    Function m_function = nullptr;
};

} // namespace stdfx2d
