// RegDeleteTreeA needs the Vista headers; the engine itself stays on the XP-level API, and the
// tests reach it only through TestKey.
#undef _WIN32_WINNT
#define _WIN32_WINNT 0x0600
#include "tests/support/engine_sandbox.h"

#include <cstring>
#include <random>

#include "engine/context.h"
#include "engine/locale.h"
#include "engine/settings.h"
#include "engine/sys.h"

namespace orvalis_test {
namespace {

std::string g_modulePath;
std::string g_windowsFolder;
std::string g_messageBox;

int WINAPI SandboxMessageBox(HWND, LPCSTR text, LPCSTR title, UINT) {
  g_messageBox = std::string(text) + "|" + title;
  return IDOK;
}

UINT WINAPI SandboxWindowsFolder(LPSTR out, UINT size) {
  lstrcpynA(out, g_windowsFolder.c_str(), static_cast<int>(size));
  return static_cast<UINT>(g_windowsFolder.size());
}

DWORD WINAPI SandboxModuleFileName(HMODULE module, LPSTR out, DWORD size) {
  if (module != nullptr && module != GetModuleHandleA(nullptr)) return GetModuleFileNameA(module, out, size);
  if (size == 0) return 0;
  lstrcpynA(out, g_modulePath.c_str(), static_cast<int>(size));
  return static_cast<DWORD>(std::strlen(out));
}

}  // namespace

// Wine maps / to Z:.
std::string BinDir() {
  std::string p = "Z:" ORVALIS_BIN_DIR;
  for (char& c : p) if (c == '/') c = '\\';
  return p;
}

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
  for (const char* name : {"MARLOW.DLL", "CORVID.DLL"}) CopyFromBin(name);
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
  CopyFileA((BinDir() + "\\" + name).c_str(), file(as ? as : name).c_str(), FALSE);
}

void EngineSandbox::SetWindowsFolder(const std::string& folder) {
  g_windowsFolder = folder;
  orvalis::Sys().GetWindowsDirectoryA = SandboxWindowsFolder;
}

void EngineSandbox::RemoveCompanionLibraries() {
  for (const char* name : {"MARLOW.DLL", "CORVID.DLL"}) DeleteFileA(file(name).c_str());
}

void EngineSandbox::SetOrvalis(const char* key, const char* value) {
  WritePrivateProfileStringA("ORVALIS", key, value, file("ORVALIS.INI").c_str());
}

const std::string& EngineSandbox::CaptureMessageBoxes() {
  g_messageBox.clear();
  orvalis::Sys().MessageBoxA = SandboxMessageBox;
  return g_messageBox;
}

void EngineSandbox::MakeDirs(std::initializer_list<const char*> names) const {
  for (const char* n : names) CreateDirectoryA(file(n).c_str(), nullptr);
}

std::string EngineSandbox::Log() const { return NoCr(ReadWholeFile(file("halvern.log"))); }

std::string EngineSandbox::UndoBase() const {
  char v[MAX_PATH];
  orvalis::ReadOrvalisString("UNDOBASE", "", v, sizeof v);
  return v;
}

std::string IndexSection(const std::string& index, const std::string& name) {
  const std::string start = "[" + name + "_START]\r\n";
  const size_t a = index.find(start);
  if (a == std::string::npos) return "<none>";
  return index.substr(a + start.size(), index.find("[" + name + "_END]") - a - start.size());
}

TestKey::TestKey(const char* tag) {
  std::random_device rd;
  path_ = std::string("Software\\OrvalisTest\\") + tag + std::to_string(rd());
}

TestKey::~TestKey() { RegDeleteTreeA(HKEY_CURRENT_USER, path_.c_str()); }

std::string TestKey::Full(const std::string& sub) const { return "HKCU\\" + Sub(sub); }

void TestKey::Set(const std::string& sub, const char* name, const std::string& data, DWORD type) const {
  HKEY k;
  if (RegCreateKeyExA(HKEY_CURRENT_USER, Sub(sub).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr) != 0)
    return;
  RegSetValueExA(k, name, 0, type, reinterpret_cast<const BYTE*>(data.c_str()),
                 static_cast<DWORD>(data.size() + (type == REG_SZ ? 1 : 0)));
  RegCloseKey(k);
}

std::string TestKey::Get(const std::string& sub, const char* name) const {
  HKEY k;
  if (RegOpenKeyExA(HKEY_CURRENT_USER, Sub(sub).c_str(), 0, KEY_READ, &k) != 0) return "<no key>";
  char buf[512];
  DWORD size = sizeof buf, type = 0;
  const LONG rc = RegQueryValueExA(k, name, nullptr, &type, reinterpret_cast<BYTE*>(buf), &size);
  RegCloseKey(k);
  if (rc != 0) return "<none>";
  return type == REG_SZ ? std::string(buf) : std::string(buf, size);
}

void TestKey::Delete(const std::string& sub, const char* name) const {
  if (!name) {
    RegDeleteTreeA(HKEY_CURRENT_USER, Sub(sub).c_str());
    return;
  }
  HKEY k;
  if (RegOpenKeyExA(HKEY_CURRENT_USER, Sub(sub).c_str(), 0, KEY_ALL_ACCESS, &k) != 0) return;
  RegDeleteValueA(k, name);
  RegCloseKey(k);
}

}  // namespace orvalis_test
