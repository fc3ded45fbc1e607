// CORVID.DLL: installed-program assets. The engine records each asset of a profile through
// _SnapResFromWildcard into its snapshot's companion, and reads, compares and restores them through
// the other entry points (their banners below). The file formats are in assetstore.h.
#include <windows.h>
#include <io.h>

#include <cstdio>
#include <cstring>

#include "base/companion_api.h"
#include "base/io.h"
#include "base/textutil.h"
#include "companions/corvid/assetstore.h"
#include "compress/coder_files.h"
#include "compress/crc32.h"
#include "compress/explode.h"
#include "compress/implode.h"

using orvalis::CopyText;
using orvalis::CoderFiles;
using orvalis::Io;
using orvalis::ReadPackedFile;
using orvalis::ReadPlainFile;
using orvalis::WritePackedFile;
using orvalis::WritePlainFile;
using namespace corvid;

struct AssetChange {
  AssetChange* next;
  uint16_t action;  // 1 write the recorded file back, 2 delete the live one, 3 remove a live folder
  char target[MAX_PATH];
  FileRecord record;
  char companion[MAX_PATH];
};

namespace {

enum : uint16_t { kWrite = 1, kDelete = 2, kRemoveFolder = 3 };

// A growing array of records from Io(), so running out of memory is an answer, not an exception.
struct RecordList {
  FileRecord* items = nullptr;
  uint32_t count = 0, capacity = 0;
  bool failed = false;
  ~RecordList() { Io().free(items); }
  FileRecord* Add() {
    if (count == capacity) {
      const uint32_t grown = capacity ? capacity * 2 : 64;
      auto* bigger = static_cast<FileRecord*>(Io().calloc(grown, sizeof(FileRecord)));
      if (!bigger) return failed = true, nullptr;
      if (items) std::memcpy(bigger, items, count * sizeof(FileRecord));
      Io().free(items);
      items = bigger;
      capacity = grown;
    }
    return &items[count++];
  }
};

uint32_t DosTime(const FILETIME& utc) {
  FILETIME local;
  WORD date = 0, time = 0;
  if (!FileTimeToLocalFileTime(&utc, &local) || !FileTimeToDosDateTime(&local, &date, &time)) return 0;
  return static_cast<uint32_t>(date) << 16 | time;
}

bool Join(char* out, const char* folder, const char* relative) {
  const size_t n = std::strlen(folder);
  const bool slash = n > 0 && folder[n - 1] == '\\';
  return std::snprintf(out, MAX_PATH, "%s%s%s", folder, slash || !n ? "" : "\\", relative) < MAX_PATH;
}

// CRC-32 of a file's contents; false when it cannot be read.
bool FileCrc(const char* path, uint32_t* crc) {
  FILE* f = Io().fopen(path, "rb");
  if (!f) return false;
  uint32_t c = 0xFFFFFFFFu;
  char buf[16384];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) c = orvalis::Crc32Update(c, buf, n);
  const bool ok = !std::ferror(f);
  Io().fclose(f);
  *crc = ~c;
  return ok;
}

// Every file under folder whose name matches pattern ("" for all), with subfolders when asked;
// relative paths from base. Files over 4 GB are passed over.
void Walk(const char* base, const char* relative, const char* pattern, bool subfolders, RecordList* out) {
  char dir[MAX_PATH], search[MAX_PATH];
  if (!(relative[0] ? Join(dir, base, relative) : (CopyText(dir, base, sizeof dir), true))) return;
  if (!Join(search, dir, "*")) return;
  WIN32_FIND_DATAA fd;
  HANDLE h = FindFirstFileA(search, &fd);
  if (h == INVALID_HANDLE_VALUE) return;
  do {
    if (!std::strcmp(fd.cFileName, ".") || !std::strcmp(fd.cFileName, "..")) continue;
    char rel[MAX_PATH];
    if (std::snprintf(rel, sizeof rel, "%s%s%s", relative, relative[0] ? "\\" : "", fd.cFileName) >= MAX_PATH) continue;
    if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      if (subfolders) Walk(base, rel, pattern, subfolders, out);
      continue;
    }
    if (fd.nFileSizeHigh || (pattern[0] && !WildcardMatch(pattern, fd.cFileName))) continue;
    FileRecord* r = out->Add();
    if (!r) break;
    CopyText(r->path, rel, sizeof r->path);
    r->size = fd.nFileSizeLow;
    r->time = DosTime(fd.ftLastWriteTime);
    r->attributes = fd.dwFileAttributes;
  } while (FindNextFileA(h, &fd));
  FindClose(h);
}

