#include <windows.h>

#include "engine/context.h"
#include "engine/locale.h"

// The library entry always answers 1; see HandleLibraryEntry for what each reason does.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) orvalis::InstallWindowsDateLocale();
  orvalis::HandleLibraryEntry(instance, reason);
  return TRUE;
}
