#include <windows.h>

#include <cstdio>

#include "base/companion_api.h"
#include "base/io.h"
#include "base/results.h"
#include "base/textutil.h"
#include "engine/libraries.h"
#include "engine/log.h"
#include "items/assets/assets.h"
#include "profiles/profile.h"
#include "store/store_win.h"

namespace orvalis {

int WriteAssetInfoSection(FILE* f, const Profile* profile, SnapshotRecord* rec) {
  char folder[MAX_PATH], index[MAX_PATH];
  if (!CompanionFolder(rec->indexPath, folder) || !JoinPath(index, sizeof index, folder, "MASTER.IDX"))
    return kResultInvalidData;
  CompanionLibrary lib(LoadAssetLibrary());
  auto snap = LibraryEntry<SnapResFromWildcardFn>(lib.get(), "_SnapResFromWildcard");
  if (!snap) return kResultBadLibrary;
  std::fprintf(f, "[ASSETINFO_START]\n");
  // One companion for every entry of the snapshot, reserved before the loop.
  char name[MAX_PATH] = "", companion[MAX_PATH] = "";
  if (MakeUniqueFileName(folder, "AST", "OVA", name)) CompanionPath(folder, name, companion);
  if (!profile->assets) {
    // Kept as it is: the reservation is removed by its bare name, relative to the current
    // folder rather than the data folder, so the empty companion normally stays behind.
    if (name[0]) Io().remove(name);
  } else {
    WriteLog("looping through assets");
    for (const ProfileGroupEntry* a = profile->assets; a; a = a->next) {
      WriteLog(a->name);
      // A folder tag names the Windows or system folder; a tag left open is skipped unwritten.
      if (a->name[0] == '<' && !FindLastChar(a->name, '>')) continue;
      char path[MAX_PATH];
      ExpandFolderTag(a->name, path);
      WriteLog("snapres from wildcard");
      uint16_t result = static_cast<uint16_t>(a->first & 0xFFFF);
      snap(path, index, companion, &result, static_cast<uint32_t>(a->second) & (kAssetSubfolders | kAssetContents));
      WriteLog("snapres completed");
      SnapGroupEntry* e = AppendGroupEntry(&rec->assets);
      if (!e) continue;
      CopyText(e->name, path, sizeof e->name);
      CopyText(e->companion, name, sizeof e->companion);
      e->first = result != 0 ? 1 : 0;
      e->second = static_cast<uint32_t>(a->second);
      char line[3 * MAX_PATH];
      std::snprintf(line, sizeof line, "%s,%s,%d,%d\n", e->name, e->companion, static_cast<int>(e->first),
                    static_cast<int>(e->second));
      WriteLog(line);
      std::fputs(line, f);
    }
  }
  std::fprintf(f, "[ASSETINFO_END]\n");
  return 0;
}

}  // namespace orvalis
