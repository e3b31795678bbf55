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

// A block that holds a file's bytes. The object keeps one from call to call, so that
// loading picture after picture reads each file into memory that is already mapped.
class FileBuffer {
  public:
    FileBuffer() = default;
    ~FileBuffer();
    FileBuffer(const FileBuffer&) = delete;
    FileBuffer& operator=(const FileBuffer&) = delete;
    // Room for `size` bytes, the first `keep` of them kept. False if memory runs out.
    bool Reserve(size_t size, size_t keep);
    unsigned char* Data() const { return m_data; }

  private:
    unsigned char* m_data = nullptr;
    size_t m_capacity = 0;
};

// A file's bytes from its start, read as far as they are needed: the first bytes for
// the information of most formats, the whole file to load it. Each byte is read once.
class FileData {
  public:
    // `buffer`: where the bytes go (null: a buffer of this object's own).
    explicit FileData(FileBuffer* buffer = nullptr) : m_buffer(buffer ? buffer : &m_own) {}
    ~FileData();
    FileData(const FileData&) = delete;
    FileData& operator=(const FileData&) = delete;
    // Opens the file and learns its size; nothing is read yet. Empty files and files of
    // 2 GiB or more, which hold no picture this library can take, fail.
    bool Open(const wchar_t* path);
    // At least min(bytes, FileSize()) bytes from the start in memory.
    bool ReadTo(uint64_t bytes);
    bool ReadAll() { return ReadTo(m_fileSize); }
    bool Whole() const { return m_have == m_fileSize; }
    uint64_t FileSize() const { return m_fileSize; }
    // The bytes read so far.
    Bytes Get() const { return Bytes{m_buffer->Data(), m_have}; }

  private:
    FileBuffer m_own;
    FileBuffer* m_buffer;
    os::FileHandle* m_file = nullptr;
    uint64_t m_fileSize = 0;
    size_t m_have = 0;
};

// A file given to its backend, with the information the backend found.
struct OpenedFile {
    explicit OpenedFile(FileBuffer* buffer = nullptr) : data(buffer) {}
    FileData data;
    const CBackend* backend = nullptr;
    FileInfo info;
    int32_t resolution = 0; // metafiles: the dots per inch they are rendered at
};

// How much of a file is read first to learn what it is. Backends that know where their
// information ends ask for more if it lies further in; the others read the whole file.
constexpr uint64_t kHeadBytes = 64 * 1024;

// File information with the size rules of metafiles: a metafile is measured at the
// requested size if that is smaller than its own, and never above 2,048 pixels a side.
// With `whole` the whole file is read (to load it after), otherwise only as much as the
// information needs. 1 on success, a negative number on failure.
int32_t ReadFileInfo(const wchar_t* path, int32_t width, int32_t height, bool whole,
                     OpenedFile* file);

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
    // The bytes of the last file read, kept for the next (see FileBuffer).
    FileBuffer m_buffer;
};

} // namespace imgfile
} // namespace kelp
