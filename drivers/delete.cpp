#include "drivers/delete.h"

#include <windows.h>

#include "base/results.h"
#include "base/textutil.h"
#include "engine/settings.h"
#include "engine/sys.h"
#include "items/assets/assets.h"
#include "items/dirtree/dirtree.h"
#include "items/registry/registry.h"
#include "items/sysfiles/sysfiles.h"
#include "store/store_win.h"

namespace orvalis {

void DeleteSnapshotCompanions(SnapshotRecord* rec) {
  char folder[MAX_PATH];
  if (!CompanionFolder(rec->indexPath, folder)) return;
  DeleteSysFileCopies(rec, folder);
  DeleteDirListings(rec, folder);
  DeleteRegistryCompanions(rec, folder);
  DeleteAssetSnapshots(rec, folder);
}

int DeleteSnapshotFiles(SnapshotRecord* rec) {
  DeleteSnapshotCompanions(rec);
  Sys().DeleteFileA(rec->indexPath);
  return 0;
}

uint32_t DeleteSnapshotAt(const char* path) {
  SnapshotRecord* rec = NewSnapshotRecord();
  if (!rec) return kResultNoMemory;
  int rc = LoadSnapshot(path, rec);
  if (rc == 0) {
    DeleteSnapshotFiles(rec);
    char undo[MAX_PATH];
    ReadOrvalisString("UNDOBASE", "", undo, sizeof undo);
    if (undo[0] && EqualNoCase(undo, rec->indexName)) WriteOrvalisString("UNDOBASE", "");
  }
  FreeSnapshotRecord(rec);
  return static_cast<uint32_t>(rc);
}

}  // namespace orvalis
