// The snapshot store on the live file system: unique names for index and companion files,
// loading an index file into a record, and removing a snapshot with all its companions.
#pragma once
#include "store/snapshot.h"

namespace orvalis {

// The unique-name rules. The prefix is cut to four characters; names run from 0000 to 9999.
// The file rule reserves "%s%04u.%s" by creating it empty; the folder rule creates "%s%04u".
// Both write the bare name into out (260) and return 1, or 0 when the folder is missing, every
// name is taken, or the reservation fails.
int MakeUniqueFileName(const char* folder, const char* prefix, const char* ext, char* out);
int MakeUniqueFolderName(const char* folder, const char* prefix, char* out);

// Reads an index file into a zero-filled record and sets its path, bare name and (when the
// file has no time stamp) the file's own time. The platform decides between REGNT and REGBACK.
// Returns 0 or the reader's code (-1).
int LoadSnapshot(const char* path, SnapshotRecord* rec);

// A snapshot named by its caller: a bare index file name beside the engine. False when the path
// does not fit.
bool EngineSnapshotPath(const char* name, char* out);

// The record's data folder: the index file's folder + "NIMBRA\". False when the index path
// holds no backslash.
bool CompanionFolder(const char* indexPath, char* out);

// The full path of a companion in the data folder: false when name is not a bare file name
// (a record naming "..\x" or "." is invalid data, never used) or the path does not fit.
bool CompanionPath(const char* dataFolder, const char* name, char* out);
// Removes one companion file; a missing one is passed over. Read-only, hidden and system bits
// are cleared first: a copy keeps the attributes of its source and the delete would be refused.
void DeleteCompanionFile(const char* dataFolder, const char* name);

// The FILEINFO record of filePath (compared without regard to case) in an index file: the full
// path of its saved copy into out (260). False when the file cannot be read or holds no record.
bool FindFileInfoCopy(const char* indexPath, const char* filePath, char* out);
// The record of a registry key, asset or directory (name compared without regard to case): its
// companion's full path into companion (260) and its two numbers (either pointer may be null).
// False when the file cannot be read, holds no such record or the record has no usable companion.
enum class RecordGroup { kRegInfo, kAssetInfo, kDirInfo };
bool FindGroupRecord(const char* indexPath, RecordGroup group, const char* name, char* companion, int32_t* first,
                     uint32_t* second);
// The sides of a registry or asset difference document: each named snapshot's record of the item
// (its companion's full path and its two numbers). With no first snapshot the live system stands
// in (live must be set); with no second, live or nothing (a listing of the first alone). False
// when a named snapshot does not list the item or no side is given (the documents answer 87).
struct DocumentSide {
  bool named;           // a snapshot holds this side; otherwise the live system or nothing
  char companion[260];
  int32_t first;
  uint32_t second;
};
bool FindDocumentSides(const char* first, const char* second, const char* item, RecordGroup group, int live,
                       DocumentSide* older, DocumentSide* newer, bool* listing);
// The DIRINFO record of a directory: its listing's full path, compressed flag and CRC.
bool FindDirInfoRecord(const char* indexPath, const char* directory, char* listing, int32_t* compressed,
                       uint32_t* crc);

// Empties a folder recursively and removes it; names beginning with "." are passed over. 5 on
// the first failure, else 0.
int RemoveFolderTree(const char* folder);

}  // namespace orvalis
