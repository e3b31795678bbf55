// The toolkit's image handle: bodies, blocks, sharing, copying, lines and pixels.
#include <kelp/stdfx_dib.h>
#include <kelp/stdfx_translate.h>

#include <algorithm>
#include <cstring>
#include <new>

#include <kelp/mpheap.h>

#include "dibformat.h"
#include "dibrows.h"
#include "dibrowspan.h"
#include "runtime/kelpos.h"

namespace stdfx {

namespace {

// The body of every empty handle. Its count stays 0 and nothing writes to it.
CDIBData g_empty = {sizeof(CDIBData), {0}, false, 0, nullptr, nullptr};

// Staggers the pixel start of successive blocks by 64 to 512 bytes, so that images made
// one after another do not fall into the same cache sets. A race only changes a stagger.
std::atomic<uint32_t> g_counter{0};

// A header is at least a Windows header and at most this long.
constexpr uint32_t kMinHeader = 40;
constexpr uint32_t kMaxHeader = 4096;
// The room every owned block keeps for its header.
constexpr uint32_t kHeaderRoom = KXBMI_SIZE_YUV;
// Images above this size are refused: offsets and sizes stay 31-bit quantities.
constexpr uint32_t kMaxImage = 0x7FFF0000u;

uint32_t HeaderSize(const KXBMINFOHEADER* h) {
    return h ? h->biSize : 0;
}
bool HasExtension(const KXBMINFOHEADER* h) {
    return h && h->biSize >= KXBMI_SIZE;
}

int AbsHeight(const KXBMINFOHEADER* h) {
    if (!h) return 0;
    return h->biHeight < 0 ? int(0u - uint32_t(h->biHeight)) : h->biHeight;
}

} // namespace

// ---------------------------------------------------------------- row spans

bool MakeRowSpan(const CDIB& dib, int field, RowSpan* span) {
    *span = RowSpan();
    if (!dib.IsValid()) return false;
    const KXBMINFOHEADER* h = dib.Header();
    const int height = dib.Height();
    const int32_t stride = dib.Stride();
    const int bpp = CDIB::BytesPerPixel(h);
    const int64_t rowBytes = IsPacked422(h) ? int64_t(2) * ((int64_t(h->biWidth) + 1) & ~1)
                                            : int64_t(bpp) * (h->biWidth < 0 ? 0 : h->biWidth);
    if (stride <= 0 || rowBytes > stride || height < 0) return false;
    span->stride = stride;
    span->rowBytes = rowBytes;
    const int first = field == -1 ? 0 : dib.FirstLine(field);
    const int step = field == -1 ? 1 : 2;
    span->first = static_cast<unsigned char*>(dib.Bits()) + ptrdiff_t(first) * stride;
    span->step = ptrdiff_t(step) * stride;
    span->count = first >= height ? 0 : (height - first + step - 1) / step;
    return true;
}

bool MakeAlphaSpan(const CDIB& dib, int field, RowSpan* span) {
    *span = RowSpan();
    unsigned char* plane = dib.GetAlphaPlane();
    if (!plane) return false;
    const int32_t stride = dib.GetAlphaStride();
    const int height = dib.Height();
    if (stride < dib.Width()) return false;
    span->stride = stride;
    span->rowBytes = dib.Width();
    const int first = field == -1 ? 0 : dib.FirstLine(field);
    const int step = field == -1 ? 1 : 2;
    span->first = plane + ptrdiff_t(first) * stride;
    span->step = ptrdiff_t(step) * stride;
    span->count = first >= height ? 0 : (height - first + step - 1) / step;
    return true;
}

// ---------------------------------------------------------------- construction

CDIB::CDIB() : m_pData(&g_empty) {}

CDIB::CDIB(const CDIB& other) : m_pData(&g_empty) {
    Assign(other);
}

CDIB::CDIB(const KXBMINFOHEADER* header) : m_pData(&g_empty) {
    Create(header);
}

CDIB::CDIB(KXBMINFOHEADER* header, void* bits) : m_pData(&g_empty) {
    if (header && bits) Attach(header, bits);
}

CDIB::~CDIB() {
    CDIB::Release();
}

void CDIB::Release() {
    try {
        if (m_pData != &g_empty && m_pData) {
            if (DecrementRef(&m_pData->lRefs) <= 0) FreeAll();
        }
    } catch (...) {
    }
    SetEmpty();
}

// ---------------------------------------------------------------- storage

void CDIB::SetEmpty() {
    m_pData = &g_empty;
}

bool CDIB::NewBody() {
    auto* body = static_cast<CDIBData*>(kelp::NewAlloc(sizeof(CDIBData), kelp::nothrow));
    if (!body) return false;
    m_pData = new (body) CDIBData{sizeof(CDIBData), {0}, false, 0, nullptr, nullptr};
    return true;
}

void CDIB::DeleteBody() {
    if (m_pData != &g_empty && m_pData) {
        m_pData->~CDIBData();
        kelp::NewFree(m_pData);
    }
    SetEmpty();
}

bool CDIB::AllocBlock(uint32_t bytes) {
    if (m_pData == &g_empty || bytes > kMaxImage) return false;
    bytes += 128;
    void* block = kelp::os::PageAlloc(bytes);
    if (!block) return false;
    m_pData->bOwned = true;
    m_pData->cbBlock = bytes;
    m_pData->pHeader = static_cast<KXBMINFOHEADER*>(block);
    return true;
}

void CDIB::FreeBlock() {
    if (m_pData == &g_empty || !m_pData->pHeader) return;
    kelp::os::PageFree(m_pData->pHeader);
    m_pData->pHeader = nullptr;
    m_pData->pBits = nullptr;
    m_pData->cbBlock = 0;
    m_pData->bOwned = false;
}

void CDIB::FreeAll() {
    if (m_pData == &g_empty) return;
    if (m_pData->pHeader && m_pData->bOwned) FreeBlock();
    DeleteBody();
}

int32_t CDIB::IncrementRef(std::atomic<int32_t>* refs) {
    return refs->fetch_add(1, std::memory_order_relaxed) + 1;
}

int32_t CDIB::DecrementRef(std::atomic<int32_t>* refs) {
    return refs->fetch_sub(1, std::memory_order_acq_rel) - 1;
}

uint32_t CDIB::BlockOffset(uint32_t size) {
    const uint32_t s = size < kHeaderRoom ? kHeaderRoom : size;
    const uint32_t counter = g_counter.fetch_add(1, std::memory_order_relaxed) & 7;
    return (counter + 1) * 64 + s;
}

bool CDIB::MakeBlock(const KXBMINFOHEADER* header, uint32_t headerSize) {
    if (headerSize < kMinHeader || headerSize > kMaxHeader) return false;
    const uint32_t image = DIBImageSize(header);
    const uint32_t offset = BlockOffset(headerSize);
    if (image > kMaxImage - offset) return false;
    if (!AllocBlock(image + offset)) return false;
    auto* block = reinterpret_cast<unsigned char*>(m_pData->pHeader);
    m_pData->pBits = block + (offset & ~uint32_t(63)); // the block starts on a page
    std::memset(block, 0, headerSize > kHeaderRoom ? headerSize : kHeaderRoom);
    std::memcpy(block, header, headerSize);
    SetAlphaWords();
    return true;
}

void CDIB::SetAlphaWords() {
    KXBMINFOHEADER* h = Header();
    if (!h || !HasAlphaPlane(h)) return;
    h->bmiAlphaStride = 0;
    const int32_t alphaStride = DIBAlphaStride(h);
    h->bmiAlphaOffset = uint32_t(int64_t(DIBStride(h)) * Height());
    h->bmiAlphaStride = uint32_t(alphaStride);
}

// ---------------------------------------------------------------- sharing and copying

CDIB& CDIB::CopyFrom(const CDIB& source) {
    if (!source.IsValid()) return *this;
    if (source.m_pData == m_pData) {
        MakeWritable();
        return *this;
    }
    if (!Reallocate(source)) return *this;
    const KXBMINFOHEADER* sh = source.Header();
    std::memcpy(Header(), sh, sh->biSize);
    CopyRow(Bits(), source.Bits(), DIBImageSize(sh));
    SetAlphaWords();
    return *this;
}

CDIB& CDIB::Assign(const CDIB& source) {
    if (&source == this) return *this;
    if (!source.IsValid()) {
        Release();
        return *this;
    }
    if (source.Header() == Header()) return *this;
    if ((IsLocked() && !IsEmpty()) || source.IsLocked()) return CopyFrom(source);
    CDIBData* body = source.m_pData;
    IncrementRef(&body->lRefs);
    Release();
    m_pData = body;
    return *this;
}

bool CDIB::CopyBits(const CDIB& source) {
    if (!IsValid() || !source.IsValid()) return false;
    if (!MakeWritable()) return false;
    const uint32_t size = DIBImageSize(source.Header());
    if (DIBImageSize(Header()) < size) return true;
    CopyRow(Bits(), source.Bits(), size);
    return true;
}

int32_t CDIB::GetRefCount() const {
    return m_pData->lRefs.load(std::memory_order_relaxed);
}

bool CDIB::IsLocked() const {
    return GetRefCount() < 0;
}

KXBMINFOHEADER* CDIB::Lock() {
    if (m_pData == &g_empty) return nullptr;
    if (!MakeWritable() || m_pData == &g_empty) return nullptr;
    m_pData->lRefs.store(-1, std::memory_order_relaxed);
    return Header();
}

void CDIB::Unlock() {
    if (m_pData != &g_empty && IsLocked()) m_pData->lRefs.store(1, std::memory_order_relaxed);
}

void CDIB::Attach(KXBMINFOHEADER* header, void* bits) {
    Release();
    if (!NewBody()) return;
    m_pData->lRefs.store(1, std::memory_order_relaxed);
    m_pData->bOwned = false;
    m_pData->pHeader = header;
    m_pData->pBits = bits;
}

void CDIB::Detach() {
    Release();
}

bool CDIB::Create(const KXBMINFOHEADER* header) {
    if (!header || header->biBitCount == 0) return false;
    const uint32_t n = header->biSize;
    if (n < kMinHeader || n > kMaxHeader) return false;
    // The header may live in this image's own block, which goes before the new one is
    // made.
    alignas(8) unsigned char copy[kMaxHeader];
    std::memcpy(copy, header, n);
    const auto* h = reinterpret_cast<const KXBMINFOHEADER*>(copy);
    if (h->biWidth < 0) return false;
    if (DIBImageSize(h) == 0 && DIBStride(h) == 0 && h->biWidth != 0 && h->biHeight != 0 &&
        (IsRgbFormat(h->biCompression) || IsYuvFormat(h->biCompression)))
        return false; // a pixel format whose size does not fit
    Release();
    if (!NewBody()) return false;
    m_pData->lRefs.store(1, std::memory_order_relaxed);
    if (!MakeBlock(h, n)) {
        Release();
        return false;
    }
    if (n >= KXBMI_SIZE) {
        Header()->bmiExtOffset = 0;
        Header()->bmiMagic = KXBMI_MAGIC;
    }
    return true;
}

bool CDIB::MakeWritable() {
    if (GetRefCount() < 2) return true;
    CDIBData* old = m_pData;
    const KXBMINFOHEADER* oh = old->pHeader;
    const uint32_t n = HeaderSize(oh);
    if (!NewBody()) return false; // the handle still holds its share of the old body
    m_pData->lRefs.store(1, std::memory_order_relaxed);
    bool ok = true;
    if (oh) {
        // Copied before the old share is dropped, so that the old body cannot go away
        // under the copy.
        ok = MakeBlock(oh, n);
        if (ok) {
            CopyRow(Bits(), old->pBits, old->pBits ? DIBImageSize(oh) : 0);
            SetAlphaWords();
        }
    }
    if (DecrementRef(&old->lRefs) <= 0) {
        CDIBData* mine = m_pData;
        m_pData = old;
        FreeAll();
        m_pData = mine;
    }
    return ok;
}

bool CDIB::Reallocate(const CDIB& source) {
    if (&source == this) return MakeWritable();
    const KXBMINFOHEADER* sh = source.Header();
    const int32_t refs = GetRefCount();
    if ((refs == 1 || refs == -1) && m_pData->bOwned && m_pData->pHeader && sh) {
        const auto room = uint64_t(static_cast<unsigned char*>(m_pData->pBits) -
                                   reinterpret_cast<unsigned char*>(m_pData->pHeader));
        if (room >= sh->biSize && room >= kHeaderRoom &&
            m_pData->cbBlock >= room + DIBImageSize(sh))
            return true;
    }
    if (sh && (sh->biSize < kMinHeader || sh->biSize > kMaxHeader)) return false;
    Release();
    if (!NewBody()) return false;
    m_pData->lRefs.store(1, std::memory_order_relaxed);
    if (!sh) return true;
    return MakeBlock(sh, sh->biSize);
}

// ---------------------------------------------------------------- conversion

bool CDIB::Convert(const CDIB& source, int field, int /*flag*/) {
    if (Width() != source.Width() || Height() != source.Height()) return false;
    if (!MakeWritable()) return false;
    if (IsEmpty()) return true;
    if (!IsValid() || !source.IsValid()) return false;
    const uint32_t to = Format(), from = source.Format();
    if (IsRgbFormat(to)) {
        if (IsRgbFormat(from)) {
            CRGB2RGB* t = GetRGB2RGB();
            return t && t->Convert(*this, source, field);
        }
        if (IsYuvFormat(from)) {
            CYUV2RGB* t = GetYUV2RGB();
            return t && t->Convert(*this, source, field);
        }
    } else if (IsYuvFormat(to)) {
        if (IsRgbFormat(from)) {
            CRGB2YUV* t = GetRGB2YUV();
            return t && t->Convert(*this, source, field);
        }
        if (IsYuvFormat(from)) {
            CYUV2YUV* t = GetYUV2YUV();
            return t && t->Convert(*this, source, field);
        }
    }
    return false;
}

bool CDIB::CreateConverted(const KXBMINFOHEADER* header, const CDIB& source, int field) {
    if (Create(header) && Convert(source, field, 1)) return true;
    Release();
    return false;
}

// ---------------------------------------------------------------- lines

int CDIB::FirstLine(int field) const {
    if (field == -1) return 0;
    const int h = Height();
    const KXBMINFOHEADER* hd = Header();
    const int f = (hd && HasExtension(hd)) ? int((hd->bmiFormat >> 4) & 1) : 0;
    if (IsTopDown()) return field == 1 ? 1 - f : f;
    if (field == 0) return (h & 1) ? f : 1 - f;
    if (field == 1) return (h & 1) ? 1 - f : f;
    return f;
}

int CDIB::LastLine(int field) const {
    const int h = Height();
    if (field == -1) return h - 1;
    const int f = FirstLine(field);
    return (h & 1) ? h - f - 1 : h - (1 - f) - 1;
}

ptrdiff_t CDIB::FirstLineOffset(int field) const {
    return ptrdiff_t(FirstLine(field)) * Stride();
}
ptrdiff_t CDIB::FirstLineOffset2(int field) const {
    return FirstLineOffset(field);
}
ptrdiff_t CDIB::LastLineOffset(int field) const {
    return ptrdiff_t(LastLine(field)) * Stride();
}
ptrdiff_t CDIB::FirstAlphaOffset(int field) const {
    return ptrdiff_t(FirstLine(field)) * GetAlphaStride();
}
ptrdiff_t CDIB::FirstAlphaOffset2(int field) const {
    return FirstAlphaOffset(field);
}
ptrdiff_t CDIB::LastAlphaOffset(int field) const {
    return ptrdiff_t(LastLine(field)) * GetAlphaStride();
}

// ---------------------------------------------------------------- header questions

bool CDIB::IsEmpty() const {
    const KXBMINFOHEADER* h = Header();
    return !h || h->biBitCount == 0 || h->biWidth == 0 || h->biHeight == 0;
}
bool CDIB::IsBottomUp() const {
    return Header() && Header()->biHeight >= 0;
}
bool CDIB::IsTopDown() const {
    return Header() && Header()->biHeight < 0;
}

void CDIB::GetHeader144(void* out) const {
    std::memset(out, 0, KXBMI_SIZE);
    if (const KXBMINFOHEADER* h = Header())
        std::memcpy(out, h, h->biSize < KXBMI_SIZE ? h->biSize : KXBMI_SIZE);
}

void CDIB::GetHeader(void* out) const {
    std::memset(out, 0, KXBMI_SIZE_YUV);
    if (const KXBMINFOHEADER* h = Header())
        std::memcpy(out, h, h->biSize < KXBMI_SIZE_YUV ? h->biSize : KXBMI_SIZE_YUV);
}

void CDIB::GetBitmapInfoHeader(void* out) const {
    std::memset(out, 0, sizeof(KXWINBITMAPINFOHEADER));
    if (const KXBMINFOHEADER* h = Header()) {
        std::memcpy(out, h, sizeof(KXWINBITMAPINFOHEADER));
        static_cast<KXWINBITMAPINFOHEADER*>(out)->biSize = sizeof(KXWINBITMAPINFOHEADER);
    }
}

uint32_t CDIB::GetHeaderSize() const {
    return HeaderSize(Header());
}

void CDIB::SetFormat(uint32_t format, uint32_t size) {
    if (!Header() || !MakeWritable()) return;
    Header()->biCompression = format;
    Header()->biSizeImage = size;
}

uint32_t CDIB::GetFlags() const {
    return HasExtension(Header()) ? Header()->bmiFlags : 0;
}
bool CDIB::HasZFlag() const {
    return (GetFlags() & KXBMIFLAGS_Z) != 0;
}

// ---------------------------------------------------------------- pixels

bool CDIB::Fill(int field, uint32_t value) {
    if (!IsValid() || !MakeWritable()) return false;
    const KXBMINFOHEADER* h = Header();
    RowSpan rows;
    if (!MakeRowSpan(*this, field, &rows)) return false;
    const uint32_t format = h->biCompression;
    const int width = Width();
    const bool limited = ColorSpace(h) != 1;
    const uint32_t black = limited ? 0x808010u : 0x808000u;

    if (format == KXBI_RGBZ || format == KXBI_YUVZ) {
        if (h->biBitCount != 32) return false;
        const uint32_t pair[2] = {value, 0x3F800000u}; // the pixel, then a depth of 1.0
        for (int i = 0; i < rows.count; ++i) {
            unsigned char* d = rows.first + i * rows.step;
            for (int x = 0; x < width; ++x) {
                FillRow32(d + 8 * x, pair[0], 1);
                FillRow32(d + 8 * x + 4, pair[1], 1);
            }
        }
        return true;
    }
    if (IsPacked422(h)) {
        const bool uyvy = Sampling(h) == KXYUV_SAMPLING_422B;
        // Black as one pair of pixels, in the byte order of the layout.
        const uint32_t pattern =
            uyvy ? (limited ? 0x10801080u : 0x00800080u) : (limited ? 0x80108010u : 0x80008000u);
        for (int i = 0; i < rows.count; ++i)
            FillRow32(rows.first + i * rows.step, pattern, size_t(rows.rowBytes / 4));
        RowSpan alpha;
        if (h->biBitCount == 32 && MakeAlphaSpan(*this, field, &alpha))
            for (int i = 0; i < alpha.count; ++i)
                std::memset(alpha.first + i * alpha.step, 0, size_t(alpha.rowBytes));
        return true;
    }
    uint32_t v = value;
    if (format == KXBI_YUV) {
        if (Sampling(h) != KXYUV_SAMPLING_444 || h->biPlanes > 1) return false;
        v = black;
    } else if (format != KXBI_RGB || h->biPlanes > 1) {
        return false;
    }
    const int bpp = BytesPerPixel(h);
    if (bpp == 4) {
        for (int i = 0; i < rows.count; ++i)
            FillRow32(rows.first + i * rows.step, v, size_t(width));
        return true;
    }
    if (bpp == 1) {
        for (int i = 0; i < rows.count; ++i)
            std::memset(rows.first + i * rows.step, int(v & 255), size_t(width));
        return true;
    }
    if (bpp <= 0) return false;
    // 16, 24 and 64 bits: the value's bytes, from its low one, cycled over each pixel.
    for (int i = 0; i < rows.count; ++i) {
        unsigned char* d = rows.first + i * rows.step;
        for (int x = 0; x < width; ++x)
            for (int k = 0; k < bpp; ++k)
                *d++ = static_cast<unsigned char>(v >> (8 * (k & 3)));
    }
    return true;
}

bool CDIB::CopyAt(const CDIB& source, int x, int y) {
    if (!IsValid() || !source.IsValid()) return false;
    if (Header()->biBitCount != source.Header()->biBitCount) return false;
    const int bpp = BytesPerPixel(Header());
    if (bpp != BytesPerPixel(source.Header())) return false;
    // A handle of its own keeps the source's pixels where they are while this image is
    // made private and cleared, even when the two share a body.
    const CDIB keep(source);
    if (!MakeWritable()) return false;
    Fill(-1, 0);
    RowSpan to, from;
    if (bpp <= 0 || !MakeRowSpan(*this, -1, &to) || !MakeRowSpan(source, -1, &from)) return true;
    // The overlap in target columns and display rows, in 64 bits so that no offset wraps.
    const int64_t x0 = x < 0 ? 0 : x, y0 = y < 0 ? 0 : y;
    const int64_t x1 = std::min<int64_t>(int64_t(x) + source.Width(), Width());
    const int64_t y1 = std::min<int64_t>(int64_t(y) + source.Height(), Height());
    if (x0 >= x1 || y0 >= y1) return true;
    auto* dst = static_cast<unsigned char*>(Bits());
    const auto* src = static_cast<const unsigned char*>(keep.Bits());
    for (int64_t r = y0; r < y1; ++r) {
        const int tr = MemoryLine(*this, int(r)), sr = MemoryLine(keep, int(r - y));
        CopyRow(dst + ptrdiff_t(tr) * to.stride + x0 * bpp,
                src + ptrdiff_t(sr) * from.stride + (x0 - x) * bpp, size_t((x1 - x0) * bpp));
    }
    return true;
}

bool CDIB::GetPixel(int* red, int* green, int* blue, int x, int y) const {
    *red = *green = *blue = -1;
    RowSpan rows;
    if (!MakeRowSpan(*this, -1, &rows)) return false;
    const int bpp = BytesPerPixel(Header());
    if (x < 0 || y < 0 || x >= Width() || y >= Height() || bpp < 3) return false;
    const unsigned char* p = static_cast<const unsigned char*>(Bits()) +
                             ptrdiff_t(MemoryLine(*this, y)) * rows.stride + ptrdiff_t(x) * bpp;
    *red = p[2];
    *green = p[1];
    *blue = p[0];
    return true;
}

int CDIB::GetPixel8(int x, int y) const {
    RowSpan rows;
    if (!MakeRowSpan(*this, -1, &rows)) return -1;
    if (x < 0 || y < 0 || x >= Width() || y >= Height() || x >= rows.stride) return -1;
    return static_cast<const unsigned char*>(
        Bits())[ptrdiff_t(MemoryLine(*this, y)) * rows.stride + x];
}

// ---------------------------------------------------------------- helpers

int32_t CDIB::Width() const {
    return Header() ? Header()->biWidth : 0;
}
int32_t CDIB::Height() const {
    return AbsHeight(Header());
}
int32_t CDIB::Stride() const {
    return DIBStride(Header());
}
uint32_t CDIB::Format() const {
    return Header() ? Header()->biCompression : 0;
}
bool CDIB::IsFlatYUV() const {
    return Header() && IsYuvFormat(Format());
}
bool CDIB::Is444() const {
    return Header() && Format() == KXBI_YUV && Sampling(Header()) == KXYUV_SAMPLING_444;
}
bool CDIB::Is422() const {
    if (!Header() || Format() != KXBI_YUV) return false;
    const uint32_t s = Sampling(Header());
    return s == KXYUV_SAMPLING_422 || s == KXYUV_SAMPLING_422B;
}
bool CDIB::IsYUV444() const {
    return IsFlatYUV() && Sampling(Header()) == KXYUV_SAMPLING_444;
}
bool CDIB::IsBGRAZ() const {
    return Header() && Format() == KXBI_RGBZ;
}
bool CDIB::IsRGB() const {
    return Header() && Format() == KXBI_RGB;
}
bool CDIB::IsYUVz() const {
    return Header() && Format() == KXBI_YUVZ;
}

unsigned char* CDIB::GetAlphaPlane() const {
    if (!IsValid() || !HasAlphaPlane(Header())) return nullptr;
    // Where the sizes put it, behind the rows; the offset word of the header only
    // reports it.
    return static_cast<unsigned char*>(Bits()) + ptrdiff_t(Stride()) * Height();
}
int32_t CDIB::GetAlphaStride() const {
    return Header() && HasAlphaPlane(Header()) ? DIBAlphaStride(Header()) : 0;
}

int CDIB::GetFieldFlag() const {
    if (!HasExtension(Header())) return 1;
    return (Header()->bmiFrame & 1) ? 0 : 1;
}

void CDIB::SetFrameFlag(uint32_t frame) {
    if (HasExtension(Header()) && MakeWritable()) Header()->bmiFrame = frame;
}

int CDIB::BytesPerPixel(const KXBMINFOHEADER* h) {
    if (!h) return 0;
    switch (h->biCompression) {
    case KXBI_RGB:
        return h->biPlanes <= 1 ? h->biBitCount / 8 : h->biBitCount / 8 / h->biPlanes;
    case KXBI_RGBZ:
    case KXBI_YUVZ:
        return h->biBitCount / 8 + 4;
    case KXBI_YUV:
        if (IsPacked422(h)) return 2;
        if (Sampling(h) == KXYUV_SAMPLING_444)
            return h->biPlanes <= 1 ? h->biBitCount / 8 : h->biBitCount / 8 / h->biPlanes;
        return 0;
    default:
        return 0;
    }
}

} // namespace stdfx
