#include "engine/strings.h"

#include <cstdio>

#include "base/textutil.h"
#include "engine/context.h"
#include "engine/sys.h"

namespace orvalis {

int LoadEngineString(HINSTANCE instance, UINT id, char* buffer, int size) {
  if (size <= 0) return 0;
  buffer[0] = '\0';
  if (instance) {
    int n = Sys().LoadStringA(instance, id, buffer, size);
    if (n > 0) return n;
  }
  char path[MAX_PATH] = "";
  DWORD got = Sys().GetModuleFileNameA(State().instance, path, MAX_PATH);
  if (got >= MAX_PATH) got = MAX_PATH - 1;
  path[got] = '\0';
  char* slash = FindLastChar(path, '\\');
  if (slash) {
    *slash = '\0';
    // Kept from the product: the engine's folder becomes the current directory, so that the
    // string library is found even by a bare name.
    Sys().SetCurrentDirectoryA(path);
    *slash = '\\';
    slash[1] = '\0';
  } else {
    path[0] = '\0';
  }
  AppendText(path, "TAMBRELL.DLL", sizeof path);
  HMODULE lib = Sys().LoadLibraryA(path);
  if (!lib) return 0;
  int n = Sys().LoadStringA(lib, id, buffer, size);
  Sys().FreeLibrary(lib);
  if (n <= 0) buffer[0] = '\0';
  return n > 0 ? n : 0;
}

int LoadLocalString(UINT id, char* buffer, int size) {
  return LoadEngineString(LoadLanguageLibrary(), id, buffer, size);
}

void ShowDestinationError(const char* path) {
  char text[MAX_PATH + 64];
  std::snprintf(text, sizeof text, "Destination file is invalid (%s)", path);
  Sys().MessageBoxA(nullptr, text, "Orvalis Engine Error", MB_OK);
}

void ShowOpenFailed(const char* path) { Sys().MessageBoxA(nullptr, "open failed", path, MB_OK); }

}  // namespace orvalis
