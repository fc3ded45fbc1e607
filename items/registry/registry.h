// Registry keys: a dump of the whole registry made by MARLOW.DLL and one REGINFO record per
// watched key, the registry backup (REGNT folder of saved keys on NT, REGBACK copies of USER.DAT
// and SYSTEM.DAT on Windows 95/98), and their removal.
#pragma once
#include "store/snapshot.h"

namespace orvalis {

// Deletes the registry dump and the registry backup of a snapshot from its data folder: the NT
// folder emptied and removed, or the two 9x copies deleted (their names then cleared in the
// record). The platform flag decides which the record holds.
void DeleteRegistryCompanions(SnapshotRecord* rec, const char* dataFolder);

}  // namespace orvalis
