// Moving and checking snapshots: a snapshot and every companion it names packed into one file,
// a package read back as a new snapshot, and a snapshot's companions checked against their
// recorded CRC-32s.
#pragma once
#include <cstdint>

namespace orvalis {

// name: an index file name beside the engine. 0; 2 the snapshot or a companion it names is
// missing; 13 the snapshot cannot be read or names a companion badly; 8 no memory; 29 the package
// could not be written whole (nothing is left of it then).
uint32_t ExportSnapshotPackage(const char* name, const char* packagePath);

// Reads a package into folder (null or empty: the engine's folder) as a new snapshot: a fresh
// "BASE" name, fresh companion names written into its records, flag 0x1000. Nothing is
// overwritten, and a failure half-way leaves nothing behind. 0; 2 no package; 13 a damaged or
// foreign package, or one naming an entry with a folder part, "..", a drive or a device; 8; 29.
// newName (260, may be null) receives the new index file's name.
uint32_t ImportSnapshotPackage(const char* packagePath, const char* folder, char* newName);

// Checks a snapshot (an index file name beside the engine) or a package (any other path): every
// companion the index names is there and every recorded CRC-32 matches (directory listings,
// registry data copies; the registry dump and the asset records through their libraries, which
// check their own CRCs). Writes one line per finding into reportPath. 0 intact; 13 damaged; 2 the
// snapshot is missing; 110 the report cannot be opened.
uint32_t VerifySnapshotFiles(const char* name, const char* reportPath);

}  // namespace orvalis
