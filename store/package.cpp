#include "store/package.h"

#include <cstring>

#include "base/io.h"
#include "base/textutil.h"
#include "compress/coder_files.h"
#include "compress/crc32.h"
#include "compress/explode.h"
#include "compress/implode.h"

namespace orvalis {
namespace {

constexpr char kMagic[8] = {'O', 'R', 'V', 'A', 'L', 'P', 'K', 'G'};
constexpr uint32_t kVersion = 1;
constexpr uint32_t kMaxEntries = 100000;

void Put32(unsigned char* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
uint32_t Get32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}

bool IsDeviceName(const char* name) {
  char base[16];
  size_t n = 0;
  while (name[n] && name[n] != '.' && n < sizeof base - 1) {
    base[n] = name[n];
    ++n;
  }
  if (name[n] && name[n] != '.') return false;  // longer than any device name
  base[n] = '\0';
  static const char* const kDevices[] = {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$", "CLOCK$"};
  for (const char* d : kDevices)
    if (EqualNoCase(base, d)) return true;
  if (n == 4 && (CompareNoCaseN(base, "COM", 3) == 0 || CompareNoCaseN(base, "LPT", 3) == 0) && base[3] >= '0' &&
      base[3] <= '9')
    return true;
  return false;
}

// Reads one entry's framing at the current position; false on anything that is not ours.
bool ReadEntryHead(FILE* f, PackageEntry* e, uint32_t* stored) {
  unsigned char b[12];
  if (std::fread(b, 1, 2, f) != 2) return false;
  e->kind = b[0];
  const unsigned folderLen = b[1];
  if (e->kind < kPackageIndex || e->kind > kPackageFolderFile) return false;
  if ((e->kind == kPackageFolderFile) != (folderLen > 0)) return false;
  if (std::fread(e->folder, 1, folderLen, f) != folderLen) return false;
  e->folder[folderLen] = '\0';
  if (std::fread(b, 1, 1, f) != 1) return false;
  const unsigned nameLen = b[0];
  if (std::fread(e->name, 1, nameLen, f) != nameLen) return false;
  e->name[nameLen] = '\0';
  if (std::strlen(e->folder) != folderLen || std::strlen(e->name) != nameLen) return false;  // a zero byte inside
  if (!IsPackageName(e->name) || (folderLen && !IsPackageName(e->folder))) return false;
  if (std::fread(b, 1, 12, f) != 12) return false;
  e->size = Get32(b);
  e->crc = Get32(b + 4);
  *stored = Get32(b + 8);
  return true;
}

// Decodes stored bytes from f into out (null: only checked); true when they decode whole to
// the entry's size and CRC.
bool DecodeEntry(FILE* f, uint32_t stored, const PackageEntry& e, FILE* out, bool* writeFailed) {
  void* work = Io().calloc(1, kExplodeWorkSize);
  if (!work) return false;
  CoderFiles s{f, out, 0xFFFFFFFFu, 0, stored, false};
  const int rc = Explode(ReadPackedFile, WritePlainFile, work, kExplodeWorkSize, &s);
  Io().free(work);
  if (writeFailed) *writeFailed = s.writeFailed;
  return rc == kExplodeOk && s.packed == 0 && s.plain == e.size && ~s.crc == e.crc;
}

}  // namespace

bool IsPackageName(const char* name) {
  if (!IsBareFileName(name) || std::strlen(name) >= 255) return false;
  for (const char* c = name; *c; ++c)
    if (static_cast<unsigned char>(*c) < 0x20 || std::strchr("<>\"|?*", *c)) return false;
  return !IsDeviceName(name);
}

struct PackageWriter {
  FILE* f;
  char path[260];
  bool failed;
};

PackageWriter* OpenPackageWriter(const char* path, uint32_t entries) {
  auto* w = static_cast<PackageWriter*>(Io().calloc(1, sizeof(PackageWriter)));
  if (!w) return nullptr;
  CopyText(w->path, path, sizeof w->path);
  w->f = Io().fopen(path, "w+b");
  if (!w->f) {
    Io().free(w);
    return nullptr;
  }
  unsigned char head[16];
  std::memcpy(head, kMagic, 8);
  Put32(head + 8, kVersion);
  Put32(head + 12, entries);
  w->failed = std::fwrite(head, 1, sizeof head, w->f) != sizeof head;
  return w;
}

int AddPackageEntry(PackageWriter* w, uint8_t kind, const char* folder, const char* name, const char* source) {
  if (w->failed) return kPackageWriteFault;
  if (!IsPackageName(name) || (folder && folder[0] && !IsPackageName(folder))) return kPackageBadData;
  FILE* in = Io().fopen(source, "rb");
  if (!in) return kPackageNotFound;
  const size_t folderLen = folder ? std::strlen(folder) : 0, nameLen = std::strlen(name);
  unsigned char head[2 + 255 + 1 + 255 + 12];
  size_t n = 0;
  head[n++] = kind;
  head[n++] = static_cast<unsigned char>(folderLen);
  std::memcpy(head + n, folder ? folder : "", folderLen);
  n += folderLen;
  head[n++] = static_cast<unsigned char>(nameLen);
  std::memcpy(head + n, name, nameLen);
  n += nameLen;
  const long sizes = std::ftell(w->f) + static_cast<long>(n);
  std::memset(head + n, 0, 12);  // size, CRC and stored size follow once the data is written
  n += 12;
  int rc = kPackageOk;
  void* work = Io().calloc(1, kImplodeWorkSize);
  CoderFiles s{in, w->f, 0xFFFFFFFFu, 0, 0, false};
  if (!work) {
    rc = kPackageNoMemory;
  } else if (std::fwrite(head, 1, n, w->f) != n ||
             Implode(ReadPlainFile, WritePackedFile, work, kImplodeWorkSize, &s, kImplodeBinary, 4096) != kImplodeOk) {
    rc = kPackageWriteFault;
  } else if (std::ferror(in) || s.plain > 0xFFFFFFFFu) {
    rc = kPackageNotFound;
  } else {
    unsigned char sz[12];
    Put32(sz, static_cast<uint32_t>(s.plain));
    Put32(sz + 4, ~s.crc);
    Put32(sz + 8, static_cast<uint32_t>(s.packed));
    if (std::fseek(w->f, sizes, SEEK_SET) != 0 || std::fwrite(sz, 1, 12, w->f) != 12 ||
        std::fseek(w->f, 0, SEEK_END) != 0)
      rc = kPackageWriteFault;
  }
  Io().free(work);
  Io().fclose(in);
  if (rc != kPackageOk) w->failed = true;
  return rc;
}

int ClosePackageWriter(PackageWriter* w, bool abandon) {
  if (!w) return kPackageNoMemory;
  int rc = w->failed ? kPackageWriteFault : kPackageOk;
  if (!abandon && rc == kPackageOk) {
    // The trailer: the CRC-32 of everything written, read back from the disk.
    uint32_t crc = 0xFFFFFFFFu;
    char buf[4096];
    std::fflush(w->f);
    std::rewind(w->f);
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, w->f)) > 0) crc = Crc32Update(crc, buf, n);
    unsigned char tail[4];
    Put32(tail, ~crc);
    if (std::ferror(w->f) || std::fseek(w->f, 0, SEEK_END) != 0 || std::fwrite(tail, 1, 4, w->f) != 4)
      rc = kPackageWriteFault;
  }
  if (!CloseChecked(w->f) && rc == kPackageOk) rc = kPackageWriteFault;
  if (abandon || rc != kPackageOk) Io().remove(w->path);
  Io().free(w);
  return abandon ? kPackageOk : rc;
}

