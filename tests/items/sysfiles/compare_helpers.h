// Runs CompareSystemFile on real files and renders the result as short strings.
#pragma once
#include <cstdio>
#include <string>
#include <vector>

#include "base/textutil.h"
#include "items/sysfiles/filecompare.h"
#include "tests/support/test_support.h"

namespace orvalis_test {

using V = std::vector<std::string>;

// Both copies written to a scratch folder and compared as the file `path`, whose extension
// picks the INI or the line comparison. The results are freed with the object.
struct Compared {
  Compared(const char* path, const std::string& older, const std::string& newer, unsigned flags = 0xC2) {
    WriteWholeFile(dir.file("older"), older);
    WriteWholeFile(dir.file("newer"), newer);
    item.flags = static_cast<uint16_t>(flags);
    orvalis::CopyText(item.path, path, sizeof item.path);
    orvalis::CopyText(item.olderCopy, dir.file("older").c_str(), sizeof item.olderCopy);
    orvalis::CopyText(item.newerCopy, dir.file("newer").c_str(), sizeof item.newerCopy);
    result = orvalis::CompareSystemFile(&item);
  }
  ~Compared() {
    orvalis::FreeLineChanges(item.lines);
    orvalis::FreeIniSections(item.sections);
  }
  bool differs() const { return item.flags & orvalis::kFileDiffers; }
  // "kind number text" per record.
  V lines() const {
    V out;
    for (auto* l = item.lines; l; l = l->next)
      out.push_back(std::to_string(l->kind) + " " + std::to_string(l->lineNumber) + " " + l->text);
    return out;
  }
  // "flags name" per section, "  flags key|value" per entry, "    flags +text" per continuation.
  V ini() const {
    V out;
    auto hex = [](unsigned f) { char b[16]; return std::string(b, std::snprintf(b, sizeof b, "%x", f)); };
    for (auto* s = item.sections; s; s = s->next) {
      out.push_back(hex(s->flags) + " " + s->name);
      for (auto* e = s->entries; e; e = e->next) {
        out.push_back("  " + hex(e->flags) + " " + e->key + "|" + e->value);
        for (auto* k = e->continuation; k; k = k->next)
          out.push_back("    " + hex(k->flags) + " +" + k->text + (k->owner == e ? "" : " (bad owner)"));
      }
    }
    return out;
  }

  ScratchDir dir;
  orvalis::FileCompareItem item{};
  int result;
};

}  // namespace orvalis_test
