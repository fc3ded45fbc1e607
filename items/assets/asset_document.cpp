#include <windows.h>

#include <cstdio>

#include "base/datetext.h"
#include "base/io.h"
#include "base/results.h"
#include "base/textutil.h"
#include "base/xmltext.h"
#include "engine/strings.h"
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
  FILE* out = Io().fopen(path, "wt");
  if (!out) {
    ShowDestinationError(path);
    return kResultFileNotFound;
  }
  std::fprintf(out, "%s\n", "<?xml version = \"1.0\"?>");
  std::fprintf(out, "%s\n", "<!DOCTYPE ASSETXML SYSTEM \"asset.dtd\">");
  std::fprintf(out, "%s\n", "<ASSETXML>");
  WriteFolder(out, tree, listing);
  std::fprintf(out, "%s\n", "</ASSETXML>");
  if (!CloseChecked(out)) {  // a document cut short by a full disk is no document
    Io().remove(path);
    return kResultWriteFault;
  }
  return kResultOk;
}

uint32_t WriteAssetComparison(const char* first, const char* second, const char* asset, const char* destination,
                              int live) {
  bool listing = true;
  char file1[MAX_PATH] = "", file2[MAX_PATH] = "", index[MAX_PATH];
  int32_t value1 = 0, value2 = 0;
  uint32_t flags1 = 0, flags2 = 0;
  if (!first) {
    if (!live) return kResultInvalidParameter;
    listing = false;
  } else if (!EngineSnapshotPath(first, index) ||
             !FindGroupRecord(index, RecordGroup::kAssetInfo, asset, file1, &value1, &flags1)) {
    return kResultInvalidParameter;
  }
  if (!second) {
    if (live) listing = false;
    value2 = value1;  // the live side is read with the snapshot's own options
    flags2 = flags1;
  } else {
    if (!EngineSnapshotPath(second, index) ||
        !FindGroupRecord(index, RecordGroup::kAssetInfo, asset, file2, &value2, &flags2))
      return kResultInvalidParameter;
    listing = false;
    if (!first) {
      value1 = value2;
      flags1 = flags2;
    }
  }
  const uint32_t flags = (flags1 & 0xFFFF) | (flags2 & 0xFFFF) << 16;
  const uint32_t value = (static_cast<uint32_t>(value1) & 0xFFFF) | (static_cast<uint32_t>(value2) & 0xFFFF) << 16;
  ChangeNode* tree = BuildAssetChangeTree(first ? file1 : nullptr, second ? file2 : nullptr, asset, live, flags, value);
  WriteAssetXml(tree, destination, listing);  // its result is not the export's: the export answers 0
  FreeAssetChangeTree(tree);
  return kResultOk;
}

}  // namespace orvalis
