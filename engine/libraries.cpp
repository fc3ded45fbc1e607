#include "engine/libraries.h"

#include <cstdio>

#include "base/textutil.h"
#include "engine/context.h"

namespace orvalis {
namespace {

HMODULE LoadCompanion(const char* file) {
  char path[MAX_PATH] = "";
  DWORD n = Sys().GetModuleFileNameA(State().instance, path, MAX_PATH);
  if (n >= MAX_PATH) n = MAX_PATH - 1;
  path[n] = '\0';
  char library[MAX_PATH];
  if (!SiblingPath(library, sizeof library, path, file)) return nullptr;
  return Sys().LoadLibraryA(library);
}

}  // namespace

HMODULE LoadAssetLibrary() { return LoadCompanion("CORVID.DLL"); }
HMODULE LoadRegistryLibrary() { return LoadCompanion("MARLOW.DLL"); }

void UnloadLibrary(HMODULE handle) {
  if (handle) Sys().FreeLibrary(handle);
}

}  // namespace orvalis
