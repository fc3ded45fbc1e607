// Exports whose operations are not built yet. Each answers ERROR_CALL_NOT_IMPLEMENTED (120)
// so a caller can tell "not available in this build" from a failure of the operation.
#include "base/results.h"
#include "exports/exports.h"

using orvalis::kResultNotAvailable;

extern "C" unsigned long ExportSnapshot(const char*, const char*) { return kResultNotAvailable; }
extern "C" unsigned long ImportSnapshot(const char*, const char*) { return kResultNotAvailable; }
extern "C" unsigned long SnapshotInfoXML(const char*, const char*) { return kResultNotAvailable; }
extern "C" unsigned long RestoreFromSpecifiedSnapshot(const char*) { return kResultNotAvailable; }
extern "C" unsigned long RestoreFromInitialSnapshot(void) { return kResultNotAvailable; }
extern "C" unsigned long RestoreFromMostRecentSnapshot(void) { return kResultNotAvailable; }
extern "C" unsigned long RestoreFromUndoSnapshot(void) { return kResultNotAvailable; }
extern "C" unsigned long RestoreFromSpecifiedSnapshotSelect(void) { return kResultNotAvailable; }
extern "C" unsigned long RestoreFromInitialSnapshotSelect(void) { return kResultNotAvailable; }
extern "C" unsigned long RestoreFromMostRecentSnapshotSelect(void) { return kResultNotAvailable; }
extern "C" unsigned long RestoreFromUndoSnapshotSelect(void) { return kResultNotAvailable; }
extern "C" unsigned long RestoreFromSpecifiedSnapshotReboot(const char*) { return kResultNotAvailable; }
extern "C" unsigned long RestoreFromSpecifiedSnapshotDelayReboot(const char*, long) { return kResultNotAvailable; }
