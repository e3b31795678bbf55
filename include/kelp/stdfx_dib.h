// The toolkit's image: a handle with value semantics on a shared, reference-counted body
// that holds one descriptor and one pixel buffer. Copying a handle shares the body; an
// operation that writes makes the body private first (copy on write). A locked image is
// never shared: assigning from it copies. Reference counts are atomic, so bodies may be
// shared between threads as long as nobody writes through a handle while another makes
// its copy.
//
// Every operation is virtual, the storage operations included, so that a subclass can
// change how memory is got. Operations that report answer false for failure and leave
// the image as it was or empty.
#pragma once

#include <atomic>
#include <cstddef>

#include "kelpdefs.h"
#include "kxbih.h"

namespace stdfx {

// Row size of an image: the stride word when set, else from the format (0 for a format
// whose rows the toolkit does not size). A 64-byte bmiAlignment rounds it up to 64.
KELP_API int32_t DIBStride(const KXBMINFOHEADER* h);
// Bytes of the pixels, the alpha plane of a 32-bit 4:2:2 image included; 0 for a format
// the toolkit does not size, or a size beyond 31 bits.
KELP_API uint32_t DIBImageSize(const KXBMINFOHEADER* h);
// Row size of the alpha plane of a 32-bit 4:2:2 image: the word at 140 when set, else the
// width rounded up to 4.
KELP_API int32_t DIBAlphaStride(const KXBMINFOHEADER* h);
// A short name of the pixel format: "BGRA", "BGR", "BGRAZ", "YUV444", "YUV422", ...
KELP_API const wchar_t* DIBFormatString(const KXBMINFOHEADER* h);

// The shared body. cbSize is the size of this record on this platform.
struct CDIBData {
    uint32_t cbSize;
    std::atomic<int32_t> lRefs; // -1 while locked, 0 in the empty body
    bool bOwned;                // the block belongs to this body
    uint32_t cbBlock;           // bytes of the block
    KXBMINFOHEADER* pHeader;    // in an owned block, its start
    void* pBits;                // in an owned block, on a 64-byte boundary
};

class KELP_API CDIB {
public:
    static constexpr uint32_t kFormatALP1 = KXFOURCC('A', 'L', 'P', '1');

    CDIB();
    CDIB(const CDIB& other);                     // as Assign
    explicit CDIB(const KXBMINFOHEADER* header); // as Create
    CDIB(KXBMINFOHEADER* header, void* bits);    // as Attach; empty if one is null
    CDIB& operator=(const CDIB& other) { return Assign(other); }

