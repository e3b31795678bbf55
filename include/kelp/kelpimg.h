// The image object: a reference-counted handle of one image, a KXBMINFOHEADER and its
// pixels. Copies of a handle share one data block until one of them wants to write;
// that one then gets its own (MakeUnique). The class is made to be derived from: a
// long row of its virtual operations are hooks that do nothing here.
//
//     kelp::CKELPImg a;
//     a.Attach(desc, pixels, 0);   // foreign memory, never freed by the image
//     kelp::CKELPImg b(a);         // shares a's block
//     b.MakeUnique();              // b now has its own copy of descriptor and pixels
#pragma once

#include "alloc.h"
#include "kelpdefs.h"
#include "kxbih.h"
#include "mpheap.h"

namespace kelp {

// The data block that handles share. Allocated by plain new and zeroed.
struct KELP_API CKELPImgData : public CKELPHeapObject {
    uint32_t m_nSize;         // the block's own size in bytes
    int32_t m_iRefs;          // handles on it; negative: locked, may not be shared
    uint8_t m_bOwned;         // 1 if the block owns its memory, 0 for attached memory
    uint32_t m_nCapacity;     // bytes allocated for descriptor and pixels together
    KXBMINFOHEADER* m_pDesc;  // start of the allocation; null for an empty image
    void* m_pPixels;          // null for an empty image
    uint32_t m_dwReserved;    //
    IAllocator* m_pAllocator; // what made the memory; null if plain new did
};

// The block that every handle without an image shares. Never counted, never freed.
KELP_API extern CKELPImgData* const g_pDataNil;

// Bytes an image of the template's format needs in one allocation: the descriptor
// rounded up to 64 bytes, then the pixels. A null template reports an assertion and
// counts as 0 bytes.
KELP_API uint32_t KELPImgRequiredBytes(const KXBMINFOHEADER* pKxBmiTemplate);

class KELP_API CKELPImg : public CKELPHeapObject {
  public:
    explicit CKELPImg(uint32_t tag = 0);
    CKELPImg(const CKELPImg& other);                            // shares other's block (Assign)
    CKELPImg(KXBMINFOHEADER* desc, void* pixels, uint32_t tag); // Attach
    CKELPImg& operator=(const CKELPImg& other) {
        Assign(other);
        return *this;
    }

    // ---- virtual operations, in their fixed order
    virtual ~CKELPImg(); // Free
    // Drops this handle's reference; the last one frees the block and what it owns.
    virtual void Free();
    // Deep copy: a block of this handle's own, descriptor and the first biSize bytes of
    // the pixels (the count of the header, not of the image). Only MakeUnique copies
    // whole images.
    virtual CKELPImg& CopyFrom(const CKELPImg& other);
    // Shared copy: takes other's block unless one of the two is locked.
    virtual CKELPImg& Assign(const CKELPImg& other);
    // Copies pixels of `source` into this image, after making it unique.
    virtual bool CopyDibBytes(const CKELPImg& source);
    // Same format and same pixels.
    virtual bool IsEqual(const CKELPImg& other) const;
    // Takes over foreign memory without owning it: Free never frees it.
    virtual bool Attach(KXBMINFOHEADER* desc, void* pixels, uint32_t tag);
    virtual void Detach();                                              // Free
    virtual bool CreateHook(const KXBMINFOHEADER* desc, uintptr_t arg); // false
    // Calls CreateHook with other's descriptor and arg.
    virtual bool CreateLike(const CKELPImg& other, uintptr_t arg);
    virtual bool Hook11(uintptr_t a);                           // false
    virtual bool Hook12(uintptr_t a);                           // false
    virtual bool Hook13(uintptr_t a, uintptr_t b, uintptr_t c); // false
    virtual bool Hook14(uintptr_t a, uintptr_t b);              // false
    virtual bool Hook15(uintptr_t a, uintptr_t b);              // false
    virtual bool IsLocked() const;                              // the count is negative
    virtual uint32_t Hook17();                                  // 0
    virtual void Hook18();                                      // nothing
    virtual void Hook19(uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d); // nothing
    virtual void Hook20(uintptr_t a);                                        // nothing
    virtual void Hook21(uintptr_t a);                                        // nothing
    virtual bool Hook22(uintptr_t a);                                        // false
    virtual bool Hook23(uintptr_t a, uintptr_t b, uintptr_t c);              // false
    virtual bool Hook24(uintptr_t a, uintptr_t b);                           // false
    virtual void SetNil();                               // the block := g_pDataNil
    virtual bool IsNil(const CKELPImgData* block) const; // null or g_pDataNil
    virtual bool AllocData();                            // a new zeroed block
    virtual void FreeData();                             // deletes the block, then SetNil
    virtual bool AllocPixels(uint32_t size);             // descriptor and pixels, one allocation
    virtual void FreePixels();
    virtual void FreeAll(); // FreePixels if valid and owned, then FreeData
    virtual bool MakeUnique();
    virtual bool PrepareFor(const CKELPImg& other);
    virtual int32_t Increment(volatile int32_t* value); // atomic, gives the new value
    virtual int32_t Decrement(volatile int32_t* value); // atomic, gives the new value
    virtual bool UseMMX();

