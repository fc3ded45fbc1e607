#include <windows.h>

#include <cstdio>

#include "base/io.h"
#include "base/results.h"
#include "base/textutil.h"
#include "engine/cursor.h"
#include "engine/strings.h"
#include "engine/sys.h"
#include "items/sysfiles/filecompare.h"
#include "items/sysfiles/sysfiles.h"
#include "items/sysfiles/sysfilexml.h"
#include "store/store_win.h"

namespace orvalis {

uint32_t WriteSysFileComparison(const char* older, const char* newer, const char* file, const char* output,
                                           int live) {
  char olderCopy[MAX_PATH], newerCopy[MAX_PATH] = "", index[MAX_PATH];
  if (older) {
    if (!EngineSnapshotPath(older, index) || !FindFileInfoCopy(index, file, olderCopy)) return kResultInvalidParameter;
  } else if (live) {
    CopyText(olderCopy, file, sizeof olderCopy);
  } else {
    return kResultInvalidParameter;
  }
  uint16_t flags = 0x42;
  bool oneSided = true;
  if (newer) {
    if (!EngineSnapshotPath(newer, index) || !FindFileInfoCopy(index, file, newerCopy)) return kResultInvalidParameter;
    flags = 0xC2;
    oneSided = false;
  } else if (live) {
    CopyText(newerCopy, file, sizeof newerCopy);
    flags = 0xC2;
    oneSided = false;
  }
  auto* item = static_cast<FileCompareItem*>(Io().calloc(1, sizeof(FileCompareItem)));
  if (!item) return kResultNoMemory;
  item->flags = flags;
  CopyText(item->path, file, sizeof item->path);
  CopyText(item->olderCopy, olderCopy, sizeof item->olderCopy);
  CopyText(item->newerCopy, newerCopy, sizeof item->newerCopy);
  {
    WaitCursor cursor;
    CompareSystemFile(item);
    cursor.Restore();
  }
  uint32_t rc = 0;
  FILE* out = Io().fopen(output, "wt");
  if (!out) {
    ShowDestinationError(output);
    rc = kResultFileNotFound;
  } else {
    rc = static_cast<uint32_t>(WriteSysFileDocument(out, item, oneSided));
    // A document cut short (no memory half-way, a full disk) is no document: it goes.
    if (!CloseChecked(out) && rc == kResultOk) rc = kResultWriteFault;
    if (rc != kResultOk) Io().remove(output);
  }
  FreeIniSections(item->sections);
  FreeLineChanges(item->lines);
  Io().free(item);
  return rc;
}

}  // namespace orvalis
