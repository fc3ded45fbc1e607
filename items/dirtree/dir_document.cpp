#include <windows.h>

#include <cstdio>

#include "base/io.h"
#include "base/results.h"
#include "base/textutil.h"
#include "engine/context.h"
#include "engine/strings.h"
#include "engine/sys.h"
#include "items/dirtree/dirtree.h"
#include "store/store_win.h"

namespace orvalis {

uint32_t WriteDirComparison(const char* older, const char* newer, const char* directory,
                                         const char* output, int live) {
  char folder[MAX_PATH];
  GetModuleFolderWithSlash(folder);
  uint16_t flags = 0x40;
  bool oneSided = true;
  char olderListing[MAX_PATH] = "", newerListing[MAX_PATH] = "", index[MAX_PATH];
  int32_t olderCompressed = 0, newerCompressed = 0;
  uint32_t olderCrc = 0, newerCrc = 0;
  if (older) {
    if (!EngineSnapshotPath(older, index) ||
        !FindDirInfoRecord(index, directory, olderListing, &olderCompressed, &olderCrc))
      return kResultInvalidParameter;
  } else if (!live) {
    return kResultInvalidParameter;
  }
  if (newer) {
    if (!EngineSnapshotPath(newer, index) ||
        !FindDirInfoRecord(index, directory, newerListing, &newerCompressed, &newerCrc))
      return kResultInvalidParameter;
    flags |= 0x80;
    oneSided = false;
  } else if (live) {
    flags |= 0x80;
    oneSided = false;
  }
  auto* rec = static_cast<DirCompareRecord*>(Io().calloc(1, sizeof(DirCompareRecord)));
  if (!rec) return kResultNoMemory;
  rec->flags = flags | 0x4000;
  CopyText(rec->path, directory, sizeof rec->path);
  CopyText(rec->olderListing, olderListing, sizeof rec->olderListing);
  CopyText(rec->newerListing, newerListing, sizeof rec->newerListing);
  rec->olderCompressed = olderCompressed;
  rec->olderCrc = olderCrc;
  rec->newerCompressed = newerCompressed;
  rec->newerCrc = newerCrc;
  char cfg[MAX_PATH];
  DirFilters* filters = nullptr;
  if (std::snprintf(cfg, sizeof cfg, "%sORVALIS.CFG", folder) < MAX_PATH && LoadDirFilters(cfg, &filters) != 0) {
    Io().free(rec);
    return kResultNoMemory;
  }
  uint32_t rc = kResultInvalidParameter;
  if (CompareDirectory(rec, filters)) {
    FILE* out = Io().fopen(output, "wt");
    if (!out) {
      ShowDestinationError(output);
    } else if (char* line = static_cast<char*>(Io().calloc(520, 1))) {
      WriteDirTreeDocument(out, rec->tree, oneSided);
      Io().free(line);
      if (!CloseChecked(out)) Io().remove(output);  // a document cut short by a full disk is no document
    } else {
      Io().fclose(out);  // no line buffer: the document stays empty
    }
    FreeDirTree(rec->tree);
    rc = 0;
  }
  FreeDirFilters(filters);
  Io().free(rec);
  return rc;
}

}  // namespace orvalis
