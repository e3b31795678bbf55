// The image object: handles that share a reference-counted data block.
#include <kelp/kelpcpu.h>
#include <kelp/kelpimg.h>
#include <kelp/trace.h>

#include <cstring>

namespace kelp {

namespace {

// The shared empty block: constant-initialised, so that it exists before any code of
// the library runs. Its fields are never written.
CKELPImgData g_dataNil = {{},     uint32_t(sizeof(CKELPImgData)), 0, 0, 0, nullptr, nullptr, 0,
                          nullptr};

// The class-wide allocator. Until a caller sets one, new pixel memory comes from the
// library's page allocator.
IAllocator* g_allocator = nullptr;
bool g_allocatorSet = false;

const char* const kSource = ".\\kelpimg";

uint32_t RoundHeader(uint32_t biSize) {
    return (biSize + 63u) & ~63u;
}

uint32_t AbsSize(int32_t size) {
    return size < 0 ? 0u - uint32_t(size) : uint32_t(size);
}

} // namespace

CKELPImgData* const g_pDataNil = &g_dataNil;

uint32_t KELPImgRequiredBytes(const KXBMINFOHEADER* pKxBmiTemplate) {
    if (!pKxBmiTemplate) {
        dbgAssert("pKxBmiTemplate", kSource, __LINE__, 8);
        return 0;
    }
    return RoundHeader(pKxBmiTemplate->biSize) + AbsSize(kelp::DIBSize(pKxBmiTemplate));
}

// ---------------------------------------------------------------- construction

CKELPImg::CKELPImg(uint32_t tag) : m_pData(g_pDataNil), m_dwTag(tag) {}

CKELPImg::CKELPImg(const CKELPImg& other) : m_pData(g_pDataNil), m_dwTag(0) {
    Assign(other);
}

CKELPImg::CKELPImg(KXBMINFOHEADER* desc, void* pixels, uint32_t tag)
    : m_pData(g_pDataNil), m_dwTag(0) {
    Attach(desc, pixels, tag);
}

CKELPImg::~CKELPImg() {
    Free();
}

void CKELPImg::Assert(bool ok, const char* text, unsigned line) const {
    if (!ok) dbgAssert(text, kSource, line, 8);
}

IAllocator* CKELPImg::SetAllocator(IAllocator* allocator) {
    IAllocator* old = GetAllocator();
    g_allocator = allocator;
    g_allocatorSet = true;
    return old;
}

IAllocator* CKELPImg::GetAllocator() {
    return g_allocatorSet ? g_allocator : GetVirtAllocator();
}

// ---------------------------------------------------------------- the block

void CKELPImg::SetNil() {
    m_pData = g_pDataNil;
}

bool CKELPImg::IsNil(const CKELPImgData* block) const {
    return block == nullptr || block == g_pDataNil;
}

bool CKELPImg::AllocData() {
    CKELPImgData* block = new (kelp::nothrow) CKELPImgData();
    if (!block) return false;
    std::memset(static_cast<void*>(block), 0, sizeof *block);
    block->m_nSize = uint32_t(sizeof(CKELPImgData));
    m_pData = block;
    return true;
}

void CKELPImg::FreeData() {
    if (!IsNil(m_pData)) delete m_pData;
    SetNil();
}

bool CKELPImg::AllocPixels(uint32_t size) {
    Assert(m_pData != nullptr, "_IGetData() != NULL", __LINE__);
    // Writing to the shared empty block would give every empty handle an image.
    if (IsNil(m_pData)) return false;
    IAllocator* allocator = GetAllocator();
    void* p = nullptr;
    m_pData->m_pAllocator = allocator;
    try {
        p = allocator ? allocator->Allocate(size, 0) : NewAlloc(size, kelp::nothrow);
    } catch (...) {
        p = nullptr;
    }
    m_pData->m_pDesc = static_cast<KXBMINFOHEADER*>(p);
    if (!p) {
        m_pData->m_pAllocator = nullptr;
        return false;
    }
    m_pData->m_bOwned = 1;
    m_pData->m_nCapacity = size;
    return true;
}

void CKELPImg::FreePixels() {
    Assert(m_pData != nullptr, "_IGetData() != NULL", __LINE__);
    if (IsNil(m_pData) || !m_pData->m_pDesc) return;
    if (m_pData->m_pAllocator)
        m_pData->m_pAllocator->Free(m_pData->m_pDesc);
    else
        NewFree(m_pData->m_pDesc);
    m_pData->m_pDesc = nullptr;
    m_pData->m_pPixels = nullptr;
    m_pData->m_pAllocator = nullptr;
}

void CKELPImg::FreeAll() {
    if (IsValidDIB() && m_pData->m_bOwned) FreePixels();
    FreeData();
}

void CKELPImg::Free() {
    if (!IsNil(m_pData)) {
        if (Decrement(&m_pData->m_iRefs) <= 0) {
            FreeAll();
        }
    }
    SetNil();
}

void CKELPImg::Detach() {
    Free();
}

bool CKELPImg::Attach(KXBMINFOHEADER* desc, void* pixels, uint32_t tag) {
    Free();
    try {
        if (!AllocData()) return false;
        m_pData->m_iRefs = 1;
        m_pData->m_bOwned = 0;
        m_pData->m_pDesc = desc;
        m_pData->m_pPixels = pixels;
        m_dwTag = tag;
        return true;
    } catch (...) {
        return false;
    }
}

int32_t CKELPImg::Increment(volatile int32_t* value) {
    return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}

int32_t CKELPImg::Decrement(volatile int32_t* value) {
    return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}

bool CKELPImg::IsLocked() const {
    return m_pData->m_iRefs < 0;
}

bool CKELPImg::UseMMX() {
    return kelp::UseMMX();
}

// ---------------------------------------------------------------- copies

uint32_t CKELPImg::PixelBytes() const {
    return m_pData->m_pDesc ? AbsSize(kelp::DIBSize(m_pData->m_pDesc)) : 0;
}

CKELPImg& CKELPImg::Assign(const CKELPImg& other) {
    if (!other.IsValidDIB()) {
        Free();
        return *this;
    }
    if (GetDesc() == other.GetDesc()) return *this;
    if (IsLocked() && !IsNil(m_pData)) {
        CopyFrom(other); // a locked image keeps its memory
        return *this;
    }
    if (!other.IsLocked()) {
        Free();
        CKELPImgData* block = other._IGetData();
        Assert(block && block != g_pDataNil,
               "KELPImgSrc._IGetData() && KELPImgSrc._IGetData() != g_pDataNil", __LINE__);
        if (IsNil(block)) return *this;
        m_pData = block;
        Increment(&m_pData->m_iRefs);
        return *this;
    }
    CopyFrom(other);
    return *this;
}

bool CKELPImg::PrepareFor(const CKELPImg& other) {
    const KXBMINFOHEADER* od = other.GetDesc();
    // The present memory serves if nobody shares it, it is ours, the pixels fit, and
    // the other's descriptor fits in front of our pixels.
    bool reuse = m_pData->m_iRefs < 2 && IsOwnedDIB() && PixelBytes() >= other.PixelBytes() &&
                 (!od || RoundHeader(od->biSize) <= RoundHeader(GetDesc()->biSize));
    if (!reuse) {
        Free();
        if (!AllocData()) return false;
        m_pData->m_iRefs = 1;
        if (od) {
            const uint32_t header = RoundHeader(od->biSize);
            if (!AllocPixels(header + od->biSize)) return false;
            m_pData->m_pPixels = reinterpret_cast<unsigned char*>(m_pData->m_pDesc) + header;
        }
    }
    Assert(m_pData->m_iRefs <= 1, "_IGetData()->m_iRefs <= 1", __LINE__);
    return true;
}

CKELPImg& CKELPImg::CopyFrom(const CKELPImg& other) {
    if (!other.IsValidDIB() || !PrepareFor(other)) return *this;
    const KXBMINFOHEADER* od = other.GetDesc();
    std::memcpy(GetDesc(), od, od->biSize);
    // The pixel count of a deep copy is the header's size, not the image's; an image
    // smaller than its header gives what it has.
    uint32_t n = od->biSize;
    if (other.PixelBytes() < n) n = other.PixelBytes();
    std::memcpy(GetPixels(), other.GetPixels(), n);
    return *this;
}

bool CKELPImg::MakeUnique() {
    if (m_pData->m_iRefs > 1) {
        Assert(IsValidDIB(), "IsValidDIB()", __LINE__);
        const KXBMINFOHEADER* oldDesc = GetDesc();
        const void* oldPixels = GetPixels();
        const uint32_t header = oldDesc ? oldDesc->biSize : 0;
        const uint32_t size = PixelBytes();
        // The other handles keep the old block alive through what follows.
        Free();
        if (!AllocData()) return false;
        m_pData->m_iRefs = 1;
        if (oldDesc) {
            const uint32_t rounded = RoundHeader(header);
            if (!AllocPixels(rounded + size)) return false;
            m_pData->m_pPixels = reinterpret_cast<unsigned char*>(m_pData->m_pDesc) + rounded;
            std::memcpy(m_pData->m_pDesc, oldDesc, header);
            if (oldPixels) std::memcpy(m_pData->m_pPixels, oldPixels, size);
        }
    }
    Assert(m_pData->m_iRefs <= 1, "_IGetData()->m_iRefs <= 1", __LINE__);
    return true;
}

bool CKELPImg::CopyDibBytes(const CKELPImg& source) {
    if (!source.IsValidDIB()) {
        dbgPrintf(8, 5, L"** CKELPImg::CopyDibBytes((): !KELPImgSrc.IsValidDIB()\n");
        return false;
    }
    if (!IsValidDIB() || !MakeUnique()) return false;
    Assert(DIBBitCount() == source.DIBBitCount(), "DIBBitCount() == KELPImgSrc.DIBBitCount()",
           __LINE__);
    if (PixelBytes() < source.PixelBytes()) {
        dbgPrintf(8, 5, L"** CKELPImg::CopyDibBytes((): DIBSize()=%d < KxDibSrc.DIBSize()=%d\n",
                  DIBSize(), source.DIBSize());
        Assert(false, "FALSE", __LINE__);
        return true;
    }
    // As many pixel bytes as the source's header is long, within the source's pixels.
    uint32_t n = source.GetDesc()->biSize;
    if (source.PixelBytes() < n) n = source.PixelBytes();
    std::memcpy(GetPixels(), source.GetPixels(), n);
    return true;
}

bool CKELPImg::IsEqual(const CKELPImg& other) const {
    const bool a = IsValidDIB(), b = other.IsValidDIB();
    if (!a && !b) return true;
    if (!a || !b) return false;
    if (m_pData == other.m_pData) return true;
    const KXBMINFOHEADER* x = GetDesc();
    const KXBMINFOHEADER* y = other.GetDesc();
    if (x->biSize != y->biSize || x->biCompression != y->biCompression ||
        x->biPlanes != y->biPlanes || x->biBitCount != y->biBitCount || x->biWidth != y->biWidth ||
        x->biHeight != y->biHeight || kelp::DIBSize(x) != kelp::DIBSize(y) ||
        kelp::DIBRatioX(x) != kelp::DIBRatioX(y) || kelp::DIBRatioY(x) != kelp::DIBRatioY(y) ||
        x->bmiFormat != y->bmiFormat || x->bmiAlpha != y->bmiAlpha ||
        kelp::DIBAlignment(x) != kelp::DIBAlignment(y) || x->bmiFrame != y->bmiFrame)
        return false;
    if (x->biCompression != KXBI_RGB) {
        if (x->biCompression != KXBI_YUV || x->biSize < KXBMI_SIZE_YUV) return false;
        const KXYUVEXT* ex = DIBYuv(x);
        const KXYUVEXT* ey = DIBYuv(y);
        if (ex->yuvColorSpace != ey->yuvColorSpace ||
            (ex->yuvBits ? ex->yuvBits : 8) != (ey->yuvBits ? ey->yuvBits : 8) ||
            ex->yuvSampling != ey->yuvSampling || ex->yuvSamplingAux != ey->yuvSamplingAux)
            return false;
    }
    if (IsEmpty()) return true;
    return std::memcmp(GetPixels(), other.GetPixels(), PixelBytes()) == 0;
}

// ---------------------------------------------------------------- hooks

bool CKELPImg::CreateHook(const KXBMINFOHEADER*, uintptr_t) {
    return false;
}
bool CKELPImg::CreateLike(const CKELPImg& other, uintptr_t arg) {
    return CreateHook(other.GetDesc(), arg);
}
bool CKELPImg::Hook11(uintptr_t) {
    return false;
}
bool CKELPImg::Hook12(uintptr_t) {
    return false;
}
bool CKELPImg::Hook13(uintptr_t, uintptr_t, uintptr_t) {
    return false;
}
bool CKELPImg::Hook14(uintptr_t, uintptr_t) {
    return false;
}
bool CKELPImg::Hook15(uintptr_t, uintptr_t) {
    return false;
}
uint32_t CKELPImg::Hook17() {
    return 0;
}
void CKELPImg::Hook18() {}
void CKELPImg::Hook19(uintptr_t, uintptr_t, uintptr_t, uintptr_t) {}
void CKELPImg::Hook20(uintptr_t) {}
void CKELPImg::Hook21(uintptr_t) {}
bool CKELPImg::Hook22(uintptr_t) {
    return false;
}
bool CKELPImg::Hook23(uintptr_t, uintptr_t, uintptr_t) {
    return false;
}
bool CKELPImg::Hook24(uintptr_t, uintptr_t) {
    return false;
}

// ---------------------------------------------------------------- accessors

int32_t CKELPImg::DIBSize() const {
    Assert(IsValidDIB(), "IsValidDIB()", __LINE__);
    return GetDesc() ? kelp::DIBSize(GetDesc()) : 0;
}

uint32_t CKELPImg::HeaderBytes() const {
    Assert(IsValidDIB(), "IsValidDIB()", __LINE__);
    return GetDesc() ? GetDesc()->biSize : 0;
}

uint32_t CKELPImg::DIBRatioX() const {
    return GetDesc() ? kelp::DIBRatioX(GetDesc()) : 0x10000;
}
uint32_t CKELPImg::DIBRatioY() const {
    return GetDesc() ? kelp::DIBRatioY(GetDesc()) : 0x10000;
}

uint32_t CKELPImg::DIBAlpha() const {
    Assert(IsValidDIB(), "IsValidDIB()", __LINE__);
    return GetDesc() ? GetDesc()->bmiAlpha : 0;
}

uint32_t CKELPImg::DIBFormat() const {
    Assert(IsValidDIB(), "IsValidDIB()", __LINE__);
    return GetDesc() ? GetDesc()->bmiFormat : 0;
}

uint32_t CKELPImg::DIBFrame() const {
    Assert(IsValidDIB(), "IsValidDIB()", __LINE__);
    return GetDesc() ? GetDesc()->bmiFrame : 0;
}

int32_t CKELPImg::DIBAlignment() const {
    Assert(IsValidDIB(), "IsValidDIB()", __LINE__);
    return GetDesc() ? kelp::DIBAlignment(GetDesc()) : 4;
}

bool CKELPImg::DIBIsRGB() const {
    Assert(IsValidDIB(), "IsValidDIB()", __LINE__);
    return GetDesc() && GetDesc()->biCompression == KXBI_RGB;
}

bool CKELPImg::DIBColorSpaceYUV() const {
    Assert(IsValidDIB(), "IsValidDIB()", __LINE__);
    return GetDesc() && GetDesc()->biCompression == KXBI_YUV;
}

void CKELPImg::AssertYuv(unsigned line) const {
    Assert(IsValidDIB(), "IsValidDIB()", line);
    Assert(GetDesc() && GetDesc()->biCompression == KXBI_YUV, "DIBColorSpaceYUV()", line);
}

namespace {
// The extension of a record long enough to hold one; null otherwise.
const KXYUVEXT* YuvOf(const KXBMINFOHEADER* d) {
    return d && d->biSize >= KXBMI_SIZE_YUV ? DIBYuv(d) : nullptr;
}
} // namespace

uint32_t CKELPImg::DIBYUVColorSpace() const {
    AssertYuv(__LINE__);
    const KXYUVEXT* e = YuvOf(GetDesc());
    return e ? e->yuvColorSpace : 0;
}

uint32_t CKELPImg::DIBYUVBits() const {
    AssertYuv(__LINE__);
    const KXYUVEXT* e = YuvOf(GetDesc());
    return e && e->yuvBits ? e->yuvBits : 8;
}

uint32_t CKELPImg::DIBYUVSampling() const {
    AssertYuv(__LINE__);
    const KXYUVEXT* e = YuvOf(GetDesc());
    return e ? e->yuvSampling : 0;
}

uint32_t CKELPImg::DIBYUVSamplingAux() const {
    AssertYuv(__LINE__);
    const KXYUVEXT* e = YuvOf(GetDesc());
    return e ? e->yuvSamplingAux : 0;
}

bool CKELPImg::IsEmpty() const {
    const KXBMINFOHEADER* d = GetDesc();
    return !d || !GetPixels() || d->biBitCount == 0 || d->biWidth == 0 || d->biHeight == 0;
}

} // namespace kelp
