// Registry keys: a dump of the whole registry made by MARLOW.DLL and one REGINFO record per
// watched key, the registry backup (REGNT folder of saved keys on NT, REGBACK copies of USER.DAT
// and SYSTEM.DAT on Windows 95/98), the change trees of a key between two sides, the REGKEYXML
// document, and their removal.
#pragma once
#include <cstdint>
#include <cstdio>

#include "base/changetree.h"
#include "base/report_text.h"
#include "profiles/profile.h"
#include "store/snapshot.h"

namespace orvalis {

// ---- Capture stages (each 0, or its own code; the creation driver only logs it) --------------
// REGINFO: one dump of the whole registry, shared by a record per profile key. 13 without a
// backslash in the index path; the loader's error when MARLOW.DLL or its entry is missing (no
// section then); the library's code when the dump fails (empty section, dump deleted).
int WriteRegInfo(FILE* f, const Profile* profile, SnapshotRecord* rec);
// REGBACK (Windows 95/98): copies of USER.DAT and SYSTEM.DAT. 0 at once when SaveRegistryData is
// 0 (no section at all); otherwise the SYSTEM half's result: a failed USER half alone does not
// fail the stage.
int WriteRegBackInfo(FILE* f, SnapshotRecord* rec);
// REGNT (NT): every listed key saved by MARLOW.DLL into one new "NT" folder. The result of the
// last key's save only (110 when no folder could be made, 0 without keys).
int WriteNTRegRestoreInfo(FILE* f, SnapshotRecord* rec);
// Copies (compress 0) or implodes a registry data file after flushing the registry; its
// attributes are cleared for the copy and put back. 0 without copying when they cannot be
// cleared. *crc: the source's CRC-32 when imploded, untouched by a plain copy.
int CopyRegistryFile(const char* source, const char* target, int compress, uint32_t* crc);

// ---- Comparison -------------------------------------------------------------------------------
// The change tree of one key: two dumps, a dump and the live registry, a dump alone (a listing)
// or the live key alone (first null, live set). Null for every failure. The tree is released
// with FreeRegChangeTree.
ChangeNode* BuildRegChangeTree(const char* first, const char* second, const char* key, int live);
void FreeRegChangeTree(ChangeNode* tree);

// ---- The difference report ------------------------------------------------------------------
// One item per registry key of the older snapshot, compared with the newer snapshot's dump of the
// same key or, with newer null, the live registry. A key the newer snapshot lacks has no tree.
ReportTreeItem* CompareSnapshotRegistry(const SnapshotRecord* older, const SnapshotRecord* newer);

// ---- The REGKEYXML document ------------------------------------------------------------------
// One value's data as the document and the report show it: string types as escaped text, the
// two number types through the runtime's _ltoa, anything else as a hex dump.
void WriteRegValueData(FILE* out, const ChangeNode* value);
// 0, 2 (destination cannot be opened, after the destination box) or 8.
uint32_t WriteRegKeyXml(const ChangeNode* tree, const char* destination, bool listing);
// The export's work: 87 when a named snapshot does not list the key or there is no side, else 0.
uint32_t WriteRegComparison(const char* first, const char* second, const char* key, const char* destination,
                            int live);

// ---- Restore ----------------------------------------------------------------------------------
// Windows 95/98: every key's differences between its dump and the live registry written back.
// 0, 13 without a backslash in the index path, or the loader's error.
int RestoreRegistryTrees(const SnapshotRecord* rec);
// NT: every key loaded back from the snapshot's save folder. The last key's result only; 13 when
// the snapshot names no save folder or its path has no backslash; the loader's error.
int RestoreRegistryHives(const SnapshotRecord* rec);

// ---- Removal ---------------------------------------------------------------------------------
// Deletes the registry dump and the registry backup of a snapshot from its data folder: the NT
// folder emptied and removed, or the two 9x copies deleted (their names then cleared in the
// record). The platform flag decides which the record holds.
void DeleteRegistryCompanions(SnapshotRecord* rec, const char* dataFolder);

}  // namespace orvalis
