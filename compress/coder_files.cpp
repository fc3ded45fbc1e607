#include "compress/coder_files.h"

#include "compress/crc32.h"

namespace orvalis {

unsigned ReadPlainFile(char* buf, unsigned size, void* files) {
  auto* c = static_cast<CoderFiles*>(files);
  const size_t n = std::fread(buf, 1, size, c->in);
  c->crc = Crc32Update(c->crc, buf, n);
  c->plain += n;
  return static_cast<unsigned>(n);
}

unsigned WritePackedFile(const char* buf, unsigned size, void* files) {
  auto* c = static_cast<CoderFiles*>(files);
  const size_t n = std::fwrite(buf, 1, size, c->out);
  c->packed += n;
  return static_cast<unsigned>(n);
}

unsigned ReadPackedFile(char* buf, unsigned size, void* files) {
  auto* c = static_cast<CoderFiles*>(files);
  const size_t want = c->packed < size ? static_cast<size_t>(c->packed) : size;
  const size_t n = want ? std::fread(buf, 1, want, c->in) : 0;
  c->packed -= n;
  return static_cast<unsigned>(n);
}

unsigned WritePlainFile(const char* buf, unsigned size, void* files) {
  auto* c = static_cast<CoderFiles*>(files);
  c->crc = Crc32Update(c->crc, buf, size);
  c->plain += size;
  if (c->out && std::fwrite(buf, 1, size, c->out) != size) {
    c->writeFailed = true;
    return 0;
  }
  return size;
}

}  // namespace orvalis