    // ---- the class-wide allocator of new pixel memory
    // At start the library's page allocator; null means plain new. Gives the old one.
    static IAllocator* SetAllocator(IAllocator* allocator);
    static IAllocator* GetAllocator();

    // ---- accessors
    CKELPImgData* _IGetData() const { return m_pData; }
    uint32_t GetTag() const { return m_dwTag; }
    bool IsValidDIB() const { return m_pData->m_pDesc && m_pData->m_pPixels; }
    bool IsOwnedDIB() const { return IsValidDIB() && m_pData->m_bOwned; }
    KXBMINFOHEADER* GetDesc() const { return m_pData->m_pDesc; }
    void* GetPixels() const { return m_pData->m_pPixels; }
    uint32_t HeaderSize() const { return m_pData->m_pDesc ? m_pData->m_pDesc->biSize : 0; }
    int32_t DIBSize() const;      // asserts IsValidDIB
    uint32_t HeaderBytes() const; // asserts IsValidDIB
    int32_t DIBWidth() const { return m_pData->m_pDesc ? m_pData->m_pDesc->biWidth : 0; }
    int32_t DIBHeight() const { return m_pData->m_pDesc ? m_pData->m_pDesc->biHeight : 0; }
    uint16_t DIBPlanes() const { return m_pData->m_pDesc ? m_pData->m_pDesc->biPlanes : 0; }
    uint16_t DIBBitCount() const { return m_pData->m_pDesc ? m_pData->m_pDesc->biBitCount : 0; }
    uint32_t DIBCompression() const {
        return m_pData->m_pDesc ? m_pData->m_pDesc->biCompression : 0;
    }
    uint32_t DIBRatioX() const;    // 0 reads as 0x10000
    uint32_t DIBRatioY() const;    // 0 reads as 0x10000
    uint32_t DIBAlpha() const;     // asserts IsValidDIB; 0 without a descriptor
    uint32_t DIBFormat() const;    // asserts IsValidDIB; 0 without a descriptor
    uint32_t DIBFrame() const;     // asserts IsValidDIB; 0 without a descriptor
    int32_t DIBAlignment() const;  // asserts IsValidDIB; 0 reads as 4; 4 without a descriptor
    bool DIBIsRGB() const;         // asserts IsValidDIB
    bool DIBColorSpaceYUV() const; // asserts IsValidDIB
    // The YUV extension; each asserts IsValidDIB and DIBColorSpaceYUV.
    uint32_t DIBYUVColorSpace() const;
    uint32_t DIBYUVBits() const; // 0 reads as 8
    uint32_t DIBYUVSampling() const;
    uint32_t DIBYUVSamplingAux() const;
    // No descriptor or no pixels, or no bits, width or height.
    bool IsEmpty() const;

  private:
    void Assert(bool ok, const char* text, unsigned line) const;
    void AssertYuv(unsigned line) const; // valid, and a YUV record
    // Bytes of pixel data as an unsigned count (DIBSize without the sign of the
    // row order).
    uint32_t PixelBytes() const;

    CKELPImgData* m_pData;
    uint32_t m_dwTag;
};

} // namespace kelp
