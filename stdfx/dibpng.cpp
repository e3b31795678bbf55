// PNG encoding through libpng into memory, and the file written through the platform
// layer. libpng reports errors by a long jump, which must not cross C++ objects that
// need destruction: the function that sets the jump holds plain data only.
#include "dibpng.h"

#include <png.h>

#include "runtime/kelpos.h"

namespace stdfx {

namespace {

void AppendBytes(png_structp png, png_bytep data, size_t n) {
    auto* out = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
    bool ok = true;
    try {
        out->insert(out->end(), data, data + n);
    } catch (...) {
        ok = false;
    }
    if (!ok) png_error(png, "out of memory");
}

void NoFlush(png_structp) {}
void OnError(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}
void OnWarning(png_structp, png_const_charp) {}

// 1 on success, 0 after an error of libpng.
int Encode(png_structp png, png_infop info, std::vector<uint8_t>* out, png_bytepp rows,
           png_uint_32 width, png_uint_32 height) {
    if (setjmp(png_jmpbuf(png))) return 0;
    png_set_write_fn(png, out, AppendBytes, NoFlush);
    png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_bgr(png);
    png_write_image(png, rows);
    png_write_end(png, nullptr);
    return 1;
}

} // namespace

bool WriteBgraPng(const std::wstring& path, int width, int height,
                  const std::vector<uint8_t>& bgra) {
    if (width <= 0 || height <= 0 || bgra.size() < size_t(width) * 4 * size_t(height)) return false;
    std::vector<png_bytep> rows(static_cast<size_t>(height));
    for (int y = 0; y < height; ++y)
        rows[size_t(y)] = const_cast<png_bytep>(bgra.data() + size_t(height - 1 - y) * width * 4);
    std::vector<uint8_t> file;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, OnError, OnWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    const int ok = png && info &&
                   Encode(png, info, &file, rows.data(), png_uint_32(width), png_uint_32(height));
    png_destroy_write_struct(&png, info ? &info : nullptr);
    if (!ok) return false;
    kelp::os::FileHandle* f = kelp::os::CreateFileWrite(path);
    if (!f) return false;
    size_t done = 0;
    const bool written = kelp::os::WriteFile(f, file.data(), file.size(), &done);
    return kelp::os::CloseFile(f) && written;
}

} // namespace stdfx
