#include <cstdio>

#include "base/textutil.h"
#include "engine/context.h"
#include "exports/exports.h"
#include "profiles/profile.h"

using namespace orvalis;

// GetProfileList (outFolder, outName): the profile list document of every "*.GCF" beside the
// engine, written to outFolder\outName. 0, or 1 when the document cannot be written (after the
// "open failed" box).
extern "C" unsigned long GetProfileList(const char* outFolder, const char* outName) {
  InitEngine();
  char out[MAX_PATH], folder[MAX_PATH];
  if (!outFolder || !outName || !JoinPath(out, sizeof out, outFolder, outName)) return 1;
  GetModuleFolderWithSlash(folder);
  return static_cast<unsigned long>(WriteProfileList(folder, out));
}
