// Decoder of the PKWARE DCL "implode" stream: both literal modes, every dictionary size.
// Portable.
//
// It never reads before the start of its output, never writes past its buffers and always
// ends: every token consumes input, and input that ends before the end marker is reported.
// Whatever was decoded before an error has been handed to the write callback.
#pragma once
#include <cstddef>

#include "compress/coder_io.h"

namespace orvalis {

// Result codes of Explode. Positive: trouble outside the data; negative: bad data.
enum ExplodeResult : int {
  kExplodeOk = 0,
  kExplodeWriteError = 1,     // the write callback took fewer bytes than it was given
  kExplodeNoWorkArea = 2,     // work is null or smaller than kExplodeWorkSize
  kExplodeTruncated = -1,     // the input ended before the end marker (or inside the header)
  kExplodeBadLiteralMode = -2,  // header byte 0 is not 0 (binary) or 1 (ASCII)
  kExplodeBadDictionary = -3,   // header byte 1 is not 4, 5 or 6
  kExplodeBadDistance = -4      // a match reaches back before the first byte of output
};

// Bytes of work area Explode needs (any alignment). It is below the 36312 bytes the file
// wrappers hand over, so the decoder never allocates.
inline constexpr size_t kExplodeWorkSize = 35342;

// Decodes one stream read through `read`, writing the output through `write`. Bytes after
// the end marker are not read on purpose (some may have been buffered) and are ignored.
int Explode(CoderRead read, CoderWrite write, void* work, size_t workSize, void* param);

}  // namespace orvalis
