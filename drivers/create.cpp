#include "drivers/create.h"

#include <windows.h>

#include <cstdlib>
#include <cstring>

#include "base/io.h"
#include "base/results.h"
#include "base/textutil.h"
#include "drivers/delete.h"
#include "engine/context.h"
#include "engine/cursor.h"
#include "engine/files.h"
#include "engine/log.h"
#include "engine/settings.h"
#include "engine/sys.h"
#include "items/assets/assets.h"
#include "items/dirtree/dirtree.h"
#include "items/registry/registry.h"
#include "items/sysfiles/sysfiles.h"
#include "items/sysinfo/sysinfo.h"
#include "profiles/profile.h"
#include "store/store_win.h"

namespace orvalis {
namespace {

// Step 6 to 9 of a creation: destination, unique index name, opened index file. Null when the
// file cannot be had; the record then holds no name.
FILE* OpenIndexFile(const char* destination, SnapshotRecord* rec) {
  char folder[MAX_PATH];
  if (destination)
    CopyText(folder, destination, sizeof folder);
  else
    GetModuleFolderWithSlash(folder);
  if (!EndsWith(folder, '\\')) AppendText(folder, "\\", sizeof folder);
  char name[MAX_PATH];
  if (!MakeUniqueFileName(folder, "BASE", "BCF", name)) return nullptr;
  CopyText(rec->indexName, name, sizeof rec->indexName);
  if (std::snprintf(rec->indexPath, sizeof rec->indexPath, "%s%s", folder, name) >= MAX_PATH) return nullptr;
  FILE* f = Io().fopen(rec->indexPath, "wt");
  if (!f) {
    Sys().DeleteFileA(rec->indexPath);  // the reservation would otherwise stay behind
    return nullptr;
  }
  rec->time = OpenFileDosTime(f);
  return f;
}

// The two zero-filled records of a creation; false (nothing held) when either cannot be had.
bool NewRecords(Profile** profile, SnapshotRecord** rec) {
  *profile = NewProfile();
  *rec = static_cast<SnapshotRecord*>(Io().calloc(1, sizeof(SnapshotRecord)));
  if (*profile && *rec) return true;
  FreeProfile(*profile);
  Io().free(*rec);
  return false;
}

void FreeRecords(Profile* profile, SnapshotRecord* rec) {
  FreeSnapshotRecord(rec);
  FreeProfile(profile);
}

void WriteHead(FILE* f, SnapshotRecord* rec) {
  WriteFormatVersion(f);
  std::fprintf(f, "%s\n", rec->description);
}

void WriteEasySections(FILE* f, SnapshotRecord* rec) {
  if (rec->time == 0) rec->time = NowDosTime();
  WriteTimeDateSection(f, rec->time);
  WriteFlagsSection(f, rec->flags);
  WriteOsVersionSection(f, Sys().GetVersion());
  char user[MAX_PATH] = "";
  DWORD size = sizeof user;
  if (!Sys().GetUserNameA(user, &size)) user[0] = '\0';
  WriteUserNameSection(f, user);
}

}  // namespace

void DiscardPartialSnapshot(SnapshotRecord* rec, FILE* index) {
  if (index) Io().fclose(index);
  DeleteSnapshotCompanions(rec);
  Sys().DeleteFileA(rec->indexPath);
  FreeSnapshotRecord(rec);
}

namespace {

// One capture stage: writes its section (and its companions) into the open index file. Stages
// return 0 or their own non-zero code, which the driver only logs.
using StageFn = int (*)(FILE* f, const Profile* profile, SnapshotRecord* rec);

enum class Platform { kAny, kWindows9x, kWindowsNT };

struct Stage {
  const char* name;        // for the fault tests and the debugger, never logged
  bool inUndoBase;         // the undo base runs it too
  Platform platform;       // the registry backup has one stage per platform
  const char* before;      // logged before the stage (snapshot only), may be null
  const char* after;       // logged after it whatever its result (snapshot only), may be null
  const char* failure;     // logged when it fails (snapshot only)
  StageFn run;
};

int RegInfoStage(FILE* f, const Profile* profile, SnapshotRecord* rec) { return WriteRegInfo(f, profile, rec); }
int RegBackStage(FILE* f, const Profile*, SnapshotRecord* rec) { return WriteRegBackInfo(f, rec); }
int RegNtStage(FILE* f, const Profile*, SnapshotRecord* rec) { return WriteNTRegRestoreInfo(f, rec); }
int AssetInfoStage(FILE* f, const Profile* profile, SnapshotRecord* rec) {
  return WriteAssetInfoSection(f, profile, rec);
}
int DirInfoStage(FILE* f, const Profile* profile, SnapshotRecord* rec) { return WriteDirInfoSection(f, profile, rec); }
int FileInfoStage(FILE* f, const Profile* profile, SnapshotRecord* rec) { return WriteFileInfo(f, profile, rec); }

// Every stage after the easy sections, in the order the index file holds them; the snapshot and
// the undo base both run this table (the undo base has no directories).
const Stage kStages[] = {
    {"reginfo", true, Platform::kAny, nullptr, nullptr, "Failed to write reg info", RegInfoStage},
    {"regback", true, Platform::kWindows9x, nullptr, nullptr, "failed to write base reg restore info", RegBackStage},
    {"regnt", true, Platform::kWindowsNT, nullptr, "Completed WriteBaseNTRegRestoreInfo",
     "Failed to write NT reg restore info", RegNtStage},
    {"assetinfo", true, Platform::kAny, "Writing base asset info", "Completed writing base asset info",
     "Failed to write asset info", AssetInfoStage},
    {"dirinfo", false, Platform::kAny, "Writing base dir info", nullptr, "Failed to write dir info", DirInfoStage},
    {"fileinfo", true, Platform::kAny, "Writing base sys file info", nullptr, "Failed to write sys file info",
     FileInfoStage},
};

// Runs the stages of one creation. A stage counts as failed when it says so or when the index
// file has had a write fail by its end (disk full): the file would not read back whole. The
// failing stage's line (snapshot only), or null with true.
bool RunStages(FILE* f, const Profile* profile, SnapshotRecord* rec, bool undoBase, const char** failure) {
  // The top bit of the version: Windows 95/98 keeps copies of its registry files, NT saves keys.
  const Platform platform = (Sys().GetVersion() & 0x80000000u) ? Platform::kWindows9x : Platform::kWindowsNT;
  for (const Stage& stage : kStages) {
    if (undoBase && !stage.inUndoBase) continue;
    if (stage.platform != Platform::kAny && stage.platform != platform) continue;
    if (!undoBase && stage.before) WriteLog(stage.before);
    const int rc = stage.run(f, profile, rec);
    if (!undoBase && stage.after) WriteLog(stage.after);
    if (rc != 0 || std::ferror(f)) {
      *failure = undoBase ? nullptr : stage.failure;
      return false;
    }
  }
  *failure = nullptr;
  return true;
}

// Ends a creation: closes the index file with its writes checked. On a failed stage or a close
// that did not reach the disk the partial snapshot is discarded (its line logged); result 0
// either way, as the creation exports have always answered. The cursor stays up after a failure.
uint32_t FinishCreation(FILE* f, Profile* profile, SnapshotRecord* rec, WaitCursor& cursor, bool ok,
                        const char* failure, bool undoBase) {
  if (ok && !CloseChecked(f)) {
    ok = false;
    f = nullptr;
    failure = undoBase ? nullptr : "Failed to write snapshot file";
  }
  if (!ok) {
    if (failure) WriteLog(failure);
    DiscardPartialSnapshot(rec, f);
    FreeProfile(profile);
    return 0;
  }
  if (undoBase) WriteOrvalisString("UNDOBASE", rec->indexName);
  FreeRecords(profile, rec);
  cursor.Restore();
  return 0;
}

// The previous undo base goes before a new one is taken, but only when the file UNDOBASE names
// still is an undo base: a deleted undo base's name may since have been given to a user's own
// snapshot, which must never be deleted in its place.
void DeletePreviousUndoBase(const char* keep) {
  char previous[MAX_PATH];
  ReadOrvalisString("UNDOBASE", "", previous, sizeof previous);
  if (!previous[0] || !IsBareFileName(previous)) return;
  char folder[MAX_PATH], path[MAX_PATH];
  GetModuleFolderWithSlash(folder);
  if (std::snprintf(path, sizeof path, "%s%s", folder, previous) >= MAX_PATH) return;
  if (keep && EqualNoCase(keep, path)) return;  // the restore still copies from it
  SnapshotRecord* old = NewSnapshotRecord();
  if (old && LoadSnapshot(path, old) == 0 && (old->flags & kFlagUndoBase)) {
    DeleteSnapshotFiles(old);
    WriteOrvalisString("UNDOBASE", "");
  }
  FreeSnapshotRecord(old);
}

}  // namespace

uint32_t CreateSnapshot(const char* profilePath, const char* destination, const char* description, uint32_t time,
                        uint16_t flags) {
  WriteLog("CreateSnapshot:");
  WriteLogF("Profile%s", profilePath ? profilePath : "");
  WriteLogF("DestDir%s", destination ? destination : "");
  Profile* profile;
  SnapshotRecord* rec;
  if (!NewRecords(&profile, &rec)) return kResultNoMemory;
  CopyText(profile->path, profilePath ? profilePath : "", sizeof profile->path);
  ReadProfile(profile);
  WaitCursor cursor;
  rec->flags |= flags;
  FILE* f = OpenIndexFile(destination, rec);
  if (!f) {
    cursor.Restore();
    FreeRecords(profile, rec);
    return 0;
  }
  WriteLog("Opened output snapshot file OK");
  CopyText(rec->description, description ? description : profile->description, sizeof rec->description);
  WriteHead(f, rec);
  rec->time = time;
  WriteEasySections(f, rec);
  WriteSysInfoSection(f, rec);
  WriteDrivesSection(f, rec);
  WriteLog("Done writing the easy stuff");
  const char* failure;
  const bool ok = RunStages(f, profile, rec, false, &failure);
  return FinishCreation(f, profile, rec, cursor, ok, failure, false);
}

uint32_t CreateUndoBaseSnapshot(const SnapshotRecord* restoring, const char* destination, uint16_t flags,
                                const char* keep) {
  Profile* profile;
  SnapshotRecord* rec;
  if (!NewRecords(&profile, &rec)) return kResultNoMemory;
  for (const SnapFileEntry* e = restoring->files; e; e = e->next) {
    ProfileFileEntry* p = AppendProfileFile(profile);
    if (!p) break;
    CopyText(p->path, e->path, sizeof p->path);
    p->flags = e->flags | kProfileFileExists;
  }
  for (const SnapGroupEntry* e = restoring->regKeys; e; e = e->next) {
    ProfileGroupEntry* p = AppendProfileGroup(&profile->regKeys);
    if (!p) break;
    CopyText(p->name, e->name, sizeof p->name);
  }
  for (const SnapGroupEntry* e = restoring->assets; e; e = e->next) {
    ProfileGroupEntry* p = AppendProfileGroup(&profile->assets);
    if (!p) break;
    CopyText(p->name, e->name, sizeof p->name);
    p->first = e->first;
    p->second = static_cast<int32_t>(e->second);
  }
  WaitCursor cursor;
  DeletePreviousUndoBase(keep);
  rec->flags = flags | kFlagUndoBase;
  FILE* f = OpenIndexFile(destination, rec);
  if (!f) {
    cursor.Restore();
    FreeRecords(profile, rec);
    return 0;
  }
  CopyText(rec->description, "Undo Base File", sizeof rec->description);
  WriteHead(f, rec);
  rec->time = 0;
  WriteEasySections(f, rec);
  const char* failure;
  const bool ok = RunStages(f, profile, rec, true, &failure);
  return FinishCreation(f, profile, rec, cursor, ok, failure, true);
}

uint32_t CreateFromDefaultProfile(const char* description, uint16_t flags) {
  char profile[MAX_PATH], destination[MAX_PATH];
  GetDefaultProfile(profile);
  if (!profile[0]) return kResultInvalidData;
  if (GetSnapshotDestinationLocation(destination) != 0) return kResultInvalidData;
  return CreateSnapshot(profile, destination, description, 0, flags);
}

uint32_t CreateFromSpecifiedProfile(const char* profile, const char* description, uint16_t flags) {
  if (!profile) return kResultInvalidData;
  char path[MAX_PATH];
  if (!std::strchr(profile, '\\')) {
    char source[MAX_PATH];
    GetProfileSourceLocation(source);
    if (!source[0]) return kResultInvalidData;
    if (!JoinPath(path, sizeof path, source, profile)) return kResultInvalidData;
  } else {
    CopyText(path, profile, sizeof path);
  }
  char destination[MAX_PATH];
  if (GetSnapshotDestinationLocation(destination) != 0) return kResultInvalidData;
  return CreateSnapshot(path, destination, description, 0, flags);
}

}  // namespace orvalis
