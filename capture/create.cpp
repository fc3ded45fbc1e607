#include "capture/create.h"

#include <windows.h>

#include <cstdlib>
#include <cstring>

#include "capture/dirtree.h"
#include "capture/sysfiles.h"
#include "capture/sysinfo.h"
#include "engine/context.h"
#include "engine/cursor.h"
#include "engine/files.h"
#include "engine/log.h"
#include "engine/settings.h"
#include "engine/sys.h"
#include "profiles/profile.h"
#include "store/store_win.h"
#include "store/textutil.h"

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
  FILE* f = Sys().fopen(rec->indexPath, "wt");
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
  *rec = static_cast<SnapshotRecord*>(Sys().calloc(1, sizeof(SnapshotRecord)));
  if (*profile && *rec) return true;
  FreeProfile(*profile);
  std::free(*rec);
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
  if (index) std::fclose(index);
  DeleteSnapshotCompanions(rec);
  Sys().DeleteFileA(rec->indexPath);
  FreeSnapshotRecord(rec);
}

uint32_t CreateSnapshot(const char* profilePath, const char* destination, const char* description, uint32_t time,
                        uint16_t flags) {
  WriteLog("CreateSnapshot:");
  WriteLogF("Profile%s", profilePath ? profilePath : "");
  WriteLogF("DestDir%s", destination ? destination : "");
  Profile* profile;
  SnapshotRecord* rec;
  if (!NewRecords(&profile, &rec)) return 8;
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

  // The registry, registry backup and asset stages take their places here, in this order.

  // A failed stage: its line in the log, the partial snapshot gone, result 0. The wait cursor
  // stays up on this path, as it always has.
  auto failed = [&](const char* line) {
    WriteLog(line);
    DiscardPartialSnapshot(rec, f);
    FreeProfile(profile);
    return 0u;
  };
  WriteLog("Writing base dir info");
  if (WriteDirInfoSection(f, profile, rec) != 0) return failed("Failed to write dir info");
  WriteLog("Writing base sys file info");
  if (WriteFileInfo(f, profile, rec) != 0) return failed("Failed to write sys file info");
  std::fclose(f);
  FreeRecords(profile, rec);
  cursor.Restore();
  return 0;
}

uint32_t CreateUndoBaseSnapshot(const SnapshotRecord* restoring, const char* destination, uint16_t flags) {
  Profile* profile;
  SnapshotRecord* rec;
  if (!NewRecords(&profile, &rec)) return 8;
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

  // At most one undo base: the previous one goes first.
  char previous[MAX_PATH];
  ReadOrvalisString("UNDOBASE", "", previous, sizeof previous);
  if (previous[0]) {
    char folder[MAX_PATH], path[MAX_PATH];
    GetModuleFolderWithSlash(folder);
    if (std::snprintf(path, sizeof path, "%s%s", folder, previous) < MAX_PATH) {
      SnapshotRecord* old = NewSnapshotRecord();
      if (old && LoadSnapshot(path, old) == 0) DeleteSnapshotFiles(old);
      FreeSnapshotRecord(old);
    }
  }

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
  // Registry, registry backup and asset stages take their places here.
  if (WriteFileInfo(f, profile, rec) != 0) {
    DiscardPartialSnapshot(rec, f);
    FreeProfile(profile);
    return 0;
  }
  std::fclose(f);
  WriteOrvalisString("UNDOBASE", rec->indexName);
  FreeRecords(profile, rec);
  cursor.Restore();
  return 0;
}

uint32_t CreateFromDefaultProfile(const char* description, uint16_t flags) {
  char profile[MAX_PATH], destination[MAX_PATH];
  GetDefaultProfile(profile);
  if (!profile[0]) return 13;
  if (GetSnapshotDestinationLocation(destination) != 0) return 13;
  return CreateSnapshot(profile, destination, description, 0, flags);
}

uint32_t CreateFromSpecifiedProfile(const char* profile, const char* description, uint16_t flags) {
  if (!profile) return 13;
  char path[MAX_PATH];
  if (!std::strchr(profile, '\\')) {
    char source[MAX_PATH];
    GetProfileSourceLocation(source);
    if (!source[0]) return 13;
    if (!JoinPath(path, sizeof path, source, profile)) return 13;
  } else {
    CopyText(path, profile, sizeof path);
  }
  char destination[MAX_PATH];
  if (GetSnapshotDestinationLocation(destination) != 0) return 13;
  return CreateSnapshot(path, destination, description, 0, flags);
}

}  // namespace orvalis
