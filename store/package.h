// The snapshot package: one file that carries a snapshot's index file and every companion it
// names, so that a snapshot can be moved to another folder or machine and checked on arrival.
// Portable.
//
// Format (little-endian):
//   "ORVALPKG"                       8-byte magic
//   u32 version (1), u32 entry count
//   per entry: u8 kind, u8 folder length, folder, u8 name length, name,
//              u32 size, u32 CRC-32 of the data, u32 stored size, the data imploded
//              (binary literals, 4096-byte dictionary)
//   u32 CRC-32 of every byte before it
// kind: 1 the index file, 2 a companion file, 3 a file inside a companion folder (the registry
// save folder of an NT snapshot), named by folder and name. Every folder and name is a bare file
// name: no folder part, no "." or "..", no drive, no device name (CON, NUL, COM1, LPT1, ... with or
// without an extension).
#pragma once
#include <cstdint>
#include <cstdio>

namespace orvalis {

enum PackageKind : uint8_t { kPackageIndex = 1, kPackageFile = 2, kPackageFolderFile = 3 };

// Result codes of the package calls (Win32 numbers: they cross the export boundary).
enum PackageResult : int {
  kPackageOk = 0,
  kPackageNotFound = 2,     // a file to add, or the package, cannot be opened
  kPackageCannotCreate = 5, // the package or an extracted file cannot be created
  kPackageNoMemory = 8,
  kPackageBadData = 13,     // not a package of ours, or damaged: truncated, flipped, wrong CRC, bad name
  kPackageWriteFault = 29,  // writing failed (disk full)
};

struct PackageEntry {
  uint8_t kind;
  char folder[260];
  char name[260];
  uint32_t size;
  uint32_t crc;
};

// True for a name a package may carry (see above).
bool IsPackageName(const char* name);

// ---- Writing ---------------------------------------------------------------------------------
struct PackageWriter;
// Creates the package file (replacing one of that name): null when it cannot be created.
PackageWriter* OpenPackageWriter(const char* path, uint32_t entries);
// Adds the file at source as one entry; 0 or a PackageResult.
int AddPackageEntry(PackageWriter* w, uint8_t kind, const char* folder, const char* name, const char* source);
// Writes the trailer and closes; 0, or a PackageResult (the package is then removed). Also
// releases the writer when an earlier call failed (pass abandon true: the package is removed).
int ClosePackageWriter(PackageWriter* w, bool abandon);

// ---- Reading ---------------------------------------------------------------------------------
// Checks the whole package: trailer, every entry's framing, name and data (decoded and its CRC
// compared). On success *entries holds the entries in order (free with FreePackageEntries) and
// *count their number. Nothing is written.
int VerifyPackage(const char* path, PackageEntry** entries, uint32_t* count);
void FreePackageEntries(PackageEntry* entries);
// Writes entry number index (from 0) of a verified package into target (the caller has reserved
// that name). 0 or a PackageResult; a failed target is removed.
int ExtractPackageEntry(const char* path, uint32_t index, const char* target);

}  // namespace orvalis