int VerifyPackage(const char* path, PackageEntry** entries, uint32_t* count) {
  *entries = nullptr;
  *count = 0;
  FILE* f = Io().fopen(path, "rb");
  if (!f) return kPackageNotFound;
  // The trailer first: a cut or a flipped byte anywhere is found before anything is decoded.
  uint64_t total = 0;
  if (std::fseek(f, 0, SEEK_END) == 0) {
    const long end = std::ftell(f);
    total = end > 0 ? static_cast<uint64_t>(end) : 0;
  }
  std::rewind(f);
  uint32_t crc = 0xFFFFFFFFu;
  unsigned char window[4] = {0, 0, 0, 0};
  char buf[4096];
  for (uint64_t left = total >= 4 ? total - 4 : 0; left > 0;) {
    const size_t want = left < sizeof buf ? static_cast<size_t>(left) : sizeof buf;
    const size_t n = std::fread(buf, 1, want, f);
    if (n == 0) break;
    crc = Crc32Update(crc, buf, n);
    left -= n;
  }
  if (total >= 4 && std::fread(window, 1, 4, f) != 4) total = 0;
  int rc = kPackageBadData;
  unsigned char head[16];
  PackageEntry* list = nullptr;
  uint32_t entryCount = 0;
  if (total < 20 || ~crc != Get32(window)) goto done;
  std::rewind(f);
  if (std::fread(head, 1, 16, f) != 16 || std::memcmp(head, kMagic, 8) != 0 || Get32(head + 8) != kVersion) goto done;
  entryCount = Get32(head + 12);
  if (entryCount == 0 || entryCount > kMaxEntries) goto done;
  list = static_cast<PackageEntry*>(Io().calloc(entryCount, sizeof(PackageEntry)));
  if (!list) {
    rc = kPackageNoMemory;
    goto done;
  }
  for (uint32_t i = 0; i < entryCount; ++i) {
    uint32_t stored;
    if (!ReadEntryHead(f, &list[i], &stored)) goto done;
    const long at = std::ftell(f);
    if (at < 0 || static_cast<uint64_t>(at) + stored > total - 4) goto done;
    if (!DecodeEntry(f, stored, list[i], nullptr, nullptr)) goto done;
    if (std::fseek(f, at + static_cast<long>(stored), SEEK_SET) != 0) goto done;
  }
  if (static_cast<uint64_t>(std::ftell(f)) != total - 4) goto done;  // nothing may follow the entries
  rc = kPackageOk;
done:
  Io().fclose(f);
  if (rc != kPackageOk) {
    Io().free(list);
    return rc;
  }
  *entries = list;
  *count = entryCount;
  return kPackageOk;
}

