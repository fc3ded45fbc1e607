#include <windows.h>

#include "base/companion_api.h"
#include "engine/context.h"
#include "engine/libraries.h"
#include "items/registry/registry.h"

namespace orvalis {

ChangeNode* BuildRegChangeTree(const char* first, const char* second, const char* key, int live) {
  InitEngine();
  CompanionLibrary lib(LoadRegistryLibrary());
  if (!lib) return nullptr;
  auto fromFile = LibraryEntry<RegKeyFromFileFn>(lib.get(), "_RegKeyFromFile");
  auto toTree = LibraryEntry<RegKeyToTreeFn>(lib.get(), "_RegKeyToTree");
  auto compare = LibraryEntry<RegCompareTreesFn>(lib.get(), "_RegCompareTrees");
  auto release = LibraryEntry<FreeRegTreeFn>(lib.get(), "_FreeRegTree");
  if (!fromFile || !toTree || !compare || !release) return nullptr;
  ChangeNode* t1 = nullptr;
  if (!first) {
    if (!live) return nullptr;
    // A one-sided listing of the live key.
    if (toTree(&t1, key, 1, 1) != 0) {
      release(t1);
      t1 = nullptr;
    }
    return t1;
  }
  if (fromFile(first, &t1, 1, key) != 0) {
    release(t1);
    return nullptr;
  }
  ChangeNode* t2 = nullptr;
  if (second) {
    if (fromFile(second, &t2, 2, key) != 0) {
      release(t1);
      release(t2);  // the library's reader leaves nothing to free on failure; freeing null is harmless
      return nullptr;
    }
  } else if (live) {
    // A key that is gone from the live registry (3) still compares: everything in it was removed.
    const int r = toTree(&t2, key, 1, 2);
    if (r != 0 && r != 3) {
      release(t1);
      release(t2);
      return nullptr;
    }
  }
  uint32_t scratch = 0;
  const int r = compare(&t1, t2, &scratch);
  release(t2);
  if (r != 0) {
    release(t1);
    t1 = nullptr;
  }
  return t1;
}

void FreeRegChangeTree(ChangeNode* tree) {
  if (!tree) return;
  CompanionLibrary lib(LoadRegistryLibrary());
  if (auto release = LibraryEntry<FreeRegTreeFn>(lib.get(), "_FreeRegTree")) release(tree);
}

}  // namespace orvalis
