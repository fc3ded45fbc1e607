// The engine's exported functions: C calling convention, exported as "_" + name (halvern.def).
// The user interface, the scheduler and orvalis.exe call these and nothing else.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define ORVALIS_API __cdecl

// Settings
int ORVALIS_API GetMaxSnapshot(void);
int ORVALIS_API SetMaxSnapshot(const char* value);
int ORVALIS_API GetSchedule(void);
int ORVALIS_API SetSchedule(const char* value);

// Creation
unsigned long ORVALIS_API CreateSnapshotFromDefaultProfile(const char* description);
unsigned long ORVALIS_API CreateSnapshotFromSpecifiedProfile(const char* profile, const char* description);
unsigned long ORVALIS_API CreateScheduledSnapshotFromDefaultProfile(const char* description);
unsigned long ORVALIS_API CreateScheduledSnapshotFromSpecifiedProfile(const char* profile, const char* description);
unsigned long ORVALIS_API CreateInitialSnapshotFromDefaultProfile(const char* description);
unsigned long ORVALIS_API CreateInitialSnapshotFromSpecifiedProfile(const char* profile, const char* description);

// Catalogue and lists
unsigned long ORVALIS_API GetSnapshotList(const char* outFolder, const char* outName);
unsigned long ORVALIS_API DeleteSnapshot(const char* name);
unsigned long ORVALIS_API RenameSnapshot(const char* name, const char* description);
unsigned long ORVALIS_API GetProfileList(const char* outFolder, const char* outName);
unsigned long ORVALIS_API ExportSnapshot(const char* name, const char* packagePath);
unsigned long ORVALIS_API ImportSnapshot(const char* packagePath, const char* folder);
// Beyond the 38: checks a snapshot's or a package's companions against their CRC-32s.
unsigned long ORVALIS_API VerifySnapshot(const char* name, const char* report);

// Text reports
unsigned long ORVALIS_API CreateReportOfSnapshotDifferences(const char* older, const char* newer, const char* report);
unsigned long ORVALIS_API CreateReportOfFileDifferences(const char* older, const char* newer, const char* report,
                                                        int append);
unsigned long ORVALIS_API CreateReportOfRegistryDifferences(const char* older, const char* newer, const char* report,
                                                            int append);
unsigned long ORVALIS_API CreateReportOfDirectoryDifferences(const char* older, const char* newer, const char* report,
                                                             int append);
unsigned long ORVALIS_API CreateReportOfAssetDifferences(const char* older, const char* newer, const char* report,
                                                         int append);
unsigned long ORVALIS_API CreateReportOfSysInfoDifferences(const char* older, const char* newer, const char* report,
                                                           int append);
unsigned long ORVALIS_API CreateReportOfDriveDifferences(const char* older, const char* newer, const char* report,
                                                         int append);

// XML documents
unsigned long ORVALIS_API CompareFilestoXML(const char* older, const char* newer, const char* file, const char* output,
                                            int live);
unsigned long ORVALIS_API CompareRegtoXML(const char* older, const char* newer, const char* key, const char* output,
                                          int live);
unsigned long ORVALIS_API CompareDirtoXML(const char* older, const char* newer, const char* directory,
                                          const char* output, int live);
unsigned long ORVALIS_API SnapshotInfoXML(const char* snapshot, const char* output);
unsigned long ORVALIS_API CompareAssettoXML(const char* older, const char* newer, const char* asset, const char* output,
                                            int live);

// Restore
unsigned long ORVALIS_API RestoreFromSpecifiedSnapshot(const char* snapshot);
unsigned long ORVALIS_API RestoreFromInitialSnapshot(void);
unsigned long ORVALIS_API RestoreFromMostRecentSnapshot(void);
unsigned long ORVALIS_API RestoreFromUndoSnapshot(void);
unsigned long ORVALIS_API RestoreFromSpecifiedSnapshotSelect(void);
unsigned long ORVALIS_API RestoreFromInitialSnapshotSelect(void);
unsigned long ORVALIS_API RestoreFromMostRecentSnapshotSelect(void);
unsigned long ORVALIS_API RestoreFromUndoSnapshotSelect(void);
unsigned long ORVALIS_API RestoreFromSpecifiedSnapshotReboot(const char* snapshot);
unsigned long ORVALIS_API RestoreFromSpecifiedSnapshotDelayReboot(const char* snapshot, long delay);

#ifdef __cplusplus
}
#endif
