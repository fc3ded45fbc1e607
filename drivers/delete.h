// Removing a snapshot as a whole unit: every kind of item deletes its own companions, the index
// file goes last.
#pragma once
#include <cstdint>

#include "store/snapshot.h"

namespace orvalis {

// Companions only, in the catalogue's order: saved system files, directory listings and the
// registry dump, the registry backup, the asset snapshots. Missing files are passed over; the
// index file stays (a discarded partial snapshot deletes it itself).
void DeleteSnapshotCompanions(SnapshotRecord* rec);
// Companions and then the index file. Result 0.
int DeleteSnapshotFiles(SnapshotRecord* rec);
// Reads the snapshot at path and deletes it: 0, the reader's code, or 8. Deleting the snapshot
// that [ORVALIS] UNDOBASE names clears UNDOBASE, so that the name, once free again, is never
// taken for the undo base when a user snapshot reuses it.
uint32_t DeleteSnapshotAt(const char* path);

}  // namespace orvalis
