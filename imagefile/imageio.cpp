// The image file object.
#include "imageio.h"

#include <kelp/kelpcfg.h>
#include <kelp/kxconv.h>
#include <kelp/trace.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <vector>

#include "bmpio.h"
#include "bsiio.h"
#include "convert/catchall.h"
#include "jpegio.h"
#include "pngio.h"
#include "tgaio.h"
#include "tiffio.h"

namespace kelp {
namespace imgfile {

namespace {

const wchar_t kFileFilter[] = L"Image File (*.tif,*.tga,*.jpg,*.bmp,*.png,*pcx,*.psd,*.bsi)|"
                              L"*.tif;*.tga;*.jpg;*.bmp;*.png;*pcx;*.psd;*.bsi|";
// No side of a rendered metafile exceeds this.
constexpr int64_t kMetafileSide = 2048;
// Load options shorter than this carry no flags.
constexpr uint32_t kLoadOptionsSize = 24;

void TraceOpen(const wchar_t* path) {
    dbgPrintf(8, 2, L"KXCONV: Unable to open file %s\n\r", path);
}
void TraceRead(const wchar_t* path) {
    dbgPrintf(8, 2, L"KXCONV: Unable to read file %s\n\r", path);
}
void TraceWrite(const wchar_t* path) {
    dbgPrintf(8, 2, L"KXCONV: Unable to write file %s\n\r", path);
}

int Elapsed(uint32_t start) {
    return int(os::GetTickCount() - start);
}

class File {
  public:
    explicit File(os::FileHandle* f) : m_f(f) {}
    ~File() {
        if (m_f) os::CloseFile(m_f);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    os::FileHandle* get() const { return m_f; }
    bool ReadExact(void* buffer, size_t size) {
        size_t done = 0;
        return os::ReadFile(m_f, buffer, size, &done) && done == size;
    }
    bool WriteAll(const void* buffer, size_t size) {
        size_t done = 0;
        return os::WriteFile(m_f, buffer, size, &done) && done == size;
    }
    bool Close() {
        const bool ok = os::CloseFile(m_f);
        m_f = nullptr;
        return ok;
    }

  private:
    os::FileHandle* m_f;
};

// A file made of pieces written one after another. A failed write leaves what was
// written.
struct Piece {
    const void* data;
    size_t size;
};
bool WriteFileWhole(const wchar_t* path, std::initializer_list<Piece> pieces) {
    File f(os::CreateFileWrite(path));
    if (!f.get()) return false;
    for (const Piece& p : pieces)
        if (p.size && !f.WriteAll(p.data, p.size)) return false;
    return f.Close();
}

uint32_t ReadU32(const unsigned char b[4]) {
    return uint32_t(b[0]) | (uint32_t(b[1]) << 8) | (uint32_t(b[2]) << 16) | (uint32_t(b[3]) << 24);
}

// The level-30 lines of a record that GetImageInfo gives. The compression word is
// shown as its four characters, and as "(null)" for RGB.
void TraceRecord(const wchar_t* path, const KXBMINFOHEADER* d) {
    wchar_t code[5] = {};
    for (int i = 0; i < 4; ++i)
        code[i] = wchar_t((d->biCompression >> (8 * i)) & 0xFF);
    dbgPrintf(8, 30,
              L"Filename:   %s\r\nWidth:   %d\r\nHeight:   %d\r\nBitsPerPixel:   %d\r\nSize:   "
              L"%ld\r\nCompression:   %s\r\nFormatFlag:   %08x\r\n",
              path, d->biWidth, d->biHeight, int(d->biBitCount), d->biSizeImage,
              d->biCompression ? code : static_cast<const wchar_t*>(nullptr), d->bmiFormat);
}

int32_t ClampSide(uint32_t v) {
    return v > uint32_t(kMaxSide) ? kMaxSide + 1 : int32_t(v);
}

// The caller's image as a bitmap to save: uncompressed RGB of 1 to 32 bits, rows as the
// alignment of the record says, a colour table behind the record below 16 bits.
bool ViewOf(const KXBMINFOHEADER* d, const void* pixels, const Limits& limits, Bitmap* view) {
    uint64_t stride;
    int32_t h;
    if (!RgbRows(d, limits, &stride, &h)) return false;
    // A record that claims fewer bytes than its rows need is refused; without a claim the
    // rows are taken as the record describes them.
    if (d->biSizeImage && d->biSizeImage < stride * uint64_t(h)) return false;
    const uint32_t bits = d->biBitCount;
    view->View(d->biWidth, h, bits, uint32_t(stride), d->biHeight < 0,
               static_cast<unsigned char*>(const_cast<void*>(pixels)));
    if (bits <= 8) {
        const uint32_t most = 1u << bits;
        const uint32_t n = d->biClrUsed && d->biClrUsed < most ? d->biClrUsed : most;
        std::memcpy(view->palette, reinterpret_cast<const unsigned char*>(d) + d->biSize, n * 4);
        for (uint32_t i = 0; i < n; ++i)
            view->palette[i] &= 0xFFFFFF;
        view->colors = n;
    }
    if (bits == 32)
        view->alpha = d->bmiAlpha == KXDIB_ALPHA_OPAQUE          ? Bitmap::kIgnore
                      : d->bmiAlpha == KXDIB_ALPHA_PREMULTIPLIED ? Bitmap::kPremultiplied
                                                                 : Bitmap::kStraight;
    return true;
}

// Bytes of pixel data of a record, as written to a file: what it claims, or for an RGB
// record that claims nothing, what its rows take.
uint32_t PixelBytesOf(const KXBMINFOHEADER* d) {
    if (d->biSizeImage) return d->biSizeImage;
    uint64_t stride;
    int32_t rows;
    if (RgbRows(d, Limits(), &stride, &rows)) return uint32_t(stride * uint64_t(rows));
    const int32_t size = DIBSize(d);
    return size < 0 ? 0u - uint32_t(size) : uint32_t(size);
}

// Whether the caller's pixels hold the picture the record describes.
bool PixelsAgree(const KXBMINFOHEADER* d, const Limits& limits) {
    return d->biSize >= 40 && RecordMatchesPixels(d, d->biSize, PixelBytesOf(d), limits);
}

} // namespace

// ---------------------------------------------------------------- files and names

std::wstring ExtensionOf(const wchar_t* path) {
    if (!path) return L"";
    const std::wstring s(path);
    const size_t slash = s.find_last_of(L'/');
    const size_t dot = s.find_last_of(L'.');
    if (dot == std::wstring::npos || (slash != std::wstring::npos && dot < slash)) return L"";
    std::wstring ext = s.substr(dot + 1);
    for (wchar_t& c : ext)
        if (c >= L'A' && c <= L'Z') c = wchar_t(c - L'A' + L'a');
    return ext;
}

FileBuffer::~FileBuffer() {
    if (m_data) GetDualAllocator()->Free(m_data);
}

bool FileBuffer::Reserve(size_t size, size_t keep) {
    if (size <= m_capacity) return true;
    if (size >= (size_t(1) << 31)) return false;
    unsigned char* p = static_cast<unsigned char*>(GetDualAllocator()->Allocate(unsigned(size), 0));
    if (!p) return false;
    if (keep) std::memcpy(p, m_data, keep);
    if (m_data) GetDualAllocator()->Free(m_data);
    m_data = p;
    m_capacity = size;
    return true;
}

FileData::~FileData() {
    if (m_file) os::CloseFile(m_file);
}

bool FileData::Open(const wchar_t* path) {
    if (!path || m_file) return false;
    m_file = os::OpenFileRead(path);
    // Files beyond 2 GiB are no still images this library can hold.
    return m_file && os::GetFileSize(m_file, &m_fileSize) && m_fileSize != 0 &&
           m_fileSize < (uint64_t(1) << 31);
}

bool FileData::ReadTo(uint64_t bytes) {
    const size_t want = size_t(std::min(bytes, m_fileSize));
    if (want <= m_have) return true;
    if (!m_file || !m_buffer->Reserve(want, m_have)) return false;
    size_t done = 0;
    if (!os::ReadFile(m_file, m_buffer->Data() + m_have, want - m_have, &done) ||
        done != want - m_have)
        return false;
    m_have = want;
    return true;
}

Limits LimitsFromSettings() {
    Limits limits;
    unsigned int v = 0;
    if (KELPGetCfg(false).ReadSettingUInt("KELPIMG", "MaxPixels", v) && v > 0 &&
        v < limits.maxPixels)
        limits.maxPixels = v;
    return limits;
}

namespace {

// The file's backend and its information, from as much of the file as they need: the
// first bytes, more where the backend asks for them, and the whole file where the first
// bytes do not tell.
bool Identify(const wchar_t* path, OpenedFile* file, FileInfo* info) {
    FileData& d = file->data;
    const std::wstring ext = ExtensionOf(path);
    for (;;) {
        file->backend = FindBackend(d.Get(), ext.c_str());
        if (file->backend) {
            uint64_t need = file->backend->InfoBytes(d.Get(), d.FileSize());
            while (need > d.Get().size && !d.Whole()) {
                // At least twice as much each time, so that a long run of segments is
                // read in a few steps.
                if (!d.ReadTo(std::max<uint64_t>(need, 2 * uint64_t(d.Get().size)))) return false;
                need = file->backend->InfoBytes(d.Get(), d.FileSize());
            }
            *info = FileInfo();
            if (KX_SUCCEEDED(file->backend->Info(d.Get(), 0, info))) return true;
        }
        if (d.Whole() || !d.ReadAll()) return false;
    }
}

} // namespace

int32_t ReadFileInfo(const wchar_t* path, int32_t width, int32_t height, bool whole,
                     OpenedFile* file) {
    if (!file->data.Open(path) || !file->data.ReadTo(whole ? file->data.FileSize() : kHeadBytes))
        return -1;
    FileInfo info;
    if (!Identify(path, file, &info)) return -1;
    const Bytes bytes = file->data.Get();
    file->info = info;
    file->resolution = 0;
    if (info.format != kFormatMetafile) return 1;

    // A metafile: its own size, then the size asked for if that is smaller, kept within
    // 2,048 pixels a side with its aspect; rendered at the resolution that gives it.
    info = FileInfo();
    if (KX_FAILED(file->backend->Info(bytes, 0, &info))) return -1;
    int64_t tw = (width > 0 && width < info.width) ? width : info.width;
    int64_t th = (height > 0 && height < info.height) ? height : info.height;
    if (tw > kMetafileSide) {
        th = th * kMetafileSide / tw;
        tw = kMetafileSide;
    }
    if (th > kMetafileSide) {
        tw = tw * kMetafileSide / th;
        th = kMetafileSide;
    }
    if (info.width > 0) {
        int64_t r = int64_t(info.xResolution) * tw / info.width;
        if (r < 1) r = 1;
        FileInfo at;
        if (KX_FAILED(file->backend->Info(bytes, int32_t(r), &at))) return -1;
        info = at;
        file->resolution = int32_t(r);
    }
    file->info = info;
    return 1;
}

// ---------------------------------------------------------------- the object

CImageIO::CImageIO() : m_limits(LimitsFromSettings()) {}

void CImageIO::Release() {
    delete this;
}

const wchar_t* CImageIO::GetFileFilter() {
    return kFileFilter;
}

KXRESULT CImageIO::GetImageInfo(const wchar_t* path, KXBMINFOHEADER** desc, IAllocator* allocator) {
    try {
        const std::wstring ext = ExtensionOf(path);
        if (ext == L"vm") {
            TraceOpen(path);
            return KXE_IMAGEFILE;
        }
        return ext == L"bsi" ? InfoBsi(path, desc, allocator) : InfoFile(path, desc, allocator);
    }
    KELP_CATCH_ALL {
        dbgPrintf(8, 2, L"KXCONV: EXCEPTION during open %s\n\r", path);
        return KXE_IMAGEFILE;
    }
}

namespace {
// A record from the caller's allocator that goes back to it unless handed over.
class Record {
  public:
    explicit Record(IAllocator* a) : m_a(a) {}
    ~Record() {
        if (m_p) m_a->Free(m_p);
    }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    KXBMINFOHEADER* Make(uint32_t bytes) {
        m_p = m_a ? static_cast<KXBMINFOHEADER*>(m_a->Allocate(bytes, 0)) : nullptr;
        if (m_p) std::memset(static_cast<void*>(m_p), 0, bytes);
        return m_p;
    }
    KXBMINFOHEADER* get() const { return m_p; }
    // To the caller's pointer, or back to the allocator if the caller has none.
    void Give(KXBMINFOHEADER** out) {
        if (!out) return;
        *out = m_p;
        m_p = nullptr;
    }

