#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "base/io.h"
#include "base/results.h"
#include "base/textutil.h"
#include "base/xmltext.h"
#include "engine/context.h"
#include "engine/document.h"
#include "engine/strings.h"
#include "engine/sys.h"
#include "items/registry/registry.h"
#include "store/store_win.h"

namespace orvalis {
namespace {

// A hex dump shows at most this many digits (258 bytes); "..." marks a longer value.
constexpr size_t kMaxHexDigits = 516;

void WriteHexDump(FILE* out, const unsigned char* data, uint32_t length) {
  static const char kDigits[] = "0123456789ABCDEF";
  char text[kMaxHexDigits + 1];
  size_t n = 0;
  for (uint32_t i = 0; data && i < length && n + 2 <= kMaxHexDigits; ++i) {
    text[n++] = kDigits[data[i] >> 4];
    text[n++] = kDigits[data[i] & 0xF];
  }
  if (n && std::fwrite(text, 1, n, out) < n)
    Sys().MessageBoxA(nullptr, "binary underwritten", nullptr, MB_OK);
  if (n == kMaxHexDigits) std::fputs("...", out);
}

bool Changed(const ChangeNode* n, uint16_t mask) { return (n->flags & mask) != 0; }

void WriteFlagLine(FILE* out, const char* indent, const ChangeNode* n, bool listing) {
  std::fprintf(out, "%s<CHGFLAG flag=\"%c\"/>\n", indent, listing ? 'X' : ChangeLetterFromFlags(n->flags));
}

void WriteValue(FILE* out, const ChangeNode* v, bool listing) {
  std::fprintf(out, "    <REGVAL>\n");
  std::fprintf(out, "     <FNAME>");
  if (v->name) WriteEscapedText(out, v->name, v->nameLength);
  std::fprintf(out, "</FNAME>\n");
  WriteFlagLine(out, "     ", v, listing);
  std::fprintf(out, "     <DATATYPE type=\"%s\"/>\n", RegTypeName(v->type));
  std::fprintf(out, "     <DATA>");
  WriteRegValueData(out, v);
  std::fprintf(out, "</DATA>\n");
  std::fprintf(out, "    </REGVAL>\n");
}

void WriteKey(FILE* out, const ChangeNode* key, bool listing) {
  if (!key || (!listing && !Changed(key, kChangeAny | kChangeBelow))) return;
  std::fprintf(out, "  <REGTREE>\n");
  std::fprintf(out, "   <NNAME>");
  if (key->name) WriteEscapedText(out, key->name, key->nameLength);
  std::fprintf(out, "</NNAME>\n");
  WriteFlagLine(out, "    ", key, listing);
  for (const ChangeNode* s = key->children; s; s = s->next) WriteKey(out, s, listing);
  for (const ChangeNode* v = key->values; v; v = v->next)
    if (listing || Changed(v, kChangeAny)) WriteValue(out, v, listing);
  std::fprintf(out, "  </REGTREE>\n");
}

}  // namespace

void WriteRegValueData(FILE* out, const ChangeNode* value) {
  switch (value->type) {
    case REG_SZ:
    case REG_EXPAND_SZ:
      if (value->data && value->length > 0)
        WriteEscapedText(out, static_cast<const char*>(value->data), value->length - 1);
      break;
    case REG_DWORD:
    case REG_DWORD_BIG_ENDIAN: {
      // The buffer's size travels as the radix, as the engine has always called it: the
      // runtime's answer for that radix is what the documents show (kept as it is).
      char text[520] = "";
      _ltoa(static_cast<long>(RegNumberOf(value)), text, 520);
      text[sizeof text - 1] = '\0';
      std::fputs(text, out);
      break;
    }
    default:
      WriteHexDump(out, static_cast<const unsigned char*>(value->data), value->length);
      break;
  }
}

uint32_t WriteRegKeyXml(const ChangeNode* tree, const char* destination, bool listing) {
  char path[MAX_PATH];
  CopyText(path, destination, sizeof path);
  FILE* out = BeginDocument(path, "REGKEYXML", "regkey.dtd");
  if (!out) return kResultFileNotFound;
  // The line buffer the document has always been written with: without it, no document.
  char* line = static_cast<char*>(Io().calloc(520, 1));
  if (!line) {
    Io().fclose(out);
    Io().remove(path);
    return kResultNoMemory;
  }
  WriteKey(out, tree, listing);
  Io().free(line);
  return EndDocument(out, path, "REGKEYXML");
}

uint32_t WriteRegComparison(const char* first, const char* second, const char* key, const char* destination,
                            int live) {
  DocumentSide older, newer;
  bool listing;
  if (!FindDocumentSides(first, second, key, RecordGroup::kRegInfo, live, &older, &newer, &listing))
    return kResultInvalidParameter;
  ChangeNode* tree = BuildRegChangeTree(older.named ? older.companion : nullptr, newer.named ? newer.companion : nullptr,
                                        key, live);
  WriteRegKeyXml(tree, destination, listing);  // its result is not the export's: the export answers 0
  FreeRegChangeTree(tree);
  return kResultOk;
}

}  // namespace orvalis
