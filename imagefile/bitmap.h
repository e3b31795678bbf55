// The decoded image that the file backends hand to the loader: a device-independent
// bitmap in the library's own layout (rows bottom-up, each padded to 4 bytes, colour
// bytes in blue, green, red, alpha order), at 1, 4, 8, 16 (5-5-5), 24 or 32 bits, with
// a colour table below 16 bits. Also the few operations every format shares: depth
// changes, orientation, resizing, and the size limits of hostile files.
#pragma once

#include <kelp/alloc.h>
#include <kelp/kelpdefs.h>

#include <cstddef>
#include <cstdint>

namespace kelp {
namespace imgfile {

// Limits of what a file may make the library allocate. The pixel limit keeps every
// image's byte count (32 bits a pixel) below 2^31, where the descriptor's 32-bit sizes
// and the allocators' unsigned sizes hold it. Lower limits come from the settings.
constexpr uint64_t kMaxPixelsCeiling = uint64_t(1) << 28; // 268,435,456 pixels
constexpr int32_t kMaxSide = 1 << 20;                     // 1,048,576 pixels a side

// Where the working bitmaps of the readers come from: the library's dual allocator
// (heap blocks for small pictures, pages for large ones). Defined apart from the
// readers, so that they can be built alone.
IAllocator* WorkAllocator();

struct Limits {
    uint64_t maxPixels = kMaxPixelsCeiling;
};

// True if an image of width x height may be made: both sides 1..kMaxSide and the
// pixel count within the limit.
bool SizeAllowed(int64_t width, int64_t height, const Limits& limits);
// True if an image of `pixels` pixels can come from `bytes` bytes of a file when one
// byte can describe at most `pixelsPerByte` pixels: the guard against a small file
// that declares a huge image.
bool PlausibleForBytes(uint64_t pixels, uint64_t bytes, uint64_t pixelsPerByte);

// Bytes of one padded row.
inline uint32_t RowBytes(int32_t width, uint32_t bits) {
    return uint32_t(((uint64_t(width) * bits + 31) / 32) * 4);
}

class Bitmap {
  public:
    Bitmap() = default;
    ~Bitmap() { Reset(); }
    Bitmap(const Bitmap&) = delete;
    Bitmap& operator=(const Bitmap&) = delete;
    Bitmap(Bitmap&& other) noexcept { *this = static_cast<Bitmap&&>(other); }
    Bitmap& operator=(Bitmap&& other) noexcept;

    // Allocates width x height at `bits` through `allocator` (WorkAllocator() if null). The pixels
    // are not cleared, except for the padding at the end of each row, which is zero so that no
    // stale memory reaches a file. False on failure or for a size beyond the limits.
    bool Create(int32_t width, int32_t height, uint32_t bits, const Limits& limits,
                IAllocator* allocator = nullptr);
    void Reset();
    // Describes memory that stays the caller's: never freed here. Rows are bottom-up
    // unless `topDown`; `stride` bytes apart.
    void View(int32_t width, int32_t height, uint32_t bits, uint32_t stride, bool topDown,
              unsigned char* data);

    // Gives the pixels to the caller, who frees them through Allocator().
    unsigned char* Release();

    int32_t Width() const { return m_width; }
    int32_t Height() const { return m_height; }
    uint32_t Bits() const { return m_bits; }
    uint32_t Stride() const { return m_stride; }
    uint32_t ImageBytes() const { return m_stride * uint32_t(m_height); }
    IAllocator* Allocator() const { return m_allocator; }
    unsigned char* Data() const { return m_data; }
    bool Empty() const { return m_data == nullptr; }
    bool TopDown() const { return m_topDown; } // only views of a caller's memory
    // Line y counted from the top of the picture.
    unsigned char* Line(int32_t y) const {
        return m_data + size_t(m_topDown ? y : m_height - 1 - y) * m_stride;
    }

    // The colour table of images below 16 bits: entries as blue, green, red, 0.
    uint32_t palette[256] = {};
    uint32_t colors = 0; // entries in use
    // What the fourth byte of a 32-bit image holds.
    enum Alpha { kStraight, kIgnore, kPremultiplied };
    Alpha alpha = kStraight;

  private:
    int32_t m_width = 0;
    int32_t m_height = 0;
    uint32_t m_bits = 0;
    uint32_t m_stride = 0;
    bool m_topDown = false;
    unsigned char* m_data = nullptr;
    IAllocator* m_allocator = nullptr; // null for a view
};

// A grey ramp of 2^bits entries as the colour table (bits 1, 2, 4 or 8).
void SetGreyPalette(Bitmap* bmp, uint32_t bits);

// The image at 24 or 32 bits (from any depth), into `out`, made through `allocator`.
// Going to 32 bits, the fourth byte is 255 unless the source has it; going to 24 it is
// dropped.
bool ChangeDepth(const Bitmap& src, uint32_t bits, Bitmap* out, const Limits& limits,
                 IAllocator* allocator = nullptr);

// `src` itself if it has `bits` already, otherwise its copy at `bits` (24 or 32) made
// in `tmp`; null on failure.
const Bitmap* AtDepth(const Bitmap& src, uint32_t bits, Bitmap* tmp, const Limits& limits);

// Applies an orientation code (1 to 8, as cameras write it: 2 mirrors, 3 turns by a
// half, 4 flips, 5 transposes, 6 turns a quarter clockwise, 7 transverses, 8 turns a
// quarter counter-clockwise) to a 24- or 32-bit image. Codes 5 to 8 swap the sides.
bool Orient(const Bitmap& src, uint32_t orientation, Bitmap* out, const Limits& limits,
            IAllocator* allocator = nullptr);

// A 24- or 32-bit image resampled to width x height: area averaging where a side
// shrinks, linear interpolation where it grows. Exact integer arithmetic.
bool Resize(const Bitmap& src, int32_t width, int32_t height, Bitmap* out, const Limits& limits,
            IAllocator* allocator = nullptr);

} // namespace imgfile
} // namespace kelp
