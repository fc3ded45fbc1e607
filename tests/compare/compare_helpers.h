// Runs CompareSystemFile on real files and renders the result as short strings.
#pragma once
#include <cstdio>
#include <string>
#include <vector>

#include "compare/filecompare.h"
#include "store/textutil.h"
#include "tests/support/test_support.h"

namespace orvalis_test {

// A compared item that frees its results.
struct Compared {
  orvalis::FileCompareItem item{};
  int result = -1;
  ~Compared() {
    orvalis::FreeLineChanges(item.lines);
    orvalis::FreeIniSections(item.sections);
  }
};

// Writes both copies in dir and compares them as the file `path` (whose extension picks
// the INI or the line comparison).
inline void CompareCopies(Compared& c, const ScratchDir& dir, const char* path, const std::string& older,
                          const std::string& newer, unsigned flags = 0xC2) {
  WriteWholeFile(dir.file("older"), older);
  WriteWholeFile(dir.file("newer"), newer);
  c.item.flags = static_cast<uint16_t>(flags);
  orvalis::CopyText(c.item.path, path, sizeof c.item.path);
  orvalis::CopyText(c.item.olderCopy, dir.file("older").c_str(), sizeof c.item.olderCopy);
  orvalis::CopyText(c.item.newerCopy, dir.file("newer").c_str(), sizeof c.item.newerCopy);
  c.result = orvalis::CompareSystemFile(&c.item);
}

// "kind number text" per record.
inline std::vector<std::string> RenderLines(const orvalis::LineChange* l) {
  std::vector<std::string> out;
  for (; l; l = l->next) out.push_back(std::to_string(l->kind) + " " + std::to_string(l->lineNumber) + " " + l->text);
  return out;
}

// "flags name" per section, "  flags key|value" per entry, "    flags +text" per continuation.
inline std::vector<std::string> RenderIni(const orvalis::IniSection* s) {
  std::vector<std::string> out;
  char buf[700];
  for (; s; s = s->next) {
    std::snprintf(buf, sizeof buf, "%x %s", s->flags, s->name);
    out.push_back(buf);
    for (const orvalis::IniEntry* e = s->entries; e; e = e->next) {
      std::snprintf(buf, sizeof buf, "  %x %s|%s", e->flags, e->key, e->value);
      out.push_back(buf);
      for (const orvalis::IniContinuation* k = e->continuation; k; k = k->next) {
        std::snprintf(buf, sizeof buf, "    %x +%s%s", k->flags, k->text, k->owner == e ? "" : " (bad owner)");
        out.push_back(buf);
      }
    }
  }
  return out;
}

}  // namespace orvalis_test
