#include <windows.h>

#include "base/results.h"
#include "engine/sys.h"
#include "items/sysfiles/sysfiles.h"
#include "store/store_win.h"

namespace orvalis {

int RestoreSystemFiles(const SnapshotRecord* rec) {
  char folder[MAX_PATH];
  if (!CompanionFolder(rec->indexPath, folder)) return kResultInvalidData;
  for (const SnapFileEntry* e = rec->files; e; e = e->next) {
    char source[MAX_PATH];
    if (!CompanionPath(folder, e->companion, source)) continue;  // a record without a usable copy
    // A read-only, hidden or system file is overwritten all the same and keeps its attributes.
    // No step is checked: a missing copy leaves the file as it is, a missing file is created.
    const DWORD old = Sys().GetFileAttributesA(e->path);
    Sys().SetFileAttributesA(e->path, old & ~static_cast<DWORD>(7));
    Sys().CopyFileA(source, e->path, FALSE);
    Sys().SetFileAttributesA(e->path, old);
  }
  return kResultOk;
}

}  // namespace orvalis
