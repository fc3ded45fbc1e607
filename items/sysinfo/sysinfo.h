// System information and drives: the SYSINFO and DRIVES sections of a snapshot, the same data
// from the live machine, their comparison, and their text and XML renderings.
#pragma once
#include <windows.h>

#include <cstdint>
#include <cstdio>

#include "store/snapshot.h"

namespace orvalis {

// ---- Processor identification ------------------------------------------------------------
struct CpuidRegs {
  uint32_t eax, ebx, ecx, edx;
};
using CpuidSource = void (*)(uint32_t leaf, CpuidRegs* out);
// Replaces the CPUID instruction (tests); null restores the real one.
void SetCpuidSource(CpuidSource source);
// May CPUID be used: not when NO_CPUID_SUPPORT is set, else when the processor type is 586+.
bool CpuidAvailable();
// The 12-character vendor string into out (13 bytes); false when CPUID may not be used.
bool ProcessorVendor(char* out);
// The processor name as a 49-byte heap string, or null (CPUID not usable, unknown family).
char* IdentifyProcessor();

// ---- Collection and sections -------------------------------------------------------------
// The items 1, 2, 3, 5, 9 and 16 of the live machine, appended to rec->sysInfo. 0, or -1 when
// a node cannot be allocated (the list so far stays attached).
int CollectSysInfo(SnapshotRecord* rec);
int WriteSysInfoSection(FILE* f, SnapshotRecord* rec);
// The 26-entry drive table of the live machine, attached to rec. 0.
int CollectDrives(SnapshotRecord* rec);
int WriteDrivesSection(FILE* f, SnapshotRecord* rec);
// Free and total kilobytes of a drive root ("C:\"); both 0 when unknown. Always 1.
int GetDriveSpaceKB(const char* root, uint32_t* freeKB, uint32_t* totalKB);
// GetDiskFreeSpaceA figures to kilobytes with the product's overflow guard of 0x10000.
uint32_t ClustersToKB(uint32_t clusters, uint32_t sectorsPerCluster, uint32_t bytesPerSector);

// ---- Comparison --------------------------------------------------------------------------
struct SysInfoChange {
  uint16_t flags;  // 1 = changed
  SysInfoChange* next;
  uint16_t item;
  char text[256];  // label TAB old value TAB new value
};

struct DriveChange {
  uint16_t flags;  // 1 old present, 2 new present, 4 network name differs, 8 line without letter
  DriveChange* next;
  uint16_t drive;
  uint32_t type;
  char text[160];
};

// What the report writers need: the change lists and the two column labels (the caller puts
// the snapshots' display names there, 31 characters at most).
struct SysCompareResult {
  SysInfoChange* sysInfo;
  DriveChange* drives;
  char olderLabel[32];
  char newerLabel[32];
};

// One value as text (64 bytes); 1, or 0 for an item number that has no rendering.
int FormatSysInfoValue(const SysInfoItem* item, int32_t value, char* out);
// The two comparisons the difference report runs: the two snapshots' records (either may be
// null: a section missing on that side), the column labels filled from their descriptions. 0, or
// -1 when the drive list cannot be allocated (what was built is freed).
int CompareSysInfo(const SnapshotRecord* older, const SnapshotRecord* newer, SysCompareResult* result);
int CompareDrives(const SnapshotRecord* older, const SnapshotRecord* newer, SysCompareResult* result);
// The same on bare lists, labels left as the caller set them.
int CompareSysInfoLists(const SysInfoItem* older, const SysInfoItem* newer, SysCompareResult* result);
int CompareDriveTables(const DriveEntry* older, const DriveEntry* newer, SysCompareResult* result);
void FreeSysInfoChanges(SysInfoChange* list);
void FreeDriveChanges(DriveChange* list);

void WriteSysInfoReport(FILE* f, const SysCompareResult* result);
void WriteDrivesReport(FILE* f, const SysCompareResult* result);
void WriteSysInfoXml(char* line, FILE* f, const SysInfoItem* list);
void WriteDrivesXml(char* line, FILE* f, const DriveEntry* table);

}  // namespace orvalis
