#include <windows.h>

#include <cstdio>

#include "base/datetext.h"
#include "base/io.h"
#include "base/results.h"
#include "base/textutil.h"
#include "base/xmltext.h"
#include "engine/document.h"
#include "items/assets/assets.h"
#include "store/store_win.h"

namespace orvalis {
namespace {

char Letter(const ChangeNode* n, bool listing) { return listing ? 'X' : ChangeLetterFromFlags(n->flags); }

void WriteName(FILE* out, const char* open, const ChangeNode* n, const char* close) {
  std::fputs(open, out);
  if (n->name) WriteEscapedText(out, n->name, n->nameLength);
  std::fputs(close, out);
}

void WriteFile(FILE* out, const ChangeNode* file, bool listing) {
  std::fprintf(out, "    <ASSETVAL>\n");
  WriteName(out, "     <FNAME>", file, "</FNAME>\n");
  std::fprintf(out, "     <CHGFLAG flag=\"%c\"/>\n", Letter(file, listing));
  char stamp[64] = "";
  FormatPackedDateTime(file->time, stamp);
  std::fprintf(out, "     <TIME>%s</TIME>\n", stamp);
  std::fprintf(out, "     <SIZE>%lu</SIZE>\n", static_cast<unsigned long>(file->length));
  std::fprintf(out, "     <CRC>%08lX</CRC>\n", static_cast<unsigned long>(file->crc));
  std::fprintf(out, "    </ASSETVAL>\n");
}

// A folder (or the asset's root): its subfolders nested first, then its files, as the registry
// document nests keys before values. Unchanged nodes are left out unless the tree is a listing.
void WriteFolder(FILE* out, const ChangeNode* folder, bool listing) {
  if (!folder || (!listing && !(folder->flags & (kChangeAny | kChangeBelow)))) return;
  std::fprintf(out, "  <ASSETTREE>\n");
  WriteName(out, "   <NNAME>", folder, "</NNAME>\n");
  std::fprintf(out, "    <CHGFLAG flag=\"%c\"/>\n", Letter(folder, listing));
  for (const ChangeNode* c = folder->children; c; c = c->next)
    if (!(c->flags & kKindFile)) WriteFolder(out, c, listing);
  for (const ChangeNode* c = folder->children; c; c = c->next)
    if ((c->flags & kKindFile) && (listing || (c->flags & kChangeAny))) WriteFile(out, c, listing);
  std::fprintf(out, "  </ASSETTREE>\n");
}

}  // namespace

uint32_t WriteAssetXml(const ChangeNode* tree, const char* destination, bool listing) {
  char path[MAX_PATH];
  CopyText(path, destination, sizeof path);
  FILE* out = BeginDocument(path, "ASSETXML", "asset.dtd");
  if (!out) return kResultFileNotFound;
  WriteFolder(out, tree, listing);
  return EndDocument(out, path, "ASSETXML");
}

uint32_t WriteAssetComparison(const char* first, const char* second, const char* asset, const char* destination,
                              int live) {
  DocumentSide older, newer;
  bool listing;
  if (!FindDocumentSides(first, second, asset, RecordGroup::kAssetInfo, live, &older, &newer, &listing))
    return kResultInvalidParameter;
  // Each side is read with its own entry's value and options; a side without a snapshot (the live
  // files) with the other's.
  const DocumentSide& a = older.named ? older : newer;
  const DocumentSide& b = newer.named ? newer : a;
  const uint32_t flags = (a.second & 0xFFFF) | (b.second & 0xFFFF) << 16;
  const uint32_t value = (static_cast<uint32_t>(a.first) & 0xFFFF) | (static_cast<uint32_t>(b.first) & 0xFFFF) << 16;
  ChangeNode* tree = BuildAssetChangeTree(older.named ? older.companion : nullptr,
                                          newer.named ? newer.companion : nullptr, asset, live, flags, value);
  WriteAssetXml(tree, destination, listing);  // its result is not the export's: the export answers 0
  FreeAssetChangeTree(tree);
  return kResultOk;
}

}  // namespace orvalis
