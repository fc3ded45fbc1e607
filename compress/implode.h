// Encoder of the PKWARE DCL "implode" stream (binary or ASCII literals, 1024/2048/4096-byte
// dictionary). The stream is bare: two header bytes, the bit stream, the end marker.
// Portable.
#pragma once
#include <cstddef>

#include "compress/coder_io.h"

namespace orvalis {

inline constexpr int kImplodeBinary = 0;  // literals are raw bytes: 9 bits each
inline constexpr int kImplodeAscii = 1;   // literals use the fixed code that favours text

// Levels: how hard the encoder looks for the cheapest coding. Both write the same format and
// decode at the same speed; bench/run-compress.sh prints the figures of both.
inline constexpr int kImplodeFast = 0;     // lazy matching, about 4x the DCL library's speed
inline constexpr int kImplodeOptimal = 1;  // the cheapest token sequence for the matches found,
                                           // by exact bit prices: 1-3% smaller streams at a
                                           // third to a half of the fast level's speed

// Result codes of Implode. Positive: trouble outside the data; negative: bad arguments.
enum ImplodeResult : int {
  kImplodeOk = 0,
  kImplodeWriteError = 1,   // the write callback took fewer bytes than it was given
  kImplodeNoMemory = 2,     // the work area was too small and the rest could not be allocated
  kImplodeBadType = -1,     // type is neither kImplodeBinary nor kImplodeAscii
  kImplodeBadDictSize = -2,  // dictSize is not 1024, 2048 or 4096
  kImplodeBadLevel = -3      // level is neither kImplodeFast nor kImplodeOptimal
};

// Size of the encoder's whole state. A work area of at least this size (any alignment)
// is used as it is; a smaller one (or none) makes Implode allocate its state on the heap
// for the duration of the call (about 320 KB). The match finder's tables (a 128 KB one for
// length-2 matches) and its 64 KB read-ahead window are what make the state larger than the
// 36312 bytes the engine's wrappers hand over: they buy about four times the speed of the
// DCL library's own coder at the same ratio. The optimal level's parse of one segment (at
// most 4096 positions) takes another 70 KB, whatever the input's size.
extern const size_t kImplodeWorkSize;

// Reads the whole input through `read` and writes the compressed stream through `write`,
// in pieces of at most a few KB. `param` is handed to both callbacks unchanged.
// On kImplodeWriteError the stream written so far is incomplete.
int Implode(CoderRead read, CoderWrite write, void* work, size_t workSize, void* param,
            int type, int dictSize, int level = kImplodeFast);

}  // namespace orvalis
