// libFuzzer target of the two readers of CORVID.DLL's portable half: the input is taken both as a
// companion (each of a few asset names read from it, the records built into a tree and compared)
// and as a MASTER.IDX. Any result is fine; a crash, a hang, a leak or an access out of bounds is a
// finding, and so is a record path that leaves the asset's folder getting through. The CRC-32
// checks are waived in this build so that damage reaches the record parsers.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "base/io.h"
#include "companions/corvid/assetstore.h"

namespace {

void CheckTree(const corvid::FileRecord* records, uint32_t count) {
  corvid::AssetOrigin origin{};
  ChangeNode* first = corvid::BuildAssetTree(origin, records, count);
  ChangeNode* second = corvid::BuildAssetTree(origin, records, count);
  if (first && second) {
    corvid::CompareAssetTrees(&first, second);
    for (const ChangeNode* n = first->children; n; n = n->next)
      if (!corvid::IsSafeRelativePath(n->name)) __builtin_trap();
  }
  corvid::FreeAssetTree(first);
  corvid::FreeAssetTree(second);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = "/tmp/corvid-read-fuzz-" + std::to_string(getpid());
  std::FILE* f = std::fopen(path.c_str(), "w+b");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fflush(f);
  for (const char* asset : {"A", "C:\\App", "C:\\Fonts\\*.ttf", "c:\\app"}) {
    char folder[260];
    uint32_t options = 0, count = 0;
    corvid::FileRecord* records = nullptr;
    if (corvid::ReadAssetBlock(f, asset, folder, &options, &records, &count) == corvid::kOk) {
      for (uint32_t i = 0; i < count; ++i) if (!corvid::IsSafeRelativePath(records[i].path)) __builtin_trap();
      CheckTree(records, count);
    }
    orvalis::Io().free(records);
  }
  std::fclose(f);
  corvid::IndexRecord* index = nullptr;
  uint32_t count = 0;
  if (corvid::ReadIndex(path.c_str(), &index, &count) == corvid::kOk && count) {
    // What was read writes back to the same bytes.
    const std::string again = path + ".idx";
    if (corvid::WriteIndex(again.c_str(), index, count) != corvid::kOk) __builtin_trap();
    std::remove(again.c_str());
  }
  orvalis::Io().free(index);
  return 0;
}
