#include "items/sysfiles/sysfiles.h"

#include <windows.h>

#include <cstring>

#include "base/textutil.h"
#include "engine/files.h"
#include "engine/sys.h"
#include "store/store_win.h"

namespace orvalis {

int ResolvePathToken(const char* path, char* out) {
  const char* close = std::strrchr(path, '>');
  if (!close) return 0;
  const size_t len = static_cast<size_t>(close - path) + 1;
  char dir[MAX_PATH] = "";
  if (len == 9 && CompareNoCaseN(path, "<windows>", 9) == 0)
    Sys().GetWindowsDirectoryA(dir, MAX_PATH);
  else if (len == 8 && CompareNoCaseN(path, "<system>", 8) == 0)
    Sys().GetSystemDirectoryA(dir, MAX_PATH);
  else
    return 0;
  std::snprintf(out, MAX_PATH, "%s%s", dir, close + 1);
  return 1;
}

int WriteFileInfo(FILE* f, const Profile* profile, SnapshotRecord* rec) {
  char folder[MAX_PATH];
  if (!CompanionFolder(rec->indexPath, folder)) return 13;
  std::fprintf(f, "[FILEINFO_START]\n");
  for (const ProfileFileEntry* p = profile->files; p; p = p->next) {
    if (!(p->flags & kProfileFileExists)) continue;
    char source[MAX_PATH];
    if (p->path[0] == '<') {
      if (!ResolvePathToken(p->path, source)) continue;
    } else {
      CopyText(source, p->path, sizeof source);
    }
    SnapFileEntry* e = AppendFileEntry(rec);
    if (!e) continue;
    CopyText(e->path, source, sizeof e->path);
    e->flags = p->flags | 2;

    char prefix[MAX_PATH];
    SplitFileName(source, prefix, sizeof prefix, nullptr, 0);
    MakeUniqueFileName(folder, prefix, "BSE", e->companion);
    // A failed name leaves the folder itself as the target, so the copy fails below.
    char target[MAX_PATH];
    const bool fits = std::snprintf(target, sizeof target, "%s%s", folder, e->companion) < MAX_PATH;
    if (!fits || !Sys().CopyFileA(source, target, FALSE)) {
      if (fits && e->companion[0]) Sys().DeleteFileA(target);
      continue;
    }
    e->time = PathDosTime(source);
    std::fprintf(f, "%s,%s,%i,%ld\n", e->path, e->companion, (p->flags & kProfileFileText) ? 1 : 0,
                 static_cast<long>(static_cast<int32_t>(e->time)));
  }
  std::fprintf(f, "[FILEINFO_END]\n");
  return 0;
}

void DeleteSysFileCopies(const SnapshotRecord* rec, const char* dataFolder) {
  for (const SnapFileEntry* e = rec->files; e; e = e->next) DeleteCompanionFile(dataFolder, e->companion);
}

}  // namespace orvalis
