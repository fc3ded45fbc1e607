#include "items/sysfiles/sysfilexml.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/io.h"
#include "base/xmltext.h"

namespace orvalis {

namespace {
constexpr size_t kLineBufSize = 520;
constexpr unsigned kShownBits = 0x1 | 0x2 | 0x4 | 0x8;

void WriteIni(FILE* out, const IniSection* sections, bool oneSided) {
  std::fprintf(out, "    %s\n", "<INI>");
  for (const IniSection* s = sections; s; s = s->next) {
    if (!(s->flags & kShownBits)) continue;
    char letter = oneSided ? 'X' : ChangeLetterFromFlags(s->flags);
    std::fprintf(out, "    %s%s%s", "<SECTION>", s->name, "</SECTION>");
    std::fprintf(out, "        %s\"%c\"%s\n", "<CHGFLAG flag=", letter, "/>");
    for (const IniEntry* e = s->entries; e; e = e->next) {
      if (!(e->flags & kShownBits)) continue;
      letter = oneSided ? 'X' : ChangeLetterFromFlags(e->flags);
      std::fprintf(out, "   %s", "<ENTRIES>");
      std::fprintf(out, "      %s%s%s%s", "<LINE>", e->key ? e->key : "", e->value ? e->value : "",
                   "</LINE>");
      std::fprintf(out, "      %s\"%c\"%s", "<CHGFLAG flag=", letter, "/>");
      std::fprintf(out, "   %s", "</ENTRIES>\n");
    }
  }
  std::fprintf(out, "    %s\n", "</INI>");
}

void WriteText(FILE* out, const LineChange* lines, bool oneSided, char* buf) {
  std::fprintf(out, "    %s\n", "<TEXT>");
  for (const LineChange* l = lines; l; l = l->next) {
    if (l->kind == kLineSame) continue;
    std::fprintf(out, "   %s", "<ENTRIES>");
    std::fprintf(out, "      <LINE>");
    WriteEscapedText(out, l->text, strnlen(l->text, sizeof l->text));
    std::fprintf(out, "</LINE>");
    if (l->lineNumber != -1) {
      FormatBase32(l->lineNumber, buf, kLineBufSize);
      std::fprintf(out, "      <LNUM>%s</LNUM>", buf);
    }
    char letter = oneSided ? 'X' : LineChangeLetter(l->kind);
    std::fprintf(out, "      %s\"%c\"%s", "<CHGFLAG flag=", letter, "/>");
    std::fprintf(out, "   %s", "</ENTRIES>\n");
  }
  std::fprintf(out, "    %s\n", "</TEXT>");
}
}  // namespace

void FormatBase32(int value, char* buf, size_t cap) {
  if (!buf || cap == 0) return;
  char digits[16];
  size_t n = 0;
  uint32_t v = static_cast<uint32_t>(value);
  do {
    digits[n++] = "0123456789abcdefghijklmnopqrstuv"[v % 32];
    v /= 32;
  } while (v);
  size_t i = 0;
  for (; i < n && i + 1 < cap; ++i) buf[i] = digits[n - 1 - i];
  buf[i] = '\0';
}

int WriteSysFileDocument(FILE* out, const FileCompareItem* item, bool oneSided) {
  char* buf = static_cast<char*>(Io().calloc(1, kLineBufSize));
  if (!buf) return 8;
  std::fprintf(out, "%s\n", "<?xml version = \"1.0\"?>");
  std::fprintf(out, "%s\n", "<!DOCTYPE SYSFILE SYSTEM \"sysfile.dtd\">");
  std::fprintf(out, "%s\n", "<SYSFILE>");
  std::fprintf(out, "  <FILENAME>");
  WriteEscapedText(out, item->path, strnlen(item->path, sizeof item->path));
  std::fprintf(out, "</FILENAME>\n");
  if (item->sections)
    WriteIni(out, item->sections, oneSided);
  else if (item->lines)
    WriteText(out, item->lines, oneSided, buf);
  std::fprintf(out, "%s\n", "</SYSFILE>");
  Io().free(buf);
  return 0;
}

}  // namespace orvalis
