// The SYSFILE writer on compared copies. The first byte picks INI or lines and one-sided
// output, the next bytes up to a 0xFE name the file; the rest are the two copies.
// Nothing read from a copy holds a line feed, so the document can be checked line by line
// against the records: one line per shown section or entry, each with the right frame and
// change letter; a file name without "]]>" comes out as CDATA with its high bytes dropped.
#include <cstdlib>
#include <string>
#include <vector>

#include "base/xmltext.h"
#include "fuzz/compare_fuzz_input.h"
#include "items/sysfiles/sysfilexml.h"

namespace {

std::vector<std::string> SplitLines(const std::string& doc) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t at; (at = doc.find('\n', start)) != std::string::npos; start = at + 1)
    lines.push_back(doc.substr(start, at - start));
  if (start != doc.size()) std::abort();  // the document ends with a line feed
  return lines;
}

void Expect(bool ok) {
  if (!ok) std::abort();
}

bool Frames(const std::string& line, const std::string& front, const std::string& back) {
  return line.size() >= front.size() + back.size() && line.compare(0, front.size(), front) == 0 &&
         line.compare(line.size() - back.size(), back.size(), back) == 0;
}

std::string Flag(char letter) { return std::string("<CHGFLAG flag=\"") + letter + "\"/>"; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const bool ini = data[0] & 1, oneSided = data[0] & 2;
  ++data, --size;
  const void* mark = std::memchr(data, 0xFE, size < 300 ? size : 300);
  size_t nameLen = mark ? static_cast<size_t>(static_cast<const uint8_t*>(mark) - data) : 0;
  orvalis::FileCompareItem item{};
  std::memcpy(item.path, data, nameLen < 259 ? nameLen : 259);
  for (char* p = item.path; *p; ++p) *p = *p == '\n' ? '_' : *p;
  if (mark) data += nameLen + 1, size -= nameLen + 1;
  orvalis_fuzz::Copies copies(data, size);
  if (!copies.ok()) return 0;
  if (ini) orvalis::CompareIniFiles(copies.newer, copies.older, &item.sections);
  else orvalis::CompareTextLines(copies.newer, copies.older, orvalis::kLookAheadDepth, &item.lines);
  char* text = nullptr;
  size_t textSize = 0;
  FILE* out = open_memstream(&text, &textSize);
  Expect(out != nullptr);
  Expect(orvalis::WriteSysFileDocument(out, &item, oneSided) == 0);
  std::fclose(out);
  std::vector<std::string> lines = SplitLines(std::string(text, textSize));
  std::free(text);
  size_t i = 0;
  Expect(lines.size() >= 5);
  Expect(lines[i++] == "<?xml version = \"1.0\"?>");
  Expect(lines[i++] == "<!DOCTYPE SYSFILE SYSTEM \"sysfile.dtd\">");
  Expect(lines[i++] == "<SYSFILE>");
  Expect(Frames(lines[i], "  <FILENAME>", "</FILENAME>"));
  if (!std::strstr(item.path, "]]>")) {
    std::string name = "  <FILENAME><![CDATA[";
    for (const char* p = item.path; *p; ++p) name += static_cast<unsigned char>(*p) < 0x80 ? std::string(1, *p) : "";
    Expect(lines[i] == name + "]]></FILENAME>");
  }
  ++i;
  if (item.sections) {
    Expect(lines[i++] == "    <INI>");
    for (const orvalis::IniSection* s = item.sections; s; s = s->next) {
      if (!(s->flags & 0xF)) continue;
      char letter = oneSided ? 'X' : orvalis::ChangeLetterFromFlags(s->flags);
      Expect(i < lines.size() && lines[i++] == std::string("    <SECTION>") + s->name + "</SECTION>        " + Flag(letter));
      for (const orvalis::IniEntry* e = s->entries; e; e = e->next) {
        if (!(e->flags & 0xF)) continue;
        letter = oneSided ? 'X' : orvalis::ChangeLetterFromFlags(e->flags);
        Expect(i < lines.size() && lines[i++] == std::string("   <ENTRIES>      <LINE>") + e->key + e->value +
                                                     "</LINE>      " + Flag(letter) + "   </ENTRIES>");
      }
    }
    Expect(i < lines.size() && lines[i++] == "    </INI>");
  } else if (item.lines) {
    Expect(lines[i++] == "    <TEXT>");
    for (const orvalis::LineChange* l = item.lines; l; l = l->next) {
      if (l->kind == orvalis::kLineSame) continue;
      char letter = oneSided ? 'X' : orvalis::LineChangeLetter(l->kind);
      Expect(i < lines.size());
      const std::string& got = lines[i++];
      Expect(Frames(got, "   <ENTRIES>      <LINE>", "      " + Flag(letter) + "   </ENTRIES>"));
      if (l->lineNumber != -1) {
        char num[16];
        orvalis::FormatBase32(l->lineNumber, num, sizeof num);
        Expect(got.find(std::string("</LINE>      <LNUM>") + num + "</LNUM>      <CHGFLAG") != std::string::npos);
      }
    }
    Expect(i < lines.size() && lines[i++] == "    </TEXT>");
  }
  Expect(i + 1 == lines.size() && lines[i] == "</SYSFILE>");
  orvalis::FreeLineChanges(item.lines), orvalis::FreeIniSections(item.sections);
  return 0;
}
