#include "engine/filecodec_win.h"

#include <cstdint>

#include "compress/filecodec.h"
#include "compress/implode.h"
#include "engine/sys.h"

namespace orvalis {
namespace {

// GMEM_MOVEABLE | GMEM_ZEROINIT, as the wrappers have always asked for it.
constexpr UINT kWorkFlags = 0x42;

// The work area for one call: allocated and locked on construction, released on exit.
class WorkArea {
 public:
  WorkArea() {
    handle_ = Sys().GlobalAlloc(kWorkFlags, kFileCodecWorkSize);
    if (handle_) {
      ptr_ = Sys().GlobalLock(handle_);
      if (!ptr_) Sys().GlobalFree(handle_);
    }
  }
  ~WorkArea() {
    if (ptr_) {
      Sys().GlobalUnlock(handle_);
      Sys().GlobalFree(handle_);
    }
  }
  WorkArea(const WorkArea&) = delete;
  WorkArea& operator=(const WorkArea&) = delete;
  void* get() const { return ptr_; }

 private:
  HGLOBAL handle_ = nullptr;
  void* ptr_ = nullptr;
};

}  // namespace

int CompressFileEx(const char* source, const char* target, unsigned long* crc, int dictSize,
                   int level) {
  WorkArea work;
  if (!work.get()) return 8;
  uint32_t value = 0;
  int result = CompressFileWith(source, target, &value, work.get(), kFileCodecWorkSize,
                                kImplodeBinary, dictSize, level);
  *crc = value;
  return result;
}

int CompressFile(const char* source, const char* target, unsigned long* crc) {
  return CompressFileEx(source, target, crc, 1024);
}

int ExpandFile(const char* target, const char* source) {
  WorkArea work;
  if (!work.get()) return 8;
  return ExpandFileWith(target, source, work.get(), kFileCodecWorkSize, nullptr);
}

}  // namespace orvalis
