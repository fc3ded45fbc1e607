#include <windows.h>

#include "base/companion_api.h"
#include "base/results.h"
#include "base/textutil.h"
#include "engine/libraries.h"
#include "items/assets/assets.h"
#include "store/store_win.h"

namespace orvalis {

int DeleteAssetSnapshots(const SnapshotRecord* rec, const char* dataFolder) {
  if (!rec->assets) return 0;
  CompanionLibrary lib(LoadAssetLibrary());
  auto del = LibraryEntry<DeleteAssetSnapshotFn>(lib.get(), "_DeleteAssetSnapshot");
  if (!del) return kResultBadLibrary;
  char index[MAX_PATH];
  if (!JoinPath(index, sizeof index, dataFolder, "MASTER.IDX")) return 0;
  for (const SnapGroupEntry* e = rec->assets; e; e = e->next)
    if (IsBareFileName(e->companion)) del(index, e->companion);
  return 0;
}

}  // namespace orvalis
