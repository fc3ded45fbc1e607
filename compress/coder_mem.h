// Memory-to-memory forms of the coders, for callers that hold the whole data already
// (the benchmark, the fuzz targets, tools). Portable.
#pragma once
#include <cstddef>
#include <string>

#include "compress/implode.h"

namespace orvalis {

// Implodes size bytes at data and appends the stream to *out. Returns Implode's code.
int ImplodeMemory(const void* data, size_t size, std::string* out, int type, int dictSize,
                  int level = kImplodeFast);

// Explodes the stream of size bytes at data and appends the output to *out, also what was
// decoded before an error. Returns Explode's code.
int ExplodeMemory(const void* data, size_t size, std::string* out);

}  // namespace orvalis
