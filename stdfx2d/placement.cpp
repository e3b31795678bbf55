// Where the scaled image lies in the target, in 24.8 fixed point. The image keeps the
// kind of lattice point it is centred on: a pixel border for an even source length, a
// pixel centre for an odd one, so that a picture scaled by 1.0 never shifts by half a
// pixel; what falls between whole pixels is kept as sub-pixel insets.
#include <cmath>

#include "runtime/kelpos.h"
#include "stdfx2d/fx2d.h"
#include "stdfx2d/fx2dformat.h"

namespace stdfx2d {

using stdfx::CFixedx248;
using stdfx::CRect;
using stdfx::CRectx248;

namespace {

// The extent of one axis: from lo to hi (raw), measured from the border of the first
// pixel the image touches.
void AxisExtent(double scale, int32_t length, int32_t* lo, int32_t* hi) {
    if ((length & 1) == 0) {
        const CFixedx248 v(scale * length * 0.5);
        *lo = 0;
        *hi = 2 * v.Truncate() * 256;
        const int32_t f = v.Raw() & 255;
        if (f > 0) {
            *hi += f + 256;
            *lo = 256 - f;
        }
        return;
    }
    const CFixedx248 v(scale * length);
    if (v.Raw() < 256) {
        *lo = 256 - (v.Raw() & 255);
        *hi = 256;
        return;
    }
    const double exact = std::trunc(scale * length * 256.0 + 0.5);
    const int32_t d = (int32_t(exact < 2147483647.0 ? exact : 2147483647.0) - 256) / 2;
    *lo = 0;
    *hi = (2 * (d / 256) + 1) * 256;
    const int32_t f = d & 255;
    if (f > 0) {
        *hi += f + 256;
        *lo = 256 - f;
    }
}

// The two edges of a length `inner` (raw) centred in `outer` whole pixels: the halving
// rounds a half raw unit away from zero on the low edge, the rest goes to the high one.
void Centre(int32_t outer, int32_t inner, CFixedx248* low, CFixedx248* high) {
    const CFixedx248 e = CFixedx248::FromRaw(outer * 256 - inner);
    const CFixedx248 q = e.DivInt(2);
    *low = q;
    *high = CFixedx248::FromRaw(outer * 256 - (e.Raw() - q.Raw()));
}

int32_t RoundHalfAway(double v) {
    const double r = std::round(v);
    if (!(r > -2147483648.0)) return INT32_MIN;
    if (!(r < 2147483647.0)) return INT32_MAX;
    return int32_t(r);
}

CRect TruncOut(const CRectx248& r) {
    return CRect(r.left.Truncate(), r.top.Truncate(), r.right.RoundAway(), r.bottom.RoundAway());
}

} // namespace

void CFx2d::ComputeGeometry() {
    if (m_sourceRect.IsEmpty()) {
        m_placedBounds.Clear();
        m_sourceClip.Clear();
        m_span.Clear();
        return;
    }
    m_sourceClip = m_sourceRect;
    const double sx = ScaleX(), sy = ScaleY();
    int32_t loX, hiX, loY, hiY;
    AxisExtent(sx, m_sourceRect.Width(), &loX, &hiX);
    AxisExtent(sy, m_sourceRect.Height(), &loY, &hiY);
    m_sizeRect.Set(CFixedx248::FromRaw(loX), CFixedx248::FromRaw(loY), CFixedx248::FromRaw(hiX),
                   CFixedx248::FromRaw(hiY));
    m_sizeBounds = TruncOut(m_sizeRect);

    // The anchor travels with the scaled image.
    CFixedx248 ax = CFixedx248::FromRaw(0), ay = CFixedx248::FromRaw(0);
    if (fx2dformat::HasExtension(m_source)) {
        ax = CFixedx248::FromRaw(m_source->bmiAnchorX);
        ay = CFixedx248::FromRaw(m_source->bmiAnchorY);
        ax.AssignDouble(ax.ToDouble() * sx);
        ay.AssignDouble(ay.ToDouble() * sy);
    }

    const int32_t tw = m_targetRect.Width(), th = m_targetRect.Height();
    CFixedx248 l, t, r, b;
    Centre(tw, m_sizeBounds.Width() * 256, &l, &r);
    Centre(th, m_sizeBounds.Height() * 256, &t, &b);
    m_centredRect.Set(l, t, r, b);
    Centre(tw, hiX - loX, &l, &r);
    Centre(th, hiY - loY, &t, &b);
    m_placedRect.Set(l, t, r, b);
    m_centredRect.OffsetFixed(ax, ay);
    m_placedRect.OffsetFixed(ax, ay);

    const CFixedx248 ox = CFixedx248::FromRaw(RoundHalfAway(tw * m_param.offsetX * 256.0));
    const CFixedx248 oy = CFixedx248::FromRaw(RoundHalfAway(th * m_param.offsetY * 256.0));
    const CFixedx248 dy = m_source->biHeight < 0 ? oy : CFixedx248::FromRaw(-oy.Raw());
    m_centredRect.OffsetFixed(ox, dy);
    m_placedRect.OffsetFixed(ox, dy);

    CRect covered;
    if (m_filter.Kind() == CFilter::kNearest) {
        m_placedBounds.Set(m_placedRect.left.Round(), m_placedRect.top.Round(),
                           m_placedRect.right.Round(), m_placedRect.bottom.Round());
        if (covered.Intersect(m_placedBounds, m_targetRect))
            covered.Offset(-m_placedBounds.left, -m_placedBounds.top);
    } else {
        m_placedBounds = TruncOut(m_placedRect);
        CRectx248 f;
        if (f.Intersect(m_placedRect, CRectx248(m_targetRect))) {
            f.OffsetInt(-(m_placedRect.left.Raw() >> 8), -(m_placedRect.top.Raw() >> 8));
            covered = TruncOut(f);
            if (covered.IsEmpty()) covered.Clear();
        }
    }
    m_placedRect.OffsetInt(-(m_placedRect.left.Raw() >> 8), -(m_placedRect.top.Raw() >> 8));
    m_imageBounds = TruncOut(m_placedRect);
    if (!m_span.Intersect(m_imageBounds, covered)) m_span.Clear();

    if (m_filter.Kind() == CFilter::kNearest) {
        const int32_t bw = m_sizeBounds.Width(), bh = m_sizeBounds.Height();
        const int32_t sw = m_sourceRect.Width(), sh = m_sourceRect.Height();
        if (bw <= 0 || bh <= 0) {
            m_sourceClip.Clear();
            return;
        }
        m_sourceClip.Set(
            kelp::os::MulDiv(m_span.left, sw, bw), kelp::os::MulDiv(m_span.top, sh, bh),
            kelp::os::MulDiv(m_span.right, sw, bw), kelp::os::MulDiv(m_span.bottom, sh, bh));
        // A rounded edge may fall one pixel beyond the source.
        if (!m_sourceClip.Intersect(m_sourceClip, m_sourceRect)) m_sourceClip.Clear();
    }
}

} // namespace stdfx2d
