// Difference documents for the user interface.
#include "base/results.h"
#include "drivers/info.h"
#include "engine/context.h"
#include "exports/exports.h"
#include "items/assets/assets.h"
#include "items/dirtree/dirtree.h"
#include "items/registry/registry.h"
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

// CompareRegtoXML (first, second, key, destination, live): the REGKEYXML document of one registry
// key between two snapshots, a snapshot and the live registry (live non-zero), or one snapshot
// alone (a listing, every node "X"). first and second are index file names beside the engine.
// Results: 87 when key or destination is missing, a named snapshot does not list the key, or
// neither a first snapshot nor live is given; 0 otherwise, also when the destination cannot be
// created (the "Destination file is invalid" box is shown) or the tree cannot be built (the
// document then has only its frame).
extern "C" unsigned long CompareRegtoXML(const char* first, const char* second, const char* key,
                                         const char* destination, int live) {
  InitEngine();
  if (!key || !destination) return kResultInvalidParameter;
  return WriteRegComparison(first, second, key, destination, live);
}

// CompareAssettoXML (first, second, asset, destination, live): the ASSETXML document of one
// installed-program asset between two snapshots, a snapshot and the live files (live non-zero),
// or one snapshot alone (a listing, every node "X"). Results as CompareRegtoXML's: 87 for a
// missing argument, an asset a named snapshot does not list, or no side; 0 otherwise.
extern "C" unsigned long CompareAssettoXML(const char* first, const char* second, const char* asset,
                                           const char* destination, int live) {
  InitEngine();
  if (!asset || !destination) return kResultInvalidParameter;
  return WriteAssetComparison(first, second, asset, destination, live);
}

// SnapshotInfoXML (snapshot, output): the ORVALISBCF document of one snapshot (an index file name
// beside the engine). Results: 0; 87 a missing argument; 13 the snapshot cannot be read; 8 no
// memory; 2 the output cannot be created (after the "Destination file is invalid" box).
extern "C" unsigned long SnapshotInfoXML(const char* snapshot, const char* output) {
  InitEngine();
  if (!snapshot || !output) return kResultInvalidParameter;
  return WriteSnapshotInfo(snapshot, output);
}
