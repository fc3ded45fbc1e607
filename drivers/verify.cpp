#include <windows.h>

#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "base/companion_api.h"
#include "base/io.h"
#include "base/results.h"
#include "base/textutil.h"
#include "compress/filecodec.h"
#include "drivers/package.h"
#include "engine/files.h"
#include "engine/libraries.h"
#include "store/package.h"
#include "store/store_win.h"

namespace orvalis {
namespace {

// The findings of one check, written as they come.
struct Findings {
  FILE* out;
  int damaged = 0;
  void Ok(const char* what, const char* name) { std::fprintf(out, "OK       %s %s\n", what, name); }
  void Bad(const char* what, const char* name, const char* why) {
    std::fprintf(out, "DAMAGED  %s %s: %s\n", what, name, why);
    ++damaged;
  }
};

// Expands an imploded companion into a scratch file beside it and compares the CRC of what it
// holds with the one its record keeps.
void CheckPacked(Findings& f, const char* what, const char* folder, const char* name, uint32_t crc) {
  char path[MAX_PATH], scratch[MAX_PATH];
  if (!CompanionPath(folder, name, path) || !JoinPath(scratch, sizeof scratch, folder, "VERIFY.TMP")) {
    f.Bad(what, name, "not a companion name");
    return;
  }
  if (!PathExists(path)) {
    f.Bad(what, name, "missing");
    return;
  }
  uint32_t actual = 0;
  const int rc = ExpandFileChecked(scratch, path, &actual);
  Io().remove(scratch);
  if (rc != kExpandOk)
    f.Bad(what, name, "cannot be expanded");
  else if (actual != crc)
    f.Bad(what, name, "CRC-32 does not match its record");
  else
    f.Ok(what, name);
}

long FileSize(const char* path) {
  FILE* f = Io().fopen(path, "rb");
  if (!f) return -1;
  std::fseek(f, 0, SEEK_END);
  const long n = std::ftell(f);
  Io().fclose(f);
  return n;
}

void CheckExists(Findings& f, const char* what, const char* folder, const char* name) {
  char path[MAX_PATH];
  if (!CompanionPath(folder, name, path))
    f.Bad(what, name, "not a companion name");
  else if (!PathExists(path))
    f.Bad(what, name, "missing");
  else
    f.Ok(what, name);
}

void CheckSnapshot(Findings& f, const char* path, SnapshotRecord* rec) {
  char folder[MAX_PATH];
  if (!CompanionFolder(path, folder)) return;
  for (const SnapFileEntry* e = rec->files; e; e = e->next) CheckExists(f, "system file copy", folder, e->companion);
  for (const SnapGroupEntry* e = rec->dirs; e; e = e->next) {
    if (e->first)
      CheckPacked(f, "directory listing", folder, e->companion, e->second);
    else
      CheckExists(f, "directory listing", folder, e->companion);
  }
  // The registry dump and the asset records carry CRCs of their own: reading each watched key
  // and asset back through its library checks them.
  CompanionLibrary marlow(rec->regKeys ? LoadRegistryLibrary() : nullptr);
  auto readKey = LibraryEntry<RegKeyFromFileFn>(marlow.get(), "_RegKeyFromFile");
  auto freeKey = LibraryEntry<FreeRegTreeFn>(marlow.get(), "_FreeRegTree");
  for (const SnapGroupEntry* e = rec->regKeys; e; e = e->next) {
    bool seen = false;  // one dump serves every key of the snapshot: checked once
    for (const SnapGroupEntry* p = rec->regKeys; p != e && !seen; p = p->next) seen = EqualNoCase(p->companion, e->companion);
    if (seen) continue;
    char dump[MAX_PATH];
    if (!CompanionPath(folder, e->companion, dump) || !PathExists(dump)) {
      f.Bad("registry dump", e->companion, "missing");
      continue;
    }
    if (!readKey || !freeKey) {
      f.Bad("registry dump", e->companion, "MARLOW.DLL cannot check it");
      continue;
    }
    // Reading every root back decodes every block of the dump, each checked against its CRC.
    bool damaged = false;
    for (const char* root : {"HKEY_LOCAL_MACHINE", "HKEY_CURRENT_USER", "HKEY_CLASSES_ROOT", "HKEY_USERS",
                             "HKEY_CURRENT_CONFIG"}) {
      ChangeNode* tree = nullptr;
      damaged |= readKey(dump, &tree, 1, root) == 13;
      freeKey(tree);
    }
    if (damaged)
      f.Bad("registry dump", e->companion, "damaged");
    else
      f.Ok("registry dump", e->companion);
  }
  CompanionLibrary corvid(rec->assets ? LoadAssetLibrary() : nullptr);
  auto readAsset = LibraryEntry<AssetsFromSnapshotFn>(corvid.get(), "_AssetsFromSnapshot");
  auto freeAsset = LibraryEntry<FreeAssetTreeFn>(corvid.get(), "_FreeAssetTree");
  for (const SnapGroupEntry* e = rec->assets; e; e = e->next) {
    char companion[MAX_PATH];
    if (!CompanionPath(folder, e->companion, companion) || !PathExists(companion)) {
      f.Bad("asset records", e->companion, "missing");
      continue;
    }
    if (!readAsset || !freeAsset) {
      f.Bad("asset records", e->companion, "CORVID.DLL cannot check them");
      continue;
    }
    ChangeNode* tree = nullptr;
    const int rc = readAsset(companion, e->name, &tree, 1, static_cast<uint32_t>(e->first) & 0xFFFF, e->second & 0xFFFF);
    freeAsset(tree);
    if (rc == 13)
      f.Bad("asset records", e->companion, "damaged");
    else
      f.Ok("asset", e->name);
  }
  SnapshotRecord backups{};
  ReadRegBackSection(path, &backups);
  if (RegBackupRecord* b = backups.regBackup) {
    const struct {
      const char* name;
      int32_t flag;
      uint32_t crc;
    } halves[] = {{b->userName, b->userFlag, b->userCrc}, {b->systemName, b->systemFlag, b->systemCrc}};
    for (const auto& h : halves) {
      if (!h.name[0]) continue;
      char copy[MAX_PATH];
      // A data file that was not there to copy leaves its reserved companion empty, with no CRC:
      // that is how the snapshot was taken, not damage.
      if (h.crc == 0 && CompanionPath(folder, h.name, copy) && PathExists(copy) && FileSize(copy) == 0) {
        f.Ok("registry data copy (nothing was there to copy)", h.name);
        continue;
      }
      if (h.flag)
        CheckPacked(f, "registry data copy", folder, h.name, h.crc);
      else
        CheckExists(f, "registry data copy", folder, h.name);
    }
  }
  ClearSnapshotRecord(&backups);
  ReadRegNtSection(path, &backups);
  if (backups.regBackup) CheckExists(f, "registry save folder", folder, backups.regBackup->userName);
  ClearSnapshotRecord(&backups);
}

}  // namespace

uint32_t VerifySnapshotFiles(const char* name, const char* reportPath) {
  const bool package = !FindNoCase(name, ".BCF") || std::strlen(name) < 4 ||
                       CompareNoCase(name + std::strlen(name) - 4, ".BCF") != 0;
  char path[MAX_PATH];
  if (package)
    CopyText(path, name, sizeof path);
  else if (!EngineSnapshotPath(name, path))
    return kResultInvalidData;
  if (!PathExists(path)) return kResultFileNotFound;
  FILE* out = Io().fopen(reportPath, "wt");
  if (!out) return kResultOpenFailed;
  Findings f{out};
  if (package) {
    PackageEntry* entries = nullptr;
    uint32_t count = 0;
    const int rc = VerifyPackage(path, &entries, &count);
    if (rc != kPackageOk) {
      f.Bad("package", name, rc == kPackageBadData ? "damaged or not a package" : "cannot be read");
    } else {
      for (uint32_t i = 0; i < count; ++i) f.Ok("package entry", entries[i].name);
    }
    FreePackageEntries(entries);
  } else {
    SnapshotRecord* rec = NewSnapshotRecord();
    if (!rec || LoadSnapshot(path, rec) != 0) {
      f.Bad("snapshot", name, "cannot be read");
    } else {
      f.Ok("snapshot", name);
      CheckSnapshot(f, path, rec);
    }
    FreeSnapshotRecord(rec);
  }
  std::fprintf(out, "%s\n", f.damaged ? "Damage found." : "Intact.");
  const bool written = CloseChecked(out);
  if (!written) return kResultWriteFault;
  return f.damaged ? kResultInvalidData : kResultOk;
}

}  // namespace orvalis
