// Installed-program assets: recorded by CORVID.DLL into one shared companion per snapshot and
// indexed in the data folder's "MASTER.IDX"; ASSETINFO lists one record per asset entry.
#pragma once
#include "store/snapshot.h"

namespace orvalis {

// Forgets the snapshot's asset snapshots through the asset library, one call per entry with the
// entry's own companion name, so no other snapshot's assets are touched. 0, or 1154 when the
// library or its entry point cannot be had (nothing deleted then).
int DeleteAssetSnapshots(const SnapshotRecord* rec, const char* dataFolder);

}  // namespace orvalis
