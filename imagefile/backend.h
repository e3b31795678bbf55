// The interface between the image file algorithm (imageio.cpp) and the format
// backends, one per file format. A backend works on the bytes of a whole file in
// memory and never touches the file system: the algorithm above reads and writes the
// files. What a backend offers is what the algorithm asks of an imaging library: file
// information, loading, loading resized, reading the stamp (the small preview image
// stored in some files), and saving. Depth changes, orientation and resizing are the
// shared operations of bitmap.h.
#pragma once

#include <kelp/kelpdefs.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "bitmap.h"

namespace kelp {
namespace imgfile {

// Format codes of the file information. The algorithm gives meaning to two of them: a
// metafile is rendered at a size the loader chooses, and a refused format is not read.
enum : uint32_t {
    kFormatUnknown = 0,
    kFormatBmp = 1,
    kFormatTiff = 3,
    kFormatTga = 4,
    kFormatJpeg = 10,
    kFormatPcx = 11,
    kFormatPsd = 12,
    kFormatPng = 13,
    kFormatMetafile = 15, // vector drawing, rendered at a chosen resolution
    kFormatRefused = 141, // recognised, but not read by this build
};

// FileInfo::flags: the file holds a stamp.
constexpr uint32_t kInfoHasStamp = 4;

// The bytes of a file.
struct Bytes {
    const unsigned char* data = nullptr;
    size_t size = 0;
};

struct FileInfo {
    uint32_t format = kFormatUnknown;
    const wchar_t* name = L""; // short name of the format, "JPEG", "PNG", ...
    int32_t width = 0;         // as stored, before any orientation
    int32_t height = 0;
    uint32_t bits = 0;        // the file's depth: 1, 4, 8, 16, 24 or 32
    int32_t xResolution = 0;  // dots per inch across; 0 if the file does not say
    uint32_t orientation = 1; // 1 to 8, as cameras write it
    uint32_t flags = 0;       // kInfoHasStamp
    int32_t stampWidth = 0;   // the stamp's size where the file tells it
    int32_t stampHeight = 0;
};

struct DecodeRequest {
    // 24 or 32: the depth wanted. Any other value: the file's own depth.
    uint32_t bits = 0;
    // A backend that can decode at a reduced size may give any size whose sides are at
    // least these (0: full size).
    int32_t minWidth = 0;
    int32_t minHeight = 0;
    // Metafiles: dots per inch to render at; 0 for the file's own size.
    int32_t resolution = 0;
    Limits limits;
    // Where the result's pixels come from if it is made at `bits` (null: the library's
    // dual allocator). See ResultAllocator.
    IAllocator* allocator = nullptr;
};

// The allocator for a decoded picture of `bits`: the request's if that is the depth
// asked for, so that the picture goes to the caller as it is; the library's otherwise,
// as another step follows.
inline IAllocator* ResultAllocator(const DecodeRequest& req, uint32_t bits) {
    return bits == req.bits ? req.allocator : nullptr;
}

struct LoadRequest {
    uint32_t bits = 0;        // as DecodeRequest::bits
    uint32_t orientation = 1; // the orientation to apply to the picture
    int32_t resolution = 0;   // as DecodeRequest::resolution
    Limits limits;
    // Where the result's pixels come from; used for the last step of the load only.
    IAllocator* allocator = nullptr;
};

// Output of a writer.
typedef std::vector<unsigned char> ByteSink;

class CBackend {
  public:
    virtual const wchar_t* Name() const = 0;
    // Whether the file is of this backend's format. `ext` is the file name's extension
    // in lower case without the dot, "" if none.
    virtual bool Sniff(const Bytes& file, const wchar_t* ext) const = 0;
    // How many bytes from the start of a file of `fileSize` bytes its information needs,
    // judged from the first bytes `head`; a number beyond `head` asks to see more first.
    // The information read from that many bytes is the information of the whole file.
    // Backends that cannot tell answer `fileSize`.
    virtual uint64_t InfoBytes(const Bytes& head, uint64_t fileSize) const;
    // File information. Metafiles are measured at `resolution` dots per inch (0: their
    // own size). KX_OK or KXE_IMAGEFILE.
    virtual KXRESULT Info(const Bytes& file, int32_t resolution, FileInfo* info) const = 0;
    // The picture at req.bits, turned by req.orientation.
    KXRESULT Load(const Bytes& file, const LoadRequest& req, Bitmap* out) const;
    // The same, resampled to exactly width x height (of the turned picture).
    KXRESULT LoadResized(const Bytes& file, const LoadRequest& req, int32_t width, int32_t height,
                         Bitmap* out) const;
    // The stamp stored in the file, at its own depth. KXE_IMAGEFILE if there is none.
    virtual KXRESULT ReadStamp(const Bytes& file, const Limits& limits, Bitmap* out) const;
    // Writes `image` at `bits` (24 or 32) with the quality factor of the algorithm: 2 is
    // the best quality, 255 the strongest compression. KXE_IMAGEFILE if this backend
    // does not write files.
    virtual KXRESULT Save(const Bitmap& image, uint32_t bits, uint32_t qualityFactor,
                          ByteSink* out) const;

    // Decodes the picture as stored (the step under Load).
    virtual KXRESULT Decode(const Bytes& file, const DecodeRequest& req, Bitmap* out) const = 0;

  protected:
    ~CBackend() = default;
};

// The backend for a file's bytes and extension, or null if no backend knows the file.
const CBackend* FindBackend(const Bytes& file, const wchar_t* ext);

} // namespace imgfile
} // namespace kelp
