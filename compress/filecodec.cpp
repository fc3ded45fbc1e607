#include "compress/filecodec.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "base/io.h"
#include "compress/crc32.h"
#include "compress/explode.h"
#include "compress/implode.h"

namespace orvalis {
namespace {

static_assert(sizeof(unsigned) >= 4, "the callbacks count bytes in unsigned");
static_assert(kExplodeWorkSize <= kFileCodecWorkSize, "the decoder must fit the kept work area");

enum CrcMode : uint32_t { kCrcOfRead = 1, kCrcOfWritten = 2 };

// The state the coder callbacks see.
struct FileStreams {
  FILE* in;
  FILE* out;
  uint32_t crcMode;
  uint32_t crc;  // running, uncomplemented
};

unsigned ReadStream(char* buf, unsigned size, void* param) {
  auto* f = static_cast<FileStreams*>(param);
  size_t n = std::fread(buf, 1, size, f->in);
  if (n > 0 && f->crcMode == kCrcOfRead) f->crc = Crc32Update(f->crc, buf, n);
  return static_cast<unsigned>(n);
}

unsigned WriteStream(const char* buf, unsigned size, void* param) {
  auto* f = static_cast<FileStreams*>(param);
  size_t n = std::fwrite(buf, 1, size, f->out);
  if (f->crcMode == kCrcOfWritten) f->crc = Crc32Update(f->crc, buf, n);
  return static_cast<unsigned>(n);
}

void CloseIfOpen(FILE* f) {
  if (f) Io().fclose(f);
}

}  // namespace

int CompressFileWith(const char* source, const char* target, uint32_t* crc, void* work,
                     size_t workSize, int type, int dictSize, int level) {
  if (!work || workSize < kFileCodecWorkSize) return 8;
  // The encoder's state outgrows the kept work area: it is taken here, through the seam, before
  // any file is touched, so that a machine out of memory hears 8 rather than a coder failure.
  void* encoder = nullptr;
  if (workSize < kImplodeWorkSize) {
    const size_t size = kImplodeWorkSize + alignof(std::max_align_t);
    encoder = Io().calloc(1, size);
    if (!encoder) return 8;
    work = encoder;
    workSize = size;
  }
  FileStreams s{Io().fopen(source, "rb"), Io().fopen(target, "wb"), kCrcOfRead, 0xFFFFFFFFu};
  int result = 0;
  if (s.in && s.out) {
    if (Implode(ReadStream, WriteStream, work, workSize, &s, type, dictSize, level) != kImplodeOk)
      result = -1;
    else
      s.crc = ~s.crc;
  }
  CloseIfOpen(s.out);
  CloseIfOpen(s.in);
  Io().free(encoder);
  *crc = s.crc;
  return result;
}

int ExpandFileWith(const char* target, const char* source, void* work, size_t workSize,
                   uint32_t* crcOut) {
  if (!work || workSize < kFileCodecWorkSize) return 8;
  FileStreams s{Io().fopen(source, "rb"), Io().fopen(target, "wb"), kCrcOfWritten, 0xFFFFFFFFu};
  // The coder's verdict is not looked at: a bad stream leaves a short target, which the
  // caller finds out about when the text does not parse.
  if (s.in && s.out) Explode(ReadStream, WriteStream, work, workSize, &s);
  CloseIfOpen(s.out);
  CloseIfOpen(s.in);
  if (crcOut) *crcOut = ~s.crc;
  return 0;
}

int ExpandFileChecked(const char* target, const char* source, uint32_t* crcOut) {
  std::unique_ptr<unsigned char[]> work(new (std::nothrow) unsigned char[kExplodeWorkSize]);
  if (!work) return kExpandNoMemory;
  FileStreams s{Io().fopen(source, "rb"), nullptr, kCrcOfWritten, 0xFFFFFFFFu};
  if (!s.in) return kExpandSourceMissing;
  s.out = Io().fopen(target, "wb");
  if (!s.out) {
    Io().fclose(s.in);
    return kExpandCannotCreate;
  }
  int rc = Explode(ReadStream, WriteStream, work.get(), kExplodeWorkSize, &s);
  bool readFault = std::ferror(s.in) != 0;
  Io().fclose(s.in);
  bool closeFault = Io().fclose(s.out) != 0;
  int result = kExpandOk;
  if (rc == kExplodeWriteError || closeFault)
    result = kExpandWriteFault;
  else if (readFault)
    result = kExpandReadFault;
  else if (rc != kExplodeOk)
    result = kExpandBadData;
  if (result != kExpandOk) {
    Io().remove(target);
    return result;
  }
  if (crcOut) *crcOut = ~s.crc;
  return kExpandOk;
}

int IsTextFile(const char* path) {
  constexpr size_t kBlockSize = 4096;
  std::unique_ptr<char[]> buf(new (std::nothrow) char[kBlockSize]);
  if (!buf) return -1;
  FILE* f = Io().fopen(path, "rb");
  if (!f) return -1;
  int result = 1;
  size_t n;
  while (result == 1 && (n = std::fread(buf.get(), 1, kBlockSize, f)) > 0)
    if (std::memchr(buf.get(), 0, n)) result = 0;
  Io().fclose(f);
  return result;
}

}  // namespace orvalis