void FreePackageEntries(PackageEntry* entries) { Io().free(entries); }

int ExtractPackageEntry(const char* path, uint32_t index, const char* target) {
  FILE* f = Io().fopen(path, "rb");
  if (!f) return kPackageNotFound;
  unsigned char head[16];
  int rc = kPackageBadData;
  if (std::fread(head, 1, 16, f) == 16 && index < Get32(head + 12)) {
    PackageEntry e{};
    uint32_t stored = 0;
    bool ok = true;
    for (uint32_t i = 0; ok && i < index; ++i)
      ok = ReadEntryHead(f, &e, &stored) && std::fseek(f, static_cast<long>(stored), SEEK_CUR) == 0;
    if (ok && ReadEntryHead(f, &e, &stored)) {
      FILE* out = Io().fopen(target, "wb");
      if (!out) {
        rc = kPackageCannotCreate;
      } else {
        bool writeFailed = false;
        const bool decoded = DecodeEntry(f, stored, e, out, &writeFailed);
        const bool closed = CloseChecked(out);
        rc = writeFailed || !closed ? kPackageWriteFault : decoded ? kPackageOk : kPackageBadData;
        if (rc != kPackageOk) Io().remove(target);
      }
    }
  }
  Io().fclose(f);
  return rc;
}

}  // namespace orvalis
