// Every parameter id a host may send (with a set, a get or both), then ids
// of the library's own layers and numbers nobody uses: the ids the boundary
// tests and the fuzz targets go through. No test framework here, so that
// the fuzz targets can use it too.
#ifndef PANOVIEW_TESTS_HOSTIDS_H
#define PANOVIEW_TESTS_HOSTIDS_H

#include <cstddef>
#include <cstdint>
#include <vector>

extern const std::vector<uint32_t> kHostIds;

// Every frame colour type, then two numbers that are none.
extern const std::vector<uint32_t> kFrameTypes;
// Bytes of a tightly packed frame of type `cs` as the README lays the types
// out (odd sizes: chroma planes of the rounded-up half).
size_t FrameBytes(uint32_t cs, size_t w, size_t h);

#endif
