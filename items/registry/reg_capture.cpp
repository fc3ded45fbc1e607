#include <windows.h>

#include <cstring>

#include "base/companion_api.h"
#include "base/io.h"
#include "base/results.h"
#include "base/textutil.h"
#include "engine/filecodec_win.h"
#include "engine/libraries.h"
#include "engine/log.h"
#include "engine/settings.h"
#include "engine/sys.h"
#include "items/registry/registry.h"
#include "store/store_win.h"

namespace orvalis {
namespace {

// The dump's compression as the library takes it: 0, 1 or a dictionary size; anything else has
// always meant the default dictionary.
int DumpCompression() {
  const int v = ReadOrvalisInt("CompressRegistrySnap", 1024);
  return v == 0 || v == 1 || v == 1024 || v == 2048 || v == 4096 ? v : 1024;
}

RegBackupRecord* BackupRecord(SnapshotRecord* rec) {
  if (!rec->regBackup) rec->regBackup = static_cast<RegBackupRecord*>(Io().calloc(1, sizeof(RegBackupRecord)));
  return rec->regBackup;
}

// One half of REGBACK: the data file of that name in the Windows folder, copied into a fresh
// companion. On failure the companion goes and its name is cleared.
int CopyDataFileHalf(FILE* f, const char* dataFolder, const char* file, const char* prefix, int flag, char* name) {
  char windows[MAX_PATH] = "";
  Sys().GetWindowsDirectoryA(windows, sizeof windows);
  char source[MAX_PATH];
  const bool root = std::strlen(windows) == 3;
  if (std::snprintf(source, sizeof source, "%s%s%s", windows, root ? "" : "\\", file) >= MAX_PATH)
    return kResultInvalidData;
  char target[MAX_PATH];
  if (!MakeUniqueFileName(dataFolder, prefix, "CRG", name)) return kResultInvalidData;
  if (!CompanionPath(dataFolder, name, target)) return kResultInvalidData;
  uint32_t crc = 0;
  const int rc = CopyRegistryFile(source, target, flag, &crc);
  if (rc == 0) {
    std::fprintf(f, "%s,%s,%i,%lu\n", source, name, flag, static_cast<unsigned long>(flag ? crc : 0));
  } else {
    Sys().DeleteFileA(target);
    name[0] = '\0';
  }
  return rc;
}

}  // namespace

int WriteRegInfo(FILE* f, const Profile* profile, SnapshotRecord* rec) {
  WriteLog("CreateSnapshot:");
  WriteLogF("Path from base entry:%s", rec->indexPath);
  char folder[MAX_PATH];
  if (!CompanionFolder(rec->indexPath, folder)) return kResultInvalidData;
  WriteLog("CreateSnapshot:");
  WriteLogF("Snapshot Path :%s", rec->indexPath);
  CompanionLibrary lib(LoadRegistryLibrary());
  if (!lib) {
    const DWORD error = Sys().GetLastError();
    WriteLog("We failed to load MARLOW.dll");
    WriteLogF("Error code is: %ld", static_cast<long>(error));
    return static_cast<int>(error);
  }
  auto dump = LibraryEntry<EntireRegToFileFn>(lib.get(), "_EntireRegToFile");
  if (!dump) {
    const DWORD error = Sys().GetLastError();
    WriteLog("Failed to get proc address for EntireRegToFile");
    return static_cast<int>(error);
  }
  const int compression = DumpCompression();
  std::fprintf(f, "[REGINFO_START]\n");
  WriteLog("put the reginfo start line inf the file");
  int result = 0;
  if (profile->regKeys) {
    char name[MAX_PATH], path[MAX_PATH];
    if (!MakeUniqueFileName(folder, "REG", "OVR", name) || !CompanionPath(folder, name, path)) {
      result = kResultInvalidData;
    } else if ((result = dump(path, compression)) != 0) {
      Sys().DeleteFileA(path);
    } else {
      for (const ProfileGroupEntry* k = profile->regKeys; k; k = k->next) {
        SnapGroupEntry* e = AppendGroupEntry(&rec->regKeys);
        if (!e) continue;  // a key whose entry cannot be had is left out
        CopyText(e->name, k->name, sizeof e->name);
        CopyText(e->companion, name, sizeof e->companion);
        e->first = compression;
        e->second = 0;
        std::fprintf(f, "%s,%s,%i,%lu\n", e->name, e->companion, compression, 0ul);
      }
    }
  }
  std::fprintf(f, "[REGINFO_END]\n");
  return result;
}

int CopyRegistryFile(const char* source, const char* target, int compress, uint32_t* crc) {
  // What the registry holds in memory must be on disk before its files are copied.
  Sys().RegFlushKey(HKEY_LOCAL_MACHINE);
  Sys().RegFlushKey(HKEY_CLASSES_ROOT);
  Sys().RegFlushKey(HKEY_USERS);
  Sys().RegFlushKey(HKEY_CURRENT_USER);
  const DWORD attributes = Sys().GetFileAttributesA(source);
  // Settled behaviour: a file whose attributes cannot be cleared is reported done, not copied.
  if (!Sys().SetFileAttributesA(source, attributes & ~static_cast<DWORD>(7))) return 0;
  int result;
  if (compress == 0) {
    result = Sys().CopyFileA(source, target, FALSE) ? 0 : static_cast<int>(Sys().GetLastError());
  } else {
    unsigned long value = 0;
    result = CompressFile(source, target, &value);
    if (result == 0) *crc = static_cast<uint32_t>(value);
  }
  Sys().SetFileAttributesA(source, attributes);
  return result;
}

int WriteRegBackInfo(FILE* f, SnapshotRecord* rec) {
  char folder[MAX_PATH];
  if (!CompanionFolder(rec->indexPath, folder)) return kResultInvalidData;
  if (ReadOrvalisInt("SaveRegistryData", 1) == 0) return 0;
  RegBackupRecord* b = BackupRecord(rec);
  if (!b) return kResultNoMemory;
  const int flag = ReadOrvalisInt("CompressRegistryData", 1);
  std::fprintf(f, "[REGBACK_START]\n");
  b->userFlag = b->systemFlag = flag;
  CopyDataFileHalf(f, folder, "USER.DAT", "UDAT", flag, b->userName);  // its failure alone is passed over
  const int result = CopyDataFileHalf(f, folder, "SYSTEM.DAT", "SDAT", flag, b->systemName);
  std::fprintf(f, "[REGBACK_END]\n");
  return result;
}

int WriteNTRegRestoreInfo(FILE* f, SnapshotRecord* rec) {
  WriteLog("WriteBaseNTregRestoreInfo:Enter");
  char folder[MAX_PATH];
  if (!CompanionFolder(rec->indexPath, folder)) return kResultInvalidData;
  CompanionLibrary lib(LoadRegistryLibrary());
  if (!lib) {
    const DWORD error = Sys().GetLastError();
    WriteLog("We failed to load marlow.dll");
    return static_cast<int>(error);
  }
  auto save = LibraryEntry<NTSaveRegKeyFn>(lib.get(), "_NTSaveRegKey");
  if (!save) {
    const DWORD error = Sys().GetLastError();
    WriteLog("We failed to get the proc address for NTSaveRegKey");
    return static_cast<int>(error);
  }
  RegBackupRecord* b = BackupRecord(rec);
  if (!b) return kResultNoMemory;
  std::fprintf(f, "[REGNT_START]\n");
  WriteLog("WriteBaseNTregRestoreInfo:Wrote the start line to the file");
  int result = 0;
  char saveFolder[MAX_PATH];
  if (!MakeUniqueFolderName(folder, "NT", b->userName) || !CompanionPath(folder, b->userName, saveFolder)) {
    WriteLog("WriteBaseNTregRestoreInfo:CreateDirectoryName failed");
    b->userName[0] = '\0';
    result = kResultOpenFailed;
  } else {
    WriteLog("WriteBaseNTregRestoreInfo:CreateDirectoryName worked OK");
    int saved = 0;
    for (const SnapGroupEntry* k = rec->regKeys; k; k = k->next) {
      WriteLog("Reg Key:");
      WriteLog(k->name);
      WriteLog("RegdataPath:");
      WriteLog(saveFolder);
      // Deliberately only the last key's result counts: an earlier failure is logged and passed.
      result = save(k->name, saveFolder);
      if (result == 0) {
        WriteLog("WriteBaseNTregRestoreInfo:Call to NTSaveRegKeyWorked OK");
        std::fprintf(f, "%s,%s\n", k->name, b->userName);
        ++saved;
      } else {
        WriteLogF("WriteBaseNTregRestoreInfo:Call to NTSaveregKey failed. Error = %ld", static_cast<long>(result));
      }
    }
    if (saved == 0) {
      Sys().RemoveDirectoryA(saveFolder);
      b->userName[0] = '\0';
    }
  }
  std::fprintf(f, "[REGNT_END]\n");
  WriteLog("WriteBaseNTregRestoreInfo:Wrote the end line to the file");
  return result;
}

}  // namespace orvalis
