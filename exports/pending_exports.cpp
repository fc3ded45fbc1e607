// Exports whose operations are not built yet. Each answers ERROR_CALL_NOT_IMPLEMENTED (120)
// so a caller can tell "not available in this build" from a failure of the operation.
#include <windows.h>

#include "exports/exports.h"

extern "C" unsigned long ExportSnapshot(const char*, const char*) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long ImportSnapshot(const char*, const char*) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long CreateReportOfSnapshotDifferences(const char*, const char*, const char*) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long CreateReportOfFileDifferences(const char*, const char*, const char*, int) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long CreateReportOfRegistryDifferences(const char*, const char*, const char*, int) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long CreateReportOfDirectoryDifferences(const char*, const char*, const char*, int) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long CreateReportOfAssetDifferences(const char*, const char*, const char*, int) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long CreateReportOfSysInfoDifferences(const char*, const char*, const char*, int) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long CreateReportOfDriveDifferences(const char*, const char*, const char*, int) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long CompareRegtoXML(const char*, const char*, const char*, const char*, int) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long SnapshotInfoXML(const char*, const char*) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long CompareAssettoXML(const char*, const char*, const char*, const char*, int) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long RestoreFromSpecifiedSnapshot(const char*) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long RestoreFromInitialSnapshot(void) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long RestoreFromMostRecentSnapshot(void) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long RestoreFromUndoSnapshot(void) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long RestoreFromSpecifiedSnapshotSelect(void) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long RestoreFromInitialSnapshotSelect(void) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long RestoreFromMostRecentSnapshotSelect(void) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long RestoreFromUndoSnapshotSelect(void) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long RestoreFromSpecifiedSnapshotReboot(const char*) { return ERROR_CALL_NOT_IMPLEMENTED; }
extern "C" unsigned long RestoreFromSpecifiedSnapshotDelayReboot(const char*, long) { return ERROR_CALL_NOT_IMPLEMENTED; }
