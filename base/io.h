// The C runtime calls whose failure matters (opening, closing and removing files, renaming one
// into place, heap memory), as one replaceable table. Every reader, writer and comparer of the
// engine calls them through Io(), portable code included, so that a test can make any open,
// close or allocation of an operation fail (disk full, access denied, no memory) and check that
// the operation keeps its promises. The Win32 calls have their own table beside it, engine/sys.h;
// together they are the engine's one seam to the system.
#pragma once
#include <cstddef>
#include <cstdio>

namespace orvalis {

struct CoreIo {
  FILE* (*fopen)(const char* path, const char* mode);
  // 0 when everything written reached the file, EOF otherwise (the stream is closed either way).
  int (*fclose)(FILE* f);
  int (*remove)(const char* path);
  // Moves from onto to, replacing to: the last step of every rewrite through a temporary file.
  int (*rename)(const char* from, const char* to);
  void* (*calloc)(size_t n, size_t size);
  void (*free)(void* p);
};

// The table in force; it holds the real calls unless a test swapped an entry.
CoreIo& Io();
// Puts the real calls back.
void ResetIo();

// Closes f, reporting a stream that had already failed a write as well as a failed close: the
// check every writer makes before it calls a file done.
inline bool CloseChecked(FILE* f) {
  const bool failed = std::ferror(f) != 0;
  return Io().fclose(f) == 0 && !failed;
}

}  // namespace orvalis
