// System file capture: copies of the profile's system files in the data folder, listed in
// FILEINFO. A file that cannot be copied is simply left out of the snapshot.
#pragma once
#include <cstdint>
#include <cstdio>

#include "items/sysfiles/filecompare.h"
#include "profiles/profile.h"
#include "store/snapshot.h"

namespace orvalis {

// "<windows>" and "<system>" (any case) at the start of a path: 1 with the resolved path in out
// (260), 0 when the path has no ">" or the token is unknown.
int ResolvePathToken(const char* path, char* out);
// The FILEINFO section. 0, or 13 when the index path holds no backslash (nothing written).
int WriteFileInfo(FILE* f, const Profile* profile, SnapshotRecord* rec);
// The SYSFILE difference document of one system file between two snapshots (index names beside
// the engine, either may be null) or a snapshot and the live file (live non-zero). 0 written; 87
// a named snapshot has no record of the file or there is nothing to compare; 8 no memory; 2 the
// output cannot be created (after the destination box).
uint32_t WriteSysFileComparison(const char* older, const char* newer, const char* file, const char* output, int live);
// The difference report's files: one compared item per system file of the older snapshot (with
// newer null, against the live file), then one per file only the newer snapshot holds.
FileCompareItem* CompareSnapshotFiles(const SnapshotRecord* older, const SnapshotRecord* newer);
void FreeFileCompareItems(FileCompareItem* list);
// The files section: the heading, then per item its path and its changed lines (unsorted: every
// change in order; sorted: removals, additions, newer texts) or INI sections and entries.
void PrintFilesSection(FILE* f, const char* heading, const FileCompareItem* items, bool sorted);
// The restore's system-file step: every saved copy back over its file, attributes kept. 13 when
// the index path has no backslash (nothing copied), else 0; single copies are not checked.
int RestoreSystemFiles(const SnapshotRecord* rec);
// Deletes the saved copies of a snapshot's system files from its data folder.
void DeleteSysFileCopies(const SnapshotRecord* rec, const char* dataFolder);

}  // namespace orvalis
