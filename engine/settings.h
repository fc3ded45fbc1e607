// The two settings files. ENGINE.INI (beside the engine) says where profiles and snapshots live;
// ORVALIS.INI (in the work folder, else beside the engine) holds the engine's switches. Both are
// read at each use, so a change made by the user interface is seen by the next call.
#pragma once
#include <windows.h>

namespace orvalis {

// ENGINE.INI getters fill a 260-character buffer (the default when the value is empty) and
// return 0; setters write the caller's string and return 0.
int GetProfileSourceLocation(char* out);
int SetProfileSourceLocation(const char* value);
int GetProfileDestinationLocation(char* out);
int SetProfileDestinationLocation(const char* value);
int GetDefaultProfile(char* out);
int SetDefaultProfile(const char* value);
int GetSnapshotSourceLocation(char* out);
int SetSnapshotSourceLocation(const char* value);
int GetSnapshotDestinationLocation(char* out);
int SetSnapshotDestinationLocation(const char* value);

// The newest-looking "*.GCF" of the module folder, by the scan's own rule (see .cpp); "" if none.
void ScanDefaultProfile(char* out);

// [ORVALIS] keys of ORVALIS.INI.
int ReadOrvalisInt(const char* key, int defaultValue);
void ReadOrvalisString(const char* key, const char* defaultValue, char* out, DWORD size);
void WriteOrvalisString(const char* key, const char* value);

// CompressRegistrySnap normalised: 0, 1, 1024, 2048 and 4096 are kept, anything else is 1024.
int RegistrySnapCompression();

}  // namespace orvalis
