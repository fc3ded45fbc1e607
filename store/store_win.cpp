#include "store/store_win.h"

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "base/io.h"
#include "base/textutil.h"
#include "engine/context.h"
#include "engine/files.h"
#include "engine/sys.h"

namespace orvalis {
namespace {

// Folder normalised for the unique-name rules: one trailing backslash dropped except on a drive
// root; then the folder must exist. Writes folder + separator into base.
bool PrepareBase(const char* folder, char* base, size_t cap) {
  char dir[MAX_PATH];
  CopyText(dir, folder, sizeof dir);
  size_t n = std::strlen(dir);
  const bool driveRoot = n == 3;
  if (!driveRoot && n > 0 && dir[n - 1] == '\\') dir[n - 1] = '\0';
  if (!IsDirectory(dir)) return false;
  int w = std::snprintf(base, cap, "%s%s", dir, driveRoot ? "" : "\\");
  return w > 0 && static_cast<size_t>(w) < cap;
}

enum class Claim { kNext, kTaken, kFailed };

}  // namespace

// Tries "prefix0000" to "prefix9999" (with ".ext" when ext is given) in folder; claim(full path)
// returns true when it took the name. 1 with the bare name in out, or 0.
template <typename ClaimFn>
int ClaimUniqueName(const char* folder, const char* prefix, const char* ext, char* out, ClaimFn claim) {
  char base[MAX_PATH];
  if (!PrepareBase(folder, base, sizeof base)) return 0;
  char shortPrefix[5];
  CopyText(shortPrefix, prefix, sizeof shortPrefix);
  for (unsigned counter = 0; counter <= 9999; ++counter) {
    char name[MAX_PATH];
    char full[MAX_PATH];
    if (ext)
      std::snprintf(name, sizeof name, "%s%04u.%s", shortPrefix, counter, ext);
    else
      std::snprintf(name, sizeof name, "%s%04u", shortPrefix, counter);
    if (std::snprintf(full, sizeof full, "%s%s", base, name) >= static_cast<int>(sizeof full)) return 0;
    switch (claim(full)) {
      case Claim::kTaken:
        CopyText(out, name, MAX_PATH);
        return 1;
      case Claim::kFailed:
        return 0;
      default:
        break;
    }
  }
  return 0;
}

int MakeUniqueFileName(const char* folder, const char* prefix, const char* ext, char* out) {
  // The first name that does not exist is reserved by creating it empty.
  return ClaimUniqueName(folder, prefix, ext, out, [](const char* full) {
    if (PathExists(full)) return Claim::kNext;
    FILE* f = Io().fopen(full, "wt");
    if (!f) return Claim::kFailed;
    Io().fclose(f);
    return Claim::kTaken;
  });
}

int MakeUniqueFolderName(const char* folder, const char* prefix, char* out) {
  // The first folder that CreateDirectoryA makes is taken.
  return ClaimUniqueName(folder, prefix, nullptr, out, [](const char* full) {
    return Sys().CreateDirectoryA(full, nullptr) ? Claim::kTaken : Claim::kNext;
  });
}

int LoadSnapshot(const char* path, SnapshotRecord* rec) {
  CopyText(rec->indexPath, path, sizeof rec->indexPath);
  const char* slash = FindLastChar(path, '\\');
  CopyText(rec->indexName, slash ? slash + 1 : path, sizeof rec->indexName);
  int rc = ReadSnapshotFile(path, rec, State().isWindowsNT != 0);
  if (rc == 0 && rec->time == 0) rec->time = PathDosTime(path);
  return rc;
}

bool EngineSnapshotPath(const char* name, char* out) {
  char folder[MAX_PATH];
  GetModuleFolderWithSlash(folder);
  return std::snprintf(out, MAX_PATH, "%s%s", folder, name) < MAX_PATH;
}

bool CompanionFolder(const char* indexPath, char* out) {
  return FindLastChar(indexPath, '\\') && SiblingPath(out, MAX_PATH, indexPath, "NIMBRA\\");
}

int RemoveFolderTree(const char* folder) {
  char pattern[MAX_PATH];
  const bool root = std::strlen(folder) == 3;
  if (std::snprintf(pattern, sizeof pattern, "%s%s*.*", folder, root ? "" : "\\") >= MAX_PATH) return 5;
  WIN32_FIND_DATAA fd;
  HANDLE h = Sys().FindFirstFileA(pattern, &fd);
  int rc = 0;
  if (h != INVALID_HANDLE_VALUE) {
    do {
      if (fd.cFileName[0] == '.') continue;
      char child[MAX_PATH];
      if (std::snprintf(child, sizeof child, "%s%s%s", folder, root ? "" : "\\", fd.cFileName) >= MAX_PATH) {
        rc = 5;
        break;
      }
      if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
        if ((rc = RemoveFolderTree(child)) != 0) break;
      } else if (!Sys().DeleteFileA(child)) {
        rc = 5;
        break;
      }
    } while (Sys().FindNextFileA(h, &fd));
    Sys().FindClose(h);
  }
  if (rc == 0 && !Sys().RemoveDirectoryA(folder)) rc = 5;
  return rc;
}

