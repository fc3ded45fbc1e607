// The snapshot catalogue: the snapshots beside the engine as whole units.
#pragma once
#include <cstdint>

namespace orvalis {

// The snapshot list document of every "*.BCF" of folder (ending in "\") into outPath: 0; 8 when
// the work buffer cannot be had; 110 when the output cannot be opened (after "open failed").
uint32_t WriteSnapshotList(const char* folder, const char* outPath);
// Replaces the description line, keeping the file's time: 0, or -1.
int RenameSnapshotAt(const char* path, const char* description);
// The last line of FLAGS, or "Imported" when its number has 0x1000 set; -1 when unreadable.
int ReadSnapshotFlagsText(const char* path, char* out);

}  // namespace orvalis
