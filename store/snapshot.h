// The snapshot index file (".BCF") and its in-memory record.
//
// Format notes. Text file, lines end in CR LF on disk. Layout in writing order:
//   FormatVersion=6                       (absent in version-0 files: line 1 is the description)
//   description
//   [TIMEDATE_START] packed [TIMEDATE_END]    [FLAGS_START] n [FLAGS_END]
//   [OSVERSION_START] n [OSVERSION_END]       [USERNAME_START] name [USERNAME_END]
//   [SYSINFO_START]  "item,value" or "item,text" (items 9 and 16) ...  [SYSINFO_END]
//   [DRIVES_START]   "letter,type,totalKB,freeKB,netName" ...           [DRIVES_END]
//   [REGINFO_START]  "key,companion,compression,0" ...                  [REGINFO_END]
//   [REGBACK_START]  "datafile,companion,flag,crc" (9x)  or  [REGNT_START] "key,folder" (NT)
//   [ASSETINFO_START] "asset,companion,result,options" ...              [ASSETINFO_END]
//   [DIRINFO_START]  "dir,companion,compressed,crc" ...                 [DIRINFO_END]
//   [FILEINFO_START] "path,companion,mark,packedtime" ...               [FILEINFO_END]
// Markers match case-insensitively, whole line. Records whose first field is a path that may
// hold commas (REGINFO, ASSETINFO, DIRINFO, REGBACK) are split from the right; FILEINFO, DRIVES
// and SYSINFO from the left. Version rules for old files: REGINFO of versions 0-1 and DIRINFO
// below 3 hold two fields; ASSETINFO numbers of versions 0-1 are ignored; DRIVES sizes below 4
// are bytes; version 0 has no FILEINFO markers, its file records follow [DRIVES_END].
#pragma once
#include <cstdint>
#include <cstdio>

namespace orvalis {

constexpr int kMaxPath = 260;
constexpr int kFormatVersion = 6;

// Snapshot flag bits (16-bit word; bits 0x0F00 never reach the file).
constexpr uint16_t kFlagImported = 0x1000;
constexpr uint16_t kFlagScheduled = 0x2000;
constexpr uint16_t kFlagUndoBase = 0x4000;
constexpr uint16_t kFlagInitial = 0x8000;
constexpr uint16_t kFlagFileMask = 0xF0FF;

struct SysInfoItem {
  uint16_t flags;  // 2 = matched (comparison only)
  SysInfoItem* next;
  uint16_t item;
  int32_t value;
  char* text;  // items 9 and 16 only
};

struct DriveEntry {
  uint32_t type;  // GetDriveTypeA value; 0 = no drive
  uint32_t freeKB;
  uint32_t totalKB;
  char netName[80];
};

// One captured system file (FILEINFO).
struct SnapFileEntry {
  uint16_t flags;  // 2 when the record's mark field is non-zero; capture adds the profile bits
  SnapFileEntry* next;
  char path[kMaxPath];
  char companion[kMaxPath];
  uint32_t time;  // DOS packed
};

// One registry key, asset or directory record: name, companion and two numbers
// (REGINFO: compression, 0; ASSETINFO: result, options; DIRINFO: compressed flag, CRC).
struct SnapGroupEntry {
  SnapGroupEntry* next;
  char name[kMaxPath];
  char companion[kMaxPath];
  int32_t first;
  uint32_t second;
};

// REGBACK (9x: the USER.DAT and SYSTEM.DAT copies) or REGNT (NT: userName is the folder).
struct RegBackupRecord {
  char userName[kMaxPath];
  int32_t userFlag;
  uint32_t userCrc;
  char systemName[kMaxPath];
  int32_t systemFlag;
  uint32_t systemCrc;
};

struct SnapshotRecord {
  uint16_t flags;
  uint32_t time;  // DOS packed
  char description[kMaxPath];
  char indexPath[kMaxPath];
  char indexName[kMaxPath];
  SysInfoItem* sysInfo;
  DriveEntry* drives;  // 26 entries, or null
  SnapFileEntry* files;
  SnapGroupEntry* regKeys;
  RegBackupRecord* regBackup;
  SnapGroupEntry* assets;
  SnapGroupEntry* dirs;
};

// Zero-filled record on the heap (null when out of memory); FreeSnapshotRecord frees it with
// every list. ClearSnapshotRecord frees the lists only.
SnapshotRecord* NewSnapshotRecord();
void ClearSnapshotRecord(SnapshotRecord* rec);
void FreeSnapshotRecord(SnapshotRecord* rec);
void FreeSysInfoList(SysInfoItem* list);

// Appends at the tail; the entry is zero-filled. Null when out of memory.
SnapFileEntry* AppendFileEntry(SnapshotRecord* rec);
SnapGroupEntry* AppendGroupEntry(SnapGroupEntry** head);

// ---- Reading --------------------------------------------------------------------------------
// Reads the whole index file into rec (whose lists must be empty). isNT picks REGNT over
// REGBACK. Returns 0, or -1 when the file cannot be opened, has no description line, or drive
// data cannot be allocated. A TIMEDATE that is absent or 0 leaves rec->time 0 (the platform
// layer then takes the file's own time).
int ReadSnapshotFile(const char* path, SnapshotRecord* rec, bool isNT);

// Single sections, each scanning the file from the top. -1 when the file cannot be opened.
int ReadTimeDateSection(const char* path, SnapshotRecord* rec);
int ReadFlagsSection(const char* path, SnapshotRecord* rec);
int ReadSysInfoSection(const char* path, SnapshotRecord* rec);
int ReadDrivesSection(const char* path, SnapshotRecord* rec, int version);
int ReadFileInfoSection(const char* path, SnapshotRecord* rec, int version);
int ReadRegInfoSection(const char* path, SnapshotRecord* rec, int version);
int ReadAssetInfoSection(const char* path, SnapshotRecord* rec, int version);
int ReadDirInfoSection(const char* path, SnapshotRecord* rec, int version);
int ReadRegBackSection(const char* path, SnapshotRecord* rec);
int ReadRegNtSection(const char* path, SnapshotRecord* rec);
// The number of OSVERSION (0 if absent) and the USERNAME line ("" if absent; out holds 260).
uint32_t ReadOsVersionSection(const char* path);
void ReadUserNameSection(const char* path, char* out);
// Version and description of an index file; -1 when it cannot be opened or has no description.
int ReadSnapshotHead(const char* path, int* version, char* description);

// ---- Writing --------------------------------------------------------------------------------
void WriteFormatVersion(FILE* f);
void WriteTimeDateSection(FILE* f, uint32_t packed);
void WriteFlagsSection(FILE* f, uint16_t flags);
void WriteOsVersionSection(FILE* f, uint32_t version);
void WriteUserNameSection(FILE* f, const char* user);
// Whole sections, markers included.
void WriteSysInfoRecords(FILE* f, const SysInfoItem* list);
void WriteDriveRecords(FILE* f, const DriveEntry* table);

// ---- Record fields ----------------------------------------------------------------------------
// Splits a record line in place from the right into n fields (the first keeps any commas).
// False when the line has fewer than n-1 commas.
bool SplitFromRight(char* line, int n, char** fields);
// Splits in place from the left at each of the first n-1 commas; false when too few.
bool SplitFromLeft(char* line, int n, char** fields);

}  // namespace orvalis
