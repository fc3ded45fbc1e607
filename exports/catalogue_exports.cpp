// Catalogue exports: list, delete and rename the snapshots beside the engine.
#include <cstdio>

#include "base/results.h"
#include "base/textutil.h"
#include "drivers/delete.h"
#include "engine/context.h"
#include "exports/exports.h"
#include "store/catalogue.h"

using namespace orvalis;

namespace {
bool BesideEngine(const char* name, char* out) {
  char folder[MAX_PATH];
  GetModuleFolderWithSlash(folder);
  return name && std::snprintf(out, MAX_PATH, "%s%s", folder, name) < MAX_PATH;
}
}  // namespace

// GetSnapshotList (outFolder, outName): the snapshot list document of every "*.BCF" beside the
// engine. 0; 8 no memory; 110 the output cannot be opened ("open failed" box first).
extern "C" unsigned long GetSnapshotList(const char* outFolder, const char* outName) {
  InitEngine();
  char out[MAX_PATH], folder[MAX_PATH];
  if (!outFolder || !outName || !JoinPath(out, sizeof out, outFolder, outName)) return kResultOpenFailed;
  GetModuleFolderWithSlash(folder);
  return WriteSnapshotList(folder, out);
}

// DeleteSnapshot (name): the snapshot and all its companion files. 0, or the reader's code
// (0xFFFFFFFF when it cannot be read), or 8.
extern "C" unsigned long DeleteSnapshot(const char* name) {
  InitEngine();
  char path[MAX_PATH];
  if (!BesideEngine(name, path)) return kResultInvalidData;
  return DeleteSnapshotAt(path);
}

// RenameSnapshot (name, description): a new description line; the file time is kept. 0 or -1.
extern "C" unsigned long RenameSnapshot(const char* name, const char* description) {
  InitEngine();
  char path[MAX_PATH];
  if (!BesideEngine(name, path)) return static_cast<unsigned long>(-1);
  return static_cast<unsigned long>(RenameSnapshotAt(path, description));
}