// The asset's folder and pattern, and whether the folder exists.
bool Locate(const char* asset, char* folder, char* pattern) {
  const DWORD a = GetFileAttributesA(asset);
  const char* slash = orvalis::FindLastChar(asset, '\\');
  if (a == INVALID_FILE_ATTRIBUTES && !std::strpbrk(slash ? slash + 1 : asset, "*?")) {
    // A folder (or file) named without wildcards that is gone: not its parent with a pattern.
    SplitAsset(asset, true, folder, pattern);
    return false;
  }
  SplitAsset(asset, a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY), folder, pattern);
  const DWORD f = GetFileAttributesA(folder);
  return f != INVALID_FILE_ATTRIBUTES && (f & FILE_ATTRIBUTE_DIRECTORY);
}

// Appends one asset's block to the companion: true when it was written whole.
bool AppendBlock(FILE* f, const char* asset, const char* folder, uint32_t options, RecordList& files) {
  if (!WriteBlockHead(f, asset, folder, options, files.count)) return false;
  void* work = (options & kOptionContents) ? Io().calloc(1, orvalis::kImplodeWorkSize) : nullptr;
  if ((options & kOptionContents) && !work) return false;
  bool ok = true;
  // Without 0x2000 only the names, sizes, times and attributes are kept: nothing is read, so a
  // capture costs what a directory scan costs.
  if (!work) {
    for (uint32_t i = 0; ok && i < files.count; ++i) ok = WriteFileRecord(f, files.items[i]);
    return ok;
  }
  for (uint32_t i = 0; ok && i < files.count; ++i) {
    FileRecord& r = files.items[i];
    char path[MAX_PATH];
    ok = Join(path, folder, r.path);
    FILE* in = ok ? Io().fopen(path, "rb") : nullptr;
    if (!in) {
      ok = false;
      break;
    }
    const long at = std::ftell(f);
    ok = WriteFileRecord(f, r);  // written again below, once the CRC and the stored size are known
    CoderFiles c{in, f, 0xFFFFFFFFu, 0, 0, false};
    if (ok)
      ok = orvalis::Implode(ReadPlainFile, WritePackedFile, work, orvalis::kImplodeWorkSize, &c, orvalis::kImplodeBinary, 4096) ==
           orvalis::kImplodeOk;
    ok = ok && !std::ferror(in);
    Io().fclose(in);
    r.crc = ~c.crc;
    r.stored = static_cast<uint32_t>(c.packed);
    const long end = std::ftell(f);
    ok = ok && std::fseek(f, at, SEEK_SET) == 0 && WriteFileRecord(f, r) && std::fseek(f, end, SEEK_SET) == 0;
  }
  Io().free(work);
  return ok;
}

// Makes the folders above target. Attempts on the root parts ("C:", "\\\\server") fail harmlessly,
// so no form of path needs recognising; a short one must not send the scan past its end.
bool EnsureFolders(const char* target) {
  char path[MAX_PATH];
  CopyText(path, target, sizeof path);
  for (char* p = path; *p; ++p) {
    if (*p != '\\' || p == path) continue;
    *p = '\0';
    CreateDirectoryA(path, nullptr);
    *p = '\\';
  }
  return true;
}

