#include "drivers/package.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "base/io.h"
#include "base/results.h"
#include "base/textutil.h"
#include "drivers/delete.h"
#include "engine/context.h"
#include "engine/files.h"
#include "engine/sys.h"
#include "store/package.h"
#include "store/store_win.h"

namespace orvalis {
namespace {

// One file of a snapshot as a package carries it.
struct Member {
  uint8_t kind;
  char folder[MAX_PATH];  // kind 3: the companion folder it lies in
  char name[MAX_PATH];
};

// The members of a snapshot, the index file first, each companion once, whatever the platform
// the snapshot was taken on (both registry backup sections are read).
class Members {
 public:
  ~Members() { Io().free(items_); }
  bool Add(uint8_t kind, const char* folder, const char* name) {
    if (!name[0]) return true;
    for (uint32_t i = 0; i < count_; ++i)
      if (items_[i].kind == kind && EqualNoCase(items_[i].folder, folder) && EqualNoCase(items_[i].name, name))
        return true;
    if (count_ == capacity_) {
      const uint32_t grown = capacity_ ? capacity_ * 2 : 32;
      auto* bigger = static_cast<Member*>(Io().calloc(grown, sizeof(Member)));
      if (!bigger) return false;
      if (items_) std::memcpy(bigger, items_, count_ * sizeof(Member));
      Io().free(items_);
      items_ = bigger;
      capacity_ = grown;
    }
    Member& m = items_[count_++];
    m.kind = kind;
    CopyText(m.folder, folder, sizeof m.folder);
    CopyText(m.name, name, sizeof m.name);
    return true;
  }
  uint32_t count() const { return count_; }
  const Member& operator[](uint32_t i) const { return items_[i]; }

