#include <windows.h>

#include <cstdio>

#include "base/companion_api.h"
#include "base/results.h"
#include "base/textutil.h"
#include "engine/libraries.h"
#include "engine/log.h"
#include "engine/sys.h"
#include "items/registry/registry.h"
#include "store/store_win.h"

namespace orvalis {

int RestoreRegistryTrees(const SnapshotRecord* rec) {
  CompanionLibrary lib(LoadRegistryLibrary());
  if (!lib) {
    const DWORD error = Sys().GetLastError();
    WriteLog("We failed to load MARLOW.dll");
    return static_cast<int>(error);
  }
  auto release = LibraryEntry<FreeRegTreeFn>(lib.get(), "_FreeRegTree");
  auto update = LibraryEntry<TreeUpdateRegFn>(lib.get(), "_TreeUpdateReg");
  if (!release || !update) return static_cast<int>(Sys().GetLastError());
  char folder[MAX_PATH];
  if (!CompanionFolder(rec->indexPath, folder)) {
    WriteLog("missing back slash on restore path");
    return kResultInvalidData;
  }
  for (const SnapGroupEntry* k = rec->regKeys; k; k = k->next) {
    char file[MAX_PATH];
    if (!CompanionPath(folder, k->companion, file)) continue;
    // The differences between the key as saved and as it stands now, written back.
    ChangeNode* tree = BuildRegChangeTree(file, nullptr, k->name, 1);
    if (!tree) continue;  // no differences, or nothing to read: passed over without a word
    WriteLog("Got reg change tree OK");
    update(tree, 1);
    release(tree);
  }
  return kResultOk;
}

int RestoreRegistryHives(const SnapshotRecord* rec) {
  if (!rec->regBackup) {
    WriteLog("missing registry back files");
    return kResultInvalidData;
  }
  if (!rec->regBackup->userName[0]) {
    WriteLog("missing registry user back file");
    return kResultInvalidData;
  }
  char folder[MAX_PATH];
  if (!CompanionFolder(rec->indexPath, folder)) {
    WriteLog("missing backslash on path");
    return kResultInvalidData;
  }
  CompanionLibrary lib(LoadRegistryLibrary());
  if (!lib) {
    const DWORD error = Sys().GetLastError();
    WriteLog("We failed to load MARLOW.dll");
    return static_cast<int>(error);
  }
  auto restore = LibraryEntry<NTRestoreRegKeyFn>(lib.get(), "_NTRestoreRegKey");
  if (!restore) {
    const DWORD error = Sys().GetLastError();
    WriteLog("Didn't get the proc address for NTRestoreRegKey");
    return static_cast<int>(error);
  }
  char saves[MAX_PATH];
  if (!CompanionPath(folder, rec->regBackup->userName, saves)) {
    WriteLog("missing registry user back file");
    return kResultInvalidData;
  }
  int result = 0;
  for (const SnapGroupEntry* k = rec->regKeys; k; k = k->next) {
    // Deliberately only the last key's result counts, and a failure is formatted but not logged.
    result = restore(k->name, saves);
    if (result == 0) {
      WriteLog("restore of NT reg key worked OK");
    } else {
      char message[64];
      std::snprintf(message, sizeof message, "restore of NT reg key failed, %d", result);
    }
  }
  return result;
}

}  // namespace orvalis