  private:
    IAllocator* m_a;
    KXBMINFOHEADER* m_p = nullptr;
};
} // namespace

KXRESULT CImageIO::InfoFile(const wchar_t* path, KXBMINFOHEADER** desc, IAllocator* allocator) {
    const uint32_t start = os::GetTickCount();
    OpenedFile file(&m_buffer);
    const int32_t r = ReadFileInfo(path, 0, 0, false, &file);
    dbgPrintf(8, 14, L"\rCImageIO::LoadImage::L_FileInfo: %d ms\n\r", Elapsed(start));
    if (r != 1) {
        TraceOpen(path);
        return KXE_IMAGEFILE;
    }
    if (file.info.format == kFormatRefused) return KXE_IMAGEFILE;
    // The limit that loading applies: a picture that cannot be loaded is not described.
    if (!SizeAllowed(file.info.width, file.info.height, m_limits)) {
        TraceOpen(path);
        return KXE_IMAGEFILE;
    }
    // A caller that only checks the file may pass no allocator.
    Record rec(allocator ? allocator : desc ? nullptr : GetCppAllocator());
    KXBMINFOHEADER* d = rec.Make(KXBMI_SIZE);
    if (!d) {
        TraceOpen(path);
        return KXE_IMAGEFILE;
    }
    const uint32_t bits = std::max<uint32_t>(24, file.info.bits);
    d->biSize = KXBMI_SIZE;
    d->bmiMagic = KXBMI_MAGIC;
    d->biPlanes = 1;
    d->biWidth = file.info.width;
    d->biHeight = file.info.height;
    d->biBitCount = uint16_t(bits);
    d->biSizeImage = RowBytes(file.info.width, bits) * uint32_t(file.info.height);
    d->biCompression = KXBI_RGB;
    TraceRecord(path, d);
    rec.Give(desc);
    return KX_OK;
}

KXRESULT CImageIO::InfoBsi(const wchar_t* path, KXBMINFOHEADER** desc, IAllocator* allocator) {
    File f(path ? os::OpenFileRead(path) : nullptr);
    if (!f.get()) {
        TraceOpen(path);
        return KXE_IMAGEFILE;
    }
    unsigned char word[4];
    uint64_t size = 0;
    if (!f.ReadExact(word, 4) || !os::GetFileSize(f.get(), &size) ||
        !BsiRecordAllowed(ReadU32(word), size)) {
        TraceRead(path);
        return KXE_IMAGEFILE;
    }
    const uint32_t s = ReadU32(word);
    Record rec(allocator ? allocator : desc ? nullptr : GetCppAllocator());
    // A record shorter than the descriptor is given room for all of its fields.
    KXBMINFOHEADER* d = rec.Make(std::max(s, KXBMI_SIZE));
    if (!d || !f.ReadExact(reinterpret_cast<unsigned char*>(d) + 4, s - 4)) {
        TraceRead(path);
        return KXE_IMAGEFILE;
    }
    d->biSize = s;
    BsiSettleExtension(d, s);
    if (!BsiPixelsPresent(d, s, size, m_limits)) {
        TraceRead(path);
        return KXE_IMAGEFILE;
    }
    TraceRecord(path, d);
    rec.Give(desc);
    return KX_OK;
}

KXRESULT CImageIO::LoadImage(const wchar_t* path, KXBMINFOHEADER* desc, void** pixels,
                             IAllocator* allocator, const ImageLoadOptions* options) {
    try {
        const std::wstring ext = ExtensionOf(path);
        if (ext == L"vm" || !desc || !pixels || !allocator) {
            TraceOpen(path);
            return KXE_IMAGEFILE;
        }
        return ext == L"bsi" ? LoadBsi(path, desc, pixels, allocator)
                             : LoadFile(path, desc, pixels, allocator, options);
    }
    KELP_CATCH_ALL {
        dbgPrintf(8, 2, L"KXCONV: EXCEPTION during load %s\n\r", path);
        return KXE_IMAGEFILE;
    }
}

KXRESULT CImageIO::LoadFile(const wchar_t* path, KXBMINFOHEADER* desc, void** pixels,
                            IAllocator* allocator, const ImageLoadOptions* options) {
    const bool full = options && options->dwSize >= kLoadOptionsSize;
    const int32_t wantW = options ? ClampSide(options->nWidth) : 0;
    const int32_t wantH = options ? ClampSide(options->nHeight) : 0;
    uint32_t start = os::GetTickCount();
    OpenedFile file(&m_buffer);
    const int32_t r = ReadFileInfo(path, wantW, wantH, true, &file);
    dbgPrintf(8, 14, L"\rCImageIO::LoadImage::L_FileInfo: %d ms\n\r", Elapsed(start));
    if (r != 1 || file.info.format == kFormatRefused) {
        TraceOpen(path);
        return KXE_IMAGEFILE;
    }
    const FileInfo& info = file.info;
    const Bytes bytes = file.data.Get();
    // A camera's quarter turns are applied; mirrored and upside-down pictures load as
    // they are stored.
    const uint32_t orientation =
        (info.orientation >= 5 && info.orientation <= 8) ? info.orientation : 1;
    uint32_t bits = info.bits;
    if (options && (options->dwBitCount == 24 || options->dwBitCount == 32))
        bits = options->dwBitCount;

    Bitmap bmp;
    bool ok = false;
    if ((info.flags & kInfoHasStamp) && full && (options->dwFlags & IMAGELOAD_STAMP)) {
        start = os::GetTickCount();
        Bitmap stamp;
        ok = KX_SUCCEEDED(file.backend->ReadStamp(bytes, m_limits, &stamp));
        if (ok && stamp.Bits() < 24) {
            Bitmap c;
            ok = ChangeDepth(stamp, 24, &c, m_limits);
            stamp = static_cast<Bitmap&&>(c);
        }
        if (ok && orientation != 1) {
            Bitmap o;
            ok = Orient(stamp, orientation, &o, m_limits);
            stamp = static_cast<Bitmap&&>(o);
        }
        dbgPrintf(8, 14, L"\rCImageIO::LoadImage::L_ReadFileStamp: %d ms\n\r", Elapsed(start));
        if (ok) bmp = static_cast<Bitmap&&>(stamp);
    }
    if (!ok) {
        // A file below 24 bits loads at its own depth and is widened after; any other
        // at the depth asked for. The caller's allocator serves the last step.
        const bool small = info.bits < 24;
        const uint32_t finalBits = small ? std::max<uint32_t>(24, bits) : bits;
        LoadRequest req;
        req.bits = small ? info.bits : bits;
        req.orientation = orientation;
        req.resolution = file.resolution;
        req.limits = m_limits;
        req.allocator = small ? nullptr : allocator;
        const bool resize =
            full && (options->dwFlags & IMAGELOAD_RESIZE) && (wantW > 0 || wantH > 0);
        start = os::GetTickCount();
        if (resize) {
            // One side alone keeps the picture's aspect.
            const bool swap = orientation >= 5;
            const int64_t pw = swap ? info.height : info.width;
            const int64_t ph = swap ? info.width : info.height;
            int64_t w = wantW, h = wantH;
            if (w <= 0) w = std::max<int64_t>(1, (h * pw + ph / 2) / std::max<int64_t>(1, ph));
            if (h <= 0) h = std::max<int64_t>(1, (w * ph + pw / 2) / std::max<int64_t>(1, pw));
            ok = KX_SUCCEEDED(file.backend->LoadResized(bytes, req, ClampSide(uint32_t(w)),
                                                        ClampSide(uint32_t(h)), &bmp));
            dbgPrintf(8, 14, L"\rCImageIO::LoadImage::L_LoadBitmapResize: %d ms\n\r",
                      Elapsed(start));
        } else {
            ok = KX_SUCCEEDED(file.backend->Load(bytes, req, &bmp));
            dbgPrintf(8, 14, L"\rCImageIO::LoadImage::L_LoadBitmap: %d ms\n\r", Elapsed(start));
        }
        if (ok && bmp.Bits() != finalBits) {
            Bitmap c;
            ok = ChangeDepth(bmp, finalBits, &c, m_limits, allocator);
            bmp = static_cast<Bitmap&&>(c);
        }
    }
    if (!ok) {
        TraceOpen(path);
        return KXE_IMAGEFILE;
    }

    void* out;
    if (bmp.Allocator() == allocator) {
        out = bmp.Release();
    } else {
        out = allocator->Allocate(bmp.ImageBytes(), 0);
        if (!out) {
            TraceOpen(path);
            return KXE_IMAGEFILE;
        }
        std::memcpy(out, bmp.Data(), bmp.ImageBytes());
    }
    desc->biWidth = bmp.Width();
    desc->biHeight = bmp.Height();
    desc->biBitCount = uint16_t(bmp.Bits());
    desc->biSizeImage = bmp.ImageBytes();
    // The fourth byte is alpha only where the file has it.
    uint32_t alpha = KXDIB_ALPHA_OPAQUE;
    if (info.bits == 32)
        alpha = bmp.alpha == Bitmap::kPremultiplied ? KXDIB_ALPHA_PREMULTIPLIED
                : bmp.alpha == Bitmap::kIgnore      ? KXDIB_ALPHA_OPAQUE
                                                    : KXDIB_ALPHA_VALID;
    desc->bmiAlpha = alpha;
    *pixels = out;
    return KX_OK;
}

KXRESULT CImageIO::LoadBsi(const wchar_t* path, KXBMINFOHEADER* desc, void** pixels,
                           IAllocator* allocator) {
    File f(os::OpenFileRead(path));
    if (!f.get()) {
        TraceOpen(path);
        return KXE_IMAGEFILE;
    }
    unsigned char word[4];
    uint64_t size = 0;
    if (!f.ReadExact(word, 4) || !os::GetFileSize(f.get(), &size) ||
        !BsiRecordAllowed(ReadU32(word), size)) {
        TraceRead(path);
        return KXE_IMAGEFILE;
    }
    const uint32_t s = ReadU32(word);
    std::unique_ptr<void, void (*)(void*)> block(NewAlloc(std::max(s, KXBMI_SIZE), kelp::nothrow),
                                                 NewFree);
    KXBMINFOHEADER* rec = static_cast<KXBMINFOHEADER*>(block.get());
    if (!rec) {
        TraceRead(path);
        return KXE_IMAGEFILE;
    }
    std::memset(static_cast<void*>(rec), 0, std::max(s, KXBMI_SIZE));
    if (!f.ReadExact(reinterpret_cast<unsigned char*>(rec) + 4, s - 4)) {
        TraceRead(path);
        return KXE_IMAGEFILE;
    }
    rec->biSize = s;
    BsiSettleExtension(rec, s);
    // The pixels must be in the file, and be the picture the record describes, before
    // any memory is taken for them.
    const uint32_t bytes = rec->biSizeImage;
    if (!BsiPixelsPresent(rec, s, size, m_limits)) {
        TraceRead(path);
        return KXE_IMAGEFILE;
    }
    void* p = allocator->Allocate(bytes ? bytes : 1, 0);
    if (!p || !f.ReadExact(p, bytes)) {
        if (p) allocator->Free(p);
        TraceRead(path);
        return KXE_IMAGEFILE;
    }
    const uint32_t keep = desc->biSize;
    std::memcpy(static_cast<void*>(desc), rec, std::min(keep, s));
    desc->biSize = keep;
    *pixels = p;
    return KX_OK;
}

KXRESULT CImageIO::SaveImage(const wchar_t* path, const KXBMINFOHEADER* desc, const void* pixels,
                             const ImageSaveOptions* options) {
    try {
        const std::wstring ext = ExtensionOf(path);
        const bool known =
            ext == L"bmp" || ext == L"bsi" || ext == L"tif" || ext == L"tga" || ext == L"jpg";
        if (!known) return KXE_IMAGEFILE;
        if (!desc || !pixels) {
            TraceWrite(path);
            return KXE_IMAGEFILE;
        }
        if (ext == L"bmp") return SaveBmp(path, desc, pixels, options);
        if (ext == L"bsi") return SaveBsi(path, desc, pixels);
        return SaveFile(path, ext, desc, pixels, options);
    }
    KELP_CATCH_ALL {
        dbgPrintf(8, 2, L"KXCONV: EXCEPTION during save %s\n\r", path);
        return KXE_IMAGEFILE;
    }
}

KXRESULT CImageIO::SaveFile(const wchar_t* path, const std::wstring& ext,
                            const KXBMINFOHEADER* desc, const void* pixels,
                            const ImageSaveOptions* options) {
    os::DeleteFile(path);
    Bitmap view;
    if (!ViewOf(desc, pixels, m_limits, &view)) {
        TraceWrite(path);
        return KXE_IMAGEFILE;
    }
    const CBackend* backend = ext == L"tif"   ? TiffBackend()
                              : ext == L"tga" ? TgaBackend()
                                              : JpegBackend();
    const uint32_t bits = ext == L"tif" ? 24 : (desc->biBitCount == 32 ? 32 : 24);
    const uint32_t quality = options ? std::min<uint32_t>(options->dwQuality, 100) : 100;
    const uint32_t factor = 255 - quality * 253 / 100;
    ByteSink sink;
    if (KX_FAILED(backend->Save(view, bits, factor, &sink)) ||
        !WriteFileWhole(path, {{sink.data(), sink.size()}})) {
        TraceWrite(path);
        return KXE_IMAGEFILE;
    }
    return KX_OK;
}

KXRESULT CImageIO::SaveBmp(const wchar_t* path, const KXBMINFOHEADER* desc, const void* pixels,
                           const ImageSaveOptions* options) {
    // The pixels must hold the picture the record describes, flattened or not: a record
    // that claims a larger picture than its bytes would make a file that lies about its
    // size, or make the conversion read past the pixels.
    if (!PixelsAgree(desc, m_limits)) {
        TraceWrite(path);
        return KXE_IMAGEFILE;
    }
    KXBMINFOHEADERYUV out;
    CSingleAllocator local; // ends with this call, and frees the flattened pixels
    if (options && (options->dwFlags & IMAGESAVE_FLATTEN24)) {
        // Flattened to uncompressed 24 bits by the conversion manager first. The input is
        // the caller's own record, so that a colour table behind it goes along; the output
        // is a copy of it at 24 bits, which has no table.
        std::memset(&out, 0, sizeof out);
        const uint32_t n = std::min<uint32_t>(desc->biSize, KXBMI_SIZE_YUV);
        std::memcpy(&out, desc, n);
        out.bmi.biSize = n;
        out.bmi.biCompression = KXBI_RGB;
        out.bmi.biBitCount = 24;
        out.bmi.biClrUsed = 0;
        out.bmi.biClrImportant = 0;
        IConversionManager* cm = KXCONVCreateConversionManager();
        if (!cm) {
            TraceWrite(path);
            return KXE_IMAGEFILE;
        }
        cm->Init(KXCONV_VERSION, 0);
        void* flat = nullptr;
        uint32_t flags = KXCONV_KEEP_INPUT;
        int32_t quality = 0;
        const KXRESULT r = cm->Convert(const_cast<KXBMINFOHEADER*>(desc), const_cast<void*>(pixels),
                                       &out.bmi, &flat, &flags, &quality, &local);
        cm->Release();
        if (KX_FAILED(r) || !flat || !PixelsAgree(&out.bmi, m_limits)) {
            TraceWrite(path);
            return KXE_IMAGEFILE;
        }
        desc = &out.bmi;
        pixels = flat;
    }
    const uint32_t imageBytes = PixelBytesOf(desc);
    uint32_t tableBytes = 0;
    std::vector<unsigned char> table;
    if (desc->biBitCount <= 8 && desc->biBitCount > 0) {
        // Indices need their colours: the table stands behind the record.
        const uint32_t most = 1u << desc->biBitCount;
        const uint32_t n = desc->biClrUsed && desc->biClrUsed < most ? desc->biClrUsed : most;
        const unsigned char* src = reinterpret_cast<const unsigned char*>(desc) + desc->biSize;
        table.assign(src, src + n * 4);
        tableBytes = n * 4;
    }
    unsigned char headers[54];
    MakeBmpHeaders(desc, tableBytes, imageBytes, headers);
    if (!WriteFileWhole(path, {{headers, 54}, {table.data(), tableBytes}, {pixels, imageBytes}})) {
        TraceWrite(path);
        return KXE_IMAGEFILE;
    }
    return KX_OK;
}

KXRESULT CImageIO::SaveBsi(const wchar_t* path, const KXBMINFOHEADER* desc, const void* pixels) {
    const uint32_t s = desc->biSize;
    if (s < kBsiMinRecord || s > kBsiMaxRecord) {
        TraceWrite(path);
        return KXE_IMAGEFILE;
    }
    std::vector<unsigned char> record(reinterpret_cast<const unsigned char*>(desc),
                                      reinterpret_cast<const unsigned char*>(desc) + s);
    KXBMINFOHEADER* rec = reinterpret_cast<KXBMINFOHEADER*>(record.data());
    if (!rec->biSizeImage && rec->biCompression == KXBI_RGB) rec->biSizeImage = PixelBytesOf(rec);
    if (!WriteFileWhole(path, {{record.data(), s}, {pixels, rec->biSizeImage}})) {
        TraceWrite(path);
        return KXE_IMAGEFILE;
    }
    return KX_OK;
}

} // namespace imgfile

// ---------------------------------------------------------------- exported functions

KXRESULT GetImageFileDetails(const wchar_t* path, KXIMAGEFILEDETAILS* details) {
    if (!path || !details || details->dwSize < sizeof(KXIMAGEFILEDETAILS)) return KXE_IMAGEFILE;
    try {
        const uint32_t size = details->dwSize;
        std::memset(static_cast<void*>(details), 0, sizeof *details);
        details->dwSize = size;
        const std::wstring ext = imgfile::ExtensionOf(path);
        if (ext == L"vm") return KXE_IMAGEFILE;
        if (ext == L"bsi") {
            imgfile::FileData data;
            KXBMINFOHEADERYUV full;
            if (!data.Open(path) || !data.ReadTo(sizeof full)) return KXE_IMAGEFILE;
            const imgfile::Bytes b = data.Get();
            std::memset(static_cast<void*>(&full), 0, sizeof full);
            std::memcpy(&full, b.data, std::min(b.size, sizeof full));
            const KXBMINFOHEADER& rec = full.bmi;
            if (!imgfile::BsiRecordAllowed(rec.biSize, data.FileSize()) ||
                !imgfile::BsiPixelsPresent(&rec, rec.biSize, data.FileSize()))
                return KXE_IMAGEFILE;
            details->nWidth = rec.biWidth;
            details->nHeight = rec.biHeight;
            details->dwBitCount = rec.biBitCount;
            details->dwOrientation = 1;
            details->pszFormat = L"BSI";
            return KX_OK;
        }
        imgfile::OpenedFile file;
        if (imgfile::ReadFileInfo(path, 0, 0, false, &file) != 1) return KXE_IMAGEFILE;
        const imgfile::FileInfo& info = file.info;
        details->dwFormat = info.format;
        details->nWidth = info.width;
        details->nHeight = info.height;
        details->dwBitCount = info.bits;
        details->dwOrientation = info.orientation;
        details->dwFlags = info.flags;
        details->nStampWidth = info.stampWidth;
        details->nStampHeight = info.stampHeight;
        details->nResolution = info.xResolution;
        details->pszFormat = info.name;
        return KX_OK;
    }
    KELP_CATCH_ALL {
        return KXE_IMAGEFILE;
    }
}

KXRESULT SavePNGImage(const wchar_t* path, const KXBMINFOHEADER* desc, const void* bits) {
    try {
        imgfile::Bitmap view;
        imgfile::ByteSink sink;
        if (!path || !desc || !bits || (desc->biBitCount != 24 && desc->biBitCount != 32) ||
            !imgfile::ViewOf(desc, bits, imgfile::Limits(), &view) ||
            KX_FAILED(imgfile::PngBackend()->Save(view, desc->biBitCount, 2, &sink)) ||
            !imgfile::WriteFileWhole(path, {{sink.data(), sink.size()}})) {
            imgfile::TraceWrite(path);
            return KXE_IMAGEFILE;
        }
        return KX_OK;
    }
    KELP_CATCH_ALL {
        dbgPrintf(8, 2, L"KXCONV: EXCEPTION during save %s\n\r", path);
        return KXE_IMAGEFILE;
    }
}

} // namespace kelp

extern "C" kelp::IImageIO* CreateImageIO(uint32_t version, const tagImageIOInit*) {
    if (version > KXIMAGEIO_VERSION) return nullptr;
    try {
        return new (kelp::nothrow) kelp::imgfile::CImageIO();
    }
    KELP_CATCH_ALL {
        return nullptr;
    }
}
