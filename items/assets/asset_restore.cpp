#include <windows.h>

#include "base/companion_api.h"
#include "base/results.h"
#include "base/textutil.h"
#include "engine/libraries.h"
#include "items/assets/assets.h"
#include "store/store_win.h"

namespace orvalis {

char AssetIndexPath[MAX_PATH];
AssetChange* AssetChangeList = nullptr;

int RestoreAssets(const SnapshotRecord* rec) {
  CompanionLibrary lib(LoadAssetLibrary());
  if (!lib) return kResultBadLibrary;
  auto releaseTree = LibraryEntry<FreeAssetTreeFn>(lib.get(), "_FreeAssetTree");
  auto changes = LibraryEntry<AssetChgListFn>(lib.get(), "_AssetChgList");
  auto releaseList = LibraryEntry<FreeAssetChgListFn>(lib.get(), "_FreeAssetChgList");
  auto apply = LibraryEntry<AssetChgListRestoreFn>(lib.get(), "_AssetChgListRestore");
  if (!releaseTree || !changes || !releaseList || !apply) return 1;
  char folder[MAX_PATH];
  if (!CompanionFolder(rec->indexPath, folder)) return kResultInvalidData;
  JoinPath(AssetIndexPath, sizeof AssetIndexPath, folder, "MASTER.IDX");
  for (const SnapGroupEntry* a = rec->assets; a; a = a->next) {
    if (!(a->second & kAssetContents)) continue;  // only an asset whose contents were kept restores
    char file[MAX_PATH];
    ChangeNode* tree = nullptr;
    if (CompanionPath(folder, a->companion, file)) {
      // The entry's own value and options serve both sides: the snapshot and the live files.
      const uint32_t value = static_cast<uint32_t>(a->first) & 0xFFFF, flags = a->second & 0xFFFF;
      tree = BuildAssetChangeTree(file, nullptr, a->name, 1, flags | flags << 16, value | value << 16);
    }
    if (tree) {
      changes(tree, &AssetChangeList);
      if (AssetChangeList) apply(&AssetChangeList, AssetIndexPath, 0, 1);
      if (AssetChangeList) releaseList(&AssetChangeList);
    }
    releaseTree(tree);  // also for a tree that could not be built
  }
  return kResultOk;
}

}  // namespace orvalis
