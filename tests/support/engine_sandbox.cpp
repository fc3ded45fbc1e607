// RegDeleteTreeA needs the Vista headers; the engine itself stays on the XP-level API.
#undef _WIN32_WINNT
#define _WIN32_WINNT 0x0600
#include "tests/support/engine_sandbox.h"

#include <cstdio>
#include <cstring>
#include <random>

#include "engine/context.h"
#include "engine/locale.h"
#include "engine/sys.h"

namespace orvalis_test {
namespace {

std::string g_modulePath;
std::string g_windowsFolder;

UINT WINAPI SandboxWindowsFolder(LPSTR out, UINT size) {
  lstrcpynA(out, g_windowsFolder.c_str(), static_cast<int>(size));
  return static_cast<UINT>(g_windowsFolder.size());
}

DWORD WINAPI SandboxModuleFileName(HMODULE module, LPSTR out, DWORD size) {
  if (module != nullptr && module != GetModuleHandleA(nullptr)) return GetModuleFileNameA(module, out, size);
  if (size == 0) return 0;
  DWORD n = static_cast<DWORD>(g_modulePath.size());
  if (n >= size) n = size - 1;
  std::memcpy(out, g_modulePath.data(), n);
  out[n] = '\0';
  return n;
}

}  // namespace

std::string WinPath(const std::string& unixPath) {
  if (unixPath.size() > 1 && unixPath[1] == ':') return unixPath;
  std::string p = "Z:" + unixPath;
  for (char& c : p)
    if (c == '/') c = '\\';
  return p;
}

std::string BinDir() { return WinPath(ORVALIS_BIN_DIR); }

EngineSandbox::EngineSandbox() {
  GetCurrentDirectoryA(sizeof cwd_, cwd_);
  orvalis::ResetSys();
  orvalis::EngineState& s = orvalis::State();
  s = orvalis::EngineState();
  s.instance = GetModuleHandleA(nullptr);
  s.isWindowsNT = (GetVersion() & 0x80000000u) ? 0 : 1;
  orvalis::InstallWindowsDateLocale();

  g_modulePath = scratch_.file("HALVERN.DLL");
  orvalis::Sys().GetModuleFileNameA = SandboxModuleFileName;

  std::random_device rd;
  char name[64];
  std::snprintf(name, sizeof name, "Software\\OrvalisTest\\%08x%08x", rd(), rd());
  hklm_ = name;
  RegCreateKeyExA(HKEY_CURRENT_USER, hklm_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &override_, nullptr);
  RegOverridePredefKey(HKEY_LOCAL_MACHINE, override_);
  // Every snapshot loads the registry and asset libraries from the engine's folder.
  CopyFromBin("MARLOW.DLL");
  CopyFromBin("CORVID.DLL");
}

EngineSandbox::~EngineSandbox() {
  RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
  if (override_) RegCloseKey(override_);
  RegDeleteTreeA(HKEY_CURRENT_USER, hklm_.c_str());
  orvalis::EngineState& s = orvalis::State();
  if (s.languageLibrary && s.languageLibrary != s.instance) FreeLibrary(s.languageLibrary);
  s = orvalis::EngineState();
  orvalis::ResetSys();
  SetCurrentDirectoryA(cwd_);
}

void EngineSandbox::RestoreSeam() {
  orvalis::ResetSys();
  orvalis::Sys().GetModuleFileNameA = SandboxModuleFileName;
}

void EngineSandbox::SetHklmString(const char* key, const char* value, const char* data) {
  HKEY k;
  if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, key, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr) != ERROR_SUCCESS)
    return;
  RegSetValueExA(k, value, 0, REG_SZ, reinterpret_cast<const BYTE*>(data), static_cast<DWORD>(std::strlen(data) + 1));
  RegCloseKey(k);
}

void EngineSandbox::CopyFromBin(const char* name, const char* as) {
  std::string from = BinDir() + "\\" + name;
  std::string to = file(as ? as : name);
  CopyFileA(from.c_str(), to.c_str(), FALSE);
}

void EngineSandbox::SetWindowsFolder(const std::string& folder) {
  g_windowsFolder = folder;
  orvalis::Sys().GetWindowsDirectoryA = SandboxWindowsFolder;
}

void EngineSandbox::RemoveCompanionLibraries() {
  DeleteFileA(file("MARLOW.DLL").c_str());
  DeleteFileA(file("CORVID.DLL").c_str());
}

void EngineSandbox::SetOrvalis(const char* key, const char* value) {
  WritePrivateProfileStringA("ORVALIS", key, value, file("ORVALIS.INI").c_str());
}

}  // namespace orvalis_test
