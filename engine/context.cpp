#include "engine/context.h"

#include <cstdio>
#include <cstring>

#include "base/textutil.h"
#include "engine/sys.h"

namespace orvalis {

EngineState& State() {
  static EngineState state;
  return state;
}

void HandleLibraryEntry(HINSTANCE instance, DWORD reason) {
  EngineState& s = State();
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      s.instance = instance;
      s.isWindowsNT = (Sys().GetVersion() & 0x80000000u) ? 0 : 1;
      break;
    case DLL_THREAD_ATTACH:
    case DLL_THREAD_DETACH:
      // Released on purpose at every thread notification; the next call's InitEngine loads it
      // again. The engine's own module stands in when no language library was found.
      if (s.languageLibrary && s.languageLibrary != s.instance) Sys().FreeLibrary(s.languageLibrary);
      s.languageLibrary = nullptr;
      break;
    default:
      break;
  }
}

namespace {

// Module path as GetModuleFileNameA gives it for the engine's own instance.
void ModulePath(char* out) {
  out[0] = '\0';
  DWORD n = Sys().GetModuleFileNameA(State().instance, out, MAX_PATH);
  if (n >= MAX_PATH) n = MAX_PATH - 1;
  out[n] = '\0';
}

}  // namespace

int GetModuleFolder(char* out) {
  ModulePath(out);
  char* slash = FindLastChar(out, '\\');
  if (slash) *slash = '\0';
  return 0;
}

int GetModuleFolderWithSlash(char* out) {
  ModulePath(out);
  char* slash = FindLastChar(out, '\\');
  if (slash) slash[1] = '\0';
  return 0;
}

int GetWorkFolder(char* out) {
  out[0] = '\0';
  HKEY key;
  if (Sys().RegOpenKeyExA(HKEY_LOCAL_MACHINE, "software\\Quillant\\Orvalis", 0, KEY_QUERY_VALUE, &key) !=
      ERROR_SUCCESS)
    return 0;
  char value[MAX_PATH] = "";
  DWORD size = sizeof value;
  DWORD type = 0;
  LONG rc = Sys().RegQueryValueExA(key, "OrvalisWorkDir", nullptr, &type, reinterpret_cast<BYTE*>(value), &size);
  Sys().RegCloseKey(key);
  if (rc != ERROR_SUCCESS) return 0;
  value[MAX_PATH - 1] = '\0';
  if (value[0] == '\0') return 0;
  const char* slash = FindLastChar(value, '\\');
  const bool endsInSlash = slash && slash[1] == '\0';
  std::snprintf(out, MAX_PATH, "%s%s", value, endsInSlash ? "" : "\\");
  return 0;
}

int GetEngineIniPath(char* out) {
  char folder[MAX_PATH];
  GetModuleFolder(folder);
  std::snprintf(out, MAX_PATH, "%s\\%s", folder, "ENGINE.INI");
  return 0;
}

int GetOrvalisIniPath(char* out) {
  char folder[MAX_PATH];
  GetWorkFolder(folder);
  if (folder[0] == '\0') GetModuleFolderWithSlash(folder);
  std::snprintf(out, MAX_PATH, "%s%s%s", folder, EndsWith(folder, '\\') ? "" : "\\", "ORVALIS.INI");
  return 0;
}

HMODULE LoadLanguageLibrary() {
  EngineState& s = State();
  if (s.languageLibrary) return s.languageLibrary;
  char abbrev[16] = "";
  Sys().GetLocaleInfoA(Sys().GetUserDefaultLCID(), LOCALE_SABBREVLANGNAME, abbrev, sizeof abbrev);
  abbrev[3] = '\0';
  char name[32];
  std::snprintf(name, sizeof name, "%sOV%s", abbrev, "32.DLL");
  UINT previous = Sys().SetErrorMode(0x8000);
  HMODULE lib = Sys().LoadLibraryA(name);
  if (!lib && std::strlen(name) > 2) {
    name[2] = 'A';  // the language's neutral form: "ENU" -> "ENA"
    lib = Sys().LoadLibraryA(name);
  }
  Sys().SetErrorMode(previous);
  s.languageLibrary = lib ? lib : s.instance;
  return s.languageLibrary;
}

int InitEngine() {
  LoadLanguageLibrary();
  char ini[MAX_PATH];
  GetOrvalisIniPath(ini);
  State().noCpuidSupport = static_cast<int>(Sys().GetPrivateProfileIntA("ORVALIS", "NO_CPUID_SUPPORT", 0, ini));
  return State().noCpuidSupport;
}

bool RunningOnWindows9x() { return (Sys().GetVersion() & 0x80000000u) != 0; }

}  // namespace orvalis
