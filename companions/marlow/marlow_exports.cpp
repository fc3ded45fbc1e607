// The exported entry points of MARLOW.DLL (names with the leading underscore in marlow.def).
// Each is a thin shell: argument checks and the results the engine expects; the work is in
// marlow_win.cpp. Every entry point is cdecl and takes ANSI strings; 0 is success.
#include <windows.h>

#include "base/companion_api.h"
#include "companions/marlow/marlow_win.h"
#include "companions/marlow/regtree.h"

extern "C" {

// _EntireRegToFile (path, compression): the whole registry (HKLM, HKCU, HKCR, HKU, HKCC) into
// one dump. compression 0 stored, 1/1024 imploded with a 1024-byte dictionary, 2048, 4096.
// 0; 87 unknown compression; 29 write failure; 8 no memory. A failed dump is deleted.
int __cdecl EntireRegToFile(const char* path, int compression) {
  static const int roots[] = {marlow::kRootHklm, marlow::kRootHkcu, marlow::kRootHkcr, marlow::kRootHku,
                              marlow::kRootHkcc};
  return marlow::DumpRegistry(path, compression, roots, 5);
}

// _RegKeyFromFile (dump, out tree, side 1/2, key path): 0; 2 no file; 3 key not in the dump;
// 13 not a dump of ours, cut short or damaged; 87 no key path or an unknown root.
int __cdecl RegKeyFromFile(const char* file, ChangeNode** out, int side, const char* key) {
  if (!out) return ERROR_INVALID_PARAMETER;
  return marlow::ReadDumpKey(file, key, out);
}

// _RegKeyToTree (out tree, key path, 1, side): 0; 3 when the key does not exist (the tree is
// then the key's node alone).
int __cdecl RegKeyToTree(ChangeNode** out, const char* key, int one, int side) {
  if (!out) return ERROR_INVALID_PARAMETER;
  return marlow::ReadLiveKey(key, out);
}

// _RegCompareTrees (address of first, second or null, out count): marks the differences in the
// first tree; *scratch (may be null) receives the number of nodes marked. The second tree stays
// the caller's to free (the nodes moved out of it are no longer in it).
int __cdecl RegCompareTrees(ChangeNode** first, ChangeNode* second, uint32_t* scratch) {
  if (!first) return ERROR_INVALID_PARAMETER;
  size_t n = marlow::CompareTrees(*first, second);
  if (scratch) *scratch = static_cast<uint32_t>(n);
  return 0;
}

// _TreeUpdateReg (compared tree, 1): writes the first side's state of every flagged node back
// into the live key the tree was read for. 0, or the last registry error met (the rest is
// still done).
int __cdecl TreeUpdateReg(ChangeNode* tree, int mode) { return marlow::UpdateLive(tree); }

// _NTSaveRegKey (key path, folder): the key and its subtree into a save file of the folder
// (K<crc of the key path>.MRK). 0; 3 no such key; 29 write failure.
int __cdecl NTSaveRegKey(const char* key, const char* folder) {
  return marlow::SaveKey(key, folder);
}

// _NTRestoreRegKey (key path, folder): the live key made equal to its save. 0; 2 no save of
// that key in the folder; 13 a damaged save.
int __cdecl NTRestoreRegKey(const char* key, const char* folder) {
  return marlow::RestoreKey(key, folder);
}

// _FreeRegTree (tree): accepts null.
void __cdecl FreeRegTree(ChangeNode* tree) { marlow::FreeTree(tree); }

}  // extern "C"

// Each entry point keeps the engine's exact type.
static EntireRegToFileFn const kCheck1 [[maybe_unused]] = EntireRegToFile;
static RegKeyFromFileFn const kCheck2 [[maybe_unused]] = RegKeyFromFile;
static RegKeyToTreeFn const kCheck3 [[maybe_unused]] = RegKeyToTree;
static RegCompareTreesFn const kCheck4 [[maybe_unused]] = RegCompareTrees;
static TreeUpdateRegFn const kCheck5 [[maybe_unused]] = TreeUpdateReg;
static NTSaveRegKeyFn const kCheck6 [[maybe_unused]] = NTSaveRegKey;
static NTRestoreRegKeyFn const kCheck7 [[maybe_unused]] = NTRestoreRegKey;
static FreeRegTreeFn const kCheck8 [[maybe_unused]] = FreeRegTree;
