// The 24.8 fixed-point number, its point and rectangle, and the integer rectangle.
#include <gtest/gtest.h>

#include <kelp/stdfx.h>

using stdfx::CFixedx248;
using stdfx::CRect;
using stdfx::CRectx248;

namespace {
CFixedx248 Raw(int32_t r) {
    return CFixedx248::FromRaw(r);
}
} // namespace

TEST(Fixedx248, RoundingRulesToWholeNumbers) {
    struct Case {
        int32_t raw, round, truncate, away, floor, ceil;
    } cases[] = {
        {0, 0, 0, 0, 0, 0},         {128, 1, 0, 1, 0, 1},       {-128, 0, 0, -1, -1, 0},
        {-129, -1, 0, -1, -1, 0},   {-255, -1, 0, -1, -1, 0},   {-1, 0, 0, -1, -1, 0},
        {1, 0, 0, 1, 0, 1},         {127, 0, 0, 1, 0, 1},       {256, 1, 1, 1, 1, 1},
        {-256, -1, -1, -1, -1, -1}, {-384, -1, -1, -2, -2, -1}, {640, 3, 2, 3, 2, 3},
    };
    for (const auto& c : cases) {
        const CFixedx248 f = Raw(c.raw);
        SCOPED_TRACE(c.raw);
        EXPECT_EQ(f.Round(), c.round);
        EXPECT_EQ(f.ToLong(), c.round);
        EXPECT_EQ(f.Truncate(), c.truncate);
        EXPECT_EQ(f.RoundAway(), c.away);
        EXPECT_EQ(f.Floor(), c.floor);
        EXPECT_EQ(f.Ceil(), c.ceil);
        EXPECT_EQ(f.RoundFixed().Raw(), c.round * 256);
        EXPECT_EQ(f.TruncateFixed().Raw(), c.truncate * 256);
        EXPECT_EQ(f.RoundAwayFixed().Raw(), c.away * 256);
        EXPECT_EQ(f.FloorFixed().Raw(), c.floor * 256);
        EXPECT_EQ(f.CeilFixed().Raw(), c.ceil * 256);
    }
}

TEST(Fixedx248, DoublesRoundHalvesAwayFromZeroUnlikeRound) {
    EXPECT_EQ(CFixedx248(0.001953125).Raw(), 1);
    EXPECT_EQ(CFixedx248(-0.001953125).Raw(), -1);
    EXPECT_EQ(CFixedx248(1.5).Raw(), 384);
    EXPECT_EQ(CFixedx248(-2.0).Raw(), -512);
    CFixedx248 f(0);
    EXPECT_EQ(f.AssignDouble(0.5).Raw(), 128);
    EXPECT_EQ(f.Round(), 1);
    EXPECT_EQ(f.AssignLongDouble(-0.5).Raw(), -128);
    EXPECT_EQ(f.Round(), 0);
    EXPECT_DOUBLE_EQ(Raw(-384).ToDouble(), -1.5);
    EXPECT_FLOAT_EQ(Raw(64).ToFloat(), 0.25f);
    // Out of range doubles are held at the ends instead of being undefined.
    EXPECT_EQ(CFixedx248(1e12).Raw(), INT32_MAX);
}

TEST(Fixedx248, From16x16RoundsLikeRound) {
    CFixedx248 f;
    struct Case {
        int32_t v, raw;
    } cases[] = {{0x10000, 256}, {128, 1}, {127, 0}, {-128, 0}, {-129, -1}, {-0x18000, -384}};
    for (const auto& c : cases) {
        f.SetFrom16x16(c.v);
        EXPECT_EQ(f.Raw(), c.raw) << c.v;
    }
}

TEST(Fixedx248, ArithmeticThroughMulDiv) {
    EXPECT_EQ(Raw(100).MulInt(2).Raw(), 200);
    EXPECT_EQ(Raw(3).MulFixed(Raw(128)).Raw(), 2); // 1.5 rounds away from zero
    EXPECT_EQ(Raw(-3).MulFixed(Raw(128)).Raw(), -2);
    EXPECT_EQ(Raw(512).DivInt(4).Raw(), 128);
    EXPECT_EQ(Raw(256).DivFixed(Raw(0)).Raw(), -1); // a zero divisor gives -1/256
    EXPECT_EQ(Raw(256).DivLong(0).Raw(), -1);
    EXPECT_EQ(Raw(0x7FFFFF00).MulInt(4).Raw(), -1); // beyond 32 bits
    EXPECT_EQ(Raw(10).AddInt(1).Raw(), 266);
    EXPECT_EQ(Raw(10).SubFixed(Raw(20)).Raw(), -10);
    EXPECT_EQ(Raw(10).Negate().Raw(), -10);
    EXPECT_EQ(Raw(INT32_MAX).AddFixed(Raw(1)).Raw(), INT32_MIN); // wraps

    CFixedx248 f = Raw(256);
    f.AddAssignInt(1).MulAssignInt(3).SubAssignFixed(Raw(6)).DivAssignFixed(Raw(512));
    EXPECT_EQ(f.Raw(), 765); // (2 * 3 * 256 - 6) / 2
    EXPECT_EQ(CFixedx248::MulRaw(3, 128), 2);
    EXPECT_EQ(CFixedx248::DivRaw(1, 512), 1); // 0.5 rounds away from zero

    EXPECT_TRUE((Raw(255) < CFixedx248(1)));
    EXPECT_EQ(Raw(256).EqualInt(1), 1);
    EXPECT_EQ(Raw(257).GreaterInt(1), 1);
    EXPECT_EQ(Raw(-1).LessEqualInt(0), 1);
    EXPECT_EQ(Raw(-1).GreaterEqualInt(0), 0);
}

