#include "drivers/restore.h"

#include <windows.h>

#include <cstdio>
#include <cstring>

#include "base/io.h"
#include "base/results.h"
#include "base/textutil.h"
#include "drivers/create.h"
#include "drivers/delete.h"
#include "engine/context.h"
#include "engine/log.h"
#include "engine/settings.h"
#include "engine/sys.h"
#include "items/assets/assets.h"
#include "items/registry/registry.h"
#include "items/sysfiles/sysfiles.h"
#include "store/store_win.h"

namespace orvalis {
namespace {

// True when the snapshot being restored is the undo base the next one would replace.
bool IsCurrentUndoBase(const SnapshotRecord* rec) {
  if (!(rec->flags & kFlagUndoBase)) return false;
  char name[MAX_PATH], folder[MAX_PATH], path[MAX_PATH];
  ReadOrvalisString("UNDOBASE", "", name, sizeof name);
  if (!name[0]) return false;
  GetModuleFolderWithSlash(folder);
  return std::snprintf(path, sizeof path, "%s%s", folder, name) < MAX_PATH && EqualNoCase(path, rec->indexPath);
}

}  // namespace

uint32_t RestoreFromSnapshot(SnapshotRecord* rec, bool registry, bool assets) {
  WriteLog("RestoreFromSnapshot: Entered");
  const bool windows9x = (Sys().GetVersion() & 0x80000000u) != 0;
  const bool restoringUndoBase = IsCurrentUndoBase(rec);
  CreateUndoBaseSnapshot(rec, nullptr, 0, restoringUndoBase ? rec->indexPath : nullptr);
  RestoreSystemFiles(rec);
  WriteLog("Restore system files");
  if (registry) {
    const int r = windows9x ? RestoreRegistryTrees(rec) : RestoreRegistryHives(rec);
    if (r != 0)
      WriteLogF("restore of reg keys failed, error %d", r);
    else
      WriteLog("restore of reg keys went OK");
  }
  if (assets) {
    if (RestoreAssets(rec) != 0)
      WriteLog("restore of assets failed");
    else
      WriteLog("restore of assets went OK");
  }
  // The undo base that was restored has done its work; the new one now stands in its place.
  if (restoringUndoBase) DeleteSnapshotAt(rec->indexPath);
  return kResultOk;
}

uint32_t RestoreSpecifiedSnapshot(const char* snapshot, RestoreFlavour flavour) {
  ResetLog();
  WriteLog(flavour == RestoreFlavour::kPlain    ? "RestoreFromSpecifiedSnapshot: Entered"
           : flavour == RestoreFlavour::kReboot ? "RestoreFromSpecifiedSnapshotReboot: Entered"
                                                : "RestoreFromSpecifiedSnapshotDelayReboot: Entered");
  WriteLog(snapshot);
  SnapshotRecord* rec = NewSnapshotRecord();
  if (!rec) return kResultNoMemory;
  if (flavour == RestoreFlavour::kPlain) WriteLog("RestoreFromSpecifiedSnapshot: About to init engine");
  InitEngine();
  char path[MAX_PATH];
  if (std::strchr(snapshot, '\\')) {
    CopyText(path, snapshot, sizeof path);
  } else {
    char folder[MAX_PATH];
    if (int rc = GetSnapshotSourceLocation(folder)) {
      FreeSnapshotRecord(rec);
      return static_cast<uint32_t>(rc);
    }
    if (!folder[0]) {
      FreeSnapshotRecord(rec);
      return kResultInvalidData;
    }
    if (!JoinPath(path, sizeof path, folder, snapshot)) {
      FreeSnapshotRecord(rec);
      return kResultInvalidData;
    }
  }
  if (flavour == RestoreFlavour::kPlain) {
    WriteLog("Snapshot Source Locaton:");
    WriteLog(path);
  }
  // An unreadable snapshot leaves the lists empty: the restore then only takes the undo snapshot.
  LoadSnapshot(path, rec);
  const uint32_t result = RestoreFromSnapshot(rec, true, true);
  if (flavour == RestoreFlavour::kPlain) WriteLog(result != 0 ? "Restore failed" : "Restore was successful");
  FreeSnapshotRecord(rec);
  return result;
}

}  // namespace orvalis
