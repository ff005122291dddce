// PNG files for the tests: write what a snapshot showed, read back what the
// demo host wrote.
#ifndef PANOVIEW_TESTS_PNG_H
#define PANOVIEW_TESTS_PNG_H

#include <string>

#include "RgbaImage.h"

namespace harness {

// Writes an 8-bit RGBA PNG. Returns false (and says why in *error) on failure.
bool WritePng(const std::string &path, const RgbaImage &image, std::string *error = nullptr);

// Reads any 8-bit PNG into RGBA (palette, grey and RGB are expanded).
bool ReadPng(const std::string &path, RgbaImage *image, std::string *error = nullptr);

} // namespace harness

#endif
