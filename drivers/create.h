// Snapshot creation: the driver that writes an index file section by section and calls each
// capture stage in its fixed order, the undo base a restore takes first, and the clean-up of a
// half-written snapshot.
#pragma once
#include <cstdint>
#include <cstdio>

#include "store/snapshot.h"

namespace orvalis {

// Result 8 only when the two records cannot be allocated; 0 otherwise, failures included: a
// failed stage is logged and its partial snapshot deleted. destination may be null (module
// folder), description null (the profile's), time 0 (now).
uint32_t CreateSnapshot(const char* profilePath, const char* destination, const char* description, uint32_t time,
                        uint16_t flags);
// The undo base: the watched items of `restoring`, taken from the live system, in the module
// folder (destination null) with flag 0x4000; the previous undo base is deleted first and the
// new name kept in [ORVALIS] UNDOBASE.
// keep: the full path of a snapshot that must survive even when it is the previous undo base (the
// snapshot being restored: the restore deletes it itself once it has copied from it).
uint32_t CreateUndoBaseSnapshot(const SnapshotRecord* restoring, const char* destination, uint16_t flags,
                                const char* keep = nullptr);
// Closes the index file, deletes every companion the record names and the index file, and
// frees the record.
void DiscardPartialSnapshot(SnapshotRecord* rec, FILE* index);

// The creation exports' common path: profile lookup rules and destination. kind is the flags.
uint32_t CreateFromDefaultProfile(const char* description, uint16_t flags);
uint32_t CreateFromSpecifiedProfile(const char* profile, const char* description, uint16_t flags);

}  // namespace orvalis
