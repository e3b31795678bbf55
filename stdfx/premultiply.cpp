// Premultiply and Unpremultiply of CDIB: the colour bytes of a 32-bit image times its
// alpha, and back through the shared table of reciprocals, over all lines or one field.
#include <kelp/stdfx_dib.h>
#include <kelp/stdfx_tables.h>

#include "dibformat.h"
#include "dibrowspan.h"
#include "premultiplyrows.h"

namespace stdfx {

namespace {

enum class AlphaLayout { kNone, kPixels, k422 };

// Format 0 and "@YUV" 4:4:4 in one plane carry alpha in the fourth byte of a pixel;
// 32-bit 4:2:2 in its alpha plane.
AlphaLayout LayoutOf(const KXBMINFOHEADER* h) {
    if (h->biBitCount != 32 || h->biPlanes > 1) return AlphaLayout::kNone;
    if (h->biCompression == KXBI_RGB) return AlphaLayout::kPixels;
    if (h->biCompression == KXBI_YUV && Sampling(h) == KXYUV_SAMPLING_444)
        return AlphaLayout::kPixels;
    if (HasAlphaPlane(h)) return AlphaLayout::k422;
    return AlphaLayout::kNone;
}

void SetAlphaState(CDIB& dib, uint32_t state) {
    if (dib.GetHeaderSize() >= KXBMI_SIZE) dib.Header()->bmiAlpha = state;
}

// Runs the multiplication over the lines of the field; `recip` null premultiplies.
bool Multiply(CDIB& dib, int field, const int32_t* recip) {
    const KXBMINFOHEADER* h = dib.Header();
    const AlphaLayout layout = LayoutOf(h);
    if (layout == AlphaLayout::kNone) return false;
    RowSpan rows;
    if (!MakeRowSpan(dib, field, &rows)) return false;
    const premultiplyrows::Kernels& k = premultiplyrows::Current();
    const int32_t width = dib.Width();
    if (layout == AlphaLayout::kPixels) {
        for (int i = 0; i < rows.count; ++i) {
            uint8_t* row = rows.first + i * rows.step;
            if (recip)
                k.unpremultiply(row, width, recip);
            else
                k.premultiply(row, width);
        }
        return true;
    }
    RowSpan alpha;
    if (!MakeAlphaSpan(dib, field, &alpha) || alpha.count != rows.count) return false;
    const bool uyvy = Sampling(h) == KXYUV_SAMPLING_422B;
    for (int i = 0; i < rows.count; ++i) {
        uint8_t* row = rows.first + i * rows.step;
        const uint8_t* a = alpha.first + i * alpha.step;
        if (recip)
            k.unpremultiply422(row, a, width, uyvy, recip);
        else
            k.premultiply422(row, a, width, uyvy);
    }
    return true;
}

} // namespace

bool CDIB::Premultiply(int field) {
    if (!IsValid() || !MakeWritable()) return false;
    if (Header()->biBitCount != 32) return true; // only 32-bit images carry alpha
    if (Width() == 0 || Height() == 0) {
        SetAlphaState(*this, KXDIB_ALPHA_PREMULTIPLIED);
        return true;
    }
    if (!Multiply(*this, field, nullptr)) return false;
    SetAlphaState(*this, KXDIB_ALPHA_PREMULTIPLIED);
    return true;
}

bool CDIB::Unpremultiply(int field) {
    if (!IsValid() || !MakeWritable()) return false;
    if (Header()->biBitCount != 32) return false;
    if (Width() == 0 || Height() == 0) {
        SetAlphaState(*this, KXDIB_ALPHA_VALID);
        return true;
    }
    CTables* tables = GetTables();
    const int32_t* recip = tables ? tables->GetDiv24() : nullptr;
    if (!recip || !Multiply(*this, field, recip)) return false;
    SetAlphaState(*this, KXDIB_ALPHA_VALID);
    return true;
}

} // namespace stdfx
