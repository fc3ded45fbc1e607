// Difference documents for the user interface.
#include <cstdlib>
#include <cstring>

#include "capture/dirtree.h"
#include "compare/filecompare.h"
#include "compare/sysfilexml.h"
#include "engine/context.h"
#include "engine/cursor.h"
#include "engine/strings.h"
#include "engine/sys.h"
#include "exports/exports.h"
#include "store/store_win.h"
#include "store/textutil.h"

using namespace orvalis;

namespace {

// A snapshot name given by the caller: a bare index file name beside the engine.
bool SnapshotPath(const char* name, char* out) {
  char folder[MAX_PATH];
  GetModuleFolderWithSlash(folder);
  return std::snprintf(out, MAX_PATH, "%s%s", folder, name) < MAX_PATH;
}

}  // namespace

// CompareFilestoXML (older, newer, file, output, live): the SYSFILE document of one system
// file between two snapshots, or a snapshot and the live file (live non-zero takes the live
// file for a missing side). older and newer are index file names beside the engine, either
// may be null; file is the path as its FILEINFO record holds it.
// Results: 0 written; 87 a named snapshot has no record of the file, or neither an older
// snapshot nor live is given; 8 out of memory; 2 the output cannot be created (after the
// "Destination file is invalid" box).
extern "C" unsigned long CompareFilestoXML(const char* older, const char* newer, const char* file, const char* output,
                                           int live) {
  InitEngine();
  if (!file || !output) return 87;
  char olderCopy[MAX_PATH], newerCopy[MAX_PATH] = "", index[MAX_PATH];
  if (older) {
    if (!SnapshotPath(older, index) || !FindFileInfoCopy(index, file, olderCopy)) return 87;
  } else if (live) {
    CopyText(olderCopy, file, sizeof olderCopy);
  } else {
    return 87;
  }
  uint16_t flags = 0x42;
  bool oneSided = true;
  if (newer) {
    if (!SnapshotPath(newer, index) || !FindFileInfoCopy(index, file, newerCopy)) return 87;
    flags = 0xC2;
    oneSided = false;
  } else if (live) {
    CopyText(newerCopy, file, sizeof newerCopy);
    flags = 0xC2;
    oneSided = false;
  }
  auto* item = static_cast<FileCompareItem*>(Sys().calloc(1, sizeof(FileCompareItem)));
  if (!item) return 8;
  item->flags = flags;
  CopyText(item->path, file, sizeof item->path);
  CopyText(item->olderCopy, olderCopy, sizeof item->olderCopy);
  CopyText(item->newerCopy, newerCopy, sizeof item->newerCopy);
  {
    WaitCursor cursor;
    CompareSystemFile(item);
    cursor.Restore();
  }
  unsigned long rc = 0;
  FILE* out = Sys().fopen(output, "wt");
  if (!out) {
    ShowDestinationError(output);
    rc = 2;
  } else {
    rc = static_cast<unsigned long>(WriteSysFileDocument(out, item, oneSided));
    std::fclose(out);
  }
  FreeIniSections(item->sections);
  FreeLineChanges(item->lines);
  std::free(item);
  return rc;
}

// CompareDirtoXML (older, newer, directory, output, live): the DIRTREEXML document of one
// watched directory between two snapshots, or a snapshot and the live disk (live non-zero takes
// the disk for a missing side). The filters of ORVALIS.CFG beside the engine apply.
// Results: 0 once the comparison succeeded (an output that cannot be created is reported by the
// "Destination file is invalid" box, the result stays 0); 87 a named snapshot does not hold the
// directory, neither an older snapshot nor live is given, or the comparison fails; 8 no memory.
extern "C" unsigned long CompareDirtoXML(const char* older, const char* newer, const char* directory,
                                         const char* output, int live) {
  InitEngine();
  if (!directory || !output) return 87;
  char folder[MAX_PATH];
  GetModuleFolderWithSlash(folder);
  uint16_t flags = 0x40;
  bool oneSided = true;
  char olderListing[MAX_PATH] = "", newerListing[MAX_PATH] = "", index[MAX_PATH];
  int32_t olderCompressed = 0, newerCompressed = 0;
  uint32_t olderCrc = 0, newerCrc = 0;
  if (older) {
    if (!SnapshotPath(older, index) ||
        !FindDirInfoRecord(index, directory, olderListing, &olderCompressed, &olderCrc))
      return 87;
  } else if (!live) {
    return 87;
  }
  if (newer) {
    if (!SnapshotPath(newer, index) ||
        !FindDirInfoRecord(index, directory, newerListing, &newerCompressed, &newerCrc))
      return 87;
    flags |= 0x80;
    oneSided = false;
  } else if (live) {
    flags |= 0x80;
    oneSided = false;
  }
  auto* rec = static_cast<DirCompareRecord*>(Sys().calloc(1, sizeof(DirCompareRecord)));
  if (!rec) return 8;
  rec->flags = flags | 0x4000;
  CopyText(rec->path, directory, sizeof rec->path);
  CopyText(rec->olderListing, olderListing, sizeof rec->olderListing);
  CopyText(rec->newerListing, newerListing, sizeof rec->newerListing);
  rec->olderCompressed = olderCompressed;
  rec->olderCrc = olderCrc;
  rec->newerCompressed = newerCompressed;
  rec->newerCrc = newerCrc;
  char cfg[MAX_PATH];
  DirFilters* filters = nullptr;
  if (std::snprintf(cfg, sizeof cfg, "%sORVALIS.CFG", folder) < MAX_PATH) filters = LoadDirFilters(cfg);
  unsigned long rc = 87;
  if (CompareDirectory(rec, filters)) {
    FILE* out = Sys().fopen(output, "wt");
    if (!out) {
      ShowDestinationError(output);
    } else if (char* line = static_cast<char*>(Sys().calloc(520, 1))) {
      WriteDirTreeDocument(out, rec->tree, oneSided);
      std::free(line);
      std::fclose(out);
    } else {
      std::fclose(out);  // no line buffer: the document stays empty
    }
    FreeDirTree(rec->tree);
    rc = 0;
  }
  FreeDirFilters(filters);
  std::free(rec);
  return rc;
}
