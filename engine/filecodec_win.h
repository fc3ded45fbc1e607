// The engine's file packing entry points: the portable wrappers of filecodec.h with the
// work area taken from GlobalAlloc through the Win32 seam, as the engine has always done.
// Windows only.
#pragma once
#include "compress/filecodec.h"

namespace orvalis {

// Compresses source into target in binary mode with a 1024-byte dictionary.
// Result: 0 (also when a file cannot be opened: *crc = 0xFFFFFFFF then), -1 when the coder
// fails, 8 when the 36312-byte work area cannot be allocated or locked (*crc untouched).
// Otherwise *crc = CRC-32 of the source.
int CompressFile(const char* source, const char* target, unsigned long* crc);

// The same with another dictionary size (1024, 2048 or 4096) and coder level
// (kImplodeFast or kImplodeOptimal; CompressFile uses kFileCodecLevel). A bad level is a
// coder failure: -1.
int CompressFileEx(const char* source, const char* target, unsigned long* crc, int dictSize,
                   int level = kFileCodecLevel);

// Expands the imploded source into target (the file written comes first). Result 0, also
// for unopenable files or a corrupt stream; 8 when the work area cannot be had.
int ExpandFile(const char* target, const char* source);

}  // namespace orvalis