    // ---- virtual operations, in slot order
    virtual ~CDIB();
    virtual void Release();
    virtual CDIB& CopyFrom(const CDIB& source); // deep copy
    virtual CDIB& Assign(const CDIB& source);   // share, or copy where a lock forbids it
    // Only the pixels, and only if this image is at least the source's size; true also
    // when nothing was copied.
    virtual bool CopyBits(const CDIB& source);
    virtual int32_t GetRefCount() const;
    virtual bool IsLocked() const;
    // Makes the image private and locked for direct work on its pixels; null on failure.
    virtual KXBMINFOHEADER* Lock();
    virtual void Unlock();
    // Wraps a header and pixels that stay the caller's; nothing is copied.
    virtual void Attach(KXBMINFOHEADER* header, void* bits);
    virtual void Detach();
    // An owned block for this header, pixels uninitialised.
    virtual bool Create(const KXBMINFOHEADER* header);
    // Translates the source's pixels into this image's format (same width and height).
    // `field` -1 converts all lines, 0 or 1 one field; `flag` selects nothing in the
    // translators of this library.
    virtual bool Convert(const CDIB& source, int field, int flag);
    virtual bool CreateConverted(const KXBMINFOHEADER* header, const CDIB& source, int field);
    virtual bool CreateFieldExpanded(const CDIB& source, unsigned field, int method);
    virtual bool DeinterlaceTemporal(const CDIB& previous, const CDIB& current, const CDIB& next,
                                     int method, int parity, int field);
    virtual bool Deinterlace(const CDIB& source, int method, int parity, int field);
    virtual bool CreateDeinterlacedTemporal(const CDIB& previous, const CDIB& current,
                                            const CDIB& next, int method, int parity, int field);
    virtual bool CreateDeinterlaced(const CDIB& source, int method, int parity, int field);
    // A BMP file as an image; see the porting notes for where it is looked for.
    virtual bool LoadResource(unsigned short id, KXMODULE module);
    virtual bool LoadResource(const wchar_t* name, KXMODULE module);
    // First and last memory line of a field (-1: all lines).
    virtual int FirstLine(int field) const;
    virtual int LastLine(int field) const;
    virtual ptrdiff_t FirstLineOffset(int field) const;
    virtual ptrdiff_t FirstLineOffset2(int field) const;
    virtual ptrdiff_t LastLineOffset(int field) const;
    virtual ptrdiff_t FirstAlphaOffset(int field) const;
    virtual ptrdiff_t FirstAlphaOffset2(int field) const;
    virtual ptrdiff_t LastAlphaOffset(int field) const;
    virtual bool IsEmpty() const;
    virtual bool IsBottomUp() const;
    virtual bool IsTopDown() const;
    virtual void GetHeader144(void* out) const;        // 144 bytes
    virtual void GetHeader(void* out) const;           // 160 bytes
    virtual void GetBitmapInfoHeader(void* out) const; // 40 bytes
    virtual uint32_t GetHeaderSize() const;
    virtual void SetFormat(uint32_t format, uint32_t size);
    virtual uint32_t GetFlags() const;
    virtual bool HasZFlag() const;
    // Every pixel of the field (-1: all lines) to `value`; YUV images to black.
    virtual bool Fill(int field, uint32_t value);
    virtual bool CopyCentred(const CDIB& source, const CDIB& background, int field);
    virtual bool CopyCentred(const CDIB& source, int field);
    virtual bool Compose(const CDIB& source, int a, int b);
    virtual bool CompressAlpha();
    virtual bool DecompressAlpha();
    virtual bool BlendTwo(const CDIB& source, int opacity, int field);
    virtual bool BlendThree(const CDIB& first, const CDIB& second, int opacity, int field);
    virtual bool Premultiply(int field);
    virtual bool Unpremultiply(int field);
    // Clears this image, then copies the source into it with its top left corner at
    // (x, y), counted from the top; true also when nothing overlaps.
    virtual bool CopyAt(const CDIB& source, int x, int y);
    // Bytes 2, 1, 0 of the pixel at (x, y), y counted from the top; -1 in all three and
    // false outside the image.
    virtual bool GetPixel(int* red, int* green, int* blue, int x, int y) const;
    virtual int GetPixel8(int x, int y) const; // -1 outside
    // Debugging aids: the picture, or its alpha as grey, written to a PNG file in the
    // temporary directory. The four numbers are a place on a desktop the image would
    // be shown at; they name the file.
    virtual bool ShowOnDesktop(int x, int y, int width, int height);
    virtual bool ShowAlphaOnDesktop(int x, int y, int width, int height);

protected:
    virtual void SetEmpty();
    virtual bool NewBody();
    virtual void DeleteBody();
    virtual bool AllocBlock(uint32_t bytes);
    virtual void FreeBlock();
    virtual void FreeAll();

public:
    // Gives this handle a private body (copying the pixels if the body is shared).
    virtual bool MakeWritable();
    // A private owned body large enough for the source's header and pixels.
    virtual bool Reallocate(const CDIB& source);

protected:
    virtual int32_t IncrementRef(std::atomic<int32_t>* refs);
    virtual int32_t DecrementRef(std::atomic<int32_t>* refs);

public:
    virtual bool CopyCentredRGB(const CDIB& source, const CDIB& background, int field);
    virtual bool CopyCentredRGBPlain(const CDIB& source, int field);
    virtual bool CopyCentred444(const CDIB& source, const CDIB& background, int field);
    virtual bool CopyCentred444Plain(const CDIB& source, int field);
    virtual bool CopyCentred422(const CDIB& source, const CDIB& background, int field);
    virtual bool CopyCentred422Plain(const CDIB& source, int field);

    // ---- non-virtual helpers
    bool IsValid() const { return m_pData && m_pData->pHeader && m_pData->pBits; }
    KXBMINFOHEADER* Header() const { return m_pData->pHeader; }
    void* Bits() const { return m_pData->pBits; }
    int32_t Width() const;   // 0 without a header
    int32_t Height() const;  // absolute, 0 without a header
    int32_t Stride() const;  // DIBStride, 0 without a header
    uint32_t Format() const; // biCompression, 0 without a header
    bool IsFlatYUV() const;  // "@YUV" or "YUVz"
    bool Is444() const;      // "@YUV" 4:4:4
    bool Is422() const;      // "@YUV" with sampling 0 or 512
    bool IsYUV444() const;   // "@YUV" or "YUVz" 4:4:4
    bool IsBGRAZ() const;
    bool IsRGB() const;
    bool IsYUVz() const;
    // The alpha plane of a 32-bit 4:2:2 image; null for any other image.
    unsigned char* GetAlphaPlane() const;
    int32_t GetAlphaStride() const;
    int GetFieldFlag() const; // 1 for an interlaced image, and without a header
    void SetFrameFlag(uint32_t frame);
    static int BytesPerPixel(const KXBMINFOHEADER* h);
    const CDIBData* Data() const { return m_pData; }

protected:
    // The header space and pixel offset of a new owned block for a header of `size`
    // bytes; advances the stagger counter.
    static uint32_t BlockOffset(uint32_t size);
    // Allocates and fills an owned block for `header`: header copied, pixels
    // uninitialised, alpha plane words set. The body must be new.
    bool MakeBlock(const KXBMINFOHEADER* header, uint32_t headerSize);
    // Sets the alpha plane words of a 32-bit 4:2:2 image.
    void SetAlphaWords();

    CDIBData* m_pData;
};

} // namespace stdfx