 private:
  Member* items_ = nullptr;
  uint32_t count_ = 0, capacity_ = 0;
};

// Every file of a companion folder (the NT registry saves); false when memory ran out.
bool AddFolder(Members* m, const char* dataFolder, const char* folder) {
  char pattern[MAX_PATH];
  if (std::snprintf(pattern, sizeof pattern, "%s%s\\*", dataFolder, folder) >= MAX_PATH) return true;
  WIN32_FIND_DATAA fd;
  HANDLE h = Sys().FindFirstFileA(pattern, &fd);
  if (h == INVALID_HANDLE_VALUE) return true;
  bool ok = true;
  do {
    if (!(fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) ok = m->Add(kPackageFolderFile, folder, fd.cFileName);
  } while (ok && Sys().FindNextFileA(h, &fd));
  Sys().FindClose(h);
  return ok;
}

// 0, or 13 when the snapshot cannot be read, 8 without memory.
uint32_t CollectMembers(const char* path, const char* dataFolder, Members* m) {
  SnapshotRecord* rec = NewSnapshotRecord();
  SnapshotRecord* backups = NewSnapshotRecord();
  uint32_t rc = kResultOk;
  if (!rec || !backups) {
    rc = kResultNoMemory;
  } else if (LoadSnapshot(path, rec) != 0) {
    rc = kResultInvalidData;
  } else {
    bool ok = m->Add(kPackageIndex, "", rec->indexName);
    for (const SnapFileEntry* e = rec->files; ok && e; e = e->next) ok = m->Add(kPackageFile, "", e->companion);
    for (SnapGroupEntry* const* list : {&rec->dirs, &rec->regKeys, &rec->assets})
      for (const SnapGroupEntry* e = *list; ok && e; e = e->next) ok = m->Add(kPackageFile, "", e->companion);
    ReadRegBackSection(path, backups);
    if (ok && backups->regBackup) {
      ok = m->Add(kPackageFile, "", backups->regBackup->userName) && m->Add(kPackageFile, "", backups->regBackup->systemName);
      Io().free(backups->regBackup);
      backups->regBackup = nullptr;
    }
    ReadRegNtSection(path, backups);
    if (ok && backups->regBackup && backups->regBackup->userName[0])
      ok = AddFolder(m, dataFolder, backups->regBackup->userName);
    if (!ok) rc = kResultNoMemory;
  }
  FreeSnapshotRecord(rec);
  FreeSnapshotRecord(backups);
  return rc;
}

// The prefix a companion name was made from: the name less its extension and its four-digit
// counter ("app0001.BSE" -> "app"); and its extension.
void SplitCompanionName(const char* name, char* prefix, char* ext) {
  char base[MAX_PATH];
  CopyText(base, name, sizeof base);
  ext[0] = '\0';
  if (char* dot = std::strrchr(base, '.')) {
    CopyText(ext, dot + 1, 16);
    *dot = '\0';
  }
  size_t n = std::strlen(base);
  for (int i = 0; i < 4 && n > 0 && base[n - 1] >= '0' && base[n - 1] <= '9'; ++i) base[--n] = '\0';
  CopyText(prefix, base[0] ? base : "IMP", 5);
}

// What an import has made so far, removed again when it fails.
struct Made {
  char path[MAX_PATH];
  bool folder;
};

class Import {
 public:
  ~Import() { Io().free(made_); Io().free(map_); }
  bool Track(const char* path, bool folder) {
    auto* grown = static_cast<Made*>(Io().calloc(count_ + 1, sizeof(Made)));
    if (!grown) return false;
    if (made_) std::memcpy(grown, made_, count_ * sizeof(Made));
    Io().free(made_);
    made_ = grown;
    CopyText(made_[count_].path, path, MAX_PATH);
    made_[count_++].folder = folder;
    return true;
  }
  void Undo() {
    for (uint32_t i = count_; i-- > 0;) {
      if (made_[i].folder)
        Sys().RemoveDirectoryA(made_[i].path);
      else
        Sys().DeleteFileA(made_[i].path);
    }
  }
  // Old companion (or folder) name -> new one.
  bool Map(const char* from, const char* to) {
    auto* grown = static_cast<Member*>(Io().calloc(mapped_ + 1, sizeof(Member)));
    if (!grown) return false;
    if (map_) std::memcpy(grown, map_, mapped_ * sizeof(Member));
    Io().free(map_);
    map_ = grown;
    CopyText(map_[mapped_].folder, from, MAX_PATH);
    CopyText(map_[mapped_++].name, to, MAX_PATH);
    return true;
  }
  const char* Mapped(const char* from) const {
    for (uint32_t i = 0; i < mapped_; ++i)
      if (EqualNoCase(map_[i].folder, from)) return map_[i].name;
    return nullptr;
  }

 private:
  Made* made_ = nullptr;
  uint32_t count_ = 0;
  Member* map_ = nullptr;
  uint32_t mapped_ = 0;
};

enum class Section { kNone, kFlags, kFileInfo, kRightSplit, kRegNt };

Section SectionOf(const char* marker) {
  if (EqualNoCase(marker, "[FLAGS_START]")) return Section::kFlags;
  if (EqualNoCase(marker, "[FILEINFO_START]")) return Section::kFileInfo;
  if (EqualNoCase(marker, "[REGINFO_START]") || EqualNoCase(marker, "[DIRINFO_START]") ||
      EqualNoCase(marker, "[ASSETINFO_START]") || EqualNoCase(marker, "[REGBACK_START]"))
    return Section::kRightSplit;
  if (EqualNoCase(marker, "[REGNT_START]")) return Section::kRegNt;
  return Section::kNone;
}

// One record line with its companion field renamed; false when the field names nothing the
// package brought (a record of ours never does that).
bool Rename(char* line, Section s, const Import& im, char* out, size_t cap) {
  char* start;
  char* end;
  if (s == Section::kFileInfo) {
    start = std::strchr(line, ',');
    if (!start) return false;
    ++start;
    end = std::strchr(start, ',');
  } else if (s == Section::kRegNt) {
    start = std::strrchr(line, ',');
    if (!start) return false;
    ++start;
    end = start + std::strlen(start);
  } else {
    // From the right: the companion is the second field of four (or the last of two, in old files).
    char* c[3] = {nullptr, nullptr, nullptr};
    char* p = line + std::strlen(line);
    int found = 0;
    while (p > line && found < 3) {
      --p;
      if (*p == ',') c[found++] = p;
    }
    if (found == 0) return false;
    if (found >= 3) {
      start = c[2] + 1;
      end = c[1];
    } else {
      start = c[0] + 1;
      end = start + std::strlen(start);
    }
  }
  if (!end) return false;
  char old[MAX_PATH];
  const size_t len = static_cast<size_t>(end - start);
  if (len >= sizeof old) return false;
  std::memcpy(old, start, len);
  old[len] = '\0';
  const char* renamed = old[0] ? im.Mapped(old) : "";
  if (!renamed) return false;
  return std::snprintf(out, cap, "%.*s%s%s", static_cast<int>(start - line), line, renamed, end) <
         static_cast<int>(cap);
}

// Copies the package's index into target with every companion renamed and the import flag set.
bool RewriteIndex(const char* source, const char* target, const Import& im) {
  FILE* in = Io().fopen(source, "rt");
  if (!in) return false;
  FILE* out = Io().fopen(target, "wt");
  if (!out) {
    Io().fclose(in);
    return false;
  }
  bool ok = true;
  Section s = Section::kNone;
  char line[1024], renamed[1100];
  while (ok && ReadTextLine(line, sizeof line, in)) {
    const char* text = line;
    if (line[0] == '[') {
      s = std::strstr(line, "_END]") ? Section::kNone : SectionOf(line);
    } else if (s == Section::kFlags) {
      const long flags = std::strtol(line, nullptr, 10);
      std::snprintf(renamed, sizeof renamed, "%ld", (flags | 0x1000) & 0xF0FF);
      text = renamed;
    } else if (s != Section::kNone) {
      ok = Rename(line, s, im, renamed, sizeof renamed);
      text = renamed;
    }
    std::fprintf(out, "%s\n", text);
  }
  Io().fclose(in);
  return CloseChecked(out) && ok;
}

}  // namespace

uint32_t ExportSnapshotPackage(const char* name, const char* packagePath) {
  char path[MAX_PATH], data[MAX_PATH];
  if (!EngineSnapshotPath(name, path) || !CompanionFolder(path, data)) return kResultInvalidData;
  if (!PathExists(path)) return kResultFileNotFound;
  Members members;
  if (uint32_t rc = CollectMembers(path, data, &members)) return rc;
  PackageWriter* w = OpenPackageWriter(packagePath, members.count());
  if (!w) return kResultAccessDenied;
  int rc = kPackageOk;
  for (uint32_t i = 0; rc == kPackageOk && i < members.count(); ++i) {
    const Member& m = members[i];
    char source[MAX_PATH];
    const bool fits = m.kind == kPackageIndex ? (CopyText(source, path, sizeof source), true)
                      : m.kind == kPackageFile
                          ? CompanionPath(data, m.name, source)
                          : std::snprintf(source, sizeof source, "%s%s\\%s", data, m.folder, m.name) < MAX_PATH;
    rc = fits ? AddPackageEntry(w, m.kind, m.folder, m.name, source) : kPackageBadData;
  }
  const int closed = ClosePackageWriter(w, rc != kPackageOk);
  return static_cast<uint32_t>(rc != kPackageOk ? rc : closed);
}

uint32_t ImportSnapshotPackage(const char* packagePath, const char* folder, char* newName) {
  PackageEntry* entries = nullptr;
  uint32_t count = 0;
  if (int rc = VerifyPackage(packagePath, &entries, &count)) return static_cast<uint32_t>(rc);
  uint32_t index = count, indexes = 0;
  for (uint32_t i = 0; i < count; ++i)
    if (entries[i].kind == kPackageIndex) index = i, ++indexes;
  if (indexes != 1) {
    FreePackageEntries(entries);
    return kResultInvalidData;
  }
  char dest[MAX_PATH], data[MAX_PATH];
  if (folder && folder[0])
    CopyText(dest, folder, sizeof dest);
  else
    GetModuleFolderWithSlash(dest);
  if (!EndsWith(dest, '\\')) AppendText(dest, "\\", sizeof dest);
  Import im;
  uint32_t rc = kResultOk;
  char name[MAX_PATH] = "", target[MAX_PATH], temp[MAX_PATH];
  if (std::snprintf(data, sizeof data, "%sNIMBRA\\", dest) >= MAX_PATH) rc = kResultInvalidData;
  if (rc == kResultOk && !IsDirectory(data)) {
    if (!Sys().CreateDirectoryA(data, nullptr) || !im.Track(data, true)) rc = kResultAccessDenied;
  }
  // Fresh names first, each reserved by creating it, so nothing that exists is ever written to.
  for (uint32_t i = 0; rc == kResultOk && i < count; ++i) {
    const PackageEntry& e = entries[i];
    const char* old = e.kind == kPackageFolderFile ? e.folder : e.name;
    if (e.kind == kPackageIndex || im.Mapped(old)) continue;
    char prefix[8], ext[16], fresh[MAX_PATH], made[MAX_PATH];
    SplitCompanionName(old, prefix, ext);
    const bool ok = e.kind == kPackageFolderFile ? MakeUniqueFolderName(data, prefix, fresh)
                                                 : MakeUniqueFileName(data, prefix, ext, fresh);
    if (!ok || !JoinPath(made, sizeof made, data, fresh) || !im.Track(made, e.kind == kPackageFolderFile) ||
        !im.Map(old, fresh))
      rc = kResultAccessDenied;
  }
  if (rc == kResultOk && (!MakeUniqueFileName(dest, "BASE", "BCF", name) ||
                          std::snprintf(target, sizeof target, "%s%s", dest, name) >= MAX_PATH || !im.Track(target, false)))
    rc = kResultAccessDenied;
  if (rc == kResultOk && (std::snprintf(temp, sizeof temp, "%s.imp", target) >= MAX_PATH || !im.Track(temp, false)))
    rc = kResultInvalidData;
  for (uint32_t i = 0; rc == kResultOk && i < count; ++i) {
    const PackageEntry& e = entries[i];
    char out[MAX_PATH];
    bool fits;
    if (e.kind == kPackageIndex)
      fits = (CopyText(out, temp, sizeof out), true);
    else if (e.kind == kPackageFile)
      fits = JoinPath(out, sizeof out, data, im.Mapped(e.name));
    else
      fits = std::snprintf(out, sizeof out, "%s%s\\%s", data, im.Mapped(e.folder), e.name) < MAX_PATH &&
             im.Track(out, false);
    if (!fits) {
      rc = kResultInvalidData;
      break;
    }
    if (int x = ExtractPackageEntry(packagePath, i, out)) rc = static_cast<uint32_t>(x);
  }
  if (rc == kResultOk && !RewriteIndex(temp, target, im)) rc = kResultInvalidData;
  if (rc != kResultOk) {
    im.Undo();
  } else {
    Sys().DeleteFileA(temp);
    if (newName) CopyText(newName, name, MAX_PATH);
  }
  FreePackageEntries(entries);
  (void)index;
  return rc;
}

}  // namespace orvalis