// Writes one recorded file back: decoded into a temporary file beside it, checked, then moved over
// the live file, with its time and attributes. 0 or an error; the live file is untouched on error.
int WriteBack(const AssetChange& c) {
  if (c.record.stored == 0 && c.record.size > 0) return kBadData;  // recorded without contents
  EnsureFolders(c.target);
  char temp[MAX_PATH + 8];
  std::snprintf(temp, sizeof temp, "%s.orvnew", c.target);
  FILE* in = Io().fopen(c.companion, "rb");
  if (!in) return kNotFound;
  FILE* out = Io().fopen(temp, "wb");
  if (!out) {
    Io().fclose(in);
    return kAccessDenied;
  }
  int rc = kOk;
  CoderFiles cf{in, out, 0xFFFFFFFFu, 0, c.record.stored, false};
  if (c.record.size > 0) {
    void* work = Io().calloc(1, orvalis::kExplodeWorkSize);
    if (!work) {
      rc = kNoMemory;
    } else {
      if (std::fseek(in, static_cast<long>(c.record.offset), SEEK_SET) != 0 ||
          orvalis::Explode(ReadPackedFile, WritePlainFile, work, orvalis::kExplodeWorkSize, &cf) != orvalis::kExplodeOk)
        rc = cf.writeFailed ? kWriteFault : kBadData;
      Io().free(work);
    }
  }
  Io().fclose(in);
  if (!orvalis::CloseChecked(out) && rc == kOk) rc = kWriteFault;
  if (rc == kOk && ~cf.crc != c.record.crc) rc = kBadData;
  if (rc == kOk) {
    const DWORD old = GetFileAttributesA(c.target);
    if (old != INVALID_FILE_ATTRIBUTES) SetFileAttributesA(c.target, FILE_ATTRIBUTE_NORMAL);
    if (!MoveFileExA(temp, c.target, MOVEFILE_REPLACE_EXISTING)) rc = kAccessDenied;
  }
  if (rc != kOk) {
    DeleteFileA(temp);
    return rc;
  }
  FILETIME local, utc;
  if (DosDateTimeToFileTime(static_cast<WORD>(c.record.time >> 16), static_cast<WORD>(c.record.time & 0xFFFF), &local) &&
      LocalFileTimeToFileTime(&local, &utc)) {
    HANDLE h = CreateFileA(c.target, FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (h != INVALID_HANDLE_VALUE) {
      SetFileTime(h, nullptr, nullptr, &utc);
      CloseHandle(h);
    }
  }
  SetFileAttributesA(c.target, c.record.attributes ? c.record.attributes : FILE_ATTRIBUTE_NORMAL);
  return kOk;
}

void AddChange(AssetChange*** tail, uint16_t action, const AssetOrigin& origin, const ChangeNode* n, bool* failed) {
  const FileRecord* r = NodeRecord(n);
  if (!IsSafeRelativePath(n->name)) return;  // never write or delete outside the asset's folder
  auto* c = static_cast<AssetChange*>(Io().calloc(1, sizeof(AssetChange)));
  if (!c) {
    *failed = true;
    return;
  }
  c->action = action;
  if (!Join(c->target, origin.folder, n->name)) {
    Io().free(c);
    return;
  }
  if (r) c->record = *r;
  CopyText(c->companion, origin.companion, sizeof c->companion);
  **tail = c;
  *tail = &c->next;
}

// Files first (deepest folders' last), so that folders that were not there are empty when removed.
void CollectChanges(const ChangeNode* parent, const AssetOrigin& origin, AssetChange*** tail, AssetChange*** folders,
                    bool* failed) {
  for (const ChangeNode* n = parent->children; n; n = n->next) {
    if (n->flags & kKindFolder) {
      CollectChanges(n, origin, tail, folders, failed);
      if (n->flags & kChangeNewer) AddChange(folders, kRemoveFolder, origin, n, failed);
      continue;
    }
    if (n->flags & kChangeTo) continue;  // the live state of a changed file: its older state is written
    if (n->flags & (kChangeOlder | kChangeFrom)) {
      const FileRecord* r = NodeRecord(n);
      if (r && (r->stored || r->size == 0)) AddChange(tail, kWrite, origin, n, failed);
    } else if (n->flags & kChangeNewer) {
      AddChange(tail, kDelete, origin, n, failed);
    }
  }
}

}  // namespace

