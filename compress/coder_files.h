// The coder's callbacks over stdio streams, for the imploded entries kept inside larger files
// (snapshot packages, asset companions): the plain side counted and its CRC-32 kept, the packed
// side counted while imploding and bounded while exploding. Portable.
#pragma once
#include <cstdint>
#include <cstdio>

namespace orvalis {

struct CoderFiles {
  FILE* in;
  FILE* out;         // exploding with out null: the plain data is only checked
  uint32_t crc;      // running, uncomplemented CRC-32 of the plain data (start at 0xFFFFFFFF)
  uint64_t plain;    // plain bytes seen
  uint64_t packed;   // imploding: packed bytes written; exploding: packed bytes left to read
  bool writeFailed;  // a plain write fell short
};

// Implode side: plain data read from in, the stream written to out.
unsigned ReadPlainFile(char* buf, unsigned size, void* files);
unsigned WritePackedFile(const char* buf, unsigned size, void* files);
// Explode side: at most `packed` bytes read from in, plain data written to out (if any).
unsigned ReadPackedFile(char* buf, unsigned size, void* files);
unsigned WritePlainFile(const char* buf, unsigned size, void* files);

}  // namespace orvalis
