// The image file object: the algorithm that stands above the format backends. It
// sorts files into the library's own ".BSI" format, the refused ".VM", and the rest,
// which go to the backends; chooses the size of metafiles; decides orientation, stamp
// and depth; and writes ".bmp" and ".BSI" itself.
#pragma once

#include <kelp/imageio.h>
#include <kelp/mpheap.h>

#include <string>

#include "backend.h"
#include "runtime/kelpos.h"

namespace kelp {
namespace imgfile {

// The file's name extension without the dot, in lower case; "" if none.
std::wstring ExtensionOf(const wchar_t* path);

// A whole file in memory.
class FileData {
  public:
    FileData() = default;
    ~FileData();
    FileData(const FileData&) = delete;
    FileData& operator=(const FileData&) = delete;
    bool Read(const wchar_t* path);
    Bytes Get() const { return Bytes{m_data, m_size}; }

  private:
    unsigned char* m_data = nullptr;
    size_t m_size = 0;
};

// A file given to its backend, with the information the backend found.
struct OpenedFile {
    FileData data;
    const CBackend* backend = nullptr;
    FileInfo info;
    int32_t resolution = 0; // metafiles: the dots per inch they are rendered at
};

// File information with the size rules of metafiles: a metafile is measured at the
// requested size if that is smaller than its own, and never above 2,048 pixels a side.
// 1 on success, a negative number on failure.
int32_t ReadFileInfo(const wchar_t* path, int32_t width, int32_t height, OpenedFile* file);

// The limits of what a file may make the library allocate: the ceiling, lowered by the
// setting "MaxPixels" of the section "KELPIMG" where it is set.
Limits LimitsFromSettings();

class CImageIO : public IImageIO, public CKELPHeapObject {
  public:
    CImageIO();
    void Release() override;
    uint32_t GetVersion() override { return KXIMAGEIO_VERSION; }
    KXRESULT GetImageInfo(const wchar_t* path, KXBMINFOHEADER** desc,
                          IAllocator* allocator) override;
    KXRESULT LoadImage(const wchar_t* path, KXBMINFOHEADER* desc, void** pixels,
                       IAllocator* allocator, const ImageLoadOptions* options) override;
    KXRESULT SaveImage(const wchar_t* path, const KXBMINFOHEADER* desc, const void* pixels,
                       const ImageSaveOptions* options) override;
    const wchar_t* GetFileFilter() override;

  private:
    KXRESULT InfoBsi(const wchar_t* path, KXBMINFOHEADER** desc, IAllocator* allocator);
    KXRESULT InfoFile(const wchar_t* path, KXBMINFOHEADER** desc, IAllocator* allocator);
    KXRESULT LoadBsi(const wchar_t* path, KXBMINFOHEADER* desc, void** pixels,
                     IAllocator* allocator);
    KXRESULT LoadFile(const wchar_t* path, KXBMINFOHEADER* desc, void** pixels,
                      IAllocator* allocator, const ImageLoadOptions* options);
    KXRESULT SaveBmp(const wchar_t* path, const KXBMINFOHEADER* desc, const void* pixels,
                     const ImageSaveOptions* options);
    KXRESULT SaveBsi(const wchar_t* path, const KXBMINFOHEADER* desc, const void* pixels);
    KXRESULT SaveFile(const wchar_t* path, const std::wstring& ext, const KXBMINFOHEADER* desc,
                      const void* pixels, const ImageSaveOptions* options);

    // Initialised and deleted with the object, never taken: calls on one object come
    // from one thread at a time.
    os::CriticalSection m_lock;
    Limits m_limits;
};

} // namespace imgfile
} // namespace kelp
