// Installed-program assets: recorded by CORVID.DLL into one shared companion per snapshot and
// indexed in the data folder's "MASTER.IDX"; ASSETINFO lists one record per asset entry (path,
// companion, the library's result, the profile's options). Capture stage, change trees, the
// ASSETXML document and removal.
#pragma once
#include <cstdint>
#include <cstdio>

#include "base/changetree.h"
#include "base/report_text.h"
#include "profiles/profile.h"
#include "store/snapshot.h"

namespace orvalis {

// Option bits of an asset entry that the engine itself reads.
constexpr uint32_t kAssetSubfolders = 0x1000;
constexpr uint32_t kAssetContents = 0x2000;  // the files' contents are kept: the asset restores

// ASSETINFO: 0; 13 when the index path has no backslash; 1154 when CORVID.DLL or its capture
// entry cannot be had (no section at all then).
int WriteAssetInfoSection(FILE* f, const Profile* profile, SnapshotRecord* rec);

// The change tree of one asset between two companions, a companion and the live files, a
// companion alone or the live files alone. flags and value each pack two 16-bit fields: the low
// half for side 1 (or the only side), the high half for side 2 (or the live side). Null for every
// failure. Released with FreeAssetChangeTree.
ChangeNode* BuildAssetChangeTree(const char* first, const char* second, const char* asset, int live, uint32_t flags,
                                 uint32_t value);
void FreeAssetChangeTree(ChangeNode* tree);

// One report item per asset of the older snapshot, compared with the newer snapshot's record of
// it or, with newer null, the live files.
ReportTreeItem* CompareSnapshotAssets(const SnapshotRecord* older, const SnapshotRecord* newer);

// The ASSETXML document: 0, 2 (destination cannot be opened, after the destination box) or 8.
uint32_t WriteAssetXml(const ChangeNode* tree, const char* destination, bool listing);
// The export's work: 87 when a named snapshot does not list the asset or there is no side, else 0.
uint32_t WriteAssetComparison(const char* first, const char* second, const char* asset, const char* destination,
                              int live);

// The restore's asset step: every asset entry kept with its contents (0x2000) brought back through
// the library's change list. 0; 1154 without the library; 1 when an entry point is missing; 13
// without a backslash in the index path. AssetIndexPath and AssetChangeList keep their last
// values after the call.
int RestoreAssets(const SnapshotRecord* rec);
extern char AssetIndexPath[260];
extern struct AssetChange* AssetChangeList;

// Forgets the snapshot's asset snapshots through the asset library, one call per entry with the
// entry's own companion name, so no other snapshot's assets are touched. 0, or 1154 when the
// library or its entry point cannot be had (nothing deleted then).
int DeleteAssetSnapshots(const SnapshotRecord* rec, const char* dataFolder);

}  // namespace orvalis
