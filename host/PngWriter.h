// Writes snapshots as PNG.
#ifndef PANOVIEW_HOST_PNGWRITER_H
#define PANOVIEW_HOST_PNGWRITER_H

#include <cstdint>
#include <string>

// Writes RGBA pixels, `bottomFirst` rows as GL reads them (they are flipped
// on the way), or top-first. Returns false and sets *error on failure.
bool WriteRgbaPng(const std::string &path, const uint8_t *rgba, int width, int height, bool bottomFirst,
                  std::string *error);

#endif
