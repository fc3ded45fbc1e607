// INI comparison of two arbitrary copies: memory safety, flag sanity and the promise that
// both streams come back rewound.
#include <cstdlib>

#include "fuzz/compare_fuzz_input.h"
#include "items/sysfiles/filecompare.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  orvalis_fuzz::Copies copies(data, size);
  if (!copies.ok()) return 0;
  orvalis::IniSection* list = nullptr;
  int differs = orvalis::CompareIniFiles(copies.newer, copies.older, &list);
  if (std::ftell(copies.newer) != 0 || std::ftell(copies.older) != 0) std::abort();
  bool anyMark = false;
  for (const orvalis::IniSection* s = list; s; s = s->next) {
    if ((s->flags & ~0xBu) != orvalis::kIniSectionBase) std::abort();
    if (s->name[0] != '[') std::abort();
    if (s->flags & 0xB) anyMark = true;
    for (const orvalis::IniEntry* e = s->entries; e; e = e->next) {
      if (e->flags & ~0x1Fu) std::abort();
      // The older half of a changed pair is followed by its newer half.
      if ((e->flags & orvalis::kIniValueOlder) && (!e->next || !(e->next->flags & orvalis::kIniChanged))) std::abort();
      if (std::strlen(e->key) > 255 || std::strlen(e->value) > 255) std::abort();
      for (const orvalis::IniContinuation* c = e->continuation; c; c = c->next)
        if (c->owner != e || c->flags != orvalis::kIniContinuationBase) std::abort();
    }
  }
  // Every difference that was counted leaves a marked section somewhere.
  if (differs && !anyMark) std::abort();
  orvalis::FreeIniSections(list);
  return 0;
}
