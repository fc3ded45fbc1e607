// The Win32 half of MARLOW.DLL: the live registry read into trees, dumped, and written back.
// Result codes are Win32 numbers. Key paths name their root in full or short form.
#pragma once
#include "base/changetree.h"

namespace marlow {

// The key and its subtree from the live registry. 3 when the key does not exist: *out is then
// the key's root node alone, so that a comparison against it marks the whole other side.
int ReadLiveKey(const char* keyPath, ChangeNode** out);
// Dumps the given roots (RegRoot ids) into path; a root that cannot be opened is left out.
int DumpRegistry(const char* path, int compression, const int* roots, int rootCount);
// One key from a dump: 0, 2 (no file), 3 (no such key), 8, 13 (not a dump of ours or damaged).
int ReadDumpKey(const char* file, const char* keyPath, ChangeNode** out);
// Writes the first side of a compared tree back into the live key the tree was read for.
int UpdateLive(const ChangeNode* tree);
// One key into a save file of the folder / the live key made equal to its save (2: no save).
int SaveKey(const char* keyPath, const char* folder);
int RestoreKey(const char* keyPath, const char* folder);

}  // namespace marlow
