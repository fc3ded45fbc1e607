// System file capture: copies of the profile's system files in the data folder, listed in
// FILEINFO. A file that cannot be copied is simply left out of the snapshot.
#pragma once
#include <cstdio>

#include "profiles/profile.h"
#include "store/snapshot.h"

namespace orvalis {

// "<windows>" and "<system>" (any case) at the start of a path: 1 with the resolved path in out
// (260), 0 when the path has no ">" or the token is unknown.
int ResolvePathToken(const char* path, char* out);
// The FILEINFO section. 0, or 13 when the index path holds no backslash (nothing written).
int WriteFileInfo(FILE* f, const Profile* profile, SnapshotRecord* rec);

}  // namespace orvalis
