// The entry points of the companion libraries, as the engine resolves them by exported name
// (leading underscore included) and calls them: cdecl, ANSI strings, 0 for success. One
// declaration for the engine and the libraries, so both sides agree on every argument.
// 16-bit arguments travel widened to 32 bits.
#pragma once
#include <stdint.h>

#include "base/changetree.h"

#ifndef _WIN32
#define __cdecl
#endif

#ifdef __cplusplus
extern "C" {
#endif

// ---- MARLOW.DLL: registry trees ---------------------------------------------------------------
// Dumps the whole registry into one file. compression: 0 stored plain; 1 and 1024 imploded with a
// 1024-byte dictionary; 2048 and 4096 with that dictionary.
typedef int(__cdecl* EntireRegToFileFn)(const char* path, int compression);
// One key and its subtree from a dump: 3 when the key is not in it, 13 when the file is corrupt.
typedef int(__cdecl* RegKeyFromFileFn)(const char* file, ChangeNode** out, int side, const char* key);
// One key and its subtree from the live registry (third argument always 1): 3 when it does not
// exist (the tree is then empty).
typedef int(__cdecl* RegKeyToTreeFn)(ChangeNode** out, const char* key, int one, int side);
// Marks the differences in *first against second (null: a listing).
typedef int(__cdecl* RegCompareTreesFn)(ChangeNode** first, ChangeNode* second, uint32_t* scratch);
// Makes the live registry equal to the first side of a tree compared against it (mode always 1).
typedef int(__cdecl* TreeUpdateRegFn)(ChangeNode* tree, int mode);
// Saves one key with its subtree into folder / makes the live key equal to that save again
// (2 when the folder holds no save of the key).
typedef int(__cdecl* NTSaveRegKeyFn)(const char* key, const char* folder);
typedef int(__cdecl* NTRestoreRegKeyFn)(const char* key, const char* folder);
typedef void(__cdecl* FreeRegTreeFn)(ChangeNode* tree);

// ---- CORVID.DLL: installed-program assets ------------------------------------------------------
// The change list of an asset restore: the library's own record, opaque to the engine.
typedef struct AssetChange AssetChange;

// Records every file the asset matches into the companion and indexes it in indexPath; *result
// (set by the caller to the profile's value) becomes non-zero when at least one file matched.
// options: 0x1000 subfolders, 0x2000 keep contents (restorable).
typedef int(__cdecl* SnapResFromWildcardFn)(const char* asset, const char* indexPath, const char* companion,
                                            uint16_t* result, uint32_t options);
typedef int(__cdecl* AssetsFromSnapshotFn)(const char* companion, const char* asset, ChangeNode** out, int side,
                                           uint32_t value, uint32_t flags);
// 3 when the asset's folder does not exist.
typedef int(__cdecl* AssetsFromLiveFn)(const char* asset, ChangeNode** out, int mode, uint16_t* value,
                                       uint32_t flags);
typedef int(__cdecl* AssetTreeCompareFn)(ChangeNode** first, ChangeNode* second, uint16_t* scratch, uint32_t flags);
// The changes that bring the live system back to the first side; *out null when none.
typedef int(__cdecl* AssetChgListFn)(ChangeNode* tree, AssetChange** out);
typedef int(__cdecl* AssetChgListRestoreFn)(AssetChange** list, const char* indexPath, int zero, int one);
typedef void(__cdecl* FreeAssetChgListFn)(AssetChange** list);
typedef void(__cdecl* FreeAssetTreeFn)(ChangeNode* tree);
// Forgets one asset snapshot (the companion name an ASSETINFO record stores) and deletes its
// companion when nothing else in the index refers to it.
typedef int(__cdecl* DeleteAssetSnapshotFn)(const char* indexPath, const char* name);

#ifdef __cplusplus
}
#endif
