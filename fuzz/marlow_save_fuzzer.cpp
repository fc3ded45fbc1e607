// libFuzzer target of the reader of Wine's registry save text (MARLOW.DLL reads it in place of a
// walk): any input either fails whole or gives a branch whose every index and range lies inside
// it, as the library's writer takes for granted. A crash, a hang or a bad range is a finding.
#include <cstdint>
#include <string_view>

#include "companions/marlow/winesave.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  marlow::SavedBranch b;
  if (!marlow::ParseWineSave(std::string_view(reinterpret_cast<const char*>(data), size), &b)) {
    if (!b.keys.empty() || !b.values.empty()) __builtin_trap();
    return 0;
  }
  for (const marlow::SavedKey& k : b.keys) {
    if (uint64_t(k.name) + k.nameLength > b.names.size()) __builtin_trap();
    if (uint64_t(k.firstValue) + k.valueCount > b.values.size()) __builtin_trap();
    for (uint32_t c : k.children) if (c == 0 || c >= b.keys.size()) __builtin_trap();
  }
  for (const marlow::SavedValue& v : b.values)
    if (uint64_t(v.name) + v.nameLength > b.names.size() || uint64_t(v.data) + v.dataLength > b.data.size())
      __builtin_trap();
  return 0;
}
