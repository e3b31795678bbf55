// Sub-pixel geometry of the image toolkit: a signed 24.8 fixed-point number, a point and
// a rectangle made of it, and the plain integer rectangle beside them. Edges held to
// 1/256 of a pixel give the raster stage the covered part of a pixel (0..255) as a
// weight.
//
// Every arithmetic operation of CFixedx248 is virtual, and points and rectangles reach
// their members only through those operations, so that a subclass can change the
// arithmetic of the whole family. The operators at the end of the class forward to them.
#pragma once

#include "kelpdefs.h"
#include "kxbih.h"

namespace stdfx {

// The integer rectangle (left and top inside, right and bottom one past).
struct KELP_API CRect : public KXRECT {
    CRect() : KXRECT{0, 0, 0, 0} {}
    CRect(int32_t l, int32_t t, int32_t r, int32_t b) : KXRECT{l, t, r, b} {}
    CRect(const KXRECT& r) : KXRECT(r) {}

    void Set(int32_t l, int32_t t, int32_t r, int32_t b);
    int32_t Width() const { return right - left; }
    int32_t Height() const { return bottom - top; }
    bool IsEmpty() const { return Width() < 1 || Height() < 1; }
    void Clear() { Set(0, 0, 0, 0); }
    void Offset(int32_t dx, int32_t dy);
    // The overlap of a and b, and true; when they do not overlap (touching is not
    // overlapping) this rectangle becomes all 0 and the answer is false. a or b may be
    // this rectangle itself.
    bool Intersect(const KXRECT& a, const KXRECT& b);
    bool operator==(const KXRECT& o) const;
    bool operator!=(const KXRECT& o) const { return !(*this == o); }
};

// A signed 24.8 fixed-point number: raw = value * 256. Range -8388608.0 to
// 8388607.99609375. Additions, subtractions and shifts wrap modulo 2^32; products and
// quotients go through os::MulDiv (rounded half away from zero; -1/256 for a zero
// divisor or a result beyond 32 bits).
class KELP_API CFixedx248 {
public:
    CFixedx248() {} // raw left unset
    CFixedx248(const CFixedx248& f) = default;
    CFixedx248(int32_t n);
    // Nearest 1/256, halves away from zero (unlike Round(), which rounds halves upward).
    CFixedx248(double d);
    virtual ~CFixedx248() = default;
    CFixedx248& operator=(const CFixedx248& f) = default;

    static CFixedx248 FromRaw(int32_t raw);

    // ---- virtual operations, in dispatch order
    virtual void SetFrom16x16(int32_t v);
    virtual CFixedx248& AssignLongDouble(double d);
    virtual CFixedx248& AssignDouble(double d);
    virtual CFixedx248& AssignLong(int32_t n);
    virtual CFixedx248& AssignInt(int32_t n);
    virtual CFixedx248& AssignFixed(const CFixedx248& f);
    virtual int32_t Round() const;     // to nearest, halves upward
    virtual int32_t Truncate() const;  // toward zero
    virtual int32_t RoundAway() const; // away from zero
    virtual CFixedx248 RoundFixed() const;
    virtual CFixedx248 TruncateFixed() const;
    virtual CFixedx248 RoundAwayFixed() const;
    virtual CFixedx248 FloorFixed() const;
    virtual CFixedx248 CeilFixed() const;
    virtual int32_t ToLong() const;
    virtual int32_t ToInt() const;
    virtual float ToFloat() const;
    virtual double ToLongDouble() const;
    virtual double ToDouble() const;
    virtual CFixedx248 SubLong(int32_t n) const;
    virtual CFixedx248 SubInt(int32_t n) const;
    virtual CFixedx248 SubFixed(const CFixedx248& f) const;
    virtual CFixedx248 Negate() const;
    virtual CFixedx248 AddLong(int32_t n) const;
    virtual CFixedx248 AddInt(int32_t n) const;
    virtual CFixedx248 AddFixed(const CFixedx248& f) const;
    virtual CFixedx248 MulLong(int32_t n) const;
    virtual CFixedx248 MulInt(int32_t n) const;
    virtual CFixedx248 MulFixed(const CFixedx248& f) const;
    virtual CFixedx248 DivLong(int32_t n) const;
    virtual CFixedx248 DivInt(int32_t n) const;
    virtual CFixedx248 DivFixed(const CFixedx248& f) const;
    virtual CFixedx248& AddAssignLong(int32_t n);
    virtual CFixedx248& AddAssignInt(int32_t n);
    virtual CFixedx248& AddAssignFixed(const CFixedx248& f);
    virtual CFixedx248& SubAssignLong(int32_t n);
    virtual CFixedx248& SubAssignInt(int32_t n);
    virtual CFixedx248& SubAssignFixed(const CFixedx248& f);
    virtual CFixedx248& MulAssignLong(int32_t n);
    virtual CFixedx248& MulAssignInt(int32_t n);
    virtual CFixedx248& MulAssignFixed(const CFixedx248& f);
    virtual CFixedx248& DivAssignLong(int32_t n);
    virtual CFixedx248& DivAssignInt(int32_t n);
    virtual CFixedx248& DivAssignFixed(const CFixedx248& f);
    virtual int LessInt(int32_t n) const;
    virtual int LessFixed(const CFixedx248& f) const;
    virtual int GreaterInt(int32_t n) const;
    virtual int GreaterFixed(const CFixedx248& f) const;
    virtual int LessEqualInt(int32_t n) const;
    virtual int LessEqualFixed(const CFixedx248& f) const;
    virtual int GreaterEqualInt(int32_t n) const;
    virtual int GreaterEqualFixed(const CFixedx248& f) const;
    virtual int EqualInt(int32_t n) const;
    virtual int EqualFixed(const CFixedx248& f) const;
    virtual int NotEqualInt(int32_t n) const;
    virtual int NotEqualFixed(const CFixedx248& f) const;
    // For printing: the whole and fractional (in 1/256) parts of the absolute value,
    // and '-' or a blank, never '+'.
    virtual int32_t WholeMagnitude() const;
    virtual int32_t FractionMagnitude() const;
    virtual wchar_t SignChar() const;

