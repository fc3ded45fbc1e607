// Localised texts and the engine's few message boxes.
#pragma once
#include <windows.h>

namespace orvalis {

// String `id` from `instance` (normally the language library); when that gives nothing, from
// TAMBRELL.DLL beside the engine. Returns the length, 0 when no text was found (buffer then "").
int LoadEngineString(HINSTANCE instance, UINT id, char* buffer, int size);
// The same with the language library of the current call.
int LoadLocalString(UINT id, char* buffer, int size);

// "Destination file is invalid (%s)" in a box titled "Orvalis Engine Error"; callers return 2.
void ShowDestinationError(const char* path);
// "open failed" with the path as the caption (the list documents).
void ShowOpenFailed(const char* path);

}  // namespace orvalis
