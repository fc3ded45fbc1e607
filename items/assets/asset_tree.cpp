#include <windows.h>

#include "base/companion_api.h"
#include "engine/context.h"
#include "engine/libraries.h"
#include "items/assets/assets.h"

namespace orvalis {

ChangeNode* BuildAssetChangeTree(const char* first, const char* second, const char* asset, int live, uint32_t flags,
                                 uint32_t value) {
  InitEngine();
  CompanionLibrary lib(LoadAssetLibrary());
  if (!lib) return nullptr;
  auto fromSnapshot = LibraryEntry<AssetsFromSnapshotFn>(lib.get(), "_AssetsFromSnapshot");
  auto fromLive = LibraryEntry<AssetsFromLiveFn>(lib.get(), "_AssetsFromLive");
  auto compare = LibraryEntry<AssetTreeCompareFn>(lib.get(), "_AssetTreeCompare");
  auto release = LibraryEntry<FreeAssetTreeFn>(lib.get(), "_FreeAssetTree");
  if (!fromSnapshot || !fromLive || !compare || !release) return nullptr;
  const uint16_t flags1 = static_cast<uint16_t>(flags & 0xFFFF), flags2 = static_cast<uint16_t>(flags >> 16);
  uint16_t value1 = static_cast<uint16_t>(value & 0xFFFF), value2 = static_cast<uint16_t>(value >> 16);
  ChangeNode* t1 = nullptr;
  if (!first) {
    if (!live) return nullptr;
    if (fromLive(asset, &t1, 1, &value1, flags1) != 0) {
      release(t1);
      t1 = nullptr;
    }
    return t1;
  }
  if (fromSnapshot(first, asset, &t1, 1, value1, flags1) != 0) {
    release(t1);
    return nullptr;
  }
  ChangeNode* t2 = nullptr;
  if (second) {
    if (fromSnapshot(second, asset, &t2, 2, value2, flags2) != 0) {
      release(t1);
      return nullptr;
    }
  } else if (live) {
    // A folder that is gone (3) still compares: everything in it was removed.
    const int r = fromLive(asset, &t2, (flags2 & kAssetContents) | 2, &value2, flags2);
    if (r != 0 && r != 3) {
      release(t1);
      release(t2);
      return nullptr;
    }
  }
  uint16_t scratch = 0;
  if (compare(&t1, t2, &scratch, flags1) != 0) {
    release(t1);
    release(t2);
    return nullptr;
  }
  // Kept as it is: on success the second tree is deliberately not released here, unlike the
  // registry builder's.
  return t1;
}

void FreeAssetChangeTree(ChangeNode* tree) {
  if (!tree) return;
  CompanionLibrary lib(LoadAssetLibrary());
  if (auto release = LibraryEntry<FreeAssetTreeFn>(lib.get(), "_FreeAssetTree")) release(tree);
}

}  // namespace orvalis
