#include "compress/coder_mem.h"

#include <algorithm>
#include <memory>
#include <new>

#include "compress/explode.h"
#include "compress/implode.h"

namespace orvalis {
namespace {

struct MemoryStreams {
  const char* in;
  size_t left;
  std::string* out;
};

unsigned ReadMemory(char* buf, unsigned size, void* param) {
  auto* m = static_cast<MemoryStreams*>(param);
  size_t n = std::min<size_t>(size, m->left);
  std::copy(m->in, m->in + n, buf);
  m->in += n;
  m->left -= n;
  return static_cast<unsigned>(n);
}

unsigned WriteMemory(const char* buf, unsigned size, void* param) {
  static_cast<MemoryStreams*>(param)->out->append(buf, size);
  return size;
}

}  // namespace

int ImplodeMemory(const void* data, size_t size, std::string* out, int type, int dictSize,
                  int level) {
  MemoryStreams m{static_cast<const char*>(data), size, out};
  std::unique_ptr<unsigned char[]> work(new (std::nothrow) unsigned char[kImplodeWorkSize]);
  return Implode(ReadMemory, WriteMemory, work.get(), work ? kImplodeWorkSize : 0, &m, type,
                 dictSize, level);
}

int ExplodeMemory(const void* data, size_t size, std::string* out) {
  MemoryStreams m{static_cast<const char*>(data), size, out};
  std::unique_ptr<unsigned char[]> work(new (std::nothrow) unsigned char[kExplodeWorkSize]);
  return Explode(ReadMemory, WriteMemory, work.get(), work ? kExplodeWorkSize : 0, &m);
}

}  // namespace orvalis
