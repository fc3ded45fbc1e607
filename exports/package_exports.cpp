// Moving snapshots between folders and machines, and checking them.
#include "base/results.h"
#include "drivers/package.h"
#include "engine/context.h"
#include "exports/exports.h"

using namespace orvalis;

// ExportSnapshot (name, package): the snapshot (an index file name beside the engine) and every
// companion it names, packed into one file with each entry's name, size and CRC-32. Results: 0;
// 87 a missing argument; 2 the snapshot or one of its companions is missing; 13 it cannot be
// read; 8 no memory; 5 the package cannot be created; 29 it could not be written whole (nothing
// is left of it then).
extern "C" unsigned long ExportSnapshot(const char* name, const char* packagePath) {
  InitEngine();
  if (!name || !packagePath) return kResultInvalidParameter;
  return ExportSnapshotPackage(name, packagePath);
}

// ImportSnapshot (package, folder): the package read back into folder (null or empty: the
// engine's folder) as a new snapshot with a fresh "BASE" name, fresh companion names and the
// "Imported" flag. Every entry is checked before anything is written, nothing is overwritten,
// and a failure leaves nothing behind. Results: 0; 87; 2 no package; 13 a damaged or foreign
// package or an entry named with a folder, "..", a drive or a device; 5; 8; 29.
extern "C" unsigned long ImportSnapshot(const char* packagePath, const char* folder) {
  InitEngine();
  if (!packagePath) return kResultInvalidParameter;
  return ImportSnapshotPackage(packagePath, folder, nullptr);
}

// VerifySnapshot (name, report): checks a snapshot (an index file name beside the engine) or a
// package (any other path): every companion named is there and every recorded CRC-32 matches.
// One line per finding goes to report. Results: 0 intact; 13 damage found; 2 no such snapshot;
// 87 a missing argument; 110 the report cannot be opened.
extern "C" unsigned long VerifySnapshot(const char* name, const char* report) {
  InitEngine();
  if (!name || !report) return kResultInvalidParameter;
  return VerifySnapshotFiles(name, report);
}