bool CompanionPath(const char* dataFolder, const char* name, char* out) {
  return IsBareFileName(name) && JoinPath(out, MAX_PATH, dataFolder, name);
}

void DeleteCompanionFile(const char* dataFolder, const char* name) {
  char path[MAX_PATH];
  if (!CompanionPath(dataFolder, name, path)) return;
  const DWORD attributes = Sys().GetFileAttributesA(path);
  if (attributes == INVALID_FILE_ATTRIBUTES) return;
  if (attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM))
    Sys().SetFileAttributesA(path, attributes & ~static_cast<DWORD>(7));
  Sys().DeleteFileA(path);
}

namespace {

// Reads one kind of record list of an index file and finds the entry whose key equals `name`
// (without regard to case); take(entry, companion path) collects what the caller needs. False
// when the file cannot be read or holds no such record.
template <typename Entry, typename Read, typename Head, typename Key, typename Take>
bool FindRecord(const char* indexPath, const char* name, Read read, Head head, Key key, Take take) {
  int version = 0;
  char description[MAX_PATH];
  char folder[MAX_PATH];
  if (ReadSnapshotHead(indexPath, &version, description) != 0 || !CompanionFolder(indexPath, folder)) return false;
  SnapshotRecord rec{};
  read(indexPath, &rec, version);
  bool found = false;
  for (const Entry* e = head(rec); e && !found; e = e->next) {
    char companion[MAX_PATH];
    if (EqualNoCase(key(*e), name) && CompanionPath(folder, e->companion, companion)) {
      take(*e, companion);
      found = true;
    }
  }
  ClearSnapshotRecord(&rec);
  return found;
}

}  // namespace

bool FindFileInfoCopy(const char* indexPath, const char* filePath, char* out) {
  return FindRecord<SnapFileEntry>(
      indexPath, filePath, ReadFileInfoSection, [](const SnapshotRecord& r) { return r.files; },
      [](const SnapFileEntry& e) { return e.path; },
      [&](const SnapFileEntry&, const char* companion) { CopyText(out, companion, MAX_PATH); });
}

bool FindGroupRecord(const char* indexPath, RecordGroup group, const char* name, char* companion, int32_t* first,
                     uint32_t* second) {
  using Reader = int (*)(const char*, SnapshotRecord*, int);
  Reader read = group == RecordGroup::kRegInfo     ? ReadRegInfoSection
                : group == RecordGroup::kAssetInfo ? ReadAssetInfoSection
                                                   : ReadDirInfoSection;
  return FindRecord<SnapGroupEntry>(
      indexPath, name, read,
      [group](const SnapshotRecord& r) {
        return group == RecordGroup::kRegInfo ? r.regKeys : group == RecordGroup::kAssetInfo ? r.assets : r.dirs;
      },
      [](const SnapGroupEntry& e) { return e.name; },
      [&](const SnapGroupEntry& e, const char* path) {
        CopyText(companion, path, MAX_PATH);
        if (first) *first = e.first;
        if (second) *second = e.second;
      });
}

bool FindDocumentSides(const char* first, const char* second, const char* item, RecordGroup group, int live,
                       DocumentSide* older, DocumentSide* newer, bool* listing) {
  *older = DocumentSide{};
  *newer = DocumentSide{};
  *listing = first && !second && !live;
  if (!first && !live) return false;
  for (auto [name, side] : {std::pair{first, older}, std::pair{second, newer}}) {
    if (!name) continue;
    char index[MAX_PATH];
    if (!EngineSnapshotPath(name, index) ||
        !FindGroupRecord(index, group, item, side->companion, &side->first, &side->second))
      return false;
    side->named = true;
  }
  return true;
}

bool FindDirInfoRecord(const char* indexPath, const char* directory, char* listing, int32_t* compressed,
                       uint32_t* crc) {
  return FindGroupRecord(indexPath, RecordGroup::kDirInfo, directory, listing, compressed, crc);
}

}  // namespace orvalis
