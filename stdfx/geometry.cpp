// The 24.8 fixed-point number, point and rectangle, and the integer rectangle.
#include <kelp/stdfx_geometry.h>

#include <cstdlib>

#include "runtime/kelpos.h"

namespace stdfx {

namespace {

// 32-bit arithmetic that wraps, as the design relies on, without signed overflow.
int32_t Add(int32_t a, int32_t b) {
    return int32_t(uint32_t(a) + uint32_t(b));
}
int32_t Sub(int32_t a, int32_t b) {
    return int32_t(uint32_t(a) - uint32_t(b));
}
int32_t Whole(int32_t n) {
    return int32_t(uint32_t(n) << 8);
}

int32_t FromDouble(double d) {
    double v = d * 256.0;
    v = d >= 0 ? v + 0.5 : v - 0.5;
    // Truncation toward zero to 32 bits; a value outside the range has no defined
    // conversion in C++, so it is cut to the range first.
    if (!(v > -2147483649.0)) return INT32_MIN;
    if (!(v < 2147483648.0)) return INT32_MAX;
    return int32_t(v);
}

} // namespace

// ---------------------------------------------------------------- integer rectangle

void CRect::Set(int32_t l, int32_t t, int32_t r, int32_t b) {
    left = l;
    top = t;
    right = r;
    bottom = b;
}

void CRect::Offset(int32_t dx, int32_t dy) {
    left = Add(left, dx);
    right = Add(right, dx);
    top = Add(top, dy);
    bottom = Add(bottom, dy);
}

bool CRect::Intersect(const KXRECT& a, const KXRECT& b) {
    const CRect ra(a), rb(b);
    if (ra.IsEmpty() || rb.IsEmpty() ||
        !(a.left < b.right && a.right > b.left && a.top < b.bottom && a.bottom > b.top)) {
        Clear();
        return false;
    }
    Set(a.left > b.left ? a.left : b.left, a.top > b.top ? a.top : b.top,
        a.right < b.right ? a.right : b.right, a.bottom < b.bottom ? a.bottom : b.bottom);
    return true;
}

bool CRect::operator==(const KXRECT& o) const {
    return left == o.left && top == o.top && right == o.right && bottom == o.bottom;
}

// ---------------------------------------------------------------- CFixedx248

CFixedx248::CFixedx248(int32_t n) : m_raw(Whole(n)) {}
CFixedx248::CFixedx248(double d) : m_raw(FromDouble(d)) {}

CFixedx248 CFixedx248::FromRaw(int32_t raw) {
    CFixedx248 f;
    f.m_raw = raw;
    return f;
}

int32_t CFixedx248::MulRaw(int32_t a, int32_t b) {
    return kelp::os::MulDiv(a, b, 256);
}
int32_t CFixedx248::DivRaw(int32_t a, int32_t b) {
    return kelp::os::MulDiv(a, 256, b);
}

void CFixedx248::SetFrom16x16(int32_t v) {
    m_raw = v >= 0 ? Add(v, 128) >> 8 : -(Sub(127, v) >> 8);
}
CFixedx248& CFixedx248::AssignLongDouble(double d) {
    m_raw = FromDouble(d);
    return *this;
}
CFixedx248& CFixedx248::AssignDouble(double d) {
    m_raw = FromDouble(d);
    return *this;
}
CFixedx248& CFixedx248::AssignLong(int32_t n) {
    m_raw = Whole(n);
    return *this;
}
CFixedx248& CFixedx248::AssignInt(int32_t n) {
    m_raw = Whole(n);
    return *this;
}
CFixedx248& CFixedx248::AssignFixed(const CFixedx248& f) {
    m_raw = f.m_raw;
    return *this;
}

// The negative branches negate a shifted word that is at most 2^23 in size, so the
// negation never overflows.
int32_t CFixedx248::Round() const {
    return m_raw >= 0 ? Add(m_raw, 128) >> 8 : -(Sub(127, m_raw) >> 8);
}
int32_t CFixedx248::Truncate() const {
    return m_raw >= 0 ? m_raw >> 8 : -(int32_t(0u - uint32_t(m_raw)) >> 8);
}
int32_t CFixedx248::RoundAway() const {
    return m_raw >= 0 ? Add(m_raw, 255) >> 8 : -(Sub(255, m_raw) >> 8);
}
CFixedx248 CFixedx248::RoundFixed() const {
    return FromRaw(Whole(Round()));
}
CFixedx248 CFixedx248::TruncateFixed() const {
    return FromRaw(Whole(Truncate()));
}
CFixedx248 CFixedx248::RoundAwayFixed() const {
    return FromRaw(Whole(RoundAway()));
}
CFixedx248 CFixedx248::FloorFixed() const {
    return FromRaw(int32_t(uint32_t(m_raw) & 0xFFFFFF00u));
}
CFixedx248 CFixedx248::CeilFixed() const {
    return FromRaw(int32_t((uint32_t(m_raw) + 255u) & 0xFFFFFF00u));
}
int32_t CFixedx248::ToLong() const {
    return Round();
}
int32_t CFixedx248::ToInt() const {
    return Round();
}
float CFixedx248::ToFloat() const {
    return float(m_raw * 0.00390625);
}
double CFixedx248::ToLongDouble() const {
    return m_raw * 0.00390625;
}
double CFixedx248::ToDouble() const {
    return m_raw * 0.00390625;
}

CFixedx248 CFixedx248::SubLong(int32_t n) const {
    return FromRaw(Sub(m_raw, Whole(n)));
}
CFixedx248 CFixedx248::SubInt(int32_t n) const {
    return FromRaw(Sub(m_raw, Whole(n)));
}
CFixedx248 CFixedx248::SubFixed(const CFixedx248& f) const {
    return FromRaw(Sub(m_raw, f.m_raw));
}
CFixedx248 CFixedx248::Negate() const {
    return FromRaw(Sub(0, m_raw));
}
CFixedx248 CFixedx248::AddLong(int32_t n) const {
    return FromRaw(Add(m_raw, Whole(n)));
}
CFixedx248 CFixedx248::AddInt(int32_t n) const {
    return FromRaw(Add(m_raw, Whole(n)));
}
CFixedx248 CFixedx248::AddFixed(const CFixedx248& f) const {
    return FromRaw(Add(m_raw, f.m_raw));
}
CFixedx248 CFixedx248::MulLong(int32_t n) const {
    return FromRaw(MulRaw(m_raw, Whole(n)));
}
CFixedx248 CFixedx248::MulInt(int32_t n) const {
    return FromRaw(MulRaw(m_raw, Whole(n)));
}
CFixedx248 CFixedx248::MulFixed(const CFixedx248& f) const {
    return FromRaw(MulRaw(m_raw, f.m_raw));
}
CFixedx248 CFixedx248::DivLong(int32_t n) const {
    return FromRaw(DivRaw(m_raw, Whole(n)));
}
CFixedx248 CFixedx248::DivInt(int32_t n) const {
    return FromRaw(DivRaw(m_raw, Whole(n)));
}
CFixedx248 CFixedx248::DivFixed(const CFixedx248& f) const {
    return FromRaw(DivRaw(m_raw, f.m_raw));
}

CFixedx248& CFixedx248::AddAssignLong(int32_t n) {
    m_raw = Add(m_raw, Whole(n));
    return *this;
}
CFixedx248& CFixedx248::AddAssignInt(int32_t n) {
    m_raw = Add(m_raw, Whole(n));
    return *this;
}
CFixedx248& CFixedx248::AddAssignFixed(const CFixedx248& f) {
    m_raw = Add(m_raw, f.m_raw);
    return *this;
}
CFixedx248& CFixedx248::SubAssignLong(int32_t n) {
    m_raw = Sub(m_raw, Whole(n));
    return *this;
}
CFixedx248& CFixedx248::SubAssignInt(int32_t n) {
    m_raw = Sub(m_raw, Whole(n));
    return *this;
}
CFixedx248& CFixedx248::SubAssignFixed(const CFixedx248& f) {
    m_raw = Sub(m_raw, f.m_raw);
    return *this;
}
CFixedx248& CFixedx248::MulAssignLong(int32_t n) {
    m_raw = MulRaw(m_raw, Whole(n));
    return *this;
}
CFixedx248& CFixedx248::MulAssignInt(int32_t n) {
    m_raw = MulRaw(m_raw, Whole(n));
    return *this;
}
CFixedx248& CFixedx248::MulAssignFixed(const CFixedx248& f) {
    m_raw = MulRaw(m_raw, f.m_raw);
    return *this;
}
CFixedx248& CFixedx248::DivAssignLong(int32_t n) {
    m_raw = DivRaw(m_raw, Whole(n));
    return *this;
}
CFixedx248& CFixedx248::DivAssignInt(int32_t n) {
    m_raw = DivRaw(m_raw, Whole(n));
    return *this;
}
CFixedx248& CFixedx248::DivAssignFixed(const CFixedx248& f) {
    m_raw = DivRaw(m_raw, f.m_raw);
    return *this;
}

int CFixedx248::LessInt(int32_t n) const {
    return m_raw < Whole(n);
}
int CFixedx248::LessFixed(const CFixedx248& f) const {
    return m_raw < f.m_raw;
}
int CFixedx248::GreaterInt(int32_t n) const {
    return m_raw > Whole(n);
}
int CFixedx248::GreaterFixed(const CFixedx248& f) const {
    return m_raw > f.m_raw;
}
int CFixedx248::LessEqualInt(int32_t n) const {
    return m_raw <= Whole(n);
}
int CFixedx248::LessEqualFixed(const CFixedx248& f) const {
    return m_raw <= f.m_raw;
}
int CFixedx248::GreaterEqualInt(int32_t n) const {
    return m_raw >= Whole(n);
}
int CFixedx248::GreaterEqualFixed(const CFixedx248& f) const {
    return m_raw >= f.m_raw;
}
int CFixedx248::EqualInt(int32_t n) const {
    return m_raw == Whole(n);
}
int CFixedx248::EqualFixed(const CFixedx248& f) const {
    return m_raw == f.m_raw;
}
int CFixedx248::NotEqualInt(int32_t n) const {
    return m_raw != Whole(n);
}
int CFixedx248::NotEqualFixed(const CFixedx248& f) const {
    return m_raw != f.m_raw;
}

int32_t CFixedx248::WholeMagnitude() const {
    if (m_raw >= 0) return m_raw >> 8;
    if (m_raw & 255) return std::abs((m_raw >> 8) + 1);
    return std::abs(m_raw >> 8);
}
int32_t CFixedx248::FractionMagnitude() const {
    if (m_raw >= 0) return m_raw & 255;
    return (m_raw & 255) ? 256 - (m_raw & 255) : 0;
}
wchar_t CFixedx248::SignChar() const {
    return m_raw < 0 ? L'-' : L' ';
}

// ---------------------------------------------------------------- CPointx248

CPointx248& CPointx248::Assign(const CPointx248& p) {
    x.AssignFixed(p.x);
    y.AssignFixed(p.y);
    return *this;
}
CPointx248& CPointx248::Set(const CFixedx248& px, const CFixedx248& py) {
    x.AssignFixed(px);
    y.AssignFixed(py);
    return *this;
}
CPointx248& CPointx248::Set(int32_t px, int32_t py) {
    x.AssignInt(px);
    y.AssignInt(py);
    return *this;
}

// ---------------------------------------------------------------- CRectx248

CRectx248::CRectx248(const KXRECT& r)
    : left(r.left), top(r.top), right(r.right), bottom(r.bottom) {}

CRectx248& CRectx248::Assign(const KXRECT& r) {
    left.AssignInt(r.left);
    top.AssignInt(r.top);
    right.AssignInt(r.right);
    bottom.AssignInt(r.bottom);
    return *this;
}
CRectx248& CRectx248::Assign(const CRectx248& r) {
    left.AssignFixed(r.left);
    top.AssignFixed(r.top);
    right.AssignFixed(r.right);
    bottom.AssignFixed(r.bottom);
    return *this;
}
CRectx248& CRectx248::AssignRoundedAway(const CRectx248& r) {
    left.AssignFixed(r.left.RoundAwayFixed());
    top.AssignFixed(r.top.RoundAwayFixed());
    right.AssignFixed(r.right.RoundAwayFixed());
    bottom.AssignFixed(r.bottom.RoundAwayFixed());
    return *this;
}

int CRectx248::Intersect(const CRectx248& a, const CRectx248& b) {
    // The horizontal edges are written before the vertical ones are read; the axes do
    // not mix, so a or b may be this rectangle.
    left.AssignFixed(a.left.GreaterFixed(b.left) ? a.left : b.left);
    right.AssignFixed(a.right.LessFixed(b.right) ? a.right : b.right);
    if (left.LessFixed(right)) {
        top.AssignFixed(a.top.GreaterFixed(b.top) ? a.top : b.top);
        bottom.AssignFixed(a.bottom.LessFixed(b.bottom) ? a.bottom : b.bottom);
        if (top.LessFixed(bottom)) return 1;
    }
    Clear();
    return 0;
}

bool CRectx248::IsEmpty() const {
    return left.GreaterEqualFixed(right) || top.GreaterEqualFixed(bottom);
}
void CRectx248::Set(int32_t l, int32_t t, int32_t r, int32_t b) {
    left.AssignInt(l);
    top.AssignInt(t);
    right.AssignInt(r);
    bottom.AssignInt(b);
}
void CRectx248::Set(const CFixedx248& l, const CFixedx248& t, const CFixedx248& r,
                    const CFixedx248& b) {
    left.AssignFixed(l);
    top.AssignFixed(t);
    right.AssignFixed(r);
    bottom.AssignFixed(b);
}
void CRectx248::Clear() {
    Set(0, 0, 0, 0);
}
void CRectx248::OffsetInt(int32_t dx, int32_t dy) {
    left.AddAssignInt(dx);
    right.AddAssignInt(dx);
    top.AddAssignInt(dy);
    bottom.AddAssignInt(dy);
}
void CRectx248::OffsetFixed(const CFixedx248& dx, const CFixedx248& dy) {
    left.AddAssignFixed(dx);
    right.AddAssignFixed(dx);
    top.AddAssignFixed(dy);
    bottom.AddAssignFixed(dy);
}
void CRectx248::Offset(const CPointx248& p) {
    OffsetFixed(p.x, p.y);
}

} // namespace stdfx
