// Directory trees: capture of a watched directory into a listing file, and the comparison of
// two listings, or a listing and the live disk, into one annotated tree.
//
// Listing file format (one per watched directory, in the data folder, possibly imploded):
//   line 1: the directory path without a trailing backslash (a drive root keeps it)
//   then depth first: each subdirectory's line followed by everything below it, then the
//   directory's files; each line "kind,size,time,path" with kind 1024 (directory) or 2048
//   (file), size in bytes, time the DOS date (high 16 bits) and time (low 16 bits), full path.
#pragma once
#include <windows.h>

#include <cstdint>
#include <cstdio>

#include "base/report_text.h"
#include "profiles/profile.h"
#include "store/snapshot.h"

namespace orvalis {

// DirNode flag bits.
constexpr uint16_t kDirOlder = 0x0001;        // from the older side; left set: deleted
constexpr uint16_t kDirNewer = 0x0002;        // only on the newer side: added
constexpr uint16_t kDirModified = 0x0004;     // file on both sides with another size or time
constexpr uint16_t kDirNewerCopy = 0x0008;    // follows a modified node: the newer size and time
constexpr uint16_t kDirMarked = 0x0020;       // root, and with 0x80 every ancestor of a change
constexpr uint16_t kDirChangeBelow = 0x0080;  // a change somewhere below
constexpr uint16_t kDirRoot = 0x0200;
constexpr uint16_t kDirDirectory = 0x0400;
constexpr uint16_t kDirFile = 0x0800;
constexpr uint16_t kDirAllocated = 0x8000;

struct DirNode {
  uint16_t flags;
  DirNode* next;
  DirNode* prev;
  DirNode* parent;
  DirNode* files;
  DirNode* subdirs;
  uint16_t depth;
  uint32_t time;
  uint32_t size;
  char* path;  // MAX_PATH on the heap; a directory's path has no trailing backslash, the root's has
  // Tails of the two lists: entries mostly arrive in order, so appending is the common case.
  DirNode* lastFile;
  DirNode* lastSubdir;
};

// Include and exclude filters ("*.ext" entries match by extension, others by name and extension).
struct DirFilters;
// Sections INC_FILTER and EXC_FILTER of a private-profile file (a missing file gives empty lists,
// which admit everything): 0 with *out set, or 8 when memory ran out (*out null).
int LoadDirFilters(const char* file, DirFilters** out);
void FreeDirFilters(DirFilters* filters);
bool FilterAdmits(const DirFilters* filters, const char* fileName);

// What the report and the XML export hand to CompareDirectory.
struct DirCompareRecord {
  uint16_t flags;  // 0x40 the older snapshot holds the directory, 0x80 the newer one does
  DirCompareRecord* next;
  char path[MAX_PATH];
  char olderListing[MAX_PATH];  // empty: the live directory
  int32_t olderCompressed;
  uint32_t olderCrc;
  char newerListing[MAX_PATH];  // empty: the live directory
  int32_t newerCompressed;
  uint32_t newerCrc;
  DirNode* tree;
};

extern const char kDirOnlyOlder[];
extern const char kDirOnlyNewer[];
extern const char kDirInNeither[];

// A fresh tree of the live directory; null when it does not exist or memory runs out.
DirNode* CaptureDirectory(const char* path);
// Writes one listing (imploded through "DIRTEMP.TMP" beside it when compress is non-zero, its
// CRC-32 through crc; 0 otherwise). 1 on success; a failed write leaves no target behind.
int WriteDirListing(const char* target, const DirNode* tree, int compress, uint32_t* crc);
// The tree of a listing file (side 1), filters applied when given; null when it cannot be read.
DirNode* LoadDirListing(const char* listing, int compressed, const DirFilters* filters = nullptr);
// Builds rec->tree: 1 on success, 0 when a tree cannot be built or the newer root differs.
int CompareDirectory(DirCompareRecord* rec, const DirFilters* filters);
void FreeDirTree(DirNode* node);

// The DIRINFO section: 0, or 13 when a listing cannot be written (section left open).
int WriteDirInfoSection(FILE* f, const Profile* profile, SnapshotRecord* rec);

// The DIRTREEXML difference document of one watched directory between two snapshots or a
// snapshot and the live disk, with the filters of ORVALIS.CFG beside the engine. 0 once compared
// (an output that cannot be created is shown in the destination box); 87 a named snapshot does
// not hold the directory, nothing to compare, or the comparison failed; 8 no memory.
uint32_t WriteDirComparison(const char* older, const char* newer, const char* directory, const char* output, int live);
// One report item per directory of the older snapshot, compared with the newer snapshot's listing
// or, with newer null, the live disk; a directory one side lacks carries the message that says so.
ReportTreeItem* CompareSnapshotDirectories(const SnapshotRecord* older, const SnapshotRecord* newer,
                                                  const DirFilters* filters);
// Deletes a snapshot's directory listings from its data folder.
void DeleteDirListings(const SnapshotRecord* rec, const char* dataFolder);

// The directory difference document (DIRTREEXML) of a compared tree.
void WriteDirTreeDocument(FILE* out, const DirNode* root, bool oneSided);

}  // namespace orvalis
