// Difference documents for the user interface.
#include <cstdlib>
#include <cstring>

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
