// Difference documents for the user interface.
#include "base/results.h"
#include "engine/context.h"
#include "exports/exports.h"
#include "items/dirtree/dirtree.h"
#include "items/sysfiles/sysfiles.h"

using namespace orvalis;

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
  if (!file || !output) return kResultInvalidParameter;
  return WriteSysFileComparison(older, newer, file, output, live);
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
  if (!directory || !output) return kResultInvalidParameter;
  return WriteDirComparison(older, newer, directory, output, live);
}