TEST(Fixedx248, PrintingParts) {
    struct Case {
        int32_t raw, whole, fraction;
        wchar_t sign;
    } cases[] = {{-384, 1, 128, L'-'}, {0, 0, 0, L' '},  {384, 1, 128, L' '},
                 {-256, 1, 0, L'-'},   {-1, 0, 1, L'-'}, {-255, 0, 255, L'-'}};
    for (const auto& c : cases) {
        const CFixedx248 f = Raw(c.raw);
        EXPECT_EQ(f.WholeMagnitude(), c.whole) << c.raw;
        EXPECT_EQ(f.FractionMagnitude(), c.fraction) << c.raw;
        EXPECT_EQ(f.SignChar(), c.sign) << c.raw;
    }
    EXPECT_EQ(Raw(-1).Fraction(), 255); // the floor-based fraction
}

TEST(Fixedx248, RectangleRoundedAwayAndOffset) {
    CRectx248 r;
    r.Set(Raw(100), Raw(-100), Raw(300), Raw(200));
    CRectx248 away;
    away.AssignRoundedAway(r);
    EXPECT_EQ(away.left.Raw(), 256); // a positive left edge moves right
    EXPECT_EQ(away.top.Raw(), -256);
    EXPECT_EQ(away.right.Raw(), 512);
    EXPECT_EQ(away.bottom.Raw(), 256);
    r.OffsetInt(1, -1);
    EXPECT_EQ(r.left.Raw(), 356);
    EXPECT_EQ(r.bottom.Raw(), -56);
    EXPECT_FALSE(r.IsEmpty());
    r.OffsetFixed(CFixedx248(0), Raw(-300));
    r.bottom = Raw(-700);
    EXPECT_TRUE(r.IsEmpty());
}

TEST(Fixedx248, IntersectOfRectangles) {
    struct Case {
        int32_t a[4], b[4], result, out[4];
    } cases[] = {
        {{0, 0, 10, 10}, {5, 5, 20, 20}, 1, {5, 5, 10, 10}},
        {{0, 0, 10, 10}, {10, 0, 20, 10}, 0, {0, 0, 0, 0}}, // touching
        {{0, 0, 10, 10}, {0, 10, 10, 20}, 0, {0, 0, 0, 0}},
        {{0, 0, 10, 10}, {2, 3, 4, 5}, 1, {2, 3, 4, 5}},
        {{-5, -5, 0, 0}, {-10, -2, 10, 10}, 1, {-5, -2, 0, 0}},
    };
    for (const auto& c : cases) {
        CRectx248 a, b, r;
        a.Set(c.a[0], c.a[1], c.a[2], c.a[3]);
        b.Set(c.b[0], c.b[1], c.b[2], c.b[3]);
        EXPECT_EQ(r.Intersect(a, b), c.result);
        EXPECT_EQ(r.left.Raw(), c.out[0] * 256);
        EXPECT_EQ(r.top.Raw(), c.out[1] * 256);
        EXPECT_EQ(r.right.Raw(), c.out[2] * 256);
        EXPECT_EQ(r.bottom.Raw(), c.out[3] * 256);
        // The target may be one of the operands.
        EXPECT_EQ(a.Intersect(a, b), c.result);
        EXPECT_EQ(a.right.Raw(), c.out[2] * 256);
        EXPECT_EQ(a.bottom.Raw(), c.out[3] * 256);

        CRect ia(c.a[0], c.a[1], c.a[2], c.a[3]), ib(c.b[0], c.b[1], c.b[2], c.b[3]), ir;
        EXPECT_EQ(ir.Intersect(ia, ib), c.result == 1);
        EXPECT_TRUE(ir == CRect(c.out[0], c.out[1], c.out[2], c.out[3]));
    }
    CRect empty(3, 3, 3, 9), full(0, 0, 10, 10), out(1, 1, 2, 2);
    EXPECT_FALSE(out.Intersect(empty, full));
    EXPECT_TRUE(out == CRect());
}
