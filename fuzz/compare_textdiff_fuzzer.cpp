// Line comparison of two arbitrary copies. Besides memory safety it checks what every
// caller relies on: each older record appears once, in order, as kind 2, 4 or 6; a kind 4
// is always followed by its kind 5; the verdict agrees with the records.
#include <cstdlib>

#include "fuzz/compare_fuzz_input.h"
#include "items/sysfiles/filecompare.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  orvalis_fuzz::Copies copies(data, size);
  if (!copies.ok()) return 0;
  int olderRecords = 0;
  char buf[256];
  while (std::fgets(buf, sizeof buf, copies.older)) ++olderRecords;
  std::rewind(copies.older);
  orvalis::LineChange* list = nullptr;
  int differs = orvalis::CompareTextLines(copies.newer, copies.older, orvalis::kLookAheadDepth, &list);
  int expectNumber = 1;
  bool anyChange = false;
  for (const orvalis::LineChange* l = list; l; l = l->next) {
    if (l->next && l->next->prev != l) std::abort();
    if (std::memchr(l->text, '\0', sizeof l->text) == nullptr) std::abort();
    switch (l->kind) {
      case orvalis::kLineChangedOlder:
        if (!l->next || l->next->kind != orvalis::kLineChangedNewer) std::abort();
        [[fallthrough]];
      case orvalis::kLineRemoved: case orvalis::kLineSame: if (l->lineNumber != expectNumber++) std::abort(); break;
      case orvalis::kLineAdded: case orvalis::kLineChangedNewer: if (l->lineNumber != -1) std::abort(); break;
      default: std::abort();
    }
    if (l->kind != orvalis::kLineSame) anyChange = true;
  }
  if (expectNumber - 1 != olderRecords || differs != (anyChange ? 1 : 0)) std::abort();
  orvalis::FreeLineChanges(list);
  return 0;
}
