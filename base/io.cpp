#include "base/io.h"

#include <cstdlib>

#ifdef _WIN32
#include <windows.h>
#endif

namespace orvalis {
namespace {

FILE* RealFopen(const char* path, const char* mode) { return std::fopen(path, mode); }
int RealFclose(FILE* f) { return std::fclose(f); }
int RealRemove(const char* path) { return std::remove(path); }
int RealRename(const char* from, const char* to) {
#ifdef _WIN32
  // The C runtime's rename refuses an existing target on Windows.
  return MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING) ? 0 : -1;
#else
  return std::rename(from, to);
#endif
}
void* RealCalloc(size_t n, size_t size) { return std::calloc(n, size); }
void RealFree(void* p) { std::free(p); }

constexpr CoreIo kReal{RealFopen, RealFclose, RealRemove, RealRename, RealCalloc, RealFree};
CoreIo g_io = kReal;

}  // namespace

CoreIo& Io() { return g_io; }
void ResetIo() { g_io = kReal; }

}  // namespace orvalis
