#include "pngfile.h"

#include <cstdio>
#include <vector>

#if KELP_HAVE_PNG
#include <png.h>

namespace {

// libpng reports errors by longjmp from inside its calls; every object that lives
// across them is made before setjmp and ended after.
struct PngFile {
    FILE* f = nullptr;
    ~PngFile() {
        if (f) std::fclose(f);
    }
};

} // namespace

bool PngAvailable() {
    return true;
}

bool ReadPng(const char* path, testpic::Picture* picture, std::string* error) {
    PngFile file;
    file.f = std::fopen(path, "rb");
    if (!file.f) {
        *error = std::string("cannot open ") + path;
        return false;
    }
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!png || !info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        *error = "out of memory";
        return false;
    }
    std::vector<png_bytep> rows;
    testpic::Picture p;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        *error = std::string(path) + " is not a PNG file libpng can read";
        return false;
    }
    png_init_io(png, file.f);
    png_read_info(png, info);
    png_set_expand(png); // palette and low-depth grey to 8 bits, tRNS to alpha
    png_set_strip_16(png);
    png_set_strip_alpha(png);
    png_set_gray_to_rgb(png);
    png_set_bgr(png);
    png_read_update_info(png, info);
    p.width = int(png_get_image_width(png, info));
    p.height = int(png_get_image_height(png, info));
    if (png_get_rowbytes(png, info) != size_t(p.width) * 3 || p.width > 16384 || p.height > 16384) {
        png_destroy_read_struct(&png, &info, nullptr);
        *error = std::string(path) + ": unsupported PNG layout";
        return false;
    }
    p.bgr.resize(size_t(p.width) * size_t(p.height) * 3);
    rows.resize(size_t(p.height));
    for (int y = 0; y < p.height; ++y)
        rows[size_t(y)] = &p.bgr[size_t(y) * size_t(p.width) * 3];
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    *picture = std::move(p);
    return true;
}

bool WritePng(const char* path, const testpic::Picture& picture, std::string* error) {
    PngFile file;
    file.f = std::fopen(path, "wb");
    if (!file.f) {
        *error = std::string("cannot create ") + path;
        return false;
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!png || !info) {
        png_destroy_write_struct(&png, nullptr);
        *error = "out of memory";
        return false;
    }
    std::vector<png_bytep> rows(size_t(picture.height));
    for (int y = 0; y < picture.height; ++y)
        rows[size_t(y)] =
            const_cast<png_bytep>(&picture.bgr[size_t(y) * size_t(picture.width) * 3]);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        *error = std::string("cannot write ") + path;
        return false;
    }
    png_init_io(png, file.f);
    png_set_IHDR(png, info, png_uint_32(picture.width), png_uint_32(picture.height), 8,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_bgr(png);
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

#else

bool PngAvailable() {
    return false;
}
bool ReadPng(const char*, testpic::Picture*, std::string* error) {
    *error = "this kelp was built without libpng: use --generate";
    return false;
}
bool WritePng(const char*, const testpic::Picture&, std::string* error) {
    *error = "this kelp was built without libpng: no PNG output";
    return false;
}

#endif
