// Images from BMP files standing in for embedded resources, and the debugging aids that
// write an image (or its alpha) to a PNG file.
#include <kelp/stdfx_dib.h>
#include <kelp/stdfx_translate.h>
#include <kelp/trace.h>

#include <cstring>
#include <string>
#include <vector>

#include "dibformat.h"
#include "dibpng.h"
#include "dibrowspan.h"
#include "runtime/kelpos.h"

namespace stdfx {

namespace {

constexpr uint32_t kFileHeader = 14;
constexpr uint32_t kInfoHeader = 40;
constexpr uint64_t kMaxFile = 0x40000000; // 1 GiB: no resource is larger

uint32_t Word(const unsigned char* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

bool ReadWholeFile(const std::wstring& path, std::vector<unsigned char>* data) {
    kelp::os::FileHandle* f = kelp::os::OpenFileRead(path);
    if (!f) return false;
    uint64_t size = 0;
    bool ok = kelp::os::GetFileSize(f, &size) && size <= kMaxFile;
    if (ok) {
        data->resize(size_t(size));
        size_t done = 0;
        ok = kelp::os::ReadFile(f, data->data(), data->size(), &done) && done == data->size();
    }
    kelp::os::CloseFile(f);
    return ok;
}

// A relative name is looked for beside the library.
std::wstring ResourcePath(const wchar_t* name) {
    std::wstring n = name;
    if (!n.empty() && n[0] == L'/') return n;
    return std::wstring(kelp::GetKELPModulePath()) + n;
}

// The PNG file of a debugging aid: 32-bit BGRA pixels, bottom-up.
bool WritePng(const wchar_t* kind, int x, int y, int w, int h, int width, int height,
              const std::vector<uint8_t>& bgra) {
    wchar_t name[96];
    ::kelpFormat(name, 96, L"%s_%d_%d_%d_%d.png", kind, x, y, w, h);
    const std::wstring path = kelp::os::TempDirectory() + name;
    const bool ok = WriteBgraPng(path, width, height, bgra);
    if (ok) kelp::dbgPrintf(8, 4, L"CDIB: %s written to %s\n", kind, path.c_str());
    return ok;
}

} // namespace

bool CDIB::LoadResource(unsigned short id, KXMODULE module) {
    wchar_t name[16];
    ::kelpFormat(name, 16, L"%u.bmp", unsigned(id));
    return LoadResource(name, module);
}

bool CDIB::LoadResource(const wchar_t* name, KXMODULE /*module*/) {
    if (!name) return false;
    std::vector<unsigned char> file;
    if (!ReadWholeFile(ResourcePath(name), &file)) return false;
    size_t at = 0, size = file.size();
    if (size > kFileHeader) {
        at = kFileHeader;
        size -= kFileHeader;
    }
    if (size < kInfoHeader) return false;
    KXBMINFOHEADER bih;
    std::memset(&bih, 0, sizeof bih);
    std::memcpy(&bih, file.data() + at, kInfoHeader);
    // The pixels follow the 40 bytes, or where the file header says they start.
    size_t pixels = at + kInfoHeader;
    if (at == kFileHeader) {
        const uint32_t offBits = Word(file.data() + 10);
        if (offBits > pixels && offBits <= file.size()) pixels = offBits;
    }
    const size_t s = file.size() - pixels;
    bih.biSize = KXBMI_SIZE;
    bih.bmiFrame = 1;
    bih.bmiMagic = KXBMI_MAGIC;
    if (bih.biBitCount == 0 || bih.biWidth <= 0 || bih.biHeight == 0 ||
        bih.biCompression != KXBI_RGB)
        return false;
    // The block holds the larger of what the file has and what the header claims, so
    // that a short file leaves zeros rather than an overrun.
    const uint32_t image = DIBImageSize(&bih);
    const size_t room = image > s ? image : s;
    if (image == 0 || room > 0x7FFF0000u - 224) return false;
    Release();
    if (!NewBody()) return false;
    m_pData->lRefs.store(1, std::memory_order_relaxed);
    if (!AllocBlock(uint32_t(room + 224))) {
        Release();
        return false;
    }
    auto* block = reinterpret_cast<unsigned char*>(m_pData->pHeader);
    m_pData->pBits = block + (224 & ~63);
    std::memset(block, 0, KXBMI_SIZE_YUV);
    std::memcpy(block, &bih, KXBMI_SIZE);
    std::memcpy(m_pData->pBits, file.data() + pixels, s);
    return true;
}

bool CDIB::ShowOnDesktop(int x, int y, int width, int height) {
    if (!IsValid() || IsEmpty()) return false;
    // Any image as 32-bit RGB, bottom-up, through the translators or the 8-bit grey.
    KXBMINFOHEADER d;
    std::memset(&d, 0, sizeof d);
    d.biSize = KXBMI_SIZE;
    d.biWidth = Width();
    d.biHeight = Height();
    d.biPlanes = 1;
    d.biBitCount = 32;
    d.bmiFrame = 1;
    CDIB rgb;
    if (IsRGB() && Header()->biBitCount == 8) {
        if (!rgb.Create(&d)) return false;
        for (int r = 0; r < Height(); ++r)
            for (int c = 0; c < Width(); ++c) {
                const uint32_t v = uint32_t(GetPixel8(c, r));
                uint8_t* p = static_cast<uint8_t*>(rgb.Bits()) +
                             ptrdiff_t(MemoryLine(rgb, r)) * rgb.Stride() + 4 * c;
                p[0] = p[1] = p[2] = uint8_t(v);
                p[3] = 255;
            }
    } else if (!rgb.CreateConverted(&d, *this, -1)) {
        return false;
    }
    std::vector<uint8_t> bgra(size_t(rgb.Width()) * 4 * rgb.Height());
    std::memcpy(bgra.data(), rgb.Bits(), bgra.size());
    for (size_t i = 3; i < bgra.size(); i += 4)
        bgra[i] = 255;
    return WritePng(L"kelp_dib", x, y, width, height, rgb.Width(), rgb.Height(), bgra);
}

bool CDIB::ShowAlphaOnDesktop(int x, int y, int width, int height) {
    if (!IsValid() || IsEmpty()) return false;
    const int w = Width(), h = Height();
    std::vector<uint8_t> bgra(size_t(w) * 4 * h);
    const unsigned char* plane = GetAlphaPlane();
    const int bpp = BytesPerPixel(Header());
    RowSpan rows;
    if (!MakeRowSpan(*this, -1, &rows) || (!plane && bpp < 4)) return false;
    for (int r = 0; r < h; ++r) {
        const int m = MemoryLine(*this, r);
        for (int c = 0; c < w; ++c) {
            const uint8_t a =
                plane ? plane[ptrdiff_t(m) * GetAlphaStride() + c]
                      : static_cast<const uint8_t*>(
                            Bits())[ptrdiff_t(m) * rows.stride + ptrdiff_t(c) * bpp + 3];
            uint8_t* p = bgra.data() + (size_t(h - 1 - r) * w + c) * 4;
            p[0] = p[1] = p[2] = a;
            p[3] = 255;
        }
    }
    return WritePng(L"kelp_dib_alpha", x, y, width, height, w, h, bgra);
}

} // namespace stdfx