    // ---- non-virtual accessors
    int32_t Raw() const { return m_raw; }
    int32_t Floor() const { return m_raw >> 8; }
    int32_t Ceil() const { return int32_t(uint32_t(m_raw) + 255u) >> 8; }
    int32_t Fraction() const { return m_raw & 255; } // floor-based, also below 0
    static int32_t MulRaw(int32_t a, int32_t b);     // MulDiv(a, b, 256)
    static int32_t DivRaw(int32_t a, int32_t b);     // MulDiv(a, 256, b)

    // ---- operators, each forwarding to its virtual operation
    CFixedx248 operator+(const CFixedx248& f) const { return AddFixed(f); }
    CFixedx248 operator-(const CFixedx248& f) const { return SubFixed(f); }
    CFixedx248 operator*(const CFixedx248& f) const { return MulFixed(f); }
    CFixedx248 operator/(const CFixedx248& f) const { return DivFixed(f); }
    CFixedx248 operator-() const { return Negate(); }
    CFixedx248& operator+=(const CFixedx248& f) { return AddAssignFixed(f); }
    CFixedx248& operator-=(const CFixedx248& f) { return SubAssignFixed(f); }
    bool operator<(const CFixedx248& f) const { return LessFixed(f) != 0; }
    bool operator>(const CFixedx248& f) const { return GreaterFixed(f) != 0; }
    bool operator<=(const CFixedx248& f) const { return LessEqualFixed(f) != 0; }
    bool operator>=(const CFixedx248& f) const { return GreaterEqualFixed(f) != 0; }
    bool operator==(const CFixedx248& f) const { return EqualFixed(f) != 0; }
    bool operator!=(const CFixedx248& f) const { return NotEqualFixed(f) != 0; }

protected:
    int32_t m_raw;
};

class KELP_API CPointx248 {
public:
    CPointx248() {} // both raws left unset
    CPointx248(const CFixedx248& px, const CFixedx248& py) : x(px), y(py) {}
    CPointx248(const CPointx248& p) = default;
    virtual ~CPointx248() = default;
    CPointx248& operator=(const CPointx248& p) = default;

    virtual CPointx248& Assign(const CPointx248& p);
    virtual CPointx248& Set(const CFixedx248& px, const CFixedx248& py);
    virtual CPointx248& Set(int32_t px, int32_t py); // whole numbers

    CFixedx248 x;
    CFixedx248 y;
};

// right and bottom lie one past the rectangle; empty when left >= right or top >= bottom.
class KELP_API CRectx248 {
public:
    CRectx248() {} // raws left unset
    CRectx248(const CRectx248& r) = default;
    CRectx248(const KXRECT& r);
    virtual ~CRectx248() = default;
    CRectx248& operator=(const CRectx248& r) = default;

    virtual CRectx248& Assign(const KXRECT& r);
    virtual CRectx248& Assign(const CRectx248& r);
    // Each edge rounded away from zero: a positive left or top edge moves right or down,
    // so this is not an outward rounding of the rectangle.
    virtual CRectx248& AssignRoundedAway(const CRectx248& r);
    // The overlap of a and b, and 1; without an overlap (touching edges included) all
    // four edges become 0 and the answer is 0. a or b may be this rectangle.
    virtual int Intersect(const CRectx248& a, const CRectx248& b);

    bool IsEmpty() const;
    void Set(int32_t l, int32_t t, int32_t r, int32_t b);
    void Set(const CFixedx248& l, const CFixedx248& t, const CFixedx248& r, const CFixedx248& b);
    void Clear();
    void OffsetInt(int32_t dx, int32_t dy);
    void OffsetFixed(const CFixedx248& dx, const CFixedx248& dy);
    void Offset(const CPointx248& p);

    CFixedx248 left;
    CFixedx248 top;
    CFixedx248 right;
    CFixedx248 bottom;
};

} // namespace stdfx
