// Companion libraries are loaded from the engine's own folder for the length of one operation
// and freed before the export returns; nothing is cached between calls.
#pragma once
#include <windows.h>

namespace orvalis {

HMODULE LoadAssetLibrary();     // CORVID.DLL
HMODULE LoadRegistryLibrary();  // MARLOW.DLL
void UnloadLibrary(HMODULE handle);

// Looks up an entry point by its exported name and casts it to the caller's type.
template <typename Fn>
Fn LibraryEntry(HMODULE lib, const char* name);

// RAII form for code paths with several exits.
class CompanionLibrary {
 public:
  explicit CompanionLibrary(HMODULE h) : h_(h) {}
  ~CompanionLibrary() { UnloadLibrary(h_); }
  CompanionLibrary(const CompanionLibrary&) = delete;
  CompanionLibrary& operator=(const CompanionLibrary&) = delete;
  HMODULE get() const { return h_; }
  explicit operator bool() const { return h_ != nullptr; }

 private:
  HMODULE h_;
};

}  // namespace orvalis

#include "engine/sys.h"

template <typename Fn>
Fn orvalis::LibraryEntry(HMODULE lib, const char* name) {
  return lib ? reinterpret_cast<Fn>(reinterpret_cast<void*>(Sys().GetProcAddress(lib, name))) : nullptr;
}
