#include <windows.h>

#include <cstdio>

#include "engine/context.h"
#include "items/registry/registry.h"
#include "store/store_win.h"

namespace orvalis {

void DeleteRegistryCompanions(SnapshotRecord* rec, const char* dataFolder) {
  for (const SnapGroupEntry* e = rec->regKeys; e; e = e->next) DeleteCompanionFile(dataFolder, e->companion);
  RegBackupRecord* b = rec->regBackup;
  if (!b) return;
  if (State().isWindowsNT) {
    char folder[MAX_PATH];
    if (CompanionPath(dataFolder, b->userName, folder)) RemoveFolderTree(folder);
    return;
  }
  DeleteCompanionFile(dataFolder, b->userName);
  b->userName[0] = '\0';
  DeleteCompanionFile(dataFolder, b->systemName);
  b->systemName[0] = '\0';
}

}  // namespace orvalis
