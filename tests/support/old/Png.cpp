#include "Png.h"

#include <png.h>

#include <cstdio>
#include <memory>

namespace harness {

namespace {

struct FileCloser {
    void operator()(FILE *f) const
    {
        if (f) std::fclose(f);
    }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

void SetError(std::string *error, const std::string &text)
{
    if (error) *error = text;
}

} // namespace

bool WritePng(const std::string &path, const RgbaImage &image, std::string *error)
{
    if (image.empty() || image.rgba.size() < size_t(image.width) * image.height * 4) {
        SetError(error, "empty image");
        return false;
    }
    FilePtr file(std::fopen(path.c_str(), "wb"));
    if (!file) {
        SetError(error, "cannot create " + path);
        return false;
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        SetError(error, "libpng setup failed");
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        SetError(error, "libpng write failed for " + path);
        return false;
    }
    png_init_io(png, file.get());
    png_set_IHDR(png, info, image.width, image.height, 8, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < image.height; y++)
        png_write_row(png, const_cast<png_bytep>(image.PixelPtr(0, y)));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

bool ReadPng(const std::string &path, RgbaImage *image, std::string *error)
{
    FilePtr file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        SetError(error, "cannot open " + path);
        return false;
    }
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        SetError(error, "libpng setup failed");
        return false;
    }
    RgbaImage out; // declared before setjmp: a longjmp must not skip its destructor
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        SetError(error, "not a readable PNG: " + path);
        return false;
    }
    png_init_io(png, file.get());
    png_read_info(png, info);
    png_set_expand(png);
    png_set_strip_16(png);
    png_set_gray_to_rgb(png);
    png_set_add_alpha(png, 0xff, PNG_FILLER_AFTER);
    png_read_update_info(png, info);
    out.width = int(png_get_image_width(png, info));
    out.height = int(png_get_image_height(png, info));
    out.rgba.resize(size_t(out.width) * out.height * 4);
    for (int y = 0; y < out.height; y++) png_read_row(png, &out.rgba[size_t(y) * out.width * 4], nullptr);
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    *image = std::move(out);
    return true;
}

} // namespace harness
