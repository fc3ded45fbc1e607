// Engine frame: the process-wide state (instance handle, platform, language library, processor
// probe setting, log path), the module and work folders and the settings-file paths.
#pragma once
#include <windows.h>

namespace orvalis {

struct EngineState {
  HINSTANCE instance = nullptr;   // the engine's own module, kept at process attach
  int isWindowsNT = 1;            // from the top bit of GetVersion at attach
  HMODULE languageLibrary = nullptr;
  int noCpuidSupport = 0;
  char logPath[MAX_PATH] = "";    // empty until ResetLog
};

EngineState& State();

// The library entry's work: reason 1 keeps the instance and the platform; 2 and 3 release the
// language library (unless it is the engine itself); everything else is ignored.
void HandleLibraryEntry(HINSTANCE instance, DWORD reason);

// Per-call start-up: loads the language library, reads NO_CPUID_SUPPORT from ORVALIS.INI in the
// work folder (or the module folder) into State().noCpuidSupport and returns it.
int InitEngine();
// Loads the language library when none is held; returns the handle in force.
HMODULE LoadLanguageLibrary();

// Module folder without the trailing backslash, and with it. Both return 0.
int GetModuleFolder(char* out);
int GetModuleFolderWithSlash(char* out);
// The work folder from the registry, with a trailing backslash, or "".
int GetWorkFolder(char* out);
int GetEngineIniPath(char* out);
int GetOrvalisIniPath(char* out);

// Platform flag read from the live GetVersion (the capture stages decide by it at run time).
bool RunningOnWindows9x();

}  // namespace orvalis
