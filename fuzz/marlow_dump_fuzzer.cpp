// libFuzzer target of the registry dump reader of MARLOW.DLL: the input is taken as a dump (or
// key save) file and read as the library reads it: whole roots, keys by path (through the HKU
// alias too) and the saved key. Any result is fine; a crash, a hang, a leak or an access out of
// bounds is a finding. The CRC-32 checks are waived in this build so that damage reaches the
// record parser.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "companions/marlow/regdump.h"
#include "companions/marlow/regtree.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = "/tmp/marlow-dump-fuzz-" + std::to_string(getpid());
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  static const struct { uint32_t root; const char* rest; } reads[] = {
      {0, ""}, {1, "Key1\\Sub"}, {3, "S-1-5-21-1\\Key0"}, {3, ""}, {marlow::kSavedKeyRoot, ""}};
  marlow::DumpReader reader;
  if (reader.Open(path) != 0) return 0;
  for (const auto& r : reads) {
    ChangeNode* tree = nullptr;
    if (reader.ReadKey(r.root, r.rest, "k", "HKLM\\k", &tree) == 0) {
      ChangeNode* again = nullptr;
      // A second read of the same key compares equal to the first.
      if (reader.ReadKey(r.root, r.rest, "k", "HKLM\\k", &again) == 0 && marlow::CompareTrees(tree, again) != 0)
        __builtin_trap();
      marlow::FreeTree(again);
    }
    marlow::FreeTree(tree);
  }
  return 0;
}
