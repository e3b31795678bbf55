// The resampling kernels and their radii. The constants are written out in double
// precision as the kernels have always used them; changing one (say 1/6 written as a
// division) changes the last bit of some weights, and so the rounding of a tap.
#include <kelp/stdfx_filter.h>

#include <cmath>

namespace stdfx2d {

namespace {

constexpr double kPi = 3.141592653589793;

double Sinc(double u) {
    return u == 0.0 ? 1.0 : std::sin(kPi * u) / (kPi * u);
}

double Box(double x) {
    return (x > -0.5 && x <= 0.5) ? 1.0 : 0.0;
} // asymmetric on purpose

double Triangle(double x) {
    const double t = std::fabs(x);
    return t < 1.0 ? 1.0 - t : 0.0;
}

double CubicStep(double x) {
    const double t = std::fabs(x);
    return t < 1.0 ? 1.0 + t * ((2.0 * t - 3.0) * t) : 0.0;
}

double QuadraticBSpline(double x) {
    const double t = std::fabs(x);
    if (t < 0.5) return 0.75 - t * t;
    if (t < 1.5) return 0.5 * ((t - 1.5) * (t - 1.5));
    return 0.0;
}

double CubicBSpline(double x) {
    const double t = std::fabs(x);
    if (t < 1.0) return t * (0.5 * t * t - t) + 0.6666666666666666;
    if (t < 2.0) {
        const double u = 2.0 - t;
        return u * u * u * 0.16666666666666666;
    }
    return 0.0;
}

// Mitchell-Netravali with B = C = 1/3.
double Mitchell(double x) {
    const double t = std::fabs(x);
    if (t < 1.0) return t * ((1.1666666666666667 * t - 2.0) * t) + 0.8888888888888888;
    if (t < 2.0)
        return t * ((2.0 - 0.3888888888888889 * t) * t - 3.3333333333333335) + 1.7777777777777777;
    return 0.0;
}

// Lanczos 3 takes pi/3 as one constant for its window.
double Lanczos3(double x) {
    const double t = std::fabs(x);
    if (t >= 3.0) return 0.0;
    if (t == 0.0) return 1.0;
    const double w = t * 1.0471975511965979;
    return Sinc(t) * (std::sin(w) / w);
}

template <int N> double Lanczos(double x) {
    const double t = std::fabs(x);
    if (t >= N) return 0.0;
    return Sinc(t) * Sinc(t / N);
}

// Cut off at 1.25, before it reaches 0.
double Gaussian(double x) {
    const double t = std::fabs(x);
    return t < 1.25 ? std::exp(-2.0 * t * t) * std::sqrt(0.6366197723675814) : 0.0;
}

double SoftCubic(double x) {
    const double t = std::fabs(x);
    if (t < 1.0) return t * ((0.5 * t - 1.0) * t + 0.07142857142857142) + 0.6190476190476191;
    if (t < 2.0)
        return t * ((1.0 - t * 0.16666666666666666) * t - 2.0238095238095237) + 1.380952380952381;
    return 0.0;
}

struct Row {
    double radius;
    CFilter::Function function;
};

const Row kRows[CFilter::kKinds] = {
    {0.0, nullptr},      {0.0, nullptr},      {0.0, nullptr},          {0.5, Box},
    {1.0, Triangle},     {1.0, CubicStep},    {1.5, QuadraticBSpline}, {2.0, CubicBSpline},
    {2.0, CubicBSpline}, {2.0, Mitchell},     {3.0, Lanczos3},         {4.0, Lanczos<4>},
    {5.0, Lanczos<5>},   {6.0, Lanczos<6>},   {1.25, Gaussian},        {8.0, Lanczos<8>},
    {16.0, Lanczos<16>}, {32.0, Lanczos<32>}, {2.0, SoftCubic},
};

} // namespace

void CFilter::Select(int kind) {
    m_kind = kind;
    const unsigned row = unsigned(kind) > 17u ? 18u : unsigned(kind);
    m_radius = kRows[row].radius;
    m_function = kRows[row].function;
}

} // namespace stdfx2d
