#include "PngWriter.h"

#include <png.h>

#include <cstdio>

bool WriteRgbaPng(const std::string &path, const uint8_t *rgba, int width, int height, bool bottomFirst,
                  std::string *error)
{
    if (!rgba || width <= 0 || height <= 0) {
        *error = "empty picture";
        return false;
    }
    FILE *f = std::fopen(path.c_str(), "wb");
    if (!f) {
        *error = "cannot create " + path;
        return false;
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        std::fclose(f);
        *error = "libpng setup failed";
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        std::fclose(f);
        *error = "libpng failed writing " + path;
        return false;
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, png_uint_32(width), png_uint_32(height), 8, PNG_COLOR_TYPE_RGB_ALPHA,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    const size_t pitch = size_t(width) * 4;
    for (int y = 0; y < height; y++) {
        int src = bottomFirst ? height - 1 - y : y;
        png_write_row(png, const_cast<png_bytep>(rgba + size_t(src) * pitch));
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    if (std::fclose(f) != 0) {
        *error = "cannot finish " + path;
        return false;
    }
    return true;
}
