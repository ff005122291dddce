// Every parameter id a host may send (with a set, a get or both), then ids
// of the library's own layers and numbers nobody uses: the ids the boundary
// tests and the fuzz targets go through. No test framework here, so that
// the fuzz targets can use it too.
#ifndef PANOVIEW_TESTS_HOSTIDS_H
#define PANOVIEW_TESTS_HOSTIDS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ZT5Plugin.h"

extern const std::vector<uint32_t> kHostIds;

// Every frame colour type, then two numbers that are none.
extern const std::vector<uint32_t> kFrameTypes;
// Bytes of a tightly packed frame of type `cs` as the README lays the types
// out (odd sizes: chroma planes of the rounded-up half).
size_t FrameBytes(uint32_t cs, size_t w, size_t h);

// A plane of a drawn frame type as the README lays it out: bytes of one row
// and the number of rows (plane 1 of the semi-planar types holds the pairs).
struct PlaneRows {
    size_t rowBytes = 0, rows = 0;
};
// Planes of a drawn type (0 for a type that isn't drawn), and each one.
int PlaneCount(uint32_t cs);
PlaneRows PlaneOf(uint32_t cs, size_t w, size_t h, int plane);

// Byte offset in a saved state of its first float that isn't a finite
// number; -1 when all are.
int NonFiniteField(const FECurrentStatusData &s);

#endif
