// Every parameter id a host may send (with a set, a get or both), then ids
// of the library's own layers and numbers nobody uses: the ids the boundary
// tests and the fuzz targets go through. No test framework here, so that
// the fuzz targets can use it too.
#ifndef PANOVIEW_TESTS_HOSTIDS_H
#define PANOVIEW_TESTS_HOSTIDS_H

#include <cstdint>
#include <vector>

extern const std::vector<uint32_t> kHostIds;

#endif
