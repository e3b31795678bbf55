// The four translators: their singletons, tables, single colours and whole images.
#include <kelp/stdfx_tables.h>
#include <kelp/stdfx_translate.h>

#include <vector>

#include "dibformat.h"
#include "dibrowspan.h"
#include "rowkernels.h"
#include "singleton.h"
#include "translaterows.h"

namespace stdfx {

namespace {

Singleton<CRGB2YUV> g_rgb2yuv;
Singleton<CYUV2RGB> g_yuv2rgb;
Singleton<CRGB2RGB> g_rgb2rgb;
Singleton<CYUV2YUV> g_yuv2yuv;

int32_t* NewInts(size_t count) {
    return static_cast<int32_t*>(kelp::NewAlloc(count * sizeof(int32_t), kelp::nothrow));
}

bool Publish(std::atomic<int32_t*>& slot, int32_t* table) {
    if (!table) return false;
    int32_t* expected = nullptr;
    if (!slot.compare_exchange_strong(expected, table, std::memory_order_acq_rel))
        kelp::NewFree(table);
    return true;
}

const int32_t* Ready(const std::atomic<int32_t*>& slot) {
    return slot.load(std::memory_order_acquire);
}

// Nine rows of factor * i + constant.
bool FillRgbTable(std::atomic<int32_t*>& slot, const int32_t factor[9], const int32_t add[9]) {
    int32_t* t = NewInts(CRGB2YUV::kTableSize);
    if (!t) return false;
    for (int row = 0; row < 9; ++row)
        for (int32_t i = 0; i < 256; ++i)
            t[row * 256 + i] = factor[row] * i + add[row];
    return Publish(slot, t);
}

// The storage of one side of a translation; None for what the translators do not take.
RowLayout LayoutOf(const KXBMINFOHEADER* h) {
    if (h->biPlanes > 1) return RowLayout::None;
    switch (h->biCompression) {
    case KXBI_RGB:
        return h->biBitCount == 24   ? RowLayout::Bgr24
               : h->biBitCount == 32 ? RowLayout::Bgra32
                                     : RowLayout::None;
    case KXBI_RGBZ:
        return h->biBitCount == 32 ? RowLayout::BgraZ : RowLayout::None;
    case KXBI_YUVZ:
        return h->biBitCount == 32 && Sampling(h) == KXYUV_SAMPLING_444 ? RowLayout::YuvZ
                                                                        : RowLayout::None;
    case KXBI_YUV:
        switch (Sampling(h)) {
        case KXYUV_SAMPLING_444:
            return h->biBitCount == 24   ? RowLayout::Yuv444_24
                   : h->biBitCount == 32 ? RowLayout::Yuv444_32
                                         : RowLayout::None;
        case KXYUV_SAMPLING_422:
            return h->biBitCount == 16 || h->biBitCount == 32 ? RowLayout::Yuyv : RowLayout::None;
        case KXYUV_SAMPLING_422B:
            return h->biBitCount == 16 || h->biBitCount == 32 ? RowLayout::Uyvy : RowLayout::None;
        default:
            return RowLayout::None;
        }
    default:
        return RowLayout::None;
    }
}

// One line of an image by display line.
struct Line {
    uint8_t* row;
    uint8_t* alpha;
};

Line LineOf(const CDIB& dib, int displayLine) {
    const int m = MemoryLine(dib, displayLine);
    uint8_t* bits = static_cast<uint8_t*>(dib.Bits());
    uint8_t* plane = dib.GetAlphaPlane();
    return {bits + ptrdiff_t(m) * dib.Stride(),
            plane ? plane + ptrdiff_t(m) * dib.GetAlphaStride() : nullptr};
}

// The colour step between reading the source row and writing the target row.
struct ColourStep {
    enum Kind { Copy, ToYuv, ToRgb } kind = Copy;
    rowkernels::ColourTables tables = {nullptr, nullptr, false, false};
};

// Every line of the field, through the canonical form.
bool Translate(CDIB& target, const CDIB& source, int field, RowLayout to, RowLayout from,
               const ColourStep& step) {
    RowSpan t, s;
    if (!MakeRowSpan(target, -1, &t) || !MakeRowSpan(source, -1, &s)) return false;
    const int width = target.Width(), height = target.Height();
    std::vector<uint8_t> a(size_t(width) * 4), b(size_t(width) * 4);
    std::vector<uint32_t> depth(size_t(width), kPlainDepthBits);
    const int first = field == -1 ? 0 : (field & 1);
    const int lineStep = field == -1 ? 1 : 2;
    // Rows already in the canonical form (32-bit BGRA or Y U V A) are read and written
    // where they stand.
    const bool readInPlace = from == RowLayout::Bgra32 || from == RowLayout::Yuv444_32;
    const bool writeInPlace = to == RowLayout::Bgra32 || to == RowLayout::Yuv444_32;
    const rowkernels::Kernels& kernels = rowkernels::Current();
    for (int y = first; y < height; y += lineStep) {
        const Line in = LineOf(source, y), out = LineOf(target, y);
        const uint8_t* pixels = in.row;
        if (!readInPlace) {
            plain::ReadRow(from, in.row, in.alpha, width, a.data(), depth.data());
            pixels = a.data();
        }
        if (step.kind != ColourStep::Copy) {
            uint8_t* converted = writeInPlace ? out.row : b.data();
            (step.kind == ColourStep::ToYuv ? kernels.bgraToYuva : kernels.yuvaToBgra)(
                pixels, converted, width, step.tables);
            if (writeInPlace) continue;
            pixels = converted;
        }
        plain::WriteRow(to, pixels, depth.data(), width, out.row, out.alpha);
    }
    return true;
}

bool SameSize(const CDIB& a, const CDIB& b) {
    return a.Width() == b.Width() && a.Height() == b.Height();
}

bool TwoFields(const CDIB& dib) {
    const KXBMINFOHEADER* h = dib.Header();
    return h->biSize >= KXBMI_SIZE && (h->bmiFormat & KXBMIFORMAT_TWOFIELDS);
}

// The common refusals of a whole-image translation; `done` is set where the answer is
// true without work.
bool Admit(CDIB& target, const CDIB& source, bool* done) {
    *done = false;
    if (!target.IsValid() || !source.IsValid() || !SameSize(target, source)) return false;
    if (target.Width() <= 0 || target.Height() == 0) {
        *done = true;
        return true;
    }
    return true;
}

} // namespace

void DestroyTranslators() {
    g_rgb2yuv.Destroy();
    g_yuv2rgb.Destroy();
    g_rgb2rgb.Destroy();
    g_yuv2yuv.Destroy();
}

CRGB2YUV* GetRGB2YUV() {
    return g_rgb2yuv.Get();
}
CYUV2RGB* GetYUV2RGB() {
    return g_yuv2rgb.Get();
}
CRGB2RGB* GetRGB2RGB() {
    return g_rgb2rgb.Get();
}
CYUV2YUV* GetYUV2YUV() {
    return g_yuv2yuv.Get();
}

// ---------------------------------------------------------------- CRGB2YUV

CRGB2YUV::~CRGB2YUV() {
    kelp::NewFree(m_pTableFull.load());
    kelp::NewFree(m_pTableLimited.load());
}

const int32_t* CRGB2YUV::GetTable(int colorSpace) {
    if (colorSpace == 1) {
        if (!Ready(m_pTableFull)) FillTableFull();
        return Ready(m_pTableFull);
    }
    if (!Ready(m_pTableLimited)) FillTableLimited();
    return Ready(m_pTableLimited);
}

bool CRGB2YUV::FillTableFull() {
    static const int32_t f[9] = {19595, 38470, 7471, -11059, -21709, 32768, 32768, -27439, -5329};
    static const int32_t a[9] = {0, 0, 0x8000, 0, 0, 0x807FFF, 0x807FFF, 0, 0};
    return FillRgbTable(m_pTableFull, f, a);
}

// The limited table has its own constants: 0x108000 on B to Y, and the Cr constant on
// R to Cr.
bool CRGB2YUV::FillTableLimited() {
    static const int32_t f[9] = {16819, 33028, 6437, -9708, -19065, 28773, 28792, -24096, -4696};
    static const int32_t a[9] = {0, 0, 0x108000, 0, 0, 0x807FFF, 0x807FFF, 0, 0};
    return FillRgbTable(m_pTableLimited, f, a);
}

bool CRGB2YUV::RGBToYUV(int* y, int* u, int* v, int colorSpace, uint32_t argb) {
    const int32_t* t = GetTable(colorSpace);
    if (!t) return false;
    const int r = (argb >> 16) & 255, g = (argb >> 8) & 255, b = argb & 255;
    auto limit = [](int32_t x, int32_t lo, int32_t hi) { return x < lo ? lo : x > hi ? hi : x; };
    *y = limit((t[r] + t[256 + g] + t[512 + b]) >> 16, 16, 235);
    *u = limit((t[768 + r] + t[1024 + g] + t[1280 + b]) >> 16, 16, 240);
    *v = limit((t[1536 + r] + t[1792 + g] + t[2048 + b]) >> 16, 16, 240);
    return true;
}

bool CRGB2YUV::PackRGBToYUV(uint32_t* yuv, int colorSpace, uint32_t argb) {
    int y, u, v;
    if (!RGBToYUV(&y, &u, &v, colorSpace, argb)) return false;
    *yuv = uint32_t(y) | (uint32_t(u) << 8) | (uint32_t(v) << 16) | (argb & 0xFF000000u);
    return true;
}

bool CRGB2YUV::Convert(CDIB& target, const CDIB& source, int field) {
    return ConvertImage(target, source, field);
}

bool CRGB2YUV::ConvertImage(CDIB& target, const CDIB& source, int field) {
    bool done;
    if (!Admit(target, source, &done)) return false;
    if (done) return true;
    const KXBMINFOHEADER* th = target.Header();
    const KXBMINFOHEADER* sh = source.Header();
    if (!IsYuvFormat(th->biCompression) || YuvBits(th) != 8 || sh->biBitCount > 32) return false;
    if (TwoFields(target) || TwoFields(source)) return true;
    const RowLayout to = LayoutOf(th), from = LayoutOf(sh);
    if (to == RowLayout::None || from == RowLayout::None || IsYuvLayout(from)) return false;
    CTables* tables = GetTables();
    ColourStep step;
    step.kind = ColourStep::ToYuv;
    const int32_t* table = GetTable(int(ColorSpace(th)));
    const int32_t* clamp = tables ? tables->GetClampC() : nullptr;
    if (!table || !clamp) return false;
    step.tables = {table, clamp, false,
                   rowkernels::LinearRows(table, 9) && rowkernels::StandardClamp(clamp, 16, 240) &&
                       rowkernels::RowSumsWithin(table, 0, -256, 511) &&
                       rowkernels::RowSumsWithin(table, 3, -256, 511) &&
                       rowkernels::RowSumsWithin(table, 6, -256, 511)};
    return Translate(target, source, field, to, from, step);
}

// ---------------------------------------------------------------- CYUV2RGB

CYUV2RGB::~CYUV2RGB() {
    kelp::NewFree(m_pLimit.load());
    kelp::NewFree(m_pTableFull.load());
    kelp::NewFree(m_pTable601.load());
    kelp::NewFree(m_pTable709.load());
}

const int32_t* CYUV2RGB::GetTable(int colorSpace) {
    if (colorSpace == 1) {
        if (!Ready(m_pTableFull)) FillTableFull();
        return Ready(m_pTableFull);
    }
    if (colorSpace == 2) {
        if (!Ready(m_pTable709)) FillTable709();
        return Ready(m_pTable709);
    }
    if (!Ready(m_pTable601)) FillTable601();
    return Ready(m_pTable601);
}

const int32_t* CYUV2RGB::GetLimit() {
    if (!Ready(m_pLimit)) FillLimit();
    return Ready(m_pLimit);
}

bool CYUV2RGB::FillLimit() {
    int32_t* t = NewInts(768);
    if (!t) return false;
    for (int i = 0; i < 768; ++i)
        t[i] = i < 256 ? 0 : i < 512 ? i - 256 : 255;
    return Publish(m_pLimit, t);
}

namespace {
// Rows Y, V to R, U to B, V to G, U to G, each factor * c (c = i - 128 for the colour
// rows, i for Y) plus a constant.
bool FillYuvTable(std::atomic<int32_t*>& slot, const int32_t factor[5], int32_t yAdd) {
    int32_t* t = NewInts(CYUV2RGB::kTableSize);
    if (!t) return false;
    for (int32_t i = 0; i < 256; ++i) {
        t[i] = factor[0] * i + yAdd;
        for (int row = 1; row < 5; ++row)
            t[row * 256 + i] = factor[row] * (i - 128);
    }
    return Publish(slot, t);
}
} // namespace

bool CYUV2RGB::FillTableFull() {
    static const int32_t f[5] = {65536, 91895, 116064, -46825, -22649};
    return FillYuvTable(m_pTableFull, f, 0x8000);
}

bool CYUV2RGB::FillTable601() {
    static const int32_t f[5] = {76309, 105162, 132376, -53877, -25885};
    return FillYuvTable(m_pTable601, f, 0x8000);
}

// BT.709 from its coefficients, each rounded as trunc(x + 0.5), with the small
// corrections the table has always had.
bool CYUV2RGB::FillTable709() {
    int32_t* t = NewInts(kTableSize);
    if (!t) return false;
    for (int32_t i = 0; i < 256; ++i) {
        const double c = i - 128;
        t[i] = int32_t(i * 256.0 / 220.0 * 65536.0 + 0.5) + 0x8000;
        t[256 + i] = int32_t(403.1488 * c / 225.0 * 65536.0 + 0.5) - 2;
        t[512 + i] = int32_t(475.0336 * c / 225.0 * 65536.0 + 0.5) - 2;
        t[768 + i] = int32_t(-119.8336 * c / 225.0 * 65536.0 + 0.5);
        t[1024 + i] = int32_t(-47.9488 * c / 225.0 * 65536.0 + 0.5) - 1;
    }
    return Publish(m_pTable709, t);
}

bool CYUV2RGB::Convert(CDIB& target, const CDIB& source, int field) {
    return ConvertImage(target, source, field);
}

bool CYUV2RGB::ConvertImage(CDIB& target, const CDIB& source, int field) {
    bool done;
    if (!Admit(target, source, &done)) return false;
    if (done) return true;
    const KXBMINFOHEADER* th = target.Header();
    const KXBMINFOHEADER* sh = source.Header();
    if (!IsYuvFormat(sh->biCompression) || YuvBits(sh) != 8 || th->biBitCount > 32) return false;
    if (TwoFields(target) || TwoFields(source)) return false;
    const RowLayout to = LayoutOf(th), from = LayoutOf(sh);
    if (to == RowLayout::None || from == RowLayout::None || IsYuvLayout(to)) return false;
    const int cs = int(ColorSpace(sh));
    ColourStep step;
    step.kind = ColourStep::ToRgb;
    const int32_t* table = GetTable(cs);
    const int32_t* limit = GetLimit();
    if (!table || !limit) return false;
    step.tables = {table, limit, cs != 1,
                   rowkernels::LinearRows(table, 5) && rowkernels::StandardClamp(limit, 0, 255)};
    if (!Translate(target, source, field, to, from, step)) return false;
    if (th->biSize >= KXBMI_SIZE) target.Header()->bmiAlpha = KXDIB_ALPHA_PREMULTIPLIED;
    return true;
}

// ---------------------------------------------------------------- CRGB2RGB, CYUV2YUV

namespace {

// The same family on both sides, a target of format `toFormat`, a source of
// `fromFormat`, 8-bit YUV where YUV: then row by row through the canonical form.
bool Restore(CDIB& target, const CDIB& source, int field, uint32_t toFormat, uint32_t fromFormat) {
    bool done;
    if (!Admit(target, source, &done)) return false;
    if (done) return true;
    const KXBMINFOHEADER* th = target.Header();
    const KXBMINFOHEADER* sh = source.Header();
    if (th->biCompression != toFormat || sh->biCompression != fromFormat) return false;
    if (IsYuvFormat(toFormat) && (YuvBits(th) != 8 || YuvBits(sh) != 8)) return false;
    const RowLayout to = LayoutOf(th), from = LayoutOf(sh);
    if (to == RowLayout::None || from == RowLayout::None) return false;
    return Translate(target, source, field, to, from, ColourStep());
}

} // namespace

bool CRGB2RGB::Convert(CDIB& target, const CDIB& source, int field) {
    const uint32_t to = target.Format(), from = source.Format();
    if (from == KXBI_RGB && to == KXBI_RGB) return ConvertPlain(target, source, field);
    if (from == KXBI_RGB && to == KXBI_RGBZ) return ConvertToZ(target, source, field);
    if (from == KXBI_RGBZ && to == KXBI_RGB) return ConvertFromZ(target, source, field);
    return false;
}

bool CRGB2RGB::ConvertPlain(CDIB& target, const CDIB& source, int field) {
    return Restore(target, source, field, KXBI_RGB, KXBI_RGB);
}
bool CRGB2RGB::ConvertToZ(CDIB& target, const CDIB& source, int field) {
    return Restore(target, source, field, KXBI_RGBZ, KXBI_RGB);
}
bool CRGB2RGB::ConvertFromZ(CDIB& target, const CDIB& source, int field) {
    return Restore(target, source, field, KXBI_RGB, KXBI_RGBZ);
}

bool CYUV2YUV::Convert(CDIB& target, const CDIB& source, int field) {
    const uint32_t to = target.Format(), from = source.Format();
    if (from == KXBI_YUV && to == KXBI_YUV) return ConvertPlain(target, source, field);
    if (from == KXBI_YUV && to == KXBI_YUVZ) return ConvertToZ(target, source, field);
    if (from == KXBI_YUVZ && to == KXBI_YUV) return ConvertFromZ(target, source, field);
    return false;
}

bool CYUV2YUV::ConvertPlain(CDIB& target, const CDIB& source, int field) {
    return Restore(target, source, field, KXBI_YUV, KXBI_YUV);
}
bool CYUV2YUV::ConvertToZ(CDIB& target, const CDIB& source, int field) {
    return Restore(target, source, field, KXBI_YUVZ, KXBI_YUV);
}
bool CYUV2YUV::ConvertFromZ(CDIB& target, const CDIB& source, int field) {
    return Restore(target, source, field, KXBI_YUV, KXBI_YUVZ);
}

} // namespace stdfx
