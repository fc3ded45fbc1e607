// Snapshot packages of any content. The input is given a correct trailer, so that what follows the
// trailer check (framing, names, sizes, the imploded data and its CRC) is what gets exercised:
// the reader must never crash, overrun or leak, must never hand out a name that leaves its folder,
// and a package it accepts must extract to exactly what it declared.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "compress/crc32.h"
#include "store/package.h"

using namespace orvalis;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string base = "/tmp/orvalis-pkg-" + std::to_string(getpid());
  static const std::string package = base + ".pkg", target = base + ".out";
  FILE* f = std::fopen(package.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  const uint32_t crc = Crc32(data, size);
  unsigned char tail[4] = {static_cast<unsigned char>(crc), static_cast<unsigned char>(crc >> 8),
                           static_cast<unsigned char>(crc >> 16), static_cast<unsigned char>(crc >> 24)};
  std::fwrite(tail, 1, 4, f);
  std::fclose(f);
  PackageEntry* entries = nullptr;
  uint32_t count = 0;
  if (VerifyPackage(package.c_str(), &entries, &count) == kPackageOk) {
    for (uint32_t i = 0; i < count; ++i) {
      if (!IsPackageName(entries[i].name) || (entries[i].folder[0] && !IsPackageName(entries[i].folder))) std::abort();
      if (ExtractPackageEntry(package.c_str(), i, target.c_str()) != kPackageOk) std::abort();
      FILE* out = std::fopen(target.c_str(), "rb");
      if (!out) std::abort();
      std::fseek(out, 0, SEEK_END);
      if (static_cast<uint32_t>(std::ftell(out)) != entries[i].size) std::abort();
      std::fclose(out);
    }
    std::remove(target.c_str());
  }
  FreePackageEntries(entries);
  return 0;
}
