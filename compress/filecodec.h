// File-to-file packing of companion files in the DCL implode format, with the CRC-32 of the
// uncompressed data. Portable: stdio only; the Windows wrappers that own the work area are
// in filecodec_win.h.
#pragma once
#include <cstddef>
#include <cstdint>

#include "compress/implode.h"

namespace orvalis {

// The work area the wrappers have always been given, for both directions.
inline constexpr size_t kFileCodecWorkSize = 36312;

// The level the wrappers use unless told otherwise. Companion files are written once and
// read many times, and the optimal level's cost (a fraction of a second for a 16 MB listing)
// is small beside the capture that produced the file.
inline constexpr int kFileCodecLevel = kImplodeOptimal;

// Compresses source into target (type kImplodeBinary/kImplodeAscii, dictSize 1024/2048/4096,
// level kImplodeFast/kImplodeOptimal).
// work/workSize: the caller's work area; the decoder state fits in kFileCodecWorkSize bytes,
// the encoder allocates the part of its state that does not fit (see kImplodeWorkSize).
// Result:
//   0  done, *crc = CRC-32 of the source. Also 0 when source or target cannot be opened:
//      then *crc = 0xFFFFFFFF, and a target that could be opened is left empty (both are
//      opened before either is checked). Callers have always relied on this being quiet.
//  -1  the coder failed (write failure, no memory); *crc = the running, uncomplemented CRC
//      of what was read.
//   8  work is null or smaller than kFileCodecWorkSize; *crc is not touched.
int CompressFileWith(const char* source, const char* target, uint32_t* crc, void* work,
                     size_t workSize, int type, int dictSize, int level = kFileCodecLevel);

// Expands the imploded source into target (note the order: the file written comes first).
// Result 0 whenever the work area is usable (else 8), also when a file cannot be opened or
// the stream is corrupt or cut short: the target then holds what could be decoded, possibly
// nothing. crcOut (may be null): CRC-32 of the bytes written to the target.
int ExpandFileWith(const char* target, const char* source, void* work, size_t workSize,
                   uint32_t* crcOut);

// Result codes of ExpandFileChecked (Win32 numbers, so they can cross the export boundary).
enum ExpandFileResult : int {
  kExpandOk = 0,
  kExpandSourceMissing = 2,  // the source cannot be opened
  kExpandCannotCreate = 5,   // the target cannot be created
  kExpandNoMemory = 8,       // no memory for the work area
  kExpandBadData = 13,       // the stream is corrupt or cut short
  kExpandWriteFault = 29,    // writing the target failed (disk full...)
  kExpandReadFault = 30      // reading the source failed
};

// Like ExpandFileWith, with its own work area, but every failure is reported and a target
// that was started is deleted again, so that no half-expanded file is left to be mistaken
// for the real one. crcOut (may be null) receives the CRC-32 of the data on success.
int ExpandFileChecked(const char* target, const char* source, uint32_t* crcOut);

// 1 when the file has no zero byte (an empty file included), 0 when it has one, -1 when it
// cannot be opened or the read buffer cannot be had. Read in blocks of 4096 bytes.
int IsTextFile(const char* path);

}  // namespace orvalis
