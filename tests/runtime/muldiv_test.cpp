// The fixed-point geometry's scaling: a * b / c with a 64-bit product, rounded half away
// from zero, and -1 for a zero divisor or a result beyond 32 bits.
#include <gtest/gtest.h>

#include <cstdint>

#include "runtime/kelpos.h"

TEST(MulDiv, RoundsHalfAwayFromZeroAndRefusesWhatDoesNotFit) {
    const struct {
        int32_t a, b, c, expected;
    } cases[] = {
        {10, 10, 3, 33}, // 33.3 down
        {2, 1, 3, 1},    // 0.67 up
        {5, 1, 2, 3},    // halves go away from zero, whatever carries the sign
        {-5, 1, 2, -3},
        {5, -1, 2, -3},
        {5, 1, -2, -3},
        {-5, -1, 2, 3},
        {-5, 1, -2, 3},
        {3, 1, -2, -2},
        {7, 1, 2, 4},
        {-7, 1, 2, -4},
        {1, 1, 3, 0},
        {-1, 1, 3, 0},
        {768, 1280, 256, 3840},                       // 3.0 * 5.0 in 24.8
        {INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX}, // the product needs 62 bits
        {INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN},
        {INT32_MIN, 1, 1, INT32_MIN}, // the most negative result still fits
        {46341, 46341, 1, -1},        // 2,147,488,281 is beyond 32 bits
        {INT32_MAX, 2, 1, -1},
        {INT32_MIN, -1, 1, -1},
        {INT32_MAX, INT32_MAX, 1, -1},
        {INT32_MIN, 2, 1, -1},
        {1, 1, 0, -1}, // no divisor
        {0, 0, 0, -1},
        {0, INT32_MAX, 7, 0},
    };
    for (const auto& t : cases)
        EXPECT_EQ(kelp::os::MulDiv(t.a, t.b, t.c), t.expected)
            << t.a << " * " << t.b << " / " << t.c;
}