extern "C" {

// _SnapResFromWildcard (asset, index path, companion path, &result, options): records every file
// the asset matches (a folder: every file in it; 0x1000: subfolders too; 0x2000: with contents)
// as one block appended to the companion, and indexes it in MASTER.IDX. *result becomes 1 when a
// file was recorded, else 0. 0, or 2 the companion cannot be opened, 8 no memory, 29 not written
// whole (the companion is cut back and nothing indexed).
int __cdecl SnapResFromWildcard(const char* asset, const char* indexPath, const char* companion, uint16_t* result,
                                uint32_t options) {
  if (result) *result = 0;
  if (!asset || !indexPath || !companion) return kBadData;
  char folder[MAX_PATH], pattern[MAX_PATH];
  RecordList files;
  if (Locate(asset, folder, pattern)) Walk(folder, "", pattern, (options & kOptionSubfolders) != 0, &files);
  if (files.failed) return kNoMemory;
  FILE* f = Io().fopen(companion, "r+b");
  if (!f) f = Io().fopen(companion, "w+b");
  if (!f) return kNotFound;
  std::fseek(f, 0, SEEK_END);
  long start = std::ftell(f);
  bool ok = start >= 0 && (start > 0 || WriteCompanionHead(f));
  start = std::ftell(f);
  ok = ok && AppendBlock(f, asset, folder, options, files);
  if (!ok) {
    std::fflush(f);
    _chsize(_fileno(f), start);  // cut back: the blocks before stay readable
  }
  if (!orvalis::CloseChecked(f)) ok = false;
  if (!ok) return kWriteFault;
  IndexRecord* records = nullptr;
  uint32_t count = 0;
  int rc = ReadIndex(indexPath, &records, &count);
  if (rc == kOk) {
    auto* grown = static_cast<IndexRecord*>(Io().calloc(count + 1, sizeof(IndexRecord)));
    if (!grown) {
      rc = kNoMemory;
    } else {
      if (count) std::memcpy(grown, records, count * sizeof(IndexRecord));
      IndexRecord& r = grown[count];
      const char* bare = orvalis::FindLastChar(companion, '\\');
      CopyText(r.companion, bare ? bare + 1 : companion, sizeof r.companion);
      CopyText(r.asset, asset, sizeof r.asset);
      r.options = options;
      r.files = files.count;
      r.offset = static_cast<uint32_t>(start);
      rc = WriteIndex(indexPath, grown, count + 1);
      Io().free(grown);
    }
  }
  Io().free(records);
  if (result && files.count > 0) *result = 1;
  return rc;
}

// _AssetsFromSnapshot (companion, asset, out tree, side, value, flags): the asset as the companion
// recorded it. 0; 2 no companion; 3 the companion holds no such asset; 13 it is damaged.
int __cdecl AssetsFromSnapshot(const char* companion, const char* asset, ChangeNode** out, int side, uint32_t value,
                               uint32_t flags) {
  *out = nullptr;
  if (!companion || !asset) return kBadData;
  FILE* f = Io().fopen(companion, "rb");
  if (!f) return kNotFound;
  AssetOrigin origin{};
  FileRecord* records = nullptr;
  uint32_t count = 0, options = 0;
  int rc = ReadAssetBlock(f, asset, origin.folder, &options, &records, &count);
  Io().fclose(f);
  if (rc != kOk) return rc;
  CopyText(origin.asset, asset, sizeof origin.asset);
  CopyText(origin.companion, companion, sizeof origin.companion);
  origin.options = options;
  *out = BuildAssetTree(origin, records, count);
  Io().free(records);
  return *out ? kOk : kNoMemory;
}

// _AssetsFromLive (asset, out tree, mode, &value, flags): the asset's files as they are now (flags
// 0x1000: subfolders), their contents' CRC-32 included when mode has 0x2000 (the side it is
// compared with kept its contents, and so its CRCs). 3 when the asset's folder, or the folder or
// file it names without wildcards, does not exist: the tree is then an empty root, which still
// compares (everything in it was removed).
int __cdecl AssetsFromLive(const char* asset, ChangeNode** out, int mode, uint16_t* value, uint32_t flags) {
  *out = nullptr;
  if (!asset) return kBadData;
  AssetOrigin origin{};
  CopyText(origin.asset, asset, sizeof origin.asset);
  char pattern[MAX_PATH];
  RecordList files;
  const bool exists = Locate(asset, origin.folder, pattern);
  if (exists) Walk(origin.folder, "", pattern, (flags & kOptionSubfolders) != 0, &files);
  if (files.failed) return kNoMemory;
  for (uint32_t i = 0; (mode & kOptionContents) && i < files.count; ++i) {
    char path[MAX_PATH];
    if (Join(path, origin.folder, files.items[i].path)) FileCrc(path, &files.items[i].crc);
  }
  *out = BuildAssetTree(origin, files.items, files.count);
  if (!*out) return kNoMemory;
  return exists ? kOk : kNoAsset;
}

// _AssetTreeCompare (&first, second, &scratch, flags): marks the differences in the first tree
// (files by size, time and CRC-32, names without regard to case). 0.
int __cdecl AssetTreeCompare(ChangeNode** first, ChangeNode* second, uint16_t* scratch, uint32_t flags) {
  if (!first) return kBadData;
  CompareAssetTrees(first, second);
  return kOk;
}

// _AssetChgList (tree, &list): the changes that bring the live files back to the tree's first
// side: files to write back (removed or changed since), files to delete (added since), folders to
// remove (added since). *list null when there are none, and always for an asset recorded without
// contents. 0 or 8.
int __cdecl AssetChgList(ChangeNode* tree, AssetChange** list) {
  *list = nullptr;
  if (!tree || !tree->data || tree->length != sizeof(AssetOrigin)) return kBadData;
  AssetOrigin origin;
  std::memcpy(&origin, tree->data, sizeof origin);
  // Without recorded contents nothing can be written back; deleting what was added alone would
  // leave the folder in a state it never had.
  if (!(origin.options & kOptionContents) || !origin.companion[0]) return kOk;
  AssetChange* folders = nullptr;
  AssetChange** tail = list;
  AssetChange** folderTail = &folders;
  bool failed = false;
  CollectChanges(tree, origin, &tail, &folderTail, &failed);
  *tail = folders;  // folders last
  return failed ? kNoMemory : kOk;
}

// _AssetChgListRestore (&list, index path, 0, 1): carries the changes out. 0, or the first error
// (the other changes are still tried; a file whose recorded contents do not check is left as it
// is).
int __cdecl AssetChgListRestore(AssetChange** list, const char* indexPath, int, int) {
  int first = kOk;
  for (AssetChange* c = list ? *list : nullptr; c; c = c->next) {
    int rc = kOk;
    if (c->action == kWrite) {
      rc = WriteBack(*c);
    } else if (c->action == kDelete) {
      SetFileAttributesA(c->target, FILE_ATTRIBUTE_NORMAL);
      if (!DeleteFileA(c->target)) rc = kAccessDenied;
    } else {
      RemoveDirectoryA(c->target);
    }
    if (first == kOk) first = rc;
  }
  return first;
}

// _FreeAssetChgList (&list): frees the list and sets it to null; accepts null.
void __cdecl FreeAssetChgList(AssetChange** list) {
  if (!list) return;
  while (AssetChange* c = *list) {
    *list = c->next;
    Io().free(c);
  }
}

// _FreeAssetTree (tree): frees a tree of this library; accepts null.
void __cdecl FreeAssetTree(ChangeNode* tree) { corvid::FreeAssetTree(tree); }

// _DeleteAssetSnapshot (index path, companion name): forgets every asset the index records in
// that companion and deletes the companion when nothing in the index refers to it any more. 0;
// 2 when the index exists but cannot be opened, 13 when it is damaged (nothing is deleted then);
// 29 when it cannot be rewritten.
int __cdecl DeleteAssetSnapshot(const char* indexPath, const char* name) {
  if (!indexPath || !name || !orvalis::IsBareFileName(name)) return kBadData;
  IndexRecord* records = nullptr;
  uint32_t count = 0;
  int rc = ReadIndex(indexPath, &records, &count);
  if (rc != kOk) return rc;
  uint32_t kept = 0;
  for (uint32_t i = 0; i < count; ++i)
    if (!orvalis::EqualNoCase(records[i].companion, name)) records[kept++] = records[i];
  if (kept != count) rc = WriteIndex(indexPath, records, kept);
  Io().free(records);
  if (rc != kOk) return rc;
  char companion[MAX_PATH];
  if (orvalis::SiblingPath(companion, sizeof companion, indexPath, name)) {
    SetFileAttributesA(companion, FILE_ATTRIBUTE_NORMAL);
    DeleteFileA(companion);
  }
  return kOk;
}

}  // extern "C"
